// The checks that every request goes through: what each answers, in which order it logs and writes, and what it
// returns.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <set>
#include <string>

#include "nyx_error.h"
#include "result_fixture.h"

namespace {

using nyx_test::assertion_regex;
using nyx_test::encoded;
using nyx_test::next_trace_index;
using nyx_test::null_regex;
using nyx_test::recorder;
using nyx_test::release;
using nyx_test::site;
using nyx_test::text_of;
using nyx_test::text_of_code;
using testing::IsEmpty;
using testing::SizeIs;

constexpr rcode invalid_argument = -1426939904;
constexpr rcode no_memory = -1426938880;
constexpr rcode invalid_request = -1426938368;
constexpr rcode request_failed = -1426937856;

// Message id

class MessageIdCheck : public nyx_test::result_test {
  protected:
    rcode check() { return nyx_req_message_id_check(&req_ctx_, &session_, &result_); }

    [[nodiscard]] site missing_line(const nyx_session_ctx *session) const {
        return line("ERR", "nyx_req_message_id_check", "message-id not set", "message-id not set", session);
    }
};
using MessageIdCheckDeathTest = MessageIdCheck;

constexpr const char *message_id_missing =
    R"(status*=0 error*{type*=1 tag*="missing-attribute" severity*=0 message{text*="Message ID is missing."})";
constexpr const char *message_id_info =
    R"( info{name*="error-info" children*[{name*="bad-attribute" value*="message-id"}{name*="bad-element" )"
    R"(value*="rpc"}]}})";

TEST_F(MessageIdCheck, PassesARequestWithAMessageId) {
    char id[] = "101";
    request_.message_id = id;
    request_.has_message_id = 1;
    result_.uint32_1 = 1;
    log_everything();
    EXPECT_EQ(check(), 0);
    EXPECT_EQ(text_of(result_), "status=1");
    EXPECT_THAT(recorder().calls(), IsEmpty());
}

TEST_F(MessageIdCheck, LooksAtTheMarkAlone) {
    char id[] = "";
    request_.has_message_id = 1;
    EXPECT_EQ(check(), 0) << "null";
    request_.message_id = id;
    EXPECT_EQ(check(), 0) << "empty";
    req_ctx_.nyx_ctx = nullptr;
    EXPECT_EQ(nyx_req_message_id_check(&req_ctx_, nullptr, nullptr), 0) << "nothing else is needed";
    req_ctx_.nyx_ctx = &api_;
    request_.has_message_id = 0;
    EXPECT_EQ(check(), invalid_request) << "not marked";
}

TEST_F(MessageIdCheck, AnswersARequestWithoutAMessageId) {
    EXPECT_EQ(check(), invalid_request);
    EXPECT_EQ(text_of(result_), std::string(message_id_missing) + message_id_info);
}

TEST_F(MessageIdCheck, LogsBothForms) {
    log_everything();
    const std::uint32_t index = next_trace_index();
    EXPECT_EQ(check(), invalid_request);
    expect_line(missing_line(&session_), index);
}

TEST_F(MessageIdCheck, LogsWithoutASession) {
    log_everything();
    const std::uint32_t index = next_trace_index();
    EXPECT_EQ(nyx_req_message_id_check(&req_ctx_, nullptr, &result_), invalid_request);
    expect_line(missing_line(nullptr), index);
}

TEST_F(MessageIdCheck, LogsBeforeItTouchesTheResult) {
    log_everything();
    const auto untouched = [&] { EXPECT_EQ(text_of(result_), ""); };
    recorder().when_called("_umbra_dt_log_filter_adv", untouched);
    recorder().when_called("_skein_str", untouched);
    EXPECT_EQ(check(), invalid_request);
    EXPECT_THAT(recorder().trace_lines(), SizeIs(1));
    EXPECT_EQ(recorder().functions()[0], "_umbra_dt_log_filter_adv");
    EXPECT_EQ(recorder().functions()[1], "_skein_str");
}

TEST_F(MessageIdCheck, IsLoggedAtErrorOfItsOperation) {
    expect_gated(QUILL_NYX_LOGGING_LEVEL_ERROR, [&] { EXPECT_EQ(check(), invalid_request); });
}

TEST_F(MessageIdCheck, IsSilentWhenNobodyListens) {
    expect_silence([&] { EXPECT_EQ(check(), invalid_request); });
}

TEST_F(MessageIdCheck, RefusesANullResultAfterItHasLogged) {
    log_everything();
    const std::uint32_t index = next_trace_index();
    EXPECT_EQ(nyx_req_message_id_check(&req_ctx_, &session_, nullptr), invalid_argument);
    expect_line(missing_line(&session_), index);
    EXPECT_THAT(recorder().allocations(), IsEmpty());
}

TEST_F(MessageIdCheck, SurvivesTheFailureOfEveryAllocation) {
    const std::string without_info = std::string(message_id_missing) + "}";
    expect_failures(
        {
            {"error tag string", no_memory, "status*=0 error*{type*=1 severity*=0}"},
            {"error message", invalid_request,
             std::string(R"(status*=0 error*{type*=1 tag*="missing-attribute" severity*=0)") + message_id_info},
            {"GPB datatree (nyx_req_datatree_create)", no_memory, without_info},
            {"str: bad-attribute", no_memory, without_info},
            {"str: message-id", no_memory, without_info},
            {"str: bad-element", no_memory, without_info},
            {"str: rpc", no_memory, without_info},
            {"str: error-info", invalid_request, without_info},
        },
        [&] { return check(); });
}

TEST_F(MessageIdCheck, MakesBothEntriesInOneBlock) {
    EXPECT_EQ(check(), invalid_request);
    EXPECT_EQ(recorder().allocations()[2].size, 2 * sizeof(quill_nyx_datatree));
}

TEST_F(MessageIdCheck, CopiesNothingWhileMemoryIsShort) {
    nyx_util_set_mem_state(1);
    EXPECT_EQ(check(), no_memory);
    EXPECT_EQ(text_of(result_), "status*=0 error*{type*=1 severity*=0}");
    EXPECT_THAT(recorder().allocations(), IsEmpty());
}

TEST_F(MessageIdCheckDeathTest, AssertsTheContext) {
    req_ctx_.nyx_ctx = nullptr;
    EXPECT_DEATH(check(), assertion_regex("nyx_error\\.cpp",
                                          "rcode nyx_req_message_id_check\\(nyx_request_ctx ?\\*, nyx_session_ctx ?\\*,"
                                          " quill_nyx_request_result ?\\*\\)",
                                          null_regex("req_ctx->nyx_ctx")));
}

// Session id

class SessionIdLookup : public nyx_test::result_test {
  protected:
    void SetUp() override {
        result_test::SetUp();
        ASSERT_EQ(nyx_session_store_init(&api_), 0);
        live_ = nyx_session_create(&api_);
        ASSERT_NE(live_, nullptr);
        recorder().forget();
    }
    void TearDown() override {
        EXPECT_EQ(nyx_session_store_cleanup(&api_), 0);
        result_test::TearDown();
    }

    // Asks for a session that is not there: what was in the out argument goes.
    rcode miss(quill_nyx_request_result *result) {
        nyx_session_ctx *found = &session_;
        const rcode rc = nyx_req_session_id_lookup(&req_ctx_, result, &found);
        EXPECT_EQ(found, nullptr);
        return rc;
    }
    rcode miss() { return miss(&result_); }

    void name_session(std::uint32_t id) {
        request_.session_id = id;
        request_.has_session_id = 1;
    }
    // An id that no session has.
    void name_unknown_session() { name_session(live_->session_id ^ 0x80000000U); }

    [[nodiscard]] site missing_line() const {
        return line("ERR", "nyx_req_session_id_lookup", "Session ID is missing.", "Session ID is missing.", nullptr);
    }
    [[nodiscard]] site unknown_line(const std::string &id) const {
        return line("ERR", "nyx_req_session_id_lookup", "session with id=%d not found",
                    "session with id=" + id + " not found", nullptr);
    }
    [[nodiscard]] site unknown_line() const {
        return unknown_line(std::to_string(static_cast<std::int32_t>(request_.session_id)));
    }

    nyx_session_ctx *live_ = nullptr;
};
using SessionIdLookupDeathTest = SessionIdLookup;

constexpr const char *session_id_missing =
    R"(status*=0 error*{type*=3 tag*="data-missing" severity*=0 message{text*="Session ID is missing."}})";
constexpr const char *session_unknown =
    R"(status*=0 error*{type*=3 tag*="invalid-value" severity*=0 message{text*="Entered session ID was not found."}})";

TEST_F(SessionIdLookup, FindsALiveSession) {
    log_everything();
    name_session(live_->session_id);
    nyx_session_ctx *found = nullptr;
    EXPECT_EQ(nyx_req_session_id_lookup(&req_ctx_, &result_, &found), 0);
    EXPECT_EQ(found, live_);
    EXPECT_EQ(text_of(result_), "");
    expect_no_line();
    EXPECT_THAT(recorder().allocations(), IsEmpty());
}

TEST_F(SessionIdLookup, NeedsNoResultForALiveSession) {
    name_session(live_->session_id);
    nyx_session_ctx *found = nullptr;
    EXPECT_EQ(nyx_req_session_id_lookup(&req_ctx_, nullptr, &found), 0);
    EXPECT_EQ(found, live_);
}

TEST_F(SessionIdLookup, AnswersARequestWithoutASessionId) {
    log_everything();
    request_.session_id = live_->session_id;
    const std::uint32_t index = next_trace_index();
    EXPECT_EQ(miss(), invalid_request) << "an id that is not marked is none";
    EXPECT_EQ(text_of(result_), session_id_missing);
    expect_line(missing_line(), index);
    EXPECT_THAT(recorder().calls("umbra_wavl_search"), IsEmpty());
}

TEST_F(SessionIdLookup, AnswersARequestOfAnUnknownSession) {
    log_everything();
    name_unknown_session();
    const std::uint32_t index = next_trace_index();
    EXPECT_EQ(miss(), invalid_request);
    EXPECT_EQ(text_of(result_), session_unknown);
    expect_line(unknown_line(), index);
    EXPECT_THAT(recorder().calls("umbra_wavl_search"), SizeIs(1));
}

TEST_F(SessionIdLookup, NeverFindsId0) {
    log_everything();
    name_session(0);
    const std::uint32_t index = next_trace_index();
    EXPECT_EQ(miss(), invalid_request);
    EXPECT_EQ(text_of(result_), session_unknown);
    expect_line(unknown_line("0"), index);
}

TEST_F(SessionIdLookup, PrintsIdsAsSignedNumbers) {
    log_everything();
    nyx_session_destroy(&api_, live_);
    name_session(0xFFFFFFFE);
    const std::uint32_t index = next_trace_index();
    EXPECT_EQ(miss(), invalid_request);
    expect_line(unknown_line("-2"), index);
}

TEST_F(SessionIdLookup, NoLongerFindsADestroyedSession) {
    const std::uint32_t id = live_->session_id;
    nyx_session_destroy(&api_, live_);
    name_session(id);
    EXPECT_EQ(miss(), invalid_request);
    EXPECT_EQ(text_of(result_), session_unknown);
}

TEST_F(SessionIdLookup, LogsAfterItHasFilledTheResult) {
    log_everything();
    for (const char *const expected : {session_id_missing, session_unknown}) {
        const auto filled = [&] { EXPECT_EQ(text_of(result_), expected); };
        recorder().when_called("_umbra_dt_log_filter_adv", filled);
        recorder().when_called("_skein_str", filled);
        recorder().forget();
        EXPECT_EQ(miss(), invalid_request);
        EXPECT_THAT(recorder().trace_lines(), SizeIs(1));
        release(result_);
        result_ = {};
        name_unknown_session();
    }
}

TEST_F(SessionIdLookup, HasNoSessionInTheOutArgumentWhileItWorks) {
    nyx_session_ctx *found = &session_;
    recorder().when_called("umbra_named_malloc_", [&] { EXPECT_EQ(found, nullptr); });
    EXPECT_EQ(nyx_req_session_id_lookup(&req_ctx_, &result_, &found), invalid_request);
    release(result_);
    name_unknown_session();
    found = &session_;
    recorder().when_called("umbra_wavl_search", [&] { EXPECT_EQ(found, nullptr); });
    EXPECT_EQ(nyx_req_session_id_lookup(&req_ctx_, &result_, &found), invalid_request);
}

TEST_F(SessionIdLookup, IsLoggedAtErrorOfItsOperation) {
    const auto run = [&] { EXPECT_EQ(miss(), invalid_request); };
    const nyx_debug_ctx_t before = root();
    expect_gated(QUILL_NYX_LOGGING_LEVEL_ERROR, run);
    root() = before;
    name_unknown_session();
    expect_gated(QUILL_NYX_LOGGING_LEVEL_ERROR, run);
}

TEST_F(SessionIdLookup, IsSilentWhenNobodyListens) {
    expect_silence([&] { EXPECT_EQ(miss(), invalid_request); });
    release(result_);
    name_unknown_session();
    expect_silence([&] { EXPECT_EQ(miss(), invalid_request); });
}

TEST_F(SessionIdLookup, LogsWithoutAResultAsWell) {
    log_everything();
    std::uint32_t index = next_trace_index();
    EXPECT_EQ(miss(nullptr), invalid_argument);
    expect_line(missing_line(), index);
    name_unknown_session();
    recorder().forget();
    index = next_trace_index();
    EXPECT_EQ(miss(nullptr), invalid_argument);
    expect_line(unknown_line(), index);
}

TEST_F(SessionIdLookup, LogsWithoutMemoryAsWell) {
    log_everything();
    nyx_util_set_mem_state(1);
    std::uint32_t index = next_trace_index();
    EXPECT_EQ(miss(), no_memory);
    EXPECT_EQ(text_of(result_), "status*=0 error*{type*=3 severity*=0}");
    expect_line(missing_line(), index);
    name_unknown_session();
    recorder().forget();
    index = next_trace_index();
    EXPECT_EQ(miss(), no_memory);
    EXPECT_EQ(text_of(result_), "status*=0 error*{type*=3 severity*=0}");
    expect_line(unknown_line(), index);
}

// No session lives here: every block is the result's.
class SessionIdLookupFailures : public nyx_test::result_test {
  protected:
    void expect_survival(const std::string &tag) {
        expect_failures(
            {
                {"error tag string", no_memory, "status*=0 error*{type*=3 severity*=0}"},
                {"error message", invalid_request, "status*=0 error*{type*=3 tag*=\"" + tag + "\" severity*=0}"},
            },
            [&] {
                nyx_session_ctx *found = &session_;
                return nyx_req_session_id_lookup(&req_ctx_, &result_, &found);
            });
    }
};

TEST_F(SessionIdLookupFailures, AreSurvivedWithoutASessionId) {
    expect_survival("data-missing");
}

TEST_F(SessionIdLookupFailures, AreSurvivedWithAnUnknownSession) {
    ASSERT_EQ(nyx_session_store_init(&api_), 0);
    request_.session_id = 7;
    request_.has_session_id = 1;
    expect_survival("invalid-value");
    EXPECT_EQ(nyx_session_store_cleanup(&api_), 0);
}

TEST_F(SessionIdLookupDeathTest, AssertsTheContext) {
    req_ctx_.nyx_ctx = nullptr;
    EXPECT_DEATH(miss(), assertion_regex("nyx_error\\.cpp",
                                         "rcode nyx_req_session_id_lookup\\(nyx_request_ctx ?\\*, "
                                         "quill_nyx_request_result ?\\*, nyx_session_ctx ?\\*\\*\\)",
                                         null_regex("req_ctx->nyx_ctx")));
    name_session(1);
    EXPECT_DEATH(miss(),
                 assertion_regex("nyx_session_store\\.cpp",
                                 "nyx_session_ctx ?\\* ?nyx_session_find\\(nyx_api_ctx ?\\*, (std::)?uint32_t\\)",
                                 null_regex("nyx_ctx")));
}

// The back end's result

class MeRequestResultCheck : public nyx_test::result_test {
  protected:
    rcode check(std::uint32_t code) {
        return nyx_me_request_result_check(&req_ctx_, &session_, &result_, static_cast<rcode>(code));
    }

    [[nodiscard]] site success_line(const nyx_session_ctx *session) const {
        return line("DBG", function, "ME request success.", "ME request success.", session);
    }
    [[nodiscard]] site failure_line(const std::string &number, rcode code, const nyx_session_ctx *session) const {
        return line("ERR", function, "ME request failed: (rc=%d) %s",
                    "ME request failed: (rc=" + number + ") " + text_of_code(code), session);
    }

    // What the result is after a failure of that code.
    static std::string failure(const char *tag, rcode code) {
        return std::string(R"(status*=0 error*{type*=3 tag*=")") + tag + R"(" severity*=0 message{text*=")" +
               text_of_code(code) + R"("}})";
    }

    static constexpr const char *function = "nyx_me_request_result_check";
};
using MeRequestResultCheckDeathTest = MeRequestResultCheck;

TEST_F(MeRequestResultCheck, MarksSuccess) {
    log_everything();
    const std::uint32_t index = next_trace_index();
    EXPECT_EQ(check(0), 0);
    EXPECT_EQ(text_of(result_), "status*=1");
    EXPECT_EQ(encoded(result_), "\x08\x01");
    expect_line(success_line(&session_), index);
    EXPECT_THAT(recorder().allocations(), IsEmpty());
}

TEST_F(MeRequestResultCheck, KeepsTheErrorOfAResultThatSucceeds) {
    ASSERT_EQ(nyx_req_result_error_set(&result_, 1, 0, "t", "m"), 0);
    result_.uint32_2 = 5;
    EXPECT_EQ(check(0), 0);
    EXPECT_EQ(text_of(result_), R"(status*=1 uint32_2=5 error*{type*=1 tag*="t" severity*=0 message{text*="m"}})");
}

TEST_F(MeRequestResultCheck, LogsSuccessAtDebugOfItsOperation) {
    expect_gated(QUILL_NYX_LOGGING_LEVEL_DEBUG, [&] { EXPECT_EQ(check(0), 0); });
}

TEST_F(MeRequestResultCheck, LogsFailureAtErrorOfItsOperation) {
    expect_gated(QUILL_NYX_LOGGING_LEVEL_ERROR, [&] { EXPECT_EQ(check(12), request_failed); });
}

TEST_F(MeRequestResultCheck, IsSilentWhenNobodyListens) {
    expect_silence([&] { EXPECT_EQ(check(0), 0); });
    expect_silence([&] { EXPECT_EQ(check(12), request_failed); });
}

TEST_F(MeRequestResultCheck, LogsFailureInBothForms) {
    log_everything();
    const std::uint32_t index = next_trace_index();
    EXPECT_EQ(check(0xAAF2BE00), request_failed);
    expect_line(failure_line("-1426932224", -1426932224, &session_), index);
}

TEST_F(MeRequestResultCheck, LogsWithoutASession) {
    log_everything();
    std::uint32_t index = next_trace_index();
    EXPECT_EQ(nyx_me_request_result_check(&req_ctx_, nullptr, &result_, 0), 0);
    expect_line(success_line(nullptr), index);
    recorder().forget();
    index = next_trace_index();
    EXPECT_EQ(nyx_me_request_result_check(&req_ctx_, nullptr, &result_, 22), request_failed);
    expect_line(failure_line("22", 22, nullptr), index);
}

TEST_F(MeRequestResultCheck, LogsBeforeItTouchesTheResult) {
    log_everything();
    const auto untouched = [&] { EXPECT_EQ(text_of(result_), ""); };
    recorder().when_called("_umbra_dt_log_filter_adv", untouched);
    recorder().when_called("_skein_str", untouched);
    EXPECT_EQ(check(0), 0);
    result_ = {};
    EXPECT_EQ(check(22), request_failed);
    EXPECT_THAT(recorder().trace_lines(), SizeIs(2));
    EXPECT_THAT(recorder().log_lines(), SizeIs(2));
}

TEST_F(MeRequestResultCheck, ChoosesTheTagByTheCode) {
    struct choice {
        std::uint32_t code;
        const char *tag;
    };
    const choice choices[] = {
        {0xAAF2AA00, "invalid-value"},
        {0xAAF2BC00, "invalid-value"},
        {0xAAF2B000, "resource-denied"},
        {0xAAF2BE00, "operation-not-supported"},
        // The codes next to those, and their like with other upper halves.
        {0xAAF2A9FF, "operation-failed"},
        {0xAAF2AA01, "operation-failed"},
        {0xAAF2AC00, "operation-failed"},
        {0xAAF2BBFF, "operation-failed"},
        {0xAAF2BC01, "operation-failed"},
        {0xAAF2BA00, "operation-failed"},
        {0xAAF2AFFF, "operation-failed"},
        {0xAAF2B001, "operation-failed"},
        {0xAAF2AE00, "operation-failed"},
        {0xAAF2B200, "operation-failed"},
        {0xAAF2BDFF, "operation-failed"},
        {0xAAF2BE01, "operation-failed"},
        {0xAAF2C000, "operation-failed"},
        {0x2AF2AA00, "operation-failed"},
        {0x0000AA00, "operation-failed"},
        {0x0000BE00, "operation-failed"},
        // Codes of this library, of the system, and the ends of the range.
        {0xAAF29E00, "operation-failed"},
        {0xAAF2A000, "operation-failed"},
        {0xAAF2A200, "operation-failed"},
        {0xAAF2A400, "operation-failed"},
        {0xAAF2A600, "operation-failed"},
        {0xAAF2A800, "operation-failed"},
        {1, "operation-failed"},
        {12, "operation-failed"},
        {0xFFFFFFFF, "operation-failed"},
        {0x7FFFFFFF, "operation-failed"},
        {0x80000000, "operation-failed"},
    };
    for (const choice &each : choices) {
        SCOPED_TRACE(each.code);
        EXPECT_EQ(check(each.code), request_failed);
        EXPECT_EQ(text_of(result_), failure(each.tag, static_cast<rcode>(each.code)));
        release(result_);
        result_ = {};
    }
}

TEST_F(MeRequestResultCheck, RefusesANullResultAfterItHasLogged) {
    log_everything();
    std::uint32_t index = next_trace_index();
    EXPECT_EQ(nyx_me_request_result_check(&req_ctx_, &session_, nullptr, 0), invalid_argument);
    expect_line(success_line(&session_), index);
    recorder().forget();
    index = next_trace_index();
    EXPECT_EQ(nyx_me_request_result_check(&req_ctx_, &session_, nullptr, 22), invalid_argument);
    expect_line(failure_line("22", 22, &session_), index);
    EXPECT_THAT(recorder().allocations(), IsEmpty());
}

TEST_F(MeRequestResultCheck, SurvivesTheFailureOfEveryCopy) {
    expect_failures(
        {
            {"error tag string", no_memory, "status*=0 error*{type*=3 severity*=0}"},
            {"error message", request_failed, R"(status*=0 error*{type*=3 tag*="operation-failed" severity*=0})"},
        },
        [&] { return check(22); });
}

TEST_F(MeRequestResultCheck, CopiesNothingWhileMemoryIsShort) {
    nyx_util_set_mem_state(1);
    EXPECT_EQ(check(22), no_memory);
    EXPECT_EQ(text_of(result_), "status*=0 error*{type*=3 severity*=0}");
    EXPECT_EQ(check(0), 0) << "success needs no memory";
    EXPECT_THAT(recorder().allocations(), IsEmpty());
}

TEST_F(MeRequestResultCheckDeathTest, AssertsTheContext) {
    const std::string regex = assertion_regex("nyx_error\\.cpp",
                                              "rcode nyx_me_request_result_check\\(nyx_request_ctx ?\\*, "
                                              "nyx_session_ctx ?\\*, quill_nyx_request_result ?\\*, rcode\\)",
                                              null_regex("req_ctx->nyx_ctx"));
    req_ctx_.nyx_ctx = nullptr;
    EXPECT_DEATH(check(0), regex);
    EXPECT_DEATH(check(22), regex);
}

using RequestChecks = SessionIdLookup;

TEST_F(RequestChecks, HaveAFilterWordForEachSite) {
    log_everything();
    EXPECT_EQ(nyx_req_message_id_check(&req_ctx_, nullptr, nullptr), invalid_argument);
    EXPECT_EQ(miss(nullptr), invalid_argument);
    name_unknown_session();
    EXPECT_EQ(miss(nullptr), invalid_argument);
    EXPECT_EQ(nyx_me_request_result_check(&req_ctx_, nullptr, nullptr, 0), invalid_argument);
    EXPECT_EQ(nyx_me_request_result_check(&req_ctx_, nullptr, nullptr, 22), invalid_argument);
    std::set<const std::uint32_t *> filters;
    for (const nyx_test::log_line &each : recorder().log_lines()) {
        filters.insert(each.filter);
    }
    EXPECT_THAT(filters, SizeIs(5));
}

}  // namespace
