// The encoder against the literal scheme: the same bytes, sizes and segments for any record, buffer and capacity.
#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "build_kind.h"
#include "decode_fixture.h"
#include "literal_encoder.h"
#include "quill_nyx.h"
#include "record_builder.h"
#include "record_tables.h"

namespace {

using nyx_test::bytes;
using nyx_test::member;
using nyx_test::member_kind;
using nyx_test::random_record;
using nyx_test::record_id;
using nyx_test::record_table;
using nyx_test::table_of;

constexpr uint64_t guard = 8;

// What one call of an encoder left behind.
struct outcome {
    uint64_t size;
    uint32_t count;
    std::vector<uint8_t> buffer;
    std::vector<quill_segment> segments;
};

struct call_shape {
    uint64_t length;           // of the buffer
    uint8_t canary;            // what fills it, and the bytes behind it
    uint32_t capacity;         // of the segment array
    bool counts_segments;      // whether a count is passed
    bool has_segments;         // whether an array is passed
    bool null_buffer = false;  // with length 0
    uint64_t promised = 0;     // unless 0: the length that the encoder is told; it must not need more than is there
};

std::string shown(const call_shape &shape) {
    return "length " + std::to_string(shape.length) + " capacity " + std::to_string(shape.capacity) +
           (shape.counts_segments ? " counting" : "") + (shape.has_segments ? " storing" : "") +
           (shape.null_buffer ? " null buffer" : "") +
           (shape.promised != 0 ? " promised " + std::to_string(shape.promised) : "");
}

const quill_segment untouched = {reinterpret_cast<const uint8_t *>(uintptr_t{0x5A5A}), 0x5A5A5A5A5A5A5A5A};

// Both encoders are given the same memory, one after the other, so that their pointers can be compared.
class memory {
  public:
    explicit memory(const call_shape &shape)
        : shape_(shape), buffer_(shape.length + guard), segments_(shape.capacity + guard) {}

    template <class Encode>
    outcome run(Encode encode) {
        std::fill(buffer_.begin(), buffer_.end(), shape_.canary);
        std::fill(segments_.begin(), segments_.end(), untouched);
        uint32_t count = shape_.capacity;
        const uint64_t size = encode(
            shape_.null_buffer ? nullptr : buffer_.data(), shape_.promised != 0 ? shape_.promised : shape_.length,
            shape_.has_segments ? segments_.data() : nullptr, shape_.counts_segments ? &count : nullptr);
        return {size, count, buffer_, segments_};
    }

  private:
    const call_shape &shape_;
    std::vector<uint8_t> buffer_;
    std::vector<quill_segment> segments_;
};

std::string compare(const outcome &expected, const outcome &got) {
    if (expected.size != got.size) {
        return "size " + std::to_string(expected.size) + " / " + std::to_string(got.size);
    }
    if (expected.count != got.count) {
        return "segment count " + std::to_string(expected.count) + " / " + std::to_string(got.count);
    }
    for (std::size_t i = 0; i < expected.buffer.size(); ++i) {
        if (expected.buffer[i] != got.buffer[i]) {
            return "byte " + std::to_string(i) + ": " + std::to_string(expected.buffer[i]) + " / " +
                   std::to_string(got.buffer[i]);
        }
    }
    for (std::size_t i = 0; i < expected.segments.size(); ++i) {
        if (expected.segments[i].start != got.segments[i].start ||
            expected.segments[i].length != got.segments[i].length) {
            return "segment " + std::to_string(i) + " differs";
        }
    }
    return {};
}

std::string disagreement(const record_table &table, const void *record, const call_shape &shape) {
    memory shared(shape);
    const outcome expected =
        shared.run([&](auto... arguments) { return nyx_test::literal_encode(table, record, arguments...); });
    const outcome got = shared.run([&](auto... arguments) { return table.encode(record, arguments..., 0x12345678); });
    return compare(expected, got);
}

class EncodeOracle : public testing::TestWithParam<record_table> {};

std::vector<uint64_t> lengths_to_try(uint64_t size, std::mt19937_64 &random) {
    std::vector<uint64_t> lengths;
    if (size <= 40) {
        for (uint64_t length = 0; length <= size + 2; ++length) {
            lengths.push_back(length);
        }
        return lengths;
    }
    lengths = {0, 1, size - 1, size, size + 1, size + 2};
    for (int i = 0; i < 10; ++i) {
        lengths.push_back(random() % size);
    }
    return lengths;
}

// Returns the number of comparisons made.
unsigned compare_one(const random_record &record, uint64_t seed) {
    std::mt19937_64 random(seed);
    uint32_t entries = 0;
    const uint64_t size = nyx_test::literal_encode(record.table(), record.get(), nullptr, 0, nullptr, &entries);
    unsigned made = 0;
    const auto check = [&](const call_shape &shape) {
        EXPECT_EQ(disagreement(record.table(), record.get(), shape), "") << "seed " << seed << ' ' << shown(shape);
        ++made;
    };
    for (const uint64_t length : lengths_to_try(size, random)) {
        const auto canary = static_cast<uint8_t>(random());
        check({length, canary, 0, false, false});
        check({length, canary, static_cast<uint32_t>(random() % (entries + 3)), true, true});
    }
    check({0, 0, 0, false, false, true});
    check({0, 0, entries, true, true, true});
    check({size, 0xC3, entries, true, true});
    check({size, 0xC3, 0, true, true});
    check({size, 0xC3, entries, true, false});
    // An array without a count is not used.
    check({size, 0xC3, entries, false, true});
    return made;
}

TEST_P(EncodeOracle, WritesWhatTheLiteralSchemeWrites) {
    constexpr uint64_t records = 60;
    unsigned made = 0;
    for (uint64_t i = 0; i < records; ++i) {
        const uint64_t seed = 1000 * static_cast<uint64_t>(GetParam().id) + i;
        nyx_test::build_options options;
        options.canonical = i % 4 == 0;
        options.depth = static_cast<unsigned>(i % 5);
        options.elements = i % 3 == 0 ? 40 : 10;
        options.longest_text = i % 10 == 0 ? 16500 : 140;
        made += compare_one(random_record(GetParam(), seed, options), seed);
        if (HasFailure()) {
            return;
        }
    }
    EXPECT_GE(made, records * 9);
    RecordProperty("comparisons", static_cast<int>(made));
}

TEST_P(EncodeOracle, ThePassThroughValueDoesNotMatter) {
    const random_record record(GetParam(), 77);
    const uint64_t size = GetParam().encode(record.get(), nullptr, 0, nullptr, nullptr, 0);
    std::vector<uint8_t> without(size + 1);
    std::vector<uint8_t> with(size + 1);
    EXPECT_EQ(GetParam().encode(record.get(), without.data(), size, nullptr, nullptr, 0), size);
    EXPECT_EQ(GetParam().encode(record.get(), with.data(), size, nullptr, nullptr, UINT32_MAX), size);
    EXPECT_EQ(with, without);
}

// Lengths whose lower half alone would say that there is no room, hardly any, or some.
TEST_P(EncodeOracle, LengthsBeyond32BitsAreRoomEnough) {
    for (uint64_t seed = 0; seed < 5; ++seed) {
        const random_record record(GetParam(), seed);
        uint32_t entries = 0;
        const uint64_t size = nyx_test::literal_encode(GetParam(), record.get(), nullptr, 0, nullptr, &entries);
        for (const uint64_t promised : {uint64_t{1} << 32U, (uint64_t{1} << 32U) + 5, UINT64_MAX}) {
            for (const bool with_segments : {false, true}) {
                const call_shape shape = {size, 0xC3, entries, with_segments, with_segments, false, promised};
                EXPECT_EQ(disagreement(GetParam(), record.get(), shape), "") << "seed " << seed << ' ' << shown(shape);
            }
        }
    }
}

// The memory that a record reaches, laid end to end: the record's own first, then each text and array.
class snapshot {
  public:
    snapshot(const record_table &table, const void *record) {
        add(record, table.size);
        follow(table, record);
    }

    bool operator==(const snapshot &) const = default;

  private:
    void add(const void *block, std::size_t size) {
        const auto *first = static_cast<const uint8_t *>(block);
        bytes_.insert(bytes_.end(), first, first + size);
    }

    void add_text(const char *text) {
        if (text != nullptr) {
            add(text, std::strlen(text) + 1);
        }
    }

    void follow(const record_table &table, const void *record) {
        for (const member &m : table.members) {
            if (m.kind == member_kind::record) {
                follow(table_of(m.element), nested_of(m, record));
            } else if (m.kind == member_kind::text) {
                add_text(static_cast<const char *>(pointer_of(m, record)));
            } else if (nyx_test::is_repeated(m.kind) && pointer_of(m, record) != nullptr) {
                follow_array(m, pointer_of(m, record), count_of(m, record));
            }
        }
    }

    void follow_array(const member &m, const void *array, uint32_t count) {
        add(array, count * element_size(m));
        for (uint32_t i = 0; i < count; ++i) {
            if (m.kind == member_kind::records) {
                follow(table_of(m.element), record_at(m, array, i));
            } else if (m.kind == member_kind::texts) {
                add_text(nyx_test::text_at(array, i));
            }
        }
    }

    bytes bytes_;
};

// On every way through the encoder: size alone, a buffer that is too short, one that is large enough, and segments.
TEST_P(EncodeOracle, LeavesTheRecordAlone) {
    for (uint64_t seed = 0; seed < 20; ++seed) {
        random_record record(GetParam(), seed);
        nyx_test::fill_spare_bits(GetParam(), record.get(), true);
        const snapshot before(GetParam(), record.get());
        const uint64_t size = GetParam().encode(record.get(), nullptr, 0, nullptr, nullptr, 0);
        EXPECT_TRUE(snapshot(GetParam(), record.get()) == before) << "size only, seed " << seed;

        bytes buffer(size + 1);
        GetParam().encode(record.get(), buffer.data(), size / 2, nullptr, nullptr, 0);
        EXPECT_TRUE(snapshot(GetParam(), record.get()) == before) << "short buffer, seed " << seed;
        GetParam().encode(record.get(), buffer.data(), buffer.size(), nullptr, nullptr, 0);
        EXPECT_TRUE(snapshot(GetParam(), record.get()) == before) << "large buffer, seed " << seed;

        quill_segment segments[3];
        uint32_t count = 3;
        GetParam().encode(record.get(), buffer.data(), buffer.size(), segments, &count, 0);
        EXPECT_TRUE(snapshot(GetParam(), record.get()) == before) << "segments, seed " << seed;
    }
}

INSTANTIATE_TEST_SUITE_P(Records, EncodeOracle,
                         testing::ValuesIn(nyx_test::record_tables().begin(), nyx_test::record_tables().end()),
                         [](const auto &instance) { return std::string(instance.param.name); });

// A request with bodies of every sort around an edited tree of named nodes.
class large_request {
  public:
    explicit large_request(std::size_t nodes) : names_(nodes), children_(nodes) {
        for (std::size_t i = 0; i < nodes; ++i) {
            names_[i].assign(i % 37, static_cast<char>('a' + i % 26));
            children_[i].name = names_[i].data();
            children_[i].has_name = 1;
        }
        quill_nyx_datatree &tree = request_.edit_config.config;
        tree.children = children_.data();
        tree.children_count = static_cast<uint32_t>(nodes);
        tree.has_children = 1;
        request_.has_edit_config = 1;
        give_other_bodies();
    }
    large_request(const large_request &) = delete;
    large_request &operator=(const large_request &) = delete;

    [[nodiscard]] const quill_nyx_request *get() const { return &request_; }

  private:
    void give_other_bodies() {
        request_.message_id = text_;
        request_.has_message_id = 1;
        request_.get_config.source.name = text_;
        request_.get_config.source.has_name = 1;
        request_.has_get_config = 1;
        request_.lock.target.name = text_;  // written for what it holds, without its own bit
        request_.lock.target.has_name = 1;
        request_.commit.uint32_2 = 300;
        request_.commit.has_uint32_2 = 1;
        request_.has_commit = 1;
        request_.has_schemas_list = 1;
        request_.invoke_rpc.tree.name = text_;
        request_.invoke_rpc.tree.has_name = 1;
        request_.has_invoke_rpc = 1;
    }

    char text_[8] = "running";
    std::vector<std::string> names_;
    std::vector<quill_nyx_datatree> children_;
    quill_nyx_request request_ = {};
};

// The encoder remembers a limited number of its first findings, the lengths of texts among them. The other texts and
// bodies of the request shift the limit by a few, so each number of nodes around it is tried.
TEST(EncodeLargeRequest, IsWrittenWholeWhateverTheEncoderRemembers) {
    const record_table &table = table_of(record_id::request);
    std::vector<std::size_t> node_counts = {3000};
    for (std::size_t nodes = 2030; nodes <= 2055; ++nodes) {
        node_counts.push_back(nodes);
    }
    for (const std::size_t nodes : node_counts) {
        SCOPED_TRACE(testing::Message() << nodes << " nodes");
        const large_request request(nodes);
        uint32_t entries = 0;
        const uint64_t size = nyx_test::literal_encode(table, request.get(), nullptr, 0, nullptr, &entries);
        EXPECT_GT(entries, nodes);
        EXPECT_EQ(disagreement(table, request.get(), {size, 0xC3, 0, false, false}), "") << "full";
        EXPECT_EQ(disagreement(table, request.get(), {size - 1, 0xC3, 0, false, false}), "") << "one byte short";
        EXPECT_EQ(disagreement(table, request.get(), {size, 0xC3, entries, true, true}), "") << "segments";
    }
}

// A chain of nodes so deep that sizing each level anew would not end in the lifetime of the machine.
class chain {
  public:
    static constexpr std::size_t depth = 50000;

    chain() : nodes_(depth), sizes_(depth) {
        for (std::size_t i = 0; i + 1 < depth; ++i) {
            nodes_[i].children = &nodes_[i + 1];
            nodes_[i].children_count = 1;
            nodes_[i].has_children = 1;
        }
        nodes_[depth - 1].uint32_4 = 5;
        nodes_[depth - 1].has_uint32_4 = 1;
        lay_out();
    }

    [[nodiscard]] const quill_nyx_datatree *root() const { return nodes_.data(); }
    [[nodiscard]] uint64_t size() const { return sizes_[0]; }
    [[nodiscard]] uint64_t size_of(std::size_t level) const { return sizes_[level]; }
    [[nodiscard]] const std::vector<uint8_t> &bytes() const { return bytes_; }

  private:
    // Inside out for the sizes, then outside in for the bytes.
    void lay_out() {
        sizes_[depth - 1] = 2;
        for (std::size_t i = depth - 1; i-- != 0;) {
            sizes_[i] = 1 + nyx_test::write_varint64(sizes_[i + 1], 0, nullptr, 0) + sizes_[i + 1];
        }
        bytes_.resize(sizes_[0]);
        uint64_t at = 0;
        for (std::size_t i = 1; i < depth; ++i) {
            at = nyx_test::write_tag(0x3A, at, bytes_.data(), bytes_.size());
            at = nyx_test::write_varint64(sizes_[i], at, bytes_.data(), bytes_.size());
        }
        at = nyx_test::write_tag(0x20, at, bytes_.data(), bytes_.size());
        nyx_test::write_tag(5, at, bytes_.data(), bytes_.size());
    }

    std::vector<quill_nyx_datatree> nodes_;
    std::vector<uint64_t> sizes_;
    std::vector<uint8_t> bytes_;
};

// A release build carries the chain on the stack that a program has by default.
constexpr std::size_t stack_size = std::size_t{nyx_test::release_build ? 8 : 1024} << 20U;

void on_its_own_stack(void (*body)()) {
    pthread_attr_t attributes;
    ASSERT_EQ(pthread_attr_init(&attributes), 0);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, stack_size), 0);
    pthread_t thread;
    const auto start = [](void *argument) -> void * {
        (*static_cast<void (**)()>(argument))();
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&thread, &attributes, start, static_cast<void *>(&body)), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
}

TEST(EncodeDepth, SizeOfAChainOf50000Nodes) {
    on_its_own_stack([] {
        const chain nodes;
        EXPECT_EQ(quill_nyx_datatree_encode_ext(nodes.root(), nullptr, 0, nullptr, nullptr, 0), nodes.size());
    });
}

TEST(EncodeDepth, WholeBufferForAChainOf50000Nodes) {
    on_its_own_stack([] {
        const chain nodes;
        std::vector<uint8_t> buffer(nodes.size());
        EXPECT_EQ(quill_nyx_datatree_encode_ext(nodes.root(), buffer.data(), buffer.size(), nullptr, nullptr, 0),
                  nodes.size());
        EXPECT_TRUE(buffer == nodes.bytes());
    });
}

TEST(EncodeDepth, ShortBufferForAChainOf50000Nodes) {
    on_its_own_stack([] {
        const chain nodes;
        const uint64_t length = nodes.size() / 2;
        std::vector<uint8_t> buffer(nodes.size(), 0xC3);
        EXPECT_EQ(quill_nyx_datatree_encode_ext(nodes.root(), buffer.data(), length, nullptr, nullptr, 0),
                  nodes.size());
        const auto cut = static_cast<std::ptrdiff_t>(length);
        EXPECT_TRUE(std::equal(buffer.begin(), buffer.begin() + cut, nodes.bytes().begin()));
        EXPECT_TRUE(std::all_of(buffer.begin() + cut, buffer.end(), [](uint8_t byte) { return byte == 0xC3; }));
    });
}

// The innermost node comes first; each lies at the end of the one that holds it.
TEST(EncodeDepth, SegmentsOfAChainOf50000Nodes) {
    on_its_own_stack([] {
        const chain nodes;
        std::vector<uint8_t> buffer(nodes.size());
        std::vector<quill_segment> segments(chain::depth);
        uint32_t count = chain::depth;
        EXPECT_EQ(quill_nyx_datatree_encode_ext(nodes.root(), buffer.data(), buffer.size(), segments.data(), &count, 0),
                  nodes.size());
        EXPECT_TRUE(buffer == nodes.bytes());
        ASSERT_EQ(count, chain::depth);
        for (std::size_t i = 0; i < chain::depth; ++i) {
            const uint64_t size = nodes.size_of(chain::depth - 1 - i);
            ASSERT_EQ(segments[i].length, size) << i;
            ASSERT_EQ(segments[i].start, buffer.data() + buffer.size() - size) << i;
        }
    });
}

}  // namespace
