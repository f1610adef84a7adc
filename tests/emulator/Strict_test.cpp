// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// A strict register: every rule that it has beyond those of other registers, and that it takes what
// keeps to them.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "emulator/Line.h"
#include "emulator/Register.h"
#include "tests/emulator/Bars.h"
#include "tests/emulator/Peer.h"

using namespace emulator;

namespace {

using Complaints = std::vector<std::string>;

struct Strict : testing::Test {
    static RegisterConfig Config() {
        RegisterConfig config;
        config.model = FindModel("lynx", 2);
        config.strict = true;
        return config;
    }

    /// The command under that number; what the register has against it, empty for nothing.
    Complaints DoUnder(std::uint16_t number, std::uint8_t command, const Bytes& payload = {}) {
        const std::size_t before = device.Complaints().size();
        const bool accepted = device.Execute(command, number, payload);
        if (accepted) device.CloseCommand();
        const Complaints all = device.Complaints();
        const Complaints added(all.begin() + static_cast<std::ptrdiff_t>(before), all.end());
        EXPECT_EQ(device.LastResult(), added.empty() ? 0 : 50);
        EXPECT_EQ(accepted, added.empty());
        return added;
    }
    Complaints Do(std::uint8_t command, const Bytes& payload = {}) {
        return DoUnder(static_cast<std::uint16_t>(device.LastSequence() + 1), command, payload);
    }
    void Enter() { EXPECT_EQ(Do(EnterFiscalMode, {1}), Complaints()); }

    Complaints Sell(const std::string& nameField) {
        return Do(DeptSale, Bytes{1} + Ascii(nameField) + FromHex("00 10 00 00 00 01 00"));
    }
    /// On 20 characters of 12 dots.
    Complaints Print(Bytes raster, std::uint16_t height, std::string text) {
        text.resize(20, ' ');
        raster.push_back(static_cast<std::uint8_t>(height & 255));
        raster.push_back(static_cast<std::uint8_t>(height >> 8));
        return Do(Barcode, raster + Ascii(text));
    }

    Register device{Config()};
};

using StrictNumber = Strict;
using StrictEntering = Strict;
using StrictText = Strict;
using StrictBarcode = Strict;
using StrictComplaint = Strict;

const std::string goodEan8 = "1113112111414111213111111231321113121132111";  // 96385074

}  // namespace

// --- numbers -------------------------------------------------------------------------------------

TEST_F(StrictNumber, IsOneToBeginWith) {
    EXPECT_EQ(DoUnder(2, EnterFiscalMode, {1}), Complaints{"number 2 after 0"});
    Register other(Config());
    EXPECT_TRUE(other.Execute(EnterFiscalMode, 1, Bytes{1}));
}

TEST_F(StrictNumber, FollowsTheOneBefore) {
    Enter();
    EXPECT_EQ(DoUnder(2, OpenCashDrawer), Complaints());
    EXPECT_EQ(DoUnder(4, OpenCashDrawer), Complaints{"number 4 after 2"});
    EXPECT_EQ(DoUnder(3, OpenCashDrawer), Complaints{"number 3 after 4"});
    EXPECT_EQ(device.DrawerOpenings(), 1);
}

TEST_F(StrictNumber, IsOneAfterTheLast) {
    Enter();
    for (unsigned number = 2; number <= 0xFFFE; ++number)
        ASSERT_EQ(DoUnder(static_cast<std::uint16_t>(number), OpenCashDrawer), Complaints());
    EXPECT_EQ(DoUnder(1, OpenCashDrawer), Complaints());
    EXPECT_EQ(DoUnder(2, OpenCashDrawer), Complaints());
}

TEST_F(StrictNumber, IsRaisedFromCommandToCommand) {
    Enter();
    EXPECT_EQ(DoUnder(1, OpenCashDrawer), Complaints{"number 1 after 1"});
}

TEST_F(StrictNumber, MayComeAgainWithTheSameCommandWhichIsARepetition) {
    Enter();
    for (int i = 0; i < 3; ++i) EXPECT_TRUE(device.Execute(OpenCashDrawer, 2, {}));
    EXPECT_EQ(device.Complaints(), Complaints());
    EXPECT_EQ(device.DrawerOpenings(), 1);
}

TEST_F(StrictNumber, ComesAgainWithAnotherCommandOnlyAfterAStatusRead) {
    Enter();
    device.RefuseNext(result::PrinterError);
    EXPECT_FALSE(device.Execute(OpenCashDrawer, 2, {}));
    device.NoteStatusRead();
    EXPECT_EQ(DoUnder(2, ExitFiscalMode), Complaints());
    EXPECT_EQ(DoUnder(2, ExitFiscalMode), Complaints{"number 2 after 2"});
}

TEST_F(StrictNumber, IsOneInTheNextRunWhichReadsTheStatusFirst) {
    Enter();
    EXPECT_EQ(DoUnder(2, OpenCashDrawer), Complaints());
    EXPECT_EQ(DoUnder(1, OpenCashDrawer), Complaints{"number 1 after 2"});
    EXPECT_EQ(DoUnder(2, OpenCashDrawer), Complaints());
    device.NoteStatusRead();
    EXPECT_EQ(DoUnder(1, OpenCashDrawer), Complaints());
}

TEST_F(StrictNumber, MayComeAgainAfterAStatusReadOverTheLine) {
    for (const WireFamily family : {WireFamily::Ocelot, WireFamily::Margay}) {
        Register another(Config());
        Line line(family, another);
        Peer peer(line, family);
        EXPECT_TRUE(peer.Do(EnterFiscalMode, {1}));
        peer.ReadStatus();
        EXPECT_TRUE(peer.Send(OpenCashDrawer, 1, {}));
        peer.Close();
        EXPECT_FALSE(peer.Send(OpenCashDrawer, 1, {}));
        EXPECT_EQ(another.Complaints(), Complaints{"number 1 after 1"});
    }
}

// --- entering fiscal mode ------------------------------------------------------------------------

TEST_F(StrictEntering, IsByCashierOneWhileTheCashierSystemIsOff) {
    EXPECT_EQ(Do(EnterFiscalMode, {2}), Complaints{"cashier 2 instead of 1"});
    EXPECT_EQ(Do(EnterFiscalMode, {0}), Complaints{"cashier 0 instead of 1"});
    EXPECT_FALSE(device.InFiscalMode());
    EXPECT_EQ(Do(EnterFiscalMode, {1}), Complaints());
}

TEST_F(StrictEntering, IsByTheConfiguredCashierWhileItIsOn) {
    RegisterConfig config = Config();
    config.cashierSystem = true;
    config.cashier = 7;
    device = Register(config);
    EXPECT_EQ(Do(EnterFiscalMode, {1}), Complaints{"cashier 1 instead of 7"});
    EXPECT_EQ(Do(EnterFiscalMode, {8}), Complaints{"cashier 8 instead of 7"});
    EXPECT_EQ(Do(EnterFiscalMode, {7}), Complaints());
    EXPECT_EQ(device.Cashier(), 7);
}

TEST_F(StrictEntering, HappensOnlyOutsideFiscalMode) {
    Enter();
    EXPECT_EQ(Do(EnterFiscalMode, {1}), Complaints{"fiscal mode is entered twice"});
    EXPECT_TRUE(device.InFiscalMode());
    EXPECT_EQ(Do(ExitFiscalMode), Complaints());
    EXPECT_EQ(Do(EnterFiscalMode, {1}), Complaints());
}

// --- texts ---------------------------------------------------------------------------------------

TEST_F(StrictText, OfANameHasItsBlanksOnTheRight) {
    Enter();
    EXPECT_EQ(Sell("Apple tart        "), Complaints());
    EXPECT_EQ(Sell("        Apple tart"), Complaints{"a name begins with a blank"});
    EXPECT_EQ(Sell(" Apple tart       "), Complaints{"a name begins with a blank"});
    EXPECT_EQ(device.Subtotal(), 100);
}

TEST_F(StrictText, OfANameMayFillItsFieldOrBeEmpty) {
    Enter();
    EXPECT_EQ(Sell("Apple tart, warm 1"), Complaints());
    EXPECT_EQ(Sell(std::string(18, ' ')), Complaints());
}

TEST_F(StrictText, HasNoNul) {
    Enter();
    EXPECT_EQ(Sell("Apple tart" + std::string(8, '\0')), Complaints{"a text holds a NUL"});
    EXPECT_EQ(Sell(std::string(18, '\0')), Complaints{"a text holds a NUL"});
    EXPECT_EQ(Do(PrintComment, Ascii(std::string(18, 'x') + '\0')),
              Complaints{"a text holds a NUL"});
}

TEST_F(StrictText, OfACommentMayBeginWithABlank) {
    Enter();
    EXPECT_EQ(Do(PrintComment, Ascii(" 3 x 0.335 @       ")), Complaints());
}

// --- barcodes ------------------------------------------------------------------------------------

TEST_F(StrictBarcode, IsOneHundredDotsHigh) {
    Enter();
    EXPECT_EQ(Print(Drawn(goodEan8, 30), 99, "96385074"), Complaints{"a barcode is 99 dots high"});
    EXPECT_EQ(Print(Drawn(goodEan8, 30), 101, "96385074"),
              Complaints{"a barcode is 101 dots high"});
    EXPECT_EQ(Print(Drawn(goodEan8, 30), 100, "96385074"), Complaints());
}

TEST_F(StrictBarcode, SaysWhatTheLineUnderItSays) {
    Enter();
    EXPECT_EQ(Print(Drawn(goodEan8, 30), 100, " 9 6 3 8 5 0 7"), Complaints());
    EXPECT_EQ(Print(Drawn(goodEan8, 30), 100, " 9 6 3 8 5 0 8"),
              Complaints{"the bars do not say ' 9 6 3 8 5 0 8      '"});
}

TEST_F(StrictBarcode, IsNoMirrorImage) {
    Enter();
    EXPECT_EQ(Print(Mirrored(Drawn(goodEan8, 30)), 100, "96385074").size(), 1U);
    EXPECT_EQ(device.Paper().Pending().size(), 0U);
}

// --- complaints ----------------------------------------------------------------------------------

TEST_F(StrictComplaint, IsToldAtOnce) {
    Complaints told;
    device.OnComplaint([&](const std::string& complaint) { told.push_back(complaint); });
    DoUnder(7, EnterFiscalMode, {1});
    DoUnder(9, EnterFiscalMode, {1});
    EXPECT_EQ(told, (Complaints{"number 7 after 0", "number 9 after 7"}));
    EXPECT_EQ(device.Complaints(), told);
}

TEST(LenientRegister, TakesAllThatAStrictOneRefuses) {
    RegisterConfig config = Strict::Config();
    config.strict = false;
    Register device(config);
    EXPECT_TRUE(device.Execute(EnterFiscalMode, 5, Bytes{9}));
    EXPECT_TRUE(device.Execute(EnterFiscalMode, 5, Bytes{8}));
    const Bytes sale = Bytes{1} + Ascii("        Apple tart") + FromHex("00 10 00 00 00 01 00");
    EXPECT_TRUE(device.Execute(DeptSale, 3, sale));
    EXPECT_TRUE(device.Execute(PrintComment, 3, Bytes(19, 0)));
    const Bytes code = Mirrored(Drawn(goodEan8, 30)) + Bytes{99, 0} + Bytes(20, 'x');
    EXPECT_TRUE(device.Execute(Barcode, 3, code));
    EXPECT_EQ(device.Complaints(), Complaints());
}
