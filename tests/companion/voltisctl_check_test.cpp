// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// `voltisctl check` from outside.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <string>

#include "tests/companion/Tool.h"
#include "tests/support/JsonSchema.h"
#include "tests/support/TempDir.h"

namespace {

class CheckTest : public testing::Test {
  protected:
    Answer Check(const std::string& text, const Words& arguments = {}) {
        return RunTool(Words{"check", folder.Write("sale.txt", text)} + arguments);
    }
    /// What was said, with the name of the file alone.
    std::string Said(const std::string& text, const Words& arguments = {}) {
        std::string said = Check(text, arguments).text;
        const std::string path = folder.File("");
        for (std::size_t at = said.find(path); at != std::string::npos; at = said.find(path))
            said.erase(at, path.size());
        return said;
    }

    TempDir folder;
};

}  // namespace

using voltisctlCheck = CheckTest;

TEST_F(voltisctlCheck, ShowsThePlaceOfEachMistake) {
    EXPECT_EQ(Said("SALE: DEPTNR=1; AMOUNT=1,50\n"
                   "COMMENT: TEXT=\"Thank you for your visit\"\n"
                   "TOTAL now\n"
                   "PAUSE: SECONDS=2\n"),
              "sale.txt:3:7: error: Missing ':' after fiscal command\n"
              "  TOTAL now\n"
              "        ^\n"
              "sale.txt:1:24: error: Wrong number format\n"
              "  SALE: DEPTNR=1; AMOUNT=1,50\n"
              "                         ^\n"
              "sale.txt:2:15: error: TEXT is too long\n"
              "  COMMENT: TEXT=\"Thank you for your visit\"\n"
              "                ^\n"
              "  only: lynx, margay\n"
              "sale.txt:4:16: warning: This does not wait at all; SECONDS=0.01 to 0.099 wait 0.1 "
              "to 0.99 s [pause]\n"
              "  PAUSE: SECONDS=2\n"
              "                 ^\n"
              "3 errors, 1 warning\n");
}

TEST_F(voltisctlCheck, EndsWithOneForMistakesOnly) {
    EXPECT_EQ(Check("TOTAL: X=1\n").exitCode, 1);
    EXPECT_EQ(Check("PAUSE: SECONDS=2\n").exitCode, 0);
    const Answer fine = Check("TOTAL\n");
    EXPECT_EQ(fine.exitCode, 0);
    EXPECT_EQ(fine.text, "");
}

TEST_F(voltisctlCheck, EndsWithTwoWhenItCannotReadAFile) {
    const Answer answer = Check("FOO\n", {"/no/such/file"});
    EXPECT_EQ(answer.exitCode, 2);
    EXPECT_TRUE(Holds(answer.text, {"sale.txt:1:1: error: Unknown command : FOO",
                                    "Can't open file '/no/such/file' - No such file"}));
}

TEST_F(voltisctlCheck, EndsWithTwoForAnOptionThatMakesNoSense) {
    EXPECT_EQ(RunTool({"check"}).exitCode, 2);
    EXPECT_EQ(Check("", {"--model", "tiger"}).exitCode, 2);
    EXPECT_EQ(Check("", {"--format", "xml"}).exitCode, 2);
    const Answer answer = Check("", {"--model", "margay", "--protocol", "1"});
    EXPECT_EQ(answer.exitCode, 2);
    EXPECT_TRUE(Holds(answer.text, {"margay has no fiscal protocol version 1"}));
}

TEST_F(voltisctlCheck, AsksOnlyForTheChosenModel) {
    const std::string comment = "COMMENT: TEXT=\"Thank you for your visit\"\n";
    EXPECT_EQ(Check(comment, {"--model", "ocelot"}).exitCode, 0);
    const Answer narrow = Check(comment, {"--model", "lynx"});
    EXPECT_EQ(narrow.exitCode, 1);
    EXPECT_EQ(narrow.text.find("only:"), std::string::npos);
    const std::string sale = "SALE: PLUNR=1; PRICE=1\n";
    EXPECT_EQ(Check(sale, {"--protocol", "1"}).exitCode, 1);
    EXPECT_EQ(Check(sale, {"--protocol", "2"}).exitCode, 0);
}

TEST_F(voltisctlCheck, ReadsStandardInput) {
    Tool tool({"check", "-"});
    tool.Type("TOTAL");
    tool.Type("FOO");
    tool.CloseInput();
    EXPECT_EQ(tool.Wait(), 1);
    EXPECT_TRUE(Holds(tool.Said(), {"-:2:1: error: Unknown command : FOO"}));
}

TEST_F(voltisctlCheck, HasAnObjectForEachFinding) {
    const std::string said =
        Check("COMMENT: TEXT=\"Thank you for your visit\"\nPAUSE\n", {"--format", "json"}).text;
    const std::size_t end = said.find('\n');
    const auto mistake = nlohmann::json::parse(said.substr(0, end));
    EXPECT_EQ(mistake, (nlohmann::json{{"file", folder.File("sale.txt")},
                                       {"line", 1},
                                       {"column", 15},
                                       {"severity", "error"},
                                       {"code", "command"},
                                       {"message", "TEXT is too long"},
                                       {"models", {"lynx", "margay"}}}));
    const auto warning = nlohmann::json::parse(said.substr(end));
    EXPECT_EQ(warning.at("severity"), "warning");
    EXPECT_EQ(warning.at("code"), "pause");
    EXPECT_EQ(warning.at("models"), nlohmann::json::array());
}

TEST_F(voltisctlCheck, KeepsToItsSchema) {
    const auto schema = nlohmann::json::parse(ReadWholeFile(SCHEMAS_DIR "/check.schema.json"));
    std::istringstream said(Check("SALE: PLUNR=1; PRICE=1\nPAUSE\nTOTAL x\nFOO\xff\n"
                                  "COMMENT: TEXT=\"21 letters, and then x\"\n"
                                  "DISCOUNT: PERCENTS=100; TYPE=ITEM; TYPE=SALE\n"
                                  "SALE: DEPTNR=1; AMOUNT=1000000; NAME=nineteen_characters\n"
                                  "SALE: DEPTNR=1; PRICE=25; QNTY=1; AMOUNT=2.50\n"
                                  "SALE: PLUNR=1; QNTY=1000\nTICKET: AMOUNT=1000000\n"
                                  "COMMENT: TEXT=\xe4\nCOMMENT: TEXT=\xc4\xab\n",
                                  {"--format", "json"})
                                .text);
    std::set<std::string> codes;
    for (std::string line; std::getline(said, line);) {
        const auto finding = nlohmann::json::parse(line);
        EXPECT_THAT(MistakesBySchema(finding, schema), testing::IsEmpty()) << line;
        codes.insert(finding.at("code").get<std::string>());
    }
    EXPECT_EQ(codes.size(), 12U) << "all but two of the codes";
}

TEST_F(voltisctlCheck, WritesWorkflowCommands) {
    const std::string file =
        folder.Write("a,b%.txt", "FOO%\nCOMMENT: TEXT=\"Thank you for your visit\"\nPAUSE\n");
    const std::string said = RunTool({"check", "--format", "github", file}).text;
    EXPECT_TRUE(
        Holds(said, {"::error file=", "a%2Cb%25.txt,line=1,col=1::Unknown command : FOO%25\n",
                     ",line=2,col=15::TEXT is too long (only: lynx, margay)\n::warning ",
                     ",line=3,col=1::This does not wait at all"}));
}

TEST_F(voltisctlCheck, ShowsThePartOfALongLineAroundThePlace) {
    const std::string said =
        Said("COMMENT: TEXT=\"" + std::string(200, 'x') + "\"; COLOUR=red; SIZE=12\n",
             {"--model", "ocelot"});
    EXPECT_TRUE(Holds(said, {"TEXT is too long"}));
    for (std::size_t at = 0, end = 0; (end = said.find('\n', at)) != std::string::npos;
         at = end + 1)
        EXPECT_LE(end - at, 80U) << said.substr(at, end - at);
}

TEST_F(voltisctlCheck, KeepsControlCharactersFromTheTerminal) {
    EXPECT_EQ(Said("\x1b[2J\xff\n"),
              "sale.txt:1:1: error: Unknown command : ?[2J?\n"
              "  ?[2J?\n"
              "  ^\n"
              "1 error, 0 warnings\n");
}

TEST_F(voltisctlCheck, HasNothingAgainstTheExamplesButTheirOwnMistake) {
    for (const auto& entry : std::filesystem::directory_iterator(examples)) {
        if (entry.path().extension() != ".txt") continue;
        const bool mistaken = entry.path().filename() == "syntax-error.txt";
        const Answer answer = RunTool({"check", "--model", "ocelot", entry.path()});
        EXPECT_EQ(answer.exitCode, mistaken ? 1 : 0) << answer.text;
    }
}

namespace {

const std::string checkPage = ReadWholeFile(examples + "/../docs/check.md");

/// The block of that number of the page, from 0.
std::string BlockOfThePage(int number) {
    const std::string fence = "\n```\n";
    std::size_t begin = checkPage.find(fence);
    for (; number > 0; --number)
        begin = checkPage.find(fence, checkPage.find(fence, begin + 1) + 1);
    begin += fence.size();
    return checkPage.substr(begin, checkPage.find("```", begin) - begin);
}

}  // namespace

TEST_F(voltisctlCheck, SaysWhatItsPageShows) {
    const std::string file = BlockOfThePage(0);
    EXPECT_EQ(Said(file), [](std::string text) {
        for (std::size_t at = 0; (at = text.find("mistakes.txt")) != std::string::npos;)
            text.replace(at, 12, "sale.txt");
        return text;
    }(BlockOfThePage(1)));
    for (const auto& [format, block] : {std::pair{"json", 2}, std::pair{"github", 3}}) {
        const std::string said = Said(file, {"--format", format});
        std::string shown = BlockOfThePage(block);
        shown.replace(shown.find("mistakes.txt"), 12, "sale.txt");
        EXPECT_NE(said.find(shown), std::string::npos) << said;
    }
}
