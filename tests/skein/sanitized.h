// Whether the tests run under a sanitizer, which makes processes expensive and has an allocator of its own.
#ifndef NYX_TESTS_SKEIN_SANITIZED_H
#define NYX_TESTS_SKEIN_SANITIZED_H

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define NYX_TESTS_SKEIN_SANITIZER
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
#define NYX_TESTS_SKEIN_SANITIZER
#endif
#endif

namespace skein_test {

#ifdef NYX_TESTS_SKEIN_SANITIZER
constexpr bool sanitized = true;
#else
constexpr bool sanitized = false;
#endif

}  // namespace skein_test

#endif
