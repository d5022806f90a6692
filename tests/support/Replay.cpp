// Runs a fuzz target once over every file of the folder given as the argument, without a fuzzer. Fails when the folder
// holds none, so that a lost corpus is seen.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <vector>

#include "kq/types.h"

extern "C" int LLVMFuzzerTestOneInput(const u8* data, size_t size);

int main(int argc, char** argv) {
    int inputs = 0;
    for (int i = 1; i < argc; ++i)
        for (const auto& entry : std::filesystem::recursive_directory_iterator(argv[i])) {
            if (!entry.is_regular_file()) continue;
            std::ifstream file(entry.path(), std::ios::binary);
            std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
            LLVMFuzzerTestOneInput(reinterpret_cast<const u8*>(bytes.data()), bytes.size());
            ++inputs;
        }
    std::printf("%d inputs replayed\n", inputs);
    return inputs > 0 ? 0 : 1;
}
