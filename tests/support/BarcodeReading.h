// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What a barcode looks like on paper, found without the driver's code: one character per module or
// per dot, '#' where a bar is burnt.
#pragma once

#include <climits>
#include <string>

#include "Buf.h"

/// As on ARM. There the driver refuses every byte above 7Fh, for the library draws other bars.
constexpr bool charIsUnsigned = CHAR_MIN == 0;

/// The library's description of the bars, module by module, the first space included.
std::string Modules(const std::string& partial);
/// The paper of width dots: every module a whole number of dots wide, as many as leave margin dots
/// at each side, centred; an odd dot is blank on the right.
std::string Drawn(const std::string& partial, std::size_t width, std::size_t margin);
/// The paper that a raster line burns.
std::string Dots(const BUF& line);
