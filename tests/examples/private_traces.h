// Trace files of a test program: in a directory that no other process uses, and that is gone when the program ends.
#ifndef EXAMPLES_TESTS_PRIVATE_TRACES_H
#define EXAMPLES_TESTS_PRIVATE_TRACES_H

#include <gtest/gtest.h>
#include <skein/reader.h>
#include <stdlib.h>

#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

namespace request_path {

class private_traces : public testing::Environment {
  public:
    void SetUp() override {
        std::string name = TRACES_BELOW "/traces.XXXXXX";
        if (mkdtemp(name.data()) == nullptr) {
            throw std::runtime_error("cannot make " + name);
        }
        directory_ = name;
        setenv("SKEIN_DIR", directory_.c_str(), 1);
    }

    void TearDown() override { std::filesystem::remove_all(directory_); }

  private:
    std::filesystem::path directory_;
};

inline testing::Environment *const traces = testing::AddGlobalTestEnvironment(new private_traces);

// The texts of the entries of a trace file, the oldest first.
inline std::vector<std::string> traced(const char *name) {
    std::vector<std::string> texts;
    skein_reader *reader = nullptr;
    EXPECT_EQ(skein_reader_open(nullptr, name, &reader), 0) << name;
    skein_entry entry;
    while (reader != nullptr && skein_reader_next(reader, &entry) == 0) {
        texts.emplace_back(entry.text, entry.length);
    }
    skein_reader_close(reader);
    return texts;
}

}  // namespace request_path

#endif
