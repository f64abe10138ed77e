#include "edit.h"

#include <quill_nyx.h>

#include <algorithm>
#include <iterator>
#include <set>
#include <tuple>

namespace request_path {

namespace {

/* The operation "none" has no number of its own on the wire: it only comes as the default operation. */
constexpr uint32_t operation_none = QUILL_NYX_EDIT_OPERATION_REMOVE + 1;

std::string in_quotes(char quote, std::string_view value) {
    std::string text(1, quote);
    text += value;
    text += quote;
    return text;
}

/* XPath 1.0 has no escapes: a value with both kinds of quotes is put together from parts that have one each. */
std::string quoted(std::string_view value) {
    if (value.find('\'') == std::string_view::npos) {
        return in_quotes('\'', value);
    }
    if (value.find('"') == std::string_view::npos) {
        return in_quotes('"', value);
    }
    std::string call = "concat(";
    while (!value.empty()) {
        const bool starts_with_double = value.find('"') < value.find('\'');
        const size_t length = std::min(value.find(starts_with_double ? '\'' : '"'), value.size());
        call += in_quotes(starts_with_double ? '\'' : '"', value.substr(0, length));
        value.remove_prefix(length);
        call += value.empty() ? ")" : ", ";
    }
    return call;
}

/* The absolute path of a node: its ancestors from the top, and itself. */
class node_path {
  public:
    void enter(const node &next) { nodes_.push_back(&next); }
    void leave() { nodes_.pop_back(); }
    void describe_in(rpc_failure &failure) const {
        for (const node *step : nodes_) {
            const std::string prefix = prefix_of(step->name_space, failure.path_spaces);
            failure.path += "/" + prefix + step->name;
            if (const node *key = key_leaf(*step)) {
                failure.path += "[" + prefix + key->name + "=" + quoted(trimmed(key->value)) + "]";
            }
        }
    }

  private:
    static std::string prefix_of(const std::string &name_space, std::vector<std::string> &known) {
        if (name_space.empty()) {
            return {};
        }
        const auto found = std::find(known.begin(), known.end(), name_space);
        const auto number = std::distance(known.begin(), found) + 1;
        if (found == known.end()) {
            known.push_back(name_space);
        }
        return "ns" + std::to_string(number) + ":";
    }

    std::vector<const node *> nodes_;
};

bool is_repeated(const node &wanted, const node &parent) {
    return std::count_if(parent.children.begin(), parent.children.end(),
                         [&wanted](const node &child) { return same_name(wanted, child); }) > 1;
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

class editor {
  public:
    explicit editor(bool keep_going) : keep_going_(keep_going) {}

    void apply_children(node &target, const node &edits, uint32_t inherited) {
        for (const node &wanted : edits.children) {
            path_.enter(wanted);
            apply(target, edits, wanted, wanted.operation.value_or(inherited));
            path_.leave();
        }
    }

    std::vector<rpc_failure> failures;

  private:
    using position = std::vector<node>::iterator;

    void apply(node &parent, const node &edits, const node &wanted, uint32_t operation) {
        const bool repeated = is_repeated(wanted, edits) || is_repeated(wanted, parent);
        const position found = std::find_if(parent.children.begin(), parent.children.end(), [&](const node &existing) {
            return same_instance(wanted, existing, repeated);
        });
        const bool exists = found != parent.children.end();
        switch (operation) {
            case QUILL_NYX_EDIT_OPERATION_MERGE:
                merge(exists ? *found : add(parent, wanted), wanted, operation);
                break;
            case QUILL_NYX_EDIT_OPERATION_REPLACE:
                merge(exists ? *found = shell(wanted) : add(parent, wanted), wanted, operation);
                break;
            case QUILL_NYX_EDIT_OPERATION_CREATE:
                exists ? fail("data-exists", "The data to be created exists already.")
                       : merge(add(parent, wanted), wanted, operation);
                break;
            case QUILL_NYX_EDIT_OPERATION_DELETE:
                exists ? void(parent.children.erase(found))
                       : fail("data-missing", "The data to be deleted does not exist.");
                break;
            case QUILL_NYX_EDIT_OPERATION_REMOVE:
                exists ? void(parent.children.erase(found)) : void();
                break;
            case operation_none:
                exists ? apply_children(*found, wanted, operation)
                       : fail("data-missing", "The data that holds the edited data does not exist.");
                break;
            default:
                throw bad_attribute("operation", wanted.name);
        }
    }

    static node shell(const node &wanted) { return {wanted.name, wanted.name_space, {}, {}, {}, {}}; }

    static node &add(node &parent, const node &wanted) {
        parent.children.push_back(shell(wanted));
        return parent.children.back();
    }

    void merge(node &place, const node &wanted, uint32_t operation) {
        if ((!place.value.empty() && !wanted.is_leaf()) || (!wanted.value.empty() && !place.is_leaf())) {
            return fail("operation-failed", "The data is a leaf on one side and holds other data on the other.");
        }
        place.value = wanted.value;
        for (const attribute &a : wanted.attributes) {
            const auto same = std::find_if(place.attributes.begin(), place.attributes.end(),
                                           [&a](const attribute &other) { return other.key == a.key; });
            same == place.attributes.end() ? place.attributes.push_back(a) : void(*same = a);
        }
        apply_children(place, wanted, operation);
    }

    void fail(const char *tag, const char *message) {
        rpc_failure failure = simple_failure(error_application, tag, message);
        path_.describe_in(failure);
        if (!keep_going_) {
            throw failure;
        }
        failures.push_back(std::move(failure));
    }

    bool keep_going_;
    node_path path_;
};

/* With the default operation "replace", the edit is all that is left. */
void drop_unmentioned(node &content, const node &config) {
    std::erase_if(content.children, [&config](const node &existing) {
        return std::none_of(config.children.begin(), config.children.end(), [&](const node &wanted) {
            return same_instance(wanted, existing, is_repeated(wanted, config));
        });
    });
}

void validate_children(const node &parent, node_path &path) {
    std::set<std::tuple<std::string_view, std::string_view, std::string_view>> seen;
    for (const node &child : parent.children) {
        path.enter(child);
        const node *key = key_leaf(child);
        if (key != nullptr && !seen.emplace(child.name_space, child.name, trimmed(key->value)).second) {
            rpc_failure failure =
                simple_failure(error_application, "operation-failed", "Two entries have the same key.");
            failure.app_tag = "data-not-unique";
            path.describe_in(failure);
            throw failure;
        }
        validate_children(child, path);
        path.leave();
    }
}

}  // namespace

std::vector<rpc_failure> edit(node &content, const node &config, default_operation by_default, bool keep_going) {
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
    node_path path;
    validate_children(content, path);
}

}  // namespace request_path
