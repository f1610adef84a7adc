// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Fiscal mode, the display, the drawer, and printing that sells nothing.
#include <cstddef>
#include <cstdint>

#include "emulator/Register.h"
#include "emulator/RegisterParts.h"

namespace emulator {

namespace {

constexpr int maxCashier = 99;
constexpr std::uint16_t tallestBarcode = 1000;  // dots

}  // namespace

bool Register::IsCashier(std::uint8_t number) const {
    return config_.cashiers.empty() ? InRange(number, 1, maxCashier)
                                    : config_.cashiers.contains(number);
}

std::uint8_t Register::DoEnter(std::uint8_t, View payload) {
    if (!LikesEntering(payload[0])) return FiscalCommandError;
    if (config_.cashierSystem && !IsCashier(payload[0])) return FiscalCommandError;
    cashier_ = payload[0];
    fiscalMode_ = true;
    return Ok;
}

std::uint8_t Register::DoExit(std::uint8_t, View) {
    fiscalMode_ = false;
    if (!receipt_ && !tape_.Pending().empty()) tape_.Cut(Slip::Kind::Text);
    return Ok;
}

std::uint8_t Register::DoShowInfo(std::uint8_t, View payload) {
    const unsigned word = payload[0] | static_cast<unsigned>(payload[1]) << 8;
    if (word != 0x0000 && word != 0xFFFF) return FiscalCommandError;
    displayOn_ = word == 0xFFFF;
    return Ok;
}

std::uint8_t Register::DoOpenDrawer(std::uint8_t, View) {
    ++drawerOpenings_;
    return Ok;
}

std::uint8_t Register::DoComment(std::uint8_t, View payload) {
    if (!LikesText(payload)) return FiscalCommandError;
    tape_.PrintLine(FromCodePage(payload.data(), payload.size()));
    return Ok;
}

std::uint8_t Register::DoBarcode(std::uint8_t, View payload) {
    const std::size_t dots = GetModel().RasterBytes();
    const auto height = static_cast<std::uint16_t>(payload[dots] | payload[dots + 1] << 8);
    if (!InRange(height, 1, tallestBarcode)) return FiscalCommandError;
    const View raster = payload.first(dots);
    const View text = payload.subspan(dots + 2);
    if (!LikesBarcode(raster, height, text)) return FiscalCommandError;
    tape_.PrintBarcode({raster.begin(), raster.end()}, height,
                       FromCodePage(text.data(), text.size()));
    return Ok;
}

}  // namespace emulator
