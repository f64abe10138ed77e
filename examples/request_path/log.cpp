#include "log.h"

#include <skein/skein.h>

#include <array>
#include <cstdarg>
#include <cstdio>

namespace request_path {

nyx_debug_ctx_t &log_ctx(const nyx_request_ctx &under_way, uint32_t component) {
    nyx_debug_ctx_t &root = under_way.nyx_ctx->debug;
    nyx_debug_ctx_t *const found = nyx_debug_get_component_ctx(&root, component);
    return found == nullptr ? root : *found;
}

uint32_t log_operation(const nyx_request_ctx &under_way) {
    return under_way.request->has_type ? under_way.request->type : uint32_t{NYX_DEBUG_OP_COUNT};
}

uint64_t log_flag(const nyx_debug_ctx_t &ctx, nyx_debug_log_type type) {
    switch (type) {
        case NYX_DEBUG_LOG_TYPE_DEBUG:
            return ctx.debug_flag;
        case NYX_DEBUG_LOG_TYPE_TRACE:
            return ctx.trace_flag;
        default:  // warnings share the flag of errors
            return ctx.error_flag;
    }
}

void write_trace_line(const nyx_debug_ctx_t &ctx, const char *format, ...) {
    constexpr uint64_t entry_attributes = 0x0000010101000000;  // what the library gives its own entries
    std::array<char, 250> line;
    std::va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(line.data(), line.size(), format, arguments);
    va_end(arguments);
    _skein_str(ctx.trace_handle, entry_attributes, line.data());
}

}  // namespace request_path
