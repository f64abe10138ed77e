// Allocators for the codec that watch what it does with memory.
#ifndef NYX_TEST_COUNTING_ALLOCATOR_H
#define NYX_TEST_COUNTING_ALLOCATOR_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace nyx_test {

// Hands out single heap blocks of exactly the size asked for, so that a sanitizer sees every byte beyond it, filled
// with a pattern that no test mistakes for zeroed memory. Blocks that nobody returned are freed with the allocator.
class counting_allocator {
  public:
    static constexpr uint8_t fresh_pattern = 0xA5;

    counting_allocator() = default;
    counting_allocator(const counting_allocator &) = delete;
    counting_allocator &operator=(const counting_allocator &) = delete;
    ~counting_allocator();

    // The two callbacks; pass them with the allocator's address as context.
    static void *alloc(uint64_t size, void *allocator);
    static void free(void *block, void *allocator);

    // The n-th call from now on (1 is the next one) returns null, alone; 0 means that none does.
    void fail_at(uint64_t call) {
        fail_at_ = call;
        calls_ = 0;
    }
    // From the n-th call from now on all return null.
    void fail_from(uint64_t call) {
        fail_from_ = call;
        calls_ = 0;
    }

    // Calls of alloc since construction or the last fail_at, fail_from or forget, failed ones included.
    [[nodiscard]] uint64_t calls() const { return calls_; }
    // Sizes asked for, in order, failed calls included.
    [[nodiscard]] const std::vector<uint64_t> &sizes() const { return sizes_; }
    [[nodiscard]] uint64_t frees() const { return frees_; }
    [[nodiscard]] std::size_t live_blocks() const { return live_.size(); }
    [[nodiscard]] uint64_t live_bytes() const;
    [[nodiscard]] bool owns(const void *block) const { return live_.contains(const_cast<void *>(block)); }
    // What went wrong: double and foreign frees, null frees, requests of 0 bytes. Empty: nothing.
    [[nodiscard]] const std::string &complaints() const { return complaints_; }

    // Starts the counts and sizes anew; live blocks stay.
    void forget();

  private:
    void *take(uint64_t size);
    void give(void *block);
    void complain(const char *what);

    uint64_t fail_at_ = 0;
    uint64_t fail_from_ = 0;
    uint64_t calls_ = 0;
    uint64_t frees_ = 0;
    std::vector<uint64_t> sizes_;
    std::unordered_map<void *, uint64_t> live_;
    std::unordered_map<void *, bool> returned_;
    std::string complaints_;
};

// A region of fixed size that only grows: blocks are aligned for any object and go away with the arena as a whole.
class bump_arena {
  public:
    explicit bump_arena(std::size_t budget);

    // Null when the budget is spent.
    static void *alloc(uint64_t size, void *arena);
    // Takes the block and does nothing.
    static void free(void *block, void *arena);

    [[nodiscard]] std::size_t used() const { return used_; }
    [[nodiscard]] uint64_t blocks() const { return blocks_; }
    void reset();

  private:
    std::unique_ptr<uint8_t[]> memory_;
    std::size_t budget_;
    std::size_t used_ = 0;
    uint64_t blocks_ = 0;
};

}  // namespace nyx_test

#endif
