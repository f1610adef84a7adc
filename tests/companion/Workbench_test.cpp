// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What the workbench knows of registers and of the driver's answers.
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "companion/workbench/Defaults.h"
#include "companion/workbench/ResultFile.h"
#include "companion/workbench/Serving.h"
#include "emulator/Register.h"

using emulator::WireFamily;

TEST(RegisterOf, HasTheNewestProtocolUnlessToldOtherwise) {
    EXPECT_EQ(workbench::RegisterOf("puma").model->version, 2);
    EXPECT_EQ(workbench::RegisterOf("puma", 1).model->version, 1);
    EXPECT_THROW(workbench::RegisterOf("margay", 1), std::runtime_error);
}

TEST(SettingsFor, FitTheFramesOfTheLine) {
    for (const WireFamily family : {WireFamily::Ocelot, WireFamily::Margay}) {
        const char* number = family == WireFamily::Margay ? "1" : "0";
        EXPECT_EQ(workbench::SettingsFor(family).Get("ProtocolFormatting"), number);
        EXPECT_EQ(workbench::RegisterFor(family).model->family, family);
    }
}

TEST(ResultValue, IsWhatFollowsTheNameUpToTheEndOfTheLine) {
    const std::string result = "[VOLTIS]\nResultCode=2\nMessage=a=b\nErrorCode=104";
    EXPECT_EQ(workbench::ResultValue(result, "ResultCode"), "2");
    EXPECT_EQ(workbench::ResultValue(result, "Message"), "a=b");
    EXPECT_EQ(workbench::ResultValue(result, "ErrorCode"), "104");
    EXPECT_EQ(workbench::ResultValue(result, "Code"), "");
}

TEST(Since, TellsWhatTheRegisterHasDoneLater) {
    emulator::Register device(workbench::RegisterOf("ocelot"));
    device.Execute(emulator::EnterFiscalMode, 1, emulator::Bytes{1});
    const workbench::Since since(device);
    device.Execute(emulator::OpenCashDrawer, 2, {});
    ASSERT_EQ(since.Journal().size(), 1U);
    EXPECT_EQ(since.Journal()[0].command, emulator::OpenCashDrawer);
    EXPECT_EQ(since.Lines().size(), 0U);
}
