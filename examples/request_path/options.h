/**
 * @file options.h
 * The command line.
 */
#ifndef REQUEST_PATH_OPTIONS_H
#define REQUEST_PATH_OPTIONS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "levels.h"
#include "processor.h"

namespace request_path {

struct options {
    std::vector<std::string> arguments;  ///< files, and @ with whose requests they hold
    bool verbose = false;
    uint32_t timeout = 10;
    std::optional<uint64_t> cut_after;
    std::optional<uint32_t> session_seed;
    log_settings logs;
    processor_settings processor;
};

/**
 * Reads the command line; prints help, or what is wrong with it.
 * @return the program's exit code when it is to end at once
 */
std::optional<int> read_command_line(int argc, char **argv, options &given);

/* Exit codes. */
inline constexpr int all_succeeded = 0;
inline constexpr int some_request_failed = 1;
inline constexpr int no_conversation = 2;

}  // namespace request_path

#endif
