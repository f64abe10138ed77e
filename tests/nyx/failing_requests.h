// Scenarios of failed requests, data trees, XPath expressions and dumps.
#ifndef NYX_TEST_FAILING_REQUESTS_H
#define NYX_TEST_FAILING_REQUESTS_H

#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "failing_calls.h"
#include "failing_contexts.h"
#include "failing_results.h"
#include "nyx_api_common.h"
#include "nyx_error.h"
#include "result_fixture.h"

namespace nyx_test {

// Request results

// A lock request with its result, which has been used before; a session store that is empty.
struct request_under_way : api_with_root {
    request_under_way() {
        static_cast<void>(nyx_session_store_init(&api));
        request.type = QUILL_NYX_REQUEST_TYPE_LOCK;
        request.has_type = 1;
    }

    void mark() {
        api_with_root::mark();
        request_before_ = bytes_of(request);
    }
    // What has become of the result, and of what no call may change.
    [[nodiscard]] std::string changed() const {
        const bool same_request =
            bytes_of(request) == request_before_ && context.nyx_ctx == &api && context.request == &request;
        return answer.changed() + (same_request ? "" : "; request: changed") + unexpected_changes();
    }

    quill_nyx_request request{};
    nyx_request_ctx context{&api, &request};
    used<quill_nyx_request_result> answer;
    quill_nyx_request_result &result = answer.record;

  private:
    std::string request_before_;
};

class request_exercise : public exercise {
  public:
    using operation = std::function<rcode(request_under_way &)>;

    request_exercise(operation run, std::optional<std::uint32_t> session_id) : run_(std::move(run)) {
        under_way_.request.has_session_id = session_id ? 1 : 0;
        under_way_.request.session_id = session_id.value_or(0);
    }
    std::string call() override {
        under_way_.mark();
        return shown_code(run_(under_way_)) + "; ";
    }
    std::string state() override { return under_way_.changed(); }
    void make_ready() override { under_way_.answer.renew(); }
    void clean_up() override { under_way_.answer.release_new(); }

  private:
    operation run_;
    request_under_way under_way_;
};

inline scenario fills_result(const std::string &name, const request_exercise::operation &run,
                             const outcome &undisturbed, const std::vector<failing_call> &failing,
                             std::optional<std::uint32_t> session_id = std::nullopt) {
    return {name, [=] { return std::make_unique<request_exercise>(run, session_id); }, undisturbed, failing};
}

inline constexpr const char *tag_block = "error tag string";
inline constexpr const char *message_block = "error message";
inline constexpr const char *no_entries = "ERR: NYX: ctx=N,NYX datatree allocation failed";
inline constexpr const char *records_block = "GPB datatree (nyx_req_datatree_create)";

// What becomes of an error whose tag cannot be copied, and of one whose message cannot: it has none then, also not the
// one of before.
inline std::string without_tag(const std::string &code, const std::string &type) {
    return code + "; status*=0 error*{type*=" + type + " severity*=0}";
}
inline std::string without_message(const std::string &code, const std::string &type, const std::string &tag) {
    return code + "; status*=0 error*{type*=" + type + " tag*=\"" + tag + R"(" severity*=0 message{text="none"}})";
}
inline std::string with_both(const std::string &code, const std::string &type, const std::string &tag,
                             const std::string &message, const std::string &info = "") {
    return code + "; status*=0 error*{type*=" + type + " tag*=\"" + tag + "\" severity*=0 message{text*=\"" + message +
           "\"}" + info + "}";
}

// What an operation that sets type, tag and message comes to, without those of them that cannot be copied.
inline scenario sets_error(const std::string &name, const request_exercise::operation &run, const std::string &code,
                           const std::string &type, const std::string &tag, const std::string &message,
                           failures failing = {}, std::optional<std::uint32_t> session_id = std::nullopt) {
    failing.copy("tag*=\"" + tag + '"', tag_block, {without_tag("NO_MEMORY", type), {}})
        .copy("text*=\"" + message + '"', message_block, {without_message(code, type, tag), {tag_block}});
    return fills_result(name, run, {with_both(code, type, tag, message), {message_block, tag_block}}, failing,
                        session_id);
}

// Looks a session up that is not there. An out parameter that is left alone shows in the code.
inline rcode look_up_in_vain(request_under_way &at) {
    nyx_session_ctx other{};
    nyx_session_ctx *session = &other;
    const rcode rc = nyx_req_session_id_lookup(&at.context, &at.result, &session);
    return session == nullptr ? rc : 1;
}

inline scenarios error_scenarios() {
    return {
        sets_error(
            "nyx_req_result_error_set",
            [](request_under_way &at) { return nyx_req_result_error_set(&at.result, 1, 0, "a-tag", "A message."); },
            "0", "1", "a-tag", "A message."),
        sets_error("nyx_req_session_id_lookup", look_up_in_vain, "INVALID_REQUEST", "3", "data-missing",
                   "Session ID is missing."),
        sets_error("nyx_req_session_id_lookup/unknown", look_up_in_vain, "INVALID_REQUEST", "3", "invalid-value",
                   "Entered session ID was not found.", failures().harmless("umbra_wavl_search"), 7),
        sets_error(
            "nyx_me_request_result_check",
            [](request_under_way &at) {
                return nyx_me_request_result_check(&at.context, nullptr, &at.result, NYX_RC_NO_MEMORY);
            },
            "REQUEST_FAILED", "3", "operation-failed", text_of_code(NYX_RC_NO_MEMORY)),
        fills_result(
            "nyx_me_request_result_check/success",
            [](request_under_way &at) { return nyx_me_request_result_check(&at.context, nullptr, &at.result, 0); },
            {"0; status*=1", {}}, {}),
    };
}

// Element errors: type, tag and message, and one entry with the element's name.

inline failures element_failures(const std::string &type, const std::string &tag, const std::string &message) {
    const outcome no_info = {with_both("NO_MEMORY", type, tag, message), {message_block, tag_block}};
    return failures()
        .copy("tag*=\"" + tag + '"', tag_block, {without_tag("NO_MEMORY", type), {}})
        // An error without its message gets its info all the same.
        .copy("text*=\"" + message + '"', message_block,
              {"0; status*=0 error*{type*=" + type + " tag*=\"" + tag +
                   R"(" severity*=0 message{text="none"} info{name*="error-info" children*[)"
                   R"({name*="bad-element" value*="mtu"}]}})",
               {records_block, "element name string", tag_block, "str: bad element", "str: error-info"}},
              outcome{without_message("NO_MEMORY", type, tag), {tag_block}})
        .of("umbra_named_malloc_", no_info)
        .logs(1, {no_entries})
        .copy(R"(name*="bad-element")", "str: bad element", no_info)
        .copy(R"(value*="mtu")", "element name string", no_info)
        .copy(R"(name*="error-info")", "str: error-info", no_info);
}

inline scenario sets_element_error(const std::string &name, const request_exercise::operation &run,
                                   const std::string &type, const std::string &tag, const std::string &message) {
    const std::string info = R"( info{name*="error-info" children*[{name*="bad-element" value*="mtu"}]})";
    return fills_result(
        name, run,
        {with_both("0", type, tag, message, info),
         {records_block, "element name string", message_block, tag_block, "str: bad element", "str: error-info"}},
        element_failures(type, tag, message));
}

inline request_exercise::operation for_element(rcode (*set)(nyx_request_ctx *, nyx_session_ctx *,
                                                            quill_nyx_request_result *, const char *)) {
    return [set](request_under_way &at) { return set(&at.context, nullptr, &at.result, "mtu"); };
}

inline scenarios element_error_scenarios() {
    return {
        sets_element_error("nyx_req_result_missing_element_set", for_element(nyx_req_result_missing_element_set), "2",
                           "missing-element", "An expected element is missing."),
        sets_element_error("nyx_req_result_unknown_element_set", for_element(nyx_req_result_unknown_element_set), "2",
                           "unknown-element", "Unknown element is specified."),
        sets_element_error("nyx_req_result_bad_element_set", for_element(nyx_req_result_bad_element_set), "2",
                           "bad-element", "The specified element has bad value."),
        sets_element_error(
            "nyx_req_result_custom_error_set",
            [](request_under_way &at) {
                return nyx_req_result_custom_error_set(&at.context, nullptr, &at.result, "mtu", "Not today.");
            },
            "3", "bad-element", "Not today."),
    };
}

// Paths and infos

inline scenario sets_path() {
    const outcome untouched = {"NO_MEMORY; ", {}};
    return fills_result(
        "nyx_req_result_error_path_set",
        [](request_under_way &at) { return nyx_req_result_error_path_set(&at.result, "urn:x", "/ns1:a"); },
        {R"(0; error*{path{name*=" " value*="/ns1:a" namespace*="urn:x")"
         R"( attributes*[{key*="xmlns:ns1" value*="urn:x"}]}})",
         {"Error-Path attr key", "Error-Path attr value", "Error-Path attrs", "Error-Path data", "Error-Path data",
          "Error-Path tag"}},
        failures()
            .copy(R"(name*=" ")", "Error-Path tag", untouched)
            .copy(R"(value*="/ns1:a")", "Error-Path data", untouched)
            .copy(R"(namespace*="urn:x")", "Error-Path data", untouched)
            .of("umbra_named_calloc_", untouched)
            .copy(R"(key*="xmlns:ns1")", "Error-Path attr key", untouched)
            .copy(R"(value*="urn:x")", "Error-Path attr value", untouched));
}

// The entries stay the caller's when the info refuses them.
class info_exercise : public exercise {
  public:
    info_exercise() { make_entries(); }
    std::string call() override {
        under_way_.mark();
        const rcode rc = nyx_req_result_error_info_set(&under_way_.result, entries_, 1);
        if (rc == 0) {
            entries_ = nullptr;
        }
        return shown_code(rc) + "; ";
    }
    std::string state() override {
        const bool kept = entries_ == nullptr || bytes_of(*entries_) == entries_before_;
        return under_way_.changed() + (kept ? "" : "; entries: changed");
    }
    void make_ready() override {
        clean_up();
        under_way_.answer.renew();
        make_entries();
    }
    void clean_up() override {
        under_way_.answer.release_new();
        nyx_gpb_free(std::exchange(entries_, nullptr));
    }

  private:
    void make_entries() {
        entries_ = nyx_gpb_datatree_create(&under_way_.api, 1);
        entries_before_ = bytes_of(*entries_);
    }

    request_under_way under_way_;
    quill_nyx_datatree *entries_ = nullptr;
    std::string entries_before_;
};

inline scenario sets_info() {
    const outcome untouched = {"NO_MEMORY; ", {records_block}};
    return {"nyx_req_result_error_info_set",
            [] { return std::make_unique<info_exercise>(); },
            {R"(0; error*{info{name*="error-info" children*[{}]}})", {records_block, "str: error-info"}},
            failures().copy(R"(name*="error-info")", "str: error-info", untouched)};
}

inline scenario checks_message_id() {
    const std::string tag = "missing-attribute";
    const std::string message = "Message ID is missing.";
    const std::string info = R"( info{name*="error-info" children*[{name*="bad-attribute" value*="message-id"})"
                             R"({name*="bad-element" value*="rpc"}]})";
    const block_names info_blocks = {records_block,     "str: bad-attribute", "str: bad-element",
                                     "str: error-info", "str: message-id",    "str: rpc"};
    block_names all = info_blocks;
    all.insert(all.end(), {message_block, tag_block});
    block_names all_but_message = info_blocks;
    all_but_message.emplace_back(tag_block);
    const outcome no_info = {with_both("NO_MEMORY", "1", tag, message), {message_block, tag_block}};
    return fills_result(
        "nyx_req_message_id_check",
        [](request_under_way &at) { return nyx_req_message_id_check(&at.context, nullptr, &at.result); },
        {with_both("INVALID_REQUEST", "1", tag, message, info), all},
        failures()
            .copy("tag*=\"" + tag + '"', tag_block, {without_tag("NO_MEMORY", "1"), {}})
            .copy("text*=\"" + message + '"', message_block,
                  {"INVALID_REQUEST; status*=0 error*{type*=1 tag*=\"" + tag + R"(" severity*=0 message{text="none"})" +
                       info + "}",
                   all_but_message},
                  outcome{without_message("NO_MEMORY", "1", tag), {tag_block}})
            .of("umbra_named_malloc_", no_info)
            .logs(1, {no_entries})
            .copy(R"(name*="bad-attribute")", "str: bad-attribute", no_info)
            .copy(R"(value*="message-id")", "str: message-id", no_info)
            .copy(R"(name*="bad-element")", "str: bad-element", no_info)
            .copy(R"(value*="rpc")", "str: rpc", no_info)
            // The request is refused all the same.
            .copy(R"(name*="error-info")", "str: error-info",
                  {with_both("INVALID_REQUEST", "1", tag, message), {message_block, tag_block}}));
}

// A result that carries an error becomes a bare failure, which takes nothing but releases.
class nomem_exercise : public exercise {
  public:
    nomem_exercise() { nomem_exercise::make_ready(); }
    std::string call() override {
        nyx_nomem_error_set(&result_);
        return "";
    }
    std::string state() override {
        const bool zeroed = bytes_of(result_.error) == std::string(sizeof result_.error, '\0');
        return text_of(result_) + (zeroed ? "" : "; the error is not zeroed");
    }
    void make_ready() override {
        std::memset(&result_, 0, sizeof result_);  // padding included
        static_cast<void>(nyx_req_result_error_set(&result_, 1, 0, "a-tag", "A message."));
        result_.uint32_2 = 7;
        result_.has_uint32_2 = 1;
        result_.string_3 = old_;
        result_.has_string_3 = 1;
    }
    void clean_up() override {}

  private:
    char old_[4] = "old";
    quill_nyx_request_result result_{};
};

// Data trees

class tree_exercise : public exercise {
  public:
    std::string call() override {
        root_.mark();
        records_ = nyx_gpb_datatree_create(&root_.api, count);
        return records_ == nullptr ? "null" : "";
    }
    std::string state() override {
        std::string all;
        for (std::uint32_t i = 0; records_ != nullptr && i < count; ++i) {
            const bool empty = bytes_of(records_[i]) == std::string(sizeof *records_, '\0');
            all += empty ? "{}" : "{rubbish}";
        }
        return all + root_.unexpected_changes();
    }
    void make_ready() override { nyx_gpb_free(std::exchange(records_, nullptr)); }

  private:
    static constexpr std::uint32_t count = 2;

    api_with_root root_;
    quill_nyx_datatree *records_ = nullptr;
};

class block_exercise : public exercise {
  public:
    std::string call() override {
        block_ = nyx_gpb_alloc(4, nullptr);
        return block_ == nullptr ? "null" : "";
    }
    std::string state() override {
        return block_ == nullptr                                                         ? ""
               : bytes_of(*static_cast<std::uint32_t *>(block_)) == std::string(4, '\0') ? "zeroes"
                                                                                         : "something";
    }
    void make_ready() override { nyx_gpb_free(std::exchange(block_, nullptr)); }

  private:
    void *block_ = nullptr;
};

class release_exercise : public exercise {
  public:
    release_exercise() { make_ready(); }
    std::string call() override {
        nyx_gpb_free(std::exchange(block_, nullptr));
        return "";
    }
    void make_ready() final { block_ = nyx_gpb_alloc(4, nullptr); }
    void clean_up() override {}

  private:
    void *block_ = nullptr;
};

// Two entries each; losing one of them loses nothing else.
class dump_exercise : public exercise {
  public:
    explicit dump_exercise(std::function<rcode(nyx_debug_ctx_t *)> dump) : dump_(std::move(dump)) {}
    std::string call() override {
        root_.mark();
        return shown_code(dump_(&root_.api.debug));
    }
    std::string state() override { return root_.unexpected_changes(); }

  private:
    std::function<rcode(nyx_debug_ctx_t *)> dump_;
    api_with_root root_;
};

inline rcode dump_tree(nyx_debug_ctx_t *debug) {
    char name[200] = {};
    std::memset(name, 'n', sizeof name - 1);
    quill_nyx_datatree child{};
    child.name = name;
    child.has_name = 1;
    quill_nyx_datatree tree = child;
    tree.children = &child;
    tree.children_count = 1;
    tree.has_children = 1;
    return nyx_gpb_datatree_trace_internal(debug, &tree, "title");
}

inline rcode dump_schemas(nyx_debug_ctx_t *debug) {
    const quill_nyx_schema schemas[2] = {};
    return nyx_gpb_schemas_trace_internal(debug, schemas, 2, "title");
}

inline scenarios tree_scenarios() {
    const auto dumps = [](const char *name, rcode (*dump)(nyx_debug_ctx_t *)) {
        return scenario{name, [dump] { return std::make_unique<dump_exercise>(dump); }, {"0", {}}, {}};
    };
    return {
        sets_path(),
        sets_info(),
        checks_message_id(),
        {"nyx_nomem_error_set",
         [] { return std::make_unique<nomem_exercise>(); },
         {R"(status*=0 uint32_2*=7 string_3*="old")", {}},
         {}},
        {"nyx_gpb_datatree_create",
         [] { return std::make_unique<tree_exercise>(); },
         {"{}{}", {records_block}},
         failures().of("umbra_named_malloc_", {"null", {}}).logs(0, {no_entries})},
        {"nyx_gpb_alloc",
         [] { return std::make_unique<block_exercise>(); },
         {"zeroes", {"NYX GPB"}},
         failures().of("umbra_named_calloc_", {"null", {}})},
        {"nyx_gpb_free", [] { return std::make_unique<release_exercise>(); }, {"", {}}, {}},
        dumps("nyx_gpb_datatree_trace_internal", dump_tree),
        dumps("nyx_gpb_schemas_trace_internal", dump_schemas),
    };
}

// XPath expressions

// Path and prefixes: `"ns1:a" ns1=urn:x`.
inline std::string shown_path(const xpath_context &context) {
    std::string all = shown(context.path);
    umbra_hashmap *const map = context.namespace_aliases;
    for (umbra_hashmap_entry *at = umbra_hashmap_first(map); at != nullptr; at = umbra_hashmap_next(map, at)) {
        all.append(" ").append(static_cast<const char *>(umbra_hashmap_value(at)));
        all.append("=").append(static_cast<const char *>(umbra_hashmap_key(at)));
    }
    return all;
}

// What the memory held before is forgotten.
class xpath_init_exercise : public exercise {
  public:
    xpath_init_exercise() { xpath_init_exercise::make_ready(); }
    std::string call() override { return std::to_string(xpath_context_init(&context_)) + "; "; }
    std::string state() override {
        return shown(context_.path) + (context_.namespace_aliases == nullptr ? ", no map" : ", a map");
    }
    void make_ready() override {
        clean_up();
        context_ = {old_, reinterpret_cast<umbra_hashmap *>(junk_handle)};
    }
    void clean_up() override {
        if (context_.path != old_) {
            xpath_context_destroy(&context_);
        }
    }

  private:
    char old_[4] = "old";
    xpath_context context_{};
};

class xpath_destroy_exercise : public exercise {
  public:
    xpath_destroy_exercise() { make_ready(); }
    std::string call() override {
        xpath_context_destroy(&context_);
        return "";
    }
    std::string state() override {
        return shown(context_.path) + (context_.namespace_aliases == nullptr ? ", no map" : ", a map");
    }
    void make_ready() final {
        static_cast<void>(xpath_context_init(&context_));
        static_cast<void>(xpath_prepend(&context_, "a", "urn:x", nullptr, nullptr, 0));
    }
    void clean_up() override {}

  private:
    xpath_context context_{};
};

// Puts ns1:b before the path ns1:a; its namespace may be known, and have its prefix, or not.
class xpath_prepend_exercise : public exercise {
  public:
    explicit xpath_prepend_exercise(const char *known) : known_(known) { make_ready(); }
    std::string call() override {
        return std::to_string(xpath_prepend(&context_, "b", "urn:x", nullptr, nullptr, 0)) + "; ";
    }
    std::string state() override { return shown_path(context_); }
    void make_ready() final {
        xpath_context_destroy(&context_);
        static_cast<void>(xpath_context_init(&context_));
        static_cast<void>(xpath_prepend(&context_, "a", known_, nullptr, nullptr, 0));
    }
    void clean_up() override { xpath_context_destroy(&context_); }

  private:
    const char *known_;
    xpath_context context_{};
};

inline constexpr const char *alias_block = "namespace alias";
inline constexpr const char *namespace_block = "copy of namespace for xpath attribute";
inline constexpr const char *path_block = "xpath error string";

inline scenario prepends_with_new_namespace() {
    const outcome as_before = {R"(12; "a")", {"hash map", path_block}};
    return {"xpath_prepend",
            [] { return std::make_unique<xpath_prepend_exercise>(nullptr); },
            {R"(0; "ns1:b/a" ns1=urn:x)", {namespace_block, "hash map", alias_block, path_block}},
            failures()
                .harmless("umbra_hashmap_get")
                .of("umbra_named_calloc_", as_before)
                // The prefix is that of another namespace.
                .of("strnlen_s", {R"(0; "ns1:b/a" ns1=)", {namespace_block, "hash map", alias_block, path_block}})
                .of("umbra_named_malloc_", as_before)
                .of("memcpy_s", {R"(12; "a")", {namespace_block, "hash map", path_block}}, {namespace_block})
                .of("umbra_hashmap_insert", as_before)
                .of("umbra_named_calloc_",
                    {R"(12; "a" ns1=urn:x)", {namespace_block, "hash map", alias_block, path_block}})};
}

// A map that denies what it holds does not take it a second time.
inline scenario prepends_with_known_namespace() {
    const outcome as_before = {R"(12; "ns1:a" ns1=urn:x)", {namespace_block, "hash map", alias_block, path_block}};
    return {"xpath_prepend/known_namespace",
            [] { return std::make_unique<xpath_prepend_exercise>("urn:x"); },
            {R"(0; "ns1:b/ns1:a" ns1=urn:x)", as_before.live},
            failures().of("umbra_hashmap_get", as_before).of("umbra_named_calloc_", as_before)};
}

// A path through two namespaces, written into an error.
class xpath_error_exercise : public exercise {
  public:
    xpath_error_exercise() {
        static_cast<void>(xpath_context_init(&context_));
        static_cast<void>(xpath_prepend(&context_, "b", "urn:y", nullptr, nullptr, 0));
        static_cast<void>(xpath_prepend(&context_, "a", "urn:x", nullptr, nullptr, 0));
    }
    std::string call() override { return std::to_string(xpath_to_nyx_error(&context_, &error_.record)) + "; "; }
    std::string state() override { return error_.changed() + "; " + shown_path(context_); }
    void make_ready() override { error_.renew(); }
    void clean_up() override {
        error_.release_new();
        xpath_context_destroy(&context_);
    }

  private:
    xpath_context context_{};
    used<quill_nyx_error> error_;
};

// What the context holds, whatever happens to the error.
inline block_names with_context(const block_names &of_error) {
    block_names all = {namespace_block, namespace_block, "hash map", alias_block, alias_block, path_block};
    all.insert(all.end(), of_error.begin(), of_error.end());
    return all;
}

inline scenario writes_error() {
    const std::string value_block = "copy of xpath path";
    const std::string array_block = "query transformer namespace attributes";
    const std::string tag_copy = "copy of xpath namespace tag";
    const std::string key_block = "prepended 'xmlns:' to xpath namespace value";
    const std::string path = R"("ns2:a/ns1:b" ns1=urn:y ns2=urn:x)";
    const std::string first = R"({key*="xmlns:ns1" value*="urn:y"})";
    const std::string second = R"({key*="xmlns:ns2" value*="urn:x"})";
    const auto written = [&](const std::string &attributes) {
        return R"(0; path{value*="ns2:a/ns1:b" attributes*[)" + attributes + "]}; " + path;
    };
    // Without memory for an attribute the error has none, and what was made of them is lost.
    const auto lost = [&](const block_names &blocks) {
        block_names live = {value_block};
        live.insert(live.end(), blocks.begin(), blocks.end());
        return outcome{R"(12; path{value*="ns2:a/ns1:b"}; )" + path, with_context(live)};
    };
    failures failing;
    failing.measured(R"(value*="ns2:a/ns1:b")")
        .of("umbra_named_malloc_", {"0; path{value*=null attributes*[" + first + second + "]}; " + path,
                                    with_context({array_block, tag_copy, tag_copy, key_block, key_block})})
        .lasting({"12; path{value*=null}; " + path, with_context({})})
        .of("memcpy_s",
            {"0; path{value*=null attributes*[" + first + second + "]}; " + path,
             with_context({value_block, array_block, tag_copy, tag_copy, key_block, key_block})},
            {value_block})
        .of("umbra_named_calloc_", lost({}))
        .of("umbra_hashmap_first", {written("{}{}"), with_context({value_block, array_block})});
    block_names made = {array_block};
    for (const std::string ns : {"urn:y", "urn:x"}) {
        const std::string number = ns == "urn:y" ? "1" : "2";
        failing.measured("value*=\"" + ns + '"').of("umbra_named_malloc_", lost(made), made);
        made.push_back(tag_copy);
        failing.of("memcpy_s", lost(made), made);
        // Of the key, "xmlns:" or the prefix is missing when it cannot be measured.
        const auto key_is = [&](const std::string &key) {
            std::string attributes = first + second;
            const std::string whole = "xmlns:ns" + number;
            attributes.replace(attributes.find(whole), whole.size(), key);
            return outcome{written(attributes),
                           with_context({value_block, array_block, tag_copy, tag_copy, key_block, key_block})};
        };
        failing.of("strnlen_s", key_is("ns" + number))
            .of("strnlen_s", key_is("xmlns:"))
            .of("umbra_named_malloc_", lost(made), made)
            .of("memcpy_s", lost(made), made)
            .of("memcpy_s", lost(made), made);
        made.push_back(key_block);
        if (number == "1") {
            failing.of("umbra_hashmap_next",
                       {written(first + "{}"), with_context({value_block, array_block, tag_copy, key_block})});
        } else {
            failing.harmless("umbra_hashmap_next");
        }
    }
    return {
        "xpath_to_nyx_error",
        [] { return std::make_unique<xpath_error_exercise>(); },
        {written(first + second), with_context({value_block, array_block, tag_copy, tag_copy, key_block, key_block})},
        failing};
}

inline scenarios xpath_scenarios() {
    return {
        {"xpath_context_init",
         [] { return std::make_unique<xpath_init_exercise>(); },
         {"0; null, a map", {"hash map"}},
         failures().of("umbra_hashmap_create", {"12; null, no map", {}})},
        {"xpath_context_destroy",
         [] { return std::make_unique<xpath_destroy_exercise>(); },
         {"null, no map", {}},
         failures()},
        prepends_with_new_namespace(),
        prepends_with_known_namespace(),
        writes_error(),
    };
}

}  // namespace nyx_test

#endif
