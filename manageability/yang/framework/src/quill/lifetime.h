// The rules of deep copy and release.
#ifndef QUILL_LIFETIME_H
#define QUILL_LIFETIME_H

#include "codec.h"

namespace quill {

struct copying {
    quill_alloc_fn alloc;
    void *alloc_ctx;
    int32_t result;

    void *take(uint64_t size) {
        void *block = alloc != nullptr ? alloc(size, alloc_ctx) : nullptr;
        if (block == nullptr) {
            result = QUILL_DECODE_NO_MEMORY;
        }
        return block;
    }
};

// A record is first copied byte by byte; then each member that owns a block gets its own, or becomes empty. These rules
// tell whether it could: a member without its block loses its presence bit. What fails deeper is seen in the call's
// result alone.

QUILL_INLINE bool copy_text(char **dst, const char *src, copying &call) {
    if (src == nullptr) {
        return true;
    }
    const uint64_t size = std::strlen(src) + 1;
    auto *text = static_cast<char *>(call.take(size));
    if (text != nullptr) {
        copy_bytes(text, src, size);
    }
    *dst = text;
    return text != nullptr;
}

// Gives the destination its array, not yet filled. A source without elements or without an array is empty.
template <class Element>
QUILL_INLINE bool copy_array(Element **dst, uint32_t *dst_count, const Element *src, uint32_t count, copying &call) {
    *dst = nullptr;
    *dst_count = 0;
    if (src == nullptr || count == 0) {
        return true;
    }
    *dst = static_cast<Element *>(call.take(uint64_t{count} * sizeof(Element)));
    if (*dst == nullptr) {
        return false;
    }
    *dst_count = count;
    return true;
}

inline bool copy_numbers(uint32_t **dst, uint32_t *dst_count, const uint32_t *src, uint32_t count, copying &call) {
    const bool copied = copy_array(dst, dst_count, src, count, call);
    if (*dst != nullptr) {
        std::memcpy(*dst, src, uint64_t{count} * sizeof(uint32_t));
    }
    return copied;
}

inline bool copy_texts(char ***dst, uint32_t *dst_count, char *const *src, uint32_t count, copying &call) {
    const bool copied = copy_array(dst, dst_count, const_cast<char **>(src), count, call);
    for (uint32_t i = 0; i < *dst_count; ++i) {
        (*dst)[i] = nullptr;
        copy_text(*dst + i, src[i], call);
    }
    return copied;
}

template <int Levels = 0, class Record>
QUILL_INLINE bool copy_records(Record **dst, uint32_t *dst_count, const Record *src, uint32_t count, copying &call) {
    const bool copied = copy_array(dst, dst_count, src, count, call);
    for (uint32_t i = 0; i < *dst_count; ++i) {
        copy_members(*dst + i, src + i);
        if constexpr (Levels > 1) {
            codec<Record>::template copy_owned_levels<Levels - 1>(*dst + i, src + i, call);
        } else {
            codec<Record>::copy_owned(*dst + i, src + i, call);
        }
    }
    return copied;
}

template <class Record>
QUILL_INLINE void copy_record(Record *dst, const Record *src, copying &call) {
    if (codec<Record>::holdings(src) != 0) {
        codec<Record>::copy_owned(dst, src, call);
    }
}

template <class Record>
int32_t duplicate(Record *dst, const Record *src, quill_alloc_fn alloc, void *alloc_ctx) {
    copying call = {alloc, alloc_ctx, 0};
    if constexpr (codec<Record>::members != 0) {
        copy_members(dst, src);
        codec<Record>::copy_owned(dst, src, call);
    }
    return call.result;
}

struct releasing {
    quill_free_fn free;
    void *free_ctx;

    void give(void *block) const { free(block, free_ctx); }
};

QUILL_INLINE void release_text(char **text, const releasing &call) {
    if (*text != nullptr) {
        call.give(*text);
        *text = nullptr;
    }
}

inline void release_texts(char ***array, uint32_t *count, const releasing &call) {
    if (*array == nullptr) {
        return;
    }
    for (uint32_t i = 0; i < *count; ++i) {
        release_text(*array + i, call);
    }
    call.give(*array);
    *array = nullptr;
    *count = 0;
}

// The count of an integer array stays as it is: nothing but the pointer says that the array is gone.
inline void release_numbers(uint32_t **array, const releasing &call) {
    if (*array != nullptr) {
        call.give(*array);
        *array = nullptr;
    }
}

// The count and the array are read anew on each pass: the free function may look at the record and change them.
template <int Levels = 0, class Record>
QUILL_INLINE void release_records(Record **array, uint32_t *count, const releasing &call) {
    if (*array == nullptr) {
        return;
    }
    for (uint32_t i = 0; i < *count; ++i) {
        if constexpr (Levels > 1) {
            codec<Record>::template release_levels<Levels - 1>(*array + i, call);
        } else {
            codec<Record>::release(*array + i, call);
        }
    }
    call.give(*array);
    *array = nullptr;
    *count = 0;
}

template <class Record>
QUILL_INLINE void release_record(Record *record, const releasing &call) {
    if (codec<Record>::holdings(record) != 0) {
        codec<Record>::release(record, call);
    }
}

template <class Record>
void free_owned(Record *record, quill_free_fn free, void *free_ctx) {
    codec<Record>::release(record, {free, free_ctx});
}

}  // namespace quill

#endif
