#include "rcode/rcode.h"

#include <cstddef>
#include <cstring>

namespace {

constexpr rcode code_of(uint32_t bits) {
    return static_cast<rcode>(bits);
}

// The codes that have a text of ours; null for all others.
const char *own_text(rcode code) {
    switch (code) {
        case 0:
            return "Success";
        case code_of(0xAAF29E00):
            return "Debug flag could not be destroyed";
        case code_of(0xAAF2A000):
            return "Invalid argument";
        case code_of(0xAAF2A200):
            return "Debug flag or trace file could not be set up";
        case code_of(0xAAF2A400):
            return "Out of memory";
        case code_of(0xAAF2A600):
            return "Invalid request: message id or session is missing or unknown";
        case code_of(0xAAF2A800):
            return "The back end could not carry out the request";
        case code_of(0xAAF2AA00):
        case code_of(0xAAF2BC00):
            return "The request holds an unacceptable value";
        case code_of(0xAAF2B000):
            return "Not enough resources to carry out the request";
        case code_of(0xAAF2BE00):
            return "The operation is not supported";
        case 3:  // also ESRCH, of which this is true as well
            return "Not found";
        case 400:
            return "Null pointer in place of a text or buffer";
        case 401:
            return "Length is zero";
        case 403:
            return "Length exceeds the maximum";
        case 404:
            return "Source and destination overlap";
        case 406:
            return "Not enough space in the destination";
        case 407:
            return "Text is not terminated within its bound";
        default:
            return nullptr;
    }
}

constexpr char unknown[] = "Unknown result code 0x";
constexpr std::size_t unknown_length = sizeof unknown - 1;
constexpr std::size_t digit_count = 8;

// More than one text a thread, so that several codes fit into one line of output.
struct text_ring {
    static constexpr unsigned size = 4;
    char texts[size][unknown_length + digit_count + 1];
    unsigned next;
};

// In the part of a thread's memory that exists from its start: the part that comes into being at the first use is
// allocated then, and the process is stopped when that fails.
[[gnu::tls_model("initial-exec")]] constinit thread_local text_ring ring = {};

const char *unknown_text(rcode code) {
    char *const text = ring.texts[ring.next++ % text_ring::size];
    std::memcpy(text, unknown, unknown_length);
    auto rest = static_cast<uint32_t>(code);
    for (std::size_t i = digit_count; i > 0; --i) {
        text[unknown_length + i - 1] = "0123456789ABCDEF"[rest % 16];
        rest /= 16;
    }
    text[unknown_length + digit_count] = '\0';
    return text;
}

}  // namespace

const char *rcode_strerror(rcode code) {
    if (const char *const text = own_text(code); text != nullptr) {
        return text;
    }
    // Untranslated and constant, unlike what strerror returns; null for a number that is none of the system's.
    if (const char *const text = strerrordesc_np(code); text != nullptr) {
        return text;
    }
    return unknown_text(code);
}
