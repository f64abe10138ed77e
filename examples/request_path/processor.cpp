#include "processor.h"

#include <quill_nyx.h>

#include <csignal>
#include <optional>
#include <ostream>
#include <string>

#include "arena.h"
#include "checks.h"
#include "datastore.h"
#include "edit.h"
#include "filter.h"
#include "log.h"
#include "records.h"
#include "request_numbers.h"
#include "tree_print.h"

namespace request_path {

namespace {

/* What a request is answered with: a response when there is data to return or when there are several errors,
 * otherwise a request result. */
struct answer {
    owned_result result;
    owned_response response;
    bool is_response = false;

    void return_data(node data) {
        data.name = "data";
        data.name_space = netconf_namespace;
        write_tree(response.record.tree, data);
        response.record.has_tree = 1;
        is_response = true;
    }

    void return_failures(const std::vector<rpc_failure> &failures) {
        response.record.errors = make_records<quill_nyx_error>(failures.size());
        response.record.errors_count = static_cast<uint32_t>(failures.size());
        response.record.has_errors = 1;
        for (size_t i = 0; i < failures.size(); ++i) {
            set_error(response.record.errors[i], failures[i]);
        }
        is_response = true;
    }
};

message encode(const answer &reply) {
    message outgoing;
    if (reply.is_response) {
        const quill_nyx_response &record = reply.response.record;
        outgoing.kind = message_kind::response;
        outgoing.bytes.resize(quill_nyx_response_encode_ext(&record, nullptr, 0, nullptr, nullptr, 0));
        quill_nyx_response_encode_ext(&record, outgoing.bytes.data(), outgoing.bytes.size(), nullptr, nullptr, 0);
    } else {
        const quill_nyx_request_result &record = reply.result.record;
        outgoing.kind = message_kind::request_result;
        outgoing.bytes.resize(quill_nyx_request_result_encode_ext(&record, nullptr, 0, nullptr, nullptr, 0));
        quill_nyx_request_result_encode_ext(&record, outgoing.bytes.data(), outgoing.bytes.size(), nullptr, nullptr, 0);
    }
    return outgoing;
}

rpc_failure in_use() {
    return simple_failure(error_application, "in-use", "Another session holds the lock of the datastore.");
}

rpc_failure not_supported(const char *message) {
    return simple_failure(error_protocol, "operation-not-supported", message);
}

rpc_failure lock_denied(uint32_t holder, const char *message) {
    rpc_failure failure = simple_failure(error_protocol, "lock-denied", message);
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

/* The operations. Each either does the whole of what it is asked to or throws an rpc_failure and changes nothing. */
class processor {
  public:
    explicit processor(nyx_api_ctx &api) : api_(api) {}

    void handle(const nyx_request_ctx &under_way, answer &reply);

  private:
    uint32_t carry_out(const quill_nyx_request &request, answer &reply);
    void dispatch(const quill_nyx_request &request, uint32_t session, answer &reply);
    uint32_t start_session(answer &reply);
    void stop_session(const quill_nyx_stop_session &body, uint32_t session);
    static void read(const node &content, const quill_nyx_filter &filter, bool filtered, answer &reply);
    void edit_config(const quill_nyx_edit_config &body, uint32_t session, answer &reply);
    void copy_config(const quill_nyx_copy_config &body, uint32_t session);
    void delete_config(uint32_t session);
    void validate_config(const quill_nyx_validate &body);
    void lock(store which, uint32_t session);
    void unlock(store which, uint32_t session);
    void commit(const quill_nyx_commit &body, uint32_t session);
    void discard_changes(uint32_t session);
    void check_writable(store which, uint32_t session) const;

    nyx_api_ctx &api_;
    datastores stores_;
};

void processor::handle(const nyx_request_ctx &under_way, answer &reply) {
    try {
        const uint32_t session = carry_out(*under_way.request, reply);
        set_success(reply.result.record);
        LOG_REQUEST(DBG, ME, under_way, nyx_session_find(&api_, session), "%s of session-id=%u is done",
                    nyx_debug_op_name(under_way.request->type), session);
    } catch (const rpc_failure &failure) {
        set_failure(reply.result.record, failure);
        const uint32_t session = under_way.request->session_id;
        LOG_REQUEST(WRN, ME, under_way, nyx_session_find(&api_, session), "%s of session-id=%u is refused: %s: %s",
                    nyx_debug_op_name(log_operation(under_way)), session, failure.tag.c_str(), failure.message.c_str());
    }
}

/* @return the session's id; the session itself may have ended */
uint32_t processor::carry_out(const quill_nyx_request &request, answer &reply) {
    check_message_id(request);
    if (request.has_type && request.type == QUILL_NYX_REQUEST_TYPE_START_SESSION) {
        return start_session(reply);
    }
    const uint32_t session = check_session_id(request, api_).session_id;
    dispatch(request, session, reply);
    return session;
}

void processor::dispatch(const quill_nyx_request &request, uint32_t session, answer &reply) {
    if (!request.has_type) {
        throw simple_failure(error_rpc, "malformed-message", "The request names no operation.");
    }
    switch (request.type) {
        case QUILL_NYX_REQUEST_TYPE_GET_CONFIG:
            return read(stores_.content(named_store(request.get_config.source, "source")), request.get_config.filter,
                        request.get_config.has_filter, reply);
        case QUILL_NYX_REQUEST_TYPE_GET:  // there is no state data here, so that it reads the running configuration
            return read(stores_.content(store::running), request.get.filter, request.get.has_filter, reply);
        case QUILL_NYX_REQUEST_TYPE_EDIT_CONFIG:
            return edit_config(request.edit_config, session, reply);
        case QUILL_NYX_REQUEST_TYPE_COPY_CONFIG:
            return copy_config(request.copy_config, session);
        case QUILL_NYX_REQUEST_TYPE_DELETE_CONFIG:
            return delete_config(session);
        case QUILL_NYX_REQUEST_TYPE_LOCK:
            return lock(named_store(request.lock.target, "target"), session);
        case QUILL_NYX_REQUEST_TYPE_UNLOCK:
            return unlock(named_store(request.unlock.target, "target"), session);
        case QUILL_NYX_REQUEST_TYPE_VALIDATE:
            return validate_config(request.validate);
        case QUILL_NYX_REQUEST_TYPE_COMMIT:
            return commit(request.commit, session);
        case QUILL_NYX_REQUEST_TYPE_DISCARD_CHANGES:
            return discard_changes(session);
        case QUILL_NYX_REQUEST_TYPE_STOP_SESSION:
            return stop_session(request.stop_session, session);
        default:
            throw not_supported("The operation is not supported.");
    }
}

uint32_t processor::start_session(answer &reply) {
    const nyx_session_ctx *const session = nyx_session_create(&api_);
    if (session == nullptr) {
        throw simple_failure(error_application, "resource-denied", "No session can be opened.");
    }
    reply.result.record.uint32_2 = session->session_id;
    reply.result.record.has_uint32_2 = 1;
    return session->session_id;
}

void processor::stop_session(const quill_nyx_stop_session &body, uint32_t session) {
    const uint32_t ended = body.has_uint32_1 ? body.uint32_1 : session;
    nyx_session_ctx *const found = nyx_session_find(&api_, ended);
    if (found == nullptr || (body.has_uint32_1 && ended == session)) {
        throw simple_failure(error_application, "invalid-value", "The session to kill is this one or none.");
    }
    stores_.forget_session(ended);
    nyx_session_destroy(&api_, found);
}

void processor::read(const node &content, const quill_nyx_filter &filter, bool filtered, answer &reply) {
    if (!filtered) {
        return reply.return_data(content);
    }
    if (filter.uint32_1 != filter_subtree) {
        throw bad_attribute("type", "filter");
    }
    reply.return_data(apply_subtree_filter(read_tree(filter.tree), content));
}

void processor::check_writable(store which, uint32_t session) const {
    const uint32_t holder = stores_.lock_holder(which);
    if (holder != 0 && holder != session) {
        throw in_use();
    }
}

void processor::edit_config(const quill_nyx_edit_config &body, uint32_t session, answer &reply) {
    const store which = named_store(body.target, "target");
    if (which == store::startup) {
        throw simple_failure(error_application, "invalid-value", "The startup configuration can only be copied to.");
    }
    check_writable(which, session);
    if (!body.has_config) {
        throw missing_element("config");
    }
    node content = stores_.content(which);
    const bool keep_going = body.has_uint32_4 && body.uint32_4 == error_continue;
    const auto by_default = body.has_uint32_2 ? static_cast<default_operation>(body.uint32_2) : default_merge;
    const auto failures = edit(content, read_tree(body.config), by_default, keep_going);
    const uint32_t test = body.has_uint32_3 ? body.uint32_3 : uint32_t{test_then_set};
    if (test != test_set) {
        validate(content);
    }
    if (test != test_only) {
        stores_.replace(which, std::move(content));
    }
    if (!failures.empty()) {
        reply.return_failures(failures);
    }
}

/* A tree as it came from the agent, as a datastore's content. */
node content_of(const quill_nyx_datatree &config) {
    node content = read_tree(config);
    content.name.clear();
    content.name_space.clear();
    content.attributes.clear();
    return content;
}

void processor::copy_config(const quill_nyx_copy_config &body, uint32_t session) {
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
        throw simple_failure(error_application, "invalid-value", "Source and target are the same datastore.");
    }
    stores_.replace(target, stores_.content(source));
}

/* The request carries no target: the startup configuration is the only one that can be deleted. */
void processor::delete_config(uint32_t session) {
    check_writable(store::startup, session);
    stores_.replace(store::startup, node());
}

void processor::validate_config(const quill_nyx_validate &body) {
    if (body.has_config) {
        validate(content_of(body.config));
    } else {
        validate(stores_.content(named_store(body.source, "source")));
    }
}

void processor::lock(store which, uint32_t session) {
    if (const uint32_t holder = stores_.lock_holder(which)) {
        throw lock_denied(holder, "Lock failed, lock is already held");
    }
    if (which == store::candidate && stores_.candidate_is_changed()) {
        throw lock_denied(0, "Lock failed, the candidate has changes that are neither committed nor discarded");
    }
    stores_.lock(which, session);
}

void processor::unlock(store which, uint32_t session) {
    if (stores_.lock_holder(which) != session) {
        throw simple_failure(error_application, "operation-failed", "This session does not hold the lock.");
    }
    stores_.unlock(which);
}

void processor::commit(const quill_nyx_commit &body, uint32_t session) {
    if (body.has_uint32_1 || body.has_uint32_2 || body.has_string_3 || body.has_string_4) {
        throw not_supported("Confirmed commits are not supported.");
    }
    check_writable(store::running, session);
    check_writable(store::candidate, session);
    validate(stores_.content(store::candidate));
    stores_.commit();
}

void processor::discard_changes(uint32_t session) {
    check_writable(store::candidate, session);
    stores_.discard();
}

rpc_failure decoding_failure(int32_t code) {
    if (code == QUILL_DECODE_NO_MEMORY) {
        return simple_failure(error_application, "resource-denied",
                              "The request takes more memory than a request is granted.");
    }
    return simple_failure(error_rpc, "malformed-message", "The request cannot be decoded.");
}

void fail_on_purpose(uint64_t request_number, const processor_settings &settings) {
    if (request_number == settings.die_at) {
        std::raise(SIGKILL);
    }
    if (request_number == settings.stall_at) {
        std::raise(SIGSTOP);
    }
}

/* The budget being exhausted is what this process knows of memory pressure. It lasts until a request fits again. */
void note_memory_state(const nyx_request_ctx &under_way, bool is_short) {
    if (is_short && nyx_util_is_mem_usage_normal() != 0) {
        nyx_util_set_mem_state(1);
        LOG_REQUEST(WRN, NYX, under_way, nullptr, "memory pressure: a request takes more than its budget");
    } else if (!is_short && nyx_util_is_mem_usage_normal() == 0) {
        nyx_util_set_mem_state(0);
        LOG_REQUEST(DBG, NYX, under_way, nullptr, "memory usage is normal again");
    }
}

void answer_request(processor &work, nyx_api_ctx &api, const message &incoming, examples::arena &memory,
                    std::ostream *verbose, answer &reply) {
    quill_nyx_request request;
    const nyx_request_ctx under_way{&api, &request};
    const int32_t code = quill_nyx_request_decode_ext(&request, incoming.bytes.data(), incoming.bytes.size(),
                                                      examples::arena::allocate, &memory, 0);
    note_memory_state(under_way, code == QUILL_DECODE_NO_MEMORY);
    if (code != 0) {
        LOG_REQUEST(WRN, NYX, under_way, nullptr, "%zu bytes cannot be decoded, result %d", incoming.bytes.size(),
                    code);
        return set_failure(reply.result.record, decoding_failure(code));
    }
    LOG_REQUEST(TRC, NYX, under_way, nullptr, "%zu bytes arrived and take %llu bytes of memory", incoming.bytes.size(),
                static_cast<unsigned long long>(memory.used()));
    if (verbose != nullptr) {
        *verbose << "processor: a request of " << incoming.bytes.size() << " bytes arrived; decoded, it takes "
                 << sizeof request << " bytes and " << memory.used() << " more in the arena\n";
        print_request(*verbose, request);
    }
    work.handle(under_way, reply);
}

void send_answer(connection &agent, const answer &reply, const processor_settings &settings) {
    message outgoing = encode(reply);
    if (outgoing.bytes.size() > settings.longest_message) {
        answer instead;
        set_failure(instead.result.record, simple_failure(error_application, "too-big", "The reply is too long."));
        outgoing = encode(instead);
    }
    if (settings.verbose != nullptr) {
        *settings.verbose << "processor: answers with a "
                          << (outgoing.kind == message_kind::response ? "response" : "request result") << " of "
                          << outgoing.bytes.size() << " bytes\n";
    }
    agent.send(outgoing);
}

}  // namespace

void serve(connection &agent, nyx_api_ctx &api, const processor_settings &settings) {
    processor work(api);
    examples::arena memory(settings.memory_budget);
    message incoming;
    for (uint64_t number = 1;; ++number) {
        const receive_status status = agent.receive(incoming, settings.longest_message);
        if (status == receive_status::closed) {
            return;
        }
        fail_on_purpose(number, settings);
        answer reply;
        if (status == receive_status::too_long) {
            set_failure(reply.result.record, simple_failure(error_rpc, "too-big", "The request is too long."));
        } else if (incoming.kind != message_kind::request) {
            throw conversation_error("a message that is not a request");
        } else {
            answer_request(work, api, incoming, memory, settings.verbose, reply);
        }
        memory.reset();
        send_answer(agent, reply, settings);
    }
}

}  // namespace request_path
