#include "datastore.h"

#include <utility>

namespace request_path {

std::optional<store> store_named(std::string_view name) {
    if (name == "running") {
        return store::running;
    }
    if (name == "candidate") {
        return store::candidate;
    }
    if (name == "startup") {
        return store::startup;
    }
    return std::nullopt;
}

const node &datastores::content(store which) const {
    if (which == store::startup) {
        return startup_;
    }
    return which == store::candidate && changed_candidate_ ? *changed_candidate_ : running_;
}

void datastores::replace(store which, node content) {
    switch (which) {
        case store::running:
            running_ = std::move(content);
            break;
        case store::candidate:
            changed_candidate_ = std::move(content);
            break;
        case store::startup:
            startup_ = std::move(content);
            break;
    }
}

void datastores::commit() {
    if (changed_candidate_) {
        running_ = std::move(*changed_candidate_);
        changed_candidate_.reset();
    }
}

void datastores::unlock(store which) {
    if (which == store::candidate) {
        discard();
    }
    locks_[index(which)] = 0;
}

void datastores::forget_session(uint32_t session) {
    for (const store which : {store::running, store::candidate, store::startup}) {
        if (lock_holder(which) == session) {
            unlock(which);
        }
    }
}

}  // namespace request_path
