// Logs go on while flags and outputs come and go.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <umbra/debug_trace.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace {

void log_to(uint64_t flag, const std::string &text) {
    _umbra_dt_log_filter_adv(flag, 0, 0, 0, 0, 0, nullptr, "%s", text.c_str());
}

uint64_t make_enabled(const char *name, uint64_t parent = 0) {
    uint64_t flag = 0;
    EXPECT_EQ(umbra_dt_flag_init(&flag, name, parent, 0, 0), 0);
    EXPECT_EQ(umbra_dt_flag_enable(flag, 0), 0);
    return flag;
}

// Lines of all writers of a pipe, until the last of them has closed it.
std::vector<std::string> lines_of(int fd) {
    std::string text;
    char buffer[65536];
    for (ssize_t n = read(fd, buffer, sizeof buffer); n > 0; n = read(fd, buffer, sizeof buffer)) {
        text.append(buffer, static_cast<std::size_t>(n));
    }
    std::vector<std::string> lines;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = text.find('\n', at);
        lines.push_back(text.substr(at, end - at));
        at = end == std::string::npos ? text.size() : end + 1;
    }
    return lines;
}

constexpr unsigned writers = 3;
constexpr unsigned lines_of_writer = 300;

void write_lines(uint64_t flag) {
    for (unsigned i = 0; i < lines_of_writer; ++i) {
        log_to(flag, std::string(1 + i * 7 % 2000, static_cast<char>('a' + i % 26)));
    }
}

TEST(DebugLogConcurrency, LinesOfThreadsAndProcessesStayWhole) {
    const uint64_t flag = make_enabled("whole");
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    ASSERT_EQ(umbra_dt_log_to_stream(ends[1]), 0);
    const pid_t child = fork();
    if (child == 0) {
        write_lines(flag);
        _exit(0);
    }
    std::vector<std::string> lines;
    std::thread reader([&] { lines = lines_of(ends[0]); });
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < writers; ++i) {
        threads.emplace_back(write_lines, flag);
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    waitpid(child, nullptr, 0);
    umbra_dt_log_to_stream(STDERR_FILENO);
    close(ends[1]);
    reader.join();
    close(ends[0]);
    EXPECT_EQ(lines.size(), (writers + 1) * lines_of_writer);
    for (const std::string &line : lines) {
        const std::size_t at = line.find(" whole: ");
        ASSERT_NE(at, std::string::npos) << line;
        const std::string text = line.substr(at + 8);
        ASSERT_EQ(text.find_first_not_of(text[0]), std::string::npos) << line;
    }
    umbra_dt_flag_destroy(flag);
}

std::atomic<uint64_t> current{0};
std::atomic<bool> ends_now{false};
std::atomic<unsigned> lines_seen{0};
std::atomic<unsigned> wrong_lines{0};

void check_line(const char *line, uint64_t length, void * /*ctx*/) {
    const std::string text(line, length);
    ++lines_seen;
    wrong_lines += text.find(" come/and/go: for come") == std::string::npos ? 1 : 0;
}

TEST(DebugLogConcurrency, FlagsComeAndGo) {
    umbra_dt_log_to_stream(-1);
    umbra_dt_log_to_callback(check_line, nullptr);
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < writers; ++i) {
        threads.emplace_back([] {
            while (!ends_now) {
                log_to(current.load(), "for come");
            }
        });
    }
    for (unsigned i = 0; i < 2000 || lines_seen == 0; ++i) {
        const uint64_t top = make_enabled("come");
        const uint64_t flag = make_enabled("go", make_enabled("and", top));
        current = flag;
        if (i % 3 == 0) {
            umbra_dt_flag_disable(top);
            umbra_dt_flag_enable(top, 0);
        }
        EXPECT_EQ(umbra_dt_flag_find("come/and/go"), flag);
        EXPECT_EQ(umbra_dt_flag_destroy(top), 0);
        // The same places, under other names: nobody must log under these with the handle from before.
        const uint64_t other = make_enabled("other");
        make_enabled("one", make_enabled("more", other));
        EXPECT_EQ(umbra_dt_flag_destroy(other), 0);
    }
    ends_now = true;
    for (std::thread &thread : threads) {
        thread.join();
    }
    umbra_dt_log_to_callback(nullptr, nullptr);
    umbra_dt_log_to_stream(STDERR_FILENO);
    EXPECT_GT(lines_seen, 0U);
    EXPECT_EQ(wrong_lines, 0U);
    EXPECT_EQ(umbra_dt_flags(nullptr, 0), 0U);
}

struct listener {
    std::atomic<bool> is_gone{false};
    std::atomic<unsigned> late_calls{0};
};

void listen(const char * /*line*/, uint64_t /*length*/, void *ctx) {
    auto *to = static_cast<listener *>(ctx);
    std::this_thread::yield();
    to->late_calls += to->is_gone ? 1 : 0;
}

TEST(DebugLogConcurrency, NoCallComesAfterACallbackIsTakenAway) {
    const uint64_t flag = make_enabled("callback");
    umbra_dt_log_to_stream(-1);
    std::atomic<bool> ends{false};
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < writers; ++i) {
        threads.emplace_back([&] {
            while (!ends) {
                log_to(flag, "listen");
            }
        });
    }
    std::vector<listener> listeners(200);
    for (listener &each : listeners) {
        EXPECT_EQ(umbra_dt_log_to_callback(listen, &each), 0);
        std::this_thread::yield();
        EXPECT_EQ(umbra_dt_log_to_callback(nullptr, nullptr), 0);
        each.is_gone = true;
    }
    ends = true;
    for (std::thread &thread : threads) {
        thread.join();
    }
    for (const listener &each : listeners) {
        EXPECT_EQ(each.late_calls, 0U);
    }
    umbra_dt_log_to_stream(STDERR_FILENO);
    umbra_dt_flag_destroy(flag);
}

// A child that is forked while other threads are in a callback must not wait for them.
TEST(DebugLogConcurrency, AChildDoesNotWaitForThreadsOfItsParent) {
    const uint64_t flag = make_enabled("forked");
    umbra_dt_log_to_stream(-1);
    static std::atomic<bool> is_inside{false};
    static std::atomic<bool> may_leave{false};
    umbra_dt_log_to_callback(
        [](const char *, uint64_t, void *) {
            is_inside = true;
            while (!may_leave) {
                std::this_thread::yield();
            }
        },
        nullptr);
    std::thread inside([&] { log_to(flag, "stays"); });
    while (!is_inside) {
        std::this_thread::yield();
    }
    const pid_t child = fork();
    if (child == 0) {
        alarm(20);
        _exit(umbra_dt_log_to_callback(nullptr, nullptr));
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    may_leave = true;
    inside.join();
    umbra_dt_log_to_callback(nullptr, nullptr);
    umbra_dt_log_to_stream(STDERR_FILENO);
    umbra_dt_flag_destroy(flag);
}

}  // namespace
