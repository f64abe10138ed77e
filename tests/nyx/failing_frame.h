// Scenarios of the process-wide state, debug contexts, trace files, levels and sessions.
#ifndef NYX_TEST_FAILING_FRAME_H
#define NYX_TEST_FAILING_FRAME_H

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "failing_calls.h"
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

// A handle after a call, told by the one before it.
inline std::string shown_handle(std::uint64_t now, std::uint64_t before) {
    return now == 0 ? "none" : now == junk_handle ? "junk" : now == before ? "kept" : "new";
}

inline std::string shown_trace(const nyx_debug_ctx_t &now, const nyx_debug_ctx_t &before) {
    return "file " + shown_handle(now.trace_handle, before.trace_handle) + (now.trace_enabled != 0 ? " on" : " off");
}

class root_init_exercise : public exercise {
  public:
    root_init_exercise() { zero(); }
    std::string call() override {
        return shown_code(nyx_debug_init(&root_, "processor", NYX_COMPONENT_NYX, nullptr)) + "; ";
    }
    std::string state() override {
        return "component " + shown_handle(root_.component_flag, 0) + ", error " + shown_handle(root_.error_flag, 0) +
               ", debug " + shown_handle(root_.debug_flag, 0) + ", trace " + shown_handle(root_.trace_flag, 0) + ", " +
               shown_trace(root_, {}) + ", " + std::to_string(root_.ref_count) + " references";
    }
    void make_ready() override {
        static_cast<void>(nyx_debug_cleanup(&root_));
        zero();
    }

  private:
    void zero() {
        root_ = {};
        root_.level = QUILL_NYX_LOGGING_LEVEL_TRACE;
    }

    nyx_debug_ctx_t root_{};
};

inline scenario inits_root() {
    const auto left = [](const std::string &code, const std::string &component, const std::string &error,
                         const std::string &debug, const std::string &trace, const std::string &file) {
        return outcome{code + "; component " + component + ", error " + error + ", debug " + debug + ", trace " +
                           trace + ", file " + file + ", 1 references",
                       {}};
    };
    outcome no_file = left("DEBUG_INIT", "new", "new", "none", "none", "none off");
    no_file.text += "; said: Init trace buffer (agentx-nyx/processor.trace) failed! (" + text_of_code(17) + ")";
    return {"nyx_debug_init", [] { return std::make_unique<root_init_exercise>(); },
            left("0", "new", "new", "new", "new", "new on"),
            failures()
                .harmless("strnlen_s")
                .of("umbra_dt_flag_init", left("DEBUG_INIT", "none", "none", "none", "none", "none off"))
                .of("umbra_dt_flag_init", left("DEBUG_INIT", "new", "none", "none", "none", "none off"))
                .of("umbra_dt_flag_init", left("DEBUG_INIT", "new", "new", "none", "none", "new on"))
                .of("umbra_dt_flag_init", left("DEBUG_INIT", "new", "new", "new", "none", "new on"))
                .harmless("umbra_dt_flag_enable")
                .harmless("umbra_dt_flag_enable")
                .harmless("umbra_dt_flag_enable")
                .harmless("umbra_dt_flag_enable")
                .of("memcpy_s", left("406", "new", "new", "none", "none", "none off"))
                .of("memcpy_s", left("406", "new", "new", "none", "none", "new on"))
                .of("memcpy_s", left("406", "new", "new", "new", "none", "new on"))
                .of("skein_init2", no_file)};
}

class child_init_exercise : public exercise {
  public:
    std::string call() override {
        return shown_code(nyx_debug_init(&child_, "me", NYX_COMPONENT_ME, &root_.api.debug)) + "; ";
    }
    std::string state() override {
        const nyx_debug_ctx_t &parent = root_.api.debug;
        return std::string(child_.parent == &parent ? "linked, " : "not linked, ") +
               (child_.error_flag == parent.error_flag ? "its parent's flags, " : "no flags, ") +
               shown_trace(child_, {}) + ", " + std::to_string(child_.ref_count) + " and " +
               std::to_string(parent.ref_count) + " references, " + std::to_string(parent.child_count) + " children";
    }
    void make_ready() override {
        if (child_.parent != nullptr) {
            static_cast<void>(nyx_debug_cleanup(&child_));
        }
        child_ = {};
    }

  private:
    api_with_root root_;
    nyx_debug_ctx_t child_{};
};

inline scenario inits_child() {
    return {"nyx_debug_init/child",
            [] { return std::make_unique<child_init_exercise>(); },
            {"0; linked, its parent's flags, file new on, 1 and 2 references, 1 children", {}},
            failures()
                .harmless("strnlen_s")
                .of("memcpy_s", {"406; not linked, no flags, file none off, 1 and 1 references, 0 children", {}})
                .of("skein_init2",
                    {"DEBUG_INIT; linked, its parent's flags, file none off, 1 and 2 references, 1 children; said: "
                     "Init trace buffer (agentx-nyx/me.trace) failed! (" +
                         text_of_code(17) + ")",
                     {}})};
}

// The last reference of a child whose root was given up before it.
class cleanup_exercise : public exercise {
  public:
    cleanup_exercise() { make_ready(); }
    std::string call() override { return shown_code(nyx_debug_cleanup(&child_)) + "; "; }
    std::string state() override {
        return std::to_string(child_.ref_count) + " and " + std::to_string(root_->api.debug.ref_count) +
               " references, " + std::to_string(root_->api.debug.child_count) + " children";
    }
    void make_ready() final {
        root_ = std::make_unique<api_with_root>();
        child_ = {};
        static_cast<void>(nyx_debug_init(&child_, "me", NYX_COMPONENT_ME, &root_->api.debug));
        static_cast<void>(nyx_debug_cleanup(&root_->api.debug));
    }

  private:
    std::unique_ptr<api_with_root> root_;
    nyx_debug_ctx_t child_{};
};

// Trace files

// A root and a child with an open file each. A handle counts as kept if it is the one from before the call.
class trace_exercise : public exercise {
  public:
    explicit trace_exercise(std::function<std::string(nyx_api_ctx &)> run) : run_(std::move(run)) {
        static_cast<void>(nyx_debug_init(&child_, "me", NYX_COMPONENT_ME, &root_.api.debug));
    }
    std::string call() override {
        root_before_ = root_.api.debug;
        child_before_ = child_;
        return run_(root_.api) + "; ";
    }
    std::string state() override {
        return "root " + shown_trace(root_.api.debug, root_before_) + ", child " + shown_trace(child_, child_before_);
    }

  private:
    std::function<std::string(nyx_api_ctx &)> run_;
    api_with_root root_;
    nyx_debug_ctx_t child_{};
    nyx_debug_ctx_t root_before_{};
    nyx_debug_ctx_t child_before_{};
};

inline scenario traces(const std::string &name, const std::function<std::string(nyx_api_ctx &)> &run,
                       const std::string &undisturbed, const std::vector<failing_call> &failing) {
    return {name, [run] { return std::make_unique<trace_exercise>(run); }, {undisturbed, {}}, failing};
}

inline std::string not_opened(const std::string &name) {
    return "; said: Init trace buffer (agentx-nyx/" + name + ".trace) failed! (" + text_of_code(17) + ")";
}
inline std::string not_deleted(const std::string &name) {
    return "; said: skein_delete(agentx-nyx/" + name + ".trace) failed, " + text_of_code(17);
}

inline scenarios trace_scenarios() {
    const std::string child_kept = ", child file kept on";
    return {
        traces(
            "nyx_init_trace_buffer", [](nyx_api_ctx &api) { return shown_code(nyx_init_trace_buffer(&api.debug)); },
            "0; root file new on" + child_kept,
            failures().of("skein_init2",
                          {"DEBUG_INIT; root file none off" + child_kept + not_opened("processor"), {}})),
        traces(
            "nyx_reinit_trace_buffer", [](nyx_api_ctx &api) { return shown_code(nyx_reinit_trace_buffer(&api.debug)); },
            "0; root file new on" + child_kept,
            failures()
                .harmless("skein_close")
                .of("skein_delete", {"17; root file kept on" + child_kept + not_deleted("processor"), {}})
                .of("skein_init2", {"DEBUG_INIT; root file none off" + child_kept + not_opened("processor"), {}})),
        // Tracing is turned on also when there is no file.
        traces(
            "nyx_clear_trace_update_component",
            [](nyx_api_ctx &api) {
                nyx_clear_trace_update_component(&api.debug, NYX_COMPONENT_NYX, 1, 1, 1);
                return "";
            },
            "; root file new on" + child_kept,
            failures()
                .harmless("skein_close")
                .of("skein_delete", {"; root file kept on" + child_kept + not_deleted("processor"), {}})
                .of("skein_init2", {"; root file none on" + child_kept + not_opened("processor"), {}})),
        traces(
            "nyx_clear_trace", [](nyx_api_ctx &api) { return shown_code(nyx_clear_trace(&api)); },
            "0; root file new on, child file new on",
            failures()
                .harmless("skein_close")
                .harmless("skein_close")
                .of("skein_delete", {"0; root file kept on, child file new on" + not_deleted("processor"), {}})
                .of("skein_delete", {"0; root file new on, child file kept on" + not_deleted("me"), {}})
                .of("skein_init2", {"0; root file none on, child file new on" + not_opened("processor"), {}})
                .of("skein_init2", {"0; root file new on, child file none on" + not_opened("me"), {}})),
        inits_root(),
        inits_child(),
        {"nyx_debug_cleanup",
         [] { return std::make_unique<cleanup_exercise>(); },
         {"0; 0 and 0 references, 0 children", {}},
         failures().of("umbra_dt_flag_destroy", {"DEBUG_CLEANUP; 0 and 0 references, 0 children", {}})},
    };
}

// Levels

class level_exercise : public exercise {
  public:
    explicit level_exercise(std::uint32_t component) : component_(component) {}
    std::string call() override {
        return shown_code(nyx_debug_logging_set_level(&root_.api, component_, 0, 0, QUILL_NYX_LOGGING_LEVEL_DEBUG, 1)) +
               "; ";
    }
    std::string state() override { return "level " + std::to_string(root_.api.debug.level); }
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
         {"INVALID_ARGUMENT; level 4", {}},
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
    [[nodiscard]] std::uint64_t held() const { return umbra_wavl_count(&root_.api.session_tree); }
    [[nodiscard]] nyx_session_ctx *session() const { return sessions_.at(0); }

  private:
    api_with_root root_;
    std::vector<nyx_session_ctx *> sessions_;
    std::vector<umbra_wavl_node *> nodes_;
};

class store_init_exercise : public session_exercise {
  public:
    store_init_exercise() : session_exercise(0) { static_cast<void>(nyx_session_store_cleanup(&api())); }
    std::string call() override { return shown_code(nyx_session_store_init(&api())) + "; "; }
    std::string state() override {
        const bool zeroed = bytes_of(api().session_tree) == std::string(sizeof api().session_tree, '\0');
        return zeroed ? "no store" : "a store of " + std::to_string(held());
    }
    void make_ready() override { static_cast<void>(nyx_session_store_cleanup(&api())); }
};

class store_cleanup_exercise : public session_exercise {
  public:
    store_cleanup_exercise() : session_exercise(2) {}
    std::string call() override { return shown_code(nyx_session_store_cleanup(&api())) + "; "; }
    std::string state() override { return "holds " + std::to_string(held()); }
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
        made_ = nyx_session_create(&api());
        return made_ == nullptr ? "null; " : "a session; ";
    }
    std::string state() override {
        const bool found = made_ != nullptr && nyx_session_find(&api(), made_->session_id) == made_;
        return std::string(found ? "found, " : "") + "holds " + std::to_string(held());
    }
    void make_ready() override { nyx_session_destroy(&api(), std::exchange(made_, nullptr)); }
    void clean_up() override {
        make_ready();
        take_down();
    }

  private:
    nyx_session_ctx *made_ = nullptr;
};

class session_find_exercise : public session_exercise {
  public:
    session_find_exercise() : session_exercise(1) {}
    std::string call() override { return shown_session(nyx_session_find(&api(), session()->session_id)); }
    std::string state() override { return "holds " + std::to_string(held()); }
    void make_ready() override {}
    void clean_up() override { take_down(); }

  protected:
    [[nodiscard]] std::string shown_session(const nyx_session_ctx *found) const {
        return found == nullptr ? "null; " : found == session() ? "the session; " : "another; ";
    }
};

// As a request names it.
class session_lookup_exercise : public session_find_exercise {
  public:
    std::string call() override {
        quill_nyx_request request{};
        request.session_id = session()->session_id;
        request.has_session_id = 1;
        nyx_request_ctx context{&api(), &request};
        nyx_session_ctx *found = session();
        const rcode rc = nyx_req_session_id_lookup(&context, &result_, &found);
        return shown_code(rc) + ", " + shown_session(found);
    }
    std::string state() override { return session_find_exercise::state() + ", result {" + text_of(result_) + "}"; }
    void make_ready() override {
        release(result_);
        result_ = {};
    }
    void clean_up() override {
        make_ready();
        take_down();
    }

  private:
    quill_nyx_request_result result_{};
};

class session_destroy_exercise : public session_exercise {
  public:
    session_destroy_exercise() : session_exercise(1) { own(); }
    std::string call() override {
        nyx_session_destroy(&api(), session());
        return "";
    }
    std::string state() override { return "holds " + std::to_string(held()); }
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
    const outcome not_made = {"null; holds 1", {session_block, node_block}};
    return {
        {"nyx_session_store_init",
         [] { return std::make_unique<store_init_exercise>(); },
         {"0; a store of 0", {}},
         failures().of("memset_s", {"406; no store", {}}).of("umbra_wavl_tree_init", {"12; no store", {}})},
        // A tree that hides its first node is finished while it holds it: nobody finds the session any more.
        {"nyx_session_store_cleanup",
         [] { return std::make_unique<store_cleanup_exercise>(); },
         {"0; holds 0", {}},
         failures()
             .of("umbra_wavl_get_first", {"16; holds 0", {session_block, session_block, node_block, node_block}})
             .of("umbra_wavl_get_first", {"16; holds 0", {session_block, node_block}})
             .harmless("umbra_wavl_get_first")
             .harmless("umbra_wavl_delete")
             .harmless("umbra_wavl_delete")
             .of("umbra_wavl_tree_finish", {"16; holds 0", {}})},
        {"nyx_session_create",
         [] { return std::make_unique<session_create_exercise>(); },
         {"a session; found, holds 2", {session_block, session_block, node_block, node_block}},
         failures()
             .of("umbra_named_calloc_", not_made)
             .harmless("umbra_wavl_search")
             .of("umbra_named_malloc_", not_made)
             .of("umbra_wavl_insert", not_made)},
        {"nyx_session_find",
         [] { return std::make_unique<session_find_exercise>(); },
         {"the session; holds 1", {session_block, node_block}},
         failures().of("umbra_wavl_search", {"null; holds 1", {session_block, node_block}})},
        {"nyx_req_session_id_lookup/known",
         [] { return std::make_unique<session_lookup_exercise>(); },
         {"0, the session; holds 1, result {}", {session_block, node_block}},
         failures().of(
             "umbra_wavl_search",
             {R"(INVALID_REQUEST, null; holds 1, result {status*=0 error*{type*=3 tag*="invalid-value" severity*=0)"
              R"( message{text*="Entered session ID was not found."}}})",
              {"error message", "error tag string", session_block, node_block}})},
        // A session that the tree hides is a stranger: its buffers are left alone, and its node stays.
        {"nyx_session_destroy",
         [] { return std::make_unique<session_destroy_exercise>(); },
         {"holds 0", {}},
         failures()
             .of("umbra_wavl_search", {"holds 1", {node_block, "a", "b"}})
             .of("umbra_wavl_delete", {"holds 1", {node_block}})},
    };
}

}  // namespace nyx_test

#endif
