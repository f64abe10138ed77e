#include "library_lock.h"

#include <pthread.h>

#include <atomic>
#include <iterator>

namespace umbra {
namespace {

pthread_mutex_t locks[] = {PTHREAD_MUTEX_INITIALIZER, PTHREAD_MUTEX_INITIALIZER};
uint32_t fork_count;
std::atomic<bool> forks_are_guarded{false};

pthread_mutex_t *mutex_of(guarded what) {
    return locks + static_cast<uint32_t>(what);
}

void before_fork() {
    for (auto *lock = std::begin(locks); lock != std::end(locks); ++lock) {
        pthread_mutex_lock(lock);
    }
}

void after_fork() {
    for (auto *lock = std::end(locks); lock != std::begin(locks);) {
        pthread_mutex_unlock(--lock);
    }
}

void after_fork_in_child() {
    ++fork_count;
    after_fork();
}

// Once is enough and twice would be a deadlock. Called without a lock, because a fork that runs at the same time holds
// the C library's list of handlers while it waits for ours. Without memory for a handler the next lock tries again.
void guard_forks() {
    if (!forks_are_guarded.exchange(true) && pthread_atfork(before_fork, after_fork, after_fork_in_child) != 0) {
        forks_are_guarded.store(false);
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
