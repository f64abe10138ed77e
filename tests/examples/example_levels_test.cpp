#include "levels.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "frame.h"
#include "private_traces.h"

using namespace request_path;

namespace {

std::string what_is_wrong_with(level_setting (*read)(const std::string &), const std::string &text) {
    try {
        read(text);
    } catch (const std::invalid_argument &e) {
        return e.what();
    }
    return "nothing";
}

struct ExampleLevels : testing::Test {
    uint32_t level_of(uint32_t component) {
        const nyx_debug_ctx_t *const ctx = nyx_debug_get_component_ctx(&root.api().debug, component);
        return ctx == nullptr ? UINT32_MAX : ctx->level;
    }

    frame root{"levels", "levels"};
    component back_end{root, "me", NYX_COMPONENT_ME};
};

}  // namespace

TEST(ExampleLevelWords, AreTakenInUpperAndLowerCase) {
    EXPECT_EQ(level_of_all("none").level, QUILL_NYX_LOGGING_LEVEL_NONE);
    EXPECT_EQ(level_of_all("Warning").level, QUILL_NYX_LOGGING_LEVEL_WARNING);
    EXPECT_EQ(level_of_all("TRACE").level, QUILL_NYX_LOGGING_LEVEL_TRACE);
    EXPECT_EQ(level_of_component("Me=error").component, uint32_t{NYX_COMPONENT_ME});
    EXPECT_EQ(level_of_component("nyx=error").level, QUILL_NYX_LOGGING_LEVEL_ERROR);
    EXPECT_EQ(level_of_component("all=error").component, uint32_t{NYX_COMPONENT_ALL});
    EXPECT_EQ(level_of_operation("notification-resume=debug").operation, QUILL_NYX_REQUEST_TYPE_NOTIFICATION_RESUME);
}

TEST(ExampleLevelWords, WhatThereIsIsTold) {
    EXPECT_EQ(what_is_wrong_with(level_of_all, "loud"),
              "no level \"loud\"; there are none, error, warning, debug, trace");
    EXPECT_EQ(what_is_wrong_with(level_of_component, "qt=debug"), "no component \"qt\"; there are all, NYX, ME");
    EXPECT_EQ(what_is_wrong_with(level_of_component, "me"), "\"me\" is not of the form NAME=LEVEL");
    EXPECT_EQ(what_is_wrong_with(level_of_component, "me="),
              "no level \"\"; there are none, error, warning, debug, trace");
    EXPECT_TRUE(what_is_wrong_with(level_of_operation, "unknown=debug").starts_with("no operation \"unknown\"; "));
}

TEST_F(ExampleLevels, AreThoseOfTheLastWordForAComponent) {
    apply({{level_of_all("debug"), level_of_component("me=trace"), level_of_component("me=error")}}, root.api());
    EXPECT_EQ(level_of(NYX_COMPONENT_NYX), QUILL_NYX_LOGGING_LEVEL_DEBUG);
    EXPECT_EQ(level_of(NYX_COMPONENT_ME), QUILL_NYX_LOGGING_LEVEL_ERROR);
}

TEST_F(ExampleLevels, OfAnOperationAddToThoseOfTheComponents) {
    apply({{level_of_operation("edit-config=debug")}}, root.api());
    nyx_debug_ctx_t *const me = nyx_debug_get_component_ctx(&root.api().debug, NYX_COMPONENT_ME);
    EXPECT_EQ(nyx_debug_should_log_op(me, NYX_DEBUG_LOG_TYPE_DEBUG, QUILL_NYX_REQUEST_TYPE_EDIT_CONFIG), 1u);
    EXPECT_EQ(nyx_debug_should_log_op(me, NYX_DEBUG_LOG_TYPE_DEBUG, QUILL_NYX_REQUEST_TYPE_GET), 0u);
    EXPECT_EQ(me->level, QUILL_NYX_LOGGING_LEVEL_NONE);
}

TEST_F(ExampleLevels, OfAComponentThatIsNotHereAreNoError) {
    apply({{{NYX_COMPONENT_QT, std::nullopt, QUILL_NYX_LOGGING_LEVEL_ERROR}}}, root.api());
    EXPECT_EQ(level_of(NYX_COMPONENT_NYX), QUILL_NYX_LOGGING_LEVEL_NONE);
    for (const std::string &line : traced("levels-nyx/processor.trace")) {
        EXPECT_EQ(line.find("Cannot find"), std::string::npos);
    }
}

TEST_F(ExampleLevels, TracingIsOffWhereItIsNotWanted) {
    apply({{}, false, false}, root.api());
    const size_t lines = traced("levels-nyx/processor.trace").size();
    apply({{level_of_all("none")}, false, false}, root.api());  // announces the level
    EXPECT_EQ(traced("levels-nyx/processor.trace").size(), lines);
    EXPECT_EQ(nyx_debug_get_component_ctx(&root.api().debug, NYX_COMPONENT_ME)->trace_enabled, 0u);
}

TEST_F(ExampleLevels, ClearedTraceFilesAreEmptyAndWrittenAgain) {
    ASSERT_FALSE(traced("levels-nyx/processor.trace").empty());
    apply({{}, true, true}, root.api());
    EXPECT_TRUE(traced("levels-nyx/processor.trace").empty());
    EXPECT_TRUE(traced("levels-nyx/me.trace").empty());
    apply({{level_of_all("none")}}, root.api());
    EXPECT_EQ(traced("levels-nyx/processor.trace").size(), 2u);
}
