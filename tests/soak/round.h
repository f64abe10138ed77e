// One round of requests, from empty datastores without sessions back to them.
#ifndef TESTS_SOAK_ROUND_H
#define TESTS_SOAK_ROUND_H

#include <array>
#include <cstdint>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "agent.h"
#include "named_memory.h"
#include "requests.h"

namespace soak {

struct tally {
    uint64_t requests = 0;  ///< each with one reply, which was as it should be
    uint64_t errors = 0;    ///< replies with an error
    uint64_t pressed = 0;   ///< replies that are bare failures, as memory was short
    uint64_t failed_allocations = 0;
};

class round {
  public:
    /** @param count  goes on from round to round; its requests are what message-ids and values are made of */
    round(nyx_api_ctx &api, request_path::connection &processor, failing_allocation &failures, std::mt19937 &random,
          tally &count)
        : agent_(api, processor, replies_), failures_(failures), random_(random), count_(count) {}

    /** Sends each request, in a random order and on several sessions, with probes between them. Throws when there is
     * not one reply to each, or when a reply says what it should not. */
    void run(std::vector<request> requests);

  private:
    uint32_t &any_session() { return sessions_[random_() % sessions_.size()]; }
    bool one_in(uint32_t so_many) { return random_() % so_many == 0; }

    std::string ask(const std::string &text, uint32_t session);
    void expect(const std::string &content, uint32_t session, const std::string &reply);
    uint32_t *ended_by(const request &one, uint32_t &session);
    void send(const request &one, uint32_t &session);
    void set_pressure(bool pressed);
    void probe(uint32_t session);
    void write_value(uint32_t session);
    void read_value(uint32_t session);
    void echo(uint32_t session);
    void fail_an_allocation();
    void close(uint32_t session);
    void require_empty_datastores(uint32_t session);
    void empty_datastores(uint32_t session);

    std::ostringstream replies_;
    request_path::agent agent_;
    failing_allocation &failures_;
    std::mt19937 &random_;
    tally &count_;
    std::array<uint32_t, 4> sessions_{1, 2, 3, 4};
    uint32_t newest_session_ = 4;
    uint64_t value_ = 0;  ///< what the startup configuration holds
    bool pressed_ = false;
};

}  // namespace soak

#endif
