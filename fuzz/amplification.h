// How much memory the decoder asks for, at worst, for each byte of a message.
//
// A message's bytes are those of its members, and each allocation comes from members of its own: the element of an
// array, a string, an entry of an array of strings. So no message asks for more, byte for byte, than the worst of the
// members that it can hold, and long runs of that member come as close to it as one likes.
#ifndef NYX_FUZZ_AMPLIFICATION_H
#define NYX_FUZZ_AMPLIFICATION_H

#include <set>

#include "record_tables.h"

namespace nyx_fuzz {

// So many bytes in memory for so many on the wire.
struct amplification {
    uint64_t memory = 0;
    uint64_t wire = 1;
    const nyx_test::member *member = nullptr;

    [[nodiscard]] bool exceeds(const amplification &other) const { return memory * other.wire > other.memory * wire; }
};

// The least bytes that one occurrence takes: its tag and a byte, which is the length 0 or a number.
inline uint64_t least_bytes(const nyx_test::member &m) {
    return (m.field < 16 ? 1 : 2) + 1;
}

// What an occurrence of the member makes the decoder ask for. An element of an array takes its place there, and an
// entry of an array of strings its terminator besides; a string as many bytes as it is long, and one more in the place
// of two or three.
inline amplification amplification_of(const nyx_test::member &m) {
    if (m.kind == nyx_test::member_kind::text) {
        return {1, 1, &m};
    }
    if (!is_repeated(m.kind)) {
        return {};
    }
    return {element_size(m) + (m.kind == nyx_test::member_kind::texts ? 1 : 0), least_bytes(m), &m};
}

inline amplification worst_amplification(const nyx_test::record_table &table,
                                         std::set<nyx_test::record_id> visited = {}) {
    amplification worst;
    if (!visited.insert(table.id).second) {
        return worst;
    }
    for (const nyx_test::member &m : table.members) {
        const bool nests = m.kind == nyx_test::member_kind::record || m.kind == nyx_test::member_kind::records;
        for (const amplification &candidate :
             {amplification_of(m), nests ? worst_amplification(table_of(m.element), visited) : amplification{}}) {
            if (candidate.exceeds(worst)) {
                worst = candidate;
            }
        }
    }
    return worst;
}

}  // namespace nyx_fuzz

#endif
