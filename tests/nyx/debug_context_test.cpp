// Setting up debug contexts step by step, finding them, and taking them down.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "frame_fixture.h"
#include "nyx_api.h"
#include "nyx_debug.h"

namespace {

using nyx_test::assertion_regex;
using nyx_test::bytes_of;
using nyx_test::call;
using nyx_test::called;
using nyx_test::calls_of;
using nyx_test::component_flag;
using nyx_test::debug_flag;
using nyx_test::error_flag;
using nyx_test::expect_logged;
using nyx_test::expect_traced;
using nyx_test::next_trace_index;
using nyx_test::null_regex;
using nyx_test::printed_context;
using nyx_test::recorder;
using nyx_test::site;
using nyx_test::text_of_pointer;
using nyx_test::trace_flag;
using nyx_test::trace_handle;
using testing::Contains;
using testing::IsEmpty;
using testing::SizeIs;

constexpr rcode invalid_argument = -1426939904;  // 0xAAF2A000
constexpr rcode not_set_up = -1426939392;        // 0xAAF2A200
constexpr rcode not_destroyed = -1426940416;     // 0xAAF29E00

// A site of the initialisation, whose line prints the address of a snapshot and the component's name.
site init_site(const char *type, const void *snapshot, const std::string &name, const std::string &message) {
    return {type, "nyx_debug_init", "ctx=%p,%s: " + message,
            "ctx=" + text_of_pointer(snapshot) + "," + name + ": " + message};
}

class DebugContext : public nyx_test::frame_test {
  protected:
    // The address that a line prints must be that of a copy of the given context.
    static const void *snapshot_of(const std::string &line, const nyx_debug_ctx_t &source) {
        const void *const snapshot = printed_context(line);
        EXPECT_NE(snapshot, &source);
        EXPECT_THAT(recorder().calls("memcpy_s"),
                    Contains(called("memcpy_s", snapshot, sizeof source, &source, sizeof source)))
            << line;
        return snapshot;
    }

    static void expect_init_logged(std::size_t nth, const nyx_debug_ctx_t &source, const char *type,
                                   const std::string &name, const std::string &message, std::uint64_t flag) {
        ASSERT_GT(recorder().log_lines().size(), nth);
        const nyx_test::log_line &line = recorder().log_lines()[nth];
        expect_logged(line, init_site(type, snapshot_of(line.text, source), name, message), flag);
    }

    static void expect_init_traced(std::size_t nth, const nyx_debug_ctx_t &source, const char *type,
                                   const std::string &name, const std::string &message, std::uint32_t index,
                                   std::uint64_t handle) {
        ASSERT_GT(recorder().trace_lines().size(), nth);
        const nyx_test::trace_line &line = recorder().trace_lines()[nth];
        expect_traced(line, init_site(type, snapshot_of(line.text, source), name, message), index, handle);
    }

    static rcode init(nyx_debug_ctx_t &ctx, std::uint32_t component, nyx_debug_ctx_t *parent,
                      const char *name = "a child") {
        return nyx_debug_init(&ctx, name, component, parent);
    }

    // Gives each level of the context a number of its own.
    static void number_levels(nyx_debug_ctx_t &ctx, std::uint32_t first) {
        ctx.level = first;
        ctx.op_level_max = first + 1;
        for (std::uint32_t slot = 0; slot < NYX_DEBUG_OP_COUNT; ++slot) {
            ctx.op_levels[slot] = first + 2 + slot;
        }
    }

    static void expect_levels(const nyx_debug_ctx_t &ctx, std::uint32_t first) {
        EXPECT_EQ(ctx.level, first);
        EXPECT_EQ(ctx.op_level_max, first + 1);
        for (std::uint32_t slot = 0; slot < NYX_DEBUG_OP_COUNT; ++slot) {
            EXPECT_EQ(ctx.op_levels[slot], first + 2 + slot);
        }
    }

    // A root with as many children, all of the given component.
    void init_children(std::size_t count, std::uint32_t component) {
        init_root();
        for (std::size_t i = 0; i < count; ++i) {
            children_.push_back(std::make_unique<nyx_debug_ctx_t>());
            ASSERT_EQ(init(*children_.back(), component, &root()), 0);
        }
        recorder().forget();
    }

    std::vector<std::unique_ptr<nyx_debug_ctx_t>> children_;
    nyx_debug_ctx_t child_{};
};

using DebugInit = DebugContext;
using DebugInitRoot = DebugContext;
using DebugInitChild = DebugContext;
using ComponentSearch = DebugContext;
using DebugCleanup = DebugContext;
using DebugCleanupDeathTest = DebugContext;

// Arguments

class DebugInitRefuses : public DebugContext {
  protected:
    static void expect_refused(nyx_debug_ctx_t *ctx, const char *name) {
        EXPECT_EQ(nyx_debug_init(ctx, name, NYX_COMPONENT_ME, nullptr), invalid_argument);
        EXPECT_THAT(flag_and_trace_calls(), IsEmpty());
        EXPECT_THAT(recorder().log_lines(), IsEmpty());
        EXPECT_THAT(recorder().trace_lines(), IsEmpty());
    }

    // As `expect_refused`, and the context keeps its every byte.
    static void expect_refused_untouched(const char *name) {
        nyx_debug_ctx_t ctx;
        std::memset(&ctx, 0x5A, sizeof ctx);
        expect_refused(&ctx, name);
        EXPECT_EQ(bytes_of(ctx), std::string(sizeof ctx, 0x5A));
    }
};

TEST_F(DebugInitRefuses, NullContext) {
    expect_refused(nullptr, "processor");
}

TEST_F(DebugInitRefuses, NullName) {
    expect_refused_untouched(nullptr);
}

TEST_F(DebugInitRefuses, NameOf128Characters) {
    expect_refused_untouched(std::string(128, 'n').c_str());
}

TEST_F(DebugInitRefuses, NameWithoutEnd) {
    const std::unique_ptr<char[]> name(new char[128]);
    std::memset(name.get(), 'n', 128);
    expect_refused_untouched(name.get());
}

TEST_F(DebugInitRefuses, BadNameOfAChild) {
    init_root();
    EXPECT_EQ(nyx_debug_init(&child_, std::string(128, 'n').c_str(), NYX_COMPONENT_ME, &root()), invalid_argument);
    EXPECT_EQ(root().ref_count, 1);
    EXPECT_EQ(root().child_count, 0U);
}

TEST_F(DebugInit, MeasuresTheNameWithTheBoundedFunction) {
    const char name[] = "processor";
    ASSERT_EQ(nyx_debug_init(&root(), name, NYX_COMPONENT_NYX, nullptr), 0);
    // The bound is one more than the longest name has.
    EXPECT_EQ(recorder().calls("strnlen_s"), calls_of(called("strnlen_s", &name[0], 128)));
}

TEST_F(DebugInit, AcceptsANameOf127Characters) {
    const std::string name(127, 'n');
    EXPECT_EQ(nyx_debug_init(&root(), name.c_str(), NYX_COMPONENT_NYX, nullptr), 0);
    EXPECT_EQ(flag_and_trace_calls().at(0),
              called("umbra_dt_flag_init", &root().component_flag, name.c_str(), 0, 0, 0));
}

TEST_F(DebugInit, AcceptsAnEmptyName) {
    EXPECT_EQ(nyx_debug_init(&root(), "", NYX_COMPONENT_NYX, nullptr), 0);
}

TEST_F(DebugInit, KeepsTheChildrenThatTheCallerPutThere) {
    init_root();
    nyx_debug_ctx_t listed{};
    for (nyx_debug_ctx_t *const ctx : {&root(), &child_}) {
        ctx->child_count = 2;
        ctx->children[0] = ctx->children[1] = ctx->children[15] = &listed;
    }
    EXPECT_EQ(init(child_, NYX_COMPONENT_ME, &root()), 0);
    EXPECT_EQ(init(root(), NYX_COMPONENT_NYX, nullptr), 0);
    EXPECT_EQ(child_.child_count, 2U);
    EXPECT_EQ(root().child_count, 3U);
    EXPECT_EQ(root().children[2], &child_);
    for (const nyx_debug_ctx_t *const ctx : {&root(), &child_}) {
        EXPECT_EQ(ctx->children[0], &listed);
        EXPECT_EQ(ctx->children[1], &listed);
        EXPECT_EQ(ctx->children[15], &listed);
    }
}

TEST_F(DebugInit, StoresAnyComponent) {
    init_root();
    for (const std::uint32_t component : {0U, 1U, 11U, 12U, 77U, 0xFFFFFFFFU}) {
        EXPECT_EQ(init(child_, component, &root()), 0);
        EXPECT_EQ(child_.component, component);
        EXPECT_EQ(init(root(), component, nullptr), 0);
        EXPECT_EQ(root().component, component);
    }
}

// The root

TEST_F(DebugInitRoot, SetsUpFlagsAndTraceFileInOrder) {
    EXPECT_EQ(nyx_debug_init(&root(), "processor", NYX_COMPONENT_ME, nullptr), 0);
    EXPECT_EQ(flag_and_trace_calls(),
              calls_of(called("umbra_dt_flag_init", &root().component_flag, "processor", 0, 0, 0),
                       called("umbra_dt_flag_enable", component_flag, 0),
                       called("umbra_dt_flag_init", &root().error_flag, "error", component_flag, 0, 0),
                       called("umbra_dt_flag_enable", error_flag, 0),
                       called("skein_init2", "agentx-nyx/me.trace", 0, 0, 49152, 12582912, 0, &root().trace_handle),
                       called("umbra_dt_flag_init", &root().debug_flag, "debug", component_flag, 0, 0),
                       called("umbra_dt_flag_enable", debug_flag, 0),
                       called("umbra_dt_flag_init", &root().trace_flag, "trace", component_flag, 0, 0),
                       called("umbra_dt_flag_enable", trace_flag, 0)));
    EXPECT_EQ(root().component_flag, component_flag);
    EXPECT_EQ(root().error_flag, error_flag);
    EXPECT_EQ(root().debug_flag, debug_flag);
    EXPECT_EQ(root().trace_flag, trace_flag);
    EXPECT_EQ(root().trace_handle, trace_handle(1));
    EXPECT_EQ(root().trace_enabled, 1U);
    EXPECT_EQ(root().parent, nullptr);
    EXPECT_EQ(root().ref_count, 1);
    EXPECT_EQ(root().component, 3U);
    EXPECT_EQ(root().child_count, 0U);
}

TEST_F(DebugInitRoot, ForgetsParentAndReferencesOfBefore) {
    root().parent = &child_;
    root().ref_count = 17;
    EXPECT_EQ(init(root(), NYX_COMPONENT_NYX, nullptr), 0);
    EXPECT_EQ(root().parent, nullptr);
    EXPECT_EQ(root().ref_count, 1);
}

TEST_F(DebugInitRoot, KeepsTheLevels) {
    number_levels(root(), 100);
    EXPECT_EQ(init(root(), NYX_COMPONENT_NYX, nullptr), 0);
    expect_levels(root(), 100);
}

TEST_F(DebugInitRoot, OfAZeroedContextTracesOnceTheFileIsOpen) {
    const std::uint32_t index = next_trace_index();
    EXPECT_EQ(nyx_debug_init(&root(), "processor", NYX_COMPONENT_NYX, nullptr), 0);
    EXPECT_THAT(recorder().log_lines(), IsEmpty());
    ASSERT_THAT(recorder().trace_lines(), SizeIs(2));
    expect_init_traced(0, root(), "DBG", "processor", "Debug logging initialized", index, trace_handle(1));
    expect_init_traced(1, root(), "DBG", "processor", "Trace logging initialized", index + 1, trace_handle(1));
}

TEST_F(DebugInitRoot, LogsEachStepAtLevelDebug) {
    root().level = QUILL_NYX_LOGGING_LEVEL_DEBUG;
    root().debug_flag = 99;
    EXPECT_EQ(nyx_debug_init(&root(), "processor", NYX_COMPONENT_NYX, nullptr), 0);
    ASSERT_THAT(recorder().log_lines(), SizeIs(3));
    // The first line comes before the flag that it goes through.
    expect_init_logged(0, root(), "DBG", "processor", "Error logging initialized", 99);
    expect_init_logged(1, root(), "DBG", "processor", "Debug logging initialized", debug_flag);
    expect_init_logged(2, root(), "DBG", "processor", "Trace logging initialized", debug_flag);
}

TEST_F(DebugInitRoot, LogsNoDebugLineAtLevelWarning) {
    root().level = QUILL_NYX_LOGGING_LEVEL_WARNING;
    EXPECT_EQ(init(root(), NYX_COMPONENT_NYX, nullptr), 0);
    EXPECT_THAT(recorder().log_lines(), IsEmpty());
}

TEST_F(DebugInitRoot, TracesTheFirstStepIntoAFileThatTheCallerOpened) {
    root().trace_enabled = 1;
    root().trace_handle = 55;
    const std::uint32_t index = next_trace_index();
    EXPECT_EQ(nyx_debug_init(&root(), "processor", NYX_COMPONENT_NYX, nullptr), 0);
    ASSERT_THAT(recorder().trace_lines(), SizeIs(3));
    expect_init_traced(0, root(), "DBG", "processor", "Error logging initialized", index, 55);
    expect_init_traced(1, root(), "DBG", "processor", "Debug logging initialized", index + 1, trace_handle(1));
}

TEST_F(DebugInitRoot, LogsEachStepBetweenTheCallsItIsAbout) {
    root().level = QUILL_NYX_LOGGING_LEVEL_DEBUG;
    EXPECT_EQ(init(root(), NYX_COMPONENT_NYX, nullptr), 0);
    std::vector<std::string> functions;
    for (const std::string &function : recorder().functions()) {
        if (function != "memcpy_s" && function != "strnlen_s") {
            functions.push_back(function);
        }
    }
    EXPECT_THAT(functions, testing::ElementsAre("umbra_dt_flag_init", "umbra_dt_flag_enable", "umbra_dt_flag_init",
                                                "umbra_dt_flag_enable", "_umbra_dt_log_filter_adv", "skein_init2",
                                                "umbra_dt_flag_init", "umbra_dt_flag_enable",
                                                "_umbra_dt_log_filter_adv", "_skein_str", "umbra_dt_flag_init",
                                                "umbra_dt_flag_enable", "_umbra_dt_log_filter_adv", "_skein_str"));
}

// A root at level TRACE whose handles all hold something else than what the steps leave there.
class DebugInitRootFails : public DebugContext {
  protected:
    void SetUp() override {
        DebugContext::SetUp();
        root().level = QUILL_NYX_LOGGING_LEVEL_TRACE;
        root().component_flag = 91;
        root().error_flag = 92;
        root().debug_flag = 93;
        root().trace_flag = 94;
    }

    void expect_flags(std::uint64_t component, std::uint64_t error, std::uint64_t debug, std::uint64_t trace) {
        EXPECT_EQ(root().component_flag, component);
        EXPECT_EQ(root().error_flag, error);
        EXPECT_EQ(root().debug_flag, debug);
        EXPECT_EQ(root().trace_flag, trace);
    }

    static std::size_t enabled_flags() { return recorder().calls("umbra_dt_flag_enable").size(); }
};

TEST_F(DebugInitRootFails, AtTheComponentFlag) {
    recorder().fail("umbra_dt_flag_init", 1, 17);
    EXPECT_EQ(init(root(), NYX_COMPONENT_ME, nullptr), not_set_up);
    expect_flags(0, 92, 93, 94);
    EXPECT_EQ(root().ref_count, 1);
    EXPECT_EQ(root().component, 3U);
    EXPECT_EQ(root().trace_enabled, 0U);
    EXPECT_THAT(flag_and_trace_calls(), SizeIs(1));
    EXPECT_THAT(recorder().log_lines(), IsEmpty());
    EXPECT_THAT(recorder().trace_lines(), IsEmpty());
}

TEST_F(DebugInitRootFails, AtTheComponentFlagAndLeavesTracingAlone) {
    root().trace_handle = 55;
    root().trace_enabled = 1;
    recorder().fail("umbra_dt_flag_init", 1, 17);
    EXPECT_EQ(init(root(), NYX_COMPONENT_ME, nullptr), not_set_up);
    EXPECT_EQ(root().trace_handle, 55U);
    EXPECT_EQ(root().trace_enabled, 1U);
}

TEST_F(DebugInitRootFails, AtTheErrorFlag) {
    recorder().fail("umbra_dt_flag_init", 2, -1);
    EXPECT_EQ(init(root(), NYX_COMPONENT_ME, nullptr), not_set_up);
    expect_flags(component_flag, 0, 93, 94);
    EXPECT_EQ(enabled_flags(), 1U);
    EXPECT_THAT(recorder().calls("skein_init2"), IsEmpty());
    EXPECT_THAT(recorder().log_lines(), IsEmpty());
}

TEST_F(DebugInitRootFails, AtTheTraceFile) {
    recorder().fail("skein_init2", 1, 17);
    testing::internal::CaptureStderr();
    EXPECT_EQ(nyx_debug_init(&root(), "processor", NYX_COMPONENT_ME, nullptr), not_set_up);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Init trace buffer (agentx-nyx/me.trace) failed! (" + nyx_test::text_of_code(17) + ")");
    expect_flags(component_flag, error_flag, 93, 94);
    EXPECT_EQ(root().trace_handle, 0U);
    EXPECT_EQ(root().trace_enabled, 0U);
    EXPECT_EQ(enabled_flags(), 2U);
    ASSERT_THAT(recorder().log_lines(), SizeIs(1));
    expect_init_logged(0, root(), "DBG", "processor", "Error logging initialized", 93);
    EXPECT_THAT(recorder().trace_lines(), IsEmpty());
}

TEST_F(DebugInitRootFails, AtTheDebugFlag) {
    recorder().fail("umbra_dt_flag_init", 3, 17);
    const std::uint32_t index = next_trace_index();
    EXPECT_EQ(nyx_debug_init(&root(), "processor", NYX_COMPONENT_ME, nullptr), not_set_up);
    expect_flags(component_flag, error_flag, 0, 94);
    EXPECT_EQ(enabled_flags(), 2U);
    EXPECT_EQ(root().trace_handle, trace_handle(1));
    EXPECT_EQ(root().trace_enabled, 1U);
    ASSERT_THAT(recorder().log_lines(), SizeIs(2));
    expect_init_logged(1, root(), "ERR", "processor", "Debug log init failed!", error_flag);
    ASSERT_THAT(recorder().trace_lines(), SizeIs(1));
    expect_init_traced(0, root(), "ERR", "processor", "Debug log init failed!", index, trace_handle(1));
}

TEST_F(DebugInitRootFails, AtTheTraceFlag) {
    recorder().fail("umbra_dt_flag_init", 4, 17);
    const std::uint32_t index = next_trace_index();
    EXPECT_EQ(nyx_debug_init(&root(), "processor", NYX_COMPONENT_ME, nullptr), not_set_up);
    expect_flags(component_flag, error_flag, debug_flag, 0);
    EXPECT_EQ(enabled_flags(), 3U);
    EXPECT_EQ(root().trace_enabled, 1U);
    ASSERT_THAT(recorder().log_lines(), SizeIs(3));
    expect_init_logged(1, root(), "DBG", "processor", "Debug logging initialized", debug_flag);
    expect_init_logged(2, root(), "ERR", "processor", "Trace log init failed!", error_flag);
    ASSERT_THAT(recorder().trace_lines(), SizeIs(2));
    expect_init_traced(1, root(), "ERR", "processor", "Trace log init failed!", index + 1, trace_handle(1));
}

TEST_F(DebugInitRootFails, ErrorsAreGatedByTheLevel) {
    for (const std::uint64_t failing : {3U, 4U}) {
        recorder().reset();
        root() = {};
        recorder().fail("umbra_dt_flag_init", failing, 17);
        EXPECT_EQ(init(root(), NYX_COMPONENT_ME, nullptr), not_set_up);
        EXPECT_THAT(recorder().log_lines(), IsEmpty());
        EXPECT_THAT(recorder().trace_lines(), SizeIs(failing - 2));
    }
}

TEST_F(DebugInitRootFails, AtEachBoundedCopy) {
    ASSERT_EQ(init(root(), NYX_COMPONENT_NYX, nullptr), 0);
    const std::size_t copies = recorder().calls("memcpy_s").size();
    ASSERT_GT(copies, 0U);
    for (std::size_t failing = 1; failing <= copies; ++failing) {
        recorder().reset();
        root() = {};
        recorder().fail("memcpy_s", failing, 406);
        EXPECT_EQ(init(root(), NYX_COMPONENT_NYX, nullptr), 406);
        EXPECT_EQ(recorder().complaints(), "");
        EXPECT_EQ(root().trace_flag, 0U);
    }
}

TEST_F(DebugInitRootFails, AndIsTakenDownWithTheFlagsSoFar) {
    recorder().fail("umbra_dt_flag_init", 3, 17);
    EXPECT_EQ(init(root(), NYX_COMPONENT_NYX, nullptr), not_set_up);
    EXPECT_EQ(nyx_debug_cleanup(&root()), 0);
    EXPECT_EQ(recorder().calls("umbra_dt_flag_destroy"), calls_of(called("umbra_dt_flag_destroy", component_flag)));
}

TEST_F(DebugInitRoot, DoesNotMindFlagsThatCannotBeEnabled) {
    recorder().fail_all("umbra_dt_flag_enable", 17);
    EXPECT_EQ(init(root(), NYX_COMPONENT_NYX, nullptr), 0);
    EXPECT_EQ(root().trace_flag, trace_flag);
}

// Children

TEST_F(DebugInitChild, SharesTheFlagsAndOpensItsOwnTraceFile) {
    init_root();
    EXPECT_EQ(init(child_, NYX_COMPONENT_QT, &root()), 0);
    EXPECT_EQ(flag_and_trace_calls(),
              calls_of(called("skein_init2", "agentx-nyx/qt.trace", 0, 0, 32768, 4194304, 0, &child_.trace_handle)));
    EXPECT_EQ(child_.component_flag, component_flag);
    EXPECT_EQ(child_.error_flag, error_flag);
    EXPECT_EQ(child_.debug_flag, debug_flag);
    EXPECT_EQ(child_.trace_flag, trace_flag);
    EXPECT_EQ(child_.trace_handle, trace_handle(2));
    EXPECT_EQ(child_.trace_enabled, 1U);
    EXPECT_EQ(child_.parent, &root());
    EXPECT_EQ(child_.ref_count, 1);
    EXPECT_EQ(child_.component, 4U);
    EXPECT_EQ(child_.level, 0U);
    EXPECT_EQ(root().ref_count, 2);
    EXPECT_EQ(root().child_count, 1U);
    EXPECT_EQ(root().children[0], &child_);
    EXPECT_EQ(root().trace_handle, trace_handle(1));
}

TEST_F(DebugInitChild, TakesEachFlagFromItsPlaceInTheParent) {
    nyx_debug_ctx_t parent{};
    parent.component_flag = 1;
    parent.debug_flag = 2;
    parent.error_flag = 3;
    parent.trace_flag = 4;
    EXPECT_EQ(init(child_, NYX_COMPONENT_QT, &parent), 0);
    EXPECT_EQ(child_.component_flag, 1U);
    EXPECT_EQ(child_.debug_flag, 2U);
    EXPECT_EQ(child_.error_flag, 3U);
    EXPECT_EQ(child_.trace_flag, 4U);
}

TEST_F(DebugInitChild, KeepsItsLevels) {
    init_root();
    number_levels(root(), 100);
    number_levels(child_, 200);
    EXPECT_EQ(init(child_, NYX_COMPONENT_QT, &root()), 0);
    expect_levels(child_, 200);
    expect_levels(root(), 100);
}

TEST_F(DebugInitChild, TracesIntoTheParentsFile) {
    init_root();
    const std::uint32_t index = next_trace_index();
    EXPECT_EQ(init(child_, NYX_COMPONENT_QT, &root(), "qt engine"), 0);
    EXPECT_THAT(recorder().log_lines(), IsEmpty());
    ASSERT_THAT(recorder().trace_lines(), SizeIs(1));
    expect_init_traced(0, root(), "DBG", "qt engine", "Using existing DT flags", index, trace_handle(1));
}

TEST_F(DebugInitChild, LogsUnderTheParentsLevel) {
    init_root(QUILL_NYX_LOGGING_LEVEL_DEBUG);
    root().trace_enabled = 0;
    EXPECT_EQ(init(child_, NYX_COMPONENT_QT, &root(), "qt engine"), 0);
    ASSERT_THAT(recorder().log_lines(), SizeIs(1));
    expect_init_logged(0, root(), "DBG", "qt engine", "Using existing DT flags", debug_flag);
    EXPECT_THAT(recorder().trace_lines(), IsEmpty());
}

TEST_F(DebugInitChild, HasNoSayInTheLevel) {
    init_root(QUILL_NYX_LOGGING_LEVEL_WARNING);
    child_.level = QUILL_NYX_LOGGING_LEVEL_TRACE;
    EXPECT_EQ(init(child_, NYX_COMPONENT_QT, &root()), 0);
    EXPECT_THAT(recorder().log_lines(), IsEmpty());
    EXPECT_EQ(child_.level, static_cast<std::uint32_t>(QUILL_NYX_LOGGING_LEVEL_TRACE));
}

TEST_F(DebugInitChild, TakesTheSnapshotBeforeItIsLinked) {
    init_root();
    std::int32_t references_at_copy = 0;
    recorder().when_called("memcpy_s", [&] { references_at_copy = root().ref_count; });
    std::int32_t references_at_open = 0;
    recorder().when_called("skein_init2", [&] { references_at_open = root().ref_count; });
    std::uint64_t children_at_line = 17;
    recorder().when_called("_skein_str", [&] { children_at_line = root().child_count; });
    EXPECT_EQ(init(child_, NYX_COMPONENT_QT, &root()), 0);
    EXPECT_EQ(references_at_copy, 1);
    EXPECT_EQ(references_at_open, 2);
    EXPECT_EQ(children_at_line, 0U);
    EXPECT_THAT(recorder().functions(), testing::ElementsAre("strnlen_s", "memcpy_s", "skein_init2", "_skein_str"));
}

TEST_F(DebugInitChild, WithoutATraceFileIsLinkedAllTheSame) {
    init_root();
    recorder().fail("skein_init2", 1, 17);
    testing::internal::CaptureStderr();
    EXPECT_EQ(init(child_, NYX_COMPONENT_QT, &root()), not_set_up);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Init trace buffer (agentx-nyx/qt.trace) failed! (" + nyx_test::text_of_code(17) + ")");
    EXPECT_EQ(child_.trace_handle, 0U);
    EXPECT_EQ(child_.trace_enabled, 0U);
    EXPECT_EQ(child_.parent, &root());
    EXPECT_EQ(root().ref_count, 2);
    EXPECT_EQ(root().child_count, 1U);
    EXPECT_EQ(root().children[0], &child_);
    EXPECT_THAT(recorder().trace_lines(), SizeIs(1));
}

TEST_F(DebugInitChild, WithoutASnapshotIsNotLinked) {
    init_root();
    recorder().fail("memcpy_s", 1, 406);
    child_.parent = &root();
    EXPECT_EQ(init(child_, NYX_COMPONENT_QT, &root()), 406);
    EXPECT_EQ(child_.parent, nullptr);
    EXPECT_EQ(child_.ref_count, 1);
    EXPECT_EQ(child_.component, 4U);
    EXPECT_EQ(child_.error_flag, 0U);
    EXPECT_EQ(root().ref_count, 1);
    EXPECT_EQ(root().child_count, 0U);
    EXPECT_THAT(flag_and_trace_calls(), IsEmpty());
    EXPECT_THAT(recorder().trace_lines(), IsEmpty());
}

TEST_F(DebugInitChild, IsListedInOrder) {
    init_children(16, NYX_COMPONENT_ME);
    EXPECT_EQ(root().child_count, 16U);
    EXPECT_EQ(root().ref_count, 17);
    for (std::size_t i = 0; i < 16; ++i) {
        EXPECT_EQ(root().children[i], children_[i].get());
    }
}

constexpr const char *no_place_left =
    "Maximum logging subcomponent count reached! This component will not be available for log filtering.";

TEST_F(DebugInitChild, SixteenthFindsRoomWithoutAWarning) {
    init_children(15, NYX_COMPONENT_ME);
    root().level = QUILL_NYX_LOGGING_LEVEL_WARNING;
    EXPECT_EQ(init(child_, NYX_COMPONENT_QT, &root()), 0);
    EXPECT_THAT(recorder().log_lines(), IsEmpty());
    EXPECT_EQ(root().children[15], &child_);
}

TEST_F(DebugInitChild, SeventeenthWorksButIsNotListed) {
    init_children(16, NYX_COMPONENT_ME);
    root().level = QUILL_NYX_LOGGING_LEVEL_WARNING;
    const std::uint32_t index = next_trace_index();
    EXPECT_EQ(init(child_, NYX_COMPONENT_QT, &root(), "late"), 0);
    ASSERT_THAT(recorder().log_lines(), SizeIs(1));
    expect_init_logged(0, root(), "WRN", "late", no_place_left, error_flag);
    ASSERT_THAT(recorder().trace_lines(), SizeIs(2));
    expect_init_traced(0, root(), "DBG", "late", "Using existing DT flags", index, trace_handle(1));
    expect_init_traced(1, root(), "WRN", "late", no_place_left, index + 1, trace_handle(1));
    EXPECT_EQ(child_.parent, &root());
    EXPECT_EQ(child_.trace_handle, trace_handle(18));
    EXPECT_EQ(child_.trace_enabled, 1U);
    EXPECT_EQ(child_.error_flag, error_flag);
    EXPECT_EQ(root().ref_count, 18);
    EXPECT_EQ(root().child_count, 16U);
    for (std::size_t i = 0; i < 16; ++i) {
        EXPECT_EQ(root().children[i], children_[i].get());
    }
    EXPECT_EQ(nyx_debug_get_component_ctx(&root(), NYX_COMPONENT_QT), nullptr);
    EXPECT_EQ(nyx_debug_logging_set_level(&api_, NYX_COMPONENT_QT, 0, 0, 4, 0), invalid_argument);
    EXPECT_EQ(child_.level, 0U);
}

TEST_F(DebugInitChild, SeventeenthReportsItsTraceFile) {
    init_children(16, NYX_COMPONENT_ME);
    recorder().fail("skein_init2", 1, 17);
    testing::internal::CaptureStderr();
    EXPECT_EQ(init(child_, NYX_COMPONENT_QT, &root()), not_set_up);
    EXPECT_NE(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(root().ref_count, 18);
    EXPECT_EQ(root().child_count, 16U);
}

TEST_F(DebugInitChild, SeventeenthIsSilentAtLevelError) {
    init_children(16, NYX_COMPONENT_ME);
    root().level = QUILL_NYX_LOGGING_LEVEL_ERROR;
    EXPECT_EQ(init(child_, NYX_COMPONENT_QT, &root()), 0);
    EXPECT_THAT(recorder().log_lines(), IsEmpty());
}

// The warning goes each way on its own, as the parent has it.
TEST_F(DebugInitChild, SeventeenthWarnsWhereItsParentListens) {
    init_children(16, NYX_COMPONENT_ME);
    struct expectation {
        std::uint32_t level;
        std::uint32_t trace_enabled;
        std::size_t logged;
        std::size_t traced;
    };
    for (const expectation &each :
         {expectation{QUILL_NYX_LOGGING_LEVEL_WARNING, 1, 1, 2}, expectation{QUILL_NYX_LOGGING_LEVEL_WARNING, 0, 1, 0},
          expectation{QUILL_NYX_LOGGING_LEVEL_ERROR, 1, 0, 2}, expectation{QUILL_NYX_LOGGING_LEVEL_ERROR, 0, 0, 0}}) {
        SCOPED_TRACE(testing::Message() << "level " << each.level << ", tracing " << each.trace_enabled);
        root().level = each.level;
        root().trace_enabled = each.trace_enabled;
        child_ = {};
        recorder().forget();
        const std::uint32_t index = next_trace_index();
        EXPECT_EQ(init(child_, NYX_COMPONENT_QT, &root()), 0);
        EXPECT_THAT(recorder().log_lines(), SizeIs(each.logged));
        EXPECT_THAT(recorder().trace_lines(), SizeIs(each.traced));
        EXPECT_EQ(ret_nc_nyx_trace_index_incr(), index + each.traced);
        EXPECT_EQ(root().child_count, 16U);
        EXPECT_EQ(child_.trace_enabled, 1U) << "its own";
        EXPECT_EQ(nyx_debug_cleanup(&child_), 0);
    }
}

TEST_F(DebugInitChild, MayHaveChildren) {
    init_root();
    nyx_debug_ctx_t grandchild{};
    ASSERT_EQ(init(child_, NYX_COMPONENT_ME, &root()), 0);
    recorder().forget();
    const std::uint32_t index = next_trace_index();
    ASSERT_EQ(init(grandchild, NYX_COMPONENT_BK, &child_, "bk"), 0);
    EXPECT_EQ(grandchild.parent, &child_);
    EXPECT_EQ(grandchild.error_flag, error_flag);
    EXPECT_EQ(child_.ref_count, 2);
    EXPECT_EQ(child_.children[0], &grandchild);
    EXPECT_EQ(root().ref_count, 2);
    EXPECT_EQ(root().child_count, 1U);
    expect_init_traced(0, child_, "DBG", "bk", "Using existing DT flags", index, trace_handle(2));
}

// Search

TEST_F(ComponentSearch, FindsNothingInNothing) {
    EXPECT_EQ(nyx_debug_get_component_ctx(nullptr, NYX_COMPONENT_NONE), nullptr);
    EXPECT_EQ(nyx_debug_get_component_ctx(nullptr, NYX_COMPONENT_ME), nullptr);
}

TEST_F(ComponentSearch, StartsWithTheContextItself) {
    init_root();
    ASSERT_EQ(init(child_, NYX_COMPONENT_NYX, &root()), 0);
    EXPECT_EQ(nyx_debug_get_component_ctx(&root(), NYX_COMPONENT_NONE), &root());
    EXPECT_EQ(nyx_debug_get_component_ctx(&root(), NYX_COMPONENT_NYX), &root());
    EXPECT_EQ(nyx_debug_get_component_ctx(&child_, NYX_COMPONENT_NONE), &child_);
    EXPECT_EQ(nyx_debug_get_component_ctx(&child_, NYX_COMPONENT_NYX), &child_);
}

// NYX ─┬─ ME ─── BK ─── BRIEF
//      ├─ QT ─── NACM
//      └─ BK
class ComponentSearchInATree : public DebugContext {
  protected:
    void SetUp() override {
        DebugContext::SetUp();
        init_root();
        ASSERT_EQ(init(me_, NYX_COMPONENT_ME, &root()), 0);
        ASSERT_EQ(init(qt_, NYX_COMPONENT_QT, &root()), 0);
        ASSERT_EQ(init(bk_, NYX_COMPONENT_BK, &root()), 0);
        ASSERT_EQ(init(bk_of_me_, NYX_COMPONENT_BK, &me_), 0);
        ASSERT_EQ(init(nacm_, NYX_COMPONENT_NACM, &qt_), 0);
        ASSERT_EQ(init(brief_, NYX_COMPONENT_BRIEF, &bk_of_me_), 0);
        recorder().forget();
    }

    nyx_debug_ctx_t me_{};
    nyx_debug_ctx_t qt_{};
    nyx_debug_ctx_t bk_{};
    nyx_debug_ctx_t bk_of_me_{};
    nyx_debug_ctx_t nacm_{};
    nyx_debug_ctx_t brief_{};
};

TEST_F(ComponentSearchInATree, GoesDownBeforeItGoesOn) {
    EXPECT_EQ(nyx_debug_get_component_ctx(&root(), NYX_COMPONENT_ME), &me_);
    EXPECT_EQ(nyx_debug_get_component_ctx(&root(), NYX_COMPONENT_QT), &qt_);
    EXPECT_EQ(nyx_debug_get_component_ctx(&root(), NYX_COMPONENT_BK), &bk_of_me_);
    EXPECT_EQ(nyx_debug_get_component_ctx(&root(), NYX_COMPONENT_NACM), &nacm_);
    EXPECT_EQ(nyx_debug_get_component_ctx(&root(), NYX_COMPONENT_BRIEF), &brief_);
    EXPECT_THAT(recorder().calls(), IsEmpty());
}

TEST_F(ComponentSearchInATree, LooksBelowOnly) {
    EXPECT_EQ(nyx_debug_get_component_ctx(&me_, NYX_COMPONENT_BRIEF), &brief_);
    EXPECT_EQ(nyx_debug_get_component_ctx(&qt_, NYX_COMPONENT_BRIEF), nullptr);
    EXPECT_EQ(nyx_debug_get_component_ctx(&me_, NYX_COMPONENT_NYX), nullptr);
}

TEST_F(ComponentSearchInATree, FindsNothingThatIsNotThere) {
    EXPECT_EQ(nyx_debug_get_component_ctx(&root(), NYX_COMPONENT_ALL), nullptr);
    EXPECT_EQ(nyx_debug_get_component_ctx(&root(), NYX_COMPONENT_SABLE), nullptr);
    EXPECT_EQ(nyx_debug_get_component_ctx(&root(), 11), nullptr);
    EXPECT_EQ(nyx_debug_get_component_ctx(&root(), 0xFFFFFFFF), nullptr);
}

TEST_F(ComponentSearchInATree, LooksAtUsedEntriesOnly) {
    root().child_count = 1;
    EXPECT_EQ(nyx_debug_get_component_ctx(&root(), NYX_COMPONENT_QT), nullptr);
    root().child_count = 3;
}

// Cleanup

TEST_F(DebugCleanup, OfARootDestroysItsComponentFlag) {
    init_root();
    EXPECT_EQ(nyx_debug_cleanup(&root()), 0);
    EXPECT_EQ(recorder().calls(), calls_of(called("umbra_dt_flag_destroy", component_flag)));
    EXPECT_EQ(root().ref_count, 0);
    EXPECT_EQ(root().trace_handle, trace_handle(1));
    EXPECT_EQ(root().trace_enabled, 1U);
}

TEST_F(DebugCleanup, OfARootReportsAFlagThatStays) {
    init_root();
    recorder().fail("umbra_dt_flag_destroy", 1, 1);
    EXPECT_EQ(nyx_debug_cleanup(&root()), not_destroyed);
    EXPECT_EQ(root().ref_count, 0);
}

TEST_F(DebugCleanup, OfAReferencedContextDropsTheReferenceOnly) {
    init_root();
    ASSERT_EQ(init(child_, NYX_COMPONENT_ME, &root()), 0);
    recorder().forget();
    child_.ref_count = 2;
    EXPECT_EQ(nyx_debug_cleanup(&child_), 0);
    EXPECT_EQ(child_.ref_count, 1);
    EXPECT_EQ(root().child_count, 1U);
    EXPECT_EQ(root().ref_count, 2);
    EXPECT_EQ(nyx_debug_cleanup(&root()), 0);
    EXPECT_EQ(root().ref_count, 1);
    EXPECT_THAT(recorder().calls(), IsEmpty());
}

TEST_F(DebugCleanup, OfAChildUnlinksIt) {
    init_root();
    ASSERT_EQ(init(child_, NYX_COMPONENT_ME, &root()), 0);
    recorder().forget();
    EXPECT_EQ(nyx_debug_cleanup(&child_), 0);
    EXPECT_EQ(child_.ref_count, 0);
    EXPECT_EQ(root().ref_count, 1);
    EXPECT_EQ(root().child_count, 0U);
    EXPECT_THAT(recorder().calls(), IsEmpty());
}

TEST_F(DebugCleanup, OfTheLastChildEndsARootThatWasCleanedUpBefore) {
    init_root();
    ASSERT_EQ(init(child_, NYX_COMPONENT_ME, &root()), 0);
    recorder().forget();
    EXPECT_EQ(nyx_debug_cleanup(&root()), 0);
    EXPECT_EQ(nyx_debug_cleanup(&child_), 0);
    EXPECT_EQ(recorder().calls(), calls_of(called("umbra_dt_flag_destroy", component_flag)));
    EXPECT_EQ(root().ref_count, 0);
}

TEST_F(DebugCleanup, UnlinksAChildBeforeItGoesUp) {
    init_root();
    ASSERT_EQ(init(child_, NYX_COMPONENT_ME, &root()), 0);
    EXPECT_EQ(nyx_debug_cleanup(&root()), 0);
    std::uint64_t children_at_destroy = 17;
    recorder().when_called("umbra_dt_flag_destroy", [&] { children_at_destroy = root().child_count; });
    EXPECT_EQ(nyx_debug_cleanup(&child_), 0);
    EXPECT_EQ(children_at_destroy, 0U);
}

TEST_F(DebugCleanup, OfAChildReportsAFlagThatStays) {
    init_root();
    ASSERT_EQ(init(child_, NYX_COMPONENT_ME, &root()), 0);
    EXPECT_EQ(nyx_debug_cleanup(&root()), 0);
    recorder().fail("umbra_dt_flag_destroy", 1, -5);
    EXPECT_EQ(nyx_debug_cleanup(&child_), not_destroyed);
    EXPECT_EQ(root().child_count, 0U);
}

TEST_F(DebugCleanup, FillsTheGapWithTheLastChild) {
    init_children(4, NYX_COMPONENT_ME);
    EXPECT_EQ(nyx_debug_cleanup(children_[1].get()), 0);
    EXPECT_EQ(root().child_count, 3U);
    EXPECT_EQ(root().children[0], children_[0].get());
    EXPECT_EQ(root().children[1], children_[3].get());
    EXPECT_EQ(root().children[2], children_[2].get());
    EXPECT_EQ(nyx_debug_cleanup(children_[2].get()), 0);
    EXPECT_EQ(root().child_count, 2U);
    EXPECT_EQ(root().children[0], children_[0].get());
    EXPECT_EQ(root().children[1], children_[3].get());
    EXPECT_EQ(root().ref_count, 3);
}

TEST_F(DebugCleanup, MakesRoomForAnotherChild) {
    init_children(16, NYX_COMPONENT_ME);
    EXPECT_EQ(nyx_debug_cleanup(children_[0].get()), 0);
    EXPECT_EQ(init(child_, NYX_COMPONENT_QT, &root()), 0);
    EXPECT_EQ(root().child_count, 16U);
    EXPECT_EQ(root().children[0], children_[15].get());
    EXPECT_EQ(root().children[15], &child_);
}

TEST_F(DebugCleanup, OfTheSeventeenthChildLeavesTheOthersListed) {
    init_children(16, NYX_COMPONENT_ME);
    ASSERT_EQ(init(child_, NYX_COMPONENT_QT, &root()), 0);
    EXPECT_EQ(nyx_debug_cleanup(&child_), 0);
    EXPECT_EQ(root().child_count, 16U);
    EXPECT_EQ(root().ref_count, 17);
    for (std::size_t i = 0; i < 16; ++i) {
        EXPECT_EQ(root().children[i], children_[i].get());
    }
}

TEST_F(DebugCleanup, TwiceOfAChildUnlinksItOnce) {
    init_children(2, NYX_COMPONENT_ME);
    EXPECT_EQ(nyx_debug_cleanup(children_[0].get()), 0);
    EXPECT_EQ(root().child_count, 1U);
    EXPECT_EQ(root().children[0], children_[1].get());
    EXPECT_EQ(root().ref_count, 2);
    EXPECT_EQ(nyx_debug_cleanup(children_[0].get()), 0);
    EXPECT_EQ(children_[0]->ref_count, -1);
    EXPECT_EQ(root().child_count, 1U);
    EXPECT_EQ(root().children[0], children_[1].get());
    EXPECT_EQ(root().ref_count, 1);
    EXPECT_THAT(recorder().calls(), IsEmpty());
}

// A count below zero is none: it must not pass for four thousand million references.
TEST_F(DebugCleanup, OfAChildDropsAReferenceOfItsParentEachTime) {
    init_children(4, NYX_COMPONENT_ME);
    for (const std::int32_t left : {4, 3, 2, 1}) {
        EXPECT_EQ(nyx_debug_cleanup(children_[0].get()), 0);
        EXPECT_EQ(children_[0]->ref_count, left - 4);
        EXPECT_EQ(root().ref_count, left);
        EXPECT_EQ(root().child_count, 3U);
    }
    EXPECT_THAT(recorder().calls(), IsEmpty());
}

TEST_F(DebugCleanup, GoesUpThroughAllParentsThatAreDone) {
    init_root();
    nyx_debug_ctx_t grandchild{};
    ASSERT_EQ(init(child_, NYX_COMPONENT_ME, &root()), 0);
    ASSERT_EQ(init(grandchild, NYX_COMPONENT_BK, &child_), 0);
    recorder().forget();
    EXPECT_EQ(nyx_debug_cleanup(&root()), 0);
    EXPECT_EQ(nyx_debug_cleanup(&child_), 0);
    EXPECT_EQ(root().child_count, 1U);
    EXPECT_THAT(recorder().calls(), IsEmpty());
    recorder().fail("umbra_dt_flag_destroy", 1, 3);
    EXPECT_EQ(nyx_debug_cleanup(&grandchild), not_destroyed);
    EXPECT_EQ(recorder().calls(), calls_of(called("umbra_dt_flag_destroy", component_flag)));
    EXPECT_EQ(child_.child_count, 0U);
    EXPECT_EQ(root().child_count, 0U);
    EXPECT_EQ(child_.ref_count, 0);
    EXPECT_EQ(root().ref_count, 0);
}

TEST_F(DebugCleanupDeathTest, ContextIsAsserted) {
    EXPECT_DEATH(nyx_debug_cleanup(nullptr),
                 assertion_regex("nyx_debug/contexts\\.cpp", "rcode nyx_debug_cleanup\\(nyx_debug_ctx_t ?\\*\\)",
                                 null_regex("ctx")));
}

}  // namespace
