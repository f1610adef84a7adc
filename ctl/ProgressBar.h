// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// How far a run is, in one line of a terminal.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "companion/plan/Plan.h"

class ProgressBar {
  public:
    /// Draws nothing when standard error is no terminal.
    ProgressBar();
    /// Leaves an empty line behind.
    ~ProgressBar();
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

    bool Drawing() const { return drawing_; }
    void Show(std::size_t done, const std::vector<plan::Command>& all);

  private:
    bool drawing_;
    std::string shown_;
};

/// "[########............] 4 of 10  RYE BREAD"; control characters of the title become "?".
std::string ProgressText(std::size_t done, const std::vector<plan::Command>& all);
