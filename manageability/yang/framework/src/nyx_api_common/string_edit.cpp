// Changes of texts in place.
#include <cctype>
#include <cstdint>

#include "nyx_api_common.h"

namespace {

bool is_space(char c) {
    return std::isspace(static_cast<unsigned char>(c)) != 0;
}

char *map_characters(char *text, int (*map)(int)) {
    if (text != nullptr) {
        for (char *at = text; *at != '\0'; ++at) {
            *at = static_cast<char>(map(static_cast<unsigned char>(*at)));
        }
    }
    return text;
}

}  // namespace

int chr_replace(char *text, char from, char to) {
    // The terminator would be found as well, and then whatever is behind it.
    if (text == nullptr || from == '\0') {
        return 0;
    }
    errno_t rc = 0;
    for (char *at = text; rc == 0;) {
        char *found = nullptr;
        rc = strfirstchar_s(at, RSIZE_MAX, from, &found);
        if (rc == 0) {
            *found = to;
            at = found + 1;
        }
    }
    return rc == SAFE_STR_NOT_FOUND ? 0 : rc;
}

int str_ltrim(char *text) {
    if (text == nullptr || !is_space(*text)) {
        return 0;
    }
    const char *start = text + 1;
    while (is_space(*start)) {
        ++start;
    }
    const rsize_t rest = strnlen_s(start, RSIZE_MAX) + 1;
    return memmove_s(text, static_cast<rsize_t>(start - text) + rest, start, rest);
}

char *str_rtrim(char *text) {
    if (text == nullptr || *text == '\0') {
        return text;
    }
    rsize_t end = strnlen_s(text, RSIZE_MAX);
    while (end != 0 && is_space(text[end - 1])) {
        --end;
    }
    text[end] = '\0';
    return text;
}

int str_trim(char *text) {
    const int rc = str_ltrim(text);
    if (rc == 0) {
        str_rtrim(text);
    }
    return rc;
}

char *str_to_lower(char *text) {
    return map_characters(text, std::tolower);
}

char *str_to_upper(char *text) {
    return map_characters(text, std::toupper);
}
