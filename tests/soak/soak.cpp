// The request path under load for a long time: soak SECONDS INPUT..., at least three rounds of all inputs.
//
// An agent sends the inputs and probes of its own in random order, on several sessions, to a processor in a process of
// its own, while a third process reads both sides' trace files over and over. The first thing that is not as it should
// be ends the run and is told: round.h and viewer.h say what replies and trace files have to be.
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <string>
#include <vector>

#include "children.h"
#include "frame.h"
#include "processor_side.h"
#include "round.h"
#include "viewer.h"

namespace {

using namespace soak;
using clock_type = std::chrono::steady_clock;

std::array<int, 2> socket_pair(int type) {
    std::array<int, 2> ends{};
    require(socketpair(AF_UNIX, type | SOCK_CLOEXEC, 0, ends.data()) == 0, "socketpair");
    return ends;
}

// Until trace files are full and heaps have taken their shape, every process grows. A tenth of a minute is enough for
// that; what grows in shorter runs says nothing.
class memory_watch {
  public:
    memory_watch(std::chrono::seconds duration, pid_t processor, pid_t viewer)
        : early_(clock_type::now() + duration / 10),
          is_long_(duration >= std::chrono::minutes(1)),
          processes_{{{"the agent", getpid()}, {"the processor", processor}, {"the viewer", viewer}}} {}

    void look() {
        for (process &one : processes_) {
            one.now = peak_memory(one.id);
            if (clock_type::now() < early_ || one.early == 0) {
                one.early = one.now;
            }
        }
    }

    void require_no_growth() const {
        constexpr uint64_t slack = 4096;  // the heap's own
        for (const process &one : processes_) {
            std::printf("memory: %s held at most %" PRIu64 " KiB early, %" PRIu64 " KiB at the end\n", one.name,
                        one.early, one.now);
            require(!is_long_ || one.now <= one.early + slack, std::string("the memory has grown of ") + one.name);
        }
    }

  private:
    struct process {
        const char *name;
        pid_t id;
        uint64_t early = 0;
        uint64_t now = 0;
    };

    clock_type::time_point early_;
    bool is_long_;
    std::array<process, 3> processes_;
};

struct parties {
    request_path::connection &line;
    const processor_control &control;
    failing_allocation &failures;
    pid_t processor;
    pid_t viewer;
};

void run_rounds(nyx_api_ctx &api, const parties &with, std::chrono::seconds duration,
                const std::vector<request> &requests) {
    constexpr uint32_t fewest = 3;
    const std::string of_agent = memory_in_use();
    const std::string of_processor = with.control.memory_in_use();
    memory_watch memory(duration, with.processor, with.viewer);
    std::mt19937 random(1);
    tally count;
    uint64_t rounds = 0;
    for (const auto end = clock_type::now() + duration; rounds < fewest || clock_type::now() < end; ++rounds) {
        soak::round(api, with.line, with.failures, random, count).run(requests);
        require_running(with.processor, "the processor");
        require_running(with.viewer, "the viewer");
        require(memory_in_use() == of_agent, "after a round, the agent holds\n" + memory_in_use());
        with.control.require_memory_in_use(of_processor);
        memory.look();
    }
    std::printf("agent: %" PRIu64 " rounds, %" PRIu64 " requests and replies, %" PRIu64 " errors in them, %" PRIu64
                " for short memory; %" PRIu64 " allocations failed\n",
                rounds, count.requests, count.errors, count.pressed, count.failed_allocations);
    memory.require_no_growth();
    require(count.pressed > 0 && count.failed_allocations > 0, "memory was never short");
}

void require_nothing_left(request_path::connection &line, int socket) {
    request_path::message message;
    require(shutdown(socket, SHUT_WR) == 0, "shutdown");
    require(line.receive(message, UINT32_MAX) == request_path::receive_status::closed, "a reply without a request");
}

void wait_for_byte(int socket) {
    timeval limit{};
    limit.tv_sec = patience;
    char byte = 0;
    require(setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit) == 0, "setting a timeout");
    require(recv(socket, &byte, sizeof byte, 0) == sizeof byte, "the viewer does not begin");
}

// Processes are forked when what they look at is there: the processor's frame when its control answers, and the agent's
// before the viewer, so that no trace file may be missing.
void run(std::chrono::seconds duration, const std::vector<request> &requests) {
    const std::array<int, 2> sockets = socket_pair(SOCK_STREAM);
    const std::array<int, 2> controls = socket_pair(SOCK_SEQPACKET);
    failing_allocation failures;
    const pid_t processor = in_a_child([&] {
        close(sockets[0]);
        close(controls[0]);
        return run_processor(sockets[1], controls[1], failures);
    });
    close(sockets[1]);
    close(controls[1]);
    const processor_control control(controls[0]);
    static_cast<void>(control.memory_in_use());
    request_path::frame own("agent", "agentx");
    const std::array<int, 2> views = socket_pair(SOCK_STREAM);
    const pid_t viewer = in_a_child([&] {
        close(sockets[0]);
        close(controls[0]);
        close(views[0]);
        return view_traces(views[1]);
    });
    close(views[1]);
    wait_for_byte(views[0]);
    request_path::connection line(sockets[0]);
    line.set_timeout(patience);
    run_rounds(own.api(), {line, control, failures, processor, viewer}, duration, requests);
    require_nothing_left(line, sockets[0]);
    require_good_end(processor, "the processor");
    close(views[0]);
    require_good_end(viewer, "the viewer");
}

}  // namespace

int main(int argc, char **argv) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: soak SECONDS INPUT...\n");
        return 2;
    }
    try {
        std::vector<request> requests;
        std::transform(argv + 2, argv + argc, std::back_inserter(requests), read_request);
        run(std::chrono::seconds(std::atoi(argv[1])), requests);
        return 0;
    } catch (const std::exception &e) {
        std::fflush(stdout);
        std::fprintf(stderr, "soak: %s\n", e.what());
        return 1;
    }
}
