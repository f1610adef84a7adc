// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/trace/Tracer.h"

#include <algorithm>
#include <utility>

#include "companion/trace/Run.h"

namespace trace {

using transcript::LineKind;
using transcript::LogLine;

namespace {

constexpr std::string_view startText = " started. Command line : ";

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
    fresh_ = false;
    head.number = ++runs_;
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
    const bool between = !run_ || run_->HasSaidAll();
    return between && line_.kind == LineKind::Other && !line_.text.empty() &&
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

// The older lines of the log were removed.
void Tracer::BeginInTheMiddle() {
    RunHead head;
    head.hasBegin = false;
    Begin(std::move(head));
}

void Tracer::Take(std::string_view text) {
    ++lines_;
    // After the last run that is shown nothing matters any more but how many there are, and the
    // line that tells has a time.
    const bool passedOver = runs_ > question_.last.value_or(runs_);
    if (passedOver && (text.empty() || text.front() < '0' || text.front() > '9')) return;
    transcript::ReadLine(text, line_);
    if (line_.kind == LineKind::Message && TakeStart(line_)) return;
    if (IsJunk()) return AddJunk(static_cast<std::int64_t>(text.size()) + 1);
    if (fresh_ && line_.kind != LineKind::Other) BeginInTheMiddle();
    if (run_) run_->Take(line_, lines_);
}

// A line that is not whole.
void Tracer::ReadPart(std::string_view text) {
    ++lines_;
    transcript::ReadLine(text, line_);
    if (fresh_ && line_.kind != LineKind::Other) BeginInTheMiddle();
}

void Tracer::TakeTooLong(std::string_view text, std::int64_t size) {
    ReadPart(text);
    if (IsJunk()) return AddJunk(size);
    if (run_) run_->TakeDamage(lines_, "this line is longer than any of a debug log");
}

void Tracer::TakeCut(std::string_view text, std::int64_t size) {
    ReadPart(text);
    if (run_) return run_->TakeCut(lines_);
    if (IsJunk()) AddJunk(size);
}

void Tracer::Pause() {
    if (run_ && run_->HasSaidAll()) End();
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
    fresh_ = true;
    question_.first = std::min(question_.first, runs_ + 1);
}

}  // namespace trace
