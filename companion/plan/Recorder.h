// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The register of the driver's processor in this program: it takes notes.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "Buf.h"

namespace plan {

/// Of the model that the byte of a status block names.
void BeModel(std::optional<std::uint8_t> protocol);

/// A command that was sent.
struct Note {
    std::uint8_t code = 0;
    BUF payload;
};

/// The commands sent since the last call.
std::vector<Note> TakeNotes();

/// What came with the last of them.
const BUF& LastPayload();

}  // namespace plan
