// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// `voltisctl run` from outside: what a point-of-sale program sees of it.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "ECR.h"
#include "companion/runner/DeviceLock.h"
#include "companion/workbench/Defaults.h"
#include "companion/workbench/Serving.h"
#include "tests/companion/Site.h"
#include "tests/companion/ToldJson.h"
#include "tests/companion/Tool.h"

namespace fs = std::filesystem;

using nlohmann::json;

static const std::string resultFile = "ResultFileName=result.txt\n";

// A shop with a folder for its command files.
class VoltisctlRun : public testing::Test {
  protected:
    VoltisctlRun() {
        fs::create_directory(site_.File("pos"));
        site_.Configure(resultFile);
    }

    std::string Write(const std::string& content) const {
        return site_.Folder().Write("pos/sale.txt", content);
    }
    Words Line(const Words& more) const {
        return Words{"run", "--journal", journal_} + site_.Folders() + more;
    }

    // With the register at work.
    Answer Run(const Words& more) {
        return site_.Served([&] { return Unserved(more); });
    }
    // With nobody at the other end of the line.
    Answer Unserved(const Words& more) const { return RunTool(Line(more)); }

    // The one object that --json prints, with nothing beside it.
    json Object(const Answer& answer) const { return ToldJson("run", answer.text); }

    std::string Result() const { return ReadWholeFile(site_.File("pos/result.txt")); }
    bool NothingSent() { return site_.Station().line.Counters().bytesIn == 0; }

    // The lock of the register's device.
    std::string LockFile() {
        runner::Profile profile;
        profile.device = site_.Device();
        return runner::LockFileOf(profile, site_.File("locks"));
    }

    Site site_;
    const std::string journal_ = site_.File("journal.db");
};

using VoltisctlRunResult = VoltisctlRun;
using VoltisctlRunEncoding = VoltisctlRun;
using VoltisctlRunJob = VoltisctlRun;
using VoltisctlRunWait = VoltisctlRun;
using VoltisctlRunDevice = VoltisctlRun;

static constexpr char goodResult[] = "[VOLTIS]\nResultCode=0\nMessage=OK\nLastReceiptNo=1";

// --- what is said --------------------------------------------------------------------------------

TEST_F(VoltisctlRun, SaysInOneLineThatAllWasPrinted) {
    const Answer answer = Run({Write(oneSale)});
    EXPECT_EQ(answer.exitCode, 0);
    EXPECT_EQ(answer.text, "printed: 2 of 2 commands, receipt 1\n");
    EXPECT_EQ(Result(), goodResult);
    EXPECT_TRUE(fs::is_empty(site_.File("locks")));
}

TEST_F(VoltisctlRun, PrintsOneObjectAndNothingElse) {
    const json told = Object(Run({"--json", "--job", "till/1", Write(oneSale)}));
    EXPECT_GT(told.at("seconds"), 0);
    json rest = told;
    rest.erase("seconds");
    EXPECT_EQ(rest, json::parse(
                        R"({"job": "till/1", "register": "default", "verdict": "printed",
                "commands": {"of": 2, "at_least": 2, "at_most": 2, "next_line": null},
                "receipt": {"before": 0, "after": 1, "open": false, "subtotal": null},
                "exit_code": 0, "driver": {"exit_code": 0, "message": "OK", "error_code": null},
                "replayed": false})"))
        << told;
}

TEST_F(VoltisctlRun, TellsOfAPartWhereToGoOn) {
    site_.Station().line.OnSend([this](emulator::Bytes&) {
        if (site_.Register().ReceiptInProgress()) site_.Register().SetReceiptPaper(false);
    });
    const std::string file = Write(oneSale);
    const json told = Object(Run({"--json", file}));
    EXPECT_EQ(told["verdict"], "part") << told;
    EXPECT_EQ(told["exit_code"], 101);
    EXPECT_EQ(told["commands"]["at_least"], 1);
    EXPECT_EQ(told["commands"]["next_line"], 2);
    EXPECT_EQ(told["receipt"]["open"], true);
    EXPECT_EQ(told["receipt"]["subtotal"], "5.00");
    EXPECT_EQ(told["driver"]["error_code"], 201);
    EXPECT_TRUE(Holds(Result(), {"ResultCode=101\n"}));
}

TEST_F(VoltisctlRun, SendsNothingOfAFileWithAMistake) {
    const std::string file = Write("SALE: DEPTNR=1; AMOUNT=1.00\nNONSENSE\n");
    const Answer answer = Run({file});
    EXPECT_EQ(answer.exitCode, 1);
    EXPECT_EQ(answer.text,
              "not-printed: 0 of 2 commands, receipt 0\n"
              "voltisctl: Unknown command : NONSENSE (line: 2)\n");
    EXPECT_TRUE(site_.Register().Journal().empty());
    EXPECT_TRUE(Holds(Result(), {"ResultCode=1\n"}));
}

TEST_F(VoltisctlRun, NamesTheFileThatIsNotThere) {
    const Answer answer = Unserved({site_.File("pos/none.txt")});
    EXPECT_EQ(answer.exitCode, 1);
    EXPECT_TRUE(Holds(answer.text, {"not-printed", site_.File("pos/none.txt"), "No such file"}));
    EXPECT_FALSE(fs::exists(journal_));
}

TEST_F(VoltisctlRun, AnswersAnUnknownRegisterWithTheSameObject) {
    const Answer answer = Unserved({"--json", "--register", "none", Write(oneSale)});
    EXPECT_EQ(answer.exitCode, 2);
    const json told = Object(answer);
    EXPECT_EQ(told["register"], "none");
    EXPECT_EQ(told["verdict"], "not-printed");
    EXPECT_TRUE(Holds(told["reason"], {"registers/none.ini': there is no such file"}));
}

TEST_F(VoltisctlRun, WantsAFileAndAJobIdThatCanBePrinted) {
    const std::string file = Write(oneSale);
    for (const Words& arguments :
         {Words{}, Words{"--job", "", file}, Words{"--job", "a\tb", file},
          Words{"--job", std::string(201, 'x'), file}, Words{"--from", "latin1", file},
          Words{"--wait", "-1", file}, Words{"--wait", "nan", file}, Words{"--nonsense", file},
          Words{file, file}}) {
        EXPECT_EQ(Unserved(arguments).exitCode, 2) << testing::PrintToString(arguments);
    }
    EXPECT_FALSE(fs::exists(journal_));
    EXPECT_EQ(Run({"--job", std::string(200, 'x'), file}).exitCode, 0);
}

TEST_F(VoltisctlRun, PrintsOnTheRegisterThatIsNamed) {
    site_.Folder().Write("registers/bar.ini", ReadWholeFile(site_.File("voltis.ini")));
    site_.Folder().Write("voltis.ini", "[VOLTIS]\nDevice=/dev/none\n");
    const json told = Object(Run({"--json", "--register", "bar", Write(oneSale)}));
    EXPECT_EQ(told["register"], "bar");
    EXPECT_EQ(told["verdict"], "printed") << told;
}

TEST_F(VoltisctlRun, RecordsAJobWithoutAnIdToo) {
    Run({Write(oneSale)});
    const json jobs = ToldJson("jobs", RunTool({"jobs", "--json", "--journal", journal_}).text);
    ASSERT_EQ(jobs.size(), 1U);
    EXPECT_EQ(jobs.at(0).at("id"), nullptr);
    EXPECT_EQ(jobs.at(0).at("verdict"), "printed");
    EXPECT_EQ(jobs.at(0).at("file"), site_.File("pos/sale.txt"));
}

// The result is the account's, as its umask has it; what is beside the journal is the group's.
TEST_F(VoltisctlRun, LeavesToTheGroupWhatIsInTheFolderOfTheGroup) {
    fs::create_directory(site_.File("lib"));
    for (const char* folder : {"lib", "logs"}) {
        ASSERT_EQ(chmod(site_.File(folder).c_str(), 02770), 0);
    }
    site_.Configure(resultFile + "StandardLog=1\nDbgErrorLog=2\n");
    const std::string file = Write(oneSale);
    const mode_t before = umask(077);
    const Words line = Words{"run", "--journal", site_.File("lib/journal.db")} + site_.Folders() +
                       Words{"--job", "a", file};
    const Answer answer = site_.Served([&] { return RunTool(line); });
    umask(before);
    EXPECT_EQ(answer.exitCode, 0) << answer.text;
    struct stat result = {};
    ASSERT_EQ(stat(site_.File("pos/result.txt").c_str(), &result), 0);
    EXPECT_EQ(result.st_mode & 0777U, 0600U);
    std::size_t files = 0;
    for (const char* folder : {"lib", "logs"}) {
        for (const fs::path& path : fs::recursive_directory_iterator(site_.File(folder))) {
            struct stat status = {};
            ASSERT_EQ(stat(path.c_str(), &status), 0) << path;
            EXPECT_EQ(status.st_mode & 07777U, S_ISDIR(status.st_mode) ? 02770U : 0660U) << path;
            ++files;
        }
    }
    EXPECT_GT(files, 12U);
}

TEST_F(VoltisctlRun, DoesNotSendWithoutAJournal) {
    const std::string journal = site_.File("pos");  // a folder
    const Answer answer = site_.Served([&] {
        return RunTool(Words{"run", "--journal", journal} + site_.Folders() +
                       Words{Write(oneSale)});
    });
    EXPECT_EQ(answer.exitCode, 2);
    EXPECT_TRUE(Holds(answer.text, {"not-printed", "'" + journal + "'"}));
    EXPECT_TRUE(Holds(Result(), {"ResultCode=2\n", journal}));
    EXPECT_TRUE(NothingSent());
}

TEST_F(VoltisctlRun, ShowsNoProgressWhereThereIsNoTerminal) {
    EXPECT_EQ(Run({Write(oneSale)}).text.find('\r'), std::string::npos);
}

// --- the result file -----------------------------------------------------------------------------

TEST_F(VoltisctlRunResult, OfAnEarlierRunIsGoneBeforeAnythingIsSent) {
    const std::string old = site_.Folder().Write("pos/result.txt", goodResult);
    std::optional<bool> seen;
    site_.Station().line.OnReceive([&](emulator::Bytes&) {
        if (!seen) seen = fs::exists(old);
    });
    EXPECT_EQ(Run({Write(oneSale)}).exitCode, 0);
    EXPECT_EQ(seen, false);
    EXPECT_EQ(Result(), goodResult);
}

TEST_F(VoltisctlRunResult, OfAnEarlierRunThatCannotBeRemovedKeepsTheJobFromBeingSent) {
    fs::create_directories(site_.File("pos/result.txt/in-the-way"));
    const Answer answer = Run({Write(oneSale)});
    EXPECT_EQ(answer.exitCode, 2);
    EXPECT_TRUE(Holds(answer.text, {"the old result file cannot be removed"}));
    EXPECT_TRUE(NothingSent());
}

TEST_F(VoltisctlRunResult, ThatCannotBeWrittenLeavesTheVerdictTrue) {
    site_.Station().line.OnSend([this](emulator::Bytes&) {
        fs::create_directories(site_.File("pos/result.txt/in-the-way"));
    });
    const json told = Object(Run({"--json", Write(oneSale)}));
    EXPECT_EQ(told["verdict"], "printed");
    EXPECT_EQ(told["exit_code"], 0);
    EXPECT_TRUE(Holds(told["reason"], {"cannot write the result file"}));
    for (const auto& entry : fs::directory_iterator(site_.File("pos")))
        EXPECT_FALSE(entry.path().filename().string().starts_with(".voltis-result")) << entry;
}

TEST_F(VoltisctlRunResult, SaysThatTheOutcomeIsUnknown) {
    site_.Configure(resultFile + "CmdTimeout_Default=100\n");
    std::atomic<bool> silent = false;
    site_.Station().line.OnSend([&](emulator::Bytes& reply) {
        silent = silent || site_.Register().ReceiptInProgress();
        if (silent) reply.clear();
    });
    const int exitCode = site_.Served([&] {
        Tool tool(Line({Write(oneSale)}));
        EXPECT_TRUE(Eventually([&] { return silent.load(); }));
        tool.Signal(SIGINT);
        return tool.Wait();
    });
    EXPECT_EQ(exitCode, 101);
    EXPECT_EQ(Result(),
              "[VOLTIS]\nResultCode=101\nMessage=Outcome unknown: at least 0 and at most 2 of 2 "
              "commands were done, the first that is not certain is in line 1\nErrorCode=160");
}

// --- texts in UTF-8 ------------------------------------------------------------------------------

TEST_F(VoltisctlRunEncoding, IsMadeTheRegistersOwn) {
    const std::string sale = "SALE: DEPTNR=1; NAME=\"K\xC4\x81posti\"; AMOUNT=1.00\nTENDER\n";
    EXPECT_EQ(Run({"--from", "utf-8", Write(sale)}).exitCode, 0);
    EXPECT_TRUE(std::ranges::any_of(site_.Register().Paper().Lines(), [](const std::string& line) {
        return line.starts_with("K\xC4\x81posti");
    }));
}

TEST_F(VoltisctlRunEncoding, ThatCannotHoldACharacterIsRefusedWithItsPlace) {
    const Answer answer =
        Run({"--from", "UTF-8", Write("COPY\n  SALE: DEPTNR=1; NAME=\"\xE2\x86\x92 5\"\n")});
    EXPECT_EQ(answer.exitCode, 1);
    EXPECT_TRUE(Holds(answer.text, {"line 2, column 25: ", "\n                        ^\n"}));
    EXPECT_TRUE(Holds(Result(), {"ResultCode=1\n", "ErrorCode=1"}));
    EXPECT_TRUE(NothingSent());
}

// --- the same ID again ---------------------------------------------------------------------------

TEST_F(VoltisctlRunJob, IsAnsweredFromTheJournal) {
    const std::string file = Write(oneSale);
    Run({"--job", "7", file});
    fs::remove(site_.File("pos/result.txt"));
    const Answer again = Unserved({"--job", "7", file});
    EXPECT_EQ(again.exitCode, 0);
    EXPECT_EQ(again.text,
              "printed: 2 of 2 commands, receipt 1 (known from before, nothing was sent)\n");
    EXPECT_EQ(Result(), goodResult);
    EXPECT_EQ(Object(Unserved({"--job", "7", "--json", file}))["replayed"], true);
}

TEST_F(VoltisctlRunJob, IsRefusedWithOtherContent) {
    Run({"--job", "7", Write(oneSale)});
    const Answer other = Unserved({"--job", "7", Write("SALE: DEPTNR=1; AMOUNT=9\nTENDER\n")});
    EXPECT_EQ(other.exitCode, 2);
    EXPECT_TRUE(Holds(other.text, {"Job '7' has another content"}));
    EXPECT_TRUE(Holds(Result(), {"ResultCode=2\n", "another content"}));
}

TEST_F(VoltisctlRunJob, ThatWasSentIsNeverToldAsNotPrinted) {
    const std::string file = Write(oneSale);
    Run({"--job", "7", file});
    fs::remove(file);
    EXPECT_EQ(Unserved({"--job", "7", file}).exitCode, 101);
    EXPECT_EQ(Unserved({"--job", "8", file}).exitCode, 1);
    Write(oneSale);
    fs::remove(site_.File("pos/result.txt"));
    fs::create_directories(site_.File("pos/result.txt/in-the-way"));
    const json told = Object(Unserved({"--job", "7", "--json", file}));
    EXPECT_EQ(told["verdict"], "unknown");
    EXPECT_EQ(told["exit_code"], 101);
    EXPECT_TRUE(Holds(told["reason"], {"the old result file cannot be removed"}));
    EXPECT_EQ(Unserved({"--job", "8", file}).exitCode, 2);
    EXPECT_EQ(Unserved({"--job", "7", "--register", "none", file}).exitCode, 101);
}

TEST_F(VoltisctlRunJob, IsUnknownWhenItsJournalCannotBeRead) {
    site_.Folder().Write("journal.db", std::string(4096, 'x'));
    const std::string file = Write(oneSale);
    const Answer answer = Run({"--job", "7", file});
    EXPECT_EQ(answer.exitCode, 101);
    EXPECT_TRUE(
        Holds(answer.text, {"unknown: nobody can tell what was done\n", "cannot use the journal"}));
    EXPECT_TRUE(Holds(Result(), {"Message=Outcome unknown: cannot use the journal"}));
    EXPECT_EQ(Run({file}).exitCode, 2);  // no earlier call can have sent it
    EXPECT_TRUE(NothingSent());
}

// --- waiting for the register --------------------------------------------------------------------

TEST_F(VoltisctlRunWait, IsNotTheDefault) {
    const runner::DeviceLock lock(LockFile());
    const Answer answer = Run({Write(oneSale)});
    EXPECT_EQ(answer.exitCode, 2);
    EXPECT_TRUE(Holds(answer.text, {"in use by process " + std::to_string(getpid())}));
    EXPECT_TRUE(NothingSent());
}

TEST_F(VoltisctlRunWait, EndsWhenTheRegisterIsFree) {
    std::optional<runner::DeviceLock> lock(LockFile());
    const std::string file = Write(oneSale);
    const int exitCode = site_.Served([&] {
        Tool tool(Line({"--wait", "20", "--job", "7", file}));
        EXPECT_FALSE(tool.EndsWithin(300));
        lock.reset();
        return tool.Wait();
    });
    EXPECT_EQ(exitCode, 0);
}

TEST_F(VoltisctlRunWait, EndsByAnInterruptWithNothingSent) {
    const runner::DeviceLock lock(LockFile());
    Tool tool(Line({"--wait", "60", Write(oneSale)}));
    EXPECT_TRUE(Eventually([&] { return fs::exists(journal_); }));
    EXPECT_FALSE(tool.EndsWithin(200));
    tool.Signal(SIGINT);
    EXPECT_TRUE(tool.EndsWithin(5000));
    EXPECT_EQ(tool.Wait(), 2);
    EXPECT_TRUE(Holds(tool.Said(), {"not-printed"}));
}

// --- a real line's conditions --------------------------------------------------------------------

TEST_F(VoltisctlRunDevice, ThatIsMissingIsNamed) {
    site_.Folder().Write("voltis.ini", "[VOLTIS]\nDevice=/dev/serial/by-id/usb-none\n");
    const Answer answer = Unserved({Write(oneSale)});
    EXPECT_EQ(answer.exitCode, 2);
    EXPECT_TRUE(
        Holds(answer.text, {"not-printed", "'/dev/serial/by-id/usb-none'", "cannot be found"}));
}

TEST_F(VoltisctlRunDevice, ThatMayNotBeOpenedIsNamedWithTheRemedy) {
    ASSERT_EQ(chmod(site_.Device().c_str(), 0060), 0);
    // Else root may open what nobody may.
    const Words without = {"setpriv", "--bounding-set=-dac_override,-dac_read_search"};
    const Answer answer = RunTool(Line({Write(oneSale)}), geteuid() == 0 ? without : Words{});
    chmod(site_.Device().c_str(), 0620);
    EXPECT_EQ(answer.exitCode, 2);
    EXPECT_TRUE(Holds(answer.text, {"not-printed", "cannot be opened - Permission denied",
                                    "is not in group", "usermod -a -G"}));
}

// A register whose adapter can be pulled out and put back, under the same name.
class VoltisctlRunAdapter : public testing::Test {
  protected:
    VoltisctlRunAdapter() {
        for (const char* name : {"locks", "logs"}) fs::create_directory(site_.File(name));
        site_.Write("voltis.ini", "[VOLTIS]\nDevice=" + link_ + "\n" + resultFile);
        PutIn();
    }

    void PutIn() {
        emulator::PtyOptions options;
        options.link = link_;
        server_ = std::make_unique<emulator::PtyServer>(line_, options);
    }

    // The run of job 7; the adapter is pulled out once the condition holds.
    Answer RunUntil(const std::function<bool()>& due) {
        std::atomic<bool> pulled = false;
        line_.OnSend([&](emulator::Bytes& reply) {
            if (!due()) return;
            reply.clear();
            pulled = true;
        });
        auto serving = std::make_unique<workbench::Serving>(*server_);
        Tool tool(Line("7"));
        EXPECT_TRUE(Eventually([&] { return pulled.load(); }));
        serving.reset();
        server_.reset();
        line_.OnSend({});
        const int exitCode = tool.Wait();
        return {exitCode, tool.Said()};
    }
    Answer Run(const std::string& id) {
        workbench::Serving serving(*server_);
        const Answer answer = RunTool(Line(id));
        serving.Finish();
        return answer;
    }
    Words Line(const std::string& id) const {
        return {"run",
                "--json",
                "--config",
                site_.Path(),
                "--locks",
                site_.File("locks"),
                "--logs",
                site_.File("logs"),
                "--job",
                id,
                "--journal",
                site_.File("journal.db"),
                site_.Write("sale.txt", oneSale)};
    }

    TempDir site_;
    const std::string link_ = site_.File("usb-adapter");
    emulator::Register device_{workbench::RegisterOf("ocelot")};
    emulator::Line line_{emulator::WireFamily::Ocelot, device_};
    std::unique_ptr<emulator::PtyServer> server_;
};

TEST_F(VoltisctlRunAdapter, PulledOutBeforeAnythingWasSentIsNotPrinted) {
    const Answer answer = RunUntil([] { return true; });
    EXPECT_EQ(answer.exitCode, 2);
    EXPECT_EQ(ToldJson("run", answer.text)["verdict"], "not-printed") << answer.text;
    EXPECT_TRUE(Holds(ReadWholeFile(site_.File("result.txt")), {"ResultCode=2\n"}));
    PutIn();
    EXPECT_EQ(ToldJson("run", Run("7").text)["verdict"], "printed");
}

TEST_F(VoltisctlRunAdapter, PulledOutBeforeAnAnswerLeavesTheOutcomeUnknown) {
    const Answer answer = RunUntil([this] { return device_.ReceiptInProgress(); });
    const json told = ToldJson("run", answer.text);
    EXPECT_EQ(answer.exitCode, 101);
    EXPECT_EQ(told["verdict"], "unknown") << told;
    EXPECT_EQ(told["commands"]["at_least"], 0);
    EXPECT_EQ(told["commands"]["at_most"], 1);
    EXPECT_EQ(told["commands"]["next_line"], 1);
    EXPECT_TRUE(told["receipt"]["after"].is_null());
    EXPECT_TRUE(Holds(ReadWholeFile(site_.File("result.txt")), {"ResultCode=101\n"}));
}

TEST_F(VoltisctlRunAdapter, PutBackServesTheNextJob) {
    RunUntil([this] { return device_.ReceiptInProgress(); });
    PutIn();
    EXPECT_EQ(ToldJson("run", Run("7").text)["replayed"], true);
    EXPECT_EQ(device_.Journal().back().command, CMD_DEPT_SALE);  // nothing was sent since
    const json next = ToldJson("run", Run("8").text);
    EXPECT_EQ(next["verdict"], "not-printed") << next;  // the receipt is still open
    EXPECT_EQ(next["driver"]["error_code"], 105);
    device_.FinishReceipt();
    EXPECT_EQ(ToldJson("run", Run("8").text)["verdict"], "printed");
}
