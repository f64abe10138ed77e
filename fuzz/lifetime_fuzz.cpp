// Copy and release of whatever a decode leaves behind that fails half-way, with allocations that fail in the copy.
//
// What is asserted: a copy of a half-decoded record equals it but for the blocks that could not be had, of which there
// are as many as allocations failed, each member of these being null and unmarked; the source stays as it was: the
// record itself bit for bit, all that it owns as the literal decoder has it; spare presence bits are kept; a copy of
// such a copy equals it; what is copied encodes to the same bytes; source and copies can be released in any order, and
// twice, and everything comes back, but for former occurrences of nested records in the source's message.
//
// Input: the record's index; the number of the allocation of the decode that fails (0: none); the message.
#include "records.h"

namespace nyx_fuzz {
namespace {

constexpr std::size_t longest_message = 1024;
constexpr unsigned deepest_comparison = 60;
constexpr uint64_t every_allocation_up_to = 16;

// Walks a record and its copy, side by side.
class faithfulness {
  public:
    // Blocks of the source that the copy lacks. What these would have held is not looked for.
    static uint64_t lost(const record_table &table, const void *source, const void *copy) {
        uint64_t count = 0;
        for (const member &m : table.members) {
            count += lost_in(table, m, source, copy);
        }
        return count;
    }

  private:
    static uint64_t lost_in(const record_table &table, const member &m, const void *source, const void *copy) {
        const bool marked = is_present(table, m, source);
        if (m.kind == member_kind::record) {
            require_mark(table, m, copy, marked);
            return lost(nyx_test::table_of(m.element), nested_of(m, source), nested_of(m, copy));
        }
        if (is_number(m.kind)) {
            require_mark(table, m, copy, marked);
            REQUIRE(number_of(m, copy) == number_of(m, source), m.name);
            return 0;
        }
        return lost_blocks(table, m, source, copy, marked);
    }

    static uint64_t lost_blocks(const record_table &table, const member &m, const void *source, const void *copy,
                                bool marked) {
        const void *const theirs = pointer_of(m, source);
        const void *const ours = pointer_of(m, copy);
        const bool repeated = is_repeated(m.kind);
        const uint32_t count = repeated ? count_of(m, source) : 0;
        const bool had_block = theirs != nullptr && (!repeated || count != 0);
        const bool has_block = ours != nullptr;
        require_mark(table, m, copy, marked && (has_block || !had_block));
        REQUIRE(had_block || !has_block, m.name);
        REQUIRE(!repeated || count_of(m, copy) == (has_block ? count : 0), m.name);
        if (!has_block) {
            return had_block ? 1 : 0;
        }
        REQUIRE(ours != theirs, m.name);
        if (!repeated) {
            require_same_text(m, theirs, ours);
            return 0;
        }
        uint64_t lost_elements = 0;
        for (uint32_t i = 0; i < count; ++i) {
            lost_elements += lost_in_element(m, i, theirs, ours);
        }
        return lost_elements;
    }

    static uint64_t lost_in_element(const member &m, uint32_t index, const void *theirs, const void *ours) {
        if (m.kind == member_kind::records) {
            return lost(nyx_test::table_of(m.element), record_at(m, theirs, index), record_at(m, ours, index));
        }
        if (m.kind == member_kind::numbers32) {
            REQUIRE(nyx_test::number32_at(theirs, index) == nyx_test::number32_at(ours, index), m.name);
            return 0;
        }
        const char *const text = nyx_test::text_at(theirs, index);
        const char *const copied = nyx_test::text_at(ours, index);
        if (text == nullptr || copied == nullptr) {
            REQUIRE(copied == nullptr, m.name);
            return text == nullptr ? 0 : 1;
        }
        require_same_text(m, text, copied);
        return 0;
    }

    static void require_mark(const record_table &table, const member &m, const void *copy, bool marked) {
        REQUIRE(is_present(table, m, copy) == marked, std::string(table.name) + '.' + m.name);
    }

    static void require_same_text(const member &m, const void *theirs, const void *ours) {
        REQUIRE(std::strcmp(static_cast<const char *>(theirs), static_cast<const char *>(ours)) == 0, m.name);
    }
};

enum class failing { none, one, all_from_there };

// A copy that the named allocations were refused to.
class copy_of {
  public:
    copy_of(const record_table &table, const void *source, failing how, uint64_t n) : table_(table), record_(table) {
        if (how == failing::one) {
            blocks_.fail_at(n);
        } else if (how == failing::all_from_there) {
            blocks_.fail_from(n);
        }
        result_ = table.duplicate(record_.get(), source, counting_allocator::alloc, &blocks_);
        failed_ = how == failing::none || n > blocks_.calls() ? 0 : how == failing::one ? 1 : blocks_.calls() - n + 1;
        REQUIRE(result_ == (failed_ == 0 ? 0 : QUILL_DECODE_NO_MEMORY), std::to_string(result_));
        REQUIRE(faithfulness::lost(table, source, record_.get()) == failed_, table.name);
        REQUIRE(spare_bits_are(table, record_.get(), raw_record::garbage), table.name);
    }
    copy_of(const copy_of &) = delete;
    copy_of &operator=(const copy_of &) = delete;
    ~copy_of() {
        release(table_, record_, blocks_);
        REQUIRE(blocks_.live_blocks() == 0, table_.name);
    }

    [[nodiscard]] const void *get() const { return record_.get(); }
    [[nodiscard]] uint64_t allocations() const { return blocks_.calls(); }

  private:
    const record_table &table_;
    counting_allocator blocks_;
    raw_record record_;
    int32_t result_ = 0;
    uint64_t failed_ = 0;
};

void copy_without_allocator(const record_table &table, const void *source, uint64_t needed) {
    raw_record copy(table);
    const int32_t result = table.duplicate(copy.get(), source, nullptr, nullptr);
    REQUIRE(result == (needed == 0 ? 0 : QUILL_DECODE_NO_MEMORY), std::to_string(result));
    counting_allocator none;
    REQUIRE(release(table, copy, none) == 0, table.name);
}

void copy_everywhich_way(const record_table &table, const void *source) {
    const copy_of whole(table, source, failing::none, 0);
    const uint64_t needed = whole.allocations();
    REQUIRE(encoded(table, whole.get()) == encoded(table, source), table.name);
    copy_without_allocator(table, source, needed);
    for (uint64_t n = 1; n <= needed; n += n < every_allocation_up_to ? 1 : needed / 4 + 1) {
        for (const failing how : {failing::one, failing::all_from_there}) {
            auto part = std::make_unique<copy_of>(table, source, how, n);
            const copy_of again(table, part->get(), failing::none, 0);
            REQUIRE(encoded(table, again.get()) == encoded(table, part->get()), table.name);
            part.reset();  // before the copy that was made of it
        }
    }
}

}  // namespace

message_place place_of_message(const uint8_t *data, std::size_t size) {
    const auto tables = nyx_test::record_tables();
    return size < 2 ? message_place{} : message_place{&tables[data[0] % tables.size()], 2};
}

}  // namespace nyx_fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    using namespace nyx_fuzz;
    if (size < 2 || size - 2 > longest_message) {
        return 0;
    }
    const record_table &table = *place_of_message(data, size).table;
    const exact_copy message(data + 2, size - 2);
    counting_allocator blocks;
    raw_record source(table);
    blocks.fail_at(data[1]);
    table.decode(source.get(), message.get(), size - 2, counting_allocator::alloc, &blocks, 0);
    const reference_record expected(table, message.get(), size - 2, data[1]);
    if (nesting(table, source.get()) <= deepest_comparison) {
        const auto *const bytes = static_cast<const uint8_t *>(source.get());
        const std::vector<uint8_t> before(bytes, bytes + table.size);
        copy_everywhich_way(table, source.get());
        REQUIRE(std::equal(before.begin(), before.end(), bytes), table.name);
        expected.require_equal(source.get());
    }
    release(table, source, blocks);
    REQUIRE(blocks.live_blocks() == expected.lost(), table.name + (": lost " + std::to_string(expected.lost())));
    return 0;
}
