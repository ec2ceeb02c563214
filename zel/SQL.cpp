#define ZEL_SOURCE "zel/SQL"
#include "zel/SQL.h"

#include <map>

#include "zel/Debug.h"
#include "zel/FileName.h"
#include "zel/SQLConnectionString.h"
#include "zel/SQLDriver.h"
#include "zel/SQLDriverModule.h"
#include "zel/SQLPlaceholders.h"
#include "zel/SharedLibrary.h"
#include "zel/Utf8.h"

namespace ZELd {

using sqldriver::DriverError;
using sqldriver::Value;

namespace {

[[noreturn]] void fail(const String& what, const DriverError& error)
{
    throw ZEL_NEW SQLException(what + L": " + fromNativePath(error.message.c_str()), error.conflict);
}

SQLConfiguration& configuration()
{
    static SQLConfiguration setUp;
    return setUp;
}

} // namespace

// ---- parameters -----------------------------------------------------------------

SQLParam::SQLParam(String name, const String* statement) : name_(std::move(name)), statement_(statement), value_(std::make_unique<Value>())
{}

SQLParam::~SQLParam() = default;
SQLParam::SQLParam(SQLParam&& other) noexcept = default;
SQLParam& SQLParam::operator=(SQLParam&& other) noexcept = default;

void SQLParam::setInt(long long v)
{
    *value_ = Value();
    value_->kind = Value::Int;
    value_->i = v;
}

void SQLParam::setUInt(unsigned long long v)
{
    *value_ = Value();
    value_->kind = Value::UInt;
    value_->u = v;
}

void SQLParam::refuse(const wchar_t* what, int given) const
{
    throw ZEL_NEW SQLException(
        String::format(L"Parameter [%ls] of [%ls]: %ls %d", name_, statement_ ? *statement_ : String(), what, given));
}

void SQLParam::setValue(const String& v, SQL::DataType type)
{
    if (type != SQL::Text) refuse(L"text cannot be bound as data type", type);
    *value_ = Value();
    value_->kind = Value::Text;
    value_->bytes = toUtf8(v.str(), EscapedBytes::Replace); // database text must be valid UTF-8
}

void SQLParam::setValue(const ByteString& v, SQL::DataType type)
{
    if (type != SQL::Bytes) refuse(L"bytes cannot be bound as data type", type);
    *value_ = Value();
    value_->kind = Value::Bytes;
    value_->bytes.assign(v.data(), v.length());
}

void SQLParam::setValue(DateTime v, short flags)
{
    if (flags != SQL::TimestampWithoutZone) refuse(L"a time cannot be bound with flags", flags);
    *value_ = Value();
    value_->kind = Value::Time;
    value_->time = {v.year(), v.month(), v.day(), v.hour(), v.minute(), v.second(), v.millisecond()};
}

void SQLParam::setNull() { *value_ = Value(); }

SQLParam& SQLParams::operator[](size_t index)
{
    ZEL_ASSERT(index < params_.size());
    if (index >= params_.size())
        throw ZEL_NEW SQLException(
            String::format(L"No parameter %zd in [%ls]: it has %zd", index, statement_ ? *statement_ : String(), params_.size()));
    return params_[index];
}

SQLParam* SQLParams::byName(const wchar_t* name)
{
    if (!name) name = L"";
    for (SQLParam& p : params_)
        if (p.name_ == name) return &p;
    throw ZEL_NEW SQLException(String::format(L"No parameter [%ls] in [%ls]", name, statement_ ? *statement_ : String()));
}

// ---- fields -----------------------------------------------------------------------

SQLField::SQLField() : value_(std::make_unique<Value>()) {}
SQLField::~SQLField() = default;
SQLField::SQLField(SQLField&& other) noexcept = default;
SQLField& SQLField::operator=(SQLField&& other) noexcept = default;

bool SQLField::isNull() const { return value_->kind == Value::Null; }

int64_t SQLField::asInt64() const
{
    switch (value_->kind) {
    case Value::Int: return value_->i;
    case Value::UInt: return static_cast<int64_t>(value_->u);
    case Value::Text: return std::strtoll(value_->bytes.c_str(), nullptr, 10);
    default: return 0;
    }
}

String SQLField::asString() const
{
    switch (value_->kind) {
    case Value::Int: return String::valueOf(static_cast<long long>(value_->i));
    case Value::UInt: return String::valueOf(static_cast<unsigned long long>(value_->u));
    case Value::Text: return fromNativePath(value_->bytes.data(), value_->bytes.size());
    default: return String();
    }
}

ByteString SQLField::asBytes() const
{
    if (value_->kind != Value::Bytes && value_->kind != Value::Text) return ByteString();
    return ByteString(value_->bytes.data(), value_->bytes.size());
}

bool SQLField::asDateTime(DateTime& out) const
{
    return value_->kind == Value::Text && DateTime::parse(fromNativePath(value_->bytes.data(), value_->bytes.size()).str(), out);
}

SQLField& SQLFields::operator[](size_t index)
{
    ZEL_ASSERT(index < fields_.size());
    if (index < fields_.size()) return fields_[index];
    *spare_.value_ = Value();
    return spare_;
}

// ---- connection -------------------------------------------------------------------

// A driver's statement that no query holds, with the parameters made for it.
struct IdleStatement {
    sqldriver::Statement* statement;
    std::vector<SQLParam> params;
};

// A statement text as the driver takes it, and its idle statements, ready for
// the next prepare of the text.
struct SQLConnection::Text {
    SQLTranslation translation;
    std::vector<IdleStatement> idle;
};

struct SQLConnection::Impl {
    String driverName;
    SharedLibrary* module = nullptr;
    sqldriver::Connection* driver = nullptr;
    std::map<std::wstring, Text> texts; // every text prepared on the connection

    ~Impl()
    {
        for (auto& [sql, text] : texts)
            for (IdleStatement& idle : text.idle) delete idle.statement;
        delete driver; // the driver's code lives in the module: gone before it
        delete module;
    }

    Text& text(const String& sql)
    {
        auto it = texts.find(sql.str());
        if (it == texts.end()) it = texts.emplace(sql.str(), Text{translatePlaceholders(sql, *driver), {}}).first;
        return it->second;
    }
};

void SQLConnection::configure(SQLConfiguration setUp) { configuration() = std::move(setUp); }

SQLConnection::SQLConnection(const String& driverName) : impl_(std::make_unique<Impl>())
{
    impl_->driverName = driverName;
    impl_->module = loadSQLDriverModule(driverName, configuration());
    auto version = reinterpret_cast<int (*)()>(impl_->module->symbol("ZELSQLDriverApiVersion"));
    auto create = reinterpret_cast<sqldriver::Connection* (*)()>(impl_->module->symbol("ZELSQLDriverCreate"));
    if (version() != sqldriver::kApiVersion)
        throw ZEL_NEW SQLException(
            String::format(L"SQL driver [%ls] speaks interface %d, this program %d", driverName, version(), sqldriver::kApiVersion));
    impl_->driver = create();
    if (!impl_->driver) throw ZEL_NEW SQLException(String::format(L"SQL driver [%ls] made no connection", driverName));
}

SQLConnection::~SQLConnection() = default;

void SQLConnection::open(const String& connectionString, bool createMissing)
{
    const sqldriver::OpenRequest request{parseConnectionString(connectionString), toUtf8(connectionString.str()),
                                         toUtf8(configuration().applicationName.str(), EscapedBytes::Replace), createMissing};
    DriverError error;
    if (!impl_->driver->open(request, error)) fail(String::format(L"%ls: cannot connect", impl_->driverName), error);
}

String SQLConnection::getServerInfo() const
{
    const std::string info = impl_->driver->serverInfo();
    return fromNativePath(info.data(), info.size());
}

bool SQLConnection::connected() const { return impl_->driver->connected(); }

void SQLConnection::startTrans()
{
    DriverError error;
    if (!impl_->driver->begin(error)) fail(L"Cannot start a transaction", error);
}

void SQLConnection::commitTrans()
{
    DriverError error;
    if (!impl_->driver->commit(error)) fail(L"Cannot commit", error);
}

void SQLConnection::rollbackTrans()
{
    DriverError error;
    if (!impl_->driver->rollback(error)) fail(L"Cannot roll back", error);
}

// ---- queries ----------------------------------------------------------------------

SQLQuery::SQLQuery(SQLConnection* connection) : connection_(connection) { params_.statement_ = &sql_; }

SQLQuery::~SQLQuery() { release(); }

// Hands the statement and its parameters back to the connection for the next
// prepare of the text.
void SQLQuery::release()
{
    if (statement_) {
        statement_->reset();
        text_->idle.push_back({statement_, std::move(params_.params_)});
    }
    statement_ = nullptr;
    text_ = nullptr;
    executed_ = false;
    params_.params_.clear();
    fields_.fields_.clear();
}

void SQLQuery::prepare(const String& sql)
{
    release();
    sql_ = sql;
    if (!connection_) throw ZEL_NEW SQLException(L"No connection to prepare [" + sql + L"] on");
    SQLConnection::Impl& connection = *connection_->impl_;
    SQLConnection::Text& text = connection.text(sql);
    if (text.idle.empty()) {
        DriverError error;
        statement_ = connection.driver->prepare(text.translation.text, text.translation.slots.size(), error);
        if (!statement_) fail(L"Cannot prepare [" + sql + L"]", error);
        params_.params_.reserve(text.translation.names.size());
        for (const String& name : text.translation.names) params_.params_.emplace_back(name, &sql_);
    } else {
        statement_ = text.idle.back().statement;
        params_.params_ = std::move(text.idle.back().params);
        text.idle.pop_back();
        for (SQLParam& param : params_.params_) {
            param.statement_ = &sql_;
            param.setNull();
        }
    }
    text_ = &text;
}

void SQLQuery::execute()
{
    ZEL_ASSERT(statement_ != nullptr);
    if (!statement_) throw ZEL_NEW SQLException(L"No statement prepared");
    executed_ = false;
    fields_.fields_.clear();
    DriverError error;
    const std::vector<size_t>& slots = text_->translation.slots;
    for (size_t i = 0; i < slots.size(); ++i) {
        const SQLParam& param = params_.params_[slots[i]];
        if (!statement_->bind(i, *param.value_, error))
            fail(String::format(L"Cannot bind parameter %zd [%ls] of [%ls]", slots[i], param.name_, sql_), error);
    }
    if (!statement_->execute(error)) fail(L"Cannot execute [" + sql_ + L"]", error);
    executed_ = true;
}

void SQLQuery::execute(const String& sql)
{
    prepare(sql);
    execute();
}

bool SQLQuery::fetch()
{
    fields_.fields_.clear();
    if (!executed_ || !statement_->returnsRows()) return false;
    std::vector<Value> row;
    DriverError error;
    if (!statement_->fetch(row, error)) {
        if (!error.message.empty()) fail(L"Cannot fetch from [" + sql_ + L"]", error);
        return false;
    }
    fields_.fields_.resize(row.size());
    for (size_t i = 0; i < row.size(); ++i) *fields_.fields_[i].value_ = std::move(row[i]);
    return true;
}

} // namespace ZELd
