// One tree that fights back, walked by the user nobody: every kind of tag, names in
// any letter case, hidden and "..." directories, files that cannot be read (locked,
// FIFOs, sockets, dangling links, link loops), links back up the tree, names that
// are not UTF-8, a 255-byte name, a file 300 directories deep (deeper than the walk
// keeps directories open). The report, the census and the stored names are checked
// entry by entry from one table in walk order.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <csignal>

#include <algorithm>
#include <array>
#include <filesystem>
#include <map>
#include <regex>
#include <thread>

#include "support/Catalogue.h"

using namespace testsupport;

namespace {

using Counts = std::array<int, 7>;
// The census columns; a tag section of kSections counts in the column its name begins with.
const char* const kColumns[] = {"ID3v1", "ID3v22", "ID3v23", "ID3v24", "APEv1", "APEv2", "error"};

const std::string kFileRule(80, '='), kSectionRule(80, '-');
const std::string kAudio = "format[MPEG Audio] width[0] height[0] duration[1]", kNoMedia = "format[] width[0] height[0] duration[0]";
const std::string audio = readFile(dataFile("sine-1s.mp3"));
const std::string v1 = id3v1("Alpha", "Band", "Album", "2001", "comment", 7, 255),
                  v23 = id3v2(3, {{"TIT2", textBody("Bravo")}, {"TPE1", textBody("Band")}}, 20),
                  v22 = id3v2(2, {{"TT2", textBody("Hotel")}}), v24 = id3v2(4, {{"TIT2", textBody("India \xc3\xa9t\xc3\xa9", 3)}}),
                  ape1 = ape(1000, {{"Title", "Foxtrot"}}, false), ape1First = ape(1000, {{"Title", "Foxtrot"}}, true),
                  ape2 = ape(2000, {{"Title", "Golf"}, {"Cover", "\x01\x02", 2}}, true);
const std::map<std::string, std::string> kSections = {
    {"ID3v1", "TAG Title[Alpha] Artist[Band] Album[Album] Year[2001] Comment[comment] Track[7] Genre[-1]\n"},
    {"ID3v23",
     "ID3 version[3] revision[0] flags[0] size[" + std::to_string(v23.size() - 10) +
         "] fsbits[8]\nTIT2 size[6] flags[0] encoding[0] type[0] text[Bravo]\nTPE1 size[5] flags[0] encoding[0] type[0] text[Band]\n"},
    {"ID3v22", "ID3 version[2] revision[0] flags[0] size[12] fsbits[8]\nTT2 size[6] flags[0] encoding[0] type[0] text[Hotel]\n"},
    {"ID3v24", "ID3 version[4] revision[0] flags[0] size[" + std::to_string(v24.size() - 10) +
                   "] fsbits[8]\nTIT2 size[12] flags[0] encoding[3] type[0] text[India été]\n"},
    {"APEv1",
     "APETAGEX version[1000] size[" + std::to_string(ape1.size()) + "] count[1] flags[0]\nsize[7] flags[0] key[Title] value[Foxtrot]\n"},
    {"APEv1 first", "APETAGEX version[1000] size[" + std::to_string(ape1.size()) +
                        "] count[1] flags[a0000000]\nsize[7] flags[0] key[Title] value[Foxtrot]\n"},
    {"APEv2", "APETAGEX version[2000] size[" + std::to_string(ape2.size() - 32) +
                  "] count[2] flags[80000000]\nsize[4] flags[0] key[Title] value[Golf]\nsize[2] flags[2] key[Cover] value[..]\n"},
};
std::string repeat(const std::string& s, int n) { return n ? s + repeat(s, n - 1) : ""; }
const std::string kLongName = "z" + repeat("\xc3\xa9", 125) + ".mp3", kDeep = "g-deep" + repeat("/level", 300); // 255 bytes; 300 levels

struct Entry {
    std::string path; // below the root; a directory ends with "/"
    char kind;        // 'f' file, 'd' directory, 'p' FIFO, 's' socket, 'l' link to `bytes`, '0' a file nobody may read
    std::string bytes = "";
    int tags = 0;
    std::string notes = "", error = ""; // the note, and the system's reason on the error line
    std::string media = kAudio;
    std::vector<std::string> sections = {}; // of kSections, verbose
};

// In walk order: names sorted in byte order, a directory's entries where it stands.
std::vector<Entry> entries()
{
    std::vector<Entry> all = {
        {".../y.mp3", 'f', audio + v1, 1, "", "", kAudio, {"ID3v1"}},
        {".hidden/x.mp3", 'f', v23 + audio, 300, "", "", kAudio, {"ID3v23"}},
        {"A.MP3", 'f', audio + v1, 1, "", "", kAudio, {"ID3v1"}},
        {"a-bad\xff\xfe.mp3", 'f', v23 + audio, 300, "", "", kAudio, {"ID3v23"}},
        {"ape-low-start.mp3", 'f', ape(999, {{"Title", "Low"}}, true) + audio + ape2, 20, "", "", kAudio, {"APEv2"}},
        {"ape-start.mp3", 'f', ape1First + audio + ape2, 10, "", "", kAudio, {"APEv1 first"}}, // the end is not searched
        {"b-dangling.mp3", 'l', "nowhere.mp3", 0, "Open Failed", " (No such file or directory)", kNoMedia},
        {"b.Mp3", 'f', v23 + audio + v1, 301, "", "", kAudio, {"ID3v23", "ID3v1"}},
        {"c-fifo.mp3", 'p', "", 0, "Open Failed: not a regular file", "", kNoMedia},
        {"c.mp3.bak", 'f', audio + v1},
        {"d-locked.mp3", '0', audio, 0, "Open Failed", " (Permission denied)", kNoMedia},
        {"d-locked.wav", '0', audio, 0, "MediaInfo Open Failed", "", kNoMedia},
        {"d.ogg", 'f', "not really audio\n", 0, "", "", kNoMedia},
        {"e", 'f', audio},
        {"e-loop1.mp3", 'l', "e-loop2.mp3", 0, "Open Failed", " (Too many levels of symbolic links)", kNoMedia},
        {"e-loop2.mp3", 'l', "e-loop1.mp3", 0, "Open Failed", " (Too many levels of symbolic links)", kNoMedia},
        {"empty.mp3", 'f', "", 0, "", "", kNoMedia},
        {"f-ape1.mp3", 'f', audio + ape1, 10, "", "", kAudio, {"APEv1"}},
        {"f-sock.mp3", 's', "", 0, "Open Failed", " (No such device or address)", kNoMedia},
        {"g-ape2.mp3", 'f', audio + ape2, 20, "", "", kAudio, {"APEv2"}},
        {"g-deep/up", 'l', ".."},
        {kDeep + "/b-dangling.mp3", 'l', "nowhere.mp3", 0, "Open Failed", " (No such file or directory)", kNoMedia},
        {kDeep + "/deep.mp3", 'f', audio},
        {kDeep + "/up", 'l', ".."},
        {"h-v22.mp3", 'f', v22 + audio, 200, "", "", kAudio, {"ID3v22"}},
        {"i-all.mp3", 'f', v24 + audio + ape2 + v1, 421, "", "", kAudio, {"ID3v24", "APEv2", "ID3v1"}},
        {"i-self", 'l', "."},
        {"j-\xff/k.mp3", 'f', audio},
        {"k-cover.png", 'f', readFile(dataFile("tagged/cover.png")), 0, "", "", "format[PNG] width[2] height[2] duration[0]"},
        {"l-\xc3\xa9-\xc3\xbc-\xe6\x97\xa5\xe6\x9c\xac\xe8\xaa\x9e.mp3", 'f', audio + v1, 1, "", "", kAudio, {"ID3v1"}},
        {"m-sub/deeper/fifo.mp3", 'p', "", 0, "Open Failed: not a regular file", "", kNoMedia},
        {"m-sub/deeper/v22.mp3", 'f', v22 + audio, 200, "", "", kAudio, {"ID3v22"}},
        {"m-sub/z.mp3", 'f', audio},
        {"n-after.mp3", 'f', audio},
        {"o-empty/", 'd'},
        {"p-fifo", 'p', "", 0, "MediaInfo Open Failed", "", kNoMedia},
        {"v5.mp3", 'f', "ID3\x05" + std::string(6, '\0') + audio},
        {kLongName, 'f', audio},
    };
    for (size_t i = 0, n = all.size(); i < n; ++i) // the directories on the way to each entry
        for (size_t at = all[i].path.find('/'); at < all[i].path.size() - 1; at = all[i].path.find('/', at + 1))
            all.push_back({all[i].path.substr(0, at + 1), 'd'});
    auto key = [](std::string path) { return std::replace(path.begin(), path.end(), '/', '\1'), path; }; // a name's entries right after it
    std::stable_sort(all.begin(), all.end(), [&](const Entry& a, const Entry& b) { return key(a.path) < key(b.path); });
    all.erase(std::unique(all.begin(), all.end(), [](const Entry& a, const Entry& b) { return a.path == b.path; }), all.end());
    return all;
}

Launch asNobody(const std::string& lang = "") { return {environment(lang), 0, true}; }

class Walk : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        top = new TempDir;
        ::chmod(top->path().c_str(), 0755);
        const Tree tree(*top / "music Ünï 日本語");
        root = tree.root();
        for (const Entry& e : entries())
            if (const std::string path = tree.make(e.path, e.bytes, e.kind == '0' ? 'f' : e.kind); e.kind == '0') ::chmod(path.c_str(), 0);
    }
    static void TearDownTestSuite() { delete top; }

    static std::string dirOf(const Entry& e) { return root + "/" + e.path.substr(0, e.path.rfind('/') + 1); }
    static std::string nameOf(const Entry& e) { return e.path.substr(e.path.rfind('/') + 1); }
    static size_t sizeOf(const Entry& e)
    {
        struct stat st {};
        const std::string path = dirOf(e) + nameOf(e);
        return ::stat(path.c_str(), &st) == 0 || ::lstat(path.c_str(), &st) == 0 ? static_cast<size_t>(st.st_size) : 0;
    }

    // The report of every entry that is not a directory, and the error lines in their order.
    static std::string report(bool verbose, std::vector<std::string>& errors)
    {
        std::string s;
        for (const Entry& e : entries()) {
            if (e.kind == 'd' || (e.kind == 'l' && e.bytes.starts_with("."))) continue;
            const std::string note = e.notes.empty() ? "" : e.notes + " [" + dirOf(e) + nameOf(e) + "]";
            s += kFileRule + "\nDIR [" + dirOf(e) + "]\nFILE[" + nameOf(e) + "]\n    tags[" + std::to_string(1000 + e.tags).substr(1) +
                 "] size[" + std::to_string(sizeOf(e)) + "] mtime[<time>] notes[" + note + "]\n    " + e.media + "\n";
            if (!note.empty()) errors.push_back("IOException: " + note + e.error + "\n");
            if (!verbose) continue;
            for (const std::string& section : e.sections) s += kSectionRule + "\n" + kSections.at(section);
            const std::string format = e.media.substr(7, e.media.find(']') - 7);
            s += kSectionRule + "\n" +
                 (note.empty() ? "General\n" + (format.empty() ? "" : "Format: " + format + "\n") + "<report>\n" : "\n");
        }
        return s;
    }

    // The census lines: each .mp3 file, each directory after its subtree, the total last.
    static std::string census()
    {
        std::vector<std::pair<std::string, Counts>> open = {{"", {}}};
        std::string s;
        auto line = [&](const std::string& what, const Counts& c) {
            s += "[" + what + "]";
            for (int i = 0; i < 7; ++i) s += std::string(" ") + kColumns[i] + "[" + std::to_string(c[i]) + "]";
            s += "\n";
        };
        auto close = [&] {
            const auto [dir, counts] = open.back();
            open.pop_back();
            line(dir.empty() ? root : root + "/" + dir.substr(0, dir.size() - 1), counts);
            if (!open.empty())
                for (int i = 0; i < 7; ++i) open.back().second[i] += counts[i];
        };
        for (const Entry& e : entries()) {
            while (!e.path.starts_with(open.back().first)) close();
            if (e.kind == 'd') open.push_back({e.path, {}});
            if (e.kind == 'd' || !std::regex_search(nameOf(e), std::regex("\\.mp3$", std::regex::icase))) continue;
            Counts counts{};
            for (const std::string& section : e.sections)
                ++counts[std::find_if(kColumns, kColumns + 6, [&](const char* c) { return section.starts_with(c); }) - kColumns];
            counts[6] = !e.notes.empty();
            if (!counts[6]) line("  " + nameOf(e), counts);
            for (int i = 0; i < 7; ++i) open.back().second[i] += counts[i];
        }
        while (!open.empty()) close();
        return s;
    }

    static std::string framed(const std::string& options, const std::string& body)
    {
        return "Start [<time>]\n" + (options.empty() ? "" : "      [sonarcat " + options + " values[" + root + "]]\n") + kFileRule + "\n" +
               body + kFileRule + "\nFinish [<time>]\n";
    }
    static void expectInOrder(const std::string& text, const std::vector<std::string>& lines)
    {
        size_t at = 0;
        for (const std::string& l : lines) {
            const size_t found = text.find(l, at);
            EXPECT_NE(found, std::string::npos) << "missing, or out of order: " << l << "in\n" << text;
            at = found == std::string::npos ? at : found + l.size();
        }
    }
    static inline TempDir* top = nullptr;
    static inline std::string root;
};

TEST_F(Walk, ThePlainReportListsEveryEntryWithItsReasonInEveryLocale)
{
    std::vector<std::string> errors;
    const std::string expected = framed("", report(false, errors));
    for (const std::string lang : {"", "C", "C.UTF-8"}) {
        const Result r = sonarcat({root}, asNobody(lang), 120);
        ASSERT_FALSE(r.timedOut);
        EXPECT_EQ(maskTimes(r.out), expected) << "LANG=" << lang;
        expectInOrder(r.err, errors);
        expectInOrder(r.err, {"Link to a directory above skipped [" + root + "/" + kDeep + "/up]\n",
                              "Link to a directory above skipped [" + root + "/g-deep/up]\n",
                              "Link to a directory above skipped [" + root + "/i-self]\n"});
    }
}

TEST_F(Walk, TheVerboseReportShowsEveryTagSectionInItsOrder)
{
    std::vector<std::string> errors;
    const Result r = sonarcat({"--verbose", root}, asNobody(), 120);
    // MediaInfo's report is its own: the test keeps its first lines and checks its clean-up.
    static const std::regex media("(" + kSectionRule + "\n)(General\n(Format: [^\n]*\n)?)[\\s\\S]*?\n(?=" + kFileRule + "\n)");
    EXPECT_EQ(std::regex_replace(maskTimes(r.out), media, "$1$2<report>\n"),
              framed("--verbose=true --summary=false --database= --dry-run=false", report(true, errors)));
    for (const char* gone : {"Complete name", "\r", " :"}) EXPECT_FALSE(has(r.out, gone)) << gone;
}

TEST_F(Walk, TheCensusCountsEveryTagKindAndEveryFailure)
{
    const Result r = sonarcat({"--summary", "--verbose", root}, asNobody(), 120);
    EXPECT_EQ(maskTimes(r.out), framed("--verbose=true --summary=true --database= --dry-run=false", census()));
    std::vector<std::string> errors;
    report(false, errors);
    errors.erase(std::remove_if(errors.begin(), errors.end(), [](auto& e) { return !has(e, ".mp3]"); }), errors.end());
    expectInOrder(r.err, errors);
    const std::string total = census().substr(census().rfind("\n[", census().size() - 2) + 1);
    EXPECT_EQ(maskTimes(sonarcat({"--summary", "--database=DRIVER=ZELSQLite3;DATABASE=/nonexistent/x.sqlite3", root}, asNobody()).out),
              framed("", total))
        << "without --verbose only the total, and no database";
}

TEST_F(Walk, AFileGivenAloneIsReadWhateverItsName)
{
    std::vector<std::string> ignored;
    const std::string tree = report(false, ignored);
    const std::pair<std::string, std::string> files[] = {{"b.Mp3", "ID3v1[1] ID3v22[0] ID3v23[1]"},
                                                         {"c.mp3.bak", "ID3v1[1] ID3v22[0] ID3v23[0]"},
                                                         {"v5.mp3", "ID3v1[0] ID3v22[0] ID3v23[0]"}};
    for (const auto& [name, tags] : files) {
        const std::string path = root + "/" + name, block = tree.substr(tree.find("FILE[" + name + "]"));
        EXPECT_TRUE(has(maskTimes(sonarcat({path}).out), block.substr(0, block.find(kFileRule)))) << path;
        EXPECT_TRUE(has(sonarcat({"--summary", path}).out, "[" + path + "] " + tags)) << path;
    }
}

// Stored, every listed file has its row; a name that is not UTF-8 is stored
// with U+FFFD in place of each stray byte.
TEST_F(Walk, StoredNamesAreValidUtf8OnEveryEngine)
{
    for (const std::string& engine : engineNames()) {
        Catalogue catalogue(engine);
        if (catalogue.database().empty()) continue;
        if (!catalogue.engine().variable)
            for (const std::string& p : {std::filesystem::path(catalogue.file()).parent_path().string(), catalogue.file()})
                (void)!::chown(p.c_str(), 65534, 65534);
        const Result r = sonarcat({"--database=" + catalogue.database(), root}, asNobody(), 120);
        EXPECT_FALSE(has(r.err, "SQLException")) << r.err;
        const auto names = catalogue.rows("SELECT FILE_NM FROM STOR_FILE ORDER BY FILE_ID");
        ASSERT_EQ(names.size(), occurrences(r.out, "\nFILE[")) << engine;
        EXPECT_NE(std::find(names.begin(), names.end(), Row{"a-bad\xef\xbf\xbd\xef\xbf\xbd.mp3"}), names.end()) << engine;
        EXPECT_EQ(names.back(), Row{kLongName});
        EXPECT_EQ(catalogue.rows("SELECT PATH FROM STOR_DIR WHERE PATH LIKE '%j-%'").at(0).at(0), root + "/j-\xef\xbf\xbd/");
    }
}

// Kills every process that holds `path` open (a helper probing it); true when there was one.
bool killHolders(const std::string& path)
{
    bool killed = false;
    for (const auto& process : std::filesystem::directory_iterator("/proc")) {
        std::error_code error;
        for (const auto& fd : std::filesystem::directory_iterator(process.path() / "fd", error))
            if (std::filesystem::read_symlink(fd.path(), error) == path)
                killed = ::kill(std::stoi(process.path().filename()), SIGKILL) == 0 || killed;
    }
    return killed;
}

// The probes made ahead in helper processes change nothing the user sees: the
// output, the error output and every row (but the times of storing) are those
// of a run on one core. A file on which MediaInfo never returns (one zero
// byte, "APETAGEX" and zeros, for libmediainfo 23.04) fails on its deadline,
// or when its helper is killed, with a note of its own; every other file is
// reported and stored as in any run, and the run ends. (On a one-core
// machine both runs take one core.)
TEST_F(Walk, EveryCoreGivesWhatOneCoreGivesWhateverAProbeDoes)
{
    const std::string hang = root + "/f-hang.mp3", timedOut = "MediaInfo Timeout [" + hang + "]",
                      killed = "MediaInfo Crashed (SIGKILL) [" + hang + "]";
    writeFile(hang, std::string(1, '\0') + "APETAGEX" + std::string(24, '\0'));
    struct Run {
        bool oneCore, kill;
        const char* jobs = nullptr; // tags read ahead too
        Catalogue catalogue{"SQLite"};
        Result result{};
    } runs[] = {{true, false}, {false, false}, {true, true}, {false, true}, {false, false, "--jobs=12"}};
    sonarcat({"--dry-run", "--probe-timeout=1", root}, asNobody(), 120); // reading every file settles its access time first
    for (Run& r : runs) {
        for (const std::string& p : {std::filesystem::path(r.catalogue.file()).parent_path().string(), r.catalogue.file()})
            (void)!::chown(p.c_str(), 65534, 65534);
        std::vector<std::string> argv = {SONARCAT_BINARY, "--verbose", "--database=" + r.catalogue.database(),
                                         r.kill ? "--probe-timeout=0" : "--probe-timeout=3", root};
        if (r.oneCore) argv.insert(argv.begin(), {"/usr/bin/taskset", "-c", "0"});
        if (r.jobs) argv.insert(argv.end() - 1, r.jobs);
        Program program(argv, asNobody());
        for (auto until = std::chrono::steady_clock::now() + std::chrono::seconds(60); r.kill && program.running() && !killHolders(hang);)
            if (std::chrono::steady_clock::now() < until) std::this_thread::sleep_for(std::chrono::milliseconds(10));
            else program.signal(SIGKILL); // no helper ever held the file: the run is wrong
        r.result = program.finish(120);
        ASSERT_FALSE(r.result.timedOut);
        // The killed file's note aside, every run gives the same.
        for (std::string* text : {&r.result.out, &r.result.err})
            for (size_t at; (at = text->find(r.kill ? killed : timedOut)) != std::string::npos;)
                text->replace(at, (r.kill ? killed : timedOut).size(), "<note>");
        std::vector<std::string> owns = {r.catalogue.database(), r.kill ? "=0 values[" : "=3 values["};
        if (r.jobs) owns.push_back("=3 " + std::string(r.jobs) + " values[");
        for (const std::string& own : owns)
            for (size_t at; (at = r.result.out.find(own)) != std::string::npos;) r.result.out.replace(at, own.size(), "<own>");
    }
    EXPECT_TRUE(has(maskTimes(runs[0].result.out), "FILE[f-hang.mp3]\n    tags[000] size[33] mtime[<time>] notes[<note>]\n"))
        << runs[0].result.out;
    EXPECT_EQ(occurrences(runs[0].result.err, "IOException: <note>\n"), 1u) << runs[0].result.err;
    EXPECT_TRUE(has(runs[0].result.out, "INSERT STOR_FILE")) << runs[0].result.err;
    for (const char* table : {"SELECT DIR_ID, PATH FROM STOR_DIR ORDER BY 1",
                              "SELECT FILE_ID, NAME, USER_ID, STOR_ID, TYPE_ID, DIR_ID, FILE_NM, FILE_SZ, FILE_AT, FILE_MT, FILE_CT, "
                              "REPLACE(REPLACE(FILE_ER, 'Timeout', '-'), 'Crashed (SIGKILL)', '-'), MEDI_FM, MEDI_WI, MEDI_HE, MEDI_DU, "
                              "MEDI_NF, READ_CO FROM STOR_FILE ORDER BY 1",
                              "SELECT * FROM ID3V1 ORDER BY 1", "SELECT * FROM ID3V2 ORDER BY 1", "SELECT * FROM ID3V2_FRAME ORDER BY 1, 2",
                              "SELECT * FROM APE ORDER BY 1", "SELECT * FROM APE_ITEM ORDER BY 1, 2"})
        for (const Run& r : runs) EXPECT_EQ(r.catalogue.rows(table), runs[0].catalogue.rows(table)) << table;
    EXPECT_EQ(runs[0].catalogue.count("STOR_FILE"), std::to_string(occurrences(runs[0].result.out, "\nFILE[")));
    for (const Run& r : runs) {
        SCOPED_TRACE(std::string(r.oneCore ? "one core" : "every core") + (r.kill ? ", a helper killed" : "") + (r.jobs ? r.jobs : ""));
        EXPECT_EQ(maskTimes(r.result.out), maskTimes(runs[0].result.out));
        EXPECT_EQ(r.result.err, runs[0].result.err);
    }
    std::filesystem::remove(hang);
}

// A file rewritten after its helper probed it, before its turn, is reported
// as it is at its turn. The run is held on its full output pipe while the
// helpers probe ahead; then every file is rewritten.
TEST(WalkAhead, AFileRewrittenAfterItsProbeIsReportedAsItIsAtItsTurn)
{
    TempDir top;
    const Tree tree(top / "music");
    const std::string picture = readFile(dataFile("tagged/cover.png"));
    for (int i = 0; i < 300; ++i) tree.file("t-" + std::to_string(1000 + i) + ".mp3", audio);
    int pipe[2];
    ASSERT_EQ(::pipe(pipe), 0);
    Program run({SONARCAT_BINARY, "--verbose", tree.root()}, {environment(), 0, false, pipe[1]});
    ::close(pipe[1]);
    std::this_thread::sleep_for(std::chrono::seconds(2));
    ASSERT_TRUE(run.running()) << "the output pipe did not hold the run";
    for (int i = 0; i < 300; ++i) writeFile(tree / ("t-" + std::to_string(1000 + i) + ".mp3"), picture);
    const std::string out = drain(pipe[0]);
    run.finish();
    static const std::regex block(R"(FILE\[t-\d+\.mp3\]\n    tags\[\d+\] size\[(\d+)\][^\n]*\n    format\[([^\]]*)\])");
    size_t before = 0, after = 0;
    for (auto m = std::sregex_iterator(out.begin(), out.end(), block); m != std::sregex_iterator(); ++m) {
        const bool rewritten = (*m)[1] == std::to_string(picture.size());
        EXPECT_EQ((*m)[2], rewritten ? "PNG" : "MPEG Audio") << (*m)[0];
        ++(rewritten ? after : before);
    }
    EXPECT_EQ(before + after, 300u);
    EXPECT_GT(before, 0u);
    EXPECT_GT(after, 0u);
}

// A tree that goes away in the middle of a run (a share whose server died
// leaves an empty mount point) ends the run at the first file that fails for
// it: nothing is stored of that file or any after it, and an update once the
// tree is back removes nothing. The run is held on its full output pipe while
// the tree is swapped for an empty directory.
TEST(WalkAhead, ATreeThatGoesAwayEndsTheRunAndNothingOfItIsStored)
{
    TempDir top;
    const Tree tree(top / "music");
    for (int i = 0; i < 300; ++i) tree.file("t-" + std::to_string(1000 + i) + ".mp3", audio);
    Catalogue catalogue{"SQLite"};
    int pipe[2];
    ASSERT_EQ(::pipe(pipe), 0);
    Program run({SONARCAT_BINARY, "--verbose", "--database=" + catalogue.database(), tree.root()}, {environment(), 0, false, pipe[1]});
    ::close(pipe[1]);
    std::this_thread::sleep_for(std::chrono::seconds(2));
    ASSERT_TRUE(run.running()) << "the output pipe did not hold the run";
    ASSERT_EQ(::rename(tree.root().c_str(), (top / "away").c_str()), 0);
    std::filesystem::create_directory(tree.root());
    const std::string out = drain(pipe[0]);
    const Result r = run.finish();
    EXPECT_EQ(occurrences(r.err, "Exception"), 1u) << r.err;
    EXPECT_TRUE(has(r.err, "IOException: Tree Unreachable [" + tree.root() + "]")) << r.err;
    const size_t stored = occurrences(out, "INSERT STOR_FILE [");
    EXPECT_GT(stored, 0u);
    EXPECT_LT(stored, 300u);
    EXPECT_EQ(catalogue.count("STOR_FILE"), std::to_string(stored));
    EXPECT_EQ(catalogue.rows("SELECT COUNT(*) FROM STOR_FILE WHERE FILE_ER <> ''").at(0).at(0), "0");
    std::filesystem::remove(tree.root());
    ASSERT_EQ(::rename((top / "away").c_str(), tree.root().c_str()), 0);
    const Result update = sonarcat({"--update", "--database=" + catalogue.database(), tree.root()}, {environment()});
    EXPECT_TRUE(has(update.out,
                    "Update: new[" + std::to_string(300 - stored) + "] changed[0] unchanged[" + std::to_string(stored) + "] removed[0]"))
        << update.out << update.err;
}

// What ends the walk ends it with the closing lines: a PATH that is not
// there, a directory nobody may read, a path longer than the system allows.
TEST(WalkStops, AtWhatCannotBeWalkedWithTheClosingLines)
{
    TempDir top;
    ::chmod(top.path().c_str(), 0755);
    const Tree tree(top / "music");
    tree.file("a-first.mp3", audio);
    tree.file("m-locked/inside.mp3", audio);
    ::chmod((tree / "m-locked").c_str(), 0);
    tree.file("z-last.mp3", audio);
    const Tree deep(top / "deep");
    deep.file("a-first.mp3", audio);
    deep.nest("b", std::string(200, 'x'), 25);
    deep.file("z-last.mp3", audio);
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{"--summary", "/nonexistent/path.mp3"}, "IOException: Open Failed [/nonexistent/path.mp3] (No such file or directory)\n"},
        {{tree.root()}, "IOException: Open Directory Failed [" + tree.root() + "/m-locked] (Permission denied)\n"},
        {{"--summary", "--verbose", tree.root()},
         "IOException: Open Directory Failed [" + tree.root() + "/m-locked] (Permission denied)\n"},
        {{deep.root()}, "] (File name too long)\n"},
    };
    for (const auto& [args, error] : cases) {
        const Result r = sonarcat(args, asNobody());
        EXPECT_TRUE(has(r.err, error)) << r.err;
        EXPECT_FALSE(has(r.out, "z-last.mp3")) << r.out;
        EXPECT_EQ(args.size() == 1, has(r.out, "FILE[a-first.mp3]")) << r.out;
        EXPECT_EQ(r.out.substr(r.out.rfind(kFileRule + "\n")).rfind(kFileRule + "\nFinish [", 0), 0u) << r.out;
    }
}

} // namespace
