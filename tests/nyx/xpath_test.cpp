// XPath expressions that grow towards their front, and the error path that they are written into.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "frame_fixture.h"
#include "nyx_api.h"
#include "nyx_api_common.h"
#include "recording_platform.h"
#include "umbra/hashmap.h"
#include "umbra/named_alloc.h"

namespace {

using nyx_test::bytes_of;
using nyx_test::call;
using nyx_test::called;
using nyx_test::calls_of;
using nyx_test::recorder;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;

constexpr const char *alias_text = "namespace alias";
constexpr const char *key_text = "copy of namespace for xpath attribute";
constexpr const char *path_text = "xpath error string";
constexpr const char *copy_text = "copy of xpath path";
constexpr const char *array_text = "query transformer namespace attributes";
constexpr const char *value_text = "copy of xpath namespace tag";
constexpr const char *name_text = "prepended 'xmlns:' to xpath namespace value";

using key_list = std::vector<std::pair<const char *, const char *>>;
using name_list = std::vector<std::pair<std::string, std::string>>;

// One member of each pair.
std::vector<const char *> names_of(const key_list &keys) {
    std::vector<const char *> names;
    for (const auto &[name, text] : keys) {
        names.push_back(name);
    }
    return names;
}
std::vector<const char *> values_of(const key_list &keys) {
    std::vector<const char *> values;
    for (const auto &[name, text] : keys) {
        values.push_back(text);
    }
    return values;
}

int prepend(xpath_context &ctx, const char *name, const char *ns = nullptr, const key_list &keys = {}) {
    return xpath_prepend(&ctx, name, ns, names_of(keys).data(), values_of(keys).data(),
                         static_cast<std::uint32_t>(keys.size()));
}

std::string text_or_null(const char *text) {
    return text == nullptr ? "(null)" : text;
}

void *block_of(const call &allocation) {
    return reinterpret_cast<void *>(allocation.result.bits);
}

class XpathContext : public nyx_test::platform_test {
  protected:
    void SetUp() override {
        platform_test::SetUp();
        nyx_util_set_mem_state(0);
        ASSERT_EQ(xpath_context_init(&ctx_), 0);
        recorder().forget();
    }

    void TearDown() override {
        nyx_util_set_mem_state(0);
        recorder().fail_nothing();
        quill_nyx_error_free_ext(&error_, nyx_gpb_free, nullptr, 0);
        xpath_context_destroy(&ctx_);
        platform_test::TearDown();
    }

    // The path, whose block must be exactly as long as it is.
    [[nodiscard]] std::string path() const {
        if (ctx_.path != nullptr) {
            EXPECT_EQ(recorder().size_of(ctx_.path), std::strlen(ctx_.path) + 1);
        }
        return text_or_null(ctx_.path);
    }

    // The namespaces with their aliases, in the map's order.
    [[nodiscard]] name_list aliases() const {
        name_list found;
        for (umbra_hashmap_entry *at = umbra_hashmap_first(ctx_.namespace_aliases); at != nullptr;
             at = umbra_hashmap_next(ctx_.namespace_aliases, at)) {
            found.emplace_back(static_cast<const char *>(umbra_hashmap_key(at)),
                               static_cast<const char *>(umbra_hashmap_value(at)));
        }
        return found;
    }

    [[nodiscard]] const quill_nyx_datatree &node() const { return error_.error_path; }

    // The attributes of the error path: values, and names.
    [[nodiscard]] name_list attributes() const {
        name_list found;
        for (std::uint32_t i = 0; i < node().attributes_count; ++i) {
            const quill_nyx_attribute &attribute = node().attributes[i];
            EXPECT_EQ(attribute.has_key, 1);
            EXPECT_EQ(attribute.has_value, 1);
            found.emplace_back(text_or_null(attribute.value), text_or_null(attribute.key));
        }
        return found;
    }

    // Allocations, hash maps: what a context is made of, without what the string helpers do inside.
    static std::vector<std::string> umbra_functions() {
        std::vector<std::string> functions;
        for (const std::string &function : recorder().functions()) {
            if (function.starts_with("umbra_")) {
                functions.push_back(function);
            }
        }
        return functions;
    }

    // Gives back the blocks that were handed out since the recorder forgot, and that nothing points to any more.
    void release_what_was_left_behind() {
        for (const call &each : std::vector<call>(recorder().calls())) {
            const bool allocates = each.function == "umbra_named_malloc_" || each.function == "umbra_named_calloc_";
            if (allocates && recorder().size_of(block_of(each)) && block_of(each) != node().value) {
                umbra_named_free(block_of(each));
            }
        }
    }

    xpath_context ctx_ = {};
    quill_nyx_error error_ = {};
};

using XpathPrepend = XpathContext;
using XpathAliases = XpathContext;
using XpathToNyxError = XpathContext;

// Contexts

TEST_F(XpathContext, InitMakesAnEmptyMap) {
    xpath_context ctx;
    std::memset(&ctx, 0x5A, sizeof ctx);
    recorder().when_called("umbra_hashmap_create", [&ctx] {
        EXPECT_EQ(ctx.path, nullptr);
        EXPECT_EQ(ctx.namespace_aliases, nullptr);
    });
    EXPECT_EQ(xpath_context_init(&ctx), 0);
    EXPECT_EQ(recorder().calls(), calls_of(called("umbra_hashmap_create", &ctx.namespace_aliases, 0,
                                                  nyx_string_hash_calc, nyx_string_hash_cmp, 0)));
    EXPECT_EQ(ctx.path, nullptr);
    EXPECT_NE(ctx.namespace_aliases, nullptr);
    EXPECT_THAT(recorder().live_blocks(), ElementsAre("hash map", "hash map"));
    xpath_context_destroy(&ctx);
}

TEST_F(XpathContext, InitOfNullDoesNothing) {
    EXPECT_EQ(xpath_context_init(nullptr), 0);
    EXPECT_THAT(recorder().calls(), IsEmpty());
}

TEST_F(XpathContext, InitPassesTheMapsResultOn) {
    for (const int result : {ENOMEM, EINVAL, -7}) {
        xpath_context ctx;
        std::memset(&ctx, 0x5A, sizeof ctx);
        recorder().fail("umbra_hashmap_create", 1, result);
        EXPECT_EQ(xpath_context_init(&ctx), result);
        EXPECT_EQ(ctx.path, nullptr);
        EXPECT_EQ(ctx.namespace_aliases, nullptr) << "whatever the failing call left";
        recorder().forget();
        xpath_context_destroy(&ctx);
        EXPECT_THAT(recorder().calls(), IsEmpty());
    }
}

TEST_F(XpathContext, DestroyReleasesEntriesTheMapAndThePath) {
    ASSERT_EQ(prepend(ctx_, "b", "urn:b"), 0);
    ASSERT_EQ(prepend(ctx_, "a", "urn:a"), 0);
    umbra_hashmap_entry *const entry = umbra_hashmap_first(ctx_.namespace_aliases);
    const void *const key = umbra_hashmap_key(entry);
    const void *const value = umbra_hashmap_value(entry);
    const umbra_hashmap *const map = ctx_.namespace_aliases;
    const void *const text = ctx_.path;
    recorder().forget();
    xpath_context_destroy(&ctx_);
    EXPECT_THAT(umbra_functions(),
                ElementsAre("umbra_hashmap_iterate",                     //
                            "umbra_hashmap_key", "umbra_hashmap_value",  // before the entry goes
                            "umbra_hashmap_remove_tuple", "umbra_named_free", "umbra_named_free",  //
                            "umbra_hashmap_key", "umbra_hashmap_value",                            //
                            "umbra_hashmap_remove_tuple", "umbra_named_free", "umbra_named_free",  //
                            "umbra_hashmap_free", "umbra_named_free"));
    const std::vector<call> frees = recorder().calls("umbra_named_free");
    EXPECT_EQ(frees[0], called("umbra_named_free", key));
    EXPECT_EQ(frees[1], called("umbra_named_free", value));
    EXPECT_EQ(frees[4], called("umbra_named_free", text));
    EXPECT_EQ(recorder().calls("umbra_hashmap_remove_tuple")[0], called("umbra_hashmap_remove_tuple", map, entry));
    EXPECT_EQ(recorder().calls("umbra_hashmap_free"), calls_of(called("umbra_hashmap_free", map)));
    EXPECT_EQ(ctx_.path, nullptr);
    EXPECT_EQ(ctx_.namespace_aliases, nullptr);
    EXPECT_THAT(recorder().live_blocks(), IsEmpty());
}

TEST_F(XpathContext, DestroyingTwiceOrNullDoesNothing) {
    xpath_context_destroy(&ctx_);
    recorder().forget();
    xpath_context_destroy(&ctx_);
    xpath_context_destroy(nullptr);
    EXPECT_THAT(recorder().calls(), IsEmpty());
}

TEST_F(XpathContext, DestroyReleasesWhatACallerPutIntoTheMap) {
    void *const key = nyx_strdup2("urn:own", "the caller's key");
    ASSERT_NE(umbra_hashmap_insert(ctx_.namespace_aliases, key, nullptr), 0);
    xpath_context_destroy(&ctx_);
    EXPECT_THAT(recorder().live_blocks(), IsEmpty());
}

TEST_F(XpathContext, CanBeMadeAnewAfterItsDestruction) {
    ASSERT_EQ(prepend(ctx_, "a", "urn:a"), 0);
    xpath_context_destroy(&ctx_);
    ASSERT_EQ(xpath_context_init(&ctx_), 0);
    ASSERT_EQ(prepend(ctx_, "b", "urn:b"), 0);
    EXPECT_EQ(path(), "ns1:b");
}

// Copying texts in a chain

TEST(NyxStpcpy, ReturnsWhereTheNextTextGoes) {
    char text[16];
    std::memset(text, '#', sizeof text);
    char *const end = nyx_stpcpy(nyx_stpcpy(nyx_stpcpy(text, "one"), ""), "/two");
    EXPECT_EQ(end, text + 7);
    EXPECT_EQ(std::string(text, 9), std::string("one/two\0#", 9)) << "with one terminator and nothing behind it";
}

TEST(NyxStpcpy, WritesNothingForANullText) {
    char text[] = "kept";
    EXPECT_EQ(nyx_stpcpy(text, nullptr), text);
    EXPECT_STREQ(text, "kept");
    EXPECT_EQ(nyx_stpcpy(text + 2, nullptr), text + 2);
}

TEST(NyxStpcpy, ReturnsNullForANullDestination) {
    EXPECT_EQ(nyx_stpcpy(nullptr, "text"), nullptr);
    EXPECT_EQ(nyx_stpcpy(nullptr, nullptr), nullptr);
}

// Steps

TEST_F(XpathPrepend, PutsEachStepBeforeWhatIsThere) {
    EXPECT_EQ(prepend(ctx_, "mtu"), 0);
    EXPECT_EQ(path(), "mtu");
    EXPECT_EQ(prepend(ctx_, "interface", "A", {{"name", "eth0"}}), 0);
    EXPECT_EQ(path(), "ns1:interface[name = 'eth0']/mtu");
    EXPECT_EQ(prepend(ctx_, "interfaces", "B"), 0);
    EXPECT_EQ(path(), "ns2:interfaces/ns1:interface[name = 'eth0']/mtu");
    EXPECT_EQ(prepend(ctx_, "top", "A"), 0);
    EXPECT_EQ(path(), "ns1:top/ns2:interfaces/ns1:interface[name = 'eth0']/mtu");
    EXPECT_THAT(aliases(), ElementsAre(Pair("A", "ns1"), Pair("B", "ns2")));
}

TEST_F(XpathPrepend, JoinsKeysWithAnd) {
    EXPECT_EQ(prepend(ctx_, "item", nullptr, {{"color", "red"}, {"size", "big"}}), 0);
    EXPECT_EQ(path(), "item[color = 'red' and size = 'big']");
    EXPECT_EQ(prepend(ctx_, "list", "urn:x", {{"a", "1"}, {"b", "2"}, {"c", "3"}}), 0);
    EXPECT_EQ(path(), "ns1:list[a = '1' and b = '2' and c = '3']/item[color = 'red' and size = 'big']");
}

TEST_F(XpathPrepend, TakesTextsAsTheyAre) {
    EXPECT_EQ(prepend(ctx_, "a/b[c]%s'", nullptr, {{"k']", "it's \"%d\" [x] = /"}, {"", ""}}), 0);
    EXPECT_EQ(path(), "a/b[c]%s'[k'] = 'it's \"%d\" [x] = /' and  = '']");
    EXPECT_EQ(prepend(ctx_, "", "%n"), 0);
    EXPECT_EQ(path(), "ns1:/a/b[c]%s'[k'] = 'it's \"%d\" [x] = /' and  = '']");
    EXPECT_THAT(aliases(), ElementsAre(Pair("%n", "ns1")));
}

TEST_F(XpathPrepend, CountsNullKeysAndValuesAsEmpty) {
    EXPECT_EQ(prepend(ctx_, "item", nullptr, {{nullptr, "v"}, {"k", nullptr}, {nullptr, nullptr}}), 0);
    EXPECT_EQ(path(), "item[ = 'v' and k = '' and  = '']");
}

TEST_F(XpathPrepend, PutsASlashBehindAnEmptyPath) {
    EXPECT_EQ(prepend(ctx_, ""), 0);
    EXPECT_EQ(path(), "");
    EXPECT_EQ(prepend(ctx_, "a"), 0);
    EXPECT_EQ(path(), "a/");
}

TEST_F(XpathPrepend, NeedsNoKeyArraysWithoutKeys) {
    EXPECT_EQ(xpath_prepend(&ctx_, "a", nullptr, nullptr, nullptr, 0), 0);
    EXPECT_EQ(path(), "a");
}

TEST_F(XpathPrepend, RefusesBrokenArgumentsAndChangesNothing) {
    ASSERT_EQ(prepend(ctx_, "a"), 0);
    const char *const keys[] = {"k", "l"};
    const xpath_context before = ctx_;
    recorder().forget();
    EXPECT_EQ(xpath_prepend(nullptr, "b", "urn:b", keys, keys, 2), EINVAL);
    EXPECT_EQ(xpath_prepend(&ctx_, nullptr, "urn:b", keys, keys, 2), EINVAL);
    EXPECT_EQ(xpath_prepend(&ctx_, "b", "urn:b", keys, nullptr, 2), EINVAL);
    EXPECT_EQ(xpath_prepend(&ctx_, "b", "urn:b", nullptr, keys, 2), EINVAL);
    EXPECT_EQ(xpath_prepend(&ctx_, "b", "urn:b", nullptr, nullptr, 1), EINVAL);
    EXPECT_THAT(recorder().calls(), IsEmpty());
    EXPECT_EQ(ctx_.path, before.path);
    EXPECT_EQ(ctx_.namespace_aliases, before.namespace_aliases);
    EXPECT_EQ(path(), "a");
    EXPECT_THAT(aliases(), IsEmpty());
}

TEST_F(XpathPrepend, CallsThePlatformInOrder) {
    ASSERT_EQ(prepend(ctx_, "b"), 0);
    const void *const old_path = ctx_.path;
    recorder().forget();
    ASSERT_EQ(prepend(ctx_, "a", "urn:a", {{"k", "v"}}), 0);
    EXPECT_THAT(umbra_functions(), ElementsAre("umbra_hashmap_get",                           //
                                               "umbra_named_calloc_", "umbra_named_malloc_",  //
                                               "umbra_hashmap_size", "umbra_hashmap_insert",  //
                                               "umbra_named_calloc_", "umbra_named_free"));
    const std::vector<call> zeroed = recorder().calls("umbra_named_calloc_");
    EXPECT_EQ(zeroed, calls_of(called("umbra_named_calloc_", 1, 13, alias_text),
                               called("umbra_named_calloc_", 1, sizeof "ns1:a[k = 'v']/b", path_text)));
    EXPECT_EQ(recorder().calls("umbra_named_malloc_"),
              calls_of(called("umbra_named_malloc_", sizeof "urn:a", key_text)));
    EXPECT_EQ(recorder().calls("umbra_hashmap_insert"),
              calls_of(called("umbra_hashmap_insert", ctx_.namespace_aliases,
                              block_of(recorder().calls("umbra_named_malloc_")[0]), block_of(zeroed[0]))));
    EXPECT_EQ(recorder().calls("umbra_named_free"), calls_of(called("umbra_named_free", old_path)));
    EXPECT_EQ(block_of(zeroed[1]), ctx_.path);
}

TEST_F(XpathPrepend, TakesOneBlockForAStepWithoutANewNamespace) {
    ASSERT_EQ(prepend(ctx_, "b", "urn:a"), 0);
    recorder().forget();
    ASSERT_EQ(prepend(ctx_, "a", "urn:a"), 0);
    ASSERT_EQ(prepend(ctx_, "c"), 0);
    EXPECT_THAT(recorder().allocation_texts(), ElementsAre(path_text, path_text));
    EXPECT_EQ(path(), "c/ns1:a/ns1:b");
}

TEST_F(XpathPrepend, MayBeGivenThePathItself) {
    ASSERT_EQ(prepend(ctx_, "a"), 0);
    ASSERT_EQ(prepend(ctx_, ctx_.path, ctx_.path, {{ctx_.path, ctx_.path}}), 0);
    EXPECT_EQ(path(), "ns1:a[a = 'a']/a");
}

TEST_F(XpathPrepend, SurvivesTheFailureOfEveryAllocation) {
    const struct {
        std::vector<std::string> live;  // afterwards
        name_list aliases;
    } expected[] = {
        {{"hash map", path_text}, {}},
        {{"hash map", path_text}, {}},
        {{key_text, "hash map", alias_text, path_text}, {{"urn:a", "ns1"}}},
    };
    ASSERT_EQ(prepend(ctx_, "b"), 0);
    std::uint64_t failing = 0;
    for (const auto &each : expected) {
        recorder().fail_nothing();
        recorder().fail_allocation(++failing);
        EXPECT_EQ(prepend(ctx_, "a", "urn:a", {{"k", "v"}}), ENOMEM);
        EXPECT_EQ(path(), "b");
        EXPECT_EQ(recorder().live_blocks(), each.live);
        EXPECT_EQ(aliases(), each.aliases);
    }
    EXPECT_EQ(prepend(ctx_, "a", "urn:a", {{"k", "v"}}), 0);
    EXPECT_EQ(path(), "ns1:a[k = 'v']/b");
}

TEST_F(XpathPrepend, NeedsNoMoreThanThreeAllocations) {
    ASSERT_EQ(prepend(ctx_, "b"), 0);
    recorder().forget();
    ASSERT_EQ(prepend(ctx_, "a", "urn:a", {{"k", "v"}}), 0);
    EXPECT_THAT(recorder().allocation_texts(), ElementsAre(alias_text, key_text, path_text));
}

TEST_F(XpathPrepend, ReleasesAnAliasThatTheMapRefuses) {
    ASSERT_EQ(prepend(ctx_, "b"), 0);
    recorder().forget();
    recorder().fail("umbra_hashmap_insert");
    EXPECT_EQ(prepend(ctx_, "a", "urn:a"), ENOMEM);
    EXPECT_THAT(recorder().allocation_texts(), ElementsAre(alias_text, key_text));
    EXPECT_THAT(recorder().live_blocks(), ElementsAre("hash map", path_text));
    EXPECT_EQ(path(), "b");
    EXPECT_EQ(prepend(ctx_, "a", "urn:a"), 0);
    EXPECT_EQ(path(), "ns1:a/b");
}

TEST_F(XpathPrepend, MakesNoAliasWhileMemoryIsShort) {
    ASSERT_EQ(prepend(ctx_, "c", "urn:c"), 0);
    nyx_util_set_mem_state(1);
    EXPECT_EQ(prepend(ctx_, "a", "urn:a"), ENOMEM);
    EXPECT_THAT(recorder().live_blocks(), ElementsAre(key_text, "hash map", alias_text, path_text));
    EXPECT_EQ(prepend(ctx_, "b", "urn:c", {{"k", "v"}}), 0) << "all that it takes is the path";
    EXPECT_EQ(prepend(ctx_, "a"), 0);
    EXPECT_EQ(path(), "a/ns1:b[k = 'v']/ns1:c");
}

TEST_F(XpathPrepend, BuildsLongPaths) {
    std::minstd_rand random(5);
    const std::string bytes = "ab'\"[]/%$ =\x80\xFF\n";
    const auto draw_text = [&random, &bytes](std::size_t most) {
        std::string text(random() % (most + 1), '\0');
        for (char &each : text) {
            each = bytes[random() % bytes.size()];
        }
        return text;
    };
    ASSERT_EQ(prepend(ctx_, "b", "urn:1"), 0);
    ASSERT_EQ(prepend(ctx_, "a", "urn:2"), 0);
    std::string expected = "ns2:a/ns1:b";
    for (int step = 0; step < 600; ++step) {
        const std::string name = draw_text(20);
        const std::size_t ns = random() % 3;
        std::vector<std::pair<std::string, std::string>> keys(random() % 4);
        key_list key_pointers;
        std::string front = ns == 0 ? name : "ns" + std::to_string(ns) + ":" + name;
        for (auto &[key, text] : keys) {
            key = draw_text(8);
            text = draw_text(8);
            key_pointers.emplace_back(key.c_str(), text.c_str());
            front += &key == &keys.front().first ? "[" : " and ";
            front.append(key).append(" = '").append(text).append("'");
        }
        front += keys.empty() ? "" : "]";
        expected = front.append("/").append(expected);
        const std::string ns_name = "urn:" + std::to_string(ns);
        ASSERT_EQ(prepend(ctx_, name.c_str(), ns == 0 ? nullptr : ns_name.c_str(), key_pointers), 0);
        ASSERT_EQ(path(), expected);
    }
    EXPECT_THAT(aliases(), SizeIs(2));
}

TEST_F(XpathPrepend, TakesTextsOfAMegabyte) {
    const std::string name(1U << 20, 'n');
    const std::string ns(1U << 20, 'u');
    const std::string key(1U << 20, 'k');
    const std::string text(1U << 20, 'v');
    ASSERT_EQ(prepend(ctx_, "leaf"), 0);
    ASSERT_EQ(prepend(ctx_, name.c_str(), ns.c_str(), {{key.c_str(), text.c_str()}, {"k", "v"}}), 0);
    EXPECT_TRUE(path() == "ns1:" + name + "[" + key + " = '" + text + "' and k = 'v']/leaf");
    EXPECT_EQ(aliases()[0].first, ns);
}

// Aliases

TEST_F(XpathAliases, AreNumberedInTheOrderOfTheirFirstUse) {
    constexpr int count = 300;
    std::string expected;
    for (int i = 0; i < count; ++i) {
        const std::string ns = "urn:" + std::to_string(i * 7 % count);
        ASSERT_EQ(prepend(ctx_, "s", ns.c_str()), 0);
        ASSERT_EQ(prepend(ctx_, "r", ns.c_str()), 0);
        const std::string alias = "ns" + std::to_string(i + 1);
        std::string steps = alias;
        steps.append(":r/").append(alias).append(i == 0 ? ":s" : ":s/");
        expected = steps.append(expected);
    }
    EXPECT_EQ(path(), expected);
    const name_list found = aliases();
    ASSERT_THAT(found, SizeIs(count));
    for (int i = 0; i < count; ++i) {
        EXPECT_THAT(found[static_cast<std::size_t>(i)],
                    Pair("urn:" + std::to_string(i * 7 % count), "ns" + std::to_string(i + 1)));
    }
}

TEST_F(XpathAliases, AreMadeForAnEmptyNamespaceToo) {
    ASSERT_EQ(prepend(ctx_, "a", ""), 0);
    EXPECT_EQ(path(), "ns1:a");
    EXPECT_THAT(aliases(), ElementsAre(Pair("", "ns1")));
}

TEST_F(XpathAliases, TellNamespacesApartByTheirWholeText) {
    for (const char *const ns : {"urn:a", "urn:a ", "urn", "URN:A", "urn:a"}) {
        ASSERT_EQ(prepend(ctx_, "x", ns), 0);
    }
    EXPECT_EQ(path(), "ns1:x/ns4:x/ns3:x/ns2:x/ns1:x");
}

TEST_F(XpathAliases, KeepACopyOfTheNamespace) {
    std::string ns = "urn:a";
    ASSERT_EQ(prepend(ctx_, "a", ns.c_str()), 0);
    ns = "gone!";
    ASSERT_EQ(prepend(ctx_, "b", "urn:a"), 0);
    EXPECT_EQ(path(), "ns1:b/ns1:a");
}

TEST_F(XpathAliases, OfTheCallerAreUsed) {
    ASSERT_NE(umbra_hashmap_insert(ctx_.namespace_aliases, nyx_strdup2("urn:if", "key"), nyx_strdup2("if", "value")),
              0);
    ASSERT_EQ(prepend(ctx_, "mtu", "urn:if"), 0);
    ASSERT_EQ(prepend(ctx_, "a", "urn:a"), 0);
    EXPECT_EQ(path(), "ns2:a/if:mtu") << "numbered by what is in the map";
}

TEST_F(XpathAliases, ThatAreNullAreRefused) {
    ASSERT_EQ(prepend(ctx_, "a"), 0);
    ASSERT_NE(umbra_hashmap_insert(ctx_.namespace_aliases, nyx_strdup2("urn:a", "key"), nullptr), 0);
    recorder().forget();
    EXPECT_EQ(prepend(ctx_, "b", "urn:a"), EINVAL);
    EXPECT_THAT(recorder().allocations(), IsEmpty());
    EXPECT_EQ(path(), "a");
}

// Error paths

TEST_F(XpathToNyxError, WritesThePathAndTheAliases) {
    ASSERT_EQ(prepend(ctx_, "mtu", "urn:b"), 0);
    ASSERT_EQ(prepend(ctx_, "interface", "urn:a", {{"name", "eth0"}}), 0);
    recorder().forget();
    EXPECT_EQ(xpath_to_nyx_error(&ctx_, &error_), 0);
    EXPECT_STREQ(node().value, "ns2:interface[name = 'eth0']/ns1:mtu");
    EXPECT_THAT(attributes(), ElementsAre(Pair("urn:b", "xmlns:ns1"), Pair("urn:a", "xmlns:ns2")));
    EXPECT_THAT(recorder().allocation_texts(),
                ElementsAre(copy_text, array_text, value_text, name_text, value_text, name_text));
    EXPECT_EQ(recorder().calls("umbra_named_calloc_"),
              calls_of(called("umbra_named_calloc_", 2, sizeof(quill_nyx_attribute), array_text)));
    EXPECT_EQ(recorder().size_of(node().value), std::strlen(node().value) + 1);
    EXPECT_EQ(recorder().size_of(node().attributes[1].key), sizeof "xmlns:ns2");
    EXPECT_EQ(recorder().size_of(node().attributes[1].value), sizeof "urn:a");
}

TEST_F(XpathToNyxError, MarksWhatItWritesAndNothingElse) {
    quill_nyx_error expected;  // padding included
    std::memset(&expected, 0, sizeof expected);
    std::memset(&error_, 0, sizeof error_);
    ASSERT_EQ(prepend(ctx_, "a", "urn:a"), 0);
    ASSERT_EQ(xpath_to_nyx_error(&ctx_, &error_), 0);
    expected.error_path.value = node().value;
    expected.error_path.has_value = 1;
    expected.error_path.attributes = node().attributes;
    expected.error_path.attributes_count = 1;
    expected.error_path.has_attributes = 1;
    EXPECT_EQ(bytes_of(error_), bytes_of(expected));
}

TEST_F(XpathToNyxError, WritesTheValueAloneWithoutAliases) {
    ASSERT_EQ(prepend(ctx_, "mtu"), 0);
    recorder().forget();
    EXPECT_EQ(xpath_to_nyx_error(&ctx_, &error_), 0);
    EXPECT_STREQ(node().value, "mtu");
    EXPECT_EQ(node().has_value, 1);
    EXPECT_EQ(node().attributes, nullptr);
    EXPECT_EQ(node().attributes_count, 0U);
    EXPECT_EQ(node().has_attributes, 0);
    EXPECT_THAT(recorder().allocation_texts(), ElementsAre(copy_text));
}

TEST_F(XpathToNyxError, RefusesNullArguments) {
    EXPECT_EQ(xpath_to_nyx_error(nullptr, &error_), EINVAL);
    EXPECT_EQ(xpath_to_nyx_error(&ctx_, nullptr), EINVAL);
    EXPECT_THAT(recorder().calls(), IsEmpty());
    EXPECT_EQ(node().has_value, 0);
}

TEST_F(XpathToNyxError, KeepsAValueThatIsThere) {
    ASSERT_EQ(prepend(ctx_, "a", "urn:a"), 0);
    error_.error_path.value = nyx_strdup2("/first", "the first path");
    error_.error_path.has_value = 1;
    const std::string before = bytes_of(error_);
    recorder().forget();
    EXPECT_EQ(xpath_to_nyx_error(&ctx_, &error_), EINVAL);
    EXPECT_THAT(recorder().calls(), IsEmpty());
    EXPECT_EQ(bytes_of(error_), before);
    EXPECT_STREQ(node().value, "/first");
    EXPECT_EQ(path(), "ns1:a");
}

TEST_F(XpathToNyxError, TakesANullOrUnmarkedValueForNone) {
    ASSERT_EQ(prepend(ctx_, "a"), 0);
    error_.error_path.has_value = 1;
    EXPECT_EQ(xpath_to_nyx_error(&ctx_, &error_), 0);
    EXPECT_STREQ(node().value, "a");
    char unmarked[] = "not there";
    quill_nyx_error other = {};
    other.error_path.value = unmarked;
    EXPECT_EQ(xpath_to_nyx_error(&ctx_, &other), 0);
    EXPECT_STREQ(other.error_path.value, "a");
    EXPECT_EQ(other.error_path.has_value, 1);
    quill_nyx_error_free_ext(&other, nyx_gpb_free, nullptr, 0);
}

TEST_F(XpathToNyxError, KeepsAttributesThatAreThere) {
    ASSERT_EQ(prepend(ctx_, "a", "urn:a"), 0);
    quill_nyx_attribute there = {};
    error_.error_path.attributes = &there;  // neither counted nor marked
    recorder().forget();
    EXPECT_EQ(xpath_to_nyx_error(&ctx_, &error_), EINVAL);
    EXPECT_STREQ(node().value, "ns1:a") << "written before";
    EXPECT_EQ(node().has_value, 1);
    EXPECT_EQ(node().attributes, &there);
    EXPECT_EQ(node().attributes_count, 0U);
    EXPECT_EQ(node().has_attributes, 0);
    EXPECT_THAT(recorder().allocation_texts(), ElementsAre(copy_text));
    error_.error_path.attributes = nullptr;
}

TEST_F(XpathToNyxError, RefusesAttributesAlsoWithoutAliases) {
    ASSERT_EQ(prepend(ctx_, "a"), 0);
    quill_nyx_attribute there = {};
    error_.error_path.attributes = &there;
    EXPECT_EQ(xpath_to_nyx_error(&ctx_, &error_), EINVAL);
    EXPECT_STREQ(node().value, "a");
    error_.error_path.attributes = nullptr;
}

TEST_F(XpathToNyxError, MarksTheMissingValueOfAnEmptyContext) {
    EXPECT_EQ(xpath_to_nyx_error(&ctx_, &error_), 0);
    EXPECT_EQ(node().has_value, 1);
    EXPECT_EQ(node().value, nullptr);
    EXPECT_THAT(recorder().allocations(), IsEmpty());
}

TEST_F(XpathToNyxError, LeavesTheContextForFurtherUse) {
    ASSERT_EQ(prepend(ctx_, "b", "urn:b"), 0);
    ASSERT_EQ(xpath_to_nyx_error(&ctx_, &error_), 0);
    ASSERT_EQ(prepend(ctx_, "a", "urn:a"), 0);
    EXPECT_EQ(path(), "ns2:a/ns1:b");
    quill_nyx_error other = {};
    ASSERT_EQ(xpath_to_nyx_error(&ctx_, &other), 0);
    EXPECT_STREQ(other.error_path.value, "ns2:a/ns1:b");
    EXPECT_EQ(other.error_path.attributes_count, 2U);
    xpath_context_destroy(&ctx_);
    EXPECT_STREQ(node().value, "ns1:b") << "a copy";
    EXPECT_THAT(attributes(), ElementsAre(Pair("urn:b", "xmlns:ns1")));
    quill_nyx_error_free_ext(&other, nyx_gpb_free, nullptr, 0);
}

TEST_F(XpathToNyxError, GoesOnWithoutMemoryForTheValue) {
    ASSERT_EQ(prepend(ctx_, "a", "urn:a"), 0);
    recorder().fail_allocation(1);
    EXPECT_EQ(xpath_to_nyx_error(&ctx_, &error_), 0);
    EXPECT_EQ(node().value, nullptr);
    EXPECT_EQ(node().has_value, 1);
    EXPECT_THAT(attributes(), ElementsAre(Pair("urn:a", "xmlns:ns1")));
}

// What was copied before memory ran out is lost: neither attached nor released.
TEST_F(XpathToNyxError, LeavesTheAttributesBehindWhenACopyFails) {
    ASSERT_EQ(prepend(ctx_, "b", "urn:b"), 0);
    ASSERT_EQ(prepend(ctx_, "a", "urn:a"), 0);
    const std::vector<std::vector<std::string>> left = {
        {},                                              // the array failed
        {array_text},                                    // the first value
        {array_text, value_text},                        // the first name
        {array_text, value_text, name_text},             // the second value
        {array_text, value_text, name_text, value_text}  // the second name
    };
    for (std::size_t i = 0; i < left.size(); ++i) {
        quill_nyx_error_free_ext(&error_, nyx_gpb_free, nullptr, 0);
        error_ = {};
        std::vector<std::string> expected = recorder().live_blocks();
        expected.emplace_back(copy_text);
        expected.insert(expected.end(), left[i].begin(), left[i].end());
        recorder().fail_nothing();
        recorder().forget();
        recorder().fail_allocation(i + 2);
        EXPECT_EQ(xpath_to_nyx_error(&ctx_, &error_), ENOMEM);
        EXPECT_THAT(recorder().allocations(), SizeIs(i + 2)) << "nothing more is tried";
        EXPECT_THAT(recorder().live_blocks(), testing::UnorderedElementsAreArray(expected));
        EXPECT_THAT(recorder().calls("umbra_named_free"), IsEmpty());
        EXPECT_STREQ(node().value, "ns2:a/ns1:b");
        EXPECT_EQ(node().has_value, 1);
        EXPECT_EQ(node().attributes, nullptr);
        EXPECT_EQ(node().attributes_count, 0U);
        EXPECT_EQ(node().has_attributes, 0);
        release_what_was_left_behind();
    }
    recorder().fail_nothing();
    quill_nyx_error_free_ext(&error_, nyx_gpb_free, nullptr, 0);
    error_ = {};
    recorder().forget();
    EXPECT_EQ(xpath_to_nyx_error(&ctx_, &error_), 0);
    EXPECT_THAT(recorder().allocations(), SizeIs(left.size() + 1)) << "all of them have failed once";
}

TEST_F(XpathToNyxError, DeclaresNothingWhileMemoryIsShort) {
    ASSERT_EQ(prepend(ctx_, "a", "urn:a"), 0);
    std::vector<std::string> expected = recorder().live_blocks();
    expected.emplace_back(array_text);
    nyx_util_set_mem_state(1);
    recorder().forget();
    EXPECT_EQ(xpath_to_nyx_error(&ctx_, &error_), ENOMEM);
    EXPECT_EQ(node().value, nullptr);
    EXPECT_EQ(node().has_value, 1);
    EXPECT_EQ(node().attributes, nullptr);
    EXPECT_THAT(recorder().live_blocks(), testing::UnorderedElementsAreArray(expected));
    release_what_was_left_behind();
}

TEST_F(XpathToNyxError, CannotDeclareANullAlias) {
    ASSERT_NE(umbra_hashmap_insert(ctx_.namespace_aliases, nyx_strdup2("urn:a", "key"), nullptr), 0);
    recorder().forget();
    EXPECT_EQ(xpath_to_nyx_error(&ctx_, &error_), ENOMEM);
    EXPECT_THAT(recorder().live_blocks(), testing::UnorderedElementsAre("hash map", "key", array_text, value_text));
    EXPECT_EQ(node().attributes, nullptr);
    release_what_was_left_behind();
}

TEST_F(XpathToNyxError, TravelsInAMessage) {
    ASSERT_EQ(prepend(ctx_, "mtu", "urn:b"), 0);
    ASSERT_EQ(prepend(ctx_, "interface", "urn:a", {{"name", "eth0"}}), 0);
    ASSERT_EQ(xpath_to_nyx_error(&ctx_, &error_), 0);
    const std::uint64_t size = quill_nyx_error_encode_ext(&error_, nullptr, 0, nullptr, nullptr, 0);
    std::vector<std::uint8_t> message(size);
    ASSERT_EQ(quill_nyx_error_encode_ext(&error_, message.data(), size, nullptr, nullptr, 0), size);
    quill_nyx_error_free_ext(&error_, nyx_gpb_free, nullptr, 0);
    error_ = {};
    ASSERT_EQ(quill_nyx_error_decode_ext(&error_, message.data(), size, nyx_gpb_alloc, nullptr, 0), 0);
    EXPECT_STREQ(node().value, "ns2:interface[name = 'eth0']/ns1:mtu");
    EXPECT_THAT(attributes(), ElementsAre(Pair("urn:b", "xmlns:ns1"), Pair("urn:a", "xmlns:ns2")));
    EXPECT_EQ(node().has_name, 0);
}

}  // namespace
