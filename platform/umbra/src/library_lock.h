// The library's locks. A fork finds them free: the child, in which the other threads are gone, can go on using them.
#ifndef UMBRA_LIBRARY_LOCK_H
#define UMBRA_LIBRARY_LOCK_H

#include <stdint.h>

namespace umbra {

// What a lock guards. Nobody holds two of them, except a fork, which takes all in this order.
enum class guarded : uint32_t { descriptions, flags };

class library_lock {
  public:
    explicit library_lock(guarded what);
    ~library_lock();
    library_lock(const library_lock &) = delete;
    library_lock &operator=(const library_lock &) = delete;

  private:
    guarded what_;
};

// How many forks lie between the process that loaded the library and this one. To be called with a lock held.
uint32_t forks();

}  // namespace umbra

#endif
