#include "agent.h"

#include <quill_nyx.h>

#include <ostream>
#include <string>
#include <utility>

#include "checks.h"
#include "records.h"
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

message exchange(connection &processor, const quill_nyx_request &request, std::optional<uint64_t> cut_after) {
    processor.send(encode(request), cut_after);
    message reply;
    switch (processor.receive(reply, UINT32_MAX)) {
        case receive_status::complete:
            return reply;
        default:
            throw conversation_error("the processor closed the connection without a reply");
    }
}

/* The processor is this program's own: its replies need no memory budget. */
void decode(const message &reply, owned_result &result) {
    if (quill_nyx_request_result_decode_ext(&result.record, reply.bytes.data(), reply.bytes.size(), take_block, nullptr,
                                            0) != 0) {
        throw conversation_error("the processor's reply cannot be decoded");
    }
}

void decode(const message &reply, owned_response &response) {
    if (quill_nyx_response_decode_ext(&response.record, reply.bytes.data(), reply.bytes.size(), take_block, nullptr,
                                      0) != 0) {
        throw conversation_error("the processor's reply cannot be decoded");
    }
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

bool agent::handle(std::string_view text, uint32_t session) {
    bool succeeded = true;
    for (const std::string_view one : split_messages(text)) {
        succeeded = handle_one(one, session) && succeeded;
    }
    return succeeded;
}

bool agent::handle_one(std::string_view text, uint32_t session) {
    const uint32_t id = session_id(session);
    xml_document document;
    owned_result result;
    try {
        document = parse_xml(text);
        owned_request request;
        read_request(rpc_element(document), request.record);
        request.record.session_id = id;
        request.record.has_session_id = 1;
        const message reply = exchange(processor_, request.record, std::exchange(cut_after_, std::nullopt));
        if (reply.kind == message_kind::response) {
            owned_response response;
            decode(reply, response);
            print(write_reply(xmlDocGetRootElement(document.get()), response.record));
            return response.record.errors_count == 0;
        }
        decode(reply, result);
    } catch (const rpc_failure &failure) {
        set_failure(result.record, failure);
    }
    print(write_reply(document == nullptr ? nullptr : xmlDocGetRootElement(document.get()), result.record));
    return result.record.uint32_1 != 0;
}

uint32_t agent::session_id(uint32_t session) {
    const auto known = session_ids_.find(session);
    if (known != session_ids_.end()) {
        return known->second;
    }
    owned_request request;
    request.record.type = QUILL_NYX_REQUEST_TYPE_START_SESSION;
    request.record.has_type = 1;
    request.record.message_id = copy_string("start");
    request.record.has_message_id = 1;
    request.record.has_start_session = 1;
    owned_result result;
    decode(exchange(processor_, request.record, std::nullopt), result);
    if (result.record.uint32_1 == 0 || !result.record.has_uint32_2) {
        throw conversation_error("the processor opens no session");
    }
    return session_ids_[session] = result.record.uint32_2;
}

void agent::print(const std::string &reply) {
    if (printed_) {
        replies_ << end_of_message << '\n';
    }
    printed_ = true;
    replies_ << reply << std::flush;
}

}  // namespace request_path
