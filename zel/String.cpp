#include "zel/String.h"

#include <algorithm>
#include <cwctype>
#include <deque>
#include <memory>

#define PCRE2_CODE_UNIT_WIDTH 32
#include <pcre2.h>

#include "zel/ByteString.h"
#include "zel/Utf8.h"

static_assert(sizeof(wchar_t) == sizeof(PCRE2_UCHAR32), "wide text must be 32-bit code units");

namespace ZELd {

namespace {

bool isControl(char32_t c) { return (c < 0x20 && c != L'\t' && c != L'\n' && c != L'\r') || (c >= 0x7F && c < 0xA0); }

// A compiled pattern and its match data, released together.
class Regex {
public:
    Regex(const wchar_t* pattern, bool ignoreCase) : pattern_(pattern ? pattern : L""), ignoreCase_(ignoreCase)
    {
        int error = 0;
        PCRE2_SIZE offset = 0;
        // PCRE2_UCP: case and character classes follow Unicode, not only ASCII
        // (the text is UTF-32; without PCRE2_UTF escaped bytes stay matchable).
        code_ = pcre2_compile(reinterpret_cast<PCRE2_SPTR>(pattern_.c_str()), PCRE2_ZERO_TERMINATED,
                              PCRE2_UCP | (ignoreCase ? PCRE2_CASELESS : 0), &error, &offset, nullptr);
        if (code_) data_ = pcre2_match_data_create_from_pattern(code_, nullptr);
    }
    ~Regex()
    {
        if (data_) pcre2_match_data_free(data_);
        if (code_) pcre2_code_free(code_);
    }
    Regex(const Regex&) = delete;
    Regex& operator=(const Regex&) = delete;

    // Finds the next match at or after from; returns false when there is none.
    bool find(const std::wstring& subject, size_t from, size_t& begin, size_t& end) const
    {
        if (!code_ || !data_ || from > subject.size()) return false;
        int rc = pcre2_match(code_, reinterpret_cast<PCRE2_SPTR>(subject.data()), subject.size(), from, 0, data_, nullptr);
        if (rc < 0) return false;
        PCRE2_SIZE* ov = pcre2_get_ovector_pointer(data_);
        begin = ov[0];
        end = ov[1] < ov[0] ? ov[0] : ov[1];
        return true;
    }

    bool is(const wchar_t* pattern, bool ignoreCase) const { return ignoreCase == ignoreCase_ && pattern_ == (pattern ? pattern : L""); }

private:
    std::wstring pattern_;
    bool ignoreCase_;
    pcre2_code* code_ = nullptr;
    pcre2_match_data* data_ = nullptr;
};

// The pattern compiled: the program uses a handful of them, for every file,
// so each thread keeps the ones it used last.
const Regex& compiled(const wchar_t* pattern, bool ignoreCase)
{
    constexpr size_t kKept = 16;
    thread_local std::deque<std::unique_ptr<Regex>> kept;
    for (const auto& regex : kept)
        if (regex->is(pattern, ignoreCase)) return *regex;
    if (kept.size() == kKept) kept.pop_back();
    kept.push_front(std::make_unique<Regex>(pattern, ignoreCase));
    return *kept.front();
}

} // namespace

String String::tryString(const char* bytes, size_t n, size_t max)
{
    std::wstring out;
    if (!bytes || n == 0 || max == 0) return String();
    out.reserve(std::min(n, max)); // either reading makes at most that many characters
    const unsigned char* u = reinterpret_cast<const unsigned char*>(bytes);
    // Whether the bytes are text is judged on all of them, not only on those shown.
    bool text = true;
    for (size_t i = 0; i < n;) {
        char32_t c;
        size_t len = decodeUtf8Char(u + i, n - i, c);
        if (len == 0 || isControl(c)) {
            text = false;
            break;
        }
        if (out.size() < max) out.push_back(static_cast<wchar_t>(c));
        i += len;
    }
    if (text) return String(std::move(out));
    // Not text: printable Latin-1 bytes stay, every other byte (line breaks
    // and tabs included) becomes ".", so the preview stays on its line.
    out.clear();
    for (size_t i = 0; i < n && out.size() < max; ++i) {
        unsigned char b = u[i];
        bool printable = (b >= 0x20 && b < 0x7F) || b >= 0xA0;
        out.push_back(printable ? static_cast<wchar_t>(b) : L'.');
    }
    return String(std::move(out));
}

String String::tryString(const ByteString& bytes, size_t max) { return tryString(bytes.data(), bytes.length(), max); }

int String::compare(const wchar_t* other, size_t count) const
{
    const wchar_t* a = s_.c_str();
    const wchar_t* b = other ? other : L"";
    for (size_t i = 0; i < count; ++i) {
        if (a[i] != b[i]) return a[i] < b[i] ? -1 : 1;
        if (a[i] == L'\0') return 0;
    }
    return 0;
}

int String::compareNoCase(const String& other) const
{
    size_t n = s_.size() < other.s_.size() ? s_.size() : other.s_.size();
    for (size_t i = 0; i < n; ++i) {
        wint_t a = std::towlower(s_[i]), b = std::towlower(other.s_[i]);
        if (a != b) return a < b ? -1 : 1;
    }
    return s_.size() == other.s_.size() ? 0 : (s_.size() < other.s_.size() ? -1 : 1);
}

bool String::endsWith(const wchar_t* suffix) const
{
    std::wstring_view v(suffix ? suffix : L"");
    return s_.size() >= v.size() && std::wstring_view(s_).substr(s_.size() - v.size()) == v;
}

bool String::startsWith(const wchar_t* prefix) const
{
    std::wstring_view v(prefix ? prefix : L"");
    return std::wstring_view(s_).substr(0, v.size()) == v;
}

String String::toLowerCase() const
{
    std::wstring r(s_);
    for (wchar_t& c : r) c = static_cast<wchar_t>(std::towlower(c));
    return String(std::move(r));
}

String String::trim() const
{
    size_t b = 0, e = s_.size();
    while (b < e && static_cast<unsigned>(s_[b]) <= 0x20) ++b;
    while (e > b && static_cast<unsigned>(s_[e - 1]) <= 0x20) --e;
    if (b == 0 && e == s_.size()) return *this;
    return String(s_.substr(b, e - b));
}

size_t String::indexOf(wchar_t c, size_t from) const
{
    size_t p = s_.find(c, from);
    return p == std::wstring::npos ? npos : p;
}

size_t String::search(const wchar_t* pattern, bool ignoreCase) const
{
    const Regex& re = compiled(pattern, ignoreCase);
    size_t b, e;
    return re.find(s_, 0, b, e) ? b : npos;
}

String String::substring(const wchar_t* pattern, bool ignoreCase) const
{
    const Regex& re = compiled(pattern, ignoreCase);
    size_t b, e;
    return re.find(s_, 0, b, e) ? String(s_.substr(b, e - b)) : String();
}

String String::replace_r(const wchar_t* pattern, const wchar_t* replacement, bool ignoreCase, size_t max) const
{
    const Regex& re = compiled(pattern, ignoreCase);
    std::wstring out;
    size_t pos = 0, done = 0, b, e;
    bool changed = false;
    while (done < max && re.find(s_, pos, b, e)) {
        if (!changed) out.reserve(s_.size());
        changed = true;
        out.append(s_, pos, b - pos);
        out.append(replacement ? replacement : L"");
        ++done;
        if (e == b) {
            // An empty match: keep one character and go on after it.
            if (b < s_.size()) out.push_back(s_[b]);
            pos = b + 1;
            if (pos > s_.size()) break;
        } else {
            pos = e;
        }
    }
    if (!changed) return *this;
    if (pos < s_.size()) out.append(s_, pos, std::wstring::npos);
    return String(std::move(out));
}

} // namespace ZELd
