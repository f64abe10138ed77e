#include "directory.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <cstdint>
#include <cstring>

#include "skein/skein.h"

namespace skein {
namespace {

constexpr std::size_t component_max = 255;
constexpr mode_t directory_mode = 0700;
constexpr char default_directory[] = "/dev/shm/skein-";

bool component_is_valid(const char *component, std::size_t length) {
    if (length == 0 || length > component_max) {
        return false;
    }
    if (component[0] == '.' && (length == 1 || (length == 2 && component[1] == '.'))) {
        return false;
    }
    for (std::size_t k = 0; k < length; ++k) {
        const auto byte = static_cast<unsigned char>(component[k]);
        if (byte < 0x20 || byte == 0x7f) {
            return false;
        }
    }
    return true;
}

void append_decimal(char *text, uint32_t value) {
    char digits[10];
    std::size_t count = 0;
    do {
        digits[count++] = static_cast<char>('0' + value % 10);
        value /= 10;
    } while (value != 0);
    while (count > 0) {
        *text++ = digits[--count];
    }
    *text = '\0';
}

// The directory must be nobody else's: whoever can write to it decides which files we open.
int check_owner(int directory) {
    struct stat status {};
    if (fstat(directory, &status) != 0) {
        return errno;
    }
    return status.st_uid == geteuid() && (status.st_mode & S_IWOTH) == 0 ? 0 : EPERM;
}

// O_PATH opens directories that may not be listed, too.
int open_directory(int parent, const char *name, if_missing missing, open_file &out) {
    if (missing == if_missing::create && mkdirat(parent, name, directory_mode) != 0 && errno != EEXIST) {
        return errno;
    }
    out = open_file(openat(parent, name, O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    return out.is_open() ? 0 : errno;
}

int descend(open_file root, const char *name, if_missing missing, place &out) {
    char component[component_max + 1];
    out.directory = std::move(root);
    for (const char *slash = std::strchr(name, '/'); slash != nullptr; slash = std::strchr(name, '/')) {
        const auto length = static_cast<std::size_t>(slash - name);
        std::memcpy(component, name, length);
        component[length] = '\0';
        open_file next;
        const int error = open_directory(out.directory.get(), component, missing, next);
        if (error != 0) {
            return error;
        }
        out.directory = std::move(next);
        name = slash + 1;
    }
    out.leaf = name;
    return 0;
}

}  // namespace

bool name_is_valid(const char *name) {
    if (name == nullptr || strnlen(name, path_size) == path_size) {
        return false;
    }
    for (;;) {
        const std::size_t length = std::strcspn(name, "/");
        if (!component_is_valid(name, length)) {
            return false;
        }
        if (name[length] == '\0') {
            return true;
        }
        name += length + 1;
    }
}

int find_directory(char *path) {
    const char *chosen = secure_getenv("SKEIN_DIR");
    if (chosen == nullptr || *chosen == '\0') {
        std::memcpy(path, default_directory, sizeof default_directory);
        append_decimal(path + sizeof default_directory - 1, geteuid());
        return 0;
    }
    std::size_t length = strnlen(chosen, path_size);
    if (chosen[0] != '/' || length == path_size) {
        return EINVAL;
    }
    // "/" and "/." behind a link would have it followed.
    while (length > 1 && (chosen[length - 1] == '/' || (chosen[length - 1] == '.' && chosen[length - 2] == '/'))) {
        --length;
    }
    std::memcpy(path, chosen, length);
    path[length] = '\0';
    return 0;
}

int open_place(const char *root, const char *name, if_missing missing, place &out) {
    open_file directory;
    int error = open_directory(AT_FDCWD, root, missing, directory);
    if (error == 0) {
        error = check_owner(directory.get());
    }
    return error == 0 ? descend(std::move(directory), name, missing, out) : error;
}

int open_place_anywhere(const char *root, const char *name, place &out) {
    open_file directory(open(root, O_PATH | O_DIRECTORY | O_CLOEXEC));
    return directory.is_open() ? descend(std::move(directory), name, if_missing::fail, out) : errno;
}

int open_regular(int directory, const char *leaf, int flags, open_file &out) {
    open_file file(openat(directory, leaf, flags | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!file.is_open()) {
        return errno == ENXIO ? ENOTSUP : errno;  // a socket, or a device without its driver
    }
    struct stat status {};
    if (fstat(file.get(), &status) != 0) {
        return errno;
    }
    if (S_ISDIR(status.st_mode)) {
        return EISDIR;
    }
    if (!S_ISREG(status.st_mode)) {
        return ENOTSUP;
    }
    out = std::move(file);
    return 0;
}

}  // namespace skein
