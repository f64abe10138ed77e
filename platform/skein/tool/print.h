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

// What a reader of the entries should know besides: "3 entries lost, 1 damaged". Empty if there is nothing.
std::string format_remarks(const skein_file_info &info);

#endif
