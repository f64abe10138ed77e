// Threads write, open, close, delete and read at once.
#include <gmock/gmock.h>

#include <atomic>
#include <cerrno>
#include <map>
#include <string>
#include <thread>

#include "sanitized.h"
#include "trace_files.h"

namespace skein_test {
namespace {

class SkeinThreads : public trace_files {
  protected:
    template <class Body>
    void start(int count, Body body) {
        for (int k = 0; k < count; ++k) {
            threads_.emplace_back(body, k);
        }
    }
    void join() {
        for (std::thread &each : threads_) {
            each.join();
        }
        threads_.clear();
    }
    std::vector<std::thread> threads_;
    std::atomic<bool> stop_{false};
};

std::string text_of(int writer, int number) {
    return std::to_string(writer) + ' ' + std::to_string(number) + ' ' +
           std::string(static_cast<std::size_t>((number * 31 + writer) % 200), static_cast<char>('a' + writer));
}

// Every entry is one that was written, and those of each writer follow one another.
void expect_sane(const contents &read) {
    std::map<int, int> last;
    for (const entry &each : read.entries) {
        std::size_t end = 0;
        const int writer = std::stoi(each.text, &end);
        const int number = std::stoi(each.text.substr(end));
        ASSERT_EQ(each.text, text_of(writer, number));
        if (last.contains(writer)) {
            ASSERT_EQ(number, last[writer] + 1) << writer;
        }
        last[writer] = number;
    }
}

TEST_F(SkeinThreads, WritersOnOneHandleAndReaders) {
    constexpr int entries = sanitized ? 2000 : 20000;
    const uint64_t handle = open_or_fail("a", 64, 64 * 128);
    start(4, [&](int writer) {
        for (int number = 0; number < entries; ++number) {
            EXPECT_EQ(_skein_str(handle, 0, text_of(writer, number).c_str()), 0);
        }
    });
    std::vector<std::thread> writers;
    writers.swap(threads_);
    start(1, [&](int) {
        while (!stop_) {
            const contents read = read_trace("a");
            EXPECT_EQ(read.error, 0);
            EXPECT_EQ(read.info.damaged, 0U);
            expect_sane(read);
        }
    });
    for (std::thread &each : writers) {
        each.join();
    }
    stop_ = true;
    join();
    const contents read = read_trace("a");
    EXPECT_FALSE(read.entries.empty());
    EXPECT_EQ(read.info.damaged + read.info.unfinished + read.info.lost, 0U);
    expect_sane(read);
    EXPECT_EQ(skein_close(handle), 0);
}

TEST_F(SkeinThreads, HandlesAreClosedWhileTheyAreUsed) {
    constexpr int rounds = sanitized ? 200 : 2000;
    std::atomic<uint64_t> shared{open_or_fail("a", 64, 64 * 128)};
    std::atomic<uint64_t> closed_under{0};
    start(3, [&](int writer) {
        for (int number = 0; !stop_; ++number) {
            const int32_t error = _skein_str(shared, 0, text_of(writer, number).c_str());
            EXPECT_TRUE(error == 0 || error == EBADF) << error;
            closed_under += error == EBADF ? 1 : 0;
        }
    });
    start(2, [&](int) {  // only one of those who close one handle succeeds
        for (int round = 0; round < rounds; ++round) {
            const uint64_t handle = shared;
            if (skein_close(handle) == 0) {
                shared = open_or_fail("a", 64, 64 * 128);
            }
        }
        stop_ = true;
    });
    join();
    EXPECT_EQ(skein_close(shared), 0);
    EXPECT_EQ(read_trace("a").info.damaged, 0U);
}

TEST_F(SkeinThreads, FilesAreClearedWhileTheyAreWritten) {
    constexpr int rounds = sanitized ? 30 : 100;
    start(3, [&](int writer) {
        const uint64_t handle = open_or_fail("a", 64, 64 * 128);
        for (int number = 0; !stop_; ++number) {
            EXPECT_EQ(_skein_str(handle, 0, text_of(writer, number).c_str()), 0);
        }
        EXPECT_EQ(skein_close(handle), 0);
    });
    const uint64_t shared = open_or_fail("a", 64, 64 * 128);
    start(2, [&](int writer) {
        for (int number = 0; !stop_; ++number) {
            EXPECT_EQ(_skein_str(shared, 0, text_of(writer + 3, number).c_str()), 0);
        }
    });
    start(2, [&](int) {
        for (int round = 0; round < rounds; ++round) {
            const int32_t error = skein_delete("a");
            EXPECT_TRUE(error == 0 || error == ENOENT) << error;
            EXPECT_EQ(skein_close(open_or_fail("a", 64, 64 * 128)), 0);
            std::this_thread::sleep_for(std::chrono::milliseconds(3));
        }
        stop_ = true;
    });
    join();
    EXPECT_EQ(skein_close(shared), 0);
    EXPECT_EQ(read_trace("a").info.damaged, 0U);
}

// With so many writers there is hardly an instant at which nobody uses the handle.
TEST_F(SkeinThreads, ManyWritersOnOneHandleFollowEveryNewFile) {
    constexpr int rounds = sanitized ? 4 : 8;
    const uint64_t shared = open_or_fail("a", 256, 256 * 128);
    start(8, [&](int writer) {
        for (int number = 0; !stop_; ++number) {
            EXPECT_EQ(_skein_str(shared, 0, text_of(writer, number).c_str()), 0);
        }
    });
    for (int round = 0; round < rounds; ++round) {
        EXPECT_EQ(skein_delete("a"), 0);
        EXPECT_EQ(skein_close(open_or_fail("a", 256, 256 * 128)), 0);
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (read_trace("a").info.next_ticket == 0 && std::chrono::steady_clock::now() < end) {
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        EXPECT_GT(read_trace("a").info.next_ticket, 0U) << round;
    }
    stop_ = true;
    join();
    EXPECT_EQ(skein_close(shared), 0);
    EXPECT_EQ(mappings_of(directory_.string()), 0U);
}

TEST_F(SkeinThreads, EveryoneChangesOverInTheEnd) {
    const uint64_t shared = open_or_fail("a", 64, 64 * 128);
    EXPECT_EQ(skein_delete("a"), 0);
    const uint64_t next = open_or_fail("a", 1024, 1024 * 128);
    std::this_thread::sleep_for(std::chrono::milliseconds(15));
    start(4, [&](int writer) {
        for (int number = 0; number < 20; ++number) {
            EXPECT_EQ(_skein_str(shared, 0, text_of(writer, number).c_str()), 0);
        }
    });
    join();
    EXPECT_EQ(_skein_str(shared, 0, text_of(9, 0).c_str()), 0);
    const contents read = read_trace("a");
    ASSERT_FALSE(read.entries.empty());
    EXPECT_EQ(read.entries.back().text, text_of(9, 0));
    EXPECT_EQ(skein_close(next), 0);
    EXPECT_EQ(skein_close(shared), 0);
}

}  // namespace
}  // namespace skein_test
