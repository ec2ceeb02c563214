// APE tags (versions 1 and 2): a 32-byte header and/or footer and key/value items.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "media/APEHeader.h"
#include "zel/Array.h"
#include "zel/ByteString.h"
#include "zel/File.h"
#include "zel/Object.h"
#include "zel/String.h"

namespace ZELd {

class APEv2Item : public Object {
public:
    APEv2Item() = default;

    // Decodes one item from [begin, end) and returns how many bytes it
    // occupies (key length + 9 + value size), whether or not its value fitted.
    size_t read(const char* begin, const char* end);

    uint32_t size() const { return size_; }
    int32_t flags() const { return flags_; }
    const String& key() const { return key_; }
    const String& value() const { return value_; }
    // The values of a text item after value(), which a zero byte ends: each
    // read as value() is, the empty ones left out.
    // They are read from the bytes kept for them, no more memory than the item.
    std::vector<String> laterValues() const;

    String toString() const override;
    const std::type_info& typeInfo() const override { return typeid(APEv2Item); }

private:
    uint32_t size_ = 0;
    int32_t flags_ = 0;
    String key_;
    String value_;
    ByteString laterBytes_; // a text item's bytes after its value's zero byte
};

class APEv2 : public Object {
public:
    // The 32 bytes of an APE header or footer.
    using Header = APEHeader;

    APEv2() = default;
    ~APEv2() override;
    APEv2(const APEv2&) = delete;
    APEv2& operator=(const APEv2&) = delete;

    // header: the 32 bytes of a header or footer already read, or null to
    // search the file. position: where they lie: a negative offset of the
    // footer from the end of the file (-32, -160), or 0 for a header at the
    // start with the file positioned right after it. True when the tag's body
    // was read and walked. A size that the file cannot hold is refused
    // before anything is allocated.
    bool read(File& file, const char* header, long long position);

    // The unsigned 32-bit little-endian number at p (APEHeader::word).
    static uint32_t word(const char* p) { return Header::word(p); }

    // 1000 for version 1, 2000 for version 2; 0 until a tag has been found.
    uint32_t version() const { return version_; }
    uint32_t size() const { return size_; }
    uint32_t count() const { return count_; }
    int32_t flags() const { return flags_; }
    const PointerArray<APEv2Item>& items() const { return items_; }

    String toString() const override;
    const std::type_info& typeInfo() const override { return typeid(APEv2); }

private:
    void release();

    String preamble_;
    uint32_t version_ = 0;
    uint32_t size_ = 0;
    uint32_t count_ = 0;
    int32_t flags_ = 0;
    char* block_ = nullptr;
    PointerArray<APEv2Item> items_;
};

} // namespace ZELd
