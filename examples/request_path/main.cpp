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

#include <CLI/CLI.hpp>
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
#include <system_error>
#include <vector>

#include "agent.h"
#include "processor.h"

namespace request_path {
namespace {

/* Exit codes. */
constexpr int all_succeeded = 0;
constexpr int some_request_failed = 1;
constexpr int no_conversation = 2;

struct settings {
    std::vector<std::string> arguments;
    bool verbose = false;
    uint32_t timeout = 10;
    std::optional<uint64_t> cut_after;
    processor_settings processor;
};

struct input {
    std::string text;
    uint32_t session = 1;
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

bool names_session(const std::string &argument) {
    return argument.size() > 1 && argument.size() < 10 && argument[0] == '@' &&
           std::all_of(argument.begin() + 1, argument.end(), [](char c) { return c >= '0' && c <= '9'; });
}

/* Everything is read before the first request is sent: a missing file is no reason to stop half-way. */
std::vector<input> read_inputs(const std::vector<std::string> &arguments) {
    std::vector<input> inputs;
    uint32_t session = 1;
    for (const std::string &argument : arguments) {
        if (names_session(argument)) {
            session = static_cast<uint32_t>(std::stoul(argument.substr(1)));
        } else {
            inputs.push_back({read_file(argument), session});
        }
    }
    if (inputs.empty()) {
        inputs.push_back({read_file("-"), session});
    }
    return inputs;
}

int run_processor(int socket, pid_t parent, const processor_settings &settings) {
    try {
        /* A processor that is stopped would not notice that the connection is closed. */
        if (prctl(PR_SET_PDEATHSIG, SIGKILL) != 0 || getppid() != parent) {
            throw std::runtime_error("the agent is gone already");
        }
        connection agent(socket);
        serve(agent, settings);
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
bool run_agent(connection &processor, const settings &given, const std::vector<input> &inputs) {
    processor.set_timeout(given.timeout);
    agent front(processor, std::cout);
    if (given.cut_after) {
        front.cut_next_message(*given.cut_after);
    }
    bool succeeded = true;
    for (const input &one : inputs) {
        succeeded = front.handle(one.text, one.session) && succeeded;
    }
    if (!std::cout.flush()) {
        throw std::runtime_error("cannot write the replies");
    }
    return succeeded;
}

/* Whatever happens, the processor has ended when this returns. */
int converse(int socket, pid_t processor, const settings &given, const std::vector<input> &inputs) {
    connection line(socket);
    int code = no_conversation;
    std::string problem;
    bool silent = false;
    try {
        code = run_agent(line, given, inputs) ? all_succeeded : some_request_failed;
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

int run(settings &given) {
    const std::vector<input> inputs = read_inputs(given.arguments);
    given.processor.verbose = given.verbose ? &std::cerr : nullptr;
    int sockets[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets) != 0) {
        throw std::runtime_error("socketpair: " + std::generic_category().message(errno));
    }
    const pid_t parent = getpid();
    const pid_t processor = fork();
    if (processor < 0) {
        throw std::runtime_error("fork: " + std::generic_category().message(errno));
    }
    const int own = processor == 0 ? 1 : 0;
    close(sockets[1 - own]);
    return processor == 0 ? run_processor(sockets[own], parent, given.processor)
                          : converse(sockets[own], processor, given, inputs);
}

/* A number with a minus would be taken for a very large one. */
const CLI::Validator &not_negative() {
    static const CLI::Validator check(
        [](const std::string &text) { return std::string(text.starts_with('-') ? "a negative number" : ""); }, "");
    return check;
}

void describe(CLI::App &app, settings &given) {
    app.add_option(
        "input", given.arguments,
        "Files of NETCONF rpc elements, - for the standard input (also when there is none); several elements "
        "in one file stand apart by ]]>]]>. @N: what follows belongs to session N of the agent (at first 1)");
    app.add_flag("-v,--verbose", given.verbose, "Show on the standard error what arrives at the processor");
    app.add_option("--budget", given.processor.memory_budget, "Bytes of memory that decoding a request may take")
        ->capture_default_str()
        ->check(not_negative());
    app.add_option("--max-message", given.processor.longest_message, "Bytes of the longest message")
        ->capture_default_str()
        ->check(not_negative())
        ->check(CLI::Range(uint64_t{512}, uint64_t{1} << 30));
    app.add_option("--timeout", given.timeout, "Seconds that the agent waits for the processor")
        ->capture_default_str()
        ->check(CLI::Range(1, 3600));
    const char *faults = "For trying out failures";
    app.add_option(
           "--cut", given.cut_after,
           "The agent sends so many bytes of its next message and closes its sending side; a message that is no longer "
           "than that arrives whole")
        ->check(not_negative())
        ->group(faults);
    app.add_option("--die", given.processor.die_at,
                   "The processor dies at the N-th request (the first opens a session)")
        ->check(not_negative())
        ->group(faults);
    app.add_option("--stall", given.processor.stall_at, "The processor stops at the N-th request")
        ->check(not_negative())
        ->group(faults);
}

int parse_and_run(int argc, char **argv) {
    settings given;
    CLI::App app(
        "A NETCONF agent and a request processor, joined by libnyx's message records.\n"
        "Exit code: 0 all requests succeeded, 1 one failed, 2 the conversation did not take place as a whole.");
    describe(app, given);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &e) {
        return app.exit(e) == 0 ? all_succeeded : no_conversation;
    }
    return run(given);
}

}  // namespace
}  // namespace request_path

int main(int argc, char **argv) {
    int code = request_path::no_conversation;
    try {
        request_path::fill_standard_streams();
        code = request_path::parse_and_run(argc, argv);
    } catch (const std::exception &e) {
        std::fprintf(stderr, "request_path: %s\n", e.what());
    }
    xmlCleanupParser();
    return code;
}
