/**
 * @file agent.h
 * The side that speaks NETCONF: reads rpc elements, has the processor carry them out, and prints rpc-reply elements.
 */
#ifndef REQUEST_PATH_AGENT_H
#define REQUEST_PATH_AGENT_H

#include <cstdint>
#include <iosfwd>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "wire.h"

namespace request_path {

/** @return the XML documents in a text that holds one, or several with the end-of-message marker between them */
std::vector<std::string_view> split_messages(std::string_view text);

class agent {
  public:
    /** @param replies  where the rpc-reply elements go, with NETCONF's end-of-message marker between them */
    agent(connection &processor, std::ostream &replies) : processor_(processor), replies_(replies) {}

    /** For trying out failures: only so many bytes of the next message that answers an rpc element are sent. */
    void cut_next_message(uint64_t bytes) { cut_after_ = bytes; }

    /**
     * Handles the rpc elements of a text one after the other.
     * @param session  which of this agent's sessions they belong to; each is opened before its first rpc element
     * @return whether all of them succeeded
     */
    bool handle(std::string_view text, uint32_t session);

  private:
    bool handle_one(std::string_view text, uint32_t session);
    uint32_t session_id(uint32_t session);
    void print(const std::string &reply);

    connection &processor_;
    std::ostream &replies_;
    std::map<uint32_t, uint32_t> session_ids_;
    std::optional<uint64_t> cut_after_;
    bool printed_ = false;
};

}  // namespace request_path

#endif
