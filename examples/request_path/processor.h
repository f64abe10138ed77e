/**
 * @file processor.h
 * The side that owns the datastores: takes requests from the socket, carries them out and answers them.
 */
#ifndef REQUEST_PATH_PROCESSOR_H
#define REQUEST_PATH_PROCESSOR_H

#include <cstdint>
#include <iosfwd>
#include <optional>

#include "frame.h"
#include "wire.h"

namespace request_path {

struct processor_settings {
    uint64_t memory_budget = 1 << 20;    ///< bytes that decoding one request may take
    uint64_t longest_message = 1 << 20;  ///< bytes of the longest encoding that is taken in or sent
    std::ostream *verbose = nullptr;     ///< where requests are shown, or null
    uint64_t die_at = 0;                 ///< for trying out failures: kill this process at the so-manieth request
    uint64_t stall_at = 0;               ///< likewise, stop it there
};

/** The parts that this process plays, as the library sees them: the framework, and the back end with the datastores. */
struct processor_frame {
    explicit processor_frame(std::optional<uint32_t> session_seed = std::nullopt)
        : sessions(root.api(), session_seed) {}

    frame root{"processor", "processor"};
    component back_end{root, "me", NYX_COMPONENT_ME};
    session_store sessions;
};

/**
 * Serves the connection until the other side closes it. Throws conversation_error.
 * @param api  that of a processor_frame; sessions that are open at the end stay in its store
 */
void serve(connection &agent, nyx_api_ctx &api, const processor_settings &settings);

}  // namespace request_path

#endif
