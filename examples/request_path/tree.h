/**
 * @file tree.h
 * A piece of XML-like data as both processes work on it: what a quill_nyx_datatree carries between them.
 */
#ifndef REQUEST_PATH_TREE_H
#define REQUEST_PATH_TREE_H

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace request_path {

inline constexpr const char *netconf_namespace = "urn:ietf:params:xml:ns:netconf:base:1.0";

/** A key is "name", "prefix:name" or "xmlns:prefix"; a prefix is bound by another attribute of the same node. */
struct attribute {
    std::string key;
    std::string value;
    bool operator==(const attribute &) const = default;
};

struct node {
    std::string name;
    std::string name_space;
    std::string value;
    std::vector<attribute> attributes;
    std::vector<node> children;
    std::optional<uint32_t> operation;  ///< a quill_nyx_edit_operation; only in the configuration of an edit
    uint32_t instance = 0;  ///< while it is edited: the so-manieth of its name under its parent before; 0: added since

    bool is_leaf() const { return children.empty(); }
};

/** @return @p text without white space at its ends */
std::string_view trimmed(std::string_view text);

/** @return whether both nodes have the same name and namespace */
bool same_name(const node &a, const node &b);

/** @return whether name, namespace, value and, in their order, all children agree */
bool same_content(const node &a, const node &b);

/** @return the first child that has the same name and namespace as @p like, or null */
const node *find_child(const node &parent, const node &like);

/** @return whether the key declares a namespace ("xmlns" or "xmlns:prefix") */
bool declares_namespace(const attribute &a);

/** @return the attribute's name with its prefix, if any, replaced by "{namespace}" */
std::string expanded_name(const node &holder, const attribute &a);

/**
 * Adds the attributes of @p with to those of @p place and takes its values for those that both have. Attributes are the
 * same when namespace and local name agree; a prefix that means two things in the two nodes is replaced by another for
 * the attributes that were there. Declarations stay as far as one of the attributes needs them.
 */
void merge_attributes(node &place, const node &with);

/** Names that the key of a list entry may have, the preferred one first. */
inline constexpr std::array key_names{"name", "id", "ip", "index"};

/**
 * The leaf that tells the entries of a list apart. There is no schema here that would name it, so a rule must do: the
 * first of key_names that the entry has as a child leaf of its own namespace.
 * @return null when there is none: the node is a container, a leaf, or a list entry that only its content identifies
 */
const node *key_leaf(const node &entry);

}  // namespace request_path

#endif
