#include "log.h"

#include <gtest/gtest.h>
#include <umbra/debug_trace.h>

#include <regex>
#include <string>
#include <vector>

#include "frame.h"
#include "levels.h"
#include "private_traces.h"

using namespace request_path;

namespace {

void keep_line(const char *line, uint64_t length, void *lines) {
    static_cast<std::vector<std::string> *>(lines)->emplace_back(line, length);
}

struct ExampleLog : testing::Test {
    ExampleLog() {
        umbra_dt_log_to_stream(-1);
        umbra_dt_log_to_callback(keep_line, &logged);
        request.type = QUILL_NYX_REQUEST_TYPE_LOCK;
        request.has_type = 1;
        session.session_id = 7;
        apply({{}, true, true}, root.api());
    }
    ExampleLog(const ExampleLog &) = delete;
    ExampleLog &operator=(const ExampleLog &) = delete;
    ~ExampleLog() override {
        umbra_dt_log_to_callback(nullptr, nullptr);
        umbra_dt_log_to_stream(2);
    }

    void set_levels(const std::vector<level_setting> &levels) {
        apply({levels}, root.api());
        apply({{}, true, true}, root.api());
        logged.clear();
    }

    std::vector<std::string> logged;
    frame root{"processor", "log_test"};
    component back_end{root, "me", NYX_COMPONENT_ME};
    quill_nyx_request request{};
    nyx_request_ctx under_way{&root.api(), &request};
    nyx_session_ctx session{};
};

bool matches(const std::string &line, const char *pattern) {
    return std::regex_match(line, std::regex(pattern));
}

}  // namespace

TEST_F(ExampleLog, WritesTheLibrarysTwoForms) {
    set_levels({level_of_all("debug")});
    LOG_REQUEST(DBG, ME, under_way, &session, "changed %u nodes", 3U);
    ASSERT_EQ(logged.size(), 1u);
    EXPECT_TRUE(matches(
        logged[0], R"(\S+Z \d+/\d+ processor/debug: DBG: ME: ctx=0x[0-9a-f]+,ses=0x[0-9a-f]+,op=3,changed 3 nodes)"))
        << logged[0];
    const auto lines = traced("log_test-nyx/me.trace");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_TRUE(matches(lines[0], R"(#\d+: DBG: TestBody:\d+ ctx=0x[0-9a-f]+,ses=0x[0-9a-f]+,op=3,changed 3 nodes)"))
        << lines[0];
    EXPECT_TRUE(traced("log_test-nyx/processor.trace").empty());
}

TEST_F(ExampleLog, GoesThroughTheFlagOfItsType) {
    set_levels({level_of_all("trace")});
    LOG_REQUEST(ERR, NYX, under_way, nullptr, "a");
    LOG_REQUEST(WRN, NYX, under_way, nullptr, "b");
    LOG_REQUEST(TRC, NYX, under_way, nullptr, "c");
    ASSERT_EQ(logged.size(), 3u);
    EXPECT_NE(logged[0].find(" processor/error: ERR: NYX: "), std::string::npos);
    EXPECT_NE(logged[1].find(" processor/error: WRN: NYX: "), std::string::npos);
    EXPECT_NE(logged[2].find(" processor/trace: TRC: NYX: "), std::string::npos);
}

TEST_F(ExampleLog, IsTracedWhateverTheLevel) {
    LOG_REQUEST(TRC, ME, under_way, nullptr, "unheard");
    EXPECT_TRUE(logged.empty());
    EXPECT_EQ(traced("log_test-nyx/me.trace").size(), 1u);
}

TEST_F(ExampleLog, LevelOfTheOperationCounts) {
    set_levels({level_of_operation("lock=debug")});
    LOG_REQUEST(DBG, ME, under_way, nullptr, "a lock");
    request.type = QUILL_NYX_REQUEST_TYPE_UNLOCK;
    LOG_REQUEST(DBG, ME, under_way, nullptr, "an unlock");
    request.type = QUILL_NYX_REQUEST_TYPE_LOCK;
    request.has_type = 0;
    LOG_REQUEST(DBG, ME, under_way, nullptr, "a request that names no operation");
    ASSERT_EQ(logged.size(), 1u);
    EXPECT_TRUE(logged[0].ends_with("op=3,a lock"));
}

TEST_F(ExampleLog, ArgumentsOfAnUnwantedLineAreNotEvaluated) {
    apply({{}, false, false}, root.api());
    int evaluated = 0;
    LOG_REQUEST(DBG, ME, under_way, nullptr, "%d", ++evaluated);
    EXPECT_EQ(evaluated, 0);
}

TEST_F(ExampleLog, TraceLineIsCutLikeTheLibrarys) {
    LOG_REQUEST(DBG, ME, under_way, nullptr, "%s", std::string(300, 'x').c_str());
    const auto lines = traced("log_test-nyx/me.trace");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].size(), 249u);
}

TEST_F(ExampleLog, SiteIsSilencedByItsFormat) {
    set_levels({level_of_all("debug")});
    ASSERT_EQ(umbra_dt_silence("seen too often"), 0);
    LOG_REQUEST(DBG, ME, under_way, nullptr, "seen too often: %d", 1);
    LOG_REQUEST(DBG, ME, under_way, nullptr, "news: %s", "seen too often");
    EXPECT_EQ(umbra_dt_unsilence("seen too often"), 0);
    ASSERT_EQ(logged.size(), 1u);
    EXPECT_TRUE(logged[0].ends_with(",news: seen too often"));
}

TEST_F(ExampleLog, ComponentThatIsNotHereIsStoodInForByTheRoot) {
    LOG_REQUEST(WRN, QT, under_way, nullptr, "who?");
    EXPECT_EQ(traced("log_test-nyx/processor.trace").size(), 1u);
    EXPECT_TRUE(traced("log_test-nyx/me.trace").empty());
}
