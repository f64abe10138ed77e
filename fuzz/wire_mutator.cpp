// Changes messages as messages: members are changed, dropped, repeated, exchanged and put in, and the lengths of the
// records around them stay right, which a change of single bytes hardly ever gets past. Only now and then is a length
// made wrong, a number stretched or a wire type exchanged.
#include <optional>
#include <random>

#include "records.h"

extern "C" size_t LLVMFuzzerMutate(uint8_t *data, size_t size, size_t max_size);
extern "C" size_t LLVMFuzzerCustomMutator(uint8_t *data, size_t size, size_t max_size, unsigned seed);

namespace nyx_fuzz {
namespace {

using bytes = std::vector<uint8_t>;
using random = std::minstd_rand;

constexpr unsigned deepest = 40;
constexpr std::size_t most_members = 2000;

uint64_t below(random &chance, uint64_t limit) {
    return chance() % limit;
}

struct message;

// A member as it stands on the wire. One of a nested record that could be read holds that record.
struct wire_member {
    uint64_t tag = 0;
    uint64_t number = 0;  // of a varint; of a length-delimited one, what is added to the length
    bytes content;
    std::shared_ptr<message> nested;
    unsigned stretched = 0;  // superfluous bytes of the tag, the length or the number
};

struct message {
    const record_table *table = nullptr;  // null: of an unknown record
    std::vector<wire_member> members;
};

class reader {
  public:
    reader(const uint8_t *at, const uint8_t *end) : at_(at), end_(end) {}

    // Nothing: this is no message.
    std::optional<message> read(const record_table *table, unsigned depth) {
        message out{table, {}};
        while (at_ != end_) {
            std::optional<wire_member> member = read_member(table, depth);
            if (!member || out.members.size() == most_members) {
                return std::nullopt;
            }
            out.members.push_back(std::move(*member));
        }
        return out;
    }

  private:
    std::optional<wire_member> read_member(const record_table *table, unsigned depth) {
        wire_member out;
        if (!varint(out.tag)) {
            return std::nullopt;
        }
        switch (out.tag % 8) {
            case 0:
                return varint(out.number) ? std::optional(std::move(out)) : std::nullopt;
            case 1:
                return fixed(8, out) ? std::optional(std::move(out)) : std::nullopt;
            case 5:
                return fixed(4, out) ? std::optional(std::move(out)) : std::nullopt;
            case 2: {
                uint64_t length = 0;
                if (!varint(length) || !fixed(length, out)) {
                    return std::nullopt;
                }
                nest(table, depth, out);
                return out;
            }
            default:
                return std::nullopt;
        }
    }

    static void nest(const record_table *table, unsigned depth, wire_member &out) {
        const record_table *const element = element_of(table, out.tag / 8);
        if (element != nullptr && depth < deepest) {
            const uint8_t *const start = out.content.data();
            if (auto inner = reader(start, start + out.content.size()).read(element, depth + 1)) {
                out.nested = std::make_shared<message>(std::move(*inner));
            }
        }
    }

    static const record_table *element_of(const record_table *table, uint64_t field) {
        if (table != nullptr) {
            for (const member &m : table->members) {
                if (m.field == field && m.element != nyx_test::record_id::none) {
                    return &nyx_test::table_of(m.element);
                }
            }
        }
        return nullptr;
    }

    bool varint(uint64_t &value) {
        value = 0;
        for (unsigned shift = 0; at_ != end_ && shift < 70; shift += 7) {
            value |= shift < 64 ? uint64_t{*at_ & 0x7FU} << shift : 0;
            if (*at_++ < 0x80) {
                return true;
            }
        }
        return false;
    }

    bool fixed(uint64_t length, wire_member &out) {
        if (length > static_cast<uint64_t>(end_ - at_)) {
            return false;
        }
        out.content.assign(at_, at_ + length);
        at_ += length;
        return true;
    }

    const uint8_t *at_;
    const uint8_t *end_;
};

void write_varint(bytes &out, uint64_t value, unsigned stretched) {
    for (; value >= 0x80; value >>= 7U) {
        out.push_back(static_cast<uint8_t>(value | 0x80U));
    }
    out.push_back(static_cast<uint8_t>(value));
    for (unsigned i = 0; i < stretched; ++i) {
        out.back() |= 0x80U;
        out.push_back(0);
    }
}

void write(bytes &out, const message &from) {
    for (const wire_member &each : from.members) {
        write_varint(out, each.tag, each.stretched % 3 == 1 ? each.stretched : 0);
        if (each.tag % 8 == 0) {
            write_varint(out, each.number, each.stretched % 3 == 2 ? each.stretched : 0);
            continue;
        }
        bytes content = each.content;
        if (each.nested != nullptr) {
            content.clear();
            write(content, *each.nested);
        }
        if (each.tag % 8 == 2) {
            write_varint(out, content.size() + each.number, each.stretched % 3 == 2 ? each.stretched : 0);
        }
        out.insert(out.end(), content.begin(), content.end());
    }
}

void collect(message &of, std::vector<message *> &all) {
    all.push_back(&of);
    for (const wire_member &each : of.members) {
        if (each.nested != nullptr) {
            collect(*each.nested, all);
        }
    }
}

message deep_copy(const message &of) {
    message out = of;
    for (wire_member &each : out.members) {
        if (each.nested != nullptr) {
            each.nested = std::make_shared<message>(deep_copy(*each.nested));
        }
    }
    return out;
}

wire_member copy(const wire_member &of) {
    wire_member out = of;
    if (of.nested != nullptr) {
        out.nested = std::make_shared<message>(deep_copy(*of.nested));
    }
    return out;
}

uint64_t interesting_number(random &chance) {
    constexpr uint64_t numbers[] = {0,           1,         2,           4,          0x7F,       0x80,
                                    0x3FFF,      0x4000,    0x7FFFFFFF,  0x80000000, 0xFFFFFFFF, 0x100000000,
                                    0x100000001, INT64_MAX, 1ULL << 63U, UINT64_MAX};
    return below(chance, 4) == 0 ? chance() : numbers[below(chance, std::size(numbers))];
}

bytes some_text(random &chance) {
    bytes out(below(chance, 8) == 0 ? below(chance, 300) : below(chance, 6));
    for (uint8_t &each : out) {
        each = static_cast<uint8_t>(below(chance, 10) == 0 ? chance() : 'a' + below(chance, 26));
    }
    return out;
}

// A member that the record knows, or an unknown one.
wire_member new_member(const record_table *table, random &chance) {
    wire_member out;
    if (table == nullptr || table->members.empty() || below(chance, 10) == 0) {
        out.tag = below(chance, 2100) * 8 + below(chance, 8);
        out.number = out.tag % 8 == 0 ? interesting_number(chance) : 0;
        out.content.resize(out.tag % 8 == 1 ? 8 : out.tag % 8 == 5 ? 4 : 0, 0x11);
        return out;
    }
    const member &m = table->members[below(chance, table->members.size())];
    const bool is_varint = is_number(m.kind) || m.kind == member_kind::numbers32;
    out.tag = uint64_t{m.field} * 8 + (is_varint ? 0 : 2);
    if (is_varint) {
        out.number = interesting_number(chance);
    } else if (m.element != nyx_test::record_id::none) {
        out.nested = std::make_shared<message>(message{&nyx_test::table_of(m.element), {}});
    } else {
        out.content = some_text(chance);
    }
    return out;
}

class mutation {
  public:
    mutation(message &root, unsigned seed) : chance_(seed) { collect(root, all_); }

    void change_something() {
        message &at = *all_[below(chance_, all_.size())];
        if (at.members.empty() || below(chance_, 4) == 0) {
            put_in(at, new_member(at.table, chance_));
            return;
        }
        wire_member &one = at.members[below(chance_, at.members.size())];
        switch (below(chance_, 10)) {
            case 0:
            case 1:
                change_content(one);
                break;
            case 2:
                at.members.erase(at.members.begin() + (&one - at.members.data()));
                break;
            case 3:
                put_in(at, copy(one));
                break;
            case 4:
                std::swap(one, at.members[below(chance_, at.members.size())]);
                break;
            case 5:
                repeat(at, one);
                break;
            case 6:
                nest_deeper(at, one);
                break;
            case 7:
                one.stretched = 1 + static_cast<unsigned>(below(chance_, 12));
                break;
            case 8:
                exchange(at, one);
                break;
            default:
                damage(one);
        }
    }

  private:
    void put_in(message &at, wire_member one) {
        const auto place = static_cast<std::ptrdiff_t>(below(chance_, at.members.size() + 1));
        at.members.insert(at.members.begin() + place, std::move(one));
    }

    void change_content(wire_member &one) {
        if (one.tag % 8 == 0) {
            one.number = interesting_number(chance_);
        } else if (one.nested != nullptr) {
            put_in(*one.nested, new_member(one.nested->table, chance_));
        } else {
            bytes room = one.content;
            room.resize(one.content.size() + 32);
            room.resize(LLVMFuzzerMutate(room.data(), one.content.size(), room.size()));
            one.content = std::move(room);
        }
    }

    void repeat(message &at, const wire_member &one) {
        const std::vector<wire_member> run(1 + below(chance_, 24), copy(one));
        at.members.insert(at.members.begin() + (&one - at.members.data()), run.begin(), run.end());
    }

    // Puts a copy of the record where it can hold one of its kind itself.
    void nest_deeper(const message &at, wire_member &one) {
        if (one.nested != nullptr && one.nested->table == at.table) {
            put_in(*one.nested, copy(one));
        } else {
            change_content(one);
        }
    }

    // Puts in what stands elsewhere in the message, whether it fits there or not.
    void exchange(message &at, wire_member &one) {
        const message &other = *all_[below(chance_, all_.size())];
        if (!other.members.empty()) {
            wire_member found = copy(other.members[below(chance_, other.members.size())]);
            if (below(chance_, 2) == 0) {
                found.tag = one.tag;
            }
            put_in(at, std::move(found));
        }
    }

    void damage(wire_member &one) {
        if (below(chance_, 2) == 0) {
            one.tag = one.tag / 8 * 8 + below(chance_, 8);
        } else if (one.tag % 8 == 2) {
            one.number = below(chance_, 2) == 0 ? UINT64_MAX : interesting_number(chance_);
        }
    }

    random chance_;
    std::vector<message *> all_;
};

// 0: the result would be too long, or there is no message.
std::size_t mutate_message(uint8_t *data, std::size_t size, std::size_t max_size, unsigned seed) {
    const message_place place = place_of_message(data, size);
    if (place.table == nullptr || place.offset > size) {
        return 0;
    }
    std::optional<message> root = reader(data + place.offset, data + size).read(place.table, 0);
    if (!root) {
        return 0;
    }
    for (unsigned turn = 0; turn <= seed % 3; ++turn) {
        mutation(*root, seed + turn).change_something();  // anew: pointers into the message do not outlive a change
    }
    bytes out;
    write(out, *root);
    if (out.size() > max_size - place.offset) {
        return 0;
    }
    std::copy(out.begin(), out.end(), data + place.offset);
    return place.offset + out.size();
}

}  // namespace
}  // namespace nyx_fuzz

extern "C" size_t LLVMFuzzerCustomMutator(uint8_t *data, size_t size, size_t max_size, unsigned seed) {
    const std::size_t changed = seed % 5 == 0 ? 0 : nyx_fuzz::mutate_message(data, size, max_size, seed / 5);
    return changed != 0 ? changed : LLVMFuzzerMutate(data, size, max_size);
}
