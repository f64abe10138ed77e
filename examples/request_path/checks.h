/**
 * @file checks.h
 * What a processor checks on each request before it looks at the operation, and how an error gets into a reply. All of
 * it is done by hand here, and nowhere else in this program.
 */
#ifndef REQUEST_PATH_CHECKS_H
#define REQUEST_PATH_CHECKS_H

#include <nyx_api.h>
#include <nyx_session_store.h>

#include "failure.h"

namespace request_path {

/** Throws an rpc_failure when the request has no message id. */
void check_message_id(const quill_nyx_request &request);

/** @return the session of the request; throws an rpc_failure when it names none or one that is not in the store */
nyx_session_ctx &check_session_id(const quill_nyx_request &request, nyx_api_ctx &api);

/** Fills an empty error record. */
void set_error(quill_nyx_error &error, const rpc_failure &failure);

/** Makes an empty request result that of a failed request. */
void set_failure(quill_nyx_request_result &result, const rpc_failure &failure);

/** Makes an empty request result that of a successful request. */
void set_success(quill_nyx_request_result &result);

}  // namespace request_path

#endif
