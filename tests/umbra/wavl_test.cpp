// What the tree promises its callers: results, several orders, misuse.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <umbra/wavl.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <deque>
#include <functional>
#include <set>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "wavl_shape.h"

namespace umbra_test {
namespace {

using testing::ElementsAre;

static_assert(sizeof(umbra_wavl_tree) == 64);
static_assert(std::is_standard_layout_v<umbra_wavl_node> && std::is_trivial_v<umbra_wavl_node>);

struct item {
    umbra_wavl_node node;
    umbra_wavl_link more[3];
    int id;
    std::string name;
    int weight;
};

item &item_of(umbra_wavl_node *node) {
    return *reinterpret_cast<item *>(node);
}

int three_way(int a, int b) {
    return a > b ? UMBRA_WAVL_GREATER : a < b ? UMBRA_WAVL_LESS : UMBRA_WAVL_EQUAL;
}

// Index 0: by id; 1: by name; 2: by weight, then id; 3: by id, highest first.
int compare_items(umbra_wavl_link *a, umbra_wavl_link *b) {
    EXPECT_EQ(umbra_wavl_link_index(a), umbra_wavl_link_index(b));
    const item &x = item_of(umbra_wavl_link_node(a));
    const item &y = item_of(umbra_wavl_link_node(b));
    switch (umbra_wavl_link_index(a)) {
        case 0:
            return three_way(x.id, y.id);
        case 1:
            return three_way(x.name.compare(y.name), 0);
        case 2:
            return x.weight != y.weight ? three_way(x.weight, y.weight) : three_way(x.id, y.id);
        default:
            return three_way(y.id, x.id);
    }
}

// A tree with its items. They stay where they are, deleted ones included.
struct item_tree {
    explicit item_tree(uint32_t index_count = 1) : indexes(index_count) {
        EXPECT_EQ(umbra_wavl_tree_init(&tree, indexes, 0, compare_items), 0);
    }

    item &make(int id, const std::string &name = "", int weight = 0) {
        item &made = items.emplace_back();
        umbra_wavl_init(&made.node, indexes);
        made.id = id;
        made.name = name.empty() ? "name " + std::to_string(id) : name;
        made.weight = weight;
        return made;
    }

    item &add(int id, const std::string &name = "", int weight = 0) {
        item &made = make(id, name, weight);
        EXPECT_EQ(umbra_wavl_insert(&tree, &made.node), &made.node);
        return made;
    }

    std::vector<int> ids(uint32_t index = 0) {
        std::vector<int> result;
        for (umbra_wavl_node *at = umbra_wavl_get_first(&tree, index); at != nullptr; at = umbra_wavl_next(at, index)) {
            result.push_back(item_of(at).id);
        }
        return result;
    }

    std::vector<int> ids_backwards(uint32_t index = 0) {
        std::vector<int> result;
        for (umbra_wavl_node *at = umbra_wavl_get_last(&tree, index); at != nullptr; at = umbra_wavl_prev(at, index)) {
            result.push_back(item_of(at).id);
        }
        return result;
    }

    // Everything that an operation could change, as bytes.
    std::string bytes() {
        std::string result(reinterpret_cast<const char *>(&tree), sizeof tree);
        for (const item &i : items) {
            result.append(reinterpret_cast<const char *>(&i), offsetof(item, name));
        }
        return result;
    }

    void expect_sound() {
        for (uint32_t index = 0; index < indexes; ++index) {
            EXPECT_EQ(shape_of(tree, index).fault, "") << "index " << index;
        }
        EXPECT_EQ(umbra_wavl_check(&tree), 0);
    }

    uint32_t indexes;
    umbra_wavl_tree tree{};
    std::deque<item> items;
};

TEST(WavlTree, IsEmptyAfterInitialisation) {
    item_tree empty(4);
    EXPECT_EQ(umbra_wavl_count(&empty.tree), 0U);
    for (uint32_t index = 0; index < 4; ++index) {
        EXPECT_EQ(umbra_wavl_get_first(&empty.tree, index), nullptr);
        EXPECT_EQ(umbra_wavl_get_last(&empty.tree, index), nullptr);
        EXPECT_EQ(umbra_wavl_search(&empty.tree, &empty.make(1).node, index), nullptr);
    }
    EXPECT_EQ(umbra_wavl_check(&empty.tree), 0);
    EXPECT_EQ(umbra_wavl_tree_finish(&empty.tree), 0);
}

TEST(WavlTree, FindsWhatWasInsertedAndNothingElse) {
    item_tree some;
    item &five = some.add(5);
    item &nine = some.add(9);
    EXPECT_EQ(umbra_wavl_search(&some.tree, &some.make(5).node, 0), &five.node);
    EXPECT_EQ(umbra_wavl_search(&some.tree, &some.make(9).node, 0), &nine.node);
    EXPECT_EQ(umbra_wavl_search(&some.tree, &five.node, 0), &five.node) << "a node of the tree is a key as well";
    for (const int id : {4, 6, 10}) {
        EXPECT_EQ(umbra_wavl_search(&some.tree, &some.make(id).node, 0), nullptr);
    }
    EXPECT_EQ(umbra_wavl_count(&some.tree), 2U);
}

TEST(WavlTree, IsWalkedInBothDirections) {
    item_tree some;
    for (const int id : {4, 1, 5, 3, 2}) {
        some.add(id);
    }
    EXPECT_THAT(some.ids(), ElementsAre(1, 2, 3, 4, 5));
    EXPECT_THAT(some.ids_backwards(), ElementsAre(5, 4, 3, 2, 1));
}

TEST(WavlTree, RefusesAnEqualNodeAndStaysAsItIs) {
    item_tree some;
    for (const int id : {4, 1, 5, 3, 2}) {
        some.add(id);
    }
    item &twin = some.make(3);
    const std::string before = some.bytes();
    EXPECT_EQ(umbra_wavl_insert(&some.tree, &twin.node), nullptr);
    EXPECT_EQ(some.bytes(), before);
    twin.id = 6;
    EXPECT_EQ(umbra_wavl_insert(&some.tree, &twin.node), &twin.node) << "it can be used at once";
}

TEST(WavlTree, TakesAnyOtherComparisonResultForEqual) {
    static int answer;
    answer = 0;
    umbra_wavl_tree tree{};
    ASSERT_EQ(umbra_wavl_tree_init(&tree, 1, 0, [](umbra_wavl_link *, umbra_wavl_link *) { return answer; }), 0);
    umbra_wavl_node nodes[2];
    umbra_wavl_init(&nodes[0], 1);
    umbra_wavl_init(&nodes[1], 1);
    ASSERT_EQ(umbra_wavl_insert(&tree, &nodes[0]), &nodes[0]);
    for (const int other : {2, 3, -1, 1 << 30, -2147483647 - 1}) {
        answer = other;
        EXPECT_EQ(umbra_wavl_insert(&tree, &nodes[1]), nullptr) << other;
        EXPECT_EQ(umbra_wavl_search(&tree, &nodes[1], 0), &nodes[0]) << other;
    }
    for (const int other : {UMBRA_WAVL_GREATER, UMBRA_WAVL_LESS}) {
        answer = other;
        EXPECT_EQ(umbra_wavl_search(&tree, &nodes[1], 0), nullptr) << other;
    }
}

TEST(WavlTree, ComparesTheKeyWithTheNodesInThisOrder) {
    static std::vector<std::pair<umbra_wavl_link *, umbra_wavl_link *>> calls;
    calls.clear();
    umbra_wavl_tree tree{};
    ASSERT_EQ(umbra_wavl_tree_init(&tree, 1, 0,
                                   [](umbra_wavl_link *a, umbra_wavl_link *b) {
                                       calls.emplace_back(a, b);
                                       return int{UMBRA_WAVL_GREATER};
                                   }),
              0);
    umbra_wavl_node first;
    umbra_wavl_node second;
    umbra_wavl_init(&first, 1);
    umbra_wavl_init(&second, 1);
    umbra_wavl_insert(&tree, &first);
    EXPECT_TRUE(calls.empty());
    umbra_wavl_insert(&tree, &second);
    EXPECT_THAT(calls, ElementsAre(std::pair(&second.links[0], &first.links[0])));
    EXPECT_EQ(umbra_wavl_get_first(&tree, 0), &first);
    EXPECT_EQ(umbra_wavl_get_last(&tree, 0), &second);
}

TEST(WavlTree, DeletesWithoutComparing) {
    item_tree some;
    for (int id = 0; id < 20; ++id) {
        some.add(id);
    }
    some.tree.compare = [](umbra_wavl_link *, umbra_wavl_link *) -> int {
        ADD_FAILURE() << "nothing is to be compared";
        return UMBRA_WAVL_EQUAL;
    };
    for (item &i : some.items) {
        EXPECT_EQ(umbra_wavl_delete(&some.tree, &i.node), &i.node);
    }
    EXPECT_EQ(umbra_wavl_count(&some.tree), 0U);
}

TEST(WavlTree, TakesADeletedNodeAgain) {
    item_tree some;
    item_tree other;
    for (int id = 0; id < 20; ++id) {
        some.add(id);
    }
    item &seven = some.items[7];
    EXPECT_EQ(umbra_wavl_delete(&some.tree, &seven.node), &seven.node);
    EXPECT_EQ(umbra_wavl_search(&some.tree, &seven.node, 0), nullptr);
    EXPECT_EQ(umbra_wavl_count(&some.tree), 19U);
    EXPECT_EQ(umbra_wavl_insert(&other.tree, &seven.node), &seven.node);
    EXPECT_EQ(umbra_wavl_delete(&other.tree, &seven.node), &seven.node);
    EXPECT_EQ(umbra_wavl_insert(&some.tree, &seven.node), &seven.node);
    EXPECT_EQ(umbra_wavl_count(&some.tree), 20U);
    some.expect_sound();
}

TEST(WavlTree, MayBeMovedInMemory) {
    item_tree some;
    for (int id = 0; id < 9; ++id) {
        some.add(id);
    }
    umbra_wavl_tree elsewhere;
    std::memcpy(&elsewhere, &some.tree, sizeof elsewhere);
    std::memset(&some.tree, 0xAA, sizeof some.tree);
    EXPECT_EQ(umbra_wavl_check(&elsewhere), 0);
    for (item &i : some.items) {
        EXPECT_EQ(umbra_wavl_delete(&elsewhere, &i.node), &i.node);
    }
    EXPECT_EQ(umbra_wavl_tree_finish(&elsewhere), 0);
}

TEST(WavlIndexes, EachHasItsOrder) {
    item_tree some(4);
    some.add(1, "one", 30);
    some.add(2, "two", 10);
    some.add(3, "three", 20);
    some.add(4, "four", 10);
    EXPECT_THAT(some.ids(0), ElementsAre(1, 2, 3, 4));
    EXPECT_THAT(some.ids(1), ElementsAre(4, 1, 3, 2));
    EXPECT_THAT(some.ids(2), ElementsAre(2, 4, 3, 1));
    EXPECT_THAT(some.ids(3), ElementsAre(4, 3, 2, 1));
    EXPECT_THAT(some.ids_backwards(2), ElementsAre(1, 3, 4, 2));
    item &key = some.make(99, "three", 0);
    EXPECT_EQ(umbra_wavl_search(&some.tree, &key.node, 1), &some.items[2].node);
    EXPECT_EQ(umbra_wavl_search(&some.tree, &key.node, 0), nullptr);
    some.expect_sound();
}

TEST(WavlIndexes, ANodeIsInAllOrdersOrInNone) {
    static uint32_t equal_index;
    for (equal_index = 0; equal_index < 4; ++equal_index) {
        item_tree some(4);
        for (int id = 0; id < 8; ++id) {
            some.add(id);
        }
        item &twin = some.make(100);
        some.tree.compare = [](umbra_wavl_link *a, umbra_wavl_link *) -> int {
            return umbra_wavl_link_index(a) == equal_index ? UMBRA_WAVL_EQUAL : UMBRA_WAVL_GREATER;
        };
        const std::string before = some.bytes();
        EXPECT_EQ(umbra_wavl_insert(&some.tree, &twin.node), nullptr) << "index " << equal_index;
        EXPECT_EQ(some.bytes(), before) << "index " << equal_index;
        some.tree.compare = compare_items;
        some.expect_sound();
        EXPECT_EQ(umbra_wavl_insert(&some.tree, &twin.node), &twin.node);
    }
}

TEST(WavlIndexes, RefuseANameThatIsTakenThoughTheIdIsNot) {
    item_tree some(2);
    some.add(1, "one");
    EXPECT_EQ(umbra_wavl_insert(&some.tree, &some.make(2, "one").node), nullptr);
    EXPECT_THAT(some.ids(0), ElementsAre(1));
    EXPECT_THAT(some.ids(1), ElementsAre(1));
}

TEST(WavlIndexes, KeepTheirOrdersThroughRandomChanges) {
    item_tree some(4);
    std::set<int> expected;
    for (int id = 0; id < 64; ++id) {
        some.make(id, "", id * 37 % 11);
    }
    uint32_t random = 12345;
    for (int i = 0; i < 20'000; ++i) {
        random = random * 1'664'525 + 1'013'904'223;
        item &chosen = some.items[random >> 26];
        if (expected.erase(chosen.id) == 1) {
            ASSERT_EQ(umbra_wavl_delete(&some.tree, &chosen.node), &chosen.node);
        } else {
            expected.insert(chosen.id);
            ASSERT_EQ(umbra_wavl_insert(&some.tree, &chosen.node), &chosen.node);
        }
        for (uint32_t index = 0; index < 4; ++index) {
            ASSERT_EQ(shape_of(some.tree, index).fault, "");
        }
        ASSERT_EQ(umbra_wavl_check(&some.tree), 0);
        ASSERT_EQ(some.ids(0), std::vector<int>(expected.begin(), expected.end()));
        ASSERT_EQ(some.ids(3), std::vector<int>(expected.rbegin(), expected.rend()));
    }
}

TEST(WavlIndexes, LinksKnowTheirNodeAndIndex) {
    item_tree some(4);
    item &one = some.make(1);
    for (uint32_t index = 0; index < 4; ++index) {
        umbra_wavl_link *link = umbra_wavl_node_link(&one.node, index);
        EXPECT_EQ(static_cast<void *>(link),
                  index == 0 ? static_cast<void *>(one.node.links) : static_cast<void *>(&one.more[index - 1]));
        EXPECT_EQ(umbra_wavl_link_index(link), index);
        EXPECT_EQ(umbra_wavl_link_node(link), &one.node);
        EXPECT_EQ(umbra_wavl_normalize(link, index), &one.node);
        EXPECT_EQ(umbra_wavl_normalize(link, index + 1), nullptr) << "not a link of that index";
        EXPECT_EQ(umbra_wavl_normalize(nullptr, index), nullptr);
    }
}

TEST(WavlMisuse, InitialisationRefusesWhatNoTreeCanBe) {
    umbra_wavl_tree tree;
    std::memset(&tree, 0x5A, sizeof tree);
    umbra_wavl_tree before;
    std::memcpy(&before, &tree, sizeof tree);
    EXPECT_EQ(umbra_wavl_tree_init(nullptr, 1, 0, compare_items), EINVAL);
    EXPECT_EQ(umbra_wavl_tree_init(&tree, 0, 0, compare_items), EINVAL);
    EXPECT_EQ(umbra_wavl_tree_init(&tree, 5, 0, compare_items), EINVAL);
    EXPECT_EQ(umbra_wavl_tree_init(&tree, UINT32_MAX, 0, compare_items), EINVAL);
    EXPECT_EQ(umbra_wavl_tree_init(&tree, 1, 1, compare_items), EINVAL);
    EXPECT_EQ(umbra_wavl_tree_init(&tree, 1, 0, nullptr), EINVAL);
    EXPECT_EQ(std::memcmp(&before, &tree, sizeof tree), 0);
    EXPECT_EQ(umbra_wavl_tree_init(&tree, 4, 0, compare_items), 0);
}

void expect_unusable(umbra_wavl_tree *tree) {
    item_tree other;
    item &fresh = other.make(1);
    item zeroed{};
    const std::string before = other.bytes();
    for (item *node : {&fresh, &zeroed}) {
        EXPECT_EQ(umbra_wavl_insert(tree, &node->node), nullptr);
        EXPECT_EQ(umbra_wavl_delete(tree, &node->node), nullptr);
        EXPECT_EQ(umbra_wavl_search(tree, &node->node, 0), nullptr);
    }
    EXPECT_EQ(umbra_wavl_get_first(tree, 0), nullptr);
    EXPECT_EQ(umbra_wavl_get_last(tree, 0), nullptr);
    EXPECT_EQ(umbra_wavl_count(tree), 0U);
    EXPECT_EQ(umbra_wavl_check(tree), EINVAL);
    EXPECT_EQ(umbra_wavl_tree_finish(tree), EINVAL);
    EXPECT_EQ(other.bytes(), before);
}

TEST(WavlMisuse, AZeroFilledTreeCanDoNothing) {
    umbra_wavl_tree tree{};
    expect_unusable(&tree);
    expect_unusable(nullptr);
}

TEST(WavlMisuse, AFinishedTreeCanDoNothingUntilItIsInitialisedAgain) {
    item_tree some;
    EXPECT_EQ(umbra_wavl_tree_finish(&some.tree), 0);
    expect_unusable(&some.tree);
    EXPECT_EQ(umbra_wavl_tree_init(&some.tree, 1, 0, compare_items), 0);
    some.add(1);
    EXPECT_THAT(some.ids(), ElementsAre(1));
}

TEST(WavlMisuse, FinishingATreeWithNodesForgetsThem) {
    item_tree some;
    item &one = some.add(1);
    some.add(2);
    item &key = some.make(1);
    umbra_wavl_node before = one.node;
    EXPECT_EQ(umbra_wavl_tree_finish(&some.tree), EBUSY);
    EXPECT_EQ(std::memcmp(&one.node, &before, sizeof before), 0) << "the node was not to be touched";
    expect_unusable(&some.tree);

    ASSERT_EQ(umbra_wavl_tree_init(&some.tree, 1, 0, compare_items), 0);
    EXPECT_EQ(umbra_wavl_delete(&some.tree, &one.node), nullptr) << "it was in a tree of before";
    EXPECT_EQ(umbra_wavl_insert(&some.tree, &one.node), nullptr);
    umbra_wavl_init(&one.node, 1);
    EXPECT_EQ(umbra_wavl_insert(&some.tree, &one.node), &one.node);
    EXPECT_EQ(umbra_wavl_search(&some.tree, &key.node, 0), &one.node);
    EXPECT_EQ(umbra_wavl_count(&some.tree), 1U);
}

TEST(WavlMisuse, ANodeIsInOneTreeAndOnceOnly) {
    item_tree some;
    item_tree other;
    item &one = some.add(1);
    some.add(2);
    other.add(3);
    const std::string before = some.bytes() + other.bytes();
    EXPECT_EQ(umbra_wavl_insert(&some.tree, &one.node), nullptr);
    one.id = 4;  // unlike all that are there: the comparison does not say it
    EXPECT_EQ(umbra_wavl_insert(&some.tree, &one.node), nullptr);
    EXPECT_EQ(umbra_wavl_insert(&other.tree, &one.node), nullptr);
    EXPECT_EQ(umbra_wavl_delete(&other.tree, &one.node), nullptr);
    one.id = 1;
    EXPECT_EQ(some.bytes() + other.bytes(), before);
}

TEST(WavlMisuse, DeletingWhatIsNotInTheTreeChangesNothing) {
    item_tree some;
    item &one = some.add(1);
    item &two = some.add(2);
    item &twin = some.make(1);
    item zeroed{};
    ASSERT_EQ(umbra_wavl_delete(&some.tree, &two.node), &two.node);
    const std::string before = some.bytes();
    EXPECT_EQ(umbra_wavl_delete(&some.tree, &two.node), nullptr) << "twice";
    EXPECT_EQ(umbra_wavl_delete(&some.tree, &twin.node), nullptr) << "equal, but another";
    EXPECT_EQ(umbra_wavl_delete(&some.tree, &zeroed.node), nullptr);
    EXPECT_EQ(umbra_wavl_delete(&some.tree, nullptr), nullptr);
    EXPECT_EQ(some.bytes(), before);
    EXPECT_EQ(umbra_wavl_delete(&some.tree, &one.node), &one.node);
}

TEST(WavlMisuse, ANodeHasAsManyLinksAsTheTreeHasIndexes) {
    item_tree some(2);
    for (const uint32_t links : {0U, 1U, 3U, 4U, 5U, UINT32_MAX}) {
        item &wrong = some.make(1);
        umbra_wavl_init(&wrong.node, links);
        const std::string before = some.bytes();
        EXPECT_EQ(umbra_wavl_insert(&some.tree, &wrong.node), nullptr) << links;
        EXPECT_EQ(some.bytes(), before);
    }
    item zeroed{};
    EXPECT_EQ(umbra_wavl_insert(&some.tree, &zeroed.node), nullptr) << "never initialised";
    EXPECT_EQ(umbra_wavl_insert(&some.tree, nullptr), nullptr);
    umbra_wavl_init(nullptr, 1);
}

TEST(WavlMisuse, InitialisingANodeStaysWithinItsLinks) {
    for (uint32_t links = 0; links <= 5; ++links) {
        alignas(umbra_wavl_node) unsigned char memory[sizeof(umbra_wavl_node) + 5 * sizeof(umbra_wavl_link)];
        std::memset(memory, 0xC3, sizeof memory);
        umbra_wavl_init(reinterpret_cast<umbra_wavl_node *>(memory), links);
        const std::size_t used = links == 5 ? offsetof(umbra_wavl_node, links)
                                            : offsetof(umbra_wavl_node, links) + links * sizeof(umbra_wavl_link);
        for (std::size_t i = used; i < sizeof memory; ++i) {
            ASSERT_EQ(memory[i], 0xC3) << links << " links, byte " << i;
        }
    }
}

TEST(WavlMisuse, AKeyHasALinkForTheIndexAskedFor) {
    item_tree some(2);
    item &one = some.add(1, "one");
    item &key = some.make(1, "one");
    umbra_wavl_init(&key.node, 1);
    EXPECT_EQ(umbra_wavl_search(&some.tree, &key.node, 0), &one.node);
    EXPECT_EQ(umbra_wavl_search(&some.tree, &key.node, 1), nullptr);
    EXPECT_EQ(umbra_wavl_search(&some.tree, nullptr, 0), nullptr);
    umbra_wavl_init(&key.node, 4);
    EXPECT_EQ(umbra_wavl_search(&some.tree, &key.node, 1), &one.node) << "more links than needed do no harm";
}

TEST(WavlMisuse, ThereIsNothingAtAnIndexThatTheTreeDoesNotHave) {
    item_tree some(2);
    item &one = some.add(1);
    item &key = some.make(1);
    umbra_wavl_init(&key.node, 4);
    for (const uint32_t index : {2U, 3U, 4U, UINT32_MAX}) {
        EXPECT_EQ(umbra_wavl_search(&some.tree, &key.node, index), nullptr);
        EXPECT_EQ(umbra_wavl_get_first(&some.tree, index), nullptr);
        EXPECT_EQ(umbra_wavl_get_last(&some.tree, index), nullptr);
        EXPECT_EQ(umbra_wavl_next(&one.node, index), nullptr);
        EXPECT_EQ(umbra_wavl_prev(&one.node, index), nullptr);
    }
}

TEST(WavlMisuse, ANodeInNoTreeHasNoNeighbours) {
    item_tree some;
    some.add(1);
    item &out = some.add(2);
    some.add(3);
    EXPECT_EQ(umbra_wavl_next(&out.node, 0), &some.items[2].node);
    EXPECT_EQ(umbra_wavl_prev(&out.node, 0), &some.items[0].node);
    umbra_wavl_delete(&some.tree, &out.node);
    EXPECT_EQ(umbra_wavl_next(&out.node, 0), nullptr);
    EXPECT_EQ(umbra_wavl_prev(&out.node, 0), nullptr);
    EXPECT_EQ(umbra_wavl_next(nullptr, 0), nullptr);
    EXPECT_EQ(umbra_wavl_prev(nullptr, 0), nullptr);
}

// A tree of sixteen nodes that `damage` is done to.
void expect_noticed(const std::function<void(item_tree &)> &damage) {
    item_tree some(2);
    for (int id = 0; id < 16; ++id) {
        some.add(id);
    }
    ASSERT_EQ(umbra_wavl_check(&some.tree), 0);
    damage(some);
    EXPECT_EQ(umbra_wavl_check(&some.tree), EUCLEAN);
}

TEST(WavlCheck, NoticesNodesOutOfOrder) {
    expect_noticed([](item_tree &some) { some.items[5].id = 9; });
    expect_noticed([](item_tree &some) { some.items[5].id = 6; });
    expect_noticed([](item_tree &some) { some.items[5].name = "zzz"; });
}

TEST(WavlCheck, NoticesAWrongCount) {
    expect_noticed([](item_tree &some) { ++some.tree.node_count; });
    expect_noticed([](item_tree &some) { --some.tree.node_count; });
    expect_noticed([](item_tree &some) { some.tree.roots[1] = 0; });
}

TEST(WavlCheck, NoticesWrongRanks) {
    for (const uint32_t side : {0U, 1U}) {
        for (std::size_t i = 0; i < 16; ++i) {
            expect_noticed([=](item_tree &some) { some.items[i].node.links[0].child[side] ^= 1; });
        }
    }
}

TEST(WavlCheck, NoticesALeafThatWasNotDemoted) {
    item_tree one;
    umbra_wavl_link &leaf = one.add(1).node.links[0];
    EXPECT_EQ(umbra_wavl_check(&one.tree), 0);
    leaf.child[0] = leaf.child[1] = 1;
    EXPECT_EQ(umbra_wavl_check(&one.tree), EUCLEAN);
}

TEST(WavlCheck, NoticesWrongParentsIndexesAndOwners) {
    expect_noticed([](item_tree &some) { umbra_wavl_tree_root(&some.tree, 0)->parent = 8; });
    expect_noticed([](item_tree &some) {
        umbra_wavl_link_child(umbra_wavl_tree_root(&some.tree, 0), 0)->parent = some.items[0].node.links[0].parent;
    });
    expect_noticed([](item_tree &some) { some.items[3].more[0].parent ^= 2; });
    expect_noticed([](item_tree &some) { some.items[3].node.owner = 2; });
}

}  // namespace
}  // namespace umbra_test
