// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// A debug log that anybody may have written, shown in every form: nothing fails, every run that
// begins ends with a verdict that is one, no line is longer than 80 columns, and it makes no
// difference in which pieces the log is read. Each line for programs is JSON.

#include <nlohmann/json.hpp>

#include "companion/trace/Anonymous.h"
#include "companion/trace/JsonView.h"
#include "companion/trace/Lines.h"
#include "companion/trace/Picture.h"
#include "companion/trace/TextView.h"
#include "companion/trace/Tracer.h"
#include "fuzz/Property.h"

namespace {

Tally tally("fuzz_trace", "of them with a frame in a run");

/// Holds to what is promised of every log, and passes it on.
class Checked : public trace::View {
  public:
    explicit Checked(trace::View& shown) : shown_(shown) {}

    void Begin(const trace::RunHead& head) override {
        Require(!open_, "a run ends before the next one begins");
        open_ = true;
        shown_.Begin(head);
    }
    void Show(const trace::Frame& frame) override {
        Require(open_, "a frame is one of a run");
        Require(frame.attempt >= 1, "an attempt is counted");
        frames = true;
        shown_.Show(frame);
    }
    void Show(const trace::Note& note) override {
        Require(open_, "a message is one of a run");
        shown_.Show(note);
    }
    void End(const trace::RunEnd& end) override {
        Require(open_, "only a run ends");
        open_ = false;
        Require(end.atLeast <= end.atMost && end.atMost <= end.sent, "the interval is one");
        if (end.verdict == verdict::Kind::Printed)
            Require(end.atLeast == end.sent, "what is printed was done");
        shown_.End(end);
    }
    void Show(const trace::Junk& junk) override {
        Require(!open_, "what is in a run is of the run");
        Require(junk.lines > 0 && junk.bytes > 0, "it is something");
        Require(junk.line > line_, "it comes after what came before");
        line_ = junk.line + junk.lines - 1;
        shown_.Show(junk);
    }

    bool frames = false;

  private:
    trace::View& shown_;
    bool open_ = false;
    long line_ = 0;
};

/// Cut into pieces of that size, as it is read. True when a frame is shown.
bool ShowTo(trace::View& view, const std::string& log, std::size_t piece) {
    Checked checked(view);
    trace::Tracer tracer({}, checked);
    trace::Lines lines(tracer);
    for (std::size_t at = 0; at < log.size(); at += piece) lines.Take(log.substr(at, piece));
    lines.Finish();
    return checked.frames;
}

std::size_t ColumnsOf(const std::string& line) {
    std::size_t columns = 0;
    for (const char c : line) columns += (static_cast<unsigned char>(c) & 0xC0U) == 0x80U ? 0 : 1;
    return columns;
}

void RequireNarrow(const std::string& text) {
    for (std::size_t at = 0, end = 0; (end = text.find('\n', at)) != std::string::npos;
         at = end + 1)
        Require(ColumnsOf(text.substr(at, end - at)) <= 80, "a line has at most 80 columns");
}

void RequireJson(const std::string& text) {
    for (std::size_t at = 0, end = 0; (end = text.find('\n', at)) != std::string::npos;
         at = end + 1)
        Require(nlohmann::json::accept(text.begin() + static_cast<std::ptrdiff_t>(at),
                                       text.begin() + static_cast<std::ptrdiff_t>(end)),
                "a line is JSON");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    tally.Input();
    if (size == 0) return 0;
    const std::string log = AsText(data + 1, size - 1);
    const std::size_t piece = 1 + data[0];
    std::string text;
    trace::TextView people(text, false);
    if (ShowTo(people, log, piece)) tally.Count();
    RequireNarrow(text);
    std::string whole;
    trace::TextView again(whole, false);
    ShowTo(again, log, log.size() + 1);
    RequireEqual(text, whole, "how a log is read makes no difference");
    std::string json;
    trace::JsonView programs(json);
    ShowTo(programs, log, piece);
    trace::Anonymous anonymous(programs, 1);
    ShowTo(anonymous, log, piece);
    RequireJson(json);
    trace::Picture picture;
    ShowTo(picture, log, piece);
    Require(picture.Document().ends_with("</svg>\n"), "a picture has an end");
    return 0;
}
