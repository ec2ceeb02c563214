// The PostgreSQL driver module (libZELPostgreSQL.so), over libpq.
//
// Keys: USER, PASSWORD, SERVER (a host, host/port, or the directory of a local
// socket such as /var/run/postgresql), PORT, DATABASE.
// Statements with parameters are prepared once per connection and reused.
#include <libpq-fe.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>

#include "zel/SQLDriver.h"

namespace {

using namespace ZELd::sqldriver;

constexpr Oid kInt2 = 21, kInt4 = 23, kInt8 = 20;

std::string trimmed(const char* message)
{
    std::string s = message ? message : "";
    while (!s.empty() && (s.back() == '\n' || s.back() == ' ')) s.pop_back();
    return s;
}

class PgStatement : public Statement {
public:
    // name empty: the text runs as it is (no parameters).
    PgStatement(PGconn* conn, std::string name, std::string sql, size_t parameters)
        : conn_(conn), name_(std::move(name)), sql_(std::move(sql)), values_(parameters), set_(parameters, false),
          binary_(parameters, 0) {}
    ~PgStatement() override { PQclear(result_); }

    bool bind(size_t index, const Value& v, DriverError& error) override
    {
        if (index >= values_.size()) {
            error.message = "no parameter " + std::to_string(index);
            return false;
        }
        set_[index] = v.kind != Value::Null;
        binary_[index] = v.kind == Value::Bytes ? 1 : 0;
        char buffer[48];
        switch (v.kind) {
        case Value::Int: values_[index] = std::to_string(v.i); break;
        case Value::UInt: values_[index] = std::to_string(v.u); break;
        case Value::Text:
        case Value::Bytes: values_[index] = v.bytes; break;
        case Value::Time:
            std::snprintf(buffer, sizeof buffer, "%04d-%02d-%02d %02d:%02d:%02d.%03d", v.time.year, v.time.month, v.time.day, v.time.hour,
                          v.time.minute, v.time.second, v.time.millisecond);
            values_[index] = buffer;
            break;
        default: values_[index].clear(); break;
        }
        return true;
    }

    bool execute(DriverError& error) override
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
        if (name_.empty())
            result_ = PQexecParams(conn_, sql_.c_str(), static_cast<int>(n), nullptr, values.data(), lengths.data(), binary_.data(), 0);
        else
            result_ = PQexecPrepared(conn_, name_.c_str(), static_cast<int>(n), values.data(), lengths.data(), binary_.data(), 0);
        ExecStatusType status = PQresultStatus(result_);
        if (status == PGRES_COMMAND_OK || status == PGRES_TUPLES_OK) return true;
        error.message = trimmed(result_ ? PQresultErrorMessage(result_) : PQerrorMessage(conn_));
        return false;
    }

    bool fetch(std::vector<Value>& row, DriverError&) override
    {
        if (!result_ || PQresultStatus(result_) != PGRES_TUPLES_OK || row_ >= PQntuples(result_)) return false;
        int columns = PQnfields(result_);
        row.assign(static_cast<size_t>(columns), Value());
        for (int c = 0; c < columns; ++c) {
            if (PQgetisnull(result_, row_, c)) continue;
            Value& v = row[static_cast<size_t>(c)];
            const char* text = PQgetvalue(result_, row_, c);
            Oid type = PQftype(result_, c);
            if (type == kInt2 || type == kInt4 || type == kInt8) {
                v.kind = Value::Int;
                v.i = std::strtoll(text, nullptr, 10);
            } else {
                v.kind = Value::Text;
                v.bytes.assign(text, static_cast<size_t>(PQgetlength(result_, row_, c)));
            }
        }
        ++row_;
        return true;
    }

private:
    PGconn* conn_;
    std::string name_, sql_;
    std::vector<std::string> values_;
    std::vector<bool> set_;
    std::vector<int> binary_;
    PGresult* result_ = nullptr;
    int row_ = 0;
};

class PgConnection : public Connection {
public:
    ~PgConnection() override
    {
        if (conn_) PQfinish(conn_);
    }

    bool open(const Settings& settings, const std::string&, DriverError& error) override
    {
        std::string host, port;
        if (const std::string* server = setting(settings, "SERVER")) {
            host = *server;
            // "host/port"; a path (starting with "/") is the directory of a local socket.
            size_t slash = host.find('/');
            if (slash != std::string::npos && slash != 0) {
                port = host.substr(slash + 1);
                host.resize(slash);
            }
        }
        if (const std::string* p = setting(settings, "PORT")) port = *p;
        std::vector<const char*> keys, values;
        auto add = [&](const char* key, const std::string* value) {
            if (value && !value->empty()) {
                keys.push_back(key);
                values.push_back(value->c_str());
            }
        };
        add("host", &host);
        add("port", &port);
        add("user", setting(settings, "USER"));
        add("password", setting(settings, "PASSWORD"));
        add("dbname", setting(settings, "DATABASE"));
        const std::string timeout = "10", encoding = "UTF8", application = "sonarcat";
        add("connect_timeout", &timeout);
        add("client_encoding", &encoding);
        add("application_name", &application);
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

    std::string serverInfo() override
    {
        const char* version = conn_ ? PQparameterStatus(conn_, "server_version") : nullptr;
        return std::string("PostgreSQL ") + (version ? version : "?");
    }
    bool connected() override { return conn_ && PQstatus(conn_) == CONNECTION_OK; }
    bool begin(DriverError& error) override { return run("BEGIN", error); }
    bool rollback(DriverError& error) override { return run("ROLLBACK", error); }
    bool commit(DriverError& error) override
    {
        // A transaction that failed answers COMMIT with ROLLBACK: that is a failure.
        PGresult* r = PQexec(conn_, "COMMIT");
        bool ok = PQresultStatus(r) == PGRES_COMMAND_OK && std::strcmp(PQcmdStatus(r), "COMMIT") == 0;
        if (!ok) error.message = PQresultStatus(r) == PGRES_COMMAND_OK ? "the transaction was rolled back" : trimmed(PQerrorMessage(conn_));
        PQclear(r);
        return ok;
    }
    std::string placeholder(size_t index) override { return std::string(1, '$').append(std::to_string(index + 1)); }

    Statement* prepare(const std::string& sql, size_t parameters, DriverError& error) override
    {
        if (!conn_) {
            error.message = "not connected";
            return nullptr;
        }
        if (parameters == 0) return new PgStatement(conn_, std::string(), sql, 0);
        auto it = prepared_.find(sql);
        if (it == prepared_.end()) {
            std::string name = "zel_" + std::to_string(prepared_.size() + 1);
            PGresult* r = PQprepare(conn_, name.c_str(), sql.c_str(), static_cast<int>(parameters), nullptr);
            bool ok = PQresultStatus(r) == PGRES_COMMAND_OK;
            if (!ok) error.message = trimmed(PQerrorMessage(conn_));
            PQclear(r);
            if (!ok) return nullptr;
            it = prepared_.emplace(sql, name).first;
        }
        return new PgStatement(conn_, it->second, sql, parameters);
    }

private:
    bool run(const char* sql, DriverError& error)
    {
        if (!conn_) {
            error.message = "not connected";
            return false;
        }
        PGresult* r = PQexec(conn_, sql);
        bool ok = PQresultStatus(r) == PGRES_COMMAND_OK;
        if (!ok) error.message = trimmed(PQerrorMessage(conn_));
        PQclear(r);
        return ok;
    }

    PGconn* conn_ = nullptr;
    std::map<std::string, std::string> prepared_;
};

} // namespace

extern "C" {
int ZELSQLDriverApiVersion() { return kApiVersion; }
Connection* ZELSQLDriverCreate() { return new PgConnection(); }
}
