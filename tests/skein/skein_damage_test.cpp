// Files that are not as a living writer leaves them: cut short by a kill between any two steps, damaged, or hostile.
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <cerrno>
#include <random>
#include <string>

#include "sanitized.h"
#include "trace_files.h"
#include "trace_image.h"

namespace skein_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr uint32_t slots = 16;
constexpr uint32_t slot_size = 64;

// A child that ended, whether it was waited for or is a zombie, or that sleeps.
class child_process {
  public:
    enum kind { reaped, zombie, asleep };
    explicit child_process(kind which) : pid_(fork()) {
        if (pid_ == 0) {
            if (which == asleep) {
                pause();  // until it is killed
            }
            _exit(0);
        }
        token_ = token_of(pid_);
        siginfo_t info{};
        if (which != asleep) {
            EXPECT_EQ(waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | (which == zombie ? WNOWAIT : 0)), 0);
        }
        waiting_ = which != reaped;
    }
    ~child_process() { end(); }
    child_process(const child_process &) = delete;
    child_process &operator=(const child_process &) = delete;
    void end() {
        if (waiting_) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
            waiting_ = false;
        }
    }
    [[nodiscard]] pid_t pid() const { return pid_; }
    [[nodiscard]] uint64_t token() const { return token_; }

  private:
    pid_t pid_;
    uint64_t token_ = 0;
    bool waiting_ = false;
};

class SkeinKilledWriter : public trace_files {
  protected:
    SkeinKilledWriter() {
        image_.append("one");
        image_.append("two takes more than one of the slots");
        tickets_ = image_.next_ticket();
    }
    // What reads back, and that a whole lap of new entries then finds its way.
    void expect_recovered(uint64_t unfinished) {
        write_bytes(path("a"), image_.bytes());
        contents read = read_trace("a");
        EXPECT_THAT(read.texts(), ElementsAre("one", "two takes more than one of the slots"));
        EXPECT_EQ(read.info.unfinished, unfinished);
        EXPECT_EQ(read.info.damaged, 0U);

        const uint64_t handle = open_or_fail("a", slots, slots * slot_size);
        std::vector<std::string> expected = {"one", "two takes more than one of the slots"};
        for (int number = 0; number < 3; ++number) {
            expected.push_back("next " + std::to_string(number));
            EXPECT_EQ(_skein_str(handle, 0, expected.back().c_str()), 0);
            EXPECT_EQ(read_trace("a").texts(), expected);
        }
        expected.clear();
        for (uint32_t number = 0; number < slots; ++number) {
            expected.push_back("lap " + std::to_string(number));
            EXPECT_EQ(_skein_str(handle, 0, expected.back().c_str()), 0);
        }
        read = read_trace("a");
        EXPECT_EQ(read.texts(), expected);
        EXPECT_EQ(read.info.unfinished, 0U);
        EXPECT_EQ(read.info.lost, 0U);
        EXPECT_EQ(skein_close(handle), 0);
    }

    trace_image image_{slots, slot_size};
    uint64_t tickets_ = 0;
    child_process dead_{child_process::reaped};
};

TEST_F(SkeinKilledWriter, TheImageIsWhatTheLibraryReads) {
    expect_recovered(0);
}

TEST_F(SkeinKilledWriter, AfterItDrewTickets) {
    image_.next_ticket() += 3;
    expect_recovered(0);
}

TEST_F(SkeinKilledWriter, AfterItMarkedASlot) {
    image_.next_ticket() += 1;
    image_.set_busy(tickets_, dead_.pid(), dead_.token());
    expect_recovered(1);
}

TEST_F(SkeinKilledWriter, AfterItMarkedSomeOfItsSlots) {
    image_.next_ticket() += 3;
    image_.set_busy(tickets_, dead_.pid(), dead_.token());
    image_.set_busy(tickets_ + 1, dead_.pid(), dead_.token());
    expect_recovered(2);
}

TEST_F(SkeinKilledWriter, AfterItWroteSomeWords) {
    image_.next_ticket() +=
        image_.put(tickets_, "this entry is on three of the slots, as long as they are, and it is of some length");
    for (uint64_t ticket = tickets_; ticket < image_.next_ticket(); ++ticket) {
        image_.set_busy(ticket, dead_.pid(), dead_.token());
    }
    image_.slot(tickets_)[5] = 0;
    expect_recovered(image_.next_ticket() - tickets_);
}

TEST_F(SkeinKilledWriter, AfterItPublishedFurtherSlots) {
    image_.next_ticket() +=
        image_.put(tickets_, "this entry is on three of the slots, as long as they are, and it is of some length");
    image_.set_busy(tickets_, dead_.pid(), dead_.token());
    expect_recovered(1);
}

TEST_F(SkeinKilledWriter, AfterItPublishedSomeFurtherSlots) {
    image_.next_ticket() +=
        image_.put(tickets_, "this entry is on three of the slots, as long as they are, and it is of some length");
    image_.set_busy(tickets_, dead_.pid(), dead_.token());
    image_.set_busy(tickets_ + 2, dead_.pid(), dead_.token());
    expect_recovered(2);
}

TEST_F(SkeinKilledWriter, AfterItGaveSlotsBack) {
    image_.next_ticket() += 3;
    image_.set_state(tickets_, image_free);
    image_.set_state(tickets_ + 1, image_free);
    image_.set_busy(tickets_ + 2, dead_.pid(), dead_.token());
    expect_recovered(1);
}

TEST_F(SkeinKilledWriter, WhenNobodyHasWaitedForItYet) {
    const child_process zombie(child_process::zombie);
    image_.next_ticket() += 1;
    image_.set_busy(tickets_, zombie.pid(), zombie.token());
    expect_recovered(1);
}

TEST_F(SkeinKilledWriter, WhenAnotherProcessHasItsNumberNow) {
    image_.next_ticket() += 2;
    image_.set_busy(tickets_, getpid(), token_of(getpid()) ^ 1U);
    const child_process other(child_process::asleep);
    image_.set_busy(tickets_ + 1, other.pid(), other.token() ^ 1U);
    expect_recovered(2);
}

TEST_F(SkeinKilledWriter, WhenItsMarkIsNobodys) {
    image_.next_ticket() += 2;
    image_.set_busy(tickets_, 0, 0);
    image_.set_busy(tickets_ + 1, 0x3fffff, 0xffff);
    expect_recovered(2);
}

class SkeinSleepingWriter : public trace_files {};

TEST_F(SkeinSleepingWriter, ItsSlotsAreLeftToItUntilItEnds) {
    child_process other(child_process::asleep);
    trace_image image(slots, slot_size);
    image.append("one");
    image.set_busy(1, other.pid(), other.token());
    image.set_busy(2, other.pid(), 0);  // of a process that could not learn its start time
    image.set_busy(3, getpid(), token_of(getpid()));
    image.next_ticket() = 4;
    write_bytes(path("a"), image.bytes());
    const std::string before = bytes_of(path("a")).substr(4096 + 64, 192);
    const uint64_t handle = open_or_fail("a", slots, slots * slot_size);
    const std::string two_slots(30, '2');
    for (int number = 0; number < 50; ++number) {
        ASSERT_EQ(_skein_str(handle, 0, std::to_string(number).c_str()), 0);
        ASSERT_EQ(_skein_str(handle, 0, two_slots.c_str()), 0);
        const contents read = read_trace("a");
        ASSERT_EQ(read.info.damaged, 0U);
        ASSERT_GE(read.entries.size(), number == 0 ? 3U : 4U);
        ASSERT_EQ(read.entries[read.entries.size() - 1].text, two_slots);
        ASSERT_EQ(read.entries[read.entries.size() - 2].text, std::to_string(number));
    }
    EXPECT_EQ(bytes_of(path("a")).substr(4096 + 64, 192), before);
    EXPECT_EQ(read_trace("a").info.unfinished, 3U);
    other.end();
    for (uint32_t number = 0; number < 3 * slots; ++number) {
        EXPECT_EQ(_skein_str(handle, 0, "x"), 0);
    }
    const contents read = read_trace("a");
    EXPECT_EQ(read.info.unfinished, 1U);
    EXPECT_EQ(read.info.lost, 0U);
    EXPECT_EQ(skein_close(handle), 0);
}

TEST_F(SkeinSleepingWriter, ARingThatIsAllItsOwnGivesBusyAndCountsTheLoss) {
    const child_process other(child_process::asleep);
    trace_image image(2, slot_size);
    image.set_busy(0, other.pid(), other.token());
    image.set_busy(1, other.pid(), other.token());
    image.next_ticket() = 2;
    write_bytes(path("a"), image.bytes());
    const uint64_t handle = open_or_fail("a", 2, 2 * slot_size);
    EXPECT_EQ(_skein_str(handle, 0, "x"), EBUSY);
    EXPECT_EQ(_skein_str(handle, 0, "y"), EBUSY);
    const contents read = read_trace("a");
    EXPECT_EQ(read.info.lost, 2U);
    EXPECT_EQ(read.info.unfinished, 2U);
    EXPECT_THAT(read.entries, IsEmpty());
    EXPECT_EQ(skein_close(handle), 0);
}

class SkeinDamage : public trace_files {
  protected:
    SkeinDamage() {
        // Entries of one to four slots; ticket by ticket the number of the entry, for those that hold text.
        for (const std::size_t length : {3U, 16U, 17U, 72U, 0U, 100U, 128U, 8U}) {
            texts_.emplace_back(length, static_cast<char>('a' + texts_.size()));
            const uint64_t ticket = image_.next_ticket();
            image_.append(texts_.back());
            owner_.resize(image_.next_ticket(), texts_.size() - 1);
            EXPECT_GT(image_.next_ticket(), ticket);
        }
    }
    trace_image image_{slots, slot_size};
    std::vector<std::string> texts_;
    std::vector<std::size_t> owner_;
};

TEST_F(SkeinDamage, OfTheFixedHeaderIsFoundAndTheFileMovedAside) {
    const std::string sound = image_.bytes();
    for (std::size_t offset = 0; offset < 56; ++offset) {
        for (const int mask : {0x01, 0x80, 0xff}) {
            std::string damaged = sound;
            damaged[offset] = static_cast<char>(damaged[offset] ^ mask);
            write_bytes(path("a"), damaged);
            ASSERT_EQ(read_trace("a").error, EBADMSG) << offset;
            const uint64_t handle = open_or_fail("a", slots, slots * slot_size);
            ASSERT_EQ(_skein_str(handle, 0, "new"), 0);
            ASSERT_EQ(skein_close(handle), 0);
            ASSERT_THAT(read_trace("a").texts(), ElementsAre("new"));
            if (offset >= 8) {
                damaged[136] = 1;  // it begins like a trace file: its writers are told that it is one no more
            }
            ASSERT_EQ(bytes_of(path("a.damaged")), damaged) << offset;
            ASSERT_EQ(skein_delete("a"), 0);
        }
    }
}

TEST_F(SkeinDamage, OfTheChangingHeaderHidesNoEntries) {
    const std::string sound = image_.bytes();
    for (std::size_t offset = 56; offset < 4096; offset += offset < 300 ? 1 : 97) {
        for (const int mask : {0x01, 0x10, 0x80, 0xff}) {
            std::string damaged = sound;
            damaged[offset] = static_cast<char>(damaged[offset] ^ mask);
            write_bytes(path("a"), damaged);
            ASSERT_EQ(read_trace("a").texts(), texts_) << offset << ' ' << mask;
            const uint64_t handle = open_or_fail("a", slots, slots * slot_size);
            ASSERT_EQ(_skein_str(handle, 0, "new"), 0);
            ASSERT_EQ(skein_close(handle), 0);
            ASSERT_EQ(read_trace("a").entries.back().text, "new") << offset << ' ' << mask;
            ASSERT_EQ(skein_delete("a"), 0);
        }
    }
}

TEST_F(SkeinDamage, OfASlotCostsItsEntryOnly) {
    const std::string sound = image_.bytes();
    write_bytes(path("a"), sound);
    ASSERT_EQ(read_trace("a").texts(), texts_);
    for (std::size_t offset = 4096; offset < sound.size(); ++offset) {
        const std::size_t ticket = (offset - 4096) / slot_size;
        for (const int mask : {0x01, 0x40, 0x80, 0xc0, 0xff}) {
            std::string damaged = sound;
            damaged[offset] = static_cast<char>(damaged[offset] ^ mask);
            write_bytes(path("a"), damaged);
            std::vector<std::string> without = texts_;
            if (ticket < owner_.size()) {
                without.erase(without.begin() + static_cast<std::ptrdiff_t>(owner_[ticket]));
            }
            const std::vector<std::string> read = read_trace("a").texts();
            ASSERT_TRUE(read == texts_ || read == without) << offset << ' ' << mask;

            const uint64_t handle = open_or_fail("a", slots, slots * slot_size);
            for (uint32_t number = 0; number < slots + 1; ++number) {
                ASSERT_EQ(_skein_str(handle, 0, "new"), 0) << offset << ' ' << mask;
                ASSERT_EQ(read_trace("a").entries.back().text, "new") << offset << ' ' << mask;
            }
            ASSERT_EQ(skein_close(handle), 0);
            ASSERT_EQ(read_trace("a").texts(), std::vector<std::string>(slots, "new")) << offset << ' ' << mask;
            ASSERT_EQ(skein_delete("a"), 0);
        }
    }
}

TEST_F(SkeinDamage, OfTextIsCounted) {
    image_.slot(0)[6] ^= 1;
    write_bytes(path("a"), image_.bytes());
    const contents read = read_trace("a");
    EXPECT_EQ(read.info.damaged, 1U);
    EXPECT_EQ(read.entries.size(), texts_.size() - 1);
}

TEST_F(SkeinDamage, AFileOfAnyLengthIsReadAsFarAsItGoes) {
    const std::string sound = image_.bytes();
    for (std::size_t length = 0; length < sound.size(); length += 13) {
        write_bytes(path("a"), sound.substr(0, length));
        const contents read = read_trace("a");
        // The part of the header that changes counts as well.
        ASSERT_EQ(read.error, length < 264 ? EBADMSG : 0) << length;
        ASSERT_LE(read.entries.size(), texts_.size());
        for (std::size_t k = 0; k < read.entries.size(); ++k) {
            ASSERT_EQ(read.entries[k].text, texts_[k]);
        }
        if (read.error == 0) {
            ASSERT_EQ(read.info.truncated, 1U);
        }
        const uint64_t handle = open_or_fail("a", slots, slots * slot_size);
        ASSERT_EQ(_skein_str(handle, 0, "new"), 0);
        ASSERT_EQ(skein_close(handle), 0);
        ASSERT_THAT(read_trace("a").texts(), ElementsAre("new"));
        ASSERT_EQ(skein_delete("a"), 0);
    }
}

long page_faults() {
    rusage usage{};
    EXPECT_EQ(getrusage(RUSAGE_SELF, &usage), 0);
    return usage.ru_minflt;
}

TEST_F(SkeinDamage, SizesThatDoNotFitAreRefusedEvenWithARightSum) {
    for (const uint64_t sizes :
         {uint64_t{0}, uint64_t{64}, uint64_t{16} << 32U, uint64_t{63} | uint64_t{16} << 32U,
          uint64_t{56} | uint64_t{16} << 32U, uint64_t{68} | uint64_t{8} << 32U,
          uint64_t{0xfffffff8} | uint64_t{0xffffffff} << 32U, uint64_t{0x80000000} | uint64_t{2} << 32U}) {
        trace_image image = image_;
        image.word(24) = sizes;
        image.seal();
        write_bytes(path("a"), image.bytes());
        EXPECT_EQ(read_trace("a").error, EBADMSG) << sizes;
    }
    trace_image image = image_;
    image.word(24) = uint64_t{64} | uint64_t{60000000} << 32U;  // sizes that a file can have, but this one has not
    image.seal();
    write_bytes(path("a"), image.bytes());
    const long faults_before = page_faults();
    const contents read = read_trace("a");
    EXPECT_EQ(read.texts(), texts_);
    EXPECT_EQ(read.info.truncated, 1U);
    if (!sanitized) {
        EXPECT_LT(page_faults() - faults_before, 100'000) << "slots that are not there were looked at";
    }
    EXPECT_EQ(skein_close(open_or_fail("a", slots, slots * slot_size)), 0);
    EXPECT_THAT(read_trace("a").texts(), IsEmpty());
}

TEST_F(SkeinDamage, AnotherVersionIsMovedAside) {
    image_.word(8) = 2 | uint64_t{4096} << 32U;
    image_.seal();
    write_bytes(path("a"), image_.bytes());
    EXPECT_EQ(read_trace("a").error, EBADMSG);
    EXPECT_EQ(skein_close(open_or_fail("a", slots, slots * slot_size)), 0);
    image_.word(136) = 1;
    EXPECT_EQ(bytes_of(path("a.damaged")), image_.bytes());
}

TEST_F(SkeinDamage, WhoWritesToTheFileChangesOverWhenItIsMovedAside) {
    const uint64_t handle = open_or_fail("b", slots, slots * slot_size);
    std::fstream file(path("b"), std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(44).put('x').flush();
    EXPECT_EQ(_skein_str(handle, 0, "before"), 0);
    const uint64_t other = open_or_fail("b", slots, slots * slot_size);
    EXPECT_EQ(_skein_str(handle, 0, "after"), 0);
    EXPECT_THAT(read_trace("b").texts(), ElementsAre("after"));
    EXPECT_EQ(skein_close(handle), 0);
    EXPECT_EQ(skein_close(other), 0);
}

TEST_F(SkeinDamage, WhatDoesNotBeginLikeATraceFileIsMovedAsideUnchanged) {
    const std::string text(5000, 'x');
    write_bytes(path("b"), text);
    EXPECT_EQ(skein_close(open_or_fail("b", slots, slots * slot_size)), 0);
    EXPECT_EQ(bytes_of(path("b.damaged")), text);
}

TEST_F(SkeinDamage, RandomSlotsDoNoHarm) {
    std::mt19937_64 random(20240601);
    for (int round = 0; round < 300; ++round) {
        trace_image image(slots, slot_size);
        for (uint64_t ticket = 0; ticket < slots; ++ticket) {
            for (std::size_t k = 0; k < slot_size / 8; ++k) {
                image.slot(ticket)[k] = random();
            }
            if (round % 2 == 0) {  // plausible states, so that what lies behind them is looked at
                image.set_state(ticket + slots * (random() % 3), random() % 2 == 0 ? image_first : image_further);
                image.slot(ticket)[4] = random() % 200 | (random() % 200) << 32U;
            }
        }
        image.next_ticket() = round % 3 == 0 ? random() : uint64_t{slots} * 2;
        write_bytes(path("a"), image.bytes());
        ASSERT_THAT(read_trace("a").entries, IsEmpty());
        const uint64_t handle = open_or_fail("a", slots, slots * slot_size);
        for (uint32_t number = 0; number < slots; ++number) {
            ASSERT_EQ(_skein_str(handle, 0, "new"), 0);
        }
        ASSERT_EQ(skein_close(handle), 0);
        ASSERT_EQ(read_trace("a").entries.back().text, "new");
        ASSERT_EQ(skein_delete("a"), 0);
    }
}

}  // namespace
}  // namespace skein_test
