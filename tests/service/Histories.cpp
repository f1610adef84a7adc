// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "tests/service/Histories.h"

#include <algorithm>
#include <exception>
#include <stdexcept>
#include <utility>

#include "companion/job/Job.h"
#include "companion/job/Outcome.h"

using journal::Job;
using journal::State;
using service::Admission;
using verdict::Kind;

namespace {

constexpr std::int64_t longestQueue = 4;
constexpr std::size_t mostTurns = 20'000;
const runner::LockWait patience{std::chrono::milliseconds(30), [] { return true; }};  // turns

bool IsSettled(const Job& job) {
    return job.state != State::Received && job.state != State::Sending;
}

}  // namespace

History::History(Disk& disk, std::uint64_t seed, Defect defect)
    : disk_(disk), prefix_("h" + std::to_string(seed) + "-"), defect_(defect), stage_(seed) {
    dangers_.refusals = stage_.Below(20);
    dangers_.ends = stage_.Below(15);
    dangers_.lostAnswers = stage_.Below(100);
    dangers_.noDisk = stage_.Chance(30) ? 40 : 0;
    dangers_.withoutLock = defect == Defect::NoLock;
    failures_ = stage_.Below(8);
    lastEvent_ = disk_.journal->LastEvent();
    MakeRegisters();
}

void History::Blame(const std::string& what) {
    if (blame_.empty()) blame_ = what;
}

// --- the shop ------------------------------------------------------------------------------------

void History::MakeRegisters() {
    const std::size_t number = 1 + stage_.Below(3);
    for (std::size_t i = 0; i < number; ++i) {
        tapes_.push_back(std::make_unique<Tape>());
        tapes_.back()->name = prefix_ + "r" + std::to_string(i);
        profiles_[tapes_.back()->name].name = tapes_.back()->name;
    }
}

Tape& History::TapeOf(const std::string& name) {
    return **std::ranges::find_if(tapes_, [&](const auto& tape) { return tape->name == name; });
}

// IDs repeat, a few of them with another content or register.
History::Client History::RandomClient() {
    Client client;
    const std::size_t number = stage_.Below(5);
    client.id = prefix_ + "k" + std::to_string(number);
    client.content = client.id + (stage_.Chance(5) ? ":x" : ":") + std::string(1 + number % 3, 'c');
    const std::size_t at = stage_.Chance(90) ? number : stage_.Below(tapes_.size());
    client.registerName = tapes_[at % tapes_.size()]->name;
    return client;
}

void History::MakeActors() {
    for (std::size_t i = 1 + stage_.Below(5); i > 0; --i) {
        others_.push_back(stage_.NewProcess());
        stage_.Enter(others_.back(), [this, client = RandomClient()] { BeTill(client); });
    }
    for (std::size_t i = stage_.Below(3); i > 0; --i) {
        others_.push_back(stage_.NewProcess());
        workers_.push_back(others_.back());
        stage_.Enter(others_.back(), [this, client = RandomClient()] { RunByItself(client); });
    }
    others_.push_back(stage_.NewProcess());
    stage_.Enter(others_.back(), [this] { Decide(); });
}

std::unique_ptr<job::Register> History::RegisterFor(Tape& tape) {
    return std::make_unique<SimulatedRegister>(stage_, tape, dangers_, drivers_);
}

// --- the actors ----------------------------------------------------------------------------------

bool History::Next(const std::string& registerName) const {
    const auto next = disk_.journal->NextInQueue(registerName);
    // As if the queue were in the service's memory.
    const bool forgotten = defect_ == Defect::NoQueue && next.has_value() &&
                           disk_.journal->Get(*next).place <= forgotten_;
    return next.has_value() && !forgotten;
}

// Asks again only when the disk has changed.
void History::WaitForJournal(const Stage::Condition& condition) {
    std::size_t asked = 0;
    bool holds = false;
    stage_.WaitFor([&] {
        if (std::exchange(asked, disk_.vfs.Steps()) != disk_.vfs.Steps()) holds = condition();
        return holds;
    });
}

runner::LockWait History::UntilTheEnd() const {
    if (defect_ != Defect::GivesUp) return {patience.longest, [this] { return !isEnding_; }};
    // As if the end were forgotten when the lock has been told of it.
    return {patience.longest,
            [this, isTold = false]() mutable { return !isEnding_ || std::exchange(isTold, true); }};
}

// Whether a program that prints by itself has left something, is at work, or is dead.
bool History::WaitForWork(const job::Jobs& jobs, const Tape& tape) {
    bool lost = false;
    std::size_t asked = 0;
    bool holds = false;
    stage_.WaitFor([&] {
        if (std::exchange(asked, disk_.vfs.Steps()) != disk_.vfs.Steps()) {
            lost = jobs.HasLeft();
            holds = lost || Next(tape.name);
        }
        return holds || isEnding_;
    });
    return lost;
}

void History::Serve(Tape& tape) {
    job::Jobs jobs(*disk_.journal, profiles_[tape.name], RegisterFor(tape), "runs/" + tape.name);
    while (!isEnding_) {
        const bool lost = WaitForWork(jobs, tape);
        if (isEnding_) return;
        if (Next(tape.name)) {
            PrintNext(jobs);
        } else if (lost) {
            FindOut(jobs);
            stage_.Pause();
        }
    }
}

void History::FindOut(job::Jobs& jobs) {
    try {
        jobs.FindOut(UntilTheEnd());
    } catch (const std::exception&) {  // somebody else has the register, or it fails
        ++counts_["not found out at once"];
    }
}

// A worker that fails is started again.
void History::PrintNext(job::Jobs& jobs) {
    std::optional<job::Outcome> outcome;
    try {
        outcome = jobs.DoNext(UntilTheEnd(), {});
    } catch (const std::runtime_error& failure) {
        if (std::string(failure.what()) != cannotRecover)
            Blame(std::string("a worker ended: ") + failure.what());
        ++counts_["workers that failed"];
        return stage_.Pause();
    }
    if (!outcome) return;
    CheckTold(*outcome, disk_.journal->Find(outcome->id.value())->content);
    ++counts_["jobs of the queue"];
}

void History::BeTill(const Client& client) {
    for (int call = 0; call < 5; ++call) {
        stage_.WaitFor([this] { return service_.has_value(); });
        if (stage_.Chance(10)) continue;  // the request is lost
        if (HandIn(client)) return;
    }
}

// False: the same call is to be made again.
bool History::HandIn(const Client& client) {
    service::Desk desk(*disk_.journal, longestQueue);
    const service::Ticket ticket =
        desk.Submit({client.registerName, client.id, client.content, "till", "job.txt"});
    if (ticket.admission == Admission::Queued) {
        auto& queue = queues_[client.registerName];
        queue.insert(defect_ == Defect::LastFirst ? queue.begin() : queue.end(), ticket.job.number);
    }
    if (ticket.admission == Admission::QueueFull) return false;
    if (ticket.admission == Admission::OtherContent ||
        ticket.admission == Admission::OtherRegister) {
        ++counts_["other jobs under an ID"];
        return true;
    }
    if (stage_.Chance(25)) return false;  // the answer is lost
    promised_.insert(ticket.job.number);
    stage_.Pause();
    WithdrawPerhaps(ticket.job.number);
    if (GivesUp(ticket.job.number)) return stage_.Chance(30);
    return Await(ticket.job.number);
}

void History::WithdrawPerhaps(std::int64_t number) {
    if (!stage_.Chance(15)) return;
    try {
        service::Desk(*disk_.journal, longestQueue).Withdraw(number, "till");
        ++counts_["withdrawn"];
    } catch (const journal::WrongState&) {
        ++counts_["withdrawn too late"];
    }
}

// Who does not wait any longer may hand it in again later.
bool History::GivesUp(std::int64_t number) {
    if (!stage_.Chance(15)) return false;
    try {
        service::Desk(*disk_.journal, longestQueue).GiveUp(number, "the caller is gone");
        ++counts_["given up by their callers"];
        return true;
    } catch (const journal::WrongState&) {
        ++counts_["given up too late"];
        return false;
    }
}

// A job that failed is handed in again, or not.
bool History::Await(std::int64_t number) {
    if (stage_.Chance(20)) return true;  // nobody waits
    WaitForJournal([=, this] { return IsSettled(disk_.journal->Get(number)); });
    return disk_.journal->Get(number).state != State::Failed || stage_.Chance(30);
}

void History::RunByItself(const Client& client) {
    stage_.Pause();
    Tape& tape = TapeOf(client.registerName);
    job::Jobs jobs(*disk_.journal, profiles_[tape.name], RegisterFor(tape), "runs/" + tape.name);
    CheckTold(jobs.Do({client.id, "job.txt", client.content, patience}, {}), client.content);
    ++counts_["jobs of a program"];
}

void History::Decide() {
    for (int round = 0; round < 3; ++round) {
        for (std::size_t turns = stage_.Below(60); turns > 0; --turns) stage_.Pause();
        for (const auto& tape : tapes_) {
            for (const Job& job : disk_.journal->List({tape->name, "", "", State::InDoubt}))
                Resolve(job);
        }
    }
}

// Looks at the paper, and completes nothing: what is not whole is torn off.
void History::Resolve(const Job& job) {
    const std::string content = disk_.journal->Get(job.number).content;
    const bool whole = OnTape(content) == CommandsOf(content);
    if (!whole) Void(content);
    disk_.journal->Resolve(
        job.number, whole ? journal::Decision::Printed : journal::Decision::NotPrinted, "anna", "");
    ++counts_[whole ? "resolved as printed" : "resolved as not printed"];
}

// --- chaos ---------------------------------------------------------------------------------------

void History::StartService() {
    service_ = stage_.NewProcess();
    if (defect_ == Defect::NoQueue) {
        for (const Job& job : disk_.journal->List())
            forgotten_ = std::max(forgotten_, job.place.value_or(0));
    }
    for (const auto& tape : tapes_)
        stage_.Enter(*service_, [this, place = tape.get()] { Serve(*place); });
}

void History::StopService() {
    if (!service_) return;
    stage_.Kill(*service_);
    service_.reset();
    isEnding_ = false;
}

// After what its workers are doing.
void History::EndService() {
    if (!service_) return;
    isEnding_ = true;
    ++counts_["services ended"];
}

void History::FailPower() {
    StopService();
    for (const Stage::Process process : drivers_) stage_.Kill(process);
    for (const Stage::Process process : workers_) stage_.Kill(process);
    stage_.Bury();
    for (const auto& tape : tapes_) {
        for (auto& [folder, run] : tape->runs) run.logLost = run.logLost || stage_.Chance(50);
    }
    disk_.Fail();
    if (disk_.journal->LastEvent() < lastEvent_) Blame("an event was lost");
}

void History::WakeOrSleep() {
    Tape& tape = *tapes_[stage_.Below(tapes_.size())];
    tape.asleep = !tape.asleep;
}

void History::FailPerhaps() {
    if (isEnding_ && !stage_.IsAlive(*service_)) StopService();
    if (!service_ && stage_.Chance(20)) StartService();
    if (failures_ == 0 || !stage_.Chance(4)) return;
    --failures_;
    const std::size_t kind = stage_.Below(12);
    const std::vector<Stage::Process>& victims = kind < 6 ? drivers_ : workers_;
    if (kind < 3) return ++counts_["services killed"], StopService();
    if (kind < 8) {
        if (!victims.empty()) stage_.Kill(victims[stage_.Below(victims.size())]);
        ++counts_[kind < 6 ? "drivers killed" : "programs killed"];
        return;
    }
    if (kind == 8) return ++counts_["power failures"], FailPower();
    if (kind >= 10) return EndService();
    ++counts_["registers silent or back"], WakeOrSleep();
}

// --- truth ---------------------------------------------------------------------------------------

// How many of its commands are there.
std::size_t History::OnTape(const std::string& content) const {
    std::set<std::string> different;
    for (const auto& tape : tapes_) {
        for (const std::string& line : tape->printed) {
            if (line.starts_with(content + " ")) different.insert(line);
        }
    }
    return different.size();
}

std::size_t History::MostOnTape(const std::string& content) const {
    std::map<std::string, std::size_t> times;
    std::size_t most = 0;
    for (const auto& tape : tapes_) {
        for (const std::string& line : tape->printed) {
            if (line.starts_with(content + " ")) most = std::max(most, ++times[line]);
        }
    }
    return most;
}

void History::Void(const std::string& content) {
    for (const auto& tape : tapes_)
        std::erase_if(tape->printed,
                      [&](const std::string& line) { return line.starts_with(content + " "); });
}

void History::CheckTold(const job::Outcome& outcome, const std::string& content) {
    const std::size_t printed = OnTape(content);
    const std::string told = content + " was told " + job::ToJson(outcome) + ", and " +
                             std::to_string(printed) + " are printed";
    if (outcome.verdict == Kind::Printed && printed != CommandsOf(content)) Blame(told);
    if (outcome.verdict == Kind::NotPrinted && printed != 0) Blame(told);
    const bool counted = outcome.of != 0;
    if (counted && (printed < outcome.atLeast || printed > outcome.atMost)) Blame(told);
    if (MostOnTape(content) > 1) Blame(content + " is printed twice");
    ++counts_[std::string("told ") + job::Word(outcome.verdict)];
}

// A job leaves the queue with this one.
void History::CheckOrder(const journal::Event& event) {
    auto& queue = queues_[event.registerName];
    const auto place = std::ranges::find(queue, event.job);
    const bool byService = service_ && stage_.Last() == *service_;
    if (byService && event.state == State::Sending && place != queue.begin())
        Blame("job " + std::to_string(event.job) + " was not the first of its queue");
    for (auto& [name, jobs] : queues_) std::erase(jobs, event.job);
}

// A job of the queue is given up for what concerns the job, and for nothing else.
void History::CheckReason(const Job& job) {
    for (const char* reason : {nobodyWaits, cannotRecover})
        if (job.place && job.outcome.find(reason) != std::string::npos)
            Blame(job.id.value_or("") + " was given up because " + reason);
}

void History::LookAt(const journal::Event& event) {
    const Job job = disk_.journal->Get(event.job);
    if (event.state == State::Sending || event.state == State::Failed) CheckOrder(event);
    if (job.state != event.state || !IsSettled(job)) return;
    CheckReason(job);
    job::Outcome outcome = job::FromRecord(job.outcome);
    if (!job.resolvedAt.empty()) outcome.of = 0;
    if (job.verdict == journal::printed) outcome.verdict = Kind::Printed;
    if (job.verdict == journal::notPrinted) outcome.verdict = Kind::NotPrinted;
    CheckTold(outcome, job.content);
}

bool History::JournalHasChanged() {
    return std::exchange(lastStep_, disk_.vfs.Steps()) != disk_.vfs.Steps();
}

void History::LookAtEvents() {
    if (!JournalHasChanged()) return;
    for (const journal::Event& event : disk_.journal->EventsAfter(lastEvent_, 1'000)) {
        if (event.number <= lastEvent_) Blame("events are out of order");
        lastEvent_ = event.number;
        LookAt(event);
    }
}

void History::CheckEnd() {
    for (const auto& tape : tapes_) {
        for (const Job& job : disk_.journal->List({tape->name, "", "", {}})) {
            if (!IsSettled(job))
                Blame(job.id.value_or("") + " is left in state " + Word(job.state));
            if (!job.withdrawnBy.empty() && OnTape(disk_.journal->Get(job.number).content) != 0)
                Blame(job.id.value_or("") + " was withdrawn, and printed");
        }
    }
    for (const std::int64_t number : promised_) {
        if (!IsSettled(disk_.journal->Get(number)))
            Blame("job " + std::to_string(number) + " was promised, and is lost");
    }
}

std::string History::Run() {
    MakeActors();
    StartService();
    const auto clientsLeft = [this] {
        return std::ranges::any_of(others_, [this](auto other) { return stage_.IsAlive(other); });
    };
    std::size_t turns = 0;
    for (; clientsLeft() && blame_.empty() && turns < mostTurns; ++turns) {
        FailPerhaps();
        if (!stage_.Turn() && !service_) StartService();
        LookAtEvents();
    }
    if (turns == mostTurns) Blame("it does not end");
    // What a program has left is found out when the service starts.
    for (const auto& tape : tapes_) tape->asleep = false;
    StopService();
    StartService();
    for (; blame_.empty() && turns < mostTurns && stage_.Turn(); ++turns) LookAtEvents();
    if (blame_.empty()) CheckEnd();
    counts_["turns"] += turns;
    return blame_;
}
