// The encoding, written down as the format defines it: every nested record is sized by a dry run and then written into
// the rest of the buffer, at every level anew. The time it takes doubles with every level, which is why the library
// does otherwise, and why this is only an oracle for small records.
#ifndef NYX_TEST_LITERAL_ENCODER_H
#define NYX_TEST_LITERAL_ENCODER_H

#include <cstdint>

#include "record_tables.h"

namespace nyx_test {

// Each stores its bytes as long as they lie in the buffer and returns the position behind them.
uint64_t write_tag(uint8_t tag, uint64_t position, uint8_t *buffer, uint64_t buffer_length);
uint64_t write_varint32(uint32_t value, uint64_t position, uint8_t *buffer, uint64_t buffer_length);
uint64_t write_varint64(uint64_t value, uint64_t position, uint8_t *buffer, uint64_t buffer_length);

// Same arguments and results as quill_nyx_<record>_encode_ext.
uint64_t literal_encode(const record_table &table, const void *record, uint8_t *buffer, uint64_t buffer_length,
                        quill_segment *segments, uint32_t *segment_count);

}  // namespace nyx_test

#endif
