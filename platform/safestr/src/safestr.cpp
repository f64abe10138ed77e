#include "safestr/safestr.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace {

constexpr rsize_t max_length = INT64_MAX;
static_assert(RSIZE_MAX == max_length);

void ignore_violation(const char *, void *, errno_t) {}

constinit std::atomic<safe_str_constraint_handler> current_handler{ignore_violation};

void call_handler(const char *message, void *ptr, errno_t code) {
    current_handler.load(std::memory_order_acquire)(message, ptr, code);
}

// A text known to the compiler, as a template's argument.
template <std::size_t N>
struct literal {
    char text[N];
    constexpr literal(const char (&from)[N]) { std::copy_n(from, N, text); }
};

// The parts one behind the other, put together by the compiler: a handler may keep the message as long as it likes.
template <literal... Parts>
constexpr auto join() {
    struct {
        char text[(sizeof(Parts.text) + ...) - sizeof...(Parts) + 1] = {};
    } joined;
    char *at = joined.text;
    ((at = std::copy_n(Parts.text, sizeof(Parts.text) - 1, at)), ...);
    return joined;
}

template <literal... Parts>
constexpr auto message_of = join<Parts...>();

// A constraint and what is said when it is broken.
struct constraint {
    bool broken;
    const char *message;
    errno_t code;
};

template <literal Function, literal Argument>
constraint not_null(const void *pointer) {
    return {pointer == nullptr, message_of<Function, ": ", Argument, " is null">.text, SAFE_STR_NULL_POINTER};
}

template <literal Function>
constraint not_zero(rsize_t dmax) {
    return {dmax == 0, message_of<Function, ": dmax is 0">.text, SAFE_STR_ZERO_LENGTH};
}

// The memory functions' form: nothing fits into nothing.
template <literal Function>
constraint not_zero(rsize_t dmax, rsize_t n) {
    return not_zero<Function>(n == 0 ? 1 : dmax);
}

template <literal Function, literal Argument>
constraint not_above_max(rsize_t length) {
    return {length > max_length, message_of<Function, ": ", Argument, " exceeds max">.text, SAFE_STR_ABOVE_MAX};
}

template <literal Function>
constraint terminated(rsize_t length, rsize_t dmax) {
    return {length == dmax, message_of<Function, ": dest is unterminated">.text, SAFE_STR_UNTERMINATED};
}

template <literal Function>
constraint enough_space(bool enough) {
    return {!enough, message_of<Function, ": not enough space for src">.text, SAFE_STR_NO_SPACE};
}

// Differences of addresses only: a sum may lie beyond the end of the address space.
template <literal Function>
constraint disjoint(const void *dest, rsize_t written, const void *src, rsize_t read) {
    const auto to = reinterpret_cast<uintptr_t>(dest);
    const auto from = reinterpret_cast<uintptr_t>(src);
    const bool overlap = written != 0 && read != 0 && (to <= from ? from - to < written : to - from < read);
    return {overlap, message_of<Function, ": dest and src overlap">.text, SAFE_STR_OVERLAP};
}

constexpr constraint all_kept = {false, nullptr, 0};

// The first of the constraints that is broken, else all_kept.
template <class... Constraints>
constraint first_broken(const Constraints &...constraints) {
    constraint found = all_kept;
    static_cast<void>(((constraints.broken && (found = constraints, true)) || ...));
    return found;
}

errno_t report(const constraint &broken) {
    call_handler(broken.message, nullptr, broken.code);
    return broken.code;
}

// Copies at most slen characters of src to the end of the text of `used` characters in dest, if the constraints on the
// characters themselves allow it.
template <literal Function>
constraint place_text(char *dest, rsize_t used, rsize_t dmax, const char *src, rsize_t slen) {
    const rsize_t room = dmax - used;
    const rsize_t length = strnlen(src, std::min(slen, room));
    const rsize_t read = length < slen ? length + 1 : length;  // the terminator counts where it is looked at
    const constraint broken =
        first_broken(enough_space<Function>(length < room), disjoint<Function>(dest + used, length + 1, src, read));
    if (!broken.broken) {
        std::memcpy(dest + used, src, length);
        dest[used + length] = '\0';
    }
    return broken;
}

enum class placing { copied, appended };

// What strcpy_s, strncpy_s, strcat_s and strncat_s have in common. A broken constraint leaves the empty text in dest,
// before the handler is called: it need not return.
template <literal Function, placing Placing>
errno_t write_text(char *dest, rsize_t dmax, const char *src, rsize_t slen) {
    constraint broken =
        first_broken(not_null<Function, "dest">(dest), not_null<Function, "src">(src), not_zero<Function>(dmax),
                     not_above_max<Function, "dmax">(dmax), not_above_max<Function, "slen">(slen));
    if (!broken.broken) {
        const rsize_t used = Placing == placing::appended ? strnlen(dest, dmax) : 0;
        broken = terminated<Function>(used, dmax);
        if (!broken.broken) {
            broken = place_text<Function>(dest, used, dmax, src, slen);
        }
    }
    if (!broken.broken) {
        return 0;
    }
    if (dest != nullptr && dmax != 0 && dmax <= max_length) {
        *dest = '\0';
    }
    return report(broken);
}

// The empty statement might read the bytes, for all that the compiler knows, so that it cannot leave the stores out.
void fill(void *dest, int value, rsize_t count) {
    std::memset(dest, value, count);
    asm volatile("" : : "r"(dest) : "memory");
}

// What a broken constraint does to the memory that was to be written. Where dmax bytes at dest cannot be an object,
// because they would end beyond the half of the address space that is a program's, they are left alone.
void fill_refused(void *dest, int value, rsize_t dmax) {
    if (dest != nullptr && dmax <= max_length && reinterpret_cast<uintptr_t>(dest) <= max_length - dmax) {
        fill(dest, value, dmax);
    }
}

// What memcpy_s and memmove_s have in common: `read` is the number of bytes at src that dest must not lie in.
template <literal Function>
constraint memory_broken(const void *dest, rsize_t dmax, const void *src, rsize_t n, rsize_t read) {
    return first_broken(not_null<Function, "dest">(dest), not_null<Function, "src">(src), not_zero<Function>(dmax, n),
                        not_above_max<Function, "dmax">(dmax), not_above_max<Function, "n">(n),
                        enough_space<Function>(n <= dmax), disjoint<Function>(dest, n, src, read));
}

errno_t refuse_memory(const constraint &broken, void *dest, int value, rsize_t dmax) {
    fill_refused(dest, value, dmax);
    return report(broken);
}

// The first `wanted` among dmax characters; the terminator, if it comes before; the end of the bound, if neither comes.
// It looks ahead by stretches that grow and that end where a page ends: a search takes as long as its way is, however
// long the text, and what is behind the page of its end need not exist.
char *go_to(char *at, rsize_t dmax, char wanted) {
    constexpr rsize_t page_size = 4096;
    for (rsize_t stretch = 32; dmax != 0; stretch = std::min(2 * stretch, page_size)) {
        const rsize_t rest_of_page = page_size - reinterpret_cast<uintptr_t>(at) % page_size;
        const rsize_t ahead = std::min({dmax, stretch, rest_of_page});
        const rsize_t length = strnlen(at, ahead);
        if (void *const found = std::memchr(at, static_cast<unsigned char>(wanted), length); found != nullptr) {
            return static_cast<char *>(found);
        }
        at += length;
        if (length != ahead) {
            break;
        }
        dmax -= ahead;
    }
    return at;
}

}  // namespace

errno_t strcpy_s(char *dest, rsize_t dmax, const char *src) {
    return write_text<"strcpy_s", placing::copied>(dest, dmax, src, max_length);
}

errno_t strncpy_s(char *dest, rsize_t dmax, const char *src, rsize_t slen) {
    return write_text<"strncpy_s", placing::copied>(dest, dmax, src, slen);
}

errno_t strcat_s(char *dest, rsize_t dmax, const char *src) {
    return write_text<"strcat_s", placing::appended>(dest, dmax, src, max_length);
}

errno_t strncat_s(char *dest, rsize_t dmax, const char *src, rsize_t slen) {
    return write_text<"strncat_s", placing::appended>(dest, dmax, src, slen);
}

errno_t strcmp_s(const char *dest, rsize_t dmax, const char *src, int *indicator) {
    if (indicator != nullptr) {
        *indicator = 0;
    }
    const constraint broken = first_broken(not_null<"strcmp_s", "dest">(dest), not_null<"strcmp_s", "src">(src),
                                           not_null<"strcmp_s", "indicator">(indicator), not_zero<"strcmp_s">(dmax),
                                           not_above_max<"strcmp_s", "dmax">(dmax));
    if (broken.broken) {
        return report(broken);
    }
    *indicator = std::strncmp(dest, src, dmax);
    return 0;
}

rsize_t strnlen_s(const char *s, rsize_t smax) {
    if (s == nullptr) {
        return 0;
    }
    if (const constraint smax_kept = not_above_max<"strnlen_s", "smax">(smax); smax_kept.broken) {
        report(smax_kept);
        return 0;
    }
    return strnlen(s, smax);
}

errno_t memcpy_s(void *dest, rsize_t dmax, const void *src, rsize_t n) {
    const constraint broken = memory_broken<"memcpy_s">(dest, dmax, src, n, n);
    if (broken.broken) {
        return refuse_memory(broken, dest, 0, dmax);
    }
    std::memcpy(dest, src, n);
    return 0;
}

errno_t memmove_s(void *dest, rsize_t dmax, const void *src, rsize_t n) {
    const constraint broken = memory_broken<"memmove_s">(dest, dmax, src, n, 0);
    if (broken.broken) {
        return refuse_memory(broken, dest, 0, dmax);
    }
    std::memmove(dest, src, n);
    return 0;
}

errno_t memset_s(void *dest, rsize_t dmax, int value, rsize_t n) {
    const constraint broken = first_broken(not_null<"memset_s", "dest">(dest), not_zero<"memset_s">(dmax, n),
                                           not_above_max<"memset_s", "dmax">(dmax), not_above_max<"memset_s", "n">(n),
                                           constraint{n > dmax, "memset_s: n exceeds dmax", SAFE_STR_NO_SPACE});
    if (broken.broken) {
        return refuse_memory(broken, dest, value, dmax);
    }
    fill(dest, value, n);
    return 0;
}

errno_t strfirstchar_s(char *dest, rsize_t dmax, char c, char **first) {
    if (first != nullptr) {
        *first = nullptr;
    }
    const constraint broken =
        first_broken(not_null<"strfirstchar_s", "index">(first), not_null<"strfirstchar_s", "dest">(dest),
                     not_zero<"strfirstchar_s">(dmax), not_above_max<"strfirstchar_s", "dmax">(dmax));
    if (broken.broken) {
        return report(broken);
    }
    char *const found = go_to(dest, dmax, c);
    const constraint unterminated = terminated<"strfirstchar_s">(static_cast<rsize_t>(found - dest), dmax);
    if (unterminated.broken) {
        return report(unterminated);
    }
    if (*found != c) {
        return SAFE_STR_NOT_FOUND;
    }
    *first = found;
    return 0;
}

safe_str_constraint_handler set_safe_str_constraint_handler(safe_str_constraint_handler handler) {
    return current_handler.exchange(handler != nullptr ? handler : ignore_violation, std::memory_order_acq_rel);
}

void invoke_safe_str_constraint_handler(const char *message, void *ptr, errno_t code) {
    call_handler(message, ptr, code);
}
