// Contexts are shared between separately built programs: where everything lies must never move. layout_c.c says the
// same of C.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "nyx_api.h"
#include "nyx_debug.h"
#include "nyx_session_store.h"

// In layout_c.c.
extern "C" {
const void *ctx_log_seen_from_c();
std::uint32_t level_seen_from_c(const nyx_api_ctx *ctx);
}

namespace {

// The member's type and where it begins.
#define EXPECT_MEMBER(type, member, expected_type, offset)                \
    static_assert(std::is_same_v<decltype(type::member), expected_type>); \
    EXPECT_EQ(offsetof(type, member), static_cast<std::size_t>(offset))

TEST(ContextLayout, OfTheDebugContext) {
    using operations = std::uint32_t[23];
    using places = nyx_debug_ctx_t *[16];
    EXPECT_EQ(sizeof(nyx_debug_ctx_t), 304U);
    EXPECT_MEMBER(nyx_debug_ctx_t, component_flag, std::uint64_t, 0);
    EXPECT_MEMBER(nyx_debug_ctx_t, debug_flag, std::uint64_t, 8);
    EXPECT_MEMBER(nyx_debug_ctx_t, error_flag, std::uint64_t, 16);
    EXPECT_MEMBER(nyx_debug_ctx_t, trace_flag, std::uint64_t, 24);
    EXPECT_MEMBER(nyx_debug_ctx_t, trace_handle, std::uint64_t, 32);
    EXPECT_MEMBER(nyx_debug_ctx_t, trace_enabled, std::uint32_t, 40);
    EXPECT_MEMBER(nyx_debug_ctx_t, parent, nyx_debug_ctx_t *, 48);
    EXPECT_MEMBER(nyx_debug_ctx_t, ref_count, std::int32_t, 56);
    EXPECT_MEMBER(nyx_debug_ctx_t, level, std::uint32_t, 60);
    EXPECT_MEMBER(nyx_debug_ctx_t, op_level_max, std::uint32_t, 64);
    EXPECT_MEMBER(nyx_debug_ctx_t, op_levels, operations, 68);
    EXPECT_MEMBER(nyx_debug_ctx_t, component, std::uint32_t, 160);
    EXPECT_MEMBER(nyx_debug_ctx_t, children, places, 168);
    EXPECT_MEMBER(nyx_debug_ctx_t, child_count, std::uint64_t, 296);
}

TEST(ContextLayout, OfTheTraceTable) {
    EXPECT_EQ(sizeof(nyx_trace_table_entry), 24U);
    EXPECT_MEMBER(nyx_trace_table_entry, component, std::uint32_t, 0);
    EXPECT_MEMBER(nyx_trace_table_entry, file_name, const char *, 8);
    EXPECT_MEMBER(nyx_trace_table_entry, first_size, std::uint32_t, 16);
    EXPECT_MEMBER(nyx_trace_table_entry, second_size, std::uint32_t, 20);
    EXPECT_EQ(sizeof trace_table / sizeof *trace_table, 12U);
}

TEST(ContextLayout, OfTheApiContext) {
    using words = std::uint32_t[4];
    EXPECT_EQ(sizeof(umbra_wavl_tree), 64U);
    EXPECT_EQ(sizeof(nyx_api_ctx), 384U);
    EXPECT_MEMBER(nyx_api_ctx, debug, nyx_debug_ctx_t, 0);
    EXPECT_MEMBER(nyx_api_ctx, session_tree, umbra_wavl_tree, 304);
    EXPECT_MEMBER(nyx_api_ctx, session_id_state, words, 368);
}

TEST(ContextLayout, OfTheRequestContext) {
    EXPECT_EQ(sizeof(nyx_request_ctx), 16U);
    EXPECT_MEMBER(nyx_request_ctx, nyx_ctx, nyx_api_ctx *, 0);
    EXPECT_MEMBER(nyx_request_ctx, request, quill_nyx_request *, 8);
    // The operation is the request's first word.
    EXPECT_EQ(offsetof(quill_nyx_request, type), 0U);
    EXPECT_EQ(sizeof(quill_nyx_request::type), 4U);
}

TEST(ContextLayout, OfASession) {
    EXPECT_EQ(sizeof(nyx_session_ctx), 56U);
    EXPECT_MEMBER(nyx_session_ctx, session_owned_a, void *, 0);
    EXPECT_MEMBER(nyx_session_ctx, session_id, std::uint32_t, 8);
    EXPECT_MEMBER(nyx_session_ctx, user_a, void *, 16);
    EXPECT_MEMBER(nyx_session_ctx, user_b, void *, 24);
    EXPECT_MEMBER(nyx_session_ctx, user_c, void *, 32);
    EXPECT_MEMBER(nyx_session_ctx, user_d, void *, 40);
    EXPECT_MEMBER(nyx_session_ctx, session_owned_b, void *, 48);
}

TEST(ContextLayout, OfTheGlobals) {
    static_assert(std::is_same_v<decltype(agent_name), char[20]>);
    static_assert(std::is_same_v<decltype(nyx_util_mem_state), std::uint32_t>);
    static_assert(std::is_same_v<decltype(nyx_ctx_log), nyx_api_ctx *>);
    EXPECT_EQ(ctx_log_seen_from_c(), &nyx_ctx_log);
}

TEST(ContextLayout, IsTheSameInC) {
    nyx_api_ctx api{};
    api.debug.level = 3;
    EXPECT_EQ(level_seen_from_c(&api), 3U);
}

TEST(ResultCodes, AreFixed) {
    EXPECT_EQ(NYX_RC_DEBUG_CLEANUP, -1426940416);
    EXPECT_EQ(NYX_RC_INVALID_ARGUMENT, -1426939904);
    EXPECT_EQ(NYX_RC_DEBUG_INIT, -1426939392);
    EXPECT_EQ(NYX_RC_NO_MEMORY, -1426938880);
    EXPECT_EQ(NYX_RC_INVALID_REQUEST, -1426938368);
    EXPECT_EQ(NYX_RC_REQUEST_FAILED, -1426937856);
    EXPECT_EQ(static_cast<std::uint32_t>(NYX_RC_INVALID_ARGUMENT), 0xAAF2A000U);
    EXPECT_EQ(static_cast<std::uint32_t>(NYX_RC_REQUEST_FAILED), 0xAAF2A800U);
    static_assert(std::is_same_v<rcode, std::int32_t>);
}

TEST(Constants, AreFixed) {
    static_assert(std::is_same_v<nyx_debug_log_type, std::uint32_t>);
    EXPECT_EQ(NYX_DEBUG_LOG_TYPE_ERROR, 0U);
    EXPECT_EQ(NYX_DEBUG_LOG_TYPE_WARNING, 1U);
    EXPECT_EQ(NYX_DEBUG_LOG_TYPE_DEBUG, 2U);
    EXPECT_EQ(NYX_DEBUG_LOG_TYPE_TRACE, 3U);
    EXPECT_EQ(NYX_COMPONENT_NONE, 0);
    EXPECT_EQ(NYX_COMPONENT_ALL, 1);
    EXPECT_EQ(NYX_COMPONENT_NYX, 2);
    EXPECT_EQ(NYX_COMPONENT_ME, 3);
    EXPECT_EQ(NYX_COMPONENT_QT, 4);
    EXPECT_EQ(NYX_COMPONENT_BK, 5);
    EXPECT_EQ(NYX_COMPONENT_MAP, 6);
    EXPECT_EQ(NYX_COMPONENT_SABLE, 7);
    EXPECT_EQ(NYX_COMPONENT_DORIC, 8);
    EXPECT_EQ(NYX_COMPONENT_NACM, 9);
    EXPECT_EQ(NYX_COMPONENT_BRIEF, 10);
    EXPECT_EQ(NYX_DEBUG_OP_COUNT, 23);
    EXPECT_EQ(NYX_DEBUG_CHILD_MAX, 16);
    EXPECT_EQ(QUILL_NYX_LOGGING_LEVEL_NONE, 0);
    EXPECT_EQ(QUILL_NYX_LOGGING_LEVEL_TRACE, 4);
}

}  // namespace
