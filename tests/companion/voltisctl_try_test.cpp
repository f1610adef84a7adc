// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// `voltisctl try` from outside.
#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <filesystem>
#include <ostream>
#include <string>
#include <system_error>

#include "tests/companion/Tool.h"
#include "tests/support/TempDir.h"

namespace fs = std::filesystem;

namespace {

// Somewhere in the folder is a file whose name ends so.
bool HasFile(const std::string& folder, const std::string& end) {
    std::error_code gone;  // folders come and go
    for (fs::recursive_directory_iterator at(folder, gone), none; at != none; at.increment(gone))
        if (at->path().filename().string().ends_with(end)) return true;
    return false;
}

}  // namespace

TEST(voltisctlTry, ShowsTapeResultFileAndExitCode) {
    const Answer answer = Try({examples + "/first-receipt.txt"});
    EXPECT_EQ(answer.exitCode, 0);
    EXPECT_EQ(answer.text.find("=== " + examples + "/first-receipt.txt\n"), 0U) << answer.text;
    EXPECT_TRUE(Holds(Section(answer.text, "tape"),
                      {"Apple tart", "CHANGE                         11.83\n"}));
    EXPECT_EQ(Section(answer.text, "result file"),
              "[VOLTIS]\nResultCode=0\nMessage=OK\nLastReceiptNo=1\n");
    EXPECT_TRUE(Holds(answer.text, {"--- exit code 0"}));
}

TEST(voltisctlTry, LeavesTheTapeEmptyForAMistakeInTheLastCommand) {
    const Answer answer = Try({examples + "/syntax-error.txt"});
    EXPECT_EQ(answer.exitCode, 1);
    EXPECT_EQ(Section(answer.text, "tape"), "(nothing was printed)\n");
    EXPECT_EQ(Section(answer.text, "result file"),
              "[VOLTIS]\nResultCode=1\nMessage=Missing '=' after parameter AMOUNT (file : "
              "'/try/syntax-error.txt' line : 7)\nErrorCode=1\n");
}

TEST(voltisctlTry, ShowsHowFarARefusedFileCame) {
    const Answer answer = Try({examples + "/refused-command.txt"});
    EXPECT_EQ(answer.exitCode, 101);
    EXPECT_TRUE(Holds(Section(answer.text, "tape"), {"Apple tart"}));
    EXPECT_FALSE(Holds(Section(answer.text, "tape"), {"CHANGE"}));
    EXPECT_TRUE(Holds(Section(answer.text, "result file"), {"ResultCode=101\n"}));
}

TEST(voltisctlTry, RunsAllFilesAgainstOneRegister) {
    const std::string file = examples + "/first-receipt.txt";
    const Answer answer = Try({file, file, file});
    EXPECT_EQ(answer.exitCode, 0);
    EXPECT_TRUE(
        Holds(answer.text, {"LastReceiptNo=1\n", "LastReceiptNo=2\n", "LastReceiptNo=3\n"}));
}

TEST(voltisctlTry, EndsWithTheExitCodeOfTheLastRunThatFailed) {
    const std::string good = examples + "/first-receipt.txt";
    const std::string bad = examples + "/syntax-error.txt";
    EXPECT_EQ(Try({bad, good}).exitCode, 1);
    EXPECT_EQ(Try({bad, examples + "/refused-command.txt"}).exitCode, 101);
}

TEST(voltisctlTry, TakesFileNamesWithBlanksBackslashesAndForeignLetters) {
    const TempDir shop;
    for (const char* name :
         {"a sale.txt", "kvīts Ж.txt", "a\\sale.txt", "-S", "it's \"one\".txt"}) {
        const std::string file = shop.Write(name, "SALE: DEPTNR=1; AMOUNT=1.00\nTENDER");
        EXPECT_EQ(Try({file}).exitCode, 0) << name;
    }
}

TEST(voltisctlTry, LeavesTheFolderOfTheFileAsItWas) {
    const TempDir shop;
    const std::string file = shop.Write("sale.txt", "SALE: DEPTNR=1; AMOUNT=1.00\nTENDER");
    EXPECT_EQ(Try({file}).exitCode, 0);
    EXPECT_EQ(EntriesIn(shop.Path()), 1);
}

TEST(voltisctlTry, PassesSettingsToTheDriver) {
    const std::string file = examples + "/first-receipt.txt";
    const Answer old = Try({"--ini", "OldResultFileFormat=1", "resultfilename=o.txt", file});
    EXPECT_EQ(Section(old.text, "result file"), "0\nOK\nReceiptNo: 1\n");
    const Answer none = Try({file, "--ini", "ResultFileName="});
    EXPECT_EQ(Section(none.text, "result file"), "(none)\n");
}

TEST(voltisctlTry, PrintsTheDebugLogOfEachRun) {
    const std::string file = examples + "/first-receipt.txt";
    const std::string text = Try({"--log", file, file}).text;
    const std::string second = Section(text, "debug log", text.rfind("=== "));
    EXPECT_TRUE(Holds(second, {"PC->ECR"}));
    EXPECT_EQ(second.find("started. Command line"), second.rfind("started. Command line"));
    EXPECT_FALSE(Holds(Try({file}).text, {"PC->ECR"}));
}

TEST(voltisctlTry, DrawsTheTape) {
    const TempDir folder;
    const std::string picture = folder.File("tape.svg");
    EXPECT_EQ(Try({examples + "/first-receipt.txt", "--svg", picture}).exitCode, 0);
    EXPECT_TRUE(Holds(ReadWholeFile(picture), {"<svg", "Apple"}));
}

TEST(voltisctlTry, TellsThatAPictureCannotBeWritten) {
    const Answer answer = Try({examples + "/syntax-error.txt", "--svg", "/no/such/tape.svg"});
    EXPECT_EQ(answer.exitCode, 2);
    EXPECT_TRUE(Holds(answer.text, {"cannot write '/no/such/tape.svg'"}));
}

TEST(voltisctlTry, EndsARunThatTakesTooLong) {
    const TempDir folder;
    const std::string driver = Script(folder, "slow", "echo waiting; exec sleep 60");
    const Answer answer =
        Try({examples + "/first-receipt.txt", "--driver", driver, "--timeout", "2"});
    EXPECT_EQ(answer.exitCode, 124);
    EXPECT_EQ(Section(answer.text, "the driver said"), "waiting\n");
    EXPECT_TRUE(Holds(answer.text, {"--- exit code 124: took too long"}));
}

TEST(voltisctlTry, AnInterruptEndsTheDriverAndRemovesThePrivateFolder) {
    const TempDir temporary;
    const TempDir folder;
    const std::string driver = Script(folder, "slow", "touch begun; exec sleep 60");
    Tool tool({"try", examples + "/first-receipt.txt", "--driver", driver},
              {"TMPDIR=" + temporary.Path()});
    ASSERT_TRUE(Eventually([&] { return HasFile(temporary.Path(), "begun"); }));
    tool.Signal(SIGINT);
    EXPECT_EQ(tool.Wait(), 128 + SIGINT);
    EXPECT_TRUE(fs::is_empty(temporary.Path()));
}

TEST(voltisctlTry, ThroughRunEndsADriverThatHangsInTheSaleAndInTheStatus) {
    const TempDir folder;
    const std::string driver = Script(folder, "slow", "exec sleep 60");
    const auto start = std::chrono::steady_clock::now();
    const Answer answer =
        Try({"--run", examples + "/first-receipt.txt", "--driver", driver, "--timeout", "0.2"});
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
    EXPECT_EQ(answer.exitCode, 101);
    EXPECT_TRUE(Holds(Section(answer.text, "verdict"), {"unknown: "}));
}

TEST(voltisctlTry, ThroughRunAnInterruptEndsTheDriverAndTellsTheVerdict) {
    const TempDir temporary;
    const TempDir folder;
    const std::string driver = Script(
        folder, "slow", "grep -q GET_STATUS \"$1\" && exit 2; touch \"$1.begun\"; exec sleep 60");
    const std::string file = examples + "/first-receipt.txt";
    Tool tool({"try", "--run", file, file, "--driver", driver}, {"TMPDIR=" + temporary.Path()});
    ASSERT_TRUE(Eventually([&] { return HasFile(temporary.Path(), ".begun"); }));
    tool.Signal(SIGINT);
    EXPECT_EQ(tool.Wait(), 101);
    EXPECT_TRUE(Holds(Section(tool.Said(), "verdict"), {"unknown: "}));
    EXPECT_EQ(tool.Said().find("=== "), tool.Said().rfind("=== "));  // the second file is left out
    EXPECT_TRUE(fs::is_empty(temporary.Path()));
}

TEST(voltisctlTry, PacesTheLine) {
    const TempDir folder;
    const std::string timed = Script(folder, "timed",
                                     "start=$(date +%s%N)\n" + Conversation(enteringLate) +
                                         "echo took $((($(date +%s%N) - start) / 1000000))\n");
    const Answer answer = RunTool(
        {"try", "--line-speed", "1200", "--driver", timed, examples + "/first-receipt.txt"});
    const std::string said = Section(answer.text, "the driver said");
    ASSERT_TRUE(Holds(said, {"took "}));
    EXPECT_GE(std::stoi(said.substr(said.find("took ") + 5)), 165);  // 18 bytes of 11 bits
}

// --- a register that is hard to please, and one that is not -----------------------------------

constexpr char blankName[] = "SALE: DEPTNR=1; NAME=\" Tart\"; AMOUNT=1.00\nTENDER\n";

TEST(voltisctlTry, ShowsWhatAStrictRegisterComplainsAbout) {
    const TempDir shop;
    const Answer answer = RunTool({"try", "--strict", shop.Write("sale.txt", blankName)});
    EXPECT_EQ(answer.exitCode, 101);
    EXPECT_EQ(Section(answer.text, "the register complains"), "a name begins with a blank\n");
}

TEST(voltisctlTry, HasALenientRegisterUnlessToldOtherwise) {
    const TempDir shop;
    const Answer answer = RunTool({"try", shop.Write("sale.txt", blankName)});
    EXPECT_EQ(answer.exitCode, 0);
    EXPECT_FALSE(Holds(answer.text, {complains}));
}

struct Desk {
    const char* model;
    const char* protocol;
    const char* frames;

    friend void PrintTo(const Desk& desk, std::ostream* out) {
        *out << desk.model << desk.protocol << " in " << desk.frames << " frames";
    }
};

TEST(voltisctlTry, SpeaksTheModelsOwnFramesUnlessToldOtherwise) {
    const std::string file = examples + "/first-receipt.txt";
    const Words letters = {" ms : 02 d1 "};
    const Words binary = {" ms : d9 01 d1 "};
    EXPECT_TRUE(Holds(Try({file, "--log", "--model", "margay"}).text, letters));
    EXPECT_TRUE(Holds(Try({file, "--log", "--model", "puma"}).text, binary));
    EXPECT_TRUE(
        Holds(Try({file, "--log", "--model", "margay", "--frames", "ocelot"}).text, binary));
    EXPECT_TRUE(Holds(Try({file, "--log", "--model", "puma", "--frames", "margay"}).text, letters));
}

TEST(voltisctlTry, ConfiguresTheDriverForTheFramesUnlessToldOtherwise) {
    const Words margay = {examples + "/first-receipt.txt", "--model", "margay"};
    EXPECT_EQ(Try(margay).exitCode, 0);
    const Answer wrong = Try(margay + Words{"--ini", "ProtocolFormatting=0"});
    EXPECT_EQ(wrong.exitCode, 2);
    EXPECT_TRUE(Holds(wrong.text, {"ECR is missing"}));
}

TEST(voltisctlTry, GivesTheRegisterTheHabitsThatAreNamed) {
    const TempDir folder;
    const Words stray = {examples + "/first-receipt.txt", "--driver",
                         Script(folder, "stray", Conversation(strayEof))};
    const Words habits = {"--habit", "number-only", "--habit", "answers-stray-eof"};
    EXPECT_EQ(Section(Try(stray + habits).text, "the driver said"), " d9 06 df 42\n");
    EXPECT_FALSE(Holds(Try(stray).text, {"the driver said"}));
}

class voltisctlTryOn : public testing::TestWithParam<Desk> {};

TEST_P(voltisctlTryOn, SellsTheFirstReceipt) {
    const Desk& desk = GetParam();
    const Answer answer = Try({examples + "/first-receipt.txt", "--model", desk.model, "--protocol",
                               desk.protocol, "--frames", desk.frames});
    EXPECT_EQ(answer.exitCode, 0) << answer.text;
    EXPECT_TRUE(Holds(Section(answer.text, "tape"), {"CHANGE"}));
}

INSTANTIATE_TEST_SUITE_P(
    EveryModel, voltisctlTryOn,
    testing::Values(Desk{"ocelot", "1", "ocelot"}, Desk{"ocelot", "2", "margay"},
                    Desk{"serval", "1", "margay"}, Desk{"serval", "2", "ocelot"},
                    Desk{"lynx", "1", "ocelot"}, Desk{"lynx", "2", "margay"},
                    Desk{"puma", "1", "margay"}, Desk{"puma", "2", "ocelot"},
                    Desk{"margay", "2", "ocelot"}, Desk{"margay", "2", "margay"}),
    [](const auto& row) {
        return std::string(row.param.model) + row.param.protocol + row.param.frames;
    });

// --- without a sandbox -----------------------------------------------------------------------

TEST(voltisctlTry, TellsHowToGetAMissingBubblewrap) {
    const Answer answer =
        Try({examples + "/first-receipt.txt", "--driver", "/bin/true"}, {"PATH=/no/such/folder"});
    EXPECT_EQ(answer.exitCode, 2);
    EXPECT_TRUE(Holds(answer.text, {"bwrap: not found", "apt install bubblewrap"}));
}

TEST(voltisctlTry, TellsHowToAllowForbiddenNamespaces) {
    const TempDir folder;
    Script(folder, "bwrap", "echo 'bwrap: No permissions to create new namespace' >&2; exit 1");
    const Answer answer =
        Try({examples + "/first-receipt.txt", "--driver", "/bin/true"}, {"PATH=" + folder.Path()});
    EXPECT_EQ(answer.exitCode, 2);
    EXPECT_TRUE(Holds(answer.text, {"kernel.unprivileged_userns_clone=1"}));
}

// --- through run, and with faults --------------------------------------------------------------

TEST(voltisctlTry, GoesThroughRunAndShowsItsVerdict) {
    const std::string good = examples + "/first-receipt.txt";
    const Answer answer = Try({"--run", good, examples + "/refused-command.txt"});
    EXPECT_EQ(answer.exitCode, 101);
    EXPECT_EQ(Section(answer.text, "verdict"), "printed: 8 of 8 commands, receipt 1\n");
    EXPECT_EQ(Section(answer.text, "result file"),
              "[VOLTIS]\nResultCode=0\nMessage=OK\nLastReceiptNo=1\n");
    const std::size_t second = answer.text.rfind("=== ");
    EXPECT_EQ(Section(answer.text, "verdict", second),
              "part: 1 of 3 commands, go on at line 8, receipt 2 is open\n"
              "Fiscal command execution error (line: 8)\n");
    EXPECT_TRUE(Holds(answer.text, {"--- exit code 0: printed, once\n",
                                    "--- exit code 101: part of it was printed"}));
}

TEST(voltisctlTry, LetsHappenWhatAFileOrders) {
    const TempDir folder;
    const std::string faults = folder.Write("faults.txt", "at eof 2 nak\nat data 9 refuse 1\n");
    const std::string file = examples + "/first-receipt.txt";
    const Answer alone = Try({"--faults", faults, file});
    EXPECT_EQ(alone.exitCode, 101);
    EXPECT_EQ(Section(alone.text, "faults"), "at eof 2 nak\nat data 9 refuse 1\n");
    const Answer told = Try({"--run", "--faults", faults, file});
    EXPECT_TRUE(Holds(Section(told.text, "verdict"), {"part: ", "of 8 commands"}));
}

TEST(voltisctlTry, TellsWhichFaultsNeverHappened) {
    const TempDir folder;
    const std::string faults =
        folder.Write("faults.txt", "at eof 2 nak\nat data 99 refuse\nat data each late 1ms\n");
    const std::string file = examples + "/first-receipt.txt";
    const Answer answer = Try({"--faults", faults, file});
    EXPECT_EQ(answer.exitCode, 1);
    EXPECT_TRUE(answer.text.ends_with("\n=== faults that never happened\nat data 99 refuse\n"))
        << answer.text;
    EXPECT_EQ(Try({"--faults", faults, examples + "/refused-command.txt"}).exitCode, 101);
}

TEST(voltisctlTry, TellsRunOfTheHabitsThatAreNamed) {
    const TempDir folder;
    // The acknowledgement of the repeated frame could be that of a command that never came.
    const Words spoilt = {"--run", "--faults", folder.Write("faults.txt", "at eof 2 nak"),
                          examples + "/first-receipt.txt"};
    EXPECT_TRUE(Holds(Section(Try(spoilt).text, "verdict"), {"printed: 8 of 8 commands"}));
    const Answer stray = Try(spoilt + Words{"--habit", "answers-stray-eof"});
    EXPECT_EQ(stray.exitCode, 101);
    EXPECT_TRUE(Holds(Section(stray.text, "verdict"), {"unknown: at least 2, at most 8"}));
}

TEST(voltisctlTry, SellsWhatTheRegisterIsProgrammedWith) {
    const TempDir folder;
    const std::string sale = folder.Write("sale.txt", "SALE: DEPTNR=2; AMOUNT=1.00\nTENDER\n");
    const Answer answer = Try({"--program", examples + "/ci/shop.json", sale});
    EXPECT_EQ(answer.exitCode, 0);
    EXPECT_TRUE(Holds(Section(answer.text, "tape"), {"CORNER SHOP", "DAIRY", "CASHIER 01 ANNA"}));
}
