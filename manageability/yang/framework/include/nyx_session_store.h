/**
 * @file nyx_session_store.h
 * The store of client sessions of one API context: sessions under random 32-bit ids, found again by id.
 *
 * @code
 * nyx_session_store_init(&api);
 * nyx_session_ctx *session = nyx_session_create(&api);    // null: no memory, or no free id found
 * uint32_t id = session->session_id;                      // handed to the client
 * ...
 * if (nyx_session_find(&api, id) == session) { ... }      // a request that names the id
 * nyx_session_destroy(&api, session);
 * nyx_session_store_cleanup(&api);
 * @endcode
 *
 * @par What the store releases
 * nyx_session_destroy of a session that is in the store releases its two owned buffers and the session.
 * nyx_session_destroy of a session that is not in the store, and nyx_session_store_cleanup, release the session
 * records alone: a caller that has filled owned buffers destroys its sessions one by one, or releases the buffers
 * itself, before it cleans the store up.
 *
 * @par Ids
 * Ids are meant to be unlikely to meet, not to be secret: whoever has seen some of them may be able to compute others.
 * They are drawn from the process-wide generator of lrand48(), which nyx_session_store_init seeds with the time in
 * seconds: processes that initialise their stores within the same second draw the same ids.
 *
 * @par Threads
 * The store takes no lock. Serialise all calls on one API context.
 *
 * The API context is asserted wherever it is needed: a null one ends the process.
 */
#ifndef NYX_SESSION_STORE_H
#define NYX_SESSION_STORE_H

#include <stdint.h>

#include "nyx_api.h"

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/** One client session. Zeroed when it is created but for its id. */
typedef struct nyx_session_ctx {
    void *session_owned_a; /**< null, or a block of umbra_named_malloc_ and its like that belongs to the session */
    uint32_t session_id;   /**< never 0, unique among the sessions of a store; do not change it */
    void *user_a;          /**< the caller's; the store neither reads nor releases it */
    void *user_b;          /**< as user_a */
    void *user_c;          /**< as user_a */
    void *user_d;          /**< as user_a */
    void *session_owned_b; /**< as session_owned_a */
} nyx_session_ctx;

/**
 * Makes the context's store ready: seeds lrand48() with the time, draws the state of the id generator from it and
 * initialises the tree. A store that holds sessions must be cleaned up before it is initialised again.
 * @return 0; the code of the bounded memory function (logged at ERR: "mem init failure") or of the tree, in which case
 *         the store must not be used
 */
rcode nyx_session_store_init(nyx_api_ctx *nyx_ctx);

/**
 * Releases all sessions (not their owned buffers) and finishes the tree.
 * @return the tree's code; 0 is success
 */
rcode nyx_session_store_cleanup(nyx_api_ctx *nyx_ctx);

/**
 * Creates a session under a fresh id: at most 15 candidates are drawn, and one that is 0 or in use is passed over
 * (logged at TRC).
 * @return the session, owned by the store; null when memory is short or no candidate was free (logged at ERR), in which
 *         case nothing is held, and nothing is changed but the state that ids are drawn from
 */
nyx_session_ctx *nyx_session_create(nyx_api_ctx *nyx_ctx);

/** @return the store's session with that id; null when there is none, and for id 0 */
nyx_session_ctx *nyx_session_find(nyx_api_ctx *nyx_ctx, uint32_t session_id);

/**
 * Releases a session.
 *
 * It is looked up by its id. If the store has that id, the tree's node goes, and the session with both its owned
 * buffers. If not (logged at DBG), the session record alone is released: its owned buffers are left alone.
 *
 * If the tree does not give the node up (logged at TRC), the node stays in it and **points to the released session**:
 * the store must neither be used nor cleaned up any more. The tree that comes with the library gives every node up.
 *
 * @param session a session of this store; null does nothing
 */
void nyx_session_destroy(nyx_api_ctx *nyx_ctx, nyx_session_ctx *session);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
