// Reading a file that changes under the reader's hands, at chosen instants, and how much is read of a hostile one.
#include <gmock/gmock.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <string>
#include <utility>

#include "trace_files.h"
#include "trace_image.h"

namespace {

// Called before the reader's next look at the file, with the number of the look: 0 is the header, 1 the ring.
std::function<void(int)> before_look;
int looks = 0;
uint64_t bytes_read = 0;

// Whether a signal interrupts each look at first.
bool signals_arrive = false;
int interruptions = 0;

}  // namespace

// The library's calls come here first.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name): the C library's names for them are reserved
extern "C" ssize_t pread(int file, void *to, size_t size, off_t offset) {
    static bool was_interrupted = false;
    was_interrupted = signals_arrive && !was_interrupted;
    if (was_interrupted) {
        ++interruptions;
        errno = EINTR;
        return -1;
    }
    if (before_look) {
        before_look(looks++);
    }
    const ssize_t length = syscall(SYS_pread64, file, to, size, offset);
    bytes_read += length > 0 ? static_cast<uint64_t>(length) : 0;
    return length;
}
// NOLINTEND(readability-inconsistent-declaration-parameter-name)

namespace skein_test {
namespace {

using testing::ElementsAre;

constexpr uint32_t slots = 16;
constexpr uint32_t slot_size = 64;
constexpr int ring_look = 1;
const std::string two_slots(40, 't');

class SkeinMovingFile : public trace_files {
  protected:
    ~SkeinMovingFile() override { before_look = nullptr; }

    void append_numbers(int first, int last) {
        for (int number = first; number <= last; ++number) {
            image_.append(std::to_string(number));
        }
    }
    // Reads the image; before the look of this number it becomes what `change` makes of it.
    template <class Change>
    contents read_while(int look, Change change) {
        write_bytes(path("a"), image_.bytes());
        looks = 0;
        before_look = [this, look, change](int present) {
            if (present == look) {
                change();
                write_bytes(path("a"), image_.bytes());
            }
        };
        contents read = read_trace("a");
        before_look = nullptr;
        return read;
    }
    trace_image image_{slots, slot_size};
};

TEST_F(SkeinMovingFile, SignalsDoNotEndALook) {
    append_numbers(0, 5);
    write_bytes(path("a"), image_.bytes());
    signals_arrive = true;
    const contents read = read_trace("a");
    signals_arrive = false;
    EXPECT_EQ(read.error, 0);
    EXPECT_THAT(read.texts(), ElementsAre("0", "1", "2", "3", "4", "5"));
    EXPECT_GE(interruptions, 3);
}

TEST_F(SkeinMovingFile, EntriesDrawnDuringTheCopyAreLeftOut) {
    append_numbers(0, 5);
    // 6 and 7 are drawn meanwhile; of these the copy has only the second.
    const contents read = read_while(ring_look, [&] {
        image_.next_ticket() = 7;
        image_.append("7");
    });
    EXPECT_THAT(read.texts(), ElementsAre("0", "1", "2", "3", "4", "5"));
    EXPECT_EQ(read.info.damaged, 0U);
    EXPECT_EQ(read.info.overrun, 0U);
}

TEST_F(SkeinMovingFile, EntriesThatWritersMayHaveOverwrittenAreLeftOut) {
    append_numbers(0, 19);
    // 20 to 22 are drawn meanwhile: 4 to 6 may be gone, though the copy still has 4 and 6.
    const contents read = read_while(ring_look, [&] {
        image_.put(21, "21");
        image_.next_ticket() = 23;
    });
    EXPECT_THAT(read.texts(), ElementsAre("7", "8", "9", "10", "11", "12", "13", "14", "15", "16", "17", "18", "19"));
    EXPECT_EQ(read.info.overrun, 3U);
    EXPECT_EQ(read.info.damaged, 0U);
}

TEST_F(SkeinMovingFile, ACounterThatMovesAfterTheCopyCountsAsWell) {
    append_numbers(0, 19);
    const contents read = read_while(ring_look + 1, [&] { append_numbers(20, 21); });
    ASSERT_EQ(read.entries.size(), 14U);
    EXPECT_EQ(read.entries.front().text, "6");
    EXPECT_EQ(read.entries.back().text, "19");
    EXPECT_EQ(read.info.overrun, 2U);
}

TEST_F(SkeinMovingFile, AWholeLapDuringTheCopyLeavesNothing) {
    append_numbers(0, 19);
    const contents read = read_while(ring_look + 1, [&] { append_numbers(20, 40); });
    EXPECT_TRUE(read.entries.empty());
    EXPECT_EQ(read.info.overrun, 16U);
    EXPECT_EQ(read.info.damaged, 0U);
}

// The second slot of an entry stands at the ring's beginning and was copied while it was still being written.
TEST_F(SkeinMovingFile, AnEntryThatWasFinishedDuringTheCopyIsFound) {
    append_numbers(0, 14);
    const uint64_t ticket = image_.next_ticket();
    image_.append(two_slots);
    image_.set_busy(ticket + 1, getpid(), token_of(getpid()));
    const contents read = read_while(ring_look + 1, [&] { image_.set_state(ticket + 1, image_further); });
    ASSERT_EQ(read.entries.size(), 15U);
    EXPECT_EQ(read.entries.front().text, "1");
    EXPECT_EQ(read.entries.back().text, two_slots);
    EXPECT_EQ(read.info.damaged, 0U);
    EXPECT_EQ(read.info.unfinished, 0U);
}

class SkeinFileAtRest : public trace_files {
  protected:
    static uint64_t bytes_to_read(const char *name) {
        bytes_read = 0;
        EXPECT_EQ(read_trace(name).error, 0);
        return bytes_read;
    }
    trace_image image_{slots, slot_size};
};

// Its owner drew the ticket of its first slot and was stopped, while somebody else took its second one.
TEST_F(SkeinFileAtRest, AnOldEntryThatIsPartlyOverwrittenIsNotDamage) {
    image_.append(two_slots);
    for (int number = 2; number < 16; ++number) {
        image_.append(std::to_string(number));
    }
    image_.set_busy(17, getpid(), token_of(getpid()));
    image_.next_ticket() = 18;
    write_bytes(path("a"), image_.bytes());
    const contents read = read_trace("a");
    EXPECT_EQ(read.entries.size(), 14U);
    EXPECT_EQ(read.info.damaged, 0U);
    EXPECT_EQ(read.info.unfinished, 1U);
}

// The first ticket, and the token of the writer that is busy. A busy slot holds the low 24 bits of its ticket, below
// the token: none of the two is taken for a part of the other.
class SkeinBusySlot : public trace_files, public testing::WithParamInterface<std::pair<uint64_t, uint64_t>> {};

// 16 is drawn by a writer that sleeps, and 17 has taken the place of 1: with 0 there would be a gap.
TEST_P(SkeinBusySlot, EntriesInFrontOfOneThatIsBeingOverwrittenAreLeftOut) {
    const auto [first, token] = GetParam();
    trace_image image(slots, slot_size);
    image.next_ticket() = first;
    for (int number = 0; number < 16; ++number) {
        image.append(std::to_string(number));
    }
    image.next_ticket() = first + 18;
    image.set_busy(first + 17, getpid(), token);
    write_bytes(path("a"), image.bytes());
    const contents busy = read_trace("a");
    ASSERT_EQ(busy.entries.size(), 14U);
    EXPECT_EQ(busy.entries.front().text, "2");
    image.set_state(first + 17, image_free);
    write_bytes(path("a"), image.bytes());
    const contents given_up = read_trace("a");
    ASSERT_EQ(given_up.entries.size(), 14U);
    EXPECT_EQ(given_up.entries.front().text, "2");
}

INSTANTIATE_TEST_SUITE_P(Words, SkeinBusySlot,
                         testing::Values(std::pair(0x0U, 0x1234U), std::pair(0x0U, 0x1235U),
                                         std::pair(0xfffff0U, 0x1234U), std::pair(0xfffff0U, 0x1235U),
                                         std::pair(0x1000000U, 0x1234U), std::pair(0x1000000U, 0x1235U)));

TEST_F(SkeinFileAtRest, AnEntryThatNobodyCanBeOverwritingIsDamage) {
    image_.append("0");
    image_.append(two_slots);
    for (int number = 3; number < 16; ++number) {
        image_.append(std::to_string(number));
    }
    image_.set_busy(2, getpid(), token_of(getpid()));
    image_.next_ticket() = 17;  // only the slot of 0 is anybody else's by now
    write_bytes(path("a"), image_.bytes());
    EXPECT_EQ(read_trace("a").info.damaged, 1U);
}

// Each slot claims to be the first of the longest entry: looking at all that they claim would take for ever.
TEST_F(SkeinFileAtRest, AHostileFileIsReadAFewTimesAtMost) {
    constexpr uint32_t many = 16384;
    trace_image image(many, slot_size);
    for (uint64_t ticket = 0; ticket < many; ++ticket) {
        image.set_state(ticket, image_first);
        image.slot(ticket)[4] = 65535 | uint64_t{65535} << 32U;
    }
    image.next_ticket() = many;
    write_bytes(path("a"), image.bytes());
    EXPECT_LE(bytes_to_read("a"), 3 * std::filesystem::file_size(path("a")));
    for (uint64_t ticket = 0; ticket < many; ++ticket) {
        image.slot(ticket)[4] = UINT64_MAX;  // lengths that no entry has
    }
    write_bytes(path("a"), image.bytes());
    EXPECT_LE(bytes_to_read("a"), 3 * std::filesystem::file_size(path("a")));
}

}  // namespace
}  // namespace skein_test
