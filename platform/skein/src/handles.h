// Open handles. A handle is used without a lock, in signal handlers too, and can be closed at any instant.
//
// One word of each slot of the table says everything about it. Whatever happens to a slot is one atomic change of its
// word, and whoever made the change does what it calls for. The word holds:
//
//   life        vacant    nobody's; nothing is mapped
//               held      one thread's own, which fills or empties it; nobody else changes the word
//               open      users come and go
//               closing   users only go
//   current     the ring that users come to; the other one is the spare
//   spare       none      not mapped
//               worked    one user works on it: maps the successor of a removed file, or unmaps it
//               retired   mapped, because it was the current one and still has users
//   users       two numbers, one for each ring: a retired ring goes when its own users have gone, however busy the
//               current one is. Who works on the spare is a user of either ring until the work is done.
//   forks       changed in a forked child when users were dropped from the count: a user that finds another number
//               than the one it came with is not counted any more
//   generation  raised by emptying, part of the handle: so a handle that was closed is known as such
//
//   life:   vacant -> held -> open -> closing -> held -> vacant; held -> vacant when opening fails
//   spare:  none -> worked -> retired, becoming the spare by changing over; or -> none, if there is no successor
//           retired -> worked -> none
//
// Two things can be owed: a closing slot that has no users is to be emptied, and a retired ring that has none is to be
// unmapped. Both can be read from the word alone; settle() does them and is called after every change that may have
// brought them about. Nobody comes to a closing slot or to a retired ring, so that what is owed stays so until one
// thread has taken it on. A user is counted only if the handle is right: nobody else has any effect on the word.
#ifndef SKEIN_HANDLES_H
#define SKEIN_HANDLES_H

#include <atomic>
#include <cstdint>

#include "directory.h"
#include "ring.h"

namespace skein {

constexpr uint32_t handle_max = 16384;

// What every write touches stands in the first two cache lines.
struct alignas(64) handle_slot {
    std::atomic<uint64_t> word{0};
    ring rings[2];
    std::atomic<uint64_t> next_look{0};  // for a successor of a removed file; CLOCK_MONOTONIC nanoseconds
    char root[path_size] = {};
    char name[path_size] = {};
};

// Holds a slot of the table, to be filled and then opened or dropped. Returns 0 or an errno.
int reserve_handle(handle_slot *&slot, uint64_t &handle);
void open_handle(handle_slot &slot);
void drop_handle(handle_slot &slot);

int close_handle(uint64_t handle);

// For a forked child, where none but the calling thread exists: drops the users that are not there any more, and ends
// what they had begun.
void recover_handles();

// A user: while it exists its ring stays mapped. Costs two atomic operations.
class handle_use {
  public:
    explicit handle_use(uint64_t handle);
    ~handle_use();
    handle_use(const handle_use &) = delete;
    handle_use &operator=(const handle_use &) = delete;

    // 0; EBADF the handle is not open; EBUSY more users than can be counted. The rest is for 0 only.
    [[nodiscard]] int error() const { return error_; }
    [[nodiscard]] const ring &target() const { return slot_->rings[ring_]; }
    // For a target that was removed: goes over to the ring that is current now, or changes over to the successor of
    // the file, if there is one and nobody else is looking.
    void follow();

  private:
    void move_to_current();
    bool begin_work();
    void end_work(const ring *found);

    handle_slot *slot_ = nullptr;
    uint64_t seen_ = 0;  // the word when it had counted us
    uint32_t ring_ = 0;
    int error_ = 0;
};

}  // namespace skein

#endif
