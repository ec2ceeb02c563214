// How fast a typical ID3v2.3 tag is read: 30 text frames and a 50 KB picture,
// read from an in-memory file (memfd) into a fresh ID3v2 object each time.
// Reports tags per second and frames per second.
#define ZEL_SOURCE "bench/id3v2-parse"
#include <benchmark/benchmark.h>

#include <string>
#include <sys/mman.h>
#include <unistd.h>

#include "media/ID3v2.h"
#include "zel/File.h"
#include "zel/FileName.h"

using namespace ZELd;

namespace {

std::string be32(uint32_t v) { return {char(v >> 24), char(v >> 16), char(v >> 8), char(v)}; }

std::string frame(const std::string& id, const std::string& body) { return id + be32(uint32_t(body.size())) + std::string(2, '\0') + body; }

std::string typicalTag()
{
    const char* ids[] = {"TIT2", "TPE1", "TALB", "TYER", "TCON", "TRCK", "TPOS", "TCOM", "TPE2", "TENC"};
    std::string body;
    for (int i = 0; i < 30; ++i) {
        std::string text = std::string(1, '\x01') + "\xff\xfe";
        for (char c : std::string("Some text value number ") + std::to_string(i)) text += std::string{c, '\0'};
        body += frame(ids[i % 10], text + std::string(2, '\0'));
    }
    std::string picture(50 * 1024, '\0');
    for (size_t i = 0; i < picture.size(); ++i) picture[i] = char(i * 31 + 7);
    body += frame("APIC", std::string("\0image/jpeg\0\x03"
                                      "cover\0",
                                      19) +
                              picture);
    body += std::string(1024, '\0'); // padding
    std::string size = {char((body.size() >> 21) & 0x7F), char((body.size() >> 14) & 0x7F), char((body.size() >> 7) & 0x7F),
                        char(body.size() & 0x7F)};
    return std::string("ID3\x03\0\0", 6) + size + body;
}

void BM_ReadTypicalTag(benchmark::State& state)
{
    const std::string tag = typicalTag();
    int fd = memfd_create("tag", 0);
    if (fd < 0 || write(fd, tag.data(), tag.size()) != ssize_t(tag.size())) {
        state.SkipWithError("memfd");
        return;
    }
    File file(fromNativePath(("/proc/self/fd/" + std::to_string(fd)).c_str()), 1, 438);
    size_t frames = 0;
    for (auto _ : state) {
        ID3v2 id3;
        char header[10];
        file.seek(0, 0);
        file.read(header, sizeof header);
        if (!id3.read(file, header)) state.SkipWithError("tag not read");
        frames += id3.frames().size();
        benchmark::DoNotOptimize(id3.frames()[0]);
    }
    state.counters["tags/s"] = benchmark::Counter(double(state.iterations()), benchmark::Counter::kIsRate);
    state.counters["frames/s"] = benchmark::Counter(double(frames), benchmark::Counter::kIsRate);
    close(fd);
}
BENCHMARK(BM_ReadTypicalTag);

} // namespace

BENCHMARK_MAIN();
