// One file's handle on the MediaInfo library, which is loaded at run time.
#pragma once

#include <cstdint>

#include "zel/Files.h"
#include "zel/Object.h"
#include "zel/String.h"

namespace ZELd {

class MediaInfo : public Object {
public:
    // Loads the library when it is not loaded; throws DllException when it cannot be.
    static void initialize();
    // Releases the program's hold on the library.
    static void cleanup();

    // Opens the file; throws IOException "MediaInfo Open Failed" when the library
    // cannot open it, or when it is not a regular file (a FIFO would block).
    explicit MediaInfo(const String& path);
    // The same, with the file as the caller just looked at it (Files::examine);
    // fd: the file, opened by the caller for reading (it stays the caller's),
    // or -1: opened here.
    MediaInfo(const String& path, const FileFacts& facts, int fd = -1);
    ~MediaInfo() override;
    MediaInfo(const MediaInfo&) = delete;
    MediaInfo& operator=(const MediaInfo&) = delete;

    // The library's full text report.
    String inform() const;
    // The report without the line naming the file, without carriage returns,
    // runs of blanks and blanks before colons.
    String inform_r() const;
    String option(const wchar_t* option, const wchar_t* value) const;

    String format() const;
    uint64_t fileSize() const;
    uint32_t videoCount() const;
    uint32_t audioCount() const;
    uint32_t imageCount() const;
    String videoFormat(uint64_t n) const;
    uint32_t videoWidth(uint64_t n) const;
    uint32_t videoHeight(uint64_t n) const;
    uint64_t videoDuration(uint64_t n) const; // milliseconds
    uint64_t videoDurationAsSeconds(uint64_t n) const;
    String audioFormat(uint64_t n) const;
    uint64_t audioDuration(uint64_t n) const; // milliseconds
    uint64_t audioDurationAsSeconds(uint64_t n) const;
    String imageFormat(uint64_t n) const;
    uint32_t imageWidth(uint64_t n) const;
    uint32_t imageHeight(uint64_t n) const;

    // "audio/mpeg", "video/mp4", "image/jpeg", "application/octet-stream", ...
    String contentType() const;

private:
    String get(int streamKind, uint64_t number, const wchar_t* parameter) const;

    void* handle_ = nullptr;
};

} // namespace ZELd
