#define ZEL_SOURCE "zel/Writer"
#include "zel/Writer.h"

#include <cerrno>
#include <unistd.h>

#include "zel/Exception.h"
#include "zel/StatusLine.h"
#include "zel/Utf8.h"

namespace ZELd {

void Object::dump(Writer& out) const { out << toString() << endl; }

namespace {
constexpr size_t kBufferSize = 64 * 1024;
}

Writer& Writer::operator<<(const wchar_t* s)
{
    if (s) write(s, std::char_traits<wchar_t>::length(s));
    return *this;
}

Writer& Writer::operator<<(int v) { return *this << String::valueOf(v); }
Writer& Writer::operator<<(unsigned v) { return *this << String::valueOf(v); }
Writer& Writer::operator<<(long v) { return *this << String::valueOf(v); }
Writer& Writer::operator<<(unsigned long v) { return *this << String::valueOf(v); }
Writer& Writer::operator<<(long long v) { return *this << String::valueOf(v); }
Writer& Writer::operator<<(unsigned long long v) { return *this << String::valueOf(v); }

Writer& endl(Writer& w)
{
    w.write(L"\n", 1);
    w.endLine();
    return w;
}

FileWriter::FileWriter(int fd, CharsetEncoder* encoder) : fd_(fd), encoder_(encoder) { buffer_.reserve(kBufferSize); }

FileWriter::~FileWriter() { drain(false); }

void FileWriter::write(const wchar_t* s, size_t n)
{
    if (tied_) tied_->drain(false);
    throwUnreported();
    if (failed_) return;
    if (encoder_) encoder_->encode(buffer_, s, n);
    else appendUtf8(buffer_, s, n, EscapedBytes::Restore);
    if (buffer_.size() >= kBufferSize) drain(true);
}

void FileWriter::flush() { drain(true); }

void FileWriter::endLine()
{
    if (lineFlush_) drain(true);
}

void FileWriter::drain(bool mayThrow)
{
    if (line_ && !buffer_.empty() && !failed_) line_->erase();
    size_t done = 0;
    while (done < buffer_.size() && !failed_) {
        ssize_t n = ::write(fd_, buffer_.data() + done, buffer_.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            failed_ = true;
            unreported_ = n < 0 ? errno : EIO;
        } else {
            done += static_cast<size_t>(n);
        }
    }
    if (line_ && done > 0) line_->redraw();
    buffer_.clear();
    if (mayThrow) throwUnreported();
}

void FileWriter::throwUnreported()
{
    if (!unreported_ || silent_) return;
    const int error = unreported_;
    unreported_ = 0; // said once
    throw ZEL_NEW IOException(String::format(L"descriptor %d", fd_), L"Write Failed", error);
}

} // namespace ZELd
