// Texts of result codes on many threads at once.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <thread>
#include <vector>

#include "rcode/rcode.h"

namespace {

constexpr unsigned thread_count = 8;
constexpr unsigned rounds = 5000;

// How many of a thread's texts were not what they must be, each read again after three more were made.
unsigned wrong_texts(unsigned thread, std::atomic<unsigned> &ready) {
    ready.fetch_add(1);
    while (ready.load() != thread_count) {
        std::this_thread::yield();
    }
    unsigned wrong = 0;
    for (unsigned round = 0; round < rounds; ++round) {
        const unsigned code = 0x80000000U + thread * 0x01000000U + round * 4;
        const char *texts[4];
        for (unsigned i = 0; i < 4; ++i) {
            texts[i] = rcode_strerror(static_cast<rcode>(code + i));
        }
        for (unsigned i = 0; i < 4; ++i) {
            char expected[64];
            std::snprintf(expected, sizeof expected, "Unknown result code 0x%08X", code + i);
            wrong += std::strcmp(texts[i], expected) != 0 ? 1 : 0;
        }
        wrong += std::strcmp(rcode_strerror(static_cast<rcode>(0xAAF2A400)), "Out of memory") != 0 ? 1 : 0;
    }
    return wrong;
}

TEST(RcodeConcurrency, GivesEachThreadItsOwnUnknownCodes) {
    std::atomic<unsigned> ready = 0;
    std::vector<unsigned> wrong(thread_count, 1);
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < thread_count; ++i) {
        threads.emplace_back([i, &ready, &wrong] { wrong[i] = wrong_texts(i, ready); });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong, std::vector<unsigned>(thread_count, 0));
}

}  // namespace
