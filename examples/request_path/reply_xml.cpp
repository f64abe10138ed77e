#include "reply_xml.h"

#include <array>
#include <new>
#include <string_view>

#include "records.h"
#include "xml.h"

namespace request_path {

namespace {

const xmlChar *xml_chars(const char *text) {
    return reinterpret_cast<const xmlChar *>(text);
}

const char *chars(const xmlChar *text) {
    return reinterpret_cast<const char *>(text);
}

/* The client's own attributes come back, but not what NETCONF itself defines: no such attribute is one of rpc-reply. */
bool is_to_be_repeated(const xmlAttr &a) {
    const bool is_netconfs =
        a.ns != nullptr && std::string_view(reinterpret_cast<const char *>(a.ns->href)) == netconf_namespace;
    return !is_netconfs && !is_for_validation(a);
}

void repeat_attributes(xmlNode *reply, const xmlNode *rpc) {
    for (const xmlNs *declared = rpc->nsDef; declared != nullptr; declared = declared->next) {
        declare_namespace(reply, chars(declared->href), chars(declared->prefix));
    }
    for (const xmlAttr *a = rpc->properties; a != nullptr; a = a->next) {
        if (is_to_be_repeated(*a)) {
            const xml_string value(xmlNodeListGetString(rpc->doc, a->children, 1));
            xmlNs *const space = a->ns == nullptr ? nullptr : xmlSearchNs(reply->doc, reply, a->ns->prefix);
            xmlNewNsProp(reply, space, a->name, value.get());
        }
    }
    if (const auto id = plain_attribute(reply, "message-id"); id != nullptr && !fits_message_id(*id)) {
        xmlUnsetProp(reply, xml_chars("message-id"));
    }
    reply->ns = xmlSearchNs(reply->doc, reply, rpc->ns->prefix);
}

xml_document start_reply(const xmlNode *rpc) {
    xml_document document(xmlNewDoc(xml_chars("1.0")));
    xmlNode *reply = xmlNewDocNode(document.get(), nullptr, xml_chars("rpc-reply"), nullptr);
    if (document == nullptr || reply == nullptr) {
        throw std::bad_alloc();
    }
    xmlDocSetRootElement(document.get(), reply);
    if (rpc != nullptr && is_netconf(rpc, "rpc")) {
        repeat_attributes(reply, rpc);
    } else {
        xmlSetNs(reply, declare_namespace(reply, netconf_namespace));
    }
    return document;
}

template <size_t count>
const char *name_of(const std::array<const char *, count> &names, uint32_t number) {
    return number < count ? names[number] : "unknown";
}

constexpr std::array error_types{"transport", "rpc", "protocol", "application"};
constexpr std::array severities{"error", "warning"};

/* The client may use one of the path's prefixes for NETCONF's own elements: then this one has none, or the prefix that
 * it declares would be its own. */
void append_path(xmlNode *error, const quill_nyx_datatree &record) {
    const node path = read_tree(record);
    xmlNode *element = append_element(error, "error-path", "/" + path.value);  // NETCONF's paths are absolute
    for (const attribute &a : path.attributes) {
        if (!a.key.starts_with("xmlns:")) {
            continue;
        }
        const xmlChar *prefix = xml_chars(a.key.c_str() + 6);
        declare_namespace(element, a.value, a.key.c_str() + 6);
        if (xmlStrEqual(prefix, error->ns->prefix) != 0) {
            xmlSetNs(element, declare_namespace(element, netconf_namespace));
        }
    }
}

/* The type of these is xs:QName, for which the fourth edition of XML 1.0 says what a name is. An element that only the
 * fifth allows cannot be named. */
bool can_be_named(const node &entry) {
    const bool is_name = entry.name == "bad-element" || entry.name == "bad-attribute";
    return !is_name || xmlValidateNCName(xml_chars(entry.value.c_str()), 0) == 0;
}

void append_info(xmlNode *error, const quill_nyx_datatree &record) {
    xmlNode *element = append_element(error, "error-info");
    for (node entry : read_tree(record).children) {
        if (!can_be_named(entry)) {
            continue;
        }
        if (entry.name_space.empty()) {
            entry.name_space = netconf_namespace;
        }
        append_tree(element, entry);
    }
}

void append_cause(xmlNode *error, const char *type, const char *tag, const char *severity) {
    append_element(error, "error-type", type);
    append_element(error, "error-tag", tag);
    append_element(error, "error-severity", severity);
}

void append_error(xmlNode *reply, const quill_nyx_error &record) {
    xmlNode *error = append_element(reply, "rpc-error");
    if (record.error_tag == nullptr) {  // a bare failure is left where there was no memory for an error
        return append_cause(error, "application", "resource-denied", "error");
    }
    append_cause(error, name_of(error_types, record.error_type), record.error_tag,
                 name_of(severities, record.error_severity));
    if (record.error_app_tag != nullptr) {
        append_element(error, "error-app-tag", record.error_app_tag);
    }
    if (record.error_path.value != nullptr) {
        append_path(error, record.error_path);
    }
    if (record.error_message.text != nullptr) {
        append_element(error, "error-message", record.error_message.text);
    }
    if (record.error_info.children_count > 0) {
        append_info(error, record.error_info);
    }
}

}  // namespace

std::string write_reply(const xmlNode *rpc, const quill_nyx_request_result &result) {
    const xml_document document = start_reply(rpc);
    xmlNode *reply = xmlDocGetRootElement(document.get());
    if (result.uint32_1 != 0) {
        append_element(reply, "ok");
    } else {
        append_error(reply, result.error);
    }
    return write_xml(document.get());
}

std::string write_reply(const xmlNode *rpc, const quill_nyx_response &response) {
    const xml_document document = start_reply(rpc);
    xmlNode *reply = xmlDocGetRootElement(document.get());
    for (uint32_t i = 0; i < response.errors_count; ++i) {
        append_error(reply, response.errors[i]);
    }
    if (response.has_tree) {
        append_tree(reply, read_tree(response.tree));
    }
    return write_xml(document.get());
}

}  // namespace request_path
