/**
 * @file debug_trace.h
 * Debug flags, and the log that honours them.
 *
 * Flags form a tree: a program registers one flag for itself or for each of its components and others below it, such as
 * "nyx" with "error", "debug" and "trace". Each log site names the flag it belongs to; the site writes only while that
 * flag is on. An operator's front end can show the tree and switch its flags.
 *
 * @code
 *     static uint64_t agent, agent_error;
 *     if (umbra_dt_flag_init(&agent, "agent", 0, 0, 0) != 0 ||
 *         umbra_dt_flag_init(&agent_error, "error", agent, 0, 0) != 0) {
 *         return EXIT_FAILURE;
 *     }
 *     umbra_dt_flag_enable(agent, 0);
 *     umbra_dt_flag_enable(agent_error, 0);
 *
 *     static uint32_t filter = UMBRA_DT_ALL;       // one for each log site
 *     _umbra_dt_log_filter_adv(agent_error, 0, 0, 0, 0, 0, &filter, "no answer from %s", peer);
 *     // 2026-01-02T03:04:05.678901Z 1234/1240 agent/error: no answer from 192.0.2.1
 *
 *     umbra_dt_flag_destroy(agent);                // and "agent/error" with it
 * @endcode
 *
 * A flag is on while it and all flags above it are enabled: disabling "agent" silences everything of the agent, and
 * enabling it again brings back what was on before.
 *
 * A flag is named by a handle, which is never 0. The handle of a flag that was destroyed is refused by all functions
 * and logs nothing, also after its place in the tree was taken by another flag.
 *
 * All functions can be called from any thread, but not from a signal handler. A child of fork() has the flags and
 * outputs of its parent; other processes have flags of their own.
 */
#ifndef UMBRA_DEBUG_TRACE_H
#define UMBRA_DEBUG_TRACE_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/** Longest name of a flag, in bytes. */
#define UMBRA_DT_NAME_MAX 127
/** Longest path of names, in bytes. */
#define UMBRA_DT_PATH_MAX 511
/** Number of flags that there can be at a time. */
#define UMBRA_DT_FLAGS_MAX 16384

/**
 * Registers a flag, which is disabled at first.
 *
 * Where a flag of that name exists already at that place, it is shared: the same handle is stored, the flag stays
 * enabled or disabled as it was, and umbra_dt_flag_destroy() has to be called once more before it goes. So two parts of
 * a program that do not know of each other can both register, say, "agent".
 *
 * @param flag         takes the handle, or 0 on failure
 * @param name         1 to UMBRA_DT_NAME_MAX bytes, of which the library keeps a copy. Better without '/': in paths it
 *                     looks as if there were another flag above
 * @param parent_flag  the flag above; 0 for one at the top
 * @param zero_1       0
 * @param zero_2       0
 * @return 0; EINVAL when `flag` or `name` is null, `name` is empty or too long, there is no such parent, or one of the
 *         zeros is not 0; ENAMETOOLONG when the path would be longer than UMBRA_DT_PATH_MAX; ENOSPC when there are
 *         UMBRA_DT_FLAGS_MAX flags; ENOMEM
 */
int32_t umbra_dt_flag_init(uint64_t *flag, const char *name, uint64_t parent_flag, uint32_t zero_1, uint32_t zero_2);

/** Enables a flag. @param zero 0. @return 0, or EINVAL when there is no such flag or `zero` is not 0 */
int32_t umbra_dt_flag_enable(uint64_t flag, uint32_t zero);

/** Disables a flag. @return 0, or EINVAL when there is no such flag */
int32_t umbra_dt_flag_disable(uint64_t flag);

/**
 * Destroys a flag together with all flags below it, however often those are shared.
 *
 * A flag that was registered several times at its place stays, with all below it, until it was destroyed as often.
 * A log that another thread is just writing through one of the flags may still come out.
 *
 * @return 0, or EINVAL when there is no such flag
 */
int32_t umbra_dt_flag_destroy(uint64_t flag);

/** @return the handle of the first flag with a path such as "agent/error"; 0 when there is none, or for null */
uint64_t umbra_dt_flag_find(const char *path);

/** A flag as a front end shows it. */
typedef struct umbra_dt_flag_info {
    uint64_t flag;                    /**< its handle */
    uint64_t parent_flag;             /**< the handle of the flag above; 0 at the top */
    uint32_t is_enabled;              /**< 1 when it is enabled itself, else 0 */
    uint32_t is_on;                   /**< 1 when all flags above it are enabled, too, else 0 */
    char path[UMBRA_DT_PATH_MAX + 1]; /**< the names from the top down to it, with '/' in between */
} umbra_dt_flag_info;

/**
 * Takes a picture of the tree: each flag is followed by those below it; flags side by side stand in the order in which
 * they were registered.
 *
 * @param entries   takes the first `capacity` flags; may be null when `capacity` is 0
 * @param capacity  number of elements of `entries`
 * @return the number of flags, which may be more than `capacity`
 */
uint64_t umbra_dt_flags(umbra_dt_flag_info *entries, uint64_t capacity);

/**
 * Prints the tree, one line for each flag: "on", "off", or "held" for one that is enabled below a disabled one, and the
 * path.
 *
 * @param fd  the file descriptor to write to
 * @return 0, or the errno of the write that failed; EPIPE comes without a SIGPIPE
 */
int32_t umbra_dt_flags_print(int32_t fd);

/**
 * @name Outputs, as bits of a filter word
 * @{
 */
#define UMBRA_DT_STREAM UINT32_C(1)       /**< umbra_dt_log_to_stream() */
#define UMBRA_DT_SYSLOG UINT32_C(2)       /**< umbra_dt_log_to_syslog() */
#define UMBRA_DT_CALLBACK UINT32_C(4)     /**< umbra_dt_log_to_callback() */
#define UMBRA_DT_ALL UINT32_C(0xffffffff) /**< every output */
/** @} */

/**
 * Logs a text, if its flag is on, to those outputs that are in use and that the site's filter word selects.
 *
 * The line is "TIME PROCESS/THREAD PATH: TEXT", where the time is UTC with microseconds, as in the example above. Of
 * the text's first 2048 bytes and of the line's first 4096, its line feed included, nothing is lost; where a line was
 * cut, it ends in " [cut]". One log is one line, and does nothing to a terminal but show: tabulator, line feed and
 * carriage return are written as `\t`, `\n` and `\r`, and as `\xNN` each byte of other control characters, of those
 * that change the direction of writing, and of what is not UTF-8. A single line feed at the text's end is dropped. A
 * text that cannot be formatted is replaced by its format.
 *
 * A line takes one write(2), which no other line of any thread can cut in two; nor can one of another process where the
 * stream is a pipe or a file opened to append. (A second write follows if the first took less than the line.) A line
 * that the stream does not take is lost, and counted: umbra_dt_lost_lines(). So is one to a pipe or socket whose reader
 * is gone: no SIGPIPE comes of it, however the program handles that signal.
 *
 * When the flag is off or the filter word is 0, nothing is formatted, no lock is taken and nothing is written. Logging
 * allocates no memory, except for what printf(3) and syslog(3) do. errno is kept, and %m prints it.
 *
 * @param flag    the flag; an unknown one logs nothing
 * @param zero_1  0, like the four that follow
 * @param filter  the site's filter word: UMBRA_DT_ALL selects every output, 0 silences this one site. It is read at
 *                each log, so that the program can change it at any time (by an atomic store, if from another thread).
 *                Null selects every output
 * @param format  as for printf(3), with its arguments; null logs nothing
 */
void _umbra_dt_log_filter_adv(uint64_t flag, uint64_t zero_1, uint64_t zero_2, uint64_t zero_3, uint64_t zero_4,
                              uint64_t zero_5, uint32_t *filter, const char *format, ...)
    __attribute__((format(printf, 8, 9)));

/**
 * Sends lines to a file descriptor: standard error, unless told otherwise.
 *
 * @param fd  stays the caller's, who keeps it open as long as it is in use here; -1 for none
 * @return 0, or EBADF when `fd` is neither -1 nor open
 */
int32_t umbra_dt_log_to_stream(int32_t fd);

/**
 * Sends "PATH: TEXT" to syslog(3), which adds time and process; at first nothing is sent there.
 *
 * @param priority  facility and level, such as LOG_DAEMON | LOG_INFO; -1 for none
 */
void umbra_dt_log_to_syslog(int32_t priority);

/**
 * Takes a line.
 *
 * It can be called from several threads at once. What it logs itself goes to the other outputs only. It has to return:
 * neither longjmp, nor an exception, nor the end of its thread may leave it.
 *
 * @param line    the line as it is written to a stream, with a NUL in the place of its line feed; valid for the call
 * @param length  bytes before the NUL
 * @param ctx     what the callback was set with
 */
typedef void (*umbra_dt_line_fn)(const char *line, uint64_t length, void *ctx);

/**
 * Hands lines to a callback; at first there is none.
 *
 * When this returns, no thread is in the callback that was set before, and `ctx` of that one may go. Lines that are
 * logged while another thread is leaving the old callback are handed to neither.
 *
 * @param callback  null for none
 * @param ctx       handed to it, otherwise unused
 * @return 0, or EDEADLK when called from within a callback: nothing is changed
 */
int32_t umbra_dt_log_to_callback(umbra_dt_line_fn callback, void *ctx);

/**
 * Silences the sites whose format contains a text, for instance one that an operator has seen too often.
 *
 * @param text  1 to UMBRA_DT_NAME_MAX bytes
 * @return 0, also when it was silenced before; EINVAL when `text` is null, empty or too long; ENOSPC when 32 texts are
 *         silenced
 */
int32_t umbra_dt_silence(const char *text);

/** Takes back umbra_dt_silence() of the same text. @return 0, or ENOENT when it was not silenced */
int32_t umbra_dt_unsilence(const char *text);

/** @return the number of lines that the stream did not take, since the program began */
uint64_t umbra_dt_lost_lines(void);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
