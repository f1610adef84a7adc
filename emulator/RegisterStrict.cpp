// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What a strict register does not let pass: the driver always does these things in one way only.
#include <algorithm>
#include <cstdint>
#include <string>

#include "emulator/BarcodeReader.h"
#include "emulator/Register.h"
#include "emulator/RegisterParts.h"

namespace emulator {

namespace {

constexpr std::uint16_t firstNumber = 1, lastNumber = 0xFFFE;
constexpr std::uint8_t cashierWithoutSystem = 1;
constexpr std::uint16_t barcodeHeight = 100;  // dots
constexpr std::uint8_t blank = ' ';

}  // namespace

bool Register::Likes(bool rule, const std::string& complaint) {
    if (!config_.strict || rule) return true;
    complaints_.push_back(complaint);
    if (onComplaint_) onComplaint_(complaint);
    return false;
}

// A number that was judged comes again with another command when the driver has given the first one
// up, and 1 comes when a run begins: both times it has asked for the status before.
bool Register::Follows(std::uint16_t sequence) const {
    if (lastSequence_ == 0) return sequence == firstNumber;
    if (sequence == (lastSequence_ == lastNumber ? firstNumber : lastSequence_ + 1)) return true;
    return statusRead_ && (sequence == lastSequence_ || sequence == firstNumber);
}

bool Register::LikesNumber(std::uint16_t sequence) {
    return Likes(Follows(sequence),
                 "number " + std::to_string(sequence) + " after " + std::to_string(lastSequence_));
}

bool Register::LikesEntering(std::uint8_t cashier) {
    const std::uint8_t expected = config_.cashierSystem ? config_.cashier : cashierWithoutSystem;
    const std::string names =
        "cashier " + std::to_string(cashier) + " instead of " + std::to_string(expected);
    const bool known = config_.cashiers.empty() ? cashier == expected : IsCashier(cashier);
    return Likes(!fiscalMode_, "fiscal mode is entered twice") && Likes(known, names);
}

bool Register::LikesText(View text) {
    return Likes(std::find(text.begin(), text.end(), 0) == text.end(), "a text holds a NUL");
}

bool Register::LikesName(View name) {
    const bool empty = std::all_of(name.begin(), name.end(), [](auto c) { return c == blank; });
    return LikesText(name) && Likes(empty || name.front() != blank, "a name begins with a blank");
}

bool Register::LikesBarcode(View raster, std::uint16_t height, View text) {
    const std::string line(text.begin(), text.end());
    return Likes(height == barcodeHeight,
                 "a barcode is " + std::to_string(height) + " dots high") &&
           Likes(!config_.strict || BarsCarry(raster, text), "the bars do not say '" + line + "'");
}

}  // namespace emulator
