// The bounded string operations: what each check says and returns, their order, and what reaches the platform.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include "../safestr/fenced_memory.h"
#include "../safestr/violation_recorder.h"
#include "frame_fixture.h"
#include "nyx_api.h"
#include "nyx_api_common.h"

namespace {

using namespace std::string_literals;

using nyx_test::assertion_regex;
using nyx_test::call;
using nyx_test::called;
using nyx_test::calls_of;
using nyx_test::expect_logged;
using nyx_test::expect_traced;
using nyx_test::next_trace_index;
using nyx_test::null_regex;
using nyx_test::recorder;
using nyx_test::site;
using nyx_test::text_of_pointer;
using nyx_test::trace_flag;
using nyx_test::trace_handle;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr rsize_t max_length = (rsize_t{1} << 63) - 1;
constexpr rsize_t above = rsize_t{1} << 63;
constexpr rsize_t all_ones = ~rsize_t{0};

// What a function is called with; those without an slen or an indicator leave it out.
struct arguments {
    char *dest;
    rsize_t dmax;
    const char *src;
    rsize_t slen;
    int *indicator;
};

// A function, and the rows of the table that it is described by.
struct member {
    std::string name;
    std::string platform_name;
    errno_t (*run)(const char *caller, const arguments &given);
    call (*passed_on)(const arguments &given);
    std::string null_message;
    std::string zero_message;
    bool has_slen = false;
    bool slen_is_checked = false;
    bool has_indicator = false;
    bool checks_space = true;

    friend void PrintTo(const member &printed, std::ostream *out) { *out << printed.name; }
};

const std::string src_dest_message = "%s: src/dest is null. ";
const std::string dmax_message = "%s: dmax is 0. ";
const std::string above_message = "%s: dmax exceeds max. ";
const std::string space_message = "%s: not enough space for src. ";

const std::vector<member> &members() {
    static const std::vector<member> all = {
        {.name = "nyx_strcpy_s",
         .platform_name = "strcpy_s",
         .run = [](const char *caller, const arguments &a) { return nyx_strcpy_s(caller, a.dest, a.dmax, a.src); },
         .passed_on = [](const arguments &a) { return called("strcpy_s", a.dest, a.dmax, a.src); },
         .null_message = "%s: src/dest is null",
         .zero_message = dmax_message},
        {.name = "nyx_strncpy_s",
         .platform_name = "strncpy_s",
         .run = [](const char *caller,
                   const arguments &a) { return nyx_strncpy_s(caller, a.dest, a.dmax, a.src, a.slen); },
         .passed_on = [](const arguments &a) { return called("strncpy_s", a.dest, a.dmax, a.src, a.slen); },
         .null_message = src_dest_message,
         .zero_message = "%s: dmax/slen is 0. ",
         .has_slen = true,
         .slen_is_checked = true},
        {.name = "nyx_strcat_s",
         .platform_name = "strcat_s",
         .run = [](const char *caller, const arguments &a) { return nyx_strcat_s(caller, a.dest, a.dmax, a.src); },
         .passed_on = [](const arguments &a) { return called("strcat_s", a.dest, a.dmax, a.src); },
         .null_message = src_dest_message,
         .zero_message = dmax_message},
        {.name = "nyx_strncat_s",
         .platform_name = "strncat_s",
         .run = [](const char *caller,
                   const arguments &a) { return nyx_strncat_s(caller, a.dest, a.dmax, a.src, a.slen); },
         .passed_on = [](const arguments &a) { return called("strncat_s", a.dest, a.dmax, a.src, a.slen); },
         .null_message = src_dest_message,
         .zero_message = dmax_message,
         .has_slen = true},
        {.name = "nyx_strcmp_s",
         .platform_name = "strcmp_s",
         .run = [](const char *caller,
                   const arguments &a) { return nyx_strcmp_s(caller, a.dest, a.dmax, a.src, a.indicator); },
         .passed_on = [](const arguments &a) { return called("strcmp_s", a.dest, a.dmax, a.src, a.indicator); },
         .null_message = "%s: src/dest/indicator is null. ",
         .zero_message = dmax_message,
         .has_indicator = true,
         .checks_space = false},
    };
    return all;
}

std::vector<member> members_that_check_space() {
    std::vector<member> some;
    std::copy_if(members().begin(), members().end(), std::back_inserter(some),
                 [](const member &each) { return each.checks_space; });
    return some;
}

// The check that decides, told from the description step by step.
struct verdict {
    errno_t code;
    std::string message;
};

verdict judge(const member &judged, const arguments &given) {
    if (given.dest == nullptr || given.src == nullptr || (judged.has_indicator && given.indicator == nullptr)) {
        return {400, judged.null_message};
    }
    if (given.dmax == 0 || (judged.slen_is_checked && given.slen == 0)) {
        return {401, judged.zero_message};
    }
    if (given.dmax >= above || (judged.slen_is_checked && given.slen >= above)) {
        return {403, above_message};
    }
    const bool some_of_it = judged.slen_is_checked && given.slen < given.dmax;
    if (judged.checks_space && !some_of_it && std::string(given.src).size() >= given.dmax) {
        return {406, space_message};
    }
    return {0, ""};
}

class BoundedStringTest : public nyx_test::frame_test {
  protected:
    void SetUp() override {
        frame_test::SetUp();
        init_root(QUILL_NYX_LOGGING_LEVEL_TRACE);
        nyx_log_set_ctx(&api_);
        fill_dest("old");
        recorder().forget();
    }
    void TearDown() override {
        nyx_log_set_ctx(nullptr);
        frame_test::TearDown();
    }

    void fill_dest(const std::string &text) {
        std::fill(std::begin(dest_), std::end(dest_), '~');
        std::copy_n(text.c_str(), text.size() + 1, std::begin(dest_));
    }
    [[nodiscard]] std::string dest() const { return {std::begin(dest_), std::end(dest_)}; }

    // Everything in order, for a dest of 8 characters.
    arguments given(const char *src = "new") { return {std::begin(dest_), 8, src, 8, &indicator_}; }

    // Every way in which a function's checks can fail, in their order.
    std::vector<arguments> refusals(const member &of) {
        std::vector<arguments> all(of.checks_space ? 4 : 3, given());
        all[0].src = nullptr;
        all[1].dmax = 0;
        all[2].dmax = above;
        if (of.checks_space) {
            all[3].src = "8 chars.";
        }
        return all;
    }

    // The calls but those of the log.
    static std::vector<call> calls_but_logs() {
        std::vector<call> calls;
        for (const call &each : recorder().calls()) {
            if (each.function != "_umbra_dt_log_filter_adv" && each.function != "_skein_str") {
                calls.push_back(each);
            }
        }
        return calls;
    }

    violation_recorder violations_;
    char dest_[32] = {};
    int indicator_ = 77;
};

class LoggedString : public BoundedStringTest, public testing::WithParamInterface<member> {
  protected:
    static bool calls_the_library() { return !recorder().calls(GetParam().platform_name).empty(); }

    void TearDown() override {
        static_cast<void>(violation_recorder::take());
        BoundedStringTest::TearDown();
    }

    errno_t run(const arguments &with) {
        recorder().forget();
        index_ = next_trace_index();
        return GetParam().run(caller, with);
    }

    [[nodiscard]] site line(const std::string &message) const {
        return {"TRC", GetParam().name, "ctx=%p," + message,
                "ctx=" + text_of_pointer(&api_) + "," + caller + message.substr(2)};
    }

    void expect_shown(const std::string &message, const char *by) {
        ASSERT_THAT(recorder().log_texts(), SizeIs(1));
        EXPECT_EQ(recorder().log_texts()[0], "TRC: NYX: ctx=" + text_of_pointer(&api_) + "," + by + message.substr(2));
    }

    // Refused by a check: its line in both forms, its code, and nothing else.
    void expect_refused(const arguments &with, errno_t code, const std::string &message) {
        const std::string before = dest();
        indicator_ = 77;
        EXPECT_EQ(run(with), code);
        ASSERT_THAT(recorder().log_lines(), SizeIs(1));
        ASSERT_THAT(recorder().trace_lines(), SizeIs(1));
        expect_logged(recorder().log_lines()[0], line(message), trace_flag);
        expect_traced(recorder().trace_lines()[0], line(message), index_, trace_handle(1));
        EXPECT_FALSE(calls_the_library());
        EXPECT_THAT(violation_recorder::take(), IsEmpty());
        EXPECT_EQ(dest(), before);
        EXPECT_EQ(indicator_, 77);
    }

    // Let through: the library gets what was given, nothing is logged. It need not succeed.
    void expect_passed_on(const arguments &with, errno_t result) {
        EXPECT_EQ(run(with), result);
        EXPECT_EQ(recorder().calls(GetParam().platform_name), calls_of(GetParam().passed_on(with)));
        EXPECT_THAT(recorder().log_lines(), IsEmpty());
        EXPECT_THAT(recorder().trace_lines(), IsEmpty());
    }

    std::vector<arguments> refusals() { return BoundedStringTest::refusals(GetParam()); }

    static constexpr const char *caller = "agent_read_name";
    std::uint32_t index_ = 0;
};

TEST_P(LoggedString, RefusesNullPointers) {
    std::vector<arguments> calls(3, given());
    calls[0].dest = nullptr;
    calls[1].src = nullptr;
    calls[2].dest = nullptr;
    calls[2].src = nullptr;
    if (GetParam().has_indicator) {
        calls.push_back(given());
        calls.back().indicator = nullptr;
    }
    for (const arguments &with : calls) {
        expect_refused(with, 400, GetParam().null_message);
        EXPECT_THAT(calls_but_logs(), IsEmpty());
    }
}

TEST_P(LoggedString, ShowsThatACallerHasNoName) {
    recorder().forget();
    EXPECT_EQ(GetParam().run(nullptr, refusals()[0]), 400);
    expect_shown(GetParam().null_message, "(null)");
}

TEST_P(LoggedString, RefusesLengthsOfZero) {
    arguments with = given();
    with.dmax = 0;
    expect_refused(with, 401, GetParam().zero_message);
    EXPECT_THAT(calls_but_logs(), IsEmpty());
    if (GetParam().slen_is_checked) {
        with = given();
        with.slen = 0;
        expect_refused(with, 401, GetParam().zero_message);
        EXPECT_THAT(calls_but_logs(), IsEmpty());
    }
}

TEST_P(LoggedString, RefusesLengthsAboveTheMaximum) {
    for (const rsize_t length : {above, above + 1, all_ones}) {
        arguments with = given();
        with.dmax = length;
        expect_refused(with, 403, "%s: dmax exceeds max. ");
        EXPECT_THAT(calls_but_logs(), IsEmpty());
        if (GetParam().slen_is_checked) {
            with = given();
            with.slen = length;
            expect_refused(with, 403, "%s: dmax exceeds max. ");
            EXPECT_THAT(calls_but_logs(), IsEmpty());
        }
    }
}

TEST_P(LoggedString, PassesTheLargestLengthsOn) {
    fill_dest("new");
    arguments with = given();
    with.dmax = max_length;
    with.slen = max_length;
    expect_passed_on(with, 0);
}

TEST_P(LoggedString, RefusesASourceOfAsManyCharactersAsThereIsRoom) {
    fill_dest("");
    expect_passed_on(given("7 chars"), 0);
    const arguments with = given("8 chars.");
    if (GetParam().checks_space) {
        expect_refused(with, 406, "%s: not enough space for src. ");
        EXPECT_EQ(calls_but_logs(), calls_of(called("strnlen_s", with.src, 8)));
    } else {
        expect_passed_on(with, 0);
    }
}

using LoggedStringWithSpace = LoggedString;

TEST_P(LoggedStringWithSpace, ReadsNoMoreOfTheSourceThanThereIsRoom) {
    fenced_memory memory;
    expect_refused(given(memory.lay("unending")), 406, "%s: not enough space for src. ");
}

// Whatever is given, the first check that fails decides, and what none refuses is passed on.
TEST_P(LoggedString, ChecksInOrder) {
    const std::array<const char *, 4> sources = {nullptr, "", "7 chars", "8 chars."};
    for (char *const to : {static_cast<char *>(nullptr), std::begin(dest_)}) {
        for (const rsize_t dmax : {rsize_t{0}, rsize_t{1}, rsize_t{8}, above}) {
            for (const char *const src : sources) {
                for (const rsize_t slen : {rsize_t{0}, rsize_t{7}, rsize_t{8}, above}) {
                    for (int *const indicator : {static_cast<int *>(nullptr), &indicator_}) {
                        const arguments with = {to, dmax, src, slen, indicator};
                        const verdict expected = judge(GetParam(), with);
                        SCOPED_TRACE(testing::PrintToString(GetParam().passed_on(with)));
                        fill_dest("");
                        if (expected.code != 0) {
                            expect_refused(with, expected.code, expected.message);
                            continue;
                        }
                        recorder().fail(GetParam().platform_name, 1, 4711);
                        expect_passed_on(with, 4711);
                        recorder().fail_nothing();
                    }
                }
            }
        }
    }
}

TEST_P(LoggedString, DoesNotLogWhatTheLibraryRefuses) {
    recorder().fail(GetParam().platform_name, 1, 406);
    expect_passed_on(given(), 406);
    EXPECT_EQ(dest().substr(0, 4), "old\0"s);
}

TEST_P(LoggedString, IsSilentWhenNobodyListens) {
    root().level = QUILL_NYX_LOGGING_LEVEL_DEBUG;
    root().trace_enabled = 0;
    for (const arguments &with : refusals()) {
        EXPECT_EQ(run(with), judge(GetParam(), with).code);
        EXPECT_THAT(recorder().log_lines(), IsEmpty());
        EXPECT_THAT(recorder().trace_lines(), IsEmpty());
        EXPECT_EQ(ret_nc_nyx_trace_index_incr(), index_);
    }
}

TEST_P(LoggedString, WritesEachFormAlone) {
    for (const arguments &with : refusals()) {
        root().level = QUILL_NYX_LOGGING_LEVEL_DEBUG;
        root().trace_enabled = 1;
        EXPECT_EQ(run(with), judge(GetParam(), with).code);
        EXPECT_THAT(recorder().log_lines(), IsEmpty());
        ASSERT_THAT(recorder().trace_lines(), SizeIs(1));
        expect_traced(recorder().trace_lines()[0], line(judge(GetParam(), with).message), index_, trace_handle(1));
        root().level = QUILL_NYX_LOGGING_LEVEL_TRACE;
        root().trace_enabled = 0;
        EXPECT_EQ(run(with), judge(GetParam(), with).code);
        ASSERT_THAT(recorder().log_lines(), SizeIs(1));
        expect_logged(recorder().log_lines()[0], line(judge(GetParam(), with).message), trace_flag);
        EXPECT_THAT(recorder().trace_lines(), IsEmpty());
    }
}

TEST_P(LoggedString, CallersNameIsNoFormat) {
    for (const arguments &with : refusals()) {
        recorder().forget();
        EXPECT_EQ(GetParam().run("100%s%n", with), judge(GetParam(), with).code);
        EXPECT_THAT(recorder().log_texts(), ElementsAre("TRC: NYX: ctx=" + text_of_pointer(&api_) + ",100%s%n" +
                                                        judge(GetParam(), with).message.substr(2)));
        ASSERT_THAT(recorder().trace_texts(), ElementsAre(testing::HasSubstr(",100%s%n: ")));
    }
}

TEST_P(LoggedString, LogsThroughTheContextThatIsSet) {
    nyx_api_ctx other{};
    ASSERT_EQ(nyx_debug_init(&other.debug, "processor", NYX_COMPONENT_NYX, nullptr), 0);
    other.debug.level = QUILL_NYX_LOGGING_LEVEL_TRACE;
    nyx_log_set_ctx(&other);
    for (const arguments &with : refusals()) {
        run(with);
        ASSERT_THAT(recorder().log_lines(), SizeIs(1));
        ASSERT_THAT(recorder().trace_lines(), SizeIs(1));
        EXPECT_EQ(nyx_test::printed_context(recorder().log_texts()[0]), &other);
        EXPECT_EQ(nyx_test::printed_context(recorder().trace_texts()[0]), &other);
        EXPECT_EQ(recorder().log_lines()[0].flag, other.debug.trace_flag);
        EXPECT_EQ(recorder().trace_lines()[0].handle, other.debug.trace_handle);
    }
}

TEST_P(LoggedString, NeedsNoLogContextWhileNothingIsRefused) {
    nyx_log_set_ctx(nullptr);
    expect_passed_on(given(), 0);
    nyx_log_set_ctx(reinterpret_cast<nyx_api_ctx *>(8));  // where there is none
    fill_dest("");
    expect_passed_on(given(), 0);
}

using LoggedStringDeathTest = LoggedString;

TEST_P(LoggedStringDeathTest, AssertsTheLogContextAtEachSite) {
    nyx_log_set_ctx(nullptr);
    const std::string assertion =
        assertion_regex("nyx_api_common/bounded_string\\.cpp",
                        "errno_t " + GetParam().name + R"(\(const char ?\*, [^()]*\))", null_regex("nyx_ctx_log"));
    for (const arguments &with : refusals()) {
        EXPECT_DEATH(GetParam().run(caller, with), assertion);
    }
}

TEST_P(LoggedStringDeathTest, AssertsTheLogContextAlsoWhenNobodyWouldListen) {
    root().level = 0;
    root().trace_enabled = 0;
    EXPECT_EQ(run(refusals()[1]), 401);
    nyx_log_set_ctx(nullptr);
    EXPECT_DEATH(GetParam().run(caller, refusals()[1]), null_regex("nyx_ctx_log"));
}

std::string name_of(const testing::TestParamInfo<member> &info) {
    return info.param.name;
}
INSTANTIATE_TEST_SUITE_P(Wrapper, LoggedString, testing::ValuesIn(members()), name_of);
INSTANTIATE_TEST_SUITE_P(Wrapper, LoggedStringDeathTest, testing::ValuesIn(members()), name_of);
INSTANTIATE_TEST_SUITE_P(Wrapper, LoggedStringWithSpace, testing::ValuesIn(members_that_check_space()), name_of);

// What single functions do besides.

class LoggedStringCopy : public BoundedStringTest {};

TEST_F(LoggedStringCopy, CopiesWhatFitsWithItsTerminator) {
    EXPECT_EQ(nyx_strcpy_s("caller", std::begin(dest_), 8, "7 chars"), 0);
    EXPECT_EQ(dest().substr(0, 9), "7 chars\0~"s);
}

TEST_F(LoggedStringCopy, OfFewCharactersTakesAnySource) {
    EXPECT_EQ(nyx_strncpy_s("caller", std::begin(dest_), 8, "a longer source", 7), 0);
    EXPECT_EQ(dest().substr(0, 9), "a longe\0~"s);
    EXPECT_THAT(recorder().functions(), ElementsAre("strncpy_s"));
}

TEST_F(LoggedStringCopy, OfFewCharactersDoesNotReadTheRest) {
    fenced_memory memory;
    EXPECT_EQ(nyx_strncpy_s("caller", std::begin(dest_), 8, memory.lay("abc"), 3), 0);
    EXPECT_EQ(dest().substr(0, 5), "abc\0~"s);
}

TEST_F(LoggedStringCopy, OfMoreCharactersThanThereAreStopsAtTheTerminator) {
    EXPECT_EQ(nyx_strncpy_s("caller", std::begin(dest_), 8, "abc", 100), 0);
    EXPECT_EQ(dest().substr(0, 5), "abc\0~"s);
}

TEST_F(LoggedStringCopy, CountsWholeSourcesOnlyWhenAllOfThemIsWanted) {
    EXPECT_EQ(nyx_strncpy_s("caller", std::begin(dest_), 8, "8 chars.", 8), 406);
    EXPECT_EQ(nyx_strncpy_s("caller", std::begin(dest_), 8, "8 chars.", 9), 406);
    EXPECT_EQ(dest().substr(0, 4), "old\0"s);
    EXPECT_EQ(nyx_strncpy_s("caller", std::begin(dest_), 8, "8 chars.", 7), 0);
    EXPECT_EQ(dest().substr(0, 8), "8 chars\0"s);
}

class LoggedStringAppend : public BoundedStringTest {};

TEST_F(LoggedStringAppend, AppendsBehindTheText) {
    EXPECT_EQ(nyx_strcat_s("caller", std::begin(dest_), 8, " new"), 0);
    EXPECT_EQ(dest().substr(0, 9), "old new\0~"s);
    EXPECT_EQ(recorder().functions(), (std::vector<std::string>{"strnlen_s", "strcat_s"}));
}

TEST_F(LoggedStringAppend, LeavesWhatIsInTheDestinationToTheLibrary) {
    EXPECT_EQ(nyx_strcat_s("caller", std::begin(dest_), 8, " newer"), 406);
    EXPECT_THAT(violation_recorder::take(), ElementsAre(violation{"strcat_s: not enough space for src", 406}));
    EXPECT_THAT(recorder().log_lines(), IsEmpty());
    EXPECT_EQ(dest_[0], '\0') << "as the library leaves it";
}

TEST_F(LoggedStringAppend, OfNoCharactersIsTheLibrarys) {
    EXPECT_EQ(nyx_strncat_s("caller", std::begin(dest_), 8, "new", 0), 0);
    EXPECT_EQ(recorder().calls("strncat_s").size(), 1U);
    EXPECT_EQ(recorder().calls("strncat_s")[0].arguments[3].bits, 0U);
    EXPECT_EQ(dest().substr(0, 5), "old\0~"s);
}

TEST_F(LoggedStringAppend, OfTooManyCharactersIsTheLibrarys) {
    EXPECT_EQ(nyx_strncat_s("caller", std::begin(dest_), 8, "new", above), 403);
    EXPECT_EQ(recorder().calls("strncat_s").size(), 1U);
    EXPECT_THAT(violation_recorder::take(), ElementsAre(violation{"strncat_s: slen exceeds max", 403}));
    EXPECT_THAT(recorder().log_lines(), IsEmpty());
}

TEST_F(LoggedStringAppend, OfFewCharactersCountsTheWholeSourceNevertheless) {
    EXPECT_EQ(nyx_strncat_s("caller", std::begin(dest_), 8, "8 chars.", 1), 406);
    EXPECT_EQ(dest().substr(0, 4), "old\0"s);
    EXPECT_EQ(nyx_strncat_s("caller", std::begin(dest_), 8, "7 chars", 1), 0);
    EXPECT_EQ(dest().substr(0, 6), "old7\0~"s);
}

class LoggedStringCompare : public BoundedStringTest {};

TEST_F(LoggedStringCompare, ComparesTexts) {
    EXPECT_EQ(nyx_strcmp_s("caller", "abc", 4, "abc", &indicator_), 0);
    EXPECT_EQ(indicator_, 0);
    EXPECT_EQ(nyx_strcmp_s("caller", "abc", 4, "abd", &indicator_), 0);
    EXPECT_LT(indicator_, 0);
    EXPECT_EQ(nyx_strcmp_s("caller", "abd", 4, "abc", &indicator_), 0);
    EXPECT_GT(indicator_, 0);
    EXPECT_THAT(recorder().functions(), ElementsAre("strcmp_s", "strcmp_s", "strcmp_s"));
}

TEST_F(LoggedStringCompare, AsksNothingAboutTheSpace) {
    EXPECT_EQ(nyx_strcmp_s("caller", "abc", 2, "abd", &indicator_), 0);
    EXPECT_EQ(indicator_, 0);
    EXPECT_THAT(recorder().functions(), ElementsAre("strcmp_s"));
}

// The platform silences sites one by one.
TEST_F(BoundedStringTest, EachLogSiteHasAFilterOfItsOwn) {
    std::set<const std::uint32_t *> filters;
    std::size_t sites = 0;
    for (const member &each : members()) {
        for (const arguments &with : refusals(each)) {
            recorder().forget();
            each.run("caller", with);
            ASSERT_THAT(recorder().log_lines(), SizeIs(1));
            const std::uint32_t *const filter = recorder().log_lines()[0].filter;
            filters.insert(filter);
            ++sites;
            each.run("another caller", with);
            EXPECT_EQ(recorder().log_lines().back().filter, filter);
        }
    }
    EXPECT_EQ(sites, 19U);
    EXPECT_THAT(filters, SizeIs(sites));
}

// The quiet ones.

constexpr rcode invalid_argument = static_cast<rcode>(0xAAF2A000);

class QuietString : public BoundedStringTest {
  protected:
    void SetUp() override {
        BoundedStringTest::SetUp();
        nyx_log_set_ctx(nullptr);
    }
    void TearDown() override {
        EXPECT_THAT(recorder().log_lines(), IsEmpty());
        EXPECT_THAT(recorder().trace_lines(), IsEmpty());
        BoundedStringTest::TearDown();
    }
};

TEST_F(QuietString, CopiesAndAppends) {
    EXPECT_EQ(nyx_safe_strncpy(std::begin(dest_), 8, "abcdef", 3), 0);
    EXPECT_EQ(dest().substr(0, 5), "abc\0~"s);
    EXPECT_EQ(nyx_safe_strncat(std::begin(dest_), 8, "defghi", 4), 0);
    EXPECT_EQ(dest().substr(0, 9), "abcdefg\0~"s);
}

TEST_F(QuietString, PassesWhatIsGivenToTheLibrary) {
    const char *const src = "abcdef";
    nyx_safe_strncpy(std::begin(dest_), 8, src, 3);
    nyx_safe_strncat(std::begin(dest_), 9, src, 4);
    nyx_safe_strcmp(std::begin(dest_), 10, src, &indicator_);
    EXPECT_EQ(recorder().calls(), calls_of(called("strncpy_s", std::begin(dest_), 8, src, 3),
                                           called("strncat_s", std::begin(dest_), 9, src, 4),
                                           called("strcmp_s", std::begin(dest_), 10, src, &indicator_)));
}

TEST_F(QuietString, DoesNothingForNoCharacters) {
    const std::string before = dest();
    for (const rsize_t dmax : {rsize_t{0}, rsize_t{8}, above}) {
        EXPECT_EQ(nyx_safe_strncpy(std::begin(dest_), dmax, "src", 0), 0);
        EXPECT_EQ(nyx_safe_strncat(std::begin(dest_), dmax, "src", 0), 0);
    }
    EXPECT_EQ(nyx_safe_strncpy(nullptr, 8, nullptr, 0), 0);
    EXPECT_EQ(nyx_safe_strncat(nullptr, 8, nullptr, 0), 0);
    EXPECT_EQ(dest(), before);
    EXPECT_THAT(recorder().calls(), IsEmpty());
}

TEST_F(QuietString, TranslatesEveryRefusal) {
    for (const int code : {400, 401, 403, 404, 406, 407, 3, -1}) {
        recorder().fail("strncpy_s", 1, code);
        recorder().fail("strncat_s", 1, code);
        recorder().fail("strcmp_s", 1, code);
        EXPECT_EQ(nyx_safe_strncpy(std::begin(dest_), 8, "src", 3), invalid_argument) << code;
        EXPECT_EQ(nyx_safe_strncat(std::begin(dest_), 8, "src", 3), invalid_argument) << code;
        EXPECT_EQ(nyx_safe_strcmp(std::begin(dest_), 8, "src", &indicator_), invalid_argument) << code;
        recorder().fail_nothing();
    }
}

TEST_F(QuietString, LeavesEachViolationToTheLibrary) {
    EXPECT_EQ(nyx_safe_strncpy(std::begin(dest_), 8, nullptr, 3), invalid_argument);
    EXPECT_EQ(nyx_safe_strncpy(std::begin(dest_), 8, "8 chars.", 8), invalid_argument);
    EXPECT_EQ(nyx_safe_strncat(std::begin(dest_), 0, "src", 3), invalid_argument);
    EXPECT_EQ(nyx_safe_strncat(std::begin(dest_), above, "src", 3), invalid_argument);
    EXPECT_THAT(
        violation_recorder::take(),
        ElementsAre(violation{"strncpy_s: src is null", 400}, violation{"strncpy_s: not enough space for src", 406},
                    violation{"strncat_s: dmax is 0", 401}, violation{"strncat_s: dmax exceeds max", 403}));
}

TEST_F(QuietString, ComparesTexts) {
    EXPECT_EQ(nyx_safe_strcmp("abc", 4, "abc", &indicator_), 0);
    EXPECT_EQ(indicator_, 0);
    EXPECT_EQ(nyx_safe_strcmp("abc", 4, "abd", &indicator_), 0);
    EXPECT_LT(indicator_, 0);
    EXPECT_EQ(nyx_safe_strcmp("abd", 4, "abc", &indicator_), 0);
    EXPECT_GT(indicator_, 0);
}

TEST_F(QuietString, FailedComparisonNeverReadsAsEqual) {
    indicator_ = 0;
    EXPECT_EQ(nyx_safe_strcmp("abc", 4, nullptr, &indicator_), invalid_argument);
    EXPECT_EQ(indicator_, 1);
    EXPECT_EQ(nyx_safe_strcmp("abc", 0, "abc", &indicator_), invalid_argument);
    EXPECT_EQ(indicator_, 1);
    EXPECT_THAT(violation_recorder::take(), SizeIs(2));
}

TEST_F(QuietString, FailedComparisonKeepsAnIndicatorThatSaysUnequal) {
    for (const int left : {-5, 7}) {
        recorder().fail("strcmp_s", 1, 400);
        indicator_ = left;
        EXPECT_EQ(nyx_safe_strcmp("abc", 4, "abc", &indicator_), invalid_argument);
        EXPECT_EQ(indicator_, left);
        recorder().fail_nothing();
    }
}

TEST_F(QuietString, ComparisonWithoutAnIndicatorIsRefused) {
    EXPECT_EQ(nyx_safe_strcmp("abc", 4, "abc", nullptr), invalid_argument);
    EXPECT_THAT(violation_recorder::take(), ElementsAre(violation{"strcmp_s: indicator is null", 400}));
}

}  // namespace
