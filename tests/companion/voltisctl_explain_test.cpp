// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// `voltisctl explain` from outside.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <iterator>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>

#include "tests/companion/Tool.h"
#include "tests/support/JsonSchema.h"
#include "tests/support/TempDir.h"

static Answer ExplainTo(const Words& words) {
    return RunTool(Words{"explain"} + words);
}

/// Real output, after it has passed the schema.
static nlohmann::json ExplainedJson(const Words& words, int exitCode) {
    const Answer answer = ExplainTo(words + Words{"--json"});
    EXPECT_EQ(answer.exitCode, exitCode);
    const auto told = nlohmann::json::parse(answer.text);
    const auto schema = nlohmann::json::parse(ReadWholeFile(SCHEMAS_DIR "/explain.schema.json"));
    EXPECT_THAT(MistakesBySchema(told, schema), testing::IsEmpty());
    return told;
}

TEST(voltisctlExplain, AnswersFourQuestionsAboutACode) {
    const Answer answer = ExplainTo({"104"});
    EXPECT_EQ(answer.exitCode, 0);
    EXPECT_EQ(answer.text,
              R"(error code 104: Incorrect keylock position. Please set keylock in REG position
  Exit code         2
  What happened     The register's key is not at REG, so it takes no commands.
  Paper moved?      No. The register was only asked for its status, and no
                    command of the file was sent.
  Safe to repeat?   Yes, the same file. It fails again until the cause is gone.
  What to do        Turn the key to REG and run the same file again.
)");
    const std::string page = ReadWholeFile(SCHEMAS_DIR "/../reference.md");
    EXPECT_NE(page.find("\n$ voltisctl explain 104\n" + answer.text), std::string::npos);
}

TEST(voltisctlExplain, ShowsBothMeaningsOfANumber) {
    const Answer answer = ExplainTo({"101"});
    EXPECT_EQ(answer.exitCode, 0);
    EXPECT_EQ(answer.text,
              R"(exit code 101: a failure after the driver had begun to send commands
  What happened     From the first command of the file on every failure ends
                    with 101. `voltisctl run` has it for the verdicts part and
                    unknown, and for printed when the register is not as a file
                    leaves it. It has nothing to do with the error code 101.
  Paper moved?      Perhaps: a beginning of the file is printed. That may be
                    nothing, and it may be all.
  Safe to repeat?   Not before somebody has looked at the paper. With `voltisctl
                    run` the same --job ID is always safe: it is answered and
                    prints nothing twice.
  What to do        Look at the paper and the register. The tape, or a file with
                    GET_STATUS, tells whether a receipt is open and which number
                    it has. `voltisctl run` tells what is certain, and
                    `voltisctl resolve` records what the paper says.

error code 101: ECR is busy or has incorrect network ID
  Exit code         2 or 101
  What happened     The register answered that it cannot take a command now, or
                    it has another NetworkID than the configuration.
  Paper moved?      With exit code 2 no. With 101 a beginning of the file may be
                    on the paper: nothing, part or all of it.
  Safe to repeat?   With exit code 2 yes. With 101 not before somebody has
                    looked at the paper. With `voltisctl run` the same --job ID
                    is always safe: it prints nothing twice.
  What to do        Wait until the register has finished what it is doing. When
                    it is always so, compare NetworkID with the register's
                    setting.
)");
}

TEST(voltisctlExplain, TakesTheWordsOfATextWithOrWithoutQuotes) {
    const std::string message =
        "Missing ';' after 'NAME = Apple' (file : '/pos/sale.txt' line : 3)";
    std::istringstream text(message);
    const Words words{std::istream_iterator<std::string>(text), {}};
    const Answer answer = ExplainTo({message});
    EXPECT_EQ(answer.exitCode, 0);
    EXPECT_EQ(answer.text, R"(message: Missing ';' after 'NAME = VALUE'
  Error code        1
  Exit code         1
  What happened     Something follows a value without a semicolon: often the
                    rest of a text with a blank in it.
  Paper moved?      No. The whole file is checked before its first command is
                    sent.
  Safe to repeat?   Yes: nothing of it was printed. But the same file fails
                    again until it is corrected.
  What to do        Put a text with blanks, or with one of : ; =, in double
                    quotes.
)");
    EXPECT_EQ(ExplainTo(words).text, answer.text);
}

TEST(voltisctlExplain, ExplainsARealResultFile) {
    const Answer run = Try({examples + "/syntax-error.txt"});
    const std::string result = Section(run.text, "result file");
    const std::string message = result.substr(result.find("Message="));
    const Answer answer = ExplainTo({message.substr(0, message.find('\n'))});
    EXPECT_EQ(answer.exitCode, 0);
    EXPECT_TRUE(Holds(answer.text, {"\n  Error code        1\n", "\n  What to do "})) << message;
}

TEST(voltisctlExplain, NamesTheNearestOfWhatItDoesNotKnow) {
    const Answer text = ExplainTo({"keylok", "position"});
    EXPECT_EQ(text.exitCode, 1);
    EXPECT_EQ(text.text, R"(voltisctl: there is no code or message 'keylok position'
The nearest are:
  error code 104: Incorrect keylock position. Please set keylock in REG position
)");
    const Answer code = ExplainTo({"109"});
    EXPECT_EQ(code.exitCode, 1);
    EXPECT_EQ(code.text, R"(voltisctl: there is no code or message '109'
The nearest are:
  error code 108: Receipt already finished
  error code 107: Receipt not started
  error code 106: Current receipt not finished
)");
    EXPECT_EQ(ExplainTo({"zzzz"}).text,
              "voltisctl: there is no code or message 'zzzz'\n`voltisctl explain` lists all.\n");
}

TEST(voltisctlExplain, ListsEverythingInEightyColumns) {
    const Answer answer = ExplainTo({});
    EXPECT_EQ(answer.exitCode, 0);
    EXPECT_TRUE(Holds(
        answer.text,
        {"Exit codes\n        0  everything was executed\n", "  129-192  ended by",
         "\nVerdicts of voltisctl run\n           printed\n",
         "\n      104  Incorrect keylock position. Please set keylock in REG position\n",
         "\nMessages of the driver, with their error codes\n        1  Command name is missing\n",
         "\n       50  no driver at 'X' - ...;", "\n           Comunication error\n"}));
    std::istringstream lines(answer.text);
    for (std::string line; std::getline(lines, line);) EXPECT_LE(line.size(), 80U) << line;
}

TEST(voltisctlExplain, IsJsonByItsSchema) {
    const auto one = ExplainedJson({"104"}, 0);
    EXPECT_EQ(one["query"], "104");
    ASSERT_EQ(one["entries"].size(), 1U);
    EXPECT_EQ(one["entries"][0]["may_paper_have_moved"]["answer"], "no");
    EXPECT_EQ(one["entries"][0]["exit_codes"], nlohmann::json({2}));
    EXPECT_EQ(ExplainedJson({"251"}, 0)["entries"][0]["last_code"], 299);
    EXPECT_EQ(ExplainedJson({"109"}, 1)["nearest"][0]["code"], 108);
    EXPECT_TRUE(ExplainedJson({"\xff"}, 1)["entries"].empty());
    const auto all = ExplainedJson({}, 0);
    EXPECT_TRUE(all["query"].is_null());
    EXPECT_GT(all["entries"].size(), 150U);
}

TEST(voltisctlExplain, HelpEndsWithAnExample) {
    const Answer answer = ExplainTo({"--help"});
    EXPECT_EQ(answer.exitCode, 0);
    EXPECT_TRUE(Holds(answer.text, {"CODE|TEXT", "--json", "The exit code is 0;",
                                    "\nExample:\n  voltisctl explain \"Wrong"}));
    EXPECT_FALSE(Holds(answer.text, {"--write-page"}));
    EXPECT_EQ(ExplainTo({"--wings"}).exitCode, 2);
}
