// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The lines that a person types at a running emulated register, in the place of its keyboard.
#pragma once

#include <string>

#include "emulator/Register.h"

/// Does what the line asks for and returns what happened, in one or more lines without a final line
/// feed. Blanks around the line and between its words do not matter; the answer to an empty line is
/// empty.
std::string Obey(emulator::Register& device, const std::string& line);

/// The line is one that Obey understands.
bool Obeys(const std::string& line);

/// The words of the line with one blank between them.
std::string WordsIn(const std::string& line);
