#include "zel/SQLConnectionString.h"

#include "zel/Utf8.h"

namespace ZELd {

sqldriver::Settings parseConnectionString(const String& connectionString)
{
    sqldriver::Settings settings;
    const std::wstring& s = connectionString.str();
    size_t start = 0;
    while (start <= s.size()) {
        size_t end = s.find(L';', start);
        if (end == std::wstring::npos) end = s.size();
        String pair(s.substr(start, end - start));
        size_t eq = pair.indexOf(L'=');
        if (eq != String::npos) {
            String key = pair.substring(size_t{0}, eq).trim();
            String value = pair.substring(eq + 1).trim();
            std::string k = toUtf8(key.str());
            for (char& c : k)
                if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
            if (!k.empty()) settings.emplace_back(k, toUtf8(value.str()));
        }
        start = end + 1;
    }
    return settings;
}

String driverOf(const String& connectionString)
{
    const size_t found = connectionString.search(L"DRIVER *=", true);
    if (found == String::npos) return String();
    String driver = connectionString.substring(L"DRIVER *= *[^;]+", true);
    if (driver.isEmpty()) driver = connectionString.substring(found);
    if (driver.isEmpty()) return String();
    if (driver.indexOf(L'{') != String::npos) return String(L"ZELODBC");
    return driver.substring(driver.indexOf(L'=') + 1).trim();
}

} // namespace ZELd
