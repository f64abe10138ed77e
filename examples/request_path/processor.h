/**
 * @file processor.h
 * The side that owns the datastores: takes requests from the socket, carries them out and answers them.
 */
#ifndef REQUEST_PATH_PROCESSOR_H
#define REQUEST_PATH_PROCESSOR_H

#include <cstdint>
#include <iosfwd>

#include "wire.h"

namespace request_path {

struct processor_settings {
    uint64_t memory_budget = 1 << 20;    ///< bytes that decoding one request may take
    uint64_t longest_message = 1 << 20;  ///< bytes of the longest encoding that is taken in or sent
    std::ostream *verbose = nullptr;     ///< where requests are shown, or null
    uint64_t die_at = 0;                 ///< for trying out failures: kill this process at the so-manieth request
    uint64_t stall_at = 0;               ///< likewise, stop it there
};

/** Serves the connection until the other side closes it. Throws conversation_error. */
void serve(connection &agent, const processor_settings &settings);

}  // namespace request_path

#endif
