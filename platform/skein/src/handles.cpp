#include "handles.h"

#include <stdlib.h>
#include <time.h>

#include <cerrno>
#include <new>

#include "file.h"

namespace skein {
namespace {

// The word: a generation in the upper half, the flags, the number of users. A handle is the generation over the slot's
// number + 1.
constexpr uint64_t user_mask = (1U << 26U) - 1;
constexpr uint64_t flag_reserved = 1U << 26U;       // being filled or emptied
constexpr uint64_t flag_spare_retired = 1U << 27U;  // the ring not in use is mapped; it goes when nobody uses the slot
constexpr uint64_t flag_spare_locked = 1U << 28U;   // one user works on the ring not in use
constexpr uint64_t flag_current = 1U << 29U;        // which ring is in use
constexpr uint64_t flag_closing = 1U << 30U;
constexpr uint64_t flag_open = 1U << 31U;
constexpr uint32_t generation_shift = 32;
constexpr uint64_t one_generation = uint64_t{1} << generation_shift;

constexpr uint32_t chunk_slots = 64;
constexpr uint32_t chunk_count = handle_max / chunk_slots;
constexpr uint64_t look_interval = 10000000;

// Chunks are added and never released: a number of a closed handle can always be looked up.
constinit std::atomic<handle_slot *> chunks[chunk_count];

handle_slot *chunk_at(uint32_t index) {
    handle_slot *chunk = chunks[index].load(std::memory_order_acquire);
    if (chunk != nullptr) {
        return chunk;
    }
    auto *added = static_cast<handle_slot *>(aligned_alloc(alignof(handle_slot), chunk_slots * sizeof(handle_slot)));
    if (added == nullptr) {
        return nullptr;
    }
    for (uint32_t k = 0; k < chunk_slots; ++k) {
        new (added + k) handle_slot;
        added[k].word.store(one_generation, std::memory_order_relaxed);  // no small number is a handle
    }
    if (chunks[index].compare_exchange_strong(chunk, added, std::memory_order_acq_rel, std::memory_order_acquire)) {
        return added;
    }
    free(added);
    return chunk;
}

handle_slot *slot_of(uint64_t handle) {
    const auto number = static_cast<uint32_t>(handle);
    if (number == 0 || number > handle_max) {
        return nullptr;
    }
    handle_slot *const chunk = chunks[(number - 1) / chunk_slots].load(std::memory_order_acquire);
    return chunk == nullptr ? nullptr : &chunk[(number - 1) % chunk_slots];
}

bool try_reserve(handle_slot &slot, uint64_t &generation) {
    uint64_t word = slot.word.load(std::memory_order_relaxed);
    while ((word & (flag_open | flag_reserved)) == 0) {
        // Users that came with the number of a closed handle may be about to leave: their count stays.
        if (slot.word.compare_exchange_weak(word, word | flag_reserved, std::memory_order_acquire,
                                            std::memory_order_relaxed)) {
            generation = word >> generation_shift;
            return true;
        }
    }
    return false;
}

void empty_slot(handle_slot &slot) {
    unmap_ring(slot.rings[0]);
    unmap_ring(slot.rings[1]);
    // Only the count of users that came with the old number can change meanwhile.
    uint64_t word = slot.word.load(std::memory_order_relaxed);
    uint64_t next = 0;
    do {
        uint64_t generation = (word >> generation_shift) + 1;
        generation = static_cast<uint32_t>(generation) == 0 ? 1 : generation;
        next = generation << generation_shift | (word & user_mask);
    } while (!slot.word.compare_exchange_weak(word, next, std::memory_order_release, std::memory_order_relaxed));
}

void leave(handle_slot &slot);

// Does what could not be done while the slot was in use, if it is still unused.
void settle(handle_slot &slot) {
    uint64_t word = slot.word.load(std::memory_order_relaxed);
    if ((word & user_mask) != 0) {
        return;
    }
    if ((word & flag_closing) != 0) {
        if (slot.word.compare_exchange_strong(word, (word & ~(flag_open | flag_closing)) | flag_reserved,
                                              std::memory_order_acq_rel, std::memory_order_relaxed)) {
            empty_slot(slot);
        }
    } else if ((word & flag_spare_retired) != 0) {
        const uint64_t working = (word & ~flag_spare_retired) | flag_spare_locked;
        if (slot.word.compare_exchange_strong(word, working + 1, std::memory_order_acq_rel,
                                              std::memory_order_relaxed)) {
            unmap_ring(slot.rings[(word & flag_current) != 0 ? 0 : 1]);
            slot.word.fetch_and(~flag_spare_locked, std::memory_order_release);
            leave(slot);
        }
    }
}

void leave(handle_slot &slot) {
    const uint64_t word = slot.word.fetch_sub(1, std::memory_order_acq_rel);
    if ((word & user_mask) == 1 && (word & (flag_closing | flag_spare_retired)) != 0) {
        settle(slot);
    }
}

// Counts as a user if the handle is open; returns the word, or 0.
uint64_t enter(handle_slot &slot, uint64_t handle) {
    const uint64_t word = slot.word.fetch_add(1, std::memory_order_acquire);
    if (((word ^ handle) >> generation_shift) == 0 && (word & (flag_open | flag_closing)) == flag_open) {
        return word;
    }
    leave(slot);
    return 0;
}

bool lock_spare(handle_slot &slot) {
    uint64_t word = slot.word.load(std::memory_order_relaxed);
    while ((word & (flag_spare_locked | flag_spare_retired | flag_closing)) == 0) {
        if (slot.word.compare_exchange_weak(word, word | flag_spare_locked, std::memory_order_acquire,
                                            std::memory_order_relaxed)) {
            return true;
        }
    }
    return false;
}

uint64_t monotonic_now() {
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<uint64_t>(time.tv_sec) * 1000000000 + static_cast<uint64_t>(time.tv_nsec);
}

bool time_to_look(handle_slot &slot) {
    const uint64_t now = monotonic_now();
    if (now < slot.next_look.load(std::memory_order_relaxed)) {
        return false;
    }
    slot.next_look.store(now + look_interval, std::memory_order_relaxed);
    return true;
}

}  // namespace

int reserve_handle(handle_slot *&slot, uint64_t &handle) {
    for (uint32_t number = 0; number < handle_max; ++number) {
        handle_slot *const chunk = chunk_at(number / chunk_slots);
        if (chunk == nullptr) {
            return ENOMEM;
        }
        uint64_t generation = 0;
        if (try_reserve(chunk[number % chunk_slots], generation)) {
            slot = &chunk[number % chunk_slots];
            handle = generation << generation_shift | (number + 1);
            return 0;
        }
    }
    return EMFILE;
}

void open_handle(handle_slot &slot) {
    slot.next_look.store(0, std::memory_order_relaxed);
    slot.word.fetch_xor(flag_reserved | flag_open, std::memory_order_release);
}

void drop_handle(handle_slot &slot) {
    slot.word.fetch_and(~flag_reserved, std::memory_order_release);
}

int close_handle(uint64_t handle) {
    handle_slot *const slot = slot_of(handle);
    if (slot == nullptr || enter(*slot, handle) == 0) {
        return EBADF;
    }
    const uint64_t word = slot->word.fetch_or(flag_closing, std::memory_order_relaxed);
    leave(*slot);
    return (word & flag_closing) == 0 ? 0 : EBADF;
}

handle_use::handle_use(uint64_t handle) {
    handle_slot *const slot = slot_of(handle);
    const uint64_t word = slot == nullptr ? 0 : enter(*slot, handle);
    if (word != 0) {
        slot_ = slot;
        current_ = (word & flag_current) != 0 ? 1 : 0;
    }
}

handle_use::~handle_use() {
    if (slot_ != nullptr) {
        leave(*slot_);
    }
}

void handle_use::look_for_successor() {
    if (!time_to_look(*slot_) || !lock_spare(*slot_)) {
        return;
    }
    const int error = errno;
    // Somebody else may have changed over between our entering and our locking.
    current_ = (slot_->word.load(std::memory_order_acquire) & flag_current) != 0 ? 1 : 0;
    const uint32_t spare = 1 - current_;
    if (target().is_superseded() && attach_successor(slot_->root, slot_->name, slot_->rings[spare]) == 0) {
        slot_->word.fetch_xor(flag_current | flag_spare_locked | flag_spare_retired, std::memory_order_acq_rel);
        current_ = spare;
    } else {
        slot_->word.fetch_and(~flag_spare_locked, std::memory_order_release);
    }
    errno = error;
}

}  // namespace skein
