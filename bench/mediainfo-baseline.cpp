// The least a run over a tree with libmediainfo can do: walk the tree (names
// sorted, like sonarcat), and for every file open it with libmediainfo, ask
// for its format and its text report, and close it. The normal-mode
// benchmark compares sonarcat with this loop.
// Usage: mediainfo-baseline PATH
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <dirent.h>
#include <string>
#include <sys/stat.h>
#include <vector>

extern "C" {
void* MediaInfo_New();
size_t MediaInfo_Open(void*, const wchar_t*);
const wchar_t* MediaInfo_Get(void*, int, size_t, const wchar_t*, int, int);
const wchar_t* MediaInfo_Inform(void*, size_t);
void MediaInfo_Close(void*);
void MediaInfo_Delete(void*);
}

namespace {

size_t files = 0, reportChars = 0;

std::wstring widen(const std::string& s)
{
    std::wstring w(s.size() + 1, L'\0');
    size_t n = std::mbstowcs(w.data(), s.c_str(), w.size());
    w.resize(n == static_cast<size_t>(-1) ? 0 : n);
    return w;
}

void probe(const std::string& path)
{
    void* h = MediaInfo_New();
    if (MediaInfo_Open(h, widen(path).c_str())) {
        std::wstring format = MediaInfo_Get(h, 0, 0, L"Format", 1, 0);
        std::wstring report = MediaInfo_Inform(h, 0);
        reportChars += format.size() + report.size();
    }
    MediaInfo_Close(h);
    MediaInfo_Delete(h);
    ++files;
}

void walk(const std::string& dir)
{
    DIR* d = opendir(dir.c_str());
    if (!d) return;
    std::vector<std::string> names;
    while (dirent* e = readdir(d)) {
        std::string n = e->d_name;
        if (n != "." && n != "..") names.push_back(n);
    }
    closedir(d);
    std::sort(names.begin(), names.end());
    for (const std::string& n : names) {
        std::string path = dir + "/" + n;
        struct stat st;
        if (stat(path.c_str(), &st) != 0) continue;
        if (S_ISDIR(st.st_mode)) walk(path);
        else if (S_ISREG(st.st_mode)) probe(path);
    }
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2) {
        std::fprintf(stderr, "usage: mediainfo-baseline PATH\n");
        return 2;
    }
    std::setlocale(LC_ALL, "C.UTF-8");
    walk(argv[1]);
    std::printf("[%s] files[%zu] report characters[%zu]\n", argv[1], files, reportChars);
    return 0;
}
