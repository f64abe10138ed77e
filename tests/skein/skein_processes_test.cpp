// Several processes write one file, and are killed while they do.
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <time.h>

#include <atomic>
#include <cerrno>
#include <map>
#include <random>
#include <string>

#include "sanitized.h"
#include "trace_files.h"

namespace skein_test {
namespace {

constexpr uint32_t slot_size = 64;
constexpr uint64_t slots_max = 4;  // of an entry of text_of()

// A number that parent and children share.
class shared_number {
  public:
    shared_number()
        : value_(static_cast<std::atomic<uint64_t> *>(mmap(
              nullptr, sizeof(std::atomic<uint64_t>), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))) {}
    ~shared_number() { munmap(value_, sizeof *value_); }
    shared_number(const shared_number &) = delete;
    shared_number &operator=(const shared_number &) = delete;
    std::atomic<uint64_t> &operator*() { return *value_; }

  private:
    std::atomic<uint64_t> *value_;
};

// "WRITER NUMBER " and then as many letters as follow from the two: 0 to 149, so that entries take one to four slots.
std::string text_of(uint64_t writer, uint64_t number) {
    return std::to_string(writer) + ' ' + std::to_string(number) + ' ' +
           std::string((number * 37 + writer) % 150, static_cast<char>('a' + (number + writer) % 26));
}

uint64_t slots_of(const std::string &text) {
    return text.size() <= slot_size - 48 ? 1 : 1 + (text.size() - (slot_size - 48) + slot_size - 9) / (slot_size - 8);
}

struct numbered {
    uint64_t writer;
    uint64_t number;
};

// Fails if the text is not, byte for byte, one that a writer wrote.
numbered parse(const std::string &text) {
    numbered result{};
    std::size_t end = 0;
    result.writer = std::stoull(text, &end);
    result.number = std::stoull(text.substr(end), &end);
    EXPECT_EQ(text, text_of(result.writer, result.number));
    return result;
}

// The numbers of each writer, which must follow one another without a gap.
std::map<uint64_t, std::vector<uint64_t>> numbers_of(const contents &read) {
    std::map<uint64_t, std::vector<uint64_t>> all;
    for (const entry &each : read.entries) {
        const numbered parsed = parse(each.text);
        std::vector<uint64_t> &numbers = all[parsed.writer];
        EXPECT_TRUE(numbers.empty() || numbers.back() + 1 == parsed.number)
            << parsed.writer << ": " << parsed.number << " after " << numbers.back();
        numbers.push_back(parsed.number);
    }
    return all;
}

void sleep_microseconds(long count) {
    const timespec time{0, count * 1000};
    nanosleep(&time, nullptr);
}

// Tickets without an entry are those of one killed writer each, which had drawn those of an entry, after its last
// entry. The oldest entry is gone only for want of slots: one that is half overwritten, or a gap, may stand before it.
void expect_no_other_gaps(const contents &read, uint64_t slots) {
    uint64_t next = read.info.next_ticket > slots ? read.info.next_ticket - slots : 0;
    uint64_t allowed = next == 0 ? slots_max : 2 * slots_max - 1;
    uint64_t writer = 0;
    for (const entry &each : read.entries) {
        const uint64_t present = parse(each.text).writer;
        if (each.ticket > next) {
            EXPECT_LE(each.ticket - next, allowed) << each.text;
            EXPECT_TRUE(present != writer || writer == 0) << each.text;  // 0 writes once after each of the others
        }
        next = each.ticket + slots_of(each.text);
        allowed = slots_max;
        writer = present;
    }
    EXPECT_LE(read.info.next_ticket - next, slots_max);
}

class SkeinKill : public trace_files {
  protected:
    // Writes until it is killed; tells by `acknowledged` how many calls have returned.
    [[noreturn]] static void write_for_ever(uint64_t handle, uint64_t writer, std::atomic<uint64_t> &acknowledged) {
        for (uint64_t number = 0;; ++number) {
            if (_skein_str(handle, 0, text_of(writer, number).c_str()) != 0) {
                _exit(1);
            }
            acknowledged.store(number + 1);
        }
    }
};

TEST_F(SkeinKill, CostsAtMostTheEntryUnderWay) {
    constexpr uint32_t slots = 512;
    constexpr uint64_t writers = sanitized ? 150 : 1000;
    const uint64_t handle = open_or_fail("a", slots, slots * slot_size);
    std::mt19937_64 random(7);
    uint64_t unfinished = 0;
    uint64_t written = 0;
    for (uint64_t writer = 1; writer <= writers; ++writer) {
        shared_number acknowledged;
        const pid_t child = fork();
        if (child == 0) {
            write_for_ever(handle, writer, *acknowledged);
        }
        while (writer % 4 != 0 && *acknowledged == 0) {
            sleep_microseconds(1);
        }
        sleep_microseconds(static_cast<long>(random() % 100));
        ASSERT_EQ(kill(child, SIGKILL), 0);
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFSIGNALED(status)) << "a write failed";

        contents read = read_trace("a");
        ASSERT_EQ(read.error, 0);
        ASSERT_EQ(read.info.damaged, 0U);
        ASSERT_EQ(read.info.lost, 0U);
        unfinished += read.info.unfinished;
        written += *acknowledged;
        const std::vector<uint64_t> numbers = numbers_of(read)[writer];
        // The last call may have done its work without having returned.
        if (*acknowledged > 0 || !numbers.empty()) {
            ASSERT_FALSE(numbers.empty());
            ASSERT_GE(numbers.back() + 1, *acknowledged);
            ASSERT_LE(numbers.back(), *acknowledged);
        }
        expect_no_other_gaps(read, slots);

        const std::string next = text_of(0, writer);
        ASSERT_EQ(_skein_str(handle, 0, next.c_str()), 0);
        read = read_trace("a");
        ASSERT_EQ(read.info.damaged, 0U);
        ASSERT_EQ(read.entries.back().text, next);
    }
    RecordProperty("entries", std::to_string(written));
    RecordProperty("killed_in_mid_write", std::to_string(unfinished));
    EXPECT_GT(written, writers);
    EXPECT_EQ(skein_close(handle), 0);
}

class SkeinProcesses : public trace_files {
  protected:
    static constexpr uint64_t writers = 4;

    // Lets all writers begin at once; each opens the file itself.
    static void write_at_once(uint64_t entries, uint32_t slots) {
        shared_number ready;
        std::vector<pid_t> children;
        for (uint64_t writer = 1; writer <= writers; ++writer) {
            const pid_t child = fork();
            if (child == 0) {
                _exit(write_entries(writer, entries, slots, *ready));
            }
            children.push_back(child);
        }
        for (const pid_t child : children) {
            int status = -1;
            EXPECT_EQ(waitpid(child, &status, 0), child);
            EXPECT_EQ(status, 0);
        }
    }

  private:
    static int write_entries(uint64_t writer, uint64_t entries, uint32_t slots, std::atomic<uint64_t> &ready) {
        ++ready;
        while (ready != writers) {
            sched_yield();
        }
        uint64_t handle = 0;
        int32_t error = open_trace("a", slots, slots * slot_size, &handle);
        for (uint64_t number = 0; error == 0 && number < entries; ++number) {
            error = _skein_str(handle, writer, text_of(writer, number).c_str());
        }
        return error == 0 ? skein_close(handle) : error;
    }
};

TEST_F(SkeinProcesses, LoseAndTearNothing) {
    constexpr uint64_t entries = 5000;
    write_at_once(entries, 65536);
    const contents read = read_trace("a");
    ASSERT_EQ(read.error, 0);
    EXPECT_EQ(read.info.damaged + read.info.unfinished + read.info.lost, 0U);
    const auto numbers = numbers_of(read);
    ASSERT_EQ(numbers.size(), writers);
    for (const auto &[writer, each] : numbers) {
        EXPECT_EQ(each.size(), entries) << writer;
    }
}

TEST_F(SkeinProcesses, KeepTheNewestOfASmallRing) {
    constexpr uint64_t entries = sanitized ? 3000 : 30000;
    constexpr uint32_t slots = 64;
    write_at_once(entries, slots);
    const contents read = read_trace("a");
    ASSERT_EQ(read.error, 0);
    EXPECT_EQ(read.info.damaged + read.info.unfinished + read.info.lost, 0U);
    ASSERT_FALSE(read.entries.empty());
    uint64_t newest_of_one = 0;
    for (const auto &[writer, numbers] : numbers_of(read)) {
        EXPECT_EQ(numbers.back(), entries - 1) << writer;
        ++newest_of_one;
    }
    EXPECT_GE(newest_of_one, 1U);
    EXPECT_GE(read.entries.back().ticket, entries * writers);
}

TEST_F(SkeinProcesses, EndUpInOneFile) {
    for (int round = 0; round < 50; ++round) {
        write_at_once(3, 256);
        ASSERT_EQ(read_trace("a").entries.size(), 3 * writers);
        ASSERT_EQ(skein_delete("a"), 0);
        ASSERT_TRUE(std::filesystem::is_empty(directory_));
    }
}

}  // namespace
}  // namespace skein_test
