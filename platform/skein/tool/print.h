// How entries look on a terminal and in JSON.
#ifndef SKEIN_TOOL_PRINT_H
#define SKEIN_TOOL_PRINT_H

#include <cstdint>
#include <string>
#include <string_view>

#include "skein/reader.h"

struct print_style {
    bool json = false;
    bool local_time = false;
    bool attributes = false;
};

// "2024-05-06T07:08:09.123456Z", or local time with its offset, "2024-05-06T09:08:09.123456+02:00".
std::string format_time(uint64_t nanoseconds, bool local);

// The text with everything escaped that a terminal would obey or could not show: \n, \t, \r, \\, else \xNN.
std::string escape(std::string_view text);

// One line, without its end.
std::string format_entry(const skein_entry &entry, const print_style &style);

// "1 entry", "3 entries".
std::string format_count(uint64_t count, const char *one, const char *many);

// What a reader of the entries should know besides: "3 entries lost by writers, 1 entry damaged". Empty if there is
// nothing.
std::string format_remarks(const skein_file_info &info);

// A file in a list of them, without the line's end.
std::string format_file(const std::string &name, const skein_file_info &info, bool json);

// A file in a list of them that was moved aside because it was damaged, and cannot be read.
std::string format_aside(const std::string &name, bool json);

#endif
