// SQL access through driver modules loaded by name.
//
//   SQLConnection db(L"ZELSQLite3");       // loads libZELSQLite3.so
//   db.open(L"DRIVER=ZELSQLite3;DATABASE=music.sqlite3");
//   SQLQuery q(&db);
//   q.prepare(L"INSERT INTO T (A, B) VALUES (:A, :B)");
//   q.params().byName(L"A")->setValue(1);   // or q.params()[1] by position
//   q.execute();
//
// Placeholders are ":NAME" (bound by name or by position, numbered from 0 in
// order of first appearance) or "?" (by position); every value is bound, never
// pasted into the text. Every failure throws SQLException (as a pointer).
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "zel/ByteString.h"
#include "zel/DateTime.h"
#include "zel/Exception.h"
#include "zel/Object.h"
#include "zel/SQLDriver.h"
#include "zel/String.h"

namespace ZELd {

class SharedLibrary;

namespace SQL {
enum DataType : int {
    Unknown = 0,
    Text = 13,  // text, bound as UTF-8
    Bytes = 14, // bytes (BLOB, bytea)
};
} // namespace SQL

class SQLException : public Exception {
public:
    using Exception::Exception;
    const wchar_t* className() const override { return L"SQLException"; }
};

class SQLParam {
public:
    explicit SQLParam(String name) : name_(std::move(name)) {}

    void setValue(short v) { setInt(v); }
    void setValue(int v) { setInt(v); }
    void setValue(unsigned int v) { setUInt(v); }
    void setValue(long long v) { setInt(v); }
    void setValue(unsigned long long v) { setUInt(v); }
    void setValue(const String& v, SQL::DataType type);
    void setValue(const ByteString& v, SQL::DataType type);
    // flags: how the time is stored; -32768 (0x8000): a timestamp without time zone.
    void setValue(DateTime v, short flags);
    void setNull() { value_ = sqldriver::Value(); }

    const String& name() const { return name_; }
    const sqldriver::Value& value() const { return value_; }

private:
    void setInt(long long v);
    void setUInt(unsigned long long v);

    String name_;
    sqldriver::Value value_;
};

class SQLParams {
public:
    size_t size() const { return params_.size(); }
    // By position, from 0. Out of range: an assertion, then the last parameter
    // (or a spare one when there is none), so that nothing outside is touched.
    SQLParam& operator[](size_t index);
    // By name without its colon; null when the statement has no such parameter.
    SQLParam* byName(const wchar_t* name);

private:
    friend class SQLQuery;
    std::vector<SQLParam> params_;
    SQLParam spare_{String()};
};

class SQLField {
public:
    bool isNull() const { return value_.kind == sqldriver::Value::Null; }
    int32_t asInt32() const { return static_cast<int32_t>(asInt64()); }
    int64_t asInt64() const;
    String asString() const;

private:
    friend class SQLQuery;
    friend class SQLFields;
    sqldriver::Value value_;
};

class SQLFields {
public:
    size_t size() const { return fields_.size(); }
    // Out of range: an assertion, then an empty (null) field.
    SQLField& operator[](size_t index);

private:
    friend class SQLQuery;
    std::vector<SQLField> fields_;
    SQLField spare_;
};

class SQLConnection : public Object {
public:
    // Loads the driver module libZEL<driverName>.so from beside the program,
    // from the install's library directory, or from the loader's search path.
    explicit SQLConnection(const String& driverName);
    ~SQLConnection() override;
    SQLConnection(const SQLConnection&) = delete;
    SQLConnection& operator=(const SQLConnection&) = delete;

    // KEY=value pairs separated by ";"; keys without regard to case.
    void open(const String& connectionString);
    String getServerInfo() const;
    bool connected() const;
    void startTrans();
    void commitTrans();
    void rollbackTrans();

    const String& driverName() const { return driverName_; }
    sqldriver::Connection& driver() const { return *driver_; }

    // A statement text in the driver's form, with its parameter names.
    struct Translation {
        std::string text;
        std::vector<String> names;
    };
    // Statement texts repeat for every file: each is translated once.
    const Translation& translate(const String& sql);

private:
    String driverName_;
    std::map<std::wstring, Translation> translations_;
    SharedLibrary* module_ = nullptr;
    sqldriver::Connection* driver_ = nullptr;
};

class SQLQuery : public Object {
public:
    explicit SQLQuery(SQLConnection* connection);
    ~SQLQuery() override;
    SQLQuery(const SQLQuery&) = delete;
    SQLQuery& operator=(const SQLQuery&) = delete;

    // Runs a statement without parameters; a query's rows are then fetched.
    void execute(const String& sql);
    // Moves to the next row; false at the end.
    bool fetch();
    SQLFields& fields() { return fields_; }

    // Prepares a statement with placeholders; replaces an earlier one.
    void prepare(const String& sql);
    SQLParams& params() { return params_; }
    // Runs the prepared statement with the parameters as they are set.
    void execute();

private:
    void release();

    SQLConnection* connection_;
    sqldriver::Statement* statement_ = nullptr;
    String sql_;
    SQLParams params_;
    SQLFields fields_;
};

// Splits a connection string into its settings: "KEY=value" pairs separated
// by ";", keys upper-cased, blanks around keys and values dropped.
sqldriver::Settings parseConnectionString(const String& connectionString);

// The statement text with each ":NAME" or "?" outside quotes replaced by the
// driver's placeholder; names gets the parameter names in order of first
// appearance ("" for "?"). A name met again refers to the same parameter.
std::string translatePlaceholders(const String& sql, sqldriver::Connection& driver, std::vector<String>& names);

} // namespace ZELd
