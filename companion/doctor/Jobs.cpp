#include "companion/doctor/Jobs.h"

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <system_error>

#include "companion/journal/Journal.h"

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

bool HasBytes(const std::string& path) {
    std::error_code error;
    const auto size = std::filesystem::file_size(path, error);
    return !error && size != 0;
}

}  // namespace

Findings CheckJournal(const std::string& path, std::chrono::system_clock::time_point now) {
    if (!HasBytes(path)) return {};  // the first job makes it
    Findings findings;
    try {
        const journal::Journal open(path);
        const std::string damage = open.Damage();
        if (damage.empty()) {
            CheckJobs(open, now, findings);
            return findings;
        }
        findings.push_back({Severity::Error, "journal-damaged",
                            "the journal " + Quoted(path) + " is damaged: " + Private(damage),
                            "Move it away, and keep it: the next run makes a new one, which knows "
                            "nothing of the jobs so far."});
    } catch (const journal::JournalError& failure) {
        findings.push_back({Severity::Error, "journal-unusable", Private(failure.what()),
                            "Without its journal `voltisctl run` refuses jobs with an ID: give "
                            "this account the right to read and write it, or move it away."});
    }
    return findings;
}

}  // namespace doctor
