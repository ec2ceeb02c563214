// UTF-8 conversions shared by the decoders, the writers and file names.
//
// File names and command-line arguments are bytes. They are decoded leniently:
// a byte that is not part of valid UTF-8 becomes U+DC00 + byte ("surrogate
// escape"), so that encoding the text again gives back the very same bytes.
#pragma once

#include <cstddef>
#include <string>

namespace ZELd {

// What becomes of an escaped byte (U+DC80..U+DCFF) when text is encoded.
enum class EscapedBytes {
    Restore, // write the original byte (file names, console output)
    Replace, // write U+FFFD (text that must be valid UTF-8, such as database text)
};

// Appends the UTF-8 form of n wide characters. Characters that have no UTF-8
// form (other surrogates, values above U+10FFFF) become U+FFFD.
void appendUtf8(std::string& out, const wchar_t* s, size_t n, EscapedBytes mode = EscapedBytes::Restore);

std::string toUtf8(const std::wstring& s, EscapedBytes mode = EscapedBytes::Restore);

// Lenient decoding with surrogate escapes; never fails.
std::wstring decodeUtf8Escaped(const char* p, size_t n);

// Strict decoding of one sequence at p (n bytes available). Returns the number
// of bytes it takes, or 0 when the bytes are malformed, overlong, a surrogate or
// above U+10FFFF.
size_t decodeUtf8Char(const unsigned char* p, size_t n, char32_t& out);

} // namespace ZELd
