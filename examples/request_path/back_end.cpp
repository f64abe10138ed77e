#include "back_end.h"

#include <quill_nyx.h>

#include <new>
#include <string>
#include <utility>

#include "filter.h"
#include "log.h"
#include "request_numbers.h"
#include "trial_rpcs.h"

namespace request_path {

namespace {

rpc_failure in_use() {
    return simple_failure(NYX_ERROR_TYPE_APPLICATION, "in-use", "Another session holds the lock of the datastore.");
}

rpc_failure not_supported(const char *message) {
    return simple_failure(NYX_ERROR_TYPE_PROTOCOL, "operation-not-supported", message);
}

rpc_failure lock_denied(uint32_t holder, const char *message) {
    rpc_failure failure = simple_failure(NYX_ERROR_TYPE_PROTOCOL, "lock-denied", message);
    failure.info = {{"session-id", std::to_string(holder)}};
    return failure;
}

/* @param role  the parameter that names the datastore */
store named_store(const quill_nyx_datastore &record, const char *role) {
    if (record.name == nullptr) {
        throw missing_element(role);
    }
    const auto which = store_named(record.name);
    if (!which) {
        throw unknown_element(record.name);
    }
    return *which;
}

/* A tree as it came from the agent, as a datastore's content. A text is none: it belongs to no element of the data. */
node content_of(const quill_nyx_datatree &config) {
    node content = read_tree(config);
    if (!content.value.empty()) {
        throw bad_element("config");
    }
    content.name.clear();
    content.name_space.clear();
    content.attributes.clear();
    return content;
}

/* Into the trace file alone: what a client has written is for those who look for it. */
void dump(const nyx_request_ctx &under_way, const quill_nyx_datatree &tree, const char *title) {
    if (tree.has_name) {
        nyx_gpb_datatree_trace_internal(&log_ctx(under_way, NYX_COMPONENT_ME), &tree, title);
    }
}

void dump_request(const nyx_request_ctx &under_way) {
    const quill_nyx_request &request = *under_way.request;
    dump(under_way, request.get_config.filter.tree, "filter of get-config");
    dump(under_way, request.get.filter.tree, "filter of get");
    dump(under_way, request.edit_config.config, "edit-config");
    dump(under_way, request.copy_config.config, "copy-config");
    dump(under_way, request.validate.config, "validate");
    dump(under_way, request.invoke_rpc.tree, "invoke-rpc");
}

}  // namespace

rcode back_end::carry_out(nyx_request_ctx &under_way, nyx_session_ctx &session, answer &reply) {
    const char *const operation = nyx_debug_op_name(log_operation(under_way));
    dump_request(under_way);
    try {
        const rcode code = dispatch({under_way, session, reply});
        if (code == 0) {
            LOG_REQUEST(DBG, ME, under_way, &session, "%s of session-id=%u is done", operation, session.session_id);
        }
        return code;
    } catch (const rpc_failure &failure) {
        write_failure(failure, under_way, &session, reply.result());
    } catch (const std::bad_alloc &) {
        nyx_nomem_error_set(&reply.result());
    }
    const quill_nyx_error &error = reply.result().error;
    LOG_REQUEST(WRN, ME, under_way, &session, "%s of session-id=%u is refused: %s: %s", operation, session.session_id,
                error.error_tag == nullptr ? "resource-denied" : error.error_tag,
                error.error_message.text == nullptr ? "no memory to say why" : error.error_message.text);
    return NYX_RC_REQUEST_FAILED;
}

rcode back_end::dispatch(const call &now) {
    const quill_nyx_request &request = *now.under_way.request;
    const uint32_t session = now.session.session_id;
    if (!request.has_type) {
        throw simple_failure(NYX_ERROR_TYPE_RPC, "malformed-message", "The request names no operation.");
    }
    switch (request.type) {
        case QUILL_NYX_REQUEST_TYPE_GET_CONFIG:
            read(stores_.content(named_store(request.get_config.source, "source")), request.get_config.filter,
                 request.get_config.has_filter, now);
            break;
        case QUILL_NYX_REQUEST_TYPE_GET:  // there is no state data here, so that it reads the running configuration
            read(stores_.content(store::running), request.get.filter, request.get.has_filter, now);
            break;
        case QUILL_NYX_REQUEST_TYPE_EDIT_CONFIG:
            edit_config(request.edit_config, now);
            break;
        case QUILL_NYX_REQUEST_TYPE_COPY_CONFIG:
            copy_config(request.copy_config, session);
            break;
        case QUILL_NYX_REQUEST_TYPE_DELETE_CONFIG:
            delete_config(session);
            break;
        case QUILL_NYX_REQUEST_TYPE_LOCK:
            lock(named_store(request.lock.target, "target"), session);
            break;
        case QUILL_NYX_REQUEST_TYPE_UNLOCK:
            unlock(named_store(request.unlock.target, "target"), session);
            break;
        case QUILL_NYX_REQUEST_TYPE_VALIDATE:
            validate_config(request.validate);
            break;
        case QUILL_NYX_REQUEST_TYPE_COMMIT:
            commit(request.commit, session);
            break;
        case QUILL_NYX_REQUEST_TYPE_DISCARD_CHANGES:
            discard_changes(session);
            break;
        case QUILL_NYX_REQUEST_TYPE_INVOKE_RPC:
            return carry_out_trial(read_tree(request.invoke_rpc.tree));
        default:
            return me_not_supported;
    }
    return 0;
}

void back_end::read(const node &content, const quill_nyx_filter &filter, bool filtered, const call &now) {
    if (filtered && filter.uint32_1 != filter_subtree) {
        throw bad_attribute("type", "filter");
    }
    dump(now.under_way,
         now.reply.return_data(filtered ? apply_subtree_filter(read_tree(filter.tree), content) : content),
         "data of the reply");
}

void back_end::check_writable(store which, uint32_t session) const {
    const uint32_t holder = stores_.lock_holder(which);
    if (holder != 0 && holder != session) {
        throw in_use();
    }
}

void back_end::edit_config(const quill_nyx_edit_config &body, const call &now) {
    const store which = named_store(body.target, "target");
    if (which == store::startup) {
        throw custom_failure("target", "The startup configuration can only be copied to.");
    }
    check_writable(which, now.session.session_id);
    if (!body.has_config) {
        throw missing_element("config");
    }
    node content = stores_.content(which);
    const bool keep_going = body.has_uint32_4 && body.uint32_4 == error_continue;
    const auto by_default = body.has_uint32_2 ? static_cast<default_operation>(body.uint32_2) : default_merge;
    const auto failures = edit(content, content_of(body.config), by_default, keep_going);
    const uint32_t test = body.has_uint32_3 ? body.uint32_3 : uint32_t{test_then_set};
    if (test != test_set) {
        validate(content);
    }
    if (!failures.empty()) {  // before anything is changed: there may be no memory for them
        now.reply.return_failures(failures, now.under_way, &now.session);
    }
    if (test != test_only) {
        stores_.replace(which, std::move(content));
    }
}

void back_end::copy_config(const quill_nyx_copy_config &body, uint32_t session) {
    if (body.has_string_2 || body.has_string_4) {
        throw not_supported("Configurations cannot be copied from or to a URL.");
    }
    const store target = named_store(body.target, "target");
    check_writable(target, session);
    if (body.has_config) {
        node content = content_of(body.config);
        validate(content);
        return stores_.replace(target, std::move(content));
    }
    const store source = named_store(body.source, "source");
    if (source == target) {
        throw simple_failure(NYX_ERROR_TYPE_APPLICATION, "invalid-value", "Source and target are the same datastore.");
    }
    stores_.replace(target, stores_.content(source));
}

/* The request carries no target: the startup configuration is the only one that can be deleted. */
void back_end::delete_config(uint32_t session) {
    check_writable(store::startup, session);
    stores_.replace(store::startup, node());
}

void back_end::validate_config(const quill_nyx_validate &body) const {
    if (body.has_config) {
        validate(content_of(body.config));
    } else {
        validate(stores_.content(named_store(body.source, "source")));
    }
}

void back_end::lock(store which, uint32_t session) {
    if (const uint32_t holder = stores_.lock_holder(which)) {
        throw lock_denied(holder, "Lock failed, lock is already held");
    }
    if (which == store::candidate && stores_.candidate_is_changed()) {
        throw lock_denied(0, "Lock failed, the candidate has changes that are neither committed nor discarded");
    }
    stores_.lock(which, session);
}

void back_end::unlock(store which, uint32_t session) {
    if (stores_.lock_holder(which) != session) {
        throw simple_failure(NYX_ERROR_TYPE_APPLICATION, "operation-failed", "This session does not hold the lock.");
    }
    stores_.unlock(which);
}

void back_end::commit(const quill_nyx_commit &body, uint32_t session) {
    if (body.has_uint32_1 || body.has_uint32_2 || body.has_string_3 || body.has_string_4) {
        throw not_supported("Confirmed commits are not supported.");
    }
    check_writable(store::running, session);
    check_writable(store::candidate, session);
    validate(stores_.content(store::candidate));
    stores_.commit();
}

void back_end::discard_changes(uint32_t session) {
    check_writable(store::candidate, session);
    stores_.discard();
}

}  // namespace request_path
