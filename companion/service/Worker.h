// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Works off the queue of one register, in a process of its own: the driver's units, which tell what
// a file sends, have variables that only one of them can use at a time.
#pragma once

#include <chrono>

#include "companion/job/Job.h"

namespace service {

struct WorkerOptions {
    /// Somebody writes a byte there when there may be work, and closes it when this is to end.
    int wakeFd = -1;
    /// The same end: readable when this is to end; -1: nothing is.
    int endFd = -1;
    /// Gets a byte after each job, and closes with the process; -1: nothing does.
    int tellFd = -1;
    /// How long another program may keep the register before a job is given up.
    std::chrono::milliseconds patience{30'000};
    /// How long nothing happens before it is looked what other programs have left.
    std::chrono::milliseconds idle{5'000};
};

/// Until the end is told; a receipt that is being printed is ended first, and a job that waits for
/// the register stays in its queue. std::exception: the journal cannot be used, or what a program
/// has left cannot be found out, and whoever has started this should do so again, later.
void WorkOff(job::Jobs& jobs, const WorkerOptions& options);

}  // namespace service
