// Levels by component and operation, and the names of both.
#include <cstddef>
#include <cstdint>

#include "nyx_api.h"
#include "nyx_api_common.h"
#include "nyx_log.h"

namespace {

template <std::size_t size>
const char *name_or_unknown(const char *const (&names)[size], std::uint32_t number) {
    return number < size ? names[number] : "unknown";
}

const char *level_name(std::uint32_t level) {
    static constexpr const char *names[] = {"NONE", "ERROR", "WARNING", "DEBUG", "TRACE"};
    return level < sizeof names / sizeof *names ? names[level] : "";
}

std::uint32_t highest_op_level(const nyx_debug_ctx_t &debug) {
    std::uint32_t highest = 0;
    for (const std::uint32_t level : debug.op_levels) {
        highest = level > highest ? level : highest;
    }
    return highest;
}

// What nyx_debug_logging_set_level was asked to do.
struct level_change {
    nyx_api_ctx *nyx_ctx;
    bool per_op;
    std::uint32_t op;
    std::uint32_t level;
    bool announce;
};

void announce_level(const level_change &change, std::uint32_t component) {
    NYX_LOG_SITE(true, change.nyx_ctx->debug, DBG, "nyx_debug_logging_set_level",
                 "ctx=%p,Log level set to %s for %s %s%s", static_cast<const void *>(change.nyx_ctx),
                 level_name(change.level), nyx_log_component_str(component),
                 change.per_op ? nyx_debug_op_name(change.op) : "", change.per_op ? " operation" : "general");
}

// Returns whether the component has a context.
bool change_level(const level_change &change, std::uint32_t component) {
    nyx_debug_ctx_t *const target = nyx_debug_get_component_ctx(&change.nyx_ctx->debug, component);
    if (target == nullptr) {
        return false;
    }
    std::uint32_t *const level = change.per_op ? nyx_get_op_debug_settings(target, change.op) : &target->level;
    if (level == nullptr) {
        return true;
    }
    *level = change.level;
    if (change.announce) {
        announce_level(change, component);
    }
    if (change.per_op) {
        target->op_level_max = highest_op_level(*target);
    }
    return true;
}

}  // namespace

std::uint32_t nyx_debug_should_log(const nyx_debug_ctx_t *ctx, nyx_debug_log_type type) {
    NYX_ASSERT_NOT_NULL(ctx);
    return nyx::should_log(*ctx, type) ? 1 : 0;
}

std::uint32_t nyx_debug_should_log_op(nyx_debug_ctx_t *ctx, nyx_debug_log_type type, std::uint32_t op) {
    NYX_ASSERT_NOT_NULL(ctx);
    return nyx::should_log_op(*ctx, type, op) ? 1 : 0;
}

std::uint32_t *nyx_get_op_debug_settings(nyx_debug_ctx_t *ctx, std::uint32_t op) {
    return ctx == nullptr || op >= NYX_DEBUG_OP_COUNT ? nullptr : &ctx->op_levels[nyx::op_slots[op]];
}

rcode nyx_debug_logging_set_level(nyx_api_ctx *nyx_ctx, std::uint32_t component, std::uint32_t per_op, std::uint32_t op,
                                  std::uint32_t level, std::uint32_t announce) {
    NYX_ASSERT_NOT_NULL(nyx_ctx);
    const level_change change{nyx_ctx, per_op != 0, op, level, announce == 1};
    if (component == NYX_COMPONENT_ALL) {
        // The announcements come in this order, which is not that of the numbers.
        static constexpr std::uint32_t all[] = {NYX_COMPONENT_NYX,   NYX_COMPONENT_MAP,  NYX_COMPONENT_ME,
                                                NYX_COMPONENT_QT,    NYX_COMPONENT_BK,   NYX_COMPONENT_SABLE,
                                                NYX_COMPONENT_DORIC, NYX_COMPONENT_NACM, NYX_COMPONENT_BRIEF};
        for (const std::uint32_t each : all) {
            static_cast<void>(change_level(change, each));
        }
        return 0;
    }
    if (!change_level(change, component)) {
        NYX_LOG_OP(ERR, "nyx_debug_logging_set_level", nyx_ctx, nullptr, QUILL_NYX_REQUEST_TYPE_LOGGING_SET,
                   "Cannot find specified debug component: %s.", nyx_log_component_str(component));
        return NYX_RC_INVALID_ARGUMENT;
    }
    return 0;
}

const char *nyx_log_component_str(std::uint32_t component) {
    static constexpr const char *names[] = {"none", "all",   "NYX",   "ME",   "QT",   "BK",
                                            "MAP",  "SABLE", "DORIC", "nacm", "brief"};
    return name_or_unknown(names, component);
}

const char *nyx_debug_op_name(std::uint32_t op) {
    static constexpr const char *names[NYX_DEBUG_OP_COUNT] = {
        "get-config",   "edit-config",        "validate",           "lock",        "unlock",
        "commit",       "cancel-commit",      "discard-changes",    "copy-config", "delete-config",
        "get",          "start-session",      "stop-session",       "logging-set", "schemas-list",
        "cli-config",   "cli-show",           "settings-set",       "invoke-rpc",  "create-subscription",
        "streams-list", "notification-pause", "notification-resume"};
    return name_or_unknown(names, op);
}

const char *nyx_debug_short_file(nyx_debug_ctx_t *context, const char *path) {
    constexpr errno_t absent = 3;
    constexpr rsize_t longest = INT64_MAX;
    const char *slash = nullptr;
    const errno_t rc = strrchar_s_tmp(path, longest, '/', &slash);
    if (rc == absent) {
        return path;
    }
    if (rc != 0) {
        NYX_ASSERT_NOT_NULL(context);
        static std::uint32_t site_filter = 0xFFFFFFFFU;
        _umbra_dt_log_filter_adv(context->error_flag, 0, 0, 0, 0, 0, &site_filter,
                                 "Error while processing filename, rc=%d: %s", rc, rcode_strerror(rc));
        return path;
    }
    return slash + 1;
}
