// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// A log for people: a line for each frame, at most 80 columns.
#pragma once

#include <string>
#include <string_view>

#include "companion/trace/Event.h"

namespace trace {

/// Appends to a text that its owner empties.
class TextView : public View {
  public:
    TextView(std::string& out, bool colour) : out_(out), colour_(colour) {}

    void Begin(const RunHead& head) override;
    void Show(const Frame& frame) override;
    void Show(const Note& note) override;
    void End(const RunEnd& end) override;
    void Show(const Junk& junk) override;

  private:
    void Head(char mark, const std::string& when, std::string_view direction);
    void Lines(const std::string& text, std::size_t width, const std::string& right);
    void Entry(const char* title, const std::string& text);
    void Marked(char mark);

    std::string& out_;
    bool colour_;
    bool first_ = true;
};

/// What a frame is and holds, in one line: 'data SALE #2: department 1, "MILK", 1.000 x 2.50'.
std::string FrameText(const Frame& frame);
/// "unknown: at least 1 and at most 2 of the 2 commands that were sent were done".
std::string VerdictText(const RunEnd& end);
/// "12.7 s: ...".
std::string SharesText(const Shares& shares);
/// The text as a terminal may be shown it: never a control character, and UTF-8.
std::string Shown(std::string text);
/// Takes the next line of at most that many columns off the text, without the blanks around it.
std::string_view TakeLine(std::string_view& rest, std::size_t columns);
/// "printed", "not-printed", "part", "unknown".
const char* VerdictWord(verdict::Kind kind);

}  // namespace trace
