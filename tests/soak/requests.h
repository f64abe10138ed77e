// What is sent, and what may come back.
#ifndef TESTS_SOAK_REQUESTS_H
#define TESTS_SOAK_REQUESTS_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace soak {

/** How the other requests of a round bear upon the reply. */
enum class reply_kind {
    fixed,     ///< not at all
    lockable,  ///< another session may hold the lock of the datastore; otherwise fixed
    reading,   ///< data, whichever
    writing,   ///< ok, or an error for what the datastores or their locks are
};

struct request {
    std::string name;                 ///< of the file
    std::vector<std::string> before;  ///< rpc elements that stand before it in the file
    std::string text;                 ///< an rpc element
    std::string reply;                ///< as it is when nothing but this request bears upon it
    reply_kind kind = reply_kind::fixed;
    bool closes_its_session = false;
    std::optional<bool> sets_pressure;
    std::optional<uint32_t> kills;  ///< the session with this number
};

/** @return the request in a file; its reply is that of the same name among those that the example's tests expect */
request read_request(const std::string &file);

/** Requests and replies that the long run makes itself. Their message-ids are still to be put in. @{ */
std::string rpc(std::string_view content);
std::string rpc_reply(std::string_view content);
/** @} */

/** @return the same text with another message-id, if it has one */
std::string with_message_id(const std::string &text, uint64_t id);

/** @return the reply with ok, or the bare failure of a processor without memory, that goes with a reply
 * @{ */
std::string ok_instead_of(const std::string &reply);
std::string bare_failure_instead_of(const std::string &reply);
/** @} */

bool is_ok(const std::string &reply);
bool is_error(const std::string &reply);
uint64_t occurrences(std::string_view text, std::string_view of);

/**
 * @param expected  the request's own reply, with the message-id that was sent
 * @param pressed   the processor's memory is short
 */
bool is_acceptable(const std::string &reply, const std::string &expected, reply_kind kind, bool pressed);

}  // namespace soak

#endif
