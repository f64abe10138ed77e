// XPath contexts with arbitrary names, namespaces and keys, beside a plain std::string, and the parts of an error that
// are made without a context: the path that a caller gives, and arrays of entries.
//
// What is asserted: after every step the path is the expression that the header describes, and after a failed one it is
// what it was; namespaces get ns1, ns2 and so on in the order of their first use; the error path carries the path as
// its value and the prefixes as its attributes; an allocation that fails gives ENOMEM, or a value that is null, and
// nothing else; afterwards no block is left but those that a failed conversion is documented to leave behind; a path
// that is given is the error's, with its namespace, and all else in the result stays; an array of entries is all zeros;
// where memory fails for these two nothing changes, nothing is held, and the second one logs a line.
//
// Input: operations, one after the other. A byte tells which one and what it has, a byte the allocation that fails (0:
// none), then come its texts.
#include <algorithm>
#include <cerrno>
#include <optional>
#include <utility>

#include "fuzz_target.h"
#include "nyx_api.h"
#include "nyx_api_common.h"
#include "nyx_error.h"
#include "platform_stand_in.h"
#include "record_compare.h"

namespace nyx_fuzz {
namespace {

constexpr std::size_t longest_path = 100'000;

// A text that may be null.
using optional_text = std::optional<std::string>;

const char *pointer(const optional_text &text) {
    return text ? text->c_str() : nullptr;
}

struct key {
    optional_text name;
    optional_text value;
};

struct step {
    std::string name;
    optional_text name_space;
    std::vector<key> keys;
};

step read_step(input &in, uint8_t form) {
    step out;
    out.name = in.text();
    if ((form & 4U) != 0) {
        out.name_space = in.text();
    }
    out.keys.resize(form >> 5U);
    for (key &each : out.keys) {
        each.name = in.text();
        each.value = in.text();
    }
    if ((form & 8U) != 0 && !out.keys.empty()) {
        out.keys.front().name.reset();
    }
    if ((form & 16U) != 0 && !out.keys.empty()) {
        out.keys.back().value.reset();
    }
    return out;
}

class context {
  public:
    context() { start(); }
    context(const context &) = delete;
    context &operator=(const context &) = delete;
    ~context() { end(); }

    void prepend(const step &next, uint64_t failing) {
        std::vector<const char *> names;
        std::vector<const char *> values;
        for (const key &each : next.keys) {
            names.push_back(pointer(each.name));
            values.push_back(pointer(each.value));
        }
        memory().fail_at(failing);
        const int rc = xpath_prepend(&real_, next.name.c_str(), pointer(next.name_space), names.data(), values.data(),
                                     static_cast<uint32_t>(names.size()));
        // A map that cannot grow takes longer, and that is all.
        const bool failed =
            memory().has_failed() && (rc != 0 || memory().failed_description() != "umbra hash map table");
        REQUIRE(rc == (failed ? ENOMEM : 0), std::to_string(rc));
        note_prefix(next, failed);
        if (!failed) {
            path_ = expression(next);
        }
        compare();
    }

    void refuse_broken_arguments(const step &next) {
        const char *const texts[] = {"k"};
        const char *const ns = pointer(next.name_space);
        REQUIRE(xpath_prepend(nullptr, next.name.c_str(), ns, nullptr, nullptr, 0) == EINVAL, "");
        REQUIRE(xpath_prepend(&real_, nullptr, ns, nullptr, nullptr, 0) == EINVAL, "");
        REQUIRE(xpath_prepend(&real_, next.name.c_str(), ns, nullptr, texts, 1) == EINVAL, "");
        REQUIRE(xpath_prepend(&real_, next.name.c_str(), ns, texts, nullptr, 1) == EINVAL, "");
        compare();
    }

    void convert(uint64_t failing) {
        const std::set<void *> before = memory().blocks();
        quill_nyx_error error = {};
        memory().fail_at(failing);
        const int rc = xpath_to_nyx_error(&real_, &error);
        const bool failed = memory().has_failed();
        require_converted(error, rc, failed);
        if (!failed) {
            const bool is_taken = error.error_path.value != nullptr || error.error_path.attributes != nullptr;
            REQUIRE(xpath_to_nyx_error(&real_, &error) == (is_taken ? EINVAL : 0), "a second conversion");
        }
        quill_nyx_error_free_ext(&error, nyx_gpb_free, nullptr, 0);
        const uint64_t left = memory().free_all_but(before);
        REQUIRE(left == 0 || rc == ENOMEM, std::to_string(left));
        compare();
    }

    void start_anew(uint64_t failing) {
        end();
        memory().fail_at(failing);
        const int rc = xpath_context_init(&real_);
        const bool failed = memory().has_failed();
        REQUIRE((rc != 0) == failed, std::to_string(rc));
        end();
        start();
    }

    [[nodiscard]] std::size_t size() const { return path_ ? path_->size() : 0; }

  private:
    void start() {
        REQUIRE(xpath_context_init(&real_) == 0, "");
        REQUIRE(memory().live_blocks() != 0, "the library does not call the stand-in");
        path_.reset();
        prefixes_.clear();
    }

    void end() {
        xpath_context_destroy(&real_);
        xpath_context_destroy(&real_);
        REQUIRE(real_.path == nullptr && real_.namespace_aliases == nullptr, "");
        REQUIRE(memory().live_blocks() == 0, std::to_string(memory().live_blocks()));
    }

    // A step that fails may have had the memory for its prefix, which is kept then.
    void note_prefix(const step &next, bool failed) {
        const uint32_t now = umbra_hashmap_size(real_.namespace_aliases);
        const bool is_new = next.name_space && prefix_of(*next.name_space).empty();
        REQUIRE(now == prefixes_.size() + (is_new ? 1 : 0) || (failed && now == prefixes_.size()), std::to_string(now));
        if (now > prefixes_.size()) {
            prefixes_.emplace_back(*next.name_space, "ns" + std::to_string(now));
        }
    }

    [[nodiscard]] std::string prefix_of(const std::string &ns) const {
        for (const auto &[name, prefix] : prefixes_) {
            if (name == ns) {
                return prefix;
            }
        }
        return {};
    }

    [[nodiscard]] std::string expression(const step &next) const {
        std::string out = next.name_space ? prefix_of(*next.name_space) + ':' : std::string();
        out += next.name;
        std::string between = "[";
        for (const key &each : next.keys) {
            out += between + each.name.value_or("") + " = '" + each.value.value_or("") + "'";
            between = " and ";
        }
        out += next.keys.empty() ? "" : "]";
        return path_ ? out + '/' + *path_ : out;
    }

    void compare() const {
        REQUIRE((real_.path != nullptr) == path_.has_value(), "");
        REQUIRE(!path_ || *path_ == real_.path, *path_ + " / " + real_.path);
    }

    void require_converted(const quill_nyx_error &error, int rc, bool failed) const {
        const quill_nyx_datatree &node = error.error_path;
        REQUIRE(rc == 0 || (failed && rc == ENOMEM), std::to_string(rc));
        REQUIRE(node.has_value == 1 && node.has_name == 0, "");
        const bool lacks_value = failed && rc == 0;
        REQUIRE((node.value != nullptr) == (path_.has_value() && !lacks_value), "");
        REQUIRE(node.value == nullptr || *path_ == node.value, *path_);
        const std::size_t declared = rc == 0 ? prefixes_.size() : 0;
        REQUIRE(node.attributes_count == declared, std::to_string(node.attributes_count));
        REQUIRE((node.attributes != nullptr) == (declared != 0) && node.has_attributes == (declared != 0 ? 1 : 0), "");
        for (std::size_t i = 0; i < declared; ++i) {
            const quill_nyx_attribute &attribute = node.attributes[i];
            REQUIRE(attribute.has_key == 1 && "xmlns:" + prefixes_[i].second == attribute.key, attribute.key);
            REQUIRE(attribute.has_value == 1 && prefixes_[i].first == attribute.value, attribute.value);
        }
    }

    xpath_context real_{};
    optional_text path_;
    std::vector<std::pair<std::string, std::string>> prefixes_;  // by namespace, in the order of their first use
};

bool is_text(uint32_t has, const char *text, const std::string &expected) {
    return has == 1 && text != nullptr && expected == text;
}

void require_path(const quill_nyx_datatree &node, const std::string &ns, const std::string &path) {
    REQUIRE(is_text(node.has_name, node.name, " "), path);
    REQUIRE(is_text(node.has_value, node.value, path), path);
    REQUIRE(is_text(node.has_namespace, node.namespace_, ns), ns);
    REQUIRE(node.has_attributes == 1 && node.attributes_count == 1, std::to_string(node.attributes_count));
    REQUIRE(is_text(node.attributes->has_key, node.attributes->key, "xmlns:ns1"), ns);
    REQUIRE(is_text(node.attributes->has_value, node.attributes->value, ns), ns);
}

// A result in which nothing is as a fresh one has it, and which owns nothing.
quill_nyx_request_result used_result() {
    quill_nyx_request_result result = {};
    result.uint32_1 = result.uint32_2 = 7;
    result.error.error_type = result.error.error_severity = 9;
    result.error.error_path.uint32_4 = result.error.error_path.node_kind = 3;
    result.error.error_path.has_operation = 1;
    return result;
}

void set_error_path(input &in, uint64_t failing) {
    const uint8_t form = in.byte();
    const optional_text ns = (form & 1U) == 0 ? optional_text(in.text()) : std::nullopt;
    const optional_text path = (form & 2U) == 0 ? optional_text(in.text()) : std::nullopt;
    const bool short_of_memory = (form & 12U) == 12U;
    const std::set<void *> before = memory().blocks();
    const quill_nyx_request_result untouched = used_result();
    quill_nyx_request_result result = untouched;
    nyx_util_set_mem_state(short_of_memory ? 1 : 0);
    memory().fail_at(failing);
    const rcode rc = nyx_req_result_error_path_set(&result, pointer(ns), pointer(path));
    nyx_util_set_mem_state(0);
    const bool failed = memory().has_failed() || short_of_memory || !ns || !path;
    REQUIRE(rc == (failed ? NYX_RC_NO_MEMORY : 0), std::to_string(rc));
    if (failed) {
        REQUIRE(memory().blocks() == before, std::to_string(memory().live_blocks()));
    } else {
        REQUIRE(result.has_error == 1, *path);
        require_path(result.error.error_path, *ns, *path);
        quill_nyx_request_result_free_ext(&result, nyx_gpb_free, nullptr, 0);
        REQUIRE(memory().blocks() == before, std::to_string(memory().live_blocks()));
        quill_nyx_datatree &node = result.error.error_path;
        node.has_name = node.has_value = node.has_namespace = node.has_attributes = 0;
        result.has_error = 0;
    }
    const std::string changed =
        nyx_test::difference(nyx_test::table_of(nyx_test::record_id::request_result), &result, &untouched);
    REQUIRE(changed.empty(), changed);
}

void make_entries(input &in, uint64_t failing) {
    const uint32_t count = in.byte();
    const std::set<void *> before = memory().blocks();
    nyx_api_ctx api = {};
    api.debug.trace_enabled = 1;
    trace_entries().clear();
    memory().fail_at(failing);
    quill_nyx_datatree *const entries = nyx_gpb_datatree_create(failing == 1 ? &api : nullptr, count);
    const bool failed = memory().has_failed();
    REQUIRE((entries == nullptr) == failed, std::to_string(count));
    REQUIRE(trace_entries().size() == (failed ? 1 : 0), std::to_string(trace_entries().size()));
    REQUIRE(!failed || trace_entries().front().ends_with(",NYX datatree allocation failed"), trace_entries().front());
    trace_entries().clear();
    if (!failed) {
        const auto *const bytes = reinterpret_cast<const uint8_t *>(entries);
        const std::size_t size = std::size_t{count} * 200;
        REQUIRE(std::all_of(bytes, bytes + size, [](uint8_t byte) { return byte == 0; }), std::to_string(count));
        nyx_gpb_free(entries, nullptr);
    }
    REQUIRE(memory().blocks() == before, std::to_string(memory().live_blocks()));
}

// The operations that have no step.
void carry_out_without_step(context &on, input &in, uint8_t form, uint64_t failing) {
    switch (form & 12U) {
        case 4:
            set_error_path(in, failing);
            break;
        case 8:
            make_entries(in, failing);
            break;
        default:
            on.start_anew(failing);
    }
}

void carry_out(context &on, input &in) {
    const uint8_t form = in.byte();
    const uint64_t failing = in.byte();
    switch (form & 3U) {
        case 0:
            on.convert(failing);
            break;
        case 1:
            if ((form & 0xF0U) == 0xF0U) {
                carry_out_without_step(on, in, form, failing);
                break;
            }
            on.refuse_broken_arguments(read_step(in, form));
            break;
        default:
            on.prepend(read_step(in, form), failing);
    }
}

}  // namespace
}  // namespace nyx_fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    nyx_fuzz::input in(data, size);
    nyx_fuzz::context context;
    while (!in.empty() && context.size() <= nyx_fuzz::longest_path) {
        nyx_fuzz::carry_out(context, in);
    }
    return 0;
}
