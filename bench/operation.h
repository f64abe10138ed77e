// One operation of one codec on one message, in the form in which the program times it.
#ifndef NYX_BENCH_OPERATION_H
#define NYX_BENCH_OPERATION_H

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <utility>
#include <vector>

// Only `run` is timed; it does the operation `count` times, `count` being at most `batch`. What has to be there before
// and what has to go afterwards (the record to release, the decoded blocks) is made by `prepare` and `finish` for the
// whole batch, so that the clock is read twice per batch and not twice per operation.
struct operation {
    std::string name;
    std::string codec;
    std::size_t batch;
    std::function<void(std::size_t count)> run;
    std::function<void(std::size_t count)> prepare = [](std::size_t) {};
    std::function<void(std::size_t count)> finish = [](std::size_t) {};
    // Its time depends on where malloc and free left their lists: see measure().
    bool uses_heap = false;
};

// An operation that leaves nothing behind.
template <class Body>
operation plain(std::string name, std::string codec, std::size_t batch, Body body) {
    operation result{std::move(name), std::move(codec), batch, nullptr};
    result.run = [body](std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) {
            body();
        }
    };
    return result;
}

// A comparison of messages that differ would be worthless: the program ends.
// Takes plain text, because it stands in what is timed.
inline void require(bool condition, const char *what) {
    if (!condition) {
        std::fprintf(stderr, "nyx_bench: %s\n", what);
        std::exit(EXIT_FAILURE);
    }
}

#endif
