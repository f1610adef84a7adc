// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ctl/Resolve.h"

#include <iostream>
#include <memory>
#include <string>

#include "ctl/JobChoice.h"
#include "ctl/UsageError.h"
#include "ctl/UserName.h"

namespace {

constexpr char resolveFooter[] =
    "For a job in doubt, or one that was printed in part and has been completed or undone by "
    "hand.\n"
    "Look at the paper first: what is decided to be not-printed may be run again under its "
    "ID. The decision is kept in the journal, with the note, the user and the time.\n"
    "The exit code is 0; 1 when there is no such job, or nothing to decide."
    "\n\nExample:\n  voltisctl resolve 2026-4711 --as printed --note \"seen on the paper\"";

struct ResolveOptions {
    JobChoice choice;
    std::string verdict;
    std::string note;
};

void CheckResolve(const ResolveOptions& options) {
    if (!options.choice.IsMade()) throw UsageError("no job is named");
    if (options.note.find_first_not_of(" \t\r\n") == std::string::npos) {
        throw UsageError("--note is empty; say how it is known");
    }
}

int RefuseToResolve(const journal::WrongState& refusal, const journal::Job& job) {
    std::cerr << "voltisctl: " << refusal.what();
    if (job.state == journal::State::Sending) {
        std::cerr << "; run it again under its ID, which finds out what was printed";
    }
    std::cerr << '\n';
    return exitNoSuchJob;
}

int ResolveJob(ResolveOptions& options) {
    CheckResolve(options);
    auto open = OpenJournal(options.choice);
    const std::optional<journal::Job> job = FindJob(open, options.choice);
    if (!job) return exitNoSuchJob;
    const auto decision = options.verdict == journal::printed ? journal::Decision::Printed
                                                              : journal::Decision::NotPrinted;
    const std::string user = UserName();
    try {
        open->Resolve(job->number, decision, user, options.note);
    } catch (const journal::WrongState& refusal) {
        return RefuseToResolve(refusal, *job);
    }
    std::cout << "now " << options.verdict << ", decided by " << user << '\n';
    return 0;
}

}  // namespace

std::function<int()> BindResolve(CLI::App& command) {
    const auto options = std::make_shared<ResolveOptions>();
    AddJobChoice(command, options->choice);
    command.add_option("--as", options->verdict, "What became of it")
        ->required()
        ->check(CLI::IsMember({journal::printed, journal::notPrinted}));
    command.add_option("--note", options->note, "How that is known")->required()->type_name("TEXT");
    command.footer(resolveFooter);
    return [options] { return ResolveJob(*options); };
}
