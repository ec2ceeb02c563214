// One line of status at the bottom of a terminal, rewritten in place: a
// writer that shares the terminal erases it before it writes and draws it
// again after (FileWriter::shareWith), so that its lines stay whole.
#pragma once

#include <string>

namespace ZELd {

class StatusLine {
public:
    // fd: the terminal.
    explicit StatusLine(int fd) : fd_(fd) {}
    StatusLine(const StatusLine&) = delete;
    StatusLine& operator=(const StatusLine&) = delete;

    // The terminal's width in columns (80 when it does not say).
    int columns() const;
    // Draws text in place of what the line showed, cut to the terminal's width.
    void show(const std::wstring& text);
    // Clears the line; redraw shows its text again.
    void erase();
    void redraw();

private:
    void put(const std::string& bytes) const;

    int fd_;
    std::wstring text_;
    bool shown_ = false;
};

// The columns a text takes on a terminal; a character it cannot show counts one.
int columnsOf(const std::wstring& text);

} // namespace ZELd
