#define ZEL_SOURCE "media/TagStore"
#include "media/TagStore.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <random>
#include <thread>

#include "media/CatalogueSchema.h"
#include "zel/FileName.h"
#include "zel/Numbers.h"
#include "zel/SQL.h"
#include "zel/Writer.h"

namespace ZELd {

namespace {

// Binary frame data longer than this is not stored.
constexpr size_t kMaxStoredBinary = 100;
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

int randomUpTo(int most) { return std::uniform_int_distribution<int>(0, most)(retryRandom()); }

// Another run storing into the same catalogue took the file's ids, or the two deadlocked.
bool isConflict(const Exception* failure)
{
    const auto* sql = dynamic_cast<const SQLException*>(failure);
    return sql && sql->conflict();
}

void text(SQLParam* p, const String& value) { p->setValue(value, SQL::Text); }

void textOrNull(SQLParam* p, const String& value)
{
    if (value.isEmpty()) p->setNull();
    else p->setValue(value, SQL::Text);
}

void time(SQLParam* p, const DateTime& value) { p->setValue(value, SQL::TimestampWithoutZone); }

// The driver that the DRIVER key of a connection string names; empty when
// there is no DRIVER key or its value is blank.
String driverName(const String& database)
{
    const size_t found = database.search(L"DRIVER *=", true);
    if (found == String::npos) return String();
    String driver = database.substring(L"DRIVER *= *[^;]+", true);
    if (driver.isEmpty()) driver = database.substring(found);
    if (driver.isEmpty()) return String();
    // A value in braces names an ODBC driver, which the ODBC module handles.
    if (driver.indexOf(L'{') != String::npos) return String(L"ZELODBC");
    return driver.substring(driver.indexOf(L'=') + 1).trim();
}

} // namespace

TagStore::~TagStore() { delete connection; }

bool TagStore::connect(const String& database, bool dryRun)
{
    driver_ = driverName(database);
    if (driver_.isEmpty()) return false;
    // Should open throw, the destructor deletes the half-made connection.
    connection = ZEL_NEW SQLConnection(driver_);
    connection->open(database, !dryRun);
    return true;
}

namespace {

// The tables the catalogue lacks, named in a list, and their number.
std::wstring missingTables(SQLConnection* connection, size_t& count)
{
    std::wstring missing;
    count = 0;
    for (const wchar_t* table : kCatalogueTables) {
        try {
            SQLQuery(connection).execute(String(L"SELECT COUNT(*) FROM ") + table + L" WHERE 1 = 0");
        } catch (Exception* e) {
            e->destroy();
            missing += (count++ == 0 ? L"" : L", ") + std::wstring(table);
        }
    }
    return missing;
}

// Runs a lock's statement; false when its row does not say that the lock is taken.
bool lockStatement(SQLConnection* connection, const wchar_t* statement)
{
    SQLQuery q(connection);
    q.execute(statement);
    return q.fetch() && q.fields()[0].asInt64() == 1;
}

// Makes the tables in one transaction; the failure, the transaction rolled back, else null.
Exception* makeTables(SQLConnection* connection, const SchemaFile& schema)
{
    try {
        connection->startTrans();
        for (const String& statement : schemaStatements(schema.text)) SQLQuery(connection).execute(statement);
        connection->commitTrans();
        return nullptr;
    } catch (Exception* failure) {
        try {
            connection->rollbackTrans();
        } catch (Exception* e) {
            e->destroy(); // the failure that called for the rollback says what went wrong
        }
        return failure;
    }
}

} // namespace

void TagStore::prepareTables(bool dryRun)
{
    constexpr size_t kAll = std::size(kCatalogueTables);
    size_t missing = 0;
    std::wstring names = missingTables(connection, missing);
    if (missing == 0) return;
    const auto partial = [&] {
        return ZEL_NEW SQLException(L"The catalogue holds only some of its seven tables: [" + String(std::move(names)) +
                                    L"] are missing. It is left as it is: complete it with its schema file, or name an empty catalogue");
    };
    if (dryRun) {
        if (missing < kAll) throw partial();
        tables_ = false;
        out_ << L"The catalogue has no tables: a run without --dry-run makes them." << endl;
        return;
    }
    // Other runs may be looking at the same empty catalogue: look again under
    // the lock, or after a failure to make the tables.
    const SchemaFile* schema = schemaFor(driver_, serverInfo());
    const TablesLock lock = schema ? tablesLockFor(*schema) : TablesLock();
    if (lock.take && !lockStatement(connection, lock.take))
        throw ZEL_NEW SQLException(L"Another run kept the catalogue's tables to itself for a minute: [" + String(lock.take) + L"]");
    Exception* failure = nullptr;
    bool made = false, someBefore = lock.take && missing < kAll;
    for (int attempt = 1;; ++attempt) {
        if (lock.take || attempt > 1) names = missingTables(connection, missing);
        if (missing == 0) break; // made by another run
        if (missing < kAll) {
            // A look that another run's commit cut in two sees some of the
            // tables: they are refused when two looks in a row see some.
            if (someBefore || attempt == kStoreAttempts) {
                failure = partial();
                break;
            }
            someBefore = true;
        } else {
            someBefore = false;
            if (!schema) {
                failure = ZEL_NEW SQLException(L"The catalogue has no tables, and there is no schema file for [" + serverInfo() + L"]");
                break;
            }
            failure = makeTables(connection, *schema);
            if ((made = !failure) || attempt == kStoreAttempts) break;
            failure->destroy();
            failure = nullptr;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1 + randomUpTo(kLongestWaitMilliseconds)));
    }
    try {
        if (lock.release) lockStatement(connection, lock.release);
    } catch (Exception* e) {
        if (!failure) throw;
        e->destroy(); // the failure before it says what went wrong
    }
    if (failure) throw failure;
    if (made) out_ << L"Tables made. [" << fromNativePath(schema->name) << L"]" << endl;
}

bool TagStore::ready() const { return connection && connection->connected(); }

String TagStore::serverInfo() const { return connection->getServerInfo(); }

void TagStore::persist(const FileInfo& file, const std::vector<RecordId>& replaced)
{
    inTransaction([&] {
        deleteRows(replaced);
        writeRows(file);
    });
}

bool TagStore::remove(const std::vector<RecordId>& records)
{
    return inTransaction([&] { deleteRows(records); });
}

bool TagStore::inTransaction(const std::function<void()>& work)
{
    if (!ready()) return false;
    for (int attempt = 1;; ++attempt) {
        Exception* failure = nullptr;
        try {
            connection->startTrans();
            work();
            connection->commitTrans();
            return true;
        } catch (Exception* e) {
            failure = e;
        }
        if (Exception* fatal = rollBack(failure)) throw fatal;
        if (isConflict(failure) && attempt < kStoreAttempts) { // stored again under new ids
            failure->destroy();
            reload_ = true;
            skipIds_ = randomUpTo(kLongestIdStep * attempt);
            std::this_thread::sleep_for(std::chrono::milliseconds(1 + randomUpTo(std::min(kLongestWaitMilliseconds, 2 << attempt) - 1)));
            continue;
        }
        errout_ << failure->toStringAll() << endl;
        failure->destroy();
        return false;
    }
}

Exception* TagStore::rollBack(Exception* failure)
{
    currentDir = String(); // the file's directory row goes with its other rows
    try {
        connection->rollbackTrans();
    } catch (Exception* fatal) {
        // The walk stops on the rollback's failure; the failure that called
        // for the rollback says what went wrong (a lost server, a full disk).
        errout_ << failure->toStringAll() << endl;
        failure->destroy();
        return fatal;
    }
    // A failure to print the trace lines is no failure of the file: it ends the walk.
    return out_.failed() ? failure : nullptr;
}

void TagStore::writeRows(const FileInfo& file)
{
    out_ << rule_ << endl;
    loadIds();
    const DateTime now = DateTime::getCurrentLocalTime();
    // Each line follows its row out.
    if (file.dir != currentDir) {
        const int32_t dir = insertDir(file.dir, now);
        out_ << L"    INSERT STOR_DIR [" << dir << L"][" << file.dir << L"]" << endl;
    }
    const int64_t id = insertFile(file, now);
    out_ << L"    INSERT STOR_FILE [" << static_cast<long long>(id) << L"][" << file.name << L"]" << endl;
    if (file.id3v1.version() > 0) {
        if (file.id3v1.title().isEmpty()) { // a tag without a title is no row
            errout_ << L"Title is NULL " << file.id3v1.toString() << L" [" << file.dir << file.name << L"]" << endl;
        } else {
            insertID3v1(file.id3v1);
            if (verbose_) out_ << L"    INSERT ID3V1" << endl;
        }
    }
    if (file.id3v2.version() > 0) {
        insertID3v2(file.id3v2);
        if (verbose_)
            out_ << L"    INSERT ID3V2 ID3V2_FRAME[" << static_cast<unsigned long long>(file.id3v2.frames().size()) << L"]" << endl;
    }
    if (file.ape.version() != 0) {
        insertApe(file.ape);
        if (verbose_) out_ << L"    INSERT APE APE_ITEM[" << static_cast<unsigned long long>(file.ape.items().size()) << L"]" << endl;
    }
}

namespace {
const wchar_t* const kSelectStored =
    L"SELECT d.PATH, f.NAME, f.FILE_ID, f.DIR_ID, f.FILE_SZ, f.FILE_MT FROM STOR_DIR d JOIN STOR_FILE f ON "
    L"f.DIR_ID = d.DIR_ID WHERE d.PATH LIKE :PATTERN ESCAPE '!'";
// The rows of a file, those that refer to others first.
const wchar_t* const kDeleteFile[] = {
    L"DELETE FROM APE_ITEM WHERE FILE_ID = :FILE_ID",    L"DELETE FROM APE WHERE FILE_ID = :FILE_ID",
    L"DELETE FROM ID3V2_FRAME WHERE FILE_ID = :FILE_ID", L"DELETE FROM ID3V2 WHERE FILE_ID = :FILE_ID",
    L"DELETE FROM ID3V1 WHERE FILE_ID = :FILE_ID",       L"DELETE FROM STOR_FILE WHERE FILE_ID = :FILE_ID",
};
const wchar_t* const kDeleteEmptyDir =
    L"DELETE FROM STOR_DIR WHERE DIR_ID = :DIR_ID AND NOT EXISTS (SELECT * FROM STOR_FILE WHERE DIR_ID = :DIR_ID)";

std::string utf8Of(const SQLField& field)
{
    const ByteString bytes = field.asBytes();
    return std::string(bytes.data(), bytes.length());
}
} // namespace

void TagStore::readStored(const String& pattern, const std::function<void(StoredFile&&)>& take)
{
    if (!ready() || !tables_) return;
    SQLQuery q(connection);
    q.prepare(kSelectStored);
    text(&q.params()[0], pattern);
    q.execute();
    while (q.fetch()) {
        SQLFields& f = q.fields();
        StoredFile stored;
        stored.dir = utf8Of(f[0]);
        stored.name = utf8Of(f[1]);
        stored.id = {f[2].asInt64(), f[3].asInt32()};
        stored.size = UInt64::parse(f[4].asString(), 10, 0);
        DateTime modified;
        if (f[5].asDateTime(modified)) stored.modified = modified.wallClock();
        take(std::move(stored));
    }
}

void TagStore::deleteRows(const std::vector<RecordId>& records)
{
    if (records.empty()) return;
    SQLQuery q(connection);
    for (const wchar_t* statement : kDeleteFile) {
        q.prepare(statement);
        for (const RecordId& record : records) {
            q.params()[0].setValue(static_cast<long long>(record.fileId));
            q.execute();
        }
    }
    q.prepare(kDeleteEmptyDir);
    for (const RecordId& record : records) {
        q.params()[0].setValue(record.dirId);
        q.execute();
    }
}

void TagStore::loadIds()
{
    if (dirId != 0 && fileId != 0 && !reload_) return;
    reload_ = false;
    SQLQuery dirs(connection), files(connection);
    dirs.execute(L"SELECT COALESCE(MAX(DIR_ID), 1000) FROM STOR_DIR");
    dirs.fetch();
    dirId = std::max(dirId, dirs.fields()[0].asInt32());
    files.execute(L"SELECT COALESCE(MAX(FILE_ID), 10000) FROM STOR_FILE");
    files.fetch();
    fileId = std::max(fileId, files.fields()[0].asInt64());
    dirId += skipIds_;
    fileId += skipIds_;
    skipIds_ = 0;
}

namespace {
const wchar_t* const kInsertDir = L"INSERT INTO STOR_DIR (DIR_ID, PATH, CREA_TS, MODI_TS)\nVALUES (:DIR_ID, :PATH, :CREA_TS, :MODI_TS)";
// Its parameters, bound by position.
enum DirParam : size_t { kDirIdAt, kPathAt, kCreatedAt, kModifiedAt };
} // namespace

int32_t TagStore::insertDir(const String& dir, const DateTime& now)
{
    currentDir = dir;
    ++dirId;
    SQLQuery q(connection);
    q.prepare(kInsertDir);
    SQLParams& p = q.params();
    p[kDirIdAt].setValue(dirId);
    text(&p[kPathAt], currentDir);
    time(&p[kCreatedAt], now);
    time(&p[kModifiedAt], now);
    q.execute();
    return dirId;
}

namespace {
const wchar_t* const kInsertFile =
    L"INSERT INTO STOR_FILE (FILE_ID, NAME, USER_ID, STOR_ID, TYPE_ID, DIR_ID, FILE_NM, FILE_SZ, FILE_AT, FILE_MT, FILE_CT, FILE_ER, "
    L"MEDI_FM, MEDI_WI, MEDI_HE, MEDI_DU, MEDI_NF, READ_CO, CREA_TS, MODI_TS)\nVALUES (:FILE_ID, :NAME, 0, 0, 0, :DIR_ID, :FILE_NM, "
    L":FILE_SZ, :FILE_AT, :FILE_MT, :FILE_CT, :FILE_ER, :MEDI_FM, :MEDI_WI, :MEDI_HE, :MEDI_DU, :MEDI_NF, 0, :CREA_TS, :MODI_TS)";
} // namespace

int64_t TagStore::insertFile(const FileInfo& file, const DateTime& now)
{
    ++fileId;
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
    text(p.byName(L"MEDI_FM"), file.media.format);
    p.byName(L"MEDI_WI")->setValue(static_cast<unsigned int>(file.media.width));
    p.byName(L"MEDI_HE")->setValue(static_cast<unsigned int>(file.media.height));
    p.byName(L"MEDI_DU")->setValue(static_cast<unsigned int>(file.media.duration));
    text(p.byName(L"MEDI_NF"), file.media.inform);
    time(p.byName(L"CREA_TS"), now);
    time(p.byName(L"MODI_TS"), now);
    q.execute();
    return fileId;
}

namespace {
const wchar_t* const kInsertID3v1 = L"INSERT INTO ID3V1 (FILE_ID, TITLE, ARTIST, ALBUM, YEAR_, COMMENT_, TRACK, GENRE)\nVALUES (:FILE_ID, "
                                    L":TITLE, :ARTIST, :ALBUM, :YEAR_, :COMMENT_, :TRACK, :GENRE)";
} // namespace

void TagStore::insertID3v1(const ID3v1& tag)
{
    SQLQuery q(connection);
    q.prepare(kInsertID3v1);
    SQLParams& p = q.params();
    p.byName(L"FILE_ID")->setValue(static_cast<long long>(fileId));
    text(p.byName(L"TITLE"), tag.title());
    textOrNull(p.byName(L"ARTIST"), tag.artist());
    textOrNull(p.byName(L"ALBUM"), tag.album());
    textOrNull(p.byName(L"YEAR_"), tag.year());
    textOrNull(p.byName(L"COMMENT_"), tag.comment());
    p.byName(L"TRACK")->setValue(static_cast<int>(tag.track()));
    p.byName(L"GENRE")->setValue(static_cast<int>(tag.genre()));
    q.execute();
}

namespace {
const wchar_t* const kInsertID3v2 =
    L"INSERT INTO ID3V2 (FILE_ID, VERSION, FLAGS, SIZE_, FSBITS)\nVALUES (:FILE_ID, :VERSION, :FLAGS, :SIZE_, :FSBITS)";
const wchar_t* const kInsertFrame =
    L"INSERT INTO ID3V2_FRAME (FILE_ID, NO_, FRAME_ID, SIZE_, FLAGS, ENCODING, TYPE_, URL, DESCRIPTION, TEXT_, BINARY_)\nVALUES "
    L"(:FILE_ID, :NO_, :FRAME_ID, :SIZE_, :FLAGS, :ENCODING, :TYPE_, :URL, :DESCRIPTION, :TEXT_, :BINARY_)";

// Sets every parameter of a frame row, null included, so that nothing of the
// frame before carries over.
void bindFrame(SQLParams& p, int64_t fileId, int number, const ID3v2Frame& frame)
{
    p.byName(L"FILE_ID")->setValue(static_cast<long long>(fileId));
    p.byName(L"NO_")->setValue(number);
    text(p.byName(L"FRAME_ID"), frame.id());
    p.byName(L"SIZE_")->setValue(static_cast<unsigned int>(frame.size()));
    p.byName(L"FLAGS")->setValue(static_cast<short>(frame.flags()));
    p.byName(L"ENCODING")->setValue(static_cast<int>(frame.encoding()));
    p.byName(L"TYPE_")->setValue(static_cast<int>(frame.type()));
    textOrNull(p.byName(L"URL"), frame.url());
    textOrNull(p.byName(L"DESCRIPTION"), frame.description());
    textOrNull(p.byName(L"TEXT_"), frame.text());
    const size_t bytes = frame.binary().length();
    if (bytes >= 1 && bytes <= kMaxStoredBinary) p.byName(L"BINARY_")->setValue(frame.binary(), SQL::Bytes);
    else p.byName(L"BINARY_")->setNull();
}
} // namespace

void TagStore::insertID3v2(const ID3v2& tag)
{
    SQLQuery q(connection);
    q.prepare(kInsertID3v2);
    SQLParams& p = q.params();
    p.byName(L"FILE_ID")->setValue(static_cast<long long>(fileId));
    p.byName(L"VERSION")->setValue(static_cast<int>(tag.version()));
    p.byName(L"FLAGS")->setValue(static_cast<int>(tag.flags()));
    p.byName(L"SIZE_")->setValue(static_cast<unsigned int>(tag.size()));
    p.byName(L"FSBITS")->setValue(static_cast<unsigned int>(tag.fsbits()));
    q.execute();
    q.prepare(kInsertFrame);
    const PointerArray<ID3v2Frame>& frames = tag.frames();
    for (size_t i = 0; i < frames.size(); ++i) {
        bindFrame(q.params(), fileId, static_cast<int>(i + 1), *frames[i]);
        q.execute();
    }
}

namespace {
const wchar_t* const kInsertApe =
    L"INSERT INTO APE (FILE_ID, VERSION, SIZE_, COUNT_, FLAGS)\nVALUES (:FILE_ID, :VERSION, :SIZE_, :COUNT_, :FLAGS)";
const wchar_t* const kInsertItem =
    L"INSERT INTO APE_ITEM (FILE_ID, NO_, SIZE_, FLAGS, KEY_, VALUE_)\nVALUES (:FILE_ID, :NO_, :SIZE_, :FLAGS, :KEY_, :VALUE_)";

// Sets every parameter of an item row, null included.
void bindItem(SQLParams& p, int64_t fileId, int number, const APEv2Item& item)
{
    p.byName(L"FILE_ID")->setValue(static_cast<long long>(fileId));
    p.byName(L"NO_")->setValue(number);
    p.byName(L"SIZE_")->setValue(static_cast<unsigned int>(item.size()));
    p.byName(L"FLAGS")->setValue(static_cast<int>(item.flags()));
    text(p.byName(L"KEY_"), item.key());
    textOrNull(p.byName(L"VALUE_"), item.value());
}
} // namespace

void TagStore::insertApe(const APEv2& tag)
{
    SQLQuery q(connection);
    q.prepare(kInsertApe);
    SQLParams& p = q.params();
    p.byName(L"FILE_ID")->setValue(static_cast<long long>(fileId));
    p.byName(L"VERSION")->setValue(static_cast<unsigned int>(tag.version()));
    p.byName(L"SIZE_")->setValue(static_cast<unsigned int>(tag.size()));
    p.byName(L"COUNT_")->setValue(static_cast<unsigned int>(tag.count()));
    p.byName(L"FLAGS")->setValue(static_cast<int>(tag.flags()));
    q.execute();
    q.prepare(kInsertItem);
    const PointerArray<APEv2Item>& items = tag.items();
    for (size_t i = 0; i < items.size(); ++i) {
        bindItem(q.params(), fileId, static_cast<int>(i + 1), *items[i]);
        q.execute();
    }
}

} // namespace ZELd
