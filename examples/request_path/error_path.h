/**
 * @file error_path.h
 * The path of a failing node, put together by the library while one walks from the node up to the root.
 */
#ifndef REQUEST_PATH_ERROR_PATH_H
#define REQUEST_PATH_ERROR_PATH_H

#include <nyx_api_common.h>

#include "tree.h"

namespace request_path {

/** Constructor and prepend() throw std::bad_alloc, also while memory is short. */
class error_path {
  public:
    /**
     * Puts a node's step before the path.
     * @param key  the leaf that tells the node from its siblings, in the node's namespace; null: none
     */
    void prepend(const node &place, const node *key);

    /** @return whether there was memory for all of it; what was written is released with the error in any case */
    bool write(quill_nyx_error &error);

  private:
    struct context {
        context();
        context(const context &) = delete;
        context &operator=(const context &) = delete;
        ~context() { xpath_context_destroy(&xpath); }
        xpath_context xpath{};
    };

    context path_;
    context prefixes_;  ///< one step ahead, as a key needs the prefix that its own step may be the first to use
};

}  // namespace request_path

#endif
