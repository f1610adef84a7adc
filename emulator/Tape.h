// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The paper: text lines and barcodes in the order in which they were printed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace emulator {

/// One thing on the paper: a line of text, or a barcode with the text line below it.
struct TapeItem {
    enum class Kind { Text, Barcode };
    Kind kind = Kind::Text;
    std::string text;                  // UTF-8, no blanks at its end
    std::vector<std::uint8_t> raster;  // Barcode: byte k holds dots 8k to 8k+7, the leftmost dot
                                       // in the least significant bit, 1 is a bar
    std::uint16_t height = 0;          // Barcode: dots

    bool operator==(const TapeItem&) const = default;
};

/// One piece of paper between two cuts.
struct Slip {
    enum class Kind { Receipt, Cash, Report, Copy, Text };
    Kind kind = Kind::Text;
    std::uint32_t number = 0;  // of a Receipt or a Cash slip, else 0
    std::vector<TapeItem> items;

    bool operator==(const Slip&) const = default;
};

class Tape {
  public:
    /// width: characters per line; longer lines are cut there.
    explicit Tape(std::size_t width) : width_(width) {}

    std::size_t Width() const { return width_; }

    /// Prints a UTF-8 line; blanks at its end are dropped.
    void PrintLine(const std::string& line);
    void PrintCentered(const std::string& text);
    /// Left text and right text at the two edges; on two lines when one is too short.
    void PrintPair(const std::string& left, const std::string& right);
    void PrintRule(char dot);
    void PrintBarcode(const std::vector<std::uint8_t>& raster, std::uint16_t height,
                      const std::string& text);
    void PrintItem(const TapeItem& item);

    /// Ends the slip with what was printed since the last cut (and one empty line between slips).
    void Cut(Slip::Kind kind, std::uint32_t number = 0);

    /// Takes the slips and all lines away. What was printed since the last cut still comes onto the
    /// next slip.
    void TearOff();

    /// Goes on below what was printed since the last cut of another tape.
    void GoOnBelow(std::vector<TapeItem> pending) { pending_ = std::move(pending); }

    /// What was printed since the last cut.
    const std::vector<TapeItem>& Pending() const { return pending_; }
    const std::vector<Slip>& Slips() const { return slips_; }

    /// The whole paper as one slip, with an empty line between two.
    Slip Whole() const;
    /// The whole paper as text, barcodes as rows of block characters.
    const std::vector<std::string>& Lines() const { return lines_; }
    std::string Text() const;

    /// Called for every text line as it is printed / every slip as it is cut.
    void OnLine(std::function<void(const std::string&)> listener) { onLine_ = std::move(listener); }
    void OnSlip(std::function<void(const Slip&)> listener) { onSlip_ = std::move(listener); }

  private:
    void Emit(const std::string& line);

    std::size_t width_;
    std::vector<std::string> lines_;
    std::vector<TapeItem> pending_;
    std::vector<Slip> slips_;
    std::function<void(const std::string&)> onLine_;
    std::function<void(const Slip&)> onSlip_;
};

/// A raster as one row of width block characters, two columns to the character.
std::string BarcodeRow(const std::vector<std::uint8_t>& raster, std::size_t width);

/// The register's code page (ASCII and the 22 Latvian letters of Windows-1257) as UTF-8; a control
/// byte becomes a full stop, any other byte U+FFFD: one character per byte always.
std::string FromCodePage(const std::uint8_t* bytes, std::size_t size);

/// Every character of a UTF-8 text is in the register's code page, and is no control character.
bool CanPrint(std::string_view utf8);

/// Characters (not bytes) of a UTF-8 text.
std::size_t TextWidth(const std::string& utf8);

}  // namespace emulator
