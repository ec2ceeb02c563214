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
        size_t index_ = 0; // in the directory's order
    };

    // A directory's entries read ahead of the walk's turn (by another
    // thread): its descriptor, its names in order, and what each entry that
    // is not a directory is, looked at through the descriptor.
    struct Listing {
        int fd = -1;
        std::string names;
        std::vector<uint64_t> order;
        std::vector<FileFacts> facts; // one for each entry of order; a directory's is not looked at

        Listing() = default;
        Listing(Listing&& other) noexcept;
        Listing& operator=(Listing&& other) noexcept;
        ~Listing();
        // Reads the directory at the native path; false when it cannot be
        // opened or read (the walk then meets the failure itself).
        bool read(const char* nativePath);
        // The names of the entries that are directories (not links), in order.
        std::vector<std::string> subdirectories() const;
    };

    // Reads the directory's names; throws IOException when it cannot.
    explicit Dir(const String& path);
    // The directory at path, as it was read ahead.
    Dir(const String& path, Listing&& listing);
    ~Dir() override;
    Dir(const Dir&) = delete;
    Dir& operator=(const Dir&) = delete;

    // The next entry; false at the end.
    bool read(Entry& entry);
    // The directory's path, ending with "/".
    const String& path() const { return path_; }
    // The names of the entries that are directories (not links), in order.
    std::vector<std::string> subdirectories() const;
    // What an entry that read gave is (Files::examine), looked at once:
    // through the open directory, unless read had to look already.
    FileFacts examine(const Entry& entry) const;

private:
    bool isOpenAbove(dev_t dev, ino_t ino) const;
    // Keeps the directory's descriptor for the looks at its entries, when
    // not too many are kept, and joins the chain of open directories.
    void hold(int fd);

    String path_;
    std::string names_;           // every name, each ended by a zero byte
    std::vector<uint64_t> order_; // offset in names_ << 8 | d_type, sorted by name
    size_t next_ = 0;
    // Looks at the entry at index of the order, named name.
    FileFacts lookAt(size_t index, const char* name) const;
    std::vector<FileFacts> looked_; // the entries' looks, when the directory was read ahead

    int fd_ = -1;        // open for the looks at its entries; -1 in a tree too deep to hold them all
    std::string native_; // else its path as the system takes it, ending with "/"
    // Which directory it is, looked at when a link to a directory is met.
    mutable bool identified_ = false;
    mutable dev_t dev_ = 0;
    mutable ino_t ino_ = 0;
    Dir* above_ = nullptr; // the directory open before this one
};

} // namespace ZELd
