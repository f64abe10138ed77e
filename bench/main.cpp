// nyx_bench [Google Benchmark's flags]
//     every operation of every codec on every message, as Google Benchmark reports it
// nyx_bench --table [--quick] [--best] [--filter REGEX] [Google Benchmark's flags]
//     medians of interleaved repetitions, compared with the goals; REGEX is searched in "message/operation". --best
//     takes the fastest repetition instead, which a busy machine disturbs least
// nyx_bench --loop MESSAGE OPERATION N [CODEC]
//     does one operation N times, for counting its instructions: only they are collected
// nyx_bench --smoke
//     does every operation once
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <valgrind/callgrind.h>

#include <chrono>
#include <cstring>
#include <regex>
#include <set>

#include "codecs.h"
#include "table.h"

namespace {

std::vector<operation> operations_on(const std::string &name) {
    const sample message = make_sample(name);
    std::vector<operation> operations;
    add_libnyx(message, operations);
    add_protobuf(message, operations);
    add_protobuf_c(message, operations);
    add_nanopb(message, operations);
    return operations;
}

void run_batch(const operation &what, std::size_t count) {
    what.prepare(count);
    what.run(count);
    what.finish(count);
}

// Whatever ran before has left the heap's free lists in its own order, on which the time of every malloc depends. They
// are merged, and one batch that is not timed brings them into the order which the operation itself leaves.
void settle_heap(const operation &what) {
    malloc_trim(0);
    run_batch(what, what.batch);
}

double median(std::vector<double> &times) {
    const auto middle = times.begin() + static_cast<std::ptrdiff_t>(times.size() / 2);
    std::nth_element(times.begin(), middle, times.end());
    return *middle;
}

// Every batch counts as long as their median, so that being interrupted by other programs does not count.
void measure(benchmark::State &state, const operation &what) {
    using clock = std::chrono::steady_clock;
    if (what.uses_heap) {
        settle_heap(what);
    }
    std::vector<double> times;
    while (state.KeepRunningBatch(static_cast<benchmark::IterationCount>(what.batch))) {
        what.prepare(what.batch);
        const clock::time_point start = clock::now();
        what.run(what.batch);
        const clock::time_point end = clock::now();
        what.finish(what.batch);
        times.push_back(std::chrono::duration<double>(end - start).count());
    }
    state.SetIterationTime(median(times) * static_cast<double>(times.size()));
}

// The keys of what a table needs whose rows are those that the pattern finds.
std::set<std::string> wanted_keys(const std::regex &pattern) {
    std::set<std::string> keys;
    for (const std::string &message : sample_names()) {
        for (const comparison &each : comparisons()) {
            if (std::regex_search(message + "/" + each.operation, pattern)) {
                keys.insert(message + "/" + each.operation + "/libnyx");
                keys.insert(message + "/" + each.other);
            }
        }
    }
    return keys;
}

void register_operations(const std::set<std::string> *wanted) {
    for (const std::string &message : sample_names()) {
        const auto first = wanted != nullptr ? wanted->lower_bound(message + "/") : std::set<std::string>::iterator();
        if (wanted != nullptr &&
            (first == wanted->end() || first->compare(0, message.size() + 1, message + "/") != 0)) {
            continue;
        }
        for (const operation &what : operations_on(message)) {
            const std::string key = message + "/" + what.name + "/" + what.codec;
            if (wanted == nullptr || wanted->count(key) != 0) {
                benchmark::RegisterBenchmark(key.c_str(), [what](benchmark::State &state) {
                    measure(state, what);
                })->UseManualTime();
            }
        }
    }
}

// Keeps the time of every repetition.
class collector : public benchmark::BenchmarkReporter {
  public:
    bool ReportContext(const Context &) override { return true; }

    void ReportRuns(const std::vector<Run> &runs) override {
        for (const Run &run : runs) {
            if (run.run_type == Run::RT_Iteration && !run.error_occurred) {
                times_[run.run_name.function_name].push_back(run.GetAdjustedRealTime());
            }
        }
    }

    // The fastest repetitions, or else the medians.
    timings results(bool best) {
        timings result;
        for (auto &[key, times] : times_) {
            result[key] = best ? *std::min_element(times.begin(), times.end()) : median(times);
        }
        return result;
    }

  private:
    std::map<std::string, std::vector<double>> times_;
};

struct options {
    bool table = false;
    bool quick = false;
    bool best = false;
    std::string filter = ".";
    std::vector<char *> others;
};

options parse(int argc, char **argv) {
    options result;
    for (int i = 0; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument == "--table") {
            result.table = true;
        } else if (argument == "--quick") {
            result.quick = true;
        } else if (argument == "--best") {
            result.best = true;
        } else if (argument == "--filter") {
            require(++i < argc, "--filter needs a regular expression");
            result.filter = argv[i];
        } else {
            result.others.push_back(argv[i]);
        }
    }
    return result;
}

// What the user says about the repetitions comes after what is said here, and so prevails.
int run_table(const options &asked) {
    std::string flags[] = {"--benchmark_enable_random_interleaving=true",
                           asked.quick ? "--benchmark_repetitions=5" : "--benchmark_repetitions=15",
                           asked.quick ? "--benchmark_min_time=0.005" : "--benchmark_min_time=0.03"};
    std::vector<char *> arguments{asked.others.front()};
    for (std::string &flag : flags) {
        arguments.push_back(flag.data());
    }
    arguments.insert(arguments.end(), asked.others.begin() + 1, asked.others.end());
    int count = static_cast<int>(arguments.size());
    arguments.push_back(nullptr);
    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) {
        return EXIT_FAILURE;
    }
    const std::set<std::string> keys = wanted_keys(std::regex(asked.filter));
    register_operations(&keys);
    collector collected;
    benchmark::RunSpecifiedBenchmarks(&collected);
    print_table(sample_names(), collected.results(asked.best));
    return EXIT_SUCCESS;
}

int run_benchmarks(options asked) {
    int count = static_cast<int>(asked.others.size());
    asked.others.push_back(nullptr);
    benchmark::Initialize(&count, asked.others.data());
    if (benchmark::ReportUnrecognizedArguments(count, asked.others.data())) {
        return EXIT_FAILURE;
    }
    register_operations(nullptr);
    benchmark::RunSpecifiedBenchmarks();
    return EXIT_SUCCESS;
}

void repeat(const operation &what, std::size_t times) {
    for (std::size_t left = times; left != 0;) {
        const std::size_t count = std::min(left, what.batch);
        what.prepare(count);
        CALLGRIND_TOGGLE_COLLECT;
        what.run(count);
        CALLGRIND_TOGGLE_COLLECT;
        what.finish(count);
        left -= count;
    }
}

// Once before, uncollected: what is done on first use alone does not count.
int run_loop(int argc, char **argv) {
    require(argc == 5 || argc == 6, "usage: nyx_bench --loop MESSAGE OPERATION N [CODEC]");
    const std::string codec = argc == 6 ? argv[5] : "libnyx";
    for (const operation &what : operations_on(argv[2])) {
        if (what.name == argv[3] && what.codec == codec) {
            run_batch(what, 1);
            repeat(what, std::strtoul(argv[4], nullptr, 10));
            return EXIT_SUCCESS;
        }
    }
    require(false, (std::string("no operation ") + argv[3] + " of " + codec + " on " + argv[2]).c_str());
    return EXIT_FAILURE;
}

int run_smoke() {
    for (const std::string &message : sample_names()) {
        for (const operation &what : operations_on(message)) {
            repeat(what, 1);
            std::printf("%s/%s/%s\n", message.c_str(), what.name.c_str(), what.codec.c_str());
        }
    }
    return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char **argv) {
    if (argc > 1 && std::strcmp(argv[1], "--loop") == 0) {
        return run_loop(argc, argv);
    }
    if (argc > 1 && std::strcmp(argv[1], "--smoke") == 0) {
        return run_smoke();
    }
    const options asked = parse(argc, argv);
    return asked.table ? run_table(asked) : run_benchmarks(asked);
}
