// The processor's process, and what the agent's asks of it besides requests.
#ifndef TESTS_SOAK_PROCESSOR_SIDE_H
#define TESTS_SOAK_PROCESSOR_SIDE_H

#include <string>

#include "named_memory.h"

namespace soak {

/** Serves the connection, and beside it answers each byte that arrives at @p control with memory_in_use(). */
int run_processor(int connection, int control, failing_allocation &failures);

/** The other end of the control. */
class processor_control {
  public:
    explicit processor_control(int socket);

    /** @return the processor's memory_in_use(); throws when no answer comes */
    std::string memory_in_use() const;

    /** Throws unless the processor's memory_in_use() becomes @p expected: it gives back an answer after sending it. */
    void require_memory_in_use(const std::string &expected) const;

  private:
    int socket_;
};

}  // namespace soak

#endif
