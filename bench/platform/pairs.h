// Pairs of ours and a peer's, measured in turns within one run.
#ifndef NYX_BENCH_PLATFORM_PAIRS_H
#define NYX_BENCH_PLATFORM_PAIRS_H

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <vector>

// One side of a pair: does its operation `count` times and returns the nanoseconds that these took, without those of
// its preparations.
using timed_loop = std::function<double(std::size_t count)>;

struct pair_of_loops {
    std::string name;       // "named allocation, 64 bytes"
    std::string peer_name;  // "malloc, free"
    std::size_t count;      // operations of one round
    timed_loop ours;
    timed_loop peer;
    double goal = 0;     // the ratio ours / peer that is not to be exceeded; 0: shown, but nothing is asked
    double goal_ns = 0;  // the time of ours that is not to be exceeded; 0: nothing is asked
};

// Nanoseconds that `body` takes, called once.
template <class Body>
double nanoseconds(Body &&body) {
    const auto start = std::chrono::steady_clock::now();
    body();
    return std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - start).count();
}

// Keeps the compiler from dropping what computes `value`.
template <class Value>
void keep(const Value &value) {
    asm volatile("" : : "r,m"(value) : "memory");
}

using pairs = std::vector<pair_of_loops>;

// One function for each concern adds its pairs.
void add_named_allocation(pairs &all);
void add_wavl_tree(pairs &all);
void add_log_sites(pairs &all);
void add_sessions(pairs &all);
void add_trace_dumps(pairs &all);

#endif
