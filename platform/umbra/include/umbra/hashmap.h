/**
 * @file hashmap.h
 * A hash map that keeps the order of insertion.
 *
 * @code
 * umbra_hashmap *map;
 * if (umbra_hashmap_create(&map, 0, hash_of_text, equal_texts, 0) != 0) { return ENOMEM; }
 *
 * if (umbra_hashmap_get(map, name) == NULL && !umbra_hashmap_insert(map, name, value)) { return ENOMEM; }
 *
 * for (umbra_hashmap_entry *at = umbra_hashmap_first(map); at != NULL; at = umbra_hashmap_next(map, at)) {
 *     printf("%s: %s\n", (char *)umbra_hashmap_key(at), (char *)umbra_hashmap_value(at));
 * }
 *
 * static void release(umbra_hashmap *map, umbra_hashmap_entry *entry, void *ctx) {
 *     free(umbra_hashmap_key(entry));
 *     free(umbra_hashmap_value(entry));
 *     umbra_hashmap_remove_tuple(map, entry);
 * }
 * umbra_hashmap_iterate(map, release, NULL);
 * umbra_hashmap_free(map);
 * @endcode
 *
 * Keys and values are pointers of the caller, which the map neither follows nor releases: only the caller's functions
 * look into keys, and only in umbra_hashmap_get and umbra_hashmap_insert. A key must not change its hash or what it
 * is equal to while it is in the map; it may be released before its entry is removed. Null is a key or value like any
 * other, as far as the caller's functions take it.
 *
 * An entry stays at its address until it is removed, also while the map grows. An operation takes constant time on
 * average when hashes are spread; however they are, it is correct. The map never shrinks.
 *
 * Memory comes from umbra_named_malloc_ and umbra_named_calloc_ under "umbra hash map", "umbra hash map table" and
 * "umbra hash map entry". Nothing is locked: a map that is used by several threads is guarded by them, though several
 * may read it at once while none changes it; an iteration whose visits change nothing reads. Except where it is said, a
 * null argument makes a function do nothing and return null or 0.
 */
#ifndef UMBRA_HASHMAP_H
#define UMBRA_HASHMAP_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/** A map; made by umbra_hashmap_create(). */
typedef struct umbra_hashmap umbra_hashmap;
/** An entry of a map, which owns it. */
typedef struct umbra_hashmap_entry umbra_hashmap_entry;

/** Hashes a key. It need not be good in all of its bits. */
typedef uint32_t (*umbra_hash_fn)(const void *key);

/** Compares two keys: 1 when they are equal, else 0; any number but 0 counts as 1. Equal keys have the same hash. */
typedef int (*umbra_hash_equal_fn)(const void *a, const void *b);

/** What umbra_hashmap_iterate calls for an entry. */
typedef void (*umbra_hashmap_visit_fn)(umbra_hashmap *map, umbra_hashmap_entry *entry, void *visit_ctx);

/**
 * Makes an empty map, which the caller owns.
 *
 * @param[out] map the map; null after a failure
 * @param initial_size how many entries there will probably be; it saves the map from growing on the way there. 0 is
 *        fine; what is above 65,536 counts as that
 * @param flags 0
 * @return 0; EINVAL: a null argument, or a flag; ENOMEM
 */
int umbra_hashmap_create(umbra_hashmap **map, uint32_t initial_size, umbra_hash_fn hash, umbra_hash_equal_fn equal,
                         uint32_t flags);

/** @return the entry of @p key, or null */
umbra_hashmap_entry *umbra_hashmap_get(umbra_hashmap *map, const void *key);

/**
 * Appends an entry, unless there is one of an equal key: that one stays as it is (see umbra_hashmap_set_value).
 *
 * @return 1: the entry is there. 0: the key was there already, or there is no memory, or the map is null or has
 *         UINT32_MAX entries: the map is as before, and @p key and @p value are still the caller's to release
 */
int umbra_hashmap_insert(umbra_hashmap *map, void *key, void *value);

/** @return how many entries there are */
uint32_t umbra_hashmap_size(const umbra_hashmap *map);

/** @return the key as it was inserted */
void *umbra_hashmap_key(const umbra_hashmap_entry *entry);

/** @return the value as it was set last */
void *umbra_hashmap_value(const umbra_hashmap_entry *entry);

/** Gives @p entry another value. @return the value that it had */
void *umbra_hashmap_set_value(umbra_hashmap_entry *entry, void *value);

/** @return the oldest entry, or null when the map is empty */
umbra_hashmap_entry *umbra_hashmap_first(umbra_hashmap *map);

/** @return the entry that was inserted next after @p entry; null: it is the last, or not of this map */
umbra_hashmap_entry *umbra_hashmap_next(umbra_hashmap *map, umbra_hashmap_entry *entry);

/**
 * Calls @p visit with each entry, the oldest first, and with @p visit_ctx, which may be null. The visit may remove its
 * entry and any other, insert entries, which are visited in turn, and iterate itself: all that on the thread that it is
 * called on. It must not free the map, and has to return: neither longjmp nor an exception may leave it.
 */
void umbra_hashmap_iterate(umbra_hashmap *map, umbra_hashmap_visit_fn visit, void *visit_ctx);

/** Removes and releases @p entry, without its key and value. One of another map is left alone. */
void umbra_hashmap_remove_tuple(umbra_hashmap *map, umbra_hashmap_entry *entry);

/** Releases the map and its entries, without their keys and values. Null does nothing. */
void umbra_hashmap_free(umbra_hashmap *map);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
