// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What the frames of commands hold.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "companion/trace/Event.h"

namespace trace {

using Bytes = std::span<const std::uint8_t>;

/// The command's name in command files; "ENTER" and "LEAVE" of fiscal mode; empty for a code that
/// the driver does not send.
std::string_view NameOf(std::uint8_t command);
/// The same, or "command c0".
std::string TitleOf(std::uint8_t command);

/// The parameters of a command's data frame, after its number. Bytes that do not fit the command
/// are one field "bytes", in hexadecimal digits.
Fields FieldsOf(std::uint8_t command, Bytes payload);

/// The same of a status block, after its number.
Fields FieldsOfStatus(Bytes block);

/// What a part of a payload is, for those that replace it.
enum class PartKind : std::uint8_t {
    Department,
    Text,
    Plu,
    Quantity,
    Price,
    Cashier,
    Raster,
    Other
};
struct Part {
    PartKind kind = PartKind::Other;
    std::size_t at = 0;
    std::size_t size = 0;
};
/// The parts of that payload in their order; empty when it does not fit the command.
std::vector<Part> PartsOf(std::uint8_t command, std::size_t size);

/// A text of the register's as UTF-8, without blanks at its end.
std::string TextOf(Bytes bytes);

/// "d0 01 b3".
std::string Hex(Bytes bytes);

/// What the result code of a status block means: "Journal paper end"; empty for 0.
std::string ResultText(std::uint8_t code);

}  // namespace trace
