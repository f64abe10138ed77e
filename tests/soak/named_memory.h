// The named allocation: what is in use, and one allocation of the processor that is made to fail.
#ifndef TESTS_SOAK_NAMED_MEMORY_H
#define TESTS_SOAK_NAMED_MEMORY_H

#include <cstdint>
#include <string>

namespace soak {

/** @return blocks and bytes in use by this process, one line for each description that has any */
std::string memory_in_use();

/** Makes one allocation fail in another process. To be made before that one is forked. */
class failing_allocation {
  public:
    failing_allocation();
    failing_allocation(const failing_allocation &) = delete;
    failing_allocation &operator=(const failing_allocation &) = delete;
    ~failing_allocation();

    /** It is the allocations of the calling process, from now on, that fail. */
    void is_for_this_process();

    /** The @p which -th from now on fails, the first being 1; 0: none does. */
    void fail(uint32_t which);

    /** @return whether the failure that was asked for has come to pass */
    bool has_failed() const;

  private:
    void *shared_;
};

}  // namespace soak

#endif
