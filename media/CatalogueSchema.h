// The catalogue's seven tables as schema/ makes them for each database, and
// what --all-formats adds below them (TAG_PROPERTY, its index and the view
// TRACK): the files of schema/ are built into the program
// (cmake/EmbedSchemas.cmake), so that it makes the tables of a catalogue from
// the very same text.
#pragma once

#include <cstddef>
#include <vector>

#include "zel/String.h"

namespace ZELd {

struct SchemaFile {
    const char* name; // "sqlite3.sql"
    const char* text;
};
inline constexpr size_t kSchemaFileCount = 4;
extern const SchemaFile kSchemaFiles[kSchemaFileCount];

// The seven tables.
inline constexpr const wchar_t* kCatalogueTables[] = {L"STOR_DIR", L"STOR_FILE", L"ID3V1", L"ID3V2", L"ID3V2_FRAME", L"APE", L"APE_ITEM"};
// The table of --all-formats.
inline constexpr const wchar_t kPropertyTable[] = L"TAG_PROPERTY";

// The schema file for a connection: by its driver, and through ODBC by the
// database behind it (serverInfo, as the connection names it). Null when the
// program has none for it.
const SchemaFile* schemaFor(const String& driver, const String& serverInfo);

// A lock that keeps other runs from looking for the tables and making them
// while one run does: statements of one row each, which take it (the row
// holds 1 once it is taken) and let it go. Null where the database has none
// that outlives a failed statement: there a run that makes the tables second
// fails, and looks again.
struct TablesLock {
    const wchar_t* take = nullptr;
    const wchar_t* release = nullptr;
};
TablesLock tablesLockFor(const SchemaFile& schema);

// The two sections of a schema file: the seven tables, and from the comment
// line that begins with kPropertiesSection to its end, what --all-formats
// adds.
enum class SchemaSection { Tables, Properties };
inline constexpr char kPropertiesSection[] = "-- With --all-formats:";

// The statements of a schema file, or of one of its sections: the text cut
// at each ";" outside a quoted string, without its comments and blank
// statements.
std::vector<String> schemaStatements(const char* text);
std::vector<String> schemaStatements(const char* text, SchemaSection section);

} // namespace ZELd
