// Dir: directories closed out of the order they were opened in.
#define ZEL_SOURCE "tests/zel/DirTest"
#include <sys/stat.h>
#include <unistd.h>

#include <memory>

#include <gtest/gtest.h>

#include "TestSupport.h"
#include "zel/Dir.h"

using namespace ZELd;
using zeltest::name;

namespace {

TEST(Dir, ClosedOutOfOrderOnlyTheOpenOnesCount)
{
    zeltest::TempDir dir;
    ASSERT_EQ(::mkdir((dir / "a").c_str(), 0755), 0);
    ASSERT_EQ(::mkdir((dir / "b").c_str(), 0755), 0);
    ASSERT_EQ(::symlink("../a", (dir / "b/to-a").c_str()), 0);
    std::unique_ptr<Dir> outer(ZEL_NEW Dir(name(dir / "a")));
    std::unique_ptr<Dir> inner(ZEL_NEW Dir(name(dir / "b")));
    outer.reset(); // closed before the directory opened after it: a is no longer above b
    Dir::Entry e;
    ASSERT_TRUE(inner->read(e));
    EXPECT_EQ(e.name().str(), L"to-a");
    EXPECT_TRUE(e.isDir());
    inner.reset();
    Dir again(name(dir / "b")); // nothing of the two is left in the chain
    ASSERT_TRUE(again.read(e));
    EXPECT_TRUE(e.isDir());
}

} // namespace
