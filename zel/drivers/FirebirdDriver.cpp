// The Firebird driver module (libZELFirebird.so), built a second time from
// this source as the InterBase one (libZELInterBase.so): both talk to the
// server through libfbclient's C interface (isc_* calls with XSQLDA).
//
// Keys: USER, PASSWORD, SERVER (a host, or host/port), DATABASE (the
// database file's path on the server, or an alias the server knows). The
// driver attaches to SERVER ":" DATABASE; without SERVER, DATABASE is the
// whole attach string ("host/port:/path"). It attaches with the UTF8
// character set and through the network only: a refused attach never falls
// back to an engine inside this process opening the file itself.
//
// Transactions are read committed and wait up to kLockTimeoutSeconds for a
// row that another one holds; begin()'s starts on the server with its first
// statement. A statement outside begin() runs in a transaction of its own,
// committed as soon as the statement is done (a query's: when its last row
// has been read, or at reset()).
//
// Parameters are bound by the type the server describes for them: text into
// a text blob (as a string that the server turns into the blob, or through
// the blob calls when it is longer than a string may be), numbers into a
// string column as their decimal digits, a time into a TIMESTAMP (in 1/10000 s).
// Text blobs come back as text; binary blobs and OCTETS strings as bytes.
#include <ibase.h>

#include <algorithm>
#include <charconv>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>

#include "zel/SQLDriver.h"

#ifndef ZEL_FIREBIRD_PRODUCT
#define ZEL_FIREBIRD_PRODUCT "Firebird"
#endif

namespace {

using namespace ZELd::sqldriver;

const char* const kProduct = ZEL_FIREBIRD_PRODUCT; // names a server that does not say it is Firebird
constexpr unsigned short kDialect = SQL_DIALECT_V6;
constexpr short kCharsetOctets = 1, kCharsetUtf8 = 4; // Firebird's character set ids
constexpr short kTextBlob = 1;                        // blob sub-type of text
constexpr size_t kSegment = 32768;                    // bytes per blob segment written or read
constexpr size_t kMaxString = 32765;                  // the longest VARCHAR parameter
constexpr char kLockTimeoutSeconds = 10;
constexpr char kConnectTimeoutSeconds = 10;
// The embedded engine would open the database file itself, as this process's
// user, after a failed network attach (and set up /tmp/firebird for it).
const char* const kProviders = "Providers = Remote";

// Read committed, reading the last committed version of a row, waiting for a
// row another transaction holds, then failing.
const char kTransaction[] = {
    isc_tpb_version3,   isc_tpb_write, isc_tpb_read_committed, isc_tpb_rec_version, isc_tpb_wait, isc_tpb_lock_timeout, 1,
    kLockTimeoutSeconds};

// The database's own words for a failed call: its lines joined by "; ".
std::string words(const ISC_STATUS* status)
{
    std::string message;
    char line[1024];
    const ISC_STATUS* next = status;
    while (fb_interpret(line, sizeof line, &next) > 0) {
        if (!message.empty()) message += "; ";
        message += line;
    }
    return message.empty() ? "unknown error" : message;
}

// Whether a failure means that the attachment is gone: the network, or the
// database shut down under it.
// Whether one of the error codes in a status vector is among codes.
template <size_t N>
bool hasCode(const ISC_STATUS* status, const ISC_STATUS (&codes)[N])
{
    for (const ISC_STATUS* p = status; *p != isc_arg_end;) {
        const ISC_STATUS kind = *p++;
        if (kind == isc_arg_gds && std::find(std::begin(codes), std::end(codes), *p) != std::end(codes)) return true;
        p += kind == isc_arg_cstring ? 2 : 1;
    }
    return false;
}

bool linkLost(const ISC_STATUS* status)
{
    static const ISC_STATUS lost[] = {isc_network_error, isc_net_read_err, isc_net_write_err, isc_lost_db_connection,
                                      isc_conn_lost,     isc_att_shutdown, isc_shutdown};
    return hasCode(status, lost);
}

// Another run's doing: a key it stored first, a row it holds, a deadlock.
bool conflicts(const ISC_STATUS* status)
{
    static const ISC_STATUS others[] = {isc_unique_key_violation, isc_no_dup, isc_deadlock, isc_lock_conflict, isc_update_conflict};
    return hasCode(status, others);
}

using Sqlda = std::unique_ptr<XSQLDA, void (*)(void*)>;

Sqlda makeSqlda(short columns)
{
    Sqlda da(static_cast<XSQLDA*>(std::calloc(1, XSQLDA_LENGTH(std::max<short>(columns, 1)))), std::free);
    da->version = SQLDA_VERSION1;
    da->sqln = std::max<short>(columns, 1);
    return da;
}

// "3.0.11" out of "LI-V3.0.11.33637 Firebird 3.0": the version without its build number.
std::string versionOf(const std::string& implementation)
{
    size_t from = implementation.find("-V");
    from = from == std::string::npos ? 0 : from + 2;
    std::string version = implementation.substr(from, implementation.find(' ', from) - from);
    size_t dot = version.find('.');
    for (int i = 0; i < 2 && dot != std::string::npos; ++i) dot = version.find('.', dot + 1);
    return version.substr(0, dot);
}

std::string timestampOf(const ISC_TIMESTAMP& stamp)
{
    std::tm t{};
    isc_decode_timestamp(const_cast<ISC_TIMESTAMP*>(&stamp), &t);
    char text[96];
    std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d.%04u", t.tm_year + 1900, t.tm_mon + 1, t.tm_mday, t.tm_hour, t.tm_min,
                  t.tm_sec, static_cast<unsigned>(stamp.timestamp_time % 10000));
    return text;
}

ISC_TIMESTAMP stampOf(const Timestamp& time)
{
    std::tm t{};
    t.tm_year = time.year - 1900;
    t.tm_mon = time.month - 1;
    t.tm_mday = time.day;
    t.tm_hour = time.hour;
    t.tm_min = time.minute;
    t.tm_sec = time.second;
    ISC_TIMESTAMP stamp;
    isc_encode_timestamp(&t, &stamp);
    stamp.timestamp_time += static_cast<ISC_TIME>(time.millisecond) * 10;
    return stamp;
}

template <typename Number>
Number load(const char* data)
{
    Number n;
    std::memcpy(&n, data, sizeof n);
    return n;
}

// An exact number with its scale: an Int, or its decimal text ("12.50").
Value exactNumber(int64_t n, short scale)
{
    Value v;
    if (scale >= 0) {
        v.kind = Value::Int;
        v.i = n;
        for (short s = 0; s < scale; ++s) v.i *= 10;
        return v;
    }
    const uint64_t magnitude = n < 0 ? 0 - static_cast<uint64_t>(n) : static_cast<uint64_t>(n);
    std::string digits = std::to_string(magnitude);
    if (digits.size() <= static_cast<size_t>(-scale)) digits.insert(0, static_cast<size_t>(-scale) - digits.size() + 1, '0');
    digits.insert(digits.size() - static_cast<size_t>(-scale), 1, '.');
    v.kind = Value::Text;
    v.bytes = (n < 0 ? "-" : "") + digits;
    return v;
}

// The text a value is bound as where the server takes text.
std::string textOf(const Value& v)
{
    switch (v.kind) {
    case Value::Int: return std::to_string(v.i);
    case Value::UInt: return std::to_string(v.u);
    case Value::Time: return timestampText(v.time);
    default: return v.bytes;
    }
}

// The shortest text that reads back as the same number.
template <typename Real>
std::string realText(Real r)
{
    char text[32];
    return std::string(text, std::to_chars(text, text + sizeof text, r).ptr);
}

Value textValue(std::string text, Value::Kind kind = Value::Text)
{
    Value v;
    v.kind = kind;
    v.bytes = std::move(text);
    return v;
}

class FbConnection;

class FbStatement : public Statement {
public:
    explicit FbStatement(FbConnection& owner) : owner_(owner) {}
    ~FbStatement() override;

    bool prepare(const std::string& sql, size_t parameters, DriverError& error);
    bool returnsRows() const override { return output_->sqld > 0; }
    bool bind(size_t index, const Value& value, DriverError& error) override;
    bool execute(DriverError& error) override;
    bool fetch(std::vector<Value>& row, DriverError& error) override;
    void reset() override
    {
        finish();
        for (Value& v : values_) v = Value();
    }

private:
    // What the server described for a parameter; binding changes the XSQLVAR.
    struct Described {
        short type, subtype, scale;
    };

    bool describe(bool input, Sqlda& da, DriverError& error);
    bool statementType(DriverError& error);
    void allocateColumns();
    bool setParameters(isc_tr_handle* transaction, DriverError& error);
    bool setParameter(size_t index, isc_tr_handle* transaction, DriverError& error);
    void setFixed(size_t index, short type, const void* value, size_t size);
    void setString(size_t index, const std::string& bytes, short charset);
    bool setBlob(size_t index, const std::string& bytes, isc_tr_handle* transaction, DriverError& error);
    bool readRow(std::vector<Value>& row, DriverError& error);
    bool column(const XSQLVAR& var, Value& v, DriverError& error);
    bool readBlob(const char* id, Value& v, DriverError& error);
    bool endOwnTransaction(DriverError& error);
    void finish();

    FbConnection& owner_;
    isc_stmt_handle handle_ = 0;
    int type_ = 0; // isc_info_sql_stmt_*
    Sqlda input_ = makeSqlda(0), output_ = makeSqlda(0);
    std::vector<Described> described_;
    std::vector<Value> values_;
    std::vector<std::string> inputData_;
    std::vector<short> inputNull_;
    std::vector<std::vector<char>> columnData_;
    std::vector<short> columnNull_;
    isc_tr_handle own_ = 0;     // the statement's own transaction, outside begin()
    isc_tr_handle running_ = 0; // the transaction of the last execute, for reading blobs
    bool cursorOpen_ = false;
    bool haveRow_ = false; // a statement that is no query answered one row
    std::vector<Value> row_;
};

class FbConnection : public Connection {
public:
    ~FbConnection() override
    {
        ISC_STATUS_ARRAY status;
        if (transaction_) isc_rollback_transaction(status, &transaction_);
        if (database_) isc_detach_database(status, &database_);
    }

    bool open(const OpenRequest& request, DriverError& error) override;
    std::string serverInfo() override;
    bool connected() override { return database_ && !lost_; }

    // The server's transaction starts with the first statement: a server that
    // went away between two files fails that file, whose rollback then tells.
    bool begin(DriverError& error) override
    {
        if (!connected()) return notConnected(error);
        if (begun_) return refuse("a transaction is open already", error);
        begun_ = true;
        return true;
    }

    bool commit(DriverError& error) override
    {
        if (!begun_) return refuse("no transaction to commit", error);
        ISC_STATUS_ARRAY status;
        // A commit that fails leaves the transaction open: the program rolls it back.
        if (transaction_ && isc_commit_transaction(status, &transaction_) != 0) return failed(status, error);
        begun_ = false;
        return true;
    }

    bool rollback(DriverError& error) override
    {
        begun_ = false;
        ISC_STATUS_ARRAY status;
        if (transaction_ && isc_rollback_transaction(status, &transaction_) != 0) {
            failed(status, error);
            if (!lost_) return false;
        }
        // The server rolls back the transaction of an attachment it lost (and
        // the client library calls such a rollback done), but nothing more
        // can be stored.
        transaction_ = 0;
        return !lost_ || refuse("no connection to the server", error);
    }

    std::string placeholder(size_t) override { return "?"; }

    Statement* prepare(const std::string& sql, size_t parameters, DriverError& error) override
    {
        if (!connected()) {
            notConnected(error);
            return nullptr;
        }
        auto statement = std::make_unique<FbStatement>(*this);
        return statement->prepare(sql, parameters, error) ? statement.release() : nullptr;
    }

    isc_db_handle* database() { return &database_; }

    // The transaction a statement runs in: begin()'s, or else own, started
    // now if it is not yet. Null when it cannot start.
    isc_tr_handle* transactionFor(isc_tr_handle& own, DriverError& error)
    {
        isc_tr_handle& handle = begun_ ? transaction_ : own;
        return handle || start(handle, error) ? &handle : nullptr;
    }

    bool start(isc_tr_handle& transaction, DriverError& error)
    {
        ISC_STATUS_ARRAY status;
        return isc_start_transaction(status, &transaction, 1, &database_, static_cast<unsigned short>(sizeof kTransaction), kTransaction) ==
                   0 ||
               failed(status, error);
    }

    // Always false: puts the database's words in error and notes a lost link.
    bool failed(const ISC_STATUS* status, DriverError& error)
    {
        error.message = words(status);
        error.conflict = conflicts(status);
        lost_ = lost_ || linkLost(status);
        return false;
    }

    static bool notConnected(DriverError& error) { return refuse("not connected", error); }

private:
    static bool refuse(const char* why, DriverError& error)
    {
        error.message = why;
        return false;
    }

    isc_db_handle database_ = 0;
    isc_tr_handle transaction_ = 0;
    bool begun_ = false;
    bool lost_ = false;
};

// The client library takes SIGINT and SIGTERM at its first attach, to end its
// connections and exit with status 0 on them. The program keeps its own: an
// interrupted run ends as the program decides, and no handler is left
// pointing into the library once the module is unloaded.
class SignalsKept {
public:
    SignalsKept()
    {
        for (size_t i = 0; i < std::size(kSignals); ++i) sigaction(kSignals[i], nullptr, &saved_[i]);
    }
    ~SignalsKept()
    {
        for (size_t i = 0; i < std::size(kSignals); ++i) sigaction(kSignals[i], &saved_[i], nullptr);
    }
    SignalsKept(const SignalsKept&) = delete;
    SignalsKept& operator=(const SignalsKept&) = delete;

private:
    static constexpr int kSignals[] = {SIGINT, SIGTERM};
    struct sigaction saved_[std::size(kSignals)];
};

// Adds a string item to a parameter block; false when it is too long for one.
bool addItem(std::string& block, char item, const std::string& value)
{
    if (value.size() > 255) return false;
    block += item;
    block += static_cast<char>(value.size());
    block += value;
    return true;
}

bool FbConnection::open(const OpenRequest& request, DriverError& error)
{
    const std::string* database = request.setting("DATABASE");
    if (!database || database->empty()) return refuse("no DATABASE= named in the connection string", error);
    const std::string* server = request.setting("SERVER");
    const std::string target = server && !server->empty() ? *server + ":" + *database : *database;

    std::string block(1, isc_dpb_version1);
    bool fits = addItem(block, isc_dpb_lc_ctype, "UTF8") && addItem(block, isc_dpb_config, kProviders) &&
                addItem(block, isc_dpb_connect_timeout, std::string(1, kConnectTimeoutSeconds));
    if (const std::string* user = request.setting("USER")) fits = fits && addItem(block, isc_dpb_user_name, *user);
    if (const std::string* password = request.setting("PASSWORD")) fits = fits && addItem(block, isc_dpb_password, *password);
    if (!request.applicationName.empty()) fits = fits && addItem(block, isc_dpb_process_name, request.applicationName);
    if (!fits) return refuse("a USER or PASSWORD longer than 255 bytes", error);

    ISC_STATUS_ARRAY status;
    const SignalsKept signals;
    if (isc_attach_database(status, 0, target.c_str(), &database_, static_cast<short>(block.size()), block.data()) == 0) return true;
    failed(status, error);
    error.message += " [" + target + "]";
    database_ = 0;
    return false;
}

std::string FbConnection::serverInfo()
{
    const char items[] = {isc_info_firebird_version, isc_info_version, isc_info_end};
    char answer[512];
    ISC_STATUS_ARRAY status;
    if (!database_ || isc_database_info(status, &database_, sizeof items, items, sizeof answer, answer))
        return std::string(kProduct) + " ?";
    std::string firebird, other;
    for (const char* p = answer; p < answer + sizeof answer - 3 && *p != isc_info_end;) {
        const char item = *p;
        const short length = static_cast<short>(isc_vax_integer(p + 1, 2));
        const char* data = p + 3; // a count of strings, then each with its length
        p = data + length;
        if (length < 2 || p > answer + sizeof answer) break;
        const std::string first(data + 2, std::min<size_t>(static_cast<unsigned char>(data[1]), static_cast<size_t>(length - 2)));
        if (item == isc_info_firebird_version) firebird = first;
        if (item == isc_info_version) other = first;
    }
    if (!firebird.empty()) return "Firebird " + versionOf(firebird);
    return std::string(kProduct) + " " + (other.empty() ? "?" : versionOf(other));
}

FbStatement::~FbStatement()
{
    finish();
    ISC_STATUS_ARRAY status;
    if (handle_) isc_dsql_free_statement(status, &handle_, DSQL_drop);
}

bool FbStatement::prepare(const std::string& sql, size_t parameters, DriverError& error)
{
    ISC_STATUS_ARRAY status;
    if (isc_dsql_allocate_statement(status, owner_.database(), &handle_)) return owner_.failed(status, error);
    // The server prepares inside a transaction: begin()'s, or one for the moment.
    isc_tr_handle moment = 0;
    isc_tr_handle* transaction = owner_.transactionFor(moment, error);
    if (!transaction) return false;
    bool ok = isc_dsql_prepare(status, transaction, &handle_, 0, sql.c_str(), kDialect, nullptr) == 0 || owner_.failed(status, error);
    if (moment) isc_rollback_transaction(status, &moment);
    ok = ok && statementType(error) && describe(true, input_, error) && describe(false, output_, error);
    if (ok && static_cast<size_t>(input_->sqld) != parameters) {
        error.message = "the statement has " + std::to_string(input_->sqld) + " parameters, not " + std::to_string(parameters);
        return false;
    }
    if (!ok) return false;
    for (short i = 0; i < input_->sqld; ++i) {
        const XSQLVAR& var = input_->sqlvar[i];
        described_.push_back({static_cast<short>(var.sqltype & ~1), var.sqlsubtype, var.sqlscale});
    }
    values_.resize(parameters);
    inputData_.resize(parameters);
    inputNull_.resize(parameters);
    allocateColumns();
    return true;
}

bool FbStatement::statementType(DriverError& error)
{
    const char items[] = {isc_info_sql_stmt_type};
    char answer[16];
    ISC_STATUS_ARRAY status;
    if (isc_dsql_sql_info(status, &handle_, sizeof items, items, sizeof answer, answer)) return owner_.failed(status, error);
    if (answer[0] != isc_info_sql_stmt_type) {
        error.message = "the server did not tell the statement's type";
        return false;
    }
    const short length = static_cast<short>(isc_vax_integer(answer + 1, 2));
    type_ = isc_vax_integer(answer + 3, length);
    return true;
}

bool FbStatement::describe(bool input, Sqlda& da, DriverError& error)
{
    ISC_STATUS_ARRAY status;
    for (;;) {
        if ((input ? isc_dsql_describe_bind : isc_dsql_describe)(status, &handle_, kDialect, da.get())) return owner_.failed(status, error);
        if (da->sqld <= da->sqln) return true;
        da = makeSqlda(da->sqld);
    }
}

// A buffer for each column, and its null indicator.
void FbStatement::allocateColumns()
{
    columnData_.resize(static_cast<size_t>(output_->sqld));
    columnNull_.resize(columnData_.size());
    for (size_t c = 0; c < columnData_.size(); ++c) {
        XSQLVAR& var = output_->sqlvar[c];
        columnData_[c].resize(static_cast<size_t>(var.sqllen) + sizeof(short) + sizeof(ISC_QUAD));
        var.sqltype |= 1; // every column reports its nulls
        var.sqldata = columnData_[c].data();
        var.sqlind = &columnNull_[c];
    }
}

bool FbStatement::bind(size_t index, const Value& value, DriverError& error)
{
    if (index >= values_.size()) {
        error.message = "no parameter " + std::to_string(index);
        return false;
    }
    values_[index] = value;
    return true;
}

bool FbStatement::execute(DriverError& error)
{
    finish();
    if (!owner_.connected()) return FbConnection::notConnected(error);
    isc_tr_handle* transaction = owner_.transactionFor(own_, error);
    if (!transaction) return false;
    running_ = *transaction;
    const bool query = type_ == isc_info_sql_stmt_select || type_ == isc_info_sql_stmt_select_for_upd;
    XSQLDA* input = input_->sqld ? input_.get() : nullptr;
    ISC_STATUS_ARRAY status;
    bool ok = setParameters(transaction, error);
    if (ok && query) ok = isc_dsql_execute(status, transaction, &handle_, kDialect, input) == 0 || owner_.failed(status, error);
    else if (ok)
        ok = isc_dsql_execute2(status, transaction, &handle_, kDialect, input, returnsRows() ? output_.get() : nullptr) == 0 ||
             owner_.failed(status, error);
    cursorOpen_ = ok && query;
    // The one row of a statement that is no query is read while its transaction lasts.
    if (ok && !query && returnsRows()) ok = haveRow_ = readRow(row_, error);
    if (!ok) {
        if (own_) isc_rollback_transaction(status, &own_);
        return false;
    }
    return cursorOpen_ || endOwnTransaction(error);
}

bool FbStatement::fetch(std::vector<Value>& row, DriverError& error)
{
    if (haveRow_) {
        haveRow_ = false;
        row = std::move(row_);
        return true;
    }
    if (!cursorOpen_) return false;
    ISC_STATUS_ARRAY status;
    const ISC_STATUS fetched = isc_dsql_fetch(status, &handle_, kDialect, output_.get());
    if (fetched == 0) return readRow(row, error);
    if (fetched != 100) owner_.failed(status, error);
    finish();
    return false;
}

// Closes the cursor and ends the statement's own transaction.
void FbStatement::finish()
{
    ISC_STATUS_ARRAY status;
    if (cursorOpen_) isc_dsql_free_statement(status, &handle_, DSQL_close); // fails when its transaction has ended: closed already
    cursorOpen_ = haveRow_ = false;
    row_.clear();
    DriverError ignored;
    endOwnTransaction(ignored);
    running_ = 0;
}

bool FbStatement::endOwnTransaction(DriverError& error)
{
    if (!own_) return true;
    ISC_STATUS_ARRAY status;
    if (isc_commit_transaction(status, &own_) == 0) return true;
    owner_.failed(status, error);
    isc_rollback_transaction(status, &own_);
    own_ = 0;
    return false;
}

bool FbStatement::setParameters(isc_tr_handle* transaction, DriverError& error)
{
    for (size_t i = 0; i < values_.size(); ++i)
        if (!setParameter(i, transaction, error)) {
            error.message = "parameter " + std::to_string(i) + ": " + error.message;
            return false;
        }
    return true;
}

bool FbStatement::setParameter(size_t index, isc_tr_handle* transaction, DriverError& error)
{
    XSQLVAR& var = input_->sqlvar[index];
    const Described& d = described_[index];
    const Value& v = values_[index];
    var.sqlsubtype = d.subtype;
    var.sqlscale = d.scale;
    var.sqlind = &inputNull_[index];
    inputNull_[index] = v.kind == Value::Null ? -1 : 0;
    const bool text = d.type == SQL_TEXT || d.type == SQL_VARYING;
    const bool time = d.type == SQL_TIMESTAMP || d.type == SQL_TYPE_DATE || d.type == SQL_TYPE_TIME;
    if (d.type == SQL_BLOB) {
        // The server makes the blob of a string itself, which saves two round
        // trips for each value; only a longer value goes through the blob calls.
        const std::string bytes = textOf(v);
        if (bytes.size() > kMaxString) return setBlob(index, bytes, transaction, error);
        setString(index, bytes, d.subtype == kTextBlob ? d.scale : kCharsetOctets);
    } else if (v.kind == Value::Time && time) {
        const ISC_TIMESTAMP stamp = stampOf(v.time);
        setFixed(index, SQL_TIMESTAMP, &stamp, sizeof stamp);
    } else if (!text && (v.kind == Value::Int || (v.kind == Value::UInt && v.u <= INT64_MAX))) {
        const ISC_INT64 n = v.kind == Value::Int ? v.i : static_cast<ISC_INT64>(v.u);
        setFixed(index, SQL_INT64, &n, sizeof n);
    } else {
        const std::string bytes = textOf(v);
        if (bytes.size() > kMaxString) {
            error.message = std::to_string(bytes.size()) + " bytes, where the server takes at most " + std::to_string(kMaxString);
            return false;
        }
        setString(index, bytes, text ? d.subtype : v.kind == Value::Bytes ? kCharsetOctets : kCharsetUtf8);
    }
    return true;
}

// A number or a time in the server's own form.
void FbStatement::setFixed(size_t index, short type, const void* value, size_t size)
{
    XSQLVAR& var = input_->sqlvar[index];
    inputData_[index].assign(static_cast<const char*>(value), size);
    var.sqltype = static_cast<short>(type | 1);
    var.sqlscale = 0;
    var.sqllen = static_cast<short>(size);
    var.sqldata = inputData_[index].data();
}

// A VARCHAR parameter: its length, then its bytes.
void FbStatement::setString(size_t index, const std::string& bytes, short charset)
{
    XSQLVAR& var = input_->sqlvar[index];
    std::string& data = inputData_[index];
    const short length = static_cast<short>(bytes.size());
    data.assign(reinterpret_cast<const char*>(&length), sizeof length);
    data += bytes;
    var.sqltype = SQL_VARYING | 1;
    var.sqlsubtype = charset;
    var.sqlscale = 0;
    var.sqllen = length;
    var.sqldata = data.data();
}

bool FbStatement::setBlob(size_t index, const std::string& bytes, isc_tr_handle* transaction, DriverError& error)
{
    ISC_QUAD id{};
    isc_blob_handle blob = 0;
    ISC_STATUS_ARRAY status;
    if (isc_create_blob2(status, owner_.database(), transaction, &blob, &id, 0, nullptr)) return owner_.failed(status, error);
    for (size_t at = 0; at < bytes.size(); at += kSegment) {
        const auto length = static_cast<unsigned short>(std::min(kSegment, bytes.size() - at));
        if (isc_put_segment(status, &blob, length, bytes.data() + at)) {
            owner_.failed(status, error);
            isc_cancel_blob(status, &blob);
            return false;
        }
    }
    if (isc_close_blob(status, &blob)) return owner_.failed(status, error);
    XSQLVAR& var = input_->sqlvar[index];
    inputData_[index].assign(reinterpret_cast<const char*>(&id), sizeof id);
    var.sqltype = SQL_BLOB | 1;
    var.sqllen = sizeof id;
    var.sqldata = inputData_[index].data();
    return true;
}

bool FbStatement::readRow(std::vector<Value>& row, DriverError& error)
{
    row.resize(static_cast<size_t>(output_->sqld));
    for (size_t c = 0; c < row.size(); ++c)
        if (!column(output_->sqlvar[c], row[c], error)) return false;
    return true;
}

bool FbStatement::column(const XSQLVAR& var, Value& v, DriverError& error)
{
    v = Value();
    if (*var.sqlind < 0) return true;
    const char* data = var.sqldata;
    const bool octets = (var.sqlsubtype & 0xFF) == kCharsetOctets;
    switch (var.sqltype & ~1) {
    case SQL_SHORT: v = exactNumber(load<ISC_SHORT>(data), var.sqlscale); break;
    case SQL_LONG: v = exactNumber(load<ISC_LONG>(data), var.sqlscale); break;
    case SQL_INT64: v = exactNumber(load<ISC_INT64>(data), var.sqlscale); break;
    case SQL_FLOAT: v = textValue(realText(load<float>(data))); break;
    case SQL_DOUBLE:
    case SQL_D_FLOAT: v = textValue(realText(load<double>(data))); break;
    case SQL_TEXT: v = textValue(std::string(data, static_cast<size_t>(var.sqllen)), octets ? Value::Bytes : Value::Text); break;
    case SQL_VARYING:
        v = textValue(std::string(data + sizeof(short), static_cast<size_t>(load<short>(data))), octets ? Value::Bytes : Value::Text);
        break;
    case SQL_TIMESTAMP: v = textValue(timestampOf(load<ISC_TIMESTAMP>(data))); break;
    case SQL_TYPE_DATE: v = textValue(timestampOf({load<ISC_DATE>(data), 0}).substr(0, 10)); break;
    case SQL_TYPE_TIME: v = textValue(timestampOf({0, load<ISC_TIME>(data)}).substr(11)); break;
    case SQL_BOOLEAN: v = textValue(*data ? "TRUE" : "FALSE"); break;
    case SQL_NULL: break;
    case SQL_BLOB: return readBlob(data, v, error) && (v.kind = var.sqlsubtype == kTextBlob ? Value::Text : Value::Bytes, true);
    default: error.message = "a column of type " + std::to_string(var.sqltype & ~1) + ", which this driver does not read"; return false;
    }
    return true;
}

bool FbStatement::readBlob(const char* data, Value& v, DriverError& error)
{
    ISC_QUAD id = load<ISC_QUAD>(data);
    isc_blob_handle blob = 0;
    ISC_STATUS_ARRAY status;
    if (isc_open_blob2(status, owner_.database(), &running_, &blob, &id, 0, nullptr)) return owner_.failed(status, error);
    std::vector<char> segment(kSegment);
    for (;;) {
        unsigned short length = 0;
        const ISC_STATUS got = isc_get_segment(status, &blob, &length, static_cast<unsigned short>(segment.size()), segment.data());
        if (got != 0 && got != isc_segment) {
            if (got != isc_segstr_eof) owner_.failed(status, error);
            isc_close_blob(status, &blob);
            return got == isc_segstr_eof;
        }
        v.bytes.append(segment.data(), length);
    }
}

} // namespace

extern "C" {
int ZELSQLDriverApiVersion() { return kApiVersion; }
Connection* ZELSQLDriverCreate() { return new FbConnection(); }
}
