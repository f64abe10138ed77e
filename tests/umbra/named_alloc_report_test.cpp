// The report: its order, its limits, its printed form.
#include <errno.h>
#include <gtest/gtest.h>
#include <umbra/named_alloc.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

std::vector<umbra_named_usage> report() {
    std::vector<umbra_named_usage> entries(umbra_named_report(nullptr, 0));
    EXPECT_EQ(umbra_named_report(entries.data(), entries.size()), entries.size());
    return entries;
}

std::vector<std::string> names_of(const std::vector<umbra_named_usage> &entries) {
    std::vector<std::string> names;
    names.reserve(entries.size());
    for (const umbra_named_usage &entry : entries) {
        names.emplace_back(entry.description);
    }
    return names;
}

// What the report prints to a file.
std::string printed() {
    FILE *file = tmpfile();
    EXPECT_EQ(umbra_named_report_print(fileno(file)), 0);
    std::string text(static_cast<std::size_t>(ftell(file) >= 0 ? lseek(fileno(file), 0, SEEK_END) : 0), '\0');
    EXPECT_EQ(pread(fileno(file), text.data(), text.size(), 0), static_cast<ssize_t>(text.size()));
    fclose(file);
    return text;
}

void use(const std::string &description, uint64_t size = 1) {
    umbra_named_free(umbra_named_malloc_(size, description.c_str()));
}

TEST(NamedReport, IsOrderedByText) {
    for (const char *description : {"m", "b", "a", "z", "aa", "\xc3\xa4", "Z", ""}) {
        use(description);
    }
    const std::vector<std::string> names = names_of(report());
    EXPECT_TRUE(std::is_sorted(names.begin(), names.end()));
    EXPECT_NE(std::find(names.begin(), names.end(), "\xc3\xa4"), names.end());
    EXPECT_EQ(names.front(), "");
}

TEST(NamedReport, LeavesOutWhatWasNeverUsed) {
    use("used");
    for (const umbra_named_usage &entry : report()) {
        EXPECT_GT(entry.total_blocks, 0U) << entry.description;
        EXPECT_STRNE(entry.description, UMBRA_NAMED_OTHER);
    }
    umbra_named_usage usage;
    EXPECT_EQ(umbra_named_usage_of(UMBRA_NAMED_OTHER, &usage), ENOENT);
    EXPECT_EQ(umbra_named_usage_of("never used", &usage), ENOENT);
}

TEST(NamedReport, FillsNoMoreThanItsCapacity) {
    for (const char *description : {"1", "2", "3", "4"}) {
        use(description);
    }
    const std::vector<umbra_named_usage> all = report();
    std::vector<umbra_named_usage> some(all.size());
    const umbra_named_usage untouched = {"untouched", 1, 2, 3, 4, 5};
    for (std::size_t capacity = 0; capacity <= all.size(); ++capacity) {
        some.assign(all.size(), untouched);
        EXPECT_EQ(umbra_named_report(some.data(), capacity), all.size());
        for (std::size_t i = 0; i < all.size(); ++i) {
            EXPECT_STREQ(some[i].description, i < capacity ? all[i].description : "untouched");
        }
    }
    EXPECT_EQ(umbra_named_report(nullptr, 100), all.size());
}

TEST(NamedReport, AddsUp) {
    umbra_named_usage before;
    umbra_named_total(&before);
    void *first = umbra_named_malloc_(10, "summand one");
    void *second = umbra_named_malloc_(100, "summand two");
    umbra_named_free(first);
    umbra_named_usage after;
    umbra_named_total(&after);
    EXPECT_STREQ(after.description, "total");
    EXPECT_EQ(after.live_blocks - before.live_blocks, 1U);
    EXPECT_EQ(after.live_bytes - before.live_bytes, 100U);
    EXPECT_EQ(after.total_blocks - before.total_blocks, 2U);
    EXPECT_EQ(after.total_bytes - before.total_bytes, 110U);
    EXPECT_EQ(after.peak_bytes - before.peak_bytes, 110U);
    umbra_named_free(second);
    umbra_named_total(nullptr);
}

TEST(NamedReport, PrintsALineForEachDescription) {
    use("printed last", 2);
    void *block = umbra_named_malloc_(1234, "printed first");
    umbra_named_free(umbra_named_malloc_(66, "printed first"));
    const std::string text = printed();
    EXPECT_EQ(text.find(" live blocks     live bytes  total blocks    total bytes     peak bytes  description\n"), 0U);
    const std::size_t first =
        text.find("\n           1           1234             2           1300           1300  printed first\n");
    const std::size_t last =
        text.find("\n           0              0             1              2              2  printed last\n");
    EXPECT_NE(first, std::string::npos) << text;
    EXPECT_NE(last, std::string::npos) << text;
    EXPECT_LT(first, last);
    EXPECT_NE(text.find("  total\n"), std::string::npos);
    EXPECT_EQ(static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')), report().size() + 2);
    umbra_named_free(block);
}

TEST(NamedReport, KeepsADescriptionOnItsLine) {
    use(std::string(30, '\n') + "\x1b[31m" + std::string(28, '\x01'));
    const std::string text = printed();
    EXPECT_NE(text.find("  \\n\\n\\n"), std::string::npos) << text;
    EXPECT_NE(text.find("\\n\\x1b[31m\\x01\\x01"), std::string::npos) << text;
    EXPECT_EQ(text.find('\x1b'), std::string::npos);
    EXPECT_EQ(static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')), report().size() + 2);
}

TEST(NamedReport, TellsWhyItCouldNotPrint) {
    EXPECT_EQ(umbra_named_report_print(-1), EBADF);
}

TEST(NamedReport, TellsTenThousandDescriptionsApart) {
    constexpr unsigned count = 10000;
    std::vector<void *> blocks;
    for (unsigned i = 0; i < count; ++i) {
        blocks.push_back(umbra_named_malloc_(i, ("description " + std::to_string(i)).c_str()));
    }
    const std::vector<std::string> names = names_of(report());
    EXPECT_TRUE(std::is_sorted(names.begin(), names.end()));
    EXPECT_GE(names.size(), count);
    for (unsigned i = 0; i < count; ++i) {
        umbra_named_usage usage = {};
        ASSERT_EQ(umbra_named_usage_of(("description " + std::to_string(i)).c_str(), &usage), 0);
        ASSERT_EQ(usage.live_blocks, 1U);
        ASSERT_EQ(usage.live_bytes, i);
        umbra_named_free(blocks[i]);
    }
}

// After all others: it leaves no room for more descriptions.
TEST(NamedReportLimit, CountsFurtherDescriptionsUnderOther) {
    for (unsigned i = 0; i < UMBRA_NAMED_DESCRIPTIONS_MAX + 10; ++i) {
        use("limit " + std::to_string(i));
    }
    EXPECT_EQ(report().size(), static_cast<std::size_t>(UMBRA_NAMED_DESCRIPTIONS_MAX) + 1);
    umbra_named_usage usage = {};
    ASSERT_EQ(umbra_named_usage_of(UMBRA_NAMED_OTHER, &usage), 0);
    EXPECT_GE(usage.total_blocks, 10U);
    EXPECT_EQ(usage.live_blocks, 0U);
    void *block = umbra_named_malloc_(9, "one too many");
    EXPECT_STREQ(umbra_named_description(block), UMBRA_NAMED_OTHER);
    void *known = umbra_named_malloc_(9, "limit 0");
    EXPECT_STREQ(umbra_named_description(known), "limit 0");
    umbra_named_free(known);
    umbra_named_free(block);
}

}  // namespace
