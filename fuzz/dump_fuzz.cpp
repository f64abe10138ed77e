// Dumps of data trees and schemas beside a reference that formats whole lines with snprintf.
//
// What is asserted: the entries that reach the trace file are, one by one, those of the reference: a line, or several
// short ones, behind the running number, cut to 249 characters; the record is not changed; without tracing there are no
// entries.
//
// Input: a byte of which the lowest bit chooses the tree or the schemas of a response, the next one drops the title and
// the rest are the number of bytes that choose presence bits to flip; these bytes; the title; the response's message.
#include <cinttypes>
#include <optional>

#include "nyx_api.h"
#include "nyx_api_common.h"
#include "platform_stand_in.h"
#include "quill_nyx.h"
#include "records.h"

namespace nyx_fuzz {
namespace {

constexpr std::size_t longest_message = 4096;
constexpr unsigned deepest = 300;

struct parts {
    bool dumps_schemas = false;
    std::optional<std::string> title;
    std::string_view flips;
    std::size_t message_offset = 0;
};

parts parts_of(const uint8_t *data, std::size_t size) {
    input in(data, size);
    const uint8_t form = in.byte();
    parts out;
    out.dumps_schemas = (form & 1U) != 0;
    out.flips = in.take(form >> 2U);
    const std::string title = in.text();
    if ((form & 2U) == 0) {
        out.title = title;
    }
    out.message_offset = size - in.left();
    return out;
}

// A line, or a part of one, formatted as a whole.
template <class... Arguments>
std::string format(const char *form, Arguments... arguments) {
    const int length = std::snprintf(nullptr, 0, form, arguments...);
    std::string out(static_cast<std::size_t>(length) + 1, '\0');
    std::snprintf(out.data(), out.size(), form, arguments...);
    out.pop_back();
    return out;
}

const char *shown(bool is_present, const char *text) {
    return is_present && text != nullptr ? text : "";
}

class reference {
  public:
    explicit reference(uint32_t first_index) : index_(first_index) {}

    std::vector<std::string> of_tree(const quill_nyx_datatree &tree, const char *title) {
        add_title(title);
        if (tree.has_name != 0) {
            add_root(tree);
            add_children(tree, 2);
        }
        if (!gathered_.empty()) {
            write();
        }
        return entries_;
    }

    std::vector<std::string> of_schemas(const quill_nyx_schema *schemas, uint32_t count, const char *title) {
        add_title(title);
        for (uint32_t i = 0; schemas != nullptr && i < count; ++i) {
            const quill_nyx_schema &each = schemas[i];
            add_line(format("    [%" PRIu32 "]: %s, %s, %s, %s, %d", i, shown(each.has_string_2, each.string_2),
                            shown(each.has_string_1, each.string_1), shown(each.has_string_5, each.string_5),
                            shown(each.has_string_3, each.string_3), each.has_flag_4 != 0 ? each.flag_4 : 0));
        }
        write();
        return entries_;
    }

  private:
    void add_title(const char *title) { gathered_ += title == nullptr ? "" : format("%s:\n", title); }

    void add_line(const std::string &line) {
        gathered_ += line + '\n';
        if (gathered_.size() >= 160) {
            write();
        }
    }

    void write() {
        entries_.push_back(format("#%" PRIu32 ": %s", index_++, gathered_.c_str()).substr(0, 249));
        gathered_.clear();
    }

    void add_root(const quill_nyx_datatree &root) {
        const char *const name = shown(true, root.name);
        const char *const ns = shown(true, root.namespace_);
        if (root.has_namespace == 0) {
            add_line(format("    %s", name));
        } else if (root.has_value == 0) {
            add_line(format("    %s (%s)", name, ns));
        } else {
            add_line(format("    %s (%s) : %s", name, ns, shown(true, root.value)));
        }
    }

    static std::string operation_of(const quill_nyx_datatree &node) {
        constexpr const char *names[] = {"merge", "replace", "create", "delete", "remove"};
        if (node.has_operation == 0) {
            return "";
        }
        return format(" (%s)", node.operation < std::size(names) ? names[node.operation] : "-");
    }

    static std::string kind_of(const quill_nyx_datatree &node) {
        constexpr const char *kinds[] = {"", " (dn)", " (kn)", " (ka)", " (da)"};
        return node.node_kind < std::size(kinds) ? kinds[node.node_kind] : "";
    }

    static std::string attributes_of(const quill_nyx_datatree &node) {
        std::string out;
        const bool has_any = node.has_attributes != 0 && node.attributes != nullptr;
        for (uint32_t i = 0; has_any && i < node.attributes_count; ++i) {
            const quill_nyx_attribute &each = node.attributes[i];
            out += format(" %s=%s", shown(each.has_key, each.key), shown(each.has_value, each.value));
        }
        return out;
    }

    void add_children(const quill_nyx_datatree &node, int level) {
        for (uint32_t i = 0; node.children != nullptr && i < node.children_count; ++i) {
            const quill_nyx_datatree &child = node.children[i];
            const std::string value = child.has_value != 0 ? format(" : %s", shown(true, child.value)) : "";
            add_line(format("%*s%s", level * 4, "", shown(child.has_name, child.name)) + value + operation_of(child) +
                     attributes_of(child) + kind_of(child));
            if (child.has_children != 0) {
                add_children(child, level + 1);
            }
        }
    }

    uint32_t index_;
    std::string gathered_;
    std::vector<std::string> entries_;
};

void dump(const quill_nyx_response &response, const parts &how) {
    nyx_debug_ctx_t debug = {};
    const char *const title = how.title ? how.title->c_str() : nullptr;
    const auto write = [&] {
        return how.dumps_schemas
                   ? nyx_gpb_schemas_trace_internal(&debug, response.schemas, response.schemas_count, title)
                   : nyx_gpb_datatree_trace_internal(&debug, &response.tree, title);
    };
    const rcode expected_result = how.dumps_schemas && response.schemas == nullptr ? NYX_RC_INVALID_ARGUMENT : 0;
    REQUIRE(write() == expected_result && trace_entries().empty(), "tracing is off");
    debug.trace_enabled = 1;
    reference expected(ret_nc_nyx_trace_index_incr() + 1);
    const std::vector<std::string> entries = how.dumps_schemas
                                                 ? expected.of_schemas(response.schemas, response.schemas_count, title)
                                                 : expected.of_tree(response.tree, title);
    REQUIRE(write() == expected_result, "result");
    REQUIRE(trace_entries().size() == entries.size(), std::to_string(trace_entries().size()));
    for (std::size_t i = 0; i < entries.size(); ++i) {
        REQUIRE(trace_entries()[i] == entries[i], trace_entries()[i] + " / " + entries[i]);
    }
    trace_entries().clear();
}

}  // namespace

message_place place_of_message(const uint8_t *data, std::size_t size) {
    return {&nyx_test::table_of(nyx_test::record_id::response), parts_of(data, size).message_offset};
}

}  // namespace nyx_fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    using namespace nyx_fuzz;
    const parts how = parts_of(data, size);
    const std::size_t length = size - how.message_offset;
    if (length > longest_message) {
        return 0;
    }
    const record_table &table = nyx_test::table_of(nyx_test::record_id::response);
    const exact_copy message(data + how.message_offset, length);
    counting_allocator blocks;
    const auto make = [&](quill_nyx_response &response) {
        table.decode(&response, message.get(), length, counting_allocator::alloc, &blocks, 0);
        bit_flipper(reinterpret_cast<const uint8_t *>(how.flips.data()), how.flips.size()).flip(table, &response);
    };
    quill_nyx_response response = {};
    make(response);
    if (nesting(table, &response) <= deepest) {
        dump(response, how);
        quill_nyx_response untouched = {};
        make(untouched);
        require_nothing(difference(table, &response, &untouched), __LINE__);
    }
    table.free(&response, counting_allocator::free, &blocks, 0);
    return 0;
}
