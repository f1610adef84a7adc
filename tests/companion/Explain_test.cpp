// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The catalogue against the sources: it has every code and text that can be raised, and no other.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "DriverException.h"
#include "companion/explain/Catalogue.h"
#include "companion/explain/Page.h"
#include "companion/explain/Search.h"
#include "companion/explain/Template.h"
#include "companion/explain/Text.h"
#include "companion/job/Outcome.h"
#include "companion/runner/Sandbox.h"
#include "tests/companion/RaisedTexts.h"
#include "tests/support/Regex.h"
#include "tests/support/TempDir.h"

namespace {

namespace fs = std::filesystem;

using explain::Entry;
using explain::Kind;
using testing::ElementsAre;
using testing::IsEmpty;

const std::string tree = VOLTIS_SOURCE_DIR;

std::string Source(const std::string& file) {
    return ReadWholeFile(tree + "/" + file);
}

std::vector<const Entry*> All() {
    std::vector<const Entry*> all;
    for (const Kind kind : explain::allKinds)
        for (const Entry& entry : explain::EntriesOf(kind)) all.push_back(&entry);
    return all;
}

std::string NormalOf(const Entry& entry) {
    return WithoutNeighbours(explain::Normal(entry.text));
}

/// The .cpp and .h files below the folder, from the root of the tree.
std::vector<std::string> SourcesIn(const std::string& folder) {
    std::vector<std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(tree + "/" + folder)) {
        const std::string ending = entry.path().extension();
        if (ending == ".cpp" || ending == ".h")
            files.push_back(fs::relative(entry.path(), tree).string());
    }
    return files;
}

// --- the driver's texts --------------------------------------------------------------------------

const std::string aNote = "none";

// How the driver raises a message or writes a note. The five functions themselves are in
// DriverException.cpp, which is looked at by CatalogueOfTheDriver.HasEveryResultOfTheRegister.
const std::vector<Raiser> driversRaisers = {
    {"", "Fail", 1},
    {"", "FailCommand", 0, "", "", "ERR_COMMAND_FILE"},
    {"", "FailSystem", 0, "", " - {}", "ERR_SYSTEM"},
    {"", "GetSystemErrorMessage", 0, "", " - {}", aNote},
    {"", "DriverException", 0, "", "", "ERR_INTERNAL"},
    {"", "LogMessage", 1, "", "", aNote},
    {"", "AddMessage", 0, "", "", aNote},
    {"", "Log", 0, "", "", aNote},
    {"", "NoteGarbage", 0, "", "", aNote},
    {"", "ShowMessage", 0, "", "", aNote},
    {"", "EndFailedRun", 0, "", "", aNote},
};

/// Arguments that are no message of their own.
const std::set<std::string> passedOn = {
    "src/AppController.cpp message",    // LogMessage itself
    "src/LogFile.cpp \"\\t\" + text",   // a line of the command file
    "src/EcrExchange.cpp event",        // of Log and NoteGarbage
    "src/VOLTIS.cpp message",           // of EndFailedRun
    "src/VOLTIS.cpp failure->Message",  // was raised elsewhere
    "src/VOLTIS.cpp failure->Message.c_str()",
    "src/VOLTIS.cpp failure.Message",
    "src/Linux/ComPort.cpp line",  // bytes on the wire
    "src/ECR.cpp line",            // the statistics, see HasTheLineOfStatistics
};

bool IsPassedOn(const RaisedText& raised) {
    const std::string file = raised.place.substr(0, raised.place.find(':'));
    return raised.text.empty() || passedOn.contains(file + " " + raised.argument) ||
           raised.argument.starts_with("GetSystemErrorMessage(") ||
           raised.text.find("Posible options:") != std::string::npos;  // the usage
}

int NumberOf(const std::string& code, const std::string& header) {
    if (code == aNote) return explain::noCode;
    const auto found = Regex("int " + code + " = ([0-9]+);").Find(header);
    return found ? std::stoi(found->at(1)) : -2;
}

bool HasEntry(const std::string& text, int code) {
    for (const Entry* entry : All()) {
        const bool right = code == explain::noCode || entry->code == code;
        if (right && NormalOf(*entry) == text) return true;
    }
    return false;
}

std::vector<RaisedText> RaisedByTheDriver() {
    std::vector<RaisedText> all;
    for (const std::string& file : SourcesIn("src")) {
        if (file.starts_with("src/DriverException.")) continue;
        for (const RaisedText& raised : TextsRaisedIn(file, Source(file), driversRaisers))
            if (!IsPassedOn(raised)) all.push_back(raised);
    }
    return all;
}

std::vector<std::string> LackingOf(const std::vector<RaisedText>& raised) {
    const std::string header = Source("src/DriverException.h");
    std::vector<std::string> lacking;
    for (const RaisedText& one : raised) {
        if (!HasEntry(one.text, NumberOf(one.code, header)))
            lacking.push_back(one.place + ": " + one.code + " \"" + one.text + "\"");
    }
    return lacking;
}

TEST(CatalogueOfTheDriver, HasEveryTextThatTheSourcesRaise) {
    const std::vector<RaisedText> raised = RaisedByTheDriver();
    EXPECT_GT(raised.size(), 90U);
    EXPECT_THAT(LackingOf(raised), IsEmpty());
}

std::vector<std::string> LackingOfSource(const std::string& source) {
    std::vector<RaisedText> raised = TextsRaisedIn("src/Soup.cpp", source, driversRaisers);
    std::erase_if(raised, IsPassedOn);
    return LackingOf(raised);
}

TEST(CatalogueOfTheDriver, LacksAPlantedText) {
    EXPECT_THAT(LackingOfSource("void Cook() {\n    FailCommand(\"Soup is cold\");\n}\n"),
                ElementsAre("src/Soup.cpp:2: ERR_COMMAND_FILE \"Soup is cold\""));
    EXPECT_THAT(LackingOfSource("Fail(ERR_SEND, \"No \" + soup + \" today\", at);"),
                ElementsAre("src/Soup.cpp:1: ERR_SEND \"No {} today\""));
    EXPECT_THAT(LackingOfSource("FailSystem(\"Can't \"\n    \"cook\");"),
                ElementsAre("src/Soup.cpp:1: ERR_SYSTEM \"Can't cook - {}\""));
    EXPECT_THAT(LackingOfSource("constexpr char cold[] = \"Cold\";\nif (x) FailCommand(cold);"),
                ElementsAre("src/Soup.cpp:2: ERR_COMMAND_FILE \"Cold\""));
    EXPECT_THAT(LackingOfSource("throw new DriverException(\"Cold\", 7, file, 1, false);"),
                ElementsAre("src/Soup.cpp:1: ERR_INTERNAL \"Cold\""));
    EXPECT_THAT(LackingOfSource("AppController::LogMessage(DBG_LOG, \"Cooking\", true);"),
                ElementsAre("src/Soup.cpp:1: none \"Cooking\""));
}

TEST(CatalogueOfTheDriver, LacksATextWhoseWordsCannotBeRead) {
    EXPECT_THAT(LackingOfSource("FailCommand(text);"),
                ElementsAre("src/Soup.cpp:1: ERR_COMMAND_FILE \"{}\""));
    EXPECT_THAT(LackingOfSource("FailCommand(cold ? \"Cold\" : \"Hot\");"),
                ElementsAre("src/Soup.cpp:1: ERR_COMMAND_FILE \"{}\""));
}

TEST(CatalogueOfTheDriver, LacksAKnownTextUnderAnotherCode) {
    EXPECT_THAT(LackingOfSource("Fail(ERR_SEND, \"Wrong number format\");"),
                ElementsAre("src/Soup.cpp:1: ERR_SEND \"Wrong number format\""));
    EXPECT_THAT(LackingOfSource("Fail(ERR_SOUP, \"Send error\");"),
                ElementsAre("src/Soup.cpp:1: ERR_SOUP \"Send error\""));
}

TEST(CatalogueOfTheDriver, IsNotMisledByCommentsAndDeclarations) {
    EXPECT_THAT(LackingOfSource("// FailCommand(\"Soup is cold\");\n"), IsEmpty());
    EXPECT_THAT(LackingOfSource("void FailCommand(const std::string& message);"), IsEmpty());
    EXPECT_THAT(LackingOfSource("void NoteGarbage(const char* event = \"Cold\");"),
                ElementsAre("src/Soup.cpp:1: none \"Cold\""));
    EXPECT_THAT(LackingOfSource("FailCommandLine(\"x\");"), IsEmpty());
}

TEST(CatalogueOfTheDriver, HasNoTextThatNothingRaises) {
    std::set<std::string> raised;
    for (const RaisedText& one : RaisedByTheDriver()) raised.insert(one.text);
    for (int code = 0; code <= CRC_OTHER_ERROR; ++code) raised.insert(GetEcrErrorMessage(code));
    for (const Kind kind : {Kind::ErrorCode, Kind::Message, Kind::Note}) {
        for (const Entry& entry : explain::EntriesOf(kind)) {
            const bool described = entry.text[0] >= 'a' && entry.text[0] <= 'z' &&
                                   kind == Kind::ErrorCode;    // has messages of its own
            const bool proved = entry.code == ERR_INTERNAL ||  // by another test
                                entry.code == job::errorOutcomeUnknown ||
                                entry.text.starts_with("I/O statistics");
            EXPECT_TRUE(described || proved || raised.contains(NormalOf(entry))) << entry.text;
        }
    }
}

TEST(CatalogueOfTheDriver, ExplainsEveryErrorCodeOfTheHeader) {
    const std::string header = Source("src/DriverException.h");
    const auto definitions = Regex("int ERR_[A-Z_]+ = ([0-9]+);").FindAll(header);
    for (const Regex::Found& found : definitions) {
        EXPECT_THAT(explain::Find("ErrorCode=" + found[1]).entries, testing::SizeIs(1)) << found[0];
    }
    EXPECT_GE(definitions.size(), 18U);
}

TEST(CatalogueOfTheDriver, HasEveryResultOfTheRegister) {
    for (int code = 0; code <= CRC_OTHER_ERROR; ++code) {
        const auto found = explain::Find("ErrorCode=" + std::to_string(ERR_ECR_RESULT + code));
        ASSERT_EQ(found.entries.size(), 1U) << code;
        EXPECT_EQ(found.entries[0]->text, GetEcrErrorMessage(code)) << code;
    }
}

TEST(CatalogueOfTheDriver, HasEveryExitCode) {
    const std::string source = Source("src/VOLTIS.cpp");
    std::set<std::string> codes;
    for (const Regex::Found& found : Regex("(return|exit\\() ?([0-9]+)\\)?;").FindAll(source)) {
        codes.insert(found[2]);
        EXPECT_THAT(explain::Find("ResultCode=" + found[2]).entries, testing::SizeIs(1));
    }
    EXPECT_THAT(codes, ElementsAre("0", "1", "101", "2"));
}

TEST(CatalogueOfTheDriver, FitsARealInternalError) {
    try {
        FailInternal();
    } catch (DriverException* caught) {
        const std::unique_ptr<DriverException> failure(caught);
        const explain::Found found = explain::Find(failure->Message);
        ASSERT_EQ(found.entries.size(), 1U) << failure->Message;
        EXPECT_EQ(found.entries[0]->code, failure->ErrorCode);
    }
}

TEST(CatalogueOfTheDriver, HasTheLineOfStatistics) {
    EXPECT_NE(Source("src/ECR.cpp").find("\"I/O statistics : OUT frames = %d, IN frames = %d\""),
              std::string::npos);
    const auto found = explain::Find(
        "22.11.2026 10:00:00.000  I/O statistics : OUT frames = 33, IN frames = 31, LOST = 2");
    ASSERT_EQ(found.entries.size(), 1U);
    EXPECT_EQ(found.entries[0]->kind, Kind::Note);
}

// --- those of `voltisctl run` --------------------------------------------------------------------

const std::string ofRun = "50";

const std::vector<Raiser> runsRaisers = {
    {"", "RunError", 0, "", "", ofRun},
    {"", "SandboxError", 0, "", "", ofRun},
    {"", "DeviceBusy", 0, "", "", ofRun},
    {"", "DeviceError", 0, "", "", ofRun},
    {"", "ProfileError", 0, "", "", ofRun},
    {"", "JournalError", 0, "", "", ofRun},
    {"", "OtherContent", 0, "", "", ofRun},
    {"", "WrongState", 0, "", "", ofRun},
    {"", "NothingSent", 0, "", "", ofRun},
    {"", "CodePageError", 0, "", "", "1"},
    {"runner/Profile.cpp", "Fail", 1, "'{}': ", "", ofRun},
    {"runner/Device.cpp", "Fail", 1, "the device '{}' of register '{}' ", "", ofRun},
    {"runner/ResultPublication.cpp", "Fail", 0, "", " '{}' - {}", ofRun},
    {"runner/CodePage.cpp", "FailAt", 2, "line {}, column {}: ", "", "1"},
    {"runner/Files.cpp", "FailOn", 0, "cannot ", " '{}' - {}", ofRun},
    {"runner/DeviceLock.cpp", "system_error", 2, "", ": {}", ofRun},
    {"runner/IniText.cpp", "runtime_error", 0, "'{}': ", "", ofRun},
    {"runner/DriverPath.cpp", "runtime_error", 0, "", "", ofRun},
    {"verdict/Promises.cpp", "runtime_error", 0, "", "", ofRun},
    {"job/Outcome.cpp", "runtime_error", 0, "", "", ofRun},
    {"job/Job.cpp", "Unsent", 1, "", "", ofRun},
    {"ctl/HandOver.cpp", "NotNow", 0, "", "", ofRun},
    {"ctl/HandOver.cpp", "InDoubt", 0, "", "", ofRun},
    {"ctl/HandOver.cpp", "GiveUp", 1, "", "", ofRun},
};

/// Arguments that are no message of their own: the functions above from inside, and messages that
/// were raised elsewhere.
const std::set<std::string> passedOnByRun = {
    R"(companion/runner/CodePage.cpp "line " + std::to_string(number) + ", column " + )"
    R"(std::to_string(CharactersIn(head) + 1) + ": " + what + "\n" + line + "\n" + )"
    R"(Indent(head) + "^")",
    R"(companion/runner/Profile.cpp "'" + file + "': " + what)",
    R"(companion/runner/Profile.cpp failure.what())",
    R"(companion/runner/Profile.cpp wrong.what())",
    R"(companion/runner/Sandbox.cpp SandboxRemedy(err_.fd == -1 ? out_.text : err_.text))",
    R"(companion/runner/RegisterRun.cpp std::string(failure.what()) + "\nOr write Sandbox=no into '")"
    R"( + profile.file + "': the driver then runs without a sandbox.")",
    R"(companion/runner/Device.cpp "the device '" + profile.device + "' of register '" + )"
    R"(profile.name + "' " + what)",
    R"(companion/job/Job.cpp reason)",
    R"(companion/job/Job.cpp failure.what())",
    R"(ctl/HandOver.cpp request_)",
    R"(ctl/HandOver.cpp reason)",
    R"(ctl/HandOver.cpp outcome.reason)",
    R"(ctl/HandOver.cpp failure.what())",
    // Not of one register: `voltisctl run` does not ask for all of them.
    R"(companion/runner/Profile.cpp "there is no such file, and no other register")",
};

std::vector<RaisedText> RaisedByRunIn(const std::string& file, const std::string& source) {
    std::vector<RaisedText> all = TextsRaisedIn(file, source, runsRaisers);
    std::erase_if(all, [&](const RaisedText& raised) {
        return passedOnByRun.contains(file + " " + raised.argument);
    });
    return all;
}

std::vector<RaisedText> RaisedByRun() {
    std::vector<RaisedText> all;
    for (const char* folder : {"companion/runner", "companion/journal", "companion/job",
                               "companion/plan", "companion/verdict"}) {
        for (const std::string& file : SourcesIn(folder)) {
            if (!file.ends_with(".cpp")) continue;
            for (const RaisedText& raised : RaisedByRunIn(file, Source(file)))
                all.push_back(raised);
        }
    }
    const std::string handOver = "ctl/HandOver.cpp";
    for (const RaisedText& raised : RaisedByRunIn(handOver, Source(handOver)))
        all.push_back(raised);
    return all;
}

std::vector<std::string> LackingOfRun(const std::vector<RaisedText>& raised) {
    std::vector<std::string> lacking;
    for (const RaisedText& one : raised) {
        bool has = false;
        for (const Entry& entry : explain::EntriesOf(Kind::RunMessage))
            has = has || (NormalOf(entry) == one.text && (entry.code == explain::noCode ||
                                                          std::to_string(entry.code) == one.code));
        if (!has) lacking.push_back(one.place + ": \"" + one.text + "\"");
    }
    return lacking;
}

TEST(CatalogueOfRun, HasEveryTextThatTheSourcesRaise) {
    const std::vector<RaisedText> raised = RaisedByRun();
    EXPECT_GT(raised.size(), 40U);
    EXPECT_THAT(LackingOfRun(raised), IsEmpty());
}

TEST(CatalogueOfRun, HasNoTextThatNothingRaises) {
    std::set<std::string> raised;
    for (const RaisedText& one : RaisedByRun()) raised.insert(one.text);
    // Not raised, but put in the place of a message.
    const std::string told =
        Source("companion/job/Outcome.cpp") + Source("companion/job/Attempt.cpp") +
        Source("companion/job/Job.cpp") + Source("companion/journal/Place.cpp") +
        Source("companion/runner/Sandbox.cpp") + Source("companion/service/Desk.cpp");
    for (const Entry& entry : explain::EntriesOf(Kind::RunMessage)) {
        const std::string begin =
            "\"" + std::string(entry.text.substr(0, entry.text.find_first_of("{(")));
        EXPECT_TRUE(raised.contains(NormalOf(entry)) || told.find(begin) != std::string::npos)
            << entry.text;
    }
}

TEST(CatalogueOfRun, LacksAPlantedText) {
    const std::string file = "companion/runner/Profile.cpp";
    EXPECT_THAT(LackingOfRun(RaisedByRunIn(file, "throw RunError(\"the soup is cold\");")),
                ElementsAre(file + ":1: \"the soup is cold\""));
    EXPECT_THAT(LackingOfRun(RaisedByRunIn(file, "Fail(profile.file, key + \" is cold\");")),
                ElementsAre(file + ":1: \"'{}': {} is cold\""));
    EXPECT_THAT(LackingOfRun(RaisedByRunIn(file, "throw RunError(soup);")),
                ElementsAre(file + ":1: \"{}\""));
}

TEST(CatalogueOfRun, HasBothRemediesOfTheSandbox) {
    for (const char* said : {"bwrap: No permissions to create new namespace", "bwrap: soup"}) {
        const auto found = explain::Find(runner::SandboxRemedy(said));
        ASSERT_EQ(found.entries.size(), 1U) << said;
        EXPECT_EQ(found.entries[0]->kind, Kind::RunMessage);
    }
}

TEST(CatalogueOfRun, HasTheFourVerdictsAndTheOutcomeThatIsUnknown) {
    std::set<std::string> words;
    for (const Entry& entry : explain::EntriesOf(Kind::Verdict)) words.emplace(entry.text);
    std::set<std::string> all;
    for (const auto kind : {verdict::Kind::NotPrinted, verdict::Kind::Part, verdict::Kind::Printed,
                            verdict::Kind::Unknown})
        all.insert(job::Word(kind));
    EXPECT_EQ(words, all);
    job::Outcome outcome;
    outcome.of = 3;
    job::BeInDoubt(outcome, false);
    const job::DriverWord told = job::ReadResult(job::exitUncertain, outcome.result);
    const auto found = explain::Find(told.message);
    ASSERT_EQ(found.entries.size(), 1U) << told.message;
    EXPECT_EQ(found.entries[0]->code, told.errorCode);
    EXPECT_EQ(found.entries[0]->code, job::errorOutcomeUnknown);
}

// --- the catalogue itself ------------------------------------------------------------------------

TEST(Catalogue, AnswersAllFourQuestionsOfEveryEntry) {
    for (const Entry* entry : All()) {
        EXPECT_FALSE(entry->happened.empty()) << entry->text;
        EXPECT_FALSE(entry->remedy.empty()) << entry->text;
        EXPECT_FALSE(entry->answers->paper.text.empty()) << entry->text;
        EXPECT_FALSE(entry->answers->repeat.text.empty()) << entry->text;
    }
}

TEST(Catalogue, HasEveryTextAndCodeOfAKindOnce) {
    std::set<std::string> seen;
    for (const Entry* entry : All()) {
        EXPECT_TRUE(seen.insert(std::string(entry->text) + NameOf(entry->kind)).second)
            << entry->text;
    }
}

TEST(Catalogue, FindsEveryEntryByItsOwnText) {
    for (const Entry* entry : All()) {
        const auto found = explain::Find(explain::Shown(entry->text));
        EXPECT_THAT(found.entries, testing::Contains(entry)) << entry->text;
    }
}

TEST(Catalogue, IsThePageOfErrors) {
    EXPECT_EQ(explain::Page(), Source("docs/errors.md"))
        << "write it again: voltisctl explain --write-page docs/errors.md";
}

TEST(Catalogue, ExplainsInLinesOfAtMostEightyColumns) {
    std::string text = explain::Listing();
    for (const Entry* entry : All()) text += explain::Explanation(*entry);
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) EXPECT_LE(line.size(), 80U) << line;
}

// --- what is found -------------------------------------------------------------------------------

std::vector<std::string> TextsFor(const std::string& query) {
    std::vector<std::string> texts;
    for (const Entry* entry : explain::Find(query).entries)
        texts.push_back(explain::Shown(entry->text));
    return texts;
}

TEST(ExplainFind, TakesAMessageAsItIsInAResultFileOrALog) {
    EXPECT_THAT(TextsFor("Message=Unknown command : SAEL (line: 4)"),
                ElementsAre("Unknown command : X"));
    EXPECT_THAT(TextsFor("Missing '=' after parameter PRICE (file : '/a (b)/s.txt' line : 3)"),
                ElementsAre("Missing '=' after parameter NAME"));
    EXPECT_THAT(TextsFor("22.11.2026 10:00:00.000  Comunication error"),
                ElementsAre("Comunication error"));
    EXPECT_THAT(TextsFor("voltisctl: cannot read 'a.txt' - No such file or directory"),
                ElementsAre("cannot read 'X' - ..."));
    EXPECT_THAT(TextsFor("incorrect keylock position. please set keylock in reg position"),
                ElementsAre("Incorrect keylock position. Please set keylock in REG position"));
    EXPECT_THAT(TextsFor("part: 3 of 8 commands, go on at line 5"), ElementsAre("part"));
}

TEST(ExplainFind, PrefersTheTextThatLeavesLeastOpen) {
    EXPECT_THAT(TextsFor("PRICE is missing"), ElementsAre("PRICE is missing"));
    EXPECT_THAT(TextsFor("TYPE is missing"), ElementsAre("NAME is missing"));
    EXPECT_THAT(TextsFor("PLUNR or DEPTNR is missing"), ElementsAre("PLUNR or DEPTNR is missing"));
    EXPECT_THAT(TextsFor("Outcome unknown: Send error"), ElementsAre("Outcome unknown: ..."));
}

TEST(ExplainFind, TakesTheBeginningsOfWordsInAnyOrder) {
    EXPECT_THAT(TextsFor("end pap"), ElementsAre("Receipt paper end", "Journal paper end"));
    EXPECT_THAT(TextsFor("aper"), IsEmpty());
}

TEST(ExplainFind, TakesACodeOfItsOwnBeforeARange) {
    EXPECT_THAT(TextsFor("250"), ElementsAre("Fiscal command execution error"));
    EXPECT_THAT(TextsFor("251"), ElementsAre("Other error"));
    EXPECT_THAT(TextsFor("137"), ElementsAre("ended by a signal"));
    EXPECT_THAT(TextsFor("ErrorCode=2"), ElementsAre("wrong arguments of the driver"));
}

TEST(ExplainFindMessage, TakesARealMessageAndNoWordsOfOne) {
    const auto whole = explain::FindMessage("Receipt not started");
    ASSERT_EQ(whole.size(), 1U);
    EXPECT_EQ(whole[0]->text, "Receipt not started");
    EXPECT_EQ(explain::FindMessage("14:02 Message=Receipt not started (line: 3)"), whole);
    for (const char* other : {"receipt start", "Receipt not startled", ""}) {
        EXPECT_THAT(explain::FindMessage(other), IsEmpty()) << other;
    }
    EXPECT_FALSE(explain::Find("receipt start").entries.empty());
}

TEST(ExplainFind, NamesTheNearestOfWhatIsUnknown) {
    const auto text = explain::Find("Recipt not startet");
    EXPECT_THAT(text.entries, IsEmpty());
    ASSERT_FALSE(text.nearest.empty());
    EXPECT_EQ(text.nearest[0]->text, "Receipt not started");
    const auto code = explain::Find("109");
    EXPECT_THAT(code.entries, IsEmpty());
    ASSERT_EQ(code.nearest.size(), 3U);
    EXPECT_EQ(code.nearest[0]->code, 108);
    EXPECT_THAT(explain::Find("1000000000000000000000").entries, IsEmpty());
    EXPECT_THAT(explain::Find("qqqq").nearest, IsEmpty());
}

}  // namespace
