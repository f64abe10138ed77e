// Each allocation that the allocator makes fails in turn: the caller's one fails cleanly, the others go unnoticed. The
// program has the sources of its own, so that the linker can put these functions between them and the C library.
#include <errno.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/wait.h>
#include <umbra/named_alloc.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <string>
#include <thread>

// ThreadSanitizer calls these functions itself before it is ready to be told of them.
#ifdef __clang__
#define UNINSTRUMENTED __attribute__((disable_sanitizer_instrumentation))
#define HAS_THREAD_SANITIZER __has_feature(thread_sanitizer)
#else
#define UNINSTRUMENTED
#define HAS_THREAD_SANITIZER 0
#endif

namespace {

// Counts down; the call that finds 0 fails. Below that nothing does.
std::atomic<int> calls_until_failure{-1};
bool no_keys = false;
std::atomic<unsigned> fork_handlers_asked_for{0};
pthread_key_t allocators_key;  // the newest: sanitizers make theirs before
std::atomic<unsigned> registrations{0};
std::atomic<unsigned> slow_mallocs_begun{0};
std::atomic<unsigned> slow_mallocs_ended{0};
__thread bool mallocs_are_slow;
bool sanitizer_has_handlers = !HAS_THREAD_SANITIZER;  // it asks for its own before anybody else does

UNINSTRUMENTED bool fails() {
    return calls_until_failure.load() >= 0 && calls_until_failure.fetch_sub(1) == 0;
}

}  // namespace

extern "C" {
void *__real_malloc(size_t size);
void *__real_calloc(size_t count, size_t size);
void *__real_realloc(void *block, size_t size);
int __real_pthread_setspecific(pthread_key_t key, const void *value);
int __real_pthread_key_create(pthread_key_t *key, void (*destructor)(void *));
int __real_pthread_atfork(void (*before)(), void (*in_parent)(), void (*in_child)());

UNINSTRUMENTED void *__wrap_malloc(size_t size) {
    if (mallocs_are_slow) {
        slow_mallocs_begun.fetch_add(1);
        usleep(100'000);
        slow_mallocs_ended.fetch_add(1);
    }
    errno = fails() ? ENOMEM : 0;
    return errno != 0 ? nullptr : __real_malloc(size);
}
UNINSTRUMENTED void *__wrap_calloc(size_t count, size_t size) {
    return fails() ? nullptr : __real_calloc(count, size);
}
UNINSTRUMENTED void *__wrap_realloc(void *block, size_t size) {
    return fails() ? nullptr : __real_realloc(block, size);
}
UNINSTRUMENTED int __wrap_pthread_setspecific(pthread_key_t key, const void *value) {
    registrations.fetch_add(key == allocators_key ? 1 : 0);
    return fails() ? ENOMEM : __real_pthread_setspecific(key, value);
}
UNINSTRUMENTED int __wrap_pthread_key_create(pthread_key_t *key, void (*destructor)(void *)) {
    const int error = no_keys ? EAGAIN : __real_pthread_key_create(key, destructor);
    allocators_key = error == 0 ? *key : allocators_key;
    return error;
}
// There is no memory when the program begins. Later two threads come at once, as it were: the handlers run twice,
// unless the environment tells otherwise.
UNINSTRUMENTED int __wrap_pthread_atfork(void (*before)(), void (*in_parent)(), void (*in_child)()) {
    if (!sanitizer_has_handlers) {
        sanitizer_has_handlers = true;
        return __real_pthread_atfork(before, in_parent, in_child);
    }
    if (fork_handlers_asked_for.fetch_add(1) == 0 || __real_pthread_atfork(before, in_parent, in_child) != 0) {
        return ENOMEM;
    }
    return getenv("ONE_THREAD_COMES") == nullptr ? __real_pthread_atfork(before, in_parent, in_child) : 0;
}
}

namespace {

umbra_named_usage total() {
    umbra_named_usage usage = {};
    umbra_named_total(&usage);
    return usage;
}

umbra_named_usage usage_of(const std::string &description) {
    umbra_named_usage usage = {};
    umbra_named_usage_of(description.c_str(), &usage);
    return usage;
}

// In a new thread and with a new description, so that everything has to be made. Returns whether no call failed.
bool allocates_despite_failure(int failing_call, void *(*allocate)(const char *description)) {
    const std::string description = "failing " + std::to_string(failing_call);
    const umbra_named_usage before = total();
    void *block = nullptr;
    int error = 0;
    bool all_calls_passed = false;
    std::thread([&] {
        calls_until_failure = failing_call;
        errno = 0;
        block = allocate(description.c_str());
        error = errno;
        all_calls_passed = calls_until_failure >= 0;
        calls_until_failure = -1;
    }).join();
    const umbra_named_usage after = total();
    EXPECT_EQ(block == nullptr, failing_call == 0);
    EXPECT_EQ(error, block == nullptr ? ENOMEM : 0);
    EXPECT_EQ(after.live_blocks - before.live_blocks, block == nullptr ? 0U : 1U);
    EXPECT_EQ(after.live_bytes - before.live_bytes, block == nullptr ? 0U : 24U);
    if (block != nullptr) {
        const std::string name = umbra_named_description(block);
        EXPECT_TRUE(name == description || name == UMBRA_NAMED_OTHER) << name;
        EXPECT_EQ(usage_of(name).live_blocks, 1U);
    }
    umbra_named_free(block);
    EXPECT_EQ(total().live_blocks, before.live_blocks);
    return all_calls_passed;
}

int failures_survived(void *(*allocate)(const char *)) {
    int failing_call = 0;
    while (!allocates_despite_failure(failing_call, allocate)) {
        ++failing_call;
    }
    return failing_call;
}

// The block, the description's record, the thread's record and its registration, the thread's words.
TEST(NamedAllocFailure, OnlyTheBlockItselfIsMissedByTheCaller) {
    EXPECT_EQ(failures_survived([](const char *text) { return umbra_named_malloc_(24, text); }), 5);
    EXPECT_EQ(failures_survived([](const char *text) { return umbra_named_calloc_(3, 8, text); }), 4)
        << "the descriptions are known by now";
}

TEST(NamedAllocFailure, ARecordIsTriedAgain) {
    calls_until_failure = 1;
    void *other = umbra_named_malloc_(1, "tried again");
    calls_until_failure = -1;
    void *own = umbra_named_malloc_(2, "tried again");
    EXPECT_STREQ(umbra_named_description(other), UMBRA_NAMED_OTHER);
    EXPECT_STREQ(umbra_named_description(own), "tried again");
    EXPECT_EQ(usage_of("tried again").live_bytes, 2U);
    umbra_named_free(own);
    umbra_named_free(other);
}

TEST(NamedAllocFailure, AFailedResizingChangesNothing) {
    void *block = umbra_named_malloc_(10, "not resized");
    calls_until_failure = 0;
    errno = 0;
    EXPECT_EQ(umbra_named_realloc(block, 20), nullptr);
    calls_until_failure = -1;
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_EQ(umbra_named_size(block), 10U);  // and it is a live block, which this program checks
    EXPECT_EQ(usage_of("not resized").live_bytes, 10U);
    EXPECT_EQ(usage_of("not resized").total_bytes, 10U);
    umbra_named_free(block);
}

TEST(NamedAllocFailure, ForksAreGuardedAsSoonAsThereIsMemory) {
    total();
    EXPECT_EQ(fork_handlers_asked_for, 2U);
    total();
    EXPECT_EQ(fork_handlers_asked_for, 2U);
    std::atomic<bool> ends{false};
    std::thread reporter([&] {
        while (!ends) {
            total();
        }
    });
    for (int i = 0; i < 50; ++i) {
        const pid_t child = fork();
        if (child == 0) {
            alarm(10);  // in a child that waits for a lock without an owner
            total();
            _exit(0);
        }
        int status = -1;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        ASSERT_EQ(status, 0);
    }
    ends = true;
    reporter.join();
}

// Returns whether a child can allocate that was forked while another thread was making a record, under the lock.
bool a_fork_waits_for_whoever_holds_the_lock() {
    std::thread other([] {
        mallocs_are_slow = true;
        umbra_named_free(umbra_named_malloc_(1, "held up"));
    });
    while (slow_mallocs_begun < 2) {  // the block's, and the record's
        usleep(1000);
    }
    const pid_t child = fork();
    const bool waited = slow_mallocs_ended >= 2;
    if (child == 0) {
        alarm(10);
        umbra_named_free(umbra_named_malloc_(1, "in a child"));
        _exit(waited ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    other.join();
    return waited && status == 0;
}

pthread_key_t allocating_end;

void allocate_at_end(void * /*value*/) {
    umbra_named_free(umbra_named_malloc_(1, "at the end"));
}

TEST(NamedAllocFailure, AThreadIsRegisteredOnce) {
    total();
    umbra_named_free(umbra_named_malloc_(1, "registered"));  // makes the library's key, whose destructor runs first
    ASSERT_EQ(__real_pthread_key_create(&allocating_end, allocate_at_end), 0);
    const unsigned before = registrations;
    std::thread([] {
        umbra_named_free(umbra_named_malloc_(1, "registered"));
        __real_pthread_setspecific(allocating_end, "something");
    }).join();
    EXPECT_EQ(registrations - before, 1U);
    EXPECT_EQ(usage_of("at the end").total_blocks, 1U);
    EXPECT_EQ(pthread_key_delete(allocating_end), 0);
}

// Returns whether figures stay right where threads cannot be told apart.
bool counts_without_keys() {
    no_keys = true;
    void *first = umbra_named_malloc_(100, "without keys");
    void *second = nullptr;
    std::thread([&] { second = umbra_named_realloc(umbra_named_malloc_(10, "without keys"), 30); }).join();
    umbra_named_free(first);
    second = umbra_named_realloc(second, 20);
    const umbra_named_usage usage = usage_of("without keys");
    umbra_named_free(second);
    return usage.live_blocks == 1 && usage.live_bytes == 20 && usage.total_blocks == 2 && usage.total_bytes == 130 &&
           usage.peak_bytes == 130 && usage_of("without keys").live_bytes == 0;
}

TEST(NamedAllocFailureDeathTest, ForksAreGuardedFromTheBeginning) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(_exit(fork_handlers_asked_for == 1 ? 0 : 1), testing::ExitedWithCode(0), "");
}

TEST(NamedAllocFailureDeathTest, AForkWaitsForWhoeverHoldsTheLock) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(_exit(a_fork_waits_for_whoever_holds_the_lock() ? 0 : 1), testing::ExitedWithCode(0), "");
    setenv("ONE_THREAD_COMES", "1", 1);
    EXPECT_EXIT(_exit(a_fork_waits_for_whoever_holds_the_lock() ? 0 : 1), testing::ExitedWithCode(0), "");
    unsetenv("ONE_THREAD_COMES");
}

TEST(NamedAllocFailureDeathTest, CountsWithoutWordsOfItsOwn) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");  // begins anew, before the library was used
    EXPECT_EXIT(_exit(counts_without_keys() ? 0 : 1), testing::ExitedWithCode(0), "");
}

}  // namespace
