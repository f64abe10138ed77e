// What a call changes in debug and API contexts: every member is looked at, also those that no scenario speaks of.
#ifndef NYX_TEST_FAILING_CONTEXTS_H
#define NYX_TEST_FAILING_CONTEXTS_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

#include "frame_fixture.h"
#include "nyx_api.h"
#include "nyx_debug.h"
#include "recording_platform.h"
#include "umbra/wavl.h"

namespace nyx_test {

inline std::string shown_handle(std::uint64_t handle) {
    const auto kind = [](std::uint64_t of) { return of >> 48U; };
    return handle == 0                             ? "none"
           : handle == junk_handle                 ? "junk"
           : kind(handle) == kind(flag_handle(0))  ? "a flag"
           : kind(handle) == kind(trace_handle(0)) ? "a file"
                                                   : "rubbish";
}

// Names the members that are not as before, one behind the other, with what they hold: `level 3, trace_handle none`.
class change_list {
  public:
    void number(const std::string &member, std::uint64_t before, std::uint64_t now) {
        note(member, before != now, std::to_string(now));
    }
    // A handle, which may be that of a related context.
    void handle(const std::string &member, std::uint64_t before, std::uint64_t now, std::uint64_t related) {
        note(member, before != now, now != 0 && now == related ? "shared" : shown_handle(now));
    }
    void context(const std::string &member, const void *before, const void *now, const void *related) {
        note(member, before != now, now == nullptr ? "null" : now == related ? "linked" : "rubbish");
    }
    void note(const std::string &member, bool changed, const std::string &now) {
        if (changed) {
            text_.append(text_.empty() ? "" : ", ").append(member).append(" ").append(now);
        }
    }
    [[nodiscard]] const std::string &text() const { return text_; }

  private:
    std::string text_;
};

// `related` is the context's parent or its child; null: there is none.
inline void list_changes(change_list &list, const nyx_debug_ctx_t &before, const nyx_debug_ctx_t &now,
                         const nyx_debug_ctx_t *related = nullptr) {
    static const nyx_debug_ctx_t unrelated{};
    const nyx_debug_ctx_t &other = related == nullptr ? unrelated : *related;
    list.handle("component_flag", before.component_flag, now.component_flag, other.component_flag);
    list.handle("debug_flag", before.debug_flag, now.debug_flag, other.debug_flag);
    list.handle("error_flag", before.error_flag, now.error_flag, other.error_flag);
    list.handle("trace_flag", before.trace_flag, now.trace_flag, other.trace_flag);
    list.handle("trace_handle", before.trace_handle, now.trace_handle, other.trace_handle);
    list.number("trace_enabled", before.trace_enabled, now.trace_enabled);
    list.context("parent", before.parent, now.parent, related);
    list.number("ref_count", static_cast<std::uint32_t>(before.ref_count), static_cast<std::uint32_t>(now.ref_count));
    list.number("level", before.level, now.level);
    list.number("op_level_max", before.op_level_max, now.op_level_max);
    for (std::size_t i = 0; i < NYX_DEBUG_OP_COUNT; ++i) {
        list.number("op_levels[" + std::to_string(i) + "]", before.op_levels[i], now.op_levels[i]);
    }
    list.number("component", before.component, now.component);
    for (std::size_t i = 0; i < NYX_DEBUG_CHILD_MAX; ++i) {
        list.context("children[" + std::to_string(i) + "]", before.children[i], now.children[i], related);
    }
    list.number("child_count", before.child_count, now.child_count);
}

inline std::string changes(const nyx_debug_ctx_t &before, const nyx_debug_ctx_t &now,
                           const nyx_debug_ctx_t *related = nullptr) {
    change_list list;
    list_changes(list, before, now, related);
    return list.text().empty() ? "unchanged" : list.text();
}

// The generator's state after one draw. Its last word is drawn from the first and the last: Marsaglia's xorshift128.
inline bool moved_by_one(const std::uint32_t (&before)[4], const std::uint32_t (&now)[4]) {
    const std::uint32_t mixed = before[0] ^ (before[0] << 11U);
    const std::uint32_t drawn = before[3] ^ (before[3] >> 19U) ^ mixed ^ (mixed >> 8U);
    return std::equal(before + 1, before + 4, now) && now[3] == drawn;
}

inline std::string shown_tree(const umbra_wavl_tree &tree) {
    if (bytes_of(tree) == std::string(sizeof tree, '\0')) {
        return "ended";
    }
    const std::string sound = umbra_wavl_check(&tree) == 0 ? "" : "broken, ";
    return sound + "of " + std::to_string(umbra_wavl_count(&tree));
}

inline std::string changes(const nyx_api_ctx &before, const nyx_api_ctx &now) {
    change_list list;
    list_changes(list, before.debug, now.debug);
    list.note("tree", bytes_of(before.session_tree) != bytes_of(now.session_tree), shown_tree(now.session_tree));
    list.note("generator", !std::equal(before.session_id_state, before.session_id_state + 4, now.session_id_state),
              moved_by_one(before.session_id_state, now.session_id_state) ? "moved" : "changed");
    return list.text().empty() ? "unchanged" : list.text();
}

// An API context whose root logs everything, both ways.
class api_with_root {
  public:
    api_with_root() {
        static_cast<void>(nyx_debug_init(&api.debug, "processor", NYX_COMPONENT_NYX, nullptr));
        api.debug.level = QUILL_NYX_LOGGING_LEVEL_TRACE;
    }

    // Remembers what the context holds.
    void mark() { before_ = api; }
    // What is not as it was then.
    [[nodiscard]] std::string changes_since_mark() const { return changes(before_, api); }
    // Nothing, if that is how it should be.
    [[nodiscard]] std::string unexpected_changes() const {
        const std::string all = changes_since_mark();
        return all == "unchanged" ? "" : "; context: " + all;
    }

    nyx_api_ctx api{};

  private:
    nyx_api_ctx before_{};
};

}  // namespace nyx_test

#endif
