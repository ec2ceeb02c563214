#define ZEL_SOURCE "media/ID3v2"
#include "media/ID3v2.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <string_view>

#include "media/ID3v2FrameKinds.h"
#include "media/TagCharset.h"
#include "zel/Debug.h"
#include "zel/Decoders.h"
#include "zel/Exception.h"
#include "zel/StringBuilder.h"

namespace ZELd {

namespace {

constexpr size_t kAll = std::numeric_limits<size_t>::max(); // no limit on String::tryString
constexpr int kFromStart = 0;                               // File::seek origin

// The tag header: "ID3", major version, revision, flags, then the body size in
// four bytes of seven bits each.
constexpr char kTagMagic[] = "ID3";
constexpr size_t kTagMagicLength = 3;
constexpr size_t kMajorVersionOffset = 3;
constexpr signed char kNewestMajorVersion = 4;
constexpr size_t kTagSizeOffset = 6;
constexpr size_t kTagSizeLength = 4;
constexpr size_t kTagHeaderLength = 10;
constexpr unsigned char kSevenBitLimit = 0x80; // every byte of a seven-bit number lies below
constexpr int kExtendedHeaderFlag = 0x40;

// The extended header: its length (four bytes of seven bits), the number of
// flag bytes, and at least one flag byte.
constexpr size_t kExtendedHeaderMinimum = 6;
constexpr size_t kExtendedHeaderLengthSize = 4;
constexpr size_t kFlagByteCountOffset = 4;

// A frame header: the id, a size field as long as the id, and above version 2
// two flag bytes.
struct FrameHeaderLayout {
    size_t idLength;
    size_t length;
    bool hasFlags;
};
constexpr FrameHeaderLayout kFrameHeader22{3, 6, false};
constexpr FrameHeaderLayout kFrameHeader23{4, 10, true};
constexpr size_t kFrameFlagsOffset = 8;

const FrameHeaderLayout& frameHeaderLayout(signed char version) { return version > 2 ? kFrameHeader23 : kFrameHeader22; }

// Frame bodies.
constexpr int16_t kDataLengthIndicator = 0x0001; // frame flag: APIC data begins with its length
constexpr size_t kDataLengthSize = 4;
constexpr size_t kLanguageCodeLength = 3;
constexpr size_t kImageFormatLength = 3;
constexpr size_t kIdentifierLimit = 64;     // a longer UFID identifier is kept cut, with no text
constexpr size_t kFrameTextCapacity = 64;   // toString: room reserved for a typical frame
constexpr size_t kBinaryPreviewLength = 40; // toString: characters shown of the binary field

// The encoding byte of ID3v2 text. Any other value reads as Latin-1 too, and
// both in the run's character set when it has one (media/TagCharset.h).
constexpr signed char kLatin1 = 0;
constexpr signed char kUtf16WithMark = 1;
constexpr signed char kUtf16BigEndian = 2;
constexpr signed char kUtf8 = 3;
constexpr int kLittleEndian = 1234, kBigEndian = 4321;                   // UTF16Decoder byte orders
constexpr unsigned char kMarkLittleEndian = 0xFF, kMarkBigEndian = 0xFE; // first byte of a byte-order mark

bool isUtf16(signed char encoding) { return encoding == kUtf16WithMark || encoding == kUtf16BigEndian; }

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

// ---- text fields -----------------------------------------------------------

size_t __decode_length__(signed char encoding, const char* _psz, size_t max)
{
    ZEL_ASSERT(_psz != 0);
    if (!_psz) return 0;
    if (isUtf16(encoding)) {
        // A terminator is a zero unit on a two-byte boundary.
        for (size_t i = 0; i + 1 < max; i += 2)
            if (_psz[i] == 0 && _psz[i + 1] == 0) return i;
        return max;
    }
    return ByteString::length(_psz, max);
}

size_t __skip_length__(signed char encoding, size_t length) { return isUtf16(encoding) ? length + 2 : length + 1; }

bool __valid_language_code(const char* p)
{
    if (p[0] == 'X' && p[1] == 'X' && p[2] == 'X') return true;
    for (size_t i = 0; i < kLanguageCodeLength; ++i)
        if (p[i] < 'a' || p[i] > 'z') return false;
    return true;
}

// ---- frame kinds -----------------------------------------------------------

// Whether a frame's id names a kind: the whole id is one of the kind's ids,
// or, for a kind matched by its first three characters, its first three are
// the first three of one of them. A 3-byte id never equals a 4-byte one.
bool names(const FrameKind& kind, std::string_view id)
{
    for (std::string_view own : {kind.id22, kind.id23}) {
        if (own.empty()) continue;
        if (kind.match == IdMatch::FirstThree ? id.substr(0, 3) == own.substr(0, 3) : id == own) return true;
    }
    return false;
}

// The parts of a frame's body: those of the kind its id names, else those of
// its first byte's family. An id that is not ASCII names no kind.
const FrameParts& partsOf(const char* id, size_t idLength, bool idIsAscii)
{
    using namespace id3v2frames;
    if (idIsAscii)
        for (const FrameKind& kind : kFrameKinds)
            if (names(kind, std::string_view(id, idLength))) return kind.parts;
    for (const FrameFamily& family : kFrameFamilies)
        if (family.firstLetter == id[0]) return family.parts;
    return kWholeBody;
}

// ---- the tag header and the frame chain ------------------------------------

bool __IS_UPPER(const char* begin, const char* end)
{
    for (const char* p = begin; p < end; ++p)
        if (!isUpperLetter(*p) && !(*p >= '0' && *p <= '9')) return false;
    return true;
}

// Walks the frame chain of body from offset _begin with each size reading.
// Positions are offsets into the body, so that a start past its end (an
// extended header that claims more than the body holds) is no pointer out of
// the buffer: that walk ends beyond the end, and the reading fails. The trace
// shows the stop and the end as offsets from the body's first byte.
int __find_frame_size_bits(signed char version, const char* body, uint64_t _begin, uint64_t _end, bool verbose)
{
    const size_t idLength = frameHeaderLayout(version).idLength, headerLength = frameHeaderLayout(version).length;
    for (int bits : {8, 7}) {
        uint64_t p = _begin;
        bool ok = true;
        while (p + headerLength < _end && body[p] != 0) {
            if (!__IS_UPPER(body + p, body + p + idLength)) {
                if (verbose) ZEL_TRACE(L"false\n");
                ok = false;
                break;
            }
            const char* field = body + p + idLength;
            const uint64_t size = bits == 8 ? ID3v2::word8(field, idLength) : ID3v2::word7(field, idLength);
            if (verbose) ZEL_TRACE(L"[%ls][%d]\n", asciiOrEmpty(body + p, idLength), static_cast<uint32_t>(size));
            p += size + headerLength;
        }
        if (p > _end || (p < _end && body[p] != 0)) {
            if (verbose) {
                const int stopByte = p < _end ? static_cast<signed char>(body[p]) : 0;
                ZEL_TRACE(L"false [%zX][%zX][%x]\n", static_cast<size_t>(p), static_cast<size_t>(_end), stopByte);
            }
            ok = false;
        }
        if (ok) return bits;
    }
    return 0;
}

// "ID3", a major version of at most 4 (taken signed, so 0x80 and above pass)
// and a size of four bytes of seven bits.
bool isTagHeader(const char* header)
{
    if (std::memcmp(header, kTagMagic, kTagMagicLength) != 0) return false;
    if (static_cast<signed char>(header[kMajorVersionOffset]) > kNewestMajorVersion) return false;
    for (size_t i = kTagSizeOffset; i < kTagSizeOffset + kTagSizeLength; ++i)
        if (static_cast<unsigned char>(header[i]) >= kSevenBitLimit) return false;
    return true;
}

} // namespace

// ---- frames ----------------------------------------------------------------

String ID3v2Frame::decode(signed char encoding, const char* p, size_t n) const
{
    const unsigned char first = n ? static_cast<unsigned char>(p[0]) : 0;
    if (encoding == kUtf16WithMark && n == 2 && first == kMarkLittleEndian) return String(); // a byte-order mark alone
    if (encoding == kUtf16BigEndian && n == 2 && first == kMarkBigEndian) return String();
    try {
        switch (encoding) {
        case kUtf16WithMark: return UTF16Decoder(kLittleEndian).decode(p, n);
        case kUtf16BigEndian: return UTF16Decoder(kBigEndian).decode(p, n);
        case kUtf8: return UTF8Decoder().decode(p, n);
        case kLatin1:
        default: return TagCharset::decode(p, n); // the values that no version defines read as Latin-1 too
        }
    } catch (Exception* e) {
        e->destroy();
        return String();
    }
}

// The parts of one frame body, taken in turn into the frame's fields. Nothing
// at or past limit is read; a string without its terminator carries the
// position past limit, and the parts after it find nothing.
class ID3v2Frame::BodyReader {
public:
    BodyReader(ID3v2Frame& frame, const char* body, size_t limit) : frame_(frame), body_(body), limit_(limit) {}

    void take(FramePart part);

private:
    bool more() const { return pos_ < limit_; }
    size_t remaining() const { return more() ? limit_ - pos_ : 0; }
    const char* here() const { return body_ + pos_; }

    void byte(signed char& out);
    void latin1(String& out);
    void encoded(String& out);
    void encodedRest(ByteString& out);

public:
    // The strings that remain, in the frame's encoding, the empty ones left out.
    std::vector<String> values();

private:
    void language(String& out);
    void imageFormat(String& out);
    void dataLength();
    void rest(ByteString& out);
    void identifier(ByteString& bytes, String& text);

    ID3v2Frame& frame_;
    const char* body_;
    size_t limit_;
    size_t pos_ = 0;
    uint32_t dataLength_ = 0; // 0: the data runs to the frame's end
};

void ID3v2Frame::BodyReader::take(FramePart part)
{
    switch (part) {
    case FramePart::EncodingByte: byte(frame_.encoding_); break;
    case FramePart::TypeByte: byte(frame_.type_); break;
    case FramePart::DataLength: dataLength(); break;
    case FramePart::Latin1ToUrl: latin1(frame_.url_); break;
    case FramePart::LanguageToUrl: language(frame_.url_); break;
    case FramePart::ImageFormatToUrl: imageFormat(frame_.url_); break;
    case FramePart::EncodedToDescription: encoded(frame_.description_); break;
    case FramePart::EncodedToText: encoded(frame_.text_); break;
    case FramePart::RestToBinary: rest(frame_.binary_); break;
    case FramePart::IdentifierToBinaryAndText: identifier(frame_.binary_, frame_.text_); break;
    case FramePart::EncodedRestToValues: encodedRest(frame_.laterBytes_); break;
    case FramePart::End: break;
    }
}

void ID3v2Frame::BodyReader::byte(signed char& out)
{
    if (!more()) return;
    out = static_cast<signed char>(body_[pos_]);
    ++pos_;
}

void ID3v2Frame::BodyReader::latin1(String& out)
{
    if (!more()) return;
    const size_t n = ByteString::length(here(), remaining());
    out = Latin1Decoder().decode(here(), n).trim(); // ASCII by rights: never in the run's character set
    pos_ += n + 1;
}

void ID3v2Frame::BodyReader::encoded(String& out)
{
    if (!more()) return;
    const signed char encoding = frame_.encoding_;
    const size_t n = __decode_length__(encoding, here(), remaining());
    out = frame_.decode(encoding, here(), n).trim();
    pos_ += __skip_length__(encoding, n);
}

void ID3v2Frame::BodyReader::encodedRest(ByteString& out)
{
    if (!more()) return;
    std::string bytes(1, static_cast<char>(frame_.encoding_));
    bytes.append(here(), remaining());
    out.assign(bytes.data(), bytes.size());
    pos_ = limit_;
}

std::vector<String> ID3v2Frame::BodyReader::values()
{
    std::vector<String> out;
    while (more()) {
        String value;
        encoded(value);
        if (!value.isEmpty()) out.push_back(value);
    }
    return out;
}

// Taken only with a byte after it: a code that ends the body is read as the
// next string.
void ID3v2Frame::BodyReader::language(String& out)
{
    if (remaining() <= kLanguageCodeLength || !__valid_language_code(here())) return;
    out = asciiOrEmpty(here(), kLanguageCodeLength).trim();
    pos_ += kLanguageCodeLength;
}

void ID3v2Frame::BodyReader::imageFormat(String& out)
{
    if (!more()) return;
    out = asciiOrEmpty(here(), std::min(kImageFormatLength, remaining()));
    pos_ += kImageFormatLength;
}

void ID3v2Frame::BodyReader::dataLength()
{
    if (!(frame_.flags_ & kDataLengthIndicator)) return;
    if (remaining() < kDataLengthSize) {
        pos_ = limit_; // no room for the length: nothing more is read
        return;
    }
    dataLength_ = frame_.word(here(), kDataLengthSize);
    pos_ += kDataLengthSize;
}

void ID3v2Frame::BodyReader::rest(ByteString& out)
{
    if (more()) out.assign(here(), dataLength_ != 0 ? std::min<size_t>(dataLength_, remaining()) : remaining());
}

void ID3v2Frame::BodyReader::identifier(ByteString& bytes, String& text)
{
    const size_t n = std::min(kIdentifierLimit, remaining());
    if (n) bytes.assign(here(), n);
    if (more() && remaining() <= kIdentifierLimit) text = String::tryString(here(), n, kAll);
}

unsigned ID3v2Frame::word(const char* p, size_t n) const { return owner_.fsbits() == 7 ? ID3v2::word7(p, n) : ID3v2::word8(p, n); }

size_t ID3v2Frame::read(const char* _begin, const char* _end)
{
    const size_t __6_OR_10__ = owner_.frameHeaderLength();
    ZEL_ASSERT(_begin + __6_OR_10__ < _end);
    if (_end - _begin <= static_cast<ptrdiff_t>(__6_OR_10__)) return __6_OR_10__;
    const FrameHeaderLayout& header = __6_OR_10__ == kFrameHeader22.length ? kFrameHeader22 : kFrameHeader23;
    id_ = asciiOrEmpty(_begin, header.idLength);
    size_ = word(_begin + header.idLength, header.idLength);
    if (header.hasFlags) {
        const char* flagBytes = _begin + kFrameFlagsOffset;
        flags_ = static_cast<int16_t>(static_cast<unsigned char>(flagBytes[0]) << 8 | static_cast<unsigned char>(flagBytes[1]));
    }
    const char* body = _begin + __6_OR_10__;
    BodyReader reader(*this, body, std::min<size_t>(size_, static_cast<size_t>(_end - body)));
    for (FramePart part : partsOf(_begin, header.idLength, !id_.isEmpty())) {
        if (part == FramePart::End) break;
        reader.take(part);
    }
    return __6_OR_10__ + size_;
}

std::vector<String> ID3v2Frame::textValues(const ByteString& body) const
{
    ID3v2Frame scratch(owner_);
    BodyReader reader(scratch, body.data(), body.length());
    reader.take(FramePart::EncodingByte);
    return reader.values();
}

std::vector<String> ID3v2Frame::laterValues() const { return laterBytes_.isEmpty() ? std::vector<String>() : textValues(laterBytes_); }

String ID3v2Frame::toString() const
{
    StringBuilder b(kFrameTextCapacity);
    b.append(id_);
    b.format(L" size[%d] flags[%x] encoding[%d] type[%d]", size_, flags_, encoding_, type_);
    if (!url_.isEmpty()) b.format(L" url[%ls]", url_);
    if (!description_.isEmpty()) b.format(L" description[%ls]", description_);
    if (!text_.isEmpty()) b.format(L" text[%ls]", text_);
    if (!binary_.isEmpty()) b.format(L" binary[%zd][%ls]", binary_.length(), String::tryString(binary_, kBinaryPreviewLength));
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

size_t ID3v2::frameHeaderLength() const { return frameHeaderLayout(version()).length; }

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
    if (_end - _begin < static_cast<ptrdiff_t>(kExtendedHeaderMinimum)) return static_cast<size_t>(_end - _begin); // nothing is walked
    ZEL_TRACE(L"Number of flag bytes [%d]\n", static_cast<signed char>(_begin[kFlagByteCountOffset]));
    return word7(_begin, kExtendedHeaderLengthSize);
}

bool ID3v2::read(File& file, const char* header)
{
    char local[kTagHeaderLength];
    if (!header) {
        file.seek(0, kFromStart);
        if (file.read(local, sizeof local) < sizeof local) return false;
        header = local;
    } else {
        file.seek(kTagHeaderLength, kFromStart);
    }
    if (!isTagHeader(header)) return false;

    release(); // what an earlier read left
    std::memset(header_, 0, sizeof header_);
    fsbits_ = 0;
    ID3_ = AsciiDecoder().decode(header, kTagMagicLength);
    size_ = word7(header + kTagSizeOffset, kTagSizeLength);
    // The body is never larger than what the file can provide.
    if (size_ > file.size()) return false;
    data_ = static_cast<char*>(ZEL_MALLOC(size_));
    if (!data_) return false;
    const size_t got = file.read(data_, size_);
    if (got < size_) return false;
    std::memcpy(header_, header, sizeof header_);

    // The frames begin after the extended header, which may claim more than the body holds.
    const uint64_t begin = flags() & kExtendedHeaderFlag ? skipExtendedHeader(data_, data_ + got) : 0;
    fsbits_ = __find_frame_size_bits(version(), data_, begin, got, false);
    if (fsbits_ == 0) {
        ZEL_TRACE(L"ID3v2 Invalid Frames [%ls]\n", file.path());
        fsbits_ = __find_frame_size_bits(version(), data_, begin, got, true);
        return false;
    }
    walkFrames(data_ + begin, data_ + got, file.path()); // a reading was found: begin lies inside the body or at its end
    return true;
}

void ID3v2::walkFrames(const char* begin, const char* end, const String& path)
{
    const size_t headerLength = frameHeaderLength();
    while (static_cast<size_t>(end - begin) > headerLength && *begin != 0) {
        if (!isUpperLetter(*begin)) {
            ZEL_TRACE(L"ID3v2 Frame Read Failed [%ls]\n", path);
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
}

String ID3v2::toString() const
{
    return String::format(L"%ls version[%d] revision[%d] flags[%x] size[%d] fsbits[%d]", ID3_, version(), revision(), flags(), size_,
                          fsbits_);
}

} // namespace ZELd
