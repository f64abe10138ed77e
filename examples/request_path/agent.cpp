#include "agent.h"

#include <quill_nyx.h>

#include <new>
#include <ostream>
#include <string>
#include <utility>

#include "failure.h"
#include "log.h"
#include "reply_xml.h"
#include "request_xml.h"
#include "xml.h"

namespace request_path {

namespace {

constexpr std::string_view end_of_message = "]]>]]>";

message encode(const quill_nyx_request &request) {
    message outgoing;
    outgoing.kind = message_kind::request;
    outgoing.bytes.resize(quill_nyx_request_encode_ext(&request, nullptr, 0, nullptr, nullptr, 0));
    quill_nyx_request_encode_ext(&request, outgoing.bytes.data(), outgoing.bytes.size(), nullptr, nullptr, 0);
    return outgoing;
}

/* The processor is this program's own: its replies need no memory budget. */
void decode(const message &reply, owned_result &result) {
    if (quill_nyx_request_result_decode_ext(&result.record, reply.bytes.data(), reply.bytes.size(), nyx_gpb_alloc,
                                            nullptr, 0) != 0) {
        throw conversation_error("the processor's reply cannot be decoded");
    }
}

void decode(const message &reply, owned_response &response) {
    if (quill_nyx_response_decode_ext(&response.record, reply.bytes.data(), reply.bytes.size(), nyx_gpb_alloc, nullptr,
                                      0) != 0) {
        throw conversation_error("the processor's reply cannot be decoded");
    }
}

/* The failure of a request that the client does not know of. */
rpc_failure failure_of(const quill_nyx_error &error) {
    if (error.error_tag == nullptr) {
        throw std::bad_alloc();
    }
    return simple_failure(error.error_type, error.error_tag,
                          error.error_message.text == nullptr ? "" : error.error_message.text);
}

xmlNode *rpc_element(const xml_document &document) {
    xmlNode *root = xmlDocGetRootElement(document.get());
    if (!is_netconf(root, "rpc")) {
        throw unknown_element(local_name(root));
    }
    return root;
}

}  // namespace

std::vector<std::string_view> split_messages(std::string_view text) {
    std::vector<std::string_view> messages;
    while (!trimmed(text).empty()) {
        const size_t end = text.find(end_of_message);
        if (const std::string_view one = trimmed(text.substr(0, end)); !one.empty()) {
            messages.push_back(one);
        }
        text = end == std::string_view::npos ? std::string_view() : text.substr(end + end_of_message.size());
    }
    return messages;
}

bool agent::handle(std::string_view text, const speaker &from) {
    bool succeeded = true;
    for (const std::string_view one : split_messages(text)) {
        succeeded = handle_one(one, from) && succeeded;
    }
    return succeeded;
}

bool agent::handle_one(std::string_view text, const speaker &from) {
    xml_document document;
    owned_request request;
    owned_result result;
    nyx_request_ctx under_way{&api_, &request.record};
    try {
        document = parse_xml(text);
        xmlNode *const rpc = rpc_element(document);
        const std::optional<uint32_t> id = session_id(from);
        read_request(rpc, request.record);
        address(request.record, id);
        const message reply = ask(under_way, std::exchange(cut_after_, std::nullopt));
        if (reply.kind == message_kind::response) {
            return print_response(xmlDocGetRootElement(document.get()), reply);
        }
        take_result(request.record, reply, result);
    } catch (const rpc_failure &failure) {
        write_failure(failure, under_way, nullptr, result.record);
        const quill_nyx_error &error = result.record.error;
        LOG_REQUEST(WRN, NYX, under_way, nullptr, "not sent: %s", error.error_tag == nullptr ? "?" : error.error_tag);
    } catch (const std::bad_alloc &) {
        nyx_nomem_error_set(&result.record);
    }
    print(write_reply(document == nullptr ? nullptr : xmlDocGetRootElement(document.get()), result.record));
    return result.record.uint32_1 != 0;
}

std::optional<uint32_t> agent::session_id(const speaker &from) {
    switch (from.kind) {
        case speaker_kind::session:
            break;
        case speaker_kind::none:
            return std::nullopt;
        case speaker_kind::zero:
            return no_session;
        case speaker_kind::unknown:
            return sessions_.unknown_id();
    }
    const auto known = sessions_.id_of(from.session);
    return known ? *known : open_session(from.session);
}

/* A session is opened once: after its end, its requests are refused. When it cannot be opened, the reason is the answer
 * to the rpc, and the next one tries again. */
uint32_t agent::open_session(uint32_t session) {
    owned_request request;
    request.record.type = QUILL_NYX_REQUEST_TYPE_START_SESSION;
    request.record.has_type = 1;
    request.record.message_id = copy_string("start");
    request.record.has_message_id = 1;
    request.record.has_start_session = 1;
    const nyx_request_ctx under_way{&api_, &request.record};
    owned_result result;
    decode(ask(under_way, std::nullopt), result);
    if (result.record.uint32_1 == 0) {
        throw failure_of(result.record.error);
    }
    if (!result.record.has_uint32_2) {
        throw conversation_error("the processor opens a session without an id");
    }
    const uint32_t id = result.record.uint32_2;
    LOG_REQUEST(DBG, NYX, under_way, nullptr, "session %u is session-id=%u of the processor", session, id);
    sessions_.open(session, id);
    return id;
}

/* Numbers of sessions become ids. The processor refuses what has none, as it refuses every unknown session. */
void agent::address(quill_nyx_request &request, std::optional<uint32_t> id) const {
    request.session_id = id.value_or(no_session);
    request.has_session_id = id.has_value();
    if (request.stop_session.has_uint32_1) {
        request.stop_session.uint32_1 = sessions_.id_of(request.stop_session.uint32_1).value_or(no_session);
    }
}

message agent::ask(const nyx_request_ctx &under_way, std::optional<uint64_t> cut_after) {
    const message outgoing = encode(*under_way.request);
    LOG_REQUEST(TRC, NYX, under_way, nullptr, "sends %zu bytes", outgoing.bytes.size());
    processor_.send(outgoing, cut_after);
    message reply;
    if (processor_.receive(reply, UINT32_MAX) != receive_status::complete) {
        throw conversation_error("the processor closed the connection without a reply");
    }
    LOG_REQUEST(TRC, NYX, under_way, nullptr, "is answered with %zu bytes", reply.bytes.size());
    return reply;
}

bool agent::print_response(const xmlNode *rpc, const message &reply) {
    owned_response response;
    decode(reply, response);
    for (uint32_t i = 0; i < response.record.errors_count; ++i) {
        name_sessions(response.record.errors[i], sessions_);
    }
    print(write_reply(rpc, response.record));
    return response.record.errors_count == 0;
}

void agent::take_result(const quill_nyx_request &request, const message &reply, owned_result &result) {
    decode(reply, result);
    name_sessions(result.record.error, sessions_);
    if (request.has_stop_session && result.record.uint32_1 != 0) {
        sessions_.close(request.stop_session.has_uint32_1 ? request.stop_session.uint32_1 : request.session_id);
    }
}

void agent::print(const std::string &reply) {
    if (printed_) {
        replies_ << end_of_message << '\n';
    }
    printed_ = true;
    replies_ << reply << std::flush;
}

}  // namespace request_path
