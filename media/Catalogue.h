// The catalogue: the run's one database connection, its tables, the ids the
// run hands out, a file's transaction, and the records an update reads and
// deletes. The rows themselves are RecordRows'.
//
// Ids: the first file stored reads the largest stored ids (loadIds); from then
// on takeDirId and takeFileId hand out the next ones from memory, and a failed
// file's ids are never handed out again. When another run storing into the
// same catalogue has taken them, the file is stored again: the next loadIds
// reads the largest stored ids again and starts a few ids past them; a run's
// own ids only grow. This is the one place ids are loaded and advanced.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "media/RecordId.h"
#include "zel/String.h"

namespace ZELd {

class Exception;
class SQLConnection;
class Writer;

// A file's record, as an update reads it back.
struct StoredFile {
    RecordId id;
    std::string name;        // STOR_FILE.NAME, UTF-8
    uint64_t size = 0;       // FILE_SZ
    long long modified = -1; // FILE_MT as DateTime::wallClock(); -1 when it cannot be read
};

class Catalogue {
public:
    // What prepareTables found: the tables the run needs were there, it
    // made them, or a dry run found none of them, or found the seven tables
    // without TAG_PROPERTY.
    enum class Tables { Held, Made, Missing, PropertiesMissing };

    // errout takes what keeps a file out of the catalogue; out is the
    // report's writer, whose failure ends the walk instead of failing a file.
    Catalogue(Writer& errout, const Writer& out) : errout_(errout), out_(out) {}
    // Deletes the connection, which ends it; nothing is committed here.
    ~Catalogue();
    Catalogue(const Catalogue&) = delete;
    Catalogue& operator=(const Catalogue&) = delete;

    // Opens the connection whose driver the DRIVER key of the connection
    // string names, handing it the whole string; false, and no connection,
    // when it names none. Throws when the driver or the server fails.
    bool connect(const String& database, bool dryRun);
    // Makes the seven tables, from the schema file of the catalogue's
    // database (schemaFile()), when the catalogue has none of them, in one
    // transaction: once, also when other runs start on the same catalogue.
    // With properties (--all-formats) the run stores TAG_PROPERTY rows: an
    // empty catalogue gets TAG_PROPERTY and the view TRACK with the seven
    // tables, and one that holds the seven tables gets them in a transaction
    // of their own. No table is ever altered. A dry run makes nothing:
    // Missing or PropertiesMissing. Throws, leaving the catalogue as it was,
    // when it holds some of the tables that the run needs but not all.
    Tables prepareTables(bool dryRun, bool properties);
    const char* schemaFile() const { return schemaFile_; }
    // The run stores each file's TAG_PROPERTY rows.
    bool storesProperties() const { return storesProperties_; }
    // This run made TAG_PROPERTY in a catalogue that held the seven tables
    // (or a dry run would): the files stored before it have no properties,
    // and an update reads every stored file again.
    bool propertiesAdded() const { return propertiesAdded_; }
    // A connection is open and files can be stored.
    bool ready() const;
    String serverInfo() const;
    SQLConnection* sql() { return connection; }

    // Runs work in one transaction, tried again under new ids when another
    // run took the ids it was handed, rolled back whole when it fails; true
    // when it was committed. Who owns a failure: a failure of the work (a
    // row refused, a full disk, a lost server) is the catalogue's: it is
    // written to errout and released, and the walk goes on with the next
    // file. What must end the walk is thrown, for the run driver to report: a
    // rollback that fails (once the failure it was for is written to errout),
    // and a failure of the report's writer (no file's failure).
    bool inTransaction(const std::function<void()>& work);

    // The ids of a file's rows, inside its transaction. The directory of the
    // last directory row; empty after a rollback.
    const String& currentDirectory() const { return currentDir; }
    int32_t currentDirId() const { return dirId; }
    // The next directory id, for a row of dir, which becomes the current directory.
    int32_t takeDirId(const String& dir);
    // The next file id.
    int64_t takeFileId();

    // For an update: the directory rows whose stored path is like `pattern`
    // (SQL LIKE, "!" its escape character), each handed to `take` with its
    // path (UTF-8); the records of the files of one directory row.
    void readDirectories(const String& pattern, const std::function<void(std::string&& path, int32_t dirId)>& take);
    void readFiles(int32_t dirId, const std::function<void(StoredFile&&)>& take);
    // Deletes the records (their TAG_PROPERTY rows too, where the catalogue
    // has that table, whether the run stores them or not) and, with the last
    // file of a directory row, that row, in the open transaction.
    void deleteRecords(const std::vector<RecordId>& records);

private:
    // Undoes the transaction; returns what must end the walk, else null.
    Exception* rollBack(Exception* failure);
    // Reads the largest stored ids, the first time and when another run took ours.
    void loadIds();

    Writer& errout_;
    const Writer& out_;
    SQLConnection* connection = nullptr; // owned; null when no database is used
    String driver_;                      // the driver the connection string names
    bool tables_ = true;                 // the catalogue has its tables (a dry run leaves an empty one empty)
    const char* schemaFile_ = nullptr;   // the schema file the tables were made from
    bool propertyTable_ = false;         // the catalogue has TAG_PROPERTY
    bool storesProperties_ = false;      // --all-formats
    bool propertiesAdded_ = false;       // TAG_PROPERTY made beside the seven tables that this run found
    String currentDir;                   // the directory of the last STOR_DIR row written; empty after a rollback
    int32_t dirId = 0;                   // the last ids handed out; 0: not yet read from the database
    int64_t fileId = 0;
    bool reload_ = false; // read the largest stored ids again
    int32_t skipIds_ = 0; // and start this many past them
};

} // namespace ZELd
