// The records are shared between separately built programs: where everything lies must never move.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <ostream>
#include <span>
#include <string>
#include <type_traits>
#include <vector>

#include "quill_nyx.h"
#include "record_builder.h"
#include "record_compare.h"
#include "record_tables.h"

// In layout_c.c.
extern "C" void set_bits_in_c(quill_nyx_datatree *node, quill_nyx_request *request);

namespace {

using nyx_test::member;
using nyx_test::member_kind;
using nyx_test::no_count;
using nyx_test::record_id;
using nyx_test::record_table;
using nyx_test::table_of;

// What the compiler makes of a member.
struct seen_member {
    const char *name;
    std::size_t offset;
    std::size_t size;
    std::size_t count_offset;
    void (*set_bit)(void *record);
};

// Stands for the offset of the count of a member that has another type than expected.
constexpr std::size_t wrong_type = no_count - 1;

#define MEMBER_CALLED(record, field, called, ...)                                                       \
    {                                                                                                   \
#called, offsetof(quill_nyx_##record, field), sizeof(__VA_ARGS__),                              \
            std::is_same_v < decltype(quill_nyx_##record::field), __VA_ARGS__> ? no_count : wrong_type, \
            [](void *r) { static_cast<quill_nyx_##record *>(r)->has_##called = 1; }                     \
    }
#define MEMBER(record, field, ...) MEMBER_CALLED(record, field, field, __VA_ARGS__)
#define ARRAY(record, field, ...)                                                        \
    {                                                                                    \
#field, offsetof(quill_nyx_##record, field), sizeof(__VA_ARGS__),                \
            std::is_same_v < decltype(quill_nyx_##record::field),                        \
            __VA_ARGS__> &&std::is_same_v < decltype(quill_nyx_##record::field##_count), \
            uint32_t> ? offsetof(quill_nyx_##record, field##_count) : wrong_type,        \
            [](void *r) { static_cast<quill_nyx_##record *>(r)->has_##field = 1; }       \
    }

const seen_member seen_node_info[] = {
    MEMBER(node_info, string_1, char *),
    MEMBER(node_info, uint32_2, uint32_t),
    ARRAY(node_info, strings_3, char **),
};

const seen_member seen_attribute[] = {
    MEMBER(attribute, key, char *),
    MEMBER(attribute, value, char *),
};

const seen_member seen_edit_ins_key[] = {
    ARRAY(edit_ins_key, keys, quill_nyx_attribute *),
    MEMBER(edit_ins_key, value, char *),
};

const seen_member seen_edit_ins[] = {
    MEMBER(edit_ins, insert, uint32_t),
    MEMBER(edit_ins, key, quill_nyx_edit_ins_key),
    MEMBER(edit_ins, attribute, quill_nyx_attribute),
};

const seen_member seen_datatree[] = {
    MEMBER(datatree, name, char *),
    MEMBER(datatree, value, char *),
    MEMBER_CALLED(datatree, namespace_, namespace, char *),
    MEMBER(datatree, uint32_4, uint32_t),
    MEMBER(datatree, operation, uint32_t),
    ARRAY(datatree, attributes, quill_nyx_attribute *),
    ARRAY(datatree, children, quill_nyx_datatree *),
    MEMBER(datatree, uint32_8, uint32_t),
    MEMBER(datatree, node_info, quill_nyx_node_info),
    MEMBER(datatree, flag_10, uint8_t),
    MEMBER(datatree, edit_ins, quill_nyx_edit_ins),
    MEMBER(datatree, node_kind, uint32_t),
    MEMBER(datatree, string_13, char *),
    MEMBER(datatree, flag_14, uint8_t),
};

const seen_member seen_datastore[] = {
    MEMBER(datastore, name, char *),
};

const seen_member seen_filter[] = {
    MEMBER(filter, uint32_1, uint32_t),
    MEMBER(filter, tree, quill_nyx_datatree),
};

const seen_member seen_with_defaults[] = {
    MEMBER(with_defaults, uint32_1, uint32_t),
    MEMBER(with_defaults, uint32_2, uint32_t),
    MEMBER(with_defaults, string_3, char *),
    MEMBER(with_defaults, uint32_4, uint32_t),
};

const seen_member seen_start_session[] = {
    MEMBER(start_session, string_1, char *),   MEMBER(start_session, string_2, char *),
    MEMBER(start_session, uint32_3, uint32_t), MEMBER(start_session, flag_4, uint8_t),
    MEMBER(start_session, string_5, char *),   MEMBER(start_session, string_6, char *),
    MEMBER(start_session, string_7, char *),   MEMBER(start_session, uint32_8, uint32_t),
    MEMBER(start_session, flag_9, uint8_t),    MEMBER(start_session, string_10, char *),
};

const seen_member seen_stop_session[] = {
    MEMBER(stop_session, uint32_1, uint32_t),
    MEMBER(stop_session, uint32_2, uint32_t),
};

const seen_member seen_get_config[] = {
    MEMBER(get_config, source, quill_nyx_datastore),
    MEMBER(get_config, filter, quill_nyx_filter),
    MEMBER(get_config, uint32_3, uint32_t),
    MEMBER(get_config, with_defaults, quill_nyx_with_defaults),
    MEMBER(get_config, string_5, char *),
};

const seen_member seen_edit_config[] = {
    MEMBER(edit_config, target, quill_nyx_datastore), MEMBER(edit_config, uint32_2, uint32_t),
    MEMBER(edit_config, uint32_4, uint32_t),          MEMBER(edit_config, uint32_3, uint32_t),
    MEMBER(edit_config, config, quill_nyx_datatree),
};

const seen_member seen_cli_config[] = {
    MEMBER(cli_config, string_1, char *),
    MEMBER(cli_config, uint32_2, uint32_t),
    MEMBER(cli_config, uint32_3, uint32_t),
};

const seen_member seen_validate[] = {
    MEMBER(validate, source, quill_nyx_datastore),
    MEMBER(validate, config, quill_nyx_datatree),
};

const seen_member seen_lock[] = {
    MEMBER(lock, target, quill_nyx_datastore),
};

const seen_member seen_unlock[] = {
    MEMBER(unlock, target, quill_nyx_datastore),
};

const seen_member seen_commit[] = {
    MEMBER(commit, uint32_1, uint32_t), MEMBER(commit, uint32_2, uint32_t), MEMBER(commit, string_3, char *),
    MEMBER(commit, string_4, char *),   MEMBER(commit, flag_5, uint8_t),    MEMBER(commit, flag_6, uint8_t),
};

const seen_member seen_cancel_commit[] = {
    MEMBER(cancel_commit, string_1, char *),
};

const seen_member seen_copy_config[] = {
    MEMBER(copy_config, target, quill_nyx_datastore), MEMBER(copy_config, string_2, char *),
    MEMBER(copy_config, source, quill_nyx_datastore), MEMBER(copy_config, string_4, char *),
    MEMBER(copy_config, config, quill_nyx_datatree),  MEMBER(copy_config, with_defaults, quill_nyx_with_defaults),
};

const seen_member seen_delete_config[] = {
    MEMBER(delete_config, target, quill_nyx_datastore),
};

const seen_member seen_get[] = {
    MEMBER(get, filter, quill_nyx_filter),
    MEMBER(get, uint32_2, uint32_t),
    MEMBER(get, with_defaults, quill_nyx_with_defaults),
};

const seen_member seen_mdt_yang_resolve[] = {
    MEMBER(mdt_yang_resolve, uint64_1, uint64_t),
};

const seen_member seen_cli_show[] = {
    MEMBER(cli_show, string_1, char *),
    MEMBER(cli_show, uint32_2, uint32_t),
};

const seen_member seen_create_subscription[] = {
    MEMBER(create_subscription, string_1, char *),
    MEMBER(create_subscription, filter, quill_nyx_filter),
    MEMBER(create_subscription, uint32_3, uint32_t),
    MEMBER(create_subscription, uint32_4, uint32_t),
};

const seen_member seen_invoke_rpc[] = {
    MEMBER(invoke_rpc, uint32_1, uint32_t),
    MEMBER(invoke_rpc, tree, quill_nyx_datatree),
};

const seen_member seen_notification[] = {
    ARRAY(notification, uint32s_1, uint32_t *),
    MEMBER(notification, uint32_2, uint32_t),
    MEMBER(notification, tree, quill_nyx_datatree),
};

const seen_member seen_notification_internal[] = {
    MEMBER(notification_internal, uint32_1, uint32_t),
    MEMBER(notification_internal, uint32_2, uint32_t),
    MEMBER(notification_internal, uint32_3, uint32_t),
};

const seen_member seen_notification_stream[] = {
    MEMBER(notification_stream, string_1, char *),   MEMBER(notification_stream, string_2, char *),
    MEMBER(notification_stream, flag_3, uint8_t),    MEMBER(notification_stream, uint32_4, uint32_t),
    MEMBER(notification_stream, uint32_5, uint32_t),
};

const seen_member seen_logging_set[] = {
    MEMBER(logging_set, uint32_1, uint32_t), MEMBER(logging_set, uint32_2, uint32_t),
    MEMBER(logging_set, uint32_3, uint32_t), MEMBER(logging_set, flag_4, uint8_t),
    MEMBER(logging_set, flag_5, uint8_t),    MEMBER(logging_set, flag_6, uint8_t),
};

const seen_member seen_settings_set[] = {
    MEMBER(settings_set, uint32_1, uint32_t),
    MEMBER(settings_set, uint32_2, uint32_t),
};

const seen_member seen_schema[] = {
    MEMBER(schema, string_1, char *),  MEMBER(schema, string_2, char *), MEMBER(schema, string_3, char *),
    MEMBER(schema, flag_4, uint8_t),   MEMBER(schema, string_5, char *), MEMBER(schema, string_6, char *),
    MEMBER(schema, string_7, char *),  MEMBER(schema, flag_8, uint8_t),  MEMBER(schema, flag_9, uint8_t),
    MEMBER(schema, flag_10, uint8_t),  MEMBER(schema, flag_11, uint8_t), MEMBER(schema, string_12, char *),
    MEMBER(schema, string_13, char *),
};

const seen_member seen_request[] = {
    MEMBER(request, type, uint32_t),
    MEMBER(request, session_id, uint32_t),
    MEMBER(request, message_id, char *),
    MEMBER(request, uint32_4, uint32_t),
    MEMBER(request, flag_5, uint8_t),
    MEMBER(request, flag_6, uint8_t),
    MEMBER(request, get_config, quill_nyx_get_config),
    MEMBER(request, edit_config, quill_nyx_edit_config),
    MEMBER(request, validate, quill_nyx_validate),
    MEMBER(request, lock, quill_nyx_lock),
    MEMBER(request, unlock, quill_nyx_unlock),
    MEMBER(request, commit, quill_nyx_commit),
    MEMBER(request, cancel_commit, quill_nyx_cancel_commit),
    MEMBER(request, discard_changes, quill_nyx_discard_changes),
    MEMBER(request, copy_config, quill_nyx_copy_config),
    MEMBER(request, get, quill_nyx_get),
    MEMBER(request, start_session, quill_nyx_start_session),
    MEMBER(request, stop_session, quill_nyx_stop_session),
    MEMBER(request, logging_set, quill_nyx_logging_set),
    MEMBER(request, schemas_list, quill_nyx_schemas_list),
    MEMBER(request, cli_show, quill_nyx_cli_show),
    MEMBER(request, cli_config, quill_nyx_cli_config),
    MEMBER(request, settings_set, quill_nyx_settings_set),
    MEMBER(request, mdt_yang_resolve, quill_nyx_mdt_yang_resolve),
    MEMBER(request, invoke_rpc, quill_nyx_invoke_rpc),
    MEMBER(request, create_subscription, quill_nyx_create_subscription),
};

const seen_member seen_error_message[] = {
    MEMBER(error_message, string_1, char *),
    MEMBER(error_message, text, char *),
};

const seen_member seen_error[] = {
    MEMBER(error, error_type, uint32_t),           MEMBER(error, error_tag, char *),
    MEMBER(error, error_severity, uint32_t),       MEMBER(error, error_app_tag, char *),
    MEMBER(error, error_path, quill_nyx_datatree), MEMBER(error, error_message, quill_nyx_error_message),
    MEMBER(error, error_info, quill_nyx_datatree),
};

const seen_member seen_request_result[] = {
    MEMBER(request_result, uint32_1, uint32_t),
    MEMBER(request_result, uint32_2, uint32_t),
    MEMBER(request_result, string_3, char *),
    MEMBER(request_result, error, quill_nyx_error),
};

const seen_member seen_response[] = {
    MEMBER(response, uint32_1, uint32_t),
    MEMBER(response, uint32_2, uint32_t),
    MEMBER(response, string_3, char *),
    ARRAY(response, schemas, quill_nyx_schema *),
    ARRAY(response, streams, quill_nyx_notification_stream *),
    MEMBER(response, tree, quill_nyx_datatree),
    MEMBER(response, error, quill_nyx_error),
    ARRAY(response, errors, quill_nyx_error *),
    MEMBER(response, flag_35, uint8_t),
};

struct seen_record {
    record_id id;
    const char *name;
    std::size_t size;
    bool passes_through;
    bool prototypes_agree;
    std::span<const seen_member> members;
};

// Whether the three functions that may take a last argument all take it, or none does, as expected.
template <class Record, class Encode, class Decode, class Free>
constexpr bool prototypes_agree(bool expected, Encode /*encode*/, Decode /*decode*/, Free /*free*/) {
    const bool with =
        std::is_invocable_v<Encode, const Record *, uint8_t *, uint64_t, quill_segment *, uint32_t *, uint32_t> &&
        std::is_invocable_v<Decode, Record *, const uint8_t *, uint64_t, quill_alloc_fn, void *, uint32_t> &&
        std::is_invocable_v<Free, Record *, quill_free_fn, void *, uint32_t>;
    const bool without =
        std::is_invocable_v<Encode, const Record *, uint8_t *, uint64_t, quill_segment *, uint32_t *> &&
        std::is_invocable_v<Decode, Record *, const uint8_t *, uint64_t, quill_alloc_fn, void *> &&
        std::is_invocable_v<Free, Record *, quill_free_fn, void *>;
    return expected ? with && !without : without && !with;
}

#define RECORD(record, passes_through, members)                                                                   \
    {                                                                                                             \
        record_id::record, #record, sizeof(quill_nyx_##record), passes_through,                                   \
            prototypes_agree<quill_nyx_##record>(passes_through, quill_nyx_##record##_encode_ext,                 \
                                                 quill_nyx_##record##_decode_ext, quill_nyx_##record##_free_ext), \
            members                                                                                               \
    }

const seen_record seen_records[] = {
    RECORD(node_info, false, seen_node_info),
    RECORD(attribute, false, seen_attribute),
    RECORD(edit_ins_key, false, seen_edit_ins_key),
    RECORD(edit_ins, false, seen_edit_ins),
    RECORD(datatree, true, seen_datatree),
    RECORD(datastore, false, seen_datastore),
    RECORD(filter, true, seen_filter),
    RECORD(with_defaults, false, seen_with_defaults),
    RECORD(start_session, false, seen_start_session),
    RECORD(stop_session, false, seen_stop_session),
    RECORD(get_config, true, seen_get_config),
    RECORD(edit_config, true, seen_edit_config),
    RECORD(cli_config, false, seen_cli_config),
    RECORD(validate, true, seen_validate),
    RECORD(lock, false, seen_lock),
    RECORD(unlock, false, seen_unlock),
    RECORD(commit, false, seen_commit),
    RECORD(cancel_commit, false, seen_cancel_commit),
    RECORD(discard_changes, false, {}),
    RECORD(copy_config, true, seen_copy_config),
    RECORD(delete_config, false, seen_delete_config),
    RECORD(get, true, seen_get),
    RECORD(mdt_yang_resolve, false, seen_mdt_yang_resolve),
    RECORD(cli_show, false, seen_cli_show),
    RECORD(create_subscription, true, seen_create_subscription),
    RECORD(invoke_rpc, true, seen_invoke_rpc),
    RECORD(notification, true, seen_notification),
    RECORD(notification_internal, false, seen_notification_internal),
    RECORD(notification_stream, false, seen_notification_stream),
    RECORD(logging_set, false, seen_logging_set),
    RECORD(settings_set, false, seen_settings_set),
    RECORD(schema, false, seen_schema),
    RECORD(schemas_list, false, {}),
    RECORD(request, true, seen_request),
    RECORD(error_message, false, seen_error_message),
    RECORD(error, true, seen_error),
    RECORD(request_result, true, seen_request_result),
    RECORD(response, true, seen_response),
};

std::ostream &operator<<(std::ostream &out, const seen_record &record) {
    return out << record.name;
}

class LayoutOf : public testing::TestWithParam<seen_record> {
  protected:
    [[nodiscard]] static const record_table &table() { return table_of(GetParam().id); }
};

std::size_t bytes_of(const member &m) {
    switch (m.kind) {
        case member_kind::number32:
        case member_kind::wide_flag:
            return 4;
        case member_kind::flag:
            return 1;
        case member_kind::record:
            return table_of(m.element).size;
        default:
            return 8;
    }
}

TEST_P(LayoutOf, EveryMemberLiesAtItsOffset) {
    const seen_record &seen = GetParam();
    EXPECT_STREQ(seen.name, table().name);
    EXPECT_EQ(seen.size, table().size);
    ASSERT_EQ(seen.members.size(), table().members.size());
    for (std::size_t i = 0; i < seen.members.size(); ++i) {
        const member &m = table().members[i];
        SCOPED_TRACE(m.name);
        EXPECT_STREQ(seen.members[i].name, m.name);
        EXPECT_EQ(seen.members[i].offset, m.offset);
        EXPECT_EQ(seen.members[i].size, bytes_of(m));
        EXPECT_EQ(seen.members[i].count_offset, m.count_offset) << "or the member has another type";
    }
}

TEST_P(LayoutOf, EveryPresenceBitHasItsByteAndMask) {
    for (std::size_t i = 0; i < GetParam().members.size(); ++i) {
        SCOPED_TRACE(GetParam().members[i].name);
        EXPECT_EQ(table().members[i].bit, i);
        nyx_test::record_memory memory(table());
        GetParam().members[i].set_bit(memory.get());
        std::vector<uint8_t> expected(table().size);
        expected[table().presence_offset + i / 8] = static_cast<uint8_t>(1U << i % 8);
        EXPECT_EQ(std::memcmp(memory.get(), expected.data(), table().size), 0);
    }
}

TEST_P(LayoutOf, TheLastArgumentIsThereExactlyWhereADataTreeIs) {
    EXPECT_EQ(GetParam().passes_through, table().takes_pass_through);
    EXPECT_TRUE(GetParam().prototypes_agree);
}

TEST_P(LayoutOf, AResetGivesEveryMemberItsResetValue) {
    nyx_test::record_memory decoded(table());
    nyx_test::record_memory expected(table());
    std::memset(decoded.get(), 0xFF, table().size);
    ASSERT_EQ(table().decode(decoded.get(), nullptr, 0, nullptr, nullptr, 0), 0);
    nyx_test::reset_record(table(), expected.get());
    EXPECT_EQ(nyx_test::difference(table(), decoded.get(), expected.get()), "");
}

INSTANTIATE_TEST_SUITE_P(Records, LayoutOf, testing::ValuesIn(seen_records),
                         [](const auto &instance) { return std::string(instance.param.name); });

TEST(Layout, ThereAre38RecordsAnd14TakeAPassThroughValue) {
    EXPECT_EQ(std::size(seen_records), 38U);
    ASSERT_EQ(nyx_test::record_tables().size(), 38U);
    unsigned passing = 0;
    for (std::size_t i = 0; i < 38; ++i) {
        EXPECT_EQ(static_cast<std::size_t>(nyx_test::record_tables()[i].id), i);
        EXPECT_EQ(seen_records[i].id, nyx_test::record_tables()[i].id);
        passing += nyx_test::record_tables()[i].takes_pass_through ? 1 : 0;
    }
    EXPECT_EQ(passing, 14U);
}

TEST(Layout, RecordsWithoutMembersAreOneByte) {
    EXPECT_EQ(sizeof(quill_nyx_discard_changes), 1U);
    EXPECT_EQ(sizeof(quill_nyx_schemas_list), 1U);
    EXPECT_EQ(offsetof(quill_nyx_discard_changes, reserved), 0U);
    EXPECT_EQ(offsetof(quill_nyx_schemas_list, reserved), 0U);
}

TEST(Layout, ASegmentIsAPointerAndALength) {
    EXPECT_EQ(sizeof(quill_segment), 16U);
    EXPECT_EQ(offsetof(quill_segment, start), 0U);
    EXPECT_EQ(offsetof(quill_segment, length), 8U);
}

// Sizes and offsets are checked by layout_c.c when it is compiled; a bit's place shows only at run time.
TEST(Layout, PresenceBitsLieWhereACCompilerPutsThem) {
    quill_nyx_datatree node = {};
    quill_nyx_request request = {};
    set_bits_in_c(&node, &request);

    uint8_t node_bytes[sizeof node] = {};
    uint8_t expected_node[sizeof node] = {};
    std::memcpy(node_bytes, &node, sizeof node);
    expected_node[194] = 0x10;  // the 13th member's
    EXPECT_EQ(std::memcmp(node_bytes, expected_node, sizeof node), 0);

    uint8_t request_bytes[sizeof request] = {};
    uint8_t expected_request[sizeof request] = {};
    std::memcpy(request_bytes, &request, sizeof request);
    expected_request[2040] = 0x01;
    expected_request[2043] = 0x02;  // the last of 26 members
    EXPECT_EQ(std::memcmp(request_bytes, expected_request, sizeof request), 0);
}

TEST(ResetValues, ThreeMembersAreNotZero) {
    quill_nyx_commit commit;
    quill_nyx_logging_set logging_set;
    quill_nyx_request request;
    std::memset(&commit, 0xFF, sizeof commit);
    std::memset(&logging_set, 0xFF, sizeof logging_set);
    std::memset(&request, 0xFF, sizeof request);

    ASSERT_EQ(quill_nyx_commit_decode_ext(&commit, nullptr, 0, nullptr, nullptr), 0);
    ASSERT_EQ(quill_nyx_logging_set_decode_ext(&logging_set, nullptr, 0, nullptr, nullptr), 0);
    ASSERT_EQ(quill_nyx_request_decode_ext(&request, nullptr, 0, nullptr, nullptr, 0), 0);

    EXPECT_EQ(commit.uint32_1, 0U);
    EXPECT_EQ(commit.uint32_2, 600U);
    EXPECT_EQ(commit.has_uint32_2, 0);
    EXPECT_EQ(logging_set.uint32_2, 0U);
    EXPECT_EQ(logging_set.uint32_3, 1U);
    EXPECT_EQ(logging_set.has_uint32_3, 0);
    EXPECT_EQ(request.flag_5, 0);
    EXPECT_EQ(request.flag_6, 1);
    EXPECT_EQ(request.has_flag_6, 0);
    EXPECT_EQ(request.commit.uint32_2, 600U);
    EXPECT_EQ(request.commit.has_uint32_2, 0);
    EXPECT_EQ(request.logging_set.uint32_3, 1U);
    EXPECT_EQ(request.logging_set.has_uint32_3, 0);
}

TEST(ResetValues, RecordsWithoutMembersAreNotTouched) {
    quill_nyx_discard_changes discard_changes = {0x5A};
    quill_nyx_schemas_list schemas_list = {0x5A};
    EXPECT_EQ(quill_nyx_discard_changes_decode_ext(&discard_changes, nullptr, 0, nullptr, nullptr), 0);
    EXPECT_EQ(quill_nyx_schemas_list_decode_ext(&schemas_list, nullptr, 0, nullptr, nullptr), 0);
    EXPECT_EQ(discard_changes.reserved, 0x5A);
    EXPECT_EQ(schemas_list.reserved, 0x5A);
}

TEST(Constants, EditOperations) {
    static_assert(std::is_same_v<quill_nyx_edit_operation, uint32_t>);
    EXPECT_EQ(QUILL_NYX_EDIT_OPERATION_MERGE, 0);
    EXPECT_EQ(QUILL_NYX_EDIT_OPERATION_REPLACE, 1);
    EXPECT_EQ(QUILL_NYX_EDIT_OPERATION_CREATE, 2);
    EXPECT_EQ(QUILL_NYX_EDIT_OPERATION_DELETE, 3);
    EXPECT_EQ(QUILL_NYX_EDIT_OPERATION_REMOVE, 4);
}

TEST(Constants, NodeKinds) {
    static_assert(std::is_same_v<quill_nyx_node_kind, uint32_t>);
    EXPECT_EQ(QUILL_NYX_NODE_KIND_DN, 1);
    EXPECT_EQ(QUILL_NYX_NODE_KIND_KN, 2);
    EXPECT_EQ(QUILL_NYX_NODE_KIND_KA, 3);
    EXPECT_EQ(QUILL_NYX_NODE_KIND_DA, 4);
}

TEST(Constants, RequestTypes) {
    static_assert(std::is_same_v<quill_nyx_request_type, uint32_t>);
    EXPECT_EQ(QUILL_NYX_REQUEST_TYPE_GET_CONFIG, 0);
    EXPECT_EQ(QUILL_NYX_REQUEST_TYPE_EDIT_CONFIG, 1);
    EXPECT_EQ(QUILL_NYX_REQUEST_TYPE_VALIDATE, 2);
    EXPECT_EQ(QUILL_NYX_REQUEST_TYPE_LOCK, 3);
    EXPECT_EQ(QUILL_NYX_REQUEST_TYPE_UNLOCK, 4);
    EXPECT_EQ(QUILL_NYX_REQUEST_TYPE_COMMIT, 5);
    EXPECT_EQ(QUILL_NYX_REQUEST_TYPE_CANCEL_COMMIT, 6);
    EXPECT_EQ(QUILL_NYX_REQUEST_TYPE_DISCARD_CHANGES, 7);
    EXPECT_EQ(QUILL_NYX_REQUEST_TYPE_COPY_CONFIG, 8);
    EXPECT_EQ(QUILL_NYX_REQUEST_TYPE_DELETE_CONFIG, 9);
    EXPECT_EQ(QUILL_NYX_REQUEST_TYPE_GET, 10);
    EXPECT_EQ(QUILL_NYX_REQUEST_TYPE_START_SESSION, 11);
    EXPECT_EQ(QUILL_NYX_REQUEST_TYPE_STOP_SESSION, 12);
    EXPECT_EQ(QUILL_NYX_REQUEST_TYPE_LOGGING_SET, 13);
    EXPECT_EQ(QUILL_NYX_REQUEST_TYPE_SCHEMAS_LIST, 14);
    EXPECT_EQ(QUILL_NYX_REQUEST_TYPE_CLI_CONFIG, 15);
    EXPECT_EQ(QUILL_NYX_REQUEST_TYPE_CLI_SHOW, 16);
    EXPECT_EQ(QUILL_NYX_REQUEST_TYPE_SETTINGS_SET, 17);
    EXPECT_EQ(QUILL_NYX_REQUEST_TYPE_INVOKE_RPC, 18);
    EXPECT_EQ(QUILL_NYX_REQUEST_TYPE_CREATE_SUBSCRIPTION, 19);
    EXPECT_EQ(QUILL_NYX_REQUEST_TYPE_STREAMS_LIST, 20);
    EXPECT_EQ(QUILL_NYX_REQUEST_TYPE_NOTIFICATION_PAUSE, 21);
    EXPECT_EQ(QUILL_NYX_REQUEST_TYPE_NOTIFICATION_RESUME, 22);
}

TEST(Constants, LoggingLevels) {
    static_assert(std::is_same_v<quill_nyx_logging_level, uint32_t>);
    EXPECT_EQ(QUILL_NYX_LOGGING_LEVEL_NONE, 0);
    EXPECT_EQ(QUILL_NYX_LOGGING_LEVEL_ERROR, 1);
    EXPECT_EQ(QUILL_NYX_LOGGING_LEVEL_WARNING, 2);
    EXPECT_EQ(QUILL_NYX_LOGGING_LEVEL_DEBUG, 3);
    EXPECT_EQ(QUILL_NYX_LOGGING_LEVEL_TRACE, 4);
}

TEST(Constants, DecodeResults) {
    EXPECT_EQ(QUILL_DECODE_MALFORMED, -1);
    EXPECT_EQ(QUILL_DECODE_BAD_WIRE_TYPE, -2);
    EXPECT_EQ(QUILL_DECODE_WRONG_WIRE_TYPE, -3);
    EXPECT_EQ(QUILL_DECODE_NO_MEMORY, -4);
}

}  // namespace
