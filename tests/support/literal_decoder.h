// The decoding, written down as the format defines it: one byte after the other, each member looked up in the record's
// table. It shares nothing with the library but the table's numbers, and is an oracle for it.
#ifndef NYX_TEST_LITERAL_DECODER_H
#define NYX_TEST_LITERAL_DECODER_H

#include <cstdint>

#include "record_tables.h"

namespace nyx_test {

struct literal_outcome {
    int32_t result = 0;  // as the decoder's
    uint64_t lost = 0;   // blocks of former occurrences of nested records, which the record no longer reaches
};

// Same arguments as quill_nyx_<record>_decode_ext. Presence bits that belong to no member become 0.
literal_outcome literal_decode(const record_table &table, void *record, const uint8_t *bytes, uint64_t length,
                               quill_alloc_fn alloc, void *alloc_ctx);

}  // namespace nyx_test

#endif
