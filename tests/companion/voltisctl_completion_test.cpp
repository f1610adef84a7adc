// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// voltisctl completion, in real shells.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <set>
#include <sstream>
#include <string>

#include "tests/companion/Tool.h"
#include "tests/support/Programs.h"
#include "tests/support/Regex.h"
#include "tests/support/TempDir.h"

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::Not;

namespace {

using Offered = std::set<std::string>;

Offered LinesOf(const std::string& text) {
    Offered all;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        if (!line.empty()) all.insert(line);
    return all;
}

std::string SaidByShell(const std::string& shell, const std::string& script,
                        const Words& arguments) {
    const TempDir folder;
    std::string command =
        shell + " '" + folder.Write("script", script) + "' '" + VoltisctlPath() + "'";
    for (const std::string& argument : arguments) command += " '" + argument + "'";
    FILE* const said = popen(command.c_str(), "r");
    if (said == nullptr) return "not started";
    std::string text;
    for (int c = 0; (c = std::fgetc(said)) != EOF;) text += static_cast<char>(c);
    EXPECT_EQ(pclose(said), 0) << text;
    return text;
}

/// What bash offers for the last word. It cuts at `=`, as here.
Offered BashOffers(const Words& words) {
    constexpr char script[] = R"(set -eu
        source <("$1" completion bash)
        compopt() { echo "compopt $*"; }
        shift
        COMP_WORDS=("$@")
        COMP_CWORD=$(($# - 1))
        _voltisctl
        printf '%s\n' "${COMPREPLY[@]:-}"
        complete -p voltisctl >/dev/null)";
    return LinesOf(SaidByShell("bash", script, Words{"voltisctl"} + words));
}

/// What zsh's own completion is told of a sub-command: the specifications of _arguments.
Offered ZshSpecsOf(const std::string& command) {
    constexpr char script[] = R"(set -eu
        compdef() { }
        source <("$1" completion zsh)
        words=("$2")
        _arguments() {
            if [[ $1 == -C ]]; then state=argument; else print -rl -- "$@"; fi
        }
        _voltisctl)";
    return LinesOf(SaidByShell("zsh -f", script, {command}));
}

}  // namespace

TEST(voltisctlCompletion, OffersBashTheSubCommands) {
    const Offered commands = SubCommandsOfHelp();
    ASSERT_THAT(commands, IsSupersetOf({"check", "completion", "run", "try"}));
    Offered all = BashOffers({""});
    for (const char* option : {"-h", "--help", "--version"}) EXPECT_EQ(all.erase(option), 1U);
    EXPECT_EQ(all, commands);
    EXPECT_THAT(BashOffers({"e"}), ElementsAre("emulate", "explain"));
}

TEST(voltisctlCompletion, OffersBashTheOptionsOfEverySubCommand) {
    for (const std::string& command : SubCommandsOfHelp()) {
        const Offered options = OptionsOfHelp(command);
        EXPECT_THAT(options, Contains("--help")) << command;
        EXPECT_EQ(BashOffers({command, "-"}), options) << command;
    }
}

TEST(voltisctlCompletion, GoesOnAfterAnOptionWithoutAValue) {
    EXPECT_THAT(BashOffers({"emulate", "--strict", "--li"}), ElementsAre("--line-speed", "--link"));
    EXPECT_THAT(ZshSpecsOf("jobs"), Contains("--json[One JSON array, or object for one job]"));
}

TEST(voltisctlCompletion, OffersBashTheChoicesOfAnOption) {
    EXPECT_THAT(BashOffers({"check", "--format", ""}), ElementsAre("github", "json", "text"));
    EXPECT_THAT(BashOffers({"check", "--format", "=", "j"}), ElementsAre("json"));
    EXPECT_THAT(BashOffers({"check", "--format", "="}), ElementsAre("github", "json", "text"));
    EXPECT_THAT(BashOffers({"completion", "b"}), ElementsAre("bash"));
}

TEST(voltisctlCompletion, TellsTwoOperandsApart) {
    EXPECT_THAT(BashOffers({"token", ""}), ElementsAre("add", "list", "revoke"));
    EXPECT_THAT(BashOffers({"token", "revoke", ""}), ElementsAre("compopt +o default"));
    EXPECT_THAT(ZshSpecsOf("token"), IsSupersetOf({"1:ACTION:(add list revoke)", "2:NAME: "}));
}

TEST(voltisctlCompletion, LeavesFilesToBash) {
    EXPECT_THAT(BashOffers({"check", ""}), IsEmpty());
    EXPECT_THAT(BashOffers({"emulate", "--state", ""}), IsEmpty());
    EXPECT_THAT(BashOffers({"run", "--locks", "/us"}), ElementsAre("/usr"));
}

TEST(voltisctlCompletion, OffersBashNothingWhereOnlyAPersonKnows) {
    EXPECT_THAT(BashOffers({"run", "--job", ""}), ElementsAre("compopt +o default"));
    EXPECT_THAT(BashOffers({"status", ""}), ElementsAre("compopt +o default"));
}

TEST(voltisctlCompletion, OffersBashTheRegistersOfTheSite) {
    EXPECT_THAT(BashOffers({"status", "--register", "def"}), ElementsAre("default"));
}

TEST(voltisctlCompletion, TellsZshTheOptionsOfEverySubCommand) {
    for (const std::string& command : SubCommandsOfHelp()) {
        Offered options;
        for (const std::string& spec : ZshSpecsOf(command))
            if (const auto name = Regex(R"(^\*?(--?[a-z-]+)\[.*)").Match(spec))
                options.insert(name->at(1));
        EXPECT_EQ(options, OptionsOfHelp(command)) << command;
    }
}

TEST(voltisctlCompletion, TellsZshWhatAnOptionTakes) {
    EXPECT_THAT(ZshSpecsOf("check"),
                IsSupersetOf({"--format[How to tell what was found]:TEXT:(text json github)",
                              "*:FILE:_files"}));
    EXPECT_THAT(ZshSpecsOf("status"), Contains(testing::EndsWith(":_voltisctl_registers")));
    EXPECT_THAT(ZshSpecsOf("explain"), Not(Contains(testing::StartsWith("--write-page"))));
}

TEST(voltisctlCompletion, KnowsTwoShells) {
    const Answer answer = RunTool({"completion", "fish"});
    EXPECT_EQ(answer.exitCode, 2);
    EXPECT_TRUE(Holds(answer.text, {"fish"}));
}
