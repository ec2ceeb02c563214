// Helpers of the zel unit tests: temporary directories, caught exceptions.
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <string>
#include <system_error>

#include <gtest/gtest.h>

#include "zel/Exception.h"
#include "zel/FileName.h"

namespace zeltest {

// A fresh directory under $TMPDIR, removed with its contents at the end.
class TempDir {
public:
    TempDir() : path_(std::filesystem::temp_directory_path() / "zel-test-XXXXXX") { EXPECT_TRUE(::mkdtemp(path_.data())) << path_; }
    ~TempDir() { std::error_code ignored; std::filesystem::remove_all(path_, ignored); }
    std::string operator/(const std::string& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

inline ZELd::String name(const std::string& native) { return ZELd::fromNativePath(native.data(), native.size()); }

// Whether f threw an exception of class E (released here).
template <class E, class F>
bool throws(F&& f)
{
    try {
        f();
    } catch (ZELd::Exception* e) {
        const bool expected = dynamic_cast<E*>(e) != nullptr;
        e->destroy();
        return expected;
    }
    return false;
}

} // namespace zeltest
