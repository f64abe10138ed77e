/**
 * @file nyx_api_common.h
 * Helpers that the framework's components have in common: data trees (@ref nyx_data_trees), their dumps in trace files
 * (@ref nyx_dumps), XPath expressions for error paths (@ref nyx_xpath), bounded string operations
 * (@ref nyx_bounded_strings), string helpers (@ref nyx_strings) and bounded search (@ref nyx_bounded_search).
 *
 * Blocks that these functions hand out come from the named-allocation service (umbra/named_alloc.h), under the
 * description that stands with each, and go back through umbra_named_free().
 *
 * @section nyx_data_trees Data trees
 *
 * @code
 * quill_nyx_datatree *entries = nyx_gpb_datatree_create(&api, 2);     // two empty records in one block
 * if (entries == NULL) { return NYX_RC_NO_MEMORY; }
 * entries[0].name = nyx_strdup("bad-element", "name of an info entry");
 * entries[0].has_name = entries[0].name != NULL;
 * ...
 * for (uint32_t i = 0; i < 2; ++i) { quill_nyx_datatree_free_ext(&entries[i], nyx_gpb_free, NULL, 0); }
 * nyx_gpb_free(entries, NULL);
 * @endcode
 *
 * nyx_gpb_alloc() and nyx_gpb_free() are the codec's callbacks for such trees. What was decoded or copied with
 * them, and what nyx_error.h stores in a result, is released with nyx_gpb_free().
 *
 * @section nyx_dumps Dumps
 *
 * @code
 * nyx_gpb_datatree_trace_internal(&api.debug, &request.edit_config.config, "edit-config");
 *
 *   edit-config:
 *       config (urn:ietf:params:xml:ns:netconf:base:1.0)
 *           interface (merge) xmlns=urn:example:interfaces (dn)
 *               name : eth0 (kn)
 * @endcode
 *
 * Readable, indented text in a component's trace file. Lines are gathered: an entry is written as soon as 160
 * characters or more have come together, and at the end. An entry is "#", the number of the trace line, ": " and the
 * text, and is **cut to 249 characters**. Text that comes to more than 1,023 characters between two entries is cut
 * before that, and ends in "[TRUNCATED...]", which lies behind what an entry shows. While tracing is off nothing is
 * written. Nothing goes to the debug log.
 *
 * A dump allocates nothing and takes time in proportion to the tree; each level of it takes some stack, as in the
 * codec.
 *
 * @section nyx_xpath XPath expressions
 *
 * @code
 * static const char ns[] = "urn:example:interfaces";
 * const char *const keys[] = {"ns1:name"};                      // with its prefix: see below
 * const char *const values[] = {"eth0"};
 * xpath_context path;
 * if (xpath_context_init(&path) != 0) { return ENOMEM; }
 * xpath_prepend(&path, "mtu", ns, NULL, NULL, 0);
 * xpath_prepend(&path, "interface", ns, keys, values, 1);
 * xpath_prepend(&path, "interfaces", ns, NULL, NULL, 0);
 * xpath_to_nyx_error(&path, &result.error);
 * xpath_context_destroy(&path);
 * @endcode
 *
 * The path is `ns1:interfaces/ns1:interface[ns1:name = 'eth0']/ns1:mtu`, with an attribute `xmlns:ns1`.
 *
 * A context collects the path of a node while its caller walks from the node up to the root: each step is put before
 * what is there. Each namespace gets a prefix, ns1, ns2 and so on in the order of their first use, and the prefixes are
 * declared by attributes of the error path. Results are errno numbers: 0, EINVAL (22), ENOMEM (12).
 *
 * **Every name needs its prefix.** In XPath 1.0 a name without one is in no namespace, also where the data have a
 * default namespace: left out once, the path selects nothing. A step with a null namespace has no prefix. Key names are
 * taken **as they are**, with the prefix that the caller has written. It is the one that the step itself has, or is
 * about to be given:
 *
 * @code
 * umbra_hashmap_entry *known = umbra_hashmap_get(path.namespace_aliases, ns);
 * if (known != NULL) {
 *     snprintf(key, sizeof key, "%s:name", (const char *)umbra_hashmap_value(known));
 * } else {
 *     snprintf(key, sizeof key, "ns%u:name", (unsigned)umbra_hashmap_size(path.namespace_aliases) + 1U);
 * }
 * @endcode
 *
 * **The path is relative, NETCONF's error-path is absolute.** No step puts a "/" at the front: whoever writes the XML
 * does.
 *
 * Key values stand between single quotes **as they are**: one that holds a single quote makes an expression that is
 * none. Such a predicate can be written by the caller as a part of the step's name, between double quotes.
 *
 * @section nyx_bounded_strings Bounded string operations
 *
 * @code
 * char name[16];
 * if (nyx_strcpy_s("agent_read_name", name, sizeof name, text) != 0) { ... }     // logged, with the first argument
 * @endcode
 *
 * Two layers before the bounded string functions (safestr/safestr.h). nyx_strcpy_s() and its like check their arguments
 * themselves and log what they refuse; the function itself is not called then, so that neither its constraint handler
 * is, nor the destination emptied. What their checks let through is up to the function, whose result is passed on, not
 * logged. nyx_safe_strncpy() and its like check and log nothing, and return an rcode.
 *
 * The logging ones check in this order, and the first that fails decides:
 *
 * | check | message | result |
 * |---|---|---|
 * | a pointer is null | of the function, below | 400 |
 * | a length is 0 | of the function, below | 401 |
 * | a length is 2^63 or more | `dmax exceeds max. ` | 403 |
 * | the source does not fit | `not enough space for src. ` | 406 |
 *
 * They log at TRC, with the caller's name (null shows as "(null)") and a message, through nyx_ctx_log. It is asserted
 * when there is something to log: **call nyx_log_set_ctx() before**. Any thread may call them when the log context may
 * be used from there.
 *
 * @section nyx_strings String helpers
 *
 * @code
 * const str_replacement pairs[] = {{"&", "&amp;"}, {"<", "&lt;"}};
 * char *escaped = str_replace_multi(text, pairs, 2, "escaped text");
 * ...
 * umbra_named_free(escaped);
 * @endcode
 *
 * Texts are NUL-terminated bytes. Characters are classified and mapped by the process's locale. Memory pressure apart,
 * which nyx_strdup() asks for, the helpers depend on nothing but their arguments and can be called from any thread; the
 * one exception is nyx_tokenize_and_get_token().
 *
 * @section nyx_bounded_search Bounded search
 *
 * @code
 * const char *colon = NULL;
 * switch (strchar_s_tmp(name, sizeof name - 1, ':', &colon)) {
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

#include <stdint.h>

#include "nyx_api.h"
#include "nyx_debug.h"
#include "quill_nyx.h"
#include "rcode/rcode.h"
#include "safestr/safestr.h"
#include "umbra/hashmap.h"

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/**
 * Makes an array of empty data-tree records, in one block under "GPB datatree (nyx_req_datatree_create)": everything in
 * them is 0 or null, all presence bits are clear.
 *
 * @param ctx    logs a failure at ERR ("NYX datatree allocation failed"), and is asserted only then
 * @param count  0 gives what the named-allocation service has for 0 bytes; null counts as a failure then as well
 * @return the array. The caller owns it: each record's contents go through quill_nyx_datatree_free_ext() with
 *         nyx_gpb_free, then the block through nyx_gpb_free(). Null: no memory
 */
quill_nyx_datatree *nyx_gpb_datatree_create(nyx_api_ctx *ctx, uint32_t count);

/**
 * A quill_alloc_fn on the named-allocation service.
 * @param alloc_ctx  ignored
 * @return a zero-filled block under "NYX GPB"; null: no memory
 */
void *nyx_gpb_alloc(uint64_t size, void *alloc_ctx);

/**
 * The quill_free_fn of nyx_gpb_alloc(), and of every other block of the named-allocation service.
 * @param block     null does nothing
 * @param free_ctx  ignored; C++ may leave it out
 */
#ifdef __cplusplus
void nyx_gpb_free(void *block, void *free_ctx = nullptr);
#else
void nyx_gpb_free(void *block, void *free_ctx);
#endif

/**
 * Dumps a data tree. In C's format notation:
 *
 *  - the title, if there is one: `%s:`
 *  - the root, if its name is present: four blanks, `%s (%s) : %s` of name, namespace and value; without the last
 *    part if the value is absent; the name alone, even if there is a value, if the namespace is absent;
 *  - below a root whose name is present, each descendant, on level 2 and below: four blanks for each level and the
 *    name; ` : %s` of a value that is present; when an operation is present ` (merge)`, ` (replace)`, ` (create)`,
 *    ` (delete)`, ` (remove)` or, for another number, ` (-)`; ` %s=%s` of each attribute; and for the kinds of node 1
 *    to 4 ` (dn)`, ` (kn)`, ` (ka)` and ` (da)`, whether the kind is marked present or not.
 *
 * A text that is marked present but null counts as empty; an array that is null, as one without elements. The children
 * of the root are dumped also if they are not marked present.
 *
 * @param debug_ctx  whose trace file and switch are used
 * @param title      may be null
 * @return 0, also while tracing is off; NYX_RC_INVALID_ARGUMENT: context or tree is null, nothing is written
 */
rcode nyx_gpb_datatree_trace_internal(nyx_debug_ctx_t *debug_ctx, const quill_nyx_datatree *tree, const char *title);

/**
 * Dumps a list of schemas: the title, if there is one, as `%s:`, then for each schema a line
 * `    [%d]: %s, %s, %s, %s, %d` of its index, string_2, string_1, string_5, string_3 and flag_4. What is absent prints
 * as empty, and the flag as 0. At the end an entry is written also if nothing is left for it.
 *
 * @param debug_ctx  whose trace file and switch are used
 * @param schemas    may be null: title and last entry are written nevertheless
 * @param title      may be null
 * @return 0, also while tracing is off; NYX_RC_INVALID_ARGUMENT: context or schemas is null
 */
rcode nyx_gpb_schemas_trace_internal(nyx_debug_ctx_t *debug_ctx, const quill_nyx_schema *schemas, uint32_t count,
                                     const char *title);

/** An XPath expression that grows towards its front. Made by xpath_context_init(). */
typedef struct xpath_context {
    char *path;                       /**< the expression, owned by the context; null before the first step */
    umbra_hashmap *namespace_aliases; /**< from namespaces to their prefixes; xpath_context_destroy() releases both */
} xpath_context;

/**
 * Makes a context empty. What it held is forgotten: destroy a context before it is made anew.
 * @param ctx  null does nothing
 * @return 0, or the result of umbra_hashmap_create(), after which the context may be destroyed but not be used
 */
int xpath_context_init(xpath_context *ctx);

/**
 * Releases what a context holds, and leaves its members null, so that it may be destroyed again.
 * @param ctx  null does nothing
 */
void xpath_context_destroy(xpath_context *ctx);

/**
 * Copies a text with its terminator, for chaining: the result is where the next text goes.
 *
 * @param dst  has room for the text; null: nothing is done
 * @param src  null: nothing is written
 * @return the address of the terminator in dst; dst if src is null
 */
char *nyx_stpcpy(char *dst, const char *src);

/**
 * Puts a step before the path: `name`, `ns1:name` if there is a namespace, `name[key = 'value' and key = 'value']` if
 * there are keys, and "/" with the path so far behind it. The path never begins with "/". Its block is described "xpath
 * error string", those of a new namespace "namespace alias" and "copy of namespace for xpath attribute".
 *
 * @param ns          null, for a node in no namespace: the step has no prefix. An empty one gets a prefix like any
 *                    other, which XML cannot declare
 * @param key_names   key_count texts, prefixes included ("ns1:name"); a null one counts as empty, and so in
 *                    key_values
 * @param key_values  key_count texts; not escaped
 * @return 0, in time linear in the new path. EINVAL: context or name is null, there are keys but no key_names or
 *         key_values, or the caller has put a null prefix into the map. ENOMEM: there is no memory. After a failure the
 *         path is as it was; a prefix that was made for the step is kept
 */
int xpath_prepend(xpath_context *ctx, const char *name, const char *ns, const char *const *key_names,
                  const char *const *key_values, uint32_t key_count);

/**
 * Writes the path into an error's path, as its value, and the prefixes as its attributes: `xmlns:ns1` with the
 * namespace as its value, and so on, in the order in which the map has them (with the map that comes with the library:
 * the order of their first use). The context keeps what it has. Blocks are described "copy of xpath path", "query
 * transformer namespace attributes", "copy of xpath namespace tag" and "prepended 'xmlns:' to xpath namespace value".
 *
 * @param error  owns what is written, and gives it back through nyx_gpb_free(). The path gets no name; the one of
 *               nyx_req_result_error_path_set() is called " "
 * @return
 *  - 0: the attributes are all there. **The value may be null**, though it is marked present, when there was no memory
 *    for it or the context has no path;
 *  - EINVAL: context or error is null, or the path has a value: the error is as it was. Or it has attributes: the value
 *    is written, they are as they were;
 *  - ENOMEM, also for a null prefix that the caller has put into the map: the value is written, as with 0, and there
 *    are no attributes. The copies that were made before that, and their array, **are not released**.
 */
int xpath_to_nyx_error(xpath_context *ctx, quill_nyx_error *error);

/**
 * strcpy_s() with logged checks: dest and src ("src/dest is null", without a full stop), dmax ("dmax is 0. "), and that
 * src with its terminator fits dmax.
 *
 * @param caller  the calling function's name, for the log line
 * @return 400, 401, 403, 406 of a check, with dest untouched; else the result of strcpy_s()
 */
errno_t nyx_strcpy_s(const char *caller, char *dest, rsize_t dmax, const char *src);

/**
 * strncpy_s() with logged checks: dest and src ("src/dest is null. "), dmax and slen ("dmax/slen is 0. "), and, unless
 * slen is below dmax, that src with its terminator fits dmax.
 *
 * @param caller  the calling function's name, for the log line
 * @return 400, 401, 403, 406 of a check, with dest untouched; else the result of strncpy_s()
 */
errno_t nyx_strncpy_s(const char *caller, char *dest, rsize_t dmax, const char *src, rsize_t slen);

/**
 * strcat_s() with logged checks: dest and src ("src/dest is null. "), dmax ("dmax is 0. "), and that src with its
 * terminator would fit dmax if dest were empty: whether it fits behind dest's text, strcat_s() checks.
 *
 * @param caller  the calling function's name, for the log line
 * @return 400, 401, 403, 406 of a check, with dest untouched; else the result of strcat_s()
 */
errno_t nyx_strcat_s(const char *caller, char *dest, rsize_t dmax, const char *src);

/**
 * strncat_s() with the logged checks of nyx_strcat_s(). slen is not checked, also not for 0, and the whole of src
 * counts for the space.
 *
 * @param caller  the calling function's name, for the log line
 * @return 400, 401, 403, 406 of a check, with dest untouched; else the result of strncat_s()
 */
errno_t nyx_strncat_s(const char *caller, char *dest, rsize_t dmax, const char *src, rsize_t slen);

/**
 * strcmp_s() with logged checks: dest, src and indicator ("src/dest/indicator is null. "), and dmax ("dmax is 0. ").
 *
 * @param caller     the calling function's name, for the log line
 * @param indicator  not touched when a check fails
 * @return 400, 401, 403 of a check; else the result of strcmp_s()
 */
errno_t nyx_strcmp_s(const char *caller, const char *dest, rsize_t dmax, const char *src, int *indicator);

/**
 * strncpy_s() for framework code. With slen 0 it does nothing and returns 0: dest is not even terminated.
 * @return 0; NYX_RC_INVALID_ARGUMENT: strncpy_s() refused
 */
rcode nyx_safe_strncpy(char *dest, rsize_t dmax, const char *src, rsize_t slen);

/**
 * strncat_s() for framework code. With slen 0 it does nothing and returns 0.
 * @return 0; NYX_RC_INVALID_ARGUMENT: strncat_s() refused
 */
rcode nyx_safe_strncat(char *dest, rsize_t dmax, const char *src, rsize_t slen);

/**
 * strcmp_s() for framework code.
 *
 * @param indicator  as strcmp_s() sets it: 0 when the texts are equal. After a failure never 0: it becomes 1 if it was
 *                   left 0. Null is refused by strcmp_s()
 * @return 0; NYX_RC_INVALID_ARGUMENT: strcmp_s() refused
 */
rcode nyx_safe_strcmp(const char *dest, rsize_t dmax, const char *src, int *indicator);

/** A text to find, and the text to put in its place. */
typedef struct str_replacement {
    const char *find;    /**< not empty */
    const char *replace; /**< may be empty */
} str_replacement;

/** An occurrence that str_replace_multi() has found. */
typedef struct str_pair {
    const str_replacement *pair; /**< what was found, and what takes its place */
    uint64_t find_length;        /**< characters of pair->find */
    uint64_t replace_length;     /**< characters of pair->replace */
    int32_t position;            /**< in the text; -1: there is none */
} str_pair;

/**
 * Copies a text, unless memory is short (nyx_util_set_mem_state()).
 *
 * @param src         null gives null
 * @param alloc_text  the description of the block; null gives null
 * @return the copy, owned by the caller; null as above, or without memory. When memcpy_s() refuses, which the one that
 *         comes with the library does not, the result is null and **the new block is not released**
 */
char *nyx_strdup(const char *src, const char *alloc_text);

/** As nyx_strdup(), also while memory is short. */
char *nyx_strdup2(const char *src, const char *alloc_text);

/**
 * Joins two texts, also while memory is short.
 *
 * @param alloc_text  the description of the block
 * @param out         becomes the new text, owned by the caller; null when a, b or alloc_text is null, which is **no
 *                    failure**, and after one
 * @return 0. NYX_RC_INVALID_ARGUMENT: out is null. NYX_RC_NO_MEMORY. The code of memcpy_s(), if it refuses
 */
rcode nyx_strdup_concat(const char *a, const char *b, const char *alloc_text, char **out);

/**
 * Copies one token of a text: a longest run of characters that are no delimiters. Uses the state of strtok(), so that
 * it must neither run on two threads at once nor between two calls of strtok() that belong together. The copies are
 * made by nyx_strdup(), under "NYX MAP".
 *
 * @param index  0 is the first token
 * @param out    becomes the copy, owned by the caller; null when there are not as many tokens, text or delims is
 *               null, or there is no memory. When it is null itself, nothing is done
 */
void nyx_tokenize_and_get_token(const char *text, const char *delims, uint32_t index, char **out);

/** @return how often ch occurs in the text; 0 for the character 0 and a null text */
uint32_t nyx_count_char_occurences(const char *text, char ch);

/**
 * Replaces several texts at once. All are looked for in the text as it was: what was put in is not looked at.
 *
 *  - Of each pair, occurrences are found from the left, and do not overlap.
 *  - The first occurrence of each pair counts, and **nine further ones in all**: those of the first pair come first,
 *    then those of the next. What is beyond stays as it is.
 *  - Where occurrences of different pairs overlap, the one that starts first wins; of those that start together, the
 *    longest. The others stay as they are. Which one wins of two pairs that look for the same text is open.
 *
 * @param pairs       count pairs
 * @param alloc_text  the description of the block
 * @return the new text, owned by the caller. With count 0, nyx_strdup(text, alloc_text). Null: text, alloc_text,
 *         pairs or a text of a pair is null; a text to find is empty; the text has 2^31 characters or more; there is
 *         no memory. More than 200 pairs take a working block of their own while the call lasts ("str_replace_multi
 *         work")
 */
char *str_replace_multi(const char *text, const str_replacement *pairs, uint32_t count, const char *alloc_text);

/**
 * Orders two str_pair records, for qsort(): by position; at the same position, the longer text to find first.
 * @return -1, 0 or 1
 */
int str_pair_helper_compare(const void *a, const void *b);

/**
 * Puts a character in the place of another, everywhere in a text.
 *
 * @param text  changed in place; null is fine
 * @param from  the character 0 is in no text: nothing is changed
 * @param to    the character 0 ends the text there; what stands behind it is changed as well
 * @return 0, or the code of strfirstchar_s() if it refuses
 */
int chr_replace(char *text, char from, char to);

/**
 * Splits a text into tokens: longest runs of characters that are no delimiters.
 *
 * @param text   changed in place: a terminator is written behind each token
 * @param count  becomes the number of tokens; when the array cannot grow, that of the tokens with the one too many
 * @return pointers to the tokens, which lie in the text; the array ("String tokens array") is the caller's, grows by
 *         five at a time, and is null behind the last token as far as it goes. There is one also if there are no
 *         tokens. Null: an argument is null, or there is no memory
 */
char **str_arr_tokenize(char *text, const char *delims, uint32_t *count);

/**
 * Removes white space at the start of a text, in place. Null is fine.
 * @return 0, or the code of memmove_s() if it refuses
 */
int str_ltrim(char *text);

/** Removes white space at the end of a text, in place. @return the text; null for null */
char *str_rtrim(char *text);

/** As str_ltrim() and, unless that failed, str_rtrim(). @return the result of str_ltrim() */
int str_trim(char *text);

/** Makes a text lower case, in place. @return the text; null for null */
char *str_to_lower(char *text);

/** Makes a text upper case, in place. @return the text; null for null */
char *str_to_upper(char *text);

/**
 * An umbra_hash_fn for texts.
 * @return umbra_hash_calculate() of the text without its terminator; 0 for null
 */
uint32_t nyx_string_hash_calc(const void *text);

/**
 * An umbra_hash_equal_fn for texts.
 * @return 1: they are equal; 0: they are not, or one is null, of which strcmp_s() tells its constraint handler
 */
int nyx_string_hash_cmp(const void *a, const void *b);

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
