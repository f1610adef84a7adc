// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/verdict/Account.h"

#include <algorithm>
#include <utility>

#include "ECR.h"

namespace verdict {

namespace {

/// More than a line makes that works at all. Beyond, what is not certain yet stays so.
constexpr std::size_t mostWorlds = 1000;

bool OfTheFile(std::uint8_t command) {
    return command != CMD_ENTER_FISCAL_MODE && command != CMD_EXIT_FISCAL_MODE;
}

// Worlds that differ in what is coming only are neighbours when they are sorted.
bool IsCovered(const Worlds& worlds, std::size_t place) {
    const World& world = worlds[place];
    const auto near = [&](const World& other) {
        return other.missing == world.missing && other.twice == world.twice;
    };
    std::size_t begin = place;
    while (begin > 0 && near(worlds[begin - 1])) --begin;
    for (std::size_t i = begin; i < worlds.size() && near(worlds[i]); ++i)
        if (i != place && Covers(worlds[i], world)) return true;
    return false;
}

// What a world covers adds nothing to it.
void Tidy(Worlds& worlds) {
    std::ranges::sort(worlds);
    worlds.erase(std::unique(worlds.begin(), worlds.end()), worlds.end());
    std::vector<bool> covered(worlds.size());
    for (std::size_t i = 0; i < worlds.size(); ++i) covered[i] = IsCovered(worlds, i);
    std::size_t i = 0;
    std::erase_if(worlds, [&](const World&) { return covered[i++]; });
}

bool Holds(const std::vector<std::int32_t>& steps, std::int32_t step) {
    return std::ranges::find(steps, step) != steps.end();
}

Acted InWorld(const World& world, std::int32_t step) {
    if (Holds(world.twice, step)) return Acted::Perhaps;
    return Holds(world.missing, step) ? Acted::No : Acted::Yes;
}

constexpr Heard::Kind everyAnswer[] = {Heard::Kind::Ack, Heard::Kind::Status,
                                       Heard::Kind::EndOfFile};

// So many answers of an earlier conversation may still come. Which they are nobody knows: of a few,
// each may be each; of more, all may come of all, which is more than there is.
Worlds WithComing(int count) {
    constexpr int few = 2;
    Worlds worlds(1);
    for (int i = 0; i < count; ++i) {
        Worlds next;
        for (const World& world : worlds) {
            if (count > few) next.push_back(world);
            for (const Heard::Kind kind : everyAnswer) {
                if (count <= few) next.push_back(world);
                next.back().coming.push_back({kind});
            }
        }
        worlds = std::move(next);
    }
    return worlds;
}

}  // namespace

Kind KindOf(const std::vector<Acted>& commands) {
    const auto count = [&](Acted what) { return std::ranges::count(commands, what); };
    const auto all = static_cast<std::ptrdiff_t>(commands.size());
    if (count(Acted::Perhaps) != 0) return Kind::Unknown;
    if (count(Acted::Yes) == all) return Kind::Printed;
    return count(Acted::No) == all ? Kind::NotPrinted : Kind::Part;
}

std::size_t Verdict::AtLeast() const {
    return static_cast<std::size_t>(std::ranges::count(commands, Acted::Yes));
}

std::size_t Verdict::AtMost() const {
    return commands.size() - static_cast<std::size_t>(std::ranges::count(commands, Acted::No));
}

Account::Account(Question question)
    : question_(std::move(question)),
      frames_(question_.wire),
      worlds_(WithComing(question_.before.coming)) {
    if (question_.before.held.Empty()) return;
    const std::size_t count = worlds_.size();
    for (std::size_t i = 0; i < count; ++i) {
        worlds_.push_back(worlds_[i]);
        worlds_.back().open = World::foreign;
    }
    Tidy(worlds_);
}

void Account::Wrote(View frame) {
    const Sent sent = frames_.Take(frame);
    if (!heardSince_ || sent.kind == Sent::Kind::Unknown) odd_ = true;
    if (sent.kind == Sent::Kind::Data) NoteStep(sent, frame.size());
    Branch(sent);
    last_ = sent;
    heardSince_ = sent.kind == Sent::Kind::Answer;  // nothing need follow the last of them
}

bool Account::Repeats(const Sent& frame) const {
    if (steps_.size() == firstOfRun_) return false;
    return steps_.back().command == frame.command && steps_.back().sequence == frame.sequence;
}

void Account::NoteStep(const Sent& frame, std::size_t size) {
    after_.reset();
    if (Repeats(frame)) {
        odd_ = true;
        return;
    }
    const auto step = static_cast<std::int32_t>(steps_.size());
    steps_.push_back({frame.command, frame.sequence, size});
    for (World& world : worlds_) world.missing.push_back(step);
    if (!OfTheFile(frame.command)) return;
    planned_.push_back(step);
    if (question_.planIsWhatWasSent) question_.plan.push_back(frame.command);
    const std::size_t place = planned_.size() - 1;
    const bool asPlanned = place < question_.plan.size() && question_.plan[place] == frame.command;
    if (!asPlanned) LoseTrack();
}

void Account::Branch(const Sent& frame) {
    Worlds after = worlds_;  // it is lost
    for (const World& world : worlds_) Deliver(world, frame, TheRules(), after);
    worlds_ = std::move(after);
    ForgetAtWill();
    Tidy(worlds_);
    if (worlds_.size() > mostWorlds) Settle();
}

// A register whose power fails, and one that takes anything for the answer to its status block.
void Account::ForgetAtWill() {
    const std::size_t count = worlds_.size();
    for (std::size_t i = 0; i < count; ++i) {
        const bool answering = worlds_[i].phase == World::Phase::Answering;
        const bool forgets = question_.promises.forgetsWithoutPower ||
                             (question_.promises.forgetsAtStatus && answering);
        if (!forgets || worlds_[i].open == World::none) continue;
        worlds_.push_back(worlds_[i]);
        worlds_.back().open = World::none;
    }
}

void Account::Arrived(View bytes) {
    const std::vector<Heard> all = frames_.Listen(bytes);
    for (const Heard& heard : all) Hear(heard);
    const bool answers = last_.kind != Sent::Kind::Answer;
    if (all.empty() && answers && last_.kind != Sent::Kind::StatusRequest) odd_ = true;
    heardSince_ = heardSince_ || !all.empty();
}

void Account::Hear(const Heard& heard) {
    if (heard.kind == Heard::Kind::Status) NoteStatus(heard.status);
    Worlds after = heard.doubtful ? worlds_ : Worlds();
    for (World& world : worlds_) {
        if (auto next = verdict::Hear(std::move(world), heard)) after.push_back(std::move(*next));
    }
    worlds_ = std::move(after);
    Tidy(worlds_);
}

void Account::NoteStatus(const Status& status) {
    if (!before_) before_ = status;
    after_ = status;
}

void Account::NextRun() {
    firstOfRun_ = steps_.size();
    last_ = {};
    heardSince_ = true;
}

// Of all frames only that of a command matters, and it follows its request.
void Account::CutOff() {
    odd_ = true;
    if (last_.kind != Sent::Kind::Request) return;
    Sent next = {Sent::Kind::Data, last_.command, 1};
    if (steps_.size() > firstOfRun_) {
        if (steps_.back().command == last_.command) {
            next.sequence = steps_.back().sequence;
            Branch(next);
        }
        next.sequence = static_cast<std::uint16_t>(steps_.back().sequence + 1);
    }
    NoteStep(next, 0);
    Branch(next);
}

void Account::LoseTrack() {
    worlds_.clear();
    settled_.reset();
    blind_ = true;
}

void Account::OperatorMayHaveActed() {
    const std::size_t count = worlds_.size();
    for (std::size_t i = 0; i < count; ++i) {
        if (!worlds_[i].last.refused) continue;
        worlds_.push_back(worlds_[i]);
        worlds_.back().last.refused = false;
    }
    Tidy(worlds_);
}

// What the worlds agree on stays; what they do not agree on can no longer be found out.
void Account::Settle() {
    std::vector<Acted> all(steps_.size());
    for (std::size_t i = 0; i < all.size(); ++i) all[i] = What(static_cast<std::int32_t>(i));
    settled_ = std::move(all);
    for (const World& world : worlds_)
        for (const std::uint8_t command : world.strays) strays_.Add(command);
    worlds_.clear();
}

// By the data frame of another command: of leaving fiscal mode, when its request did not arrive.
bool Account::PerhapsStrayed(std::uint8_t command) const {
    return strays_.Has(command) || std::ranges::any_of(worlds_, [&](const World& world) {
               return std::ranges::find(world.strays, command) != world.strays.end();
           });
}

Acted Account::What(std::int32_t step) const {
    if (settled_)
        return static_cast<std::size_t>(step) < settled_->size()
                   ? (*settled_)[static_cast<std::size_t>(step)]
                   : Acted::Perhaps;
    if (worlds_.empty()) return Acted::Perhaps;
    const Acted first = InWorld(worlds_.front(), step);
    const bool agreed = std::ranges::all_of(
        worlds_, [&](const World& world) { return InWorld(world, step) == first; });
    return agreed ? first : Acted::Perhaps;
}

namespace {

// No later number is met again before that of a first command has taken its place.
void Hold(const Step& step, Commands& held) {
    if (step.sequence == 1) held.Add(step.command);
}

}  // namespace

// What nobody has kept track of is the worst that the line makes.
Remains Account::WhatRemains() const {
    constexpr int mostComing = 4;
    if (worlds_.empty()) return {Commands::All(), mostComing};
    Remains remains;
    for (const World& world : worlds_) {
        if (world.open == World::foreign) remains.held.Add(question_.before.held);
        if (world.open >= 0) Hold(steps_[static_cast<std::size_t>(world.open)], remains.held);
        remains.coming = std::max(remains.coming, static_cast<int>(world.coming.size()));
    }
    return remains;
}

Verdict Account::Conclude() const {
    Verdict verdict;
    verdict.commands.assign(question_.plan.size(), blind_ ? Acted::Perhaps : Acted::No);
    const std::size_t known = std::min(planned_.size(), verdict.commands.size());
    for (std::size_t i = 0; i < known; ++i) verdict.commands[i] = What(planned_[i]);
    for (std::size_t i = 0; i < verdict.commands.size(); ++i)
        if (PerhapsStrayed(question_.plan[i])) verdict.commands[i] = Acted::Perhaps;
    verdict.remains = WhatRemains();
    verdict.before = before_;
    verdict.after = after_;
    return verdict;
}

namespace {

void Append(std::vector<std::uint8_t>& state, std::int64_t value) {
    for (int shift = 0; shift < 32; shift += 8)
        state.push_back(static_cast<std::uint8_t>(value >> shift));
}

void Append(std::vector<std::uint8_t>& state, const std::vector<std::int32_t>& values) {
    Append(state, static_cast<std::int64_t>(values.size()));
    for (const std::int32_t value : values) Append(state, value);
}

void Append(std::vector<std::uint8_t>& state, const LastFrame& last) {
    state.push_back(static_cast<std::uint8_t>((last.known ? 1 : 0) | (last.refused ? 2 : 0)));
    Append(state, last.sequence);
}

void Append(std::vector<std::uint8_t>& state, const World& world) {
    state.push_back(static_cast<std::uint8_t>(world.phase));
    state.push_back(world.command);
    Append(state, world.open);
    Append(state, world.last);
    Append(state, static_cast<std::int64_t>(world.coming.size()));
    for (const World::Answer& answer : world.coming) {
        state.push_back(static_cast<std::uint8_t>(answer.kind));
        if (answer.kind == Heard::Kind::Status) Append(state, answer.last);
    }
    Append(state, world.missing);
    Append(state, world.twice);
    Append(state, static_cast<std::int64_t>(world.strays.size()));
    state.insert(state.end(), world.strays.begin(), world.strays.end());
}

}  // namespace

void Account::Describe(std::vector<std::uint8_t>& state) const {
    frames_.Describe(state);
    Append(state, static_cast<std::int64_t>(steps_.size()));
    Append(state, static_cast<std::int64_t>(firstOfRun_));
    Append(state, static_cast<std::int64_t>(worlds_.size()));
    for (const World& world : worlds_) Append(state, world);
    state.push_back(static_cast<std::uint8_t>((heardSince_ ? 1 : 0) | (odd_ ? 2 : 0) |
                                              (settled_ ? 4 : 0) | (blind_ ? 8 : 0)));
    if (!settled_) return;
    for (const Acted acted : *settled_) state.push_back(static_cast<std::uint8_t>(acted));
    for (const std::uint8_t command : question_.plan) state.push_back(strays_.Has(command) ? 1 : 0);
}

}  // namespace verdict
