// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The pictures of docs/measurements.md, drawn from what was measured.
#pragma once

#include <string>
#include <vector>

#include "bench/Parts.h"
#include "bench/WholeRuns.h"

struct Pictures {
    std::vector<SaleTimes> sales;  // one per frame family
    PartTimes parts;
    std::vector<RunCost> runs;  // by size, ascending
};

/// Writes sale-time.svg and file-size.svg into the folder.
void Draw(const Pictures& pictures, const std::string& folder);
