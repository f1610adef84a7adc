// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The register models: what a register tells about itself and how wide it prints.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace emulator {

/// The two kinds of frame that registers speak.
enum class WireFamily { Ocelot, Margay };

/// One row per protocol code that a register may report.
struct Model {
    std::string_view name;      // lower case, as given on a command line
    std::uint8_t version;       // fiscal protocol version, 1 or 2
    std::uint8_t code;          // byte 0 of the status block, 0 to 8
    std::size_t lineLength;     // printed characters per line
    std::size_t nameWidth;      // bytes of the name field of a department sale
    std::uint8_t drawerReport;  // number of the cash-in-drawer report
    WireFamily family;          // the frames that this model speaks unless told otherwise

    std::size_t CommentWidth() const { return lineLength - 1; }
    std::size_t RasterBytes() const { return lineLength * 12 / 8; }  // 12 dots a character
    bool PluSaleHasPrice() const { return version > 1; }
};

/// All nine models, in the order of their codes.
std::span<const Model> Models();

/// The model of that name and version; null when there is none (margay has no version 1).
const Model* FindModel(std::string_view name, std::uint8_t version);

/// What a command code means on the wire: the parameter bytes (after the sequence number)
/// that this model expects, or kNotACommand for a code that is none.
constexpr std::size_t kNotACommand = static_cast<std::size_t>(-1);
std::size_t PayloadSize(const Model& model, std::uint8_t command);

/// The command codes.
enum Command : std::uint8_t {
    EnterFiscalMode = 0xB0,
    ExitFiscalMode = 0xB1,
    PrintComment = 0xB2,
    DeptSale = 0xB3,
    DeptReturn = 0xB4,
    PluSale = 0xB5,
    PluReturn = 0xB6,
    PercentDiscount = 0xB7,
    AmountDiscount = 0xB8,
    PercentMarkup = 0xB9,
    AmountMarkup = 0xBA,
    Total = 0xBB,
    Tender = 0xBC,
    TenderForeign = 0xBD,
    ShowInfo = 0xBE,
    OpenCashDrawer = 0xBF,
    ReceivedOnAccount = 0xC1,
    ReceivedForeign = 0xC2,
    PaidOut = 0xC3,
    PaidOutForeign = 0xC4,
    Report = 0xC5,
    Barcode = 0xC6,
    ReadFiscalStatus = 0xD1,  // the only one that is read
    Ticket = 0xD4,
    Coupon = 0xD5,
};

/// The name of a command as it is in that list; "?" for a code that is none.
std::string_view CommandName(std::uint8_t command);

}  // namespace emulator
