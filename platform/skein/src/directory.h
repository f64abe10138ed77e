// Where trace files are: the directory, names below it, and how both are opened without following anybody's links.
#ifndef SKEIN_DIRECTORY_H
#define SKEIN_DIRECTORY_H

#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <utility>

namespace skein {

constexpr std::size_t path_size = 1024;  // bytes of a path, and of a name, with their NUL

// An open file; errno survives its closing.
class open_file {
  public:
    open_file() = default;
    explicit open_file(int file) : file_(file) {}
    open_file(open_file &&other) noexcept : file_(std::exchange(other.file_, -1)) {}
    open_file &operator=(open_file &&other) noexcept {
        std::swap(file_, other.file_);
        return *this;
    }
    open_file(const open_file &) = delete;
    open_file &operator=(const open_file &) = delete;
    ~open_file() {
        if (file_ >= 0) {
            const int error = errno;
            close(file_);
            errno = error;
        }
    }
    [[nodiscard]] int get() const { return file_; }
    [[nodiscard]] bool is_open() const { return file_ >= 0; }

  private:
    int file_ = -1;
};

enum class if_missing { fail, create };

bool name_is_valid(const char *name);

// skein_directory(), into a buffer of path_size.
int find_directory(char *path);

// The directory of a name, and the name in it. Returns 0 or an errno.
struct place {
    open_file directory;
    const char *leaf = nullptr;
};

// Below the user's own directory, whose ownership is verified.
int open_place(const char *root, const char *name, if_missing missing, place &out);
// Below a directory that the caller has chosen, whoever it belongs to.
int open_place_anywhere(const char *root, const char *name, place &out);

// Opens the regular file of a name. Never waits, not for a named pipe either. Returns 0 or an errno.
int open_regular(int directory, const char *leaf, int flags, open_file &out);

}  // namespace skein

#endif
