// Tokens of a text, one by one and as an array, and the counting of characters.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "../safestr/fenced_memory.h"
#include "frame_fixture.h"
#include "nyx_api_common.h"
#include "umbra/named_alloc.h"

namespace {

int splittings = 0;

}  // namespace

// The program's own strtok(), which the library calls in place of the C library's.
extern "C" char *counted_strtok(char *text, const char *delims) __asm__("strtok");
extern "C" char *counted_strtok(char *text, const char *delims) {
    static char *rest = nullptr;
    ++splittings;
    return strtok_r(text, delims, &rest);
}

namespace {

using nyx_test::called;
using nyx_test::calls_of;
using nyx_test::recorder;
using testing::IsEmpty;

// The longest runs of characters that are no delimiters.
std::vector<std::string> plain_tokens(const std::string &text, const std::string &delims) {
    std::vector<std::string> tokens;
    bool inside = false;
    for (const char c : text) {
        const bool delimiter = delims.find(c) != std::string::npos;
        if (!delimiter && !inside) {
            tokens.emplace_back();
        }
        inside = !delimiter;
        if (inside) {
            tokens.back() += c;
        }
    }
    return tokens;
}

std::string random_text(std::mt19937 &random, const std::string &alphabet, std::size_t longest) {
    std::string text(random() % (longest + 1), '\0');
    std::generate(text.begin(), text.end(), [&] { return alphabet[random() % alphabet.size()]; });
    return text;
}

class NthToken : public nyx_test::frame_test {
  protected:
    // The token as a text of its own, whose block is given back; "(null)" if there is none.
    static std::string token(const char *text, const char *delims, std::uint32_t index) {
        char *out = reinterpret_cast<char *>(8);
        nyx_tokenize_and_get_token(text, delims, index, &out);
        if (out == nullptr) {
            return "(null)";
        }
        std::string copy = out;
        EXPECT_EQ(recorder().size_of(out), copy.size() + 1);
        umbra_named_free(out);
        return copy;
    }
};

TEST_F(NthToken, IsCountedFromZero) {
    EXPECT_EQ(token("a,b,c", ",", 0), "a");
    EXPECT_EQ(token("a,b,c", ",", 1), "b");
    EXPECT_EQ(token("a,b,c", ",", 2), "c");
    EXPECT_EQ(token("a,b,c", ",", 3), "(null)");
    EXPECT_EQ(token("a,b,c", ",", 4), "(null)");
    EXPECT_EQ(token("a,b,c", ",", UINT32_MAX), "(null)");
}

TEST_F(NthToken, IsARunOfCharactersThatAreNoDelimiters) {
    EXPECT_EQ(token(",,a;;b,;", ",;", 0), "a");
    EXPECT_EQ(token(",,a;;b,;", ",;", 1), "b");
    EXPECT_EQ(token(",,a;;b,;", ",;", 2), "(null)");
    EXPECT_EQ(token(",;,", ",;", 0), "(null)");
    EXPECT_EQ(token("", ",", 0), "(null)");
    EXPECT_EQ(token("a,b", "", 0), "a,b");
    EXPECT_EQ(token("a,b", "", 1), "(null)");
}

TEST_F(NthToken, IsTakenFromACopy) {
    const std::string text = "a,b,c";
    recorder().forget();
    EXPECT_EQ(token(text.c_str(), ",", 1), "b");
    EXPECT_EQ(text, "a,b,c");
    EXPECT_EQ(recorder().calls("umbra_named_malloc_"),
              calls_of(called("umbra_named_malloc_", 6, "NYX MAP"), called("umbra_named_malloc_", 2, "NYX MAP")));
}

TEST_F(NthToken, IsTheSameAsInAPlainReference) {
    std::mt19937 random(1);
    for (int round = 0; round < 2000; ++round) {
        const std::string text = random_text(random, "ab,;\xE9", 20);
        const std::string delims = random_text(random, ",;\xE9", 3);
        const std::vector<std::string> expected = plain_tokens(text, delims);
        for (std::uint32_t i = 0; i < expected.size() + 2; ++i) {
            ASSERT_EQ(token(text.c_str(), delims.c_str(), i), i < expected.size() ? expected[i] : "(null)")
                << text << ' ' << delims << ' ' << i;
        }
    }
}

TEST_F(NthToken, DoesNothingForANullOut) {
    nyx_tokenize_and_get_token("a,b", ",", 0, nullptr);
    EXPECT_THAT(recorder().calls(), IsEmpty());
}

TEST_F(NthToken, OfNullThereIsNone) {
    EXPECT_EQ(token(nullptr, ",", 0), "(null)");
    EXPECT_EQ(token("a,b", nullptr, 0), "(null)");
    EXPECT_EQ(token(nullptr, nullptr, 0), "(null)");
}

TEST_F(NthToken, OfNullDoesNotGoOnWithTheTextBefore) {
    char text[] = "x,y";
    ASSERT_STREQ(std::strtok(std::begin(text), ","), "x");
    EXPECT_EQ(token(nullptr, ",", 0), "(null)");
    EXPECT_STREQ(std::strtok(nullptr, ","), "y");
}

TEST_F(NthToken, IsNullWithoutMemory) {
    for (const std::uint64_t nth : {1U, 2U}) {
        recorder().fail_allocation(nth);
        EXPECT_EQ(token("a,b", ",", 1), "(null)");
        recorder().fail_nothing();
        EXPECT_THAT(recorder().live_blocks(), IsEmpty());
    }
    EXPECT_EQ(token("a,b", ",", 1), "b");
}

TEST_F(NthToken, IsNullWhileMemoryIsShort) {
    nyx_util_set_mem_state(1);
    EXPECT_EQ(token("a,b", ",", 1), "(null)");
    EXPECT_THAT(recorder().allocations(), IsEmpty());
}

// The copy of the token is refused as well, when memory becomes short after that of the text was had.
TEST_F(NthToken, IsNullWhenMemoryBecomesShort) {
    recorder().when_called("umbra_named_malloc_", [] { nyx_util_set_mem_state(1); });
    EXPECT_EQ(token("a,b", ",", 1), "(null)");
    EXPECT_THAT(recorder().allocation_texts(), testing::ElementsAre("NYX MAP"));
}

TEST_F(NthToken, IsFoundWithTheStateOfTheProcess) {
    splittings = 0;
    EXPECT_EQ(token("a,b,c", ",", 1), "b");
    EXPECT_EQ(splittings, 2);
    EXPECT_EQ(token("a,b,c", ",", UINT32_MAX), "(null)");
    EXPECT_EQ(splittings, 2 + 4) << "nobody asks behind the last token";
}

TEST_F(NthToken, EmptiesOutBeforeAnythingElse) {
    char *out = reinterpret_cast<char *>(8);
    bool emptied = false;
    recorder().when_called("umbra_named_malloc_", [&] { emptied = out == nullptr; });
    nyx_tokenize_and_get_token(",", ",", 0, &out);
    EXPECT_TRUE(emptied);
    EXPECT_EQ(out, nullptr);
}

using CharacterCount = nyx_test::frame_test;

TEST_F(CharacterCount, CountsEqualBytes) {
    EXPECT_EQ(nyx_count_char_occurences("banana", 'a'), 3U);
    EXPECT_EQ(nyx_count_char_occurences("banana", 'n'), 2U);
    EXPECT_EQ(nyx_count_char_occurences("banana", 'x'), 0U);
    EXPECT_EQ(nyx_count_char_occurences("banana", 'A'), 0U);
    EXPECT_EQ(nyx_count_char_occurences("\xE9i\xE9", '\xE9'), 2U);
    EXPECT_EQ(nyx_count_char_occurences("aaaa", 'a'), 4U);
}

TEST_F(CharacterCount, MeasuresByThePlatform) {
    const char *const text = "a.b";
    EXPECT_EQ(nyx_count_char_occurences(text, '.'), 1U);
    EXPECT_EQ(recorder().calls(), calls_of(called("strnlen_s", text, 0x7FFFFFFFFFFFFFFF)));
}

TEST_F(CharacterCount, IsZeroForNothing) {
    EXPECT_EQ(nyx_count_char_occurences(nullptr, 'a'), 0U);
    EXPECT_EQ(nyx_count_char_occurences(nullptr, '\0'), 0U);
    EXPECT_EQ(nyx_count_char_occurences("", 'a'), 0U);
    EXPECT_EQ(nyx_count_char_occurences("", '\0'), 0U);
    EXPECT_EQ(nyx_count_char_occurences("abc", '\0'), 0U);
}

TEST_F(CharacterCount, ReadsNothingBehindTheTerminator) {
    fenced_memory memory;
    for (std::size_t length = 0; length < 100; ++length) {
        EXPECT_EQ(nyx_count_char_occurences(memory.lay(std::string(length, 'x') + '\0'), 'x'), length);
    }
    EXPECT_EQ(nyx_count_char_occurences("ab\0ab", 'a'), 1U);
}

TEST_F(CharacterCount, IsTheSameAsInAPlainReference) {
    std::mt19937 random(2);
    for (int round = 0; round < 2000; ++round) {
        const std::string text = random_text(random, "ab\xE9", 200);
        for (const char c : {'a', 'b', '\xE9', 'x'}) {
            ASSERT_EQ(nyx_count_char_occurences(text.c_str(), c), std::count(text.begin(), text.end(), c));
        }
    }
}

class TokenArray : public nyx_test::frame_test {
  protected:
    // Splits the text in place. The array is checked against the texts and what is behind them, and given back.
    static void expect_tokens(std::string text, const char *delims, const std::vector<std::string> &expected) {
        std::uint32_t count = 77;
        char **const tokens = str_arr_tokenize(text.data(), delims, &count);
        ASSERT_NE(tokens, nullptr);
        ASSERT_EQ(count, expected.size());
        const std::size_t capacity = std::max<std::size_t>(1, (expected.size() + 4) / 5) * 5;
        EXPECT_EQ(recorder().size_of(tokens), capacity * sizeof(char *));
        for (std::size_t i = 0; i < capacity; ++i) {
            if (i >= expected.size()) {
                EXPECT_EQ(tokens[i], nullptr);
                continue;
            }
            EXPECT_EQ(tokens[i], expected[i]);
            EXPECT_GE(tokens[i], text.data()) << "in the text";
            EXPECT_LT(tokens[i], text.data() + text.size()) << "in the text";
        }
        umbra_named_free(tokens);
    }

    static std::vector<std::string> letters(std::size_t count) {
        std::vector<std::string> all;
        for (std::size_t i = 0; i < count; ++i) {
            all.push_back(std::to_string(i));
        }
        return all;
    }

    static std::string joined(const std::vector<std::string> &tokens) {
        std::string text;
        for (const std::string &token : tokens) {
            text += token + ",";
        }
        return text;
    }
};

TEST_F(TokenArray, PointsIntoTheText) {
    expect_tokens("a,b;;c", ",;", {"a", "b", "c"});
    expect_tokens(",,first,second,,", ",", {"first", "second"});
    expect_tokens("one", ",", {"one"});
    expect_tokens("a,b", "", {"a,b"});
}

TEST_F(TokenArray, IsThereAlsoWithoutTokens) {
    expect_tokens("", ",", {});
    expect_tokens(",,;", ",;", {});
    EXPECT_THAT(recorder().calls("umbra_named_realloc"), IsEmpty());
}

TEST_F(TokenArray, StartsWithFivePointersUnderItsDescription) {
    expect_tokens("a,b", ",", {"a", "b"});
    EXPECT_EQ(recorder().calls("umbra_named_calloc_"),
              calls_of(called("umbra_named_calloc_", 5, sizeof(char *), "String tokens array")));
}

TEST_F(TokenArray, GrowsByFive) {
    for (const std::size_t count : {4U, 5U, 6U, 9U, 10U, 11U, 15U, 16U, 99U, 100U, 101U}) {
        recorder().forget();
        expect_tokens(joined(letters(count)), ",", letters(count));
        std::vector<std::uint64_t> sizes;
        for (const nyx_test::call &growth : recorder().calls("umbra_named_realloc")) {
            sizes.push_back(growth.arguments[1].bits);
        }
        std::vector<std::uint64_t> expected;
        for (std::size_t capacity = 5; capacity < count; capacity += 5) {
            expected.push_back((capacity + 5) * sizeof(char *));
        }
        EXPECT_EQ(sizes, expected) << count;
    }
}

TEST_F(TokenArray, OfNullThereIsNoneAndNothingIsSplit) {
    std::uint32_t count = 77;
    EXPECT_EQ(str_arr_tokenize(nullptr, ",", &count), nullptr);
    EXPECT_EQ(count, 0U);
    count = 77;
    char text[] = "a,b";
    EXPECT_EQ(str_arr_tokenize(std::begin(text), nullptr, &count), nullptr);
    EXPECT_EQ(count, 0U);
    EXPECT_EQ(str_arr_tokenize(std::begin(text), ",", nullptr), nullptr);
    EXPECT_STREQ(std::begin(text), "a,b");
    EXPECT_THAT(recorder().calls(), IsEmpty());
}

TEST_F(TokenArray, IsNullWithoutMemory) {
    const std::string text = joined(letters(16));
    const std::vector<std::uint32_t> counts = {0, 6, 11, 16};  // with the token for which there was no room
    for (std::size_t n = 0; n < counts.size(); ++n) {
        std::string split = text;
        std::uint32_t count = 77;
        recorder().fail_allocation(n + 1);
        EXPECT_EQ(str_arr_tokenize(split.data(), ",", &count), nullptr);
        recorder().fail_nothing();
        EXPECT_EQ(count, counts[n]);
        EXPECT_THAT(recorder().live_blocks(), IsEmpty());
        if (n == 0) {
            EXPECT_EQ(split, text);
        }
    }
    expect_tokens(text, ",", letters(16));
}

TEST_F(TokenArray, LeavesTheStateOfStrtokAlone) {
    char text[] = "x,y";
    ASSERT_STREQ(std::strtok(std::begin(text), ","), "x");
    expect_tokens("a,b", ",", {"a", "b"});
    EXPECT_STREQ(std::strtok(nullptr, ","), "y");
}

TEST_F(TokenArray, IsTheSameAsInAPlainReference) {
    std::mt19937 random(3);
    for (int round = 0; round < 2000; ++round) {
        const std::string text = random_text(random, "ab,;\xE9", 60);
        const std::string delims = random_text(random, ",;\xE9", 3);
        SCOPED_TRACE(testing::PrintToString(std::pair(text, delims)));
        expect_tokens(text, delims.c_str(), plain_tokens(text, delims));
    }
}

}  // namespace
