// The command line of voltisctl.
#include <gtest/gtest.h>

#include <algorithm>
#include <ostream>

#include "tests/companion/Tool.h"

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
