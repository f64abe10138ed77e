#include "session_numbers.h"

#include <gtest/gtest.h>

#include "records.h"

using namespace request_path;

namespace {

struct SessionNumbers : testing::Test {
    SessionNumbers() {
        sessions.open(1, 4000000000);
        sessions.open(2, 17);
    }

    session_numbers sessions;
};

// The error of a result whose information holds one entry.
struct error_of_one {
    error_of_one(const char *name, const char *value) {
        error().error_info.children = make_records<quill_nyx_datatree>(1);
        error().error_info.children_count = 1;
        error().error_info.children[0].name = copy_string(name);
        error().error_info.children[0].value = value == nullptr ? nullptr : copy_string(value);
    }

    quill_nyx_error &error() { return result.record.error; }
    const char *value() { return error().error_info.children[0].value; }

    owned_result result;
};

}  // namespace

TEST_F(SessionNumbers, FindsTheOneByTheOther) {
    EXPECT_EQ(sessions.id_of(1), 4000000000);
    EXPECT_EQ(sessions.id_of(2), 17u);
    EXPECT_EQ(sessions.number_of(4000000000), 1u);
    EXPECT_EQ(sessions.number_of(17), 2u);
}

TEST_F(SessionNumbers, KnowsNothingOfOtherSessions) {
    EXPECT_EQ(sessions.id_of(3), std::nullopt);
    EXPECT_EQ(sessions.number_of(18), no_session);
}

TEST_F(SessionNumbers, UnknownIdIsThatOfNoSession) {
    EXPECT_EQ(sessions.unknown_id(), 1u);
    sessions.open(3, 1);
    sessions.open(4, 2);
    EXPECT_EQ(sessions.unknown_id(), 3u);
}

TEST_F(SessionNumbers, ClosedSessionKeepsItsNumberButNoId) {
    sessions.close(17);
    EXPECT_EQ(sessions.id_of(2), no_session);
    EXPECT_EQ(sessions.number_of(17), no_session);
    EXPECT_EQ(sessions.number_of(no_session), no_session);
    EXPECT_EQ(sessions.id_of(1), 4000000000);
}

TEST_F(SessionNumbers, IdOfAClosedSessionMayBecomeAnothersId) {
    sessions.close(17);
    sessions.open(3, 17);
    EXPECT_EQ(sessions.number_of(17), 3u);
    EXPECT_EQ(sessions.id_of(2), no_session);
}

TEST_F(SessionNumbers, ErrorNamesTheNumber) {
    error_of_one shown("session-id", "4000000000");
    name_sessions(shown.error(), sessions);
    EXPECT_STREQ(shown.value(), "1");
}

TEST_F(SessionNumbers, ErrorNamesNoSessionOfAnotherAgent) {
    error_of_one shown("session-id", "18");
    name_sessions(shown.error(), sessions);
    EXPECT_STREQ(shown.value(), "0");
}

TEST_F(SessionNumbers, LeavesOtherInformationAlone) {
    error_of_one other("bad-element", "17");
    name_sessions(other.error(), sessions);
    EXPECT_STREQ(other.value(), "17");
}

TEST_F(SessionNumbers, LeavesAloneWhatIsNoId) {
    for (const char *text : {"17x", "", "-17", "99999999999"}) {
        error_of_one strange("session-id", text);
        name_sessions(strange.error(), sessions);
        EXPECT_STREQ(strange.value(), text);
    }
    error_of_one empty("session-id", nullptr);
    name_sessions(empty.error(), sessions);
    EXPECT_EQ(empty.value(), nullptr);
}

TEST_F(SessionNumbers, TakesAnErrorWithoutInformation) {
    owned_result result;
    name_sessions(result.record.error, sessions);
    EXPECT_EQ(result.record.error.error_info.children, nullptr);
}
