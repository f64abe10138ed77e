#include "umbra/named_alloc.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/uio.h>
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
    uint64_t lost_when_freed[4];  // free() keeps its lists in the first words: the rest is to stay readable
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
    const int head =
        description == nullptr
            ? snprintf(buffer, sizeof buffer, "%s: %p is not, or no longer, a block of named memory", function, block)
            : snprintf(buffer, sizeof buffer, "%s: block %p was freed before: ", function, block);
    umbra::text_line line(buffer + head, sizeof buffer - static_cast<size_t>(head));
    if (description != nullptr) {
        line.put_escaped(description, strlen(description));
    }
    line.put('\n');
    umbra::write_whole(STDERR_FILENO, buffer, static_cast<size_t>(head) + line.size());
    abort();
}

// free() unmaps large blocks, and any pointer may be handed in. A system that refuses to tell is taken to say yes.
bool is_readable(const block_header *header) {
    block_header copy;
    const iovec there = {const_cast<block_header *>(header), sizeof copy};
    const iovec here = {&copy, sizeof copy};
    const int error = errno;
    const ssize_t read = process_vm_readv(getpid(), &here, 1, &there, 1, 0);
    const bool failed = read < 0 ? errno == EFAULT : read != static_cast<ssize_t>(sizeof copy);
    errno = error;
    return !failed;
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
    if (!is_readable(header)) {
        complain_and_abort(function, block, nullptr);
    }
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

void *dress(void *memory, uint64_t size, uint32_t description) {
    auto *header = static_cast<block_header *>(memory);
    header->size = size;
    header->description = description;
    seal(header, seal_of_live);
    return block_of(header);
}

// Counts and dresses what malloc or calloc just gave, if anything, under a description that is new to the thread.
[[gnu::noinline]] void *take_first(void *memory, uint64_t size, const char *description) {
    if (memory == nullptr) {
        return no_memory();
    }
    return dress(memory, size, umbra::count_new_block_slowly(description, size));
}

// Gives a block of `size` bytes from `get_memory(bytes)`. The description is looked up first, while there is little to
// keep in registers. Inlined: the way to a block is short.
template <class GetMemory>
[[gnu::always_inline]] inline void *allocate(uint64_t size, const char *description, GetMemory get_memory) {
    const char *text = description != nullptr ? description : UMBRA_NAMED_UNNAMED;
    const umbra::known_description *known = umbra::find_known(text);
    void *memory = get_memory(sizeof(block_header) + size);
    if (known == nullptr || memory == nullptr) [[unlikely]] {
        return take_first(memory, size, text);
    }
    umbra::add_allocation(*known->record, *known->part, 1, size);
    return dress(memory, size, known->index);
}

void count_free(uint32_t description, uint64_t blocks, uint64_t bytes) {
    if (!umbra::count_free_quickly(description, blocks, bytes)) {
        umbra::count_free_slowly(description, blocks, bytes);
    }
}

// Apart from the quick way, which so needs no registers of its own.
[[gnu::noinline]] void free_slowly(block_header *header) {
    umbra::count_free_slowly(header->description, 1, header->size);
    seal(header, seal_of_freed);
    free(header);
}

void count_resizing(uint32_t description, uint64_t before, uint64_t after) {
    if (after >= before) {
        umbra::count_allocation(description, 0, after - before);
    } else {
        count_free(description, 0, before - after);
    }
}

}  // namespace

void *umbra_named_malloc_(uint64_t size, const char *description) {
    if (size > max_size) {
        return no_memory();
    }
    return allocate(size, description, [](uint64_t bytes) { return malloc(bytes); });
}

void *umbra_named_calloc_(uint64_t count, uint64_t size, const char *description) {
    uint64_t bytes = 0;
    if (__builtin_mul_overflow(count, size, &bytes) || bytes > max_size) {
        return no_memory();
    }
    return allocate(bytes, description, [](uint64_t whole) { return calloc(1, whole); });
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
    if (!umbra::count_free_quickly(header->description, 1, header->size)) [[unlikely]] {
        free_slowly(header);
        return;
    }
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
