// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The emulated register's rules, its status block and its memory.
#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>

#include "emulator/Register.h"
#include "tests/emulator/Peer.h"

using namespace emulator;

namespace {

// Packed decimal digits.
Bytes Bcd(std::int64_t value, std::size_t size) {
    Bytes bytes(size);
    for (std::size_t i = size; i-- > 0; value /= 100)
        bytes[i] = static_cast<std::uint8_t>(value / 10 % 10 * 16 + value % 10);
    return bytes;
}

Bytes Padded(const std::string& text, std::size_t width) {
    return Ascii(text + std::string(width - text.size(), ' '));
}

// A register in fiscal mode, key in REG, with one shop's worth of shorthand.
class Shop : public testing::Test {
  protected:
    explicit Shop(const char* model = "ocelot", std::uint8_t version = 2)
        : device(ConfigFor(model, version)) {
        EXPECT_TRUE(Do(EnterFiscalMode, {1}));
    }

    static RegisterConfig ConfigFor(const char* model, std::uint8_t version) {
        RegisterConfig config;
        config.model = FindModel(model, version);
        return config;
    }

    bool Do(std::uint8_t command, const Bytes& payload = {}) {
        const bool accepted = device.Execute(command, sequence++, payload);
        EXPECT_EQ(accepted, device.LastResult() == 0);
        if (accepted) device.CloseCommand();
        return accepted;
    }
    // Refused with 50, and nothing about the receipt or the paper has changed.
    bool Refuses(std::uint8_t command, const Bytes& payload = {}) {
        const auto lines = device.Paper().Lines();
        const Bytes before = device.StatusBlock();
        const Money drawer = device.Drawer(1);
        const bool accepted = Do(command, payload);
        Bytes after = device.StatusBlock();
        EXPECT_EQ(after[2], accepted ? 0x00 : 0xFF);
        after[2] = before[2];
        return !accepted && before == after && device.Paper().Lines() == lines &&
               device.Drawer(1) == drawer;
    }

    Bytes Dept(int number, const std::string& name, std::int64_t quantity, Money price) const {
        return Bytes{static_cast<std::uint8_t>(number)} +
               Padded(name, device.GetModel().nameWidth) + Bcd(quantity, 3) + Bcd(price, 4);
    }
    Bytes PluData(std::int64_t number, std::int64_t quantity, Money price = 0) const {
        const Bytes data = Bcd(number, 7) + Bcd(quantity, 3);
        return device.GetModel().version > 1 ? data + Bcd(price, 4) : data;
    }
    static Bytes Media(int medium, Money amount) {
        return Bytes{static_cast<std::uint8_t>(medium)} + Bcd(amount, 4);
    }
    static Bytes Foreign(int currency, int medium, Money amount) {
        return Bytes{static_cast<std::uint8_t>(currency)} + Media(medium, amount);
    }
    void Sell(Money amount) { EXPECT_TRUE(Do(DeptSale, Dept(1, "ITEM", 1000, amount))); }
    void Pay(Money amount = 0) { EXPECT_TRUE(Do(Tender, Media(1, amount))); }

    std::string Flat() const { return device.Paper().Text(); }
    bool Printed(const std::string& text) const { return Flat().find(text) != std::string::npos; }

    Register device;
    std::uint16_t sequence = 1;
};

class Margay : public Shop {
  protected:
    Margay() : Shop("margay") {}
};

class OldOcelot : public Shop {
  protected:
    OldOcelot() : Shop("ocelot", 1) {}
};

}  // namespace

TEST(Register, NeedsAModel) {
    EXPECT_THROW(Register(RegisterConfig{}), std::invalid_argument);
}

// --- fiscal mode and the key ---------------------------------------------------------------------

TEST(FiscalMode, EveryCommandButEnteringAndLeavingNeedsIt) {
    RegisterConfig config;
    config.model = FindModel("ocelot", 2);
    Register device(config);
    for (int code = 0xB1; code <= 0xD5; ++code) {
        const auto command = static_cast<std::uint8_t>(code);
        const std::size_t size = PayloadSize(device.GetModel(), command);
        if (size == kNotACommand) continue;
        EXPECT_EQ(device.Execute(command, 1, Bytes(size, 1)), command == ExitFiscalMode) << code;
        EXPECT_EQ(device.LastResult(), command == ExitFiscalMode ? 0 : 50) << code;
    }
    EXPECT_TRUE(device.Paper().Lines().empty());
}

TEST_F(Shop, EntersAndLeavesFiscalMode) {
    EXPECT_TRUE(device.InFiscalMode());
    EXPECT_TRUE(Do(EnterFiscalMode, {1}));
    EXPECT_TRUE(Do(ExitFiscalMode));
    EXPECT_FALSE(device.InFiscalMode());
    EXPECT_TRUE(Do(ExitFiscalMode));
    EXPECT_TRUE(Refuses(PrintComment, Padded("HELLO", 35)));
}

TEST_F(Shop, NeedsTheKeyInRegForEverythingButLeavingFiscalMode) {
    for (Keylock key : {Keylock::Off, Keylock::X, Keylock::Z}) {
        device.SetKeylock(key);
        EXPECT_TRUE(Refuses(PrintComment, Padded("HELLO", 35)));
        EXPECT_TRUE(Refuses(EnterFiscalMode, {1}));
        EXPECT_TRUE(Refuses(OpenCashDrawer));
    }
    EXPECT_TRUE(Do(ExitFiscalMode));
}

TEST(CashierSystem, WantsACashierFromOneToNinetyNine) {
    RegisterConfig config;
    config.model = FindModel("ocelot", 2);
    config.cashierSystem = true;
    Register device(config);
    EXPECT_FALSE(device.Execute(EnterFiscalMode, 1, FromHex("00")));
    EXPECT_FALSE(device.Execute(EnterFiscalMode, 2, FromHex("64")));
    EXPECT_TRUE(device.Execute(EnterFiscalMode, 3, FromHex("63")));
    EXPECT_EQ(device.Cashier(), 99);
    EXPECT_EQ(device.StatusBlock()[3], 0x31);
}

TEST_F(Shop, LeavingFiscalModeCutsLooseComments) {
    Do(PrintComment, Padded("CLOSED ON SUNDAY", 35));
    EXPECT_TRUE(device.Paper().Slips().empty());
    Do(ExitFiscalMode);
    ASSERT_EQ(device.Paper().Slips().size(), 1U);
    EXPECT_EQ(device.Paper().Slips()[0].kind, Slip::Kind::Text);
}

TEST_F(Shop, LeavingFiscalModeKeepsAnOpenReceipt) {
    Sell(100);
    Do(ExitFiscalMode);
    EXPECT_TRUE(device.ReceiptInProgress());
    EXPECT_TRUE(device.Paper().Slips().empty());
    EXPECT_EQ(device.Subtotal(), 100);
}

TEST_F(Shop, RefusesAPayloadOfAnotherSizeAndAnUnknownCommand) {
    EXPECT_TRUE(Refuses(DeptSale, Bytes(5, 1)));
    EXPECT_TRUE(Refuses(0xC0));
    EXPECT_TRUE(Refuses(ReadFiscalStatus));
}

// --- the status block ----------------------------------------------------------------------------

TEST(StatusBlock, OfAFreshRegister) {
    for (const Model& model : Models()) {
        RegisterConfig config;
        config.model = &model;
        config.language = 3;
        config.lastReceipt = 41;
        Bytes expected = FromHex("00 03 00 10 00 00 00 41 00 00 00 00 00 00 00");
        expected[0] = model.code;
        EXPECT_EQ(ToHex(Register(config).StatusBlock()), ToHex(expected));
    }
}

TEST_F(Shop, TheStatusBlockShowsTheOpenReceipt) {
    Do(DeptSale, Dept(7, "CAR", 999000, 99999999));  // 998,999,990.01
    // Code 4, result 0, REG + fiscal mode + receipt, receipt 1, plus sign, twelve digits
    EXPECT_EQ(ToHex(device.StatusBlock()), "04 00 00 70 00 00 00 01 00 09 98 99 99 90 01");
}

TEST_F(Shop, ANegativeSubtotalHasASignByteOfItsOwn) {
    Do(DeptReturn, Dept(1, "CUP", 1000, 1234));
    EXPECT_EQ(device.Subtotal(), -1234);
    EXPECT_EQ(ToHex(device.StatusBlock()), "04 00 00 70 00 00 00 01 10 00 00 00 00 12 34");
}

TEST_F(Shop, TheFlagsFollowTheKey) {
    device.SetKeylock(Keylock::Off);
    EXPECT_EQ(device.StatusBlock()[3], 0x28);
    device.SetKeylock(Keylock::X);
    EXPECT_EQ(device.StatusBlock()[3], 0x38);
    device.SetKeylock(Keylock::Z);
    EXPECT_EQ(device.StatusBlock()[3], 0x20);
}

TEST_F(Shop, AResultCodeIsPackedDecimalAndFiftyIsFf) {
    device.RefuseNext(99);
    EXPECT_FALSE(Do(OpenCashDrawer));
    EXPECT_EQ(device.StatusBlock()[2], 0x99);
    EXPECT_FALSE(Do(Tender, Media(1, 0)));
    EXPECT_EQ(device.StatusBlock()[2], 0xFF);
    EXPECT_TRUE(Do(OpenCashDrawer));
    EXPECT_EQ(device.StatusBlock()[2], 0x00);
}

TEST_F(Shop, TheReceiptNumberIsThatOfTheOpenReceiptAndThenOfTheLast) {
    EXPECT_EQ(device.ReceiptNumber(), 0U);
    Sell(100);
    EXPECT_EQ(device.ReceiptNumber(), 1U);
    Pay();
    EXPECT_EQ(device.ReceiptNumber(), 1U);
    Sell(100);
    EXPECT_EQ(device.ReceiptNumber(), 2U);
}

TEST(ReceiptNumber, BeginsAgainAfterEightDigits) {
    RegisterConfig config;
    config.model = FindModel("ocelot", 2);
    config.lastReceipt = 99999999;
    Register device(config);
    device.Execute(EnterFiscalMode, 1, FromHex("01"));
    device.Execute(ReceivedOnAccount, 2, FromHex("01 00 00 01 00"));
    EXPECT_EQ(device.ReceiptNumber(), 1U);
}

TEST_F(Shop, OnlyReceiptsAndCashSlipsTakeANumber) {
    Sell(100);
    Pay();
    Do(ReceivedOnAccount, Media(1, 100));
    EXPECT_EQ(device.ReceiptNumber(), 2U);
    Do(Total);
    Do(Report, FromHex("01 cc"));
    Do(Report, FromHex("01 00"));
    Do(PrintComment, Padded("X", 35));
    EXPECT_EQ(device.ReceiptNumber(), 2U);
}

// --- sales ---------------------------------------------------------------------------------------

TEST_F(Shop, ASaleOpensAReceiptAndMovesTheSubtotal) {
    EXPECT_FALSE(device.ReceiptInProgress());
    EXPECT_TRUE(Do(DeptSale, Dept(3, "SUGAR", 2000, 150)));
    EXPECT_TRUE(device.ReceiptInProgress());
    EXPECT_EQ(device.Subtotal(), 300);
    EXPECT_TRUE(Printed("SUGAR                           3.00\n  2 x 1.50\n"));
}

TEST_F(Shop, RoundsAnItemHalfUp) {
    Do(DeptSale, Dept(1, "A", 500, 1));  // 0.5 x 0.01
    EXPECT_EQ(device.Subtotal(), 1);
    Do(DeptSale, Dept(1, "A", 499, 1));
    EXPECT_EQ(device.Subtotal(), 1);
    Do(DeptReturn, Dept(1, "A", 500, 1));
    EXPECT_EQ(device.Subtotal(), 0);
    EXPECT_TRUE(Printed("  0.5 x 0.01"));
}

TEST_F(Shop, NamesADepartmentWithoutANameByItsNumber) {
    Do(DeptSale, Dept(4, "", 1000, 100));
    EXPECT_TRUE(Printed("DEPARTMENT 04"));
}

TEST_F(Shop, RefusesADepartmentThatItDoesNotHave) {
    EXPECT_TRUE(Refuses(DeptSale, Dept(0, "A", 1000, 100)));
    EXPECT_TRUE(Refuses(DeptSale, Dept(100, "A", 1000, 100)));
    EXPECT_TRUE(Do(DeptSale, Dept(99, "A", 1000, 100)));
}

TEST_F(Shop, RefusesDigitsThatAreNone) {
    Bytes sale = Dept(1, "A", 1000, 100);
    sale.back() = 0x1A;
    EXPECT_TRUE(Refuses(DeptSale, sale));
    sale.back() = 0xA1;
    EXPECT_TRUE(Refuses(DeptSale, sale));
    EXPECT_TRUE(Refuses(PluSale, FromHex("00 00 00 00 00 00 0f 00 10 00 00 00 00 00")));
    Sell(100);
    EXPECT_TRUE(Refuses(Tender, FromHex("01 00 00 0f 00")));
    EXPECT_TRUE(Refuses(PercentDiscount, FromHex("f0 00")));
    EXPECT_TRUE(Refuses(Ticket, FromHex("00 00 00 0f")));
}

TEST_F(Shop, RefusesASaleThatTheSubtotalCannotHold) {
    for (int i = 0; i < 10; ++i) EXPECT_TRUE(Do(DeptSale, Dept(1, "A", 999999, 99999999)));
    EXPECT_EQ(device.Subtotal(), 999998990000);
    EXPECT_TRUE(Refuses(DeptSale, Dept(1, "A", 999999, 99999999)));
    EXPECT_TRUE(Refuses(AmountMarkup, Bcd(99999999, 4)));
    EXPECT_EQ(ToHex(device.StatusBlock()), "04 00 ff 70 00 00 00 01 00 99 99 98 99 00 00");
}

TEST_F(Shop, SellsAPluAtItsProgrammedPrice) {
    EXPECT_TRUE(Do(PluSale, PluData(1, 2000)));
    EXPECT_EQ(device.Subtotal(), 500);
    EXPECT_TRUE(Printed("COFFEE"));
    EXPECT_TRUE(Do(PluSale, PluData(4750000000016, 1000)));
    EXPECT_EQ(device.Subtotal(), 629);
}

TEST_F(Shop, SellsAPluAtTheGivenPrice) {
    EXPECT_TRUE(Do(PluSale, PluData(1, 1000, 199)));
    EXPECT_EQ(device.Subtotal(), 199);
}

TEST_F(Shop, TakesAPluBack) {
    EXPECT_TRUE(Do(PluReturn, PluData(2, 1000)));
    EXPECT_EQ(device.Subtotal(), -180);
    EXPECT_TRUE(Printed("RETURN\nTEA"));
}

TEST_F(Shop, RefusesAnUnknownPlu) {
    EXPECT_TRUE(Refuses(PluSale, PluData(77, 1000)));
    EXPECT_TRUE(Refuses(PluReturn, PluData(0, 1000)));
    EXPECT_FALSE(device.ReceiptInProgress());
}

TEST_F(OldOcelot, SellsAPluWithoutAPriceField) {
    EXPECT_TRUE(Do(PluSale, PluData(1, 1000)));
    EXPECT_EQ(device.Subtotal(), 250);
    EXPECT_TRUE(Refuses(PluSale, PluData(1, 1000) + Bcd(199, 4)));
}

TEST_F(Margay, HasTwentyCharactersOfName) {
    EXPECT_TRUE(Do(DeptSale, Dept(1, "TWENTY LETTERS LONG!", 1000, 5)));
    EXPECT_TRUE(Printed("TWENTY LETTERS LONG!\n                0.05\n"));
}

// --- adjustments ---------------------------------------------------------------------------------

TEST_F(Shop, AnAdjustmentNeedsAReceipt) {
    for (std::uint8_t command : {PercentDiscount, PercentMarkup})
        EXPECT_TRUE(Refuses(command, FromHex("10 00")));
    for (std::uint8_t command : {AmountDiscount, AmountMarkup})
        EXPECT_TRUE(Refuses(command, FromHex("00 00 01 00")));
}

TEST_F(Shop, AdjustsTheLastItem) {
    Sell(1000);
    Sell(200);
    EXPECT_TRUE(Do(PercentDiscount, FromHex("10 00")));
    EXPECT_EQ(device.Subtotal(), 1180);
    EXPECT_TRUE(Do(AmountDiscount, Bcd(30, 4)));
    EXPECT_EQ(device.Subtotal(), 1150);
    EXPECT_TRUE(Do(PercentMarkup, FromHex("10 00")));  // of what the item costs by now: 1.50
    EXPECT_EQ(device.Subtotal(), 1165);
    EXPECT_TRUE(Do(AmountMarkup, Bcd(35, 4)));
    EXPECT_EQ(device.Subtotal(), 1200);
    EXPECT_TRUE(Printed("DISCOUNT 10.00%                -0.20\n"));
    EXPECT_TRUE(Printed("MARKUP                          0.35\n"));
}

TEST_F(Shop, AfterATotalAdjustsTheSale) {
    Sell(1000);
    Sell(200);
    EXPECT_TRUE(Do(Total));
    EXPECT_TRUE(Do(PercentDiscount, FromHex("10 00")));
    EXPECT_EQ(device.Subtotal(), 1080);
    EXPECT_TRUE(Do(AmountMarkup, Bcd(20, 4)));
    EXPECT_EQ(device.Subtotal(), 1100);
}

TEST_F(Shop, ASaleAfterATotalBringsTheAdjustmentBackToTheItem) {
    Sell(1000);
    Do(Total);
    Sell(200);
    Do(PercentDiscount, FromHex("50 00"));
    EXPECT_EQ(device.Subtotal(), 1100);
}

TEST_F(Shop, RefusesADiscountOfMoreThanThereIs) {
    Sell(1000);
    Sell(200);
    EXPECT_TRUE(Refuses(AmountDiscount, Bcd(201, 4)));
    EXPECT_TRUE(Do(AmountDiscount, Bcd(200, 4)));
    Do(Total);
    EXPECT_TRUE(Refuses(AmountDiscount, Bcd(1001, 4)));
    EXPECT_TRUE(Do(AmountDiscount, Bcd(1000, 4)));
    EXPECT_EQ(device.Subtotal(), 0);
}

TEST_F(Shop, ADiscountShrinksAReturnToo) {
    Do(DeptReturn, Dept(1, "A", 1000, 1000));
    Do(PercentDiscount, FromHex("10 00"));
    EXPECT_EQ(device.Subtotal(), -900);
    Do(AmountMarkup, Bcd(50, 4));
    EXPECT_EQ(device.Subtotal(), -950);
}

TEST_F(Shop, RoundsAPercentageHalfUpAndTakesNone) {
    Sell(5);
    EXPECT_TRUE(Do(PercentDiscount, FromHex("10 00")));  // 0.005
    EXPECT_EQ(device.Subtotal(), 4);
    EXPECT_TRUE(Do(PercentDiscount, FromHex("00 00")));
    EXPECT_EQ(device.Subtotal(), 4);
}

TEST_F(Shop, TicketsAndCouponsTakeTheirAmountOff) {
    EXPECT_TRUE(Refuses(Ticket, Bcd(100, 4)));
    EXPECT_TRUE(Refuses(Coupon, Bcd(100, 4)));
    Sell(1000);
    EXPECT_TRUE(Do(Ticket, Bcd(150, 4)));
    EXPECT_EQ(device.Subtotal(), 850);
    EXPECT_TRUE(Do(Coupon, Bcd(50, 4)));
    EXPECT_EQ(device.Subtotal(), 800);
    EXPECT_TRUE(Refuses(Coupon, Bcd(801, 4)));
    EXPECT_TRUE(Printed("TICKET                         -1.50\n"));
    EXPECT_TRUE(Printed("COUPON                         -0.50\n"));
}

TEST_F(Shop, RefusesATicketOnAReceiptThatPaysBack) {
    Do(DeptReturn, Dept(1, "A", 1000, 1000));
    EXPECT_TRUE(Refuses(Ticket, Bcd(1, 4)));
}

// --- totals and tenders --------------------------------------------------------------------------

TEST_F(Shop, ATenderNeedsAReceipt) {
    EXPECT_TRUE(Refuses(Tender, Media(1, 0)));
    EXPECT_TRUE(Refuses(TenderForeign, Foreign(1, 1, 100)));
}

TEST_F(Shop, ATenderWithoutAnAmountPaysExactly) {
    Sell(1234);
    EXPECT_TRUE(Do(Tender, Media(3, 0)));
    EXPECT_FALSE(device.ReceiptInProgress());
    EXPECT_EQ(device.Drawer(3), 1234);
    EXPECT_EQ(device.Drawer(1), 10000);
    EXPECT_EQ(device.Totals().media[2], 1234);
    EXPECT_TRUE(Printed("CARD                           12.34\n"));
    EXPECT_FALSE(Printed("CHANGE"));
}

TEST_F(Shop, TheDrawerGivesChange) {
    Sell(750);
    EXPECT_TRUE(Do(Tender, Media(1, 1000)));
    EXPECT_EQ(device.Drawer(1), 10750);
    EXPECT_TRUE(Printed("CHANGE                          2.50\n"));
    EXPECT_EQ(device.Totals().media[0], 750);
}

TEST_F(Shop, ACardPaysOutChangeFromTheCash) {
    Sell(1000);
    EXPECT_TRUE(Do(Tender, Media(3, 3000)));
    EXPECT_EQ(device.Drawer(3), 3000);
    EXPECT_EQ(device.Drawer(1), 8000);
}

TEST_F(Shop, RefusesChangeThatTheDrawerDoesNotHold) {
    Sell(1000);
    EXPECT_TRUE(Refuses(Tender, Media(3, 11001)));
    EXPECT_TRUE(Do(Tender, Media(3, 11000)));
    EXPECT_EQ(device.Drawer(1), 0);
}

TEST_F(Shop, APartPaymentLeavesTheReceiptOpen) {
    Sell(1000);
    EXPECT_TRUE(Do(Tender, Media(3, 400)));
    EXPECT_TRUE(device.ReceiptInProgress());
    EXPECT_EQ(device.Subtotal(), 600);
    EXPECT_TRUE(Printed("TO PAY                          6.00\n"));
    EXPECT_TRUE(Do(Tender, Media(1, 0)));
    EXPECT_FALSE(device.ReceiptInProgress());
    EXPECT_EQ(device.Totals().sales, 1000);
}

TEST_F(Shop, NothingIsSoldOrAdjustedOncePaymentBegan) {
    Sell(1000);
    Do(Tender, Media(1, 100));
    EXPECT_TRUE(Refuses(DeptSale, Dept(1, "A", 1000, 100)));
    EXPECT_TRUE(Refuses(PluReturn, PluData(1, 1000)));
    EXPECT_TRUE(Refuses(PercentDiscount, FromHex("10 00")));
    EXPECT_TRUE(Refuses(Coupon, Bcd(1, 4)));
    EXPECT_TRUE(Do(Total));
    EXPECT_TRUE(Do(PrintComment, Padded("THANKS", 35)));
    EXPECT_TRUE(Do(OpenCashDrawer));
    Pay();
}

TEST_F(Shop, RefusesAMediumOrCurrencyThatThereIsNot) {
    Sell(1000);
    EXPECT_TRUE(Refuses(Tender, Media(0, 0)));
    EXPECT_TRUE(Refuses(Tender, Media(9, 0)));
    EXPECT_TRUE(Refuses(TenderForeign, Foreign(0, 1, 0)));
    EXPECT_TRUE(Refuses(TenderForeign, Foreign(5, 1, 0)));
    EXPECT_TRUE(Do(TenderForeign, Foreign(4, 8, 0)));
}

TEST_F(Shop, ForeignMoneyIsTakenAtItsRateAndChangeGivenInHomeCash) {
    Sell(1000);
    EXPECT_TRUE(Do(TenderForeign, Foreign(2, 1, 2000)));  // 20.00 at 0.9
    EXPECT_EQ(device.ForeignDrawer(2, 1), 2000);
    EXPECT_EQ(device.Drawer(1), 10000 - 800);
    EXPECT_EQ(device.Totals().media[0], 1000);
    EXPECT_TRUE(Printed("CURRENCY 2                     20.00\n"));
}

TEST_F(Shop, ForeignMoneyWithoutAnAmountPaysExactly) {
    Sell(1000);
    EXPECT_TRUE(Do(TenderForeign, Foreign(3, 3, 0)));  // 10.00 at 1.25
    EXPECT_FALSE(device.ReceiptInProgress());
    EXPECT_EQ(device.ForeignDrawer(3, 3), 800);
}

TEST_F(Shop, AReturnIsPaidBackFromTheDrawer) {
    Do(DeptReturn, Dept(1, "A", 1000, 4000));
    Pay();
    EXPECT_EQ(device.Drawer(1), 6000);
    Do(DeptReturn, Dept(1, "A", 1000, 6001));
    EXPECT_TRUE(Refuses(Tender, Media(1, 0)));
    EXPECT_TRUE(Refuses(TenderForeign, Foreign(1, 1, 0)));
    EXPECT_TRUE(Do(Tender, Media(3, 0)));  // back onto the card
    EXPECT_EQ(device.Drawer(3), -6001);
}

TEST_F(Shop, AReceiptThatComesToNothingCloses) {
    Sell(100);
    Do(DeptReturn, Dept(1, "A", 1000, 100));
    EXPECT_EQ(device.Subtotal(), 0);
    Pay();
    EXPECT_FALSE(device.ReceiptInProgress());
}

TEST_F(Shop, ATotalInsideAReceiptPrintsTheSubtotal) {
    Sell(1000);
    EXPECT_TRUE(Do(Total));
    EXPECT_TRUE(Printed("SUBTOTAL                       10.00\n"));
    EXPECT_TRUE(device.ReceiptInProgress());
}

TEST_F(Shop, ATotalWithoutAReceiptPrintsTheLastOneAgain) {
    EXPECT_TRUE(Refuses(Total));
    Sell(1000);
    Pay(1500);
    Do(ReceivedOnAccount, Media(1, 100));
    EXPECT_TRUE(Do(Total));
    const auto& slips = device.Paper().Slips();
    ASSERT_EQ(slips.size(), 3U);
    EXPECT_EQ(slips[2].kind, Slip::Kind::Copy);
    ASSERT_EQ(slips[2].items.size(), slips[0].items.size() + 1);
    EXPECT_EQ(slips[2].items[0].text, "            *** COPY ***");
    for (std::size_t i = 0; i < slips[0].items.size(); ++i)
        EXPECT_EQ(slips[2].items[i + 1].text, slips[0].items[i].text);
}

// --- cash movements ------------------------------------------------------------------------------

TEST_F(Shop, MovesCashInAndOut) {
    EXPECT_TRUE(Do(ReceivedOnAccount, Media(1, 5000)));
    EXPECT_EQ(device.Drawer(1), 15000);
    EXPECT_TRUE(Do(PaidOut, Media(1, 15000)));
    EXPECT_EQ(device.Drawer(1), 0);
    EXPECT_EQ(device.Totals().receivedOnAccount, 5000);
    EXPECT_EQ(device.Totals().paidOut, 15000);
    EXPECT_EQ(device.Totals().sales, 0);
    EXPECT_EQ(device.Paper().Slips()[1].kind, Slip::Kind::Cash);
    EXPECT_EQ(device.Paper().Slips()[1].number, 2U);
    EXPECT_TRUE(Printed("PAID OUT\nCASH                          150.00\nCASH SLIP 000002\n"));
}

TEST_F(Shop, RefusesToPayOutMoreThanTheDrawerHolds) {
    EXPECT_TRUE(Refuses(PaidOut, Media(1, 10001)));
    EXPECT_TRUE(Refuses(PaidOut, Media(3, 1)));
    EXPECT_TRUE(Refuses(PaidOutForeign, Foreign(1, 1, 1)));
    EXPECT_TRUE(Do(PaidOut, Media(1, 10000)));
}

TEST_F(Shop, KeepsForeignCashApart) {
    EXPECT_TRUE(Do(ReceivedForeign, Foreign(2, 1, 550)));
    EXPECT_EQ(device.ForeignDrawer(2, 1), 550);
    EXPECT_EQ(device.Drawer(1), 10000);
    EXPECT_EQ(device.Totals().receivedOnAccount, 495);
    EXPECT_TRUE(Refuses(PaidOutForeign, Foreign(2, 1, 551)));
    EXPECT_TRUE(Do(PaidOutForeign, Foreign(2, 1, 550)));
}

TEST_F(Shop, RefusesACashMovementOrAReportInsideAReceipt) {
    Sell(100);
    EXPECT_TRUE(Refuses(ReceivedOnAccount, Media(1, 100)));
    EXPECT_TRUE(Refuses(ReceivedForeign, Foreign(1, 1, 100)));
    EXPECT_TRUE(Refuses(PaidOut, Media(1, 100)));
    EXPECT_TRUE(Refuses(PaidOutForeign, Foreign(1, 1, 100)));
    EXPECT_TRUE(Refuses(Report, FromHex("01 cc")));
    EXPECT_TRUE(Refuses(Report, FromHex("01 00")));
}

// --- reports -------------------------------------------------------------------------------------

TEST_F(Shop, AnXReportReadsAndAZReportClears) {
    Sell(1000);
    Do(AmountDiscount, Bcd(100, 4));
    Do(Coupon, Bcd(50, 4));
    Pay();
    Do(DeptReturn, Dept(2, "A", 1000, 200));
    Pay();
    const DayTotals day = device.Totals();
    EXPECT_EQ(day.sales, 650);
    EXPECT_EQ(day.discounts, 100);
    EXPECT_EQ(day.coupons, 50);
    EXPECT_EQ(day.returns, 200);
    EXPECT_EQ(day.receipts, 2);
    EXPECT_EQ(day.media[0], 650);
    EXPECT_EQ(day.departments.at(1), 900);
    EXPECT_EQ(day.departments.at(2), -200);

    EXPECT_TRUE(Do(Report, FromHex("01 cc")));
    EXPECT_EQ(device.Totals(), day);
    EXPECT_TRUE(Printed("X REPORT"));
    EXPECT_TRUE(Printed("DISCOUNTS                       1.00\n"));
    EXPECT_TRUE(Printed("COUPONS                         0.50\n"));
    EXPECT_TRUE(Printed("RETURNS                         2.00\n"));
    EXPECT_FALSE(Printed("MARKUPS"));  // there were none
    EXPECT_TRUE(Do(Report, FromHex("01 00")));
    EXPECT_EQ(device.Totals(), DayTotals{});
    EXPECT_EQ(device.ZReports(), 1);
    EXPECT_TRUE(Printed("Z REPORT 0001"));
    EXPECT_TRUE(Printed("SALES                           6.50\n"));
    EXPECT_EQ(device.Drawer(1), 10650);
}

TEST_F(Shop, AnOpenReceiptIsNotYetInTheDay) {
    Sell(1000);
    EXPECT_EQ(device.Totals(), DayTotals{});
}

TEST_F(Shop, ReadsTheCashInTheDrawer) {
    Do(ReceivedForeign, Foreign(2, 1, 550));
    EXPECT_TRUE(Do(Report, FromHex("13 cc")));
    EXPECT_TRUE(Printed("CASH IN DRAWER"));
    EXPECT_TRUE(Printed("CASH                          100.00\n"));
    EXPECT_TRUE(Printed("CURRENCY 2 CASH                 5.50\n"));
}

TEST_F(Shop, RefusesAReportThatThereIsNot) {
    EXPECT_TRUE(Refuses(Report, FromHex("13 00")));
    EXPECT_TRUE(Refuses(Report, FromHex("02 cc")));
    EXPECT_TRUE(Refuses(Report, FromHex("01 01")));
    EXPECT_TRUE(Refuses(Report, FromHex("0f cc")));
}

TEST_F(Margay, NumbersItsDrawerReportTwo) {
    EXPECT_TRUE(Do(Report, FromHex("02 cc")));
    EXPECT_TRUE(Refuses(Report, FromHex("13 cc")));
}

// --- display, drawer, comments, barcodes ---------------------------------------------------------

TEST_F(Shop, TheDisplayIsSwitchedByItsWord) {
    EXPECT_TRUE(Do(ShowInfo, FromHex("ff ff")));
    EXPECT_TRUE(device.DisplayOn());
    Sell(100);
    Do(Total);
    EXPECT_EQ(device.Display(), "SUBTOTAL 1.00");
    EXPECT_TRUE(Do(ShowInfo, FromHex("00 00")));
    EXPECT_FALSE(device.DisplayOn());
    EXPECT_EQ(device.Display(), "");
    EXPECT_TRUE(Refuses(ShowInfo, FromHex("01 00")));
}

TEST_F(Shop, CountsDrawerOpenings) {
    Do(OpenCashDrawer);
    Sell(100);
    EXPECT_TRUE(Do(OpenCashDrawer));
    EXPECT_EQ(device.DrawerOpenings(), 2);
}

TEST_F(Shop, PrintsACommentInsideAndOutsideOfAReceipt) {
    EXPECT_TRUE(Do(PrintComment, Padded("WELCOME", 35)));
    Sell(100);
    EXPECT_TRUE(Do(PrintComment, Padded("  GIFT", 35)));
    EXPECT_TRUE(Do(PrintComment, Padded("", 35)));
    Pay();
    const auto& items = device.Paper().Slips().at(0).items;
    EXPECT_EQ(items.at(0).text, "WELCOME");
    EXPECT_EQ(items.at(3).text, "  GIFT");
    EXPECT_EQ(items.at(4).text, "");
}

TEST_F(Shop, PrintsLatvianLetters) {
    Bytes text(35, ' ');
    const Bytes letters =
        FromHex("c2 c8 c7 cc ce cd cf d2 d0 db de e2 e8 e7 ec ee ed ef f2 f0 fb fe");
    std::copy(letters.begin(), letters.end(), text.begin());
    Do(PrintComment, text);
    EXPECT_EQ(device.Paper().Lines().back(), "ĀČĒĢĪĶĻŅŠŪŽāčēģīķļņšūž");
}

TEST_F(Shop, PrintsABarcode) {
    Bytes raster(54);
    raster[3] = 0x0F;
    EXPECT_TRUE(Do(Barcode, raster + FromHex("64 00") + Padded("  12345", 36)));
    const TapeItem& item = device.Paper().Pending().back();
    EXPECT_EQ(item.kind, TapeItem::Kind::Barcode);
    EXPECT_EQ(item.raster, raster);
    EXPECT_EQ(item.height, 100);
    EXPECT_EQ(item.text, "  12345");
    EXPECT_EQ(device.Paper().Lines().back(), "  12345");
}

TEST_F(Shop, RefusesABarcodeOfNoHeightOrTooTall) {
    EXPECT_TRUE(Refuses(Barcode, Bytes(54) + FromHex("00 00") + Padded("1", 36)));
    EXPECT_TRUE(Refuses(Barcode, Bytes(54) + FromHex("e9 03") + Padded("1", 36)));
    EXPECT_TRUE(Do(Barcode, Bytes(54) + FromHex("e8 03") + Padded("1", 36)));
}

// --- paper, power, keyboard ----------------------------------------------------------------------

TEST_F(Shop, PrintsNothingWithoutPaper) {
    const Bytes text = Padded("X", 35);
    device.SetReceiptPaper(false);
    EXPECT_FALSE(Do(PrintComment, text));
    EXPECT_EQ(device.StatusBlock()[2], 0x01);
    EXPECT_EQ(device.Journal().back().result, result::ReceiptPaperEnd);
    device.SetReceiptPaper(true);
    EXPECT_EQ(device.LastResult(), 0);

    device.SetJournalPaper(false);
    EXPECT_FALSE(Do(PrintComment, text));
    EXPECT_EQ(device.StatusBlock()[2], 0x02);
    device.SetPrinterFault(true);
    EXPECT_FALSE(Do(PrintComment, text));
    EXPECT_EQ(device.StatusBlock()[2], 0x03);
    EXPECT_TRUE(device.Paper().Lines().empty());
    device.SetPrinterFault(false);
    device.SetJournalPaper(true);
    EXPECT_TRUE(Do(PrintComment, text));
}

TEST_F(Shop, OnlyTheRemedyOfTheLastResultClearsIt) {
    const auto mendAllBut = [&](std::uint8_t reason) {
        if (reason != result::ReceiptPaperEnd) device.SetReceiptPaper(true);
        if (reason != result::JournalPaperEnd) device.SetJournalPaper(true);
        if (reason != result::PrinterError) device.SetPrinterFault(false);
    };
    for (std::uint8_t reason : {result::ReceiptPaperEnd, result::JournalPaperEnd,
                                result::PrinterError, result::FiscalCommandError}) {
        device.RefuseNext(reason);
        EXPECT_FALSE(Do(OpenCashDrawer));
        mendAllBut(reason);
        EXPECT_EQ(device.LastResult(), reason);
    }
    device.RefuseNext(result::JournalPaperEnd);
    EXPECT_FALSE(Do(OpenCashDrawer));
    device.SetJournalPaper(true);
    EXPECT_EQ(device.LastResult(), result::Ok);
    device.RefuseNext(result::PrinterError);
    EXPECT_FALSE(Do(OpenCashDrawer));
    device.SetPrinterFault(false);
    EXPECT_EQ(device.LastResult(), result::Ok);
}

TEST_F(Shop, WithoutPaperStillDoesWhatPrintsNothing) {
    Sell(100);
    device.SetReceiptPaper(false);
    EXPECT_FALSE(Do(Tender, Media(1, 0)));
    EXPECT_TRUE(device.ReceiptInProgress());
    EXPECT_EQ(device.Drawer(1), 10000);
    EXPECT_TRUE(Do(OpenCashDrawer));
    EXPECT_TRUE(Do(ShowInfo, FromHex("ff ff")));
    EXPECT_TRUE(Do(ExitFiscalMode));
}

TEST_F(Shop, ABrokenRuleCountsBeforeMissingPaper) {
    device.SetReceiptPaper(false);
    EXPECT_FALSE(Do(Tender, Media(1, 0)));
    EXPECT_EQ(device.LastResult(), 50);
}

TEST_F(Shop, RefuseNextRefusesOneCommandOnly) {
    device.RefuseNext(3);
    EXPECT_FALSE(Do(OpenCashDrawer));
    EXPECT_EQ(device.LastResult(), 3);
    EXPECT_TRUE(Do(OpenCashDrawer));
}

TEST_F(Shop, TurningTheKeyClearsTheLastResult) {
    EXPECT_FALSE(Do(Tender, Media(1, 0)));
    device.SetKeylock(Keylock::Reg);
    EXPECT_EQ(device.LastResult(), 50);
    device.SetKeylock(Keylock::Off);
    device.SetKeylock(Keylock::Reg);
    EXPECT_EQ(device.LastResult(), 0);
}

TEST_F(Shop, TheOperatorFinishesAnOpenReceiptInCash) {
    Sell(1000);
    Do(Tender, Media(3, 400));
    EXPECT_EQ(device.FinishReceipt(), KeyResult::KeyboardBlocked);
    Do(ExitFiscalMode);
    EXPECT_EQ(device.FinishReceipt(), KeyResult::Done);
    EXPECT_FALSE(device.ReceiptInProgress());
    EXPECT_EQ(device.Drawer(1), 10600);
    EXPECT_EQ(device.Paper().Slips().back().kind, Slip::Kind::Receipt);
    EXPECT_EQ(device.FinishReceipt(), KeyResult::NoReceipt);
}

TEST_F(Shop, FinishingSaysWhyItDoesNotWork) {
    Do(DeptReturn, Dept(1, "A", 1000, 10001));
    Do(ExitFiscalMode);
    EXPECT_EQ(device.FinishReceipt(), KeyResult::NoCash);
    device.SetReceiptPaper(false);
    EXPECT_EQ(device.FinishReceipt(), KeyResult::NoPaper);
    device.SetKeylock(Keylock::Z);
    EXPECT_EQ(device.FinishReceipt(), KeyResult::WrongKey);
    device.PowerOff();
    EXPECT_EQ(device.FinishReceipt(), KeyResult::PoweredOff);
    EXPECT_STREQ(KeyResultText(KeyResult::NoCash), "the drawer does not hold enough cash");
    EXPECT_TRUE(device.ReceiptInProgress());
}

TEST_F(Shop, PowerOffKeepsTheMemory) {
    Sell(1000);
    device.PowerOff();
    EXPECT_FALSE(device.Powered());
    EXPECT_FALSE(device.Execute(Tender, 9, Media(1, 0)));
    device.PowerOff();
    device.PowerOn();
    EXPECT_EQ(device.PowerCycles(), 1);
    EXPECT_EQ(device.Subtotal(), 1000);
    EXPECT_TRUE(device.InFiscalMode());
    EXPECT_EQ(device.Journal().size(), 2U);
}

TEST_F(Shop, TheJournalNamesEveryJudgedCommand) {
    Do(PrintComment, Padded("X", 35));
    Do(Tender, Media(1, 0));
    const std::vector<Acted> expected = {{EnterFiscalMode, {1}, 1, true, 0},
                                         {PrintComment, Padded("X", 35), 2, true, 0},
                                         {Tender, Media(1, 0), 3, false, 50}};
    EXPECT_EQ(device.Journal(), expected);
}

// --- the whole receipt ---------------------------------------------------------------------------

TEST_F(Shop, PrintsAReceiptInTheModelsWidth) {
    Do(DeptSale, Dept(1, "BREAD", 1000, 120));
    Do(DeptSale, Dept(2, "APPLES", 1250, 199));
    Do(PluSale, PluData(1, 2000));
    Do(PercentDiscount, FromHex("10 00"));
    Do(PrintComment, Padded("BONUS CARD 1234", 35));
    Do(Tender, Media(1, 1000));
    EXPECT_EQ(Flat(),
              "         EMULATED REGISTER\n"
              "BREAD                           1.20\n"
              "APPLES                          2.49\n"
              "  1.25 x 1.99\n"
              "COFFEE                          5.00\n"
              "  2 x 2.50\n"
              "DISCOUNT 10.00%                -0.50\n"
              "BONUS CARD 1234\n"
              "TOTAL                           8.19\n"
              "CASH                           10.00\n"
              "CHANGE                          1.81\n"
              "RECEIPT 000001\n"
              "\n");
}

TEST(MoneyText, WritesHundredths) {
    EXPECT_EQ(MoneyText(0), "0.00");
    EXPECT_EQ(MoneyText(5), "0.05");
    EXPECT_EQ(MoneyText(-5), "-0.05");
    EXPECT_EQ(MoneyText(123456), "1234.56");
    EXPECT_EQ(MoneyText(-100), "-1.00");
}

// --- no payload may hurt -------------------------------------------------------------------------

TEST(Register, KeepsItsBalanceUnderAnyPayload) {
    for (const Model& model : Models()) {
        RegisterConfig config;
        config.model = &model;
        Register device(config);
        std::uint32_t seed = 12345;
        const auto random = [&seed] { return (seed = seed * 1664525 + 1013904223) >> 16; };
        for (int i = 0; i < 12000; ++i) {
            const auto command = static_cast<std::uint8_t>(0xB0 + random() % 0x26);
            const std::size_t size = PayloadSize(model, command);
            Bytes payload(size == kNotACommand ? random() % 8 : size);
            for (auto& byte : payload)
                byte = static_cast<std::uint8_t>(random() % 10 * (random() % 4 == 0 ? 17 : 1));
            if (command == Tender && random() % 2 == 0)
                std::fill(payload.begin() + 1, payload.end(), std::uint8_t{0});
            if (random() % 3 == 0) device.Execute(EnterFiscalMode, 1, FromHex("01"));
            device.Execute(command, static_cast<std::uint16_t>(i % 65000 + 1), payload);
            ASSERT_GE(device.Drawer(1), 0);
            ASSERT_EQ(device.StatusBlock().size(), 15U);
            ASSERT_EQ(device.StatusBlock()[3] >> 6 & 1, device.ReceiptInProgress() ? 1 : 0);
        }
        EXPECT_GT(device.Paper().Slips().size(), 100U);
    }
}
