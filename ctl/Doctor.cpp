// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ctl/Doctor.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "companion/doctor/Ask.h"
#include "companion/doctor/Configuration.h"
#include "companion/doctor/Device.h"
#include "companion/doctor/Finding.h"
#include "companion/doctor/Habits.h"
#include "companion/doctor/Jobs.h"
#include "companion/doctor/Machine.h"
#include "companion/doctor/Report.h"
#include "companion/doctor/System.h"
#include "companion/journal/Journal.h"
#include "companion/journal/Place.h"
#include "companion/runner/Device.h"
#include "companion/runner/Files.h"
#include "companion/runner/IniText.h"
#include "ctl/HelpText.h"
#include "ctl/JsonText.h"
#include "ctl/SiteOptions.h"
#include "ctl/UsageError.h"

namespace {

constexpr int exitTrouble = 1;

constexpr char doctorFooter[] =
    "Nothing is changed, and the register is not asked unless --ask or --habits is given. --ask "
    "reads its status; --habits has it enter and leave fiscal mode and switch its display, and "
    "prints nothing.\n"
    "Exit status: 0 no errors or warnings, 1 errors or warnings, 2 a wrong option, or what was "
    "asked for could not be done.\n"
    "\nExample:\n  voltisctl doctor --user pos";

struct DoctorOptions {
    SiteOptions site;
    std::string root;
    std::string user;
    std::string folder;  // empty: this one
    std::string journal;
    std::string report;
    bool udev = false;
    bool json = false;
    bool ask = false;
    bool habits = false;
    bool hands = false;
    bool yes = false;
};

// Everything that is known of the site when its checks are done.
struct Examination {
    doctor::Machine machine;
    std::vector<runner::Profile> profiles;
    doctor::Findings findings;
    std::string asked;  // the register that was asked; empty: none
    std::optional<doctor::Present> answer;
    std::optional<doctor::HabitAnswers> habits;
    std::string habitLine;  // for its configuration
};

// --- the checks ---------------------------------------------------------------------------------

doctor::Machine MachineFor(const DoctorOptions& options) {
    doctor::Machine machine;
    machine.root = options.root;
    if (options.user.empty()) return machine;
    const auto account = doctor::AccountOf(options.user, machine);
    if (!account) throw UsageError("there is no user '" + options.user + "'");
    machine.account = *account;
    return machine;
}

std::optional<std::string> ChosenRegister(const DoctorOptions& options) {
    if (options.site.registerName.empty()) return std::nullopt;
    return options.site.registerName;
}

// Of this machine, without "..". A path that cannot be followed stays as it is.
std::string AbsolutePath(const std::string& path) {
    std::error_code error;
    const std::filesystem::path real = std::filesystem::weakly_canonical(path, error);
    return error ? std::filesystem::absolute(path) : std::filesystem::absolute(real);
}

// As programs on that machine see it. One that is named is a file of this machine.
std::string JournalFor(const DoctorOptions& options, const doctor::Machine& machine) {
    if (!options.journal.empty()) return AbsolutePath(options.journal);
    if (!options.user.empty()) return doctor::JournalOf(machine);
    if (machine.IsThisOne()) return journal::Journal::DefaultPlace().path;
    return std::string(journal::siteFolder) + "/" + journal::fileName;
}

// What the account that asks may not use it cannot read either, which is said once.
void CheckTheJournal(const DoctorOptions& options, Examination& site) {
    const doctor::Machine& machine = site.machine;
    const std::string path = JournalFor(options, machine);
    const bool below = options.journal.empty();
    doctor::Findings rights;
    if (below || machine.IsThisOne()) rights = doctor::CheckJournalRights(machine, path);
    const bool barred = CountOf(rights, doctor::Severity::Error) != 0;
    Append(site.findings, std::move(rights));
    if (barred && machine.IsThisOne() && machine.account.uid == geteuid()) return;
    Append(site.findings, doctor::CheckJournal(below ? machine.Found(path) : path));
}

// To root everything is open, which says nothing of the account that prints.
void CheckWhoAsks(const DoctorOptions& options, Examination& site) {
    if (!options.user.empty() || site.machine.account.uid != 0) return;
    site.findings.push_back({doctor::Severity::Note, "as-root",
                             "root may do everything: what another account may is not seen",
                             "Name the account of the point-of-sale program by --user."});
}

bool NeedsSandbox(const std::vector<runner::Profile>& profiles) {
    return std::ranges::any_of(profiles, [](const runner::Profile& it) { return it.sandbox; });
}

// The folder that it is called in may be any, unless it is named.
std::string FolderFor(const DoctorOptions& options) {
    std::error_code gone;
    if (options.folder.empty()) return std::filesystem::current_path(gone).string();
    return options.root.empty() ? AbsolutePath(options.folder) : options.folder;
}

void CheckFolders(const DoctorOptions& options, Examination& site) {
    const doctor::Machine& machine = site.machine;
    const std::string folder = FolderFor(options);
    const std::string journal = doctor::FolderOf(JournalFor(options, machine));
    Append(site.findings, doctor::CheckLogs(machine, options.site.logs));
    Append(site.findings, doctor::CheckLocks(machine, options.site.locks));
    if (!options.folder.empty()) Append(site.findings, doctor::CheckCommandFolder(machine, folder));
    Append(site.findings, doctor::CheckSpace(machine, {options.site.logs, folder, journal}));
    Append(site.findings, doctor::CheckMarker(machine, folder));
}

void CheckMachine(const DoctorOptions& options, Examination& site) {
    const doctor::Machine& machine = site.machine;
    CheckFolders(options, site);
    if (NeedsSandbox(site.profiles)) Append(site.findings, doctor::CheckSandbox(machine));
    if (machine.IsThisOne()) Append(site.findings, doctor::CheckDriver(options.site.driver));
    CheckTheJournal(options, site);
}

// --- the register -------------------------------------------------------------------------------

bool Agrees(const std::string& question) {
    std::cerr << question << std::flush;
    std::string line;
    return std::getline(std::cin, line) && (line == "y" || line == "yes");
}

void NeedConsent(const DoctorOptions& options) {
    if (options.yes) return;
    if (isatty(STDIN_FILENO) != 1)
        throw UsageError("--habits works on the register: say --yes, or ask on a terminal");
    if (!Agrees("The register enters fiscal mode, switches its customer display on and off, and\n"
                "leaves fiscal mode. Nothing is printed or sold. Go on? [y/N] "))
        throw UsageError("nothing was asked");
}

bool DoneByHand(const char* what) {
    std::cerr << what << ", and press Enter (s and Enter: skip this): " << std::flush;
    std::string line;
    return std::getline(std::cin, line) && line != "s";
}

doctor::Hands HandsFor(const DoctorOptions& options) {
    if (!options.hands) return {};
    return {[] { return DoneByHand("Turn the register's key from REG to X"); },
            [] { return DoneByHand("Turn the key back to REG"); },
            [] { return DoneByHand("Switch the register off, on again, wait until it is ready"); }};
}

void NeedSettled(const journal::Journal& journal, const std::string& registerName) {
    journal::Filter cutOff;
    cutOff.registerName = registerName;
    cutOff.state = journal::State::Sending;
    if (journal.List(cutOff).empty()) return;
    throw std::runtime_error(
        "a job was cut off, and only the register knows what it printed; run it again under its "
        "ID, or any other job, which settles it");
}

// The number and the result in the register tell what a run that was cut off has done: that is
// settled before they are written over. If this ends in the middle, the register may hold a number
// that the next run begins with.
void TakeOverRegister(const std::vector<std::string>& paths, const std::string& registerName) {
    std::vector<journal::Journal> all;
    for (const std::string& path : paths) {
        std::error_code error;
        if (std::filesystem::exists(path, error)) all.emplace_back(path);
    }
    for (const journal::Journal& journal : all) NeedSettled(journal, registerName);
    for (journal::Journal& journal : all) journal.SetMayHold(registerName, true);
}

// The words that it has, and those of the old line that could not be ruled out.
std::string HabitLine(const runner::Profile& profile, const doctor::HabitAnswers& answers) {
    std::string line = answers.Words(doctor::Known::Yes);
    const std::string possible = " " + answers.Words(doctor::Known::Possible) + " ";
    for (const std::string& word : profile.habit) {
        if (possible.find(" " + word + " ") == std::string::npos) continue;
        line += (line.empty() ? "" : " ") + word;
    }
    return "Habit=" + line;
}

bool SameWords(std::vector<std::string> left, std::vector<std::string> right) {
    std::ranges::sort(left);
    std::ranges::sort(right);
    return left == right;
}

std::vector<std::string> WordsOfLine(const std::string& text) {
    std::istringstream in(text);
    std::vector<std::string> all;
    for (std::string word; in >> word;) all.push_back(word);
    return all;
}

void AskAboutHabits(const DoctorOptions& options, const runner::Profile& profile,
                    doctor::Line& line, Examination& site) {
    // It is this account that writes, whichever one prints.
    const std::string journal = JournalFor(options, site.machine);
    TakeOverRegister(doctor::JournalsOfRuns(doctor::Machine(), journal), profile.name);
    doctor::Speaker speaker(line, site.answer->family, site.answer->networkId, doctor::usualWait);
    const int cashier = runner::IniText(profile.text, "VOLTIS").Number("CashierNumber", 1);
    site.habits = AskHabits(speaker, HandsFor(options), static_cast<std::uint8_t>(cashier));
    site.habitLine = HabitLine(profile, *site.habits);
    if (SameWords(WordsOfLine(site.habitLine.substr(std::string("Habit=").size())), profile.habit))
        return;
    site.findings.push_back({doctor::Severity::Error,
                             "habit-differs",
                             "the register's habits are not those that are configured",
                             "Write " + site.habitLine + " into the register's file.",
                             {},
                             0,
                             profile.name});
}

// As a run: nobody else talks to the register meanwhile.
void AskRegister(const DoctorOptions& options, Examination& site) {
    const runner::Profile profile =
        runner::LoadProfile(options.root + options.site.config, ChosenRegister(options));
    if (profile.device.empty())
        throw UsageError("register '" + profile.name + "' is not at a serial port");
    if (options.habits) site.profiles = {profile};  // beside which nothing is looked at
    const runner::DeviceLock lock(runner::LockFileOf(profile, options.site.locks),
                                  WaitFor(options.site));
    doctor::SerialLine line(runner::UsableDevice(profile));
    doctor::Asked asked = doctor::Ask(line, profile);
    site.asked = profile.name;
    site.answer = asked.present;
    Append(site.findings, std::move(asked.findings));
    if (options.habits && site.answer) AskAboutHabits(options, profile, line, site);
}

// Beside the other checks it is one of them, whatever comes of it.
void AskIfPossible(const DoctorOptions& options, Examination& site) {
    try {
        AskRegister(options, site);
    } catch (const std::runtime_error& failure) {
        site.findings.push_back(
            {doctor::Severity::Error, "not-asked",
             std::string("the register was not asked: ") + doctor::Private(failure.what()),
             "Ask again when that is put right, or the run has ended."});
    }
}

// --- all of it ----------------------------------------------------------------------------------

void CheckSite(const DoctorOptions& options, Examination& site) {
    doctor::Registers registers =
        doctor::CheckRegisters(options.root + options.site.config, ChosenRegister(options));
    site.profiles = std::move(registers.profiles);
    for (doctor::Finding& finding : registers.findings)
        if (!finding.file.empty()) finding.file.erase(0, options.root.size());
    Append(site.findings, std::move(registers.findings));
    for (const runner::Profile& profile : site.profiles) {
        Append(site.findings,
               CheckConfiguration(site.machine, profile.file.substr(options.root.size())));
        Append(site.findings, CheckDevice(site.machine, profile, options.site.locks));
    }
    CheckMachine(options, site);
    CheckWhoAsks(options, site);
}

Examination Examine(const DoctorOptions& options) {
    Examination site;
    site.machine = MachineFor(options);
    if (options.habits) {
        AskRegister(options, site);
    } else {
        CheckSite(options, site);
        if (options.ask) AskIfPossible(options, site);
    }
    SortBySeverity(site.findings);
    return site;
}

// --- for people ---------------------------------------------------------------------------------

bool DoctorInColour() {
    return isatty(STDOUT_FILENO) == 1 && getenv("NO_COLOR") == nullptr;
}

std::string WordOf(doctor::Severity severity) {
    constexpr const char* colours[] = {"\033[1;31m", "\033[1;35m", "\033[1;36m"};
    if (!DoctorInColour()) return doctor::Word(severity);
    return std::string(colours[static_cast<int>(severity)]) + doctor::Word(severity) + "\033[0m";
}

std::string PlaceOf(const doctor::Finding& finding) {
    if (finding.line != 0) return finding.file + ":" + std::to_string(finding.line) + ": ";
    return finding.registerName.empty() ? "" : "register '" + finding.registerName + "': ";
}

// A failure's own words may have lines, which Wrapped would break apart.
std::string OneLine(std::string text) {
    std::ranges::replace(text, '\n', ' ');
    return text;
}

std::string FindingText(const doctor::Finding& finding) {
    constexpr std::size_t indent = 2;
    const std::string head = std::string(doctor::Word(finding.severity)) + ": ";
    const std::string message =
        PlaceOf(finding) + doctor::Open(finding.message) + " [" + finding.code + "]";
    return WordOf(finding.severity) + ": " + Wrapped(OneLine(message), head.size(), indent) +
           "\n  " + Wrapped(OneLine(doctor::Open(finding.remedy)), indent, indent) + "\n";
}

std::string CountText(std::size_t count, const char* what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

constexpr const char* knownWords[] = {"no", "yes", "possible"};

const char* WordFor(doctor::Known known) {
    return knownWords[static_cast<int>(known)];
}

void ShowHabits(const doctor::HabitAnswers& habits, const std::string& line) {
    constexpr std::size_t column = 26;
    for (std::size_t i = 0; i < doctor::habitCount; ++i) {
        const std::string word(doctor::HabitWords()[i]);
        std::cout << "  " << word << std::string(column - word.size(), ' ')
                  << WordFor(habits.Of(static_cast<doctor::Habit>(i))) << '\n';
    }
    std::cout << '\n' << line << "\n\n";
    if (habits.Words(doctor::Known::Possible).empty()) return;
    std::cout << Wrapped(
                     "What is possible shows only with a person at the register: ask again with "
                     "--hands. Until it is known, verdicts count on the register not having it.")
              << "\n\n";
}

void ShowToPeople(const Examination& site) {
    using doctor::Severity;
    if (site.answer)
        std::cout << "register '" << site.asked << "': " << Description(*site.answer) << "\n\n";
    if (site.habits) ShowHabits(*site.habits, site.habitLine);
    for (const doctor::Finding& finding : site.findings) std::cout << FindingText(finding) << '\n';
    std::cout << CountText(CountOf(site.findings, Severity::Error), "error") << ", "
              << CountText(CountOf(site.findings, Severity::Warning), "warning") << ", "
              << CountText(CountOf(site.findings, Severity::Note), "note") << '\n';
}

// --- for programs -------------------------------------------------------------------------------

std::string JsonOrNull(const std::string& text) {
    return text.empty() ? "null" : JsonString(text);
}

std::string FindingJson(const doctor::Finding& finding) {
    return std::string("{\"severity\": \"") + doctor::Word(finding.severity) +
           "\", \"code\": " + JsonString(finding.code) +
           ", \"message\": " + JsonString(doctor::Open(finding.message)) +
           ", \"remedy\": " + JsonString(doctor::Open(finding.remedy)) +
           ", \"register\": " + JsonOrNull(finding.registerName) +
           ", \"file\": " + JsonOrNull(finding.file) +
           ", \"line\": " + (finding.line == 0 ? "null" : std::to_string(finding.line)) + "}";
}

std::string AnswerAsJson(const std::optional<doctor::Present>& answer) {
    if (!answer) return "null";
    const bool margay = answer->family == ProtocolFormatting_Margay;
    return "{\"model\": " + JsonOrNull(answer->model) + ", \"protocol\": " +
           (answer->protocol == 0 ? "null" : std::to_string(answer->protocol)) +
           ", \"frames\": " + (margay ? "\"margay\"" : "\"ocelot\"") +
           ", \"network_id\": " + (margay ? "null" : std::to_string(answer->networkId)) + "}";
}

std::string HabitsAsJson(const std::optional<doctor::HabitAnswers>& habits) {
    if (!habits) return "null";
    std::string text;
    for (std::size_t i = 0; i < doctor::habitCount; ++i) {
        text += (i == 0 ? "{" : ", ") + JsonString(std::string(doctor::HabitWords()[i])) + ": \"" +
                WordFor(habits->Of(static_cast<doctor::Habit>(i))) + "\"";
    }
    return text + "}";
}

void ShowToPrograms(const Examination& site) {
    std::cout << "{\"register\": " << JsonOrNull(site.asked)
              << ", \"answer\": " << AnswerAsJson(site.answer)
              << ", \"habits\": " << HabitsAsJson(site.habits)
              << ", \"habit_line\": " << JsonOrNull(site.habitLine) << ", \"findings\": [";
    const char* separator = "";
    for (const doctor::Finding& finding : site.findings) {
        std::cout << separator << FindingJson(finding);
        separator = ", ";
    }
    std::cout << "]}\n";
}

std::string OrNone(const std::string& words) {
    return words.empty() ? "none" : words;
}

// What was asked, for the report: nothing of it is personal.
std::vector<std::string> ForReport(const Examination& site) {
    std::vector<std::string> lines;
    if (site.answer) lines.push_back("the register answers: " + Description(*site.answer));
    if (!site.habits) return lines;
    lines.push_back("its habits: " + OrNone(site.habits->Words(doctor::Known::Yes)));
    lines.push_back("possible habits: " + OrNone(site.habits->Words(doctor::Known::Possible)));
    return lines;
}

// --- the whole ----------------------------------------------------------------------------------

int PrintRule(const DoctorOptions& options) {
    const doctor::Machine machine = MachineFor(options);
    const std::string folder = options.root + options.site.config;
    std::cout << UdevRule(machine, runner::LoadProfile(folder, ChosenRegister(options)));
    return 0;
}

// A line of the report may be longer than a mail's.
std::string FoldedReport(const std::string& report) {
    constexpr std::size_t width = 80;
    std::istringstream in(report);
    std::string folded;
    for (std::string line; std::getline(in, line);)
        folded += (line.size() > width ? Wrapped(line, 0, 2) : line) + "\n";
    return folded;
}

bool IsFine(const Examination& site) {
    return site.findings.empty() || site.findings.front().severity == doctor::Severity::Note;
}

int Diagnose(const DoctorOptions& options) {
    if (!options.root.empty() && (options.ask || options.habits))
        throw UsageError("no register can be asked on a system below another root");
    if (options.udev) return PrintRule(options);
    if (options.habits) NeedConsent(options);
    const Examination site = Examine(options);
    options.json ? ShowToPrograms(site) : ShowToPeople(site);
    std::cout << std::flush;
    if (!options.report.empty()) {
        const std::string report =
            doctor::Report(site.machine, site.profiles, site.findings, ForReport(site));
        runner::WriteFile(options.report, FoldedReport(report));
    }
    if (options.habits && !site.habits) return exitUsage;
    return IsFine(site) ? 0 : exitTrouble;
}

int Doctor(const DoctorOptions& options) {
    try {
        return Diagnose(options);
    } catch (const std::runtime_error& failure) {
        throw UsageError(failure.what());
    }
}

void AddMachineOptions(CLI::App& command, DoctorOptions& options) {
    command.add_option("--user", options.user, "The account that prints (default: this one)")
        ->type_name("NAME");
    command.add_option("--folder", options.folder, "The folder of the command files")
        ->type_name("DIR")
        ->default_str("this one");
    command.add_option("--journal", options.journal, "The journal (default: as for run)")
        ->type_name("PATH");
    command.add_option("--root", options.root, "Look at the system below this folder instead")
        ->type_name("DIR")
        ->check(CLI::ExistingDirectory);
}

void AddAskingOptions(CLI::App& command, DoctorOptions& options) {
    command.add_flag("--ask", options.ask, "Also read the register's status");
    auto* habits = command.add_flag(
        "--habits", options.habits,
        "Instead, ask the register which habits it has, and print its Habit= line");
    command.add_flag("--yes", options.yes, "With --habits: do not ask whether to go on")
        ->needs(habits);
    command
        .add_flag("--hands", options.hands,
                  "With --habits: also what shows only when somebody turns the register's key and "
                  "switches it off and on")
        ->needs(habits);
}

void AddAnswerOptions(CLI::App& command, DoctorOptions& options) {
    command.add_flag("--json", options.json, "Print one JSON object");
    command
        .add_option("--report", options.report,
                    "Also write a text for a support desk, with nothing personal in it")
        ->type_name("FILE");
}

// It is all that is done then.
void AddUdevOption(CLI::App& command, DoctorOptions& options) {
    auto* udev =
        command.add_flag("--udev", options.udev, "Print a udev rule for the register's port, only");
    for (const char* other : {"--json", "--report", "--ask", "--habits"})
        udev->excludes(command.get_option(other));
}

}  // namespace

std::function<int()> BindDoctor(CLI::App& command) {
    const auto options = std::make_shared<DoctorOptions>();
    AddSiteOptions(command, options->site);
    command.get_option("--register")
        ->description(
            "Only this register of the site (default: all of them; --ask, --habits and --udev take "
            "the one of voltis.ini)");
    AddMachineOptions(command, *options);
    AddAnswerOptions(command, *options);
    AddAskingOptions(command, *options);
    AddUdevOption(command, *options);
    command.footer(doctorFooter);
    return [options] { return Doctor(*options); };
}
