// Scenarios of a failing platform: a call of an exported function, what it leaves when nothing fails, and what it
// leaves when one of the platform calls that it makes fails.
#ifndef NYX_TEST_FAILING_CALLS_H
#define NYX_TEST_FAILING_CALLS_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "nyx_api.h"

namespace nyx_test {

// The objects of a call. They are made by the constructor, while the platform works.
class exercise {
  public:
    exercise() = default;
    exercise(const exercise &) = delete;
    exercise &operator=(const exercise &) = delete;
    virtual ~exercise() = default;

    virtual std::string call() = 0;             // what the function returns
    virtual std::string state() { return ""; }  // what it leaves; asked while the platform works
    virtual void make_ready() {}                // after a call, for the same call again
    virtual void clean_up() { make_ready(); }   // gives back everything that can be given back
};

using block_names = std::vector<std::string>;

// What a call returns and leaves, and the descriptions of the blocks that are live then.
struct outcome {
    std::string text;
    block_names live;
};

// What a call logs: so many of the lines of the undisturbed call, from the first on, and these.
struct logged_lines {
    std::size_t kept;
    std::vector<std::string> added;  // with N in the place of numbers and addresses
};

struct failing_call {
    std::string function;
    std::uint64_t nth;
    std::optional<outcome> expected;    // none: that of the undisturbed call
    std::string emptied;                // not empty: this text of the undisturbed outcome is empty
    block_names leaked;                 // nobody can give these back any more
    std::optional<outcome> lasting;     // of an allocation: if all that follow fail, too; none: the same
    std::optional<logged_lines> lines;  // none: those of the undisturbed call
};

// Collects failures in the order of the platform calls: each is that of the next call of its function.
class failures {
  public:
    failures &of(const std::string &function, const outcome &expected, const block_names &leaked = {}) {
        return add(function, expected, "", leaked);
    }

    // Nobody is the worse for it.
    failures &harmless(const std::string &function) { return add(function, std::nullopt, "", {}); }

    // A length that cannot be measured is taken for 0. `shown` is how the text is shown, up to its second quote.
    failures &measured(const std::string &shown) { return add("strnlen_s", std::nullopt, shown, {}); }

    // What the last one comes to when the call goes on without its block, and gets none from then on.
    failures &lasting(const outcome &expected) {
        rows_.back().lasting = expected;
        return *this;
    }

    // The lines of the last one are not those of the undisturbed call.
    failures &logs(std::size_t kept, const std::vector<std::string> &added = {}) {
        rows_.back().lines = {kept, added};
        return *this;
    }

    // A copy made by nyx_strdup(): its length, its block, its characters. Without the last, the block is lost.
    failures &copy(const std::string &shown, const std::string &description, const outcome &missing,
                   const std::optional<outcome> &while_short = std::nullopt) {
        measured(shown);
        of("umbra_named_malloc_", missing).rows_.back().lasting = while_short;
        outcome kept = missing;
        kept.live.push_back(description);
        return of("memcpy_s", kept, {description});
    }

    // NOLINTNEXTLINE(google-explicit-constructor): a table is written as its rows
    operator std::vector<failing_call>() const { return rows_; }

  private:
    failures &add(const std::string &function, const std::optional<outcome> &expected, const std::string &emptied,
                  const block_names &leaked) {
        rows_.push_back({function, ++counts_[function], expected, emptied, leaked, std::nullopt, std::nullopt});
        return *this;
    }

    std::vector<failing_call> rows_;
    std::map<std::string, std::uint64_t> counts_;
};

struct scenario {
    std::string name;  // of the exported function; behind a slash, what is special
    std::function<std::unique_ptr<exercise>()> set_up;
    outcome undisturbed;
    std::vector<failing_call> rows;

    [[nodiscard]] std::string function() const { return name.substr(0, name.find('/')); }
};

inline void PrintTo(const scenario &printed, std::ostream *out) {
    *out << printed.name;
}

using scenarios = std::vector<scenario>;

// An exercise that consists of a call alone.
inline scenario plain(const std::string &name, const std::function<std::string()> &call, const std::string &text,
                      const std::vector<failing_call> &failing = {}) {
    class lone_call : public exercise {
      public:
        explicit lone_call(std::function<std::string()> given) : call_(std::move(given)) {}
        std::string call() override { return call_(); }

      private:
        std::function<std::string()> call_;
    };
    return {name, [call] { return std::make_unique<lone_call>(call); }, {text, {}}, failing};
}

inline std::string shown(const char *text) {
    return text == nullptr ? "null" : '"' + std::string(text) + '"';
}

inline std::string shown_code(std::int32_t code) {
    switch (code) {
        case NYX_RC_DEBUG_CLEANUP:
            return "DEBUG_CLEANUP";
        case NYX_RC_INVALID_ARGUMENT:
            return "INVALID_ARGUMENT";
        case NYX_RC_DEBUG_INIT:
            return "DEBUG_INIT";
        case NYX_RC_NO_MEMORY:
            return "NO_MEMORY";
        case NYX_RC_INVALID_REQUEST:
            return "INVALID_REQUEST";
        case NYX_RC_REQUEST_FAILED:
            return "REQUEST_FAILED";
        default:
            return std::to_string(code);
    }
}

}  // namespace nyx_test

#endif
