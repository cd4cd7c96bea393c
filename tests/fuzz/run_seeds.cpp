// SPDX-License-Identifier: MIT
// run_seeds: main of a fuzz target that is built without libFuzzer: hands it each file of the folders given, once.
//
// usage: NAME_fuzz FOLDER...
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

int main(int argc, char **argv) {
    int seeds = 0;
    for (int i = 1; i < argc; ++i) {
        for (const auto &entry : std::filesystem::directory_iterator(argv[i])) {
            std::ifstream file(entry.path(), std::ios::binary);
            const std::string seed((std::istreambuf_iterator<char>(file)), {});
            (void)LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t *>(seed.data()), seed.size());
            ++seeds;
        }
    }
    std::printf("%d seeds\n", seeds);
    return seeds > 0 ? 0 : 1;
}
