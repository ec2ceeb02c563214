#include "zel/SQLPlaceholders.h"

#include "zel/Utf8.h"

namespace ZELd {

namespace {

bool isNameStart(wchar_t c) { return (c >= L'A' && c <= L'Z') || (c >= L'a' && c <= L'z') || c == L'_'; }

bool isNameChar(wchar_t c) { return isNameStart(c) || (c >= L'0' && c <= L'9'); }

// The length of a quoted literal or identifier, or of a comment, that starts
// at i: copied as it is. 0 when none starts there.
size_t literalLength(const std::wstring& s, size_t i)
{
    size_t end = std::wstring::npos;
    if (s[i] == L'\'' || s[i] == L'"') {
        end = s.find(s[i], i + 1);
        if (end != std::wstring::npos) ++end;
    } else if (s.compare(i, 2, L"--") == 0) {
        end = s.find(L'\n', i);
    } else if (s.compare(i, 2, L"/*") == 0) {
        end = s.find(L"*/", i + 2);
        if (end != std::wstring::npos) end += 2;
    } else {
        return 0;
    }
    return (end == std::wstring::npos ? s.size() : end) - i;
}

// The parameter called name; added at the end when it is new.
size_t parameterNamed(std::vector<String>& names, const String& name)
{
    for (size_t k = 0; k < names.size(); ++k)
        if (names[k] == name) return k;
    names.push_back(name);
    return names.size() - 1;
}

} // namespace

SQLTranslation translatePlaceholders(const String& sql, sqldriver::Connection& driver)
{
    SQLTranslation t;
    const bool numbered = driver.placeholder(0) != driver.placeholder(1);
    const std::wstring& s = sql.str();
    std::wstring out;
    out.reserve(s.size());
    auto place = [&](size_t parameter) {
        if (!numbered || parameter == t.slots.size()) t.slots.push_back(parameter);
        const std::string p = driver.placeholder(numbered ? parameter : t.slots.size() - 1);
        out.append(p.begin(), p.end());
    };
    for (size_t i = 0; i < s.size();) {
        if (const size_t n = literalLength(s, i)) {
            out.append(s, i, n);
            i += n;
        } else if (s.compare(i, 2, L"::") == 0) { // a cast: x::int
            out.append(L"::");
            i += 2;
        } else if (s[i] == L':' && i + 1 < s.size() && isNameStart(s[i + 1])) {
            size_t end = i + 1;
            while (end < s.size() && isNameChar(s[end])) ++end;
            place(parameterNamed(t.names, String(s.substr(i + 1, end - i - 1))));
            i = end;
        } else if (s[i] == L'?') {
            t.names.push_back(String());
            place(t.names.size() - 1);
            ++i;
        } else {
            out.push_back(s[i++]);
        }
    }
    t.text = toUtf8(out, EscapedBytes::Replace);
    return t;
}

} // namespace ZELd
