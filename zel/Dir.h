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

#include "zel/Object.h"
#include "zel/String.h"

namespace ZELd {

class Dir : public Object {
public:
    class Entry {
    public:
        const String& name() const { return name_; }
        bool isDir() const { return dir_; }

    private:
        friend class Dir;
        String name_;
        bool dir_ = false;
    };

    // Reads the directory's names; throws IOException when it cannot.
    explicit Dir(const String& path);
    ~Dir() override;
    Dir(const Dir&) = delete;
    Dir& operator=(const Dir&) = delete;

    // The next entry; false at the end.
    bool read(Entry& entry);
    // The name of the entry that comes `ahead` places after the one read
    // last (0: the next one), when the directory lists it as a regular file:
    // read will yield it as a file. False for a directory, a link, an entry
    // of unknown type, or past the end. Nothing is read or traced.
    bool peekRegularFile(size_t ahead, String& name) const;
    // The directory's path, ending with "/".
    const String& path() const { return path_; }

private:
    bool isOpenAbove(dev_t dev, ino_t ino) const;

    String path_;
    std::string names_;           // every name, each ended by a zero byte
    std::vector<uint64_t> order_; // offset in names_ << 8 | d_type, sorted by name
    size_t next_ = 0;
    dev_t dev_ = 0;
    ino_t ino_ = 0;
    Dir* above_ = nullptr; // the directory open before this one
};

} // namespace ZELd
