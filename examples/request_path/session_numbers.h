/**
 * @file session_numbers.h
 * The two names of a session. The agent numbers its sessions 1, 2 and so on, and these numbers are what NETCONF's
 * session-id elements hold; the processor's store draws an id for each at random, and ids are what the records hold.
 */
#ifndef REQUEST_PATH_SESSION_NUMBERS_H
#define REQUEST_PATH_SESSION_NUMBERS_H

#include <quill_nyx.h>

#include <cstdint>
#include <map>
#include <optional>

namespace request_path {

/** Stands for a session that the agent does not know, or that it knows to be closed: no session has it. */
inline constexpr uint32_t no_session = 0;

class session_numbers {
  public:
    void open(uint32_t number, uint32_t id) { ids_[number] = id; }

    /** The number stays known, so that its session is not opened once more; its id may become another session's. */
    void close(uint32_t id);

    /** @return nothing when the session was never opened; no_session when it is closed */
    std::optional<uint32_t> id_of(uint32_t number) const;

    /** @return no_session when the id is that of no session of this agent */
    uint32_t number_of(uint32_t id) const;

    /** @return an id that no session of this agent has, and not no_session */
    uint32_t unknown_id() const;

  private:
    std::map<uint32_t, uint32_t> ids_;
};

/** Puts numbers in the place of ids: session-id in an error's information. The record's strings are of the library's
 * allocator. */
void name_sessions(quill_nyx_error &error, const session_numbers &sessions);

}  // namespace request_path

#endif
