// What the tests of decoding, copy and release share: hostile inputs, records that start out as garbage, and the check
// that a release gives back everything.
#ifndef NYX_TEST_DECODE_FIXTURE_H
#define NYX_TEST_DECODE_FIXTURE_H

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "counting_allocator.h"
#include "quill_nyx.h"
#include "record_builder.h"
#include "record_compare.h"
#include "record_tables.h"
#include "wire.h"

namespace nyx_test {

// Parameters and names of tests that are stamped over all records.
inline auto every_record() {
    std::vector<record_id> ids;
    for (const record_table &table : record_tables()) {
        ids.push_back(table.id);
    }
    return testing::ValuesIn(ids);
}

inline std::string record_name(const testing::TestParamInfo<record_id> &record) {
    return table_of(record.param).name;
}

// Input that ends where unreadable memory begins: a read past the end is fatal in every build.
class guarded_input {
  public:
    explicit guarded_input(std::size_t longest)
        : page_(static_cast<std::size_t>(sysconf(_SC_PAGESIZE))),
          size_((longest / page_ + 1) * page_),
          memory_(static_cast<uint8_t *>(
              mmap(nullptr, size_ + page_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0))) {
        EXPECT_NE(memory_, MAP_FAILED);
        EXPECT_EQ(mprotect(memory_ + size_, page_, PROT_NONE), 0);
    }
    guarded_input(const guarded_input &) = delete;
    guarded_input &operator=(const guarded_input &) = delete;
    ~guarded_input() { munmap(memory_, size_ + page_); }

    // The first `length` bytes of the message, in place until the next call.
    const uint8_t *place(const bytes &message, std::size_t length) {
        uint8_t *at = memory_ + size_ - length;
        std::copy_n(message.begin(), length, at);
        return at;
    }

  private:
    std::size_t page_;
    std::size_t size_;
    uint8_t *memory_;
};

// A record of any kind that starts out as garbage.
class raw_record {
  public:
    explicit raw_record(const record_table &table, uint8_t garbage = 0xA5)
        : memory_(table.size / sizeof(std::max_align_t) + 1) {
        std::memset(memory_.data(), garbage, table.size);
    }

    void *get() { return memory_.data(); }
    [[nodiscard]] const void *get() const { return memory_.data(); }

  private:
    std::vector<std::max_align_t> memory_;
};

// Releases the record twice, which must give back everything but `lost` blocks, each once.
inline void expect_released(const record_table &table, void *record, counting_allocator &blocks, std::size_t lost = 0) {
    table.free(record, counting_allocator::free, &blocks, 0);
    EXPECT_EQ(blocks.live_blocks(), lost) << table.name;
    const uint64_t frees = blocks.frees();
    table.free(record, counting_allocator::free, &blocks, 0);
    EXPECT_EQ(blocks.frees(), frees) << table.name;
    EXPECT_EQ(blocks.complaints(), "") << table.name;
}

// A typed record, garbage at first, that is decoded into and whose release is checked at the end.
template <class Record>
class decoded {
  public:
    explicit decoded(record_id id) : table_(table_of(id)) {
        EXPECT_EQ(table_.size, sizeof(Record));
        std::memset(static_cast<void *>(&record_), 0xA5, sizeof record_);
    }
    decoded(record_id id, const bytes &message) : decoded(id) { decode(message); }
    decoded(const decoded &) = delete;
    decoded &operator=(const decoded &) = delete;
    ~decoded() {
        if (in_use_) {
            expect_released(table_, &record_, blocks_, lost_);
        }
    }

    int32_t decode(const bytes &message) { return decode(message, counting_allocator::alloc); }
    int32_t decode_without_allocator(const bytes &message) { return decode(message, nullptr); }

    // Blocks that an earlier occurrence of a nested record allocated and that the record no longer reaches.
    void expect_lost(std::size_t blocks) { lost_ = blocks; }

    [[nodiscard]] int32_t result() const { return result_; }
    counting_allocator &blocks() { return blocks_; }
    Record *operator->() { return &record_; }
    Record *get() { return &record_; }

  private:
    int32_t decode(const bytes &message, quill_alloc_fn alloc) {
        guarded_input input(message.size());
        in_use_ = true;
        result_ = table_.decode(&record_, input.place(message, message.size()), message.size(), alloc, &blocks_, 0);
        return result_;
    }

    const record_table &table_;
    Record record_;
    counting_allocator blocks_;
    int32_t result_ = 0;
    std::size_t lost_ = 0;
    bool in_use_ = false;
};

inline const void *spare_byte(const record_table &table, const void *record) {
    const std::size_t last = table.members.empty() ? 0 : table.presence_bytes() - 1;
    return static_cast<const uint8_t *>(record) + table.presence_offset + last;
}

// The bits of the last presence byte that belong to no member.
inline uint8_t spare_bits(const record_table &table, const void *record) {
    const std::size_t used = table.members.size() % 8;
    const uint8_t last = *static_cast<const uint8_t *>(spare_byte(table, record));
    return used == 0 && !table.members.empty() ? 0 : static_cast<uint8_t>(last >> used);
}

inline void set_spare_bits(const record_table &table, void *record) {
    const std::size_t used = table.members.size() % 8;
    if (used != 0) {
        auto *last = static_cast<uint8_t *>(const_cast<void *>(spare_byte(table, record)));
        *last = static_cast<uint8_t>(*last | 0xFFU << used);
    }
}

// The bits of no member are set, or cleared, in the record and in every record inside it.
inline void fill_spare_bits(const record_table &table, void *record, bool ones) {
    const std::size_t used = table.members.size() % 8;
    if (used != 0 || table.members.empty()) {
        auto *last = static_cast<uint8_t *>(const_cast<void *>(spare_byte(table, record)));
        const auto mask = static_cast<uint8_t>(0xFFU << used);
        *last = static_cast<uint8_t>(ones ? *last | mask : *last & ~mask);
    }
    for (const member &m : table.members) {
        if (m.kind == member_kind::record) {
            fill_spare_bits(table_of(m.element), nested_of(m, record), ones);
        } else if (m.kind == member_kind::records && pointer_of(m, record) != nullptr) {
            for (uint32_t i = 0; i < count_of(m, record); ++i) {
                fill_spare_bits(table_of(m.element), record_at(m, pointer_of(m, record), i), ones);
            }
        }
    }
}

}  // namespace nyx_test

#endif
