#include "media/MainArguments.h"

#include "zel/Exception.h"
#include "zel/Numbers.h"
#include "zel/StringBuilder.h"

namespace ZELd {

namespace {

// Options without a one-letter form have ids above any character's code.
enum : int { kProbeTimeout = 0x110000, kCharset, kJobs, kAllFormats };
// The longest deadline a probe may be given: a day.
constexpr unsigned kLongestProbeTimeout = 86400;
// The most files read at once that --jobs may ask for.
constexpr unsigned kMostJobs = 256;

// A decimal number of at most `digits` digits, or `otherwise`.
unsigned number(const String& text, size_t digits, unsigned otherwise)
{
    const std::wstring& s = text.str();
    const bool ok = !s.empty() && s.size() <= digits && s.find_first_not_of(L"0123456789") == std::wstring::npos;
    return ok ? UInt32::parse(text, 10, 0) : otherwise;
}

const Arguments::Option __options__[] = {
    {L"summary", 's', nullptr, nullptr, L"Summary of tag items"},
    {L"verbose", 'v', nullptr, nullptr, L"Produce verbose output"},
    {L"probe-timeout", kProbeTimeout, L"SECONDS", L"10", L"seconds a file's media probe may take; 0: no limit"},
    {L"charset", kCharset, L"NAME", nullptr, L"read text that tags mark as Latin-1 in this character set, e.g. CP1251, SHIFT_JIS, GBK"},
    {L"jobs", kJobs, L"N", nullptr, L"files read at once (default: the cores on a local disk, 8 per core, at most 16, on a network share)"},
    {L"all-formats", kAllFormats, nullptr, nullptr,
     L"also read the tags of every other audio format (FLAC, Ogg, Opus, MP4, WMA, WavPack, ...) and store every file's tags under common "
     L"names"},
    {nullptr, 0, nullptr, nullptr, L"The following options should be grouped together:"},
    {L"database", 'd', L"STRING", nullptr,
     L"Database connection."
     L"\n\t\t\t    DRIVER=ZELFirebird;USER=sysdba;PASSWORD=masterkey;SERVER=localhost/3050;DATABASE=/var/lib/firebird/data/music.fdb"
     L"\n\t\t\t    DRIVER=ZELInformix;USER=informix;PASSWORD=secret;SERVER=ol_informix;DATABASE=music"
     L"\n\t\t\t    DRIVER=ZELInterBase;USER=sysdba;PASSWORD=masterkey;SERVER=localhost/3050;DATABASE=/opt/interbase/data/music.ib"
     L"\n\t\t\t    DRIVER=ZELMariaDB; USER=music;PASSWORD=secret;SERVER=localhost;PORT=3306;DATABASE=music"
     L"\n\t\t\t    DRIVER=ZELOracle;  USER=music;PASSWORD=secret;DATABASE=localhost:1521/FREEPDB1"
     L"\n\t\t\t    DRIVER=ZELPostgreSQL;USER=music;PASSWORD=secret;SERVER=localhost;PORT=5432;DATABASE=music"
     L"\n\t\t\t    DRIVER=ZELSQLCipher; DATABASE=music.sqlcipher;KEY=secret"
     L"\n\t\t\t    DRIVER=ZELSQLite3;   DATABASE=music.sqlite3"
     L"\n\t\t\t    DRIVER={ODBC Driver 18 for SQL Server};Server=localhost,1433;Database=music;UID=sa;PWD=Secret1!"},
    {L"dry-run", 'n', nullptr, nullptr, L"perform a trial run with no changes made"},
    {L"update", 'u', nullptr, nullptr, L"update the catalogue: read only new and changed files, remove those that are gone"},
    {nullptr, 0, nullptr, nullptr, nullptr},
};

} // namespace

MainArguments::MainArguments(Writer& output, Writer& errout)
    : Arguments(output, errout, kProgramName, L"sonarcat 1.1.2", L"sonarcat-maintainers@lists.example.org", L"PATH", L"Collects mp3 tags",
                __options__)
{}

void MainArguments::onOption(int id, const String& value)
{
    switch (id) {
    case 'd': _database = value; break;
    case 'n': _dryrun = true; break;
    case 's': _summary = true; break;
    case 'u': update_ = true; break;
    case 'v': _verbose = true; break;
    case kProbeTimeout: probeTimeoutText_ = value; break;
    case kCharset: charset_ = value; break;
    case kJobs: jobsText_ = value; break;
    case kAllFormats: allFormats_ = true; break;
    default: break;
    }
}

// An update needs a catalogue. A probe timeout is a number of seconds, jobs
// a number of files. A
// character set is known when iconv opens it: the run's one descriptor,
// opened here.
bool MainArguments::onValidate()
{
    if (update_ && _summary) return refuse(L"--update cannot go with --summary: the census stores nothing");
    if (update_ && _database.isEmpty()) return refuse(L"--update needs --database: it updates a catalogue");
    if (probeTimeoutText_) {
        probeTimeout_ = number(*probeTimeoutText_, 5, kLongestProbeTimeout + 1);
        if (probeTimeout_ > kLongestProbeTimeout)
            return refuse(String::format(L"invalid probe timeout '%ls': a number of seconds from 0 (no limit) to %u", *probeTimeoutText_,
                                         kLongestProbeTimeout));
    }
    if (jobsText_) {
        jobs_ = number(*jobsText_, 3, 0);
        if (jobs_ == 0 || jobs_ > kMostJobs)
            return refuse(String::format(L"invalid jobs '%ls': a number of files from 1 to %u", *jobsText_, kMostJobs));
    }
    if (charset_) {
        try {
            decoder_.emplace(*charset_);
        } catch (CharsetConvertException* e) {
            const String why = e->toString();
            e->destroy();
            return refuse(why);
        }
    }
    return Arguments::onValidate();
}

String MainArguments::toString() const
{
    StringBuilder b(32);
    b.append(value0());
    b.append(L" --verbose=").append(String::valueOf(_verbose));
    b.append(L" --summary=").append(String::valueOf(_summary));
    b.append(L" --database=").append(_database);
    b.append(L" --dry-run=").append(String::valueOf(_dryrun));
    if (update_) b.append(L" --update=true");
    if (probeTimeoutText_) b.append(L" --probe-timeout=").append(*probeTimeoutText_);
    if (charset_) b.append(L" --charset=").append(*charset_);
    if (jobsText_) b.append(L" --jobs=").append(*jobsText_);
    if (allFormats_) b.append(L" --all-formats");
    b.append(L" values[").append(values().toString()).append(L"]");
    return b.toString();
}

} // namespace ZELd
