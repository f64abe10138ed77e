// Every system call and allocation fails in turn: the caller gets the code, and nothing is left behind.
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstring>
#include <functional>
#include <string>
#include <utility>

#include "sanitized.h"
#include "trace_files.h"
#include "trace_image.h"

namespace {

// The call that fails, counted from when the counter is set; -1: none does.
int calls_until_failure = -1;
int failure_code = 0;
int allocations_until_failure = -1;
bool no_nameless_files = false;
bool no_proc = false;
int filling_fails_with = 0;
// What the kernel tells of every process; empty: what it does tell.
std::string told_of_processes;
bool watching = false;
int files_for_children = 0;  // as many as were opened while watching, and would be open in a program that is executed

void watch(int flags) {
    files_for_children += watching && (flags & O_CLOEXEC) == 0 ? 1 : 0;
}

// What happens as soon as a file is locked, once.
std::function<void(int)> when_locked;

bool fails() {
    if (calls_until_failure < 0 || calls_until_failure-- > 0) {
        return false;
    }
    errno = failure_code;
    return true;
}

[[maybe_unused]] bool allocation_fails() {
    return allocations_until_failure >= 0 && allocations_until_failure-- == 0;
}

template <class Function>
Function next_of(const char *name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

}  // namespace

// The library's calls come here first.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name): the C library's names for them are reserved
extern "C" {
int open(const char *path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    watch(flags);
    static const auto next = next_of<int (*)(const char *, int, ...)>("open");
    if (told_of_processes.empty() || strncmp(path, "/proc/", 6) != 0) {
        return next(path, flags, mode);
    }
    const int file = memfd_create("stat", MFD_CLOEXEC);
    EXPECT_EQ(write(file, told_of_processes.data(), told_of_processes.size()), ssize_t(told_of_processes.size()));
    EXPECT_EQ(lseek(file, 0, SEEK_SET), 0);
    return file;
}
int openat(int directory, const char *path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    watch(flags);
    if (no_nameless_files && (flags & O_TMPFILE) == O_TMPFILE) {
        errno = EOPNOTSUPP;
        return -1;
    }
    static const auto next = next_of<int (*)(int, const char *, int, ...)>("openat");
    return fails() ? -1 : next(directory, path, flags, mode);
}
int linkat(int from, const char *path, int to, const char *name, int flags) noexcept {
    if (no_proc && flags != 0) {
        errno = ENOENT;
        return -1;
    }
    static const auto next = next_of<int (*)(int, const char *, int, const char *, int)>("linkat");
    return fails() ? -1 : next(from, path, to, name, flags);
}
int mkdirat(int directory, const char *path, mode_t mode) noexcept {
    static const auto next = next_of<int (*)(int, const char *, mode_t)>("mkdirat");
    return fails() ? -1 : next(directory, path, mode);
}
int fstat(int file, struct stat *status) noexcept {
    static const auto next = next_of<int (*)(int, struct stat *)>("fstat");
    return fails() ? -1 : next(file, status);
}
int fstatat(int directory, const char *path, struct stat *status, int flags) noexcept {
    static const auto next = next_of<int (*)(int, const char *, struct stat *, int)>("fstatat");
    return fails() ? -1 : next(directory, path, status, flags);
}
int fchmod(int file, mode_t mode) noexcept {
    static const auto next = next_of<int (*)(int, mode_t)>("fchmod");
    return fails() ? -1 : next(file, mode);
}
int posix_fallocate(int file, off_t offset, off_t size) {
    static const auto next = next_of<int (*)(int, off_t, off_t)>("posix_fallocate");
    return fails() ? failure_code : next(file, offset, size);
}
int fallocate(int file, int mode, off_t offset, off_t size) {
    static const auto next = next_of<int (*)(int, int, off_t, off_t)>("fallocate");
    if (filling_fails_with != 0) {
        errno = filling_fails_with;
        return -1;
    }
    return fails() ? -1 : next(file, mode, offset, size);
}
ssize_t pwrite(int file, const void *from, size_t size, off_t offset) {
    static const auto next = next_of<ssize_t (*)(int, const void *, size_t, off_t)>("pwrite");
    return fails() ? -1 : next(file, from, size, offset);
}
ssize_t pread(int file, void *to, size_t size, off_t offset) {
    static const auto next = next_of<ssize_t (*)(int, void *, size_t, off_t)>("pread");
    return fails() ? -1 : next(file, to, size, offset);
}
void *mmap(void *at, size_t size, int protection, int flags, int file, off_t offset) noexcept {
    static const auto next = next_of<void *(*)(void *, size_t, int, int, int, off_t)>("mmap");
    return file >= 0 && fails() ? MAP_FAILED : next(at, size, protection, flags, file, offset);
}
int flock(int file, int operation) noexcept {
    static const auto next = next_of<int (*)(int, int)>("flock");
    const int result = (operation & LOCK_UN) == 0 && fails() ? -1 : next(file, operation);
    if (result == 0 && when_locked) {
        std::exchange(when_locked, nullptr)(file);
    }
    return result;
}
int renameat(int from, const char *path, int to, const char *name) noexcept {
    static const auto next = next_of<int (*)(int, const char *, int, const char *)>("renameat");
    return fails() ? -1 : next(from, path, to, name);
}
int unlinkat(int directory, const char *path, int flags) noexcept {
    static const auto next = next_of<int (*)(int, const char *, int)>("unlinkat");
    return fails() ? -1 : next(directory, path, flags);
}
#ifndef NYX_TESTS_SKEIN_SANITIZER
void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_memalign(size_t alignment, size_t size);
void *malloc(size_t size) noexcept {
    return allocation_fails() ? nullptr : __libc_malloc(size);
}
void *calloc(size_t count, size_t size) noexcept {
    return allocation_fails() ? nullptr : __libc_calloc(count, size);
}
void *aligned_alloc(size_t alignment, size_t size) noexcept {
    return allocation_fails() ? nullptr : __libc_memalign(alignment, size);
}
#endif
}
// NOLINTEND(readability-inconsistent-declaration-parameter-name)

namespace skein_test {
namespace {

using testing::ElementsAre;

std::size_t open_files() {
    std::size_t count = 0;
    DIR *directory = opendir("/proc/self/fd");
    while (readdir(directory) != nullptr) {
        ++count;
    }
    closedir(directory);
    return count;
}

class SkeinFailure : public trace_files {
  protected:
    ~SkeinFailure() override {
        calls_until_failure = -1;
        allocations_until_failure = -1;
        no_nameless_files = false;
        no_proc = false;
        filling_fails_with = 0;
        told_of_processes.clear();
        watching = false;
    }

    // Calls `call` with the first, second, ... system call failing until it succeeds; `check` looks at what a failure
    // left. Returns how many calls were made to fail.
    template <class Prepare, class Call, class Check>
    int fail_each(Prepare prepare, Call call, Check check) {
        for (int count = 0;; ++count) {
            prepare();
            const std::size_t files = open_files();
            failure_code = EIO;
            calls_until_failure = count;
            const int32_t error = call();
            const bool failed = calls_until_failure < 0;
            calls_until_failure = -1;
            EXPECT_EQ(open_files(), files) << count;
            if (!failed) {
                EXPECT_EQ(error, 0);
                return count;
            }
            check(error, count);
        }
    }

    static constexpr auto nothing = [] {};
    uint64_t handle_ = 0;

    [[nodiscard]] int32_t open_a() { return open_trace("d/a", 16, 4096, &handle_); }
    void expect_failed_cleanly(int32_t error, int count) {
        EXPECT_EQ(error, EIO) << count;
        EXPECT_EQ(handle_, 0U);
        EXPECT_EQ(mappings_of(directory_.string()), 0U) << count;
        for (const auto &each : std::filesystem::recursive_directory_iterator(directory_)) {
            const std::string name = each.path().filename().string();
            EXPECT_TRUE(name == "d" || name == "a" || name == "a.damaged") << name;
        }
        // What is there is whole.
        const contents read = read_trace("d/a");
        EXPECT_TRUE(read.error == 0 || read.error == ENOENT || read.error == EBADMSG) << read.error;
        EXPECT_EQ(_skein_str(handle_, 0, "x"), EBADF);
    }
};

TEST_F(SkeinFailure, OfCreation) {
    const int failures = fail_each([&] { std::filesystem::remove_all(path("d")); }, [&] { return open_a(); },
                                   [&](int32_t error, int count) { expect_failed_cleanly(error, count); });
    EXPECT_GE(failures, 10);
    EXPECT_EQ(_skein_str(handle_, 0, "x"), 0);
    EXPECT_THAT(read_trace("d/a").texts(), ElementsAre("x"));
    EXPECT_EQ(skein_close(handle_), 0);
}

TEST_F(SkeinFailure, OfCreationWithoutNamelessFiles) {
    for (const bool without_proc : {false, true}) {
        no_nameless_files = !without_proc;
        no_proc = without_proc;
        std::filesystem::remove_all(path("d"));
        EXPECT_EQ(open_a(), 0);
        EXPECT_EQ(_skein_str(handle_, 0, "x"), 0);
        EXPECT_EQ(skein_close(handle_), 0);
        EXPECT_THAT(read_trace("d/a").texts(), ElementsAre("x"));
        std::vector<std::string> names;
        for (const auto &each : std::filesystem::directory_iterator(path("d"))) {
            names.push_back(each.path().filename());
        }
        EXPECT_THAT(names, ElementsAre("a"));
    }
}

TEST_F(SkeinFailure, OfAFullDiskLeavesNoFile) {
    for (const bool nameless : {true, false}) {
        no_nameless_files = !nameless;
        for (const int code : {ENOSPC, EDQUOT, EFBIG}) {
            bool seen = false;
            for (int count = 0; count < 20; ++count) {  // one of these is the allocation of space
                std::filesystem::remove_all(path("d"));
                failure_code = code;
                calls_until_failure = count;
                const int32_t error = open_a();
                calls_until_failure = -1;
                if (error != 0) {
                    EXPECT_EQ(error, code);
                    seen = true;
                } else {
                    EXPECT_EQ(skein_close(handle_), 0);
                }
            }
            EXPECT_TRUE(seen);
        }
    }
}

TEST_F(SkeinFailure, OfAttaching) {
    const int failures = fail_each(
        [&] {
            std::filesystem::remove_all(path("d"));
            ASSERT_EQ(open_a(), 0);
            ASSERT_EQ(_skein_str(handle_, 0, "x"), 0);
            ASSERT_EQ(skein_close(handle_), 0);
        },
        [&] { return open_a(); },
        [&](int32_t error, int count) {
            expect_failed_cleanly(error, count);
            EXPECT_THAT(read_trace("d/a").texts(), ElementsAre("x"));
        });
    EXPECT_GE(failures, 6);
    EXPECT_EQ(skein_close(handle_), 0);
}

// A copy of a trace file, as cp makes it: with holes where there is nothing but zeros.
TEST_F(SkeinFailure, OfRoomForTheHolesOfACopyIsACodeAndNoSignal) {
    ASSERT_EQ(open_trace("large", 1024, 1024 * 1024, &handle_), 0);
    ASSERT_EQ(skein_close(handle_), 0);
    const std::string bytes = bytes_of(path("large"));
    write_bytes(path("copy"), bytes.substr(0, 4096));
    std::filesystem::resize_file(path("copy"), bytes.size());
    const auto allocated = [&] {
        struct stat status {};
        EXPECT_EQ(stat(path("copy").c_str(), &status), 0);
        return static_cast<std::size_t>(status.st_blocks) * 512;
    };
    ASSERT_LT(allocated(), bytes.size());
    for (const int code : {ENOSPC, EDQUOT}) {
        filling_fails_with = code;
        EXPECT_EQ(open_trace("copy", 16, 4096, &handle_), code);
        EXPECT_EQ(handle_, 0U);
    }
    EXPECT_EQ(bytes_of(path("copy")), bytes);
    filling_fails_with = 0;
    ASSERT_EQ(open_trace("copy", 16, 4096, &handle_), 0);
    EXPECT_GE(allocated(), bytes.size());
    EXPECT_EQ(skein_close(handle_), 0);
}

TEST_F(SkeinFailure, OfFillingHolesWhereTheFileSystemCannotIsNone) {
    ASSERT_EQ(open_a(), 0);
    ASSERT_EQ(skein_close(handle_), 0);
    filling_fails_with = EOPNOTSUPP;
    ASSERT_EQ(open_a(), 0);
    EXPECT_EQ(_skein_str(handle_, 0, "x"), 0);
    EXPECT_EQ(skein_close(handle_), 0);
}

TEST_F(SkeinFailure, OfReplacingADamagedFile) {
    const int failures = fail_each(
        [&] {
            std::filesystem::remove_all(path("d"));
            std::filesystem::create_directory(path("d"));
            write_bytes(path("d/a"), "damaged");
        },
        [&] { return open_a(); }, [&](int32_t error, int count) { expect_failed_cleanly(error, count); });
    EXPECT_GE(failures, 12);
    EXPECT_EQ(bytes_of(path("d/a.damaged")), "damaged");
    EXPECT_EQ(skein_close(handle_), 0);
}

TEST_F(SkeinFailure, OfDeleting) {
    const int failures = fail_each(
        [&] {
            if (!std::filesystem::exists(path("d/a"))) {
                ASSERT_EQ(open_a(), 0);
                ASSERT_EQ(skein_close(handle_), 0);
            }
        },
        [&] { return skein_delete("d/a"); },
        [&](int32_t error, int count) {
            // Without its header the file is taken for a stranger's, and is removed nevertheless.
            EXPECT_TRUE(error == EIO || error == 0) << count;
            EXPECT_EQ(std::filesystem::exists(path("d/a")), error != 0) << count;
        });
    EXPECT_GE(failures, 7);
}

TEST_F(SkeinFailure, OfReading) {
    ASSERT_EQ(open_a(), 0);
    ASSERT_EQ(_skein_str(handle_, 0, "x"), 0);
    skein_reader *reader = nullptr;
    const int failures = fail_each(
        nothing, [&] { return skein_reader_open(nullptr, "d/a", &reader); },
        [&](int32_t error, int count) {
            if (error == 0) {  // only the second look at the counter failed
                EXPECT_THAT(read_and_close(error, reader).texts(), ElementsAre("x"));
                return;
            }
            EXPECT_EQ(error, EIO) << count;
            EXPECT_EQ(reader, nullptr);
        });
    EXPECT_GE(failures, 6);
    EXPECT_THAT(read_and_close(0, reader).texts(), ElementsAre("x"));
    EXPECT_EQ(skein_close(handle_), 0);
}

TEST_F(SkeinFailure, OfChangingOverKeepsTheOldFile) {
    for (int count = 0; count < 12; ++count) {
        ASSERT_EQ(open_a(), 0);
        ASSERT_EQ(skein_delete("d/a"), 0);
        uint64_t next = 0;
        ASSERT_EQ(open_trace("d/a", 16, 4096, &next), 0);
        const std::size_t files = open_files();
        failure_code = EIO;
        calls_until_failure = count;
        EXPECT_EQ(_skein_str(handle_, 0, "x"), 0);
        const bool failed = calls_until_failure < 0;
        calls_until_failure = -1;
        EXPECT_EQ(open_files(), files);
        EXPECT_EQ(read_trace("d/a").entries.size(), failed ? 0U : 1U) << count;
        EXPECT_EQ(skein_close(next), 0);
        EXPECT_EQ(skein_close(handle_), 0);
        EXPECT_EQ(mappings_of(directory_.string()), 0U);
        ASSERT_EQ(skein_delete("d/a"), 0);
    }
}

TEST_F(SkeinFailure, OfAFileSizeLimitIsACodeAndNoSignal) {
    const pid_t child = fork();
    if (child == 0) {
        const rlimit limit{8192, 8192};
        setrlimit(RLIMIT_FSIZE, &limit);
        _exit(open_trace("big", 16, 16 * 4096, &handle_) == EFBIG && open_trace("small", 16, 4096, &handle_) == 0 ? 0
                                                                                                                  : 1);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_FALSE(std::filesystem::exists(path("big")));
}

TEST_F(SkeinFailure, OfAddressSpace) {
    if (sanitized) {
        GTEST_SKIP() << "sanitizers need address space of their own";
    }
    ASSERT_EQ(open_trace("large", 16384, 16384 * 2048, &handle_), 0);
    ASSERT_EQ(skein_close(handle_), 0);
    const pid_t child = fork();
    if (child == 0) {
        uint64_t pages = 0;
        std::ifstream("/proc/self/statm") >> pages;
        const rlim_t bytes = pages * 4096 + (uint64_t{16} << 20U);  // the file is twice as large as what is left
        const rlimit limit{bytes, bytes};
        setrlimit(RLIMIT_AS, &limit);
        skein_reader *reader = nullptr;
        const bool refused = open_trace("large", 16, 4096, &handle_) == ENOMEM && handle_ == 0 &&
                             skein_reader_open(nullptr, "large", &reader) == ENOMEM && reader == nullptr;
        _exit(refused ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

TEST_F(SkeinFailure, OfAllocationsOfTheReader) {
    if (sanitized) {
        GTEST_SKIP() << "sanitizers have allocators of their own";
    }
    ASSERT_EQ(open_a(), 0);
    ASSERT_EQ(_skein_str(handle_, 0, "x"), 0);
    for (int count = 0;; ++count) {
        skein_reader *reader = nullptr;
        allocations_until_failure = count;
        const int32_t error = skein_reader_open(nullptr, "d/a", &reader);
        const bool failed = allocations_until_failure < 0;
        allocations_until_failure = -1;
        if (!failed) {
            EXPECT_THAT(read_and_close(error, reader).texts(), ElementsAre("x"));
            EXPECT_EQ(count, 4);
            break;
        }
        EXPECT_EQ(error, ENOMEM) << count;
        EXPECT_EQ(reader, nullptr);
    }
    EXPECT_EQ(skein_close(handle_), 0);
}

TEST_F(SkeinFailure, OfAllocationsOfHandles) {
    if (sanitized) {
        GTEST_SKIP() << "sanitizers have allocators of their own";
    }
    std::vector<uint64_t> handles;
    int32_t error = 0;
    while (error == 0 && handles.size() < 1000) {  // the table grows by many at a time
        allocations_until_failure = 0;
        error = open_a();
        allocations_until_failure = -1;
        if (error == 0) {
            handles.push_back(handle_);
        }
    }
    EXPECT_EQ(error, ENOMEM);
    EXPECT_EQ(handle_, 0U);
    EXPECT_EQ(open_a(), 0);
    handles.push_back(handle_);
    for (const uint64_t each : handles) {
        EXPECT_EQ(_skein_str(each, 0, "x"), 0);
        EXPECT_EQ(skein_close(each), 0);
    }
}

TEST_F(SkeinFailure, OfALockThatSomebodyHoldsGivesBusyAfterAWhile) {
    ASSERT_EQ(open_a(), 0);
    const int holder = open(path("d/a").c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(flock(holder, LOCK_EX), 0);
    EXPECT_EQ(skein_delete("d/a"), EBUSY);
    EXPECT_TRUE(std::filesystem::exists(path("d/a")));
    EXPECT_EQ(_skein_str(handle_, 0, "x"), 0);
    close(holder);
    EXPECT_EQ(skein_delete("d/a"), 0);
    EXPECT_EQ(skein_close(handle_), 0);
}

TEST_F(SkeinFailure, OfNothingLeavesFilesToProgramsThatAreExecuted) {
    for (const char *each : {"d/a", "b"}) {
        watching = true;
        ASSERT_EQ(open_trace(each, 16, 4096, &handle_), 0);
        EXPECT_EQ(_skein_str(handle_, 0, "x"), 0);
        EXPECT_THAT(read_trace(each).texts(), ElementsAre("x"));
        skein_reader *reader = nullptr;
        const int32_t error = skein_reader_open(directory_.c_str(), each, &reader);
        EXPECT_THAT(read_and_close(error, reader).texts(), ElementsAre("x"));
        EXPECT_EQ(skein_delete(each), 0);
        EXPECT_EQ(skein_close(handle_), 0);
        watching = false;
    }
    EXPECT_EQ(files_for_children, 0);
}

// A token of 0 stands for an unknown start: the time that would have it has 1.
TEST_F(SkeinFailure, OfAWriterThatBeganWithTheMachineIsSeen) {
    trace_image image(1, 64);
    image.set_busy(0, getppid(), 1);
    image.next_ticket() = 1;
    write_bytes(path("a"), image.bytes());
    ASSERT_EQ(open_trace("a", 1, 64, &handle_), 0);
    told_of_processes = "1 (init) S 0 1 1 0 -1 4194560 0 0 0 0 0 0 0 0 20 0 1 0 0 0 0";
    EXPECT_EQ(_skein_str(handle_, 0, "x"), EBUSY);
    told_of_processes = "1 (init) S 0 1 1 0 -1 4194560 0 0 0 0 0 0 0 0 20 0 1 0 1 0 0";
    EXPECT_EQ(_skein_str(handle_, 0, "x"), 0);
    EXPECT_EQ(skein_close(handle_), 0);
}

class SkeinSharedLock : public SkeinFailure {
  protected:
    SkeinSharedLock() {
        EXPECT_EQ(open_a(), 0);
        file_ = open(path("d/a").c_str(), O_RDONLY | O_CLOEXEC);
    }
    ~SkeinSharedLock() override {
        EXPECT_EQ(skein_close(handle_), 0);
        close(file_);
    }
    [[nodiscard]] bool is_locked() const { return flock(file_, LOCK_EX | LOCK_NB) != 0; }

    int file_;
};

TEST_F(SkeinSharedLock, IsNotKeptByACopyOfTheFilesNumber) {
    int copy = -1;
    when_locked = [&copy](int file) { copy = fcntl(file, F_DUPFD_CLOEXEC, 0); };
    EXPECT_EQ(skein_delete("d/a"), 0);
    ASSERT_GE(copy, 0);
    EXPECT_FALSE(is_locked());
    close(copy);
}

// A child may be forked by another thread at any instant, and may live on when its parent is killed.
TEST_F(SkeinSharedLock, IsNotKeptByAChildWhenItsParentIsKilled) {
    int numbers[2];
    ASSERT_EQ(pipe2(numbers, O_CLOEXEC), 0);
    const pid_t parent = fork();
    if (parent == 0) {
        when_locked = [&numbers](int /*file*/) {
            const pid_t child = fork();
            if (child == 0) {
                pause();
                _exit(0);
            }
            EXPECT_EQ(write(numbers[1], &child, sizeof child), ssize_t{sizeof child});
            kill(getpid(), SIGKILL);
        };
        skein_delete("d/a");
        _exit(2);
    }
    int status = -1;
    ASSERT_EQ(waitpid(parent, &status, 0), parent);
    ASSERT_TRUE(WIFSIGNALED(status));
    pid_t child = 0;
    ASSERT_EQ(read(numbers[0], &child, sizeof child), ssize_t{sizeof child});
    EXPECT_EQ(skein_delete("d/a"), 0);
    EXPECT_EQ(kill(child, SIGKILL), 0);
    close(numbers[0]);
    close(numbers[1]);
}

}  // namespace
}  // namespace skein_test
