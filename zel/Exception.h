// The failures of the library and the program. They are made on the heap
// (throw ZEL_NEW IOException(...)), thrown as pointers, caught as Exception*
// and released with destroy().
#pragma once

#include "zel/Object.h"

namespace ZELd {

class Exception : public Object {
public:
    explicit Exception(const String& message, int systemError = 0) : message_(message), systemError_(systemError) {}

    // The message.
    String toString() const override { return message_; }
    // The class name, the message and, for a system error, the system's own text.
    virtual String toStringAll() const;
    virtual const wchar_t* className() const { return L"Exception"; }
    int systemError() const { return systemError_; }

private:
    String message_;
    int systemError_;
};

// A file, directory or device operation failed. The message names the path.
class IOException : public Exception {
public:
    IOException(const String& path, const String& reason, int systemError = 0)
        : Exception(reason + L" [" + path + L"]", systemError), path_(path), reason_(reason)
    {}
    const wchar_t* className() const override { return L"IOException"; }
    const String& path() const { return path_; }
    // The message without the path.
    const String& reason() const { return reason_; }

private:
    String path_;
    String reason_;
};

// A shared library or one of its functions could not be loaded.
class DllException : public Exception {
public:
    DllException(const String& library, const String& reason) : Exception(String::format(L"Cannot load [%ls]: %ls", library, reason)) {}
    const wchar_t* className() const override { return L"DllException"; }
};

// A system call failed.
class SysError : public Exception {
public:
    SysError(const String& message, int systemError) : Exception(message, systemError) {}
    const wchar_t* className() const override { return L"SysError"; }
};

// Bytes that are not valid in the charset they were decoded with.
class CharsetConvertException : public Exception {
public:
    using Exception::Exception;
    const wchar_t* className() const override { return L"CharsetConvertException"; }
};

} // namespace ZELd
