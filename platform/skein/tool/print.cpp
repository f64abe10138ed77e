#include "print.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
#include <nlohmann/json.hpp>

namespace {

std::string format(const tm &when, const char *form) {
    std::array<char, 64> text{};
    return {text.data(), std::strftime(text.data(), text.size(), form, &when)};
}

std::string offset_of(const tm &when) {
    const std::string offset = format(when, "%z");  // +0200
    return offset.substr(0, 3) + ':' + offset.substr(3);
}

// The length of the well-formed UTF-8 sequence of a printable character at the front of the text; 0: there is none.
std::size_t printable_prefix(std::string_view text) {
    const auto byte = [&](std::size_t k) { return static_cast<unsigned char>(text[k]); };
    const unsigned char lead = byte(0);
    if (lead < 0x80) {
        return lead >= 0x20 && lead != 0x7f && lead != '\\' ? 1 : 0;
    }
    const std::size_t length = lead < 0xc2 ? 0 : lead < 0xe0 ? 2 : lead < 0xf0 ? 3 : lead < 0xf5 ? 4 : 0;
    if (length == 0 || length > text.size()) {
        return 0;
    }
    uint32_t point = lead & (0x7fU >> length);
    for (std::size_t k = 1; k < length; ++k) {
        if ((byte(k) & 0xc0U) != 0x80U) {
            return 0;
        }
        point = point << 6U | (byte(k) & 0x3fU);
    }
    const bool overlong = (length == 3 && point < 0x800) || (length == 4 && point < 0x10000);
    const bool no_character = (point >= 0xd800 && point < 0xe000) || point > 0x10ffff || point < 0xa0;
    // These change the direction of what follows, which would let a text pretend to be another.
    const bool reorders = (point >= 0x202a && point <= 0x202e) || (point >= 0x2066 && point <= 0x2069);
    return overlong || no_character || reorders ? 0 : length;
}

std::string escape_byte(char byte) {
    switch (byte) {
        case '\n':
            return "\\n";
        case '\r':
            return "\\r";
        case '\t':
            return "\\t";
        case '\\':
            return "\\\\";
        default:
            break;
    }
    std::array<char, 5> text{};
    std::snprintf(text.data(), text.size(), "\\x%02x", static_cast<unsigned>(static_cast<unsigned char>(byte)));
    return text.data();
}

std::string hexadecimal(uint64_t value) {
    std::array<char, 19> text{};
    std::snprintf(text.data(), text.size(), "0x%016llx", static_cast<unsigned long long>(value));
    return text.data();
}

// What is not well-formed UTF-8 is replaced.
std::string line_of(const nlohmann::ordered_json &object) {
    return object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

// Many programs read the numbers of JSON as floating-point ones: words of 64 bits are given as text.
std::string format_json(const skein_entry &entry) {
    nlohmann::ordered_json object;
    object["ticket"] = entry.ticket;
    object["time"] = format_time(entry.time, false);
    object["nanoseconds"] = std::to_string(entry.time);
    object["pid"] = entry.pid;
    object["tid"] = entry.tid;
    object["attributes"] = hexadecimal(entry.attributes);
    object["text"] = std::string_view(entry.text, entry.length);
    if (entry.full_length > entry.length) {
        object["full_length"] = entry.full_length;
    }
    return line_of(object);
}

}  // namespace

std::string format_time(uint64_t nanoseconds, bool local) {
    const auto seconds = static_cast<time_t>(nanoseconds / 1000000000);
    tm when{};
    if (local) {
        localtime_r(&seconds, &when);
    } else {
        gmtime_r(&seconds, &when);
    }
    std::array<char, 8> fraction{};
    std::snprintf(fraction.data(), fraction.size(), ".%06u", static_cast<unsigned>(nanoseconds / 1000 % 1000000));
    return format(when, "%Y-%m-%dT%H:%M:%S") + fraction.data() + (local ? offset_of(when) : "Z");
}

std::string escape(std::string_view text) {
    std::string escaped;
    while (!text.empty()) {
        const std::size_t printable = printable_prefix(text);
        if (printable == 0) {
            escaped += escape_byte(text.front());
        } else {
            escaped += text.substr(0, printable);
        }
        text.remove_prefix(std::max<std::size_t>(printable, 1));
    }
    return escaped;
}

std::string format_entry(const skein_entry &entry, const print_style &style) {
    if (style.json) {
        return format_json(entry);
    }
    std::string line = format_time(entry.time, style.local_time) + ' ' + std::to_string(entry.pid) + '/' +
                       std::to_string(entry.tid) + ' ';
    if (style.attributes) {
        line += hexadecimal(entry.attributes) + ' ';
    }
    line += escape({entry.text, entry.length});
    if (entry.full_length > entry.length) {
        line += " [cut: " + std::to_string(entry.full_length) + " bytes]";
    }
    return line;
}

std::string format_count(uint64_t count, const char *one, const char *many) {
    return std::to_string(count) + ' ' + (count == 1 ? one : many);
}

std::string format_remarks(const skein_file_info &info) {
    std::string remarks;
    const auto add = [&](const std::string &remark) {
        remarks += remarks.empty() ? "" : ", ";
        remarks += remark;
    };
    const auto add_count = [&](uint64_t count, const char *one, const char *many, const char *what) {
        if (count > 0) {
            add(format_count(count, one, many) + ' ' + what);
        }
    };
    add_count(info.lost, "entry", "entries", "lost by writers");
    add_count(info.damaged, "entry", "entries", "damaged");
    add_count(info.unfinished, "slot", "slots", "unfinished");
    add_count(info.overrun, "slot", "slots", "overwritten while reading");
    if (info.truncated != 0) {
        add("the file is cut short");
    }
    if (info.superseded != 0) {
        add("the file was removed or moved aside");
    }
    return remarks;
}

std::string format_file(const std::string &name, const skein_file_info &info, bool json) {
    if (json) {
        return line_of({{"name", name},
                        {"slots", info.slot_count},
                        {"slot_size", info.slot_size},
                        {"entries", info.entries},
                        {"lost", info.lost},
                        {"damaged", info.damaged},
                        {"unfinished", info.unfinished},
                        {"overrun", info.overrun},
                        {"truncated", info.truncated != 0},
                        {"superseded", info.superseded != 0},
                        {"creator", info.creator},
                        {"created", format_time(info.created, false)}});
    }
    const std::string remarks = format_remarks(info);
    return escape(name) + ": " + format_count(info.entries, "entry", "entries") + ", " +
           format_count(info.slot_count, "slot", "slots") + " of " + std::to_string(info.slot_size) + " bytes" +
           (remarks.empty() ? "" : ", " + remarks);
}

std::string format_aside(const std::string &name, bool json) {
    if (json) {
        return line_of({{"name", name}, {"moved_aside", true}});
    }
    return escape(name) + ": moved aside because it was damaged";
}
