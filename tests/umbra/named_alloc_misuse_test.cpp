// Builds that check blocks end the program when it misuses one. This program has the allocator in its checking form.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <umbra/named_alloc.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

namespace {

#ifdef __has_feature
#define SANITIZED_BY_CLANG (__has_feature(address_sanitizer) || __has_feature(thread_sanitizer))
#else
#define SANITIZED_BY_CLANG 0
#endif

// A sanitizer sees the misuse before we do.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || SANITIZED_BY_CLANG
const char *complaint(const char *) {
    return "Sanitizer";
}
#else
const char *complaint(const char *ours) {
    return ours;
}
#endif

TEST(NamedMisuseDeathTest, FreeingTwiceNamesTheBlock) {
    EXPECT_DEATH(
        {
            void *block = umbra_named_malloc_(40, "freed twice");
            umbra_named_free(block);
            umbra_named_free(block);
        },
        complaint("umbra_named_free: block 0x[0-9a-f]+ was freed before: freed twice\n"));
}

TEST(NamedMisuseDeathTest, ResizingWhatWasFreed) {
    EXPECT_DEATH(
        {
            void *block = umbra_named_malloc_(40, "freed, then resized");
            umbra_named_free(block);
            block = umbra_named_realloc(block, 100);
        },
        complaint("umbra_named_realloc: block 0x[0-9a-f]+ was freed before: freed, then resized\n"));
}

TEST(NamedMisuseDeathTest, UsingTheOldAddressOfAMovedBlock) {
    EXPECT_DEATH(
        {
            void *block = umbra_named_malloc_(40, "moved");
            void *wall = umbra_named_malloc_(40, "in its way");
            void *moved = umbra_named_realloc(block, 4000);
            if (moved != block) {
                umbra_named_free(block);
            }
            umbra_named_free(wall);
        },
        complaint("umbra_named_free: block 0x[0-9a-f]+ was freed before: moved\n"));
}

TEST(NamedMisuseDeathTest, FreeingABlockOfMalloc) {
    EXPECT_DEATH(
        {
            // Room before and behind it, so that the look at what would be its header stays within the block.
            auto *memory = static_cast<char *>(calloc(1, 256));
            umbra_named_free(memory + 128);
            free(memory);
        },
        "umbra_named_free: 0x[0-9a-f]+ is not, or no longer, a block of named memory\n");
}

TEST(NamedMisuseDeathTest, FreeingTheInsideOfABlock) {
    EXPECT_DEATH(
        {
            auto *block = static_cast<char *>(umbra_named_calloc_(1, 256, "from inside"));
            umbra_named_free(block + 128);
        },
        "umbra_named_free: 0x[0-9a-f]+ is not, or no longer, a block of named memory\n");
}

TEST(NamedMisuseDeathTest, FreeingAnAddressThatIsNotAligned) {
    EXPECT_DEATH(
        {
            auto *block = static_cast<char *>(umbra_named_malloc_(256, "crooked"));
            umbra_named_free(block + 1);
        },
        "umbra_named_free: 0x[0-9a-f]+ is not, or no longer, a block of named memory\n");
}

TEST(NamedMisuseDeathTest, AskingAboutWhatIsNoBlock) {
    alignas(16) static char memory[128];
    EXPECT_DEATH(umbra_named_size(memory + 64),
                 "umbra_named_size: 0x[0-9a-f]+ is not, or no longer, a block of named memory\n");
    EXPECT_DEATH(umbra_named_description(memory + 64),
                 "umbra_named_description: 0x[0-9a-f]+ is not, or no longer, a block");
}

// free() unmaps these at once.
TEST(NamedMisuseDeathTest, FreeingALargeBlockTwice) {
    EXPECT_DEATH(
        {
            void *block = umbra_named_malloc_(1U << 20U, "large");
            umbra_named_free(block);
            umbra_named_free(block);
        },
        complaint("umbra_named_free: 0x[0-9a-f]+ is not, or no longer, a block of named memory\n"));
}

TEST(NamedMisuseDeathTest, UsingTheOldAddressOfALargeBlock) {
    EXPECT_DEATH(
        {
            void *block = umbra_named_malloc_(200'000, "large");
            void *volatile old = block;
            block = umbra_named_realloc(block, UINT64_C(1) << 26U);
            if (block != old) {
                umbra_named_size(old);
            }
            umbra_named_free(block);
        },
        complaint("umbra_named_size: 0x[0-9a-f]+ is not, or no longer, a block of named memory\n"));
}

// What would be the header is in the page before, or in both.
TEST(NamedMisuseDeathTest, FreeingBehindMemoryThatCannotBeRead) {
    const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    auto *pages =
        static_cast<char *>(mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    ASSERT_EQ(mprotect(pages, page, PROT_NONE), 0);
    for (const size_t offset : {size_t{0}, size_t{16}}) {
        EXPECT_DEATH(umbra_named_free(pages + page + offset),
                     "umbra_named_free: 0x[0-9a-f]+ is not, or no longer, a block of named memory\n");
    }
    munmap(pages, 2 * page);
}

// malloc keeps four words of its own in such a block.
TEST(NamedMisuseDeathTest, FreeingTwiceNamesABlockOfMiddleSize) {
    EXPECT_DEATH(
        {
            void *block = umbra_named_malloc_(2000, "of middle size");
            void *wall = umbra_named_malloc_(2000, "behind it");
            umbra_named_free(block);
            void *larger = malloc(5000);  // sorts what is free by size
            umbra_named_free(block);
            free(larger);
            umbra_named_free(wall);
        },
        complaint("umbra_named_free: block 0x[0-9a-f]+ was freed before: of middle size\n"));
}

TEST(NamedChecks, LetCorrectUsePass) {
    void *block = umbra_named_calloc_(3, 5, "correct");
    for (const uint64_t size : {UINT64_C(5000), UINT64_C(0), UINT64_C(200000), UINT64_C(1)}) {
        block = umbra_named_realloc(block, size);
        ASSERT_NE(block, nullptr);
        EXPECT_EQ(umbra_named_size(block), size);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % 16, 0U);
    }
    umbra_named_free(block);
    umbra_named_usage usage = {};
    ASSERT_EQ(umbra_named_usage_of("correct", &usage), 0);
    EXPECT_EQ(usage.live_blocks, 0U);
    EXPECT_EQ(usage.peak_bytes, 200000U);
}

}  // namespace
