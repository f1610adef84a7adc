// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What is told of callers who come too often: a line for each of them and each minute, so that they
// cannot fill the log.
#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace voltisd {

class RefusalLog {
  public:
    using Time = std::chrono::steady_clock::time_point;

    /// The caller was refused with that line. Nothing: one was told less than a minute ago.
    std::optional<std::string> Take(const std::string& caller, const std::string& line, Time now);

    /// For each minute that is over and had more refusals than the one that was told: its line with
    /// their number. To be called now and then; costs nothing where there is none.
    std::vector<std::string> TakeOver(Time now);

  private:
    struct Minute {
        Time end;
        std::string line;
        std::size_t further = 0;
    };

    std::map<std::string, Minute> minutes_;
    Time next_ = Time::max();  // no minute is over before
};

}  // namespace voltisd
