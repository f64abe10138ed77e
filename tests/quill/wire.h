// Messages put together byte by byte, by no rule of the library.
#ifndef NYX_TEST_WIRE_H
#define NYX_TEST_WIRE_H

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "record_tables.h"

namespace nyx_test {

using bytes = std::vector<uint8_t>;

inline bytes operator+(const bytes &left, const bytes &right) {
    bytes out(left.size() + right.size());
    std::copy(right.begin(), right.end(), std::copy(left.begin(), left.end(), out.begin()));
    return out;
}

inline bytes varint(uint64_t value) {
    bytes out;
    for (; value >= 0x80; value >>= 7) {
        out.push_back(static_cast<uint8_t>(value | 0x80));
    }
    out.push_back(static_cast<uint8_t>(value));
    return out;
}

inline bytes tag(uint32_t field, uint32_t wire_type) {
    return varint(uint64_t{field} * 8 + wire_type);
}

inline bytes number_member(uint32_t field, uint64_t value) {
    return tag(field, 0) + varint(value);
}

inline bytes nested_member(uint32_t field, const bytes &content) {
    return tag(field, 2) + varint(content.size()) + content;
}

inline bytes text_member(uint32_t field, std::string_view text) {
    return nested_member(field, bytes(text.begin(), text.end()));
}

// A valid message that holds every member of the record, also of the nested ones: two elements in every array, other
// values everywhere. Data trees have `depth` levels of full children, and empty children below them.
inline bytes full_message(const record_table &table, unsigned depth) {
    bytes out;
    for (const member &m : table.members) {
        const std::string text = std::string(table.name) + '.' + m.name;
        switch (m.kind) {
            case member_kind::flag:
            case member_kind::wide_flag:
                out = out + number_member(m.field, 1 - m.reset);
                break;
            case member_kind::number32:
                out = out + number_member(m.field, 1000 + m.field);
                break;
            case member_kind::number64:
                out = out + number_member(m.field, 0x123456789ABCDEF0);
                break;
            case member_kind::text:
                out = out + text_member(m.field, text);
                break;
            case member_kind::texts:
                out = out + text_member(m.field, text) + text_member(m.field, "second");
                break;
            case member_kind::numbers32:
                out = out + number_member(m.field, 7) + number_member(m.field, 0xFFFFFFFF);
                break;
            case member_kind::record:
                out = out + nested_member(m.field, full_message(table_of(m.element), depth));
                break;
            case member_kind::records: {
                const bool same = m.element == table.id;
                const bytes element =
                    same && depth == 0 ? bytes{} : full_message(table_of(m.element), depth - (same ? 1 : 0));
                out = out + nested_member(m.field, element) + nested_member(m.field, element);
            }
        }
    }
    return out;
}

}  // namespace nyx_test

#endif
