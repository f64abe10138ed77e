/**
 * @file answer.h
 * What a request is answered with: a response when there is data to return or when there are several errors, otherwise
 * a request result.
 */
#ifndef REQUEST_PATH_ANSWER_H
#define REQUEST_PATH_ANSWER_H

#include <vector>

#include "failure.h"
#include "records.h"
#include "tree.h"
#include "wire.h"

namespace request_path {

class answer {
  public:
    /** Where all goes that is neither data nor several errors. */
    quill_nyx_request_result &result() { return result_.record; }

    /** Throws std::bad_alloc, and is no response then.
     * @{ */
    const quill_nyx_datatree &return_data(node data);
    void return_failures(const std::vector<rpc_failure> &failures, nyx_request_ctx &under_way,
                         nyx_session_ctx *session);
    /** @} */

    /** @return whether it tells of a failure, if only that there is one */
    bool is_failure() const;

    message encode() const;

  private:
    owned_result result_;
    owned_response response_;
    bool is_response_ = false;
};

}  // namespace request_path

#endif
