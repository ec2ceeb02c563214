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
// The rows of a file, those that refer to others first; its TAG_PROPERTY rows
// before them all, where the catalogue has that table.
const wchar_t* const kDeleteProperties = L"DELETE FROM TAG_PROPERTY WHERE FILE_ID = :FILE_ID";
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

bool hasTable(SQLConnection* connection, const wchar_t* table)
{
    try {
        SQLQuery(connection).execute(String(L"SELECT COUNT(*) FROM ") + table + L" WHERE 1 = 0");
        return true;
    } catch (Exception* e) {
        e->destroy();
        return false;
    }
}

// What a look at the catalogue's tables saw.
struct TablesLook {
    std::wstring missing;    // the tables that the run needs and the catalogue lacks, named in a list
    size_t seven = 0;        // how many of the seven tables it lacks
    bool properties = false; // it has TAG_PROPERTY
};

TablesLook lookAtTables(SQLConnection* connection, bool properties)
{
    TablesLook look;
    const auto missing = [&](const wchar_t* table) { look.missing += (look.missing.empty() ? L"" : L", ") + std::wstring(table); };
    for (const wchar_t* table : kCatalogueTables)
        if (!hasTable(connection, table)) ++look.seven, missing(table);
    look.properties = hasTable(connection, kPropertyTable);
    if (properties && !look.properties) missing(kPropertyTable);
    return look;
}

// What a run makes of a look: nothing, every table it needs, TAG_PROPERTY
// (with its index and the view) beside the seven tables, or nothing at all,
// since the catalogue holds only some of the tables.
enum class Need { Nothing, Everything, Properties, Partial };

Need needOf(const TablesLook& look, bool properties)
{
    if (look.seven == 0) return properties && !look.properties ? Need::Properties : Need::Nothing;
    if (look.seven == std::size(kCatalogueTables) && !(properties && look.properties)) return Need::Everything;
    return Need::Partial;
}

// The statements that make what a run needs.
std::vector<String> statementsFor(const SchemaFile& schema, Need need, bool properties)
{
    if (need == Need::Properties) return schemaStatements(schema.text, SchemaSection::Properties);
    return properties ? schemaStatements(schema.text) : schemaStatements(schema.text, SchemaSection::Tables);
}

// Runs a lock's statement; false when its row does not say that the lock is taken.
bool lockStatement(SQLConnection* connection, const wchar_t* statement)
{
    SQLQuery q(connection);
    q.execute(statement);
    return q.fetch() && q.fields()[0].asInt64() == 1;
}

// Runs the statements in one transaction; the failure, the transaction rolled back, else null.
Exception* makeTables(SQLConnection* connection, const std::vector<String>& statements)
{
    try {
        connection->startTrans();
        for (const String& statement : statements) SQLQuery(connection).execute(statement);
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

Catalogue::Tables Catalogue::prepareTables(bool dryRun, bool properties)
{
    storesProperties_ = properties;
    TablesLook look = lookAtTables(connection, properties);
    Need need = needOf(look, properties);
    propertyTable_ = look.properties;
    if (need == Need::Nothing) return Tables::Held;
    const auto partial = [&] {
        return ZEL_NEW SQLException(L"The catalogue holds only some of its " + String(properties ? L"eight" : L"seven") + L" tables: [" +
                                    String(std::move(look.missing)) +
                                    L"] are missing. It is left as it is: complete it with its schema file, or name an empty catalogue");
    };
    if (dryRun) {
        if (need == Need::Partial) throw partial();
        if (need == Need::Properties) {
            propertiesAdded_ = true; // an update says what a run would read again
            return Tables::PropertiesMissing;
        }
        tables_ = false;
        return Tables::Missing;
    }
    // Other runs may be looking at the same catalogue: look again under the
    // lock, or after a failure to make the tables.
    const SchemaFile* schema = schemaFor(driver_, serverInfo());
    const TablesLock lock = schema ? tablesLockFor(*schema) : TablesLock();
    if (lock.take && !lockStatement(connection, lock.take))
        throw ZEL_NEW SQLException(L"Another run kept the catalogue's tables to itself for a minute: [" + String(lock.take) + L"]");
    Exception* failure = nullptr;
    Need made = Need::Nothing;
    bool someBefore = lock.take && need == Need::Partial;
    for (int attempt = 1;; ++attempt) {
        if (lock.take || attempt > 1) need = needOf(look = lookAtTables(connection, properties), properties);
        if (need == Need::Nothing) break; // made by another run
        if (need == Need::Partial) {
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
                failure = ZEL_NEW SQLException(
                    String(need == Need::Properties ? L"The catalogue has no TAG_PROPERTY" : L"The catalogue has no tables") +
                    L", and there is no schema file for [" + serverInfo() + L"]");
                break;
            }
            failure = makeTables(connection, statementsFor(*schema, need, properties));
            if (!failure) made = need;
            if (!failure || attempt == kStoreAttempts) break;
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
    propertyTable_ = look.properties || (made != Need::Nothing && properties);
    if (made == Need::Nothing) return Tables::Held;
    propertiesAdded_ = made == Need::Properties;
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
    std::vector<const wchar_t*> statements(std::begin(kDeleteFile), std::end(kDeleteFile));
    if (propertyTable_) statements.insert(statements.begin(), kDeleteProperties);
    for (const wchar_t* statement : statements) {
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
