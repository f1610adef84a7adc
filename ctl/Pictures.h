// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Pictures of what was printed.
#pragma once

#include <cstddef>
#include <string>

#include "emulator/Tape.h"

/// A folder, made when it is missing, that gets one SVG file per slip of paper, named by its place
/// on the tape and what it is: "001-receipt-1.svg". std::runtime_error: it cannot be written.
class PictureFolder {
  public:
    PictureFolder(const std::string& folder, std::size_t lineLength);
    void Add(const emulator::Slip& slip);

  private:
    std::string folder_;
    std::size_t lineLength_;
    int count_ = 0;
};

/// Draws the whole paper, the slip in progress included, into one file. std::runtime_error: it
/// cannot be written.
void DrawTape(const emulator::Tape& tape, const std::string& file);
