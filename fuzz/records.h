// What the targets of the codec share: records made of raw memory, and how they are walked and released.
#ifndef NYX_FUZZ_RECORDS_H
#define NYX_FUZZ_RECORDS_H

#include <vector>

#include "counting_allocator.h"
#include "fuzz_target.h"
#include "literal_decoder.h"
#include "record_compare.h"
#include "record_tables.h"

namespace nyx_fuzz {

using nyx_test::compare_mode;
using nyx_test::counting_allocator;
using nyx_test::member;
using nyx_test::member_kind;
using nyx_test::record_table;

// Where the message lies within a target's input, and of which record it is. No table: there is none in this input.
struct message_place {
    const record_table *table = nullptr;
    std::size_t offset = 0;
};

// Each target of the codec tells: the mutator needs to know.
message_place place_of_message(const uint8_t *data, std::size_t size);

inline void require_nothing(const std::string &found, int line) {
    if (!found.empty()) {
        violated("equality", found, line);
    }
}

// A record that starts out as garbage.
class raw_record {
  public:
    static constexpr uint8_t garbage = 0xA5;

    explicit raw_record(const record_table &table) : memory_(new uint8_t[table.size]) {
        std::fill_n(memory_.get(), table.size, garbage);
    }
    void *get() { return memory_.get(); }
    [[nodiscard]] const void *get() const { return memory_.get(); }

  private:
    std::unique_ptr<uint8_t[]> memory_;
};

// Presence bits that belong to no member: nothing may ever change them.
inline bool spare_bits_are(const record_table &table, const void *record, uint8_t pattern) {
    const std::size_t used = table.members.size() % 8;
    if (used != 0) {
        const auto *bits = static_cast<const uint8_t *>(record) + table.presence_offset + table.presence_bytes() - 1;
        if (*bits >> used != pattern >> used) {
            return false;
        }
    }
    return std::all_of(table.members.begin(), table.members.end(), [&](const member &m) {
        return m.kind != member_kind::record ||
               spare_bits_are(nyx_test::table_of(m.element), nested_of(m, record), pattern);
    });
}

// Flips presence bits all over the record, as the bits of the input say.
class bit_flipper {
  public:
    bit_flipper(const uint8_t *choices, std::size_t size) : choices_(choices), size_(size) {}

    void flip(const record_table &table, void *record) {
        for (const member &m : table.members) {
            if (size_ != 0 && next()) {
                set_present(table, m, record, !is_present(table, m, record));
            }
            if (m.kind == member_kind::record) {
                flip(nyx_test::table_of(m.element), nested_of(m, record));
            } else if (m.kind == member_kind::records && pointer_of(m, record) != nullptr) {
                for (uint32_t i = 0; i < count_of(m, record); ++i) {
                    flip(nyx_test::table_of(m.element), record_at(m, pointer_of(m, record), i));
                }
            }
        }
    }

  private:
    bool next() {
        const std::size_t k = at_++ % (8 * size_);
        return (choices_[k / 8] >> k % 8 & 1U) != 0;
    }

    const uint8_t *choices_;
    std::size_t size_;
    std::size_t at_ = 0;
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

inline std::vector<uint8_t> encoded(const record_table &table, const void *record) {
    std::vector<uint8_t> out(table.encode(record, nullptr, 0, nullptr, nullptr, 0));
    REQUIRE(table.encode(record, out.data(), out.size(), nullptr, nullptr, 0) == out.size(), table.name);
    return out;
}

// What the literal decoder makes of a message, the n-th allocation failing (0: none).
class reference_record {
  public:
    reference_record(const record_table &table, const uint8_t *message, std::size_t size, uint64_t n)
        : table_(table), record_(table) {
        blocks_.fail_at(n);
        outcome_ = literal_decode(table, record_.get(), message, size, counting_allocator::alloc, &blocks_);
    }
    reference_record(const reference_record &) = delete;
    reference_record &operator=(const reference_record &) = delete;

    // The decoder's record and the blocks that it asked for are the reference's.
    void require_equal(int32_t result, const void *record, const counting_allocator &blocks) const {
        REQUIRE(result == outcome_.result, std::to_string(result) + " / " + std::to_string(outcome_.result));
        REQUIRE(blocks.sizes() == blocks_.sizes(), table_.name);
        require_equal(record);
    }

    void require_equal(const void *record) const {
        if (nesting(table_, record_.get()) <= deepest_comparison) {
            require_nothing(difference(table_, record, record_.get()), __LINE__);
        } else {
            REQUIRE(encoded(table_, record) == encoded(table_, record_.get()), table_.name);
        }
    }

    // Blocks of former occurrences of a nested record, which no release gives back.
    [[nodiscard]] uint64_t lost() const { return outcome_.lost; }

  private:
    static constexpr unsigned deepest_comparison = 100;

    const record_table &table_;
    nyx_test::record_memory record_;
    counting_allocator blocks_;
    nyx_test::literal_outcome outcome_;
};

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
