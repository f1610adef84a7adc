// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The journal of jobs.
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "companion/doctor/Finding.h"
#include "companion/doctor/Machine.h"

namespace doctor {

/// The journal that the runs of the account use, as companion/journal/Place.h has it: the
/// machine's, or its own, unless its XDG_STATE_HOME says otherwise.
std::string JournalOf(const Machine& machine);

/// The journals that know of jobs of a register: the one at the path, and the machine's when there
/// is one. std::runtime_error: the account may not use the machine's.
std::vector<std::string> JournalsOfRuns(const Machine& machine, const std::string& path);

/// Whether the account may use the journal at that path, or make it there; and a word when it is
/// not the machine's for want of rights.
Findings CheckJournalRights(const Machine& machine, const std::string& path);

/// The default pause of CheckJournal.
void WaitForATick();

/// The journal itself, which is only looked at: nothing of it is changed, and it is not made when
/// it is missing. And its jobs that wait for somebody. path: of this machine, whatever root is
/// looked at. Runs may be at work: what one of them shows for a moment is no finding, so trouble is
/// looked for twice. meanwhile: what is done between the two.
Findings CheckJournal(const std::string& path,
                      std::chrono::system_clock::time_point now = std::chrono::system_clock::now(),
                      const std::function<void()>& meanwhile = WaitForATick);

}  // namespace doctor
