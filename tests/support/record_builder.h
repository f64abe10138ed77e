// Random records of any kind.
#ifndef NYX_TEST_RECORD_BUILDER_H
#define NYX_TEST_RECORD_BUILDER_H

#include <cstddef>
#include <cstdint>
#include <random>

#include "counting_allocator.h"
#include "record_tables.h"

namespace nyx_test {

struct build_options {
    // A canonical record survives encode and decode unchanged: a bit is set exactly when the member has a value, flags
    // are 0 or 1, arrays have no null entries, a member that is absent has its reset value. Other records may be
    // inconsistent in every way that the codec has a rule for.
    bool canonical = false;
    unsigned depth = 4;      // levels of repeated records
    unsigned elements = 40;  // of all repeated members together
    unsigned longest_text = 16500;
};

// Fills the record, whatever it held, with blocks from `alloc`, which must not fail. Releasing the record gives all of
// them back.
void build_record(const record_table &table, void *record, std::mt19937_64 &random, const build_options &options,
                  quill_alloc_fn alloc, void *alloc_ctx);

// The reset value of every member, no bit set.
void reset_record(const record_table &table, void *record);

// A random record with its memory: equal seeds give equal records.
class random_record {
  public:
    random_record(const record_table &table, uint64_t seed, const build_options &options = {});

    [[nodiscard]] const record_table &table() const { return table_; }
    [[nodiscard]] void *get() { return memory_.get(); }
    [[nodiscard]] const void *get() const { return memory_.get(); }

  private:
    const record_table &table_;
    counting_allocator blocks_;
    record_memory memory_;
};

}  // namespace nyx_test

#endif
