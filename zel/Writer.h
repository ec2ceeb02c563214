// Text writers. The console writers encode to UTF-8 whatever the locale;
// escaped file-name bytes are written as the original bytes.
#pragma once

#include <cstddef>
#include <string>

#include "zel/Object.h"
#include "zel/String.h"

namespace ZELd {

class StatusLine;

class CharsetEncoder {
public:
    virtual ~CharsetEncoder() = default;
    virtual void encode(std::string& out, const wchar_t* s, size_t n) = 0;
};

class Writer : public Object {
public:
    virtual void write(const wchar_t* s, size_t n) = 0;
    virtual void flush() = 0;

    Writer& operator<<(const wchar_t* s);
    Writer& operator<<(const String& s)
    {
        write(s.c_str(), s.length());
        return *this;
    }
    Writer& operator<<(wchar_t c)
    {
        write(&c, 1);
        return *this;
    }
    // A narrow char would print as its number: say what is meant instead.
    Writer& operator<<(char) = delete;
    Writer& operator<<(int v);
    Writer& operator<<(unsigned v);
    Writer& operator<<(long v);
    Writer& operator<<(unsigned long v);
    Writer& operator<<(long long v);
    Writer& operator<<(unsigned long long v);
    Writer& operator<<(Writer& (*manipulator)(Writer&)) { return manipulator(*this); }

    // Formats like String::format; writes no line end of its own.
    template <class... A>
    Writer& printf(const wchar_t* format, const A&... args)
    {
        scratch_.clear();
        formatAppend(scratch_, format, args...);
        write(scratch_.data(), scratch_.size());
        return *this;
    }

    // Called by endl after the line end has been written.
    virtual void endLine() {}
    // Its destination has failed: nothing written reaches it any more.
    virtual bool failed() const { return false; }

private:
    std::wstring scratch_;
};

// Writes "\n".
Writer& endl(Writer& w);

// A writer on a file descriptor, with a byte buffer.
//
// When the descriptor fails (a closed pipe, a full disk, a closed descriptor)
// the writer throws IOException "Write Failed" once, from one of its own calls,
// and drops everything written to it afterwards. A failure met while another
// writer flushes it first (see tie) is thrown at this writer's next call, so
// that it surfaces where this writer is used, never inside the other's work.
class FileWriter : public Writer {
public:
    // encoder null: UTF-8.
    FileWriter(int fd, CharsetEncoder* encoder);
    ~FileWriter() override;

    void write(const wchar_t* s, size_t n) override;
    void flush() override;
    void endLine() override;

    // Each line is written at once (for the error writer).
    void setLineFlush(bool on) { lineFlush_ = on; }
    // Never throws: a failing descriptor only loses what is written to it
    // (for the error writer, whose failure must not stop the work it reports on).
    void setSilent(bool on) { silent_ = on; }
    // Flushed before this writer writes anything, so that two writers sharing
    // a terminal or a file keep their order.
    void tie(FileWriter* other) { tied_ = other; }
    // A status line on the same terminal: erased before this writer writes,
    // drawn again after. Null: none.
    void shareWith(StatusLine* line) { line_ = line; }
    bool failed() const override { return failed_; }

private:
    void drain(bool mayThrow);
    void throwUnreported();

    int fd_;
    CharsetEncoder* encoder_;
    std::string buffer_;
    bool lineFlush_ = false;
    bool silent_ = false;
    bool failed_ = false;
    int unreported_ = 0; // the error of a failure not thrown yet
    FileWriter* tied_ = nullptr;
    StatusLine* line_ = nullptr;
};

} // namespace ZELd
