#include "process.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/types.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstring>

namespace skein {
namespace {

// The process's mark, 0 until it is known and again in a forked child.
constinit std::atomic<uint64_t> own_mark{0};

// The library is loaded with its program: the short way to thread-local storage is open to it.
__attribute__((tls_model("initial-exec"))) constinit thread_local caller_identity own_identity;

struct process_status {
    bool known = false;
    bool ended = false;  // a zombie: nothing of it runs any more
    uint32_t token = 0;
};

uint32_t token_of_start(uint64_t start_time) {
    const auto token = static_cast<uint32_t>(start_time * 0x9e3779b97f4a7c15 >> (64 - token_bits));
    return token == 0 ? 1 : token;
}

// "/proc/PID/stat", without what may allocate or lock: this can run in a signal handler.
void stat_path(char (&path)[32], uint32_t pid) {
    char digits[10];
    std::size_t count = 0;
    do {
        digits[count++] = static_cast<char>('0' + pid % 10);
        pid /= 10;
    } while (pid != 0);
    std::memcpy(path, "/proc/", 6);
    char *end = path + 6;
    while (count > 0) {
        *end++ = digits[--count];
    }
    std::memcpy(end, "/stat", 6);
}

uint64_t decimal(const char *text) {
    uint64_t value = 0;
    for (; *text >= '0' && *text <= '9'; ++text) {
        value = value * 10 + static_cast<uint64_t>(*text - '0');
    }
    return value;
}

// The fields of interest of proc(5)'s stat line: 3 state, 20 num_threads, 22 starttime. The second field is the
// program's name in parentheses, which may hold anything.
process_status parse_stat(const char *line) {
    process_status status;
    const char *field = std::strrchr(line, ')');
    if (field == nullptr || field[1] != ' ') {
        return status;
    }
    field += 2;
    const char state = *field;
    uint64_t threads = 0;
    for (int number = 3; number < 22; ++number) {
        field = std::strchr(field, ' ');
        if (field == nullptr) {
            return status;
        }
        ++field;
        if (number + 1 == 20) {
            threads = decimal(field);
        }
    }
    status.known = true;
    // The first thread of a process can end before the others do; it then waits for them as a zombie.
    status.ended = (state == 'Z' || state == 'X') && threads <= 1;
    status.token = token_of_start(decimal(field));
    return status;
}

process_status look_up(uint32_t pid) {
    char path[32];
    stat_path(path, pid);
    const int file = open(path, O_RDONLY | O_CLOEXEC);
    if (file < 0) {
        return {};
    }
    char line[1024];
    const ssize_t length = read(file, line, sizeof line - 1);
    close(file);
    if (length <= 0) {
        return {};
    }
    line[length] = '\0';
    return parse_stat(line);
}

__attribute__((noinline)) const caller_identity &find_identity() {
    const int error = errno;
    const auto pid = static_cast<uint32_t>(getpid());
    uint64_t mark = own_mark.load(std::memory_order_relaxed);
    if (mark == 0) {
        mark = make_mark(pid, look_up(pid).token);
        own_mark.store(mark, std::memory_order_relaxed);
    }
    // A signal handler that interrupts this must not find the new mark beside old numbers.
    own_identity.ids = pid | static_cast<uint64_t>(gettid()) << 32U;
    std::atomic_signal_fence(std::memory_order_release);
    own_identity.mark = mark;
    errno = error;
    return own_identity;
}

}  // namespace

void forget_identity() {
    own_mark.store(0, std::memory_order_relaxed);
}

const caller_identity &caller() {
    const uint64_t mark = own_mark.load(std::memory_order_relaxed);
    return mark != 0 && own_identity.mark == mark ? own_identity : find_identity();
}

bool has_ended(uint64_t mark) {
    const uint32_t pid = pid_of_mark(mark);
    const uint32_t token = token_of_mark(mark);
    if (pid == 0) {
        return true;  // nobody's mark: kill() would mean something else by it
    }
    if (mark == caller().mark) {
        return false;
    }
    const int error = errno;
    const process_status status = look_up(pid);
    bool ended = false;
    if (status.known) {
        ended = status.ended || (token != 0 && status.token != token);
    } else {
        ended = kill(static_cast<pid_t>(pid), 0) != 0 && errno == ESRCH;
    }
    errno = error;
    return ended;
}

}  // namespace skein
