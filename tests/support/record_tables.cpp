#include "record_tables.h"

#include <cstdlib>
#include <cstring>
#include <ostream>
#include <type_traits>

#include "quill_nyx.h"

namespace nyx_test {
namespace {

template <class Record, auto Encode>
uint64_t encode_untyped(const void *record, uint8_t *buffer, uint64_t buffer_length, quill_segment *segments,
                        uint32_t *segment_count, uint32_t pass_through) {
    const auto *typed = static_cast<const Record *>(record);
    if constexpr (std::is_invocable_v<decltype(Encode), const Record *, uint8_t *, uint64_t, quill_segment *,
                                      uint32_t *, uint32_t>) {
        return Encode(typed, buffer, buffer_length, segments, segment_count, pass_through);
    } else {
        return Encode(typed, buffer, buffer_length, segments, segment_count);
    }
}

template <class Record, auto Decode>
int32_t decode_untyped(void *record, const uint8_t *buf, uint64_t len, quill_alloc_fn alloc, void *alloc_ctx,
                       uint32_t nest_arg) {
    auto *typed = static_cast<Record *>(record);
    if constexpr (std::is_invocable_v<decltype(Decode), Record *, const uint8_t *, uint64_t, quill_alloc_fn, void *,
                                      uint32_t>) {
        return Decode(typed, buf, len, alloc, alloc_ctx, nest_arg);
    } else {
        return Decode(typed, buf, len, alloc, alloc_ctx);
    }
}

template <class Record, auto Duplicate>
int32_t duplicate_untyped(void *dst, const void *src, quill_alloc_fn alloc, void *alloc_ctx) {
    return Duplicate(static_cast<Record *>(dst), static_cast<const Record *>(src), alloc, alloc_ctx);
}

template <class Record, auto Free>
void free_untyped(void *record, quill_free_fn free_block, void *free_ctx, uint32_t nest_arg) {
    auto *typed = static_cast<Record *>(record);
    if constexpr (std::is_invocable_v<decltype(Free), Record *, quill_free_fn, void *, uint32_t>) {
        Free(typed, free_block, free_ctx, nest_arg);
    } else {
        Free(typed, free_block, free_ctx);
    }
}

#define RECORD_TABLE(record, size, presence_offset, takes_pass_through, members)        \
    {                                                                                   \
        record_id::record, #record, size, presence_offset, takes_pass_through, members, \
            encode_untyped<quill_nyx_##record, quill_nyx_##record##_encode_ext>,        \
            decode_untyped<quill_nyx_##record, quill_nyx_##record##_decode_ext>,        \
            duplicate_untyped<quill_nyx_##record, quill_nyx_##record##_duplicate>,      \
            free_untyped<quill_nyx_##record, quill_nyx_##record##_free_ext>             \
    }

// Per member: name, kind, field, presence bit, offset [, offset of the count [, element [, value after a reset]]].

constexpr member node_info_members[] = {
    {"string_1", member_kind::text, 1, 0, 0},
    {"uint32_2", member_kind::number32, 2, 1, 8},
    {"strings_3", member_kind::texts, 3, 2, 16, 24},
};

constexpr member attribute_members[] = {
    {"key", member_kind::text, 1, 0, 0},
    {"value", member_kind::text, 2, 1, 8},
};

constexpr member edit_ins_key_members[] = {
    {"keys", member_kind::records, 1, 0, 0, 8, record_id::attribute},
    {"value", member_kind::text, 2, 1, 16},
};

constexpr member edit_ins_members[] = {
    {"insert", member_kind::number32, 1, 0, 0},
    {"key", member_kind::record, 2, 1, 8, no_count, record_id::edit_ins_key},
    {"attribute", member_kind::record, 3, 2, 40, no_count, record_id::attribute},
};

constexpr member datatree_members[] = {
    {"name", member_kind::text, 1, 0, 0},
    {"value", member_kind::text, 2, 1, 8},
    {"namespace", member_kind::text, 3, 2, 16},
    {"uint32_4", member_kind::number32, 4, 3, 24},
    {"operation", member_kind::number32, 5, 4, 28},
    {"attributes", member_kind::records, 6, 5, 32, 40, record_id::attribute},
    {"children", member_kind::records, 7, 6, 48, 56, record_id::datatree},
    {"uint32_8", member_kind::number32, 8, 7, 60},
    {"node_info", member_kind::record, 9, 8, 64, no_count, record_id::node_info},
    {"flag_10", member_kind::flag, 10, 9, 96},
    {"edit_ins", member_kind::record, 11, 10, 104, no_count, record_id::edit_ins},
    {"node_kind", member_kind::number32, 12, 11, 176},
    {"string_13", member_kind::text, 13, 12, 184},
    {"flag_14", member_kind::flag, 14, 13, 192},
};

constexpr member datastore_members[] = {
    {"name", member_kind::text, 1, 0, 0},
};

constexpr member filter_members[] = {
    {"uint32_1", member_kind::number32, 1, 0, 0},
    {"tree", member_kind::record, 2, 1, 8, no_count, record_id::datatree},
};

constexpr member with_defaults_members[] = {
    {"uint32_1", member_kind::number32, 1, 0, 0},
    {"uint32_2", member_kind::number32, 2, 1, 4},
    {"string_3", member_kind::text, 3, 2, 8},
    {"uint32_4", member_kind::number32, 4, 3, 16},
};

constexpr member start_session_members[] = {
    {"string_1", member_kind::text, 1, 0, 0},      {"string_2", member_kind::text, 2, 1, 8},
    {"uint32_3", member_kind::number32, 3, 2, 16}, {"flag_4", member_kind::flag, 4, 3, 20},
    {"string_5", member_kind::text, 5, 4, 24},     {"string_6", member_kind::text, 6, 5, 32},
    {"string_7", member_kind::text, 7, 6, 40},     {"uint32_8", member_kind::number32, 8, 7, 48},
    {"flag_9", member_kind::flag, 9, 8, 52},       {"string_10", member_kind::text, 10, 9, 56},
};

constexpr member stop_session_members[] = {
    {"uint32_1", member_kind::number32, 1, 0, 0},
    {"uint32_2", member_kind::number32, 2, 1, 4},
};

constexpr member get_config_members[] = {
    {"source", member_kind::record, 1, 0, 0, no_count, record_id::datastore},
    {"filter", member_kind::record, 2, 1, 16, no_count, record_id::filter},
    {"uint32_3", member_kind::number32, 3, 2, 232},
    {"with_defaults", member_kind::record, 4, 3, 240, no_count, record_id::with_defaults},
    {"string_5", member_kind::text, 5, 4, 264},
};

constexpr member edit_config_members[] = {
    {"target", member_kind::record, 1, 0, 0, no_count, record_id::datastore},
    {"uint32_2", member_kind::number32, 2, 1, 16},
    {"uint32_4", member_kind::number32, 4, 2, 20},
    {"uint32_3", member_kind::number32, 3, 3, 24},
    {"config", member_kind::record, 5, 4, 32, no_count, record_id::datatree},
};

constexpr member cli_config_members[] = {
    {"string_1", member_kind::text, 1, 0, 0},
    {"uint32_2", member_kind::number32, 2, 1, 8},
    {"uint32_3", member_kind::number32, 3, 2, 12},
};

constexpr member validate_members[] = {
    {"source", member_kind::record, 1, 0, 0, no_count, record_id::datastore},
    {"config", member_kind::record, 2, 1, 16, no_count, record_id::datatree},
};

constexpr member lock_members[] = {
    {"target", member_kind::record, 1, 0, 0, no_count, record_id::datastore},
};

constexpr member unlock_members[] = {
    {"target", member_kind::record, 1, 0, 0, no_count, record_id::datastore},
};

constexpr member commit_members[] = {
    {"uint32_1", member_kind::wide_flag, 1, 0, 0},
    {"uint32_2", member_kind::number32, 2, 1, 4, no_count, record_id::none, 600},
    {"string_3", member_kind::text, 3, 2, 8},
    {"string_4", member_kind::text, 4, 3, 16},
    {"flag_5", member_kind::flag, 5, 4, 24},
    {"flag_6", member_kind::flag, 6, 5, 25},
};

constexpr member cancel_commit_members[] = {
    {"string_1", member_kind::text, 1, 0, 0},
};

constexpr member copy_config_members[] = {
    {"target", member_kind::record, 1, 0, 0, no_count, record_id::datastore},
    {"string_2", member_kind::text, 2, 1, 16},
    {"source", member_kind::record, 3, 2, 24, no_count, record_id::datastore},
    {"string_4", member_kind::text, 4, 3, 40},
    {"config", member_kind::record, 5, 4, 48, no_count, record_id::datatree},
    {"with_defaults", member_kind::record, 6, 5, 248, no_count, record_id::with_defaults},
};

constexpr member delete_config_members[] = {
    {"target", member_kind::record, 1, 0, 0, no_count, record_id::datastore},
};

constexpr member get_members[] = {
    {"filter", member_kind::record, 1, 0, 0, no_count, record_id::filter},
    {"uint32_2", member_kind::number32, 2, 1, 216},
    {"with_defaults", member_kind::record, 3, 2, 224, no_count, record_id::with_defaults},
};

constexpr member mdt_yang_resolve_members[] = {
    {"uint64_1", member_kind::number64, 1, 0, 0},
};

constexpr member cli_show_members[] = {
    {"string_1", member_kind::text, 1, 0, 0},
    {"uint32_2", member_kind::number32, 2, 1, 8},
};

constexpr member create_subscription_members[] = {
    {"string_1", member_kind::text, 1, 0, 0},
    {"filter", member_kind::record, 2, 1, 8, no_count, record_id::filter},
    {"uint32_3", member_kind::number32, 3, 2, 224},
    {"uint32_4", member_kind::number32, 4, 3, 228},
};

constexpr member invoke_rpc_members[] = {
    {"uint32_1", member_kind::number32, 1, 0, 0},
    {"tree", member_kind::record, 2, 1, 8, no_count, record_id::datatree},
};

constexpr member notification_members[] = {
    {"uint32s_1", member_kind::numbers32, 1, 0, 0, 8},
    {"uint32_2", member_kind::number32, 2, 1, 12},
    {"tree", member_kind::record, 3, 2, 16, no_count, record_id::datatree},
};

constexpr member notification_internal_members[] = {
    {"uint32_1", member_kind::number32, 1, 0, 0},
    {"uint32_2", member_kind::number32, 2, 1, 4},
    {"uint32_3", member_kind::number32, 3, 2, 8},
};

constexpr member notification_stream_members[] = {
    {"string_1", member_kind::text, 1, 0, 0},      {"string_2", member_kind::text, 2, 1, 8},
    {"flag_3", member_kind::flag, 3, 2, 16},       {"uint32_4", member_kind::number32, 4, 3, 20},
    {"uint32_5", member_kind::number32, 5, 4, 24},
};

constexpr member logging_set_members[] = {
    {"uint32_1", member_kind::number32, 1, 0, 0},
    {"uint32_2", member_kind::number32, 2, 1, 4},
    {"uint32_3", member_kind::number32, 3, 2, 8, no_count, record_id::none, 1},
    {"flag_4", member_kind::flag, 4, 3, 12},
    {"flag_5", member_kind::flag, 5, 4, 13},
    {"flag_6", member_kind::flag, 6, 5, 14},
};

constexpr member settings_set_members[] = {
    {"uint32_1", member_kind::wide_flag, 1, 0, 0},
    {"uint32_2", member_kind::number32, 2, 1, 4},
};

constexpr member schema_members[] = {
    {"string_1", member_kind::text, 1, 0, 0},     {"string_2", member_kind::text, 2, 1, 8},
    {"string_3", member_kind::text, 3, 2, 16},    {"flag_4", member_kind::flag, 4, 3, 24},
    {"string_5", member_kind::text, 5, 4, 32},    {"string_6", member_kind::text, 6, 5, 40},
    {"string_7", member_kind::text, 7, 6, 48},    {"flag_8", member_kind::flag, 8, 7, 56},
    {"flag_9", member_kind::flag, 9, 8, 57},      {"flag_10", member_kind::flag, 10, 9, 58},
    {"flag_11", member_kind::flag, 11, 10, 59},   {"string_12", member_kind::text, 12, 11, 64},
    {"string_13", member_kind::text, 13, 12, 72},
};

constexpr member request_members[] = {
    {"type", member_kind::number32, 1, 0, 0},
    {"session_id", member_kind::number32, 2, 1, 4},
    {"message_id", member_kind::text, 3, 2, 8},
    {"uint32_4", member_kind::number32, 4, 3, 16},
    {"flag_5", member_kind::flag, 5, 4, 20},
    {"flag_6", member_kind::flag, 6, 5, 21, no_count, record_id::none, 1},
    {"get_config", member_kind::record, 32, 6, 24, no_count, record_id::get_config},
    {"edit_config", member_kind::record, 33, 7, 304, no_count, record_id::edit_config},
    {"validate", member_kind::record, 34, 8, 544, no_count, record_id::validate},
    {"lock", member_kind::record, 35, 9, 768, no_count, record_id::lock},
    {"unlock", member_kind::record, 36, 10, 792, no_count, record_id::unlock},
    {"commit", member_kind::record, 37, 11, 816, no_count, record_id::commit},
    {"cancel_commit", member_kind::record, 38, 12, 848, no_count, record_id::cancel_commit},
    {"discard_changes", member_kind::record, 39, 13, 864, no_count, record_id::discard_changes},
    {"copy_config", member_kind::record, 40, 14, 872, no_count, record_id::copy_config},
    {"get", member_kind::record, 42, 15, 1152, no_count, record_id::get},
    {"start_session", member_kind::record, 43, 16, 1408, no_count, record_id::start_session},
    {"stop_session", member_kind::record, 44, 17, 1480, no_count, record_id::stop_session},
    {"logging_set", member_kind::record, 45, 18, 1492, no_count, record_id::logging_set},
    {"schemas_list", member_kind::record, 46, 19, 1508, no_count, record_id::schemas_list},
    {"cli_show", member_kind::record, 47, 20, 1512, no_count, record_id::cli_show},
    {"cli_config", member_kind::record, 48, 21, 1528, no_count, record_id::cli_config},
    {"settings_set", member_kind::record, 49, 22, 1552, no_count, record_id::settings_set},
    {"mdt_yang_resolve", member_kind::record, 50, 23, 1568, no_count, record_id::mdt_yang_resolve},
    {"invoke_rpc", member_kind::record, 51, 24, 1584, no_count, record_id::invoke_rpc},
    {"create_subscription", member_kind::record, 52, 25, 1800, no_count, record_id::create_subscription},
};

constexpr member error_message_members[] = {
    {"string_1", member_kind::text, 1, 0, 0},
    {"text", member_kind::text, 2, 1, 8},
};

constexpr member error_members[] = {
    {"error_type", member_kind::number32, 1, 0, 0},
    {"error_tag", member_kind::text, 2, 1, 8},
    {"error_severity", member_kind::number32, 3, 2, 16},
    {"error_app_tag", member_kind::text, 4, 3, 24},
    {"error_path", member_kind::record, 5, 4, 32, no_count, record_id::datatree},
    {"error_message", member_kind::record, 6, 5, 232, no_count, record_id::error_message},
    {"error_info", member_kind::record, 7, 6, 256, no_count, record_id::datatree},
};

constexpr member request_result_members[] = {
    {"uint32_1", member_kind::wide_flag, 1, 0, 0},
    {"uint32_2", member_kind::number32, 2, 1, 4},
    {"string_3", member_kind::text, 3, 2, 8},
    {"error", member_kind::record, 33, 3, 16, no_count, record_id::error},
};

constexpr member response_members[] = {
    {"uint32_1", member_kind::wide_flag, 1, 0, 0},
    {"uint32_2", member_kind::number32, 2, 1, 4},
    {"string_3", member_kind::text, 3, 2, 8},
    {"schemas", member_kind::records, 4, 3, 16, 24, record_id::schema},
    {"streams", member_kind::records, 5, 4, 32, 40, record_id::notification_stream},
    {"tree", member_kind::record, 32, 5, 48, no_count, record_id::datatree},
    {"error", member_kind::record, 33, 6, 248, no_count, record_id::error},
    {"errors", member_kind::records, 34, 7, 712, 720, record_id::error},
    {"flag_35", member_kind::flag, 35, 8, 724},
};

const record_table tables[] = {
    //           record, size, presence bytes at, takes a pass-through value, members
    RECORD_TABLE(node_info, 32, 28, false, node_info_members),
    RECORD_TABLE(attribute, 24, 16, false, attribute_members),
    RECORD_TABLE(edit_ins_key, 32, 24, false, edit_ins_key_members),
    RECORD_TABLE(edit_ins, 72, 64, false, edit_ins_members),
    RECORD_TABLE(datatree, 200, 193, true, datatree_members),
    RECORD_TABLE(datastore, 16, 8, false, datastore_members),
    RECORD_TABLE(filter, 216, 208, true, filter_members),
    RECORD_TABLE(with_defaults, 24, 20, false, with_defaults_members),
    RECORD_TABLE(start_session, 72, 64, false, start_session_members),
    RECORD_TABLE(stop_session, 12, 8, false, stop_session_members),
    RECORD_TABLE(get_config, 280, 272, true, get_config_members),
    RECORD_TABLE(edit_config, 240, 232, true, edit_config_members),
    RECORD_TABLE(cli_config, 24, 16, false, cli_config_members),
    RECORD_TABLE(validate, 224, 216, true, validate_members),
    RECORD_TABLE(lock, 24, 16, false, lock_members),
    RECORD_TABLE(unlock, 24, 16, false, unlock_members),
    RECORD_TABLE(commit, 32, 26, false, commit_members),
    RECORD_TABLE(cancel_commit, 16, 8, false, cancel_commit_members),
    RECORD_TABLE(discard_changes, 1, 0, false, {}),
    RECORD_TABLE(copy_config, 280, 272, true, copy_config_members),
    RECORD_TABLE(delete_config, 24, 16, false, delete_config_members),
    RECORD_TABLE(get, 256, 248, true, get_members),
    RECORD_TABLE(mdt_yang_resolve, 16, 8, false, mdt_yang_resolve_members),
    RECORD_TABLE(cli_show, 16, 12, false, cli_show_members),
    RECORD_TABLE(create_subscription, 240, 232, true, create_subscription_members),
    RECORD_TABLE(invoke_rpc, 216, 208, true, invoke_rpc_members),
    RECORD_TABLE(notification, 224, 216, true, notification_members),
    RECORD_TABLE(notification_internal, 16, 12, false, notification_internal_members),
    RECORD_TABLE(notification_stream, 32, 28, false, notification_stream_members),
    RECORD_TABLE(logging_set, 16, 15, false, logging_set_members),
    RECORD_TABLE(settings_set, 12, 8, false, settings_set_members),
    RECORD_TABLE(schema, 88, 80, false, schema_members),
    RECORD_TABLE(schemas_list, 1, 0, false, {}),
    RECORD_TABLE(request, 2048, 2040, true, request_members),
    RECORD_TABLE(error_message, 24, 16, false, error_message_members),
    RECORD_TABLE(error, 464, 456, true, error_members),
    RECORD_TABLE(request_result, 488, 480, true, request_result_members),
    RECORD_TABLE(response, 728, 725, true, response_members),
};

#undef RECORD_TABLE

template <class Value>
Value read(const void *record, std::size_t offset) {
    Value value;
    std::memcpy(&value, static_cast<const uint8_t *>(record) + offset, sizeof value);
    return value;
}

template <class Value>
void write(void *record, std::size_t offset, Value value) {
    std::memcpy(static_cast<uint8_t *>(record) + offset, &value, sizeof value);
}

}  // namespace

const member &record_table::operator[](std::string_view member_name) const {
    for (const member &m : members) {
        if (member_name == m.name) {
            return m;
        }
    }
    std::abort();
}

std::span<const record_table> record_tables() {
    return tables;
}

const record_table &table_of(record_id id) {
    return tables[static_cast<std::size_t>(id)];
}

std::ostream &operator<<(std::ostream &out, const record_table &table) {
    return out << table.name;
}

std::size_t element_size(const member &m) {
    switch (m.kind) {
        case member_kind::texts:
            return 8;
        case member_kind::numbers32:
            return 4;
        default:
            return table_of(m.element).size;
    }
}

bool is_present(const record_table &table, const member &m, const void *record) {
    return (read<uint8_t>(record, table.presence_offset + m.bit / 8) >> m.bit % 8 & 1U) != 0;
}

void set_present(const record_table &table, const member &m, void *record, bool present) {
    const std::size_t at = table.presence_offset + m.bit / 8;
    const auto mask = static_cast<uint8_t>(1U << m.bit % 8);
    const auto byte = read<uint8_t>(record, at);
    write(record, at, static_cast<uint8_t>(present ? byte | mask : byte & ~mask));
}

uint64_t number_of(const member &m, const void *record) {
    switch (m.kind) {
        case member_kind::number64:
            return read<uint64_t>(record, m.offset);
        case member_kind::flag:
            return read<uint8_t>(record, m.offset);
        default:
            return read<uint32_t>(record, m.offset);
    }
}

void set_number(const member &m, void *record, uint64_t value) {
    switch (m.kind) {
        case member_kind::number64:
            write(record, m.offset, value);
            break;
        case member_kind::flag:
            write(record, m.offset, static_cast<uint8_t>(value));
            break;
        default:
            write(record, m.offset, static_cast<uint32_t>(value));
    }
}

void *pointer_of(const member &m, const void *record) {
    return read<void *>(record, m.offset);
}
void set_pointer(const member &m, void *record, const void *pointer) {
    write(record, m.offset, pointer);
}
uint32_t count_of(const member &m, const void *record) {
    return read<uint32_t>(record, m.count_offset);
}
void set_count(const member &m, void *record, uint32_t count) {
    write(record, m.count_offset, count);
}

const void *nested_of(const member &m, const void *record) {
    return static_cast<const uint8_t *>(record) + m.offset;
}
void *nested_of(const member &m, void *record) {
    return static_cast<uint8_t *>(record) + m.offset;
}

const char *text_at(const void *array, uint32_t index) {
    return read<const char *>(array, std::size_t{index} * 8);
}
uint32_t number32_at(const void *array, uint32_t index) {
    return read<uint32_t>(array, std::size_t{index} * 4);
}

const void *record_at(const member &m, const void *array, uint32_t index) {
    return static_cast<const uint8_t *>(array) + index * element_size(m);
}

void *record_at(const member &m, void *array, uint32_t index) {
    return static_cast<uint8_t *>(array) + index * element_size(m);
}

}  // namespace nyx_test
