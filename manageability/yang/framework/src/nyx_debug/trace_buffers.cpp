// The trace files of the components: opening and emptying them.
#include <cstdint>
#include <cstdio>
#include <ctime>

#include "nyx_api.h"
#include "nyx_assert.h"
#include "nyx_debug.h"
#include "skein/skein.h"

const nyx_trace_table_entry trace_table[12] = {
    {NYX_COMPONENT_NONE, nullptr, 0, 0},
    {NYX_COMPONENT_ALL, nullptr, 0, 0},
    {NYX_COMPONENT_NYX, "nyx/processor.trace", 6144, 1572864},
    {NYX_COMPONENT_ME, "nyx/me.trace", 49152, 12582912},
    {NYX_COMPONENT_QT, "nyx/qt.trace", 32768, 4194304},
    {NYX_COMPONENT_BK, "nyx/bk.trace", 24576, 6291456},
    {NYX_COMPONENT_MAP, "nyx/map.trace", 16384, 4194304},
    {NYX_COMPONENT_SABLE, "nyx/sable.trace", 8192, 2097152},
    {NYX_COMPONENT_DORIC, "nyx/doric.trace", 8192, 2097152},
    {NYX_COMPONENT_NACM, "nyx/nacm.trace", 4096, 1048576},
    {NYX_COMPONENT_BRIEF, "nyx/brief.trace", 2048, 524288},
    {11, nullptr, 0, 0},
};

namespace {

const nyx_trace_table_entry &table_entry(std::uint32_t component) {
    constexpr std::uint32_t last = sizeof trace_table / sizeof *trace_table - 1;
    return trace_table[component < last ? component : last];
}

// "<agent name>-<file name>", the trace file's name. A component without a file gets a name that ends in the hyphen,
// and no room: the trace library refuses it.
struct trace_file_name {
    char text[sizeof agent_name + 32];

    explicit trace_file_name(const nyx_trace_table_entry &entry) {
        static_cast<void>(
            std::snprintf(text, sizeof text, "%s-%s", agent_name, entry.file_name == nullptr ? "" : entry.file_name));
    }
};

rcode open_trace_buffer(nyx_debug_ctx_t *ctx, const char *name) {
    const nyx_trace_table_entry &entry = table_entry(ctx->component);
    const rcode rc = skein_init2(name, 0, 0, entry.first_size, entry.second_size, 0, &ctx->trace_handle);
    if (rc != 0) {
        // No trace file could hold this, and it may be the first sign of life of a process: no line end is written,
        // because the line that goes on from it is the caller's.
        static_cast<void>(std::fprintf(stderr, "Init trace buffer (%s) failed! (%s)", name, rcode_strerror(rc)));
        ctx->trace_handle = 0;
        ctx->trace_enabled = 0;
        return NYX_RC_DEBUG_INIT;
    }
    ctx->trace_enabled = 1;
    return 0;
}

void sleep_nanoseconds(long nanoseconds) {
    std::timespec rest{0, nanoseconds};
    while (nanosleep(&rest, &rest) != 0) {
        // interrupted by a signal: `rest` is what remains
    }
}

}  // namespace

rcode nyx_init_trace_buffer(nyx_debug_ctx_t *ctx) {
    NYX_ASSERT_NOT_NULL(ctx);
    return open_trace_buffer(ctx, trace_file_name(table_entry(ctx->component)).text);
}

rcode nyx_reinit_trace_buffer(nyx_debug_ctx_t *ctx) {
    NYX_ASSERT_NOT_NULL(ctx);
    const trace_file_name name(table_entry(ctx->component));
    if (ctx->trace_handle != 0) {
        static_cast<void>(skein_close(ctx->trace_handle));
    }
    const std::int32_t rc = skein_delete(name.text);
    if (rc != 0) {
        static_cast<void>(std::fprintf(stderr, "skein_delete(%s) failed, %s", name.text, rcode_strerror(rc)));
        return rc;
    }
    return open_trace_buffer(ctx, name.text);
}

void nyx_clear_trace_update_component(nyx_debug_ctx_t *ctx, std::uint32_t component, std::uint32_t reinit,
                                      std::uint32_t set_enabled, std::uint32_t enabled) {
    nyx_debug_ctx_t *const target = nyx_debug_get_component_ctx(ctx, component);
    if (target == nullptr) {
        return;
    }
    if (reinit != 0) {
        static_cast<void>(nyx_reinit_trace_buffer(target));
    }
    if (set_enabled != 0) {
        target->trace_enabled = enabled;
    }
}

rcode nyx_clear_trace(nyx_api_ctx *api_ctx) {
    NYX_ASSERT_NOT_NULL(api_ctx);
    for (std::uint32_t component = NYX_COMPONENT_NYX; component <= NYX_COMPONENT_BRIEF; ++component) {
        nyx_clear_trace_update_component(&api_ctx->debug, component, 0, 1, 0);
    }
    // Whoever saw tracing on is given the time to finish the line: the files are about to go.
    sleep_nanoseconds(100'000'000);
    for (std::uint32_t component = NYX_COMPONENT_NYX; component <= NYX_COMPONENT_BRIEF; ++component) {
        nyx_clear_trace_update_component(&api_ctx->debug, component, 1, 1, 1);
    }
    return 0;
}
