// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ctl/Commands.h"

#include <CLI/CLI.hpp>
#include <exception>
#include <functional>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "ctl/Check.h"
#include "ctl/Completion.h"
#include "ctl/Doctor.h"
#include "ctl/Emulate.h"
#include "ctl/Explain.h"
#include "ctl/HelpText.h"
#include "ctl/Jobs.h"
#include "ctl/Replay.h"
#include "ctl/Resolve.h"
#include "ctl/Run.h"
#include "ctl/Status.h"
#include "ctl/Token.h"
#include "ctl/Trace.h"
#include "ctl/Try.h"
#include "ctl/UsageError.h"

namespace {

constexpr char programName[] = "voltisctl";
constexpr char description[] =
    "The companion of the fiscal printer driver: prints files exactly once and tells what "
    "was\nprinted; and an emulated register on the desk.";
constexpr char versionText[] = "voltisctl 2.5.0";  // of the project; a test compares them

using Action = std::function<int()>;

struct SubCommand {
    const char* name;
    const char* summary;
    Action (*bind)(CLI::App& command);  // adds the options; the action is run after the parsing
    bool isAnswer = true;               // what it prints; the others' exit code tells of a register
};

// A new sub-command is a row here and a unit that binds its options.
constexpr SubCommand subCommands[] = {
    {"check", "Find all mistakes of command files, without a register", BindCheck},
    {"completion", "Print what makes a shell complete voltisctl's words", BindCompletion},
    {"doctor", "Find what keeps a register from working on this machine", BindDoctor},
    {"emulate", "Run an emulated register at the end of a pseudo terminal", BindEmulate, false},
    {"explain", "Tell what a code or a message means, and what to do", BindExplain},
    {"jobs", "Show what became of the jobs in the journal", BindJobs},
    {"replay", "Answer a caller as the register did in a run of a debug log", BindReplay, false},
    {"resolve", "Decide by hand what became of a job in doubt", BindResolve},
    {"run", "Print a command file once, and tell what was printed", BindRun, false},
    {"status", "Ask a register of this site how it is", BindStatus, false},
    {"token", "Say which programs may use the service over the network", BindToken},
    {"trace", "Show what went over the line, from a debug log", BindTrace},
    {"try", "Run the driver on command files against an emulated register", BindTry, false},
};

int Report(const std::exception& failure, int exitCode) {
    std::cerr << "voltisctl: " << failure.what() << '\n';  // flushes by itself
    return exitCode;
}

// What is lost, on a full disk, would have been read as "nothing found".
int AndAllIsSaid(int exitCode) {
    if (std::cout.flush()) return exitCode;
    return Report(std::runtime_error("standard output cannot be written"), exitUsage);
}

// The options of all sub-commands. The callback of the one that is found while the arguments are
// parsed says what is to be done.
struct CommandLine {
    CommandLine() : app(description, programName) {
        app.set_version_flag("--version", versionText);
        app.formatter(std::make_shared<HelpText>());  // which the sub-commands take over
        app.require_subcommand(0, 1);                 // none: reported after an unknown word
        for (const SubCommand& row : subCommands) Add(row);
    }

    void Add(const SubCommand& row) {
        CLI::App* command = app.add_subcommand(row.name, row.summary);
        command->callback([this, &row, action = row.bind(*command)] {
            chosen = [&row, action] { return row.isAnswer ? AndAllIsSaid(action()) : action(); };
        });
    }

    CLI::App app;
    Action chosen;
};

}  // namespace

int RunVoltisctl(int argc, char** argv) {
    CommandLine line;
    try {
        line.app.parse(argc, argv);
        if (!line.chosen) throw CLI::RequiredError("A sub-command");
        return line.chosen();
    } catch (const CLI::ParseError& wrong) {
        return line.app.exit(wrong) == 0 ? 0 : exitUsage;  // 0: help or version
    } catch (const UsageError& wrong) {
        return Report(wrong, exitUsage);
    } catch (const std::exception& failure) {
        return Report(failure, exitUsage);
    }
}

std::vector<CommandWords> CommandLineWords() {
    const CommandLine line;
    std::vector<CommandWords> all = SubCommandWordsOf(line.app);
    all.insert(all.begin(), WordsOf(line.app));
    return all;
}

std::string MistakeIn(const std::vector<std::string>& arguments) {
    CommandLine line;
    try {
        line.app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
        return line.chosen ? "" : "a sub-command is missing";
    } catch (const CLI::ParseError& wrong) {
        return wrong.what();
    }
}
