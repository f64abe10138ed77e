// Texts as keys of hash maps.
#include <cstdint>

#include "nyx_api_common.h"
#include "umbra/hash.h"

std::uint32_t nyx_string_hash_calc(const void *text) {
    if (text == nullptr) {
        return 0;
    }
    const rsize_t length = strnlen_s(static_cast<const char *>(text), RSIZE_MAX);
    return umbra_hash_calculate(text, static_cast<std::uint32_t>(length));
}

int nyx_string_hash_cmp(const void *a, const void *b) {
    int indicator = 0;
    const errno_t rc = strcmp_s(static_cast<const char *>(a), RSIZE_MAX, static_cast<const char *>(b), &indicator);
    return rc == 0 && indicator == 0 ? 1 : 0;
}
