// A mapped ring and how entries get into it.
#ifndef SKEIN_RING_H
#define SKEIN_RING_H

#include <cstdint>

#include "format.h"

namespace skein {

// The sizes are a copy that was checked against the file's length: what is in the file can change.
struct ring {
    unsigned char *base = nullptr;
    ring_slots slots;
    uint32_t text_max = 0;
    uint64_t reciprocal = 0;  // of the slot count, times 2^64

    [[nodiscard]] file_header &header() const { return *reinterpret_cast<file_header *>(base); }
    // The slot of a ticket, by a multiplication: a division costs as much as the copying of half a line. The quotient
    // is right or one too small, for tickets of less than 64 bits.
    [[nodiscard]] uint64_t *slot(uint64_t ticket) const {
        __extension__ using wide = unsigned __int128;
        const auto quotient = static_cast<uint64_t>(static_cast<wide>(ticket) * reciprocal >> 64U);
        const uint64_t index = ticket - quotient * slots.sizes.slot_count;
        const bool too_small = index >= slots.sizes.slot_count;
        return slots.at(too_small ? index - slots.sizes.slot_count : index);
    }
    // On the line that every write takes anyway.
    [[nodiscard]] bool is_superseded() const {
        return shared_word(header().superseded).load(std::memory_order_relaxed) != 0;
    }
};

// Maps the file, whose header is sound and whose length fits it. Returns 0 or an errno.
int map_ring(int file, const file_header &header, ring &out);
void unmap_ring(ring &mapped);

// Appends an entry. Returns 0, or EBUSY (counted as lost).
int append(const ring &to, uint64_t attributes, const char *text);

}  // namespace skein

#endif
