// The tree's balance: the rank rule after each of very many changes, the heights, and how much a change moves.
#include <gtest/gtest.h>
#include <umbra/wavl.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <deque>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "wavl_shape.h"

namespace umbra_test {
namespace {

struct number_node {
    umbra_wavl_node node;
    double number;
};

number_node *number_of(umbra_wavl_node *node) {
    return reinterpret_cast<number_node *>(node);
}

int compare_numbers(umbra_wavl_link *a, umbra_wavl_link *b) {
    const double x = number_of(umbra_wavl_normalize(a, 0))->number;
    const double y = number_of(umbra_wavl_normalize(b, 0))->number;
    return x > y ? UMBRA_WAVL_GREATER : x < y ? UMBRA_WAVL_LESS : UMBRA_WAVL_EQUAL;
}

// A tree of numbers that owns its nodes.
class number_tree {
  public:
    number_tree() { EXPECT_EQ(umbra_wavl_tree_init(&tree_, 1, 0, compare_numbers), 0); }
    number_tree(const number_tree &) = delete;
    number_tree &operator=(const number_tree &) = delete;
    ~number_tree() {
        while (umbra_wavl_node *first = umbra_wavl_get_first(&tree_, 0)) {
            delete number_of(umbra_wavl_delete(&tree_, first));
        }
        EXPECT_EQ(umbra_wavl_tree_finish(&tree_), 0);
    }

    // Null: it was there already.
    umbra_wavl_node *insert(double number) {
        auto added = std::make_unique<number_node>(make(number));
        return umbra_wavl_insert(&tree_, &added->node) != nullptr ? &added.release()->node : nullptr;
    }

    bool erase(double number) {
        umbra_wavl_node *found = find(number);
        if (found == nullptr || umbra_wavl_delete(&tree_, found) != found) {
            return false;
        }
        delete number_of(found);
        return true;
    }

    umbra_wavl_node *find(double number) {
        number_node key = make(number);
        return umbra_wavl_search(&tree_, &key.node, 0);
    }

    std::vector<double> numbers() const {
        std::vector<double> result;
        for (umbra_wavl_link *link : links_of(tree_)) {
            result.push_back(number_of(umbra_wavl_link_node(link))->number);
        }
        return result;
    }

    umbra_wavl_tree &tree() { return tree_; }
    shape look() const { return shape_of(tree_); }
    uint64_t count() const { return umbra_wavl_count(&tree_); }

  private:
    static number_node make(double number) {
        number_node result{};
        umbra_wavl_init(&result.node, 1);
        result.number = number;
        return result;
    }

    umbra_wavl_tree tree_{};
};

// An AVL tree is lower than this.
double avl_height(uint64_t count) {
    return 1.4405 * std::log2(static_cast<double>(count) + 2);
}

// Lets small trees grow and shrink, and compares each step with an ordered set.
class grows_and_shrinks {
  public:
    explicit grows_and_shrinks(int numbers) : numbers_(numbers) {}

    void step() {
        if (random_() % 512 == 0) {
            growing_ = random_() % 9;  // of 8: from shrinking only to growing only
        }
        const auto number = static_cast<double>(random_() % static_cast<std::mt19937::result_type>(numbers_));
        changed_ = number;
        if (random_() % 8 < growing_) {
            ASSERT_EQ(tree.insert(number) != nullptr, expected.insert(number).second);
        } else {
            ASSERT_EQ(tree.erase(number), expected.erase(number) == 1);
        }
        ASSERT_EQ(tree.count(), expected.size());
    }

    // The nodes beside the number that was inserted or deleted last.
    umbra_wavl_link *around(bool above) {
        const auto found = expected.lower_bound(changed_);
        if (above) {
            return found == expected.end() ? nullptr : umbra_wavl_node_link(tree.find(*found), 0);
        }
        return found == expected.begin() ? nullptr : umbra_wavl_node_link(tree.find(*std::prev(found)), 0);
    }

    number_tree tree;
    std::set<double> expected;

  private:
    std::mt19937 random_{20150611};
    std::mt19937::result_type growing_ = 8;
    int numbers_;
    double changed_ = 0;
};

TEST(WavlBalance, KeepsTheRankRuleAfterEachOfAMillionRandomChanges) {
    grows_and_shrinks trial(40);
    uint64_t largest = 0;
    for (int i = 0; i < 1'000'000; ++i) {
        trial.step();
        const shape now = trial.tree.look();
        ASSERT_EQ(now.fault, "") << "at step " << i;
        largest = std::max(largest, now.count);
        if (i % 16 == 0) {
            ASSERT_EQ(trial.tree.numbers(), std::vector<double>(trial.expected.begin(), trial.expected.end()));
            ASSERT_EQ(umbra_wavl_check(&trial.tree.tree()), 0);
        }
    }
    EXPECT_EQ(largest, 40U);
}

TEST(WavlBalance, KeepsTheRankRuleAlongThePathsOfLargeTrees) {
    grows_and_shrinks trial(20'000);
    for (int i = 0; i < 300'000; ++i) {
        trial.step();
        ASSERT_TRUE(path_is_sound(trial.around(false))) << "at step " << i;
        ASSERT_TRUE(path_is_sound(trial.around(true))) << "at step " << i;
        if (i % 5'000 == 0) {
            ASSERT_EQ(trial.tree.look().fault, "");
            ASSERT_EQ(trial.tree.numbers(), std::vector<double>(trial.expected.begin(), trial.expected.end()));
            ASSERT_EQ(umbra_wavl_check(&trial.tree.tree()), 0);
        }
    }
}

// A change of a tree by position: puts a node before the one that is at `position`, or deletes that one.
struct change {
    bool inserts;
    std::size_t position;
};

void apply(number_tree &tree, const change &what) {
    const std::vector<double> numbers = tree.numbers();
    if (!what.inserts) {
        ASSERT_TRUE(tree.erase(numbers[what.position]));
        return;
    }
    const double below = what.position == 0 ? -1e6 : numbers[what.position - 1];
    const double above = what.position == numbers.size() ? 1e6 : numbers[what.position];
    ASSERT_NE(tree.insert((below + above) / 2), nullptr);
}

// The shape with its ranks, without the numbers.
std::string text_of(const umbra_wavl_link *link) {
    if (link == nullptr) {
        return "-";
    }
    std::string result = "(";
    for (const uint32_t side : {UMBRA_WAVL_LESS, UMBRA_WAVL_GREATER}) {
        result += std::to_string(umbra_wavl_link_rank_difference(link, side));
        result += text_of(umbra_wavl_link_child(link, side));
    }
    return result + ")";
}

// Finds all trees that any sequence of insertions and deletions can lead to without having more than `most` nodes, and
// does everything that can be done to each of them.
class every_tree {
  public:
    explicit every_tree(std::size_t most) : most_(most) {}

    void visit_all() {
        reach({});
        while (!waiting_.empty()) {
            const std::vector<change> history = waiting_.front();
            waiting_.pop_front();
            const std::size_t count = count_after(history);
            for (std::size_t position = 0; position <= count; ++position) {
                if (count < most_) {
                    reach_next(history, {true, position});
                }
                if (position < count) {
                    reach_next(history, {false, position});
                }
            }
        }
    }

    std::size_t trees() const { return seen_.size(); }

  private:
    static std::size_t count_after(const std::vector<change> &history) {
        std::size_t count = 0;
        for (const change &what : history) {
            count = what.inserts ? count + 1 : count - 1;
        }
        return count;
    }

    void reach_next(std::vector<change> history, change next) {
        history.push_back(next);
        reach(history);
    }

    void reach(const std::vector<change> &history) {
        number_tree tree;
        for (const change &what : history) {
            apply(tree, what);
        }
        ASSERT_EQ(tree.look().fault, "");
        ASSERT_EQ(tree.count(), count_after(history));
        if (seen_.insert(text_of(umbra_wavl_tree_root(&tree.tree(), 0))).second) {
            waiting_.push_back(history);
        }
    }

    std::size_t most_;
    std::set<std::string> seen_;
    std::deque<std::vector<change>> waiting_;
};

std::size_t trees_of_up_to(std::size_t nodes) {
    every_tree all(nodes);
    all.visit_all();
    return all.trees();
}

TEST(WavlBalance, KeepsTheRankRuleInEveryTreeOfUpToTwelveNodes) {
    EXPECT_EQ(trees_of_up_to(1), 2U);
    EXPECT_EQ(trees_of_up_to(2), 4U);
    EXPECT_EQ(trees_of_up_to(3), 5U);
    EXPECT_EQ(trees_of_up_to(12), 1140U);
}

TEST(WavlBalance, KeepsTheRankRuleInEveryOrderOfEightInsertionsAndDeletions) {
    std::vector<double> order = {0, 1, 2, 3, 4, 5, 6, 7};
    do {
        number_tree tree;
        for (const double number : order) {
            ASSERT_NE(tree.insert(number), nullptr);
            ASSERT_EQ(tree.look().fault, "");
        }
        for (const double number : {3., 0., 7., 5., 1., 6., 2., 4.}) {
            ASSERT_TRUE(tree.erase(number));
            ASSERT_EQ(tree.look().fault, "");
        }
    } while (std::next_permutation(order.begin(), order.end()));
}

// Inserts and then deletes the numbers of `order`, looking at the tree every now and then.
void expect_sound_throughout(const std::vector<double> &order) {
    number_tree tree;
    for (const double number : order) {
        ASSERT_NE(tree.insert(number), nullptr);
        if (tree.count() % 64 == 0) {
            ASSERT_EQ(tree.look().fault, "");
            ASSERT_LT(tree.look().height, avl_height(tree.count()));
        }
    }
    for (const double number : order) {
        if (tree.count() % 64 == 0) {
            ASSERT_EQ(tree.look().fault, "");
            ASSERT_LE(tree.look().height, 2 * std::log2(static_cast<double>(tree.count())) + 1);
        }
        ASSERT_TRUE(tree.erase(number));
    }
    ASSERT_EQ(tree.count(), 0U);
}

TEST(WavlBalance, StaysLowForSortedReversedAndZigzagOrders) {
    std::vector<double> sorted;
    std::vector<double> zigzag;
    for (int i = 0; i < 4'096; ++i) {
        sorted.push_back(i);
        zigzag.push_back(i % 2 == 0 ? i : -i);
    }
    expect_sound_throughout(sorted);
    expect_sound_throughout({sorted.rbegin(), sorted.rend()});
    expect_sound_throughout(zigzag);
    expect_sound_throughout({zigzag.rbegin(), zigzag.rend()});
}

TEST(WavlBalance, IsAnAvlTreeWhileNothingIsDeleted) {
    std::mt19937 random(3);
    number_tree tree;
    for (uint64_t count = 1; count <= 100'000; ++count) {
        while (tree.insert(static_cast<double>(random())) == nullptr) {
        }
        if ((count & (count - 1)) == 0) {
            const shape now = tree.look();
            ASSERT_EQ(now.fault, "");
            ASSERT_EQ(now.rank, now.height - 1) << "in an AVL tree the rank is the height";
            ASSERT_LT(now.height, avl_height(count));
        }
    }
}

TEST(WavlBalance, IsNeverHigherThanTwiceTheLogarithm) {
    std::mt19937 random(4);
    number_tree tree;
    std::vector<double> numbers;
    for (int i = 0; i < 1 << 16; ++i) {
        numbers.push_back(i);
        ASSERT_NE(tree.insert(i), nullptr);
    }
    std::shuffle(numbers.begin(), numbers.end(), random);
    while (numbers.size() > 2) {
        ASSERT_TRUE(tree.erase(numbers.back()));
        numbers.pop_back();
        if (numbers.size() % 1'024 == 0 || numbers.size() < 64) {
            const shape now = tree.look();
            ASSERT_EQ(now.fault, "");
            ASSERT_LE(now.rank, 2 * std::log2(static_cast<double>(numbers.size())));
            ASSERT_LE(now.height - 1, now.rank);
        }
    }
}

// A rotation gives at most three links another parent, two rotations five. A deletion also moves the node that takes
// the place of the one deleted: itself, its child and the two children that it takes over.
TEST(WavlBalance, RotatesNoMoreThanTwicePerChange) {
    grows_and_shrinks trial(60);
    uint64_t total = 0;
    int most_on_insert = 0;
    int most_on_delete = 0;
    constexpr int steps = 100'000;
    parents before;
    for (int i = 0; i < steps; ++i) {
        trial.step();
        parents after = parents_of(trial.tree.tree());
        const int now = moved(before, after);
        int &most = after.size() > before.size() ? most_on_insert : most_on_delete;
        most = std::max(most, now);
        total += static_cast<uint64_t>(now);
        before = std::move(after);
    }
    EXPECT_EQ(most_on_insert, 5);
    EXPECT_LE(most_on_delete, 9);
    EXPECT_GT(most_on_delete, 5);
    EXPECT_LT(total, 3 * uint64_t{steps});
}

}  // namespace
}  // namespace umbra_test
