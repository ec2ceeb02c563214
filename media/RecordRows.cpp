#define ZEL_SOURCE "media/RecordRows"
#include "media/RecordRows.h"

#include <cstddef>
#include <cstdint>

#include "media/Catalogue.h"
#include "media/FileInfo.h"
#include "media/FileReport.h"
#include "zel/DateTime.h"
#include "zel/SQL.h"

namespace ZELd {

namespace {

// Binary frame data longer than this is not stored.
constexpr size_t kMaxStoredBinary = 100;

void text(SQLParam* p, const String& value) { p->setValue(value, SQL::Text); }

void textOrNull(SQLParam* p, const String& value)
{
    if (value.isEmpty()) p->setNull();
    else p->setValue(value, SQL::Text);
}

void time(SQLParam* p, const DateTime& value) { p->setValue(value, SQL::TimestampWithoutZone); }

const wchar_t* const kInsertDir = L"INSERT INTO STOR_DIR (DIR_ID, PATH, CREA_TS, MODI_TS)\nVALUES (:DIR_ID, :PATH, :CREA_TS, :MODI_TS)";
// Its parameters, bound by position.
enum DirParam : size_t { kDirIdAt, kPathAt, kCreatedAt, kModifiedAt };

void insertDir(SQLConnection* connection, int32_t dirId, const String& dir, const DateTime& now)
{
    SQLQuery q(connection);
    q.prepare(kInsertDir);
    SQLParams& p = q.params();
    p[kDirIdAt].setValue(dirId);
    text(&p[kPathAt], dir);
    time(&p[kCreatedAt], now);
    time(&p[kModifiedAt], now);
    q.execute();
}

const wchar_t* const kInsertFile =
    L"INSERT INTO STOR_FILE (FILE_ID, NAME, USER_ID, STOR_ID, TYPE_ID, DIR_ID, FILE_NM, FILE_SZ, FILE_AT, FILE_MT, FILE_CT, FILE_ER, "
    L"MEDI_FM, MEDI_WI, MEDI_HE, MEDI_DU, MEDI_NF, READ_CO, CREA_TS, MODI_TS)\nVALUES (:FILE_ID, :NAME, 0, 0, 0, :DIR_ID, :FILE_NM, "
    L":FILE_SZ, :FILE_AT, :FILE_MT, :FILE_CT, :FILE_ER, :MEDI_FM, :MEDI_WI, :MEDI_HE, :MEDI_DU, :MEDI_NF, 0, :CREA_TS, :MODI_TS)";

void insertFile(SQLConnection* connection, int64_t fileId, int32_t dirId, const FileInfo& file, const DateTime& now)
{
    SQLQuery q(connection);
    q.prepare(kInsertFile);
    SQLParams& p = q.params();
    p.byName(L"FILE_ID")->setValue(static_cast<long long>(fileId));
    text(p.byName(L"NAME"), file.name);
    p.byName(L"DIR_ID")->setValue(dirId);
    text(p.byName(L"FILE_NM"), file.name);
    p.byName(L"FILE_SZ")->setValue(static_cast<unsigned long long>(file.size));
    time(p.byName(L"FILE_AT"), file.atime);
    time(p.byName(L"FILE_MT"), file.mtime);
    time(p.byName(L"FILE_CT"), file.ctime);
    text(p.byName(L"FILE_ER"), file.notes);
    text(p.byName(L"MEDI_FM"), file.media.format);
    p.byName(L"MEDI_WI")->setValue(static_cast<unsigned int>(file.media.width));
    p.byName(L"MEDI_HE")->setValue(static_cast<unsigned int>(file.media.height));
    p.byName(L"MEDI_DU")->setValue(static_cast<unsigned int>(file.media.duration));
    text(p.byName(L"MEDI_NF"), file.media.inform);
    time(p.byName(L"CREA_TS"), now);
    time(p.byName(L"MODI_TS"), now);
    q.execute();
}

const wchar_t* const kInsertID3v1 = L"INSERT INTO ID3V1 (FILE_ID, TITLE, ARTIST, ALBUM, YEAR_, COMMENT_, TRACK, GENRE)\nVALUES (:FILE_ID, "
                                    L":TITLE, :ARTIST, :ALBUM, :YEAR_, :COMMENT_, :TRACK, :GENRE)";

void insertID3v1(SQLConnection* connection, int64_t fileId, const ID3v1& tag)
{
    SQLQuery q(connection);
    q.prepare(kInsertID3v1);
    SQLParams& p = q.params();
    p.byName(L"FILE_ID")->setValue(static_cast<long long>(fileId));
    text(p.byName(L"TITLE"), tag.title());
    textOrNull(p.byName(L"ARTIST"), tag.artist());
    textOrNull(p.byName(L"ALBUM"), tag.album());
    textOrNull(p.byName(L"YEAR_"), tag.year());
    textOrNull(p.byName(L"COMMENT_"), tag.comment());
    p.byName(L"TRACK")->setValue(static_cast<int>(tag.track()));
    p.byName(L"GENRE")->setValue(static_cast<int>(tag.genre()));
    q.execute();
}

const wchar_t* const kInsertID3v2 =
    L"INSERT INTO ID3V2 (FILE_ID, VERSION, FLAGS, SIZE_, FSBITS)\nVALUES (:FILE_ID, :VERSION, :FLAGS, :SIZE_, :FSBITS)";
const wchar_t* const kInsertFrame =
    L"INSERT INTO ID3V2_FRAME (FILE_ID, NO_, FRAME_ID, SIZE_, FLAGS, ENCODING, TYPE_, URL, DESCRIPTION, TEXT_, BINARY_)\nVALUES "
    L"(:FILE_ID, :NO_, :FRAME_ID, :SIZE_, :FLAGS, :ENCODING, :TYPE_, :URL, :DESCRIPTION, :TEXT_, :BINARY_)";

// Sets every parameter of a frame row, null included, so that nothing of the
// frame before carries over.
void bindFrame(SQLParams& p, int64_t fileId, int number, const ID3v2Frame& frame)
{
    p.byName(L"FILE_ID")->setValue(static_cast<long long>(fileId));
    p.byName(L"NO_")->setValue(number);
    text(p.byName(L"FRAME_ID"), frame.id());
    p.byName(L"SIZE_")->setValue(static_cast<unsigned int>(frame.size()));
    p.byName(L"FLAGS")->setValue(static_cast<short>(frame.flags()));
    p.byName(L"ENCODING")->setValue(static_cast<int>(frame.encoding()));
    p.byName(L"TYPE_")->setValue(static_cast<int>(frame.type()));
    textOrNull(p.byName(L"URL"), frame.url());
    textOrNull(p.byName(L"DESCRIPTION"), frame.description());
    textOrNull(p.byName(L"TEXT_"), frame.text());
    const size_t bytes = frame.binary().length();
    if (bytes >= 1 && bytes <= kMaxStoredBinary) p.byName(L"BINARY_")->setValue(frame.binary(), SQL::Bytes);
    else p.byName(L"BINARY_")->setNull();
}

void insertID3v2(SQLConnection* connection, int64_t fileId, const ID3v2& tag)
{
    SQLQuery q(connection);
    q.prepare(kInsertID3v2);
    SQLParams& p = q.params();
    p.byName(L"FILE_ID")->setValue(static_cast<long long>(fileId));
    p.byName(L"VERSION")->setValue(static_cast<int>(tag.version()));
    p.byName(L"FLAGS")->setValue(static_cast<int>(tag.flags()));
    p.byName(L"SIZE_")->setValue(static_cast<unsigned int>(tag.size()));
    p.byName(L"FSBITS")->setValue(static_cast<unsigned int>(tag.fsbits()));
    q.execute();
    q.prepare(kInsertFrame);
    const PointerArray<ID3v2Frame>& frames = tag.frames();
    for (size_t i = 0; i < frames.size(); ++i) {
        bindFrame(q.params(), fileId, static_cast<int>(i + 1), *frames[i]);
        q.execute();
    }
}

const wchar_t* const kInsertApe =
    L"INSERT INTO APE (FILE_ID, VERSION, SIZE_, COUNT_, FLAGS)\nVALUES (:FILE_ID, :VERSION, :SIZE_, :COUNT_, :FLAGS)";
const wchar_t* const kInsertItem =
    L"INSERT INTO APE_ITEM (FILE_ID, NO_, SIZE_, FLAGS, KEY_, VALUE_)\nVALUES (:FILE_ID, :NO_, :SIZE_, :FLAGS, :KEY_, :VALUE_)";

// Sets every parameter of an item row, null included.
void bindItem(SQLParams& p, int64_t fileId, int number, const APEv2Item& item)
{
    p.byName(L"FILE_ID")->setValue(static_cast<long long>(fileId));
    p.byName(L"NO_")->setValue(number);
    p.byName(L"SIZE_")->setValue(static_cast<unsigned int>(item.size()));
    p.byName(L"FLAGS")->setValue(static_cast<int>(item.flags()));
    text(p.byName(L"KEY_"), item.key());
    textOrNull(p.byName(L"VALUE_"), item.value());
}

void insertApe(SQLConnection* connection, int64_t fileId, const APEv2& tag)
{
    SQLQuery q(connection);
    q.prepare(kInsertApe);
    SQLParams& p = q.params();
    p.byName(L"FILE_ID")->setValue(static_cast<long long>(fileId));
    p.byName(L"VERSION")->setValue(static_cast<unsigned int>(tag.version()));
    p.byName(L"SIZE_")->setValue(static_cast<unsigned int>(tag.size()));
    p.byName(L"COUNT_")->setValue(static_cast<unsigned int>(tag.count()));
    p.byName(L"FLAGS")->setValue(static_cast<int>(tag.flags()));
    q.execute();
    q.prepare(kInsertItem);
    const PointerArray<APEv2Item>& items = tag.items();
    for (size_t i = 0; i < items.size(); ++i) {
        bindItem(q.params(), fileId, static_cast<int>(i + 1), *items[i]);
        q.execute();
    }
}

const wchar_t* const kInsertProperty =
    L"INSERT INTO TAG_PROPERTY (FILE_ID, NO_, SOURCE_, KEY_, VALUE_)\nVALUES (:FILE_ID, :NO_, :SOURCE_, :KEY_, :VALUE_)";
// Keys longer than this are stored cut to it: every database indexes them whole.
constexpr size_t kMaxStoredKey = 200;

// The rows numbered from 1 in the order of the record.
void insertProperties(SQLConnection* connection, int64_t fileId, const TagProperties& properties)
{
    SQLQuery q(connection);
    q.prepare(kInsertProperty);
    SQLParams& p = q.params();
    for (size_t i = 0; i < properties.size(); ++i) {
        const TagProperty& property = properties[i];
        p.byName(L"FILE_ID")->setValue(static_cast<long long>(fileId));
        p.byName(L"NO_")->setValue(static_cast<int>(i + 1));
        text(p.byName(L"SOURCE_"), property.source);
        text(p.byName(L"KEY_"), property.key.length() > kMaxStoredKey ? property.key.substring(0, kMaxStoredKey) : property.key);
        text(p.byName(L"VALUE_"), property.value);
        q.execute();
    }
}

} // namespace

void insertRecord(Catalogue& catalogue, const FileInfo& file, const FileReport& report)
{
    SQLConnection* connection = catalogue.sql();
    const DateTime now = DateTime::getCurrentLocalTime();
    // Each line follows its row out.
    if (file.dir != catalogue.currentDirectory()) {
        const int32_t dirId = catalogue.takeDirId(file.dir);
        insertDir(connection, dirId, file.dir, now);
        report.dirRow(dirId, file.dir);
    }
    const int64_t fileId = catalogue.takeFileId();
    insertFile(connection, fileId, catalogue.currentDirId(), file, now);
    report.fileRow(fileId, file.name);
    if (file.id3v1.version() > 0) {
        if (file.id3v1.title().isEmpty()) { // a tag without a title is no row
            report.untitled(file);
        } else {
            insertID3v1(connection, fileId, file.id3v1);
            report.id3v1Row();
        }
    }
    if (file.id3v2.version() > 0) {
        insertID3v2(connection, fileId, file.id3v2);
        report.id3v2Rows(file.id3v2.frames().size());
    }
    if (file.ape.version() != 0) {
        insertApe(connection, fileId, file.ape);
        report.apeRows(file.ape.items().size());
    }
    if (catalogue.storesProperties() && !file.properties.empty()) {
        insertProperties(connection, fileId, file.properties);
        report.propertyRows(file.properties.size());
    }
}

} // namespace ZELd
