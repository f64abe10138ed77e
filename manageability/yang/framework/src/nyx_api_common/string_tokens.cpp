// Tokens of a text, and the characters in it.
#include <algorithm>
#include <cstdint>
#include <cstring>

#include "nyx_api_common.h"
#include "umbra/named_alloc.h"

namespace {

constexpr std::uint64_t token_step = 5;

// A growing array of pointers; what is behind the last one is null.
struct token_array {
    char **tokens;
    std::uint64_t capacity;
};

bool grow(token_array &array) {
    const std::uint64_t capacity = array.capacity + token_step;
    auto *const tokens = static_cast<char **>(umbra_named_realloc(array.tokens, capacity * sizeof(char *)));
    if (tokens == nullptr) {
        return false;
    }
    std::fill(tokens + array.capacity, tokens + capacity, nullptr);
    array = {tokens, capacity};
    return true;
}

}  // namespace

void nyx_tokenize_and_get_token(const char *text, const char *delims, std::uint32_t index, char **out) {
    if (out == nullptr) {
        return;
    }
    *out = nullptr;
    if (delims == nullptr) {
        return;
    }
    char *const copy = nyx_strdup(text, "NYX MAP");
    if (copy == nullptr) {
        return;
    }
    char *token = std::strtok(copy, delims);
    for (std::uint32_t i = 0; i < index && token != nullptr; ++i) {
        token = std::strtok(nullptr, delims);
    }
    *out = nyx_strdup(token, "NYX MAP");
    umbra_named_free(copy);
}

std::uint32_t nyx_count_char_occurences(const char *text, char ch) {
    if (text == nullptr) {
        return 0;
    }
    return static_cast<std::uint32_t>(std::count(text, text + strnlen_s(text, RSIZE_MAX), ch));
}

char **str_arr_tokenize(char *text, const char *delims, std::uint32_t *count) {
    if (count == nullptr) {
        return nullptr;
    }
    *count = 0;
    if (text == nullptr || delims == nullptr) {
        return nullptr;
    }
    token_array array = {static_cast<char **>(umbra_named_calloc_(token_step, sizeof(char *), "String tokens array")),
                         token_step};
    if (array.tokens == nullptr) {
        return nullptr;
    }
    std::uint64_t found = 0;
    char *rest = nullptr;
    for (char *token = strtok_r(text, delims, &rest); token != nullptr; token = strtok_r(nullptr, delims, &rest)) {
        ++found;
        *count = static_cast<std::uint32_t>(found);  // counts also a token for which there is no room
        if (found > array.capacity && !grow(array)) {
            umbra_named_free(array.tokens);
            return nullptr;
        }
        array.tokens[found - 1] = token;
    }
    return array.tokens;
}
