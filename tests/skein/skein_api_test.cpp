// What the calls answer: handles, sizes, attaching, deleting, and what an entry carries.
#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <string>
#include <thread>

#include "trace_files.h"

namespace skein_test {
namespace {

using std::filesystem::file_size;
using testing::ElementsAre;
using testing::IsEmpty;

uint64_t nanoseconds_now() {
    return static_cast<uint64_t>(
        std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::system_clock::now().time_since_epoch())
            .count());
}

class SkeinInit : public trace_files {};
class SkeinClose : public trace_files {};
class SkeinDelete : public trace_files {};
class SkeinStr : public trace_files {};
class SkeinFork : public trace_files {};

TEST_F(SkeinInit, RefusesBadArguments) {
    uint64_t handle = 7;
    EXPECT_EQ(skein_init2(nullptr, 0, 0, 16, 4096, 0, &handle), EINVAL);
    EXPECT_EQ(handle, 0U);
    EXPECT_EQ(skein_init2("a", 0, 0, 16, 4096, 0, nullptr), EINVAL);
    EXPECT_EQ(skein_init2("a", 1, 0, 16, 4096, 0, &handle), EINVAL);
    EXPECT_EQ(skein_init2("a", 0, 1, 16, 4096, 0, &handle), EINVAL);
    EXPECT_EQ(skein_init2("a", 0, 0, 16, 4096, 1, &handle), EINVAL);
    EXPECT_EQ(skein_init2("a", 0, 0, 0, 4096, 0, &handle), EINVAL);
    EXPECT_EQ(skein_init2("a", 0, 0, 0, 0, 0, &handle), EINVAL);
    EXPECT_EQ(skein_init2("a", 0, 0, 16, 0, 0, &handle), EINVAL);
    EXPECT_EQ(skein_init2("a", 0, 0, 16, 16 * 64 - 1, 0, &handle), EINVAL);
    EXPECT_EQ(skein_init2("a", 0, 0, UINT32_MAX, UINT32_MAX, 0, &handle), EINVAL);
    EXPECT_THAT(bytes_of(path("a")), IsEmpty());
    EXPECT_EQ(skein_init2("a", 0, 0, 16, 16 * 64, 0, &handle), 0);
    EXPECT_EQ(skein_close(handle), 0);
}

TEST_F(SkeinInit, MakesAPrivateFileOfTheSlotsAndAHeader) {
    const uint64_t handle = open_or_fail("agent-nyx/processor.trace", 6144, 1572864);
    EXPECT_EQ(file_size(path("agent-nyx/processor.trace")), 4096U + 1572864U);
    struct stat status {};
    ASSERT_EQ(stat(path("agent-nyx/processor.trace").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0600U);
    ASSERT_EQ(stat(path("agent-nyx").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0700U);
    const contents read = read_trace("agent-nyx/processor.trace");
    EXPECT_EQ(read.info.slot_count, 6144U);
    EXPECT_EQ(read.info.slot_size, 256U);
    EXPECT_EQ(read.info.creator, static_cast<uint32_t>(getpid()));
    EXPECT_THAT(read.entries, IsEmpty());
    EXPECT_EQ(skein_close(handle), 0);
}

TEST_F(SkeinInit, RoundsSlotsDownAndNeverTakesMoreThanTheBytes) {
    const uint64_t handle = open_or_fail("odd", 3, 3 * 79 + 2);
    EXPECT_EQ(read_trace("odd").info.slot_size, 72U);
    EXPECT_EQ(file_size(path("odd")), 4096U + 3U * 72U);
    EXPECT_EQ(skein_close(handle), 0);
}

TEST_F(SkeinInit, AttachesToWhatIsThereWhateverTheSizes) {
    const uint64_t first = open_or_fail("a", 16, 16 * 128);
    const uint64_t second = open_or_fail("a", 8, 8 * 256);
    EXPECT_NE(first, second);
    EXPECT_EQ(_skein_str(first, 0, "one"), 0);
    EXPECT_EQ(_skein_str(second, 0, "two"), 0);
    const contents read = read_trace("a");
    EXPECT_THAT(read.texts(), ElementsAre("one", "two"));
    EXPECT_EQ(read.info.slot_size, 128U);
    EXPECT_EQ(read.info.slot_count, 16U);
    EXPECT_EQ(skein_close(first), 0);
    EXPECT_EQ(skein_close(second), 0);
}

TEST_F(SkeinInit, ReopenedFileGoesOnNumbering) {
    uint64_t handle = open_or_fail("a", 16, 4096);
    EXPECT_EQ(_skein_str(handle, 0, "before"), 0);
    EXPECT_EQ(skein_close(handle), 0);
    handle = open_or_fail("a", 16, 4096);
    EXPECT_EQ(_skein_str(handle, 0, "after"), 0);
    EXPECT_EQ(skein_close(handle), 0);
    const contents read = read_trace("a");
    ASSERT_THAT(read.texts(), ElementsAre("before", "after"));
    EXPECT_EQ(read.entries[0].ticket, 0U);
    EXPECT_EQ(read.entries[1].ticket, 1U);
}

TEST_F(SkeinInit, ManyHandlesUntilTheTableIsFull) {
    std::vector<uint64_t> handles;
    uint64_t handle = 0;
    int32_t error = 0;
    while ((error = open_trace("a", 1, 64, &handle)) == 0) {
        handles.push_back(handle);
    }
    EXPECT_EQ(error, EMFILE);
    EXPECT_EQ(handle, 0U);
    EXPECT_EQ(handles.size(), 16384U);
    EXPECT_EQ(_skein_str(handles.front(), 0, "first"), 0);
    EXPECT_EQ(_skein_str(handles.back(), 0, "last"), 0);
    for (const uint64_t each : handles) {
        ASSERT_EQ(skein_close(each), 0);
    }
    EXPECT_THAT(read_trace("a").texts(), ElementsAre("last"));
}

TEST_F(SkeinClose, MakesTheHandleStaleForGood) {
    const uint64_t handle = open_or_fail("a", 16, 4096);
    EXPECT_EQ(skein_close(handle), 0);
    EXPECT_EQ(skein_close(handle), EBADF);
    EXPECT_EQ(_skein_str(handle, 0, "x"), EBADF);
    const uint64_t next = open_or_fail("a", 16, 4096);
    EXPECT_NE(next, handle);
    EXPECT_EQ(_skein_str(handle, 0, "x"), EBADF);
    EXPECT_EQ(skein_close(handle), EBADF);
    EXPECT_EQ(_skein_str(next, 0, "y"), 0);
    EXPECT_EQ(skein_close(next), 0);
    EXPECT_THAT(read_trace("a").texts(), ElementsAre("y"));
}

TEST_F(SkeinClose, RefusesNumbersThatWereNeverHandles) {
    const uint64_t handle = open_or_fail("a", 16, 4096);
    for (const uint64_t number : {uint64_t{0}, uint64_t{1}, uint64_t{2}, uint64_t{63}, uint64_t{64}, uint64_t{65},
                                  uint64_t{16384}, uint64_t{16385}, uint64_t{0xffffffff}, uint64_t{0x100000000},
                                  UINT64_MAX, handle ^ uint64_t{1} << 63U, handle + 1, handle + 64, handle + 16384}) {
        EXPECT_EQ(skein_close(number), EBADF) << number;
        EXPECT_EQ(_skein_str(number, 0, "x"), EBADF) << number;
    }
    EXPECT_EQ(_skein_str(handle, 0, "y"), 0);
    EXPECT_EQ(skein_close(handle), 0);
}

TEST_F(SkeinDelete, AnswersWhetherThereWasAFile) {
    EXPECT_EQ(skein_delete("a"), ENOENT);
    EXPECT_EQ(skein_delete("no/such/directory"), ENOENT);
    EXPECT_EQ(skein_delete(nullptr), EINVAL);
    EXPECT_EQ(skein_delete("../a"), EINVAL);
    EXPECT_EQ(skein_close(open_or_fail("d/a", 16, 4096)), 0);
    EXPECT_EQ(skein_delete("d/a"), 0);
    EXPECT_EQ(skein_delete("d/a"), ENOENT);
    EXPECT_EQ(read_trace("d/a").error, ENOENT);
    EXPECT_EQ(skein_delete("d"), EISDIR);
}

TEST_F(SkeinDelete, RemovesADamagedFileUnchanged) {
    write_bytes(path("a"), "not a trace file");
    std::filesystem::create_hard_link(path("a"), path("b"));
    EXPECT_EQ(skein_delete("a"), 0);
    EXPECT_EQ(bytes_of(path("b")), "not a trace file");
}

TEST_F(SkeinDelete, OtherHandlesChangeOverToTheNewFile) {
    const uint64_t other = open_or_fail("a", 16, 4096);
    uint64_t own = open_or_fail("a", 16, 4096);
    EXPECT_EQ(_skein_str(other, 0, "old"), 0);
    EXPECT_EQ(skein_close(own), 0);
    EXPECT_EQ(skein_delete("a"), 0);
    own = open_or_fail("a", 16, 4096);
    EXPECT_EQ(_skein_str(other, 0, "new 1"), 0);
    EXPECT_EQ(_skein_str(own, 0, "new 2"), 0);
    EXPECT_EQ(_skein_str(other, 0, "new 3"), 0);
    EXPECT_THAT(read_trace("a").texts(), ElementsAre("new 1", "new 2", "new 3"));
    EXPECT_EQ(skein_close(own), 0);
    EXPECT_EQ(skein_close(other), 0);
}

TEST_F(SkeinDelete, OtherHandlesChangeOverTimeAndAgain) {
    const uint64_t other = open_or_fail("a", 16, 4096);
    for (int round = 0; round < 5; ++round) {
        EXPECT_EQ(skein_delete("a"), 0);
        const uint64_t own = open_or_fail("a", 16, 4096);
        // A handle looks for a successor at most every 10 ms.
        std::this_thread::sleep_for(std::chrono::milliseconds(15));
        EXPECT_EQ(_skein_str(other, 0, std::to_string(round).c_str()), 0);
        EXPECT_THAT(read_trace("a").texts(), ElementsAre(std::to_string(round)));
        EXPECT_EQ(skein_close(own), 0);
    }
    EXPECT_EQ(skein_close(other), 0);
}

TEST_F(SkeinDelete, WritersWithoutANewFileKeepTheRemovedOne) {
    const uint64_t handle = open_or_fail("a", 16, 4096);
    std::filesystem::create_hard_link(path("a"), path("kept"));
    EXPECT_EQ(skein_delete("a"), 0);
    EXPECT_EQ(_skein_str(handle, 0, "late"), 0);
    const contents read = read_trace("kept");
    EXPECT_THAT(read.texts(), ElementsAre("late"));
    EXPECT_EQ(read.info.superseded, 1U);
    EXPECT_EQ(skein_close(handle), 0);
    EXPECT_FALSE(std::filesystem::exists(path("a")));
}

TEST_F(SkeinDelete, WritersOfADamagedFileChangeOverToo) {
    const uint64_t handle = open_or_fail("a", 16, 4096);
    {
        std::fstream file(path("a"), std::ios::binary | std::ios::in | std::ios::out);
        file.seekp(8) << '\xff';  // not a version that there is
    }
    EXPECT_EQ(skein_delete("a"), 0);
    const uint64_t next = open_or_fail("a", 16, 4096);
    EXPECT_EQ(_skein_str(handle, 0, "x"), 0);
    EXPECT_THAT(read_trace("a").texts(), ElementsAre("x"));
    EXPECT_EQ(skein_close(handle), 0);
    EXPECT_EQ(skein_close(next), 0);
}

TEST_F(SkeinDelete, AFileThatWasMarkedButKeptItsNameIsReplaced) {
    const uint64_t handle = open_or_fail("a", 16, 4096);
    EXPECT_EQ(_skein_str(handle, 0, "old"), 0);
    std::string bytes = bytes_of(path("a"));
    bytes[136] = 1;  // somebody was killed between marking and removing
    write_bytes(path("a"), bytes);
    const uint64_t next = open_or_fail("a", 16, 4096);
    EXPECT_THAT(read_trace("a").texts(), IsEmpty());
    EXPECT_FALSE(std::filesystem::exists(path("a.damaged")));
    EXPECT_EQ(skein_close(handle), 0);
    EXPECT_EQ(skein_close(next), 0);
}

TEST_F(SkeinStr, CarriesTimeNumbersAndAttributes) {
    const uint64_t handle = open_or_fail("a", 16, 4096);
    const uint64_t before = nanoseconds_now();
    EXPECT_EQ(_skein_str(handle, 0x0000010101000000, "main"), 0);
    pid_t tid = 0;
    std::thread([&] {
        tid = gettid();
        EXPECT_EQ(_skein_str(handle, UINT64_MAX, "thread"), 0);
    }).join();
    const uint64_t after = nanoseconds_now();
    const contents read = read_trace("a");
    ASSERT_THAT(read.texts(), ElementsAre("main", "thread"));
    for (const entry &each : read.entries) {
        EXPECT_GE(each.time, before);
        EXPECT_LE(each.time, after);
        EXPECT_EQ(each.pid, static_cast<uint32_t>(getpid()));
    }
    EXPECT_LE(read.entries[0].time, read.entries[1].time);
    EXPECT_EQ(read.entries[0].tid, static_cast<uint32_t>(gettid()));
    EXPECT_EQ(read.entries[1].tid, static_cast<uint32_t>(tid));
    EXPECT_EQ(read.entries[0].attributes, 0x0000010101000000U);
    EXPECT_EQ(read.entries[1].attributes, UINT64_MAX);
    EXPECT_EQ(skein_close(handle), 0);
}

TEST_F(SkeinStr, RefusesNull) {
    const uint64_t handle = open_or_fail("a", 16, 4096);
    EXPECT_EQ(_skein_str(handle, 0, nullptr), EINVAL);
    EXPECT_THAT(read_trace("a").entries, IsEmpty());
    EXPECT_EQ(skein_close(handle), 0);
}

TEST_F(SkeinStr, LeavesErrnoAlone) {
    const uint64_t handle = open_or_fail("a", 16, 4096);
    EXPECT_EQ(skein_delete("a"), 0);
    std::thread([&] {  // whose first write finds out who it is, and looks for a successor in vain
        errno = ERANGE;
        EXPECT_EQ(_skein_str(handle, 0, "x"), 0);
        EXPECT_EQ(errno, ERANGE);
    })
        .join();
    EXPECT_EQ(skein_close(handle), 0);
}

TEST_F(SkeinFork, HandlesWorkInTheChildUnderItsOwnNumber) {
    const uint64_t handle = open_or_fail("a", 16, 4096);
    EXPECT_EQ(_skein_str(handle, 0, "parent"), 0);
    const pid_t child = fork();
    if (child == 0) {
        const int32_t error = _skein_str(handle, 0, "child");
        _exit(error == 0 && skein_close(handle) == 0 && _skein_str(handle, 0, "x") == EBADF ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(_skein_str(handle, 0, "parent again"), 0);
    const contents read = read_trace("a");
    ASSERT_THAT(read.texts(), ElementsAre("parent", "child", "parent again"));
    EXPECT_EQ(read.entries[0].pid, static_cast<uint32_t>(getpid()));
    EXPECT_EQ(read.entries[1].pid, static_cast<uint32_t>(child));
    EXPECT_EQ(read.entries[1].tid, static_cast<uint32_t>(child));
    EXPECT_EQ(read.entries[2].pid, static_cast<uint32_t>(getpid()));
    EXPECT_EQ(skein_close(handle), 0);
}

}  // namespace
}  // namespace skein_test
