// The library on the platform that it comes with: real trace files, flags, allocation and trees.
#include <gtest/gtest.h>
#include <nyx_session_store.h>
#include <skein/reader.h>
#include <skein/skein.h>
#include <sys/wait.h>
#include <umbra/debug_trace.h>
#include <umbra/named_alloc.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace {

// The entries of a trace file that the library wrote, oldest first.
std::vector<std::string> entries_of(const std::string &name) {
    std::vector<std::string> texts;
    skein_reader *reader = nullptr;
    EXPECT_EQ(skein_reader_open(nullptr, name.c_str(), &reader), 0) << name;
    skein_entry entry;
    while (reader != nullptr && skein_reader_next(reader, &entry) == 0) {
        EXPECT_EQ(entry.attributes, 0x0000010101000000U);
        texts.emplace_back(entry.text, entry.length);
    }
    skein_reader_close(reader);
    return texts;
}

// The number behind "#".
unsigned long index_of(const std::string &line) {
    return std::stoul(line.substr(1));
}

class BundledPlatform : public testing::Test {
  public:
    BundledPlatform(const BundledPlatform &) = delete;
    BundledPlatform &operator=(const BundledPlatform &) = delete;

  protected:
    BundledPlatform() {
        umbra_dt_log_to_stream(-1);
        EXPECT_NE(mkdtemp(directory_.data()), nullptr);
        EXPECT_EQ(setenv("SKEIN_DIR", directory_.c_str(), 1), 0);
        umbra_dt_log_to_callback(remember, this);
        nyx_debug_save_agent_name("agentx");
    }
    ~BundledPlatform() override {
        nyx_log_set_ctx(nullptr);
        umbra_dt_log_to_stream(STDERR_FILENO);
        std::filesystem::remove_all(directory_);
    }

    static void remember(const char *line, uint64_t length, void *self) {
        static_cast<BundledPlatform *>(self)->log_.emplace_back(line, length);
    }

    bool logged(const std::string &text) const {
        return std::any_of(log_.begin(), log_.end(),
                           [&](const std::string &line) { return line.find(text) != std::string::npos; });
    }

    std::string directory_ = testing::TempDir() + "nyx_bundled_XXXXXX";
    std::vector<std::string> log_;
    nyx_api_ctx api_ = {};
};

// A root context that is cleaned up with its sessions, and whose trace file is closed.
class BundledContexts : public BundledPlatform {
  protected:
    BundledContexts() {
        EXPECT_EQ(nyx_debug_init(&api_.debug, "bundled", NYX_COMPONENT_NYX, nullptr), 0);
        EXPECT_EQ(nyx_session_store_init(&api_), 0);
    }
    ~BundledContexts() override {
        EXPECT_EQ(nyx_session_store_cleanup(&api_), 0);
        EXPECT_EQ(nyx_debug_cleanup(&api_.debug), 0);
        EXPECT_EQ(skein_close(api_.debug.trace_handle), 0);
    }

    void trace_sessions(int count) {
        for (int i = 0; i < count; ++i) {
            nyx_session_destroy(&api_, nyx_session_create(&api_));
        }
    }
};

constexpr const char *processor_trace = "agentx-nyx/processor.trace";

TEST_F(BundledContexts, InitialisationLandsInTheTraceFile) {
    const std::vector<std::string> lines = entries_of(processor_trace);
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_NE(lines[0].find(": DBG: nyx_debug_init:"), std::string::npos);
    EXPECT_NE(lines[0].find(",bundled: Debug logging initialized"), std::string::npos);
    EXPECT_NE(lines[1].find(",bundled: Trace logging initialized"), std::string::npos);
    EXPECT_EQ(index_of(lines[1]), index_of(lines[0]) + 1);
    EXPECT_TRUE(log_.empty());
}

TEST_F(BundledContexts, ALevelOpensTheDebugLogUnderTheFlagOfItsType) {
    trace_sessions(1);
    EXPECT_TRUE(log_.empty());
    ASSERT_EQ(nyx_debug_logging_set_level(&api_, NYX_COMPONENT_NYX, 0, 0, QUILL_NYX_LOGGING_LEVEL_DEBUG, 1), 0);
    trace_sessions(1);
    EXPECT_TRUE(logged("Log level set to DEBUG for NYX general"));
    EXPECT_TRUE(logged(",assigned session-id="));
    EXPECT_TRUE(std::all_of(log_.begin(), log_.end(),
                            [](const std::string &line) { return line.find("bundled/debug") != std::string::npos; }));
}

TEST_F(BundledContexts, ASwitchedOffFlagSilencesItsLines) {
    api_.debug.level = QUILL_NYX_LOGGING_LEVEL_TRACE;
    ASSERT_EQ(umbra_dt_flag_disable(api_.debug.debug_flag), 0);
    trace_sessions(1);
    EXPECT_TRUE(log_.empty());
    ASSERT_EQ(umbra_dt_flag_enable(api_.debug.debug_flag, 0), 0);
    trace_sessions(1);
    EXPECT_EQ(log_.size(), 1U);
}

TEST_F(BundledContexts, CleaningUpTheRootDestroysItsFlags) {
    EXPECT_NE(umbra_dt_flag_find("bundled/error"), 0U);
    nyx_debug_ctx_t other = {};
    ASSERT_EQ(nyx_debug_init(&other, "passing", NYX_COMPONENT_ME, nullptr), 0);
    EXPECT_NE(umbra_dt_flag_find("passing/trace"), 0U);
    EXPECT_EQ(nyx_debug_cleanup(&other), 0);
    EXPECT_EQ(umbra_dt_flag_find("passing"), 0U);
    EXPECT_EQ(umbra_dt_flag_find("passing/trace"), 0U);
    EXPECT_EQ(nyx_debug_cleanup(&other), NYX_RC_DEBUG_CLEANUP) << "the flags are gone";
    EXPECT_EQ(skein_close(other.trace_handle), 0);
}

TEST_F(BundledContexts, AChildWritesIntoAFileOfItsOwn) {
    nyx_debug_ctx_t child = {};
    ASSERT_EQ(nyx_debug_init(&child, "me", NYX_COMPONENT_ME, &api_.debug), 0);
    EXPECT_TRUE(entries_of("agentx-nyx/me.trace").empty());
    EXPECT_NE(entries_of(processor_trace).back().find(",me: Using existing DT flags"), std::string::npos)
        << "the line about the child goes where its parent's lines go";
    EXPECT_EQ(nyx_debug_cleanup(&child), 0);
    EXPECT_EQ(skein_close(child.trace_handle), 0);
}

TEST_F(BundledContexts, ATraceFileFilledPastItsEndKeepsTheNewestLines) {
    const unsigned entries = trace_table[NYX_COMPONENT_NYX].first_size;
    trace_sessions(static_cast<int>(entries) * 2);
    const unsigned long next = ret_nc_nyx_trace_index_incr();
    const std::vector<std::string> lines = entries_of(processor_trace);
    ASSERT_EQ(lines.size(), entries) << "a line takes one slot";
    for (std::size_t i = 0; i < lines.size(); ++i) {
        ASSERT_EQ(index_of(lines[i]), next - entries + i);
        ASSERT_NE(lines[i].find("assigned session-id="), std::string::npos);
    }
}

TEST_F(BundledContexts, ClearingEmptiesTheFilesAndGoesOn) {
    nyx_debug_ctx_t child = {};
    ASSERT_EQ(nyx_debug_init(&child, "qt", NYX_COMPONENT_QT, &api_.debug), 0);
    trace_sessions(5);
    ASSERT_FALSE(entries_of(processor_trace).empty());
    const auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(nyx_clear_trace(&api_), 0);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(100))
        << "whoever is writing a line is given time";
    EXPECT_TRUE(entries_of(processor_trace).empty());
    EXPECT_TRUE(entries_of("agentx-nyx/qt.trace").empty());
    EXPECT_EQ(api_.debug.trace_enabled, 1U);
    EXPECT_EQ(child.trace_enabled, 1U);
    trace_sessions(1);
    EXPECT_EQ(entries_of(processor_trace).size(), 1U);
    EXPECT_EQ(nyx_debug_cleanup(&child), 0);
    EXPECT_EQ(skein_close(child.trace_handle), 0);
}

TEST_F(BundledContexts, TracingIntoARemovedDirectoryHarmsNobody) {
    std::filesystem::remove_all(directory_);
    trace_sessions(3);
    testing::internal::CaptureStderr();
    EXPECT_NE(nyx_reinit_trace_buffer(&api_.debug), 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              std::string("skein_delete(agentx-nyx/processor.trace) failed, ") + rcode_strerror(ENOENT));
    trace_sessions(3);
    EXPECT_EQ(nyx_init_trace_buffer(&api_.debug), 0);
    trace_sessions(1);
    EXPECT_EQ(entries_of(processor_trace).size(), 1U);
}

TEST_F(BundledPlatform, ATraceDirectoryThatCannotBeMadeIsReported) {
    ASSERT_EQ(setenv("SKEIN_DIR", "/proc/nowhere", 1), 0);
    testing::internal::CaptureStderr();
    EXPECT_EQ(nyx_debug_init(&api_.debug, "untraced", NYX_COMPONENT_NYX, nullptr), NYX_RC_DEBUG_INIT);
    const std::string message = testing::internal::GetCapturedStderr();
    EXPECT_EQ(message.find("Init trace buffer (agentx-nyx/processor.trace) failed! ("), 0U) << message;
    EXPECT_EQ(message.back(), ')');
    EXPECT_EQ(api_.debug.trace_enabled, 0U);
    EXPECT_EQ(nyx_debug_cleanup(&api_.debug), 0) << "the flags that were registered are destroyed";
}

TEST_F(BundledPlatform, AnEmptyNameIsNoNameForAFlag) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(nyx_debug_init(&api_.debug, "", NYX_COMPONENT_NYX, nullptr), NYX_RC_DEBUG_INIT);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(api_.debug.component_flag, 0U);
    EXPECT_EQ(api_.debug.trace_enabled, 0U);
    EXPECT_FALSE(std::filesystem::exists(directory_ + "/" + processor_trace)) << "no flag, no trace file";
}

TEST_F(BundledPlatform, AComponentWithoutATraceFileIsReported) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(nyx_debug_init(&api_.debug, "fileless", NYX_COMPONENT_ALL, nullptr), NYX_RC_DEBUG_INIT);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              std::string("Init trace buffer (agentx-) failed! (") + rcode_strerror(EINVAL) + ")");
    EXPECT_EQ(api_.debug.trace_enabled, 0U);
    EXPECT_EQ(nyx_debug_cleanup(&api_.debug), 0);
}

TEST_F(BundledContexts, SessionsAreFoundDestroyedAndAccountedFor) {
    umbra_named_usage before = {};
    umbra_named_total(&before);
    constexpr int count = 10'000;
    std::vector<nyx_session_ctx *> sessions;
    std::set<uint32_t> ids;
    for (int i = 0; i < count; ++i) {
        sessions.push_back(nyx_session_create(&api_));
        ASSERT_NE(sessions.back(), nullptr);
        ids.insert(sessions.back()->session_id);
    }
    EXPECT_EQ(ids.size(), sessions.size());
    umbra_named_usage usage = {};
    ASSERT_EQ(umbra_named_usage_of("NYX session context (nyx_session_create)", &usage), 0);
    EXPECT_EQ(usage.live_blocks, sessions.size());
    EXPECT_EQ(usage.live_bytes, sessions.size() * sizeof(nyx_session_ctx));
    std::shuffle(sessions.begin(), sessions.end(), std::minstd_rand(1));
    for (nyx_session_ctx *session : sessions) {
        const uint32_t id = session->session_id;
        ASSERT_EQ(nyx_session_find(&api_, id), session);
        session->session_owned_a = umbra_named_malloc_(10, "owned a");
        session->session_owned_b = umbra_named_malloc_(20, "owned b");
        nyx_session_destroy(&api_, session);
        ASSERT_EQ(nyx_session_find(&api_, id), nullptr);
    }
    umbra_named_usage after = {};
    umbra_named_total(&after);
    EXPECT_EQ(after.live_blocks, before.live_blocks);
    EXPECT_EQ(after.live_bytes, before.live_bytes);
}

TEST_F(BundledContexts, CleaningUpTheStoreReleasesTheSessionsThatAreLeft) {
    umbra_named_usage before = {};
    umbra_named_total(&before);
    for (int i = 0; i < 1000; ++i) {
        ASSERT_NE(nyx_session_create(&api_), nullptr);
    }
    ASSERT_EQ(nyx_session_store_cleanup(&api_), 0);
    umbra_named_usage after = {};
    umbra_named_total(&after);
    EXPECT_EQ(after.live_blocks, before.live_blocks);
    ASSERT_EQ(nyx_session_store_init(&api_), 0) << "usable again";
}

// Writes session lines until it is killed, and tells through the pipe each one that is done.
[[noreturn]] void write_until_killed(nyx_api_ctx *api, int done) {
    for (;;) {
        nyx_session_destroy(api, nyx_session_create(api));
        const char one = 1;
        if (write(done, &one, 1) != 1) {
            _exit(1);
        }
    }
}

// The library's writers, killed at any instant: each line that they had finished is there afterwards, whole.
TEST_F(BundledContexts, LinesOfKilledWritersAreKept) {
    std::minstd_rand random(3);
    for (int round = 0; round < 100; ++round) {
        ASSERT_EQ(nyx_reinit_trace_buffer(&api_.debug), 0);
        int done[2];
        ASSERT_EQ(pipe(done), 0);
        const pid_t writer = fork();
        ASSERT_GE(writer, 0);
        if (writer == 0) {
            close(done[0]);
            write_until_killed(&api_, done[1]);
        }
        close(done[1]);
        usleep(static_cast<useconds_t>(random() % 3000));
        ASSERT_EQ(kill(writer, SIGKILL), 0);
        ASSERT_EQ(waitpid(writer, nullptr, 0), writer);
        std::size_t finished = 0;
        char read_back[4096];
        for (ssize_t got = 0; (got = read(done[0], read_back, sizeof read_back)) > 0;) {
            finished += static_cast<std::size_t>(got);
        }
        close(done[0]);
        const std::vector<std::string> lines = entries_of(processor_trace);
        // A slot that the writer was in is lost until the ring comes round to it again.
        const std::size_t room = trace_table[NYX_COMPONENT_NYX].first_size - 1;
        ASSERT_GE(lines.size(), std::min(finished, room));
        ASSERT_LE(lines.size(), finished + 1);
        for (std::size_t i = 1; i < lines.size(); ++i) {
            ASSERT_EQ(index_of(lines[i]), index_of(lines[i - 1]) + 1);
        }
        trace_sessions(1);
        ASSERT_EQ(index_of(entries_of(processor_trace).back()), ret_nc_nyx_trace_index_incr() - 1)
            << "the next writer goes on";
    }
}

}  // namespace
