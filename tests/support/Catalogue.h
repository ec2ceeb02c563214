// A fresh catalogue for a test on any engine the tests can reach, made with the
// engine's own client and schema file as a user makes it, and its rows read back
// through the program's SQL layer. Each engine is a row of engines(): texts in which
// {db}, {schema}, {settings}, {SERVER}, {PORT}, {USER}, {PASSWORD}, {FILES} (where a
// server makes its database files) and {1} (a column, a frame id) are filled in.
#pragma once

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/Program.h"
#include "zel/Exception.h"
#include "zel/FileName.h"
#include "zel/SQL.h"
#include "zel/Utf8.h"

namespace testsupport {

using Row = std::vector<std::string>;
inline const std::string kNull = "<null>";

// The value of KEY in "KEY=value;KEY=value".
inline std::string settingOf(const std::string& settings, const std::string& key)
{
    size_t p = (";" + settings).find(";" + key + "=");
    return p == std::string::npos ? "" : settings.substr(p + key.size() + 1, settings.find(';', p + key.size() + 1) - p - key.size() - 1);
}

struct Engine {
    std::string name, driver;
    const char* variable = nullptr;       // names the server: "SERVER=...;PORT=...;USER=...;PASSWORD=..."; null: a file
    std::string create, drop, connection; // shell commands that make the database {db} with its tables and drop it; --database
    std::string createEmpty{};            // a shell command that makes {db} without a table ("": the program makes the file)
    std::string hex, time;                // a bytes column {1} in upper-case hexadecimal; a time as the report shows it
    std::vector<std::string> rejectFrame; // statements that make the rows of frame {1} fail
    std::vector<std::pair<std::string, std::string>> refusals; // --database values that open nothing (port 1 has no server), the message
    std::string pending;             // a shell command that prints a number above 0 while the program holds a transaction that wrote rows
    std::vector<std::string> slow{}; // statements that hold the server on an ID3v2 tag over 100 KB, whose rows outgrow a socket's buffers
};

// Firebird and InterBase: one server, the same texts, two drivers; the server
// named by SERVER or in DATABASE. Test databases are made with forced writes
// off, which only a power loss tells.
inline Engine firebirdEngine(const std::string& name, const std::string& driver, const std::string& where)
{
    const std::string login = " -user '{USER}' -password '{PASSWORD}' ", isql = "isql-fb -q -bail" + login,
                      database = "'{SERVER}:{FILES}/{db}.fdb'";
    std::string hex;
    for (int at = 1; at <= 97; at += 16)
        hex += (at > 1 ? " || " : "") + std::string("UUID_TO_CHAR(CAST(SUBSTRING({1} FROM ") + std::to_string(at) +
               " FOR 16) AS CHAR(16) CHARACTER SET OCTETS))";
    const std::string createEmpty =
        "echo \"CREATE DATABASE " + database + " DEFAULT CHARACTER SET UTF8;\" | " + isql + "&& gfix -write async" + login + database;
    return {
        .name = name,
        .driver = driver,
        .variable = "SONARCAT_TEST_FIREBIRD",
        .create = createEmpty + " && " + isql + "-ch UTF8 -i {schema}firebird.sql " + database,
        .drop = "[ ! -e '{FILES}/{db}.fdb' ] || echo 'DROP DATABASE;' | " + isql + database,
        .connection = "DRIVER=" + driver + ";USER={USER};PASSWORD={PASSWORD};" + where,
        .createEmpty = createEmpty,
        .hex = "LEFT(REPLACE(" + hex + ", '-', ''), 2 * OCTET_LENGTH({1}))",
        .time = "LEFT(CAST({1} AS VARCHAR(24)), 23)",
        .rejectFrame = {"CREATE EXCEPTION FRAME_REJECTED 'frame rejected'",
                        "CREATE TRIGGER REJECT_FRAME FOR ID3V2_FRAME BEFORE INSERT AS BEGIN IF (NEW.FRAME_ID = '{1}') THEN EXCEPTION "
                        "FRAME_REJECTED; END"},
        .refusals = {{"DRIVER=" + driver + ";USER={USER};PASSWORD=wrong;SERVER={SERVER};DATABASE={FILES}/{db}.fdb",
                      "Your user name and password are not defined"},
                     {"DRIVER=" + driver + ";USER={USER};PASSWORD={PASSWORD};SERVER={SERVER};DATABASE={FILES}/{db}_missing.fdb",
                      "I/O error during \"open\" operation for file \"{FILES}/{db}_missing.fdb\""},
                     {"DRIVER=" + driver + ";USER={USER};PASSWORD={PASSWORD};SERVER=127.0.0.1/1;DATABASE={FILES}/{db}.fdb",
                      driver + ": cannot connect: Unable to complete network request to host \"127.0.0.1\""},
                     // Without a server the file is not opened from this process, though it could be.
                     {"DRIVER=" + driver + ";USER={USER};PASSWORD={PASSWORD};DATABASE={FILES}/{db}.fdb",
                      "unavailable database [{FILES}/{db}.fdb]"}},
        .pending = "printf '%s\\n' 'SET HEADING OFF;' 'SELECT COUNT(*) FROM MON$TRANSACTIONS t JOIN MON$RECORD_STATS r ON r.MON$STAT_ID = "
                   "t.MON$STAT_ID WHERE t.MON$ATTACHMENT_ID <> CURRENT_CONNECTION AND r.MON$RECORD_INSERTS > 0;' | isql-fb -q" +
                   login + database,
    };
}

// A row made from another: the same database through another driver.
inline Engine alike(Engine row, const std::string& name, const std::string& driver, const std::string& connection)
{
    row.name = name, row.driver = driver, row.connection = connection;
    return row;
}

inline const std::vector<Engine>& engines()
{
    const std::string psql = "PGPASSWORD='{PASSWORD}' psql -X -q -v ON_ERROR_STOP=1 -h {SERVER} -p {PORT} -U {USER} -d ";
    std::string rows = "0"; // in all seven tables
    for (const char* table : {"STOR_DIR", "STOR_FILE", "ID3V1", "ID3V2", "ID3V2_FRAME", "APE", "APE_ITEM"})
        rows += std::string(" + (SELECT COUNT(*) FROM ") + table + ")";
    const std::string mariadb =
        "mariadb --no-defaults --protocol=TCP -h {SERVER} -P {PORT} -u {USER} --password='{PASSWORD}' --default-character-set=utf8mb4 ";
    const std::string pgWriting = "SELECT COUNT(*) FROM pg_stat_activity WHERE datname = '{db}' AND backend_xid IS NOT NULL";
    const Engine sqlite{
        .name = "SQLite",
        .driver = "ZELSQLite3",
        .create = "sqlite3 '{db}' < {schema}sqlite3.sql",
        .drop = "rm -f '{db}'*",
        .connection = "DRIVER=ZELSQLite3;DATABASE={db}",
        .hex = "CASE typeof({1}) WHEN 'blob' THEN nullif(hex({1}), '') END", // bytes bound as text would read NULL
        .time = "{1}",
        .rejectFrame = {"CREATE TRIGGER REJECT_FRAME BEFORE INSERT ON ID3V2_FRAME WHEN NEW.FRAME_ID = '{1}' BEGIN SELECT RAISE(ABORT, "
                        "'frame rejected'); END"},
        .refusals = {{"DRIVER=ZELSQLite3;DATABASE={db}.missing/x", "ZELSQLite3: cannot connect: unable to open database file"}},
        .pending = "sqlite3 -bail '{db}' 'BEGIN IMMEDIATE; ROLLBACK;' 2>&1 | grep -c 'database is locked'", // a second writer is refused
    };
    Engine sqlcipher = alike(sqlite, "SQLCipher", "ZELSQLCipher", "DRIVER=ZELSQLCipher;DATABASE={db};KEY=sonarcat-test");
    sqlcipher.create = "{ echo \"PRAGMA key = 'sonarcat-test';\"; cat {schema}sqlite3.sql; } | sqlcipher '{db}' && sqlite3 '{db}.plain' < "
                       "{schema}sqlite3.sql";
    sqlcipher.refusals = {
        {"DRIVER=ZELSQLCipher;DATABASE={db};KEY=wrong", "ZELSQLCipher: cannot connect: wrong key or not an encrypted catalogue"},
        {"DRIVER=ZELSQLCipher;DATABASE={db}.plain;KEY=sonarcat-test",
         "wrong key or not an encrypted catalogue (file is encrypted or is not a database) [{db}.plain]"},
        {"DRIVER=ZELSQLCipher;DATABASE={db}.missing/x;KEY=sonarcat-test",
         "ZELSQLCipher: cannot connect: unable to open database file [{db}.missing/x]"},
        {"DRIVER=ZELSQLCipher;DATABASE={db}", "ZELSQLCipher: cannot connect: no KEY= in the connection string"},
        {"DRIVER=ZELSQLCipher;DATABASE={db};KEY=", "ZELSQLCipher: cannot connect: no KEY= in the connection string"}};
    sqlcipher.pending =
        "sqlcipher -bail '{db}' \"PRAGMA key = 'sonarcat-test'; BEGIN IMMEDIATE; ROLLBACK;\" 2>&1 | grep -c 'database is locked'";
    const Engine postgres{
        .name = "PostgreSQL",
        .driver = "ZELPostgreSQL",
        .variable = "SONARCAT_TEST_POSTGRES",
        .create = psql + "postgres -c 'CREATE DATABASE {db}' && " + psql + "{db} -f {schema}postgresql.sql",
        .drop = psql + "postgres -c 'DROP DATABASE IF EXISTS {db} WITH (FORCE)'",
        .connection = "DRIVER=ZELPostgreSQL;{settings};DATABASE={db}",
        .createEmpty = psql + "postgres -c 'CREATE DATABASE {db}'",
        .hex = "upper(encode({1}, 'hex'))",
        .time = "to_char({1}, 'YYYY-MM-DD HH24:MI:SS.MS')",
        .rejectFrame =
            {"CREATE FUNCTION REJECT_FRAME() RETURNS trigger AS $$ BEGIN IF NEW.FRAME_ID = '{1}' THEN RAISE EXCEPTION 'frame rejected'; "
             "END IF; RETURN NEW; END $$ LANGUAGE plpgsql",
             "CREATE TRIGGER REJECT_FRAME BEFORE INSERT ON ID3V2_FRAME FOR EACH ROW EXECUTE FUNCTION REJECT_FRAME()"},
        .refusals = {{"DRIVER=ZELPostgreSQL;SERVER={SERVER};PORT={PORT};USER={USER};PASSWORD=wrong;DATABASE={db}",
                      "password authentication failed"},
                     {"DRIVER=ZELPostgreSQL;{settings};DATABASE={db}_missing", "database \"{db}_missing\" does not exist"},
                     {"DRIVER=ZELPostgreSQL;USER={USER};PASSWORD={PASSWORD};SERVER=127.0.0.1;PORT=1;DATABASE={db}",
                      "ZELPostgreSQL: cannot connect: connection to server at \"127.0.0.1\", port 1 failed"}},
        .pending = psql + "{db} -tAc \"" + pgWriting + " AND application_name = 'sonarcat'\"",
        // The program sends a file's statements in one batch, done before a look can see them unless they wait in the socket.
        .slow = {"CREATE FUNCTION SLOW() RETURNS trigger AS $$ BEGIN PERFORM pg_sleep(1); RETURN NEW; END $$ LANGUAGE plpgsql",
                 "CREATE TRIGGER SLOW BEFORE INSERT ON ID3V2 FOR EACH ROW WHEN (NEW.SIZE_ > 100000) EXECUTE FUNCTION SLOW()"},
    };
    const Engine maria{
        .name = "MariaDB",
        .driver = "ZELMariaDB",
        .variable = "SONARCAT_TEST_MARIADB",
        .create = mariadb + "-e 'CREATE DATABASE {db}' && " + mariadb + "{db} < {schema}mariadb.sql",
        .drop = mariadb + "-e 'DROP DATABASE IF EXISTS {db}'",
        .connection = "DRIVER=ZELMariaDB;{settings};DATABASE={db}",
        .createEmpty = mariadb + "-e 'CREATE DATABASE {db}'",
        .hex = "NULLIF(HEX({1}), '')",
        .time = "LEFT(DATE_FORMAT({1}, '%Y-%m-%d %H:%i:%s.%f'), 23)",
        .rejectFrame =
            {"CREATE TRIGGER REJECT_FRAME BEFORE INSERT ON ID3V2_FRAME FOR EACH ROW IF NEW.FRAME_ID = '{1}' THEN SIGNAL SQLSTATE "
             "'45000' SET MESSAGE_TEXT = 'frame rejected'; END IF"},
        .refusals = {{"DRIVER=ZELMariaDB;SERVER={SERVER};PORT={PORT};USER={USER};PASSWORD=wrong;DATABASE={db}",
                      "Access denied for user '{USER}'"},
                     {"DRIVER=ZELMariaDB;{settings};DATABASE={db}_missing", "Unknown database '{db}_missing'"},
                     {"DRIVER=ZELMariaDB;USER={USER};PASSWORD={PASSWORD};SERVER=127.0.0.1;PORT=1;DATABASE={db}",
                      "ZELMariaDB: cannot connect: Can't connect to server on '127.0.0.1'"},
                     {"DRIVER=ZELMariaDB;USER={USER};SERVER=/nonexistent;DATABASE={db}", "through socket '/nonexistent/mysqld.sock'"},
                     {"DRIVER=ZELMariaDB;USER={USER};SERVER={SERVER};PORT=3306x;DATABASE={db}", "not a port number: [3306x]"}},
        // Rows not yet committed, seen by a dirty read (INNODB_TRX is a cache refreshed every 0.1 s: too slow to tell).
        .pending = mariadb + "{db} -NBe 'SET SESSION TRANSACTION ISOLATION LEVEL READ UNCOMMITTED; SELECT " + rows +
                   " INTO @dirty; SET SESSION TRANSACTION ISOLATION LEVEL READ COMMITTED; SELECT @dirty - (" + rows + ")'",
    };
    // The ODBC rows: braces in DRIVER name an ODBC driver, not a placeholder. The driver's own diagnostics reach the
    // message; the native rows try each kind of refusal.
    Engine odbcPostgres = alike(postgres, "ODBC PostgreSQL", "ZELODBC",
                                "DRIVER={PostgreSQL Unicode};SERVER={SERVER};PORT={PORT};DATABASE={db};UID={USER};PWD={PASSWORD}");
    odbcPostgres.refusals = {
        {"DRIVER={PostgreSQL Unicode};SERVER={SERVER};PORT={PORT};DATABASE={db};UID={USER};PWD=wrong", "password authentication failed"},
        // Debian registers the driver as "PostgreSQL Unicode" and "PostgreSQL ANSI" only.
        {"DRIVER={PostgreSQL};SERVER={SERVER};PORT={PORT};DATABASE={db};UID={USER};PWD={PASSWORD}",
         "Can't open lib 'PostgreSQL' : file not found"}};
    // psqlODBC names no application: the program's is the one connection to the database writing rows.
    odbcPostgres.pending = psql + "{db} -tAc \"" + pgWriting + " AND pid <> pg_backend_pid()\"";
    odbcPostgres.slow = {};
    // JournalMode=WAL: the SQLite module's journal; the ODBC driver's default, a rollback journal, costs a sync at every commit.
    // Timeout=1000: a run left behind by another's commit waits out the whole timeout before the program tries the file again.
    Engine odbcSQLite =
        alike(sqlite, "ODBC SQLite3", "ZELODBC", "DRIVER={SQLite3};DATABASE={db};FKSupport=1;Timeout=1000;NoCreat=1;JournalMode=WAL");
    odbcSQLite.createEmpty = "touch '{db}'";
    odbcSQLite.refusals = {{"DRIVER={SQLite3};DATABASE={db}.missing;NoCreat=1", "ZELODBC: cannot connect: [SQLite]connect failed"},
                           // Unlike the program's own drivers, the ODBC driver manager takes no blanks around a key.
                           {"DRIVER = {SQLite3};DATABASE={db}", "Data source name not found"}};
    // Without OPTION=67108864 (several statements in one text): Connector/ODBC 3.1.15 loses 1 KB on every connection with it.
    Engine odbcMaria = alike(maria, "ODBC MariaDB", "ZELODBC",
                             "DRIVER={MariaDB Unicode};SERVER={SERVER};PORT={PORT};DATABASE={db};UID={USER};PWD={PASSWORD}");
    odbcMaria.refusals = {{"DRIVER={MariaDB Unicode};SERVER={SERVER};PORT={PORT};DATABASE={db}_missing;UID={USER};PWD={PASSWORD}",
                           "Unknown database '{db}_missing'"}};
    // The rows a transaction wrote are locked until it ends: a locking read that may not wait is refused.
    // (information_schema.INNODB_TRX would tell too, but it is a copy renewed at most every 0.1 s.)
    odbcMaria.pending = mariadb + "{db} -N -e 'SELECT COUNT(*) FROM STOR_DIR FOR UPDATE NOWAIT; SELECT COUNT(*) FROM STOR_FILE FOR UPDATE "
                                  "NOWAIT' 2>&1 | grep -c 'Lock wait timeout'";
    const Engine firebird = firebirdEngine("Firebird", "ZELFirebird", "SERVER={SERVER};DATABASE={FILES}/{db}.fdb"),
                 interbase = firebirdEngine("InterBase", "ZELInterBase", "DATABASE={SERVER}:{FILES}/{db}.fdb");
    static const std::vector<Engine> all = {sqlite, sqlcipher, postgres, maria, firebird, interbase, odbcPostgres, odbcSQLite, odbcMaria};
    return all;
}

// The engines' names after `names`.
inline std::vector<std::string> engineNames(std::vector<std::string> names = {})
{
    for (const Engine& e : engines()) names.push_back(e.name);
    return names;
}

// The name of a test on an engine's row (its TestParamInfo): the engine's name in letters, digits and '_'.
inline const auto testName = [](const auto& row) { return std::regex_replace(row.param, std::regex("[^A-Za-z0-9]"), "_"); };

class Catalogue {
public:
    // WithTables: the whole schema file; SevenTables: without what --all-formats adds.
    enum Start { WithTables, Empty, SevenTables };

    // settings: a server other than the one the engine's variable names.
    explicit Catalogue(const std::string& engine, Start start = WithTables, std::string settings = "") : settings_(std::move(settings))
    {
        for (const Engine& e : engines()) engine_ = e.name == engine ? &e : engine_;
        if (engine_->variable && settings_.empty() && std::getenv(engine_->variable)) settings_ = std::getenv(engine_->variable);
        const std::string module = "libZEL" + engine_->driver.substr(3) + ".so"; // built when its client library is there
        if (!std::filesystem::exists(std::filesystem::path(SONARCAT_BINARY).parent_path() / module))
            missing_ = "no " + module + " in this build";
        else if (engine_->variable && settings_.empty())
            missing_ = "no " + engine_->name + " server: set " + engine_->variable + " (.ci/run does)";
        if (!missing_.empty()) return;
        static std::atomic<int> serial{0};
        db_ = engine_->variable ? "sonarcat_test_" + std::to_string(::getpid()) + "_" + std::to_string(serial++) : dir_ / "music.db";
        const std::string& create = start == Empty ? engine_->createEmpty : engine_->create;
        const Result r = run({"/bin/sh", "-c", fill(create.empty() ? "true" : create)}, {environment("C.UTF-8")}, 120);
        if (r.status != 0) throw std::runtime_error(create + ": " + r.err);
        database_ = fill(engine_->connection);
        if (start == SevenTables)
            for (const char* drop : {"DROP VIEW TRACK", "DROP TABLE TAG_PROPERTY"}) rows(drop);
    }
    ~Catalogue()
    {
        if (!database_.empty()) run({"/bin/sh", "-c", fill(engine_->drop) + " >/dev/null 2>&1"});
    }

    // The --database value; empty when the engine's module was not built or its server is not reachable here (see unreachable()).
    const std::string& database() const { return database_; }
    const std::string& unreachable() const { return missing_; }
    const Engine& engine() const { return *engine_; }
    const std::string& file() const { return db_; }
    std::string fill(const std::string& text, const std::string& one = "") const
    {
        std::string s = text;
        std::vector<std::pair<std::string, std::string>> values = {
            {"{db}", db_}, {"{schema}", SONARCAT_SCHEMA_DIR "/"}, {"{settings}", settings_}, {"{1}", one}};
        for (const char* key : {"SERVER", "PORT", "USER", "PASSWORD", "FILES"})
            values.emplace_back("{" + std::string(key) + "}", settingOf(settings_, key));
        for (const auto& [key, value] : values)
            for (size_t at; (at = s.find(key)) != std::string::npos;) s.replace(at, key.size(), value);
        return s;
    }

    // The rows of a statement, every value as text and NULL as kNull.
    std::vector<Row> rows(const std::string& sql) const
    {
        std::vector<Row> out;
        try {
            ZELd::SQLConnection c(ZELd::fromNativePath(engine_->driver.c_str()));
            c.open(ZELd::fromNativePath(database_.c_str()));
            ZELd::SQLQuery q(&c);
            q.execute(ZELd::fromNativePath(sql.c_str()));
            while (q.fetch()) {
                Row& row = out.emplace_back();
                for (size_t i = 0; i < q.fields().size(); ++i)
                    row.push_back(q.fields()[i].isNull() ? kNull : ZELd::toUtf8(q.fields()[i].asString().str()));
            }
        } catch (ZELd::Exception* e) {
            const std::string text = ZELd::toUtf8(e->toStringAll().str());
            e->destroy();
            throw std::runtime_error(text);
        }
        return out;
    }
    std::string count(const std::string& table) const { return rows("SELECT COUNT(*) FROM " + table).at(0).at(0); }

private:
    const Engine* engine_ = nullptr;
    std::string settings_, db_, database_, missing_;
    TempDir dir_;
};

} // namespace testsupport
