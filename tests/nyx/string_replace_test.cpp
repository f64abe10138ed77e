// Replacement of several texts at once: what is found, what is replaced, and what it costs.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "../safestr/fenced_memory.h"
#include "frame_fixture.h"
#include "nyx_api_common.h"
#include "umbra/named_alloc.h"

namespace {

using namespace std::string_literals;

using nyx_test::called;
using nyx_test::calls_of;
using nyx_test::recorder;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

using text_pairs = std::vector<std::pair<std::string, std::string>>;

constexpr std::uint64_t max_length = 0x7FFFFFFFFFFFFFFF;
constexpr std::uint64_t extra_max = 9;

std::vector<str_replacement> c_pairs(const text_pairs &pairs) {
    std::vector<str_replacement> all(pairs.size());
    std::transform(pairs.begin(), pairs.end(), all.begin(), [](const auto &pair) {
        return str_replacement{pair.first.c_str(), pair.second.c_str()};
    });
    return all;
}

// The description, position by position. No two pairs may look for the same text.
std::string plain_replacement(const std::string &text, const text_pairs &pairs) {
    std::vector<std::vector<std::size_t>> found_at(text.size() + 1);  // which pairs
    std::uint64_t extras = 0;
    for (std::size_t i = 0; i < pairs.size(); ++i) {
        const std::string &find = pairs[i].first;
        bool first = true;
        for (std::size_t at = text.find(find); at != std::string::npos; at = text.find(find, at + find.size())) {
            if (first || ++extras <= extra_max) {
                found_at[at].push_back(i);
            }
            first = false;
        }
    }
    std::string result;
    for (std::size_t at = 0; at < text.size();) {
        const std::vector<std::size_t> &here = found_at[at];
        if (here.empty()) {
            result += text[at++];
            continue;
        }
        const auto &[find, replace] = pairs[*std::max_element(
            here.begin(), here.end(), [&](auto a, auto b) { return pairs[a].first.size() < pairs[b].first.size(); })];
        result += replace;
        at += find.size();
    }
    return result;
}

class StringReplacement : public nyx_test::frame_test {
  protected:
    // The new text, whose block is given back.
    static std::string replaced(const std::string &text, const text_pairs &pairs) {
        const std::vector<str_replacement> given = c_pairs(pairs);
        return taken(str_replace_multi(text.c_str(), given.data(), static_cast<std::uint32_t>(given.size()), "new"));
    }

    static std::string taken(char *block) {
        if (block == nullptr) {
            return "(null)";
        }
        std::string text = block;
        EXPECT_EQ(recorder().size_of(block), text.size() + 1);
        umbra_named_free(block);
        return text;
    }

    static std::string repeated(const std::string &text, std::size_t count) {
        std::string all;
        for (std::size_t i = 0; i < count; ++i) {
            all += text;
        }
        return all;
    }

    // Pairs of which none occurs in a text of letters.
    static text_pairs absent(std::size_t count) {
        text_pairs pairs;
        for (std::size_t i = 0; i < count; ++i) {
            pairs.emplace_back(std::to_string(i).insert(0, 1, '<') + '>', "?");
        }
        return pairs;
    }
};

// What is replaced

TEST_F(StringReplacement, ReplacesEveryOccurrence) {
    EXPECT_EQ(replaced("aaa", {{"a", "b"}}), "bbb");
    EXPECT_EQ(replaced("a<b>c", {{"<", "&lt;"}, {">", "&gt;"}}), "a&lt;b&gt;c");
    EXPECT_EQ(replaced("one two one", {{"one", "1"}, {"two", "2"}}), "1 2 1");
}

TEST_F(StringReplacement, GrowsAndShrinksTheText) {
    EXPECT_EQ(replaced("x-x", {{"x", "a longer text"}}), "a longer text-a longer text");
    EXPECT_EQ(replaced("abcxabc", {{"abc", ""}}), "x");
    EXPECT_EQ(replaced("abcabc", {{"abc", ""}}), "");
    EXPECT_EQ(replaced("abc", {{"abc", "abc"}}), "abc");
}

TEST_F(StringReplacement, LooksForOccurrencesInTheTextAsItWas) {
    EXPECT_EQ(replaced("ab", {{"a", "b"}, {"b", "a"}}), "ba");
    EXPECT_EQ(replaced("a", {{"a", "aa"}}), "aa");
    EXPECT_EQ(replaced("axb", {{"x", ""}, {"ab", "!"}}), "ab");
}

TEST_F(StringReplacement, OfAPairDoNotOverlapEachOther) {
    EXPECT_EQ(replaced("aaa", {{"aa", "x"}}), "xa");
    EXPECT_EQ(replaced("aaaa", {{"aa", "x"}}), "xx");
    EXPECT_EQ(replaced("ababa", {{"aba", "x"}}), "xba");
}

TEST_F(StringReplacement, TakesTheLongestOfThoseThatStartTogether) {
    EXPECT_EQ(replaced("abcd", {{"ab", "X"}, {"abc", "Y"}}), "Yd");
    EXPECT_EQ(replaced("abcd", {{"abc", "Y"}, {"ab", "X"}}), "Yd");
    EXPECT_EQ(replaced("abcdab", {{"ab", "X"}, {"abc", "Y"}, {"a", "Z"}}), "YdX");
}

TEST_F(StringReplacement, LeavesWhatStartsWithinAnotherOccurrence) {
    EXPECT_EQ(replaced("abc", {{"bc", "X"}, {"ab", "Y"}}), "Yc");
    EXPECT_EQ(replaced("abcd", {{"bc", "X"}, {"ab", "Y"}, {"cd", "Z"}}), "YZ");
    EXPECT_EQ(replaced("abcabc", {{"bc", "long"}, {"ab", ""}}), "cc");
}

TEST_F(StringReplacement, TakesWhatStartsWhereAnotherOccurrenceEnds) {
    EXPECT_EQ(replaced("abcd", {{"ab", "X"}, {"cd", "Y"}}), "XY");
}

TEST_F(StringReplacement, OfTheSameTextTwiceTakesEitherPair) {
    EXPECT_THAT(replaced("a", {{"a", "x"}, {"a", "y"}}), testing::AnyOf("x", "y"));
}

TEST_F(StringReplacement, CopiesATextWithoutOccurrences) {
    EXPECT_EQ(replaced("abc", {{"x", "y"}}), "abc");
    EXPECT_EQ(replaced("abc", {{"abcd", "y"}}), "abc");
    EXPECT_EQ(replaced("", {{"x", "y"}}), "");
}

TEST_F(StringReplacement, ComparesBytes) {
    EXPECT_EQ(replaced("\xE9\x01\xFF", {{"\xFF", "\x80"}, {"\xE9\x01", "%s"}}), "%s\x80");
}

// Ten of one pair, nine further ones of all

TEST_F(StringReplacement, StopsAfterNineFurtherOccurrences) {
    EXPECT_EQ(replaced(repeated("a", 9), {{"a", "b"}}), repeated("b", 9));
    EXPECT_EQ(replaced(repeated("a", 10), {{"a", "b"}}), repeated("b", 10));
    EXPECT_EQ(replaced(repeated("a", 11), {{"a", "b"}}), repeated("b", 10) + "a");
    EXPECT_EQ(replaced(repeated("a", 15), {{"a", "b"}}), repeated("b", 10) + "aaaaa");
}

TEST_F(StringReplacement, CountsFurtherOccurrencesOfAllPairsTogether) {
    // four further ones of the first pair leave five for the second, and none for the third
    const std::string text = repeated("c", 3) + repeated("b", 8) + repeated("a", 5);
    EXPECT_EQ(replaced(text, {{"a", "1"}, {"b", "2"}, {"c", "3"}}), "3cc" + repeated("2", 6) + "bb" + repeated("1", 5));
    // in the order of the pairs, not of the text
    EXPECT_EQ(replaced(text, {{"c", "3"}, {"b", "2"}, {"a", "1"}}), "333" + repeated("2", 8) + "1aaaa");
}

TEST_F(StringReplacement, AlwaysReplacesTheFirstOccurrenceOfAPair) {
    EXPECT_EQ(replaced(repeated("a", 12) + "bb" + "cc", {{"a", "1"}, {"b", "2"}, {"c", "3"}}),
              repeated("1", 10) + "aa2b3c");
}

TEST_F(StringReplacement, CountsFurtherOccurrencesThatAreDroppedLater) {
    // those of "b" lie within those of "ab", and use up what "c" would have had
    const std::string text = repeated("ab", 6) + "cc";
    EXPECT_EQ(replaced(text, {{"ab", "X"}, {"b", "Y"}, {"c", "Z"}}), repeated("X", 6) + "Zc");
}

// Against the reference

TEST_F(StringReplacement, IsTheSameAsInAPlainReference) {
    std::mt19937 random(1);
    const auto random_text = [&random](std::size_t shortest, std::size_t longest, const std::string &alphabet) {
        std::string text(shortest + random() % (longest - shortest + 1), '\0');
        std::generate(text.begin(), text.end(), [&] { return alphabet[random() % alphabet.size()]; });
        return text;
    };
    for (int round = 0; round < 20000; ++round) {
        const std::string text = random_text(0, 40, round % 2 == 0 ? "ab" : "abc\xE9");
        text_pairs pairs;
        std::set<std::string> finds;
        for (std::size_t i = 0, count = 1 + random() % 6; i < count; ++i) {
            const std::string find = random_text(1, 4, round % 2 == 0 ? "ab" : "abc\xE9");
            if (finds.insert(find).second) {
                pairs.emplace_back(find, random_text(0, 6, "xyab"));
            }
        }
        ASSERT_EQ(replaced(text, pairs), plain_replacement(text, pairs))
            << text << ' ' << testing::PrintToString(pairs);
    }
}

TEST_F(StringReplacement, IsTheSameWithManyPairs) {
    std::mt19937 random(2);
    std::string text(3000, '\0');
    std::generate(text.begin(), text.end(), [&] { return static_cast<char>('a' + random() % 4); });
    for (const std::size_t count : {199U, 200U, 201U, 900U}) {
        text_pairs pairs;
        std::set<std::string> finds;
        while (pairs.size() < count) {
            const std::string find = text.substr(random() % text.size(), 1 + random() % 8);
            if (finds.insert(find).second) {
                pairs.emplace_back(find, std::to_string(pairs.size()));
            }
        }
        EXPECT_EQ(replaced(text, pairs), plain_replacement(text, pairs)) << count;
    }
}

// Memory

TEST_F(StringReplacement, MeasuresWithinBounds) {
    const std::string text = "a-b";
    const std::array<str_replacement, 2> pairs = {{{"a", "1"}, {"b", "22"}}};
    EXPECT_EQ(taken(str_replace_multi(text.c_str(), pairs.data(), 2, "new")), "1-22");
    EXPECT_EQ(
        recorder().calls("strnlen_s"),
        calls_of(called("strnlen_s", text.c_str(), max_length), called("strnlen_s", pairs[0].find, max_length),
                 called("strnlen_s", pairs[0].replace, max_length), called("strnlen_s", pairs[1].find, max_length),
                 called("strnlen_s", pairs[1].replace, max_length)));
    EXPECT_EQ(recorder().calls("umbra_named_malloc_"), calls_of(called("umbra_named_malloc_", 5, "new")));
}

TEST_F(StringReplacement, ReadsNothingBehindTheTexts) {
    fenced_memory text;
    fenced_memory find;
    fenced_memory replace;
    for (std::size_t length = 1; length < 40; ++length) {
        const std::string end(length, 'b');
        const std::string shorter = end.substr(1);
        const str_replacement pair = {find.lay(end + '\0'), replace.lay("cc\0"s)};
        EXPECT_EQ(taken(str_replace_multi(text.lay("a" + end + '\0'), &pair, 1, "new")), "acc");
        EXPECT_EQ(taken(str_replace_multi(text.lay("a" + shorter + '\0'), &pair, 1, "new")), "a" + shorter);
    }
}

TEST_F(StringReplacement, NeedsAWorkingBlockForMoreThanTwoHundredPairs) {
    for (const std::size_t count : {1U, 199U, 200U}) {
        recorder().forget();
        EXPECT_EQ(replaced("text", absent(count)), "text");
        EXPECT_THAT(recorder().allocation_texts(), ElementsAre("new"));
    }
    for (const std::size_t count : {201U, 1000U}) {
        recorder().forget();
        EXPECT_EQ(replaced("text", absent(count)), "text");
        EXPECT_EQ(recorder().calls("umbra_named_malloc_"),
                  calls_of(called("umbra_named_malloc_", (count + 10) * sizeof(str_pair), "str_replace_multi work"),
                           called("umbra_named_malloc_", 5, "new")));
        EXPECT_THAT(recorder().live_blocks(), IsEmpty());
    }
}

// All records in use: the one of each pair, and nine more.
TEST_F(StringReplacement, FillsItsRecords) {
    for (const std::size_t count : {1U, 200U, 201U}) {
        text_pairs pairs = absent(count);
        std::string text = repeated("x", 20);
        std::string expected = repeated("y", 10) + repeated("x", 10);
        for (std::size_t i = 0; i + 1 < count; ++i) {
            text += pairs[i].first;
            expected += "?";
        }
        pairs.back() = {"x", "y"};
        EXPECT_EQ(replaced(text, pairs), expected) << count;
    }
}

TEST_F(StringReplacement, IsNullWithoutMemory) {
    for (const std::size_t count : {1U, 201U}) {
        const std::uint64_t allocations = count > 200 ? 2 : 1;
        for (std::uint64_t nth = 1; nth <= allocations; ++nth) {
            recorder().fail_allocation(nth);
            EXPECT_EQ(replaced("text", absent(count)), "(null)");
            recorder().fail_nothing();
            EXPECT_THAT(recorder().live_blocks(), IsEmpty());
        }
        EXPECT_EQ(replaced("text", absent(count)), "text");
    }
}

TEST_F(StringReplacement, AlsoWorksWhileMemoryIsShort) {
    nyx_util_set_mem_state(1);
    EXPECT_EQ(replaced("aba", {{"a", "x"}}), "xbx");
}

// What is refused

TEST_F(StringReplacement, OfNoPairsIsAnOrdinaryCopy) {
    const str_replacement unread = {nullptr, nullptr};
    EXPECT_EQ(taken(str_replace_multi("text", nullptr, 0, "new")), "text");
    EXPECT_EQ(taken(str_replace_multi("text", &unread, 0, "new")), "text");
    EXPECT_THAT(recorder().allocation_texts(), ElementsAre("new", "new"));
    EXPECT_EQ(str_replace_multi("text", nullptr, 0, nullptr), nullptr);
    nyx_util_set_mem_state(1);
    EXPECT_EQ(str_replace_multi("text", nullptr, 0, "new"), nullptr);
}

TEST_F(StringReplacement, RefusesNull) {
    const str_replacement pair = {"a", "b"};
    EXPECT_EQ(str_replace_multi(nullptr, &pair, 1, "new"), nullptr);
    EXPECT_EQ(str_replace_multi(nullptr, nullptr, 0, "new"), nullptr);
    EXPECT_EQ(str_replace_multi("text", nullptr, 1, "new"), nullptr);
    EXPECT_EQ(str_replace_multi("text", &pair, 1, nullptr), nullptr);
    EXPECT_THAT(recorder().allocations(), IsEmpty());
}

TEST_F(StringReplacement, RefusesPairsWithoutATextOrWithNothingToFind) {
    for (const std::size_t count : {1U, 3U, 200U, 201U}) {
        const text_pairs texts = absent(count);
        for (const str_replacement &broken :
             {str_replacement{nullptr, "b"}, str_replacement{"a", nullptr}, str_replacement{"", "b"}}) {
            for (const std::size_t at : {std::size_t{0}, count - 1}) {
                std::vector<str_replacement> pairs = c_pairs(texts);
                pairs[at] = broken;
                recorder().forget();
                EXPECT_EQ(str_replace_multi("text", pairs.data(), static_cast<std::uint32_t>(count), "new"), nullptr);
                EXPECT_THAT(recorder().calls("umbra_named_malloc_"), SizeIs(count > 200 ? 1 : 0))
                    << "none for a result";
                EXPECT_THAT(recorder().live_blocks(), IsEmpty());
            }
        }
    }
}

TEST_F(StringReplacement, RefusesTextsWhosePositionsNeed32Bits) {
    const str_replacement pair = {"b", "c"};
    for (const std::uint64_t length : {std::uint64_t{0x80000000}, max_length}) {
        recorder().fail("strnlen_s", 1, static_cast<std::int64_t>(length));
        EXPECT_EQ(str_replace_multi("text", &pair, 1, "new"), nullptr);
        EXPECT_THAT(recorder().allocations(), IsEmpty());
        recorder().fail_nothing();
    }
    recorder().fail("strnlen_s", 1, 0x7FFFFFFF);
    recorder().fail_allocation(1);
    EXPECT_EQ(str_replace_multi("text", &pair, 1, "new"), nullptr);
    EXPECT_EQ(recorder().calls("umbra_named_malloc_"), calls_of(called("umbra_named_malloc_", 0x80000000U, "new")));
}

TEST_F(StringReplacement, RefusesNewTextsWhoseSizeIsNoNumber) {
    const std::array<str_replacement, 3> pairs = {{{"a", "1"}, {"b", "2"}, {"c", "3"}}};
    const auto replacement_is_huge = [](std::uint64_t nth_pair) {
        recorder().fail("strnlen_s", 1 + 2 * nth_pair, static_cast<std::int64_t>(max_length));
    };
    // 2^64 - 1, the largest number there is
    replacement_is_huge(1);
    replacement_is_huge(2);
    recorder().fail_allocation(1);
    EXPECT_EQ(str_replace_multi("ab", pairs.data(), 2, "new"), nullptr);
    EXPECT_EQ(recorder().calls("umbra_named_malloc_"), calls_of(called("umbra_named_malloc_", UINT64_MAX, "new")));
    recorder().fail_nothing();
    recorder().forget();
    // one more, by the rest of the text
    replacement_is_huge(1);
    replacement_is_huge(2);
    EXPECT_EQ(str_replace_multi("abx", pairs.data(), 2, "new"), nullptr);
    recorder().fail_nothing();
    // by a third replacement
    replacement_is_huge(1);
    replacement_is_huge(2);
    replacement_is_huge(3);
    EXPECT_EQ(str_replace_multi("abc", pairs.data(), 3, "new"), nullptr);
    recorder().fail_nothing();
    EXPECT_THAT(recorder().allocations(), IsEmpty());
    // but not by one that is not used
    for (const char *const text : {"x", "abab"}) {
        const std::array<str_replacement, 2> overlapping = {{{"abab", "1"}, {"bab", "2"}}};
        replacement_is_huge(2);
        EXPECT_EQ(taken(str_replace_multi(text, overlapping.data(), 2, "new")), std::strlen(text) == 4 ? "1" : "x");
        recorder().fail_nothing();
    }
}

// What it costs: these would take minutes if the time were not linear.

TEST_F(StringReplacement, DoesNotLookAtTheTextAgainForEachOccurrence) {
    constexpr std::size_t length = 1 << 20;
    const std::string text(length, 'a');
    EXPECT_EQ(replaced(text, {{"a", "b"}}), std::string(10, 'b') + std::string(length - 10, 'a'));
    const std::string find = std::string(length / 2, 'a') + 'b';
    EXPECT_EQ(replaced(text, {{find, "x"}}), text);
    EXPECT_EQ(replaced(text + 'b', {{find, "x"}}), std::string(length - length / 2, 'a') + 'x');
}

TEST_F(StringReplacement, TakesManyPairs) {
    EXPECT_EQ(replaced("text", absent(100000)), "text");
    text_pairs pairs;
    for (std::size_t i = 0; i < 20000; ++i) {
        pairs.emplace_back("a", "b");
    }
    EXPECT_EQ(replaced(repeated("a", 12), pairs), repeated("b", 10) + "aa");
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
#define SLOW_C_LIBRARY
#endif
#endif
#else
#define SLOW_C_LIBRARY
#endif

// A text of 'x', a "y" and a terminator, which takes 64 MiB however long it is: its parts are the same memory.
class long_text {
  public:
    static constexpr std::size_t part = 64U << 20U;

    explicit long_text(std::size_t parts) : size_((parts + 1) * part) {
        const int file = memfd_create("long text", 0);
        void *const place = mmap(nullptr, size_, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (file < 0 || place == MAP_FAILED || ftruncate(file, part) != 0) {
            std::abort();
        }
        start_ = static_cast<char *>(place);
        for (std::size_t i = 0; i <= parts; ++i) {
            // the last part is private memory, so that it can differ
            const int sharing = i < parts ? MAP_SHARED : MAP_PRIVATE;
            if (mmap(start_ + i * part, part, PROT_READ | PROT_WRITE, sharing | MAP_FIXED, file, 0) == MAP_FAILED) {
                std::abort();
            }
        }
        close(file);
        std::memset(start_, 'x', part);
        end_at(parts * part);
    }
    ~long_text() { munmap(start_, size_); }
    long_text(const long_text &) = delete;
    long_text &operator=(const long_text &) = delete;

    // Makes it begin so that it has this many characters, the last of which is the "y".
    [[nodiscard]] const char *of_length(std::size_t length) const { return end_ - length; }

  private:
    void end_at(std::size_t length) {
        end_ = start_ + length + 2;
        end_[-1] = 'y';
        *end_ = '\0';
    }

    std::size_t size_;
    char *start_ = nullptr;
    char *end_ = nullptr;
};

TEST_F(StringReplacement, TakesTextsOfTwoGigabytesLessOne) {
#ifdef SLOW_C_LIBRARY
    GTEST_SKIP() << "takes too long under a sanitizer";
#endif
    const long_text text(32);
    const str_replacement pair = {"y", "abc"};
    recorder().fail_allocation(1);
    EXPECT_EQ(str_replace_multi(text.of_length(0x7FFFFFFF), &pair, 1, "new"), nullptr);
    EXPECT_EQ(recorder().calls("umbra_named_malloc_"), calls_of(called("umbra_named_malloc_", 0x80000002U, "new")))
        << "the last character is found";
    recorder().fail_nothing();
    recorder().forget();
    EXPECT_EQ(str_replace_multi(text.of_length(0x80000000), &pair, 1, "new"), nullptr);
    EXPECT_THAT(recorder().allocations(), IsEmpty());
}

// The order of the records

using PairOrder = nyx_test::frame_test;

TEST_F(PairOrder, IsByPositionThenByTheLongerText) {
    const std::vector<str_pair> sorted = {
        {nullptr, 5, 0, -1}, {nullptr, 1, 9, -1},          {nullptr, 3, 0, 0},
        {nullptr, 2, 0, 0},  {nullptr, 0x100000000, 0, 7}, {nullptr, 0xFFFFFFFF, 0, 7},
        {nullptr, 0, 0, 7},  {nullptr, UINT64_MAX, 0, 8},  {nullptr, 1, 0, INT32_MAX},
    };
    for (std::size_t a = 0; a < sorted.size(); ++a) {
        for (std::size_t b = 0; b < sorted.size(); ++b) {
            EXPECT_EQ(str_pair_helper_compare(&sorted[a], &sorted[b]), a == b ? 0 : (a < b ? -1 : 1)) << a << ' ' << b;
        }
    }
}

TEST_F(PairOrder, TakesEqualPlacesAndLengthsForEqual) {
    const str_replacement pair = {"a", "b"};
    const str_pair a = {&pair, 3, 1, 5};
    const str_pair b = {nullptr, 3, 2, 5};
    EXPECT_EQ(str_pair_helper_compare(&a, &b), 0);
    EXPECT_EQ(str_pair_helper_compare(&b, &a), 0);
}

}  // namespace
