// Input that changes while it is decoded, as it may in memory that another process shares: what was measured is no
// longer there when it is read. Nothing behind the input is looked at, and what was made can be given back.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <utility>

#include "decode_fixture.h"

namespace nyx_test {
namespace {

// An allocator that does something else besides: `change` is done at every call, before the block is handed out.
struct meddling_allocator {
    counting_allocator blocks;
    std::function<void(uint64_t call)> change;

    static void *alloc(uint64_t size, void *allocator) {
        auto *const self = static_cast<meddling_allocator *>(allocator);
        void *const block = counting_allocator::alloc(size, &self->blocks);
        self->change(self->blocks.calls());
        return block;
    }
};

// A record decoded from a message of which bytes turn into others at the first allocation, that of the array. The run
// was measured then, and is about to be read again. Behind the message is unreadable memory.
template <class Record>
class changed_input {
  public:
    changed_input(record_id id, const bytes &message) : table_(table_of(id)), input_(message.size()) {
        std::memset(static_cast<void *>(&record_), 0xA5, sizeof record_);
        at_ = const_cast<uint8_t *>(input_.place(message, message.size()));
        size_ = message.size();
    }
    changed_input(const changed_input &) = delete;
    changed_input &operator=(const changed_input &) = delete;
    ~changed_input() { expect_released(table_, &record_, memory_.blocks); }

    int32_t decode_while(const std::function<void(uint8_t *message)> &change) {
        memory_.change = [&](uint64_t call) {
            if (call == 1) {
                change(at_);
            }
        };
        return table_.decode(&record_, at_, size_, meddling_allocator::alloc, &memory_, 0);
    }

    Record *operator->() { return &record_; }
    counting_allocator &blocks() { return memory_.blocks; }

  private:
    const record_table &table_;
    Record record_;
    guarded_input input_;
    meddling_allocator memory_;
    uint8_t *at_ = nullptr;
    std::size_t size_ = 0;
};

// Every byte from one on has its highest bit set: no varint ends any more.
std::function<void(uint8_t *)> without_end(std::size_t from, std::size_t to) {
    return [from, to](uint8_t *message) { std::memset(message + from, 0x80, to - from); };
}

TEST(DecodeOfChangingInput, TagOfALaterTextWithoutAnEnd) {
    const bytes message = text_member(3, "ab") + text_member(3, "cd");
    changed_input<quill_nyx_node_info> record(record_id::node_info, message);
    EXPECT_EQ(record.decode_while(without_end(4, message.size())), QUILL_DECODE_MALFORMED);
    ASSERT_EQ(record->strings_3_count, 2U);
    EXPECT_STREQ(record->strings_3[0], "ab");
    EXPECT_EQ(record->strings_3[1], nullptr);
    EXPECT_EQ(record->has_strings_3, 0);
    EXPECT_EQ(record.blocks().live_blocks(), 2U);
}

TEST(DecodeOfChangingInput, LengthOfALaterTextBeyondTheEnd) {
    const bytes message = text_member(3, "ab") + text_member(3, "cd");
    changed_input<quill_nyx_node_info> record(record_id::node_info, message);
    EXPECT_EQ(record.decode_while([](uint8_t *at) { at[5] = 3; }), QUILL_DECODE_MALFORMED);
    ASSERT_EQ(record->strings_3_count, 2U);
    EXPECT_STREQ(record->strings_3[0], "ab");
    EXPECT_EQ(record->strings_3[1], nullptr);
    EXPECT_EQ(record->has_strings_3, 0);
}

TEST(DecodeOfChangingInput, TagOfALaterNumberWithoutAnEnd) {
    const bytes message = number_member(1, 7) + number_member(1, 8) + number_member(1, 9);
    changed_input<quill_nyx_notification> record(record_id::notification, message);
    EXPECT_EQ(record.decode_while(without_end(2, message.size())), QUILL_DECODE_MALFORMED);
    ASSERT_EQ(record->uint32s_1_count, 3U);
    EXPECT_EQ(record->uint32s_1[0], 7U);
    EXPECT_EQ(record->uint32s_1[1], 0U);
    EXPECT_EQ(record->uint32s_1[2], 0U);
    EXPECT_EQ(record->has_uint32s_1, 0);
}

TEST(DecodeOfChangingInput, LaterNumberWithoutAnEnd) {
    const bytes message = number_member(1, 7) + number_member(1, 8) + number_member(1, 9);
    changed_input<quill_nyx_notification> record(record_id::notification, message);
    EXPECT_EQ(record.decode_while(without_end(3, message.size())), QUILL_DECODE_MALFORMED);
    ASSERT_EQ(record->uint32s_1_count, 3U);
    EXPECT_EQ(record->uint32s_1[0], 7U);
    EXPECT_EQ(record->uint32s_1[1], 0U);
    EXPECT_EQ(record->has_uint32s_1, 0);
}

TEST(DecodeOfChangingInput, FirstNumberWithoutAnEnd) {
    const bytes message = number_member(1, 7) + number_member(1, 8);
    changed_input<quill_nyx_notification> record(record_id::notification, message);
    EXPECT_EQ(record.decode_while(without_end(1, message.size())), QUILL_DECODE_MALFORMED);
    ASSERT_EQ(record->uint32s_1_count, 2U);
    EXPECT_EQ(record->uint32s_1[0], 0U);
    EXPECT_EQ(record->uint32s_1[1], 0U);
}

// Attributes with a key each. The array is the first block, the first key the second.
bytes attributes(int count) {
    bytes message;
    for (int i = 0; i < count; ++i) {
        message = message + nested_member(6, text_member(1, "k"));
    }
    return message;
}

constexpr std::size_t attribute_size = 5;

TEST(DecodeOfChangingInput, TagOfALaterRecordWithoutAnEnd) {
    const bytes message = attributes(3);
    changed_input<quill_nyx_datatree> record(record_id::datatree, message);
    EXPECT_EQ(record.decode_while(without_end(attribute_size, message.size())), QUILL_DECODE_MALFORMED);
    ASSERT_EQ(record->attributes_count, 3U);
    EXPECT_STREQ(record->attributes[0].key, "k");
    EXPECT_EQ(record->attributes[0].has_key, 1);
    for (const std::size_t behind : {1U, 2U}) {
        EXPECT_EQ(record->attributes[behind].key, nullptr);
        EXPECT_EQ(record->attributes[behind].has_key, 0);
    }
    EXPECT_EQ(record->has_attributes, 0);
    EXPECT_EQ(record.blocks().live_blocks(), 2U);
}

TEST(DecodeOfChangingInput, LengthOfALaterRecordBeyondTheEnd) {
    const bytes message = attributes(3);
    changed_input<quill_nyx_datatree> record(record_id::datatree, message);
    EXPECT_EQ(record.decode_while([](uint8_t *at) { at[attribute_size + 1] = 0x7F; }), QUILL_DECODE_MALFORMED);
    ASSERT_EQ(record->attributes_count, 3U);
    EXPECT_STREQ(record->attributes[0].key, "k");
    EXPECT_EQ(record->attributes[1].key, nullptr);
    EXPECT_EQ(record->attributes[2].key, nullptr);
}

// A run is as long as it was when it was counted, wherever its elements lie now.
TEST(DecodeOfChangingInput, LaterRecordThatHasBecomeLongerSwallowsTheNext) {
    const bytes message = attributes(3);
    changed_input<quill_nyx_datatree> record(record_id::datatree, message);
    const auto lengthen = [](uint8_t *at) {
        at[attribute_size + 1] = 3 + attribute_size;  // the second element holds the third, as a field it does not know
    };
    EXPECT_EQ(record.decode_while(lengthen), QUILL_DECODE_MALFORMED);
    ASSERT_EQ(record->attributes_count, 3U);
    EXPECT_STREQ(record->attributes[1].key, "k");
    EXPECT_EQ(record->attributes[2].key, nullptr);
    EXPECT_EQ(record.blocks().live_blocks(), 3U);
}

}  // namespace
}  // namespace nyx_test
