// Several threads read a map while none changes it.
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/mman.h>
#include <umbra/hashmap.h>

#include <array>
#include <semaphore>
#include <thread>
#include <vector>

namespace {

constexpr uintptr_t entries = 100;
constexpr std::size_t stack_size = std::size_t{1} << 20U;

uint32_t hash_of(const void *key) {
    return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(key));
}

int are_equal(const void *a, const void *b) {
    return a == b ? 1 : 0;
}

void *number(uintptr_t value) {
    return reinterpret_cast<void *>(value);
}

class HashmapReaders : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(umbra_hashmap_create(&map, 0, hash_of, are_equal, 0), 0);
        for (uintptr_t i = 1; i <= entries; ++i) {
            ASSERT_EQ(umbra_hashmap_insert(map, number(i), number(i)), 1);
        }
    }
    void TearDown() override { umbra_hashmap_free(map); }

    umbra_hashmap *map = nullptr;
};

void add_up(umbra_hashmap * /*map*/, umbra_hashmap_entry *entry, void *sum) {
    *static_cast<uintptr_t *>(sum) += reinterpret_cast<uintptr_t>(umbra_hashmap_value(entry));
}

TEST_F(HashmapReaders, AllIterateAtOnce) {
    std::array<uintptr_t, 4> sums{};
    std::vector<std::thread> readers;
    readers.reserve(sums.size());
    for (uintptr_t &sum : sums) {
        readers.emplace_back([this, &sum] {
            for (int round = 0; round < 200; ++round) {
                umbra_hashmap_iterate(map, add_up, &sum);
            }
        });
    }
    for (std::thread &reader : readers) {
        reader.join();
    }
    for (const uintptr_t sum : sums) {
        EXPECT_EQ(sum, 200 * entries * (entries + 1) / 2);
    }
}

// A reader that stops at its first entry until it is told to go on.
struct pausing_reader {
    umbra_hashmap *map = nullptr;
    std::binary_semaphore is_in{0};
    std::binary_semaphore may_go{0};
    unsigned seen = 0;
};

void pause_at_first(umbra_hashmap * /*map*/, umbra_hashmap_entry * /*entry*/, void *ctx) {
    auto *reader = static_cast<pausing_reader *>(ctx);
    if (reader->seen++ == 0) {
        reader->is_in.release();
        reader->may_go.acquire();
    }
}

void *read_with_a_pause(void *ctx) {
    umbra_hashmap_iterate(static_cast<pausing_reader *>(ctx)->map, pause_at_first, ctx);
    return nullptr;
}

// The first to come is the first to go, and its stack goes with it.
TEST_F(HashmapReaders, LeaveNothingBehindForWhoChangesTheMapNext) {
    void *stack = mmap(nullptr, stack_size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(stack, MAP_FAILED);
    pthread_attr_t on_that_stack;
    pthread_attr_init(&on_that_stack);
    ASSERT_EQ(pthread_attr_setstack(&on_that_stack, stack, stack_size), 0);
    pausing_reader first;
    pausing_reader second;
    first.map = second.map = map;
    pthread_t first_thread = {};
    ASSERT_EQ(pthread_create(&first_thread, &on_that_stack, read_with_a_pause, &first), 0);
    first.is_in.acquire();
    std::thread second_thread(read_with_a_pause, &second);
    second.is_in.acquire();
    first.may_go.release();
    pthread_join(first_thread, nullptr);
    second.may_go.release();
    second_thread.join();
    munmap(stack, stack_size);
    pthread_attr_destroy(&on_that_stack);
    EXPECT_EQ(first.seen, entries);
    EXPECT_EQ(second.seen, entries);

    EXPECT_EQ(umbra_hashmap_insert(map, number(entries + 1), nullptr), 1);
    umbra_hashmap_remove_tuple(map, umbra_hashmap_get(map, number(1)));
    EXPECT_EQ(umbra_hashmap_size(map), entries);
}

}  // namespace
