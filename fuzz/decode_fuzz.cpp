// Any bytes through the decoder, and whatever it accepts through encode, decode, copy and release.
//
// What is asserted: result, record and allocations are those of the literal decoder, accepted or refused, with all
// allocations or with one that fails; the decoder asks for no more memory than the message's length allows; what it
// accepts is a fixpoint of encode and decode, and a copy equals it and shares nothing with it; spare presence bits of
// garbage stay as they are; the n-th allocation that fails gives NO_MEMORY, at once; a release gives back every block
// but those of former occurrences of nested records, once, and a second one nothing.
//
// Input: the record's index, the number of the allocation that fails in the second part (0: none), the message.
#include <numeric>

#include "amplification.h"
#include "records.h"

namespace nyx_fuzz {
namespace {

constexpr std::size_t longest_message = 8192;
constexpr unsigned deepest_comparison = 100;

bool is_refusal(int32_t result) {
    return result == QUILL_DECODE_MALFORMED || result == QUILL_DECODE_BAD_WIRE_TYPE ||
           result == QUILL_DECODE_WRONG_WIRE_TYPE;
}

class run {
  public:
    run(const record_table &table, const uint8_t *message, std::size_t size)
        : table_(table), message_(message, size), size_(size), record_(table) {}

    void accept_or_refuse() {
        result_ = decode(record_, blocks_);
        REQUIRE(result_ == 0 || is_refusal(result_), std::to_string(result_));
        REQUIRE(spare_bits_are(table_, record_.get(), raw_record::garbage), table_.name);
        allocations_ = blocks_.calls();
        require_bounded_memory();
        const reference_record expected(table_, message_.get(), size_, 0);
        expected.require_equal(result_, record_.get(), blocks_);
        if (result_ == 0) {
            round_trip();
        }
        require_released(record_, blocks_, expected.lost());
    }

    void fail_allocation(uint64_t n) {
        counting_allocator blocks;
        raw_record record(table_);
        blocks.fail_at(n);
        const int32_t result = decode(record, blocks);
        if (n != 0 && n <= allocations_) {
            REQUIRE(result == QUILL_DECODE_NO_MEMORY, std::to_string(result));
            REQUIRE(blocks.calls() == n, std::to_string(blocks.calls()));
        } else {
            REQUIRE(result == result_, std::to_string(result));
        }
        const reference_record expected(table_, message_.get(), size_, n);
        expected.require_equal(result, record.get(), blocks);
        fail_copy_of(record, n / 2 + 1);  // of what n allocations have left there are fewer to be copied
        require_released(record, blocks, expected.lost());
    }

  private:
    int32_t decode(raw_record &record, counting_allocator &blocks) {
        return table_.decode(record.get(), message_.get(), size_, counting_allocator::alloc, &blocks, 0);
    }

    void require_released(raw_record &record, counting_allocator &blocks, uint64_t lost) const {
        release(table_, record, blocks);
        REQUIRE(blocks.live_blocks() == lost, table_.name + (": lost " + std::to_string(lost)));
    }

    void require_bounded_memory() {
        const amplification worst = worst_amplification(table_);
        const uint64_t asked = std::accumulate(blocks_.sizes().begin(), blocks_.sizes().end(), uint64_t{0});
        REQUIRE(asked * worst.wire <= size_ * worst.memory, std::string(table_.name) + ": " + std::to_string(asked));
    }

    void require_equal(const raw_record &left, const raw_record &right) {
        if (nesting(table_, left.get()) <= deepest_comparison) {
            require_nothing(difference(table_, left.get(), right.get()), __LINE__);
            require_nothing(shared_block(table_, left.get(), right.get()), __LINE__);
        }
    }

    void round_trip() {
        const std::vector<uint8_t> canonical = encoded(table_, record_.get());
        counting_allocator blocks;
        raw_record again(table_);
        const exact_copy input(canonical.data(), canonical.size());
        REQUIRE(table_.decode(again.get(), input.get(), canonical.size(), counting_allocator::alloc, &blocks, 0) == 0,
                table_.name);
        require_equal(record_, again);
        REQUIRE(encoded(table_, again.get()) == canonical, table_.name);
        copy_of(record_);
        require_released(again, blocks, 0);  // the encoder writes no nested record twice
    }

    void copy_of(const raw_record &source) {
        counting_allocator blocks;
        raw_record copy(table_);
        REQUIRE(table_.duplicate(copy.get(), source.get(), counting_allocator::alloc, &blocks) == 0, table_.name);
        REQUIRE(spare_bits_are(table_, copy.get(), raw_record::garbage), table_.name);
        require_equal(source, copy);
        require_released(copy, blocks, 0);
    }

    // The source may be what a failed decode left.
    void fail_copy_of(const raw_record &source, uint64_t n) {
        counting_allocator blocks;
        raw_record copy(table_);
        blocks.fail_at(n);
        const int32_t result = table_.duplicate(copy.get(), source.get(), counting_allocator::alloc, &blocks);
        const bool failed = n != 0 && n <= blocks.calls();
        REQUIRE(result == (failed ? QUILL_DECODE_NO_MEMORY : 0), std::to_string(result));
        require_released(copy, blocks, 0);
    }

    const record_table &table_;
    exact_copy message_;
    std::size_t size_;
    counting_allocator blocks_;
    raw_record record_;
    int32_t result_ = 0;
    uint64_t allocations_ = 0;
};

}  // namespace

message_place place_of_message(const uint8_t *data, std::size_t size) {
    const auto tables = nyx_test::record_tables();
    return size < 2 ? message_place{} : message_place{&tables[data[0] % tables.size()], 2};
}

}  // namespace nyx_fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 2 || size - 2 > nyx_fuzz::longest_message) {
        return 0;
    }
    const auto tables = nyx_test::record_tables();
    nyx_fuzz::run run(tables[data[0] % tables.size()], data + 2, size - 2);
    run.accept_or_refuse();
    run.fail_allocation(data[1]);
    return 0;
}
