// The names that TagLib 1.13 gives the values of ID3v2 frames: the names of
// its Frame class, under the ids that its frame factory gives ID3v2.2 and 2.3
// frames, and the frames it names itself (TXXX, WXXX, USLT, UFID, TIPL, TMCL).
// One row per kind of frame, as the frame table (media/ID3v2FrameKinds.h) has
// them; a frame whose id has no row gives no property. A new name is one more
// row.
//
// TagLib names these frames too, but they give nothing here: PCST (a name
// without values), WFED (a text frame that the frame reader takes for a URL),
// WCM (made WCOM, which TagLib does not name).
#pragma once

#include <cstdint>
#include <string_view>
#include <utility>

namespace ZELd {

// Which values of a frame a row names, and how.
enum class PropertyRule : uint8_t {
    Text,            // text() and laterValues()
    Genre,           // as Text; ID3v1 genre numbers ("17", "(17)", "(17)Rock") made names
    Date,            // as Text; the first 'T' of a value (ISO 8601's) made a space
    BodyText,        // the text values of binary(): frames kept whole that some programs write as text
    UserText,        // TXXX: text() and laterValues() under the description, upper-cased or translated (kUserTextNames)
    Described,       // text() under the key, or under "KEY:DESCRIPTION" when the description is some other
    Url,             // url() under the key
    DescribedUrl,    // url() under the key, or under "KEY:DESCRIPTION" when the description is some other
    MusicBrainzFile, // UFID: text() under the key when the owner (url()) is MusicBrainz
    InvolvedPeople,  // role and name pairs of the roles kRoleNames lists: the names under the role's name
    Musicians,       // instrument and name pairs: the names under "KEY:INSTRUMENT"
};

struct PropertyName {
    std::string_view id22; // the id in ID3v2.2 tags, empty when the kind has none
    std::string_view id23; // the id in ID3v2.3 and 2.4 tags, empty when the kind has none
    std::string_view key;  // TagLib's name, as it stands or as the rule uses it
    PropertyRule rule;
    uint8_t onlyIn = 0; // 3 or 4: id23 is named only in tags of that major version
};

namespace id3v2properties {

using enum PropertyRule;

inline constexpr PropertyName kPropertyNames[] = {
    {"TAL", "TALB", "ALBUM", Text},
    {"TBP", "TBPM", "BPM", Text},
    {"TCM", "TCOM", "COMPOSER", Text},
    {"TCO", "TCON", "GENRE", Genre},
    {"TCR", "TCOP", "COPYRIGHT", Text},
    {"", "TDEN", "ENCODINGTIME", Text},
    {"TDY", "TDLY", "PLAYLISTDELAY", Text},
    {"TOR", "TDOR", "ORIGINALDATE", Text},
    {"", "TORY", "ORIGINALDATE", Text, 3},
    {"TRD", "TDRC", "DATE", Date},
    {"TYE", "TYER", "DATE", Date},
    {"", "TDAT", "DATE", Date, 4}, // ID3v2.3's TDAT and TIME: see joinDate in media/MP3Properties.cpp
    {"", "TIME", "DATE", Date, 4},
    {"", "TRDA", "DATE", Date, 4},
    {"", "TRDC", "DATE", Date, 4},
    {"TDR", "TDRL", "RELEASEDATE", Text},
    {"", "TDTG", "TAGGINGDATE", Text},
    {"TEN", "TENC", "ENCODEDBY", Text},
    {"", "TEXT", "LYRICIST", Text},
    {"TFT", "TFLT", "FILETYPE", Text},
    {"TT1", "TIT1", "WORK", Text},
    {"TT2", "TIT2", "TITLE", Text},
    {"TT3", "TIT3", "SUBTITLE", Text},
    {"TKE", "TKEY", "INITIALKEY", Text},
    {"TLA", "TLAN", "LANGUAGE", Text},
    {"TLE", "TLEN", "LENGTH", Text},
    {"TMT", "TMED", "MEDIA", Text},
    {"", "TMOO", "MOOD", Text},
    {"TOA", "TOAL", "ORIGINALALBUM", Text},
    {"TOT", "", "ORIGINALALBUM", Text},
    {"TOF", "TOFN", "ORIGINALFILENAME", Text},
    {"TOL", "TOLY", "ORIGINALLYRICIST", Text},
    {"TXT", "", "ORIGINALLYRICIST", Text},
    {"", "TOPE", "ORIGINALARTIST", Text},
    {"", "TOWN", "OWNER", Text},
    {"TP1", "TPE1", "ARTIST", Text},
    {"TP2", "TPE2", "ALBUMARTIST", Text},
    {"TP3", "TPE3", "CONDUCTOR", Text},
    {"TP4", "TPE4", "REMIXER", Text},
    {"TPA", "TPOS", "DISCNUMBER", Text},
    {"", "TPRO", "PRODUCEDNOTICE", Text},
    {"TPB", "TPUB", "LABEL", Text},
    {"TRK", "TRCK", "TRACKNUMBER", Text},
    {"", "TRSN", "RADIOSTATION", Text},
    {"", "TRSO", "RADIOSTATIONOWNER", Text},
    {"TSA", "TSOA", "ALBUMSORT", Text},
    {"TSC", "TSOC", "COMPOSERSORT", Text},
    {"TSP", "TSOP", "ARTISTSORT", Text},
    {"TST", "TSOT", "TITLESORT", Text},
    {"TS2", "TSO2", "ALBUMARTISTSORT", Text},
    {"TRC", "TSRC", "ISRC", Text},
    {"TSS", "TSSE", "ENCODING", Text},
    {"TCP", "TCMP", "COMPILATION", Text},
    {"TCT", "TCAT", "PODCASTCATEGORY", Text},
    {"TDS", "TDES", "PODCASTDESC", Text},
    {"TID", "TGID", "PODCASTID", Text},
    {"MVN", "MVNM", "MOVEMENTNAME", BodyText},
    {"MVI", "MVIN", "MOVEMENTNUMBER", BodyText},
    {"GP1", "GRP1", "GROUPING", BodyText},
    {"TXX", "TXXX", "", UserText},
    {"COM", "COMM", "COMMENT", Described},
    {"ULT", "USLT", "LYRICS", Described},
    {"", "WCOP", "COPYRIGHTURL", Url},
    {"WCP", "", "COPYRIGHTURL", Url},
    {"WAF", "WOAF", "FILEWEBPAGE", Url},
    {"WAR", "WOAR", "ARTISTWEBPAGE", Url},
    {"WAS", "WOAS", "AUDIOSOURCEWEBPAGE", Url},
    {"", "WORS", "RADIOSTATIONWEBPAGE", Url},
    {"", "WPAY", "PAYMENTWEBPAGE", Url},
    {"WPB", "WPUB", "PUBLISHERWEBPAGE", Url},
    {"WXX", "WXXX", "URL", DescribedUrl},
    {"UFI", "UFID", "MUSICBRAINZ_TRACKID", MusicBrainzFile},
    {"IPL", "TIPL", "", InvolvedPeople},
    {"", "IPLS", "", InvolvedPeople, 3},
    {"", "TMCL", "PERFORMER", Musicians},
};

// TXXX descriptions (upper-cased) that TagLib names otherwise; the others
// name their values themselves.
inline constexpr std::pair<std::string_view, std::string_view> kUserTextNames[] = {
    {"MUSICBRAINZ ALBUM ID", "MUSICBRAINZ_ALBUMID"},
    {"MUSICBRAINZ ARTIST ID", "MUSICBRAINZ_ARTISTID"},
    {"MUSICBRAINZ ALBUM ARTIST ID", "MUSICBRAINZ_ALBUMARTISTID"},
    {"MUSICBRAINZ ALBUM RELEASE COUNTRY", "RELEASECOUNTRY"},
    {"MUSICBRAINZ ALBUM STATUS", "RELEASESTATUS"},
    {"MUSICBRAINZ ALBUM TYPE", "RELEASETYPE"},
    {"MUSICBRAINZ RELEASE GROUP ID", "MUSICBRAINZ_RELEASEGROUPID"},
    {"MUSICBRAINZ RELEASE TRACK ID", "MUSICBRAINZ_RELEASETRACKID"},
    {"MUSICBRAINZ WORK ID", "MUSICBRAINZ_WORKID"},
    {"ACOUSTID ID", "ACOUSTID_ID"},
    {"ACOUSTID FINGERPRINT", "ACOUSTID_FINGERPRINT"},
    {"MUSICIP PUID", "MUSICIP_PUID"},
};

// The roles of TIPL and IPLS (as written, letter case included) and their names.
inline constexpr std::pair<std::string_view, std::string_view> kRoleNames[] = {
    {"ARRANGER", "ARRANGER"}, {"ENGINEER", "ENGINEER"}, {"PRODUCER", "PRODUCER"}, {"DJ-MIX", "DJMIXER"}, {"MIX", "MIXER"},
};

} // namespace id3v2properties

} // namespace ZELd
