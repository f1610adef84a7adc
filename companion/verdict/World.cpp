// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/verdict/World.h"

#include <algorithm>
#include <tuple>
#include <utility>

namespace verdict {

namespace {

const Step& StepAt(const Rules& rules, std::int32_t step) {
    return rules.steps[static_cast<std::size_t>(step)];
}

void Acknowledge(World& world) {
    world.coming.push_back({});
}

void ReportStatus(World& world) {
    world.coming.push_back({Heard::Kind::Status, world.last});
}

void Do(World& world, std::int32_t step) {
    const auto at = std::ranges::find(world.missing, step);
    if (at != world.missing.end()) {
        world.missing.erase(at);
    } else if (std::ranges::find(world.twice, step) == world.twice.end()) {
        world.twice.push_back(step);
    }
}

void Request(World world, const Sent& frame, const Rules& rules, Worlds& after) {
    if (rules.promises.forgetsAtRequest) world.open = World::none;
    Acknowledge(world);
    const bool status = frame.kind == Sent::Kind::StatusRequest;
    world.phase = status ? World::Phase::Answering : World::Phase::AwaitsData;
    world.command = status ? 0 : frame.command;
    if (status) ReportStatus(world);
    after.push_back(std::move(world));
}

// Whether the register takes the step for the command that it holds.
enum class Repetition { No, Perhaps, Yes };

// The frame that a register holds is the last one that it received.
Repetition IsRepetition(const World& world, std::int32_t step, const Rules& rules) {
    if (world.open == step) return Repetition::Yes;
    if (world.open == World::none) return Repetition::No;
    const Step& now = StepAt(rules, step);
    if (world.last.known && world.last.sequence != now.sequence) return Repetition::No;
    if (rules.promises.numberOnly) return Repetition::Perhaps;
    const bool same = world.open == World::foreign
                          ? rules.foreign.Has(now.command)
                          : StepAt(rules, world.open).command == now.command;
    return same ? Repetition::Perhaps : Repetition::No;
}

void AcceptRepetition(World world, Worlds& after) {
    Acknowledge(world);
    world.phase = World::Phase::AwaitsEof;
    after.push_back(std::move(world));
}

void Accept(World world, std::int32_t step, const Rules& rules, Worlds& after) {
    Do(world, step);
    world.open = step;
    world.last = {true, StepAt(rules, step).sequence, false};
    Acknowledge(world);
    world.phase = World::Phase::AwaitsEof;
    after.push_back(std::move(world));
}

void Refuse(World world, std::int32_t step, const Rules& rules, Worlds& after) {
    world.open = World::none;
    world.last = {true, StepAt(rules, step).sequence, true};
    world.phase = World::Phase::Idle;
    world.command = 0;
    after.push_back(std::move(world));
}

// A frame after the request of another command is that command's, when its size fits: it is not
// what the file says, so the step is neither done nor missing.
bool FitsOther(const World& world, const Step& step, const Rules& rules) {
    const auto seen = std::ranges::find(rules.steps, world.command, &Step::command);
    return seen == rules.steps.end() || seen->size == 0 || seen->size == step.size;
}

void AcceptAsOther(World world, std::int32_t step, const Rules& rules, Worlds& after) {
    Do(world, step);
    const auto at = std::ranges::lower_bound(world.strays, world.command);
    if (at == world.strays.end() || *at != world.command) world.strays.insert(at, world.command);
    Accept(std::move(world), step, rules, after);
}

void Data(const World& world, const Rules& rules, Worlds& after) {
    if (world.phase != World::Phase::AwaitsData) return;
    const auto step = static_cast<std::int32_t>(rules.steps.size()) - 1;
    const Repetition repetition = IsRepetition(world, step, rules);
    if (repetition != Repetition::No) AcceptRepetition(world, after);
    if (repetition == Repetition::Yes) return;
    Refuse(world, step, rules, after);
    if (world.command == StepAt(rules, step).command) return Accept(world, step, rules, after);
    if (FitsOther(world, StepAt(rules, step), rules)) AcceptAsOther(world, step, rules, after);
}

void EndOfFile(World world, const Rules& rules, Worlds& after) {
    Acknowledge(world);
    const bool due = world.phase == World::Phase::AwaitsEof;
    world.phase = World::Phase::Idle;
    world.command = 0;
    // Its power may have failed: what it holds stays, and the frame is not due any more.
    if (rules.promises.answersStrayEof) after.push_back(world);
    if (!due) return;
    world.open = World::none;
    after.push_back(std::move(world));
}

void Close(World world, const Rules& rules, Worlds& after) {
    world.coming.push_back({Heard::Kind::EndOfFile});
    world.phase = World::Phase::Closing;
    after.push_back(world);
    if (!rules.promises.forgetsAtStatus || world.open == World::none) return;
    world.open = World::none;
    after.push_back(std::move(world));
}

// What comes after the status block may be taken for the answer to it even when it is spoilt, or
// for the wish to have it again.
void AfterStatus(World world, const Sent& frame, const Rules& rules, Worlds& after) {
    if (world.phase == World::Phase::Answering) {
        ReportStatus(world);
        if (frame.again) after.push_back(world);
        Close(std::move(world), rules, after);
    } else if (world.phase == World::Phase::Closing && frame.again) {
        Close(std::move(world), rules, after);
    }
}

LastFrame LastOf(const Status& status) {
    return {true, status.sequence, status.result != 0};
}

bool Matches(const World::Answer& answer, const Heard& heard) {
    if (answer.kind != heard.kind) return false;
    return answer.kind != Heard::Kind::Status || !answer.last.known ||
           answer.last == LastOf(heard.status);
}

// All that was not known was of the same frame.
void Learn(World& world, const LastFrame& last) {
    if (!world.last.known) world.last = last;
    for (World::Answer& answer : world.coming)
        if (answer.kind == Heard::Kind::Status && !answer.last.known) answer.last = last;
}

}  // namespace

void Deliver(const World& world, const Sent& frame, const Rules& rules, Worlds& after) {
    AfterStatus(world, frame, rules, after);
    switch (frame.kind) {
        case Sent::Kind::Request:
        case Sent::Kind::StatusRequest:
            return Request(world, frame, rules, after);
        case Sent::Kind::Data:
            return Data(world, rules, after);
        case Sent::Kind::EndOfFile:
            return EndOfFile(world, rules, after);
        case Sent::Kind::Answer:
        case Sent::Kind::Unknown:
            return;
    }
}

bool Covers(const World& world, const World& other) {
    const auto rest = [](const World& one) {
        return std::tie(one.phase, one.command, one.open, one.last, one.missing, one.twice,
                        one.strays);
    };
    if (rest(world) != rest(other)) return false;
    auto next = other.coming.begin();
    for (const World::Answer& answer : world.coming)
        if (next != other.coming.end() && *next == answer) ++next;
    return next == other.coming.end();
}

// The first answer that it can be; those before it were lost. To take a later one would leave less.
std::optional<World> Hear(World world, const Heard& heard) {
    const auto at = std::ranges::find_if(
        world.coming, [&](const World::Answer& answer) { return Matches(answer, heard); });
    if (at == world.coming.end()) return std::nullopt;
    const bool learns = heard.kind == Heard::Kind::Status && !at->last.known;
    world.coming.erase(world.coming.begin(), at + 1);
    if (learns) Learn(world, LastOf(heard.status));
    return world;
}

}  // namespace verdict
