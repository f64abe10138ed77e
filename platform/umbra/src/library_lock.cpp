#include "library_lock.h"

#include <pthread.h>

#include <atomic>
#include <iterator>

namespace umbra {
namespace {

pthread_mutex_t locks[] = {PTHREAD_MUTEX_INITIALIZER, PTHREAD_MUTEX_INITIALIZER};
uint32_t fork_count;
std::atomic<bool> forks_are_guarded{false};
// The handlers may be on the C library's list more than once.
__thread uint32_t handlers_running __attribute__((tls_model("initial-exec")));

pthread_mutex_t *mutex_of(guarded what) {
    return locks + static_cast<uint32_t>(what);
}

void before_fork() {
    if (handlers_running++ != 0) {
        return;
    }
    for (auto *lock = std::begin(locks); lock != std::end(locks); ++lock) {
        pthread_mutex_lock(lock);
    }
}

// Returns whether it was the last.
bool after_fork() {
    if (--handlers_running != 0) {
        return false;
    }
    for (auto *lock = std::end(locks); lock != std::begin(locks);) {
        pthread_mutex_unlock(--lock);
    }
    return true;
}

void after_fork_in_parent() {
    after_fork();
}

void after_fork_in_child() {
    if (after_fork()) {
        ++fork_count;
    }
}

// As soon as the library is loaded: a fork that began before would not know of a lock that is taken while it goes on.
// Without memory for the handlers each lock tries again. Called without a lock, because a fork that runs at the same
// time may hold the C library's list of handlers while it waits for ours.
[[gnu::constructor]] void guard_forks() {
    if (pthread_atfork(before_fork, after_fork_in_parent, after_fork_in_child) == 0) {
        forks_are_guarded.store(true, std::memory_order_release);
    }
}

}  // namespace

library_lock::library_lock(guarded what) : what_(what) {
    if (!forks_are_guarded.load(std::memory_order_acquire)) {
        guard_forks();
    }
    pthread_mutex_lock(mutex_of(what_));
}

library_lock::~library_lock() {
    pthread_mutex_unlock(mutex_of(what_));
}

uint32_t forks() {
    return fork_count;
}

}  // namespace umbra
