#include "named_usage.h"

#include <errno.h>
#include <pthread.h>
#include <stdlib.h>

#include <algorithm>
#include <new>

#include "library_lock.h"
#include "umbra/hash.h"

namespace umbra {

__thread thread_usage *this_thread __attribute__((tls_model("initial-exec")));
std::atomic<description_record *> records_by_index[max_descriptions];

namespace {

constexpr uint32_t bucket_count = 4096;

// Readers take no lock: records are added, never changed or removed.
std::atomic<description_record *> buckets[bucket_count];

// Written and read under the lock.
description_record *records_by_text[max_descriptions];
uint32_t record_count;
thread_usage *threads;

// For all texts that have no record of their own. It comes first, and so has the index 0.
constinit description_record other_descriptions = {UMBRA_NAMED_OTHER, 0, nullptr, {}, {}};

__thread bool thread_has_ended __attribute__((tls_model("initial-exec")));
pthread_once_t thread_end_once = PTHREAD_ONCE_INIT;
pthread_key_t thread_end;
bool thread_end_is_noticed;

// Whatever fails here is made up for: the caller must not notice.
class errno_kept {
  public:
    errno_kept() : before_(errno) {}
    ~errno_kept() { errno = before_; }
    errno_kept(const errno_kept &) = delete;
    errno_kept &operator=(const errno_kept &) = delete;

  private:
    int before_;
};

std::atomic<description_record *> &bucket_of(const char *text) {
    const size_t length = strnlen(text, UMBRA_NAMED_DESCRIPTION_MAX);
    return buckets[umbra_hash_calculate(text, static_cast<uint32_t>(length)) % bucket_count];
}

description_record *find(const std::atomic<description_record *> &bucket, const char *text) {
    description_record *record = bucket.load(std::memory_order_acquire);
    while (record != nullptr && !is_text_of(*record, text)) {
        record = record->next;
    }
    return record;
}

// Under the lock.
void enter(std::atomic<description_record *> &bucket, description_record *record) {
    const uint32_t rank = rank_of(record->text);
    std::copy_backward(records_by_text + rank, records_by_text + record_count, records_by_text + record_count + 1);
    records_by_text[rank] = record;
    record->index = record_count++;
    record->next = bucket.load(std::memory_order_relaxed);
    records_by_index[record->index].store(record, std::memory_order_release);
    bucket.store(record, std::memory_order_release);
}

description_record *make_record(const char *text) {
    void *memory = malloc(sizeof(description_record));
    if (memory == nullptr) {
        return nullptr;
    }
    auto *record = new (memory) description_record{};
    memcpy(record->text, text, strnlen(text, UMBRA_NAMED_DESCRIPTION_MAX));
    return record;
}

description_record *record_of(const char *text) {
    std::atomic<description_record *> &bucket = bucket_of(text);
    if (description_record *known = find(bucket, text); known != nullptr) {
        return known;
    }
    const library_lock held(guarded::descriptions);
    if (record_count == 0) {
        enter(bucket_of(other_descriptions.text), &other_descriptions);
    }
    if (description_record *known = find(bucket, text); known != nullptr) {
        return known;
    }
    description_record *record = record_count < max_descriptions ? make_record(text) : nullptr;
    if (record == nullptr) {
        return &other_descriptions;
    }
    enter(bucket, record);
    return record;
}

uint64_t value(const counter &word) {
    return word.load(std::memory_order_acquire);
}

// Moves what a thread counted to where it stays. Under the lock: no report sees it twice or not at all.
void settle(description_record &record, const usage_part &part) {
    const uint64_t unpublished = value(part.allocated_bytes) - value(part.freed_bytes) - value(part.published);
    record.common.allocated_blocks.fetch_add(value(part.allocated_blocks));
    record.common.allocated_bytes.fetch_add(value(part.allocated_bytes));
    record.common.freed_blocks.fetch_add(value(part.freed_blocks));
    record.common.freed_bytes.fetch_add(value(part.freed_bytes));
    record.published.fetch_add(unpublished);
    raise(record.common.peak_bytes, value(part.peak_bytes));
}

const usage_part *part_of(const thread_usage &thread, uint32_t index) {
    const usage_chunk *chunk = thread.chunks[index / parts_of_chunk].load(std::memory_order_acquire);
    return chunk == nullptr ? nullptr : &chunk->parts[index % parts_of_chunk];
}

void settle_all(const thread_usage &thread) {
    for (uint32_t index = 0; index < record_count; ++index) {
        if (const usage_part *part = part_of(thread, index); part != nullptr) {
            settle(record_at(index), *part);
        }
    }
}

void unlink(const thread_usage &thread) {
    (thread.previous != nullptr ? thread.previous->next : threads) = thread.next;
    if (thread.next != nullptr) {
        thread.next->previous = thread.previous;
    }
}

void end_thread(void *usage) {
    auto *thread = static_cast<thread_usage *>(usage);
    this_thread = nullptr;
    thread_has_ended = true;
    {
        const library_lock held(guarded::descriptions);
        settle_all(*thread);
        unlink(*thread);
    }
    for (const std::atomic<usage_chunk *> &chunk : thread->chunks) {
        free(chunk.load(std::memory_order_relaxed));
    }
    free(thread);
}

void notice_thread_ends() {
    thread_end_is_noticed = pthread_key_create(&thread_end, end_thread) == 0;
}

// A thread whose end would go unnoticed gets no words of its own.
thread_usage *begin_thread() {
    pthread_once(&thread_end_once, notice_thread_ends);
    if (!thread_end_is_noticed || thread_has_ended) {
        return nullptr;
    }
    void *memory = malloc(sizeof(thread_usage));
    if (memory == nullptr || pthread_setspecific(thread_end, memory) != 0) {
        free(memory);
        return nullptr;
    }
    auto *thread = new (memory) thread_usage{};
    thread->latest_index = max_descriptions;
    const library_lock held(guarded::descriptions);
    thread->next = threads;
    if (threads != nullptr) {
        threads->previous = thread;
    }
    threads = thread;
    this_thread = thread;
    return thread;
}

// Adds up one figure of all threads. Under the lock.
uint64_t sum(const description_record &record, counter usage_part::*figure) {
    uint64_t total = value(record.common.*figure);
    for (const thread_usage *thread = threads; thread != nullptr; thread = thread->next) {
        if (const usage_part *part = part_of(*thread, record.index); part != nullptr) {
            total += value(part->*figure);
        }
    }
    return total;
}

uint64_t highest_peak(const description_record &record) {
    uint64_t peak = value(record.common.peak_bytes);
    for (const thread_usage *thread = threads; thread != nullptr; thread = thread->next) {
        if (const usage_part *part = part_of(*thread, record.index); part != nullptr) {
            peak = std::max(peak, value(part->peak_bytes));
        }
    }
    return peak;
}

// This thread's part, made if need be; null when there is no memory for one, or the thread ends.
usage_part *open_part(uint32_t index) {
    thread_usage *thread = this_thread != nullptr ? this_thread : begin_thread();
    if (thread == nullptr) {
        return nullptr;
    }
    std::atomic<usage_chunk *> &chunk = thread->chunks[index / parts_of_chunk];
    if (chunk.load(std::memory_order_relaxed) == nullptr) {
        void *memory = malloc(sizeof(usage_chunk));
        if (memory == nullptr) {
            return nullptr;
        }
        chunk.store(new (memory) usage_chunk{}, std::memory_order_release);
    }
    return own_part(index);
}

// The text and its NUL, unless it is as long as can be. Short ones, and such as go over the end of a page, are not
// compared quickly.
uint32_t quickly_compared(const char *description) {
    constexpr size_t page_size = 4096;
    const size_t length = strnlen(description, UMBRA_NAMED_DESCRIPTION_MAX);
    const size_t bytes = length < UMBRA_NAMED_DESCRIPTION_MAX ? length + 1 : length;
    const bool is_within_page = reinterpret_cast<uintptr_t>(description) % page_size <= page_size - bytes;
    return bytes >= sizeof(__m128i) && is_within_page ? static_cast<uint32_t>(bytes) : 0;
}

void remember(const char *description, description_record *record, usage_part *part) {
    known_pair &pair = place_of(*this_thread, description);
    if (pair.newer.address != description) {
        pair.older = pair.newer;
    }
    pair.newer = {description, record, part, record->index, quickly_compared(description)};
}

}  // namespace

uint32_t count_new_block_slowly(const char *description, uint64_t bytes) {
    const errno_kept kept;
    description_record *record = record_of(description);
    usage_part *part = open_part(record->index);
    // What is counted among the others may get a record of its own the next time.
    if (part != nullptr && is_text_of(*record, description)) {
        remember(description, record, part);
    }
    count_allocation(record->index, 1, bytes);
    return record->index;
}

void count_allocation_slowly(uint32_t index, uint64_t blocks, uint64_t bytes) {
    const errno_kept kept;
    description_record &record = record_at(index);
    if (usage_part *part = open_part(index); part != nullptr) {
        add_allocation(record, *part, blocks, bytes);
        return;
    }
    record.common.allocated_blocks.fetch_add(blocks);
    record.common.allocated_bytes.fetch_add(bytes);
    const auto live = static_cast<int64_t>(record.published.fetch_add(bytes) + bytes);
    raise(record.common.peak_bytes, static_cast<uint64_t>(std::max<int64_t>(live, 0)));
}

void count_free_slowly(uint32_t index, uint64_t blocks, uint64_t bytes) {
    const errno_kept kept;
    if (usage_part *part = open_part(index); part != nullptr) {
        add_free(index, *part, blocks, bytes);
        return;
    }
    description_record &record = record_at(index);
    record.common.freed_blocks.fetch_add(blocks);
    record.common.freed_bytes.fetch_add(bytes);
    record.published.fetch_sub(bytes);
}

uint32_t description_count() {
    return record_count;
}

uint32_t rank_of(const char *text) {
    const auto *place = std::lower_bound(records_by_text, records_by_text + record_count, text,
                                         [](const description_record *record, const char *wanted) {
                                             return strncmp(record->text, wanted, UMBRA_NAMED_DESCRIPTION_MAX) < 0;
                                         });
    return static_cast<uint32_t>(place - records_by_text);
}

// What was freed is read first: each of these blocks is then among the allocated ones.
umbra_named_usage usage_at(uint32_t rank) {
    const description_record &record = *records_by_text[rank];
    const uint64_t freed_blocks = sum(record, &usage_part::freed_blocks);
    const uint64_t freed_bytes = sum(record, &usage_part::freed_bytes);
    umbra_named_usage usage = {};
    usage.description = record.text;
    usage.total_blocks = sum(record, &usage_part::allocated_blocks);
    usage.total_bytes = sum(record, &usage_part::allocated_bytes);
    usage.live_blocks = usage.total_blocks - freed_blocks;
    usage.live_bytes = usage.total_bytes - freed_bytes;
    usage.peak_bytes = std::max(highest_peak(record), usage.live_bytes);
    return usage;
}

}  // namespace umbra
