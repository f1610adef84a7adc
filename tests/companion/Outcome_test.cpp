// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/job/Outcome.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>

using job::DriverWord;
using job::Outcome;
using job::ReadResult;
using testing::HasSubstr;
using verdict::Kind;

namespace {

// What the driver leaves with that exit code and error code.
DriverWord Driver(int exitCode, std::optional<int> errorCode, bool oldFormat = false) {
    const std::string code = std::to_string(exitCode);
    if (oldFormat) return ReadResult(exitCode, code + "\nits own words");
    std::string result = "[VOLTIS]\nResultCode=" + code + "\nMessage=its own words";
    if (errorCode) result += "\nErrorCode=" + std::to_string(*errorCode);
    return ReadResult(exitCode, result);
}

// Of a file with six commands.
Outcome Of(Kind kind, const DriverWord& driver) {
    Outcome outcome;
    outcome.registerName = "default";
    outcome.verdict = kind;
    outcome.of = 6;
    outcome.atLeast = kind == Kind::Printed ? 6 : kind == Kind::Part ? 2 : 0;
    outcome.atMost = kind == Kind::NotPrinted ? 0 : kind == Kind::Part ? 2 : 6;
    if (kind != Kind::Printed) outcome.nextLine = 4;
    outcome.receipt = {41, 42, true, 350};
    outcome.driver = driver;
    return outcome;
}

Outcome Settled(Kind kind, const DriverWord& driver, bool oldFormat = false) {
    Outcome outcome = Of(kind, driver);
    job::Settle(outcome, oldFormat);
    return outcome;
}

const DriverWord killed = {137, "The driver was ended by signal 9", {}, {}};

struct Row {
    Kind kind;
    int driver;
    std::optional<int> errorCode;
    int exitCode;

    friend void PrintTo(const Row& row, std::ostream* out) {
        *out << job::Word(row.kind) << ", driver " << row.driver << ", "
             << row.errorCode.value_or(0);
    }
};

class OutcomeExitCode : public testing::TestWithParam<Row> {};

}  // namespace

// --- the exit code -------------------------------------------------------------------------------

TEST_P(OutcomeExitCode, FollowsFromTheVerdictAndTheDrivers) {
    const Row& row = GetParam();
    const Outcome outcome = Settled(row.kind, Driver(row.driver, row.errorCode));
    EXPECT_EQ(outcome.exitCode, row.exitCode);
    EXPECT_THAT(outcome.result,
                HasSubstr("[VOLTIS]\nResultCode=" + std::to_string(row.exitCode) + "\n"));
}

INSTANTIATE_TEST_SUITE_P(
    EveryPair, OutcomeExitCode,
    testing::Values(Row{Kind::Printed, 0, {}, 0}, Row{Kind::Printed, 1, 1, 101},
                    Row{Kind::Printed, 2, 50, 0}, Row{Kind::Printed, 2, 105, 101},
                    Row{Kind::Printed, 101, 101, 0}, Row{Kind::Printed, 101, 102, 0},
                    Row{Kind::Printed, 101, 106, 101}, Row{Kind::Printed, 101, 201, 101},
                    Row{Kind::NotPrinted, 0, {}, 2}, Row{Kind::NotPrinted, 1, 1, 1},
                    Row{Kind::NotPrinted, 2, 100, 2}, Row{Kind::NotPrinted, 101, 201, 2},
                    Row{Kind::Part, 0, {}, 101}, Row{Kind::Part, 1, 1, 101},
                    Row{Kind::Part, 2, 100, 101}, Row{Kind::Part, 101, 201, 101},
                    Row{Kind::Unknown, 0, {}, 101}, Row{Kind::Unknown, 1, 1, 101},
                    Row{Kind::Unknown, 2, 100, 101}, Row{Kind::Unknown, 101, 101, 101}));

TEST(Outcome, IsUncertainForAKilledDriverUnlessNothingWasPrinted) {
    EXPECT_EQ(Settled(Kind::Printed, killed).exitCode, 101);
    EXPECT_EQ(Settled(Kind::NotPrinted, killed).exitCode, 2);
    EXPECT_EQ(Settled(Kind::Part, killed).exitCode, 101);
    EXPECT_EQ(Settled(Kind::Unknown, killed).exitCode, 101);
}

TEST(Outcome, IsPrintedOnlyWithTheNumberOfTheReceipt) {
    Outcome outcome = Of(Kind::Printed, Driver(101, 101));
    outcome.receipt.after.reset();
    job::Settle(outcome, false);
    EXPECT_EQ(outcome.exitCode, 101);
}

// --- the result file -----------------------------------------------------------------------------

TEST(OutcomeResult, IsTheDriversOwnWhereTheExitCodesAgree) {
    for (const bool old : {false, true}) {
        const DriverWord mistake = Driver(1, 1, old);
        EXPECT_EQ(Settled(Kind::NotPrinted, mistake, old).result, mistake.result);
        const DriverWord refused = Driver(101, 201, old);
        EXPECT_EQ(Settled(Kind::Part, refused, old).result, refused.result);
        const DriverWord well = Driver(0, {}, old);
        EXPECT_EQ(Settled(Kind::Printed, well, old).result, well.result);
    }
}

TEST(OutcomeResult, KeepsWhatTheDriverSaysOfAnUnfinishedReceipt) {
    const DriverWord driver = Driver(101, 106);
    EXPECT_EQ(Settled(Kind::Printed, driver).result, driver.result);
}

TEST(OutcomeResult, TellsSuccessWhereTheDriverLostTheEnd) {
    Outcome outcome = Of(Kind::Printed, Driver(101, 101));
    outcome.receipt = {41, 42, false, {}};
    job::Settle(outcome, false);
    EXPECT_EQ(outcome.result, "[VOLTIS]\nResultCode=0\nMessage=OK\nLastReceiptNo=42");
    outcome.receipt = {41, 42, true, -5};
    job::Settle(outcome, false);
    EXPECT_EQ(outcome.result,
              "[VOLTIS]\nResultCode=0\nMessage=Receipt not finished\nCurrentReceiptNo=42\n"
              "Subtotal=-0.05");
}

TEST(OutcomeResult, TellsSuccessInTheOldFormat) {
    Outcome outcome = Of(Kind::Printed, Driver(101, 101));
    job::Settle(outcome, true);
    EXPECT_EQ(outcome.result, "0\nOK\nReceipt not finished");
    outcome.receipt.open = false;
    job::Settle(outcome, true);
    EXPECT_EQ(outcome.result, "0\nOK\nReceiptNo: 42");
}

TEST(OutcomeResult, NeedsNoNumberForADriverThatLeftNoResultFile) {
    Outcome outcome = Of(Kind::Printed, DriverWord{});
    outcome.receipt = {};
    job::Settle(outcome, false);
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_EQ(outcome.result, "[VOLTIS]\nResultCode=0\nMessage=OK");
}

TEST(OutcomeResult, TellsTheIntervalWhereTheDriverSaysLess) {
    Outcome outcome = Of(Kind::Unknown, Driver(2, 100));
    job::Settle(outcome, false);
    EXPECT_EQ(outcome.result,
              "[VOLTIS]\nResultCode=101\nMessage=Outcome unknown: at least 0 and at most 6 of 6 "
              "commands were done, the first that is not certain is in line 4\nErrorCode=160");
    outcome.nextLine.reset();
    job::Settle(outcome, true);
    EXPECT_EQ(outcome.result,
              "101\nOutcome unknown: at least 0 and at most 6 of 6 commands were done");
}

TEST(OutcomeResult, HasTheDriversReasonWhereNothingWasPrinted) {
    EXPECT_EQ(Settled(Kind::NotPrinted, Driver(101, 201)).result,
              "[VOLTIS]\nResultCode=2\nMessage=its own words\nErrorCode=201");
    EXPECT_EQ(Settled(Kind::NotPrinted, Driver(101, {}, true), true).result, "2\nits own words");
    EXPECT_EQ(Settled(Kind::NotPrinted, Driver(0, {})).result,
              "[VOLTIS]\nResultCode=2\nMessage=Nothing was printed");
}

TEST(OutcomeResult, HasAReasonInOneLineWhenTheDriverWasNotStarted) {
    Outcome outcome;
    job::SettleUnsent(outcome, false, job::exitNotPrinted, 50, "no bubblewrap\ninstall it");
    EXPECT_EQ(outcome.verdict, Kind::NotPrinted);
    EXPECT_EQ(outcome.exitCode, 2);
    EXPECT_EQ(outcome.reason, "no bubblewrap\ninstall it");
    EXPECT_EQ(outcome.result,
              "[VOLTIS]\nResultCode=2\nMessage=no bubblewrap install it\nErrorCode=50");
    job::SettleUnsent(outcome, true, job::exitMistake, 1, "no such file");
    EXPECT_EQ(outcome.result, "1\nno such file");
}

TEST(OutcomeResult, IsNoSuccessInDoubt) {
    Outcome outcome = Settled(Kind::Printed, Driver(0, {}));
    job::BeInDoubt(outcome, false);
    EXPECT_EQ(outcome.exitCode, 101);
    EXPECT_EQ(outcome.verdict, Kind::Unknown);
    EXPECT_THAT(outcome.result, HasSubstr("at least 0 and at most 6 of 6"));
    Outcome unheard;
    unheard.reason = "the journal\nis lost";
    job::BeInDoubt(unheard, true);
    EXPECT_EQ(unheard.result, "101\nOutcome unknown: the journal is lost");
}

// --- reading the driver's ------------------------------------------------------------------------

TEST(OutcomeDriver, IsReadInBothFormats) {
    const DriverWord word = ReadResult(2, "[VOLTIS]\nResultCode=2\nMessage=a=b\nErrorCode=105");
    EXPECT_EQ(word.message, "a=b");
    EXPECT_EQ(word.errorCode, 105);
    EXPECT_EQ(ReadResult(2, "2\nECR is missing").message, "ECR is missing");
    EXPECT_FALSE(ReadResult(2, "2\nECR is missing").errorCode);
}

TEST(OutcomeDriver, MayHaveSaidNothing) {
    EXPECT_EQ(ReadResult(2, "").message, "");
    EXPECT_FALSE(ReadResult(2, "[VOLTIS]\nResultCode=2\nErrorCode=x").errorCode);
}

// --- JSON ----------------------------------------------------------------------------------------

TEST(OutcomeJson, HasTheKeysInTheirOrder) {
    Outcome outcome = Of(Kind::Part, {101, "Receipt paper end", 201, {}});
    outcome.exitCode = 101;
    outcome.atLeast = outcome.atMost = 2;
    outcome.seconds = 1.2741;
    EXPECT_EQ(ToJson(outcome),
              R"({"job":null,"register":"default","verdict":"part",)"
              R"("commands":{"of":6,"at_least":2,"at_most":2,"next_line":4},)"
              R"("receipt":{"before":41,"after":42,"open":true,"subtotal":"3.50"},"exit_code":101,)"
              R"("driver":{"exit_code":101,"message":"Receipt paper end","error_code":201},)"
              R"("replayed":false,"seconds":1.27})");
}

TEST(OutcomeJson, HasNullForWhatIsNotKnownAndAReasonWhenThereIsOne) {
    Outcome outcome;
    outcome.id = "A-1";
    outcome.registerName = "bar";
    job::SettleUnsent(outcome, false, job::exitNotPrinted, 50, "no \xE0");
    EXPECT_EQ(ToJson(outcome),
              R"({"job":"A-1","register":"bar","verdict":"not-printed",)"
              R"("commands":{"of":0,"at_least":0,"at_most":0,"next_line":null},)"
              R"("receipt":{"before":null,"after":null,"open":null,"subtotal":null},)"
              R"("exit_code":2,"driver":null,"replayed":false,"seconds":0.0,)"
              "\"reason\":\"no \xEF\xBF\xBD\"}");
}

TEST(OutcomeJson, HasNoNumberOfCommandsThatNobodyCounted) {
    Outcome outcome;
    job::SettleUnsent(outcome, false, job::exitNotPrinted, 50, "no");
    job::BeInDoubt(outcome, false);
    const std::string text = ToJson(outcome);
    EXPECT_THAT(text, HasSubstr(R"({"of":null,"at_least":0,"at_most":null,"next_line":null})"));
    EXPECT_EQ(ToJson(job::FromRecord(ToRecord(outcome))), text);
}

TEST(OutcomeRecord, ComesBackAsItWas) {
    for (const Kind kind : {Kind::Printed, Kind::NotPrinted, Kind::Part, Kind::Unknown}) {
        Outcome outcome = Settled(kind, Driver(101, 201));
        outcome.id = "A-1";
        outcome.receipt.subtotal = -1205;
        outcome.reason = "why";
        const Outcome back = job::FromRecord(ToRecord(outcome));
        EXPECT_EQ(ToRecord(back), ToRecord(outcome));
        EXPECT_EQ(back.result, outcome.result);
        EXPECT_EQ(back.receipt.subtotal, -1205);
        EXPECT_FALSE(back.replayed);
    }
    Outcome empty;
    EXPECT_EQ(ToRecord(job::FromRecord(ToRecord(empty))), ToRecord(empty));
}

TEST(OutcomeRecord, KeepsEveryByteOfTheResultFile) {
    Outcome outcome;
    for (int byte = 0; byte < 256; ++byte) outcome.result += static_cast<char>(byte);
    EXPECT_EQ(job::FromRecord(ToRecord(outcome)).result, outcome.result);
}

TEST(OutcomeRecord, IsRefusedWhenItIsDamaged) {
    std::string record = ToRecord(Settled(Kind::Part, Driver(101, 201)));
    const std::size_t word = record.find("\"part\"");
    for (const std::string& damaged :
         {std::string(), std::string("{}"), std::string("[1]"), record.substr(0, 80),
          record.substr(0, word) + "\"perhaps\"" + record.substr(word + 6),
          record.substr(0, word) + "7" + record.substr(word + 6)})
        EXPECT_THROW(job::FromRecord(damaged), std::runtime_error) << damaged;
}
