/**
 * @file arena.h
 * Memory for decoding untrusted messages: blocks are cut from chunks one behind the other, all of them are given back
 * at once, and the sum of what is handed out never exceeds a budget.
 *
 * Two bytes on the wire can ask for 200 bytes of memory (an empty data-tree node), three for 464 (an empty error of a
 * response), and each nested node takes stack besides. A budget bounds both: a node is allocated before its children
 * are decoded, so that no message can nest deeper than budget / sizeof(quill_nyx_datatree). The decoder answers an
 * exhausted budget with QUILL_DECODE_NO_MEMORY; whatever it had decoded until then goes away with the arena, also what
 * became unreachable because a member occurred twice.
 *
 * @code
 * examples::arena memory(1 << 20);
 * quill_nyx_request request;
 * if (quill_nyx_request_decode_ext(&request, bytes, size, examples::arena::allocate, &memory, 0) == 0) { ... }
 * memory.reset();  // instead of quill_nyx_request_free_ext
 * @endcode
 *
 * An arena serves one thread at a time.
 */
#ifndef EXAMPLES_ARENA_H
#define EXAMPLES_ARENA_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <utility>
#include <vector>

namespace examples {

class arena {
  public:
    explicit arena(uint64_t budget) : budget_(budget) {}
    arena(const arena &) = delete;
    arena &operator=(const arena &) = delete;

    /** A quill_alloc_fn; @p self is the arena. */
    static void *allocate(uint64_t size, void *self) noexcept { return static_cast<arena *>(self)->take(size); }

    /** @return @p size bytes, aligned for any object and not zeroed; null when the budget or the system's memory is
     * exhausted. A refused block takes nothing from the budget: a smaller one may still fit. */
    void *take(uint64_t size) noexcept {
        const uint64_t left = budget_ - used_;
        const uint64_t padding = (alignment - size % alignment) % alignment;
        if (size > left || padding > left - size) {
            return nullptr;
        }
        size += padding;
        if (size > static_cast<uint64_t>(chunk_end_ - next_) && !add_chunk(size)) {
            return nullptr;
        }
        std::byte *block = next_;
        next_ += size;
        used_ += size;
        return block;
    }

    /** Gives all blocks back; the arena is as new. */
    void reset() noexcept {
        chunks_.clear();
        next_ = chunk_end_ = nullptr;
        used_ = 0;
    }

    /** Bytes handed out since the last reset, each block rounded up to the alignment. */
    uint64_t used() const noexcept { return used_; }
    uint64_t budget() const noexcept { return budget_; }

  private:
    static constexpr uint64_t alignment = alignof(std::max_align_t);
    static constexpr uint64_t chunk_size = uint64_t{16} * 1024;

    struct release {
        void operator()(std::byte *chunk) const noexcept { std::free(chunk); }
    };
    using chunk = std::unique_ptr<std::byte, release>;

    /* The rest of the chunk in use is given up: at most chunk_size for each block that is larger than it. */
    bool add_chunk(uint64_t at_least) noexcept {
        const uint64_t size = std::max(at_least, chunk_size);
        chunk memory(static_cast<std::byte *>(std::malloc(size)));
        if (memory == nullptr) {
            return false;
        }
        try {
            chunks_.push_back(std::move(memory));
        } catch (...) {
            return false;
        }
        next_ = chunks_.back().get();
        chunk_end_ = next_ + size;
        return true;
    }

    uint64_t budget_;
    uint64_t used_ = 0;
    std::byte *next_ = nullptr;
    std::byte *chunk_end_ = nullptr;
    std::vector<chunk> chunks_;
};

}  // namespace examples

#endif
