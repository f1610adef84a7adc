// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Payments, cash movements and the subtotal.

#include <gtest/gtest.h>

#include "tests/support/ProcessorTest.h"

namespace {

using TenderCommand = ProcessorTest;
using TenderMedia = ProcessorTest;
using ForeignCurrency = ProcessorTest;
using TenderAmount = ProcessorTest;
using TenderTimeout = ProcessorTest;
using TotalCommand = ProcessorTest;

Told Slowly(const std::string& command) {
    return {"time-out tender", command, "time-out default"};
}

struct CommandRow {
    const char* command;
    const char* plainCode;
    const char* foreignCode;
};
const CommandRow commandRows[] = {{"TENDER", "bc", "bd"},
                                  {"PAYMENT", "bc", "bd"},
                                  {"RCV_ON_ACC", "c1", "c2"},
                                  {"PAID_OUT", "c3", "c4"}};

TEST_F(TenderCommand, HasACodeForEachMovement) {
    for (const CommandRow& row : commandRows) {
        ExpectSent(std::string(row.command) + ": MEDIA=CARD; AMOUNT=12.34",
                   Slowly(std::string(row.plainCode) + " fiscal : 03 00 00 12 34"));
    }
}

TEST_F(TenderCommand, HasAnotherCodeForEachInAForeignCurrency) {
    for (const CommandRow& row : commandRows) {
        ExpectSent(std::string(row.command) + ": FOREIGNNR=2; MEDIA=CARD; AMOUNT=12.34",
                   Slowly(std::string(row.foreignCode) + " fiscal : 02 03 00 00 12 34"));
    }
}

TEST_F(TenderCommand, IsNothingInCashByDefault) {
    for (const CommandRow& row : commandRows) {
        ExpectSent(row.command, Slowly(std::string(row.plainCode) + " fiscal : 01 00 00 00 00"));
    }
}

TEST_F(TenderCommand, TakesTheExamples) {
    ExpectSent("TENDER: MEDIA=card; AMOUNT=10", Slowly("bc fiscal : 03 00 00 10 00"));
    ExpectSent("RCV_ON_ACC: FOREIGNNR=2; AMOUNT=5.5", Slowly("c2 fiscal : 02 01 00 00 05 50"));
}

TEST_F(TenderCommand, ChecksCurrencyThenMediaThenAmount) {
    ExpectRefused("TENDER: FOREIGNNR=0; MEDIA=X; AMOUNT=-1", "Incorrect FOREIGNNR value (line: 1)");
    ExpectRefused("TENDER: MEDIA=X; AMOUNT=-1", "Unsupported tender media (line: 1)");
}

TEST_F(TenderMedia, AreTheEightOfTheRegister) {
    for (int number = 1; number <= 8; ++number) {
        const std::string digit = std::to_string(number);
        ExpectSent("TENDER: MEDIA=TENDER" + digit,
                   Slowly("bc fiscal : 0" + digit + " 00 00 00 00"));
    }
}

TEST_F(TenderMedia, HaveNamesForCashAndCard) {
    ExpectSent("TENDER: MEDIA=CASH", Slowly("bc fiscal : 01 00 00 00 00"));
    ExpectSent("TENDER: MEDIA=CARD", Slowly("bc fiscal : 03 00 00 00 00"));
}

TEST_F(TenderMedia, AreTakenInAnyCase) {
    ExpectSent("TENDER: MEDIA=Cash", Slowly("bc fiscal : 01 00 00 00 00"));
    ExpectSent("TENDER: MEDIA=tEnDeR5", Slowly("bc fiscal : 05 00 00 00 00"));
}

TEST_F(TenderMedia, MayBeGivenAsName) {
    ExpectSent("TENDER: NAME=card", Slowly("bc fiscal : 03 00 00 00 00"));
    ExpectSent("TENDER: NAME=tender8", Slowly("bc fiscal : 08 00 00 00 00"));
}

TEST_F(TenderMedia, AreRefusedWhenTheRegisterHasNoSuchOne) {
    for (const char* media :
         {"TENDER0", "TENDER9", "TENDER10", "TENDER", "TENDER01", "TENDERX", "\"TENDER \"",
          "VOUCHER", "VOUCHE1", "TENDE1", "T", "\"\"", "CASH1", "\" CASH\"", "XTENDER1"}) {
        ExpectRefused(std::string("TENDER: MEDIA=") + media, "Unsupported tender media (line: 1)");
        ExpectRefused(std::string("PAID_OUT: NAME=") + media, "Unsupported tender media (line: 1)");
    }
}

TEST_F(TenderMedia, AreGivenOnce) {
    ExpectRefused("TENDER: MEDIA=CASH; NAME=CASH", "Too many parameters (line: 1)");
    ExpectRefused("TENDER: MEDIA=X; NAME=CASH", "Unsupported tender media (line: 1)");
}

TEST_F(ForeignCurrency, IsOneOfFour) {
    ExpectSent("TENDER: FOREIGNNR=1", Slowly("bd fiscal : 01 01 00 00 00 00"));
    ExpectSent("TENDER: FOREIGNNR=4", Slowly("bd fiscal : 04 01 00 00 00 00"));
    for (const char* number : {"0", "5", "1.5", "-1"}) {
        ExpectRefused("TENDER: FOREIGNNR=" + std::string(number),
                      "Incorrect FOREIGNNR value (line: 1)");
    }
    ExpectRefused("TENDER: FOREIGNNR=EUR", "Wrong number format (line: 1)");
}

TEST_F(TenderAmount, HasUpToEightDigitsAndTwoDecimals) {
    ExpectSent("TENDER: AMOUNT=0", Slowly("bc fiscal : 01 00 00 00 00"));
    ExpectSent("TENDER: AMOUNT=0.01", Slowly("bc fiscal : 01 00 00 00 01"));
    ExpectSent("TENDER: AMOUNT=999999.99", Slowly("bc fiscal : 01 99 99 99 99"));
    for (const char* amount : {"0.001", "100000000", "1000000.01", "-1"}) {
        ExpectRefused("TENDER: AMOUNT=" + std::string(amount), "Incorrect AMOUNT value (line: 1)");
    }
    ExpectRefused("TENDER: AMOUNT=10,00", "Wrong number format (line: 1)");
}

// The digits are counted, not the value: what is above the field loses its high digits.
TEST_F(TenderAmount, AboveTheFieldIsTakenByItsDigits) {
    ExpectSent("TENDER: AMOUNT=99999999", Slowly("bc fiscal : 01 99 99 99 00"));
}

TEST_F(TenderTimeout, StaysWhenTheTenderFails) {
    Ecr().FailCommand(2, {151, "Send error"});
    ExpectFailure("TENDER", 151, "Send error",
                  {"b0 : 01", "time-out tender", "bc fiscal : 01 00 00 00 00", "b1 :"});
}

TEST_F(TotalCommand, HasNoParametersAndTheDefaultTimeout) {
    ExpectSent("TOTAL", {"bb fiscal :"});
}

}  // namespace
