// Processes that are killed while they create trace files, attach to them, remove them, replace damaged ones and change
// over to new ones: before each system call that leaves something behind, and at random instants.
#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sched.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <functional>
#include <initializer_list>
#include <map>
#include <memory>
#include <new>
#include <random>
#include <set>
#include <string>
#include <utility>

#include "sanitized.h"
#include "trace_files.h"

namespace {

int calls_until_kill = -1;  // counted from when it is set; -1: nobody is killed
bool no_nameless_files = false;
pid_t thread_number = 0;  // what gettid() tells instead of the truth, if not 0
// Run once, by whoever has got a file's lock or found that somebody else has it.
std::function<void()> when_locked;
std::function<void()> when_locked_out;

void count_call() {
    if (calls_until_kill >= 0 && calls_until_kill-- == 0) {
        kill(getpid(), SIGKILL);
    }
}

template <class Result, class... Arguments>
Result count_and_call(const char *name, Arguments... arguments) {
    count_call();
    return reinterpret_cast<Result (*)(Arguments...)>(dlsym(RTLD_NEXT, name))(arguments...);
}

void run_once(std::function<void()> &hook) {
    if (hook) {
        std::exchange(hook, nullptr)();
    }
}

}  // namespace

// The library's calls come here first: those that change a file, a directory, a lock or a mapping.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name): the C library's names for them are reserved
extern "C" {
int openat(int directory, const char *path, int flags, ...) {
    count_call();
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    if (no_nameless_files && (flags & O_TMPFILE) == O_TMPFILE) {
        errno = EOPNOTSUPP;
        return -1;
    }
    return static_cast<int>(syscall(SYS_openat, directory, path, flags, mode));
}
int mkdirat(int directory, const char *path, mode_t mode) noexcept {
    return count_and_call<int>("mkdirat", directory, path, mode);
}
int posix_fallocate(int file, off_t offset, off_t size) {
    return count_and_call<int>("posix_fallocate", file, offset, size);
}
int fallocate(int file, int mode, off_t offset, off_t size) {
    return count_and_call<int>("fallocate", file, mode, offset, size);
}
int fchmod(int file, mode_t mode) noexcept {
    return count_and_call<int>("fchmod", file, mode);
}
ssize_t pwrite(int file, const void *from, size_t size, off_t offset) {
    return count_and_call<ssize_t>("pwrite", file, from, size, offset);
}
int linkat(int from, const char *path, int to, const char *name, int flags) noexcept {
    return count_and_call<int>("linkat", from, path, to, name, flags);
}
int renameat(int from, const char *path, int to, const char *name) noexcept {
    return count_and_call<int>("renameat", from, path, to, name);
}
int unlinkat(int directory, const char *path, int flags) noexcept {
    return count_and_call<int>("unlinkat", directory, path, flags);
}
int flock(int file, int operation) noexcept {
    const int result = count_and_call<int>("flock", file, operation);
    const int error = errno;
    if ((operation & LOCK_UN) == 0) {
        run_once(result == 0 ? when_locked : when_locked_out);
    }
    errno = error;
    return result;
}
void *mmap(void *at, size_t size, int protection, int flags, int file, off_t offset) noexcept {
    if (file >= 0) {
        count_call();
    }
    // NOLINTNEXTLINE(performance-no-int-to-ptr): system calls give numbers
    return reinterpret_cast<void *>(syscall(SYS_mmap, at, size, protection, flags, file, offset));
}
int munmap(void *at, size_t size) noexcept {
    count_call();
    return static_cast<int>(syscall(SYS_munmap, at, size));
}
pid_t gettid() noexcept {
    return thread_number != 0 ? thread_number : static_cast<pid_t>(syscall(SYS_gettid));
}
}
// NOLINTEND(readability-inconsistent-declaration-parameter-name)

namespace skein_test {
namespace {

using testing::ElementsAre;

constexpr std::size_t version_offset = 8;
constexpr std::size_t superseded_offset = 136;

// A forked process that runs `body`, and is killed at the latest when its owner or the test ends.
class process {
  public:
    template <class Body>
    explicit process(Body body) : pid_(fork()) {
        if (pid_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            body();
            _exit(testing::Test::HasFailure() ? 1 : 0);
        }
        EXPECT_GT(pid_, 0);
    }
    ~process() { kill_and_wait(); }
    process(const process &) = delete;
    process &operator=(const process &) = delete;
    [[nodiscard]] pid_t pid() const { return pid_; }
    [[nodiscard]] bool runs() {
        ended_ = ended_ || waitpid(pid_, &status_, WNOHANG) == pid_;
        return !ended_;
    }
    // Returns the status of waitpid().
    int wait() {
        if (!std::exchange(ended_, true)) {
            EXPECT_EQ(waitpid(pid_, &status_, 0), pid_);
        }
        return status_;
    }
    int kill_and_wait() {
        if (!ended_) {
            kill(pid_, SIGKILL);
        }
        return wait();
    }

  private:
    pid_t pid_;
    bool ended_ = false;
    int status_ = -1;
};

bool was_killed(int status) {
    return WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
}

std::string condition_of(const std::filesystem::path &file) {
    const std::string bytes = bytes_of(file);
    if (bytes.empty()) {
        return "empty";
    }
    if (bytes.size() < 4096 || bytes.substr(1, 5) != "\rSKEI") {
        return "without header";
    }
    skein_reader *reader = nullptr;
    const bool sound = skein_reader_open_path(file.c_str(), &reader) == 0;
    skein_reader_close(reader);
    return std::string(sound ? "whole" : "damaged") + (bytes[superseded_offset] != 0 ? ", marked" : "");
}

// The version in the header of a file becomes one that there is not. Does nothing if there is no file.
void damage(const std::filesystem::path &file) {
    const int opened = open(file.c_str(), O_WRONLY | O_CLOEXEC);
    if (opened >= 0) {
        syscall(SYS_pwrite64, opened, "\xff", 1, version_offset);
        close(opened);
    }
}

class SkeinKilled : public trace_files {
  protected:
    ~SkeinKilled() override {
        no_nameless_files = false;
        thread_number = 0;
    }

    static uint64_t open_a() { return open_or_fail("d/a", 16, 4096); }
    // A file of one entry, and the test's own handle on it.
    void make_a() {
        handle_ = open_a();
        EXPECT_EQ(_skein_str(handle_, 0, "old"), 0);
    }
    static std::function<void()> opening_a() {
        return [] { open_a(); };
    }
    static std::function<void()> deleting_a() {
        return [] { EXPECT_EQ(skein_delete("d/a"), 0); };
    }

    // What is in the directory, in alphabetical order. The number of a thread in a name reads as N.
    [[nodiscard]] std::vector<std::string> state(pid_t killed) const {
        std::set<std::string> all;
        const std::string number = std::to_string(killed);
        for (const auto &each : std::filesystem::recursive_directory_iterator(directory_)) {
            std::string name = each.path().lexically_relative(directory_);
            const std::size_t at = name.find(number);
            if (at != std::string::npos) {
                name.replace(at, number.size(), "N");
            }
            all.insert(each.is_directory() ? name : name + ": " + condition_of(each.path()));
        }
        return {all.begin(), all.end()};
    }

    // Kills a process that does `operation` before its first, second, ... system call, until it ends by itself, and
    // looks at what each one left. `entries` are those of the file d/a wherever it is whole. Returns the states of the
    // directory, in their order.
    std::vector<std::vector<std::string>> kill_at_each_call(const std::function<void()> &prepare,
                                                            const std::function<void()> &operation,
                                                            const std::vector<std::string> &entries) {
        std::vector<std::vector<std::string>> states;
        for (bool ended = false; !ended && !HasFailure(); killed_ += ended ? 0 : 1) {
            SCOPED_TRACE("killed before call " + std::to_string(killed_));
            std::filesystem::remove_all(path("d"));
            prepare();
            process operating([&] {
                calls_until_kill = killed_;
                operation();
                calls_until_kill = -1;
            });
            const int status = operating.wait();
            ended = WIFEXITED(status);
            EXPECT_TRUE(ended ? WEXITSTATUS(status) == 0 : was_killed(status)) << status;
            const std::vector<std::string> present = state(operating.pid());
            if (states.empty() || states.back() != present) {
                states.push_back(present);
            }
            if (!ended) {
                expect_recovery(operating.pid(), entries);
            }
            skein_close(std::exchange(handle_, 0));
        }
        RecordProperty("killed", killed_);
        return states;
    }

    int killed_ = 0;  // processes so far
    uint64_t handle_ = 0;
    std::vector<std::string> remains_{"d"};  // what the killed one may leave for ever
    bool next_removes_ = false;              // before anybody opens the file

  private:
    // The next ones find every entry that was acknowledged, a file that they can write to, and no lock.
    void expect_recovery(pid_t killed, std::vector<std::string> entries) {
        const contents left = read_trace("d/a");
        EXPECT_EQ(left.info.damaged + left.info.unfinished + left.info.lost, 0U);
        if (left.error != 0 || left.info.superseded != 0) {
            entries.clear();
        }
        if (next_removes_) {
            EXPECT_EQ(skein_delete("d/a"), left.error);
            entries.clear();
        }
        entries.emplace_back("next");
        process next([&] {
            const uint64_t handle = open_a();
            EXPECT_EQ(_skein_str(handle, 0, "next"), 0);
            EXPECT_EQ(read_trace("d/a").texts(), entries);
        });
        EXPECT_EQ(next.wait(), 0);
        if (handle_ != 0) {
            entries.emplace_back("of an old handle");
            EXPECT_EQ(_skein_str(handle_, 0, "of an old handle"), 0);
            EXPECT_EQ(read_trace("d/a").texts(), entries);
        }
        EXPECT_EQ(skein_delete("d/a"), 0);
        clear_name_of(killed);
        EXPECT_EQ(state(killed), remains_);
    }
    // The name that a new file has for a while is removed by the next one of the thread's number.
    static void clear_name_of(pid_t killed) {
        if (no_nameless_files) {
            thread_number = killed;
            EXPECT_EQ(skein_close(open_or_fail("d/b", 16, 4096)), 0);
            thread_number = 0;
            EXPECT_EQ(skein_delete("d/b"), 0);
        }
    }
};

TEST_F(SkeinKilled, CreatorLeavesAWholeFileOrNone) {
    const auto states = kill_at_each_call([] {}, opening_a(), {});
    EXPECT_THAT(states, ElementsAre(ElementsAre(), ElementsAre("d"), ElementsAre("d", "d/a: whole")));
    EXPECT_GE(killed_, 9);
}

TEST_F(SkeinKilled, CreatorWithoutNamelessFilesLeavesAtMostItsOwnName) {
    no_nameless_files = true;
    const auto states = kill_at_each_call([] {}, opening_a(), {});
    EXPECT_THAT(
        states,
        ElementsAre(ElementsAre(), ElementsAre("d"), ElementsAre("d", "d/.skein-N.new: empty"),
                    ElementsAre("d", "d/.skein-N.new: without header"), ElementsAre("d", "d/.skein-N.new: whole"),
                    ElementsAre("d", "d/.skein-N.new: whole", "d/a: whole"), ElementsAre("d", "d/a: whole")));
}

TEST_F(SkeinKilled, AttacherLeavesTheFileAsItWas) {
    const auto states = kill_at_each_call([&] { make_a(); }, opening_a(), {"old"});
    EXPECT_THAT(states, ElementsAre(ElementsAre("d", "d/a: whole")));
    EXPECT_GE(killed_, 6);
}

TEST_F(SkeinKilled, RemoverLeavesTheFileTheMarkedFileOrNone) {
    for (const bool next_removes : {false, true}) {
        next_removes_ = next_removes;
        killed_ = 0;
        const auto states = kill_at_each_call([&] { make_a(); }, deleting_a(), {"old"});
        EXPECT_THAT(states, ElementsAre(ElementsAre("d", "d/a: whole"), ElementsAre("d", "d/a: whole, marked"),
                                        ElementsAre("d")));
    }
}

TEST_F(SkeinKilled, AttacherToAMarkedFileLeavesItNoneOrTheNewOne) {
    const auto mark = [&] {
        make_a();
        std::string bytes = bytes_of(path("d/a"));
        bytes[superseded_offset] = 1;
        write_bytes(path("d/a"), bytes);
    };
    const auto states = kill_at_each_call(mark, opening_a(), {});
    EXPECT_THAT(states,
                ElementsAre(ElementsAre("d", "d/a: whole, marked"), ElementsAre("d"), ElementsAre("d", "d/a: whole")));
}

TEST_F(SkeinKilled, ReplacerOfADamagedFileLosesNeitherItNorTheName) {
    remains_ = {"d", "d/a.damaged: damaged, marked"};
    const auto make_and_damage = [&] {
        make_a();
        damage(path("d/a"));
    };
    const auto states = kill_at_each_call(make_and_damage, opening_a(), {});
    EXPECT_THAT(states, ElementsAre(ElementsAre("d", "d/a: damaged"), ElementsAre("d", "d/a: damaged, marked"),
                                    ElementsAre("d", "d/a.damaged: damaged, marked"),
                                    ElementsAre("d", "d/a.damaged: damaged, marked", "d/a: whole")));
}

TEST_F(SkeinKilled, WriterWhoChangesOverLeavesTheNewFileAsItWas) {
    const auto replace = [&] {
        make_a();
        EXPECT_EQ(skein_delete("d/a"), 0);
        const uint64_t next = open_a();
        EXPECT_EQ(_skein_str(next, 0, "new"), 0);
        EXPECT_EQ(skein_close(next), 0);
    };
    const auto write = [&] { EXPECT_EQ(_skein_str(handle_, 0, "changed over"), 0); };
    const auto states = kill_at_each_call(replace, write, {"new"});
    EXPECT_THAT(states, ElementsAre(ElementsAre("d", "d/a: whole")));
    EXPECT_THAT(read_trace("d/a").texts(), ElementsAre("new", "changed over"));  // by the one that was not killed
    EXPECT_GE(killed_, 5);
}

// Whoever waits for the lock of one that is killed gets it.
class SkeinKilledHolder : public SkeinKilled {
  protected:
    // A process that stands still when it has got the lock, and is killed by the first one whom that keeps out.
    void expect_to_hand_on(const std::function<void()> &operation) {
        std::array<int, 2> locked{};
        ASSERT_EQ(pipe2(locked.data(), O_CLOEXEC), 0);
        process holder([&] {
            when_locked = [&] {
                EXPECT_EQ(write(locked[1], "", 1), 1);
                pause();
            };
            operation();
        });
        char byte = 0;
        close(locked[1]);
        EXPECT_EQ(read(locked[0], &byte, 1), 1) << "nobody took the lock";
        close(locked[0]);
        bool waited = false;
        when_locked_out = [&] {
            waited = true;
            EXPECT_TRUE(was_killed(holder.kill_and_wait()));
        };
        operation();
        EXPECT_TRUE(waited);
        when_locked_out = nullptr;
        EXPECT_EQ(skein_close(handle_), 0);
    }
};

TEST_F(SkeinKilledHolder, HandsTheLockOnToTheNextRemover) {
    make_a();
    expect_to_hand_on(deleting_a());
    EXPECT_THAT(state(0), ElementsAre("d"));
}

TEST_F(SkeinKilledHolder, HandsTheLockOnToTheNextReplacer) {
    make_a();
    damage(path("d/a"));
    expect_to_hand_on(opening_a());
    EXPECT_THAT(state(0), ElementsAre("d", "d/a.damaged: damaged, marked", "d/a: whole"));
}

// What a worker tells while it lives.
struct progress {
    std::atomic<uint64_t> steps;
    std::atomic<uint64_t> acknowledged;  // lines in the file that nobody removes
};

struct file_of_workers {
    const char *name;
    uint32_t slots;
};
constexpr uint32_t slot_size = 64;
constexpr file_of_workers kept{"kept", 1024};
constexpr file_of_workers passing{"passing", 32};  // removed and made anew all the while
constexpr file_of_workers hurt{"hurt", 32};        // damaged besides
constexpr uint64_t workers = 3;
constexpr uint64_t lines_max = 150;       // of a worker: those of all are less than one lap of the file that is kept
constexpr uint64_t lines_at_a_time = 50;  // or few of the workers would be killed while they write

int32_t open_file(const file_of_workers &file, uint64_t *handle) {
    return open_trace(file.name, file.slots, file.slots * slot_size, handle);
}

std::string line_of(uint64_t number) {
    return std::to_string(number) + ' ' + std::string(number * 7 % 60, 'x');
}

// Does one thing after the other, at random, until it is killed.
class worker {
  public:
    worker(uint64_t id, uint64_t seed, std::filesystem::path directory, progress &told)
        : id_(id), random_(seed), directory_(std::move(directory)), told_(told) {
        reopen(kept);
        reopen(passing);
        reopen(hurt);
    }
    [[noreturn]] void run() {
        for (;;) {
            step(random_() % 10);
            ++told_.steps;
        }
    }

  private:
    void step(uint64_t choice) {
        switch (choice) {
            case 0:
                return reopen(kept);
            case 1:
                return write_kept();
            case 2:
            case 3:
                return reopen(passing);
            case 4:
            case 5:
                return write(passing);
            case 6:
                return remove(passing);
            case 7:
                damage(directory_ / hurt.name);
                return reopen(hurt);
            case 8:
                return write(hurt);
            default:
                return remove(hurt);
        }
    }
    void reopen(const file_of_workers &file) {
        uint64_t &handle = handles_[file.name];
        skein_close(handle);
        expect(open_file(file, &handle), {0, EBUSY});
    }
    void write_kept() {
        for (uint64_t count = 0; count < lines_at_a_time && told_.acknowledged < lines_max; ++count) {
            expect(_skein_str(handles_[kept.name], id_, line_of(told_.acknowledged).c_str()), {0});
            ++told_.acknowledged;
        }
    }
    void write(const file_of_workers &file) {
        const uint64_t handle = handles_[file.name];
        const std::string line = line_of(told_.steps);
        for (uint64_t count = 0; count < lines_at_a_time; ++count) {
            expect(_skein_str(handle, id_, line.c_str()), {handle == 0 ? EBADF : 0});
        }
    }
    void remove(const file_of_workers &file) { expect(skein_delete(file.name), {0, ENOENT, EBUSY}); }
    // EBUSY: whoever holds the lock was kept from going on, which is nobody's fault while all of them live.
    void expect(int32_t error, std::initializer_list<int32_t> allowed) {
        if (std::find(allowed.begin(), allowed.end(), error) == allowed.end()) {
            ADD_FAILURE() << std::strerror(error);
            ++told_.steps;
            _exit(1);
        }
    }

    uint64_t id_;
    std::mt19937_64 random_;
    std::filesystem::path directory_;
    progress &told_;
    std::map<std::string, uint64_t> handles_;
};

class SkeinKilledAtRandom : public trace_files {
  protected:
    SkeinKilledAtRandom()
        : told_(static_cast<progress *>(
              mmap(nullptr, sizeof(progress) * workers, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))) {}
    ~SkeinKilledAtRandom() override { munmap(told_, sizeof(progress) * workers); }

    // Lets the workers loose at the same time and kills one after the other.
    void work_and_kill(uint64_t seed) {
        std::mt19937_64 random(seed);
        std::vector<std::unique_ptr<process>> all;
        for (uint64_t id = 0; id < workers; ++id) {
            progress &told = *new (told_ + id) progress{};
            all.push_back(
                std::make_unique<process>([&, own_seed = random()] { worker(id, own_seed, directory_, told).run(); }));
        }
        for (uint64_t id = 0; id < workers; ++id) {
            const bool from_the_first_step_on = random() % 4 != 0;
            while (from_the_first_step_on && told_[id].steps == 0 && all[id]->runs()) {
                sched_yield();
            }
            const timespec time{0, static_cast<long>(random() % 1500000)};
            nanosleep(&time, nullptr);
            EXPECT_TRUE(was_killed(all[id]->kill_and_wait())) << id;
            steps_ += told_[id].steps;
        }
    }

    static void expect_sound(const contents &read) {
        EXPECT_EQ(read.info.damaged, 0U);
        EXPECT_EQ(read.info.lost, 0U);
    }

    // Each worker's lines, without a gap; of the last one nobody may know.
    void expect_acknowledged_lines() {
        const contents read = read_trace(kept.name);
        expect_sound(read);
        std::array<std::vector<std::string>, workers> lines;
        for (const entry &each : read.entries) {
            ASSERT_LT(each.attributes, workers);
            lines[each.attributes].push_back(each.text);
        }
        for (uint64_t id = 0; id < workers; ++id) {
            const uint64_t acknowledged = told_[id].acknowledged;
            EXPECT_TRUE(lines[id].size() == acknowledged || lines[id].size() == acknowledged + 1)
                << id << ": " << lines[id].size() << " of " << acknowledged;
            for (uint64_t number = 0; number < lines[id].size(); ++number) {
                EXPECT_EQ(lines[id][number], line_of(number)) << id;
            }
        }
    }

    // In a lap of its entries the slots that the killed ones were writing to come into use again.
    static void expect_next_process_writes(const file_of_workers &file) {
        process next([&] {
            expect_sound(read_trace(file.name));
            uint64_t handle = 0;
            EXPECT_EQ(open_file(file, &handle), 0);
            for (uint32_t count = 0; count < file.slots; ++count) {
                EXPECT_EQ(_skein_str(handle, 0, "next"), 0);
            }
            expect_written(handle, file, "last");
            EXPECT_EQ(read_trace(file.name).info.unfinished, 0U);
        });
        EXPECT_EQ(next.wait(), 0) << file.name;
    }
    static void expect_written(uint64_t handle, const file_of_workers &file, const char *text) {
        EXPECT_EQ(_skein_str(handle, 0, text), 0);
        const contents read = read_trace(file.name);
        ASSERT_EQ(read.error, 0) << file.name;
        expect_sound(read);
        ASSERT_FALSE(read.entries.empty());
        EXPECT_EQ(read.entries.back().text, text);
    }

    [[nodiscard]] std::set<std::string> names() const {
        std::set<std::string> all;
        for (const auto &each : std::filesystem::directory_iterator(directory_)) {
            all.insert(each.path().filename());
        }
        return all;
    }

    progress *told_;
    uint64_t steps_ = 0;
};

TEST_F(SkeinKilledAtRandom, WorkersLeaveSoundFilesAndNothingElse) {
    constexpr uint64_t rounds = sanitized ? 15 : 100;
    uint64_t left_marked = 0;
    for (uint64_t seed = 1; seed <= rounds && !HasFailure(); ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        uint64_t old = 0;
        ASSERT_EQ(open_file(passing, &old), 0);
        work_and_kill(seed);
        EXPECT_THAT(names(), testing::IsSubsetOf({"kept", "passing", "hurt", "hurt.damaged"}));
        left_marked += read_trace(passing.name).info.superseded + read_trace(hurt.name).info.superseded;
        expect_acknowledged_lines();
        for (const file_of_workers &each : {kept, passing, hurt}) {
            expect_next_process_writes(each);
        }
        expect_written(old, passing, "of an old handle");
        EXPECT_EQ(skein_close(old), 0);
        for (const file_of_workers &each : {kept, passing, hurt}) {
            EXPECT_EQ(skein_delete(each.name), 0) << each.name;
        }
        EXPECT_THAT(names(), testing::IsSubsetOf({"hurt.damaged"}));
    }
    RecordProperty("steps", std::to_string(steps_));
    RecordProperty("left_marked", std::to_string(left_marked));
    EXPECT_GT(steps_, rounds);
}

}  // namespace
}  // namespace skein_test
