// Copies of texts in named blocks, and what is left behind when one cannot be made.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "../safestr/fenced_memory.h"
#include "frame_fixture.h"
#include "nyx_api.h"
#include "nyx_api_common.h"
#include "umbra/named_alloc.h"

namespace {

using nyx_test::call;
using nyx_test::called;
using nyx_test::calls_of;
using nyx_test::recorder;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr rcode invalid_argument = static_cast<rcode>(0xAAF2A000);
constexpr rcode no_memory = static_cast<rcode>(0xAAF2A400);
constexpr std::uint64_t max_length = 0x7FFFFFFFFFFFFFFF;

// The text of a block of exactly that size, which is given back.
std::string taken(char *block) {
    if (block == nullptr) {
        return "(null)";
    }
    std::string text = block;
    EXPECT_EQ(recorder().size_of(block), text.size() + 1);
    umbra_named_free(block);
    return text;
}

// The block that the call returned.
void *block_of(const call &allocation) {
    return reinterpret_cast<void *>(allocation.result.bits);
}

using copy_function = char *(*)(const char *src, const char *alloc_text);

struct copier {
    std::string name;
    copy_function copy;
    friend void PrintTo(const copier &printed, std::ostream *out) { *out << printed.name; }
};

class StringCopy : public nyx_test::frame_test, public testing::WithParamInterface<copier> {
  protected:
    static char *copy(const char *src, const char *alloc_text = "a copy") { return GetParam().copy(src, alloc_text); }
};

TEST_P(StringCopy, MakesABlockOfTheTextAndItsTerminator) {
    for (const std::size_t length : {1U, 2U, 7U, 255U, 4096U, 70000U}) {
        const std::string text(length, 'x');
        fenced_memory memory(18);
        recorder().forget();
        EXPECT_EQ(taken(copy(memory.lay(text + '\0'))), text);
        EXPECT_THAT(recorder().allocation_texts(), ElementsAre("a copy"));
    }
}

TEST_P(StringCopy, TakesBytesAsTheyAre) {
    EXPECT_EQ(taken(copy("\x01\xFF%s\n")), "\x01\xFF%s\n");
}

TEST_P(StringCopy, MeasuresWithinBoundsAndCopiesWithinTheBlock) {
    const char *const src = "abc";
    char *const block = copy(src);
    EXPECT_EQ(recorder().calls(),
              calls_of(called("strnlen_s", src, max_length), called("umbra_named_malloc_", 4, "a copy"),
                       called("memcpy_s", static_cast<void *>(block), 4, src, 3)));
    EXPECT_EQ(taken(block), "abc");
}

TEST_P(StringCopy, CopiesNothingOfAnEmptyText) {
    EXPECT_EQ(taken(copy("")), "");
    EXPECT_THAT(recorder().calls("memcpy_s"), IsEmpty());
    EXPECT_EQ(recorder().calls("umbra_named_malloc_"), calls_of(called("umbra_named_malloc_", 1, "a copy")));
}

TEST_P(StringCopy, RefusesNull) {
    EXPECT_EQ(copy(nullptr), nullptr);
    EXPECT_EQ(copy("abc", nullptr), nullptr);
    EXPECT_EQ(copy(nullptr, nullptr), nullptr);
    EXPECT_THAT(recorder().calls(), IsEmpty());
}

TEST_P(StringCopy, TakesAnEmptyDescription) {
    EXPECT_EQ(taken(copy("abc", "")), "abc");
}

TEST_P(StringCopy, IsNullWithoutMemory) {
    for (const char *const text : {"", "abc"}) {
        recorder().fail_allocation(1);
        EXPECT_EQ(copy(text), nullptr);
        recorder().fail_nothing();
    }
    EXPECT_THAT(recorder().calls("memcpy_s"), IsEmpty());
}

// Kept as it has always been.
TEST_P(StringCopy, KeepsTheBlockWhenTheCopyIsRefused) {
    recorder().fail("memcpy_s", 1, 406);
    EXPECT_EQ(copy("abc"), nullptr);
    EXPECT_THAT(recorder().live_blocks(), ElementsAre("a copy"));
    umbra_named_free(block_of(recorder().calls("umbra_named_malloc_").at(0)));
}

INSTANTIATE_TEST_SUITE_P(Function, StringCopy,
                         testing::Values(copier{"nyx_strdup", nyx_strdup}, copier{"nyx_strdup2", nyx_strdup2}),
                         [](const testing::TestParamInfo<copier> &of) { return of.param.name; });

using MemoryPressure = nyx_test::frame_test;

TEST_F(MemoryPressure, RefusesOrdinaryCopiesOnly) {
    for (const std::uint32_t state : {1U, 2U, 0x80000000U, 0xFFFFFFFFU}) {
        nyx_util_set_mem_state(state);
        recorder().forget();
        EXPECT_EQ(nyx_strdup("abc", "a copy"), nullptr);
        EXPECT_EQ(nyx_strdup("", "a copy"), nullptr);
        EXPECT_EQ(nyx_strdup(nullptr, nullptr), nullptr);
        EXPECT_THAT(recorder().calls(), IsEmpty());
        EXPECT_EQ(taken(nyx_strdup2("abc", "a copy")), "abc");
        char *joined = nullptr;
        EXPECT_EQ(nyx_strdup_concat("abc", "def", "a copy", &joined), 0);
        EXPECT_EQ(taken(joined), "abcdef");
    }
    nyx_util_set_mem_state(0);
    EXPECT_EQ(taken(nyx_strdup("abc", "a copy")), "abc");
}

class StringConcat : public nyx_test::frame_test {
  protected:
    // What is in the out pointer before.
    char *const before_ = reinterpret_cast<char *>(8);
    char *out_ = before_;

    rcode join(const char *a, const char *b, const char *alloc_text = "joined") {
        out_ = before_;
        return nyx_strdup_concat(a, b, alloc_text, &out_);
    }
};

TEST_F(StringConcat, JoinsTexts) {
    for (const std::string &a : {std::string(), std::string("a"), std::string(300, 'x')}) {
        for (const std::string &b : {std::string(), std::string("b"), std::string(5000, 'y')}) {
            EXPECT_EQ(join(a.c_str(), b.c_str()), 0);
            EXPECT_EQ(taken(out_), a + b);
        }
    }
}

TEST_F(StringConcat, MeasuresWithinBoundsAndCopiesWithinTheBlock) {
    const char *const a = "abc";
    const char *const b = "de";
    EXPECT_EQ(join(a, b), 0);
    EXPECT_EQ(recorder().calls(), calls_of(called("strnlen_s", a, max_length), called("strnlen_s", b, max_length),
                                           called("umbra_named_malloc_", 6, "joined"),
                                           called("memcpy_s", static_cast<void *>(out_), 6, a, 3),
                                           called("memcpy_s", static_cast<void *>(out_ + 3), 3, b, 2)));
    EXPECT_EQ(taken(out_), "abcde");
}

TEST_F(StringConcat, CopiesNothingOfEmptyTexts) {
    EXPECT_EQ(join("", ""), 0);
    EXPECT_EQ(taken(out_), "");
    EXPECT_THAT(recorder().calls("memcpy_s"), IsEmpty());
    EXPECT_EQ(join("abc", ""), 0);
    EXPECT_EQ(taken(out_), "abc");
    EXPECT_EQ(join("", "abc"), 0);
    EXPECT_EQ(taken(out_), "abc");
    EXPECT_THAT(recorder().calls("memcpy_s"), testing::SizeIs(2));
}

TEST_F(StringConcat, RefusesANullOut) {
    EXPECT_EQ(nyx_strdup_concat("a", "b", "joined", nullptr), invalid_argument);
    EXPECT_EQ(nyx_strdup_concat(nullptr, nullptr, nullptr, nullptr), invalid_argument);
    EXPECT_THAT(recorder().calls(), IsEmpty());
}

TEST_F(StringConcat, HasNoResultForNullWhichIsNoFailure) {
    for (unsigned missing = 1; missing < 8; ++missing) {
        EXPECT_EQ(join((missing & 1U) != 0 ? nullptr : "a", (missing & 2U) != 0 ? nullptr : "b",
                       (missing & 4U) != 0 ? nullptr : "joined"),
                  0);
        EXPECT_EQ(out_, nullptr);
    }
    EXPECT_THAT(recorder().calls(), IsEmpty());
}

TEST_F(StringConcat, ReportsThatThereIsNoMemory) {
    recorder().fail_allocation(1);
    EXPECT_EQ(join("a", "b"), no_memory);
    EXPECT_EQ(out_, nullptr);
}

TEST_F(StringConcat, ReleasesTheBlockWhenACopyIsRefused) {
    for (const std::uint64_t nth : {1U, 2U}) {
        recorder().fail("memcpy_s", nth, 406);
        EXPECT_EQ(join("abc", "def"), 406);
        EXPECT_EQ(out_, nullptr);
        EXPECT_THAT(recorder().live_blocks(), IsEmpty());
        EXPECT_THAT(recorder().calls("memcpy_s"), testing::SizeIs(nth)) << "none after the one that was refused";
        recorder().fail_nothing();
        recorder().forget();
    }
}

TEST_F(StringConcat, EmptiesOutBeforeAnythingElse) {
    bool emptied = false;
    recorder().when_called("umbra_named_malloc_", [this, &emptied] { emptied = out_ == nullptr; });
    EXPECT_EQ(join("a", "b"), 0);
    EXPECT_TRUE(emptied);
    EXPECT_EQ(taken(out_), "ab");
}

}  // namespace
