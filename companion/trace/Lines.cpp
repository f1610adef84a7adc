// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/trace/Lines.h"

#include "companion/trace/TextView.h"

namespace trace {

namespace {

constexpr std::size_t longestLine = 16384;
constexpr std::size_t mostBegins = 1000;

}  // namespace

void Lines::Keep(std::string_view part) {
    const std::size_t room = longestLine - begun_.size();
    tooLong_ = tooLong_ || part.size() > room;
    begun_.append(part.substr(0, room));
}

// The driver cuts its log back to the empty line that it begins a run with. The time in the line
// after it tells a run from every other.
void Lines::MarkBegin(std::string_view line) {
    constexpr std::size_t enough = 64;
    Landmark begin{blankAt_.value_or(lineAt_), tracer_.LinesTaken() - 1, ""};
    if (blankAt_) {
        --begin.linesBefore;
        begin.bytes = "\n";
    }
    begin.bytes += line.substr(0, enough);
    begins_.push_back(std::move(begin));
    if (begins_.size() > mostBegins) begins_.pop_front();
}

void Lines::TakeWhole(std::string_view line) {
    const int runs = tracer_.Runs();
    if (tooLong_) {
        tracer_.TakeTooLong(line, at_ - lineAt_);
    } else {
        tracer_.Take(line);
    }
    if (tracer_.Runs() != runs) MarkBegin(line);
    blankAt_.reset();
    if (line.empty()) blankAt_ = lineAt_;
    lineAt_ = at_;
}

void Lines::EndLine(std::string_view part) {
    if (begun_.empty() && part.size() <= longestLine) return TakeWhole(part);
    Keep(part);
    TakeWhole(begun_);
    Forget();
}

void Lines::Take(std::string_view bytes) {
    while (!bytes.empty()) {
        const std::size_t end = bytes.find('\n');
        if (end == std::string_view::npos) {
            at_ += static_cast<std::int64_t>(bytes.size());
            return Keep(bytes);
        }
        at_ += static_cast<std::int64_t>(end + 1);
        EndLine(bytes.substr(0, end));
        bytes.remove_prefix(end + 1);
    }
}

void Lines::Finish() {
    if (!begun_.empty()) tracer_.TakeCut(begun_, at_ - lineAt_);
    Forget();
    lineAt_ = at_;
    tracer_.Finish();
}

void Lines::BeginAgain() {
    Finish();
    begins_.clear();
    blankAt_.reset();
    at_ = lineAt_ = 0;
    tracer_.GoOnAfterLine(0);
}

void Lines::GoOnAt(std::int64_t at) {
    tracer_.Remove();
    long before = at == 0 ? 0 : tracer_.LinesTaken();
    while (!begins_.empty() && begins_.back().at >= at) {
        before = begins_.back().linesBefore;
        begins_.pop_back();
    }
    Forget();
    blankAt_.reset();
    at_ = lineAt_ = at;
    tracer_.GoOnAfterLine(before);
}

void Lines::Forget() {
    begun_.clear();
    tooLong_ = false;
}

int CountRuns(const std::function<std::string_view()>& next, bool grows) {
    std::string nothing;
    TextView blind(nothing, false);
    Question question;
    question.last = 0;
    Tracer tracer(question, blind);
    Lines lines(tracer);
    for (std::string_view bytes = next(); !bytes.empty(); bytes = next()) lines.Take(bytes);
    if (!grows) lines.Finish();
    return tracer.Runs();
}

}  // namespace trace
