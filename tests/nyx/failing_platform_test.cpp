// Every exported function on a platform of which one call fails, for each call that the function makes: what it returns
// then, what it leaves, and that everything can be used again or given back.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "failing_calls.h"
#include "failing_exports.h"
#include "failing_frame.h"
#include "failing_requests.h"
#include "failing_strings.h"
#include "nyx_api.h"
#include "recording_platform.h"

// The library's pause, in place of the C library's.
extern "C" int nanosleep(const timespec * /*requested_time*/, timespec * /*remaining*/) {
    return 0;
}

namespace nyx_test {
namespace {

using testing::IsEmpty;

// What a platform function returns when it fails.
const std::map<std::string, std::int64_t> &failing_results() {
    static const std::map<std::string, std::int64_t> results = {
        {"umbra_named_malloc_", 0},
        {"umbra_named_calloc_", 0},
        {"umbra_named_realloc", 0},
        {"umbra_wavl_tree_init", 12},
        {"umbra_wavl_tree_finish", 16},
        {"umbra_wavl_insert", 0},
        {"umbra_wavl_delete", 0},
        {"umbra_wavl_search", 0},
        {"umbra_wavl_get_first", 0},
        {"umbra_hashmap_create", 12},
        {"umbra_hashmap_get", 0},
        {"umbra_hashmap_insert", 0},
        {"umbra_hashmap_first", 0},
        {"umbra_hashmap_next", 0},
        {"umbra_dt_flag_init", 17},
        {"umbra_dt_flag_enable", 17},
        {"umbra_dt_flag_destroy", 17},
        {"skein_init2", 17},
        {"skein_close", 17},
        {"skein_delete", 17},
        {"strcpy_s", 406},
        {"strncpy_s", 406},
        {"strcat_s", 406},
        {"strncat_s", 406},
        {"strcmp_s", 406},
        {"strnlen_s", 0},
        {"memcpy_s", 406},
        {"memmove_s", 406},
        {"memset_s", 406},
        {"strfirstchar_s", 406},
    };
    return results;
}

// What can only succeed: functions without a result, those that read a member of what they are given, and those whose
// every result is a good one.
const std::set<std::string> &unfailing_functions() {
    static const std::set<std::string> functions = {
        "invoke_safe_str_constraint_handler",
        "rcode_strerror",
        "set_safe_str_constraint_handler",
        "umbra_hash_calculate",
        "umbra_hashmap_free",
        "umbra_hashmap_iterate",
        "umbra_hashmap_key",
        "umbra_hashmap_remove_tuple",
        "umbra_hashmap_size",
        "umbra_hashmap_value",
        "umbra_named_free",
        "umbra_wavl_init",
        "umbra_wavl_normalize",
    };
    return functions;
}

// What writes lines. A line that fails is lost, and nothing else: that is the same for all functions, and stands in no
// scenario.
const std::set<std::string> &line_functions() {
    static const std::set<std::string> functions = {"_skein_str", "_umbra_dt_log_filter_adv"};
    return functions;
}

std::vector<scenario> all_scenarios() {
    scenarios all;
    for (const scenarios &some :
         {lookup_scenarios(), trace_scenarios(), level_scenarios(), session_scenarios(), error_scenarios(),
          element_error_scenarios(), tree_scenarios(), xpath_scenarios(), copy_scenarios(), token_scenarios(),
          edit_scenarios(), key_scenarios(), bounded_string_scenarios(), search_scenarios()}) {
        all.insert(all.end(), some.begin(), some.end());
    }
    return all;
}

std::vector<std::string> sorted(std::vector<std::string> texts) {
    std::sort(texts.begin(), texts.end());
    return texts;
}

block_names operator+(block_names left, const block_names &right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

// The variables of the library that belong to the process.
struct process_state {
    const nyx_api_ctx *log_ctx = nyx_ctx_log;
    std::uint32_t mem_state = nyx_util_mem_state;
    std::string agent = std::string(agent_name, sizeof agent_name);

    bool operator==(const process_state &other) const = default;
};

// A call of a scenario, as it went.
struct observation {
    outcome seen;
    std::vector<std::string> functions;  // of the platform, in the order of their calls
    std::vector<std::string> log_texts;
    std::vector<std::string> trace_texts;
};

// Lines without what is different from run to run: their numbers, addresses and ids.
std::vector<std::string> comparable(std::vector<std::string> lines) {
    static const std::regex varying("0x[0-9a-f]+|\\(nil\\)|-?[0-9]+");
    for (std::string &line : lines) {
        line = std::regex_replace(line, varying, "N");
    }
    return lines;
}

// The n-th call of a platform function.
struct nth_call {
    std::string function;
    std::uint64_t nth;
};

std::string key_of(const std::string &function, std::uint64_t nth) {
    return function + " " + std::to_string(nth);
}

bool allocates(const std::string &function) {
    return function == "umbra_named_malloc_" || function == "umbra_named_calloc_" || function == "umbra_named_realloc";
}

class FailingPlatform : public testing::TestWithParam<scenario> {
  protected:
    void SetUp() override { start_anew(); }

    static void start_anew() {
        recorder().reset();
        nyx_log_set_ctx(nullptr);
        nyx_util_set_mem_state(0);
        nyx_debug_save_agent_name("agentx");
    }

    static observation observe(exercise &observed) {
        const process_state before;
        recorder().forget();
        testing::internal::CaptureStderr();
        std::string text = observed.call();
        const std::string said = testing::internal::GetCapturedStderr();
        observation run{
            {"", recorder().live_blocks()}, recorder().functions(), recorder().log_texts(), recorder().trace_texts()};
        EXPECT_EQ(recorder().complaints(), "");
        EXPECT_TRUE(process_state() == before) << "something of the process has changed";
        recorder().fail_nothing();
        text += observed.state();
        run.seen.text = said.empty() ? text : text + "; said: " + said;
        return run;
    }

    static void expect_outcome(const observation &run, const outcome &expected) {
        EXPECT_EQ(run.seen.text, expected.text);
        EXPECT_EQ(run.seen.live, sorted(expected.live));
    }

    // The calls of the undisturbed run.
    static std::vector<nth_call> numbered(const std::vector<std::string> &functions) {
        std::map<std::string, std::uint64_t> counts;
        std::vector<nth_call> all;
        all.reserve(functions.size());
        for (const std::string &function : functions) {
            all.push_back({function, ++counts[function]});
        }
        return all;
    }

    static observation undisturbed_run() {
        start_anew();
        const std::unique_ptr<exercise> used = GetParam().set_up();
        observation run = observe(*used);
        used->clean_up();
        EXPECT_EQ(recorder().complaints(), "");
        EXPECT_THAT(recorder().live_blocks(), IsEmpty());
        return run;
    }

    // What is expected of a failing call.
    static outcome outcome_of(const failing_call &failing) {
        if (failing.expected) {
            return *failing.expected;
        }
        outcome expected = GetParam().undisturbed;
        if (!failing.emptied.empty()) {
            const std::size_t at = expected.text.find(failing.emptied);
            EXPECT_NE(at, std::string::npos) << failing.emptied;
            const std::string empty = failing.emptied.substr(0, failing.emptied.find('"')) + "\"\"";
            expected.text.replace(at, failing.emptied.size(), empty);
        }
        return expected;
    }

    static std::vector<std::string> lines_of(const failing_call &failing, std::vector<std::string> lines) {
        if (failing.lines) {
            EXPECT_LE(failing.lines->kept, lines.size());
            lines.resize(std::min(failing.lines->kept, lines.size()));
            lines.insert(lines.end(), failing.lines->added.begin(), failing.lines->added.end());
        }
        return lines;
    }

    // Makes the call on a platform that is made to fail, and the same call again undisturbed, and gives everything back
    // but what is lost.
    static observation fail(const std::function<void()> &arm, const outcome &expected, const block_names &leaked) {
        start_anew();
        const std::unique_ptr<exercise> used = GetParam().set_up();
        arm();
        observation run = observe(*used);
        expect_outcome(run, expected);
        used->make_ready();
        const outcome &undisturbed = GetParam().undisturbed;
        expect_outcome(observe(*used), {undisturbed.text, undisturbed.live + leaked});
        used->clean_up();
        EXPECT_EQ(recorder().complaints(), "");
        EXPECT_EQ(recorder().live_blocks(), sorted(leaked));
        return run;
    }
};

std::string scenario_name(const testing::TestParamInfo<scenario> &of) {
    std::string name = of.param.name;
    std::replace(name.begin(), name.end(), '/', '_');
    return name;
}

INSTANTIATE_TEST_SUITE_P(Of, FailingPlatform, testing::ValuesIn(all_scenarios()), scenario_name);

TEST_P(FailingPlatform, CallThatNothingDisturbs) {
    expect_outcome(undisturbed_run(), GetParam().undisturbed);
}

// Every call that can fail has its row, and every row its call.
TEST_P(FailingPlatform, RowsAreThoseOfTheCallsMade) {
    std::vector<std::string> made;
    for (const nth_call &each : numbered(undisturbed_run().functions)) {
        if (failing_results().contains(each.function)) {
            made.push_back(key_of(each.function, each.nth));
        }
    }
    std::vector<std::string> stated;
    for (const failing_call &each : GetParam().rows) {
        stated.push_back(key_of(each.function, each.nth));
    }
    EXPECT_EQ(sorted(stated), sorted(made));
}

TEST_P(FailingPlatform, EachCallFailsOnce) {
    const observation undisturbed = undisturbed_run();
    for (const failing_call &each : GetParam().rows) {
        SCOPED_TRACE(key_of(each.function, each.nth));
        const std::int64_t result = failing_results().at(each.function);
        const observation run =
            fail([&] { recorder().fail(each.function, each.nth, result); }, outcome_of(each), each.leaked);
        EXPECT_EQ(comparable(run.log_texts), lines_of(each, comparable(undisturbed.log_texts)));
    }
}

// A call that goes on without a block meets further failures, and its row tells what that comes to; it loses what it
// loses at the first one.
TEST_P(FailingPlatform, MemoryIsShortFromEachAllocationOn) {
    std::uint64_t nth = 0;
    for (const nth_call &each : numbered(undisturbed_run().functions)) {
        if (!allocates(each.function)) {
            continue;
        }
        SCOPED_TRACE(key_of(each.function, each.nth));
        const auto row = std::find_if(GetParam().rows.begin(), GetParam().rows.end(), [&](const failing_call &stated) {
            return stated.function == each.function && stated.nth == each.nth;
        });
        ASSERT_NE(row, GetParam().rows.end());
        ++nth;
        fail([&] { recorder().fail_allocations_from(nth); }, row->lasting.value_or(outcome_of(*row)), row->leaked);
    }
}

// A line that cannot be written is missing, the others are there, and all else is as if nothing had failed.
TEST_P(FailingPlatform, LinesAreLostAlone) {
    const observation undisturbed = undisturbed_run();
    for (const nth_call &each : numbered(undisturbed.functions)) {
        if (!line_functions().contains(each.function)) {
            continue;
        }
        SCOPED_TRACE(key_of(each.function, each.nth));
        std::vector<std::string> logged = comparable(undisturbed.log_texts);
        std::vector<std::string> traced = comparable(undisturbed.trace_texts);
        std::vector<std::string> &lost_from = each.function == "_skein_str" ? traced : logged;
        ASSERT_LE(each.nth, lost_from.size());
        lost_from.erase(lost_from.begin() + static_cast<std::ptrdiff_t>(each.nth) - 1);
        const observation run = fail([&] { recorder().fail(each.function, each.nth, 17); }, GetParam().undisturbed, {});
        EXPECT_EQ(comparable(run.log_texts), logged);
        EXPECT_EQ(comparable(run.trace_texts), traced);
        EXPECT_EQ(run.functions, undisturbed.functions);
    }
}

// What the platform has to offer, and who is covered

TEST(FailingPlatformTable, TellsOfEveryPlatformFunctionHowItFails) {
    std::vector<std::string> told;
    for (const auto &[function, result] : failing_results()) {
        told.push_back(function);
    }
    told.insert(told.end(), unfailing_functions().begin(), unfailing_functions().end());
    told.insert(told.end(), line_functions().begin(), line_functions().end());
    const std::set<std::string> &known = recorder().known_functions();
    EXPECT_EQ(sorted(told), std::vector<std::string>(known.begin(), known.end()));
}

// The codec takes its memory from the caller's functions alone; what it does when they fail is told by
// tests/quill/allocation_failure_test.cpp for each of its records.
bool belongs_to_codec(const std::string &function) {
    return function.starts_with("quill_nyx_");
}

TEST(FailingPlatformTable, HasEveryExportedFunction) {
    std::set<std::string> expected;
    std::size_t of_codec = 0;
    for (const std::string &function : exported_functions()) {
        if (belongs_to_codec(function)) {
            ++of_codec;
        } else {
            expected.insert(function);
        }
    }
    EXPECT_EQ(of_codec, 38U * 4);
    std::set<std::string> covered;
    for (const scenario &each : all_scenarios()) {
        covered.insert(each.function());
    }
    EXPECT_EQ(covered, expected);
}

}  // namespace
}  // namespace nyx_test
