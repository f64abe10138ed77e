#include "ring.h"

#include <sched.h>
#include <sys/mman.h>
#include <time.h>

#include <cerrno>
#include <cstring>

#include "entry.h"
#include "process.h"

namespace skein {
namespace {

// How often a writer takes a new place before it gives up. Places are busy because their owners sleep in mid-write;
// there are rarely more of them than threads that write.
constexpr uint32_t attempts_max = 256;
constexpr uint32_t attempts_without_yielding = 16;

struct line {
    uint64_t attributes;
    const char *text;
    uint32_t length;
    uint32_t full_length;
};

uint64_t now() {
    timespec time{};
    clock_gettime(CLOCK_REALTIME, &time);
    return static_cast<uint64_t>(time.tv_sec) * 1000000000 + static_cast<uint64_t>(time.tv_nsec);
}

// The spot of an entry: consecutive tickets, and the slot of the first.
struct spot {
    uint64_t ticket;
    uint64_t *slot;
    uint32_t slots;
    uint64_t owner;

    [[nodiscard]] uint64_t mark(uint64_t of) const { return busy_word(owner, of); }
};

// Marks a slot as ours; false: it is in use, or already newer.
bool seize(const ring &to, uint64_t *slot, uint64_t ticket, uint64_t mark) {
    shared_word state(slot[word_state]);
    uint64_t seen = state.load(std::memory_order_relaxed);
    for (;;) {
        if (state_of(seen) == slot_state::busy) {
            if (!has_ended(owner_of(seen))) {
                return false;
            }
        } else if (seen != 0 && ticket_of(seen) >= ticket &&
                   ticket_of(seen) < shared_word(to.header().next_ticket).load(std::memory_order_relaxed)) {
            return false;  // we were overtaken by a whole lap
        }
        // A ticket that nobody can have drawn yet is damage, and gets overwritten.
        if (state.compare_exchange_strong(seen, mark, std::memory_order_acq_rel, std::memory_order_relaxed)) {
            return true;
        }
    }
}

// Replaces our busy mark. It is gone if somebody took us for dead; the slot is then theirs.
bool replace_mark(uint64_t *slot, uint64_t mark, uint64_t word) {
    return shared_word(slot[word_state])
        .compare_exchange_strong(mark, word, std::memory_order_release, std::memory_order_relaxed);
}

void give_back(const ring &to, const spot &at, uint32_t slots) {
    uint64_t *slot = at.slot;
    for (uint64_t ticket = at.ticket; ticket < at.ticket + slots; ++ticket) {
        replace_mark(slot, at.mark(ticket), state_word(slot_state::free, ticket));
        slot = to.slots.next(slot);
    }
}

bool seize_all(const ring &to, const spot &at) {
    uint64_t *slot = at.slot;
    for (uint32_t done = 0; done < at.slots; ++done) {
        if (!seize(to, slot, at.ticket + done, at.mark(at.ticket + done))) {
            give_back(to, at, done);
            return false;
        }
        slot = to.slots.next(slot);
    }
    return true;
}

// The first slot comes last: an entry counts when it is complete.
bool publish(const ring &to, const spot &at) {
    uint64_t *slot = at.slot;
    for (uint64_t ticket = at.ticket + 1; ticket < at.ticket + at.slots; ++ticket) {
        slot = to.slots.next(slot);
        if (!replace_mark(slot, at.mark(ticket), state_word(slot_state::further, ticket))) {
            return false;
        }
    }
    return replace_mark(at.slot, at.mark(at.ticket), state_word(slot_state::first, at.ticket));
}

// Release order, so that whoever sees a word of an entry sees the busy mark that was set before it.
// NOLINTNEXTLINE(readability-non-const-parameter): it is written through an atomic reference
void put(uint64_t *word, uint64_t value, checksum &sum) {
    shared_word(*word).store(value, std::memory_order_release);
    sum.add(value);
}

template <class Word>
uint64_t load(const char *text) {
    Word word = 0;
    std::memcpy(&word, text, sizeof word);
    return word;
}

// The last `length` (1 to 7) bytes of a text, filled up with zeros.
uint64_t load_rest(const char *text, uint32_t length) {
    if (length >= 4) {
        return load<uint32_t>(text) | load<uint32_t>(text + length - 4) << (8 * (length - 4));
    }
    const uint64_t middle = load<uint8_t>(text + length / 2) << (8 * (length / 2));
    return load<uint8_t>(text) | middle | load<uint8_t>(text + length - 1) << (8 * (length - 1));
}

// The sum comes and goes by value: so it stays in registers.
__attribute__((always_inline)) inline checksum put_text(uint64_t *to, const char *text, uint32_t length, checksum sum) {
#pragma GCC unroll 2
    for (; length >= 8; length -= 8, text += 8) {
        put(to++, load<uint64_t>(text), sum);
    }
    if (length > 0) {
        put(to, load_rest(text, length), sum);
    }
    return sum;
}

void fill(const ring &to, const spot &at, const line &entry, uint64_t ids) {
    uint64_t *slot = at.slot;
    checksum sum(at.ticket);
    put(slot + word_time, now(), sum);
    put(slot + word_ids, ids, sum);
    put(slot + word_attributes, entry.attributes, sum);
    put(slot + word_lengths, entry.length | static_cast<uint64_t>(entry.full_length) << 32U, sum);
    uint32_t part = std::min(entry.length, to.slots.sizes.first_capacity());
    sum = put_text(slot + word_text, entry.text, part, sum);
    for (uint32_t done = part; done < entry.length; done += part) {
        slot = to.slots.next(slot);
        part = std::min(entry.length - done, to.slots.sizes.further_capacity());
        sum = put_text(slot + 1, entry.text + done, part, sum);
    }
    shared_word(at.slot[word_checksum]).store(sum.value(), std::memory_order_release);
}

// Writers never come upon a ticket that is not drawn yet, unless the counter was damaged. Then it goes on behind the
// newest entry, which would otherwise hide all that follow.
void mend_counter(const ring &to) {
    shared_word next(to.header().next_ticket);
    const uint64_t drawn = next.load(std::memory_order_acquire);
    uint64_t mended = drawn;
    for (uint64_t index = 0; index < to.slots.sizes.slot_count; ++index) {
        const uint64_t ticket = ticket_of(shared_word(*to.slots[index]).load(std::memory_order_acquire));
        entry_head head;
        if (ticket >= mended && ticket < ticket_limit && to.slots.sizes.index(ticket) == index &&
            read_head(to.slots, ticket, head)) {
            mended = ticket + head.slots;
        }
    }
    uint64_t seen = drawn;
    while (seen < mended && !next.compare_exchange_weak(seen, mended, std::memory_order_relaxed)) {
    }
}

}  // namespace

int map_ring(int file, const file_header &header, ring &out) {
    const geometry sizes{header.slot_size, header.slot_count};
    // Populated, so that no write of the first lap has to wait for a page.
    void *base = mmap(nullptr, sizes.file_size(), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_POPULATE, file, 0);
    if (base == MAP_FAILED) {
        return errno;
    }
    out.base = static_cast<unsigned char *>(base);
    out.slots = {out.base + header_size, sizes};
    out.text_max = sizes.text_max();
    out.reciprocal = UINT64_MAX / sizes.slot_count;
    mend_counter(out);
    return 0;
}

void unmap_ring(ring &mapped) {
    const ring going = mapped;
    mapped = {};  // first: a child that another thread forks in between must not unmap what takes this place
    if (going.base != nullptr) {
        munmap(going.base, going.slots.sizes.file_size());
    }
}

int append(const ring &to, uint64_t attributes, const char *text) {
    const std::size_t length = std::strlen(text);
    const line entry{attributes, text, static_cast<uint32_t>(std::min<std::size_t>(length, to.text_max)),
                     static_cast<uint32_t>(std::min<std::size_t>(length, UINT32_MAX))};
    const caller_identity &self = caller();
    spot at{0, nullptr, to.slots.sizes.slots_of(entry.length), self.mark};
    shared_word next(to.header().next_ticket);
    for (uint32_t attempt = 0; attempt < attempts_max; ++attempt) {
        if (attempt >= attempts_without_yielding) {
            sched_yield();
        }
        at.ticket = next.fetch_add(at.slots, std::memory_order_relaxed) & ticket_mask;
        at.slot = to.slot(at.ticket);
        if (!seize_all(to, at)) {
            continue;
        }
        fill(to, at, entry, self.ids);
        if (publish(to, at)) {
            return 0;
        }
        give_back(to, at, at.slots);
    }
    shared_word(to.header().lost).fetch_add(1, std::memory_order_relaxed);
    return EBUSY;
}

}  // namespace skein
