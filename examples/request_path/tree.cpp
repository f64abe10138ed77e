#include "tree.h"

#include <algorithm>

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
