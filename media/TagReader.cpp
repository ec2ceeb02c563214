#define ZEL_SOURCE "media/TagReader"
#include "media/TagReader.h"

#include "media/MainArguments.h"
#include "media/MediaInfo.h"
#include "media/TagLocation.h"
#include "media/Walk.h"
#include "zel/Exception.h"
#include "zel/File.h"
#include "zel/Files.h"
#include "zel/Writer.h"

namespace ZELd {

void TagReader::readDir(const String& path)
{
    walkTree(path, [this](const String& dir, const String& name) { read(dir, name); }, [this](const String& sub) { readDir(sub); });
}

void TagReader::read(const String& dir, const String& name)
{
    FileInfo info(dir, name);
    const String path = dir + name;
    info.size = Files::size(path);
    long long access, modification, creation;
    if (Files::time(path, access, modification, creation)) {
        info.atime.assign(access);
        info.mtime.assign(modification);
        info.ctime.assign(creation);
    }
    try {
        if (name.toLowerCase().endsWith(L".mp3")) readTag(path, info);
        MediaInfo media(path);
        info.inform = media.inform_r();
        info.format = media.format();
        if (media.videoCount() > 0) {
            info.width = media.videoWidth(0);
            info.height = media.videoHeight(0);
            info.duration = static_cast<uint32_t>(media.videoDurationAsSeconds(0));
        } else if (media.audioCount() > 0) {
            info.duration = static_cast<uint32_t>(media.audioDurationAsSeconds(0));
        } else if (media.imageCount() > 0) {
            info.width = media.imageWidth(0);
            info.height = media.imageHeight(0);
        }
    } catch (Exception* e) {
        info.notes = e->toString();
        args().errout() << e->toStringAll() << endl;
        e->destroy();
    }
    print(info);
    store(info);
}

void TagReader::readTag(const String& path, FileInfo& info)
{
    File file(path, File::kRead, File::kMode);
    TagLocation at(file);
    uint32_t apeVersion = 0; // 1 or 2 once an APE tag was read at the start: the end is then not searched
    if (at.id3v2()) info.id3v2.read(file, at.head);
    else if (at.apeHeader() && info.ape.read(file, at.head, 0)) apeVersion = info.ape.version() / 1000;
    at.readTail(file);
    long long position = 0;
    if (const char* footer = apeVersion == 0 ? at.apeFooter(position) : nullptr) info.ape.read(file, footer, position);
    if (const char* v1 = at.id3v1()) info.id3v1.read(v1);
}

void TagReader::print(const FileInfo& file) const
{
    Writer& out = args().output();
    const int32_t tags = file.id3v2.version() * 100 + static_cast<int32_t>(file.ape.version() / 100) + file.id3v1.version();
    out << fileRule << endl;
    out << L"DIR [" << file.dir << L"]" << endl;
    out << L"FILE[" << file.name << L"]" << endl;
    out.printf(L"    tags[%03d]", tags);
    out << L" size[" << static_cast<unsigned long long>(file.size) << L"]" << L" mtime[" << file.mtime.toString() << L"]"
        << L" notes[" << file.notes << L"]" << endl;
    out << L"    format[" << file.format << L"]" << L" width[" << file.width << L"]" << L" height[" << file.height << L"]"
        << L" duration[" << file.duration << L"]" << endl;
    if (!args().verbose()) return;
    if (file.id3v2.version() > 0) {
        out << sectionRule << endl << file.id3v2.toString() << endl;
        for (const ID3v2Frame* frame : file.id3v2.frames()) out << frame->toString() << endl;
    }
    if (file.ape.version() != 0) {
        out << sectionRule << endl << file.ape.toString() << endl;
        for (const APEv2Item* item : file.ape.items()) out << item->toString() << endl;
    }
    if (file.id3v1.version() > 0) out << sectionRule << endl << file.id3v1.toString() << endl;
    out << sectionRule << endl;
    out << file.inform << endl;
}

} // namespace ZELd
