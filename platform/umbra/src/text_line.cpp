#include "text_line.h"

#include <errno.h>
#include <pthread.h>
#include <signal.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include <bit>

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

// Bytes of the character that the text begins with, if it is one of UTF-8 that a terminal only shows: neither a control
// character, nor one that changes the direction of what follows, which would let a text pretend to be another. Else 0.
size_t shown_character(const char *text, size_t length) {
    constexpr uint32_t first_point[] = {0, 0, 0xa0, 0x800, 0x10000};  // of each length; before 0xa0 are controls
    const auto lead = static_cast<unsigned char>(*text);
    if (lead < 0x80) {
        return is_control(lead) ? 0 : 1;
    }
    const auto bytes = static_cast<size_t>(std::countl_one(lead));
    if (bytes < 2 || bytes > 4 || bytes > length) {
        return 0;
    }
    uint32_t point = lead & (0x7fU >> bytes);
    for (size_t i = 1; i < bytes; ++i) {
        if (!continues_character(text[i])) {
            return 0;
        }
        point = point << 6U | (static_cast<unsigned char>(text[i]) & 0x3fU);
    }
    const bool is_none = point < first_point[bytes] || (point >= 0xd800 && point <= 0xdfff) || point > 0x10ffff;
    const bool turns = (point >= 0x202a && point <= 0x202e) || (point >= 0x2066 && point <= 0x2069);
    return is_none || turns ? 0 : bytes;
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

// While this exists, writes of this thread to a pipe or socket without a reader fail and do no more: who logs cannot be
// asked to be ready for SIGPIPE.
class sigpipe_held_back {
  public:
    sigpipe_held_back() {
        sigemptyset(&sigpipe_);
        sigaddset(&sigpipe_, SIGPIPE);
        is_masked_ = pthread_sigmask(SIG_BLOCK, &sigpipe_, &before_) == 0;
        // One that is pending already is not of our making. That needs that it was blocked already.
        is_kept_ = is_masked_ && sigismember(&before_, SIGPIPE) == 1 && is_pending();
    }
    ~sigpipe_held_back() {
        if (is_masked_) {
            pthread_sigmask(SIG_SETMASK, &before_, nullptr);
        }
    }
    sigpipe_held_back(const sigpipe_held_back &) = delete;
    sigpipe_held_back &operator=(const sigpipe_held_back &) = delete;

    // To be called when a write failed with EPIPE.
    void take_back() const {
        constexpr timespec at_once = {0, 0};
        if (is_masked_ && !is_kept_) {
            while (sigtimedwait(&sigpipe_, nullptr, &at_once) < 0 && errno == EINTR) {
            }
        }
    }

  private:
    static bool is_pending() {
        sigset_t pending;
        return sigpending(&pending) == 0 && sigismember(&pending, SIGPIPE) == 1;
    }

    sigset_t sigpipe_;
    sigset_t before_;
    bool is_masked_;
    bool is_kept_;
};

}  // namespace

void text_line::put_bytes(const char *bytes, size_t count, size_t (*divisible)(const char *bytes, size_t room)) {
    size_t kept = 0;
    if (cut_ == nullptr && count > static_cast<size_t>(reserve_ - position_)) {
        kept = divisible(bytes, static_cast<size_t>(reserve_ - position_));
        cut_ = position_ + kept;
    }
    if (count <= static_cast<size_t>(end_ - position_)) {
        memcpy(position_, bytes, count);
        position_ += count;
        return;
    }
    memcpy(position_, bytes, kept);
    is_cut_ = true;
    position_ = end_ = cut_;  // what follows a gap would mislead
}

void text_line::put_bytes(const char *bytes, size_t count) {
    put_bytes(bytes, count, [](const char * /*bytes*/, size_t /*room*/) { return size_t{0}; });
}

void text_line::put(char c) {
    put_bytes(&c, 1);
}

void text_line::put(const char *text) {
    put_bytes(text, strlen(text));
}

void text_line::mark_cut(const char *mark) {
    const size_t length = strlen(mark);
    if (cut_ != nullptr) {
        position_ = cut_;
    }
    memcpy(position_, mark, length);
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
        const size_t start = i;
        while (i < length) {
            const size_t shown = shown_character(text + i, length - i);
            if (shown == 0) {
                break;
            }
            i += shown;
        }
        if (i > start) {
            put_bytes(text + start, i - start, whole_characters);
        } else {
            put_escape(text[i++]);
        }
    }
}

void text_line::put_escape(char byte) {
    const auto value = static_cast<unsigned char>(byte);
    if (const char letter = short_escape(byte); letter != '\0') {
        const char escape[] = {'\\', letter};
        put_bytes(escape, sizeof escape);
    } else {
        const char escape[] = {'\\', 'x', hex_digits[value >> 4U], hex_digits[value & 15U]};
        put_bytes(escape, sizeof escape);
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
    const sigpipe_held_back held;
    while (count > 0) {
        const ssize_t written = write(fd, bytes, count);
        if (written > 0) {
            bytes += written;
            count -= static_cast<size_t>(written);
        } else if (written == 0) {
            return EIO;
        } else if (const int failure = errno; failure != EINTR) {
            if (failure == EPIPE) {
                held.take_back();
            }
            return failure;
        }
    }
    return 0;
}

}  // namespace umbra
