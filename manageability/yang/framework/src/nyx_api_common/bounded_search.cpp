#include <algorithm>
#include <cstdint>
#include <cstring>

#include "nyx_api_common.h"

namespace {

constexpr rsize_t max_length = INT64_MAX;

// What an argument must keep, and what is said when it does not.
struct constraint {
    bool broken;
    const char *message;
    errno_t code;
};

constraint not_null(const void *pointer, const char *message) {
    return {pointer == nullptr, message, SAFE_STR_NULL_POINTER};
}

constraint not_zero(rsize_t length, const char *message) {
    return {length == 0, message, SAFE_STR_ZERO_LENGTH};
}

constraint not_above_max(rsize_t length, const char *message) {
    return {length > max_length, message, SAFE_STR_ABOVE_MAX};
}

errno_t refuse(const char *message, errno_t code) {
    invoke_safe_str_constraint_handler(message, nullptr, code);
    return code;
}

errno_t unterminated(const char *message) {
    return refuse(message, SAFE_STR_UNTERMINATED);
}

// Empties the out pointer, then checks the constraints in their order: 0, or the code of the first that is broken.
template <class... Constraints>
errno_t begin(const char **out, const Constraints &...constraints) {
    if (out != nullptr) {
        *out = nullptr;
    }
    errno_t result = 0;
    static_cast<void>(((constraints.broken && (result = refuse(constraints.message, constraints.code), true)) || ...));
    return result;
}

// A walk over the characters of a text until its terminator or the end of a budget. It reads no further than the end of
// the memory page in which it stands, so that nothing behind the place where it stops needs to exist.
class walk {
  public:
    walk(const char *text, rsize_t budget) : at_(text), budget_(budget) {}

    // Goes to the next `wanted`, from where it stands. False when the text or the budget ends before.
    bool go_to(char wanted) {
        while (known_ != 0 || look_ahead()) {
            const void *const found = std::memchr(at_, static_cast<unsigned char>(wanted), known_);
            if (found != nullptr) {
                pass(static_cast<rsize_t>(static_cast<const char *>(found) - at_));
                return true;
            }
            pass(known_);
        }
        return false;
    }

    // Steps over `count` characters that are known.
    void pass(rsize_t count) {
        at_ += count;
        budget_ -= count;
        known_ -= count;
    }

    const char *at() const { return at_; }

  private:
    static constexpr rsize_t page_size = 4096;

    // Finds characters that are neither the terminator nor beyond the budget.
    bool look_ahead() {
        const rsize_t rest_of_page = page_size - reinterpret_cast<uintptr_t>(at_) % page_size;
        known_ = strnlen(at_, std::min(budget_, rest_of_page));
        return known_ != 0;
    }

    const char *at_;
    rsize_t budget_;
    rsize_t known_ = 0;  // characters from at_ on that are within the text and the budget
};

class character_set {
  public:
    void add(char c) { members_[static_cast<unsigned char>(c)] = true; }
    bool has(char c) const { return members_[static_cast<unsigned char>(c)]; }

  private:
    bool members_[256] = {};
};

// How src compares with the text at `at`, whose first character is src's first one.
enum class comparison { found, differs, text_ended, src_unterminated };

comparison compare(const char *at, const char *src, rsize_t slen) {
    for (rsize_t i = 0; at[i] != '\0'; ++i) {
        if (at[i] != src[i]) {
            return comparison::differs;
        }
        if (i == slen) {
            return comparison::src_unterminated;
        }
        if (src[i + 1] == '\0') {
            return comparison::found;
        }
    }
    return comparison::text_ended;
}

}  // namespace

errno_t strchar_s_tmp(const char *dest, rsize_t dmax, char character, const char **first) {
    const errno_t refused =
        begin(first, not_null(first, "strfirstchar_s: index is null"), not_null(dest, "strfirstchar_s: dest is null"),
              not_zero(dmax, "strfirstchar_s: dmax is 0"), not_above_max(dmax, "strfirstchar_s: dmax exceeds max"));
    if (refused != 0) {
        return refused;
    }
    walk text(dest, dmax);
    if (!text.go_to(character)) {
        if (*text.at() != '\0') {
            return unterminated("strfirstchar_s: dest is unterminated");
        }
        if (character != '\0') {
            return SAFE_STR_NOT_FOUND;
        }
    }
    *first = text.at();
    return 0;
}

errno_t strrchar_s_tmp(const char *dest, rsize_t dmax, char character, const char **last) {
    const errno_t refused =
        begin(last, not_null(last, "strlastchar_s: last is null"), not_null(dest, "strlastchar_s: dest is null"),
              not_zero(dmax, "strlastchar_s: dmax is 0"), not_above_max(dmax, "strlastchar_s: dmax exceeds max"));
    if (refused != 0) {
        return refused;
    }
    const rsize_t length = strnlen(dest, dmax);
    *last = static_cast<const char *>(memrchr(dest, static_cast<unsigned char>(character), length));
    if (dest[length] != '\0') {
        return unterminated("strlastchar_s: dest is unterminated");
    }
    return *last != nullptr ? 0 : static_cast<errno_t>(SAFE_STR_NOT_FOUND);
}

errno_t strpbrk_s_tmp(const char *dest, rsize_t dmax, const char *set, rsize_t slen, const char **first) {
    const errno_t refused =
        begin(first, not_null(first, "strpbrk_s: count is null"), not_null(dest, "strpbrk_s: dest is null"),
              not_null(set, "strpbrk_s: src is null"), not_zero(dmax, "strpbrk_s: dmax is 0"),
              not_above_max(dmax, "strpbrk_s: dmax exceeds max"), not_zero(slen, "strpbrk_s: slen is 0"),
              not_above_max(slen, "strpbrk_s: slen exceeds max"));
    if (refused != 0) {
        return refused;
    }
    if (*dest == '\0') {
        return SAFE_STR_NOT_FOUND;
    }
    // The first character is looked up in the set as it stands; if it is not there, the whole set has been seen.
    character_set wanted;
    for (rsize_t i = 0; set[i] != '\0'; ++i) {
        if (i == slen) {
            return unterminated("strpbrk_s: src is unterminated");
        }
        if (set[i] == *dest) {
            *first = dest;
            return 0;
        }
        wanted.add(set[i]);
    }
    wanted.add('\0');
    rsize_t i = 1;
    while (i < dmax && !wanted.has(dest[i])) {
        ++i;
    }
    if (dest[i] == '\0') {
        return SAFE_STR_NOT_FOUND;
    }
    if (i == dmax) {
        return unterminated("strpbrk_s: dest is unterminated");
    }
    *first = dest + i;
    return 0;
}

errno_t strstr_s_tmp(const char *dest, rsize_t dmax, const char *src, rsize_t slen, const char **substring) {
    const errno_t refused =
        begin(substring, not_null(substring, "strstr_s: substring is null"), not_null(dest, "strstr_s: dest is null"),
              not_zero(dmax, "strstr_s: dmax is 0"), not_above_max(dmax, "strstr_s: dmax exceeds max"),
              not_null(src, "strstr_s: src is null"), not_zero(slen, "strstr_s: slen is 0"),
              not_above_max(slen, "strstr_s: slen exceeds max"));
    if (refused != 0) {
        return refused;
    }
    if (src == dest || *src == '\0') {
        *substring = dest;
        return 0;
    }
    for (walk text(dest, dmax);; text.pass(1)) {
        if (!text.go_to(*src)) {
            return *text.at() == '\0' ? static_cast<errno_t>(SAFE_STR_NOT_FOUND)
                                      : unterminated("strstr_s: dest is unterminated");
        }
        switch (compare(text.at(), src, slen)) {
            case comparison::found:
                *substring = text.at();
                return 0;
            case comparison::text_ended:
                return SAFE_STR_NOT_FOUND;
            case comparison::src_unterminated:
                return unterminated("strstr_s: src is unterminated");
            case comparison::differs:
                break;
        }
    }
}
