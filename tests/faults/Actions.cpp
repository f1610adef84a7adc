// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "tests/faults/Actions.h"

#include <algorithm>

namespace faults {

Actions ActionsSince(const emulator::Register& device, std::size_t journalSize) {
    Actions actions;
    for (std::size_t i = journalSize; i < device.Journal().size(); ++i) {
        const emulator::Acted& acted = device.Journal()[i];
        const bool mode =
            acted.command == emulator::EnterFiscalMode || acted.command == emulator::ExitFiscalMode;
        if (acted.accepted && !mode) actions.push_back({acted.command, acted.payload});
    }
    return actions;
}

bool IsBeginning(const Actions& actions, const Actions& expected) {
    return actions.size() <= expected.size() &&
           std::equal(actions.begin(), actions.end(), expected.begin());
}

int MostFrames(std::size_t commands) {
    constexpr int retries = 3;                               // of each kind
    constexpr int request = retries + 1;                     // repeated while nothing comes back
    constexpr int statusRead = request + 2 * (retries + 1);  // an answer to each frame that came
    constexpr int attempts = 3 * retries + 1;                // garbage, NAK and loss count apart
    constexpr int command = attempts * (request + 1 + statusRead) + 1;
    constexpr int statusReads = 8;  // connecting, checking start and end, reports, after a failure
    constexpr int modeChanges = 3;  // entering, leaving, leaving again after a failure
    return (static_cast<int>(commands) + modeChanges) * command + statusReads * statusRead;
}

std::optional<std::string> Complaint(const emulator::Register& device) {
    if (device.Complaints().empty()) return std::nullopt;
    return "the register complains: " + device.Complaints().front();
}

}  // namespace faults
