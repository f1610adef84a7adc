// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Reads a printed barcode back and compares it with the line of text under it.
#pragma once

#include "emulator/Wire.h"

namespace emulator {

/// True when the bars, read from the left, carry the text in one of the symbologies that the
/// driver knows: EAN-8, EAN-13, UPC-A, UPC-E and ISBN with or without an add-on, Code 39, Code 93,
/// Code 128 and its raw numbers, interleaved 2 of 5, Codabar, MSI and Plessey. Their check
/// characters must be right; the text may have them or not, as the symbology has it. Blanks of the
/// text do not count: they spread it under the bars.
bool BarsCarry(View raster, View text);

}  // namespace emulator
