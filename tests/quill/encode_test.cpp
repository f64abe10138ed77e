// What the encoder writes, byte by byte.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "quill_nyx.h"
#include "record_tables.h"

namespace {

using nyx_test::member;
using nyx_test::member_kind;
using nyx_test::record_id;
using nyx_test::record_memory;
using nyx_test::record_table;
using nyx_test::table_of;
using bytes = std::vector<uint8_t>;

constexpr uint8_t canary = 0xC3;

bytes operator+(bytes left, const bytes &right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

bytes text_bytes(const std::string &text) {
    return {text.begin(), text.end()};
}

// Records hold plain character pointers; the encoder only reads them.
char *text(const char *literal) {
    return const_cast<char *>(literal);
}

// The encoding in a buffer of just its size.
bytes encoded(record_id id, const void *record) {
    const record_table &table = table_of(id);
    bytes buffer(table.encode(record, nullptr, 0, nullptr, nullptr, 0));
    EXPECT_EQ(table.encode(record, buffer.data(), buffer.size(), nullptr, nullptr, 0), buffer.size());
    return buffer;
}

// What a buffer of this length holds afterwards; the bytes that were not written are canaries.
bytes encoded_into(uint64_t length, record_id id, const void *record) {
    constexpr uint64_t guard = 16;
    bytes buffer(length + guard, canary);
    table_of(id).encode(record, buffer.data(), length, nullptr, nullptr, 0);
    EXPECT_EQ(bytes(buffer.end() - guard, buffer.end()), bytes(guard, canary)) << "written behind the buffer";
    buffer.resize(length);
    return buffer;
}

bytes stop_session_with(uint32_t value) {
    quill_nyx_stop_session record = {};
    record.uint32_1 = value;
    record.has_uint32_1 = 1;
    return encoded(record_id::stop_session, &record);
}

bytes resolve_with(uint64_t value) {
    quill_nyx_mdt_yang_resolve record = {};
    record.uint64_1 = value;
    record.has_uint64_1 = 1;
    return encoded(record_id::mdt_yang_resolve, &record);
}

bytes datastore_with(const char *name) {
    quill_nyx_datastore record = {};
    record.name = text(name);
    record.has_name = 1;
    return encoded(record_id::datastore, &record);
}

// Integers

TEST(EncodeVarint, A32BitMemberTakesOneToFiveBytes) {
    EXPECT_EQ(stop_session_with(1), (bytes{0x08, 0x01}));
    EXPECT_EQ(stop_session_with(127), (bytes{0x08, 0x7F}));
    EXPECT_EQ(stop_session_with(128), (bytes{0x08, 0x80, 0x01}));
    EXPECT_EQ(stop_session_with(300), (bytes{0x08, 0xAC, 0x02}));
    EXPECT_EQ(stop_session_with(16383), (bytes{0x08, 0xFF, 0x7F}));
    EXPECT_EQ(stop_session_with(16384), (bytes{0x08, 0x80, 0x80, 0x01}));
    EXPECT_EQ(stop_session_with(2097151), (bytes{0x08, 0xFF, 0xFF, 0x7F}));
    EXPECT_EQ(stop_session_with(2097152), (bytes{0x08, 0x80, 0x80, 0x80, 0x01}));
    EXPECT_EQ(stop_session_with(268435455), (bytes{0x08, 0xFF, 0xFF, 0xFF, 0x7F}));
    EXPECT_EQ(stop_session_with(268435456), (bytes{0x08, 0x80, 0x80, 0x80, 0x80, 0x01}));
    EXPECT_EQ(stop_session_with(4294967295), (bytes{0x08, 0xFF, 0xFF, 0xFF, 0xFF, 0x0F}));
}

TEST(EncodeVarint, ANegative32BitValueIsNotExtendedTo64Bits) {
    EXPECT_EQ(stop_session_with(static_cast<uint32_t>(-1)), (bytes{0x08, 0xFF, 0xFF, 0xFF, 0xFF, 0x0F}));
    EXPECT_EQ(stop_session_with(static_cast<uint32_t>(-2)), (bytes{0x08, 0xFE, 0xFF, 0xFF, 0xFF, 0x0F}));
}

TEST(EncodeVarint, The64BitMemberIsWrittenInFull) {
    EXPECT_EQ(resolve_with(0), (bytes{0x08, 0x00}));
    EXPECT_EQ(resolve_with(4294967295), (bytes{0x08, 0xFF, 0xFF, 0xFF, 0xFF, 0x0F}));
    EXPECT_EQ(resolve_with(4294967296), (bytes{0x08, 0x80, 0x80, 0x80, 0x80, 0x10}));
    EXPECT_EQ(resolve_with(uint64_t{1} << 35U), (bytes{0x08, 0x80, 0x80, 0x80, 0x80, 0x80, 0x01}));
    EXPECT_EQ(resolve_with((uint64_t{1} << 63U) - 1),
              (bytes{0x08, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x7F}));
    EXPECT_EQ(resolve_with(uint64_t{1} << 63U),
              (bytes{0x08, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x01}));
    EXPECT_EQ(resolve_with(UINT64_MAX), (bytes{0x08, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x01}));
}

TEST(EncodeVarint, AFlagIsTheVarintOfItsByte) {
    const auto with = [](uint8_t value) {
        quill_nyx_notification_stream record = {};
        record.flag_3 = value;
        record.has_flag_3 = 1;
        return encoded(record_id::notification_stream, &record);
    };
    EXPECT_EQ(with(0), (bytes{0x18, 0x00}));
    EXPECT_EQ(with(1), (bytes{0x18, 0x01}));
    EXPECT_EQ(with(2), (bytes{0x18, 0x02}));
    EXPECT_EQ(with(127), (bytes{0x18, 0x7F}));
    EXPECT_EQ(with(128), (bytes{0x18, 0x80, 0x01}));
    EXPECT_EQ(with(255), (bytes{0x18, 0xFF, 0x01}));
}

TEST(EncodeVarint, AFlagKeptIn32BitsIsWrittenAsItStands) {
    quill_nyx_commit commit = {};
    commit.uint32_1 = 300;
    commit.has_uint32_1 = 1;
    EXPECT_EQ(encoded(record_id::commit, &commit), (bytes{0x08, 0xAC, 0x02}));

    quill_nyx_settings_set settings_set = {};
    settings_set.uint32_1 = UINT32_MAX;
    settings_set.has_uint32_1 = 1;
    EXPECT_EQ(encoded(record_id::settings_set, &settings_set), (bytes{0x08, 0xFF, 0xFF, 0xFF, 0xFF, 0x0F}));
}

TEST(EncodePresence, AnIntegerIsWrittenForItsBitAndNotForItsValue) {
    EXPECT_EQ(stop_session_with(0), (bytes{0x08, 0x00}));

    quill_nyx_stop_session record = {};
    record.uint32_1 = 5;
    EXPECT_EQ(encoded(record_id::stop_session, &record), bytes{});

    quill_nyx_commit flags = {};
    flags.flag_5 = 1;
    flags.has_flag_6 = 1;
    EXPECT_EQ(encoded(record_id::commit, &flags), (bytes{0x30, 0x00}));
}

TEST(EncodePresence, ResetValuesAreNotWrittenWithoutTheirBit) {
    quill_nyx_commit record = {};
    record.uint32_2 = 600;
    EXPECT_EQ(encoded(record_id::commit, &record), bytes{});
    record.has_uint32_2 = 1;
    EXPECT_EQ(encoded(record_id::commit, &record), (bytes{0x10, 0xD8, 0x04}));
}

// Strings

TEST(EncodeString, IsTagLengthAndBytesWithoutTheTerminator) {
    EXPECT_EQ(datastore_with("running"), (bytes{0x0A, 0x07, 'r', 'u', 'n', 'n', 'i', 'n', 'g'}));
    EXPECT_EQ(datastore_with("\x01\x80\xFF"), (bytes{0x0A, 0x03, 0x01, 0x80, 0xFF}));
}

TEST(EncodeString, AnEmptyStringIsItsTagAndAZeroLength) {
    EXPECT_EQ(datastore_with(""), (bytes{0x0A, 0x00}));
}

TEST(EncodeString, ANullPointerIsNotWritten) {
    EXPECT_EQ(datastore_with(nullptr), bytes{});
}

TEST(EncodeString, AStringWithoutItsBitIsNotWritten) {
    quill_nyx_datastore record = {};
    record.name = text("running");
    EXPECT_EQ(encoded(record_id::datastore, &record), bytes{});
}

TEST(EncodeString, ItsLengthIsAVarint) {
    for (const auto &[length, prefix] : {std::pair<std::size_t, bytes>{127, {0x0A, 0x7F}},
                                         {128, {0x0A, 0x80, 0x01}},
                                         {16383, {0x0A, 0xFF, 0x7F}},
                                         {16384, {0x0A, 0x80, 0x80, 0x01}}}) {
        const std::string name(length, 'n');
        EXPECT_TRUE(datastore_with(name.c_str()) == prefix + text_bytes(name)) << length;
    }
}

// Short texts and long ones are copied differently: every length comes out whole.
TEST(EncodeString, EveryLengthIsCopiedWhole) {
    std::string name;
    for (std::size_t length = 0; length < 127; ++length) {
        EXPECT_EQ(datastore_with(name.c_str()), (bytes{0x0A, static_cast<uint8_t>(length)} + text_bytes(name)));
        name += static_cast<char>('!' + length % 90);
    }
}

// More strings than the encoder remembers the length of.
TEST(EncodeString, ThousandsOfStringsKeepTheirLengths) {
    std::vector<std::string> names;
    for (std::size_t i = 0; i < 3000; ++i) {
        names.emplace_back(i % 60, static_cast<char>('a' + i % 26));
    }
    std::vector<char *> entries;
    bytes expected;
    for (std::string &name : names) {
        entries.push_back(name.data());
        expected = expected + bytes{0x1A, static_cast<uint8_t>(name.size())} + text_bytes(name);
    }
    quill_nyx_node_info record = {};
    record.strings_3 = entries.data();
    record.strings_3_count = 3000;
    record.has_strings_3 = 1;
    EXPECT_TRUE(encoded(record_id::node_info, &record) == expected);
}

// Nested records

TEST(EncodeNested, AnEmptyRecordIsWrittenForItsBit) {
    quill_nyx_lock record = {};
    EXPECT_EQ(encoded(record_id::lock, &record), bytes{});
    record.has_target = 1;
    EXPECT_EQ(encoded(record_id::lock, &record), (bytes{0x0A, 0x00}));
}

TEST(EncodeNested, ARecordWithContentIsWrittenWithoutItsBit) {
    quill_nyx_lock record = {};
    record.target.name = text("a");
    record.target.has_name = 1;
    EXPECT_EQ(encoded(record_id::lock, &record), (bytes{0x0A, 0x03, 0x0A, 0x01, 'a'}));
}

TEST(EncodeNested, ContentIsFoundAtAnyDepth) {
    quill_nyx_request record = {};
    record.get_config.filter.tree.edit_ins.attribute.key = text("k");
    record.get_config.filter.tree.edit_ins.attribute.has_key = 1;
    EXPECT_EQ(encoded(record_id::request, &record),
              (bytes{0x82, 0x02, 0x0B, 0x12, 0x09, 0x12, 0x07, 0x5A, 0x05, 0x1A, 0x03, 0x0A, 0x01, 'k'}));
}

// A member whose bit is set need not write anything: what counts is the encoding.
TEST(EncodeNested, ARecordThatEncodesToNothingIsNotWrittenWithoutItsBit) {
    quill_nyx_lock record = {};
    record.target.has_name = 1;
    EXPECT_EQ(encoded(record_id::lock, &record), bytes{});
    record.has_target = 1;
    EXPECT_EQ(encoded(record_id::lock, &record), (bytes{0x0A, 0x00}));
}

TEST(EncodeNested, ABitInsideMakesTheHolderNonEmpty) {
    quill_nyx_filter record = {};
    record.tree.has_node_info = 1;
    EXPECT_EQ(encoded(record_id::filter, &record), (bytes{0x12, 0x02, 0x4A, 0x00}));
}

TEST(EncodeNested, NodeInfoOfADataTree) {
    quill_nyx_datatree node = {};
    EXPECT_EQ(encoded(record_id::datatree, &node), bytes{});
    node.has_node_info = 1;
    EXPECT_EQ(encoded(record_id::datatree, &node), (bytes{0x4A, 0x00}));
    node.node_info.uint32_2 = 1;
    node.node_info.has_uint32_2 = 1;
    EXPECT_EQ(encoded(record_id::datatree, &node), (bytes{0x4A, 0x02, 0x10, 0x01}));
}

TEST(EncodeNested, ItsLengthIsAVarint) {
    const std::string name(200, 'n');
    quill_nyx_lock record = {};
    record.target.name = text(name.c_str());
    record.target.has_name = 1;
    EXPECT_EQ(encoded(record_id::lock, &record), (bytes{0x0A, 0xCB, 0x01, 0x0A, 0xC8, 0x01} + text_bytes(name)));
}

TEST(EncodeNested, TheErrorPathNodeOfAFailedRequest) {
    quill_nyx_attribute attribute = {};
    attribute.key = text("xmlns:ns1");
    attribute.has_key = 1;
    attribute.value = text("urn:x");
    attribute.has_value = 1;
    quill_nyx_error error = {};
    error.error_path.name = text(" ");
    error.error_path.has_name = 1;
    error.error_path.value = text("/ns1:a");
    error.error_path.has_value = 1;
    error.error_path.namespace_ = text("urn:x");
    error.error_path.has_namespace = 1;
    error.error_path.attributes = &attribute;
    error.error_path.attributes_count = 1;
    error.error_path.has_attributes = 1;
    EXPECT_EQ(encoded(record_id::error, &error),
              (bytes{0x2A, 0x26, 0x0A, 0x01, ' ', 0x12, 0x06} + text_bytes("/ns1:a") + bytes{0x1A, 0x05} +
               text_bytes("urn:x") + bytes{0x32, 0x12, 0x0A, 0x09} + text_bytes("xmlns:ns1") + bytes{0x12, 0x05} +
               text_bytes("urn:x")));
}

// Repeated members

TEST(EncodeRepeated, ElementsEachHaveATagAndKeepTheirOrder) {
    quill_nyx_datatree children[3] = {};
    children[0].name = text("a");
    children[0].has_name = 1;
    children[2].name = text("c");
    children[2].has_name = 1;
    quill_nyx_datatree node = {};
    node.children = children;
    node.children_count = 3;
    node.has_children = 1;
    EXPECT_EQ(encoded(record_id::datatree, &node),
              (bytes{0x3A, 0x03, 0x0A, 0x01, 'a', 0x3A, 0x00, 0x3A, 0x03, 0x0A, 0x01, 'c'}));
}

TEST(EncodeRepeated, IntegersAreNeverPacked) {
    uint32_t values[3] = {1, 300, 0};
    quill_nyx_notification record = {};
    record.uint32s_1 = values;
    record.uint32s_1_count = 3;
    record.has_uint32s_1 = 1;
    EXPECT_EQ(encoded(record_id::notification, &record), (bytes{0x08, 0x01, 0x08, 0xAC, 0x02, 0x08, 0x00}));
}

TEST(EncodeRepeated, StringsWithoutAnEntryAreLeftOut) {
    char *texts[4] = {text("a"), nullptr, text(""), text("bc")};
    quill_nyx_node_info record = {};
    record.strings_3 = texts;
    record.strings_3_count = 4;
    record.has_strings_3 = 1;
    EXPECT_EQ(encoded(record_id::node_info, &record), (bytes{0x1A, 0x01, 'a', 0x1A, 0x00, 0x1A, 0x02, 'b', 'c'}));
}

// For each of the repeated members of all records: the bit, a count and an array are needed.
TEST(EncodeRepeated, NeedsItsBitACountAndAnArray) {
    unsigned tried = 0;
    for (const record_table &table : nyx_test::record_tables()) {
        for (const member &m : table.members) {
            if (!nyx_test::is_repeated(m.kind)) {
                continue;
            }
            SCOPED_TRACE(std::string(table.name) + '.' + m.name);
            alignas(8) uint8_t element[512] = {};
            char *entry = text("a");
            std::memcpy(element, &entry, m.kind == member_kind::texts ? sizeof entry : 0);
            for (unsigned has = 0; has < 8; ++has) {
                record_memory record(table);
                nyx_test::set_present(table, m, record.get(), (has & 1U) != 0);
                nyx_test::set_count(m, record.get(), (has & 2U) != 0 ? 1 : 0);
                nyx_test::set_pointer(m, record.get(), (has & 4U) != 0 ? element : nullptr);
                EXPECT_EQ(encoded(table.id, record.get()).empty(), has != 7) << has;
                ++tried;
            }
        }
    }
    EXPECT_EQ(tried, 8U * 8U);
}

// Whole records

TEST(EncodeOrder, EditConfigWritesField4BeforeField3) {
    quill_nyx_edit_config record = {};
    record.uint32_2 = 1;
    record.has_uint32_2 = 1;
    record.uint32_4 = 2;
    record.has_uint32_4 = 1;
    record.uint32_3 = 3;
    record.has_uint32_3 = 1;
    EXPECT_EQ(encoded(record_id::edit_config, &record), (bytes{0x10, 0x01, 0x20, 0x02, 0x18, 0x03}));
}

struct expected_record {
    record_id id;
    bytes encoding;
};

std::ostream &operator<<(std::ostream &out, const expected_record &record) {
    return out << table_of(record.id);
}

constexpr uint8_t a = 'a';

// Every member present: numbers are 1, texts "a", nested records empty, repeated members of one such element.
const expected_record full_records[] = {
    {record_id::node_info, {0x0A, 1, a, 0x10, 1, 0x1A, 1, a}},
    {record_id::attribute, {0x0A, 1, a, 0x12, 1, a}},
    {record_id::edit_ins_key, {0x0A, 0, 0x12, 1, a}},
    {record_id::edit_ins, {0x08, 1, 0x12, 0, 0x1A, 0}},
    {record_id::datatree, {0x0A, 1,    a, 0x12, 1, a,    0x1A, 1,    a, 0x20, 1, 0x28, 1, 0x32, 0,    0x3A,
                           0,    0x40, 1, 0x4A, 0, 0x50, 1,    0x5A, 0, 0x60, 1, 0x6A, 1, a,    0x70, 1}},
    {record_id::datastore, {0x0A, 1, a}},
    {record_id::filter, {0x08, 1, 0x12, 0}},
    {record_id::with_defaults, {0x08, 1, 0x10, 1, 0x1A, 1, a, 0x20, 1}},
    {record_id::start_session,
     {0x0A, 1, a, 0x12, 1, a, 0x18, 1, 0x20, 1, 0x2A, 1, a, 0x32, 1, a, 0x3A, 1, a, 0x40, 1, 0x48, 1, 0x52, 1, a}},
    {record_id::stop_session, {0x08, 1, 0x10, 1}},
    {record_id::get_config, {0x0A, 0, 0x12, 0, 0x18, 1, 0x22, 0, 0x2A, 1, a}},
    {record_id::edit_config, {0x0A, 0, 0x10, 1, 0x20, 1, 0x18, 1, 0x2A, 0}},
    {record_id::cli_config, {0x0A, 1, a, 0x10, 1, 0x18, 1}},
    {record_id::validate, {0x0A, 0, 0x12, 0}},
    {record_id::lock, {0x0A, 0}},
    {record_id::unlock, {0x0A, 0}},
    {record_id::commit, {0x08, 1, 0x10, 1, 0x1A, 1, a, 0x22, 1, a, 0x28, 1, 0x30, 1}},
    {record_id::cancel_commit, {0x0A, 1, a}},
    {record_id::discard_changes, {}},
    {record_id::copy_config, {0x0A, 0, 0x12, 1, a, 0x1A, 0, 0x22, 1, a, 0x2A, 0, 0x32, 0}},
    {record_id::delete_config, {0x0A, 0}},
    {record_id::get, {0x0A, 0, 0x10, 1, 0x1A, 0}},
    {record_id::mdt_yang_resolve, {0x08, 1}},
    {record_id::cli_show, {0x0A, 1, a, 0x10, 1}},
    {record_id::create_subscription, {0x0A, 1, a, 0x12, 0, 0x18, 1, 0x20, 1}},
    {record_id::invoke_rpc, {0x08, 1, 0x12, 0}},
    {record_id::notification, {0x08, 1, 0x10, 1, 0x1A, 0}},
    {record_id::notification_internal, {0x08, 1, 0x10, 1, 0x18, 1}},
    {record_id::notification_stream, {0x0A, 1, a, 0x12, 1, a, 0x18, 1, 0x20, 1, 0x28, 1}},
    {record_id::logging_set, {0x08, 1, 0x10, 1, 0x18, 1, 0x20, 1, 0x28, 1, 0x30, 1}},
    {record_id::settings_set, {0x08, 1, 0x10, 1}},
    {record_id::schema, {0x0A, 1, a, 0x12, 1, a,    0x1A, 1,    a, 0x20, 1, 0x2A, 1, a, 0x32, 1, a,
                         0x3A, 1, a, 0x40, 1, 0x48, 1,    0x50, 1, 0x58, 1, 0x62, 1, a, 0x6A, 1, a}},
    {record_id::schemas_list, {}},
    {record_id::request,
     {0x08, 1,    0x10, 1,    0x1A, 1,    a,    0x20, 1,    0x28, 1,    0x30, 1,    0x82, 0x02, 0,    0x8A, 0x02, 0,
      0x92, 0x02, 0,    0x9A, 0x02, 0,    0xA2, 0x02, 0,    0xAA, 0x02, 0,    0xB2, 0x02, 0,    0xBA, 0x02, 0,    0xC2,
      0x02, 0,    0xD2, 0x02, 0,    0xDA, 0x02, 0,    0xE2, 0x02, 0,    0xEA, 0x02, 0,    0xF2, 0x02, 0,    0xFA, 0x02,
      0,    0x82, 0x03, 0,    0x8A, 0x03, 0,    0x92, 0x03, 0,    0x9A, 0x03, 0,    0xA2, 0x03, 0}},
    {record_id::error_message, {0x0A, 1, a, 0x12, 1, a}},
    {record_id::error, {0x08, 1, 0x12, 1, a, 0x18, 1, 0x22, 1, a, 0x2A, 0, 0x32, 0, 0x3A, 0}},
    {record_id::request_result, {0x08, 1, 0x10, 1, 0x1A, 1, a, 0x8A, 0x02, 0}},
    {record_id::response,
     {0x08, 1, 0x10, 1, 0x1A, 1, a, 0x22, 0, 0x2A, 0, 0x82, 0x02, 0, 0x8A, 0x02, 0, 0x92, 0x02, 0, 0x98, 0x02, 1}},
};

class EncodeOf : public testing::TestWithParam<expected_record> {
  protected:
    [[nodiscard]] static const record_table &table() { return table_of(GetParam().id); }

    void give_member(const member &m, void *record) {
        nyx_test::set_present(table(), m, record, true);
        if (nyx_test::is_number(m.kind)) {
            nyx_test::set_number(m, record, 1);
        } else if (m.kind == member_kind::text) {
            nyx_test::set_pointer(m, record, "a");
        } else if (nyx_test::is_repeated(m.kind)) {
            nyx_test::set_count(m, record, 1);
            nyx_test::set_pointer(m, record, one_element(m));
        }
    }

  private:
    const void *one_element(const member &m) {
        switch (m.kind) {
            case member_kind::texts:
                return &entry_;
            case member_kind::numbers32:
                return &number_;
            default:
                return empty_record_;
        }
    }

    const char *entry_ = "a";
    uint32_t number_ = 1;
    alignas(8) uint8_t empty_record_[512] = {};
};

TEST_P(EncodeOf, WritesEveryMemberInOrder) {
    record_memory record(table());
    for (const member &m : table().members) {
        give_member(m, record.get());
    }
    EXPECT_EQ(encoded(GetParam().id, record.get()), GetParam().encoding);
}

TEST_P(EncodeOf, WritesNothingWhenItIsEmpty) {
    const record_memory record(table());
    EXPECT_EQ(encoded(GetParam().id, record.get()), bytes{});
    uint32_t count = 7;
    quill_segment segment = {};
    EXPECT_EQ(table().encode(record.get(), nullptr, 0, &segment, &count, 0), 0U);
    EXPECT_EQ(count, 0U);
    EXPECT_EQ(segment.length, 0U);
}

TEST_P(EncodeOf, IgnoresThePresenceBitsOfNoMember) {
    record_memory record(table());
    const std::size_t used = table().members.size() % 8;
    if (used != 0) {
        auto *presence = static_cast<uint8_t *>(record.get()) + table().presence_offset;
        presence[table().presence_bytes() - 1] = static_cast<uint8_t>(0xFFU << used);
    } else if (table().members.empty()) {
        *static_cast<uint8_t *>(record.get()) = 0xFF;
    }
    EXPECT_EQ(encoded(GetParam().id, record.get()), bytes{});
}

// One member at a time: each depends on its own bit alone.
TEST_P(EncodeOf, WritesOneMemberForOneBit) {
    bytes joined;
    for (const member &m : table().members) {
        record_memory record(table());
        give_member(m, record.get());
        joined = joined + encoded(GetParam().id, record.get());
    }
    EXPECT_EQ(joined, GetParam().encoding);
}

INSTANTIATE_TEST_SUITE_P(Records, EncodeOf, testing::ValuesIn(full_records),
                         [](const auto &instance) { return std::string(table_of(instance.param.id).name); });

TEST(EncodeOfAll, Covers38Records) {
    EXPECT_EQ(std::size(full_records), 38U);
}

TEST(EncodeRequest, AnOperationWithoutContentIsItsTypeAndAnEmptyBody) {
    quill_nyx_request request = {};
    request.type = QUILL_NYX_REQUEST_TYPE_DISCARD_CHANGES;
    request.has_type = 1;
    request.has_discard_changes = 1;
    EXPECT_EQ(encoded(record_id::request, &request), (bytes{0x08, 0x07, 0xBA, 0x02, 0x00}));
}

TEST(EncodeRequest, DeleteConfigHasNoBody) {
    quill_nyx_request request = {};
    request.type = QUILL_NYX_REQUEST_TYPE_DELETE_CONFIG;
    request.has_type = 1;
    EXPECT_EQ(encoded(record_id::request, &request), (bytes{0x08, 0x09}));
}

TEST(EncodeRequest, BodiesAreWrittenWhateverTheTypeSays) {
    quill_nyx_request request = {};
    request.type = QUILL_NYX_REQUEST_TYPE_LOCK;
    request.has_type = 1;
    request.has_unlock = 1;
    request.stop_session.uint32_2 = 4;
    request.stop_session.has_uint32_2 = 1;
    EXPECT_EQ(encoded(record_id::request, &request), (bytes{0x08, 0x03, 0xA2, 0x02, 0x00, 0xE2, 0x02, 0x02, 0x10, 4}));
}

TEST(EncodeResponse, ErrorsWithoutACountAreNotWritten) {
    quill_nyx_response response = {};
    response.has_errors = 1;
    EXPECT_EQ(encoded(record_id::response, &response), bytes{});
}

TEST(EncodeResponse, AResultWithoutAnErrorHasNoField33) {
    quill_nyx_request_result result = {};
    result.uint32_1 = 1;
    result.has_uint32_1 = 1;
    EXPECT_EQ(encoded(record_id::request_result, &result), (bytes{0x08, 0x01}));
}

// Buffers that are too short

class EncodeShort : public testing::Test {
  protected:
    EncodeShort() {
        record_.source.name = text("abc");
        record_.source.has_name = 1;
        record_.uint32_3 = 300;
        record_.has_uint32_3 = 1;
    }

    [[nodiscard]] bytes in(uint64_t length) const { return encoded_into(length, record_id::get_config, &record_); }

    quill_nyx_get_config record_ = {};
};

TEST_F(EncodeShort, HoldsWhatFitsAndNoPartOfAString) {
    constexpr uint8_t x = canary;
    EXPECT_EQ(in(0), bytes{});
    EXPECT_EQ(in(1), (bytes{0x0A}));
    EXPECT_EQ(in(2), (bytes{0x0A, 0x05}));
    EXPECT_EQ(in(3), (bytes{0x0A, 0x05, 0x0A}));
    EXPECT_EQ(in(4), (bytes{0x0A, 0x05, 0x0A, 0x03}));
    EXPECT_EQ(in(5), (bytes{0x0A, 0x05, 0x0A, 0x03, x}));
    EXPECT_EQ(in(6), (bytes{0x0A, 0x05, 0x0A, 0x03, x, x}));
    EXPECT_EQ(in(7), (bytes{0x0A, 0x05, 0x0A, 0x03, 'a', 'b', 'c'}));
    EXPECT_EQ(in(8), (bytes{0x0A, 0x05, 0x0A, 0x03, 'a', 'b', 'c', 0x18}));
    EXPECT_EQ(in(9), (bytes{0x0A, 0x05, 0x0A, 0x03, 'a', 'b', 'c', 0x18, 0xAC}));
    EXPECT_EQ(in(10), (bytes{0x0A, 0x05, 0x0A, 0x03, 'a', 'b', 'c', 0x18, 0xAC, 0x02}));
    EXPECT_EQ(in(12), (bytes{0x0A, 0x05, 0x0A, 0x03, 'a', 'b', 'c', 0x18, 0xAC, 0x02, x, x}));
}

TEST_F(EncodeShort, TheResultIsTheWholeSizeAtAnyLength) {
    bytes buffer(20);
    for (uint64_t length = 0; length <= buffer.size(); ++length) {
        EXPECT_EQ(quill_nyx_get_config_encode_ext(&record_, buffer.data(), length, nullptr, nullptr, 0), 10U);
    }
    EXPECT_EQ(quill_nyx_get_config_encode_ext(&record_, nullptr, 0, nullptr, nullptr, 0), 10U);
}

TEST(EncodeShortString, IsLeftOutWholeAlthoughItsLengthIsStored) {
    constexpr uint8_t x = canary;
    quill_nyx_datastore record = {};
    record.name = text("running");
    record.has_name = 1;
    EXPECT_EQ(encoded_into(8, record_id::datastore, &record), (bytes{0x0A, 0x07, x, x, x, x, x, x}));
}

TEST(EncodeShortString, AnEntryOfAnArrayIsLeftOutToo) {
    constexpr uint8_t x = canary;
    char *texts[2] = {text("ab"), text("cd")};
    quill_nyx_node_info record = {};
    record.strings_3 = texts;
    record.strings_3_count = 2;
    record.has_strings_3 = 1;
    EXPECT_EQ(encoded_into(7, record_id::node_info, &record), (bytes{0x1A, 0x02, 'a', 'b', 0x1A, 0x02, x}));
    EXPECT_EQ(encoded_into(3, record_id::node_info, &record), (bytes{0x1A, 0x02, x}));
}

TEST(EncodeShortNumber, AVarintAcrossTheEndKeepsItsLeadingBytes) {
    quill_nyx_stop_session record = {};
    record.uint32_1 = UINT32_MAX;
    record.has_uint32_1 = 1;
    EXPECT_EQ(encoded_into(3, record_id::stop_session, &record), (bytes{0x08, 0xFF, 0xFF}));
    EXPECT_EQ(encoded_into(5, record_id::stop_session, &record), (bytes{0x08, 0xFF, 0xFF, 0xFF, 0xFF}));
}

TEST(EncodeShortNumber, ATwoByteTagAcrossTheEndKeepsItsFirstByte) {
    quill_nyx_request record = {};
    record.has_discard_changes = 1;
    EXPECT_EQ(encoded_into(1, record_id::request, &record), (bytes{0xBA}));
    EXPECT_EQ(encoded_into(2, record_id::request, &record), (bytes{0xBA, 0x02}));
}

TEST(EncodeShortNumber, ALengthAcrossTheEndKeepsItsLeadingBytes) {
    const std::string name(200, 'n');
    quill_nyx_datastore record = {};
    record.name = text(name.c_str());
    record.has_name = 1;
    EXPECT_EQ(encoded_into(2, record_id::datastore, &record), (bytes{0x0A, 0xC8}));
}

// Segments

// get_config { source { name "x" } } in a request: 82 02 05 | 0A 03 | 0A 01 'x'
class EncodeSegments : public testing::Test {
  protected:
    static constexpr quill_segment untouched = {nullptr, 0x5A5A};

    EncodeSegments() {
        request_.get_config.source.name = text("x");
        request_.get_config.source.has_name = 1;
        request_.get_config.has_source = 1;
        request_.has_get_config = 1;
    }

    uint64_t encode(uint64_t length, uint32_t capacity) {
        count_ = capacity;
        return quill_nyx_request_encode_ext(&request_, buffer_, length, segments_, &count_, 0);
    }

    void expect_segment(std::size_t i, const uint8_t *start, uint64_t length) const {
        EXPECT_EQ(segments_[i].start, start) << i;
        EXPECT_EQ(segments_[i].length, length) << i;
    }

    // From this entry on nothing was stored.
    void expect_untouched_from(std::size_t first) const {
        for (std::size_t i = first; i < std::size(segments_); ++i) {
            expect_segment(i, untouched.start, untouched.length);
        }
    }

    quill_nyx_request request_ = {};
    uint8_t buffer_[16] = {};
    quill_segment segments_[8] = {untouched, untouched, untouched, untouched,
                                  untouched, untouched, untouched, untouched};
    uint32_t count_ = 0;
};

TEST_F(EncodeSegments, NestedRecordsComeBeforeTheirHolders) {
    EXPECT_EQ(encode(16, 8), 8U);
    EXPECT_EQ(bytes(buffer_, buffer_ + 8), (bytes{0x82, 0x02, 0x05, 0x0A, 0x03, 0x0A, 0x01, 'x'}));
    EXPECT_EQ(count_, 3U);
    expect_segment(0, buffer_ + 5, 3);
    expect_segment(1, buffer_ + 3, 5);
    expect_segment(2, buffer_, 8);
    expect_untouched_from(3);
}

TEST_F(EncodeSegments, ExactCapacityHoldsAll) {
    encode(16, 3);
    EXPECT_EQ(count_, 3U);
    expect_segment(0, buffer_ + 5, 3);
    expect_segment(1, buffer_ + 3, 5);
    expect_segment(2, buffer_, 8);
    expect_untouched_from(3);
}

TEST_F(EncodeSegments, SmallCapacityHoldsTheFirstAndCountsAll) {
    encode(16, 2);
    EXPECT_EQ(count_, 3U);
    expect_segment(0, buffer_ + 5, 3);
    expect_segment(1, buffer_ + 3, 5);
    expect_untouched_from(2);
}

TEST_F(EncodeSegments, CapacityOfOneHoldsTheFirstAndCountsAll) {
    encode(16, 1);
    EXPECT_EQ(count_, 3U);
    expect_segment(0, buffer_ + 5, 3);
    expect_untouched_from(1);
}

TEST_F(EncodeSegments, CapacityOfZeroOnlyCounts) {
    EXPECT_EQ(encode(16, 0), 8U);
    EXPECT_EQ(count_, 3U);
    expect_untouched_from(0);
}

TEST_F(EncodeSegments, NoArrayOnlyCountsWhateverTheCapacity) {
    uint32_t count = 5;
    EXPECT_EQ(quill_nyx_request_encode_ext(&request_, buffer_, 16, nullptr, &count, 0), 8U);
    EXPECT_EQ(count, 3U);
    EXPECT_EQ(bytes(buffer_, buffer_ + 8), (bytes{0x82, 0x02, 0x05, 0x0A, 0x03, 0x0A, 0x01, 'x'}));
}

TEST_F(EncodeSegments, NoCountKeepsNoSegments) {
    EXPECT_EQ(quill_nyx_request_encode_ext(&request_, buffer_, 16, segments_, nullptr, 0), 8U);
    expect_untouched_from(0);
}

TEST_F(EncodeSegments, WithoutABufferTheStartsAreNull) {
    count_ = 8;
    EXPECT_EQ(quill_nyx_request_encode_ext(&request_, nullptr, 0, segments_, &count_, 0), 8U);
    EXPECT_EQ(count_, 3U);
    expect_segment(0, nullptr, 3);
    expect_segment(1, nullptr, 5);
    expect_segment(2, nullptr, 8);
    expect_untouched_from(3);
}

// A start lies in the buffer when its first byte does; the whole message starts where the caller said.
TEST_F(EncodeSegments, AStartAtOrBehindTheEndIsNull) {
    encode(6, 8);
    expect_segment(0, buffer_ + 5, 3);
    expect_segment(1, buffer_ + 3, 5);
    expect_segment(2, buffer_, 8);
    encode(5, 8);
    expect_segment(0, nullptr, 3);
    expect_segment(1, buffer_ + 3, 5);
    expect_segment(2, buffer_, 8);
    encode(4, 8);
    expect_segment(0, nullptr, 3);
    expect_segment(1, buffer_ + 3, 5);
    encode(3, 8);
    expect_segment(0, nullptr, 3);
    expect_segment(1, nullptr, 5);
    expect_segment(2, buffer_, 8);
    encode(1, 8);
    expect_segment(2, buffer_, 8);
    EXPECT_EQ(encode(0, 8), 8U);
    EXPECT_EQ(count_, 3U);
    expect_segment(0, nullptr, 3);
    expect_segment(1, nullptr, 5);
    expect_segment(2, buffer_, 8);
}

// A nested record that is present but empty is written and has no entry of its own.
TEST_F(EncodeSegments, AnEmptyRecordHasNoEntry) {
    request_.has_lock = 1;
    EXPECT_EQ(encode(16, 8), 11U);
    EXPECT_EQ(count_, 3U);
    expect_segment(0, buffer_ + 5, 3);
    expect_segment(1, buffer_ + 3, 5);
    expect_segment(2, buffer_, 11);
    expect_untouched_from(3);
}

// The same when a bit inside promises a member that writes nothing, and for elements of arrays.
TEST_F(EncodeSegments, ARecordWhoseMembersWriteNothingHasNoEntry) {
    quill_nyx_datatree child = {};
    request_.lock.target.has_name = 1;
    request_.lock.has_target = 1;
    request_.invoke_rpc.tree.children = &child;
    request_.invoke_rpc.tree.children_count = 1;
    request_.invoke_rpc.tree.has_children = 1;
    // 82 02 05 0A 03 0A 01 'x' | 9A 02 02 0A 00 | 9A 03 04 12 02 3A 00
    EXPECT_EQ(encode(16, 8), 20U);
    EXPECT_EQ(count_, 6U);
    expect_segment(0, buffer_ + 5, 3);
    expect_segment(1, buffer_ + 3, 5);
    expect_segment(2, buffer_ + 11, 2);
    expect_segment(3, nullptr, 2);
    expect_segment(4, nullptr, 4);
    expect_segment(5, buffer_, 20);
    expect_untouched_from(6);
}

TEST_F(EncodeSegments, MembersCountInTheOrderInWhichTheyAreWritten) {
    request_.lock.has_target = 1;
    request_.commit.uint32_2 = 1;
    request_.commit.has_uint32_2 = 1;
    EXPECT_EQ(encode(16, 8), 18U);
    EXPECT_EQ(count_, 5U);
    expect_segment(0, buffer_ + 5, 3);
    expect_segment(1, buffer_ + 3, 5);
    expect_segment(2, buffer_ + 11, 2);
    expect_segment(3, nullptr, 2);
    expect_segment(4, buffer_, 18);
    expect_untouched_from(5);
}

TEST(EncodeSegmentsOfTrees, OneNodeIsOneEntry) {
    quill_nyx_datatree node = {};
    node.name = text("a");
    node.has_name = 1;
    uint8_t buffer[3];
    quill_segment segment = {};
    uint32_t count = 1;
    EXPECT_EQ(quill_nyx_datatree_encode_ext(&node, buffer, 3, &segment, &count, 0), 3U);
    EXPECT_EQ(bytes(buffer, buffer + 3), (bytes{0x0A, 0x01, 0x61}));
    EXPECT_EQ(count, 1U);
    EXPECT_EQ(segment.start, buffer);
    EXPECT_EQ(segment.length, 3U);
}

TEST(EncodeSegmentsOfTrees, SiblingsAttributesAndChildrenComeInPostOrder) {
    quill_nyx_attribute attribute = {};
    attribute.key = text("k");
    attribute.has_key = 1;
    quill_nyx_datatree grandchild = {};
    grandchild.flag_14 = 1;
    grandchild.has_flag_14 = 1;
    quill_nyx_datatree children[2] = {};
    children[0].children = &grandchild;
    children[0].children_count = 1;
    children[0].has_children = 1;
    children[1].uint32_4 = 1;
    children[1].has_uint32_4 = 1;
    quill_nyx_datatree node = {};
    node.attributes = &attribute;
    node.attributes_count = 1;
    node.has_attributes = 1;
    node.children = children;
    node.children_count = 2;
    node.has_children = 1;
    node.node_info.uint32_2 = 1;
    node.node_info.has_uint32_2 = 1;

    bytes buffer(32, canary);
    quill_segment segments[8] = {};
    uint32_t count = 8;
    ASSERT_EQ(quill_nyx_datatree_encode_ext(&node, buffer.data(), buffer.size(), segments, &count, 0), 19U);
    EXPECT_EQ(bytes(buffer.begin(), buffer.begin() + 19),
              (bytes{0x32, 3, 0x0A, 1, 'k', 0x3A, 4, 0x3A, 2, 0x70, 1, 0x3A, 2, 0x20, 1, 0x4A, 2, 0x10, 1}));
    ASSERT_EQ(count, 6U);
    const quill_segment expected[6] = {{&buffer[2], 3},  {&buffer[9], 2},  {&buffer[7], 4},
                                       {&buffer[13], 2}, {&buffer[17], 2}, {buffer.data(), 19}};
    for (std::size_t i = 0; i < 6; ++i) {
        EXPECT_EQ(segments[i].start, expected[i].start) << i;
        EXPECT_EQ(segments[i].length, expected[i].length) << i;
    }
}

TEST(EncodeSegmentsOfEmptyRecords, TheCountBecomesZero) {
    const quill_nyx_discard_changes discard_changes = {0xFF};
    const quill_nyx_schemas_list schemas_list = {0xFF};
    uint8_t buffer[4] = {canary, canary, canary, canary};
    uint32_t count = 9;
    EXPECT_EQ(quill_nyx_discard_changes_encode_ext(&discard_changes, buffer, 4, nullptr, &count), 0U);
    EXPECT_EQ(count, 0U);
    count = 9;
    EXPECT_EQ(quill_nyx_schemas_list_encode_ext(&schemas_list, buffer, 4, nullptr, &count), 0U);
    EXPECT_EQ(count, 0U);
    EXPECT_EQ(quill_nyx_discard_changes_encode_ext(&discard_changes, buffer, 4, nullptr, nullptr), 0U);
    EXPECT_EQ(quill_nyx_schemas_list_encode_ext(&schemas_list, buffer, 4, nullptr, nullptr), 0U);
    EXPECT_EQ(bytes(buffer, buffer + 4), bytes(4, canary));
}

}  // namespace
