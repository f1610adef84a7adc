// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// A slip of paper drawn as an SVG picture.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "emulator/Tape.h"

namespace emulator {

/// The slip, one unit of the picture to a printer dot, 12 dots to a character. Text is fixed-width;
/// every dot of a barcode's raster is drawn over the barcode's height (neighbouring dots as one
/// rectangle), its blank margins are kept, and its text line is below.
/// lineLength: printed characters per line of the model.
std::string RenderSvg(const Slip& slip, std::size_t lineLength);

/// The same below a band of another colour, which no text on the paper can look like. It has these
/// lines, and they are the picture's title, too. Each is to be no longer than lineLength + 2.
std::string RenderSvg(const Slip& slip, std::size_t lineLength,
                      const std::vector<std::string>& mark);

}  // namespace emulator
