// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The command line of voltisctl.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <ostream>
#include <sstream>
#include <string>

#include "emulator/Habit.h"
#include "tests/companion/Tool.h"
#include "tests/support/Programs.h"

TEST(voltisctl, HelpListsItsSubCommands) {
    const Answer answer = RunTool({"--help"});
    EXPECT_EQ(answer.exitCode, 0);
    EXPECT_TRUE(Holds(answer.text, {"emulate", "try"}));
}

TEST(voltisctl, HelpOfTryNamesEveryOptionAndTheExitCodes) {
    const Answer answer = RunTool({"try", "--help"});
    EXPECT_EQ(answer.exitCode, 0);
    for (const char* word :
         {"FILE", "--model", "--protocol", "--frames", "--habit", "--strict", "--ini", "--log",
          "--svg", "--driver", "--timeout", "exit code", "bubblewrap"}) {
        EXPECT_TRUE(Holds(answer.text, {word}));
    }
}

TEST(voltisctl, HelpOfEmulateTellsHowToReachThePtyAndWhatToType) {
    const Answer answer = RunTool({"emulate", "--help"});
    EXPECT_EQ(answer.exitCode, 0);
    for (const char* word :
         {"--link", "--svg", "--habit", "--strict", "/dev/ttyS<n>", "ln -sf", "finish", "key reg",
          "key off", "paper out", "paper in", "power off", "power on", "status"}) {
        EXPECT_TRUE(Holds(answer.text, {word}));
    }
}

TEST(voltisctl, HelpEndsWithZeroEvenBesideAWrongOption) {
    for (const Words& words : {Words{"-h"}, Words{"try", "-h"}, Words{"emulate", "--help"},
                               Words{"try", "--help", "--wings"}}) {
        EXPECT_EQ(RunTool(words).exitCode, 0);
    }
}

TEST(voltisctl, HelpHasEightyColumnsAndEndsWithAnExample) {
    for (const std::string& command : SubCommandsOfHelp()) {
        const std::string text = RunTool({command, "--help"}).text;
        const std::size_t example = text.find("\nExample:\n  voltisctl ");
        ASSERT_NE(example, std::string::npos) << command;
        EXPECT_EQ(
            std::count(text.begin() + static_cast<std::ptrdiff_t>(example) + 1, text.end(), '\n'),
            2);
        std::istringstream lines(text);
        for (std::string line; std::getline(lines, line);) EXPECT_LE(line.size(), 80U) << line;
    }
}

TEST(voltisctl, EndsWithTwoWhenItsAnswerIsLost) {
    for (const char* command : {"explain 104", "check " EXAMPLES_DIR "/syntax-error.txt",
                                "jobs --journal /no/such", "completion bash"}) {
        const std::string line = VoltisctlPath() + " " + command + " 2>&1 >/dev/full";
        FILE* const said = popen(line.c_str(), "r");
        ASSERT_NE(said, nullptr);
        std::string text;
        for (int c = 0; (c = std::fgetc(said)) != EOF;) text += static_cast<char>(c);
        const int status = pclose(said);
        EXPECT_EQ(WEXITSTATUS(status), 2) << command;
        EXPECT_EQ(text, "voltisctl: standard output cannot be written\n") << command;
    }
}

TEST(voltisctl, TellsTheVersionOfTheProject) {
    const Answer answer = RunTool({"--version"});
    EXPECT_EQ(answer.exitCode, 0);
    EXPECT_EQ(answer.text, "voltisctl " VOLTIS_VERSION "\n");
}

struct BadInput {
    const char* name;
    Words arguments;
    const char* message;

    friend void PrintTo(const BadInput& row, std::ostream* out) { *out << row.name; }
};

std::string NameOf(const testing::TestParamInfo<BadInput>& row) {
    return row.param.name;
}

testing::AssertionResult IsOneLineOfVoltisctl(const std::string& text) {
    if (text.rfind("voltisctl: ", 0) == 0 && std::count(text.begin(), text.end(), '\n') == 1)
        return testing::AssertionSuccess();
    return testing::AssertionFailure() << text;
}

constexpr char anExample[] = EXAMPLES_DIR "/syntax-error.txt";

// --- exit code 2: the command line is wrong --------------------------------------------------

class voltisctlRefusesUsage : public testing::TestWithParam<BadInput> {};

TEST_P(voltisctlRefusesUsage, WithExitCodeTwo) {
    const Answer answer = RunTool(GetParam().arguments);
    EXPECT_EQ(answer.exitCode, 2);
    EXPECT_TRUE(Holds(answer.text, {GetParam().message}));
}

INSTANTIATE_TEST_SUITE_P(
    TheParserFinds, voltisctlRefusesUsage,
    testing::Values(
        BadInput{"NoSubCommand", {}, "A sub-command is required"},
        BadInput{"AnUnknownSubCommand", {"fly"}, "not expected: fly"},
        BadInput{"AnUnknownOption", {"--wings"}, "not expected: --wings"},
        BadInput{"AnUnknownOptionOfTry", {"try", anExample, "--wings"}, "not expected: --wings"},
        BadInput{"AnUnknownOptionOfEmulate", {"emulate", "--wings"}, "not expected: --wings"},
        BadInput{"AWordTooMany", {"emulate", "x"}, "not expected: x"},
        BadInput{"NoFile", {"try"}, "FILE is required"},
        BadInput{"AnOptionWithoutItsValue", {"try", anExample, "--model"}, "--model"},
        BadInput{"AnUnknownModel", {"try", "x", "--model", "zebra"}, "zebra not in"},
        BadInput{"AnUnknownProtocol", {"try", "x", "--protocol", "3"}, "3 not in"},
        BadInput{"AProtocolThatIsNoNumber", {"try", "x", "--protocol", "two"}, "two"},
        BadInput{"UnknownFrames", {"emulate", "--frames", "puma"}, "puma not in"},
        BadInput{"AHabitWithoutAWord", {"try", anExample, "--habit"}, "--habit"},
        BadInput{"ANegativeTimeout", {"try", "x", "--timeout", "-1"}, "--timeout"},
        BadInput{"ATimeoutThatIsNoNumber", {"try", "x", "--timeout", "nan"}, "'nan' is no number"},
        BadInput{"AnEndlessTimeout", {"replay", "x", "--timeout", "inf"}, "'inf' is no number"}),
    NameOf);

TEST(voltisctl, AnswersAnUnknownHabitWithTheListOfAllWords) {
    for (const char* command : {"try", "emulate"}) {
        const Answer answer =
            RunTool({command, anExample, "--habit", "number-only", "--habit", "x"});
        EXPECT_EQ(answer.exitCode, 2);
        EXPECT_TRUE(Holds(answer.text, {"x not in"}));
        for (const emulator::HabitRow& row : emulator::HabitTable())
            EXPECT_TRUE(Holds(answer.text, {std::string(row.word)}));
    }
}

class voltisctlRefusesSense : public testing::TestWithParam<BadInput> {};

TEST_P(voltisctlRefusesSense, WithExitCodeTwoAndOneLine) {
    const Answer answer = RunTool(GetParam().arguments);
    EXPECT_EQ(answer.exitCode, 2);
    EXPECT_TRUE(Holds(answer.text, {GetParam().message}));
    EXPECT_TRUE(IsOneLineOfVoltisctl(answer.text));
}

INSTANTIATE_TEST_SUITE_P(
    ItFindsItself, voltisctlRefusesSense,
    testing::Values(
        BadInput{"AMissingFile",
                 {"try", "/no/such.txt"},
                 "cannot read '/no/such.txt' - No such file or directory"},
        BadInput{"AMissingFileAfterAGoodOne",
                 {"try", anExample, "/no/such.txt"},
                 "cannot read '/no/such.txt' - No such file or directory"},
        BadInput{"AFolder", {"try", "/"}, "cannot read '/' - Is a directory"},
        BadInput{"OnlySettings", {"try", "--ini", "A=1", "B=2"}, "no command file is named"},
        BadInput{"AModelWithoutThatProtocol",
                 {"emulate", "--model", "margay", "--protocol", "1"},
                 "there is no margay with protocol version 1"},
        BadInput{"AnIniWithoutEqualsSign",
                 {"try", anExample, "--ini", "CodePage"},
                 "'CodePage' is not KEY=VALUE"},
        BadInput{
            "AnIniWithoutKey", {"try", anExample, "--ini", "=DOS"}, "'=DOS' is not KEY=VALUE"}),
    NameOf);

TEST(voltisctl, RefusesAnIniOfTwoLinesWithExitCodeTwo) {
    const Answer answer = RunTool({"try", anExample, "--ini", "A=1\nB=2"});
    EXPECT_EQ(answer.exitCode, 2);
    EXPECT_TRUE(Holds(answer.text, {"is not KEY=VALUE"}));
}

// --- the command line is right, the work cannot be done -------------------------

class voltisctlCannot : public testing::TestWithParam<BadInput> {};

TEST_P(voltisctlCannot, AndEndsWithTwoAndOneLine) {
    const Answer answer = RunTool(GetParam().arguments);
    EXPECT_EQ(answer.exitCode, 2);
    EXPECT_TRUE(Holds(answer.text, {GetParam().message}));
    EXPECT_TRUE(IsOneLineOfVoltisctl(answer.text));
}

INSTANTIATE_TEST_SUITE_P(
    Do, voltisctlCannot,
    testing::Values(BadInput{"WithAMissingDriver",
                             {"try", anExample, "--driver", "/no/voltis"},
                             "no driver at '/no/voltis' - No such file or directory"},
                    BadInput{"WithALinkThatCannotBeMade",
                             {"emulate", "--link", "/no/such/folder/register"},
                             "/no/such/folder/register"},
                    BadInput{"WithAPictureFolderThatCannotBeMade",
                             {"emulate", "--svg", "/proc/no/such"},
                             "cannot make folder '/proc/no/such'"}),
    NameOf);
