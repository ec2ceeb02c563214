// The character set in which a thread reads the text that tags mark as
// Latin-1: every ID3v1 field, ID3v2 text whose encoding byte is neither 1, 2
// nor 3 (0, and the values that no version defines, which the frame reader
// reads as Latin-1 too), and an APE text value that is not UTF-8. --charset
// chooses it for the run; without a choice that text is Latin-1. URLs,
// language codes, owners and MIME types are never read in it.
//
// The choice belongs to the thread that makes it: tags are read on the main
// thread only, which takes the decoder that the options opened.
#pragma once

#include <cstddef>

#include "zel/String.h"

namespace ZELd {

class IconvDecoder;

class TagCharset {
public:
    // Makes decoder the calling thread's choice for as long as this object
    // lives; nullptr: Latin-1.
    explicit TagCharset(IconvDecoder* decoder);
    ~TagCharset();
    TagCharset(const TagCharset&) = delete;
    TagCharset& operator=(const TagCharset&) = delete;

    // n bytes that a tag marks as Latin-1, in the calling thread's choice;
    // bytes that are not valid there, or that give U+0000, are Latin-1, as
    // without a choice.
    static String decode(const char* p, size_t n);

private:
    IconvDecoder* previous_;
};

} // namespace ZELd
