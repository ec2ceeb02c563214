// The interface between the SQL layer and a driver module.
//
// A driver is a shared module (libZEL<Name>.so) that links its database's own
// client library. It exports ZELSQLDriverApiVersion() and
// ZELSQLDriverCreate(), and speaks only in plain types: UTF-8 text, numbers,
// bytes. Failures are reported through DriverError, never by exceptions
// crossing the module boundary.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace ZELd::sqldriver {

constexpr int kApiVersion = 1;

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

struct DriverError {
    std::string message;
};

// The KEY=value pairs of the connection string, keys upper-cased, blanks dropped.
using Settings = std::vector<std::pair<std::string, std::string>>;

inline const std::string* setting(const Settings& s, const char* key)
{
    for (const auto& kv : s)
        if (kv.first == key) return &kv.second;
    return nullptr;
}

class Statement {
public:
    virtual ~Statement() = default;
    // Binds parameter index (0-based) for the next execute.
    virtual bool bind(size_t index, const Value& value, DriverError& error) = 0;
    virtual bool execute(DriverError& error) = 0;
    // The next row of a query's result; false at the end (error empty) or on failure.
    virtual bool fetch(std::vector<Value>& row, DriverError& error) = 0;
};

class Connection {
public:
    virtual ~Connection() = default;
    virtual bool open(const Settings& settings, const std::string& connectionString, DriverError& error) = 0;
    virtual std::string serverInfo() = 0;
    virtual bool connected() = 0;
    virtual bool begin(DriverError& error) = 0;
    virtual bool commit(DriverError& error) = 0;
    virtual bool rollback(DriverError& error) = 0;
    // How the driver writes the placeholder of parameter index (0-based).
    virtual std::string placeholder(size_t index) = 0;
    // sql holds the driver's placeholders. The statement may come from a cache
    // of the connection: the caller deletes it, the driver keeps what it caches.
    virtual Statement* prepare(const std::string& sql, size_t parameters, DriverError& error) = 0;
};

} // namespace ZELd::sqldriver

extern "C" {
int ZELSQLDriverApiVersion();
ZELd::sqldriver::Connection* ZELSQLDriverCreate();
}
