// The layout of telling records as a C compiler sees it: those that are nested often, those with bytes of padding
// before their presence bits, those with more than one byte of bits, and the ones without a member.
#include <stddef.h>

#include "quill_nyx.h"

_Static_assert(sizeof(quill_segment) == 16, "quill_segment");
_Static_assert(offsetof(quill_segment, length) == 8, "quill_segment.length");

_Static_assert(sizeof(quill_nyx_node_info) == 32, "node_info");
_Static_assert(offsetof(quill_nyx_node_info, strings_3) == 16, "node_info.strings_3");
_Static_assert(offsetof(quill_nyx_node_info, strings_3_count) == 24, "node_info.strings_3_count");

_Static_assert(sizeof(quill_nyx_attribute) == 24, "attribute");
_Static_assert(offsetof(quill_nyx_attribute, value) == 8, "attribute.value");

_Static_assert(sizeof(quill_nyx_edit_ins_key) == 32, "edit_ins_key");
_Static_assert(sizeof(quill_nyx_edit_ins) == 72, "edit_ins");
_Static_assert(offsetof(quill_nyx_edit_ins, key) == 8, "edit_ins.key");
_Static_assert(offsetof(quill_nyx_edit_ins, attribute) == 40, "edit_ins.attribute");

_Static_assert(sizeof(quill_nyx_datatree) == 200, "datatree");
_Static_assert(offsetof(quill_nyx_datatree, attributes) == 32, "datatree.attributes");
_Static_assert(offsetof(quill_nyx_datatree, children) == 48, "datatree.children");
_Static_assert(offsetof(quill_nyx_datatree, children_count) == 56, "datatree.children_count");
_Static_assert(offsetof(quill_nyx_datatree, uint32_8) == 60, "datatree.uint32_8");
_Static_assert(offsetof(quill_nyx_datatree, node_info) == 64, "datatree.node_info");
_Static_assert(offsetof(quill_nyx_datatree, edit_ins) == 104, "datatree.edit_ins");
_Static_assert(offsetof(quill_nyx_datatree, flag_14) == 192, "datatree.flag_14");

_Static_assert(sizeof(quill_nyx_filter) == 216, "filter");
_Static_assert(sizeof(quill_nyx_with_defaults) == 24, "with_defaults");
_Static_assert(sizeof(quill_nyx_start_session) == 72, "start_session");
_Static_assert(sizeof(quill_nyx_stop_session) == 12, "stop_session");
_Static_assert(sizeof(quill_nyx_commit) == 32, "commit");
_Static_assert(offsetof(quill_nyx_commit, flag_6) == 25, "commit.flag_6");
_Static_assert(sizeof(quill_nyx_discard_changes) == 1, "discard_changes");
_Static_assert(sizeof(quill_nyx_schemas_list) == 1, "schemas_list");
_Static_assert(sizeof(quill_nyx_copy_config) == 280, "copy_config");
_Static_assert(sizeof(quill_nyx_logging_set) == 16, "logging_set");
_Static_assert(sizeof(quill_nyx_schema) == 88, "schema");

_Static_assert(sizeof(quill_nyx_request) == 2048, "request");
_Static_assert(offsetof(quill_nyx_request, message_id) == 8, "request.message_id");
_Static_assert(offsetof(quill_nyx_request, get_config) == 24, "request.get_config");

_Static_assert(sizeof(quill_nyx_error) == 464, "error");
_Static_assert(sizeof(quill_nyx_request_result) == 488, "request_result");
_Static_assert(sizeof(quill_nyx_response) == 728, "response");

void set_bits_in_c(quill_nyx_datatree *node, quill_nyx_request *request);

void set_bits_in_c(quill_nyx_datatree *node, quill_nyx_request *request) {
    node->has_string_13 = 1;
    request->has_type = 1;
    request->has_create_subscription = 1;
}
