// The MediaInfo probe on real audio and on what it must refuse.
#define ZEL_SOURCE "tests/media/MediaInfoTest"
#include <gtest/gtest.h>

#include <sys/stat.h>

#include "media/MediaInfo.h"
#include "support/TempDir.h"
#include "zel/Exception.h"
#include "zel/FileName.h"

using namespace ZELd;

namespace {

class MediaInfoProbe : public ::testing::Test {
protected:
    static void SetUpTestSuite() { MediaInfo::initialize(); }
    static void TearDownTestSuite() { MediaInfo::cleanup(); }
    static String sample(const char* name) { return fromNativePath((std::string(SONARCAT_TEST_DATA) + "/" + name).c_str()); }
};

struct Sample {
    const char* name;
    uint64_t seconds;
};

TEST_F(MediaInfoProbe, LameSamplesAreMpegAudioWithTheirDuration)
{
    // Whole seconds of what the library reports (1045, 3030 and 2560 ms).
    for (const Sample& s : {Sample{"sine-1s.mp3", 1}, Sample{"sine-3s-stereo.mp3", 3}, Sample{"tone-2500ms.mp3", 2}}) {
        SCOPED_TRACE(s.name);
        MediaInfo mi(sample(s.name));
        EXPECT_EQ(mi.format(), String(L"MPEG Audio"));
        EXPECT_EQ(mi.audioCount(), 1u);
        EXPECT_EQ(mi.videoCount(), 0u);
        EXPECT_EQ(mi.imageCount(), 0u);
        EXPECT_EQ(mi.audioDurationAsSeconds(0), s.seconds);
        EXPECT_EQ(mi.audioDuration(0) / 1000, s.seconds);
        EXPECT_EQ(mi.videoDurationAsSeconds(0), 0u) << "no video stream gives 0";
        EXPECT_EQ(mi.contentType(), String(L"audio/mpeg"));
    }
}

TEST_F(MediaInfoProbe, CleanedReportKeepsTheFactsAndDropsTheNoise)
{
    MediaInfo mi(sample("sine-3s-stereo.mp3"));
    String raw = mi.inform();
    String report = mi.inform_r();
    ASSERT_NE(raw.str().find(L"Complete name"), std::wstring::npos) << "the raw report names the file";
    const std::wstring& r = report.str();
    EXPECT_EQ(r.find(L"Complete name"), std::wstring::npos);
    EXPECT_EQ(r.find(L'\r'), std::wstring::npos);
    EXPECT_EQ(r.find(L"  "), std::wstring::npos);
    EXPECT_EQ(r.find(L" :"), std::wstring::npos);
    EXPECT_EQ(r.find(L"sine-3s-stereo"), std::wstring::npos);
    EXPECT_EQ(r.rfind(L"General\nFormat: MPEG Audio\n", 0), 0u) << report.c_str();
    EXPECT_NE(r.find(L"\nAudio\n"), std::wstring::npos);
    EXPECT_NE(r.find(L"Channel(s): 2 channels"), std::wstring::npos);
    EXPECT_NE(r.back(), L'\n') << "trimmed at the end";
}

TEST_F(MediaInfoProbe, WhatIsNotARegularFileIsRefusedAtOnce)
{
    testsupport::TempDir dir;
    const std::string fifo = dir / "pipe.mp3";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0644), 0);
    const std::string cases[] = {fifo, dir.path(), dir / "missing.mp3"};
    for (const std::string& path : cases) {
        String p = fromNativePath(path.c_str());
        try {
            MediaInfo mi(p);
            ADD_FAILURE() << "opened " << path;
        } catch (Exception* e) {
            EXPECT_NE(e->toString().str().find(L"MediaInfo Open Failed"), std::wstring::npos);
            EXPECT_NE(e->toString().str().find(p.str()), std::wstring::npos) << "the message names the file";
            e->destroy();
        }
    }
}

TEST_F(MediaInfoProbe, FileTheLibraryCannotReadGivesAnEmptyFormat)
{
    testsupport::TempDir dir;
    const std::string text = dir / "notes.txt";
    FILE* f = fopen(text.c_str(), "w");
    fputs("plain words, no media here\n", f);
    fclose(f);
    MediaInfo mi(fromNativePath(text.c_str()));
    EXPECT_EQ(mi.format(), String());
    EXPECT_EQ(mi.audioCount(), 0u);
    EXPECT_EQ(mi.contentType(), String(L"application/octet-stream"));
}

} // namespace
