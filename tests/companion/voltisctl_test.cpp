// The companion from outside, and the parts of it that can be looked at alone.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/TempDir.h"
#include "tools/Console.h"
#include "tools/RegisterOptions.h"
#include "tools/Sandbox.h"
#include "tools/TryFolder.h"

namespace fs = std::filesystem;
using Words = std::vector<std::string>;

namespace {

const std::string examples = EXAMPLES_DIR;

// --- the tool as a process ------------------------------------------------------------------

// voltisctl at work: its output (both streams) comes through one pipe, its input through another.
class Tool {
  public:
    explicit Tool(const Words& arguments, const Words& environment = {}) {
        std::array<int, 2> in{};
        std::array<int, 2> out{};
        if (pipe2(in.data(), O_CLOEXEC) != 0 || pipe2(out.data(), O_CLOEXEC) != 0) abort();
        in_ = in[1];
        out_ = out[0];
        Spawn(arguments, environment, in[0], out[1]);
        close(in[0]);
        close(out[1]);
    }
    ~Tool() {
        CloseInput();
        if (pid_ != -1) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
        close(out_);
    }
    Tool(const Tool&) = delete;
    Tool& operator=(const Tool&) = delete;

    void Type(const std::string& line) {
        const std::string typed = line + "\n";
        ASSERT_EQ(write(in_, typed.data(), typed.size()), static_cast<ssize_t>(typed.size()));
    }
    void CloseInput() {
        if (in_ != -1) close(in_);
        in_ = -1;
    }
    void Signal(int number) const { kill(pid_, number); }

    // Everything said up to and including text; fails the test when it does not come.
    std::string SaidUpTo(const std::string& text) {
        while (said_.find(text) == std::string::npos && ReadMore()) {
        }
        const size_t place = said_.find(text);
        if (place == std::string::npos) {
            ADD_FAILURE() << "voltisctl never said " << text << " but: " << said_;
            return said_;
        }
        const std::string part = said_.substr(0, place + text.size());
        said_.erase(0, part.size());
        return part;
    }

    // The exit code, 128 + n for signal n; what was said since is in Said().
    int Wait() {
        while (ReadMore()) {
        }
        int status = 0;
        waitpid(pid_, &status, 0);
        pid_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    const std::string& Said() const { return said_; }

  private:
    void Spawn(const Words& arguments, const Words& environment, int in, int out) {
        Words words = {"env"};
        words.insert(words.end(), environment.begin(), environment.end());
        words.push_back(VOLTISCTL_PATH);
        words.insert(words.end(), arguments.begin(), arguments.end());
        std::vector<char*> argv;
        for (std::string& word : words) argv.push_back(word.data());
        argv.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, in, STDIN_FILENO);
        posix_spawn_file_actions_adddup2(&actions, out, STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(&actions, out, STDERR_FILENO);
        ASSERT_EQ(posix_spawn(&pid_, "/usr/bin/env", &actions, nullptr, argv.data(), environ), 0);
        posix_spawn_file_actions_destroy(&actions);
    }

    // False at the end, and after 20 s of silence.
    bool ReadMore() {
        pollfd news = {out_, POLLIN, 0};
        if (poll(&news, 1, 20000) <= 0) return false;
        std::array<char, 4096> block{};
        const ssize_t count = read(out_, block.data(), block.size());
        if (count > 0) said_.append(block.data(), static_cast<size_t>(count));
        return count > 0;
    }

    pid_t pid_ = -1;
    int in_ = -1;
    int out_ = -1;
    std::string said_;
};

testing::AssertionResult Holds(const std::string& text, const Words& parts) {
    for (const std::string& part : parts) {
        if (text.find(part) == std::string::npos) {
            return testing::AssertionFailure() << "no '" << part << "' in: " << text;
        }
    }
    return testing::AssertionSuccess();
}

struct Answer {
    int exitCode;
    std::string text;
};

Answer RunTool(const Words& arguments, const Words& environment = {}) {
    Tool tool(arguments, environment);
    tool.CloseInput();
    const int exitCode = tool.Wait();
    return {exitCode, tool.Said()};
}

// `voltisctl try` with the arguments; a private folder that is left behind fails the test.
Answer Try(Words arguments, const Words& environment = {}) {
    const TempDir temporary;
    Words all = {"TMPDIR=" + temporary.Path()};
    all.insert(all.end(), environment.begin(), environment.end());
    arguments.insert(arguments.begin(), "try");
    const Answer answer = RunTool(arguments, all);
    EXPECT_TRUE(fs::is_empty(temporary.Path()));
    return answer;
}

// What stands in the section of this title, up to the next one.
std::string Section(const std::string& text, const std::string& title, size_t from = 0) {
    const std::string head = "--- " + title + "\n";
    const size_t start = text.find(head, from);
    if (start == std::string::npos) return "no section " + title + " in: " + text;
    const size_t body = start + head.size();
    return text.substr(body, text.find("\n--- ", body - 1) + 1 - body);
}

// A shell script that `voltisctl try` runs in the place of the driver or of bubblewrap.
std::string Script(const TempDir& folder, const std::string& name, const std::string& text) {
    const std::string path = folder.Write(name, "#!/bin/sh\n" + text + "\n");
    chmod(path.c_str(), 0755);
    return path;
}

int EntriesIn(const std::string& folder) {
    return static_cast<int>(
        std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
}

bool Eventually(const std::function<bool()>& condition) {
    for (int i = 0; i < 500 && !condition(); ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return condition();
}

}  // namespace

// --- the command line -----------------------------------------------------------------------

TEST(voltisctl, HelpListsItsSubCommands) {
    const Answer answer = RunTool({"--help"});
    EXPECT_EQ(answer.exitCode, 0);
    EXPECT_TRUE(Holds(answer.text, {"emulate", "try"}));
}

TEST(voltisctl, HelpOfTryNamesEveryOptionAndTheExitCodes) {
    const Answer answer = RunTool({"try", "--help"});
    EXPECT_EQ(answer.exitCode, 0);
    for (const char* word : {"FILE", "--model", "--protocol", "--frames", "--ini", "--log", "--svg",
                             "--driver", "--timeout", "exit code", "bubblewrap"}) {
        EXPECT_TRUE(Holds(answer.text, {word}));
    }
}

TEST(voltisctl, HelpOfEmulateTellsHowToReachThePtyAndWhatToType) {
    const Answer answer = RunTool({"emulate", "--help"});
    EXPECT_EQ(answer.exitCode, 0);
    for (const char* word :
         {"--link", "--svg", "/dev/ttyS<n>", "ln -sf", "finish", "key reg", "key off", "paper out",
          "paper in", "power off", "power on", "status"}) {
        EXPECT_TRUE(Holds(answer.text, {word}));
    }
}

struct BadInput {
    const char* name;
    Words arguments;
    const char* message;
    int exitCode;  // -1: any but 0

    friend void PrintTo(const BadInput& row, std::ostream* out) { *out << row.name; }
};

class voltisctlRefuses : public testing::TestWithParam<BadInput> {};

TEST_P(voltisctlRefuses, WithAMessageInOneLine) {
    const Answer answer = RunTool(GetParam().arguments);
    EXPECT_TRUE(Holds(answer.text, {GetParam().message}));
    if (GetParam().exitCode == -1) {
        EXPECT_NE(answer.exitCode, 0);
    } else {
        EXPECT_EQ(answer.exitCode, GetParam().exitCode);
        EXPECT_EQ(answer.text.find("voltisctl: "), 0U) << answer.text;
        EXPECT_EQ(std::count(answer.text.begin(), answer.text.end(), '\n'), 1);
    }
}

INSTANTIATE_TEST_SUITE_P(
    BadInput, voltisctlRefuses,
    testing::Values(BadInput{"NoSubCommand", {}, "A sub-command is required", -1},
                    BadInput{"AnUnknownSubCommand", {"fly"}, "not expected: fly", -1},
                    BadInput{"NoFile", {"try"}, "FILE is required", -1},
                    BadInput{"AMissingFile",
                             {"try", "/no/such.txt"},
                             "cannot read '/no/such.txt' - No such file or directory",
                             3},
                    BadInput{"AFolder", {"try", "/"}, "cannot read '/' - Is a directory", 3},
                    BadInput{
                        "AnUnknownModel", {"try", "x", "--model", "zebra"}, "zebra not in", -1},
                    BadInput{"AnUnknownProtocol", {"try", "x", "--protocol", "3"}, "3 not in", -1},
                    BadInput{"UnknownFrames", {"emulate", "--frames", "puma"}, "puma not in", -1},
                    BadInput{"AModelWithoutThatProtocol",
                             {"emulate", "--model", "margay", "--protocol", "1"},
                             "there is no margay with protocol version 1",
                             3},
                    BadInput{"AnIniWithoutEqualsSign",
                             {"try", EXAMPLES_DIR "/syntax-error.txt", "--ini", "CodePage"},
                             "'CodePage' is not KEY=VALUE",
                             3},
                    BadInput{"AnIniWithoutKey",
                             {"try", EXAMPLES_DIR "/syntax-error.txt", "--ini", "=DOS"},
                             "'=DOS' is not KEY=VALUE",
                             3},
                    BadInput{"AnIniOfTwoLines",
                             {"try", EXAMPLES_DIR "/syntax-error.txt", "--ini", "A=1\nB=2"},
                             "is not KEY=VALUE",
                             -1},
                    BadInput{"ANegativeTimeout", {"try", "x", "--timeout", "-1"}, "--timeout", -1},
                    BadInput{"AMissingDriver",
                             {"try", EXAMPLES_DIR "/syntax-error.txt", "--driver", "/no/voltis"},
                             "no driver at '/no/voltis' - No such file or directory",
                             3},
                    BadInput{"ALinkThatCannotBeMade",
                             {"emulate", "--link", "/no/such/folder/register"},
                             "/no/such/folder/register",
                             3},
                    BadInput{"APictureFolderThatCannotBeMade",
                             {"emulate", "--svg", "/proc/no/such"},
                             "cannot make folder '/proc/no/such'",
                             3}),
    [](const auto& row) { return row.param.name; });

// --- the sandbox ----------------------------------------------------------------------------

TEST(SandboxArguments, GiveTheDriverItsOwnFixedPaths) {
    const SandboxPlan plan = {"/b/voltis", "/t/files", "/t/voltis.ini", "/t/logs", "/dev/pts/7"};
    std::string line;
    for (const std::string& word : SandboxArguments(plan, {"/try/a b.txt"}, 3)) line += word + "|";
    EXPECT_EQ(line.find("bwrap|"), 0U) << line;
    EXPECT_TRUE(Holds(line, {"|--dev-bind|/dev/pts/7|/dev/ttyS0|"}));
    EXPECT_TRUE(Holds(line, {"|--ro-bind|/t/voltis.ini|/etc/voltis/voltis.ini|"}));
    EXPECT_TRUE(Holds(line, {"|--bind|/t/logs|/var/log/voltis|"}));
    EXPECT_TRUE(Holds(line, {"|--bind|/t/files|/try|--chdir|/try|"}));
    EXPECT_TRUE(Holds(line, {"|--ro-bind|/b/voltis|/voltis|--|/voltis|/try/a b.txt|"}));
}

TEST(SandboxRemedy, NamesTheSettingsForForbiddenNamespaces) {
    for (const char* said : {"bwrap: No permissions to create new namespace, likely because ...",
                             "bwrap: setting up uid map: Permission denied",
                             "bwrap: Creating new namespace failed: Operation not permitted"}) {
        EXPECT_TRUE(
            Holds(SandboxRemedy(said), {said, "kernel.unprivileged_userns_clone=1", "AppArmor"}));
    }
}

TEST(SandboxRemedy, RepeatsWhatElseBubblewrapSays) {
    EXPECT_EQ(SandboxRemedy("bwrap: Can't find source path /x: No such file\nmore"),
              "The sandbox could not be made: bwrap: Can't find source path /x: No such file");
}

TEST(voltisctlTry, TellsHowToGetAMissingBubblewrap) {
    const Answer answer =
        Try({examples + "/first-receipt.txt", "--driver", "/bin/true"}, {"PATH=/no/such/folder"});
    EXPECT_EQ(answer.exitCode, 3);
    EXPECT_TRUE(Holds(answer.text, {"bwrap: not found", "apt install bubblewrap"}));
}

TEST(voltisctlTry, TellsHowToAllowForbiddenNamespaces) {
    const TempDir folder;
    Script(folder, "bwrap", "echo 'bwrap: No permissions to create new namespace' >&2; exit 1");
    const Answer answer =
        Try({examples + "/first-receipt.txt", "--driver", "/bin/true"}, {"PATH=" + folder.Path()});
    EXPECT_EQ(answer.exitCode, 3);
    EXPECT_TRUE(Holds(answer.text, {"kernel.unprivileged_userns_clone=1"}));
}

// --- configuration and private folder -------------------------------------------------------

TEST(DriverSettings, OverrideAKeyWhateverItsLetterCase) {
    DriverSettings settings;
    settings.Set("ComNumber", "1");
    settings.Set("comnumber=2");
    settings.Set("ComSettings=data=7 parity=e");
    EXPECT_EQ(settings.Text(), "[VOLTIS]\nComNumber=2\nComSettings=data=7 parity=e\n");
}

TEST(TryFolder, GivesTheCopyANameThatTheDriverCanOpen) {
    const TempDir shop;
    TryFolder folder({});
    EXPECT_EQ(folder.Take(shop.Write("a\\b c.txt", "TOTAL")), "a_b c.txt");
    EXPECT_EQ(ReadFile(folder.Files() + "/a_b c.txt"), "TOTAL");
}

TEST(TryFolder, TakesTheResultOfAnEarlierRunAway) {
    const TempDir shop;
    DriverSettings settings;
    settings.Set("ResultFileName", "/some/where/out.txt");
    TryFolder folder(settings);
    std::ofstream(folder.Files() + "/out.txt") << "old";
    EXPECT_EQ(folder.Result(), "old");
    folder.Take(shop.Write("x.txt", "TOTAL"));
    EXPECT_EQ(folder.Result(), "");
}

// --- what is typed at the register ----------------------------------------------------------

struct Keyed : testing::Test {
    emulator::Register device{ConfigFor({})};
};

TEST_F(Keyed, TurnsTheKey) {
    EXPECT_EQ(Obey(device, "key off"), "done");
    EXPECT_EQ(device.GetKeylock(), emulator::Keylock::Off);
    EXPECT_EQ(Obey(device, "  key   reg \r"), "done");
    EXPECT_EQ(device.GetKeylock(), emulator::Keylock::Reg);
}

TEST_F(Keyed, TakesPaperOutAndPutsItIn) {
    Obey(device, "paper out");
    EXPECT_FALSE(device.HasReceiptPaper());
    Obey(device, "paper in");
    EXPECT_TRUE(device.HasReceiptPaper());
}

TEST_F(Keyed, SwitchesThePower) {
    Obey(device, "power off");
    EXPECT_FALSE(device.Powered());
    Obey(device, "power on");
    EXPECT_TRUE(device.Powered());
}

TEST_F(Keyed, FinishTellsThatNoReceiptIsOpen) {
    EXPECT_EQ(Obey(device, "finish"), KeyResultText(emulator::KeyResult::NoReceipt));
}

TEST_F(Keyed, StatusTellsTheState) {
    Obey(device, "key off");
    const std::string status = Obey(device, "status");
    EXPECT_TRUE(
        Holds(status, {"ocelot, protocol 2", "key      OFF", "receipt  none open", "paper    in"}));
}

TEST_F(Keyed, HelpListsEveryLine) {
    const std::string help = Obey(device, "help");
    for (const char* line : {"finish", "key reg", "key off", "paper out", "paper in", "power off",
                             "power on", "status", "help"}) {
        EXPECT_TRUE(Holds(help, {line}));
    }
}

TEST_F(Keyed, ALineThatIsNotUnderstoodIsAnsweredWithAHint) {
    EXPECT_EQ(Obey(device, "dance"), "'dance' is not understood; help lists what is");
    EXPECT_EQ(Obey(device, "  "), "");
}

// --- emulate --------------------------------------------------------------------------------

namespace {

std::string PtyOf(Tool& tool) {
    std::string path = tool.SaidUpTo("\n");
    path.pop_back();
    return path;
}

bool IsTerminal(const std::string& path) {
    struct stat info {};
    return stat(path.c_str(), &info) == 0 && S_ISCHR(info.st_mode);
}

// The driver on one example, with the register of a running `voltisctl emulate`. The exit code.
int DriveAt(const std::string& device, const std::string& example) {
    DriverSettings settings;
    settings.Set("ComNumber", "1");
    const TryFolder folder(settings);
    fs::copy(examples + "/" + example, folder.Files());
    SandboxedRun run({VOLTIS_PATH, folder.Files(), folder.Ini(), folder.Logs(), device},
                     {"/try/" + example});
    EXPECT_TRUE(Eventually([&] { return run.Ended(); }));
    return run.ExitCode();
}

}  // namespace

TEST(voltisctlEmulate, PrintsThePtyFirst) {
    Tool tool({"emulate"});
    EXPECT_TRUE(IsTerminal(PtyOf(tool)));
}

TEST(voltisctlEmulate, KeepsALinkUntilItIsInterrupted) {
    for (const int signal : {SIGINT, SIGTERM}) {
        const TempDir folder;
        const std::string link = folder.File("register");
        Tool tool({"emulate", "--link", link});
        const std::string pty = PtyOf(tool);
        EXPECT_EQ(fs::read_symlink(link), pty);
        tool.Signal(signal);
        EXPECT_EQ(tool.Wait(), 0);
        EXPECT_FALSE(fs::is_symlink(link));
    }
}

TEST(voltisctlEmulate, ObeysTypedLines) {
    Tool tool({"emulate", "--model", "puma", "--protocol", "1"});
    PtyOf(tool);
    tool.Type("key off");
    tool.SaidUpTo("done\n");
    tool.Type("status");
    const std::string status = tool.SaidUpTo("result   0\n");
    EXPECT_TRUE(Holds(status, {"puma, protocol 1", "OFF"}));
}

TEST(voltisctlEmulate, OutlivesTheEndOfItsInput) {
    Tool tool({"emulate"});
    const std::string pty = PtyOf(tool);
    tool.CloseInput();
    EXPECT_EQ(DriveAt(pty, "first-receipt.txt"), 0);  // the register is still there
    tool.Signal(SIGTERM);
    EXPECT_EQ(tool.Wait(), 0);
}

TEST(voltisctlEmulate, PrintsTheTapeAsItGrows) {
    Tool tool({"emulate"});
    EXPECT_EQ(DriveAt(PtyOf(tool), "first-receipt.txt"), 0);
    EXPECT_TRUE(Holds(tool.SaidUpTo("CHANGE"), {"Apple tart"}));
    tool.Type("status");
    EXPECT_TRUE(Holds(tool.SaidUpTo("drawer"), {"last number 1\n"}));
}

TEST(voltisctlEmulate, ServesOneRunAfterTheOther) {
    Tool tool({"emulate"});
    const std::string pty = PtyOf(tool);
    EXPECT_EQ(DriveAt(pty, "first-receipt.txt"), 0);
    EXPECT_EQ(DriveAt(pty, "first-receipt.txt"), 0);
    EXPECT_EQ(DriveAt(pty, "refused-command.txt"), 101);
}

TEST(voltisctlEmulate, FinishClosesAReceiptThatWasLeftOpen) {
    Tool tool({"emulate"});
    EXPECT_EQ(DriveAt(PtyOf(tool), "refused-command.txt"), 101);
    tool.Type("finish");
    tool.SaidUpTo(std::string(KeyResultText(emulator::KeyResult::Done)) + "\n");
    tool.Type("status");
    EXPECT_TRUE(Holds(tool.SaidUpTo("drawer"), {"none open"}));
}

TEST(voltisctlEmulate, DrawsEachReceiptIntoAFileOfItsOwn) {
    const TempDir folder;
    Tool tool({"emulate", "--svg", folder.File("pictures")});
    const std::string pty = PtyOf(tool);
    DriveAt(pty, "first-receipt.txt");
    DriveAt(pty, "first-receipt.txt");
    EXPECT_TRUE(Holds(ReadWholeFile(folder.File("pictures/001-receipt-1.svg")), {"<svg"}));
    EXPECT_TRUE(fs::exists(folder.File("pictures/002-receipt-2.svg")));
    EXPECT_EQ(EntriesIn(folder.File("pictures")), 2);
}

// --- try ------------------------------------------------------------------------------------

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
    EXPECT_EQ(answer.exitCode, 3);
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
    ASSERT_TRUE(Eventually([&] {
        for (const auto& entry : fs::recursive_directory_iterator(temporary.Path())) {
            if (entry.path().filename() == "begun") return true;
        }
        return false;
    }));
    tool.Signal(SIGINT);
    EXPECT_EQ(tool.Wait(), 128 + SIGINT);
    EXPECT_TRUE(fs::is_empty(temporary.Path()));
}

struct Desk {
    const char* model;
    const char* protocol;
    const char* frames;

    friend void PrintTo(const Desk& desk, std::ostream* out) {
        *out << desk.model << desk.protocol << " in " << desk.frames << " frames";
    }
};

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
