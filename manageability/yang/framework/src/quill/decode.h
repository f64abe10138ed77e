// The decoder's rules.
//
// Every rule takes the position of the next byte and the end of the record's bytes and returns the position behind what
// it read, or null when decoding has to stop; the reason is in the call's state then.
#ifndef QUILL_DECODE_H
#define QUILL_DECODE_H

#include "codec.h"

namespace quill {

struct decoding {
    quill_alloc_fn alloc;
    void *alloc_ctx;
    int32_t result;

    const uint8_t *fail(int32_t code) {
        result = code;
        return nullptr;
    }
};

// A varint's value and the position behind it, null when it runs past the end.
struct varint {
    const uint8_t *next;
    uint64_t value;
};

// Reads a varint of any length. Bits beyond those of the significant bytes are dropped, and bytes beyond them are
// skipped without limit.
template <uint32_t Significant>
QUILL_NOINLINE inline varint read_long_varint(const uint8_t *at, const uint8_t *end) {
    uint64_t value = 0;
    for (uint64_t k = 0; at != end; ++k) {
        const uint8_t byte = *at++;
        if (k < Significant) {
            value |= static_cast<uint64_t>(byte & 0x7FU) << 7 * k;
        }
        if (byte < 0x80) {
            return {at, value};
        }
    }
    return {nullptr, 0};
}

// The low 32 bits of a varint. With a null output the position is only advanced. Nearly all are of one or two bytes.
QUILL_INLINE const uint8_t *quill_read_varint32(uint32_t *value, const uint8_t *at, const uint8_t *end, decoding &in) {
    if (at != end && *at < 0x80) {
        if (value != nullptr) {
            *value = *at;
        }
        return at + 1;
    }
    if (end - at >= 2 && at[1] < 0x80) {
        if (value != nullptr) {
            *value = (at[0] & 0x7FU) | static_cast<uint32_t>(at[1]) << 7U;
        }
        return at + 2;
    }
    const varint read = read_long_varint<5>(at, end);
    if (read.next == nullptr) {
        return in.fail(QUILL_DECODE_MALFORMED);
    }
    if (value != nullptr) {
        *value = static_cast<uint32_t>(read.value);
    }
    return read.next;
}

QUILL_INLINE const uint8_t *quill_read_varint64(uint64_t *value, const uint8_t *at, const uint8_t *end, decoding &in) {
    const varint read = read_long_varint<10>(at, end);
    if (read.next == nullptr) {
        return in.fail(QUILL_DECODE_MALFORMED);
    }
    if (value != nullptr) {
        *value = read.value;
    }
    return read.next;
}

// A length that lies within what is left.
QUILL_INLINE const uint8_t *read_length(uint32_t *length, const uint8_t *at, const uint8_t *end, decoding &in) {
    at = quill_read_varint32(length, at, end, in);
    if (at != nullptr && *length > static_cast<uint64_t>(end - at)) {
        return in.fail(QUILL_DECODE_MALFORMED);
    }
    return at;
}

// Skips an unknown field behind its tag. What is skipped may end beyond the input: that ends the record, successfully,
// so that an agent can cut what it does not know.
QUILL_NOINLINE inline const uint8_t *quill_skip_field(uint32_t wire_type, const uint8_t *at, const uint8_t *end,
                                                      decoding &in) {
    uint32_t length = 0;
    switch (wire_type) {
        case wire_varint:
            return quill_read_varint32(nullptr, at, end, in);
        case wire_fixed64:
            length = 8;
            break;
        case wire_bytes:
            at = quill_read_varint32(&length, at, end, in);
            break;
        case wire_fixed32:
            length = 4;
            break;
        default:
            return in.fail(QUILL_DECODE_BAD_WIRE_TYPE);
    }
    if (at == nullptr) {
        return nullptr;
    }
    return length < static_cast<uint64_t>(end - at) ? at + length : end;
}

// What is left of the tags when no member takes them.
template <class Record>
QUILL_NOINLINE const uint8_t *decode_other(uint32_t tag, const uint8_t *at, const uint8_t *end, decoding &in) {
    if (codec<Record>::is_member(tag >> 3U)) {
        return in.fail(QUILL_DECODE_WRONG_WIRE_TYPE);
    }
    return quill_skip_field(tag & 7U, at, end, in);
}

QUILL_INLINE const uint8_t *decode_number(uint32_t *member, const uint8_t *at, const uint8_t *end, decoding &in) {
    return quill_read_varint32(member, at, end, in);
}

QUILL_INLINE const uint8_t *decode_number(uint64_t *member, const uint8_t *at, const uint8_t *end, decoding &in) {
    return quill_read_varint64(member, at, end, in);
}

// A boolean, kept in 8 or in 32 bits.
template <class Flag>
QUILL_INLINE const uint8_t *decode_flag(Flag *member, const uint8_t *at, const uint8_t *end, decoding &in) {
    uint32_t value = 0;
    at = quill_read_varint32(&value, at, end, in);
    if (at != nullptr) {
        *member = value != 0 ? 1 : 0;
    }
    return at;
}

// Reads a length and its bytes into a fresh terminated text.
QUILL_INLINE const uint8_t *decode_new_text(char **member, const uint8_t *at, const uint8_t *end, decoding &in) {
    uint32_t length = 0;
    at = read_length(&length, at, end, in);
    if (at == nullptr) {
        return nullptr;
    }
    auto *text = static_cast<char *>(in.alloc(uint64_t{length} + 1, in.alloc_ctx));
    if (text == nullptr) {
        return in.fail(QUILL_DECODE_NO_MEMORY);
    }
    copy_bytes(text, at, length);
    text[length] = '\0';
    *member = text;
    return at + length;
}

// Strings and repeated members occur once, and not without an allocation function.
QUILL_INLINE bool may_allocate(const void *member, decoding &in) {
    if (member != nullptr || in.alloc == nullptr) {
        in.result = member != nullptr ? QUILL_DECODE_MALFORMED : QUILL_DECODE_NO_MEMORY;
        return false;
    }
    return true;
}

QUILL_NOINLINE inline const uint8_t *decode_text(char **member, const uint8_t *at, const uint8_t *end, decoding &in) {
    return may_allocate(*member, in) ? decode_new_text(member, at, end, in) : nullptr;
}

// Decodes a nested record. The holder's reset covers its first occurrence; later ones start afresh.
template <int Levels = 0, class Record>
QUILL_INLINE const uint8_t *decode_record(bool occurred, Record *member, const uint8_t *at, const uint8_t *end,
                                          decoding &in) {
    uint32_t length = 0;
    at = read_length(&length, at, end, in);
    if (at == nullptr) {
        return nullptr;
    }
    if (occurred) {
        reset_record(member);
    }
    if constexpr (Levels > 1) {
        return codec<Record>::template decode_levels<Levels - 1>(member, at, at + length, in);
    } else {
        return codec<Record>::decode(member, at, at + length, in);
    }
}

// Steps over a value: a varint or a length with its bytes.
template <uint32_t WireType>
QUILL_INLINE const uint8_t *skip_value(const uint8_t *at, const uint8_t *end, decoding &in) {
    if constexpr (WireType == wire_varint) {
        return quill_read_varint32(nullptr, at, end, in);
    } else {
        uint32_t length = 0;
        at = read_length(&length, at, end, in);
        return at != nullptr ? at + length : nullptr;
    }
}

// Counts the elements of a run that starts behind its first tag. Tags are compared by field number alone.
template <uint32_t WireType>
QUILL_INLINE bool count_run(uint32_t field, uint32_t *count, const uint8_t *at, const uint8_t *end, decoding &in) {
    uint32_t tag = tag_of(field, WireType);
    uint64_t elements = 0;
    while (tag >> 3U == field) {
        ++elements;
        at = skip_value<WireType>(at, end, in);
        if (at == nullptr) {
            return false;
        }
        if (at == end) {
            break;
        }
        at = quill_read_varint32(&tag, at, end, in);
        if (at == nullptr) {
            return false;
        }
    }
    if (elements > UINT32_MAX) {
        in.result = QUILL_DECODE_MALFORMED;
        return false;
    }
    *count = static_cast<uint32_t>(elements);
    return true;
}

// Allocates the array of a run. The member is set before any element is decoded.
template <uint32_t WireType, class Element>
QUILL_INLINE bool start_run(uint32_t field, Element **array, uint32_t *count, const uint8_t *at, const uint8_t *end,
                            decoding &in) {
    uint32_t elements = 0;
    if (!may_allocate(*array, in) || !count_run<WireType>(field, &elements, at, end, in)) {
        return false;
    }
    auto *block = static_cast<Element *>(in.alloc(uint64_t{elements} * sizeof(Element), in.alloc_ctx));
    if (block == nullptr) {
        in.result = QUILL_DECODE_NO_MEMORY;
        return false;
    }
    *array = block;
    *count = elements;
    return true;
}

// The first tag of a run was read by the record's loop; those of the other elements are not looked at.
QUILL_INLINE const uint8_t *pass_tag(uint32_t element, const uint8_t *at, const uint8_t *end, decoding &in) {
    return element == 0 ? at : quill_read_varint32(nullptr, at, end, in);
}

QUILL_NOINLINE inline const uint8_t *decode_texts(uint32_t field, char ***array, uint32_t *count, const uint8_t *at,
                                                  const uint8_t *end, decoding &in) {
    if (!start_run<wire_bytes>(field, array, count, at, end, in)) {
        return nullptr;
    }
    std::memset(*array, 0, uint64_t{*count} * sizeof(char *));
    for (uint32_t i = 0; i < *count && at != nullptr; ++i) {
        at = pass_tag(i, at, end, in);
        at = at != nullptr ? decode_new_text(*array + i, at, end, in) : nullptr;
    }
    return at;
}

QUILL_NOINLINE inline const uint8_t *decode_numbers(uint32_t field, uint32_t **array, uint32_t *count,
                                                    const uint8_t *at, const uint8_t *end, decoding &in) {
    if (!start_run<wire_varint>(field, array, count, at, end, in)) {
        return nullptr;
    }
    std::memset(*array, 0, uint64_t{*count} * sizeof(uint32_t));
    for (uint32_t i = 0; i < *count && at != nullptr; ++i) {
        at = pass_tag(i, at, end, in);
        at = at != nullptr ? quill_read_varint32(*array + i, at, end, in) : nullptr;
    }
    return at;
}

// The elements are zeroed one by one, each just before it is filled, while it is in reach anyway; what a failure leaves
// behind is zeroed like the rest of the array.
template <int Levels = 0, class Record>
QUILL_INLINE const uint8_t *decode_records(uint32_t field, Record **array, uint32_t *count, const uint8_t *at,
                                           const uint8_t *end, decoding &in) {
    if (!start_run<wire_bytes>(field, array, count, at, end, in)) {
        return nullptr;
    }
    Record *element = *array;
    for (uint32_t left = *count; left != 0; --left, ++element) {
        zero_record(element);
        if constexpr (!codec<Record>::zero_reset) {
            codec<Record>::set_defaults(element);
        }
        at = element == *array ? at : quill_read_varint32(nullptr, at, end, in);
        at = at != nullptr ? decode_record<Levels>(false, element, at, end, in) : nullptr;
        if (at == nullptr) {
            std::memset(static_cast<void *>(element + 1), 0, uint64_t{left - 1} * sizeof(Record));
            return nullptr;
        }
    }
    return at;
}

template <class Record>
int32_t decode(Record *record, const uint8_t *buf, uint64_t len, quill_alloc_fn alloc, void *alloc_ctx) {
    decoding in = {alloc, alloc_ctx, 0};
    if constexpr (codec<Record>::members != 0) {
        reset_record(record);
    }
    codec<Record>::decode(record, buf, buf + len, in);
    return in.result;
}

}  // namespace quill

#endif
