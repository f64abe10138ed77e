// Readable dumps of data trees and schemas in a component's trace file.
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string_view>

#include "dump_text.h"
#include "nyx_api_common.h"
#include "nyx_log.h"

namespace {

// Text that goes to the trace file.
class trace_text : public nyx::dump_text {
  public:
    explicit trace_text(const nyx_debug_ctx_t &debug) : debug_(debug) {}

    void add_title(const char *title) {
        if (title != nullptr) {
            add_text(title);
            add(":\n");
        }
    }

    // Short lines wait for the next ones.
    void end_line() {
        add("\n");
        if (text().size() >= enough_for_an_entry) {
            write();
        }
    }

    // Tracing may have been switched off since the dump began.
    void write() {
        if (debug_.trace_enabled != 0) {
            nyx::write_trace_line(debug_, "#%u: %.*s", nyx::trace_index++, static_cast<int>(text().size()),
                                  text().data());
        }
        clear();
    }

  private:
    static constexpr std::size_t enough_for_an_entry = 160;

    const nyx_debug_ctx_t &debug_;
};

void add_operation(trace_text &out, quill_nyx_edit_operation operation) {
    constexpr std::string_view suffixes[] = {" (merge)", " (replace)", " (create)", " (delete)", " (remove)"};
    out.add(operation < std::size(suffixes) ? suffixes[operation] : " (-)");
}

void add_node_kind(trace_text &out, quill_nyx_node_kind kind) {
    constexpr std::string_view suffixes[] = {"", " (dn)", " (kn)", " (ka)", " (da)"};
    if (kind < std::size(suffixes)) {
        out.add(suffixes[kind]);
    }
}

void add_attributes(trace_text &out, const quill_nyx_attribute *attributes, std::uint32_t count) {
    for (std::uint32_t i = 0; attributes != nullptr && i < count; ++i) {
        out.add(" ");
        out.add_text(attributes[i].has_key != 0 ? attributes[i].key : nullptr);
        out.add("=");
        out.add_text(attributes[i].has_value != 0 ? attributes[i].value : nullptr);
    }
}

void add_root(trace_text &out, const quill_nyx_datatree &root) {
    out.add("    ");
    out.add_text(root.name);
    if (root.has_namespace != 0) {
        out.add(" (");
        out.add_text(root.namespace_);
        out.add(")");
    }
    if (root.has_namespace != 0 && root.has_value != 0) {
        out.add(" : ");
        out.add_text(root.value);
    }
    out.end_line();
}

// Not a part of add_children: what it keeps would be kept once for each level.
[[gnu::noinline]] void add_node(trace_text &out, const quill_nyx_datatree &node, std::uint64_t level) {
    out.add_blanks(level * 4);
    out.add_text(node.has_name != 0 ? node.name : nullptr);
    if (node.has_value != 0) {
        out.add(" : ");
        out.add_text(node.value);
    }
    if (node.has_operation != 0) {
        add_operation(out, node.operation);
    }
    if (node.has_attributes != 0) {
        add_attributes(out, node.attributes, node.attributes_count);
    }
    add_node_kind(out, node.node_kind);
    out.end_line();
}

// Recursion, with a frame that is small enough for trees as deep as the codec takes.
void add_children(trace_text &out, const quill_nyx_datatree &node, std::uint64_t level) {
    for (std::uint32_t i = 0; node.children != nullptr && i < node.children_count; ++i) {
        const quill_nyx_datatree &child = node.children[i];
        add_node(out, child, level);
        if (child.has_children != 0) {
            add_children(out, child, level + 1);
        }
    }
}

void add_schema(trace_text &out, std::uint32_t index, const quill_nyx_schema &schema) {
    out.add("    [");
    out.add_number(static_cast<std::int32_t>(index));
    out.add("]: ");
    out.add_text(schema.has_string_2 != 0 ? schema.string_2 : nullptr);
    out.add(", ");
    out.add_text(schema.has_string_1 != 0 ? schema.string_1 : nullptr);
    out.add(", ");
    out.add_text(schema.has_string_5 != 0 ? schema.string_5 : nullptr);
    out.add(", ");
    out.add_text(schema.has_string_3 != 0 ? schema.string_3 : nullptr);
    out.add(", ");
    out.add_number(schema.has_flag_4 != 0 ? schema.flag_4 : 0);
    out.end_line();
}

void write_tree(const nyx_debug_ctx_t &debug, const quill_nyx_datatree &tree, const char *title) {
    trace_text out(debug);
    out.add_title(title);
    if (tree.has_name != 0) {
        add_root(out, tree);
        add_children(out, tree, 2);
    }
    if (!out.text().empty()) {
        out.write();
    }
}

void write_schemas(const nyx_debug_ctx_t &debug, const quill_nyx_schema *schemas, std::uint32_t count,
                   const char *title) {
    trace_text out(debug);
    out.add_title(title);
    for (std::uint32_t i = 0; i < count; ++i) {
        add_schema(out, i, schemas[i]);
    }
    out.write();  // also if there is nothing left: an entry tells that the dump is over
}

}  // namespace

rcode nyx_gpb_datatree_trace_internal(nyx_debug_ctx_t *debug_ctx, const quill_nyx_datatree *tree, const char *title) {
    if (debug_ctx == nullptr || tree == nullptr) {
        return NYX_RC_INVALID_ARGUMENT;
    }
    if (debug_ctx->trace_enabled != 0) {
        write_tree(*debug_ctx, *tree, title);
    }
    return 0;
}

rcode nyx_gpb_schemas_trace_internal(nyx_debug_ctx_t *debug_ctx, const quill_nyx_schema *schemas, std::uint32_t count,
                                     const char *title) {
    if (debug_ctx == nullptr) {
        return NYX_RC_INVALID_ARGUMENT;
    }
    if (debug_ctx->trace_enabled != 0) {
        write_schemas(*debug_ctx, schemas, schemas == nullptr ? 0 : count, title);
    }
    return schemas == nullptr ? NYX_RC_INVALID_ARGUMENT : 0;
}
