// Assertions that hold in every build type: a release build that goes on with a null context would crash later, and
// somewhere else.
#ifndef NYX_ASSERT_H
#define NYX_ASSERT_H

// The C library's own printer; <assert.h> declares it only where assertions are on.
extern "C" [[noreturn]] void __assert_fail(const char *assertion, const char *file, unsigned int line,
                                           const char *function) noexcept;

// The text of the condition is a part of the interface: operators search their logs for it.
#define NYX_ASSERT_NOT_NULL(pointer)                                                                             \
    ((pointer) != nullptr ? static_cast<void>(0)                                                                 \
                          : __assert_fail("((void *)0) != " #pointer, __FILE__, static_cast<unsigned>(__LINE__), \
                                          static_cast<const char *>(__PRETTY_FUNCTION__)))

#endif
