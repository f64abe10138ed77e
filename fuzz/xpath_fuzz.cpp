// XPath contexts with arbitrary names, namespaces and keys, beside a plain std::string.
//
// What is asserted: after every step the path is the expression that the header describes, and after a failed one it is
// what it was; namespaces get ns1, ns2 and so on in the order of their first use; the error path carries the path as
// its value and the prefixes as its attributes; an allocation that fails gives ENOMEM, or a value that is null, and
// nothing else; afterwards no block is left but those that a failed conversion is documented to leave behind.
//
// Input: operations, one after the other. A byte tells which one and what it has, a byte the allocation that fails (0:
// none), then come its texts.
#include <algorithm>
#include <cerrno>
#include <optional>
#include <utility>

#include "fuzz_target.h"
#include "nyx_api_common.h"
#include "platform_stand_in.h"

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

void carry_out(context &on, input &in) {
    const uint8_t form = in.byte();
    const uint64_t failing = in.byte();
    switch (form & 3U) {
        case 0:
            on.convert(failing);
            break;
        case 1:
            if ((form & 0xF0U) == 0xF0U) {
                on.start_anew(failing);
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
