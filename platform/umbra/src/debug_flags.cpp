#include "debug_flags.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <new>

#include "library_lock.h"
#include "text_line.h"

namespace umbra {

std::atomic<flag_chunk *> flag_chunks[UMBRA_DT_FLAGS_MAX / slots_of_chunk];

}  // namespace umbra

using umbra::flag_chunk;
using umbra::flag_slot;
using umbra::guarded;
using umbra::library_lock;
using umbra::slot_of;

// What touches slots is called with the lock on flags held.
namespace {

// The two ends of a list of flags side by side.
struct flag_list {
    flag_slot *first;
    flag_slot *last;
};

flag_list top;
uint32_t slot_count;
// Free slots wait in line, so that a slot is used again as late as possible.
flag_slot *first_free;
flag_slot *last_free;

uint64_t state_of(const flag_slot &slot) {
    return slot.state.load(std::memory_order_relaxed);
}
bool has(const flag_slot &slot, uint64_t bit) {
    return (state_of(slot) & bit) != 0;
}
uint64_t generation_of(const flag_slot &slot) {
    return state_of(slot) >> 32U;
}
uint64_t handle_of(const flag_slot &slot) {
    return generation_of(slot) << 32U | slot.index;
}
const char *name_of(const flag_slot &slot) {
    return slot.path + slot.name_offset;
}

void set(flag_slot &slot, uint64_t bit, bool value) {
    const uint64_t state = state_of(slot);
    slot.state.store(value ? state | bit : state & ~bit, std::memory_order_relaxed);
}

// A flag, the flags below it, those beside it, and so on; with `from`, only those below that flag.
flag_slot *next_in_tree(flag_slot *slot, const flag_slot *from) {
    if (slot->first_below != nullptr) {
        return slot->first_below;
    }
    while (slot != from && slot != nullptr) {
        if (slot->after != nullptr) {
            return slot->after;
        }
        slot = slot->parent;
    }
    return nullptr;
}

void update_on(flag_slot *from) {
    for (flag_slot *slot = from; slot != nullptr; slot = next_in_tree(slot, from)) {
        const bool above_is_on = slot->parent == nullptr || has(*slot->parent, umbra::flag_is_on);
        set(*slot, umbra::flag_is_on, above_is_on && has(*slot, umbra::flag_is_enabled));
    }
}

bool add_chunk() {
    void *memory = malloc(sizeof(flag_chunk));
    if (memory == nullptr) {
        return false;
    }
    auto *chunk = new (memory) flag_chunk{};
    for (uint32_t i = 0; i < umbra::slots_of_chunk; ++i) {
        chunk->slots[i].index = slot_count + i;
        chunk->slots[i].state.store(uint64_t{1} << 32U, std::memory_order_relaxed);
    }
    umbra::flag_chunks[slot_count / umbra::slots_of_chunk].store(chunk, std::memory_order_release);
    return true;
}

flag_slot *fresh_slot() {
    flag_chunk *chunk = umbra::flag_chunks[slot_count / umbra::slots_of_chunk].load(std::memory_order_relaxed);
    return &chunk->slots[slot_count++ % umbra::slots_of_chunk];
}

int32_t take_slot(flag_slot **slot) {
    const bool chunk_is_full = slot_count % umbra::slots_of_chunk == 0;
    if (chunk_is_full && first_free != nullptr) {
        *slot = first_free;
        first_free = first_free->next_free;
        return 0;
    }
    if (chunk_is_full && slot_count == UMBRA_DT_FLAGS_MAX) {
        return ENOSPC;
    }
    if (chunk_is_full && !add_chunk()) {
        return ENOMEM;
    }
    *slot = fresh_slot();
    return 0;
}

void give_slot_back(flag_slot *slot) {
    const uint64_t next = (generation_of(*slot) + 1) & UINT32_MAX;
    slot->state.store((next == 0 ? 1 : next) << 32U, std::memory_order_relaxed);
    slot->next_free = nullptr;
    (first_free == nullptr ? first_free : last_free->next_free) = slot;
    last_free = slot;
}

void link(flag_slot *slot, flag_slot *parent) {
    flag_slot *&first = parent == nullptr ? top.first : parent->first_below;
    flag_slot *&last = parent == nullptr ? top.last : parent->last_below;
    slot->parent = parent;
    slot->first_below = nullptr;
    slot->last_below = nullptr;
    slot->after = nullptr;
    slot->before = last;
    (last == nullptr ? first : last->after) = slot;
    last = slot;
}

void unlink(flag_slot *slot) {
    flag_slot *&first = slot->parent == nullptr ? top.first : slot->parent->first_below;
    flag_slot *&last = slot->parent == nullptr ? top.last : slot->parent->last_below;
    (slot->before == nullptr ? first : slot->before->after) = slot->after;
    (slot->after == nullptr ? last : slot->after->before) = slot->before;
}

flag_slot *find_below(const flag_slot *parent, const char *name) {
    flag_slot *slot = parent == nullptr ? top.first : parent->first_below;
    while (slot != nullptr && strcmp(name_of(*slot), name) != 0) {
        slot = slot->after;
    }
    return slot;
}

void set_path(flag_slot *slot, const flag_slot *parent, const char *name, size_t length) {
    uint32_t offset = 0;
    if (parent != nullptr) {
        memcpy(slot->path, parent->path, parent->path_length);
        slot->path[parent->path_length] = '/';
        offset = parent->path_length + 1;
    }
    memcpy(slot->path + offset, name, length + 1);
    slot->name_offset = offset;
    slot->path_length = offset + static_cast<uint32_t>(length);
}

int32_t add_flag(flag_slot **added, flag_slot *parent, const char *name, size_t length) {
    if (parent != nullptr && parent->path_length + 1 + length > UMBRA_DT_PATH_MAX) {
        return ENAMETOOLONG;
    }
    flag_slot *slot = nullptr;
    if (const int32_t failure = take_slot(&slot); failure != 0) {
        return failure;
    }
    set_path(slot, parent, name, length);
    slot->users = 1;
    link(slot, parent);
    set(*slot, umbra::flag_is_used, true);
    *added = slot;
    return 0;
}

int32_t enable(uint64_t flag, bool value) {
    const library_lock held(guarded::flags);
    flag_slot *slot = slot_of(flag);
    if (slot == nullptr) {
        return EINVAL;
    }
    set(*slot, umbra::flag_is_enabled, value);
    update_on(slot);
    return 0;
}

void describe(const flag_slot &slot, umbra_dt_flag_info *info) {
    info->flag = handle_of(slot);
    info->parent_flag = slot.parent == nullptr ? 0 : handle_of(*slot.parent);
    info->is_enabled = has(slot, umbra::flag_is_enabled) ? 1 : 0;
    info->is_on = has(slot, umbra::flag_is_on) ? 1 : 0;
    memcpy(info->path, slot.path, slot.path_length + 1);
}

// The flag at a position of the printed tree. The lock is not kept while one flag after the other is printed.
bool describe_at(uint64_t position, umbra_dt_flag_info *info) {
    const library_lock held(guarded::flags);
    flag_slot *slot = top.first;
    for (; slot != nullptr && position > 0; --position) {
        slot = next_in_tree(slot, nullptr);
    }
    if (slot != nullptr) {
        describe(*slot, info);
    }
    return slot != nullptr;
}

const char *state_word(const umbra_dt_flag_info &info) {
    if (info.is_on != 0) {
        return "on    ";
    }
    return info.is_enabled != 0 ? "held  " : "off   ";
}

int print(int fd, const umbra_dt_flag_info &info) {
    constexpr size_t longest_escape = 4;
    char buffer[longest_escape * UMBRA_DT_PATH_MAX + 16];
    umbra::text_line line(buffer, sizeof buffer);
    line.put(state_word(info));
    line.put_escaped(info.path, strlen(info.path));
    line.put('\n');
    return umbra::write_whole(fd, buffer, line.size());
}

}  // namespace

int32_t umbra_dt_flag_init(uint64_t *flag, const char *name, uint64_t parent_flag, uint32_t zero_1, uint32_t zero_2) {
    if (flag == nullptr) {
        return EINVAL;
    }
    *flag = 0;
    const size_t length = name == nullptr ? 0 : strnlen(name, UMBRA_DT_NAME_MAX + 1);
    if (length == 0 || length > UMBRA_DT_NAME_MAX || zero_1 != 0 || zero_2 != 0) {
        return EINVAL;
    }
    const library_lock held(guarded::flags);
    flag_slot *parent = parent_flag == 0 ? nullptr : slot_of(parent_flag);
    if (parent == nullptr && parent_flag != 0) {
        return EINVAL;
    }
    flag_slot *slot = find_below(parent, name);
    if (slot != nullptr) {
        ++slot->users;
    } else if (const int32_t failure = add_flag(&slot, parent, name, length); failure != 0) {
        return failure;
    }
    *flag = handle_of(*slot);
    return 0;
}

int32_t umbra_dt_flag_enable(uint64_t flag, uint32_t zero) {
    return zero == 0 ? enable(flag, true) : EINVAL;
}

int32_t umbra_dt_flag_disable(uint64_t flag) {
    return enable(flag, false);
}

int32_t umbra_dt_flag_destroy(uint64_t flag) {
    const library_lock held(guarded::flags);
    flag_slot *from = slot_of(flag);
    if (from == nullptr) {
        return EINVAL;
    }
    if (--from->users > 0) {
        return 0;
    }
    unlink(from);
    // What is free keeps its place in the tree until it is used again: the way on can still be asked of it.
    for (flag_slot *slot = from; slot != nullptr; slot = next_in_tree(slot, from)) {
        give_slot_back(slot);
    }
    return 0;
}

uint64_t umbra_dt_flag_find(const char *path) {
    if (path == nullptr) {
        return 0;
    }
    const library_lock held(guarded::flags);
    flag_slot *slot = top.first;
    while (slot != nullptr && strcmp(slot->path, path) != 0) {
        slot = next_in_tree(slot, nullptr);
    }
    return slot == nullptr ? 0 : handle_of(*slot);
}

uint64_t umbra_dt_flags(umbra_dt_flag_info *entries, uint64_t capacity) {
    const library_lock held(guarded::flags);
    uint64_t count = 0;
    for (flag_slot *slot = top.first; slot != nullptr; slot = next_in_tree(slot, nullptr)) {
        if (entries != nullptr && count < capacity) {
            describe(*slot, &entries[count]);
        }
        ++count;
    }
    return count;
}

int32_t umbra_dt_flags_print(int32_t fd) {
    umbra_dt_flag_info info;
    int failure = 0;
    for (uint64_t position = 0; failure == 0 && describe_at(position, &info); ++position) {
        failure = print(fd, info);
    }
    return failure;
}
