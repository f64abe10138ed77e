#include "named_memory.h"

#include <dlfcn.h>
#include <sys/mman.h>
#include <umbra/named_alloc.h>

#include <atomic>
#include <cerrno>
#include <new>
#include <vector>

#include "children.h"

namespace soak {

namespace {

enum class outcome : uint32_t { none, awaited, failed };

struct failure {
    std::atomic<uint32_t> allocations_left;
    std::atomic<outcome> state;
};

failure *failure_here = nullptr;

bool fails_now() {
    if (failure_here == nullptr || failure_here->state != outcome::awaited || --failure_here->allocations_left > 0) {
        return false;
    }
    failure_here->state = outcome::failed;
    return true;
}

template <class function>
function next_definition(const char *name) {
    return reinterpret_cast<function>(dlsym(RTLD_NEXT, name));
}

}  // namespace

std::string memory_in_use() {
    std::vector<umbra_named_usage> entries(umbra_named_report(nullptr, 0));
    entries.resize(umbra_named_report(entries.data(), entries.size()));
    std::string report;
    for (const umbra_named_usage &entry : entries) {
        if (entry.live_blocks > 0 || entry.live_bytes > 0) {
            report += "  " + std::string(entry.description) + ": " + std::to_string(entry.live_blocks) + " blocks, " +
                      std::to_string(entry.live_bytes) + " bytes\n";
        }
    }
    return report;
}

failing_allocation::failing_allocation()
    : shared_(mmap(nullptr, sizeof(failure), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) {
    require(shared_ != MAP_FAILED, "mmap");
    new (shared_) failure{};
}

failing_allocation::~failing_allocation() {
    munmap(shared_, sizeof(failure));
}

void failing_allocation::is_for_this_process() {
    failure_here = static_cast<failure *>(shared_);
}

void failing_allocation::fail(uint32_t which) {
    auto *const asked_for = static_cast<failure *>(shared_);
    asked_for->state = outcome::none;
    asked_for->allocations_left = which;
    asked_for->state = which == 0 ? outcome::none : outcome::awaited;
}

bool failing_allocation::has_failed() const {
    return static_cast<const failure *>(shared_)->state == outcome::failed;
}

}  // namespace soak

// They take the place of the platform's, which does the work.
extern "C" void *umbra_named_malloc_(uint64_t size, const char *description) {
    static const auto platforms = soak::next_definition<decltype(&umbra_named_malloc_)>("umbra_named_malloc_");
    if (soak::fails_now()) {
        errno = ENOMEM;
        return nullptr;
    }
    return platforms(size, description);
}

extern "C" void *umbra_named_calloc_(uint64_t count, uint64_t size, const char *description) {
    static const auto platforms = soak::next_definition<decltype(&umbra_named_calloc_)>("umbra_named_calloc_");
    if (soak::fails_now()) {
        errno = ENOMEM;
        return nullptr;
    }
    return platforms(count, size, description);
}
