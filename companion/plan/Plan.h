// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What a command file asks of the register: the commands as they go over the line, in order.
//
// The driver's own processor carries the file out here, on a register that only takes notes, so
// what one line becomes (a subtotal and a discount, a comment in two lines) needs no second table.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace plan {

struct Command {
    std::uint8_t code = 0;  // as in a request
    int line = 0;           // of the file, from 1
    std::string title;      // what a cashier would call it: the item's name, or the command's
    std::vector<std::uint8_t> payload = {};  // without the sequence number
};

/// Without entering and leaving fiscal mode. protocol is the byte of the status block that tells
/// the register's model; without it, or with one that the driver does not know, the first model is
/// assumed. A line with a mistake counts as one command; a file that cannot be read has none.
/// codePage is a name of the driver's configuration, and decides about the letters in payloads.
///
/// Not for two threads at a time: the processor is one to a process.
std::vector<Command> CommandsOf(const std::string& commandFile,
                                std::optional<std::uint8_t> protocol = {},
                                const std::string& codePage = "RIM");

}  // namespace plan
