// Setting up debug contexts, finding them and taking them down.
#include <cstdint>

#include "nyx_debug.h"
#include "nyx_log.h"
#include "safestr/safestr.h"

namespace {

constexpr rsize_t name_length_max = 127;

// Lines of the initialisation are logged through copies: a child's go where its parent's go, and the printed address
// tells them from those of the live context.
rcode take_snapshot(nyx_debug_ctx_t &snapshot, const nyx_debug_ctx_t &ctx) {
    return memcpy_s(&snapshot, sizeof snapshot, &ctx, sizeof ctx);
}

// Registers and enables a flag; on failure the handle is 0.
bool set_up_flag(std::uint64_t &flag, const char *name, std::uint64_t parent_flag) {
    if (umbra_dt_flag_init(&flag, name, parent_flag, 0, 0) != 0) {
        flag = 0;
        return false;
    }
    static_cast<void>(umbra_dt_flag_enable(flag, 0));
    return true;
}

void link_to_parent(nyx_debug_ctx_t *ctx, nyx_debug_ctx_t *parent) {
    ctx->parent = parent;
    ++parent->ref_count;
    ctx->component_flag = parent->component_flag;
    ctx->debug_flag = parent->debug_flag;
    ctx->error_flag = parent->error_flag;
    ctx->trace_flag = parent->trace_flag;
}

rcode init_child(nyx_debug_ctx_t *ctx, const char *name, nyx_debug_ctx_t *parent) {
    nyx_debug_ctx_t snapshot;
    const rcode rc = take_snapshot(snapshot, *parent);
    if (rc != 0) {
        return rc;
    }
    link_to_parent(ctx, parent);
    const rcode trace_rc = nyx_init_trace_buffer(ctx);
    NYX_LOG_NAMED(DBG, "nyx_debug_init", snapshot, name, "Using existing DT flags");
    if (parent->child_count < NYX_DEBUG_CHILD_MAX) {
        parent->children[parent->child_count] = ctx;
        ++parent->child_count;
        return trace_rc;
    }
    NYX_LOG_NAMED(
        WRN, "nyx_debug_init", snapshot, name,
        "Maximum logging subcomponent count reached! This component will not be available for log filtering.");
    return trace_rc;
}

// The flag of errors comes before the trace file, so that errors can be logged as early as possible; those of debug and
// trace lines after it, so that their failing already stands in the trace file.
rcode init_root_until_traced(nyx_debug_ctx_t *ctx, const char *name) {
    if (!set_up_flag(ctx->component_flag, name, 0)) {
        return NYX_RC_DEBUG_INIT;
    }
    if (!set_up_flag(ctx->error_flag, "error", ctx->component_flag)) {
        return NYX_RC_DEBUG_INIT;
    }
    nyx_debug_ctx_t snapshot;
    const rcode rc = take_snapshot(snapshot, *ctx);
    if (rc != 0) {
        return rc;
    }
    NYX_LOG_NAMED(DBG, "nyx_debug_init", snapshot, name, "Error logging initialized");
    return nyx_init_trace_buffer(ctx);
}

rcode init_root_traced(nyx_debug_ctx_t *ctx, const char *name) {
    nyx_debug_ctx_t snapshot;
    rcode rc = take_snapshot(snapshot, *ctx);
    if (rc != 0) {
        return rc;
    }
    if (!set_up_flag(ctx->debug_flag, "debug", ctx->component_flag)) {
        NYX_LOG_NAMED(ERR, "nyx_debug_init", snapshot, name, "Debug log init failed!");
        return NYX_RC_DEBUG_INIT;
    }
    rc = take_snapshot(snapshot, *ctx);
    if (rc != 0) {
        return rc;
    }
    NYX_LOG_NAMED(DBG, "nyx_debug_init", snapshot, name, "Debug logging initialized");
    if (!set_up_flag(ctx->trace_flag, "trace", ctx->component_flag)) {
        NYX_LOG_NAMED(ERR, "nyx_debug_init", snapshot, name, "Trace log init failed!");
        return NYX_RC_DEBUG_INIT;
    }
    NYX_LOG_NAMED(DBG, "nyx_debug_init", snapshot, name, "Trace logging initialized");
    return 0;
}

rcode init_root(nyx_debug_ctx_t *ctx, const char *name) {
    const rcode rc = init_root_until_traced(ctx, name);
    return rc != 0 ? rc : init_root_traced(ctx, name);
}

// Takes the context out of its parent's children. The last entry fills the gap: their order is of no meaning.
void unlink_from_parent(const nyx_debug_ctx_t *ctx) {
    nyx_debug_ctx_t *const parent = ctx->parent;
    for (std::uint64_t i = 0; i < parent->child_count; ++i) {
        if (parent->children[i] == ctx) {
            --parent->child_count;
            parent->children[i] = parent->children[parent->child_count];
            return;
        }
    }
}

}  // namespace

rcode nyx_debug_init(nyx_debug_ctx_t *ctx, const char *name, std::uint32_t component, nyx_debug_ctx_t *parent) {
    if (ctx == nullptr || name == nullptr || strnlen_s(name, name_length_max + 1) > name_length_max) {
        return NYX_RC_INVALID_ARGUMENT;
    }
    ctx->parent = nullptr;
    ctx->ref_count = 1;
    ctx->component = component;
    return parent != nullptr ? init_child(ctx, name, parent) : init_root(ctx, name);
}

nyx_debug_ctx_t *nyx_debug_get_component_ctx(nyx_debug_ctx_t *ctx, std::uint32_t component) {
    if (ctx == nullptr || component == NYX_COMPONENT_NONE || component == ctx->component) {
        return ctx;
    }
    for (std::uint64_t i = 0; i < ctx->child_count; ++i) {
        nyx_debug_ctx_t *const found = nyx_debug_get_component_ctx(ctx->children[i], component);
        if (found != nullptr) {
            return found;
        }
    }
    return nullptr;
}

rcode nyx_debug_cleanup(nyx_debug_ctx_t *ctx) {
    NYX_ASSERT_NOT_NULL(ctx);
    const std::int32_t references = ctx->ref_count--;
    if (references > 1) {
        return 0;
    }
    if (ctx->parent == nullptr) {
        return umbra_dt_flag_destroy(ctx->component_flag) == 0 ? 0 : NYX_RC_DEBUG_CLEANUP;
    }
    unlink_from_parent(ctx);
    return nyx_debug_cleanup(ctx->parent) == 0 ? 0 : NYX_RC_DEBUG_CLEANUP;
}
