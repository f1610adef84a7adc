// `voltisctl trace` from outside.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <string>
#include <thread>

#include "tests/companion/Site.h"
#include "tests/companion/Tool.h"
#include "tests/support/JsonSchema.h"
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
    std::set<std::string> types;
    for (const std::string& log :
         {logsOfShops + "/journal-paper-end.log", logsOfShops + "/margay-day.log", damaged}) {
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
    EXPECT_EQ(types, (std::set<std::string>{"run", "frame", "note", "end"}));
}

TEST(VoltisctlTrace, ReadsStandardInput) {
    Tool tool({"trace", "-", "--json"});
    tool.Type("14.03.2026 09:00:00.000  VOLTIS v2.5.0 started. Command line : voltis a.txt");
    tool.CloseInput();
    EXPECT_EQ(tool.Wait(), 1);
    EXPECT_THAT(tool.Said(), HasSubstr("\"verdict\": \"unknown\""));
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

TEST(VoltisctlTrace, DrawsThePictureOfThePages) {
    const TempDir folder;
    EXPECT_EQ(TraceOf("lost-answer", {"--svg", folder.File("a.svg")}).text, "");
    EXPECT_EQ(ReadWholeFile(folder.File("a.svg")), ReadWholeFile(examples + "/../docs/trace.svg"))
        << "draw it again: voltisctl trace --svg docs/trace.svg tests/logs/lost-answer.log";
    EXPECT_EQ(TraceOf("lost-answer", {"--svg", "/no/such/folder/a.svg"}).exitCode, 2);
}

TEST(VoltisctlTrace, ReplacesTextsWhenItIsAskedTo) {
    const Answer answer = TraceOf("lost-answer", {"--anonymise"});
    EXPECT_EQ(answer.exitCode, 0);
    EXPECT_THAT(answer.text, HasSubstr("\"Xxxxx xxxx\""));
    EXPECT_THAT(answer.text, testing::Not(HasSubstr("Apple")));
}

TEST(VoltisctlTrace, FollowsALogFromItsLastRun) {
    const TempDir folder;
    const std::string start = "14.03.2026 09:00:00.000  VOLTIS v2.5.0 started. Command line : v ";
    const std::string end =
        "14.03.2026 09:00:00.000  I/O statistics : OUT frames = 0, IN frames = 0\n";
    const std::string log = folder.Write("x.log", start + "a.txt\n" + end + start + "b.txt\n");
    Tool tool({"trace", "--follow", log});
    tool.SaidUpTo("b.txt");
    std::ofstream(log, std::ios::app) << end << std::flush;
    tool.SaidUpTo("verdict     printed");
    // The driver removes a run that went well.
    std::filesystem::resize_file(log, start.size() + 6 + end.size());
    std::this_thread::sleep_for(std::chrono::milliseconds(450));  // more than two looks
    std::ofstream(log, std::ios::app) << start << "d.txt\n" << std::flush;
    tool.SaidUpTo("d.txt");
    tool.Signal(SIGINT);
    EXPECT_EQ(tool.Wait(), 1);
    EXPECT_THAT(tool.Said(), testing::Not(HasSubstr("a.txt")));
}
