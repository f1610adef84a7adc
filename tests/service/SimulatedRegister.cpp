// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "tests/service/SimulatedRegister.h"

#include <algorithm>
#include <optional>
#include <stdexcept>
#include <utility>

#include "companion/job/Outcome.h"

namespace {

using job::Outcome;
using verdict::Kind;

/// Of the lock; it lasts as long as the last copy of this.
class Key {
  public:
    explicit Key(Tape& tape) : tape_(tape) { tape_.locked = true; }
    ~Key() { tape_.locked = false; }
    Key(const Key&) = delete;
    Key& operator=(const Key&) = delete;

  private:
    Tape& tape_;
};

Kind KindOf(std::size_t atLeast, std::size_t atMost, std::size_t of) {
    if (atLeast == of) return Kind::Printed;
    if (atMost == 0) return Kind::NotPrinted;
    return atLeast == atMost ? Kind::Part : Kind::Unknown;
}

Outcome Tell(const Tape& tape, std::size_t atLeast, std::size_t atMost, std::size_t of) {
    Outcome outcome;
    outcome.registerName = tape.name;
    outcome.of = of;
    outcome.atLeast = atLeast;
    outcome.atMost = atMost;
    outcome.verdict = KindOf(atLeast, atMost, of);
    outcome.driver = {outcome.verdict == Kind::Printed ? 0 : 101, "", {}, ""};
    job::Settle(outcome, false);
    return outcome;
}

// What a driver at work knows, and what becomes of it.
struct Driver {
    Tape::Run& run;
    std::size_t of;
    bool ended = false;
    std::optional<std::size_t> doubt = {};  // the command that it sent last, from 0
};

class SimulatedWork : public job::Work {
  public:
    SimulatedWork(Stage& stage, Tape& tape, const Dangers& dangers,
                  std::vector<Stage::Process>& drivers, std::shared_ptr<Key> key)
        : stage_(stage), tape_(tape), dangers_(dangers), drivers_(drivers), key_(std::move(key)) {}

    void BeFirst() override {}
    void MakeFolder(const std::string& folder) override { tape_.runs[folder] = {}; }
    void Note(const std::string& /*folder*/) override { stage_.Pause(); }
    bool MakeForget(const std::string& /*folder*/) override {
        stage_.Pause();
        if (tape_.asleep) return false;
        tape_.holds = false;
        return true;
    }
    Outcome Run(const job::Errand& errand) override;
    bool Started() const override { return started_; }
    Outcome Recover(const job::Errand& errand) override;
    bool MayHold() const override { return tape_.holds; }

  private:
    std::shared_ptr<Driver> StartDriver(Tape::Run& run, std::size_t of);
    void Drive(Driver& driver);

    Stage& stage_;
    Tape& tape_;
    const Dangers& dangers_;
    std::vector<Stage::Process>& drivers_;
    std::shared_ptr<Key> key_;
    bool started_ = false;
};

void SimulatedWork::Drive(Driver& driver) {
    while (driver.run.printed < driver.of) {
        stage_.Pause();
        if (tape_.asleep || stage_.Chance(dangers_.ends)) {
            if (stage_.Chance(dangers_.lostAnswers)) driver.doubt = driver.run.printed;
            // Whether the register has acted on it only the paper tells.
            if (!driver.doubt || stage_.Chance(50)) return;
        }
        tape_.printed.push_back(driver.run.content + " " + std::to_string(driver.run.printed));
        ++driver.run.printed;
        tape_.holds = true;
        if (driver.doubt) return;
    }
}

std::shared_ptr<Driver> SimulatedWork::StartDriver(Tape::Run& run, std::size_t of) {
    auto driver = std::make_shared<Driver>(Driver{run, of});
    const Stage::Process process = stage_.NewProcess();
    drivers_.push_back(process);
    // It has the lock, too, and goes on when its caller is dead.
    stage_.Enter(process, [this_ = *this, driver]() mutable {
        struct End {
            Driver& driver;
            ~End() { driver.ended = true; }
        } end{*driver};
        this_.Drive(*driver);
    });
    return driver;
}

Outcome SimulatedWork::Run(const job::Errand& errand) {
    stage_.Pause();  // it is being sent, and nothing was
    Tape::Run& run = tape_.runs[errand.folder];
    run.content = errand.content;
    const std::size_t of = CommandsOf(errand.content);
    if (stage_.Chance(dangers_.refusals)) return Tell(tape_, 0, 0, of);
    started_ = true;
    const auto driver = StartDriver(run, of);
    const Stage::Process process = drivers_.back();
    stage_.WaitFor([driver, process, this] { return driver->ended || !stage_.IsAlive(process); });
    stage_.Pause();  // the end is known, and nobody was told
    if (driver->doubt) return Tell(tape_, *driver->doubt, *driver->doubt + 1, of);
    return Tell(tape_, run.printed, run.printed, of);
}

Outcome SimulatedWork::Recover(const job::Errand& errand) {
    stage_.Pause();
    if (stage_.Chance(dangers_.noDisk)) throw std::runtime_error(cannotRecover);
    Tape::Run& run = tape_.runs[errand.folder];
    const std::size_t of = CommandsOf(errand.content);
    const std::size_t printed = run.printed;
    if (run.logLost) return Tell(tape_, 0, of, of);
    if (stage_.Chance(50)) return Tell(tape_, printed, printed, of);
    return Tell(tape_, printed - std::min(printed, stage_.Below(2)),
                std::min(printed + stage_.Below(2), of), of);
}

class SimulatedHold : public job::Hold {
  public:
    SimulatedHold(Stage& stage, Tape& tape, const Dangers& dangers,
                  std::vector<Stage::Process>& drivers)
        : stage_(stage),
          tape_(tape),
          dangers_(dangers),
          drivers_(drivers),
          key_(std::make_shared<Key>(tape)) {}

    std::unique_ptr<job::Work> Begin(const job::Watcher& /*watcher*/) override {
        return std::make_unique<SimulatedWork>(stage_, tape_, dangers_, drivers_, key_);
    }

  private:
    Stage& stage_;
    Tape& tape_;
    const Dangers& dangers_;
    std::vector<Stage::Process>& drivers_;
    std::shared_ptr<Key> key_;
};

}  // namespace

std::size_t CommandsOf(const std::string& content) {
    return static_cast<std::size_t>(std::ranges::count(content, 'c'));
}

std::unique_ptr<job::Hold> SimulatedRegister::Lock(const runner::LockWait& wait) {
    stage_.Pause();
    for (auto turns = wait.longest.count(); tape_.locked && !dangers_.withoutLock; --turns) {
        if (!wait.goOn()) throw runner::DeviceBusy(nobodyWaits);
        if (turns <= 0) throw runner::DeviceBusy("the register is in use");
        stage_.Pause();
    }
    return std::make_unique<SimulatedHold>(stage_, tape_, dangers_, drivers_);
}
