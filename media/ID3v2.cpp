#define ZEL_SOURCE "media/ID3v2"
#include "media/ID3v2.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "zel/Decoders.h"
#include "zel/Exception.h"
#include "zel/StringBuilder.h"

namespace ZELd {

namespace {

constexpr size_t kAll = std::numeric_limits<size_t>::max();

// ASCII text that is never a failure: bytes that are not ASCII give empty text.
String asciiOrEmpty(const char* p, size_t n)
{
    try {
        return AsciiDecoder().decode(p, n);
    } catch (Exception* e) {
        e->destroy();
        return String();
    }
}

bool isUpperLetter(char c) { return c >= 'A' && c <= 'Z'; }

// The readings of a frame body: a cursor that never reads at or past limit.
class BodyReader {
public:
    BodyReader(ID3v2Frame& frame, const char* base, size_t limit, signed char& encoding)
        : frame_(frame), base_(base), limit_(limit), encoding_(encoding) {}

    bool more() const { return pos_ < limit_; }
    size_t remaining() const { return more() ? limit_ - pos_ : 0; }
    const char* here() const { return base_ + pos_; }
    void skip(size_t n) { pos_ += n; }

    void encodingByte()
    {
        if (!more()) return;
        encoding_ = static_cast<signed char>(base_[pos_]);
        ++pos_;
    }
    void latin1(String& out)
    {
        if (!more()) return;
        size_t n = ByteString::length(here(), remaining());
        out = frame_.decode(0, here(), n).trim();
        pos_ += n + 1;
    }
    void encoded(String& out)
    {
        if (!more()) return;
        size_t n = __decode_length__(encoding_, here(), remaining());
        out = frame_.decode(encoding_, here(), n).trim();
        pos_ += __skip_length__(encoding_, n);
    }
    void language(String& out)
    {
        if (remaining() < 4 || !__valid_language_code(here())) return;
        out = asciiOrEmpty(here(), 3).trim();
        pos_ += 3;
    }
    void byte(signed char& out)
    {
        if (!more()) return;
        out = static_cast<signed char>(base_[pos_]);
        ++pos_;
    }
    void rest(ByteString& out)
    {
        if (more()) out.assign(here(), remaining());
    }

private:
    ID3v2Frame& frame_;
    const char* base_;
    size_t limit_;
    size_t pos_ = 0;
    signed char& encoding_;
};

} // namespace

// ---- text fields -----------------------------------------------------------

size_t __decode_length__(signed char encoding, const char* _psz, size_t max)
{
    ZEL_ASSERT(_psz != 0);
    if (!_psz) return 0;
    if (encoding == 1 || encoding == 2) {
        // A terminator is a zero unit on a two-byte boundary.
        for (size_t i = 0; i + 1 < max; i += 2)
            if (_psz[i] == 0 && _psz[i + 1] == 0) return i;
        return max;
    }
    return ByteString::length(_psz, max);
}

size_t __skip_length__(signed char encoding, size_t length) { return encoding == 1 || encoding == 2 ? length + 2 : length + 1; }

bool __valid_language_code(const char* p)
{
    if (p[0] == 'X' && p[1] == 'X' && p[2] == 'X') return true;
    for (int i = 0; i < 3; ++i)
        if (p[i] < 'a' || p[i] > 'z') return false;
    return true;
}

String ID3v2Frame::decode(signed char encoding, const char* p, size_t n) const
{
    const unsigned char first = n ? static_cast<unsigned char>(p[0]) : 0;
    if (encoding == 1 && n == 2 && first == 0xFF) return String(); // a byte-order mark alone
    if (encoding == 2 && n == 2 && first == 0xFE) return String();
    try {
        switch (encoding) {
        case 1: return UTF16Decoder(1234).decode(p, n);
        case 2: return UTF16Decoder(4321).decode(p, n);
        case 3: return UTF8Decoder().decode(p, n);
        default: return Latin1Decoder().decode(p, n);
        }
    } catch (Exception* e) {
        e->destroy();
        return String();
    }
}

// ---- frames ----------------------------------------------------------------

unsigned ID3v2Frame::word(const char* p, size_t n) const { return owner_.fsbits() == 7 ? ID3v2::word7(p, n) : ID3v2::word8(p, n); }

size_t ID3v2Frame::read(const char* _begin, const char* _end)
{
    const size_t __6_OR_10__ = owner_.frameHeaderLength();
    ZEL_ASSERT(_begin + __6_OR_10__ < _end);
    if (_end - _begin <= static_cast<ptrdiff_t>(__6_OR_10__)) return __6_OR_10__;
    const char first = _begin[0];
    if (__6_OR_10__ == 6) {
        id_ = asciiOrEmpty(_begin, 3);
        size_ = word(_begin + 3, 3);
    } else {
        id_ = asciiOrEmpty(_begin, 4);
        size_ = word(_begin + 4, 4);
        flags_ = static_cast<int16_t>(static_cast<unsigned char>(_begin[8]) << 8 | static_cast<unsigned char>(_begin[9]));
    }
    const char* base = _begin + __6_OR_10__;
    const size_t limit = std::min<size_t>(size_, static_cast<size_t>(_end - base));
    BodyReader r(*this, base, limit, encoding_);
    const String prefix = id_.substring(size_t{0}, 3);

    switch (first) {
    case 'A':
        if (id_ == L"AENC") {
            r.latin1(url_);
            r.rest(binary_);
        } else if (id_ == L"APIC") {
            uint32_t dataLength = 0;
            if (flags_ & 0x0001) { // data length indicator
                if (r.remaining() < 4) break;
                dataLength = word(r.here(), 4);
                r.skip(4);
            }
            r.encodingByte();
            r.latin1(url_);
            r.byte(type_);
            r.encoded(description_);
            if (r.more()) binary_.assign(r.here(), dataLength != 0 ? std::min<size_t>(dataLength, r.remaining()) : r.remaining());
        } else {
            r.rest(binary_);
        }
        break;
    case 'C':
        if (id_ == L"COMM" || id_ == L"COM") {
            r.encodingByte();
            r.language(url_);
            r.encoded(description_);
            r.encoded(text_);
        } else if (id_ == L"CRA") {
            r.latin1(url_);
            r.rest(binary_);
        } else {
            r.rest(binary_);
        }
        break;
    case 'G':
        if (id_ == L"GEOB" || id_ == L"GEO") {
            r.encodingByte();
            r.latin1(url_);
            r.encoded(text_);
            r.encoded(description_);
            r.rest(binary_);
        } else {
            r.rest(binary_);
        }
        break;
    case 'I':
        if (prefix == L"IPL") {
            r.encodingByte();
            r.encoded(text_);
        } else {
            r.rest(binary_);
        }
        break;
    case 'P':
        if (id_ == L"PIC") {
            r.encodingByte();
            if (r.more()) {
                url_ = asciiOrEmpty(r.here(), std::min<size_t>(3, r.remaining())); // image format
                r.skip(3);
            }
            r.byte(type_);
            r.encoded(description_);
            r.rest(binary_);
        } else if (id_ == L"PRIV") {
            r.latin1(url_);
            r.rest(binary_);
        } else {
            r.rest(binary_);
        }
        break;
    case 'T':
        r.encodingByte();
        if (prefix == L"TXX") r.encoded(description_);
        r.encoded(text_);
        break;
    case 'U':
        if (prefix == L"UFI") {
            r.latin1(url_);
            const size_t n = std::min<size_t>(64, r.remaining());
            if (n) binary_.assign(r.here(), n);
            if (r.more() && r.remaining() <= 64) text_ = String::tryString(r.here(), n, kAll);
        } else if (id_ == L"USLT" || id_ == L"ULT") {
            r.encodingByte();
            r.language(url_);
            r.encoded(description_);
            r.encoded(text_);
        } else {
            r.encodingByte();
            r.language(url_);
            r.encoded(text_);
        }
        break;
    case 'W':
        if (prefix == L"WXX") {
            r.encodingByte();
            r.encoded(description_);
        }
        r.latin1(url_);
        break;
    default:
        r.rest(binary_);
        break;
    }
    return __6_OR_10__ + size_;
}

String ID3v2Frame::toString() const
{
    StringBuilder b(64);
    b.append(id_);
    b.format(L" size[%d] flags[%x] encoding[%d] type[%d]", size_, flags_, encoding_, type_);
    if (!url_.isEmpty()) b.format(L" url[%ls]", url_);
    if (!description_.isEmpty()) b.format(L" description[%ls]", description_);
    if (!text_.isEmpty()) b.format(L" text[%ls]", text_);
    if (!binary_.isEmpty()) b.format(L" binary[%zd][%ls]", binary_.length(), String::tryString(binary_, 40));
    return b.toString();
}

// ---- the tag ---------------------------------------------------------------

unsigned ID3v2::word7(const char* p, size_t n)
{
    unsigned v = 0;
    for (size_t i = 0; i < n; ++i) v = v * 128 + (static_cast<unsigned char>(p[i]) & 0x7F);
    return v;
}

unsigned ID3v2::word8(const char* p, size_t n)
{
    unsigned v = 0;
    for (size_t i = 0; i < n; ++i) v = v * 256 + static_cast<unsigned char>(p[i]);
    return v;
}

bool __IS_UPPER(const char* begin, const char* end)
{
    for (const char* p = begin; p < end; ++p)
        if (!isUpperLetter(*p) && !(*p >= '0' && *p <= '9')) return false;
    return true;
}

int __find_frame_size_bits(signed char version, const char* _begin, const char* _end, bool verbose)
{
    const size_t idLength = version > 2 ? 4 : 3;
    const size_t headerLength = version > 2 ? 10 : 6;
    const uint64_t length = static_cast<uint64_t>(_end - _begin);
    for (int bits : {8, 7}) {
        uint64_t p = 0;
        bool ok = true;
        while (p + headerLength < length && _begin[p] != 0) {
            if (!__IS_UPPER(_begin + p, _begin + p + idLength)) {
                if (verbose) ZEL_TRACE(L"false\n");
                ok = false;
                break;
            }
            const char* field = _begin + p + idLength;
            const uint64_t size = bits == 8 ? ID3v2::word8(field, idLength) : ID3v2::word7(field, idLength);
            if (verbose) ZEL_TRACE(L"[%ls][%d]\n", asciiOrEmpty(_begin + p, idLength), static_cast<uint32_t>(size));
            p += size + headerLength;
        }
        if (p > length || (p < length && _begin[p] != 0)) {
            if (verbose) {
                const int stopByte = p < length ? static_cast<signed char>(_begin[p]) : 0;
                ZEL_TRACE(L"false [%zX][%zX][%x]\n", static_cast<size_t>(p), static_cast<size_t>(length), stopByte);
            }
            ok = false;
        }
        if (ok) return bits;
    }
    return 0;
}

ID3v2::~ID3v2() { release(); }

void ID3v2::release()
{
    frames_.clear();
    if (data_) ZEL_FREE(data_);
    data_ = nullptr;
}

size_t ID3v2::skipExtendedHeader(const char* _begin, const char* _end) const
{
    ZEL_ASSERT(_begin + 6 <= _end);
    if (_end - _begin < 6) return static_cast<size_t>(_end - _begin); // too short to hold one: nothing is walked
    ZEL_TRACE(L"Number of flag bytes [%d]\n", static_cast<signed char>(_begin[4]));
    return word7(_begin, 4);
}

bool ID3v2::read(File& file, const char* header)
{
    char local[10];
    if (!header) {
        file.seek(0, 0);
        if (file.read(local, sizeof local) < sizeof local) return false;
        header = local;
    } else {
        file.seek(10, 0);
    }
    if (std::memcmp(header, "ID3", 3) != 0 || static_cast<signed char>(header[3]) > 4) return false;
    for (int i = 6; i < 10; ++i)
        if (static_cast<unsigned char>(header[i]) >= 0x80) return false;

    release(); // what an earlier read left
    std::memset(header_, 0, sizeof header_);
    fsbits_ = 0;
    ID3_ = AsciiDecoder().decode(header, 3);
    size_ = word7(header + 6, 4);
    // The body is never larger than what the file can provide.
    if (size_ > file.size()) return false;
    data_ = static_cast<char*>(ZEL_MALLOC(size_));
    if (!data_) return false;
    const size_t got = file.read(data_, size_);
    if (got < size_) return false;
    std::memcpy(header_, header, sizeof header_);

    const char* begin = data_;
    const char* end = data_ + got;
    if (flags() & 0x40) begin += std::min<size_t>(skipExtendedHeader(begin, end), static_cast<size_t>(end - begin));
    fsbits_ = __find_frame_size_bits(version(), begin, end, false);
    if (fsbits_ == 0) {
        ZEL_TRACE(L"ID3v2 Invalid Frames [%ls]\n", file.path());
        fsbits_ = __find_frame_size_bits(version(), begin, end, true);
        return false;
    }
    const size_t headerLength = frameHeaderLength();
    while (static_cast<size_t>(end - begin) > headerLength && *begin != 0) {
        if (!isUpperLetter(*begin)) {
            ZEL_TRACE(L"ID3v2 Frame Read Failed [%ls]\n", file.path());
            break;
        }
        ID3v2Frame* frame = ZEL_NEW ID3v2Frame(*this);
        size_t used;
        try {
            used = frame->read(begin, end);
        } catch (Exception*) {
            delete frame;
            throw;
        }
        frames_.add(frame);
        if (used >= static_cast<size_t>(end - begin)) break;
        begin += used;
    }
    return true;
}

String ID3v2::toString() const
{
    return String::format(L"%ls version[%d] revision[%d] flags[%x] size[%d] fsbits[%d]", ID3_, version(), revision(), flags(), size_,
                          fsbits_);
}

} // namespace ZELd
