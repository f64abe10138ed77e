/**
 * @file records.h
 * Filling and reading message records, and giving back what they own. All that is not decoded into an arena comes from
 * the library's allocator. What fills records throws std::bad_alloc, also while memory is short: a text is then not
 * copied.
 */
#ifndef REQUEST_PATH_RECORDS_H
#define REQUEST_PATH_RECORDS_H

#include <nyx_api_common.h>
#include <quill_nyx.h>

#include <string>

#include "tree.h"

namespace request_path {

/** A record that starts empty and is released with its holder. @{ */
template <class record_type, void (*release)(record_type *, quill_free_fn, void *, uint32_t)>
struct owned {
    record_type record{};
    owned() = default;
    owned(const owned &) = delete;
    owned &operator=(const owned &) = delete;
    ~owned() { release(&record, nyx_gpb_free, nullptr, 0); }
};
using owned_request = owned<quill_nyx_request, quill_nyx_request_free_ext>;
using owned_response = owned<quill_nyx_response, quill_nyx_response_free_ext>;
using owned_result = owned<quill_nyx_request_result, quill_nyx_request_result_free_ext>;
/** @} */

/** @return a string that a record can own */
char *copy_string(const std::string &text);

/** @return @p count zero-filled records that a record can own */
template <class record_type>
record_type *make_records(size_t count);

/** Fills an empty record. When memory runs out half-way, the record can be released like any other. */
void write_tree(quill_nyx_datatree &record, const node &tree);

node read_tree(const quill_nyx_datatree &record);

}  // namespace request_path

#endif
