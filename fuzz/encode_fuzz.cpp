// The encoder against the literal two-pass scheme: the same bytes, sizes and segments, whatever the length of the
// buffer and the capacity of the segment list, and the same bytes left untouched.
//
// Input: the record's index; a byte whose lowest bit tells whether the rest is a message to decode or the seed of a
// random record, and whose other bits are the number of bytes that follow and choose presence bits to flip; the rest.
#include <random>

#include "literal_encoder.h"
#include "record_builder.h"
#include "records.h"

namespace nyx_fuzz {
namespace {

constexpr std::size_t longest_message = 600;
constexpr unsigned deepest = 8;
constexpr uint64_t every_length_up_to = 40;
constexpr uint8_t untouched = 0xEE;

// One record's memory, made of the input.
class subject {
  public:
    subject(const record_table &table, bool decoded, const uint8_t *data, std::size_t size)
        : table_(table), record_(table) {
        if (decoded) {
            const exact_copy message(data, size);
            table.decode(record_.get(), message.get(), size, counting_allocator::alloc, &blocks_, 0);
        } else {
            std::seed_seq seed(data, data + size);
            std::mt19937_64 random(seed);
            nyx_test::build_options options;
            options.depth = 3;
            options.elements = 10;
            options.longest_text = 130;
            build_record(table, record_.get(), random, options, counting_allocator::alloc, &blocks_);
        }
    }
    subject(const subject &) = delete;
    subject &operator=(const subject &) = delete;
    ~subject() { release(table_, record_, blocks_); }

    void *get() { return record_.get(); }
    [[nodiscard]] const void *get() const { return record_.get(); }

  private:
    const record_table &table_;
    counting_allocator blocks_;
    raw_record record_;
};

// What one call of an encoder left behind, independent of where its buffer lay.
struct outcome {
    uint64_t size = 0;
    uint32_t count = 0;
    std::vector<uint8_t> buffer;
    std::vector<std::pair<int64_t, uint64_t>> segments;

    bool operator==(const outcome &) const = default;
};

enum class list : uint8_t { none, counted, kept };

template <class Encode>
outcome encode(Encode encoder, uint64_t length, list kind, uint32_t capacity) {
    constexpr quill_segment unset = {nullptr, UINT64_MAX};
    const auto buffer = std::make_unique<uint8_t[]>(length);
    std::fill_n(buffer.get(), length, untouched);
    uint8_t *start = length != 0 ? buffer.get() : nullptr;
    std::vector<quill_segment> segments(kind == list::kept ? capacity : 0, unset);
    outcome out;
    out.count = capacity;
    out.size = encoder(start, length, kind == list::kept ? segments.data() : nullptr,
                       kind == list::none ? nullptr : &out.count);
    out.buffer.assign(buffer.get(), buffer.get() + length);
    for (const quill_segment &segment : segments) {
        out.segments.emplace_back(segment.start == nullptr ? -1 : segment.start - start, segment.length);
    }
    return out;
}

class comparison {
  public:
    comparison(const record_table &table, const void *record) : table_(table), record_(record) {}

    void run() {
        const outcome whole = literal(0, list::counted, 0);
        compare(0, list::none, 0);
        std::vector<uint64_t> lengths = {whole.size / 2, whole.size - whole.size / 4, whole.size + 1};
        for (uint64_t length = 0; length <= whole.size; ++length) {
            if (length <= every_length_up_to || length + every_length_up_to / 4 >= whole.size) {
                lengths.push_back(length);
            }
        }
        for (const uint64_t length : lengths) {
            compare(length, list::none, 0);
            compare(length, list::kept, whole.count);
        }
        for (const uint64_t length : {uint64_t{0}, whole.size / 2, whole.size}) {
            compare(length, list::counted, 5);
            for (const uint32_t capacity : {0U, 1U, 2U, 3U, whole.count / 2, whole.count + 1}) {
                compare(length, list::kept, capacity);
            }
        }
    }

  private:
    outcome literal(uint64_t length, list kind, uint32_t capacity) {
        return encode(
            [this](uint8_t *buffer, uint64_t size, quill_segment *segments, uint32_t *count) {
                return nyx_test::literal_encode(table_, record_, buffer, size, segments, count);
            },
            length, kind, capacity);
    }

    void compare(uint64_t length, list kind, uint32_t capacity) {
        const outcome real =
            encode([this](uint8_t *buffer, uint64_t size, quill_segment *segments,
                          uint32_t *count) { return table_.encode(record_, buffer, size, segments, count, 3); },
                   length, kind, capacity);
        const outcome expected = literal(length, kind, capacity);
        const std::string where =
            std::string(table_.name) + ", length " + std::to_string(length) + ", capacity " + std::to_string(capacity);
        REQUIRE(real.size == expected.size, where);
        REQUIRE(real.buffer == expected.buffer, where);
        REQUIRE(real.count == expected.count, where);
        REQUIRE(real.segments == expected.segments, where);
    }

    const record_table &table_;
    const void *record_;
};

std::size_t bytes_of_flips(const uint8_t *data, std::size_t size) {
    return std::min<std::size_t>(data[1] >> 1U, size - 2);
}

}  // namespace

message_place place_of_message(const uint8_t *data, std::size_t size) {
    if (size < 2 || (data[1] & 1U) == 0) {
        return {};
    }
    const auto tables = nyx_test::record_tables();
    return {&tables[data[0] % tables.size()], 2 + bytes_of_flips(data, size)};
}

}  // namespace nyx_fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 2 || size - 2 > nyx_fuzz::longest_message) {
        return 0;
    }
    const auto tables = nyx_test::record_tables();
    const auto &table = tables[data[0] % tables.size()];
    const std::size_t flips = nyx_fuzz::bytes_of_flips(data, size);
    nyx_fuzz::subject subject(table, (data[1] & 1U) != 0, data + 2 + flips, size - 2 - flips);
    nyx_fuzz::bit_flipper(data + 2, flips).flip(table, subject.get());
    if (nyx_fuzz::nesting(table, subject.get()) <= nyx_fuzz::deepest) {
        nyx_fuzz::comparison(table, subject.get()).run();
    }
    return 0;
}
