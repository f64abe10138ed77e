// The decoder against the literal one: the same result, record and allocations for any message, also when an allocation
// fails, and all blocks come back that the record has not lost.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "decode_fixture.h"
#include "literal_decoder.h"

namespace nyx_test {
namespace {

// Returns where the decoders differ; empty: nowhere. `seen` gets what the literal decoder said.
std::string compare(const record_table &table, const bytes &message, uint64_t failing, literal_outcome &seen) {
    guarded_input input(message.size());
    counting_allocator blocks;
    counting_allocator expected_blocks;
    raw_record record(table);
    record_memory expected(table);
    blocks.fail_at(failing);
    expected_blocks.fail_at(failing);
    const int32_t result = table.decode(record.get(), input.place(message, message.size()), message.size(),
                                        counting_allocator::alloc, &blocks, 0);
    seen = literal_decode(table, expected.get(), message.data(), message.size(), counting_allocator::alloc,
                          &expected_blocks);
    if (result != seen.result) {
        return "result " + std::to_string(result) + " / " + std::to_string(seen.result);
    }
    if (blocks.sizes() != expected_blocks.sizes()) {
        return "allocations";
    }
    std::string found = difference(table, record.get(), expected.get());
    if (found.empty()) {
        expect_released(table, record.get(), blocks, seen.lost);
    }
    return found;
}

bytes random_message(const record_table &table, uint64_t seed) {
    build_options options;
    options.canonical = true;
    options.elements = 12;
    options.longest_text = 40;
    const random_record source(table, seed, options);
    bytes message(table.encode(source.get(), nullptr, 0, nullptr, nullptr, 0));
    table.encode(source.get(), message.data(), message.size(), nullptr, nullptr, 0);
    return message;
}

// What a message holds, once more behind it or in its midst, cut, with some bits changed, or with a member that comes
// empty behind it.
bytes disturbed(const record_table &table, const bytes &message, std::mt19937_64 &random) {
    bytes out = message;
    switch (random() % 5) {
        case 0:
            return message + message;
        case 1:
            out.resize(random() % (out.size() + 1));
            break;
        case 2:
            out.insert(out.begin() + static_cast<std::ptrdiff_t>(random() % (out.size() + 1)), message.begin(),
                       message.end());
            break;
        case 3:
            return table.members.empty()
                       ? message
                       : message + nested_member(table.members[random() % table.members.size()].field, {});
        default:
            for (uint64_t flips = 1 + random() % 4; flips != 0 && !out.empty(); --flips) {
                out[random() % out.size()] ^= static_cast<uint8_t>(1U << random() % 8);
            }
    }
    return out;
}

std::vector<bytes> messages_of(const record_table &table) {
    std::mt19937_64 random(static_cast<uint64_t>(table.id));
    std::vector<bytes> messages = {{}, full_message(table, 1)};
    for (uint64_t seed = 0; seed < 20; ++seed) {
        messages.push_back(random_message(table, seed));
        for (int round = 0; round < 20; ++round) {
            messages.push_back(disturbed(table, messages[random() % messages.size()], random));
        }
    }
    std::erase_if(messages, [](const bytes &message) { return message.size() > 20000; });
    return messages;
}

class DecodeLikeTheLiteralDecoder : public testing::TestWithParam<record_id> {
  protected:
    [[nodiscard]] static const record_table &table() { return table_of(GetParam()); }
};

INSTANTIATE_TEST_SUITE_P(All, DecodeLikeTheLiteralDecoder, every_record(), record_name);

TEST_P(DecodeLikeTheLiteralDecoder, AnyMessage) {
    for (const bytes &message : messages_of(table())) {
        literal_outcome seen;
        ASSERT_EQ(compare(table(), message, 0, seen), "") << testing::PrintToString(message);
    }
}

TEST_P(DecodeLikeTheLiteralDecoder, EachOfTheFirstAllocationsFailing) {
    std::vector<bytes> messages = messages_of(table());
    messages.resize(60);
    for (const bytes &message : messages) {
        literal_outcome seen;
        for (uint64_t n = 1; n <= 20; ++n) {
            ASSERT_EQ(compare(table(), message, n, seen), "") << n << " of " << testing::PrintToString(message);
            if (seen.result != QUILL_DECODE_NO_MEMORY) {
                break;
            }
        }
    }
}

TEST_P(DecodeLikeTheLiteralDecoder, WithoutAnAllocationFunction) {
    for (const bytes &message : messages_of(table())) {
        raw_record record(table());
        record_memory expected(table());
        const literal_outcome seen =
            literal_decode(table(), expected.get(), message.data(), message.size(), nullptr, nullptr);
        EXPECT_EQ(table().decode(record.get(), message.data(), message.size(), nullptr, nullptr, 0), seen.result);
        ASSERT_EQ(difference(table(), record.get(), expected.get()), "") << testing::PrintToString(message);
    }
}

// Otherwise the comparisons above would say little.
TEST(LiteralDecoder, MessagesOfTheseTestsHaveEveryResult) {
    std::set<int32_t> results;
    uint64_t losing = 0;
    for (const record_table &table : record_tables()) {
        for (const bytes &message : messages_of(table)) {
            literal_outcome seen;
            EXPECT_EQ(compare(table, message, 0, seen), "");
            results.insert(seen.result);
            losing += seen.lost != 0 ? 1 : 0;
        }
    }
    EXPECT_EQ(results,
              (std::set<int32_t>{0, QUILL_DECODE_MALFORMED, QUILL_DECODE_BAD_WIRE_TYPE, QUILL_DECODE_WRONG_WIRE_TYPE}));
    EXPECT_GT(losing, 20U);
}

TEST(LiteralDecoder, CountsTheBlocksOfAFormerOccurrence) {
    const record_table &table = table_of(record_id::filter);
    const bytes tree = text_member(1, "one") + nested_member(6, text_member(1, "k")) +
                       nested_member(7, text_member(1, "child")) + nested_member(9, text_member(3, "s"));
    counting_allocator blocks;
    record_memory record(table);
    const bytes once = nested_member(2, tree);
    EXPECT_EQ(literal_decode(table, record.get(), once.data(), once.size(), counting_allocator::alloc, &blocks).lost,
              0U);
    // The name; an attribute and a child, each an array with a text; an array of texts and its text.
    const bytes twice = once + nested_member(2, {});
    EXPECT_EQ(literal_decode(table, record.get(), twice.data(), twice.size(), counting_allocator::alloc, &blocks).lost,
              7U);
}

}  // namespace
}  // namespace nyx_test
