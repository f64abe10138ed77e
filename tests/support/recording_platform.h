// A platform that writes down what the library asks of it, and refuses where a test says so.
//
// A program that links nyx_recording_platform defines every function of the platform libraries itself, so that the
// library, which reaches them across shared-library boundaries, calls these. Each call is recorded with its arguments.
// What has a behaviour of its own (bounded strings, trees, hash maps, texts of codes) is left to the bundled libraries;
// flags and trace files are made of nothing but handles; blocks come from the heap and are watched.
//
//     recorder().fail("umbra_dt_flag_init", 2, 17);       // the second call from now on returns 17
//     EXPECT_EQ(nyx_debug_init(&ctx, "x", NYX_COMPONENT_NYX, nullptr), NYX_RC_DEBUG_INIT);
//     EXPECT_EQ(recorder().calls("umbra_dt_flag_enable"), calls_of(called("umbra_dt_flag_enable", flag_handle(1), 0)));
//
// Calls that a bundled library makes of itself, or of another one, while it serves a call are no calls of the library:
// they are neither recorded nor made to fail. Nothing here is made for more than one thread.
#ifndef NYX_TEST_RECORDING_PLATFORM_H
#define NYX_TEST_RECORDING_PLATFORM_H

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "umbra/hashmap.h"

namespace nyx_test {

// An argument or a result: its 64 bits (smaller numbers extended by their own sign), and a copy of the text that a
// const char * pointed to. Two texts are equal if they read the same, everything else if the bits are the same.
struct value {
    std::uint64_t bits = 0;
    std::optional<std::string> text;

    bool operator==(const value &other) const { return text && other.text ? *text == *other.text : bits == other.bits; }
};

template <class T>
value value_of(T argument) {
    if constexpr (std::is_null_pointer_v<T>) {
        return {};
    } else if constexpr (std::is_same_v<T, const char *> || std::is_same_v<T, char *>) {
        const auto bits = reinterpret_cast<std::uintptr_t>(argument);
        return {bits, argument == nullptr ? std::nullopt : std::optional<std::string>(argument)};
    } else if constexpr (std::is_pointer_v<T>) {
        return {reinterpret_cast<std::uintptr_t>(argument), std::nullopt};
    } else {
        static_assert(std::is_integral_v<T>);
        return {static_cast<std::uint64_t>(argument), std::nullopt};
    }
}

// A call of a platform function. Its result is no part of its identity.
struct call {
    std::string function;
    std::vector<value> arguments;
    value result;

    bool operator==(const call &other) const { return function == other.function && arguments == other.arguments; }
};

void PrintTo(const value &printed, std::ostream *out);
void PrintTo(const call &printed, std::ostream *out);

// The call that a test expects.
template <class... Arguments>
call called(const char *function, Arguments... arguments) {
    return {function, {value_of(arguments)...}, {}};
}

template <class... Calls>
std::vector<call> calls_of(Calls... calls) {
    return {calls...};
}

// What came through _umbra_dt_log_filter_adv.
struct log_line {
    std::uint64_t flag;
    std::vector<std::uint64_t> zeros;  // the five arguments that are always 0
    std::uint32_t *filter;             // the site's filter word
    std::uint32_t filter_value;        // and what it held
    const char *format;                // where the format lies
    std::string format_text;           // and what it said
    std::string text;
};

// What came through _skein_str.
struct trace_line {
    std::uint64_t handle;
    std::uint64_t attributes;
    std::string text;
};

struct allocation {
    std::string description;
    std::uint64_t size;  // of all elements together
};

// The handles that umbra_dt_flag_init and skein_init2 hand out: the first one after a reset is number 1.
constexpr std::uint64_t flag_handle(std::uint64_t nth) {
    return 0xF1A6'0000'0000'0000 + nth;
}
constexpr std::uint64_t trace_handle(std::uint64_t nth) {
    return 0x5CE1'0000'0000'0000 + nth;
}

// What a failing call leaves where it would have stored a handle.
inline constexpr std::uint64_t junk_handle = 0xBAD0'BAD0'BAD0'BAD0;

// What fresh blocks are filled with: no test mistakes it for zeroed memory.
inline constexpr std::uint8_t fresh_byte = 0xA5;

class recording_platform {
  public:
    recording_platform(const recording_platform &) = delete;
    recording_platform &operator=(const recording_platform &) = delete;

    // Everything as at the start: no calls, no lines, no failures, no blocks.
    void reset();
    // Forgets calls, lines and allocations; blocks, handles and failures yet to come stay.
    void forget();

    // All calls in their order, or those of one function.
    [[nodiscard]] const std::vector<call> &calls() const { return calls_; }
    [[nodiscard]] std::vector<call> calls(std::string_view function) const;
    // The names of the functions called, in order.
    [[nodiscard]] std::vector<std::string> functions() const;
    [[nodiscard]] const std::vector<log_line> &log_lines() const { return log_lines_; }
    [[nodiscard]] const std::vector<trace_line> &trace_lines() const { return trace_lines_; }
    [[nodiscard]] std::vector<std::string> log_texts() const;
    [[nodiscard]] std::vector<std::string> trace_texts() const;

    // Blocks that were asked for, in order, refused ones included; a changed size counts as asking.
    [[nodiscard]] const std::vector<allocation> &allocations() const { return allocations_; }
    [[nodiscard]] std::vector<std::string> allocation_texts() const;
    // Descriptions of the blocks and hash maps that nobody has given back, sorted.
    [[nodiscard]] std::vector<std::string> live_blocks() const;
    // The size of a live block; none: the block is not live.
    [[nodiscard]] std::optional<std::uint64_t> size_of(const void *block) const;

    // The n-th call of the function from now on (1 is the next one) does nothing but return the result: a number, or
    // the address of what is returned. It leaves junk where it would have stored a handle.
    void fail(const std::string &function, std::uint64_t nth = 1, std::int64_t result = 0);
    // As do all calls from the n-th on.
    void fail_from(const std::string &function, std::uint64_t nth, std::int64_t result = 0);
    void fail_all(const std::string &function, std::int64_t result = 0) { fail_from(function, 1, result); }
    // The n-th allocation from now on, whichever function asks for it, returns null.
    void fail_allocation(std::uint64_t nth);
    void fail_allocations_from(std::uint64_t nth);
    // The action is done at every call of the function, recorded but not yet served: for looking at what the library
    // has done so far.
    void when_called(const std::string &function, const std::function<void()> &action);
    // Takes back what was said about failures.
    void fail_nothing() { failures_.clear(); }

    // What went wrong: double and foreign frees, failures that never came to pass, functions that do not exist. Empty:
    // nothing.
    [[nodiscard]] std::string complaints() const;

    // The names of all functions of this platform.
    [[nodiscard]] const std::set<std::string> &known_functions() const { return known_functions_; }

  private:
    friend recording_platform &recorder();
    friend struct platform_internals;

    struct failure {
        std::string function;  // empty: any allocation
        std::uint64_t nth;
        bool onwards;
        std::int64_t result;
        std::uint64_t seen = 0;
        bool happened = false;
    };

    recording_platform() = default;
    ~recording_platform() { reset(); }

    void arm(const failure &armed);
    std::optional<std::int64_t> failure_of(const std::string &function);
    void act(const std::string &function);
    void note_allocation(const call &asking);
    void *take(std::uint64_t size, const std::string &description);
    void give(void *block);
    void *change(void *block, std::uint64_t size);
    void complain(const std::string &what) { complaints_ += what + '\n'; }

    std::set<std::string> known_functions_;
    std::vector<call> calls_;
    std::vector<log_line> log_lines_;
    std::vector<trace_line> trace_lines_;
    std::vector<allocation> allocations_;
    std::map<void *, allocation> live_;
    std::set<const umbra_hashmap *> live_maps_;
    std::set<void *> returned_;
    std::vector<failure> failures_;
    std::map<std::string, std::function<void()>> actions_;
    std::uint64_t flags_ = 0;
    std::uint64_t trace_files_ = 0;
    std::string complaints_;
};

// The one platform of the program.
recording_platform &recorder();

// The text that the bundled library has for a code, read without leaving a trace in the recording.
std::string text_of_code(std::int32_t code);

// Tests on a fresh platform, which everything has to be given back to.
class platform_test : public testing::Test {
  protected:
    void SetUp() override { recorder().reset(); }
    void TearDown() override {
        EXPECT_EQ(recorder().complaints(), "");
        EXPECT_EQ(recorder().live_blocks(), std::vector<std::string>());
    }
};

}  // namespace nyx_test

#endif
