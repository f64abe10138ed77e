/**
 * @file filter.h
 * Subtree filtering as RFC 6241 describes it in its section 6.
 */
#ifndef REQUEST_PATH_FILTER_H
#define REQUEST_PATH_FILTER_H

#include "tree.h"

namespace request_path {

/**
 * @param filter  the filter element; its children are the filter proper, and without any nothing is selected
 * @param data    a datastore's content
 * @return a copy of @p data with nothing but what the filter selects
 */
node apply_subtree_filter(const node &filter, const node &data);

}  // namespace request_path

#endif
