#include "levels.h"

#include <strings.h>

#include <array>
#include <stdexcept>
#include <string_view>

namespace request_path {

namespace {

constexpr std::array level_names{"none", "error", "warning", "debug", "trace"};

const char *level_name(uint32_t level) {
    return level_names[level];
}

/* The components that a process of this program has, and the word for all. */
constexpr std::array components{NYX_COMPONENT_ALL, NYX_COMPONENT_NYX, NYX_COMPONENT_ME};

const char *component_name(uint32_t index) {
    return nyx_log_component_str(static_cast<uint32_t>(components[index]));
}

/* @return the number from 0 to count - 1 that has the name */
template <class function>
uint32_t number_of(const std::string &name, const char *kind, uint32_t count, function name_of) {
    std::string names;
    for (uint32_t number = 0; number < count; ++number) {
        if (strcasecmp(name.c_str(), name_of(number)) == 0) {
            return number;
        }
        names += (number == 0 ? "" : ", ") + std::string(name_of(number));
    }
    throw std::invalid_argument("no " + std::string(kind) + " \"" + name + "\"; there are " + names);
}

uint32_t level_named(const std::string &name) {
    return number_of(name, "level", level_names.size(), level_name);
}

struct assignment {
    std::string name;
    std::string value;
};

assignment split(const std::string &text) {
    const size_t equals = text.find('=');
    if (equals == std::string::npos) {
        throw std::invalid_argument("\"" + text + "\" is not of the form NAME=LEVEL");
    }
    return {text.substr(0, equals), text.substr(equals + 1)};
}

void stop_tracing(nyx_api_ctx &api) {
    for (uint32_t component = NYX_COMPONENT_NYX; component <= NYX_COMPONENT_BRIEF; ++component) {
        nyx_clear_trace_update_component(&api.debug, component, 0, 1, 0);
    }
}

}  // namespace

level_setting level_of_all(const std::string &text) {
    return {NYX_COMPONENT_ALL, std::nullopt, level_named(text)};
}

level_setting level_of_component(const std::string &text) {
    const assignment given = split(text);
    const uint32_t index = number_of(given.name, "component", components.size(), component_name);
    return {static_cast<uint32_t>(components[index]), std::nullopt, level_named(given.value)};
}

level_setting level_of_operation(const std::string &text) {
    const assignment given = split(text);
    return {NYX_COMPONENT_ALL, number_of(given.name, "operation", NYX_DEBUG_OP_COUNT, nyx_debug_op_name),
            level_named(given.value)};
}

void apply(const log_settings &settings, nyx_api_ctx &api) {
    const bool has_trace_file = api.debug.trace_handle != 0;
    if (settings.clear_traces && has_trace_file) {
        nyx_clear_trace(&api);
    }
    if (!settings.trace) {
        stop_tracing(api);
    }
    for (const level_setting &one : settings.levels) {
        const bool is_here =
            one.component == NYX_COMPONENT_ALL || nyx_debug_get_component_ctx(&api.debug, one.component) != nullptr;
        if (is_here) {
            nyx_debug_logging_set_level(&api, one.component, one.operation.has_value(), one.operation.value_or(0),
                                        one.level, 1);
        }
    }
}

}  // namespace request_path
