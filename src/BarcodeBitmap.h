// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// BarcodeBitmap: barcode data as what the register's printer takes, one raster line that it repeats
// and one line of text under it. The bars come from the barcode library.
#pragma once

#include <memory>
#include <string>

#include "Buf.h"
#include "Common.h"

struct Barcode_Item;  // the library's record of one barcode

class BarcodeBitmap {
  public:
    /// Encodes. Raises 99 for empty data; 1 "Unsupported barcode type: <type>" and "Bad barcode
    /// format: <data>", both with cmdError; 50 "Memory allocation error - <system text>".
    BarcodeBitmap(const std::string& data, const std::string& type);

    /// The library's code of a symbology's name, in any case; empty: the library picks one.
    int StringToBarcodeType(const std::string& type);

    /// bitmapWidth / 8 bytes, the leftmost dot in the least significant bit of the first, 1 where a
    /// bar is printed; the bars centred with at least minMarginWidth blank dots at each side.
    /// Raises 99 for a width that is no multiple of 8 and a negative margin; 1 "Barcode bitmap does
    /// not fit in specified width".
    BUF GetBitmapLine(int bitmapWidth, int minMarginWidth);

    /// dataStringWidth characters: the data spread under the bars of the last GetBitmapLine. Raises
    /// 99 without one, or for a width that does not divide its dots; 1 "Barcode data string does
    /// not fit in specified width".
    std::string GetDataString(int dataStringWidth, int minMarginWidth);

    /// b with its bits in reverse order.
    static BYTE SwapByte(unsigned char b);

  private:
    struct ItemDeleter {
        void operator()(Barcode_Item* item) const;
    };

    std::unique_ptr<Barcode_Item, ItemDeleter> barcode;
};
