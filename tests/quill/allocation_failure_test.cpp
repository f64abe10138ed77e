// Every allocation of decoding and of deep copy made to fail, one after the other, for a record of each kind in which
// every member is present at every level.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "decode_fixture.h"

namespace nyx_test {
namespace {

std::size_t member_size(const member &m) {
    switch (m.kind) {
        case member_kind::number32:
        case member_kind::wide_flag:
            return sizeof(uint32_t);
        case member_kind::flag:
            return sizeof(uint8_t);
        case member_kind::record:
            return table_of(m.element).size;
        default:
            return sizeof(uint64_t);
    }
}

// Makes the member of `to` what it is in `from`, nested blocks included: the two share them.
void take_member(const record_table &table, const member &m, void *to, const void *from) {
    std::memcpy(static_cast<uint8_t *>(to) + m.offset, static_cast<const uint8_t *>(from) + m.offset, member_size(m));
    if (is_repeated(m.kind)) {
        set_count(m, to, count_of(m, from));
    }
    set_present(table, m, to, is_present(table, m, from));
}

bool all_zero(const void *memory, std::size_t size) {
    const auto *at = static_cast<const uint8_t *>(memory);
    for (std::size_t i = 0; i < size; ++i) {
        if (at[i] != 0) {
            return false;
        }
    }
    return true;
}

// What a decode that ran out of memory leaves of a message whose members come in declaration order: the members before
// the one under way are complete, that one has its bit clear and holds what was finished of it, those behind it are
// reset.
class cut_record {
  public:
    static void expect(const record_table &table, const void *partial, const void *whole) {
        const member *under_way = nullptr;
        raw_record expected(table);
        reset_record(table, expected.get());
        for (const member &m : table.members) {
            if (under_way == nullptr && !is_present(table, m, partial)) {
                under_way = &m;
                take_member(table, m, expected.get(), partial);
            } else if (under_way == nullptr) {
                take_member(table, m, expected.get(), whole);
            }
        }
        EXPECT_EQ(difference(table, partial, expected.get()), "");
        ASSERT_NE(under_way, nullptr) << table.name;
        expect_under_way(*under_way, partial, whole);
    }

  private:
    static void expect_under_way(const member &m, const void *partial, const void *whole) {
        SCOPED_TRACE(m.name);
        ASSERT_FALSE(is_number(m.kind));
        if (m.kind == member_kind::record) {
            expect(table_of(m.element), nested_of(m, partial), nested_of(m, whole));
        } else if (pointer_of(m, partial) == nullptr) {
            EXPECT_TRUE(!is_repeated(m.kind) || count_of(m, partial) == 0);
        } else {
            ASSERT_TRUE(m.kind == member_kind::texts || m.kind == member_kind::records);
            ASSERT_EQ(count_of(m, partial), count_of(m, whole));
            expect_elements(m, pointer_of(m, partial), pointer_of(m, whole), count_of(m, whole));
        }
    }

    static void expect_elements(const member &m, const void *partial, const void *whole, uint32_t count) {
        uint32_t under_way = 0;
        while (under_way < count && element_is_complete(m, partial, whole, under_way)) {
            ++under_way;
        }
        ASSERT_LT(under_way, count);
        if (m.kind == member_kind::records) {
            expect(table_of(m.element), record_at(m, partial, under_way), record_at(m, whole, under_way));
        } else {
            EXPECT_EQ(text_at(partial, under_way), nullptr);
        }
        const std::size_t size = element_size(m);
        EXPECT_TRUE(
            all_zero(static_cast<const uint8_t *>(partial) + (under_way + 1) * size, (count - under_way - 1) * size));
    }

    static bool element_is_complete(const member &m, const void *partial, const void *whole, uint32_t i) {
        if (m.kind == member_kind::records) {
            return difference(table_of(m.element), record_at(m, partial, i), record_at(m, whole, i)).empty();
        }
        return text_at(partial, i) != nullptr && std::strcmp(text_at(partial, i), text_at(whole, i)) == 0;
    }
};

// What a deep copy lacks. Anything that it lacks must be missing in the right way, all else must equal the source.
class incomplete_copy {
  public:
    // The number of blocks that could not be allocated. Blocks below a missing array were not asked for.
    static uint64_t losses(const record_table &table, const void *copy, const void *source) {
        incomplete_copy found;
        found.compare(table, copy, source);
        return found.losses_;
    }

  private:
    void compare(const record_table &table, const void *copy, const void *source) {
        for (const member &m : table.members) {
            SCOPED_TRACE(m.name);
            if (is_lost(m, copy, source)) {
                ++losses_;
                EXPECT_FALSE(is_present(table, m, copy));
                EXPECT_TRUE(!is_repeated(m.kind) || count_of(m, copy) == 0);
                continue;
            }
            EXPECT_EQ(is_present(table, m, copy), is_present(table, m, source));
            if (is_number(m.kind)) {
                EXPECT_EQ(number_of(m, copy), number_of(m, source));
            } else if (m.kind == member_kind::record) {
                compare(table_of(m.element), nested_of(m, copy), nested_of(m, source));
            } else if (pointer_of(m, source) != nullptr) {
                compare_blocks(m, copy, source);
            }
        }
    }

    static bool is_lost(const member &m, const void *copy, const void *source) {
        return !is_number(m.kind) && m.kind != member_kind::record && pointer_of(m, copy) == nullptr &&
               pointer_of(m, source) != nullptr;
    }

    void compare_blocks(const member &m, const void *copy, const void *source) {
        const void *left = pointer_of(m, copy);
        const void *right = pointer_of(m, source);
        if (m.kind == member_kind::text) {
            EXPECT_STREQ(static_cast<const char *>(left), static_cast<const char *>(right));
            return;
        }
        ASSERT_EQ(count_of(m, copy), count_of(m, source));
        for (uint32_t i = 0; i < count_of(m, source); ++i) {
            if (m.kind == member_kind::numbers32) {
                EXPECT_EQ(number32_at(left, i), number32_at(right, i));
            } else if (m.kind == member_kind::records) {
                compare(table_of(m.element), record_at(m, left, i), record_at(m, right, i));
            } else if (text_at(left, i) == nullptr) {
                ++losses_;
            } else {
                EXPECT_STREQ(text_at(left, i), text_at(right, i));
            }
        }
    }

    uint64_t losses_ = 0;
};

class AllocationFailure : public testing::TestWithParam<record_id> {
  protected:
    AllocationFailure() : table_(table_of(GetParam())), message_(full_message(table_, 1)), whole_(table_) {
        EXPECT_EQ(
            table_.decode(whole_.get(), message_.data(), message_.size(), counting_allocator::alloc, &whole_blocks_, 0),
            0);
        allocations_ = whole_blocks_.calls();
    }
    ~AllocationFailure() override { expect_released(table_, whole_.get(), whole_blocks_); }

    int32_t decode(raw_record &record, counting_allocator &blocks) {
        return table_.decode(record.get(), message_.data(), message_.size(), counting_allocator::alloc, &blocks, 0);
    }
    int32_t duplicate(raw_record &copy, counting_allocator &blocks) {
        return table_.duplicate(copy.get(), whole_.get(), counting_allocator::alloc, &blocks);
    }

    const record_table &table_;
    bytes message_;
    counting_allocator whole_blocks_;
    raw_record whole_;
    uint64_t allocations_ = 0;
};

INSTANTIATE_TEST_SUITE_P(All, AllocationFailure, every_record(), record_name);

TEST_P(AllocationFailure, OfDecodingStopsItAtOnce) {
    for (uint64_t n = 1; n <= allocations_; ++n) {
        SCOPED_TRACE(testing::Message() << "allocation " << n);
        counting_allocator blocks;
        raw_record record(table_);
        blocks.fail_at(n);
        EXPECT_EQ(decode(record, blocks), QUILL_DECODE_NO_MEMORY);
        EXPECT_EQ(blocks.calls(), n);
        EXPECT_EQ(blocks.live_blocks(), n - 1);
        cut_record::expect(table_, record.get(), whole_.get());
        expect_released(table_, record.get(), blocks);
        EXPECT_EQ(blocks.frees(), n - 1);
        if (HasFailure()) {
            return;
        }
    }
    counting_allocator blocks;
    raw_record record(table_);
    blocks.fail_at(allocations_ + 1);
    EXPECT_EQ(decode(record, blocks), 0);
    EXPECT_EQ(difference(table_, record.get(), whole_.get()), "");
    expect_released(table_, record.get(), blocks);
}

TEST_P(AllocationFailure, OfACopyCostsOneBlockAndWhatHangsOnIt) {
    uint64_t most_calls = 0;
    for (uint64_t n = 1; n <= allocations_; ++n) {
        SCOPED_TRACE(testing::Message() << "allocation " << n);
        counting_allocator blocks;
        raw_record copy(table_);
        blocks.fail_at(n);
        EXPECT_EQ(duplicate(copy, blocks), QUILL_DECODE_NO_MEMORY);
        EXPECT_EQ(incomplete_copy::losses(table_, copy.get(), whole_.get()), 1U);
        EXPECT_EQ(blocks.live_blocks(), blocks.calls() - 1);
        most_calls = std::max(most_calls, blocks.calls());
        expect_released(table_, copy.get(), blocks);
        if (HasFailure()) {
            return;
        }
    }
    // At least one of them was a text, whose loss spares no other allocation.
    EXPECT_EQ(most_calls, allocations_);
    counting_allocator blocks;
    raw_record copy(table_);
    blocks.fail_at(allocations_ + 1);
    EXPECT_EQ(duplicate(copy, blocks), 0);
    EXPECT_EQ(incomplete_copy::losses(table_, copy.get(), whole_.get()), 0U);
    expect_released(table_, copy.get(), blocks);
}

TEST_P(AllocationFailure, OfAllLaterBlocksOfACopy) {
    for (uint64_t n = 1; n <= allocations_; ++n) {
        SCOPED_TRACE(testing::Message() << "allocation " << n);
        counting_allocator blocks;
        raw_record copy(table_);
        blocks.fail_from(n);
        EXPECT_EQ(duplicate(copy, blocks), QUILL_DECODE_NO_MEMORY);
        EXPECT_EQ(blocks.live_blocks(), n - 1);
        EXPECT_EQ(incomplete_copy::losses(table_, copy.get(), whole_.get()), blocks.calls() - (n - 1));
        expect_released(table_, copy.get(), blocks);
        if (HasFailure()) {
            return;
        }
    }
}

// A decode that failed can be repeated into the same record once it was released.
TEST_P(AllocationFailure, RecordIsFitForUseAfterItsRelease) {
    counting_allocator blocks;
    raw_record record(table_);
    for (uint64_t n = 1; n <= allocations_; n += 1 + n / 4) {
        blocks.fail_at(n);
        EXPECT_EQ(decode(record, blocks), QUILL_DECODE_NO_MEMORY);
        expect_released(table_, record.get(), blocks);
        blocks.fail_at(0);
        EXPECT_EQ(decode(record, blocks), 0);
        EXPECT_EQ(difference(table_, record.get(), whole_.get()), "");
        expect_released(table_, record.get(), blocks);
    }
}

}  // namespace
}  // namespace nyx_test
