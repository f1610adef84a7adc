// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/doctor/Jobs.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <vector>

#include "companion/doctor/System.h"
#include "companion/journal/Journal.h"
#include "companion/journal/Place.h"

namespace doctor {

namespace {

std::string Counted(std::size_t count, const std::string& rest) {
    return std::to_string(count) + (count == 1 ? " job" : " jobs") + rest;
}

std::size_t CountIn(const journal::Journal& open, journal::State state, const std::string& before) {
    journal::Filter filter;
    filter.state = state;
    const std::vector<journal::Job> jobs = open.List(filter);
    return static_cast<std::size_t>(std::ranges::count_if(
        jobs, [&](const journal::Job& job) { return before.empty() || job.received < before; }));
}

// A run takes minutes at most, and a caller that waits for a register mostly less than an hour.
void CheckJobs(const journal::Journal& open, std::chrono::system_clock::time_point now,
               Findings& findings) {
    const std::size_t inDoubt = CountIn(open, journal::State::InDoubt, "");
    const std::string anHourAgo = journal::TimeText(now - std::chrono::hours(1));
    const std::size_t cutOff = CountIn(open, journal::State::Sending, anHourAgo);
    if (inDoubt != 0) {
        findings.push_back({Severity::Warning, "jobs-in-doubt", Counted(inDoubt, " in doubt"),
                            "`voltisctl jobs` lists them; look at the tape, and decide each with "
                            "`voltisctl resolve`."});
    }
    if (cutOff != 0) {
        findings.push_back({Severity::Warning, "jobs-cut-off",
                            Counted(cutOff, " cut off while it was sent: nobody has asked since"),
                            "`voltisctl run` of the same job finds out what became of it."});
    }
}

// --- the file -----------------------------------------------------------------------------------

// What SQLite has beside the file while it is in use, and mostly afterwards, too. path: without
// links, for it is beside the file that they lead to.
std::vector<std::string> FilesOf(const std::string& path) {
    return {path, path + "-wal", path + "-shm"};
}

std::string RealPath(const std::string& path) {
    std::error_code error;
    const std::filesystem::path real = std::filesystem::weakly_canonical(path, error);
    return error ? path : real.string();
}

bool MayRead(const std::string& path) {
    return std::ranges::all_of(FilesOf(RealPath(path)), [](const std::string& file) {
        return faccessat(AT_FDCWD, file.c_str(), R_OK, AT_EACCESS) == 0 || errno == ENOENT;
    });
}

// As of a copy that was made without the index.
bool NeedsAWrite(const std::string& path) {
    std::error_code error;
    const std::string real = RealPath(path);
    const auto changes = std::filesystem::file_size(real + "-wal", error);
    return !error && changes != 0 && !std::filesystem::exists(real + "-shm", error);
}

Finding NotSeen(const std::string& why, const char* remedy) {
    return {Severity::Note, "journal-not-seen", why, remedy};
}

Finding Damaged(const std::string& path, const std::string& damage) {
    return {Severity::Error, "journal-damaged",
            "the journal " + Quoted(path) + " is damaged: " + Private(damage),
            "Move it away, and keep it: the next run makes a new one, which knows nothing of the "
            "jobs so far."};
}

// --- looks at it --------------------------------------------------------------------------------

// What one reading came to: what hindered it, or what of its jobs is worth knowing.
struct Look {
    std::optional<Finding> trouble;
    Findings findings = {};
};

Look LookInto(const std::string& path, std::chrono::system_clock::time_point now) try {
    const std::optional<journal::Journal> open = journal::Journal::ForReading(path);
    if (!open) return {};
    const std::string damage = open->Damage();
    if (!damage.empty()) return {Damaged(path, damage)};
    Look look;
    CheckJobs(*open, now, look.findings);
    return look;
} catch (const journal::JournalError& failure) {
    return {Finding{Severity::Error, "journal-unusable", Private(failure.what()),
                    "Without its journal `voltisctl run` refuses every job: do as it says, or move "
                    "the file away, and keep it."}};
}

Look LookAt(const std::string& path, std::chrono::system_clock::time_point now) {
    if (!MayRead(path)) {
        return {NotSeen("this account may not read the journal " + Quoted(path),
                        "Ask as the account that prints, or as root.")};
    }
    if (NeedsAWrite(path)) {
        return {NotSeen("the journal " + Quoted(path) +
                            " has changes beside it (-wal) without their index (-shm), which only "
                            "a write brings in",
                        "`voltisctl jobs` brings them in; then ask again.")};
    }
    return LookInto(path, now);
}

// What a write changes: which files there are, their sizes, and when they were written.
using Traces = std::vector<std::array<std::int64_t, 4>>;

// Of the index readers change the contents, too: of that it is only whether it is there.
Traces TracesOf(const std::string& path) {
    Traces traces;
    for (const std::string& file : FilesOf(RealPath(path))) {
        struct stat status = {};
        const bool there = stat(file.c_str(), &status) == 0;
        if (file.ends_with("-shm")) status = {};
        traces.push_back(
            {there ? 1 : 0, status.st_size, status.st_ctim.tv_sec, status.st_ctim.tv_nsec});
    }
    return traces;
}

Finding NeverAtRest(const std::string& path, const Finding& trouble) {
    return {
        Severity::Warning, "journal-not-seen",
        "the journal " + Quoted(path) +
            " was changed whenever it was read, and so not seen in one piece: " + trouble.message,
        "Ask again while no job is run. Leave the file where it is."};
}

// --- rights -------------------------------------------------------------------------------------

std::string SiteJournal() {
    return std::string(journal::siteFolder) + "/" + journal::fileName;
}

bool MayUse(const Machine& machine, const std::string& path) {
    if (!machine.ClosedAbove(path).empty() || !machine.GrantsNewFolder(FolderOf(path)))
        return false;
    return std::ranges::all_of(FilesOf(machine.Resolved(path)), [&](const std::string& file) {
        return !machine.Refuses(file, Read | Write);
    });
}

Finding NoRights(const std::string& what, const std::string& remedy) {
    return {Severity::Error, "journal-rights", what + ": `voltisctl run` refuses every job",
            remedy};
}

std::string ToGroup(const char* mode, const std::string& path) {
    return "As root, `chgrp dialout " + Private(path) + "` and `chmod " + mode + " " +
           Private(path) + "`; the account must be in the group dialout.";
}

std::string OwnJournal(const Machine& machine) {
    return machine.account.home + "/.local/state/voltis/" + journal::fileName;
}

// An account without a home can use the machine's journal at least.
std::string RemedyForFolder(const Machine& machine, const std::string& path) {
    const std::string folder = path == OwnJournal(machine) ? journal::siteFolder : FolderOf(path);
    return machine.FactsOf(folder) ? ToGroup("2770", folder)
                                   : "As root, `install -d -m 2770 -g dialout " + Private(folder) +
                                         "`; the account must be in the group dialout.";
}

void CheckFolder(const Machine& machine, const std::string& path, Findings& findings) {
    const std::string folder = FolderOf(path);
    if (machine.GrantsNewFolder(folder)) return;
    const std::string who = "the account " + Quoted(machine.account.name);
    const bool there = machine.FactsOf(folder).has_value();
    findings.push_back(
        NoRights(there ? who + " may not write into the folder of the journal, " + Quoted(folder)
                       : "the folder of the journal, " + Quoted(folder) + ", is not there, and " +
                             who + " may not make it",
                 RemedyForFolder(machine, path)));
}

// Rights given to it would be given to the file that it leads to, which may be any.
Finding Linked(const Machine& machine, const std::string& file) {
    return {Severity::Error, "journal-link",
            "the journal's file " + Quoted(file) + " is a symbolic link to " +
                Quoted(machine.LinkAt(file)) + ": what SQLite writes to it goes there",
            "Find out who made it, for every account of the group could. To keep the journal "
            "elsewhere, move it there and link its folder."};
}

// What helps one of them helps all: SQLite gives those that it makes the rights of the journal.
void CheckFiles(const Machine& machine, const std::string& path, Findings& findings) {
    for (const std::string& file : FilesOf(path)) {
        if (machine.LinkAt(file).empty()) continue;
        findings.push_back(Linked(machine, file));
        return;
    }
    for (const std::string& file : FilesOf(path)) {
        if (!machine.Refuses(file, Read | Write)) continue;
        findings.push_back(NoRights("the account " + Quoted(machine.account.name) +
                                        " may not read and write the journal's file " +
                                        Quoted(file),
                                    ToGroup("660", path + "*")));
        return;
    }
}

// It is beside the journal, and belongs to the account that has made the first run.
void CheckRuns(const Machine& machine, const std::string& path, Findings& findings) {
    const std::string folder = FolderOf(path) + "/runs";
    if (!machine.FactsOf(folder) || machine.GrantsFolder(folder)) return;
    findings.push_back({Severity::Error, "runs-rights",
                        "the account " + Quoted(machine.account.name) +
                            " may not write into the folder of the runs, " + Quoted(folder) +
                            ": `voltisctl run` ends before it prints",
                        ToGroup("2770", folder)});
}

// Only what keeps the machine's journal from the account; a machine without one has no such folder.
void CheckOwn(const Machine& machine, const std::string& path, Findings& findings) {
    const bool hidden = !machine.ClosedAbove(SiteJournal()).empty();
    if (path == SiteJournal() || (!hidden && !machine.FactsOf(journal::siteFolder))) return;
    findings.push_back({Severity::Warning, "journal-own",
                        "the account " + Quoted(machine.account.name) +
                            " may not use the machine's journal, " + Quoted(SiteJournal()) +
                            ": its runs have one of their own, " + Quoted(path) +
                            ", which knows nothing of other accounts' jobs: what they have "
                            "printed is printed again",
                        "As root, give the folder " + Private(journal::siteFolder) +
                            " and the files in it to the group dialout, with the right to write; "
                            "the account must be in that group."});
}

}  // namespace

std::vector<std::string> JournalsOfRuns(const Machine& machine, const std::string& path) {
    const std::string site = SiteJournal();
    if (path == site) return {path};
    const bool hidden = !machine.ClosedAbove(site).empty();
    if (!hidden && !machine.FactsOf(site)) return {path};
    if (hidden || !MayUse(machine, site)) {
        throw std::runtime_error("the account '" + machine.account.name +
                                 "' may not use the machine's journal, '" + site +
                                 "', which may know of a job that was cut off; ask as the account "
                                 "that prints, or as root");
    }
    return {path, site};
}

// A file of the machine's journal that is closed but seen, or a folder that is closed to those who
// share it, makes `voltisctl run` refuse: it takes no other journal for that.
std::string JournalOf(const Machine& machine) {
    if (!machine.ClosedAbove(journal::siteFolder).empty()) return OwnJournal(machine);
    const auto there = machine.FactsOf(journal::siteFolder);
    const bool shared = there && (!S_ISDIR(there->mode) || there->uid == machine.account.uid ||
                                  machine.account.IsIn(there->gid));
    const bool seen = machine.Grants(journal::siteFolder, Right::Search) &&
                      machine.FactsOf(SiteJournal()).has_value();
    return shared || seen || machine.GrantsNewFolder(journal::siteFolder) ? SiteJournal()
                                                                          : OwnJournal(machine);
}

Findings CheckJournalRights(const Machine& machine, const std::string& path) {
    Findings findings;
    CheckOwn(machine, path, findings);
    Append(findings, CheckWay(machine, "the journal", path));
    if (!machine.ClosedAbove(path).empty()) return findings;
    CheckFolder(machine, path, findings);
    CheckFiles(machine, machine.Resolved(path), findings);
    CheckRuns(machine, path, findings);
    return findings;
}

// The pause is longer than the clock of the files takes to tick: a write after it, which the second
// look could see the half of, has another time than one before the first look.
void WaitForATick() {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
}

// A writer that the reader does not see shows as trouble. It counts when it comes twice, and nobody
// has written meanwhile.
Findings CheckJournal(const std::string& path, std::chrono::system_clock::time_point now,
                      const std::function<void()>& meanwhile) {
    constexpr int mostTimes = 5;
    Look look;
    for (int i = 0; i < mostTimes; ++i) {
        const Traces before = TracesOf(path);
        look = LookAt(path, now);
        if (!look.trouble) return look.findings;
        meanwhile();
        look = LookAt(path, now);
        if (!look.trouble) return look.findings;
        if (look.trouble->severity == Severity::Note || TracesOf(path) == before)
            return {*look.trouble};
    }
    return {NeverAtRest(path, *look.trouble)};
}

}  // namespace doctor
