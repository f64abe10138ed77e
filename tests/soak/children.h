// The processes of a long run.
#ifndef TESTS_SOAK_CHILDREN_H
#define TESTS_SOAK_CHILDREN_H

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>

namespace soak {

/** Seconds that anything which takes no time may take: long enough for a busy machine, not for ever. */
inline constexpr uint32_t patience = 60;

/** Throws std::runtime_error with what is wrong if it does not hold. */
inline void require(bool holds, const std::string &otherwise) {
    if (!holds) {
        throw std::runtime_error(otherwise);
    }
}

/** The child runs @p work, ends with its result, and goes when its parent is gone. */
pid_t in_a_child(const std::function<int()> &work);

/** Throws when the child has ended. */
void require_running(pid_t child, const std::string &name);

/** Waits for the end of the child; throws when it does not come, or is not a success. */
void require_good_end(pid_t child, const std::string &name);

/** @return the most KiB of memory that a process, which has to be there, ever held */
uint64_t peak_memory(pid_t process);

}  // namespace soak

#endif
