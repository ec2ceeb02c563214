// A file made of the input, its tags read as the program reads them
// (TagReader::readTag and the verbose report): no block left behind, none
// that the file's bytes cannot back, and an ID3v1 tag that ends the last 160
// bytes always found.
#include "FuzzSupport.h"
#include "support/TagReading.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static testsupport::TagReading reading;
    const testsupport::TagCost cost = reading.read(std::string(reinterpret_cast<const char*>(data), size));
    FUZZ_CHECK(cost.leftBlocks == 0);
    FUZZ_CHECK(cost.withinFile(size));
    FUZZ_CHECK(cost.threw || cost.id3v1 == (size >= 160 && std::memcmp(data + size - 128, "TAG", 3) == 0));
    return 0;
}
