/**
 * @file failure.h
 * Why an operation cannot be done: thrown where it is found, and written into the result in one place, with the
 * library's functions.
 */
#ifndef REQUEST_PATH_FAILURE_H
#define REQUEST_PATH_FAILURE_H

#include <nyx_error.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "error_path.h"

namespace request_path {

/** The first four name one element; the library knows the rest of what they say, but for the message of a custom one.
 */
enum class failure_kind { missing_element, unknown_element, bad_element, custom, other };

struct rpc_failure {
    failure_kind kind = failure_kind::other;
    std::string element;
    uint32_t type = NYX_ERROR_TYPE_APPLICATION;
    std::string tag;
    std::string message;
    std::vector<std::pair<std::string, std::string>> info;  ///< elements of error-info: name and value
    std::shared_ptr<error_path> path;                       ///< null: none
};

rpc_failure missing_element(const std::string &name);
rpc_failure unknown_element(const std::string &name);
rpc_failure bad_element(const std::string &name);
rpc_failure custom_failure(const std::string &element, const std::string &message);
rpc_failure unknown_namespace(const std::string &name, const std::string &name_space);
rpc_failure bad_attribute(const std::string &attribute, const std::string &element);
rpc_failure simple_failure(uint32_t type, const std::string &tag, const std::string &message);

/**
 * Makes an empty result that of a failed request. Without the memory for it, or while memory is short, the result
 * becomes a bare failure, which carries no error.
 * @param session  for the library's log line; may be null
 */
void write_failure(const rpc_failure &failure, nyx_request_ctx &under_way, nyx_session_ctx *session,
                   quill_nyx_request_result &result);

}  // namespace request_path

#endif
