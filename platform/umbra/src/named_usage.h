// What is in use under which description.
//
// Counting must cost next to nothing, so each thread counts in words of its own (usage_part), which only it writes; a
// report adds them up. The one thing that the threads must know of each other is how many bytes are in use altogether,
// or else nobody could tell a peak: each publishes its share whenever that has changed by publish_step bytes.
#ifndef UMBRA_NAMED_USAGE_H
#define UMBRA_NAMED_USAGE_H

#include <emmintrin.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <atomic>

#include "umbra/named_alloc.h"

namespace umbra {

constexpr uint32_t max_descriptions = UMBRA_NAMED_DESCRIPTIONS_MAX + 1;  // and the one for all others
constexpr int64_t publish_step = int64_t{64} * 1024;

using counter = std::atomic<uint64_t>;

// One thread's part of the figures of one description.
struct usage_part {
    counter allocated_blocks;
    counter allocated_bytes;
    counter freed_blocks;
    counter freed_bytes;
    counter published;  // of allocated_bytes - freed_bytes, as a two's complement
    counter peak_bytes;
};

struct description_record {
    char text[UMBRA_NAMED_DESCRIPTION_MAX + 1];
    uint32_t index;            // in the order of first use
    description_record *next;  // of the same hash bucket; constant once the record can be found
    counter published;         // the sum of what the threads published
    usage_part common;         // of threads that have ended or have no memory for parts of their own: written by all
};

constexpr uint32_t parts_of_chunk = 64;

struct usage_chunk {
    usage_part parts[parts_of_chunk];
};

// A description as it was passed lately. The same address may hold another text the next time.
struct known_description {
    const char *address;
    description_record *record;
    usage_part *part;
    uint32_t index;             // the record's
    uint32_t quickly_compared;  // bytes to compare if is_unchanged() has a quick way to do so, or else 0
};

// Two with the same hash, so that neighbours do not drive each other out.
struct known_pair {
    known_description newer;
    known_description older;
};

constexpr uint32_t known_pair_bits = 8;

struct thread_usage {
    uint32_t latest_index;  // max_descriptions at first
    usage_part *latest_part;
    known_pair known[1U << known_pair_bits];
    std::atomic<usage_chunk *> chunks[max_descriptions / parts_of_chunk];
    thread_usage *next;
    thread_usage *previous;
};

// Null before the thread's first use and after its end.
extern __thread thread_usage *this_thread __attribute__((tls_model("initial-exec")));
extern std::atomic<description_record *> records_by_index[max_descriptions];

// The slow ways of the functions at the end, which make what is missing. They keep errno.
uint32_t count_new_block_slowly(const char *description, uint64_t bytes);
void count_allocation_slowly(uint32_t index, uint64_t blocks, uint64_t bytes);
void count_free_slowly(uint32_t index, uint64_t blocks, uint64_t bytes);

// For reports: all descriptions in the order of their texts, and where a text is or would be among them. To be called
// with the lock on descriptions held.
uint32_t description_count();
uint32_t rank_of(const char *text);
umbra_named_usage usage_at(uint32_t rank);

inline known_pair &place_of(thread_usage &thread, const char *description) {
    constexpr uint64_t multiplier = 0x9e3779b97f4a7c15U;
    return thread.known[(reinterpret_cast<uintptr_t>(description) * multiplier) >> (64U - known_pair_bits)];
}

inline bool is_text_of(const description_record &record, const char *description) {
    return strncmp(record.text, description, UMBRA_NAMED_DESCRIPTION_MAX) == 0;
}

inline __m128i bytes_that_are_equal(const char *a, const char *b) {
    return _mm_cmpeq_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i *>(a)),
                          _mm_loadu_si128(reinterpret_cast<const __m128i *>(b)));
}

// Does the address still hold the text? Each allocation asks this, and nearly always it does: comparing 16 bytes at a
// time, the last 16 of them overlapping those before, is less work than a call of strncmp(3). Where a shorter text has
// taken its place, bytes behind that are read, though none of another page; sanitizers would take offence.
__attribute__((no_sanitize("address", "thread"))) inline bool is_unchanged(const known_description &known) {
    constexpr uint32_t step = sizeof(__m128i);
    if (known.quickly_compared == 0) {
        return is_text_of(*known.record, known.address);
    }
    const char *text = known.record->text;
    const uint32_t last = known.quickly_compared - step;
    __m128i equal = bytes_that_are_equal(text + last, known.address + last);
    for (uint32_t i = 0; i < last; i += step) {
        equal = _mm_and_si128(equal, bytes_that_are_equal(text + i, known.address + i));
    }
    return _mm_movemask_epi8(equal) == 0xffff;
}

inline description_record &record_at(uint32_t index) {
    return *records_by_index[index].load(std::memory_order_acquire);
}

// This thread's part, or null. Blocks of one kind tend to be freed in a row.
inline usage_part *own_part(uint32_t index) {
    thread_usage *thread = this_thread;
    if (thread == nullptr) {
        return nullptr;
    }
    if (index == thread->latest_index) {
        return thread->latest_part;
    }
    usage_chunk *chunk = thread->chunks[index / parts_of_chunk].load(std::memory_order_relaxed);
    if (chunk == nullptr) {
        return nullptr;
    }
    thread->latest_index = index;
    thread->latest_part = &chunk->parts[index % parts_of_chunk];
    return thread->latest_part;
}

// For words that only this thread writes. Releasing, so that who sees a block freed also sees it allocated.
inline uint64_t add_own(counter &word, uint64_t amount) {
    const uint64_t sum = word.load(std::memory_order_relaxed) + amount;
    word.store(sum, std::memory_order_release);
    return sum;
}

inline void raise(counter &peak, uint64_t value) {
    uint64_t before = peak.load(std::memory_order_relaxed);
    while (before < value && !peak.compare_exchange_weak(before, value, std::memory_order_relaxed)) {
    }
}

inline void publish(description_record &record, usage_part &part, uint64_t change) {
    record.published.fetch_add(change, std::memory_order_relaxed);
    add_own(part.published, change);
}

inline void add_allocation(description_record &record, usage_part &part, uint64_t blocks, uint64_t bytes) {
    add_own(part.allocated_blocks, blocks);
    const uint64_t own = add_own(part.allocated_bytes, bytes) - part.freed_bytes.load(std::memory_order_relaxed);
    const uint64_t change = own - part.published.load(std::memory_order_relaxed);
    const auto live = static_cast<int64_t>(record.published.load(std::memory_order_relaxed) + change);
    if (static_cast<int64_t>(change) >= publish_step) {
        publish(record, part, change);
    }
    if (live > static_cast<int64_t>(part.peak_bytes.load(std::memory_order_relaxed))) {
        part.peak_bytes.store(static_cast<uint64_t>(live), std::memory_order_relaxed);
    }
}

inline void add_free(uint32_t index, usage_part &part, uint64_t blocks, uint64_t bytes) {
    add_own(part.freed_blocks, blocks);
    const uint64_t own = part.allocated_bytes.load(std::memory_order_relaxed) - add_own(part.freed_bytes, bytes);
    const uint64_t change = own - part.published.load(std::memory_order_relaxed);
    if (static_cast<int64_t>(change) <= -publish_step) {
        publish(record_at(index), part, change);
    }
}

// A description as this thread has met it lately, or null.
inline const known_description *find_known(const char *description) {
    thread_usage *thread = this_thread;
    if (thread == nullptr) {
        return nullptr;
    }
    const known_pair &pair = place_of(*thread, description);
    const known_description &known = pair.newer.address == description ? pair.newer : pair.older;
    return known.address == description && is_unchanged(known) ? &known : nullptr;
}

inline void count_allocation(uint32_t index, uint64_t blocks, uint64_t bytes) {
    if (usage_part *part = own_part(index); part != nullptr) {
        add_allocation(record_at(index), *part, blocks, bytes);
    } else {
        count_allocation_slowly(index, blocks, bytes);
    }
}

// Returns false, and has counted nothing, where count_free_slowly() has to.
inline bool count_free_quickly(uint32_t index, uint64_t blocks, uint64_t bytes) {
    usage_part *part = own_part(index);
    if (part != nullptr) {
        add_free(index, *part, blocks, bytes);
    }
    return part != nullptr;
}

}  // namespace umbra

#endif
