// Copies of texts in named blocks.
#include "nyx_api.h"
#include "nyx_api_common.h"
#include "umbra/named_alloc.h"

namespace {

rsize_t length_of(const char *text) {
    return strnlen_s(text, RSIZE_MAX);
}

// `length` characters into a block in which there is room for them; none are not copied at all.
errno_t copy_characters(char *dest, rsize_t room, const char *src, rsize_t length) {
    return length == 0 ? 0 : memcpy_s(dest, room, src, length);
}

}  // namespace

char *nyx_strdup(const char *src, const char *alloc_text) {
    return nyx_util_is_mem_usage_normal() == 0 ? nullptr : nyx_strdup2(src, alloc_text);
}

char *nyx_strdup2(const char *src, const char *alloc_text) {
    if (src == nullptr || alloc_text == nullptr) {
        return nullptr;
    }
    const rsize_t length = length_of(src);
    auto *const copy = static_cast<char *>(umbra_named_malloc_(length + 1, alloc_text));
    if (copy == nullptr || copy_characters(copy, length + 1, src, length) != 0) {
        return nullptr;  // a block that could not be filled stays allocated: callers have always counted on that
    }
    copy[length] = '\0';
    return copy;
}

rcode nyx_strdup_concat(const char *a, const char *b, const char *alloc_text, char **out) {
    if (out == nullptr) {
        return NYX_RC_INVALID_ARGUMENT;
    }
    *out = nullptr;
    if (a == nullptr || b == nullptr || alloc_text == nullptr) {
        return 0;
    }
    const rsize_t a_length = length_of(a);
    const rsize_t b_length = length_of(b);
    const rsize_t size = a_length + b_length + 1;
    auto *const joined = static_cast<char *>(umbra_named_malloc_(size, alloc_text));
    if (joined == nullptr) {
        return NYX_RC_NO_MEMORY;
    }
    errno_t refused = copy_characters(joined, size, a, a_length);
    if (refused == 0) {
        refused = copy_characters(joined + a_length, size - a_length, b, b_length);
    }
    if (refused != 0) {
        umbra_named_free(joined);
        return refused;
    }
    joined[size - 1] = '\0';
    *out = joined;
    return 0;
}
