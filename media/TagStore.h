// The storing side of the tag reader: the run's one database connection, the
// directory of the last directory row, the last ids handed out, and a file's
// record stored in one transaction.
//
// Ids: the first file stored reads the largest stored ids (loadIds); from then
// on insertDir and insertFile hand out the next ones from memory, and a failed
// file's ids are never handed out again. When another run storing into the
// same catalogue has taken them, the file is stored again: the next loadIds
// reads the largest stored ids again and starts a few ids past them; a run's
// own ids only grow. This is the one place ids are loaded and advanced.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "media/FileInfo.h"
#include "zel/DateTime.h"
#include "zel/String.h"

namespace ZELd {

class Exception;
class SQLConnection;
class Writer;

// Where a file's record lies in the catalogue.
struct RecordId {
    int64_t fileId = 0;
    int32_t dirId = 0;
};

// A file's record, as an update reads it back.
struct StoredFile {
    RecordId id;
    std::string dir, name;   // STOR_DIR.PATH and STOR_FILE.NAME, UTF-8
    uint64_t size = 0;       // FILE_SZ
    long long modified = -1; // FILE_MT as DateTime::wallClock(); -1 when it cannot be read
};

class TagStore {
public:
    // out takes the trace lines of the rows (opened by rule, more of them
    // with verbose), errout what keeps a file or a row out of the catalogue.
    TagStore(Writer& out, Writer& errout, const String& rule, bool verbose) : out_(out), errout_(errout), rule_(rule), verbose_(verbose) {}
    // Deletes the connection, which ends it; nothing is committed here.
    ~TagStore();
    TagStore(const TagStore&) = delete;
    TagStore& operator=(const TagStore&) = delete;

    // Opens the connection whose driver the DRIVER key of the connection
    // string names, handing it the whole string; false, and no connection,
    // when it names none. Throws when the driver or the server fails.
    bool connect(const String& database, bool dryRun);
    // Makes the seven tables, from the schema file of the catalogue's
    // database, when the catalogue has none of them, in one transaction
    // (unless the run is dry: then it only says so). Throws, leaving the
    // catalogue as it was, when it holds some of them but not all.
    void prepareTables(bool dryRun);
    // A connection is open and files can be stored.
    bool ready() const;
    String serverInfo() const;

    // Stores the file's record: every row of it in one transaction, tried
    // again under new ids when another run took its ids, rolled back whole
    // when a row fails. Who owns a failure: a failure of the file (a row
    // refused, a full disk, a lost server) is the store's: it is written to
    // errout and released, and the walk goes on with the next file. What
    // must end the walk is thrown, for the run driver to report: a rollback
    // that fails (once the failure it was for is written to errout), and a
    // failure of the output writer (no file's failure).
    // With the records of an earlier state of the file, which the same
    // transaction deletes (an update of the catalogue).
    void persist(const FileInfo& file, const std::vector<RecordId>& replaced = {});
    // The records of the files in the directories whose stored path is like
    // `pattern` (SQL LIKE, "!" its escape character), each handed to `take`;
    // a few queries whatever their number.
    void readStored(const String& pattern, const std::function<void(StoredFile&&)>& take);
    // Deletes the records and, with the last file of a directory row, that
    // row, in one transaction; its failure is the store's, as for persist.
    // True when they are gone.
    bool remove(const std::vector<RecordId>& records);

private:
    // Runs work in one transaction, under the rule for failures of persist;
    // true when it was committed.
    bool inTransaction(const std::function<void()>& work);
    // The file's rows and their trace lines, in the open transaction.
    void writeRows(const FileInfo& file);
    // The rows of each record, and the directory rows left without a file.
    void deleteRows(const std::vector<RecordId>& records);
    // Undoes the transaction; returns what must end the walk, else null.
    Exception* rollBack(Exception* failure);
    // Reads the largest stored ids, the first time and when another run took ours.
    void loadIds();

    // One row each, inside the open transaction; each prepares its
    // statements once. insertDir makes dir the current directory under the
    // next directory id and returns it; insertFile hands out the next file id
    // and returns it; the tag rows go under the last file id.
    int32_t insertDir(const String& dir, const DateTime& now);
    int64_t insertFile(const FileInfo& file, const DateTime& now);
    void insertID3v1(const ID3v1& tag);
    void insertID3v2(const ID3v2& tag); // the ID3V2 row and one ID3V2_FRAME row per frame
    void insertApe(const APEv2& tag);   // the APE row and one APE_ITEM row per item

    Writer& out_;
    Writer& errout_;
    const String& rule_;
    const bool verbose_;
    SQLConnection* connection = nullptr; // owned; null when no database is used
    String driver_;                      // the driver the connection string names
    bool tables_ = true;                 // the catalogue has its tables (a dry run leaves an empty one empty)
    String currentDir;                   // the directory of the last STOR_DIR row written; empty after a rollback
    int32_t dirId = 0;                   // the last ids handed out; 0: not yet read from the database
    int64_t fileId = 0;
    bool reload_ = false; // read the largest stored ids again
    int32_t skipIds_ = 0; // and start this many past them
};

} // namespace ZELd
