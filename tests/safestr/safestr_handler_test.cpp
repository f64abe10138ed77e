// The constraint handler.
#include <gtest/gtest.h>

#include <csetjmp>
#include <string>
#include <vector>

#include "safestr/safestr.h"
#include "violation_recorder.h"

extern "C" rsize_t largest_bound_seen_by_c();
extern "C" errno_t copy_seen_by_c(char *dest, rsize_t dmax, const char *src);

namespace {

void one_handler(const char *, void *, errno_t) {}
void another_handler(const char *, void *, errno_t) {}

TEST(SafestrHandler, IsSetAndTheOneBeforeReturned) {
    const safe_str_constraint_handler original = set_safe_str_constraint_handler(one_handler);
    ASSERT_NE(original, nullptr);
    EXPECT_NE(original, one_handler);
    EXPECT_EQ(set_safe_str_constraint_handler(another_handler), one_handler);
    EXPECT_EQ(set_safe_str_constraint_handler(nullptr), another_handler);
    EXPECT_EQ(set_safe_str_constraint_handler(nullptr), original);  // null restored it
    EXPECT_EQ(set_safe_str_constraint_handler(original), original);
}

TEST(SafestrHandler, IsSilentByDefault) {
    set_safe_str_constraint_handler(nullptr);
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    char dest[4] = "abc";
    EXPECT_EQ(strcpy_s(dest, sizeof dest, "too long"), 406);
    invoke_safe_str_constraint_handler("message", dest, 1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(SafestrHandler, IsInvokedWithTheArgumentsAsTheyAre) {
    const violation_recorder recorder;
    int object = 0;
    invoke_safe_str_constraint_handler("strpbrk_s: dest is null", nullptr, 400);
    invoke_safe_str_constraint_handler("", &object, -7);
    EXPECT_EQ(violation_recorder::take(),
              (std::vector<violation>{{"strpbrk_s: dest is null", 400, nullptr}, {"", -7, &object}}));
}

const char *kept_message = nullptr;

TEST(SafestrHandler, MayKeepTheMessage) {
    const safe_str_constraint_handler before =
        set_safe_str_constraint_handler([](const char *message, void *, errno_t) { kept_message = message; });
    EXPECT_EQ(strcpy_s(nullptr, 1, ""), 400);
    const char *const first = kept_message;
    char dest[2];
    EXPECT_EQ(strncpy_s(dest, 2, "xx", 2), 406);
    set_safe_str_constraint_handler(before);
    EXPECT_STREQ(first, "strcpy_s: dest is null");
    EXPECT_STREQ(kept_message, "strncpy_s: not enough space for src");
}

char *watched = nullptr;
std::string seen;

TEST(SafestrHandler, FindsDestHarmless) {
    char dest[4] = "abc";
    watched = dest;
    const safe_str_constraint_handler before = set_safe_str_constraint_handler(
        [](const char *, void *, errno_t) { seen = std::string(watched, sizeof dest); });
    EXPECT_EQ(strcpy_s(dest, sizeof dest, "too long"), 406);
    EXPECT_EQ(seen, std::string("\0bc\0", 4));
    EXPECT_EQ(memcpy_s(dest, 2, "too long", 8), 406);
    EXPECT_EQ(seen, std::string("\0\0c\0", 4));
    set_safe_str_constraint_handler(before);
}

std::jmp_buf back;

TEST(SafestrHandler, NeedNotReturn) {
    static char dest[4] = "abc";
    const safe_str_constraint_handler before =
        set_safe_str_constraint_handler([](const char *, void *, errno_t code) { std::longjmp(back, code); });
    if (const int code = setjmp(back); code == 0) {
        strcpy_s(dest, sizeof dest, "too long");
        ADD_FAILURE() << "the handler returned";
    }
    set_safe_str_constraint_handler(before);
    EXPECT_STREQ(dest, "");
}

std::vector<errno_t> nested_codes;

TEST(SafestrHandler, MayCallTheFunctionsItself) {
    const safe_str_constraint_handler before =
        set_safe_str_constraint_handler([](const char *message, void *, errno_t code) {
            nested_codes.push_back(code);
            char copy[32];
            EXPECT_EQ(strcpy_s(copy, sizeof copy, message), 0);
            EXPECT_STREQ(copy, message);
            if (code == 400) {
                EXPECT_EQ(strcpy_s(copy, 0, message), 401);
            }
        });
    EXPECT_EQ(strcat_s(nullptr, 1, ""), 400);
    set_safe_str_constraint_handler(before);
    EXPECT_EQ(nested_codes, (std::vector<errno_t>{400, 401}));
}

TEST(SafestrHeader, ServesC) {
    char dest[4];
    EXPECT_EQ(copy_seen_by_c(dest, sizeof dest, "abc"), 0);
    EXPECT_STREQ(dest, "abc");
    EXPECT_EQ(largest_bound_seen_by_c(), RSIZE_MAX);
    EXPECT_EQ(RSIZE_MAX, 0x7FFFFFFFFFFFFFFFU);
}

}  // namespace
