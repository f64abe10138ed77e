#include "processor_side.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <chrono>
#include <thread>
#include <vector>

#include "children.h"
#include "processor.h"

namespace soak {

namespace {

constexpr size_t longest_report = size_t{64} * 1024;
constexpr char end_of_report = '.';  // a message without bytes would be the end of the connection

class reporter {
  public:
    explicit reporter(int control) : control_(control), thread_([control] { answer(control); }) {}
    reporter(const reporter &) = delete;
    reporter &operator=(const reporter &) = delete;
    ~reporter() {
        shutdown(control_, SHUT_RDWR);
        thread_.join();
    }

  private:
    static void answer(int control) {
        char asked = 0;
        while (recv(control, &asked, sizeof asked, 0) == sizeof asked) {
            const std::string report = soak::memory_in_use() + end_of_report;
            send(control, report.data(), report.size(), MSG_NOSIGNAL);
        }
    }

    int control_;
    std::thread thread_;
};

}  // namespace

int run_processor(int connection, int control, failing_allocation &failures) {
    const std::string before = memory_in_use();
    {
        request_path::connection agent(connection);
        request_path::processor_frame frame;
        failures.is_for_this_process();
        const reporter beside(control);
        request_path::serve(agent, frame.root.api(), {});
    }
    require(memory_in_use() == before, "the processor has kept at its end\n" + memory_in_use());
    return 0;
}

processor_control::processor_control(int socket) : socket_(socket) {
    timeval limit{};
    limit.tv_sec = patience;
    require(setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit) == 0, "setting a timeout");
}

std::string processor_control::memory_in_use() const {
    std::vector<char> report(longest_report);
    const ssize_t length =
        send(socket_, "?", 1, MSG_NOSIGNAL) == 1 ? recv(socket_, report.data(), report.size(), 0) : ssize_t{-1};
    require(length > 0, "the processor does not tell its memory");
    return {report.data(), static_cast<size_t>(length) - 1};
}

void processor_control::require_memory_in_use(const std::string &expected) const {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(patience);
    std::string found = memory_in_use();
    while (found != expected && std::chrono::steady_clock::now() < deadline) {
        usleep(1000);
        found = memory_in_use();
    }
    require(found == expected,
            "after a round, the processor holds\n" + found + "and has held before the first\n" + expected);
}

}  // namespace soak
