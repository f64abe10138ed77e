// Open handles. A handle is used without a lock and can be closed at any instant: each has one word that counts its
// users, and the last of them unmaps.
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
    ring rings[2];                       // the one in use, and the one before or after it
    std::atomic<uint64_t> next_look{0};  // for a successor of a removed file; CLOCK_MONOTONIC nanoseconds
    char root[path_size] = {};
    char name[path_size] = {};
};

// A slot of the table that nobody else uses, to be filled and then opened or dropped. Returns 0 or an errno.
int reserve_handle(handle_slot *&slot, uint64_t &handle);
void open_handle(handle_slot &slot);
void drop_handle(handle_slot &slot);

int close_handle(uint64_t handle);

// While one exists the handle's ring stays mapped. Costs two atomic operations.
class handle_use {
  public:
    explicit handle_use(uint64_t handle);
    ~handle_use();
    handle_use(const handle_use &) = delete;
    handle_use &operator=(const handle_use &) = delete;

    [[nodiscard]] bool is_open() const { return slot_ != nullptr; }
    [[nodiscard]] const ring &target() const { return slot_->rings[current_]; }
    // Changes over to the successor of a removed file, if there is one and nobody else is doing so.
    void look_for_successor();

  private:
    handle_slot *slot_ = nullptr;
    uint32_t current_ = 0;
};

}  // namespace skein

#endif
