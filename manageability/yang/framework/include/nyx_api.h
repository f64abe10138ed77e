/**
 * @file nyx_api.h
 * The frame of the library: the API context that every operation receives, the result codes, the process-wide logging
 * context and the memory-pressure state.
 *
 * @code
 * static nyx_api_ctx api;                                 // zeroed; one per agent is usual, more are possible
 * nyx_debug_save_agent_name("agentx");
 * nyx_debug_init(&api.debug, "processor", NYX_COMPONENT_NYX, NULL);   // nyx_debug.h
 * nyx_session_store_init(&api);                                       // nyx_session_store.h
 * nyx_log_set_ctx(&api);                                  // for operations that take no context
 * ... requests ...
 * nyx_log_set_ctx(NULL);
 * nyx_session_store_cleanup(&api);
 * nyx_debug_cleanup(&api.debug);
 * @endcode
 *
 * The agent's name goes into the names of trace files, which the root debug context opens, and all else logs through
 * that context: hence name, root, the rest. Session store and logging context do not depend on each other.
 *
 * @par Threads
 * The library starts no threads and takes no locks. A caller that uses one API context from several threads serialises
 * those uses; the globals of this header are plain variables.
 */
#ifndef NYX_API_H
#define NYX_API_H

#include <stdint.h>

#include "nyx_debug.h"
#include "quill_nyx.h"
#include "rcode/rcode.h"
#include "umbra/wavl.h"

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/**
 * Result codes that the library makes; 0 is success. Codes of platform calls are passed through as they are.
 * rcode_strerror has a text for each.
 */
#define NYX_RC_DEBUG_CLEANUP (-1426940416)    /**< 0xAAF29E00: a debug flag could not be destroyed */
#define NYX_RC_INVALID_ARGUMENT (-1426939904) /**< 0xAAF2A000: invalid argument */
#define NYX_RC_DEBUG_INIT (-1426939392)       /**< 0xAAF2A200: a debug flag or trace file could not be set up */
#define NYX_RC_NO_MEMORY (-1426938880)        /**< 0xAAF2A400: out of memory */
#define NYX_RC_INVALID_REQUEST (-1426938368)  /**< 0xAAF2A600: message id or session missing or unknown */
#define NYX_RC_REQUEST_FAILED (-1426937856)   /**< 0xAAF2A800: the back end's request failed */

/**
 * The API context. Its owner zeroes it before its first use and keeps it in place while it is in use.
 */
struct nyx_api_ctx {
    nyx_debug_ctx_t debug;        /**< the root debug context: all operations log through it */
    umbra_wavl_tree session_tree; /**< the session store's sessions, by session id */
    uint32_t session_id_state[4]; /**< the session store's id generator */
};

/** A request under way; owned by the caller. */
typedef struct nyx_request_ctx {
    nyx_api_ctx *nyx_ctx;       /**< the API context that serves it */
    quill_nyx_request *request; /**< the request, as decoded */
} nyx_request_ctx;

/** The context through which operations without a context argument log; null until it is set. */
extern nyx_api_ctx *nyx_ctx_log;

/** The memory-pressure state; 0 is normal. */
extern uint32_t nyx_util_mem_state;

/** The agent's name, as nyx_debug_save_agent_name stored it: at most 19 characters, always terminated. */
extern char agent_name[20];

/**
 * Sets nyx_ctx_log.
 * @param ctx may be null; kept, not copied
 * @return the address of nyx_ctx_log
 */
nyx_api_ctx **nyx_log_set_ctx(nyx_api_ctx *ctx);

/**
 * Sets nyx_util_mem_state.
 * @return the address of nyx_util_mem_state
 */
uint32_t *nyx_util_set_mem_state(uint32_t state);

/** @return 1 while the memory-pressure state is 0, which it is until it is set; else 0 */
uint32_t nyx_util_is_mem_usage_normal(void);

/**
 * Takes the next number of a trace line.
 * @return 0, 1, 2, ..., one number for each call in the process, whichever context traces; wraps at 2^32
 */
uint32_t ret_nc_nyx_trace_index_incr(void);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
