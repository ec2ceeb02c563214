#define ZEL_SOURCE "media/TagLibProperties"
#include "media/TagLibProperties.h"

#include <sys/stat.h>
#include <unistd.h>

#include <taglib/aifffile.h>
#include <taglib/apefile.h>
#include <taglib/apetag.h>
#include <taglib/asffile.h>
#include <taglib/asftag.h>
#include <taglib/fileref.h>
#include <taglib/flacfile.h>
#include <taglib/id3v1tag.h>
#include <taglib/id3v2tag.h>
#include <taglib/infotag.h>
#include <taglib/modfilebase.h>
#include <taglib/modtag.h>
#include <taglib/mp4file.h>
#include <taglib/mp4tag.h>
#include <taglib/mpcfile.h>
#include <taglib/mpegfile.h>
#include <taglib/oggfile.h>
#include <taglib/tdebuglistener.h>
#include <taglib/tiostream.h>
#include <taglib/tpropertymap.h>
#include <taglib/trueaudiofile.h>
#include <taglib/wavfile.h>
#include <taglib/wavpackfile.h>
#include <taglib/xiphcomment.h>

#include <cerrno>
#include <set>
#include <string>

#include "zel/Exception.h"
#include "zel/FileName.h"

namespace ZELd {

namespace {

// The file TagLib reads, served from a descriptor opened before: reads with
// pread at a position of its own, nothing longer than the file as it was
// when it was opened, and no writes.
class DescriptorStream : public TagLib::IOStream {
public:
    DescriptorStream(int fd, std::string name) : fd_(fd), name_(std::move(name))
    {
        struct stat st {};
        if (::fstat(fd, &st) == 0 && st.st_size > 0) size_ = st.st_size;
    }

    TagLib::FileName name() const override { return name_.c_str(); }
    TagLib::ByteVector readBlock(unsigned long length) override
    {
        if (position_ >= size_) return TagLib::ByteVector();
        const auto wanted = static_cast<size_t>(std::min<unsigned long long>(length, size_ - position_));
        TagLib::ByteVector block(static_cast<unsigned>(wanted), '\0');
        size_t got = 0;
        while (got < wanted) {
            const ssize_t n = ::pread(fd_, block.data() + got, wanted - got, static_cast<off_t>(position_ + got));
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) break;
            got += static_cast<size_t>(n);
        }
        block.resize(static_cast<unsigned>(got));
        position_ += got;
        return block;
    }
    void writeBlock(const TagLib::ByteVector&) override {}
    void insert(const TagLib::ByteVector&, unsigned long, unsigned long) override {}
    void removeBlock(unsigned long, unsigned long) override {}
    bool readOnly() const override { return true; }
    bool isOpen() const override { return true; }
    void seek(long offset, Position from) override
    {
        const long long base = from == Beginning ? 0 : from == Current ? position_ : size_;
        if (base + offset >= 0) position_ = base + offset; // before the start: where it was, as fseek leaves it
    }
    long tell() const override { return static_cast<long>(position_); }
    long length() override { return static_cast<long>(size_); }
    void truncate(long) override {}

private:
    const int fd_;
    const std::string name_;
    long long size_ = 0;
    long long position_ = 0;
};

// What TagLib would print about the files it reads goes nowhere: the
// program's standard error carries its own messages only.
class Silence : public TagLib::DebugListener {
public:
    void printMessage(const TagLib::String&) override {}
};

// Text the catalogue can hold: up to a NUL, which ends a text in every
// database, and with every unit that is no Unicode character (a lone
// surrogate of broken UTF-16, or beyond U+10FFFF) replaced.
String textOf(const TagLib::String& s)
{
    std::wstring text = s.toWString();
    if (const size_t nul = text.find(L'\0'); nul != std::wstring::npos) text.resize(nul);
    for (wchar_t& c : text) {
        const auto unit = static_cast<uint32_t>(c);
        if ((unit >= 0xD800 && unit <= 0xDFFF) || unit > 0x10FFFF) c = L'\uFFFD';
    }
    return String(std::move(text));
}

// One tag's values, in the order of its PropertyMap (by key); empty ones,
// and those of a key that is empty as stored (a TXXX frame without a
// description, a key that begins with a NUL), left out.
void add(const wchar_t* source, const TagLib::PropertyMap& map, TagProperties& out)
{
    for (const auto& [key, values] : map) {
        const String name = textOf(key);
        if (name.isEmpty()) continue;
        for (const TagLib::String& value : values) {
            String text = textOf(value);
            if (!text.isEmpty()) out.push_back({source, name, std::move(text)});
        }
    }
}

// Each tag's own properties (PropertyMap properties() is no virtual member
// of TagLib's tags: each is called through its own class).
template <class T>
void add(const wchar_t* source, T* tag, TagProperties& out)
{
    if (tag) add(source, tag->properties(), out);
}

// WavPack, Musepack and Monkey's Audio: an APE tag, and an ID3v1 tag after it.
template <class F>
void addAPEThenID3v1(F* file, TagProperties& out)
{
    if (file->hasAPETag()) add(L"APE", file->APETag(), out);
    if (file->hasID3v1Tag()) add(L"ID3v1", static_cast<TagLib::Tag*>(file->ID3v1Tag()), out);
}

// The tags of the file, the best first, as each format holds them.
void collect(TagLib::File* file, TagProperties& out)
{
    namespace T = TagLib;
    if (auto* f = dynamic_cast<T::FLAC::File*>(file)) {
        if (f->hasXiphComment()) add(L"Xiph", f->xiphComment(), out);
        if (f->hasID3v2Tag()) add(L"ID3v2", f->ID3v2Tag(), out);
        if (f->hasID3v1Tag()) add(L"ID3v1", static_cast<T::Tag*>(f->ID3v1Tag()), out);
    } else if (auto* f = dynamic_cast<T::Ogg::File*>(file)) {
        add(L"Xiph", dynamic_cast<T::Ogg::XiphComment*>(f->tag()), out);
    } else if (auto* f = dynamic_cast<T::MPEG::File*>(file)) {
        if (f->hasID3v2Tag()) add(L"ID3v2", f->ID3v2Tag(), out);
        if (f->hasAPETag()) add(L"APE", f->APETag(), out);
        if (f->hasID3v1Tag()) add(L"ID3v1", static_cast<T::Tag*>(f->ID3v1Tag()), out);
    } else if (auto* f = dynamic_cast<T::MP4::File*>(file)) {
        add(L"MP4", f->tag(), out);
    } else if (auto* f = dynamic_cast<T::ASF::File*>(file)) {
        add(L"ASF", f->tag(), out);
    } else if (auto* f = dynamic_cast<T::WavPack::File*>(file)) {
        addAPEThenID3v1(f, out);
    } else if (auto* f = dynamic_cast<T::MPC::File*>(file)) {
        addAPEThenID3v1(f, out);
    } else if (auto* f = dynamic_cast<T::APE::File*>(file)) {
        addAPEThenID3v1(f, out);
    } else if (auto* f = dynamic_cast<T::TrueAudio::File*>(file)) {
        if (f->hasID3v2Tag()) add(L"ID3v2", f->ID3v2Tag(), out);
        if (f->hasID3v1Tag()) add(L"ID3v1", static_cast<T::Tag*>(f->ID3v1Tag()), out);
    } else if (auto* f = dynamic_cast<T::RIFF::WAV::File*>(file)) {
        if (f->hasID3v2Tag()) add(L"ID3v2", f->ID3v2Tag(), out);
        if (f->hasInfoTag()) add(L"RIFF", static_cast<T::Tag*>(f->InfoTag()), out);
    } else if (auto* f = dynamic_cast<T::RIFF::AIFF::File*>(file)) {
        if (f->hasID3v2Tag()) add(L"ID3v2", f->tag(), out);
    } else if (auto* f = dynamic_cast<T::Mod::FileBase*>(file)) {
        add(L"Mod", dynamic_cast<T::Mod::Tag*>(f->tag()), out);
    } else if (file) {
        add(L"", file->properties(), out); // a kind this list does not know yet: what the file gives
    }
}

const std::set<std::wstring>& extensions()
{
    static const std::set<std::wstring> known = [] {
        std::set<std::wstring> all;
        for (const TagLib::String& e : TagLib::FileRef::defaultFileExtensions())
            all.insert(L"." + String(e.toWString()).toLowerCase().str());
        all.erase(L".mp3");
        return all;
    }();
    return known;
}

} // namespace

bool TagLibProperties::readsName(const String& name)
{
    const size_t dot = name.str().rfind(L'.');
    return dot != std::wstring::npos && extensions().count(name.substring(dot).toLowerCase().str()) != 0;
}

TagProperties TagLibProperties::read(int fd, const String& path)
{
    static const bool silenced = [] {
        static Silence silence;
        TagLib::setDebugListener(&silence);
        return true;
    }();
    (void)silenced;
    DescriptorStream stream(fd, nativePath(path));
    TagProperties properties;
    bool valid = false;
    try {
        TagLib::FileRef file(&stream, false);
        if ((valid = !file.isNull())) collect(file.file(), properties);
    } catch (...) { // TagLib throws nothing of its own; memory that ran out ends this file's reading only
        valid = false;
    }
    if (!valid) throw ZEL_NEW IOException(path, L"TagLib Read Failed");
    return properties;
}

} // namespace ZELd
