// Replays the inputs in a directory through a harness without libFuzzer. A
// harness that crashes, aborts or lets a foreign exception escape fails the
// run; so does a directory without inputs.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <vector>

#include "support/TagBuilder.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv)
{
    std::vector<std::filesystem::path> inputs;
    for (const auto& entry : std::filesystem::directory_iterator(argc > 1 ? argv[1] : ".")) inputs.push_back(entry.path());
    std::sort(inputs.begin(), inputs.end());
    for (const auto& input : inputs) {
        std::printf("replay %s\n", input.c_str());
        std::fflush(stdout);
        const std::string bytes = testsupport::readFile(input);
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    }
    return inputs.empty() ? 1 : 0;
}
