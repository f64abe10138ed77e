#include "tree.h"

#include <algorithm>
#include <set>
#include <utility>

namespace request_path {

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view blanks = " \t\r\n";
    const size_t first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

bool same_name(const node &a, const node &b) {
    return a.name == b.name && a.name_space == b.name_space;
}

bool same_content(const node &a, const node &b) {
    return same_name(a, b) && trimmed(a.value) == trimmed(b.value) &&
           std::equal(a.children.begin(), a.children.end(), b.children.begin(), b.children.end(), same_content);
}

const node *find_child(const node &parent, const node &like) {
    const auto found = std::find_if(parent.children.begin(), parent.children.end(),
                                    [&like](const node &child) { return same_name(child, like); });
    return found == parent.children.end() ? nullptr : &*found;
}

bool declares_namespace(const attribute &a) {
    return a.key == "xmlns" || a.key.starts_with("xmlns:");
}

std::string expanded_name(const node &holder, const attribute &a) {
    const size_t colon = a.key.find(':');
    if (colon == std::string::npos) {
        return a.key;
    }
    const std::string declaration = "xmlns:" + a.key.substr(0, colon);
    for (const attribute &other : holder.attributes) {
        if (other.key == declaration) {
            return "{" + other.value + "}" + a.key.substr(colon + 1);
        }
    }
    return a.key;  // "xml:lang" and its like: the prefix is the same everywhere
}

namespace {

const attribute *find_attribute(const node &holder, std::string_view key) {
    const auto found = std::find_if(holder.attributes.begin(), holder.attributes.end(),
                                    [key](const attribute &a) { return a.key == key; });
    return found == holder.attributes.end() ? nullptr : &*found;
}

/* @return a prefix for the namespace: one that the holder declares already, otherwise the preferred one if it is free
 */
std::string declared_prefix(node &holder, const std::string &name_space, std::string prefix) {
    constexpr std::string_view start = "xmlns:";
    for (const attribute &a : holder.attributes) {
        if (a.key.starts_with(start) && a.value == name_space) {
            return a.key.substr(start.size());
        }
    }
    for (size_t number = 1; find_attribute(holder, std::string(start) + prefix) != nullptr; ++number) {
        prefix = 'p';
        prefix += std::to_string(number);
    }
    holder.attributes.push_back({std::string(start) + prefix, name_space});
    return prefix;
}

/* Adds an attribute of another node, which may bind prefixes otherwise. */
void take_attribute(node &place, const node &other, const attribute &a) {
    const size_t colon = a.key.find(':');
    const attribute *declaration =
        colon == std::string::npos ? nullptr : find_attribute(other, "xmlns:" + a.key.substr(0, colon));
    std::string key = a.key;
    if (declaration != nullptr) {
        key = declared_prefix(place, declaration->value, a.key.substr(0, colon)) + a.key.substr(colon);
    }
    place.attributes.push_back({std::move(key), a.value});
}

}  // namespace

void merge_attributes(node &place, const node &with) {
    node before;
    before.attributes = std::exchange(place.attributes, with.attributes);
    std::set<std::string> replaced;
    for (const attribute &a : with.attributes) {
        replaced.insert(expanded_name(with, a));
    }
    for (const attribute &a : before.attributes) {
        if (!declares_namespace(a) && !replaced.contains(expanded_name(before, a))) {
            take_attribute(place, before, a);
        }
    }
}

const node *key_leaf(const node &entry) {
    for (const char *name : key_names) {
        for (const node &child : entry.children) {
            if (child.name == name && child.name_space == entry.name_space && child.is_leaf() && !child.value.empty()) {
                return &child;
            }
        }
    }
    return nullptr;
}

}  // namespace request_path
