#define ZEL_SOURCE "media/Catalogue"
#include "media/Catalogue.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <iterator>
#include <random>
#include <thread>

#include "media/CatalogueSchema.h"
#include "zel/DateTime.h"
#include "zel/Numbers.h"
#include "zel/SQL.h"
#include "zel/SQLConnectionString.h"
#include "zel/Writer.h"

namespace ZELd {

namespace {

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

// The records of a directory row's files.
const wchar_t* const kSelectFiles = L"SELECT NAME, FILE_ID, FILE_SZ, FILE_MT FROM STOR_FILE WHERE DIR_ID = :DIR_ID";
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

Catalogue::~Catalogue() { delete connection; }

bool Catalogue::connect(const String& database, bool dryRun)
{
    driver_ = driverOf(database);
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

Catalogue::Tables Catalogue::prepareTables(bool dryRun)
{
    constexpr size_t kAll = std::size(kCatalogueTables);
    size_t missing = 0;
    std::wstring names = missingTables(connection, missing);
    if (missing == 0) return Tables::Held;
    const auto partial = [&] {
        return ZEL_NEW SQLException(L"The catalogue holds only some of its seven tables: [" + String(std::move(names)) +
                                    L"] are missing. It is left as it is: complete it with its schema file, or name an empty catalogue");
    };
    if (dryRun) {
        if (missing < kAll) throw partial();
        tables_ = false;
        return Tables::Missing;
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
    if (!made) return Tables::Held;
    schemaFile_ = schema->name;
    return Tables::Made;
}

bool Catalogue::ready() const { return connection && connection->connected(); }

String Catalogue::serverInfo() const { return connection->getServerInfo(); }

bool Catalogue::inTransaction(const std::function<void()>& work)
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

Exception* Catalogue::rollBack(Exception* failure)
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

int32_t Catalogue::takeDirId(const String& dir)
{
    loadIds();
    currentDir = dir;
    return ++dirId;
}

int64_t Catalogue::takeFileId()
{
    loadIds();
    return ++fileId;
}

void Catalogue::readDirectories(const String& pattern, const std::function<void(std::string&& path, int32_t dirId)>& take)
{
    if (!ready() || !tables_) return;
    SQLQuery q(connection);
    q.prepare(L"SELECT PATH, DIR_ID FROM STOR_DIR WHERE PATH LIKE :PATTERN ESCAPE '!'");
    q.params()[0].setValue(pattern, SQL::Text);
    q.execute();
    while (q.fetch()) take(utf8Of(q.fields()[0]), q.fields()[1].asInt32());
}

void Catalogue::readFiles(int32_t dirId, const std::function<void(StoredFile&&)>& take)
{
    SQLQuery q(connection);
    q.prepare(kSelectFiles);
    q.params()[0].setValue(dirId);
    q.execute();
    while (q.fetch()) {
        SQLFields& f = q.fields();
        StoredFile stored;
        stored.name = utf8Of(f[0]);
        stored.id = {f[1].asInt64(), dirId};
        stored.size = UInt64::parse(f[2].asString(), 10, 0);
        DateTime modified;
        if (f[3].asDateTime(modified)) stored.modified = modified.wallClock();
        take(std::move(stored));
    }
}

void Catalogue::deleteRecords(const std::vector<RecordId>& records)
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

void Catalogue::loadIds()
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

} // namespace ZELd
