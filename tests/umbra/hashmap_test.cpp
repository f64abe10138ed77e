// The hash map. The program puts a named allocation of its own in place of the library's: it counts blocks, remembers
// descriptions and fails when it is told to.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <umbra/hash.h>
#include <umbra/hashmap.h>
#include <umbra/named_alloc.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <list>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace {

struct allocation_record {
    std::map<void *, uint64_t> live;
    std::map<std::string, int> calls;  // by description
    uint64_t largest = 0;
    int until_failure = -1;  // calls that still succeed; -1: all do
    bool keeps_failing = false;

    bool fails() {
        if (until_failure < 0) {
            return false;
        }
        if (until_failure > 0) {
            --until_failure;
            return false;
        }
        until_failure = keeps_failing ? 0 : -1;
        return true;
    }

    void *add(void *block, uint64_t size, const char *description) {
        live[block] = size;
        ++calls[description];
        largest = std::max(largest, size);
        return block;
    }
};

allocation_record &allocations() {
    static allocation_record record;
    return record;
}

}  // namespace

void *umbra_named_malloc_(uint64_t size, const char *description) {
    return allocations().fails() ? nullptr : allocations().add(std::malloc(size), size, description);
}

void *umbra_named_calloc_(uint64_t count, uint64_t size, const char *description) {
    return allocations().fails() ? nullptr : allocations().add(std::calloc(count, size), count * size, description);
}

void umbra_named_free(void *block) {
    if (block != nullptr) {
        EXPECT_EQ(allocations().live.erase(block), 1U) << "not a live block";
        std::free(block);
    }
}

namespace umbra_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::UnorderedElementsAre;

uint32_t hash_text(const void *key) {
    const std::string &text = *static_cast<const std::string *>(key);
    return umbra_hash_calculate(text.data(), static_cast<uint32_t>(text.size()));
}

int equal_texts(const void *a, const void *b) {
    return *static_cast<const std::string *>(a) == *static_cast<const std::string *>(b) ? 1 : 0;
}

// Numbers as keys, without anything behind the pointer.
void *pointer(uint64_t number) {
    return reinterpret_cast<void *>(number);
}
uint64_t number(const void *pointer) {
    return reinterpret_cast<uint64_t>(pointer);
}

uint32_t hash_all_equal(const void *) {
    return 77;
}
uint32_t hash_low_bits_zero(const void *key) {
    return static_cast<uint32_t>(number(key) << 20);
}
uint32_t hash_high_bits_zero(const void *key) {
    return static_cast<uint32_t>(number(key) & 0xFF);
}
uint32_t hash_number(const void *key) {
    return static_cast<uint32_t>(number(key));
}
int equal_numbers(const void *a, const void *b) {
    return a == b ? 1 : 0;
}

using map_ptr = std::unique_ptr<umbra_hashmap, decltype(&umbra_hashmap_free)>;

map_ptr make(umbra_hash_fn hash, umbra_hash_equal_fn equal, uint32_t initial_size = 0) {
    umbra_hashmap *map = nullptr;
    EXPECT_EQ(umbra_hashmap_create(&map, initial_size, hash, equal, 0), 0);
    return {map, umbra_hashmap_free};
}

map_ptr make_numbers(const std::vector<uint64_t> &numbers) {
    map_ptr map = make(hash_number, equal_numbers);
    for (const uint64_t n : numbers) {
        EXPECT_NE(umbra_hashmap_insert(map.get(), pointer(n), pointer(n * 10)), 0);
    }
    return map;
}

std::vector<uint64_t> keys_of(umbra_hashmap *map) {
    std::vector<uint64_t> result;
    for (umbra_hashmap_entry *at = umbra_hashmap_first(map); at != nullptr; at = umbra_hashmap_next(map, at)) {
        result.push_back(number(umbra_hashmap_key(at)));
    }
    return result;
}

class Hashmap : public testing::Test {
  protected:
    Hashmap() { allocations() = {}; }
    ~Hashmap() override { EXPECT_THAT(allocations().live, IsEmpty()) << "blocks were lost"; }
};

TEST_F(Hashmap, HoldsWhatWasInserted) {
    const map_ptr map = make(hash_text, equal_texts);
    std::string red = "red";
    std::string blue = "blue";
    std::string value = "a value";
    EXPECT_EQ(umbra_hashmap_get(map.get(), &red), nullptr);
    EXPECT_NE(umbra_hashmap_insert(map.get(), &red, &value), 0);
    EXPECT_NE(umbra_hashmap_insert(map.get(), &blue, nullptr), 0);
    EXPECT_EQ(umbra_hashmap_size(map.get()), 2U);

    const std::string wanted = "red";
    umbra_hashmap_entry *found = umbra_hashmap_get(map.get(), &wanted);
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(umbra_hashmap_key(found), &red) << "the pointer that was inserted, not the one that was asked for";
    EXPECT_EQ(umbra_hashmap_value(found), &value);
    ASSERT_NE(umbra_hashmap_get(map.get(), &blue), nullptr);
    EXPECT_EQ(umbra_hashmap_value(umbra_hashmap_get(map.get(), &blue)), nullptr);
}

TEST_F(Hashmap, KeepsTheEntryOfAKeyThatIsThere) {
    const map_ptr map = make(hash_text, equal_texts);
    std::string first = "key";
    std::string second = "key";
    ASSERT_NE(umbra_hashmap_insert(map.get(), &first, pointer(1)), 0);
    EXPECT_EQ(umbra_hashmap_insert(map.get(), &second, pointer(2)), 0);
    EXPECT_EQ(umbra_hashmap_size(map.get()), 1U);
    umbra_hashmap_entry *entry = umbra_hashmap_get(map.get(), &second);
    EXPECT_EQ(umbra_hashmap_key(entry), &first);
    EXPECT_EQ(umbra_hashmap_value(entry), pointer(1));
    EXPECT_EQ(umbra_hashmap_set_value(entry, pointer(2)), pointer(1));
    EXPECT_EQ(umbra_hashmap_value(entry), pointer(2));
}

TEST_F(Hashmap, TakesNullKeys) {
    const map_ptr map = make(hash_number, equal_numbers);
    EXPECT_EQ(umbra_hashmap_get(map.get(), nullptr), nullptr);
    EXPECT_NE(umbra_hashmap_insert(map.get(), nullptr, pointer(3)), 0);
    ASSERT_NE(umbra_hashmap_get(map.get(), nullptr), nullptr);
    EXPECT_EQ(umbra_hashmap_value(umbra_hashmap_get(map.get(), nullptr)), pointer(3));
}

TEST_F(Hashmap, IsWalkedInTheOrderOfInsertion) {
    const map_ptr map = make_numbers({5, 3, 9, 1});
    EXPECT_THAT(keys_of(map.get()), ElementsAre(5, 3, 9, 1));
    umbra_hashmap_remove_tuple(map.get(), umbra_hashmap_get(map.get(), pointer(3)));
    umbra_hashmap_insert(map.get(), pointer(3), nullptr);
    EXPECT_THAT(keys_of(map.get()), ElementsAre(5, 9, 1, 3));
}

TEST_F(Hashmap, KeepsOrderAndAddressesWhileItGrows) {
    constexpr uint64_t count = 10'000;
    const map_ptr map = make(hash_number, equal_numbers);
    std::vector<umbra_hashmap_entry *> entries;
    std::vector<uint64_t> expected;
    for (uint64_t i = 0; i < count; ++i) {
        const uint64_t key = i * 0x9E3779B1 % 1'000'000'007;
        ASSERT_NE(umbra_hashmap_insert(map.get(), pointer(key), pointer(i)), 0);
        entries.push_back(umbra_hashmap_get(map.get(), pointer(key)));
        expected.push_back(key);
    }
    EXPECT_EQ(umbra_hashmap_size(map.get()), count);
    EXPECT_EQ(keys_of(map.get()), expected);
    for (uint64_t i = 0; i < count; ++i) {
        ASSERT_EQ(umbra_hashmap_get(map.get(), pointer(expected[i])), entries[i]);
        ASSERT_EQ(umbra_hashmap_value(entries[i]), pointer(i));
    }
}

// Keys may be released by a visit before it removes their entry.
TEST_F(Hashmap, RemovesEntriesWhoseKeysAreGone) {
    static int calls;
    const map_ptr map = make(
        [](const void *key) {
            ++calls;
            return hash_number(key);
        },
        [](const void *a, const void *b) {
            ++calls;
            return equal_numbers(a, b);
        });
    for (uint64_t i = 0; i < 100; ++i) {
        umbra_hashmap_insert(map.get(), pointer(i), nullptr);
    }
    calls = 0;
    umbra_hashmap_iterate(
        map.get(), [](umbra_hashmap *m, umbra_hashmap_entry *entry, void *) { umbra_hashmap_remove_tuple(m, entry); },
        nullptr);
    EXPECT_EQ(umbra_hashmap_size(map.get()), 0U);
    EXPECT_EQ(calls, 0);
}

struct visits {
    std::vector<uint64_t> seen;
    uint64_t at = 0;      // at this key,
    uint64_t remove = 0;  // remove this one,
    uint64_t insert = 0;  // insert this one
};

void visit(umbra_hashmap *map, umbra_hashmap_entry *entry, void *ctx) {
    auto &what = *static_cast<visits *>(ctx);
    what.seen.push_back(number(umbra_hashmap_key(entry)));
    if (what.seen.back() == what.at && what.remove != 0) {
        umbra_hashmap_remove_tuple(map, umbra_hashmap_get(map, pointer(what.remove)));
    }
    if (what.seen.back() == what.at && what.insert != 0) {
        umbra_hashmap_insert(map, pointer(what.insert), nullptr);
    }
}

TEST_F(Hashmap, IterationSurvivesTheRemovalOfAnyEntry) {
    for (uint64_t at = 1; at <= 4; ++at) {
        for (uint64_t removed = 1; removed <= 4; ++removed) {
            const map_ptr map = make_numbers({1, 2, 3, 4});
            visits seen{{}, at, removed, 0};
            umbra_hashmap_iterate(map.get(), visit, &seen);
            std::vector<uint64_t> expected;
            std::vector<uint64_t> left;
            for (uint64_t n = 1; n <= 4; ++n) {
                if (n != removed) {
                    left.push_back(n);
                }
                if (n != removed || n <= at) {
                    expected.push_back(n);
                }
            }
            EXPECT_EQ(seen.seen, expected) << "removed " << removed << " at " << at;
            EXPECT_EQ(keys_of(map.get()), left);
        }
    }
}

TEST_F(Hashmap, IterationReachesWhatIsInsertedMeanwhile) {
    for (const uint64_t at : {1U, 2U}) {
        const map_ptr map = make_numbers({1, 2});
        visits seen{{}, at, 0, 3};
        umbra_hashmap_iterate(map.get(), visit, &seen);
        EXPECT_THAT(seen.seen, ElementsAre(1, 2, 3));
    }
    const map_ptr map = make_numbers({1, 2});
    visits seen{{}, 2, 2, 3};
    umbra_hashmap_iterate(map.get(), visit, &seen);
    EXPECT_THAT(seen.seen, ElementsAre(1, 2, 3)) << "the last removed and another appended";
}

TEST_F(Hashmap, IterationsNest) {
    const map_ptr map = make_numbers({1, 2, 3, 4});
    int outer_visits = 0;
    umbra_hashmap_iterate(
        map.get(),
        [](umbra_hashmap *m, umbra_hashmap_entry *, void *ctx) {
            ++*static_cast<int *>(ctx);
            umbra_hashmap_iterate(
                m, [](umbra_hashmap *n, umbra_hashmap_entry *entry, void *) { umbra_hashmap_remove_tuple(n, entry); },
                nullptr);
        },
        &outer_visits);
    EXPECT_EQ(outer_visits, 1) << "the inner iteration left nothing to visit";
    EXPECT_EQ(umbra_hashmap_size(map.get()), 0U);
}

TEST_F(Hashmap, IterationsOfSeveralMapsNest) {
    const map_ptr inner = make_numbers({7, 8});
    const map_ptr outer = make_numbers({1, 2});
    struct visits_of_both {
        umbra_hashmap *inner;
        std::vector<uint64_t> seen;
    } both{inner.get(), {}};
    umbra_hashmap_iterate(
        outer.get(),
        [](umbra_hashmap *, umbra_hashmap_entry *entry, void *ctx) {
            auto *visits = static_cast<visits_of_both *>(ctx);
            visits->seen.push_back(number(umbra_hashmap_key(entry)));
            umbra_hashmap_iterate(
                visits->inner,
                [](umbra_hashmap *map, umbra_hashmap_entry *at, void *seen) {
                    static_cast<std::vector<uint64_t> *>(seen)->push_back(number(umbra_hashmap_key(at)));
                    umbra_hashmap_insert(map, pointer(9), nullptr);
                    umbra_hashmap_remove_tuple(map, at);
                },
                &visits->seen);
            umbra_hashmap_insert(visits->inner, pointer(5), nullptr);
        },
        &both);
    EXPECT_THAT(both.seen, ElementsAre(1, 7, 8, 9, 2, 5, 9));
    EXPECT_THAT(keys_of(outer.get()), ElementsAre(1, 2));
    EXPECT_THAT(keys_of(inner.get()), ElementsAre(5));
}

TEST_F(Hashmap, IsRightWithPoorHashes) {
    for (umbra_hash_fn hash : {hash_all_equal, hash_low_bits_zero, hash_high_bits_zero}) {
        const map_ptr map = make(hash, equal_numbers);
        for (uint64_t i = 0; i < 1'000; ++i) {
            ASSERT_NE(umbra_hashmap_insert(map.get(), pointer(i), pointer(i + 1)), 0);
        }
        for (uint64_t i = 0; i < 1'000; i += 3) {
            umbra_hashmap_remove_tuple(map.get(), umbra_hashmap_get(map.get(), pointer(i)));
        }
        for (uint64_t i = 0; i < 1'000; ++i) {
            umbra_hashmap_entry *found = umbra_hashmap_get(map.get(), pointer(i));
            ASSERT_EQ(found != nullptr, i % 3 != 0);
            ASSERT_EQ(umbra_hashmap_value(found), i % 3 != 0 ? pointer(i + 1) : nullptr);
        }
    }
}

TEST_F(Hashmap, NeverComparesKeysOfDifferentHashes) {
    static int comparisons;
    comparisons = 0;
    const map_ptr map = make(hash_number, [](const void *a, const void *b) {
        ++comparisons;
        return equal_numbers(a, b);
    });
    for (uint64_t i = 0; i < 10'000; ++i) {
        ASSERT_NE(umbra_hashmap_insert(map.get(), pointer(i), nullptr), 0);
    }
    EXPECT_EQ(comparisons, 0);
    EXPECT_NE(umbra_hashmap_get(map.get(), pointer(5)), nullptr);
    EXPECT_EQ(comparisons, 1);
}

TEST_F(Hashmap, TakesAnyNumberButZeroForEqual) {
    const map_ptr map = make(hash_all_equal, [](const void *a, const void *b) { return a == b ? -5 : 0; });
    umbra_hashmap_insert(map.get(), pointer(1), nullptr);
    EXPECT_NE(umbra_hashmap_get(map.get(), pointer(1)), nullptr);
    EXPECT_EQ(umbra_hashmap_get(map.get(), pointer(2)), nullptr);
}

// A list in the order of insertion with an index, as the standard library would do it.
struct oracle {
    std::list<std::pair<uint64_t, uint64_t>> order;
    std::unordered_map<uint64_t, std::list<std::pair<uint64_t, uint64_t>>::iterator> index;
};

void expect_same(umbra_hashmap *map, const oracle &expected) {
    ASSERT_EQ(umbra_hashmap_size(map), expected.order.size());
    umbra_hashmap_entry *at = umbra_hashmap_first(map);
    for (const auto &[key, value] : expected.order) {
        ASSERT_NE(at, nullptr);
        ASSERT_EQ(number(umbra_hashmap_key(at)), key);
        ASSERT_EQ(number(umbra_hashmap_value(at)), value);
        at = umbra_hashmap_next(map, at);
    }
    ASSERT_EQ(at, nullptr);
}

TEST_F(Hashmap, DoesAMillionRandomOperationsLikeAListWithAnIndex) {
    const map_ptr map = make(hash_number, equal_numbers);
    oracle expected;
    std::mt19937_64 random(99);
    for (uint64_t i = 0; i < 1'000'000; ++i) {
        // The range of keys changes, so that the map grows and is emptied again.
        const uint64_t key = random() % (i % 200'000 < 100'000 ? 5'000 : 50);
        const auto known = expected.index.find(key);
        umbra_hashmap_entry *entry = umbra_hashmap_get(map.get(), pointer(key));
        ASSERT_EQ(entry != nullptr, known != expected.index.end());
        if (random() % 2 == 0) {
            ASSERT_EQ(umbra_hashmap_insert(map.get(), pointer(key), pointer(i)) != 0, entry == nullptr);
            if (entry == nullptr) {
                expected.index[key] = expected.order.insert(expected.order.end(), {key, i});
            }
        } else if (entry != nullptr) {
            ASSERT_EQ(number(umbra_hashmap_value(entry)), known->second->second);
            umbra_hashmap_remove_tuple(map.get(), entry);
            expected.order.erase(known->second);
            expected.index.erase(known);
        }
        if (i % 20'000 == 0) {
            expect_same(map.get(), expected);
        }
    }
    expect_same(map.get(), expected);
}

TEST_F(Hashmap, TakesItsMemoryUnderDescriptions) {
    { const map_ptr map = make_numbers({1, 2, 3, 4, 5, 6, 7, 8, 9}); }
    EXPECT_THAT(allocations().calls, UnorderedElementsAre(Pair("umbra hash map", 1), Pair("umbra hash map table", 2),
                                                          Pair("umbra hash map entry", 9)));
}

TEST_F(Hashmap, CreationSurvivesTheFailureOfAnyAllocation) {
    umbra_hashmap *map = nullptr;
    int failures = 0;
    for (;; ++failures) {
        map = static_cast<umbra_hashmap *>(pointer(1));
        allocations().until_failure = failures;
        const int result = umbra_hashmap_create(&map, 0, hash_number, equal_numbers, 0);
        allocations().until_failure = -1;
        if (result == 0) {
            break;
        }
        ASSERT_EQ(result, ENOMEM);
        ASSERT_EQ(map, nullptr);
        ASSERT_THAT(allocations().live, IsEmpty());
    }
    EXPECT_EQ(failures, 2);
    umbra_hashmap_free(map);
}

// Inserts a hundred entries; the allocation after `successes` fails, and all later ones if told so.
int insert_with_failure(int successes, bool keeps_failing) {
    const map_ptr map = make(hash_number, equal_numbers);
    allocations().keeps_failing = keeps_failing;
    allocations().until_failure = successes;
    std::vector<uint64_t> expected;
    int refused = 0;
    for (uint64_t i = 0; i < 100; ++i) {
        if (umbra_hashmap_insert(map.get(), pointer(i), pointer(i)) != 0) {
            expected.push_back(i);
        } else {
            ++refused;
            EXPECT_EQ(umbra_hashmap_get(map.get(), pointer(i)), nullptr);
        }
        EXPECT_EQ(umbra_hashmap_size(map.get()), expected.size());
    }
    EXPECT_EQ(keys_of(map.get()), expected);
    for (const uint64_t key : expected) {
        EXPECT_NE(umbra_hashmap_get(map.get(), pointer(key)), nullptr);
    }
    allocations().until_failure = -1;
    return refused;
}

TEST_F(Hashmap, InsertionSurvivesTheFailureOfAnyAllocation) {
    // 100 entries, and 8 buckets that grow to 128.
    constexpr int all = 100 + 4;
    int refused = 0;
    for (int successes = 0; successes < all; ++successes) {
        refused += insert_with_failure(successes, false);
    }
    EXPECT_EQ(refused, 100) << "each entry once; a map that cannot grow goes on as it is";
    EXPECT_EQ(insert_with_failure(all, false), 0);
    EXPECT_EQ(insert_with_failure(50, true), 100 - 50 + 3) << "50 allocations are 47 entries and 3 larger tables";
}

TEST_F(Hashmap, WorksWithoutMemoryForGrowing) {
    const map_ptr map = make_numbers({1, 2, 3, 4, 5, 6, 7, 8});
    const int tables = allocations().calls["umbra hash map table"];
    allocations().until_failure = 1;  // the entry is there, the larger table is not
    EXPECT_NE(umbra_hashmap_insert(map.get(), pointer(9), nullptr), 0);
    EXPECT_EQ(allocations().calls["umbra hash map table"], tables);
    EXPECT_THAT(keys_of(map.get()), ElementsAre(1, 2, 3, 4, 5, 6, 7, 8, 9));
    EXPECT_NE(umbra_hashmap_insert(map.get(), pointer(10), nullptr), 0);
    EXPECT_EQ(allocations().calls["umbra hash map table"], tables + 1) << "it grows as soon as it can";
}

TEST_F(Hashmap, AnExpectedNumberOfEntriesNeedsNoGrowth) {
    for (const uint32_t expected : {9U, 64U, 1'000U}) {
        allocations() = {};
        const map_ptr map = make(hash_number, equal_numbers, expected);
        for (uint64_t i = 0; i < expected; ++i) {
            umbra_hashmap_insert(map.get(), pointer(i), nullptr);
        }
        EXPECT_EQ(allocations().calls["umbra hash map table"], 1) << expected;
    }
}

TEST_F(Hashmap, AHugeInitialSizeIsNotAllocated) {
    for (const uint32_t size : {65'536U, 65'537U, 1U << 31, (1U << 31) + 1, UINT32_MAX}) {
        allocations() = {};
        const map_ptr map = make(hash_number, equal_numbers, size);
        EXPECT_EQ(allocations().largest, 65'536U * sizeof(void *)) << size;
        EXPECT_NE(umbra_hashmap_insert(map.get(), pointer(1), nullptr), 0);
    }
}

TEST_F(Hashmap, CreationRefusesBadArguments) {
    auto *map = static_cast<umbra_hashmap *>(pointer(1));
    EXPECT_EQ(umbra_hashmap_create(nullptr, 0, hash_number, equal_numbers, 0), EINVAL);
    EXPECT_EQ(umbra_hashmap_create(&map, 0, nullptr, equal_numbers, 0), EINVAL);
    EXPECT_EQ(map, nullptr);
    EXPECT_EQ(umbra_hashmap_create(&map, 0, hash_number, nullptr, 0), EINVAL);
    EXPECT_EQ(umbra_hashmap_create(&map, 0, hash_number, equal_numbers, 1), EINVAL);
    EXPECT_EQ(map, nullptr);
    EXPECT_THAT(allocations().calls, IsEmpty());
}

TEST_F(Hashmap, NullDoesNothing) {
    const map_ptr map = make_numbers({1});
    umbra_hashmap_entry *entry = umbra_hashmap_first(map.get());
    EXPECT_EQ(umbra_hashmap_get(nullptr, pointer(1)), nullptr);
    EXPECT_EQ(umbra_hashmap_insert(nullptr, pointer(1), nullptr), 0);
    EXPECT_EQ(umbra_hashmap_size(nullptr), 0U);
    EXPECT_EQ(umbra_hashmap_key(nullptr), nullptr);
    EXPECT_EQ(umbra_hashmap_value(nullptr), nullptr);
    EXPECT_EQ(umbra_hashmap_set_value(nullptr, pointer(1)), nullptr);
    EXPECT_EQ(umbra_hashmap_first(nullptr), nullptr);
    EXPECT_EQ(umbra_hashmap_next(nullptr, entry), nullptr);
    EXPECT_EQ(umbra_hashmap_next(map.get(), nullptr), nullptr);
    umbra_hashmap_iterate(nullptr, visit, nullptr);
    umbra_hashmap_iterate(map.get(), nullptr, nullptr);
    umbra_hashmap_remove_tuple(nullptr, entry);
    umbra_hashmap_remove_tuple(map.get(), nullptr);
    umbra_hashmap_free(nullptr);
    EXPECT_THAT(keys_of(map.get()), ElementsAre(1));
}

TEST_F(Hashmap, LeavesEntriesOfOtherMapsAlone) {
    const map_ptr map = make_numbers({1, 2});
    const map_ptr other = make_numbers({1, 2});
    umbra_hashmap_remove_tuple(map.get(), umbra_hashmap_first(other.get()));
    EXPECT_EQ(umbra_hashmap_next(map.get(), umbra_hashmap_first(other.get())), nullptr);
    EXPECT_THAT(keys_of(map.get()), ElementsAre(1, 2));
    EXPECT_THAT(keys_of(other.get()), ElementsAre(1, 2));
}

}  // namespace
}  // namespace umbra_test
