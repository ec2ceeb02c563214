// The SQLite driver module (libZELSQLite3.so, over libsqlite3) and, built from
// this same source with ZEL_SQLCIPHER defined, the SQLCipher driver module
// (libZELSQLCipher.so, over libsqlcipher: SQLite with every page encrypted).
//
// DATABASE names the file, which must exist (the program creates no tables).
// SQLCipher also takes KEY, the passphrase the file was encrypted with (or a
// raw key written x'<64 hex digits>'). The key is given to the library right
// after the file is opened, before any page of it is read or written.
// The database runs with a write-ahead log and normal synchronisation: a
// committed transaction survives a crash of the program; a power loss can
// cost the last transactions committed before it, never the file's integrity.
#ifdef ZEL_SQLCIPHER
#define SQLITE_HAS_CODEC 1 // declares sqlite3_key()
#endif
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "zel/SQLDriver.h"

namespace {

using namespace ZELd::sqldriver;

// Another run storing into the same file holds it for a moment: wait for it.
constexpr int kBusyTimeoutMilliseconds = 10000, kSetUpRetryMilliseconds = 5;
#ifdef ZEL_SQLCIPHER
constexpr bool kSalted = true;
#else
constexpr bool kSalted = false;
#endif
const char* const kSetUp = "PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL; PRAGMA foreign_keys=ON;";

// The last failure on the connection; a key another run took, or a database
// still busy after the timeout, is a conflict: the work may be tried again.
void describeFailure(sqlite3* db, DriverError& error)
{
    const int code = sqlite3_extended_errcode(db);
    error.message = sqlite3_errmsg(db);
    error.conflict = code == SQLITE_CONSTRAINT_PRIMARYKEY || code == SQLITE_CONSTRAINT_UNIQUE || (code & 0xFF) == SQLITE_BUSY;
}

class SQLiteStatement : public Statement {
public:
    SQLiteStatement(sqlite3* db, sqlite3_stmt* stmt) : db_(db), stmt_(stmt) {}
    ~SQLiteStatement() override { sqlite3_finalize(stmt_); }

    bool returnsRows() const override { return sqlite3_column_count(stmt_) > 0; }

    bool bind(size_t index, const Value& v, DriverError& error) override
    {
        if (!fresh_) reset();
        int i = static_cast<int>(index) + 1, rc;
        switch (v.kind) {
        case Value::Int: rc = sqlite3_bind_int64(stmt_, i, v.i); break;
        case Value::UInt:
            // Beyond the signed range SQLite keeps the exact number as text.
            if (v.u <= static_cast<uint64_t>(INT64_MAX)) rc = sqlite3_bind_int64(stmt_, i, static_cast<sqlite3_int64>(v.u));
            else rc = sqlite3_bind_text(stmt_, i, std::to_string(v.u).c_str(), -1, SQLITE_TRANSIENT);
            break;
        case Value::Text: rc = sqlite3_bind_text(stmt_, i, v.bytes.data(), static_cast<int>(v.bytes.size()), SQLITE_TRANSIENT); break;
        case Value::Bytes: rc = sqlite3_bind_blob(stmt_, i, v.bytes.data(), static_cast<int>(v.bytes.size()), SQLITE_TRANSIENT); break;
        case Value::Time: rc = sqlite3_bind_text(stmt_, i, timestampText(v.time).c_str(), -1, SQLITE_TRANSIENT); break;
        default: rc = sqlite3_bind_null(stmt_, i); break;
        }
        if (rc != SQLITE_OK) error.message = sqlite3_errmsg(db_);
        return rc == SQLITE_OK;
    }

    bool execute(DriverError& error) override
    {
        if (!fresh_) sqlite3_reset(stmt_);
        fresh_ = false;
        int rc = sqlite3_step(stmt_);
        pending_ = rc == SQLITE_ROW;
        done_ = rc == SQLITE_DONE;
        if (rc == SQLITE_ROW || rc == SQLITE_DONE) return true;
        describeFailure(db_, error);
        sqlite3_reset(stmt_);
        return false;
    }

    bool fetch(std::vector<Value>& row, DriverError& error) override
    {
        if (done_) return false; // stepping a finished statement would run it again
        if (!pending_) {
            int rc = sqlite3_step(stmt_);
            if ((done_ = rc == SQLITE_DONE)) return false;
            if (rc != SQLITE_ROW) {
                error.message = sqlite3_errmsg(db_);
                return false;
            }
        }
        pending_ = false;
        row.resize(static_cast<size_t>(sqlite3_column_count(stmt_)));
        for (size_t c = 0; c < row.size(); ++c) row[c] = column(static_cast<int>(c));
        return true;
    }

    void reset() override
    {
        sqlite3_reset(stmt_);
        sqlite3_clear_bindings(stmt_);
        fresh_ = true;
        pending_ = done_ = false;
    }

private:
    Value column(int c) const
    {
        Value v;
        switch (sqlite3_column_type(stmt_, c)) {
        case SQLITE_INTEGER:
            v.kind = Value::Int;
            v.i = sqlite3_column_int64(stmt_, c);
            break;
        case SQLITE_NULL: break;
        case SQLITE_BLOB:
            v.kind = Value::Bytes;
            v.bytes.assign(static_cast<const char*>(sqlite3_column_blob(stmt_, c)), static_cast<size_t>(sqlite3_column_bytes(stmt_, c)));
            break;
        default:
            v.kind = Value::Text;
            v.bytes.assign(reinterpret_cast<const char*>(sqlite3_column_text(stmt_, c)),
                           static_cast<size_t>(sqlite3_column_bytes(stmt_, c)));
            break;
        }
        return v;
    }

    sqlite3* db_;
    sqlite3_stmt* stmt_;
    bool fresh_ = true;    // bindings set since the last execute
    bool pending_ = false; // a row stepped to by execute, not yet fetched
    bool done_ = false;    // the statement has run to its end
};

class SQLiteConnection : public Connection {
public:
    ~SQLiteConnection() override
    {
        if (db_) sqlite3_close_v2(db_);
    }

    bool open(const OpenRequest& request, DriverError& error) override
    {
        const std::string* file = request.setting("DATABASE");
        if (!file || file->empty()) {
            error.message = "no DATABASE= file named in the connection string";
            return false;
        }
#ifdef ZEL_SQLCIPHER
        // Without a key the library would read and write the file unencrypted.
        const std::string* key = request.setting("KEY");
        if (!key || key->empty()) {
            error.message = "no KEY= in the connection string: the catalogue is encrypted with it";
            return false;
        }
#endif
        // A file that is not there is made only when the caller asks for it;
        // else it is an empty catalogue, and one that stays in memory.
        const bool missing = !request.createMissing && ::access(file->c_str(), F_OK) != 0 && errno == ENOENT;
        for (int waited = 0;; waited += kSetUpRetryMilliseconds) {
            // SQLCipher makes the key from a salt at the start of the file, or
            // from a new one while the file is empty. Should another run write
            // the first page meanwhile, under a salt of its own, that page reads
            // as under a wrong key: open the file again, now with its salt.
            struct stat before {};
            const bool empty = kSalted && (::stat(file->c_str(), &before) != 0 || before.st_size == 0);
            if (attach(missing ? ":memory:" : file->c_str(), request, error)) return true;
            if (!empty || !notADatabase_ || waited >= kBusyTimeoutMilliseconds) return false;
            sqlite3_sleep(kSetUpRetryMilliseconds);
        }
    }

#ifdef ZEL_SQLCIPHER
    std::string serverInfo() override { return "SQLCipher " + cipherVersion_ + " (SQLite " + sqlite3_libversion() + ")"; }
#else
    std::string serverInfo() override { return std::string("SQLite ") + sqlite3_libversion(); }
#endif
    bool connected() override { return db_ != nullptr; }
    // IMMEDIATE: the write lock is taken (or waited for) at once, so that the
    // ids read inside are not stale by the time the rows go in.
    bool begin(DriverError& error) override { return run("BEGIN IMMEDIATE", error); }
    bool commit(DriverError& error) override { return run("COMMIT", error); }
    bool rollback(DriverError& error) override
    {
        // A full disk or an I/O error can make SQLite roll the whole
        // transaction back by itself: then there is nothing left to undo.
        if (db_ && sqlite3_get_autocommit(db_)) return true;
        return run("ROLLBACK", error);
    }
    std::string placeholder(size_t index) override { return std::string(1, '?').append(std::to_string(index + 1)); }

    Statement* prepare(const std::string& sql, size_t, DriverError& error) override
    {
        if (!db_) {
            error.message = "not connected";
            return nullptr;
        }
        sqlite3_stmt* stmt = nullptr;
#if SQLITE_VERSION_NUMBER >= 3020000
        // Persistent: the layer keeps the statement for the next file.
        const int rc = sqlite3_prepare_v3(db_, sql.c_str(), static_cast<int>(sql.size()), SQLITE_PREPARE_PERSISTENT, &stmt, nullptr);
#else
        // SQLCipher 3.4 is SQLite 3.15, before the persistence hint.
        const int rc = sqlite3_prepare_v2(db_, sql.c_str(), static_cast<int>(sql.size()), &stmt, nullptr);
#endif
        if (rc != SQLITE_OK) {
            error.message = sqlite3_errmsg(db_);
            return nullptr;
        }
        if (!stmt) {
            error.message = "no statement in the text";
            return nullptr;
        }
        return new SQLiteStatement(db_, stmt);
    }

private:
    // Opens the file and sets the connection up; on a failure the connection
    // is closed again.
    bool attach(const char* path, const OpenRequest& request, DriverError& error)
    {
        const std::string& file = *request.setting("DATABASE");
        const int create = request.createMissing ? SQLITE_OPEN_CREATE : 0;
        if (sqlite3_open_v2(path, &db_, SQLITE_OPEN_READWRITE | create | SQLITE_OPEN_NOMUTEX, nullptr) != SQLITE_OK)
            return close((db_ ? sqlite3_errmsg(db_) : "out of memory") + std::string(" [") + file + "]", error);
#ifdef ZEL_SQLCIPHER
        if (!unlock(*request.setting("KEY"), error)) return close(error.message, error);
#endif
        sqlite3_busy_timeout(db_, kBusyTimeoutMilliseconds);
        // A file that is not a database (or, encrypted, one the key does not
        // open) fails on its first read: find out before anything is written.
        if (!run("SELECT count(*) FROM sqlite_master", error)) return close(unreadable(error.message) + " [" + file + "]", error);
        // Turning a new catalogue's journal into a write-ahead log needs the file to
        // itself; while another run opens it SQLite says "locked" at once, without
        // waiting: wait here as long as for a busy catalogue.
        for (int waited = 0; !run(kSetUp, error); waited += kSetUpRetryMilliseconds) {
            if (!error.conflict || waited >= kBusyTimeoutMilliseconds) return close(error.message, error);
            sqlite3_sleep(kSetUpRetryMilliseconds);
        }
        return true;
    }

    bool run(const char* sql, DriverError& error)
    {
        char* message = nullptr;
        if (sqlite3_exec(db_, sql, nullptr, nullptr, &message) == SQLITE_OK) return true;
        if (db_) describeFailure(db_, error);
        if (message || !db_) error.message = message ? message : "not connected";
        sqlite3_free(message);
        return false;
    }

#ifdef ZEL_SQLCIPHER
    // libsqlcipher exports the names of libsqlite3. Should a libsqlite3 loaded
    // into the program's global scope stand in for it, the file would be
    // written unencrypted and the key handed to a library that did not open
    // it: only libsqlcipher knows PRAGMA cipher_version, and it is asked
    // before the key is set.
    bool unlock(const std::string& key, DriverError& error)
    {
        cipherVersion_ = firstValue("PRAGMA cipher_version");
        if (cipherVersion_.empty()) {
            error.message =
                std::string("the SQLite library in use cannot encrypt (SQLite ") + sqlite3_libversion() + " stands in for libsqlcipher)";
            return false;
        }
        if (sqlite3_key(db_, key.data(), static_cast<int>(key.size())) == SQLITE_OK) return true;
        error.message = sqlite3_errmsg(db_);
        return false;
    }

    // The first column of the first row of a statement; empty when it has none.
    std::string firstValue(const char* sql)
    {
        std::string value;
        sqlite3_stmt* stmt = nullptr;
        if (sqlite3_prepare_v2(db_, sql, -1, &stmt, nullptr) == SQLITE_OK && stmt && sqlite3_step(stmt) == SQLITE_ROW &&
            sqlite3_column_text(stmt, 0))
            value = reinterpret_cast<const char*>(sqlite3_column_text(stmt, 0));
        sqlite3_finalize(stmt);
        return value;
    }

    // A wrong key and a plain SQLite file look alike: neither decrypts.
    std::string unreadable(const std::string& message)
    {
        if (sqlite3_errcode(db_) != SQLITE_NOTADB) return message;
        return "wrong key or not an encrypted catalogue (" + message + ")";
    }
#else
    std::string unreadable(const std::string& message) { return message; }
#endif

    // Gives up a connection that could not be opened.
    bool close(const std::string& why, DriverError& error)
    {
        notADatabase_ = db_ && sqlite3_errcode(db_) == SQLITE_NOTADB;
        error.message = why;
        sqlite3_close_v2(db_);
        db_ = nullptr;
        return false;
    }

    sqlite3* db_ = nullptr;
    bool notADatabase_ = false; // the last open failed on a page that did not read as one
#ifdef ZEL_SQLCIPHER
    std::string cipherVersion_; // as the library reports it: "3.4.1"
#endif
};

} // namespace

extern "C" {
int ZELSQLDriverApiVersion() { return kApiVersion; }
Connection* ZELSQLDriverCreate() { return new SQLiteConnection(); }
}
