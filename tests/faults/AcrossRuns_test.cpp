// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What one run leaves in the register for the next one. Every run counts its commands from 1
// again.
#include <gtest/gtest.h>

#include "tests/faults/DriverRun.h"

namespace {

using namespace faults;
using emulator::WireFamily;

emulator::Register& Device() {
    return TheLine()->Device();
}

/// The register is in fiscal mode and has acted on the first command of an earlier run, whose
/// end-of-file frame never came: the line broke just then.
void BreakAfter(std::uint8_t firstCommand, const emulator::Bytes& payload) {
    TheLine() = std::make_unique<FaultyLine>(WireFamily::Ocelot,
                                             DefaultRegister(WireFamily::Ocelot), FaultPlan());
    emulator::Register& device = Device();
    device.Execute(emulator::EnterFiscalMode, 1, emulator::Bytes{1});
    device.CloseCommand();
    device.NoteStatusRead();
    device.Execute(firstCommand, 1, payload);
}

Told RunCommands(const std::string& commands) {
    const Told told = RunDriver(RunFolder(WireFamily::Ocelot, commands).Files());
    EXPECT_EQ(Complaint(Device()), std::nullopt);
    return told;
}

}  // namespace

TEST(AcrossRuns, TheFirstCommandGivenAgainIsOnlyAcknowledgedInFiscalMode) {
    BreakAfter(emulator::OpenCashDrawer, {});
    EXPECT_EQ(RunCommands("OPEN_DRAWER\n").exitCode, 0);
    EXPECT_EQ(Device().DrawerOpenings(), 1);  // by the earlier run
}

TEST(AcrossRuns, AnotherCommandInFrontOfItIsTheWayOut) {
    BreakAfter(emulator::OpenCashDrawer, {});
    EXPECT_EQ(RunCommands("DISPLAY_OFF\nOPEN_DRAWER\n").exitCode, 0);
    EXPECT_EQ(Device().DrawerOpenings(), 2);
}

TEST(AcrossRuns, EnteringFiscalModeIsSuchACommand) {
    BreakAfter(emulator::OpenCashDrawer, {});
    Device().Execute(emulator::ExitFiscalMode, 2, {});
    EXPECT_EQ(RunCommands("OPEN_DRAWER\n").exitCode, 0);
    EXPECT_EQ(Device().DrawerOpenings(), 2);
}

TEST(AcrossRuns, AReceiptLeftOpenIsNeverContinuedByAccident) {
    const emulator::Bytes amount = {0x00, 0x00, 0x10, 0x00};
    BreakAfter(emulator::ShowInfo, {0x00, 0x00});
    emulator::Bytes sale = {0x01};
    sale.resize(19, ' ');
    sale.insert(sale.end(), {0x00, 0x10, 0x00});
    sale.insert(sale.end(), amount.begin(), amount.end());
    Device().NoteStatusRead();
    ASSERT_TRUE(Device().Execute(emulator::DeptSale, 1, sale));
    const Told told = RunCommands("SALE: DEPTNR=1; AMOUNT=10.00\nTENDER\n");
    EXPECT_EQ(told.exitCode, 2);
    EXPECT_EQ(ResultValue(told.result, "ErrorCode"), "105");
    EXPECT_EQ(TheLine()->FiscalDataFrames(), 0);
}
