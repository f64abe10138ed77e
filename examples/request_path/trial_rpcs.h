/**
 * @file trial_rpcs.h
 * Operations of this program's own namespace, for trying out what NETCONF gives no way to provoke.
 *
 * @code
 * <back-end-result xmlns="urn:example:request-path"><code>0xAAF2AA00</code></back-end-result>
 * <memory-state xmlns="urn:example:request-path">short</memory-state>
 * @endcode
 */
#ifndef REQUEST_PATH_TRIAL_RPCS_H
#define REQUEST_PATH_TRIAL_RPCS_H

#include "rcode/rcode.h"
#include "tree.h"

namespace request_path {

/** @return the code that back-end-result asks for; 0 after memory-state; me_not_supported for every other operation.
 * Throws an rpc_failure when the operation's content is wrong. */
rcode carry_out_trial(const node &rpc);

}  // namespace request_path

#endif
