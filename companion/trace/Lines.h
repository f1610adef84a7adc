// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The bytes of a log as they come, cut into lines.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "companion/trace/Tracer.h"

namespace trace {

/// A place of a log and the bytes there, to tell later whether they are there still.
struct Landmark {
    std::int64_t at = 0;
    long linesBefore = 0;
    std::string bytes;
};

/// Hands the lines of a log to a tracer. A line longer than any that the driver writes is dropped
/// but for its beginning, so that a file of another kind takes no memory.
class Lines {
  public:
    explicit Lines(Tracer& tracer) : tracer_(tracer) {}

    void Take(std::string_view bytes);
    /// The log ends here, perhaps within a line.
    void Finish();
    /// What comes next is the beginning of another log.
    void BeginAgain();
    /// What was taken from there on was removed from the log: what comes next is there instead.
    void GoOnAt(std::int64_t at);

    /// So many bytes were taken, or are before those that were.
    std::int64_t At() const { return at_; }
    /// Where the last runs begin, at most 1000 of them.
    const std::deque<Landmark>& Begins() const { return begins_; }
    /// The line whose end has not come, as far as it is kept.
    Landmark Unfinished() const { return {lineAt_, tracer_.LinesTaken(), begun_}; }

  private:
    void Keep(std::string_view part);
    void EndLine(std::string_view part);
    void TakeWhole(std::string_view line);
    void MarkBegin(std::string_view line);
    void Forget();

    Tracer& tracer_;
    std::string begun_;  // of a line whose end has not come
    bool tooLong_ = false;
    std::int64_t at_ = 0;
    std::int64_t lineAt_ = 0;              // where the line that is being taken begins
    std::optional<std::int64_t> blankAt_;  // where the line before it does, when it is empty
    std::deque<Landmark> begins_;
};

/// How many runs of a log are shown, which next returns piece by piece, and empty at its end. A log
/// that grows may end within a line of which the rest will come.
int CountRuns(const std::function<std::string_view()>& next, bool grows = false);

}  // namespace trace
