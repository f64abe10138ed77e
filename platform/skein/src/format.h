// The bytes of a trace file, as docs/trace-files.md describes them: what writers and readers must agree about.
#ifndef SKEIN_FORMAT_H
#define SKEIN_FORMAT_H

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>

#include "skein/skein.h"

namespace skein {

constexpr uint64_t file_magic = 0x0a4e49454b530d89;  // "\x89\rSKEIN\n": shows what text transfers do to a file
constexpr uint64_t file_byte_order = 0x0807060504030201;
constexpr uint32_t file_version = 1;
constexpr uint32_t header_size = 4096;
constexpr uint32_t slot_size_min = 64;
constexpr uint64_t ticket_limit = uint64_t{1} << 61;  // far from the 62 bits that a state word holds

// What writers change stands on lines of its own, apart by two lines because lines are fetched in pairs.
struct file_header {
    uint64_t magic;
    uint32_t version;
    uint32_t header_size;
    uint64_t byte_order;
    uint32_t slot_size;
    uint32_t slot_count;
    uint64_t created;
    uint32_t creator;
    uint32_t reserved;
    uint64_t checksum;  // of what stands before it; what follows changes while the file is in use
    uint64_t gap_1[9];
    uint64_t next_ticket;
    uint64_t superseded;
    uint64_t gap_2[14];
    uint64_t lost;
};
static_assert(offsetof(file_header, checksum) == 48);
static_assert(offsetof(file_header, next_ticket) == 128);
static_assert(offsetof(file_header, superseded) == 136);
static_assert(offsetof(file_header, lost) == 256);
constexpr std::size_t header_checked_words = offsetof(file_header, checksum) / 8;

// The words of a slot. The first slot of an entry has all of them, a further one only the state; text follows.
enum slot_word : uint32_t { word_state, word_time, word_ids, word_attributes, word_lengths, word_checksum, word_text };
constexpr uint32_t first_text_offset = word_text * 8;
constexpr uint32_t further_text_offset = 8;

// A state word: the state in the top two bits; below them the ticket, or of a busy slot its owner and the low bits of
// the ticket. A slot that was never used is 0.
enum class slot_state : uint32_t { free = 0, busy = 1, first = 2, further = 3 };
constexpr uint32_t state_shift = 62;
constexpr uint64_t ticket_mask = (uint64_t{1} << state_shift) - 1;
constexpr uint32_t owner_shift = 24;  // 22 bits of the process number (Linux has no more) over 16 bits of its token
constexpr uint64_t busy_ticket_mask = (uint64_t{1} << owner_shift) - 1;

constexpr uint64_t state_word(slot_state state, uint64_t rest) {
    return static_cast<uint64_t>(state) << state_shift | (rest & ticket_mask);
}
constexpr slot_state state_of(uint64_t word) {
    return static_cast<slot_state>(word >> state_shift);
}
constexpr uint64_t ticket_of(uint64_t word) {
    return word & ticket_mask;
}

// `owner` is a process's mark, of process.h.
constexpr uint64_t busy_word(uint64_t owner, uint64_t ticket) {
    return state_word(slot_state::busy, owner << owner_shift | (ticket & busy_ticket_mask));
}
constexpr uint64_t owner_of(uint64_t busy) {
    return (busy & ticket_mask) >> owner_shift;
}

// Detects tearing and damage, fast: the sum of the words, each multiplied with a key of its place, in 128 bits.
class checksum {
  public:
    explicit checksum(uint64_t seed) { add(seed); }
    void add(uint64_t word) {
        key_ = (key_ << 29U | key_ >> 35U) + 0x9e3779b97f4a7c15;
        sum_ += static_cast<wide>(word) * key_;
    }
    [[nodiscard]] uint64_t value() const { return static_cast<uint64_t>(sum_) ^ static_cast<uint64_t>(sum_ >> 64U); }

  private:
    __extension__ using wide = unsigned __int128;
    uint64_t key_ = 0xd6e8feb86659fd93;
    wide sum_ = 0;
};

// The sizes of a ring and what follows from them.
struct geometry {
    uint32_t slot_size = 0;
    uint32_t slot_count = 0;

    [[nodiscard]] constexpr bool valid() const {
        return slot_count != 0 && slot_size >= slot_size_min && slot_size % 8 == 0 &&
               uint64_t{slot_size} * slot_count <= UINT32_MAX;
    }
    [[nodiscard]] constexpr uint64_t file_size() const { return header_size + uint64_t{slot_size} * slot_count; }
    [[nodiscard]] constexpr uint64_t index(uint64_t ticket) const { return ticket % slot_count; }
    [[nodiscard]] constexpr uint32_t first_capacity() const { return slot_size - first_text_offset; }
    [[nodiscard]] constexpr uint32_t further_capacity() const { return slot_size - further_text_offset; }
    [[nodiscard]] constexpr uint32_t text_max() const {
        const uint64_t slots = slot_count < 2 ? 1 : slot_count / 2;
        const uint64_t capacity = first_capacity() + (slots - 1) * further_capacity();
        return static_cast<uint32_t>(std::min<uint64_t>(capacity, SKEIN_TEXT_MAX));
    }
    [[nodiscard]] constexpr uint32_t slots_of(uint32_t length) const {
        if (length <= first_capacity()) {
            return 1;
        }
        return 1 + (length - first_capacity() + further_capacity() - 1) / further_capacity();
    }
};

// The words of a mapped file are shared with other processes: they are touched as atomics only.
using shared_word = std::atomic_ref<uint64_t>;
static_assert(shared_word::is_always_lock_free);

// The slots of a ring in memory: mapped, or a copy of our own.
struct ring_slots {
    unsigned char *base = nullptr;
    geometry sizes;

    [[nodiscard]] uint64_t *at(uint64_t index) const {
        return reinterpret_cast<uint64_t *>(base + index * sizes.slot_size);
    }
    [[nodiscard]] uint64_t *operator[](uint64_t ticket) const { return at(sizes.index(ticket)); }
    // The slot behind another, without the division.
    [[nodiscard]] uint64_t *next(uint64_t *slot) const {
        uint64_t *const after = slot + sizes.slot_size / 8;
        return after == at(sizes.slot_count) ? at(0) : after;
    }
};

uint64_t header_checksum(const file_header &header);

// Whether a header is one of this version, undamaged; its sizes can then be relied upon, apart from the file's length.
bool header_is_sound(const file_header &header);

}  // namespace skein

#endif
