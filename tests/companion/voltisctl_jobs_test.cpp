// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// `voltisctl jobs` and `voltisctl resolve` from outside.
#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>

#include "companion/journal/Journal.h"
#include "tests/companion/ToldJson.h"
#include "tests/companion/Tool.h"
#include "tests/support/TempDir.h"

using nlohmann::json;

static const std::string saleText = "SALE: DEPTNR=1; AMOUNT=1.00\nTENDER\n";

// A journal with jobs that have ended in some way.
class JobsTest : public testing::Test {
  protected:
    std::int64_t Add(const std::optional<std::string>& id, const std::string& verdict,
                     const std::string& registerName = "default") {
        const std::int64_t number = book.Receive({id, registerName, "/shop/sale.txt", saleText});
        book.StartSending(number, registerName, "/logs/1");
        if (verdict.empty()) return number;
        book.Finish(number, {verdict, R"({"verdict": ")" + verdict + R"("})", 101, false});
        return number;
    }
    Answer Jobs(const Words& arguments) const {
        return RunTool(Words{"jobs", "--journal", path} + arguments);
    }
    json JobsJson(const Words& arguments) const {
        return ToldJson("jobs", Jobs(arguments + Words{"--json"}).text);
    }
    Answer Resolve(const Words& arguments) const {
        return RunTool(Words{"resolve", "--journal", path} + arguments);
    }

    TempDir folder;
    std::string path = folder.File("journal.db");
    journal::Journal book{path};
};

using voltisctlJobs = JobsTest;
using voltisctlResolve = JobsTest;

TEST_F(voltisctlJobs, ShowsATable) {
    Add("till/1", "printed");
    Add(std::nullopt, "unknown", "bar");
    const std::string text = Jobs({}).text;
    EXPECT_EQ(text.find("NUMBER  RECEIVED                  REGISTER  ID      STATE     VERDICT  "
                        "FILE\n1       20"),
              0U)
        << text;
    EXPECT_TRUE(Holds(text, {"Z  default   till/1  done      printed  /shop/sale.txt\n2       20",
                             "Z  bar               in-doubt  unknown  /shop/sale.txt\n"}));
}

TEST_F(voltisctlJobs, SelectsByRegisterAndTime) {
    Add("a", "printed");
    Add("b", "printed", "bar");
    EXPECT_EQ(JobsJson({}).size(), 2U);
    EXPECT_EQ(JobsJson({"--register", "bar"}).at(0).at("id"), "b");
    EXPECT_EQ(JobsJson({"--since", "2024-05-31"}).size(), 2U);
    EXPECT_EQ(JobsJson({"--since", "2999-01-01T00:00"}).size(), 0U);
}

TEST_F(voltisctlJobs, WantsADateThatItCanRead) {
    const Answer answer = Jobs({"--since", "yesterday"});
    EXPECT_EQ(answer.exitCode, 2);
    EXPECT_TRUE(Holds(answer.text, {"such as 2024-05-31", "'yesterday'"}));
}

TEST_F(voltisctlJobs, ShowsOneJobInFull) {
    Add("a", "not-printed");
    Add("a", "unknown");
    const Answer answer = Jobs({"a"});
    EXPECT_EQ(answer.exitCode, 0);
    EXPECT_TRUE(Holds(answer.text, {"number: 1\nID: a\nregister: default\n", "state: in-doubt\n",
                                    "verdict: unknown\nexit code: 101\n", "logs: /logs/1\n",
                                    "--- an attempt before\n", "verdict: not-printed\n",
                                    "--- command file\n" + saleText}));
}

TEST_F(voltisctlJobs, ShowsOneJobAsAnObject) {
    Add("a", "not-printed");
    Add("a", "part");
    const json job = JobsJson({"a"});
    EXPECT_EQ(job.at("number"), 1);
    EXPECT_EQ(job.at("id"), "a");
    EXPECT_EQ(job.at("state"), "done");
    EXPECT_EQ(job.at("outcome").at("verdict"), "part");
    EXPECT_EQ(job.at("exit_code"), 101);
    EXPECT_EQ(job.at("content"), saleText);
    EXPECT_EQ(job.at("resolved"), nullptr);
    EXPECT_EQ(job.at("attempts_before").at(0).at("verdict"), "not-printed");
}

TEST_F(voltisctlJobs, ShowsAJobWithoutAnIdByItsNumber) {
    const std::int64_t number = Add(std::nullopt, "");
    const json job = JobsJson({"--number", std::to_string(number)});
    EXPECT_EQ(job.at("id"), nullptr);
    EXPECT_EQ(job.at("state"), "sending");
    EXPECT_EQ(job.at("verdict"), nullptr);
    EXPECT_EQ(job.at("exit_code"), nullptr);
    EXPECT_EQ(job.at("outcome"), nullptr);
}

TEST_F(voltisctlJobs, SaysThatThereIsNoSuchJob) {
    Add("a", "printed");
    const Answer answer = Jobs({"b"});
    EXPECT_EQ(answer.exitCode, 1);
    EXPECT_EQ(answer.text, "voltisctl: no job 'b' in the journal '" + path + "'\n");
    EXPECT_EQ(Jobs({"--number", "7"}).exitCode, 1);
    EXPECT_EQ(Jobs({"1"}).exitCode, 1);  // a number is no ID
}

TEST_F(voltisctlJobs, PrintsValidJsonWhateverTheBytes) {
    const std::int64_t number = book.Receive({"a", "default", "/shop/\xE9.txt", "\xFF\0 \xC3"});
    book.GiveUp(book.Get(number), "no JSON \xFE", 2);
    const json job = JobsJson({"a"});
    EXPECT_EQ(job.at("file"), "/shop/\xEF\xBF\xBD.txt");
    EXPECT_EQ(job.at("outcome"), "no JSON \xEF\xBF\xBD");
    EXPECT_EQ(JobsJson({}).at(0).at("file"), "/shop/\xEF\xBF\xBD.txt");
}

TEST_F(voltisctlJobs, SendsNoControlCharactersToTheTerminal) {
    book.Receive({"a", "default", "/shop/\x1B[2J.txt", "\x1B[2J\tx\n"});
    EXPECT_TRUE(Holds(Jobs({}).text, {"/shop/?[2J.txt"}));
    EXPECT_TRUE(Holds(Jobs({"a"}).text, {"file: /shop/?[2J.txt\n", "?[2J\tx\n"}));
}

TEST_F(voltisctlJobs, MakesNoJournal) {
    const std::string none = folder.File("none.db");
    EXPECT_EQ(RunTool({"jobs", "--journal", none}).text, "no jobs\n");
    EXPECT_EQ(RunTool({"jobs", "--journal", none, "--json"}).text, "[]\n");
    EXPECT_EQ(RunTool({"jobs", "--journal", none, "a"}).exitCode, 1);
    EXPECT_FALSE(std::filesystem::exists(none));
}

TEST_F(voltisctlJobs, TellsThatTheFileIsNoJournal) {
    const std::string file = folder.Write("letter.txt", std::string(2000, 'x'));
    const Answer answer = RunTool({"jobs", "--journal", file});
    EXPECT_EQ(answer.exitCode, 2);
    EXPECT_TRUE(Holds(answer.text, {"'" + file + "'", "file is not a database"}));
}

TEST_F(voltisctlResolve, RecordsTheDecisionWithTheUser) {
    const std::string user = getpwuid(getuid())->pw_name;
    Add("a", "unknown");
    const Answer answer = Resolve({"a", "--as", "printed", "--note", "seen on the tape"});
    EXPECT_EQ(answer.text, "now printed, decided by " + user + "\n");
    EXPECT_EQ(answer.exitCode, 0);
    const json job = JobsJson({"a"});
    EXPECT_EQ(job.at("state"), "done");
    EXPECT_EQ(job.at("verdict"), "printed");
    EXPECT_EQ(job.at("resolved").at("by"), user);
    EXPECT_EQ(job.at("resolved").at("note"), "seen on the tape");
    EXPECT_EQ(job.at("outcome").at("verdict"), "unknown");
}

TEST_F(voltisctlResolve, FreesAJobThatWasNotPrinted) {
    const std::int64_t number = Add(std::nullopt, "unknown");
    const Words decision = {"--as", "not-printed", "--note", "tape is empty"};
    EXPECT_EQ(Resolve(Words{"--number", std::to_string(number)} + decision).exitCode, 0);
    EXPECT_EQ(book.Get(number).state, journal::State::Failed);
}

TEST_F(voltisctlResolve, IsRefusedWhereNothingIsInDoubt) {
    Add("a", "printed");
    Add("b", "");
    const Words decision = {"--as", "not-printed", "--note", "x"};
    const Answer done = Resolve(Words{"a"} + decision);
    EXPECT_EQ(done.exitCode, 1);
    EXPECT_EQ(done.text, "voltisctl: job 'a' cannot be resolved: it is done (printed)\n");
    EXPECT_TRUE(Holds(Resolve(Words{"b"} + decision).text, {"run it again under its ID"}));
    EXPECT_EQ(Resolve(Words{"c"} + decision).exitCode, 1);
    EXPECT_EQ(book.Find("b")->state, journal::State::Sending);
}

TEST_F(voltisctlResolve, WantsAJobADecisionAndANote) {
    Add("a", "unknown");
    for (const Words& arguments :
         {Words{"--as", "printed", "--note", "x"}, Words{"a", "--as", "printed"},
          Words{"a", "--note", "x"}, Words{"a", "--as", "part", "--note", "x"},
          Words{"a", "--as", "printed", "--note", " "},
          Words{"a", "--number", "1", "--as", "printed", "--note", "x"}}) {
        EXPECT_EQ(Resolve(arguments).exitCode, 2);
    }
    EXPECT_EQ(book.Find("a")->state, journal::State::InDoubt);
}
