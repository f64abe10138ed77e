#include "arena.h"

#include <gtest/gtest.h>
#include <quill_nyx.h>

#include <cstdint>
#include <cstring>
#include <vector>

using examples::arena;

TEST(Arena, BlocksAreAlignedAndApart) {
    arena memory(1 << 20);
    std::vector<std::pair<unsigned char *, uint64_t>> blocks;
    for (uint64_t size = 1; size < 700; ++size) {
        auto *block = static_cast<unsigned char *>(arena::allocate(size, &memory));
        ASSERT_NE(block, nullptr);
        ASSERT_EQ(reinterpret_cast<uintptr_t>(block) % alignof(std::max_align_t), 0u);
        std::memset(block, static_cast<int>(size % 251), size);
        blocks.emplace_back(block, size);
    }
    for (const auto &[block, size] : blocks) {
        for (uint64_t i = 0; i < size; ++i) {
            ASSERT_EQ(block[i], size % 251);
        }
    }
}

TEST(Arena, GivesExactlyItsBudget) {
    arena memory(64);
    EXPECT_NE(memory.take(16), nullptr);
    EXPECT_NE(memory.take(33), nullptr);  // rounded up to 48
    EXPECT_EQ(memory.used(), 64u);
    EXPECT_EQ(memory.take(1), nullptr);
}

TEST(Arena, RefusedBlockTakesNothing) {
    arena memory(64);
    EXPECT_EQ(memory.take(65), nullptr);
    EXPECT_EQ(memory.used(), 0u);
    EXPECT_NE(memory.take(64), nullptr);
}

TEST(Arena, PaddingCountsAgainstTheBudget) {
    arena memory(40);
    EXPECT_EQ(memory.take(33), nullptr);
    EXPECT_NE(memory.take(32), nullptr);
    EXPECT_EQ(memory.take(8), nullptr);
}

TEST(Arena, SizesNearTheLargestNumberAreRefused) {
    arena memory(UINT64_MAX);
    EXPECT_EQ(memory.take(UINT64_MAX), nullptr);
    EXPECT_EQ(memory.take(UINT64_MAX - 7), nullptr);
    EXPECT_EQ(memory.used(), 0u);
    EXPECT_NE(memory.take(1), nullptr);
}

TEST(Arena, BlocksLargerThanAChunkWork) {
    arena memory(1 << 20);
    auto *large = static_cast<unsigned char *>(memory.take(100000));
    ASSERT_NE(large, nullptr);
    std::memset(large, 1, 100000);
    auto *small = static_cast<unsigned char *>(memory.take(100));
    ASSERT_NE(small, nullptr);
    std::memset(small, 2, 100);
    EXPECT_EQ(large[99999], 1);
}

TEST(Arena, ResetGivesTheBudgetBack) {
    arena memory(64);
    EXPECT_NE(memory.take(64), nullptr);
    memory.reset();
    EXPECT_EQ(memory.used(), 0u);
    EXPECT_NE(memory.take(64), nullptr);
    EXPECT_EQ(memory.take(1), nullptr);
}

namespace {

/* A data tree with so many empty children: two bytes each. */
std::vector<uint8_t> many_empty_children(size_t count) {
    std::vector<uint8_t> bytes;
    for (size_t i = 0; i < count; ++i) {
        bytes.insert(bytes.end(), {0x3A, 0x00});
    }
    return bytes;
}

}  // namespace

TEST(Arena, BoundsWhatSmallInputCanTake) {
    const auto bytes = many_empty_children(1000);
    quill_nyx_datatree tree;
    arena enough(1000 * sizeof(quill_nyx_datatree));
    EXPECT_EQ(quill_nyx_datatree_decode_ext(&tree, bytes.data(), bytes.size(), arena::allocate, &enough, 0), 0);
    EXPECT_EQ(tree.children_count, 1000u);
    arena too_little(1000 * sizeof(quill_nyx_datatree) - 1);
    EXPECT_EQ(quill_nyx_datatree_decode_ext(&tree, bytes.data(), bytes.size(), arena::allocate, &too_little, 0),
              QUILL_DECODE_NO_MEMORY);
}

TEST(Arena, ReleasesWhatADecoderLeftBehind) {
    /* A filter twice: the strings of the first one can no longer be reached from the record. Only a leak checker can
     * see that they do not stay behind, and the order of the names what was kept. */
    const std::vector<uint8_t> twice{0x12, 0x03, 0x0A, 0x01, 'a', 0x12, 0x03, 0x0A, 0x01, 'b'};
    arena memory(1024);
    quill_nyx_filter filter;
    ASSERT_EQ(quill_nyx_filter_decode_ext(&filter, twice.data(), twice.size(), arena::allocate, &memory, 0), 0);
    EXPECT_STREQ(filter.tree.name, "b");
    EXPECT_EQ(memory.used(), 2 * alignof(std::max_align_t));
}
