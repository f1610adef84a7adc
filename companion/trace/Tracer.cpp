// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/trace/Tracer.h"

#include <algorithm>
#include <utility>

#include "companion/trace/Run.h"
#include "companion/transcript/Transcript.h"

namespace trace {

using transcript::LineKind;
using transcript::LogLine;

namespace {

constexpr std::string_view startText = " started. Command line : ";
// What the driver may say after its count of frames.
constexpr std::string_view lastTexts[] = {"Unable to create result file",
                                          "Unable to write result file", "Unexpected error"};

// Also when the message is cut.
bool IsLastWord(std::string_view message) {
    const auto isOf = [message](std::string_view text) {
        return message.starts_with(text) || (!message.empty() && text.starts_with(message));
    };
    return std::ranges::any_of(lastTexts, isOf);
}

class Nobody : public View {
  public:
    void Begin(const RunHead&) override {}
    void Show(const Frame&) override {}
    void Show(const Note&) override {}
    void End(const RunEnd&) override {}
    void Show(const Junk&) override {}
};
Nobody nobody;

}  // namespace

Tracer::Tracer(const Question& question, View& view) : question_(question), view_(view) {}

Tracer::~Tracer() = default;

void Tracer::Begin(RunHead head) {
    End();
    EndJunk();
    place_ = Place::InRun;
    head.number = ++runs_;
    head.line = lines_;
    if (runs_ > question_.last.value_or(runs_)) return;
    // Those before the first one are judged, for what they leave behind, and not shown.
    View& view = runs_ < question_.first ? nobody : view_;
    run_ = std::make_unique<Run>(question_, held_, head, view);
}

void Tracer::End() {
    if (!run_) return;
    run_->End();
    held_ = run_->Held();
    run_.reset();
}

// --- what is no part of a log --------------------------------------------------------------------

bool Tracer::IsShown(int run) const {
    return run >= question_.first && run <= question_.last.value_or(run);
}

// In a run it is damage, as long as the run has not said all.
bool Tracer::IsJunk() const {
    return place_ != Place::InRun && line_.kind == LineKind::Other && !line_.text.empty() &&
           line_.text.front() != '\t';
}

void Tracer::AddJunk(std::int64_t size) {
    if (junk_.lines++ == 0) junk_.line = lines_;
    junk_.bytes += size;
}

// What is before the first run is shown with it, everything else with the run before.
void Tracer::EndJunk() {
    if (junk_.lines != 0 && IsShown(std::max(runs_, 1))) view_.Show(junk_);
    junk_ = {};
}

// --- runs ----------------------------------------------------------------------------------------

// "VOLTIS v2.5.0 started. Command line : ...": the name and the version are a word each.
bool Tracer::TakeStart(const LogLine& line) {
    const std::size_t at = line.text.find(startText);
    if (at == std::string_view::npos) return false;
    const std::string_view driver = line.text.substr(0, at);
    const std::size_t blank = driver.find(" v");
    if (blank == std::string_view::npos || driver.find(' ', blank + 1) != std::string_view::npos)
        return false;
    RunHead head;
    head.at = line.at;
    head.driver = driver;
    head.commandLine = line.text.substr(at + startText.size());
    Begin(std::move(head));
    return true;
}

// Its older lines were removed, or its first one is damaged.
void Tracer::BeginInTheMiddle() {
    RunHead head;
    head.hasBegin = false;
    Begin(std::move(head));
}

// A line of another run than the one before: its own first line was lost.
bool Tracer::IsOfTheNext() const {
    if (place_ == Place::InRun || line_.kind == LineKind::Other) return false;
    const bool isLast = line_.kind == LineKind::Message && IsLastWord(line_.text);
    return place_ == Place::Anywhere || !isLast;
}

// False for a line that only begins a run.
bool Tracer::Read(std::string_view text) {
    transcript::ReadLine(text, line_);
    if (line_.kind == LineKind::Message && TakeStart(line_)) return false;
    if (IsOfTheNext()) BeginInTheMiddle();
    return true;
}

// After the last run that is shown nothing matters any more but how many there are, and the line
// that tells has a time, when it is there.
bool Tracer::IsPassedOver(std::string_view text) const {
    if (runs_ <= question_.last.value_or(runs_)) return false;
    const char front = text.empty() ? ' ' : text.front();
    const bool hasTime = front >= '0' && front <= '9';
    return !hasTime && (place_ == Place::InRun || front != 'P');
}

void Tracer::Take(std::string_view text) {
    ++lines_;
    if (IsPassedOver(text) || !Read(text)) return;
    if (IsJunk()) return AddJunk(static_cast<std::int64_t>(text.size()) + 1);
    if (run_) run_->Take(line_, lines_);
    if (line_.kind == LineKind::Message && transcript::FramesSent(line_.text))
        place_ = Place::AfterRun;
}

void Tracer::TakeTooLong(std::string_view text, std::int64_t size) {
    ++lines_;
    Read(text);
    if (IsJunk()) return AddJunk(size);
    if (run_) run_->TakeDamage(lines_, "this line is longer than any of a debug log");
}

void Tracer::TakeCut(std::string_view text, std::int64_t size) {
    ++lines_;
    Read(text);
    if (IsJunk()) return AddJunk(size);
    if (run_) run_->TakeCut(lines_);
}

void Tracer::Pause() {
    if (place_ == Place::AfterRun) End();
}

void Tracer::Remove() {
    if (run_) run_->Remove();
    Finish();
}

void Tracer::Finish() {
    End();
    EndJunk();
}

void Tracer::GoOnAfterLine(long line) {
    lines_ = line;
    place_ = Place::Anywhere;
    question_.first = std::min(question_.first, runs_ + 1);
}

}  // namespace trace
