// Length, comparison and search: every small case against a plain model, and the ends of memory.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "fenced_memory.h"
#include "safestr/safestr.h"
#include "violation_recorder.h"

namespace {

using namespace std::string_literals;

int sign(int number) {
    return (number > 0 ? 1 : 0) - (number < 0 ? 1 : 0);
}

// All texts of up to `longest` characters of 'a', 'b' and 0xE9.
std::vector<std::string> all_texts(std::size_t longest) {
    std::vector<std::string> texts = {""};
    for (std::size_t i = 0; i < texts.size(); ++i) {
        if (texts[i].size() < longest) {
            for (const char c : {'a', 'b', '\xE9'}) {
                texts.push_back(texts[i] + c);
            }
        }
    }
    return texts;
}

class SafestrSearch : public testing::Test {
  protected:
    void TearDown() override { EXPECT_TRUE(violation_recorder::take().empty()); }

    violation_recorder recorder;
    fenced_memory dest_memory;
    fenced_memory src_memory;
};

TEST_F(SafestrSearch, LengthIsBounded) {
    for (std::size_t length = 0; length <= 70; ++length) {
        const char *const terminated = dest_memory.lay(std::string(length, 'x') + '\0');
        for (std::size_t smax = 0; smax <= 75; ++smax) {
            ASSERT_EQ(strnlen_s(terminated, smax), std::min(length, smax));
        }
        ASSERT_EQ(strnlen_s(terminated, RSIZE_MAX), length);
        const char *const unterminated = dest_memory.lay(std::string(length, 'x'));
        for (std::size_t smax = 0; smax <= length; ++smax) {
            ASSERT_EQ(strnlen_s(unterminated, smax), smax);
        }
    }
}

TEST_F(SafestrSearch, LengthOfNullIsZeroAndNoViolation) {
    EXPECT_EQ(strnlen_s(nullptr, 0), 0U);
    EXPECT_EQ(strnlen_s(nullptr, 10), 0U);
    EXPECT_EQ(strnlen_s(nullptr, RSIZE_MAX + 1), 0U);
}

TEST_F(SafestrSearch, ComparesEverySmallTextAsUnsignedBytes) {
    const std::vector<std::string> texts = all_texts(4);
    for (const std::string &a : texts) {
        const char *const dest = dest_memory.lay(a + '\0');
        for (const std::string &b : texts) {
            const char *const src = src_memory.lay(b + '\0');
            for (const rsize_t dmax : {rsize_t{1}, rsize_t{2}, rsize_t{3}, rsize_t{4}, rsize_t{5}, RSIZE_MAX}) {
                int indicator = 77;
                ASSERT_EQ(strcmp_s(dest, dmax, src, &indicator), 0);
                // std::string compares as unsigned bytes
                ASSERT_EQ(sign(indicator), sign(a.substr(0, dmax).compare(b.substr(0, dmax))))
                    << a << ' ' << b << ' ' << dmax;
            }
        }
    }
}

TEST_F(SafestrSearch, ComparesNoMoreThanTheBound) {
    int indicator = 77;
    EXPECT_EQ(strcmp_s(dest_memory.lay("abcd"), 4, src_memory.lay("abcd"), &indicator), 0);
    EXPECT_EQ(indicator, 0);
    EXPECT_EQ(strcmp_s(dest_memory.lay("abcd"), 4, src_memory.lay("abcdef\0"s), &indicator), 0);
    EXPECT_EQ(indicator, 0);
    EXPECT_EQ(strcmp_s(dest_memory.lay("abcd"), 4, src_memory.lay("abc\0"s), &indicator), 0);
    EXPECT_GT(indicator, 0);
    EXPECT_EQ(strcmp_s(dest_memory.lay("abc"), RSIZE_MAX, src_memory.lay("abd"), &indicator), 0);
    EXPECT_LT(indicator, 0);
}

TEST_F(SafestrSearch, FindsTheFirstCharacterOfEverySmallText) {
    for (const std::string &text : all_texts(5)) {
        const std::string bytes = text + '\0';
        char *const dest = dest_memory.lay(bytes);
        for (const rsize_t dmax :
             {bytes.size(), bytes.size() + 1, bytes.size() + 100, static_cast<std::size_t>(RSIZE_MAX)}) {
            for (const char c : {'a', 'b', '\xE9', 'x', '\0'}) {
                char *first = dest_memory.end();
                const std::size_t position = bytes.find(c);
                const bool found = position != std::string::npos;
                ASSERT_EQ(strfirstchar_s(dest, dmax, c, &first), found ? 0 : 3);
                ASSERT_EQ(first, found ? dest + position : nullptr);
            }
        }
    }
}

TEST_F(SafestrSearch, FindsACharacterInATextWithoutEnd) {
    char *const dest = dest_memory.lay("abcabc");
    char *first = nullptr;
    EXPECT_EQ(strfirstchar_s(dest, 6, 'c', &first), 0);
    EXPECT_EQ(first, dest + 2);
    EXPECT_EQ(strfirstchar_s(dest + 3, 3, 'c', &first), 0);
    EXPECT_EQ(first, dest + 5);
}

// What is behind the match need not be there, however far the bound goes.
TEST_F(SafestrSearch, ReadsNothingBehindTheFirstCharacterThatMatches) {
    fenced_memory memory(4);
    for (const std::size_t before : {0U, 1U, 15U, 31U, 32U, 33U, 95U, 96U, 97U, 4095U, 4096U, 4097U, 9000U}) {
        for (const char c : {'c', '\xE9', '\0'}) {
            char *const dest = memory.lay(std::string(before, 'x') + c);
            for (const rsize_t dmax :
                 {static_cast<rsize_t>(before + 1), static_cast<rsize_t>(before + 5000), RSIZE_MAX}) {
                char *first = nullptr;
                ASSERT_EQ(strfirstchar_s(dest, dmax, c, &first), 0);
                ASSERT_EQ(first, dest + before);
            }
        }
    }
}

TEST_F(SafestrSearch, ReadsNothingBehindTheBound) {
    fenced_memory memory(4);
    for (const std::size_t length : {1U, 31U, 32U, 33U, 95U, 96U, 97U, 4095U, 4096U, 4097U, 9000U}) {
        char *const dest = memory.lay(std::string(length, 'x'));
        for (const char c : {'c', '\0'}) {
            char *first = dest;
            ASSERT_EQ(strfirstchar_s(dest, length, c, &first), 407);
            ASSERT_EQ(first, nullptr);
            EXPECT_EQ(violation_recorder::take(),
                      (std::vector<violation>{{"strfirstchar_s: dest is unterminated", 407}}));
        }
    }
}

// Wherever the text lies in its page, and wherever the character in the text.
TEST_F(SafestrSearch, FindsACharacterAtEveryPlace) {
    fenced_memory memory(3);
    for (std::size_t length = 1; length <= 300; ++length) {
        char *const dest = memory.lay(std::string(length, 'x') + '\0' + std::string(4000, 'c'));
        char *first = dest;
        ASSERT_EQ(strfirstchar_s(dest, RSIZE_MAX, 'c', &first), 3);
        ASSERT_EQ(first, nullptr);
        for (std::size_t position = 0; position < length; ++position) {
            dest[position] = 'c';
            ASSERT_EQ(strfirstchar_s(dest, RSIZE_MAX, 'c', &first), 0);
            ASSERT_EQ(first, dest + position);
            ASSERT_EQ(strfirstchar_s(dest, position + 1, 'c', &first), 0);
            ASSERT_EQ(first, dest + position);
            for (std::size_t bound = position; bound != 0; bound /= 2) {
                ASSERT_EQ(strfirstchar_s(dest, bound, 'c', &first), 407);
                ASSERT_EQ(first, nullptr);
            }
            dest[position] = 'x';
        }
    }
    violation_recorder::take();
}

TEST_F(SafestrSearch, FindsACharacterFarAway) {
    std::string text(5 << 20, 'a');
    for (const std::size_t place : {text.size() - 1, text.size() / 2, std::size_t{100'000}}) {
        text[place] = 'b';
        char *first = nullptr;
        EXPECT_EQ(strfirstchar_s(text.data(), RSIZE_MAX, 'b', &first), 0);
        EXPECT_EQ(first, text.data() + place);
        EXPECT_EQ(strfirstchar_s(text.data(), RSIZE_MAX, 'c', &first), SAFE_STR_NOT_FOUND);
    }
}

TEST_F(SafestrSearch, FindsNothingBehindTheTerminator) {
    char *const dest = dest_memory.lay("ab\0c\0"s);
    char *first = dest;
    EXPECT_EQ(strfirstchar_s(dest, 5, 'c', &first), 3);
    EXPECT_EQ(first, nullptr);
}

}  // namespace
