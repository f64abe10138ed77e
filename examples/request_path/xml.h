/**
 * @file xml.h
 * Between XML documents and trees.
 */
#ifndef REQUEST_PATH_XML_H
#define REQUEST_PATH_XML_H

#include <libxml/tree.h>

#include <memory>
#include <string>
#include <string_view>

#include "tree.h"

namespace request_path {

struct document_release {
    void operator()(xmlDoc *document) const { xmlFreeDoc(document); }
};
using xml_document = std::unique_ptr<xmlDoc, document_release>;

struct string_release {
    void operator()(xmlChar *text) const { xmlFree(text); }
};
using xml_string = std::unique_ptr<xmlChar, string_release>;

/** Throws an rpc_failure when the text is not well-formed, with regard to namespaces as well, or has a document type
 * declaration, which NETCONF forbids. Reads nothing but the text. */
xml_document parse_xml(std::string_view text);

/** @return whether NETCONF's schema has room for so long a message-id */
bool fits_message_id(const std::string &text);

std::string local_name(const xmlNode *element);

/** @return the namespace name, empty when there is none */
std::string namespace_of(const xmlNode *element);

/**
 * @return the namespace name as libxml2 has to be given it in a document that is to be written: it writes them as they
 * stand
 */
std::string written_namespace(const std::string &name_space);

/**
 * Declares a namespace on an element of a document that is to be written.
 * @param prefix  null: the default namespace
 * @return null when the element declares the prefix already
 */
xmlNs *declare_namespace(xmlNode *element, const std::string &name_space, const char *prefix = nullptr);

/** @return whether this is the element of that name in NETCONF's own namespace */
bool is_netconf(const xmlNode *element, const char *name);

/** @return whether the attribute is one of XML Schema's own. They tell how the document that they stand in is to be
 * validated, and are neither data nor fit for another document. */
bool is_for_validation(const xmlAttr &a);

/** @return the first element among the node and its later siblings, or null */
xmlNode *element_from(xmlNode *node);

/** @return the text of the element and of what it holds, without white space at its ends */
std::string text_of(const xmlNode *element);

/** @return the value of an attribute that is in no namespace, or null */
std::unique_ptr<std::string> plain_attribute(const xmlNode *element, const char *name);

enum class edit_operations { refused, taken };

/**
 * Reads an element with its attributes and all that it holds. Text next to elements, and text that is nothing but
 * white space, is not taken as a value. NETCONF's "operation" attribute becomes the node's operation where edit
 * operations are taken. Throws an rpc_failure for what a tree cannot carry.
 */
node read_element(xmlNode *element, edit_operations operations);

/** Adds a tree as the last child of an element. */
void append_tree(xmlNode *parent, const node &tree);

/** Adds an element of the parent's namespace, with a text if it is not empty. */
xmlNode *append_element(xmlNode *parent, const char *name, const std::string &text = {});

/** @return the document as indented text */
std::string write_xml(xmlDoc *document);

}  // namespace request_path

#endif
