#include "text_line.h"

#include <errno.h>
#include <string.h>
#include <unistd.h>

namespace umbra {
namespace {

constexpr char hex_digits[] = "0123456789abcdef";
constexpr size_t longest_number = 20;

bool is_control(unsigned char c) {
    return c < 0x20 || c == 0x7f;
}
bool continues_character(char c) {
    return (static_cast<unsigned char>(c) & 0xc0U) == 0x80U;
}

char short_escape(char c) {
    switch (c) {
        case '\t':
            return 't';
        case '\n':
            return 'n';
        case '\r':
            return 'r';
        default:
            return '\0';
    }
}

}  // namespace

void text_line::put_bytes(const char *bytes, size_t count) {
    if (count > static_cast<size_t>(end_ - position_)) {
        is_cut_ = true;
        end_ = position_;  // what follows a gap would mislead
        return;
    }
    memcpy(position_, bytes, count);
    position_ += count;
}

void text_line::put(char c) {
    put_bytes(&c, 1);
}

void text_line::put(const char *text) {
    put_bytes(text, strlen(text));
}

void text_line::end_with(const char *text) {
    const size_t length = strlen(text);
    memcpy(position_, text, length);
    position_ += length;
    end_ = position_;
}

void text_line::put_number(uint64_t number, uint32_t digits) {
    char text[longest_number];
    size_t first = longest_number;
    while (first > 0 && (number != 0 || longest_number - first < digits)) {
        text[--first] = static_cast<char>('0' + number % 10);
        number /= 10;
    }
    put_bytes(text + first, longest_number - first);
}

void text_line::put_escaped(const char *text, size_t length) {
    size_t i = 0;
    while (i < length) {
        const auto c = static_cast<unsigned char>(text[i]);
        if (const char letter = short_escape(text[i]); letter != '\0') {
            const char escape[] = {'\\', letter};
            put_bytes(escape, sizeof escape);
            ++i;
        } else if (is_control(c)) {
            const char escape[] = {'\\', 'x', hex_digits[c >> 4U], hex_digits[c & 15U]};
            put_bytes(escape, sizeof escape);
            ++i;
        } else {
            const size_t start = i;
            while (i < length && !is_control(static_cast<unsigned char>(text[i]))) {
                ++i;
            }
            const auto space = static_cast<size_t>(end_ - position_);
            if (i - start > space) {
                put_bytes(text + start, whole_characters(text + start, space));
                is_cut_ = true;
                end_ = position_;
                return;
            }
            put_bytes(text + start, i - start);
        }
    }
}

size_t whole_characters(const char *text, size_t length) {
    constexpr size_t longest_character = 4;
    size_t whole = length;
    while (whole > 0 && length - whole < longest_character && continues_character(text[whole])) {
        --whole;
    }
    return whole > 0 && continues_character(text[whole]) ? length : whole;
}

int write_whole(int fd, const char *bytes, size_t count) {
    while (count > 0) {
        const ssize_t written = write(fd, bytes, count);
        if (written > 0) {
            bytes += written;
            count -= static_cast<size_t>(written);
        } else if (written == 0 || errno != EINTR) {
            return written == 0 ? EIO : errno;
        }
    }
    return 0;
}

}  // namespace umbra
