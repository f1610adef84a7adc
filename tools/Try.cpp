#include "tools/Try.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <future>
#include <iostream>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "emulator/Line.h"
#include "emulator/PtyServer.h"
#include "emulator/Register.h"
#include "tools/Interrupts.h"
#include "tools/Pictures.h"
#include "tools/RegisterOptions.h"
#include "tools/Sandbox.h"
#include "tools/TryFolder.h"

namespace fs = std::filesystem;

namespace {

constexpr int exitTimeout = 124;  // as timeout(1) has it

constexpr char footer[] =
    "The files are run one after the other against one register, which keeps its state: a receipt\n"
    "that one file leaves open can be finished by the next. Every file is copied into a private\n"
    "folder first, its result file included, and the driver sees a private /etc/voltis,\n"
    "/var/log/voltis and /dev/ttyS0: nothing on this machine is changed. Neither root nor a\n"
    "register is needed, but bubblewrap (package `bubblewrap`) is.\n"
    "The exit code is that of the last run of the driver that failed, 0 when none did; 124 for a\n"
    "run that took too long; 3 when the driver could not be run.";

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
    {2, "failed while connecting or executing"},
    {101, "failed after a command had gone to the register"},
    {exitTimeout, "took too long and was ended"},
};

constexpr int pollStepMs = 100;

using Clock = std::chrono::steady_clock;

// The register with its line, alive through all the files.
struct Desk {
    explicit Desk(const RegisterOptions& options)
        : device(ConfigFor(options)), line(FramesFor(options), device), server(line) {}

    emulator::Register device;
    emulator::Line line;
    emulator::PtyServer server;
};

// Serves the line in the background; the register may be looked at only before and after.
class Serving {
  public:
    explicit Serving(emulator::PtyServer& server)
        : server_(server), running_(std::async(std::launch::async, [&server] { server.Run(); })) {}
    ~Serving() {  // the future waits; a stop of what has ended would stop the next one
        if (running_.valid()) server_.Stop();
    }
    Serving(const Serving&) = delete;
    Serving& operator=(const Serving&) = delete;

    // After the driver has ended the line is served a little longer, so that the hang-up is seen
    // and the line made ready before the next file's driver opens it.
    void Finish() {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        server_.Stop();
        running_.get();
    }

  private:
    emulator::PtyServer& server_;
    std::future<void> running_;
};

struct Outcome {
    int exitCode = 0;
    int interrupt = 0;  // the signal that is to end everything, 0 for none
    std::string output;
};

void WaitForNews(const SandboxedRun& run, const Interrupts& interrupts) {
    pollfd news[] = {
        {run.OutputFd(), POLLIN, 0}, {run.EndFd(), POLLIN, 0}, {interrupts.Fd(), POLLIN, 0}};
    poll(news, std::size(news), pollStepMs);
}

// Waits for the end of the run, and brings it about when it takes too long or at an interrupt.
Outcome Await(SandboxedRun& run, Interrupts& interrupts, double timeoutSeconds) {
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

std::string DriverPath(const TryOptions& options) {
    const std::string path = options.driver.empty()
                                 ? fs::read_symlink("/proc/self/exe").parent_path() / "voltis"
                                 : fs::path(options.driver);
    if (access(path.c_str(), X_OK) != 0) {
        throw std::runtime_error("no driver at '" + path + "' - " + std::strerror(errno) +
                                 "; build it, or name another with --driver");
    }
    return fs::canonical(path);
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
    if (options.files.empty()) throw std::runtime_error("no command file is named");
    for (const std::string& file : options.files) ReadFile(file);  // all or none
}

DriverSettings SettingsFor(const TryOptions& options) {
    DriverSettings settings;
    settings.Set("ComNumber", "1");
    settings.Set("ResultFileName", "result.txt");
    settings.Set("StandardLog", "1");
    settings.Set("DbgErrorLog", "2");
    settings.Set("ProtocolFormatting", options.device.frames == "margay" ? "1" : "0");
    for (const std::string& setting : options.settings) settings.Set(setting);
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

// The text lines that the tape has grown by.
std::string LinesFrom(const emulator::Tape& tape, size_t first) {
    std::string text;
    for (size_t i = first; i < tape.Lines().size(); ++i) text += tape.Lines()[i] + "\n";
    return text;
}

// One `voltisctl try`, file by file.
class Trial {
  public:
    explicit Trial(const TryOptions& options)
        : options_(options),
          driver_(DriverPath(options)),
          desk_(options.device),
          folder_(SettingsFor(options)) {}

    int Run() {
        int exitCode = 0;
        for (const std::string& file : options_.files) {
            const Outcome outcome = RunFile(file);
            if (outcome.exitCode != 0) exitCode = outcome.exitCode;
            if (outcome.interrupt != 0) break;
        }
        if (!options_.svgFile.empty()) DrawTape(desk_.device.Paper(), options_.svgFile);
        return exitCode;
    }

  private:
    Outcome RunFile(const std::string& file) {
        const std::string name = folder_.Take(file);
        const size_t printedBefore = desk_.device.Paper().Lines().size();
        const Outcome outcome = RunDriver(name);
        std::cout << "=== " << file << "\n";
        PrintSection("tape", LinesFrom(desk_.device.Paper(), printedBefore),
                     "(nothing was printed)");
        PrintSection("result file", folder_.Result(), "(none)");
        if (!outcome.output.empty()) PrintSection("the driver said", outcome.output, "");
        if (options_.showLog) PrintSection("debug log", folder_.NewLog(), "(none)");
        std::cout << "--- " << ExitText(outcome.exitCode) << "\n" << std::endl;
        return outcome;
    }

    Outcome RunDriver(const std::string& name) {
        SandboxPlan plan;
        plan.driver = driver_;
        plan.folder = folder_.Files();
        plan.ini = folder_.Ini();
        plan.logs = folder_.Logs();
        plan.device = desk_.server.SlavePath();
        Serving serving(desk_.server);
        SandboxedRun run(plan, {std::string(sandboxFolder) + "/" + name});
        const Outcome outcome = Await(run, interrupts_, options_.timeoutSeconds);
        serving.Finish();
        return outcome;
    }

    const TryOptions& options_;
    Interrupts interrupts_;  // before the thread that serves, which is to block the same signals
    std::string driver_;
    Desk desk_;
    TryFolder folder_;
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
                    "The driver to run (default: voltis beside voltisctl)")
        ->type_name("PATH");
    command
        .add_option("--timeout", options->timeoutSeconds,
                    "The longest that one run may take (default: no limit)")
        ->check(CLI::NonNegativeNumber)
        ->type_name("SECONDS");
    command.footer(footer);
    return [options] { return Try(*options); };
}
