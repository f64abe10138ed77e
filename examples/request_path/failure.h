/**
 * @file failure.h
 * Why an operation cannot be done: thrown where it is found, and turned into the error of the reply in one place.
 */
#ifndef REQUEST_PATH_FAILURE_H
#define REQUEST_PATH_FAILURE_H

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace request_path {

/** Numbers of quill_nyx_error.error_type, in the order in which NETCONF lists the types. */
enum error_type : uint32_t { error_transport = 0, error_rpc = 1, error_protocol = 2, error_application = 3 };

/** Number of quill_nyx_error.error_severity that says "error". */
inline constexpr uint32_t severity_error = 0;

struct rpc_failure {
    error_type type = error_application;
    std::string tag;
    std::string message;
    std::vector<std::pair<std::string, std::string>> info;  ///< elements of error-info: name and value
    std::string app_tag;
    std::string path;                      ///< uses the prefixes ns1, ns2 and so on
    std::vector<std::string> path_spaces;  ///< namespaces of ns1, ns2 and so on
};

/** The three failures that name one element. @{ */
inline rpc_failure missing_element(const std::string &name) {
    return {error_protocol, "missing-element", "An expected element is missing.", {{"bad-element", name}}, {}, {}, {}};
}
inline rpc_failure unknown_element(const std::string &name) {
    return {error_protocol, "unknown-element", "Unknown element is specified.", {{"bad-element", name}}, {}, {}, {}};
}
inline rpc_failure bad_element(const std::string &name) {
    return {error_protocol, "bad-element", "The specified element has bad value.", {{"bad-element", name}}, {}, {}, {}};
}
/** @} */

inline rpc_failure unknown_namespace(const std::string &name, const std::string &name_space) {
    return {error_protocol,
            "unknown-namespace",
            "An unexpected namespace is present.",
            {{"bad-element", name}, {"bad-namespace", name_space}},
            {},
            {},
            {}};
}

inline rpc_failure bad_attribute(const std::string &attribute, const std::string &element) {
    return {error_protocol,
            "bad-attribute",
            "The specified attribute has bad value.",
            {{"bad-attribute", attribute}, {"bad-element", element}},
            {},
            {},
            {}};
}

inline rpc_failure simple_failure(error_type type, std::string tag, std::string message) {
    return {type, std::move(tag), std::move(message), {}, {}, {}, {}};
}

}  // namespace request_path

#endif
