// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ctl/Try.h"

#include <poll.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <iostream>
#include <iterator>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "companion/desk/Faults.h"
#include "companion/job/Job.h"
#include "companion/journal/Journal.h"
#include "companion/runner/DriverPath.h"
#include "companion/runner/Files.h"
#include "companion/runner/Profile.h"
#include "companion/runner/Sandbox.h"
#include "companion/workbench/Defaults.h"
#include "companion/workbench/DriverRun.h"
#include "companion/workbench/Serving.h"
#include "companion/workbench/WorkFolder.h"
#include "ctl/DeskOptions.h"
#include "ctl/FiniteRange.h"
#include "ctl/Interrupts.h"
#include "ctl/OutcomeText.h"
#include "ctl/Pictures.h"
#include "ctl/RegisterOptions.h"
#include "ctl/UsageError.h"

namespace fs = std::filesystem;

namespace {

constexpr int exitTimeout = 124;  // as timeout(1) has it
constexpr int exitFaultMissed = 1;
constexpr double longestTry = 86400 * 365.0;  // seconds

constexpr char tryFooter[] =
    "The files are run one after the other against one register, which keeps its state: a "
    "receipt that one file leaves open can be finished by the next. Every file is copied "
    "into a private folder first, its result file included, and the driver sees a private "
    "/etc/voltis, /var/log/voltis and /dev/ttyS0: nothing on this machine is changed. "
    "Neither root nor a register is needed, but bubblewrap (package `bubblewrap`) is.\n"
    "The exit code is that of the last run of the driver that failed, 0 when none did; 124 "
    "for a run that took too long; 1 also when none failed and a fault that was ordered never "
    "happened, which the last lines tell; 2 also when the driver could not be run, and for a wrong "
    "option or a command file that cannot be read, and then nothing was run.\n"
    "With --run each file is a job of `voltisctl run`, and the exit code is its; --timeout is "
    "then for each run of the driver, also for the one that asks what became of the job."
    "\n\nExample:\n  voltisctl try --model margay --svg receipt.svg sale.txt";

struct TryOptions {
    RegisterOptions device;
    DeskOptions desk;
    std::vector<std::string> files;
    std::vector<std::string> settings;
    std::string driver;
    std::string svgFile;
    double timeoutSeconds = 0;  // 0: none
    bool showLog = false;
    bool run = false;
};

struct ExitMeaning {
    int code;
    const char* text;
};
constexpr ExitMeaning exitMeanings[] = {
    {0, "everything was executed"},
    {1, "a mistake in the command file, nothing was sent"},
    {2, "wrong arguments or settings, no connection, or register not ready: nothing was printed"},
    {101, "failed after a command had gone to the register"},
    {exitTimeout, "took too long and was ended"},
};

constexpr ExitMeaning runMeanings[] = {
    {job::exitPrinted, "printed, once"},
    {job::exitMistake, "not printed: a mistake in the command file"},
    {job::exitNotPrinted, "not printed: the same file may be run again"},
    {job::exitUncertain, "part of it was printed, or nobody can tell"},
};

constexpr int pollStepMs = 100;

using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

// 0: no limit.
Seconds Allowed(const TryOptions& options) {
    return Seconds(options.timeoutSeconds);
}

struct Outcome {
    int exitCode = 0;
    int interrupt = 0;  // the signal that is to end everything, 0 for none
    std::string output;
    std::string result;   // the result file
    std::string verdict;  // of --run
};

void WaitForNews(const runner::SandboxedRun& run, const Interrupts& interrupts) {
    pollfd news[] = {
        {run.OutputFd(), POLLIN, 0}, {run.EndFd(), POLLIN, 0}, {interrupts.Fd(), POLLIN, 0}};
    poll(news, std::size(news), pollStepMs);
}

// Waits for the end of the run, and kills it when it takes too long or at an interrupt.
Outcome Await(runner::SandboxedRun& run, Interrupts& interrupts, Seconds allowed) {
    const auto start = Clock::now();
    Outcome outcome;
    while (!run.Ended()) {
        WaitForNews(run, interrupts);
        outcome.interrupt = interrupts.Take();
        const bool late = allowed.count() > 0 && Clock::now() - start > allowed;
        if (!late && outcome.interrupt == 0) continue;
        run.Kill();
        outcome.exitCode = late ? exitTimeout : 128 + outcome.interrupt;
        outcome.output = run.Output();
        return outcome;
    }
    outcome.exitCode = run.ExitCode();
    outcome.output = run.Output();
    return outcome;
}

// What looks like a setting and is no file belongs to the --ini before it: "--ini A=1 B=2".
bool IsSetting(const TryOptions& options, const std::string& word) {
    const size_t equals = word.find('=');
    return !options.settings.empty() && equals != std::string::npos && equals > 0 &&
           word.find('/') > equals && !fs::exists(word);
}

void SortOutWords(TryOptions& options) {
    const auto settings =
        std::stable_partition(options.files.begin(), options.files.end(),
                              [&](const std::string& word) { return !IsSetting(options, word); });
    options.settings.insert(options.settings.end(), settings, options.files.end());
    options.files.erase(settings, options.files.end());
    if (options.files.empty()) throw UsageError("no command file is named");
    CheckUsage([&] {
        for (const std::string& file : options.files) runner::ReadFile(file);  // all or none
    });
}

runner::DriverSettings SettingsFor(const TryOptions& options) {
    runner::DriverSettings settings = workbench::SettingsFor(FramesFor(options.device));
    CheckUsage([&] {
        for (const std::string& setting : options.settings) settings.Set(setting);
    });
    return settings;
}

void PrintSection(const std::string& title, const std::string& text, const char* whenEmpty) {
    std::cout << "--- " << title << "\n" << (text.empty() ? whenEmpty : text);
    if (text.empty() || text.back() != '\n') std::cout << "\n";
}

std::string ExitText(int code, bool run) {
    std::string text = "exit code " + std::to_string(code);
    for (const ExitMeaning& meaning : run ? std::span<const ExitMeaning>(runMeanings)
                                          : std::span<const ExitMeaning>(exitMeanings)) {
        if (meaning.code == code) text += ": " + std::string(meaning.text);
    }
    return text;
}

std::string Joined(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines) text += line + "\n";
    return text;
}

// One `voltisctl try`, file by file.
class Trial {
  public:
    explicit Trial(const TryOptions& options)
        : options_(options),
          faultsOrdered_(FaultsOf(options.desk)),
          config_(ProgrammedConfig(options.device, options.desk)),
          driver_(runner::DriverPath(options.driver)),
          station_(config_, FramesFor(options.device), PtyFor(options)),
          faults_(station_.device,
                  [this](std::chrono::milliseconds wait, std::function<void()> action) {
                      station_.server.After(wait, std::move(action));
                  }),
          folder_(SettingsFor(options)) {
        station_.line.Attach(&faults_);
        station_.device.Paper().OnLine([this](const std::string&) { faults_.LinePrinted(); });
        faults_.OnFault([this](const std::string& text) { happened_.push_back(text); });
        for (const desk::Fault& fault : faultsOrdered_) faults_.Add(fault);
    }

    int Run() {
        const int exitCode = RunFiles();
        if (!options_.svgFile.empty()) DrawTape(station_.device.Paper(), options_.svgFile);
        const std::string missed = Joined(faults_.NeverHappened());
        if (!missed.empty())
            std::cout << "=== faults that never happened\n" << missed << std::flush;
        return exitCode == 0 && !missed.empty() ? exitFaultMissed : exitCode;
    }

  private:
    static emulator::PtyOptions PtyFor(const TryOptions& options) {
        emulator::PtyOptions pty;
        pty.bitsPerSecond = options.desk.lineSpeed;
        return pty;
    }

    int RunFiles() {
        int exitCode = 0;
        for (const std::string& file : options_.files) {
            const Outcome outcome = RunFile(file);
            if (outcome.exitCode != 0) exitCode = outcome.exitCode;
            if (outcome.interrupt != 0) break;
        }
        return exitCode;
    }

    Outcome RunFile(const std::string& file) {
        const workbench::Since since(station_.device);
        Outcome outcome = options_.run ? RunJob(file) : RunDriver(folder_.Take(file));
        std::cout << "=== " << file << "\n";
        PrintSection("tape", Joined(since.Lines()), "(nothing was printed)");
        PrintIfAny("the register complains", Joined(since.Complaints()));
        PrintIfAny("faults", Joined(std::exchange(happened_, {})));
        PrintSection("result file", outcome.result, "(none)");
        PrintIfAny("the driver said", outcome.output);
        PrintIfAny("verdict", outcome.verdict);
        if (options_.showLog) PrintSection("debug log", folder_.NewDebugLog(), "(none)");
        std::cout << "--- " << ExitText(outcome.exitCode, options_.run) << "\n\n" << std::flush;
        return outcome;
    }

    static void PrintIfAny(const std::string& title, const std::string& text) {
        if (!text.empty()) PrintSection(title, text, "");
    }

    Outcome RunDriver(const std::string& name) {
        runner::SandboxPlan plan = folder_.Prepare(station_.server.SlavePath());
        plan.driver = driver_;
        plan.files = folder_.Files().Path();
        workbench::DriverRun run(
            station_, plan, {runner::insideDriver, std::string(runner::insideFolder) + "/" + name});
        Outcome outcome = Await(run.Process(), interrupts_, Allowed(options_));
        run.Finish();
        outcome.result = folder_.Result().value_or("");
        return outcome;
    }

    // As `voltisctl run` does, on a site of its own.
    Outcome RunJob(const std::string& file) {
        const runner::Profile profile = ProfileOfTheSite();
        if (!journal_) journal_.emplace(folder_.Beside("journal.db"));
        job::Jobs jobs(*journal_, profile, Site(), folder_.Beside("runs"));
        workbench::Serving serving(station_.server);
        const job::Outcome told =
            jobs.Do({std::nullopt, file, runner::ReadFile(file), {}}, WatcherOf());
        serving.Finish();
        Outcome outcome;
        outcome.exitCode = told.exitCode;
        outcome.interrupt = interrupts_.Take();
        outcome.result = told.result;
        outcome.verdict = ForPeople(told) + WhyOf(told);
        return outcome;
    }

    job::Watcher WatcherOf() const {
        job::Watcher watcher;
        watcher.stopFd = interrupts_.Fd();
        watcher.longestRun = std::chrono::ceil<std::chrono::milliseconds>(Allowed(options_));
        return watcher;
    }

    runner::Profile ProfileOfTheSite() {
        folder_.Prepare(station_.server.SlavePath());
        const std::string ini = folder_.Beside("voltis.ini");
        runner::Profile profile = runner::LoadProfile(fs::path(ini).parent_path().string());
        if (!profile.device.empty()) profile.device = station_.server.SlavePath();
        profile.habit = options_.device.habits;
        return profile;
    }

    job::Site Site() const {
        job::Site site;
        site.driver = driver_;
        site.locks = folder_.Beside("locks");
        site.logs = folder_.Logs().Path();
        fs::create_directories(site.locks);
        return site;
    }

    const TryOptions& options_;
    std::vector<desk::Fault> faultsOrdered_;
    emulator::RegisterConfig config_;
    // After the files, so that an interrupt ends the reading of a pipe at once, and before the
    // thread that serves, which is to block the same signals.
    Interrupts interrupts_;
    std::string driver_;
    workbench::Station station_;
    desk::Faults faults_;
    std::vector<std::string> happened_;  // of the faults, since the last file
    workbench::WorkFolder folder_;
    std::optional<journal::Journal> journal_;
};

int Try(TryOptions options) {
    SortOutWords(options);
    return Trial(options).Run();
}

}  // namespace

std::function<int()> BindTry(CLI::App& command) {
    const auto options = std::make_shared<TryOptions>();
    command.add_option("FILE", options->files, "Command files")->required()->type_name("");
    AddRegisterOptions(command, options->device);
    AddDeskOptions(command, options->desk);
    command.add_flag("--run", options->run,
                     "Go through `run` instead of the driver alone, and show its verdict");
    command
        .add_option("--ini", options->settings,
                    "Settings of the driver's configuration file, over the generated ones")
        ->type_name("KEY=VALUE")
        ->allow_extra_args(false);
    command.add_flag("--log", options->showLog, "Print the driver's debug log, too");
    command
        .add_option("--svg", options->svgFile, "Draw everything that was printed into this file")
        ->type_name("FILE");
    command
        .add_option("--driver", options->driver,
                    "The driver to run (default: voltis beside voltisctl, else on PATH)")
        ->type_name("PATH");
    command
        .add_option("--timeout", options->timeoutSeconds,
                    "The longest that one run may take (default: no limit)")
        ->check(FiniteRange(0, longestTry))
        ->type_name("SECONDS");
    command.footer(tryFooter);
    return [options] { return Try(*options); };
}
