// Who writes: the numbers of the calling process and thread, and whether the process that left a mark still lives.
#ifndef SKEIN_PROCESS_H
#define SKEIN_PROCESS_H

#include <cstdint>

namespace skein {

// A process's mark has 38 bits: its number over a token of 16 bits that is drawn from the time at which it started.
// Numbers are given again, in containers from the same first one at every start; the token tells such processes apart.
// It is 0 when the start time cannot be known.
constexpr uint32_t token_bits = 16;
constexpr uint64_t make_mark(uint32_t pid, uint32_t token) {
    return uint64_t{pid} << token_bits | token;
}
constexpr uint32_t pid_of_mark(uint64_t mark) {
    return static_cast<uint32_t>(mark >> token_bits);
}
constexpr uint32_t token_of_mark(uint64_t mark) {
    return static_cast<uint32_t>(mark & ((1U << token_bits) - 1));
}

struct caller_identity {
    uint64_t mark = 0;
    uint64_t ids = 0;  // process number, in the upper half the thread number: as an entry holds them
};

// The calling thread's identity: a load and a comparison, except in a thread's first call and in a forked child's.
const caller_identity &caller();

// Makes caller() find out anew who it is; for a forked child.
void forget_identity();

// Whether the process that made the mark has ended. When in doubt it has not.
bool has_ended(uint64_t mark);

}  // namespace skein

#endif
