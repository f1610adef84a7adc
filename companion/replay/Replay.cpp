// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/replay/Replay.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace replay {

using emulator::Bytes;

namespace {

constexpr std::size_t bytesInRow = 16;

std::string RowText(const Bytes& bytes, std::size_t from) {
    std::string text;
    for (std::size_t i = from; i < std::min(from + bytesInRow, bytes.size()); ++i) {
        char code[4] = "";
        std::snprintf(code, sizeof code, " %02x", bytes[i]);
        text += code;
    }
    return text.empty() ? " (nothing)" : text;
}

// Under each byte that is not the same.
std::string Marks(const Bytes& logged, const Bytes& came, std::size_t from) {
    std::string marks;
    for (std::size_t i = from; i < from + bytesInRow; ++i) {
        const bool here = i < logged.size() && i < came.size() && logged[i] == came[i];
        const bool nowhere = i >= logged.size() && i >= came.size();
        marks += here || nowhere ? "   " : " ^^";
    }
    return marks.substr(0, marks.find_last_not_of(' ') + 1);
}

std::string Compared(const Bytes& logged, const Bytes& came) {
    std::string text;
    const std::size_t longest = std::max(logged.size(), came.size());
    for (std::size_t from = 0; from < longest; from += bytesInRow) {
        const std::string marks = Marks(logged, came, from);
        text += "  logged " + RowText(logged, from) + "\n  came   " + RowText(came, from) + "\n";
        if (!marks.empty()) text += "         " + marks + "\n";
    }
    return text;
}

}  // namespace

Bytes Replay::Feed(emulator::View bytes) {
    delay_ = std::chrono::milliseconds::zero();
    Bytes reply;
    for (const std::uint8_t byte : bytes) {
        const Bytes answers = Take(byte);
        reply.insert(reply.end(), answers.begin(), answers.end());
    }
    return reply;
}

// The rest of a frame that differs is waited for, so that all of it can be shown.
Bytes Replay::Take(std::uint8_t byte) {
    if (state_ == State::Differs) return {};
    spoken_ = true;
    const bool due = at_ < run_.steps.size();
    const Bytes logged = due ? run_.steps[at_].bytes : Bytes();
    differing_ = differing_ || came_.size() >= logged.size() || logged[came_.size()] != byte;
    came_.push_back(byte);
    if (differing_ || came_.size() < logged.size()) return {};
    came_.clear();
    ++at_;
    return Answers();
}

Bytes Replay::Answers() {
    Bytes answers;
    for (; at_ < run_.steps.size() && !run_.steps[at_].fromCaller; ++at_) {
        const Step& step = run_.steps[at_];
        answers.insert(answers.end(), step.bytes.begin(), step.bytes.end());
        if (paced_) delay_ += step.time;
    }
    if (at_ == run_.steps.size()) End(State::AsLogged);
    return answers;
}

Bytes Replay::Idle() {
    if (differing_) End(State::Differs);
    return {};
}

// A program that opens the line and says nothing is not the caller.
void Replay::Closed() {
    if (!spoken_) return;
    over_ = true;
    EndNow("the caller closed the line");
    if (state_ == State::AsLogged && onEnd_) onEnd_();
}

void Replay::EndNow(const std::string& why) {
    if (state_ == State::Differs || (state_ == State::AsLogged && !differing_)) return;
    if (!differing_) why_ = why;
    End(State::Differs);
}

void Replay::End(State state) {
    state_ = state;
    if (onEnd_) onEnd_();
}

std::size_t Replay::Frames(std::size_t steps) const {
    return static_cast<std::size_t>(
        std::count_if(run_.steps.begin(), run_.steps.begin() + static_cast<std::ptrdiff_t>(steps),
                      [](const Step& step) { return step.fromCaller; }));
}

std::string Replay::Report() const {
    const std::string all = std::to_string(Frames(run_.steps.size()));
    if (state_ == State::AsLogged) return "as logged: " + all + " frames";
    const std::string said = std::to_string(Frames(at_));
    if (at_ == run_.steps.size())
        return "differs: after all " + all + " frames of the log came one more\n" +
               Compared({}, came_);
    const Step& due = run_.steps[at_];
    const std::string place = "frame " + std::to_string(Frames(at_) + 1) + " of " + all +
                              ", line " + std::to_string(due.line) + " of the log";
    if (!why_.empty() || state_ == State::Talking)
        return "differs: " + (why_.empty() ? std::string("it is not over") : why_) + " after " +
               said + " frames; due was " + place + "\n" + Compared(due.bytes, came_);
    return "differs at " + place + "\n" + Compared(due.bytes, came_);
}

}  // namespace replay
