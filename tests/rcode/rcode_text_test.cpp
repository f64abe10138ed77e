// The texts of result codes.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "rcode/rcode.h"
#include "safestr/safestr.h"

extern "C" const char *text_seen_by_c(rcode code);

namespace {

struct code_and_text {
    uint32_t code;
    const char *text;
};

const code_and_text texts[] = {
    {0, "Success"},
    {0xAAF29E00, "Debug flag could not be destroyed"},
    {0xAAF2A000, "Invalid argument"},
    {0xAAF2A200, "Debug flag or trace file could not be set up"},
    {0xAAF2A400, "Out of memory"},
    {0xAAF2A600, "Invalid request: message id or session is missing or unknown"},
    {0xAAF2A800, "The back end could not carry out the request"},
    {0xAAF2AA00, "The request holds an unacceptable value"},
    {0xAAF2BC00, "The request holds an unacceptable value"},
    {0xAAF2B000, "Not enough resources to carry out the request"},
    {0xAAF2BE00, "The operation is not supported"},
    {SAFE_STR_NOT_FOUND, "Not found"},
    {SAFE_STR_NULL_POINTER, "Null pointer in place of a text or buffer"},
    {SAFE_STR_ZERO_LENGTH, "Length is zero"},
    {SAFE_STR_ABOVE_MAX, "Length exceeds the maximum"},
    {SAFE_STR_OVERLAP, "Source and destination overlap"},
    {SAFE_STR_NO_SPACE, "Not enough space in the destination"},
    {SAFE_STR_UNTERMINATED, "Text is not terminated within its bound"},
};

std::string text_of(uint32_t bits) {
    return rcode_strerror(static_cast<rcode>(bits));
}

std::string unknown_text_of(uint32_t bits) {
    char text[64];
    EXPECT_LT(std::snprintf(text, sizeof text, "Unknown result code 0x%08X", bits), static_cast<int>(sizeof text));
    return text;
}

bool is_own(uint32_t code) {
    return std::any_of(std::begin(texts), std::end(texts),
                       [code](const code_and_text &known) { return known.code == code; });
}

TEST(RcodeText, NamesTheCodesOfTheFrameworkAndTheBoundedStrings) {
    for (const code_and_text &known : texts) {
        EXPECT_EQ(text_of(known.code), known.text) << std::hex << known.code;
    }
}

TEST(RcodeText, NamesTheSystemsErrorNumbersAsTheCLibraryDoes) {
    EXPECT_EQ(text_of(EINVAL), "Invalid argument");
    EXPECT_EQ(text_of(ENOMEM), "Cannot allocate memory");
    EXPECT_EQ(text_of(ENOENT), "No such file or directory");
    EXPECT_EQ(text_of(EPERM), "Operation not permitted");
    EXPECT_EQ(text_of(EHWPOISON), "Memory page has hardware error");
    for (int number = 1; number <= EHWPOISON; ++number) {
        const char *const expected = strerrordesc_np(number);
        if (expected != nullptr && number != SAFE_STR_NOT_FOUND) {
            EXPECT_EQ(text_of(static_cast<uint32_t>(number)), expected);
        }
    }
}

TEST(RcodeText, CallsThreeNotFoundAlthoughItIsAnErrorNumberToo) {
    ASSERT_EQ(ESRCH, 3);
    EXPECT_EQ(text_of(ESRCH), "Not found");
}

TEST(RcodeText, ShowsTheValueOfAnyOtherCode) {
    EXPECT_EQ(text_of(0xDEADBEEF), "Unknown result code 0xDEADBEEF");
    EXPECT_EQ(text_of(0xFFFFFFFF), "Unknown result code 0xFFFFFFFF");
    EXPECT_EQ(text_of(0x80000000), "Unknown result code 0x80000000");
    EXPECT_EQ(text_of(0x7FFFFFFF), "Unknown result code 0x7FFFFFFF");
    EXPECT_EQ(text_of(0x01234567), "Unknown result code 0x01234567");
    EXPECT_EQ(text_of(0x89ABCDEF), "Unknown result code 0x89ABCDEF");
    for (const uint32_t code : {41U, 58U, 134U, 399U, 402U, 405U, 408U, 65536U}) {
        EXPECT_EQ(text_of(code), unknown_text_of(code));
    }
}

TEST(RcodeText, TakesNoNeighbourForAKnownCode) {
    for (const code_and_text &known : texts) {
        for (const uint32_t neighbour : {known.code - 1, known.code + 1, known.code ^ 0x80000000U}) {
            if (neighbour >= 1024 && !is_own(neighbour)) {
                EXPECT_EQ(text_of(neighbour), unknown_text_of(neighbour));
            }
        }
    }
}

TEST(RcodeText, IsShortPrintableText) {
    std::vector<uint32_t> codes;
    for (const code_and_text &known : texts) {
        codes.push_back(known.code);
    }
    for (uint32_t code = 0; code < 1024; ++code) {
        codes.push_back(code);
        codes.push_back(0U - code);
    }
    for (const uint32_t code : codes) {
        const std::string text = text_of(code);
        EXPECT_LT(text.size(), 100U) << code;
        ASSERT_FALSE(text.empty()) << code;
        for (const char c : text) {
            EXPECT_TRUE(c >= ' ' && c <= '~') << text;
        }
        EXPECT_NE(text.back(), '.') << text;
    }
}

TEST(RcodeText, IsConstantForAKnownCode) {
    for (const code_and_text &known : texts) {
        EXPECT_EQ(rcode_strerror(static_cast<rcode>(known.code)), rcode_strerror(static_cast<rcode>(known.code)));
    }
    EXPECT_EQ(rcode_strerror(EINVAL), rcode_strerror(EINVAL));
}

TEST(RcodeText, KeepsTheFourMostRecentUnknownCodesOfAThread) {
    const char *const first = rcode_strerror(-1);
    const char *const second = rcode_strerror(-2);
    const char *const third = rcode_strerror(-3);
    const char *const fourth = rcode_strerror(-4);
    static_cast<void>(rcode_strerror(0));
    static_cast<void>(rcode_strerror(EINVAL));
    EXPECT_STREQ(first, "Unknown result code 0xFFFFFFFF");
    EXPECT_STREQ(second, "Unknown result code 0xFFFFFFFE");
    EXPECT_STREQ(third, "Unknown result code 0xFFFFFFFD");
    EXPECT_STREQ(fourth, "Unknown result code 0xFFFFFFFC");
    EXPECT_EQ((std::set<const char *>{first, second, third, fourth}).size(), 4U);
}

TEST(RcodeText, LeavesErrnoAlone) {
    for (const rcode code : {0, -1, EINVAL, 3, 400, INT_MAX, INT_MIN}) {
        errno = EXDEV;
        EXPECT_NE(rcode_strerror(code), nullptr);
        EXPECT_EQ(errno, EXDEV);
    }
}

TEST(RcodeText, IsTheSameForC) {
    EXPECT_STREQ(text_seen_by_c(0), "Success");
}

}  // namespace
