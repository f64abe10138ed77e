// The tree of flags: registration, sharing, switching, destruction, handles that have gone, and how it is shown.
#include <errno.h>
#include <gtest/gtest.h>
#include <umbra/debug_trace.h>
#include <unistd.h>

#include <set>
#include <string>
#include <vector>

namespace {

uint64_t make(const char *name, uint64_t parent = 0) {
    uint64_t flag = 0;
    EXPECT_EQ(umbra_dt_flag_init(&flag, name, parent, 0, 0), 0) << name;
    EXPECT_NE(flag, 0U);
    return flag;
}

std::vector<umbra_dt_flag_info> all_flags() {
    std::vector<umbra_dt_flag_info> flags(umbra_dt_flags(nullptr, 0));
    EXPECT_EQ(umbra_dt_flags(flags.data(), flags.size()), flags.size());
    return flags;
}

// The tree as text, such as "a+ a/b- " with + for on, ~ for held and - for off.
std::string tree() {
    std::string text;
    for (const umbra_dt_flag_info &info : all_flags()) {
        text += std::string(info.path) + (info.is_on != 0 ? "+ " : info.is_enabled != 0 ? "~ " : "- ");
    }
    return text;
}

class DebugFlag : public testing::Test {
  protected:
    // Each test begins and ends with an empty tree.
    void SetUp() override { EXPECT_EQ(tree(), ""); }
    void TearDown() override {
        for (std::vector<umbra_dt_flag_info> flags = all_flags(); !flags.empty(); flags = all_flags()) {
            EXPECT_EQ(umbra_dt_flag_destroy(flags.front().flag), 0);
        }
    }
};

TEST_F(DebugFlag, IsOffAtFirst) {
    const uint64_t agent = make("agent");
    make("error", agent);
    EXPECT_EQ(tree(), "agent- agent/error- ");
}

TEST_F(DebugFlag, RefusesBadNames) {
    uint64_t flag = 7;
    EXPECT_EQ(umbra_dt_flag_init(nullptr, "name", 0, 0, 0), EINVAL);
    EXPECT_EQ(umbra_dt_flag_init(&flag, nullptr, 0, 0, 0), EINVAL);
    EXPECT_EQ(flag, 0U);
    flag = 7;
    EXPECT_EQ(umbra_dt_flag_init(&flag, "", 0, 0, 0), EINVAL);
    EXPECT_EQ(flag, 0U);
    EXPECT_EQ(umbra_dt_flag_init(&flag, std::string(128, 'n').c_str(), 0, 0, 0), EINVAL);
    EXPECT_EQ(tree(), "");
    make(std::string(127, 'n').c_str());
    EXPECT_EQ(tree(), std::string(127, 'n') + "- ");
}

TEST_F(DebugFlag, RefusesWhatIsNotZeroInThePlaceOfZeros) {
    uint64_t flag = 7;
    EXPECT_EQ(umbra_dt_flag_init(&flag, "agent", 0, 1, 0), EINVAL);
    EXPECT_EQ(flag, 0U);
    EXPECT_EQ(umbra_dt_flag_init(&flag, "agent", 0, 0, 1), EINVAL);
    EXPECT_EQ(tree(), "");
    EXPECT_EQ(umbra_dt_flag_enable(make("agent"), 1), EINVAL);
    EXPECT_EQ(tree(), "agent- ");
}

TEST_F(DebugFlag, RefusesAnUnknownParent) {
    const uint64_t agent = make("agent");
    uint64_t flag = 7;
    EXPECT_EQ(umbra_dt_flag_init(&flag, "error", agent + 1, 0, 0), EINVAL);
    EXPECT_EQ(umbra_dt_flag_init(&flag, "error", UINT64_MAX, 0, 0), EINVAL);
    EXPECT_EQ(umbra_dt_flag_init(&flag, "error", 1, 0, 0), EINVAL);
    EXPECT_EQ(flag, 0U);
    EXPECT_EQ(tree(), "agent- ");
}

TEST_F(DebugFlag, RefusesPathsThatAreTooLong) {
    const std::string name(127, 'p');
    const uint64_t third = make(name.c_str(), make(name.c_str(), make(name.c_str())));
    const uint64_t fourth = make(name.c_str(), third);
    uint64_t flag = 7;
    EXPECT_EQ(umbra_dt_flag_init(&flag, "x", fourth, 0, 0), ENAMETOOLONG);
    EXPECT_EQ(flag, 0U);
    EXPECT_EQ(all_flags().back().path, name + '/' + name + '/' + name + '/' + name);
}

TEST_F(DebugFlag, IsOnWhileAllAboveAreEnabled) {
    const uint64_t a = make("a");
    const uint64_t b = make("b", a);
    const uint64_t c = make("c", b);
    make("d", a);
    EXPECT_EQ(umbra_dt_flag_enable(c, 0), 0);
    EXPECT_EQ(tree(), "a- a/b- a/b/c~ a/d- ");
    umbra_dt_flag_enable(a, 0);
    EXPECT_EQ(tree(), "a+ a/b- a/b/c~ a/d- ");
    umbra_dt_flag_enable(b, 0);
    EXPECT_EQ(tree(), "a+ a/b+ a/b/c+ a/d- ");
    EXPECT_EQ(umbra_dt_flag_disable(a), 0);
    EXPECT_EQ(tree(), "a- a/b~ a/b/c~ a/d- ");
    umbra_dt_flag_enable(a, 0);
    EXPECT_EQ(tree(), "a+ a/b+ a/b/c+ a/d- ");
}

TEST_F(DebugFlag, SwitchesNothingBesideIt) {
    const uint64_t a = make("a");
    const uint64_t b = make("b");
    make("x", a);
    umbra_dt_flag_enable(make("x", b), 0);
    umbra_dt_flag_enable(a, 0);
    umbra_dt_flag_enable(b, 0);
    umbra_dt_flag_disable(a);
    EXPECT_EQ(tree(), "a- a/x- b+ b/x+ ");
}

TEST_F(DebugFlag, GoesWithAllBelow) {
    const uint64_t a = make("a");
    const uint64_t b = make("b", a);
    const uint64_t c = make("c", b);
    const uint64_t d = make("d", a);
    const uint64_t e = make("e");
    EXPECT_EQ(umbra_dt_flag_destroy(b), 0);
    EXPECT_EQ(tree(), "a- a/d- e- ");
    EXPECT_EQ(umbra_dt_flag_destroy(c), EINVAL);
    EXPECT_EQ(umbra_dt_flag_destroy(b), EINVAL);
    EXPECT_EQ(umbra_dt_flag_destroy(a), 0);
    EXPECT_EQ(tree(), "e- ");
    EXPECT_EQ(umbra_dt_flag_enable(d, 0), EINVAL);
    EXPECT_EQ(umbra_dt_flag_destroy(e), 0);
    EXPECT_EQ(umbra_dt_flag_destroy(0), EINVAL);
    EXPECT_EQ(umbra_dt_flag_enable(0, 0), EINVAL);
    EXPECT_EQ(umbra_dt_flag_disable(0), EINVAL);
}

TEST_F(DebugFlag, IsSharedWhenRegisteredAgain) {
    const uint64_t first = make("agent");
    umbra_dt_flag_enable(first, 0);
    const uint64_t error = make("error", first);
    const uint64_t second = make("agent");
    EXPECT_EQ(first, second);
    EXPECT_EQ(make("error", second), error);
    EXPECT_EQ(tree(), "agent+ agent/error- ");
    EXPECT_EQ(umbra_dt_flag_destroy(first), 0);
    EXPECT_EQ(tree(), "agent+ agent/error- ");
    // The one below is shared, too, but goes with the one above.
    EXPECT_EQ(umbra_dt_flag_destroy(second), 0);
    EXPECT_EQ(tree(), "");
    EXPECT_EQ(umbra_dt_flag_destroy(second), EINVAL);
}

TEST_F(DebugFlag, IsToldFromOthersOfItsNameByItsPlace) {
    const uint64_t a = make("a");
    const uint64_t b = make("b");
    EXPECT_NE(make("x", a), make("x", b));
    EXPECT_NE(make("a", a), a);
    EXPECT_EQ(tree(), "a- a/x- a/a- b- b/x- ");
}

TEST_F(DebugFlag, NeverTakesAnEarlierHandle) {
    std::set<uint64_t> handles;
    for (int i = 0; i < 1000; ++i) {
        const uint64_t flag = make("again and again");
        EXPECT_TRUE(handles.insert(flag).second);
        EXPECT_EQ(umbra_dt_flag_destroy(flag), 0);
    }
    make("again and again");
    for (const uint64_t stale : handles) {
        ASSERT_EQ(umbra_dt_flag_enable(stale, 0), EINVAL);
    }
    EXPECT_EQ(tree(), "again and again- ");
}

TEST_F(DebugFlag, FillsTheTreeToItsLimit) {
    const uint64_t agent = make("agent");
    uint64_t parent = agent;
    uint64_t flag = 0;
    for (uint32_t i = 1; i < UMBRA_DT_FLAGS_MAX; ++i) {
        if (i % 100 == 0) {
            parent = make(std::to_string(i).c_str(), agent);
            continue;
        }
        ASSERT_EQ(umbra_dt_flag_init(&flag, std::to_string(i).c_str(), parent, 0, 0), 0);
    }
    EXPECT_EQ(umbra_dt_flags(nullptr, 0), UMBRA_DT_FLAGS_MAX);
    EXPECT_EQ(umbra_dt_flag_init(&flag, "one more", 0, 0, 0), ENOSPC);
    EXPECT_EQ(umbra_dt_flag_destroy(parent), 0);
    make("one more");
    EXPECT_EQ(umbra_dt_flag_destroy(agent), 0);
    EXPECT_EQ(tree(), "one more- ");
}

TEST_F(DebugFlag, IsFoundByItsPath) {
    const uint64_t agent = make("agent");
    const uint64_t error = make("error", agent);
    const uint64_t odd = make("odd/name", agent);
    EXPECT_EQ(umbra_dt_flag_find("agent"), agent);
    EXPECT_EQ(umbra_dt_flag_find("agent/error"), error);
    EXPECT_EQ(umbra_dt_flag_find("agent/odd/name"), odd);
    EXPECT_EQ(umbra_dt_flag_find("error"), 0U);
    EXPECT_EQ(umbra_dt_flag_find("agent/"), 0U);
    EXPECT_EQ(umbra_dt_flag_find("/agent"), 0U);
    EXPECT_EQ(umbra_dt_flag_find(""), 0U);
    EXPECT_EQ(umbra_dt_flag_find(nullptr), 0U);
    umbra_dt_flag_destroy(error);
    EXPECT_EQ(umbra_dt_flag_find("agent/error"), 0U);
}

TEST_F(DebugFlag, IsListedWithItsHandles) {
    const uint64_t agent = make("agent");
    const uint64_t error = make("error", agent);
    umbra_dt_flag_enable(error, 0);
    std::vector<umbra_dt_flag_info> flags = all_flags();
    ASSERT_EQ(flags.size(), 2U);
    EXPECT_EQ(flags[0].flag, agent);
    EXPECT_EQ(flags[0].parent_flag, 0U);
    EXPECT_EQ(flags[0].is_enabled, 0U);
    EXPECT_EQ(flags[1].flag, error);
    EXPECT_EQ(flags[1].parent_flag, agent);
    EXPECT_EQ(flags[1].is_enabled, 1U);
    EXPECT_EQ(flags[1].is_on, 0U);
    flags[1].path[0] = '?';
    EXPECT_EQ(umbra_dt_flags(flags.data(), 1), 2U);
    EXPECT_EQ(flags[1].path[0], '?');
    EXPECT_EQ(umbra_dt_flags(nullptr, 5), 2U);
}

TEST_F(DebugFlag, IsPrintedInOneLine) {
    const uint64_t agent = make("agent");
    umbra_dt_flag_enable(make("error", agent), 0);
    make("two\nlines");
    umbra_dt_flag_enable(umbra_dt_flag_find("two\nlines"), 0);
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    EXPECT_EQ(umbra_dt_flags_print(ends[1]), 0);
    char text[200] = "";
    EXPECT_GT(read(ends[0], text, sizeof text - 1), 0);
    EXPECT_STREQ(text, "off   agent\nheld  agent/error\non    two\\nlines\n");
    EXPECT_EQ(umbra_dt_flags_print(-1), EBADF);
    close(ends[0]);
    close(ends[1]);
}

}  // namespace
