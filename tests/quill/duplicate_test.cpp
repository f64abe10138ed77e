// Deep copy.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "decode_fixture.h"

namespace nyx_test {
namespace {

using sizes = std::vector<uint64_t>;

// A destination that starts out as garbage, with its blocks; checks its release at the end.
template <class Record>
class copied {
  public:
    explicit copied(record_id id) : table_(table_of(id)) {
        std::memset(static_cast<void *>(&record_), 0x5A, sizeof record_);
    }
    copied(const copied &) = delete;
    copied &operator=(const copied &) = delete;
    ~copied() { expect_released(table_, &record_, blocks_); }

    int32_t from(const Record &source) {
        return table_.duplicate(&record_, &source, counting_allocator::alloc, &blocks_);
    }
    int32_t from_without_allocator(const Record &source) {
        return table_.duplicate(&record_, &source, nullptr, &blocks_);
    }

    counting_allocator &blocks() { return blocks_; }
    Record *operator->() { return &record_; }
    Record *get() { return &record_; }

  private:
    const record_table &table_;
    Record record_;
    counting_allocator blocks_;
};

// Literals stand in for owned texts: nothing here releases a source.
char *text(const char *literal) {
    return const_cast<char *>(literal);
}

class DuplicateEveryRecord : public testing::TestWithParam<record_id> {
  protected:
    [[nodiscard]] static const record_table &table() { return table_of(GetParam()); }
};

INSTANTIATE_TEST_SUITE_P(All, DuplicateEveryRecord, every_record(), record_name);

TEST_P(DuplicateEveryRecord, FullRecord) {
    const bytes message = full_message(table(), 2);
    counting_allocator source_blocks;
    counting_allocator blocks;
    raw_record source(table());
    raw_record copy(table(), 0xFF);
    ASSERT_EQ(
        table().decode(source.get(), message.data(), message.size(), counting_allocator::alloc, &source_blocks, 0), 0);
    const bytes before(static_cast<const uint8_t *>(source.get()),
                       static_cast<const uint8_t *>(source.get()) + table().size);

    EXPECT_EQ(table().duplicate(copy.get(), source.get(), counting_allocator::alloc, &blocks), 0);
    EXPECT_EQ(std::memcmp(source.get(), before.data(), before.size()), 0);
    EXPECT_EQ(difference(table(), copy.get(), source.get()), "");
    EXPECT_EQ(shared_block(table(), copy.get(), source.get()), "");
    // Members in declaration order, an array before its elements, each block as large as what it holds: as in decoding.
    EXPECT_EQ(blocks.sizes(), source_blocks.sizes());

    // The copy outlives its source.
    expect_released(table(), source.get(), source_blocks);
    bytes again(message.size());
    EXPECT_EQ(table().encode(copy.get(), again.data(), again.size(), nullptr, nullptr, 0), message.size());
    EXPECT_EQ(again, message);
    expect_released(table(), copy.get(), blocks);
}

// What the copy of a record must look like in memory: an array that has no elements, or that is not there, is null and
// its count is 0.
void normalise_arrays(const record_table &table, void *record) {
    for (const member &m : table.members) {
        if (m.kind == member_kind::record) {
            normalise_arrays(table_of(m.element), nested_of(m, record));
        } else if (is_repeated(m.kind) && (pointer_of(m, record) == nullptr || count_of(m, record) == 0)) {
            set_pointer(m, record, nullptr);
            set_count(m, record, 0);
        } else if (m.kind == member_kind::records) {
            for (uint32_t i = 0; i < count_of(m, record); ++i) {
                normalise_arrays(table_of(m.element), record_at(m, pointer_of(m, record), i));
            }
        }
    }
}

// Records that are inconsistent in every way: texts and arrays without their bits, bits without values, counts without
// arrays, arrays without counts, null entries, flags that are neither 0 nor 1.
TEST_P(DuplicateEveryRecord, RandomRecords) {
    build_options options;
    options.longest_text = 200;
    for (uint64_t seed = 0; seed < 200; ++seed) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        random_record source(table(), seed, options);
        counting_allocator blocks;
        raw_record copy(table(), static_cast<uint8_t>(seed));
        EXPECT_EQ(table().duplicate(copy.get(), source.get(), counting_allocator::alloc, &blocks), 0);
        EXPECT_EQ(shared_block(table(), copy.get(), source.get()), "");

        const uint64_t size = table().encode(source.get(), nullptr, 0, nullptr, nullptr, 0);
        EXPECT_EQ(table().encode(copy.get(), nullptr, 0, nullptr, nullptr, 0), size);
        normalise_arrays(table(), source.get());
        EXPECT_EQ(difference(table(), copy.get(), source.get()), "");
        expect_released(table(), copy.get(), blocks);
    }
}

TEST_P(DuplicateEveryRecord, BitsOfNoMemberAreTheDestinations) {
    raw_record zero(table(), 0);
    raw_record source(table(), 0);
    set_spare_bits(table(), source.get());
    raw_record into_zero(table(), 0);
    EXPECT_EQ(table().duplicate(into_zero.get(), source.get(), nullptr, nullptr), 0);
    EXPECT_EQ(spare_bits(table(), into_zero.get()), 0);

    raw_record into_ones(table(), 0xFF);
    const uint8_t ones = spare_bits(table(), into_ones.get());
    EXPECT_EQ(table().duplicate(into_ones.get(), zero.get(), nullptr, nullptr), 0);
    EXPECT_EQ(spare_bits(table(), into_ones.get()), ones);
    EXPECT_EQ(difference(table(), into_ones.get(), zero.get()), "");
    for (const member &m : table().members) {
        if (m.kind == member_kind::record && !table_of(m.element).members.empty()) {
            raw_record nested_ones(table_of(m.element), 0xFF);
            EXPECT_EQ(spare_bits(table_of(m.element), nested_of(m, into_ones.get())),
                      spare_bits(table_of(m.element), nested_ones.get()))
                << m.name;
        }
    }
}

// Blocks that are filled with a pattern before they are handed out.
struct filling_allocator {
    counting_allocator blocks;
    uint8_t pattern;

    static void *alloc(uint64_t size, void *allocator) {
        auto *self = static_cast<filling_allocator *>(allocator);
        return std::memset(counting_allocator::alloc(size, &self->blocks), self->pattern, size);
    }
};

// Where bits of no member differ from the pattern's, in the record or in any record inside it. A record without members
// has no presence byte and is not looked at.
std::string foreign_bits(const record_table &table, const void *record, uint8_t pattern, const std::string &path) {
    const raw_record filled(table, pattern);
    if (!table.members.empty() && spare_bits(table, record) != spare_bits(table, filled.get())) {
        return path + ' ';
    }
    std::string found;
    for (const member &m : table.members) {
        const std::string inside = path + '.' + m.name;
        if (m.kind == member_kind::record) {
            found += foreign_bits(table_of(m.element), nested_of(m, record), pattern, inside);
        } else if (m.kind == member_kind::records) {
            for (uint32_t i = 0; i < count_of(m, record); ++i) {
                found += foreign_bits(table_of(m.element), record_at(m, pointer_of(m, record), i), pattern,
                                      inside + '[' + std::to_string(i) + ']');
            }
        }
    }
    return found;
}

// A copied record keeps the bits of no member that its memory had: the destination's, or the fresh block's that an
// element lies in. The source holds the opposite of them everywhere, also in its elements' elements.
TEST_P(DuplicateEveryRecord, BitsOfNoMemberStayAlsoInElements) {
    const bytes message = full_message(table(), 2);
    for (const uint8_t pattern : {uint8_t{0x00}, uint8_t{0xFF}}) {
        SCOPED_TRACE(testing::Message() << "pattern " << unsigned{pattern});
        counting_allocator source_blocks;
        raw_record source(table());
        ASSERT_EQ(
            table().decode(source.get(), message.data(), message.size(), counting_allocator::alloc, &source_blocks, 0),
            0);
        fill_spare_bits(table(), source.get(), pattern == 0);

        filling_allocator allocator = {{}, pattern};
        raw_record copy(table(), pattern);
        EXPECT_EQ(table().duplicate(copy.get(), source.get(), filling_allocator::alloc, &allocator), 0);
        EXPECT_EQ(difference(table(), copy.get(), source.get()), "");
        EXPECT_EQ(foreign_bits(table(), copy.get(), pattern, table().name), "");
        expect_released(table(), copy.get(), allocator.blocks);
    }
}

TEST_P(DuplicateEveryRecord, EmptyRecordAllocatesNothing) {
    raw_record source(table(), 0);
    raw_record copy(table(), 0xA5);
    counting_allocator blocks;
    EXPECT_EQ(table().duplicate(copy.get(), source.get(), counting_allocator::alloc, &blocks), 0);
    EXPECT_EQ(blocks.calls(), 0U);
    EXPECT_EQ(difference(table(), copy.get(), source.get()), "");
}

TEST_P(DuplicateEveryRecord, PresenceIsCopiedMemberByMember) {
    for (const member &m : table().members) {
        for (const bool present : {false, true}) {
            raw_record source(table(), 0);
            raw_record copy(table(), present ? 0x00 : 0xFF);
            set_present(table(), m, source.get(), present);
            EXPECT_EQ(table().duplicate(copy.get(), source.get(), nullptr, nullptr), 0);
            EXPECT_EQ(difference(table(), copy.get(), source.get()), "") << m.name;
        }
    }
}

TEST_P(DuplicateEveryRecord, NumbersAreCopiedWhetherPresentOrNot) {
    for (const member &m : table().members) {
        if (is_number(m.kind)) {
            raw_record source(table(), 0);
            raw_record copy(table());
            set_number(m, source.get(), 0xFEDCBA9876543210 + m.field);
            EXPECT_EQ(table().duplicate(copy.get(), source.get(), nullptr, nullptr), 0);
            EXPECT_EQ(difference(table(), copy.get(), source.get()), "") << m.name;
        }
    }
}

// Without an allocation function: every text and array that has something in it is missing, with its bit.
TEST_P(DuplicateEveryRecord, NoAllocatorLosesEachTextAndArray) {
    for (const member &m : table().members) {
        if (is_number(m.kind) || m.kind == member_kind::record) {
            continue;
        }
        SCOPED_TRACE(m.name);
        alignas(std::max_align_t) uint8_t element[1024] = {};
        raw_record source(table(), 0);
        raw_record copy(table(), 0xFF);
        set_pointer(m, source.get(), element);
        if (is_repeated(m.kind)) {
            ASSERT_LE(element_size(m), sizeof element);
            set_count(m, source.get(), 1);
        }
        set_present(table(), m, source.get(), true);
        EXPECT_EQ(table().duplicate(copy.get(), source.get(), nullptr, nullptr), QUILL_DECODE_NO_MEMORY);
        raw_record empty(table(), 0);
        EXPECT_EQ(difference(table(), copy.get(), empty.get()), "");
    }
}

TEST_P(DuplicateEveryRecord, RecordsOfNumbersAloneNeverFail) {
    const bytes message = full_message(table(), 1);
    raw_record source(table());
    if (table().decode(source.get(), message.data(), message.size(), nullptr, nullptr, 0) != 0) {
        return;  // it holds texts: the decoder could not do without memory either
    }
    raw_record copy(table());
    EXPECT_EQ(table().duplicate(copy.get(), source.get(), nullptr, nullptr), 0);
    EXPECT_EQ(difference(table(), copy.get(), source.get()), "");
}

TEST(Duplicate, TextIsCopiedWithItsEnd) {
    for (std::size_t length = 0; length <= 300; ++length) {
        std::string name(length, 'n');
        quill_nyx_datastore source = {};
        source.name = name.data();
        source.has_name = 1;
        copied<quill_nyx_datastore> copy(record_id::datastore);
        EXPECT_EQ(copy.from(source), 0);
        EXPECT_EQ(copy.blocks().sizes(), (sizes{length + 1}));
        EXPECT_STREQ(copy->name, name.c_str());
        EXPECT_NE(copy->name, source.name);
    }
}

TEST(Duplicate, TextWithoutItsBitIsCopiedAllTheSame) {
    quill_nyx_datastore source = {};
    source.name = text("running");
    copied<quill_nyx_datastore> copy(record_id::datastore);
    EXPECT_EQ(copy.from(source), 0);
    EXPECT_STREQ(copy->name, "running");
    EXPECT_EQ(copy->has_name, 0);
}

TEST(Duplicate, NullTextKeepsItsBit) {
    quill_nyx_datastore source = {};
    source.has_name = 1;
    copied<quill_nyx_datastore> copy(record_id::datastore);
    EXPECT_EQ(copy.from_without_allocator(source), 0);
    EXPECT_EQ(copy->name, nullptr);
    EXPECT_EQ(copy->has_name, 1);
}

TEST(Duplicate, EmptyTextNeedsABlock) {
    quill_nyx_datastore source = {};
    source.name = text("");
    source.has_name = 1;
    copied<quill_nyx_datastore> copy(record_id::datastore);
    EXPECT_EQ(copy.from(source), 0);
    EXPECT_EQ(copy.blocks().sizes(), (sizes{1}));
    EXPECT_STREQ(copy->name, "");
    copied<quill_nyx_datastore> without(record_id::datastore);
    EXPECT_EQ(without.from_without_allocator(source), QUILL_DECODE_NO_MEMORY);
    EXPECT_EQ(without->name, nullptr);
    EXPECT_EQ(without->has_name, 0);
}

quill_nyx_start_session session_of_six_texts() {
    quill_nyx_start_session source = {};
    source.string_1 = text("one");
    source.string_2 = text("two");
    source.uint32_3 = 3;
    source.flag_4 = 4;
    source.string_5 = text("five");
    source.string_6 = text("six");
    source.string_7 = text("seven");
    source.uint32_8 = 8;
    source.flag_9 = 9;
    source.string_10 = text("ten");
    source.has_string_1 = source.has_string_2 = source.has_uint32_3 = source.has_flag_4 = source.has_string_5 = 1;
    source.has_string_6 = source.has_string_7 = source.has_uint32_8 = source.has_flag_9 = source.has_string_10 = 1;
    return source;
}

TEST(Duplicate, ThirdAllocationFails) {
    const quill_nyx_start_session source = session_of_six_texts();
    copied<quill_nyx_start_session> copy(record_id::start_session);
    copy.blocks().fail_at(3);
    EXPECT_EQ(copy.from(source), QUILL_DECODE_NO_MEMORY);
    EXPECT_EQ(copy.blocks().sizes(), (sizes{4, 4, 5, 4, 6, 4}));
    EXPECT_STREQ(copy->string_1, "one");
    EXPECT_STREQ(copy->string_2, "two");
    EXPECT_EQ(copy->string_5, nullptr);
    EXPECT_EQ(copy->has_string_5, 0);
    EXPECT_STREQ(copy->string_6, "six");
    EXPECT_STREQ(copy->string_7, "seven");
    EXPECT_STREQ(copy->string_10, "ten");
    EXPECT_EQ(copy->uint32_3, 3U);
    EXPECT_EQ(copy->flag_4, 4);
    EXPECT_EQ(copy->uint32_8, 8U);
    EXPECT_EQ(copy->flag_9, 9);
    EXPECT_EQ(copy->has_string_1 & copy->has_string_2 & copy->has_uint32_3 & copy->has_flag_4, 1);
    EXPECT_EQ(copy->has_string_6 & copy->has_string_7 & copy->has_uint32_8 & copy->has_flag_9, 1);
    EXPECT_EQ(copy->has_string_10, 1);
}

TEST(Duplicate, NullEntriesStayNull) {
    char *entries[] = {text("a"), nullptr, text(""), nullptr};
    quill_nyx_node_info source = {};
    source.strings_3 = entries;
    source.strings_3_count = 4;
    source.has_strings_3 = 1;
    copied<quill_nyx_node_info> copy(record_id::node_info);
    EXPECT_EQ(copy.from(source), 0);
    EXPECT_EQ(copy.blocks().sizes(), (sizes{32, 2, 1}));
    ASSERT_EQ(copy->strings_3_count, 4U);
    EXPECT_STREQ(copy->strings_3[0], "a");
    EXPECT_EQ(copy->strings_3[1], nullptr);
    EXPECT_STREQ(copy->strings_3[2], "");
    EXPECT_EQ(copy->strings_3[3], nullptr);
    EXPECT_EQ(copy->has_strings_3, 1);
}

// The array, its count and its bit are kept when an entry fails; the others are copied.
TEST(Duplicate, EntryThatCannotBeAllocatedIsNull) {
    char *entries[] = {text("a"), text("b"), text("c")};
    quill_nyx_node_info source = {};
    source.strings_3 = entries;
    source.strings_3_count = 3;
    source.has_strings_3 = 1;
    copied<quill_nyx_node_info> copy(record_id::node_info);
    copy.blocks().fail_at(3);
    EXPECT_EQ(copy.from(source), QUILL_DECODE_NO_MEMORY);
    ASSERT_EQ(copy->strings_3_count, 3U);
    EXPECT_STREQ(copy->strings_3[0], "a");
    EXPECT_EQ(copy->strings_3[1], nullptr);
    EXPECT_STREQ(copy->strings_3[2], "c");
    EXPECT_EQ(copy->has_strings_3, 1);
}

TEST(Duplicate, ArrayWithCountZeroIsNotLookedAt) {
    auto *nowhere = reinterpret_cast<char *>(std::uintptr_t{8});
    quill_nyx_datatree source = {};
    source.attributes = reinterpret_cast<quill_nyx_attribute *>(nowhere);
    source.has_attributes = 1;
    source.children = reinterpret_cast<quill_nyx_datatree *>(nowhere);
    source.node_info.strings_3 = reinterpret_cast<char **>(nowhere);
    source.node_info.has_strings_3 = 1;
    copied<quill_nyx_datatree> copy(record_id::datatree);
    EXPECT_EQ(copy.from_without_allocator(source), 0);
    EXPECT_EQ(copy->attributes, nullptr);
    EXPECT_EQ(copy->attributes_count, 0U);
    EXPECT_EQ(copy->has_attributes, 1);
    EXPECT_EQ(copy->children, nullptr);
    EXPECT_EQ(copy->children_count, 0U);
    EXPECT_EQ(copy->has_children, 0);
    EXPECT_EQ(copy->node_info.strings_3, nullptr);
    EXPECT_EQ(copy->node_info.strings_3_count, 0U);
    EXPECT_EQ(copy->node_info.has_strings_3, 1);

    quill_nyx_notification numbers = {};
    numbers.uint32s_1 = reinterpret_cast<uint32_t *>(nowhere);
    numbers.has_uint32s_1 = 1;
    copied<quill_nyx_notification> numbers_copy(record_id::notification);
    EXPECT_EQ(numbers_copy.from_without_allocator(numbers), 0);
    EXPECT_EQ(numbers_copy->uint32s_1, nullptr);
    EXPECT_EQ(numbers_copy->uint32s_1_count, 0U);
    EXPECT_EQ(numbers_copy->has_uint32s_1, 1);
}

TEST(Duplicate, CountWithoutAnArrayIsEmpty) {
    quill_nyx_response source = {};
    source.schemas_count = 7;
    source.has_schemas = 1;
    source.errors_count = UINT32_MAX;
    source.tree.node_info.strings_3_count = 3;
    copied<quill_nyx_response> copy(record_id::response);
    EXPECT_EQ(copy.from_without_allocator(source), 0);
    EXPECT_EQ(copy->schemas, nullptr);
    EXPECT_EQ(copy->schemas_count, 0U);
    EXPECT_EQ(copy->has_schemas, 1);
    EXPECT_EQ(copy->errors_count, 0U);
    EXPECT_EQ(copy->tree.node_info.strings_3_count, 0U);
}

TEST(Duplicate, NumbersOfAnArray) {
    uint32_t numbers[] = {0, 1, 0xFFFFFFFF};
    quill_nyx_notification source = {};
    source.uint32s_1 = numbers;
    source.uint32s_1_count = 3;
    source.has_uint32s_1 = 1;
    copied<quill_nyx_notification> copy(record_id::notification);
    EXPECT_EQ(copy.from(source), 0);
    EXPECT_EQ(copy.blocks().sizes(), (sizes{12}));
    EXPECT_EQ(std::memcmp(copy->uint32s_1, numbers, sizeof numbers), 0);
    EXPECT_NE(copy->uint32s_1, numbers);
    copied<quill_nyx_notification> failed(record_id::notification);
    failed.blocks().fail_at(1);
    EXPECT_EQ(failed.from(source), QUILL_DECODE_NO_MEMORY);
    EXPECT_EQ(failed->uint32s_1, nullptr);
    EXPECT_EQ(failed->uint32s_1_count, 0U);
    EXPECT_EQ(failed->has_uint32s_1, 0);
}

// An element that fails does not stop the copy, and neither the array's bit nor that of the record around it is lost.
TEST(Duplicate, FailureInAnElementIsKeptAndCopyingGoesOn) {
    quill_nyx_attribute attributes[2] = {};
    attributes[0].key = text("k0");
    attributes[0].has_key = 1;
    attributes[1].key = text("k1");
    attributes[1].has_key = 1;
    quill_nyx_edit_ins source = {};
    source.key.keys = attributes;
    source.key.keys_count = 2;
    source.key.has_keys = 1;
    source.has_key = 1;
    source.attribute.value = text("v");
    source.attribute.has_value = 1;
    source.has_attribute = 1;
    copied<quill_nyx_edit_ins> copy(record_id::edit_ins);
    copy.blocks().fail_at(2);
    EXPECT_EQ(copy.from(source), QUILL_DECODE_NO_MEMORY);
    EXPECT_EQ(copy->has_key, 1);
    EXPECT_EQ(copy->key.has_keys, 1);
    ASSERT_EQ(copy->key.keys_count, 2U);
    EXPECT_EQ(copy->key.keys[0].key, nullptr);
    EXPECT_EQ(copy->key.keys[0].has_key, 0);
    EXPECT_STREQ(copy->key.keys[1].key, "k1");
    EXPECT_EQ(copy->has_attribute, 1);
    EXPECT_STREQ(copy->attribute.value, "v");
}

TEST(Duplicate, FailingNestedCopyKeepsTheMembersBit) {
    quill_nyx_lock source = {};
    source.target.name = text("x");
    source.target.has_name = 1;
    source.has_target = 1;
    copied<quill_nyx_lock> copy(record_id::lock);
    EXPECT_EQ(copy.from_without_allocator(source), QUILL_DECODE_NO_MEMORY);
    EXPECT_EQ(copy->has_target, 1);
    EXPECT_EQ(copy->target.has_name, 0);
    EXPECT_EQ(copy->target.name, nullptr);
}

}  // namespace
}  // namespace nyx_test
