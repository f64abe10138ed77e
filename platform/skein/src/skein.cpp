#include "skein/skein.h"

#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <cstring>

#include "directory.h"
#include "file.h"
#include "handles.h"
#include "process.h"

namespace {

skein::geometry make_geometry(uint32_t first_size, uint32_t second_size) {
    return {first_size == 0 ? 0 : second_size / first_size / 8 * 8, first_size};
}

void recover_in_child() {
    skein::forget_identity();
    skein::recover_handles();
    skein::forget_locks();
}

int watch_forks() {
    // Two threads may both get here: recovering twice does no harm.
    static constinit std::atomic<bool> watching{false};
    if (watching.load(std::memory_order_acquire)) {
        return 0;
    }
    const int error = pthread_atfork(nullptr, nullptr, recover_in_child);
    if (error == 0) {
        watching.store(true, std::memory_order_release);
    }
    return error;
}

}  // namespace

int32_t skein_init2(const char *name, uint32_t zero_1, uint32_t zero_2, uint32_t first_size, uint32_t second_size,
                    uint32_t zero_3, uint64_t *handle) {
    if (handle == nullptr) {
        return EINVAL;
    }
    *handle = 0;
    const skein::geometry sizes = make_geometry(first_size, second_size);
    if (!skein::name_is_valid(name) || !sizes.valid() || (zero_1 | zero_2 | zero_3) != 0) {
        return EINVAL;
    }
    skein::handle_slot *slot = nullptr;
    uint64_t reserved = 0;
    int error = watch_forks();
    if (error == 0) {
        error = skein::reserve_handle(slot, reserved);
    }
    if (error != 0) {
        return error;
    }
    error = skein::find_directory(slot->root);
    if (error == 0) {
        std::memcpy(slot->name, name, std::strlen(name) + 1);
        error = skein::attach_or_create(slot->root, slot->name, sizes, slot->rings[0]);
    }
    if (error != 0) {
        skein::drop_handle(*slot);
        return error;
    }
    skein::open_handle(*slot);
    *handle = reserved;
    return 0;
}

int32_t skein_close(uint64_t handle) {
    return skein::close_handle(handle);
}

int32_t skein_delete(const char *name) {
    char root[skein::path_size];
    if (!skein::name_is_valid(name)) {
        return EINVAL;
    }
    int error = watch_forks();
    if (error == 0) {
        error = skein::find_directory(root);
    }
    return error == 0 ? skein::remove_file(root, name) : error;
}

int32_t _skein_str(uint64_t handle, uint64_t attributes, const char *text) {
    if (text == nullptr) {
        return EINVAL;
    }
    skein::handle_use use(handle);
    if (use.error() != 0) {
        return use.error();
    }
    if (use.target().is_superseded()) [[unlikely]] {
        use.follow();
    }
    return skein::append(use.target(), attributes, text);
}

int32_t skein_directory(char *path, uint64_t size) {
    char found[skein::path_size];
    if (path == nullptr) {
        return EINVAL;
    }
    const int error = skein::find_directory(found);
    if (error != 0) {
        return error;
    }
    const std::size_t needed = std::strlen(found) + 1;
    if (needed > size) {
        return ERANGE;
    }
    std::memcpy(path, found, needed);
    return 0;
}
