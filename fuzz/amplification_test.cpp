// The decoder's demand for memory, measured: the most bytes that a byte of a message can ask for, of each record.
//
// For each record a message is built that is a long run of the member that amplification.h finds to be the worst, put
// into the records around it. What the decoder asks for must come close to the bound and must not exceed it, and with
// a budget (examples/arena.h) the demand ends at the budget. Prints what it measured.
#include <cstdio>
#include <numeric>
#include <optional>

#include "amplification.h"
#include "arena.h"
#include "counting_allocator.h"
#include "wire.h"

namespace {

using namespace nyx_test;
using nyx_fuzz::amplification;

constexpr std::size_t long_run = 20'000;
constexpr uint64_t documented_memory = 464;  // of an rpc-error among the further errors of a response,
constexpr uint64_t documented_wire = 3;      // for so many bytes
constexpr uint64_t budget = uint64_t{64} * 1024;

int failures = 0;

void check(bool holds, const char *record, const char *what) {
    if (!holds) {
        std::printf("%s: %s\n", record, what);
        ++failures;
    }
}

// Of a string, which may not occur twice, one that is long.
bytes run_of(const member &m) {
    if (m.kind == member_kind::text) {
        return text_member(m.field, std::string(long_run, 't'));
    }
    const bytes once = m.kind == member_kind::numbers32 ? number_member(m.field, 0) : nested_member(m.field, {});
    bytes out;
    for (std::size_t i = 0; i < long_run; ++i) {
        out.insert(out.end(), once.begin(), once.end());
    }
    return out;
}

// The message in which the member occurs over and over. Nothing: the record cannot hold it.
std::optional<bytes> message_with(const record_table &table, const member *wanted, std::set<record_id> visited) {
    if (!visited.insert(table.id).second) {
        return std::nullopt;
    }
    for (const member &m : table.members) {
        if (&m == wanted) {
            return run_of(m);
        }
        if (m.element != record_id::none) {
            if (const auto inner = message_with(table_of(m.element), wanted, visited)) {
                return nested_member(m.field, *inner);
            }
        }
    }
    return std::nullopt;
}

void check_budget(const record_table &table, const bytes &message, uint64_t asked) {
    examples::arena memory(budget);
    record_memory record(table);
    const int32_t result =
        table.decode(record.get(), message.data(), message.size(), examples::arena::allocate, &memory, 0);
    check(memory.used() <= budget, table.name, "the budget is exceeded");
    check(result == (asked > budget ? QUILL_DECODE_NO_MEMORY : 0), table.name, "an exhausted budget is not told");
}

void measure(const record_table &table) {
    const amplification worst = nyx_fuzz::worst_amplification(table);
    if (worst.member == nullptr) {
        std::printf("%-24s asks for nothing\n", table.name);
        return;
    }
    const bytes message = *message_with(table, worst.member, {});
    counting_allocator blocks;
    record_memory record(table);
    const int32_t result =
        table.decode(record.get(), message.data(), message.size(), counting_allocator::alloc, &blocks, 0);
    const uint64_t asked = std::accumulate(blocks.sizes().begin(), blocks.sizes().end(), uint64_t{0});
    check(result == 0, table.name, "the message is refused");
    check(asked * worst.wire <= message.size() * worst.memory, table.name, "more is asked for than the bound says");
    check(asked * worst.wire * 1000 >= message.size() * worst.memory * 999, table.name, "the bound is not reached");
    check(worst.memory * documented_wire <= documented_memory * worst.wire, table.name, "exceeds what is documented");
    check_budget(table, message, asked);
    std::printf("%-24s %6.1f bytes a byte: %s, %llu bytes for %llu\n", table.name,
                static_cast<double>(asked) / static_cast<double>(message.size()), worst.member->name,
                static_cast<unsigned long long>(worst.memory), static_cast<unsigned long long>(worst.wire));
    table.free(record.get(), counting_allocator::free, &blocks, 0);
}

}  // namespace

int main() {
    for (const record_table &table : record_tables()) {
        measure(table);
    }
    return failures == 0 ? 0 : 1;
}
