/**
 * @file nyx_error.h
 * Failed requests: filling a request result with the contents of a NETCONF rpc-error (RFC 6241, section 4.3), and the
 * checks that every request goes through.
 *
 * @code
 * quill_nyx_request_result result;                        // the answer
 * memset(&result, 0, sizeof result);
 * nyx_request_ctx under_way = {&api, &request};           // request: as decoded
 * nyx_session_ctx *session = NULL;
 *
 * rcode rc = nyx_req_message_id_check(&under_way, NULL, &result);
 * if (rc == 0) { rc = nyx_req_session_id_lookup(&under_way, &result, &session); }
 * if (rc == 0) {
 *     rcode done = back_end(&request);                    // the work itself
 *     rc = nyx_me_request_result_check(&under_way, session, &result, done);
 * }
 * if (rc == NYX_RC_NO_MEMORY) { nyx_nomem_error_set(&result); }   // the error is not whole
 * ... encode and send the result ...
 * quill_nyx_request_result_free_ext(&result, nyx_gpb_free, NULL, 0);
 * @endcode
 *
 * @section nyx_error_records What is written
 *
 * A result is zeroed before its first use. The operations here write
 *
 *  - `uint32_1`, the status: 0 failed, 1 succeeded;
 *  - `error.error_type`: 0 transport, 1 rpc, 2 protocol, 3 application; `error.error_severity`: 0 error;
 *  - `error.error_tag`, `error.error_message.text`, `error.error_path` and `error.error_info`.
 *
 * `error.error_app_tag` is never written; it is the caller's to set. Each member that is written is marked present, and
 * so is the result's `error`; `error_path`, `error_message` and `error_info` are not: a nested record that has content
 * is encoded without its mark.
 *
 * @section nyx_error_undecoded Requests that cannot be decoded
 *
 * They get an answer as well. There is no operation to check or to log then, and a partly decoded request is none: only
 * its memory is released. The result is filled directly:
 *
 * @code
 * int32_t decoded = quill_nyx_request_decode_ext(&request, bytes, size, take, &budget, 0);
 * if (decoded != 0) {
 *     int full = decoded == QUILL_DECODE_NO_MEMORY;
 *     rc = nyx_req_result_error_set(&result, NYX_ERROR_TYPE_RPC, NYX_ERROR_SEVERITY_ERROR,
 *                                   full ? "resource-denied" : "malformed-message",
 *                                   full ? "The request is too large." : "The request cannot be decoded.");
 * }
 * @endcode
 *
 * @section nyx_error_memory Memory
 *
 * Every string is a fresh copy made by nyx_strdup(), which refuses while memory is short (nyx_util_set_mem_state()). An
 * error whose message cannot be copied goes without it, and that alone is no failure of the operation. After
 * NYX_RC_NO_MEMORY the error is not whole, it lacks its tag, say, or its info: nyx_nomem_error_set() takes it back, so
 * that no half of one is sent. Who receives a failure without an error tells the client of it, as NETCONF's
 * "resource-denied" for instance.
 *
 * The result owns all of it and gives it back through nyx_gpb_free(), as above. What an operation stores **replaces
 * what was there without releasing it**: set an error once for each result, or empty the result in between.
 *
 * @section nyx_error_logs Logs
 *
 * The element errors and the checks write one line each, for the request's operation and through the root debug context
 * of `req_ctx->nyx_ctx` (nyx_debug.h tells about lines and levels). The other operations log nothing. A session
 * argument serves the line alone, and may be null.
 *
 * @section nyx_error_arguments Arguments
 *
 * Contexts, requests and results are not null, except where null is said to be refused. `req_ctx->nyx_ctx` is asserted
 * where it is needed, for a line or for the store: a null one ends the process. A null text where one is to be copied
 * counts as a copy that failed, and shows as "(null)" in a line.
 *
 * @par Threads
 * A result belongs to the thread that serves its request. Nothing here is locked.
 */
#ifndef NYX_ERROR_H
#define NYX_ERROR_H

#include <stdint.h>

#include "nyx_api.h"
#include "nyx_session_store.h"
#include "quill_nyx.h"
#include "rcode/rcode.h"

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/**
 * @name Numbers of quill_nyx_error.error_type
 * In NETCONF's order.
 * @{
 */
#define NYX_ERROR_TYPE_TRANSPORT 0U   /**< transport */
#define NYX_ERROR_TYPE_RPC 1U         /**< rpc */
#define NYX_ERROR_TYPE_PROTOCOL 2U    /**< protocol */
#define NYX_ERROR_TYPE_APPLICATION 3U /**< application */
/** @} */

/** The number of quill_nyx_error.error_severity that says "error". */
#define NYX_ERROR_SEVERITY_ERROR 0U

/**
 * Makes a result that of a failed request: status 0, and an error of the given type, severity, tag and message.
 *
 * @return
 *  - 0. When there is no memory for the message ("error message"), also: the error then carries none;
 *  - NYX_RC_INVALID_ARGUMENT: the result is null;
 *  - NYX_RC_NO_MEMORY: the tag ("error tag string") could not be copied. Status, type and severity are set, tag and
 *    message are as they were.
 */
rcode nyx_req_result_error_set(quill_nyx_request_result *result, uint32_t error_type, uint32_t severity,
                               const char *tag, const char *message);

/**
 * Sets the error's path: one node named " " with the path as its value, the namespace, and an attribute that binds the
 * prefix ns1 to it (`xmlns:ns1`). For paths through several namespaces see xpath_to_nyx_error() in nyx_api_common.h.
 *
 * @param result  not tested for null: a null one ends in a segmentation fault unless there is no memory
 * @param path    uses the prefix ns1, and is copied as it is. NETCONF wants an absolute one; those of
 *                xpath_to_nyx_error() have no "/" at the front: whoever writes the XML has to tell them apart
 * @return 0; NYX_RC_NO_MEMORY: the result is as it was, and nothing is held
 */
rcode nyx_req_result_error_path_set(quill_nyx_request_result *result, const char *ns, const char *path);

/**
 * Names the error's info "error-info", and gives it entries.
 *
 * @param entries  one block of the named-allocation service, as nyx_gpb_datatree_create() makes it: the result takes it
 *                 over, with all that it owns, when 0 is returned. With null, or a count of 0, the info is named only,
 *                 its entries stay as they were, and a block stays the caller's
 * @return 0; NYX_RC_INVALID_ARGUMENT: the result is null; NYX_RC_NO_MEMORY: the result is as it was. After both, the
 *         entries are the caller's still
 */
rcode nyx_req_result_error_info_set(quill_nyx_request_result *result, quill_nyx_datatree *entries, uint32_t count);

/**
 * Answers that an element is missing: status 0, type protocol, tag "missing-element", message "An expected element is
 * missing.", and one info entry: bad-element, the element's name. Logged first, at ERR, with the name.
 *
 * @param element  the name; may be empty
 * @return 0; NYX_RC_INVALID_ARGUMENT: the result is null; NYX_RC_NO_MEMORY: the error is as
 *         nyx_req_result_error_set() leaves it, and the info is as it was; nothing else is held
 */
rcode nyx_req_result_missing_element_set(nyx_request_ctx *req_ctx, nyx_session_ctx *session,
                                         quill_nyx_request_result *result, const char *element);

/** As nyx_req_result_missing_element_set(), with "unknown-element" and "Unknown element is specified." */
rcode nyx_req_result_unknown_element_set(nyx_request_ctx *req_ctx, nyx_session_ctx *session,
                                         quill_nyx_request_result *result, const char *element);

/** As nyx_req_result_missing_element_set(), with "bad-element" and "The specified element has bad value." */
rcode nyx_req_result_bad_element_set(nyx_request_ctx *req_ctx, nyx_session_ctx *session,
                                     quill_nyx_request_result *result, const char *element);

/**
 * As nyx_req_result_bad_element_set(), with type application and the caller's message. The log line says "The specified
 * element has bad value." all the same.
 */
rcode nyx_req_result_custom_error_set(nyx_request_ctx *req_ctx, nyx_session_ctx *session,
                                      quill_nyx_request_result *result, const char *element, const char *message);

/**
 * Makes a result a bare failure, for a reply that cannot be built for lack of memory: status 0, and no error. What the
 * error holds is released through nyx_gpb_free(), marked or not, and the error zeroed. Allocates nothing.
 *
 * @param result  null does nothing
 */
void nyx_nomem_error_set(quill_nyx_request_result *result);

/**
 * Checks that the request has a message id, which may be empty. A request without one is logged at ERR and answered
 * with type rpc, tag "missing-attribute", message "Message ID is missing." and two info entries: bad-attribute,
 * message-id; bad-element, rpc.
 *
 * @return
 *  - 0: there is one; the result is as it was, nothing is logged;
 *  - NYX_RC_INVALID_REQUEST: there is none, and the result says so. Without memory to name it, it has no info;
 *  - NYX_RC_INVALID_ARGUMENT: the result is null;
 *  - NYX_RC_NO_MEMORY: there is none. The error is as nyx_req_result_error_set() leaves it, and the info is as it was;
 *    nothing else is held.
 */
rcode nyx_req_message_id_check(nyx_request_ctx *req_ctx, nyx_session_ctx *session, quill_nyx_request_result *result);

/**
 * Finds the session that the request names. A request that names none is answered with type application, tag
 * "data-missing" and message "Session ID is missing."; one whose session is not in the store, which holds for id 0
 * always, with tag "invalid-value" and message "Entered session ID was not found." Both are logged at ERR, after the
 * result is filled.
 *
 * @param session_out  not null; becomes the session, owned by the store; null when there is none
 * @return 0: there is a session. Otherwise there is none, and
 *  - NYX_RC_INVALID_REQUEST: the result says so;
 *  - NYX_RC_INVALID_ARGUMENT: the result is null;
 *  - NYX_RC_NO_MEMORY: the result is as nyx_req_result_error_set() leaves it.
 */
rcode nyx_req_session_id_lookup(nyx_request_ctx *req_ctx, quill_nyx_request_result *result,
                                nyx_session_ctx **session_out);

/**
 * Turns what the back end made of a request into the result: status 1 for success (logged at DBG; an error that the
 * result carries stays), otherwise an error of type application whose message is rcode_strerror() of the code (logged
 * at ERR). Its tag:
 *
 * | code | tag |
 * |---|---|
 * | 0xAAF2AA00, 0xAAF2BC00 | invalid-value |
 * | 0xAAF2B000 | resource-denied |
 * | 0xAAF2BE00 | operation-not-supported |
 * | any other but 0 | operation-failed |
 *
 * @param me_result  the back end's code
 * @return 0: success. NYX_RC_REQUEST_FAILED: the code was not 0, and the result says so. NYX_RC_INVALID_ARGUMENT: the
 *         result is null. NYX_RC_NO_MEMORY: the code was not 0, and the result is as nyx_req_result_error_set() leaves
 *         it
 */
rcode nyx_me_request_result_check(nyx_request_ctx *req_ctx, nyx_session_ctx *session, quill_nyx_request_result *result,
                                  rcode me_result);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
