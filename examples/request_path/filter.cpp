#include "filter.h"

#include <algorithm>
#include <unordered_set>

namespace request_path {

namespace {

/* A leaf with a value is a content match node: it does not select, it says which instances of its parent are meant.
 * A node with children is a containment node, a leaf without a value a selection node. */
bool is_content_match(const node &filter) {
    return filter.is_leaf() && !trimmed(filter.value).empty();
}

bool attribute_matches(const node &filter, const attribute &wanted, const node &data) {
    return std::any_of(data.attributes.begin(), data.attributes.end(), [&](const attribute &a) {
        return a.value == wanted.value && expanded_name(data, a) == expanded_name(filter, wanted);
    });
}

/* A filter node without a namespace stands for any. */
bool names_match(const node &filter, const node &data) {
    return filter.name == data.name && (filter.name_space.empty() || filter.name_space == data.name_space) &&
           std::all_of(filter.attributes.begin(), filter.attributes.end(), [&](const attribute &wanted) {
               return declares_namespace(wanted) || attribute_matches(filter, wanted, data);
           });
}

bool content_matches(const node &filter, const node &data) {
    return names_match(filter, data) && trimmed(filter.value) == trimmed(data.value);
}

/* First marks what is selected, then copies it: several filter nodes may select different parts of the same node,
 * and the result keeps the order of the data. */
class selection {
  public:
    bool select(const node &filter, const node &data);
    node copy_selected(const node &data) const;

  private:
    bool select_from_children(const node &filter, const node &data);

    std::unordered_set<const node *> whole_;
    std::unordered_set<const node *> partial_;
};

bool selection::select(const node &filter, const node &data) {
    bool only_content_matches = true;
    for (const node &child : filter.children) {
        if (!is_content_match(child)) {
            only_content_matches = false;
        } else if (std::none_of(data.children.begin(), data.children.end(),
                                [&child](const node &candidate) { return content_matches(child, candidate); })) {
            return false;
        }
    }
    if (only_content_matches) {  // also a selection node, which has no children at all
        whole_.insert(&data);
        return true;
    }
    const bool selected = select_from_children(filter, data);
    if (selected) {
        partial_.insert(&data);
    }
    return selected;
}

bool selection::select_from_children(const node &filter, const node &data) {
    bool selected = false;
    for (const node &wanted : filter.children) {
        for (const node &child : data.children) {
            if (is_content_match(wanted)) {
                if (content_matches(wanted, child)) {
                    whole_.insert(&child);
                    selected = true;
                }
            } else if (names_match(wanted, child) && select(wanted, child)) {
                selected = true;
            }
        }
    }
    return selected;
}

node selection::copy_selected(const node &data) const {
    if (whole_.contains(&data)) {
        return data;
    }
    node copy{data.name, data.name_space, data.value, data.attributes, {}, {}};
    for (const node &child : data.children) {
        if (whole_.contains(&child) || partial_.contains(&child)) {
            copy.children.push_back(copy_selected(child));
        }
    }
    return copy;
}

}  // namespace

node apply_subtree_filter(const node &filter, const node &data) {
    selection chosen;
    if (!filter.children.empty()) {
        chosen.select(filter, data);
    }
    return chosen.copy_selected(data);
}

}  // namespace request_path
