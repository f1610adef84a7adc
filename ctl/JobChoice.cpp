// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ctl/JobChoice.h"

#include <iostream>

std::string ChosenJournal(const std::string& given, const std::string& id) {
    if (!given.empty()) return given;
    const journal::Place place = journal::Journal::DefaultPlace(id);
    if (!place.notice.empty()) std::cerr << "voltisctl: " << place.notice << '\n';
    return place.path;
}

void AddJournalOption(CLI::App& command, std::string& journal) {
    command
        .add_option("--journal", journal,
                    "The journal (default: /var/lib/voltis/journal.db; an account without rights "
                    "in that folder has one of its own, voltis/journal.db in $XDG_STATE_HOME, and "
                    "is told so)")
        ->type_name("PATH");
}

void AddJobChoice(CLI::App& command, JobChoice& choice) {
    CLI::Option* id = command.add_option("ID", choice.id, "The job's ID")->type_name("");
    command.add_option("--number", choice.number, "Its number instead, for a job without an ID")
        ->check(CLI::PositiveNumber)
        ->type_name("N")
        ->excludes(id);
    AddJournalOption(command, choice.journal);
}

std::optional<journal::Journal> OpenJournal(JobChoice& choice) {
    choice.journal = ChosenJournal(choice.journal, choice.id);
    if (journal::IsAbsent(choice.journal)) return std::nullopt;
    return std::optional<journal::Journal>(std::in_place, choice.journal);
}

std::optional<journal::Job> FindJob(const std::optional<journal::Journal>& open,
                                    const JobChoice& choice) {
    std::optional<journal::Job> job;
    if (open) job = choice.id.empty() ? open->Find(choice.number) : open->Find(choice.id);
    if (job) return job;
    const std::string name =
        choice.id.empty() ? "number " + std::to_string(choice.number) : "'" + choice.id + "'";
    std::cerr << "voltisctl: no job " << name << " in the journal '" << choice.journal << "'\n";
    return std::nullopt;
}
