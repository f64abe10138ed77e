// The encoder's rules.
//
// The bytes are those of a scheme that sizes every nested record by a dry run before it writes it, at every level anew;
// the time is not. Here one pass over the record finds the whole size, and a second one writes from the last byte to
// the first, where each length is known when its turn comes: it is the distance between two positions. A position
// behind the buffer's end is only counted, so a short buffer takes the same two passes.
#ifndef QUILL_ENCODE_H
#define QUILL_ENCODE_H

#include "codec.h"

namespace quill {

QUILL_INLINE constexpr uint64_t varint_size(uint64_t value) {
    if (__builtin_expect(value < 0x80, 1)) {  // nearly every tag, length and number
        return 1;
    }
    if (value < 0x4000) {
        return 2;
    }
    const auto highest_bit = static_cast<uint32_t>(63 - __builtin_clzll(value | 1));
    return (highest_bit * 9 + 73) / 64;
}

template <uint32_t Field>
inline constexpr uint64_t tag_size = varint_size(tag_of(Field, wire_bytes));

// The size pass of a caller that only asks for the size.
struct measuring {
    static uint64_t length_of(const char *text) { return std::strlen(text); }
    static void remember(uint32_t /*finding*/) {}
    static uint64_t leave(uint64_t size) { return size; }
};

// The size pass of a caller that goes on to write: counts the segments and remembers its first findings (what strlen
// said of a text, which nested records of a wide one are written). The writing pass takes them back from the last to
// the first and need not make them again.
class findings {
  public:
    // Only what was remembered is recalled; GCC cannot see that where it inlines both passes of a small record.
    findings() { table_[0] = 0; }

    QUILL_INLINE uint64_t length_of(const char *text) {
        const uint64_t length = std::strlen(text);
        if (__builtin_expect(length > UINT32_MAX, 0) && usable_ > count_) {
            usable_ = static_cast<uint32_t>(count_);  // the table's entries are too small for this one
        }
        remember(static_cast<uint32_t>(length));
        return length;
    }

    QUILL_INLINE void remember(uint32_t finding) {
        if (count_ < usable_) {
            table_[count_] = finding;
        }
        ++count_;
    }

    uint64_t leave(uint64_t size) {
        segments_ += size != 0 ? 1 : 0;
        return size;
    }

    QUILL_INLINE uint64_t length_again(const char *text) {
        --count_;
        return count_ < usable_ ? table_[count_] : std::strlen(text);
    }

    // What was not remembered is said by `unknown`.
    QUILL_INLINE uint32_t recall(uint32_t unknown) {
        --count_;
        return count_ < usable_ ? table_[count_] : unknown;
    }

    [[nodiscard]] uint32_t segments() const { return segments_; }

  private:
    static constexpr uint32_t capacity = 2048;

    uint64_t count_ = 0;
    uint32_t usable_ = capacity;
    uint32_t segments_ = 0;
    uint32_t table_[capacity];
};

// Writes a message that fits its buffer. A position is where the byte written last lies.
class direct_writer : public findings {
  public:
    using position = uint8_t *;
    struct mark {};

    static QUILL_INLINE position varint(uint64_t value, position at) {
        if (value < 0x80) {
            *--at = static_cast<uint8_t>(value);
            return at;
        }
        if (value < 0x4000) {
            at -= 2;
            at[0] = static_cast<uint8_t>(value | 0x80U);
            at[1] = static_cast<uint8_t>(value >> 7U);
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
};

// Writes a message that is cut at the buffer's end, or that collects its segments, or both. A position is a distance
// from the message's start.
class guarded_writer {
  public:
    using position = uint64_t;
    using mark = uint32_t;

    guarded_writer(findings &found, uint8_t *buffer, uint64_t limit, quill_segment *segments, uint32_t capacity)
        : found_(found),
          buffer_(buffer),
          limit_(limit),
          segments_(segments),
          capacity_(capacity),
          next_(found.segments()) {}

    uint64_t length_again(const char *text) { return found_.length_again(text); }
    uint32_t recall(uint32_t unknown) { return found_.recall(unknown); }

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
    [[nodiscard]] const uint8_t *start_of(position at) const { return at == 0 || at < limit_ ? buffer_ + at : nullptr; }

    findings &found_;
    uint8_t *buffer_;
    uint64_t limit_;
    quill_segment *segments_;
    uint32_t capacity_;
    uint32_t next_;
};

template <class Writer>
using position_in = typename Writer::position;

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
    if (!codec<Record>::occupied(record)) {
        return present ? tag_size<Field> + 1 : 0;
    }
    const uint64_t size = codec<Record>::size(record, pass);
    return size != 0 || present ? size_prefixed<Field>(size) : 0;
}

// A level more in the frame of a record that holds itself, or a call.
template <int Levels, class Record, class Pass>
QUILL_INLINE uint64_t size_element(const Record *record, Pass &pass) {
    if constexpr (Levels > 1) {
        return codec<Record>::template size_levels<Levels - 1>(record, pass);
    } else {
        return codec<Record>::size(record, pass);
    }
}

template <uint32_t Field, int Levels = 0, class Record, class Pass>
QUILL_INLINE uint64_t size_records(const Record *records, uint32_t count, Pass &pass) {
    if (records == nullptr) {
        return 0;
    }
    uint64_t size = 0;
    for (const Record *record = records; record != records + count; ++record) {
        size += size_prefixed<Field>(size_element<Levels>(record, pass));
    }
    return size;
}

// Notes which nested records of a wide record are written.
QUILL_INLINE uint64_t note(uint32_t &found, uint32_t bit, uint64_t size) {
    found |= size != 0 ? bit : 0;
    return size;
}

// Writing rules: a member is written in front of what stands at `at`; the result is the new front.

template <uint32_t Field, uint32_t WireType, class Writer>
QUILL_INLINE position_in<Writer> write_tag(position_in<Writer> at, Writer &out) {
    return out.varint(tag_of(Field, WireType), at);
}

template <uint32_t Field, class Writer>
QUILL_INLINE position_in<Writer> write_varint(uint64_t value, position_in<Writer> at, Writer &out) {
    return write_tag<Field, wire_varint>(out.varint(value, at), out);
}

template <uint32_t Field, class Writer>
QUILL_INLINE position_in<Writer> write_length(uint64_t length, position_in<Writer> at, Writer &out) {
    return write_tag<Field, wire_bytes>(out.varint(static_cast<uint32_t>(length), at), out);
}

template <uint32_t Field, class Writer>
QUILL_INLINE position_in<Writer> write_text(const char *text, position_in<Writer> at, Writer &out) {
    if (text == nullptr) {
        return at;
    }
    const uint64_t length = out.length_again(text);
    return write_length<Field>(length, out.bytes(text, length, at), out);
}

template <uint32_t Field, class Writer>
position_in<Writer> write_texts(char *const *texts, uint32_t count, position_in<Writer> at, Writer &out) {
    for (uint32_t i = texts != nullptr ? count : 0; i != 0; --i) {
        at = write_text<Field>(texts[i - 1], at, out);
    }
    return at;
}

template <uint32_t Field, class Writer>
position_in<Writer> write_varints(const uint32_t *values, uint32_t count, position_in<Writer> at, Writer &out) {
    for (uint32_t i = values != nullptr ? count : 0; i != 0; --i) {
        at = write_varint<Field>(values[i - 1], at, out);
    }
    return at;
}

template <uint32_t Field, class Record, class Writer>
QUILL_INLINE position_in<Writer> write_record(bool present, const Record *record, position_in<Writer> end,
                                              Writer &out) {
    position_in<Writer> at = end;
    if (codec<Record>::occupied(record)) {
        at = codec<Record>::write(record, end, out);
    }
    return at != end || present ? write_length<Field>(static_cast<uint64_t>(end - at), at, out) : at;
}

template <uint32_t Field, int Levels = 0, class Record, class Writer>
QUILL_INLINE position_in<Writer> write_records(const Record *records, uint32_t count, position_in<Writer> at,
                                               Writer &out) {
    if (records == nullptr) {
        return at;
    }
    for (const Record *record = records + count; record != records;) {
        const position_in<Writer> end = at;
        --record;
        if constexpr (Levels > 1) {
            at = codec<Record>::template write_levels<Levels - 1>(record, end, out);
        } else {
            at = codec<Record>::write(record, end, out);
        }
        at = write_length<Field>(static_cast<uint64_t>(end - at), at, out);
    }
    return at;
}

// A caller who asks for the size alone does not pay for the findings' room.
template <class Record>
QUILL_NOINLINE uint64_t size_only(const Record *record) {
    measuring pass;
    return codec<Record>::size(record, pass);
}

template <class Record>
QUILL_NOINLINE void write_guarded(const Record *record, uint64_t size, findings &found, uint8_t *buffer, uint64_t limit,
                                  quill_segment *segments, uint32_t *segment_count) {
    uint32_t capacity = 0;
    if (segment_count != nullptr) {
        capacity = segments != nullptr ? *segment_count : 0;
        *segment_count = found.segments();
    }
    guarded_writer out(found, buffer, limit, segments, capacity);
    codec<Record>::write(record, size, out);
}

template <class Record>
uint64_t encode(const Record *record, uint8_t *buffer, uint64_t buffer_length, quill_segment *segments,
                uint32_t *segment_count) {
    const uint64_t limit = buffer != nullptr ? buffer_length : 0;
    if (limit == 0 && segment_count == nullptr) {
        return size_only(record);
    }
    direct_writer out;
    const uint64_t size = codec<Record>::size(record, static_cast<findings &>(out));
    if (size <= limit && segment_count == nullptr) {
        codec<Record>::write(record, buffer + size, out);
    } else {
        write_guarded(record, size, out, buffer, limit, segments, segment_count);
    }
    return size;
}

}  // namespace quill

#endif
