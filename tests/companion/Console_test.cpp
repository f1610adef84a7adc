// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What is typed at the emulated register.
#include <gtest/gtest.h>

#include <string>

#include "ctl/Console.h"
#include "ctl/RegisterOptions.h"
#include "emulator/Register.h"
#include "tests/companion/Tool.h"

struct Keyed : testing::Test {
    emulator::Register device{ConfigFor({})};
};

TEST_F(Keyed, TurnsTheKey) {
    EXPECT_EQ(Obey(device, "key off"), "done");
    EXPECT_EQ(device.GetKeylock(), emulator::Keylock::Off);
    EXPECT_EQ(Obey(device, "  key   reg \r"), "done");
    EXPECT_EQ(device.GetKeylock(), emulator::Keylock::Reg);
}

TEST_F(Keyed, TakesPaperOutAndPutsItIn) {
    Obey(device, "paper out");
    EXPECT_FALSE(device.HasReceiptPaper());
    Obey(device, "paper in");
    EXPECT_TRUE(device.HasReceiptPaper());
}

TEST_F(Keyed, SwitchesThePower) {
    Obey(device, "power off");
    EXPECT_FALSE(device.Powered());
    Obey(device, "power on");
    EXPECT_TRUE(device.Powered());
}

TEST_F(Keyed, FinishTellsThatNoReceiptIsOpen) {
    EXPECT_EQ(Obey(device, "finish"), KeyResultText(emulator::KeyResult::NoReceipt));
}

TEST_F(Keyed, StatusTellsTheState) {
    Obey(device, "key off");
    const std::string status = Obey(device, "status");
    EXPECT_TRUE(
        Holds(status, {"ocelot, protocol 2", "key      OFF", "receipt  none open", "paper    in"}));
}

TEST_F(Keyed, HelpListsEveryLine) {
    const std::string help = Obey(device, "help");
    for (const char* line : {"finish", "key reg", "key off", "paper out", "paper in", "power off",
                             "power on", "status", "help"}) {
        EXPECT_TRUE(Holds(help, {line}));
    }
}

TEST_F(Keyed, ALineThatIsNotUnderstoodIsAnsweredWithAHint) {
    EXPECT_EQ(Obey(device, "dance"), "'dance' is not understood; help lists what is");
    EXPECT_EQ(Obey(device, "  "), "");
}
