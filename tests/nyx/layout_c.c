// The contexts and constants as a C compiler sees them.
#include <stddef.h>

#include "nyx_api.h"
#include "nyx_debug.h"
#include "nyx_session_store.h"

#define MEMBER_AT(type, member, offset) _Static_assert(offsetof(type, member) == (offset), #type "." #member)

_Static_assert(sizeof(nyx_debug_ctx_t) == 304, "nyx_debug_ctx_t");
MEMBER_AT(nyx_debug_ctx_t, component_flag, 0);
MEMBER_AT(nyx_debug_ctx_t, debug_flag, 8);
MEMBER_AT(nyx_debug_ctx_t, error_flag, 16);
MEMBER_AT(nyx_debug_ctx_t, trace_flag, 24);
MEMBER_AT(nyx_debug_ctx_t, trace_handle, 32);
MEMBER_AT(nyx_debug_ctx_t, trace_enabled, 40);
MEMBER_AT(nyx_debug_ctx_t, parent, 48);
MEMBER_AT(nyx_debug_ctx_t, ref_count, 56);
MEMBER_AT(nyx_debug_ctx_t, level, 60);
MEMBER_AT(nyx_debug_ctx_t, op_level_max, 64);
MEMBER_AT(nyx_debug_ctx_t, op_levels, 68);
MEMBER_AT(nyx_debug_ctx_t, component, 160);
MEMBER_AT(nyx_debug_ctx_t, children, 168);
MEMBER_AT(nyx_debug_ctx_t, child_count, 296);

_Static_assert(sizeof(nyx_trace_table_entry) == 24, "nyx_trace_table_entry");
MEMBER_AT(nyx_trace_table_entry, component, 0);
MEMBER_AT(nyx_trace_table_entry, file_name, 8);
MEMBER_AT(nyx_trace_table_entry, first_size, 16);
MEMBER_AT(nyx_trace_table_entry, second_size, 20);

_Static_assert(sizeof(umbra_wavl_tree) == 64, "umbra_wavl_tree");
_Static_assert(sizeof(nyx_api_ctx) == 384, "nyx_api_ctx");
MEMBER_AT(nyx_api_ctx, debug, 0);
MEMBER_AT(nyx_api_ctx, session_tree, 304);
MEMBER_AT(nyx_api_ctx, session_id_state, 368);

_Static_assert(sizeof(nyx_request_ctx) == 16, "nyx_request_ctx");
MEMBER_AT(nyx_request_ctx, nyx_ctx, 0);
MEMBER_AT(nyx_request_ctx, request, 8);
MEMBER_AT(quill_nyx_request, type, 0);

_Static_assert(sizeof(nyx_session_ctx) == 56, "nyx_session_ctx");
MEMBER_AT(nyx_session_ctx, session_owned_a, 0);
MEMBER_AT(nyx_session_ctx, session_id, 8);
MEMBER_AT(nyx_session_ctx, user_a, 16);
MEMBER_AT(nyx_session_ctx, user_b, 24);
MEMBER_AT(nyx_session_ctx, user_c, 32);
MEMBER_AT(nyx_session_ctx, user_d, 40);
MEMBER_AT(nyx_session_ctx, session_owned_b, 48);

_Static_assert(sizeof(nyx_debug_log_type) == 4, "nyx_debug_log_type");
_Static_assert(NYX_DEBUG_LOG_TYPE_ERROR == 0, "error");
_Static_assert(NYX_DEBUG_LOG_TYPE_WARNING == 1, "warning");
_Static_assert(NYX_DEBUG_LOG_TYPE_DEBUG == 2, "debug");
_Static_assert(NYX_DEBUG_LOG_TYPE_TRACE == 3, "trace");

_Static_assert(NYX_COMPONENT_NONE == 0 && NYX_COMPONENT_ALL == 1 && NYX_COMPONENT_NYX == 2 && NYX_COMPONENT_ME == 3 &&
                   NYX_COMPONENT_QT == 4 && NYX_COMPONENT_BK == 5 && NYX_COMPONENT_MAP == 6 &&
                   NYX_COMPONENT_SABLE == 7 && NYX_COMPONENT_DORIC == 8 && NYX_COMPONENT_NACM == 9 &&
                   NYX_COMPONENT_BRIEF == 10,
               "component numbers");
_Static_assert(NYX_DEBUG_OP_COUNT == 23 && NYX_DEBUG_CHILD_MAX == 16, "sizes");
_Static_assert(QUILL_NYX_LOGGING_LEVEL_NONE == 0 && QUILL_NYX_LOGGING_LEVEL_ERROR == 1 &&
                   QUILL_NYX_LOGGING_LEVEL_WARNING == 2 && QUILL_NYX_LOGGING_LEVEL_DEBUG == 3 &&
                   QUILL_NYX_LOGGING_LEVEL_TRACE == 4,
               "levels");

_Static_assert(sizeof(rcode) == 4, "rcode");
_Static_assert(NYX_RC_DEBUG_CLEANUP == -1426940416, "0xAAF29E00");
_Static_assert(NYX_RC_INVALID_ARGUMENT == -1426939904, "0xAAF2A000");
_Static_assert(NYX_RC_DEBUG_INIT == -1426939392, "0xAAF2A200");
_Static_assert(NYX_RC_NO_MEMORY == -1426938880, "0xAAF2A400");
_Static_assert(NYX_RC_INVALID_REQUEST == -1426938368, "0xAAF2A600");
_Static_assert(NYX_RC_REQUEST_FAILED == -1426937856, "0xAAF2A800");

_Static_assert(sizeof agent_name == 20, "agent_name");
_Static_assert(sizeof nyx_util_mem_state == 4, "nyx_util_mem_state");
_Static_assert(sizeof nyx_ctx_log == 8, "nyx_ctx_log");
_Static_assert(sizeof trace_table == 288, "trace_table");

const void *ctx_log_seen_from_c(void);
uint32_t level_seen_from_c(const nyx_api_ctx *ctx);

const void *ctx_log_seen_from_c(void) {
    return &nyx_ctx_log;
}

uint32_t level_seen_from_c(const nyx_api_ctx *ctx) {
    return ctx->debug.level;
}
