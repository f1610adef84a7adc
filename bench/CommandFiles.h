// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The command files that are measured.
#pragma once

#include <cstddef>
#include <string>

/// A receipt of so many commands: department sales and, last, a tender.
std::string Receipt(int commands);

/// Reads a file as plainly as C allows: fgets, strtok at the delimiters, nothing kept. Returns the
/// number of tokens.
std::size_t ReadPlainly(const char* fileName);
