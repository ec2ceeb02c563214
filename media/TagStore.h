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

#include "media/FileInfo.h"
#include "zel/DateTime.h"
#include "zel/String.h"

namespace ZELd {

class Exception;
class SQLConnection;
class Writer;

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
    bool connect(const String& database);
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
    void persist(const FileInfo& file);

private:
    // The file's rows and their trace lines, in the open transaction.
    void writeRows(const FileInfo& file);
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
    String currentDir;                   // the directory of the last STOR_DIR row written; empty after a rollback
    int32_t dirId = 0;                   // the last ids handed out; 0: not yet read from the database
    int64_t fileId = 0;
    bool reload_ = false; // read the largest stored ids again
    int32_t skipIds_ = 0; // and start this many past them
};

} // namespace ZELd
