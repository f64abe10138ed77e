// The bounded search functions: messages and their order, every small case against the plain algorithm, and how far
// memory is read.
#include <gtest/gtest.h>

#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "../safestr/fenced_memory.h"
#include "../safestr/violation_recorder.h"
#include "nyx_api_common.h"

namespace {

using namespace std::string_literals;

constexpr rsize_t above = rsize_t{1} << 63;
constexpr rsize_t all_ones = ~rsize_t{0};

// What a call returned, where it pointed in dest (-1: null), and what the handler was told.
struct outcome {
    errno_t result;
    std::ptrdiff_t position = -1;
    std::vector<violation> violations = {};

    bool operator==(const outcome &) const = default;
    friend std::ostream &operator<<(std::ostream &out, const outcome &o) {
        return out << o.result << " at " << o.position << ' ' << testing::PrintToString(o.violations);
    }
};

outcome found(std::ptrdiff_t position) {
    return {0, position};
}

outcome not_found() {
    return {3};
}

outcome unterminated(const char *message, std::ptrdiff_t position = -1) {
    return {407, position, {{message, 407, nullptr}}};
}

// The searches as they are described, step by step. The texts hold every character that may be read.
outcome plain_strchar(const std::string &dest, rsize_t dmax, char character) {
    std::size_t i = 0;
    for (; dest.at(i) != '\0'; ++i, --dmax) {
        if (dmax == 0) {
            return unterminated("strfirstchar_s: dest is unterminated");
        }
        if (dest.at(i) == character) {
            return found(static_cast<std::ptrdiff_t>(i));
        }
    }
    return character == '\0' ? found(static_cast<std::ptrdiff_t>(i)) : not_found();
}

outcome plain_strrchar(const std::string &dest, rsize_t dmax, char character) {
    std::ptrdiff_t last = -1;
    for (std::size_t i = 0; dest.at(i) != '\0'; ++i, --dmax) {
        if (dmax == 0) {
            return unterminated("strlastchar_s: dest is unterminated", last);
        }
        if (dest.at(i) == character) {
            last = static_cast<std::ptrdiff_t>(i);
        }
    }
    return last != -1 ? found(last) : not_found();
}

outcome plain_strpbrk(const std::string &dest, rsize_t dmax, const std::string &set, rsize_t slen) {
    for (std::size_t i = 0; dest.at(i) != '\0'; ++i, --dmax) {
        if (dmax == 0) {
            return unterminated("strpbrk_s: dest is unterminated");
        }
        for (std::size_t k = 0; set.at(k) != '\0'; ++k) {
            if (k == slen) {
                return unterminated("strpbrk_s: src is unterminated");
            }
            if (set.at(k) == dest.at(i)) {
                return found(static_cast<std::ptrdiff_t>(i));
            }
        }
    }
    return not_found();
}

outcome plain_strstr(const std::string &dest, rsize_t dmax, const std::string &src, rsize_t slen) {
    if (src.at(0) == '\0') {
        return found(0);
    }
    if (dest.at(0) == '\0') {
        return not_found();
    }
    for (std::size_t start = 0; dmax > 0; ++start, --dmax) {
        std::size_t i = 0;
        while (true) {
            if (dest.at(start + i) == '\0') {
                return not_found();
            }
            if (dest.at(start + i) != src.at(i)) {
                break;
            }
            if (i == slen) {
                return unterminated("strstr_s: src is unterminated");
            }
            ++i;
            if (src.at(i) == '\0') {
                return found(static_cast<std::ptrdiff_t>(start));
            }
        }
        if (dest.at(start + 1) == '\0') {
            return not_found();
        }
    }
    return unterminated("strstr_s: dest is unterminated");
}

// All texts of `from` to `to` characters of the alphabet, without their terminators.
std::vector<std::string> all_texts(std::size_t from, std::size_t to, const std::string &alphabet) {
    std::vector<std::string> texts = {""};
    for (std::size_t i = 0; i < texts.size(); ++i) {
        if (texts[i].size() < to) {
            for (const char c : alphabet) {
                texts.push_back(texts[i] + c);
            }
        }
    }
    std::erase_if(texts, [from](const std::string &text) { return text.size() < from; });
    return texts;
}

class BoundedSearch : public testing::Test {
  protected:
    using search = std::function<errno_t(const char *dest, const char **out)>;

    // Searches in `dest`, which lies at the end of readable memory.
    outcome run(const std::string &dest, const search &call) {
        const char *const text = dest_memory.lay(dest);
        const char *out = dest_memory.end();  // must be overwritten
        const errno_t result = call(text, &out);
        EXPECT_EQ(dest_memory.bytes(), dest);
        return {result, out == nullptr ? -1 : out - text, violation_recorder::take()};
    }

    outcome strchar(const std::string &dest, rsize_t dmax, char character) {
        return run(dest, [=](const char *text, const char **out) { return strchar_s_tmp(text, dmax, character, out); });
    }
    outcome strrchar(const std::string &dest, rsize_t dmax, char character) {
        return run(dest,
                   [=](const char *text, const char **out) { return strrchar_s_tmp(text, dmax, character, out); });
    }
    outcome strpbrk(const std::string &dest, rsize_t dmax, const std::string &set, rsize_t slen) {
        const char *const characters = src_memory.lay(set);
        return run(
            dest, [=](const char *text, const char **out) { return strpbrk_s_tmp(text, dmax, characters, slen, out); });
    }
    outcome strstr(const std::string &dest, rsize_t dmax, const std::string &src, rsize_t slen) {
        const char *const wanted = src_memory.lay(src);
        return run(dest,
                   [=](const char *text, const char **out) { return strstr_s_tmp(text, dmax, wanted, slen, out); });
    }

    violation_recorder recorder;
    fenced_memory dest_memory = fenced_memory(3);
    fenced_memory src_memory = fenced_memory(3);
};

// --- arguments

struct refused_call {
    std::function<errno_t(const char **out)> call;
    errno_t code;
    const char *message;
};

// Each call breaks the constraint of its row and all that can be broken of the rows behind it.
class BoundedSearchArguments : public BoundedSearch {
  protected:
    static void expect_without_out(errno_t result, const char *message) {
        EXPECT_EQ(result, 400);
        EXPECT_EQ(violation_recorder::take(), (std::vector<violation>{{message, 400, nullptr}}));
    }

    static void expect(const std::vector<refused_call> &rows) {
        for (const refused_call &row : rows) {
            SCOPED_TRACE(row.message);
            const char *out = "must become null";
            EXPECT_EQ(row.call(&out), row.code);
            EXPECT_EQ(out, nullptr);
            EXPECT_EQ(violation_recorder::take(), (std::vector<violation>{{row.message, row.code, nullptr}}));
        }
    }
};

TEST_F(BoundedSearchArguments, OfStrchar) {
    expect_without_out(strchar_s_tmp(nullptr, 0, 'x', nullptr), "strfirstchar_s: index is null");
    expect_without_out(strchar_s_tmp("text", 4, 'x', nullptr), "strfirstchar_s: index is null");
    expect({
        {[](const char **out) { return strchar_s_tmp(nullptr, 0, 'x', out); }, 400, "strfirstchar_s: dest is null"},
        {[](const char **out) { return strchar_s_tmp(nullptr, above, 'x', out); }, 400, "strfirstchar_s: dest is null"},
        {[](const char **out) { return strchar_s_tmp("", 0, 'x', out); }, 401, "strfirstchar_s: dmax is 0"},
        {[](const char **out) { return strchar_s_tmp("", above, 'x', out); }, 403, "strfirstchar_s: dmax exceeds max"},
        {[](const char **out) { return strchar_s_tmp("x", all_ones, 'x', out); }, 403,
         "strfirstchar_s: dmax exceeds max"},
        {[](const char **out) { return strchar_s_tmp("text", 2, 'x', out); }, 407,
         "strfirstchar_s: dest is unterminated"},
    });
}

TEST_F(BoundedSearchArguments, OfStrrchar) {
    expect_without_out(strrchar_s_tmp(nullptr, 0, 'x', nullptr), "strlastchar_s: last is null");
    expect_without_out(strrchar_s_tmp("text", 4, 'x', nullptr), "strlastchar_s: last is null");
    expect({
        {[](const char **out) { return strrchar_s_tmp(nullptr, 0, 'x', out); }, 400, "strlastchar_s: dest is null"},
        {[](const char **out) { return strrchar_s_tmp(nullptr, above, 'x', out); }, 400, "strlastchar_s: dest is null"},
        {[](const char **out) { return strrchar_s_tmp("", 0, 'x', out); }, 401, "strlastchar_s: dmax is 0"},
        {[](const char **out) { return strrchar_s_tmp("", above, 'x', out); }, 403, "strlastchar_s: dmax exceeds max"},
        {[](const char **out) { return strrchar_s_tmp("x", all_ones, 'x', out); }, 403,
         "strlastchar_s: dmax exceeds max"},
        {[](const char **out) { return strrchar_s_tmp("text", 2, 'x', out); }, 407,
         "strlastchar_s: dest is unterminated"},
    });
}

TEST_F(BoundedSearchArguments, OfStrpbrk) {
    expect_without_out(strpbrk_s_tmp(nullptr, 0, nullptr, 0, nullptr), "strpbrk_s: count is null");
    expect_without_out(strpbrk_s_tmp("text", 4, "x", 1, nullptr), "strpbrk_s: count is null");
    expect({
        {[](const char **out) { return strpbrk_s_tmp(nullptr, 0, nullptr, 0, out); }, 400, "strpbrk_s: dest is null"},
        {[](const char **out) { return strpbrk_s_tmp("", 0, nullptr, 0, out); }, 400, "strpbrk_s: src is null"},
        {[](const char **out) { return strpbrk_s_tmp("", above, nullptr, 0, out); }, 400, "strpbrk_s: src is null"},
        {[](const char **out) { return strpbrk_s_tmp("", 0, "", 0, out); }, 401, "strpbrk_s: dmax is 0"},
        {[](const char **out) { return strpbrk_s_tmp("", 0, "", above, out); }, 401, "strpbrk_s: dmax is 0"},
        {[](const char **out) { return strpbrk_s_tmp("", above, "", 0, out); }, 403, "strpbrk_s: dmax exceeds max"},
        {[](const char **out) { return strpbrk_s_tmp("", all_ones, "", above, out); }, 403,
         "strpbrk_s: dmax exceeds max"},
        {[](const char **out) { return strpbrk_s_tmp("", 1, "", 0, out); }, 401, "strpbrk_s: slen is 0"},
        {[](const char **out) { return strpbrk_s_tmp("", 1, "", above, out); }, 403, "strpbrk_s: slen exceeds max"},
        {[](const char **out) { return strpbrk_s_tmp("x", 1, "x", all_ones, out); }, 403,
         "strpbrk_s: slen exceeds max"},
        {[](const char **out) { return strpbrk_s_tmp("text", 1, "xy", 1, out); }, 407,
         "strpbrk_s: src is unterminated"},
        {[](const char **out) { return strpbrk_s_tmp("text", 2, "x", 1, out); }, 407,
         "strpbrk_s: dest is unterminated"},
    });
}

TEST_F(BoundedSearchArguments, OfStrstr) {
    expect_without_out(strstr_s_tmp(nullptr, 0, nullptr, 0, nullptr), "strstr_s: substring is null");
    expect_without_out(strstr_s_tmp("text", 4, "x", 1, nullptr), "strstr_s: substring is null");
    expect({
        {[](const char **out) { return strstr_s_tmp(nullptr, 0, nullptr, 0, out); }, 400, "strstr_s: dest is null"},
        {[](const char **out) { return strstr_s_tmp("", 0, nullptr, 0, out); }, 401, "strstr_s: dmax is 0"},
        {[](const char **out) { return strstr_s_tmp("", above, nullptr, 0, out); }, 403, "strstr_s: dmax exceeds max"},
        {[](const char **out) { return strstr_s_tmp("", all_ones, nullptr, above, out); }, 403,
         "strstr_s: dmax exceeds max"},
        {[](const char **out) { return strstr_s_tmp("", 1, nullptr, 0, out); }, 400, "strstr_s: src is null"},
        {[](const char **out) { return strstr_s_tmp("", 1, nullptr, above, out); }, 400, "strstr_s: src is null"},
        {[](const char **out) { return strstr_s_tmp("", 1, "", 0, out); }, 401, "strstr_s: slen is 0"},
        {[](const char **out) { return strstr_s_tmp("", 1, "", above, out); }, 403, "strstr_s: slen exceeds max"},
        {[](const char **out) { return strstr_s_tmp("x", 1, "x", all_ones, out); }, 403, "strstr_s: slen exceeds max"},
        {[](const char **out) { return strstr_s_tmp("text", 4, "ex", 1, out); }, 407, "strstr_s: src is unterminated"},
        {[](const char **out) { return strstr_s_tmp("text", 2, "x", 1, out); }, 407, "strstr_s: dest is unterminated"},
    });
}

// --- every small case

const rsize_t large_bounds[] = {RSIZE_MAX - 1, RSIZE_MAX};

std::vector<rsize_t> bounds_up_to(rsize_t last) {
    std::vector<rsize_t> bounds(std::begin(large_bounds), std::end(large_bounds));
    for (rsize_t bound = 1; bound <= last; ++bound) {
        bounds.push_back(bound);
    }
    return bounds;
}

TEST_F(BoundedSearch, ForACharacterDoesAsThePlainAlgorithm) {
    for (const std::string &text : all_texts(0, 5, "ab\xE9")) {
        const std::string dest = text + '\0';
        for (const rsize_t dmax : bounds_up_to(7)) {
            for (const char c : {'a', 'b', '\xE9', 'x', '\0'}) {
                ASSERT_EQ(strchar(dest, dmax, c), plain_strchar(dest, dmax, c)) << text << ' ' << dmax << ' ' << c;
                ASSERT_EQ(strrchar(dest, dmax, c), plain_strrchar(dest, dmax, c)) << text << ' ' << dmax << ' ' << c;
            }
        }
    }
}

TEST_F(BoundedSearch, ForASetDoesAsThePlainAlgorithm) {
    const std::vector<std::string> sets = all_texts(0, 3, "ax\xE9");
    for (const std::string &text : all_texts(0, 4, "ab\xE9")) {
        for (const std::string &set : sets) {
            for (const rsize_t dmax : bounds_up_to(6)) {
                for (const rsize_t slen : bounds_up_to(5)) {
                    ASSERT_EQ(strpbrk(text + '\0', dmax, set + '\0', slen),
                              plain_strpbrk(text + '\0', dmax, set + '\0', slen))
                        << text << ' ' << dmax << ' ' << set << ' ' << slen;
                }
            }
        }
    }
}

TEST_F(BoundedSearch, ForATextDoesAsThePlainAlgorithm) {
    const std::vector<std::string> wanted = all_texts(0, 4, "ab");
    for (const std::string &text : all_texts(0, 6, "ab")) {
        for (const std::string &src : wanted) {
            for (const rsize_t dmax : bounds_up_to(8)) {
                for (const rsize_t slen : bounds_up_to(5)) {
                    ASSERT_EQ(strstr(text + '\0', dmax, src + '\0', slen),
                              plain_strstr(text + '\0', dmax, src + '\0', slen))
                        << text << ' ' << dmax << ' ' << src << ' ' << slen;
                }
            }
        }
    }
}

// Lengths around those at which a processor's wide instructions begin a new step, and around the ends of pages.
TEST_F(BoundedSearch, FindsTheLastCharacterOfALongText) {
    for (const std::size_t length :
         {15U, 16U, 17U, 31U, 32U, 33U, 63U, 64U, 65U, 4094U, 4095U, 4096U, 4097U, 8191U, 8192U, 12287U}) {
        const std::string dest = std::string(length - 1, '.') + "x\0"s;
        const auto last = static_cast<std::ptrdiff_t>(length - 1);
        for (const rsize_t dmax : {rsize_t{length}, rsize_t{length + 1}, RSIZE_MAX}) {
            EXPECT_EQ(strchar(dest, dmax, 'x'), found(last));
            EXPECT_EQ(strchar(dest, dmax, '\0'), found(last + 1));
            EXPECT_EQ(strchar(dest, dmax, 'y'), not_found());
            EXPECT_EQ(strrchar(dest, dmax, 'x'), found(last));
            EXPECT_EQ(strpbrk(dest, dmax, "yx\0"s, 2), found(last));
            EXPECT_EQ(strstr(dest, dmax, "x\0"s, 1), found(last));
            EXPECT_EQ(strstr(dest, dmax, "xy\0"s, 2), not_found());
        }
        EXPECT_EQ(strchar(dest, length - 1, 'x'), unterminated("strfirstchar_s: dest is unterminated"));
        EXPECT_EQ(strrchar(dest, length - 1, 'x'), unterminated("strlastchar_s: dest is unterminated"));
        EXPECT_EQ(strpbrk(dest, length - 1, "x\0"s, 1), unterminated("strpbrk_s: dest is unterminated"));
        EXPECT_EQ(strstr(dest, length - 1, "x\0"s, 1), unterminated("strstr_s: dest is unterminated"));
    }
}

TEST_F(BoundedSearch, ForASetTellsAllCharactersApart) {
    for (unsigned wanted = 1; wanted < 256; ++wanted) {
        std::string others = ".";
        for (unsigned c = 1; c < 256; ++c) {
            if (c != wanted && c != '.') {
                others.push_back(static_cast<char>(c));
            }
        }
        if (wanted != '.') {
            const std::string hit(1, static_cast<char>(wanted));
            EXPECT_EQ(strpbrk("." + hit + '\0', 2, hit + '\0', 1), found(1));
            EXPECT_EQ(strpbrk(others + '\0', RSIZE_MAX, hit + '\0', 1), not_found());
            EXPECT_EQ(strpbrk(hit + others + '\0', RSIZE_MAX, others + '\0', 254), found(1));
        }
    }
}

// --- what is particular to one of them

TEST_F(BoundedSearch, FindsTheTerminatorFromTheFrontOnly) {
    EXPECT_EQ(strchar("abc\0"s, 10, '\0'), found(3));
    EXPECT_EQ(strrchar("abc\0"s, 10, '\0'), not_found());
    EXPECT_EQ(strchar("\0"s, 10, '\0'), found(0));
    EXPECT_EQ(strrchar("\0"s, 10, '\0'), not_found());
}

TEST_F(BoundedSearch, TakesATerminatorRightBehindTheBound) {
    EXPECT_EQ(strchar("abc\0"s, 3, '\0'), found(3));
    EXPECT_EQ(strchar("abc\0"s, 3, 'x'), not_found());
    EXPECT_EQ(strchar("abc\0"s, 2, 'x'), unterminated("strfirstchar_s: dest is unterminated"));
    EXPECT_EQ(strrchar("abc\0"s, 3, 'c'), found(2));
    EXPECT_EQ(strpbrk("abc\0"s, 3, "xyz\0"s, 3), not_found());
    EXPECT_EQ(strstr("abc\0"s, 3, "x\0"s, 1), not_found());
}

TEST_F(BoundedSearch, FindsTheLastOfEqualCharacters) {
    EXPECT_EQ(strrchar("abcabc\0"s, 7, 'b'), found(4));
    EXPECT_EQ(strrchar("abcabc\0"s, 7, 'x'), not_found());
}

TEST_F(BoundedSearch, KeepsTheLastCharacterSeenInAnUnterminatedText) {
    EXPECT_EQ(strrchar("abcabc\0"s, 4, 'b'), unterminated("strlastchar_s: dest is unterminated", 1));
    EXPECT_EQ(strrchar("abcabc\0"s, 5, 'b'), unterminated("strlastchar_s: dest is unterminated", 4));
    EXPECT_EQ(strrchar("abcabc\0"s, 5, 'x'), unterminated("strlastchar_s: dest is unterminated"));
}

TEST_F(BoundedSearch, FindsTheFirstOfASet) {
    EXPECT_EQ(strpbrk("hello\0"s, 6, "xyl\0"s, 3), found(2));
    EXPECT_EQ(strpbrk("hello\0"s, 6, "xyzl\0"s, 3), unterminated("strpbrk_s: src is unterminated"));
    EXPECT_EQ(strpbrk("hello\0"s, 6, "hxyzl\0"s, 3), found(0));
    EXPECT_EQ(strpbrk("hello\0"s, 6, "\0"s, 3), not_found());
    EXPECT_EQ(strpbrk("\0"s, 6, "xyzl\0"s, 3), not_found());
}

TEST_F(BoundedSearch, FindsATextInItselfAndNothingAnywhere) {
    const char text[] = "abc";
    const char *substring = nullptr;
    EXPECT_EQ(strstr_s_tmp(text, 1, text, 1, &substring), 0);  // although both bounds are too small
    EXPECT_EQ(substring, text);
    EXPECT_EQ(strstr("abc\0"s, 1, "\0"s, 1), found(0));
    EXPECT_EQ(strstr("\0"s, 1, "\0"s, 1), found(0));
    EXPECT_EQ(strstr("\0"s, 1, "a\0"s, 1), not_found());
    const char empty[] = "";
    EXPECT_EQ(strstr_s_tmp(empty, 1, empty, 1, &substring), 0);
    EXPECT_EQ(substring, empty);
}

TEST_F(BoundedSearch, ForATextCountsStartPositionsOnly) {
    EXPECT_EQ(strstr("abcdef\0"s, 2, "cd\0"s, 2), unterminated("strstr_s: dest is unterminated"));
    EXPECT_EQ(strstr("abcdef\0"s, 3, "cdef\0"s, 4), found(2));
    EXPECT_EQ(strstr("abcdef\0"s, 3, "cdefg\0"s, 5), not_found());
    EXPECT_EQ(strstr("abcdef\0"s, 3, "cdxx\0"s, 4), unterminated("strstr_s: dest is unterminated"));
    EXPECT_EQ(strstr("a\0"s, 1, "b\0"s, 1), not_found());
}

TEST_F(BoundedSearch, ForATextRefusesALongerOneOnlyWhereItMatches) {
    EXPECT_EQ(strstr("abcdef\0"s, 7, "cdef\0"s, 3), unterminated("strstr_s: src is unterminated"));
    EXPECT_EQ(strstr("abcdef\0"s, 7, "cdeX\0"s, 3), not_found());
    EXPECT_EQ(strstr("abcdef\0"s, 7, "cde\0"s, 3), found(2));
}

// --- how far memory is read: behind the last byte of each of these, it cannot be

TEST_F(BoundedSearch, ReadsNothingBehindWhatItFinds) {
    for (const rsize_t dmax : {rsize_t{3}, rsize_t{100}, RSIZE_MAX}) {
        EXPECT_EQ(strchar("abc", dmax, 'c'), found(2));
        EXPECT_EQ(strpbrk("abc", dmax, "xc\0"s, 2), found(2));
        EXPECT_EQ(strpbrk("abc", dmax, "xa", RSIZE_MAX), found(0));
        EXPECT_EQ(strstr("abc", dmax, "bc\0"s, RSIZE_MAX), found(1));
        EXPECT_EQ(strstr("abc", dmax, "abc\0"s, 3), found(0));
    }
    EXPECT_EQ(strpbrk("\0"s, 5, "", 5), not_found());
}

TEST_F(BoundedSearch, ReadsOneCharacterBehindTheBoundAtMost) {
    EXPECT_EQ(strchar("abcd", 3, 'x'), unterminated("strfirstchar_s: dest is unterminated"));
    EXPECT_EQ(strrchar("abcd", 3, 'x'), unterminated("strlastchar_s: dest is unterminated"));
    EXPECT_EQ(strpbrk("abcd", 3, "x\0"s, 1), unterminated("strpbrk_s: dest is unterminated"));
    EXPECT_EQ(strpbrk("abcd", 3, "xyz!", 3), unterminated("strpbrk_s: src is unterminated"));
    EXPECT_EQ(strstr("abcd", 3, "xyz\0"s, 3), unterminated("strstr_s: dest is unterminated"));
    EXPECT_EQ(strstr("abcd\0"s, 5, "abcd", 3), unterminated("strstr_s: src is unterminated"));
    EXPECT_EQ(strstr("abcd\0"s, 5, "x", 3), not_found());
}

TEST_F(BoundedSearch, ReadsNothingWhereArgumentsAreRefused) {
    const char *out = nullptr;
    EXPECT_EQ(strchar_s_tmp(dest_memory.end(), 0, 'x', &out), 401);
    EXPECT_EQ(strrchar_s_tmp(dest_memory.end(), above, 'x', &out), 403);
    EXPECT_EQ(strpbrk_s_tmp(dest_memory.end(), 1, src_memory.end(), 0, &out), 401);
    EXPECT_EQ(strstr_s_tmp(dest_memory.end(), 1, src_memory.end(), above, &out), 403);
}

}  // namespace
