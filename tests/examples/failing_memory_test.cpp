/* The processor when memory runs out: each allocation of a conversation fails once, and every request is answered. */
#include <gtest/gtest.h>
#include <nyx_session_store.h>
#include <sys/socket.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <optional>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "conversation.h"
#include "processor.h"
#include "recording_platform.h"

using namespace request_path;
using nyx_test::recorder;

namespace {

constexpr uint32_t seed = 1;  // the same sessions in every conversation

enum class who { first, second, unknown, none };

struct input {
    const char *file;
    who from = who::first;
};

/* All the ways in which the processor fails, and what they need before. */
const std::vector<input> inputs{
    {"create_interface.xml"},
    {"rfc6241_7_5_lock.xml", who::second},
    {"rfc6241_7_5_lock.xml"},
    {"create_interface.xml"},
    {"create_interface.xml", who::second},
    {"get_running.xml"},  // what follows changes the data, unless there is no memory to say what it left out
    {"continue_on_error.xml", who::second},
    {"edit_fails_half_way.xml", who::second},
    {"quotes_in_key.xml", who::second},
    {"validate_config.xml"},
    {"bad_operation_on_config.xml", who::second},
    {"bad_text_in_config.xml", who::second},
    {"bad_unknown_datastore.xml"},
    {"edit_startup.xml"},
    {"rfc6241_4_3_missing_message_id.xml"},
    {"get_running.xml", who::none},
    {"get_running.xml", who::unknown},
    {"bad_unknown_operation.xml"},
    {"back_end_aaf2aa00.xml"},
    {"back_end_no_code.xml"},
    {"back_end_bad_code.xml"},
    {"back_end_unknown_parameter.xml"},
    {"kill_session_1.xml"},
};

struct sessions {
    explicit sessions(nyx_api_ctx &api)
        : first(nyx_session_create(&api)->session_id), second(nyx_session_create(&api)->session_id) {}
    uint32_t first;
    uint32_t second;
};

message encoded(const input &one, const sessions &ids) {
    std::ifstream file(std::string(INPUTS "/") + one.file);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    switch (one.from) {
        case who::first:
            return request_of(text, ids.first);
        case who::second:
            return request_of(text, ids.second);
        case who::unknown:
            return request_of(text, 1);
        case who::none:
            break;
    }
    return request_of(text, std::nullopt);
}

std::vector<message> all_requests() {
    const processor_frame frame(seed);
    const sessions ids(const_cast<processor_frame &>(frame).root.api());
    std::vector<message> all(inputs.size());
    std::transform(inputs.begin(), inputs.end(), all.begin(), [&](const input &one) { return encoded(one, ids); });
    all.push_back({message_kind::request, {0x1A, 0x7F, 'x'}});  // no request at all
    return all;
}

std::string without(const std::string &reply, const std::string &element) {
    return std::regex_replace(reply, std::regex("\n *<" + element + ">[^]*?</" + element + ">"), "");
}

/* The library answers without these rather than not at all: a message, and the info of a missing message id. */
const char *element_without(const std::string &failed) {
    if (failed == "error message") {
        return "error-message";
    }
    return failed == "str: error-info" ? "error-info" : nullptr;
}

bool lacks_only(const char *element, const std::string &reply, const std::string &complete) {
    return element != nullptr && reply.size() < complete.size() &&
           without(reply, element) == without(complete, element);
}

/* What is left of an error when there is no memory for it. */
const std::string bare_failure =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<rpc-reply xmlns=\"urn:ietf:params:xml:ns:netconf:base:1.0\">\n"
    "  <rpc-error>\n"
    "    <error-type>application</error-type>\n"
    "    <error-tag>resource-denied</error-tag>\n"
    "    <error-severity>error</error-severity>\n"
    "  </rpc-error>\n"
    "</rpc-reply>\n";

struct FailingMemory : nyx_test::platform_test {
    /* One conversation with a processor of its own, whose n-th allocation fails; 0: none. */
    std::vector<std::string> replies_with(uint64_t failing) {
        processor_frame frame(seed);
        const sessions ids(frame.root.api());
        int ends[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
        connection agent(ends[0]);
        connection processor(ends[1]);
        for (const message &request : requests) {
            agent.send(request, &request == &requests.back() ? std::optional<uint64_t>(UINT64_MAX) : std::nullopt);
        }
        recorder().forget();
        if (failing != 0) {
            recorder().fail_allocation(failing);
        }
        serve(processor, frame.root.api(), {});
        EXPECT_EQ(recorder().complaints(), "");  // the failure came to pass
        recorder().fail_nothing();
        asked_for = recorder().allocation_texts();
        std::vector<std::string> replies;
        message reply;
        for (size_t i = 0; i < requests.size(); ++i) {
            EXPECT_EQ(agent.receive(reply, 1 << 20), receive_status::complete);
            replies.push_back(as_xml(reply));
        }
        return replies;
    }

    const std::vector<message> requests = all_requests();
    std::vector<std::string> asked_for;  // by the last conversation
};

/* The library gives up what it has of a path's namespaces when one cannot be copied. */
std::set<std::string> leaks_after(const std::string &failed) {
    if (failed == "copy of xpath namespace tag") {
        return {"query transformer namespace attributes"};
    }
    if (failed == "prepended 'xmlns:' to xpath namespace value") {
        return {"copy of xpath namespace tag", "query transformer namespace attributes"};
    }
    return {};
}

}  // namespace

TEST_F(FailingMemory, EveryAllocationMayFailAndEveryRequestIsAnswered) {
    const std::vector<std::string> complete = replies_with(0);
    const size_t allocations = asked_for.size();
    ASSERT_GT(allocations, 100u);
    size_t reduced = 0;
    for (uint64_t failing = 1; failing <= allocations; ++failing) {
        const std::vector<std::string> replies = replies_with(failing);
        const std::string failed = asked_for[failing - 1];
        SCOPED_TRACE("allocation " + std::to_string(failing) + ", " + failed);
        for (size_t i = 0; i < replies.size(); ++i) {
            if (replies[i] == complete[i]) {
                continue;
            }
            ++reduced;
            EXPECT_TRUE(is_valid_reply(replies[i])) << replies[i];
            EXPECT_TRUE(replies[i] == bare_failure || lacks_only(element_without(failed), replies[i], complete[i]))
                << "request " << i << ": " << replies[i];
        }
        const auto left = recorder().live_blocks();
        EXPECT_EQ(std::set<std::string>(left.begin(), left.end()), leaks_after(failed));
        recorder().reset();
    }
    EXPECT_GT(reduced, 100u);
}

TEST_F(FailingMemory, AllRepliesAreValidWithEnoughOfIt) {
    for (const std::string &reply : replies_with(0)) {
        EXPECT_TRUE(is_valid_reply(reply)) << reply;
    }
    EXPECT_FALSE(is_valid_reply("<rpc-reply xmlns=\"urn:ietf:params:xml:ns:netconf:base:1.0\"><no/></rpc-reply>"));
}

TEST_F(FailingMemory, WhatHasATextIsABareFailureUnderPressure) {
    const std::vector<std::string> complete = replies_with(0);
    nyx_util_set_mem_state(1);
    const std::vector<std::string> pressed = replies_with(0);
    nyx_util_set_mem_state(0);
    for (size_t i = 0; i < pressed.size(); ++i) {
        EXPECT_EQ(pressed[i], complete[i].find("<ok/>") == std::string::npos ? bare_failure : complete[i]);
    }
}
