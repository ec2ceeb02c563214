#define ZEL_SOURCE "media/CatalogueUpdate"
#include "media/CatalogueUpdate.h"

#include <unordered_set>

#include "zel/Exception.h"
#include "zel/Files.h"
#include "zel/Utf8.h"

namespace ZELd {

namespace {

// Text as the catalogue stores it.
std::string stored(const String& text) { return toUtf8(text.str(), EscapedBytes::Replace); }

// A LIKE pattern that matches the text itself: "!" escapes the wildcards and itself.
String likeExactly(const String& text)
{
    std::wstring pattern;
    for (wchar_t c : text.str()) {
        if (c == L'!' || c == L'%' || c == L'_') pattern += L'!';
        pattern += c;
    }
    return String(std::move(pattern));
}

// The directory that holds a stored directory ("a/b/" for "a/b/c/").
std::string parentOf(const std::string& dir)
{
    const size_t slash = dir.size() < 2 ? std::string::npos : dir.rfind('/', dir.size() - 2);
    return slash == std::string::npos ? std::string() : dir.substr(0, slash + 1);
}

} // namespace

CatalogueUpdate::CatalogueUpdate(TagStore& store, const String& dir, const String& name)
    : store_(store), root_(name.isEmpty() ? stored(dir) : std::string())
{
    const std::string onlyDir = stored(dir), onlyName = stored(name);
    // LIKE may match without regard to case: what it lets through is checked here.
    store_.readStored(likeExactly(dir) + (name.isEmpty() ? L"%" : L""), [&](StoredFile&& file) {
        if (name.isEmpty() ? file.dir.compare(0, root_.size(), root_) != 0 : file.dir != onlyDir || file.name != onlyName) return;
        const auto [at, added] = stored_.try_emplace(file.dir + file.name);
        Entry& entry = at->second;
        if (!added) return entry.more.push_back(file.id);
        entry.first = file.id;
        entry.size = file.size;
        entry.modified = file.modified;
    });
}

std::vector<RecordId> CatalogueUpdate::Entry::all() const
{
    std::vector<RecordId> ids = more;
    ids.push_back(first);
    return ids;
}

bool CatalogueUpdate::wanted(const String& dir, const String& name)
{
    const auto found = stored_.find(stored(dir + name));
    if (found == stored_.end()) return true;
    Entry& entry = found->second;
    entry.met = true;
    if (!entry.more.empty() || entry.modified < 0) return true; // stored more than once: stored again as one
    const String path = dir + name;
    unsigned long long size;
    try {
        size = Files::size(path);
    } catch (Exception* e) {
        e->destroy(); // the run reads the file and meets the failure there
        return true;
    }
    long long access, modification, creation;
    DateTime modified; // as the run stores it
    if (Files::time(path, access, modification, creation)) modified.assign(modification);
    return entry.size != size || entry.modified != modified.wallClock();
}

std::vector<RecordId> CatalogueUpdate::reading(const String& dir, const String& name)
{
    const auto found = stored_.find(stored(dir + name));
    ++(found == stored_.end() ? new_ : changed_);
    return found == stored_.end() ? std::vector<RecordId>() : found->second.all();
}

void CatalogueUpdate::finish(const std::vector<String>& finished, size_t passed, bool dryRun)
{
    unchanged_ = passed;
    if (root_.empty()) return; // one file: nothing else is looked at
    std::unordered_set<std::string> done;
    for (const String& dir : finished) done.insert(stored(dir));
    for (const auto& [path, entry] : stored_) {
        if (entry.met || !covered(path.substr(0, path.rfind('/') + 1), done)) continue;
        if (dryRun || store_.remove(entry.all())) ++removed_;
    }
}

bool CatalogueUpdate::covered(const std::string& dir, const std::unordered_set<std::string>& done) const
{
    for (std::string at = dir;; at = parentOf(at)) {
        if (done.count(at)) return true;
        if (at.size() <= root_.size()) return false; // up to the walked directory, none was read to its end
    }
}

String CatalogueUpdate::summary() const
{
    return String::format(L"Update: new[%zu] changed[%zu] unchanged[%zu] removed[%zu]", new_, changed_, unchanged_, removed_);
}

} // namespace ZELd
