// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ctl/Jobs.h"

#include <algorithm>
#include <array>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "ctl/JobChoice.h"
#include "ctl/Table.h"
#include "ctl/UsageError.h"

namespace {

using journal::Job;
using Json = nlohmann::ordered_json;

constexpr char jobsFooter[] =
    "Times are UTC. States: received (nothing was sent yet), sending (under way, or "
    "interrupted there), done (verdict printed or part), failed (not-printed: may be run "
    "again under its ID), in-doubt (unknown: look at the paper, then voltisctl resolve).\n"
    "The exit code is 0; 1 when there is no job of that ID."
    "\n\nExample:\n  voltisctl jobs --since 2026-11-01 --json";

struct JobsOptions {
    JobChoice choice;
    std::string registerName;
    std::string since;
    bool json = false;
};

TableRow RowOf(const Job& job) {
    return {std::to_string(job.number),
            job.received,
            Shown(job.registerName),
            Shown(job.id.value_or("")),
            Word(job.state),
            Shown(job.verdict),
            Shown(job.file)};
}

void PrintJobs(const std::vector<Job>& jobs) {
    std::vector<TableRow> table = {
        {"NUMBER", "RECEIVED", "REGISTER", "ID", "STATE", "VERDICT", "FILE"}};
    for (const Job& job : jobs) table.push_back(RowOf(job));
    if (jobs.empty()) {
        std::cout << "no jobs\n";
    } else {
        PrintTable(table);
    }
}

void PrintField(const char* name, const std::string& value) {
    if (!value.empty()) std::cout << name << ": " << Shown(value) << '\n';
}

void PrintAttempt(const Job& job) {
    PrintField("register", job.registerName);
    PrintField("file", job.file);
    PrintField("received", job.received);
    PrintField("ended", job.ended);
    PrintField("state", Word(job.state));
    PrintField("verdict", job.verdict);
    PrintField("exit code", job.exitCode ? std::to_string(*job.exitCode) : "");
    PrintField("resolved by", job.resolvedBy);
    PrintField("resolved at", job.resolvedAt);
    PrintField("note", job.note);
    PrintField("logs", job.logs);
    PrintField("outcome", job.outcome);
}

void PrintJob(const Job& job, const std::vector<Job>& history) {
    PrintField("number", std::to_string(job.number));
    PrintField("ID", job.id.value_or(""));
    PrintField("till", job.till);
    PrintField("withdrawn by", job.withdrawnBy);
    PrintAttempt(job);
    for (const Job& attempt : history) {
        std::cout << "--- an attempt before\n";
        PrintAttempt(attempt);
    }
    std::cout << "--- command file\n" << Shown(job.content, "\r\n\t");
    if (!job.content.ends_with('\n')) std::cout << '\n';
}

Json TextOrNull(const std::string& text) {
    return text.empty() ? Json() : Json(text);
}

// As an object, not as a text in a text.
Json OutcomeOf(const Job& job) {
    Json outcome = Json::parse(job.outcome, nullptr, false);
    return outcome.is_discarded() ? TextOrNull(job.outcome) : outcome;
}

Json ResolvedOf(const Job& job) {
    if (job.resolvedAt.empty()) return {};
    return {{"by", job.resolvedBy}, {"at", job.resolvedAt}, {"note", job.note}};
}

Json AttemptJson(const Job& job) {
    return {{"register", job.registerName},
            {"file", job.file},
            {"state", Word(job.state)},
            {"verdict", TextOrNull(job.verdict)},
            {"exit_code", job.exitCode ? Json(*job.exitCode) : Json()},
            {"received", job.received},
            {"ended", TextOrNull(job.ended)},
            {"resolved", ResolvedOf(job)},
            {"logs", TextOrNull(job.logs)},
            {"outcome", OutcomeOf(job)}};
}

Json JobJson(const Job& job) {
    Json json = {{"number", job.number}, {"id", job.id ? Json(*job.id) : Json()}};
    json.update(AttemptJson(job));
    return json;
}

Json WholeJson(const Job& job, const std::vector<Job>& history) {
    Json json = JobJson(job);
    json["content"] = job.content;
    json["attempts_before"] = Json::array();
    for (const Job& attempt : history) json["attempts_before"].push_back(AttemptJson(attempt));
    return json;
}

// File names and contents need not be UTF-8, which JSON must be.
void PrintJson(const Json& json) {
    std::cout << json.dump(2, ' ', false, Json::error_handler_t::replace) << '\n';
}

int ShowJob(JobsOptions& options) {
    const auto open = OpenJournal(options.choice);
    const std::optional<Job> job = FindJob(open, options.choice);
    if (!job) return exitNoSuchJob;
    const std::vector<Job> history = open->History(job->number);
    if (options.json) {
        PrintJson(WholeJson(*job, history));
    } else {
        PrintJob(*job, history);
    }
    return 0;
}

int ListJobs(JobsOptions& options) {
    const auto open = OpenJournal(options.choice);
    std::vector<Job> jobs;
    if (open) jobs = open->List({options.registerName, "", options.since, {}});
    if (!options.json) {
        PrintJobs(jobs);
        return 0;
    }
    Json all = Json::array();
    for (const Job& job : jobs) all.push_back(JobJson(job));
    PrintJson(all);
    return 0;
}

bool IsOfForm(const std::string& text, const std::string& form) {
    return std::ranges::equal(text, form, [](char is, char wanted) {
        return wanted == '0' ? is >= '0' && is <= '9' : is == wanted;
    });
}

void CheckSince(const std::string& since) {
    constexpr std::array forms = {"", "0000-00-00", "0000-00-00T00:00", "0000-00-00T00:00:00"};
    if (std::ranges::any_of(forms, [&](const char* form) { return IsOfForm(since, form); })) return;
    throw UsageError("--since wants a date such as 2024-05-31 or 2024-05-31T18:00 (UTC), not '" +
                     since + "'");
}

int ShowJobs(JobsOptions& options) {
    CheckSince(options.since);
    return options.choice.IsMade() ? ShowJob(options) : ListJobs(options);
}

}  // namespace

std::function<int()> BindJobs(CLI::App& command) {
    const auto options = std::make_shared<JobsOptions>();
    AddJobChoice(command, options->choice);
    command.add_option("--register", options->registerName, "Only jobs of this register")
        ->type_name("NAME");
    command.add_option("--since", options->since, "Only jobs received on that day (UTC) or later")
        ->type_name("DATE");
    command.add_flag("--json", options->json, "One JSON array, or object for one job");
    command.footer(jobsFooter);
    return [options] { return ShowJobs(*options); };
}
