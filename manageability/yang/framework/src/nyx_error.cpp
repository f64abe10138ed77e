// Failed requests: the contents of rpc-errors, and the checks that every request goes through.
#include "nyx_error.h"

#include <cstdint>

#include "nyx_api_common.h"
#include "nyx_log.h"
#include "umbra/named_alloc.h"

// Messages that stand in the error and in the log line.
#define MISSING_ELEMENT "An expected element is missing."
#define UNKNOWN_ELEMENT "Unknown element is specified."
#define BAD_ELEMENT "The specified element has bad value."
#define SESSION_ID_MISSING "Session ID is missing."

namespace {

// A text to copy, and the description of the copy's block.
struct described_text {
    const char *text;
    const char *description;
};

// False: there is no memory, and the place is null.
bool copy_into(char *&place, const described_text &source) {
    place = nyx_strdup(source.text, source.description);
    return place != nullptr;
}

// Fills the name and the value of an empty node. False: there is no memory. What was made is the node's.
bool fill_node(quill_nyx_datatree &node, const described_text &name, const described_text &value) {
    node.has_name = copy_into(node.name, name);
    node.has_value = node.has_name && copy_into(node.value, value);
    return node.has_value;
}

void set_status(quill_nyx_request_result &result, std::uint32_t status) {
    result.uint32_1 = status;
    result.has_uint32_1 = 1;
}

// Error path

// The node's one attribute binds the prefix ns1, which the path uses.
bool bind_prefix(quill_nyx_datatree &node, const char *ns) {
    auto *const attribute =
        static_cast<quill_nyx_attribute *>(umbra_named_calloc_(1, sizeof(quill_nyx_attribute), "Error-Path attrs"));
    if (attribute == nullptr) {
        return false;
    }
    node.attributes = attribute;
    node.attributes_count = 1;
    attribute->has_key = copy_into(attribute->key, {"xmlns:ns1", "Error-Path attr key"});
    attribute->has_value = attribute->has_key && copy_into(attribute->value, {ns, "Error-Path attr value"});
    return attribute->has_value;
}

bool fill_path_node(quill_nyx_datatree &node, const char *ns, const char *path) {
    if (!fill_node(node, {" ", "Error-Path tag"}, {path, "Error-Path data"})) {
        return false;
    }
    node.has_namespace = copy_into(node.namespace_, {ns, "Error-Path data"});
    return node.has_namespace && bind_prefix(node, ns);
}

// Error info

struct info_entry {
    described_text name;
    described_text value;
};

void release_entries(quill_nyx_datatree *entries, std::uint32_t count) {
    for (std::uint32_t i = 0; i < count; ++i) {
        quill_nyx_datatree_free_ext(&entries[i], nyx_gpb_free, nullptr, 0);
    }
    nyx_gpb_free(entries);
}

// Null: there is no memory.
template <std::uint32_t Count>
quill_nyx_datatree *make_entries(nyx_api_ctx *nyx_ctx, const info_entry (&wanted)[Count]) {
    quill_nyx_datatree *const entries = nyx_gpb_datatree_create(nyx_ctx, Count);
    if (entries == nullptr) {
        return nullptr;
    }
    for (std::uint32_t i = 0; i < Count; ++i) {
        if (!fill_node(entries[i], wanted[i].name, wanted[i].value)) {
            release_entries(entries, Count);
            return nullptr;
        }
    }
    return entries;
}

// The result takes the entries over; those that it refuses are released.
rcode give_entries(quill_nyx_request_result *result, quill_nyx_datatree *entries, std::uint32_t count) {
    const rcode rc = nyx_req_result_error_info_set(result, entries, count);
    if (rc != 0) {
        release_entries(entries, count);
    }
    return rc;
}

// Element errors

struct element_error {
    std::uint32_t type;
    const char *tag;
    const char *message;
};

rcode set_element_error(nyx_api_ctx *nyx_ctx, quill_nyx_request_result *result, const char *element,
                        const element_error &error) {
    const rcode rc = nyx_req_result_error_set(result, error.type, NYX_ERROR_SEVERITY_ERROR, error.tag, error.message);
    if (rc != 0) {
        return rc;
    }
    const info_entry wanted[] = {{{"bad-element", "str: bad element"}, {element, "element name string"}}};
    quill_nyx_datatree *const entries = make_entries(nyx_ctx, wanted);
    return entries == nullptr ? NYX_RC_NO_MEMORY : give_entries(result, entries, 1);
}

// Request checks

// Answers with an error of type application. The failure is what is returned when that could be done.
rcode answer(quill_nyx_request_result *result, const char *tag, const char *message, rcode failure) {
    const rcode rc =
        nyx_req_result_error_set(result, NYX_ERROR_TYPE_APPLICATION, NYX_ERROR_SEVERITY_ERROR, tag, message);
    return rc != 0 ? rc : failure;
}

const char *tag_of(rcode me_result) {
    static constexpr struct {
        std::uint32_t code;
        const char *tag;
    } tags[] = {
        {0xAAF2AA00, "invalid-value"},
        {0xAAF2BC00, "invalid-value"},
        {0xAAF2B000, "resource-denied"},
        {0xAAF2BE00, "operation-not-supported"},
    };
    for (const auto &[code, tag] : tags) {
        if (code == static_cast<std::uint32_t>(me_result)) {
            return tag;
        }
    }
    return "operation-failed";
}

}  // namespace

rcode nyx_req_result_error_set(quill_nyx_request_result *result, std::uint32_t error_type, std::uint32_t severity,
                               const char *tag, const char *message) {
    if (result == nullptr) {
        return NYX_RC_INVALID_ARGUMENT;
    }
    set_status(*result, 0);
    result->has_error = 1;
    quill_nyx_error &error = result->error;
    error.error_type = error_type;
    error.has_error_type = 1;
    error.error_severity = severity;
    error.has_error_severity = 1;
    char *tag_copy = nullptr;
    if (!copy_into(tag_copy, {tag, "error tag string"})) {
        return NYX_RC_NO_MEMORY;
    }
    error.error_tag = tag_copy;
    error.has_error_tag = 1;
    // An error without its message is better than none.
    error.error_message.has_text = copy_into(error.error_message.text, {message, "error message"});
    return 0;
}

rcode nyx_req_result_error_path_set(quill_nyx_request_result *result, const char *ns, const char *path) {
    quill_nyx_datatree node{};
    if (!fill_path_node(node, ns, path)) {
        quill_nyx_datatree_free_ext(&node, nyx_gpb_free, nullptr, 0);
        return NYX_RC_NO_MEMORY;
    }
    quill_nyx_datatree &error_path = result->error.error_path;
    error_path.name = node.name;
    error_path.has_name = 1;
    error_path.value = node.value;
    error_path.has_value = 1;
    error_path.namespace_ = node.namespace_;
    error_path.has_namespace = 1;
    error_path.attributes = node.attributes;
    error_path.attributes_count = node.attributes_count;
    error_path.has_attributes = 1;
    result->has_error = 1;
    return 0;
}

rcode nyx_req_result_error_info_set(quill_nyx_request_result *result, quill_nyx_datatree *entries,
                                    std::uint32_t count) {
    if (result == nullptr) {
        return NYX_RC_INVALID_ARGUMENT;
    }
    char *name = nullptr;
    if (!copy_into(name, {"error-info", "str: error-info"})) {
        return NYX_RC_NO_MEMORY;
    }
    quill_nyx_datatree &error_info = result->error.error_info;
    error_info.name = name;
    error_info.has_name = 1;
    result->has_error = 1;
    if (entries != nullptr && count != 0) {
        error_info.children = entries;
        error_info.children_count = count;
        error_info.has_children = 1;
    }
    return 0;
}

rcode nyx_req_result_missing_element_set(nyx_request_ctx *req_ctx, nyx_session_ctx *session,
                                         quill_nyx_request_result *result, const char *element) {
    NYX_LOG_OP(ERR, "nyx_req_result_missing_element_set", req_ctx->nyx_ctx, session, req_ctx->request->type,
               MISSING_ELEMENT ": %s", nyx::shown(element));
    return set_element_error(req_ctx->nyx_ctx, result, element,
                             {NYX_ERROR_TYPE_PROTOCOL, "missing-element", MISSING_ELEMENT});
}

rcode nyx_req_result_unknown_element_set(nyx_request_ctx *req_ctx, nyx_session_ctx *session,
                                         quill_nyx_request_result *result, const char *element) {
    NYX_LOG_OP(ERR, "nyx_req_result_unknown_element_set", req_ctx->nyx_ctx, session, req_ctx->request->type,
               UNKNOWN_ELEMENT ": %s", nyx::shown(element));
    return set_element_error(req_ctx->nyx_ctx, result, element,
                             {NYX_ERROR_TYPE_PROTOCOL, "unknown-element", UNKNOWN_ELEMENT});
}

rcode nyx_req_result_bad_element_set(nyx_request_ctx *req_ctx, nyx_session_ctx *session,
                                     quill_nyx_request_result *result, const char *element) {
    NYX_LOG_OP(ERR, "nyx_req_result_bad_element_set", req_ctx->nyx_ctx, session, req_ctx->request->type,
               BAD_ELEMENT ": %s", nyx::shown(element));
    return set_element_error(req_ctx->nyx_ctx, result, element, {NYX_ERROR_TYPE_PROTOCOL, "bad-element", BAD_ELEMENT});
}

rcode nyx_req_result_custom_error_set(nyx_request_ctx *req_ctx, nyx_session_ctx *session,
                                      quill_nyx_request_result *result, const char *element, const char *message) {
    NYX_LOG_OP(ERR, "nyx_req_result_custom_error_set", req_ctx->nyx_ctx, session, req_ctx->request->type,
               BAD_ELEMENT ": %s", nyx::shown(element));
    return set_element_error(req_ctx->nyx_ctx, result, element, {NYX_ERROR_TYPE_APPLICATION, "bad-element", message});
}

void nyx_nomem_error_set(quill_nyx_request_result *result) {
    if (result == nullptr) {
        return;
    }
    set_status(*result, 0);
    quill_nyx_error_free_ext(&result->error, nyx_gpb_free, nullptr, 0);
    result->error = {};
    result->has_error = 0;
}

rcode nyx_req_message_id_check(nyx_request_ctx *req_ctx, nyx_session_ctx *session, quill_nyx_request_result *result) {
    if (req_ctx->request->has_message_id) {
        return 0;
    }
    NYX_LOG_OP(ERR, "nyx_req_message_id_check", req_ctx->nyx_ctx, session, req_ctx->request->type,
               "message-id not set");
    const rcode rc = nyx_req_result_error_set(result, NYX_ERROR_TYPE_RPC, NYX_ERROR_SEVERITY_ERROR, "missing-attribute",
                                              "Message ID is missing.");
    if (rc != 0) {
        return rc;
    }
    static constexpr info_entry wanted[] = {
        {{"bad-attribute", "str: bad-attribute"}, {"message-id", "str: message-id"}},
        {{"bad-element", "str: bad-element"}, {"rpc", "str: rpc"}},
    };
    quill_nyx_datatree *const entries = make_entries(req_ctx->nyx_ctx, wanted);
    if (entries == nullptr) {
        return NYX_RC_NO_MEMORY;
    }
    // The request is refused all the same when its error gets no info.
    static_cast<void>(give_entries(result, entries, 2));
    return NYX_RC_INVALID_REQUEST;
}

rcode nyx_req_session_id_lookup(nyx_request_ctx *req_ctx, quill_nyx_request_result *result,
                                nyx_session_ctx **session_out) {
    const quill_nyx_request &request = *req_ctx->request;
    *session_out = nullptr;
    if (!request.has_session_id) {
        const rcode rc = answer(result, "data-missing", SESSION_ID_MISSING, NYX_RC_INVALID_REQUEST);
        NYX_LOG_OP(ERR, "nyx_req_session_id_lookup", req_ctx->nyx_ctx, nullptr, request.type, SESSION_ID_MISSING);
        return rc;
    }
    *session_out = nyx_session_find(req_ctx->nyx_ctx, request.session_id);
    if (*session_out != nullptr) {
        return 0;
    }
    const rcode rc = answer(result, "invalid-value", "Entered session ID was not found.", NYX_RC_INVALID_REQUEST);
    NYX_LOG_OP(ERR, "nyx_req_session_id_lookup", req_ctx->nyx_ctx, nullptr, request.type,
               "session with id=%d not found", static_cast<std::int32_t>(request.session_id));
    return rc;
}

rcode nyx_me_request_result_check(nyx_request_ctx *req_ctx, nyx_session_ctx *session, quill_nyx_request_result *result,
                                  rcode me_result) {
    NYX_ASSERT_NOT_NULL(req_ctx->nyx_ctx);
    if (me_result == 0) {
        NYX_LOG_OP(DBG, "nyx_me_request_result_check", req_ctx->nyx_ctx, session, req_ctx->request->type,
                   "ME request success.");
        if (result == nullptr) {
            return NYX_RC_INVALID_ARGUMENT;
        }
        set_status(*result, 1);
        return 0;
    }
    const char *const text = rcode_strerror(me_result);
    NYX_LOG_OP(ERR, "nyx_me_request_result_check", req_ctx->nyx_ctx, session, req_ctx->request->type,
               "ME request failed: (rc=%d) %s", me_result, text);
    return answer(result, tag_of(me_result), text, NYX_RC_REQUEST_FAILED);
}
