#include "failure.h"

#include <nyx_api_common.h>

namespace request_path {

namespace {

rpc_failure element_failure(failure_kind kind, const std::string &name) {
    rpc_failure failure;
    failure.kind = kind;
    failure.element = name;
    return failure;
}

/* An error without a path; of those that name no element, without info as well. */
rcode set_error(const rpc_failure &failure, nyx_request_ctx &under_way, nyx_session_ctx *session,
                quill_nyx_request_result &result) {
    const char *const element = failure.element.c_str();
    switch (failure.kind) {
        case failure_kind::missing_element:
            return nyx_req_result_missing_element_set(&under_way, session, &result, element);
        case failure_kind::unknown_element:
            return nyx_req_result_unknown_element_set(&under_way, session, &result, element);
        case failure_kind::bad_element:
            return nyx_req_result_bad_element_set(&under_way, session, &result, element);
        case failure_kind::custom:
            return nyx_req_result_custom_error_set(&under_way, session, &result, element, failure.message.c_str());
        case failure_kind::other:
            break;
    }
    return nyx_req_result_error_set(&result, failure.type, NYX_ERROR_SEVERITY_ERROR, failure.tag.c_str(),
                                    failure.message.c_str());
}

bool name_entry(quill_nyx_datatree &entry, const std::string &name, const std::string &value) {
    entry.name = nyx_strdup(name.c_str(), "name of an info entry");
    entry.has_name = entry.name != nullptr;
    entry.value = nyx_strdup(value.c_str(), "value of an info entry");
    entry.has_value = entry.value != nullptr;
    return entry.has_name && entry.has_value;
}

rcode set_info(const rpc_failure &failure, nyx_api_ctx &api, quill_nyx_request_result &result) {
    const auto count = static_cast<uint32_t>(failure.info.size());
    if (count == 0) {
        return 0;
    }
    quill_nyx_datatree *const entries = nyx_gpb_datatree_create(&api, count);
    if (entries == nullptr) {
        return NYX_RC_NO_MEMORY;
    }
    bool is_named = true;
    for (uint32_t i = 0; i < count; ++i) {
        is_named = name_entry(entries[i], failure.info[i].first, failure.info[i].second) && is_named;
    }
    const rcode code = is_named ? nyx_req_result_error_info_set(&result, entries, count) : NYX_RC_NO_MEMORY;
    if (code != 0) {  // the entries are still ours
        for (uint32_t i = 0; i < count; ++i) {
            quill_nyx_datatree_free_ext(&entries[i], nyx_gpb_free, nullptr, 0);
        }
        nyx_gpb_free(entries);
    }
    return code;
}

}  // namespace

rpc_failure missing_element(const std::string &name) {
    return element_failure(failure_kind::missing_element, name);
}

rpc_failure unknown_element(const std::string &name) {
    return element_failure(failure_kind::unknown_element, name);
}

rpc_failure bad_element(const std::string &name) {
    return element_failure(failure_kind::bad_element, name);
}

rpc_failure custom_failure(const std::string &element, const std::string &message) {
    rpc_failure failure = element_failure(failure_kind::custom, element);
    failure.message = message;
    return failure;
}

rpc_failure unknown_namespace(const std::string &name, const std::string &name_space) {
    rpc_failure failure =
        simple_failure(NYX_ERROR_TYPE_PROTOCOL, "unknown-namespace", "An unexpected namespace is present.");
    failure.info = {{"bad-element", name}, {"bad-namespace", name_space}};
    return failure;
}

rpc_failure bad_attribute(const std::string &attribute, const std::string &element) {
    rpc_failure failure =
        simple_failure(NYX_ERROR_TYPE_PROTOCOL, "bad-attribute", "The specified attribute has bad value.");
    failure.info = {{"bad-attribute", attribute}, {"bad-element", element}};
    return failure;
}

rpc_failure simple_failure(uint32_t type, const std::string &tag, const std::string &message) {
    rpc_failure failure;
    failure.type = type;
    failure.tag = tag;
    failure.message = message;
    return failure;
}

void write_failure(const rpc_failure &failure, nyx_request_ctx &under_way, nyx_session_ctx *session,
                   quill_nyx_request_result &result) {
    const bool is_complete = set_error(failure, under_way, session, result) == 0 &&
                             set_info(failure, *under_way.nyx_ctx, result) == 0 &&
                             (failure.path == nullptr || failure.path->write(result.error));
    if (!is_complete) {
        nyx_nomem_error_set(&result);
    }
}

}  // namespace request_path
