// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/trace/Judge.h"

namespace trace {

using verdict::Acted;
using verdict::Verdict;

namespace {

constexpr std::size_t mostCommands = 400000;
constexpr std::size_t mostEffort = 20'000'000;
constexpr std::size_t mostDoubts = 5;

verdict::Question QuestionOf(const verdict::Wire& wire, const verdict::Promises& promises,
                             const verdict::Commands& held) {
    verdict::Question question;
    question.wire = wire;
    question.promises = promises;
    question.planIsWhatWasSent = true;
    question.before.held = held;
    return question;
}

// A driver that was cut off may have said more than its log has.
void DoubtTheRest(Verdict& told) {
    for (Acted& command : told.commands)
        if (command == Acted::No) command = Acted::Perhaps;
}

// Such a failure comes after the last command.
bool IsOfTheEnd(const std::string& message) {
    return message == "Current receipt not finished" || message == "Receipt already finished";
}

verdict::Kind KindOf(const RunEnd& end, const Verdict& told) {
    const verdict::Kind kind = told.What();
    if (end.how == RunEnd::How::Cut) return verdict::Kind::Unknown;
    const bool sentNone = end.sent == 0 && !end.mayHaveMore;
    if (end.how == RunEnd::How::Failed && sentNone) return verdict::Kind::NotPrinted;
    const bool allOfPerhapsMore = kind == verdict::Kind::Printed && end.mayHaveMore;
    return allOfPerhapsMore ? verdict::Kind::Unknown : kind;
}

}  // namespace

Judge::Judge(const verdict::Promises& promises, const verdict::Commands& held)
    : promises_(promises), held_(held) {}

verdict::Commands Judge::Held() const {
    if (account_) return account_->Conclude().remains.held;
    return lost_ ? verdict::Commands::All() : held_;  // frames that are not in the log
}

void Judge::Know(const verdict::Wire& wire) {
    account_.emplace(QuestionOf(wire, promises_, held_));
    if (lost_) account_->LoseTrack();
}

void Judge::Wrote(verdict::View frame) {
    if (!account_ || gaveUp_) return;
    account_->Wrote(frame);
    const verdict::Sent::Kind kind = account_->LastSent().kind;
    if (kind == verdict::Sent::Kind::Data) ++commands_;
    if (kind != verdict::Sent::Kind::Answer) ++unanswered_;
    Spend();
}

void Judge::Arrived(verdict::View bytes) {
    if (!account_ || gaveUp_) return;
    account_->Arrived(bytes);
    if (unanswered_ > 0) --unanswered_;
}

// What is followed is a list of the commands that were not done for each world; where all goes well
// there is one world, and the list is empty.
void Judge::Spend() {
    effort_ += account_->WorldCount() * (unanswered_ + 1);
    if (effort_ <= mostEffort && commands_ <= mostCommands) return;
    gaveUp_ = true;
    account_->LoseTrack();
}

void Judge::LoseTrack() {
    lost_ = true;
    if (account_) account_->LoseTrack();
}

void Judge::CutOff() {
    if (account_ && !lost_ && !gaveUp_) account_->CutOff();
}

void Judge::Conclude(RunEnd& end) const {
    Verdict told;
    if (account_) told = account_->Conclude();
    if (end.how == RunEnd::How::Cut && !told.after) DoubtTheRest(told);
    end.sent = told.commands.size();
    end.atLeast = told.AtLeast();
    end.atMost = told.AtMost();
    end.mayHaveMore = lost_ || gaveUp_ || end.how == RunEnd::How::Cut ||
                      (end.how == RunEnd::How::Failed && end.sent != 0 && end.atMost == end.sent &&
                       !IsOfTheEnd(end.message));
    end.verdict = KindOf(end, told);
    for (std::size_t i = 0; i < told.commands.size() && end.doubts.size() < mostDoubts; ++i) {
        if (told.commands[i] == Acted::Yes) continue;
        end.doubts.push_back({i, account_->CommandAt(i), told.commands[i]});
    }
    if (told.after || told.before) end.status = told.after ? told.after : told.before;
}

}  // namespace trace
