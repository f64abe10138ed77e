#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "library_lock.h"
#include "named_usage.h"
#include "text_line.h"

namespace {

// Wide enough for a description whose every byte is escaped, beside six numbers.
constexpr size_t line_size = 512;
constexpr char head[] = " live blocks     live bytes  total blocks    total bytes     peak bytes  description\n";

// A description under which nothing was allocated is one that a failure or another thread has just brought up.
bool was_used(const umbra_named_usage &usage) {
    return usage.total_blocks != 0;
}

int print(int fd, const umbra_named_usage &usage) {
    char buffer[line_size];
    const int numbers = snprintf(buffer, sizeof buffer, "%12lu %14lu %13lu %14lu %14lu  ", usage.live_blocks,
                                 usage.live_bytes, usage.total_blocks, usage.total_bytes, usage.peak_bytes);
    const auto width = static_cast<size_t>(numbers);
    umbra::text_line line(buffer + width, sizeof buffer - width);
    line.put_escaped(usage.description, strlen(usage.description));
    line.put('\n');
    return umbra::write_whole(fd, buffer, width + line.size());
}

// The first entry after `before` (of all, if null): the place of an entry may have moved since it was taken.
bool next_entry(const char *before, umbra_named_usage *usage) {
    const umbra::library_lock held(umbra::guarded::descriptions);
    uint32_t rank = before == nullptr ? 0 : umbra::rank_of(before) + 1;
    for (; rank < umbra::description_count(); ++rank) {
        *usage = umbra::usage_at(rank);
        if (was_used(*usage)) {
            return true;
        }
    }
    return false;
}

void add(umbra_named_usage &total, const umbra_named_usage &usage) {
    total.live_blocks += usage.live_blocks;
    total.live_bytes += usage.live_bytes;
    total.total_blocks += usage.total_blocks;
    total.total_bytes += usage.total_bytes;
    total.peak_bytes += usage.peak_bytes;
}

}  // namespace

uint64_t umbra_named_report(umbra_named_usage *entries, uint64_t capacity) {
    const umbra::library_lock held(umbra::guarded::descriptions);
    uint64_t count = 0;
    for (uint32_t rank = 0; rank < umbra::description_count(); ++rank) {
        const umbra_named_usage usage = umbra::usage_at(rank);
        if (!was_used(usage)) {
            continue;
        }
        if (entries != nullptr && count < capacity) {
            entries[count] = usage;
        }
        ++count;
    }
    return count;
}

int32_t umbra_named_usage_of(const char *description, umbra_named_usage *usage) {
    if (usage == nullptr) {
        return EINVAL;
    }
    const char *wanted = description == nullptr ? UMBRA_NAMED_UNNAMED : description;
    const umbra::library_lock held(umbra::guarded::descriptions);
    const uint32_t rank = umbra::rank_of(wanted);
    if (rank == umbra::description_count()) {
        return ENOENT;
    }
    const umbra_named_usage found = umbra::usage_at(rank);
    if (!was_used(found) || strncmp(found.description, wanted, UMBRA_NAMED_DESCRIPTION_MAX) != 0) {
        return ENOENT;
    }
    *usage = found;
    return 0;
}

void umbra_named_total(umbra_named_usage *total) {
    if (total == nullptr) {
        return;
    }
    *total = {};
    total->description = "total";
    const umbra::library_lock held(umbra::guarded::descriptions);
    for (uint32_t rank = 0; rank < umbra::description_count(); ++rank) {
        add(*total, umbra::usage_at(rank));
    }
}

int32_t umbra_named_report_print(int32_t fd) {
    umbra_named_usage total = {};
    total.description = "total";
    umbra_named_usage usage = {};
    int failure = umbra::write_whole(fd, head, sizeof head - 1);
    while (failure == 0 && next_entry(usage.description, &usage)) {
        failure = print(fd, usage);
        add(total, usage);
    }
    return failure == 0 ? print(fd, total) : failure;
}
