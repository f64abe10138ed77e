// Replacement of several texts in one pass.
//
// The plan of a call is an array of records: one for each pair, with the first occurrence of its text, and behind them
// the further occurrences. Sorted by position, and without those that overlap one before them, it is what the new text
// is built from.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "nyx_api_common.h"
#include "umbra/named_alloc.h"

namespace {

constexpr std::uint64_t extra_max = 9;               // further occurrences, of all pairs together
constexpr std::uint64_t extra_room = extra_max + 1;  // records behind those of the pairs
constexpr std::uint64_t pairs_on_stack = 200;

constexpr std::int32_t nowhere = -1;

// A text and its length; the terminator is not looked for again.
struct input {
    const char *text;
    std::uint64_t length;
};

template <class Number>
int order(Number a, Number b) {
    return a == b ? 0 : (a < b ? -1 : 1);
}

// One record for each pair. False: a text is null, or there is nothing to find.
bool prepare(str_pair *plan, const str_replacement *pairs, std::uint64_t count) {
    for (std::uint64_t i = 0; i < count; ++i) {
        const str_replacement &pair = pairs[i];
        if (pair.find == nullptr || pair.replace == nullptr || *pair.find == '\0') {
            return false;
        }
        plan[i] = {&pair, strnlen_s(pair.find, RSIZE_MAX), strnlen_s(pair.replace, RSIZE_MAX), nowhere};
    }
    return true;
}

// Notes where the texts occur, and returns the number of records. When there is no room for further occurrences any
// more, they are not looked for.
std::uint64_t find_occurrences(str_pair *plan, std::uint64_t count, const char *text) {
    std::uint64_t used = count;
    for (std::uint64_t i = 0; i < count; ++i) {
        str_pair &own = plan[i];
        const char *at = std::strstr(text, own.pair->find);
        if (at == nullptr) {
            continue;
        }
        own.position = static_cast<std::int32_t>(at - text);
        while (used < count + extra_max && (at = std::strstr(at + own.find_length, own.pair->find)) != nullptr) {
            plan[used] = own;
            plan[used].position = static_cast<std::int32_t>(at - text);
            ++used;
        }
    }
    return used;
}

// Drops what begins inside an occurrence before it. The records are sorted.
void drop_overlaps(str_pair *plan, std::uint64_t used) {
    std::uint64_t end = 0;
    for (str_pair *record = plan; record != plan + used; ++record) {
        if (record->position == nowhere) {
            continue;
        }
        const auto position = static_cast<std::uint64_t>(record->position);
        if (position < end) {
            record->position = nowhere;
        } else {
            end = position + record->find_length;
        }
    }
}

// The bytes of the new text with its terminator. False: there is no such number.
bool measure(const str_pair *plan, std::uint64_t used, std::uint64_t length, std::uint64_t *size) {
    std::uint64_t replaced = 0;
    std::uint64_t put_in = 1;
    for (const str_pair *record = plan; record != plan + used; ++record) {
        if (record->position == nowhere) {
            continue;
        }
        replaced += record->find_length;
        if (__builtin_add_overflow(put_in, record->replace_length, &put_in)) {
            return false;
        }
    }
    return !__builtin_add_overflow(length - replaced, put_in, size);
}

char *append(char *to, const char *from, std::uint64_t length) {
    std::memcpy(to, from, length);
    return to + length;
}

void build(char *to, const input &in, const str_pair *plan, std::uint64_t used) {
    std::uint64_t done = 0;
    for (const str_pair *record = plan; record != plan + used; ++record) {
        if (record->position == nowhere) {
            continue;
        }
        const auto position = static_cast<std::uint64_t>(record->position);
        to = append(to, in.text + done, position - done);
        to = append(to, record->pair->replace, record->replace_length);
        done = position + record->find_length;
    }
    to = append(to, in.text + done, in.length - done);
    *to = '\0';
}

// `plan` has room for count + extra_room records.
char *replace(const input &in, const str_replacement *pairs, std::uint64_t count, const char *alloc_text,
              str_pair *plan) {
    if (!prepare(plan, pairs, count)) {
        return nullptr;
    }
    const std::uint64_t used = find_occurrences(plan, count, in.text);
    std::qsort(plan, used, sizeof *plan, str_pair_helper_compare);
    drop_overlaps(plan, used);
    std::uint64_t size = 0;
    if (!measure(plan, used, in.length, &size)) {
        return nullptr;
    }
    auto *const result = static_cast<char *>(umbra_named_malloc_(size, alloc_text));
    if (result != nullptr) {
        build(result, in, plan, used);
    }
    return result;
}

}  // namespace

int str_pair_helper_compare(const void *a, const void *b) {
    const auto &first = *static_cast<const str_pair *>(a);
    const auto &second = *static_cast<const str_pair *>(b);
    return first.position != second.position ? order(first.position, second.position)
                                             : order(second.find_length, first.find_length);
}

char *str_replace_multi(const char *text, const str_replacement *pairs, std::uint32_t count, const char *alloc_text) {
    if (text == nullptr) {
        return nullptr;
    }
    if (count == 0) {
        return nyx_strdup(text, alloc_text);
    }
    if (pairs == nullptr || alloc_text == nullptr) {
        return nullptr;
    }
    const input in = {text, strnlen_s(text, RSIZE_MAX)};
    if (in.length > INT32_MAX) {
        return nullptr;  // a position would not fit its record
    }
    if (count <= pairs_on_stack) {
        str_pair plan[pairs_on_stack + extra_room];
        return replace(in, pairs, count, alloc_text, plan);
    }
    auto *const plan =
        static_cast<str_pair *>(umbra_named_malloc_((count + extra_room) * sizeof(str_pair), "str_replace_multi work"));
    if (plan == nullptr) {
        return nullptr;
    }
    char *const result = replace(in, pairs, count, alloc_text, plan);
    umbra_named_free(plan);
    return result;
}
