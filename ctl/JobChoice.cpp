// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ctl/JobChoice.h"

#include <filesystem>
#include <iostream>

namespace {

std::string JournalPath(const JobChoice& choice) {
    return choice.journal.empty() ? journal::Journal::DefaultPath() : choice.journal;
}

}  // namespace

void AddJobChoice(CLI::App& command, JobChoice& choice) {
    CLI::Option* id = command.add_option("ID", choice.id, "The job's ID")->type_name("");
    command.add_option("--number", choice.number, "Its number instead, for a job without an ID")
        ->check(CLI::PositiveNumber)
        ->type_name("N")
        ->excludes(id);
    command
        .add_option("--journal", choice.journal,
                    "The journal (default: /var/lib/voltis/journal.db, without rights there "
                    "voltis/journal.db in $XDG_STATE_HOME)")
        ->type_name("PATH");
}

std::optional<journal::Journal> OpenJournal(const JobChoice& choice) {
    const std::string path = JournalPath(choice);
    std::error_code error;
    if (!std::filesystem::exists(path, error) && !error) return std::nullopt;
    return std::optional<journal::Journal>(std::in_place, path);
}

std::optional<journal::Job> FindJob(const std::optional<journal::Journal>& open,
                                    const JobChoice& choice) {
    std::optional<journal::Job> job;
    if (open) job = choice.id.empty() ? open->Find(choice.number) : open->Find(choice.id);
    if (job) return job;
    const std::string name =
        choice.id.empty() ? "number " + std::to_string(choice.number) : "'" + choice.id + "'";
    std::cerr << "voltisctl: no job " << name << " in the journal '" << JournalPath(choice)
              << "'\n";
    return std::nullopt;
}
