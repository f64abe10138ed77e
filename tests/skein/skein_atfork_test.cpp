// Forks cannot be watched: nothing is opened or removed then, and the next attempt tries again. In a program of its
// own, because the library asks once only.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cerrno>

#include "trace_files.h"

namespace {

bool registration_fails = false;

}  // namespace

// What pthread_atfork() calls. NOLINTNEXTLINE(bugprone-reserved-identifier): the C library's name
extern "C" int __register_atfork(void (*prepare)(), void (*parent)(), void (*child)(), void *library) noexcept {
    if (registration_fails) {
        return ENOMEM;
    }
    using registration = int (*)(void (*)(), void (*)(), void (*)(), void *);
    return reinterpret_cast<registration>(dlsym(RTLD_NEXT, "__register_atfork"))(prepare, parent, child, library);
}

namespace skein_test {
namespace {

class SkeinAtfork : public trace_files {};

TEST_F(SkeinAtfork, FailureIsReportedAndTriedAgain) {
    uint64_t handle = 7;
    registration_fails = true;
    EXPECT_EQ(open_trace("a", 16, 4096, &handle), ENOMEM);
    EXPECT_EQ(handle, 0U);
    EXPECT_FALSE(std::filesystem::exists(path("a")));
    write_bytes(path("b"), "to be removed");
    EXPECT_EQ(skein_delete("b"), ENOMEM);
    EXPECT_TRUE(std::filesystem::exists(path("b")));
    registration_fails = false;
    ASSERT_EQ(open_trace("a", 16, 4096, &handle), 0);
    EXPECT_EQ(_skein_str(handle, 0, "x"), 0);
    EXPECT_EQ(skein_close(handle), 0);
    EXPECT_EQ(skein_delete("b"), 0);
}

}  // namespace
}  // namespace skein_test
