// What the fuzz targets share: the entry point, a check that is fatal in every build, and records made of raw memory.
#ifndef NYX_FUZZ_TARGET_H
#define NYX_FUZZ_TARGET_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "counting_allocator.h"
#include "record_compare.h"
#include "record_tables.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace nyx_fuzz {

using nyx_test::compare_mode;
using nyx_test::counting_allocator;
using nyx_test::member;
using nyx_test::member_kind;
using nyx_test::record_table;

[[noreturn]] inline void violated(const char *what, const std::string &detail, int line) {
    std::fprintf(stderr, "line %d: %s does not hold: %s\n", line, what, detail.c_str());
    std::abort();
}

#define REQUIRE(condition, detail)                            \
    do {                                                      \
        if (!(condition)) {                                   \
            nyx_fuzz::violated(#condition, detail, __LINE__); \
        }                                                     \
    } while (false)

inline void require_nothing(const std::string &found, int line) {
    if (!found.empty()) {
        violated("equality", found, line);
    }
}

// A record that starts out as garbage.
class raw_record {
  public:
    explicit raw_record(const record_table &table) : memory_(table.size / sizeof(std::max_align_t) + 1) {
        std::memset(memory_.data(), 0xA5, table.size);
    }
    void *get() { return memory_.data(); }
    [[nodiscard]] const void *get() const { return memory_.data(); }

  private:
    std::vector<std::max_align_t> memory_;
};

// One heap block of exactly the message's length.
class exact_copy {
  public:
    exact_copy(const uint8_t *data, std::size_t size) : bytes_(new uint8_t[size]) {
        std::copy_n(data, size, bytes_.get());
    }
    [[nodiscard]] const uint8_t *get() const { return bytes_.get(); }

  private:
    std::unique_ptr<uint8_t[]> bytes_;
};

// Levels of records in arrays. The comparison has large frames and the oracle's time doubles with every level.
inline unsigned nesting(const record_table &table, const void *record) {
    unsigned deepest = 0;
    for (const member &m : table.members) {
        if (m.kind == member_kind::record) {
            deepest = std::max(deepest, nesting(nyx_test::table_of(m.element), nested_of(m, record)));
        } else if (m.kind == member_kind::records && pointer_of(m, record) != nullptr) {
            for (uint32_t i = 0; i < count_of(m, record); ++i) {
                const void *element = record_at(m, pointer_of(m, record), i);
                deepest = std::max(deepest, 1 + nesting(nyx_test::table_of(m.element), element));
            }
        }
    }
    return deepest;
}

// Releases the record twice and returns how many blocks came back.
inline uint64_t release(const record_table &table, raw_record &record, counting_allocator &blocks) {
    const uint64_t before = blocks.frees();
    table.free(record.get(), counting_allocator::free, &blocks, 0);
    const uint64_t frees = blocks.frees() - before;
    table.free(record.get(), counting_allocator::free, &blocks, 0);
    REQUIRE(blocks.frees() - before == frees, table.name);
    REQUIRE(blocks.complaints().empty(), blocks.complaints());
    return frees;
}

}  // namespace nyx_fuzz

#endif
