// The process-wide state, and the writing of trace lines.
#include <cstdarg>
#include <cstdint>
#include <cstdio>

#include "nyx_api.h"
#include "nyx_log.h"
#include "skein/skein.h"

nyx_api_ctx *nyx_ctx_log;
std::uint32_t nyx_util_mem_state;
char agent_name[20];

nyx_api_ctx **nyx_log_set_ctx(nyx_api_ctx *ctx) {
    nyx_ctx_log = ctx;
    return &nyx_ctx_log;
}

std::uint32_t *nyx_util_set_mem_state(std::uint32_t state) {
    nyx_util_mem_state = state;
    return &nyx_util_mem_state;
}

std::uint32_t nyx_util_is_mem_usage_normal() {
    return nyx_util_mem_state == 0 ? 1 : 0;
}

std::uint32_t ret_nc_nyx_trace_index_incr() {
    return nyx::trace_index++;
}

int nyx_debug_save_agent_name(const char *name) {
    NYX_ASSERT_NOT_NULL(name);
    return std::snprintf(agent_name, sizeof agent_name, "%s", name);
}

namespace nyx {

std::uint32_t trace_index;

void write_trace_line(const nyx_debug_ctx_t &debug, const char *format, ...) {
    constexpr std::uint64_t entry_attributes = 0x0000010101000000;
    char line[250];
    va_list arguments;
    va_start(arguments, format);
    static_cast<void>(std::vsnprintf(line, sizeof line, format, arguments));
    va_end(arguments);
    // A line that cannot be written is lost: there is nobody left to tell.
    static_cast<void>(_skein_str(debug.trace_handle, entry_attributes, line));
}

}  // namespace nyx
