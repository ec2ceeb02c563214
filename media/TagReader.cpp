#define ZEL_SOURCE "media/TagReader"
#include "media/TagReader.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <random>
#include <thread>

#include "media/MainArguments.h"
#include "media/MediaFacts.h"
#include "media/TagLocation.h"
#include "media/WalkAhead.h"
#include "zel/Exception.h"
#include "zel/File.h"
#include "zel/Files.h"
#include "zel/Process.h"
#include "zel/SQL.h"
#include "zel/Writer.h"

namespace ZELd {

namespace {

constexpr size_t kRuleWidth = 80;
// APE versions are 1000 and 2000: divided by this, their digit.
constexpr uint32_t kApeVersionDigit = 1000;
// How many times a file is stored when other runs keep taking its ids, the
// longest wait before the next attempt, in milliseconds, and how far past
// the stored ids the next attempt starts at most, per attempt. Runs that met
// each other wait for random times and move their ids apart by random steps,
// and so stop meeting: a run that is storing without a pause would otherwise
// take the ids of every attempt of another one.
constexpr int kStoreAttempts = 10;
constexpr int kLongestWaitMilliseconds = 200;
constexpr int kLongestIdStep = 8;

std::minstd_rand& retryRandom()
{
    static std::minstd_rand random(static_cast<unsigned>(::getpid()) ^ static_cast<unsigned>(std::time(nullptr)));
    return random;
}

void waitBeforeAttempt(int attempt)
{
    const int longest = std::min(kLongestWaitMilliseconds, 2 << attempt);
    std::this_thread::sleep_for(std::chrono::milliseconds(std::uniform_int_distribution<int>(1, longest)(retryRandom())));
}

// The report's tags[...] number: the ID3v2 version in the hundreds, the APE
// version's digit in the tens, the ID3v1 version in the ones ("321": ID3v2.3,
// APE 2, ID3v1.1).
int32_t tagNumber(const FileInfo& file)
{
    return file.id3v2.version() * 100 + static_cast<int32_t>(file.ape.version() / 100) + file.id3v1.version();
}

} // namespace

TagReader::TagReader(const MainArguments& arguments)
    : arguments(arguments), probes_(ZELUsableCores(), std::chrono::seconds(arguments.probeTimeout()))
{
    const String& database = arguments.database();
    if (store.connect(database)) arguments.output() << L"Database connected. [" << store.serverInfo() << L"] Using [" << database << L"]" << endl;
    fileRule.assign(L'=', kRuleWidth);
    sectionRule.assign(L'-', kRuleWidth);
}

void TagReader::readDir(const String& path)
{
    WalkAhead walk(path);
    const ProbeAhead::Upcoming upcoming = [&walk](size_t ahead, String& next) { return walk.upcoming(ahead, next); };
    while (walk.next()) {
        probes_.turn(walk.dir() + walk.name(), upcoming);
        read(walk.dir(), walk.name());
    }
}

void TagReader::read(const String& dir, const String& name)
{
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
        MediaFacts facts = probes_.take(path, {info.size, modification, timed});
        facts.moveTo(info);
    } catch (Exception* e) {
        info.notes = e->toString();
        args().errout() << e->toStringAll() << endl;
        e->destroy();
    }
    print(info);
    persistInTransaction(info);
}

void TagReader::readTag(const String& path, FileInfo& info)
{
    File file(path, File::kRead, File::kMode);
    TagLocation at(file);
    uint32_t apeVersion = 0; // 1 or 2 once an APE tag was read at the start: the end is then not searched
    if (at.id3v2()) info.id3v2.read(file, at.head);
    else if (at.apeHeader() && info.ape.read(file, at.head, 0)) apeVersion = info.ape.version() / kApeVersionDigit;
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

void TagReader::persistInTransaction(const FileInfo& file)
{
    if (args().dryrun() || !store.ready()) return;
    for (int attempt = 1;; ++attempt) {
        store.begin();
        Exception* failure = nullptr;
        try {
            persist(file);
            store.commit();
            return;
        } catch (Exception* e) {
            failure = e;
        }
        rollBack(failure);
        // Another run storing into the same catalogue took the file's ids: store it again under new ones.
        const auto* sql = dynamic_cast<const SQLException*>(failure);
        if (sql && sql->conflict() && attempt < kStoreAttempts) {
            failure->destroy();
            store.reloadIds(std::uniform_int_distribution<int>(0, kLongestIdStep * attempt)(retryRandom()));
            waitBeforeAttempt(attempt);
            continue;
        }
        args().errout() << failure->toStringAll() << endl;
        failure->destroy();
        return;
    }
}

void TagReader::rollBack(Exception* failure)
{
    try {
        store.rollback();
    } catch (Exception*) {
        // The walk stops on the rollback's failure; the failure that called
        // for the rollback says what went wrong (a lost server, a full disk).
        args().errout() << failure->toStringAll() << endl;
        failure->destroy();
        throw;
    }
    // A failure to print the trace lines is no failure of the file: it ends the walk.
    if (args().output().failed()) throw failure;
}

void TagReader::persist(const FileInfo& file)
{
    Writer& out = args().output();
    out << sectionRule << endl;
    store.loadIds();
    const DateTime now = DateTime::getCurrentLocalTime();
    if (!store.isCurrentDir(file.dir)) {
        const int32_t dirId = store.insertDir(file.dir, now);
        out << L"    INSERT STOR_DIR [" << dirId << L"][" << file.dir << L"]" << endl;
    }
    const int64_t fileId = store.insertFile(file, now);
    out << L"    INSERT STOR_FILE [" << static_cast<long long>(fileId) << L"][" << file.name << L"]" << endl;
    if (file.id3v1.version() > 0) persistID3v1(file);
    const bool verbose = args().verbose();
    if (file.id3v2.version() > 0) {
        store.insertID3v2(file.id3v2);
        if (verbose) out << L"    INSERT ID3V2 ID3V2_FRAME[" << static_cast<unsigned long long>(file.id3v2.frames().size()) << L"]" << endl;
    }
    if (file.ape.version() != 0) {
        store.insertApe(file.ape);
        if (verbose) out << L"    INSERT APE APE_ITEM[" << static_cast<unsigned long long>(file.ape.items().size()) << L"]" << endl;
    }
}

void TagReader::persistID3v1(const FileInfo& file)
{
    const ID3v1& tag = file.id3v1;
    if (tag.title().isEmpty()) {
        args().errout() << L"Title is NULL " << tag.toString() << L" [" << file.dir << file.name << L"]" << endl;
        return;
    }
    store.insertID3v1(tag);
    if (args().verbose()) args().output() << L"    INSERT ID3V1" << endl;
}

} // namespace ZELd
