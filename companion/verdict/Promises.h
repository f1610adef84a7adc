// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What a register is known to do, and not to do, beyond what docs/reliability.md assumes of every
// one.
#pragma once

#include <string_view>

namespace verdict {

/// Each is a habit that the register may have; see docs/emulator.md for the words.
struct Promises {
    bool numberOnly = false;
    bool forgetsAtStatus = false;
    bool forgetsAtRequest = false;
    bool answersStrayEof = false;
    bool forgetsWithoutPower = false;

    bool operator==(const Promises&) const = default;
};

/// From words separated by blanks; "silent-when-unreadable" is one, too, and changes nothing here,
/// since a refusal counts no more than silence. Throws std::runtime_error that names a word that is
/// none.
Promises PromisesOf(std::string_view words);

}  // namespace verdict
