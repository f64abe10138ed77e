// A directory of trace files for one test, and short ways to write and read them.
#ifndef NYX_TESTS_SKEIN_TRACE_FILES_H
#define NYX_TESTS_SKEIN_TRACE_FILES_H

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "skein/reader.h"
#include "skein/skein.h"

namespace skein_test {

struct entry {
    uint64_t ticket;
    uint64_t time;
    uint32_t pid;
    uint32_t tid;
    uint64_t attributes;
    uint32_t full_length;
    std::string text;
};

struct contents {
    int32_t error = 0;
    std::vector<entry> entries;
    skein_file_info info{};

    [[nodiscard]] std::vector<std::string> texts() const {
        std::vector<std::string> all;
        for (const entry &each : entries) {
            all.push_back(each.text);
        }
        return all;
    }
};

inline contents read_and_close(int32_t error, skein_reader *reader) {
    contents all;
    all.error = error;
    if (error != 0) {
        EXPECT_EQ(reader, nullptr);
        return all;
    }
    EXPECT_EQ(skein_reader_info(reader, &all.info), 0);
    skein_entry each{};
    while (skein_reader_next(reader, &each) == 0) {
        all.entries.push_back({each.ticket, each.time, each.pid, each.tid, each.attributes, each.full_length,
                               std::string(each.text, each.length)});
    }
    EXPECT_EQ(all.entries.size(), all.info.entries);
    skein_reader_close(reader);
    return all;
}

inline contents read_trace(const char *name) {
    skein_reader *reader = nullptr;
    const int32_t error = skein_reader_open(nullptr, name, &reader);
    return read_and_close(error, reader);
}

inline int32_t open_trace(const char *name, uint32_t slots, uint32_t bytes, uint64_t *handle) {
    return skein_init2(name, 0, 0, slots, bytes, 0, handle);
}

inline std::string bytes_of(const std::filesystem::path &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

inline void write_bytes(const std::filesystem::path &path, const std::string &bytes) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

// How many mappings of this process are of files whose paths hold `part`.
inline std::size_t mappings_of(const std::string &part) {
    std::ifstream file("/proc/self/maps");
    std::size_t count = 0;
    for (std::string line; std::getline(file, line);) {
        count += line.find(part) != std::string::npos ? 1 : 0;
    }
    return count;
}

// SKEIN_DIR is a new directory while the test runs.
class trace_files : public testing::Test {
  protected:
    trace_files() {
        std::string path = std::filesystem::is_directory("/dev/shm") ? "/dev/shm/skein-test-XXXXXX"
                                                                     : testing::TempDir() + "skein-test-XXXXXX";
        EXPECT_NE(mkdtemp(path.data()), nullptr);
        directory_ = path;
        setenv("SKEIN_DIR", path.c_str(), 1);
    }
    ~trace_files() override {
        unsetenv("SKEIN_DIR");
        std::filesystem::remove_all(directory_);
    }

    [[nodiscard]] std::filesystem::path path(const std::string &name) const { return directory_ / name; }

    // A trace file of this name that the test can write to.
    static uint64_t open_or_fail(const char *name, uint32_t slots, uint32_t bytes) {
        uint64_t handle = 0;
        EXPECT_EQ(open_trace(name, slots, bytes, &handle), 0) << name;
        EXPECT_NE(handle, 0U);
        return handle;
    }

    std::filesystem::path directory_;
};

}  // namespace skein_test

#endif
