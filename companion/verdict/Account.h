// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What the register did with the commands of a file, told from the conversation.
//
// An account follows a conversation frame by frame and keeps every world (see World.h) that what
// was heard still allows. A command was done when it was in all of them, and was not when it was in
// none; what differs between them is not known. So the answer is never wrong as long as the
// register is as assumed, whatever the line did.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "companion/verdict/Frames.h"
#include "companion/verdict/Promises.h"
#include "companion/verdict/World.h"

namespace verdict {

/// Whether the register acted on a command, exactly once.
enum class Acted : std::uint8_t { No, Perhaps, Yes };

enum class Kind : std::uint8_t { NotPrinted, Part, Printed, Unknown };

/// Not printed when all are No, printed when all are Yes, part when some are and none is Perhaps. A
/// file without commands is printed.
Kind KindOf(const std::vector<Acted>& commands);

/// What a conversation leaves behind for the next one with the register.
struct Remains {
    /// The register may hold one of these as the first command of a run, so that the same one as
    /// the first of the next run may be taken for a repetition.
    Commands held;
    int coming = 0;  ///< so many answers may still come

    bool operator==(const Remains&) const = default;
};

struct Verdict {
    std::vector<Acted> commands;  // those of the plan
    Remains remains;
    std::optional<Status> before;  // the first status block
    std::optional<Status> after;   // the last one after the last data frame

    Kind What() const { return KindOf(commands); }
    std::size_t AtLeast() const;  // so many were done
    std::size_t AtMost() const;
};

/// What is asked.
struct Question {
    Wire wire;
    /// Command codes of the data frames that the file asks for, without entering and leaving fiscal
    /// mode.
    std::vector<std::uint8_t> plan;
    Promises promises;
    Remains before = {};             // of the verdict on the run before
    bool planIsWhatWasSent = false;  // no file is known: the plan grows as commands go out
};

/// A value: a copy goes on by itself from where it is.
class Account {
  public:
    explicit Account(Question question);

    /// Frame by frame, as the driver wrote them.
    void Wrote(View frame);
    /// Bytes that arrived, thrown away or not.
    void Arrived(View bytes);
    /// Another run of the driver on the same line: its data frames are no repetitions of those of
    /// the run before.
    void NextRun();
    /// The driver was killed here: one more frame may have gone out.
    void CutOff();
    /// The conversation is not all that was said: nothing is known any more of any command.
    void LoseTrack();
    /// The operator may have been at work since: a refusal may have been cleared.
    void OperatorMayHaveActed();
    /// What the last frame of the driver was.
    const Sent& LastSent() const { return last_; }
    /// How many worlds there are to follow.
    std::size_t WorldCount() const { return worlds_.size(); }
    /// Commands of the plan that went out.
    std::size_t CommandsSent() const { return planned_.size(); }
    /// The code of a command of the plan, by its place.
    std::uint8_t CommandAt(std::size_t place) const { return question_.plan[place]; }

    Verdict Conclude() const;
    /// Something was lost, late, refused or not understood.
    bool Odd() const { return odd_ || worlds_.size() != 1; }
    /// Everything that the future depends on, as bytes.
    void Describe(std::vector<std::uint8_t>& state) const;

  private:
    Rules TheRules() const { return {steps_, question_.before.held, question_.promises}; }
    bool Repeats(const Sent& frame) const;
    void NoteStep(const Sent& frame, std::size_t size);
    void Branch(const Sent& frame);
    void ForgetAtWill();
    void Hear(const Heard& heard);
    void NoteStatus(const Status& status);
    void Settle();
    Acted What(std::int32_t step) const;
    bool PerhapsStrayed(std::uint8_t command) const;
    Remains WhatRemains() const;

    Question question_;
    Frames frames_;
    Steps steps_;
    std::vector<std::int32_t> planned_;  // the step of each command of the plan that went out
    std::size_t firstOfRun_ = 0;         // of the steps
    std::optional<Status> before_, after_;
    Worlds worlds_;
    std::optional<std::vector<Acted>> settled_;  // of the steps, when the worlds became too many
    Commands strays_;                            // of the worlds that settled it (World::strays)
    Sent last_;
    bool heardSince_ = true;  // since the last frame of the driver
    bool odd_ = false;
    bool blind_ = false;  // other frames may have gone out
};

}  // namespace verdict
