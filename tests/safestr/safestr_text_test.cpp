// Copying and appending text: every small size against a plain model, the ends of memory, and the largest bounds.
#include <gtest/gtest.h>

#include <algorithm>
#include <ostream>
#include <string>
#include <vector>

#include "fenced_memory.h"
#include "safestr/safestr.h"
#include "violation_recorder.h"

namespace {

using namespace std::string_literals;

// One of the four functions, under the arguments of the one that has most.
struct text_function {
    const char *name;
    bool appends;
    bool takes_slen;
    errno_t (*call)(char *dest, rsize_t dmax, const char *src, rsize_t slen);
};

const text_function functions[] = {
    {"strcpy_s", false, false,
     [](char *dest, rsize_t dmax, const char *src, rsize_t) { return strcpy_s(dest, dmax, src); }},
    {"strncpy_s", false, true, strncpy_s},
    {"strcat_s", true, false,
     [](char *dest, rsize_t dmax, const char *src, rsize_t) { return strcat_s(dest, dmax, src); }},
    {"strncat_s", true, true, strncat_s},
};

struct outcome {
    errno_t result;
    std::string dest;
    std::vector<violation> violations;

    bool operator==(const outcome &) const = default;
    friend std::ostream &operator<<(std::ostream &out, const outcome &o) {
        out << o.result << " [";
        for (const char c : o.dest) {
            out << (c != '\0' ? c : '0');
        }
        return out << "] " << testing::PrintToString(o.violations);
    }
};

std::string until_terminator(const std::string &bytes) {
    return bytes.substr(0, bytes.find('\0'));
}

outcome violated(const text_function &function, std::string dest, errno_t code, const char *reason) {
    if (!dest.empty()) {
        dest[0] = '\0';
    }
    return {code, dest, {{function.name + ": "s + reason, code, nullptr}}};
}

// What the function does, said plainly. `dest` holds all dmax bytes, `src` may lack its terminator.
outcome expected(const text_function &function, const std::string &dest, const std::string &src, rsize_t slen) {
    if (dest.empty()) {
        return violated(function, dest, 401, "dmax is 0");
    }
    const std::string old = function.appends ? until_terminator(dest) : "";
    if (old.size() == dest.size()) {
        return violated(function, dest, 407, "dest is unterminated");
    }
    const std::string whole = old + until_terminator(src).substr(0, slen) + '\0';
    if (whole.size() > dest.size()) {
        return violated(function, dest, 406, "not enough space for src");
    }
    return {0, whole + dest.substr(whole.size()), {}};
}

class SafestrText : public testing::TestWithParam<text_function> {
  protected:
    outcome run(const std::string &dest, const std::string &src, rsize_t slen) {
        char *const to = dest_memory.lay(dest);
        const char *const from = src_memory.lay(src);
        const errno_t result = GetParam().call(to, dest.size(), from, slen);
        EXPECT_TRUE(dest_memory.intact_before());
        EXPECT_TRUE(src_memory.intact_before());
        EXPECT_EQ(src_memory.bytes(), src);
        return {result, dest_memory.bytes(), violation_recorder::take()};
    }

    static std::vector<rsize_t> slens() {
        std::vector<rsize_t> list = {RSIZE_MAX};
        for (rsize_t slen = 0; GetParam().takes_slen && slen <= 14; ++slen) {
            list.push_back(slen);
        }
        return list;
    }

    violation_recorder recorder;
    fenced_memory dest_memory;
    fenced_memory src_memory;
};

INSTANTIATE_TEST_SUITE_P(All, SafestrText, testing::ValuesIn(functions),
                         [](const auto &function) { return std::string(function.param.name); });

std::string letters(char first, std::size_t count) {
    std::string text;
    for (std::size_t i = 0; i < count; ++i) {
        text.push_back(static_cast<char>(first + static_cast<char>(i)));
    }
    return text;
}

// dest is a text of `old` characters in dmax bytes; unterminated when they are as many.
std::string dest_of(std::size_t old, std::size_t dmax) {
    std::string dest = letters('A', old);
    if (old < dmax) {
        dest += '\0' + letters('p', dmax - old - 1);
    }
    return dest;
}

TEST_P(SafestrText, DoesAsTheModelForEverySmallSize) {
    for (std::size_t dmax = 0; dmax <= 14; ++dmax) {
        for (std::size_t old = 0; old <= std::min<std::size_t>(dmax, 12); ++old) {
            const std::string dest = dest_of(old, dmax);
            for (std::size_t length = 0; length <= 12; ++length) {
                for (const rsize_t slen : slens()) {
                    const std::string src = letters('a', length) + '\0';
                    ASSERT_EQ(run(dest, src, slen), expected(GetParam(), dest, src, slen))
                        << "dmax " << dmax << " old " << old << " src " << length << " slen " << slen;
                }
            }
        }
    }
}

// The source ends with the last character that may be looked at, and so does readable memory.
TEST_P(SafestrText, ReadsNoMoreOfAnUnterminatedSourceThanFits) {
    for (std::size_t dmax = 1; dmax <= 14; ++dmax) {
        for (std::size_t old = 0; old < dmax; ++old) {
            const std::string dest = dest_of(old, dmax);
            for (const rsize_t slen : slens()) {
                const std::size_t room = dmax - (GetParam().appends ? old : 0);
                const std::string src = letters('a', std::min<std::size_t>(room, slen));
                ASSERT_EQ(run(dest, src, slen), expected(GetParam(), dest, src, slen))
                    << "dmax " << dmax << " old " << old << " slen " << slen;
            }
        }
    }
}

TEST_P(SafestrText, CopiesLongTextsThatFitExactly) {
    for (const std::size_t length : {15U, 16U, 17U, 31U, 32U, 33U, 63U, 64U, 65U, 127U, 255U, 1000U, 4095U}) {
        const std::string src = std::string(length, 'x') + '\0';
        const std::string fits(length + 1, '\0');
        std::string too_small(length, '#');
        too_small[0] = '\0';
        EXPECT_EQ(run(fits, src, length), expected(GetParam(), fits, src, length));
        EXPECT_EQ(run(fits, src, RSIZE_MAX), expected(GetParam(), fits, src, RSIZE_MAX));
        EXPECT_EQ(run(too_small, src, RSIZE_MAX), expected(GetParam(), too_small, src, RSIZE_MAX));
    }
}

TEST_P(SafestrText, TakesTheLargestBounds) {
    for (const rsize_t slen : {rsize_t{3}, rsize_t{4}, RSIZE_MAX - 1, RSIZE_MAX}) {
        for (const rsize_t dmax : {RSIZE_MAX - 1, RSIZE_MAX}) {
            char *const dest = dest_memory.lay("\0......"s);
            const char *const src = src_memory.lay("abc\0"s);
            EXPECT_EQ(GetParam().call(dest, dmax, src, slen), 0);
            EXPECT_EQ(dest_memory.bytes(), "abc\0..."s);
        }
    }
    EXPECT_TRUE(violation_recorder::take().empty());
}

TEST_P(SafestrText, TakesNeighboursUnderTheLargestBoundsForSeparate) {
    char *const block = dest_memory.lay("abc\0\0..."s);
    EXPECT_EQ(GetParam().call(block + 4, RSIZE_MAX, block, RSIZE_MAX), 0);
    EXPECT_EQ(dest_memory.bytes(), "abc\0abc\0"s);
    char *const reverse = dest_memory.lay("\0...abc\0"s);
    EXPECT_EQ(GetParam().call(reverse, RSIZE_MAX, reverse + 4, RSIZE_MAX), 0);
    EXPECT_EQ(dest_memory.bytes(), "abc\0abc\0"s);
    EXPECT_TRUE(violation_recorder::take().empty());
}

TEST_P(SafestrText, CarriesEveryByte) {
    std::string all;
    for (int c = 1; c < 256; ++c) {
        all.push_back(static_cast<char>(c));
    }
    EXPECT_EQ(run(std::string(256, '\0'), all + '\0', 255), (outcome{0, all + '\0', {}}));
}

TEST(SafestrTextLength, OfNothingIsLegal) {
    fenced_memory memory;
    char *const dest = memory.lay("old\0"s);
    EXPECT_EQ(strncpy_s(dest, 4, memory.end(), 0), 0);  // nothing of src is read: there is nothing to read
    EXPECT_EQ(memory.bytes(), "\0ld\0"s);
    char *const text = memory.lay("old\0"s);
    EXPECT_EQ(strncat_s(text, 4, memory.end(), 0), 0);
    EXPECT_EQ(memory.bytes(), "old\0"s);
}

}  // namespace
