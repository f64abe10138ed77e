/**
 * @file checks.h
 * What a processor checks on each request before it looks at the operation, the sessions that it checks against, and
 * how an error gets into a reply. All of it is done by hand here, and nowhere else in this program.
 */
#ifndef REQUEST_PATH_CHECKS_H
#define REQUEST_PATH_CHECKS_H

#include <quill_nyx.h>

#include <set>

#include "failure.h"

namespace request_path {

/** Sessions that are open; their ids are small numbers in the order of their opening, and no id is used twice. */
class session_list {
  public:
    uint32_t open() { return *open_.insert(++last_).first; }
    bool is_open(uint32_t id) const { return open_.contains(id); }
    void close(uint32_t id) { open_.erase(id); }

  private:
    uint32_t last_ = 0;
    std::set<uint32_t> open_;
};

/** Throws an rpc_failure when the request has no message id. */
void check_message_id(const quill_nyx_request &request);

/** @return the session of the request; throws an rpc_failure when it names none or one that is not open */
uint32_t check_session_id(const quill_nyx_request &request, const session_list &sessions);

/** Fills an empty error record. */
void set_error(quill_nyx_error &error, const rpc_failure &failure);

/** Makes an empty request result that of a failed request. */
void set_failure(quill_nyx_request_result &result, const rpc_failure &failure);

/** Makes an empty request result that of a successful request. */
void set_success(quill_nyx_request_result &result);

}  // namespace request_path

#endif
