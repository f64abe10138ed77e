// skein: prints, lists and removes trace files.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "print.h"
#include "skein/reader.h"
#include "skein/skein.h"

namespace {

constexpr int exit_failure = 1;
constexpr int exit_usage = 2;

using reader_ptr = std::unique_ptr<skein_reader, decltype(&skein_reader_close)>;

// What went wrong, in words of this program where the system's would puzzle.
std::string error_text(int32_t error) {
    switch (error) {
        case EBADMSG:
            return "not a trace file, or damaged";
        case EINVAL:
            return "not a name of a trace file (for a path begin with / or ./)";
        case ELOOP:
            return "is a symbolic link";
        case ENOTDIR:
            return "one of its directories is a symbolic link or no directory";
        case ENOTSUP:
            return "not a regular file";
        case EISDIR:
            return "is a directory";
        default:
            return std::strerror(error);
    }
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

// Where the trace files are: the user's choice, or the library's place for them.
struct trace_directory {
    std::string path;
    bool chosen = false;
};

// Complains and returns false if there is no such place.
bool find_directory(const std::string &chosen, trace_directory &out) {
    out = {chosen, !chosen.empty()};
    if (out.chosen) {
        return true;
    }
    std::array<char, 1024> found{};
    if (skein_directory(found.data(), found.size()) != 0) {
        complain("SKEIN_DIR", "must be an absolute path of at most 1023 bytes");
        return false;
    }
    out.path = found.data();
    return true;
}

int32_t open_reader(const trace_directory &directory, const std::string &name, reader_ptr &out) {
    skein_reader *reader = nullptr;
    // The library looks whether its own place is safe.
    const int32_t error = skein_reader_open(directory.chosen ? directory.path.c_str() : nullptr, name.c_str(), &reader);
    out.reset(reader);
    return error;
}

int complain_of(const trace_directory &directory, const std::string &name, int32_t error) {
    if (error == ENOENT) {
        return complain(name, "no such trace file in " + escape(directory.path));
    }
    if (error == EPERM && !directory.chosen) {
        return complain(directory.path, "belongs to another user, or all users may write to it (--directory reads it)");
    }
    return complain(name, error_text(error));
}

int open_argument(const std::string &chosen, const std::string &argument, reader_ptr &out) {
    if (is_path(argument)) {
        skein_reader *reader = nullptr;
        const int32_t error = skein_reader_open_path(argument.c_str(), &reader);
        out.reset(reader);
        return error == 0 ? 0 : complain(argument, error_text(error));
    }
    trace_directory directory;
    if (!find_directory(chosen, directory)) {
        return exit_failure;
    }
    const int32_t error = open_reader(directory, argument, out);
    return error == 0 ? 0 : complain_of(directory, argument, error);
}

int print_file(const std::string &directory, const std::string &argument, const print_style &style) {
    reader_ptr reader(nullptr, skein_reader_close);
    const int opened = open_argument(directory, argument, reader);
    if (opened != 0) {
        return opened;
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

// The regular files below the directory, by name. Links are not followed; directories that cannot be read are
// complained of and passed over.
struct listing {
    std::vector<std::string> names;
    int result = 0;

    void add_below(const std::filesystem::path &root, const std::filesystem::path &below) {
        namespace fs = std::filesystem;
        std::error_code error;
        fs::directory_iterator each(root / below, error);
        for (; !error && each != fs::directory_iterator(); each.increment(error)) {
            std::error_code vanished;
            const fs::file_type type = each->symlink_status(vanished).type();
            const fs::path name = below / each->path().filename();
            if (type == fs::file_type::directory) {
                add_below(root, name);
            } else if (type == fs::file_type::regular) {
                names.push_back(name.string());
            }
        }
        if (error && (below.empty() || error != std::errc::no_such_file_or_directory)) {
            result = complain((root / below).string(), error.message());
        }
    }
};

bool was_moved_aside(const std::string &name, int32_t error) {
    constexpr std::string_view ending = ".damaged";
    return error == EBADMSG && name.size() > ending.size() &&
           name.compare(name.size() - ending.size(), ending.size(), ending) == 0;
}

int list_file(const trace_directory &directory, const std::string &name, bool json) {
    reader_ptr reader(nullptr, skein_reader_close);
    const int32_t error = open_reader(directory, name, reader);
    if (error == 0) {
        skein_file_info info{};
        skein_reader_info(reader.get(), &info);
        print_line(format_file(name, info, json));
    } else if (was_moved_aside(name, error)) {
        print_line(format_aside(name, json));
    } else if (error != ENOENT) {  // it may have been removed meanwhile
        return complain_of(directory, name, error);
    }
    return 0;
}

int list_files(const std::string &chosen, bool json) {
    trace_directory directory;
    if (!find_directory(chosen, directory)) {
        return exit_failure;
    }
    listing files;
    if (directory.chosen || std::filesystem::exists(directory.path)) {
        files.add_below(directory.path, {});
    }
    if (files.names.empty() && files.result == 0) {
        complain(directory.path, "no trace files");
        return 0;
    }
    std::sort(files.names.begin(), files.names.end());
    int result = files.result;
    for (const std::string &name : files.names) {
        result = std::max(result, list_file(directory, name, json));
    }
    return std::max(result, finish_output());
}

// In a directory that was chosen, too: SKEIN_DIR is how the library is told of it.
int delete_file(const std::string &chosen, const std::string &name) {
    std::error_code error;
    const std::filesystem::path path = chosen.empty() ? chosen : std::filesystem::canonical(chosen, error).string();
    if (error) {
        return complain(chosen, error.message());
    }
    if (!chosen.empty()) {
        setenv("SKEIN_DIR", path.c_str(), 1);
    }
    trace_directory directory;
    if (!find_directory({}, directory)) {
        return exit_failure;
    }
    const int32_t result = skein_delete(name.c_str());
    return result == 0 ? 0 : complain_of(directory, name, result);
}

int run(int argc, char **argv) {
    CLI::App app("Shows the trace files of running and of ended programs.", "skein");
    app.require_subcommand(1);
    app.set_version_flag("--version", "skein " SKEIN_VERSION);
    app.footer(
        "Names are relative to the directory of trace files: --directory, else the environment variable SKEIN_DIR,\n"
        "else /dev/shm/skein-UID. A name that begins with - goes behind --: skein cat -- -name.\n"
        "Exit codes: 0 done, also if entries are lost or damaged, which is remarked; 1 something could not be read or\n"
        "written; 2 wrong usage.");
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

    CLI::App *remove = app.add_subcommand("delete", "Remove a trace file; those who write to it change over.");
    remove->add_option("NAME", file, "Name of a trace file")->required();
    remove->add_option("-d,--directory", directory, "Directory of the trace files");

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? 0 : exit_usage;
    }
    if (cat->parsed()) {
        return print_file(directory, file, style);
    }
    return remove->parsed() ? delete_file(directory, file) : list_files(directory, style.json);
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
