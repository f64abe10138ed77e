#include "counting_allocator.h"

#include <cstdlib>
#include <cstring>

namespace nyx_test {

counting_allocator::~counting_allocator() {
    for (const auto &[block, size] : live_) {
        std::free(block);
    }
}

void *counting_allocator::alloc(uint64_t size, void *allocator) {
    return static_cast<counting_allocator *>(allocator)->take(size);
}

void counting_allocator::free(void *block, void *allocator) {
    static_cast<counting_allocator *>(allocator)->give(block);
}

uint64_t counting_allocator::live_bytes() const {
    uint64_t bytes = 0;
    for (const auto &[block, size] : live_) {
        bytes += size;
    }
    return bytes;
}

void counting_allocator::forget() {
    calls_ = 0;
    frees_ = 0;
    fail_at_ = 0;
    fail_from_ = 0;
    sizes_.clear();
}

void *counting_allocator::take(uint64_t size) {
    ++calls_;
    sizes_.push_back(size);
    if (size == 0) {
        complain("a block of 0 bytes was asked for");
        return nullptr;
    }
    if (calls_ == fail_at_ || (fail_from_ != 0 && calls_ >= fail_from_)) {
        return nullptr;
    }
    void *block = std::malloc(size);
    if (block == nullptr) {
        return nullptr;
    }
    std::memset(block, fresh_pattern, size);
    live_[block] = size;
    returned_.erase(block);
    return block;
}

void counting_allocator::give(void *block) {
    ++frees_;
    if (block == nullptr) {
        complain("null was freed");
    } else if (live_.erase(block) != 0) {
        returned_[block] = true;
        std::free(block);
    } else {
        complain(returned_.contains(block) ? "a block was freed twice" : "a foreign block was freed");
    }
}

void counting_allocator::complain(const char *what) {
    complaints_ += what;
    complaints_ += '\n';
}

bump_arena::bump_arena(std::size_t budget) : memory_(new uint8_t[budget]), budget_(budget) {}

void *bump_arena::alloc(uint64_t size, void *arena) {
    constexpr std::size_t alignment = alignof(std::max_align_t);
    auto *self = static_cast<bump_arena *>(arena);
    const std::size_t left = self->budget_ - self->used_;
    if (size > left || (size + alignment - 1) / alignment * alignment > left) {
        return nullptr;
    }
    void *block = self->memory_.get() + self->used_;
    self->used_ += (size + alignment - 1) / alignment * alignment;
    ++self->blocks_;
    return block;
}

void bump_arena::free(void * /*block*/, void * /*arena*/) {}

void bump_arena::reset() {
    used_ = 0;
    blocks_ = 0;
}

}  // namespace nyx_test
