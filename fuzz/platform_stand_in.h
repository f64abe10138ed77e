// The two services of the platform that the targets of the library's helpers look into: named allocation, which fails
// where a target says so, and trace files, of which there is only what was written. Everything else is the bundled
// platform. A program that links this defines the services' functions itself.
#ifndef NYX_FUZZ_PLATFORM_STAND_IN_H
#define NYX_FUZZ_PLATFORM_STAND_IN_H

#include <cstdint>
#include <set>
#include <string>
#include <vector>

namespace nyx_fuzz {

// Blocks are of exactly the size asked for and filled with garbage. To give back what is not live ends the process.
class named_memory {
  public:
    // The n-th allocation from now on (1 is the next one) returns null, alone; 0: none does.
    void fail_at(uint64_t n) {
        fail_at_ = n;
        calls_ = 0;
    }
    // Whether that has come to pass. No further allocation fails.
    bool has_failed() {
        const bool failed = fail_at_ != 0 && calls_ >= fail_at_;
        fail_at_ = 0;
        return failed;
    }
    // What the allocation that failed last was for.
    [[nodiscard]] const std::string &failed_description() const { return failed_description_; }
    [[nodiscard]] uint64_t live_blocks() const { return live_.size(); }
    [[nodiscard]] const std::set<void *> &blocks() const { return live_; }
    // Gives back all blocks but those of the set. Returns how many.
    uint64_t free_all_but(const std::set<void *> &kept);

    void *take(uint64_t size, const char *description);
    void give(void *block);
    void *change(void *block, uint64_t size);

  private:
    uint64_t fail_at_ = 0;
    uint64_t calls_ = 0;
    std::string failed_description_;
    std::set<void *> live_;
};

named_memory &memory();

// What was written into trace files since it was emptied.
std::vector<std::string> &trace_entries();

}  // namespace nyx_fuzz

#endif
