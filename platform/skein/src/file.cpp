#include "file.h"

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <time.h>

#include <atomic>
#include <cerrno>
#include <cstring>

#include "process.h"

namespace skein {
namespace {

constexpr mode_t file_mode = 0600;
constexpr char aside_suffix[] = ".damaged";
// Each round of attaching or creating fails only because somebody else created or removed the file meanwhile.
constexpr int rounds_max = 100;
constexpr int lock_attempts = 200;

void sleep_one_millisecond() {
    const timespec time{0, 1000000};
    nanosleep(&time, nullptr);
}

// -- Taking a name away ------------------------------------------------------------------------------------------

// The files that threads of this process have locked, or are about to. 0: none, else the file's number and one.
constinit std::atomic<int> locked_files[16];

std::atomic<int> *note_lock(int file) {
    for (std::atomic<int> &each : locked_files) {
        int none = 0;
        if (each.compare_exchange_strong(none, file + 1, std::memory_order_relaxed)) {
            return &each;
        }
    }
    return nullptr;
}

// The same file, opened anew: the lock belongs to how it was opened before.
void open_anew(int file) {
    char path[32];
    snprintf(path, sizeof path, "/proc/self/fd/%d", file);
    const open_file anew(open(path, O_RDWR | O_CLOEXEC));
    if (anew.is_open()) {
        dup3(anew.get(), file, O_CLOEXEC);
    }
}

// Whoever takes a name away from a file holds this lock on the file, so that nobody takes away the name of its
// successor. The kernel drops it with its owner; a sleeping owner is not waited for for ever.
class removal_lock {
  public:
    explicit removal_lock(int file) : file_(file) {
        for (int attempt = 0; attempt < lock_attempts; ++attempt) {
            error_ = try_lock();
            if (error_ != EBUSY && error_ != EINTR) {
                return;
            }
            sleep_one_millisecond();
        }
    }
    ~removal_lock() {
        if (error_ == 0) {
            flock(file_, LOCK_UN);  // said expressly: somebody may have a copy of the file's number
            noted_->store(0, std::memory_order_relaxed);
        }
    }
    removal_lock(const removal_lock &) = delete;
    removal_lock &operator=(const removal_lock &) = delete;
    [[nodiscard]] int error() const { return error_; }

  private:
    // Noted before it is locked: a child that is forked in between knows of it.
    int try_lock() {
        noted_ = note_lock(file_);
        if (noted_ == nullptr) {
            return EBUSY;
        }
        if (flock(file_, LOCK_EX | LOCK_NB) == 0) {
            return 0;
        }
        const int error = errno == EWOULDBLOCK ? EBUSY : errno;
        noted_->store(0, std::memory_order_relaxed);
        return error;
    }

    int file_;
    int error_ = EBUSY;
    std::atomic<int> *noted_ = nullptr;
};

// ENOENT: the name is no longer that of the file.
int check_name(const place &at, int file) {
    struct stat named {};
    struct stat opened {};
    if (fstatat(at.directory.get(), at.leaf, &named, AT_SYMLINK_NOFOLLOW) != 0 || fstat(file, &opened) != 0) {
        return errno;
    }
    return named.st_dev == opened.st_dev && named.st_ino == opened.st_ino ? 0 : ENOENT;
}

// "NAME.damaged", the name shortened if there is no room for that.
void aside_name(char (&aside)[256], const char *leaf) {
    const std::size_t length = strnlen(leaf, sizeof aside - sizeof aside_suffix);
    std::memcpy(aside, leaf, length);
    std::memcpy(aside + length, aside_suffix, sizeof aside_suffix);
}

int write_mark(int file) {
    const uint64_t superseded = 1;
    const ssize_t written = pwrite(file, &superseded, sizeof superseded, offsetof(file_header, superseded));
    if (written < 0) {
        return errno;
    }
    return written == static_cast<ssize_t>(sizeof superseded) ? 0 : EIO;
}

// What does not is left as it is, and not marked: nobody here writes to it.
bool begins_like_a_trace_file(const file_header &header, ssize_t length) {
    return length == static_cast<ssize_t>(sizeof header) && header.magic == file_magic;
}

// Those who write to the file and do not know that it was damaged change over to the next one.
int move_aside(const place &at, int file, bool mark) {
    const removal_lock lock(file);
    if (lock.error() != 0) {
        return lock.error();
    }
    int error = check_name(at, file);
    if (error != 0) {
        return error == ENOENT ? 0 : error;
    }
    error = mark ? write_mark(file) : 0;
    if (error != 0) {
        return error;
    }
    char aside[256];
    aside_name(aside, at.leaf);
    return renameat(at.directory.get(), at.leaf, at.directory.get(), aside) == 0 ? 0 : errno;
}

// Marks first: killed in between, the file is one that nobody attaches to and the next creator removes.
int mark_and_unlink(const place &at, int file, bool mark) {
    const removal_lock lock(file);
    if (lock.error() != 0) {
        return lock.error();
    }
    int error = check_name(at, file);
    if (error == 0 && mark) {
        error = write_mark(file);
    }
    if (error != 0) {
        return error;
    }
    return unlinkat(at.directory.get(), at.leaf, 0) == 0 ? 0 : errno;
}

// -- Attaching ---------------------------------------------------------------------------------------------------

// A copy of a trace file can have holes, for which the disk may have no room. Where the file system cannot fill them
// itself they stay: filling them by writing would disturb those who write to the file already.
int fill_holes(int file, uint64_t size) {
    while (fallocate(file, 0, 0, static_cast<off_t>(size)) != 0) {
        if (errno != EINTR) {
            return errno == EOPNOTSUPP ? 0 : errno;
        }
    }
    return 0;
}

int map_existing(int file, const file_header &header, ring &out) {
    const int error = fill_holes(file, geometry{header.slot_size, header.slot_count}.file_size());
    return error == 0 ? map_ring(file, header, out) : error;
}

enum class condition { sound, removed, damaged, strange };

int examine(int file, file_header &header, condition &found) {
    struct stat status {};
    if (fstat(file, &status) != 0) {
        return errno;
    }
    if (status.st_uid != geteuid()) {
        return EPERM;
    }
    const ssize_t length = pread(file, &header, sizeof header, 0);
    if (length < 0) {
        return errno;
    }
    const bool has_header = begins_like_a_trace_file(header, length);
    found = has_header ? condition::damaged : condition::strange;
    if (has_header && header_is_sound(header) && header.next_ticket < ticket_limit &&
        geometry{header.slot_size, header.slot_count}.file_size() <= static_cast<uint64_t>(status.st_size)) {
        found = header.superseded != 0 ? condition::removed : condition::sound;
    }
    return 0;
}

int open_for_writing(const place &at, open_file &file) {
    return open_regular(at.directory.get(), at.leaf, O_RDWR | O_NOFOLLOW, file);
}

// Returns 0: attached; ENOENT: the name is free now; or another errno.
int attach(const place &at, ring &out) {
    open_file file;
    int error = open_for_writing(at, file);
    if (error != 0) {
        return error;
    }
    file_header header{};
    condition found = condition::damaged;
    error = examine(file.get(), header, found);
    if (error != 0) {
        return error;
    }
    if (found == condition::sound) {
        return map_existing(file.get(), header, out);
    }
    error = found == condition::removed ? mark_and_unlink(at, file.get(), false)
                                        : move_aside(at, file.get(), found == condition::damaged);
    return error == 0 ? ENOENT : error;
}

// -- Creating ----------------------------------------------------------------------------------------------------

file_header new_header(geometry sizes) {
    timespec time{};
    clock_gettime(CLOCK_REALTIME, &time);
    file_header header{};
    header.magic = file_magic;
    header.version = file_version;
    header.header_size = header_size;
    header.byte_order = file_byte_order;
    header.slot_size = sizes.slot_size;
    header.slot_count = sizes.slot_count;
    header.created = static_cast<uint64_t>(time.tv_sec) * 1000000000 + static_cast<uint64_t>(time.tv_nsec);
    header.creator = static_cast<uint32_t>(getpid());
    header.checksum = header_checksum(header);
    return header;
}

int allocate(int file, uint64_t size) {
    rlimit limit{};
    if (getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur < size) {
        return EFBIG;  // instead of the signal that going on would raise
    }
    int error = 0;
    do {
        error = posix_fallocate(file, 0, static_cast<off_t>(size));
    } while (error == EINTR);
    return error;
}

int fill_new_file(int file, const file_header &header) {
    const int error = allocate(file, geometry{header.slot_size, header.slot_count}.file_size());
    if (error != 0) {
        return error;
    }
    if (fchmod(file, file_mode) != 0) {
        return errno;
    }
    const ssize_t written = pwrite(file, &header, sizeof header, 0);
    if (written < 0) {
        return errno;
    }
    return written == static_cast<ssize_t>(sizeof header) ? 0 : EIO;
}

// A file without a name leaves nothing behind when its maker is killed.
int create_nameless(const place &at, const file_header &header, open_file &file) {
    file = open_file(openat(at.directory.get(), ".", O_TMPFILE | O_RDWR | O_CLOEXEC, file_mode));
    if (!file.is_open()) {
        return errno == EISDIR || errno == EINVAL ? EOPNOTSUPP : errno;
    }
    const int error = fill_new_file(file.get(), header);
    if (error != 0) {
        return error;
    }
    char own_path[32];
    snprintf(own_path, sizeof own_path, "/proc/self/fd/%d", file.get());
    if (linkat(AT_FDCWD, own_path, at.directory.get(), at.leaf, AT_SYMLINK_FOLLOW) == 0) {
        return 0;
    }
    return errno == ENOENT ? EOPNOTSUPP : errno;  // /proc is not mounted
}

// For file systems that cannot do that. The thread's number makes the name unique on this machine.
int create_named(const place &at, const file_header &header, open_file &file) {
    const int directory = at.directory.get();
    char name[32];
    snprintf(name, sizeof name, ".skein-%d.new", static_cast<int>(gettid()));
    unlinkat(directory, name, 0);  // of an earlier thread of that number, which was killed
    file = open_file(openat(directory, name, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, file_mode));
    if (!file.is_open()) {
        return errno == EEXIST ? EBUSY : errno;
    }
    int error = fill_new_file(file.get(), header);
    if (error == 0 && linkat(directory, name, directory, at.leaf, 0) != 0) {
        error = errno;
    }
    unlinkat(directory, name, 0);
    return error;
}

// Returns EEXIST if somebody else was faster.
int create(const place &at, geometry sizes, ring &out) {
    const file_header header = new_header(sizes);
    open_file file;
    int error = create_nameless(at, header, file);
    if (error == EOPNOTSUPP) {
        error = create_named(at, header, file);
    }
    return error == 0 ? map_ring(file.get(), header, out) : error;
}

}  // namespace

int attach_or_create(const char *root, const char *name, geometry sizes, ring &out) {
    place at;
    int error = open_place(root, name, if_missing::create, at);
    if (error != 0) {
        return error;
    }
    for (int round = 0; round < rounds_max; ++round) {
        error = attach(at, out);
        if (error != ENOENT) {
            return error;
        }
        error = create(at, sizes, out);
        if (error != EEXIST) {
            return error;
        }
    }
    return EBUSY;
}

int attach_successor(const char *root, const char *name, ring &out) {
    place at;
    int error = open_place(root, name, if_missing::fail, at);
    open_file file;
    if (error == 0) {
        error = open_for_writing(at, file);
    }
    file_header header{};
    condition found = condition::damaged;
    if (error == 0) {
        error = examine(file.get(), header, found);
    }
    if (error != 0) {
        return error;
    }
    return found == condition::sound ? map_existing(file.get(), header, out) : ENOENT;
}

int remove_file(const char *root, const char *name) {
    place at;
    int error = open_place(root, name, if_missing::fail, at);
    if (error != 0) {
        return error;
    }
    open_file file;
    error = open_for_writing(at, file);
    if (error != 0) {
        return error;
    }
    file_header header{};
    const ssize_t length = pread(file.get(), &header, sizeof header, 0);
    return mark_and_unlink(at, file.get(), begins_like_a_trace_file(header, length));
}

// A child shares the locks of its parent's threads, which do not go on in it: killed, the parent would leave them to
// it.
void forget_locks() {
    const int error = errno;
    for (std::atomic<int> &each : locked_files) {
        const int noted = each.exchange(0, std::memory_order_relaxed);
        if (noted != 0) {
            open_anew(noted - 1);
        }
    }
    errno = error;
}

}  // namespace skein
