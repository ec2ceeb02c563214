#define ZEL_SOURCE "zel/SQL"
#include "zel/SQL.h"

#include <climits>
#include <dirent.h>
#include <unistd.h>

#include "zel/FileName.h"
#include "zel/Files.h"
#include "zel/SharedLibrary.h"
#include "zel/StringBuilder.h"
#include "zel/Utf8.h"

namespace ZELd {

namespace {

using sqldriver::DriverError;
using sqldriver::Value;

[[noreturn]] void fail(const String& what, const DriverError& error)
{
    throw ZEL_NEW SQLException(what + L": " + fromNativePath(error.message.c_str()));
}

String programDirectory()
{
    char buffer[PATH_MAX];
    ssize_t n = ::readlink("/proc/self/exe", buffer, sizeof buffer - 1);
    if (n <= 0) return String();
    return Files::dirname(fromNativePath(buffer, static_cast<size_t>(n)));
}

bool exists(const String& path) { return ::access(nativePath(path).c_str(), F_OK) == 0; }

// The driver modules found in a directory, for the message about a missing one.
String modulesIn(const String& dir)
{
    StringBuilder names(64);
    DIR* d = ::opendir(nativePath(dir).c_str());
    if (!d) return String();
    while (dirent* e = ::readdir(d)) {
        String name = fromNativePath(e->d_name);
        if (name.startsWith(L"libZEL") && name.endsWith(L".so")) {
            if (names.length()) names.append(L", ");
            names.append(name.substring(3, name.length() - 6));
        }
    }
    ::closedir(d);
    return names.toString();
}

} // namespace

// ---- parameters and fields ---------------------------------------------------

void SQLParam::setInt(long long v)
{
    value_ = Value();
    value_.kind = Value::Int;
    value_.i = v;
}

void SQLParam::setUInt(unsigned long long v)
{
    value_ = Value();
    value_.kind = Value::UInt;
    value_.u = v;
}

void SQLParam::setValue(const String& v, SQL::DataType)
{
    value_ = Value();
    value_.kind = Value::Text;
    value_.bytes = toUtf8(v.str(), EscapedBytes::Replace); // database text must be valid UTF-8
}

void SQLParam::setValue(const ByteString& v, SQL::DataType)
{
    value_ = Value();
    value_.kind = Value::Bytes;
    value_.bytes.assign(v.data(), v.length());
}

void SQLParam::setValue(DateTime v, short)
{
    value_ = Value();
    value_.kind = Value::Time;
    value_.time = {v.year(), v.month(), v.day(), v.hour(), v.minute(), v.second(), v.millisecond()};
}

SQLParam& SQLParams::operator[](size_t index)
{
    ZEL_ASSERT(index < params_.size());
    if (index < params_.size()) return params_[index];
    return spare_;
}

SQLParam* SQLParams::byName(const wchar_t* name)
{
    for (SQLParam& p : params_)
        if (p.name() == name) return &p;
    return nullptr;
}

int64_t SQLField::asInt64() const
{
    switch (value_.kind) {
    case Value::Int: return value_.i;
    case Value::UInt: return static_cast<int64_t>(value_.u);
    case Value::Text: return std::strtoll(value_.bytes.c_str(), nullptr, 10);
    default: return 0;
    }
}

String SQLField::asString() const
{
    switch (value_.kind) {
    case Value::Int: return String::valueOf(static_cast<long long>(value_.i));
    case Value::UInt: return String::valueOf(static_cast<unsigned long long>(value_.u));
    case Value::Text: return fromNativePath(value_.bytes.data(), value_.bytes.size());
    default: return String();
    }
}

SQLField& SQLFields::operator[](size_t index)
{
    ZEL_ASSERT(index < fields_.size());
    if (index < fields_.size()) return fields_[index];
    spare_ = SQLField();
    return spare_;
}

// ---- connection string and placeholders --------------------------------------

sqldriver::Settings parseConnectionString(const String& connectionString)
{
    sqldriver::Settings settings;
    const std::wstring& s = connectionString.str();
    size_t start = 0;
    while (start <= s.size()) {
        size_t end = s.find(L';', start);
        if (end == std::wstring::npos) end = s.size();
        String pair(s.substr(start, end - start));
        size_t eq = pair.indexOf(L'=');
        if (eq != String::npos) {
            String key = pair.substring(size_t{0}, eq).trim();
            String value = pair.substring(eq + 1).trim();
            std::string k = toUtf8(key.str());
            for (char& c : k)
                if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
            if (!k.empty()) settings.emplace_back(k, toUtf8(value.str()));
        }
        start = end + 1;
    }
    return settings;
}

std::string translatePlaceholders(const String& sql, sqldriver::Connection& driver, std::vector<String>& names)
{
    names.clear();
    const std::wstring& s = sql.str();
    std::wstring out;
    out.reserve(s.size() + 16);
    auto isNameStart = [](wchar_t c) { return (c >= L'A' && c <= L'Z') || (c >= L'a' && c <= L'z') || c == L'_'; };
    auto isNameChar = [&](wchar_t c) { return isNameStart(c) || (c >= L'0' && c <= L'9'); };
    auto emit = [&](size_t index) {
        std::string p = driver.placeholder(index);
        out.append(p.begin(), p.end());
    };
    for (size_t i = 0; i < s.size();) {
        wchar_t c = s[i];
        if (c == L'\'' || c == L'"') { // a quoted literal or identifier is copied as it is
            size_t j = i + 1;
            while (j < s.size() && s[j] != c) ++j;
            out.append(s, i, j + 1 - i);
            i = j + 1;
        } else if (c == L'-' && i + 1 < s.size() && s[i + 1] == L'-') { // a comment, to the line end
            size_t j = s.find(L'\n', i);
            if (j == std::wstring::npos) j = s.size();
            out.append(s, i, j - i);
            i = j;
        } else if (c == L':' && i + 1 < s.size() && s[i + 1] == L':') { // a cast: x::int
            out.append(L"::");
            i += 2;
        } else if (c == L':' && i + 1 < s.size() && isNameStart(s[i + 1])) {
            size_t j = i + 1;
            while (j < s.size() && isNameChar(s[j])) ++j;
            String name(s.substr(i + 1, j - i - 1));
            size_t index = names.size();
            for (size_t k = 0; k < names.size(); ++k)
                if (names[k] == name) index = k;
            if (index == names.size()) names.push_back(name);
            emit(index);
            i = j;
        } else if (c == L'?') {
            names.push_back(String());
            emit(names.size() - 1);
            ++i;
        } else {
            out.push_back(c);
            ++i;
        }
    }
    return toUtf8(out, EscapedBytes::Replace);
}

// ---- connection ---------------------------------------------------------------

SQLConnection::SQLConnection(const String& driverName) : driverName_(driverName)
{
    bool plain = !driverName.isEmpty();
    for (wchar_t c : driverName.str())
        plain = plain && ((c >= L'A' && c <= L'Z') || (c >= L'a' && c <= L'z') || (c >= L'0' && c <= L'9') || c == L'_');
    if (!plain) throw ZEL_NEW SQLException(L"Invalid SQL driver name [" + driverName + L"]: letters, digits and _ only");
    const String file = L"libZEL" + driverName.substring(driverName.startsWith(L"ZEL") ? 3 : 0) + L".so";
    const String here = programDirectory();
    const String candidates[] = {here + file, here + L"../lib/sonarcat/" + file};
    for (const String& path : candidates) {
        if (!here.isEmpty() && exists(path)) {
            module_ = ZEL_NEW SharedLibrary(nativePath(path).c_str());
            break;
        }
    }
    if (!module_) {
        try {
            module_ = ZEL_NEW SharedLibrary(nativePath(file).c_str());
        } catch (Exception* e) {
            e->destroy();
            String found = modulesIn(here);
            throw ZEL_NEW SQLException(String::format(
                L"SQL driver [%ls] is not installed: no %ls beside the program (%ls) or in %ls../lib/sonarcat/%ls%ls",
                driverName, file, here, here, found.isEmpty() ? L"" : L"; installed drivers: ", found));
        }
    }
    try {
        auto version = reinterpret_cast<int (*)()>(module_->symbol("ZELSQLDriverApiVersion"));
        auto create = reinterpret_cast<sqldriver::Connection* (*)()>(module_->symbol("ZELSQLDriverCreate"));
        if (version() != sqldriver::kApiVersion)
            throw ZEL_NEW SQLException(String::format(L"SQL driver [%ls] speaks interface %d, this program %d", driverName, version(),
                                                      sqldriver::kApiVersion));
        driver_ = create();
        if (!driver_) throw ZEL_NEW SQLException(String::format(L"SQL driver [%ls] made no connection", driverName));
    } catch (Exception*) {
        delete module_;
        module_ = nullptr;
        throw;
    }
}

SQLConnection::~SQLConnection()
{
    delete driver_; // the driver's code lives in the module: gone before it
    delete module_;
}

const SQLConnection::Translation& SQLConnection::translate(const String& sql)
{
    auto it = translations_.find(sql.str());
    if (it == translations_.end()) {
        Translation t;
        t.text = translatePlaceholders(sql, *driver_, t.names);
        it = translations_.emplace(sql.str(), std::move(t)).first;
    }
    return it->second;
}

void SQLConnection::open(const String& connectionString)
{
    DriverError error;
    if (!driver_->open(parseConnectionString(connectionString), toUtf8(connectionString.str()), error))
        fail(String::format(L"%ls: cannot connect", driverName_), error);
}

String SQLConnection::getServerInfo() const
{
    std::string info = driver_->serverInfo();
    return fromNativePath(info.data(), info.size());
}

bool SQLConnection::connected() const { return driver_->connected(); }

void SQLConnection::startTrans()
{
    DriverError error;
    if (!driver_->begin(error)) fail(L"Cannot start a transaction", error);
}

void SQLConnection::commitTrans()
{
    DriverError error;
    if (!driver_->commit(error)) fail(L"Cannot commit", error);
}

void SQLConnection::rollbackTrans()
{
    DriverError error;
    if (!driver_->rollback(error)) fail(L"Cannot roll back", error);
}

// ---- queries ------------------------------------------------------------------

SQLQuery::SQLQuery(SQLConnection* connection) : connection_(connection) {}

SQLQuery::~SQLQuery() { release(); }

void SQLQuery::release()
{
    delete statement_;
    statement_ = nullptr;
    params_.params_.clear();
    fields_.fields_.clear();
}

void SQLQuery::prepare(const String& sql)
{
    release();
    const SQLConnection::Translation& t = connection_->translate(sql);
    DriverError error;
    statement_ = connection_->driver().prepare(t.text, t.names.size(), error);
    if (!statement_) fail(L"Cannot prepare [" + sql + L"]", error);
    sql_ = sql;
    params_.params_.reserve(t.names.size());
    for (const String& name : t.names) params_.params_.emplace_back(name);
}

void SQLQuery::execute()
{
    ZEL_ASSERT(statement_ != nullptr);
    if (!statement_) throw ZEL_NEW SQLException(L"No statement prepared");
    DriverError error;
    for (size_t i = 0; i < params_.size(); ++i)
        if (!statement_->bind(i, params_.params_[i].value(), error))
            fail(String::format(L"Cannot bind parameter %zd [%ls] of [%ls]", i, params_.params_[i].name(), sql_), error);
    if (!statement_->execute(error)) fail(L"Cannot execute [" + sql_ + L"]", error);
}

void SQLQuery::execute(const String& sql)
{
    prepare(sql);
    execute();
}

bool SQLQuery::fetch()
{
    if (!statement_) return false;
    std::vector<Value> row;
    DriverError error;
    if (!statement_->fetch(row, error)) {
        if (!error.message.empty()) fail(L"Cannot fetch from [" + sql_ + L"]", error);
        fields_.fields_.clear();
        return false;
    }
    fields_.fields_.resize(row.size());
    for (size_t i = 0; i < row.size(); ++i) fields_.fields_[i].value_ = std::move(row[i]);
    return true;
}

} // namespace ZELd
