// The SQLite driver module (libZELSQLite3.so), over libsqlite3.
//
// DATABASE names the file, which must exist (the program creates no tables).
// The database runs with a write-ahead log and normal synchronisation: a
// committed transaction survives a crash of the program; a power loss can
// cost the last transactions committed before it, never the file's integrity.
#include <sqlite3.h>

#include <cstdio>
#include <map>

#include "zel/SQLDriver.h"

namespace {

using namespace ZELd::sqldriver;

std::string formatTime(const Timestamp& t)
{
    char buffer[40];
    std::snprintf(buffer, sizeof buffer, "%04d-%02d-%02d %02d:%02d:%02d.%03d", t.year, t.month, t.day, t.hour, t.minute, t.second,
                  t.millisecond);
    return buffer;
}

class SQLiteStatement : public Statement {
public:
    SQLiteStatement(sqlite3* db, sqlite3_stmt* stmt, bool owned) : db_(db), stmt_(stmt), owned_(owned) {}
    ~SQLiteStatement() override
    {
        if (owned_) sqlite3_finalize(stmt_);
        else sqlite3_reset(stmt_);
    }

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
        case Value::Time: rc = sqlite3_bind_text(stmt_, i, formatTime(v.time).c_str(), -1, SQLITE_TRANSIENT); break;
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
        error.message = sqlite3_errmsg(db_);
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
        int n = sqlite3_column_count(stmt_);
        row.assign(static_cast<size_t>(n), Value());
        for (int c = 0; c < n; ++c) {
            Value& v = row[static_cast<size_t>(c)];
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
                v.bytes.assign(reinterpret_cast<const char*>(sqlite3_column_text(stmt_, c)), static_cast<size_t>(sqlite3_column_bytes(stmt_, c)));
                break;
            }
        }
        return true;
    }

private:
    void reset()
    {
        sqlite3_reset(stmt_);
        sqlite3_clear_bindings(stmt_);
        fresh_ = true;
    }

    sqlite3* db_;
    sqlite3_stmt* stmt_;
    bool owned_;
    bool fresh_ = true;   // bindings set since the last execute
    bool pending_ = false; // a row stepped to by execute, not yet fetched
    bool done_ = false;    // the statement has run to its end
};

class SQLiteConnection : public Connection {
public:
    ~SQLiteConnection() override
    {
        for (auto& kv : cache_) sqlite3_finalize(kv.second);
        if (db_) sqlite3_close_v2(db_);
    }

    bool open(const Settings& settings, const std::string&, DriverError& error) override
    {
        const std::string* file = setting(settings, "DATABASE");
        if (!file || file->empty()) {
            error.message = "no DATABASE= file named in the connection string";
            return false;
        }
        // The file must exist: the program never creates tables.
        if (sqlite3_open_v2(file->c_str(), &db_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr) != SQLITE_OK) {
            error.message = (db_ ? sqlite3_errmsg(db_) : "out of memory") + std::string(" [") + *file + "]";
            sqlite3_close_v2(db_);
            db_ = nullptr;
            return false;
        }
        sqlite3_busy_timeout(db_, 10000);
        char* message = nullptr;
        if (sqlite3_exec(db_, "PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL; PRAGMA foreign_keys=ON;", nullptr, nullptr,
                         &message) != SQLITE_OK) {
            error.message = message ? message : sqlite3_errmsg(db_);
            sqlite3_free(message);
            sqlite3_close_v2(db_);
            db_ = nullptr;
            return false;
        }
        // A file that is not a database fails on its first read: find out now.
        if (sqlite3_exec(db_, "SELECT count(*) FROM sqlite_master", nullptr, nullptr, &message) != SQLITE_OK) {
            error.message = (message ? message : sqlite3_errmsg(db_)) + std::string(" [") + *file + "]";
            sqlite3_free(message);
            sqlite3_close_v2(db_);
            db_ = nullptr;
            return false;
        }
        return true;
    }

    std::string serverInfo() override { return std::string("SQLite ") + sqlite3_libversion(); }
    bool connected() override { return db_ != nullptr; }
    bool begin(DriverError& error) override { return run("BEGIN", error); }
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
        auto it = cache_.find(sql);
        if (it != cache_.end()) {
            sqlite3_reset(it->second);
            sqlite3_clear_bindings(it->second);
            return new SQLiteStatement(db_, it->second, false);
        }
        sqlite3_stmt* stmt = nullptr;
        if (sqlite3_prepare_v2(db_, sql.c_str(), static_cast<int>(sql.size()), &stmt, nullptr) != SQLITE_OK) {
            error.message = sqlite3_errmsg(db_);
            return nullptr;
        }
        // Statements with parameters repeat for every file: keep them.
        if (sqlite3_bind_parameter_count(stmt) > 0) {
            cache_.emplace(sql, stmt);
            return new SQLiteStatement(db_, stmt, false);
        }
        return new SQLiteStatement(db_, stmt, true);
    }

private:
    bool run(const char* sql, DriverError& error)
    {
        char* message = nullptr;
        if (sqlite3_exec(db_, sql, nullptr, nullptr, &message) == SQLITE_OK) return true;
        error.message = message ? message : (db_ ? sqlite3_errmsg(db_) : "not connected");
        sqlite3_free(message);
        return false;
    }

    sqlite3* db_ = nullptr;
    std::map<std::string, sqlite3_stmt*> cache_;
};

} // namespace

extern "C" {
int ZELSQLDriverApiVersion() { return kApiVersion; }
Connection* ZELSQLDriverCreate() { return new SQLiteConnection(); }
}
