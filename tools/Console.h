// The lines that a person types at a running emulated register, in the place of its keyboard.
#pragma once

#include <string>

#include "emulator/Register.h"

/// Does what the line asks for and tells how it went, in one or more lines without a final line
/// feed. Blanks around the line and between its words do not matter; an empty line gives an empty
/// answer.
std::string Obey(emulator::Register& device, const std::string& line);
