/**
 * @file reply_xml.h
 * From the records of an answer to NETCONF's rpc-reply element.
 */
#ifndef REQUEST_PATH_REPLY_XML_H
#define REQUEST_PATH_REPLY_XML_H

#include <libxml/tree.h>
#include <quill_nyx.h>

#include <string>

namespace request_path {

/** @param rpc  what is answered: its attributes and namespace declarations are repeated in the reply; null when there
 *              was none to be read
 * @{ */
std::string write_reply(const xmlNode *rpc, const quill_nyx_request_result &result);
std::string write_reply(const xmlNode *rpc, const quill_nyx_response &response);
/** @} */

}  // namespace request_path

#endif
