// The MariaDB driver module (libZELMariaDB.so), over libmariadb's prepared
// statements.
//
// Keys: USER, PASSWORD, SERVER (a host, host/port, a socket file ending in
// ".sock", or the directory of the server's socket, which then is
// DIRECTORY/mysqld.sock), PORT, DATABASE (required).
// A host name is always reached over TCP, "localhost" included, so that PORT
// counts; without SERVER the client library's default socket is used.
//
// The session runs with autocommit off: a transaction starts with the first
// statement after begin(), which therefore costs no round trip; a statement
// run outside a transaction is committed right after it. Inside one, the
// runs of a statement that returns no rows that follow its first run (a
// file's frames after the first) are queued and go to the server in one bulk
// execution; see MariaDBStatement::queue. Rows of a query are read whole into
// the client when it is executed, so that several statements can have rows
// open at once.
#include <errmsg.h>
#include <mysql.h>
#include <mysqld_error.h>
#include <sys/stat.h>

#include <cstring>
#include <string>
#include <vector>

#include "zel/SQLDriver.h"

namespace {

using namespace ZELd::sqldriver;

constexpr unsigned kConnectTimeoutSeconds = 5;
const char* const kCharacterSet = "utf8mb4"; // every Unicode character, four-byte ones included
const char* const kSocketSuffix = ".sock";
const char* const kSocketInDirectory = "/mysqld.sock";
// Autocommit off; strict mode, so that a value a column cannot hold fails
// instead of being clipped, whatever the server's own default.
const char* const kSessionSetUp =
    "SET SESSION autocommit = 0, SESSION sql_mode = CONCAT_WS(',', NULLIF(@@SESSION.sql_mode, ''), 'STRICT_ALL_TABLES')";
constexpr unsigned kBinaryCharacterSet = 63; // the character set number of binary data
constexpr unsigned long kFirstColumnBuffer = 64;
// A bulk execution is sent once it holds this many rows or bytes, well below
// the server's max_allowed_packet (16 MB unless set lower).
constexpr size_t kMostQueuedRows = 1000;
constexpr size_t kMostQueuedBytes = 512 * 1024;

// Errors after which the link to the server is gone.
bool linkLost(unsigned code)
{
    return code == CR_SERVER_GONE_ERROR || code == CR_SERVER_LOST || code == CR_SERVER_LOST_EXTENDED || code == ER_CONNECTION_KILLED ||
           code == ER_SERVER_SHUTDOWN;
}

bool isIntegerType(enum_field_types type)
{
    return type == MYSQL_TYPE_TINY || type == MYSQL_TYPE_SHORT || type == MYSQL_TYPE_INT24 || type == MYSQL_TYPE_LONG ||
           type == MYSQL_TYPE_LONGLONG;
}

// Binary data: a string type in the binary character set (numbers and times
// are in that character set too, and are not binary data).
bool isBinary(const MYSQL_FIELD& field)
{
    const enum_field_types t = field.type;
    const bool stringType = t == MYSQL_TYPE_STRING || t == MYSQL_TYPE_VAR_STRING || t == MYSQL_TYPE_VARCHAR || t == MYSQL_TYPE_TINY_BLOB ||
                            t == MYSQL_TYPE_MEDIUM_BLOB || t == MYSQL_TYPE_LONG_BLOB || t == MYSQL_TYPE_BLOB;
    return stringType && field.charsetnr == kBinaryCharacterSet;
}

std::string withoutLineEnd(const char* message)
{
    std::string s = message && *message ? message : "unknown error";
    while (!s.empty() && (s.back() == '\n' || s.back() == ' ')) s.pop_back();
    return s;
}

// Where the server is: a host and port over TCP, or a local socket.
struct Endpoint {
    std::string host, socket;
    unsigned port = 0;
};

bool isDirectory(const std::string& path)
{
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool parsePort(const std::string& text, unsigned& port, DriverError& error)
{
    unsigned long value = 0;
    bool digits = !text.empty() && text.size() <= 5;
    for (char c : text) {
        digits = digits && c >= '0' && c <= '9';
        value = value * 10 + static_cast<unsigned long>(c - '0');
    }
    if (!digits || value == 0 || value > 65535) {
        error.message = "not a port number: [" + text + "]";
        return false;
    }
    port = static_cast<unsigned>(value);
    return true;
}

bool endpointOf(const OpenRequest& request, Endpoint& endpoint, DriverError& error)
{
    const std::string* server = request.setting("SERVER");
    const std::string* port = request.setting("PORT");
    std::string portText = port ? *port : "";
    if (server && !server->empty()) {
        const std::string& s = *server;
        if (s.size() > std::strlen(kSocketSuffix) && s.ends_with(kSocketSuffix)) {
            endpoint.socket = s;
            return true;
        }
        if (s.front() == '/' || isDirectory(s)) {
            endpoint.socket = s + kSocketInDirectory;
            return true;
        }
        endpoint.host = s;
        const size_t slash = s.find('/'); // "host/port"
        if (slash != std::string::npos) {
            endpoint.host.resize(slash);
            if (!port) portText = s.substr(slash + 1);
        }
    }
    return portText.empty() || parsePort(portText, endpoint.port, error);
}

class MariaDBConnection;

// A parameter's value as the client library sends it; the bytes are a copy.
struct Parameter {
    Value::Kind kind = Value::Null;
    std::string bytes;
    long long number = 0;
    MYSQL_TIME time{};
    unsigned long length = 0;
    char indicator = STMT_INDICATOR_NULL;
};
using ParameterRow = std::vector<Parameter>;

enum_field_types typeOf(Value::Kind kind)
{
    switch (kind) {
    case Value::Int:
    case Value::UInt: return MYSQL_TYPE_LONGLONG;
    case Value::Text: return MYSQL_TYPE_STRING;
    case Value::Bytes: return MYSQL_TYPE_BLOB; // sent without conversion of its character set
    case Value::Time: return MYSQL_TYPE_DATETIME;
    default: return MYSQL_TYPE_NULL;
    }
}

// Points a bind whose type is set at the value of a parameter.
void pointAt(MYSQL_BIND& b, Parameter& p)
{
    b.buffer = nullptr;
    b.buffer_length = 0;
    b.length = nullptr;
    if (p.kind == Value::Int || p.kind == Value::UInt) b.buffer = &p.number;
    if (p.kind == Value::Time) b.buffer = &p.time;
    if (p.kind == Value::Text || p.kind == Value::Bytes) {
        b.buffer = p.bytes.data();
        b.buffer_length = p.length;
        b.length = &p.length;
    }
    p.indicator = p.kind == Value::Null ? STMT_INDICATOR_NULL : STMT_INDICATOR_NONE;
    b.u.indicator = &p.indicator; // read in bulk executions only
}

// A column of a result, read into buffers of its own.
struct Column {
    Value::Kind kind = Value::Text;
    long long number = 0;
    std::vector<char> buffer;
    unsigned long length = 0;
    my_bool null = 0;
    my_bool truncated = 0;
};

class MariaDBStatement : public Statement {
public:
    MariaDBStatement(MariaDBConnection& owner, MYSQL_STMT* stmt)
        : owner_(owner), stmt_(stmt), parameters_(mysql_stmt_param_count(stmt)), binds_(parameters_.size()),
          returnsRows_(mysql_stmt_field_count(stmt) > 0), queuedKinds_(parameters_.size(), Value::Null)
    {}
    ~MariaDBStatement() override;

    bool returnsRows() const override { return returnsRows_; }
    bool bind(size_t index, const Value& v, DriverError& error) override;
    bool execute(DriverError& error) override;
    bool fetch(std::vector<Value>& row, DriverError& error) override;
    void reset() override;

    // Sends the queued runs to the server; false and the server's words when one failed.
    bool sendQueued(DriverError& error);
    void dropQueued()
    {
        queued_.clear();
        queuedKinds_.assign(parameters_.size(), Value::Null);
        queuedBytes_ = 0;
    }

private:
    bool queue(DriverError& error);
    bool fitsQueue() const;
    bool send(std::vector<ParameterRow>& rows, DriverError& error);
    static my_bool pointAtRow(void* statement, MYSQL_BIND* binds, unsigned row);
    bool run(DriverError& error);
    bool describeColumns(DriverError& error);
    bool readLongColumns();
    Value value(const Column& column) const;
    bool fail(DriverError& error);

    MariaDBConnection& owner_;
    MYSQL_STMT* stmt_;
    ParameterRow parameters_;
    std::vector<MYSQL_BIND> binds_;
    const bool returnsRows_;
    std::vector<ParameterRow> queued_;     // runs not yet sent, in order
    std::vector<Value::Kind> queuedKinds_; // of each parameter: what its queued values that are not null hold
    size_t queuedBytes_ = 0;
    std::vector<ParameterRow> single_; // the one run of an execute() that is not queued
    std::vector<ParameterRow>* sending_ = nullptr;
    std::vector<Column> columns_;
    std::vector<MYSQL_BIND> results_;
    bool rowsOpen_ = false; // a result is held and not read to its end
};

class MariaDBConnection : public Connection {
public:
    ~MariaDBConnection() override
    {
        if (db_) mysql_close(db_);
    }

    bool open(const OpenRequest& request, DriverError& error) override;
    std::string serverInfo() override;
    bool connected() override { return db_ && linked_; }

    // The transaction starts on the server with its first statement.
    bool begin(DriverError& error) override
    {
        if (!db_) return notConnected(error);
        inTransaction_ = true;
        statementFailed_ = false;
        lastRun_ = nullptr;
        return true;
    }

    bool commit(DriverError& error) override
    {
        if (!db_) return notConnected(error);
        if (!sendQueued(error)) return false;
        if (statementFailed_) {
            error.message = "the transaction was rolled back: a statement in it failed";
            return false; // the program calls rollback(), which ends it on the server
        }
        if (!check(mysql_commit(db_) == 0, error)) return false;
        inTransaction_ = false;
        lastRun_ = nullptr;
        return true;
    }

    bool rollback(DriverError& error) override
    {
        if (queued_) queued_->dropQueued();
        queued_ = nullptr;
        inTransaction_ = statementFailed_ = false;
        lastRun_ = nullptr;
        // The server ends the transaction of a lost link by itself, but
        // nothing more can be stored: the rollback fails and the walk stops.
        if (!connected()) {
            error.message = "no connection to the server";
            return false;
        }
        return check(mysql_rollback(db_) == 0, error);
    }

    std::string placeholder(size_t) override { return "?"; }

    Statement* prepare(const std::string& sql, size_t parameters, DriverError& error) override;

    // Whether a run of a statement that returns no rows may be queued: it
    // is inside a transaction and follows a run of the same statement.
    bool mayQueue(const MariaDBStatement* statement) const { return inTransaction_ && bulk_ && lastRun_ == statement; }
    MariaDBStatement* queuedStatement() const { return queued_; }
    void setQueued(MariaDBStatement* statement) { queued_ = statement; }
    MariaDBStatement* lastRun() const { return lastRun_; }
    void setLastRun(MariaDBStatement* statement) { lastRun_ = statement; }

    // Sends what is queued, before anything else goes to the server.
    bool sendQueued(DriverError& error)
    {
        MariaDBStatement* statement = queued_;
        queued_ = nullptr;
        if (!statement || statement->sendQueued(error)) return true;
        statementFailed_ = true;
        return false;
    }

    // Called after each execute() that was not queued: outside a transaction
    // the statement is committed at once; inside one a failure is
    // remembered for commit().
    bool finishStatement(bool succeeded, DriverError& error)
    {
        if (inTransaction_) {
            statementFailed_ = statementFailed_ || !succeeded;
            return succeeded;
        }
        DriverError ending;
        const bool ended = check(mysql_commit(db_) == 0, ending);
        if (succeeded && !ended) error = ending;
        return succeeded && ended;
    }

    // Takes the error of a failed call from the statement's or the
    // connection's last error, and notes a lost link.
    bool check(bool succeeded, DriverError& error, MYSQL_STMT* stmt = nullptr)
    {
        if (succeeded) return true;
        const unsigned code = stmt ? mysql_stmt_errno(stmt) : mysql_errno(db_);
        error.message = withoutLineEnd(stmt ? mysql_stmt_error(stmt) : mysql_error(db_));
        error.conflict = code == ER_DUP_ENTRY || code == ER_LOCK_DEADLOCK || code == ER_LOCK_WAIT_TIMEOUT; // another run's doing
        if (linkLost(code)) linked_ = false;
        return false;
    }

private:
    static bool notConnected(DriverError& error)
    {
        error.message = "not connected";
        return false;
    }
    void setOptions(const OpenRequest& request, const Endpoint& endpoint);
    // Gives up a link that could not be made; where nothing answered, says where that was.
    bool giveUp(const Endpoint& endpoint, DriverError& error)
    {
        error.message = withoutLineEnd(mysql_error(db_));
        // The library names the socket it tried, but not the port.
        const unsigned code = mysql_errno(db_);
        if (!endpoint.host.empty() && (code == CR_CONNECTION_ERROR || code == CR_CONN_HOST_ERROR))
            error.message += " [" + endpoint.host + " port " + std::to_string(endpoint.port ? endpoint.port : MYSQL_PORT) + "]";
        mysql_close(db_);
        db_ = nullptr;
        return false;
    }

    MYSQL* db_ = nullptr;
    bool linked_ = false;
    bool inTransaction_ = false;
    bool statementFailed_ = false;
    bool bulk_ = false;                   // the server takes many runs of a statement at once
    MariaDBStatement* queued_ = nullptr;  // the statement whose runs wait to be sent
    MariaDBStatement* lastRun_ = nullptr; // the statement executed last in the transaction
};

void MariaDBConnection::setOptions(const OpenRequest& request, const Endpoint& endpoint)
{
    const unsigned timeout = kConnectTimeoutSeconds;
    const my_bool reconnect = 0; // a new link would silently lose the transaction
    const unsigned protocol = endpoint.socket.empty() ? MYSQL_PROTOCOL_TCP : MYSQL_PROTOCOL_SOCKET;
    mysql_optionsv(db_, MYSQL_OPT_CONNECT_TIMEOUT, &timeout);
    mysql_optionsv(db_, MYSQL_OPT_RECONNECT, &reconnect);
    mysql_optionsv(db_, MYSQL_SET_CHARSET_NAME, kCharacterSet);
    mysql_optionsv(db_, MYSQL_INIT_COMMAND, kSessionSetUp);
    if (!endpoint.socket.empty() || !endpoint.host.empty()) mysql_optionsv(db_, MYSQL_OPT_PROTOCOL, &protocol);
    if (!request.applicationName.empty()) mysql_optionsv(db_, MYSQL_OPT_CONNECT_ATTR_ADD, "program_name", request.applicationName.c_str());
}

bool MariaDBConnection::open(const OpenRequest& request, DriverError& error)
{
    const std::string* database = request.setting("DATABASE");
    if (!database || database->empty()) {
        error.message = "no DATABASE= named in the connection string";
        return false;
    }
    Endpoint endpoint;
    if (!endpointOf(request, endpoint, error)) return false;
    if (!(db_ = mysql_init(nullptr))) {
        error.message = "out of memory";
        return false;
    }
    setOptions(request, endpoint);
    auto text = [](const std::string* s) { return s ? s->c_str() : nullptr; };
    auto orNull = [](const std::string& s) { return s.empty() ? nullptr : s.c_str(); };
    if (!mysql_real_connect(db_, orNull(endpoint.host), text(request.setting("USER")), text(request.setting("PASSWORD")), database->c_str(),
                            endpoint.port, orNull(endpoint.socket), 0))
        return giveUp(endpoint, error);
    if (std::strcmp(mysql_character_set_name(db_), kCharacterSet) != 0) {
        mysql_close(db_);
        db_ = nullptr;
        error.message = std::string("the server does not take the character set ") + kCharacterSet;
        return false;
    }
    linked_ = true;
    unsigned long capabilities = 0, extended = 0;
    mariadb_get_infov(db_, MARIADB_CONNECTION_SERVER_CAPABILITIES, &capabilities);
    mariadb_get_infov(db_, MARIADB_CONNECTION_EXTENDED_SERVER_CAPABILITIES, &extended);
    bulk_ = !(capabilities & CLIENT_MYSQL) && (extended & (MARIADB_CLIENT_STMT_BULK_OPERATIONS >> 32));
    return true;
}

// "MariaDB 10.11.19" from "10.11.19-MariaDB-0+deb12u1" (a MySQL server says "8.0.36").
std::string MariaDBConnection::serverInfo()
{
    const char* info = db_ ? mysql_get_server_info(db_) : nullptr;
    if (!info) return "MariaDB ?";
    const std::string said = info;
    const std::string version = said.substr(0, said.find_first_not_of("0123456789."));
    return (said.find("MariaDB") != std::string::npos ? "MariaDB " : "MySQL ") + (version.empty() ? said : version);
}

Statement* MariaDBConnection::prepare(const std::string& sql, size_t parameters, DriverError& error)
{
    if (!db_) {
        notConnected(error);
        return nullptr;
    }
    if (!sendQueued(error)) return nullptr;
    MYSQL_STMT* stmt = mysql_stmt_init(db_);
    if (!check(stmt != nullptr, error)) return nullptr;
    if (!check(mysql_stmt_prepare(stmt, sql.data(), sql.size()) == 0, error, stmt)) {
        mysql_stmt_close(stmt);
        return nullptr;
    }
    if (mysql_stmt_param_count(stmt) != parameters) {
        error.message =
            "the server counts " + std::to_string(mysql_stmt_param_count(stmt)) + " parameters, the program " + std::to_string(parameters);
        mysql_stmt_close(stmt);
        return nullptr;
    }
    return new MariaDBStatement(*this, stmt);
}

MariaDBStatement::~MariaDBStatement()
{
    if (owner_.queuedStatement() == this) owner_.setQueued(nullptr);
    if (owner_.lastRun() == this) owner_.setLastRun(nullptr);
    mysql_stmt_close(stmt_);
}

bool MariaDBStatement::bind(size_t index, const Value& v, DriverError& error)
{
    if (index >= parameters_.size()) {
        error.message = "no parameter " + std::to_string(index);
        return false;
    }
    Parameter& p = parameters_[index];
    p.kind = v.kind;
    switch (v.kind) {
    case Value::Int: p.number = v.i; break;
    case Value::UInt: p.number = static_cast<long long>(v.u); break;
    case Value::Text:
    case Value::Bytes:
        p.bytes = v.bytes;
        p.length = static_cast<unsigned long>(p.bytes.size());
        break;
    case Value::Time:
        p.time = MYSQL_TIME{};
        p.time.year = static_cast<unsigned>(v.time.year), p.time.month = static_cast<unsigned>(v.time.month);
        p.time.day = static_cast<unsigned>(v.time.day), p.time.hour = static_cast<unsigned>(v.time.hour);
        p.time.minute = static_cast<unsigned>(v.time.minute), p.time.second = static_cast<unsigned>(v.time.second);
        p.time.second_part = static_cast<unsigned long>(v.time.millisecond) * 1000;
        p.time.time_type = MYSQL_TIMESTAMP_DATETIME;
        break;
    default: p.kind = Value::Null; break;
    }
    return true;
}

bool MariaDBStatement::execute(DriverError& error)
{
    const bool queueable = !returnsRows_ && owner_.mayQueue(this);
    owner_.setLastRun(this);
    if (queueable) return queue(error);
    if (!owner_.sendQueued(error)) return false;
    return owner_.finishStatement(run(error), error);
}

// Queues this run. The first run of a statement in a row of runs goes to the
// server at once, so that the server holds the transaction's rows from its
// first statement on; the runs after it wait together until another
// statement, a prepare or the commit needs the server, and tell their failure
// to that call. A run whose values differ in kind from the queued ones (a
// number where they hold text) sends them first.
bool MariaDBStatement::queue(DriverError& error)
{
    if ((owner_.queuedStatement() != this || !fitsQueue()) && !owner_.sendQueued(error)) return false;
    queued_.push_back(parameters_);
    for (size_t c = 0; c < parameters_.size(); ++c) {
        if (parameters_[c].kind != Value::Null) queuedKinds_[c] = parameters_[c].kind;
        queuedBytes_ += parameters_[c].bytes.size() + sizeof(Parameter);
    }
    owner_.setQueued(this);
    return true;
}

bool MariaDBStatement::fitsQueue() const
{
    if (queued_.size() >= kMostQueuedRows || queuedBytes_ >= kMostQueuedBytes) return false;
    for (size_t c = 0; c < parameters_.size(); ++c) {
        const Value::Kind kind = parameters_[c].kind, queued = queuedKinds_[c];
        if (kind != Value::Null && queued != Value::Null && kind != queued) return false;
    }
    return true;
}

bool MariaDBStatement::sendQueued(DriverError& error)
{
    const bool sent = send(queued_, error);
    dropQueued();
    return sent;
}

// Sends runs of the statement: one as it is, several in one bulk execution
// whose column types are those of the values that are not null.
bool MariaDBStatement::send(std::vector<ParameterRow>& rows, DriverError& error)
{
    if (rows.empty()) return true;
    for (size_t c = 0; c < binds_.size(); ++c) {
        Value::Kind kind = rows.size() == 1 ? rows[0][c].kind : Value::Text; // an all-null column as text
        for (const ParameterRow& row : rows)
            if (row[c].kind != Value::Null) kind = row[c].kind;
        binds_[c] = MYSQL_BIND{};
        binds_[c].buffer_type = typeOf(kind);
        binds_[c].is_unsigned = kind == Value::UInt;
        pointAt(binds_[c], rows[0][c]);
    }
    // One run: an array size of 0. Several: the library asks pointAtRow for each.
    unsigned count = rows.size() == 1 ? 0 : static_cast<unsigned>(rows.size());
    sending_ = &rows;
    const void* callback = count ? reinterpret_cast<const void*>(&pointAtRow) : nullptr;
    const bool sent = mysql_stmt_attr_set(stmt_, STMT_ATTR_ARRAY_SIZE, &count) == 0 &&
                      mysql_stmt_attr_set(stmt_, STMT_ATTR_CB_USER_DATA, this) == 0 &&
                      mysql_stmt_attr_set(stmt_, STMT_ATTR_CB_PARAM, callback) == 0 &&
                      (binds_.empty() || mysql_stmt_bind_param(stmt_, binds_.data()) == 0) && mysql_stmt_execute(stmt_) == 0;
    sending_ = nullptr;
    const bool ok = sent || fail(error);
    if (count) {
        unsigned none = 0;
        mysql_stmt_attr_set(stmt_, STMT_ATTR_ARRAY_SIZE, &none);
        mysql_stmt_attr_set(stmt_, STMT_ATTR_CB_PARAM, nullptr);
    }
    return ok;
}

my_bool MariaDBStatement::pointAtRow(void* statement, MYSQL_BIND* binds, unsigned row)
{
    auto* self = static_cast<MariaDBStatement*>(statement);
    ParameterRow& values = (*self->sending_)[row];
    for (size_t c = 0; c < values.size(); ++c) pointAt(binds[c], values[c]);
    return 0;
}

bool MariaDBStatement::run(DriverError& error)
{
    if (rowsOpen_) mysql_stmt_free_result(stmt_);
    rowsOpen_ = false;
    single_.resize(1);
    single_[0].swap(parameters_);
    const bool sent = send(single_, error);
    single_[0].swap(parameters_);
    if (!sent || !returnsRows_) return sent;
    // Every row now: another statement may run before these are read.
    if (mysql_stmt_store_result(stmt_)) return fail(error);
    rowsOpen_ = true;
    return describeColumns(error);
}

// Integer columns are read as numbers, everything else as the bytes the
// client library renders (binary data unchanged).
bool MariaDBStatement::describeColumns(DriverError& error)
{
    MYSQL_RES* metadata = mysql_stmt_result_metadata(stmt_);
    if (!metadata) return fail(error);
    const unsigned count = mysql_num_fields(metadata);
    const MYSQL_FIELD* fields = mysql_fetch_fields(metadata);
    columns_.resize(count);
    results_.assign(count, MYSQL_BIND{});
    for (unsigned c = 0; c < count; ++c) {
        Column& column = columns_[c];
        MYSQL_BIND& b = results_[c];
        const bool integer = isIntegerType(fields[c].type);
        column.kind = integer               ? (fields[c].flags & UNSIGNED_FLAG ? Value::UInt : Value::Int)
                      : isBinary(fields[c]) ? Value::Bytes
                                            : Value::Text;
        if (column.buffer.size() < kFirstColumnBuffer) column.buffer.resize(kFirstColumnBuffer);
        b.buffer_type = integer ? MYSQL_TYPE_LONGLONG : MYSQL_TYPE_STRING;
        b.buffer = integer ? static_cast<void*>(&column.number) : column.buffer.data();
        b.buffer_length = integer ? 0 : static_cast<unsigned long>(column.buffer.size());
        b.is_unsigned = column.kind == Value::UInt;
        b.length = &column.length;
        b.is_null = &column.null;
        b.error = &column.truncated;
    }
    mysql_free_result(metadata);
    return mysql_stmt_bind_result(stmt_, results_.data()) == 0 || fail(error);
}

bool MariaDBStatement::fetch(std::vector<Value>& row, DriverError& error)
{
    if (!rowsOpen_) return false;
    const int rc = mysql_stmt_fetch(stmt_);
    if (rc == MYSQL_NO_DATA || rc == 1) { // the end, or a failure
        if (rc == 1) fail(error);
        mysql_stmt_free_result(stmt_);
        rowsOpen_ = false;
        return false;
    }
    if (!readLongColumns()) return fail(error); // MYSQL_DATA_TRUNCATED included
    row.resize(columns_.size());
    for (size_t c = 0; c < columns_.size(); ++c) row[c] = value(columns_[c]);
    return true;
}

// Values longer than their column's buffer: the buffer grows and the value
// is read again, whole.
bool MariaDBStatement::readLongColumns()
{
    bool grown = false;
    for (size_t c = 0; c < columns_.size(); ++c) {
        Column& column = columns_[c];
        if (column.null || results_[c].buffer_type != MYSQL_TYPE_STRING || column.length <= column.buffer.size()) continue;
        column.buffer.resize(column.length);
        results_[c].buffer = column.buffer.data();
        results_[c].buffer_length = column.length;
        if (mysql_stmt_fetch_column(stmt_, &results_[c], static_cast<unsigned>(c), 0)) return false;
        grown = true;
    }
    return !grown || mysql_stmt_bind_result(stmt_, results_.data()) == 0;
}

Value MariaDBStatement::value(const Column& column) const
{
    Value v;
    if (column.null) return v;
    v.kind = column.kind;
    if (column.kind == Value::Int) v.i = column.number;
    else if (column.kind == Value::UInt) v.u = static_cast<unsigned long long>(column.number);
    else v.bytes.assign(column.buffer.data(), column.length);
    // An unsigned number in the signed range is an integer like any other.
    if (v.kind == Value::UInt && v.u <= static_cast<uint64_t>(INT64_MAX)) v.kind = Value::Int, v.i = static_cast<int64_t>(v.u);
    return v;
}

// Queued runs stay queued: they are sent before anything else of the transaction.
void MariaDBStatement::reset()
{
    if (rowsOpen_) mysql_stmt_free_result(stmt_);
    rowsOpen_ = false;
    for (Parameter& p : parameters_) p.kind = Value::Null;
}

bool MariaDBStatement::fail(DriverError& error) { return owner_.check(false, error, stmt_); }

// The client library sets itself up on the first mysql_init() and keeps what
// it made (its plugins, its character sets) until it is told to let go: when
// this module is unloaded, the library goes with it and would leave them behind.
__attribute__((destructor)) void endClientLibrary() { mysql_library_end(); }

} // namespace

extern "C" {
int ZELSQLDriverApiVersion() { return kApiVersion; }
Connection* ZELSQLDriverCreate() { return new MariaDBConnection(); }
}
