// Dir: order, kinds of entries, link loops and names that are not UTF-8.
#define ZEL_SOURCE "tests/zel/DirTest"
#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "TestSupport.h"
#include "zel/Dir.h"
#include "zel/File.h"

using namespace ZELd;
using zeltest::name;
using List = std::vector<std::wstring>;

namespace {

// Every entry as "name", or "name/" for a directory.
List list(const std::string& path)
{
    List out;
    Dir dir(name(path));
    Dir::Entry e;
    while (dir.read(e)) out.push_back(e.name().str() + (e.isDir() ? L"/" : L""));
    return out;
}

// Depth first, as the program walks a tree; a depth no tree here reaches makes
// a loop a failure instead of a hang.
void walk(const String& path, std::wstring prefix, List& seen, int depth)
{
    ASSERT_LT(depth, 6) << "the walk does not end at " << prefix;
    Dir dir(path);
    Dir::Entry e;
    while (dir.read(e)) {
        seen.push_back(prefix + e.name().str() + (e.isDir() ? L"/" : L""));
        if (e.isDir()) walk(dir.path() + e.name(), seen.back(), seen, depth + 1);
    }
}

TEST(Dir, SortedByNameBytesWithoutDotEntries)
{
    zeltest::TempDir dir;
    for (const char* n : {"B", "a", "Z", "\xC3\xA9", "_", ".hidden", "..x"}) zeltest::writeFile(dir / n, "");
    ASSERT_EQ(::mkdir((dir / "m").c_str(), 0755), 0);
    EXPECT_EQ(list(dir.path()), (List{L"..x", L".hidden", L"B", L"Z", L"_", L"a", L"m/", L"é"}));
    EXPECT_EQ(list(dir / "m"), List{});

    const String withSlash = name(dir.path() + "/");
    EXPECT_EQ(Dir(name(dir.path())).path(), withSlash);
    EXPECT_EQ(Dir(withSlash).path(), withSlash);
    zeltest::Caught c = zeltest::catchException<IOException>([&] { Dir d(name(dir / "missing")); });
    EXPECT_TRUE(c.thrown && c.expectedType && c.systemError == ENOENT);
}

TEST(Dir, LinksLoopsAndDanglingLinks)
{
    zeltest::TempDir dir;
    ASSERT_EQ(::mkdir((dir / "sub").c_str(), 0755), 0);
    zeltest::writeFile(dir / "sub/song.mp3", "x");
    ASSERT_EQ(::symlink("..", (dir / "sub/up").c_str()), 0);  // to the parent
    ASSERT_EQ(::symlink(".", (dir / "sub/self").c_str()), 0); // to itself
    ASSERT_EQ(::symlink("sub", (dir / "alias").c_str()), 0);  // to a sibling
    ASSERT_EQ(::symlink("nowhere", (dir / "dangling").c_str()), 0);

    List seen;
    std::string traces;
    {
        zeltest::ReportCapture report;
        walk(name(dir.path()), L"", seen, 0);
        traces = report.text();
    }
    EXPECT_EQ(seen, (List{L"alias/", L"alias/song.mp3", L"dangling", L"sub/", L"sub/song.mp3"}));
    for (const char* skipped : {"alias/self", "alias/up", "sub/self", "sub/up"})
        EXPECT_NE(traces.find(dir / skipped), std::string::npos) << skipped << " not in " << traces;

    // Read on its own, the link to the parent is a directory; the one to the
    // directory being read still leads back into it.
    zeltest::ReportCapture report;
    EXPECT_EQ(list(dir / "sub"), (List{L"song.mp3", L"up/"}));
    EXPECT_NE(report.text().find(dir / "sub/self"), std::string::npos);
}

TEST(Dir, ClosedOutOfOrderOnlyTheOpenOnesCount)
{
    zeltest::TempDir dir;
    ASSERT_EQ(::mkdir((dir / "a").c_str(), 0755), 0);
    ASSERT_EQ(::mkdir((dir / "b").c_str(), 0755), 0);
    ASSERT_EQ(::symlink("../a", (dir / "b/to-a").c_str()), 0);
    std::unique_ptr<Dir> outer(ZEL_NEW Dir(name(dir / "a")));
    std::unique_ptr<Dir> inner(ZEL_NEW Dir(name(dir / "b")));
    outer.reset(); // closed before the directory opened after it
    Dir::Entry e;
    ASSERT_TRUE(inner->read(e));
    EXPECT_EQ(e.name().str(), L"to-a");
    EXPECT_TRUE(e.isDir());
    inner.reset();
    EXPECT_EQ(list(dir / "b"), List{L"to-a/"}); // nothing of the two is left in the way
}

TEST(Dir, NameThatIsNotUtf8OpensByItsEscapedForm)
{
    zeltest::TempDir dir;
    zeltest::writeFile(dir / "bad\xFF.mp3", "abc");
    Dir d(name(dir.path()));
    Dir::Entry e;
    ASSERT_TRUE(d.read(e));
    EXPECT_EQ(e.name().str(), L"bad\xDCFF.mp3");
    EXPECT_FALSE(e.isDir());
    File f(d.path() + e.name(), 1, 0666);
    char buffer[8];
    EXPECT_EQ(f.read(buffer, sizeof buffer), 3u);
    EXPECT_EQ(nativePath(f.path()), dir / "bad\xFF.mp3");
    EXPECT_FALSE(d.read(e));
}

} // namespace
