/*
 * Runs a fuzz target once on each of the given files, and on each file of the given folders.
 */
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "fuzz_target.h"

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> files_of(const fs::path& path) {
    if (!fs::is_directory(path)) {
        return {path};
    }
    std::vector<fs::path> files;
    for (const fs::directory_entry& entry : fs::directory_iterator(path)) {
        files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    return files;
}

/* The bytes are handed over in a block of exactly their size, as libFuzzer does. */
void replay(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    wq::fuzz::require(stream.is_open());
    const std::vector<uint8_t> input{std::istreambuf_iterator<char>(stream), {}};
    LLVMFuzzerTestOneInput(input.data(), input.size());
}

}  // namespace

int main(int argc, char** argv) {
    FILE* const report = stdout;
    LLVMFuzzerInitialize(&argc, &argv);
    size_t count = 0;
    for (int i = 1; i < argc; ++i) {
        for (const fs::path& file : files_of(argv[i])) {
            std::fprintf(report, "%s\n", file.c_str());
            std::fflush(report); /* the last line names the file of a crash */
            replay(file);
            ++count;
        }
    }
    return count > 0 ? 0 : 1;
}
