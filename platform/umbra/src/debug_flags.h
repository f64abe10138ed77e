// The tree of debug flags, as the log sees it.
#ifndef UMBRA_DEBUG_FLAGS_H
#define UMBRA_DEBUG_FLAGS_H

#include <stdint.h>

#include <atomic>

#include "umbra/debug_trace.h"

namespace umbra {

constexpr uint32_t slots_of_chunk = 64;

// A place for a flag. Its memory is never given back and its state can be read at any time, so that a log needs no lock
// to learn that it has nothing to do. Everything else is guarded by the lock on flags.
struct flag_slot {
    // The generation in the upper half; in the lower one the bits below, none in a free slot.
    std::atomic<uint64_t> state;
    uint32_t index;
    uint32_t users;
    flag_slot *parent;
    flag_slot *first_below;
    flag_slot *last_below;
    flag_slot *before;
    flag_slot *after;
    flag_slot *next_free;
    uint32_t name_offset;  // in the path
    uint32_t path_length;
    char path[UMBRA_DT_PATH_MAX + 1];
};

constexpr uint64_t flag_is_used = 1;
constexpr uint64_t flag_is_enabled = 2;
constexpr uint64_t flag_is_on = 4;  // so are all above it

struct flag_chunk {
    flag_slot slots[slots_of_chunk];
};

extern std::atomic<flag_chunk *> flag_chunks[UMBRA_DT_FLAGS_MAX / slots_of_chunk];

// The slot that a handle means: generation in the upper half, index in the lower. Null when it means none now; without
// the lock on flags that can change at any time.
inline flag_slot *slot_of(uint64_t flag) {
    const auto index = static_cast<uint32_t>(flag);
    if (index >= UMBRA_DT_FLAGS_MAX) {
        return nullptr;
    }
    flag_chunk *chunk = flag_chunks[index / slots_of_chunk].load(std::memory_order_acquire);
    if (chunk == nullptr) {
        return nullptr;
    }
    flag_slot &slot = chunk->slots[index % slots_of_chunk];
    const uint64_t state = slot.state.load(std::memory_order_relaxed);
    return (state >> 32U) == (flag >> 32U) && (state & flag_is_used) != 0 ? &slot : nullptr;
}

inline bool is_on(uint64_t flag) {
    const flag_slot *slot = slot_of(flag);
    return slot != nullptr && (slot->state.load(std::memory_order_relaxed) & flag_is_on) != 0;
}

}  // namespace umbra

#endif
