// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The bars of a printed raster line, before anybody knows what they say.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "emulator/Wire.h"

namespace emulator {

/// Bars and spaces from the left edge of the first bar to the right edge of the last, by turns: one
/// character per element, its width in modules, '1' to '9'.
using Widths = std::string;

/// A module is the largest width that every element is a multiple of. In the raster line byte k
/// holds dots 8k to 8k+7, the leftmost dot in the least significant bit, 1 is a bar. Nothing for
/// paper without a bar and for an element of more than nine modules.
std::optional<Widths> WidthsOf(View raster);

/// Takes elements from the left. What does not fit is not taken.
class BarReader {
  public:
    explicit BarReader(std::string_view widths) : rest_(widths) {}

    std::size_t Left() const { return rest_.size(); }
    bool AtEnd() const { return rest_.empty(); }
    bool Skip(std::string_view elements);
    /// The next elements; empty when there are fewer.
    std::string_view Take(std::size_t count);

  private:
    std::string_view rest_;
};

}  // namespace emulator
