// The interface between the SQL layer (zel/SQL.cpp) and a driver module.
//
// A driver is a shared module, libZEL<Name>.so for DRIVER=ZEL<Name>, that
// links its database's own client library; the program links none. The layer
// loads the module by name, checks ZELSQLDriverApiVersion() against
// kApiVersion and makes one Connection with ZELSQLDriverCreate() for each
// SQLConnection. Only plain types cross: UTF-8 text, numbers, bytes.
//
// What every driver keeps to:
//
// Ownership and lifetimes
//   - ZELSQLDriverCreate() returns a new Connection, or null when it cannot
//     make one. The layer deletes it; the module stays loaded until then. Its
//     destructor closes the link to the database (a transaction still open
//     is left to the database, which rolls it back).
//   - prepare() returns a new Statement that the layer deletes, always before
//     its Connection: a statement outlives nothing it refers to.
//   - A statement owns its handle on the database: no two statements share a
//     cursor, bindings or a result, not even two of the same text. What a
//     server keeps for a text and that holds none of these (a PostgreSQL named
//     prepared statement) may be shared.
//   - The layer keeps statements that no query holds for the next prepare of
//     the same text: it calls reset() on each and binds and executes it again
//     later. A driver needs no statement cache of its own.
//   - Texts and values passed in belong to the caller and live only during
//     the call: a driver copies what it keeps.
//
// Threading
//   - One thread: a connection and its statements are called from one thread,
//     one call at a time. A driver takes no lock and keeps no state outside
//     its connections.
//
// Errors
//   - A call that fails returns false (prepare(): null) and puts the
//     database's own words in DriverError::message: UTF-8, without a line
//     break at the end. The layer adds what it was doing and throws.
//   - DriverError::conflict says that the failure came from another
//     transaction (a unique key it took, a deadlock, a serialization
//     failure); the program then stores the file again under new ids. Set it
//     from the database's own error code (SQLSTATE 23505, 40001, 40P01 and
//     their engine-specific equivalents), never from the message text.
//   - No exception leaves the module: every failure a driver sees is told
//     through DriverError. (Running out of memory ends the process, in a
//     driver as anywhere else in the program.)
//
// open(): called once, right after the connection is made.
//   - settings: the KEY=value pairs of the connection string in the order
//     given, keys upper-cased, blanks around keys and values dropped;
//     setting() finds the first of a key. Keys: DRIVER, DATABASE, USER,
//     PASSWORD, SERVER (a host, or host "/" port), PORT, KEY. A driver uses
//     the ones its database has and ignores the others.
//   - connectionString: the string as the user gave it. An ODBC driver hands
//     it to the driver manager unchanged.
//   - applicationName: how the program names itself to a server that lists
//     its clients (PostgreSQL's application_name); empty: name nothing.
//
// Values, bound and fetched (Value::Kind)
//   Null   SQL NULL.
//   Int    a signed 64-bit integer, stored exactly.
//   UInt   an unsigned 64-bit integer up to 2^64-1, stored exactly; where
//          the database has no column type for it (SQLite beyond 2^63-1),
//          as its decimal text.
//   Text   valid UTF-8 (the layer replaces what is not), stored as text.
//   Bytes  raw bytes, zero bytes included, stored as binary data.
//   Time   a local date and time to the millisecond, stored as a timestamp
//          without time zone (where there is none, as the text
//          "YYYY-MM-DD HH:MM:SS.mmm" of timestampText()).
//   fetch() gives integer columns as Int, binary columns as Bytes, NULL as
//   Null and every other value as Text, as the database renders it.
//
// Placeholders
//   - Before prepare() the layer rewrites each ":NAME" and "?" outside quotes
//     ('...', "...") and comments (-- to the line end, /* ... */) as
//     placeholder(index), indexes counted from 0. "::" (a cast) stays.
//   - A driver whose placeholders carry their number ("?1", "$1") gets one
//     index for each distinct name: a name used twice is written twice with
//     its one index.
//   - A driver whose placeholder is the same for every index ("?") gets one
//     index for each placeholder, in order; the layer binds the value of a
//     name used twice to each of its places.
//   - prepare() receives the number of indexes.
//
// Statements
//   - returnsRows(): whether running the statement yields rows, as the
//     database describes the prepared statement (SQLite: its column count;
//     PostgreSQL: the description of the prepared statement), never guessed
//     from the text or the number of parameters. Known from prepare() on.
//   - bind(): sets parameter index for the next execute(). The layer binds
//     every parameter before every execute().
//   - execute(): runs the statement. One that returns no rows may be queued
//     inside a transaction, its failure told by the next call that waits for
//     an answer (a query, the first prepare of a text, the commit):
//     PostgreSQL pipelines a file's inserts so. One that returns rows is
//     answered before execute() returns.
//   - fetch(): the next row of the last execute(); false at the end (message
//     empty) or on a failure (message set). After the end every fetch()
//     returns false: it never runs the statement again. The layer calls it
//     only after execute() of a statement that returns rows.
//   - reset(): ends what the last execute() left open (a result being read,
//     the locks it holds) and forgets the bindings, so that the statement is
//     as prepare() returned it.
//
// Transactions
//   - begin(), commit(), rollback(): one transaction at a time; outside one
//     each statement commits by itself.
//   - commit() fails when any statement of the transaction failed, queued
//     ones included; the program then calls rollback().
//   - rollback() succeeds when the database has already rolled the
//     transaction back by itself (SQLite does after a full disk or an I/O
//     error): nothing is left to undo. It fails when the transaction cannot be
//     ended, as when the link to the server is lost: nothing more can be
//     stored, and the program stops its walk.
//   - connected(): false before a successful open(), then true until the
//     driver learns that the link is gone. Answered without a round trip:
//     it is asked before every file.
//
// serverInfo(): the database and its version as the server (or the embedded
// library) reports it, "PostgreSQL 15.4", "SQLite 3.40.1"; the program shows
// it in its "Database connected." line. Called after a successful open().
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

namespace ZELd::sqldriver {

constexpr int kApiVersion = 2;

struct Timestamp {
    int year, month, day, hour, minute, second, millisecond;
};

struct Value {
    enum Kind { Null, Int, UInt, Text, Bytes, Time };
    Kind kind = Null;
    int64_t i = 0;
    uint64_t u = 0;
    std::string bytes; // Text: UTF-8; Bytes: raw
    Timestamp time{};
};

// "YYYY-MM-DD HH:MM:SS.mmm", for a database that takes a time as text.
inline std::string timestampText(const Timestamp& t)
{
    char text[48];
    std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d.%03d", t.year, t.month, t.day, t.hour, t.minute, t.second,
                  t.millisecond);
    return text;
}

struct DriverError {
    std::string message;
    // The failure is another transaction's doing: it took a key this one
    // writes (a unique or primary key), or the two deadlocked or could not be
    // serialised. Rolled back and tried again, the work may succeed.
    bool conflict = false;
};

// The KEY=value pairs of a connection string.
using Settings = std::vector<std::pair<std::string, std::string>>;

struct OpenRequest {
    Settings settings;
    std::string connectionString;
    std::string applicationName;
    // A database that is a file of its own (SQLite) is made when it is not there yet.
    bool createMissing = false;

    // The value of an upper-case key; null when the string has none.
    const std::string* setting(const char* key) const
    {
        for (const auto& [name, value] : settings)
            if (name == key) return &value;
        return nullptr;
    }
};

class Statement {
public:
    virtual ~Statement() = default;
    virtual bool returnsRows() const = 0;
    virtual bool bind(size_t index, const Value& value, DriverError& error) = 0;
    virtual bool execute(DriverError& error) = 0;
    virtual bool fetch(std::vector<Value>& row, DriverError& error) = 0;
    virtual void reset() = 0;
};

class Connection {
public:
    virtual ~Connection() = default;
    virtual bool open(const OpenRequest& request, DriverError& error) = 0;
    virtual std::string serverInfo() = 0;
    virtual bool connected() = 0;
    virtual bool begin(DriverError& error) = 0;
    virtual bool commit(DriverError& error) = 0;
    virtual bool rollback(DriverError& error) = 0;
    // How the driver writes the placeholder of parameter index in a statement.
    virtual std::string placeholder(size_t index) = 0;
    // sql holds the driver's placeholders; parameters: how many indexes.
    virtual Statement* prepare(const std::string& sql, size_t parameters, DriverError& error) = 0;
};

} // namespace ZELd::sqldriver

extern "C" {
int ZELSQLDriverApiVersion();
ZELd::sqldriver::Connection* ZELSQLDriverCreate();
}
