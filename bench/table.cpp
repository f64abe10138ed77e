#include "table.h"

#include <cstdio>

double comparison::goal_of(const std::string &message) const {
    const auto found = exceptions.find(message);
    return found != exceptions.end() ? found->second : goal;
}

const std::vector<comparison> &comparisons() {
    static const std::vector<comparison> all = {
        {"size", "size/libprotobuf", 0, {}},
        {"size", "size/protobuf-c", 0, {}},
        {"size", "size/nanopb", 0, {}},
        {"encode", "encode/libprotobuf", 0.95, {{"small_get_config", 0.85}, {"edit_1k", 0.85}, {"edit_100k", 1.3}}},
        {"encode", "encode/protobuf-c", 0.3, {}},
        {"encode", "encode/nanopb", 0, {}},
        {"encode", "encode/memcpy", 0, {}},
        {"size_encode", "encode/libprotobuf", 1.35, {}},
        {"encode_segments", "encode/libnyx", 0, {}},
        {"decode_malloc", "decode_malloc/libprotobuf", 0.66, {}},
        {"decode_malloc", "decode_malloc/protobuf-c", 0, {}},
        {"decode_arena", "decode_malloc/libprotobuf", 0.25, {}},
        {"decode_arena", "decode_arena/limit", 1.5, {}},
        {"decode_arena", "decode_arena/libprotobuf", 0, {}},
        {"copy_arena", "copy_arena/libprotobuf", 0.5, {}},
        {"copy_malloc", "copy_malloc/libprotobuf", 0, {}},
        {"release", "release/libprotobuf", 0.6, {{"edit_100k", 0.7}}},
    };
    return all;
}

namespace {

constexpr double growth_goal = 1.5;

const char *verdict(double ratio, double goal, int *missed) {
    if (ratio <= goal) {
        return "ok";
    }
    ++*missed;
    return "MISS";
}

std::string cell(double ours, double theirs, const comparison &each, const std::string &message, int *missed) {
    const double ratio = ours / theirs;
    const double goal = each.goal_of(message);
    // The operation of the other side is named where it is another one.
    const std::string label = each.other.compare(0, each.operation.size() + 1, each.operation + "/") == 0
                                  ? each.other.substr(each.operation.size() + 1)
                                  : each.other;
    char text[160];
    if (goal == 0) {
        std::snprintf(text, sizeof text, " | %s %.1f %.2f", label.c_str(), theirs, ratio);
    } else {
        std::snprintf(text, sizeof text, " | %s %.1f %.3f<=%.2f %s", label.c_str(), theirs, ratio, goal,
                      verdict(ratio, goal, missed));
    }
    return text;
}

// Comparisons of the same operation stand next to each other.
int print_message(const std::string &message, const timings &measured) {
    int missed = 0;
    std::string row;
    for (const comparison &each : comparisons()) {
        const auto ours = measured.find(message + "/" + each.operation + "/libnyx");
        const auto theirs = measured.find(message + "/" + each.other);
        if (ours == measured.end() || theirs == measured.end()) {
            continue;
        }
        if (each.operation != row) {
            std::printf("%s%-16s %-15s %11.1f", row.empty() ? "" : "\n", message.c_str(), each.operation.c_str(),
                        ours->second);
            row = each.operation;
        }
        std::fputs(cell(ours->second, theirs->second, each, message, &missed).c_str(), stdout);
    }
    if (!row.empty()) {
        std::putchar('\n');
    }
    return missed;
}

int print_growth(const timings &measured) {
    int missed = 0;
    std::string printed;
    for (const comparison &each : comparisons()) {
        const auto low = measured.find("chain_20/" + each.operation + "/libnyx");
        const auto high = measured.find("chain_1000/" + each.operation + "/libnyx");
        if (each.operation == printed || low == measured.end() || high == measured.end()) {
            continue;
        }
        printed = each.operation;
        const double per_level_low = low->second / 20;
        const double per_level_high = high->second / 1000;
        const double growth = per_level_high / per_level_low;
        std::printf("%-16s %-15s %11.2f | at 20 levels %.2f %.3f<=%.2f %s\n", "ns per level", each.operation.c_str(),
                    per_level_high, per_level_low, growth, growth_goal, verdict(growth, growth_goal, &missed));
    }
    return missed;
}

}  // namespace

int print_table(const std::vector<std::string> &messages, const timings &measured) {
    std::printf("%-16s %-15s %11s | peer ns ratio<=goal\n", "message", "operation", "libnyx ns");
    int missed = 0;
    for (const std::string &message : messages) {
        missed += print_message(message, measured);
    }
    missed += print_growth(measured);
    std::printf("%d goals missed\n", missed);
    return missed;
}
