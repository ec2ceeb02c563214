#define ZEL_SOURCE "media/CatalogueUpdate"
#include "media/CatalogueUpdate.h"

#include "media/Catalogue.h"
#include "zel/DateTime.h"
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

CatalogueUpdate::CatalogueUpdate(Catalogue& catalogue, const String& dir, const String& name)
    : catalogue_(catalogue), root_(name.isEmpty() ? stored(dir) : std::string())
{
    const std::string onlyDir = stored(dir);
    // LIKE may match without regard to case: what it lets through is checked here.
    catalogue_.readDirectories(likeExactly(dir) + (name.isEmpty() ? L"%" : L""), [&](std::string&& path, int32_t dirId) {
        if (name.isEmpty() ? path.compare(0, root_.size(), root_) == 0 : path == onlyDir) rows_[std::move(path)].push_back(dirId);
    });
}

std::vector<RecordId> CatalogueUpdate::Entry::all() const
{
    std::vector<RecordId> ids = more;
    ids.push_back(first);
    return ids;
}

CatalogueUpdate::Records CatalogueUpdate::recordsOf(const std::string& dir) const
{
    Records records;
    const auto rows = rows_.find(dir);
    if (rows == rows_.end()) return records;
    for (const int32_t dirId : rows->second)
        catalogue_.readFiles(dirId, [&](StoredFile&& file) {
            const auto [at, added] = records.try_emplace(std::move(file.name));
            Entry& entry = at->second;
            if (!added) return entry.more.push_back(file.id);
            entry.first = file.id;
            entry.size = file.size;
            entry.modified = file.modified;
        });
    return records;
}

void CatalogueUpdate::entered(const String& dir)
{
    OpenDirectory& opened = open_.emplace_back();
    opened.dir = stored(dir);
    entered_.insert(opened.dir);
    opened.records = recordsOf(opened.dir);
}

void CatalogueUpdate::judge(WalkedFile& file)
{
    const std::string name = stored(file.name);
    file.stored = open_.back().dir + name;
    Records& records = open_.back().records;
    const auto found = records.find(name);
    if (found == records.end()) {
        file.verdict = WalkedFile::Verdict::New;
        ++new_;
        return;
    }
    Entry& entry = found->second;
    entry.met = true;
    DateTime modified; // as the run stores it
    if (file.facts.known()) modified.assign(file.facts.modification);
    // Stored more than once: stored again as one. A file that cannot be looked at is read, and meets its failure there.
    // Stored before the catalogue had TAG_PROPERTY: read again for its properties.
    if (entry.more.empty() && entry.modified >= 0 && file.facts.known() && entry.size == file.facts.size &&
        entry.modified == modified.wallClock() && !catalogue_.propertiesAdded()) {
        file.verdict = WalkedFile::Verdict::Unchanged;
        ++unchanged_;
        return;
    }
    file.verdict = WalkedFile::Verdict::Changed;
    file.replaced = entry.all();
    ++changed_;
}

void CatalogueUpdate::left(const String&, bool finished)
{
    OpenDirectory& dir = open_.back();
    if (finished) {
        finished_.insert(dir.dir);
        for (const auto& [name, entry] : dir.records)
            if (!entry.met) gone_.push_back(entry.all());
    }
    open_.pop_back();
}

void CatalogueUpdate::finish(bool dryRun)
{
    if (root_.empty()) return; // one file: nothing else is looked at
    // The directories that are gone, where the walk read one above them to its end.
    for (const auto& [dir, rows] : rows_) {
        if (entered_.count(dir) || !covered(dir)) continue;
        for (const auto& [name, entry] : recordsOf(dir)) gone_.push_back(entry.all());
    }
    for (const std::vector<RecordId>& records : gone_)
        if (dryRun || catalogue_.inTransaction([&] { catalogue_.deleteRecords(records); })) ++removed_;
}

bool CatalogueUpdate::covered(const std::string& dir) const
{
    for (std::string at = parentOf(dir); at.size() >= root_.size(); at = parentOf(at))
        if (finished_.count(at)) return true;
    return false;
}

String CatalogueUpdate::summary() const
{
    return String::format(L"Update: new[%zu] changed[%zu] unchanged[%zu] removed[%zu]", new_, changed_, unchanged_, removed_);
}

} // namespace ZELd
