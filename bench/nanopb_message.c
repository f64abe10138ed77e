#include "nanopb_message.h"

#include <pb_encode.h>
#include <stdlib.h>
#include <string.h>

#include "nanopb/nyx.pb.h"

struct nanopb_message {
    const pb_msgdesc_t *fields;
    union {
        quill_nyx_Request request;
        quill_nyx_Response response;
        quill_nyx_RequestResult result;
        quill_nyx_Datatree tree;
    } content;
};

/* The messages live as long as the program; there is nothing to release. */
static void *take(size_t count, size_t size) {
    void *block = calloc(count, size);
    if (block == NULL) {
        abort();
    }
    return block;
}

static pb_bytes_array_t *bytes_of(unsigned present, const char *text) {
    if (!present || text == NULL) {
        return NULL;
    }
    const size_t length = strlen(text);
    pb_bytes_array_t *bytes = take(1, PB_BYTES_ARRAY_T_ALLOCSIZE(length));
    bytes->size = (pb_size_t)length;
    memcpy(bytes->bytes, text, length);
    return bytes;
}

static void fill_tree(quill_nyx_Datatree *to, const quill_nyx_datatree *from) {
    to->name = bytes_of(from->has_name, from->name);
    to->value = bytes_of(from->has_value, from->value);
    to->namespace = bytes_of(from->has_namespace, from->namespace_);
    to->has_operation = from->has_operation;
    to->operation = from->operation;
    to->attributes_count = (pb_size_t)from->attributes_count;
    to->attributes = take(from->attributes_count + 1U, sizeof *to->attributes);
    for (uint32_t i = 0; i < from->attributes_count; ++i) {
        to->attributes[i].key = bytes_of(from->attributes[i].has_key, from->attributes[i].key);
        to->attributes[i].value = bytes_of(from->attributes[i].has_value, from->attributes[i].value);
    }
    to->children_count = (pb_size_t)from->children_count;
    to->children = take(from->children_count + 1U, sizeof *to->children);
    for (uint32_t i = 0; i < from->children_count; ++i) {
        fill_tree(to->children + i, from->children + i);
    }
}

static void fill_error(quill_nyx_Error *to, const quill_nyx_error *from) {
    to->has_error_type = from->has_error_type;
    to->error_type = from->error_type;
    to->error_tag = bytes_of(from->has_error_tag, from->error_tag);
    to->has_error_severity = from->has_error_severity;
    to->error_severity = from->error_severity;
    to->error_app_tag = bytes_of(from->has_error_app_tag, from->error_app_tag);
    to->has_error_path = from->has_error_path;
    fill_tree(&to->error_path, &from->error_path);
    to->has_error_message = from->has_error_message;
    to->error_message.text = bytes_of(from->error_message.has_text, from->error_message.text);
    to->has_error_info = from->has_error_info;
    fill_tree(&to->error_info, &from->error_info);
}

static void fill_schema(quill_nyx_Schema *to, const quill_nyx_schema *from) {
    to->string_1 = bytes_of(from->has_string_1, from->string_1);
    to->string_2 = bytes_of(from->has_string_2, from->string_2);
    to->string_3 = bytes_of(from->has_string_3, from->string_3);
    to->has_flag_4 = from->has_flag_4;
    to->flag_4 = from->flag_4 != 0;
    to->has_flag_8 = from->has_flag_8;
    to->flag_8 = from->flag_8 != 0;
    to->string_12 = bytes_of(from->has_string_12, from->string_12);
}

nanopb_message *nanopb_from_request(const quill_nyx_request *from) {
    nanopb_message *message = take(1, sizeof *message);
    message->fields = quill_nyx_Request_fields;
    quill_nyx_Request *to = &message->content.request;
    to->has_type = from->has_type;
    to->type = from->type;
    to->has_session_id = from->has_session_id;
    to->session_id = from->session_id;
    to->message_id = bytes_of(from->has_message_id, from->message_id);
    to->has_get_config = from->has_get_config;
    to->get_config.has_source = from->get_config.has_source;
    to->get_config.source.name = bytes_of(from->get_config.source.has_name, from->get_config.source.name);
    to->get_config.has_filter = from->get_config.has_filter;
    to->get_config.filter.has_tree = from->get_config.filter.has_tree;
    fill_tree(&to->get_config.filter.tree, &from->get_config.filter.tree);
    to->has_edit_config = from->has_edit_config;
    to->edit_config.has_target = from->edit_config.has_target;
    to->edit_config.target.name = bytes_of(from->edit_config.target.has_name, from->edit_config.target.name);
    to->edit_config.has_config = from->edit_config.has_config;
    fill_tree(&to->edit_config.config, &from->edit_config.config);
    return message;
}

nanopb_message *nanopb_from_response(const quill_nyx_response *from) {
    nanopb_message *message = take(1, sizeof *message);
    message->fields = quill_nyx_Response_fields;
    quill_nyx_Response *to = &message->content.response;
    to->has_uint32_1 = from->has_uint32_1;
    to->uint32_1 = from->uint32_1 != 0;
    to->schemas_count = (pb_size_t)from->schemas_count;
    to->schemas = take(from->schemas_count + 1U, sizeof *to->schemas);
    for (uint32_t i = 0; i < from->schemas_count; ++i) {
        fill_schema(to->schemas + i, from->schemas + i);
    }
    return message;
}

nanopb_message *nanopb_from_request_result(const quill_nyx_request_result *from) {
    nanopb_message *message = take(1, sizeof *message);
    message->fields = quill_nyx_RequestResult_fields;
    quill_nyx_RequestResult *to = &message->content.result;
    to->has_uint32_1 = from->has_uint32_1;
    to->uint32_1 = from->uint32_1 != 0;
    to->has_error = from->has_error;
    fill_error(&to->error, &from->error);
    return message;
}

nanopb_message *nanopb_from_datatree(const quill_nyx_datatree *from) {
    nanopb_message *message = take(1, sizeof *message);
    message->fields = quill_nyx_Datatree_fields;
    fill_tree(&message->content.tree, from);
    return message;
}

size_t nanopb_size(const nanopb_message *message) {
    size_t size = 0;
    return pb_get_encoded_size(&size, message->fields, &message->content) ? size : 0;
}

size_t nanopb_encode(const nanopb_message *message, uint8_t *buffer, size_t capacity) {
    pb_ostream_t out = pb_ostream_from_buffer(buffer, capacity);
    return pb_encode(&out, message->fields, &message->content) ? out.bytes_written : 0;
}
