#include "platform_stand_in.h"

#include <malloc.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "fuzz_target.h"
#include "skein/skein.h"
#include "umbra/named_alloc.h"

namespace nyx_fuzz {

namespace {

constexpr uint8_t garbage = 0xA5;

}  // namespace

uint64_t named_memory::free_all_but(const std::set<void *> &kept) {
    const std::set<void *> all = live_;
    uint64_t freed = 0;
    for (void *const block : all) {
        if (!kept.contains(block)) {
            give(block);
            ++freed;
        }
    }
    return freed;
}

void *named_memory::take(uint64_t size, const char *description) {
    if (++calls_ == fail_at_) {
        failed_description_ = description;
        return nullptr;
    }
    void *const block = std::malloc(size);
    if (block != nullptr) {
        std::memset(block, garbage, size);
        live_.insert(block);
    }
    return block;
}

void named_memory::give(void *block) {
    if (block != nullptr) {
        REQUIRE(live_.erase(block) == 1, "a block that is not live was given back");
        std::free(block);
    }
}

void *named_memory::change(void *block, uint64_t size) {
    void *const changed = take(size, "changed");
    if (changed != nullptr && block != nullptr) {
        std::memcpy(changed, block, std::min<uint64_t>(malloc_usable_size(block), size));
        give(block);
    }
    return changed;
}

named_memory &memory() {
    static named_memory instance;
    return instance;
}

std::vector<std::string> &trace_entries() {
    static std::vector<std::string> instance;
    return instance;
}

}  // namespace nyx_fuzz

void *umbra_named_malloc_(uint64_t size, const char *description) {
    return nyx_fuzz::memory().take(size, description);
}

void *umbra_named_calloc_(uint64_t count, uint64_t size, const char *description) {
    void *const block = nyx_fuzz::memory().take(count * size, description);
    return block == nullptr ? nullptr : std::memset(block, 0, count * size);
}

void *umbra_named_realloc(void *block, uint64_t size) {
    return nyx_fuzz::memory().change(block, size);
}

void umbra_named_free(void *block) {
    nyx_fuzz::memory().give(block);
}

int32_t skein_init2(const char * /*name*/, uint32_t /*zero_1*/, uint32_t /*zero_2*/, uint32_t /*first_size*/,
                    uint32_t /*second_size*/, uint32_t /*zero_3*/, uint64_t * /*handle*/) {
    return ENOENT;
}

int32_t skein_close(uint64_t /*handle*/) {
    return EINVAL;
}

int32_t skein_delete(const char * /*name*/) {
    return ENOENT;
}

int32_t _skein_str(uint64_t /*handle*/, uint64_t /*attributes*/, const char *text) {
    nyx_fuzz::trace_entries().emplace_back(text);
    return 0;
}
