// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "tests/explore/Scenario.h"

#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <stdexcept>
#include <system_error>

#include "companion/workbench/Defaults.h"

namespace explore {

using emulator::WireFamily;

namespace {

constexpr std::uint32_t receiptsBefore = 41;

}  // namespace

const std::vector<FileSet>& FileSets() {
    static const std::vector<FileSet> sets = {
        {"drawer", "one command: the drawer is opened", {"OPEN_DRAWER\n"}},
        {"blocked",
         "the same with the register always in fiscal mode (`KeepEcrBlocked=1`)",
         {"OPEN_DRAWER\n"},
         true},
        {"again",
         "the same command in two files, also with the register always in fiscal mode",
         {"OPEN_DRAWER\n", "OPEN_DRAWER\n"},
         true},
        {"report", "one command: the daily Z report", {"REPORT: TYPE=Z\n"}},
        {"sale",
         "a sale and its tender",
         {"SALE: DEPTNR=1; PRICE=1.00; QNTY=1\n"
          "TENDER: MEDIA=CASH; AMOUNT=5.00\n"}},
        {"discount",
         "a sale, the subtotal, a discount on it, the tender",
         {"SALE: DEPTNR=1; PRICE=1.00; QNTY=1\n"
          "DISCOUNT: PERCENTS=10; TYPE=SALE\n"
          "TENDER: MEDIA=CASH; AMOUNT=5.00\n"}},
        {"shared",
         "three files that share a receipt",
         {"SALE: DEPTNR=1; PRICE=1.00; QNTY=1\n"
          "CONTINUE\n",
          "CONTINUE\n"
          "SALE: DEPTNR=1; PRICE=1.00; QNTY=1\n"
          "CONTINUE\n",
          "CONTINUE\n"
          "SALE: DEPTNR=1; PRICE=1.00; QNTY=1\n"
          "TENDER: MEDIA=CASH; AMOUNT=5.00\n"}},
    };
    return sets;
}

std::string_view HabitWordOf(const std::optional<emulator::Habit>& habit) {
    if (!habit) return "default";
    return emulator::HabitTable()[static_cast<std::size_t>(*habit)].word;
}

std::string_view FamilyWord(WireFamily family) {
    return family == WireFamily::Ocelot ? "ocelot" : "margay";
}

std::string Scenario::Name() const {
    std::string name(FamilyWord(family));
    name += ' ';
    name += files->word;
    name += ' ';
    name += HabitWordOf(habit);
    return name;
}

emulator::RegisterConfig Scenario::Register() const {
    emulator::RegisterConfig config = workbench::RegisterFor(family);
    // What a strict register refuses is a mistake of the driver; here the line makes the mistakes,
    // and a register that takes an unusual frame all the same is the harder one.
    config.strict = false;
    config.lastReceipt = receiptsBefore;
    config.plus.clear();  // nothing is sold by them, and the register is copied very often
    if (habit) config.habits.Add(*habit);
    return config;
}

std::vector<Scenario> AllScenarios() {
    std::vector<std::optional<emulator::Habit>> habits = {std::nullopt};
    for (const emulator::HabitRow& row : emulator::HabitTable()) habits.emplace_back(row.habit);
    std::vector<Scenario> all;
    for (const auto& habit : habits)
        for (const FileSet& files : FileSets())
            for (const WireFamily family : {WireFamily::Ocelot, WireFamily::Margay})
                all.push_back({family, &files, habit, Telling::None, true});
    return all;
}

Scenario ParseScenario(std::string_view family, std::string_view files, std::string_view habit) {
    for (const Scenario& scenario : AllScenarios())
        if (FamilyWord(scenario.family) == family && scenario.files->word == files &&
            HabitWordOf(scenario.habit) == habit)
            return scenario;
    throw std::runtime_error("there is no scenario '" + std::string(family) + " " +
                             std::string(files) + " " + std::string(habit) + "'");
}

ScenarioFiles::ScenarioFiles(const Scenario& scenario)
    : resultFd_(memfd_create("result", MFD_CLOEXEC)) {
    if (resultFd_ < 0) throw std::system_error(errno, std::generic_category(), "memfd_create");
    runner::DriverSettings settings = workbench::FrameSettings(scenario.family);
    if (scenario.files->inFiscalMode) settings.Set("KeepEcrBlocked", "1");
    folder_.Write("voltis.ini", settings.Text());
    ini_ = folder_.File("voltis.ini");
    result_ = "/proc/self/fd/" + std::to_string(resultFd_);  // in memory: it is written very often
    for (std::size_t i = 0; i < scenario.files->files.size(); ++i) {
        const std::string name = "file" + std::to_string(i + 1) + ".txt";
        folder_.Write(name, std::string(scenario.files->files[i]));
        commands_.push_back(folder_.File(name));
    }
}

ScenarioFiles::~ScenarioFiles() {
    close(resultFd_);
}

std::string ScenarioFiles::TakeResult() const {
    std::array<char, 1024> text{};
    const ssize_t size = pread(resultFd_, text.data(), text.size(), 0);
    if (size < 0 || ftruncate(resultFd_, 0) != 0)
        throw std::system_error(errno, std::generic_category(), "result file");
    return {text.data(), static_cast<std::size_t>(size)};
}

}  // namespace explore
