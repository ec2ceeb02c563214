#define ZEL_SOURCE "zel/SQLDriverModule"
#include "zel/SQLDriverModule.h"

#include <climits>
#include <cstdlib>
#include <cwchar>
#include <dirent.h>
#include <unistd.h>

#include "zel/FileName.h"
#include "zel/Files.h"
#include "zel/SQLConfiguration.h"
#include "zel/SQLException.h"
#include "zel/SharedLibrary.h"
#include "zel/StringBuilder.h"

namespace ZELd {

namespace {

// libZELSQLite3.so holds the driver ZELSQLite3.
const wchar_t* const kFilePrefix = L"lib";
const wchar_t* const kDriverPrefix = L"ZEL";
const wchar_t* const kFileSuffix = L".so";

bool isPlainName(const String& name)
{
    for (wchar_t c : name.str())
        if (!((c >= L'A' && c <= L'Z') || (c >= L'a' && c <= L'z') || (c >= L'0' && c <= L'9') || c == L'_')) return false;
    return !name.isEmpty();
}

String moduleFile(const String& driverName)
{
    const bool prefixed = driverName.startsWith(kDriverPrefix);
    return kFilePrefix + String(kDriverPrefix) + driverName.substring(prefixed ? std::wcslen(kDriverPrefix) : 0) + kFileSuffix;
}

String programDirectory()
{
    char buffer[PATH_MAX];
    ssize_t n = ::readlink("/proc/self/exe", buffer, sizeof buffer - 1);
    if (n <= 0) return String();
    return Files::dirname(fromNativePath(buffer, static_cast<size_t>(n)));
}

bool exists(const String& path) { return ::access(nativePath(path).c_str(), F_OK) == 0; }

// The drivers whose modules a directory holds, for the message about a missing one.
void appendDriversIn(const String& dir, StringBuilder& names)
{
    DIR* d = ::opendir(nativePath(dir).c_str());
    if (!d) return;
    const String prefix = kFilePrefix + String(kDriverPrefix);
    const size_t cut = std::wcslen(kFilePrefix), suffix = std::wcslen(kFileSuffix);
    while (dirent* e = ::readdir(d)) {
        const String name = fromNativePath(e->d_name);
        if (name.startsWith(prefix.c_str()) && name.endsWith(kFileSuffix)) {
            if (names.length()) names.append(L", ");
            names.append(name.substring(cut, name.length() - cut - suffix));
        }
    }
    ::closedir(d);
}

// Drivers whose client library Debian does not distribute: no module of
// theirs is built, and the message says what one would need.
struct VendorOnly {
    const wchar_t* driver;
    const wchar_t* clientLibrary;
};
constexpr VendorOnly kVendorOnly[] = {
    {L"ZELOracle", L"Oracle's client library (Oracle Instant Client, libclntsh)"},
    {L"ZELInformix", L"IBM's Informix Client SDK (libifcli, libifsql)"},
};

// A module directory as the message shows it: "/usr/bin/../lib/x/" is
// "/usr/lib/x/" when it exists.
String shown(const String& dir)
{
    char buffer[PATH_MAX];
    if (!::realpath(nativePath(dir).c_str(), buffer)) return dir;
    const String resolved = fromNativePath(buffer);
    return resolved.endsWith(L"/") ? resolved : resolved + L"/";
}

const String* installHintFor(const String& driverName, const SQLConfiguration& setUp)
{
    for (const auto& [driver, hint] : setUp.installHints)
        if (driver == driverName || driver == kDriverPrefix + driverName) return &hint;
    return nullptr;
}

SQLException* notInstalled(const String& driverName, const String& file, const String& here, const SQLConfiguration& setUp)
{
    for (const VendorOnly& v : kVendorOnly)
        if (driverName == v.driver)
            return ZEL_NEW SQLException(
                String::format(L"SQL driver [%ls] has no module in this build: a module would need %ls, which Debian does not distribute",
                               driverName, v.clientLibrary));
    StringBuilder message(128);
    message.format(L"SQL driver [%ls] is not installed: no %ls beside the program (%ls)", driverName, file, here);
    for (const String& dir : setUp.moduleDirectories) message.append(L" or in ").append(shown(here + dir));
    if (const String* hint = installHintFor(driverName, setUp)) message.append(L"; ").append(*hint);
    StringBuilder found(64);
    appendDriversIn(here, found);
    for (const String& dir : setUp.moduleDirectories) appendDriversIn(here + dir, found);
    if (found.length()) message.append(L"; installed drivers: ").append(found.toString());
    return ZEL_NEW SQLException(message.toString());
}

} // namespace

SharedLibrary* loadSQLDriverModule(const String& driverName, const SQLConfiguration& setUp)
{
    if (!isPlainName(driverName)) throw ZEL_NEW SQLException(L"Invalid SQL driver name [" + driverName + L"]: letters, digits and _ only");
    const String file = moduleFile(driverName);
    const String here = programDirectory();
    if (!here.isEmpty()) {
        if (exists(here + file)) return ZEL_NEW SharedLibrary(nativePath(here + file).c_str());
        for (const String& dir : setUp.moduleDirectories)
            if (exists(here + dir + file)) return ZEL_NEW SharedLibrary(nativePath(here + dir + file).c_str());
    }
    try {
        return ZEL_NEW SharedLibrary(nativePath(file).c_str());
    } catch (Exception* e) {
        e->destroy();
        throw notInstalled(driverName, file, here, setUp);
    }
}

} // namespace ZELd
