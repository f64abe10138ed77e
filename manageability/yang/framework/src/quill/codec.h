// What every rule of the codec knows of a record.
//
// The generator specialises codec<R> for each record R with
//   members, presence_offset      how many members, and where their presence bits begin
//   zero_reset                    a reset record is all zeros
//   is_member(field)              whether a field number is one of the record's
//   bit                           the presence bit of each member
//   occupied                      whether a presence bit is set at any inline depth: otherwise it encodes to nothing
//   has_spare_bits, keep_spare_bits, set_defaults
//                                 what a reset leaves, and the reset values that are not zero
//   holdings                      0 when no pointer and no count is set at any inline depth: it owns nothing
//   size, write, decode, copy_owned, release
// as short lists of calls to the rules of encode.h, decode.h and lifetime.h, a line or a few per member. A record that
// is its own element has each of the last five with _levels and a number as well: that many levels share a frame.
#ifndef QUILL_CODEC_H
#define QUILL_CODEC_H

#include <emmintrin.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

#include "quill.h"

#define QUILL_INLINE inline __attribute__((always_inline))
#define QUILL_NOINLINE __attribute__((noinline))

namespace quill {

template <class Record>
struct codec;

inline constexpr uint32_t wire_varint = 0;
inline constexpr uint32_t wire_fixed64 = 1;
inline constexpr uint32_t wire_bytes = 2;
inline constexpr uint32_t wire_fixed32 = 5;

// Levels of a record that holds itself which share a frame. Deep trees wait for their returns, which the processor
// predicts for a few calls only: every call saved counts.
inline constexpr int levels_in_a_frame = 3;
inline constexpr int decode_levels_in_a_frame = 2;  // its code is the longest

constexpr uint32_t tag_of(uint32_t field, uint32_t wire_type) {
    return field << 3U | wire_type;
}

// Presence bits: bit k, counted from the lowest bit of the first byte, belongs to member k. The bits of the last byte
// that belong to no member are the caller's and are never changed.
template <class Record>
struct presence {
    static constexpr std::size_t bytes = (codec<Record>::members + 7) / 8;
    static constexpr std::size_t offset = codec<Record>::presence_offset;
    static_assert(offset + bytes <= sizeof(Record));

    // Which bits of byte k belong to members.
    static constexpr uint8_t mask(std::size_t k) {
        return k + 1 < bytes || codec<Record>::members % 8 == 0
                   ? 0xFF
                   : static_cast<uint8_t>((1U << codec<Record>::members % 8) - 1);
    }

    static constexpr uint32_t all = static_cast<uint32_t>((uint64_t{1} << codec<Record>::members) - 1);

    static const uint8_t *of(const Record *record) { return reinterpret_cast<const uint8_t *>(record) + offset; }
    static uint8_t *of(Record *record) { return reinterpret_cast<uint8_t *>(record) + offset; }

    // The presence bits of the members in one number, bit k for member k.
    static QUILL_INLINE uint32_t bits(const Record *record) {
        static_assert(bytes <= sizeof(uint32_t));
        uint32_t bits = 0;
        std::memcpy(&bits, of(record), bytes);
        bits &= all;
        return bits;
    }

    static QUILL_INLINE bool has_spare(const Record *record) {
        return static_cast<uint8_t>(of(record)[bytes - 1] & ~mask(bytes - 1)) != 0;
    }

    // The spare bits in the image of a record.
    static constexpr void keep_spare_bits(uint8_t *image) {
        for (std::size_t k = 0; k < bytes; ++k) {
            image[offset + k] = static_cast<uint8_t>(~mask(k));
        }
    }
};

QUILL_INLINE uint64_t held(const void *block) {
    return reinterpret_cast<uintptr_t>(block);
}

// What resets and copies leave of a record as it was: the presence bits that belong to no member, at any inline depth.
template <class Record>
struct kept_bits {
    alignas(16) uint8_t image[sizeof(Record)] = {};

    constexpr kept_bits() { codec<Record>::keep_spare_bits(image); }

    [[nodiscard]] constexpr bool any(std::size_t from, std::size_t to) const {
        bool found = false;
        for (std::size_t i = from; i < to && i < sizeof(Record); ++i) {
            found = found || image[i] != 0;
        }
        return found;
    }
};

template <class Record>
inline constexpr kept_bits<Record> kept_bits_of;

// Records are zeroed and copied in chunks of sixteen bytes, each with the instructions that its kept bits need. GCC
// would make a slow string instruction of a memset or memcpy whose size it knows.
inline constexpr std::size_t chunk = 16;

template <class Record>
inline constexpr auto chunks_of = std::make_index_sequence<(sizeof(Record) + chunk - 1) / chunk>{};

// A larger record is left to the C library if its spare bits are clear.
template <class Record>
inline constexpr bool is_large = sizeof(Record) > 256;

enum class keep { nothing, spare_bits };

template <keep Keep, class Record, std::size_t K>
QUILL_INLINE void zero_chunk(uint8_t *at) {
    constexpr std::size_t from = K * chunk;
    if constexpr (from + chunk > sizeof(Record)) {
        for (std::size_t i = from; i < sizeof(Record); ++i) {
            at[i] &= Keep == keep::nothing ? uint8_t{0} : kept_bits_of<Record>.image[i];
        }
    } else {
        auto *to = reinterpret_cast<__m128i *>(at + from);
        __m128i value = _mm_setzero_si128();
        if constexpr (Keep == keep::spare_bits && kept_bits_of<Record>.any(from, from + chunk)) {
            const auto *kept = reinterpret_cast<const __m128i *>(kept_bits_of<Record>.image + from);
            value = _mm_and_si128(_mm_loadu_si128(to), _mm_load_si128(kept));
        }
        _mm_storeu_si128(to, value);
    }
}

template <class Record, std::size_t K>
QUILL_INLINE void copy_chunk(uint8_t *dst, const uint8_t *src) {
    constexpr std::size_t from = K * chunk;
    if constexpr (from + chunk > sizeof(Record)) {
        for (std::size_t i = from; i < sizeof(Record); ++i) {
            const uint8_t kept = kept_bits_of<Record>.image[i];
            dst[i] = static_cast<uint8_t>((dst[i] & kept) | (src[i] & ~kept));
        }
    } else {
        auto *to = reinterpret_cast<__m128i *>(dst + from);
        __m128i value = _mm_loadu_si128(reinterpret_cast<const __m128i *>(src + from));
        if constexpr (kept_bits_of<Record>.any(from, from + chunk)) {
            const __m128i kept = _mm_load_si128(reinterpret_cast<const __m128i *>(kept_bits_of<Record>.image + from));
            value = _mm_or_si128(_mm_and_si128(_mm_loadu_si128(to), kept), _mm_andnot_si128(kept, value));
        }
        _mm_storeu_si128(to, value);
    }
}

template <keep Keep, class Record, std::size_t... K>
QUILL_INLINE void zero_chunks(Record *record, std::index_sequence<K...> /*chunks*/) {
    (zero_chunk<Keep, Record, K>(reinterpret_cast<uint8_t *>(record)), ...);
}

template <class Record, std::size_t... K>
QUILL_INLINE void copy_chunks(Record *dst, const Record *src, std::index_sequence<K...> /*chunks*/) {
    (copy_chunk<Record, K>(reinterpret_cast<uint8_t *>(dst), reinterpret_cast<const uint8_t *>(src)), ...);
}

// Zeroes a record in fresh memory.
template <class Record>
QUILL_INLINE void zero_record(Record *record) {
    zero_chunks<keep::nothing>(record, chunks_of<Record>);
}

// Resets a record of any state: everything but the spare presence bits becomes zero, then the members that have other
// reset values get them.
template <class Record>
QUILL_NOINLINE void reset_record(Record *record) {
    if constexpr (is_large<Record>) {
        if (!codec<Record>::has_spare_bits(record)) {
            std::size_t size = sizeof(Record);
            __asm__("" : "+r"(size));
            std::memset(static_cast<void *>(record), 0, size);
        } else {
            zero_chunks<keep::spare_bits>(record, chunks_of<Record>);
        }
    } else {
        zero_chunks<keep::spare_bits>(record, chunks_of<Record>);
    }
    codec<Record>::set_defaults(record);
}

// Copies the members of a record byte by byte, pointers included.
template <class Record>
QUILL_INLINE void copy_members(Record *dst, const Record *src) {
    if constexpr (is_large<Record>) {
        if (!codec<Record>::has_spare_bits(dst) && !codec<Record>::has_spare_bits(src)) {
            std::size_t size = sizeof(Record);
            __asm__("" : "+r"(size));
            std::memcpy(static_cast<void *>(dst), src, size);
            return;
        }
    }
    copy_chunks(dst, src, chunks_of<Record>);
}

// memcpy for the short texts that messages are made of: two overlapping moves instead of a call.
QUILL_INLINE void copy_bytes(void *to, const void *from, uint64_t length) {
    auto *dst = static_cast<uint8_t *>(to);
    const auto *src = static_cast<const uint8_t *>(from);
    if (length > 64) {
        std::memcpy(dst, src, length);
    } else if (length > 32) {
        std::memcpy(dst, src, 32);
        std::memcpy(dst + length - 32, src + length - 32, 32);
    } else if (length >= 16) {
        std::memcpy(dst, src, 16);
        std::memcpy(dst + length - 16, src + length - 16, 16);
    } else if (length >= 8) {
        std::memcpy(dst, src, 8);
        std::memcpy(dst + length - 8, src + length - 8, 8);
    } else if (length >= 4) {
        std::memcpy(dst, src, 4);
        std::memcpy(dst + length - 4, src + length - 4, 4);
    } else if (length != 0) {
        dst[0] = src[0];
        dst[length / 2] = src[length / 2];
        dst[length - 1] = src[length - 1];
    }
}

}  // namespace quill

#endif
