// XPath expressions on the platform that the library comes with.
#include <gtest/gtest.h>
#include <nyx_api_common.h>
#include <umbra/named_alloc.h>

#include <cstdint>
#include <string>

namespace {

std::uint64_t live_blocks() {
    umbra_named_usage usage = {};
    umbra_named_total(&usage);
    return usage.live_blocks;
}

std::uint64_t live_blocks_of(const char *description) {
    umbra_named_usage usage = {};
    EXPECT_EQ(umbra_named_usage_of(description, &usage), 0) << description;
    return usage.live_blocks;
}

TEST(BundledXpath, NamesANodeInAnErrorPath) {
    const std::uint64_t before = live_blocks();
    xpath_context path;
    ASSERT_EQ(xpath_context_init(&path), 0);
    const char *const keys[] = {"name"};
    const char *const values[] = {"eth0"};
    ASSERT_EQ(xpath_prepend(&path, "mtu", "urn:example:mtu", nullptr, nullptr, 0), 0);
    ASSERT_EQ(xpath_prepend(&path, "interface", "urn:example:interfaces", keys, values, 1), 0);
    ASSERT_EQ(xpath_prepend(&path, "interfaces", "urn:example:interfaces", nullptr, nullptr, 0), 0);
    quill_nyx_request_result result = {};
    ASSERT_EQ(xpath_to_nyx_error(&path, &result.error), 0);
    xpath_context_destroy(&path);

    const quill_nyx_datatree &node = result.error.error_path;
    EXPECT_STREQ(node.value, "ns2:interfaces/ns2:interface[name = 'eth0']/ns1:mtu");
    ASSERT_EQ(node.attributes_count, 2U);
    EXPECT_STREQ(node.attributes[0].key, "xmlns:ns1");
    EXPECT_STREQ(node.attributes[0].value, "urn:example:mtu");
    EXPECT_STREQ(node.attributes[1].key, "xmlns:ns2");
    EXPECT_STREQ(node.attributes[1].value, "urn:example:interfaces");
    EXPECT_EQ(live_blocks_of("copy of xpath path"), 1U);
    EXPECT_EQ(live_blocks_of("query transformer namespace attributes"), 1U);
    EXPECT_EQ(live_blocks_of("prepended 'xmlns:' to xpath namespace value"), 2U);
    EXPECT_EQ(live_blocks_of("xpath error string"), 0U);
    quill_nyx_request_result_free_ext(&result, nyx_gpb_free, nullptr, 0);
    EXPECT_EQ(live_blocks(), before);
}

TEST(BundledXpath, KeepsTheOrderOfManyNamespaces) {
    constexpr std::uint32_t count = 5000;
    const std::uint64_t before = live_blocks();
    xpath_context path;
    ASSERT_EQ(xpath_context_init(&path), 0);
    for (std::uint32_t i = 0; i < count; ++i) {
        ASSERT_EQ(xpath_prepend(&path, "s", ("urn:" + std::to_string(i * 7 % count)).c_str(), nullptr, nullptr, 0), 0);
    }
    quill_nyx_error error = {};
    ASSERT_EQ(xpath_to_nyx_error(&path, &error), 0);
    xpath_context_destroy(&path);
    ASSERT_EQ(error.error_path.attributes_count, count);
    for (std::uint32_t i = 0; i < count; ++i) {
        ASSERT_EQ(error.error_path.attributes[i].key, "xmlns:ns" + std::to_string(i + 1));
        ASSERT_EQ(error.error_path.attributes[i].value, "urn:" + std::to_string(i * 7 % count));
    }
    EXPECT_EQ(std::string(error.error_path.value).substr(0, 21), "ns5000:s/ns4999:s/ns4");
    quill_nyx_error_free_ext(&error, nyx_gpb_free, nullptr, 0);
    EXPECT_EQ(live_blocks(), before);
}

}  // namespace
