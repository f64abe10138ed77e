/**
 * @file tree_print.h
 * Shows a request for people: its members as an indented tree, and where its records lie in the encoding.
 */
#ifndef REQUEST_PATH_TREE_PRINT_H
#define REQUEST_PATH_TREE_PRINT_H

#include <quill_nyx.h>

#include <iosfwd>

namespace request_path {

/** Shows the members that are present. Bodies that no agent of this program sends are left out. */
void print_request(std::ostream &out, const quill_nyx_request &request);

}  // namespace request_path

#endif
