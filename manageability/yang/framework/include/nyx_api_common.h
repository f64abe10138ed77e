/**
 * @file nyx_api_common.h
 * Helpers that the framework's components have in common.
 *
 * @section nyx_bounded_search Bounded search
 *
 * @code
 * const char *colon = NULL;
 * switch (strchar_s_tmp(name, name_size, ':', &colon)) {
 *     case 0:                  // colon is in name
 *     case SAFE_STR_NOT_FOUND: // there is none; colon is null
 *     default:                 // a broken argument; the constraint handler has been told
 * }
 * @endcode
 *
 * Four searches in a text that is bounded by dmax, in the manner of the bounded string functions (safestr/safestr.h),
 * whose result numbers and constraint handler they use. Arguments are checked in the order that each function states;
 * the first that is refused decides. The handler is called with the function's message, a null pointer and the number
 * that is returned; SAFE_STR_NOT_FOUND is no violation, and the handler is not called. Messages name the function of
 * the bounded string library that is stood in for.
 *
 *  - The out pointer is set to null before anything else is looked at. When it is null itself, 400 is returned and
 *    nothing is written.
 *  - dmax and slen are refused with 401 when they are 0 and with 403 when they exceed 2^63-1.
 *  - dmax and slen bound the characters that are searched. A text may be exactly that long: when the search comes
 *    that far, the character behind them is looked at as well, to see whether it is the terminator. A text that goes
 *    on there is unterminated, 407.
 *  - Characters are compared as unsigned bytes.
 *  - The searches never write to the texts, allocate nothing, log nothing, and keep no state: they can be called from
 *    any thread at any time.
 */
#ifndef NYX_API_COMMON_H
#define NYX_API_COMMON_H

#include <safestr/safestr.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/**
 * Finds the first occurrence of a character. For the character 0 it is the terminator.
 *
 * | check, in order | message | result |
 * |---|---|---|
 * | first is null | strfirstchar_s: index is null | 400 |
 * | dest is null | strfirstchar_s: dest is null | 400 |
 * | dmax is 0 | strfirstchar_s: dmax is 0 | 401 |
 * | dmax exceeds 2^63-1 | strfirstchar_s: dmax exceeds max | 403 |
 * | dest goes on behind dmax characters that hold no match | strfirstchar_s: dest is unterminated | 407 |
 *
 * @param first  becomes the address of the occurrence in dest; null for every other result than 0
 * @return 0, SAFE_STR_NOT_FOUND, or a result of the table
 */
errno_t strchar_s_tmp(const char *dest, rsize_t dmax, char character, const char **first);

/**
 * Finds the last occurrence of a character. The terminator is not looked for: the character 0 is never found, unlike
 * in strchar_s_tmp.
 *
 * | check, in order | message | result |
 * |---|---|---|
 * | last is null | strlastchar_s: last is null | 400 |
 * | dest is null | strlastchar_s: dest is null | 400 |
 * | dmax is 0 | strlastchar_s: dmax is 0 | 401 |
 * | dmax exceeds 2^63-1 | strlastchar_s: dmax exceeds max | 403 |
 * | dest goes on behind dmax characters | strlastchar_s: dest is unterminated | 407 |
 *
 * @param last  becomes the address of the occurrence in dest, null when there is none; with dest unterminated, that of
 *              the last occurrence among the first dmax characters
 * @return 0, SAFE_STR_NOT_FOUND, or a result of the table
 */
errno_t strrchar_s_tmp(const char *dest, rsize_t dmax, char character, const char **last);

/**
 * Finds the first character of a text that is one of a set.
 *
 * | check, in order | message | result |
 * |---|---|---|
 * | first is null | strpbrk_s: count is null | 400 |
 * | dest is null | strpbrk_s: dest is null | 400 |
 * | set is null | strpbrk_s: src is null | 400 |
 * | dmax is 0 | strpbrk_s: dmax is 0 | 401 |
 * | dmax exceeds 2^63-1 | strpbrk_s: dmax exceeds max | 403 |
 * | slen is 0 | strpbrk_s: slen is 0 | 401 |
 * | slen exceeds 2^63-1 | strpbrk_s: slen exceeds max | 403 |
 * | the set goes on behind slen characters, none of them dest's first one | strpbrk_s: src is unterminated | 407 |
 * | dest goes on behind dmax characters, none of them in the set | strpbrk_s: dest is unterminated | 407 |
 *
 * @param set    characters, of which slen are taken; not looked at when dest is empty
 * @param first  becomes the address of the character in dest; null for every other result than 0
 * @return 0, SAFE_STR_NOT_FOUND (dest or the set may be empty), or a result of the table
 */
errno_t strpbrk_s_tmp(const char *dest, rsize_t dmax, const char *set, rsize_t slen, const char **first);

/**
 * Finds the first occurrence of a text in another. An empty src, and a src that is dest itself, are found at dest.
 *
 * dmax bounds the positions at which an occurrence may start, not where it may end: a comparison that has begun may
 * read behind the first dmax characters, up to the terminator. The time is at worst proportional to the product of both
 * lengths.
 *
 * | check, in order | message | result |
 * |---|---|---|
 * | substring is null | strstr_s: substring is null | 400 |
 * | dest is null | strstr_s: dest is null | 400 |
 * | dmax is 0 | strstr_s: dmax is 0 | 401 |
 * | dmax exceeds 2^63-1 | strstr_s: dmax exceeds max | 403 |
 * | src is null | strstr_s: src is null | 400 |
 * | slen is 0 | strstr_s: slen is 0 | 401 |
 * | slen exceeds 2^63-1 | strstr_s: slen exceeds max | 403 |
 * | slen characters of src and one more, not its terminator, are found | strstr_s: src is unterminated | 407 |
 * | dest goes on behind dmax start positions without a match | strstr_s: dest is unterminated | 407 |
 *
 * @param substring  becomes the address of the occurrence in dest; null for every other result than 0
 * @return 0, SAFE_STR_NOT_FOUND, or a result of the table
 */
errno_t strstr_s_tmp(const char *dest, rsize_t dmax, const char *src, rsize_t slen, const char **substring);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
