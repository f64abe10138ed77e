// Calls on different records run at once on many threads: the codec keeps nothing between or outside of them.
#include <gtest/gtest.h>

#include <barrier>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "build_kind.h"
#include "decode_fixture.h"
#include "literal_encoder.h"

namespace nyx_test {
namespace {

constexpr std::size_t thread_count = 8;
// ThreadSanitizer needs the threads to meet once; by its values alone a fault shows only sooner or later.
constexpr unsigned rounds = sanitized ? 5 : 80;
constexpr record_id kinds[] = {record_id::datatree,      record_id::request,  record_id::response,
                               record_id::start_session, record_id::commit,   record_id::node_info,
                               record_id::edit_ins,      record_id::schema,   record_id::copy_config,
                               record_id::notification,  record_id::datastore};

bytes encoded(const record_table &table, const void *record) {
    bytes buffer(table.encode(record, nullptr, 0, nullptr, nullptr, 0));
    table.encode(record, buffer.data(), buffer.size(), nullptr, nullptr, 0);
    return buffer;
}

bytes encoded_with_segments(const record_table &table, const void *record, std::size_t size) {
    bytes buffer(size);
    quill_segment segments[4];
    uint32_t count = 4;
    table.encode(record, buffer.data(), buffer.size(), segments, &count, 0);
    return buffer;
}

// A record of its own, and what its encoding must be.
class sample {
  public:
    sample(const record_table &table, uint64_t seed) : record_(table, seed, {true, 4, 60, 300}) {
        expected_.resize(literal_encode(table, record_.get(), nullptr, 0, nullptr, nullptr));
        literal_encode(table, record_.get(), expected_.data(), expected_.size(), nullptr, nullptr);
    }

    // Encode, decode, copy, encode both again, release both. Returns what went wrong.
    [[nodiscard]] std::string round() const {
        const record_table &table = record_.table();
        counting_allocator blocks;
        raw_record decoded(table);
        raw_record copy(table);
        std::string wrong;
        const auto check = [&](bool right, const char *step) { wrong += right ? "" : step; };

        check(encoded(table, record_.get()) == expected_, " encode");
        check(encoded_with_segments(table, record_.get(), expected_.size()) == expected_, " segments");
        check(
            table.decode(decoded.get(), expected_.data(), expected_.size(), counting_allocator::alloc, &blocks, 0) == 0,
            " decode");
        check(table.duplicate(copy.get(), decoded.get(), counting_allocator::alloc, &blocks) == 0, " duplicate");
        check(encoded(table, decoded.get()) == expected_, " decoded");
        table.free(decoded.get(), counting_allocator::free, &blocks, 0);
        check(encoded(table, copy.get()) == expected_, " copied");
        table.free(copy.get(), counting_allocator::free, &blocks, 0);
        check(blocks.live_blocks() == 0 && blocks.complaints().empty(), " free");
        return wrong.empty() ? wrong : std::string(table.name) + ':' + wrong;
    }

  private:
    random_record record_;
    bytes expected_;
};

using samples = std::vector<std::unique_ptr<sample>>;

// The threads differ in their records and in the order of the kinds, so that no two do the same at a time.
samples samples_of(std::size_t thread) {
    samples own;
    for (std::size_t i = 0; i < std::size(kinds); ++i) {
        const record_id kind = kinds[(i + thread) % std::size(kinds)];
        own.push_back(std::make_unique<sample>(table_of(kind), 100 * thread + i));
    }
    return own;
}

std::string run(const samples &own) {
    for (unsigned i = 0; i < rounds; ++i) {
        for (const auto &one : own) {
            std::string wrong = one->round();
            if (!wrong.empty()) {
                return wrong;
            }
        }
    }
    return {};
}

TEST(Concurrency, CallsOnDifferentRecordsDoNotDisturbEachOther) {
    std::vector<samples> work;
    for (std::size_t i = 0; i < thread_count; ++i) {
        work.push_back(samples_of(i));
    }
    std::vector<std::string> wrong(thread_count);
    std::barrier start(thread_count);
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < thread_count; ++i) {
        threads.emplace_back([&, i] {
            start.arrive_and_wait();
            wrong[i] = run(work[i]);
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    for (const std::string &one : wrong) {
        EXPECT_EQ(one, "");
    }
}

}  // namespace
}  // namespace nyx_test
