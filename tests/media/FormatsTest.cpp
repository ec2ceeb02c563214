// The tags of the formats that TagLib reads, as a helper process brings
// them: each sample of data/formats/ gives the properties of expected.tsv, in
// order, and facts (the file without tags gives none), whole across the
// pipe; a damaged copy gives properties or "TagLib Read Failed", never a
// helper's end.
#define ZEL_SOURCE "tests/media/FormatsTest"
#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "media/ProbeHelper.h"
#include "media/ProbeResult.h"
#include "support/FormatSamples.h"
#include "zel/FileName.h"
#include "zel/Utf8.h"

extern char** environ;

using namespace ZELd;

namespace {

using Row = testsupport::PropertyRow;

std::vector<Row> rowsOf(const TagProperties& properties)
{
    std::vector<Row> rows;
    for (const TagProperty& p : properties) rows.emplace_back(toUtf8(p.source.str()), toUtf8(p.key.str()), toUtf8(p.value.str()));
    return rows;
}

using testsupport::expectedProperties;
const auto& expectedOf = testsupport::expectedPropertiesOf;
const auto& sampleNames = testsupport::formatSampleNames;

// Probes the files one after the other in one helper process of the program's, which
// is asked for TagLib's properties as the walk asks: the results, and how it ended.
std::pair<std::vector<ProbeResult>, int> probeInHelper(const std::vector<std::string>& paths)
{
    int in[2], out[2];
    if (::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0) return {std::vector<ProbeResult>(), -1};
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, in[0], STDIN_FILENO);
    ::posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    std::string name = kProbeHelperName, word = kProbeHelperWord;
    char* argv[] = {name.data(), word.data(), nullptr};
    pid_t pid = -1;
    const int spawned = ::posix_spawn(&pid, SONARCAT_BINARY, &actions, nullptr, argv, environ);
    ::posix_spawn_file_actions_destroy(&actions);
    ::close(in[0]), ::close(out[1]);
    // A request: the path's length, what is asked for besides the facts, the path.
    std::string requests, replies;
    for (const std::string& path : paths) {
        const auto length = static_cast<uint32_t>(path.size());
        requests.append(reinterpret_cast<const char*>(&length), sizeof length);
        requests += static_cast<char>(ProbeResult::kProperties);
        requests += path;
    }
    ::signal(SIGPIPE, SIG_IGN); // a helper that is gone fails the write, as in the program
    if (spawned == 0 && ::write(in[1], requests.data(), requests.size()) != static_cast<ssize_t>(requests.size())) ::kill(pid, SIGKILL);
    ::close(in[1]);
    char piece[65536];
    pollfd ready = {out[0], POLLIN, 0};
    for (ssize_t n; spawned == 0 && ::poll(&ready, 1, 120000) == 1 && (n = ::read(out[0], piece, sizeof piece)) > 0;)
        replies.append(piece, n);
    ::close(out[0]);
    int status = -1;
    if (spawned == 0) ::kill(pid, SIGKILL), ::waitpid(pid, &status, 0); // it has ended by now, unless it hangs
    std::vector<ProbeResult> results;
    ProbeResult r;
    for (size_t at = 0, n; at < replies.size() && (n = ProbeResult::decode(replies.data() + at, replies.size() - at, r)) > 0; at += n)
        results.push_back(std::move(r));
    return {std::move(results), status};
}

TEST(FormatsTable, NamesSamplesAndLeavesOneUntagged)
{
    const std::vector<std::string> names = sampleNames();
    for (const auto& [name, rows] : expectedProperties()) EXPECT_TRUE(std::count(names.begin(), names.end(), name)) << name;
    EXPECT_EQ(std::count_if(names.begin(), names.end(), [](const std::string& n) { return !expectedProperties().count(n); }), 1);
}

TEST(FormatsInAHelper, IntactCopiesGiveTheirTagsAndDamagedOnesPropertiesOrAFailure)
{
    const auto noise = [](std::string bytes, size_t from, size_t n) {
        uint32_t x = 2463534242u;
        for (size_t i = from; i < std::min(bytes.size(), from + n); ++i)
            bytes[i] = static_cast<char>((x ^= x << 13, x ^= x >> 17, x ^= x << 5));
        return bytes;
    };
    const struct {
        const char* what;
        std::function<std::string(const std::string&)> damage;
    } copies[] = {
        {"intact", [](const std::string& b) { return b; }},
        {"cut to half", [](const std::string& b) { return b.substr(0, b.size() / 2); }},
        {"FF over bytes 4 to 67", [](std::string b) { return b.replace(4, std::min<size_t>(64, b.size() - 4), 64, '\xFF'); }},
        {"noise over bytes 4 to 67", [&](const std::string& b) { return noise(b, 4, 64); }},
        {"noise over the last 160 bytes", [&](const std::string& b) { return noise(b, b.size() - std::min<size_t>(160, b.size()), 160); }},
    };
    const testsupport::TempDir dir;
    std::vector<std::string> paths, samples, what;
    for (const std::string& name : sampleNames())
        for (size_t i = 0; i < std::size(copies); ++i) {
            paths.push_back(dir / (std::to_string(i) + "-" + name));
            samples.push_back(name);
            what.push_back(name + ", " + copies[i].what);
            testsupport::writeFile(paths.back(), copies[i].damage(testsupport::readFile(testsupport::dataFile("formats/" + name))));
        }
    const auto [results, status] = probeInHelper(paths);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "the helper ended with status " << status;
    ASSERT_EQ(results.size(), paths.size()) << "the helper ended at " << what[std::min(results.size(), what.size() - 1)];
    const std::set<std::string> kinds = {"Xiph", "ID3v2", "APE", "ID3v1", "MP4", "ASF", "RIFF", "Mod"};
    for (size_t i = 0; i < results.size(); ++i) {
        const ProbeResult& r = results[i];
        const std::vector<Row> rows = rowsOf(r.properties);
        if (i % std::size(copies) == 0) {
            EXPECT_EQ(rows, expectedOf(samples[i])) << what[i];
            EXPECT_FALSE(r.failed || r.facts.format.isEmpty() || !r.propertiesFailure.isEmpty()) << what[i];
        } else if (!r.propertiesFailure.isEmpty()) {
            EXPECT_EQ(r.propertiesFailure.str(), L"TagLib Read Failed") << what[i];
            EXPECT_TRUE(rows.empty()) << what[i];
        }
        for (const Row& row : rows) EXPECT_TRUE(kinds.count(std::get<0>(row)) && !std::get<1>(row).empty()) << what[i];
    }
}

} // namespace
