// Dumps of data trees in a trace file, beside the snprintf calls that the same text needs.
#include <nyx_api_common.h>
#include <skein/reader.h>
#include <skein/skein.h>

#include <algorithm>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <string>
#include <vector>

#include "pairs.h"
#include "trace_directory.h"

namespace {

constexpr const char *ours_file = "bench-nyx/dumps.trace";
constexpr const char *peer_file = "bench-nyx/dumps-peer.trace";

class trace_files {
  public:
    trace_files() {
        ours_.trace_enabled = 1;
        ours_.trace_handle = directory_.open(ours_file);
    }

    nyx_debug_ctx_t *ours() { return &ours_; }
    [[nodiscard]] std::uint64_t peer() const { return peer_; }
    [[nodiscard]] std::vector<std::string> ours_entries() const { return entries_of(ours_file); }
    [[nodiscard]] std::vector<std::string> peer_entries() const { return entries_of(peer_file); }

  private:
    [[nodiscard]] std::vector<std::string> entries_of(const char *name) const {
        skein_reader *reader = nullptr;
        if (skein_reader_open(directory_.path(), name, &reader) != 0) {
            std::abort();
        }
        std::vector<std::string> texts;
        skein_entry entry;
        while (skein_reader_next(reader, &entry) == 0) {
            // Without the number of the entry, and as far as it goes under the longest number.
            const std::string text(entry.text, entry.length);
            texts.push_back(text.substr(text.find(' '), 235));
        }
        skein_reader_close(reader);
        return texts;
    }

    trace_directory directory_;
    nyx_debug_ctx_t ours_ = {};
    std::uint64_t peer_ = directory_.open(peer_file);
};

trace_files &files() {
    static trace_files both;
    return both;
}

// The same dump with the C library's formatting: the same pieces into the same buffers, the same entries.
class snprintf_dump {
  public:
    explicit snprintf_dump(std::uint32_t index) : index_(index) {}

    void tree(const quill_nyx_datatree &tree, const char *title) {
        append("%s:\n", title);
        append("    %s (%s)\n", tree.name, tree.namespace_);
        children(tree, 2);
        flush();
    }

  private:
    [[gnu::format(printf, 2, 3)]] void append(const char *format, ...) {
        va_list arguments;
        va_start(arguments, format);
        const std::size_t room = sizeof text_ - length_;
        const auto wanted = static_cast<std::size_t>(std::vsnprintf(text_ + length_, room, format, arguments));
        va_end(arguments);
        length_ = std::min(length_ + wanted, sizeof text_ - 1);
    }

    void children(const quill_nyx_datatree &node, int level) {
        for (std::uint32_t i = 0; i < node.children_count; ++i) {
            line(node.children[i], level);
            if (length_ >= 160) {
                flush();
            }
            if (node.children[i].has_children != 0) {
                children(node.children[i], level + 1);
            }
        }
    }

    void line(const quill_nyx_datatree &node, int level) {
        append("%*s%s", level * 4, "", node.name);
        if (node.has_value != 0) {
            append(" : %s", node.value);
        }
        if (node.has_operation != 0) {
            append("%s", node.operation == QUILL_NYX_EDIT_OPERATION_MERGE ? " (merge)" : " (-)");
        }
        for (std::uint32_t i = 0; i < node.attributes_count; ++i) {
            append(" %s=%s", node.attributes[i].key, node.attributes[i].value);
        }
        if (node.node_kind != 0) {
            const char *const kinds[] = {"", " (dn)", " (kn)", " (ka)", " (da)"};
            append("%s", kinds[node.node_kind]);
        }
        append("\n");
    }

    void flush() {
        write_entry(index_++, text_);
        length_ = 0;
    }

    // A function of its own: the compiler warns of the cut when it knows the size of the text.
    [[gnu::noinline]] static void write_entry(std::uint32_t index, const char *text) {
        char entry[250];
        static_cast<void>(std::snprintf(entry, sizeof entry, "#%u: %s", index, text));
        static_cast<void>(_skein_str(files().peer(), 0x0000010101000000, entry));
    }

    char text_[1024] = {};
    std::size_t length_ = 0;
    std::uint32_t index_;
};

// A tree, with the names and arrays of its nodes.
class sample {
  public:
    const quill_nyx_datatree &root() { return *root_; }

    quill_nyx_datatree &set_root(const char *name, const char *ns) {
        root_ = array(1);
        root_->name = text(name);
        root_->has_name = 1;
        root_->namespace_ = text(ns);
        root_->has_namespace = 1;
        return *root_;
    }

    quill_nyx_datatree *add_children(quill_nyx_datatree &node, std::uint32_t count) {
        node.children = array(count);
        node.children_count = count;
        node.has_children = 1;
        return node.children;
    }

    void name(quill_nyx_datatree &node, const std::string &name, quill_nyx_node_kind kind) {
        node.name = text(name);
        node.has_name = 1;
        node.node_kind = kind;
    }

    void leaf(quill_nyx_datatree &node, const std::string &its_name, const std::string &value,
              quill_nyx_node_kind kind = QUILL_NYX_NODE_KIND_DA) {
        name(node, its_name, kind);
        node.value = text(value);
        node.has_value = 1;
    }

    void add_attribute(quill_nyx_datatree &node, const char *key, const char *value) {
        attributes_.push_back({text(key), text(value), 1, 1});
        node.attributes = &attributes_.back();
        node.attributes_count = 1;
        node.has_attributes = 1;
    }

  private:
    quill_nyx_datatree *array(std::size_t count) {
        return arrays_.emplace_back(std::vector<quill_nyx_datatree>(count)).data();
    }
    char *text(const std::string &text) { return texts_.emplace_back(text).data(); }

    quill_nyx_datatree *root_ = nullptr;
    std::deque<std::vector<quill_nyx_datatree>> arrays_;
    std::deque<std::string> texts_;
    std::deque<quill_nyx_attribute> attributes_;
};

constexpr std::uint32_t node_count = 100'000;

// 10,000 list entries of nine leaves, as an edit of many interfaces has them.
sample interfaces() {
    constexpr std::uint32_t leaf_count = 9;
    constexpr std::uint32_t entry_count = node_count / (leaf_count + 1);
    sample tree;
    quill_nyx_datatree *const entries =
        tree.add_children(tree.set_root("config", "urn:ietf:params:xml:ns:netconf:base:1.0"), entry_count);
    for (std::uint32_t i = 0; i < entry_count; ++i) {
        const std::string number = std::to_string(i);
        tree.name(entries[i], "interface", QUILL_NYX_NODE_KIND_DN);
        entries[i].operation = QUILL_NYX_EDIT_OPERATION_MERGE;
        entries[i].has_operation = 1;
        tree.add_attribute(entries[i], "xmlns", "urn:ietf:params:xml:ns:yang:ietf-interfaces");
        quill_nyx_datatree *const leaves = tree.add_children(entries[i], leaf_count);
        tree.leaf(leaves[0], "name", "GigabitEthernet0/0/" + number, QUILL_NYX_NODE_KIND_KN);
        tree.leaf(leaves[1], "description", "uplink " + number + " to the core");
        tree.leaf(leaves[2], "type", "ianaift:ethernetCsmacd");
        tree.leaf(leaves[3], "enabled", "true");
        tree.leaf(leaves[4], "link-up-down-trap-enable", "enabled");
        tree.leaf(leaves[5], "mtu", "1500");
        tree.leaf(leaves[6], "ip", "192.0.2." + std::to_string(i % 256));
        tree.leaf(leaves[7], "prefix-length", "24");
        tree.leaf(leaves[8], "vlan", number);
    }
    return tree;
}

// Containers in containers, 20 levels deep, with names alone: more indentation than text.
sample nested_containers() {
    constexpr std::uint32_t depth = 20;
    constexpr std::uint32_t branch_count = node_count / depth;
    sample tree;
    quill_nyx_datatree *const branches = tree.add_children(tree.set_root("state", "urn:example:nested"), branch_count);
    for (std::uint32_t i = 0; i < branch_count; ++i) {
        quill_nyx_datatree *node = &branches[i];
        tree.name(*node, "container", 0);
        for (std::uint32_t level = 1; level < depth; ++level) {
            node = tree.add_children(*node, 1);
            tree.name(*node, "container", 0);
        }
    }
    return tree;
}

void dump_ours(sample &tree) {
    if (nyx_gpb_datatree_trace_internal(files().ours(), &tree.root(), "dump") != 0) {
        std::abort();
    }
}

// What is compared has to be the same text.
void check(sample &tree) {
    dump_ours(tree);
    snprintf_dump(0).tree(tree.root(), "dump");
    if (files().ours_entries() != files().peer_entries()) {
        std::fprintf(stderr, "the dumps differ\n");
        std::abort();
    }
}

// Whole dumps, of as many nodes as are asked for or more: the time is that of the former.
template <class Dump>
timed_loop whole_dumps(Dump dump) {
    return [dump](std::size_t count) {
        const std::size_t dumps = (count + node_count - 1) / node_count;
        const double taken = nanoseconds([&] {
            for (std::size_t i = 0; i < dumps; ++i) {
                dump();
            }
        });
        return taken * static_cast<double>(count) / static_cast<double>(dumps * node_count);
    };
}

void add(pairs &all, const char *name, sample &tree) {
    check(tree);
    all.push_back({name, "snprintf of the same text", node_count, whole_dumps([&tree] { dump_ours(tree); }),
                   whole_dumps([&tree] { snprintf_dump(0).tree(tree.root(), "dump"); }), 1.5});
}

}  // namespace

void add_trace_dumps(pairs &all) {
    static sample wide = interfaces();
    static sample nested = nested_containers();
    add(all, "dump of 100,000 nodes, per node", wide);
    add(all, "dump of 100,000 nested containers, per node", nested);
}
