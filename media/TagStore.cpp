// The database side of the tag reader: the connection and the rows of each file.
#define ZEL_SOURCE "media/TagStore"
#include "media/MainArguments.h"
#include "media/TagReader.h"
#include "zel/Exception.h"
#include "zel/SQL.h"
#include "zel/Writer.h"

namespace ZELd {

namespace {

const wchar_t* const kInsertDir = L"INSERT INTO STOR_DIR (DIR_ID, PATH, CREA_TS, MODI_TS)\nVALUES (:DIR_ID, :PATH, :CREA_TS, :MODI_TS)";
const wchar_t* const kInsertFile =
    L"INSERT INTO STOR_FILE (FILE_ID, NAME, USER_ID, STOR_ID, TYPE_ID, DIR_ID, FILE_NM, FILE_SZ, FILE_AT, FILE_MT, FILE_CT, FILE_ER, "
    L"MEDI_FM, MEDI_WI, MEDI_HE, MEDI_DU, MEDI_NF, READ_CO, CREA_TS, MODI_TS)\nVALUES (:FILE_ID, :NAME, 0, 0, 0, :DIR_ID, :FILE_NM, "
    L":FILE_SZ, :FILE_AT, :FILE_MT, :FILE_CT, :FILE_ER, :MEDI_FM, :MEDI_WI, :MEDI_HE, :MEDI_DU, :MEDI_NF, 0, :CREA_TS, :MODI_TS)";
const wchar_t* const kInsertID3v1 = L"INSERT INTO ID3V1 (FILE_ID, TITLE, ARTIST, ALBUM, YEAR_, COMMENT_, TRACK, GENRE)\nVALUES (:FILE_ID, "
                                    L":TITLE, :ARTIST, :ALBUM, :YEAR_, :COMMENT_, :TRACK, :GENRE)";
const wchar_t* const kInsertID3v2 = L"INSERT INTO ID3V2 (FILE_ID, VERSION, FLAGS, SIZE_, FSBITS)\nVALUES (:FILE_ID, :VERSION, :FLAGS, :SIZE_, :FSBITS)";
const wchar_t* const kInsertFrame =
    L"INSERT INTO ID3V2_FRAME (FILE_ID, NO_, FRAME_ID, SIZE_, FLAGS, ENCODING, TYPE_, URL, DESCRIPTION, TEXT_, BINARY_)\nVALUES "
    L"(:FILE_ID, :NO_, :FRAME_ID, :SIZE_, :FLAGS, :ENCODING, :TYPE_, :URL, :DESCRIPTION, :TEXT_, :BINARY_)";
const wchar_t* const kInsertApe = L"INSERT INTO APE (FILE_ID, VERSION, SIZE_, COUNT_, FLAGS)\nVALUES (:FILE_ID, :VERSION, :SIZE_, :COUNT_, :FLAGS)";
const wchar_t* const kInsertItem =
    L"INSERT INTO APE_ITEM (FILE_ID, NO_, SIZE_, FLAGS, KEY_, VALUE_)\nVALUES (:FILE_ID, :NO_, :SIZE_, :FLAGS, :KEY_, :VALUE_)";

constexpr short kTimestamp = -32768;

void text(SQLParam* p, const String& value) { p->setValue(value, SQL::Text); }

void textOrNull(SQLParam* p, const String& value)
{
    if (value.isEmpty()) p->setNull();
    else p->setValue(value, SQL::Text);
}

void time(SQLParam* p, const DateTime& value) { p->setValue(value, kTimestamp); }

} // namespace

TagReader::TagReader(const MainArguments& arguments) : arguments(arguments)
{
    const String& database = arguments.database();
    const size_t found = database.search(L"DRIVER *=", true);
    if (found != String::npos) {
        String driver = database.substring(L"DRIVER *= *[^;]+", true);
        if (driver.isEmpty()) driver = database.substring(found);
        if (!driver.isEmpty()) {
            // A value in braces names an ODBC driver, which the ODBC module handles.
            const String name = driver.indexOf(L'{') != String::npos ? String(L"ZELODBC") : driver.substring(driver.indexOf(L'=') + 1).trim();
            if (!name.isEmpty()) {
                connection = ZEL_NEW SQLConnection(name);
                try {
                    connection->open(database);
                } catch (Exception*) {
                    delete connection;
                    connection = nullptr;
                    throw;
                }
                arguments.output() << L"Database connected. [" << connection->getServerInfo() << L"] Using [" << database << L"]" << endl;
            }
        }
    }
    fileRule.assign(L'=', 80);
    sectionRule.assign(L'-', 80);
}

TagReader::~TagReader() { delete connection; }

void TagReader::store(const FileInfo& file)
{
    if (args().dryrun() || !connection || !connection->connected()) return;
    connection->startTrans();
    Exception* failure = nullptr;
    try {
        persist(file);
        connection->commitTrans();
    } catch (Exception* e) {
        failure = e;
    }
    if (!failure) return;
    // The file's rows are gone, its directory row with them: the next file
    // of that directory writes the row again.
    currentDir = String();
    try {
        connection->rollbackTrans();
    } catch (Exception*) {
        // The walk stops on the rollback's failure; the failure that called
        // for the rollback says what went wrong (a lost server, a full disk).
        args().errout() << failure->toStringAll() << endl;
        failure->destroy();
        throw;
    }
    args().errout() << failure->toStringAll() << endl;
    failure->destroy();
}

void TagReader::persist(const FileInfo& file)
{
    Writer& out = args().output();
    out << sectionRule << endl;
    if (dirId == 0) {
        SQLQuery q(connection);
        q.execute(L"SELECT COALESCE(MAX(DIR_ID), 1000) FROM STOR_DIR");
        q.fetch();
        dirId = q.fields()[0].asInt32();
    }
    if (fileId == 0) {
        SQLQuery q(connection);
        q.execute(L"SELECT COALESCE(MAX(FILE_ID), 10000) FROM STOR_FILE");
        q.fetch();
        fileId = q.fields()[0].asInt64();
    }
    const DateTime now = DateTime::getCurrentLocalTime();

    if (currentDir != file.dir) {
        currentDir = file.dir;
        ++dirId;
        SQLQuery q(connection);
        q.prepare(kInsertDir);
        SQLParams& p = q.params();
        p[0].setValue(dirId);
        p[1].setValue(currentDir, SQL::Text);
        p[2].setValue(now, kTimestamp);
        p[3].setValue(now, kTimestamp);
        q.execute();
        out << L"    INSERT STOR_DIR [" << dirId << L"][" << currentDir << L"]" << endl;
    }

    ++fileId;
    {
        SQLQuery q(connection);
        q.prepare(kInsertFile);
        SQLParams& p = q.params();
        p.byName(L"FILE_ID")->setValue(static_cast<long long>(fileId));
        text(p.byName(L"NAME"), file.name);
        p.byName(L"DIR_ID")->setValue(dirId);
        text(p.byName(L"FILE_NM"), file.name);
        p.byName(L"FILE_SZ")->setValue(static_cast<unsigned long long>(file.size));
        time(p.byName(L"FILE_AT"), file.atime);
        time(p.byName(L"FILE_MT"), file.mtime);
        time(p.byName(L"FILE_CT"), file.ctime);
        text(p.byName(L"FILE_ER"), file.notes);
        text(p.byName(L"MEDI_FM"), file.format);
        p.byName(L"MEDI_WI")->setValue(static_cast<unsigned int>(file.width));
        p.byName(L"MEDI_HE")->setValue(static_cast<unsigned int>(file.height));
        p.byName(L"MEDI_DU")->setValue(static_cast<unsigned int>(file.duration));
        text(p.byName(L"MEDI_NF"), file.inform);
        time(p.byName(L"CREA_TS"), now);
        time(p.byName(L"MODI_TS"), now);
        q.execute();
        out << L"    INSERT STOR_FILE [" << static_cast<long long>(fileId) << L"][" << file.name << L"]" << endl;
    }

    const ID3v1& v1 = file.id3v1;
    if (v1.version() > 0) {
        if (v1.title().isEmpty()) {
            args().errout() << L"Title is NULL " << v1.toString() << L" [" << file.dir << file.name << L"]" << endl;
        } else {
            SQLQuery q(connection);
            q.prepare(kInsertID3v1);
            SQLParams& p = q.params();
            p.byName(L"FILE_ID")->setValue(static_cast<long long>(fileId));
            text(p.byName(L"TITLE"), v1.title());
            textOrNull(p.byName(L"ARTIST"), v1.artist());
            textOrNull(p.byName(L"ALBUM"), v1.album());
            textOrNull(p.byName(L"YEAR_"), v1.year());
            textOrNull(p.byName(L"COMMENT_"), v1.comment());
            p.byName(L"TRACK")->setValue(static_cast<int>(v1.track()));
            p.byName(L"GENRE")->setValue(static_cast<int>(v1.genre()));
            q.execute();
            if (args().verbose()) out << L"    INSERT ID3V1" << endl;
        }
    }

    const ID3v2& v2 = file.id3v2;
    if (v2.version() > 0) {
        SQLQuery q(connection);
        q.prepare(kInsertID3v2);
        SQLParams& p = q.params();
        p.byName(L"FILE_ID")->setValue(static_cast<long long>(fileId));
        p.byName(L"VERSION")->setValue(static_cast<int>(v2.version()));
        p.byName(L"FLAGS")->setValue(static_cast<int>(v2.flags()));
        p.byName(L"SIZE_")->setValue(static_cast<unsigned int>(v2.size()));
        p.byName(L"FSBITS")->setValue(static_cast<unsigned int>(v2.fsbits()));
        q.execute();
        q.prepare(kInsertFrame);
        SQLParams& f = q.params();
        const PointerArray<ID3v2Frame>& frames = v2.frames();
        for (size_t i = 0; i < frames.size(); ++i) {
            const ID3v2Frame& frame = *frames[i];
            f.byName(L"FILE_ID")->setValue(static_cast<long long>(fileId));
            f.byName(L"NO_")->setValue(static_cast<int>(i + 1));
            text(f.byName(L"FRAME_ID"), frame.id());
            f.byName(L"SIZE_")->setValue(static_cast<unsigned int>(frame.size()));
            f.byName(L"FLAGS")->setValue(static_cast<short>(frame.flags()));
            f.byName(L"ENCODING")->setValue(static_cast<int>(frame.encoding()));
            f.byName(L"TYPE_")->setValue(static_cast<int>(frame.type()));
            textOrNull(f.byName(L"URL"), frame.url());
            textOrNull(f.byName(L"DESCRIPTION"), frame.description());
            textOrNull(f.byName(L"TEXT_"), frame.text());
            const size_t bytes = frame.binary().length();
            if (bytes >= 1 && bytes <= 100) f.byName(L"BINARY_")->setValue(frame.binary(), SQL::Bytes);
            else f.byName(L"BINARY_")->setNull();
            q.execute();
        }
        if (args().verbose()) out << L"    INSERT ID3V2 ID3V2_FRAME[" << static_cast<unsigned long long>(frames.size()) << L"]" << endl;
    }

    const APEv2& ape = file.ape;
    if (ape.version() != 0) {
        SQLQuery q(connection);
        q.prepare(kInsertApe);
        SQLParams& p = q.params();
        p.byName(L"FILE_ID")->setValue(static_cast<long long>(fileId));
        p.byName(L"VERSION")->setValue(static_cast<unsigned int>(ape.version()));
        p.byName(L"SIZE_")->setValue(static_cast<unsigned int>(ape.size()));
        p.byName(L"COUNT_")->setValue(static_cast<unsigned int>(ape.count()));
        p.byName(L"FLAGS")->setValue(static_cast<int>(ape.flags()));
        q.execute();
        q.prepare(kInsertItem);
        SQLParams& f = q.params();
        const PointerArray<APEv2Item>& items = ape.items();
        for (size_t i = 0; i < items.size(); ++i) {
            const APEv2Item& item = *items[i];
            f.byName(L"FILE_ID")->setValue(static_cast<long long>(fileId));
            f.byName(L"NO_")->setValue(static_cast<int>(i + 1));
            f.byName(L"SIZE_")->setValue(static_cast<unsigned int>(item.size()));
            f.byName(L"FLAGS")->setValue(static_cast<int>(item.flags()));
            text(f.byName(L"KEY_"), item.key());
            textOrNull(f.byName(L"VALUE_"), item.value());
            q.execute();
        }
        if (args().verbose()) out << L"    INSERT APE APE_ITEM[" << static_cast<unsigned long long>(items.size()) << L"]" << endl;
    }
}

} // namespace ZELd
