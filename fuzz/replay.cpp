// Runs a fuzz target over files, without a fuzzer: replay <file or directory>...
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "fuzz_target.h"

namespace {

bool run_file(const std::filesystem::path &path) {
    std::ifstream file(path, std::ios::binary);
    const std::vector<char> content{std::istreambuf_iterator<char>(file), {}};
    if (!file) {
        std::fprintf(stderr, "cannot read %s\n", path.c_str());
        return false;
    }
    std::fprintf(stderr, "%s\n", path.filename().c_str());  // the last line tells which input failed
    const nyx_fuzz::exact_copy input(reinterpret_cast<const uint8_t *>(content.data()), content.size());
    return LLVMFuzzerTestOneInput(input.get(), content.size()) == 0;
}

}  // namespace

int main(int argc, char **argv) {
    int files = 0;
    for (int i = 1; i < argc; ++i) {
        std::vector<std::filesystem::path> paths = {argv[i]};
        if (std::filesystem::is_directory(argv[i])) {
            paths.assign(std::filesystem::directory_iterator(argv[i]), {});
            std::sort(paths.begin(), paths.end());
        }
        for (const std::filesystem::path &path : paths) {
            if (!run_file(path)) {
                return 1;
            }
            ++files;
        }
    }
    std::printf("%d inputs\n", files);
    return files != 0 ? 0 : 1;
}
