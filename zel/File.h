// A file opened for reading, on an unbuffered POSIX descriptor, which it
// reads at its own place; one opened ahead of its turn also holds the bytes
// read then, and reads them from memory.
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

    // A regular file opened, and some of its bytes read, ahead of its turn
    // (by another thread): its start and a piece before its end.
    struct Ahead {
        int fd = -1;
        unsigned long long size = 0; // when it was opened
        long long modification = 0;  // then, in milliseconds since 1970
        std::string head;            // the bytes from the start
        unsigned long long tailAt = 0;
        std::string tail; // the bytes from tailAt

        Ahead() = default;
        Ahead(Ahead&& other) noexcept;
        Ahead& operator=(Ahead&& other) noexcept;
        ~Ahead();
        // Opens the file as File does; false when it cannot be opened or
        // is not a regular file.
        bool open(const char* nativePath);
        // Reads n bytes from offset (fewer at the end of the file) and
        // appends them to the head when they follow it, else puts them
        // before the tail, where they must end; false on a read error.
        bool keep(unsigned long long offset, size_t n);
    };

    // flags 1: read. Only regular files are opened: anything else (a FIFO,
    // a socket, a device, a directory) throws IOException instead of blocking.
    File(const String& path, int flags, int mode);
    // The file at path, opened ahead: reads within the bytes it holds are
    // served from them, the others from the file. Bytes read ahead in
    // another process come without a descriptor: the file is then opened
    // when a read goes beyond them, and fails there as the path would.
    File(const String& path, Ahead&& ahead);
    ~File() override;
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    // Reads up to n bytes where the file stands, and moves on by as many;
    // returns how many came (fewer only at the end).
    size_t read(void* buffer, size_t n);
    // The same at a place from the start, without moving the file's place.
    size_t readAt(unsigned long long offset, void* buffer, size_t n);
    // origin 0: from the start, 1: from the current place, 2: from the end
    // (its size when opened). A place before the start stops at the start.
    long long seek(long long offset, int origin);
    // The size when it was opened.
    unsigned long long size() const { return size_; }
    const String& path() const { return path_; }
    int descriptor() const { return fd_; }

private:
    // Opens path_: its size; throws IOException as the constructor does.
    unsigned long long open();

    String path_;
    int fd_ = -1;
    unsigned long long size_ = 0;
    unsigned long long place_ = 0;
    Ahead ahead_; // the bytes read ahead, when it was opened ahead
};

} // namespace ZELd
