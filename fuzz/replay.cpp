// replay.cpp: runs a fuzz target over the files of the folders named on the command line.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size);

int main(int argc, char **argv) {
    std::size_t count = 0;
    for (int i = 1; i < argc; ++i) {
        for (const auto &entry : std::filesystem::directory_iterator(argv[i])) {
            std::ifstream file(entry.path(), std::ios::binary);
            std::vector<uint8_t> bytes{std::istreambuf_iterator<char>(file), {}};
            bytes.shrink_to_fit();
            LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
            ++count;
        }
    }
    std::printf("%zu inputs\n", count);
    return count != 0 ? 0 : 1;
}
