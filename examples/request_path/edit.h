/**
 * @file edit.h
 * Applying the configuration of an edit-config to a datastore's content.
 *
 * Without a schema, two rules say which node of the datastore an edit's node means (key_leaf() in tree.h is part of
 * the first):
 *  - a list entry is the one with the same key; a node without a key is the one of its name, or, when the edit or the
 *    datastore has several of that name (a leaf-list, or a list without a known key), the one with the same content;
 *  - names only mean the same thing in the same namespace.
 */
#ifndef REQUEST_PATH_EDIT_H
#define REQUEST_PATH_EDIT_H

#include <vector>

#include "failure.h"
#include "tree.h"

namespace request_path {

/** Numbers of quill_nyx_edit_config.uint32_2, the default operation; absent means merge. */
enum default_operation : uint32_t { default_merge = 0, default_replace = 1, default_none = 2 };

/**
 * @param content     the datastore's content, edited in place; half edited after an exception
 * @param config      the edit; its children are the top-level nodes
 * @param keep_going  go on after a failing node and leave it as it was; otherwise the first failure is thrown
 * @return the failures of an edit that kept going
 */
std::vector<rpc_failure> edit(node &content, const node &config, default_operation by_default, bool keep_going);

/** Throws an rpc_failure when a list has two entries with the same key. */
void validate(const node &content);

}  // namespace request_path

#endif
