#define ZEL_SOURCE "media/TagReader"
#include "media/TagReader.h"

#include <algorithm>
#include <chrono>
#include <optional>

#include "media/MainArguments.h"
#include "media/MediaFacts.h"
#include "media/Progress.h"
#include "media/TagLocation.h"
#include "media/WalkAhead.h"
#include "zel/Exception.h"
#include "zel/File.h"
#include "zel/Files.h"
#include "zel/Process.h"
#include "zel/Writer.h"

namespace ZELd {

namespace {

constexpr size_t kRuleWidth = 80;

// The report's tags[...] number: the ID3v2 version in the hundreds, the APE
// version counted in tenths of its unit (20 for version 2000), the ID3v1
// version in the ones ("321": ID3v2.3, APE 2, ID3v1.1).
int32_t tagNumber(const FileInfo& file)
{
    return file.id3v2.version() * 100 + static_cast<int32_t>(file.ape.version() / (APEv2::Header::kVersionUnit / 10)) +
           file.id3v1.version();
}

} // namespace

TagReader::TagReader(const MainArguments& arguments)
    : arguments(arguments), fileRule(String().assign(L'=', kRuleWidth)), sectionRule(String().assign(L'-', kRuleWidth)),
      store(arguments.output(), arguments.errout(), sectionRule, arguments.verbose()),
      probes_(ZELUsableCores(), std::chrono::seconds(arguments.probeTimeout()))
{
    const String& database = arguments.database();
    if (!store.connect(database, arguments.dryrun())) return;
    arguments.output() << L"Database connected. [" << store.serverInfo() << L"] Using [" << database << L"]" << endl;
    store.prepareTables(arguments.dryrun());
}

namespace {
// Makes an update the reader's for as long as it lives.
class Updating {
public:
    Updating(CatalogueUpdate*& slot, CatalogueUpdate* update) : slot_(slot) { slot_ = update; }
    ~Updating() { slot_ = nullptr; }
    Updating(const Updating&) = delete;
    Updating& operator=(const Updating&) = delete;

private:
    CatalogueUpdate*& slot_;
};
} // namespace

void TagReader::readDir(const String& path)
{
    std::optional<CatalogueUpdate> update;
    if (args().update()) update.emplace(store, path.endsWith(L"/") ? path : path + L"/", String());
    const Updating updating(update_, update ? &*update : nullptr);
    // A file the update passes by is examined all the same.
    auto wanted = [&](const String& dir, const String& name) { return update->wanted(dir, name) || (Progress::file(dir), false); };
    WalkAhead walk(path, update ? WalkAhead::Wanted(wanted) : nullptr);
    Exception* stop = walkFiles(walk);
    try {
        if (update) endUpdate(*update, walk.finished(), walk.passed());
    } catch (Exception*) {
        if (stop) stop->destroy(); // what ended the update's removals ends the run
        throw;
    }
    if (stop) throw stop;
}

Exception* TagReader::walkFiles(WalkAhead& walk)
{
    const ProbeAhead::Upcoming upcoming = [&walk](size_t ahead, String& next) { return walk.upcoming(ahead, next); };
    for (;;) {
        try {
            if (!walk.next()) return nullptr;
        } catch (Exception* e) {
            return e;
        }
        probes_.turn(walk.dir() + walk.name(), upcoming);
        read(walk.dir(), walk.name());
    }
}

void TagReader::readFile(const String& dir, const String& name)
{
    if (!args().update()) return read(dir, name);
    CatalogueUpdate update(store, dir, name);
    const Updating updating(update_, &update);
    const bool wanted = update.wanted(dir, name);
    if (wanted) read(dir, name);
    else Progress::file(dir);
    endUpdate(update, {}, wanted ? 0 : 1);
}

void TagReader::endUpdate(CatalogueUpdate& update, const std::vector<String>& finished, size_t passed)
{
    update.finish(finished, passed, args().dryrun());
    args().output() << update.summary() << endl;
}

void TagReader::read(const String& dir, const String& name)
{
    Progress::file(dir);
    const std::vector<RecordId> replaced = update_ ? update_->reading(dir, name) : std::vector<RecordId>();
    FileInfo info(dir, name);
    const String path = dir + name;
    info.size = Files::size(path);
    long long access = 0, modification = 0, creation = 0;
    const bool timed = Files::time(path, access, modification, creation);
    if (timed) {
        info.atime.assign(access);
        info.mtime.assign(modification);
        info.ctime.assign(creation);
    }
    try {
        if (name.toLowerCase().endsWith(L".mp3")) readTag(path, info);
        info.media = probes_.take(path, {info.size, modification, timed});
    } catch (Exception* e) {
        info.notes = e->toString();
        args().errout() << e->toStringAll() << endl;
        e->destroy();
    }
    print(info);
    persist(info, replaced);
}

void TagReader::readTag(const String& path, FileInfo& info)
{
    File file(path, File::kRead, File::kMode);
    TagLocation at(file);
    uint32_t apeVersion = 0; // 1 or 2 once an APE tag was read at the start: the end is then not searched
    if (at.id3v2()) info.id3v2.read(file, at.head);
    else if (at.apeHeader() && info.ape.read(file, at.head, 0)) apeVersion = APEv2::Header::digit(info.ape.version());
    at.readTail(file);
    long long position = 0;
    if (const char* footer = apeVersion == 0 ? at.apeFooter(position) : nullptr) info.ape.read(file, footer, position);
    if (const char* v1 = at.id3v1()) info.id3v1.read(v1);
}

void TagReader::print(const FileInfo& file) const
{
    Writer& out = args().output();
    out << fileRule << endl;
    out << L"DIR [" << file.dir << L"]" << endl;
    out << L"FILE[" << file.name << L"]" << endl;
    out.printf(L"    tags[%03d]", tagNumber(file));
    out << L" size[" << static_cast<unsigned long long>(file.size) << L"]" << L" mtime[" << file.mtime.toString() << L"]" << L" notes["
        << file.notes << L"]" << endl;
    const MediaFacts& media = file.media;
    out << L"    format[" << media.format << L"]" << L" width[" << media.width << L"]" << L" height[" << media.height << L"]"
        << L" duration[" << media.duration << L"]" << endl;
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
    out << file.media.inform << endl;
}

void TagReader::persist(const FileInfo& file, const std::vector<RecordId>& replaced)
{
    if (!args().dryrun()) store.persist(file, replaced);
}

} // namespace ZELd
