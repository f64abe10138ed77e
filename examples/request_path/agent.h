/**
 * @file agent.h
 * The side that speaks NETCONF: reads rpc elements, has the processor carry them out, and prints rpc-reply elements.
 */
#ifndef REQUEST_PATH_AGENT_H
#define REQUEST_PATH_AGENT_H

#include <libxml/tree.h>
#include <nyx_api.h>

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "records.h"
#include "session_numbers.h"
#include "wire.h"

namespace request_path {

/** @return the XML documents in a text that holds one, or several with the end-of-message marker between them */
std::vector<std::string_view> split_messages(std::string_view text);

/** Whose requests they are: a session's, or of none that the processor knows, for trying out what it says then. */
enum class speaker_kind {
    session,
    none,     ///< the requests name no session
    zero,     ///< session id 0
    unknown,  ///< an id that is no session's
};

struct speaker {
    speaker_kind kind = speaker_kind::session;
    uint32_t session = 1;  ///< one of the agent's, from 1 on; it is opened before its first rpc element
};

class agent {
  public:
    /**
     * @param api      what the agent logs through
     * @param replies  where the rpc-reply elements go, with NETCONF's end-of-message marker between them
     */
    agent(nyx_api_ctx &api, connection &processor, std::ostream &replies)
        : api_(api), processor_(processor), replies_(replies) {}

    /** For trying out failures: only so many bytes of the next message that answers an rpc element are sent. */
    void cut_next_message(uint64_t bytes) { cut_after_ = bytes; }

    /**
     * Handles the rpc elements of a text one after the other.
     * @return whether all of them succeeded
     */
    bool handle(std::string_view text, const speaker &from);

  private:
    bool handle_one(std::string_view text, const speaker &from);
    std::optional<uint32_t> session_id(const speaker &from);
    uint32_t open_session(uint32_t session);
    void address(quill_nyx_request &request, std::optional<uint32_t> id) const;
    message ask(const nyx_request_ctx &under_way, std::optional<uint64_t> cut_after);
    bool print_response(const xmlNode *rpc, const message &reply);
    void take_result(const quill_nyx_request &request, const message &reply, owned_result &result);
    void print(const std::string &reply);

    nyx_api_ctx &api_;
    connection &processor_;
    std::ostream &replies_;
    session_numbers sessions_;
    std::optional<uint64_t> cut_after_;
    bool printed_ = false;
};

}  // namespace request_path

#endif
