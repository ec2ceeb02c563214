// The storing side of the tag reader: the run's one database connection, the
// directory of the last directory row, the last ids handed out, and one
// insert per table. The tag reader drives it a file at a time: begin, the
// file's rows, commit; or rollback when a row fails.
//
// Ids: the first file stored reads the largest stored ids (loadIds); from then
// on insertDir and insertFile hand out the next ones from memory, and a failed
// file's ids are never handed out again. When another run storing into the
// same catalogue has taken them, reloadIds makes the next loadIds read the
// largest stored ids again and start that many ids past them; a run's own
// ids only grow. This is the one place
// ids are loaded and advanced.
#pragma once

#include <cstdint>

#include "media/FileInfo.h"
#include "zel/DateTime.h"
#include "zel/String.h"

namespace ZELd {

class SQLConnection;

class TagStore {
public:
    TagStore() = default;
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

    void begin();
    void commit();
    // The file's directory row goes with its other rows, so the next file
    // writes its directory row again.
    void rollback();

    // Reads the largest stored ids, the first time and after reloadIds.
    void loadIds();
    void reloadIds(int32_t skip)
    {
        reload = true;
        skipIds = skip;
    }
    bool isCurrentDir(const String& dir) const { return dir == currentDir; }

    // One row each, inside the open transaction; each prepares its
    // statements once. insertDir makes dir the current directory under the
    // next directory id and returns it; insertFile hands out the next file id
    // and returns it; the tag rows go under the last file id.
    int32_t insertDir(const String& dir, const DateTime& now);
    int64_t insertFile(const FileInfo& file, const DateTime& now);
    void insertID3v1(const ID3v1& tag);
    void insertID3v2(const ID3v2& tag); // the ID3V2 row and one ID3V2_FRAME row per frame
    void insertApe(const APEv2& tag);   // the APE row and one APE_ITEM row per item

private:
    SQLConnection* connection = nullptr; // owned; null when no database is used
    String currentDir;                   // the directory of the last STOR_DIR row written; empty after a rollback
    int32_t dirId = 0;                   // the last ids handed out; 0: not yet read from the database
    int64_t fileId = 0;
    bool reload = false;                 // read the largest stored ids again
    int32_t skipIds = 0;                 // and start this many past them
};

} // namespace ZELd
