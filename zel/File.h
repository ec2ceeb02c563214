// A file opened for reading, on an unbuffered POSIX descriptor.
#pragma once

#include <cstddef>
#include <string>

#include "zel/Object.h"
#include "zel/String.h"

namespace ZELd {

class File : public Object {
public:
    static constexpr int kRead = 1;    // the flags of a file opened for reading
    static constexpr int kMode = 0666; // the permission bits, were the file made

    // flags 1: read. Only regular files are opened: anything else (a FIFO,
    // a socket, a device, a directory) throws IOException instead of blocking.
    File(const String& path, int flags, int mode);
    ~File() override;
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    // Reads up to n bytes; returns how many came (fewer only at the end).
    size_t read(void* buffer, size_t n);
    // The same at a place from the start, without moving the file's place.
    size_t readAt(unsigned long long offset, void* buffer, size_t n);
    // origin 0: from the start, 1: from the current place, 2: from the end.
    // A place before the start of the file stops at the start.
    long long seek(long long offset, int origin);
    // The size when it was opened.
    unsigned long long size() const { return size_; }
    const String& path() const { return path_; }
    int descriptor() const { return fd_; }

private:
    String path_;
    int fd_ = -1;
    unsigned long long size_ = 0;
};

} // namespace ZELd
