#include "frame.h"

#include <gtest/gtest.h>
#include <nyx_session_store.h>
#include <stdlib.h>
#include <umbra/debug_trace.h>
#include <umbra/named_alloc.h>

#include <set>
#include <string>

#include "levels.h"
#include "private_traces.h"

using namespace request_path;

namespace {

uint64_t live_blocks() {
    umbra_named_usage total{};
    umbra_named_total(&total);
    return total.live_blocks;
}

/* Trace files that cannot be made, for as long as this lives. */
struct no_traces {
    no_traces() {
        const char *const before = getenv("SKEIN_DIR");
        before_ = before == nullptr ? "" : before;
        setenv("SKEIN_DIR", "/dev/null/nowhere", 1);
    }
    no_traces(const no_traces &) = delete;
    no_traces &operator=(const no_traces &) = delete;
    ~no_traces() { setenv("SKEIN_DIR", before_.c_str(), 1); }

  private:
    std::string before_;
};

std::set<uint32_t> three_ids(std::optional<uint32_t> seed) {
    frame root("ids", "ids");
    session_store sessions(root.api(), seed);
    std::set<uint32_t> ids;
    for (int i = 0; i < 3; ++i) {
        ids.insert(nyx_session_create(&root.api())->session_id);
    }
    return ids;
}

}  // namespace

TEST(ExampleFrame, NamesTraceFilesAfterTheProcess) {
    frame root("agent", "frame_test");
    component back_end(root, "me", NYX_COMPONENT_ME);
    EXPECT_TRUE(root.is_complete());
    const auto lines = traced("frame_test-nyx/processor.trace");
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_TRUE(lines[0].ends_with(",agent: Debug logging initialized")) << lines[0];
    EXPECT_TRUE(lines[2].ends_with(",me: Using existing DT flags")) << lines[2];
    EXPECT_TRUE(traced("frame_test-nyx/me.trace").empty());
}

TEST(ExampleFrame, IsTheLoggingContextOfItsProcess) {
    {
        frame root("agent", "frame_test");
        EXPECT_EQ(nyx_ctx_log, &root.api());
    }
    EXPECT_EQ(nyx_ctx_log, nullptr);
}

TEST(ExampleFrame, LeavesNothingBehindButTraceFiles) {
    {
        frame root("agent", "frame_test");
        component back_end(root, "me", NYX_COMPONENT_ME);
        session_store sessions(root.api());
        ASSERT_NE(nyx_session_create(&root.api()), nullptr);
        EXPECT_EQ(umbra_dt_flags(nullptr, 0), 4u);
        EXPECT_GT(live_blocks(), 0u);
    }
    EXPECT_EQ(umbra_dt_flags(nullptr, 0), 0u);
    EXPECT_EQ(live_blocks(), 0u);
    EXPECT_FALSE(traced("frame_test-nyx/processor.trace").empty());
}

TEST(ExampleFrame, LeavesNothingBehindWhenWorkBreaksOff) {
    struct broken_off {};
    try {
        frame root("agent", "frame_test");
        component back_end(root, "me", NYX_COMPONENT_ME);
        session_store sessions(root.api());
        nyx_session_create(&root.api());
        throw broken_off();
    } catch (const broken_off &) {
    }
    EXPECT_EQ(umbra_dt_flags(nullptr, 0), 0u);
    EXPECT_EQ(live_blocks(), 0u);
    EXPECT_EQ(nyx_ctx_log, nullptr);
}

TEST(ExampleFrame, GoesOnWithoutTraceFilesAfterOneLine) {
    const no_traces nowhere;
    testing::internal::CaptureStderr();
    {
        frame root("agent", "frame_test");
        component back_end(root, "me", NYX_COMPONENT_ME);
        session_store sessions(root.api());
        EXPECT_FALSE(root.is_complete());
        apply({{level_of_component("me=error")}, true, true}, root.api());
        EXPECT_NE(nyx_session_create(&root.api()), nullptr);
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Init trace buffer (frame_test-nyx/processor.trace) failed! (Not a directory); the agent goes on without "
              "tracing and logs errors and warnings alone\n");
    EXPECT_EQ(umbra_dt_flags(nullptr, 0), 0u);
    EXPECT_EQ(live_blocks(), 0u);
}

TEST(ExampleComponent, GoesOnWithoutItsTraceFileAfterOneLine) {
    frame root("agent", "frame_test");
    const no_traces nowhere;
    testing::internal::CaptureStderr();
    {
        component back_end(root, "me", NYX_COMPONENT_ME);
        EXPECT_NE(nyx_debug_get_component_ctx(&root.api().debug, NYX_COMPONENT_ME), nullptr);
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Init trace buffer (frame_test-nyx/me.trace) failed! (Not a directory); the component me goes on without "
              "tracing\n");
    EXPECT_EQ(nyx_debug_get_component_ctx(&root.api().debug, NYX_COMPONENT_ME), nullptr);
}

TEST(ExampleSessionStore, DrawsTheSameIdsFromTheSameSeed) {
    const auto ids = three_ids(1);
    EXPECT_EQ(ids.size(), 3u);
    EXPECT_EQ(three_ids(1), ids);
    EXPECT_NE(three_ids(2), ids);
    EXPECT_NE(three_ids(std::nullopt), ids);
}
