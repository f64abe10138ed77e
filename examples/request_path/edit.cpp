#include "edit.h"

#include <quill_nyx.h>

#include <algorithm>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <tuple>
#include <unordered_map>
#include <unordered_set>
#include <utility>

namespace request_path {

namespace {

/* The operation "none" has no number of its own on the wire: it only comes as the default operation. */
constexpr uint32_t operation_none = QUILL_NYX_EDIT_OPERATION_REMOVE + 1;

/* Where a node is: its ancestors from the top, and itself. */
class node_path {
  public:
    void enter(const node &next, distinction mark) { steps_.emplace_back(&next, std::move(mark)); }
    void leave() { steps_.pop_back(); }

    /* @return the failure with this path in it */
    rpc_failure blame(rpc_failure failure) const {
        failure.path = std::make_shared<error_path>();
        std::for_each(steps_.rbegin(), steps_.rend(),
                      [&](const auto &step) { failure.path->prepend(*step.first, step.second); });
        return failure;
    }

  private:
    std::vector<std::pair<const node *, distinction>> steps_;
};

distinction by_key(const node &key, std::string_view value) {
    return {distinction::means::key, key.name, std::string(value)};
}

distinction by_value(std::string_view value) {
    return {distinction::means::value, {}, std::string(value)};
}

distinction by_position(uint32_t position) {
    return {position == 0 ? distinction::means::absence : distinction::means::position, {}, {}, position};
}

/* Numbers the nodes of the same name and parent: paths are about the data as they were before the edit. */
void number_instances(node &parent) {
    std::map<std::pair<std::string_view, std::string_view>, uint32_t> counts;
    for (node &child : parent.children) {
        child.instance = ++counts[{child.name_space, child.name}];
        number_instances(child);
    }
}

bool same_instance(const node &wanted, const node &existing, bool repeated) {
    if (!same_name(wanted, existing)) {
        return false;
    }
    if (const node *key = key_leaf(wanted)) {
        const node *other = find_child(existing, *key);
        return other != nullptr && trimmed(other->value) == trimmed(key->value);
    }
    return !repeated || same_content(wanted, existing);
}

/* What a node can be looked up by, as one string each. Different nodes may share one: same_instance() decides. */
namespace identity {

void append_part(std::string &text, std::string_view part) {
    text += part;
    text += '\0';  // no name and no value contains one
}

std::string of_name(const node &of, char kind = 'n') {
    std::string text(1, kind);
    append_part(text, of.name_space);
    append_part(text, of.name);
    return text;
}

/* @param key  a child of the node, in the node's namespace */
std::string of_key(const node &of, const node &key) {
    std::string text = of_name(of, 'k');
    append_part(text, key.name);
    append_part(text, trimmed(key.value));
    return text;
}

/* The first nodes of a tree tell most trees apart, and looking at no more bounds what a large tree costs. */
void append_content(std::string &text, const node &of, size_t &nodes_left) {
    for (const node &child : of.children) {
        if (nodes_left == 0) {
            return;
        }
        --nodes_left;
        append_part(text, child.name);
        append_part(text, trimmed(child.value));
        append_content(text, child, nodes_left);
    }
}

std::string of_content(const node &of) {
    std::string text = of_name(of, 'c');
    append_part(text, trimmed(of.value));
    size_t nodes_left = 8;
    append_content(text, of, nodes_left);
    return text;
}

}  // namespace identity

/* Finds nodes among siblings without looking at all of them. Who changes a sibling takes it out of the index before
 * and puts it back afterwards. */
class sibling_index {
  public:
    explicit sibling_index(const std::vector<node> &siblings) : siblings_(siblings) {
        for (size_t position = 0; position < siblings.size(); ++position) {
            put(position);
        }
    }

    void put(size_t position) {
        for (std::string &text : identities(siblings_[position])) {
            positions_[std::move(text)].insert(position);
        }
    }

    void take(size_t position) {
        for (const std::string &text : identities(siblings_[position])) {
            positions_[text].erase(position);
        }
    }

    /* @return whether several siblings have the name of this node */
    bool repeats(const node &wanted) const { return at(identity::of_name(wanted)).size() > 1; }

    /* @return the positions of the siblings that the node may mean, the first one first */
    const std::set<size_t> &candidates(const node &wanted, bool repeated) const {
        if (const node *key = key_leaf(wanted)) {
            return at(identity::of_key(wanted, *key));
        }
        return at(repeated ? identity::of_content(wanted) : identity::of_name(wanted));
    }

  private:
    const std::set<size_t> &at(const std::string &text) const {
        static const std::set<size_t> none;
        const auto found = positions_.find(text);
        return found == positions_.end() ? none : found->second;
    }

    static std::vector<std::string> identities(const node &of) {
        std::vector<std::string> all{identity::of_name(of), identity::of_content(of)};
        for (const char *name : key_names) {
            if (const node *key = find_child(of, {name, of.name_space, {}, {}, {}, {}})) {
                all.push_back(identity::of_key(of, *key));
            }
        }
        return all;
    }

    const std::vector<node> &siblings_;
    std::unordered_map<std::string, std::set<size_t>> positions_;
};

/* The children of a node while they are edited. Dropped ones keep their places until the end, so that the positions
 * of the others stay as they are. */
class edited_children {
  public:
    explicit edited_children(std::vector<node> &children) : children_(children), index_(children) {}

    bool repeats(const node &wanted) const { return index_.repeats(wanted); }

    std::optional<size_t> find(const node &wanted, bool repeated) const {
        const std::set<size_t> &candidates = index_.candidates(wanted, repeated);
        const auto found = std::find_if(candidates.begin(), candidates.end(), [&](size_t position) {
            return same_instance(wanted, children_[position], repeated);
        });
        return found == candidates.end() ? std::nullopt : std::optional(*found);
    }

    /* How to tell the node that was found, or looked for, from its siblings: in the words of the data, as white space
     * around a key or value is of no importance here, but is to XPath. */
    distinction tell(const std::optional<size_t> &found, const node &wanted, bool repeated) const {
        const node *existing = found ? &children_[*found] : nullptr;
        const bool is_only = index_.candidates(wanted, repeated).size() <= 1;
        if (const node *key = key_leaf(wanted); key != nullptr && is_only) {
            return by_key(*key, existing == nullptr ? trimmed(key->value) : find_child(*existing, *key)->value);
        }
        if (key_leaf(wanted) == nullptr && !repeated) {
            return {};
        }
        if (wanted.is_leaf() && !wanted.value.empty() && is_only) {
            return by_value(existing == nullptr ? trimmed(wanted.value) : existing->value);
        }
        return by_position(existing == nullptr ? 0 : existing->instance);
    }

    size_t add(node child) {
        children_.push_back(std::move(child));
        index_.put(children_.size() - 1);
        return children_.size() - 1;
    }

    template <class change_type>
    void change(size_t position, change_type make_change) {
        index_.take(position);
        make_change(children_[position]);
        index_.put(position);
    }

    void drop(size_t position) {
        index_.take(position);
        dropped_.insert(position);
    }

    /* Removes what was dropped; the last thing to be done. */
    void finish() {
        if (dropped_.empty()) {
            return;
        }
        std::vector<node> kept;
        for (size_t position = 0; position < children_.size(); ++position) {
            if (!dropped_.contains(position)) {
                kept.push_back(std::move(children_[position]));
            }
        }
        children_ = std::move(kept);
    }

  private:
    std::vector<node> &children_;
    sibling_index index_;
    std::unordered_set<size_t> dropped_;
};

class editor {
  public:
    explicit editor(bool keep_going) : keep_going_(keep_going) {}

    void apply_children(node &target, const node &edits, uint32_t inherited) {
        edited_children children(target.children);
        const sibling_index wanted_ones(edits.children);
        for (const node &wanted : edits.children) {
            const bool repeated = wanted_ones.repeats(wanted) || children.repeats(wanted);
            const std::optional<size_t> found = children.find(wanted, repeated);
            path_.enter(wanted, children.tell(found, wanted, repeated));
            apply(children, found, wanted, wanted.operation.value_or(inherited));
            path_.leave();
        }
        children.finish();
    }

    std::vector<rpc_failure> failures;

  private:
    /* @param found  where the data is that the edit's node means, if there is any */
    void apply(edited_children &children, std::optional<size_t> found, const node &wanted, uint32_t operation) {
        switch (operation) {
            case QUILL_NYX_EDIT_OPERATION_MERGE:
                children.change(found ? *found : children.add(shell(wanted)),
                                [&](node &place) { merge(place, wanted, operation); });
                break;
            case QUILL_NYX_EDIT_OPERATION_REPLACE:
                children.change(found ? *found : children.add(shell(wanted)), [&](node &place) {
                    const uint32_t instance = std::exchange(place, shell(wanted)).instance;
                    place.instance = instance;
                    merge(place, wanted, operation);
                });
                break;
            case QUILL_NYX_EDIT_OPERATION_CREATE:
                found ? fail("data-exists", "The data to be created exists already.")
                      : children.change(children.add(shell(wanted)),
                                        [&](node &place) { merge(place, wanted, operation); });
                break;
            case QUILL_NYX_EDIT_OPERATION_DELETE:
                found ? children.drop(*found) : fail("data-missing", "The data to be deleted does not exist.");
                break;
            case QUILL_NYX_EDIT_OPERATION_REMOVE:
                found ? children.drop(*found) : void();
                break;
            case operation_none:
                found ? children.change(*found, [&](node &place) { apply_children(place, wanted, operation); })
                      : fail("data-missing", "The data that holds the edited data does not exist.");
                break;
            default:
                throw bad_attribute("operation", wanted.name);
        }
    }

    static node shell(const node &wanted) { return {wanted.name, wanted.name_space, {}, {}, {}, {}}; }

    void merge(node &place, const node &wanted, uint32_t operation) {
        if ((!place.value.empty() && !wanted.is_leaf()) || (!wanted.value.empty() && !place.is_leaf())) {
            return fail("operation-failed", "The data is a leaf on one side and holds other data on the other.");
        }
        place.value = wanted.value;
        merge_attributes(place, wanted);
        apply_children(place, wanted, operation);
    }

    void fail(const char *tag, const char *message) {
        const rpc_failure failure = simple_failure(NYX_ERROR_TYPE_APPLICATION, tag, message);
        if (!keep_going_) {
            throw path_.blame(failure);
        }
        failures.push_back(path_.blame(failure));
    }

    bool keep_going_;
    node_path path_;
};

/* With the default operation "replace", the edit is all that is left. */
void drop_unmentioned(node &content, const node &config) {
    const sibling_index existing(content.children);
    const sibling_index wanted_ones(config.children);
    std::vector<bool> mentioned(content.children.size());
    for (const node &wanted : config.children) {
        const bool repeated = wanted_ones.repeats(wanted);
        for (const size_t position : existing.candidates(wanted, repeated)) {
            if (same_instance(wanted, content.children[position], repeated)) {
                mentioned[position] = true;
            }
        }
    }
    std::vector<node> kept;
    for (size_t position = 0; position < mentioned.size(); ++position) {
        if (mentioned[position]) {
            kept.push_back(std::move(content.children[position]));
        }
    }
    content.children = std::move(kept);
}

/* As edited_children::tell(), of a node that is there, and without an index: it takes a look at all siblings. */
distinction tell_among(const std::vector<node> &siblings, const node &one) {
    if (const node *key = key_leaf(one)) {
        return by_key(*key, key->value);
    }
    uint32_t instances = 0;
    uint32_t position = 0;
    uint32_t of_its_content = 0;
    for (const node &other : siblings) {
        instances += same_name(other, one) ? 1 : 0;
        of_its_content += same_content(other, one) ? 1 : 0;
        position = &other == &one ? instances : position;
    }
    if (instances == 1) {
        return {};
    }
    return one.is_leaf() && of_its_content == 1 ? by_value(one.value) : by_position(position);
}

/* @param above  the nodes that have been entered, the datastore's own first; not changed in the end */
void validate_children(std::vector<const node *> &above) {
    std::set<std::tuple<std::string_view, std::string_view, std::string_view>> seen;
    for (const node &child : above.back()->children) {
        above.push_back(&child);
        const node *key = key_leaf(child);
        if (key != nullptr && !seen.emplace(child.name_space, child.name, trimmed(key->value)).second) {
            node_path path;
            for (size_t level = 1; level < above.size(); ++level) {
                path.enter(*above[level], tell_among(above[level - 1]->children, *above[level]));
            }
            throw path.blame(
                simple_failure(NYX_ERROR_TYPE_APPLICATION, "operation-failed", "Two entries have the same key."));
        }
        validate_children(above);
        above.pop_back();
    }
}

}  // namespace

std::vector<rpc_failure> edit(node &content, const node &config, default_operation by_default, bool keep_going) {
    if (config.operation) {  // it would be that of the datastore, which is not one of the nodes that it holds
        throw bad_attribute("operation", "config");
    }
    number_instances(content);
    editor work(keep_going);
    switch (by_default) {
        case default_merge:
            work.apply_children(content, config, QUILL_NYX_EDIT_OPERATION_MERGE);
            break;
        case default_replace:
            work.apply_children(content, config, QUILL_NYX_EDIT_OPERATION_REPLACE);
            drop_unmentioned(content, config);
            break;
        case default_none:
            work.apply_children(content, config, operation_none);
            break;
        default:
            throw bad_element("default-operation");
    }
    return std::move(work.failures);
}

void validate(const node &content) {
    std::vector<const node *> above{&content};
    validate_children(above);
}

}  // namespace request_path
