// SQL access through driver modules loaded by name.
//
//   SQLConnection db(L"ZELSQLite3");       // loads libZELSQLite3.so
//   db.open(L"DRIVER=ZELSQLite3;DATABASE=music.sqlite3");
//   SQLQuery q(&db);
//   q.prepare(L"INSERT INTO T (A, B) VALUES (:A, :B)");
//   q.params().byName(L"A")->setValue(1);   // or q.params()[1] by position
//   q.params()[1].setValue(String(L"x"), SQL::Text);
//   q.execute();
//
// Placeholders are ":NAME" (bound by name or by position, numbered from 0 in
// order of first appearance) or "?" (by position); every value is bound, never
// pasted into the text. Every failure throws SQLException (as a pointer),
// misuse included: a parameter the statement does not have, a value of the
// wrong data type. A query must not outlive its connection. One thread.
#pragma once

#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "zel/ByteString.h"
#include "zel/DateTime.h"
#include "zel/Object.h"
#include "zel/SQLConfiguration.h"
#include "zel/SQLException.h"
#include "zel/String.h"

namespace ZELd {

namespace sqldriver {
struct Value;
class Statement;
} // namespace sqldriver

namespace SQL {
// The data type of a text or bytes value, as setValue takes it.
enum DataType : int {
    Text = 13,  // text, bound as UTF-8
    Bytes = 14, // binary data (BLOB, bytea)
};
// How setValue stores a time: a timestamp without time zone (bit pattern 0x8000).
constexpr short TimestampWithoutZone = -32768;
} // namespace SQL

// One parameter of a prepared statement; it keeps its value from one execute
// to the next until it is set again.
class SQLParam {
public:
    SQLParam(String name, const String* statement);
    ~SQLParam();
    SQLParam(SQLParam&& other) noexcept;
    SQLParam& operator=(SQLParam&& other) noexcept;

    void setValue(short v) { setInt(v); }
    void setValue(int v) { setInt(v); }
    void setValue(unsigned int v) { setUInt(v); }
    void setValue(long long v) { setInt(v); }
    void setValue(unsigned long long v) { setUInt(v); }
    // type: SQL::Text; any other throws SQLException.
    void setValue(const String& v, SQL::DataType type);
    // type: SQL::Bytes; any other throws SQLException.
    void setValue(const ByteString& v, SQL::DataType type);
    // flags: SQL::TimestampWithoutZone; any other throws SQLException.
    void setValue(DateTime v, short flags);
    void setNull();

private:
    friend class SQLParams;
    friend class SQLQuery;
    void setInt(long long v);
    void setUInt(unsigned long long v);
    [[noreturn]] void refuse(const wchar_t* value, int type) const;

    String name_;
    const String* statement_; // the text of the query it belongs to
    std::unique_ptr<sqldriver::Value> value_;
};

class SQLParams {
public:
    // By position, from 0. Out of range: an assertion, then SQLException
    // naming the position and the statement; nothing is bound.
    SQLParam& operator[](size_t index);
    // By name without its colon; never null. A name the statement does not
    // have throws SQLException naming it and the statement.
    SQLParam* byName(const wchar_t* name);

private:
    friend class SQLQuery;
    std::vector<SQLParam> params_;
    const String* statement_ = nullptr;
};

class SQLField {
public:
    SQLField();
    ~SQLField();
    SQLField(SQLField&& other) noexcept;
    SQLField& operator=(SQLField&& other) noexcept;

    bool isNull() const;
    int32_t asInt32() const { return static_cast<int32_t>(asInt64()); }
    // An integer, or a text read as a decimal number; 0 for anything else.
    int64_t asInt64() const;
    // A number in decimal, or the text; empty for anything else.
    String asString() const;
    // The bytes of a binary value, or the UTF-8 of a text; empty for anything else.
    ByteString asBytes() const;
    // A timestamp, as each database gives one back (see DateTime::parse);
    // false for a value that is none.
    bool asDateTime(DateTime& out) const;

private:
    friend class SQLQuery;
    friend class SQLFields;
    std::unique_ptr<sqldriver::Value> value_;
};

// The columns of the current row.
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
    // Loads the driver module libZEL<driverName>.so (see SQLConfiguration).
    explicit SQLConnection(const String& driverName);
    ~SQLConnection() override;
    SQLConnection(const SQLConnection&) = delete;
    SQLConnection& operator=(const SQLConnection&) = delete;

    // KEY=value pairs separated by ";"; keys without regard to case, blanks
    // around keys and values dropped. The driver also gets the string unchanged.
    // createMissing: a database that is a file of its own is made when it is
    // not there yet.
    void open(const String& connectionString, bool createMissing = false);
    String getServerInfo() const;
    bool connected() const;
    void startTrans();
    void commitTrans();
    void rollbackTrans();

    static void configure(SQLConfiguration configuration);

private:
    friend class SQLQuery;
    struct Impl;
    struct Text;
    std::unique_ptr<Impl> impl_;
};

class SQLQuery : public Object {
public:
    explicit SQLQuery(SQLConnection* connection);
    ~SQLQuery() override;
    SQLQuery(const SQLQuery&) = delete;
    SQLQuery& operator=(const SQLQuery&) = delete;

    // Prepares the text and runs it with its parameters, if any, null.
    void execute(const String& sql);
    // Moves to the next row of the statement run last; false at the end, and
    // for a statement that returns no rows or has not run.
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
    SQLConnection::Text* text_ = nullptr;
    sqldriver::Statement* statement_ = nullptr;
    bool executed_ = false;
    String sql_;
    SQLParams params_;
    SQLFields fields_;
};

} // namespace ZELd
