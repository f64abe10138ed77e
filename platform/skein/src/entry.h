// Entries as they are found in the slots of a ring.
#ifndef SKEIN_ENTRY_H
#define SKEIN_ENTRY_H

#include <cstdint>

#include "format.h"

namespace skein {

struct entry_head {
    uint64_t time = 0;
    uint64_t ids = 0;
    uint64_t attributes = 0;
    uint32_t length = 0;
    uint32_t full_length = 0;
    uint32_t slots = 0;
};

// Whether an entry begins at `ticket`, complete and undamaged. Trusts nothing that it reads. The number of slots is set
// whenever the lengths are possible, else it is 0.
bool read_head(const ring_slots &slots, uint64_t ticket, entry_head &head);

// Copies the text of such an entry, and a NUL behind it.
void read_text(const ring_slots &slots, uint64_t ticket, uint32_t length, char *text);

}  // namespace skein

#endif
