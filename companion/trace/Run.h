// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// One run of the driver while its lines come.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "companion/trace/Event.h"
#include "companion/trace/Judge.h"
#include "companion/trace/Tracer.h"
#include "companion/trace/Wire.h"
#include "companion/transcript/LogLine.h"

namespace trace {

class Run {
  public:
    /// The register may hold one of those commands from a run before.
    Run(const Question& question, const verdict::Commands& held, const RunHead& head, View& view);

    void Take(const transcript::LogLine& line, long number);
    /// A line that is not whole.
    void TakeDamage(long number, const char* why);
    /// The last line of the log, and its end is missing: all before it is there.
    void TakeCut(long number);
    /// The rest of it was removed from the log.
    void Remove() { removed_ = true; }
    void End();
    /// After the end: what the register may hold now.
    verdict::Commands Held() const { return judge_.Held(); }

  private:
    // --- what the lines say
    void TakeBlock(const transcript::LogLine& line);
    void TakeMessage(const transcript::LogLine& line);
    void TakeOther(std::string_view text, long number);
    void SayDamage(long number, const char* why);
    void TakeStatistics(int framesSent);
    void SayHeld(bool asFailure);
    void Say(Note note);

    // --- frames
    void Sent(const transcript::LogLine& line);
    void Received(const transcript::LogLine& line);
    void ReceivedStale(const transcript::LogLine& line);
    void Learn(verdict::View sent);
    void Answered(const Seen& seen, const transcript::LogLine& line);
    void Count(Frame& frame);
    void Expect(Frame frame);
    void EmitPending();
    void Emit(Frame& frame);
    void NoteTrouble(const Frame& frame);

    // --- time
    void Pass(const transcript::LogLine& line);
    void BeAt(Time when);

    void AddReason(std::string reason);
    void Conclude();

    const Question& question_;
    View& view_;
    std::optional<Wire> wire_;
    Judge judge_;
    RunEnd end_;
    Note held_;  // a message that may be the failure of the run, by what follows it
    bool holds_ = false;
    bool saidFrames_ = false;
    bool damaged_ = false;
    bool removed_ = false;
    bool inRubbish_ = false;        // the line before was no line of a log
    std::optional<Frame> pending_;  // a frame that is to be answered
    long moreReasons_ = 0;

    // Of the command that is on its way; and of the status.
    std::uint8_t command_ = 0;
    int requests_ = 0, datas_ = 0, statusRequests_ = 0, repliesAgain_ = 0;

    std::optional<double> clock_;  // as far as the lines tell
    std::optional<double> first_;
    double sumIn_ = 0;  // durations of reads
};

}  // namespace trace
