/**
 * @file back_end.h
 * The operations on the datastores. What is above them knows sessions and requests, but no datastore.
 */
#ifndef REQUEST_PATH_BACK_END_H
#define REQUEST_PATH_BACK_END_H

#include <nyx_api.h>
#include <nyx_session_store.h>

#include "answer.h"
#include "datastore.h"
#include "edit.h"

namespace request_path {

/** Codes that nyx_me_request_result_check() has error tags of their own for: resource-denied, operation-not-supported.
 * @{ */
inline constexpr auto me_resource_denied = static_cast<rcode>(0xAAF2B000);
inline constexpr auto me_not_supported = static_cast<rcode>(0xAAF2BE00);
/** @} */

class back_end {
  public:
    /**
     * Carries a request out as a whole, or changes nothing.
     * @return 0, or a code of a failure. When the reply is a failure already, it says more than the code could: an
     *         element, a path, the holder of a lock
     */
    rcode carry_out(nyx_request_ctx &under_way, nyx_session_ctx &session, answer &reply);

    /** Unlocks what the session has locked. */
    void forget_session(uint32_t session) { stores_.forget_session(session); }

  private:
    struct call {
        nyx_request_ctx &under_way;
        nyx_session_ctx &session;
        answer &reply;
    };

    /* Each throws an rpc_failure for what no code can say. */
    rcode dispatch(const call &now);
    static void read(const node &content, const quill_nyx_filter &filter, bool filtered, const call &now);
    void edit_config(const quill_nyx_edit_config &body, const call &now);
    void copy_config(const quill_nyx_copy_config &body, uint32_t session);
    void delete_config(uint32_t session);
    void validate_config(const quill_nyx_validate &body) const;
    void lock(store which, uint32_t session);
    void unlock(store which, uint32_t session);
    void commit(const quill_nyx_commit &body, uint32_t session);
    void discard_changes(uint32_t session);
    void check_writable(store which, uint32_t session) const;

    datastores stores_;
};

}  // namespace request_path

#endif
