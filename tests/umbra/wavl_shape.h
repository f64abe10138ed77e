// Looks at a tree through the accessors of its header only, and knows nothing of how it is balanced.
#ifndef UMBRA_TESTS_WAVL_SHAPE_H
#define UMBRA_TESTS_WAVL_SHAPE_H

#include <umbra/wavl.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <string_view>
#include <vector>

namespace umbra_test {

// What there is below a link. A tree that breaks a rule has the first thing found in `fault`.
struct shape {
    int rank = -1;
    int height = 0;
    uint64_t count = 0;
    std::string_view fault;
};

inline shape shape_below(const umbra_wavl_link *link, const umbra_wavl_link *parent, uint32_t index) {
    if (link == nullptr) {
        return {};
    }
    shape result;
    int ranks[2];
    result.count = 1;
    for (uint32_t side = 0; side < 2; ++side) {
        const shape child = shape_below(umbra_wavl_link_child(link, side), link, index);
        ranks[side] = child.rank + static_cast<int>(umbra_wavl_link_rank_difference(link, side));
        result.count += child.count;
        result.height = std::max(result.height, child.height + 1);
        if (!child.fault.empty()) {
            result.fault = child.fault;
        }
    }
    result.rank = ranks[0];
    if (ranks[0] != ranks[1]) {
        result.fault = "the two sides give a node different ranks";
    } else if (result.count == 1 && result.rank != 0) {
        result.fault = "a leaf whose rank is not 0";
    } else if (umbra_wavl_link_parent(link) != parent) {
        result.fault = "a wrong parent";
    } else if (umbra_wavl_link_index(link) != index) {
        result.fault = "a wrong index";
    }
    return result;
}

inline shape shape_of(const umbra_wavl_tree &tree, uint32_t index = 0) {
    shape result = shape_below(umbra_wavl_tree_root(&tree, index), nullptr, index);
    if (result.fault.empty() && result.count != umbra_wavl_count(&tree)) {
        result.fault = "a wrong count";
    }
    return result;
}

// The rank as one zigzag path down has it: all paths have to agree.
inline int rank_along(const umbra_wavl_link *link, uint32_t first_side, uint32_t second_side) {
    int rank = -1;
    for (uint32_t side = first_side; link != nullptr; side = second_side) {
        rank += static_cast<int>(umbra_wavl_link_rank_difference(link, side));
        link = umbra_wavl_link_child(link, side);
    }
    return rank;
}

inline bool ranks_agree(const umbra_wavl_link *link) {
    return link == nullptr ||
           (rank_along(link, 0, 0) == rank_along(link, 1, 1) && rank_along(link, 0, 1) == rank_along(link, 1, 0) &&
            rank_along(link, 0, 0) == rank_along(link, 0, 1));
}

// Whether the links from here to the root, and the children of each, keep the rules. Null is fine.
inline bool path_is_sound(const umbra_wavl_link *link) {
    for (; link != nullptr; link = umbra_wavl_link_parent(link)) {
        for (uint32_t side = 0; side < 2; ++side) {
            const umbra_wavl_link *child = umbra_wavl_link_child(link, side);
            if (!ranks_agree(child) || (child != nullptr && umbra_wavl_link_parent(child) != link)) {
                return false;
            }
        }
        const bool is_leaf = umbra_wavl_link_child(link, 0) == nullptr && umbra_wavl_link_child(link, 1) == nullptr;
        if (!ranks_agree(link) || (is_leaf && rank_along(link, 0, 0) != 0)) {
            return false;
        }
    }
    return true;
}

// The links from the lowest to the highest.
inline std::vector<umbra_wavl_link *> links_of(const umbra_wavl_tree &tree, uint32_t index = 0) {
    std::vector<umbra_wavl_link *> above;
    std::vector<umbra_wavl_link *> result;
    umbra_wavl_link *at = umbra_wavl_tree_root(&tree, index);
    while (at != nullptr || !above.empty()) {
        for (; at != nullptr; at = umbra_wavl_link_child(at, UMBRA_WAVL_LESS)) {
            above.push_back(at);
        }
        result.push_back(above.back());
        at = umbra_wavl_link_child(above.back(), UMBRA_WAVL_GREATER);
        above.pop_back();
    }
    return result;
}

using parents = std::map<const umbra_wavl_link *, const umbra_wavl_link *>;

inline parents parents_of(const umbra_wavl_tree &tree) {
    parents result;
    for (const umbra_wavl_link *link : links_of(tree)) {
        result[link] = umbra_wavl_link_parent(link);
    }
    return result;
}

// How many of the links that are in both have another parent.
inline int moved(const parents &before, const parents &after) {
    int result = 0;
    for (const auto &[link, parent] : before) {
        const auto found = after.find(link);
        result += found != after.end() && found->second != parent ? 1 : 0;
    }
    return result;
}

}  // namespace umbra_test

#endif
