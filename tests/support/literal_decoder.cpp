#include "literal_decoder.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "record_builder.h"

namespace nyx_test {
namespace {

constexpr uint32_t varint_type = 0;
constexpr uint32_t fixed64_type = 1;
constexpr uint32_t length_delimited_type = 2;
constexpr uint32_t fixed32_type = 5;

uint32_t wire_type_of(const member &m) {
    return is_number(m.kind) || m.kind == member_kind::numbers32 ? varint_type : length_delimited_type;
}

// Bytes that are left to be read.
struct piece {
    const uint8_t *at;
    const uint8_t *end;

    [[nodiscard]] uint64_t left() const { return static_cast<uint64_t>(end - at); }
};

// Blocks that a record owns.
uint64_t blocks_of(const record_table &table, const void *record) {
    uint64_t blocks = 0;
    for (const member &m : table.members) {
        if (m.kind == member_kind::record) {
            blocks += blocks_of(table_of(m.element), nested_of(m, record));
        } else if (!is_number(m.kind) && pointer_of(m, record) != nullptr) {
            ++blocks;
            for (uint32_t i = 0; is_repeated(m.kind) && i < count_of(m, record); ++i) {
                const void *const array = pointer_of(m, record);
                if (m.kind == member_kind::records) {
                    blocks += blocks_of(table_of(m.element), record_at(m, array, i));
                } else if (m.kind == member_kind::texts) {
                    blocks += text_at(array, i) != nullptr ? 1 : 0;
                }
            }
        }
    }
    return blocks;
}

// One call of a decoder. What returns false has set the result.
class decoding {
  public:
    decoding(quill_alloc_fn alloc, void *alloc_ctx) : alloc_(alloc), alloc_ctx_(alloc_ctx) {}

    [[nodiscard]] literal_outcome outcome() const { return outcome_; }

    bool read_members(const record_table &table, void *record, piece in) {
        while (in.left() != 0) {
            uint32_t tag = 0;
            if (!read_number32(in, tag)) {
                return false;
            }
            const auto known = std::find_if(table.members.begin(), table.members.end(),
                                            [&](const member &m) { return m.field == tag >> 3U; });
            if (known == table.members.end()) {
                if (!pass_unknown(in, tag & 7U)) {
                    return false;
                }
                continue;
            }
            if ((tag & 7U) != wire_type_of(*known)) {
                return stop(QUILL_DECODE_WRONG_WIRE_TYPE);
            }
            if (!read_value(*known, is_present(table, *known, record), record, in)) {
                return false;
            }
            set_present(table, *known, record, true);
        }
        return true;
    }

  private:
    bool stop(int32_t code) {
        outcome_.result = code;
        return false;
    }

    // Any number of bytes; what does not fit into 64 bits is dropped.
    bool read_number(piece &in, uint64_t &value) {
        value = 0;
        for (uint64_t shift = 0; in.left() != 0; shift += 7) {
            const uint8_t byte = *in.at++;
            if (shift < 64) {
                value |= static_cast<uint64_t>(byte & 0x7FU) << shift;
            }
            if ((byte & 0x80U) == 0) {
                return true;
            }
        }
        return stop(QUILL_DECODE_MALFORMED);
    }

    bool read_number32(piece &in, uint32_t &value) {
        uint64_t whole = 0;
        const bool read = read_number(in, whole);
        value = static_cast<uint32_t>(whole);
        return read;
    }

    bool read_content(piece &in, piece &content) {
        uint32_t length = 0;
        if (!read_number32(in, length)) {
            return false;
        }
        if (length > in.left()) {
            return stop(QUILL_DECODE_MALFORMED);
        }
        content = {in.at, in.at + length};
        in.at += length;
        return true;
    }

    // What is not known may be cut short, but for the varints in it.
    bool pass_unknown(piece &in, uint32_t wire_type) {
        uint64_t number = 0;
        uint32_t length = 0;
        switch (wire_type) {
            case varint_type:
                return read_number(in, number);
            case fixed64_type:
                length = 8;
                break;
            case length_delimited_type:
                if (!read_number32(in, length)) {
                    return false;
                }
                break;
            case fixed32_type:
                length = 4;
                break;
            default:
                return stop(QUILL_DECODE_BAD_WIRE_TYPE);
        }
        in.at += std::min<uint64_t>(length, in.left());
        return true;
    }

    bool read_value(const member &m, bool occurred, void *record, piece &in) {
        if (is_number(m.kind)) {
            return read_number_member(m, record, in);
        }
        if (m.kind == member_kind::record) {
            piece content{};
            return read_content(in, content) && read_record(m, nested_of(m, record), content);
        }
        if (occurred) {
            return stop(QUILL_DECODE_MALFORMED);
        }
        if (alloc_ == nullptr) {
            return stop(QUILL_DECODE_NO_MEMORY);
        }
        return m.kind == member_kind::text ? read_text(static_cast<uint8_t *>(record) + m.offset, in)
                                           : read_run(m, record, in);
    }

    bool read_number_member(const member &m, void *record, piece &in) {
        uint64_t value = 0;
        if (!read_number(in, value)) {
            return false;
        }
        const bool is_flag = m.kind == member_kind::flag || m.kind == member_kind::wide_flag;
        set_number(m, record, is_flag ? (static_cast<uint32_t>(value) != 0 ? 1 : 0) : value);
        return true;
    }

    bool read_record(const member &m, void *nested, piece content) {
        outcome_.lost += blocks_of(table_of(m.element), nested);
        reset_record(table_of(m.element), nested);
        return read_members(table_of(m.element), nested, content);
    }

    // Stores the text's address at a place that is aligned for nothing in particular.
    bool read_text(void *place, piece &in) {
        piece content{};
        if (!read_content(in, content)) {
            return false;
        }
        auto *const text = static_cast<char *>(alloc_(content.left() + 1, alloc_ctx_));
        if (text == nullptr) {
            return stop(QUILL_DECODE_NO_MEMORY);
        }
        text[content.left()] = '\0';
        std::copy(content.at, content.end, text);
        std::memcpy(place, &text, sizeof text);
        return true;
    }

    bool read_run(const member &m, void *record, piece &in) {
        std::vector<piece> values;
        if (!find_values(m, in, values)) {
            return false;
        }
        const uint64_t size = values.size() * element_size(m);
        void *const array = alloc_(size, alloc_ctx_);
        if (array == nullptr) {
            return stop(QUILL_DECODE_NO_MEMORY);
        }
        std::memset(array, 0, size);
        set_pointer(m, record, array);
        set_count(m, record, static_cast<uint32_t>(values.size()));
        for (std::size_t i = 0; i < values.size(); ++i) {
            if (!read_element(m, static_cast<uint8_t *>(array) + i * element_size(m), values[i])) {
                return false;
            }
        }
        return true;
    }

    // The values of a run, from that of its first element on, whose tag has been read. Later elements are told by their
    // field alone, and read by the type of the member, whatever the one in their tags is.
    bool find_values(const member &m, piece &in, std::vector<piece> &values) {
        for (;;) {
            const uint8_t *const begin = in.at;
            uint64_t number = 0;
            piece content{};
            if (!(wire_type_of(m) == varint_type ? read_number(in, number) : read_content(in, content))) {
                return false;
            }
            values.push_back({begin, in.at});
            piece ahead = in;
            uint32_t tag = 0;
            if (ahead.left() == 0) {
                return true;
            }
            if (!read_number32(ahead, tag)) {
                return false;
            }
            if (tag >> 3U != m.field) {
                return true;
            }
            in = ahead;
        }
    }

    bool read_element(const member &m, void *element, piece value) {
        if (m.kind == member_kind::texts) {
            return read_text(element, value);
        }
        if (m.kind == member_kind::numbers32) {
            uint32_t number = 0;
            const bool read = read_number32(value, number);
            std::memcpy(element, &number, sizeof number);
            return read;
        }
        piece content{};
        return read_content(value, content) && read_record(m, element, content);
    }

    quill_alloc_fn alloc_;
    void *alloc_ctx_;
    literal_outcome outcome_;
};

}  // namespace

literal_outcome literal_decode(const record_table &table, void *record, const uint8_t *bytes, uint64_t length,
                               quill_alloc_fn alloc, void *alloc_ctx) {
    decoding call(alloc, alloc_ctx);
    reset_record(table, record);
    call.read_members(table, record, {bytes, bytes + length});
    return call.outcome();
}

}  // namespace nyx_test
