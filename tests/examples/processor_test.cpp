/* The processor against what no agent of this program would send. */
#include "processor.h"

#include <gtest/gtest.h>
#include <nyx_session_store.h>
#include <quill_nyx.h>
#include <sys/socket.h>

#include <algorithm>
#include <string>
#include <thread>

#include "private_traces.h"
#include "records.h"

using namespace request_path;

namespace {

constexpr uint64_t whole = UINT64_MAX;  // sent as a whole, but nothing after it

struct Processor : testing::Test {
    Processor() { take_new_connection(); }

    void take_new_connection() { EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends_), 0); }

    /* Sends one message, has it served, and takes the reply. */
    quill_nyx_request_result &answer_to(const message &outgoing) {
        connection agent(ends_[0]);
        connection processor(ends_[1]);
        std::thread server([&] { serve(processor, frame.root.api(), settings); });
        agent.send(outgoing, whole);
        message reply;
        EXPECT_EQ(agent.receive(reply, 1 << 20), receive_status::complete);
        server.join();
        EXPECT_EQ(reply.kind, message_kind::request_result);
        quill_nyx_request_result_free_ext(&result.record, nyx_gpb_free, nullptr, 0);  // what was answered before
        EXPECT_EQ(quill_nyx_request_result_decode_ext(&result.record, reply.bytes.data(), reply.bytes.size(),
                                                      nyx_gpb_alloc, nullptr, 0),
                  0);
        return result.record;
    }

    quill_nyx_request_result &answer_to(const quill_nyx_request &request) {
        message outgoing;
        outgoing.bytes.resize(quill_nyx_request_encode_ext(&request, nullptr, 0, nullptr, nullptr, 0));
        quill_nyx_request_encode_ext(&request, outgoing.bytes.data(), outgoing.bytes.size(), nullptr, nullptr, 0);
        return answer_to(outgoing);
    }

    processor_frame frame;
    processor_settings settings;
    owned_result result;

  private:
    int ends_[2];
};

void set_message_id(quill_nyx_request &request) {
    request.message_id = copy_string("1");
    request.has_message_id = 1;
}

void set_type(quill_nyx_request &request, uint32_t type) {
    request.type = type;
    request.has_type = 1;
}

/* An invoke-rpc whose tree has so many levels, each the only child of the one above; written from the inside out. */
std::vector<uint8_t> nested(size_t levels) {
    std::vector<uint8_t> reversed;
    const auto wrap = [&reversed](std::initializer_list<uint8_t> tag) {
        std::vector<uint8_t> length;
        size_t rest = reversed.size();
        for (; rest >= 0x80; rest >>= 7) {
            length.push_back(static_cast<uint8_t>(rest | 0x80));
        }
        length.push_back(static_cast<uint8_t>(rest));
        reversed.insert(reversed.end(), length.rbegin(), length.rend());
        reversed.insert(reversed.end(), std::rbegin(tag), std::rend(tag));
    };
    for (size_t i = 1; i < levels; ++i) {
        wrap({0x3A});  // datatree.children
    }
    wrap({0x12});        // invoke_rpc.tree
    wrap({0x9A, 0x03});  // request.invoke_rpc
    std::reverse(reversed.begin(), reversed.end());
    return reversed;
}

}  // namespace

TEST_F(Processor, RefusesBytesThatAreNoRequest) {
    const auto &answer = answer_to({message_kind::request, {0x1A, 0x7F, 'x'}});
    EXPECT_EQ(answer.uint32_1, 0u);
    EXPECT_STREQ(answer.error.error_tag, "malformed-message");
}

TEST_F(Processor, RefusesAnEmptyRequestForItsMissingMessageId) {
    EXPECT_STREQ(answer_to({message_kind::request, {}}).error.error_tag, "missing-attribute");
}

TEST_F(Processor, RefusesARequestWithoutASession) {
    owned_request request;
    set_message_id(request.record);
    set_type(request.record, QUILL_NYX_REQUEST_TYPE_COMMIT);
    EXPECT_STREQ(answer_to(request.record).error.error_tag, "data-missing");
}

TEST_F(Processor, RefusesASessionThatNobodyOpened) {
    owned_request request;
    set_message_id(request.record);
    set_type(request.record, QUILL_NYX_REQUEST_TYPE_COMMIT);
    request.record.session_id = 1;
    request.record.has_session_id = 1;
    EXPECT_STREQ(answer_to(request.record).error.error_tag, "invalid-value");
}

TEST_F(Processor, KeepsTheSessionThatItOpensInTheStore) {
    owned_request request;
    set_message_id(request.record);
    set_type(request.record, QUILL_NYX_REQUEST_TYPE_START_SESSION);
    const auto &answer = answer_to(request.record);
    EXPECT_EQ(answer.uint32_1, 1u);
    ASSERT_EQ(answer.has_uint32_2, 1u);
    EXPECT_NE(nyx_session_find(&frame.root.api(), answer.uint32_2), nullptr);
}

TEST_F(Processor, TakesRequestsOfASessionInTheStore) {
    owned_request request;
    set_message_id(request.record);
    set_type(request.record, QUILL_NYX_REQUEST_TYPE_COMMIT);
    request.record.session_id = nyx_session_create(&frame.root.api())->session_id;
    request.record.has_session_id = 1;
    EXPECT_EQ(answer_to(request.record).uint32_1, 1u);
}

TEST_F(Processor, EndsTheSessionThatIsKilled) {
    const uint32_t killed = nyx_session_create(&frame.root.api())->session_id;
    owned_request request;
    set_message_id(request.record);
    set_type(request.record, QUILL_NYX_REQUEST_TYPE_STOP_SESSION);
    request.record.session_id = nyx_session_create(&frame.root.api())->session_id;
    request.record.has_session_id = 1;
    request.record.stop_session.uint32_1 = killed;
    request.record.stop_session.has_uint32_1 = 1;
    request.record.has_stop_session = 1;
    EXPECT_EQ(answer_to(request.record).uint32_1, 1u);
    EXPECT_EQ(nyx_session_find(&frame.root.api(), killed), nullptr);
    EXPECT_NE(nyx_session_find(&frame.root.api(), request.record.session_id), nullptr);
}

TEST_F(Processor, TellsOfMemoryPressureUntilARequestFits) {
    EXPECT_EQ(nyx_util_is_mem_usage_normal(), 1u);
    answer_to({message_kind::request, nested(100'000)});
    EXPECT_EQ(nyx_util_is_mem_usage_normal(), 0u);
    take_new_connection();
    answer_to({message_kind::request, {}});
    EXPECT_EQ(nyx_util_is_mem_usage_normal(), 1u);
}

TEST_F(Processor, RefusesNestingThatWouldTakeItsStack) {
    settings.longest_message = 1 << 20;
    EXPECT_STREQ(answer_to({message_kind::request, nested(100'000)}).error.error_tag, "resource-denied");
}

TEST_F(Processor, TakesNestingWithinTheBudget) {
    settings.memory_budget = 1000 * (sizeof(quill_nyx_datatree) + 16);
    EXPECT_STREQ(answer_to({message_kind::request, nested(1000)}).error.error_tag, "missing-attribute");
}

TEST(ProcessorKind, RefusesToServeWhatIsNoRequest) {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    connection agent(ends[0]);
    connection processor(ends[1]);
    agent.send({message_kind::response, {}}, whole);
    processor_frame frame;
    EXPECT_THROW(serve(processor, frame.root.api(), {}), conversation_error);
}
