// Memory that ends where readable memory ends: a read past it stops the program, a write before it is noticed.
#ifndef NYX_TESTS_SAFESTR_FENCED_MEMORY_H
#define NYX_TESTS_SAFESTR_FENCED_MEMORY_H

#include <sys/mman.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

class fenced_memory {
  public:
    static constexpr std::size_t page = 4096;

    // `pages` pages that can be used, and one behind them that cannot.
    explicit fenced_memory(std::size_t pages = 1) : size_(pages * page) {
        void *const block = mmap(nullptr, size_ + page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (block == MAP_FAILED || mprotect(static_cast<char *>(block) + size_, page, PROT_NONE) != 0) {
            std::abort();
        }
        start_ = static_cast<char *>(block);
    }
    ~fenced_memory() { munmap(start_, size_ + page); }
    fenced_memory(const fenced_memory &) = delete;
    fenced_memory &operator=(const fenced_memory &) = delete;

    char *end() const { return start_ + size_; }

    // Room for `count` bytes right before the fence, behind bytes that must not change.
    char *room(std::size_t count) {
        laid_ = end() - count;
        const std::size_t before = std::min(canaries, static_cast<std::size_t>(laid_ - start_));
        std::memset(laid_ - before, canary, before);
        return laid_;
    }

    // These bytes, right before the fence.
    char *lay(const std::string &bytes) {
        char *const at = room(bytes.size());
        std::copy(bytes.begin(), bytes.end(), at);
        return at;
    }

    // The bytes as they are now.
    std::string bytes() const { return {laid_, end()}; }

    // Whether the bytes before them are as they were.
    bool intact_before() const {
        const std::size_t before = std::min(canaries, static_cast<std::size_t>(laid_ - start_));
        return std::all_of(laid_ - before, laid_, [](char c) { return c == canary; });
    }

  private:
    static constexpr std::size_t canaries = 64;
    static constexpr char canary = 0x5A;

    std::size_t size_;
    char *start_ = nullptr;
    char *laid_ = nullptr;
};

#endif
