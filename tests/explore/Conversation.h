// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The register, the line with its time, and what has been said: everything of a schedule that is
// not inside the driver.
//
// The line: what the driver writes reaches the register, and what the register answers reaches the
// driver when the driver waits for it. An answer that nobody waits for is still on its way when the
// driver writes its next frame: either it comes before the answer to that frame, or, as a race, all
// of it just before the driver drops what is stale and writes. Frames do not overtake each other,
// so a frame that is held back holds those after it back, too. When the driver closes its port,
// what it has written goes out; answers that are still on their way then may come in the next run.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "companion/verdict/Account.h"
#include "emulator/Line.h"
#include "tests/explore/Fault.h"
#include "tests/explore/Scenario.h"
#include "tests/explore/Verdict.h"

namespace explore {

/// What is told of a conversation while it is replayed.
struct Event {
    enum class Kind : std::uint8_t {
        Run,           // a run of the driver begins: "run 2"
        FromDriver,    // the driver writes a frame: "request SALE"
        Arrival,       // a frame of the driver that was held back reaches the register
        FromRegister,  // the register sends a frame: "ACK"
        Read,          // the driver takes a frame for what it waits for, or "time-out"
        Dropped,       // a frame that has come too late is dropped by the driver
        End,           // of the run: "0 (a command is missing)"
    };
    static constexpr std::size_t nowhere = static_cast<std::size_t>(-1);
    Kind kind = Kind::End;
    std::string text;
    Fault fault = Fault::None;    // of a frame that is sent
    std::size_t place = nowhere;  // of the frame in the schedule; nowhere for noise and time-outs
    std::size_t answered = nowhere;  // FromRegister: the place of the frame that is answered
};
using Story = std::vector<Event>;

class Conversation {
  public:
    /// expected: what each file makes the register do when nothing goes wrong; empty at first, when
    /// that is to be found out.
    Conversation(const Scenario& scenario, const std::vector<Actions>& expected);
    /// Goes on from where the other is; without its story.
    Conversation(const Conversation& other);
    Conversation& operator=(const Conversation& other);

    // --- the driver's side ---------------------------------------------------------------------

    void Open();
    void Close();
    void Write(emulator::View frame);
    /// Exactly size bytes, or false: what there was of them is gone, as after a time-out.
    bool Read(std::uint8_t* block, std::size_t size);
    /// The run of the driver is over.
    void EndRun(const DriverEnd& end, const std::string& result);

    // --- the explorer's side -------------------------------------------------------------------

    /// What may happen at this place; empty when nothing is to be decided and the driver goes on.
    /// Always has Fault::None otherwise.
    FaultSet Options() const;
    void Decide(Fault fault);
    /// Places decided so far.
    std::size_t Place() const { return place_; }

    bool Over() const { return over_; }
    std::size_t File() const { return file_; }  // of the next run
    const Ending& Runs() const { return runs_; }
    /// What each run made the register do, while that is to be found out.
    const std::vector<Actions>& Done() const { return done_; }
    const emulator::Register& Device() const { return device_; }

    /// Everything that the future depends on, and what the past adds to the verdict, as bytes.
    void Describe(emulator::Bytes& state) const;

    void TellTo(Story* story) { story_ = story; }

  private:
    enum class Stage : std::uint8_t { Quiet, Race, Frame, Answer };
    enum class Role : std::uint8_t { Request, Data, EndOfFile, Answer };
    struct Unit {
        emulator::Bytes bytes;
        std::uint8_t hold = 0;  // arrives after so many further frames of the driver
        bool refused = false;   // by the register
        std::size_t place = Event::nowhere;
    };

    void DecideRace(Fault fault);
    void EndRace();
    void DecideFrame(Fault fault);
    void DecideAnswer(Fault fault);
    void Deliver();
    void Feed(const Unit& unit);
    void FailPower();
    bool RefusedInRun() const;
    void BeginAccount();
    void JudgeAccount(RunEnd& end);
    void ReadStatus();
    void MakeForget();
    emulator::Bytes Exchange(emulator::View frame);
    bool Holds(const verdict::Verdict& told) const;
    Role RoleOf(emulator::View frame);
    std::uint16_t NumberOf(emulator::View frame) const;
    bool Racing() const { return !toDriver_.empty() && toDriver_.front().hold == 0; }
    std::string NameOf(emulator::View answer) const;
    std::string NameOfFrame() const;
    bool Telling() const { return story_ != nullptr; }  // asked first: texts take time
    void Tell(const Event& event);

    const Scenario* scenario_ = nullptr;
    const std::vector<Actions>* expected_ = nullptr;
    std::shared_ptr<const emulator::Wire> wire_;
    emulator::Register device_;
    emulator::Line line_;
    Stage stage_ = Stage::Quiet;
    std::size_t place_ = 0;
    emulator::Bytes writing_;
    Role role_ = Role::Answer;
    std::uint8_t command_ = 0;  // of the last request that the driver has written
    std::vector<Unit> toRegister_, toDriver_;
    std::vector<emulator::Bytes> undecided_;  // answers to the frame that was delivered last
    std::size_t delivered_ = Event::nowhere;  // its place
    emulator::Bytes inbox_;                   // has arrived at the driver's end
    std::size_t file_ = 0;
    std::size_t runBegin_ = 0;
    bool fiscalFrame_ = false;
    std::uint16_t firstNumber_ = 1;  // of the data frames of the file's commands in this run
    bool outOfTurn_ = false;
    bool acknowledged_ = false;  // what the driver has read last
    Ending runs_;
    std::optional<verdict::Account> account_;  // of the run, when verdicts are told
    verdict::Remains remains_;                 // of the run before
    std::vector<Actions> done_;
    bool over_ = false;
    Story* story_ = nullptr;
};

}  // namespace explore
