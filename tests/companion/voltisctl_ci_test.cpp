// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The example of continuous integration in examples/ci/, as it is.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <string>

#include "tests/companion/Tool.h"
#include "tests/support/Programs.h"
#include "tests/support/TempDir.h"

namespace {

Answer Shell(const std::string& command) {
    FILE* const pipe = popen((command + " 2>&1").c_str(), "r");
    if (pipe == nullptr) return {-1, "popen failed"};
    std::string text;
    for (int c = getc(pipe); c != EOF; c = getc(pipe)) text += static_cast<char>(c);
    const int status = pclose(pipe);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, text};
}

Answer Workflow(const std::string& voltisctl, const std::string& results) {
    return Shell("VOLTISCTL='" + voltisctl + "' '" + examples + "/ci/workflow.sh' '" + results +
                 "'");
}

}  // namespace

TEST(ContinuousIntegration, TheWorkflowOfTheExamplePasses) {
    const TempDir results;
    const Answer answer = Workflow(VoltisctlPath(), results.Path());
    EXPECT_EQ(answer.exitCode, 0);
    EXPECT_EQ(answer.text,
              "ok      files\nok      sales\nok      caller\nresults in " + results.Path() + "\n");
    EXPECT_TRUE(Holds(ReadWholeFile(results.File("journal.jsonl")), {"\"event\": \"stop\""}));
}

TEST(ContinuousIntegration, TheWorkflowFailsWithItsSteps) {
    const TempDir results;
    const TempDir folder;
    const std::string broken = Script(folder, "broken", "echo out of order; exit 3");
    const Answer answer = Workflow(broken, results.Path());
    EXPECT_EQ(answer.exitCode, 1);
    EXPECT_TRUE(Holds(answer.text, {"FAILED  files (exit status 3)\n        out of order\n",
                                    "FAILED  sales", "exit code 3 instead of 0"}));
}
