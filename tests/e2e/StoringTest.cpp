// Storing: every table of every engine holds what the report shows; ids,
// --dry-run, a file that fails in the middle of its rows, runs at once, and
// the databases and drivers that cannot be used.
#define ZEL_SOURCE "tests/e2e/StoringTest"
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <map>
#include <memory>

#include "media/Catalogue.h"
#include "media/FileInfo.h"
#include "media/FileReport.h"
#include "media/RecordRows.h"
#include "support/Catalogue.h"
#include "support/FormatSamples.h"
#include "zel/Writer.h"

using namespace testsupport;
using namespace std::string_literals;

namespace {

// Keys in any letter case, and blanks around keys and values where the
// program reads the string itself (the ODBC driver manager takes none).
std::string loosely(const std::string& database, bool blanks)
{
    const std::string blank = blanks ? " " : "";
    std::string s;
    bool inKey = true;
    for (const char c : database) {
        if (c == ';') s += blank + ";" + blank, inKey = true;
        else if (c == '=' && inKey) s += blank + "=" + blank, inKey = false;
        else s += inKey ? static_cast<char>(std::tolower(static_cast<unsigned char>(c))) : c;
    }
    return s + blank;
}

// Names that are not ASCII (this directory, and d-nötes.txt, probed ahead
// while the file before it is stored): the programs run without a locale,
// and a driver's client library may set the process's locale when it
// connects (psqlODBC does), yet the media facts of the files are read.
const std::string kSub = "b-s\u00FCb \u65E5\u672C/";

class Storing : public ::testing::TestWithParam<std::string> {
protected:
    void SetUp() override
    {
        database = catalogue.database();
        if (database.empty()) GTEST_SKIP() << catalogue.unreachable();
        const std::string audio = readFile(dataFile("sine-1s.mp3"));
        for (int i = 0; i < 25; ++i)
            picture += std::string("\0\x01\xFE\xFF", 4), pictureHex += "0001FEFF"; // zeros too: bound as bytes, not text
        const std::vector<Frame> frames = {
            {"TIT2", textBody("It's \"quoted\"; here")},
            {"TXXX", std::string("\0inject\0", 8) + injection},
            {"COMM", std::string("\0eng\0a;b;c", 10)},
            {"APIC", std::string("\0image/png\0\x03\0", 13) + picture},
            {"PRIV", std::string("owner\0", 6) + std::string(101, '\xFF')},
            {"TPE1", "\x01\xff\xfe"s + "C\0a\0f\0\xe9\0"s},
            {"TALB", textBody("Album 🎵 日本語", 3), 0x8000}, // UTF-8 of four and of three bytes
        };
        a1Tag = id3v2(3, frames, 32);
        for (int i = 0; i < 5000; ++i) song += "🎵日本語"; // 65 KB: more than one piece for clients that pass text in pieces
        a1Ape = ape(2000, {{"Title", song}, {"Cover", std::string("\x01\x02", 2), 2}, {"Link", "http://x", 4}}, true);
        s1Tag = id3v2(4, {{"TIT2", textBody("Sub 日本語 🎵", 3)}}, 0, 0x80); // three- and four-byte UTF-8
        s1Ape = ape(1000, {{"Title", "Ape1"}}, false);
        write("a1.mp3", a1Tag + audio + a1Ape + id3v1("Alpha", "", "", "", "", 7, 255));
        write(kSub + "s1.mp3", s1Tag + audio + s1Ape + id3v1(""));
        write("c2.mp3", audio + id3v1("Charlie", "Artist", "Album", "1999", "note", 3, 17));
        write("d-n\u00F6tes.txt", "just text\n");
        tree.make("e-fifo.mp3", "", 'p');
    }

    void write(const std::string& name, const std::string& bytes)
    {
        tree.file(name, bytes);
        sizes[name] = bytes.size();
    }

    Result store(std::vector<std::string> extra = {})
    {
        extra.insert(extra.begin(), "--database=" + database);
        extra.push_back(top);
        return sonarcat(extra);
    }

    Catalogue catalogue{GetParam()};
    std::string database;
    TempDir dir;
    Tree tree{dir / "A"};
    const std::string top = tree.root(), injection = "'); DROP TABLE STOR_FILE; --";
    std::string picture, pictureHex, a1Tag, a1Ape, s1Tag, s1Ape, song = "Song ";
    std::map<std::string, size_t> sizes;
};

TEST_P(Storing, EveryTableHoldsWhatTheReportShows)
{
    database = loosely(database, catalogue.engine().driver != "ZELODBC");
    auto r = store({"--verbose"});
    ASSERT_EQ(r.status, 0) << r.err;
    const std::string a = top + "/", s = top + "/" + kSub;
    EXPECT_TRUE(has(r.err, "Title is NULL TAG Title[] Artist[] Album[] Year[] Comment[] Track[0] Genre[0] [" + s + "s1.mp3]\n")) << r.err;

    EXPECT_EQ(catalogue.rows("SELECT DIR_ID, PATH FROM STOR_DIR ORDER BY DIR_ID"),
              (std::vector<Row>{{"1001", a}, {"1002", s}, {"1003", a}}));
    auto size = [&](const std::string& name) { return std::to_string(sizes[name]); };
    EXPECT_EQ(catalogue.rows("SELECT FILE_ID, NAME, FILE_NM, DIR_ID, FILE_SZ, FILE_ER, MEDI_FM, MEDI_WI, MEDI_HE, MEDI_DU, "
                             "USER_ID + STOR_ID + TYPE_ID + READ_CO FROM STOR_FILE ORDER BY FILE_ID"),
              (std::vector<Row>{
                  {"10001", "a1.mp3", "a1.mp3", "1001", size("a1.mp3"), "", "MPEG Audio", "0", "0", "1", "0"},
                  {"10002", "s1.mp3", "s1.mp3", "1002", size(kSub + "s1.mp3"), "", "MPEG Audio", "0", "0", "1", "0"},
                  {"10003", "c2.mp3", "c2.mp3", "1003", size("c2.mp3"), "", "MPEG Audio", "0", "0", "1", "0"},
                  {"10004", "d-n\u00F6tes.txt", "d-n\u00F6tes.txt", "1003", size("d-n\u00F6tes.txt"), "", "", "0", "0", "0", "0"},
                  {"10005", "e-fifo.mp3", "e-fifo.mp3", "1003", "0", "Open Failed: not a regular file [" + a + "e-fifo.mp3]", "", "0", "0",
                   "0", "0"},
              }));
    // The media report and the modification time are stored as the report shows them.
    auto a1 =
        catalogue.rows("SELECT MEDI_NF, " + catalogue.fill(catalogue.engine().time, "FILE_MT") + " FROM STOR_FILE WHERE FILE_ID = 10001");
    ASSERT_EQ(a1.size(), 1u);
    EXPECT_EQ(a1[0][0].rfind("General\nFormat: MPEG Audio\n", 0), 0u) << a1[0][0];
    EXPECT_TRUE(has(r.out, "-\n" + a1[0][0] + "\n")) << "report text differs from MEDI_NF";
    EXPECT_TRUE(has(r.out, "FILE[a1.mp3]\n    tags[321] size[" + size("a1.mp3") + "] mtime[" + a1[0][1] + "]"));

    EXPECT_EQ(catalogue.rows("SELECT FILE_ID, TITLE, ARTIST, ALBUM, YEAR_, COMMENT_, TRACK, GENRE FROM ID3V1 ORDER BY FILE_ID"),
              (std::vector<Row>{{"10001", "Alpha", kNull, kNull, kNull, kNull, "7", "-1"},
                                {"10003", "Charlie", "Artist", "Album", "1999", "note", "3", "17"}}));
    EXPECT_EQ(catalogue.rows("SELECT FILE_ID, VERSION, FLAGS, SIZE_, FSBITS FROM ID3V2 ORDER BY FILE_ID"),
              (std::vector<Row>{{"10001", "3", "0", std::to_string(a1Tag.size() - 10), "8"},
                                {"10002", "4", "-128", std::to_string(s1Tag.size() - 10), "8"}}));
    EXPECT_EQ(catalogue.rows("SELECT FILE_ID, NO_, FRAME_ID, SIZE_, FLAGS, ENCODING, TYPE_, URL, DESCRIPTION, TEXT_, " +
                             catalogue.fill(catalogue.engine().hex, "BINARY_") + " FROM ID3V2_FRAME ORDER BY FILE_ID, NO_"),
              (std::vector<Row>{
                  {"10001", "1", "TIT2", "20", "0", "0", "0", kNull, kNull, "It's \"quoted\"; here", kNull},
                  {"10001", "2", "TXXX", "36", "0", "0", "0", kNull, "inject", injection, kNull},
                  {"10001", "3", "COMM", "10", "0", "0", "0", "eng", kNull, "a;b;c", kNull},
                  {"10001", "4", "APIC", "113", "0", "0", "3", "image/png", kNull, kNull, pictureHex},
                  {"10001", "5", "PRIV", "107", "0", "0", "0", "owner", kNull, kNull, kNull},
                  {"10001", "6", "TPE1", "11", "0", "1", "0", kNull, kNull, "Café", kNull},
                  {"10001", "7", "TALB", "21", "-32768", "3", "0", kNull, kNull, "Album 🎵 日本語", kNull},
                  {"10002", "1", "TIT2", "19", "0", "3", "0", kNull, kNull, "Sub 日本語 🎵", kNull},
              }));
    EXPECT_EQ(catalogue.rows("SELECT FILE_ID, VERSION, SIZE_, COUNT_, FLAGS FROM APE ORDER BY FILE_ID"),
              (std::vector<Row>{{"10001", "2000", std::to_string(a1Ape.size() - 32), "3", "-2147483648"},
                                {"10002", "1000", std::to_string(s1Ape.size()), "1", "0"}}));
    EXPECT_EQ(catalogue.rows("SELECT FILE_ID, NO_, SIZE_, FLAGS, KEY_, VALUE_ FROM APE_ITEM ORDER BY FILE_ID, NO_"),
              (std::vector<Row>{{"10001", "1", std::to_string(song.size()), "0", "Title", song},
                                {"10001", "2", "2", "2", "Cover", ".."},
                                {"10001", "3", "8", "4", "Link", kNull},
                                {"10002", "1", "4", "0", "Title", "Ape1"}}));
    // The verbose traces follow the rows out.
    EXPECT_TRUE(
        has(r.out, "    INSERT STOR_FILE [10001][a1.mp3]\n    INSERT ID3V1\n    INSERT ID3V2 ID3V2_FRAME[7]\n    INSERT APE APE_ITEM[3]\n"))
        << r.out;
}

TEST_P(Storing, AFailedFileLeavesNoRowAndTheWalkGoesOn)
{
    // a0-bad.mp3 comes first; its second frame is rejected by the database.
    write("a0-bad.mp3", id3v2(3, {{"TIT2", textBody("Bad")}, {"TBAD", textBody("x")}, {"TPE1", textBody("y")}}) +
                            readFile(dataFile("sine-1s.mp3")) + ape(2000, {{"Title", "Bad"}}, true) + id3v1("Bad"));
    for (const std::string& sql : catalogue.engine().rejectFrame) catalogue.rows(catalogue.fill(sql, "TBAD"));
    auto r = store();
    EXPECT_TRUE(has(r.err, "frame rejected")) << r.err;
    for (const char* table : {"STOR_FILE", "ID3V1", "ID3V2", "ID3V2_FRAME", "APE", "APE_ITEM"})
        EXPECT_EQ(catalogue.rows(std::string("SELECT COUNT(*) FROM ") + table + " WHERE FILE_ID = 10001"), (std::vector<Row>{{"0"}}))
            << table;
    // The next file of the same directory writes its directory row again.
    const std::string a = top + "/";
    EXPECT_EQ(catalogue.rows("SELECT DIR_ID, PATH FROM STOR_DIR ORDER BY DIR_ID"),
              (std::vector<Row>{{"1002", a}, {"1003", a + kSub}, {"1004", a}}));
    EXPECT_EQ(catalogue.rows("SELECT FILE_ID, DIR_ID FROM STOR_FILE ORDER BY FILE_ID"),
              (std::vector<Row>{{"10002", "1002"}, {"10003", "1003"}, {"10004", "1004"}, {"10005", "1004"}, {"10006", "1004"}}));
    EXPECT_EQ(catalogue.rows("SELECT COUNT(*) FROM ID3V2_FRAME"), (std::vector<Row>{{"8"}}));
}

// The catalogue's files by path, each with its file row and the rows of its
// tags, in one order whatever the ids: what two catalogues of one tree share.
std::vector<Row> filesByPath(const Catalogue& catalogue)
{
    const std::string file = " JOIN STOR_FILE f ON f.FILE_ID = t.FILE_ID JOIN STOR_DIR d ON d.DIR_ID = f.DIR_ID";
    std::vector<Row> all;
    for (const std::string& query :
         {"SELECT d.PATH, f.NAME, f.FILE_SZ, " + catalogue.fill(catalogue.engine().time, "f.FILE_MT") +
              ", f.FILE_ER, f.MEDI_FM, f.MEDI_DU, f.MEDI_NF FROM STOR_FILE t" + file,
          "SELECT d.PATH, f.NAME, t.TITLE, t.TRACK FROM ID3V1 t" + file, "SELECT d.PATH, f.NAME, t.VERSION, t.SIZE_ FROM ID3V2 t" + file,
          "SELECT d.PATH, f.NAME, t.NO_, t.FRAME_ID, t.TEXT_ FROM ID3V2_FRAME t" + file,
          "SELECT d.PATH, f.NAME, t.VERSION, t.SIZE_ FROM APE t" + file,
          "SELECT d.PATH, f.NAME, t.NO_, t.KEY_, t.VALUE_ FROM APE_ITEM t" + file})
        for (Row& row : catalogue.rows(query)) all.push_back(std::move(row));
    std::sort(all.begin(), all.end());
    return all;
}

// A dry run connects and writes nothing; each run after it continues from the
// stored ids. --update: a file that plain runs stored twice ends as one record;
// an update of what did not change writes nothing and reports nothing; new,
// changed (in size, in time alone) and removed files and a directory that is
// gone leave what a fresh run of the tree stores, and no row without its file
// or directory; a dry update only counts.
TEST_P(Storing, DryRunsRunsAndUpdatesLeaveWhatAFreshRunStores)
{
    database = loosely(database, catalogue.engine().driver != "ZELODBC");
    Result r = store({"--dry-run"});
    EXPECT_TRUE(has(r.out, "Database connected. [") && has(r.out, "FILE[a1.mp3]") && !has(r.out, "INSERT")) << r.out;
    EXPECT_EQ(catalogue.count("STOR_FILE") + catalogue.count("STOR_DIR"), "00");
    store();
    r = store();
    EXPECT_TRUE(has(r.out, "    INSERT STOR_DIR [1004][" + top + "/]\n    INSERT STOR_FILE [10006][a1.mp3]\n")) << r.out;
    EXPECT_EQ(catalogue.rows("SELECT COUNT(*), MIN(FILE_ID), MAX(FILE_ID) FROM STOR_FILE"), (std::vector<Row>{{"10", "10001", "10010"}}));
    EXPECT_EQ(catalogue.rows("SELECT MAX(DIR_ID) FROM STOR_DIR"), (std::vector<Row>{{"1006"}}));
    EXPECT_TRUE(has(store({"--update"}).out, "\nUpdate: new[0] changed[5] unchanged[0] removed[0]\n"));
    r = store({"--update", "--verbose"});
    EXPECT_TRUE(has(r.out, "\nUpdate: new[0] changed[0] unchanged[5] removed[0]\n")) << r.out;
    EXPECT_FALSE(has(r.out, "FILE[")) << "an unchanged file is neither read nor reported";
    write("c2.mp3", readFile(tree / "c2.mp3") + "more");
    std::filesystem::last_write_time(tree / "a1.mp3", std::filesystem::last_write_time(tree / "a1.mp3") - std::chrono::hours(48));
    write("b0-new.mp3", readFile(dataFile("sine-1s.mp3")));
    std::filesystem::remove(tree / "d-n\u00F6tes.txt");
    std::filesystem::remove_all(tree / kSub);
    const std::string counts = "\nUpdate: new[1] changed[2] unchanged[1] removed[2]\n";
    EXPECT_TRUE(has(store({"--update", "--dry-run"}).out, counts));
    EXPECT_EQ(catalogue.count("STOR_FILE"), "5") << "a dry update writes nothing";
    EXPECT_TRUE(has(store({"--update"}).out, counts));
    Catalogue fresh(GetParam(), Catalogue::Empty); // the first run makes the tables
    EXPECT_TRUE(has(sonarcat({"--database=" + fresh.database(), top}).out, "\nTables made. ["));
    EXPECT_EQ(filesByPath(catalogue), filesByPath(fresh));
    EXPECT_EQ(catalogue.rows("SELECT COUNT(*) FROM STOR_DIR d WHERE NOT EXISTS (SELECT * FROM STOR_FILE f WHERE f.DIR_ID = d.DIR_ID)"),
              std::vector<Row>{{"0"}});
    // The updates left gaps below the largest ids: a plain run continues from those, not from a count of the rows.
    const Row last = catalogue.rows("SELECT (SELECT MAX(DIR_ID) FROM STOR_DIR), MAX(FILE_ID), COUNT(*) FROM STOR_FILE").at(0);
    ASSERT_LT(std::stoll(last[2]), std::stoll(last[1]) - 10000) << "no gap";
    EXPECT_TRUE(has(store().out, "    INSERT STOR_DIR [" + std::to_string(std::stoll(last[0]) + 1) + "][" + top +
                                     "/]\n    INSERT STOR_FILE [" + std::to_string(std::stoll(last[1]) + 1) + "][a1.mp3]\n"));
}

// Four runs started together on a catalogue without tables over four disjoint
// trees: one of them makes the tables, and every run stores every file of its
// tree once, whole, without an error line, its ids growing in its walk order
// (long runs: 500 files a tree, ten times over).
TEST_P(Storing, ScaledFourRunsAtOnceStoreEveryFileOnce)
{
    const Catalogue shared(GetParam(), Catalogue::Empty);
    const size_t files = longRun() ? 500 : 40, rounds = longRun() ? 10 : 1;
    const std::string bytes = id3v2(3, {{"TIT2", textBody("Shared")}}) + readFile(dataFile("sine-1s.mp3")) +
                              ape(2000, {{"Title", "Shared"}}, true) + id3v1("Shared");
    std::vector<std::string> walkOrder[4];
    for (int k = 0; k < 4; ++k) {
        const Tree scanned(dir / ("disk" + std::to_string(k)));
        for (size_t i = 0; i < files; ++i) {
            const std::string name = std::to_string(i % 3) + "/f" + std::to_string(1000 + i) + ".mp3"; // three directories
            walkOrder[k].push_back(i == 0 ? scanned.file(name, bytes) : scanned.make(name, walkOrder[k][0], 'h'));
        }
        std::sort(walkOrder[k].begin(), walkOrder[k].end());
    }
    for (size_t round = 1; round <= rounds && !HasFailure(); ++round) {
        std::vector<std::unique_ptr<Program>> runs;
        for (int k = 0; k < 4; ++k)
            runs.push_back(std::make_unique<Program>(
                std::vector<std::string>{SONARCAT_BINARY, "--database=" + shared.database(), dir / ("disk" + std::to_string(k))}));
        size_t made = 0;
        for (auto& run : runs) {
            const Result r = run->finish(600);
            EXPECT_EQ(r.err, "");
            made += occurrences(r.out, "\nTables made. [");
        }
        EXPECT_EQ(made, round == 1 ? 1u : 0u) << "the runs made the tables that often";
        std::map<std::string, std::vector<long long>> ids; // a path's file ids in id order
        for (const Row& r :
             shared.rows("SELECT d.PATH, f.NAME, f.FILE_ID FROM STOR_FILE f JOIN STOR_DIR d ON d.DIR_ID = f.DIR_ID ORDER BY f.FILE_ID"))
            ids[r[0] + r[1]].push_back(std::stoll(r[2]));
        for (const std::vector<std::string>& order : walkOrder)
            for (size_t i = 0; i < order.size(); ++i) {
                ASSERT_EQ(ids[order[i]].size(), round) << order[i] << " is not stored once in each round";
                EXPECT_TRUE(i == 0 || ids[order[i - 1]].back() < ids[order[i]].back()) << order[i] << ": a run's ids go back";
            }
        for (const char* table : {"ID3V1", "ID3V2", "ID3V2_FRAME", "APE", "APE_ITEM"})
            EXPECT_EQ(shared.count(table), std::to_string(4 * files * round)) << table;
    }
    // Four updates at once leave every file with one record.
    std::vector<std::unique_ptr<Program>> updates;
    for (int k = 0; k < 4; ++k)
        updates.push_back(std::make_unique<Program>(
            std::vector<std::string>{SONARCAT_BINARY, "--update", "--database=" + shared.database(), dir / ("disk" + std::to_string(k))}));
    for (auto& update : updates) EXPECT_FALSE(has(update->finish(600).err, "Exception"));
    for (const char* table : {"STOR_FILE", "ID3V1", "ID3V2", "ID3V2_FRAME", "APE", "APE_ITEM"})
        EXPECT_EQ(shared.count(table), std::to_string(4 * files)) << table;
}

const std::string kTrack = "SELECT FILE_ID, PATH, FORMAT, DURATION, TITLE, ARTIST, ALBUMARTIST, ALBUM, TRACKNUMBER, DISCNUMBER, DATE_, "
                           "GENRE, COMPOSER FROM TRACK ORDER BY FILE_ID";

struct Text : ZELd::Writer {
    void write(const wchar_t* s, size_t n) override { text.append(s, n); }
    void flush() override {}
    std::wstring text;
};

// Records stored as a run stores them (its catalogue, rows and verbose
// report), in this process, with the properties that a test gives them.
struct RecordStore {
    RecordStore(const std::string& database, bool allFormats)
    {
        catalogue.connect(ZELd::fromNativePath(database.c_str()), false);
        catalogue.prepareTables(false, allFormats);
    }
    // fail: the file's transaction fails after its rows.
    void store(const ZELd::String& dir, const ZELd::String& name, const ZELd::TagProperties& properties, bool fail = false)
    {
        ZELd::FileInfo info(dir, name);
        info.media.format = L"FLAC";
        info.media.duration = 7;
        info.properties = properties;
        catalogue.inTransaction([&] {
            ZELd::insertRecord(catalogue, info, report);
            if (fail) throw ZEL_NEW ZELd::IOException(name, L"Refused");
        });
    }
    Text out, err;
    ZELd::Catalogue catalogue{err, out};
    ZELd::FileReport report{out, err, true};
};

// With --all-formats a file's properties are its TAG_PROPERTY rows, numbered
// in their order, keys cut to 200 characters, values whole, in the file's one
// transaction; TRACK gives each file its path, format, play time and the
// first value of each key, NULL where none. A run without the option stores
// none, but deletes them with their file.
TEST_P(Storing, PropertiesAndTheTrackViewHoldWhatWasStored)
{
    const std::string key(250, 'K');
    ZELd::TagProperties properties;
    std::vector<Row> rows; // a value is its key and number
    for (const char* k : {"TITLE", "ARTIST", "ARTIST", "ALBUMARTIST", "ALBUM", "TRACKNUMBER", "DISCNUMBER", "DATE", "GENRE", "COMPOSER"}) {
        rows.push_back({"10001", std::to_string(rows.size() + 1), "Xiph", k, k + ("-" + std::to_string(rows.size() + 1))});
        properties.push_back({L"Xiph", ZELd::fromNativePath(k), ZELd::fromNativePath(rows.back()[4].c_str())});
    }
    properties.push_back({L"APE", ZELd::fromNativePath(key.c_str()), ZELd::fromNativePath(song.c_str())});
    rows.push_back({"10001", "11", "APE", key.substr(0, 200), song});
    RecordStore allFormats(database, true), plain(database, false);
    const ZELd::String dir = ZELd::fromNativePath((top + "/").c_str());
    allFormats.store(dir, L"t1.flac", properties);
    allFormats.store(dir, L"t2.flac", properties, true);
    allFormats.store(dir, L"t3.flac", {});
    plain.store(dir, L"t4.flac", properties);
    EXPECT_EQ(catalogue.rows("SELECT FILE_ID, NO_, SOURCE_, KEY_, VALUE_ FROM TAG_PROPERTY ORDER BY FILE_ID, NO_"), rows);
    std::vector<Row> tracks = {{"10001", top + "/t1.flac", "FLAC", "7", "TITLE-1", "ARTIST-2", "ALBUMARTIST-4", "ALBUM-5", "TRACKNUMBER-6",
                                "DISCNUMBER-7", "DATE-8", "GENRE-9", "COMPOSER-10"},
                               {"10003", top + "/t3.flac", "FLAC", "7"},
                               {"10004", top + "/t4.flac", "FLAC", "7"}};
    for (Row& track : tracks) track.resize(13, kNull);
    EXPECT_EQ(catalogue.rows(kTrack), tracks);
    EXPECT_TRUE(has(ZELd::toUtf8(allFormats.out.text), "    INSERT STOR_FILE [10001][t1.flac]\n    INSERT TAG_PROPERTY[11]\n"));
    plain.catalogue.inTransaction([&] { plain.catalogue.deleteRecords({{10001, 1001}}); });
    EXPECT_EQ(catalogue.rows("SELECT COUNT(*), MIN(FILE_ID) FROM TRACK"), (std::vector<Row>{{"2", "10003"}}));
    EXPECT_EQ(catalogue.count("TAG_PROPERTY"), "0");
}

// A catalogue of the seven tables gets TAG_PROPERTY and TRACK from the first
// run with --all-formats (a dry run says so), never from a run without it; the
// first such update reads every stored file again, replacing its one record,
// and the next one reads none.
TEST_P(Storing, AllFormatsAddsItsTablesToSevenAndAnUpdateReadsEveryFileOnce)
{
    const Catalogue seven(GetParam(), Catalogue::SevenTables);
    database = seven.database();
    const std::string changed = "\nUpdate: new[0] changed[5] unchanged[0] removed[0]\n",
                      unchanged = "\nUpdate: new[0] changed[0] unchanged[5] removed[0]\n";
    const std::pair<std::vector<std::string>, std::vector<std::string>> runs[] = {
        {{}, {}},
        {{"--update", "--all-formats", "--dry-run"}, {"\nThe catalogue has no TAG_PROPERTY: a run without --dry-run makes it.\n", changed}},
        {{"--update"}, {unchanged}},
        {{"--update", "--all-formats"}, {"\nTables made. [", changed}}, // the one that makes them
        {{"--update", "--all-formats"}, {unchanged}},
    };
    const auto* const making = &runs[3];
    for (const auto& run : runs) {
        if (&run <= making) {
            EXPECT_THROW(seven.count("TRACK"), std::runtime_error) << "made before run " << &run - runs;
        }
        const Result r = store(run.first);
        for (const std::string& line : run.second) EXPECT_TRUE(has(r.out, line)) << r.out;
        EXPECT_EQ(occurrences(r.out, "\nTables made. ["), &run == making ? 1u : 0u) << r.out;
    }
    EXPECT_EQ(seven.count("TRACK"), "5");
}

// A run with --all-formats over MP3 files and a sample of every other format:
// each file's TAG_PROPERTY rows are its tags in order (an MP3 file's ID3v2,
// APE and ID3v1 under TagLib's names, binary items left out, ID3v1 genre
// numbers named; the other formats as expected.tsv has them, but .mp2, whose
// name TagLib does not list), and its TRACK row the first value of each key.
TEST_P(Storing, EveryFormatsTagsAreItsPropertyRowsAndItsTrackRow)
{
    std::map<std::string, std::vector<PropertyRow>> properties = {
        {top + "/a1.mp3",
         {{"ID3v2", "ALBUM", "Album 🎵 日本語"},
          {"ID3v2", "ARTIST", "Café"},
          {"ID3v2", "COMMENT", "a;b;c"},
          {"ID3v2", "INJECT", injection},
          {"ID3v2", "TITLE", "It's \"quoted\"; here"},
          {"APE", "TITLE", song},
          {"ID3v1", "TITLE", "Alpha"},
          {"ID3v1", "TRACKNUMBER", "7"}}},
        {top + "/" + kSub + "s1.mp3", {{"ID3v2", "TITLE", "Sub 日本語 🎵"}, {"APE", "TITLE", "Ape1"}, {"ID3v1", "GENRE", "Blues"}}},
        {top + "/c2.mp3",
         {{"ID3v1", "ALBUM", "Album"},
          {"ID3v1", "ARTIST", "Artist"},
          {"ID3v1", "COMMENT", "note"},
          {"ID3v1", "DATE", "1999"},
          {"ID3v1", "GENRE", "Rock"},
          {"ID3v1", "TITLE", "Charlie"},
          {"ID3v1", "TRACKNUMBER", "3"}}},
    };
    for (const std::string& name : formatSampleNames()) {
        tree.file("z-formats/" + name, readFile(dataFile("formats/" + name)));
        if (!name.ends_with(".mp2")) properties[top + "/z-formats/" + name] = expectedPropertiesOf(name);
    }
    const Result r = store({"--all-formats"});
    ASSERT_EQ(r.status, 0) << r.err;
    std::map<std::string, std::vector<PropertyRow>> stored;
    for (const Row& row : catalogue.rows("SELECT d.PATH, f.NAME, p.SOURCE_, p.KEY_, p.VALUE_ FROM TAG_PROPERTY p JOIN STOR_FILE f ON "
                                         "f.FILE_ID = p.FILE_ID JOIN STOR_DIR d ON d.DIR_ID = f.DIR_ID ORDER BY p.FILE_ID, p.NO_"))
        stored[row[0] + row[1]].emplace_back(row[2], row[3], row[4]);
    std::erase_if(properties, [](const auto& file) { return file.second.empty(); });
    EXPECT_EQ(stored, properties);
    const char* const keys[] = {"TITLE", "ARTIST", "ALBUMARTIST", "ALBUM", "TRACKNUMBER", "DISCNUMBER", "DATE", "GENRE", "COMPOSER"};
    size_t checked = 0;
    for (const Row& track : catalogue.rows("SELECT PATH, TITLE, ARTIST, ALBUMARTIST, ALBUM, TRACKNUMBER, DISCNUMBER, DATE_, GENRE, "
                                           "COMPOSER FROM TRACK")) {
        Row want = {track[0]};
        for (const char* key : keys) {
            const auto& rows = properties[track[0]];
            const auto first = std::find_if(rows.begin(), rows.end(), [&](const PropertyRow& p) { return std::get<1>(p) == key; });
            want.push_back(first == rows.end() ? kNull : std::get<2>(*first));
        }
        EXPECT_EQ(track, want);
        checked += properties.count(track[0]);
    }
    EXPECT_EQ(checked, properties.size()) << "a file with properties has no TRACK row";
}

// Four runs with --all-formats started together on an empty catalogue, and on
// one of the seven tables: one of them makes what is missing, and every run
// stores every file.
TEST_P(Storing, RunsAtOnceWithAllFormatsMakeItsTablesOnce)
{
    for (const Catalogue::Start start : {Catalogue::Empty, Catalogue::SevenTables}) {
        const Catalogue shared(GetParam(), start);
        std::vector<std::unique_ptr<Program>> runs;
        for (int k = 0; k < 4; ++k)
            runs.push_back(std::make_unique<Program>(
                std::vector<std::string>{SONARCAT_BINARY, "--all-formats", "--database=" + shared.database(), top}));
        size_t made = 0;
        for (auto& run : runs) {
            const Result r = run->finish(600);
            EXPECT_EQ(occurrences(r.err, "Exception: "), 1u) << r.err; // the FIFO's
            made += occurrences(r.out, "\nTables made. [");
        }
        EXPECT_EQ(made, 1u) << "start " << start;
        EXPECT_EQ(shared.count("TRACK"), "20") << "start " << start;
    }
}

// An update removes the record of a file that is gone only where the walk
// read the directory to its end: not below the place where a walk stopped,
// and nothing at all for a PATH that is not there.
TEST(StoringUpdate, RemovesNothingWhereTheWalkDidNotReach)
{
    Catalogue catalogue("SQLite");
    TempDir dir;
    const Tree tree(dir / "music");
    for (const char* name : {"a/1.mp3", "a/2.mp3", "m/3.mp3", "z/4.mp3"}) tree.file(name, readFile(dataFile("sine-1s.mp3")));
    const std::string database = "--database=" + catalogue.database();
    sonarcat({database, tree.root()});
    for (const char* gone : {"a/1.mp3", "m/3.mp3", "z/4.mp3"}) std::filesystem::remove(tree / gone);
    tree.nest("b", std::string(200, 'x'), 25); // a path too long: the walk stops there
    Result r = sonarcat({"--update", database, tree.root()});
    EXPECT_TRUE(has(r.out, "\nUpdate: new[0] changed[0] unchanged[1] removed[1]\n")) << r.out;
    EXPECT_TRUE(has(r.err, "(File name too long)")) << r.err;
    const std::vector<Row> kept = {{"2.mp3"}, {"3.mp3"}, {"4.mp3"}};
    EXPECT_EQ(catalogue.rows("SELECT NAME FROM STOR_FILE ORDER BY NAME"), kept);
    r = sonarcat({"--update", database, dir / "elsewhere"});
    EXPECT_TRUE(has(r.err, "elsewhere")) << r.err;
    EXPECT_EQ(catalogue.rows("SELECT NAME FROM STOR_FILE ORDER BY NAME"), kept);
}

void expectNoWalk(const std::string& database, const std::string& message, const Launch& launch = {})
{
    TempDir dir;
    writeFile(dir / "a.mp3", readFile(dataFile("sine-1s.mp3")));
    auto r = sonarcat({"--database=" + database, dir.path()}, launch);
    SCOPED_TRACE(database);
    EXPECT_EQ(r.status, 0);
    EXPECT_FALSE(has(r.out, "FILE[")) << r.out;
    EXPECT_TRUE(has(r.out, "Finish ["));
    EXPECT_EQ(occurrences(r.err, "Exception: "), 1u) << r.err;
    EXPECT_TRUE(has(r.err, message)) << r.err;
}

// ... nor one that holds only some of its tables, which is left as it is.
TEST_P(Storing, CatalogueThatCannotBeOpenedStopsBeforeTheWalk)
{
    for (const auto& [refused, message] : catalogue.engine().refusals) expectNoWalk(catalogue.fill(refused), catalogue.fill(message));
    for (const char* table : {"APE_ITEM", "ID3V1"}) catalogue.rows(std::string("DROP TABLE ") + table);
    expectNoWalk(database, "only some of its seven tables: [ID3V1, APE_ITEM] are missing");
    EXPECT_THROW(catalogue.rows("SELECT COUNT(*) FROM ID3V1"), std::runtime_error) << "a table was made";
    EXPECT_EQ(catalogue.count("STOR_FILE"), "0");
}

// A dry run makes nothing of a catalogue that is not there: it says so and reports.
TEST(StoringFirstUse, ADryRunMakesNoCatalogue)
{
    TempDir dir;
    writeFile(dir / "a.mp3", readFile(dataFile("sine-1s.mp3")));
    for (const char* update : {"--dry-run", "--update"}) {
        const Result r = sonarcat({"--dry-run", update, "--database=DRIVER=ZELSQLite3;DATABASE=" + dir / "new.db", dir.path()});
        EXPECT_TRUE(has(r.out, "\nThe catalogue has no tables: a run without --dry-run makes them.\n")) << r.out << r.err;
        EXPECT_TRUE(has(r.out, "FILE[a.mp3]"));
        EXPECT_FALSE(std::filesystem::exists(dir / "new.db"));
    }
}

TEST(StoringRefused, DriversThatCannotBeUsedStopBeforeTheWalk)
{
    TempDir dir;
    writeFile(dir / "garbage.sqlite3", std::string(4096, 'x'));
    const std::pair<std::string, std::string> cases[] = {
        {"DRIVER=ZELSQLite3;DATABASE=" + dir / "garbage.sqlite3", "SQLException: ZELSQLite3: cannot connect: file is not a database"},
        {"DRIVER=ZELSQLite3", "no DATABASE= file named"},
        {"DRIVER=ZELFirebird;USER=a;PASSWORD=b;SERVER=localhost/3050", "ZELFirebird: cannot connect: no DATABASE= named"},
        {"DRIVER=ZELMariaDB; USER=a;PASSWORD=b;SERVER=localhost;PORT=3306", "SQLException: ZELMariaDB: cannot connect: no DATABASE= named"},
        // The driver of the option table's example is not in Debian: the driver manager refuses it.
        {"DRIVER={ODBC Driver 18 for SQL Server};Server=localhost,1433;Database=m",
         "ZELODBC: cannot connect: [unixODBC][Driver Manager]Can't open lib"},
        {"DRIVER=ZELOracle;  USER=a;PASSWORD=b;DATABASE=host:1521/music",
         "SQL driver [ZELOracle] has no module in this build: a module would need Oracle's client library"},
        {"DRIVER=ZELInformix;USER=a;PASSWORD=b;SERVER=ids;DATABASE=music",
         "SQL driver [ZELInformix] has no module in this build: a module would need IBM's Informix"},
        {"DRIVER=../../tmp/x", "Invalid SQL driver name [../../tmp/x]"},
    };
    for (const auto& [database, message] : cases) expectNoWalk(database, message);
    // A libsqlite3 loaded ahead of the modules answers for libsqlcipher's names
    // (the key call would reach a library that did not open the file).
    Launch preloaded;
    preloaded.env.insert(preloaded.env.end(), {"LD_PRELOAD=libsqlite3.so.0", "ASAN_OPTIONS=verify_asan_link_order=0"});
    expectNoWalk("DRIVER=ZELSQLCipher;KEY=k;DATABASE=" + dir / "garbage.sqlite3",
                 "ZELSQLCipher: cannot connect: the SQLite library in use cannot encrypt", preloaded);
}

// An install keeps the driver modules in lib/sonarcat/ beside bin/: the
// program finds them there, and names the package of a module that is missing.
TEST(StoringRefused, InstalledProgramFindsItsModulesAndNamesMissingPackages)
{
    TempDir prefix, dir;
    std::filesystem::create_directories(prefix / "bin");
    std::filesystem::create_directories(prefix / "lib/sonarcat");
    std::filesystem::copy_file(SONARCAT_BINARY, prefix / "bin/sonarcat");
    std::filesystem::copy_file(std::filesystem::path(SONARCAT_BINARY).parent_path() / "libZELSQLite3.so",
                               prefix / "lib/sonarcat/libZELSQLite3.so");
    writeFile(dir / "a.mp3", readFile(dataFile("sine-1s.mp3")));
    writeFile(dir / "c.sqlite3", ""); // an empty file is an empty database
    const std::string program = prefix / "bin/sonarcat";
    const Result found = run({program, "--dry-run", "--database=DRIVER=ZELSQLite3;DATABASE=" + dir / "c.sqlite3", dir.path()});
    EXPECT_TRUE(has(found.out, "Database connected.")) << found.err;
    const Result missing = run({program, "--database=DRIVER=ZELPostgreSQL;DATABASE=music", dir.path()});
    const std::string modules = std::filesystem::canonical(prefix.path()).string() + "/lib/sonarcat/";
    EXPECT_TRUE(has(missing.err, "or in " + modules + "; install the package sonarcat-postgresql; installed drivers: ZELSQLite3"))
        << missing.err;
}

TEST(StoringRefused, NoDriverKeyMeansNoDatabase)
{
    TempDir dir;
    writeFile(dir / "a.mp3", readFile(dataFile("sine-1s.mp3")));
    for (const char* database : {"DATABASE=x.sqlite3", "DRIVER=   ;DATABASE=x"}) {
        const std::string out = sonarcat({"--verbose", "--database=" + std::string(database), dir.path()}).out;
        EXPECT_TRUE(has(out, "FILE[a.mp3]") && !has(out, "Database connected") && !has(out, "INSERT")) << out;
    }
}

INSTANTIATE_TEST_SUITE_P(Engines, Storing, ::testing::ValuesIn(engineNames()), testName);

} // namespace
