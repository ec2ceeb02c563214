#define ZEL_SOURCE "media/TagReader"
#include "media/TagReader.h"

#include <fcntl.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <optional>

#include "media/CatalogueUpdate.h"
#include "media/MP3Properties.h"
#include "media/MainArguments.h"
#include "media/MediaFacts.h"
#include "media/Progress.h"
#include "media/RecordRows.h"
#include "media/TagLocation.h"
#include "media/WalkAhead.h"
#include "zel/Exception.h"
#include "zel/File.h"
#include "zel/FileName.h"
#include "zel/Files.h"
#include "zel/Process.h"
#include "zel/Writer.h"

namespace ZELd {

TagReader::TagReader(const MainArguments& arguments)
    : arguments(arguments), report(arguments.output(), arguments.errout(), arguments.verbose()),
      catalogue(arguments.errout(), arguments.output()),
      inFlight_(FilesInFlight::forTree(arguments.values().isEmpty() ? String() : arguments.values()[0], arguments.jobs())),
      probes_(inFlight_.probes, std::chrono::seconds(arguments.probeTimeout()), inFlight_.tagBytes, arguments.allFormats())
{
    const String& database = arguments.database();
    if (!catalogue.connect(database, arguments.dryrun())) return;
    Writer& out = arguments.output();
    out << L"Database connected. [" << catalogue.serverInfo() << L"] Using [" << database << L"]" << endl;
    switch (catalogue.prepareTables(arguments.dryrun(), arguments.allFormats())) {
    case Catalogue::Tables::Made: out << L"Tables made. [" << fromNativePath(catalogue.schemaFile()) << L"]" << endl; break;
    case Catalogue::Tables::Missing: out << L"The catalogue has no tables: a run without --dry-run makes them." << endl; break;
    case Catalogue::Tables::PropertiesMissing:
        out << L"The catalogue has no TAG_PROPERTY: a run without --dry-run makes it." << endl;
        break;
    case Catalogue::Tables::Held: break;
    }
}

void TagReader::readDir(const String& path)
{
    root_ = path;
    rootFacts_ = Files::examine(path);
    std::optional<CatalogueUpdate> update;
    if (args().update()) update.emplace(catalogue, path.endsWith(L"/") ? path : path + L"/", String());
    WalkAhead walk(path, probes_.lookAhead(), update ? &*update : nullptr, inFlight_.readers);
    Exception* stop = walkFiles(walk);
    try {
        if (update) endUpdate(*update);
    } catch (Exception*) {
        if (stop) stop->destroy(); // what ended the update's removals ends the run
        throw;
    }
    if (stop) throw stop;
}

Exception* TagReader::walkFiles(WalkAhead& walk)
{
    for (;;) {
        try {
            if (!walk.next()) return nullptr;
        } catch (Exception* e) {
            return e;
        }
        probes_.turn(walk.file(), walk.upcoming());
        read(walk.file());
    }
}

void TagReader::readFile(const String& dir, const String& name)
{
    WalkedFile file;
    file.dir = dir;
    file.name = name;
    file.path = nativePath(dir + name);
    file.facts = Files::examine(AT_FDCWD, file.path.c_str());
    if (!args().update()) return read(file);
    CatalogueUpdate update(catalogue, dir, name);
    update.entered(dir);
    update.judge(file);
    if (file.verdict != WalkedFile::Verdict::Unchanged) read(file);
    else Progress::file(dir);
    endUpdate(update);
}

void TagReader::checkTreeAfter(Exception* failure) const
{
    if (root_.isEmpty()) return; // one file, no tree
    const FileFacts now = Files::examine(root_);
    if (now.known() && now.device == rootFacts_.device && now.inode == rootFacts_.inode) return;
    failure->destroy();
    throw ZEL_NEW IOException(root_, L"Tree Unreachable", now.error);
}

void TagReader::endUpdate(CatalogueUpdate& update)
{
    update.finish(args().dryrun());
    args().output() << update.summary() << endl;
}

void TagReader::read(const WalkedFile& file)
{
    Progress::file(file.dir);
    if (!file.facts.known()) throw ZEL_NEW IOException(file.fullPath(), L"Size Failed", file.facts.error);
    FileInfo info(file.dir, file.name);
    FileFacts facts = file.facts;
    const bool isMP3 = file.name.toLowerCase().endsWith(L".mp3");
    try {
        if (isMP3) {
            if (std::unique_ptr<File> ahead = probes_.tagBytes(file)) readTag(*ahead, info);
            else readTag(file.fullPath(), info);
        }
        info.media = probes_.take(file, facts, args().allFormats() ? &info.properties : nullptr);
    } catch (Exception* e) {
        checkTreeAfter(e);
        info.notes = e->toString();
        args().errout() << e->toStringAll() << endl;
        e->destroy();
    }
    // What the readers took from an MP3 file, also when a failure cut the
    // reading short: the properties of the tag rows the file gets.
    if (args().allFormats() && isMP3) info.properties = mp3Properties(info.id3v2, info.ape, info.id3v1);
    info.size = facts.size;
    if (facts.known()) {
        info.atime.assign(facts.access);
        info.mtime.assign(facts.modification);
        info.ctime.assign(facts.creation);
    }
    print(info);
    persist(info, file.replaced);
}

void TagReader::readTag(const String& path, FileInfo& info)
{
    File file(path, File::kRead, File::kMode);
    readTag(file, info);
}

void TagReader::readTag(File& file, FileInfo& info)
{
    TagLocation at(file);
    uint32_t apeVersion = 0; // 1 or 2 once an APE tag was read at the start: the end is then not searched
    if (at.id3v2()) info.id3v2.read(file, at.head);
    else if (at.apeHeader() && info.ape.read(file, at.head, 0)) apeVersion = APEv2::Header::digit(info.ape.version());
    at.readTail(file);
    long long position = 0;
    if (const char* footer = apeVersion == 0 ? at.apeFooter(position) : nullptr) info.ape.read(file, footer, position);
    if (const char* v1 = at.id3v1()) info.id3v1.read(v1);
}

void TagReader::print(const FileInfo& file) const { report.print(file); }

void TagReader::persist(const FileInfo& file, const std::vector<RecordId>& replaced)
{
    if (args().dryrun()) return;
    catalogue.inTransaction([&] {
        catalogue.deleteRecords(replaced);
        report.rowsBegin();
        insertRecord(catalogue, file, report);
    });
}

} // namespace ZELd
