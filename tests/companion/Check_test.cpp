// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What the check of a command file finds, and where.
#include "companion/check/Check.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "FiscalCommandFile.h"
#include "FiscalCommandProcessor.h"
#include "Globals.h"
#include "companion/plan/Recorder.h"
#include "emulator/Model.h"
#include "tests/support/Failure.h"
#include "tests/support/TempDir.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

namespace {

using check::Finding;
using check::Severity;

const std::string narrow = "lynx";

std::vector<Finding> FindingsOf(const std::string& text, const check::Question& question = {}) {
    const TempDir folder;
    std::vector<Finding> findings;
    check::CheckFile(folder.Write("file.txt", text), question,
                     [&](const Finding& finding) { findings.push_back(finding); });
    return findings;
}

std::vector<Finding> FindingsFor(const std::string& model, const std::string& text) {
    return FindingsOf(text, {check::ModelsOf(model, 2), "RIM"});
}

std::string Told(const Finding& finding) {
    return std::to_string(finding.line) + ":" + std::to_string(finding.column) + " " +
           finding.message;
}

/// "line:column message" of each mistake.
std::vector<std::string> MistakesIn(const std::string& text) {
    std::vector<std::string> told;
    for (const Finding& finding : FindingsOf(text)) {
        if (finding.severity == Severity::Error) told.push_back(Told(finding));
    }
    return told;
}

/// "line:column code" of each warning, and mistakes as they are.
std::vector<std::string> CodesIn(const std::string& text, const std::string& codePage = "RIM") {
    std::vector<std::string> told;
    for (const Finding& finding : FindingsOf(text, {check::ModelsOf("ocelot", 2), codePage})) {
        const bool error = finding.severity == Severity::Error;
        told.push_back(std::to_string(finding.line) + ":" + std::to_string(finding.column) + " " +
                       (error ? finding.message : finding.code));
    }
    return told;
}

std::string MessageIn(const std::string& text) {
    const auto findings = FindingsFor("ocelot", text);
    return findings.size() == 1 ? findings[0].message
                                : "not one but " + std::to_string(findings.size());
}

/// The rest of the line from the place of the one mistake.
std::string PlaceIn(const std::string& line) {
    const auto findings = FindingsFor(narrow, line + "\n");
    if (findings.empty() || findings[0].severity != Severity::Error) return "no mistake";
    return findings[0].text.substr(static_cast<std::size_t>(findings[0].column) - 1);
}

}  // namespace

TEST(Check, IsSilentAboutAFileWithoutMistakes) {
    EXPECT_THAT(FindingsOf("# bread\n\nSALE: DEPTNR=1; NAME=RYE; PRICE=2.50; QNTY=2\nTENDER\n"),
                IsEmpty());
    EXPECT_THAT(FindingsOf(""), IsEmpty());
}

TEST(Check, GoesOnAfterAMistake) {
    EXPECT_THAT(MistakesIn("FOO\nTOTAL\nBAR\nTOTAL: X=1\n"),
                ElementsAre("1:1 Unknown command : FOO", "3:1 Unknown command : BAR",
                            "4:8 Too many parameters"));
}

TEST(Check, BeginsWithWhatTheDriverFindsWhenItReads) {
    EXPECT_THAT(MistakesIn("FOO\nTOTAL x\n"),
                ElementsAre("2:7 Missing ':' after fiscal command", "1:1 Unknown command : FOO"));
}

TEST(Check, CountsALineWithAMistakeAsTheCommandThatItShouldBe) {
    EXPECT_THAT(MistakesIn("CONTINUE\nTOTAL: \"x\nCONTINUE\n"),
                ElementsAre("2:8 Terminating quote is missing"));
    EXPECT_THAT(MistakesIn("CONTINUE x\nTOTAL\nCONTINUE\n"),
                ElementsAre("1:10 Missing ':' after fiscal command"));
}

TEST(Check, AllowsContinueOnlyAtBothEnds) {
    EXPECT_THAT(MistakesIn("TOTAL\nCONTINUE\nTOTAL\n"),
                ElementsAre("2:1 CONTINUE is allowed only as first or last fiscal file command"));
    EXPECT_THAT(MistakesIn("CONTINUE_MANUALLY\nTOTAL\n"),
                ElementsAre("1:1 CONTINUE_MANUALLY is allowed only as last fiscal file command"));
    EXPECT_THAT(MistakesIn("TOTAL\nCONTINUE_MANUALLY\n# the end\n"), IsEmpty());
}

TEST(Check, TakesAnExitFileForWhatTheDriverDoes) {
    EXPECT_THAT(MistakesIn("EXIT: X=1\n"), IsEmpty()) << "it is never executed";
    EXPECT_THAT(MistakesIn("EXIT: X=1\nTOTAL\n"), ElementsAre("1:7 Too many parameters"));
}

TEST(Check, HasOneMistakeForTheManyPiecesOfALongLine) {
    const std::string endless = "COMMENT: TEXT=\"" + std::string(3000, 'x') + "\n";
    const auto mistakes = MistakesIn(endless + "FOO\n");
    EXPECT_THAT(mistakes,
                ElementsAre("1:15 Terminating quote is missing", "4:1 Unknown command : FOO"));
}

TEST(Check, NamesTheModelsThatHaveAMistake) {
    const auto tooLong = FindingsOf("COMMENT: TEXT=12345678901234567890\n");
    ASSERT_EQ(tooLong.size(), 1U);
    EXPECT_THAT(tooLong[0].models, ElementsAre("lynx", "margay"));
    const auto priced = FindingsOf("SALE: PLUNR=1; PRICE=1\n");
    ASSERT_EQ(priced.size(), 1U);
    EXPECT_THAT(priced[0].models, ElementsAre("ocelot protocol 1", "lynx protocol 1",
                                              "puma protocol 1", "serval protocol 1"));
    EXPECT_THAT(FindingsFor(narrow, "SALE: PLUNR=1; PRICE=1\n"), IsEmpty());
}

TEST(Check, NamesNoModelsWhenAllAgree) {
    EXPECT_THAT(FindingsOf("FOO\n").at(0).models, IsEmpty());
    EXPECT_THAT(FindingsFor(narrow, "COMMENT: TEXT=12345678901234567890\n").at(0).models,
                IsEmpty());
}

TEST(Check, ShowsTheLineWithoutItsEnd) {
    EXPECT_EQ(FindingsOf("  FOO \r\n").at(0).text, "  FOO ");
}

TEST(Check, CannotReadWhatIsNoFile) {
    EXPECT_THROW(check::CheckFile("/no/such/file", {}, [](const Finding&) {}), check::FileError);
    EXPECT_THROW(check::CheckFile("/", {}, [](const Finding&) {}), check::FileError);
}

TEST(CheckPlace, IsWhereTheLineStopsToBeACommand) {
    EXPECT_EQ(PlaceIn("TOTAL x"), "x");
    EXPECT_EQ(PlaceIn("COMMENT: TEXT hello"), "hello");
    EXPECT_EQ(PlaceIn("COMMENT: TEXT=Good morning"), "morning");
    EXPECT_EQ(PlaceIn("COMMENT: TEXT=a; TEXT=\"b"), "\"b");
    EXPECT_EQ(PlaceIn("COMMENT:"), "");
    EXPECT_EQ(PlaceIn("COMMENT: TEXT="), "");
}

TEST(CheckPlace, IsTheValueThatIsWrong) {
    EXPECT_EQ(PlaceIn("SALE: DEPTNR=0; AMOUNT=1"), "0; AMOUNT=1");
    EXPECT_EQ(PlaceIn("SALE: DEPTNR=1; PRICE=1; QNTY=1; AMOUNT=2"), "2");
    EXPECT_EQ(PlaceIn("sale: deptnr=1; amount=1,5"), "1,5");
    EXPECT_EQ(PlaceIn("SALE: DEPTNR=1; NAME=abc; PRICE=1; QNTY=x"), "x");
    EXPECT_EQ(PlaceIn("TENDER: MEDIA=VISA; AMOUNT=1"), "VISA; AMOUNT=1");
    EXPECT_EQ(PlaceIn("TENDER: NAME = VISA"), "VISA");
    EXPECT_EQ(PlaceIn("REPORT: TYPE=Y"), "Y");
    EXPECT_EQ(PlaceIn("BARCODE: DATA=12; TYPE=MAXI"), "MAXI");
    EXPECT_EQ(PlaceIn("BARCODE: TYPE=EAN; DATA=abc"), "abc");
    EXPECT_EQ(PlaceIn("BARCODE: TYPE=CODE39; DATA=123456789012345678"), "123456789012345678");
    EXPECT_EQ(PlaceIn("COMMENT: TEXT=\"twenty-one characters\""), "\"twenty-one characters\"");
}

TEST(CheckPlace, IsTheParameterThatIsTooMany) {
    EXPECT_EQ(PlaceIn("SALE: DEPTNR=1; COLOUR=red; AMOUNT=1"), "COLOUR=red; AMOUNT=1");
    EXPECT_EQ(PlaceIn("SALE: DEPTNR=1; PLUNR=1"), "DEPTNR=1; PLUNR=1");
}

TEST(CheckPlace, IsTheCommandWhenSomethingIsMissing) {
    EXPECT_EQ(PlaceIn("  SALE: DEPTNR=1"), "SALE: DEPTNR=1");
    EXPECT_EQ(PlaceIn("SALE: DEPTNR=1; QNTY=1"), "SALE: DEPTNR=1; QNTY=1");
    EXPECT_EQ(PlaceIn("COMMENT"), "COMMENT");
}

TEST(CheckModels, AreThoseOfTheEmulatedRegister) {
    std::vector<std::string> known;
    for (const check::Model& model : check::AllModels())
        known.push_back(model.name + std::to_string(model.version) +
                        std::to_string(model.protocol));
    std::vector<std::string> emulated;
    for (const emulator::Model& model : emulator::Models())
        emulated.push_back(std::string(model.name) + std::to_string(model.version) +
                           std::to_string(model.code));
    EXPECT_EQ(known, emulated);
    EXPECT_THAT(check::ModelsOf("margay", 1), IsEmpty());
    EXPECT_EQ(check::ModelsOf("", 1).size(), 4U);
}

TEST(CheckSurprise, WhatSellsAtNothing) {
    EXPECT_THAT(CodesIn("SALE: DEPTNR=1; AMOUNT=1000000\n"), ElementsAre("1:24 sells-at-zero"));
    EXPECT_THAT(CodesIn("SALE: DEPTNR=1; PRICE=1000; QNTY=1000\n"),
                ElementsAre("1:23 sells-at-zero"));
    EXPECT_THAT(CodesIn("RETURN: DEPTNR=1; PRICE=0.004; QNTY=1\n"),
                ElementsAre("1:25 sells-at-zero"));
    EXPECT_EQ(MessageIn("SALE: DEPTNR=1; AMOUNT=1000000\n"), "This sells at 0.00, not at 1000000");
}

TEST(CheckSurprise, WhatSellsAtAnotherPrice) {
    EXPECT_EQ(MessageIn("SALE: DEPTNR=1; PRICE=1000.01; QNTY=1000\n"),
              "This sells at 10.00, not at 1000010");
    EXPECT_EQ(MessageIn("SALE: DEPTNR=1; PRICE=25; QNTY=1; AMOUNT=2.50\n"),
              "This sells at 25.00, not at 2.5");
    EXPECT_EQ(MessageIn("SALE: DEPTNR=1; PRICE=0.33; QNTY=0.5; AMOUNT=16\n"), "not one but 0")
        << "the amount is what is sold";
    EXPECT_THAT(CodesIn("SALE: DEPTNR=1; PRICE=25; QNTY=1; AMOUNT=2.50\n"),
                ElementsAre("1:42 another-price"));
}

TEST(CheckSurprise, IsNoneInAnUsualSale) {
    for (const char* const sale :
         {"AMOUNT=999999.99", "PRICE=0.01; QNTY=1", "PRICE=1.49; QNTY=0.735",
          "PRICE=999.99; QNTY=1000", "PRICE=2.5; QNTY=3; AMOUNT=7.5", "PRICE=0.333; QNTY=3",
          "AMOUNT=0", "PRICE=999; QNTY=999"}) {
        EXPECT_THAT(CodesIn(std::string("SALE: DEPTNR=1; ") + sale + "\n"), IsEmpty()) << sale;
    }
}

TEST(CheckSurprise, NumbersThatWrap) {
    EXPECT_THAT(CodesIn("SALE: PLUNR=4750000000016; QNTY=1000\n"),
                ElementsAre("1:33 quantity-wraps"));
    EXPECT_EQ(MessageIn("SALE: PLUNR=1; QNTY=1000.5\n"),
              "QNTY=1000.5 reaches the register as 0.500");
    EXPECT_EQ(MessageIn("TENDER: AMOUNT=1000020\n"),
              "AMOUNT=1000020 reaches the register as 20.00");
    EXPECT_THAT(CodesIn("TICKET: AMOUNT=1000000\nTENDER: AMOUNT=999999.99\n"),
                ElementsAre("1:16 amount-wraps"));
    EXPECT_THAT(CodesIn("DISCOUNT: PERCENTS=100; TYPE=ITEM\n"), ElementsAre("1:20 percents-wrap"));
    EXPECT_THAT(CodesIn("DISCOUNT: PERCENTS=100; AMOUNT=1; TYPE=ITEM\n"), IsEmpty())
        << "it is only printed";
    EXPECT_THAT(CodesIn("DISCOUNT: PERCENTS=99.99; TYPE=ITEM\n"), IsEmpty());
}

TEST(CheckSurprise, ARepeatedParameter) {
    EXPECT_THAT(CodesIn("COMMENT: TEXT=a; text=b\n"), ElementsAre("1:18 repeated-parameter"));
    EXPECT_THAT(CodesIn("COMMENT: TEXT=\"a=b=c\"\n"), IsEmpty());
}

TEST(CheckSurprise, TextsThatTheRegisterCannotPrint) {
    EXPECT_THAT(CodesIn("COMMENT: TEXT=\"P\xC4\xABr\xC4\x81gs\"\n"), ElementsAre("1:17 utf-8"));
    EXPECT_THAT(CodesIn("COMMENT: TEXT=\"P\xEEr\xE2gs\"\n"), IsEmpty());
    EXPECT_THAT(CodesIn("COMMENT: TEXT=\"x\xE4\"\n"), ElementsAre("1:17 no-such-letter"));
    EXPECT_THAT(CodesIn("COMMENT: TEXT=\"\xB5\"\n", "DOS"), IsEmpty());
    EXPECT_THAT(CodesIn("COMMENT: TEXT=\"\xB5\"\n"), ElementsAre("1:16 no-such-letter"));
    EXPECT_THAT(CodesIn("COMMENT: TEXT=\"a\tb\"\n"), ElementsAre("1:17 no-such-letter"));
    EXPECT_THAT(CodesIn("COMMENT:\tTEXT=a\n"), IsEmpty());
    EXPECT_THAT(CodesIn("# \xE4\n"), IsEmpty());
}

TEST(CheckSurprise, APauseThatDoesNotWait) {
    EXPECT_THAT(CodesIn("PAUSE\nPAUSE: SECONDS=0.05\nPAUSE: SECONDS=2\nSHOW_TOTAL\n"),
                ElementsAre("1:1 pause", "3:16 pause", "4:1 pause"));
    EXPECT_EQ(MessageIn("PAUSE: SECONDS=1\n"),
              "This does not wait at all; SECONDS=0.01 to 0.099 wait 0.1 to 0.99 s");
    EXPECT_EQ(MessageIn("PAUSE: SECONDS=22\n"),
              "This waits 0.96 s; SECONDS=0.01 to 0.099 wait 0.1 to 0.99 s");
}

TEST(CheckSurprise, ALineThatIsReadInPieces) {
    const std::string begin = "COMMENT: TEXT=a;";
    const std::string fits = begin + std::string(1022 - begin.size(), ' ');
    EXPECT_THAT(CodesIn(fits + "\nTOTAL\n"), IsEmpty());
    EXPECT_THAT(CodesIn(fits + " \nTOTAL\n"), ElementsAre("1:1 long-line"));
}

TEST(CheckSurprise, ANameThatBecomesAComment) {
    const std::string sale = "SALE: DEPTNR=1; AMOUNT=1; NAME=";
    EXPECT_THAT(CodesIn(sale + std::string(18, 'x') + "\n"), IsEmpty());
    EXPECT_THAT(CodesIn(sale + std::string(19, 'x') + "\n"), ElementsAre("1:32 name-as-comment"));
    const auto findings = FindingsOf(sale + std::string(19, 'x') + "\n");
    EXPECT_THAT(findings.at(0).models, ElementsAre("ocelot", "lynx", "puma", "serval"));
}

TEST(CheckSurprise, ACommandThatTheNextFileMayRepeat) {
    EXPECT_THAT(CodesIn("CONTINUE\n# one\nTOTAL\nCONTINUE\n"),
                ElementsAre("3:1 repeatable-command"));
    EXPECT_THAT(CodesIn("CONTINUE\nTOTAL\nTOTAL\nCONTINUE\n"), IsEmpty());
    EXPECT_THAT(CodesIn("CONTINUE\nTENDER\n"), IsEmpty());
    EXPECT_THAT(CodesIn("TOTAL\nCONTINUE\n"), IsEmpty());
    EXPECT_THAT(CodesIn("CONTINUE\n"), IsEmpty());
}
