// MainArguments::parse on a command line made of the input: the arguments
// (the program's name first) are the pieces between NUL bytes.
#include <string>
#include <vector>

#include "FuzzSupport.h"
#include "media/MainArguments.h"
#include "zel/Exception.h"

using namespace ZELd;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    fuzzsupport::quiet();
    fuzzsupport::OwnBlocks own;
    std::vector<std::string> pieces(1);
    for (size_t i = 0; i < size; ++i) {
        if (data[i] == 0) pieces.emplace_back();
        else pieces.back() += static_cast<char>(data[i]);
    }
    std::vector<char*> argv;
    for (std::string& piece : pieces) argv.push_back(piece.data());
    argv.push_back(nullptr);
    try {
        MainArguments arguments(fuzzsupport::devNull(), fuzzsupport::devNull());
        if (arguments.parse(static_cast<int>(pieces.size()), argv.data(), true)) {
            FUZZ_CHECK(!arguments.values().isEmpty());
            FUZZ_CHECK(arguments.values().size() < pieces.size());
        }
        arguments.toString();
    } catch (Exception* e) {
        e->destroy();
    }
    return 0;
}
