// Copying, moving and setting memory.
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/mman.h>

#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include "fenced_memory.h"
#include "safestr/safestr.h"
#include "violation_recorder.h"

namespace {

class SafestrMemory : public testing::Test {
  protected:
    violation_recorder recorder;
    fenced_memory dest_memory;
    fenced_memory src_memory;
};

TEST_F(SafestrMemory, CopiesAndMovesEverySmallSize) {
    for (const auto function : {memcpy_s, memmove_s}) {
        for (std::size_t dmax = 0; dmax <= 40; ++dmax) {
            for (std::size_t n = 0; n <= dmax; ++n) {
                std::string src(n, '\0');
                for (std::size_t i = 0; i < n; ++i) {
                    src[i] = static_cast<char>(i * 37);
                }
                char *const dest = dest_memory.lay(std::string(dmax, '#'));
                ASSERT_EQ(function(dest, dmax, src_memory.lay(src), n), 0);
                ASSERT_EQ(dest_memory.bytes(), src + std::string(dmax - n, '#'));
                ASSERT_TRUE(dest_memory.intact_before());
            }
        }
    }
    EXPECT_TRUE(violation_recorder::take().empty());
}

TEST_F(SafestrMemory, RefusesEverySmallSizeThatDoesNotFit) {
    for (const auto function : {memcpy_s, memmove_s}) {
        for (std::size_t dmax = 1; dmax <= 20; ++dmax) {
            char *const dest = dest_memory.lay(std::string(dmax, '#'));
            ASSERT_EQ(function(dest, dmax, src_memory.lay("?"), dmax + 1), 406);
            ASSERT_EQ(dest_memory.bytes(), std::string(dmax, '\0'));
            ASSERT_TRUE(dest_memory.intact_before());
        }
    }
}

TEST_F(SafestrMemory, TakesTheLargestBound) {
    for (const auto function : {memcpy_s, memmove_s}) {
        char *const dest = dest_memory.lay("......");
        EXPECT_EQ(function(dest, RSIZE_MAX, src_memory.lay("abc"), 3), 0);
        EXPECT_EQ(dest_memory.bytes(), "abc...");
    }
    EXPECT_EQ(memset_s(dest_memory.lay("......"), RSIZE_MAX, 'x', 2), 0);
    EXPECT_EQ(dest_memory.bytes(), "xx....");
    EXPECT_TRUE(violation_recorder::take().empty());
}

TEST_F(SafestrMemory, SetsEverySmallSize) {
    for (std::size_t dmax = 0; dmax <= 40; ++dmax) {
        for (std::size_t n = 0; n <= dmax; ++n) {
            char *const dest = dest_memory.lay(std::string(dmax, '#'));
            ASSERT_EQ(memset_s(dest, dmax, 0x1FF, n), 0);
            ASSERT_EQ(dest_memory.bytes(), std::string(n, '\xFF') + std::string(dmax - n, '#'));
            ASSERT_TRUE(dest_memory.intact_before());
        }
    }
    EXPECT_TRUE(violation_recorder::take().empty());
}

// A thread on a stack that outlives it, so that what the thread left there can be looked at.
class inspected_stack {
  public:
    inspected_stack() : memory_(64) {}

    void run(void *(*body)(void *)) {
        pthread_attr_t attributes;
        ASSERT_EQ(pthread_attr_init(&attributes), 0);
        ASSERT_EQ(pthread_attr_setstack(&attributes, memory_.end() - size, size), 0);
        pthread_t thread = {};
        ASSERT_EQ(pthread_create(&thread, &attributes, body, nullptr), 0);
        ASSERT_EQ(pthread_join(thread, nullptr), 0);
        ASSERT_EQ(pthread_attr_destroy(&attributes), 0);
    }

    // Whether the sixteen bytes of the secret are still there.
    bool holds_secret() const {
        for (const char *at = memory_.end() - size; at + 16 <= memory_.end(); ++at) {
            bool same = true;
            for (unsigned i = 0; i < 16 && same; ++i) {
                same = static_cast<unsigned char>(at[i]) == secret_byte(i);
            }
            if (same) {
                return true;
            }
        }
        return false;
    }

    static unsigned char secret_byte(unsigned i) { return static_cast<unsigned char>(0xC0U + i * 7U % 31U); }

  private:
    static constexpr std::size_t size = 64 * fenced_memory::page;

    fenced_memory memory_;
};

template <bool Wiped>
[[gnu::noinline]] void keep_a_secret() {
    std::array<unsigned char, 16> secret;
    for (unsigned i = 0; i < secret.size(); ++i) {
        secret[i] = inspected_stack::secret_byte(i);
        // The secret is used, and made byte by byte: were it made in a wide register, then whatever saves registers on
        // the stack (the dynamic linker, at the first call of a function) would leave a copy there.
        asm volatile("" : : "r"(secret.data()) : "memory");
    }
    if constexpr (Wiped) {
        memset_s(secret.data(), secret.size(), 0, secret.size());
    }
}

// Keeps the secret far down the stack, where the thread's end leaves it alone.
template <bool Wiped>
void *keep_a_secret_deep(void *) {
    char distance[65536];
    asm volatile("" : : "r"(distance) : "memory");
    keep_a_secret<Wiped>();
    asm volatile("" : : "r"(distance) : "memory");
    return nullptr;
}

TEST_F(SafestrMemory, IsWipedAlsoWhenNothingReadsItAfterwards) {
    inspected_stack careless;
    careless.run(keep_a_secret_deep<false>);
    EXPECT_TRUE(careless.holds_secret());
    inspected_stack careful;
    careful.run(keep_a_secret_deep<true>);
    EXPECT_FALSE(careful.holds_secret());
}

}  // namespace
