// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// A shop's day: tills that hand in jobs and repeat them blindly, programs that print by themselves,
// a person who decides what is in doubt, and whatever can fail. After every turn the journal is
// compared with the tapes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "companion/job/Job.h"
#include "companion/journal/Journal.h"
#include "companion/runner/Profile.h"
#include "companion/service/Desk.h"
#include "tests/companion/CutVfs.h"
#include "tests/service/SimulatedRegister.h"
#include "tests/service/Stage.h"

/// The journal of many days, on a disk in memory.
struct Disk {
    explicit Disk(std::uint64_t seed) : vfs(seed) { Open(); }
    void Open() { journal = std::make_unique<journal::Journal>("journal.db", vfs.Name()); }
    void Fail() {
        journal.reset();
        vfs.CutAndPowerOn();
        Open();
    }

    CutVfs vfs;
    std::unique_ptr<journal::Journal> journal;
};

/// What is broken on purpose, for the proof that it is missed.
enum class Defect { None, NoLock, LastFirst, NoQueue, GivesUp };

/// How often what has happened.
using Counts = std::map<std::string, std::size_t>;

class History {
  public:
    /// Of its own registers and jobs in the journal of the disk.
    History(Disk& disk, std::uint64_t seed, Defect defect);

    /// To its end. What was untrue, the first of it; empty: nothing.
    std::string Run();
    const Counts& Seen() const { return counts_; }

  private:
    struct Client {
        std::string id;
        std::string content;
        std::string registerName;
    };

    void MakeRegisters();
    void MakeActors();
    // Actors:
    void Serve(Tape& tape);
    void BeTill(const Client& client);
    void RunByItself(const Client& client);
    void Decide();
    // What they do:
    bool HandIn(const Client& client);
    bool Await(std::int64_t number);
    void WithdrawPerhaps(std::int64_t number);
    bool GivesUp(std::int64_t number);
    void Resolve(const journal::Job& job);
    bool Next(const std::string& registerName) const;
    runner::LockWait UntilTheEnd() const;
    bool WaitForWork(const job::Jobs& jobs, const Tape& tape);
    void FindOut(job::Jobs& jobs);
    void PrintNext(job::Jobs& jobs);
    void WaitForJournal(const Stage::Condition& condition);
    bool JournalHasChanged();
    std::unique_ptr<job::Register> RegisterFor(Tape& tape);
    // Chaos:
    void StartService();
    void StopService();
    void EndService();
    void FailPerhaps();
    void FailPower();
    void WakeOrSleep();
    // Truth:
    void LookAtEvents();
    void LookAt(const journal::Event& event);
    void CheckOrder(const journal::Event& event);
    void CheckReason(const journal::Job& job);
    void CheckTold(const job::Outcome& outcome, const std::string& content);
    void CheckEnd();
    std::size_t OnTape(const std::string& content) const;
    std::size_t MostOnTape(const std::string& content) const;
    void Void(const std::string& content);
    void Blame(const std::string& what);

    Client RandomClient();
    Tape& TapeOf(const std::string& name);

    Disk& disk_;
    std::string prefix_;
    Defect defect_;
    Dangers dangers_;
    std::size_t failures_;  // how many there may still be
    std::vector<std::unique_ptr<Tape>> tapes_;
    std::map<std::string, runner::Profile> profiles_;
    std::map<std::string, std::vector<std::int64_t>> queues_;  // as the tills were told
    std::set<std::int64_t> promised_;                          // a till knows that they are taken
    std::optional<Stage::Process> service_;
    bool isEnding_ = false;  // the service, after what it is doing
    std::vector<Stage::Process> workers_, drivers_, others_;
    std::size_t lastStep_ = 0;  // of the disk
    std::int64_t lastEvent_ = 0;
    std::int64_t forgotten_ = 0;  // with Defect::NoQueue: the last place that is
    std::string blame_;
    Counts counts_;
    Stage stage_;  // the last one: its actors use the others
};
