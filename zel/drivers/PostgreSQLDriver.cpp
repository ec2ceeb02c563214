// The PostgreSQL driver module (libZELPostgreSQL.so), over libpq.
//
// Keys: USER, PASSWORD, SERVER (a host, host/port, or the directory of a local
// socket such as /var/run/postgresql), PORT, DATABASE.
// Each statement text is prepared on the server once per connection, and
// described there, which tells whether it returns rows; inside a transaction
// the statements are pipelined (see PgConnection).
#include <libpq-fe.h>

#include <cstdlib>
#include <cstring>
#include <map>

#include "zel/SQLDriver.h"

namespace {

using namespace ZELd::sqldriver;

constexpr Oid kInt2 = 21, kInt4 = 23, kInt8 = 20, kBytea = 17; // the server's type ids
const char* const kConnectTimeoutSeconds = "10";
const char* const kClientEncoding = "UTF8";
// A commit does not wait for the server's disk: a committed file survives a
// crash of this program; a crash of the server (an immediate shutdown
// included) or of its machine can lose the last moments of commits, never
// half a file.
const char* const kSessionOptions = "-c synchronous_commit=off";

std::string trimmed(const char* message)
{
    std::string s = message ? message : "";
    while (!s.empty() && (s.back() == '\n' || s.back() == ' ')) s.pop_back();
    return s;
}

// A failed result: the server's message, and whether another transaction
// caused it (a unique key taken, a serialization failure, a deadlock).
DriverError failureOf(const PGresult* r)
{
    const char* state = PQresultErrorField(r, PG_DIAG_SQLSTATE);
    const std::string code = state ? state : "";
    return {trimmed(PQresultErrorMessage(r)), code == "23505" || code == "40001" || code == "40P01"};
}

// A statement text as the server holds it.
struct PreparedText {
    std::string name;
    bool returnsRows = false;
};

class PgConnection;

class PgStatement : public Statement {
public:
    PgStatement(PgConnection& owner, PreparedText text, size_t parameters)
        : owner_(owner), text_(std::move(text)), values_(parameters), set_(parameters, false), binary_(parameters, 0)
    {}
    ~PgStatement() override { PQclear(result_); }

    bool returnsRows() const override { return text_.returnsRows; }
    bool bind(size_t index, const Value& v, DriverError& error) override;
    bool execute(DriverError& error) override;
    bool fetch(std::vector<Value>& row, DriverError& error) override;
    void reset() override;

private:
    Value column(int c) const;

    PgConnection& owner_;
    PreparedText text_;
    std::vector<std::string> values_;
    std::vector<bool> set_;
    std::vector<int> binary_;
    PGresult* result_ = nullptr;
    int row_ = 0;
};

// Inside a transaction the connection runs in pipeline mode: statements are
// sent without waiting for their answers, and the answers are read at the
// next point that needs one (a query's rows, the first prepare of a text,
// the commit). A failure among them fails that point, and the file is
// rolled back whole.
class PgConnection : public Connection {
public:
    ~PgConnection() override
    {
        if (conn_) PQfinish(conn_);
    }

    bool open(const OpenRequest& request, DriverError& error) override;

    std::string serverInfo() override
    {
        const char* version = conn_ ? PQparameterStatus(conn_, "server_version") : nullptr;
        return std::string("PostgreSQL ") + (version ? version : "?");
    }
    bool connected() override { return conn_ && PQstatus(conn_) == CONNECTION_OK; }

    bool begin(DriverError& error) override
    {
        if (!conn_) return notConnected(error);
        if (PQenterPipelineMode(conn_) != 1) return run("BEGIN", error); // cannot pipeline: one by one
        pipeline_ = true;
        failure_ = {};
        return send(PQsendQueryParams(conn_, "BEGIN", 0, nullptr, nullptr, nullptr, nullptr, 0), error);
    }

    bool commit(DriverError& error) override
    {
        if (!pipeline_) return finishCommit(PQexec(conn_, "COMMIT"), error);
        if (!send(PQsendQueryParams(conn_, "COMMIT", 0, nullptr, nullptr, nullptr, nullptr, 0), error)) {
            leavePipeline();
            return false;
        }
        PGresult* last = drain();
        leavePipeline();
        if (!failure_.message.empty()) {
            PQclear(last);
            error = failure_;
            return false;
        }
        return finishCommit(last, error);
    }

    bool rollback(DriverError& error) override
    {
        if (pipeline_) {
            PQclear(drain());
            leavePipeline();
        }
        // The server ends the transaction of a lost connection by itself, but
        // nothing more can be stored: the rollback fails and the walk stops.
        if (conn_ && PQstatus(conn_) != CONNECTION_OK) {
            error.message = "no connection to the server";
            return false;
        }
        return run("ROLLBACK", error);
    }

    std::string placeholder(size_t index) override { return std::string(1, '$').append(std::to_string(index + 1)); }

    Statement* prepare(const std::string& sql, size_t parameters, DriverError& error) override
    {
        if (!conn_) {
            notConnected(error);
            return nullptr;
        }
        auto it = prepared_.find(sql);
        if (it == prepared_.end()) {
            PreparedText text{"zel_" + std::to_string(++named_)};
            if (!(pipeline_ ? prepareInPipeline(sql, parameters, text, error) : prepareAtOnce(sql, parameters, text, error)))
                return nullptr;
            it = prepared_.emplace(sql, std::move(text)).first;
        }
        return new PgStatement(*this, it->second, parameters);
    }

    // Runs a prepared statement: queued in a pipeline (result null), or at once.
    // wantResult: the caller needs the answer now (a query's rows).
    bool runStatement(const std::string& name, const std::vector<const char*>& values, const std::vector<int>& lengths,
                      const std::vector<int>& binary, bool wantResult, PGresult*& result, DriverError& error)
    {
        const int n = static_cast<int>(values.size());
        if (!pipeline_) {
            result = PQexecPrepared(conn_, name.c_str(), n, values.data(), lengths.data(), binary.data(), 0);
            return check(result, error);
        }
        if (!send(PQsendQueryPrepared(conn_, name.c_str(), n, values.data(), lengths.data(), binary.data(), 0), error)) return false;
        if (!wantResult) return true;
        result = drain();
        if (!failure_.message.empty()) {
            error = failure_;
            return false;
        }
        return check(result, error);
    }

private:
    // Prepares the text on the server and asks whether it returns rows.
    bool prepareAtOnce(const std::string& sql, size_t parameters, PreparedText& text, DriverError& error)
    {
        PGresult* r = PQprepare(conn_, text.name.c_str(), sql.c_str(), static_cast<int>(parameters), nullptr);
        bool ok = check(r, error);
        PQclear(r);
        if (!ok) return false;
        r = PQdescribePrepared(conn_, text.name.c_str());
        ok = check(r, error);
        text.returnsRows = ok && PQnfields(r) > 0;
        PQclear(r);
        return ok;
    }

    // The same inside a pipeline: the answers come with those of the
    // statements queued before, and the first failure among them fails it.
    bool prepareInPipeline(const std::string& sql, size_t parameters, PreparedText& text, DriverError& error)
    {
        if (!send(PQsendPrepare(conn_, text.name.c_str(), sql.c_str(), static_cast<int>(parameters), nullptr), error)) return false;
        if (!send(PQsendDescribePrepared(conn_, text.name.c_str()), error)) return false;
        PGresult* description = drain();
        bool ok = failure_.message.empty() && check(description, error);
        if (!failure_.message.empty()) error = failure_;
        text.returnsRows = ok && PQnfields(description) > 0;
        PQclear(description);
        return ok;
    }

    bool check(PGresult* r, DriverError& error) const
    {
        ExecStatusType status = PQresultStatus(r);
        if (status == PGRES_COMMAND_OK || status == PGRES_TUPLES_OK) return true;
        // No result at all: the connection says why (a server that went away).
        if (r) error = failureOf(r);
        else error.message = trimmed(PQerrorMessage(conn_));
        if (error.message.empty()) error.message = "no answer from the server";
        return false;
    }

    static bool notConnected(DriverError& error)
    {
        error.message = "not connected";
        return false;
    }

    bool send(int sent, DriverError& error)
    {
        if (sent == 1) {
            ++queued_;
            return true;
        }
        error.message = trimmed(PQerrorMessage(conn_));
        if (failure_.message.empty()) failure_ = error;
        return false;
    }

    // Reads the answers of everything queued; keeps the first failure and
    // returns the last command's result.
    PGresult* drain()
    {
        PGresult* last = nullptr;
        if (PQpipelineSync(conn_) != 1) {
            if (failure_.message.empty()) failure_.message = trimmed(PQerrorMessage(conn_));
            queued_ = 0;
            return nullptr;
        }
        for (; queued_ > 0; --queued_) {
            while (PGresult* r = PQgetResult(conn_)) {
                ExecStatusType status = PQresultStatus(r);
                if (status == PGRES_FATAL_ERROR && failure_.message.empty()) failure_ = failureOf(r);
                if (status == PGRES_PIPELINE_ABORTED && failure_.message.empty())
                    failure_.message = "statement not run: an earlier one failed";
                if (queued_ == 1) {
                    PQclear(last);
                    last = r;
                } else {
                    PQclear(r);
                }
            }
            if (PQstatus(conn_) != CONNECTION_OK) {
                if (failure_.message.empty()) failure_.message = trimmed(PQerrorMessage(conn_));
                queued_ = 0;
                return last;
            }
        }
        PGresult* sync = PQgetResult(conn_); // the sync point
        PQclear(sync);
        return last;
    }

    void leavePipeline()
    {
        PQexitPipelineMode(conn_);
        pipeline_ = false;
        queued_ = 0;
    }

    bool finishCommit(PGresult* r, DriverError& error)
    {
        // A transaction that failed answers COMMIT with ROLLBACK: that is a failure.
        bool ok = PQresultStatus(r) == PGRES_COMMAND_OK && std::strcmp(PQcmdStatus(r), "COMMIT") == 0;
        if (!ok && r && PQresultStatus(r) != PGRES_COMMAND_OK) error = failureOf(r);
        else if (!ok) error.message = r ? "the transaction was rolled back" : trimmed(PQerrorMessage(conn_));
        PQclear(r);
        return ok;
    }

    bool run(const char* sql, DriverError& error)
    {
        if (!conn_) return notConnected(error);
        PGresult* r = PQexec(conn_, sql);
        bool ok = check(r, error);
        PQclear(r);
        return ok;
    }

    PGconn* conn_ = nullptr;
    std::map<std::string, PreparedText> prepared_; // by text
    unsigned named_ = 0;
    bool pipeline_ = false;
    int queued_ = 0;
    DriverError failure_; // the first failure among the queued statements
};

bool PgConnection::open(const OpenRequest& request, DriverError& error)
{
    std::string host, port;
    if (const std::string* server = request.setting("SERVER")) {
        host = *server;
        // "host/port"; a path (starting with "/") is the directory of a local socket.
        size_t slash = host.find('/');
        if (slash != std::string::npos && slash != 0) {
            port = host.substr(slash + 1);
            host.resize(slash);
        }
    }
    if (const std::string* p = request.setting("PORT")) port = *p;
    std::vector<const char*> keys, values;
    auto add = [&](const char* key, const std::string* value) {
        if (value && !value->empty()) {
            keys.push_back(key);
            values.push_back(value->c_str());
        }
    };
    const std::string timeout = kConnectTimeoutSeconds, encoding = kClientEncoding, options = kSessionOptions;
    add("host", &host);
    add("port", &port);
    add("user", request.setting("USER"));
    add("password", request.setting("PASSWORD"));
    add("dbname", request.setting("DATABASE"));
    add("connect_timeout", &timeout);
    add("client_encoding", &encoding);
    add("application_name", &request.applicationName);
    add("options", &options);
    keys.push_back(nullptr);
    values.push_back(nullptr);
    conn_ = PQconnectdbParams(keys.data(), values.data(), 0);
    if (!conn_ || PQstatus(conn_) != CONNECTION_OK) {
        error.message = conn_ ? trimmed(PQerrorMessage(conn_)) : "out of memory";
        if (conn_) PQfinish(conn_);
        conn_ = nullptr;
        return false;
    }
    return true;
}

bool PgStatement::bind(size_t index, const Value& v, DriverError& error)
{
    if (index >= values_.size()) {
        error.message = "no parameter " + std::to_string(index);
        return false;
    }
    set_[index] = v.kind != Value::Null;
    binary_[index] = v.kind == Value::Bytes ? 1 : 0;
    switch (v.kind) {
    case Value::Int: values_[index] = std::to_string(v.i); break;
    case Value::UInt: values_[index] = std::to_string(v.u); break;
    case Value::Text:
    case Value::Bytes: values_[index] = v.bytes; break;
    case Value::Time: values_[index] = timestampText(v.time); break;
    default: values_[index].clear(); break;
    }
    return true;
}

bool PgStatement::execute(DriverError& error)
{
    PQclear(result_);
    result_ = nullptr;
    row_ = 0;
    const size_t n = values_.size();
    std::vector<const char*> values(n);
    std::vector<int> lengths(n);
    for (size_t i = 0; i < n; ++i) {
        values[i] = set_[i] ? values_[i].c_str() : nullptr;
        lengths[i] = static_cast<int>(values_[i].size());
    }
    return owner_.runStatement(text_.name, values, lengths, binary_, text_.returnsRows, result_, error);
}

bool PgStatement::fetch(std::vector<Value>& row, DriverError&)
{
    if (!result_ || PQresultStatus(result_) != PGRES_TUPLES_OK || row_ >= PQntuples(result_)) return false;
    row.resize(static_cast<size_t>(PQnfields(result_)));
    for (size_t c = 0; c < row.size(); ++c) row[c] = column(static_cast<int>(c));
    ++row_;
    return true;
}

Value PgStatement::column(int c) const
{
    Value v;
    if (PQgetisnull(result_, row_, c)) return v;
    const char* text = PQgetvalue(result_, row_, c);
    const Oid type = PQftype(result_, c);
    if (type == kInt2 || type == kInt4 || type == kInt8) {
        v.kind = Value::Int;
        v.i = std::strtoll(text, nullptr, 10);
    } else if (type == kBytea) {
        size_t length = 0;
        unsigned char* bytes = PQunescapeBytea(reinterpret_cast<const unsigned char*>(text), &length);
        v.kind = Value::Bytes;
        if (bytes) v.bytes.assign(reinterpret_cast<const char*>(bytes), length);
        PQfreemem(bytes);
    } else {
        v.kind = Value::Text;
        v.bytes.assign(text, static_cast<size_t>(PQgetlength(result_, row_, c)));
    }
    return v;
}

void PgStatement::reset()
{
    PQclear(result_);
    result_ = nullptr;
    row_ = 0;
    set_.assign(set_.size(), false);
}

} // namespace

extern "C" {
int ZELSQLDriverApiVersion() { return kApiVersion; }
Connection* ZELSQLDriverCreate() { return new PgConnection(); }
}
