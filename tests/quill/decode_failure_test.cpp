// What the decoder refuses, and what it leaves behind then.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "build_kind.h"
#include "decode_fixture.h"

namespace nyx_test {
namespace {

using sizes = std::vector<uint64_t>;

void *never_allocates(uint64_t /*size*/, void *calls) {
    ++*static_cast<uint64_t *>(calls);
    return nullptr;
}

// Decodes `before` and then `tail`, which fails with `code` and leaves exactly what `before` alone leaves: the same
// values, the same presence bits, the same blocks.
void expect_refused(const record_table &table, const bytes &before, const bytes &tail, int32_t code) {
    SCOPED_TRACE(testing::Message() << table.name << ' ' << testing::PrintToString(before) << " + "
                                    << testing::PrintToString(tail));
    const bytes message = before + tail;
    guarded_input input(message.size());
    counting_allocator blocks;
    counting_allocator expected_blocks;
    raw_record record(table);
    raw_record expected(table);
    ASSERT_EQ(
        table.decode(expected.get(), before.data(), before.size(), counting_allocator::alloc, &expected_blocks, 0), 0);
    EXPECT_EQ(table.decode(record.get(), input.place(message, message.size()), message.size(),
                           counting_allocator::alloc, &blocks, 0),
              code);
    EXPECT_EQ(difference(table, record.get(), expected.get()), "");
    EXPECT_EQ(blocks.sizes(), expected_blocks.sizes());
    expect_released(table, record.get(), blocks);
    expect_released(table, expected.get(), expected_blocks);
}

uint32_t wire_type_of(const member &m) {
    return is_number(m.kind) || m.kind == member_kind::numbers32 ? 0 : 2;
}

bool is_nested(const member &m) {
    return m.kind == member_kind::record;
}

// The member alone, with one short value.
bytes one_of(const member &m) {
    return wire_type_of(m) == 0 ? number_member(m.field, 1) : nested_member(m.field, {});
}

// All members that the record declares before `end`.
bytes members_before(const record_table &table, const member &end) {
    bytes out;
    for (const member &m : table.members) {
        if (m.bit < end.bit) {
            out = out + one_of(m);
        }
    }
    return out;
}

class RefuseInEveryRecord : public testing::TestWithParam<record_id> {
  protected:
    [[nodiscard]] static const record_table &table() { return table_of(GetParam()); }
};

INSTANTIATE_TEST_SUITE_P(All, RefuseInEveryRecord, every_record(), record_name);

TEST_P(RefuseInEveryRecord, TagCutShort) {
    const bytes tails[] = {{0x80},
                           {0xFF, 0xFF},
                           {0x88, 0x80, 0x80, 0x80},
                           {0x88, 0x80, 0x80, 0x80, 0x80},
                           {0x8A, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}};
    for (const bytes &tail : tails) {
        expect_refused(table(), {}, tail, QUILL_DECODE_MALFORMED);
        // Behind a run the cut tag is met by the pass that counts elements, which allocates nothing.
        for (const member &m : table().members) {
            if (!is_repeated(m.kind)) {
                expect_refused(table(), one_of(m), tail, QUILL_DECODE_MALFORMED);
            } else {
                expect_refused(table(), members_before(table(), m), one_of(m) + tail, QUILL_DECODE_MALFORMED);
            }
        }
    }
}

TEST_P(RefuseInEveryRecord, ValueOrLengthCutShort) {
    const bytes cut[] = {
        {}, {0x80}, {0x81, 0x80, 0x80, 0x80}, {0x81, 0x80, 0x80, 0x80, 0x80}, bytes(10, 0x80), bytes(40, 0xFF)};
    for (const member &m : table().members) {
        for (const bytes &tail : cut) {
            expect_refused(table(), members_before(table(), m), tag(m.field, wire_type_of(m)) + tail,
                           QUILL_DECODE_MALFORMED);
        }
    }
}

TEST_P(RefuseInEveryRecord, ContentCutShort) {
    const bytes lengths[] = {{0x01},
                             {0x03, 0x08, 0x01},
                             {0x80, 0x01},
                             {0xFF, 0xFF, 0xFF, 0xFF, 0x07, 0x08},
                             {0xFF, 0xFF, 0xFF, 0xFF, 0x0F, 0x08, 0x01},
                             {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x01}};
    for (const member &m : table().members) {
        if (wire_type_of(m) != 2) {
            continue;
        }
        for (const bytes &length : lengths) {
            const bytes before = members_before(table(), m);
            expect_refused(table(), before, tag(m.field, 2) + length, QUILL_DECODE_MALFORMED);
            if (is_repeated(m.kind)) {  // also as a later element: no block is allocated for the run
                expect_refused(table(), before, one_of(m) + tag(m.field, 2) + length, QUILL_DECODE_MALFORMED);
            }
        }
    }
}

TEST_P(RefuseInEveryRecord, LaterNumberOfARunCutShort) {
    for (const member &m : table().members) {
        if (m.kind == member_kind::numbers32) {
            expect_refused(table(), members_before(table(), m), one_of(m) + tag(m.field, 0) + bytes{0x80},
                           QUILL_DECODE_MALFORMED);
            expect_refused(table(), members_before(table(), m), one_of(m) + tag(m.field, 0), QUILL_DECODE_MALFORMED);
        }
    }
}

TEST_P(RefuseInEveryRecord, TextOrRunMetAgain) {
    for (const member &m : table().members) {
        if (m.kind == member_kind::text) {
            expect_refused(table(), one_of(m), text_member(m.field, "again"), QUILL_DECODE_MALFORMED);
            expect_refused(table(), text_member(m.field, "first"), text_member(m.field, "first"),
                           QUILL_DECODE_MALFORMED);
        } else if (is_repeated(m.kind)) {
            const bytes run = one_of(m) + one_of(m) + number_member(900, 1);
            expect_refused(table(), run, one_of(m), QUILL_DECODE_MALFORMED);
            expect_refused(table(), run, one_of(m) + one_of(m) + bytes{0x80}, QUILL_DECODE_MALFORMED);
        }
    }
}

TEST_P(RefuseInEveryRecord, KnownFieldOfAnotherWireType) {
    for (const member &m : table().members) {
        for (uint32_t wire_type = 0; wire_type < 8; ++wire_type) {
            if (wire_type == wire_type_of(m)) {
                continue;
            }
            const bytes tail = tag(m.field, wire_type) + bytes(12, 0x00);
            expect_refused(table(), {}, tail, QUILL_DECODE_WRONG_WIRE_TYPE);
            expect_refused(table(), {}, tag(m.field, wire_type), QUILL_DECODE_WRONG_WIRE_TYPE);
            expect_refused(table(), members_before(table(), m), tail, QUILL_DECODE_WRONG_WIRE_TYPE);
            if (!is_repeated(m.kind)) {  // looked at before "met again"
                expect_refused(table(), one_of(m), tail, QUILL_DECODE_WRONG_WIRE_TYPE);
            } else {  // a run that some other field ended
                expect_refused(table(), one_of(m) + number_member(900, 1), tail, QUILL_DECODE_WRONG_WIRE_TYPE);
            }
        }
    }
}

TEST_P(RefuseInEveryRecord, UnknownFieldThatCannotBeSkipped) {
    bytes before;
    for (const member &m : table().members) {
        before = before + one_of(m);
    }
    for (const uint32_t field : {0U, 20U, 41U, 60U, 1000000U, 0x1FFFFFFFU}) {
        for (const uint32_t wire_type : {3U, 4U, 6U, 7U}) {
            for (const bytes &tail : {bytes{}, bytes(10, 0x00)}) {
                expect_refused(table(), {}, tag(field, wire_type) + tail, QUILL_DECODE_BAD_WIRE_TYPE);
                expect_refused(table(), before, tag(field, wire_type) + tail, QUILL_DECODE_BAD_WIRE_TYPE);
            }
        }
    }
}

TEST_P(RefuseInEveryRecord, UnknownNumberOrLengthCutShort) {
    for (const bytes &cut : {bytes{}, bytes{0x80}, bytes(30, 0xFF)}) {
        expect_refused(table(), {}, tag(60, 0) + cut, QUILL_DECODE_MALFORMED);
        expect_refused(table(), {}, tag(60, 2) + cut, QUILL_DECODE_MALFORMED);
    }
}

// The checks of a text and of a run, each shown to come before the next one.
TEST_P(RefuseInEveryRecord, ChecksComeInOrder) {
    for (const member &m : table().members) {
        if (is_number(m.kind) || is_nested(m)) {
            continue;
        }
        SCOPED_TRACE(m.name);
        const uint32_t right = wire_type_of(m);
        const bytes cut = tag(m.field, right) + (right == 2 ? bytes{0x05, 'a'} : bytes{0x80});
        const bytes wrong = tag(m.field, 2 - right) + bytes{0x00};
        raw_record record(table());

        // The wire type, before the missing allocation function.
        EXPECT_EQ(table().decode(record.get(), wrong.data(), wrong.size(), nullptr, nullptr, 0),
                  QUILL_DECODE_WRONG_WIRE_TYPE);
        // The missing allocation function, before the content.
        EXPECT_EQ(table().decode(record.get(), cut.data(), cut.size(), nullptr, nullptr, 0), QUILL_DECODE_NO_MEMORY);
        // The content, before an allocation function that fails.
        uint64_t calls = 0;
        EXPECT_EQ(table().decode(record.get(), cut.data(), cut.size(), never_allocates, &calls, 0),
                  QUILL_DECODE_MALFORMED);
        EXPECT_EQ(calls, 0U);
        const bytes good = one_of(m);
        EXPECT_EQ(table().decode(record.get(), good.data(), good.size(), never_allocates, &calls, 0),
                  QUILL_DECODE_NO_MEMORY);
        EXPECT_EQ(calls, 1U);
        EXPECT_FALSE(is_present(table(), m, record.get()));
        EXPECT_EQ(pointer_of(m, record.get()), nullptr);
        // "Met again", before the allocation function is asked.
        const bytes again = good + number_member(900, 1) + good;
        counting_allocator blocks;
        blocks.fail_at(m.kind == member_kind::texts ? 3 : 2);
        EXPECT_EQ(table().decode(record.get(), again.data(), again.size(), counting_allocator::alloc, &blocks, 0),
                  QUILL_DECODE_MALFORMED);
        EXPECT_TRUE(is_present(table(), m, record.get()));
        expect_released(table(), record.get(), blocks);
    }
}

TEST_P(RefuseInEveryRecord, NoAllocatorIsNoMemoryAtTheFirstTextOrRun) {
    for (const member &m : table().members) {
        bytes before;
        for (const member &other : table().members) {
            before = is_number(other.kind) || is_nested(other) ? before + one_of(other) : before;
        }
        if (is_number(m.kind) || is_nested(m)) {
            continue;
        }
        SCOPED_TRACE(m.name);
        const bytes message = before + one_of(m);
        raw_record record(table());
        raw_record expected(table());
        EXPECT_EQ(table().decode(expected.get(), before.data(), before.size(), nullptr, nullptr, 0), 0);
        EXPECT_EQ(table().decode(record.get(), message.data(), message.size(), nullptr, nullptr, 0),
                  QUILL_DECODE_NO_MEMORY);
        EXPECT_EQ(difference(table(), record.get(), expected.get()), "");
    }
}

// A failure inside a nested record is the result of the whole; what came before it stays, at every level, and the bits
// of the records under way are clear.
TEST_P(RefuseInEveryRecord, FailureInsideANestedRecord) {
    const struct {
        bytes content;
        int32_t code;
    } cases[] = {{{0x80}, QUILL_DECODE_MALFORMED},
                 {{0x7B}, QUILL_DECODE_BAD_WIRE_TYPE},
                 {{0xF0, 0x03, 0x01, 0x7F, 0x00}, QUILL_DECODE_BAD_WIRE_TYPE}};
    for (const member &m : table().members) {
        if (!is_nested(m)) {
            continue;
        }
        const bytes before = members_before(table(), m);
        for (const auto &c : cases) {
            expect_refused(table(), before, nested_member(m.field, c.content), c.code);
        }
        if (!table_of(m.element).members.empty()) {
            const member &inner = table_of(m.element).members[0];
            expect_refused(table(), before, nested_member(m.field, tag(inner.field, 5) + bytes{1, 2, 3, 4}),
                           QUILL_DECODE_WRONG_WIRE_TYPE);
        }
    }
}

TEST(DecodeFailure, PartsOfANestedRecordStay) {
    decoded<quill_nyx_get_config> get(record_id::get_config,
                                      {0x12, 0x0B, 0x08, 0x05, 0x12, 0x07, 0x0A, 0x01, 'n', 0x20, 0x04, 0x10, 0x00});
    EXPECT_EQ(get.result(), QUILL_DECODE_WRONG_WIRE_TYPE);
    EXPECT_EQ(get->has_filter, 0);
    EXPECT_EQ(get->filter.has_uint32_1, 1);
    EXPECT_EQ(get->filter.uint32_1, 5U);
    EXPECT_EQ(get->filter.has_tree, 0);
    EXPECT_EQ(get->filter.tree.has_name, 1);
    EXPECT_STREQ(get->filter.tree.name, "n");
    EXPECT_EQ(get->filter.tree.has_uint32_4, 1);
    EXPECT_EQ(get->filter.tree.uint32_4, 4U);
    EXPECT_EQ(get->filter.tree.has_value, 0);
    EXPECT_EQ(get->filter.tree.value, nullptr);
}

TEST(DecodeFailure, SecondNestedRecordThatFailsHasReplacedTheFirst) {
    decoded<quill_nyx_lock> lock(record_id::lock, {0x0A, 0x03, 0x0A, 0x01, 'x', 0x0A, 0x02, 0x0A, 0x01});
    EXPECT_EQ(lock.result(), QUILL_DECODE_MALFORMED);
    EXPECT_EQ(lock->has_target, 1);  // of the first; bits are not taken back
    EXPECT_EQ(lock->target.name, nullptr);
    EXPECT_EQ(lock->target.has_name, 0);
    lock.expect_lost(1);
}

TEST(DecodeFailure, SecondNestedRecordWhoseLengthIsWrongLeavesTheFirst) {
    decoded<quill_nyx_lock> lock(record_id::lock, {0x0A, 0x03, 0x0A, 0x01, 'x', 0x0A, 0x7F, 0x0A, 0x01});
    EXPECT_EQ(lock.result(), QUILL_DECODE_MALFORMED);
    EXPECT_EQ(lock->has_target, 1);
    EXPECT_STREQ(lock->target.name, "x");
    EXPECT_EQ(lock->target.has_name, 1);
}

bool all_zero(const void *memory, std::size_t size) {
    const auto *at = static_cast<const uint8_t *>(memory);
    return std::all_of(at, at + size, [](uint8_t byte) { return byte == 0; });
}

TEST(DecodeFailure, ThirdChildHoldsATextThatIsCutShort) {
    decoded<quill_nyx_datatree> tree(record_id::datatree,
                                     {0x20, 0x09, 0x3A, 0x03, 0x0A, 0x01, 'a',  0x3A, 0x03, 0x0A, 0x01, 'b',  //
                                      0x3A, 0x06, 0x0A, 0x01, 'c',  0x12, 0x05, 'v',                          //
                                      0x3A, 0x03, 0x0A, 0x01, 'd',  0x3A, 0x00});
    EXPECT_EQ(tree.result(), QUILL_DECODE_MALFORMED);
    EXPECT_EQ(tree->has_uint32_4, 1);
    EXPECT_EQ(tree->has_children, 0);
    ASSERT_NE(tree->children, nullptr);
    ASSERT_EQ(tree->children_count, 5U);
    EXPECT_EQ(tree.blocks().sizes(), (sizes{5 * sizeof(quill_nyx_datatree), 2, 2, 2}));
    EXPECT_STREQ(tree->children[0].name, "a");
    EXPECT_STREQ(tree->children[1].name, "b");
    EXPECT_STREQ(tree->children[2].name, "c");
    EXPECT_EQ(tree->children[2].has_name, 1);
    EXPECT_EQ(tree->children[2].value, nullptr);
    EXPECT_EQ(tree->children[2].has_value, 0);
    EXPECT_TRUE(all_zero(&tree->children[3], 2 * sizeof(quill_nyx_datatree)));
}

TEST(DecodeFailure, ElementCodeIsReturnedUnchanged) {
    const struct {
        bytes element;
        int32_t code;
    } cases[] = {{{0x0A, 0x01, 'k', 0x0A, 0x01, 'k'}, QUILL_DECODE_MALFORMED},
                 {{0x0A, 0x01, 'k', 0x1B}, QUILL_DECODE_BAD_WIRE_TYPE},
                 {{0x0A, 0x01, 'k', 0x10, 0x01}, QUILL_DECODE_WRONG_WIRE_TYPE}};
    for (const auto &c : cases) {
        decoded<quill_nyx_edit_ins_key> key(
            record_id::edit_ins_key, nested_member(1, {}) + nested_member(1, c.element) + nested_member(1, {0x0A, 0}));
        EXPECT_EQ(key.result(), c.code);
        EXPECT_EQ(key->has_keys, 0);
        ASSERT_EQ(key->keys_count, 3U);
        EXPECT_STREQ(key->keys[1].key, "k");
        EXPECT_TRUE(all_zero(&key->keys[2], sizeof(quill_nyx_attribute)));
        EXPECT_EQ(key.blocks().calls(), 2U);
    }
}

// A later tag of the run has the right number and another type: the element is read as length-delimited.
TEST(DecodeFailure, LaterElementIsReadByItsLengthWhateverItsTagSays) {
    decoded<quill_nyx_node_info> info(record_id::node_info, {0x1A, 0x01, 'a', 0x18, 0x05, 0x10, 0x01});
    EXPECT_EQ(info.result(), QUILL_DECODE_MALFORMED);
    EXPECT_EQ(info.blocks().calls(), 0U);
    EXPECT_EQ(info->strings_3, nullptr);
    EXPECT_EQ(info->strings_3_count, 0U);
}

TEST(DecodeFailure, SplitRunKeepsTheFirst) {
    decoded<quill_nyx_datatree> tree(record_id::datatree,
                                     {0x32, 0x03, 0x0A, 0x01, 'a', 0x32, 0x03, 0x0A, 0x01, 'b', 0x20, 0x05,  //
                                      0x32, 0x03, 0x0A, 0x01, 'c'});
    EXPECT_EQ(tree.result(), QUILL_DECODE_MALFORMED);
    EXPECT_EQ(tree->has_attributes, 1);
    ASSERT_EQ(tree->attributes_count, 2U);
    EXPECT_STREQ(tree->attributes[1].key, "b");
    EXPECT_EQ(tree->uint32_4, 5U);
    EXPECT_EQ(tree.blocks().calls(), 3U);
}

TEST(DecodeFailure, PackedNumbersAreOfTheWrongType) {
    decoded<quill_nyx_notification> notification(record_id::notification, {0x10, 0x07, 0x0A, 0x02, 0x01, 0x02});
    EXPECT_EQ(notification.result(), QUILL_DECODE_WRONG_WIRE_TYPE);
    EXPECT_EQ(notification->uint32_2, 7U);
    EXPECT_EQ(notification->uint32s_1, nullptr);
    EXPECT_EQ(notification.blocks().calls(), 0U);
}

TEST(DecodeFailure, SplitRunOfNumbersKeepsTheFirst) {
    decoded<quill_nyx_notification> notification(record_id::notification,
                                                 {0x08, 0x01, 0x08, 0x02, 0x10, 0x07, 0x08, 0x03});
    EXPECT_EQ(notification.result(), QUILL_DECODE_MALFORMED);
    ASSERT_EQ(notification->uint32s_1_count, 2U);
    EXPECT_EQ(notification->uint32s_1[1], 2U);
    EXPECT_EQ(notification->has_uint32s_1, 1);
    EXPECT_EQ(notification->uint32_2, 7U);
}

TEST(DecodeFailure, ArrayOfTextsIsStoredWithItsFullCountBeforeItsElements) {
    const bytes message = {0x0A, 0x01, 's', 0x10, 0x02, 0x1A, 0x01, 'a', 0x1A, 0x01, 'b', 0x1A, 0x01, 'c'};
    decoded<quill_nyx_node_info> info(record_id::node_info);
    info.blocks().fail_at(4);  // the name, the array, "a", then "b"
    EXPECT_EQ(info.decode(message), QUILL_DECODE_NO_MEMORY);
    EXPECT_EQ(info->has_string_1, 1);
    EXPECT_EQ(info->has_uint32_2, 1);
    EXPECT_EQ(info->has_strings_3, 0);
    ASSERT_NE(info->strings_3, nullptr);
    ASSERT_EQ(info->strings_3_count, 3U);
    EXPECT_STREQ(info->strings_3[0], "a");
    EXPECT_EQ(info->strings_3[1], nullptr);
    EXPECT_EQ(info->strings_3[2], nullptr);
    EXPECT_EQ(info.blocks().sizes(), (sizes{2, 24, 2, 2}));
}

TEST(DecodeFailure, ArrayThatCannotBeAllocatedLeavesNothing) {
    decoded<quill_nyx_notification> notification(record_id::notification);
    notification.blocks().fail_at(1);
    EXPECT_EQ(notification.decode({0x10, 0x01, 0x08, 0x05, 0x08, 0x06}), QUILL_DECODE_NO_MEMORY);
    EXPECT_EQ(notification->has_uint32_2, 1);
    EXPECT_EQ(notification->uint32s_1, nullptr);
    EXPECT_EQ(notification->uint32s_1_count, 0U);
    EXPECT_EQ(notification->has_uint32s_1, 0);
    EXPECT_EQ(notification.blocks().sizes(), (sizes{8}));
}

TEST(DecodeFailure, RecordsWithoutMembersReportReaderAndSkipper) {
    for (const record_id id : {record_id::discard_changes, record_id::schemas_list}) {
        const record_table &table = table_of(id);
        uint8_t record = 0x5C;
        const bytes cut = {0x08, 0x01, 0x80};
        EXPECT_EQ(table.decode(&record, cut.data(), cut.size(), nullptr, nullptr, 0), QUILL_DECODE_MALFORMED);
        const bytes group = {0x08, 0x01, 0x0B};
        EXPECT_EQ(table.decode(&record, group.data(), group.size(), nullptr, nullptr, 0), QUILL_DECODE_BAD_WIRE_TYPE);
        EXPECT_EQ(record, 0x5C);
    }
    decoded<quill_nyx_request> request(record_id::request, {0x08, 0x07, 0xBA, 0x02, 0x01, 0x0B, 0x10, 0x01});
    EXPECT_EQ(request.result(), QUILL_DECODE_BAD_WIRE_TYPE);
    EXPECT_EQ(request->has_type, 1);
    EXPECT_EQ(request->has_discard_changes, 0);
    EXPECT_EQ(request->has_session_id, 0);
}

// Whatever the bytes: one of the codes, nothing read behind them, and everything can be released, once.
void expect_survived(const record_table &table, const uint8_t *input, std::size_t length) {
    counting_allocator blocks;
    raw_record record(table, static_cast<uint8_t>(length));
    const int32_t result = table.decode(record.get(), input, length, counting_allocator::alloc, &blocks, 0);
    EXPECT_TRUE(result == 0 || result == QUILL_DECODE_MALFORMED || result == QUILL_DECODE_BAD_WIRE_TYPE ||
                result == QUILL_DECODE_WRONG_WIRE_TYPE)
        << result;
    table.free(record.get(), counting_allocator::free, &blocks, 0);
    const uint64_t frees = blocks.frees();
    table.free(record.get(), counting_allocator::free, &blocks, 0);
    EXPECT_EQ(blocks.frees(), frees);
    EXPECT_EQ(blocks.complaints(), "");
}

std::vector<bytes> valid_messages(const record_table &table) {
    std::vector<bytes> messages = {full_message(table, 0)};
    build_options options;
    options.canonical = true;
    options.elements = 12;
    options.longest_text = 20;
    for (uint64_t seed = 0; seed < 5; ++seed) {
        const random_record source(table, seed, options);
        bytes message(table.encode(source.get(), nullptr, 0, nullptr, nullptr, 0));
        table.encode(source.get(), message.data(), message.size(), nullptr, nullptr, 0);
        messages.push_back(message);
    }
    return messages;
}

TEST_P(RefuseInEveryRecord, EveryPrefixOfAValidMessage) {
    for (const bytes &message : valid_messages(table())) {
        guarded_input input(message.size());
        for (std::size_t length = 0; length < message.size(); ++length) {
            expect_survived(table(), input.place(message, length), length);
            if (HasFailure()) {
                FAIL() << "prefix of " << length << " bytes of " << testing::PrintToString(message);
            }
        }
    }
}

// The input is one heap block of exactly its length here, so that sanitizers watch both of its ends.
TEST_P(RefuseInEveryRecord, RandomlyDamagedMessages) {
    std::mt19937_64 random(static_cast<uint64_t>(GetParam()));
    for (const bytes &message : valid_messages(table())) {
        for (int round = 0; round < 300 && !message.empty(); ++round) {
            const std::size_t length = 1 + random() % message.size();
            const auto damaged = std::make_unique<uint8_t[]>(length);
            std::copy_n(message.begin(), length, damaged.get());
            for (uint64_t flips = 1 + random() % 4; flips != 0; --flips) {
                damaged[random() % length] ^= static_cast<uint8_t>(1U << random() % 8);
            }
            expect_survived(table(), damaged.get(), length);
            if (HasFailure()) {
                FAIL() << testing::PrintToString(bytes(damaged.get(), damaged.get() + length));
            }
        }
    }
}

TEST_P(RefuseInEveryRecord, Noise) {
    std::mt19937_64 random(1000 + static_cast<uint64_t>(GetParam()));
    for (int round = 0; round < 2000; ++round) {
        const std::size_t length = 1 + random() % 60;
        const auto noise = std::make_unique<uint8_t[]>(length);
        std::generate_n(noise.get(), length, [&] { return static_cast<uint8_t>(random() % 128 & random()); });
        expect_survived(table(), noise.get(), length);
        if (HasFailure()) {
            FAIL() << testing::PrintToString(bytes(noise.get(), noise.get() + length));
        }
    }
}

// Address space filled with one small file over and over: gigabytes of `0A 00` that take megabytes of memory.
class empty_elements {
  public:
    explicit empty_elements(uint64_t length) : size_((length + chunk - 1) / chunk * chunk) {
        const int file = memfd_create("empty elements", 0);
        EXPECT_GE(file, 0);
        EXPECT_EQ(ftruncate(file, chunk), 0);
        memory_ = static_cast<uint8_t *>(mmap(nullptr, size_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        EXPECT_NE(memory_, MAP_FAILED);
        for (uint64_t at = 0; at < size_; at += chunk) {
            EXPECT_NE(mmap(memory_ + at, chunk, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED, file, 0), MAP_FAILED);
        }
        close(file);
        for (uint64_t at = 0; at < chunk; at += 2) {
            memory_[at] = 0x0A;
        }
    }
    empty_elements(const empty_elements &) = delete;
    empty_elements &operator=(const empty_elements &) = delete;
    ~empty_elements() { munmap(memory_, size_); }

    [[nodiscard]] const uint8_t *get() const { return memory_; }

  private:
    static constexpr uint64_t chunk = uint64_t{1} << 25;

    uint64_t size_;
    uint8_t *memory_ = nullptr;
};

TEST(DecodeFailure, RunsOfMoreElementsThanTheCountHolds) {
    if (!release_build) {
        GTEST_SKIP() << "reads 8 GiB: only in optimised builds without sanitizers";
    }
    constexpr uint64_t elements = uint64_t{UINT32_MAX} + 1;
    const empty_elements input(elements * 2);
    quill_nyx_edit_ins_key key;
    uint64_t calls = 0;
    EXPECT_EQ(quill_nyx_edit_ins_key_decode_ext(&key, input.get(), elements * 2, never_allocates, &calls),
              QUILL_DECODE_MALFORMED);
    EXPECT_EQ(calls, 0U);
    EXPECT_EQ(key.keys, nullptr);
    EXPECT_EQ(key.keys_count, 0U);
}

}  // namespace
}  // namespace nyx_test
