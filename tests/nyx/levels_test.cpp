// Levels by component and operation: what they allow, how they are set and announced; the names of both.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "frame_fixture.h"
#include "nyx_api.h"
#include "nyx_debug.h"

namespace {

using nyx_test::assertion_regex;
using nyx_test::bytes_of;
using nyx_test::debug_flag;
using nyx_test::error_flag;
using nyx_test::expect_logged;
using nyx_test::expect_traced;
using nyx_test::next_trace_index;
using nyx_test::null_regex;
using nyx_test::recorder;
using nyx_test::site;
using nyx_test::text_of_pointer;
using nyx_test::trace_handle;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr rcode invalid_argument = -1426939904;  // 0xAAF2A000

class Levels : public nyx_test::frame_test {
  protected:
    nyx_debug_ctx_t ctx_{};
};

using ShouldLog = Levels;
using ShouldLogOp = Levels;
using OpSettings = Levels;
using LevelsDeathTest = Levels;

// The types that the context's level allows: the letters of those among error, warning, debug and trace.
std::string allowed(const nyx_debug_ctx_t &ctx) {
    std::string types;
    for (const std::uint32_t type : {0U, 1U, 2U, 3U}) {
        if (nyx_debug_should_log(&ctx, type) == 1) {
            types += "EWDT"[type];
        }
    }
    return types;
}

std::string allowed(nyx_debug_ctx_t &ctx, std::uint32_t op) {
    std::string types;
    for (const std::uint32_t type : {0U, 1U, 2U, 3U}) {
        if (nyx_debug_should_log_op(&ctx, type, op) == 1) {
            types += "EWDT"[type];
        }
    }
    return types;
}

TEST_F(ShouldLog, AllowsWhatTheLevelIncludes) {
    const char *const expected[] = {"", "E", "EW", "EWD", "EWDT", "EWDT"};
    for (std::uint32_t level = 0; level < 6; ++level) {
        ctx_.level = level;
        EXPECT_EQ(allowed(ctx_), expected[level]) << "level " << level;
    }
    ctx_.level = 0xFFFFFFFF;
    EXPECT_EQ(allowed(ctx_), "EWDT");
    EXPECT_THAT(recorder().calls(), IsEmpty());
}

TEST_F(ShouldLog, AnswersWithZeroAndOne) {
    ctx_.level = QUILL_NYX_LOGGING_LEVEL_WARNING;
    EXPECT_EQ(nyx_debug_should_log(&ctx_, NYX_DEBUG_LOG_TYPE_ERROR), 1U);
    EXPECT_EQ(nyx_debug_should_log(&ctx_, NYX_DEBUG_LOG_TYPE_WARNING), 1U);
    EXPECT_EQ(nyx_debug_should_log(&ctx_, NYX_DEBUG_LOG_TYPE_DEBUG), 0U);
    EXPECT_EQ(nyx_debug_should_log_op(&ctx_, NYX_DEBUG_LOG_TYPE_WARNING, 0), 1U);
    EXPECT_EQ(nyx_debug_should_log_op(&ctx_, NYX_DEBUG_LOG_TYPE_DEBUG, 0), 0U);
}

TEST_F(ShouldLog, RefusesOtherTypes) {
    ctx_.op_level_max = 4;
    for (std::uint32_t &level : ctx_.op_levels) {
        level = 0xFFFFFFFF;
    }
    for (const std::uint32_t level : {0U, 4U, 5U, 0xFFFFFFFFU}) {
        ctx_.level = level;
        for (const std::uint32_t type : {4U, 5U, 0x80000000U, 0xFFFFFFFFU}) {
            for (const std::uint32_t highest : {0U, 4U, 0xFFFFFFFFU}) {
                ctx_.op_level_max = highest;
                EXPECT_EQ(nyx_debug_should_log(&ctx_, type), 0U);
                EXPECT_EQ(nyx_debug_should_log_op(&ctx_, type, 1), 0U);
            }
        }
    }
}

// Rows: the component's level; columns: the operation's.
const char *const allowed_by_both[5][5] = {
    {"", "E", "EW", "EWD", "EWDT"},       {"E", "E", "EW", "EWD", "EWDT"},          {"EW", "EW", "EW", "EWD", "EWDT"},
    {"EWD", "EWD", "EWD", "EWD", "EWDT"}, {"EWDT", "EWDT", "EWDT", "EWDT", "EWDT"},
};
const char *const allowed_by_component[5] = {"", "E", "EW", "EWD", "EWDT"};

TEST_F(ShouldLogOp, AddsTheLevelOfTheOperation) {
    for (std::uint32_t level = 0; level < 5; ++level) {
        for (std::uint32_t op_level = 0; op_level < 5; ++op_level) {
            for (std::uint32_t op = 0; op < 23; ++op) {
                api_ = {};
                root().level = level;
                ASSERT_EQ(nyx_debug_logging_set_level(&api_, NYX_COMPONENT_NONE, 1, op, op_level, 0), 0);
                for (std::uint32_t other = 0; other < 23; ++other) {
                    EXPECT_EQ(allowed(root(), other),
                              other == op ? allowed_by_both[level][op_level] : allowed_by_component[level])
                        << "level " << level << ", operation " << op << " at " << op_level << ", asked for " << other;
                }
            }
        }
    }
}

TEST_F(ShouldLogOp, KnowsNoLevelOfOtherOperations) {
    for (std::uint32_t &level : ctx_.op_levels) {
        level = 4;
    }
    for (const std::uint32_t highest : {0U, 4U}) {
        ctx_.op_level_max = highest;
        for (const std::uint32_t op : {23U, 24U, 0xFFFFFFFFU}) {
            ctx_.level = 0;
            EXPECT_EQ(allowed(ctx_, op), "");
            ctx_.level = 2;
            EXPECT_EQ(allowed(ctx_, op), "EW");
        }
    }
}

// Levels set by hand, without the highest being kept. Rows: the highest as stored; columns: the operation's level.
const char *const allowed_below_highest[6][6] = {
    {"", "E", "EW", "EWD", "EWDT", "EWDT"}, {"", "E", "E", "E", "E", "E"},
    {"", "E", "EW", "EW", "EW", "EW"},      {"", "E", "EW", "EWD", "EWD", "EWD"},
    {"", "E", "EW", "EWD", "EWDT", "EWDT"}, {"", "E", "EW", "EWD", "EWDT", "EWDT"},
};

TEST_F(ShouldLogOp, HighestLevelLimitsAllButErrors) {
    for (std::uint32_t highest = 0; highest < 6; ++highest) {
        for (std::uint32_t op_level = 0; op_level < 6; ++op_level) {
            ctx_.op_level_max = highest;
            ctx_.op_levels[1] = op_level;
            EXPECT_EQ(allowed(ctx_, 1), allowed_below_highest[highest][op_level])
                << "highest " << highest << ", operation at " << op_level;
        }
    }
}

TEST_F(ShouldLogOp, OfEditConfigAtDebugSaysNothingOfGet) {
    ASSERT_EQ(nyx_debug_logging_set_level(&api_, NYX_COMPONENT_NONE, 1, QUILL_NYX_REQUEST_TYPE_EDIT_CONFIG,
                                          QUILL_NYX_LOGGING_LEVEL_DEBUG, 0),
              0);
    EXPECT_EQ(root().level, 0U);
    EXPECT_EQ(nyx_debug_should_log_op(&root(), NYX_DEBUG_LOG_TYPE_DEBUG, QUILL_NYX_REQUEST_TYPE_EDIT_CONFIG), 1U);
    EXPECT_EQ(nyx_debug_should_log_op(&root(), NYX_DEBUG_LOG_TYPE_DEBUG, QUILL_NYX_REQUEST_TYPE_GET), 0U);
}

TEST_F(LevelsDeathTest, ContextsAreAsserted) {
    const std::string file = "nyx_debug/levels\\.cpp";
    const std::string number = "(std::)?uint32_t";
    EXPECT_DEATH(
        nyx_debug_should_log(nullptr, 0),
        assertion_regex(file, number + " nyx_debug_should_log\\(const nyx_debug_ctx_t ?\\*, nyx_debug_log_type\\)",
                        null_regex("ctx")));
    EXPECT_DEATH(
        nyx_debug_should_log_op(nullptr, 0, 0),
        assertion_regex(
            file, number + " nyx_debug_should_log_op\\(nyx_debug_ctx_t ?\\*, nyx_debug_log_type, " + number + "\\)",
            null_regex("ctx")));
    for (const std::uint32_t component : {NYX_COMPONENT_NYX, NYX_COMPONENT_ME, NYX_COMPONENT_ALL}) {
        EXPECT_DEATH(
            nyx_debug_logging_set_level(nullptr, component, 0, 0, 0, 0),
            assertion_regex(file, "rcode nyx_debug_logging_set_level\\(nyx_api_ctx ?\\*(, " + number + "){5}\\)",
                            null_regex("nyx_ctx")));
    }
}

// Slots

constexpr std::uint32_t slot_of_op[23] = {0,  1,  2,  3,  4,  5,  6,  7,  8,  9,  10, 11,
                                          12, 13, 14, 15, 16, 17, 22, 18, 19, 20, 21};

TEST_F(OpSettings, AreInTheSlotOfTheOperation) {
    for (std::uint32_t op = 0; op < 23; ++op) {
        EXPECT_EQ(nyx_get_op_debug_settings(&ctx_, op), &ctx_.op_levels[slot_of_op[op]]) << op;
    }
}

TEST_F(OpSettings, AreNowhereElse) {
    EXPECT_EQ(nyx_get_op_debug_settings(&ctx_, 23), nullptr);
    EXPECT_EQ(nyx_get_op_debug_settings(&ctx_, 0xFFFFFFFF), nullptr);
    EXPECT_EQ(nyx_get_op_debug_settings(nullptr, 0), nullptr);
    EXPECT_EQ(nyx_get_op_debug_settings(nullptr, 23), nullptr);
}

// Setting: a root NYX, and children in an order of their own.
class SetLevel : public nyx_test::frame_test {
  protected:
    void SetUp() override {
        frame_test::SetUp();
        init_root();
    }

    void add(nyx_debug_ctx_t &ctx, std::uint32_t component) {
        ASSERT_EQ(nyx_debug_init(&ctx, "child", component, &root()), 0);
        recorder().forget();
    }

    void expect_not_found(std::uint32_t component, const std::string &name) {
        recorder().forget();
        const std::uint32_t index = next_trace_index();
        EXPECT_EQ(nyx_debug_logging_set_level(&api_, component, 0, 0, 4, 1), invalid_argument);
        const site expected{
            "ERR", "nyx_debug_logging_set_level", "ctx=%p,ses=%p,op=%u,Cannot find specified debug component: %s.",
            "ctx=" + text_of_pointer(&api_) + ",ses=(nil),op=13,Cannot find specified debug component: " + name + "."};
        ASSERT_THAT(recorder().log_lines(), SizeIs(1));
        expect_logged(recorder().log_lines()[0], expected, error_flag);
        ASSERT_THAT(recorder().trace_lines(), SizeIs(1));
        expect_traced(recorder().trace_lines()[0], expected, index, trace_handle(1));
    }

    [[nodiscard]] site announcement(const std::string &what) const {
        return {"DBG", "nyx_debug_logging_set_level", "ctx=%p,Log level set to %s for %s %s%s",
                "ctx=" + text_of_pointer(&api_) + ",Log level set to " + what};
    }

    void expect_announced(const std::vector<std::string> &whats, std::uint32_t first_index) {
        ASSERT_THAT(recorder().log_lines(), SizeIs(whats.size()));
        ASSERT_THAT(recorder().trace_lines(), SizeIs(whats.size()));
        for (std::size_t i = 0; i < whats.size(); ++i) {
            expect_logged(recorder().log_lines()[i], announcement(whats[i]), debug_flag);
            expect_traced(recorder().trace_lines()[i], announcement(whats[i]),
                          first_index + static_cast<std::uint32_t>(i), trace_handle(1));
        }
    }

    nyx_debug_ctx_t me_{};
    nyx_debug_ctx_t qt_{};
};

TEST_F(SetLevel, OfOneComponent) {
    add(me_, NYX_COMPONENT_ME);
    add(qt_, NYX_COMPONENT_QT);
    EXPECT_EQ(nyx_debug_logging_set_level(&api_, NYX_COMPONENT_ME, 0, 5, 3, 0), 0);
    EXPECT_EQ(me_.level, 3U);
    EXPECT_EQ(qt_.level, 0U);
    EXPECT_EQ(root().level, 0U);
    EXPECT_EQ(me_.op_level_max, 0U);
    EXPECT_THAT(me_.op_levels, testing::Each(0U));
    EXPECT_THAT(recorder().calls(), IsEmpty());
}

TEST_F(SetLevel, OfTheRoot) {
    add(me_, NYX_COMPONENT_ME);
    EXPECT_EQ(nyx_debug_logging_set_level(&api_, NYX_COMPONENT_NYX, 0, 0, 2, 0), 0);
    EXPECT_EQ(root().level, 2U);
    EXPECT_EQ(nyx_debug_logging_set_level(&api_, NYX_COMPONENT_NONE, 0, 0, 4, 0), 0);
    EXPECT_EQ(root().level, 4U);
    EXPECT_EQ(me_.level, 0U);
}

TEST_F(SetLevel, StoresInvalidLevels) {
    const std::uint32_t index = next_trace_index();
    EXPECT_EQ(nyx_debug_logging_set_level(&api_, NYX_COMPONENT_NYX, 0, 0, 5, 1), 0);
    EXPECT_EQ(root().level, 5U);
    EXPECT_EQ(nyx_debug_logging_set_level(&api_, NYX_COMPONENT_NYX, 1, 0, 0xFFFFFFFF, 1), 0);
    EXPECT_EQ(root().op_levels[0], 0xFFFFFFFFU);
    EXPECT_EQ(root().op_level_max, 0xFFFFFFFFU);
    expect_announced({" for NYX general", " for NYX get-config operation"}, index);
}

TEST_F(SetLevel, OfEveryOperation) {
    for (std::uint32_t op = 0; op < 23; ++op) {
        root() = {};
        root().component = NYX_COMPONENT_NYX;
        EXPECT_EQ(nyx_debug_logging_set_level(&api_, NYX_COMPONENT_NYX, 1, op, 3, 0), 0);
        for (std::uint32_t slot = 0; slot < 23; ++slot) {
            EXPECT_EQ(root().op_levels[slot], slot == slot_of_op[op] ? 3U : 0U) << op;
        }
        EXPECT_EQ(root().op_level_max, 3U);
        EXPECT_EQ(root().level, 0U);
    }
}

TEST_F(SetLevel, OfInvokeRpcGoesIntoTheLastSlot) {
    EXPECT_EQ(nyx_debug_logging_set_level(&api_, NYX_COMPONENT_NYX, 1, 18, 4, 0), 0);
    EXPECT_EQ(root().op_levels[22], 4U);
    EXPECT_EQ(root().op_levels[18], 0U);
    EXPECT_EQ(root().op_level_max, 4U);
}

TEST_F(SetLevel, KeepsTheHighestOfAllOperations) {
    const auto set = [this](std::uint32_t op, std::uint32_t level) {
        EXPECT_EQ(nyx_debug_logging_set_level(&api_, NYX_COMPONENT_NYX, 7, op, level, 0), 0);
        return root().op_level_max;
    };
    EXPECT_EQ(set(0, 1), 1U);
    EXPECT_EQ(set(22, 4), 4U);
    EXPECT_EQ(set(18, 2), 4U);
    EXPECT_EQ(set(22, 0), 2U);
    EXPECT_EQ(set(18, 0), 1U);
    EXPECT_EQ(set(0, 0), 0U);
}

TEST_F(SetLevel, OfTheComponentLeavesTheHighestAlone) {
    root().op_level_max = 4;
    EXPECT_EQ(nyx_debug_logging_set_level(&api_, NYX_COMPONENT_NYX, 0, 0, 1, 0), 0);
    EXPECT_EQ(root().op_level_max, 4U);
}

TEST_F(SetLevel, OfAnOperationThatDoesNotExistChangesNothing) {
    for (const std::uint32_t op : {23U, 0xFFFFFFFFU}) {
        const std::string before = bytes_of(root());
        EXPECT_EQ(nyx_debug_logging_set_level(&api_, NYX_COMPONENT_NYX, 1, op, 4, 1), 0);
        EXPECT_EQ(bytes_of(root()), before);
        EXPECT_THAT(recorder().calls(), IsEmpty());
    }
}

TEST_F(SetLevel, OfAComponentThatIsNotThereFails) {
    root().level = QUILL_NYX_LOGGING_LEVEL_ERROR;
    expect_not_found(NYX_COMPONENT_ME, "ME");
    expect_not_found(NYX_COMPONENT_QT, "QT");
    expect_not_found(NYX_COMPONENT_BK, "BK");
    expect_not_found(NYX_COMPONENT_MAP, "MAP");
    expect_not_found(NYX_COMPONENT_SABLE, "SABLE");
    expect_not_found(NYX_COMPONENT_DORIC, "DORIC");
    expect_not_found(NYX_COMPONENT_NACM, "nacm");
    expect_not_found(NYX_COMPONENT_BRIEF, "brief");
    expect_not_found(11, "unknown");
    expect_not_found(0xFFFFFFFF, "unknown");
}

TEST_F(SetLevel, FailureIsGatedByTheOperationLoggingSet) {
    EXPECT_EQ(nyx_debug_logging_set_level(&api_, NYX_COMPONENT_ME, 0, 0, 4, 1), invalid_argument);
    EXPECT_THAT(recorder().log_lines(), IsEmpty());
    EXPECT_THAT(recorder().trace_lines(), SizeIs(1));
    root().op_levels[13] = QUILL_NYX_LOGGING_LEVEL_ERROR;
    expect_not_found(NYX_COMPONENT_ME, "ME");
}

TEST_F(SetLevel, AnnouncesEveryLevel) {
    const std::uint32_t index = next_trace_index();
    for (const std::uint32_t level : {0U, 1U, 2U, 3U, 4U}) {
        EXPECT_EQ(nyx_debug_logging_set_level(&api_, NYX_COMPONENT_NYX, 0, 0, level, 1), 0);
    }
    expect_announced({"NONE for NYX general", "ERROR for NYX general", "WARNING for NYX general",
                      "DEBUG for NYX general", "TRACE for NYX general"},
                     index);
}

TEST_F(SetLevel, AnnouncesTheOperation) {
    const std::uint32_t index = next_trace_index();
    EXPECT_EQ(nyx_debug_logging_set_level(&api_, NYX_COMPONENT_NYX, 1, 1, 3, 1), 0);
    EXPECT_EQ(nyx_debug_logging_set_level(&api_, NYX_COMPONENT_NONE, 1, 18, 4, 1), 0);
    expect_announced({"DEBUG for NYX edit-config operation", "TRACE for none invoke-rpc operation"}, index);
}

TEST_F(SetLevel, AnnouncesThroughTheRootWhateverTheLevels) {
    add(me_, NYX_COMPONENT_ME);
    root().trace_enabled = 0;
    EXPECT_EQ(nyx_debug_logging_set_level(&api_, NYX_COMPONENT_ME, 0, 0, 0, 1), 0);
    EXPECT_THAT(recorder().trace_lines(), IsEmpty());
    ASSERT_THAT(recorder().log_lines(), SizeIs(1));
    expect_logged(recorder().log_lines()[0], announcement("NONE for ME general"), debug_flag);
}

TEST_F(SetLevel, AnnouncesOnlyWhenAskedWithOne) {
    for (const std::uint32_t announce : {0U, 2U, 0xFFFFFFFFU}) {
        EXPECT_EQ(nyx_debug_logging_set_level(&api_, NYX_COMPONENT_NYX, 0, 0, 4, announce), 0);
    }
    EXPECT_THAT(recorder().calls(), IsEmpty());
}

TEST_F(SetLevel, AnnouncesWhatIsStoredAlready) {
    std::uint32_t level_at_line = 0;
    std::uint32_t highest_at_line = 17;
    recorder().when_called("_skein_str", [&] {
        level_at_line = root().op_levels[1];
        highest_at_line = root().op_level_max;
    });
    EXPECT_EQ(nyx_debug_logging_set_level(&api_, NYX_COMPONENT_NYX, 1, 1, 3, 1), 0);
    EXPECT_EQ(level_at_line, 3U);
    EXPECT_EQ(highest_at_line, 0U);
}

TEST_F(SetLevel, OfAllVisitsTheComponentsInTheirOrder) {
    nyx_debug_ctx_t children[8]{};
    const std::uint32_t components[8] = {NYX_COMPONENT_BRIEF, NYX_COMPONENT_NACM, NYX_COMPONENT_DORIC,
                                         NYX_COMPONENT_SABLE, NYX_COMPONENT_BK,   NYX_COMPONENT_QT,
                                         NYX_COMPONENT_ME,    NYX_COMPONENT_MAP};
    for (std::size_t i = 0; i < 8; ++i) {
        add(children[i], components[i]);
    }
    const std::uint32_t index = next_trace_index();
    EXPECT_EQ(nyx_debug_logging_set_level(&api_, NYX_COMPONENT_ALL, 0, 0, 2, 1), 0);
    expect_announced({"WARNING for NYX general", "WARNING for MAP general", "WARNING for ME general",
                      "WARNING for QT general", "WARNING for BK general", "WARNING for SABLE general",
                      "WARNING for DORIC general", "WARNING for nacm general", "WARNING for brief general"},
                     index);
    EXPECT_EQ(root().level, 2U);
    for (const nyx_debug_ctx_t &child : children) {
        EXPECT_EQ(child.level, 2U);
    }
}

TEST_F(SetLevel, OfAllSkipsComponentsWithoutAContext) {
    add(me_, NYX_COMPONENT_ME);
    const std::uint32_t index = next_trace_index();
    EXPECT_EQ(nyx_debug_logging_set_level(&api_, NYX_COMPONENT_ALL, 1, 10, 1, 1), 0);
    expect_announced({"ERROR for NYX get operation", "ERROR for ME get operation"}, index);
    EXPECT_EQ(root().op_levels[10], 1U);
    EXPECT_EQ(root().op_level_max, 1U);
    EXPECT_EQ(me_.op_levels[10], 1U);
    EXPECT_EQ(me_.op_level_max, 1U);
    EXPECT_EQ(me_.level, 0U);
}

TEST_F(SetLevel, OfAllLeavesOtherNumbersAlone) {
    nyx_debug_ctx_t others[5]{};
    const std::uint32_t components[5] = {NYX_COMPONENT_NONE, NYX_COMPONENT_ALL, 11, 12, 0xFFFFFFFF};
    for (std::size_t i = 0; i < 5; ++i) {
        add(others[i], components[i]);
    }
    const std::uint32_t index = next_trace_index();
    EXPECT_EQ(nyx_debug_logging_set_level(&api_, NYX_COMPONENT_ALL, 0, 0, 4, 1), 0);
    EXPECT_EQ(nyx_debug_logging_set_level(&api_, NYX_COMPONENT_ALL, 1, 0, 4, 1), 0);
    expect_announced({"TRACE for NYX general", "TRACE for NYX get-config operation"}, index);
    for (const nyx_debug_ctx_t &other : others) {
        EXPECT_EQ(other.level, 0U) << other.component;
        EXPECT_EQ(other.op_levels[0], 0U) << other.component;
        EXPECT_EQ(other.op_level_max, 0U) << other.component;
    }
}

TEST_F(SetLevel, OfAllIsFineWithoutAnyComponent) {
    root().component = 77;
    EXPECT_EQ(nyx_debug_logging_set_level(&api_, NYX_COMPONENT_ALL, 0, 0, 2, 1), 0);
    EXPECT_EQ(root().level, 0U);
    EXPECT_THAT(recorder().calls(), IsEmpty());
}

// Names

TEST(Names, OfComponents) {
    const char *const names[] = {"none", "all", "NYX", "ME", "QT", "BK", "MAP", "SABLE", "DORIC", "nacm", "brief"};
    for (std::uint32_t component = 0; component < 11; ++component) {
        EXPECT_STREQ(nyx_log_component_str(component), names[component]);
    }
    EXPECT_STREQ(nyx_log_component_str(11), "unknown");
    EXPECT_STREQ(nyx_log_component_str(0xFFFFFFFF), "unknown");
}

TEST(Names, OfOperations) {
    const char *const names[] = {
        "get-config",
        "edit-config",
        "validate",
        "lock",
        "unlock",
        "commit",
        "cancel-commit",
        "discard-changes",
        "copy-config",
        "delete-config",
        "get",
        "start-session",
        "stop-session",
        "logging-set",
        "schemas-list",
        "cli-config",
        "cli-show",
        "settings-set",
        "invoke-rpc",
        "create-subscription",
        "streams-list",
        "notification-pause",
        "notification-resume",
    };
    for (std::uint32_t op = 0; op < 23; ++op) {
        EXPECT_STREQ(nyx_debug_op_name(op), names[op]);
    }
    EXPECT_STREQ(nyx_debug_op_name(23), "unknown");
    EXPECT_STREQ(nyx_debug_op_name(0xFFFFFFFF), "unknown");
}

// Source files

class ShortFile : public Levels {};
using ShortFileDeathTest = ShortFile;

TEST_F(ShortFile, IsWhatFollowsTheLastSlash) {
    const char *const path = "a/b/c";
    EXPECT_EQ(nyx_debug_short_file(&ctx_, path), path + 4);
    const char *const hidden = "/usr//.profile";
    EXPECT_EQ(nyx_debug_short_file(nullptr, hidden), hidden + 6);
    const char *const directory = "a/";
    EXPECT_EQ(nyx_debug_short_file(&ctx_, directory), directory + 2);
    const char *const root_directory = "/";
    EXPECT_EQ(nyx_debug_short_file(&ctx_, root_directory), root_directory + 1);
    EXPECT_THAT(recorder().log_lines(), IsEmpty());
}

TEST_F(ShortFile, IsFoundBehindPathsOfAnyLength) {
    const std::string path = std::string(1'000'000, 'd') + "/file.cpp";
    EXPECT_STREQ(nyx_debug_short_file(&ctx_, path.c_str()), "file.cpp");
    EXPECT_THAT(recorder().log_lines(), IsEmpty());
}

TEST_F(ShortFile, IsThePathItselfWithoutASlash) {
    for (const char *const path : {"file.cpp", "", "a\\b"}) {
        EXPECT_EQ(nyx_debug_short_file(&ctx_, path), path);
        EXPECT_EQ(nyx_debug_short_file(nullptr, path), path);
    }
    EXPECT_THAT(recorder().log_lines(), IsEmpty());
}

TEST_F(ShortFile, OfNothingIsNothingAndLogged) {
    ctx_.error_flag = 77;
    ctx_.debug_flag = 78;
    ctx_.trace_enabled = 1;
    EXPECT_EQ(nyx_debug_short_file(&ctx_, nullptr), nullptr);
    ASSERT_THAT(recorder().log_lines(), SizeIs(1));
    const nyx_test::log_line &line = recorder().log_lines()[0];
    EXPECT_EQ(line.text, "Error while processing filename, rc=400: " + nyx_test::text_of_code(400));
    EXPECT_EQ(line.format_text, "Error while processing filename, rc=%d: %s");
    EXPECT_EQ(line.flag, 77U);
    EXPECT_THAT(line.zeros, ElementsAre(0, 0, 0, 0, 0));
    EXPECT_EQ(line.filter_value, 0xFFFFFFFFU);
    EXPECT_THAT(recorder().trace_lines(), IsEmpty());
}

TEST_F(ShortFileDeathTest, ContextIsAssertedWhereItIsNeeded) {
    EXPECT_DEATH(nyx_debug_short_file(nullptr, nullptr),
                 assertion_regex("nyx_debug/levels\\.cpp",
                                 R"(const char ?\* ?nyx_debug_short_file\(nyx_debug_ctx_t ?\*, const char ?\*\))",
                                 null_regex("context")));
}

}  // namespace
