// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ctl/Run.h"

#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "companion/job/Job.h"
#include "companion/job/Outcome.h"
#include "companion/journal/Journal.h"
#include "companion/runner/CodePage.h"
#include "companion/runner/DriverPath.h"
#include "companion/runner/Files.h"
#include "companion/runner/ResultPublication.h"
#include "ctl/HandOver.h"
#include "ctl/Interrupts.h"
#include "ctl/JobChoice.h"
#include "ctl/OutcomeText.h"
#include "ctl/ProgressBar.h"
#include "ctl/SiteOptions.h"
#include "ctl/UsageError.h"

namespace fs = std::filesystem;

namespace {

constexpr char runFooter[] =
    "What the caller may rely on:\n"
    "  exit 0    printed: all of the file, once\n"
    "  exit 1    not printed: a mistake in the file\n"
    "  exit 2    not printed, for another reason: the same file may be run again\n"
    "  exit 101  anything else: part of it was printed, or nobody can tell\n"
    "The result file beside the command file says the same. With --job the same ID and "
    "content are never printed twice: a repeated call gets the answer of the first one."
    "\n\nExample:\n  voltisctl run --job 2026-4711 --wait 30 sale.txt";

// Of the driver, for what a caller reads in the result file.
constexpr int errorCommandFile = 1;
constexpr int errorSystem = 50;

struct RunOptions {
    SiteOptions site;
    std::string file;
    std::optional<std::string> id;
    std::string encoding;
    std::string journal;  // never empty where it counts
    bool json = false;
};

void Tell(const job::Outcome& outcome, bool json) {
    if (json) {
        std::cout << job::ToJson(outcome) << '\n' << std::flush;
        return;
    }
    std::cout << ForPeople(outcome) << std::flush;
    if (const std::string why = WhyOf(outcome); !why.empty())
        std::cerr << "voltisctl: " << why << '\n';
}

job::Watcher WatcherOf(Interrupts& interrupts, ProgressBar& bar) {
    job::Watcher watcher;
    watcher.stopFd = interrupts.Fd();
    if (bar.Drawing())
        watcher.progress = [&](std::size_t done, const std::vector<plan::Command>& all) {
            bar.Show(done, all);
        };
    return watcher;
}

// This call has sent nothing. An earlier one with the same ID may have.
void DoubtEarlierCalls(const RunOptions& options, job::Outcome& outcome, bool oldFormat) {
    if (options.id && journal::Journal::PerhapsSent(options.journal, *options.id))
        job::BeInDoubt(outcome, oldFormat);
}

// One call: the register, the journal and the file are known.
class Call {
  public:
    Call(const RunOptions& options, Interrupts& interrupts)
        : options_(options), interrupts_(interrupts), profile_(ProfileFor(options.site)) {}

    job::Outcome Run() {
        runner::ResultPublication result(options_.file, profile_.resultFileName);
        result.RemoveOld();
        job::Outcome outcome = DoOrTell();
        Publish(result, outcome);
        return outcome;
    }

  private:
    // The verdict is true whether the file can be written or not.
    static void Publish(runner::ResultPublication& result, job::Outcome& outcome) {
        try {
            result.Publish(outcome.result);
        } catch (const std::exception& failure) {
            outcome.reason += (outcome.reason.empty() ? "" : "\n") + std::string(failure.what());
        }
    }

    job::Outcome DoOrTell() {
        try {
            return Do();
        } catch (const std::exception& failure) {  // before the job was begun
            return Unbegun(job::exitNotPrinted, failure.what());
        }
    }

    job::Outcome Do() {
        std::string content;
        try {
            content = runner::ReadFile(options_.file);
        } catch (const std::exception& failure) {
            return Unbegun(job::exitMistake, failure.what());
        }
        try {
            if (!options_.encoding.empty()) content = runner::FromUtf8(content, profile_.codePage);
        } catch (const runner::CodePageError& mistake) {
            return Refuse(job::exitMistake, errorCommandFile, mistake.what());
        }
        return Print(content);
    }

    job::Outcome Print(const std::string& content) {
        const std::string path = options_.journal;
        journal::Journal journal(path);
        job::Site site;
        site.driver = runner::DriverPath(options_.site.driver);
        site.locks = options_.site.locks;
        site.logs = options_.site.logs;
        job::Jobs jobs(journal, profile_, site,
                       fs::absolute(path).parent_path().string() + "/runs");
        ProgressBar bar;
        runner::LockWait wait = WaitFor(options_.site);
        wait.goOn = [&] { return interrupts_.Take() == 0; };
        const job::Request request{options_.id, options_.file, content, wait};
        const job::Watcher watcher =
            options_.json ? job::Watcher{interrupts_.Fd(), {}} : WatcherOf(interrupts_, bar);
        if (const auto socket = journal.ServedAt(profile_.name)) {
            HandOver handOver({journal, jobs, profile_, *socket}, request, watcher);
            if (auto outcome = handOver.Do()) return *std::move(outcome);
        }
        return jobs.Do(request, watcher);
    }

    job::Outcome Refuse(int exitCode, int errorCode, const std::string& reason) const {
        job::Outcome outcome;
        outcome.id = options_.id;
        outcome.registerName = profile_.name;
        job::SettleUnsent(outcome, profile_.oldResultFileFormat, exitCode, errorCode, reason);
        return outcome;
    }

    job::Outcome Unbegun(int exitCode, const std::string& reason) const {
        job::Outcome outcome = Refuse(exitCode, errorSystem, reason);
        DoubtEarlierCalls(options_, outcome, profile_.oldResultFileFormat);
        return outcome;
    }

    const RunOptions& options_;
    Interrupts& interrupts_;
    const runner::Profile profile_;
};

job::Outcome NothingSent(const RunOptions& options, const std::string& reason) {
    job::Outcome outcome;
    outcome.id = options.id;
    outcome.registerName =
        options.site.registerName.empty() ? runner::defaultRegister : options.site.registerName;
    job::SettleUnsent(outcome, false, job::exitNotPrinted, errorSystem, reason);
    DoubtEarlierCalls(options, outcome, false);
    return outcome;
}

RunOptions WithJournal(RunOptions options) {
    options.journal = ChosenJournal(options.journal, options.id.value_or(""));
    return options;
}

int Run(const RunOptions& given) {
    if (given.id && !job::IsJobId(*given.id))
        throw UsageError("--job wants 1 to 200 printable characters");
    const RunOptions options = WithJournal(given);
    Interrupts interrupts;  // until the outcome is told
    job::Outcome outcome;
    try {
        outcome = Call(options, interrupts).Run();
    } catch (const std::exception& failure) {
        outcome = NothingSent(options, failure.what());
    }
    Tell(outcome, options.json);
    return outcome.exitCode;
}

}  // namespace

std::function<int()> BindRun(CLI::App& command) {
    const auto options = std::make_shared<RunOptions>();
    command.add_option("FILE", options->file, "The command file")->required()->type_name("");
    AddSiteOptions(command, options->site);
    command
        .add_option("--job", options->id,
                    "The caller's name for this job: the same one is never printed twice")
        ->type_name("ID");
    command.add_option("--from", options->encoding, "What the texts of the file are encoded in")
        ->check(CLI::IsMember({"utf-8"}, CLI::ignore_case))
        ->type_name("utf-8");
    AddJournalOption(command, options->journal);
    command.add_flag("--json", options->json, "Print the outcome as one JSON object");
    command.footer(runFooter);
    return [options] { return Run(*options); };
}
