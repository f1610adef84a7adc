// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The shipped driver from outside. The register's state before, in and after a run.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ostream>
#include <vector>

#include "emulator/Register.h"
#include "tests/outside/Expectations.h"
#include "tests/support/Shop.h"

using emulator::WireFamily;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Optional;
using testing::StartsWith;

TEST(Register, ThatIsSwitchedOffIsMissed) {
    Shop shop;
    shop.Device().PowerOff();
    const RunOutcome run = shop.Ini("CmdTimeout_Default", "200").Execute(sale);
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_THAT(run.result, Optional(FailedResult(2, "ECR is missing or in OFF state", 100)));
    EXPECT_THAT(run.dbgLog, HasSubstr("Checking for ECR"));
}

TEST(Register, ThatRefusesACommandKeepsWhatItPrintedBefore) {
    Shop shop;
    const RunOutcome run = shop.Execute(unknownArticle);
    EXPECT_EQ(run.exitCode, 101);
    EXPECT_THAT(run.result,
                Optional(FailedResult(101, "Fiscal command execution error (line: 2)", 250)));
    EXPECT_THAT(run.tape, ElementsAre(HasSubstr("EMULATED REGISTER"), StartsWith("Tart ")));
    EXPECT_TRUE(shop.Device().ReceiptInProgress());
    EXPECT_THAT(run.dbgLog, HasSubstr("\tSALE: PLUNR=999\n"));
}

TEST(Register, WithAReceiptOpenRefusesTheNextFile) {
    Shop shop;
    shop.Execute(unknownArticle);
    const RunOutcome run = shop.Execute(sale);
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_THAT(run.result, Optional(FailedResult(2, "Previous receipt not finished", 105)));
    EXPECT_THAT(run.tape, IsEmpty());
}

TEST(Register, GoesOnWithAReceiptThatWasLeftOpen) {
    Shop shop;
    shop.Execute(openReceipt);
    const RunOutcome run = shop.Execute("CONTINUE\nSALE: DEPTNR=2; AMOUNT=1.00\nTENDER\n");
    EXPECT_THAT(run.result, Optional(soldResult));
    EXPECT_EQ(shop.Device().Totals().sales, 600);
}

TEST(Register, WithoutPaperTellsSo) {
    Shop shop;
    shop.Device().SetReceiptPaper(false);
    const RunOutcome run = shop.Execute(sale);
    EXPECT_EQ(run.exitCode, 101);
    EXPECT_THAT(run.result, Optional(FailedResult(101, "Receipt paper end", 201)));
}

TEST(Register, IsLeftUnblockedAfterAFile) {
    Shop shop;
    shop.Execute(sale);
    EXPECT_FALSE(shop.Device().InFiscalMode());
}

TEST(Register, StaysBlockedWhenConfiguredSo) {
    Shop shop;
    shop.Ini("KeepEcrBlocked", "1").Execute(sale);
    EXPECT_TRUE(shop.Device().InFiscalMode());
    const RunOutcome next = shop.Execute(sale);
    EXPECT_EQ(next.exitCode, 0);
    EXPECT_EQ(next.journal.front().command, emulator::DeptSale) << "it need not be entered again";
}

TEST(Register, IsEnteredByTheConfiguredCashierWhileItsCashierSystemIsOn) {
    emulator::RegisterConfig config = workbench::RegisterOf("ocelot");
    config.cashierSystem = true;
    config.cashier = 7;  // a strict register takes no other
    Shop shop(config);
    EXPECT_EQ(shop.Ini("CashierNumber", "7").Execute(sale).exitCode, 0);
    EXPECT_EQ(shop.Device().Cashier(), 7);
}

TEST(Register, IsEnteredByCashierOneWhileItsCashierSystemIsOff) {
    Shop shop;
    EXPECT_EQ(shop.Ini("CashierNumber", "7").Execute(sale).exitCode, 0);
    EXPECT_EQ(shop.Device().Cashier(), 1);
}

TEST(Register, IsLeftUnblockedAfterAnError) {
    Shop shop;
    shop.Ini("KeepEcrBlocked", "1").Execute(unknownArticle);
    EXPECT_FALSE(shop.Device().InFiscalMode());
}

TEST(Register, IsLeftUnblockedAfterALostEndOfTheEntering) {
    Shop shop;
    int ends = 0;
    bool lost = false;
    shop.Line().OnReceive([&](emulator::Bytes& chunk) {
        const bool end = chunk.size() == 4 && chunk[0] == 0xFF && chunk[1] == 0xFF;
        if (end) lost = ++ends == 1;
    });
    shop.Line().OnSend([&](emulator::Bytes& reply) {
        if (lost) reply.clear();
        lost = false;
    });
    const RunOutcome run = shop.Ini("CmdTimeout_Default", "500").Execute(sale);
    EXPECT_THAT(run.result, Optional(FailedResult(2, "ECR response lost", 150)));
    EXPECT_FALSE(shop.Device().InFiscalMode());
}

TEST(Register, StaysBlockedAfterAnErrorWhenConfiguredSo) {
    Shop shop;
    const RunOutcome run = shop.Ini("KeepEcrBlockedAfterError", "1").Execute(unknownArticle);
    EXPECT_TRUE(shop.Device().InFiscalMode());
    EXPECT_THAT(run.result, Optional(HasSubstr("ErrorCode=250")));
}

struct ModelCase {
    const emulator::Model* model;
    WireFamily family;
};

class EveryRegister : public testing::TestWithParam<ModelCase> {};

std::vector<ModelCase> AllModelCases() {
    std::vector<ModelCase> cases;
    for (const emulator::Model& model : emulator::Models()) {
        cases.push_back({&model, WireFamily::Ocelot});
        cases.push_back({&model, WireFamily::Margay});
    }
    return cases;
}

void PrintTo(const ModelCase& modelCase, std::ostream* out) {
    const bool ocelot = modelCase.family == WireFamily::Ocelot;
    *out << modelCase.model->name << int{modelCase.model->version}
         << (ocelot ? "WithOcelotFrames" : "WithMargayFrames");
}

INSTANTIATE_TEST_SUITE_P(Models, EveryRegister, testing::ValuesIn(AllModelCases()),
                         testing::PrintToStringParamName());

TEST_P(EveryRegister, SellsASmallReceipt) {
    emulator::RegisterConfig config;
    config.model = GetParam().model;
    config.strict = true;
    Shop shop(config, GetParam().family);
    const RunOutcome run = shop.Execute(
        "COMMENT: TEXT=\"Good morning\"\n"
        "SALE: DEPTNR=1; NAME=Tart; PRICE=2.50; QNTY=2\n"
        "SALE: PLUNR=1; QNTY=0.5\n"
        "TOTAL\n"
        "TENDER: MEDIA=CARD; AMOUNT=5\n"
        "TENDER: AMOUNT=2\n");
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_THAT(run.result, Optional(soldResult));
    EXPECT_THAT(run.tape, AllOf(Contains("Good morning"), Contains(StartsWith("Tart ")),
                                Contains(StartsWith("COFFEE ")), Contains(EndsWith("0.75"))));
    EXPECT_EQ(shop.Device().Totals().sales, 625);
    EXPECT_EQ(shop.Device().Totals().media[2], 500);
}
