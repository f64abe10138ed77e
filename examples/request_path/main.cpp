/**
 * @file main.cpp
 * A NETCONF agent and a request processor that understand each other through the library's message records: two
 * processes with a socket between them. See README.md.
 */
#include <fcntl.h>
#include <libxml/parser.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <iostream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "agent.h"
#include "options.h"

namespace request_path {
namespace {

struct input {
    std::string text;
    speaker from;
};

struct file_close {
    void operator()(std::FILE *file) const { std::fclose(file); }
};

[[noreturn]] void fail_reading(const std::string &name) {
    throw std::runtime_error("cannot read " + name + ": " + std::generic_category().message(errno));
}

std::string read_all(std::FILE *file, const std::string &name) {
    std::string text;
    std::array<char, 16384> part;
    while (const size_t length = std::fread(part.data(), 1, part.size(), file)) {
        text.append(part.data(), length);
    }
    if (std::ferror(file) != 0) {
        fail_reading(name);
    }
    if (split_messages(text).empty()) {
        throw std::runtime_error("no request in " + name);
    }
    return text;
}

std::string read_file(const std::string &name) {
    if (name == "-") {
        return read_all(stdin, "the standard input");
    }
    const std::unique_ptr<std::FILE, file_close> file(std::fopen(name.c_str(), "rbe"));
    if (file == nullptr) {
        fail_reading(name);
    }
    return read_all(file.get(), name);
}

bool is_number(std::string_view text) {
    return !text.empty() && text.size() < 9 && text[0] != '0' &&
           std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

/* @return nothing when the argument is the name of a file */
std::optional<speaker> speaker_named(const std::string &argument) {
    if (argument == "@none") {
        return speaker{speaker_kind::none};
    }
    if (argument == "@0") {
        return speaker{speaker_kind::zero};
    }
    if (argument == "@unknown") {
        return speaker{speaker_kind::unknown};
    }
    if (argument.starts_with('@') && is_number(argument.substr(1))) {
        return speaker{speaker_kind::session, static_cast<uint32_t>(std::stoul(argument.substr(1)))};
    }
    return std::nullopt;
}

/* Everything is read before the first request is sent: a missing file is no reason to stop half-way. */
std::vector<input> read_inputs(const std::vector<std::string> &arguments) {
    std::vector<input> inputs;
    speaker from;
    for (const std::string &argument : arguments) {
        if (const auto named = speaker_named(argument)) {
            from = *named;
        } else {
            inputs.push_back({read_file(argument), from});
        }
    }
    if (inputs.empty()) {
        inputs.push_back({read_file("-"), from});
    }
    return inputs;
}

/* The agent starts when the processor is set up, so that what both print comes in the same order in every run. A pipe
 * tells it: its reading ends when the processor closes its end, or is gone. */
class starting_signal {
  public:
    starting_signal() {
        if (pipe2(ends_.data(), O_CLOEXEC) != 0) {
            throw std::runtime_error("pipe: " + std::generic_category().message(errno));
        }
    }
    starting_signal(const starting_signal &) = delete;
    starting_signal &operator=(const starting_signal &) = delete;
    ~starting_signal() {
        close(ends_[0]);
        give();
    }

    void give() {
        if (ends_[1] >= 0) {
            close(ends_[1]);
            ends_[1] = -1;
        }
    }

    void wait() {
        give();
        char nothing = 0;
        while (read(ends_[0], &nothing, 1) < 0 && errno == EINTR) {
        }
    }

  private:
    std::array<int, 2> ends_{};
};

int run_processor(int socket, pid_t parent, starting_signal &start, const options &given) {
    try {
        /* A processor that is stopped would not notice that the connection is closed. */
        if (prctl(PR_SET_PDEATHSIG, SIGKILL) != 0 || getppid() != parent) {
            throw std::runtime_error("the agent is gone already");
        }
        connection agent(socket);
        processor_frame frame(given.session_seed);
        apply(given.logs, frame.root.api());
        start.give();
        serve(agent, frame.root.api(), given.processor);
        return all_succeeded;
    } catch (const std::exception &e) {
        std::cerr << "processor: " << e.what() << std::endl;
        return no_conversation;
    }
}

/* @return how the processor ended, or nothing when it ended as it should */
std::optional<std::string> wait_for(pid_t processor) {
    int status = 0;
    while (waitpid(processor, &status, 0) < 0) {
        if (errno != EINTR) {
            return "is lost: " + std::generic_category().message(errno);
        }
    }
    if (WIFSIGNALED(status)) {
        return "was killed by signal " + std::to_string(WTERMSIG(status));
    }
    if (WEXITSTATUS(status) != all_succeeded) {
        return "ended with exit code " + std::to_string(WEXITSTATUS(status));
    }
    return std::nullopt;
}

/* @return whether all requests succeeded; throws when the conversation breaks off */
bool run_agent(nyx_api_ctx &api, connection &processor, const options &given, const std::vector<input> &inputs) {
    processor.set_timeout(given.timeout);
    agent front(api, processor, std::cout);
    if (given.cut_after) {
        front.cut_next_message(*given.cut_after);
    }
    bool succeeded = true;
    for (const input &one : inputs) {
        succeeded = front.handle(one.text, one.from) && succeeded;
    }
    if (!std::cout.flush()) {
        throw std::runtime_error("cannot write the replies");
    }
    return succeeded;
}

/* Whatever happens, the processor has ended when this returns. */
int converse(int socket, pid_t processor, const options &given, const std::vector<input> &inputs) {
    connection line(socket);
    frame own("agent", "agentx");
    apply(given.logs, own.api());
    int code = no_conversation;
    std::string problem;
    bool silent = false;
    try {
        code = run_agent(own.api(), line, given, inputs) ? all_succeeded : some_request_failed;
    } catch (const silence_error &e) {
        problem = e.what();
        silent = true;
        kill(processor, SIGKILL);  // it would not notice that the connection is closed
    } catch (const std::exception &e) {
        problem = e.what();
    }
    line.close();
    const auto end = wait_for(processor);
    if (end && !silent) {
        problem += (problem.empty() ? "" : "; ") + ("the processor " + *end);
    }
    if (!problem.empty()) {
        std::cerr << "agent: " << problem << std::endl;
        return no_conversation;
    }
    return code;
}

/* What is opened next would take the place of a closed standard stream, and be written to as such. What is opened here
 * fails as a closed stream does: it is for the other direction. */
void fill_standard_streams() {
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        const int mode = stream == STDIN_FILENO ? O_WRONLY : O_RDONLY;
        if (fcntl(stream, F_GETFD) < 0 && open("/dev/null", mode) < 0) {
            throw std::runtime_error("/dev/null: " + std::generic_category().message(errno));
        }
    }
}

int run(options &given) {
    const std::vector<input> inputs = read_inputs(given.arguments);
    given.processor.verbose = given.verbose ? &std::cerr : nullptr;
    int sockets[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets) != 0) {
        throw std::runtime_error("socketpair: " + std::generic_category().message(errno));
    }
    starting_signal start;
    const pid_t parent = getpid();
    const pid_t processor = fork();
    if (processor < 0) {
        throw std::runtime_error("fork: " + std::generic_category().message(errno));
    }
    const int own = processor == 0 ? 1 : 0;
    close(sockets[1 - own]);
    if (processor == 0) {
        return run_processor(sockets[own], parent, start, given);
    }
    start.wait();
    return converse(sockets[own], processor, given, inputs);
}

}  // namespace
}  // namespace request_path

int main(int argc, char **argv) {
    int code = request_path::no_conversation;
    try {
        request_path::fill_standard_streams();
        request_path::options given;
        const auto end = request_path::read_command_line(argc, argv, given);
        code = end ? *end : request_path::run(given);
    } catch (const std::exception &e) {
        std::fprintf(stderr, "request_path: %s\n", e.what());
    }
    xmlCleanupParser();
    return code;
}
