// The trace files of the components: their names and sizes, opening and emptying them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <ctime>
#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "frame_fixture.h"
#include "nyx_api.h"
#include "nyx_debug.h"

namespace {

// What the program's own nanosleep() does, which never sleeps: the library calls it in place of the C library's.
struct fake_sleep {
    std::vector<std::array<std::int64_t, 2>> asked;         // seconds and nanoseconds
    std::deque<std::array<std::int64_t, 2>> interruptions;  // what remains of the next ones
    std::function<void()> meanwhile;
};

fake_sleep &sleep_of_library() {
    static fake_sleep sleep;
    return sleep;
}

}  // namespace

extern "C" int nanosleep(const timespec *requested_time, timespec *remaining) {
    fake_sleep &sleep = sleep_of_library();
    sleep.asked.push_back({requested_time->tv_sec, requested_time->tv_nsec});
    if (sleep.meanwhile) {
        sleep.meanwhile();
    }
    if (sleep.interruptions.empty()) {
        return 0;
    }
    if (remaining != nullptr) {
        *remaining = {sleep.interruptions.front()[0], sleep.interruptions.front()[1]};
    }
    sleep.interruptions.pop_front();
    errno = EINTR;
    return -1;
}

namespace {

using nyx_test::assertion_regex;
using nyx_test::call;
using nyx_test::called;
using nyx_test::calls_of;
using nyx_test::null_regex;
using nyx_test::recorder;
using nyx_test::text_of_code;
using nyx_test::trace_handle;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr rcode not_set_up = -1426939392;  // 0xAAF2A200

// What is written to the standard error stream while the action is done.
template <class Action>
std::string printed_by(Action action) {
    testing::internal::CaptureStderr();
    action();
    return testing::internal::GetCapturedStderr();
}

struct trace_file {
    std::uint32_t component;
    const char *file_name;
    std::uint32_t first_size;
    std::uint32_t second_size;
};

const trace_file trace_files[] = {
    {2, "nyx/processor.trace", 6144, 1572864}, {3, "nyx/me.trace", 49152, 12582912},
    {4, "nyx/qt.trace", 32768, 4194304},       {5, "nyx/bk.trace", 24576, 6291456},
    {6, "nyx/map.trace", 16384, 4194304},      {7, "nyx/sable.trace", 8192, 2097152},
    {8, "nyx/doric.trace", 8192, 2097152},     {9, "nyx/nacm.trace", 4096, 1048576},
    {10, "nyx/brief.trace", 2048, 524288},
};

class TraceBuffer : public nyx_test::frame_test {
  protected:
    nyx_debug_ctx_t ctx_{};
};

using TraceTable = TraceBuffer;
using InitTraceBuffer = TraceBuffer;
using ReinitTraceBuffer = TraceBuffer;
using TraceBufferDeathTest = TraceBuffer;

TEST_F(TraceTable, HoldsEveryComponent) {
    static_assert(sizeof trace_table / sizeof *trace_table == 12);
    for (std::uint32_t component = 0; component < 12; ++component) {
        EXPECT_EQ(trace_table[component].component, component);
    }
    for (const trace_file &file : trace_files) {
        EXPECT_STREQ(trace_table[file.component].file_name, file.file_name);
        EXPECT_EQ(trace_table[file.component].first_size, file.first_size);
        EXPECT_EQ(trace_table[file.component].second_size, file.second_size);
    }
    for (const std::uint32_t component : {0U, 1U, 11U}) {
        EXPECT_EQ(trace_table[component].file_name, nullptr);
        EXPECT_EQ(trace_table[component].first_size, 0U);
        EXPECT_EQ(trace_table[component].second_size, 0U);
    }
}

TEST_F(InitTraceBuffer, OpensTheFileOfTheComponent) {
    for (const trace_file &file : trace_files) {
        recorder().reset();
        ctx_ = {};
        ctx_.component = file.component;
        EXPECT_EQ(nyx_init_trace_buffer(&ctx_), 0);
        const std::string name = std::string("agentx-") + file.file_name;
        EXPECT_EQ(recorder().calls(), calls_of(called("skein_init2", name.c_str(), 0, 0, file.first_size,
                                                      file.second_size, 0, &ctx_.trace_handle)));
        EXPECT_EQ(ctx_.trace_handle, trace_handle(1));
        EXPECT_EQ(ctx_.trace_enabled, 1U);
    }
}

TEST_F(InitTraceBuffer, CutsTheAgentNameInTheFileName) {
    nyx_debug_save_agent_name("an-agent-with-a-long-name");
    ctx_.component = NYX_COMPONENT_NYX;
    EXPECT_EQ(nyx_init_trace_buffer(&ctx_), 0);
    ASSERT_THAT(recorder().calls(), SizeIs(1));
    EXPECT_EQ(recorder().calls()[0].arguments[0].text, "an-agent-with-a-lon-nyx/processor.trace");
}

TEST_F(InitTraceBuffer, DoesNotCloseAnOpenFile) {
    ctx_.component = NYX_COMPONENT_ME;
    ctx_.trace_handle = 55;
    EXPECT_EQ(nyx_init_trace_buffer(&ctx_), 0);
    EXPECT_THAT(recorder().functions(), ElementsAre("skein_init2"));
    EXPECT_EQ(ctx_.trace_handle, trace_handle(1));
}

TEST_F(InitTraceBuffer, ReportsAFileThatDoesNotOpen) {
    for (const std::int32_t code : {17, -1426939904, -1}) {
        recorder().reset();
        ctx_ = {};
        ctx_.component = NYX_COMPONENT_NYX;
        ctx_.trace_handle = 55;
        ctx_.trace_enabled = 1;
        recorder().fail("skein_init2", 1, code);
        rcode rc = 0;
        EXPECT_EQ(printed_by([&] { rc = nyx_init_trace_buffer(&ctx_); }),
                  "Init trace buffer (agentx-nyx/processor.trace) failed! (" + text_of_code(code) + ")");
        EXPECT_EQ(rc, not_set_up);
        EXPECT_EQ(ctx_.trace_handle, 0U);
        EXPECT_EQ(ctx_.trace_enabled, 0U);
        EXPECT_EQ(recorder().calls(), calls_of(called("skein_init2", "agentx-nyx/processor.trace", 0, 0, 6144, 1572864,
                                                      0, &ctx_.trace_handle),
                                               called("rcode_strerror", code)));
    }
}

// Whoever traces meanwhile goes on with the old file.
TEST_F(InitTraceBuffer, LeavesHandleAndTracingAloneUntilTheLibraryAnswers) {
    ctx_.component = NYX_COMPONENT_NYX;
    for (const std::uint32_t enabled : {0U, 7U}) {
        ctx_.trace_handle = 55;
        ctx_.trace_enabled = enabled;
        nyx_debug_ctx_t at_open{};
        recorder().when_called("skein_init2", [&] { at_open = ctx_; });
        EXPECT_EQ(nyx_init_trace_buffer(&ctx_), 0);
        EXPECT_EQ(at_open.trace_handle, 55U);
        EXPECT_EQ(at_open.trace_enabled, enabled);
        EXPECT_EQ(ctx_.trace_enabled, 1U);
    }
}

// Whether there can be a file without a name and without room is the trace library's to say.
TEST_F(InitTraceBuffer, OfAComponentWithoutAFileAsksForOneWithoutRoom) {
    for (const std::uint32_t component : {0U, 1U, 11U, 12U, 0xFFFFFFFFU}) {
        recorder().reset();
        ctx_.component = component;
        EXPECT_EQ(nyx_init_trace_buffer(&ctx_), 0);
        EXPECT_EQ(recorder().calls(), calls_of(called("skein_init2", "agentx-", 0, 0, 0, 0, 0, &ctx_.trace_handle)));
    }
}

TEST_F(ReinitTraceBuffer, ClosesDeletesAndOpens) {
    ctx_.component = NYX_COMPONENT_BK;
    ctx_.trace_handle = 55;
    EXPECT_EQ(nyx_reinit_trace_buffer(&ctx_), 0);
    EXPECT_EQ(recorder().calls(),
              calls_of(called("skein_close", 55), called("skein_delete", "agentx-nyx/bk.trace"),
                       called("skein_init2", "agentx-nyx/bk.trace", 0, 0, 24576, 6291456, 0, &ctx_.trace_handle)));
    EXPECT_EQ(ctx_.trace_handle, trace_handle(1));
    EXPECT_EQ(ctx_.trace_enabled, 1U);
}

TEST_F(ReinitTraceBuffer, ClosesNothingThatIsNotOpen) {
    ctx_.component = NYX_COMPONENT_BK;
    EXPECT_EQ(nyx_reinit_trace_buffer(&ctx_), 0);
    EXPECT_THAT(recorder().functions(), ElementsAre("skein_delete", "skein_init2"));
    EXPECT_EQ(ctx_.trace_enabled, 1U);
}

TEST_F(ReinitTraceBuffer, LeavesTracingAloneUntilTheFileIsOpenAgain) {
    ctx_.component = NYX_COMPONENT_BK;
    for (const std::uint32_t enabled : {0U, 7U}) {
        ctx_.trace_handle = 55;
        ctx_.trace_enabled = enabled;
        std::vector<std::uint32_t> seen;
        for (const char *const function : {"skein_close", "skein_delete", "skein_init2"}) {
            recorder().when_called(function, [&] { seen.push_back(ctx_.trace_enabled); });
        }
        EXPECT_EQ(nyx_reinit_trace_buffer(&ctx_), 0);
        EXPECT_THAT(seen, ElementsAre(enabled, enabled, enabled));
    }
}

TEST_F(ReinitTraceBuffer, StopsWithoutAnOpenFileToo) {
    ctx_.component = NYX_COMPONENT_BK;
    recorder().fail("skein_delete", 1, 2);
    rcode rc = 0;
    EXPECT_EQ(printed_by([&] { rc = nyx_reinit_trace_buffer(&ctx_); }),
              "skein_delete(agentx-nyx/bk.trace) failed, " + text_of_code(2));
    EXPECT_EQ(rc, 2);
    EXPECT_EQ(ctx_.trace_handle, 0U);
    EXPECT_EQ(ctx_.trace_enabled, 0U);
    EXPECT_THAT(recorder().functions(), ElementsAre("skein_delete", "rcode_strerror"));
}

TEST_F(ReinitTraceBuffer, GoesOnWhenTheFileDoesNotClose) {
    ctx_.component = NYX_COMPONENT_BK;
    ctx_.trace_handle = 55;
    recorder().fail("skein_close", 1, 9);
    EXPECT_EQ(nyx_reinit_trace_buffer(&ctx_), 0);
    EXPECT_EQ(ctx_.trace_handle, trace_handle(1));
}

TEST_F(ReinitTraceBuffer, StopsWhenTheFileIsNotDeleted) {
    for (const std::int32_t code : {2, -1426939904}) {
        for (const std::uint32_t enabled : {0U, 1U, 7U}) {
            recorder().reset();
            ctx_.component = NYX_COMPONENT_BK;
            ctx_.trace_handle = 55;
            ctx_.trace_enabled = enabled;
            recorder().fail("skein_delete", 1, code);
            rcode rc = 0;
            EXPECT_EQ(printed_by([&] { rc = nyx_reinit_trace_buffer(&ctx_); }),
                      "skein_delete(agentx-nyx/bk.trace) failed, " + text_of_code(code));
            EXPECT_EQ(rc, code);
            EXPECT_EQ(ctx_.trace_handle, 55U);
            EXPECT_EQ(ctx_.trace_enabled, enabled);
            EXPECT_THAT(recorder().calls("skein_init2"), IsEmpty());
        }
    }
}

TEST_F(ReinitTraceBuffer, ReportsAFileThatDoesNotOpenAgain) {
    ctx_.component = NYX_COMPONENT_BK;
    ctx_.trace_handle = 55;
    ctx_.trace_enabled = 1;
    recorder().fail("skein_init2", 1, 12);
    rcode rc = 0;
    EXPECT_EQ(printed_by([&] { rc = nyx_reinit_trace_buffer(&ctx_); }),
              "Init trace buffer (agentx-nyx/bk.trace) failed! (" + text_of_code(12) + ")");
    EXPECT_EQ(rc, not_set_up);
    EXPECT_EQ(ctx_.trace_handle, 0U);
    EXPECT_EQ(ctx_.trace_enabled, 0U);
}

TEST_F(TraceBufferDeathTest, ContextsAreAsserted) {
    const std::string file = "nyx_debug/trace_buffers\\.cpp";
    EXPECT_DEATH(nyx_init_trace_buffer(nullptr),
                 assertion_regex(file, "rcode nyx_init_trace_buffer\\(nyx_debug_ctx_t ?\\*\\)", null_regex("ctx")));
    EXPECT_DEATH(nyx_reinit_trace_buffer(nullptr),
                 assertion_regex(file, "rcode nyx_reinit_trace_buffer\\(nyx_debug_ctx_t ?\\*\\)", null_regex("ctx")));
    EXPECT_DEATH(nyx_clear_trace(nullptr),
                 assertion_regex(file, "rcode nyx_clear_trace\\(nyx_api_ctx ?\\*\\)", null_regex("api_ctx")));
}

// Clearing: a root NYX with the children BRIEF, ME and MAP, in that order.
class ClearTrace : public nyx_test::frame_test {
  protected:
    void SetUp() override {
        frame_test::SetUp();
        sleep_of_library() = {};
        init_root();
        ASSERT_EQ(nyx_debug_init(&brief_, "brief", NYX_COMPONENT_BRIEF, &root()), 0);
        ASSERT_EQ(nyx_debug_init(&me_, "me", NYX_COMPONENT_ME, &root()), 0);
        ASSERT_EQ(nyx_debug_init(&map_, "map", NYX_COMPONENT_MAP, &me_), 0);
        recorder().forget();
    }

    [[nodiscard]] std::array<nyx_debug_ctx_t *, 4> all() { return {&root(), &me_, &map_, &brief_}; }

    [[nodiscard]] std::vector<std::uint32_t> all_enabled() {
        std::vector<std::uint32_t> enabled;
        for (const nyx_debug_ctx_t *ctx : all()) {
            enabled.push_back(ctx->trace_enabled);
        }
        return enabled;
    }

    nyx_debug_ctx_t brief_{};
    nyx_debug_ctx_t me_{};
    nyx_debug_ctx_t map_{};
};

using ClearTraceOfOne = ClearTrace;

TEST_F(ClearTraceOfOne, DoesNothingToAComponentThatIsNotThere) {
    nyx_clear_trace_update_component(&root(), NYX_COMPONENT_QT, 1, 1, 0);
    nyx_clear_trace_update_component(nullptr, NYX_COMPONENT_NYX, 1, 1, 0);
    EXPECT_THAT(recorder().calls(), IsEmpty());
    for (const nyx_debug_ctx_t *ctx : all()) {
        EXPECT_EQ(ctx->trace_enabled, 1U);
    }
}

TEST_F(ClearTraceOfOne, TurnsTracingOffAndOnWithoutEmptying) {
    nyx_clear_trace_update_component(&root(), NYX_COMPONENT_MAP, 0, 1, 0);
    EXPECT_EQ(map_.trace_enabled, 0U);
    EXPECT_EQ(me_.trace_enabled, 1U);
    nyx_clear_trace_update_component(&root(), NYX_COMPONENT_MAP, 0, 2, 17);
    EXPECT_EQ(map_.trace_enabled, 17U);
    EXPECT_THAT(recorder().calls(), IsEmpty());
}

TEST_F(ClearTraceOfOne, EmptiesWithoutSettingAnything) {
    map_.trace_enabled = 0;
    nyx_clear_trace_update_component(&root(), NYX_COMPONENT_MAP, 3, 0, 17);
    EXPECT_THAT(recorder().functions(), ElementsAre("skein_close", "skein_delete", "skein_init2"));
    EXPECT_EQ(map_.trace_enabled, 1U);
}

TEST_F(ClearTraceOfOne, SetsTheStateAfterEmptying) {
    nyx_clear_trace_update_component(&root(), NYX_COMPONENT_MAP, 1, 1, 0);
    EXPECT_EQ(recorder().calls().at(1), called("skein_delete", "agentx-nyx/map.trace"));
    EXPECT_EQ(map_.trace_enabled, 0U);
}

TEST_F(ClearTraceOfOne, DoesNothingAtAllWhenNothingIsAsked) {
    nyx_clear_trace_update_component(&root(), NYX_COMPONENT_MAP, 0, 0, 0);
    EXPECT_THAT(recorder().calls(), IsEmpty());
    EXPECT_EQ(map_.trace_enabled, 1U);
}

TEST_F(ClearTraceOfOne, LeavesTracingOnWithoutAFile) {
    recorder().fail("skein_init2", 1, 12);
    EXPECT_NE(printed_by([&] { nyx_clear_trace_update_component(&root(), NYX_COMPONENT_MAP, 1, 1, 1); }), "");
    EXPECT_EQ(map_.trace_handle, 0U);
    EXPECT_EQ(map_.trace_enabled, 1U);
}

TEST_F(ClearTraceOfOne, SetsTheStateOfAFileThatWasNotDeleted) {
    const std::uint64_t before = map_.trace_handle;
    recorder().fail("skein_delete", 1, 2);
    EXPECT_NE(printed_by([&] { nyx_clear_trace_update_component(&root(), NYX_COMPONENT_MAP, 1, 1, 9); }), "");
    EXPECT_EQ(map_.trace_handle, before);
    EXPECT_EQ(map_.trace_enabled, 9U);
}

TEST_F(ClearTraceOfOne, TakesTheGivenContextForNumberNone) {
    nyx_clear_trace_update_component(&me_, NYX_COMPONENT_NONE, 0, 1, 0);
    EXPECT_EQ(me_.trace_enabled, 0U);
    EXPECT_EQ(root().trace_enabled, 1U);
}

TEST_F(ClearTrace, EmptiesEveryFileInTheOrderOfComponents) {
    const std::vector<std::uint64_t> before = {root().trace_handle, me_.trace_handle, map_.trace_handle,
                                               brief_.trace_handle};
    EXPECT_EQ(nyx_clear_trace(&api_), 0);
    EXPECT_EQ(
        recorder().calls(),
        calls_of(called("skein_close", before[0]), called("skein_delete", "agentx-nyx/processor.trace"),
                 called("skein_init2", "agentx-nyx/processor.trace", 0, 0, 6144, 1572864, 0, &root().trace_handle),
                 called("skein_close", before[1]), called("skein_delete", "agentx-nyx/me.trace"),
                 called("skein_init2", "agentx-nyx/me.trace", 0, 0, 49152, 12582912, 0, &me_.trace_handle),
                 called("skein_close", before[2]), called("skein_delete", "agentx-nyx/map.trace"),
                 called("skein_init2", "agentx-nyx/map.trace", 0, 0, 16384, 4194304, 0, &map_.trace_handle),
                 called("skein_close", before[3]), called("skein_delete", "agentx-nyx/brief.trace"),
                 called("skein_init2", "agentx-nyx/brief.trace", 0, 0, 2048, 524288, 0, &brief_.trace_handle)));
    for (const nyx_debug_ctx_t *ctx : all()) {
        EXPECT_EQ(ctx->trace_enabled, 1U);
    }
}

TEST_F(ClearTrace, ReachesEveryComponent) {
    nyx_debug_ctx_t others[5]{};
    const std::uint32_t components[] = {NYX_COMPONENT_QT, NYX_COMPONENT_BK, NYX_COMPONENT_SABLE, NYX_COMPONENT_DORIC,
                                        NYX_COMPONENT_NACM};
    for (std::size_t i = 0; i < 5; ++i) {
        ASSERT_EQ(nyx_debug_init(&others[i], "other", components[i], &root()), 0);
    }
    recorder().forget();
    EXPECT_EQ(nyx_clear_trace(&api_), 0);
    std::vector<std::string> deleted;
    for (const call &each : recorder().calls("skein_delete")) {
        deleted.push_back(each.arguments[0].text.value_or(""));
    }
    EXPECT_THAT(deleted, ElementsAre("agentx-nyx/processor.trace", "agentx-nyx/me.trace", "agentx-nyx/qt.trace",
                                     "agentx-nyx/bk.trace", "agentx-nyx/map.trace", "agentx-nyx/sable.trace",
                                     "agentx-nyx/doric.trace", "agentx-nyx/nacm.trace", "agentx-nyx/brief.trace"));
}

TEST_F(ClearTrace, WaitsWithTracingOff) {
    std::size_t calls_at_sleep = 17;
    std::vector<std::uint32_t> enabled_at_sleep;
    sleep_of_library().meanwhile = [&] {
        calls_at_sleep = recorder().calls().size();
        enabled_at_sleep = all_enabled();
    };
    std::vector<std::uint32_t> enabled_at_close;
    recorder().when_called("skein_close", [&] {
        if (enabled_at_close.empty()) {
            enabled_at_close = all_enabled();
        }
    });
    EXPECT_EQ(nyx_clear_trace(&api_), 0);
    EXPECT_THAT(sleep_of_library().asked, ElementsAre(ElementsAre(0, 100'000'000)));
    EXPECT_EQ(calls_at_sleep, 0U);
    EXPECT_THAT(enabled_at_sleep, ElementsAre(0, 0, 0, 0));
    EXPECT_THAT(enabled_at_close, ElementsAre(0, 0, 0, 0));
}

TEST_F(ClearTrace, WaitsForWhatASignalLeftOfTheTime) {
    sleep_of_library().interruptions = {{0, 60'000'000}, {0, 5'000'000}};
    EXPECT_EQ(nyx_clear_trace(&api_), 0);
    EXPECT_THAT(sleep_of_library().asked,
                ElementsAre(ElementsAre(0, 100'000'000), ElementsAre(0, 60'000'000), ElementsAre(0, 5'000'000)));
    EXPECT_THAT(recorder().calls("skein_delete"), SizeIs(4));
}

TEST_F(ClearTrace, LeavesOtherNumbersAlone) {
    nyx_debug_ctx_t others[2]{};
    ASSERT_EQ(nyx_debug_init(&others[0], "all", NYX_COMPONENT_ALL, &root()), 0);
    ASSERT_EQ(nyx_debug_init(&others[1], "eleven", 11, &root()), 0);
    std::vector<std::uint32_t> enabled;
    recorder().when_called("skein_close", [&] {
        for (const nyx_debug_ctx_t &other : others) {
            enabled.push_back(other.trace_enabled);
        }
    });
    others[1].trace_enabled = 7;
    recorder().forget();
    EXPECT_EQ(nyx_clear_trace(&api_), 0);
    EXPECT_THAT(recorder().calls("skein_close"), SizeIs(4));
    EXPECT_THAT(enabled, ElementsAre(1, 7, 1, 7, 1, 7, 1, 7));
    EXPECT_EQ(others[0].trace_enabled, 1U);
    EXPECT_EQ(others[1].trace_enabled, 7U);
}

TEST_F(ClearTrace, TurnsTracingOnThatWasOff) {
    me_.trace_enabled = 0;
    EXPECT_EQ(nyx_clear_trace(&api_), 0);
    EXPECT_EQ(me_.trace_enabled, 1U);
}

TEST_F(ClearTrace, GoesOnAfterFailures) {
    recorder().fail("skein_delete", 1, 2);
    recorder().fail("skein_init2", 1, 12);
    rcode rc = 1;
    EXPECT_EQ(printed_by([&] { rc = nyx_clear_trace(&api_); }),
              "skein_delete(agentx-nyx/processor.trace) failed, " + text_of_code(2) +
                  "Init trace buffer (agentx-nyx/me.trace) failed! (" + text_of_code(12) + ")");
    EXPECT_EQ(rc, 0);
    EXPECT_EQ(root().trace_handle, trace_handle(1));
    EXPECT_EQ(me_.trace_handle, 0U);
    for (const nyx_debug_ctx_t *ctx : all()) {
        EXPECT_EQ(ctx->trace_enabled, 1U);
    }
}

}  // namespace
