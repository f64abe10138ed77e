/**
 * @file safestr.h
 * Bounded string and memory functions: the interface of Annex K of C11, with a few functions besides. Each one is told
 * how large the destination is, checks its arguments, and never writes past that size.
 *
 * @code
 * char path[64];
 * if (strcpy_s(path, sizeof path, directory) != 0 || strcat_s(path, sizeof path, "/running.xml") != 0) {
 *     return -1;   // did not fit; path is now ""
 * }
 *
 * static void complain(const char *message, void *ptr, errno_t code) {
 *     (void)ptr;
 *     fprintf(stderr, "%s (%d)\n", message, code);   // "strcpy_s: not enough space for src (406)"
 * }
 * ...
 * set_safe_str_constraint_handler(complain);   // once, at the program's start
 * @endcode
 *
 * @section safestr_bounds Bounds
 *
 * A bound (dmax, slen, smax, n) counts bytes and may be at most RSIZE_MAX, 2^63-1. dmax is the size of the object at
 * dest. It is taken at its word: dmax bytes may be read or written there. RSIZE_MAX itself does as "whatever is there";
 * nothing is read behind a text's terminator however large the bound is, and nothing behind a bound.
 *
 * @section safestr_violations Violated constraints
 *
 * Arguments are checked in this order: null pointers (400), a dmax of 0 (401), bounds above RSIZE_MAX (403), then what
 * the function says: dest not terminated (407), not enough space (406), objects that overlap (404). Of the arguments of
 * one kind, the first in the parameter list comes first, except where a function says otherwise. The first constraint
 * found violated decides. Then
 *
 *  1. dest is made harmless. Functions on text make it the empty string; memcpy_s and memmove_s
 *     fill its dmax bytes with zero, memset_s fills them with its value. This is left out when
 *     dest is null, or dmax is 0 or above RSIZE_MAX. The memory functions leave dest alone as
 *     well when dmax bytes there would end beyond address 2^63-1: this is no size of an object
 *     (RSIZE_MAX never is), and the fill would run into memory that is not dest's.
 *  2. the constraint handler is called with "function: reason", a null pointer and the number.
 *  3. the number is returned.
 *
 * Objects overlap when one of the bytes that the call would write is one of those it would read of src, terminators
 * included. Memory that merely lies within a bound does not count.
 *
 * @section safestr_threads Thread safety
 *
 * The functions keep no state but the handler, which is set and called atomically; they can be called from any thread
 * at any time on memory that no other thread is changing. Nothing is allocated.
 */
#ifndef SAFESTR_SAFESTR_H
#define SAFESTR_SAFESTR_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

typedef int errno_t;      /**< 0 or one of the numbers below */
typedef uint64_t rsize_t; /**< a number of bytes */

#ifndef RSIZE_MAX
#define RSIZE_MAX (UINT64_MAX >> 1) /**< the largest bound that is accepted, 2^63-1 */
#endif

/** Results other than 0. */
enum {
    SAFE_STR_NOT_FOUND = 3,      /**< what was looked for is not there; no violation, the handler is not called */
    SAFE_STR_NULL_POINTER = 400, /**< a pointer is null */
    SAFE_STR_ZERO_LENGTH = 401,  /**< dmax is 0 */
    SAFE_STR_ABOVE_MAX = 403,    /**< a bound exceeds RSIZE_MAX */
    SAFE_STR_OVERLAP = 404,      /**< dest and src overlap */
    SAFE_STR_NO_SPACE = 406,     /**< the result does not fit into dest */
    SAFE_STR_UNTERMINATED = 407  /**< dest has no terminator among its dmax characters */
};

/**
 * Copies src with its terminator.
 *
 * @return 0, 400, 401, 403; 406 when src with its terminator is longer than dmax (no more than dmax characters of it
 * are read); 404
 */
errno_t strcpy_s(char *dest, rsize_t dmax, const char *src);

/**
 * Copies src, but at most slen characters of it, and puts a terminator behind them. src need not be terminated within
 * slen characters. An slen of 0 makes dest the empty string.
 *
 * @return 0, 400, 401, 403 (dmax, slen); 406 when what is to be copied and the terminator exceed dmax; 404
 */
errno_t strncpy_s(char *dest, rsize_t dmax, const char *src, rsize_t slen);

/**
 * Appends src with its terminator to the text in dest, whose terminator it overwrites.
 *
 * @return 0, 400, 401, 403, 407; 406 when the two texts with one terminator are longer than dmax; 404
 */
errno_t strcat_s(char *dest, rsize_t dmax, const char *src);

/**
 * Appends src, but at most slen characters of it, to the text in dest and puts a terminator behind them. With an slen
 * of 0 dest stays as it is, and the call succeeds. The characters may be taken from dest itself, as long as its
 * terminator is not among them.
 *
 * @return 0, 400, 401, 403 (dmax, slen), 407; 406 when the whole does not fit into dmax; 404
 */
errno_t strncat_s(char *dest, rsize_t dmax, const char *src, rsize_t slen);

/**
 * Compares two texts, character by character as unsigned bytes, and at most dmax characters: texts that do not differ
 * until then are equal, terminated or not.
 *
 * @param indicator  becomes negative, 0 or positive as dest is less than, equal to or greater than src; 0 after a
 *                   violation, so look at the result first
 * @return 0, 400 (dest, src, indicator), 401, 403
 */
errno_t strcmp_s(const char *dest, rsize_t dmax, const char *src, int *indicator);

/**
 * The length of a text, without its terminator.
 *
 * @return the length; smax when there is no terminator among the first smax characters; 0 when s is null, without a
 * call of the handler; 0 when smax exceeds RSIZE_MAX, after a call of the handler with 403
 */
rsize_t strnlen_s(const char *s, rsize_t smax);

/**
 * Copies n bytes between objects that do not overlap. With n 0 nothing is copied, and dmax may be 0 as well.
 *
 * @return 0, 400, 401 (dmax is 0, n is not), 403 (dmax, n); 406 when n exceeds dmax; 404
 */
errno_t memcpy_s(void *dest, rsize_t dmax, const void *src, rsize_t n);

/**
 * Copies n bytes between objects that may overlap. With n 0 nothing is copied, and dmax may be 0 as well.
 *
 * @return 0, 400, 401 (dmax is 0, n is not), 403 (dmax, n); 406 when n exceeds dmax
 */
errno_t memmove_s(void *dest, rsize_t dmax, const void *src, rsize_t n);

/**
 * Sets n bytes to value, taken as an unsigned char. The bytes are stored also when nothing reads them afterwards: good
 * for wiping secrets. With n 0 nothing is stored, and dmax may be 0 as well. After a violation, the dmax bytes are set
 * to value.
 *
 * @return 0, 400, 401 (dmax is 0, n is not), 403 (dmax, n); 406 when n exceeds dmax
 */
errno_t memset_s(void *dest, rsize_t dmax, int value, rsize_t n);

/**
 * Finds the first occurrence of a character. The terminator can be looked for as well. The text is not changed, neither
 * after a violation.
 *
 * @param first  becomes the address of the character; null for every other result than 0, and checked before dest
 * @return 0, SAFE_STR_NOT_FOUND, 400 (first, dest), 401, 403; 407 when neither the character nor a terminator is among
 * the first dmax characters
 */
errno_t strfirstchar_s(char *dest, rsize_t dmax, char c, char **first);

/**
 * Is told of violated constraints, on the thread that violated one.
 *
 * @param message  "function: reason"; a constant that lives as long as the library is loaded, when it comes from a
 *                 function of this header
 * @param ptr      null, when the call comes from a function of this header
 * @param code     the number that the function will return (strnlen_s will return 0)
 *
 * It may call any function of this header. It need not return: dest has been made harmless before.
 */
typedef void (*safe_str_constraint_handler)(const char *message, void *ptr, errno_t code);

/**
 * Sets the handler of the whole process; null restores the default one, which does nothing. A handler that was replaced
 * may still be running, or about to run, on other threads.
 *
 * @return the handler until now, never null: setting it again restores it, also if it was the default one
 */
safe_str_constraint_handler set_safe_str_constraint_handler(safe_str_constraint_handler handler);

/** Calls the current handler with these arguments, for bounded functions that are defined elsewhere. */
void invoke_safe_str_constraint_handler(const char *message, void *ptr, errno_t code);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
