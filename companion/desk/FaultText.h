// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The language in which a person orders faults: "at data 3 nak", one fault a line.
#pragma once

#include <chrono>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "companion/desk/Mistake.h"
#include "emulator/Tap.h"

namespace desk {

/// One fault. What does not belong to its action is zero.
struct Fault {
    enum class Action { Lose, Corrupt, Cut, Nak, Busy, Refuse, Late, PaperOut, PowerOff };
    enum class Moment {
        Now,
        At,          // when such a frame comes, before anybody gets it
        After,       // when the register has acted on such a frame
        AfterLines,  // when so many lines were printed
    };
    static constexpr long each = std::numeric_limits<long>::max();

    Action action = Action::Lose;
    Moment moment = Moment::Now;
    emulator::FrameKind frame = emulator::FrameKind::Response;
    long first = 1, last = 1;               // which of these frames; AfterLines: both the number
    int result = 0;                         // Refuse
    std::chrono::milliseconds late{0};      // Late
    std::chrono::milliseconds recovery{0};  // Busy, PaperOut, PowerOff: after that time; 0: never
    std::string text;                       // the words, with one blank between them

    bool operator==(const Fault&) const = default;
};

/// The fault of one line; nothing when the line is empty or a comment. Mistakes: it is none.
std::optional<Fault> ReadFault(std::string_view line);

/// The faults of a whole file. Mistakes: every line that is none.
std::vector<Fault> ReadFaults(std::string_view text);

/// The line begins as a fault does.
bool BeginsAsFault(std::string_view line);

}  // namespace desk
