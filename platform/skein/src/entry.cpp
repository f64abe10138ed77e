#include "entry.h"

#include <cstring>

namespace skein {
namespace {

// NOLINTNEXTLINE(readability-non-const-parameter): an atomic reference is made of what can be written
uint64_t load(uint64_t *word) {
    return shared_word(*word).load(std::memory_order_acquire);
}

// Calls `visit(words, bytes)` for the part of the text in each slot, `bytes` of text in whole words.
template <class Visit>
void for_each_part(const ring_slots &slots, uint64_t ticket, uint32_t length, Visit visit) {
    uint32_t part = std::min(length, slots.sizes.first_capacity());
    visit(slots[ticket] + word_text, part);
    for (uint32_t done = part; done < length; done += part) {
        part = std::min(length - done, slots.sizes.further_capacity());
        visit(slots[++ticket] + 1, part);
    }
}

bool has_all_slots(const ring_slots &slots, uint64_t ticket, uint32_t count) {
    for (uint64_t each = ticket + 1; each < ticket + count; ++each) {
        if (load(slots[each]) != state_word(slot_state::further, each)) {
            return false;
        }
    }
    return true;
}

uint64_t sum_of(const ring_slots &slots, uint64_t ticket, uint32_t length) {
    uint64_t *const slot = slots[ticket];
    checksum sum(ticket);
    for (uint32_t word = word_time; word < word_checksum; ++word) {
        sum.add(load(slot + word));
    }
    for_each_part(slots, ticket, length, [&](uint64_t *words, uint32_t bytes) {
        for (uint32_t word = 0; word < (bytes + 7) / 8; ++word) {
            sum.add(load(words + word));
        }
    });
    return sum.value();
}

}  // namespace

bool read_head(const ring_slots &slots, uint64_t ticket, entry_head &head) {
    uint64_t *const slot = slots[ticket];
    if (load(slot + word_state) != state_word(slot_state::first, ticket)) {
        return false;
    }
    head.time = load(slot + word_time);
    head.ids = load(slot + word_ids);
    head.attributes = load(slot + word_attributes);
    const uint64_t lengths = load(slot + word_lengths);
    head.length = static_cast<uint32_t>(lengths);
    head.full_length = static_cast<uint32_t>(lengths >> 32U);
    if (head.length > slots.sizes.text_max() || head.length > head.full_length) {
        return false;
    }
    head.slots = slots.sizes.slots_of(head.length);
    return has_all_slots(slots, ticket, head.slots) && sum_of(slots, ticket, head.length) == load(slot + word_checksum);
}

void read_text(const ring_slots &slots, uint64_t ticket, uint32_t length, char *text) {
    for_each_part(slots, ticket, length, [&](uint64_t *words, uint32_t bytes) {
        std::memcpy(text, words, bytes);
        text += bytes;
    });
    *text = '\0';
}

}  // namespace skein
