// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "tests/service/Stage.h"

#include <algorithm>
#include <utility>

Stage::~Stage() {
    for (const auto& actor : actors_) actor->killed = true;
    Bury();
}

std::size_t Stage::Below(std::size_t limit) {
    return static_cast<std::size_t>(random_() % limit);
}

void Stage::Enter(Process process, std::function<void()> act) {
    auto actor = std::make_unique<Actor>();
    actor->process = process;
    actor->thread = std::thread([this, self = actor.get(), act = std::move(act)] {
        self->turn.Take();
        try {
            if (!self->killed) act();
        } catch (const Killed&) {
        }
        self->gone = true;
        back_.Give();
    });
    actors_.push_back(std::move(actor));
}

void Stage::Pause() {
    Actor& self = *current_;
    if (self.killed) throw Killed();
    back_.Give();
    self.turn.Take();
    if (self.killed) throw Killed();
}

void Stage::WaitFor(Condition condition) {
    Actor& self = *current_;
    self.ready = std::move(condition);
    Pause();
    self.ready = nullptr;
}

void Stage::Kill(Process process) {
    for (const auto& actor : actors_) {
        if (actor->process == process) actor->killed = true;
    }
}

bool Stage::IsAlive(Process process) const {
    return std::ranges::any_of(
        actors_, [&](const auto& actor) { return actor->process == process && !actor->killed; });
}

void Stage::Give(Actor& actor) {
    current_ = &actor;
    last_ = actor.process;
    actor.turn.Give();
    back_.Take();
    current_ = nullptr;
    Clean();
}

void Stage::Clean() {
    std::erase_if(actors_, [](const auto& actor) {
        if (actor->gone) actor->thread.join();
        return actor->gone;
    });
}

bool Stage::Turn() {
    std::vector<Actor*> ready;
    for (const auto& actor : actors_) {
        if (actor->killed || !actor->ready || actor->ready()) ready.push_back(actor.get());
    }
    if (ready.empty()) return false;
    Give(*ready[Below(ready.size())]);
    return true;
}

void Stage::Bury() {
    while (true) {
        const auto dead =
            std::ranges::find_if(actors_, [](const auto& actor) { return actor->killed; });
        if (dead == actors_.end()) return;
        Give(**dead);
    }
}
