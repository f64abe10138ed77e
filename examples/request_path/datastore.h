/**
 * @file datastore.h
 * The three configuration datastores, in memory, and their locks.
 */
#ifndef REQUEST_PATH_DATASTORE_H
#define REQUEST_PATH_DATASTORE_H

#include <array>
#include <optional>
#include <string_view>

#include "tree.h"

namespace request_path {

enum class store { running, candidate, startup };

std::optional<store> store_named(std::string_view name);

/** Each datastore is a node without a name whose children are the top-level nodes of the configuration. */
class datastores {
  public:
    const node &content(store which) const;
    void replace(store which, node content);

    /** The candidate is a copy of its own only between its first change and the next commit or discard; otherwise it
     * reads as the running configuration does. */
    bool candidate_is_changed() const { return changed_candidate_.has_value(); }
    void commit();
    void discard() { changed_candidate_.reset(); }

    /** @return the session that holds the lock, or 0 */
    uint32_t lock_holder(store which) const { return locks_[index(which)]; }
    void lock(store which, uint32_t session) { locks_[index(which)] = session; }
    /** With its lock, the candidate loses the changes that were not committed. */
    void unlock(store which);

    /** Unlocks what the session has locked. */
    void forget_session(uint32_t session);

  private:
    static size_t index(store which) { return static_cast<size_t>(which); }

    node running_;
    node startup_;
    std::optional<node> changed_candidate_;
    std::array<uint32_t, 3> locks_{};
};

}  // namespace request_path

#endif
