#include "xml.h"

#include <libxml/parser.h>
#include <libxml/parserInternals.h>
#include <libxml/xmlerror.h>
#include <quill_nyx.h>

#include <array>
#include <new>
#include <utility>

#include "failure.h"

namespace request_path {

namespace {

const char *chars(const xmlChar *text) {
    return text == nullptr ? "" : reinterpret_cast<const char *>(text);
}

const xmlChar *xml_chars(const std::string &text) {
    return reinterpret_cast<const xmlChar *>(text.c_str());
}
const xmlChar *xml_chars(const char *text) {
    return reinterpret_cast<const xmlChar *>(text);
}

struct parser_release {
    void operator()(xmlParserCtxt *parser) const { xmlFreeParserCtxt(parser); }
};

template <class pointer>
pointer *require(pointer *made) {
    if (made == nullptr) {
        throw std::bad_alloc();
    }
    return made;
}

rpc_failure malformed(const std::string &message) {
    return simple_failure(NYX_ERROR_TYPE_RPC, "malformed-message", message);
}

/* What the parser's codes do not tell, or tell only until it has something else to complain of. */
struct noticed {
    bool document_type = false;
    bool name_too_long = false;
};

noticed &noticed_by(void *parser) {
    return *static_cast<noticed *>(static_cast<xmlParserCtxt *>(parser)->_private);
}

/* Ends the parsing before an entity is declared, let alone expanded. */
void refuse_document_type(void *parser, const xmlChar *, const xmlChar *, const xmlChar *) {
    noticed_by(parser).document_type = true;
    xmlStopParser(static_cast<xmlParserCtxt *>(parser));
}

/* The parser gives up at its limit, with an error code that it uses for other things as well. */
bool nests_too_deeply(const xmlParserCtxt &parser) {
    return parser.lastError.code == XML_ERR_INTERNAL_ERROR && parser.nameNr > 0 &&
           static_cast<unsigned>(parser.nameNr) > xmlParserMaxDepth;
}

}  // namespace

xml_document parse_xml(std::string_view text) {
    if (text.size() > XML_MAX_TEXT_LENGTH) {  // as long as the parser takes attributes and comments
        throw simple_failure(NYX_ERROR_TYPE_RPC, "too-big", "The message is too long.");
    }
    const std::unique_ptr<xmlParserCtxt, parser_release> parser(require(xmlNewParserCtxt()));
    noticed seen;
    parser->_private = &seen;
    parser->sax->internalSubset = refuse_document_type;
    parser->sax->serror = [](void *of, auto *error) {  // some complaints are printed in spite of the options
        noticed &by = noticed_by(of);
        by.name_too_long = by.name_too_long || error->code == XML_ERR_NAME_TOO_LONG;
    };
    /* Entities are those of XML itself, as no document type can declare others: the names of namespaces get their &. */
    constexpr int quietly_and_alone =
        XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING | XML_PARSE_NOCDATA | XML_PARSE_NOENT;
    xml_document document(xmlCtxtReadMemory(parser.get(), text.data(), static_cast<int>(text.size()), nullptr, nullptr,
                                            quietly_and_alone));
    if (seen.document_type) {
        throw malformed("The message has a document type declaration.");
    }
    if (document == nullptr && nests_too_deeply(*parser)) {
        throw simple_failure(NYX_ERROR_TYPE_RPC, "too-big", "The message nests deeper than the XML parser goes.");
    }
    if (document == nullptr && seen.name_too_long) {
        throw simple_failure(NYX_ERROR_TYPE_RPC, "too-big", "The message has a name longer than the XML parser takes.");
    }
    if (document == nullptr) {
        throw malformed("The message is not well-formed XML (line " + std::to_string(parser->lastError.line) + ").");
    }
    if (parser->nsWellFormed == 0) {  // a prefix without a namespace would be repeated in replies
        throw malformed("The message does not keep to the rules of XML namespaces.");
    }
    return document;
}

bool fits_message_id(const std::string &text) {
    constexpr int longest_message_id = 4095;
    return xmlUTF8Strlen(xml_chars(text)) <= longest_message_id;
}

std::string local_name(const xmlNode *element) {
    return chars(element->name);
}

std::string namespace_of(const xmlNode *element) {
    return element->ns == nullptr ? "" : chars(element->ns->href);
}

bool is_netconf(const xmlNode *element, const char *name) {
    return local_name(element) == name && namespace_of(element) == netconf_namespace;
}

bool is_for_validation(const xmlAttr &a) {
    return a.ns != nullptr && std::string_view(chars(a.ns->href)) == "http://www.w3.org/2001/XMLSchema-instance";
}

std::string written_namespace(const std::string &name_space) {
    std::string written;
    for (const char c : name_space) {
        written += c == '&' ? "&amp;" : std::string(1, c);
    }
    return written;
}

xmlNs *declare_namespace(xmlNode *element, const std::string &name_space, const char *prefix) {
    return xmlNewNs(element, xml_chars(written_namespace(name_space)), xml_chars(prefix));
}

xmlNode *element_from(xmlNode *node) {
    while (node != nullptr && node->type != XML_ELEMENT_NODE) {
        node = node->next;
    }
    return node;
}

std::string text_of(const xmlNode *element) {
    const xml_string content(xmlNodeGetContent(element));
    return std::string(trimmed(chars(content.get())));
}

std::unique_ptr<std::string> plain_attribute(const xmlNode *element, const char *name) {
    const xml_string value(xmlGetNoNsProp(element, xml_chars(name)));
    return value == nullptr ? nullptr : std::make_unique<std::string>(chars(value.get()));
}

namespace {

void declare_prefix(node &holder, const std::string &prefix, const xmlChar *name_space) {
    const std::string key = "xmlns:" + prefix;
    for (const attribute &a : holder.attributes) {
        if (a.key == key) {
            return;
        }
    }
    holder.attributes.push_back({key, chars(name_space)});
}

uint32_t edit_operation_named(const std::string &name, const node &holder) {
    constexpr std::array names{"merge", "replace", "create", "delete", "remove"};  // in the order of their numbers
    for (uint32_t number = 0; number < names.size(); ++number) {
        if (name == names[number]) {
            return number;
        }
    }
    throw bad_attribute("operation", holder.name);
}

void read_attributes(node &holder, const xmlNode *element, edit_operations operations) {
    for (const xmlAttr *a = element->properties; a != nullptr; a = a->next) {
        if (is_for_validation(*a)) {
            continue;
        }
        const std::string name = chars(a->name);
        const xml_string value(xmlNodeListGetString(element->doc, a->children, 1));
        if (a->ns == nullptr) {
            holder.attributes.push_back({name, chars(value.get())});
        } else if (std::string_view(chars(a->ns->href)) == netconf_namespace && name == "operation") {
            if (operations == edit_operations::refused) {
                throw bad_attribute("operation", holder.name);
            }
            holder.operation = edit_operation_named(chars(value.get()), holder);
        } else {
            const std::string prefix = chars(a->ns->prefix);
            if (prefix != "xml") {
                declare_prefix(holder, prefix, a->ns->href);
            }
            std::string key = prefix;
            key += ':';
            key += name;
            holder.attributes.push_back({std::move(key), chars(value.get())});
        }
    }
}

/* A value such as "ianaift:ethernetCsmacd" means nothing without its prefix, which may be declared far above. */
void keep_prefix_of_value(node &leaf, xmlNode *element) {
    const std::string_view value = trimmed(leaf.value);
    const size_t colon = value.find(':');
    if (colon == std::string_view::npos || colon == 0) {
        return;
    }
    const std::string prefix(value.substr(0, colon));
    if (const xmlNs *found = xmlSearchNs(element->doc, element, xml_chars(prefix)); found != nullptr) {
        if (prefix != "xml") {
            declare_prefix(leaf, prefix, found->href);
        }
    }
}

}  // namespace

node read_element(xmlNode *element, edit_operations operations) {
    node tree;
    tree.name = local_name(element);
    tree.name_space = namespace_of(element);
    read_attributes(tree, element, operations);
    for (xmlNode *child = element->children; child != nullptr; child = child->next) {
        if (child->type == XML_ELEMENT_NODE) {
            tree.children.push_back(read_element(child, operations));
        } else if (child->type == XML_TEXT_NODE || child->type == XML_CDATA_SECTION_NODE) {
            tree.value += chars(child->content);
        }
    }
    const bool blank = trimmed(tree.value).empty();
    if (!blank && !tree.is_leaf()) {
        throw bad_element(tree.name);
    }
    if (blank) {
        tree.value.clear();
    }
    keep_prefix_of_value(tree, element);
    return tree;
}

namespace {

/* Without a namespace of its own, an element would be read as one of its parent's default namespace. */
void set_namespace(xmlNode *element, const std::string &name_space) {
    xmlNode *parent = element->parent;
    if (namespace_of(parent) == written_namespace(name_space)) {
        xmlSetNs(element, parent->ns);
    } else {
        xmlSetNs(element, require(declare_namespace(element, name_space)));
    }
}

void set_attributes(xmlNode *element, const node &tree) {
    for (const attribute &a : tree.attributes) {
        if (a.key.starts_with("xmlns:")) {
            declare_namespace(element, a.value, a.key.c_str() + 6);
        }
    }
    for (const attribute &a : tree.attributes) {
        if (declares_namespace(a)) {
            continue;
        }
        const size_t colon = a.key.find(':');
        xmlNs *space = nullptr;
        if (colon != std::string::npos) {
            space = xmlSearchNs(element->doc, element, xml_chars(a.key.substr(0, colon)));
        }
        const std::string name = space == nullptr ? a.key : a.key.substr(colon + 1);
        require(xmlNewNsProp(element, space, xml_chars(name), xml_chars(a.value)));
    }
}

xmlNode *append_bare_element(xmlNode *parent, const char *name, const std::string &text) {
    xmlNode *element = require(xmlNewDocNode(parent->doc, nullptr, xml_chars(name), nullptr));
    xmlAddChild(parent, element);
    if (!text.empty()) {
        xmlAddChild(element, require(xmlNewDocText(parent->doc, xml_chars(text))));
    }
    return element;
}

}  // namespace

void append_tree(xmlNode *parent, const node &tree) {
    xmlNode *element = append_bare_element(parent, tree.name.c_str(), tree.value);
    set_namespace(element, tree.name_space);
    set_attributes(element, tree);
    for (const node &child : tree.children) {
        append_tree(element, child);
    }
}

xmlNode *append_element(xmlNode *parent, const char *name, const std::string &text) {
    xmlNode *element = append_bare_element(parent, name, text);
    xmlSetNs(element, parent->ns);
    return element;
}

std::string write_xml(xmlDoc *document) {
    xmlChar *text = nullptr;
    int length = 0;
    xmlDocDumpFormatMemoryEnc(document, &text, &length, "UTF-8", 1);
    const xml_string written(require(text));
    return {chars(written.get()), static_cast<size_t>(length)};
}

}  // namespace request_path
