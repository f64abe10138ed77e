// Changes of texts in place: characters replaced, white space cut off, cases mapped.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "../safestr/fenced_memory.h"
#include "frame_fixture.h"
#include "nyx_api_common.h"

namespace {

// Whether the functions below know the letters beyond ASCII that have one byte in some locales.
bool latin_1 = false;

bool is_between(int c, int first, int last) {
    return c >= first && c <= last;
}

}  // namespace

// The program's own tolower(), toupper() and isspace(): the library calls them in place of the C library's, of which no
// locale with one-byte letters beyond ASCII may be installed. They have other names here, as <cctype> may have defined
// them.
extern "C" int lower_of(int c) __asm__("tolower");
extern "C" int lower_of(int c) {
    return is_between(c, 'A', 'Z') || (latin_1 && is_between(c, 0xC0, 0xDE) && c != 0xD7) ? c + 32 : c;
}
extern "C" int upper_of(int c) __asm__("toupper");
extern "C" int upper_of(int c) {
    return is_between(c, 'a', 'z') || (latin_1 && is_between(c, 0xE0, 0xFE) && c != 0xF7) ? c - 32 : c;
}
extern "C" int is_white(int c) __asm__("isspace");
extern "C" int is_white(int c) {
    return c == ' ' || is_between(c, '\t', '\r') || (latin_1 && c == 0xA0) ? 1 : 0;
}

namespace {

using namespace std::string_literals;

using nyx_test::called;
using nyx_test::calls_of;
using nyx_test::recorder;
using testing::IsEmpty;

constexpr std::uint64_t max_length = 0x7FFFFFFFFFFFFFFF;
const std::string white_space = " \t\n\v\f\r";

std::string random_text(std::mt19937 &random, const std::string &alphabet, std::size_t longest) {
    std::string text(random() % (longest + 1), '\0');
    std::generate(text.begin(), text.end(), [&] { return alphabet[random() % alphabet.size()]; });
    return text;
}

// Texts in memory behind which there is none.
class StringEdit : public nyx_test::frame_test {
  protected:
    char *lay(const std::string &text) { return memory_.lay(text + '\0'); }

    // What a function makes of a text, which it has to succeed with.
    std::string edited(int (*edit)(char *), const std::string &text) {
        char *const at = lay(text);
        EXPECT_EQ(edit(at), 0);
        EXPECT_TRUE(memory_.intact_before());
        return at;
    }
    std::string edited(char *(*edit)(char *), const std::string &text) {
        char *const at = lay(text);
        EXPECT_EQ(edit(at), at);
        EXPECT_TRUE(memory_.intact_before());
        return at;
    }
    std::string with_replaced(const std::string &text, char from, char to) {
        char *const at = lay(text);
        EXPECT_EQ(chr_replace(at, from, to), 0);
        EXPECT_TRUE(memory_.intact_before());
        return at;
    }

    fenced_memory memory_{2};
};

using CharacterReplacement = StringEdit;

TEST_F(CharacterReplacement, IsMadeEverywhere) {
    EXPECT_EQ(with_replaced("a.b.c", '.', '/'), "a/b/c");
    EXPECT_EQ(with_replaced("..a..", '.', '/'), "//a//");
    EXPECT_EQ(with_replaced("....", '.', '/'), "////");
    EXPECT_EQ(with_replaced("abc", '.', '/'), "abc");
    EXPECT_EQ(with_replaced("", '.', '/'), "");
    EXPECT_EQ(with_replaced("\xE9\x7F\xE9", '\xE9', '\x80'), "\x80\x7F\x80");
    EXPECT_EQ(with_replaced("a.b", '.', '.'), "a.b");
}

TEST_F(CharacterReplacement, AsksForEachOccurrenceBehindTheLast) {
    char *const text = lay("a.b.c");
    EXPECT_EQ(chr_replace(text, '.', '/'), 0);
    const std::vector<nyx_test::call> asked = recorder().calls("strfirstchar_s");
    ASSERT_THAT(asked, testing::SizeIs(3));
    const char *const places[] = {text, text + 2, text + 4};
    for (std::size_t i = 0; i < asked.size(); ++i) {
        EXPECT_EQ(asked[i].arguments[0].bits, reinterpret_cast<std::uintptr_t>(places[i]));
        EXPECT_EQ(asked[i].arguments[1].bits, max_length);
        EXPECT_EQ(asked[i].arguments[2].bits, static_cast<std::uint64_t>('.'));
    }
}

TEST_F(CharacterReplacement, OfNullIsDone) {
    EXPECT_EQ(chr_replace(nullptr, 'a', 'b'), 0);
    EXPECT_THAT(recorder().calls(), IsEmpty());
}

TEST_F(CharacterReplacement, OfTheTerminatorChangesNothing) {
    char *const text = memory_.lay("abc\0def\0"s);
    EXPECT_EQ(chr_replace(text, '\0', 'x'), 0);
    EXPECT_EQ(memory_.bytes(), "abc\0def\0"s);
    EXPECT_THAT(recorder().calls(), IsEmpty());
}

TEST_F(CharacterReplacement, ByTheTerminatorGoesOnBehindIt) {
    char *const text = lay("a.b.c");
    EXPECT_EQ(chr_replace(text, '.', '\0'), 0);
    EXPECT_EQ(memory_.bytes(), "a\0b\0c\0"s);
}

TEST_F(CharacterReplacement, EndsWithTheCodeOfTheSearch) {
    for (const std::uint64_t nth : {1U, 2U, 3U}) {
        for (const int code : {400, 407, -1}) {
            char *const text = lay("a.b.c");
            recorder().fail("strfirstchar_s", nth, code);
            EXPECT_EQ(chr_replace(text, '.', '/'), code);
            recorder().fail_nothing();
            EXPECT_EQ(text, "a.b.c"s.replace(1, 1, nth > 1 ? "/" : ".").replace(3, 1, nth > 2 ? "/" : "."));
        }
    }
    recorder().fail("strfirstchar_s", 2, 3);
    EXPECT_EQ(with_replaced("a.b.c", '.', '/'), "a/b.c");
}

TEST_F(CharacterReplacement, IsTheSameAsInAPlainReference) {
    std::mt19937 random(1);
    for (int round = 0; round < 3000; ++round) {
        const std::string text = random_text(random, "ab.\xE9", 150);
        for (const char from : {'a', '.', '\xE9', 'x'}) {
            std::string expected = text;
            std::replace(expected.begin(), expected.end(), from, '-');
            ASSERT_EQ(with_replaced(text, from, '-'), expected);
        }
    }
}

using Trimming = StringEdit;

TEST_F(Trimming, TakesEveryKindOfWhiteSpace) {
    for (int code = 1; code < 256; ++code) {
        const std::string c(1, static_cast<char>(code));
        std::string text = c;
        text.append("x").append(c);
        const bool space = white_space.find(c) != std::string::npos;
        EXPECT_EQ(edited(str_ltrim, text), space ? "x" + c : text) << code;
        EXPECT_EQ(edited(str_rtrim, text), space ? c + "x" : text) << code;
        EXPECT_EQ(edited(str_trim, text), space ? "x" : text) << code;
    }
}

TEST_F(Trimming, KeepsWhiteSpaceWithin) {
    EXPECT_EQ(edited(str_ltrim, " \ta b \n"), "a b \n");
    EXPECT_EQ(edited(str_rtrim, " \ta b \n"), " \ta b");
    EXPECT_EQ(edited(str_trim, " \ta b \n"), "a b");
}

TEST_F(Trimming, LeavesNothingOfWhiteSpaceAlone) {
    EXPECT_EQ(edited(str_ltrim, "   "), "");
    EXPECT_EQ(edited(str_rtrim, "   "), "");
    EXPECT_EQ(edited(str_trim, "   "), "");
    EXPECT_EQ(edited(str_trim, white_space), "");
}

TEST_F(Trimming, LeavesTextsWithoutWhiteSpaceAsTheyAre) {
    EXPECT_EQ(edited(str_ltrim, "abc "), "abc ");
    EXPECT_EQ(edited(str_rtrim, " abc"), " abc");
    EXPECT_EQ(edited(str_trim, "abc"), "abc");
    EXPECT_THAT(recorder().calls("memmove_s"), IsEmpty());
}

TEST_F(Trimming, DoesNothingForNullAndEmptyTexts) {
    const char *const read_only = "";
    EXPECT_EQ(str_ltrim(nullptr), 0);
    EXPECT_EQ(str_trim(nullptr), 0);
    EXPECT_EQ(str_rtrim(nullptr), nullptr);
    EXPECT_EQ(str_ltrim(const_cast<char *>(read_only)), 0);
    EXPECT_EQ(str_trim(const_cast<char *>(read_only)), 0);
    EXPECT_EQ(str_rtrim(const_cast<char *>(read_only)), read_only);
    EXPECT_THAT(recorder().calls("memmove_s"), IsEmpty());
}

TEST_F(Trimming, MovesTheRestWithItsTerminator) {
    char *const text = lay("  abc");
    EXPECT_EQ(str_ltrim(text), 0);
    EXPECT_EQ(recorder().calls("memmove_s"),
              calls_of(called("memmove_s", static_cast<void *>(text), 6, static_cast<void *>(text + 2), 4)));
    EXPECT_EQ(memory_.bytes().substr(0, 4), "abc\0"s);
}

TEST_F(Trimming, EndsWithTheCodeOfTheMove) {
    for (const int code : {406, 404, -1}) {
        char *const text = lay("  abc  ");
        recorder().fail_all("memmove_s", code);
        EXPECT_EQ(str_ltrim(text), code);
        EXPECT_STREQ(text, "  abc  ");
        EXPECT_EQ(str_trim(text), code);
        EXPECT_STREQ(text, "  abc  ") << "the end is cut only behind a start that was";
        recorder().fail_nothing();
    }
}

TEST_F(Trimming, IsTheSameAsInAPlainReference) {
    std::mt19937 random(2);
    for (int round = 0; round < 5000; ++round) {
        const std::string text = random_text(random, " \tab\n\xE9\xA0", 12);
        const std::size_t first = std::min(text.find_first_not_of(white_space), text.size());
        const std::size_t end = text.find_last_not_of(white_space) + 1;
        ASSERT_EQ(edited(str_ltrim, text), text.substr(first));
        ASSERT_EQ(edited(str_rtrim, text), text.substr(0, end));
        ASSERT_EQ(edited(str_trim, text), first < end ? text.substr(first, end - first) : "");
    }
}

TEST_F(Trimming, MeasuresByThePlatform) {
    edited(str_rtrim, "a ");
    EXPECT_EQ(recorder().functions(), std::vector<std::string>{"strnlen_s"});
    recorder().forget();
    edited(str_ltrim, " a");
    EXPECT_EQ(recorder().functions(), (std::vector<std::string>{"strnlen_s", "memmove_s"}));
}

TEST_F(Trimming, FollowsTheLocale) {
    EXPECT_EQ(edited(str_trim, "\xA0t\xA0"), "\xA0t\xA0");
    latin_1 = true;
    EXPECT_EQ(edited(str_trim, "\xA0t\xA0"), "t");
    latin_1 = false;
}

class CaseMapping : public StringEdit {
  protected:
    void TearDown() override {
        latin_1 = false;
        StringEdit::TearDown();
    }
};

TEST_F(CaseMapping, MapsLetters) {
    EXPECT_EQ(edited(str_to_lower, "Mixed CASE, 1 text_[]{}@`"), "mixed case, 1 text_[]{}@`");
    EXPECT_EQ(edited(str_to_upper, "Mixed CASE, 1 text_[]{}@`"), "MIXED CASE, 1 TEXT_[]{}@`");
}

TEST_F(CaseMapping, LeavesEveryOtherByteAlone) {
    for (int code = 1; code < 256; ++code) {
        const char c = static_cast<char>(code);
        const bool upper = c >= 'A' && c <= 'Z';
        const bool lower = c >= 'a' && c <= 'z';
        EXPECT_EQ(edited(str_to_lower, std::string(2, c)), std::string(2, static_cast<char>(upper ? c + 32 : c)));
        EXPECT_EQ(edited(str_to_upper, std::string(2, c)), std::string(2, static_cast<char>(lower ? c - 32 : c)));
    }
}

TEST_F(CaseMapping, DoesNothingForNullAndEmptyTexts) {
    const char *const read_only = "";
    EXPECT_EQ(str_to_lower(nullptr), nullptr);
    EXPECT_EQ(str_to_upper(nullptr), nullptr);
    EXPECT_EQ(str_to_lower(const_cast<char *>(read_only)), read_only);
    EXPECT_EQ(str_to_upper(const_cast<char *>(read_only)), read_only);
}

TEST_F(CaseMapping, FollowsTheLocale) {
    EXPECT_EQ(edited(str_to_lower, "\xC9t\xC9"), "\xC9t\xC9");
    latin_1 = true;
    EXPECT_EQ(edited(str_to_lower, "\xC9t\xC9"), "\xE9t\xE9");
    EXPECT_EQ(edited(str_to_upper, "\xE9t\xE9"), "\xC9T\xC9");
}

}  // namespace
