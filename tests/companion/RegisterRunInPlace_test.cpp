// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Runs with Sandbox=no: the driver at its own fixed paths, which here are a sandbox's.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <string>

#include "companion/runner/LogBlock.h"
#include "companion/runner/RegisterRun.h"
#include "companion/workbench/ResultFile.h"
#include "tests/companion/Till.h"
#include "tests/support/TempDir.h"

using runner::LogBlock;
using runner::RegisterRun;
using runner::RunError;
using runner::RunRequest;
using runner::RunResult;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using workbench::ResultValue;

namespace {

const std::string debugLog = "/var/log/voltis/dbgerror.log";

// The machine's own configuration and serial port.
class MachinesTill : public Till {
  public:
    MachinesTill() : Till("ocelot", "/dev/ttyS0") { ConfigureMachine("DbgErrorLog=2\n"); }
    ~MachinesTill() {
        for (const char* file : {"/etc/voltis/voltis.ini", "/var/log/voltis/voltis.log"})
            std::filesystem::remove(file);
        std::filesystem::remove(debugLog);
    }

    void ConfigureMachine(const std::string& logs) {
        std::ofstream("/etc/voltis/voltis.ini")
            << "[VOLTIS]\nComNumber=1\nResultFileName=answer.txt\nSandbox=no\n"
            << logs;
        profile = runner::LoadProfile("/etc/voltis");
    }
};

}  // namespace

TEST(RegisterRunInPlace, TellsTheSameAsARunInAPrivateRoot) {
    MachinesTill till;
    const RunResult result = till.Run(till.Request("/pos/sale.txt"));
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.resultText.value_or(""),
              "[VOLTIS]\nResultCode=0\nMessage=OK\nLastReceiptNo=1");
    EXPECT_EQ(till.Device().ReceiptNumber(), 1);
    EXPECT_THAT(result.debugLog, AllOf(StartsWith("\n"), HasSubstr("\" /pos/sale.txt\n"),
                                       HasSubstr("PC->ECR"), HasSubstr("I/O statistics")));
    EXPECT_EQ(result.standardLog, "");
}

TEST(RegisterRunInPlace, NamesTheCommandFileAsItsCallerDoes) {
    MachinesTill till;
    const RunResult result = till.Run(till.Request("pos\\sale.txt", "SALE DEPTNR=1\n"));
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(ResultValue(*result.resultText, "Message"),
              "Missing ':' after fiscal command (file : 'pos/sale.txt' line : 1)");
    EXPECT_THAT(result.debugLog, HasSubstr("Input file (pos/sale.txt)"));
}

TEST(RegisterRunInPlace, CutsItsOwnLinesOutOfTheSitesLogs) {
    MachinesTill till;
    till.ConfigureMachine("DbgErrorLog=3\nStandardLog=1\n");
    std::ofstream(debugLog) << "\nold started. Command line : \"voltis\" /pos/sale.txt\nold\n";
    till.Run(till.Request("/pos/first.txt"));
    RunRequest second = till.Request("/pos/second.txt");
    second.folder += "2";
    const RunResult result = till.Run(second);
    EXPECT_THAT(result.debugLog, AllOf(HasSubstr("/pos/second.txt"), Not(HasSubstr("old")),
                                       Not(HasSubstr("run/result/first.txt"))));
    EXPECT_THAT(result.standardLog, AllOf(StartsWith("\n"), HasSubstr("/pos/second.txt"),
                                          HasSubstr("Debug information saved")));
    const std::string first = runner::DebugLogOf(till.File("run"));
    EXPECT_THAT(first, AllOf(HasSubstr("first.txt"), Not(HasSubstr("second.txt"))));
}

TEST(RegisterRunInPlace, LeavesTheConversationOfADriverThatWasKilled) {
    const MachinesTill till;  // nobody serves the line
    {
        RegisterRun run(till.Request("/pos/sale.txt"));
        for (int i = 0; i < 5000 && run.DebugLog().find("PC->ECR") == std::string::npos; ++i)
            usleep(1000);
    }
    EXPECT_THAT(runner::DebugLogOf(till.File("run")), HasSubstr("PC->ECR"));
}

TEST(RegisterRunInPlace, NeedsADebugLogThatIsAlwaysKept) {
    MachinesTill till;
    for (const char* logs : {"", "DbgErrorLog=0\n", "DbgErrorLog=1\n"}) {
        till.ConfigureMachine(logs);
        try {
            const RegisterRun run(till.Request("/pos/sale.txt"));
            ADD_FAILURE() << "it runs with " << logs;
        } catch (const RunError& failure) {
            EXPECT_THAT(failure.what(), StartsWith("'/etc/voltis/voltis.ini': Sandbox=no needs "
                                                   "DbgErrorLog=2"));
        }
    }
}

TEST(LogBlock, EndsBeforeTheNextRun) {
    const std::string a = "\nT  V started. Command line : \"v\" /a\nx\ny\n";
    const std::string b = "\nT  V started. Command line : \"v\" /b\n\nz\n";
    EXPECT_EQ(LogBlock(a + b, "/a"), a);
    EXPECT_EQ(LogBlock(a + b, "/b"), b);
    EXPECT_EQ(LogBlock("torn line\n" + b + a, "/a"), a);
    EXPECT_EQ(LogBlock(a + b, "/c"), "");
    EXPECT_EQ(LogBlock(a + "\nT  V started. Command line : \"v\" /to", "/a"), a + "");
    EXPECT_EQ(LogBlock("", "/a"), "");
}
