#include "umbra/named_alloc.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include "named_usage.h"
#include "text_line.h"

#ifndef UMBRA_CHECK_BLOCKS
#ifdef NDEBUG
#define UMBRA_CHECK_BLOCKS 0
#else
#define UMBRA_CHECK_BLOCKS 1
#endif
#endif

namespace {

constexpr bool check_blocks = UMBRA_CHECK_BLOCKS != 0;

constexpr uint32_t seal_of_live = 0x6c697665;
constexpr uint32_t seal_of_freed = 0x66726565;

// Stands before each block.
struct block_header {
#if UMBRA_CHECK_BLOCKS
    uint64_t lost_when_freed[2];  // free() keeps its lists in the first words: the rest is to stay readable
#endif
    uint64_t size;
    uint32_t description;  // the record's index
    uint32_t seal;         // checked builds: live or freed, or else there is no block of ours here
};
static_assert(sizeof(block_header) % 16 == 0, "blocks are aligned as malloc aligns");

// What is left of the largest block that malloc gives.
constexpr uint64_t max_size = PTRDIFF_MAX - sizeof(block_header);

block_header *header_of(void *block) {
    return static_cast<block_header *>(block) - 1;
}
const block_header *header_of(const void *block) {
    return static_cast<const block_header *>(block) - 1;
}
void *block_of(block_header *header) {
    return header + 1;
}

// The compiler would drop a plain store just before free().
void seal(block_header *header, uint32_t state) {
    if (check_blocks) {
        static_cast<volatile block_header *>(header)->seal = state;
    }
}

[[noreturn]] void complain_and_abort(const char *function, const void *block, const char *description) {
    constexpr size_t line_size = 512;
    char buffer[line_size];
    const int head = description == nullptr
                         ? snprintf(buffer, sizeof buffer, "%s: %p is not a block of named memory", function, block)
                         : snprintf(buffer, sizeof buffer, "%s: block %p was freed before: ", function, block);
    umbra::text_line line(buffer + head, sizeof buffer - static_cast<size_t>(head));
    if (description != nullptr) {
        line.put_escaped(description, strlen(description));
    }
    line.put('\n');
    umbra::write_whole(STDERR_FILENO, buffer, static_cast<size_t>(head) + line.size());
    abort();
}

// Ends the program unless `block` is a live block.
void check(const char *function, const void *block) {
    if (!check_blocks) {
        return;
    }
    if (reinterpret_cast<uintptr_t>(block) % alignof(max_align_t) != 0) {
        complain_and_abort(function, block, nullptr);
    }
    const block_header *header = header_of(block);
    const uint32_t index = header->description;
    const umbra::description_record *record =
        index < umbra::max_descriptions ? umbra::records_by_index[index].load(std::memory_order_acquire) : nullptr;
    if (record == nullptr || (header->seal != seal_of_live && header->seal != seal_of_freed)) {
        complain_and_abort(function, block, nullptr);
    }
    if (header->seal == seal_of_freed) {
        complain_and_abort(function, block, record->text);
    }
}

void *no_memory() {
    errno = ENOMEM;
    return nullptr;
}

// Counts and dresses a block that malloc or calloc just gave, if it did. Inlined: the way to a block is short.
[[gnu::always_inline]] inline void *take(void *memory, uint64_t size, const char *description) {
    if (memory == nullptr) {
        return no_memory();
    }
    auto *header = static_cast<block_header *>(memory);
    header->size = size;
    header->description = umbra::count_new_block(description != nullptr ? description : UMBRA_NAMED_UNNAMED, size);
    seal(header, seal_of_live);
    return block_of(header);
}

void count_resizing(uint32_t description, uint64_t before, uint64_t after) {
    if (after >= before) {
        umbra::count_allocation(description, 0, after - before);
    } else {
        umbra::count_free(description, 0, before - after);
    }
}

}  // namespace

void *umbra_named_malloc_(uint64_t size, const char *description) {
    return size > max_size ? no_memory() : take(malloc(sizeof(block_header) + size), size, description);
}

void *umbra_named_calloc_(uint64_t count, uint64_t size, const char *description) {
    uint64_t bytes = 0;
    if (__builtin_mul_overflow(count, size, &bytes) || bytes > max_size) {
        return no_memory();
    }
    return take(calloc(1, sizeof(block_header) + bytes), bytes, description);
}

void *umbra_named_realloc(void *block, uint64_t size) {
    if (block == nullptr) {
        return umbra_named_malloc_(size, UMBRA_NAMED_UNNAMED);
    }
    check(__func__, block);
    if (size > max_size) {
        return no_memory();
    }
    block_header *header = header_of(block);
    const uint64_t before = header->size;
    const uint32_t description = header->description;
    seal(header, seal_of_freed);  // what is left behind when the block moves
    void *memory = realloc(header, sizeof(block_header) + size);
    if (memory == nullptr) {
        seal(header, seal_of_live);
        return no_memory();
    }
    count_resizing(description, before, size);
    auto *resized = static_cast<block_header *>(memory);
    resized->size = size;
    seal(resized, seal_of_live);
    return block_of(resized);
}

void umbra_named_free(void *block) {
    if (block == nullptr) {
        return;
    }
    check(__func__, block);
    block_header *header = header_of(block);
    umbra::count_free(header->description, 1, header->size);
    seal(header, seal_of_freed);
    free(header);
}

uint64_t umbra_named_size(const void *block) {
    if (block == nullptr) {
        return 0;
    }
    check(__func__, block);
    return header_of(block)->size;
}

const char *umbra_named_description(const void *block) {
    if (block == nullptr) {
        return nullptr;
    }
    check(__func__, block);
    return umbra::record_at(header_of(block)->description).text;
}
