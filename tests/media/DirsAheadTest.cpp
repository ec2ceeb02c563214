// The directories read ahead of the walk: in walk order, where a directory's
// contents come before a sibling whose name begins with its name, each one
// handed to the walk as the walk would have read it.
#define ZEL_SOURCE "tests/media/DirsAheadTest"
#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "media/DirsAhead.h"
#include "support/Files.h"
#include "zel/FileName.h"

using namespace ZELd;
using namespace testsupport;

namespace {

// Every entry of a directory as the walk sees it: name, kind, size.
std::vector<std::string> entriesOf(Dir& dir)
{
    std::vector<std::string> seen;
    Dir::Entry entry;
    while (dir.read(entry)) {
        std::string line = nativePath(entry.name());
        if (entry.isDir()) line += '/';
        else line.append(" ").append(std::to_string(dir.examine(entry).size));
        seen.push_back(line);
    }
    return seen;
}

} // namespace

TEST(DirsAhead, EveryDirectoryIsReadAheadInWalkOrder)
{
    TempDir top;
    const std::string root = top.path() + "/";
    const std::vector<std::string> walk = {"a/", "a/x/", "a/x/deep/", "a-b/", "a-b/y/", "b/", "b c/", "b c/z/"};
    for (const std::string& d : walk) {
        std::filesystem::create_directories(root + d);
        writeFile(root + d + "track.mp3", d);
    }
    std::filesystem::create_directory_symlink(root + "a", root + "b/link"); // not followed ahead
    DirsAhead ahead(3);
    {
        Dir start(fromNativePath(root.c_str()));
        ahead.entered(root, start);
    }
    for (const std::string& d : walk) {
        usleep(50 * 1000); // read ahead meanwhile
        Dir::Listing listing;
        ASSERT_TRUE(ahead.take(root + d, listing)) << d;
        Dir early(fromNativePath((root + d).c_str()), std::move(listing));
        Dir now(fromNativePath((root + d).c_str()));
        EXPECT_EQ(entriesOf(early), entriesOf(now)) << d;
        ahead.entered(root + d, early);
    }
    Dir::Listing listing;
    EXPECT_FALSE(ahead.take(root + "b/link/", listing));
}
