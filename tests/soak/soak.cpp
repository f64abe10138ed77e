// The request path under load for a long time: soak SECONDS [INPUT...], at least one round of all inputs.
//
// An agent sends the inputs in random order, on several sessions, to a processor in a process of its own, while a third
// process reads both sides' trace files over and over. Rounds end with all sessions closed and memory usage normal.
// It succeeds when every request was answered by one reply, every block of the named allocation was given back on both
// sides, the processor's memory did not grow from the tenth of the time on, and no entry of a trace was damaged.
#include <skein/reader.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <umbra/named_alloc.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cinttypes>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "agent.h"
#include "frame.h"
#include "processor.h"

namespace {

using namespace request_path;
using clock_type = std::chrono::steady_clock;

constexpr uint32_t session_count = 4;

std::string read_file(const std::string &name) {
    std::ifstream file(name, std::ios::binary);
    std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    if (!file || text.empty()) {
        throw std::runtime_error("cannot read " + name);
    }
    return text;
}

std::string rpc(const std::string &content) {
    return R"(<rpc xmlns="urn:ietf:params:xml:ns:netconf:base:1.0" message-id="9">)" + content + "</rpc>";
}

uint64_t live_blocks() {
    umbra_named_usage all{};
    umbra_named_total(&all);
    return all.live_blocks;
}

// Bytes of memory that a process holds.
uint64_t resident(pid_t process) {
    std::ifstream file("/proc/" + std::to_string(process) + "/statm");
    uint64_t pages = 0;
    file >> pages >> pages;
    return pages * static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
}

// The child runs `work`, ends with its result, and goes when its parent is gone.
template <class Work>
pid_t in_a_child(Work work) {
    const pid_t child = fork();
    if (child < 0) {
        throw std::runtime_error("fork");
    }
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        int code = 1;
        try {
            code = work();
        } catch (const std::exception &e) {
            std::fprintf(stderr, "soak: %s\n", e.what());
        }
        _exit(code);
    }
    return child;
}

bool ended_well(pid_t child) {
    int status = 0;
    return waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

int process(int socket) {
    const uint64_t before = live_blocks();
    {
        connection agent_side(socket);
        processor_frame frame;
        serve(agent_side, frame.root.api(), {});
    }
    if (live_blocks() != before) {
        std::fprintf(stderr, "soak: the processor has kept %" PRIu64 " blocks\n", live_blocks() - before);
        umbra_named_report_print(STDERR_FILENO);
        return 1;
    }
    return 0;
}

volatile std::sig_atomic_t is_over = 0;

// Reads one file as it is now; false: it is damaged, or cannot be read.
bool view(const char *name, uint64_t &entries) {
    skein_reader *reader = nullptr;
    const int32_t error = skein_reader_open(nullptr, name, &reader);
    if (error != 0) {
        return error == ENOENT;  // its process has not begun yet
    }
    skein_entry entry;
    while (skein_reader_next(reader, &entry) == 0) {
        ++entries;
    }
    skein_file_info info{};
    const bool sound = skein_reader_info(reader, &info) == 0 && info.damaged == 0;
    skein_reader_close(reader);
    return sound;
}

int view_traces() {
    static_cast<void>(std::signal(SIGTERM, [](int) { is_over = 1; }));
    uint64_t entries = 0;
    uint64_t readings = 0;
    for (; is_over == 0; usleep(20'000)) {
        for (const char *name :
             {"agentx-nyx/processor.trace", "processor-nyx/processor.trace", "processor-nyx/me.trace"}) {
            if (!view(name, entries)) {
                std::fprintf(stderr, "soak: %s is damaged\n", name);
                return 1;
            }
            ++readings;
        }
    }
    std::printf("viewer: %" PRIu64 " readings, %" PRIu64 " entries\n", readings, entries);
    std::fflush(stdout);
    return 0;
}

uint64_t occurrences(std::string_view text, std::string_view of) {
    uint64_t count = 0;
    for (size_t at = text.find(of); at != std::string_view::npos; at = text.find(of, at + of.size())) {
        ++count;
    }
    return count;
}

struct tally {
    uint64_t requests = 0;
    uint64_t replies = 0;
    uint64_t errors = 0;
};

// One round of all inputs in a random order, on sessions that it opens and closes.
void run_round(nyx_api_ctx &api, connection &processor, std::vector<std::string> inputs, std::mt19937 &random,
               tally &count) {
    std::ostringstream replies;
    agent front(api, processor, replies);
    const auto send = [&](std::string_view text, uint32_t session) {
        count.requests += split_messages(text).size();
        front.handle(text, {speaker_kind::session, session});
    };
    std::shuffle(inputs.begin(), inputs.end(), random);
    for (const std::string &input : inputs) {
        send(input, 1 + static_cast<uint32_t>(random() % session_count));
    }
    send(rpc(R"(<memory-state xmlns="urn:example:request-path">normal</memory-state>)"), session_count + 1);
    for (uint32_t session = 1; session <= session_count + 1; ++session) {
        send(rpc("<close-session/>"), session);
    }
    const std::string text = replies.str();
    count.replies += occurrences(text, "<?xml ");
    count.errors += occurrences(text, "<rpc-error>");
}

// Says what is wrong if it does not hold.
bool expect(bool holds, const char *what) {
    if (!holds) {
        std::fprintf(stderr, "soak: %s\n", what);
    }
    return holds;
}

bool run_agent(connection &processor, pid_t processor_process, std::chrono::seconds duration,
               const std::vector<std::string> &inputs) {
    std::mt19937 random(1);
    tally count;
    uint64_t early = 0;
    const uint64_t before = live_blocks();
    {
        frame own("agent", "agentx");
        const auto begin = clock_type::now();
        do {
            run_round(own.api(), processor, inputs, random, count);
            if (early == 0 && clock_type::now() - begin >= duration / 10) {
                early = resident(processor_process);
            }
        } while (clock_type::now() - begin < duration);
    }
    const uint64_t late = resident(processor_process);
    std::printf("agent: %" PRIu64 " requests, %" PRIu64 " replies, %" PRIu64
                " errors in them; the processor held %" PRIu64 " KiB early, %" PRIu64 " KiB at the end\n",
                count.requests, count.replies, count.errors, early / 1024, late / 1024);
    constexpr uint64_t slack = uint64_t{4} << 20;  // the heap's own
    const bool all_answered = expect(count.requests == count.replies, "a reply is missing or one too many");
    const bool all_returned = expect(live_blocks() == before, "the agent has kept blocks");
    return expect(late <= early + slack, "the processor's memory has grown") && all_answered && all_returned;
}

int run(int argc, char **argv) {
    const std::chrono::seconds duration(std::atoi(argv[1]));
    std::vector<std::string> inputs;
    std::transform(argv + 2, argv + argc, std::back_inserter(inputs), read_file);
    std::array<int, 2> sockets{};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets.data()) != 0) {
        throw std::runtime_error("socketpair");
    }
    const pid_t processor = in_a_child([&] {
        close(sockets[0]);
        return process(sockets[1]);
    });
    close(sockets[1]);
    const pid_t viewer = in_a_child([&] {
        close(sockets[0]);
        return view_traces();
    });
    bool good = false;
    {
        connection line(sockets[0]);
        good = run_agent(line, processor, duration, inputs);
    }
    good = expect(ended_well(processor), "the processor did not end well") && good;
    kill(viewer, SIGTERM);
    good = expect(ended_well(viewer), "the viewer did not end well") && good;
    return good ? 0 : 1;
}

}  // namespace

int main(int argc, char **argv) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: soak SECONDS INPUT...\n");
        return 2;
    }
    try {
        return run(argc, argv);
    } catch (const std::exception &e) {
        std::fprintf(stderr, "soak: %s\n", e.what());
        return 1;
    }
}
