/**
 * @file reader.h
 * Reading trace files, live ones and those that a crash left behind.
 *
 * @code
 *   skein_reader *reader = NULL;
 *   if (skein_reader_open(NULL, "agent/requests.trace", &reader) == 0) {
 *       skein_entry entry;
 *       while (skein_reader_next(reader, &entry) == 0) {
 *           printf("%llu %.*s\n", (unsigned long long)entry.time, (int)entry.length, entry.text);
 *       }
 *       skein_reader_close(reader);
 *   }
 * @endcode
 *
 * Opening takes a copy of the ring, as it was at that moment, without a lock and without disturbing writers; whatever
 * happens to the file afterwards does not matter. It takes as much memory as the file is large, until the reader is
 * closed; address space is taken for the size that the file's header tells, 4 GiB at most. Every entry is checked
 * against its checksum. No content of a file, however damaged or malicious, does more harm than wrong entries, and none
 * takes much longer to read than a sound one of its size.
 *
 * Different readers can be used by different threads at once; one reader by one thread at a time.
 */
#ifndef SKEIN_READER_H
#define SKEIN_READER_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/** A copy of a trace file. */
typedef struct skein_reader skein_reader;

/** One entry. */
typedef struct skein_entry {
    uint64_t ticket;      /**< number of its first slot; increases from entry to entry */
    uint64_t time;        /**< nanoseconds since 1970-01-01 00:00 UTC */
    uint32_t pid;         /**< process that wrote it */
    uint32_t tid;         /**< thread that wrote it */
    uint64_t attributes;  /**< as passed to _skein_str() */
    const char *text;     /**< NUL-terminated; belongs to the reader, until its next call */
    uint32_t length;      /**< bytes of the text */
    uint32_t full_length; /**< bytes of the text as it was passed: more than length if it was cut */
} skein_entry;

/** What there is to know about a file besides its entries. */
typedef struct skein_file_info {
    uint32_t version;     /**< of the file format */
    uint32_t slot_size;   /**< bytes of a slot */
    uint32_t slot_count;  /**< slots of the ring */
    uint32_t creator;     /**< process that made the file */
    uint64_t created;     /**< nanoseconds since 1970-01-01 00:00 UTC; tells a file from its successor */
    uint64_t next_ticket; /**< that the next entry will get */
    uint64_t entries;     /**< that skein_reader_next() gives in all */
    uint64_t lost;        /**< entries that writers dropped (EBUSY) since the file was made */
    uint64_t damaged;     /**< entries that are there and whose content is not what was written */
    uint64_t unfinished;  /**< slots of entries under way, or left so by a writer that was killed */
    uint64_t overrun;     /**< slots that were overwritten while they were being copied */
    uint32_t superseded;  /**< 1: the file was removed with skein_delete(), or moved aside */
    uint32_t truncated;   /**< 1: the file is shorter than its header says; what there is was read */
} skein_file_info;

/**
 * Copies a trace file.
 * @param directory  the directory of the trace files; null: the one of skein_directory(), which must then belong to the
 *                   user, as with skein_init2()
 * @param name       as in skein_init2()
 * @param reader     receives the reader, to be closed with skein_reader_close(); null on failure
 * @return 0; EINVAL null or bad name; ENOENT there is no such file; EBADMSG it is not a trace file, of another version,
 *         or its header is damaged; ENOTDIR, ELOOP, EISDIR, ENOTSUP, EPERM, EACCES as in skein_init2(); ENOMEM; other
 *         codes of the system calls
 */
int32_t skein_reader_open(const char *directory, const char *name, skein_reader **reader);

/** As skein_reader_open(), for a file anywhere. @p path is an ordinary path; links are followed. */
int32_t skein_reader_open_path(const char *path, skein_reader **reader);

/**
 * Gives the next entry, the oldest first. The order is the one in which the writers took their places, which is also
 * right when the clock was set back.
 * @return 0; ENOENT there are no more; EINVAL null
 */
int32_t skein_reader_next(skein_reader *reader, skein_entry *entry);

/** Goes back before the oldest entry. Null is ignored. */
void skein_reader_rewind(skein_reader *reader);

/** @return 0; EINVAL null */
int32_t skein_reader_info(const skein_reader *reader, skein_file_info *info);

/** Releases a reader. Null is ignored. */
void skein_reader_close(skein_reader *reader);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
