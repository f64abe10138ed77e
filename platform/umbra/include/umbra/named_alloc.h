/**
 * @file named_alloc.h
 * Allocation under a description: every block remembers what it is for, and for each description the library knows at
 * any time how many blocks and bytes are in use, how many there ever were, and the most bytes that were in use at once.
 *
 * @code
 *     char *name = umbra_named_malloc_(64, "user name");
 *     if (name == NULL) {
 *         return ENOMEM;
 *     }
 *     ...
 *     umbra_named_report_print(STDERR_FILENO);     // one line for each description, "user name" among them
 *     umbra_named_free(name);
 * @endcode
 *
 * Descriptions. Any text will do, usually a literal that names the thing and the function that allocates it. Texts
 * count, not addresses: two literals of the same text share one entry. The library keeps a copy of its own; the
 * caller's text needs to live for the call only. Texts are cut to their first UMBRA_NAMED_DESCRIPTION_MAX bytes; a null
 * description counts as "unnamed". Each new text costs a small record that is never given back. Blocks are counted
 * under UMBRA_NAMED_OTHER when there is no memory for the record of their description, or when there are
 * UMBRA_NAMED_DESCRIPTIONS_MAX of them: descriptions are not meant to be made of data.
 *
 * Memory comes from malloc(3) and goes back to free(3); a block costs 16 bytes more than was asked for and is aligned
 * to 16 bytes. Only umbra_named_realloc() and umbra_named_free() may be given such a block, neither realloc nor free.
 *
 * Threads. All functions can be called from any thread, and a block may be freed by another thread than the one that
 * allocated it. The figures are exact once the calls that they are about have returned, also those of threads that have
 * ended; a child of fork() goes on with the figures of its parent. Nothing here may be called from a signal handler.
 *
 * Misuse. A library that was built with UMBRA_CHECK_BLOCKS (a build without NDEBUG, unless set to 0 or 1) ends the
 * program by abort(3), after one line on standard error, when it is handed a block that was freed before or a pointer
 * that it did not give out. The line names the description of a freed block while its memory is as it was left; a block
 * whose memory is in use again cannot be told from a live one, and misuse of it may go unnoticed. Blocks cost 48 bytes
 * more than was asked for in such a build, and each check is a system call. Other builds do not look.
 */
#ifndef UMBRA_NAMED_ALLOC_H
#define UMBRA_NAMED_ALLOC_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/** Bytes of a description that count, without its terminating NUL. */
#define UMBRA_NAMED_DESCRIPTION_MAX 63
/** Number of descriptions that are told apart. */
#define UMBRA_NAMED_DESCRIPTIONS_MAX 16383
/** What blocks without a description are counted under. */
#define UMBRA_NAMED_UNNAMED "unnamed"
/** What blocks are counted under whose own description could not be recorded. */
#define UMBRA_NAMED_OTHER "other descriptions"

/**
 * Allocates a block with undefined contents.
 *
 * @param size         bytes; 0 gives a block without bytes, which is counted and has to be freed like any other
 * @param description  what the block is for; null: "unnamed"
 * @return the block, aligned to 16 bytes; null with errno ENOMEM when there is no memory
 */
void *umbra_named_malloc_(uint64_t size, const char *description) __attribute__((alloc_size(1)));

/**
 * Allocates a zero-filled block for `count` elements of `size` bytes.
 *
 * @return as of umbra_named_malloc_(); null with errno ENOMEM also when `count * size` does not fit 64 bits
 */
void *umbra_named_calloc_(uint64_t count, uint64_t size, const char *description) __attribute__((alloc_size(1, 2)));

/**
 * Resizes a block, which keeps its description and its contents up to the smaller of both sizes.
 *
 * For the figures it stays the same block: only its bytes change.
 *
 * @param block  the block; null: a new block under "unnamed" is allocated
 * @param size   bytes; 0 makes it a block without bytes and does not free it
 * @return the block, most likely at another address: the old one is gone. Null with errno ENOMEM when there is no
 *         memory: the old block is as it was
 */
void *umbra_named_realloc(void *block, uint64_t size) __attribute__((alloc_size(2)));

/** Frees a block. Null is ignored; errno is kept. */
void umbra_named_free(void *block);

/** @return the bytes that were asked for when the block was allocated or last resized; 0 for null */
uint64_t umbra_named_size(const void *block);

/** @return the block's description, a string that lives as long as the library; null for null */
const char *umbra_named_description(const void *block);

/** What was allocated under one description. */
typedef struct umbra_named_usage {
    const char *description; /**< lives as long as the library */
    uint64_t live_blocks;    /**< blocks in use */
    uint64_t live_bytes;     /**< their bytes, as asked for: without what is added by the library and by malloc */
    uint64_t total_blocks;   /**< blocks that were ever allocated */
    uint64_t total_bytes;    /**< their bytes, and what blocks grew by */
    /**
     * The largest live_bytes there ever was. It is exact while one thread uses the description at a time; other threads
     * that allocate or free blocks of the description meanwhile can each shift it by less than 64 KiB, either way.
     * It is never below live_bytes.
     */
    uint64_t peak_bytes;
} umbra_named_usage;

/**
 * Takes the figures of all descriptions under which anything was ever allocated, in the order of strcmp(3).
 *
 * While other threads allocate and free, the figures of one entry belong to different moments: blocks that are freed
 * while the report is being made may count as live, and so may raise the peak that it shows. No more blocks or bytes
 * are ever seen freed than allocated.
 *
 * @param entries   takes the first `capacity` of them; may be null when `capacity` is 0
 * @param capacity  number of elements of `entries`
 * @return the number of descriptions, which may be more than `capacity`
 */
uint64_t umbra_named_report(umbra_named_usage *entries, uint64_t capacity);

/**
 * Finds the figures of one description.
 *
 * @param description  null stands for "unnamed"; only its first UMBRA_NAMED_DESCRIPTION_MAX bytes count
 * @param usage        takes the figures; left alone on failure
 * @return 0, ENOENT when nothing was ever allocated under it, or EINVAL when `usage` is null
 */
int32_t umbra_named_usage_of(const char *description, umbra_named_usage *usage);

/**
 * Adds up the figures of all descriptions.
 *
 * @param total  takes them, under the description "total"; its peak_bytes is the sum of the single peaks, and so an
 *               upper bound of what was ever in use at once. Null is ignored
 */
void umbra_named_total(umbra_named_usage *total);

/**
 * Prints the report as a table: a head, one line for each description and one for the total. Needs no memory.
 *
 * @param fd  the file descriptor to write to
 * @return 0, or the errno of the write that failed; EPIPE comes without a SIGPIPE
 */
int32_t umbra_named_report_print(int32_t fd);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
