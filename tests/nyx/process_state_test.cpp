// The process-wide state: logging context, memory pressure, agent name, trace numbers.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "frame_fixture.h"
#include "nyx_api.h"
#include "nyx_debug.h"

namespace {

using nyx_test::assertion_regex;
using nyx_test::null_regex;

// Read before the first test could change anything.
struct state_at_start {
    nyx_api_ctx *ctx_log = nyx_ctx_log;
    std::uint32_t mem_state = nyx_util_mem_state;
    std::uint32_t mem_usage_normal = nyx_util_is_mem_usage_normal();
    std::string agent{agent_name, sizeof agent_name};
    std::uint32_t first_index = ret_nc_nyx_trace_index_incr();
    std::uint32_t second_index = ret_nc_nyx_trace_index_incr();
    std::uint32_t third_index = ret_nc_nyx_trace_index_incr();
};

const state_at_start at_start;

class ProcessState : public nyx_test::frame_test {};
using ProcessStateDeathTest = ProcessState;

TEST_F(ProcessState, StartsOutEmpty) {
    EXPECT_EQ(at_start.ctx_log, nullptr);
    EXPECT_EQ(at_start.mem_state, 0U);
    EXPECT_EQ(at_start.mem_usage_normal, 1U);
    EXPECT_EQ(at_start.agent, std::string(20, '\0'));
}

TEST_F(ProcessState, TraceIndexCountsFromZero) {
    EXPECT_EQ(at_start.first_index, 0U);
    EXPECT_EQ(at_start.second_index, 1U);
    EXPECT_EQ(at_start.third_index, 2U);
    const std::uint32_t index = ret_nc_nyx_trace_index_incr();
    EXPECT_EQ(ret_nc_nyx_trace_index_incr(), index + 1);
}

TEST_F(ProcessState, KeepsTheLoggingContext) {
    nyx_api_ctx **const place = nyx_log_set_ctx(&api_);
    EXPECT_EQ(place, &nyx_ctx_log);
    EXPECT_EQ(nyx_ctx_log, &api_);
    EXPECT_EQ(nyx_log_set_ctx(nullptr), &nyx_ctx_log);
    EXPECT_EQ(nyx_ctx_log, nullptr);
}

TEST_F(ProcessState, KeepsTheMemoryState) {
    for (const std::uint32_t state : {1U, 2U, 0x80000000U, 0xFFFFFFFFU}) {
        EXPECT_EQ(nyx_util_set_mem_state(state), &nyx_util_mem_state);
        EXPECT_EQ(nyx_util_mem_state, state);
        EXPECT_EQ(nyx_util_is_mem_usage_normal(), 0U);
    }
    EXPECT_EQ(nyx_util_set_mem_state(0), &nyx_util_mem_state);
    EXPECT_EQ(nyx_util_mem_state, 0U);
    EXPECT_EQ(nyx_util_is_mem_usage_normal(), 1U);
}

TEST_F(ProcessState, CutsTheAgentName) {
    EXPECT_EQ(nyx_debug_save_agent_name("netconf"), 7);
    EXPECT_STREQ(agent_name, "netconf");
    EXPECT_EQ(nyx_debug_save_agent_name("a234567890123456789"), 19);
    EXPECT_STREQ(agent_name, "a234567890123456789");
    EXPECT_EQ(nyx_debug_save_agent_name("b2345678901234567890"), 20);
    EXPECT_STREQ(agent_name, "b234567890123456789");
    for (const int length : {1000, 5000, 1'000'000}) {
        EXPECT_EQ(nyx_debug_save_agent_name(std::string(static_cast<std::size_t>(length), 'c').c_str()), length);
        EXPECT_EQ(agent_name, std::string(19, 'c'));
    }
    EXPECT_EQ(nyx_debug_save_agent_name(""), 0);
    EXPECT_STREQ(agent_name, "");
}

TEST_F(ProcessState, AgentNameIsNoFormat) {
    EXPECT_EQ(nyx_debug_save_agent_name("%s%n"), 4);
    EXPECT_STREQ(agent_name, "%s%n");
}

TEST_F(ProcessStateDeathTest, AgentNameIsAsserted) {
    EXPECT_DEATH(nyx_debug_save_agent_name(nullptr),
                 assertion_regex("nyx_debug/frame\\.cpp", "int nyx_debug_save_agent_name\\(const char ?\\*\\)",
                                 null_regex("name")));
}

TEST_F(ProcessState, AsksNothingOfThePlatform) {
    nyx_log_set_ctx(&api_);
    nyx_util_set_mem_state(1);
    nyx_debug_save_agent_name("agent");
    EXPECT_EQ(nyx_util_is_mem_usage_normal(), 0U);
    EXPECT_EQ(nyx_test::recorder().calls(), std::vector<nyx_test::call>());
}

}  // namespace
