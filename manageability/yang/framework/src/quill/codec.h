// What every rule of the codec knows of a record.
//
// The generator specialises codec<R> for each record R with
//   members, presence_offset      how many members, and where their presence bits begin
//   zero_reset                    a reset record is all zeros
//   is_member(field)              whether a field number is one of the record's
//   is_blank, size, write, decode, clear, copy, release
// as short lists of calls to the rules of encode.h, decode.h and lifetime.h, one line a member.
#ifndef QUILL_CODEC_H
#define QUILL_CODEC_H

#include <cstddef>
#include <cstdint>
#include <cstring>

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

constexpr uint32_t tag_of(uint32_t field, uint32_t wire_type) { return field << 3U | wire_type; }

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

    static const uint8_t *of(const Record *record) { return reinterpret_cast<const uint8_t *>(record) + offset; }
    static uint8_t *of(Record *record) { return reinterpret_cast<uint8_t *>(record) + offset; }

    static QUILL_INLINE bool none(const Record *record) {
        uint32_t any = 0;
        for (std::size_t k = 0; k < bytes; ++k) {
            any |= of(record)[k] & mask(k);
        }
        return any == 0;
    }

    static QUILL_INLINE void clear(Record *record) {
        for (std::size_t k = 0; k < bytes; ++k) {
            of(record)[k] = static_cast<uint8_t>(of(record)[k] & ~mask(k));
        }
    }

    static QUILL_INLINE void copy(Record *dst, const Record *src) {
        for (std::size_t k = 0; k < bytes; ++k) {
            of(dst)[k] = static_cast<uint8_t>((of(dst)[k] & ~mask(k)) | (of(src)[k] & mask(k)));
        }
    }
};

template <class Record>
QUILL_INLINE void clear_record(Record *record) {
    codec<Record>::clear(record);
}

// memcpy for the short texts that messages are made of: two overlapping moves instead of a call.
QUILL_INLINE void copy_bytes(void *to, const void *from, uint64_t length) {
    auto *dst = static_cast<uint8_t *>(to);
    const auto *src = static_cast<const uint8_t *>(from);
    if (length > 32) {
        std::memcpy(dst, src, length);
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
