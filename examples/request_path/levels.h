/**
 * @file levels.h
 * Which lines are logged, and whether they are traced: from the command line's words to the library's debug contexts.
 */
#ifndef REQUEST_PATH_LEVELS_H
#define REQUEST_PATH_LEVELS_H

#include <nyx_api.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace request_path {

/** The level of a component, or of one operation within it. */
struct level_setting {
    uint32_t component = NYX_COMPONENT_ALL;
    std::optional<uint32_t> operation;
    uint32_t level = QUILL_NYX_LOGGING_LEVEL_NONE;
};

/** From words, in upper or lower case. Each throws std::invalid_argument that tells which words there are.
 * @{ */
level_setting level_of_all(const std::string &text);        ///< "debug"
level_setting level_of_component(const std::string &text);  ///< "me=debug"
level_setting level_of_operation(const std::string &text);  ///< "edit-config=debug"
/** @} */

struct log_settings {
    std::vector<level_setting> levels;  ///< later ones take the place of earlier ones
    bool trace = true;
    bool clear_traces = false;  ///< empty the trace files first
};

/** Of the components, only those that the process has are changed. */
void apply(const log_settings &settings, nyx_api_ctx &api);

}  // namespace request_path

#endif
