#include "tree_print.h"

#include <nyx_debug.h>

#include <array>
#include <iomanip>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace request_path {

namespace {

constexpr std::array edit_operations{"merge", "replace", "create", "delete", "remove"};
constexpr std::array default_operations{"merge", "replace", "none"};
constexpr std::array test_options{"test-then-set", "set", "test-only"};
constexpr std::array error_options{"stop-on-error", "continue-on-error", "rollback-on-error"};
constexpr std::array filter_kinds{"subtree", "xpath"};

class printer {
  public:
    explicit printer(std::ostream &out) : out_(out) {}

    /* The names of the records that have an encoding, in the order in which the encoder lists their segments: nested
     * records before the record that holds them. */
    const std::vector<std::string> &encoded_records() const { return encoded_; }

    void number(const char *name, bool present, uint64_t value) {
        if (present) {
            line() << name << ": " << value << '\n';
        }
    }

    void number(const char *name, bool present, uint64_t value, const char *meaning) {
        if (present) {
            line() << name << ": " << value << " (" << meaning << ")\n";
        }
    }

    template <size_t count>
    void number(const char *name, bool present, uint64_t value, const std::array<const char *, count> &meanings) {
        number(name, present, value, value < count ? meanings[value] : "unknown");
    }

    void text(const char *name, bool present, const char *value) {
        if (present && value != nullptr) {
            line() << name << ": \"" << value << "\"\n";
        }
    }

    template <class function>
    void record(const std::string &name, bool present, function members) {
        record(name, path_.empty() ? name : "." + name, present, members);
    }

    /* @param step  what the record adds to the name of the record that holds it */
    template <class function>
    void record(const std::string &name, const std::string &step, bool present, function members) {
        if (!present) {
            return;
        }
        line() << name << '\n';
        const size_t lines_before = lines_;
        const size_t outer_length = path_.size();
        path_ += step;
        depth_ += 1;
        members();
        depth_ -= 1;
        if (lines_ > lines_before) {
            encoded_.push_back(path_);
        }
        path_.resize(outer_length);
    }

  private:
    std::ostream &line() {
        ++lines_;
        return out_ << std::string(4 + 2 * depth_, ' ');
    }

    std::ostream &out_;
    size_t depth_ = 0;
    size_t lines_ = 0;
    std::string path_;
    std::vector<std::string> encoded_;
};

std::string element(std::string_view array, uint32_t index) {
    std::string name(array);
    name += '[';
    name += std::to_string(index);
    name += ']';
    return name;
}

void show(printer &p, const char *name, bool present, const quill_nyx_datastore &record) {
    p.record(name, present, [&] { p.text("name", record.has_name, record.name); });
}

void show_node(printer &p, const quill_nyx_datatree &record);

void show(printer &p, const char *name, bool present, const quill_nyx_datatree &record) {
    p.record(name, present, [&] { show_node(p, record); });
}

void show_node(printer &p, const quill_nyx_datatree &record) {
    p.text("name", record.has_name, record.name);
    p.text("value", record.has_value, record.value);
    p.text("namespace", record.has_namespace, record.namespace_);
    p.number("operation", record.has_operation, record.operation, edit_operations);
    for (uint32_t i = 0; i < record.attributes_count; ++i) {
        p.record(element("attributes", i), true, [&] {
            p.text("key", record.attributes[i].has_key, record.attributes[i].key);
            p.text("value", record.attributes[i].has_value, record.attributes[i].value);
        });
    }
    for (uint32_t i = 0; i < record.children_count; ++i) {
        const quill_nyx_datatree &child = record.children[i];
        const std::string step = std::string(1, '/').append(child.name == nullptr ? "?" : child.name);
        p.record(element("children", i), step, true, [&] { show_node(p, child); });
    }
}

void show(printer &p, const char *name, bool present, const quill_nyx_filter &record) {
    p.record(name, present, [&] {
        p.number("uint32_1", record.has_uint32_1, record.uint32_1, filter_kinds);
        show(p, "tree", record.has_tree, record.tree);
    });
}

void show(printer &p, bool present, const quill_nyx_get_config &body) {
    p.record("get_config", present, [&] {
        show(p, "source", body.has_source, body.source);
        show(p, "filter", body.has_filter, body.filter);
    });
}

void show(printer &p, bool present, const quill_nyx_edit_config &body) {
    p.record("edit_config", present, [&] {
        show(p, "target", body.has_target, body.target);
        p.number("uint32_2", body.has_uint32_2, body.uint32_2, default_operations);
        p.number("uint32_4", body.has_uint32_4, body.uint32_4, error_options);
        p.number("uint32_3", body.has_uint32_3, body.uint32_3, test_options);
        show(p, "config", body.has_config, body.config);
    });
}

void show(printer &p, bool present, const quill_nyx_commit &body) {
    p.record("commit", present, [&] {
        p.number("uint32_1", body.has_uint32_1, body.uint32_1);
        p.number("uint32_2", body.has_uint32_2, body.uint32_2);
        p.text("string_3", body.has_string_3, body.string_3);
        p.text("string_4", body.has_string_4, body.string_4);
    });
}

void show(printer &p, bool present, const quill_nyx_copy_config &body) {
    p.record("copy_config", present, [&] {
        show(p, "target", body.has_target, body.target);
        p.text("string_2", body.has_string_2, body.string_2);
        show(p, "source", body.has_source, body.source);
        p.text("string_4", body.has_string_4, body.string_4);
        show(p, "config", body.has_config, body.config);
    });
}

/* In the order of the members, which is that of the encoding. */
void show_bodies(printer &p, const quill_nyx_request &r) {
    show(p, r.has_get_config, r.get_config);
    show(p, r.has_edit_config, r.edit_config);
    p.record("validate", r.has_validate, [&] {
        show(p, "source", r.validate.has_source, r.validate.source);
        show(p, "config", r.validate.has_config, r.validate.config);
    });
    p.record("lock", r.has_lock, [&] { show(p, "target", r.lock.has_target, r.lock.target); });
    p.record("unlock", r.has_unlock, [&] { show(p, "target", r.unlock.has_target, r.unlock.target); });
    show(p, r.has_commit, r.commit);
    p.record("cancel_commit", r.has_cancel_commit,
             [&] { p.text("string_1", r.cancel_commit.has_string_1, r.cancel_commit.string_1); });
    p.record("discard_changes", r.has_discard_changes, [] {});
    show(p, r.has_copy_config, r.copy_config);
    p.record("get", r.has_get, [&] { show(p, "filter", r.get.has_filter, r.get.filter); });
    p.record("start_session", r.has_start_session, [] {});
    p.record("stop_session", r.has_stop_session,
             [&] { p.number("uint32_1", r.stop_session.has_uint32_1, r.stop_session.uint32_1); });
    p.record("invoke_rpc", r.has_invoke_rpc, [&] { show(p, "tree", r.invoke_rpc.has_tree, r.invoke_rpc.tree); });
}

/* Encodes the request once more: the encoding is the one that arrived, and comes with its segments this time. */
void show_segments(std::ostream &out, const quill_nyx_request &request, const std::vector<std::string> &names) {
    std::vector<uint8_t> bytes(quill_nyx_request_encode_ext(&request, nullptr, 0, nullptr, nullptr, 0));
    std::vector<quill_segment> segments(names.size());
    auto count = static_cast<uint32_t>(segments.size());
    quill_nyx_request_encode_ext(&request, bytes.data(), bytes.size(), segments.data(), &count, 0);
    out << "  segments: " << count << ", nested records before the record that holds them\n    offset  length\n";
    for (size_t i = 0; i < segments.size() && i < count; ++i) {
        out << "    " << std::setw(6) << segments[i].start - bytes.data() << "  " << std::setw(6) << segments[i].length
            << "  " << names[i] << '\n';
    }
}

}  // namespace

void print_request(std::ostream &out, const quill_nyx_request &request) {
    printer p(out);
    p.record("request", true, [&] {
        p.number("type", request.has_type, request.type, nyx_debug_op_name(request.type));
        p.number("session_id", request.has_session_id, request.session_id);
        p.text("message_id", request.has_message_id, request.message_id);
        show_bodies(p, request);
    });
    show_segments(out, request, p.encoded_records());
}

}  // namespace request_path
