// The rule by which every log site of the library writes its two lines.
//
// A site is a type (ERR, WRN, DBG or TRC), the name of the exported function on whose behalf it logs, one format and
// its arguments. The format stands once; the macros put the two heads before it:
//
//   debug log   "ERR: NYX: ctx=%p,..."                  when the level allows it
//   trace file  "#%u: ERR: %s:%d ctx=%p,..."            when tracing is on, whatever the level
//
// Nothing is formatted, and no function called, for a line that nobody wants. Formats are string literals: both forms
// are checked at compile time.
#ifndef NYX_LOG_H
#define NYX_LOG_H

#include <cstdint>

#include "nyx_api.h"
#include "nyx_assert.h"
#include "nyx_debug.h"
#include "umbra/debug_trace.h"

namespace nyx {

// The number of the next trace line; plain, as all state of the process.
extern std::uint32_t trace_index;

// For "%s": not every formatter takes a null text.
inline const char *shown(const char *text) {
    return text != nullptr ? text : "(null)";
}

// Formats one entry, cut to 249 characters, and writes it into the context's trace file.
void write_trace_line(const nyx_debug_ctx_t &debug, const char *format, ...) __attribute__((format(printf, 2, 3)));

// Level n allows the n lowest types, in which an error is 0.
inline bool level_allows(std::uint32_t level, nyx_debug_log_type type) {
    return type <= NYX_DEBUG_LOG_TYPE_TRACE && level > type;
}

// The slot in op_levels of each operation. invoke-rpc came after the operations behind it, and got the last slot.
inline constexpr std::uint8_t op_slots[NYX_DEBUG_OP_COUNT] = {0,  1,  2,  3,  4,  5,  6,  7,  8,  9,  10, 11,
                                                              12, 13, 14, 15, 16, 17, 22, 18, 19, 20, 21};

inline bool op_level_allows(const nyx_debug_ctx_t &debug, nyx_debug_log_type type, std::uint32_t op) {
    const std::uint32_t highest = debug.op_level_max;
    // A highest level of 0 tells nothing: whoever sets the levels by hand need not keep it.
    if (highest != 0 && !level_allows(highest, type)) {
        return false;
    }
    return op < NYX_DEBUG_OP_COUNT && level_allows(debug.op_levels[op_slots[op]], type);
}

inline bool should_log(const nyx_debug_ctx_t &debug, nyx_debug_log_type type) {
    return level_allows(debug.level, type);
}

inline bool should_log_op(const nyx_debug_ctx_t &debug, nyx_debug_log_type type, std::uint32_t op) {
    return should_log(debug, type) || op_level_allows(debug, type, op);
}

inline std::uint64_t flag_of(const nyx_debug_ctx_t &debug, nyx_debug_log_type type) {
    switch (type) {
        case NYX_DEBUG_LOG_TYPE_DEBUG:
            return debug.debug_flag;
        case NYX_DEBUG_LOG_TYPE_TRACE:
            return debug.trace_flag;
        default:  // warnings share the flag of errors
            return debug.error_flag;
    }
}

}  // namespace nyx

#define NYX_LOG_TYPE_ERR NYX_DEBUG_LOG_TYPE_ERROR
#define NYX_LOG_TYPE_WRN NYX_DEBUG_LOG_TYPE_WARNING
#define NYX_LOG_TYPE_DBG NYX_DEBUG_LOG_TYPE_DEBUG
#define NYX_LOG_TYPE_TRC NYX_DEBUG_LOG_TYPE_TRACE

// Writes the two lines of a site: `allowed` gates the first, `debug` is the nyx_debug_ctx_t through which both go.
// Each site has a filter word of its own, by which the platform can silence it.
#define NYX_LOG_SITE(allowed, debug, type, function, format, ...)                                           \
    do {                                                                                                    \
        static std::uint32_t site_filter = 0xFFFFFFFFU;                                                     \
        if (allowed) {                                                                                      \
            _umbra_dt_log_filter_adv(nyx::flag_of(debug, NYX_LOG_TYPE_##type), 0, 0, 0, 0, 0, &site_filter, \
                                     #type ": NYX: " format __VA_OPT__(, ) __VA_ARGS__);                    \
        }                                                                                                   \
        if ((debug).trace_enabled != 0) {                                                                   \
            nyx::write_trace_line(debug, "#%u: " #type ": %s:%d " format, nyx::trace_index++, function,     \
                                  __LINE__ __VA_OPT__(, ) __VA_ARGS__);                                     \
        }                                                                                                   \
    } while (false)

// A site that concerns neither a request nor a named thing. `nyx_ctx` is the API context.
#define NYX_LOG(type, function, nyx_ctx, message, ...)                                                         \
    do {                                                                                                       \
        NYX_ASSERT_NOT_NULL(nyx_ctx);                                                                          \
        NYX_LOG_SITE(nyx::should_log((nyx_ctx)->debug, NYX_LOG_TYPE_##type), (nyx_ctx)->debug, type, function, \
                     "ctx=%p," message, static_cast<const void *>(nyx_ctx) __VA_OPT__(, ) __VA_ARGS__);        \
    } while (false)

// A site inside operation `op` of the session at `session`, null if there is none.
#define NYX_LOG_OP(type, function, nyx_ctx, session, op, message, ...)                                                \
    do {                                                                                                              \
        NYX_ASSERT_NOT_NULL(nyx_ctx);                                                                                 \
        NYX_LOG_SITE(nyx::should_log_op((nyx_ctx)->debug, NYX_LOG_TYPE_##type, op), (nyx_ctx)->debug, type, function, \
                     "ctx=%p,ses=%p,op=%u," message, static_cast<const void *>(nyx_ctx),                              \
                     static_cast<const void *>(session), op __VA_OPT__(, ) __VA_ARGS__);                              \
    } while (false)

// A site that logs on behalf of a named thing through a debug context of its own, whose address it prints.
#define NYX_LOG_NAMED(type, function, debug, name, message)                                                 \
    NYX_LOG_SITE(nyx::should_log(debug, NYX_LOG_TYPE_##type), debug, type, function, "ctx=%p,%s: " message, \
                 static_cast<const void *>(&(debug)), name)

#endif
