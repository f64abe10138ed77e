// What is given out, and what is counted under which description.
#include <errno.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <umbra/named_alloc.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

namespace {

umbra_named_usage usage_of(const char *description) {
    umbra_named_usage usage = {};
    EXPECT_EQ(umbra_named_usage_of(description, &usage), 0) << description;
    return usage;
}

void expect_usage(const char *description, uint64_t live_blocks, uint64_t live_bytes, uint64_t total_blocks,
                  uint64_t total_bytes, uint64_t peak_bytes) {
    const umbra_named_usage usage = usage_of(description);
    EXPECT_EQ(usage.live_blocks, live_blocks) << description;
    EXPECT_EQ(usage.live_bytes, live_bytes) << description;
    EXPECT_EQ(usage.total_blocks, total_blocks) << description;
    EXPECT_EQ(usage.total_bytes, total_bytes) << description;
    EXPECT_EQ(usage.peak_bytes, peak_bytes) << description;
}

TEST(NamedMalloc, CountsBlocksAndBytesUnderTheDescription) {
    void *first = umbra_named_malloc_(100, "counted");
    void *second = umbra_named_malloc_(20, "counted");
    void *other = umbra_named_malloc_(7, "counted elsewhere");
    expect_usage("counted", 2, 120, 2, 120, 120);
    expect_usage("counted elsewhere", 1, 7, 1, 7, 7);
    umbra_named_free(first);
    expect_usage("counted", 1, 20, 2, 120, 120);
    void *third = umbra_named_malloc_(50, "counted");
    expect_usage("counted", 2, 70, 3, 170, 120);
    umbra_named_free(second);
    umbra_named_free(third);
    umbra_named_free(other);
    expect_usage("counted", 0, 0, 3, 170, 120);
    expect_usage("counted elsewhere", 0, 0, 1, 7, 7);
}

TEST(NamedMalloc, KeepsThePeakExactAcrossLargeBlocks) {
    std::vector<void *> blocks;
    uint64_t live = 0;
    for (const uint64_t size : {UINT64_C(65535), UINT64_C(1), UINT64_C(300000), UINT64_C(40000), UINT64_C(65536)}) {
        blocks.push_back(umbra_named_malloc_(size, "large"));
        live += size;
        EXPECT_EQ(usage_of("large").peak_bytes, live);
    }
    for (void *block : blocks) {
        umbra_named_free(block);
    }
    umbra_named_free(umbra_named_malloc_(live - 1, "large"));
    EXPECT_EQ(usage_of("large").peak_bytes, live);
    umbra_named_free(umbra_named_malloc_(live + 1, "large"));
    expect_usage("large", 0, 0, 7, 3 * live, live + 1);
}

TEST(NamedMalloc, AlignsBlocksOfAllSizes) {
    for (uint64_t size = 0; size < 300; ++size) {
        void *block = umbra_named_malloc_(size, "aligned");
        ASSERT_NE(block, nullptr);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % 16, 0U);
        EXPECT_EQ(umbra_named_size(block), size);
        memset(block, 0x5a, size);
        umbra_named_free(block);
    }
}

TEST(NamedMalloc, CountsABlockWithoutBytes) {
    void *block = umbra_named_malloc_(0, "empty");
    ASSERT_NE(block, nullptr);
    expect_usage("empty", 1, 0, 1, 0, 0);
    umbra_named_free(block);
    expect_usage("empty", 0, 0, 1, 0, 0);
}

TEST(NamedMalloc, RefusesImpossibleSizes) {
    // What is asked for is not known to the compiler, which would object to it.
    for (volatile uint64_t size :
         {UINT64_MAX, UINT64_MAX - 15, UINT64_MAX - 16, UINT64_C(1) << 63U, (UINT64_C(1) << 63U) - 1}) {
        errno = 0;
        EXPECT_EQ(umbra_named_malloc_(size, "impossible"), nullptr);
        EXPECT_EQ(errno, ENOMEM);
        errno = 0;
        EXPECT_EQ(umbra_named_calloc_(1, size, "impossible"), nullptr);
        EXPECT_EQ(errno, ENOMEM);
    }
    umbra_named_usage usage;
    EXPECT_EQ(umbra_named_usage_of("impossible", &usage), ENOENT);
}

TEST(NamedCalloc, GivesZeros) {
    // Memory that was in use before.
    void *used = umbra_named_malloc_(333, "zeros");
    memset(used, 0xff, 333);
    umbra_named_free(used);
    auto *block = static_cast<unsigned char *>(umbra_named_calloc_(37, 9, "zeros"));
    ASSERT_NE(block, nullptr);
    EXPECT_TRUE(std::all_of(block, block + 333, [](unsigned char c) { return c == 0; }));
    expect_usage("zeros", 1, 333, 2, 666, 333);
    umbra_named_free(block);
}

TEST(NamedCalloc, RefusesAProductThatOverflows) {
    volatile uint64_t half = UINT64_C(1) << 32U;
    errno = 0;
    EXPECT_EQ(umbra_named_calloc_(half, half, "product"), nullptr);
    EXPECT_EQ(errno, ENOMEM);
    volatile uint64_t third = UINT64_MAX / 3 + 1;
    EXPECT_EQ(umbra_named_calloc_(third, 3, "product"), nullptr);
    void *block = umbra_named_calloc_(0, half, "product");
    EXPECT_NE(block, nullptr);
    umbra_named_free(block);
}

TEST(NamedRealloc, KeepsDescriptionAndContents) {
    auto *block = static_cast<char *>(umbra_named_malloc_(10, "resized"));
    memcpy(block, "123456789", 10);
    block = static_cast<char *>(umbra_named_realloc(block, 100000));
    ASSERT_NE(block, nullptr);
    EXPECT_STREQ(block, "123456789");
    EXPECT_STREQ(umbra_named_description(block), "resized");
    EXPECT_EQ(umbra_named_size(block), 100000U);
    expect_usage("resized", 1, 100000, 1, 100000, 100000);
    block = static_cast<char *>(umbra_named_realloc(block, 4));
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(memcmp(block, "1234", 4), 0);
    expect_usage("resized", 1, 4, 1, 100000, 100000);
    block = static_cast<char *>(umbra_named_realloc(block, 14));
    expect_usage("resized", 1, 14, 1, 100010, 100000);
    umbra_named_free(block);
    expect_usage("resized", 0, 0, 1, 100010, 100000);
}

TEST(NamedRealloc, AllocatesForNull) {
    void *block = umbra_named_realloc(nullptr, 12);
    ASSERT_NE(block, nullptr);
    EXPECT_STREQ(umbra_named_description(block), "unnamed");
    umbra_named_free(block);
}

TEST(NamedRealloc, DoesNotFreeAtSizeZero) {
    void *block = umbra_named_malloc_(12, "to nothing");
    block = umbra_named_realloc(block, 0);
    ASSERT_NE(block, nullptr);
    expect_usage("to nothing", 1, 0, 1, 12, 12);
    umbra_named_free(block);
}

TEST(NamedRealloc, LeavesTheBlockAloneOnFailure) {
    auto *block = static_cast<char *>(umbra_named_malloc_(6, "kept"));
    memcpy(block, "still", 6);
    for (volatile uint64_t size : {UINT64_MAX, UINT64_MAX - 16, (UINT64_C(1) << 63U)}) {
        errno = 0;
        EXPECT_EQ(umbra_named_realloc(block, size), nullptr);
        EXPECT_EQ(errno, ENOMEM);
    }
    EXPECT_STREQ(block, "still");
    expect_usage("kept", 1, 6, 1, 6, 6);
    umbra_named_free(block);
}

TEST(NamedFree, IgnoresNullAndKeepsErrno) {
    errno = ERANGE;
    umbra_named_free(nullptr);
    EXPECT_EQ(errno, ERANGE);
    umbra_named_free(umbra_named_malloc_(3, "errno"));
    EXPECT_EQ(errno, ERANGE);
}

TEST(NamedBlock, AnswersForNull) {
    EXPECT_EQ(umbra_named_size(nullptr), 0U);
    EXPECT_EQ(umbra_named_description(nullptr), nullptr);
}

TEST(Description, IsToldByItsTextAndNotByItsAddress) {
    char buffer[32] = "one text";
    void *first = umbra_named_malloc_(1, buffer);
    memcpy(buffer, "two texts", 10);
    void *second = umbra_named_malloc_(2, buffer);
    memcpy(buffer, "one text", 9);
    void *third = umbra_named_malloc_(4, buffer);
    void *fourth = umbra_named_malloc_(8, "one text");
    EXPECT_EQ(usage_of("one text").live_bytes, 13U);
    EXPECT_EQ(usage_of("two texts").live_bytes, 2U);
    memset(buffer, 'x', sizeof buffer - 1);
    EXPECT_STREQ(umbra_named_description(first), "one text");
    EXPECT_STREQ(umbra_named_description(second), "two texts");
    for (void *block : {first, second, third, fourth}) {
        umbra_named_free(block);
    }
}

// Allocates a block and frees it; returns what it was called in between.
std::string name_given_for(const char *description) {
    void *block = umbra_named_malloc_(1, description);
    std::string name = umbra_named_description(block);
    umbra_named_free(block);
    return name;
}

// Each text stands at the same address as the one before, which was met there twice.
TEST(Description, IsToldByEachOfItsBytes) {
    for (const std::size_t length : {1U, 7U, 15U, 16U, 17U, 31U, 32U, 33U, 47U, 48U, 49U, 62U, 63U, 64U}) {
        std::string text(length, 'b');
        char *bytes = text.data();
        for (std::size_t i = 0; i < length; ++i) {
            for (const char changed : {'c', '\0', 'b'}) {
                bytes[i] = changed;
                const std::string expected = std::string(bytes).substr(0, 63);
                EXPECT_EQ(name_given_for(bytes), expected) << length << ' ' << i;
                EXPECT_EQ(name_given_for(bytes), expected) << length << ' ' << i;
            }
        }
    }
}

TEST(Description, GrowsAtItsAddress) {
    char text[80] = "";
    for (std::size_t length = 1; length < sizeof text; ++length) {
        text[length - 1] = 'g';
        EXPECT_EQ(name_given_for(text), std::string(text).substr(0, 63));
        EXPECT_EQ(name_given_for(text), std::string(text).substr(0, 63));
    }
}

TEST(Description, IsReadToItsEndOnly) {
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    void *memory = mmap(nullptr, 3 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(memory, MAP_FAILED);
    char *end = static_cast<char *>(memory) + 2 * page;
    ASSERT_EQ(mprotect(end, page, PROT_NONE), 0);
    for (std::size_t length = 0; length < 70; ++length) {
        char *text = end - length - 1;
        memset(text, 'e', length);
        *(end - 1) = '\0';
        EXPECT_EQ(name_given_for(text), std::string(length, 'e').substr(0, 63));
        // What has become shorter, and what went over the end of the page before.
        for (char *at = end - 1; at >= text; at -= 9) {
            *at = '\0';
            EXPECT_EQ(name_given_for(text), std::string(text).substr(0, 63));
        }
        char *across = end - page - 7;
        memset(across, 'a', length);
        across[length] = '\0';
        EXPECT_EQ(name_given_for(across), std::string(length, 'a').substr(0, 63));
        EXPECT_EQ(name_given_for(across), std::string(length, 'a').substr(0, 63));
    }
    munmap(memory, 3 * page);
}

TEST(Description, IsUnnamedWhenNull) {
    EXPECT_EQ(umbra_named_usage_of(nullptr, nullptr), EINVAL);
    void *block = umbra_named_malloc_(5, nullptr);
    EXPECT_STREQ(umbra_named_description(block), "unnamed");
    EXPECT_EQ(usage_of(nullptr).live_bytes, 5U);
    EXPECT_EQ(usage_of("unnamed").live_bytes, 5U);
    umbra_named_free(block);
}

TEST(Description, MayBeEmpty) {
    void *block = umbra_named_malloc_(5, "");
    EXPECT_STREQ(umbra_named_description(block), "");
    EXPECT_EQ(usage_of("").live_bytes, 5U);
    umbra_named_free(block);
}

TEST(Description, IsCutTo63Bytes) {
    const std::string fits(63, 'd');
    void *exact = umbra_named_malloc_(1, fits.c_str());
    void *longer = umbra_named_malloc_(2, (fits + "!").c_str());
    void *longest = umbra_named_malloc_(4, (fits + std::string(5000, '?')).c_str());
    void *shorter = umbra_named_malloc_(8, fits.substr(1).c_str());
    EXPECT_EQ(umbra_named_description(longest), fits);
    EXPECT_EQ(usage_of(fits.c_str()).live_bytes, 7U);
    EXPECT_EQ(usage_of((fits + "whatever").c_str()).live_bytes, 7U);
    EXPECT_EQ(usage_of(fits.substr(1).c_str()).live_bytes, 8U);
    for (void *block : {exact, longer, longest, shorter}) {
        umbra_named_free(block);
    }
}

TEST(Thread, LeavesItsFiguresBehind) {
    void *left = nullptr;
    std::thread([&] {
        left = umbra_named_malloc_(70000, "of a thread");
        umbra_named_free(umbra_named_malloc_(30000, "of a thread"));
    }).join();
    expect_usage("of a thread", 1, 70000, 2, 100000, 100000);
    std::thread([&] { umbra_named_free(left); }).join();
    expect_usage("of a thread", 0, 0, 2, 100000, 100000);
    // The peak is measured against what is in use now, wherever that was counted.
    umbra_named_free(umbra_named_malloc_(99999, "of a thread"));
    EXPECT_EQ(usage_of("of a thread").peak_bytes, 100000U);
    umbra_named_free(umbra_named_malloc_(100001, "of a thread"));
    EXPECT_EQ(usage_of("of a thread").peak_bytes, 100001U);
}

// Allocates when the thread's own variables go, and frees what others left.
struct late_user {
    void *block = nullptr;
    ~late_user() {
        umbra_named_free(block);
        umbra_named_free(umbra_named_malloc_(5, "late"));
    }
};

pthread_key_t late_key;

void use_late(void *block) {
    umbra_named_free(block);
    void *again = umbra_named_malloc_(11, "very late");
    pthread_setspecific(late_key, umbra_named_size(again) == 11 ? nullptr : again);
    umbra_named_free(again);
}

TEST(Thread, CountsToItsVeryEnd) {
    // Made after the library's own: its destructor runs later in each round.
    umbra_named_free(umbra_named_malloc_(1, "late"));
    ASSERT_EQ(pthread_key_create(&late_key, use_late), 0);
    std::thread([] {
        thread_local late_user user;
        user.block = umbra_named_malloc_(3, "late");
        pthread_setspecific(late_key, umbra_named_malloc_(7, "very late"));
    }).join();
    expect_usage("late", 0, 0, 3, 9, 5);
    expect_usage("very late", 0, 0, 2, 18, 11);
    pthread_key_delete(late_key);
}

TEST(Fork, ChildGoesOnWithTheFigures) {
    void *block = umbra_named_malloc_(10, "forked");
    void *others = nullptr;
    std::thread([&] { others = umbra_named_malloc_(20, "forked"); }).join();
    const pid_t child = fork();
    if (child == 0) {
        void *own = umbra_named_malloc_(30, "forked");
        umbra_named_free(others);
        umbra_named_usage usage = {};
        const bool right = umbra_named_usage_of("forked", &usage) == 0 && usage.live_blocks == 2 &&
                           usage.live_bytes == 40 && usage.total_blocks == 3 && usage.peak_bytes == 60;
        umbra_named_free(own);
        umbra_named_free(block);
        _exit(right ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    expect_usage("forked", 2, 30, 2, 30, 30);
    umbra_named_free(block);
    umbra_named_free(others);
}

}  // namespace
