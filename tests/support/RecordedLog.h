// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Replaces the application controller's logging in the executable that links it: what would go to
// the logs is kept for the test to look at.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "LogFile.h"

struct RecordedLine {
    LogType type;
    std::string message;
    bool addTime;

    bool operator==(const RecordedLine&) const = default;
};

std::ostream& operator<<(std::ostream& out, const RecordedLine& line);

/// Every line and every copied file ("<file name>", without time) so far, in order.
std::vector<RecordedLine>& RecordedLog();

/// A line as the register link writes all its events: to the debug log, with time.
RecordedLine Event(const std::string& message);

/// The recorded lines are these events and no other lines.
void ExpectEvents(const std::vector<std::string>& messages);
