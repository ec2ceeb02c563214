#define ZEL_SOURCE "media/TagCounter"
#include "media/TagCounter.h"

#include "media/APEv2.h"
#include "media/MainArguments.h"
#include "media/Progress.h"
#include "media/TagLocation.h"
#include "media/Walk.h"
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
    return String::format(L"ID3v1[%d] ID3v22[%d] ID3v23[%d] ID3v24[%d] APEv1[%d] APEv2[%d] error[%d]", id3v1_, id3v22_, id3v23_, id3v24_,
                          apev1_, apev2_, errors_);
}

void TagCounter::read(const String& path, TagCounter& counter)
{
    File file(path, File::kRead, File::kMode);
    TagLocation at(file);
    const int id3v2 = at.id3v2() ? static_cast<signed char>(at.head[3]) : 0;
    uint32_t ape = at.apeHeader() ? APEv2::Header::digit(APEv2::Header::version(at.head)) : 0;
    at.readTail(file);
    long long position;
    const char* footer = ape == 0 ? at.apeFooter(position) : nullptr;
    if (footer) ape = APEv2::Header::digit(APEv2::Header::version(footer));
    switch (id3v2) {
    case 2: ++counter.id3v22_; break;
    case 3: ++counter.id3v23_; break;
    case 4: ++counter.id3v24_; break;
    default: break;
    }
    if (ape == 1) ++counter.apev1_;
    else if (ape == 2) ++counter.apev2_;
    if (at.id3v1()) ++counter.id3v1_;
}

void TagCounter::readDir(const String& path, TagCounter& counter, const MainArguments& args)
{
    auto onFile = [&](const Dir& dir, const String& name) {
        Progress::file(dir.path());
        if (!name.toLowerCase().endsWith(L".mp3")) return;
        TagCounter file;
        try {
            read(dir.path() + name, file);
        } catch (Exception* e) {
            ++counter.errors_;
            args.errout() << e->toStringAll() << endl;
            e->destroy();
            return;
        }
        counter += file;
        // Outside the handler: a failure to print ends the walk, it is no file's error.
        if (args.verbose()) args.output() << L"[  " << name << L"] " << file.toString() << endl;
    };
    auto onDirectory = [&](const String& sub) {
        TagCounter below;
        readDir(sub, below, args);
        counter += below;
        if (args.verbose()) args.output() << L"[" << sub << L"] " << below.toString() << endl;
    };
    walkTree(path, onFile, onDirectory);
}

} // namespace ZELd
