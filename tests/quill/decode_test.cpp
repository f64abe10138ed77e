// What the decoder makes of well-formed input.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "decode_fixture.h"

namespace nyx_test {
namespace {

using sizes = std::vector<uint64_t>;

// Allocation function of decoders that have no use for one.
void *must_not_allocate(uint64_t size, void * /*alloc_ctx*/) {
    ADD_FAILURE() << "asked for " << size << " bytes";
    return nullptr;
}

void expect_reset(const record_table &table, const void *record) {
    raw_record reset(table);
    reset_record(table, reset.get());
    EXPECT_EQ(difference(table, record, reset.get()), "");
}

class DecodeEveryRecord : public testing::TestWithParam<record_id> {
  protected:
    [[nodiscard]] static const record_table &table() { return table_of(GetParam()); }
};

INSTANTIATE_TEST_SUITE_P(All, DecodeEveryRecord, every_record(), record_name);

TEST_P(DecodeEveryRecord, EmptyInputResetsAndAllocatesNothing) {
    const uint8_t byte = 0xFF;
    const uint8_t *const inputs[] = {nullptr, &byte};
    for (const uint8_t *input : inputs) {
        raw_record record(table(), 0xFF);
        EXPECT_EQ(table().decode(record.get(), input, 0, must_not_allocate, nullptr, 0), 0);
        expect_reset(table(), record.get());
        EXPECT_EQ(table().decode(record.get(), input, 0, nullptr, nullptr, 0), 0);
    }
}

TEST_P(DecodeEveryRecord, ResetLeavesBitsOfNoMemberAlone) {
    const std::size_t used = table().members.size() % 8;
    const uint8_t all = used == 0 && !table().members.empty() ? 0 : static_cast<uint8_t>(0xFF >> used);
    const bytes messages[] = {{}, full_message(table(), 1)};
    for (const bytes &message : messages) {
        for (const unsigned garbage : {0xFFU, 0x00U}) {
            raw_record record(table(), static_cast<uint8_t>(garbage));
            counting_allocator blocks;
            EXPECT_EQ(
                table().decode(record.get(), message.data(), message.size(), counting_allocator::alloc, &blocks, 0), 0);
            EXPECT_EQ(spare_bits(table(), record.get()), garbage == 0 ? 0 : all);
            for (const member &m : table().members) {
                if (m.kind == member_kind::record && !table_of(m.element).members.empty()) {
                    const std::size_t inner = table_of(m.element).members.size() % 8;
                    EXPECT_EQ(spare_bits(table_of(m.element), nested_of(m, record.get())),
                              garbage == 0 || inner == 0 ? 0 : 0xFF >> inner)
                        << m.name;
                }
            }
        }
    }
}

// What the record held is forgotten: nothing of it is left, and none of its blocks was touched.
TEST_P(DecodeEveryRecord, ForgetsWhatTheRecordHeld) {
    for (uint64_t seed = 0; seed < 20; ++seed) {
        counting_allocator former;
        counting_allocator blocks;
        std::mt19937_64 random(seed);
        raw_record record(table());
        build_record(table(), record.get(), random, {}, counting_allocator::alloc, &former);
        raw_record copy(table());
        std::memcpy(copy.get(), record.get(), table().size);
        const std::size_t live = former.live_blocks();

        EXPECT_EQ(table().decode(record.get(), nullptr, 0, counting_allocator::alloc, &blocks, 0), 0);
        if (!table().members.empty()) {
            expect_reset(table(), record.get());
        }
        EXPECT_EQ(blocks.calls(), 0U);
        EXPECT_EQ(former.live_blocks(), live);
        expect_released(table(), copy.get(), former);
    }
}

// One member alone: its bytes, what must have been allocated, and a check of the stored value.
struct lone_member {
    bytes message;
    sizes allocations;
};

lone_member lone_member_of(const member &m) {
    switch (m.kind) {
        case member_kind::number32:
            return {tag(m.field, 0) + bytes{0xAC, 0x02}, {}};
        case member_kind::number64:
            return {tag(m.field, 0) + bytes{0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x01}, {}};
        case member_kind::flag:
        case member_kind::wide_flag:
            return {tag(m.field, 0) + bytes{0x02}, {}};
        case member_kind::text:
            return {tag(m.field, 2) + bytes{3, 'a', 'b', 'c'}, {4}};
        case member_kind::record:
            return {tag(m.field, 2) + bytes{0}, {}};
        case member_kind::texts:
            return {tag(m.field, 2) + bytes{1, 'x'} + tag(m.field, 2) + bytes{0}, {16, 2, 1}};
        case member_kind::numbers32:
            return {tag(m.field, 0) + bytes{5} + tag(m.field, 0) + bytes{0xAC, 0x02}, {8}};
        case member_kind::records:
            return {tag(m.field, 2) + bytes{0} + tag(m.field, 2) + bytes{0}, {2 * table_of(m.element).size}};
    }
    return {};
}

void expect_lone_value(const member &m, const void *record) {
    switch (m.kind) {
        case member_kind::number32:
            EXPECT_EQ(number_of(m, record), 300U);
            break;
        case member_kind::number64:
            EXPECT_EQ(number_of(m, record), uint64_t{1} << 63);
            break;
        case member_kind::flag:
        case member_kind::wide_flag:
            EXPECT_EQ(number_of(m, record), 1U);
            break;
        case member_kind::text:
            EXPECT_STREQ(static_cast<const char *>(pointer_of(m, record)), "abc");
            break;
        case member_kind::record:
            expect_reset(table_of(m.element), nested_of(m, record));
            break;
        case member_kind::texts:
            ASSERT_EQ(count_of(m, record), 2U);
            EXPECT_STREQ(text_at(pointer_of(m, record), 0), "x");
            EXPECT_STREQ(text_at(pointer_of(m, record), 1), "");
            break;
        case member_kind::numbers32:
            ASSERT_EQ(count_of(m, record), 2U);
            EXPECT_EQ(number32_at(pointer_of(m, record), 0), 5U);
            EXPECT_EQ(number32_at(pointer_of(m, record), 1), 300U);
            break;
        case member_kind::records:
            ASSERT_EQ(count_of(m, record), 2U);
            expect_reset(table_of(m.element), record_at(m, pointer_of(m, record), 0));
            expect_reset(table_of(m.element), record_at(m, pointer_of(m, record), 1));
    }
}

// Takes the member's value and bit out of the record, which then looks as if the member had never come.
void forget_member(const record_table &table, const member &m, void *record) {
    set_present(table, m, record, false);
    if (is_number(m.kind)) {
        set_number(m, record, m.reset);
    } else if (m.kind != member_kind::record) {
        set_pointer(m, record, nullptr);
        if (is_repeated(m.kind)) {
            set_count(m, record, 0);
        }
    }
}

TEST_P(DecodeEveryRecord, EachMemberAlone) {
    for (const member &m : table().members) {
        SCOPED_TRACE(m.name);
        const lone_member lone = lone_member_of(m);
        counting_allocator blocks;
        raw_record record(table(), 0xFF);
        ASSERT_EQ(table().decode(record.get(), lone.message.data(), lone.message.size(), counting_allocator::alloc,
                                 &blocks, 0),
                  0);
        EXPECT_TRUE(is_present(table(), m, record.get()));
        EXPECT_EQ(blocks.sizes(), lone.allocations);
        expect_lone_value(m, record.get());

        raw_record rest(table());
        std::memcpy(rest.get(), record.get(), table().size);
        forget_member(table(), m, rest.get());
        expect_reset(table(), rest.get());
        expect_released(table(), record.get(), blocks);
    }
}

TEST_P(DecodeEveryRecord, MembersComeInAnyOrder) {
    bytes forwards;
    bytes backwards;
    for (const member &m : table().members) {
        forwards = forwards + lone_member_of(m).message;
        backwards = lone_member_of(m).message + backwards;
    }
    counting_allocator blocks;
    raw_record left(table());
    raw_record right(table());
    EXPECT_EQ(table().decode(left.get(), forwards.data(), forwards.size(), counting_allocator::alloc, &blocks, 0), 0);
    EXPECT_EQ(table().decode(right.get(), backwards.data(), backwards.size(), counting_allocator::alloc, &blocks, 0),
              0);
    EXPECT_EQ(difference(table(), left.get(), right.get()), "");
    for (const member &m : table().members) {
        EXPECT_TRUE(is_present(table(), m, left.get())) << m.name;
    }
    table().free(left.get(), counting_allocator::free, &blocks, 0);
    expect_released(table(), right.get(), blocks);
}

TEST_P(DecodeEveryRecord, ScalarsTwiceKeepTheSecondValue) {
    for (const member &m : table().members) {
        if (!is_number(m.kind)) {
            continue;
        }
        SCOPED_TRACE(m.name);
        const bytes message = number_member(m.field, 1) + number_member(m.field, 0);
        raw_record record(table());
        EXPECT_EQ(table().decode(record.get(), message.data(), message.size(), must_not_allocate, nullptr, 0), 0);
        EXPECT_EQ(number_of(m, record.get()), 0U);
        EXPECT_TRUE(is_present(table(), m, record.get()));
    }
}

TEST_P(DecodeEveryRecord, FlagsAreTrueForAnyBitAmongTheLow32) {
    const struct {
        bytes value;
        uint64_t stored;
    } cases[] = {
        {{0x00}, 0},
        {{0x01}, 1},
        {{0x02}, 1},
        {{0x80, 0x02}, 1},                                                        // 256: nothing in the low 8 bits
        {{0x80, 0x80, 0x80, 0x80, 0x08}, 1},                                      // 2^31
        {{0x80, 0x80, 0x80, 0x80, 0x10}, 0},                                      // 2^32: dropped
        {{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x01}, 1},        // -1
        {{0x80, 0x80, 0x80, 0x80, 0x80, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x7F}, 0},  // bits beyond the fifth byte alone
        {{0x80, 0x00}, 0},                                                        // 0, longer than needed
    };
    for (const member &m : table().members) {
        if (m.kind != member_kind::flag && m.kind != member_kind::wide_flag) {
            continue;
        }
        for (const auto &c : cases) {
            SCOPED_TRACE(m.name);
            const bytes message = tag(m.field, 0) + c.value;
            raw_record record(table());
            EXPECT_EQ(table().decode(record.get(), message.data(), message.size(), nullptr, nullptr, 0), 0);
            EXPECT_EQ(number_of(m, record.get()), c.stored);
        }
    }
}

bytes repeated_byte(std::size_t count, uint8_t byte) {
    bytes repeated;
    repeated.assign(count, byte);
    return repeated;
}

TEST_P(DecodeEveryRecord, SkipsUnknownFieldsOfEverySkippableType) {
    const uint32_t unknown[] = {0, 15, 16, 31, 41, 53, 2047, 2048, 0x1FFFFFFF};
    for (const uint32_t field : unknown) {
        bool known = false;
        for (const member &m : table().members) {
            known = known || m.field == field;
        }
        ASSERT_FALSE(known);
        const bytes message = tag(field, 0) + bytes{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x00} +  //
                              tag(field, 1) + repeated_byte(8, 0xFF) +                                 //
                              tag(field, 2) + bytes{3, 0xFF, 0xFF, 0xFF} +                             //
                              tag(field, 2) + bytes{0} +                                               //
                              tag(field, 5) + repeated_byte(4, 0xFF);
        raw_record record(table());
        EXPECT_EQ(table().decode(record.get(), message.data(), message.size(), must_not_allocate, nullptr, 0), 0)
            << field;
        if (!table().members.empty()) {
            expect_reset(table(), record.get());
        }
    }
}

// What comes after a skipped field is decoded, what is cut short inside one is accepted.
TEST_P(DecodeEveryRecord, InputMayEndInsideAnUnknownField) {
    const bytes tails[] = {
        tag(60, 1),
        tag(60, 1) + repeated_byte(7, 1),
        tag(60, 1) + repeated_byte(8, 1),
        tag(60, 5),
        tag(60, 5) + repeated_byte(3, 1),
        tag(60, 5) + repeated_byte(4, 1),
        tag(60, 2) + bytes{1},
        tag(60, 2) + bytes{2, 0xFF},
        tag(60, 2) + bytes{1, 0xFF},
        tag(60, 2) + bytes{0},
        tag(60, 2) + bytes{0xFF, 0xFF, 0xFF, 0xFF, 0x0F},
        tag(60, 2) + bytes{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x01, 'x'},
    };
    const bytes full = full_message(table(), 0);
    counting_allocator blocks;
    raw_record whole(table());
    ASSERT_EQ(table().decode(whole.get(), full.data(), full.size(), counting_allocator::alloc, &blocks, 0), 0);
    for (const bytes &tail : tails) {
        const bytes message = full + tail;
        counting_allocator own;
        guarded_input input(message.size());
        raw_record record(table());
        EXPECT_EQ(table().decode(record.get(), input.place(message, message.size()), message.size(),
                                 counting_allocator::alloc, &own, 0),
                  0);
        EXPECT_EQ(difference(table(), record.get(), whole.get()), "");
        expect_released(table(), record.get(), own);
    }
    expect_released(table(), whole.get(), blocks);
}

TEST(Decode, ResetValues) {
    decoded<quill_nyx_commit> commit(record_id::commit, {});
    EXPECT_EQ(commit->uint32_2, 600U);
    EXPECT_EQ(commit->has_uint32_2, 0);
    decoded<quill_nyx_logging_set> logging(record_id::logging_set, {});
    EXPECT_EQ(logging->uint32_3, 1U);
    EXPECT_EQ(logging->has_uint32_3, 0);
    decoded<quill_nyx_request> request(record_id::request, {});
    EXPECT_EQ(request->flag_6, 1);
    EXPECT_EQ(request->has_flag_6, 0);
    EXPECT_EQ(request->commit.uint32_2, 600U);
    EXPECT_EQ(request->commit.has_uint32_2, 0);
    EXPECT_EQ(request->logging_set.uint32_3, 1U);
    EXPECT_EQ(request->logging_set.has_uint32_3, 0);
    EXPECT_EQ(quill_nyx_request_encode_ext(request.get(), nullptr, 0, nullptr, nullptr, 0), 0U);
}

TEST(Decode, ResetValuesGiveWayToTheInput) {
    decoded<quill_nyx_request> request(record_id::request,
                                       {0x30, 0x00, 0xAA, 0x02, 0x02, 0x10, 0x07, 0xEA, 0x02, 0x02, 0x18, 0x00});
    EXPECT_EQ(request.result(), 0);
    EXPECT_EQ(request->flag_6, 0);
    EXPECT_EQ(request->has_flag_6, 1);
    EXPECT_EQ(request->commit.uint32_2, 7U);
    EXPECT_EQ(request->commit.has_uint32_2, 1);
    EXPECT_EQ(request->logging_set.uint32_3, 0U);
    EXPECT_EQ(request->logging_set.has_uint32_3, 1);
}

// Field 2 of a stop-session takes the varint.
struct varint_case {
    bytes encoded;
    uint64_t value;
};

TEST(Decode, Varint32) {
    const varint_case cases[] = {
        {{0x00}, 0},
        {{0x7F}, 127},
        {{0x80, 0x01}, 128},
        {{0xFF, 0x7F}, 16383},
        {{0x80, 0x80, 0x01}, 16384},
        {{0xFF, 0xFF, 0x7F}, 2097151},
        {{0x80, 0x80, 0x80, 0x01}, 2097152},
        {{0xFF, 0xFF, 0xFF, 0x7F}, 268435455},
        {{0x80, 0x80, 0x80, 0x80, 0x01}, 268435456},
        {{0xFF, 0xFF, 0xFF, 0xFF, 0x0F}, 4294967295},
        // Longer than needed.
        {{0x81, 0x00}, 1},
        {{0x81, 0x80, 0x80, 0x80, 0x00}, 1},
        {{0x81, 0x80, 0x80, 0x80, 0x80, 0x00}, 1},
        // The upper bits of the fifth byte, and all that follow, are dropped.
        {{0x80, 0x80, 0x80, 0x80, 0x10}, 0},
        {{0x81, 0x80, 0x80, 0x80, 0x7F}, 0xF0000001},
        {{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x7F}, 4294967295},
        {{0x81, 0x80, 0x80, 0x80, 0xF0, 0x7F}, 1},
        {{0x82, 0x80, 0x80, 0x80, 0x80, 0xFF, 0x01}, 2},
        {{0x82, 0x80, 0x80, 0x80, 0x80, 0xFF, 0xFF, 0x01}, 2},
        {{0x82, 0x80, 0x80, 0x80, 0x80, 0xFF, 0xFF, 0xFF, 0x01}, 2},
        // Negative 64-bit values: -1, -2 and -2^31.
        {{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x01}, 0xFFFFFFFF},
        {{0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x01}, 0xFFFFFFFE},
        {{0x80, 0x80, 0x80, 0x80, 0xF8, 0xFF, 0xFF, 0xFF, 0xFF, 0x01}, 0x80000000},
        {{0x83, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x7F}, 0xFFFFFF83},
    };
    for (const varint_case &c : cases) {
        // In the middle of the input and at its end.
        for (const bytes &tail : {bytes{}, bytes{0x08, 0x09}}) {
            decoded<quill_nyx_stop_session> record(record_id::stop_session, bytes{0x10} + c.encoded + tail);
            EXPECT_EQ(record.result(), 0);
            EXPECT_EQ(record->uint32_2, c.value) << testing::PrintToString(c.encoded);
            EXPECT_EQ(record->has_uint32_2, 1);
            EXPECT_EQ(record->uint32_1, tail.empty() ? 0U : 9U);
        }
    }
}

TEST(Decode, Varint64) {
    const varint_case cases[] = {
        {{0x00}, 0},
        {{0x7F}, 127},
        {{0x80, 0x80, 0x80, 0x80, 0x10}, uint64_t{1} << 32},
        {{0xFF, 0xFF, 0xFF, 0xFF, 0x7F}, (uint64_t{1} << 35) - 1},
        {{0x80, 0x80, 0x80, 0x80, 0x80, 0x01}, uint64_t{1} << 35},
        {{0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x01}, uint64_t{1} << 56},
        {{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x7F}, (uint64_t{1} << 63) - 1},
        {{0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x01}, uint64_t{1} << 63},
        {{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x01}, UINT64_MAX},
        // Of the tenth byte only the lowest bit counts, of those behind it none.
        {{0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x7E}, 0},
        {{0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x7F}, uint64_t{1} << 63},
        {{0x81, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x7F}, 1},
        {{0x81, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0xFE, 0xFF, 0xFF, 0x00}, 1},
        {{0x81, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0xFF, 0xFF, 0xFF, 0x00}, (uint64_t{1} << 63) + 1},
        {{0x81, 0x80, 0x80, 0x00}, 1},
    };
    for (const varint_case &c : cases) {
        decoded<quill_nyx_mdt_yang_resolve> record(record_id::mdt_yang_resolve);
        EXPECT_EQ(record.decode_without_allocator(bytes{0x08} + c.encoded), 0);
        EXPECT_EQ(record->uint64_1, c.value) << testing::PrintToString(c.encoded);
        EXPECT_EQ(record->has_uint64_1, 1);
    }
}

TEST(Decode, VarintsHaveNoLongestForm) {
    for (const std::size_t more : {1U, 2U, 5U, 6U, 7U, 8U, 9U, 10U, 100U, 100000U}) {
        const bytes tail = repeated_byte(more, 0xFF) + bytes{0x7F};
        decoded<quill_nyx_stop_session> number(record_id::stop_session,
                                               bytes{0x08, 0x85, 0x80, 0x80, 0x80, 0x80} + tail + bytes{0x10, 0x06});
        EXPECT_EQ(number.result(), 0);
        EXPECT_EQ(number->uint32_1, 5U);
        EXPECT_EQ(number->uint32_2, 6U);

        // The tag and the length of a text.
        decoded<quill_nyx_datastore> store(
            record_id::datastore,
            bytes{0x8A, 0x80, 0x80, 0x80, 0x80} + tail + bytes{0x82, 0x80, 0x80, 0x80, 0x80} + tail + bytes{'h', 'i'});
        EXPECT_EQ(store.result(), 0);
        EXPECT_STREQ(store->name, "hi");
    }
}

TEST(Decode, TagsLongerThanNeededNameTheSameMember) {
    const bytes tags[] = {{0x10},
                          {0x90, 0x00},
                          {0x90, 0x80, 0x00},
                          {0x90, 0x80, 0x80, 0x80, 0x00},
                          {0x90, 0x80, 0x80, 0x80, 0x10},  // 2^32 + 16: the upper bits of the fifth byte are dropped
                          {0x90, 0x80, 0x80, 0x80, 0x80, 0x01},
                          {0x90, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x01}};
    for (const bytes &long_tag : tags) {
        decoded<quill_nyx_stop_session> record(record_id::stop_session, long_tag + bytes{0x2A});
        EXPECT_EQ(record.result(), 0);
        EXPECT_EQ(record->uint32_2, 42U) << testing::PrintToString(long_tag);
        EXPECT_EQ(record->has_uint32_2, 1);
    }
}

TEST(Decode, ElementsOfOneRunMayHaveTagsOfDifferentLength) {
    decoded<quill_nyx_node_info> info(record_id::node_info,
                                      {0x1A, 1, 'a', 0x9A, 0x00, 1, 'b', 0x9A, 0x80, 0x80, 0x00, 0x81, 0x00, 'c'});
    EXPECT_EQ(info.result(), 0);
    ASSERT_EQ(info->strings_3_count, 3U);
    EXPECT_STREQ(info->strings_3[0], "a");
    EXPECT_STREQ(info->strings_3[1], "b");
    EXPECT_STREQ(info->strings_3[2], "c");
    EXPECT_EQ(info.blocks().sizes(), (sizes{24, 2, 2, 2}));
}

TEST(Decode, EmptyTextIsABlockOfOneByte) {
    decoded<quill_nyx_datastore> store(record_id::datastore, {0x0A, 0x00});
    EXPECT_EQ(store.result(), 0);
    EXPECT_EQ(store.blocks().sizes(), (sizes{1}));
    ASSERT_NE(store->name, nullptr);
    EXPECT_EQ(store->name[0], '\0');
    EXPECT_EQ(store->has_name, 1);
}

TEST(Decode, TextsOfEveryShortLengthAreCopiedWhole) {
    for (std::size_t length = 0; length <= 300; ++length) {
        std::string text;
        for (std::size_t i = 0; i < length; ++i) {
            text += static_cast<char>('!' + i % 90);
        }
        decoded<quill_nyx_attribute> attribute(record_id::attribute, text_member(1, text) + text_member(2, "end"));
        ASSERT_EQ(attribute.result(), 0);
        EXPECT_EQ(std::string(attribute->key, length + 1), text + '\0');
        EXPECT_STREQ(attribute->value, "end");
        EXPECT_EQ(attribute.blocks().sizes(), (sizes{length + 1, 4}));
    }
}

TEST(Decode, ZeroBytesInsideATextAreCopied) {
    decoded<quill_nyx_datastore> store(record_id::datastore, {0x0A, 0x05, 'a', 0, 'b', 0, 0});
    EXPECT_EQ(store.result(), 0);
    EXPECT_EQ(store.blocks().sizes(), (sizes{6}));
    EXPECT_EQ(std::memcmp(store->name, "a\0b\0\0\0", 6), 0);
}

TEST(Decode, EmptyNestedRecordIsPresentAndReset) {
    decoded<quill_nyx_lock> lock(record_id::lock, {0x0A, 0x00});
    EXPECT_EQ(lock.result(), 0);
    EXPECT_EQ(lock->has_target, 1);
    EXPECT_EQ(lock->target.name, nullptr);
    EXPECT_EQ(lock->target.has_name, 0);
    EXPECT_EQ(lock.blocks().calls(), 0U);
}

TEST(Decode, EmptyNestedRecordNeedsNoAllocator) {
    decoded<quill_nyx_request> request(record_id::request);
    EXPECT_EQ(request.decode_without_allocator({0x08, 0x05, 0xAA, 0x02, 0x00, 0x82, 0x02, 0x02, 0x0A, 0x00}), 0);
    EXPECT_EQ(request->type, 5U);
    EXPECT_EQ(request->has_commit, 1);
    EXPECT_EQ(request->has_get_config, 1);
    EXPECT_EQ(request->get_config.has_source, 1);
}

// Two nested records of one kind, with texts of the record itself behind them.
TEST(Decode, NestedRecordsEndWhereTheirLengthsSay) {
    decoded<quill_nyx_copy_config> copy(record_id::copy_config,
                                        {0x0A, 0x03, 0x0A, 0x01, 't', 0x12, 0x01, '2', 0x1A, 0x03, 0x0A, 0x01, 's'});
    EXPECT_EQ(copy.result(), 0);
    EXPECT_STREQ(copy->target.name, "t");
    EXPECT_STREQ(copy->string_2, "2");
    EXPECT_STREQ(copy->source.name, "s");
    EXPECT_EQ(copy.blocks().sizes(), (sizes{2, 2, 2}));
}

TEST(Decode, UnknownFieldCutShortEndsItsNestedRecordAlone) {
    // Within the target: the unknown field 9 claims 127 bytes; the outer record goes on behind the target.
    decoded<quill_nyx_copy_config> copy(record_id::copy_config,
                                        {0x0A, 0x05, 0x0A, 0x01, 't', 0x4A, 0x7F, 0x12, 0x01, '2'});
    EXPECT_EQ(copy.result(), 0);
    EXPECT_STREQ(copy->target.name, "t");
    EXPECT_EQ(copy->has_target, 1);
    EXPECT_STREQ(copy->string_2, "2");
}

TEST(Decode, LastNestedRecordWinsAndStartsAfresh) {
    decoded<quill_nyx_request> request(
        record_id::request, {0xAA, 0x02, 0x09, 0x08, 0x01, 0x10, 0x07, 0x1A, 0x01, 'a', 0x28, 0x01,  // commit
                             0x08, 0x05,                                                             // type
                             0xAA, 0x02, 0x03, 0x22, 0x01, 'b'});                                    // commit again
    EXPECT_EQ(request.result(), 0);
    EXPECT_EQ(request->has_commit, 1);
    EXPECT_EQ(request->commit.has_uint32_1, 0);
    EXPECT_EQ(request->commit.uint32_1, 0U);
    EXPECT_EQ(request->commit.has_uint32_2, 0);
    EXPECT_EQ(request->commit.uint32_2, 600U);
    EXPECT_EQ(request->commit.string_3, nullptr);
    EXPECT_EQ(request->commit.has_string_3, 0);
    EXPECT_EQ(request->commit.flag_5, 0);
    EXPECT_EQ(request->commit.has_flag_5, 0);
    EXPECT_STREQ(request->commit.string_4, "b");
    request.expect_lost(1);
}

TEST(Decode, LastTreeWinsWithAllThatItHolds) {
    const bytes first = text_member(1, "one") + nested_member(6, text_member(1, "k")) +
                        nested_member(7, text_member(1, "child")) + nested_member(9, text_member(3, "s")) +
                        nested_member(11, nested_member(2, text_member(2, "v")));
    decoded<quill_nyx_filter> filter(record_id::filter, nested_member(2, first) + nested_member(2, {0x20, 0x04}));
    EXPECT_EQ(filter.result(), 0);
    decoded<quill_nyx_datatree> expected(record_id::datatree, {0x20, 0x04});
    EXPECT_EQ(difference(table_of(record_id::datatree), &filter->tree, expected.get()), "");
    filter.expect_lost(
        8);  // name; attribute and child, each an array with a text; an array of texts and its text; edit_ins
}

TEST(Decode, NestedRecordThatComesEmptyAgainIsEmpty) {
    decoded<quill_nyx_lock> lock(record_id::lock, {0x0A, 0x03, 0x0A, 0x01, 'x', 0x0A, 0x00});
    EXPECT_EQ(lock.result(), 0);
    EXPECT_EQ(lock->has_target, 1);
    EXPECT_EQ(lock->target.name, nullptr);
    EXPECT_EQ(lock->target.has_name, 0);
    lock.expect_lost(1);
}

// Bits of no member are kept by the reset of a record that occurs again, as by the first one; of a small record and of
// one that is reset as a whole.
TEST(Decode, NestedRecordThatComesAgainKeepsBitsOfNoMember) {
    quill_nyx_lock lock = {};
    auto *target_presence = reinterpret_cast<uint8_t *>(&lock.target) + 8;
    *target_presence = 0xFE;
    const uint8_t twice[] = {0x0A, 0x00, 0x0A, 0x00};
    EXPECT_EQ(quill_nyx_lock_decode_ext(&lock, twice, sizeof twice, nullptr, nullptr), 0);
    EXPECT_EQ(*target_presence, 0xFE);

    quill_nyx_request request = {};
    const uint8_t copy_config_twice[] = {0xC2, 0x02, 0x00, 0xC2, 0x02, 0x00};
    uint8_t *presence = reinterpret_cast<uint8_t *>(&request.copy_config.source) + 8;
    *presence = 0xFE;
    EXPECT_EQ(quill_nyx_request_decode_ext(&request, copy_config_twice, sizeof copy_config_twice, nullptr, nullptr, 0),
              0);
    EXPECT_EQ(*presence, 0xFE);
    EXPECT_EQ(request.has_copy_config, 1);
}

// An allocation function may use the codec itself: a call's state is its own.
TEST(Decode, AllocationFunctionMayDecode) {
    static char room[64];
    struct {
        int32_t inner_result = 0;
        std::size_t used = 0;
    } calls;
    const auto take = [](uint64_t size, void *ctx) -> void * {
        auto &seen = *static_cast<decltype(calls) *>(ctx);
        quill_nyx_lock inner = {};
        const uint8_t malformed[] = {0x0A, 0x05};
        seen.inner_result = quill_nyx_lock_decode_ext(&inner, malformed, sizeof malformed, nullptr, nullptr);
        char *block = room + seen.used;
        seen.used += size;
        return block;
    };
    quill_nyx_datastore datastore = {};
    const uint8_t message[] = {0x0A, 0x01, 'x'};
    EXPECT_EQ(quill_nyx_datastore_decode_ext(&datastore, message, sizeof message, take, &calls), 0);
    EXPECT_EQ(calls.inner_result, QUILL_DECODE_MALFORMED);
    EXPECT_STREQ(datastore.name, "x");
}

TEST(Decode, RunOfRecordsIsOneBlock) {
    decoded<quill_nyx_datatree> tree(record_id::datatree, {0x32, 0x03, 0x0A, 0x01, 'a', 0x32, 0x00, 0x32, 0x06, 0x0A,
                                                           0x01, 'b', 0x12, 0x01, 'c', 0x20, 0x01});
    EXPECT_EQ(tree.result(), 0);
    EXPECT_EQ(tree.blocks().sizes(), (sizes{3 * sizeof(quill_nyx_attribute), 2, 2, 2}));
    EXPECT_EQ(tree->has_attributes, 1);
    ASSERT_EQ(tree->attributes_count, 3U);
    EXPECT_STREQ(tree->attributes[0].key, "a");
    EXPECT_EQ(tree->attributes[0].value, nullptr);
    EXPECT_EQ(tree->attributes[0].has_value, 0);
    EXPECT_EQ(tree->attributes[1].key, nullptr);
    EXPECT_EQ(tree->attributes[1].has_key, 0);
    EXPECT_STREQ(tree->attributes[2].key, "b");
    EXPECT_STREQ(tree->attributes[2].value, "c");
    EXPECT_EQ(tree->uint32_4, 1U);
}

TEST(Decode, ArraysComeBeforeTheirElements) {
    // A child with a name and a child of its own, then a childless one.
    decoded<quill_nyx_datatree> tree(record_id::datatree,
                                     {0x0A, 0x01, 'r',  0x3A, 0x08, 0x0A, 0x02, 'x', 'y', 0x3A, 0x02, 0x0A, 0x00,  //
                                      0x3A, 0x05, 0x0A, 0x03, 'p',  'q',  'r'});
    EXPECT_EQ(tree.result(), 0);
    EXPECT_EQ(tree.blocks().sizes(), (sizes{2, 2 * sizeof(quill_nyx_datatree), 3, sizeof(quill_nyx_datatree), 1, 4}));
    ASSERT_EQ(tree->children_count, 2U);
    ASSERT_EQ(tree->children[0].children_count, 1U);
    EXPECT_STREQ(tree->children[0].children[0].name, "");
    EXPECT_STREQ(tree->children[1].name, "pqr");
}

TEST(Decode, ElementsHaveNoSpareBitsSet) {
    decoded<quill_nyx_response> response(record_id::response,
                                         {0x22, 0x00, 0x2A, 0x00, 0x92, 0x02, 0x00, 0x92, 0x02, 0x00});
    EXPECT_EQ(response.result(), 0);
    ASSERT_EQ(response->schemas_count, 1U);
    ASSERT_EQ(response->streams_count, 1U);
    ASSERT_EQ(response->errors_count, 2U);
    EXPECT_EQ(response.blocks().sizes(),
              (sizes{sizeof(quill_nyx_schema), sizeof(quill_nyx_notification_stream), 2 * sizeof(quill_nyx_error)}));
    EXPECT_EQ(spare_bits(table_of(record_id::schema), response->schemas), 0);
    EXPECT_EQ(spare_bits(table_of(record_id::notification_stream), response->streams), 0);
    EXPECT_EQ(spare_bits(table_of(record_id::error), &response->errors[1]), 0);
    EXPECT_EQ(spare_bits(table_of(record_id::datatree), &response->errors[1].error_info), 0);
}

// Only the field number decides whether an element belongs to a run: a fixed32 tag is read as a length.
TEST(Decode, TagsOfLaterElementsAreComparedByNumberOnly) {
    for (const uint8_t wire_type : bytes{0, 1, 3, 4, 5, 6, 7}) {
        const auto text_tag = static_cast<uint8_t>(0x18U | wire_type);
        decoded<quill_nyx_node_info> info(record_id::node_info,
                                          {0x1A, 1, 'a', text_tag, 2, 'b', 'c', text_tag, 0, 0x10, 0x01});
        EXPECT_EQ(info.result(), 0) << unsigned{wire_type};
        ASSERT_EQ(info->strings_3_count, 3U);
        EXPECT_STREQ(info->strings_3[1], "bc");
        EXPECT_STREQ(info->strings_3[2], "");
        EXPECT_EQ(info->uint32_2, 1U);

        const auto key_tag = static_cast<uint8_t>(0x08U | wire_type);
        decoded<quill_nyx_edit_ins_key> key(record_id::edit_ins_key, {0x0A, 0, key_tag, 3, 0x0A, 1, 'k', key_tag, 0});
        EXPECT_EQ(key.result(), 0) << unsigned{wire_type};
        ASSERT_EQ(key->keys_count, 3U);
        EXPECT_STREQ(key->keys[1].key, "k");
    }
}

TEST(Decode, RunEndsAtTheFirstOtherField) {
    // An unknown field ends the run just as a member does.
    decoded<quill_nyx_node_info> info(record_id::node_info, {0x1A, 1, 'a', 0x1A, 1, 'b', 0x78, 0x05});
    EXPECT_EQ(info.result(), 0);
    EXPECT_EQ(info->strings_3_count, 2U);
    EXPECT_EQ(info.blocks().sizes(), (sizes{16, 2, 2}));
}

TEST(Decode, RunMayBeFollowedByAnUnknownFieldThatIsCutShort) {
    decoded<quill_nyx_node_info> info(record_id::node_info, {0x1A, 1, 'a', 0x7A, 0x7F});
    EXPECT_EQ(info.result(), 0);
    EXPECT_EQ(info->strings_3_count, 1U);
    EXPECT_EQ(info->has_strings_3, 1);
}

TEST(Decode, RunOfNumbers) {
    decoded<quill_nyx_notification> notification(
        record_id::notification, {0x08, 0x01, 0x08, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x01,  //
                                  0x08, 0x80, 0x00, 0x88, 0x00, 0x03, 0x10, 0x09});
    EXPECT_EQ(notification.result(), 0);
    EXPECT_EQ(notification.blocks().sizes(), (sizes{16}));
    ASSERT_EQ(notification->uint32s_1_count, 4U);
    EXPECT_EQ(notification->uint32s_1[0], 1U);
    EXPECT_EQ(notification->uint32s_1[1], 0xFFFFFFFFU);
    EXPECT_EQ(notification->uint32s_1[2], 0U);
    EXPECT_EQ(notification->uint32s_1[3], 3U);
    EXPECT_EQ(notification->has_uint32s_1, 1);
    EXPECT_EQ(notification->uint32_2, 9U);
}

TEST(Decode, TagsOfLaterNumbersAreComparedByNumberOnly) {
    for (const uint8_t wire_type : bytes{1, 2, 3, 4, 5, 6, 7}) {
        const auto later = static_cast<uint8_t>(0x08U | wire_type);
        decoded<quill_nyx_notification> notification(record_id::notification, {0x08, 0x01, later, 0x02, later, 0x03});
        EXPECT_EQ(notification.result(), 0) << unsigned{wire_type};
        ASSERT_EQ(notification->uint32s_1_count, 3U);
        EXPECT_EQ(notification->uint32s_1[1], 2U);
        EXPECT_EQ(notification->uint32s_1[2], 3U);
    }
}

TEST(Decode, RequestSkipsField41) {
    // A whole delete-config body under field 41, and the same number with every other skippable wire type.
    decoded<quill_nyx_request> request(
        record_id::request, bytes{0xCA, 0x02, 0x05, 0x0A, 0x03, 0x0A, 0x01, 'x', 0xC8, 0x02, 0x01} + tag(41, 5) +
                                bytes{1, 2, 3, 4} + tag(41, 1) + bytes{1, 2, 3, 4, 5, 6, 7, 8} + bytes{0x08, 0x09});
    EXPECT_EQ(request.result(), 0);
    EXPECT_EQ(request.blocks().calls(), 0U);
    EXPECT_EQ(request->type, 9U);
    for (const member &m : table_of(record_id::request).members) {
        EXPECT_EQ(is_present(table_of(record_id::request), m, request.get()), std::string_view(m.name) == "type");
    }
}

TEST(Decode, RequestSkipsTheNumbersBetweenItsMembers) {
    for (uint32_t field = 7; field <= 31; ++field) {
        decoded<quill_nyx_request> request(record_id::request, text_member(field, "abc") + bytes{0x10, 0x05});
        EXPECT_EQ(request.result(), 0) << field;
        EXPECT_EQ(request->session_id, 5U);
        EXPECT_EQ(request.blocks().calls(), 0U);
    }
}

// A tag's field number has 29 bits: one that differs from a member's beyond its low bits is another field.
TEST(Decode, FieldNumbersAreComparedWhole) {
    for (const uint32_t field : {1U + (1U << 8), 1U + (1U << 16), 1U + (1U << 24), 1U + (1U << 28)}) {
        decoded<quill_nyx_stop_session> record(record_id::stop_session, number_member(field, 5));
        EXPECT_EQ(record.result(), 0);
        EXPECT_EQ(record->has_uint32_1, 0);
    }
}

TEST(Decode, RecordsWithoutMembersSkipEverythingAndTouchNothing) {
    const bytes message = bytes{0x08, 0x01, 0x12, 0x02, 0x08, 0x07, 0x00, 0x05} + tag(3, 5) + bytes{1, 2, 3, 4} +
                          tag(4, 1) + bytes{1, 2, 3, 4, 5, 6, 7, 8} + bytes{0x0A, 0x7F};
    for (const record_id id : {record_id::discard_changes, record_id::schemas_list}) {
        raw_record record(table_of(id), 0x5C);
        EXPECT_EQ(table_of(id).decode(record.get(), message.data(), message.size(), must_not_allocate, nullptr, 0), 0);
        EXPECT_EQ(*static_cast<uint8_t *>(record.get()), 0x5C);
    }
}

TEST(Decode, BodiesWithoutMembersMayHoldAnything) {
    // discard_changes (39) with a number inside, schemas_list (46) with an unknown field that is cut short.
    decoded<quill_nyx_request> request(record_id::request,
                                       {0xBA, 0x02, 0x02, 0x08, 0x01, 0xF2, 0x02, 0x02, 0x0A, 0x40, 0x08, 0x07});
    EXPECT_EQ(request.result(), 0);
    EXPECT_EQ(request->has_discard_changes, 1);
    EXPECT_EQ(request->has_schemas_list, 1);
    EXPECT_EQ(request->type, 7U);
}

TEST(Decode, RecordsWithoutBlocksNeedNoAllocator) {
    const record_id ids[] = {record_id::stop_session, record_id::mdt_yang_resolve, record_id::notification_internal,
                             record_id::logging_set,  record_id::settings_set,     record_id::discard_changes,
                             record_id::schemas_list};
    for (const record_id id : ids) {
        const record_table &table = table_of(id);
        const bytes message = full_message(table, 0);
        for (const quill_alloc_fn alloc : {quill_alloc_fn{nullptr}, quill_alloc_fn{must_not_allocate}}) {
            raw_record record(table);
            EXPECT_EQ(table.decode(record.get(), message.data(), message.size(), alloc, nullptr, 0), 0) << table.name;
            for (const member &m : table.members) {
                EXPECT_TRUE(is_present(table, m, record.get())) << table.name << '.' << m.name;
            }
        }
    }
}

TEST(Decode, EditConfigTakesItsFieldsByNumber) {
    decoded<quill_nyx_edit_config> edit(record_id::edit_config, {0x10, 0x02, 0x18, 0x03, 0x20, 0x04});
    EXPECT_EQ(edit.result(), 0);
    EXPECT_EQ(edit->uint32_2, 2U);
    EXPECT_EQ(edit->uint32_3, 3U);
    EXPECT_EQ(edit->uint32_4, 4U);
}

TEST(Decode, EnumerationsCarryAnyValue) {
    decoded<quill_nyx_datatree> tree(record_id::datatree,
                                     {0x28, 0xFF, 0xFF, 0xFF, 0xFF, 0x0F, 0x60, 0xFE, 0xFF, 0xFF, 0xFF, 0x0F});
    EXPECT_EQ(tree.result(), 0);
    EXPECT_EQ(tree->operation, 0xFFFFFFFFU);
    EXPECT_EQ(tree->node_kind, 0xFFFFFFFEU);
}

// The nest argument reaches every nested decoder and changes nothing; the allocation context arrives unchanged.
TEST_P(DecodeEveryRecord, FullMessageIsTheSameUnderAnyNestArgument) {
    const bytes message = full_message(table(), 2);
    counting_allocator blocks;
    raw_record left(table());
    raw_record right(table());
    ASSERT_EQ(table().decode(left.get(), message.data(), message.size(), counting_allocator::alloc, &blocks, 0), 0);
    ASSERT_EQ(table().decode(right.get(), message.data(), message.size(), counting_allocator::alloc, &blocks, ~0U), 0);
    EXPECT_EQ(difference(table(), left.get(), right.get()), "");
    EXPECT_EQ(shared_block(table(), left.get(), right.get()), "");

    bytes again(message.size());
    EXPECT_EQ(table().encode(left.get(), again.data(), again.size(), nullptr, nullptr, 0), message.size());
    EXPECT_EQ(again, message);
    table().free(left.get(), counting_allocator::free, &blocks, 0);
    expect_released(table(), right.get(), blocks);
}

TEST_P(DecodeEveryRecord, ReadsBackWhatTheEncoderWrites) {
    build_options options;
    options.canonical = true;
    for (uint64_t seed = 0; seed < 100; ++seed) {
        const random_record source(table(), seed, options);
        const uint64_t size = table().encode(source.get(), nullptr, 0, nullptr, nullptr, 0);
        bytes message(size);
        table().encode(source.get(), message.data(), size, nullptr, nullptr, 0);

        guarded_input input(size);
        counting_allocator blocks;
        raw_record copy(table());
        ASSERT_EQ(table().decode(copy.get(), input.place(message, size), size, counting_allocator::alloc, &blocks, 0),
                  0);
        EXPECT_EQ(difference(table(), copy.get(), source.get()), "") << "seed " << seed;
        expect_released(table(), copy.get(), blocks);
    }
}

}  // namespace
}  // namespace nyx_test
