// Flags without memory. The program has the sources of its own, so that the linker can put these functions between them
// and the C library.
#include <errno.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <umbra/debug_trace.h>

#include <cstdlib>
#include <string>
#include <vector>

// ThreadSanitizer calls these functions itself before it is ready to be told of them.
#ifdef __clang__
#define UNINSTRUMENTED __attribute__((disable_sanitizer_instrumentation))
#else
#define UNINSTRUMENTED
#endif

namespace {

bool memory_fails = false;

}  // namespace

extern "C" {
void *__real_malloc(size_t size);
void *__real_calloc(size_t count, size_t size);
void *__real_realloc(void *block, size_t size);
int __real_pthread_setspecific(pthread_key_t key, const void *value);
int __real_pthread_key_create(pthread_key_t *key, void (*destructor)(void *));

UNINSTRUMENTED void *__wrap_malloc(size_t size) {
    return memory_fails ? nullptr : __real_malloc(size);
}
UNINSTRUMENTED void *__wrap_calloc(size_t count, size_t size) {
    return memory_fails ? nullptr : __real_calloc(count, size);
}
UNINSTRUMENTED void *__wrap_realloc(void *block, size_t size) {
    return memory_fails ? nullptr : __real_realloc(block, size);
}
UNINSTRUMENTED int __wrap_pthread_setspecific(pthread_key_t key, const void *value) {
    return __real_pthread_setspecific(key, value);
}
UNINSTRUMENTED int __wrap_pthread_key_create(pthread_key_t *key, void (*destructor)(void *)) {
    return __real_pthread_key_create(key, destructor);
}
}

namespace {

int32_t init_without_memory(uint64_t *flag, const char *name) {
    memory_fails = true;
    const int32_t result = umbra_dt_flag_init(flag, name, 0, 0, 0);
    memory_fails = false;
    return result;
}

TEST(DebugFlagMemory, IsMissedCleanlyAndTriedAgain) {
    uint64_t flag = 1;
    EXPECT_EQ(init_without_memory(&flag, "first"), ENOMEM);
    EXPECT_EQ(flag, 0U);
    EXPECT_EQ(umbra_dt_flags(nullptr, 0), 0U);
    EXPECT_EQ(umbra_dt_flag_init(&flag, "first", 0, 0, 0), 0);
    // Memory comes in pieces: at some point another one is missing.
    std::vector<uint64_t> flags = {flag};
    while (init_without_memory(&flag, std::to_string(flags.size()).c_str()) == 0) {
        flags.push_back(flag);
    }
    EXPECT_EQ(umbra_dt_flags(nullptr, 0), flags.size());
    // What is given back serves without memory.
    EXPECT_EQ(umbra_dt_flag_destroy(flags.back()), 0);
    EXPECT_EQ(init_without_memory(&flag, "in the place of the last"), 0);
    EXPECT_EQ(init_without_memory(&flag, "one more"), ENOMEM);
    EXPECT_EQ(umbra_dt_flag_init(&flag, "one more", 0, 0, 0), 0);
    EXPECT_EQ(umbra_dt_flags(nullptr, 0), flags.size() + 1);
}

TEST(DebugFlagMemory, IsNotNeededForALog) {
    uint64_t flag = 0;
    std::string line;
    ASSERT_EQ(umbra_dt_flag_init(&flag, "log", 0, 0, 0), 0);
    umbra_dt_flag_enable(flag, 0);
    line.reserve(8192);
    umbra_dt_log_to_stream(-1);
    umbra_dt_log_to_callback(
        [](const char *text, uint64_t length, void *to) { static_cast<std::string *>(to)->assign(text, length); },
        &line);
    memory_fails = true;
    _umbra_dt_log_filter_adv(flag, 0, 0, 0, 0, 0, nullptr, "%s %d", std::string(10, 'x').c_str(), 12);
    memory_fails = false;
    umbra_dt_log_to_callback(nullptr, nullptr);
    EXPECT_NE(line.find(" log: xxxxxxxxxx 12"), std::string::npos) << line;
    umbra_dt_flag_destroy(flag);
}

}  // namespace
