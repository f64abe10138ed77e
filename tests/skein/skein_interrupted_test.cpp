// Writes that something happens to at a chosen instant: closing, removing and forking while a thread is in mid-write,
// and signal handlers that write.
#include <gmock/gmock.h>
#include <pthread.h>
#include <semaphore.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "trace_files.h"

namespace {

// What the calling thread does instead of going on at the next call of that kind, once.
thread_local std::function<void()> in_clock;
thread_local std::function<void()> in_mapping;
thread_local std::function<void()> in_unmapping;
bool recording = false;
std::vector<void *> unmapped;

void run_once(std::function<void()> &hook) {
    if (hook) {
        std::exchange(hook, nullptr)();
    }
}

}  // namespace

// The library's calls come here first. A writer asks for the time when it has seized its slots and not yet filled them.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name): the C library's names for them are reserved
extern "C" {
int clock_gettime(clockid_t clock, struct timespec *time) noexcept {
    if (clock == CLOCK_REALTIME) {
        run_once(in_clock);
    }
    return static_cast<int>(syscall(SYS_clock_gettime, clock, time));
}
void *mmap(void *at, size_t size, int protection, int flags, int file, off_t offset) noexcept {
    if (file >= 0) {
        run_once(in_mapping);
    }
    // NOLINTNEXTLINE(performance-no-int-to-ptr): system calls give numbers
    return reinterpret_cast<void *>(syscall(SYS_mmap, at, size, protection, flags, file, offset));
}
int munmap(void *at, size_t size) noexcept {
    run_once(in_unmapping);
    if (recording) {
        unmapped.push_back(at);
    }
    return static_cast<int>(syscall(SYS_munmap, at, size));
}
}
// NOLINTEND(readability-inconsistent-declaration-parameter-name)

namespace skein_test {
namespace {

using testing::ElementsAre;

// A handle looks for a successor at most every 10 ms.
void wait_for_the_next_look() {
    std::this_thread::sleep_for(std::chrono::milliseconds(15));
}

// A thread that stands still at a chosen instant, until it is let go.
class stopped_thread {
  public:
    // `hook` is the thread's hook that stops it; `work` is what it does.
    stopped_thread(std::function<void()> &(*hook)(), std::function<void()> work) {
        sem_init(&there_, 0, 0);
        sem_init(&go_, 0, 0);
        thread_ = std::thread([this, hook, work = std::move(work)] {
            hook() = [this] {
                sem_post(&there_);
                sem_wait(&go_);
            };
            work();
        });
        sem_wait(&there_);
    }
    ~stopped_thread() { go(); }
    stopped_thread(const stopped_thread &) = delete;
    stopped_thread &operator=(const stopped_thread &) = delete;
    void go() {
        if (thread_.joinable()) {
            sem_post(&go_);
            thread_.join();
            sem_destroy(&there_);
            sem_destroy(&go_);
        }
    }

  private:
    sem_t there_{};
    sem_t go_{};
    std::thread thread_;
};

class SkeinInterrupted : public trace_files {
  protected:
    static std::function<void()> &clock_hook() { return in_clock; }
    static std::function<void()> &mapping_hook() { return in_mapping; }

    static std::function<void()> writing(uint64_t handle, const char *text) {
        return [handle, text] { EXPECT_EQ(_skein_str(handle, 0, text), 0); };
    }
    // The name gets a new file, which the caller does not open.
    static void clear(const char *name) {
        EXPECT_EQ(skein_delete(name), 0);
        EXPECT_EQ(skein_close(open_or_fail(name, 16, 4096)), 0);
    }
    // Runs `body` in a forked child and returns whether nothing failed in it.
    template <class Body>
    [[nodiscard]] static bool succeeds_in_child(Body body) {
        const pid_t child = fork();
        if (child == 0) {
            body();
            _exit(HasFailure() ? 1 : 0);
        }
        return has_succeeded(child);
    }
    [[nodiscard]] static bool has_succeeded(pid_t child) {
        int status = -1;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        return status == 0;
    }
    // The end of a child that a hook has forked.
    [[noreturn]] void close_and_end(uint64_t handle) const {
        EXPECT_EQ(skein_close(handle), 0);
        EXPECT_EQ(mappings(), 0U);
        _exit(HasFailure() ? 1 : 0);
    }
    [[nodiscard]] std::size_t mappings() const { return mappings_of(directory_.string()); }
};

TEST_F(SkeinInterrupted, AWriterOfTheNewFileDoesNotKeepTheOldOneFromGoing) {
    const uint64_t handle = open_or_fail("a", 16, 4096);
    stopped_thread first(clock_hook, writing(handle, "first"));
    clear("a");
    EXPECT_EQ(_skein_str(handle, 0, "1"), 0);
    EXPECT_EQ(mappings(), 2U);  // one for the stopped writer
    stopped_thread second(clock_hook, writing(handle, "second"));
    first.go();  // at no instant was the handle unused
    EXPECT_EQ(mappings(), 1U);
    clear("a");
    wait_for_the_next_look();
    EXPECT_EQ(_skein_str(handle, 0, "2"), 0);
    EXPECT_THAT(read_trace("a").texts(), ElementsAre("2"));
    second.go();
    EXPECT_EQ(mappings(), 1U);
    EXPECT_EQ(skein_close(handle), 0);
    EXPECT_EQ(mappings(), 0U);
}

TEST_F(SkeinInterrupted, AWriterOfTheOldFileKeepsTheHandleOnTheNewOneUntilItIsDone) {
    const uint64_t handle = open_or_fail("a", 16, 4096);
    stopped_thread writer(clock_hook, writing(handle, "old"));
    clear("a");
    EXPECT_EQ(_skein_str(handle, 0, "1"), 0);
    std::filesystem::create_hard_link(path("a"), path("kept"));
    clear("a");
    wait_for_the_next_look();
    EXPECT_EQ(_skein_str(handle, 0, "2"), 0);
    EXPECT_THAT(read_trace("kept").texts(), ElementsAre("1", "2"));
    writer.go();
    wait_for_the_next_look();
    EXPECT_EQ(_skein_str(handle, 0, "3"), 0);
    EXPECT_THAT(read_trace("a").texts(), ElementsAre("3"));
    EXPECT_EQ(skein_close(handle), 0);
    EXPECT_EQ(mappings(), 0U);
}

TEST_F(SkeinInterrupted, ClosingLeavesTheMappingsToThoseWhoWrite) {
    const uint64_t handle = open_or_fail("a", 16, 4096);
    stopped_thread old(clock_hook, writing(handle, "old"));
    clear("a");
    std::filesystem::create_hard_link(path("a"), path("kept"));
    stopped_thread young(clock_hook, writing(handle, "young"));
    EXPECT_EQ(mappings(), 2U);
    EXPECT_EQ(skein_close(handle), 0);
    EXPECT_EQ(_skein_str(handle, 0, "late"), EBADF);
    EXPECT_EQ(skein_close(handle), EBADF);
    EXPECT_EQ(mappings(), 2U);
    old.go();
    EXPECT_EQ(mappings(), 1U);
    young.go();
    EXPECT_EQ(mappings(), 0U);
    EXPECT_THAT(read_trace("kept").texts(), ElementsAre("young"));
}

TEST_F(SkeinInterrupted, ALateWriteDuringTheUnmappingUnmapsNothing) {
    const uint64_t handle = open_or_fail("a", 16, 4096);
    {
        stopped_thread writer(clock_hook, [handle] {
            EXPECT_EQ(_skein_str(handle, 0, "x"), 0);
            recording = false;
        });
        clear("a");
        EXPECT_EQ(_skein_str(handle, 0, "y"), 0);  // changes over, and leaves the old file to the writer
        EXPECT_EQ(mappings(), 2U);
        unmapped.clear();
        EXPECT_EQ(skein_close(handle), 0);
        recording = true;  // the writer unmaps when it leaves
        writer.go();
    }
    ASSERT_EQ(unmapped.size(), 2U);

    const uint64_t again = open_or_fail("a", 16, 4096);
    stopped_thread writer(clock_hook, [again] {
        in_unmapping = [again] { EXPECT_EQ(_skein_str(again, 0, "late"), EBADF); };
        EXPECT_EQ(_skein_str(again, 0, "x"), 0);
        recording = false;
    });
    clear("a");
    EXPECT_EQ(_skein_str(again, 0, "y"), 0);
    unmapped.clear();
    EXPECT_EQ(skein_close(again), 0);
    recording = true;
    writer.go();
    ASSERT_EQ(unmapped.size(), 2U);
    EXPECT_NE(unmapped[0], unmapped[1]);
    EXPECT_EQ(mappings(), 0U);
}

TEST_F(SkeinInterrupted, ALateWriteDuringTheUnmappingOfARetiredFileWritesToTheNewOne) {
    const uint64_t handle = open_or_fail("a", 16, 4096);
    stopped_thread writer(clock_hook, [handle] {
        in_unmapping = [handle] { EXPECT_EQ(_skein_str(handle, 0, "during"), 0); };
        EXPECT_EQ(_skein_str(handle, 0, "x"), 0);
    });
    clear("a");
    EXPECT_EQ(_skein_str(handle, 0, "before"), 0);
    writer.go();
    EXPECT_EQ(mappings(), 1U);
    EXPECT_THAT(read_trace("a").texts(), ElementsAre("before", "during"));
    EXPECT_EQ(skein_close(handle), 0);
    EXPECT_EQ(mappings(), 0U);
}

TEST_F(SkeinInterrupted, AHandleThatIsClosedDuringTheUnmappingOfARetiredFileIsEmptied) {
    const uint64_t handle = open_or_fail("a", 16, 4096);
    stopped_thread writer(clock_hook, [handle] {
        in_unmapping = [handle] { EXPECT_EQ(skein_close(handle), 0); };
        EXPECT_EQ(_skein_str(handle, 0, "x"), 0);
    });
    clear("a");
    EXPECT_EQ(_skein_str(handle, 0, "y"), 0);
    writer.go();
    EXPECT_EQ(_skein_str(handle, 0, "late"), EBADF);
    EXPECT_EQ(mappings(), 0U);
}

TEST_F(SkeinInterrupted, ClosingWhileTheSuccessorIsMappedLosesNothing) {
    const uint64_t handle = open_or_fail("a", 16, 4096);
    clear("a");
    stopped_thread writer(mapping_hook, writing(handle, "x"));  // stands before the mapping of the new file
    EXPECT_EQ(skein_close(handle), 0);
    EXPECT_EQ(_skein_str(handle, 0, "late"), EBADF);
    writer.go();
    EXPECT_THAT(read_trace("a").texts(), ElementsAre("x"));
    EXPECT_EQ(mappings(), 0U);
}

TEST_F(SkeinInterrupted, MoreWritersThanCanBeCountedAreRefused) {
    constexpr int writers_max = 16383;
    const uint64_t handle = open_or_fail("a", 32768, 32768 * 64);
    struct nesting {
        uint64_t handle;
        int depth;
        int32_t last;
        void write() {
            in_clock = [this] {
                ++depth;
                write();
            };
            const int32_t error = _skein_str(handle, 0, "x");
            if (error != 0) {
                in_clock = nullptr;
                last = error;
            }
        }
    } nested{handle, 0, 0};
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, std::size_t{1} << 30U);
    pthread_t thread{};
    ASSERT_EQ(pthread_create(
                  &thread, &attributes,
                  [](void *all) -> void * {
                      static_cast<nesting *>(all)->write();
                      return nullptr;
                  },
                  &nested),
              0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
    EXPECT_EQ(nested.last, EBUSY);
    EXPECT_EQ(nested.depth, writers_max);
    EXPECT_EQ(read_trace("a").entries.size(), static_cast<std::size_t>(writers_max));
    EXPECT_EQ(_skein_str(handle, 0, "y"), 0);
    EXPECT_EQ(skein_close(handle), 0);
    EXPECT_EQ(mappings(), 0U);
}

TEST_F(SkeinInterrupted, AChildDoesNotWaitForWritersOfItsParent) {
    const uint64_t handle = open_or_fail("a", 16, 4096);
    stopped_thread writer(clock_hook, writing(handle, "x"));
    EXPECT_TRUE(succeeds_in_child([&] {
        for (const char *const text : {"1", "2", "3"}) {
            clear("a");
            wait_for_the_next_look();
            EXPECT_EQ(_skein_str(handle, 0, text), 0);
            EXPECT_THAT(read_trace("a").texts(), ElementsAre(text));
        }
        EXPECT_EQ(skein_close(handle), 0);
        EXPECT_EQ(mappings(), 0U);
    }));
    writer.go();
    EXPECT_EQ(skein_close(handle), 0);
    EXPECT_EQ(mappings(), 0U);
}

TEST_F(SkeinInterrupted, AChildUnmapsAFileThatOnlyItsParentStillWritesTo) {
    const uint64_t handle = open_or_fail("a", 16, 4096);
    stopped_thread writer(clock_hook, writing(handle, "x"));
    clear("a");
    EXPECT_EQ(_skein_str(handle, 0, "y"), 0);
    EXPECT_TRUE(succeeds_in_child([&] {
        EXPECT_EQ(_skein_str(handle, 0, "z"), 0);
        EXPECT_EQ(mappings(), 1U);
        EXPECT_EQ(skein_close(handle), 0);
        EXPECT_EQ(mappings(), 0U);
    }));
    EXPECT_EQ(mappings(), 2U);
    writer.go();
    EXPECT_EQ(skein_close(handle), 0);
}

TEST_F(SkeinInterrupted, AChildTakesOverASlotThatAnotherThreadWasFilling) {
    uint64_t other = 0;
    stopped_thread opener(mapping_hook, [&other] { other = open_or_fail("a", 16, 4096); });
    EXPECT_TRUE(succeeds_in_child([&] {
        const uint64_t handle = open_or_fail("b", 16, 4096);
        EXPECT_EQ(_skein_str(handle, 0, "x"), 0);
        EXPECT_EQ(static_cast<uint32_t>(handle), 1U);  // of the first slot: none was lost
        EXPECT_EQ(skein_close(handle), 0);
    }));
    opener.go();
    EXPECT_EQ(static_cast<uint32_t>(other), 1U);
    EXPECT_EQ(skein_close(other), 0);
}

TEST_F(SkeinInterrupted, AChildEmptiesASlotThatWasClosedWhileAnotherThreadWrote) {
    const uint64_t handle = open_or_fail("a", 16, 4096);
    stopped_thread writer(clock_hook, writing(handle, "x"));
    EXPECT_EQ(skein_close(handle), 0);
    EXPECT_TRUE(succeeds_in_child([&] { EXPECT_EQ(mappings(), 0U); }));
    EXPECT_EQ(mappings(), 1U);
    writer.go();
    EXPECT_EQ(mappings(), 0U);
}

TEST_F(SkeinInterrupted, AChildLooksForASuccessorWhenAnotherThreadWasDoingSo) {
    const uint64_t handle = open_or_fail("a", 16, 4096);
    clear("a");
    stopped_thread writer(mapping_hook, writing(handle, "x"));
    EXPECT_TRUE(succeeds_in_child([&] {
        wait_for_the_next_look();
        EXPECT_EQ(_skein_str(handle, 0, "child"), 0);
        EXPECT_THAT(read_trace("a").texts(), ElementsAre("child"));
        EXPECT_EQ(skein_close(handle), 0);
        EXPECT_EQ(mappings(), 0U);
    }));
    writer.go();
    EXPECT_THAT(read_trace("a").texts(), ElementsAre("child", "x"));
    EXPECT_EQ(skein_close(handle), 0);
}

TEST_F(SkeinInterrupted, AWriteGoesOnInTheChildThatIsForkedInTheMiddleOfIt) {
    const uint64_t handle = open_or_fail("a", 16, 4096);
    pid_t child = -1;
    in_clock = [&child] { child = fork(); };
    EXPECT_EQ(_skein_str(handle, 0, "x"), 0);
    if (child == 0) {
        EXPECT_EQ(_skein_str(handle, 0, "child"), 0);
        clear("a");
        wait_for_the_next_look();
        EXPECT_EQ(_skein_str(handle, 0, "new"), 0);
        EXPECT_EQ(mappings(), 1U);  // the count of its users is right
        close_and_end(handle);
    }
    EXPECT_TRUE(has_succeeded(child));
    EXPECT_EQ(skein_close(handle), 0);
    EXPECT_EQ(mappings(), 0U);
}

TEST_F(SkeinInterrupted, AChildThatIsForkedWhileTheSuccessorIsMappedLooksForItAnew) {
    const uint64_t handle = open_or_fail("a", 16, 4096);
    clear("a");
    pid_t child = -1;
    in_mapping = [&child] { child = fork(); };
    EXPECT_EQ(_skein_str(handle, 0, "x"), 0);
    if (child == 0) {
        wait_for_the_next_look();
        EXPECT_EQ(_skein_str(handle, 0, "child"), 0);
        EXPECT_THAT(read_trace("a").texts(), testing::Contains("child"));
        EXPECT_EQ(mappings(), 1U);  // no second one of the new file
        close_and_end(handle);
    }
    EXPECT_TRUE(has_succeeded(child));
    EXPECT_EQ(skein_close(handle), 0);
}

// What signal handlers write to, and how many entries of theirs arrived.
uint64_t signal_handle = 0;
volatile sig_atomic_t signals_written = 0;
volatile sig_atomic_t signals_failed = 0;

void write_in_handler(int /*signal*/) {
    const int error = errno;
    if (_skein_str(signal_handle, 1, "an entry of a signal handler, which takes several slots") == 0) {
        signals_written = signals_written + 1;
    } else {
        signals_failed = signals_failed + 1;
    }
    errno = error;
}

class SkeinSignal : public SkeinInterrupted {
  protected:
    SkeinSignal() {
        signals_written = 0;
        signals_failed = 0;
        struct sigaction action {};
        action.sa_handler = write_in_handler;
        action.sa_flags = SA_RESTART;
        sigaction(SIGALRM, &action, nullptr);
    }
    ~SkeinSignal() override { signal(SIGALRM, SIG_DFL); }
};

TEST_F(SkeinSignal, HandlerWritesIntoTheRingWhoseWriteItInterrupts) {
    signal_handle = open_or_fail("a", 16, 16 * 64);
    in_clock = [] { raise(SIGALRM); };
    EXPECT_EQ(_skein_str(signal_handle, 0, "interrupted"), 0);
    EXPECT_EQ(signals_written, 1);
    const contents read = read_trace("a");
    // The order is that of the places.
    EXPECT_THAT(read.texts(), ElementsAre("interrupted", "an entry of a signal handler, which takes several slots"));
    EXPECT_EQ(read.info.damaged + read.info.unfinished + read.info.lost, 0U);
    EXPECT_EQ(skein_close(signal_handle), 0);
}

TEST_F(SkeinSignal, HandlerIsRefusedWhenTheInterruptedWriteHasTheWholeRing) {
    signal_handle = open_or_fail("a", 1, 64);
    in_clock = [] { raise(SIGALRM); };
    EXPECT_EQ(_skein_str(signal_handle, 0, "interrupted"), 0);
    EXPECT_EQ(signals_failed, 1);
    EXPECT_THAT(read_trace("a").texts(), ElementsAre("interrupted"));
    EXPECT_EQ(read_trace("a").info.lost, 1U);
    EXPECT_EQ(skein_close(signal_handle), 0);
}

TEST_F(SkeinSignal, HandlerChangesOverInTheMiddleOfAWriteToTheRemovedFile) {
    signal_handle = open_or_fail("a", 16, 16 * 64);
    in_clock = [] {
        clear("a");
        raise(SIGALRM);
    };
    EXPECT_EQ(_skein_str(signal_handle, 0, "interrupted"), 0);
    EXPECT_EQ(signals_written, 1);
    EXPECT_EQ(mappings(), 1U);
    EXPECT_THAT(read_trace("a").texts(), ElementsAre("an entry of a signal handler, which takes several slots"));
    EXPECT_EQ(skein_close(signal_handle), 0);
    EXPECT_EQ(mappings(), 0U);
}

TEST_F(SkeinSignal, TimerWritesInTheMiddleOfWrites) {
    constexpr int signals = 300;
    constexpr uint32_t slots = 1U << 20U;
    signal_handle = open_or_fail("a", slots, slots * 64);
    const itimerval often{{0, 200}, {0, 200}};
    const itimerval never{};
    ASSERT_EQ(setitimer(ITIMER_REAL, &often, nullptr), 0);
    uint64_t number = 0;
    const auto text_of = [](uint64_t of) { return std::to_string(of) + std::string(of % 150, 'm'); };
    for (; signals_written < signals; ++number) {
        ASSERT_EQ(_skein_str(signal_handle, 0, text_of(number).c_str()), 0);
    }
    setitimer(ITIMER_REAL, &never, nullptr);
    EXPECT_EQ(signals_failed, 0);
    const contents read = read_trace("a");
    EXPECT_EQ(read.info.damaged + read.info.unfinished + read.info.lost, 0U);
    uint64_t from_signals = 0;
    uint64_t next = 0;
    for (const entry &each : read.entries) {
        if (each.attributes == 1) {
            ++from_signals;
            ASSERT_EQ(each.text, "an entry of a signal handler, which takes several slots");
            continue;
        }
        const uint64_t present = std::stoull(each.text);
        ASSERT_TRUE(next == 0 || present == next) << each.text;
        ASSERT_EQ(each.text, text_of(present));
        next = present + 1;
    }
    EXPECT_EQ(next, number);
    // If the ring turned, the oldest are gone.
    EXPECT_TRUE(read.info.next_ticket > slots || from_signals == static_cast<uint64_t>(signals_written));
    EXPECT_GT(from_signals, 0U);
    EXPECT_EQ(skein_close(signal_handle), 0);
}

}  // namespace
}  // namespace skein_test
