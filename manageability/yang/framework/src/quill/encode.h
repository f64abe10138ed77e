// The encoder's rules.
//
// The bytes are those of a scheme that sizes every nested record by a dry run before it writes it, at every level anew;
// the time is not. Here one pass over the record finds the whole size, and a second one writes from the last byte to
// the first, where each length is known when its turn comes: it is the distance between two positions.
#ifndef QUILL_ENCODE_H
#define QUILL_ENCODE_H

#include "codec.h"

namespace quill {

constexpr uint64_t varint_size(uint64_t value) {
    const auto highest_bit = static_cast<uint32_t>(63 - __builtin_clzll(value | 1));
    return (highest_bit * 9 + 73) / 64;
}

template <uint32_t Field>
inline constexpr uint64_t tag_size = varint_size(tag_of(Field, wire_bytes));

// The size pass of a caller that only asks for the size.
struct measuring {
    static uint64_t length_of(const char *text) { return std::strlen(text); }
    static uint64_t leave(uint64_t size) { return size; }
};

// The size pass of a caller that goes on to write: counts the segments and remembers what strlen said of the first
// texts, which spares small messages the second strlen.
class preparing {
  public:
    uint64_t length_of(const char *text) {
        const uint64_t length = std::strlen(text);
        if (texts_ < capacity) {
            lengths_[texts_] = length < too_long ? static_cast<uint32_t>(length) : too_long;
        }
        ++texts_;
        return length;
    }

    uint64_t leave(uint64_t size) {
        segments_ += size != 0 ? 1 : 0;
        return size;
    }

    // Takes the lengths back, from the last text to the first.
    uint64_t length_again(const char *text) {
        --texts_;
        if (texts_ < capacity && lengths_[texts_] != too_long) {
            return lengths_[texts_];
        }
        return std::strlen(text);
    }

    [[nodiscard]] uint32_t segments() const { return segments_; }

  private:
    static constexpr uint64_t capacity = 1024;
    static constexpr uint32_t too_long = UINT32_MAX;

    uint64_t texts_ = 0;
    uint32_t segments_ = 0;
    uint32_t lengths_[capacity];
};

// Writes a message that fits its buffer. A position is where the byte written last lies.
class direct_writer {
  public:
    using position = uint8_t *;
    struct mark {};

    explicit direct_writer(preparing &lengths) : lengths_(lengths) {}

    uint64_t length_of(const char *text) { return lengths_.length_again(text); }

    static QUILL_INLINE position varint(uint64_t value, position at) {
        if (value < 0x80) {
            *--at = static_cast<uint8_t>(value);
            return at;
        }
        at -= varint_size(value);
        uint8_t *out = at;
        for (; value >= 0x80; value >>= 7U) {
            *out++ = static_cast<uint8_t>(value | 0x80U);
        }
        *out = static_cast<uint8_t>(value);
        return at;
    }

    static QUILL_INLINE position bytes(const char *text, uint64_t length, position at) {
        at -= length;
        copy_bytes(at, text, length);
        return at;
    }

    static mark enter() { return {}; }
    static position leave(mark /*mark*/, position at, position /*end*/) { return at; }

  private:
    preparing &lengths_;
};

// Writes a message that is cut at the buffer's end, or that collects its segments, or both. A position is a distance
// from the message's start.
class guarded_writer {
  public:
    using position = uint64_t;
    using mark = uint32_t;

    guarded_writer(preparing &lengths, uint8_t *buffer, uint64_t limit, quill_segment *segments, uint32_t capacity)
        : lengths_(lengths),
          buffer_(buffer),
          limit_(limit),
          segments_(segments),
          capacity_(capacity),
          next_(lengths.segments()) {}

    uint64_t length_of(const char *text) { return lengths_.length_again(text); }

    position varint(uint64_t value, position at) {
        at -= varint_size(value);
        position to = at;
        for (; value >= 0x80; value >>= 7U) {
            put(to++, static_cast<uint8_t>(value | 0x80U));
        }
        put(to, static_cast<uint8_t>(value));
        return at;
    }

    // A text that does not fit whole is left out.
    position bytes(const char *text, uint64_t length, position at) const {
        const position start = at - length;
        if (at <= limit_) {
            copy_bytes(buffer_ + start, text, length);
        }
        return start;
    }

    // A record's segment stands behind those of the records inside it, so on the way back it is the first to be met:
    // it takes its place on entering and is stored on leaving. A record that encodes to nothing gives its place back.
    mark enter() { return --next_; }

    position leave(mark place, position at, position end) {
        if (at == end) {
            ++next_;
        } else if (place < capacity_) {
            segments_[place] = {start_of(at), end - at};
        }
        return at;
    }

  private:
    void put(position at, uint8_t byte) const {
        if (at < limit_) {
            buffer_[at] = byte;
        }
    }

    // Only the whole message starts at 0; it is reported at the buffer as the caller passed it.
    [[nodiscard]] const uint8_t *start_of(position at) const {
        return at == 0 || at < limit_ ? buffer_ + at : nullptr;
    }

    preparing &lengths_;
    uint8_t *buffer_;
    uint64_t limit_;
    quill_segment *segments_;
    uint32_t capacity_;
    uint32_t next_;
};

// Size rules: what a member adds. Integers are asked only when they are present.

template <uint32_t Field>
constexpr uint64_t size_varint(uint64_t value) {
    return tag_size<Field> + varint_size(value);
}

template <uint32_t Field, class Pass>
QUILL_INLINE uint64_t size_text(const char *text, Pass &pass) {
    if (text == nullptr) {
        return 0;
    }
    const uint64_t length = pass.length_of(text);
    return tag_size<Field> + varint_size(static_cast<uint32_t>(length)) + length;
}

template <uint32_t Field, class Pass>
uint64_t size_texts(char *const *texts, uint32_t count, Pass &pass) {
    uint64_t size = 0;
    for (uint32_t i = 0; texts != nullptr && i < count; ++i) {
        size += size_text<Field>(texts[i], pass);
    }
    return size;
}

template <uint32_t Field>
uint64_t size_varints(const uint32_t *values, uint32_t count) {
    uint64_t size = 0;
    for (uint32_t i = 0; values != nullptr && i < count; ++i) {
        size += size_varint<Field>(values[i]);
    }
    return size;
}

template <uint32_t Field>
constexpr uint64_t size_prefixed(uint64_t size) {
    return tag_size<Field> + varint_size(static_cast<uint32_t>(size)) + size;
}

template <uint32_t Field, class Record, class Pass>
QUILL_INLINE uint64_t size_record(bool present, const Record *record, Pass &pass) {
    if (codec<Record>::is_blank(record)) {
        return present ? tag_size<Field> + 1 : 0;
    }
    const uint64_t size = codec<Record>::size(record, pass);
    return size != 0 || present ? size_prefixed<Field>(size) : 0;
}

template <uint32_t Field, class Record, class Pass>
QUILL_INLINE uint64_t size_records(const Record *records, uint32_t count, Pass &pass) {
    uint64_t size = 0;
    for (uint32_t i = 0; records != nullptr && i < count; ++i) {
        size += size_prefixed<Field>(codec<Record>::size(records + i, pass));
    }
    return size;
}

// Writing rules: a member is written in front of what stands at `at`; the result is the new front.

template <uint32_t Field, uint32_t WireType, class Writer>
QUILL_INLINE typename Writer::position write_tag(typename Writer::position at, Writer &out) {
    return out.varint(tag_of(Field, WireType), at);
}

template <uint32_t Field, class Writer>
QUILL_INLINE typename Writer::position write_varint(uint64_t value, typename Writer::position at, Writer &out) {
    return write_tag<Field, wire_varint>(out.varint(value, at), out);
}

template <uint32_t Field, class Writer>
QUILL_INLINE typename Writer::position write_length(uint64_t length, typename Writer::position at, Writer &out) {
    return write_tag<Field, wire_bytes>(out.varint(static_cast<uint32_t>(length), at), out);
}

template <uint32_t Field, class Writer>
QUILL_INLINE typename Writer::position write_text(const char *text, typename Writer::position at, Writer &out) {
    if (text == nullptr) {
        return at;
    }
    const uint64_t length = out.length_of(text);
    return write_length<Field>(length, out.bytes(text, length, at), out);
}

template <uint32_t Field, class Writer>
typename Writer::position write_texts(char *const *texts, uint32_t count, typename Writer::position at, Writer &out) {
    for (uint32_t i = texts != nullptr ? count : 0; i != 0; --i) {
        at = write_text<Field>(texts[i - 1], at, out);
    }
    return at;
}

template <uint32_t Field, class Writer>
typename Writer::position write_varints(const uint32_t *values, uint32_t count, typename Writer::position at,
                                        Writer &out) {
    for (uint32_t i = values != nullptr ? count : 0; i != 0; --i) {
        at = write_varint<Field>(values[i - 1], at, out);
    }
    return at;
}

template <uint32_t Field, class Record, class Writer>
QUILL_INLINE typename Writer::position write_record(bool present, const Record *record, typename Writer::position end,
                                                    Writer &out) {
    typename Writer::position at = end;
    if (!codec<Record>::is_blank(record)) {
        at = codec<Record>::write(record, end, out);
    }
    return at != end || present ? write_length<Field>(static_cast<uint64_t>(end - at), at, out) : at;
}

template <uint32_t Field, class Record, class Writer>
QUILL_INLINE typename Writer::position write_records(const Record *records, uint32_t count,
                                                     typename Writer::position at, Writer &out) {
    for (uint32_t i = records != nullptr ? count : 0; i != 0; --i) {
        const typename Writer::position end = at;
        at = codec<Record>::write(records + i - 1, end, out);
        at = write_length<Field>(static_cast<uint64_t>(end - at), at, out);
    }
    return at;
}

template <class Record>
QUILL_NOINLINE uint64_t size_only(const Record *record) {
    measuring pass;
    return codec<Record>::size(record, pass);
}

template <class Record>
uint64_t encode(const Record *record, uint8_t *buffer, uint64_t buffer_length, quill_segment *segments,
                uint32_t *segment_count) {
    const uint64_t limit = buffer != nullptr ? buffer_length : 0;
    if (limit == 0 && segment_count == nullptr) {
        return size_only(record);
    }
    preparing pass;
    const uint64_t size = codec<Record>::size(record, pass);
    if (size <= limit && segment_count == nullptr) {
        direct_writer out(pass);
        codec<Record>::write(record, buffer + size, out);
        return size;
    }
    const uint32_t capacity = segment_count != nullptr && segments != nullptr ? *segment_count : 0;
    guarded_writer out(pass, buffer, limit, segments, capacity);
    if (segment_count != nullptr) {
        *segment_count = pass.segments();
    }
    codec<Record>::write(record, size, out);
    return size;
}

}  // namespace quill

#endif
