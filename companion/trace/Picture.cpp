// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/trace/Picture.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>

#include "companion/trace/Clock.h"
#include "companion/trace/Commands.h"
#include "companion/trace/TextView.h"

namespace trace {

namespace {

constexpr std::size_t mostMarks = 300;  // that are drawn at either end of a run

constexpr int pictureWidth = 1010;
constexpr int driverX = 500;
constexpr int registerX = 680;
constexpr int textGap = 10;  // between a text and its life line
constexpr int letters = 48;  // in a line of text at either side
constexpr double lineHeight = 16;
constexpr double rowHeight = 20;  // of a mark at least
constexpr double top = 82;
constexpr double cutHeight = 44;  // of a silence that is cut out
constexpr double longestGap = 150;
constexpr int lineSpeedForSlant = 19200;
constexpr int bitsOfSlant = 11;

constexpr char pictureStyle[] =
    "<style>\n"
    "  text { font: 13px system-ui, sans-serif; fill: #1f2328; }\n"
    "  .quiet { fill: #59636e; } .bad { fill: #b3261e; } .again { fill: #9a6700; }\n"
    "  .head { font-weight: 600; }\n"
    "  path { fill: none; stroke: #4a6fa5; stroke-width: 1.4; }\n"
    "  path.life { stroke: #8c959f; stroke-dasharray: 3 4; } path.bad { stroke: #b3261e; fill: "
    "none; }\n"
    "  path.again { stroke: #9a6700; fill: none; } path.stale { stroke: #9a6700; stroke-dasharray: "
    "6 3; }\n"
    "  path.cut { stroke: #8c959f; } marker path { fill: #4a6fa5; stroke: none; }\n"
    "  #head-bad path { fill: #b3261e; } #head-again path, #head-stale path { fill: #9a6700; }\n"
    "  @media (prefers-color-scheme: dark) {\n"
    "    text { fill: #e6edf3; } .quiet { fill: #9198a1; } .bad { fill: #ff8b82; }\n"
    "    .again { fill: #d9a441; } path { stroke: #7da3d8; }\n"
    "    path.life, path.cut { stroke: #6e7781; } path.bad { stroke: #ff8b82; }\n"
    "    path.again, path.stale { stroke: #d9a441; } marker path { fill: #7da3d8; stroke: none; }\n"
    "    #head-bad path { fill: #ff8b82; } #head-again path, #head-stale path { fill: #d9a441; }\n"
    "  }\n"
    "</style>\n";

// An arrow's head does not take over the colour of its line.
std::string ArrowHeads() {
    std::string all;
    for (const char* name : {"head-", "head-bad", "head-again", "head-stale"}) {
        all += std::string("<marker id=\"") + name +
               "\" viewBox=\"0 0 8 8\" refX=\"8\" refY=\"4\" markerWidth=\"7\" "
               "markerHeight=\"7\" orient=\"auto\"><path d=\"M0 0L8 4L0 8z\"/></marker>\n";
    }
    return all;
}

// For XML, without control characters.
std::string Escaped(const std::string& text) {
    std::string safe;
    for (const char c : Shown(text)) {
        if (c == '&') {
            safe += "&amp;";
        } else if (c == '<') {
            safe += "&lt;";
        } else if (c == '"') {
            safe += "&quot;";
        } else {
            safe += c;
        }
    }
    return safe;
}

std::string Wait(double ms) {
    std::array<char, 40> text{};
    std::snprintf(text.data(), text.size(), ms >= 1000 ? "%.2f s" : "%.1f ms",
                  ms >= 1000 ? ms / 1000 : ms);
    return text.data();
}

double WireMs(std::size_t bytes) {
    return static_cast<double>(bytes) * bitsOfSlant * 1000 / lineSpeedForSlant;
}

/// The picture while it grows.
class Canvas {
  public:
    void Text(double x, double y, const char* anchor, const std::string& text, const char* style) {
        Add("<text x=\"%.0f\" y=\"%.1f\" text-anchor=\"%s\" class=\"%s\">", x, y, anchor, style);
        body_ += Escaped(text) + "</text>\n";
    }
    void Arrow(double x1, double y1, double x2, double y2, const char* style) {
        Add("<path class=\"%s\" marker-end=\"url(#head-%s)\" d=\"M%.0f %.1fL%.0f %.1f\"/>\n", style,
            style, x1, y1, x2, y2);
    }
    void Cross(double x, double y) {
        Add("<path class=\"bad\" d=\"M%.0f %.1fl10 10m0 -10l-10 10\"/>\n", x - 5, y - 5);
    }
    /// Of both life lines, where they are cut.
    void Zigzag(double y) {
        for (const int x : {driverX, registerX})
            Add("<path class=\"cut\" d=\"M%d %.1fl-6 5l12 6l-12 6l6 5\"/>\n", x, y);
    }
    void Life(double from, double to) {
        for (const int x : {driverX, registerX})
            Add("<path class=\"life\" d=\"M%d %.1fV%.1f\"/>\n", x, from, to);
    }
    /// The text in lines, the first one at that height; returns how many.
    int Lines(double x, double y, const char* anchor, const std::string& text, const char* style) {
        const std::string shown = Shown(text);
        int count = 0;
        for (std::string_view rest = shown; !rest.empty(); ++count)
            Text(x, y + count * lineHeight, anchor, std::string(TakeLine(rest, letters)), style);
        return std::max(count, 1);
    }
    const std::string& Body() const { return body_; }

  private:
    template <typename... Values>
    void Add(const char* format, Values... values) {
        std::array<char, 256> text{};
        std::snprintf(text.data(), text.size(), format, values...);
        body_ += text.data();
    }

    std::string body_;
};

bool IsDrawn(const Note& note) {
    return note.kind == Note::Kind::Trouble || note.kind == Note::Kind::Failure ||
           note.kind == Note::Kind::Damage;
}

const char* StyleOf(const Frame& frame) {
    if (frame.stale) return "stale";
    const bool bad = frame.reply != Reply::Ack && frame.reply != Reply::NotDue;
    if (bad || frame.kind == FrameKind::Unknown) return "bad";
    return frame.attempt > 1 ? "again" : "";
}

std::string AnswerText(const Frame& frame) {
    const std::string wait = frame.waitedMs ? ", " + Wait(*frame.waitedMs) : "";
    switch (frame.reply) {
        case Reply::Ack:
            return "ACK" + wait;
        case Reply::Nak:
            return "NAK" + wait;
        case Reply::Busy:
            return "BSY" + wait;
        case Reply::Garbled:
            return "no answer: " + Hex(frame.garbled);
        case Reply::None:
            return "no answer" + (frame.waitedMs ? " for " + Wait(*frame.waitedMs) : "");
        case Reply::NotDue:
            break;
    }
    return "";
}

std::size_t LinesOf(const std::string& text) {
    std::size_t count = 0;
    for (std::string_view rest = text; !rest.empty(); ++count) TakeLine(rest, letters);
    return std::max<std::size_t>(count, 1);
}

}  // namespace

void Picture::Begin(const RunHead& head) {
    head_ = head;
    end_ = {};
    marks_.clear();
    last_.clear();
    all_ = 0;
    at_ = head.at ? static_cast<double>(*head.at) : 0;
}

void Picture::Add(Mark mark, const std::optional<double>& at) {
    at_ = std::max(at_, at.value_or(at_));
    mark.at = at_;
    const std::size_t place = all_++;
    if (place < mostMarks) {
        marks_.push_back(std::move(mark));
    } else if (last_.size() < mostMarks) {
        last_.push_back(std::move(mark));
    } else {
        last_[place % mostMarks] = std::move(mark);
    }
}

void Picture::Show(const Frame& frame) {
    Mark mark;
    mark.isFrame = true;
    mark.frame = frame;
    Add(std::move(mark), frame.at);
}

void Picture::Show(const Note& note) {
    if (!IsDrawn(note)) return;
    Mark mark;
    mark.note = note;
    Add(std::move(mark), note.at ? std::optional(static_cast<double>(*note.at)) : std::nullopt);
}

void Picture::End(const RunEnd& end) {
    end_ = end;
}

namespace {

/// Draws what a picture has collected.
class Drawer {
  public:
    using Mark = Picture::Mark;

    void Draw(const std::vector<Mark>& marks, std::size_t leftOut, std::size_t leftOutBefore) {
        scale_ = ScaleFor(marks);
        for (std::size_t i = 0; i < marks.size(); ++i) {
            if (leftOut != 0 && i == leftOutBefore)
                Cut(std::to_string(leftOut) + " frames and messages are left out");
            const double gap = i + 1 < marks.size() ? marks[i + 1].at - marks[i].at : 0;
            DrawOne(marks[i], gap);
        }
        canvas.Life(top - 24, y_);
    }

    double Y() const { return y_; }
    double Scale() const { return scale_; }
    Canvas canvas;

  private:
    // So that a mark of four has room, and no more is needed.
    static double ScaleFor(const std::vector<Mark>& marks) {
        std::vector<double> gaps;
        for (std::size_t i = 0; i + 1 < marks.size(); ++i) {
            const double gap = marks[i + 1].at - marks[i].at;
            if (gap > 1) gaps.push_back(gap);
        }
        if (gaps.empty()) return 1;
        const auto fourth = gaps.begin() + static_cast<std::ptrdiff_t>(gaps.size() / 4);
        std::ranges::nth_element(gaps, fourth);
        return rowHeight / *fourth;
    }

    void Cut(const std::string& why) {
        canvas.Zigzag(y_);
        canvas.Text((driverX + registerX) / 2.0, y_ + 15, "middle", why, "quiet");
        y_ += cutHeight;
    }

    void DrawOne(const Mark& mark, double gap) {
        const double height = HeightOf(mark);
        const bool cut = gap * scale_ > longestGap + height;
        const double advance = cut ? height : std::max(height, gap * scale_);
        local_ = gap > 0 && !cut ? advance / gap : scale_;
        // The answer comes when the silence is over.
        answerLater_ = cut && mark.isFrame && Down(mark.frame.waitedMs.value_or(0)) > height;
        mark.isFrame ? DrawFrame(mark) : DrawNote(mark);
        y_ += advance;
        if (cut) Cut(Wait(gap) + " later");
        if (answerLater_ && mark.frame.toRegister && mark.frame.reply != Reply::None)
            DrawAnswer(mark.frame, y_ - rowHeight / 2, y_ - 4);
    }

    static double HeightOf(const Mark& mark) {
        const std::string text = mark.isFrame ? FrameText(mark.frame) : mark.note.text;
        const bool nothing = mark.isFrame && mark.frame.reply == Reply::None;
        return rowHeight + lineHeight * static_cast<double>(LinesOf(text) - 1 + (nothing ? 2 : 0));
    }

    void DrawTime(double at) {
        canvas.Text(14, y_ + 4, "start", ClockText(static_cast<Time>(at)), "quiet");
    }

    void DrawNote(const Mark& mark) {
        DrawTime(mark.at);
        canvas.Lines(driverX - textGap, y_ + 4, "end", mark.note.text, "bad");
    }

    double Down(double ms) const { return ms * local_; }

    void DrawFrame(const Mark& mark) {
        const Frame& frame = mark.frame;
        if (frame.kind == FrameKind::Request || !frame.toRegister) DrawTime(mark.at);
        frame.toRegister ? DrawSent(frame) : DrawHeard(frame);
    }

    // At the right, below what is there already.
    void Answer(double y, const std::string& text, const char* style) {
        y = std::max(y, free_);
        const int count = canvas.Lines(registerX + textGap, y + 4, "start", text, style);
        free_ = y + count * lineHeight;
    }

    void DrawSent(const Frame& frame) {
        const char* const style = StyleOf(frame);
        canvas.Lines(driverX - textGap, y_ + 4, "end", FrameText(frame), style);
        const double wait = frame.waitedMs.value_or(0);
        const double sent = Down(std::min(WireMs(frame.bytes.size()), wait / 2));
        const double arrives = answerLater_ ? std::min(sent, rowHeight - 4) : sent;
        canvas.Arrow(driverX, y_, registerX, y_ + arrives, style);
        if (frame.reply == Reply::NotDue) return;
        if (frame.reply == Reply::None) return DrawNothing(frame, y_ + arrives + lineHeight);
        if (answerLater_) return;
        DrawAnswer(frame, y_ + Down(std::max(wait - WireMs(4), wait / 2)), y_ + Down(wait));
    }

    void DrawAnswer(const Frame& frame, double leaves, double comes) {
        canvas.Arrow(registerX, leaves, driverX, comes, StyleOf(frame));
        Answer(leaves, AnswerText(frame), StyleOf(frame));
    }

    // Whether the frame was lost or its answer nobody knows: an answer is what did not come.
    void DrawNothing(const Frame& frame, double y) {
        const double middle = (driverX + registerX) / 2.0;
        canvas.Arrow(registerX, y, middle, y, "bad");
        canvas.Cross(middle, y);
        Answer(y, AnswerText(frame), "bad");
    }

    void DrawHeard(const Frame& frame) {
        const char* const style = StyleOf(frame);
        Answer(y_, FrameText(frame), style);
        const double sent = Down(std::min(WireMs(frame.bytes.size()), frame.waitedMs.value_or(0)));
        canvas.Arrow(registerX, y_ - std::min(sent, rowHeight - 6), driverX, y_, style);
        if (frame.reply == Reply::NotDue || frame.reply == Reply::None) return;
        const char* const answer = frame.reply == Reply::Ack ? "ACK" : "NAK";
        canvas.Text(driverX - textGap, y_ + 4, "end", answer, style);
        canvas.Arrow(driverX, y_ + 2, registerX, y_ + std::min(2 + Down(2), rowHeight / 2), style);
    }

    double free_ = 0;  // from there on nothing is written at the right
    double y_ = top;
    double scale_ = 1;
    double local_ = 1;  // between this mark and the next one
    bool answerLater_ = false;
};

std::string Description(const RunEnd& end) {
    std::string text =
        "A sequence diagram of what the driver sent to the register and what came "
        "back, from above to below. ";
    for (const std::string& reason : end.reasons) text += reason + ". ";
    return text + std::to_string(end.framesOut) + " frames were sent, " +
           std::to_string(end.repeated) + " of them repeated.";
}

}  // namespace

std::string Picture::Document() const {
    std::vector<Mark> all = marks_;
    const std::size_t turn = all_ > 2 * mostMarks ? all_ % mostMarks : 0;
    for (std::size_t i = 0; i < last_.size(); ++i) all.push_back(last_[(turn + i) % last_.size()]);
    Drawer drawer;
    drawer.Draw(all, all_ - all.size(), marks_.size());
    Canvas& canvas = drawer.canvas;
    const std::string title = "Run " + std::to_string(head_.number) +
                              (head_.at ? ", " + DateText(*head_.at) : "") + ": " +
                              VerdictText(end_);
    canvas.Text(14, 24, "start", title, "head");
    canvas.Text(driverX, 48, "middle", "driver", "");
    canvas.Text(registerX, 48, "middle", "register", "");
    double y = drawer.Y() + 22;
    if (end_.shares.all > 0)
        canvas.Text(14, y, "start", "Time: " + SharesText(end_.shares), "quiet");
    std::array<char, 120> scale{};
    std::snprintf(scale.data(), scale.size(), "%.0f ms are this long:", 100 / drawer.Scale());
    y += 22;
    canvas.Text(14, y, "start", scale.data(), "quiet");
    std::array<char, 320> head{};
    std::snprintf(head.data(), head.size(),
                  "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 %d %.0f\" width=\"%d\" "
                  "height=\"%.0f\" role=\"img\" aria-labelledby=\"title desc\">\n",
                  pictureWidth, y + 16, pictureWidth, y + 16);
    std::array<char, 120> ruler{};
    std::snprintf(ruler.data(), ruler.size(),
                  "<path class=\"cut\" d=\"M180 %.1fv8m0 -4h100m0 -4v8\"/>\n", y - 8);
    return head.data() +
           ("<title id=\"title\">" + Escaped(title) + "</title>\n<desc id=\"desc\">") +
           Escaped(Description(end_)) + "</desc>\n" + pictureStyle + ArrowHeads() + canvas.Body() +
           ruler.data() + "</svg>\n";
}

}  // namespace trace
