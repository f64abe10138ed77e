// What the fuzz targets share: the entry point, a check that is fatal in every build, and memory of exact sizes.
#ifndef NYX_FUZZ_TARGET_H
#define NYX_FUZZ_TARGET_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace nyx_fuzz {

[[noreturn]] inline void violated(const char *what, const std::string &detail, int line) {
    std::fprintf(stderr, "line %d: %s does not hold: %s\n", line, what, detail.c_str());
    std::abort();
}

#define REQUIRE(condition, detail)                            \
    do {                                                      \
        if (!(condition)) {                                   \
            nyx_fuzz::violated(#condition, detail, __LINE__); \
        }                                                     \
    } while (false)

// One heap block of exactly the bytes' length: the address sanitizer sees one byte too far.
class exact_copy {
  public:
    exact_copy(const uint8_t *data, std::size_t size) : bytes_(new uint8_t[size]) {
        std::copy_n(data, size, bytes_.get());
    }
    [[nodiscard]] const uint8_t *get() const { return bytes_.get(); }

  private:
    std::unique_ptr<uint8_t[]> bytes_;
};

// The first `kept` characters of a text and its terminator, in one heap block of exactly that length. By default all.
class exact_text {
  public:
    explicit exact_text(std::string_view text, std::size_t kept = SIZE_MAX)
        : size_(std::min(text.size() + 1, kept)), characters_(new char[size_]) {
        std::copy_n(text.data(), std::min(text.size(), size_), characters_.get());
        if (size_ > text.size()) {
            characters_[text.size()] = '\0';
        }
    }
    [[nodiscard]] char *get() { return characters_.get(); }
    [[nodiscard]] std::string_view block() const { return {characters_.get(), size_}; }

  private:
    std::size_t size_;
    std::unique_ptr<char[]> characters_;
};

// The input, taken piece by piece from the front; behind its end everything is 0 or empty.
class input {
  public:
    input(const uint8_t *data, std::size_t size) : at_(data), left_(size) {}

    [[nodiscard]] bool empty() const { return left_ == 0; }
    [[nodiscard]] std::size_t left() const { return left_; }

    uint8_t byte() {
        if (left_ == 0) {
            return 0;
        }
        --left_;
        return *at_++;
    }

    uint64_t number(unsigned bytes) {
        uint64_t value = 0;
        for (unsigned i = 0; i < bytes; ++i) {
            value |= uint64_t{byte()} << 8 * i;
        }
        return value;
    }

    // Up to the next zero byte, which is taken as well: so that texts can grow and shrink in the input.
    std::string text() {
        const uint8_t *const end = std::find(at_, at_ + left_, uint8_t{0});
        std::string found(reinterpret_cast<const char *>(at_), static_cast<std::size_t>(end - at_));
        take(std::min(found.size() + 1, left_));
        return found;
    }

    std::string_view take(std::size_t size) {
        const std::string_view taken(reinterpret_cast<const char *>(at_), std::min(size, left_));
        at_ += taken.size();
        left_ -= taken.size();
        return taken;
    }
    std::string_view rest() { return take(left_); }

  private:
    const uint8_t *at_;
    std::size_t left_;
};

}  // namespace nyx_fuzz

#endif
