// Creating, finding and destroying a session among many, beside the standard containers that one would take instead.
#include <nyx_session_store.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <unordered_map>
#include <vector>

#include "pairs.h"

namespace {

// What the benchmark asks of a store; ids are drawn by it, sessions are zeroed records of their own.
struct library_store {
    library_store() : api(std::make_unique<nyx_api_ctx>()) { require_zero(nyx_session_store_init(api.get())); }
    ~library_store() { nyx_session_store_cleanup(api.get()); }
    library_store(const library_store &) = delete;
    library_store &operator=(const library_store &) = delete;

    nyx_session_ctx *create() { return nyx_session_create(api.get()); }
    nyx_session_ctx *find(std::uint32_t id) { return nyx_session_find(api.get(), id); }
    void destroy(nyx_session_ctx *session) { nyx_session_destroy(api.get(), session); }

    static void require_zero(rcode rc) {
        if (rc != 0) {
            std::abort();
        }
    }

    std::unique_ptr<nyx_api_ctx> api;
};

template <class Map>
struct container_store {
    nyx_session_ctx *create() {
        auto session = std::make_unique<nyx_session_ctx>();
        do {
            session->session_id = static_cast<std::uint32_t>(lrand48()) ^ static_cast<std::uint32_t>(generator());
        } while (session->session_id == 0 || sessions.contains(session->session_id));
        nyx_session_ctx *const created = session.get();
        sessions.emplace(created->session_id, std::move(session));
        return created;
    }
    nyx_session_ctx *find(std::uint32_t id) {
        const auto found = sessions.find(id);
        return found == sessions.end() ? nullptr : found->second.get();
    }
    void destroy(nyx_session_ctx *session) { sessions.erase(session->session_id); }

    std::minstd_rand generator;
    Map sessions;
};

using map_store = container_store<std::map<std::uint32_t, std::unique_ptr<nyx_session_ctx>>>;
using hash_store = container_store<std::unordered_map<std::uint32_t, std::unique_ptr<nyx_session_ctx>>>;

template <class Store>
struct populated {
    explicit populated(std::size_t live) : sessions(live) {
        for (nyx_session_ctx *&session : sessions) {
            session = store.create();
        }
        std::shuffle(sessions.begin(), sessions.end(), std::minstd_rand(7));
    }

    Store store;
    std::vector<nyx_session_ctx *> sessions;
};

// The first measurement builds the store: a run that selects other pairs does not pay for it.
template <class Store>
class lazily_populated {
  public:
    explicit lazily_populated(std::size_t live) : live_(live) {}
    populated<Store> &operator*() {
        if (stored_ == nullptr) {
            stored_ = std::make_unique<populated<Store>>(live_);
        }
        return *stored_;
    }

  private:
    std::size_t live_;
    std::unique_ptr<populated<Store>> stored_;
};

template <class Store>
using shared_store = std::shared_ptr<lazily_populated<Store>>;

template <class Store>
timed_loop finding(const shared_store<Store> &shared) {
    return [shared](std::size_t count) {
        populated<Store> &all = **shared;
        return nanoseconds([&] {
            for (std::size_t i = 0; i < count; ++i) {
                keep(all.store.find(all.sessions[i % all.sessions.size()]->session_id));
            }
        });
    };
}

// Sessions on top of those that live, so that their number hardly changes.
template <class Store, bool time_creation>
timed_loop creating_and_destroying(const shared_store<Store> &shared) {
    return [shared](std::size_t count) {
        populated<Store> &all = **shared;
        std::vector<nyx_session_ctx *> fresh(count);
        const double creation = nanoseconds([&] {
            for (nyx_session_ctx *&session : fresh) {
                session = all.store.create();
            }
        });
        const double destruction = nanoseconds([&] {
            for (nyx_session_ctx *session : fresh) {
                all.store.destroy(session);
            }
        });
        return time_creation ? creation : destruction;
    };
}

template <class Peer>
void add_peer(pairs &all, std::size_t live, const shared_store<library_store> &ours, const char *peer_name) {
    const auto peer = std::make_shared<lazily_populated<Peer>>(live);
    const std::string among = " among " + std::to_string(live);
    const std::size_t count = std::min<std::size_t>(std::max<std::size_t>(live / 10, 50), 20'000);
    all.push_back({"session create" + among, peer_name, count, creating_and_destroying<library_store, true>(ours),
                   creating_and_destroying<Peer, true>(peer)});
    all.push_back({"session find" + among, peer_name, 50'000, finding(ours), finding<Peer>(peer)});
    all.push_back({"session destroy" + among, peer_name, count, creating_and_destroying<library_store, false>(ours),
                   creating_and_destroying<Peer, false>(peer)});
}

}  // namespace

void add_sessions(pairs &all) {
    for (const std::size_t live : {100U, 10'000U, 1'000'000U}) {
        const auto ours = std::make_shared<lazily_populated<library_store>>(live);
        add_peer<map_store>(all, live, ours, "std::map");
        add_peer<hash_store>(all, live, ours, "std::unordered_map");
    }
}
