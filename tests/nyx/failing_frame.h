// Scenarios of the process-wide state, debug contexts, trace files, levels and sessions.
#ifndef NYX_TEST_FAILING_FRAME_H
#define NYX_TEST_FAILING_FRAME_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iterator>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "failing_calls.h"
#include "failing_contexts.h"
#include "failing_results.h"
#include "frame_fixture.h"
#include "nyx_api_common.h"
#include "nyx_debug.h"
#include "nyx_session_store.h"
#include "orca_msg_rec.h"
#include "result_fixture.h"
#include "umbra/named_alloc.h"

namespace nyx_test {

// Functions that ask the platform for nothing

inline scenarios lookup_scenarios() {
    static nyx_debug_ctx_t debug{};
    static nyx_api_ctx api{};
    debug.level = QUILL_NYX_LOGGING_LEVEL_ERROR;
    return {
        plain(
            "nyx_debug_op_name", [] { return shown(nyx_debug_op_name(3)); }, R"("lock")"),
        plain(
            "nyx_log_component_str", [] { return shown(nyx_log_component_str(3)); }, R"("ME")"),
        plain(
            "nyx_debug_save_agent_name",
            [] { return std::to_string(nyx_debug_save_agent_name("agentx")) + shown(agent_name); }, R"(6"agentx")"),
        plain(
            "nyx_debug_should_log",
            [] { return std::to_string(nyx_debug_should_log(&debug, NYX_DEBUG_LOG_TYPE_ERROR)); }, "1"),
        plain(
            "nyx_debug_should_log_op",
            [] { return std::to_string(nyx_debug_should_log_op(&debug, NYX_DEBUG_LOG_TYPE_WARNING, 3)); }, "0"),
        plain(
            "nyx_get_op_debug_settings",
            [] { return std::to_string(nyx_get_op_debug_settings(&debug, 18) - debug.op_levels); }, "22"),
        plain(
            "nyx_debug_get_component_ctx",
            [] { return nyx_debug_get_component_ctx(&debug, 0) == &debug ? "itself" : "another"; }, "itself"),
        plain(
            "nyx_debug_short_file", [] { return shown(nyx_debug_short_file(&debug, "a/b.c")); }, R"("b.c")"),
        plain(
            "nyx_debug_short_file/no_path", [] { return shown(nyx_debug_short_file(&debug, nullptr)); }, "null"),
        plain(
            "nyx_log_set_ctx",
            [] {
                const bool set = *nyx_log_set_ctx(&api) == &api && nyx_ctx_log == &api;
                nyx_log_set_ctx(nullptr);
                return set ? "set" : "not set";
            },
            "set"),
        plain(
            "nyx_util_set_mem_state", [] { return std::to_string(*nyx_util_set_mem_state(0)); }, "0"),
        plain(
            "nyx_util_is_mem_usage_normal", [] { return std::to_string(nyx_util_is_mem_usage_normal()); }, "1"),
        plain(
            "ret_nc_nyx_trace_index_incr",
            [] {
                const std::uint32_t number = ret_nc_nyx_trace_index_incr();
                return std::to_string(ret_nc_nyx_trace_index_incr() - number);
            },
            "1"),
        plain(
            "orca_msg_rec_yang_info_getfn", [] { return shown(orca_msg_rec_yang_info_getfn()->component); },
            R"("YANG")"),
    };
}

// Debug contexts

// A root whose memory holds something already that the initialisation is to leave alone.
class root_init_exercise : public exercise {
  public:
    root_init_exercise() { prepare(); }
    std::string call() override {
        before_ = root_;
        return shown_code(nyx_debug_init(&root_, "processor", NYX_COMPONENT_NYX, nullptr)) + "; ";
    }
    std::string state() override { return changes(before_, root_); }
    void make_ready() override {
        static_cast<void>(nyx_debug_cleanup(&root_));
        prepare();
    }

  private:
    void prepare() {
        root_ = {};
        root_.level = QUILL_NYX_LOGGING_LEVEL_TRACE;
        root_.op_level_max = QUILL_NYX_LOGGING_LEVEL_ERROR;
        std::fill(std::begin(root_.op_levels), std::end(root_.op_levels), root_.op_level_max);
        root_.children[0] = &listed_;
        root_.child_count = 1;
    }

    nyx_debug_ctx_t listed_{};
    nyx_debug_ctx_t before_{};
    nyx_debug_ctx_t root_{};
};

inline std::string not_opened(const std::string &name) {
    return "; said: Init trace buffer (agentx-nyx/" + name + ".trace) failed! (" + text_of_code(17) + ")";
}
inline std::string not_deleted(const std::string &name) {
    return "; said: skein_delete(agentx-nyx/" + name + ".trace) failed, " + text_of_code(17);
}

inline scenario inits_root() {
    const std::string no_flag;
    const std::string component = "component_flag a flag, ";
    const std::string error = "error_flag a flag, ";
    const std::string debug = "debug_flag a flag, ";
    const std::string file = "trace_handle a file, trace_enabled 1, ";
    const auto left = [](const std::string &code, const std::string &members) {
        return outcome{code + "; " + members + "ref_count 1, component 2", {}};
    };
    outcome no_file = left("DEBUG_INIT", component + error);
    no_file.text += not_opened("processor");
    return {"nyx_debug_init", [] { return std::make_unique<root_init_exercise>(); },
            left("0", component + debug + error + "trace_flag a flag, " + file),
            failures()
                .harmless("strnlen_s")
                .of("umbra_dt_flag_init", left("DEBUG_INIT", no_flag))
                .logs(0)
                .of("umbra_dt_flag_init", left("DEBUG_INIT", component))
                .logs(0)
                .of("umbra_dt_flag_init", left("DEBUG_INIT", component + error + file))
                .logs(1, {"ERR: NYX: ctx=N,processor: Debug log init failed!"})
                .of("umbra_dt_flag_init", left("DEBUG_INIT", component + debug + error + file))
                .logs(2, {"ERR: NYX: ctx=N,processor: Trace log init failed!"})
                .harmless("umbra_dt_flag_enable")
                .harmless("umbra_dt_flag_enable")
                .harmless("umbra_dt_flag_enable")
                .harmless("umbra_dt_flag_enable")
                .of("memcpy_s", left("406", component + error))
                .logs(0)
                .of("memcpy_s", left("406", component + error + file))
                .logs(1)
                .of("memcpy_s", left("406", component + debug + error + file))
                .logs(1)
                .of("skein_init2", no_file)
                .logs(1)};
}

// A child whose memory holds a level already.
class child_init_exercise : public exercise {
  public:
    child_init_exercise() { prepare(); }
    std::string call() override {
        parent_before_ = root_.api.debug;
        before_ = child_;
        return shown_code(nyx_debug_init(&child_, "me", NYX_COMPONENT_ME, &root_.api.debug)) + "; ";
    }
    std::string state() override {
        return "child: " + changes(before_, child_, &root_.api.debug) +
               "; parent: " + changes(parent_before_, root_.api.debug, &child_);
    }
    void make_ready() override {
        if (child_.parent != nullptr) {
            static_cast<void>(nyx_debug_cleanup(&child_));
        }
        prepare();
    }

  private:
    void prepare() {
        root_.api.debug.children[0] = nullptr;
        child_ = {};
        child_.level = QUILL_NYX_LOGGING_LEVEL_DEBUG;
    }

    api_with_root root_;
    nyx_debug_ctx_t parent_before_{};
    nyx_debug_ctx_t before_{};
    nyx_debug_ctx_t child_{};
};

inline scenario inits_child() {
    const std::string flags = "child: component_flag shared, debug_flag shared, error_flag shared, trace_flag shared, ";
    const std::string linked = "parent linked, ref_count 1, component 3; ";
    const std::string listed = "parent: ref_count 2, children[0] linked, child_count 1";
    return {"nyx_debug_init/child",
            [] { return std::make_unique<child_init_exercise>(); },
            {"0; " + flags + "trace_handle a file, trace_enabled 1, " + linked + listed, {}},
            failures()
                .harmless("strnlen_s")
                .of("memcpy_s", {"406; child: ref_count 1, component 3; parent: unchanged", {}})
                .logs(0)
                .of("skein_init2", {"DEBUG_INIT; " + flags + linked + listed + not_opened("me"), {}})};
}

// The last reference of a child whose root was given up before it.
class cleanup_exercise : public exercise {
  public:
    cleanup_exercise() { cleanup_exercise::make_ready(); }
    std::string call() override {
        root_before_ = root_->api.debug;
        child_before_ = child_;
        return shown_code(nyx_debug_cleanup(&child_)) + "; ";
    }
    std::string state() override {
        return "child: " + changes(child_before_, child_) + "; root: " + changes(root_before_, root_->api.debug);
    }
    void make_ready() override {
        root_ = std::make_unique<api_with_root>();
        child_ = {};
        static_cast<void>(nyx_debug_init(&child_, "me", NYX_COMPONENT_ME, &root_->api.debug));
        static_cast<void>(nyx_debug_cleanup(&root_->api.debug));
    }

  private:
    std::unique_ptr<api_with_root> root_;
    nyx_debug_ctx_t root_before_{};
    nyx_debug_ctx_t child_before_{};
    nyx_debug_ctx_t child_{};
};

// Trace files

// A root and a child with an open file each. The root's tracing is on, as it has to be for its lines; the child's is
// marked on by another number than the library's, which shows whether the library has set it.
class trace_exercise : public exercise {
  public:
    explicit trace_exercise(std::function<std::string(nyx_api_ctx &)> run) : run_(std::move(run)) {
        static_cast<void>(nyx_debug_init(&child_, "me", NYX_COMPONENT_ME, &root_.api.debug));
        trace_exercise::make_ready();
    }
    std::string call() override {
        root_.mark();
        child_before_ = child_;
        return run_(root_.api) + "; ";
    }
    std::string state() override {
        return "root: " + root_.changes_since_mark() + "; child: " + changes(child_before_, child_, &root_.api.debug);
    }
    void make_ready() override {
        root_.api.debug.trace_enabled = 7;
        child_.trace_enabled = 7;
    }

  private:
    std::function<std::string(nyx_api_ctx &)> run_;
    api_with_root root_;
    nyx_debug_ctx_t child_{};
    nyx_debug_ctx_t child_before_{};
};

inline scenario traces(const std::string &name, const std::function<std::string(nyx_api_ctx &)> &run,
                       const std::string &undisturbed, const std::vector<failing_call> &failing) {
    return {name, [run] { return std::make_unique<trace_exercise>(run); }, {undisturbed, {}}, failing};
}

inline scenarios trace_scenarios() {
    const std::string opened = "trace_handle a file, trace_enabled 1";
    const std::string closed = "trace_handle none, trace_enabled 0";
    const std::string turned_on = "trace_enabled 1";
    const std::string lost = "trace_handle none, trace_enabled 1";
    const auto root_is = [](const std::string &code, const std::string &members) {
        return code + "; root: " + members + "; child: unchanged";
    };
    const auto both_are = [](const std::string &root, const std::string &child) {
        return "0; root: " + root + "; child: " + child;
    };
    return {
        traces(
            "nyx_init_trace_buffer", [](nyx_api_ctx &api) { return shown_code(nyx_init_trace_buffer(&api.debug)); },
            root_is("0", opened),
            failures().of("skein_init2", {root_is("DEBUG_INIT", closed) + not_opened("processor"), {}})),
        traces(
            "nyx_reinit_trace_buffer", [](nyx_api_ctx &api) { return shown_code(nyx_reinit_trace_buffer(&api.debug)); },
            root_is("0", opened),
            failures()
                .harmless("skein_close")
                .of("skein_delete", {root_is("17", "unchanged") + not_deleted("processor"), {}})
                .of("skein_init2", {root_is("DEBUG_INIT", closed) + not_opened("processor"), {}})),
        // Tracing is turned on also when there is no file.
        traces(
            "nyx_clear_trace_update_component",
            [](nyx_api_ctx &api) {
                nyx_clear_trace_update_component(&api.debug, NYX_COMPONENT_NYX, 1, 1, 1);
                return "";
            },
            root_is("", opened),
            failures()
                .harmless("skein_close")
                .of("skein_delete", {root_is("", turned_on) + not_deleted("processor"), {}})
                .of("skein_init2", {root_is("", lost) + not_opened("processor"), {}})),
        traces(
            "nyx_clear_trace", [](nyx_api_ctx &api) { return shown_code(nyx_clear_trace(&api)); },
            both_are(opened, opened),
            failures()
                .harmless("skein_close")
                .harmless("skein_close")
                .of("skein_delete", {both_are(turned_on, opened) + not_deleted("processor"), {}})
                .of("skein_delete", {both_are(opened, turned_on) + not_deleted("me"), {}})
                .of("skein_init2", {both_are(lost, opened) + not_opened("processor"), {}})
                .of("skein_init2", {both_are(opened, lost) + not_opened("me"), {}})),
        inits_root(),
        inits_child(),
        {"nyx_debug_cleanup",
         [] { return std::make_unique<cleanup_exercise>(); },
         {"0; child: ref_count 0; root: ref_count 0, child_count 0", {}},
         failures().of("umbra_dt_flag_destroy",
                       {"DEBUG_CLEANUP; child: ref_count 0; root: ref_count 0, child_count 0", {}})},
    };
}

// Levels

class level_exercise : public exercise {
  public:
    explicit level_exercise(std::uint32_t component) : component_(component) {}
    std::string call() override {
        root_.mark();
        return shown_code(nyx_debug_logging_set_level(&root_.api, component_, 0, 0, QUILL_NYX_LOGGING_LEVEL_DEBUG, 1)) +
               "; ";
    }
    std::string state() override { return root_.changes_since_mark(); }
    void make_ready() override { root_.api.debug.level = QUILL_NYX_LOGGING_LEVEL_TRACE; }

  private:
    std::uint32_t component_;
    api_with_root root_;
};

// Its lines are all that it asks for.
inline scenarios level_scenarios() {
    return {
        {"nyx_debug_logging_set_level",
         [] { return std::make_unique<level_exercise>(NYX_COMPONENT_NYX); },
         {"0; level 3", {}},
         {}},
        {"nyx_debug_logging_set_level/no_context",
         [] { return std::make_unique<level_exercise>(NYX_COMPONENT_QT); },
         {"INVALID_ARGUMENT; unchanged", {}},
         {}},
    };
}

// Sessions

inline constexpr const char *session_block = "NYX session context (nyx_session_create)";
inline constexpr const char *node_block = "WAVL tree node (nyx_session_create)";

// A store with sessions, which the exercise takes down by hand when the store has lost sight of them.
class session_exercise : public exercise {
  public:
    explicit session_exercise(int sessions) { open(sessions); }

    // What has become of the context, and of the sessions that there are still.
    std::string state() override {
        bool same = true;
        for (std::size_t i = 0; i < sessions_.size(); ++i) {
            same = same && (!is_live(sessions_[i]) || bytes_of(*sessions_[i]) == sessions_before_[i]);
        }
        return root_.changes_since_mark() + (same ? "" : "; sessions: changed");
    }

  protected:
    void open(int sessions) {
        static_cast<void>(nyx_session_store_init(&root_.api));
        recorder().forget();
        sessions_.clear();
        for (int i = 0; i < sessions; ++i) {
            sessions_.push_back(nyx_session_create(&root_.api));
        }
        nodes_.clear();
        for (const struct call &each : recorder().calls("umbra_named_malloc_")) {
            nodes_.push_back(reinterpret_cast<umbra_wavl_node *>(each.result.bits));
        }
    }

    // Just before the call.
    void mark() {
        root_.mark();
        sessions_before_.clear();
        for (const nyx_session_ctx *const each : sessions_) {
            sessions_before_.push_back(bytes_of(*each));
        }
    }

    // Ends with an empty store and none of the blocks that `open` made.
    void take_down() {
        for (umbra_wavl_node *const node : nodes_) {
            if (is_live(node)) {
                static_cast<void>(umbra_wavl_delete(&root_.api.session_tree, node));
                umbra_named_free(node);
            }
        }
        for (nyx_session_ctx *const session : sessions_) {
            if (is_live(session)) {
                umbra_named_free(session);
            }
        }
        static_cast<void>(nyx_session_store_cleanup(&root_.api));
        sessions_.clear();
        nodes_.clear();
    }

    static bool is_live(const void *block) { return recorder().size_of(block).has_value(); }

    nyx_api_ctx &api() { return root_.api; }
    [[nodiscard]] nyx_session_ctx *session() const { return sessions_.at(0); }

  private:
    api_with_root root_;
    std::vector<nyx_session_ctx *> sessions_;
    std::vector<std::string> sessions_before_;
    std::vector<umbra_wavl_node *> nodes_;
};

// The generator starts from words that are never drawn: lrand48() has 31 bits.
class store_init_exercise : public session_exercise {
  public:
    store_init_exercise() : session_exercise(0) { store_init_exercise::make_ready(); }
    std::string call() override {
        mark();
        return shown_code(nyx_session_store_init(&api())) + "; ";
    }
    std::string state() override {
        const bool drawn = std::all_of(std::begin(api().session_id_state), std::end(api().session_id_state),
                                       [](std::uint32_t word) { return word <= 0x7FFFFFFFU; });
        return session_exercise::state() + (drawn ? ", all drawn" : "");
    }
    void make_ready() override {
        static_cast<void>(nyx_session_store_cleanup(&api()));
        std::fill(std::begin(api().session_id_state), std::end(api().session_id_state), 0xFFFFFFFFU);
    }
};

class store_cleanup_exercise : public session_exercise {
  public:
    store_cleanup_exercise() : session_exercise(2) {}
    std::string call() override {
        mark();
        return shown_code(nyx_session_store_cleanup(&api())) + "; ";
    }
    void make_ready() override {
        take_down();
        open(2);
    }
    void clean_up() override { take_down(); }
};

class session_create_exercise : public session_exercise {
  public:
    session_create_exercise() : session_exercise(1) {}
    std::string call() override {
        mark();
        made_ = nyx_session_create(&api());
        return made_ == nullptr ? "null; " : "a session; ";
    }
    std::string state() override { return session_exercise::state() + (made_ == nullptr ? "" : shown_made()); }
    void make_ready() override { nyx_session_destroy(&api(), std::exchange(made_, nullptr)); }
    void clean_up() override {
        make_ready();
        take_down();
    }

  private:
    // A session is found under its id, and everything else in it is zero.
    std::string shown_made() {
        const std::uint32_t id = std::exchange(made_->session_id, 0);
        const bool empty = bytes_of(*made_) == std::string(sizeof *made_, '\0');
        made_->session_id = id;
        return std::string(nyx_session_find(&api(), id) == made_ ? "; found" : "; lost") +
               (empty ? ", empty" : ", filled");
    }

    nyx_session_ctx *made_ = nullptr;
};

class session_find_exercise : public session_exercise {
  public:
    session_find_exercise() : session_exercise(1) {}
    std::string call() override {
        mark();
        return shown_session(nyx_session_find(&api(), session()->session_id));
    }
    void clean_up() override { take_down(); }

  protected:
    [[nodiscard]] std::string shown_session(const nyx_session_ctx *found) const {
        return found == nullptr ? "null; " : found == session() ? "the session; " : "another; ";
    }
};

// As a request names it. Before the call, the place for the session holds one that is in no store.
class session_lookup_exercise : public session_find_exercise {
  public:
    std::string call() override {
        mark();
        quill_nyx_request request{};
        request.session_id = session()->session_id;
        request.has_session_id = 1;
        nyx_request_ctx context{&api(), &request};
        nyx_session_ctx other{};
        nyx_session_ctx *found = &other;
        const rcode rc = nyx_req_session_id_lookup(&context, &result_.record, &found);
        return shown_code(rc) + ", " + shown_session(found);
    }
    std::string state() override { return session_find_exercise::state() + "; result {" + result_.changed() + "}"; }
    void make_ready() override { result_.renew(); }
    void clean_up() override {
        result_.release_new();
        take_down();
    }

  private:
    used<quill_nyx_request_result> result_;
};

class session_destroy_exercise : public session_exercise {
  public:
    session_destroy_exercise() : session_exercise(1) { own(); }
    std::string call() override {
        mark();
        nyx_session_destroy(&api(), session());
        return "";
    }
    void make_ready() override {
        clean_up();
        open(1);
        own();
    }
    void clean_up() override {
        take_down();
        for (void *const block : {a_, b_}) {
            if (is_live(block)) {
                umbra_named_free(block);
            }
        }
    }

  private:
    void own() {
        a_ = session()->session_owned_a = umbra_named_malloc_(1, "a");
        b_ = session()->session_owned_b = umbra_named_malloc_(1, "b");
    }

    void *a_ = nullptr;
    void *b_ = nullptr;
};

inline scenarios session_scenarios() {
    const block_names one = {session_block, node_block};
    const outcome not_inserted = {"null; generator moved", one};
    const std::string drawn = "generator changed, all drawn";
    return {
        {"nyx_session_store_init",
         [] { return std::make_unique<store_init_exercise>(); },
         {"0; tree of 0, " + drawn, {}},
         failures()
             .of("memset_s", {"406; " + drawn, {}})
             .logs(0, {"ERR: NYX: ctx=N,mem init failure: " + text_of_code(406)})
             .of("umbra_wavl_tree_init", {"12; " + drawn, {}})},
        // A tree that hides its first node is finished while it holds it: nobody finds the session any more.
        {"nyx_session_store_cleanup",
         [] { return std::make_unique<store_cleanup_exercise>(); },
         {"0; tree ended", {}},
         failures()
             .of("umbra_wavl_get_first", {"16; tree ended", {session_block, session_block, node_block, node_block}})
             .of("umbra_wavl_get_first", {"16; tree ended", one})
             .harmless("umbra_wavl_get_first")
             .harmless("umbra_wavl_delete")
             .harmless("umbra_wavl_delete")
             .of("umbra_wavl_tree_finish", {"16; tree of 0", {}})},
        {"nyx_session_create",
         [] { return std::make_unique<session_create_exercise>(); },
         {"a session; tree of 2, generator moved; found, empty",
          {session_block, session_block, node_block, node_block}},
         failures()
             .of("umbra_named_calloc_", {"null; unchanged", one})
             .logs(0, {"ERR: NYX: ctx=N,NYX session context allocation failed"})
             .harmless("umbra_wavl_search")
             .of("umbra_named_malloc_", not_inserted)
             .logs(1, {"ERR: NYX: ctx=N,NYX session tree node allocation failed"})
             .of("umbra_wavl_insert", not_inserted)
             .logs(1, {"ERR: NYX: ctx=N,NYX session tree node insertion failed"})},
        {"nyx_session_find",
         [] { return std::make_unique<session_find_exercise>(); },
         {"the session; unchanged", one},
         failures().of("umbra_wavl_search", {"null; unchanged", one})},
        {"nyx_req_session_id_lookup/known",
         [] { return std::make_unique<session_lookup_exercise>(); },
         {"0, the session; unchanged; result {}", one},
         failures()
             .of("umbra_wavl_search",
                 {R"(INVALID_REQUEST, null; unchanged; result {status*=0 error*{type*=3 tag*="invalid-value" severity*=0)"
                  R"( message{text*="Entered session ID was not found."}}})",
                  {"error message", "error tag string", session_block, node_block}})
             .logs(0, {"ERR: NYX: ctx=N,ses=N,op=N,session with id=N not found"})},
        // A session that the tree hides is a stranger: its buffers are left alone, and its node stays.
        {"nyx_session_destroy",
         [] { return std::make_unique<session_destroy_exercise>(); },
         {"tree of 0", {}},
         failures()
             .of("umbra_wavl_search", {"unchanged", {node_block, "a", "b"}})
             .logs(0, {"DBG: NYX: ctx=N,session-id=N not found, cannot be destroyed"})
             .of("umbra_wavl_delete", {"unchanged", {node_block}})
             .logs(0, {"TRC: NYX: ctx=N,session-id=N cannot be released from the session tree"})},
    };
}

}  // namespace nyx_test

#endif
