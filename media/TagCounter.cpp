#define ZEL_SOURCE "media/TagCounter"
#include "media/TagCounter.h"

#include <cstring>

#include "media/APEv2.h"
#include "media/MainArguments.h"
#include "zel/Dir.h"
#include "zel/Exception.h"
#include "zel/File.h"
#include "zel/Writer.h"

namespace ZELd {

TagCounter& TagCounter::operator+=(TagCounter other)
{
    id3v1_ += other.id3v1_;
    id3v22_ += other.id3v22_;
    id3v23_ += other.id3v23_;
    id3v24_ += other.id3v24_;
    apev1_ += other.apev1_;
    apev2_ += other.apev2_;
    errors_ += other.errors_;
    return *this;
}

String TagCounter::toString() const
{
    return String::format(L"ID3v1[%d] ID3v22[%d] ID3v23[%d] ID3v24[%d] APEv1[%d] APEv2[%d] error[%d]", id3v1_, id3v22_,
                          id3v23_, id3v24_, apev1_, apev2_, errors_);
}

void TagCounter::read(const String& path, TagCounter& counter)
{
    File file(path, 1, 438);
    int id3v2 = 0;
    uint32_t ape = 0;
    bool id3v1 = false;
    char head[32];
    if (file.read(head, sizeof head) == sizeof head) {
        if (std::memcmp(head, "ID3", 3) == 0) id3v2 = static_cast<signed char>(head[3]);
        else if (std::memcmp(head, "APETAGEX", 8) == 0) ape = APEv2::word(head + 8) / 1000;
    }
    char tail[160];
    file.seek(-160, 2);
    if (file.read(tail, sizeof tail) == sizeof tail) {
        if (ape == 0) {
            if (std::memcmp(tail, "APETAGEX", 8) == 0) ape = APEv2::word(tail + 8) / 1000;
            else if (std::memcmp(tail + 128, "APETAGEX", 8) == 0) ape = APEv2::word(tail + 136) / 1000;
        }
        id3v1 = std::memcmp(tail + 32, "TAG", 3) == 0;
    }
    switch (id3v2) {
    case 2: ++counter.id3v22_; break;
    case 3: ++counter.id3v23_; break;
    case 4: ++counter.id3v24_; break;
    default: break;
    }
    if (ape == 1) ++counter.apev1_;
    else if (ape == 2) ++counter.apev2_;
    if (id3v1) ++counter.id3v1_;
}

void TagCounter::readDir(const String& path, TagCounter& counter, const MainArguments& args)
{
    Dir dir(path);
    Dir::Entry entry;
    while (dir.read(entry)) {
        const String& name = entry.name();
        if (entry.isDir()) {
            if (name.compare(L"..", name.length()) == 0) continue;
            String sub = dir.path() + name;
            TagCounter subCounter;
            readDir(sub, subCounter, args);
            counter += subCounter;
            if (args.verbose()) args.output() << L"[" << sub << L"] " << subCounter.toString() << endl;
            continue;
        }
        if (!name.toLowerCase().endsWith(L".mp3")) continue;
        try {
            TagCounter fileCounter;
            read(dir.path() + name, fileCounter);
            counter += fileCounter;
            if (args.verbose()) args.output() << L"[  " << name << L"] " << fileCounter.toString() << endl;
        } catch (Exception* e) {
            ++counter.errors_;
            args.errout() << e->toStringAll() << endl;
            e->destroy();
        }
    }
}

} // namespace ZELd
