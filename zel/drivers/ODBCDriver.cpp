// The ODBC driver module (libZELODBC.so), over the unixODBC driver manager.
//
// The connection string goes to the driver manager exactly as the user wrote
// it: DRIVER={...} names an ODBC driver registered in odbcinst.ini, and every
// other key belongs to that driver.
// Text crosses as UTF-16 (SQLWCHAR) both ways, so that no driver's idea of a
// character set for narrow strings comes into play. Parameters are "?".
//
// Autocommit is switched off by begin() and the transaction ended with
// SQLEndTran. It is switched on again only when a statement runs outside a
// transaction: a run that stores file after file never pays for the switch
// (MariaDB's driver sends it to the server each time).
#include <sql.h>
#include <sqlext.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include "zel/SQLDriver.h"

namespace {

using namespace ZELd::sqldriver;

constexpr SQLUINTEGER kLoginTimeoutSeconds = 10;
constexpr size_t kPieceUnits = 8192; // SQLGetData reads values in pieces of this many units (bytes, or UTF-16 units)

using WideText = std::vector<SQLWCHAR>;

// ---- text ---------------------------------------------------------------------

// UTF-8 to UTF-16 in out, ending in a zero; a malformed sequence becomes
// U+FFFD. out keeps its storage when it is large enough.
void toWide(const std::string& utf8, WideText& out)
{
    out.clear();
    for (size_t i = 0; i < utf8.size();) {
        const auto lead = static_cast<unsigned char>(utf8[i]);
        const size_t length = lead < 0x80 ? 1 : lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC0 ? 2 : 0;
        char32_t c = length == 1 ? lead : length == 2 ? lead & 0x1F : length == 3 ? lead & 0x0F : lead & 0x07;
        bool valid = length > 0 && i + length <= utf8.size();
        for (size_t k = 1; valid && k < length; ++k) {
            const auto next = static_cast<unsigned char>(utf8[i + k]);
            valid = (next & 0xC0) == 0x80;
            c = (c << 6) | (next & 0x3F);
        }
        if (!valid || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) {
            out.push_back(0xFFFD);
            ++i;
            continue;
        }
        if (c >= 0x10000) {
            out.push_back(static_cast<SQLWCHAR>(0xD800 + ((c - 0x10000) >> 10)));
            out.push_back(static_cast<SQLWCHAR>(0xDC00 + ((c - 0x10000) & 0x3FF)));
        } else {
            out.push_back(static_cast<SQLWCHAR>(c));
        }
        i += length;
    }
    out.push_back(0);
}

WideText wide(const std::string& utf8)
{
    WideText out;
    toWide(utf8, out);
    return out;
}

void appendUtf8(std::string& out, char32_t c)
{
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += static_cast<char>(0xC0 | (c >> 6));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += static_cast<char>(0xE0 | (c >> 12));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (c >> 18));
        out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
}

// UTF-16 to UTF-8; an unpaired surrogate becomes U+FFFD.
std::string narrow(const SQLWCHAR* text, size_t units)
{
    std::string out;
    out.reserve(units);
    for (size_t i = 0; i < units; ++i) {
        char32_t c = text[i];
        if (c >= 0xD800 && c <= 0xDBFF && i + 1 < units && text[i + 1] >= 0xDC00 && text[i + 1] <= 0xDFFF)
            c = 0x10000 + ((c - 0xD800) << 10) + (text[++i] - 0xDC00);
        else if (c >= 0xD800 && c <= 0xDFFF) c = 0xFFFD;
        appendUtf8(out, c);
    }
    return out;
}

// ---- diagnostics --------------------------------------------------------------

// What went wrong on a handle: every diagnostic record, joined.
struct Diagnosis {
    std::string message;
    bool linkLost = false; // a record of class 08: the connection is gone
    bool conflict = false; // another run's doing: see conflicts()
};

// A key another run stored first (class 23), a deadlock (class 40), a lock
// wait that timed out (HYT00). The SQLite ODBC driver says HY000 for every
// error, with SQLite's own code as the native one: a database busy (5) or
// locked (6), or a constraint (19) that is a unique key by SQLite's words
// (a trigger's refusal is a constraint too).
bool conflicts(const std::string& sqlState, SQLINTEGER native, const std::string& message, bool sqlite)
{
    if (sqlState.rfind("23", 0) == 0 || sqlState.rfind("40", 0) == 0 || sqlState == "HYT00") return true;
    if (!sqlite || sqlState != "HY000") return false;
    return native == 5 || native == 6 || (native == 19 && message.find("UNIQUE constraint failed") != std::string::npos);
}

Diagnosis diagnose(SQLSMALLINT type, SQLHANDLE handle, bool sqlite = false)
{
    Diagnosis d;
    for (SQLSMALLINT record = 1;; ++record) {
        SQLWCHAR state[6] = {}, text[1024];
        SQLINTEGER native = 0;
        SQLSMALLINT length = 0;
        const SQLRETURN rc = SQLGetDiagRecW(type, handle, record, state, &native, text, SQLSMALLINT(sizeof text / sizeof *text), &length);
        if (!SQL_SUCCEEDED(rc)) break;
        std::string message = narrow(text, std::min<size_t>(static_cast<size_t>(std::max<SQLSMALLINT>(length, 0)), std::size(text) - 1));
        while (!message.empty() && (message.back() == '\n' || message.back() == ' ')) message.pop_back();
        const std::string sqlState = narrow(state, 5);
        d.linkLost = d.linkLost || sqlState.rfind("08", 0) == 0;
        d.conflict = d.conflict || conflicts(sqlState, native, message, sqlite);
        if (!d.message.empty()) d.message += "; ";
        d.message += message + " (SQLSTATE " + sqlState + ")";
    }
    if (d.message.empty()) d.message = "the ODBC driver gave no reason";
    return d;
}

// ---- statements ---------------------------------------------------------------

// How a parameter is bound: SQLBindParameter is called again only when this changes.
struct Binding {
    SQLSMALLINT cType = SQL_C_CHAR, sqlType = SQL_VARCHAR, digits = 0;
    SQLULEN size = 1;
    SQLPOINTER buffer = nullptr;
    SQLLEN bufferLength = 0;
    bool operator==(const Binding&) const = default;
};

// One parameter. The driver reads its buffers at SQLExecute; they keep their
// place from one value to the next while they are large enough, and a text's
// column size is its room, so that a new text seldom needs a new binding (the
// driver manager's SQLBindParameter costs as much as the rest of an insert's
// work in the program). Bytes are bound with their own length as the column
// size: a driver may take a binary value's length once per binding, at the
// first execute after it (SQLite's does, and then stores every later value of
// that binding with the first one's length), so bytes of another length are
// bound again.
struct Parameter {
    Binding binding;
    std::optional<Binding> bound;
    SQLLEN indicator = SQL_NULL_DATA;
    SQLBIGINT number = 0;
    WideText text;
    std::string bytes; // SQL_C_BINARY, or the digits of a large unsigned number
    SQL_TIMESTAMP_STRUCT time{};

    void set(const Value& v);
    void setNumber(const Value& v);
};

void Parameter::set(const Value& v)
{
    switch (v.kind) {
    case Value::Int:
    case Value::UInt: setNumber(v); break;
    case Value::Text:
        toWide(v.bytes, text);
        binding = {SQL_C_WCHAR, SQL_WVARCHAR,
                   0,           std::max<SQLULEN>(text.capacity() - 1, 1),
                   text.data(), static_cast<SQLLEN>(text.capacity() * sizeof(SQLWCHAR))};
        indicator = static_cast<SQLLEN>((text.size() - 1) * sizeof(SQLWCHAR));
        break;
    case Value::Bytes:
        bytes = v.bytes;
        binding = {SQL_C_BINARY, SQL_VARBINARY, 0, std::max<SQLULEN>(bytes.size(), 1), bytes.data(), static_cast<SQLLEN>(bytes.capacity())};
        indicator = static_cast<SQLLEN>(bytes.size());
        break;
    case Value::Time:
        time = {SQLSMALLINT(v.time.year),
                SQLUSMALLINT(v.time.month),
                SQLUSMALLINT(v.time.day),
                SQLUSMALLINT(v.time.hour),
                SQLUSMALLINT(v.time.minute),
                SQLUSMALLINT(v.time.second),
                SQLUINTEGER(v.time.millisecond) * 1000000u}; // the fraction is in nanoseconds
        binding = {SQL_C_TYPE_TIMESTAMP, SQL_TYPE_TIMESTAMP, 3, 23, &time, sizeof time};
        indicator = sizeof time;
        break;
    default: // NULL keeps the last binding: a column's type, when it had a value before
        indicator = SQL_NULL_DATA;
        break;
    }
}

void Parameter::setNumber(const Value& v)
{
    if (v.kind == Value::Int || v.u <= static_cast<uint64_t>(INT64_MAX)) {
        // Signed also for unsigned values: some drivers (SQLite's) store SQL_C_UBIGINT 2^64-1 as -1.
        number = v.kind == Value::Int ? v.i : static_cast<SQLBIGINT>(v.u);
        binding = {SQL_C_SBIGINT, SQL_BIGINT, 0, 19, &number, sizeof number};
        indicator = 0;
    } else {
        bytes = std::to_string(v.u);
        binding = {SQL_C_CHAR, SQL_DECIMAL, 0, 20, bytes.data(), static_cast<SQLLEN>(bytes.capacity())};
        indicator = static_cast<SQLLEN>(bytes.size());
    }
}

// How a result column is read.
enum class ColumnKind { Integer, Binary, Text };

ColumnKind kindOf(SQLSMALLINT sqlType)
{
    switch (sqlType) {
    case SQL_TINYINT:
    case SQL_SMALLINT:
    case SQL_INTEGER:
    case SQL_BIGINT: return ColumnKind::Integer;
    case SQL_BINARY:
    case SQL_VARBINARY:
    case SQL_LONGVARBINARY: return ColumnKind::Binary;
    default: return ColumnKind::Text;
    }
}

// An integer column arrives as its digits: unsigned 64-bit values and
// SQLite's dynamically typed columns (text in an INTEGER column) come through
// whole. Digits become Int, or UInt beyond the signed range; anything else
// stays text.
void asNumber(Value& v)
{
    const std::string& text = v.bytes;
    if (text.empty() || text.size() > 20) return;
    char* end = nullptr;
    errno = 0;
    const long long i = std::strtoll(text.c_str(), &end, 10);
    if (*end == '\0' && errno == 0) {
        v.kind = Value::Int, v.i = i;
        v.bytes.clear();
        return;
    }
    errno = 0;
    const unsigned long long u = std::strtoull(text.c_str(), &end, 10);
    if (text[0] == '-' || *end != '\0' || errno != 0) return;
    v.kind = Value::UInt, v.u = u;
    v.bytes.clear();
}

class OdbcConnection;

class OdbcStatement : public Statement {
public:
    OdbcStatement(OdbcConnection& owner, SQLHSTMT stmt, size_t parameters, bool returnsRows)
        : owner_(owner), stmt_(stmt), parameters_(parameters), returnsRows_(returnsRows)
    {}
    ~OdbcStatement() override { SQLFreeHandle(SQL_HANDLE_STMT, stmt_); }

    bool returnsRows() const override { return returnsRows_; }
    bool bind(size_t index, const Value& v, DriverError& error) override;
    bool execute(DriverError& error) override;
    bool fetch(std::vector<Value>& row, DriverError& error) override;
    void reset() override;

private:
    bool fail(DriverError& error);
    bool describeColumns(DriverError& error);
    bool readColumn(SQLUSMALLINT column, Value& v, DriverError& error);
    bool readPieces(SQLUSMALLINT column, bool binary, Value& v, DriverError& error);
    void closeCursor();

    OdbcConnection& owner_;
    SQLHSTMT stmt_;
    std::vector<Parameter> parameters_;
    bool returnsRows_;
    std::vector<ColumnKind> columns_; // described at the first fetch
    std::vector<SQLWCHAR> piece_ = std::vector<SQLWCHAR>(kPieceUnits);
    bool cursorOpen_ = false;
    bool done_ = false;
};

// ---- the connection -----------------------------------------------------------

class OdbcConnection : public Connection {
public:
    ~OdbcConnection() override;

    bool open(const OpenRequest& request, DriverError& error) override;
    std::string serverInfo() override;
    bool connected() override { return open_ && !lost_; }
    bool begin(DriverError& error) override;
    bool commit(DriverError& error) override { return endTransaction(SQL_COMMIT, error); }
    bool rollback(DriverError& error) override { return endTransaction(SQL_ROLLBACK, error); }
    std::string placeholder(size_t) override { return "?"; }
    Statement* prepare(const std::string& sql, size_t parameters, DriverError& error) override;

    // A statement failed: the transaction cannot be committed, and the link may be gone.
    bool statementFailed(SQLHSTMT stmt, DriverError& error);
    // Outside a transaction every statement commits by itself.
    bool readyToRun(DriverError& error) { return inTransaction_ || autocommit_ || setAutocommit(true, error); }

private:
    bool fail(DriverError& error, SQLSMALLINT type, SQLHANDLE handle);
    bool setAutocommit(bool on, DriverError& error);
    bool endTransaction(SQLSMALLINT completion, DriverError& error);
    std::string info(SQLUSMALLINT what);

    SQLHENV env_ = SQL_NULL_HENV;
    SQLHDBC dbc_ = SQL_NULL_HDBC;
    bool open_ = false, lost_ = false;
    bool sqlite_ = false; // the database is SQLite: its driver's errors are told by their native codes
    bool autocommit_ = true, inTransaction_ = false, failedInTransaction_ = false;
};

OdbcConnection::~OdbcConnection()
{
    if (open_) {
        // A transaction still open is undone, as the database would do when the link closes.
        if (!autocommit_) SQLEndTran(SQL_HANDLE_DBC, dbc_, SQL_ROLLBACK);
        SQLDisconnect(dbc_);
    }
    if (dbc_ != SQL_NULL_HDBC) SQLFreeHandle(SQL_HANDLE_DBC, dbc_);
    if (env_ != SQL_NULL_HENV) SQLFreeHandle(SQL_HANDLE_ENV, env_);
}

bool OdbcConnection::open(const OpenRequest& request, DriverError& error)
{
    if (!SQL_SUCCEEDED(SQLAllocHandle(SQL_HANDLE_ENV, SQL_NULL_HANDLE, &env_))) {
        env_ = SQL_NULL_HENV;
        error.message = "the ODBC driver manager cannot make an environment";
        return false;
    }
    if (!SQL_SUCCEEDED(SQLSetEnvAttr(env_, SQL_ATTR_ODBC_VERSION, reinterpret_cast<SQLPOINTER>(SQL_OV_ODBC3), 0)))
        return fail(error, SQL_HANDLE_ENV, env_);
    if (!SQL_SUCCEEDED(SQLAllocHandle(SQL_HANDLE_DBC, env_, &dbc_))) {
        dbc_ = SQL_NULL_HDBC;
        return fail(error, SQL_HANDLE_ENV, env_);
    }
    // A driver that has no login timeout refuses it; the connection is made all the same.
    SQLSetConnectAttr(dbc_, SQL_ATTR_LOGIN_TIMEOUT, reinterpret_cast<SQLPOINTER>(static_cast<uintptr_t>(kLoginTimeoutSeconds)), 0);
    WideText connection = wide(request.connectionString);
    SQLWCHAR completed[1024];
    SQLSMALLINT completedLength = 0;
    const SQLRETURN rc = SQLDriverConnectW(dbc_, nullptr, connection.data(), SQL_NTS, completed, SQLSMALLINT(std::size(completed)),
                                           &completedLength, SQL_DRIVER_NOPROMPT);
    if (!SQL_SUCCEEDED(rc)) return fail(error, SQL_HANDLE_DBC, dbc_);
    open_ = true;
    sqlite_ = info(SQL_DBMS_NAME) == "SQLite";
    return true;
}

std::string OdbcConnection::info(SQLUSMALLINT what)
{
    SQLWCHAR text[256];
    SQLSMALLINT length = 0;
    if (!SQL_SUCCEEDED(SQLGetInfoW(dbc_, what, text, sizeof text, &length))) return "?";
    return narrow(text, std::min<size_t>(static_cast<size_t>(std::max<SQLSMALLINT>(length, 0)) / sizeof(SQLWCHAR), std::size(text) - 1));
}

std::string OdbcConnection::serverInfo()
{
    if (!open_) return "ODBC";
    return info(SQL_DBMS_NAME) + " " + info(SQL_DBMS_VER);
}

bool OdbcConnection::fail(DriverError& error, SQLSMALLINT type, SQLHANDLE handle)
{
    const Diagnosis d = diagnose(type, handle, sqlite_);
    error.message = d.message;
    error.conflict = d.conflict;
    lost_ = lost_ || (open_ && d.linkLost);
    return false;
}

bool OdbcConnection::setAutocommit(bool on, DriverError& error)
{
    const SQLULEN value = on ? SQL_AUTOCOMMIT_ON : SQL_AUTOCOMMIT_OFF;
    if (!SQL_SUCCEEDED(SQLSetConnectAttr(dbc_, SQL_ATTR_AUTOCOMMIT, reinterpret_cast<SQLPOINTER>(value), SQL_IS_UINTEGER)))
        return fail(error, SQL_HANDLE_DBC, dbc_);
    autocommit_ = on;
    return true;
}

bool OdbcConnection::begin(DriverError& error)
{
    if (!open_) {
        error.message = "not connected";
        return false;
    }
    if (autocommit_ && !setAutocommit(false, error)) return false;
    inTransaction_ = true;
    failedInTransaction_ = false;
    return true;
}

// Ends the transaction; autocommit stays off until a statement runs outside one.
bool OdbcConnection::endTransaction(SQLSMALLINT completion, DriverError& error)
{
    if (!open_) {
        error.message = "not connected";
        return false;
    }
    const bool failedBefore = failedInTransaction_;
    inTransaction_ = failedInTransaction_ = false;
    if (completion == SQL_COMMIT && failedBefore) {
        // Some databases would commit the rows of the statements that went through.
        SQLEndTran(SQL_HANDLE_DBC, dbc_, SQL_ROLLBACK);
        error.message = "a statement of the transaction failed: it was rolled back";
        return false;
    }
    if (!SQL_SUCCEEDED(SQLEndTran(SQL_HANDLE_DBC, dbc_, completion))) return fail(error, SQL_HANDLE_DBC, dbc_);
    // The database ends the transaction of a lost link by itself, but nothing more can be stored.
    if (lost_) {
        error.message = "no connection to the server";
        return false;
    }
    return true;
}

Statement* OdbcConnection::prepare(const std::string& sql, size_t parameters, DriverError& error)
{
    if (!open_) {
        error.message = "not connected";
        return nullptr;
    }
    if (!readyToRun(error)) return nullptr;
    SQLHSTMT stmt = SQL_NULL_HSTMT;
    if (!SQL_SUCCEEDED(SQLAllocHandle(SQL_HANDLE_STMT, dbc_, &stmt))) {
        fail(error, SQL_HANDLE_DBC, dbc_);
        return nullptr;
    }
    WideText text = wide(sql);
    SQLSMALLINT columns = 0;
    if (!SQL_SUCCEEDED(SQLPrepareW(stmt, text.data(), SQL_NTS)) || !SQL_SUCCEEDED(SQLNumResultCols(stmt, &columns))) {
        statementFailed(stmt, error);
        SQLFreeHandle(SQL_HANDLE_STMT, stmt);
        return nullptr;
    }
    return new OdbcStatement(*this, stmt, parameters, columns > 0);
}

bool OdbcConnection::statementFailed(SQLHSTMT stmt, DriverError& error)
{
    fail(error, SQL_HANDLE_STMT, stmt);
    if (inTransaction_) failedInTransaction_ = true;
    // Some drivers say nothing of class 08 when the server is gone: ask, now that it costs no file's time.
    SQLUINTEGER dead = SQL_CD_FALSE;
    if (!lost_ && SQL_SUCCEEDED(SQLGetConnectAttr(dbc_, SQL_ATTR_CONNECTION_DEAD, &dead, SQL_IS_UINTEGER, nullptr)))
        lost_ = dead == SQL_CD_TRUE;
    return false;
}

// ---- statements, continued ----------------------------------------------------

bool OdbcStatement::bind(size_t index, const Value& v, DriverError& error)
{
    if (index >= parameters_.size()) {
        error.message = "no parameter " + std::to_string(index);
        return false;
    }
    parameters_[index].set(v);
    return true;
}

bool OdbcStatement::fail(DriverError& error) { return owner_.statementFailed(stmt_, error); }

void OdbcStatement::closeCursor()
{
    if (cursorOpen_) SQLFreeStmt(stmt_, SQL_CLOSE);
    cursorOpen_ = false;
    done_ = false;
}

bool OdbcStatement::execute(DriverError& error)
{
    closeCursor();
    if (!owner_.readyToRun(error)) return false;
    for (size_t i = 0; i < parameters_.size(); ++i) {
        Parameter& p = parameters_[i];
        if (p.bound == p.binding) continue;
        const Binding& b = p.binding;
        if (!SQL_SUCCEEDED(SQLBindParameter(stmt_, SQLUSMALLINT(i + 1), SQL_PARAM_INPUT, b.cType, b.sqlType, b.size, b.digits, b.buffer,
                                            b.bufferLength, &p.indicator)))
            return fail(error);
        p.bound = b;
    }
    const SQLRETURN rc = SQLExecute(stmt_);
    if (!SQL_SUCCEEDED(rc) && rc != SQL_NO_DATA) return fail(error); // SQL_NO_DATA: a statement that touched no row
    cursorOpen_ = returnsRows_;
    return true;
}

bool OdbcStatement::describeColumns(DriverError& error)
{
    SQLSMALLINT count = 0;
    if (!SQL_SUCCEEDED(SQLNumResultCols(stmt_, &count))) return fail(error);
    columns_.clear();
    for (SQLUSMALLINT c = 1; c <= count; ++c) {
        SQLSMALLINT type = 0, nameLength = 0, digits = 0, nullable = 0;
        SQLULEN size = 0;
        SQLWCHAR name[128];
        if (!SQL_SUCCEEDED(SQLDescribeColW(stmt_, c, name, SQLSMALLINT(std::size(name)), &nameLength, &type, &size, &digits, &nullable)))
            return fail(error);
        columns_.push_back(kindOf(type));
    }
    return true;
}

bool OdbcStatement::fetch(std::vector<Value>& row, DriverError& error)
{
    if (!cursorOpen_ || done_) return false;
    if (columns_.empty() && !describeColumns(error)) return false;
    const SQLRETURN rc = SQLFetch(stmt_);
    if (rc == SQL_NO_DATA) {
        done_ = true;
        return false;
    }
    if (!SQL_SUCCEEDED(rc)) return fail(error);
    row.assign(columns_.size(), Value());
    for (size_t c = 0; c < columns_.size(); ++c)
        if (!readColumn(SQLUSMALLINT(c + 1), row[c], error)) return false;
    return true;
}

bool OdbcStatement::readColumn(SQLUSMALLINT column, Value& v, DriverError& error)
{
    const ColumnKind kind = columns_[column - 1];
    if (!readPieces(column, kind == ColumnKind::Binary, v, error)) return false;
    if (kind == ColumnKind::Integer && v.kind == Value::Text) asNumber(v);
    return true;
}

// Text (as UTF-16) or bytes of any length, in pieces.
bool OdbcStatement::readPieces(SQLUSMALLINT column, bool binary, Value& v, DriverError& error)
{
    const SQLSMALLINT cType = binary ? SQL_C_BINARY : SQL_C_WCHAR;
    const size_t unit = binary ? 1 : sizeof(SQLWCHAR), room = binary ? kPieceUnits : kPieceUnits - 1; // text pieces end in a zero
    std::string bytes;
    WideText text;
    for (;;) {
        SQLLEN indicator = 0;
        const SQLRETURN rc = SQLGetData(stmt_, column, cType, piece_.data(), static_cast<SQLLEN>(kPieceUnits * unit), &indicator);
        if (rc == SQL_NO_DATA) break;
        if (!SQL_SUCCEEDED(rc)) return fail(error);
        if (indicator == SQL_NULL_DATA) return true;
        const size_t got =
            indicator == SQL_NO_TOTAL || static_cast<size_t>(indicator) / unit > room ? room : static_cast<size_t>(indicator) / unit;
        if (binary) bytes.append(reinterpret_cast<const char*>(piece_.data()), got);
        else text.insert(text.end(), piece_.begin(), piece_.begin() + static_cast<std::ptrdiff_t>(got));
        if (rc == SQL_SUCCESS || got < room) break;
    }
    v.kind = binary ? Value::Bytes : Value::Text;
    v.bytes = binary ? std::move(bytes) : narrow(text.data(), text.size());
    return true;
}

void OdbcStatement::reset()
{
    closeCursor();
    // The values are forgotten; the bindings stay for the next execute, which sets every value again.
    for (Parameter& p : parameters_) p.set(Value());
}

} // namespace

extern "C" {
int ZELSQLDriverApiVersion() { return kApiVersion; }
Connection* ZELSQLDriverCreate() { return new OdbcConnection(); }
}
