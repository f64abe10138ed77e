// Times what the library and its platform do per allocation, tree operation, log line and session beside the best known
// ways of doing the same, and prints a table of the ratios.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <limits>

#include "pairs.h"

namespace {

constexpr int rounds = 25;

struct fastest {
    double ours = std::numeric_limits<double>::infinity();
    double peer = std::numeric_limits<double>::infinity();
};

// Turns make both sides see the same disturbances; the fastest round is the one that was disturbed least.
fastest measure(const pair_of_loops &pair, int turns, std::size_t count) {
    fastest result;
    for (int turn = 0; turn < turns; ++turn) {
        result.ours = std::min(result.ours, pair.ours(count));
        result.peer = std::min(result.peer, pair.peer(count));
    }
    result.ours /= static_cast<double>(count);
    result.peer /= static_cast<double>(count);
    return result;
}

// Returns whether a goal was missed.
bool print(const pair_of_loops &pair, const fastest &times) {
    const double ratio = times.ours / times.peer;
    const bool missed = (pair.goal > 0 && ratio > pair.goal) || (pair.goal_ns > 0 && times.ours > pair.goal_ns);
    std::printf("%-44s %10.2f %10.2f %8.3f", pair.name.c_str(), times.ours, times.peer, ratio);
    if (pair.goal > 0) {
        std::printf("  <= %.2f", pair.goal);
    }
    if (pair.goal_ns > 0) {
        std::printf("  <= %.1f ns", pair.goal_ns);
    }
    std::printf("%s  (%s)\n", missed ? "  MISSED" : "", pair.peer_name.c_str());
    return missed;
}

}  // namespace

// platform_bench [--smoke | FILTER]: --smoke runs everything once and briefly, FILTER selects the pairs whose names
// contain it.
int main(int argc, char **argv) {
    const bool smoke = argc > 1 && std::strcmp(argv[1], "--smoke") == 0;
    const char *filter = argc > 1 && !smoke ? argv[1] : "";
    pairs all;
    add_named_allocation(all);
    add_wavl_tree(all);
    add_log_sites(all);
    add_sessions(all);
    add_trace_dumps(all);
    std::printf("%-44s %10s %10s %8s\n", "ns per operation, fastest of the rounds", "ours", "peer", "ratio");
    int missed = 0;
    for (const pair_of_loops &pair : all) {
        if (pair.name.find(filter) == std::string::npos) {
            continue;
        }
        const fastest times =
            measure(pair, smoke ? 1 : rounds, smoke ? std::min<std::size_t>(pair.count, 1000) : pair.count);
        missed += print(pair, times) ? 1 : 0;
    }
    if (!smoke) {
        std::printf("%d goals missed\n", missed);
    }
    return 0;
}
