// Replays inputs through a harness without libFuzzer: each argument is an
// input file or a directory of them. A harness that crashes, aborts or lets a
// foreign exception escape fails the run; so does finding no input at all.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "support/TagBuilder.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv)
{
    namespace fs = std::filesystem;
    std::vector<fs::path> inputs;
    for (int i = 1; i < argc; ++i) {
        if (fs::is_directory(argv[i])) {
            for (const auto& entry : fs::directory_iterator(argv[i]))
                if (entry.is_regular_file()) inputs.push_back(entry.path());
        } else {
            inputs.push_back(argv[i]);
        }
    }
    std::sort(inputs.begin(), inputs.end());
    for (const fs::path& input : inputs) {
        std::printf("replay %s\n", input.c_str());
        std::fflush(stdout);
        const std::string bytes = tagfix::readFile(input);
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    }
    std::printf("%zu input(s) replayed\n", inputs.size());
    return inputs.empty() ? 1 : 0;
}
