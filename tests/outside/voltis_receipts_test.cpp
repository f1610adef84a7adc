// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The shipped driver with whole receipts: split over several files, finished by hand, with
// barcodes, and every file of examples/.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "companion/workbench/Defaults.h"
#include "tests/outside/Expectations.h"
#include "tests/support/Shop.h"
#include "tests/support/TempDir.h"

using emulator::Keylock;
using emulator::KeyResult;
using emulator::TapeItem;
using emulator::WireFamily;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::Optional;
using testing::StartsWith;

namespace {

const std::string firstPart = "SALE: DEPTNR=1; NAME=Soup; AMOUNT=3.50\nCONTINUE\n";
const std::string middlePart = "CONTINUE\nSALE: DEPTNR=1; NAME=Fish; AMOUNT=9.80\nCONTINUE\n";
const std::string lastPart = "CONTINUE\nSALE: DEPTNR=2; NAME=Coffee; AMOUNT=2.20\nTENDER\n";
const std::string byHand = "SALE: DEPTNR=1; NAME=Soup; AMOUNT=3.50\nCONTINUE_MANUALLY\n";

std::vector<emulator::WireFamily> BothFamilies() {
    return {WireFamily::Ocelot, WireFamily::Margay};
}

/// A register of the newest version of each model.
std::vector<std::string> FiveModels() {
    return {"ocelot", "serval", "lynx", "puma", "margay"};
}

/// Every model in both frame families.
class EveryShop : public testing::TestWithParam<std::tuple<std::string, WireFamily>> {
  protected:
    Shop shop{workbench::RegisterOf(std::get<0>(GetParam())), std::get<1>(GetParam())};
};

std::string ShopName(const testing::TestParamInfo<EveryShop::ParamType>& info) {
    const bool margay = std::get<1>(info.param) == WireFamily::Margay;
    return std::get<0>(info.param) + (margay ? "WithMargayFrames" : "WithOcelotFrames");
}

INSTANTIATE_TEST_SUITE_P(Models, EveryShop,
                         testing::Combine(testing::ValuesIn(FiveModels()),
                                          testing::ValuesIn(BothFamilies())),
                         ShopName);

// --- one receipt from several files --------------------------------------------------------------

TEST_P(EveryShop, BuildsOneReceiptFromThreeFiles) {
    EXPECT_THAT(shop.Execute(firstPart).result, Optional(OpenResult(1, "3.50")));
    EXPECT_TRUE(shop.Device().InFiscalMode()) << "the keyboard stays blocked between the files";
    EXPECT_THAT(shop.Execute(middlePart).result, Optional(OpenResult(1, "13.30")));
    const RunOutcome last = shop.Execute(lastPart);
    EXPECT_EQ(last.exitCode, 0);
    EXPECT_THAT(last.result, Optional(ClosedResult(1)));
    EXPECT_THAT(last.tape, Contains(AllOf(StartsWith("TOTAL"), EndsWith("15.50"))));
    EXPECT_FALSE(shop.Device().InFiscalMode());
    EXPECT_EQ(shop.Device().Totals().sales, 1550);
}

TEST_P(EveryShop, LeavesAReceiptForTheOperatorToFinish) {
    const RunOutcome run = shop.Execute(byHand);
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_THAT(run.result, Optional(OpenResult(1, "3.50")));
    EXPECT_FALSE(shop.Device().InFiscalMode()) << "the keyboard is free";
    EXPECT_EQ(shop.Device().FinishReceipt(), KeyResult::Done);
    EXPECT_THAT(shop.Execute("SALE: DEPTNR=1; AMOUNT=1\nTENDER\n").result,
                Optional(ClosedResult(2)));
}

TEST(SplitReceipt, CanEndWithTheOperatorAfterSeveralFiles) {
    Shop shop;
    shop.Execute(firstPart);
    EXPECT_THAT(shop.Execute("CONTINUE\nSALE: DEPTNR=1; AMOUNT=1\nCONTINUE_MANUALLY\n").result,
                Optional(OpenResult(1, "4.50")));
    EXPECT_EQ(shop.Device().FinishReceipt(), KeyResult::Done);
    EXPECT_EQ(shop.Device().Totals().sales, 450);
}

TEST(SplitReceipt, CannotBeFinishedByHandBetweenTheFiles) {
    Shop shop;
    shop.Execute(firstPart);
    EXPECT_EQ(shop.Device().FinishReceipt(), KeyResult::KeyboardBlocked);
}

TEST(SplitReceipt, IsLeftAloneByAFileOfContinueOnly) {
    Shop shop;
    shop.Execute(firstPart);
    const RunOutcome run = shop.Execute("CONTINUE\n");
    EXPECT_THAT(run.result, Optional(OpenResult(1, "3.50")));
    EXPECT_THAT(run.journal, IsEmpty());
}

TEST(SplitReceipt, TellsThatItIsNotFinishedInTheOldFormat) {
    Shop shop;
    shop.Ini("OldResultFileFormat", "1");
    EXPECT_THAT(shop.Execute(firstPart).result,
                Optional(std::string("0\nOK\nReceipt not finished")));
}

TEST(SplitReceipt, IsRefusedByAFileThatDoesNotContinueIt) {
    Shop shop;
    shop.Execute(firstPart);
    const RunOutcome run = shop.Execute("SALE: DEPTNR=1; AMOUNT=1\nTENDER\n");
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_THAT(run.result, Optional(FailedResult(2, "Previous receipt not finished", 105)));
    EXPECT_THAT(run.tape, IsEmpty());
}

TEST(SplitReceipt, MustBeStartedBeforeItIsContinued) {
    Shop shop;
    const RunOutcome run = shop.Execute(lastPart);
    EXPECT_THAT(run.result, Optional(FailedResult(2, "Receipt not started", 107)));
    EXPECT_THAT(run.journal, IsEmpty());
}

TEST(SplitReceipt, MustBeFinishedByItsLastFile) {
    Shop shop;
    const RunOutcome run = shop.Execute("SALE: DEPTNR=1; AMOUNT=1\n");
    EXPECT_EQ(run.exitCode, 101);
    EXPECT_THAT(run.result, Optional(FailedResult(101, "Current receipt not finished", 106)));
}

TEST(SplitReceipt, MustNotBeFinishedWhenItIsToStayOpen) {
    Shop shop;
    const RunOutcome run = shop.Execute("SALE: DEPTNR=1; AMOUNT=1\nTENDER\nCONTINUE\n");
    EXPECT_EQ(run.exitCode, 101);
    EXPECT_THAT(run.result, Optional(FailedResult(101, "Receipt already finished", 108)));
}

TEST(SplitReceipt, RefusesContinueInTheMiddleBeforeAnythingIsSent) {
    Shop shop;
    const RunOutcome run = shop.Execute("SALE: DEPTNR=1; AMOUNT=1\nCONTINUE\nTENDER\n");
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_THAT(run.result, Optional(FailedResult(
                                1,
                                "CONTINUE is allowed only as first or last fiscal file command "
                                "(line: 2)",
                                1)));
    EXPECT_THAT(run.journal, IsEmpty());
}

// --- amounts -------------------------------------------------------------------------------------

/// What one line sells for, in hundredths, when the run ends with 0.
emulator::Money SoldBy(const std::string& line) {
    Shop shop;
    EXPECT_EQ(shop.Execute(line + "\nTENDER\n").exitCode, 0) << line;
    return shop.Device().Totals().sales;
}

TEST(AmountAboveTheField, PassesByItsDigitsAndLosesItsFirstOnes) {
    EXPECT_EQ(SoldBy("SALE: DEPTNR=1; AMOUNT=999999.99"), 99999999);
    EXPECT_EQ(SoldBy("SALE: DEPTNR=1; AMOUNT=1000000"), 0);
    EXPECT_EQ(SoldBy("SALE: DEPTNR=1; AMOUNT=1000000.5"), 50);
    EXPECT_EQ(SoldBy("SALE: DEPTNR=1; PRICE=1000; QNTY=999.999"), 99999900);
    EXPECT_EQ(SoldBy("SALE: DEPTNR=1; PRICE=1000; QNTY=1000"), 0);
    EXPECT_EQ(SoldBy("SALE: DEPTNR=1; PRICE=1000.01; QNTY=1000"), 1000);
    EXPECT_EQ(SoldBy("SALE: PLUNR=1; QNTY=999.999"), 250000);
    EXPECT_EQ(SoldBy("SALE: PLUNR=1; QNTY=1000"), 0);
}

TEST(AmountBesidePriceAndQuantity, IsComparedByItsDigitsSoThatAPointInTheWrongPlacePasses) {
    EXPECT_EQ(SoldBy("SALE: DEPTNR=1; PRICE=25; QNTY=1; AMOUNT=2.50"), 2500);
    EXPECT_EQ(SoldBy("SALE: DEPTNR=1; PRICE=2.50; QNTY=1; AMOUNT=25"), 250);
    EXPECT_EQ(SoldBy("SALE: DEPTNR=1; PRICE=0.33; QNTY=0.5; AMOUNT=0.16"), 16);
    EXPECT_EQ(SoldBy("SALE: DEPTNR=1; PRICE=0.33; QNTY=0.5; AMOUNT=16"), 1600);
}

// --- adjustments ---------------------------------------------------------------------------------

TEST_P(EveryShop, AdjustsTheItemAndTheSale) {
    const RunOutcome run = shop.Execute(
        "SALE: DEPTNR=1; PRICE=2.50; QNTY=4\n"
        "DISCOUNT: PERCENTS=10; TYPE=ITEM\n"
        "MARKUP: AMOUNT=0.50; PERCENTS=5; TYPE=ITEM\n"
        "DISCOUNT: AMOUNT=1.00; TYPE=SALE\n"
        "TICKET: AMOUNT=0.30\n"
        "COUPON: AMOUNT=0.20\n"
        "TENDER\n");
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_THAT(run.tape,
                AllOf(Contains("+5%"), Contains(AllOf(StartsWith("TOTAL"), EndsWith("8.00")))));
}

TEST(Adjustment, WithNothingToAdjustIsRefusedByTheRegister) {
    Shop shop;
    const RunOutcome run = shop.Execute("DISCOUNT: AMOUNT=1; TYPE=ITEM\n");
    EXPECT_EQ(run.exitCode, 101);
    EXPECT_THAT(run.result,
                Optional(FailedResult(101, "Fiscal command execution error (line: 1)", 250)));
    EXPECT_THAT(run.tape, IsEmpty());
}

// --- barcodes ------------------------------------------------------------------------------------

std::vector<TapeItem> BarcodesOn(const emulator::Tape& tape) {
    std::vector<TapeItem> found;
    for (const emulator::Slip& slip : tape.Slips()) {
        for (const TapeItem& item : slip.items) {
            if (item.kind == TapeItem::Kind::Barcode) found.push_back(item);
        }
    }
    return found;
}

TEST_P(EveryShop, PrintsABarcodeAsWideAsItsPaper) {
    const RunOutcome run =
        shop.Execute("SALE: DEPTNR=1; AMOUNT=1\nBARCODE: DATA=590123412345; TYPE=EAN\nTENDER\n");
    EXPECT_EQ(run.exitCode, 0);
    const std::vector<TapeItem> barcodes = BarcodesOn(shop.Device().Paper());
    ASSERT_EQ(barcodes.size(), 1u);
    EXPECT_EQ(barcodes[0].raster.size(), shop.Device().GetModel().RasterBytes());
    std::string digits;
    for (char c : barcodes[0].text) {
        if (c != ' ') digits += c;
    }
    EXPECT_EQ(digits, "590123412345");
}

TEST_P(EveryShop, PrintsEverySymbologyThatFitsTheNarrowestPaper) {
    const std::map<std::string, std::string> samples = {
        {"EAN", "590123412345"}, {"UPC", "03600029145"}, {"ISBN", "0-306-40615-2"},
        {"CODE39", "A1"},        {"CODE128", "AB12"},    {"128C", "123456"},
        {"128B", "Hi 5"},        {"ITF", "1234"},        {"128RAW", "104 33"},
        {"CODABAR", "A12B"},     {"CBR", "A12B"},        {"MSI", "12"},
        {"PLS", "1A"},           {"CODE93", "AB"}};
    std::string file;
    for (const auto& [type, data] : samples) {
        file += "BARCODE: DATA=\"" + data + "\"; TYPE=" + type + "\n";
    }
    const RunOutcome run = shop.Execute("SALE: DEPTNR=1; AMOUNT=1\n" + file + "TENDER\n");
    EXPECT_EQ(run.exitCode, 0) << run.result.value_or("");
    EXPECT_EQ(BarcodesOn(shop.Device().Paper()).size(), samples.size());
}

TEST(BarcodeFile, WithDataThatBreaksTheEncoderIsRefusedAndNothingIsSent) {
    for (const std::string type : {"CODE128", "CODE93", "\"\""}) {
        Shop shop;
        const std::string data = "A\x80z";
        const RunOutcome run =
            shop.Execute("SALE: DEPTNR=1; AMOUNT=1\nBARCODE: DATA=" + data +
                         (type == "\"\"" ? "" : "; TYPE=" + type) + "\nTENDER\n");
        EXPECT_EQ(run.exitCode, 1);
        EXPECT_THAT(run.result,
                    Optional(FailedResult(1, "Bad barcode format: " + data + " (line: 2)", 1)));
        EXPECT_THAT(run.journal, IsEmpty());
    }
}

TEST(BarcodeFile, AddsNothingToTheDriversOutput) {
    Shop shop;  // every run of a shop fails its test when anything is on standard error
    const RunOutcome run =
        shop.Execute("SALE: DEPTNR=1; AMOUNT=1\nBARCODE: DATA=1A2B; TYPE=PLS\nTENDER\n");
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.out, "");
}

// --- examples/ -----------------------------------------------------------------------------------

struct Example {
    std::string name;
    int exitCode;
    std::string result;  // its beginning; empty: there is none
};

const std::string ok = "[VOLTIS]\nResultCode=0\nMessage=OK\n";
const std::string open = "[VOLTIS]\nResultCode=0\nMessage=Receipt not finished\n";

/// In the order of a shop's day, because some need others before them.
const std::vector<Example> examplesOfADay = {
    {"status.txt", 0, ok},    {"first-receipt.txt", 0, ok},   {"returns.txt", 0, ok},
    {"discounts.txt", 0, ok}, {"tickets.txt", 0, ok},         {"cash.txt", 0, ok},
    {"display.txt", 0, ok},   {"comments.txt", 0, ok},        {"barcodes.txt", 0, ok},
    {"split-1.txt", 0, open}, {"split-2.txt", 0, open},       {"split-3.txt", 0, ok},
    {"reports.txt", 0, ok},   {"finish-by-hand.txt", 0, open}};

const std::vector<Example> examplesOfFailures = {
    {"syntax-error.txt", 1, "[VOLTIS]\nResultCode=1\nMessage=Missing '='"},
    {"exit.txt", 1, ""},
    {"refused-command.txt", 101,
     "[VOLTIS]\nResultCode=101\nMessage=Fiscal command execution error (line: 8)"}};

RunOutcome RunExample(Shop& shop, const Example& example) {
    const RunOutcome run = shop.Execute(ReadWholeFile(EXAMPLES_DIR "/" + example.name));
    EXPECT_EQ(run.exitCode, example.exitCode) << example.name;
    EXPECT_THAT(run.result.value_or(""), StartsWith(example.result)) << example.name;
    EXPECT_EQ(run.result.has_value(), !example.result.empty()) << example.name;
    return run;
}

TEST(Examples, MakeUpAShopsDay) {
    Shop shop;
    for (const Example& example : examplesOfADay) RunExample(shop, example);
    EXPECT_EQ(shop.Device().FinishReceipt(), KeyResult::Done);
    EXPECT_EQ(shop.Device().ZReports(), 1);
}

TEST(Examples, OfFailuresFail) {
    Shop shop;
    for (const Example& example : examplesOfFailures) RunExample(shop, example);
}

TEST(Examples, AreAllRunHere) {
    std::set<std::string> run, there;
    for (const Example& example : examplesOfADay) run.insert(example.name);
    for (const Example& example : examplesOfFailures) run.insert(example.name);
    for (const auto& entry : std::filesystem::directory_iterator(EXAMPLES_DIR)) {
        if (entry.is_regular_file()) there.insert(entry.path().filename().string());
    }
    EXPECT_EQ(run, there);
}

}  // namespace
