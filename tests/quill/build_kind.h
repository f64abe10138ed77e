// Whether a test may rely on the speed and the stack frames of an optimised build.
#ifndef NYX_TEST_BUILD_KIND_H
#define NYX_TEST_BUILD_KIND_H

namespace nyx_test {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool sanitized = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(memory_sanitizer) || __has_feature(thread_sanitizer) || \
    __has_feature(undefined_behavior_sanitizer)
inline constexpr bool sanitized = true;
#else
inline constexpr bool sanitized = false;
#endif
#else
inline constexpr bool sanitized = false;
#endif

#ifdef NDEBUG
inline constexpr bool release_build = !sanitized;
#else
inline constexpr bool release_build = false;
#endif

}  // namespace nyx_test

#endif
