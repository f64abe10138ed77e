// Every constraint of every function: which one decides, what the handler hears, what becomes of dest.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "fenced_memory.h"
#include "safestr/safestr.h"
#include "violation_recorder.h"

namespace {

using namespace std::string_literals;

constexpr rsize_t above = rsize_t{1} << 63;
constexpr rsize_t all_ones = ~rsize_t{0};

const std::string old = "old\0rest"s;
const std::string emptied = "\0ld\0rest"s;
const std::string zeros(8, '\0');

// dest holds `old`, eight bytes at the end of readable memory; so does src with "source", of seven.
struct refused_call {
    std::function<errno_t(char *dest, const char *src)> call;
    errno_t code;
    const char *message;
    std::string after;
};

class SafestrViolation : public testing::Test {
  protected:
    void expect(const std::vector<refused_call> &cases) {
        for (const refused_call &refused : cases) {
            SCOPED_TRACE(refused.message);
            char *const dest = dest_memory.lay(old);
            const char *const src = src_memory.lay("source\0"s);
            EXPECT_EQ(refused.call(dest, src), refused.code);
            EXPECT_EQ(violation_recorder::take(), (std::vector<violation>{{refused.message, refused.code, nullptr}}));
            EXPECT_EQ(dest_memory.bytes(), refused.after);
            EXPECT_TRUE(dest_memory.intact_before());
        }
    }

    violation_recorder recorder;
    fenced_memory dest_memory;
    fenced_memory src_memory;
};

TEST_F(SafestrViolation, OfStrcpy) {
    expect({
        {[](char *, const char *s) { return strcpy_s(nullptr, 8, s); }, 400, "strcpy_s: dest is null", old},
        {[](char *, const char *) { return strcpy_s(nullptr, 0, nullptr); }, 400, "strcpy_s: dest is null", old},
        {[](char *d, const char *) { return strcpy_s(d, 8, nullptr); }, 400, "strcpy_s: src is null", emptied},
        {[](char *d, const char *) { return strcpy_s(d, 0, nullptr); }, 400, "strcpy_s: src is null", old},
        {[](char *d, const char *) { return strcpy_s(d, above, nullptr); }, 400, "strcpy_s: src is null", old},
        {[](char *d, const char *) { return strcpy_s(d, RSIZE_MAX, nullptr); }, 400, "strcpy_s: src is null", emptied},
        {[](char *d, const char *s) { return strcpy_s(d, 0, s); }, 401, "strcpy_s: dmax is 0", old},
        {[](char *d, const char *s) { return strcpy_s(d, above, s); }, 403, "strcpy_s: dmax exceeds max", old},
        {[](char *d, const char *s) { return strcpy_s(d, all_ones, s); }, 403, "strcpy_s: dmax exceeds max", old},
        {[](char *d, const char *s) { return strcpy_s(d, 6, s); }, 406, "strcpy_s: not enough space for src", emptied},
        {[](char *d, const char *s) { return strcpy_s(d, 1, s); }, 406, "strcpy_s: not enough space for src", emptied},
        {[](char *d, const char *) { return strcpy_s(d, 8, d + 1); }, 404, "strcpy_s: dest and src overlap", emptied},
    });
}

TEST_F(SafestrViolation, OfStrncpy) {
    expect({
        {[](char *, const char *s) { return strncpy_s(nullptr, 8, s, 2); }, 400, "strncpy_s: dest is null", old},
        {[](char *d, const char *) { return strncpy_s(d, 8, nullptr, 2); }, 400, "strncpy_s: src is null", emptied},
        {[](char *d, const char *) { return strncpy_s(d, 8, nullptr, 0); }, 400, "strncpy_s: src is null", emptied},
        {[](char *d, const char *s) { return strncpy_s(d, 0, s, 2); }, 401, "strncpy_s: dmax is 0", old},
        {[](char *d, const char *s) { return strncpy_s(d, 0, s, above); }, 401, "strncpy_s: dmax is 0", old},
        {[](char *d, const char *s) { return strncpy_s(d, above, s, above); }, 403, "strncpy_s: dmax exceeds max", old},
        {[](char *d, const char *s) { return strncpy_s(d, 8, s, above); }, 403, "strncpy_s: slen exceeds max", emptied},
        {[](char *d, const char *s) { return strncpy_s(d, 8, s, all_ones); }, 403, "strncpy_s: slen exceeds max",
         emptied},
        {[](char *d, const char *s) { return strncpy_s(d, 3, s, 3); }, 406, "strncpy_s: not enough space for src",
         emptied},
        {[](char *d, const char *) { return strncpy_s(d, 8, d + 1, 2); }, 404, "strncpy_s: dest and src overlap",
         emptied},
    });
}

TEST_F(SafestrViolation, OfStrcat) {
    expect({
        {[](char *, const char *s) { return strcat_s(nullptr, 8, s); }, 400, "strcat_s: dest is null", old},
        {[](char *d, const char *) { return strcat_s(d, 8, nullptr); }, 400, "strcat_s: src is null", emptied},
        {[](char *d, const char *s) { return strcat_s(d, 0, s); }, 401, "strcat_s: dmax is 0", old},
        {[](char *d, const char *s) { return strcat_s(d, above, s); }, 403, "strcat_s: dmax exceeds max", old},
        {[](char *d, const char *s) { return strcat_s(d, 3, s); }, 407, "strcat_s: dest is unterminated", emptied},
        {[](char *d, const char *s) { return strcat_s(d, 8, s); }, 406, "strcat_s: not enough space for src", emptied},
        {[](char *d, const char *s) { return strcat_s(d, 4, s); }, 406, "strcat_s: not enough space for src", emptied},
        {[](char *d, const char *) { return strcat_s(d, 8, d); }, 404, "strcat_s: dest and src overlap", emptied},
    });
}

TEST_F(SafestrViolation, OfStrncat) {
    expect({
        {[](char *, const char *s) { return strncat_s(nullptr, 8, s, 1); }, 400, "strncat_s: dest is null", old},
        {[](char *d, const char *) { return strncat_s(d, 8, nullptr, 0); }, 400, "strncat_s: src is null", emptied},
        {[](char *d, const char *s) { return strncat_s(d, 0, s, 0); }, 401, "strncat_s: dmax is 0", old},
        {[](char *d, const char *s) { return strncat_s(d, above, s, 1); }, 403, "strncat_s: dmax exceeds max", old},
        {[](char *d, const char *s) { return strncat_s(d, 8, s, above); }, 403, "strncat_s: slen exceeds max", emptied},
        {[](char *d, const char *s) { return strncat_s(d, 3, s, 0); }, 407, "strncat_s: dest is unterminated", emptied},
        {[](char *d, const char *s) { return strncat_s(d, 8, s, 5); }, 406, "strncat_s: not enough space for src",
         emptied},
        {[](char *d, const char *) { return strncat_s(d, 8, d + 1, 3); }, 404, "strncat_s: dest and src overlap",
         emptied},
    });
}

TEST_F(SafestrViolation, OfMemcpy) {
    expect({
        {[](char *, const char *s) { return memcpy_s(nullptr, 8, s, 2); }, 400, "memcpy_s: dest is null", old},
        {[](char *d, const char *) { return memcpy_s(d, 8, nullptr, 2); }, 400, "memcpy_s: src is null", zeros},
        {[](char *d, const char *) { return memcpy_s(d, 8, nullptr, 0); }, 400, "memcpy_s: src is null", zeros},
        {[](char *d, const char *) { return memcpy_s(d, 3, nullptr, 2); }, 400, "memcpy_s: src is null",
         "\0\0\0\0rest"s},
        {[](char *d, const char *) { return memcpy_s(d, 0, nullptr, 2); }, 400, "memcpy_s: src is null", old},
        {[](char *d, const char *) { return memcpy_s(d, above, nullptr, 2); }, 400, "memcpy_s: src is null", old},
        {[](char *d, const char *) { return memcpy_s(d, RSIZE_MAX, nullptr, 2); }, 400, "memcpy_s: src is null", old},
        {[](char *d, const char *s) { return memcpy_s(d, 0, s, 2); }, 401, "memcpy_s: dmax is 0", old},
        {[](char *d, const char *s) { return memcpy_s(d, 0, s, above); }, 401, "memcpy_s: dmax is 0", old},
        {[](char *d, const char *s) { return memcpy_s(d, above, s, above); }, 403, "memcpy_s: dmax exceeds max", old},
        {[](char *d, const char *s) { return memcpy_s(d, all_ones, s, 0); }, 403, "memcpy_s: dmax exceeds max", old},
        {[](char *d, const char *s) { return memcpy_s(d, 8, s, above); }, 403, "memcpy_s: n exceeds max", zeros},
        {[](char *d, const char *s) { return memcpy_s(d, RSIZE_MAX, s, above); }, 403, "memcpy_s: n exceeds max", old},
        {[](char *d, const char *s) { return memcpy_s(d, 4, s, 5); }, 406, "memcpy_s: not enough space for src",
         "\0\0\0\0rest"s},
        {[](char *d, const char *s) { return memcpy_s(d, 8, s, RSIZE_MAX); }, 406, "memcpy_s: not enough space for src",
         zeros},
        {[](char *d, const char *) { return memcpy_s(d, 8, d + 1, 2); }, 404, "memcpy_s: dest and src overlap", zeros},
        {[](char *d, const char *) { return memcpy_s(d, 8, d, 1); }, 404, "memcpy_s: dest and src overlap", zeros},
        {[](char *d, const char *) { return memcpy_s(d + 1, 3, d, 2); }, 404, "memcpy_s: dest and src overlap",
         "o\0\0\0rest"s},
    });
}

TEST_F(SafestrViolation, OfMemmove) {
    expect({
        {[](char *, const char *s) { return memmove_s(nullptr, 8, s, 2); }, 400, "memmove_s: dest is null", old},
        {[](char *d, const char *) { return memmove_s(d, 8, nullptr, 2); }, 400, "memmove_s: src is null", zeros},
        {[](char *d, const char *s) { return memmove_s(d, 0, s, 2); }, 401, "memmove_s: dmax is 0", old},
        {[](char *d, const char *s) { return memmove_s(d, above, s, 2); }, 403, "memmove_s: dmax exceeds max", old},
        {[](char *d, const char *s) { return memmove_s(d, 8, s, above); }, 403, "memmove_s: n exceeds max", zeros},
        {[](char *d, const char *s) { return memmove_s(d, 4, s, 5); }, 406, "memmove_s: not enough space for src",
         "\0\0\0\0rest"s},
    });
}

TEST_F(SafestrViolation, OfMemset) {
    const std::string filled(8, 'z');
    expect({
        {[](char *, const char *) { return memset_s(nullptr, 8, 'z', 2); }, 400, "memset_s: dest is null", old},
        {[](char *d, const char *) { return memset_s(d, 0, 'z', 2); }, 401, "memset_s: dmax is 0", old},
        {[](char *d, const char *) { return memset_s(d, above, 'z', 2); }, 403, "memset_s: dmax exceeds max", old},
        {[](char *d, const char *) { return memset_s(d, 8, 'z', above); }, 403, "memset_s: n exceeds max", filled},
        {[](char *d, const char *) { return memset_s(d, RSIZE_MAX, 'z', above); }, 403, "memset_s: n exceeds max", old},
        {[](char *d, const char *) { return memset_s(d, 8, 'z', 9); }, 406, "memset_s: n exceeds dmax", filled},
        {[](char *d, const char *) { return memset_s(d, 4, 'z' + 256, 9); }, 406, "memset_s: n exceeds dmax",
         "zzzzrest"},
    });
}

// The indicator, set to 77 before, must be 0 after each of these.
TEST_F(SafestrViolation, OfStrcmp) {
    int indicator = 77;
    const auto compare = [&indicator](const char *dest, rsize_t dmax, const char *src) {
        indicator = 77;
        const errno_t result = strcmp_s(dest, dmax, src, &indicator);
        EXPECT_EQ(indicator, 0);
        return result;
    };
    expect({
        {[&](char *, const char *s) { return compare(nullptr, 8, s); }, 400, "strcmp_s: dest is null", old},
        {[&](char *d, const char *) { return compare(d, 8, nullptr); }, 400, "strcmp_s: src is null", old},
        {[&](char *d, const char *) { return compare(d, 0, nullptr); }, 400, "strcmp_s: src is null", old},
        {[](char *d, const char *s) { return strcmp_s(d, 0, s, nullptr); }, 400, "strcmp_s: indicator is null", old},
        {[](char *d, const char *) { return strcmp_s(d, 8, nullptr, nullptr); }, 400, "strcmp_s: src is null", old},
        {[&](char *d, const char *s) { return compare(d, 0, s); }, 401, "strcmp_s: dmax is 0", old},
        {[&](char *d, const char *s) { return compare(d, above, s); }, 403, "strcmp_s: dmax exceeds max", old},
    });
}

TEST_F(SafestrViolation, OfStrfirstchar) {
    char *first = nullptr;
    const auto find = [&first](char *dest, rsize_t dmax, char c) {
        char not_null = '\0';
        first = &not_null;
        const errno_t result = strfirstchar_s(dest, dmax, c, &first);
        EXPECT_EQ(first, nullptr);
        return result;
    };
    expect({
        {[](char *, const char *) { return strfirstchar_s(nullptr, 0, 'd', nullptr); }, 400,
         "strfirstchar_s: index is null", old},
        {[&](char *, const char *) { return find(nullptr, 0, 'd'); }, 400, "strfirstchar_s: dest is null", old},
        {[&](char *d, const char *) { return find(d, 0, 'd'); }, 401, "strfirstchar_s: dmax is 0", old},
        {[&](char *d, const char *) { return find(d, above, 'd'); }, 403, "strfirstchar_s: dmax exceeds max", old},
        {[&](char *d, const char *) { return find(d, 2, 'd'); }, 407, "strfirstchar_s: dest is unterminated", old},
        {[&](char *d, const char *) { return find(d, 3, 'x'); }, 407, "strfirstchar_s: dest is unterminated", old},
        {[&](char *d, const char *) { return find(d, 3, '\0'); }, 407, "strfirstchar_s: dest is unterminated", old},
        {[&](char *d, const char *) { return find(d + 4, 4, 'x'); }, 407, "strfirstchar_s: dest is unterminated", old},
    });
}

TEST_F(SafestrViolation, OfStrnlen) {
    EXPECT_EQ(strnlen_s("text", above), 0U);
    EXPECT_EQ(strnlen_s("text", all_ones), 0U);
    const violation refused = {"strnlen_s: smax exceeds max", 403, nullptr};
    EXPECT_EQ(violation_recorder::take(), (std::vector<violation>{refused, refused}));
}

}  // namespace
