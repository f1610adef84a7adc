// The shipped driver from outside: what callers of the program, readers of its result file and
// readers of its logs see.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <optional>
#include <regex>
#include <string>
#include <vector>

#include "tests/support/Shop.h"

namespace fs = std::filesystem;
using emulator::Keylock;
using emulator::WireFamily;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::Optional;
using testing::StartsWith;
using namespace std::string_literals;
using Words = std::vector<std::string>;

namespace {

const std::string sale =
    "SALE: DEPTNR=1; NAME=\"Apple tart\"; PRICE=2.50; QNTY=2\n"
    "TENDER\n";
const std::string openReceipt =
    "SALE: DEPTNR=1; PRICE=2.50; QNTY=2\n"
    "CONTINUE\n";
const std::string badSyntax = "SALE DEPTNR=1\n";
const std::string unknownArticle =
    "SALE: DEPTNR=1; NAME=Tart; PRICE=2.50; QNTY=1\n"
    "SALE: PLUNR=999\n"
    "TENDER\n";

const std::string soldResult = "[VOLTIS]\nResultCode=0\nMessage=OK\nLastReceiptNo=1";
const std::string wrongCommandLine = "Wrong command line format (use /? for help)";
const std::string marker = "voltis.started.tmp";

const std::string timeStamp = R"(\d\d\.\d\d\.\d{4} \d\d:\d\d:\d\d\.\d{3}  )";
// A path as it stands for itself in a pattern.
std::string Literally(const std::string& text) {
    return std::regex_replace(text, std::regex(R"([.+*?^$(){}|\[\]\\])"), R"(\$&)");
}
// What every run puts into both logs first.
std::string StartPattern(const std::string& arguments) {
    return "\n" + timeStamp + R"(VOLTIS v2\.5\.0 started\. Command line : ")" +
           Literally(VOLTIS_PATH) + "\"" + Literally(arguments) + "\n";
}
bool Matches(const std::string& text, const std::string& pattern) {
    return std::regex_match(text, std::regex(pattern));
}

std::string FailedResult(int resultCode, const std::string& message, int errorCode) {
    return "[VOLTIS]\nResultCode=" + std::to_string(resultCode) + "\nMessage=" + message +
           "\nErrorCode=" + std::to_string(errorCode);
}

// The register refuses the next command outside any run, so that its status carries the code.
void LeaveResultCode(Shop& shop, std::uint8_t code) {
    shop.Device().RefuseNext(code);
    shop.Device().Execute(emulator::Total, 77, {});
}

MATCHER(NothingOfARun, "") {
    *result_listener << "exit code " << arg.exitCode << ", printed '" << arg.out << "'";
    return !arg.result && arg.journal.empty() && arg.tape.empty();
}

}  // namespace

// --- exit code -----------------------------------------------------------------------------------

TEST(ExitCode, IsZeroAfterASale) {
    Shop shop;
    const RunOutcome run = shop.Execute(sale);
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_THAT(run.tape, Contains(StartsWith("Apple tart")));
    EXPECT_EQ(shop.Device().Totals().sales, 500);
}

TEST(ExitCode, IsOneWhenTheCommandFileIsWrong) {
    Shop shop;
    EXPECT_EQ(shop.Execute(badSyntax).exitCode, 1);
}

TEST(ExitCode, IsOneWhenTheCheckPassFails) {
    Shop shop;
    EXPECT_EQ(shop.Execute("SALE: DEPTNR=0; AMOUNT=1\n").exitCode, 1);
}

TEST(ExitCode, IsTwoWhenTheConnectionFails) {
    Shop shop;
    EXPECT_EQ(shop.WithoutIni("ComNumber").Execute(sale).exitCode, 2);
}

TEST(ExitCode, Is101WhenAFiscalCommandFails) {
    Shop shop;
    EXPECT_EQ(shop.Execute(unknownArticle).exitCode, 101);
}

TEST(ExitCode, IsZeroForAFileWithoutCommands) {
    Shop shop;
    const RunOutcome run = shop.Execute("# nothing today\n\n");
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_THAT(run.result, Optional(std::string("[VOLTIS]\nResultCode=0\nMessage=OK\n"
                                                 "LastReceiptNo=0")));
}

// --- NUL bytes -----------------------------------------------------------------------------------

TEST(NulByte, InAParameterNameDoesNotCutTheResultShort) {
    Shop shop;
    const RunOutcome run = shop.Execute("SALE: DEP\0TNR 1\n"s);
    const std::string message = "Missing '=' after parameter DEP\0TNR (file : 'cmd.txt' line : 1)"s;
    EXPECT_THAT(run.result, Optional(FailedResult(1, message, 1)));
    EXPECT_THAT(run.stdLog, HasSubstr("  " + message + "\n"));
    EXPECT_THAT(run.dbgLog, HasSubstr("\tSALE: DEP\0TNR 1\n"s));
}

TEST(NulByte, InAParameterNameDoesNotCutTheOldResultShort) {
    Shop shop;
    const RunOutcome run = shop.Ini("OldResultFileFormat", "1").Execute("SALE: DEP\0TNR 1\n"s);
    EXPECT_THAT(run.result, Optional("1\nMissing '=' after parameter DEP\0TNR (file : 'cmd.txt' "s +
                                     "line : 1)"));
}

TEST(NulByte, InAValueDoesNotCutTheResultShort) {
    Shop shop;
    const RunOutcome run = shop.Execute(
        "SALE: DEPTNR=\0"
        "1 2\n"s);
    EXPECT_THAT(run.result, Optional(FailedResult(1,
                                                  "Missing ';' after 'DEPTNR = \0"
                                                  "1' (file : 'cmd.txt' line : 1)"s,
                                                  1)));
}

TEST(NulByte, InBarcodeDataDoesNotCutTheResultShort) {
    Shop shop;
    const RunOutcome run = shop.Execute(
        "BARCODE: TYPE=EAN; DATA=963\0"
        "8507\n"s);
    EXPECT_THAT(run.result, Optional(FailedResult(1,
                                                  "Bad barcode format: 963\0"
                                                  "8507 (line: 1)"s,
                                                  1)));
    EXPECT_TRUE(run.journal.empty());
}

// --- result file ---------------------------------------------------------------------------------

TEST(ResultFile, TellsTheReceiptNumber) {
    Shop shop;
    EXPECT_THAT(shop.Execute(sale).result, Optional(soldResult));
    EXPECT_THAT(shop.Execute(sale).result,
                Optional(std::string("[VOLTIS]\nResultCode=0\nMessage=OK\nLastReceiptNo=2")));
}

TEST(ResultFile, TellsTheReceiptNumberInTheOldFormat) {
    Shop shop;
    shop.Ini("OldResultFileFormat", "1");
    EXPECT_THAT(shop.Execute(sale).result, Optional(std::string("0\nOK\nReceiptNo: 1")));
}

TEST(ResultFile, TellsTheSubtotalOfAReceiptThatWasLeftOpen) {
    Shop shop;
    const RunOutcome run = shop.Execute(openReceipt);
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_THAT(run.result,
                Optional(std::string("[VOLTIS]\nResultCode=0\nMessage=Receipt not finished\n"
                                     "CurrentReceiptNo=1\nSubtotal=5.00")));
}

TEST(ResultFile, TellsOfAnOpenReceiptInTheOldFormat) {
    Shop shop;
    shop.Ini("OldResultFileFormat", "1");
    EXPECT_THAT(shop.Execute(openReceipt).result,
                Optional(std::string("0\nOK\nReceipt not finished")));
}

TEST(ResultFile, TellsAFailure) {
    Shop shop;
    LeaveResultCode(shop, emulator::result::ReceiptPaperEnd);
    EXPECT_THAT(shop.Execute(sale).result,
                Optional(std::string("[VOLTIS]\nResultCode=2\nMessage=Receipt paper end\n"
                                     "ErrorCode=201")));
}

TEST(ResultFile, TellsAFailureInTheOldFormat) {
    Shop shop;
    shop.Ini("OldResultFileFormat", "1");
    LeaveResultCode(shop, emulator::result::ReceiptPaperEnd);
    EXPECT_THAT(shop.Execute(sale).result, Optional(std::string("2\nReceipt paper end")));
}

TEST(ResultFile, HasTheNewFormatForEveryOtherNumber) {
    for (const char* number : {"2", "0", "-1", "11", "old"}) {
        Shop shop;
        shop.Ini("OldResultFileFormat", number);
        EXPECT_THAT(shop.Execute(sale).result, Optional(soldResult)) << number;
    }
}

TEST(ResultFile, ReplacesALongerOne) {
    Shop shop;
    const std::string path = shop.Folder().Write("orders.txt", sale);
    shop.Ini("ResultFileName", "answer.txt");
    shop.Folder().Write("answer.txt", std::string(500, 'x'));
    shop.Run({"orders.txt"});
    EXPECT_EQ(ReadWholeFile(shop.Folder().File("answer.txt")), soldResult);
}

TEST(ResultFile, IsNotWrittenWithoutAName) {
    Shop shop;
    const RunOutcome run = shop.WithoutIni("ResultFileName").Execute(sale);
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.result, std::nullopt);
    EXPECT_THAT(run.dbgLog, Not(HasSubstr("result file")));
    EXPECT_EQ(std::distance(fs::directory_iterator(shop.Folder().Path()), {}), 1);
}

TEST(ResultFile, ThatCannotBeWrittenIsOnlyLogged) {
    Shop shop;
    fs::create_directories(shop.Folder().File("result.txt/inside"));
    const RunOutcome run = shop.Execute(sale);
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.out, "");
    EXPECT_THAT(run.dbgLog, HasSubstr("  Unable to create result file 'result.txt'\n"));
    EXPECT_THAT(run.stdLog, Not(HasSubstr("Unable to create")));
    EXPECT_EQ(shop.Device().Totals().receipts, 1);
}

TEST(ResultFile, ThatCannotBeWrittenLeavesAFailureAsItIs) {
    Shop shop;
    fs::create_directories(shop.Folder().File("result.txt/inside"));
    EXPECT_EQ(shop.Execute(badSyntax).exitCode, 1);
}

TEST(ResultFile, ThatCannotBeWrittenToTheEndIsLoggedWithTheReason) {
    Shop shop;
    fs::create_symlink("/dev/full", shop.Folder().File("result.txt"));
    const RunOutcome run = shop.Execute(sale);
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_THAT(run.dbgLog, HasSubstr("  Unable to write result file 'result.txt' - No space left "
                                      "on device\n"));
    EXPECT_THAT(run.stdLog, Not(HasSubstr("Unable to write")));
    EXPECT_EQ(shop.Execute(badSyntax).exitCode, 1);
}

TEST(ResultFile, ThatIsWrittenToTheEndIsNotSpokenOf) {
    Shop shop;
    EXPECT_THAT(shop.Execute(sale).dbgLog, Not(HasSubstr("result file")));
}

// --- EXIT and GET_STATUS -------------------------------------------------------------------------

TEST(ExitFile, EndsWithOneAndWritesNoResult) {
    Shop shop;
    const RunOutcome run = shop.Execute("# the end\nexit\n");
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_THAT(run, NothingOfARun());
    EXPECT_EQ(shop.Line().Counters().bytesIn, 0) << "there is no connection";
    EXPECT_TRUE(Matches(run.dbgLog, StartPattern(" cmd.txt"))) << run.dbgLog;
}

TEST(ExitFile, IsNoErrorForTheLogs) {
    Shop shop;
    const RunOutcome run = shop.Ini("DbgErrorLog", "1").Execute("EXIT\n");
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.dbgLog, "");
}

TEST(ExitFile, IsNothingSpecialWithAnotherCommand) {
    Shop shop;
    EXPECT_THAT(shop.Execute("EXIT\n" + sale).result, Optional(soldResult));
    EXPECT_THAT(shop.Execute("EXIT\nEXIT\n").result, Optional(soldResult));
}

TEST(GetStatus, TellsTheLastReceipt) {
    Shop shop;
    shop.Execute(sale);
    const RunOutcome run = shop.Execute("GET_STATUS\n");
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_THAT(run.result, Optional(soldResult));
    EXPECT_THAT(run.journal, IsEmpty()) << "nothing but the status is asked for";
}

TEST(GetStatus, TellsTheReceiptInProgress) {
    Shop shop;
    shop.Execute(openReceipt);
    const RunOutcome run = shop.Execute("GET_STATUS\n");
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_THAT(run.result,
                Optional(std::string("[VOLTIS]\nResultCode=0\nMessage=Receipt not finished\n"
                                     "CurrentReceiptNo=1\nSubtotal=5.00")));
    EXPECT_THAT(run.journal, IsEmpty());
}

TEST(GetStatus, TellsTheReceiptInProgressInTheOldFormat) {
    Shop shop;
    shop.Ini("OldResultFileFormat", "1").Execute(openReceipt);
    EXPECT_THAT(shop.Execute("GET_STATUS\n").result,
                Optional(std::string("0\nOK\nReceipt not finished")));
}

TEST(GetStatus, NeedsTheKeyInReg) {
    for (const Keylock position : {Keylock::Z, Keylock::Off, Keylock::X}) {
        Shop shop;
        shop.Device().SetKeylock(position);
        const RunOutcome run = shop.Execute("GET_STATUS\n");
        EXPECT_EQ(run.exitCode, 2);
        EXPECT_THAT(run.result,
                    Optional(FailedResult(
                        2, "Incorrect keylock position. Please set keylock in REG position", 104)));
    }
}

TEST(GetStatus, TellsTheLastResult) {
    Shop shop;
    LeaveResultCode(shop, emulator::result::JournalPaperEnd);
    EXPECT_THAT(shop.Execute("GET_STATUS\n").result,
                Optional(FailedResult(2, "Journal paper end", 202)));
}

TEST(GetStatus, LooksAtTheKeyFirst) {
    Shop shop;
    shop.Device().SetKeylock(Keylock::X);
    LeaveResultCode(shop, emulator::result::JournalPaperEnd);
    EXPECT_THAT(shop.Execute("GET_STATUS\n").result, Optional(HasSubstr("ErrorCode=104")));
    EXPECT_THAT(shop.Execute(sale).result, Optional(HasSubstr("ErrorCode=202")))
        << "a file with commands looks at the result first";
}

TEST(GetStatus, IsNothingSpecialWithAnotherCommand) {
    Shop shop;
    shop.Execute(openReceipt);
    EXPECT_THAT(shop.Execute("GET_STATUS\nGET_STATUS\n").result,
                Optional(FailedResult(2, "Previous receipt not finished", 105)));
    Shop another;
    EXPECT_THAT(another.Execute("GET_STATUS\n" + sale).result, Optional(soldResult));
}

TEST(GetStatus, TakesNoParameters) {
    Shop shop;
    EXPECT_THAT(shop.Execute("GET_STATUS: A=1\n").result,
                Optional(FailedResult(1, "Too many parameters (line: 1)", 1)));
}

// --- logs ----------------------------------------------------------------------------------------

struct LogCase {
    int standardLevel;
    int debugLevel;
    bool failure;

    bool KeepsStandard() const { return standardLevel != 0; }
    bool KeepsDebug() const { return debugLevel != 0 && (debugLevel != 1 || failure); }
};

class Logs : public testing::TestWithParam<LogCase> {
  protected:
    RunOutcome RunOnce(Shop& shop) {
        shop.Ini("StandardLog", std::to_string(GetParam().standardLevel));
        shop.Ini("DbgErrorLog", std::to_string(GetParam().debugLevel));
        return shop.Execute(GetParam().failure ? badSyntax : sale);
    }
};

std::vector<LogCase> AllLogCases() {
    std::vector<LogCase> cases;
    for (const int standardLevel : {0, 1, 2}) {
        for (const int debugLevel : {0, 1, 2}) {
            cases.push_back({standardLevel, debugLevel, false});
            cases.push_back({standardLevel, debugLevel, true});
        }
    }
    return cases;
}

void PrintTo(const LogCase& logCase, std::ostream* out) {
    *out << "Standard" << logCase.standardLevel << "Debug" << logCase.debugLevel
         << (logCase.failure ? "Failure" : "Success");
}

INSTANTIATE_TEST_SUITE_P(Levels, Logs, testing::ValuesIn(AllLogCases()),
                         testing::PrintToStringParamName());

TEST_P(Logs, GrowByTheRunOrStayAsTheyWere) {
    Shop shop;
    shop.Logs().Write("voltis.log", "earlier\n");
    shop.Logs().Write("dbgerror.log", "earlier, too\n");
    const RunOutcome run = RunOnce(shop);
    EXPECT_THAT(run.stdLog, StartsWith("earlier\n"));
    EXPECT_THAT(run.dbgLog, StartsWith("earlier, too\n"));
    EXPECT_EQ(run.stdLog != "earlier\n", GetParam().KeepsStandard()) << run.stdLog;
    EXPECT_EQ(run.dbgLog != "earlier, too\n", GetParam().KeepsDebug()) << run.dbgLog;
}

TEST_P(Logs, AreNotThereWhenNothingWasKept) {
    Shop shop;
    RunOnce(shop);
    EXPECT_EQ(fs::exists(shop.Logs().File("voltis.log")), GetParam().KeepsStandard());
    EXPECT_EQ(fs::exists(shop.Logs().File("dbgerror.log")), GetParam().KeepsDebug());
}

TEST_P(Logs, PointFromTheStandardLogToTheDebugLogThatWasKept) {
    Shop shop;
    const std::string pointer = "  Debug information saved in dbgerror.log\n";
    const RunOutcome run = RunOnce(shop);
    const bool both = GetParam().KeepsStandard() && GetParam().KeepsDebug();
    EXPECT_EQ(run.stdLog.ends_with(pointer), both) << run.stdLog;
    EXPECT_THAT(run.dbgLog, Not(HasSubstr(pointer)));
}

TEST(LogText, BeginsWithAnEmptyLineAndTheCommandLine) {
    Shop shop;
    shop.Folder().Write("my sale.txt", sale);
    const RunOutcome run = shop.Run({"my sale.txt"});
    const std::regex start("^" + StartPattern(" my sale.txt"));
    EXPECT_TRUE(std::regex_search(run.stdLog, start, std::regex_constants::match_continuous))
        << run.stdLog;
    EXPECT_TRUE(std::regex_search(run.dbgLog, start, std::regex_constants::match_continuous))
        << run.dbgLog;
}

TEST(LogText, OfASaleIsStartStatisticsAndThePointerInTheStandardLog) {
    Shop shop;
    const RunOutcome run = shop.Execute(sale);
    EXPECT_TRUE(Matches(run.stdLog, StartPattern(" cmd.txt") + timeStamp +
                                        R"(I/O statistics : OUT frames = \d+, IN frames = \d+\n)" +
                                        timeStamp +
                                        R"(Debug information saved in dbgerror\.log\n)"))
        << run.stdLog;
}

TEST(LogText, OfAFailureHoldsItsMessageInBothLogs) {
    Shop shop;
    const RunOutcome run = shop.Execute(badSyntax);
    const std::string line = "  Missing ':' after fiscal command (file : 'cmd.txt' line : 1)\n";
    EXPECT_THAT(run.stdLog, HasSubstr(line));
    EXPECT_THAT(run.dbgLog, HasSubstr(line));
}

TEST(LogText, OfAFailureEndsWithTheClosingOfThePortAndTheStatistics) {
    Shop shop;
    const RunOutcome run = shop.Execute(unknownArticle);
    const std::regex end("Closing serial port\n" + timeStamp +
                         R"(I/O statistics : OUT frames = \d+, IN frames = \d+, NAK = 1\n$)");
    EXPECT_TRUE(std::regex_search(run.dbgLog, end)) << run.dbgLog;
}

TEST(LogText, HoldsEveryFrameOfTheLine) {
    Shop shop;
    const RunOutcome run = shop.Execute(sale);
    const std::regex frame(R"(PC(->|<-)ECR +\d+ bytes in +\d+\.\d ms :( [0-9a-f]{2})+)");
    const auto frames = std::distance(
        std::sregex_iterator(run.dbgLog.begin(), run.dbgLog.end(), frame), std::sregex_iterator());
    std::smatch counts;
    ASSERT_TRUE(std::regex_search(run.dbgLog, counts,
                                  std::regex(R"(OUT frames = (\d+), IN frames = (\d+)\n)")));
    EXPECT_EQ(frames, std::stoi(counts[1]) + std::stoi(counts[2]));
    EXPECT_GT(frames, 20);
}

TEST(LogText, HoldsTheCommandFileAfterAnErrorInIt) {
    Shop shop;
    const RunOutcome run = shop.Execute("# two lines \t\r\n   \n\n  SALE DEPTNR=1  \r\nTOTAL");
    const std::string copy =
        "  Input file (cmd.txt):\n"
        "\t# two lines\n"
        "\t  SALE DEPTNR=1\n"
        "\tTOTAL\n";
    EXPECT_THAT(run.dbgLog, HasSubstr(copy));
    EXPECT_THAT(run.stdLog, Not(HasSubstr("Input file")));
}

TEST(LogText, HoldsNoCommandFileAfterOtherFailures) {
    Shop shop;
    EXPECT_THAT(shop.WithoutIni("ComNumber").Execute(sale).dbgLog, Not(HasSubstr("Input file")));
}

TEST(LogText, OfOneRunFollowsThatOfTheRunBefore) {
    Shop shop;
    const RunOutcome first = shop.Execute(sale);
    const RunOutcome second = shop.Execute(sale);
    EXPECT_THAT(second.stdLog, StartsWith(first.stdLog));
    EXPECT_THAT(second.dbgLog, StartsWith(first.dbgLog));
    EXPECT_GT(second.stdLog.size(), first.stdLog.size());
}

TEST(LogFolder, ThatIsMissingEndsTheRunWithTwo) {
    Shop shop;
    shop.Folder().Write(marker, "");
    const RunOutcome run = shop.Sandbox({"--tmpfs", "/var/log"}).Execute(sale);
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_EQ(run.out, "");
    EXPECT_THAT(run, NothingOfARun());
    EXPECT_TRUE(fs::exists(shop.Folder().File(marker))) << "it is not this run's";
}

TEST(LogFolder, WithADebugLogThatCannotBeOpenedKeepsNoEmptyStandardLog) {
    Shop shop;
    fs::create_directory(shop.Logs().File("dbgerror.log"));
    const RunOutcome run = shop.Execute(sale);
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_EQ(run.out, "");
    EXPECT_THAT(run, NothingOfARun());
    EXPECT_FALSE(fs::exists(shop.Logs().File("voltis.log")));
}

// --- marker --------------------------------------------------------------------------------------

TEST(Marker, IsThereDuringTheRunOnly) {
    Shop shop;
    std::atomic<bool> seen = false;
    shop.Line().OnReceive(
        [&, path = shop.Folder().File(marker)](emulator::Bytes&) { seen = fs::exists(path); });
    shop.Execute(sale);
    EXPECT_TRUE(seen);
    EXPECT_FALSE(fs::exists(shop.Folder().File(marker)));
}

TEST(Marker, ThatIsStaleDoesNotBlockTheRun) {
    Shop shop;
    shop.Folder().Write(marker, "left by a power cut");
    EXPECT_THAT(shop.Execute(sale).result, Optional(soldResult));
    EXPECT_FALSE(fs::exists(shop.Folder().File(marker)));
}

TEST(Marker, IsGoneAfterEveryEnd) {
    Shop shop;
    const struct {
        Words arguments;
        int exitCode;
    } ends[] = {{{"bad.txt"}, 1},  {{"exit.txt"}, 1}, {{"none.txt"}, 1}, {{"refused.txt"}, 101},
                {{"open.txt"}, 2}, {{}, 0},           {{"/X"}, 2},       {{"a", "b"}, 2},
                {{"any", "/S"}, 0}};
    shop.Folder().Write("bad.txt", badSyntax);
    shop.Folder().Write("exit.txt", "EXIT\n");
    shop.Folder().Write("refused.txt", unknownArticle);
    shop.Folder().Write("open.txt", sale);
    for (const auto& end : ends) {
        EXPECT_EQ(shop.Run(end.arguments).exitCode, end.exitCode);
        EXPECT_FALSE(fs::exists(shop.Folder().File(marker)));
    }
}

TEST(Marker, ThatCannotBeDeletedMeansAnotherInstance) {
    Shop shop;
    fs::create_directories(shop.Folder().File(marker + "/held"));
    const RunOutcome run = shop.Execute(sale);
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_EQ(run.out, "Another instance of driver is already running");
    EXPECT_THAT(run, NothingOfARun());
    EXPECT_TRUE(fs::exists(shop.Folder().File(marker + "/held")));
}

TEST(Marker, OfAnotherInstanceLeavesTheStartLinesInTheLogsWhateverTheirLevels) {
    Shop shop;
    fs::create_directories(shop.Folder().File(marker + "/held"));
    const RunOutcome run = shop.Ini("StandardLog", "0").Ini("DbgErrorLog", "0").Execute(sale);
    EXPECT_TRUE(Matches(run.stdLog, StartPattern(" cmd.txt"))) << run.stdLog;
    EXPECT_TRUE(Matches(run.dbgLog, StartPattern(" cmd.txt"))) << run.dbgLog;
}

TEST(Marker, OfAnotherInstanceIsLookedForBeforeTheCommandLine) {
    Shop shop;
    fs::create_directories(shop.Folder().File(marker + "/held"));
    EXPECT_EQ(shop.Run({"/?"}).out, "Another instance of driver is already running");
}

TEST(Marker, StandsInTheWorkingDirectory) {
    Shop shop;
    fs::create_directories(shop.Folder().File("till"));
    fs::create_directories(shop.Folder().File(marker + "/held"));
    const std::string commandFile = shop.Folder().Write("cmd.txt", sale);
    EXPECT_EQ(shop.WorkIn("till").Run({commandFile}).exitCode, 0);
    EXPECT_EQ(shop.WorkIn("").Run({commandFile}).exitCode, 2);
}

TEST(Marker, ThatCannotBeCreatedDoesNotStopTheRun) {
    Shop shop;
    const TempDir readOnly;
    const std::string commandFile = shop.Folder().Write("cmd.txt", sale);
    shop.WorkIn(readOnly.Path()).Sandbox({"--ro-bind", readOnly.Path(), readOnly.Path()});
    const RunOutcome run = shop.Run({commandFile});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_THAT(run.result, Optional(soldResult));
}

// --- usage ---------------------------------------------------------------------------------------

namespace {

const std::string usageBanner =
    R"(VOLTIS version 2\.5\.0 for Linux  \(Compiled: [A-Z][a-z]{2} [ \d]\d \d{4} \d\d:\d\d:\d\d\)\n)";
const std::string usageRest =
    "\n\nUsage:  VOLTIS.EXE cmdfile [option]\n"
    "\n"
    "  cmdfile - file with fiscal commands\n"
    "\n"
    "Posible options:\n"
    "  /S   - server mode\n"
    "  /S2  - server mode compatible with ValkorCaracalS and Omron RS2810\n";

void ExpectUsage(const RunOutcome& run) {
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_TRUE(Matches(run.out, usageBanner + Literally(usageRest))) << run.out;
    EXPECT_THAT(run, NothingOfARun());
}

void ExpectWrongCommandLine(const Words& arguments) {
    Shop shop;
    shop.Folder().Write("cmd.txt", sale);
    const RunOutcome run = shop.Run(arguments);
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_EQ(run.out, "");
    EXPECT_THAT(run.stdLog, HasSubstr("  " + wrongCommandLine + "\n"));
    EXPECT_THAT(run.dbgLog, HasSubstr("  " + wrongCommandLine + "\n"));
    EXPECT_THAT(run, NothingOfARun());
}

}  // namespace

TEST(Usage, IsShownWithoutArguments) {
    ExpectUsage(Shop().Run({}));
}

TEST(Usage, IsShownForAQuestionMark) {
    ExpectUsage(Shop().Run({"/?"}));
    ExpectUsage(Shop().Run({"-?"}));
}

TEST(Usage, EndsTheRunWhereverItStands) {
    Shop shop;
    shop.Folder().Write("cmd.txt", sale);
    for (const Words& arguments :
         {Words{"/?", "cmd.txt"}, Words{"cmd.txt", "/?"}, Words{"/?", "/X"},
          Words{"/S", "cmd.txt", "/?"}, Words{"/?", "cmd.txt", "cmd.txt"}}) {
        ExpectUsage(shop.Run(arguments));
    }
    EXPECT_EQ(shop.Line().Counters().bytesIn, 0);
}

TEST(Usage, ComesTooLateAfterAMistake) {
    ExpectWrongCommandLine({"/X", "/?"});
    ExpectWrongCommandLine({"cmd.txt", "cmd.txt", "/?"});
}

TEST(Usage, IsNoErrorForTheLogs) {
    Shop shop;
    const RunOutcome run = shop.Ini("DbgErrorLog", "1").Run({"/?"});
    EXPECT_EQ(run.dbgLog, "");
    EXPECT_TRUE(Matches(run.stdLog, StartPattern(" /?"))) << run.stdLog;
}

TEST(Usage, NeedsNoConfiguration) {
    Shop shop;
    ExpectUsage(shop.WithoutIniFile().Run({}));
}

// --- command line --------------------------------------------------------------------------------

TEST(CommandLine, RefusesUnknownOptions) {
    for (const char* option : {"/X", "-X", "/", "-", "/S3", "/SS", "-cmd.txt", "/cmd.txt"}) {
        SCOPED_TRACE(option);
        ExpectWrongCommandLine({"cmd.txt", option});
    }
}

TEST(CommandLine, RefusesTwoCommandFilesEvenTheSame) {
    ExpectWrongCommandLine({"cmd.txt", "other.txt"});
    ExpectWrongCommandLine({"cmd.txt", "cmd.txt"});
}

TEST(CommandLine, RefusesAnOptionAlone) {
    ExpectWrongCommandLine({"/S"});
    ExpectWrongCommandLine({""});
}

TEST(CommandLine, RefusesBeforeItLooksForTheResultFileName) {
    Shop shop;
    EXPECT_THAT(shop.WithoutIni("ResultFileName").Run({"/S"}).stdLog, HasSubstr(wrongCommandLine));
}

TEST(CommandLine, MistakesKeepTheDebugLogOfLevelOne) {
    Shop shop;
    EXPECT_THAT(shop.Ini("DbgErrorLog", "1").Run({"/X"}).dbgLog, HasSubstr(wrongCommandLine));
}

// --- paths of the command file -------------------------------------------------------------------

TEST(CommandFile, MayHaveAnAbsolutePath) {
    Shop shop;
    const TempDir pos;
    pos.Write("cmd.txt", sale);
    shop.Sandbox({"--tmpfs", "/home", "--bind", pos.Path(), "/home/pos"});
    const RunOutcome run = shop.Run({"/home/pos/cmd.txt"});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(ReadWholeFile(pos.File("result.txt")), soldResult);
    EXPECT_EQ(run.result, std::nullopt);
}

TEST(CommandFile, HasTheResultBesideItWhateverFolderTheNameNames) {
    Shop shop;
    const TempDir pos;
    const TempDir out;
    pos.Write("cmd.txt", sale);
    shop.Sandbox({"--tmpfs", "/home", "--bind", pos.Path(), "/home/pos"});
    shop.Ini("ResultFileName", out.File("res.txt"));
    EXPECT_EQ(shop.Run({"/home/pos/cmd.txt"}).exitCode, 0);
    EXPECT_EQ(ReadWholeFile(pos.File("res.txt")), soldResult);
    EXPECT_TRUE(fs::is_empty(out.Path()));
}

TEST(CommandFile, MayHaveARelativePath) {
    Shop shop;
    fs::create_directory(shop.Folder().File("orders"));
    shop.Folder().Write("orders/cmd.txt", sale);
    const RunOutcome run = shop.Run({"orders/cmd.txt"});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.result, std::nullopt);
    EXPECT_EQ(ReadWholeFile(shop.Folder().File("orders/result.txt")), soldResult);
}

TEST(CommandFile, MayBeNamedWithBackslashes) {
    Shop shop;
    fs::create_directory(shop.Folder().File("orders"));
    shop.Folder().Write("orders/cmd.txt", badSyntax);
    shop.Run({"orders\\cmd.txt"});
    EXPECT_EQ(
        ReadWholeFile(shop.Folder().File("orders/result.txt")),
        FailedResult(1, "Missing ':' after fiscal command (file : 'orders/cmd.txt' line : 1)", 1));
}

TEST(CommandFile, ThatIsMissingIsASystemError) {
    Shop shop;
    const RunOutcome run = shop.Run({"cmd.txt"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_THAT(run.result, Optional(FailedResult(
                                1, "Can't open file 'cmd.txt' - No such file or directory", 50)));
    EXPECT_THAT(run.dbgLog, Not(HasSubstr("Input file")));
    EXPECT_EQ(shop.Line().Counters().bytesIn, 0);
}

TEST(CommandFile, InAMissingFolderLeavesNoResult) {
    Shop shop;
    const RunOutcome run = shop.Run({"none/cmd.txt"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_THAT(run.dbgLog, HasSubstr("  Unable to create result file 'none/result.txt'\n"));
}

TEST(CommandFile, ThatIsAFolderIsNotTakenForAnEmptyOne) {
    Shop shop;
    fs::create_directory(shop.Folder().File("orders"));
    const RunOutcome run = shop.Run({"orders"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_THAT(run.result,
                Optional(FailedResult(1, "Can't read file 'orders' - Is a directory", 50)));
    EXPECT_EQ(shop.Line().Counters().bytesIn, 0);
}

TEST(CommandFile, ThatIsANamedPipeIsReadButNotCopiedIntoTheLog) {
    Shop shop;
    const RunOutcome run = shop.StartBy(
                                   "mkfifo pipe; echo 'SALE DEPTNR=1' > pipe & "
                                   "\"$@\"; code=$?; wait; exit $code")
                               .Run({"pipe"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_THAT(run.result, Optional(HasSubstr("Missing ':' after fiscal command (file : 'pipe'")));
    EXPECT_THAT(run.dbgLog, HasSubstr("  Input file (pipe):\n"));
    EXPECT_THAT(run.dbgLog, Not(HasSubstr("DEPTNR")));
}

// --- text of the command file --------------------------------------------------------------------

TEST(CommandText, MayEndItsLinesWithCarriageReturnAndLineFeed) {
    Shop shop;
    const RunOutcome run = shop.Execute("SALE: DEPTNR=1; NAME=Tart; AMOUNT=1.00\r\nTENDER\r\n");
    EXPECT_THAT(run.result, Optional(soldResult));
    EXPECT_THAT(run.tape, Contains(StartsWith("Tart ")));
}

TEST(CommandText, MayHaveCommentsAndBlankLines) {
    Shop shop;
    EXPECT_THAT(
        shop.Execute("# a tart\n\n \t\nSALE: DEPTNR=1; AMOUNT=1.00\n  # paid\n\tTENDER").result,
        Optional(soldResult));
}

TEST(CommandText, WithAMistakeInLineFourNamesLineFour) {
    Shop shop;
    const RunOutcome run =
        shop.Execute("# first\n\nSALE: DEPTNR=1; AMOUNT=1.00\nTENDER MEDIA=CARD\n");
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_THAT(run.result,
                Optional(FailedResult(
                    1, "Missing ':' after fiscal command (file : 'cmd.txt' line : 4)", 1)));
    EXPECT_EQ(shop.Line().Counters().bytesIn, 0);
}

TEST(CommandText, IsCheckedToTheEndBeforeAnythingIsSent) {
    Shop shop;
    const RunOutcome run =
        shop.Execute("SALE: DEPTNR=1; AMOUNT=1.00\nTOTAL\n\nTENDER: MEDIA=VOUCHER\n");
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_THAT(run.result, Optional(FailedResult(1, "Unsupported tender media (line: 4)", 1)));
    EXPECT_THAT(run.tape, IsEmpty());
    EXPECT_THAT(run.journal, IsEmpty());
    EXPECT_EQ(shop.Line().Counters().requests, shop.Line().Counters().statusReads);
    EXPECT_THAT(run.dbgLog, HasSubstr("\tTENDER: MEDIA=VOUCHER\n"));
}

// --- configuration -------------------------------------------------------------------------------

TEST(Configuration, WithoutAFileEndsAtTheSerialPort) {
    Shop shop;
    const RunOutcome run = shop.WithoutIniFile().Execute(sale);
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_EQ(run.out, "");
    EXPECT_THAT(run, NothingOfARun());
    EXPECT_EQ(run.stdLog + run.dbgLog, "");
}

TEST(Configuration, WithoutASerialPortNumberTellsSo) {
    Shop shop;
    EXPECT_THAT(shop.WithoutIni("ComNumber").Execute(sale).result,
                Optional(FailedResult(2, "Serial port number is missing", 3)));
}

TEST(Configuration, WithASerialPortThatIsNotThereTellsSo) {
    Shop shop;
    EXPECT_THAT(
        shop.Ini("ComNumber", "99").Execute(sale).result,
        Optional(FailedResult(2, "Unable to open serial port - No such file or directory", 50)));
}

TEST(Configuration, WithAnUnknownCodePageEndsBeforeTheFileIsRead) {
    Shop shop;
    const RunOutcome run = shop.Ini("CodePage", "latin").Execute(badSyntax);
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_THAT(run, NothingOfARun());
    EXPECT_THAT(run.stdLog, HasSubstr("  INI-file contains unknown codepage : 'LATIN'\n"));
}

TEST(Configuration, WithUnknownFramesTellsSo) {
    Shop shop;
    EXPECT_THAT(
        shop.Ini("ProtocolFormatting", "2").Execute(sale).result,
        Optional(FailedResult(2, "INI-file contains unknown protocol formatting : '2'", 3)));
}

TEST(Configuration, ForEthernetTellsThatThereIsNone) {
    Shop shop;
    shop.Ini("IpAddress", "127.0.0.1").Ini("UdpPort", "9");
    EXPECT_THAT(shop.Execute(sale).result,
                Optional(FailedResult(2, "Ethernet support not implemented", 50)));
}

TEST(Configuration, ForEthernetNeedsBothKeys) {
    Shop shop;
    EXPECT_THAT(shop.Ini("IpAddress", "127.0.0.1").Execute(sale).result, Optional(soldResult));
}

TEST(Configuration, IsReadAnewInEveryRun) {
    Shop shop;
    EXPECT_THAT(shop.Execute(sale).result, Optional(soldResult));
    shop.Ini("OldResultFileFormat", "1");
    EXPECT_THAT(shop.Execute(sale).result, Optional(std::string("0\nOK\nReceiptNo: 2")));
}

// --- the register --------------------------------------------------------------------------------

TEST(Register, ThatIsSwitchedOffIsMissed) {
    Shop shop;
    shop.Device().PowerOff();
    const RunOutcome run = shop.Ini("CmdTimeout_Default", "200").Execute(sale);
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_THAT(run.result, Optional(FailedResult(2, "ECR is missing or in OFF state", 100)));
    EXPECT_THAT(run.dbgLog, HasSubstr("Checking for ECR"));
}

TEST(Register, ThatRefusesACommandKeepsWhatItPrintedBefore) {
    Shop shop;
    const RunOutcome run = shop.Execute(unknownArticle);
    EXPECT_EQ(run.exitCode, 101);
    EXPECT_THAT(run.result,
                Optional(FailedResult(101, "Fiscal command execution error (line: 2)", 250)));
    EXPECT_THAT(run.tape, ElementsAre(HasSubstr("EMULATED REGISTER"), StartsWith("Tart ")));
    EXPECT_TRUE(shop.Device().ReceiptInProgress());
    EXPECT_THAT(run.dbgLog, HasSubstr("\tSALE: PLUNR=999\n"));
}

TEST(Register, WithAReceiptOpenRefusesTheNextFile) {
    Shop shop;
    shop.Execute(unknownArticle);
    const RunOutcome run = shop.Execute(sale);
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_THAT(run.result, Optional(FailedResult(2, "Previous receipt not finished", 105)));
    EXPECT_THAT(run.tape, IsEmpty());
}

TEST(Register, GoesOnWithAReceiptThatWasLeftOpen) {
    Shop shop;
    shop.Execute(openReceipt);
    const RunOutcome run = shop.Execute("CONTINUE\nSALE: DEPTNR=2; AMOUNT=1.00\nTENDER\n");
    EXPECT_THAT(run.result, Optional(soldResult));
    EXPECT_EQ(shop.Device().Totals().sales, 600);
}

TEST(Register, WithoutPaperTellsSo) {
    Shop shop;
    shop.Device().SetReceiptPaper(false);
    const RunOutcome run = shop.Execute(sale);
    EXPECT_EQ(run.exitCode, 101);
    EXPECT_THAT(run.result, Optional(FailedResult(101, "Receipt paper end", 201)));
}

TEST(Register, IsLeftUnblockedAfterAFile) {
    Shop shop;
    shop.Execute(sale);
    EXPECT_FALSE(shop.Device().InFiscalMode());
}

TEST(Register, StaysBlockedWhenConfiguredSo) {
    Shop shop;
    shop.Ini("KeepEcrBlocked", "1").Execute(sale);
    EXPECT_TRUE(shop.Device().InFiscalMode());
    const RunOutcome next = shop.Execute(sale);
    EXPECT_EQ(next.exitCode, 0);
    EXPECT_EQ(next.journal.front().command, emulator::DeptSale) << "it need not be entered again";
}

TEST(Register, IsLeftUnblockedAfterAnError) {
    Shop shop;
    shop.Ini("KeepEcrBlocked", "1").Execute(unknownArticle);
    EXPECT_FALSE(shop.Device().InFiscalMode());
}

TEST(Register, IsLeftUnblockedAfterALostEndOfTheEntering) {
    Shop shop;
    int ends = 0;
    bool lost = false;
    shop.Line().OnReceive([&](emulator::Bytes& chunk) {
        const bool end = chunk.size() == 4 && chunk[0] == 0xFF && chunk[1] == 0xFF;
        if (end) lost = ++ends == 1;
    });
    shop.Line().OnSend([&](emulator::Bytes& reply) {
        if (lost) reply.clear();
        lost = false;
    });
    const RunOutcome run = shop.Ini("CmdTimeout_Default", "500").Execute(sale);
    EXPECT_THAT(run.result, Optional(FailedResult(2, "ECR response lost", 150)));
    EXPECT_FALSE(shop.Device().InFiscalMode());
}

TEST(Register, StaysBlockedAfterAnErrorWhenConfiguredSo) {
    Shop shop;
    const RunOutcome run = shop.Ini("KeepEcrBlockedAfterError", "1").Execute(unknownArticle);
    EXPECT_TRUE(shop.Device().InFiscalMode());
    EXPECT_THAT(run.result, Optional(HasSubstr("ErrorCode=250")));
}

struct ModelCase {
    const emulator::Model* model;
    WireFamily family;
};

class EveryRegister : public testing::TestWithParam<ModelCase> {};

std::vector<ModelCase> AllModelCases() {
    std::vector<ModelCase> cases;
    for (const emulator::Model& model : emulator::Models()) {
        cases.push_back({&model, WireFamily::Ocelot});
        cases.push_back({&model, WireFamily::Margay});
    }
    return cases;
}

void PrintTo(const ModelCase& modelCase, std::ostream* out) {
    const bool ocelot = modelCase.family == WireFamily::Ocelot;
    *out << modelCase.model->name << int{modelCase.model->version}
         << (ocelot ? "WithOcelotFrames" : "WithMargayFrames");
}

INSTANTIATE_TEST_SUITE_P(Models, EveryRegister, testing::ValuesIn(AllModelCases()),
                         testing::PrintToStringParamName());

TEST_P(EveryRegister, SellsASmallReceipt) {
    emulator::RegisterConfig config;
    config.model = GetParam().model;
    Shop shop(config, GetParam().family);
    const RunOutcome run = shop.Execute(
        "COMMENT: TEXT=\"Good morning\"\n"
        "SALE: DEPTNR=1; NAME=Tart; PRICE=2.50; QNTY=2\n"
        "SALE: PLUNR=1; QNTY=0.5\n"
        "TOTAL\n"
        "TENDER: MEDIA=CARD; AMOUNT=5\n"
        "TENDER: AMOUNT=2\n");
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_THAT(run.result, Optional(soldResult));
    EXPECT_THAT(run.tape, AllOf(Contains("Good morning"), Contains(StartsWith("Tart ")),
                                Contains(StartsWith("COFFEE ")), Contains(EndsWith("0.75"))));
    EXPECT_EQ(shop.Device().Totals().sales, 625);
    EXPECT_EQ(shop.Device().Totals().media[2], 500);
}

// --- standard output -----------------------------------------------------------------------------

TEST(StandardOutput, StaysEmptyWhateverComesOfTheRun) {
    Shop shop;
    for (const std::string& commands :
         {sale, openReceipt, badSyntax, std::string("EXIT\n"), std::string("GET_STATUS\n")}) {
        EXPECT_EQ(shop.Execute(commands).out, "") << commands;
    }
}

namespace {

// Standard output becomes a pipe that nobody reads any more.
const std::string toNobody =
    "mkfifo nobody; exec 3<>nobody 4>nobody 3<&-; rm nobody; exec \"$@\" >&4 4>&-";

}  // namespace

TEST(StandardOutput, ThatNobodyReadsLeavesTheUsageInOrder) {
    Shop shop;
    const RunOutcome run = shop.StartBy(toNobody).Ini("DbgErrorLog", "1").Run({"/?"});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_FALSE(fs::exists(shop.Folder().File(marker)));
    EXPECT_EQ(run.dbgLog, "");
}

TEST(StandardOutput, ThatNobodyReadsLeavesAnotherInstanceItsExitCode) {
    Shop shop;
    fs::create_directories(shop.Folder().File(marker + "/held"));
    EXPECT_EQ(shop.StartBy(toNobody).Execute(sale).exitCode, 2);
}

TEST(StandardOutput, ThatIsClosedDoesNotBecomeALog) {
    for (const char* closed : {">&-", "<&- >&- 2>&-"}) {
        Shop shop;
        const RunOutcome run = shop.StartBy("exec \"$@\" " + std::string(closed)).Run({"/?"});
        EXPECT_EQ(run.exitCode, 0);
        EXPECT_TRUE(Matches(run.dbgLog, StartPattern(" /?"))) << closed << run.dbgLog;
    }
}

TEST(StandardOutput, ThatIsClosedWithTheOtherTwoLetsASalePass) {
    Shop shop;
    const RunOutcome run = shop.StartBy("exec \"$@\" <&- >&- 2>&-").Execute(sale);
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_THAT(run.result, Optional(soldResult));
    EXPECT_EQ(shop.Device().Totals().sales, 500);
}

// --- server mode ---------------------------------------------------------------------------------

namespace {

void ExpectServerMode(const Words& arguments, const std::string& name) {
    Shop shop;
    shop.Folder().Write("cmd.txt", badSyntax);
    const RunOutcome run = shop.Run(arguments);
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.out, "");
    EXPECT_THAT(run, NothingOfARun());
    EXPECT_EQ(ReadWholeFile(shop.Folder().File("cmd.txt")), badSyntax);
    std::string words;
    for (const std::string& argument : arguments) words += " " + argument;
    EXPECT_TRUE(Matches(run.dbgLog, StartPattern(words) + timeStamp + name + " started\n" +
                                        timeStamp + name + " finished\n"))
        << run.dbgLog;
    EXPECT_THAT(run.stdLog, Not(HasSubstr("erver mode")));
    EXPECT_EQ(shop.Line().Counters().bytesIn, 0);
}

}  // namespace

TEST(ServerMode, IsOnlyStartedAndFinished) {
    ExpectServerMode({"cmd.txt", "/S"}, "Server mode");
    ExpectServerMode({"-s", "cmd.txt"}, "Server mode");
}

TEST(ServerMode, HasACompatibleVariant) {
    ExpectServerMode({"cmd.txt", "/S2"}, "Old server mode");
    ExpectServerMode({"/s2", "cmd.txt"}, "Old server mode");
}

TEST(ServerMode, IsTheOneOfTheLastOption) {
    ExpectServerMode({"/S", "cmd.txt", "/S2"}, "Old server mode");
    ExpectServerMode({"-S2", "cmd.txt", "-S"}, "Server mode");
}

TEST(ServerMode, NeedsNoCommandFileThatExists) {
    Shop shop;
    EXPECT_EQ(shop.Run({"none/such.txt", "/S"}).exitCode, 0);
}

TEST(ServerMode, NeedsAResultFileName) {
    for (const char* option : {"/S", "/S2"}) {
        Shop shop;
        const RunOutcome run = shop.WithoutIni("ResultFileName").Run({"cmd.txt", option});
        EXPECT_EQ(run.exitCode, 2);
        const std::string message = "  Unable to start server mode. Result file not specified\n";
        EXPECT_THAT(run.stdLog, HasSubstr(message));
        EXPECT_THAT(run.dbgLog, HasSubstr(message));
        EXPECT_THAT(run.dbgLog, Not(HasSubstr("erver mode started")));
    }
}

TEST(ServerMode, NeedsAResultFileNameBeforeACodePage) {
    Shop shop;
    shop.WithoutIni("ResultFileName").Ini("CodePage", "latin");
    EXPECT_THAT(shop.Run({"cmd.txt", "/S"}).stdLog, HasSubstr("Result file not specified"));
}
