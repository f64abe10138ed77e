/* What the program does on a platform that refuses things, and the order in which it gives them back. */
#include <gtest/gtest.h>
#include <nyx_session_store.h>
#include <sys/socket.h>

#include <algorithm>
#include <stdexcept>

#include "processor.h"
#include "recording_platform.h"
#include "records.h"

using namespace request_path;
using nyx_test::recorder;

namespace {

struct ExamplePlatform : nyx_test::platform_test {};

std::string lines_of(const std::function<void()> &work) {
    testing::internal::CaptureStderr();
    work();
    return testing::internal::GetCapturedStderr();
}

/* Asks for a session; the processor's answer is in the result. */
void start_session(nyx_api_ctx &api, owned_result &result) {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    connection agent(ends[0]);
    connection processor(ends[1]);
    quill_nyx_request request{};
    request.type = QUILL_NYX_REQUEST_TYPE_START_SESSION;
    request.has_type = 1;
    char message_id[] = "1";
    request.message_id = message_id;
    request.has_message_id = 1;
    message outgoing;
    outgoing.bytes.resize(quill_nyx_request_encode_ext(&request, nullptr, 0, nullptr, nullptr, 0));
    quill_nyx_request_encode_ext(&request, outgoing.bytes.data(), outgoing.bytes.size(), nullptr, nullptr, 0);
    agent.send(outgoing, UINT64_MAX);
    serve(processor, api, {});
    message reply;
    ASSERT_EQ(agent.receive(reply, 1 << 20), receive_status::complete);
    ASSERT_EQ(quill_nyx_request_result_decode_ext(&result.record, reply.bytes.data(), reply.bytes.size(), nyx_gpb_alloc,
                                                  nullptr, 0),
              0);
}

}  // namespace

TEST_F(ExamplePlatform, IsGivenBackInTheReverseOrder) {
    {
        processor_frame frame;
        nyx_session_create(&frame.root.api());
        recorder().forget();
    }
    auto functions = recorder().functions();
    const auto is_of_interest = [](const std::string &name) {
        return name == "umbra_named_free" || name == "umbra_wavl_tree_finish" || name == "umbra_dt_flag_destroy";
    };
    functions.erase(std::remove_if(functions.begin(), functions.end(), std::not_fn(is_of_interest)), functions.end());
    EXPECT_EQ(functions, (std::vector<std::string>{"umbra_named_free", "umbra_named_free", "umbra_wavl_tree_finish",
                                                   "umbra_dt_flag_destroy"}));
}

TEST_F(ExamplePlatform, SessionThatGetsNoMemoryIsRefused) {
    for (const uint64_t nth : {1U, 2U}) {
        processor_frame frame;
        recorder().fail_allocation(nth);
        {
            owned_result refused;
            start_session(frame.root.api(), refused);
            EXPECT_EQ(refused.record.uint32_1, 0u);
            EXPECT_STREQ(refused.record.error.error_tag, "resource-denied");
        }
        EXPECT_TRUE(recorder().live_blocks().empty());
        owned_result granted;
        start_session(frame.root.api(), granted);
        EXPECT_EQ(granted.record.uint32_1, 1u);
    }
}

TEST_F(ExamplePlatform, NoSessionStoreIsTheEnd) {
    recorder().fail("umbra_wavl_tree_init", 1, 12);
    EXPECT_THROW(processor_frame(), std::runtime_error);
    EXPECT_EQ(recorder().calls("umbra_dt_flag_destroy").size(), 1u);
    EXPECT_EQ(nyx_ctx_log, nullptr);
}

TEST_F(ExamplePlatform, EachFlagThatFailsIsToldInOneLine) {
    for (const uint64_t nth : {1U, 2U, 3U, 4U}) {
        recorder().fail("umbra_dt_flag_init", nth, 12);
        const std::string lines = lines_of([] { const frame root("agent", "agentx"); });
        EXPECT_EQ(lines,
                  std::string("agent: ") + rcode_strerror(NYX_RC_DEBUG_INIT) + "; it goes on and logs what it can\n");
    }
}

TEST_F(ExamplePlatform, TraceFileThatFailsIsToldInOneLine) {
    recorder().fail("skein_init2", 1, 28);
    EXPECT_EQ(lines_of([] { const processor_frame frame; }),
              "Init trace buffer (processor-nyx/processor.trace) failed! (No space left on device); the processor goes "
              "on without tracing and logs errors and warnings alone\n");
    EXPECT_EQ(recorder().calls("skein_init2").size(), 1u);
}
