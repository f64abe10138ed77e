// Entries are blocks of their own in two lists: that of all entries in the order of insertion, and that of their
// bucket. A place in the bucket's list is known by what points to it, so that an entry leaves it without being looked
// for, and without its key.
#include "umbra/hashmap.h"

#include <errno.h>

#include <bit>

#include "umbra/named_alloc.h"

struct umbra_hashmap_entry {
    umbra_hashmap *map;
    umbra_hashmap_entry *older;
    umbra_hashmap_entry *newer;
    umbra_hashmap_entry *further;  // in the bucket
    umbra_hashmap_entry **place;   // what points to this entry in the bucket
    void *key;
    void *value;
    uint32_t hash;
};

struct umbra_hashmap {
    umbra_hash_fn hash;
    umbra_hash_equal_fn equal;
    umbra_hashmap_entry **buckets;
    uint32_t bucket_bits;
    uint64_t count;
    umbra_hashmap_entry *oldest;
    umbra_hashmap_entry *newest;
};

namespace {

// An iteration under way, and the entry that it visits next.
struct iteration {
    const umbra_hashmap *map;
    umbra_hashmap_entry *next;
    iteration *outer;
};

// Those of this thread, of whatever maps. A map does not know of them: to iterate is to read it, and several threads
// may do so at once.
__thread iteration *innermost __attribute__((tls_model("initial-exec")));

constexpr uint32_t fewest_bits = 3;
constexpr uint32_t most_initial_entries = 65'536;

umbra_hashmap_entry **allocate_buckets(uint32_t bits) {
    return static_cast<umbra_hashmap_entry **>(
        umbra_named_calloc_(uint64_t{1} << bits, sizeof(umbra_hashmap_entry *), "umbra hash map table"));
}

// Multiplying by 2^64 divided by the golden ratio makes the upper bits depend on all bits of the hash.
umbra_hashmap_entry **bucket_of(const umbra_hashmap *map, uint32_t hash) {
    return &map->buckets[(hash * 0x9E3779B97F4A7C15U) >> (64 - map->bucket_bits)];
}

umbra_hashmap_entry *find(const umbra_hashmap *map, const void *key, uint32_t hash) {
    umbra_hashmap_entry *at = *bucket_of(map, hash);
    while (at != nullptr && (at->hash != hash || map->equal(at->key, key) == 0)) {
        at = at->further;
    }
    return at;
}

void link_into_bucket(umbra_hashmap *map, umbra_hashmap_entry *entry) {
    umbra_hashmap_entry **place = bucket_of(map, entry->hash);
    entry->place = place;
    entry->further = *place;
    if (entry->further != nullptr) {
        entry->further->place = &entry->further;
    }
    *place = entry;
}

void unlink_from_bucket(const umbra_hashmap_entry *entry) {
    *entry->place = entry->further;
    if (entry->further != nullptr) {
        entry->further->place = entry->place;
    }
}

void append(umbra_hashmap *map, umbra_hashmap_entry *entry) {
    entry->older = map->newest;
    entry->newer = nullptr;
    (map->newest != nullptr ? map->newest->newer : map->oldest) = entry;
    map->newest = entry;
    // An iteration that is at the last entry goes on with this one.
    for (iteration *at = innermost; at != nullptr; at = at->outer) {
        if (at->map == map && at->next == nullptr) {
            at->next = entry;
        }
    }
}

void take_out(umbra_hashmap *map, const umbra_hashmap_entry *entry) {
    (entry->older != nullptr ? entry->older->newer : map->oldest) = entry->newer;
    (entry->newer != nullptr ? entry->newer->older : map->newest) = entry->older;
    for (iteration *at = innermost; at != nullptr; at = at->outer) {
        if (at->next == entry) {
            at->next = entry->newer;
        }
    }
}

// One bucket for each entry or more. Without memory for that the map goes on with longer lists.
void grow_if_full(umbra_hashmap *map) {
    if (map->count >> map->bucket_bits == 0) {
        return;
    }
    umbra_hashmap_entry **buckets = allocate_buckets(map->bucket_bits + 1);
    if (buckets == nullptr) {
        return;
    }
    umbra_named_free(map->buckets);
    map->buckets = buckets;
    ++map->bucket_bits;
    for (umbra_hashmap_entry *at = map->oldest; at != nullptr; at = at->newer) {
        link_into_bucket(map, at);
    }
}

uint32_t bits_for(uint32_t entries) {
    const uint32_t bits = entries < 2 ? 0 : static_cast<uint32_t>(std::bit_width(entries - 1));
    return bits < fewest_bits ? fewest_bits : bits;
}

}  // namespace

int umbra_hashmap_create(umbra_hashmap **map, uint32_t initial_size, umbra_hash_fn hash, umbra_hash_equal_fn equal,
                         uint32_t flags) {
    if (map == nullptr) {
        return EINVAL;
    }
    *map = nullptr;
    if (hash == nullptr || equal == nullptr || flags != 0) {
        return EINVAL;
    }
    auto *made = static_cast<umbra_hashmap *>(umbra_named_calloc_(1, sizeof(umbra_hashmap), "umbra hash map"));
    if (made == nullptr) {
        return ENOMEM;
    }
    made->hash = hash;
    made->equal = equal;
    made->bucket_bits = bits_for(initial_size < most_initial_entries ? initial_size : most_initial_entries);
    made->buckets = allocate_buckets(made->bucket_bits);
    if (made->buckets == nullptr) {
        umbra_named_free(made);
        return ENOMEM;
    }
    *map = made;
    return 0;
}

umbra_hashmap_entry *umbra_hashmap_get(umbra_hashmap *map, const void *key) {
    return map != nullptr ? find(map, key, map->hash(key)) : nullptr;
}

int umbra_hashmap_insert(umbra_hashmap *map, void *key, void *value) {
    if (map == nullptr || map->count == UINT32_MAX) {
        return 0;
    }
    const uint32_t hash = map->hash(key);
    if (find(map, key, hash) != nullptr) {
        return 0;
    }
    auto *entry =
        static_cast<umbra_hashmap_entry *>(umbra_named_malloc_(sizeof(umbra_hashmap_entry), "umbra hash map entry"));
    if (entry == nullptr) {
        return 0;
    }
    grow_if_full(map);
    entry->map = map;
    entry->key = key;
    entry->value = value;
    entry->hash = hash;
    link_into_bucket(map, entry);
    append(map, entry);
    ++map->count;
    return 1;
}

uint32_t umbra_hashmap_size(const umbra_hashmap *map) {
    return map != nullptr ? static_cast<uint32_t>(map->count) : 0;
}

void *umbra_hashmap_key(const umbra_hashmap_entry *entry) {
    return entry != nullptr ? entry->key : nullptr;
}

void *umbra_hashmap_value(const umbra_hashmap_entry *entry) {
    return entry != nullptr ? entry->value : nullptr;
}

void *umbra_hashmap_set_value(umbra_hashmap_entry *entry, void *value) {
    if (entry == nullptr) {
        return nullptr;
    }
    void *before = entry->value;
    entry->value = value;
    return before;
}

umbra_hashmap_entry *umbra_hashmap_first(umbra_hashmap *map) {
    return map != nullptr ? map->oldest : nullptr;
}

umbra_hashmap_entry *umbra_hashmap_next(umbra_hashmap *map, umbra_hashmap_entry *entry) {
    return map != nullptr && entry != nullptr && entry->map == map ? entry->newer : nullptr;
}

void umbra_hashmap_iterate(umbra_hashmap *map, umbra_hashmap_visit_fn visit, void *visit_ctx) {
    if (map == nullptr || visit == nullptr) {
        return;
    }
    iteration now{map, map->oldest, innermost};
    innermost = &now;
    while (umbra_hashmap_entry *entry = now.next) {
        now.next = entry->newer;
        visit(map, entry, visit_ctx);
    }
    innermost = now.outer;
}

void umbra_hashmap_remove_tuple(umbra_hashmap *map, umbra_hashmap_entry *entry) {
    if (map == nullptr || entry == nullptr || entry->map != map) {
        return;
    }
    unlink_from_bucket(entry);
    take_out(map, entry);
    --map->count;
    umbra_named_free(entry);
}

void umbra_hashmap_free(umbra_hashmap *map) {
    if (map == nullptr) {
        return;
    }
    for (umbra_hashmap_entry *at = map->oldest; at != nullptr;) {
        umbra_hashmap_entry *newer = at->newer;
        umbra_named_free(at);
        at = newer;
    }
    umbra_named_free(map->buckets);
    umbra_named_free(map);
}
