#define ZEL_SOURCE "media/ProbeResult"
#include "media/ProbeResult.h"

#include <sys/stat.h>
#include <unistd.h>

#include <utility>

#include "media/TagBytes.h"
#include "media/TagLibProperties.h"

#include <cstdint>
#include <cstring>

#include "zel/Debug.h"
#include "zel/Exception.h"
#include "zel/FileName.h"
#include "zel/Files.h"

namespace ZELd {

namespace {

// A message: its length (4 bytes), then the fields in the order of encode.
// Numbers are in the machine's own byte order and texts are their wchar_t
// units, a count first: both ends are the same executable.
enum Flags : uint8_t { kKnown = 1, kFailed = 2, kHasTagBytes = 4, kHasProperties = 8 };

// The most tag bytes a probe carries back (TagBytes keeps less): a file
// whose tags take more is read at its turn.
constexpr size_t kMostTagBytes = 1024 * 1024;

template <class T>
void put(std::string& bytes, T value)
{
    bytes.append(reinterpret_cast<const char*>(&value), sizeof value);
}

void putText(std::string& bytes, const std::wstring& text)
{
    put(bytes, static_cast<uint32_t>(text.size()));
    bytes.append(reinterpret_cast<const char*>(text.data()), text.size() * sizeof(wchar_t));
}

void putBytes(std::string& bytes, const std::string& raw)
{
    put(bytes, static_cast<uint32_t>(raw.size()));
    bytes += raw;
}

// Reads the fields of one message; every read stays inside it.
class Fields {
public:
    Fields(const char* p, size_t n) : p_(p), left_(n) {}

    template <class T>
    T take()
    {
        T value{};
        if (left_ < sizeof value) return broken_ = true, value;
        std::memcpy(&value, p_, sizeof value);
        p_ += sizeof value, left_ -= sizeof value;
        return value;
    }
    String text()
    {
        const uint32_t count = take<uint32_t>();
        if (broken_ || count > left_ / sizeof(wchar_t)) return broken_ = true, String();
        std::wstring text(count, L'\0');
        std::memcpy(text.data(), p_, count * sizeof(wchar_t));
        p_ += count * sizeof(wchar_t), left_ -= count * sizeof(wchar_t);
        return String(std::move(text));
    }
    std::string bytes()
    {
        const uint32_t count = take<uint32_t>();
        if (broken_ || count > left_) return broken_ = true, std::string();
        std::string raw(p_, count);
        p_ += count, left_ -= count;
        return raw;
    }
    bool whole() const { return !broken_ && left_ == 0; }
    bool intact() const { return !broken_; }
    void breakOff() { broken_ = true; }

private:
    const char* p_;
    size_t left_;
    bool broken_ = false;
};

} // namespace

ProbeResult ProbeResult::probe(const String& path, uint8_t asks)
{
    ProbeResult result;
    std::wstring* before = ZELDebugCaptureReport(&result.traces);
    // The file as it is just before its probe: one that cannot be looked at
    // matches nothing, and its turn meets the same failure or finds it again.
    const FileFacts file = Files::examine(path);
    result.seen = {file.size, file.modification, file.known()};
    // The tag bytes and the properties come from the descriptor that the
    // library reads: the file is opened once.
    File::Ahead ahead;
    const bool opened = asks != kFactsOnly && file.known() && !file.linkError && S_ISREG(file.mode) && ahead.open(nativePath(path).c_str());
    try {
        if (opened && (asks & kTagBytes) && TagBytes::read(ahead) && ahead.head.size() + ahead.tail.size() <= kMostTagBytes) {
            result.tagBytes = std::move(ahead);
            result.hasTagBytes = true;
            ahead.fd = std::exchange(result.tagBytes.fd, -1); // closed with ahead
        }
        result.facts = MediaFacts::probe(path, file, opened ? ahead.fd : -1); // -1: the probe opens the file
    } catch (Exception* e) {
        result.failed = true;
        const auto* io = dynamic_cast<const IOException*>(e);
        result.reason = io ? io->reason() : e->toString();
        result.systemError = e->systemError();
        e->destroy();
    }
    // TagLib reads the tags whatever the library made of the file, as the
    // program reads an MP3 file's tags before its facts.
    if (opened && (asks & kProperties)) {
        try {
            result.properties = TagLibProperties::read(ahead.fd, path);
        } catch (Exception* e) {
            const auto* io = dynamic_cast<const IOException*>(e);
            result.propertiesFailure = io ? io->reason() : e->toString();
            e->destroy();
        }
    }
    ZELDebugCaptureReport(before);
    return result;
}

ProbeResult ProbeResult::lost(const String& reason)
{
    ProbeResult result;
    result.failed = result.final = true;
    result.reason = reason;
    return result;
}

Exception* ProbeResult::failure(const String& path) const { return ZEL_NEW IOException(path, reason, systemError); }

void ProbeResult::encode(std::string& bytes) const
{
    const size_t start = bytes.size();
    put(bytes, uint32_t(0)); // the length, known at the end
    put(bytes, static_cast<uint8_t>((seen.known ? kKnown : 0) | (failed ? kFailed : 0) | (hasTagBytes ? kHasTagBytes : 0) |
                                    (hasProperties() ? kHasProperties : 0)));
    put(bytes, static_cast<uint64_t>(seen.size));
    put(bytes, static_cast<int64_t>(seen.modification));
    put(bytes, facts.width);
    put(bytes, facts.height);
    put(bytes, facts.duration);
    put(bytes, static_cast<int32_t>(systemError));
    for (const String* text : {&facts.format, &facts.inform, &reason}) putText(bytes, text->str());
    putText(bytes, traces);
    if (hasTagBytes) {
        put(bytes, static_cast<uint64_t>(tagBytes.size));
        put(bytes, static_cast<int64_t>(tagBytes.modification));
        putBytes(bytes, tagBytes.head);
        put(bytes, static_cast<uint64_t>(tagBytes.tailAt));
        putBytes(bytes, tagBytes.tail);
    }
    if (hasProperties()) {
        putText(bytes, propertiesFailure.str());
        put(bytes, static_cast<uint32_t>(properties.size()));
        for (const TagProperty& p : properties)
            for (const String* text : {&p.source, &p.key, &p.value}) putText(bytes, text->str());
    }
    const auto length = static_cast<uint32_t>(bytes.size() - start - sizeof(uint32_t));
    std::memcpy(bytes.data() + start, &length, sizeof length);
}

size_t ProbeResult::decode(const char* p, size_t n, ProbeResult& out)
{
    uint32_t length;
    if (n < sizeof length) return 0;
    std::memcpy(&length, p, sizeof length);
    if (n - sizeof length < length) return 0;
    Fields fields(p + sizeof length, length);
    ProbeResult r;
    const auto flags = fields.take<uint8_t>();
    r.seen = {fields.take<uint64_t>(), fields.take<int64_t>(), (flags & kKnown) != 0};
    r.failed = (flags & kFailed) != 0;
    r.facts.width = fields.take<uint32_t>();
    r.facts.height = fields.take<uint32_t>();
    r.facts.duration = fields.take<uint32_t>();
    r.systemError = fields.take<int32_t>();
    r.facts.format = fields.text();
    r.facts.inform = fields.text();
    r.reason = fields.text();
    r.traces = fields.text().str();
    if ((r.hasTagBytes = (flags & kHasTagBytes) != 0)) {
        r.tagBytes.size = fields.take<uint64_t>();
        r.tagBytes.modification = fields.take<int64_t>();
        r.tagBytes.head = fields.bytes();
        r.tagBytes.tailAt = fields.take<uint64_t>();
        r.tagBytes.tail = fields.bytes();
    }
    if (flags & kHasProperties) {
        r.propertiesFailure = fields.text();
        // Each property takes at least its three counts: a count that the
        // message cannot hold is refused before anything is made for it.
        const uint32_t count = fields.take<uint32_t>();
        if (count <= length / (3 * sizeof(uint32_t))) {
            r.properties.reserve(count);
            for (uint32_t i = 0; i < count && fields.intact(); ++i) {
                TagProperty p;
                p.source = fields.text(), p.key = fields.text(), p.value = fields.text();
                r.properties.push_back(std::move(p));
            }
        } else {
            fields.breakOff();
        }
        if (r.properties.empty() && r.propertiesFailure.isEmpty()) fields.breakOff(); // the flag stands for one or the other
    }
    if (!fields.whole() || (flags & ~(kKnown | kFailed | kHasTagBytes | kHasProperties)) != 0)
        throw ZEL_NEW IOException(L"MediaInfo helper", L"Reply Garbled");
    out = std::move(r);
    return sizeof length + length;
}

} // namespace ZELd
