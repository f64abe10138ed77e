// skein: prints and lists trace files.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "print.h"
#include "skein/reader.h"
#include "skein/skein.h"

namespace {

constexpr int exit_failure = 1;
constexpr int exit_usage = 2;

using reader_ptr = std::unique_ptr<skein_reader, decltype(&skein_reader_close)>;

std::string error_text(int32_t error) {
    return error == EBADMSG ? "not a trace file, or damaged" : std::strerror(error);
}

int complain(const std::string &subject, const std::string &what) {
    std::fprintf(stderr, "skein: %s: %s\n", escape(subject).c_str(), what.c_str());
    return exit_failure;
}

// Everything has reached its destination: a full disk must not look like success.
int finish_output() {
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) {
        return 0;
    }
    return complain("standard output", std::strerror(errno));
}

void print_line(const std::string &line) {
    std::printf("%s\n", line.c_str());
}

bool starts_with(const std::string &text, const char *prefix) {
    return text.rfind(prefix, 0) == 0;
}

// A path is told from a name by its beginning, which no name can have.
bool is_path(const std::string &argument) {
    return starts_with(argument, "/") || starts_with(argument, "./") || starts_with(argument, "../");
}

int32_t open_reader(const std::string &directory, const std::string &argument, reader_ptr &out) {
    skein_reader *reader = nullptr;
    const int32_t error = is_path(argument) ? skein_reader_open_path(argument.c_str(), &reader)
                                            : skein_reader_open(directory.empty() ? nullptr : directory.c_str(),
                                                                argument.c_str(), &reader);
    out.reset(reader);
    return error;
}

int print_file(const std::string &directory, const std::string &argument, const print_style &style) {
    reader_ptr reader(nullptr, skein_reader_close);
    const int32_t error = open_reader(directory, argument, reader);
    if (error != 0) {
        return complain(argument, error_text(error));
    }
    skein_entry entry{};
    while (skein_reader_next(reader.get(), &entry) == 0) {
        print_line(format_entry(entry, style));
    }
    skein_file_info info{};
    skein_reader_info(reader.get(), &info);
    const int result = finish_output();
    const std::string remarks = format_remarks(info);
    if (!remarks.empty()) {
        complain(argument, remarks);
    }
    return result;
}

std::string format_file(const std::string &name, const skein_file_info &info, bool json) {
    if (json) {
        nlohmann::ordered_json object = {{"name", name},
                                         {"slots", info.slot_count},
                                         {"slot_size", info.slot_size},
                                         {"entries", info.entries},
                                         {"lost", info.lost},
                                         {"damaged", info.damaged},
                                         {"unfinished", info.unfinished},
                                         {"created", format_time(info.created, false)}};
        return object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
    }
    const std::string remarks = format_remarks(info);
    return escape(name) + ": " + std::to_string(info.entries) + " entries, " + std::to_string(info.slot_count) +
           " slots of " + std::to_string(info.slot_size) + " bytes" + (remarks.empty() ? "" : ", " + remarks);
}

// The regular files below the directory, by name. Links are not followed.
std::vector<std::string> names_below(const std::filesystem::path &root) {
    std::vector<std::string> names;
    for (const auto &each : std::filesystem::recursive_directory_iterator(root)) {
        if (each.symlink_status().type() == std::filesystem::file_type::regular) {
            names.push_back(each.path().lexically_relative(root).string());
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

int list_files(const std::string &chosen, bool json) {
    std::string directory = chosen;
    if (directory.empty()) {
        std::array<char, 1024> found{};
        const int32_t error = skein_directory(found.data(), found.size());
        if (error != 0) {
            return complain("SKEIN_DIR", error_text(error));
        }
        directory = found.data();
        if (!std::filesystem::exists(directory)) {
            return 0;  // nothing has been traced yet
        }
    }
    int result = 0;
    for (const std::string &name : names_below(directory)) {
        reader_ptr reader(nullptr, skein_reader_close);
        const int32_t error = open_reader(directory, name, reader);
        if (error != 0) {
            result = complain(name, error_text(error));
            continue;
        }
        skein_file_info info{};
        skein_reader_info(reader.get(), &info);
        print_line(format_file(name, info, json));
    }
    const int output = finish_output();
    return output != 0 ? output : result;
}

int run(int argc, char **argv) {
    CLI::App app("Shows the trace files of running and of ended programs.", "skein");
    app.require_subcommand(1);
    app.footer(
        "Names are relative to the directory of trace files: --directory, else the environment variable SKEIN_DIR,\n"
        "else /dev/shm/skein-UID. Exit codes: 0 done, 1 something could not be read or written, 2 wrong usage.");
    std::string directory;
    std::string file;
    print_style style;

    CLI::App *cat = app.add_subcommand("cat", "Print the entries of a trace file, the oldest first.");
    cat->add_option("FILE", file, "Name of a trace file; a path if it begins with /, ./ or ../")->required();
    cat->add_option("-d,--directory", directory, "Directory of the trace files");
    cat->add_flag("-a,--attributes", style.attributes, "Print the attribute word of each entry");
    cat->add_flag("-l,--local", style.local_time, "Print local time instead of UTC");
    cat->add_flag("-j,--json", style.json, "Print one JSON object per line");

    CLI::App *list = app.add_subcommand("list", "List the trace files.");
    list->add_option("-d,--directory", directory, "Directory of the trace files");
    list->add_flag("-j,--json", style.json, "Print one JSON object per line");

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? 0 : exit_usage;
    }
    return cat->parsed() ? print_file(directory, file, style) : list_files(directory, style.json);
}

}  // namespace

int main(int argc, char **argv) {
    try {
        return run(argc, argv);
    } catch (const std::filesystem::filesystem_error &error) {
        return complain(error.path1().string(), error.code().message());
    } catch (const std::exception &error) {
        return complain("failed", error.what());
    }
}
