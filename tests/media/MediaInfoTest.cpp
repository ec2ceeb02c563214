// The MediaInfo probe beyond what the reports show: the durations and the
// content type of audio, and of a file that holds no media.
#define ZEL_SOURCE "tests/media/MediaInfoTest"
#include <gtest/gtest.h>

#include <tuple>

#include "media/MediaInfo.h"
#include "support/TagBuilder.h"
#include "zel/FileName.h"

using namespace ZELd;

TEST(MediaInfo, DurationsAndContentTypes)
{
    MediaInfo::initialize();
    {
        MediaInfo audio(fromNativePath(testsupport::dataFile("tone-2500ms.mp3").c_str()));
        EXPECT_EQ(std::tuple(audio.audioDuration(0), audio.audioDurationAsSeconds(0), audio.videoDurationAsSeconds(0)),
                  std::tuple(2560u, 2u, 0u));
        EXPECT_EQ(audio.contentType().str(), L"audio/mpeg");
        MediaInfo text(fromNativePath(testsupport::dataFile("tagged/README.md").c_str()));
        EXPECT_EQ(std::tuple(text.format().str(), text.contentType().str()),
                  std::tuple(std::wstring(), std::wstring(L"application/octet-stream")));
    }
    MediaInfo::cleanup();
}
