// What it costs that every block is counted under its description.
#include <umbra/named_alloc.h>

#include <algorithm>
#include <array>
#include <barrier>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "pairs.h"

namespace {

constexpr double goal = 1.8;
constexpr std::size_t operations = 200'000;
constexpr unsigned thread_count = 2;

// An allocator, as the loops below take it. Descriptions are of usual length.
struct named {
    static void *allocate(std::size_t size) { return umbra_named_malloc_(size, "session context (session_create)"); }
    static void release(void *block) { umbra_named_free(block); }
};

struct plain {
    static void *allocate(std::size_t size) { return std::malloc(size); }
    static void release(void *block) { std::free(block); }
};

template <class Allocator>
void allocate_and_release(std::size_t count, std::size_t size) {
    for (std::size_t i = 0; i < count; ++i) {
        void *block = Allocator::allocate(size);
        keep(block);
        Allocator::release(block);
    }
}

template <class Allocator>
timed_loop one_by_one(std::size_t size) {
    return [size](std::size_t count) {
        allocate_and_release<Allocator>(1000, size);
        return nanoseconds([&] { allocate_and_release<Allocator>(count, size); });
    };
}

// Ten descriptions in turn, as a program that builds records has them.
template <class Allocate, class Release>
timed_loop in_turn(Allocate allocate, Release release) {
    return [=](std::size_t count) {
        static const char *const descriptions[] = {"request",   "error tag string", "error path string", "tree node",
                                                   "attribute", "session context",  "namespace table",   "schema list",
                                                   "response",  "xpath text"};
        return nanoseconds([&] {
            for (std::size_t i = 0; i < count; ++i) {
                void *block = allocate(64, descriptions[i % std::size(descriptions)]);
                keep(block);
                release(block);
            }
        });
    };
}

// Many blocks are in use while others come and go.
template <class Allocator>
timed_loop among(std::size_t live_blocks) {
    return [live_blocks](std::size_t count) {
        std::vector<void *> blocks(live_blocks);
        for (void *&block : blocks) {
            block = Allocator::allocate(64);
        }
        const double result = nanoseconds([&] {
            for (std::size_t i = 0; i < count; ++i) {
                void *&block = blocks[i * 7919 % blocks.size()];
                Allocator::release(block);
                block = Allocator::allocate(64);
            }
        });
        for (void *block : blocks) {
            Allocator::release(block);
        }
        return result;
    };
}

// All threads do `count` operations at once, under one description; the slowest of them counts.
template <class Allocator>
timed_loop threads_at_once() {
    return [](std::size_t count) {
        std::barrier<> meet(thread_count);
        std::array<double, thread_count> times{};
        std::vector<std::thread> threads;
        threads.reserve(thread_count);
        for (double &time : times) {
            threads.emplace_back([&] {
                allocate_and_release<Allocator>(1000, 64);
                meet.arrive_and_wait();
                time = nanoseconds([&] { allocate_and_release<Allocator>(count, 64); });
            });
        }
        for (std::thread &thread : threads) {
            thread.join();
        }
        return *std::max_element(times.begin(), times.end());
    };
}

void add(pairs &all, const std::string &what, timed_loop ours, timed_loop peer) {
    all.push_back({"named allocation, " + what, "malloc, free", operations, std::move(ours), std::move(peer), goal});
}

}  // namespace

void add_named_allocation(pairs &all) {
    for (const std::size_t size : {std::size_t{16}, std::size_t{64}, std::size_t{200}, std::size_t{4096}}) {
        add(all, std::to_string(size) + " bytes", one_by_one<named>(size), one_by_one<plain>(size));
    }
    add(all, "ten descriptions in turn", in_turn(umbra_named_malloc_, umbra_named_free),
        in_turn([](std::size_t size, const char *) { return std::malloc(size); }, std::free));
    add(all, "among 2,000 live blocks", among<named>(2000), among<plain>(2000));
    // These do not fit the processor's caches: both sides wait for memory, and nothing is asked of the ratio.
    add(all, "among 100,000 live blocks", among<named>(100'000), among<plain>(100'000));
    all.back().goal = 0;
    add(all, "2 threads at once", threads_at_once<named>(), threads_at_once<plain>());
}
