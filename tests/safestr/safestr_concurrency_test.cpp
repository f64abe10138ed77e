// The handler being replaced while other threads violate constraints.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <thread>
#include <vector>

#include "safestr/safestr.h"

namespace {

constexpr unsigned thread_count = 4;
constexpr unsigned rounds = 20000;

std::atomic<unsigned> heard_by_one;
std::atomic<unsigned> heard_by_another;
std::atomic<unsigned> wrong_arguments;

void check(const char *message, const void *ptr, errno_t code) {
    if (std::strcmp(message, "strcpy_s: dmax is 0") != 0 || ptr != nullptr || code != 401) {
        ++wrong_arguments;
    }
}

void one_handler(const char *message, void *ptr, errno_t code) {
    check(message, ptr, code);
    ++heard_by_one;
}

void another_handler(const char *message, void *ptr, errno_t code) {
    check(message, ptr, code);
    ++heard_by_another;
}

TEST(SafestrConcurrency, EveryViolationIsHeardByOneHandler) {
    const safe_str_constraint_handler before = set_safe_str_constraint_handler(one_handler);
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < thread_count; ++i) {
        threads.emplace_back([] {
            for (unsigned round = 0; round < rounds; ++round) {
                char dest[8] = "";
                EXPECT_EQ(strcpy_s(dest, 0, "text"), 401);
                EXPECT_EQ(strcpy_s(dest, sizeof dest, "text"), 0);
            }
        });
    }
    for (unsigned round = 0; round < rounds; ++round) {
        set_safe_str_constraint_handler(round % 2 == 0 ? another_handler : one_handler);
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    set_safe_str_constraint_handler(before);
    EXPECT_EQ(heard_by_one + heard_by_another, thread_count * rounds);
    EXPECT_EQ(wrong_arguments, 0U);
}

// Each thread puts a handler in and gets one out: none is lost, none is handed out twice.
TEST(SafestrConcurrency, EveryReplacedHandlerIsReturnedOnce) {
    const std::array<safe_str_constraint_handler, thread_count> handlers = {
        [](const char *, void *, errno_t) {}, [](const char *, void *, errno_t) {},
        [](const char *, void *, errno_t) {}, [](const char *, void *, errno_t) {}};
    for (unsigned round = 0; round < 200; ++round) {
        const safe_str_constraint_handler before = set_safe_str_constraint_handler(nullptr);
        const safe_str_constraint_handler silent = set_safe_str_constraint_handler(nullptr);
        std::array<safe_str_constraint_handler, thread_count + 1> returned = {};
        std::vector<std::thread> threads;
        for (unsigned i = 0; i < thread_count; ++i) {
            threads.emplace_back([&, i] { returned[i] = set_safe_str_constraint_handler(handlers[i]); });
        }
        for (std::thread &thread : threads) {
            thread.join();
        }
        returned[thread_count] = set_safe_str_constraint_handler(before);
        for (const safe_str_constraint_handler handler : handlers) {
            ASSERT_EQ(std::count(returned.begin(), returned.end(), handler), 1);
        }
        ASSERT_EQ(std::count(returned.begin(), returned.end(), silent), 1);
    }
}

}  // namespace
