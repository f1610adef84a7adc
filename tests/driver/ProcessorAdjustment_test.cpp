// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// DISCOUNT, MARKUP, TICKET and COUPON.

#include <gtest/gtest.h>

#include "Globals.h"
#include "ProcessorInternal.h"
#include "tests/support/ProcessorTest.h"

namespace {

const char total[] = "bb fiscal :";

using AmountAdjustment = ProcessorTest;
using PercentAdjustment = ProcessorTest;
using AmountWithPercents = ProcessorTest;
using AdjustmentType = ProcessorTest;
using AdjustmentOrder = ProcessorTest;
using TicketOrCoupon = ProcessorTest;

// By amount

TEST_F(AmountAdjustment, IsFourBytesOfHundredths) {
    ExpectSent("DISCOUNT: AMOUNT=1.50; TYPE=ITEM", {"b8 fiscal : 00 00 01 50"});
    ExpectSent("MARKUP: AMOUNT=12; TYPE=ITEM", {"ba fiscal : 00 00 12 00"});
}

TEST_F(AmountAdjustment, ReachesFromZeroToEightDigits) {
    ExpectSent("DISCOUNT: AMOUNT=0; TYPE=ITEM", {"b8 fiscal : 00 00 00 00"});
    ExpectSent("DISCOUNT: AMOUNT=999999.99; TYPE=ITEM", {"b8 fiscal : 99 99 99 99"});
    ExpectRefused("DISCOUNT: AMOUNT=1000000.01; TYPE=ITEM", "Incorrect AMOUNT value (line: 1)");
    ExpectRefused("DISCOUNT: AMOUNT=-0.01; TYPE=ITEM", "Incorrect AMOUNT value (line: 1)");
}

TEST_F(AmountAdjustment, HasAtMostTwoDecimals) {
    ExpectRefused("MARKUP: AMOUNT=1.005; TYPE=ITEM", "Incorrect AMOUNT value (line: 1)");
}

TEST_F(AmountAdjustment, MustBeANumber) {
    ExpectRefused("MARKUP: AMOUNT=much; TYPE=ITEM", "Wrong number format (line: 1)");
}

// By percent

TEST_F(PercentAdjustment, IsTwoBytesOfHundredths) {
    ExpectSent("DISCOUNT: PERCENTS=10; TYPE=ITEM", {"b7 fiscal : 10 00"});
    ExpectSent("MARKUP: PERCENTS=12.5; TYPE=ITEM", {"b9 fiscal : 12 50"});
}

TEST_F(PercentAdjustment, FitsUpTo99Point99) {
    ExpectSent("DISCOUNT: PERCENTS=99.99; TYPE=ITEM", {"b7 fiscal : 99 99"});
    ExpectSent("DISCOUNT: PERCENTS=0; TYPE=ITEM", {"b7 fiscal : 00 00"});
    ExpectRefused("DISCOUNT: PERCENTS=100.01; TYPE=ITEM", "Incorrect PERCENTS value (line: 1)");
    ExpectRefused("DISCOUNT: PERCENTS=-1; TYPE=ITEM", "Incorrect PERCENTS value (line: 1)");
}

TEST_F(PercentAdjustment, Of100PassesByItsDigitsAndArrivesAsZero) {
    ExpectSent("DISCOUNT: PERCENTS=100; TYPE=ITEM", {"b7 fiscal : 00 00"});
    ExpectSent("DISCOUNT: PERCENTS=9999; TYPE=ITEM", {"b7 fiscal : 99 00"});
    ExpectRefused("DISCOUNT: PERCENTS=10000; TYPE=ITEM", "Incorrect PERCENTS value (line: 1)");
}

TEST_F(PercentAdjustment, HasAtMostTwoDecimals) {
    ExpectRefused("DISCOUNT: PERCENTS=12.345; TYPE=ITEM", "Incorrect PERCENTS value (line: 1)");
}

TEST_F(PercentAdjustment, PrintsNoComment) {
    ExpectSent("MARKUP: PERCENTS=5; TYPE=ITEM", {"b9 fiscal : 05 00"});
}

// By amount, with the percentage as an explanation

TEST_F(AmountWithPercents, PrintsThePercentageAndAnEmptyLineAfterTheAdjustment) {
    ExpectSent("MARKUP: AMOUNT=1.00; PERCENTS=5; TYPE=ITEM",
               {"ba fiscal : 00 00 01 00", Comment("+5%"), Comment("")});
    ExpectSent("DISCOUNT: AMOUNT=2; PERCENTS=12.5; TYPE=ITEM",
               {"b8 fiscal : 00 00 02 00", Comment("-12.5%"), Comment("")});
}

TEST_F(AmountWithPercents, WritesThePercentageAsItIsHeld) {
    ExpectSent("DISCOUNT: AMOUNT=2; PERCENTS=07.50; TYPE=ITEM",
               {"b8 fiscal : 00 00 02 00", Comment("-7.5%"), Comment("")});
}

TEST_F(AmountWithPercents, PadsToTheModelsLine) {
    ExpectSent(Model::Lynx, "MARKUP: AMOUNT=1; PERCENTS=5; TYPE=ITEM",
               {"ba fiscal : 00 00 01 00", Comment("+5%", 19), Comment("", 19)});
}

TEST_F(AmountWithPercents, ChecksThePercentageFirst) {
    ExpectRefused("DISCOUNT: AMOUNT=x; PERCENTS=12.345; TYPE=ITEM",
                  "Incorrect PERCENTS value (line: 1)");
    ExpectRefused("DISCOUNT: AMOUNT=x; PERCENTS=y; TYPE=ITEM", "Wrong number format (line: 1)");
}

TEST_F(AmountWithPercents, PrintsNothingWhenTheRegisterRefusesTheAdjustment) {
    // The first command enters fiscal mode, the second is the adjustment.
    Ecr().FailCommand(2, {250, "Fiscal command execution error", true});
    ExpectFailure("MARKUP: AMOUNT=1; PERCENTS=5; TYPE=ITEM", 250,
                  "Fiscal command execution error (line: 1)",
                  {"b0 : 01", "ba fiscal : 00 00 01 00", "b1 :"});
}

// What is adjusted

TEST_F(AdjustmentType, IsRequired) {
    ExpectRefused("DISCOUNT: AMOUNT=1", "TYPE is missing (line: 1)");
    ExpectRefused("MARKUP: PERCENTS=1", "TYPE is missing (line: 1)");
}

TEST_F(AdjustmentType, OfTheSaleSendsTheSubtotalFirst) {
    ExpectSent("DISCOUNT: PERCENTS=10; TYPE=SALE", {total, "b7 fiscal : 10 00"});
    ExpectSent("MARKUP: AMOUNT=1; TYPE=SALE", {total, "ba fiscal : 00 00 01 00"});
}

TEST_F(AdjustmentType, OfTheSaleWithAnExplanationGoesTotalAdjustmentCommentEmptyComment) {
    ExpectSent("DISCOUNT: AMOUNT=1; PERCENTS=3; TYPE=SALE",
               {total, "b8 fiscal : 00 00 01 00", Comment("-3%"), Comment("")});
}

TEST_F(AdjustmentType, IsAcceptedInAnyCase) {
    ExpectSent("DISCOUNT: PERCENTS=10; TYPE=item", {"b7 fiscal : 10 00"});
    ExpectSent("DISCOUNT: PERCENTS=10; TYPE=Sale", {total, "b7 fiscal : 10 00"});
}

TEST_F(AdjustmentType, OfAnyOtherNameIsRefusedInUpperCase) {
    ExpectRefused("DISCOUNT: AMOUNT=1; TYPE=line", "Unsupported TYPE value - LINE (line: 1)");
    ExpectRefused("DISCOUNT: AMOUNT=1; TYPE=\"\"", "Unsupported TYPE value -   (line: 1)");
}

TEST_F(AdjustmentType, IsTheNumber1ForAnItemAnd2ForTheSale) {
    FiscalCommand ofAnItem("DISCOUNT: TYPE=ITEM");
    FiscalCommand ofTheSale("DISCOUNT: TYPE=SALE");
    EXPECT_EQ(GetDiscountMarkupType(ofAnItem), 1);
    EXPECT_EQ(GetDiscountMarkupType(ofTheSale), 2);
}

// In which order the parameters are looked at

TEST_F(AdjustmentOrder, NeedsAnAmountOrAPercentage) {
    ExpectRefused("DISCOUNT", "PERCENTS or AMOUNT is missing (line: 1)");
    ExpectRefused("MARKUP: TYPE=WRONG", "PERCENTS or AMOUNT is missing (line: 1)");
}

TEST_F(AdjustmentOrder, ReadsTheTypeAfterTheAmount) {
    ExpectRefused("DISCOUNT: AMOUNT=x; TYPE=WRONG", "Wrong number format (line: 1)");
    ExpectRefused("DISCOUNT: PERCENTS=x; TYPE=WRONG", "Wrong number format (line: 1)");
}

TEST_F(AdjustmentOrder, ReportsASurplusParameterLast) {
    ExpectRefused("DISCOUNT: AMOUNT=1; TYPE=ITEM; NAME=x", "Too many parameters (line: 1)");
    ExpectRefused("DISCOUNT: AMOUNT=1; TYPE=WRONG; NAME=x",
                  "Unsupported TYPE value - WRONG (line: 1)");
}

// Tickets and coupons

TEST_F(TicketOrCoupon, HasACodeOfItsOwn) {
    ExpectSent("TICKET: AMOUNT=0.90", {"d4 fiscal : 00 00 00 90"});
    ExpectSent("COUPON: AMOUNT=1.5", {"d5 fiscal : 00 00 01 50"});
}

TEST_F(TicketOrCoupon, NeedsAnAmount) {
    ExpectRefused("TICKET", "AMOUNT is missing (line: 1)");
    ExpectRefused("COUPON", "AMOUNT is missing (line: 1)");
}

TEST_F(TicketOrCoupon, HasAnAmountOfAtMostEightDigitsAndTwoDecimals) {
    ExpectSent("TICKET: AMOUNT=999999.99", {"d4 fiscal : 99 99 99 99"});
    ExpectSent("TICKET: AMOUNT=0", {"d4 fiscal : 00 00 00 00"});
    ExpectRefused("TICKET: AMOUNT=1000000.01", "Incorrect AMOUNT value (line: 1)");
    ExpectRefused("COUPON: AMOUNT=1.005", "Incorrect AMOUNT value (line: 1)");
    ExpectRefused("COUPON: AMOUNT=-1", "Incorrect AMOUNT value (line: 1)");
}

TEST_F(TicketOrCoupon, TakesNothingElse) {
    ExpectRefused("TICKET: AMOUNT=1; TYPE=ITEM", "Too many parameters (line: 1)");
}

TEST_F(TicketOrCoupon, RaisesTheStateLikeEveryReceiptCommand) {
    ExpectSent("TICKET: AMOUNT=1", {"d4 fiscal : 00 00 01 00"});
    EXPECT_EQ(State, STATE_CMDSENT);
}

}  // namespace
