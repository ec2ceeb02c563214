// census-baseline PATH
//
// The least work a tag census of PATH can do: walk the tree depth first
// with opendir/readdir (entries sorted by name bytes), and for every file
// whose name ends in ".mp3" (any case) open it, read 32 bytes at the start
// and 160 bytes at the end, close it. Prints how many such files it found
// and how many of them could not be read.
// sonarcat --summary is timed against this to see what its own work costs.

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

bool has_mp3_suffix(std::string_view name)
{
    if (name.size() < 4) return false;
    std::string_view ext = name.substr(name.size() - 4);
    auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : c; };
    return ext[0] == '.' && lower(ext[1]) == 'm' && lower(ext[2]) == 'p' && ext[3] == '3';
}

// Returns false if the file could not be opened or read.
bool probe(const std::string& path)
{
    int fd = open(path.c_str(), O_RDONLY);
    if (fd < 0) return false;
    char head[32];
    char tail[160];
    bool ok = read(fd, head, sizeof head) >= 0;
    if (lseek(fd, -160, SEEK_END) >= 0) ok = read(fd, tail, sizeof tail) >= 0 && ok;
    close(fd);
    return ok;
}

struct Counts {
    long files = 0;
    long errors = 0;
};

void walk(const std::string& dir, Counts& counts)
{
    DIR* d = opendir(dir.c_str());
    if (d == nullptr) return;
    std::vector<std::pair<std::string, bool>> entries; // name, is directory
    while (dirent* e = readdir(d)) {
        std::string_view name = e->d_name;
        if (name == "." || name == "..") continue;
        unsigned char type = e->d_type;
        if (type == DT_UNKNOWN) {
            struct stat st;
            if (fstatat(dirfd(d), e->d_name, &st, AT_SYMLINK_NOFOLLOW) != 0) continue;
            type = S_ISDIR(st.st_mode) ? DT_DIR : S_ISREG(st.st_mode) ? DT_REG : DT_UNKNOWN;
        }
        if (type == DT_DIR || (type == DT_REG && has_mp3_suffix(name))) entries.emplace_back(std::string(name), type == DT_DIR);
    }
    closedir(d);
    std::sort(entries.begin(), entries.end()); // std::string orders by unsigned bytes
    for (const auto& [name, is_dir] : entries) {
        std::string path = dir + "/" + name;
        if (is_dir) {
            walk(path, counts);
        } else {
            ++counts.files;
            if (!probe(path)) ++counts.errors;
        }
    }
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: census-baseline PATH\n");
        return 2;
    }
    Counts counts;
    walk(argv[1], counts);
    std::printf("[%s] files[%ld] error[%ld]\n", argv[1], counts.files, counts.errors);
}
