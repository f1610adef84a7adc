// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// `voltisctl trace` from outside.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <sstream>
#include <string>

#include "tests/companion/Site.h"
#include "tests/companion/Tool.h"
#include "tests/support/JsonSchema.h"
#include "tests/support/Programs.h"
#include "tests/support/TempDir.h"

namespace {

using testing::HasSubstr;

const std::string logsOfShops = examples + "/../tests/logs";

Answer TraceOf(const std::string& log, const Words& options = {}) {
    return RunTool(Words{"trace"} + options + Words{logsOfShops + "/" + log + ".log"});
}

void ExpectAsReviewed(const std::string& log) {
    EXPECT_EQ(TraceOf(log).text, ReadWholeFile(logsOfShops + "/" + log + ".trace"));
}

/// A run from a file, as short as one can be.
std::string BeginOf(const std::string& file) {
    // No two runs begin at the same time.
    const std::string second = std::to_string(10 + file.front() % 50);
    return "\n14.03.2026 09:00:" + second + ".000  VOLTIS v2.5.0 started. Command line : v " +
           file + "\n";
}
std::string RunOf(const std::string& file) {
    const std::string begin = BeginOf(file);
    return begin + begin.substr(1, 25) + "I/O statistics : OUT frames = 0, IN frames = 0\n";
}
/// Lines that belong to a run and make it longer.
std::string Quoting(int lines) {
    std::string text;
    for (int i = 0; i < lines; ++i) text += "\tSALE: DEPTNR=1; AMOUNT=1.00\n";
    return text;
}

/// One of the definitions, with those that it uses.
nlohmann::json SchemaOf(const nlohmann::json& whole, const std::string& type) {
    nlohmann::json schema = whole.at("$defs").at(type + "_object");
    schema["$defs"] = whole.at("$defs");
    return schema;
}

}  // namespace

TEST(VoltisctlTrace, ShowsALogAsItWasReviewed) {
    ExpectAsReviewed("journal-paper-end");
    ExpectAsReviewed("margay-day");
    ExpectAsReviewed("lost-answer");
}

TEST(VoltisctlTrace, EndsWithOneWhenNotEverythingWasPrinted) {
    EXPECT_EQ(TraceOf("margay-day").exitCode, 1);
    EXPECT_EQ(TraceOf("margay-day", {"--run", "1"}).exitCode, 0);
    EXPECT_EQ(TraceOf("margay-day", {"--run", "last"}).exitCode, 1);
}

TEST(VoltisctlTrace, EndsWithTwoForWhatMakesNoSense) {
    for (const auto& [options, says] :
         {std::pair<Words, std::string>{{"--run", "6"}, "has only 5 runs"},
          {{"--run", "0"}, "'0' is neither a number from 1 nor last"},
          {{"--run", "first"}, "'first' is neither"},
          {{"--slow", "soon"}, "--slow"},
          {{"--slow", "nan"}, "--slow"},
          {{"--slow", "-nan"}, "--slow"},
          {{"--slow", "inf"}, "--slow"},
          {{"--slow", "-1"}, "--slow"}}) {
        const Answer answer = TraceOf("margay-day", options);
        EXPECT_EQ(answer.exitCode, 2) << answer.text;
        EXPECT_THAT(answer.text, HasSubstr(says));
    }
    EXPECT_EQ(RunTool({"trace", "/no/such.log"}).exitCode, 2);
    const Answer noLog = RunTool({"trace", examples + "/status.txt"});
    EXPECT_EQ(noLog.exitCode, 2);
    EXPECT_THAT(noLog.text, HasSubstr("has no run of the driver"));
}

TEST(VoltisctlTrace, KeepsToItsSchema) {
    const auto schema = nlohmann::json::parse(ReadWholeFile(SCHEMAS_DIR "/trace.schema.json"));
    const TempDir folder;
    const std::string damaged =
        folder.Write("x.log", ReadWholeFile(logsOfShops + "/journal-paper-end.log") +
                                  "PC->ECR   5 bytes in    0.1 ms : ff ff ff ff ff\n"
                                  "14.03.2026 09:00:00.000  A v1 started. Command line : \xff\"\n"
                                  "garbage\nPC<-ECR   1 bytes : 00\n"
                                  "PC->ECR   5 bytes in    0.1 ms : d9 01 d1 09 4c\nPC-");
    const std::string mixed = folder.Write("mixed.log", "garbage\n" + ReadWholeFile(damaged));
    std::set<std::string> types;
    for (const std::string& log :
         {logsOfShops + "/journal-paper-end.log", logsOfShops + "/margay-day.log", mixed}) {
        std::istringstream lines(RunTool({"trace", "--json", log}).text);
        for (std::string line; std::getline(lines, line);) {
            const auto object = nlohmann::json::parse(line);
            const std::string type = object.at("type");
            EXPECT_THAT(MistakesBySchema(object, schema), testing::IsEmpty()) << line;
            EXPECT_THAT(MistakesBySchema(object, SchemaOf(schema, type)), testing::IsEmpty())
                << line;
            types.insert(type);
        }
    }
    EXPECT_EQ(types, (std::set<std::string>{"run", "frame", "note", "end", "junk"}));
}

TEST(VoltisctlTrace, ReadsStandardInput) {
    Tool tool({"trace", "-", "--json"});
    tool.Type("14.03.2026 09:00:00.000  VOLTIS v2.5.0 started. Command line : voltis a.txt");
    tool.CloseInput();
    EXPECT_EQ(tool.Wait(), 1);
    EXPECT_THAT(tool.Said(), HasSubstr("\"verdict\": \"unknown\""));
}

TEST(VoltisctlTrace, OfStandardInputThatIsClosedSaysThatItCannotBeRead) {
    for (const std::string options : {"", " --follow"}) {
        const std::string script = "exec '" + std::string(VoltisctlPath()) + "' trace -";
        Tool tool(CommandLine{{"/bin/sh", "-c", script + options + " <&-"}});
        EXPECT_EQ(tool.Wait(), 2);
        EXPECT_THAT(tool.Said(), HasSubstr("cannot read '-'"));
    }
}

using VoltisctlTraceOfASite = testing::Test;

TEST_F(VoltisctlTraceOfASite, ReadsTheLogOfTheSiteAndAgreesWithRun) {
    Site site;
    site.Configure("DbgErrorLog=2\n");
    const std::string sale =
        site.Folder().Write("sale.txt", "SALE: DEPTNR=1; NAME=a; AMOUNT=1\nTENDER\n");
    const Words run =
        Words{"run", "--journal", site.File("journal.db")} + site.Folders() + Words{sale};
    EXPECT_EQ(site.Served([&] { return RunTool(run); }).exitCode, 0);
    site.Register().SetKeylock(emulator::Keylock::Off);
    EXPECT_EQ(site.Served([&] { return RunTool(run); }).exitCode, 2);
    const Words where = {"--config", site.File("."), "--logs", site.File("logs")};
    const std::string text = RunTool(Words{"trace"} + where).text;
    EXPECT_THAT(text, HasSubstr("printed: 2 of 2 commands sent were done"));
    EXPECT_THAT(text, HasSubstr("Incorrect keylock position"));
    EXPECT_THAT(text, HasSubstr("not printed: no commands were sent"));
}

TEST_F(VoltisctlTraceOfASite, SaysThatTheSiteKeepsNoLog) {
    const Site site;
    const Answer answer =
        RunTool({"trace", "--config", site.File("."), "--logs", site.File("logs")});
    EXPECT_EQ(answer.exitCode, 2);
    EXPECT_THAT(answer.text, HasSubstr("dbgerror.log"));
    EXPECT_EQ(RunTool({"trace", "--config", site.File("."), "--logs", site.File("no")}).exitCode,
              2);
}

TEST_F(VoltisctlTraceOfASite, OfASiteWhereNothingHasFailedSaysSoAndEndsWell) {
    Site site;
    site.Configure("DbgErrorLog=1\n");
    const Words trace = {"trace", "--config", site.File("."), "--logs", site.File("logs")};
    const std::string log = site.File("logs/dbgerror.log");
    for (const bool isThere : {false, true}) {
        if (isThere) std::ofstream(log).flush();
        const Answer answer = RunTool(trace);
        EXPECT_EQ(answer.exitCode, 0);
        EXPECT_EQ(answer.text, "No run is in '" + log +
                                   "'.\n"
                                   "DbgErrorLog=1 keeps those that failed, and none has.\n");
    }
    EXPECT_EQ(RunTool(trace + Words{"--run", "last"}).exitCode, 2);
    std::ofstream(log) << "garbage\n";
    EXPECT_EQ(RunTool(trace).exitCode, 2);
}

TEST(VoltisctlTrace, SaysWhatItsPageShows) {
    const std::string page = ReadWholeFile(examples + "/../docs/trace.md");
    const std::string shown = TraceOf("lost-answer").text;
    // The page shows the beginning, the trouble and the end.
    const std::size_t begin = page.find("```\nrun 1");
    ASSERT_NE(begin, std::string::npos);
    std::istringstream block(page.substr(begin + 4, page.find("\n```", begin + 4) - begin - 4));
    std::size_t at = 0;
    for (std::string line; std::getline(block, line);) {
        if (line == "...") continue;
        const std::size_t found = shown.find(line + "\n", at);
        ASSERT_NE(found, std::string::npos) << line;
        at = found + line.size();
    }
}

TEST(VoltisctlTrace, ItsPageHasAProgramThatReadsIt) {
    const std::string page = ReadWholeFile(examples + "/../docs/trace.md");
    const std::size_t begin = page.find("```\nvoltisctl trace --json");
    ASSERT_NE(begin, std::string::npos);
    const std::size_t end = page.find("\n```\n\n```\n", begin);
    const std::string said = page.substr(end + 10, page.rfind("```") - end - 10);
    const TempDir folder;
    const std::string script = Script(folder, "example", page.substr(begin + 4, end - begin - 4));
    const std::string output = folder.File("output");
    const std::filesystem::path tool = std::filesystem::absolute(VoltisctlPath());
    const std::string shell = "cd '" + examples + "/..' && PATH='" + tool.parent_path().string() +
                              "':\"$PATH\" '" + script + "' >'" + output + "'";
    ASSERT_EQ(std::system(shell.c_str()), 0);
    EXPECT_EQ(ReadWholeFile(output), said);
}

TEST(VoltisctlTrace, DrawsThePictureOfThePages) {
    const TempDir folder;
    EXPECT_EQ(TraceOf("lost-answer", {"--svg", folder.File("a.svg")}).text, "");
    EXPECT_EQ(ReadWholeFile(folder.File("a.svg")), ReadWholeFile(examples + "/../docs/trace.svg"))
        << "draw it again: voltisctl trace --svg docs/trace.svg tests/logs/lost-answer.log";
    EXPECT_EQ(TraceOf("lost-answer", {"--svg", "/no/such/folder/a.svg"}).exitCode, 2);
}

TEST(VoltisctlTrace, EndsAsTheRunThatItDraws) {
    const TempDir folder;
    const auto drawn = [&](const Words& options) {
        return TraceOf("margay-day", Words{"--svg", folder.File("a.svg")} + options).exitCode;
    };
    EXPECT_EQ(drawn({"--run", "1"}), 0);
    EXPECT_EQ(drawn({}), 1);
    const std::string log = folder.Write(
        "x.log", ReadWholeFile(logsOfShops + "/margay-day.log") + "garbage\n" + RunOf("good.txt"));
    EXPECT_EQ(RunTool({"trace", log, "--svg", folder.File("a.svg")}).exitCode, 0);
    EXPECT_THAT(ReadWholeFile(folder.File("a.svg")), HasSubstr("Run 6, "));
    const std::string torn = folder.Write("torn.log", RunOf("good.txt") + "\ngarbage\nhalf");
    EXPECT_EQ(RunTool({"trace", torn, "--svg", folder.File("a.svg")}).exitCode, 0);
    EXPECT_EQ(RunTool({"trace", torn}).exitCode, 1);
}

TEST(VoltisctlTrace, TakesARunWhoseFirstLineIsCutForTheLastOne) {
    const TempDir folder;
    const std::string log = folder.Write("x.log", RunOf("good.txt") + BeginOf("cut").substr(0, 40));
    const Answer answer = RunTool({"trace", "--run", "last", log});
    EXPECT_EQ(answer.exitCode, 1);
    EXPECT_TRUE(answer.text.starts_with("run 2 ")) << answer.text;
}

TEST(VoltisctlTrace, NamesWhatIsNoPartOfALog) {
    const TempDir folder;
    const std::string log = folder.Write(
        "x.log", "one\r\n\r\n" + RunOf("a.txt") + "two\nthree\n\tof a file\n" + RunOf("b.txt"));
    const Answer answer = RunTool({"trace", log});
    EXPECT_EQ(answer.exitCode, 1);
    EXPECT_TRUE(
        answer.text.starts_with("! line 1: no part of a debug log: 1 line, 5 bytes\n\nrun 1"));
    EXPECT_THAT(answer.text,
                HasSubstr("\n\n! line 6: no part of a debug log: 2 lines, 10 bytes\n\nrun 2"));
    EXPECT_THAT(RunTool({"trace", "--run", "2", log}).text, testing::Not(HasSubstr("no part of")));
}

TEST(VoltisctlTrace, ReplacesTextsWhenItIsAskedTo) {
    const Answer answer = TraceOf("lost-answer", {"--anonymise"});
    EXPECT_EQ(answer.exitCode, 0);
    EXPECT_THAT(answer.text, HasSubstr("\"Xxxxx xxxx\""));
    EXPECT_THAT(answer.text, testing::Not(HasSubstr("Apple")));
    const TempDir folder;
    EXPECT_EQ(TraceOf("lost-answer", {"--anonymise", "--svg", folder.File("a.svg")}).exitCode, 0);
    const std::string picture = ReadWholeFile(folder.File("a.svg"));
    EXPECT_THAT(picture, HasSubstr("Xxxxx xxxx"));
    EXPECT_THAT(picture, testing::Not(HasSubstr("Apple")));
    EXPECT_THAT(picture, testing::Not(HasSubstr("Birthday")));
}

// --- following a log -----------------------------------------------------------------------------

namespace {

/// A log that somebody follows.
class VoltisctlTraceFollowing : public testing::Test {
  protected:
    void Follow(const std::string& text, const Words& options = {}) {
        Append(text);
        tool.emplace(Words{"trace", "--follow", log} + options);
    }
    void Append(const std::string& text) const {
        std::ofstream(log, std::ios::app | std::ios::binary) << text << std::flush;
    }
    /// As the driver does with a run that went well; with no moment between it and what follows.
    void CutTo(std::size_t size, const std::string& next) const {
        std::ofstream out(log, std::ios::app | std::ios::binary);
        std::filesystem::resize_file(log, size);
        out << next << std::flush;
    }
    int Interrupted() {
        tool->Signal(SIGINT);
        return tool->Wait();
    }

    TempDir folder;
    std::string log = folder.File("x.log");
    std::optional<Tool> tool;
};

}  // namespace

TEST_F(VoltisctlTraceFollowing, BeginsWithTheLastRun) {
    Follow(RunOf("a.txt") + BeginOf("b.txt"));
    tool->SaidUpTo("b.txt");
    Append(RunOf("c.txt").substr(BeginOf("c.txt").size()));
    tool->SaidUpTo("verdict     printed");
    EXPECT_EQ(Interrupted(), 0);
    EXPECT_THAT(tool->Said(), testing::Not(HasSubstr("a.txt")));
}

TEST_F(VoltisctlTraceFollowing, ShowsTheRunAfterOneThatIsRemovedAtTheSameMoment) {
    const std::string kept = RunOf("a.txt");
    Follow(kept + BeginOf("b.txt"));
    tool->SaidUpTo("b.txt");
    CutTo(kept.size(), BeginOf("c.tx"));
    EXPECT_THAT(tool->SaidUpTo("c.tx"), HasSubstr("removed from the log before its end was read"));
    // The next one is longer, so the log does not become shorter.
    CutTo(kept.size(), BeginOf("d.txt") + Quoting(3));
    tool->SaidUpTo("d.txt");
    CutTo(kept.size(), RunOf("e.txt"));
    EXPECT_THAT(tool->SaidUpTo("e.txt"), HasSubstr("| SALE"));
    tool->SaidUpTo("verdict     printed");
    EXPECT_EQ(Interrupted(), 1);
}

TEST_F(VoltisctlTraceFollowing, GoesOnWhereTheFirstOfTheRemovedRunsBegan) {
    const std::string kept = RunOf("a.txt");
    Follow(kept + RunOf("b.txt") + Quoting(3000) + RunOf("c.txt"), {"--run", "2"});
    tool->SaidUpTo("c.txt");
    CutTo(kept.size(), "\n" + RunOf("d.txt") + Quoting(3010) + "garbage\n");
    tool->SaidUpTo("d.txt");
    CutTo(0, RunOf("e.txt") + "garbage\n");
    tool->SaidUpTo("e.txt");
    tool->SaidUpTo("verdict     printed");
    EXPECT_EQ(Interrupted(), 1);
    EXPECT_THAT(tool->Said(), HasSubstr("line 4: no part of a debug log: 1 line, 8 bytes"));
}

TEST_F(VoltisctlTraceFollowing, ReadsARenamedLogToItsEndBeforeTheNewOne) {
    Follow(BeginOf("a.txt"));
    tool->SaidUpTo("a.txt");
    std::ofstream atWork(log, std::ios::app);
    std::filesystem::rename(log, log + ".1");
    Append("");  // logrotate's "create"
    atWork << Quoting(1) << std::flush;
    tool->SaidUpTo("| SALE");
    atWork << RunOf("a").substr(BeginOf("a").size()) << std::flush;
    Append(BeginOf("b.txt"));
    EXPECT_THAT(tool->SaidUpTo("b.txt"), HasSubstr("verdict     printed"));
    std::filesystem::remove(log);
    Append(RunOf("c.txt"));
    tool->SaidUpTo("c.txt");
    tool->SaidUpTo("verdict     printed");
    EXPECT_EQ(Interrupted(), 1);
}

TEST_F(VoltisctlTraceFollowing, ReadsALogThatIsRenamedBeforeItHasLines) {
    Follow(BeginOf("a.txt"));
    tool->SaidUpTo("a.txt");
    std::ofstream first(log, std::ios::app);
    std::filesystem::rename(log, log + ".1");
    std::ofstream second(log, std::ios::app);
    for (int look = 0; look < 2; ++look) {  // the second line is read after the new log was seen
        first << Quoting(1) << std::flush;
        tool->SaidUpTo("| SALE");
    }
    std::filesystem::rename(log, log + ".2");
    Append("");
    second << RunOf("b.txt") << std::flush;
    tool->SaidUpTo("b.txt");
    Append(RunOf("c.txt"));
    tool->SaidUpTo("c.txt");
    tool->SaidUpTo("verdict     printed");
    EXPECT_EQ(Interrupted(), 1);
}

TEST_F(VoltisctlTraceFollowing, WaitsForALogThatIsNotThere) {
    tool.emplace(Words{"trace", "--follow", log});
    tool->SaidUpTo("There is no '" + log + "' yet; waiting for it\n");
    Append(RunOf("a.txt"));
    EXPECT_THAT(tool->SaidUpTo("verdict     printed"), HasSubstr("run 1 "));
    EXPECT_EQ(Interrupted(), 0);
    EXPECT_EQ(RunTool({"trace", "--follow", folder.File("no/such.log")}).exitCode, 2);
}

TEST_F(VoltisctlTraceFollowing, EndsAtTheEndOfStandardInput) {
    tool.emplace(Words{"trace", "--follow", "-"});
    tool->TypeWithoutLineFeed(RunOf("a.txt"));
    tool->SaidUpTo("verdict     printed");  // before the end
    tool->TypeWithoutLineFeed(RunOf("b.txt"));
    tool->CloseInput();
    EXPECT_EQ(tool->Wait(), 0);
    EXPECT_THAT(tool->Said(), HasSubstr("b.txt"));
}
