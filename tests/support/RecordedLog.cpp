// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "tests/support/RecordedLog.h"

#include <gtest/gtest.h>

#include "AppController.h"

std::ostream& operator<<(std::ostream& out, const RecordedLine& line) {
    return out << '"' << line.message << "\" (log " << static_cast<int>(line.type)
               << (line.addTime ? ", with time)" : ", without time)");
}

std::vector<RecordedLine>& RecordedLog() {
    static std::vector<RecordedLine> lines;
    return lines;
}

RecordedLine Event(const std::string& message) {
    return {DBG_LOG, message, true};
}

void ExpectEvents(const std::vector<std::string>& messages) {
    std::vector<RecordedLine> expected;
    for (const std::string& message : messages) expected.push_back(Event(message));
    EXPECT_EQ(RecordedLog(), expected);
}

void AppController::LogMessage(LogType type, const std::string& message, bool addTime) {
    RecordedLog().push_back({type, message, addTime});
}

void AppController::LogFileData(LogType type, const std::string& fileName) {
    RecordedLog().push_back({type, fileName, false});
}
