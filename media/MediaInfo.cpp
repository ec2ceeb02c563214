#define ZEL_SOURCE "media/MediaInfo"
#include "media/MediaInfo.h"

#include <cerrno>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

#include "media/ProbedFile.h"
#include "zel/Debug.h"
#include "zel/Exception.h"
#include "zel/FileName.h"
#include "zel/Numbers.h"
#include "zel/SharedLibrary.h"
#include "zel/StringBuilder.h"

namespace ZELd {

namespace {

constexpr const char* kLibraryName = "libmediainfo.so.0";

enum StreamKind { General = 0, Video = 1, Audio = 2, Image = 5 };

// The library's plain function interface, wide-character variant.
using NewFn = void* (*)();
using OpenFn = size_t (*)(void*, const wchar_t*);
using CloseFn = void (*)(void*);
using DeleteFn = void (*)(void*);
using InformFn = const wchar_t* (*)(void*, size_t);
using GetFn = const wchar_t* (*)(void*, int, size_t, const wchar_t*, int, int);
using OptionFn = const wchar_t* (*)(void*, const wchar_t*, const wchar_t*);

// Every function of the interface is resolved before the library is used,
// so that an incomplete library is refused at once.
const char* const kInterface[] = {
    "MediaInfo_New",
    "MediaInfo_New_Quick",
    "MediaInfo_Delete",
    "MediaInfo_Open",
    "MediaInfo_Open_Buffer_Init",
    "MediaInfo_Open_Buffer_Continue",
    "MediaInfo_Open_Buffer_Continue_GoTo_Get",
    "MediaInfo_Open_Buffer_Finalize",
    "MediaInfo_Open_NextPacket",
    "MediaInfo_Save",
    "MediaInfo_Close",
    "MediaInfo_Inform",
    "MediaInfo_GetI",
    "MediaInfo_Get",
    "MediaInfo_SetI",
    "MediaInfo_Set",
    "MediaInfo_Output_Buffer_Get",
    "MediaInfo_Output_Buffer_GetI",
    "MediaInfo_Option",
    "MediaInfo_State_Get",
    "MediaInfo_Count_Get",
    "MediaInfoList_New",
    "MediaInfoList_New_Quick",
    "MediaInfoList_Delete",
    "MediaInfoList_Open",
    "MediaInfoList_Open_Buffer",
    "MediaInfoList_Save",
    "MediaInfoList_Close",
    "MediaInfoList_Inform",
    "MediaInfoList_GetI",
    "MediaInfoList_Get",
    "MediaInfoList_SetI",
    "MediaInfoList_Set",
    "MediaInfoList_Option",
    "MediaInfoList_State_Get",
    "MediaInfoList_Count_Get",
    "MediaInfoList_Count_Get_Files",
};

// Container format, content subtype.
const wchar_t* const __formatToType__[20] = {
    L"ShockWave",    L"x-shockwave-flash",
    L"Flash Video",  L"x-flv",
    L"AVI",          L"avi",
    L"MPEG Audio",   L"mpeg",
    L"MPEG Video",   L"mpeg",
    L"CDXA/MPEG-PS", L"mp2p",
    L"MPEG-PS",      L"mp2p",
    L"MPEG-4",       L"mp4",
    L"OGG",          L"ogg",
    L"WebM",         L"webm",
};

String copy(const wchar_t* text) { return String(text ? text : L""); }

// True when the path holds a byte that is not valid UTF-8: the library turns
// wide paths into UTF-8 and would not find such a file by its name.
bool hasEscapedBytes(const String& path)
{
    for (wchar_t c : path.str())
        if (c >= 0xDC80 && c <= 0xDCFF) return true;
    return false;
}

// The library as the program loaded it, and its functions.
struct MediaInfoLibrary {
    SharedLibrary* module = nullptr;
    NewFn create = nullptr;
    OpenFn open = nullptr;
    CloseFn close = nullptr;
    DeleteFn remove = nullptr;
    InformFn inform = nullptr;
    GetFn get = nullptr;
    OptionFn option = nullptr;

    // Takes the module and its functions; on failure deletes the module and
    // throws DllException.
    void bind(SharedLibrary* loaded)
    {
        try {
            for (const char* name : kInterface) loaded->symbol(name);
            create = reinterpret_cast<NewFn>(loaded->symbol("MediaInfo_New"));
            open = reinterpret_cast<OpenFn>(loaded->symbol("MediaInfo_Open"));
            close = reinterpret_cast<CloseFn>(loaded->symbol("MediaInfo_Close"));
            remove = reinterpret_cast<DeleteFn>(loaded->symbol("MediaInfo_Delete"));
            inform = reinterpret_cast<InformFn>(loaded->symbol("MediaInfo_Inform"));
            get = reinterpret_cast<GetFn>(loaded->symbol("MediaInfo_Get"));
            option = reinterpret_cast<OptionFn>(loaded->symbol("MediaInfo_Option"));
        } catch (Exception*) {
            delete loaded;
            *this = MediaInfoLibrary();
            throw;
        }
        module = loaded;
    }
};

MediaInfoLibrary gLib;

} // namespace

void MediaInfo::initialize()
{
    if (!gLib.module) gLib.bind(ZEL_NEW SharedLibrary(kLibraryName));
}

void MediaInfo::cleanup()
{
    delete gLib.module;
    gLib = MediaInfoLibrary();
}

MediaInfo::MediaInfo(const String& path) : MediaInfo(path, Files::examine(path)) {}

MediaInfo::MediaInfo(const String& path, const FileFacts& facts, int given)
{
    initialize();
    const MediaInfoLibrary& lib = gLib;
    // Only what a link leads to is examined.
    if (const int error = facts.linkError ? facts.linkError : facts.error) throw ZEL_NEW IOException(path, L"MediaInfo Open Failed", error);
    if (!S_ISREG(facts.mode)) throw ZEL_NEW IOException(path, L"MediaInfo Open Failed");
    // The library is given the file by the name it has, so that it tries
    // the format its extension names first, and reads it through the
    // descriptor opened here. A name with bytes that are not UTF-8 is
    // given as the descriptor's, which the library can take.
    const std::string native = nativePath(path);
    const bool escaped = hasEscapedBytes(path);
    const int fd = given >= 0 ? given : ::open(native.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) {
        // The library says no more than that it could not open a file by its name.
        const int error = escaped ? errno : 0;
        throw ZEL_NEW IOException(path, L"MediaInfo Open Failed", error);
    }
    const String name = escaped ? String::format(L"/proc/self/fd/%d", fd) : path;
    handle_ = lib.create();
    bool opened = false;
    if (handle_) {
        ProbedFile served(escaped ? nativePath(name) : native, fd);
        opened = lib.open(handle_, name.c_str()) != 0;
    }
    if (fd != given) ::close(fd); // the library has read what it reports
    if (!opened) {
        if (handle_) lib.remove(handle_);
        handle_ = nullptr;
        throw ZEL_NEW IOException(path, L"MediaInfo Open Failed");
    }
}

MediaInfo::~MediaInfo()
{
    const MediaInfoLibrary& lib = gLib;
    if (handle_ && lib.module) {
        lib.close(handle_);
        lib.remove(handle_);
    }
}

String MediaInfo::get(int streamKind, uint64_t number, const wchar_t* parameter) const
{
    return copy(gLib.get(handle_, streamKind, number, parameter, 1, 0));
}

String MediaInfo::inform() const { return copy(gLib.inform(handle_, 0)); }

String MediaInfo::inform_r() const
{
    constexpr size_t all = static_cast<size_t>(-1);
    return inform()
        .replace_r(L"[ \t]{2,}", L" ", true, all)
        .replace_r(L" :", L":", true, all)
        .replace_r(L"\r\n", L"\n", true, all)
        .replace_r(L"Complete name[^\n]+\n", L"", true, all)
        .trim();
}

String MediaInfo::option(const wchar_t* option, const wchar_t* value) const
{
    ZEL_ASSERT(option != NULL);
    if (!option) return String();
    return copy(gLib.option(handle_, option, value ? value : L""));
}

String MediaInfo::format() const { return get(General, 0, L"Format"); }
uint64_t MediaInfo::fileSize() const { return UInt64::parse(get(General, 0, L"FileSize"), 10, 0); }
uint32_t MediaInfo::videoCount() const { return UInt32::parse(get(General, 0, L"VideoCount"), 10, 0); }
uint32_t MediaInfo::audioCount() const { return UInt32::parse(get(General, 0, L"AudioCount"), 10, 0); }
uint32_t MediaInfo::imageCount() const { return UInt32::parse(get(General, 0, L"ImageCount"), 10, 0); }
String MediaInfo::videoFormat(uint64_t n) const { return get(Video, n, L"Format"); }
uint32_t MediaInfo::videoWidth(uint64_t n) const { return UInt32::parse(get(Video, n, L"Width"), 10, 0); }
uint32_t MediaInfo::videoHeight(uint64_t n) const { return UInt32::parse(get(Video, n, L"Height"), 10, 0); }
uint64_t MediaInfo::videoDuration(uint64_t n) const { return UInt64::parse(get(Video, n, L"Duration"), 10, 0); }
uint64_t MediaInfo::videoDurationAsSeconds(uint64_t n) const { return videoDuration(n) / 1000; }
String MediaInfo::audioFormat(uint64_t n) const { return get(Audio, n, L"Format"); }
uint64_t MediaInfo::audioDuration(uint64_t n) const { return UInt64::parse(get(Audio, n, L"Duration"), 10, 0); }
uint64_t MediaInfo::audioDurationAsSeconds(uint64_t n) const { return audioDuration(n) / 1000; }
String MediaInfo::imageFormat(uint64_t n) const { return get(Image, n, L"Format"); }
uint32_t MediaInfo::imageWidth(uint64_t n) const { return UInt32::parse(get(Image, n, L"Width"), 10, 0); }
uint32_t MediaInfo::imageHeight(uint64_t n) const { return UInt32::parse(get(Image, n, L"Height"), 10, 0); }

String MediaInfo::contentType() const
{
    String format = this->format();
    if (imageCount() != 0) return L"image/" + format.toLowerCase();
    const wchar_t* subtype = nullptr;
    for (size_t i = 0; i + 1 < 20 && !subtype; i += 2)
        if (format.compareNoCase(String(__formatToType__[i])) == 0) subtype = __formatToType__[i + 1];
    if (!subtype) return String(L"application/octet-stream");
    StringBuilder b(32);
    b.append(videoCount() != 0 ? L"video/" : (audioCount() != 0 ? L"audio/" : L"application/"));
    b.append(subtype);
    return b.toString();
}

} // namespace ZELd
