// `voltisctl emulate` from outside.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include "companion/runner/DriverSettings.h"
#include "companion/runner/Sandbox.h"
#include "companion/workbench/Defaults.h"
#include "companion/workbench/WorkFolder.h"
#include "emulator/Register.h"
#include "tests/companion/Tool.h"
#include "tests/support/TempDir.h"

namespace fs = std::filesystem;

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
int DriveAt(const std::string& device, const std::string& example,
            emulator::WireFamily frames = emulator::WireFamily::Ocelot) {
    runner::DriverSettings settings = workbench::FrameSettings(frames);
    settings.Set("ComNumber", "1");
    workbench::WorkFolder folder(settings);
    folder.Take(examples + "/" + example);
    runner::SandboxPlan plan = folder.Prepare(device);
    plan.driver = VOLTIS_PATH;
    plan.files = folder.Files().Path();
    runner::SandboxedRun run(plan, {runner::insideDriver, example});
    EXPECT_TRUE(Eventually([&] { return run.Ended(); }));
    return run.ExitCode();
}

std::string OutputOf(const std::string& command) {
    FILE* const pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) return "popen failed";
    std::string text;
    for (int c = getc(pipe); c != EOF; c = getc(pipe)) text += static_cast<char>(c);
    pclose(pipe);
    return text;
}

}  // namespace

TEST(voltisctlEmulate, PrintsThePtyFirst) {
    Tool tool({"emulate", "--strict"});
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
    Tool tool({"emulate", "--strict"});
    const std::string pty = PtyOf(tool);
    tool.CloseInput();
    EXPECT_EQ(DriveAt(pty, "first-receipt.txt"), 0);  // the register is still there
    tool.Signal(SIGTERM);
    EXPECT_EQ(tool.Wait(), 0);
}

TEST(voltisctlEmulate, PrintsTheTapeAsItGrows) {
    Tool tool({"emulate", "--strict"});
    EXPECT_EQ(DriveAt(PtyOf(tool), "first-receipt.txt"), 0);
    EXPECT_TRUE(Holds(tool.SaidUpTo("CHANGE"), {"Apple tart"}));
    tool.Type("status");
    EXPECT_TRUE(Holds(tool.SaidUpTo("drawer"), {"last number 1\n"}));
}

TEST(voltisctlEmulate, ServesOneRunAfterTheOther) {
    Tool tool({"emulate", "--strict"});
    const std::string pty = PtyOf(tool);
    EXPECT_EQ(DriveAt(pty, "first-receipt.txt"), 0);
    EXPECT_EQ(DriveAt(pty, "first-receipt.txt"), 0);
    EXPECT_EQ(DriveAt(pty, "refused-command.txt"), 101);
}

TEST(voltisctlEmulate, SpeaksTheModelsOwnFramesUnlessToldOtherwise) {
    Tool own({"emulate", "--strict", "--model", "margay"});
    EXPECT_EQ(DriveAt(PtyOf(own), "first-receipt.txt", emulator::WireFamily::Margay), 0);
    Tool other({"emulate", "--strict", "--model", "margay", "--frames", "ocelot"});
    EXPECT_EQ(DriveAt(PtyOf(other), "first-receipt.txt", emulator::WireFamily::Ocelot), 0);
}

TEST(voltisctlEmulate, GivesTheRegisterTheHabitsThatAreNamed) {
    const TempDir folder;
    const std::string stray = Script(folder, "stray", Conversation(strayEof));
    Tool tool({"emulate", "--habit", "answers-stray-eof"});
    EXPECT_EQ(OutputOf("line=" + PtyOf(tool) + " " + stray), " d9 06 df 42\n");
    Tool other({"emulate", "--habit", "number-only"});
    EXPECT_EQ(OutputOf("line=" + PtyOf(other) + " " + stray), "");
}

constexpr char acknowledged[] = " d9 06 df 42\n", refused[] = " d9 15 cc 46\n";

TEST(voltisctlEmulate, PrintsTheComplaintsOfAStrictRegister) {
    const TempDir folder;
    const std::string late = Script(folder, "late", Conversation(enteringLate));
    Tool tool({"emulate", "--strict"});
    EXPECT_EQ(OutputOf("line=" + PtyOf(tool) + " " + late), acknowledged + std::string(refused));
    tool.SaidUpTo("complaint: number 2 after 0\n");
}

TEST(voltisctlEmulate, HasALenientRegisterUnlessToldOtherwise) {
    const TempDir folder;
    const std::string late = Script(folder, "late", Conversation(enteringLate));
    Tool tool({"emulate"});
    EXPECT_EQ(OutputOf("line=" + PtyOf(tool) + " " + late),
              acknowledged + std::string(acknowledged));
}

TEST(voltisctlEmulate, FinishClosesAReceiptThatWasLeftOpen) {
    Tool tool({"emulate", "--strict"});
    EXPECT_EQ(DriveAt(PtyOf(tool), "refused-command.txt"), 101);
    tool.Type("finish");
    tool.SaidUpTo(std::string(KeyResultText(emulator::KeyResult::Done)) + "\n");
    tool.Type("status");
    EXPECT_TRUE(Holds(tool.SaidUpTo("drawer"), {"none open"}));
}

TEST(voltisctlEmulate, DrawsEachReceiptIntoAFileOfItsOwn) {
    const TempDir folder;
    Tool tool({"emulate", "--strict", "--svg", folder.File("pictures")});
    const std::string pty = PtyOf(tool);
    DriveAt(pty, "first-receipt.txt");
    DriveAt(pty, "first-receipt.txt");
    EXPECT_TRUE(Holds(ReadWholeFile(folder.File("pictures/001-receipt-1.svg")), {"<svg"}));
    EXPECT_TRUE(fs::exists(folder.File("pictures/002-receipt-2.svg")));
    EXPECT_EQ(EntriesIn(folder.File("pictures")), 2);
}
