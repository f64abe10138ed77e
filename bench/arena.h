// An arena that hands out its one block from the front and takes everything back at once.
#ifndef NYX_BENCH_ARENA_H
#define NYX_BENCH_ARENA_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>

class bump_arena {
  public:
    // What a block takes, so that the next one is aligned for any object.
    static constexpr uint64_t rounded(uint64_t size) { return (size + 15) & ~uint64_t{15}; }

    explicit bump_arena(uint64_t capacity) : block_(new uint8_t[capacity]), next_(block_.get()), left_(capacity) {
        capacity_ = capacity;
        std::memset(block_.get(), 0xA5, capacity);  // the pages are there before anything is timed
    }

    void reset() {
        next_ = block_.get();
        left_ = capacity_;
    }

    // A quill_alloc_fn whose context is the arena.
    static void *take(uint64_t size, void *self) {
        auto *arena = static_cast<bump_arena *>(self);
        const uint64_t taken = rounded(size);
        if (taken > arena->left_) {
            return nullptr;
        }
        uint8_t *block = arena->next_;
        arena->next_ += taken;
        arena->left_ -= taken;
        return block;
    }

  private:
    std::unique_ptr<uint8_t[]> block_;
    uint8_t *next_;
    uint64_t left_;
    uint64_t capacity_;
};

#endif
