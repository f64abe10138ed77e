// What tests need to talk with the example's processor, without the agent between them.
#ifndef TESTS_EXAMPLES_CONVERSATION_H
#define TESTS_EXAMPLES_CONVERSATION_H

#include <gtest/gtest.h>
#include <libxml/xmlschemas.h>

#include <memory>
#include <optional>
#include <string>

#include "records.h"
#include "reply_xml.h"
#include "request_xml.h"
#include "wire.h"
#include "xml.h"

namespace request_path {

/** @return an rpc element as the agent sends it, for a session or for none */
inline message request_of(const std::string &rpc, std::optional<uint32_t> session) {
    const xml_document document = parse_xml(rpc);
    owned_request request;
    read_request(xmlDocGetRootElement(document.get()), request.record);
    request.record.has_session_id = session.has_value();
    request.record.session_id = session.value_or(0);
    message outgoing;
    outgoing.bytes.resize(quill_nyx_request_encode_ext(&request.record, nullptr, 0, nullptr, nullptr, 0));
    quill_nyx_request_encode_ext(&request.record, outgoing.bytes.data(), outgoing.bytes.size(), nullptr, nullptr, 0);
    return outgoing;
}

/** @return what the agent prints */
inline std::string as_xml(const message &reply, const xmlNode *rpc = nullptr) {
    if (reply.kind == message_kind::response) {
        owned_response response;
        EXPECT_EQ(quill_nyx_response_decode_ext(&response.record, reply.bytes.data(), reply.bytes.size(), nyx_gpb_alloc,
                                                nullptr, 0),
                  0);
        return write_reply(rpc, response.record);
    }
    owned_result result;
    EXPECT_EQ(quill_nyx_request_result_decode_ext(&result.record, reply.bytes.data(), reply.bytes.size(), nyx_gpb_alloc,
                                                  nullptr, 0),
              0);
    return write_reply(rpc, result.record);
}

/** @return whether it keeps to NETCONF's schema */
inline bool is_valid_reply(const std::string &reply) {
    const std::unique_ptr<xmlSchemaParserCtxt, decltype(&xmlSchemaFreeParserCtxt)> parser(
        xmlSchemaNewParserCtxt(SCHEMA), xmlSchemaFreeParserCtxt);
    const std::unique_ptr<xmlSchema, decltype(&xmlSchemaFree)> schema(xmlSchemaParse(parser.get()), xmlSchemaFree);
    const std::unique_ptr<xmlSchemaValidCtxt, decltype(&xmlSchemaFreeValidCtxt)> validator(
        xmlSchemaNewValidCtxt(schema.get()), xmlSchemaFreeValidCtxt);
    return xmlSchemaValidateDoc(validator.get(), parse_xml(reply).get()) == 0;
}

}  // namespace request_path

#endif
