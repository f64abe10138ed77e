// What a log writes, where to, and when it writes nothing.
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <stdarg.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <syslog.h>
#include <umbra/debug_trace.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstring>
#include <ctime>
#include <regex>
#include <string>
#include <thread>
#include <vector>

namespace {

int last_priority = -1;
std::string last_syslog;

void record_syslog(int priority, const char *format, va_list args) {
    char text[8192];
    vsnprintf(text, sizeof text, format, args);
    last_priority = priority;
    last_syslog = text;
}

}  // namespace

// Stand in the place of the C library's: nothing reaches this machine's system log.
extern "C" {
// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name): the system header's names are reserved
void syslog(int priority, const char *format, ...) {
    va_list args;
    va_start(args, format);
    record_syslog(priority, format, args);
    va_end(args);
}

void __syslog_chk(int priority, int /*flag*/, const char *format, ...) {
    va_list args;
    va_start(args, format);
    record_syslog(priority, format, args);
    va_end(args);
}
}

namespace {

#define LOG(filter, ...) _umbra_dt_log_filter_adv(flag, 0, 0, 0, 0, 0, filter, __VA_ARGS__)

// A stream that keeps each write apart from the next.
class DebugLog : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_DGRAM, 0, ends), 0);
        ASSERT_EQ(umbra_dt_log_to_stream(ends[1]), 0);
        ASSERT_EQ(umbra_dt_flag_init(&agent, "agent", 0, 0, 0), 0);
        ASSERT_EQ(umbra_dt_flag_init(&flag, "error", agent, 0, 0), 0);
        umbra_dt_flag_enable(agent, 0);
        umbra_dt_flag_enable(flag, 0);
        last_syslog.clear();
    }

    void TearDown() override {
        umbra_dt_log_to_stream(STDERR_FILENO);
        umbra_dt_log_to_syslog(-1);
        EXPECT_EQ(umbra_dt_log_to_callback(nullptr, nullptr), 0);
        umbra_dt_flag_destroy(agent);
        close(ends[0]);
        close(ends[1]);
    }

    // What one write wrote; "nothing" when there was none.
    [[nodiscard]] std::string written() const {
        char buffer[10000];
        const ssize_t length = recv(ends[0], buffer, sizeof buffer, MSG_DONTWAIT);
        return length < 0 ? "nothing" : std::string(buffer, static_cast<std::size_t>(length));
    }

    // The same behind time and source.
    [[nodiscard]] std::string text_written() const {
        const std::string line = written();
        const std::size_t at = line.find(" agent/error: ");
        return at == std::string::npos ? line : line.substr(at + strlen(" agent/error: "));
    }

    uint64_t agent = 0;
    uint64_t flag = 0;
    int ends[2] = {-1, -1};
};

TEST_F(DebugLog, WritesTimeSourcePathAndText) {
    const auto before = std::chrono::system_clock::now();
    LOG(nullptr, "ERR: %s is %d", "answer", 42);
    const auto after = std::chrono::system_clock::now();
    const std::string line = written();
    const std::regex form(R"((\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d)\.(\d{6})Z (\d+)/(\d+) agent/error: ERR: answer is 42\n)");
    std::smatch parts;
    ASSERT_TRUE(std::regex_match(line, parts, form)) << line;
    std::tm time = {};
    ASSERT_NE(strptime(parts[1].str().c_str(), "%Y-%m-%dT%H:%M:%S", &time), nullptr);
    const auto logged =
        std::chrono::system_clock::from_time_t(timegm(&time)) + std::chrono::microseconds(std::stoi(parts[2]));
    EXPECT_GE(logged, before - std::chrono::microseconds(1));
    EXPECT_LE(logged, after);
    EXPECT_EQ(parts[3], std::to_string(getpid()));
    EXPECT_EQ(parts[4], std::to_string(syscall(SYS_gettid)));
    EXPECT_EQ(written(), "nothing");
}

TEST_F(DebugLog, NamesTheThreadAndTheForkedProcess) {
    long thread_id = 0;
    std::thread([&] {
        thread_id = syscall(SYS_gettid);
        LOG(nullptr, "x");
    }).join();
    EXPECT_NE(written().find(' ' + std::to_string(getpid()) + '/' + std::to_string(thread_id) + ' '),
              std::string::npos);
    const pid_t child = fork();
    if (child == 0) {
        LOG(nullptr, "x");
        _exit(0);
    }
    waitpid(child, nullptr, 0);
    EXPECT_NE(written().find(' ' + std::to_string(child) + '/' + std::to_string(child) + ' '), std::string::npos);
}

TEST_F(DebugLog, WritesNothingWhenItsFlagIsNotOn) {
    umbra_dt_flag_disable(flag);
    LOG(nullptr, "disabled");
    umbra_dt_flag_enable(flag, 0);
    umbra_dt_flag_disable(agent);
    LOG(nullptr, "disabled above");
    EXPECT_EQ(written(), "nothing");
    umbra_dt_flag_enable(agent, 0);
    LOG(nullptr, "on");
    EXPECT_EQ(text_written(), "on\n");
}

TEST_F(DebugLog, WritesNothingForHandlesThatMeanNoFlag) {
    const uint64_t stale = flag;
    umbra_dt_flag_destroy(flag);
    LOG(nullptr, "stale");
    ASSERT_EQ(umbra_dt_flag_init(&flag, "error", agent, 0, 0), 0);
    umbra_dt_flag_enable(flag, 0);
    for (const uint64_t unknown : {UINT64_C(0), stale, UINT64_MAX, flag + 1, flag ^ (UINT64_C(1) << 40U),
                                   flag >> 32U << 32U | UMBRA_DT_FLAGS_MAX}) {
        _umbra_dt_log_filter_adv(unknown, 0, 0, 0, 0, 0, nullptr, "unknown");
    }
    EXPECT_EQ(written(), "nothing");
}

TEST_F(DebugLog, WritesNothingWithoutAFormat) {
    const char *volatile format = nullptr;
    LOG(nullptr, format, 0);
    EXPECT_EQ(written(), "nothing");
}

// Formatting would follow a pointer that leads nowhere.
TEST_F(DebugLog, FormatsNothingThatItDoesNotWrite) {
    const char *volatile unreadable = reinterpret_cast<const char *>(16);
    uint32_t filter = 0;
    LOG(&filter, "%s", unreadable);
    filter = UMBRA_DT_SYSLOG | UMBRA_DT_CALLBACK;  // neither is in use
    LOG(&filter, "%s", unreadable);
    umbra_dt_silence("%s");
    LOG(nullptr, "%s", unreadable);
    umbra_dt_unsilence("%s");
    umbra_dt_flag_disable(flag);
    LOG(nullptr, "%s", unreadable);
    EXPECT_EQ(written(), "nothing");
}

struct callback_record {
    std::vector<std::string> lines;
};

void record_line(const char *line, uint64_t length, void *ctx) {
    EXPECT_EQ(strlen(line), length);
    static_cast<callback_record *>(ctx)->lines.emplace_back(line, length);
}

TEST_F(DebugLog, SelectsOutputsByTheBitsOfTheFilterWord) {
    callback_record record;
    umbra_dt_log_to_syslog(LOG_DAEMON | LOG_NOTICE);
    umbra_dt_log_to_callback(record_line, &record);
    for (uint32_t filter = 0; filter < 16; ++filter) {
        uint32_t word = filter | 0xfffffff0U * (filter & 1U);  // bits without a meaning change nothing
        record.lines.clear();
        last_syslog.clear();
        LOG(&word, "text %u", filter);
        const std::string expected = "text " + std::to_string(filter);
        EXPECT_EQ(text_written(), (filter & UMBRA_DT_STREAM) != 0 ? expected + '\n' : "nothing") << filter;
        EXPECT_EQ(last_syslog, (filter & UMBRA_DT_SYSLOG) != 0 ? "agent/error: " + expected : "") << filter;
        EXPECT_EQ(record.lines.size(), (filter & UMBRA_DT_CALLBACK) != 0 ? 1U : 0U) << filter;
    }
    EXPECT_EQ(last_priority, LOG_DAEMON | LOG_NOTICE);
}

TEST_F(DebugLog, HandsTheWholeLineToTheCallback) {
    callback_record record;
    umbra_dt_log_to_callback(record_line, &record);
    LOG(nullptr, "same");
    ASSERT_EQ(record.lines.size(), 1U);
    EXPECT_EQ(written(), record.lines[0] + '\n');
}

TEST_F(DebugLog, CanHaveNoStream) {
    EXPECT_EQ(umbra_dt_log_to_stream(-1), 0);
    LOG(nullptr, "nowhere");
    EXPECT_EQ(written(), "nothing");
    EXPECT_EQ(umbra_dt_log_to_stream(-2), EBADF);
    EXPECT_EQ(umbra_dt_log_to_stream(1 << 20), EBADF);
}

void log_and_reconfigure(const char * /*line*/, uint64_t /*length*/, void *ctx) {
    _umbra_dt_log_filter_adv(*static_cast<uint64_t *>(ctx), 0, 0, 0, 0, 0, nullptr, "from within");
    EXPECT_EQ(umbra_dt_log_to_callback(nullptr, nullptr), EDEADLK);
}

TEST_F(DebugLog, IsNotHandedItsOwnLinesByTheCallback) {
    umbra_dt_log_to_callback(log_and_reconfigure, &flag);
    LOG(nullptr, "outer");
    EXPECT_EQ(text_written(), "outer\n");
    EXPECT_EQ(text_written(), "from within\n");
    EXPECT_EQ(written(), "nothing");
}

TEST_F(DebugLog, EscapesControlCharacters) {
    LOG(nullptr, "a\nb\tc\rd\x1b[0m\x7f\x01 \\ \xc3\xa4");
    EXPECT_EQ(text_written(), "a\\nb\\tc\\rd\\x1b[0m\\x7f\\x01 \\ \xc3\xa4\n");
}

TEST_F(DebugLog, EscapesWhatDoesMoreToATerminalThanToShow) {
    // A control sequence of one byte or two, changes of direction, and bytes that are no characters.
    const char right_to_left[] = {'\xe2', '\x80', '\xae', '\0'};
    const char isolated[] = {'\xe2', '\x81', '\xa6', '\0'};
    LOG(nullptr, "%s2J %s2J %s %s", "\x9b", "\xc2\x9b", right_to_left, isolated);
    EXPECT_EQ(text_written(), "\\x9b2J \\xc2\\x9b2J \\xe2\\x80\\xae \\xe2\\x81\\xa6\n");
    LOG(nullptr, "%s", "\xc1\x81 \xe0\x80\x8a \xed\xa0\x80 \xf4\x90\x80\x80 \xff \xe4");
    EXPECT_EQ(text_written(), "\\xc1\\x81 \\xe0\\x80\\x8a \\xed\\xa0\\x80 \\xf4\\x90\\x80\\x80 \\xff \\xe4\n");
    for (const char *shown : {"\xc2\xa0", "\xdf\xbf", "\xe0\xa0\x80", "\xe2\x80\xa9", "\xe2\x80\xaf", "\xe2\x81\xa5",
                              "\xe2\x81\xaa", "\xed\x9f\xbf", "\xee\x80\x80", "\xf0\x90\x80\x80", "\xf4\x8f\xbf\xbf"}) {
        LOG(nullptr, "%s", shown);
        EXPECT_EQ(text_written(), std::string(shown) + '\n');
    }
}

TEST_F(DebugLog, DropsOneLineFeedAtTheEnd) {
    LOG(nullptr, "%s", "once\n");
    EXPECT_EQ(text_written(), "once\n");
    LOG(nullptr, "%s", "twice\n\n");
    EXPECT_EQ(text_written(), "twice\\n\n");
    LOG(nullptr, "%s", "");
    EXPECT_EQ(text_written(), "\n");
}

TEST_F(DebugLog, CutsTextsBehind2048Bytes) {
    LOG(nullptr, "%s", std::string(2048, 't').c_str());
    EXPECT_EQ(text_written(), std::string(2048, 't') + '\n');
    LOG(nullptr, "%s", std::string(2049, 't').c_str());
    EXPECT_EQ(text_written(), std::string(2048, 't') + " [cut]\n");
    LOG(nullptr, "%s", std::string(100000, 't').c_str());
    EXPECT_EQ(text_written(), std::string(2048, 't') + " [cut]\n");
}

TEST_F(DebugLog, CutsNoCharacterInTwo) {
    for (std::size_t before = 2044; before <= 2048; ++before) {
        LOG(nullptr, "%s", (std::string(before, 't') + "\xe2\x82\xac\xe2\x82\xac").c_str());
        const std::string whole = before == 2045 ? "\xe2\x82\xac" : before == 2044 ? "\xe2\x82\xac" : "";
        EXPECT_EQ(text_written(), std::string(before, 't') + whole + " [cut]\n") << before;
    }
}

TEST_F(DebugLog, KeepsLinesWithin4096Bytes) {
    for (std::size_t length = 900; length <= 1100; ++length) {
        LOG(nullptr, "%s", std::string(length, '\x02').c_str());
        const std::string line = written();
        ASSERT_LE(line.size(), 4096U);
        ASSERT_EQ(line.back(), '\n');
        const bool is_cut = line.ends_with(" [cut]\n");
        ASSERT_TRUE(is_cut || line.ends_with("\\x02\n")) << line;
        ASSERT_TRUE(!is_cut || line.size() > 4080) << length;
        ASSERT_TRUE(!is_cut || line.ends_with("\\x02 [cut]\n")) << "half an escape";
    }
}

TEST_F(DebugLog, CutsNoLineOf4096BytesOrLess) {
    LOG(nullptr, "%s", "");
    const std::size_t bare = written().size();
    for (std::size_t size = 4080; size <= 4110; ++size) {
        const std::size_t rest = size - bare;
        const std::string text = std::string(rest / 4, '\x02') + std::string(rest % 4, 'r');
        LOG(nullptr, "%s", text.c_str());
        const std::string line = written();
        EXPECT_EQ(line.ends_with(" [cut]\n"), size > 4096) << size;
        EXPECT_EQ(line.size() == size, size <= 4096) << size;
    }
}

TEST_F(DebugLog, CutsNoCharacterInTwoAtTheEndOfALine) {
    LOG(nullptr, "%s", "");
    const std::size_t bare = written().size();
    for (std::size_t before = 4070; before <= 4100; ++before) {
        const std::size_t rest = before - bare;
        const std::string text = std::string(rest / 4, '\x02') + std::string(rest % 4, 'r');
        LOG(nullptr, "%s", (text + "\xe2\x82\xac\xe2\x82\xac\xe2\x82\xac").c_str());
        std::string line = written();
        ASSERT_LE(line.size(), 4096U) << before;
        if (before + 9 <= 4096) {
            EXPECT_TRUE(line.ends_with("\xe2\x82\xac\n")) << before;
            continue;
        }
        ASSERT_TRUE(line.ends_with(" [cut]\n")) << before;
        EXPECT_GT(line.size(), 4096U - 4) << before;
        line.resize(line.size() - strlen(" [cut]\n"));
        const auto last = static_cast<unsigned char>(line.back());
        EXPECT_TRUE(last == 'r' || last == '2' || (last == 0xac && line.ends_with("\xe2\x82\xac"))) << before;
    }
}

TEST_F(DebugLog, ShowsNothingOfWhatFollowsACut) {
    LOG(nullptr, "%s", "");
    const std::size_t bare = written().size();
    for (std::size_t room = 0; room <= 20; ++room) {
        const std::string filling((4096 - bare) / 4 - 4, '\x02');
        LOG(nullptr, "%s", (filling + std::string(room, 'q') + '\t' + std::string(20, 'r') + "\t\t").c_str());
        std::string whole;
        for (std::size_t i = 0; i < filling.size(); ++i) {
            whole += "\\x02";
        }
        whole += std::string(room, 'q') + "\\t" + std::string(20, 'r') + "\\t\\t\n";
        std::string shown = text_written();
        ASSERT_TRUE(shown.ends_with(" [cut]\n")) << room;
        shown.resize(shown.size() - strlen(" [cut]\n"));
        EXPECT_TRUE(whole.starts_with(shown)) << shown;
    }
}

TEST_F(DebugLog, FindsRoomForTheLongestPath) {
    const std::string name(127, '\x03');
    uint64_t deep = 0;
    ASSERT_EQ(umbra_dt_flag_init(&deep, name.c_str(), 0, 0, 0), 0);
    const uint64_t top = deep;
    umbra_dt_flag_enable(deep, 0);
    for (int level = 1; level < 4; ++level) {
        ASSERT_EQ(umbra_dt_flag_init(&deep, name.c_str(), deep, 0, 0), 0);
        umbra_dt_flag_enable(deep, 0);
    }
    _umbra_dt_log_filter_adv(deep, 0, 0, 0, 0, 0, nullptr, "%s", std::string(2048, 'y').c_str());
    const std::string line = written();
    EXPECT_EQ(line.size(), 4096U);
    EXPECT_TRUE(line.ends_with("yyyy [cut]\n"));
    std::vector<umbra_dt_flag_info> picture(umbra_dt_flags(nullptr, 0) + 1);
    static_assert(offsetof(umbra_dt_flag_info, path) + UMBRA_DT_PATH_MAX + 1 == sizeof(umbra_dt_flag_info));
    picture.back().flag = UINT64_MAX;
    ASSERT_EQ(umbra_dt_flags(picture.data(), picture.size() - 1), picture.size() - 1);
    EXPECT_EQ(strlen(picture[picture.size() - 2].path), std::size_t{UMBRA_DT_PATH_MAX});
    EXPECT_EQ(picture.back().flag, UINT64_MAX) << "what follows the longest path was overwritten";
    umbra_dt_flag_destroy(top);
}

TEST_F(DebugLog, ReplacesWhatCannotBeFormattedByItsFormat) {
    const wchar_t unknown[] = {0x12345678, 0};
    LOG(nullptr, "wide %ls", unknown);
    EXPECT_EQ(text_written(), "wide %ls\n");
}

TEST_F(DebugLog, KeepsErrnoAndPrintsIt) {
    errno = ENOENT;
    const char *volatile format = "%m";  // not known to ISO C, as the compiler would point out
    LOG(nullptr, format, 0);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(text_written(), "No such file or directory\n");
    umbra_dt_flag_disable(flag);
    errno = ERANGE;
    LOG(nullptr, "off");
    EXPECT_EQ(errno, ERANGE);
}

TEST_F(DebugLog, CountsTheLinesThatTheStreamDoesNotTake) {
    const int full = ends[1];
    ASSERT_EQ(fcntl(full, F_SETFL, O_NONBLOCK), 0);
    const uint64_t before = umbra_dt_lost_lines();
    unsigned logged = 0;
    while (umbra_dt_lost_lines() == before && logged < 100000) {
        LOG(nullptr, "%s", std::string(1000, 'f').c_str());
        ++logged;
    }
    EXPECT_EQ(umbra_dt_lost_lines(), before + 1);
    unsigned arrived = 0;
    while (written() != "nothing") {
        ++arrived;
    }
    EXPECT_EQ(arrived, logged - 1);
}

bool sigpipe_is_pending() {
    sigset_t pending;
    sigpending(&pending);
    return sigismember(&pending, SIGPIPE) == 1;
}

bool sigpipe_is_blocked() {
    sigset_t blocked;
    pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
    return sigismember(&blocked, SIGPIPE) == 1;
}

void change_mask_of_sigpipe(int how) {
    sigset_t sigpipe;
    sigemptyset(&sigpipe);
    sigaddset(&sigpipe, SIGPIPE);
    pthread_sigmask(how, &sigpipe, nullptr);
}

// The stream is a pipe or a socket whose reader is gone: a write there ends the program that lets it.
class DebugLogWithoutReader : public DebugLog, public testing::WithParamInterface<const char *> {
  protected:
    void SetUp() override {
        DebugLog::SetUp();
        if (GetParam() == std::string("pipe")) {
            ASSERT_EQ(pipe(stream), 0);
        } else {
            ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, stream), 0);
        }
        close(stream[0]);
        umbra_dt_log_to_stream(stream[1]);
    }

    void TearDown() override {
        change_mask_of_sigpipe(SIG_UNBLOCK);
        DebugLog::TearDown();
        close(stream[1]);
    }

    int stream[2] = {-1, -1};
    const uint64_t lost_before = umbra_dt_lost_lines();
};

TEST_P(DebugLogWithoutReader, LosesTheLineAndGoesOn) {
    LOG(nullptr, "to nobody");
    LOG(nullptr, "to nobody");
    EXPECT_EQ(umbra_dt_lost_lines(), lost_before + 2);
    EXPECT_FALSE(sigpipe_is_blocked());
    EXPECT_FALSE(sigpipe_is_pending());
}

TEST_P(DebugLogWithoutReader, LeavesNoSignalForWhoBlocksIt) {
    change_mask_of_sigpipe(SIG_BLOCK);
    LOG(nullptr, "to nobody");
    EXPECT_TRUE(sigpipe_is_blocked());
    EXPECT_FALSE(sigpipe_is_pending());
    EXPECT_EQ(umbra_dt_lost_lines(), lost_before + 1);
}

std::atomic<unsigned> sigpipes_handled{0};

void count_sigpipe(int /*signal*/) {
    ++sigpipes_handled;
}

TEST_P(DebugLogWithoutReader, LeavesAloneWhatWasPending) {
    struct sigaction action = {};
    struct sigaction before = {};
    action.sa_handler = count_sigpipe;
    sigaction(SIGPIPE, &action, &before);
    sigpipes_handled = 0;
    LOG(nullptr, "to nobody");
    EXPECT_EQ(sigpipes_handled, 0U);
    change_mask_of_sigpipe(SIG_BLOCK);
    pthread_kill(pthread_self(), SIGPIPE);
    LOG(nullptr, "to nobody");
    EXPECT_TRUE(sigpipe_is_pending());
    change_mask_of_sigpipe(SIG_UNBLOCK);
    EXPECT_EQ(sigpipes_handled, 1U);
    EXPECT_FALSE(sigpipe_is_pending());
    sigaction(SIGPIPE, &before, nullptr);
}

TEST_P(DebugLogWithoutReader, KeepsToWhoIgnoresTheSignal) {
    struct sigaction action = {};
    struct sigaction before = {};
    action.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &action, &before);
    LOG(nullptr, "to nobody");
    EXPECT_EQ(umbra_dt_lost_lines(), lost_before + 1);
    sigaction(SIGPIPE, &before, nullptr);
    EXPECT_FALSE(sigpipe_is_blocked());
    EXPECT_FALSE(sigpipe_is_pending());
}

TEST_P(DebugLogWithoutReader, GivesThePrintedTreeAnError) {
    EXPECT_EQ(umbra_dt_flags_print(stream[1]), EPIPE);
    EXPECT_FALSE(sigpipe_is_pending());
}

INSTANTIATE_TEST_SUITE_P(Streams, DebugLogWithoutReader, testing::Values("pipe", "socket"),
                         [](const auto &stream) { return std::string(stream.param); });

TEST_F(DebugLog, SilencesSitesByTheirFormat) {
    EXPECT_EQ(umbra_dt_silence("noisy"), 0);
    EXPECT_EQ(umbra_dt_silence("noisy"), 0);
    EXPECT_EQ(umbra_dt_silence("loud"), 0);
    LOG(nullptr, "a noisy site %d", 1);
    LOG(nullptr, "loud");
    LOG(nullptr, "%s", "noisy in its arguments only");
    EXPECT_EQ(text_written(), "noisy in its arguments only\n");
    EXPECT_EQ(umbra_dt_unsilence("noisy"), 0);
    EXPECT_EQ(umbra_dt_unsilence("noisy"), ENOENT);
    LOG(nullptr, "a noisy site %d", 2);
    EXPECT_EQ(text_written(), "a noisy site 2\n");
    LOG(nullptr, "loud");
    EXPECT_EQ(written(), "nothing");
    EXPECT_EQ(umbra_dt_unsilence("loud"), 0);
    LOG(nullptr, "loud");
    EXPECT_EQ(text_written(), "loud\n");
}

TEST_F(DebugLog, SilencesSoManyTextsOnly) {
    EXPECT_EQ(umbra_dt_silence(nullptr), EINVAL);
    EXPECT_EQ(umbra_dt_silence(""), EINVAL);
    EXPECT_EQ(umbra_dt_silence(std::string(128, 's').c_str()), EINVAL);
    EXPECT_EQ(umbra_dt_unsilence(nullptr), ENOENT);
    for (int i = 0; i < 32; ++i) {
        EXPECT_EQ(umbra_dt_silence(("silent " + std::to_string(i)).c_str()), 0);
    }
    EXPECT_EQ(umbra_dt_silence("one more"), ENOSPC);
    EXPECT_EQ(umbra_dt_silence("silent 31"), 0);
    for (int i = 0; i < 32; ++i) {
        EXPECT_EQ(umbra_dt_unsilence(("silent " + std::to_string(i)).c_str()), 0);
    }
}

#define DIGITS_30 "012345678901234567890123456789"
#define DIGITS_120 DIGITS_30 DIGITS_30 DIGITS_30 DIGITS_30

TEST_F(DebugLog, SilencesTheLongestTextsOneBesideTheOther) {
    static_assert(sizeof "first: " DIGITS_120 == UMBRA_DT_NAME_MAX + 1);
    EXPECT_EQ(umbra_dt_silence("first: " DIGITS_120), 0);
    EXPECT_EQ(umbra_dt_silence("other: " DIGITS_120), 0);
    EXPECT_EQ(umbra_dt_silence("third: " DIGITS_120), 0);
    LOG(nullptr, "first: " DIGITS_120);
    LOG(nullptr, "other: " DIGITS_120);
    LOG(nullptr, "third: " DIGITS_120);
    EXPECT_EQ(written(), "nothing");
    for (const char *text : {"other: " DIGITS_120, "first: " DIGITS_120, "third: " DIGITS_120}) {
        EXPECT_EQ(umbra_dt_unsilence(text), 0);
    }
}

TEST_F(DebugLog, ATextTakesThePlaceOfALongerOne) {
    EXPECT_EQ(umbra_dt_silence("noisy neighbour"), 0);
    EXPECT_EQ(umbra_dt_unsilence("noisy neighbour"), 0);
    EXPECT_EQ(umbra_dt_silence("noisy"), 0);
    LOG(nullptr, "a noisy site");
    EXPECT_EQ(written(), "nothing");
    EXPECT_EQ(umbra_dt_unsilence("noisy"), 0);
}

void do_nothing(int /*signal*/) {}

// A pipe that is full takes a line piece by piece, and signals interrupt the waiting.
TEST_F(DebugLog, WritesOnWhenInterrupted) {
    struct sigaction action = {};
    struct sigaction before = {};
    action.sa_handler = do_nothing;  // without SA_RESTART
    sigaction(SIGUSR1, &action, &before);
    int pipe_ends[2];
    ASSERT_EQ(pipe(pipe_ends), 0);
    ASSERT_EQ(fcntl(pipe_ends[1], F_SETPIPE_SZ, 4096), 4096);
    umbra_dt_log_to_stream(pipe_ends[1]);
    const uint64_t lost = umbra_dt_lost_lines();
    std::atomic<bool> ends_soon{false};
    constexpr unsigned lines = 20;
    std::thread writer([&] {
        for (unsigned i = 0; i < lines; ++i) {
            LOG(nullptr, "%s", std::string(2000, 'w').c_str());
        }
        ends_soon = true;
        while (ends_soon) {
            std::this_thread::yield();
        }
    });
    std::string text;
    char buffer[700];
    while (!ends_soon) {
        pthread_kill(writer.native_handle(), SIGUSR1);
        std::this_thread::sleep_for(std::chrono::microseconds(200));
        text.append(buffer, static_cast<std::size_t>(read(pipe_ends[0], buffer, sizeof buffer)));
        if (std::count(text.begin(), text.end(), '\n') == lines) {
            break;
        }
    }
    while (!ends_soon) {
        std::this_thread::yield();
    }
    ends_soon = false;
    writer.join();
    fcntl(pipe_ends[0], F_SETFL, O_NONBLOCK);
    for (ssize_t n = read(pipe_ends[0], buffer, sizeof buffer); n > 0; n = read(pipe_ends[0], buffer, sizeof buffer)) {
        text.append(buffer, static_cast<std::size_t>(n));
    }
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), lines);
    EXPECT_EQ(std::count(text.begin(), text.end(), 'w'), lines * 2000);
    EXPECT_EQ(umbra_dt_lost_lines(), lost);
    umbra_dt_log_to_stream(-1);
    close(pipe_ends[0]);
    close(pipe_ends[1]);
    sigaction(SIGUSR1, &before, nullptr);
}

TEST_F(DebugLog, GoesToStandardErrorUnlessToldOtherwise) {
    EXPECT_EXIT(
        {
            // As set at the beginning of a program, which SetUp() has changed.
            umbra_dt_log_to_stream(STDERR_FILENO);
            LOG(nullptr, "seen");
            _exit(0);
        },
        testing::ExitedWithCode(0), "agent/error: seen\n");
}

}  // namespace
