// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "FiscalCommand.h"

#include <gtest/gtest.h>

#include "Globals.h"
#include "tests/support/Failure.h"

namespace {

/// The tokens of a text, in order.
std::vector<std::string> TokensOf(std::string text) {
    FiscalCommand tokenizer("X");
    std::vector<std::string> tokens;
    for (std::string token; !(token = tokenizer.GetToken(text)).empty();) tokens.push_back(token);
    return tokens;
}

/// The line must be refused with this message, code 1, and cmdError set.
void ExpectRefused(const std::string& line, const std::string& message) {
    cmdError = false;
    const auto failure = FailureOf([&] { const FiscalCommand command(line); });
    ASSERT_TRUE(failure) << line;
    EXPECT_EQ(failure->Message, message) << line;
    EXPECT_EQ(failure->ErrorCode, 1) << line;
    EXPECT_TRUE(cmdError) << line;
}

void ExpectSaleOfDepartment1(FiscalCommand command) {
    EXPECT_EQ(command.GetCommand(), "SALE");
    EXPECT_EQ(command.GetParameterCount(), 2);
    EXPECT_EQ(command.GetParameter("DEPTNR"), "1");
    EXPECT_EQ(command.GetParameter("PRICE"), "1.00");
}

/// The value of parameter A of a line.
std::string ValueOfA(const std::string& line) {
    return FiscalCommand(line).GetParameter("A");
}

}  // namespace

using Tokens = std::vector<std::string>;

TEST(FiscalCommand_GetToken, SplitsAtDelimitersAndBlanks) {
    EXPECT_EQ(TokensOf("sale:deptnr=1;x"), (Tokens{"sale", ":", "deptnr", "=", "1", ";", "x"}));
    EXPECT_EQ(TokensOf(" \t\r\na \t b \r\n"), (Tokens{"a", "b"}));
    EXPECT_EQ(TokensOf(":;=;:"), (Tokens{":", ";", "=", ";", ":"}));
}

TEST(FiscalCommand_GetToken, TakesTheTokenAndTheBlanksAfterItOffTheText) {
    std::string text = "  one \t two ";
    EXPECT_EQ(FiscalCommand("X").GetToken(text), "one");
    EXPECT_EQ(text, "two ");
    EXPECT_EQ(FiscalCommand("X").GetToken(text), "two");
    EXPECT_EQ(text, "");
    EXPECT_EQ(FiscalCommand("X").GetToken(text), "");
}

TEST(FiscalCommand_GetToken, GivesAnEmptyTokenForBlanks) {
    EXPECT_EQ(TokensOf(" \t\r\n"), Tokens{});
}

TEST(FiscalCommand_GetToken, KeepsDelimitersAndBlanksBetweenQuotes) {
    EXPECT_EQ(TokensOf("\" a:;= b\"c"), (Tokens{" a:;= b", "c"}));
}

TEST(FiscalCommand_GetToken, ReadsABackslashWithAQuoteAsAQuote) {
    EXPECT_EQ(TokensOf(R"("say \"hi\"")"), (Tokens{R"(say "hi")"}));
}

TEST(FiscalCommand_GetToken, ReadsEveryOtherBackslashAsItself) {
    EXPECT_EQ(TokensOf(R"("a\\b\n")"), (Tokens{R"(a\\b\n)"}));
    EXPECT_EQ(TokensOf(R"(a\b)"), (Tokens{R"(a\b)"}));
}

TEST(FiscalCommand_GetToken, ReadsTwoBackslashesWithAQuoteFromLeftToRight) {
    EXPECT_EQ(TokensOf(R"("a\\"b")"), (Tokens{R"(a\"b)"}));
}

TEST(FiscalCommand_GetToken, MakesOneBlankOfTwoAdjacentQuotes) {
    EXPECT_EQ(TokensOf(R"("")"), (Tokens{" "}));
}

TEST(FiscalCommand_GetToken, KeepsAQuoteInsideABareToken) {
    EXPECT_EQ(TokensOf("a\"b"), (Tokens{"a\"b"}));
}

TEST(FiscalCommand, ReadsNameAndParameters) {
    ExpectSaleOfDepartment1(FiscalCommand("sale:deptnr=1;price=1.00"));
}

TEST(FiscalCommand, TakesBlanksAroundEverythingAndAFinalSemicolon) {
    ExpectSaleOfDepartment1(FiscalCommand("  Sale : DeptNr = 1 ; Price = 1.00 ;   "));
}

TEST(FiscalCommand, IsCompleteWithoutParameters) {
    const FiscalCommand command("exit");
    EXPECT_EQ(command.GetCommand(), "EXIT");
    EXPECT_EQ(command.GetParameterCount(), 0);
}

TEST(FiscalCommand, KeepsTheCaseOfValues) {
    EXPECT_EQ(ValueOfA("X: a=MiXed"), "MiXed");
}

TEST(FiscalCommand, KeepsTheBlanksOfAQuotedValue) {
    EXPECT_EQ(ValueOfA(R"(X: A=" two  words ")"), " two  words ");
}

TEST(FiscalCommand, ReadsAnEscapedQuoteInAValue) {
    EXPECT_EQ(ValueOfA(R"(X: A="5\" disk")"), "5\" disk");
}

TEST(FiscalCommand, TakesAnEmptyQuotedValueForOneBlank) {
    EXPECT_EQ(ValueOfA(R"(X: A="")"), " ");
}

TEST(FiscalCommand, TakesTheLastOfARepeatedParameter) {
    FiscalCommand command("SALE: DEPTNR=1; DEPTNR=2");
    EXPECT_EQ(command.GetParameter("DEPTNR"), "2");
    EXPECT_EQ(command.GetParameterCount(), 1);
}

TEST(FiscalCommand, TakesADelimiterForAValue) {
    EXPECT_EQ(ValueOfA("X: A=;"), ";");
    FiscalCommand command("X: A=;; B=2");
    EXPECT_EQ(command.GetParameter("A"), ";");
    EXPECT_EQ(command.GetParameter("B"), "2");
}

TEST(FiscalCommand, TakesAQuotedDelimiterForTheDelimiter) {
    FiscalCommand command(R"("SALE" ":" "a" "=" "1" ";" B=2)");
    EXPECT_EQ(command.GetParameter("A"), "1");
    EXPECT_EQ(command.GetParameter("B"), "2");
}

TEST(FiscalCommand, RefusesALineWithoutACommandName) {
    ExpectRefused("", "Command name is missing");
    ExpectRefused(" \t\r\n", "Command name is missing");
}

TEST(FiscalCommand, RefusesAMissingColon) {
    ExpectRefused("SALE DEPTNR=1", "Missing ':' after fiscal command");
    ExpectRefused("SALE;", "Missing ':' after fiscal command");
}

TEST(FiscalCommand, RefusesAColonWithoutParameters) {
    ExpectRefused("EXIT:", "Parameters are missing");
    ExpectRefused("EXIT: \t", "Parameters are missing");
}

TEST(FiscalCommand, NeverSeesAnEmptyParameterName) {
    // The loop ends with the text, and any text yields a token: a delimiter becomes the name.
    ExpectRefused("X: =1", "Missing '=' after parameter =");
    ExpectRefused("X: A=1;;B=2", "Missing '=' after parameter ;");
}

TEST(FiscalCommand, RefusesAMissingEqualsSign) {
    ExpectRefused("SALE: DEPTNR 1", "Missing '=' after parameter DEPTNR");
    ExpectRefused("SALE: deptnr", "Missing '=' after parameter DEPTNR");
}

TEST(FiscalCommand, RefusesAMissingValue) {
    ExpectRefused("SALE: DEPTNR=", "Parameter value is missing");
    ExpectRefused("SALE: A=1; DEPTNR = ", "Parameter value is missing");
}

TEST(FiscalCommand, RefusesAMissingSemicolon) {
    ExpectRefused("SALE: DEPTNR=1 PRICE=2", "Missing ';' after 'DEPTNR = 1'");
    ExpectRefused("SALE: name==5", "Missing ';' after 'NAME = ='");
    ExpectRefused(R"(X: A="b c"d)", "Missing ';' after 'A = b c'");
}

TEST(FiscalCommand, RefusesAMissingClosingQuote) {
    ExpectRefused("COMMENT: TEXT=\"abc", "Terminating quote is missing");
    ExpectRefused(R"(COMMENT: TEXT="abc\")", "Terminating quote is missing");
    ExpectRefused("\"", "Terminating quote is missing");
}

TEST(FiscalCommand_ParameterExists, ComparesExactly) {
    const FiscalCommand command("SALE: deptnr=1");
    EXPECT_TRUE(command.ParameterExists("DEPTNR"));
    EXPECT_FALSE(command.ParameterExists("deptnr"));
    EXPECT_FALSE(command.ParameterExists("DEPT"));
}

TEST(FiscalCommand_GetParameter, LeavesTheParameter) {
    FiscalCommand command("SALE: DEPTNR=1; PRICE=2");
    EXPECT_EQ(command.GetParameter("DEPTNR"), "1");
    EXPECT_EQ(command.GetParameter("DEPTNR", false), "1");
    EXPECT_EQ(command.GetParameterCount(), 2);
}

TEST(FiscalCommand_ExtractParameter, TakesTheParameterOut) {
    FiscalCommand command("SALE: DEPTNR=1; PRICE=2");
    EXPECT_EQ(command.ExtractParameter("DEPTNR"), "1");
    EXPECT_FALSE(command.ParameterExists("DEPTNR"));
    EXPECT_EQ(command.GetParameterCount(), 1);
    EXPECT_EQ(command.GetParameter("PRICE", true), "2");
    EXPECT_EQ(command.GetParameterCount(), 0);
}

TEST(FiscalCommand_ExtractParameter, RefusesASecondExtraction) {
    FiscalCommand command("SALE: DEPTNR=1");
    command.ExtractParameter("DEPTNR");
    cmdError = false;
    const auto failure = FailureOf([&] { command.ExtractParameter("DEPTNR"); });
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->Message, "DEPTNR is missing");
    EXPECT_EQ(failure->ErrorCode, 1);
    EXPECT_TRUE(cmdError);
}

TEST(FiscalCommand_GetParameter, RefusesAnAbsentParameter) {
    FiscalCommand command("SALE: DEPTNR=1");
    cmdError = false;
    const auto failure = FailureOf([&] { command.GetParameter("PRICE"); });
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->Message, "PRICE is missing");
    EXPECT_EQ(failure->ErrorCode, 1);
    EXPECT_TRUE(cmdError);
}

TEST(FiscalCommand, KeepsACopyApart) {
    const FiscalCommand original("SALE: DEPTNR=1");
    FiscalCommand copy = original;
    copy.ExtractParameter("DEPTNR");
    EXPECT_TRUE(original.ParameterExists("DEPTNR"));
}
