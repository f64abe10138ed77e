// What stands between the network and the library in the request-path program: framing, request XML and reply XML.
//
// What is asserted:
//  - framing: of any bytes on the socket, whole or cut, what is received is what a reference makes of them: messages,
//    too long ones dropped, the end, or the reason why the conversation is over;
//  - requests: XML is read into a record or refused with an rpc-error, also when an allocation fails, and nothing is
//    left behind; what was read survives encode and decode; the reply to it is well-formed, and the elements in it say
//    what the request's own say, attributes included;
//  - replies: any decoded record can be written; with names and texts that XML can carry the reply is well-formed.
//
// Input: a byte that chooses one of these, and what it is about.
#include <libxml/parser.h>
#include <libxml/parserInternals.h>
#include <libxml/tree.h>
#include <libxml/uri.h>
#include <libxml/xmlerror.h>
#include <sys/socket.h>

#include <new>
#include <optional>
#include <set>
#include <string_view>
#include <vector>

#include "failure.h"
#include "nyx_api_common.h"
#include "platform_stand_in.h"
#include "quill_nyx.h"
#include "records.h"
#include "reply_xml.h"
#include "request_path/records.h"
#include "request_xml.h"
#include "wire.h"
#include "xml.h"

namespace nyx_fuzz {
namespace {

constexpr std::size_t longest_input = 8192;  // a socket's buffer holds it

// -- Framing -------------------------------------------------------------------------------------------------------

struct received {
    std::string what;  // "complete", "too long", "closed", or the text of the exception
    uint8_t kind = 0;
    std::string bytes;

    bool operator==(const received &) const = default;
};

std::string cut_short(std::size_t arrived, std::size_t announced, const char *part) {
    return "message cut short: " + std::to_string(arrived) + " of " + std::to_string(announced) + " bytes of its " +
           part + " arrived";
}

// The next message of a stream that ends behind `stream`. Takes it from there.
received expected_message(std::string_view &stream, uint64_t limit) {
    if (stream.empty()) {
        return {"closed", 0, ""};
    }
    if (stream.size() < 5) {
        return {cut_short(stream.size(), 5, "header"), 0, ""};
    }
    const auto byte = [&](std::size_t i) { return uint32_t{static_cast<uint8_t>(stream[i])}; };
    const auto kind = static_cast<uint8_t>(byte(0));
    if (kind < 1 || kind > 3) {
        return {"a message of unknown kind " + std::to_string(kind), 0, ""};
    }
    const uint32_t length = byte(1) << 24U | byte(2) << 16U | byte(3) << 8U | byte(4);
    stream.remove_prefix(5);
    if (stream.size() < length) {
        return {cut_short(stream.size(), length, "content"), 0, ""};
    }
    const std::string bytes(stream.substr(0, length));
    stream.remove_prefix(length);
    return length > limit ? received{"too long", kind, ""} : received{"complete", kind, bytes};
}

received receive(request_path::connection &from, uint64_t limit) {
    request_path::message incoming;
    try {
        switch (from.receive(incoming, limit)) {
            case request_path::receive_status::complete:
                return {"complete", static_cast<uint8_t>(incoming.kind),
                        std::string(incoming.bytes.begin(), incoming.bytes.end())};
            case request_path::receive_status::too_long:
                return {"too long", static_cast<uint8_t>(incoming.kind), ""};
            default:
                return {"closed", 0, ""};
        }
    } catch (const request_path::conversation_error &broken) {
        return {broken.what(), 0, ""};
    }
}

void receive_messages(input &in) {
    const uint64_t limit = uint64_t{in.byte()} * 8;
    std::string_view stream = in.rest();
    int ends[2];
    REQUIRE(socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0, "socketpair");
    request_path::connection receiver(ends[0]);
    request_path::connection sender(ends[1]);
    REQUIRE(::send(ends[1], stream.data(), stream.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(stream.size()), "send");
    sender.close();
    for (bool goes_on = true; goes_on;) {
        const received expected = expected_message(stream, limit);
        const received real = receive(receiver, limit);
        REQUIRE(real == expected, real.what + " / " + expected.what);
        goes_on = expected.what == "complete" || expected.what == "too long";
    }
}

// -- Requests ------------------------------------------------------------------------------------------------------

std::string text_from(const xmlChar *text) {
    return text == nullptr ? "" : reinterpret_cast<const char *>(text);
}

std::string namespace_from(const xmlNs *ns) {
    return ns == nullptr ? "" : text_from(ns->href);
}

// What an element says as data, out of the document itself.
struct xml_content {
    std::vector<std::string> name_and_value;             // namespace, name, text without white space at its ends
    std::multiset<std::vector<std::string>> attributes;  // namespace, name, value
    std::vector<xml_content> children;

    explicit xml_content(const xmlNode *element) {
        std::string text;
        for (const xmlNode *each = element->children; each != nullptr; each = each->next) {
            if (each->type == XML_ELEMENT_NODE) {
                children.emplace_back(each);
            } else if (each->type == XML_TEXT_NODE || each->type == XML_CDATA_SECTION_NODE) {
                text += text_from(each->content);
            }
        }
        constexpr const char *white_space = " \t\r\n";
        text.erase(0, text.find_first_not_of(white_space));
        text.erase(text.find_last_not_of(white_space) + 1);
        name_and_value = {namespace_from(element->ns), text_from(element->name), text};
        for (const xmlAttr *each = element->properties; each != nullptr; each = each->next) {
            add_attribute(*each, element->doc);
        }
    }

    bool operator==(const xml_content &) const = default;

  private:
    // Those that tell what is to be done with an element, or how to validate it, are no data.
    void add_attribute(const xmlAttr &each, xmlDoc *document) {
        const std::string ns = namespace_from(each.ns);
        const std::string name = text_from(each.name);
        if (ns == "http://www.w3.org/2001/XMLSchema-instance" ||
            (ns == "urn:ietf:params:xml:ns:netconf:base:1.0" && name == "operation")) {
            return;
        }
        xmlChar *const value = xmlNodeListGetString(document, each.children, 1);
        attributes.insert({ns, name, text_from(value)});
        xmlFree(value);
    }
};

request_path::xml_document require_well_formed(const std::string &reply) {
    try {
        return request_path::parse_xml(reply);
    } catch (const request_path::rpc_failure &failure) {
        violated("a well-formed reply", failure.message + '\n' + reply, __LINE__);
    }
}

std::vector<uint8_t> encoded(const quill_nyx_request &request) {
    std::vector<uint8_t> out(quill_nyx_request_encode_ext(&request, nullptr, 0, nullptr, nullptr, 0));
    quill_nyx_request_encode_ext(&request, out.data(), out.size(), nullptr, nullptr, 0);
    return out;
}

void require_survives_the_way(const quill_nyx_request &request) {
    const std::vector<uint8_t> sent = encoded(request);
    request_path::owned_request arrived;
    REQUIRE(quill_nyx_request_decode_ext(&arrived.record, sent.data(), sent.size(), nyx_gpb_alloc, nullptr, 0) == 0,
            "decode");
    REQUIRE(encoded(arrived.record) == sent, "the bytes");
}

// Answers with what an element of a request says.
void require_data_in_reply(xmlNode *rpc, xmlNode *said) {
    request_path::owned_response response;
    request_path::write_tree(response.record.tree,
                             request_path::read_element(said, request_path::edit_operations::taken));
    response.record.has_tree = 1;
    const std::string reply = request_path::write_reply(rpc, response.record);
    const request_path::xml_document document = require_well_formed(reply);
    xmlNode *const element = request_path::element_from(xmlDocGetRootElement(document.get())->children);
    REQUIRE(element != nullptr, reply);
    REQUIRE(xml_content(element) == xml_content(said), reply);
}

void require_failure_in_reply(const xmlNode *rpc, const request_path::rpc_failure &failure) {
    nyx_api_ctx api = {};
    quill_nyx_request nothing = {};
    nyx_request_ctx under_way = {&api, &nothing};
    request_path::owned_result result;
    request_path::write_failure(failure, under_way, nullptr, result.record);
    require_well_formed(request_path::write_reply(rpc, result.record));
}

void answer(xmlNode *rpc) {
    request_path::owned_request request;
    try {
        request_path::read_request(rpc, request.record);
        memory().fail_at(0);
        require_survives_the_way(request.record);
        for (xmlNode *each = request_path::element_from(rpc->children); each != nullptr;
             each = request_path::element_from(each->next)) {
            require_data_in_reply(rpc, each);
        }
    } catch (const request_path::rpc_failure &failure) {
        require_failure_in_reply(rpc, failure);
    } catch (const std::bad_alloc &) {
        request_path::owned_result bare;
        require_well_formed(request_path::write_reply(rpc, bare.record));
    }
}

void read_requests(input &in) {
    const uint64_t failing = in.byte();
    const std::string_view text = in.rest();
    memory().fail_at(failing);
    try {
        const request_path::xml_document document = request_path::parse_xml(text);
        answer(xmlDocGetRootElement(document.get()));
    } catch (const request_path::rpc_failure &failure) {
        require_failure_in_reply(nullptr, failure);
    }
}

// -- Replies -------------------------------------------------------------------------------------------------------

// Takes one character from the front of UTF-8 text. 0: there is none, or it is malformed. (libxml2's own functions take
// sequences for characters that are longer than they need to be, which its parser does not.)
uint32_t take_character(std::string_view &text) {
    if (text.empty()) {
        return 0;
    }
    const auto lead = static_cast<uint8_t>(text.front());
    const std::size_t length = lead < 0x80   ? 1
                               : lead < 0xC2 ? 0
                               : lead < 0xE0 ? 2
                               : lead < 0xF0 ? 3
                               : lead < 0xF8 ? 4
                                             : 0;
    if (length == 0 || length > text.size()) {
        return 0;
    }
    uint32_t character = length == 1 ? lead : lead & (0x7FU >> length);
    for (std::size_t i = 1; i < length; ++i) {
        const auto next = static_cast<uint8_t>(text[i]);
        character = next / 0x40 == 2 ? character << 6U | (next & 0x3FU) : UINT32_MAX >> 1U;
    }
    text.remove_prefix(length);
    constexpr uint32_t least[] = {1, 0x80, 0x800, 0x10000};
    return character < least[length - 1] ? 0 : character;
}

bool is_xml_text(const char *text) {
    for (std::string_view rest = text == nullptr ? "" : text; !rest.empty();) {
        const uint32_t character = take_character(rest);
        if (IS_CHAR(character) == 0) {
            return false;
        }
    }
    return true;
}

bool is_name(const char *text) {
    return text != nullptr && is_xml_text(text) && xmlValidateNCName(reinterpret_cast<const xmlChar *>(text), 0) == 0;
}

// XML takes URIs for namespaces, and keeps two for itself.
bool is_namespace(const char *text) {
    if (text == nullptr || *text == '\0') {
        return true;
    }
    xmlURI *const uri = xmlParseURI(text);
    const bool is_uri = uri != nullptr;
    xmlFreeURI(uri);
    return is_uri && is_xml_text(text) && !std::string_view(text).starts_with("http://www.w3.org/");
}

// Plain names, each once. Prefixes and their declarations may contradict each other: they are the agent's own.
bool are_attributes_fit_for_xml(const quill_nyx_datatree &tree) {
    std::set<std::string_view> names;
    for (uint32_t i = 0; i < tree.attributes_count; ++i) {
        const quill_nyx_attribute &attribute = tree.attributes[i];
        if (!is_name(attribute.key) || std::string_view(attribute.key) == "xmlns" || !is_xml_text(attribute.value) ||
            !names.insert(attribute.key).second) {
            return false;
        }
    }
    return true;
}

bool is_fit_for_xml(const quill_nyx_datatree &tree) {
    bool fits = is_name(tree.name) && is_xml_text(tree.value) && is_namespace(tree.namespace_) &&
                are_attributes_fit_for_xml(tree);
    for (uint32_t i = 0; fits && i < tree.children_count; ++i) {
        fits = is_fit_for_xml(tree.children[i]);
    }
    return fits;
}

// Infos are the library's own: entries without attributes below a node whose name is not written.
bool is_fit_for_xml(const quill_nyx_error &error) {
    bool fits = is_xml_text(error.error_tag) && is_xml_text(error.error_app_tag) &&
                is_xml_text(error.error_message.text) && is_xml_text(error.error_path.value) &&
                error.error_path.attributes_count == 0;
    for (uint32_t i = 0; fits && i < error.error_info.children_count; ++i) {
        fits = is_fit_for_xml(error.error_info.children[i]);
    }
    return fits;
}

bool is_fit_for_xml(const quill_nyx_request_result &result) {
    return is_fit_for_xml(result.error);
}

bool is_fit_for_xml(const quill_nyx_response &response) {
    bool fits = response.has_tree == 0 || is_fit_for_xml(response.tree);
    for (uint32_t i = 0; fits && i < response.errors_count; ++i) {
        fits = is_fit_for_xml(response.errors[i]);
    }
    return fits;
}

template <class Owned, class Decode, class Release>
void write_decoded(Decode decode, Release release, const std::string_view message, const xmlNode *rpc) {
    const exact_copy bytes(reinterpret_cast<const uint8_t *>(message.data()), message.size());
    Owned owner;
    const std::set<void *> before = memory().blocks();
    const bool is_decoded = decode(&owner.record, bytes.get(), message.size(), nyx_gpb_alloc, nullptr, 0) == 0;
    const std::string reply = request_path::write_reply(rpc, owner.record);
    if (is_decoded && is_fit_for_xml(owner.record)) {
        require_well_formed(reply);
    }
    // Blocks of a member's former occurrence are lost, as the codec documents.
    release(&owner.record, nyx_gpb_free, nullptr, 0);
    memory().free_all_but(before);
}

void write_replies(input &in, bool is_response) {
    const bool has_rpc = in.byte() % 2 != 0;
    const request_path::xml_document document = request_path::parse_xml(
        R"(<a:rpc xmlns:a="urn:ietf:params:xml:ns:netconf:base:1.0" message-id="1" b="c" xmlns:d="e" d:f="g"/>)");
    const xmlNode *const rpc = has_rpc ? xmlDocGetRootElement(document.get()) : nullptr;
    const std::string_view message = in.rest();
    if (is_response) {
        write_decoded<request_path::owned_response>(quill_nyx_response_decode_ext, quill_nyx_response_free_ext, message,
                                                    rpc);
    } else {
        write_decoded<request_path::owned_result>(quill_nyx_request_result_decode_ext,
                                                  quill_nyx_request_result_free_ext, message, rpc);
    }
}

constexpr uint8_t about_framing = 0;
constexpr uint8_t about_requests = 1;
constexpr uint8_t about_responses = 2;

}  // namespace

message_place place_of_message(const uint8_t *data, std::size_t size) {
    if (size < 2 || data[0] % 4 < about_responses) {
        return {};
    }
    const bool is_response = data[0] % 4 == about_responses;
    return {&nyx_test::table_of(is_response ? nyx_test::record_id::response : nyx_test::record_id::request_result), 2};
}

}  // namespace nyx_fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    using namespace nyx_fuzz;
    if (size > longest_input) {
        return 0;
    }
    const std::set<void *> before = memory().blocks();
    input in(data, size);
    switch (const uint8_t about = in.byte() % 4; about) {
        case about_framing:
            receive_messages(in);
            break;
        case about_requests:
            read_requests(in);
            break;
        default:
            write_replies(in, about == about_responses);
    }
    memory().fail_at(0);
    REQUIRE(memory().blocks() == before, std::to_string(memory().live_blocks()));
    return 0;
}
