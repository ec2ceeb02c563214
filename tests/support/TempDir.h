// A temporary directory removed with everything in it.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>

namespace testsupport {

class TempDir {
public:
    TempDir()
    {
        std::string tmpl = (std::filesystem::temp_directory_path() / "sonarcat-test-XXXXXX").string();
        char* made = ::mkdtemp(tmpl.data());
        path_ = made ? made : "";
    }
    ~TempDir()
    {
        std::error_code ec;
        if (!path_.empty()) std::filesystem::remove_all(path_, ec);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& path() const { return path_; }
    std::string operator/(const std::string& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

} // namespace testsupport
