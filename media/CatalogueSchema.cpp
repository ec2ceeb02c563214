#include "media/CatalogueSchema.h"

#include <cstring>
#include <string>

#include "zel/FileName.h"

namespace ZELd {

namespace {

const SchemaFile* named(const char* name)
{
    for (const SchemaFile& file : kSchemaFiles)
        if (std::strcmp(file.name, name) == 0) return &file;
    return nullptr;
}

// Where the section of --all-formats begins: at the start of a line.
const char* propertiesSection(const char* text)
{
    for (const char* at = std::strstr(text, kPropertiesSection); at; at = std::strstr(at + 1, kPropertiesSection))
        if (at == text || at[-1] == '\n') return at;
    return text + std::strlen(text);
}

} // namespace

const SchemaFile* schemaFor(const String& driver, const String& serverInfo)
{
    const struct {
        const wchar_t* driver; // or, through ODBC, the start of the server's name
        const char* file;
    } kinds[] = {
        {L"ZELSQLite3", "sqlite3.sql"}, {L"ZELSQLCipher", "sqlite3.sql"},  {L"ZELPostgreSQL", "postgresql.sql"},
        {L"ZELMariaDB", "mariadb.sql"}, {L"ZELFirebird", "firebird.sql"},  {L"ZELInterBase", "firebird.sql"},
        {L"SQLite", "sqlite3.sql"},     {L"PostgreSQL", "postgresql.sql"}, {L"MariaDB", "mariadb.sql"},
        {L"MySQL", "mariadb.sql"},      {L"Firebird", "firebird.sql"},
    };
    const bool odbc = driver == L"ZELODBC";
    for (const auto& kind : kinds)
        if (odbc ? serverInfo.startsWith(kind.driver) : driver == kind.driver) return named(kind.file);
    return nullptr;
}

TablesLock tablesLockFor(const SchemaFile& schema)
{
    // Both last as long as the session, or until let go; PostgreSQL's is the
    // database's own, keyed by "sonarcat" in ASCII; MariaDB's is the server's,
    // named after the database.
    if (std::strcmp(schema.name, "postgresql.sql") == 0)
        return {L"SELECT 1 FROM pg_advisory_lock(8317988401586594164)", L"SELECT pg_advisory_unlock(8317988401586594164)"};
    if (std::strcmp(schema.name, "mariadb.sql") == 0)
        return {L"SELECT GET_LOCK(CONCAT('sonarcat ', MD5(DATABASE())), 60)", L"SELECT RELEASE_LOCK(CONCAT('sonarcat ', MD5(DATABASE())))"};
    return {};
}

std::vector<String> schemaStatements(const char* text)
{
    std::vector<String> statements;
    std::string statement;
    bool quoted = false;
    for (const char* p = text; *p; ++p) {
        if (!quoted && p[0] == '-' && p[1] == '-') { // a comment, to the end of its line
            while (p[1] && p[1] != '\n') ++p;
            continue;
        }
        if (*p == '\'') quoted = !quoted;
        if (quoted || *p != ';') {
            statement += *p;
            continue;
        }
        if (statement.find_first_not_of(" \t\r\n") != std::string::npos) statements.push_back(fromNativePath(statement.c_str()).trim());
        statement.clear();
    }
    return statements;
}

std::vector<String> schemaStatements(const char* text, SchemaSection section)
{
    const char* properties = propertiesSection(text);
    if (section == SchemaSection::Properties) return schemaStatements(properties);
    return schemaStatements(std::string(text, properties).c_str());
}

} // namespace ZELd
