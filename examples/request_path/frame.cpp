#include "frame.h"

#include <nyx_session_store.h>

#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>

namespace request_path {

namespace {

void tell_incomplete(const char *role, const nyx_debug_ctx_t &root, rcode code) {
    const bool has_no_trace_file = root.error_flag != 0 && root.trace_handle == 0;
    if (has_no_trace_file) {
        /* The library has begun the line. The flags of debug and trace lines come after the trace file. */
        std::fprintf(stderr, "; the %s goes on without tracing and logs errors and warnings alone\n", role);
    } else {
        std::fprintf(stderr, "%s: %s; it goes on and logs what it can\n", role, rcode_strerror(code));
    }
}

}  // namespace

frame::frame(const char *role, const char *trace_name) {
    nyx_debug_save_agent_name(trace_name);
    const rcode code = nyx_debug_init(&api_.debug, role, NYX_COMPONENT_NYX, nullptr);
    is_complete_ = code == 0;
    if (!is_complete_) {
        tell_incomplete(role, api_.debug, code);
    }
    nyx_log_set_ctx(&api_);
}

frame::~frame() {
    nyx_log_set_ctx(nullptr);
    nyx_debug_cleanup(&api_.debug);
}

component::component(frame &root, const char *name, uint32_t number) : is_set_up_(root.is_complete()) {
    if (is_set_up_ && nyx_debug_init(&ctx_, name, number, &root.api().debug) != 0) {
        std::fprintf(stderr, "; the component %s goes on without tracing\n", name);
    }
}

component::~component() {
    if (is_set_up_) {
        nyx_debug_cleanup(&ctx_);
    }
}

session_store::session_store(nyx_api_ctx &api, std::optional<uint32_t> seed) : api_(api) {
    if (const rcode code = nyx_session_store_init(&api); code != 0) {
        throw std::runtime_error(std::string("no session store: ") + rcode_strerror(code));
    }
    if (seed) {
        srand48(*seed);
        for (uint32_t &word : api.session_id_state) {
            word = static_cast<uint32_t>(lrand48());
        }
    }
}

session_store::~session_store() {
    nyx_session_store_cleanup(&api_);
}

}  // namespace request_path
