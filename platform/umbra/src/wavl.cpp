// The rank of a node is never stored: each link knows of its two children whether their ranks are one ("near") or two
// ("far") below its own. A missing child has the rank -1, a leaf the rank 0. So rebalancing reads the path to the root
// and looks at a sibling only where it is about to move.
#include "umbra/wavl.h"

#include <errno.h>

#include <atomic>

static_assert(sizeof(umbra_wavl_tree) == 64, "callers embed trees in 64 bytes");
static_assert(offsetof(umbra_wavl_node, links) + sizeof(umbra_wavl_link) == sizeof(umbra_wavl_node),
              "further links follow the first");

namespace {

constexpr uintptr_t far = 1;
constexpr uint32_t greater = UMBRA_WAVL_GREATER;
constexpr uint32_t less = UMBRA_WAVL_LESS;
constexpr uint32_t index_bits = 3;  // of a tree's number, below those that tell trees apart

// One of the orders of a tree.
struct order {
    umbra_wavl_tree *tree;
    uint32_t index;
};

// A place below a link. Without a link it is that of the root.
struct place {
    umbra_wavl_link *parent;
    uint32_t side;
};

constexpr uint32_t opposite(uint32_t side) {
    return 1 - side;
}

uintptr_t word_of(const umbra_wavl_link *link) {
    return reinterpret_cast<uintptr_t>(link);
}

umbra_wavl_link *link_of(uintptr_t word) {
    return reinterpret_cast<umbra_wavl_link *>(word & ~far);
}

umbra_wavl_link *child_of(const umbra_wavl_link *link, uint32_t side) {
    return link_of(link->child[side]);
}

umbra_wavl_link *parent_of(const umbra_wavl_link *link) {
    return umbra_wavl_link_parent(link);
}

bool is_usable(const umbra_wavl_tree *tree) {
    return tree != nullptr && tree->number != 0;
}

bool has_link(const umbra_wavl_node *node, uint32_t index) {
    return node != nullptr && index < (node->owner & ((1U << index_bits) - 1));
}

bool is_in_a_tree(const umbra_wavl_node *node) {
    return node->owner >> index_bits != 0;
}

place place_of(const umbra_wavl_link *link) {
    umbra_wavl_link *parent = parent_of(link);
    return {parent, parent != nullptr && child_of(parent, less) == link ? less : greater};
}

// What refers to the link at `where`: a word of its parent, or the root.
uintptr_t &slot(order in, place where) {
    return where.parent != nullptr ? where.parent->child[where.side] : in.tree->roots[in.index];
}

// Makes `child`, a link or null with its bit, the child of `parent`.
void attach(order in, umbra_wavl_link *parent, uint32_t side, uintptr_t child) {
    parent->child[side] = child;
    if (umbra_wavl_link *link = link_of(child)) {
        link->parent = word_of(parent) | in.index;
    }
}

// Puts `next` where `link` is now. Both have the same rank, or the ranks above are put right by the caller.
void replace(order in, const umbra_wavl_link *link, umbra_wavl_link *next) {
    const place where = place_of(link);
    uintptr_t &word = slot(in, where);
    word = word_of(next) | (word & far);
    next->parent = word_of(where.parent) | in.index;
}

// The child at `where` has reached its parent's rank, and the other one is far: one or two rotations end it.
void rotate_risen(order in, place where) {
    umbra_wavl_link *top = where.parent;
    const uint32_t side = where.side;
    const uint32_t other = opposite(side);
    umbra_wavl_link *child = child_of(top, side);
    top->child[other] &= ~far;
    if (child->child[other] & far) {
        replace(in, top, child);
        attach(in, top, side, child->child[other] & ~far);
        attach(in, child, other, word_of(top));
        return;
    }
    umbra_wavl_link *middle = child_of(child, other);
    child->child[side] &= ~far;
    replace(in, top, middle);
    attach(in, child, other, middle->child[side]);
    attach(in, top, side, middle->child[other]);
    attach(in, middle, side, word_of(child));
    attach(in, middle, other, word_of(top));
}

// The rank of the child at `where` has grown by one.
void settle_risen(order in, place where) {
    while (where.parent != nullptr) {
        uintptr_t &risen = where.parent->child[where.side];
        if (risen & far) {
            risen &= ~far;
            return;
        }
        uintptr_t &other = where.parent->child[opposite(where.side)];
        if (other & far) {
            rotate_risen(in, where);
            return;
        }
        other |= far;  // the parent is promoted: what was level with it is near, the other child is far
        where = place_of(where.parent);
    }
}

// The child at `where` is three ranks below its parent, the sibling is near and has a near child itself.
void rotate_sunk(order in, place where) {
    umbra_wavl_link *top = where.parent;
    const uint32_t side = where.side;
    const uint32_t other = opposite(side);
    umbra_wavl_link *sibling = child_of(top, other);
    if (!(sibling->child[other] & far)) {
        replace(in, top, sibling);
        attach(in, top, other, sibling->child[side]);
        sibling->child[other] |= far;
        const bool is_leaf = (top->child[side] | top->child[other]) == far;
        if (is_leaf) {
            top->child[side] = top->child[other] = 0;
        }
        attach(in, sibling, side, word_of(top) | (is_leaf ? far : 0));
        return;
    }
    umbra_wavl_link *middle = child_of(sibling, side);
    top->child[side] &= ~far;
    sibling->child[other] &= ~far;
    replace(in, top, middle);
    attach(in, top, other, middle->child[side]);
    attach(in, sibling, side, middle->child[other]);
    attach(in, middle, side, word_of(top) | far);
    attach(in, middle, other, word_of(sibling) | far);
}

// Demotes the parent of a child that was far and sank once more. False: that cannot settle it.
bool demote(place where) {
    uintptr_t &other = where.parent->child[opposite(where.side)];
    if (other & far) {
        other &= ~far;
        return true;
    }
    umbra_wavl_link *sibling = link_of(other);
    if (sibling->child[less] & sibling->child[greater] & far) {  // the sibling sinks as well
        sibling->child[less] &= ~far;
        sibling->child[greater] &= ~far;
        return true;
    }
    return false;
}

// The rank of the child at `where`, which may be missing, has shrunk by one.
void settle_sunk(order in, place where) {
    while (where.parent != nullptr) {
        uintptr_t *children = where.parent->child;
        if (!(children[where.side] & far)) {
            children[where.side] |= far;
            if ((children[less] | children[greater]) != far) {
                return;
            }
            children[less] = children[greater] = 0;  // it has become a leaf: its rank is 0
        } else if (!demote(where)) {
            rotate_sunk(in, where);
            return;
        }
        where = place_of(where.parent);
    }
}

// Takes out a link with at most one child and returns where it was.
place splice_out(order in, const umbra_wavl_link *link) {
    const place where = place_of(link);
    umbra_wavl_link *only = link_of(link->child[less] | link->child[greater]);
    uintptr_t &word = slot(in, where);
    word = word_of(only) | (word & far);
    if (only != nullptr) {
        only->parent = word_of(where.parent) | in.index;
    }
    return where;
}

umbra_wavl_link *outermost(umbra_wavl_link *link, uint32_t side) {
    while (umbra_wavl_link *further = child_of(link, side)) {
        link = further;
    }
    return link;
}

void take_out(order in, umbra_wavl_link *link) {
    if (child_of(link, less) == nullptr || child_of(link, greater) == nullptr) {
        settle_sunk(in, splice_out(in, link));
        return;
    }
    umbra_wavl_link *next = outermost(child_of(link, greater), less);
    place hole = splice_out(in, next);
    if (hole.parent == link) {
        hole.parent = next;
    }
    attach(in, next, less, link->child[less]);
    attach(in, next, greater, link->child[greater]);
    replace(in, link, next);
    settle_sunk(in, hole);
}

// Leaves a link that is in no order.
void release(umbra_wavl_link *link, uint32_t index) {
    *link = {{0, 0}, index};
}

void put_in(order in, place where, umbra_wavl_link *link) {
    link->child[less] = link->child[greater] = 0;
    link->parent = word_of(where.parent) | in.index;
    slot(in, where) |= word_of(link);
    settle_risen(in, where);
}

// What a search ended at: a link that is equal, or the place that the key would have.
struct outcome {
    umbra_wavl_link *equal;
    place where;
};

outcome descend(const umbra_wavl_tree *tree, umbra_wavl_link *key, uint32_t index) {
    const umbra_wavl_compare_fn compare = tree->compare;
    outcome result{link_of(tree->roots[index]), {nullptr, 0}};
    while (result.equal != nullptr) {
        umbra_wavl_link *at = result.equal;
        // The comparison waits for what the node holds: both ways on are fetched meanwhile.
        umbra_wavl_link *on_less = child_of(at, less);
        umbra_wavl_link *on_greater = child_of(at, greater);
        __builtin_prefetch(on_less);
        __builtin_prefetch(on_greater);
        const auto side = static_cast<uint32_t>(compare(key, at));
        if (side > less) {
            return result;
        }
        result.where = {at, side};
        result.equal = side == less ? on_less : on_greater;
    }
    return result;
}

// The neighbour of a link on the given side, or null.
umbra_wavl_link *neighbour(umbra_wavl_link *link, uint32_t side) {
    if (umbra_wavl_link *child = child_of(link, side)) {
        return outermost(child, opposite(side));
    }
    umbra_wavl_link *above = parent_of(link);
    while (above != nullptr && child_of(above, side) == link) {
        link = above;
        above = parent_of(link);
    }
    return above;
}

umbra_wavl_node *node_or_null(umbra_wavl_link *link) {
    return link != nullptr ? umbra_wavl_link_node(link) : nullptr;
}

umbra_wavl_node *end_of(const umbra_wavl_tree *tree, uint32_t index, uint32_t side) {
    if (!is_usable(tree) || index >= tree->index_count || tree->roots[index] == 0) {
        return nullptr;
    }
    return umbra_wavl_link_node(outermost(link_of(tree->roots[index]), side));
}

umbra_wavl_node *neighbour_of(umbra_wavl_node *node, uint32_t index, uint32_t side) {
    if (!has_link(node, index) || !is_in_a_tree(node)) {
        return nullptr;
    }
    return node_or_null(neighbour(umbra_wavl_node_link(node, index), side));
}

// A tree's number is never used again: nodes of a finished tree are strangers to those that come after it.
uint64_t draw_number(uint32_t index_count) {
    static std::atomic<uint64_t> last_number{0};
    return ((last_number.fetch_add(1, std::memory_order_relaxed) + 1) << index_bits) | index_count;
}

// The rank as the path along one side has it.
int rank_of(const umbra_wavl_link *link) {
    int rank = -1;
    for (; link != nullptr; link = child_of(link, less)) {
        rank += static_cast<int>(umbra_wavl_link_rank_difference(link, less));
    }
    return rank;
}

bool is_connected(const umbra_wavl_link *link, uint32_t side) {
    const umbra_wavl_link *child = child_of(link, side);
    return child == nullptr || parent_of(child) == link;
}

bool has_rank(const umbra_wavl_link *link) {
    const int rank = rank_of(link);
    const umbra_wavl_link *child = child_of(link, greater);
    const bool is_leaf = child == nullptr && child_of(link, less) == nullptr;
    return rank == rank_of(child) + static_cast<int>(umbra_wavl_link_rank_difference(link, greater)) &&
           (!is_leaf || rank == 0);
}

bool is_sound(order in, umbra_wavl_link *link) {
    return umbra_wavl_link_index(link) == in.index && umbra_wavl_link_node(link)->owner == in.tree->number &&
           is_connected(link, less) && is_connected(link, greater) && has_rank(link);
}

bool is_sound(order in) {
    umbra_wavl_link *root = link_of(in.tree->roots[in.index]);
    if (root == nullptr) {
        return in.tree->node_count == 0;
    }
    if (parent_of(root) != nullptr) {
        return false;
    }
    uint64_t count = 0;
    umbra_wavl_link *before = nullptr;
    for (umbra_wavl_link *at = outermost(root, less); at != nullptr; at = neighbour(at, greater)) {
        ++count;
        if (count > in.tree->node_count || !is_sound(in, at)) {
            return false;
        }
        if (before != nullptr && in.tree->compare(before, at) != UMBRA_WAVL_LESS) {
            return false;
        }
        before = at;
    }
    return count == in.tree->node_count;
}

}  // namespace

rcode umbra_wavl_tree_init(umbra_wavl_tree *tree, uint32_t index_count, uint32_t flags, umbra_wavl_compare_fn compare) {
    if (tree == nullptr || compare == nullptr || flags != 0 || index_count == 0 ||
        index_count > UMBRA_WAVL_MAX_INDEXES) {
        return EINVAL;
    }
    *tree = {};
    tree->compare = compare;
    tree->index_count = index_count;
    tree->number = draw_number(index_count);
    return 0;
}

rcode umbra_wavl_tree_finish(umbra_wavl_tree *tree) {
    if (!is_usable(tree)) {
        return EINVAL;
    }
    const bool was_empty = tree->node_count == 0;
    *tree = {};
    return was_empty ? 0 : EBUSY;
}

void umbra_wavl_init(umbra_wavl_node *node, uint32_t index_count) {
    if (node != nullptr) {
        node->owner = index_count <= UMBRA_WAVL_MAX_INDEXES ? index_count : 0;
        for (uint32_t index = 0; index < node->owner; ++index) {
            release(umbra_wavl_node_link(node, index), index);
        }
    }
}

umbra_wavl_node *umbra_wavl_insert(umbra_wavl_tree *tree, umbra_wavl_node *node) {
    if (!is_usable(tree) || node == nullptr || node->owner != tree->index_count) {
        return nullptr;
    }
    // All places are found before the first of them is taken: a refusal leaves nothing to be undone.
    place places[UMBRA_WAVL_MAX_INDEXES];
    for (uint32_t index = 0; index < tree->index_count; ++index) {
        const outcome found = descend(tree, umbra_wavl_node_link(node, index), index);
        if (found.equal != nullptr) {
            return nullptr;
        }
        places[index] = found.where;
    }
    for (uint32_t index = 0; index < tree->index_count; ++index) {
        put_in({tree, index}, places[index], umbra_wavl_node_link(node, index));
    }
    node->owner = tree->number;
    ++tree->node_count;
    return node;
}

umbra_wavl_node *umbra_wavl_delete(umbra_wavl_tree *tree, umbra_wavl_node *node) {
    if (!is_usable(tree) || node == nullptr || node->owner != tree->number) {
        return nullptr;
    }
    for (uint32_t index = 0; index < tree->index_count; ++index) {
        umbra_wavl_link *link = umbra_wavl_node_link(node, index);
        take_out({tree, index}, link);
        release(link, index);
    }
    node->owner = tree->index_count;
    --tree->node_count;
    return node;
}

umbra_wavl_node *umbra_wavl_search(umbra_wavl_tree *tree, umbra_wavl_node *key, uint32_t index) {
    if (!is_usable(tree) || index >= tree->index_count || !has_link(key, index)) {
        return nullptr;
    }
    return node_or_null(descend(tree, umbra_wavl_node_link(key, index), index).equal);
}

umbra_wavl_node *umbra_wavl_get_first(umbra_wavl_tree *tree, uint32_t index) {
    return end_of(tree, index, less);
}

umbra_wavl_node *umbra_wavl_get_last(umbra_wavl_tree *tree, uint32_t index) {
    return end_of(tree, index, greater);
}

umbra_wavl_node *umbra_wavl_next(umbra_wavl_node *node, uint32_t index) {
    return neighbour_of(node, index, greater);
}

umbra_wavl_node *umbra_wavl_prev(umbra_wavl_node *node, uint32_t index) {
    return neighbour_of(node, index, less);
}

uint64_t umbra_wavl_count(const umbra_wavl_tree *tree) {
    return tree != nullptr ? tree->node_count : 0;
}

umbra_wavl_node *umbra_wavl_normalize(umbra_wavl_link *link, uint32_t index) {
    if (link == nullptr || umbra_wavl_link_index(link) != index) {
        return nullptr;
    }
    return umbra_wavl_link_node(link);
}

rcode umbra_wavl_check(const umbra_wavl_tree *tree) {
    if (!is_usable(tree)) {
        return EINVAL;
    }
    for (uint32_t index = 0; index < tree->index_count; ++index) {
        if (!is_sound(order{const_cast<umbra_wavl_tree *>(tree), index})) {
            return EUCLEAN;
        }
    }
    return 0;
}
