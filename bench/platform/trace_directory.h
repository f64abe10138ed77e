// Trace files of the sizes that the processor's has, in a directory that goes with the program.
#ifndef NYX_BENCH_TRACE_DIRECTORY_H
#define NYX_BENCH_TRACE_DIRECTORY_H

#include <nyx_debug.h>
#include <skein/skein.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

class trace_directory {
  public:
    trace_directory() {
        if (mkdtemp(path_.data()) == nullptr || setenv("SKEIN_DIR", path_.c_str(), 1) != 0) {
            std::abort();
        }
    }
    ~trace_directory() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    trace_directory(const trace_directory &) = delete;
    trace_directory &operator=(const trace_directory &) = delete;

    [[nodiscard]] const char *path() const { return path_.c_str(); }

    // The handle of a new trace file.
    [[nodiscard]] std::uint64_t open(const char *name) const {
        const nyx_trace_table_entry &sizes = trace_table[NYX_COMPONENT_NYX];
        std::uint64_t handle = 0;
        if (setenv("SKEIN_DIR", path(), 1) != 0 ||
            skein_init2(name, 0, 0, sizes.first_size, sizes.second_size, 0, &handle) != 0) {
            std::abort();
        }
        return handle;
    }

  private:
    std::string path_ = "/dev/shm/nyx_bench_XXXXXX";
};

#endif
