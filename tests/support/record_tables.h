// The 38 records as data: what each holds, where it lies in memory and which wire number it has.
//
// Every number is written down, none is computed from the headers: the tests compare the library with this table, and
// the oracles that interpret it share no code with the library.
#ifndef NYX_TEST_RECORD_TABLES_H
#define NYX_TEST_RECORD_TABLES_H

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <span>
#include <string_view>
#include <vector>

#include "quill.h"

namespace nyx_test {

enum class record_id : uint8_t {
    node_info,
    attribute,
    edit_ins_key,
    edit_ins,
    datatree,
    datastore,
    filter,
    with_defaults,
    start_session,
    stop_session,
    get_config,
    edit_config,
    cli_config,
    validate,
    lock,
    unlock,
    commit,
    cancel_commit,
    discard_changes,
    copy_config,
    delete_config,
    get,
    mdt_yang_resolve,
    cli_show,
    create_subscription,
    invoke_rpc,
    notification,
    notification_internal,
    notification_stream,
    logging_set,
    settings_set,
    schema,
    schemas_list,
    request,
    error_message,
    error,
    request_result,
    response,
    none,
};

enum class member_kind : uint8_t {
    number32,   // uint32_t; enumerations too
    number64,   // uint64_t
    flag,       // uint8_t, decoded as 0 or 1
    wide_flag,  // uint32_t, decoded as 0 or 1
    text,       // char *
    texts,      // char ** and a count
    numbers32,  // uint32_t * and a count
    record,     // inline
    records,    // array and a count
};

inline constexpr std::size_t no_count = SIZE_MAX;

struct member {
    const char *name;
    member_kind kind;
    uint32_t field;
    uint32_t bit;
    std::size_t offset;
    std::size_t count_offset = no_count;  // of the repeated kinds
    record_id element = record_id::none;  // of record and records
    uint64_t reset = 0;
};

// The codec of a record without its type. Records that take no pass-through value ignore the last argument.
using encode_function = uint64_t (*)(const void *record, uint8_t *buffer, uint64_t buffer_length,
                                     quill_segment *segments, uint32_t *segment_count, uint32_t pass_through);
using decode_function = int32_t (*)(void *record, const uint8_t *buf, uint64_t len, quill_alloc_fn alloc,
                                    void *alloc_ctx, uint32_t nest_arg);
using duplicate_function = int32_t (*)(void *dst, const void *src, quill_alloc_fn alloc, void *alloc_ctx);
using free_function = void (*)(void *record, quill_free_fn free, void *free_ctx, uint32_t nest_arg);

struct record_table {
    record_id id;
    const char *name;  // without "quill_nyx_"
    std::size_t size;
    std::size_t presence_offset;
    bool takes_pass_through;
    std::span<const member> members;
    encode_function encode;
    decode_function decode;
    duplicate_function duplicate;
    free_function free;

    [[nodiscard]] std::size_t presence_bytes() const { return (members.size() + 7) / 8; }
    [[nodiscard]] const member &operator[](std::string_view member_name) const;
};

std::span<const record_table> record_tables();
const record_table &table_of(record_id id);
std::ostream &operator<<(std::ostream &out, const record_table &table);  // the record's name

// Memory for a record, zero-filled at first and aligned for it.
class record_memory {
  public:
    explicit record_memory(const record_table &table) : words_((table.size + 7) / 8) {}

    [[nodiscard]] void *get() { return words_.data(); }
    [[nodiscard]] const void *get() const { return words_.data(); }

  private:
    std::vector<uint64_t> words_;
};

constexpr bool is_number(member_kind kind) {
    return kind <= member_kind::wide_flag;
}
constexpr bool is_repeated(member_kind kind) {
    return kind == member_kind::texts || kind == member_kind::numbers32 || kind == member_kind::records;
}

// Bytes of one element of a repeated member.
std::size_t element_size(const member &m);

// Access to a member of a record by its table. The memory need not hold an object of the record's type: everything is
// copied in and out byte by byte.
bool is_present(const record_table &table, const member &m, const void *record);
void set_present(const record_table &table, const member &m, void *record, bool present);
uint64_t number_of(const member &m, const void *record);
void set_number(const member &m, void *record, uint64_t value);  // cut to the member's width
void *pointer_of(const member &m, const void *record);           // of text and of the repeated kinds
void set_pointer(const member &m, void *record, const void *pointer);
uint32_t count_of(const member &m, const void *record);
void set_count(const member &m, void *record, uint32_t count);
const void *nested_of(const member &m, const void *record);
void *nested_of(const member &m, void *record);

// Element of a non-null array.
const char *text_at(const void *array, uint32_t index);
uint32_t number32_at(const void *array, uint32_t index);
const void *record_at(const member &m, const void *array, uint32_t index);
void *record_at(const member &m, void *array, uint32_t index);

}  // namespace nyx_test

#endif
