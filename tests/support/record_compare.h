// Deep comparison of two records of one kind.
#ifndef NYX_TEST_RECORD_COMPARE_H
#define NYX_TEST_RECORD_COMPARE_H

#include <string>

#include "record_tables.h"

namespace nyx_test {

enum class compare_mode : uint8_t {
    memory,  // every value, pointer being null or not, count and presence bit
    wire     // only what an encoding would carry: absent members, null entries and empty arrays do not count
};

// Returns where the records differ and how, as text such as "request.get_config.source.name: "a" / null"; empty means
// that they are equal. The presence bits that belong to no member are not looked at.
std::string difference(const record_table &table, const void *left, const void *right,
                       compare_mode mode = compare_mode::memory);

// Whether the two records share a block of memory or own one block twice: a deep copy does neither. Returns where.
std::string shared_block(const record_table &table, const void *left, const void *right);

// Whether the encoder writes the member.
bool is_written(const record_table &table, const member &m, const void *record);

}  // namespace nyx_test

#endif
