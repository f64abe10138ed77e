#include "record_builder.h"

#include <cstring>

namespace nyx_test {
namespace {

class builder {
  public:
    builder(std::mt19937_64 &random, const build_options &options, quill_alloc_fn alloc, void *alloc_ctx)
        : random_(random), options_(options), alloc_(alloc), alloc_ctx_(alloc_ctx), elements_left_(options.elements) {
        constexpr unsigned densities[] = {10, 30, 50, 80, 100};
        density_ = densities[below(5)];
    }

    void fill(const record_table &table, void *record, unsigned depth) {
        reset_record(table, record);
        if (!options_.canonical) {
            scribble_spare_bits(table, record);
        }
        for (const member &m : table.members) {
            fill_member(table, m, record, depth);
        }
        if (!options_.canonical && chance(15)) {
            clear_presence(table, record);
        }
    }

  private:
    uint64_t below(uint64_t limit) { return random_() % limit; }
    bool chance(unsigned percent) { return below(100) < percent; }

    // The bits of the last presence byte that belong to no member; a record without members has a spare byte.
    void scribble_spare_bits(const record_table &table, void *record) {
        const std::size_t used = table.members.size() % 8;
        if (used != 0 || table.members.empty()) {
            auto *last = static_cast<uint8_t *>(record) + table.presence_offset +
                         (table.members.empty() ? 0 : table.presence_bytes() - 1);
            *last = static_cast<uint8_t>(below(256) << used);
        }
    }

    // What nested records hold then shows without any bit of their holder.
    static void clear_presence(const record_table &table, void *record) {
        for (const member &m : table.members) {
            set_present(table, m, record, false);
        }
    }

    void fill_member(const record_table &table, const member &m, void *record, unsigned depth) {
        const bool has_value = chance(density_);
        const bool bit = options_.canonical || chance(85) ? has_value : !has_value;
        if (has_value) {
            give_value(m, record, depth);
        }
        set_present(table, m, record, bit && !lacks_elements(m, record));
        if (!options_.canonical && is_repeated(m.kind)) {
            disturb_array(table, m, record);
        }
    }

    // A canonical record has no bit for an array that the element budget left empty.
    bool lacks_elements(const member &m, const void *record) const {
        return options_.canonical && is_repeated(m.kind) && pointer_of(m, record) == nullptr;
    }

    void give_value(const member &m, void *record, unsigned depth) {
        switch (m.kind) {
            case member_kind::number32:
            case member_kind::number64:
                set_number(m, record, number());
                break;
            case member_kind::flag:
            case member_kind::wide_flag:
                set_number(m, record, options_.canonical ? below(2) : number());
                break;
            case member_kind::text:
                set_pointer(m, record, text());
                break;
            case member_kind::record:
                fill(table_of(m.element), nested_of(m, record), depth);
                break;
            default:
                give_array(m, record, depth);
        }
    }

    void give_array(const member &m, void *record, unsigned depth) {
        const unsigned most = elements_left_ < 4 ? elements_left_ : 4;
        if (depth == 0 || most == 0) {
            return;
        }
        const auto count = static_cast<uint32_t>(1 + below(most));
        elements_left_ -= count;
        void *array = take(count * element_size(m));
        std::memset(array, 0, count * element_size(m));
        for (uint32_t i = 0; i < count; ++i) {
            give_element(m, array, i, depth);
        }
        set_pointer(m, record, array);
        set_count(m, record, count);
    }

    void give_element(const member &m, void *array, uint32_t index, unsigned depth) {
        auto *slot = static_cast<uint8_t *>(array) + index * element_size(m);
        if (m.kind == member_kind::texts) {
            const char *entry = !options_.canonical && chance(15) ? nullptr : text();
            std::memcpy(slot, &entry, sizeof entry);
        } else if (m.kind == member_kind::numbers32) {
            const auto value = static_cast<uint32_t>(number());
            std::memcpy(slot, &value, sizeof value);
        } else {
            fill(table_of(m.element), slot, depth - 1);
        }
    }

    // Now and then: a count without an array, or an array without a count.
    void disturb_array(const record_table &table, const member &m, void *record) {
        if (pointer_of(m, record) == nullptr && chance(20)) {
            set_count(m, record, static_cast<uint32_t>(number()));
            set_present(table, m, record, chance(50));
        } else if (pointer_of(m, record) == nullptr && chance(20)) {
            void *array = take(element_size(m));
            std::memset(array, 0, element_size(m));
            set_pointer(m, record, array);
            set_present(table, m, record, chance(50));
        }
    }

    // Every magnitude is as likely as any other, and the values around each length of a varint come up.
    uint64_t number() {
        const uint64_t power = uint64_t{1} << below(64);
        switch (below(6)) {
            case 0:
                return power - 1;
            case 1:
                return power;
            case 2:
                return UINT64_MAX;  // cut to the width of the member
            case 3:
                return below(4);
            default:
                return random_() & (power | (power - 1));
        }
    }

    const char *text() {
        const uint64_t length = text_length();
        auto *block = static_cast<char *>(take(length + 1));
        for (uint64_t i = 0; i < length; ++i) {
            block[i] = static_cast<char>(1 + below(255));
        }
        block[length] = '\0';
        return block;
    }

    uint64_t text_length() {
        const uint64_t draw = below(1000);
        uint64_t length = below(20);
        if (draw < 3) {
            length = 16380 + below(10);
        } else if (draw < 30) {
            length = 120 + below(20);
        } else if (draw < 130) {
            length = 0;
        }
        return length < options_.longest_text ? length : options_.longest_text;
    }

    void *take(uint64_t size) { return alloc_(size, alloc_ctx_); }

    std::mt19937_64 &random_;
    const build_options &options_;
    quill_alloc_fn alloc_;
    void *alloc_ctx_;
    unsigned elements_left_;
    unsigned density_;
};

}  // namespace

void build_record(const record_table &table, void *record, std::mt19937_64 &random, const build_options &options,
                  quill_alloc_fn alloc, void *alloc_ctx) {
    builder(random, options, alloc, alloc_ctx).fill(table, record, options.depth);
}

void reset_record(const record_table &table, void *record) {
    std::memset(record, 0, table.size);
    for (const member &m : table.members) {
        if (m.kind == member_kind::record) {
            reset_record(table_of(m.element), nested_of(m, record));
        } else if (m.reset != 0) {
            set_number(m, record, m.reset);
        }
    }
}

random_record::random_record(const record_table &table, uint64_t seed, const build_options &options)
    : table_(table), memory_(table) {
    std::mt19937_64 random(seed);
    build_record(table, memory_.get(), random, options, counting_allocator::alloc, &blocks_);
}

}  // namespace nyx_test
