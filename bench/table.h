// What is compared with what, and what the ratios have to be.
#ifndef NYX_BENCH_TABLE_H
#define NYX_BENCH_TABLE_H

#include <map>
#include <string>
#include <vector>

// One cell of the table: an operation of ours against one of another codec (or another one of ours) on the same
// message.
struct comparison {
    std::string operation;
    std::string other;                         // "operation/codec"
    double goal = 0;                           // the ratio that is not to be exceeded; 0: shown, but nothing is asked
    std::map<std::string, double> exceptions;  // the goals of messages of which more, or less, is asked

    double goal_of(const std::string &message) const;
};

const std::vector<comparison> &comparisons();

// Nanoseconds by "message/operation/codec".
using timings = std::map<std::string, double>;

// Prints a line for every operation of ours that was measured, then how the time of chains grows with their depth.
// Returns how many goals were missed.
int print_table(const std::vector<std::string> &messages, const timings &measured);

#endif
