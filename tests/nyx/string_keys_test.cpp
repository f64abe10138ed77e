// Texts as keys of the platform's hash map.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "frame_fixture.h"
#include "nyx_api_common.h"
#include "umbra/hash.h"
#include "umbra/hashmap.h"

namespace {

using nyx_test::called;
using nyx_test::calls_of;
using nyx_test::recorder;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::uint64_t max_length = 0x7FFFFFFFFFFFFFFF;

using StringKeys = nyx_test::frame_test;

TEST_F(StringKeys, HashIsThePlatformsOfTheTextWithoutItsTerminator) {
    for (const std::string &text :
         {std::string(), std::string("a"), std::string("urn:ietf:params"), std::string(1000, '\xE9')}) {
        recorder().forget();
        const std::uint32_t hash = nyx_string_hash_calc(text.c_str());
        EXPECT_EQ(recorder().calls(),
                  calls_of(called("strnlen_s", text.c_str(), max_length),
                           called("umbra_hash_calculate", static_cast<const void *>(text.c_str()), text.size())));
        EXPECT_EQ(hash, umbra_hash_calculate(text.data(), static_cast<std::uint32_t>(text.size())));
    }
}

TEST_F(StringKeys, HashPassesThePlatformsNumberOn) {
    recorder().fail("umbra_hash_calculate", 1, 0xFEDCBA98);
    EXPECT_EQ(nyx_string_hash_calc("text"), 0xFEDCBA98U);
}

TEST_F(StringKeys, HashCutsTheLengthTo32Bits) {
    recorder().fail("strnlen_s", 1, 0x1'0000'0002);
    EXPECT_EQ(nyx_string_hash_calc("text"), umbra_hash_calculate("te", 2));
}

TEST_F(StringKeys, HashOfNullIsZero) {
    EXPECT_EQ(nyx_string_hash_calc(nullptr), 0U);
    EXPECT_THAT(recorder().calls(), IsEmpty());
}

TEST_F(StringKeys, ComparesWholeTexts) {
    const std::vector<std::string> texts = {
        "", "a", "b", "ab", "abc", "A", "\xE9", std::string(5000, 'x'), std::string(4999, 'x') + "y"};
    for (const std::string &a : texts) {
        for (const std::string &b : texts) {
            const std::vector<char> elsewhere(b.c_str(), b.c_str() + b.size() + 1);
            EXPECT_EQ(nyx_string_hash_cmp(a.c_str(), elsewhere.data()), a == b ? 1 : 0) << a << ' ' << b;
        }
    }
}

TEST_F(StringKeys, ComparisonIsTheBoundedOne) {
    const std::string a = "text";
    const std::string b = "text";
    EXPECT_EQ(nyx_string_hash_cmp(a.c_str(), b.c_str()), 1);
    ASSERT_THAT(recorder().functions(), ElementsAre("strcmp_s"));
    const std::vector<nyx_test::value> &arguments = recorder().calls()[0].arguments;
    EXPECT_EQ(arguments[0].bits, reinterpret_cast<std::uintptr_t>(a.c_str()));
    EXPECT_EQ(arguments[1].bits, max_length);
    EXPECT_EQ(arguments[2].bits, reinterpret_cast<std::uintptr_t>(b.c_str()));
}

TEST_F(StringKeys, NullEqualsNothing) {
    EXPECT_EQ(nyx_string_hash_cmp(nullptr, "text"), 0);
    EXPECT_EQ(nyx_string_hash_cmp("text", nullptr), 0);
    EXPECT_EQ(nyx_string_hash_cmp(nullptr, nullptr), 0);
}

TEST_F(StringKeys, FailedComparisonIsUnequal) {
    for (const int code : {400, 401, 403, 3}) {
        recorder().fail("strcmp_s", 1, code);
        EXPECT_EQ(nyx_string_hash_cmp("text", "text"), 0);
        recorder().fail_nothing();
    }
}

TEST_F(StringKeys, ServeTheHashMap) {
    umbra_hashmap *map = nullptr;
    ASSERT_EQ(umbra_hashmap_create(&map, 0, nyx_string_hash_calc, nyx_string_hash_cmp, 0), 0);
    std::vector<std::string> keys(500, "urn:example:");
    for (std::size_t i = 0; i < keys.size(); ++i) {
        keys[i] += std::to_string(i);
    }
    for (std::string &key : keys) {
        EXPECT_EQ(umbra_hashmap_insert(map, key.data(), key.data()), 1);
    }
    for (const std::string &key : keys) {
        std::string same = key;  // elsewhere in memory
        EXPECT_EQ(umbra_hashmap_insert(map, same.data(), nullptr), 0);
        umbra_hashmap_entry *const entry = umbra_hashmap_get(map, same.c_str());
        ASSERT_NE(entry, nullptr);
        EXPECT_EQ(umbra_hashmap_value(entry), key.data());
        EXPECT_EQ(umbra_hashmap_get(map, (key + 'x').c_str()), nullptr);
    }
    EXPECT_EQ(umbra_hashmap_get(map, "urn:example:"), nullptr);
    umbra_hashmap_free(map);
}

}  // namespace
