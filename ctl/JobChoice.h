// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Which journal, and which job in it: the same options for every sub-command about jobs.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <optional>
#include <string>

#include "companion/journal/Journal.h"

struct JobChoice {
    std::string journal;  // the path; empty: the default one
    std::string id;
    std::int64_t number = 0;  // 0: none

    bool IsMade() const { return !id.empty() || number != 0; }
};

void AddJobChoice(CLI::App& command, JobChoice& choice);
void AddJournalOption(CLI::App& command, std::string& journal);

/// The path that is given, else the default one for a job of that ID, which may be empty: then
/// standard error tells when the account has a journal of its own although the machine has one. To
/// be asked once.
std::string ChosenJournal(const std::string& given, const std::string& id);

/// The chosen journal, which is not made when it is missing: then nothing. Its path is in the
/// choice afterwards.
std::optional<journal::Journal> OpenJournal(JobChoice& choice);

/// The job; nothing, and a message on standard error, when there is no such job.
std::optional<journal::Job> FindJob(const std::optional<journal::Journal>& open,
                                    const JobChoice& choice);

/// The exit code for a job that is not there, or whose state does not allow it.
inline constexpr int exitNoSuchJob = 1;
