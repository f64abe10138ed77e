// Errors in request results: what is written and marked, what is copied under which description, what a failed copy
// leaves behind, and what is logged.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "nyx_error.h"
#include "result_fixture.h"

namespace {

using nyx_test::bytes_of;
using nyx_test::called;
using nyx_test::calls_of;
using nyx_test::encoded;
using nyx_test::next_trace_index;
using nyx_test::recorder;
using nyx_test::release;
using nyx_test::site;
using nyx_test::text_of;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

char *block_of(const char *text) {
    return nyx_strdup(text, "the test's");
}

using RequestErrorSet = nyx_test::result_test;
using RequestErrorPathSet = nyx_test::result_test;
using RequestErrorInfoSet = nyx_test::result_test;
using NomemErrorSet = nyx_test::result_test;

// Type, severity, tag and message

TEST_F(RequestErrorSet, RefusesANullResult) {
    log_everything();
    EXPECT_EQ(nyx_req_result_error_set(nullptr, 1, 0, "tag", "message"), -1426939904);
    EXPECT_THAT(recorder().calls(), IsEmpty());
}

TEST_F(RequestErrorSet, FillsTheError) {
    const std::string tag = "invalid-value";
    const std::string message = "That is no value.";
    EXPECT_EQ(nyx_req_result_error_set(&result_, 3, 0, tag.c_str(), message.c_str()), 0);
    EXPECT_EQ(text_of(result_),
              R"(status*=0 error*{type*=3 tag*="invalid-value" severity*=0 message{text*="That is no value."}})");
    EXPECT_NE(result_.error.error_tag, tag.c_str());
    EXPECT_NE(result_.error.error_message.text, message.c_str());
    EXPECT_THAT(recorder().allocation_texts(), ElementsAre("error tag string", "error message"));
    EXPECT_EQ(recorder().allocations()[0].size, 14U);
    EXPECT_EQ(recorder().allocations()[1].size, 18U);
}

TEST_F(RequestErrorSet, TakesAnyNumberAndEmptyTexts) {
    EXPECT_EQ(nyx_req_result_error_set(&result_, 0xFFFFFFFF, 0xFFFFFF07, "", ""), 0);
    EXPECT_EQ(text_of(result_), R"(status*=0 error*{type*=4294967295 tag*="" severity*=4294967047 message{text*=""}})");
}

TEST_F(RequestErrorSet, MakesASuccessAFailure) {
    result_.uint32_1 = 1;
    EXPECT_EQ(nyx_req_result_error_set(&result_, 1, 2, "t", "m"), 0);
    EXPECT_EQ(text_of(result_), R"(status*=0 error*{type*=1 tag*="t" severity*=2 message{text*="m"}})");
}

TEST_F(RequestErrorSet, LeavesEverythingElseAlone) {
    result_.uint32_2 = 5;
    result_.string_3 = block_of("three");
    result_.error.error_app_tag = block_of("app");
    result_.error.has_error_app_tag = 1;
    result_.error.error_path.value = block_of("/a");
    result_.error.error_info.name = block_of("info");
    result_.error.error_message.string_1 = block_of("one");
    EXPECT_EQ(nyx_req_result_error_set(&result_, 1, 0, "t", "m"), 0);
    EXPECT_EQ(text_of(result_),
              R"(status*=0 uint32_2=5 string_3="three" error*{type*=1 tag*="t" severity*=0 app_tag*="app" )"
              R"(path{value="/a"} message{string_1="one" text*="m"} info{name="info"}})");
}

TEST_F(RequestErrorSet, SurvivesTheFailureOfEveryCopy) {
    expect_failures(
        {
            {"error tag string", -1426938880, "status*=0 error*{type*=2 severity*=0}"},
            {"error message", 0, R"(status*=0 error*{type*=2 tag*="t" severity*=0})"},
        },
        [&] { return nyx_req_result_error_set(&result_, 2, 0, "t", "m"); });
}

TEST_F(RequestErrorSet, CountsNullTextsAsCopiesThatFailed) {
    EXPECT_EQ(nyx_req_result_error_set(&result_, 2, 0, nullptr, "m"), -1426938880);
    EXPECT_EQ(text_of(result_), "status*=0 error*{type*=2 severity*=0}");
    EXPECT_EQ(nyx_req_result_error_set(&result_, 2, 0, "t", nullptr), 0);
    EXPECT_EQ(text_of(result_), R"(status*=0 error*{type*=2 tag*="t" severity*=0})");
}

TEST_F(RequestErrorSet, CopiesNothingWhileMemoryIsShort) {
    nyx_util_set_mem_state(1);
    EXPECT_EQ(nyx_req_result_error_set(&result_, 2, 0, "t", "m"), -1426938880);
    EXPECT_EQ(text_of(result_), "status*=0 error*{type*=2 severity*=0}");
    EXPECT_THAT(recorder().allocations(), IsEmpty());
}

TEST_F(RequestErrorSet, KeepsTagAndMessageWhenTheNextTagCannotBeCopied) {
    ASSERT_EQ(nyx_req_result_error_set(&result_, 1, 1, "t", "m"), 0);
    recorder().fail_allocation(1);
    EXPECT_EQ(nyx_req_result_error_set(&result_, 2, 2, "t2", "m2"), -1426938880);
    EXPECT_EQ(text_of(result_), R"(status*=0 error*{type*=2 tag*="t" severity*=2 message{text*="m"}})");
}

TEST_F(RequestErrorSet, ReplacesWithoutReleasing) {
    ASSERT_EQ(nyx_req_result_error_set(&result_, 1, 0, "t", "m"), 0);
    char *const tag = result_.error.error_tag;
    char *const message = result_.error.error_message.text;
    EXPECT_EQ(nyx_req_result_error_set(&result_, 2, 0, "t2", "m2"), 0);
    EXPECT_EQ(text_of(result_), R"(status*=0 error*{type*=2 tag*="t2" severity*=0 message{text*="m2"}})");
    EXPECT_STREQ(tag, "t");
    EXPECT_STREQ(message, "m");
    EXPECT_THAT(recorder().live_blocks(),
                ElementsAre("error message", "error message", "error tag string", "error tag string"));
    nyx_gpb_free(tag);
    nyx_gpb_free(message);
}

TEST_F(RequestErrorSet, ReplacesAMessageByNoneWhenItCannotBeCopied) {
    ASSERT_EQ(nyx_req_result_error_set(&result_, 1, 0, "t", "m"), 0);
    char *const tag = result_.error.error_tag;
    char *const message = result_.error.error_message.text;
    recorder().fail_allocation(2);
    EXPECT_EQ(nyx_req_result_error_set(&result_, 2, 0, "t2", "m2"), 0);
    EXPECT_EQ(text_of(result_), R"(status*=0 error*{type*=2 tag*="t2" severity*=0})");
    EXPECT_THAT(recorder().live_blocks(), ElementsAre("error message", "error tag string", "error tag string"));
    nyx_gpb_free(tag);
    nyx_gpb_free(message);
}

TEST_F(RequestErrorSet, LogsNothing) {
    log_everything();
    EXPECT_EQ(nyx_req_result_error_set(&result_, 1, 0, "t", "m"), 0);
    recorder().fail_allocation(1);
    EXPECT_EQ(nyx_req_result_error_set(&result_, 1, 0, "t", "m"), -1426938880);
    expect_no_line();
}

// Path

constexpr const char *path_text = R"(error*{path{name*=" " value*="/ns1:a" namespace*="urn:x" )"
                                  R"(attributes*[{key*="xmlns:ns1" value*="urn:x"}]}})";

TEST_F(RequestErrorPathSet, FillsOneNodeThatBindsItsPrefix) {
    EXPECT_EQ(nyx_req_result_error_path_set(&result_, "urn:x", "/ns1:a"), 0);
    EXPECT_EQ(text_of(result_), path_text);
    EXPECT_EQ(recorder().calls("umbra_named_calloc_"),
              calls_of(called("umbra_named_calloc_", 1, sizeof(quill_nyx_attribute), "Error-Path attrs")));
    const std::vector<nyx_test::allocation> &asked = recorder().allocations();
    ASSERT_THAT(asked, SizeIs(6));
    EXPECT_EQ(asked[0].size, 2U) << "the blank";
    EXPECT_EQ(asked[1].size, 7U) << "the path comes before the namespace";
    EXPECT_EQ(asked[2].size, 6U);
    EXPECT_EQ(asked[5].size, 6U);
}

TEST_F(RequestErrorPathSet, IsEncoded) {
    ASSERT_EQ(nyx_req_result_error_path_set(&result_, "urn:x", "/ns1:a"), 0);
    EXPECT_EQ(encoded(result_), std::string("\x8A\x02\x28"  // the result's error, 40 bytes
                                            "\x2A\x26"      // its path, 38 bytes
                                            "\x0A\x01 "
                                            "\x12\x06/ns1:a"
                                            "\x1A\x05urn:x"
                                            "\x32\x12"  // the attribute, 18 bytes
                                            "\x0A\x09xmlns:ns1"
                                            "\x12\x05urn:x"));
}

TEST_F(RequestErrorPathSet, TakesEmptyTexts) {
    EXPECT_EQ(nyx_req_result_error_path_set(&result_, "", ""), 0);
    EXPECT_EQ(text_of(result_), R"(error*{path{name*=" " value*="" namespace*="" )"
                                R"(attributes*[{key*="xmlns:ns1" value*=""}]}})");
}

TEST_F(RequestErrorPathSet, LeavesEverythingElseAlone) {
    ASSERT_EQ(nyx_req_result_error_set(&result_, 1, 0, "t", "m"), 0);
    result_.uint32_1 = 1;
    result_.error.error_path.children = nyx_gpb_datatree_create(&api_, 1);
    result_.error.error_path.children_count = 1;
    EXPECT_EQ(nyx_req_result_error_path_set(&result_, "n", "p"), 0);
    EXPECT_EQ(text_of(result_), R"(status*=1 error*{type*=1 tag*="t" severity*=0 path{name*=" " value*="p" )"
                                R"(namespace*="n" attributes*[{key*="xmlns:ns1" value*="n"}] children[{}]} )"
                                R"(message{text*="m"}})");
}

TEST_F(RequestErrorPathSet, HoldsNothingWhenAnyAllocationFails) {
    expect_failures(
        {
            {"Error-Path tag", -1426938880, ""},
            {"Error-Path data", -1426938880, ""},
            {"Error-Path data", -1426938880, ""},
            {"Error-Path attrs", -1426938880, ""},
            {"Error-Path attr key", -1426938880, ""},
            {"Error-Path attr value", -1426938880, ""},
        },
        [&] { return nyx_req_result_error_path_set(&result_, "urn:x", "/ns1:a"); });
}

TEST_F(RequestErrorPathSet, LeavesAFilledResultAsItWasWhenItFails) {
    ASSERT_EQ(nyx_req_result_error_path_set(&result_, "urn:x", "/ns1:a"), 0);
    const std::string before = bytes_of(result_);
    const std::vector<std::string> held = recorder().live_blocks();
    for (std::uint64_t n = 1; n <= 6; ++n) {
        recorder().fail_nothing();
        recorder().fail_allocation(n);
        EXPECT_EQ(nyx_req_result_error_path_set(&result_, "n", "p"), -1426938880);
        EXPECT_EQ(bytes_of(result_), before);
        EXPECT_EQ(recorder().live_blocks(), held);
    }
    EXPECT_EQ(text_of(result_), path_text);
}

TEST_F(RequestErrorPathSet, CountsNullTextsAsCopiesThatFailed) {
    EXPECT_EQ(nyx_req_result_error_path_set(&result_, nullptr, "p"), -1426938880);
    EXPECT_EQ(nyx_req_result_error_path_set(&result_, "n", nullptr), -1426938880);
    EXPECT_EQ(text_of(result_), "");
}

TEST_F(RequestErrorPathSet, DoesNotLookAtTheResultWithoutMemory) {
    nyx_util_set_mem_state(1);
    EXPECT_EQ(nyx_req_result_error_path_set(nullptr, "n", "p"), -1426938880);
    EXPECT_THAT(recorder().allocations(), IsEmpty());
}

TEST_F(RequestErrorPathSet, ReplacesWithoutReleasing) {
    ASSERT_EQ(nyx_req_result_error_path_set(&result_, "urn:x", "/ns1:a"), 0);
    quill_nyx_datatree replaced = result_.error.error_path;
    ASSERT_EQ(nyx_req_result_error_path_set(&result_, "n", "p"), 0);
    EXPECT_EQ(text_of(replaced), R"(name*=" " value*="/ns1:a" namespace*="urn:x" )"
                                 R"(attributes*[{key*="xmlns:ns1" value*="urn:x"}])");
    EXPECT_THAT(recorder().live_blocks(), SizeIs(12));
    quill_nyx_datatree_free_ext(&replaced, nyx_gpb_free, nullptr, 0);
}

TEST_F(RequestErrorPathSet, LogsNothing) {
    log_everything();
    EXPECT_EQ(nyx_req_result_error_path_set(&result_, "n", "p"), 0);
    recorder().fail_allocation(4);
    EXPECT_EQ(nyx_req_result_error_path_set(&result_, "n", "p"), -1426938880);
    expect_no_line();
}

// Info

TEST_F(RequestErrorInfoSet, RefusesANullResult) {
    quill_nyx_datatree *const entries = nyx_gpb_datatree_create(&api_, 1);
    EXPECT_EQ(nyx_req_result_error_info_set(nullptr, entries, 1), -1426939904);
    EXPECT_THAT(recorder().allocations(), SizeIs(1));
    nyx_gpb_free(entries);
}

TEST_F(RequestErrorInfoSet, TakesTheEntriesOver) {
    quill_nyx_datatree *const entries = nyx_gpb_datatree_create(&api_, 2);
    entries[1].name = block_of("second");
    recorder().forget();
    EXPECT_EQ(nyx_req_result_error_info_set(&result_, entries, 2), 0);
    EXPECT_EQ(text_of(result_), R"(error*{info{name*="error-info" children*[{}{name="second"}]}})");
    EXPECT_EQ(result_.error.error_info.children, entries);
    EXPECT_THAT(recorder().allocation_texts(), ElementsAre("str: error-info"));
}

TEST_F(RequestErrorInfoSet, TakesAsManyAsAreCounted) {
    constexpr std::uint32_t many = 0x10001;
    EXPECT_EQ(nyx_req_result_error_info_set(&result_, nyx_gpb_datatree_create(&api_, many), many), 0);
    EXPECT_EQ(result_.error.error_info.children_count, many);
}

TEST_F(RequestErrorInfoSet, NamesTheInfoWithoutEntries) {
    EXPECT_EQ(nyx_req_result_error_info_set(&result_, nullptr, 3), 0);
    EXPECT_EQ(text_of(result_), R"(error*{info{name*="error-info"}})");
    EXPECT_EQ(encoded(result_),
              "\x8A\x02\x0E\x3A\x0C\x0A\x0A"
              "error-info");
}

TEST_F(RequestErrorInfoSet, LeavesABlockOfNoEntriesToItsCaller) {
    quill_nyx_datatree *const entries = nyx_gpb_datatree_create(&api_, 1);
    EXPECT_EQ(nyx_req_result_error_info_set(&result_, entries, 0), 0);
    EXPECT_EQ(text_of(result_), R"(error*{info{name*="error-info"}})");
    nyx_gpb_free(entries);
}

TEST_F(RequestErrorInfoSet, LeavesEarlierEntriesAloneWithoutNewOnes) {
    quill_nyx_datatree *const entries = nyx_gpb_datatree_create(&api_, 1);
    ASSERT_EQ(nyx_req_result_error_info_set(&result_, entries, 1), 0);
    char *const first_name = result_.error.error_info.name;
    EXPECT_EQ(nyx_req_result_error_info_set(&result_, nullptr, 1), 0);
    char *const second_name = result_.error.error_info.name;
    EXPECT_EQ(nyx_req_result_error_info_set(&result_, entries, 0), 0);
    EXPECT_EQ(result_.error.error_info.children, entries);
    EXPECT_EQ(text_of(result_), R"(error*{info{name*="error-info" children*[{}]}})");
    EXPECT_THAT(recorder().live_blocks(), ElementsAre("GPB datatree (nyx_req_datatree_create)", "str: error-info",
                                                      "str: error-info", "str: error-info"))
        << "a name is replaced without being released";
    nyx_gpb_free(first_name);
    nyx_gpb_free(second_name);
}

TEST_F(RequestErrorInfoSet, ReplacesEntriesWithoutReleasing) {
    quill_nyx_datatree *const first = nyx_gpb_datatree_create(&api_, 1);
    quill_nyx_datatree *const second = nyx_gpb_datatree_create(&api_, 2);
    ASSERT_EQ(nyx_req_result_error_info_set(&result_, first, 1), 0);
    char *const first_name = result_.error.error_info.name;
    EXPECT_EQ(nyx_req_result_error_info_set(&result_, second, 2), 0);
    EXPECT_EQ(text_of(result_), R"(error*{info{name*="error-info" children*[{}{}]}})");
    EXPECT_THAT(recorder().live_blocks(), SizeIs(4));
    nyx_gpb_free(first_name);
    nyx_gpb_free(first);
}

TEST_F(RequestErrorInfoSet, LeavesEntriesToTheirCallerWhenItFails) {
    ASSERT_EQ(nyx_req_result_error_set(&result_, 1, 0, "t", "m"), 0);
    quill_nyx_datatree *const entries = nyx_gpb_datatree_create(&api_, 1);
    const std::string before = bytes_of(result_);
    recorder().fail_allocation(1);
    EXPECT_EQ(nyx_req_result_error_info_set(&result_, entries, 1), -1426938880);
    nyx_util_set_mem_state(1);
    EXPECT_EQ(nyx_req_result_error_info_set(&result_, entries, 1), -1426938880);
    EXPECT_EQ(bytes_of(result_), before);
    nyx_gpb_free(entries);
}

TEST_F(RequestErrorInfoSet, MarksNothingWhenItFails) {
    expect_failures({{"str: error-info", -1426938880, ""}},
                    [&] { return nyx_req_result_error_info_set(&result_, nullptr, 0); });
}

TEST_F(RequestErrorInfoSet, LeavesStatusAndErrorAlone) {
    ASSERT_EQ(nyx_req_result_error_set(&result_, 1, 0, "t", "m"), 0);
    result_.uint32_1 = 1;
    EXPECT_EQ(nyx_req_result_error_info_set(&result_, nullptr, 0), 0);
    EXPECT_EQ(text_of(result_), R"(status*=1 error*{type*=1 tag*="t" severity*=0 message{text*="m"} )"
                                R"(info{name*="error-info"}})");
}

TEST_F(RequestErrorInfoSet, LogsNothing) {
    log_everything();
    EXPECT_EQ(nyx_req_result_error_info_set(&result_, nullptr, 0), 0);
    recorder().fail_allocation(1);
    EXPECT_EQ(nyx_req_result_error_info_set(&result_, nullptr, 0), -1426938880);
    expect_no_line();
}

// Element errors

rcode custom_error_set(nyx_request_ctx *req_ctx, nyx_session_ctx *session, quill_nyx_request_result *result,
                       const char *element) {
    return nyx_req_result_custom_error_set(req_ctx, session, result, element, "One of a kind.");
}

struct element_setter {
    std::string name;      // of the test
    std::string function;  // that is tested
    rcode (*set)(nyx_request_ctx *, nyx_session_ctx *, quill_nyx_request_result *, const char *);
    std::string logged;  // the message in the log
    int type;
    std::string tag;
    std::string message;

    // The error up to its info.
    [[nodiscard]] std::string error() const { return with_message(R"( message{text*=")" + message + R"("})"); }
    [[nodiscard]] std::string with_message(const std::string &written) const {
        return "status*=0 error*{type*=" + std::to_string(type) + R"( tag*=")" + tag + R"(" severity*=0)" + written;
    }
    [[nodiscard]] static std::string info(const std::string &element) {
        return R"( info{name*="error-info" children*[{name*="bad-element" value*=")" + element + R"("}]}})";
    }
};

const element_setter element_setters[] = {
    {"Missing", "nyx_req_result_missing_element_set", nyx_req_result_missing_element_set,
     "An expected element is missing.", 2, "missing-element", "An expected element is missing."},
    {"Unknown", "nyx_req_result_unknown_element_set", nyx_req_result_unknown_element_set,
     "Unknown element is specified.", 2, "unknown-element", "Unknown element is specified."},
    {"Bad", "nyx_req_result_bad_element_set", nyx_req_result_bad_element_set, "The specified element has bad value.", 2,
     "bad-element", "The specified element has bad value."},
    {"Custom", "nyx_req_result_custom_error_set", custom_error_set, "The specified element has bad value.", 3,
     "bad-element", "One of a kind."},
};

class ElementError : public nyx_test::result_test, public testing::WithParamInterface<element_setter> {
  protected:
    [[nodiscard]] rcode set(const char *element) { return GetParam().set(&req_ctx_, &session_, &result_, element); }

    [[nodiscard]] site element_line(const std::string &element, const nyx_session_ctx *session) const {
        const element_setter &setter = GetParam();
        return line("ERR", setter.function, setter.logged + ": %s", setter.logged + ": " + element, session);
    }
};
using ElementErrorDeathTest = ElementError;

const auto setter_name = [](const testing::TestParamInfo<element_setter> &tested) { return tested.param.name; };
INSTANTIATE_TEST_SUITE_P(Setters, ElementError, testing::ValuesIn(element_setters), setter_name);
INSTANTIATE_TEST_SUITE_P(Setters, ElementErrorDeathTest, testing::ValuesIn(element_setters), setter_name);

TEST_P(ElementError, NamesTheElement) {
    EXPECT_EQ(set("mtu"), 0);
    EXPECT_EQ(text_of(result_), GetParam().error() + element_setter::info("mtu"));
}

TEST_P(ElementError, NamesAnElementWithoutAName) {
    EXPECT_EQ(set(""), 0);
    EXPECT_EQ(text_of(result_), GetParam().error() + element_setter::info(""));
}

TEST_P(ElementError, IsDecodedAsItWasEncoded) {
    ASSERT_EQ(set("mtu"), 0);
    const std::string bytes = encoded(result_);
    quill_nyx_request_result received{};
    ASSERT_EQ(quill_nyx_request_result_decode_ext(&received, reinterpret_cast<const std::uint8_t *>(bytes.data()),
                                                  bytes.size(), nyx_gpb_alloc, nullptr, 0),
              0);
    // The decoder marks what it finds.
    EXPECT_TRUE(received.error.has_error_message);
    EXPECT_TRUE(received.error.has_error_info);
    EXPECT_FALSE(received.error.has_error_path);
    received.error.has_error_message = 0;
    received.error.has_error_info = 0;
    EXPECT_EQ(text_of(received), GetParam().error() + element_setter::info("mtu"));
    release(received);
}

TEST_P(ElementError, LogsBothForms) {
    log_everything();
    const std::uint32_t index = next_trace_index();
    EXPECT_EQ(set("mtu"), 0);
    expect_line(element_line("mtu", &session_), index);
}

TEST_P(ElementError, LogsWithoutASession) {
    log_everything();
    request_.type = 0xFFFFFFFF;
    const std::uint32_t index = next_trace_index();
    EXPECT_EQ(GetParam().set(&req_ctx_, nullptr, &result_, ""), 0);
    expect_line(element_line("", nullptr), index);
}

TEST_P(ElementError, LogsBeforeItTouchesTheResult) {
    log_everything();
    result_.uint32_1 = 1;
    const auto untouched = [&] { EXPECT_EQ(text_of(result_), "status=1"); };
    recorder().when_called("_umbra_dt_log_filter_adv", untouched);
    recorder().when_called("_skein_str", untouched);
    EXPECT_EQ(set("mtu"), 0);
    EXPECT_THAT(recorder().trace_lines(), SizeIs(1));
    EXPECT_EQ(recorder().functions()[0], "_umbra_dt_log_filter_adv");
    EXPECT_EQ(recorder().functions()[1], "_skein_str");
}

TEST_P(ElementError, IsLoggedAtErrorOfItsOperation) {
    expect_gated(QUILL_NYX_LOGGING_LEVEL_ERROR, [&] { EXPECT_EQ(set("mtu"), 0); });
}

TEST_P(ElementError, IsSilentWhenNobodyListens) {
    expect_silence([&] { EXPECT_EQ(set("mtu"), 0); });
}

TEST_P(ElementError, IsLoggedButNotWrittenWithoutAResult) {
    log_everything();
    const std::uint32_t index = next_trace_index();
    EXPECT_EQ(GetParam().set(&req_ctx_, &session_, nullptr, "mtu"), -1426939904);
    expect_line(element_line("mtu", &session_), index);
    EXPECT_THAT(recorder().allocations(), IsEmpty());
}

TEST_P(ElementError, SurvivesTheFailureOfEveryAllocation) {
    const std::string tagged = GetParam().with_message("");
    const std::string without_info = GetParam().error() + "}";
    expect_failures(
        {
            {"error tag string", -1426938880,
             "status*=0 error*{type*=" + std::to_string(GetParam().type) + " severity*=0}"},
            {"error message", 0, tagged + element_setter::info("mtu")},
            {"GPB datatree (nyx_req_datatree_create)", -1426938880, without_info},
            {"str: bad element", -1426938880, without_info},
            {"element name string", -1426938880, without_info},
            {"str: error-info", -1426938880, without_info},
        },
        [&] { return set("mtu"); });
}

TEST_P(ElementError, TellsOfEntriesThatCannotBeAllocated) {
    log_everything();
    recorder().fail_allocation(3);
    EXPECT_EQ(set("mtu"), -1426938880);
    EXPECT_THAT(recorder().log_texts(),
                ElementsAre("ERR: NYX: " + element_line("mtu", &session_).body,
                            "ERR: NYX: ctx=" + nyx_test::text_of_pointer(&api_) + ",NYX datatree allocation failed"));
    EXPECT_THAT(recorder().trace_lines(), SizeIs(2));
}

TEST_P(ElementError, HasNoInfoWithoutAnElement) {
    log_everything();
    const std::uint32_t index = next_trace_index();
    EXPECT_EQ(set(nullptr), -1426938880);
    EXPECT_EQ(text_of(result_), GetParam().error() + "}");
    expect_line(element_line("(null)", &session_), index);
}

// The number of the operation counts, whether it is marked or not.
TEST_P(ElementError, CountsAnOperationThatIsNotMarked) {
    request_.has_type = 0;
    log_everything();
    const std::uint32_t index = next_trace_index();
    EXPECT_EQ(set("mtu"), 0);
    expect_line(element_line("mtu", &session_), index);
    release(result_);
    result_ = {};
    expect_gated(QUILL_NYX_LOGGING_LEVEL_ERROR, [&] { EXPECT_EQ(set("mtu"), 0); });
}

TEST_P(ElementError, CopiesNothingWhileMemoryIsShort) {
    nyx_util_set_mem_state(1);
    EXPECT_EQ(set("mtu"), -1426938880);
    EXPECT_EQ(text_of(result_), "status*=0 error*{type*=" + std::to_string(GetParam().type) + " severity*=0}");
    EXPECT_THAT(recorder().allocations(), IsEmpty());
}

TEST_P(ElementErrorDeathTest, AssertsTheContext) {
    const std::string message = GetParam().name == "Custom" ? R"(, const char ?\*)" : "";
    const std::string prototype = "rcode " + GetParam().function +
                                  R"(\(nyx_request_ctx ?\*, nyx_session_ctx ?\*, quill_nyx_request_result ?\*, )"
                                  R"(const char ?\*)" +
                                  message + R"(\))";
    req_ctx_.nyx_ctx = nullptr;
    EXPECT_DEATH(static_cast<void>(set("mtu")),
                 nyx_test::assertion_regex("nyx_error\\.cpp", prototype, nyx_test::null_regex("req_ctx->nyx_ctx")));
}

using ElementErrors = nyx_test::result_test;

TEST_F(ElementErrors, AreEncoded) {
    ASSERT_EQ(nyx_req_result_missing_element_set(&req_ctx_, nullptr, &result_, "mtu"), 0);
    EXPECT_EQ(encoded(result_), std::string("\x08\x00"      // failed
                                            "\x8A\x02\x5A"  // the error, 90 bytes
                                            "\x08\x02"
                                            "\x12\x0Fmissing-element"
                                            "\x18\x00"
                                            "\x32\x21\x12\x1F"
                                            "An expected element is missing."
                                            "\x3A\x20"  // its info, 32 bytes
                                            "\x0A\x0A"
                                            "error-info"
                                            "\x3A\x12"  // the entry, 18 bytes
                                            "\x0A\x0B"
                                            "bad-element"
                                            "\x12\x03mtu",
                                            95));
}

TEST_F(ElementErrors, HaveAFilterWordEach) {
    log_everything();
    std::set<const std::uint32_t *> filters;
    for (const element_setter &setter : element_setters) {
        recorder().forget();
        EXPECT_EQ(setter.set(&req_ctx_, nullptr, &result_, "e"), 0);
        ASSERT_THAT(recorder().log_lines(), SizeIs(1));
        filters.insert(recorder().log_lines()[0].filter);
        release(result_);
    }
    EXPECT_THAT(filters, SizeIs(4));
}

TEST_F(ElementErrors, HaveNoMessageWhenTheCallerHasNone) {
    EXPECT_EQ(nyx_req_result_custom_error_set(&req_ctx_, nullptr, &result_, "e", nullptr), 0);
    EXPECT_EQ(text_of(result_),
              R"(status*=0 error*{type*=3 tag*="bad-element" severity*=0)" + element_setter::info("e"));
}

// Out of memory

TEST_F(NomemErrorSet, DoesNothingWithoutAResult) {
    nyx_nomem_error_set(nullptr);
    EXPECT_THAT(recorder().calls(), IsEmpty());
}

TEST_F(NomemErrorSet, SetsTheStatusOfAResultWithoutAnError) {
    result_.uint32_1 = 1;
    nyx_nomem_error_set(&result_);
    EXPECT_EQ(text_of(result_), "status*=0");
    EXPECT_EQ(encoded(result_), std::string("\x08\x00", 2));
    EXPECT_THAT(recorder().calls(), IsEmpty());
}

TEST_F(NomemErrorSet, ReleasesAWholeError) {
    ASSERT_EQ(nyx_req_result_missing_element_set(&req_ctx_, nullptr, &result_, "mtu"), 0);
    ASSERT_EQ(nyx_req_result_error_path_set(&result_, "urn:x", "/ns1:a"), 0);
    result_.error.error_app_tag = block_of("app");
    result_.error.has_error_app_tag = 1;
    const quill_nyx_error before = result_.error;
    log_everything();
    recorder().forget();
    recorder().fail_allocations_from(1);
    nyx_nomem_error_set(&result_);
    EXPECT_EQ(text_of(result_), "status*=0");
    EXPECT_EQ(bytes_of(result_.error), std::string(sizeof result_.error, '\0'));
    EXPECT_THAT(recorder().live_blocks(), IsEmpty());
    EXPECT_THAT(recorder().calls(), SizeIs(13)) << "it gives blocks back, and does nothing else";
    ASSERT_THAT(recorder().calls("umbra_named_free"), SizeIs(13));
    EXPECT_EQ(recorder().calls()[0], called("umbra_named_free", static_cast<const void *>(before.error_tag)));
    EXPECT_EQ(recorder().calls()[1], called("umbra_named_free", static_cast<const void *>(before.error_app_tag)));
    recorder().fail_nothing();
}

TEST_F(NomemErrorSet, DoesNothingMoreTheSecondTime) {
    ASSERT_EQ(nyx_req_result_error_set(&result_, 1, 0, "t", "m"), 0);
    nyx_nomem_error_set(&result_);
    recorder().forget();
    nyx_nomem_error_set(&result_);
    EXPECT_EQ(text_of(result_), "status*=0");
    EXPECT_THAT(recorder().calls(), IsEmpty());
}

TEST_F(NomemErrorSet, LeavesTheRestOfTheResultAlone) {
    ASSERT_EQ(nyx_req_result_error_set(&result_, 1, 0, "t", "m"), 0);
    result_.uint32_2 = 5;
    result_.has_uint32_2 = 1;
    result_.string_3 = block_of("three");
    result_.has_string_3 = 1;
    nyx_nomem_error_set(&result_);
    EXPECT_EQ(text_of(result_), R"(status*=0 uint32_2*=5 string_3*="three")");
}

TEST_F(NomemErrorSet, TakesAMarkWithoutAnErrorAway) {
    result_.has_error = 1;
    nyx_nomem_error_set(&result_);
    EXPECT_EQ(text_of(result_), "status*=0");
}

// Under the result's mark everything is released, marked or not.
TEST_F(NomemErrorSet, ReleasesWhatIsNotMarkedInAMarkedError) {
    result_.has_error = 1;
    result_.error.error_type = 3;
    result_.error.error_tag = block_of("t");
    result_.error.error_info.value = block_of("v");
    nyx_nomem_error_set(&result_);
    EXPECT_EQ(text_of(result_), "status*=0");
    EXPECT_THAT(recorder().live_blocks(), IsEmpty());
}

TEST_F(NomemErrorSet, FindsEveryTraceOfAnError) {
    struct trace {
        const char *of;
        std::function<void(quill_nyx_error &)> leave;
    };
    const trace traces[] = {
        {"type", [](quill_nyx_error &error) { error.has_error_type = 1; }},
        {"tag", [](quill_nyx_error &error) { error.has_error_tag = 1; }},
        {"severity", [](quill_nyx_error &error) { error.has_error_severity = 1; }},
        {"application tag", [](quill_nyx_error &error) { error.has_error_app_tag = 1; }},
        {"path", [](quill_nyx_error &error) { error.has_error_path = 1; }},
        {"message", [](quill_nyx_error &error) { error.has_error_message = 1; }},
        {"info", [](quill_nyx_error &error) { error.has_error_info = 1; }},
        {"path's content",
         [](quill_nyx_error &error) {
             error.error_path.name = block_of("");
             error.error_path.has_name = 1;
         }},
        {"path's inner content", [](quill_nyx_error &error) { error.error_path.edit_ins.has_insert = 1; }},
        {"message's content",
         [](quill_nyx_error &error) {
             error.error_message.text = block_of("m");
             error.error_message.has_text = 1;
         }},
        {"info's content", [](quill_nyx_error &error) { error.error_info.has_node_kind = 1; }},
    };
    for (const trace &each : traces) {
        SCOPED_TRACE(each.of);
        quill_nyx_request_result result{};
        result.error.error_message.string_1 = block_of("what goes with the rest");
        each.leave(result.error);
        nyx_nomem_error_set(&result);
        EXPECT_EQ(text_of(result), "status*=0");
        EXPECT_EQ(bytes_of(result.error), std::string(sizeof result.error, '\0'));
        EXPECT_THAT(recorder().live_blocks(), IsEmpty());
    }
}

// Whoever filled it by hand may have forgotten the marks: the memory is wanted all the same.
TEST_F(NomemErrorSet, ReleasesAnErrorWithoutAnyMark) {
    result_.error.error_type = 3;
    result_.error.error_tag = block_of("t");
    result_.error.error_info.name = block_of("n");
    nyx_nomem_error_set(&result_);
    EXPECT_EQ(text_of(result_), "status*=0");
    EXPECT_THAT(recorder().live_blocks(), IsEmpty());
}

// As xpath_to_nyx_error leaves it while memory is short.
TEST_F(NomemErrorSet, TakesTheMarkOfANullTextAway) {
    result_.error.error_path.has_value = 1;
    nyx_nomem_error_set(&result_);
    EXPECT_EQ(text_of(result_), "status*=0");
}

}  // namespace
