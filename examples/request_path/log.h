/**
 * @file log.h
 * This program's own log lines, which go the same two ways as the library's: to the debug log when the level of the
 * component, or that of the operation under way, allows it, and into the component's trace file while it is traced.
 *
 * @code
 * const nyx_request_ctx under_way{&api, &request};
 * LOG_REQUEST(DBG, ME, under_way, session, "changed %u nodes", count);
 * // debug log:   ... processor/debug: DBG: ME: ctx=0x...,ses=0x...,op=1,changed 3 nodes
 * // trace file:  ... #17: DBG: edit_config:211 ctx=0x...,ses=0x...,op=1,changed 3 nodes
 * @endcode
 *
 * What a client has sent, such as its message-id, is not written: lines are read by people and by other programs, and a
 * client should have no say in what they see.
 */
#ifndef REQUEST_PATH_LOG_H
#define REQUEST_PATH_LOG_H

#include <nyx_api.h>
#include <nyx_session_store.h>
#include <umbra/debug_trace.h>

#include <cstdint>

namespace request_path {

/** @return the component's debug context, or the root when the process has none for it */
nyx_debug_ctx_t &log_ctx(const nyx_request_ctx &under_way, uint32_t component);

/** @return the operation whose level counts; for a request that names none, a number without a level */
uint32_t log_operation(const nyx_request_ctx &under_way);

/** @return the platform's flag for lines of a type */
uint64_t log_flag(const nyx_debug_ctx_t &ctx, nyx_debug_log_type type);

/** Formats a line, cut to the 249 characters that the library's lines have at most, and writes it. */
void write_trace_line(const nyx_debug_ctx_t &ctx, const char *format, ...) __attribute__((format(printf, 2, 3)));

}  // namespace request_path

#define LOG_TYPE_ERR NYX_DEBUG_LOG_TYPE_ERROR
#define LOG_TYPE_WRN NYX_DEBUG_LOG_TYPE_WARNING
#define LOG_TYPE_DBG NYX_DEBUG_LOG_TYPE_DEBUG
#define LOG_TYPE_TRC NYX_DEBUG_LOG_TYPE_TRACE

/**
 * @param type       ERR, WRN, DBG or TRC
 * @param component  NYX, ME, QT and so on
 * @param under_way  nyx_request_ctx
 * @param session    nyx_session_ctx *, null when there is none
 * @param message    a format, as a literal, with its arguments; they are evaluated only for a line that is written
 *
 * A macro, because each site has a filter word of its own, by which the platform can silence it, and because the
 * platform finds a site by its format.
 */
#define LOG_REQUEST(type, component, under_way, session, message, ...)                                             \
    do {                                                                                                           \
        static uint32_t log_filter = UMBRA_DT_ALL;                                                                 \
        nyx_debug_ctx_t &log_to = request_path::log_ctx(under_way, NYX_COMPONENT_##component);                     \
        const uint32_t log_op = request_path::log_operation(under_way);                                            \
        if (nyx_debug_should_log_op(&log_to, LOG_TYPE_##type, log_op) != 0) {                                      \
            _umbra_dt_log_filter_adv(request_path::log_flag(log_to, LOG_TYPE_##type), 0, 0, 0, 0, 0, &log_filter,  \
                                     #type ": " #component ": ctx=%p,ses=%p,op=%u," message,                       \
                                     static_cast<const void *>((under_way).nyx_ctx),                               \
                                     static_cast<const void *>(session), log_op __VA_OPT__(, ) __VA_ARGS__);       \
        }                                                                                                          \
        if (log_to.trace_enabled != 0) {                                                                           \
            request_path::write_trace_line(log_to, "#%u: " #type ": %s:%d ctx=%p,ses=%p,op=%u," message,           \
                                           ret_nc_nyx_trace_index_incr(), static_cast<const char *>(__func__),     \
                                           __LINE__, static_cast<const void *>((under_way).nyx_ctx),               \
                                           static_cast<const void *>(session), log_op __VA_OPT__(, ) __VA_ARGS__); \
        }                                                                                                          \
    } while (false)

#endif
