/**
 * @file quill.h
 * What all message records of libnyx and their codec have in common. The records themselves are in quill_nyx.h,
 * which includes this file.
 *
 * @section quill_records Records
 *
 * A record is a plain structure that its user fills member by member, always setting a member's presence bit
 * (has_MEMBER) together with its value. A zero-filled record is a valid empty record. Zero a record before its first
 * use, also before it is decoded or copied into: presence bits that belong to no member are never changed.
 *
 *  - Strings are NUL-terminated and owned by the record; null means "none".
 *  - A repeated member is an array and a 32-bit count (MEMBER_count) under one presence bit; the record owns the
 *    array and everything in its elements.
 *  - Nested records are held inline.
 *  - An enumeration is a uint32_t with named constants: any value is carried.
 *  - A boolean is a uint8_t, or a uint32_t where its comment says "a boolean kept in 32 bits". It is encoded as the
 *    number it holds and decoded as 0 or 1.
 *  - A member whose name is a keyword of C++ ends in an underscore; its presence bit does not (namespace_,
 *    has_namespace).
 *
 * Pointers to records are never null.
 *
 * @section quill_example A writer and a reader
 *
 * @code
 * static void *take(uint64_t size, void *ctx) { (void)ctx; return malloc(size); }
 * static void give(void *block, void *ctx) { (void)ctx; free(block); }
 *
 * // Writer: fill, ask for the size, encode.
 * static char target[] = "candidate";
 * quill_nyx_request request = {0};
 * request.type = QUILL_NYX_REQUEST_TYPE_LOCK;   request.has_type = 1;
 * request.lock.target.name = target;            request.lock.target.has_name = 1;
 * request.lock.has_target = 1;                  request.has_lock = 1;
 * uint64_t size = quill_nyx_request_encode_ext(&request, NULL, 0, NULL, NULL, 0);
 * uint8_t *bytes = malloc(size);
 * quill_nyx_request_encode_ext(&request, bytes, size, NULL, NULL, 0);
 *
 * // Reader: decode, use, release. Release after a failure as well.
 * quill_nyx_request received = {0};
 * int32_t result = quill_nyx_request_decode_ext(&received, bytes, size, take, NULL, 0);
 * if (result == 0) { puts(received.lock.target.name); }
 * quill_nyx_request_free_ext(&received, give, NULL, 0);
 * free(bytes);
 * @endcode
 *
 * @section quill_encode Encoding: uint64_t quill_nyx_R_encode_ext(record, buffer, buffer_length, segments,
 * segment_count [, pass_through])
 *
 * Writes the record in protobuf wire format into @p buffer and returns the number of bytes the whole encoding needs,
 * whatever @p buffer_length is: the encoding is complete when the result does not exceed @p buffer_length. With a null
 * buffer and length 0 it only returns the size. Nothing is ever written past @p buffer_length; a buffer that is too
 * short holds, up to its end, the bytes that lie there in the whole encoding, except that a string whose last byte
 * does not fit is left out and its bytes in the buffer stay as they were. Such a buffer is not usable.
 *
 * Members are written in declaration order when they are present:
 *  - an integer or boolean when its bit is set, also with value 0;
 *  - a string when its bit is set and its pointer is not null;
 *  - a nested record when its own encoding is not empty or its bit is set;
 *  - a repeated member when its bit is set, its count is not 0 and its array is not null; a null entry of a string
 *    array writes nothing.
 *
 * @p segment_count, when it is not null, holds the capacity of @p segments on entry and the number of entries that
 * the encoding produced on return (it may exceed the capacity; the first entries are stored then). Each record with a
 * non-empty encoding has one entry; those of nested records come before their holder's, so that the last is the whole
 * message. An entry's start is null when it lies at or behind the buffer's end; the last entry's start is @p buffer as
 * it was passed. With a null @p segments the entries are only counted.
 *
 * @p pass_through does not affect the output. Encoding cannot fail, allocates nothing, keeps no state and takes time
 * linear in the record, at any depth. Lengths of strings are 32-bit on the wire: 4 GiB strings are not supported.
 *
 * @section quill_decode Decoding: int32_t quill_nyx_R_decode_ext(record, buf, len, alloc, alloc_ctx [, nest_arg])
 *
 * Resets the record and fills it from exactly @p len bytes at @p buf (null is fine with length 0). What the record held
 * before is forgotten, not released. Every string (length + 1 bytes, NUL-terminated) and every array (one block of
 * count elements) comes from @p alloc, which is called with @p alloc_ctx and must return blocks aligned for any
 * object, or null. @p alloc may be null: strings and repeated members then fail with QUILL_DECODE_NO_MEMORY.
 *
 * Returns 0 or one of the QUILL_DECODE_ codes. After a failure the record holds what was decoded until then, an array
 * under way with its full count, its later elements zero and its presence bit clear; the record can (and, unless the
 * allocator discards its blocks as a whole, must) be released. While decoding runs, @p alloc must not look at the
 * record: elements of an array are zeroed just before they are filled. A member that is absent from the input
 * has its presence bit clear and its reset value, 0 unless its comment tells another one.
 *
 *  - Of a number's varint the low 32 bits are kept (64 bits in the one 64-bit member), however long it is.
 *  - Of a member that occurs more than once, the last value is kept; strings and separated runs of a repeated member
 *    are refused as malformed. A nested record that occurs more than once is decoded afresh: what its former
 *    occurrence allocated is no longer reachable from the record, so decode untrusted input into an arena.
 *  - Unknown members are skipped; input that ends inside a skipped fixed-width or length-delimited member is accepted.
 *
 * @p nest_arg does not affect the result.
 *
 * @section quill_copy Deep copy: int32_t quill_nyx_R_duplicate(dst, src, alloc_fn, alloc_ctx)
 *
 * Overwrites @p dst, releasing nothing, with a copy that shares nothing with @p src. Returns 0, or
 * QUILL_DECODE_NO_MEMORY when any allocation failed (or @p alloc_fn is null and one was needed): the copy then is as
 * complete as the allocations allowed and must be released all the same. A string or array that could not be allocated
 * is null and its presence bit clear; an entry of a string array that could not be allocated is null, the array stays.
 * An array with count 0 is copied as null. Members are copied whether their presence bits are set or not.
 *
 * @section quill_free Release: void quill_nyx_R_free_ext(record, free_fn, free_ctx [, nest_arg])
 *
 * Gives every block that the record owns to @p free_fn (never null) with @p free_ctx and sets its pointer to null and
 * its count to 0 (an array of numbers keeps its count), so that a second release does nothing. Numbers and presence
 * bits stay as they are: discard or refill
 * the record, do not encode it. The record itself is not freed. Accepts any record that a failed decode or copy left.
 *
 * @section quill_untrusted Untrusted input, depth and memory
 *
 * No input makes the decoder crash, read outside @p buf or leave a record that cannot be released, given the stack for
 * the nesting that it asks for: each level of nested data trees takes at most 160 bytes of stack in encode, decode,
 * copy and release of a release build, so that an 8 MiB stack carries more than 50,000 levels; an encode that writes
 * takes about 9 KiB besides. A level costs an attacker two bytes of input or a few more. A byte of input asks for at
 * most 155 bytes of memory: three bytes of an empty error among the further ones of a response become a record of 464
 * bytes, two of an empty node one of 200. Bound @p len, and decode untrusted input into an arena with a budget.
 *
 * @section quill_threads Thread safety
 *
 * The codec keeps no state: calls on different records may run at once on any threads. Calls on one record, and calls
 * that share an allocator that is not thread-safe, must be serialised by the caller.
 */
#ifndef QUILL_H
#define QUILL_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Results of decoding and deep copy other than 0. */
enum {
    QUILL_DECODE_MALFORMED = -1,       /**< the input is cut short, or a string or repeated member occurs again */
    QUILL_DECODE_BAD_WIRE_TYPE = -2,   /**< an unknown member has wire type 3, 4, 6 or 7 */
    QUILL_DECODE_WRONG_WIRE_TYPE = -3, /**< a known member does not have the wire type of its kind */
    QUILL_DECODE_NO_MEMORY = -4        /**< the allocation function is null or returned null */
};

/**
 * Allocates for the decoder and the deep copy.
 * @param size      bytes needed, never 0
 * @param alloc_ctx what the caller passed with the function
 * @return a block of at least @p size bytes, aligned for any object and not necessarily zeroed, or null
 */
typedef void *(*quill_alloc_fn)(uint64_t size, void *alloc_ctx);

/**
 * Takes back a block that the matching quill_alloc_fn returned.
 * @param block    never null
 * @param free_ctx what the caller passed with the function
 */
typedef void (*quill_free_fn)(void *block, void *free_ctx);

/** Where the encoding of one record lies in the buffer. */
typedef struct quill_segment {
    const uint8_t *start; /**< its first byte, or null behind the buffer's end; the whole message's is the buffer */
    uint64_t length;      /**< bytes */
} quill_segment;

#ifdef __cplusplus
}
#endif

#endif
