#include "ctl/Try.h"

#include <poll.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <iostream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "companion/runner/DriverPath.h"
#include "companion/runner/Files.h"
#include "companion/runner/Sandbox.h"
#include "companion/workbench/Defaults.h"
#include "companion/workbench/DriverRun.h"
#include "companion/workbench/Serving.h"
#include "companion/workbench/WorkFolder.h"
#include "ctl/Interrupts.h"
#include "ctl/Pictures.h"
#include "ctl/RegisterOptions.h"
#include "ctl/UsageError.h"

namespace fs = std::filesystem;

namespace {

constexpr int exitTimeout = 124;  // as timeout(1) has it

constexpr char tryFooter[] =
    "The files are run one after the other against one register, which keeps its state: a "
    "receipt that one file leaves open can be finished by the next. Every file is copied "
    "into a private folder first, its result file included, and the driver sees a private "
    "/etc/voltis, /var/log/voltis and /dev/ttyS0: nothing on this machine is changed. "
    "Neither root nor a register is needed, but bubblewrap (package `bubblewrap`) is.\n"
    "The exit code is that of the last run of the driver that failed, 0 when none did; 124 "
    "for a run that took too long; 3 when the driver could not be run; 2 also for a wrong "
    "option or a command file that cannot be read, and then nothing was run."
    "\n\nExample:\n  voltisctl try --model margay --svg receipt.svg sale.txt";

struct TryOptions {
    RegisterOptions device;
    std::vector<std::string> files;
    std::vector<std::string> settings;
    std::string driver;
    std::string svgFile;
    double timeoutSeconds = 0;  // 0: none
    bool showLog = false;
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

constexpr int pollStepMs = 100;

using Clock = std::chrono::steady_clock;

struct Outcome {
    int exitCode = 0;
    int interrupt = 0;  // the signal that is to end everything, 0 for none
    std::string output;
};

void WaitForNews(const runner::SandboxedRun& run, const Interrupts& interrupts) {
    pollfd news[] = {
        {run.OutputFd(), POLLIN, 0}, {run.EndFd(), POLLIN, 0}, {interrupts.Fd(), POLLIN, 0}};
    poll(news, std::size(news), pollStepMs);
}

// Waits for the end of the run, and kills it when it takes too long or at an interrupt.
Outcome Await(runner::SandboxedRun& run, Interrupts& interrupts, double timeoutSeconds) {
    const auto start = Clock::now();
    const std::chrono::duration<double> allowed(timeoutSeconds);
    Outcome outcome;
    while (!run.Ended()) {
        WaitForNews(run, interrupts);
        outcome.interrupt = interrupts.Take();
        const bool late = timeoutSeconds > 0 && Clock::now() - start > allowed;
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

std::string ExitText(int code) {
    std::string text = "exit code " + std::to_string(code);
    for (const ExitMeaning& meaning : exitMeanings) {
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
          driver_(runner::DriverPath(options.driver)),
          station_(ConfigFor(options.device), FramesFor(options.device)),
          folder_(SettingsFor(options)) {}

    int Run() {
        int exitCode = 0;
        for (const std::string& file : options_.files) {
            const Outcome outcome = RunFile(file);
            if (outcome.exitCode != 0) exitCode = outcome.exitCode;
            if (outcome.interrupt != 0) break;
        }
        if (!options_.svgFile.empty()) DrawTape(station_.device.Paper(), options_.svgFile);
        return exitCode;
    }

  private:
    Outcome RunFile(const std::string& file) {
        const std::string name = folder_.Take(file);
        const workbench::Since since(station_.device);
        Outcome outcome = RunDriver(name);
        std::cout << "=== " << file << "\n";
        PrintSection("tape", Joined(since.Lines()), "(nothing was printed)");
        const std::string complaints = Joined(since.Complaints());
        if (!complaints.empty()) PrintSection("the register complains", complaints, "");
        PrintSection("result file", folder_.Result().value_or(""), "(none)");
        if (!outcome.output.empty()) PrintSection("the driver said", outcome.output, "");
        if (options_.showLog) PrintSection("debug log", folder_.NewDebugLog(), "(none)");
        std::cout << "--- " << ExitText(outcome.exitCode) << "\n\n" << std::flush;
        return outcome;
    }

    Outcome RunDriver(const std::string& name) {
        runner::SandboxPlan plan = folder_.Prepare(station_.server.SlavePath());
        plan.driver = driver_;
        plan.files = folder_.Files().Path();
        workbench::DriverRun run(
            station_, plan, {runner::insideDriver, std::string(runner::insideFolder) + "/" + name});
        Outcome outcome = Await(run.Process(), interrupts_, options_.timeoutSeconds);
        run.Finish();
        return outcome;
    }

    const TryOptions& options_;
    Interrupts interrupts_;  // before the thread that serves, which is to block the same signals
    std::string driver_;
    workbench::Station station_;
    workbench::WorkFolder folder_;
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
        ->check(CLI::NonNegativeNumber)
        ->type_name("SECONDS");
    command.footer(tryFooter);
    return [options] { return Try(*options); };
}
