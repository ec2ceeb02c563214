#include "media/MainArguments.h"

#include "zel/Exception.h"
#include "zel/StringBuilder.h"

namespace ZELd {

namespace {

constexpr int kCharset = 0x110000; // no character's code: --charset has no one-letter form

const Arguments::Option __options__[] = {
    {L"summary", 's', nullptr, nullptr, L"Summary of tag items"},
    {L"verbose", 'v', nullptr, nullptr, L"Produce verbose output"},
    {L"charset", kCharset, L"NAME", nullptr, L"read text that tags mark as Latin-1 in this character set, e.g. CP1251, SHIFT_JIS, GBK"},
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
    {nullptr, 0, nullptr, nullptr, nullptr},
};

} // namespace

MainArguments::MainArguments(Writer& output, Writer& errout)
    : Arguments(output, errout, kProgramName, L"sonarcat 1.1.2", L"sonarcat-maintainers@lists.example.org", L"PATH", L"Collects mp3 tags",
                __options__)
{
}

void MainArguments::onOption(int id, const String& value)
{
    switch (id) {
    case 'd': _database = value; break;
    case 'n': _dryrun = true; break;
    case 's': _summary = true; break;
    case 'v': _verbose = true; break;
    case kCharset: charset_ = value; break;
    default: break;
    }
}

// The name is known when iconv opens it: the run's one descriptor, opened here.
bool MainArguments::onValidate()
{
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
    if (charset_) b.append(L" --charset=").append(*charset_);
    b.append(L" values[").append(values().toString()).append(L"]");
    return b.toString();
}

} // namespace ZELd
