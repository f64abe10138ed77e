// The tree beside the AVL tree of Boost.Intrusive. Both are intrusive, keep their nodes in one array each, take the
// same keys in the same random order, and call a comparison of the same body through a pointer for each node that they
// visit.
#include <umbra/wavl.h>

#include <algorithm>
#include <boost/intrusive/avltree.hpp>
#include <cstddef>
#include <cstdint>
#include <numeric>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "pairs.h"

namespace {

template <class Item>
int compare_keys(const Item &a, const Item &b) {
    return a.key > b.key ? UMBRA_WAVL_GREATER : a.key < b.key ? UMBRA_WAVL_LESS : UMBRA_WAVL_EQUAL;
}

// Hides from the compiler which function a pointer points to.
template <class Function>
Function *unknown(Function *function) {
    asm volatile("" : "+r"(function));
    return function;
}

class our_tree {
  public:
    struct item {
        umbra_wavl_node node;
        uint64_t key;
    };

    our_tree() { umbra_wavl_tree_init(&tree_, 1, 0, unknown(compare)); }
    static void ready(item &i) { umbra_wavl_init(&i.node, 1); }
    const void *find(item &key) { return umbra_wavl_search(&tree_, &key.node, 0); }
    void insert(item &i) { umbra_wavl_insert(&tree_, &i.node); }
    void erase(item &i) { umbra_wavl_delete(&tree_, &i.node); }

  private:
    static item &of(umbra_wavl_link *link) {
        return *reinterpret_cast<item *>(reinterpret_cast<char *>(link) - offsetof(umbra_wavl_node, links));
    }
    static int compare(umbra_wavl_link *a, umbra_wavl_link *b) { return compare_keys(of(a), of(b)); }

    umbra_wavl_tree tree_{};
};

template <class... HookOptions>
class boost_tree {
  public:
    struct item : boost::intrusive::avl_set_base_hook<HookOptions...> {
        uint64_t key = 0;
    };

    static void ready(item &) {}
    const void *find(item &key) {
        const auto found = tree_.find(key);
        return found == tree_.end() ? nullptr : &*found;
    }
    void insert(item &i) { tree_.insert_unique(i); }
    void erase(item &i) { tree_.erase(tree_.iterator_to(i)); }

    boost_tree() = default;
    boost_tree(const boost_tree &) = delete;
    boost_tree &operator=(const boost_tree &) = delete;
    ~boost_tree() { tree_.clear(); }

  private:
    struct is_less {
        int (*compare)(const item &, const item &) = unknown(compare_keys<item>);
        bool operator()(const item &a, const item &b) const { return compare(a, b) == UMBRA_WAVL_LESS; }
    };

    boost::intrusive::avltree<item, boost::intrusive::compare<is_less>> tree_;
};

// A tree of a given size, full to begin with.
template <class Tree>
class filled {
  public:
    explicit filled(std::size_t size) : items_(size), order_(size) {
        std::iota(order_.begin(), order_.end(), std::size_t{0});
        std::vector<uint64_t> keys(size);
        for (std::size_t i = 0; i < size; ++i) {
            keys[i] = i * 7;
        }
        std::shuffle(keys.begin(), keys.end(), random_);
        std::shuffle(order_.begin(), order_.end(), random_);
        for (std::size_t i = 0; i < size; ++i) {
            items_[i].key = keys[i];
            Tree::ready(items_[i]);
            tree_.insert(items_[i]);
        }
        Tree::ready(key_);
    }

    double find(std::size_t count) {
        std::vector<uint64_t> wanted(count);
        for (uint64_t &key : wanted) {
            key = items_[random_() % items_.size()].key;
        }
        return nanoseconds([&] {
            for (const uint64_t key : wanted) {
                key_.key = key;
                keep(tree_.find(key_));
            }
        });
    }

    // Takes out a part of the nodes and puts them in again, both in random order, until each was done `count` times.
    // The first of the result is the time of insertions, the second that of deletions.
    std::pair<double, double> replace(std::size_t count) {
        std::pair<double, double> spent{0, 0};
        const std::size_t part = std::max<std::size_t>(items_.size() / 10, 1);
        for (std::size_t done = 0; done < count; done += part) {
            const std::size_t size = std::min(part, count - done);
            if (at_ + size > order_.size()) {
                std::shuffle(order_.begin(), order_.end(), random_);
                at_ = 0;
            }
            spent.second += nanoseconds([&] { for_part(size, [&](auto &item) { tree_.erase(item); }); });
            std::shuffle(order_.begin() + offset(at_), order_.begin() + offset(at_ + size), random_);
            spent.first += nanoseconds([&] { for_part(size, [&](auto &item) { tree_.insert(item); }); });
            at_ += size;
        }
        return spent;
    }

  private:
    static std::ptrdiff_t offset(std::size_t at) { return static_cast<std::ptrdiff_t>(at); }

    template <class Operation>
    void for_part(std::size_t size, Operation operation) {
        for (std::size_t i = at_; i < at_ + size; ++i) {
            operation(items_[order_[i]]);
        }
    }

    std::mt19937_64 random_{1};
    std::vector<typename Tree::item> items_;
    typename Tree::item key_{};
    std::vector<std::size_t> order_;
    std::size_t at_ = 0;
    Tree tree_;  // goes before its nodes do
};

// The tree of that kind and size. It is filled when it is first asked for, and shared by all pairs.
template <class Tree, std::size_t Size>
filled<Tree> &the() {
    static filled<Tree> tree(Size);
    return tree;
}

template <class Tree, std::size_t Size>
double find_in(std::size_t count) {
    return the<Tree, Size>().find(count);
}

template <class Tree, std::size_t Size>
double insert_into(std::size_t count) {
    return the<Tree, Size>().replace(count).first;
}

template <class Tree, std::size_t Size>
double delete_from(std::size_t count) {
    return the<Tree, Size>().replace(count).second;
}

template <class Peer, std::size_t Size>
void add_peer(pairs &all, const std::string &size_name, const std::string &peer, double goal) {
    constexpr std::size_t count = 100'000;
    all.push_back({"tree find, " + size_name, peer, count, find_in<our_tree, Size>, find_in<Peer, Size>, goal});
    all.push_back(
        {"tree insert, " + size_name, peer, count, insert_into<our_tree, Size>, insert_into<Peer, Size>, goal});
    all.push_back(
        {"tree delete, " + size_name, peer, count, delete_from<our_tree, Size>, delete_from<Peer, Size>, goal});
}

template <std::size_t Size>
void add_size(pairs &all, const std::string &size_name) {
    using small = boost_tree<boost::intrusive::optimize_size<true>>;
    add_peer<boost_tree<>, Size>(all, size_name, "boost::intrusive::avltree", 1.1);
    add_peer<small, Size>(all, size_name, "the same, optimised for size", 0);
}

}  // namespace

void add_wavl_tree(pairs &all) {
    add_size<1'000>(all, "1,000 nodes");
    add_size<1'000'000>(all, "1,000,000 nodes");
}
