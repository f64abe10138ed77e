// Threads allocate and free each other's blocks; nothing is lost in the counting.
#include <gtest/gtest.h>
#include <umbra/named_alloc.h>

#include <array>
#include <atomic>
#include <barrier>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr unsigned thread_count = 4;
constexpr unsigned rounds = 3000;
constexpr unsigned slots = 64;

umbra_named_usage usage_of(const std::string &description) {
    umbra_named_usage usage = {};
    EXPECT_EQ(umbra_named_usage_of(description.c_str(), &usage), 0);
    return usage;
}

void run_threads(const std::vector<std::thread>::size_type count, void (*body)(unsigned thread)) {
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < count; ++i) {
        threads.emplace_back(body, i);
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
}

std::array<std::atomic<void *>, slots> shared_blocks;

// Puts a block into a slot, and frees or resizes what another thread had put there.
void swap_blocks(unsigned thread) {
    for (unsigned i = 0; i < rounds; ++i) {
        const unsigned slot = (i * 7 + thread * 13) % slots;
        void *block = umbra_named_malloc_(16 + i % 100, i % 3 == 0 ? "swapped, third" : "swapped");
        void *before = shared_blocks[slot].exchange(block);
        if (before != nullptr && i % 5 == 0) {
            before = umbra_named_realloc(before, umbra_named_size(before) + 1000);
        }
        umbra_named_free(before);
    }
}

TEST(NamedAllocConcurrency, NothingIsLost) {
    run_threads(thread_count, swap_blocks);
    for (std::atomic<void *> &slot : shared_blocks) {
        umbra_named_free(slot.exchange(nullptr));
    }
    const umbra_named_usage third = usage_of("swapped, third");
    const umbra_named_usage rest = usage_of("swapped");
    EXPECT_EQ(third.live_blocks, 0U);
    EXPECT_EQ(third.live_bytes, 0U);
    EXPECT_EQ(rest.live_blocks, 0U);
    EXPECT_EQ(rest.live_bytes, 0U);
    EXPECT_EQ(third.total_blocks, thread_count * rounds / 3);
    EXPECT_EQ(rest.total_blocks, thread_count * rounds - thread_count * rounds / 3);
}

// All threads bring up the same descriptions at the same time.
void use_new_descriptions(unsigned /*thread*/) {
    for (unsigned i = 0; i < 300; ++i) {
        const std::string description = "new " + std::to_string(i);
        umbra_named_free(umbra_named_malloc_(10, description.c_str()));
    }
}

TEST(NamedAllocConcurrency, ADescriptionIsRecordedOnce) {
    run_threads(thread_count, use_new_descriptions);
    std::vector<umbra_named_usage> entries(umbra_named_report(nullptr, 0));
    umbra_named_report(entries.data(), entries.size());
    unsigned found = 0;
    for (const umbra_named_usage &entry : entries) {
        if (std::string(entry.description).starts_with("new ")) {
            ++found;
            EXPECT_EQ(entry.total_blocks, thread_count);
            EXPECT_EQ(entry.live_blocks, 0U);
        }
    }
    EXPECT_EQ(found, 300U);
}

std::atomic<bool> reporting_ends{false};
std::atomic<void *> handed_over{nullptr};

// Never more freed than allocated, and no peak below what is live.
void watch_reports() {
    while (!reporting_ends) {
        umbra_named_usage usage = {};
        if (umbra_named_usage_of("watched", &usage) == 0) {
            EXPECT_LE(usage.live_blocks, usage.total_blocks);
            EXPECT_LE(usage.live_bytes, usage.total_bytes);
            EXPECT_LE(usage.live_bytes, usage.peak_bytes);
        }
        EXPECT_LE(umbra_named_report(nullptr, 0), UMBRA_NAMED_DESCRIPTIONS_MAX);
    }
}

void hand_blocks_over(unsigned /*thread*/) {
    for (unsigned i = 0; i < rounds; ++i) {
        umbra_named_free(handed_over.exchange(umbra_named_malloc_(70000, "watched")));
    }
}

TEST(NamedAllocConcurrency, ReportsAreSoundWhileThreadsComeAndGo) {
    std::thread watcher(watch_reports);
    for (unsigned generation = 0; generation < 3; ++generation) {
        run_threads(thread_count, hand_blocks_over);
    }
    reporting_ends = true;
    watcher.join();
    umbra_named_free(handed_over.exchange(nullptr));
    const umbra_named_usage usage = usage_of("watched");
    EXPECT_EQ(usage.live_blocks, 0U);
    EXPECT_EQ(usage.total_blocks, 3U * thread_count * rounds);
    EXPECT_GE(usage.peak_bytes, 70000U);
    EXPECT_LT(usage.peak_bytes, (2 * thread_count + 1) * 70000U + thread_count * 65536U);
}

std::barrier<> step(2);
void *given = nullptr;

// One thread allocates all, the other frees all: what each has counted drifts apart, the peak must not.
TEST(NamedAllocConcurrency, ThePeakStaysWithinItsBounds) {
    std::thread releaser([] {
        for (unsigned i = 0; i < rounds; ++i) {
            step.arrive_and_wait();
            umbra_named_free(given);
            step.arrive_and_wait();
        }
    });
    for (unsigned i = 0; i < rounds; ++i) {
        given = umbra_named_malloc_(1000, "drifting");
        step.arrive_and_wait();
        step.arrive_and_wait();
    }
    releaser.join();
    const umbra_named_usage usage = usage_of("drifting");
    EXPECT_EQ(usage.live_blocks, 0U);
    EXPECT_EQ(usage.total_bytes, UINT64_C(1000) * rounds);
    EXPECT_GE(usage.peak_bytes, 1000U);
    EXPECT_LT(usage.peak_bytes, 1000U + 65536U);
}

}  // namespace
