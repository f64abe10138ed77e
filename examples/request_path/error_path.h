/**
 * @file error_path.h
 * The path of a failing node, put together by the library while one walks from the node up to the root.
 */
#ifndef REQUEST_PATH_ERROR_PATH_H
#define REQUEST_PATH_ERROR_PATH_H

#include <nyx_api_common.h>

#include <cstdint>
#include <string>

#include "tree.h"

namespace request_path {

/** How a node is told from its siblings of the same name. */
struct distinction {
    enum class means { name, key, value, position, absence };
    means by = means::name;
    std::string key;        ///< the name of the leaf that is the key; it is in the node's namespace
    std::string value;      ///< of that leaf, or of the node itself, as the data have it
    uint32_t position = 0;  ///< from 1
};

/** Constructor and prepend() throw std::bad_alloc, also while memory is short. */
class error_path {
  public:
    /** Puts a node's step before the path. */
    void prepend(const node &place, const distinction &mark);

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

    void prepend_comparison(const std::string &name, const char *name_space, const std::string &key,
                            const std::string &value);

    context path_;
    context prefixes_;  ///< one step ahead, as a key needs the prefix that its own step may be the first to use
};

}  // namespace request_path

#endif
