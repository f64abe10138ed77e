// Objects that overlap: every placing of source and destination in a few bytes, against a model that marks bytes.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "safestr/safestr.h"
#include "violation_recorder.h"

namespace {

constexpr std::size_t block_size = 12;

// A span of the block: its first byte and how many.
struct span {
    std::size_t start;
    std::size_t count;
};

bool share_a_byte(const span &a, const span &b) {
    std::vector<bool> in_a(2 * block_size);
    std::fill_n(in_a.begin() + static_cast<std::ptrdiff_t>(a.start), a.count, true);
    const auto from = in_a.begin() + static_cast<std::ptrdiff_t>(b.start);
    return std::find(from, from + static_cast<std::ptrdiff_t>(b.count), true) !=
           from + static_cast<std::ptrdiff_t>(b.count);
}

class SafestrOverlap : public testing::Test {
  protected:
    // Expects 404 when the spans share a byte, success otherwise.
    static void expect(errno_t result, const char *function, const span &written, const span &read) {
        const std::vector<violation> calls = violation_recorder::take();
        if (share_a_byte(written, read)) {
            ASSERT_EQ(result, 404);
            ASSERT_EQ(calls,
                      (std::vector<violation>{{std::string(function) + ": dest and src overlap", 404, nullptr}}));
        } else {
            ASSERT_EQ(result, 0);
            ASSERT_TRUE(calls.empty());
        }
    }

    // A block of text without a terminator, but for those at `ends`.
    void reset(std::initializer_list<std::size_t> ends) {
        for (std::size_t i = 0; i < block_size; ++i) {
            block[i] = static_cast<char>('a' + static_cast<char>(i));
        }
        for (const std::size_t end : ends) {
            block[end] = '\0';
        }
    }

    violation_recorder recorder;
    char block[block_size] = {};
};

TEST_F(SafestrOverlap, IsCheckedOverTheBytesThatStrcpyReadsAndWrites) {
    for (std::size_t src = 0; src < block_size; ++src) {
        for (std::size_t end = src; end < block_size; ++end) {
            const std::size_t length = end - src;
            for (std::size_t dest = 0; dest + length < block_size; ++dest) {
                for (const rsize_t dmax : {length + 1, block_size - dest, static_cast<std::size_t>(RSIZE_MAX)}) {
                    reset({end});
                    expect(strcpy_s(block + dest, dmax, block + src), "strcpy_s", {dest, length + 1},
                           {src, length + 1});
                }
            }
        }
    }
}

TEST_F(SafestrOverlap, IsCheckedOverTheBytesThatStrncpyReadsAndWrites) {
    for (std::size_t src = 0; src < block_size; ++src) {
        for (std::size_t slen = 0; src + slen <= block_size; ++slen) {
            for (std::size_t dest = 0; dest + slen < block_size; ++dest) {
                for (const rsize_t dmax : {slen + 1, static_cast<std::size_t>(RSIZE_MAX)}) {
                    reset({});
                    expect(strncpy_s(block + dest, dmax, block + src, slen), "strncpy_s", {dest, slen + 1},
                           {src, slen});
                }
            }
        }
    }
}

// dest is the text of `used` characters at the block's start.
TEST_F(SafestrOverlap, IsCheckedOverTheBytesThatStrncatReadsAndWrites) {
    for (std::size_t used = 0; used < block_size; ++used) {
        for (std::size_t src = 0; src < block_size; ++src) {
            for (std::size_t slen = 0; src + slen <= block_size && used + slen < block_size; ++slen) {
                reset({used});
                const bool meets_end = src <= used && used < src + slen;
                const std::size_t length = meets_end ? used - src : slen;
                expect(strncat_s(block, RSIZE_MAX, block + src, slen), "strncat_s", {used, length + 1},
                       {src, length + (meets_end ? 1 : 0)});
            }
        }
    }
}

TEST_F(SafestrOverlap, IsCheckedOverTheBytesThatStrcatReadsAndWrites) {
    for (std::size_t used = 0; used < block_size; ++used) {
        for (std::size_t src = 0; src < block_size; ++src) {
            const std::size_t end = src <= used ? used : block_size - 1;
            const std::size_t length = end - src;
            if (used + length >= block_size) {
                continue;
            }
            reset({used, block_size - 1});
            expect(strcat_s(block, block_size, block + src), "strcat_s", {used, length + 1}, {src, length + 1});
        }
    }
}

TEST_F(SafestrOverlap, AppendsAPieceOfTheTextItself) {
    char text[8] = "abc";
    EXPECT_EQ(strncat_s(text, sizeof text, text + 1, 2), 0);
    EXPECT_STREQ(text, "abcbc");
}

TEST_F(SafestrOverlap, IsCheckedOverTheBytesThatMemcpyReadsAndWrites) {
    for (std::size_t src = 0; src <= block_size; ++src) {
        for (std::size_t n = 0; src + n <= block_size; ++n) {
            for (std::size_t dest = 0; dest + n <= block_size; ++dest) {
                for (const rsize_t dmax : {block_size - dest, static_cast<std::size_t>(RSIZE_MAX)}) {
                    reset({});
                    expect(memcpy_s(block + dest, dmax, block + src, n), "memcpy_s", {dest, n}, {src, n});
                }
            }
        }
    }
}

TEST_F(SafestrOverlap, IsNoMatterForMemmove) {
    for (std::size_t src = 0; src <= block_size; ++src) {
        for (std::size_t n = 0; src + n <= block_size; ++n) {
            for (std::size_t dest = 0; dest + n <= block_size; ++dest) {
                reset({});
                std::string expected(block, block_size);
                expected.replace(dest, n, std::string(block + src, n));
                ASSERT_EQ(memmove_s(block + dest, block_size - dest, block + src, n), 0);
                ASSERT_EQ(std::string(block, block_size), expected);
            }
        }
    }
    EXPECT_TRUE(violation_recorder::take().empty());
}

}  // namespace
