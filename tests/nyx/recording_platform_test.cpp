// The platform that the other tests stand on: it must see every call, and tell when something is wrong.
#include "recording_platform.h"

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "nyx_api.h"
#include "nyx_session_store.h"
#include "rcode/rcode.h"
#include "safestr/safestr.h"
#include "skein/skein.h"
#include "umbra/debug_trace.h"
#include "umbra/hash.h"
#include "umbra/hashmap.h"
#include "umbra/named_alloc.h"
#include "umbra/wavl.h"

namespace {

using nyx_test::called;
using nyx_test::calls_of;
using nyx_test::flag_handle;
using nyx_test::fresh_byte;
using nyx_test::junk_handle;
using nyx_test::recorder;
using nyx_test::trace_handle;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class RecordingPlatform : public nyx_test::platform_test {};

std::string file_of(const void *address) {
    Dl_info info{};
    EXPECT_NE(dladdr(address, &info), 0);
    return info.dli_fname == nullptr ? "" : info.dli_fname;
}

TEST_F(RecordingPlatform, HasTheFunctionsOfAllPlatformLibraries) {
    EXPECT_THAT(
        recorder().known_functions(),
        ElementsAre("_skein_str", "_umbra_dt_log_filter_adv", "invoke_safe_str_constraint_handler", "memcpy_s",
                    "memmove_s", "memset_s", "rcode_strerror", "set_safe_str_constraint_handler", "skein_close",
                    "skein_delete", "skein_init2", "strcat_s", "strcmp_s", "strcpy_s", "strfirstchar_s", "strncat_s",
                    "strncpy_s", "strnlen_s", "umbra_dt_flag_destroy", "umbra_dt_flag_enable", "umbra_dt_flag_init",
                    "umbra_hash_calculate", "umbra_hashmap_create", "umbra_hashmap_first", "umbra_hashmap_free",
                    "umbra_hashmap_get", "umbra_hashmap_insert", "umbra_hashmap_iterate", "umbra_hashmap_key",
                    "umbra_hashmap_next", "umbra_hashmap_remove_tuple", "umbra_hashmap_size", "umbra_hashmap_value",
                    "umbra_named_calloc_", "umbra_named_free", "umbra_named_malloc_", "umbra_named_realloc",
                    "umbra_wavl_delete", "umbra_wavl_get_first", "umbra_wavl_init", "umbra_wavl_insert",
                    "umbra_wavl_normalize", "umbra_wavl_search", "umbra_wavl_tree_finish", "umbra_wavl_tree_init"));
}

// What another library would bind a name to.
TEST_F(RecordingPlatform, ComesBeforeTheBundledLibraries) {
    const std::string program = file_of(reinterpret_cast<const void *>(&file_of));
    for (const std::string &function : recorder().known_functions()) {
        void *const found = dlsym(RTLD_DEFAULT, function.c_str());
        ASSERT_NE(found, nullptr) << function;
        EXPECT_EQ(file_of(found), program) << function;
        EXPECT_NE(dlsym(RTLD_NEXT, function.c_str()), nullptr) << "no bundled library has " << function;
    }
}

TEST_F(RecordingPlatform, SeesTheCallsOfTheLibrary) {
    EXPECT_NE(file_of(reinterpret_cast<const void *>(&nyx_session_store_init)),
              file_of(reinterpret_cast<const void *>(&file_of)));
    nyx_api_ctx api{};
    ASSERT_EQ(nyx_session_store_init(&api), 0);
    EXPECT_THAT(recorder().functions(), ElementsAre("memset_s", "umbra_wavl_tree_init"));
    EXPECT_EQ(recorder().calls("memset_s"), calls_of(called("memset_s", &api.session_tree, 64, 0, 64)));
    EXPECT_EQ(nyx_session_store_cleanup(&api), 0);
}

TEST_F(RecordingPlatform, TellsCallsApart) {
    EXPECT_EQ(called("skein_delete", "a"), called("skein_delete", std::string("a").c_str()));
    EXPECT_FALSE(called("skein_delete", "a") == called("skein_delete", "b"));
    EXPECT_FALSE(called("skein_delete", "a") == called("skein_close", "a"));
    EXPECT_FALSE(called("skein_close", 1) == called("skein_close", 2));
    EXPECT_FALSE(called("skein_close", 1) == called("skein_close", 1, 0));
    EXPECT_FALSE(called("skein_delete", "a") == called("skein_delete", nullptr));
}

TEST_F(RecordingPlatform, PrintsCalls) {
    EXPECT_EQ(testing::PrintToString(called("f", 17, "text", 0xFFFFFFFFU, nullptr)), "f(17, \"text\", 0xffffffff, 0)");
}

TEST_F(RecordingPlatform, KeepsArgumentsResultsAndOrder) {
    std::uint64_t flag = 0;
    EXPECT_EQ(umbra_dt_flag_init(&flag, std::string("passing").c_str(), 5, 6, 7), 0);
    EXPECT_EQ(umbra_dt_flag_enable(flag, 8), 0);
    EXPECT_EQ(umbra_dt_flag_destroy(flag), 0);
    EXPECT_EQ(flag, flag_handle(1));
    EXPECT_EQ(recorder().calls(),
              calls_of(called("umbra_dt_flag_init", &flag, "passing", 5, 6, 7), called("umbra_dt_flag_enable", flag, 8),
                       called("umbra_dt_flag_destroy", flag)));
    EXPECT_EQ(rcode_strerror(0), std::string("Success"));
    EXPECT_EQ(recorder().calls("rcode_strerror").at(0).result.bits,
              reinterpret_cast<std::uintptr_t>(rcode_strerror(0)));
}

TEST_F(RecordingPlatform, HandsOutHandles) {
    std::uint64_t handles[2] = {};
    EXPECT_EQ(skein_init2("first", 1, 2, 3, 4, 5, &handles[0]), 0);
    EXPECT_EQ(skein_init2("second", 0, 0, 0, 0, 0, &handles[1]), 0);
    EXPECT_EQ(handles[0], trace_handle(1));
    EXPECT_EQ(handles[1], trace_handle(2));
    EXPECT_EQ(skein_close(handles[0]), 0);
    EXPECT_EQ(skein_delete("first"), 0);
    EXPECT_EQ(recorder().calls().at(0), called("skein_init2", "first", 1, 2, 3, 4, 5, &handles[0]));
    EXPECT_EQ(recorder().calls().at(3), called("skein_delete", "first"));
}

TEST_F(RecordingPlatform, KeepsLogLines) {
    static const char format[] = "%s is %d";
    std::uint32_t filter = 0xFFFFFFFF;
    _umbra_dt_log_filter_adv(1, 2, 3, 4, 5, 6, &filter, format, "seven", 7);
    ASSERT_EQ(recorder().log_lines().size(), 1U);
    const nyx_test::log_line &line = recorder().log_lines()[0];
    EXPECT_EQ(line.flag, 1U);
    EXPECT_THAT(line.zeros, ElementsAre(2, 3, 4, 5, 6));
    EXPECT_EQ(line.filter, &filter);
    EXPECT_EQ(line.filter_value, 0xFFFFFFFF);
    EXPECT_EQ(line.format, format);
    EXPECT_EQ(line.format_text, "%s is %d");
    EXPECT_EQ(line.text, "seven is 7");
    EXPECT_EQ(recorder().calls(), calls_of(called("_umbra_dt_log_filter_adv", 1, 2, 3, 4, 5, 6, &filter, format)));
    EXPECT_THAT(recorder().log_texts(), ElementsAre("seven is 7"));
}

TEST_F(RecordingPlatform, KeepsTraceLines) {
    EXPECT_EQ(_skein_str(3, 0x0000010101000000, "a line"), 0);
    ASSERT_EQ(recorder().trace_lines().size(), 1U);
    EXPECT_EQ(recorder().trace_lines()[0].handle, 3U);
    EXPECT_EQ(recorder().trace_lines()[0].attributes, 0x0000010101000000U);
    EXPECT_THAT(recorder().trace_texts(), ElementsAre("a line"));
    EXPECT_EQ(recorder().calls(), calls_of(called("_skein_str", 3, 0x0000010101000000, "a line")));
}

TEST_F(RecordingPlatform, FailsTheNthCall) {
    std::uint64_t flag = 0;
    recorder().fail("umbra_dt_flag_init", 2, -17);
    EXPECT_EQ(umbra_dt_flag_init(&flag, "first", 0, 0, 0), 0);
    EXPECT_EQ(umbra_dt_flag_init(&flag, "second", 0, 0, 0), -17);
    EXPECT_EQ(flag, junk_handle);
    EXPECT_EQ(umbra_dt_flag_init(&flag, "third", 0, 0, 0), 0);
    EXPECT_EQ(flag, flag_handle(2));
    EXPECT_EQ(recorder().calls("umbra_dt_flag_init").size(), 3U);
    EXPECT_EQ(recorder().calls().at(1).result.bits, static_cast<std::uint64_t>(-17));
}

TEST_F(RecordingPlatform, FailsFromTheNthCallOn) {
    recorder().fail_from("skein_delete", 2, 5);
    EXPECT_EQ(skein_delete("x"), 0);
    EXPECT_EQ(skein_delete("x"), 5);
    EXPECT_EQ(skein_delete("x"), 5);
    recorder().fail_nothing();
    EXPECT_EQ(skein_delete("x"), 0);
    recorder().fail_all("skein_delete", 6);
    EXPECT_EQ(skein_delete("x"), 6);
}

TEST_F(RecordingPlatform, FailsSeveralCalls) {
    recorder().fail("skein_close", 1, 5);
    recorder().fail("skein_close", 3, 6);
    EXPECT_EQ(skein_close(0), 5);
    EXPECT_EQ(skein_close(0), 0);
    EXPECT_EQ(skein_close(0), 6);
}

TEST_F(RecordingPlatform, ActsWhenAFunctionIsCalled) {
    std::vector<std::size_t> calls_so_far;
    recorder().when_called("skein_close", [&] { calls_so_far.push_back(recorder().calls().size()); });
    EXPECT_EQ(skein_delete("x"), 0);
    EXPECT_EQ(skein_close(0), 0);
    EXPECT_EQ(skein_close(0), 0);
    EXPECT_THAT(calls_so_far, ElementsAre(2, 3));
    recorder().when_called("skein_clse", [] {});
    EXPECT_EQ(recorder().complaints(), "there is no function skein_clse that could be called\n");
    recorder().reset();
    EXPECT_EQ(skein_close(0), 0);
    EXPECT_EQ(calls_so_far.size(), 2U);
}

TEST_F(RecordingPlatform, ActsAndFailsAtLogLinesToo) {
    std::uint32_t filter = 0;
    const auto log = [&filter](const char *text) { _umbra_dt_log_filter_adv(0, 0, 0, 0, 0, 0, &filter, "%s", text); };
    std::vector<std::size_t> lines_so_far;
    recorder().when_called("_umbra_dt_log_filter_adv", [&] { lines_so_far.push_back(recorder().log_lines().size()); });
    recorder().fail("_umbra_dt_log_filter_adv", 2);
    log("first");
    log("second");
    log("third");
    EXPECT_THAT(lines_so_far, ElementsAre(0, 1, 1));
    EXPECT_THAT(recorder().log_texts(), ElementsAre("first", "third"));
    EXPECT_EQ(recorder().calls("_umbra_dt_log_filter_adv").size(), 3U);
}

TEST_F(RecordingPlatform, FailingCallOfABundledFunctionDoesNothing) {
    char text[4] = "abc";
    recorder().fail("memset_s", 1, 17);
    EXPECT_EQ(memset_s(text, sizeof text, 0, sizeof text), 17);
    EXPECT_STREQ(text, "abc");
    EXPECT_EQ(memset_s(text, sizeof text, 0, sizeof text), 0);
    EXPECT_STREQ(text, "");
}

TEST_F(RecordingPlatform, FailsAnyAllocation) {
    recorder().fail_allocation(2);
    void *const first = umbra_named_malloc_(1, "first");
    EXPECT_EQ(umbra_named_calloc_(2, 3, "second"), nullptr);
    void *const third = umbra_named_realloc(first, 4);
    ASSERT_NE(third, nullptr);
    recorder().fail_allocations_from(1);
    EXPECT_EQ(umbra_named_realloc(third, 5), nullptr);
    EXPECT_EQ(umbra_named_malloc_(1, "fifth"), nullptr);
    EXPECT_THAT(recorder().allocation_texts(), ElementsAre("first", "second", "first", "first", "fifth"));
    EXPECT_EQ(recorder().allocations()[1].size, 6U);
    umbra_named_free(third);
}

TEST_F(RecordingPlatform, WatchesBlocks) {
    auto *const raw = static_cast<std::uint8_t *>(umbra_named_malloc_(3, "raw"));
    auto *const zeroed = static_cast<std::uint8_t *>(umbra_named_calloc_(2, 2, "zeroed"));
    EXPECT_EQ(raw[2], fresh_byte);
    EXPECT_EQ(zeroed[3], 0U);
    EXPECT_EQ(recorder().size_of(raw), 3U);
    EXPECT_EQ(recorder().size_of(zeroed), 4U);
    EXPECT_EQ(recorder().size_of(zeroed + 1), std::nullopt);
    EXPECT_THAT(recorder().live_blocks(), ElementsAre("raw", "zeroed"));
    raw[2] = 7;
    auto *const grown = static_cast<std::uint8_t *>(umbra_named_realloc(raw, 5));
    EXPECT_EQ(grown[2], 7U);
    EXPECT_EQ(grown[4], fresh_byte);
    umbra_named_free(grown);
    umbra_named_free(zeroed);
    umbra_named_free(nullptr);
    EXPECT_THAT(recorder().live_blocks(), IsEmpty());
}

TEST_F(RecordingPlatform, ComplainsOfFreesThatAreWrong) {
    void *const block = umbra_named_malloc_(1, "block");
    umbra_named_free(block);
    umbra_named_free(block);
    int local = 0;
    umbra_named_free(&local);
    EXPECT_EQ(recorder().complaints(), "a block was freed twice\na foreign block was freed\n");
    EXPECT_EQ(umbra_named_realloc(&local, 1), nullptr);
    EXPECT_THAT(recorder().complaints(), HasSubstr("a foreign block was to change its size"));
    recorder().reset();
}

TEST_F(RecordingPlatform, ComplainsOfFailuresThatNeverCame) {
    recorder().fail("skein_close", 2, 5);
    EXPECT_EQ(skein_close(0), 0);
    EXPECT_EQ(recorder().complaints(), "call 2 of skein_close was to fail and never came\n");
    recorder().fail("skein_clse");
    EXPECT_THAT(recorder().complaints(), HasSubstr("there is no function skein_clse that could fail"));
    recorder().reset();
}

// The fixture under test is driven by hand; what it says is caught.
class exposed_platform_test : public nyx_test::platform_test {
  public:
    void tear_down() { TearDown(); }

  private:
    void TestBody() override {}
};

TEST_F(RecordingPlatform, FixtureFindsLeaks) {
    EXPECT_NE(umbra_named_malloc_(1, "a lost block"), nullptr);
    EXPECT_NONFATAL_FAILURE(exposed_platform_test().tear_down(), "a lost block");
    recorder().reset();
    umbra_hashmap *map = nullptr;
    ASSERT_EQ(umbra_hashmap_create(
                  &map, 1, [](const void *) { return 0U; }, [](const void *, const void *) { return 1; }, 0),
              0);
    EXPECT_NONFATAL_FAILURE(exposed_platform_test().tear_down(), "hash map");
    umbra_hashmap_free(map);
}

TEST_F(RecordingPlatform, FixtureFindsComplaints) {
    int local = 0;
    umbra_named_free(&local);
    EXPECT_NONFATAL_FAILURE(exposed_platform_test().tear_down(), "a foreign block was freed");
    recorder().reset();
}

TEST_F(RecordingPlatform, ForgetsCallsButNotBlocks) {
    void *const block = umbra_named_malloc_(1, "block");
    recorder().fail("skein_close", 1, 5);
    EXPECT_EQ(_skein_str(1, 2, "line"), 0);
    recorder().forget();
    EXPECT_THAT(recorder().calls(), IsEmpty());
    EXPECT_THAT(recorder().trace_lines(), IsEmpty());
    EXPECT_THAT(recorder().allocations(), IsEmpty());
    EXPECT_EQ(skein_close(0), 5);
    umbra_named_free(block);
}

std::uint32_t hash_first_letter(const void *key) {
    return umbra_hash_calculate(key, 1);
}

int same_text(const void *a, const void *b) {
    return std::strcmp(static_cast<const char *>(a), static_cast<const char *>(b)) == 0 ? 1 : 0;
}

TEST_F(RecordingPlatform, LeavesHashMapsToTheBundledLibrary) {
    umbra_hashmap *map = nullptr;
    ASSERT_EQ(umbra_hashmap_create(&map, 4, hash_first_letter, same_text, 0), 0);
    char key[] = "key";
    char text[] = "value";
    EXPECT_NE(umbra_hashmap_insert(map, key, text), 0);
    EXPECT_EQ(umbra_hashmap_size(map), 1U);
    umbra_hashmap_entry *const entry = umbra_hashmap_get(map, "key");
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(umbra_hashmap_first(map), entry);
    EXPECT_EQ(umbra_hashmap_next(map, entry), nullptr);
    EXPECT_EQ(umbra_hashmap_key(entry), key);
    EXPECT_EQ(umbra_hashmap_value(entry), text);
    umbra_hashmap_free(map);
    // The hash function was called on behalf of the map, the map's own blocks are its own affair.
    EXPECT_THAT(recorder().functions(),
                ElementsAre("umbra_hashmap_create", "umbra_hashmap_insert", "umbra_hashmap_size", "umbra_hashmap_get",
                            "umbra_hashmap_first", "umbra_hashmap_next", "umbra_hashmap_key", "umbra_hashmap_value",
                            "umbra_hashmap_free"));
    EXPECT_THAT(recorder().live_blocks(), IsEmpty());
}

TEST_F(RecordingPlatform, SeesWhatAVisitCalls) {
    umbra_hashmap *map = nullptr;
    ASSERT_EQ(umbra_hashmap_create(&map, 4, hash_first_letter, same_text, 0), 0);
    int visits = 0;
    char keys[] = "ab";
    EXPECT_NE(umbra_hashmap_insert(map, &keys[1], &visits), 0);
    recorder().forget();
    umbra_hashmap_iterate(
        map,
        [](umbra_hashmap *visited, umbra_hashmap_entry *entry, void *ctx) {
            ++*static_cast<int *>(ctx);
            umbra_hashmap_remove_tuple(visited, entry);
        },
        &visits);
    EXPECT_EQ(visits, 1);
    EXPECT_EQ(umbra_hashmap_size(map), 0U);
    EXPECT_THAT(recorder().functions(),
                ElementsAre("umbra_hashmap_iterate", "umbra_hashmap_remove_tuple", "umbra_hashmap_size"));
    umbra_hashmap_free(map);
}

TEST_F(RecordingPlatform, FailingMapLeavesJunk) {
    umbra_hashmap *map = nullptr;
    recorder().fail("umbra_hashmap_create", 1, 12);
    EXPECT_EQ(umbra_hashmap_create(&map, 4, hash_first_letter, same_text, 0), 12);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(map), junk_handle);
}

TEST_F(RecordingPlatform, BoundedFunctionsAreRecordedByAddress) {
    const char unterminated[2] = {'a', 'b'};
    char copy[8] = "";
    EXPECT_EQ(strncpy_s(copy, sizeof copy, unterminated, 2), 0);
    EXPECT_STREQ(copy, "ab");
    EXPECT_EQ(strnlen_s(unterminated, 2), 2U);
    EXPECT_EQ(recorder().calls().at(1).arguments.at(0).bits, reinterpret_cast<std::uintptr_t>(unterminated));
    EXPECT_EQ(recorder().calls().at(1).arguments.at(0).text, std::nullopt);
}

// A violation inside a bundled function calls the handler through a function that the program has, too.
TEST_F(RecordingPlatform, BundledFunctionsDoNotRecordEachOther) {
    char none[1] = "";
    EXPECT_NE(strcpy_s(none, sizeof none, nullptr), 0);
    EXPECT_THAT(recorder().functions(), ElementsAre("strcpy_s"));
    invoke_safe_str_constraint_handler("by hand", none, 400);
    EXPECT_THAT(recorder().calls(), Contains(called("invoke_safe_str_constraint_handler", "by hand", none, 400)));
}

TEST_F(RecordingPlatform, TextsOfCodesLeaveNoTrace) {
    EXPECT_EQ(nyx_test::text_of_code(0), "Success");
    EXPECT_THAT(recorder().calls(), IsEmpty());
}

}  // namespace
