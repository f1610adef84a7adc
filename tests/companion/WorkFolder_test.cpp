// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/workbench/WorkFolder.h"

#include <gtest/gtest.h>

#include <optional>

#include "companion/runner/DriverSettings.h"
#include "companion/runner/Sandbox.h"
#include "tests/support/TempDir.h"

using workbench::WorkFolder;

TEST(WorkFolder, GivesTheCopyANameThatTheDriverCanOpen) {
    const TempDir shop;
    WorkFolder folder({});
    EXPECT_EQ(folder.Take(shop.Write("a\\b c.txt", "TOTAL")), "a_b c.txt");
    EXPECT_EQ(ReadWholeFile(folder.Files().File("a_b c.txt")), "TOTAL");
}

TEST(WorkFolder, TakesTheResultOfAnEarlierRunAway) {
    runner::DriverSettings settings;
    settings.Set("ResultFileName", "/some/where/out.txt");
    WorkFolder folder(settings);
    folder.Files().Write("out.txt", "old");
    EXPECT_EQ(folder.Result(), "old");
    folder.Prepare("/dev/null");
    EXPECT_EQ(folder.Result(), std::nullopt);
}

TEST(WorkFolder, PlansARunWithItsConfigurationAndItsLogs) {
    runner::DriverSettings settings;
    settings.Set("ComNumber", "1");
    WorkFolder folder(settings);
    const runner::SandboxPlan plan = folder.Prepare("/dev/pts/7");
    EXPECT_EQ(plan.device, "/dev/pts/7");
    EXPECT_EQ(plan.logs, folder.Logs().Path());
    EXPECT_EQ(ReadWholeFile(plan.ini), "[VOLTIS]\nComNumber=1\n");
    folder.settings.reset();
    EXPECT_EQ(folder.Prepare("/dev/pts/7").ini, "");
}

TEST(WorkFolder, TellsWhatTheDebugLogHasGrownBy) {
    WorkFolder folder({});
    folder.Logs().Write("dbgerror.log", "first\n");
    folder.Prepare("/dev/null");
    EXPECT_EQ(folder.NewDebugLog(), "");
    folder.Logs().Write("dbgerror.log", "first\nsecond\n");
    EXPECT_EQ(folder.NewDebugLog(), "second\n");
    EXPECT_EQ(folder.DebugLog(), "first\nsecond\n");
}
