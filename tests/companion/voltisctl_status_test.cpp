// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// `voltisctl status` from outside.
#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "companion/runner/DeviceLock.h"
#include "tests/companion/Site.h"
#include "tests/companion/ToldJson.h"
#include "tests/companion/Tool.h"
#include "tests/support/TempDir.h"

class VoltisctlStatus : public testing::Test {
  protected:
    Answer Ask(const Words& more = {}) {
        return site_.Served([&] { return RunTool(Words{"status"} + site_.Folders() + more); });
    }

    Site site_;
};

TEST_F(VoltisctlStatus, TellsThatTheRegisterIsReady) {
    const Answer answer = Ask();
    EXPECT_EQ(answer.exitCode, 0);
    EXPECT_EQ(answer.text, "register 'default': ready, no receipt open, last receipt 0\n");
    EXPECT_TRUE(std::filesystem::is_empty(site_.File("locks")));
}

TEST_F(VoltisctlStatus, TellsOfAnOpenReceipt) {
    site_.Print("SALE: DEPTNR=1; NAME=\"a\"; AMOUNT=2.50\nCONTINUE\n");
    EXPECT_EQ(Ask().text, "register 'default': receipt 1 is open, 2.50 to pay\n");
    const auto open = ToldJson("status", Ask({"--json"}).text);
    EXPECT_EQ(open["receipt"],
              nlohmann::json({{"number", 1}, {"open", true}, {"subtotal", "2.50"}}));
    site_.Configure("OldResultFileFormat=1\n");
    EXPECT_EQ(Ask().text, "register 'default': receipt is open\n");
}

TEST_F(VoltisctlStatus, TellsWhyTheRegisterIsNotReady) {
    site_.Register().SetKeylock(emulator::Keylock::Off);
    const Answer answer = Ask();
    EXPECT_EQ(answer.exitCode, 2);
    EXPECT_EQ(
        answer.text,
        "register 'default': Incorrect keylock position. Please set keylock in REG position\n");
}

TEST_F(VoltisctlStatus, IsOneObjectOfJson) {
    const auto ready = ToldJson("status", Ask({"--json"}).text);
    EXPECT_EQ(ready["register"], "default");
    EXPECT_EQ(ready["receipt"]["number"], 0);
    EXPECT_EQ(ready["receipt"]["open"], false);
    EXPECT_TRUE(ready["receipt"]["subtotal"].is_null());
    EXPECT_EQ(ready["exit_code"], 0);
    EXPECT_TRUE(ready["message"].is_null());
    site_.Register().SetKeylock(emulator::Keylock::Off);
    const auto closed = ToldJson("status", Ask({"--json"}).text);
    EXPECT_TRUE(closed["receipt"]["open"].is_null());
    EXPECT_EQ(closed["error_code"], 104);
    EXPECT_EQ(closed["exit_code"], 2);
}

TEST_F(VoltisctlStatus, ReadsBothFormatsOfTheResultFile) {
    site_.Configure("OldResultFileFormat=1\n");
    EXPECT_EQ(Ask().text, "register 'default': ready, no receipt open, last receipt 0\n");
    site_.Register().SetKeylock(emulator::Keylock::Off);
    EXPECT_TRUE(Holds(Ask().text, {"register 'default': Incorrect keylock position."}));
}

TEST_F(VoltisctlStatus, AsksTheRegisterThatIsNamed) {
    site_.Folder().Write("registers/bar.ini", ReadWholeFile(site_.File("voltis.ini")));
    EXPECT_EQ(Ask({"--register", "bar"}).text,
              "register 'bar': ready, no receipt open, last receipt 0\n");
    const Answer none = Ask({"--register", "none"});
    EXPECT_EQ(none.exitCode, 2);
    EXPECT_TRUE(Holds(none.text, {"registers/none.ini': there is no such file"}));
}

TEST_F(VoltisctlStatus, WaitsForARegisterInUseNoLongerThanItIsTold) {
    runner::Profile profile;
    profile.device = site_.Device();
    const runner::DeviceLock lock(runner::LockFileOf(profile, site_.File("locks")));
    const Answer busy = Ask({"--wait", "0.1"});
    EXPECT_EQ(busy.exitCode, 2);
    EXPECT_TRUE(Holds(busy.text, {"in use by process", "waited for 0.1 s"}));
}

TEST_F(VoltisctlStatus, NamesADeviceThatIsMissing) {
    site_.Folder().Write("voltis.ini", "[VOLTIS]\nDevice=/dev/serial/by-id/none\n");
    const Answer answer = Ask();
    EXPECT_EQ(answer.exitCode, 2);
    EXPECT_TRUE(Holds(answer.text, {"the device '/dev/serial/by-id/none' of register 'default'"}));
}

TEST_F(VoltisctlStatus, IsInTheSitesLogsWhenTheyAreWanted) {
    site_.Configure("StandardLog=1\n");
    Ask();
    EXPECT_TRUE(Holds(ReadWholeFile(site_.File("logs/voltis.log")), {"status.txt"}));
    EXPECT_FALSE(std::filesystem::exists(site_.File("logs/dbgerror.log")));
    std::filesystem::remove_all(site_.File("logs"));
    const Answer answer = Ask();
    EXPECT_EQ(answer.exitCode, 0);
    EXPECT_TRUE(Holds(answer.text, {"voltis.log' lacks this run", "ready"}));
}
