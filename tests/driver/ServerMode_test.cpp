// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "Linux/ServerMode.h"

#include <gtest/gtest.h>

#include "Globals.h"
#include "tests/support/TempDir.h"

namespace {

struct Parts {
    std::string directory = "old";
    std::string fileName = "old";

    bool operator==(const Parts&) const = default;
};

Parts PartsOf(const std::string& path) {
    Parts parts;
    ParseFilePath(path, parts.directory, parts.fileName);
    return parts;
}

}  // namespace

TEST(ParseFilePath, SplitsAtTheLastSlash) {
    EXPECT_EQ(PartsOf("/var/pos/cmd.txt"), (Parts{"/var/pos", "cmd.txt"}));
    EXPECT_EQ(PartsOf("pos/cmd.txt"), (Parts{"pos", "cmd.txt"}));
}

TEST(ParseFilePath, LeavesTheDirectoryEmptyWithoutOne) {
    EXPECT_EQ(PartsOf("cmd.txt"), (Parts{"", "cmd.txt"}));
    EXPECT_EQ(PartsOf("/cmd.txt"), (Parts{"", "cmd.txt"}));
    EXPECT_EQ(PartsOf(""), (Parts{"", ""}));
}

TEST(ParseFilePath, LeavesTheFileNameEmptyAfterAFinalSlash) {
    EXPECT_EQ(PartsOf("/var/pos/"), (Parts{"/var/pos", ""}));
}

TEST(ParseFilePath, DoesNotSplitAtABackslash) {
    EXPECT_EQ(PartsOf("pos\\cmd.txt"), (Parts{"", "pos\\cmd.txt"}));
}

TEST(ExecuteServerMode, MarksTheProcessAsAServerForGood) {
    for (const bool compatible : {false, true}) {
        serverMode = false;
        ExecuteServerMode("cmd.txt", "result.txt", compatible);
        EXPECT_TRUE(serverMode);
    }
}

TEST(ExecuteServerMode, TouchesNeitherStateNorFiles) {
    const TempDir folder;
    State = STATE_EXECUTE;
    ExecuteServerMode(folder.Write("cmd.txt", "EXIT\n"), folder.File("result.txt"), false);
    EXPECT_EQ(State, STATE_EXECUTE);
    EXPECT_FALSE(exitServerMode);
    EXPECT_EQ(ReadWholeFile(folder.File("cmd.txt")), "EXIT\n");
    EXPECT_FALSE(std::filesystem::exists(folder.File("result.txt")));
}

TEST(RunServerMode, AloneMarksNothing) {
    RunNewServerMode("cmd.txt", "result.txt");
    RunOldServerMode("cmd.txt", "result.txt");
    EXPECT_FALSE(serverMode);
}
