#include "checks.h"

#include "records.h"

namespace request_path {

void check_message_id(const quill_nyx_request &request) {
    if (!request.has_message_id) {
        throw rpc_failure{error_rpc,
                          "missing-attribute",
                          "Message ID is missing.",
                          {{"bad-attribute", "message-id"}, {"bad-element", "rpc"}},
                          {},
                          {},
                          {}};
    }
}

nyx_session_ctx &check_session_id(const quill_nyx_request &request, nyx_api_ctx &api) {
    if (!request.has_session_id) {
        throw simple_failure(error_application, "data-missing", "Session ID is missing.");
    }
    nyx_session_ctx *const session = nyx_session_find(&api, request.session_id);
    if (session == nullptr) {
        throw simple_failure(error_application, "invalid-value", "Entered session ID was not found.");
    }
    return *session;
}

namespace {

/* One node: a blank name, the path as its value, and the namespaces of the path's prefixes as attributes. */
void set_path(quill_nyx_datatree &record, const rpc_failure &failure) {
    node path;
    path.name = " ";
    path.value = failure.path;
    path.name_space = failure.path_spaces.empty() ? "" : failure.path_spaces.front();
    for (size_t i = 0; i < failure.path_spaces.size(); ++i) {
        path.attributes.push_back({"xmlns:ns" + std::to_string(i + 1), failure.path_spaces[i]});
    }
    write_tree(record, path);
}

void set_info(quill_nyx_datatree &record, const rpc_failure &failure) {
    node info;
    info.name = "error-info";
    for (const auto &[name, value] : failure.info) {
        node &entry = info.children.emplace_back();
        entry.name = name;
        entry.value = value;
    }
    write_tree(record, info);
}

}  // namespace

void set_error(quill_nyx_error &error, const rpc_failure &failure) {
    error.error_type = failure.type;
    error.has_error_type = 1;
    error.error_tag = copy_string(failure.tag);
    error.has_error_tag = 1;
    error.error_severity = severity_error;
    error.has_error_severity = 1;
    error.error_message.text = copy_string(failure.message);
    error.error_message.has_text = 1;
    if (!failure.app_tag.empty()) {
        error.error_app_tag = copy_string(failure.app_tag);
        error.has_error_app_tag = 1;
    }
    if (!failure.path.empty()) {
        set_path(error.error_path, failure);
    }
    if (!failure.info.empty()) {
        set_info(error.error_info, failure);
    }
}

void set_failure(quill_nyx_request_result &result, const rpc_failure &failure) {
    result.uint32_1 = 0;
    result.has_uint32_1 = 1;
    set_error(result.error, failure);
}

void set_success(quill_nyx_request_result &result) {
    result.uint32_1 = 1;
    result.has_uint32_1 = 1;
}

}  // namespace request_path
