// The entries of one directory, sorted by name in byte order, never "." and "..".
//
// A symbolic link to a directory is yielded as a directory, except when it
// leads to a directory that is open higher up in the same walk: such an entry
// is skipped with a trace, so link loops end. A dangling link is a file.
#pragma once

#include <cstdint>
#include <string>
#include <sys/types.h>
#include <vector>

#include "zel/Files.h"
#include "zel/Object.h"
#include "zel/String.h"

namespace ZELd {

class Dir : public Object {
public:
    class Entry {
    public:
        const String& name() const { return name_; }
        // The name's bytes, held by the directory that gave the entry.
        const char* nativeName() const { return native_; }
        bool isDir() const { return dir_; }

    private:
        friend class Dir;
        String name_;
        const char* native_ = nullptr;
        bool dir_ = false;
        bool examined_ = false; // facts_ holds the entry's look (a link, a type the listing did not give)
        FileFacts facts_;
    };

    // Reads the directory's names; throws IOException when it cannot.
    explicit Dir(const String& path);
    ~Dir() override;
    Dir(const Dir&) = delete;
    Dir& operator=(const Dir&) = delete;

    // The next entry; false at the end.
    bool read(Entry& entry);
    // The directory's path, ending with "/".
    const String& path() const { return path_; }
    // What an entry that read gave is (Files::examine), looked at once:
    // through the open directory, unless read had to look already.
    FileFacts examine(const Entry& entry) const;

private:
    bool isOpenAbove(dev_t dev, ino_t ino) const;

    String path_;
    std::string names_;           // every name, each ended by a zero byte
    std::vector<uint64_t> order_; // offset in names_ << 8 | d_type, sorted by name
    size_t next_ = 0;
    // Looks at an entry by its name's bytes.
    FileFacts lookAt(const char* name) const;

    int fd_ = -1;        // open for the looks at its entries; -1 in a tree too deep to hold them all
    std::string native_; // else its path as the system takes it, ending with "/"
    // Which directory it is, looked at when a link to a directory is met.
    mutable bool identified_ = false;
    mutable dev_t dev_ = 0;
    mutable ino_t ino_ = 0;
    Dir* above_ = nullptr; // the directory open before this one
};

} // namespace ZELd
