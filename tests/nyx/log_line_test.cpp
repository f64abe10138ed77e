// The rule by which every site writes its two lines.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "frame_fixture.h"
#include "nyx_api.h"
#include "nyx_debug.h"
#include "nyx_session_store.h"
#include "umbra/named_alloc.h"

namespace {

using nyx_test::debug_flag;
using nyx_test::error_flag;
using nyx_test::expect_logged;
using nyx_test::expect_traced;
using nyx_test::flag_handle;
using nyx_test::next_trace_index;
using nyx_test::recorder;
using nyx_test::site;
using nyx_test::text_of_pointer;
using nyx_test::trace_flag;
using nyx_test::trace_handle;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class LogLine : public nyx_test::frame_test {
  protected:
    // An error site of a request: there is no component ME.
    void log_error() { nyx_debug_logging_set_level(&api_, NYX_COMPONENT_ME, 0, 0, 4, 0); }

    [[nodiscard]] site error() const {
        return {"ERR", "nyx_debug_logging_set_level", "ctx=%p,ses=%p,op=%u,Cannot find specified debug component: %s.",
                "ctx=" + text_of_pointer(&api_) + ",ses=(nil),op=13,Cannot find specified debug component: ME."};
    }

    void set_output(std::uint32_t level, std::uint32_t trace_enabled) {
        root().level = level;
        root().trace_enabled = trace_enabled;
    }
};

TEST_F(LogLine, CostsNothingWhenNobodyListens) {
    init_root();
    set_output(QUILL_NYX_LOGGING_LEVEL_NONE, 0);
    const std::uint32_t index = next_trace_index();
    log_error();
    EXPECT_THAT(recorder().calls(), IsEmpty());
    EXPECT_EQ(ret_nc_nyx_trace_index_incr(), index);
}

TEST_F(LogLine, IsTracedWhateverTheLevel) {
    init_root();
    for (const std::uint32_t enabled : {1U, 2U, 0x80000000U}) {
        recorder().forget();
        set_output(QUILL_NYX_LOGGING_LEVEL_NONE, enabled);
        const std::uint32_t index = next_trace_index();
        log_error();
        EXPECT_THAT(recorder().functions(), ElementsAre("_skein_str"));
        expect_traced(recorder().trace_lines().at(0), error(), index, trace_handle(1));
        EXPECT_EQ(ret_nc_nyx_trace_index_incr(), index + 1);
    }
}

TEST_F(LogLine, IsLoggedWithoutTracing) {
    init_root();
    set_output(QUILL_NYX_LOGGING_LEVEL_ERROR, 0);
    const std::uint32_t index = next_trace_index();
    log_error();
    EXPECT_THAT(recorder().functions(), ElementsAre("_umbra_dt_log_filter_adv"));
    expect_logged(recorder().log_lines().at(0), error(), error_flag);
    EXPECT_EQ(ret_nc_nyx_trace_index_incr(), index);
}

TEST_F(LogLine, IsLoggedBeforeItIsTraced) {
    init_root();
    set_output(QUILL_NYX_LOGGING_LEVEL_ERROR, 1);
    log_error();
    EXPECT_THAT(recorder().functions(), ElementsAre("_umbra_dt_log_filter_adv", "_skein_str"));
}

// The platform may take its time with the first line.
TEST_F(LogLine, IsTracedWhenTracingIsOnOnceItIsLogged) {
    init_root();
    for (const std::uint32_t enabled : {1U, 0U}) {
        recorder().forget();
        set_output(QUILL_NYX_LOGGING_LEVEL_ERROR, 1 - enabled);
        recorder().when_called("_umbra_dt_log_filter_adv", [&] { root().trace_enabled = enabled; });
        const std::uint32_t index = next_trace_index();
        log_error();
        EXPECT_THAT(recorder().log_lines(), SizeIs(1));
        ASSERT_THAT(recorder().trace_lines(), SizeIs(enabled));
        EXPECT_EQ(ret_nc_nyx_trace_index_incr(), index + enabled);
    }
}

TEST_F(LogLine, GoesIntoTheHandleThatTheContextHas) {
    init_root();
    root().trace_handle = 0;
    const std::uint32_t index = next_trace_index();
    log_error();
    ASSERT_THAT(recorder().trace_lines(), SizeIs(1));
    expect_traced(recorder().trace_lines()[0], error(), index, 0);
}

TEST_F(LogLine, ThatCannotBeWrittenIsLost) {
    init_root();
    recorder().fail_all("_skein_str", 5);
    const std::uint32_t index = next_trace_index();
    EXPECT_EQ(nyx_debug_logging_set_level(&api_, NYX_COMPONENT_NYX, 0, 0, 4, 1), 0);
    EXPECT_THAT(recorder().functions(), ElementsAre("_umbra_dt_log_filter_adv", "_skein_str"));
    EXPECT_EQ(ret_nc_nyx_trace_index_incr(), index + 1);
}

// A line that is logged while another is being written (by a signal handler, or by the trace library itself) must not
// overwrite it.
TEST_F(LogLine, IsFormattedInAPlaceOfItsOwn) {
    init_root();
    set_output(QUILL_NYX_LOGGING_LEVEL_NONE, 1);
    recorder().forget();
    bool within = false;
    recorder().when_called("_skein_str", [&] {
        if (!within) {
            within = true;
            log_error();
        }
    });
    log_error();
    const std::vector<nyx_test::call> writes = recorder().calls("_skein_str");
    ASSERT_THAT(writes, SizeIs(2));
    EXPECT_NE(writes[0].arguments.at(2).bits, writes[1].arguments.at(2).bits);
}

TEST_F(LogLine, NumbersAreSharedByAllContexts) {
    init_root();
    nyx_api_ctx other{};
    other.debug.component = NYX_COMPONENT_ME;
    other.debug.trace_enabled = 1;
    other.debug.trace_handle = 55;
    const std::uint32_t index = next_trace_index();
    log_error();
    EXPECT_EQ(nyx_debug_logging_set_level(&other, NYX_COMPONENT_ME, 0, 0, 1, 1), 0);
    log_error();
    ASSERT_THAT(recorder().trace_lines(), SizeIs(3));
    const auto head = [](std::uint32_t number, const char *type) {
        return nyx_test::trace_head({type, "nyx_debug_logging_set_level", "", ""}, number);
    };
    EXPECT_THAT(recorder().trace_texts()[0], testing::StartsWith(head(index, "ERR")));
    EXPECT_THAT(recorder().trace_texts()[1], testing::StartsWith(head(index + 1, "DBG")));
    EXPECT_THAT(recorder().trace_texts()[2], testing::StartsWith(head(index + 2, "ERR")));
    EXPECT_EQ(recorder().trace_lines()[1].handle, 55U);
}

// The longest line of the frame: a name of up to 127 characters before a message of 101.
TEST_F(LogLine, IsCutAt249CharactersInTheTraceFileOnly) {
    const std::string message =
        "Maximum logging subcomponent count reached! This component will not be available for log filtering.";
    bool one_was_exact = false;
    bool one_was_cut = false;
    for (std::size_t length = 1; length <= 127; ++length) {
        recorder().reset();
        root() = {};
        nyx_debug_ctx_t child{};
        const std::string name(length, 'n');
        init_root(QUILL_NYX_LOGGING_LEVEL_WARNING);
        root().child_count = NYX_DEBUG_CHILD_MAX;
        ASSERT_EQ(nyx_debug_init(&child, name.c_str(), NYX_COMPONENT_ME, &root()), 0);
        ASSERT_THAT(recorder().log_lines(), SizeIs(1));
        const std::string logged = recorder().log_texts()[0];
        std::string tail = ",";
        tail.append(name).append(": ").append(message);
        EXPECT_TRUE(logged.ends_with(tail)) << logged;
        ASSERT_THAT(recorder().trace_lines(), SizeIs(2));
        const std::string traced = recorder().trace_texts()[1];
        const std::string head = traced.substr(0, traced.find("ctx="));
        const std::string whole = head + logged.substr(logged.find("ctx="));
        EXPECT_EQ(traced, whole.substr(0, 249));
        one_was_exact = one_was_exact || whole.size() == 249;
        one_was_cut = one_was_cut || whole.size() > 250;
    }
    EXPECT_TRUE(one_was_exact);
    EXPECT_TRUE(one_was_cut);
}

// Every site of the frame and of the session store, by the action that makes it write.
class EverySite : public LogLine {
  protected:
    using platform_failure = std::function<void()>;

    void fresh(std::uint32_t level = QUILL_NYX_LOGGING_LEVEL_TRACE) {
        root() = {};
        root().level = level;
    }

    // A root whose n-th flag cannot be registered; 0: all can.
    void run_root_init(std::uint64_t failing_flag) {
        fresh();
        if (failing_flag != 0) {
            recorder().fail("umbra_dt_flag_init", failing_flag, 17);
        }
        nyx_debug_init(&root(), "root", NYX_COMPONENT_NYX, nullptr);
        recorder().fail_nothing();
    }

    void run_children() {
        nyx_debug_ctx_t child{};
        root().child_count = 0;
        nyx_debug_init(&child, "child", NYX_COMPONENT_ME, &root());
        root().child_count = NYX_DEBUG_CHILD_MAX;
        nyx_debug_init(&child, "child", NYX_COMPONENT_ME, &root());
        root().child_count = 0;
    }

    void run_levels() {
        log_error();
        nyx_debug_logging_set_level(&api_, NYX_COMPONENT_NYX, 0, 0, QUILL_NYX_LOGGING_LEVEL_TRACE, 1);
        nyx_debug_short_file(&root(), nullptr);
    }

    void run_failing_create(const char *function, std::uint64_t nth) {
        recorder().fail(function, nth);
        EXPECT_EQ(nyx_session_create(&api_), nullptr);
        recorder().fail_nothing();
    }

    // All candidates are taken: the search finds a node for whatever id.
    void run_create_without_free_id() {
        recorder().fail_all("umbra_wavl_search", 1);
        EXPECT_EQ(nyx_session_create(&api_), nullptr);
        recorder().fail_nothing();
    }

    void run_destroy() {
        auto *const stray = static_cast<nyx_session_ctx *>(umbra_named_calloc_(1, sizeof(nyx_session_ctx), "stray"));
        nyx_session_destroy(&api_, stray);
        nyx_session_ctx *const kept = nyx_session_create(&api_);
        const auto node = recorder().calls("umbra_named_malloc_").back().result.bits;
        recorder().fail("umbra_wavl_delete", 1);
        nyx_session_destroy(&api_, kept);
        recorder().fail_nothing();
        EXPECT_NE(umbra_wavl_delete(&api_.session_tree, reinterpret_cast<umbra_wavl_node *>(node)), nullptr);
        umbra_named_free(reinterpret_cast<void *>(node));
    }

    void run_all() {
        for (const std::uint64_t failing_flag : {3U, 4U, 0U}) {
            run_root_init(failing_flag);
        }
        run_children();
        run_levels();
        recorder().fail("memset_s", 1, 17);
        EXPECT_EQ(nyx_session_store_init(&api_), 17);
        recorder().fail_nothing();
        ASSERT_EQ(nyx_session_store_init(&api_), 0);
        run_failing_create("umbra_named_calloc_", 1);
        run_failing_create("umbra_named_malloc_", 1);
        run_failing_create("umbra_wavl_insert", 1);
        run_create_without_free_id();
        run_destroy();
        ASSERT_EQ(nyx_session_store_cleanup(&api_), 0);
    }
};

constexpr const char *no_place_left_format =
    "WRN: NYX: ctx=%p,%s: Maximum logging subcomponent count reached! This component will not be available for log "
    "filtering.";

const std::set<std::string> all_formats = {
    "DBG: NYX: ctx=%p,%s: Debug logging initialized",
    "DBG: NYX: ctx=%p,%s: Error logging initialized",
    "DBG: NYX: ctx=%p,%s: Trace logging initialized",
    "DBG: NYX: ctx=%p,%s: Using existing DT flags",
    "DBG: NYX: ctx=%p,Log level set to %s for %s %s%s",
    "DBG: NYX: ctx=%p,assigned session-id=%u",
    "DBG: NYX: ctx=%p,session-id=%d not found, cannot be destroyed",
    "ERR: NYX: ctx=%p,%s: Debug log init failed!",
    "ERR: NYX: ctx=%p,%s: Trace log init failed!",
    "ERR: NYX: ctx=%p,NYX session context allocation failed",
    "ERR: NYX: ctx=%p,NYX session tree node allocation failed",
    "ERR: NYX: ctx=%p,NYX session tree node insertion failed",
    "ERR: NYX: ctx=%p,failed to generate unused session-id",
    "ERR: NYX: ctx=%p,mem init failure: %s",
    "ERR: NYX: ctx=%p,ses=%p,op=%u,Cannot find specified debug component: %s.",
    "Error while processing filename, rc=%d: %s",
    "TRC: NYX: ctx=%p,generated sesssion-id=%d is invalid, generating new",
    "TRC: NYX: ctx=%p,session-id=%d cannot be released from the session tree",
    no_place_left_format,
};

TEST_F(EverySite, WritesItsOwnFormat) {
    run_all();
    std::set<std::string> formats;
    for (const nyx_test::log_line &line : recorder().log_lines()) {
        formats.insert(line.format_text);
        EXPECT_THAT(line.zeros, ElementsAre(0, 0, 0, 0, 0)) << line.text;
    }
    EXPECT_EQ(formats, all_formats);
}

TEST_F(EverySite, WritesBothLinesAlike) {
    run_all();
    std::vector<std::string> logged;
    for (const std::string &line : recorder().log_texts()) {
        if (line.find(": NYX: ") != std::string::npos && line.find("Error logging initialized") == std::string::npos) {
            logged.push_back(line.substr(0, 5) + line.substr(line.find("ctx=")));
        }
    }
    std::vector<std::string> traced;
    for (const std::string &line : recorder().trace_texts()) {
        traced.push_back(line.substr(line.find(": ") + 2, 5) + line.substr(line.find("ctx=")));
    }
    EXPECT_EQ(logged, traced);
}

TEST_F(EverySite, HasAFilterWordOfItsOwn) {
    run_all();
    run_all();
    std::map<std::string, std::set<std::uint32_t *>> filters;
    std::set<std::uint32_t *> all;
    for (const nyx_test::log_line &line : recorder().log_lines()) {
        filters[line.format_text].insert(line.filter);
        all.insert(line.filter);
        EXPECT_EQ(line.filter_value, 0xFFFFFFFFU) << line.text;
    }
    for (const auto &[format, words] : filters) {
        EXPECT_THAT(words, SizeIs(1)) << format;
    }
    EXPECT_EQ(all.size(), all_formats.size());
    EXPECT_FALSE(all.contains(nullptr));
}

// The word is the platform's: what it holds neither silences a site nor is put back.
TEST_F(EverySite, LeavesItsFilterWordToThePlatform) {
    run_all();
    const std::vector<nyx_test::log_line> lines = recorder().log_lines();
    for (const nyx_test::log_line &line : lines) {
        *line.filter = 0;
    }
    recorder().forget();
    run_all();
    EXPECT_EQ(recorder().log_lines().size(), lines.size());
    for (const nyx_test::log_line &line : recorder().log_lines()) {
        EXPECT_EQ(line.filter_value, 0U) << line.text;
        EXPECT_EQ(*line.filter, 0U) << line.text;
    }
    for (const nyx_test::log_line &line : lines) {
        *line.filter = 0xFFFFFFFF;
    }
}

TEST_F(EverySite, GoesThroughTheFlagOfItsType) {
    run_root_init(0);
    ASSERT_EQ(nyx_session_store_init(&api_), 0);
    run_levels();
    run_create_without_free_id();
    run_children();
    const std::uint64_t error = root().error_flag;
    EXPECT_EQ(error, flag_handle(2));
    std::map<std::string, std::set<std::uint64_t>> flags;
    for (const nyx_test::log_line &line : recorder().log_lines()) {
        if (line.text.find("Error logging initialized") == std::string::npos) {
            flags[line.text.substr(0, 4)].insert(line.flag);
        }
    }
    EXPECT_THAT(flags["ERR:"], ElementsAre(error_flag));
    EXPECT_THAT(flags["WRN:"], ElementsAre(error_flag));
    EXPECT_THAT(flags["DBG:"], ElementsAre(debug_flag));
    EXPECT_THAT(flags["TRC:"], ElementsAre(trace_flag));
    EXPECT_EQ(nyx_session_store_cleanup(&api_), 0);
}

TEST_F(EverySite, IsTracedUnderTheNameOfAnExportedFunction) {
    run_all();
    std::set<std::string> functions;
    for (const std::string &line : recorder().trace_texts()) {
        const std::string rest = line.substr(line.find(": ") + 7);
        functions.insert(rest.substr(0, rest.find(':')));
    }
    EXPECT_THAT(functions, ElementsAre("nyx_debug_init", "nyx_debug_logging_set_level", "nyx_session_create",
                                       "nyx_session_destroy", "nyx_session_store_init"));
}

TEST_F(EverySite, OfTheStoreIsGatedByTheComponentsLevelAlone) {
    init_root();
    ASSERT_EQ(nyx_session_store_init(&api_), 0);
    root().op_level_max = 4;
    for (std::uint32_t &level : root().op_levels) {
        level = 4;
    }
    run_create_without_free_id();
    EXPECT_THAT(recorder().log_lines(), IsEmpty());
    EXPECT_THAT(recorder().trace_lines(), SizeIs(16));
    EXPECT_EQ(nyx_session_store_cleanup(&api_), 0);
}

}  // namespace
