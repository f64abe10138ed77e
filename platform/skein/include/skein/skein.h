/**
 * @file skein.h
 * Trace files: rings of short texts in memory-mapped files, written by any number of threads and processes at once and
 * read while they are being written or long after.
 *
 * @code
 *   uint64_t trace = 0;
 *   int32_t error = skein_init2("agent/requests.trace", 0, 0, 6144, 1572864, 0, &trace);  // 6144 slots of 256 bytes
 *   if (error == 0) {
 *       _skein_str(trace, 0, "session 7 opened");
 *       skein_close(trace);
 *   }
 * @endcode
 * `skein cat agent/requests.trace` prints the entries; reader.h is for programs that read them; docs/trace-files.md
 * describes the files byte by byte.
 *
 * Results are 0 or a positive errno. All functions can be called from all threads at any time. No lock is ever held
 * that a killed process could leave behind: a writer that is killed at any instant costs at most the entry under way.
 *
 * ### Where the files are
 * In the directory that the environment variable SKEIN_DIR names (an absolute path of at most 1023 bytes; ignored by
 * programs that run with raised privileges), else in /dev/shm/skein-UID of the effective user. It is made with mode
 * 0700 if it is missing and refused (EPERM) if it belongs to another user or all users may write to it, (ENOTDIR) if
 * it is a symbolic link. Trace files have mode 0600.
 *
 * ### Names
 * A name is a path below that directory, such as "agent/requests.trace": at most 1023 bytes in components of 1 to 255
 * bytes, none of them "." or "..", no control characters. Other names give EINVAL. Missing directories are made with
 * mode 0700. No symbolic link is followed: one in place of a directory gives ENOTDIR, in place of the file ELOOP.
 *
 * ### fork
 * Handles work in a forked child as they do in its parent, whatever other threads were doing, and are closed there on
 * their own. Two things to know: a process made without fork(), by vfork(), _Fork() or a bare clone() system call, is
 * not noticed (its entries would carry its parent's process number); and a child that a signal handler forks should
 * exec or exit there, not return to the function of this library that it may have interrupted.
 *
 * ### What is not guarded against
 * Somebody who shortens a trace file while a program writes to it makes that program die of SIGBUS. Somebody who
 * removes or renames it (rm, mv) leaves the program writing to a file that nobody finds any more. While programs write
 * to a file, use skein_delete() or `skein delete NAME`, which they notice.
 */
#ifndef SKEIN_SKEIN_H
#define SKEIN_SKEIN_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/** The longest text that an entry holds, in bytes. A longer one is cut; the reader tells its full length. */
#define SKEIN_TEXT_MAX 65535

/**
 * Creates the named trace file, or attaches to it if it exists.
 *
 * The file is a ring of @p first_size slots of @p second_size / @p first_size bytes each, rounded down to a multiple of
 * 8, behind a header of 4096 bytes. An entry takes one slot if its text has at most slot size - 48 bytes; every further
 * slot holds slot size - 8 bytes more. An entry takes at most half of the ring (and one slot of a ring of one); a text
 * that would need more is cut as if it were longer than SKEIN_TEXT_MAX.
 *
 * A file that exists keeps its sizes, whatever the arguments are. One that is damaged or of another version is moved
 * aside to a name with ".damaged" appended, over the one that was moved there before, and a new one is made, to which
 * those who wrote to the damaged one change over.
 * A file appears under its name when it is complete, with all its space allocated, and the holes of one that exists (a
 * copy can have some) are filled: a full disk is reported here, not later by a signal. (File systems without
 * fallocate() are left their holes.)
 *
 * @param name         see above
 * @param zero_1       reserved: 0
 * @param zero_2       reserved: 0
 * @param first_size   number of slots, at least 1
 * @param second_size  bytes of all slots, at least 64 for each
 * @param zero_3       reserved: 0
 * @param handle       receives the handle, never 0; 0 on failure
 * @return 0; EINVAL null, bad name, sizes that do not fit together, reserved argument that is not 0, SKEIN_DIR that is
 *         relative or too long; ENOENT the directory in which SKEIN_DIR is to be made is missing; what stands in the
 *         way: EPERM, ENOTDIR, ELOOP, EISDIR, EACCES, ENOTSUP (the name is taken by something that is neither of
 *         directory, link and regular file); no room for the file: ENOSPC, EDQUOT, EFBIG; EMFILE more than 16384
 *         handles, or the process's limit of open files; EBUSY a damaged or removed file is being held; ENOMEM; other
 *         codes of the system calls
 */
int32_t skein_init2(const char *name, uint32_t zero_1, uint32_t zero_2, uint32_t first_size, uint32_t second_size,
                    uint32_t zero_3, uint64_t *handle);

/**
 * Closes a handle. The file stays. Writes that are under way in other threads are finished first, without waiting here.
 * @return 0; EBADF the handle is not open
 */
int32_t skein_close(uint64_t handle);

/**
 * Removes the named trace file. Those who still hold it open, in all processes, notice at their next write: once
 * there is a new file of that name (looked for at most every 10 ms) they write to it, until then to the removed one. A
 * handle has room for two files: it changes over again when no write to the file before the last is under way any more.
 * @return 0; ENOENT there is none; EINVAL bad name; EBUSY somebody else has been removing it for 0.2 s; else as
 *         skein_init2()
 */
int32_t skein_delete(const char *name);

/**
 * Appends an entry: the present time, the process and thread numbers, @p attributes and the text. Can also be called
 * from a signal handler, whatever it interrupted.
 * @param handle      a handle of skein_init2(); any other number is safe to pass
 * @param attributes  kept with the entry, unused otherwise
 * @param text        NUL-terminated; copied
 * @return 0; EBADF the handle is not open (also when another thread closes it at this instant); EINVAL null text; EBUSY
 *         every slot that came up was being written by somebody else: the entry is dropped and counted as lost;
 *         or 16383 writes with this handle are under way: the entry is dropped
 */
int32_t _skein_str(uint64_t handle, uint64_t attributes, const char *text);

/**
 * The path of the directory that holds the trace files, by the rule above; it need not exist.
 * @param path  receives it, NUL-terminated
 * @param size  bytes of @p path
 * @return 0; EINVAL null, or SKEIN_DIR is relative or too long; ERANGE @p size is too small
 */
int32_t skein_directory(char *path, uint64_t size);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
