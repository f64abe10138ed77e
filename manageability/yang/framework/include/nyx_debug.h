/**
 * @file nyx_debug.h
 * Debug contexts: who logs, at which level, and into which trace file.
 *
 * A process has one root context (the one inside its nyx_api_ctx) and may hang component contexts under it. The root
 * owns the process's debug-trace flags; its children share them. Every context, root or child, has a ring-buffer trace
 * file of its own, named after the agent and the component.
 *
 * Each log line of the library goes two ways, one independent of the other:
 *  - to the platform's debug log, when the context's level, or the level of the operation under way, allows it;
 *  - into the context's trace file whenever its trace_enabled is not 0, whatever the level.
 *
 * The two read
 *
 * @verbatim
 * ERR: NYX: ctx=0x5581,ses=(nil),op=13,Cannot find specified debug component: QT.
 * #17: ERR: nyx_debug_logging_set_level:104 ctx=0x5581,ses=(nil),op=13,Cannot find specified debug component: QT.
 * @endverbatim
 *
 * ERR, WRN, DBG or TRC is the type; ctx is the API context (or the debug context's snapshot, in lines of its
 * initialisation), and in lines about a request ses is the session and op the operation. The trace line begins with its
 * number within the process, the exported function and the line of the source, and is cut to 249 characters.
 *
 * @code
 * #include <nyx_api.h>
 *
 * nyx_api_ctx api = {0};                                  // zeroed: level NONE, no children, no trace file
 * nyx_debug_ctx_t me = {0};
 * nyx_debug_save_agent_name("agentx");
 * nyx_debug_init(&api.debug, "processor", NYX_COMPONENT_NYX, NULL);   // traces into agentx-nyx/processor.trace
 * nyx_debug_init(&me, "me", NYX_COMPONENT_ME, &api.debug);            // traces into agentx-nyx/me.trace
 * nyx_debug_logging_set_level(&api, NYX_COMPONENT_ALL, 0, 0, QUILL_NYX_LOGGING_LEVEL_WARNING, 0);
 * ...
 * nyx_debug_cleanup(&me);
 * nyx_debug_cleanup(&api.debug);
 * @endcode
 *
 * @par Threads
 * No function here takes a lock. Set up, clean up, clear and set levels from one thread; the checks and the name
 * functions only read and can be called from any thread meanwhile, with the usual caution that a level that is just
 * being changed is seen early or late.
 *
 * @par Failed assertions
 * Where a parameter is said to be asserted, a null pointer ends the process in every build type, with the condition,
 * the source file, the line and the function on the standard error stream.
 */
#ifndef NYX_DEBUG_H
#define NYX_DEBUG_H

#include <stdint.h>

#include "quill_nyx.h"
#include "rcode/rcode.h"

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

typedef struct nyx_api_ctx nyx_api_ctx;

/** The type of a log line; other values are never allowed by a level. */
typedef uint32_t nyx_debug_log_type;
#define NYX_DEBUG_LOG_TYPE_ERROR UINT32_C(0)   /**< "ERR", through error_flag */
#define NYX_DEBUG_LOG_TYPE_WARNING UINT32_C(1) /**< "WRN", through error_flag */
#define NYX_DEBUG_LOG_TYPE_DEBUG UINT32_C(2)   /**< "DBG", through debug_flag */
#define NYX_DEBUG_LOG_TYPE_TRACE UINT32_C(3)   /**< "TRC", through trace_flag */

/** Component numbers. */
enum {
    NYX_COMPONENT_NONE = 0, /**< "none"; in a search, the context that it starts from */
    NYX_COMPONENT_ALL = 1,  /**< "all" */
    NYX_COMPONENT_NYX = 2,
    NYX_COMPONENT_ME = 3,
    NYX_COMPONENT_QT = 4,
    NYX_COMPONENT_BK = 5,
    NYX_COMPONENT_MAP = 6,
    NYX_COMPONENT_SABLE = 7,
    NYX_COMPONENT_DORIC = 8,
    NYX_COMPONENT_NACM = 9,
    NYX_COMPONENT_BRIEF = 10
};

#define NYX_DEBUG_OP_COUNT 23  /**< operations that have a level of their own */
#define NYX_DEBUG_CHILD_MAX 16 /**< children that a context lists */

/**
 * The debug context of a component. The caller owns its memory, zeroes it before nyx_debug_init and keeps it in place
 * until nyx_debug_cleanup: parents and children point to each other.
 */
typedef struct nyx_debug_ctx_t {
    uint64_t component_flag;                /**< the platform's debug-trace flag of the component; 0: none */
    uint64_t debug_flag;                    /**< its child "debug": DBG lines */
    uint64_t error_flag;                    /**< its child "error": ERR and WRN lines */
    uint64_t trace_flag;                    /**< its child "trace": TRC lines */
    uint64_t trace_handle;                  /**< the open trace file; 0: none */
    uint32_t trace_enabled;                 /**< not 0: lines are written into the trace file */
    struct nyx_debug_ctx_t *parent;         /**< null in a root context */
    int32_t ref_count;                      /**< 1 for the owner, 1 for each child */
    uint32_t level;                         /**< quill_nyx_logging_level of the component */
    uint32_t op_level_max;                  /**< the highest of op_levels */
    uint32_t op_levels[NYX_DEBUG_OP_COUNT]; /**< by operation: see nyx_get_op_debug_settings */
    uint32_t component;                     /**< NYX_COMPONENT_..., the index into trace_table */
    struct nyx_debug_ctx_t *children[NYX_DEBUG_CHILD_MAX]; /**< the first child_count are used */
    uint64_t child_count;                                  /**< at most NYX_DEBUG_CHILD_MAX */
} nyx_debug_ctx_t;

/** The trace file of a component. */
typedef struct nyx_trace_table_entry {
    uint32_t component;    /**< the entry's own index */
    const char *file_name; /**< null: the component has no trace file */
    uint32_t first_size;   /**< entries, handed to the trace library */
    uint32_t second_size;  /**< bytes, handed to the trace library */
} nyx_trace_table_entry;

/** By component number; the last entry is empty. In memory that is read-only after relocation. */
extern const nyx_trace_table_entry trace_table[12];

/**
 * Stores the agent's name in agent_name (nyx_api.h), after which trace files are named: call it before the first
 * nyx_debug_init.
 * @param name asserted; cut to 19 characters. As a part of file names it should hold no "/". While it was never set,
 *        trace files are called "-nyx/processor.trace" and the like.
 * @return the length of @p name before the cut
 */
int nyx_debug_save_agent_name(const char *name);

/**
 * Initialises a debug context.
 *
 * A root (null @p parent) registers and enables the platform flags @p name, and below it "error", "debug" and "trace",
 * and opens the trace file of @p component before "debug" and "trace": when that fails, these two are missing, and
 * errors and warnings alone can be logged. A child takes its parent's flags, holds one reference on it, opens its own
 * trace file and is listed among its parent's children; a 17th child works, but cannot be found by
 * nyx_debug_get_component_ctx. A child whose trace file cannot be opened is initialised all the
 * same, and has to be cleaned up; the failure is returned.
 *
 * Level, operation levels, children and trace state keep what the caller put there: zero the context first. The lines
 * of the initialisation itself are logged at DBG (failures at ERR, the missing place for a 17th child at WRN) through a
 * snapshot, whose address they print: a child's land in the parent's trace file, under the parent's level.
 *
 * @param ctx the context; null is an invalid argument
 * @param name name of the component, at most 127 characters; null or longer is an invalid argument. Not kept. An empty
 *        one is no name for a flag of the bundled platform: NYX_RC_DEBUG_INIT.
 * @param component NYX_COMPONENT_...; for one without a file in trace_table the trace library is asked for a file
 *        without room, which the bundled one refuses
 * @param parent the parent, or null for a root
 * @return 0; NYX_RC_INVALID_ARGUMENT, nothing changed; NYX_RC_DEBUG_INIT when a flag or the trace file could not be set
 *         up; a code of the bounded copy. After a failure of a root nyx_debug_cleanup destroys the flags that had
 *         been registered before.
 */
rcode nyx_debug_init(nyx_debug_ctx_t *ctx, const char *name, uint32_t component, nyx_debug_ctx_t *parent);

/**
 * Opens the context's trace file, "<agent name>-<file name of the component>", and turns tracing on.
 * On failure writes "Init trace buffer (<name>) failed! (<reason>)" to the standard error stream, without a line end,
 * and clears trace_handle and trace_enabled. An open trace file is not closed first: see nyx_reinit_trace_buffer.
 * @param ctx asserted
 * @return 0 or NYX_RC_DEBUG_INIT
 */
rcode nyx_init_trace_buffer(nyx_debug_ctx_t *ctx);

/**
 * Empties the context's trace file: closes, deletes and opens it anew, and turns tracing on.
 * @param ctx asserted
 * @return 0; the trace library's code when the file could not be deleted (reported as "skein_delete(<name>) failed,
 *         <reason>" on the standard error stream; handle and trace_enabled stay as they were, and lines are lost until
 *         the file is opened again); NYX_RC_DEBUG_INIT when it could not be opened, as in nyx_init_trace_buffer
 */
rcode nyx_reinit_trace_buffer(nyx_debug_ctx_t *ctx);

/**
 * Finds the context of a component: @p ctx itself, or the first match among its descendants, depth first.
 * @param ctx null gives null
 * @param component NYX_COMPONENT_NONE finds @p ctx itself
 * @return the context, or null
 */
nyx_debug_ctx_t *nyx_debug_get_component_ctx(nyx_debug_ctx_t *ctx, uint32_t component);

/**
 * Drops one reference. The last reference of a root destroys the platform flags; the last of a child takes it out of
 * its parent's children and drops the reference that it held on its parent. Trace files stay open and stay there.
 * Call it once for each nyx_debug_init: one call more on a child drops another reference of its parent.
 * @param ctx asserted
 * @return 0, or NYX_RC_DEBUG_CLEANUP when the flags could not be destroyed
 */
rcode nyx_debug_cleanup(nyx_debug_ctx_t *ctx);

/**
 * Changes the tracing of one component in the tree under @p ctx; does nothing if it is not there.
 * @param ctx may be null
 * @param component as in nyx_debug_get_component_ctx
 * @param reinit not 0: first empties its trace file (nyx_reinit_trace_buffer, whose result is ignored)
 * @param set_enabled not 0: then stores @p enabled in trace_enabled, also when the trace file could not be opened
 * @param enabled the new value
 */
void nyx_clear_trace_update_component(nyx_debug_ctx_t *ctx, uint32_t component, uint32_t reinit, uint32_t set_enabled,
                                      uint32_t enabled);

/**
 * Empties the trace files of all components under the API context's root: turns their tracing off, waits 0.1 s for
 * lines that are just being written, empties the files and turns tracing on.
 * @param api_ctx asserted
 * @return 0, always
 */
rcode nyx_clear_trace(nyx_api_ctx *api_ctx);

/**
 * Whether the context's level allows a line: errors from level ERROR on, warnings from WARNING on, and so forth.
 * @param ctx asserted
 * @return 1 or 0
 */
uint32_t nyx_debug_should_log(const nyx_debug_ctx_t *ctx, nyx_debug_log_type type);

/**
 * Whether the context's level, or else the level of operation @p op, allows a line. The level of an operation only ever
 * adds lines.
 * @param ctx asserted
 * @param op quill_nyx_request_type; others have no level
 * @return 1 or 0
 */
uint32_t nyx_debug_should_log_op(nyx_debug_ctx_t *ctx, nyx_debug_log_type type, uint32_t op);

/**
 * Where the level of an operation is kept: in the slot of its number, but for invoke-rpc (18), which has the last one,
 * and the four operations after it, which have the slot before their number.
 * @return the address within @p ctx; null when @p ctx is null or @p op is 23 or more
 */
uint32_t *nyx_get_op_debug_settings(nyx_debug_ctx_t *ctx, uint32_t op);

/**
 * Sets the level of one component, or of all that have a context under the API context's root, or of one operation
 * within them.
 * @param nyx_ctx asserted
 * @param component NYX_COMPONENT_ALL, or one component; NYX_COMPONENT_NONE means the root
 * @param per_op not 0: sets the level of operation @p op instead of the component's
 * @param op quill_nyx_request_type, below 23 if @p per_op is set; with a greater one nothing is changed or announced
 * @param level stored as it is; one above QUILL_NYX_LOGGING_LEVEL_TRACE is announced without a name
 * @param announce 1: logs "Log level set to ..." at DBG for every context, whatever the levels are
 * @return 0, or NYX_RC_INVALID_ARGUMENT when the one component has no context (logged at ERR)
 */
rcode nyx_debug_logging_set_level(nyx_api_ctx *nyx_ctx, uint32_t component, uint32_t per_op, uint32_t op,
                                  uint32_t level, uint32_t announce);

/** @return the component's name, "unknown" for numbers above 10; constant text */
const char *nyx_log_component_str(uint32_t component);

/** @return the operation's name, such as "get-config", "unknown" for numbers above 22; constant text */
const char *nyx_debug_op_name(uint32_t op);

/**
 * The name of a source file without its directories.
 * @param context used, and asserted, only when @p path is null: logs "Error while processing filename, ..." through its
 *        error_flag
 * @return the part of @p path after its last "/", or @p path itself (also null) when there is none
 */
const char *nyx_debug_short_file(nyx_debug_ctx_t *context, const char *path);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
