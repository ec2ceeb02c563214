// Files for the tests: reading and writing whole files, a temporary directory
// removed with its contents, and the trees the tests walk (files, links,
// FIFOs, sockets, deep directories), with the directories on the way made.
#pragma once

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace testsupport {

inline std::string readFile(const std::string& path)
{
    std::ostringstream s;
    s << std::ifstream(path, std::ios::binary).rdbuf();
    return s.str();
}
inline void writeFile(const std::string& path, const std::string& bytes)
{
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}
inline std::string dataFile(const std::string& name) { return std::string(SONARCAT_TEST_DATA) + "/" + name; }

class TempDir {
public:
    TempDir() : path_((std::filesystem::temp_directory_path() / "sonarcat-test-XXXXXX").string())
    {
        path_ = ::mkdtemp(path_.data()) ? path_ : "";
    }
    ~TempDir()
    {
        std::error_code ignored;
        if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    const std::string& path() const { return path_; }
    std::string operator/(const std::string& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

class Tree {
public:
    explicit Tree(std::string root) : root_(std::move(root)) { std::filesystem::create_directories(root_); }
    const std::string& root() const { return root_; }
    std::string operator/(const std::string& relative) const { return root_ + "/" + relative; }

    // Makes the entry at relative: a file holding bytes (kind 'f'), a directory 'd', a FIFO 'p', a socket 's',
    // a symbolic link 'l' or a hard link 'h' to `bytes`. Returns its path.
    std::string make(const std::string& relative, const std::string& bytes = "", char kind = 'f') const
    {
        const std::string path = root_ + "/" + relative;
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        sockaddr_un a{AF_UNIX, {}};
        path.copy(a.sun_path, sizeof a.sun_path - 1);
        const int fd = kind == 's' ? ::socket(AF_UNIX, SOCK_STREAM, 0) : -1;
        switch (kind) {
        case 'd': ::mkdir(path.c_str(), 0755); break;
        case 'p': ::mkfifo(path.c_str(), 0644); break;
        case 's': (void)!::bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a), ::close(fd); break;
        case 'l': (void)!::symlink(bytes.c_str(), path.c_str()); break;
        case 'h': (void)!::link(bytes.c_str(), path.c_str()); break;
        default: writeFile(path, bytes);
        }
        return path;
    }
    std::string file(const std::string& relative, const std::string& bytes) const { return make(relative, bytes); }
    // Directories named name, levels deep below relative, made one below the
    // other since mkdir by path fails beyond PATH_MAX. Returns the innermost.
    std::string nest(const std::string& relative, const std::string& name, size_t levels) const
    {
        std::string path = make(relative, "", 'd');
        int fd = ::open(path.c_str(), O_RDONLY | O_DIRECTORY);
        for (; fd >= 0 && levels > 0; --levels, path += "/" + name) {
            ::mkdirat(fd, name.c_str(), 0755);
            const int next = ::openat(fd, name.c_str(), O_RDONLY | O_DIRECTORY);
            ::close(fd);
            fd = next;
        }
        if (fd >= 0) ::close(fd);
        return path;
    }

private:
    std::string root_;
};

} // namespace testsupport
