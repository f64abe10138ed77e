#include "processor.h"

#include <quill_nyx.h>

#include <csignal>
#include <optional>
#include <ostream>

#include "answer.h"
#include "arena.h"
#include "back_end.h"
#include "log.h"
#include "request_numbers.h"
#include "tree_print.h"

namespace request_path {

namespace {

/* What the framework does with each request: the checks, the sessions, and the result of the back end's work. */
class processor {
  public:
    explicit processor(nyx_api_ctx &api) : api_(api) {}

    void handle(nyx_request_ctx &under_way, answer &reply);

  private:
    rcode carry_out(nyx_request_ctx &under_way, nyx_session_ctx *&session, answer &reply);
    rcode start_session(nyx_session_ctx *&session, answer &reply);
    rcode stop_session(nyx_request_ctx &under_way, nyx_session_ctx *&session, answer &reply);

    nyx_api_ctx &api_;
    back_end back_end_;
};

bool starts_session(const quill_nyx_request &request) {
    return request.has_type && request.type == QUILL_NYX_REQUEST_TYPE_START_SESSION;
}

void processor::handle(nyx_request_ctx &under_way, answer &reply) {
    quill_nyx_request_result &result = reply.result();
    nyx_session_ctx *session = nullptr;
    rcode code = nyx_req_message_id_check(&under_way, nullptr, &result);
    if (code == 0 && !starts_session(*under_way.request)) {
        code = nyx_req_session_id_lookup(&under_way, &result, &session);
    }
    if (code == 0) {
        const rcode done = carry_out(under_way, session, reply);
        code = reply.is_failure() ? NYX_RC_REQUEST_FAILED
                                  : nyx_me_request_result_check(&under_way, session, &result, done);
    }
    if (code == NYX_RC_NO_MEMORY) {  // half an error is none
        nyx_nomem_error_set(&result);
    }
}

/* @param session  null for a request that starts one; afterwards the session that there is now, if any */
rcode processor::carry_out(nyx_request_ctx &under_way, nyx_session_ctx *&session, answer &reply) {
    if (session == nullptr) {
        return start_session(session, reply);
    }
    if (under_way.request->has_type && under_way.request->type == QUILL_NYX_REQUEST_TYPE_STOP_SESSION) {
        return stop_session(under_way, session, reply);
    }
    return back_end_.carry_out(under_way, *session, reply);
}

rcode processor::start_session(nyx_session_ctx *&session, answer &reply) {
    session = nyx_session_create(&api_);
    if (session == nullptr) {
        return me_resource_denied;
    }
    reply.result().uint32_2 = session->session_id;
    reply.result().has_uint32_2 = 1;
    return 0;
}

/* A session can close itself, and kill any other one. */
rcode processor::stop_session(nyx_request_ctx &under_way, nyx_session_ctx *&session, answer &reply) {
    const quill_nyx_stop_session &body = under_way.request->stop_session;
    nyx_session_ctx *const ended = body.has_uint32_1 ? nyx_session_find(&api_, body.uint32_1) : session;
    if (ended == nullptr || (body.has_uint32_1 && ended == session)) {
        write_failure(
            simple_failure(NYX_ERROR_TYPE_APPLICATION, "invalid-value", "The session to kill is this one or none."),
            under_way, session, reply.result());
        return NYX_RC_REQUEST_FAILED;
    }
    back_end_.forget_session(ended->session_id);
    LOG_REQUEST(DBG, NYX, under_way, session, "session-id=%u ends", ended->session_id);
    if (ended == session) {
        session = nullptr;
    }
    nyx_session_destroy(&api_, ended);
    return 0;
}

/* The budget being exhausted is what this process notices itself of memory pressure. It lasts until a request fits
 * again; pressure that was ordered is not its own to end. */
void note_memory_state(const nyx_request_ctx &under_way, bool is_short) {
    if (is_short && nyx_util_is_mem_usage_normal() != 0) {
        nyx_util_set_mem_state(pressure_of_request);
        LOG_REQUEST(WRN, NYX, under_way, nullptr, "memory pressure: a request takes more than its budget");
    } else if (!is_short && nyx_util_mem_state == pressure_of_request) {
        nyx_util_set_mem_state(no_pressure);
        LOG_REQUEST(DBG, NYX, under_way, nullptr, "memory usage is normal again");
    }
}

rpc_failure decoding_failure(int32_t code) {
    if (code == QUILL_DECODE_NO_MEMORY) {
        return simple_failure(NYX_ERROR_TYPE_APPLICATION, "resource-denied",
                              "The request takes more memory than a request is granted.");
    }
    return simple_failure(NYX_ERROR_TYPE_RPC, "malformed-message", "The request cannot be decoded.");
}

void fail_on_purpose(uint64_t request_number, const processor_settings &settings) {
    if (request_number == settings.die_at) {
        std::raise(SIGKILL);
    }
    if (request_number == settings.stall_at) {
        std::raise(SIGSTOP);
    }
}

void answer_request(processor &work, nyx_api_ctx &api, const message &incoming, examples::arena &memory,
                    std::ostream *verbose, answer &reply) {
    quill_nyx_request request;
    nyx_request_ctx under_way{&api, &request};
    const int32_t code = quill_nyx_request_decode_ext(&request, incoming.bytes.data(), incoming.bytes.size(),
                                                      examples::arena::allocate, &memory, 0);
    if (code != 0) {
        LOG_REQUEST(WRN, NYX, under_way, nullptr, "%zu bytes cannot be decoded, result %d", incoming.bytes.size(),
                    code);
        write_failure(decoding_failure(code), under_way, nullptr, reply.result());
    }
    note_memory_state(under_way, code == QUILL_DECODE_NO_MEMORY);  // from now on, no text is copied
    if (code != 0) {
        return;
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

/* A failure that is found outside of a request that was decoded. */
void fail_for_size(nyx_api_ctx &api, uint32_t type, const char *message, answer &reply) {
    quill_nyx_request nothing{};
    nyx_request_ctx under_way{&api, &nothing};
    write_failure(simple_failure(type, "too-big", message), under_way, nullptr, reply.result());
}

void send_answer(connection &agent, nyx_api_ctx &api, const answer &reply, const processor_settings &settings) {
    message outgoing = reply.encode();
    if (outgoing.bytes.size() > settings.longest_message) {
        answer instead;
        fail_for_size(api, NYX_ERROR_TYPE_APPLICATION, "The reply is too long.", instead);
        outgoing = instead.encode();
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
            fail_for_size(api, NYX_ERROR_TYPE_RPC, "The request is too long.", reply);
        } else if (incoming.kind != message_kind::request) {
            throw conversation_error("a message that is not a request");
        } else {
            answer_request(work, api, incoming, memory, settings.verbose, reply);
        }
        memory.reset();
        send_answer(agent, api, reply, settings);
    }
}

}  // namespace request_path
