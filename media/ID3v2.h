// ID3v2.2, 2.3 and 2.4 tags at the start of an MP3 file, and their frames.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "zel/Array.h"
#include "zel/ByteString.h"
#include "zel/File.h"
#include "zel/Object.h"
#include "zel/String.h"

namespace ZELd {

class ID3v2;

class ID3v2Frame : public Object {
public:
    explicit ID3v2Frame(const ID3v2& owner) : owner_(owner) {}

    // _begin: the frame header inside the tag body; _end: the body's end.
    // Returns the bytes the frame occupies: header length plus size. Nothing
    // beyond the frame's end or _end is read.
    size_t read(const char* _begin, const char* _end);

    // The text of n bytes in an ID3v2 text encoding (0 Latin-1, 1 UTF-16 with
    // byte-order mark, 2 UTF-16 big-endian, 3 UTF-8, anything else Latin-1);
    // empty when the bytes cannot be decoded. What reads as Latin-1 is read in
    // the run's character set when there is one (media/TagCharset.h).
    String decode(signed char encoding, const char* p, size_t n) const;
    // The owner's reading of an n-byte size: seven bits a byte when its fsbits is 7.
    unsigned word(const char* p, size_t n) const;

    String id() const { return id_; }
    uint32_t size() const { return size_; }
    int16_t flags() const { return flags_; }
    signed char encoding() const { return encoding_; }
    signed char type() const { return type_; }
    const String& url() const { return url_; }
    const String& description() const { return description_; }
    const String& text() const { return text_; }
    const ByteString& binary() const { return binary_; }
    // The values of a text frame after text(), in their order (read from the
    // bytes kept for them, which take no more memory than the frame).
    std::vector<String> laterValues() const;

    // The values of bytes laid out as a text frame's body (an encoding byte,
    // then strings), read as laterValues() are: for frames kept whole in
    // binary() that some programs write as text.
    std::vector<String> textValues(const ByteString& body) const;

    String toString() const override;
    const std::type_info& typeInfo() const override { return typeid(ID3v2Frame); }

private:
    // Takes the parts of a body, as its kind lists them (media/ID3v2FrameKinds.h),
    // into the fields below.
    class BodyReader;

    const ID3v2& owner_;
    String id_;
    uint32_t size_ = 0;
    int16_t flags_ = 0;
    // What these hold depends on the kind of frame: see media/ID3v2FrameKinds.h.
    signed char encoding_ = 0;
    signed char type_ = 0;
    String url_;
    String description_;
    String text_;
    ByteString binary_;
    ByteString laterBytes_; // the encoding byte, then the bytes after text()'s
};

class ID3v2 : public Object {
public:
    ID3v2() = default;
    ~ID3v2() override;
    ID3v2(const ID3v2&) = delete;
    ID3v2& operator=(const ID3v2&) = delete;

    // header: the file's first 10 (or more) bytes already read, or null.
    // True when a tag was read and its frames walked.
    bool read(File& file, const char* header);
    // The length of the extended header at the start of the body.
    size_t skipExtendedHeader(const char* _begin, const char* _end) const;

    // An n-byte big-endian number, seven bits a byte (top bits ignored).
    static unsigned word7(const char* p, size_t n);
    // An n-byte big-endian number.
    static unsigned word8(const char* p, size_t n);

    // Header bytes 3, 4, 5; 0 until a body has been read.
    signed char version() const { return static_cast<signed char>(header_[3]); }
    signed char revision() const { return static_cast<signed char>(header_[4]); }
    signed char flags() const { return static_cast<signed char>(header_[5]); }
    uint32_t size() const { return size_; }
    // How frame sizes are read: 8 plain bytes, 7 seven bits a byte, 0 no consistent reading.
    int fsbits() const { return fsbits_; }
    const String& ID3() const { return ID3_; }
    const PointerArray<ID3v2Frame>& frames() const { return frames_; }

    // Frame header length: 10 above version 2; 6 for version 2 and for the
    // versions 0, 1 and negative that the header test lets through.
    size_t frameHeaderLength() const;

    String toString() const override;
    const std::type_info& typeInfo() const override { return typeid(ID3v2); }

private:
    void release();
    // Reads the frames from begin until the padding, the body's end or an id
    // that does not begin with a letter A-Z; path names the file in the trace.
    void walkFrames(const char* begin, const char* end, const String& path);

    char header_[10] = {};
    int fsbits_ = 0;
    char* data_ = nullptr;
    String ID3_;
    uint32_t size_ = 0;
    PointerArray<ID3v2Frame> frames_;
};

} // namespace ZELd
