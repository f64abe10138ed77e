#include "literal_encoder.h"

#include <cstring>

namespace nyx_test {
namespace {

constexpr uint32_t varint_type = 0;
constexpr uint32_t length_delimited_type = 2;

// One call of an encoder.
class encoding {
  public:
    encoding(uint8_t *buffer, uint64_t buffer_length, quill_segment *segments, const uint32_t *segment_count)
        : buffer_(buffer),
          buffer_length_(buffer_length),
          segments_(segments),
          keeps_segments_(segment_count != nullptr),
          // Without an array there is nowhere to store an entry.
          capacity_(segment_count != nullptr && segments != nullptr ? *segment_count : 0) {}

    void emit_members(const record_table &table, const void *record) {
        for (const member &m : table.members) {
            emit(m, is_present(table, m, record), record);
        }
    }

    uint64_t finish(uint32_t *segment_count) {
        const uint64_t size = position_;
        if (!keeps_segments_ || segment_count == nullptr) {
            return size;
        }
        if (size != 0) {
            if (local_count_ < capacity_) {
                segments_[local_count_] = {buffer_, size};
            }
            ++local_count_;
        }
        *segment_count = local_count_;
        return size;
    }

  private:
    void emit(const member &m, bool present, const void *record) {
        switch (m.kind) {
            case member_kind::number32:
            case member_kind::flag:
            case member_kind::wide_flag:
                if (present) {
                    emit_number32(m, static_cast<uint32_t>(number_of(m, record)));
                }
                break;
            case member_kind::number64:
                if (present) {
                    emit_tag(m, varint_type);
                    position_ = write_varint64(number_of(m, record), position_, buffer_, buffer_length_);
                }
                break;
            case member_kind::text:
                if (present && pointer_of(m, record) != nullptr) {
                    emit_text(m, static_cast<const char *>(pointer_of(m, record)));
                }
                break;
            case member_kind::record:
                emit_record(m, present, nested_of(m, record));
                break;
            default:
                if (present && count_of(m, record) != 0 && pointer_of(m, record) != nullptr) {
                    emit_elements(m, pointer_of(m, record), count_of(m, record));
                }
        }
    }

    void emit_elements(const member &m, const void *array, uint32_t count) {
        for (uint32_t i = 0; i < count; ++i) {
            if (m.kind == member_kind::numbers32) {
                emit_number32(m, number32_at(array, i));
            } else if (m.kind == member_kind::records) {
                emit_record(m, true, record_at(m, array, i));
            } else if (text_at(array, i) != nullptr) {
                emit_text(m, text_at(array, i));
            }
        }
    }

    void emit_tag(const member &m, uint32_t wire_type) {
        const uint32_t tag = m.field << 3U | wire_type;
        position_ = m.field < 16 ? write_tag(static_cast<uint8_t>(tag), position_, buffer_, buffer_length_)
                                 : write_varint32(tag, position_, buffer_, buffer_length_);
    }

    void emit_number32(const member &m, uint32_t value) {
        emit_tag(m, varint_type);
        position_ = write_varint32(value, position_, buffer_, buffer_length_);
    }

    void emit_text(const member &m, const char *text) {
        emit_tag(m, length_delimited_type);
        const uint64_t length = std::strlen(text);
        position_ = write_varint32(static_cast<uint32_t>(length), position_, buffer_, buffer_length_);
        const uint64_t end = position_ + length;
        if (end <= buffer_length_ && end >= position_ && length != 0) {  // no copy to a null buffer
            std::memcpy(buffer_ + position_, text, length);
        }
        position_ = end;
    }

    void emit_record(const member &m, bool present, const void *record) {
        const record_table &table = table_of(m.element);
        const uint64_t size = literal_encode(table, record, nullptr, 0, nullptr, nullptr);
        if (size == 0 && !present) {
            return;
        }
        emit_tag(m, length_delimited_type);
        position_ = write_varint32(static_cast<uint32_t>(size), position_, buffer_, buffer_length_);
        uint8_t *rest = position_ < buffer_length_ ? buffer_ + position_ : nullptr;
        const uint64_t rest_length = position_ <= buffer_length_ ? buffer_length_ - position_ : 0;
        const bool room = keeps_segments_ && capacity_ > local_count_;
        quill_segment *nested_segments = room ? segments_ + local_count_ : nullptr;
        uint32_t nested_count = room ? capacity_ - local_count_ : 0;
        literal_encode(table, record, rest, rest_length, nested_segments, &nested_count);
        local_count_ += nested_count;
        position_ += size;
    }

    uint8_t *buffer_;
    uint64_t buffer_length_;
    quill_segment *segments_;
    bool keeps_segments_;
    uint32_t capacity_;
    uint64_t position_ = 0;
    uint32_t local_count_ = 0;
};

}  // namespace

uint64_t write_tag(uint8_t tag, uint64_t position, uint8_t *buffer, uint64_t buffer_length) {
    if (position < buffer_length) {
        buffer[position] = tag;
    }
    return position + 1;
}

uint64_t write_varint32(uint32_t value, uint64_t position, uint8_t *buffer, uint64_t buffer_length) {
    while (value >= 128) {
        if (position < buffer_length) {
            buffer[position] = static_cast<uint8_t>((value & 0x7FU) | 0x80U);
        }
        ++position;
        value >>= 7U;
    }
    if (position < buffer_length) {
        buffer[position] = static_cast<uint8_t>(value);
    }
    return position + 1;
}

uint64_t write_varint64(uint64_t value, uint64_t position, uint8_t *buffer, uint64_t buffer_length) {
    while (value >= 128) {
        if (position < buffer_length) {
            buffer[position] = static_cast<uint8_t>((value & 0x7FU) | 0x80U);
        }
        ++position;
        value >>= 7U;
    }
    if (position < buffer_length) {
        buffer[position] = static_cast<uint8_t>(value);
    }
    return position + 1;
}

uint64_t literal_encode(const record_table &table, const void *record, uint8_t *buffer, uint64_t buffer_length,
                        quill_segment *segments, uint32_t *segment_count) {
    encoding call(buffer, buffer_length, segments, segment_count);
    call.emit_members(table, record);
    return call.finish(segment_count);
}

}  // namespace nyx_test
