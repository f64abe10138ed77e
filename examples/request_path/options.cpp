#include "options.h"

#include <CLI/CLI.hpp>
#include <stdexcept>

namespace request_path {

namespace {

/* A number with a minus would be taken for a very large one. */
const CLI::Validator &not_negative() {
    static const CLI::Validator check(
        [](const std::string &text) { return std::string(text.starts_with('-') ? "a negative number" : ""); }, "");
    return check;
}

void describe_input(CLI::App &app, options &given) {
    app.add_option(
        "input", given.arguments,
        "Files of NETCONF rpc elements, - for the standard input (also when there is none); several elements "
        "in one file stand apart by ]]>]]>. @N: what follows belongs to session N of the agent (at first 1); @none, "
        "@0, @unknown: it names no session, session id 0, an id that is no session's");
    app.add_flag("-v,--verbose", given.verbose, "Show on the standard error what arrives at the processor");
    app.add_option("--timeout", given.timeout, "Seconds that the agent waits for the processor")
        ->capture_default_str()
        ->check(CLI::Range(1, 3600));
    app.add_option("--session-seed", given.session_seed,
                   "Draw the ids of sessions from this number: they are the same in every run with it")
        ->envname("REQUEST_PATH_SESSION_SEED")
        ->check(not_negative());
}

void describe_limits(CLI::App &app, options &given) {
    app.add_option("--budget", given.processor.memory_budget, "Bytes of memory that decoding a request may take")
        ->capture_default_str()
        ->check(not_negative());
    app.add_option("--max-message", given.processor.longest_message, "Bytes of the longest message")
        ->capture_default_str()
        ->check(not_negative())
        ->check(CLI::Range(uint64_t{512}, uint64_t{1} << 30));
}

constexpr const char *logs_and_traces = "Logs and traces";

/* Options that raise a level can be given several times; what is given later counts. */
void describe_level(CLI::App &app, options &given, const char *name, level_setting (*read)(const std::string &),
                    const char *form, const char *description) {
    const auto take = [&given, read](const std::vector<std::string> &texts) {
        for (const std::string &text : texts) {
            try {
                given.logs.levels.push_back(read(text));
            } catch (const std::invalid_argument &e) {
                throw CLI::ValidationError(e.what());
            }
        }
    };
    app.add_option_function<std::vector<std::string>>(name, take, description)
        ->allow_extra_args(false)
        ->option_text(form)
        ->group(logs_and_traces);
}

/* In this order: the level of all components comes before those of single ones, wherever they stand. */
void describe_logs(CLI::App &app, options &given) {
    describe_level(app, given, "--log-level", level_of_all, "LEVEL",
                   "What is logged on the standard error: none, error, warning, debug or trace");
    describe_level(app, given, "--log", level_of_component, "COMPONENT=LEVEL",
                   "The same for one component: nyx (the framework) or me (the back end)");
    describe_level(app, given, "--log-operation", level_of_operation, "OPERATION=LEVEL",
                   "In addition, the same for requests of one kind, such as edit-config");
    app.add_flag_callback(
           "--no-trace", [&given] { given.logs.trace = false; }, "Write nothing into the trace files")
        ->group(logs_and_traces);
    app.add_flag("--clear-traces", given.logs.clear_traces, "Empty the trace files first")->group(logs_and_traces);
}

void describe_faults(CLI::App &app, options &given) {
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

}  // namespace

std::optional<int> read_command_line(int argc, char **argv, options &given) {
    CLI::App app(
        "A NETCONF agent and a request processor, joined by libnyx's message records.\n"
        "Exit code: 0 all requests succeeded, 1 one failed, 2 the conversation did not take place as a whole.");
    describe_input(app, given);
    describe_limits(app, given);
    describe_logs(app, given);
    describe_faults(app, given);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &e) {
        return app.exit(e) == 0 ? all_succeeded : no_conversation;
    }
    return std::nullopt;
}

}  // namespace request_path
