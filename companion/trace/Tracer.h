// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// A debug log, line by line, as the conversations that it tells of.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

#include "companion/trace/Event.h"
#include "companion/transcript/LogLine.h"
#include "companion/verdict/Account.h"
#include "companion/verdict/Promises.h"

namespace trace {

struct Question {
    verdict::Promises promises = {};
    double slowMs = 1000;          ///< an answer that takes longer is slow
    int lineSpeed = 19200;         ///< in bits a second
    int first = 1;                 ///< the first run to be shown, by its number
    std::optional<int> last = {};  ///< and the last one
};

class Run;

/// Shows a log to a view. Of a log of any length it keeps no more than one frame, and of its run
/// what a verdict needs.
class Tracer {
  public:
    Tracer(const Question& question, View& view);
    ~Tracer();
    Tracer(const Tracer&) = delete;
    Tracer& operator=(const Tracer&) = delete;

    /// A whole line, without its line feed.
    void Take(std::string_view line);
    /// A line that is longer than any of a log; the text is only its beginning.
    void TakeTooLong(std::string_view line, std::int64_t size);
    /// The log ends within this line.
    void TakeCut(std::string_view line, std::int64_t size);
    /// No more is there at present: a run that has said all that it says is ended.
    void Pause();
    /// The end of the run was removed from the log before it was taken.
    void Remove();
    /// No more will come of this run.
    void Finish();
    /// After one of both: what comes next follows this line, and is to be shown.
    void GoOnAfterLine(long line);

    /// So many runs have begun.
    int Runs() const { return runs_; }
    /// So many lines of the log were taken.
    long LinesTaken() const { return lines_; }

  private:
    enum class Place : std::uint8_t {
        Anywhere,  // the next line may be one of a run whose beginning is not there
        InRun,
        AfterRun,  // the driver has counted its frames, and that is nearly all it says
    };

    void Begin(RunHead head);
    void BeginInTheMiddle();
    void End();
    void EndJunk();
    bool IsShown(int run) const;
    bool IsJunk() const;
    void AddJunk(std::int64_t size);
    bool TakeStart(const transcript::LogLine& line);
    bool IsOfTheNext() const;
    bool Read(std::string_view text);
    bool IsPassedOver(std::string_view text) const;

    Question question_;
    View& view_;
    /// What the register may hold from the runs so far: of those that are not in the log nobody
    /// knows, but what fails is in it.
    verdict::Commands held_ = verdict::Commands::All();
    transcript::LogLine line_;
    std::unique_ptr<Run> run_;
    Junk junk_;
    Place place_ = Place::Anywhere;
    int runs_ = 0;
    long lines_ = 0;
};

}  // namespace trace
