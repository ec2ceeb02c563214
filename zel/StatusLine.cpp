#include "zel/StatusLine.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cwchar>

#include "zel/Utf8.h"

namespace ZELd {

namespace {
constexpr int kDefaultColumns = 80;
constexpr char kClearToEnd[] = "\033[K";
} // namespace

int columnsOf(const std::wstring& text)
{
    int columns = 0;
    for (wchar_t c : text) {
        const int width = ::wcwidth(c);
        columns += width < 0 ? 1 : width;
    }
    return columns;
}

int StatusLine::columns() const
{
    winsize size{};
    return ::ioctl(fd_, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : kDefaultColumns;
}

void StatusLine::show(const std::wstring& text)
{
    text_ = text;
    // One column less than the width: a line that fills it would wrap on some terminals.
    const int room = columns() - 1;
    while (!text_.empty() && columnsOf(text_) > room) text_.pop_back();
    redraw();
}

void StatusLine::erase()
{
    if (!shown_) return;
    put(std::string("\r") + kClearToEnd);
    shown_ = false;
}

void StatusLine::redraw()
{
    if (text_.empty()) return;
    std::string bytes = "\r";
    appendUtf8(bytes, text_.data(), text_.size(), EscapedBytes::Replace);
    bytes += kClearToEnd;
    put(bytes);
    shown_ = true;
}

void StatusLine::put(const std::string& bytes) const
{
    for (size_t done = 0; done < bytes.size();) {
        const ssize_t n = ::write(fd_, bytes.data() + done, bytes.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return; // a status that cannot be shown is not missed
        done += static_cast<size_t>(n);
    }
}

} // namespace ZELd
