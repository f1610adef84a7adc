// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The editor's extension knows the driver's commands and reads what `voltisctl check` says.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <string>

#include "ProcessorInternal.h"
#include "companion/check/Check.h"
#include "companion/check/Layout.h"
#include "tests/companion/Tool.h"
#include "tests/support/Regex.h"
#include "tests/support/TempDir.h"

namespace {

using Names = std::set<std::string>;

nlohmann::json OfExtension(const std::string& file) {
    return nlohmann::json::parse(ReadWholeFile(examples + "/../contrib/vscode/" + file));
}

/// The words between which this pattern of the grammar chooses.
Names GrammarNames(const std::string& pattern) {
    const std::string match = OfExtension("voltis.tmLanguage.json")["repository"][pattern]["match"];
    const std::string mark = "(?i:";
    const std::size_t begin = match.find(mark) + mark.size();
    std::istringstream words(match.substr(begin, match.find(')', begin) - begin));
    Names names;
    for (std::string word; std::getline(words, word, '|');) names.insert(word);
    return names;
}

/// Lines that the driver accepts; what it does not know of a line is too much for it.
constexpr char everyParameter[] =
    "SALE: DEPTNR=1; NAME=TEA; PRICE=1; QNTY=1; AMOUNT=1\n"
    "SALE: PLUNR=1; QNTY=1; PRICE=1\n"
    "DISCOUNT: AMOUNT=1; PERCENTS=1; TYPE=ITEM\n"
    "TENDER: MEDIA=CASH; FOREIGNNR=1; AMOUNT=1\n"
    "COMMENT: TEXT=TEA\n"
    "PAUSE: SECONDS=0.05\n"
    "REPORT: MODE=X; NUMBER=1\n"
    "BARCODE: TYPE=EAN; DATA=590123412345\n";

Names ParametersIn(const std::string& lines) {
    Names names;
    std::istringstream in(lines);
    for (std::string line; std::getline(in, line);)
        for (const auto& parameter : check::LayoutOf(line).parameters) names.insert(parameter.name);
    return names;
}

/// First words of the rows of the tables of parameters.
Names DocumentedParameters() {
    const std::string page = ReadWholeFile(examples + "/../docs/command-language.md");
    const Regex tables(R"(\n\| Parameter \|[^\n]*\n\|[-|]+((?:\n\|[^\n]*)+))");
    const Regex rows(R"(\n\| ([^|]*)\|)");
    const Regex words("`([A-Z]+)`");
    Names names;
    for (const Regex::Found& table : tables.FindAll(page))
        for (const Regex::Found& row : rows.FindAll(table[1]))
            for (const Regex::Found& word : words.FindAll(row[1])) names.insert(word[1]);
    return names;
}

}  // namespace

TEST(Editor, KnowsTheCommandsOfTheDriver) {
    Names commands;
    for (const std::string_view name : KnownCommands()) commands.emplace(name);
    EXPECT_EQ(GrammarNames("command"), commands);
}

TEST(Editor, KnowsTheParametersOfTheDriver) {
    const TempDir folder;
    const check::Question question{check::ModelsOf("ocelot", 2), "RIM"};
    check::CheckFile(folder.Write("all.txt", everyParameter), question,
                     [](const check::Finding& finding) { ADD_FAILURE() << finding.message; });
    EXPECT_EQ(GrammarNames("parameter"), ParametersIn(everyParameter));
    EXPECT_EQ(GrammarNames("parameter"), DocumentedParameters());
}

TEST(Editor, FindsThePlacesInWhatTheCheckSays) {
    const auto matcher =
        OfExtension("package.json")["contributes"]["problemMatchers"][0]["pattern"];
    const TempDir folder;
    const std::string file = folder.Write("sale.txt", "TOTAL\nTENDR: MEDIA=CARD\n");
    std::istringstream said(RunTool({"check", file}).text);
    std::string line;
    std::getline(said, line);
    const auto found = Regex(matcher["regexp"].get<std::string>()).Match(line);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->at(matcher["file"]), file);
    EXPECT_EQ(found->at(matcher["line"]), "2");
    EXPECT_EQ(found->at(matcher["column"]), "1");
    EXPECT_EQ(found->at(matcher["severity"]), "error");
    EXPECT_EQ(found->at(matcher["message"]), "Unknown command : TENDR");
}

TEST(Editor, HasTheVersionOfTheProject) {
    EXPECT_EQ(OfExtension("package.json")["version"], VOLTIS_VERSION);
}
