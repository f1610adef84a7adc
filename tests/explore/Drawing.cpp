// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "tests/explore/Drawing.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <vector>

namespace explore {

namespace {

using Kind = Event::Kind;

const Event* FrameAt(const Story& story, std::size_t place) {
    for (const Event& event : story)
        if (event.place == place &&
            (event.kind == Kind::FromDriver || event.kind == Kind::FromRegister))
            return &event;
    return nullptr;
}

/// "the data frame of REPORT", "the ACK to the request of REPORT".
std::string InWords(const Story& story, const Event& frame) {
    if (frame.kind == Kind::FromDriver) {
        const std::size_t blank = frame.text.find(' ');
        if (frame.text.starts_with("request "))
            return "the request of " + frame.text.substr(blank + 1);
        if (frame.text.starts_with("data "))
            return "the data frame of " + frame.text.substr(blank + 1);
        if (frame.text == "end of file") return "the driver's end-of-file frame";
        return "the driver's " + frame.text;
    }
    if (frame.text == "status") return "the status frame";
    if (frame.text == "end of file") return "the register's end-of-file frame";
    const Event* const answered = FrameAt(story, frame.answered);
    return "the " + frame.text + (answered != nullptr ? " to " + InWords(story, *answered) : "");
}

std::string WhatHappens(const Event& frame) {
    const bool request = frame.text.starts_with("request ");
    switch (frame.fault) {
        case Fault::Late:
            return "arrives only when the driver has sent its next frame";
        case Fault::Later:
            return "arrives only when the driver has sent its next frame but one";
        case Fault::Lost:
            return "is lost";
        case Fault::Garbled:
            return "arrives garbled";
        case Fault::Noise:
            return "comes after noise";
        case Fault::PowerFails:
            return "finds the register without power for a moment";
        case Fault::Refused:
            return request ? "is answered by BSY" : "is refused by the register";
        case Fault::None:
        case Fault::Drained:
            break;
    }
    return "";
}

// --- the picture ---------------------------------------------------------------------------------

/// Which events are drawn one by one: those of an exchange in which something is out of the
/// ordinary. An exchange is a request and all that follows until the next.
class Exchanges {
  public:
    explicit Exchanges(const Story& story) : story_(story), plain_(story.size(), false) {
        std::size_t begin = 0;
        for (std::size_t i = 0; i <= story.size(); ++i) {
            const bool ends = i == story.size() || Begins(story[i]);
            if (!ends) continue;
            const bool plain =
                begin < i && story[begin].kind == Kind::FromDriver && IsPlain(begin, i);
            std::fill(plain_.begin() + static_cast<std::ptrdiff_t>(begin),
                      plain_.begin() + static_cast<std::ptrdiff_t>(i), plain);
            begin = i;
        }
    }

    bool Plain(std::size_t event) const { return plain_[event]; }
    static bool Begins(const Event& event) {
        return event.kind == Kind::Run || event.kind == Kind::End ||
               (event.kind == Kind::FromDriver && event.text.starts_with("request "));
    }

  private:
    // Each frame arrives, and each read takes the frame that was sent last but for those that wait.
    bool IsPlain(std::size_t begin, std::size_t end) const {
        std::vector<std::size_t> sent;
        for (std::size_t i = begin; i < end; ++i) {
            const Event& event = story_[i];
            if (event.kind == Kind::Arrival || event.kind == Kind::Dropped) return false;
            if (event.fault != Fault::None || event.text == "NAK") return false;
            if (event.kind == Kind::FromRegister) sent.push_back(event.place);
            if (event.kind != Kind::Read) continue;
            if (sent.empty() || sent.front() != event.place) return false;
            sent.erase(sent.begin());
        }
        return sent.empty();
    }

    const Story& story_;
    std::vector<bool> plain_;
};

constexpr int driverX = 190, registerX = 470, middleX = (driverX + registerX) / 2;
constexpr int rowHeight = 24, top = 58, width = 660;

std::string Escaped(const std::string& text) {
    std::string safe;
    for (const char c : text) {
        if (c == '&')
            safe += "&amp;";
        else if (c == '<')
            safe += "&lt;";
        else
            safe += c;
    }
    return safe;
}

/// The picture while it grows, row by row.
class Picture {
  public:
    int Y() const { return y_; }
    void NextRow() { y_ += rowHeight; }

    void Text(int x, int y, const char* anchor, const std::string& text, const char* style = "") {
        Add("<text x=\"%d\" y=\"%d\" text-anchor=\"%s\" class=\"%s\">", x, y, anchor, style);
        body_ += Escaped(text) + "</text>\n";
    }
    void Arrow(int x1, int y1, int x2, int y2, const char* style) {
        Add("<path class=\"%s\" marker-end=\"url(#head)\" d=\"M%d %dL%d %d\"/>\n", style, x1, y1,
            x2, y2);
    }
    void Cross(int x, int y) {
        Add("<path class=\"bad\" d=\"M%d %dl10 10m0 -10l-10 10\"/>\n", x - 5, y - 5);
    }
    void Band(const std::string& text) {
        Add("<rect x=\"20\" y=\"%d\" width=\"%d\" height=\"20\" rx=\"4\"/>\n", y_ - 15, width - 40);
        Text(width / 2, y_, "middle", text);
        NextRow();
    }

    std::string Document(const std::string& title) const;

  private:
    template <typename... Values>
    void Add(const char* format, Values... values) {
        char text[256];
        std::snprintf(text, sizeof text, format, values...);
        body_ += text;
    }

    std::string body_;
    int y_ = top;
};

constexpr char styleSheet[] =
    "<style>\n"
    "  text { font: 13px system-ui, sans-serif; fill: #1f2328; }\n"
    "  .quiet { fill: #59636e; } .fault { fill: #b3261e; font-weight: 600; }\n"
    "  rect { fill: #eef3fa; stroke: #4a6fa5; }\n"
    "  path { fill: none; stroke: #4a6fa5; stroke-width: 1.4; }\n"
    "  .life { stroke: #8c959f; stroke-dasharray: 3 4; } .bad { stroke: #b3261e; }\n"
    "  .stale { stroke: #9a6700; stroke-dasharray: 6 3; }\n"
    "  marker path { fill: #4a6fa5; stroke: none; }\n"
    "  @media (prefers-color-scheme: dark) {\n"
    "    text { fill: #e6edf3; } .quiet { fill: #9198a1; } .fault { fill: #ff8b82; }\n"
    "    rect { fill: #1b2738; stroke: #7da3d8; } path { stroke: #7da3d8; }\n"
    "    .life { stroke: #6e7781; } .bad { stroke: #ff8b82; } .stale { stroke: #d9a441; }\n"
    "    marker path { fill: #7da3d8; stroke: none; }\n"
    "  }\n"
    "</style>\n"
    "<marker id=\"head\" viewBox=\"0 0 8 8\" refX=\"8\" refY=\"4\" markerWidth=\"7\" "
    "markerHeight=\"7\" "
    "orient=\"auto\"><path d=\"M0 0L8 4L0 8z\"/></marker>\n";

std::string Picture::Document(const std::string& title) const {
    char head[256];
    std::snprintf(head, sizeof head,
                  "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 %d %d\" width=\"%d\" "
                  "height=\"%d\" role=\"img\">\n",
                  width, y_, width, y_);
    char lives[256];
    std::snprintf(
        lives, sizeof lives,
        "<path class=\"life\" d=\"M%d 34V%d\"/>\n<path class=\"life\" d=\"M%d 34V%d\"/>\n", driverX,
        y_ - rowHeight, registerX, y_ - rowHeight);
    Picture names;
    names.Text(driverX, 24, "middle", "driver");
    names.Text(registerX, 24, "middle", "register");
    return head + ("<title>" + Escaped(title) + "</title>\n") + styleSheet + names.body_ + lives +
           body_ + "</svg>\n";
}

/// Draws the events of a story one by one.
class Drawing {
  public:
    explicit Drawing(const Story& story) : story_(story), exchanges_(story) {}

    std::string Draw(const std::string& title) {
        for (std::size_t i = 0; i < story_.size(); ++i) {
            if (!exchanges_.Plain(i))
                DrawEvent(i);
            else if (Exchanges::Begins(story_[i]))
                DrawPlainExchange(story_[i]);
        }
        return picture_.Document(title);
    }

  private:
    void DrawPlainExchange(const Event& request) {
        picture_.Text(middleX, picture_.Y(), "middle",
                      request.text.substr(request.text.find(' ') + 1) + ", as it should be",
                      "quiet");
        picture_.NextRow();
    }

    void DrawEvent(std::size_t index) {
        const Event& event = story_[index];
        switch (event.kind) {
            case Kind::Run:
                return picture_.Band(event.text);
            case Kind::End:
                return picture_.Band("exit code " + event.text);
            case Kind::FromDriver:
                return DrawFrame(index, driverX, registerX);
            case Kind::FromRegister:
                return DrawFrame(index, registerX, driverX);
            case Kind::Arrival:
                return DrawEnd(registerX, "", event.place);
            case Kind::Read:
                return DrawRead(event);
            case Kind::Dropped:
                return DrawEnd(driverX, "dropped as stale: " + event.text, event.place);
        }
    }

    // In its time: the arrow; held back: a piece of it, and the rest where it arrives.
    void DrawFrame(std::size_t index, int fromX, int toX) {
        const Event& event = story_[index];
        const int y = picture_.Y();
        const bool gone = event.fault == Fault::Lost ||
                          (event.fault == Fault::PowerFails && event.kind == Kind::FromRegister);
        if (gone) {
            picture_.Arrow(fromX, y - 4, middleX, y - 4, "bad");
            picture_.Cross(middleX, y - 4);
        } else if (IsHeldBack(index)) {
            sent_[event.place] = y;
        } else {
            picture_.Arrow(fromX, y - 4, toX, y - 4, event.fault == Fault::None ? "" : "bad");
        }
        const bool right = toX == driverX;
        picture_.Text(right ? registerX + 10 : driverX - 10, y, right ? "start" : "end",
                      event.text);
        if (event.fault != Fault::None)
            picture_.Text(fromX + (toX - fromX) / 4, y - 8, "middle",
                          std::string(FaultWord(event.fault)), "fault");
        picture_.NextRow();
    }

    // Nothing but its arrival, or its own read, comes between.
    bool IsHeldBack(std::size_t index) const {
        const Event& event = story_[index];
        if (event.fault == Fault::Late || event.fault == Fault::Later) return true;
        if (event.kind == Kind::FromDriver) return Find(index, Kind::Arrival, event.place);
        for (std::size_t i = index + 1; i < story_.size(); ++i) {
            if (story_[i].kind == Kind::FromRegister) continue;
            if (story_[i].kind == Kind::Read && story_[i].place == event.place) return false;
            if (story_[i].kind != Kind::Read) break;
        }
        return Find(index, Kind::Read, event.place) || Find(index, Kind::Dropped, event.place);
    }

    bool Find(std::size_t after, Kind kind, std::size_t place) const {
        return std::any_of(
            story_.begin() + static_cast<std::ptrdiff_t>(after), story_.end(),
            [&](const Event& event) { return event.kind == kind && event.place == place; });
    }

    void DrawRead(const Event& event) {
        if (sent_.contains(event.place))
            return DrawEnd(driverX, "takes " + event.text, event.place);
        const bool surprise = event.text == "time-out" || event.place == Event::nowhere;
        if (!surprise) return;
        const std::string what = event.text == "garbage" ? "noise" : event.text;
        picture_.Text(driverX - 10, picture_.Y(), "end", what, "fault");
        picture_.NextRow();
    }

    void DrawEnd(int x, const std::string& text, std::size_t place) {
        const int y = picture_.Y();
        const auto sent = sent_.find(place);
        if (sent != sent_.end())
            picture_.Arrow(x == driverX ? registerX : driverX, sent->second - 4, x, y - 4, "stale");
        if (!text.empty()) picture_.Text(driverX - 10, y, "end", text, "fault");
        picture_.NextRow();
    }

    const Story& story_;
    Exchanges exchanges_;
    Picture picture_;
    std::map<std::size_t, int> sent_;  // the rows of frames that are held back, by place
};

}  // namespace

std::string StoryText(const Story& story) {
    std::string text;
    for (const Event& event : story) {
        char line[160];
        const bool driver = event.kind == Kind::FromDriver;
        const bool frame = driver || event.kind == Kind::FromRegister;
        const char* const mark = driver ? "->" : (frame ? "<-" : "  ");
        switch (event.kind) {
            case Kind::Run:
                text += event.text + "\n";
                continue;
            case Kind::End:
                text += "exit code " + event.text + "\n";
                continue;
            case Kind::Arrival:
                std::snprintf(line, sizeof line, "         the frame of %zu reaches the register\n",
                              event.place);
                break;
            case Kind::Dropped:
                std::snprintf(line, sizeof line, "         %s is dropped as stale\n",
                              event.text.c_str());
                break;
            case Kind::Read:
                std::snprintf(line, sizeof line, "         the driver takes: %s\n",
                              event.text.c_str());
                break;
            default:
                std::snprintf(line, sizeof line, "%5zu %s %s%s%s\n", event.place, mark,
                              event.text.c_str(), event.fault == Fault::None ? "" : "  *** ",
                              event.fault == Fault::None ? "" : FaultWord(event.fault).data());
        }
        text += line;
    }
    return text;
}

std::string FaultsInWords(const Story& story) {
    std::string text;
    for (const Event& event : story) {
        const bool frame = event.kind == Kind::FromDriver || event.kind == Kind::FromRegister;
        if (!frame || event.fault == Fault::None) continue;
        text += (text.empty() ? "" : "; ") + InWords(story, event) + " " + WhatHappens(event);
    }
    if (!text.empty() && text[0] == 't') text[0] = 'T';
    return text.empty() ? "Nothing goes wrong." : text + ".";
}

std::string DrawStory(const Story& story, const std::string& title) {
    return Drawing(story).Draw(title);
}

}  // namespace explore
