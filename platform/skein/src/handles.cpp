#include "handles.h"

#include <stdlib.h>
#include <time.h>

#include <cerrno>
#include <new>

#include "file.h"

namespace skein {
namespace {

// -- The word ----------------------------------------------------------------------------------------------------

enum class life : uint32_t { vacant, held, open, closing };
enum class spare : uint32_t { none, worked, retired };

template <unsigned Shift, unsigned Bits>
struct field {
    static constexpr uint64_t max = (uint64_t{1} << Bits) - 1;
    static constexpr uint32_t of(uint64_t word) { return static_cast<uint32_t>(word >> Shift & max); }
    static constexpr uint64_t set(uint64_t word, uint64_t value) {
        return (word & ~(max << Shift)) | (value & max) << Shift;
    }
};

constexpr unsigned user_bits = 14;
using all_users = field<0, 2 * user_bits>;
using current_field = field<28, 1>;
using spare_field = field<29, 2>;
using forks_field = field<31, 2>;
using life_field = field<33, 2>;
using generation_field = field<35, 29>;

constexpr uint64_t user_max = (uint64_t{1} << user_bits) - 1;
constexpr uint64_t one_user(uint32_t ring) {
    return uint64_t{1} << (ring * user_bits);
}
constexpr uint64_t users_of(uint64_t word, uint32_t ring) {
    return word >> (ring * user_bits) & user_max;
}
constexpr life life_of(uint64_t word) {
    return static_cast<life>(life_field::of(word));
}
constexpr spare spare_of(uint64_t word) {
    return static_cast<spare>(spare_field::of(word));
}
constexpr uint64_t with(uint64_t word, life value) {
    return life_field::set(word, static_cast<uint64_t>(value));
}
constexpr uint64_t with(uint64_t word, spare value) {
    return spare_field::set(word, static_cast<uint64_t>(value));
}
constexpr uint32_t current_of(uint64_t word) {
    return current_field::of(word);
}

// A handle is the generation over the number of the slot + 1. What an open slot's word has in its upper bits when the
// handle is its own:
constexpr unsigned handle_shift = 32;
constexpr unsigned key_shift = 33;
constexpr uint64_t key_of_word(uint64_t word) {
    return word >> key_shift;
}
constexpr uint64_t key_of_handle(uint64_t handle) {
    return (handle >> handle_shift) << 2U | static_cast<uint64_t>(life::open);
}

// -- The table ---------------------------------------------------------------------------------------------------

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
        added[k].word.store(generation_field::set(0, 1), std::memory_order_relaxed);  // no small number is a handle
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

// -- Changes of the word -----------------------------------------------------------------------------------------

bool try_hold(handle_slot &slot) {
    uint64_t word = slot.word.load(std::memory_order_relaxed);
    return life_of(word) == life::vacant &&
           slot.word.compare_exchange_strong(word, with(word, life::held), std::memory_order_acquire,
                                             std::memory_order_relaxed);
}

// Of a slot that is held, or that nobody else can know of.
void empty_slot(handle_slot &slot, uint64_t forks) {
    unmap_ring(slot.rings[0]);
    unmap_ring(slot.rings[1]);
    const uint64_t generation = generation_field::of(slot.word.load(std::memory_order_relaxed));
    const uint64_t next = generation == generation_field::max ? 1 : generation + 1;
    slot.word.store(forks_field::set(generation_field::set(0, next), forks), std::memory_order_release);
}

// Makes a change in the name of a user, which saw the word as `seen` when it was counted or later; as a rule it still
// is that. False: the user is not counted any more.
template <class Change>
__attribute__((always_inline)) inline bool change_word(handle_slot &slot, uint64_t seen, Change change) {
    uint64_t word = seen;
    do {
        if (slot.word.compare_exchange_weak(word, change(word), std::memory_order_acq_rel, std::memory_order_relaxed)) {
            return true;
        }
    } while (forks_field::of(word) == forks_field::of(seen));
    return false;
}

constexpr bool owes_emptying(uint64_t word) {
    return life_of(word) == life::closing && all_users::of(word) == 0;
}
constexpr bool owes_unmapping(uint64_t word) {
    return spare_of(word) == spare::retired && users_of(word, 1 - current_of(word)) == 0;
}

// Does what is owed, unless somebody else has taken it on.
void settle(handle_slot &slot) {
    uint64_t word = slot.word.load(std::memory_order_relaxed);
    while (owes_emptying(word) || owes_unmapping(word)) {
        const uint32_t old = 1 - current_of(word);
        const bool emptying = owes_emptying(word);
        const uint64_t next =
            emptying ? with(with(word, life::held), spare::none) : with(word, spare::worked) + one_user(old);
        if (!slot.word.compare_exchange_weak(word, next, std::memory_order_acq_rel, std::memory_order_relaxed)) {
            continue;
        }
        if (emptying) {
            empty_slot(slot, forks_field::of(word));
            return;
        }
        unmap_ring(slot.rings[old]);
        change_word(slot, next, [&](uint64_t seen) { return with(seen, spare::none) - one_user(old); });
        word = slot.word.load(std::memory_order_relaxed);  // the slot may have been closed meanwhile
    }
}

// -- Looking for a successor -------------------------------------------------------------------------------------

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
        slot = &chunk[number % chunk_slots];
        if (try_hold(*slot)) {
            const uint64_t generation = generation_field::of(slot->word.load(std::memory_order_relaxed));
            handle = generation << handle_shift | (number + 1);
            return 0;
        }
    }
    return EMFILE;
}

void open_handle(handle_slot &slot) {
    slot.next_look.store(0, std::memory_order_relaxed);
    slot.word.store(with(slot.word.load(std::memory_order_relaxed), life::open), std::memory_order_release);
}

void drop_handle(handle_slot &slot) {
    slot.word.store(with(slot.word.load(std::memory_order_relaxed), life::vacant), std::memory_order_release);
}

int close_handle(uint64_t handle) {
    handle_slot *const slot = slot_of(handle);
    if (slot == nullptr) {
        return EBADF;
    }
    uint64_t word = slot->word.load(std::memory_order_relaxed);
    do {
        if (key_of_word(word) != key_of_handle(handle)) {
            return EBADF;
        }
    } while (!slot->word.compare_exchange_weak(word, with(word, life::closing), std::memory_order_relaxed));
    settle(*slot);
    return 0;
}

// The forking thread can be a user itself, when a signal handler forked. It finds another number of forks then, and its
// ring is still there: a retired one goes when the next user leaves.
void recover_slot(handle_slot &slot) {
    const uint64_t word = slot.word.load(std::memory_order_relaxed);
    const uint64_t forks = forks_field::of(word) + 1;
    if (life_of(word) == life::held || life_of(word) == life::closing) {
        empty_slot(slot, forks);
    } else if (all_users::of(word) != 0) {
        const bool worked = spare_of(word) == spare::worked;
        if (worked) {
            unmap_ring(slot.rings[1 - current_of(word)]);
        }
        const uint64_t alone = forks_field::set(all_users::set(word, 0), forks);
        slot.word.store(worked ? with(alone, spare::none) : alone, std::memory_order_relaxed);
    }
}

void recover_handles() {
    for (const std::atomic<handle_slot *> &each : chunks) {
        handle_slot *const chunk = each.load(std::memory_order_relaxed);
        for (uint32_t k = 0; chunk != nullptr && k < chunk_slots; ++k) {
            recover_slot(chunk[k]);
        }
    }
}

handle_use::handle_use(uint64_t handle) : slot_(slot_of(handle)) {
    if (slot_ == nullptr) {
        error_ = EBADF;
        return;
    }
    uint64_t word = slot_->word.load(std::memory_order_relaxed);
    do {
        ring_ = current_of(word);
        if (key_of_word(word) != key_of_handle(handle)) [[unlikely]] {
            error_ = EBADF;
            return;
        }
        if (users_of(word, ring_) == user_max) [[unlikely]] {
            error_ = EBUSY;
            return;
        }
    } while (!slot_->word.compare_exchange_weak(word, word + one_user(ring_), std::memory_order_acquire,
                                                std::memory_order_relaxed));
    seen_ = word + one_user(ring_);
}

handle_use::~handle_use() {
    if (error_ != 0) {
        return;
    }
    uint64_t before = 0;
    const bool counted = change_word(*slot_, seen_, [&](uint64_t word) { return (before = word) - one_user(ring_); });
    if (!counted || life_of(before) == life::closing || spare_of(before) == spare::retired) [[unlikely]] {
        settle(*slot_);
    }
}

void handle_use::move_to_current() {
    uint32_t to = ring_;
    const bool counted = change_word(*slot_, seen_, [&](uint64_t word) {
        to = users_of(word, current_of(word)) == user_max ? ring_ : current_of(word);
        return word - one_user(ring_) + one_user(to);
    });
    ring_ = counted ? to : ring_;
    settle(*slot_);
}

bool handle_use::begin_work() {
    bool begun = false;
    const bool counted = change_word(*slot_, seen_, [&](uint64_t word) {
        begun = life_of(word) == life::open && spare_of(word) == spare::none && current_of(word) == ring_;
        return begun ? with(word, spare::worked) : word;
    });
    return counted && begun;
}

// With the successor changes over to it.
void handle_use::end_work(const ring *found) {
    const uint32_t to = found != nullptr ? 1 - ring_ : ring_;
    if (found != nullptr) {
        slot_->rings[to] = *found;
    }
    const bool counted = change_word(*slot_, seen_, [&](uint64_t word) {
        const uint64_t moved = current_field::set(word - one_user(ring_) + one_user(to), to);
        return with(moved, found != nullptr ? spare::retired : spare::none);
    });
    if (counted) {
        ring_ = to;
        settle(*slot_);
    } else if (found != nullptr) {
        unmap_ring(slot_->rings[to]);
    }
}

void handle_use::follow() {
    move_to_current();
    const uint64_t word = slot_->word.load(std::memory_order_relaxed);
    if (!target().is_superseded() || spare_of(word) != spare::none || !time_to_look(*slot_) || !begin_work()) {
        return;
    }
    const int error = errno;
    ring found;
    const bool there_is_one = attach_successor(slot_->root, slot_->name, found) == 0;
    end_work(there_is_one ? &found : nullptr);
    errno = error;
}

}  // namespace skein
