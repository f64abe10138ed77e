/**
 * @file request_xml.h
 * From NETCONF's rpc element to a request record.
 */
#ifndef REQUEST_PATH_REQUEST_XML_H
#define REQUEST_PATH_REQUEST_XML_H

#include <libxml/tree.h>
#include <quill_nyx.h>

namespace request_path {

/**
 * Fills an empty request with the operation and the message id; the session is left to the caller. Throws an
 * rpc_failure when the request record cannot say what the element says.
 *
 * An operation that is not one of NETCONF's own travels as "invoke-rpc", for the processor to decide on. kill-session
 * and close-session travel as "stop-session".
 */
void read_request(xmlNode *rpc, quill_nyx_request &request);

}  // namespace request_path

#endif
