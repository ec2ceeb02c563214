#define ZEL_SOURCE "media/MP3Properties"
#include "media/MP3Properties.h"

#include <taglib/id3v1genres.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cwchar>
#include <initializer_list>
#include <map>
#include <optional>
#include <string_view>
#include <vector>

#include "media/APEv2.h"
#include "media/ID3v1.h"
#include "media/ID3v2.h"
#include "media/ID3v2PropertyNames.h"

namespace ZELd {

namespace {

using namespace id3v2properties;

// Keys in the order of TagLib's strings, which compare their UTF-16 units:
// there a character above U+FFFF (two units from D800 up) comes before those
// from U+E000 to U+FFFF.
struct TagLibOrder {
    static char32_t unitOrder(wchar_t c)
    {
        const auto u = static_cast<char32_t>(c);
        return u >= 0xE000 && u <= 0xFFFF ? u + 0x110000 : u;
    }
    bool operator()(const String& a, const String& b) const
    {
        return std::lexicographical_compare(a.str().begin(), a.str().end(), b.str().begin(), b.str().end(),
                                            [](wchar_t x, wchar_t y) { return unitOrder(x) < unitOrder(y); });
    }
};

// One tag's properties, as TagLib's PropertyMap holds them: by key, each
// key's values in the order they were added.
using PropertyMap = std::map<String, std::vector<String>, TagLibOrder>;

// TagLib's APE keys (upper-cased) that it names otherwise.
constexpr std::pair<std::string_view, std::string_view> kApeKeyNames[] = {
    {"TRACK", "TRACKNUMBER"},
    {"YEAR", "DATE"},
    {"ALBUM ARTIST", "ALBUMARTIST"},
    {"DISC", "DISCNUMBER"},
    {"MIXARTIST", "REMIXER"},
    {"MUSICBRAINZ_ALBUMSTATUS", "RELEASESTATUS"},
    {"MUSICBRAINZ_ALBUMTYPE", "RELEASETYPE"},
};
// APE keys that TagLib skips, in any letter case.
constexpr std::string_view kRefusedApeKeys[] = {"ID3", "TAG", "OGGS", "MP+"};
constexpr size_t kShortestApeKey = 2, kLongestApeKey = 255;

constexpr std::string_view kMusicBrainzOwner = "http://musicbrainz.org";

String wide(std::string_view ascii) { return String(std::wstring(ascii.begin(), ascii.end())); }
bool is(const String& s, std::string_view ascii)
{
    return std::equal(s.str().begin(), s.str().end(), ascii.begin(), ascii.end(),
                      [](wchar_t w, char c) { return w == static_cast<wchar_t>(static_cast<unsigned char>(c)); });
}

// As TagLib upper-cases keys: the letters a-z alone.
String upper(String s)
{
    for (wchar_t& c : s.str())
        if (c >= L'a' && c <= L'z') c = static_cast<wchar_t>(c - L'a' + L'A');
    return s;
}

// A number as TagLib reads one (String::toInt): the whole text, after any
// blanks, a sign and decimal digits, within an int.
std::optional<int> number(const String& s)
{
    const wchar_t* begin = s.c_str();
    wchar_t* end = nullptr;
    errno = 0;
    const long value = std::wcstol(begin, &end, 10);
    if (errno != 0 || end == begin || *end != L'\0' || value <= INT_MIN || value >= INT_MAX) return std::nullopt;
    return static_cast<int>(value);
}

// The ID3v1 genre of a number, empty for a number that names none.
String genreName(int n) { return String(TagLib::ID3v1::genre(n).toWString()); }

void add(PropertyMap& map, const String& key, const String& value)
{
    const String trimmed = value.trim();
    if (!trimmed.isEmpty()) map[upper(key)].push_back(trimmed);
}
void add(PropertyMap& map, const String& key, const std::vector<String>& values)
{
    for (const String& value : values) add(map, key, value);
}

// ---- ID3v2 -----------------------------------------------------------------

const PropertyName* nameOf(const String& id, int major)
{
    for (const PropertyName& name : kPropertyNames) {
        if (!name.id22.empty() && is(id, name.id22)) return &name;
        if (!name.id23.empty() && is(id, name.id23) && (name.onlyIn == 0 || name.onlyIn == major)) return &name;
    }
    return nullptr;
}

std::vector<String> textOf(const ID3v2Frame& frame)
{
    std::vector<String> values;
    if (!frame.text().isEmpty()) values.push_back(frame.text());
    const std::vector<String> later = frame.laterValues();
    values.insert(values.end(), later.begin(), later.end());
    return values;
}

// TCON's values as TagLib reads them: "(17)" and "17" are the genre's name;
// "(17)Rock" is "Rock" when genre 17 is Rock, and both names when it is not;
// "(RX)" and "(CR)" are "RX" and "CR"; other codes in brackets are dropped.
std::vector<String> genres(const std::vector<String>& values)
{
    std::vector<String> out;
    for (String s : values) {
        size_t close;
        while (s[0] == L'(' && (close = s.indexOf(L')', 1)) != String::npos) {
            const String code = s.substring(1, close - 1);
            s = s.substring(close + 1);
            const std::optional<int> n = number(code);
            if ((n && *n >= 0 && *n <= 255 && genreName(*n) != s) || code == L"RX" || code == L"CR") out.push_back(code);
        }
        if (!s.isEmpty()) out.push_back(s);
    }
    for (String& genre : out)
        if (const std::optional<int> n = number(genre)) genre = genreName(*n);
    return out;
}

// An ISO 8601 time's 'T' is a space in TagLib's dates.
String dated(String value)
{
    if (const size_t t = value.indexOf(L'T'); t != String::npos) value.str()[t] = L' ';
    return value;
}

// "KEY", or "KEY:DESCRIPTION" for a description that is neither empty nor the key.
String described(std::string_view key, const String& description)
{
    const String d = upper(description);
    return d.isEmpty() || is(d, key) ? wide(key) : wide(key) + L":" + d;
}

// Role (or instrument) and name pairs; the names are lists split by commas.
// A frame with an odd number of values or a role that kRoleNames lacks gives
// nothing.
void addPairs(PropertyMap& map, const PropertyName& name, const std::vector<String>& values)
{
    if (values.size() % 2 != 0) return;
    PropertyMap pairs;
    for (size_t i = 0; i < values.size(); i += 2) {
        String key;
        if (name.rule == PropertyRule::Musicians) key = wide(name.key) + L":" + upper(values[i]);
        for (const auto& [role, roleName] : kRoleNames)
            if (name.rule == PropertyRule::InvolvedPeople && is(values[i], role)) key = wide(roleName);
        if (key.isEmpty()) return;
        const std::wstring& names = values[i + 1].str();
        for (size_t at = 0; at <= names.size();) {
            const size_t comma = std::min(names.find(L',', at), names.size());
            add(pairs, key, String(names.substr(at, comma - at)));
            at = comma + 1;
        }
    }
    for (const auto& [key, names] : pairs) add(map, key, names);
}

void addFrame(PropertyMap& map, const PropertyName& name, const ID3v2Frame& frame)
{
    const String key = wide(name.key);
    switch (name.rule) {
    case PropertyRule::Text: add(map, key, textOf(frame)); break;
    case PropertyRule::Genre: add(map, key, genres(textOf(frame))); break;
    case PropertyRule::Date:
        for (const String& value : textOf(frame)) add(map, key, dated(value));
        break;
    case PropertyRule::BodyText: add(map, key, frame.textValues(frame.binary())); break;
    case PropertyRule::UserText: {
        // TagLib reads a TXXX without a description as if its first value were one.
        if (frame.description().isEmpty()) break;
        String userKey = upper(frame.description());
        for (const auto& [description, translated] : kUserTextNames)
            if (is(userKey, description)) userKey = wide(translated);
        add(map, userKey, textOf(frame));
        break;
    }
    case PropertyRule::Described: add(map, described(name.key, frame.description()), frame.text()); break;
    case PropertyRule::Url: add(map, key, frame.url()); break;
    case PropertyRule::DescribedUrl: add(map, described(name.key, frame.description()), frame.url()); break;
    case PropertyRule::MusicBrainzFile:
        if (is(frame.url(), kMusicBrainzOwner)) add(map, key, frame.text());
        break;
    case PropertyRule::InvolvedPeople:
    case PropertyRule::Musicians: addPairs(map, name, textOf(frame)); break;
    }
}

// The one frame of the ids, null when there is none or more than one.
const ID3v2Frame* single(const ID3v2& tag, std::initializer_list<std::string_view> ids)
{
    const ID3v2Frame* found = nullptr;
    for (const ID3v2Frame* frame : tag.frames())
        for (std::string_view id : ids)
            if (is(frame->id(), id)) {
                if (found) return nullptr;
                found = frame;
            }
    return found;
}

// Below ID3v2.4, TagLib joins a year of four characters (the one TYER or
// TDRC) and the one TDAT ("DDMM") into "YYYY-MM-DD", and the one TIME
// ("HHMM") to that, as ID3v2.4's TDRC holds them.
void joinDate(const ID3v2& tag, PropertyMap& map)
{
    if (tag.version() >= 4) return;
    const ID3v2Frame *year = single(tag, {"TYER", "TDRC"}), *day = single(tag, {"TDAT"}), *time = single(tag, {"TIME"});
    if (!year || !day || !year->laterValues().empty() || year->text().length() != 4 || day->text().length() != 4) return;
    const std::wstring &yyyy = year->text().str(), &ddmm = day->text().str(), &hhmm = time ? time->text().str() : std::wstring();
    std::wstring date = yyyy + L'-' + ddmm.substr(2, 2) + L'-' + ddmm.substr(0, 2);
    if (hhmm.size() == 4) date += L'T' + hhmm.substr(0, 2) + L':' + hhmm.substr(2, 2);
    map[L"DATE"] = {dated(date)};
}

PropertyMap id3v2Properties(const ID3v2& tag)
{
    PropertyMap map;
    for (const ID3v2Frame* frame : tag.frames())
        if (const PropertyName* name = nameOf(frame->id(), tag.version())) addFrame(map, *name, *frame);
    joinDate(tag, map);
    return map;
}

// ---- APE -------------------------------------------------------------------

// Printable ASCII of 2 to 255 characters, none of the keys TagLib refuses.
bool isApeKey(const String& key)
{
    if (key.length() < kShortestApeKey || key.length() > kLongestApeKey) return false;
    for (wchar_t c : key.str())
        if (c < L' ' || c > L'~') return false;
    for (std::string_view refused : kRefusedApeKeys)
        if (is(upper(key), refused)) return false;
    return true;
}

PropertyMap apeProperties(const APEv2& tag)
{
    // As TagLib holds the items: by key in capitals, the last of a key kept.
    std::map<String, const APEv2Item*> items;
    for (const APEv2Item* item : tag.items())
        if (isApeKey(item->key())) items[upper(item->key())] = item;
    PropertyMap map;
    for (const auto& [itemKey, item] : items) {
        if ((item->flags() & 6) != 0) continue; // binary values and locators
        String key = itemKey;
        for (const auto& [apeKey, name] : kApeKeyNames)
            if (is(key, apeKey)) key = wide(name);
        add(map, key, item->value());
        add(map, key, item->laterValues());
    }
    return map;
}

// ---- ID3v1 -----------------------------------------------------------------

PropertyMap id3v1Properties(const ID3v1& tag)
{
    PropertyMap map;
    if (tag.version() != 1) return map;
    add(map, L"TITLE", tag.title());
    add(map, L"ARTIST", tag.artist());
    add(map, L"ALBUM", tag.album());
    add(map, L"COMMENT", tag.comment());
    add(map, L"GENRE", genreName(static_cast<unsigned char>(tag.genre())));
    // The digits the year begins with; no year reads as 0, which TagLib leaves out.
    if (const long year = std::wcstol(tag.year().c_str(), nullptr, 10)) add(map, L"DATE", String::valueOf(static_cast<int>(year)));
    if (const int track = static_cast<unsigned char>(tag.track())) add(map, L"TRACKNUMBER", String::valueOf(track));
    return map;
}

void append(TagProperties& out, const wchar_t* source, const PropertyMap& map)
{
    for (const auto& [key, values] : map)
        for (const String& value : values) out.push_back({source, key, value});
}

} // namespace

TagProperties mp3Properties(const ID3v2& id3v2, const APEv2& ape, const ID3v1& id3v1)
{
    TagProperties out;
    append(out, L"ID3v2", id3v2Properties(id3v2));
    append(out, L"APE", apeProperties(ape));
    append(out, L"ID3v1", id3v1Properties(id3v1));
    return out;
}

} // namespace ZELd
