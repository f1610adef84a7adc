// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ctl/RegisterOptions.h"

#include <set>
#include <string>
#include <vector>

#include "companion/workbench/Defaults.h"
#include "ctl/UsageError.h"

namespace {

const std::vector<std::string> frameFamilies = {"ocelot", "margay"};

std::vector<std::string> ModelNames() {
    std::vector<std::string> names;
    std::set<std::string> seen;
    for (const emulator::Model& model : emulator::Models()) {
        if (seen.insert(std::string(model.name)).second) names.emplace_back(model.name);
    }
    return names;
}

std::vector<std::string> HabitWords() {
    std::vector<std::string> words;
    for (const emulator::HabitRow& row : emulator::HabitTable()) words.emplace_back(row.word);
    return words;
}

}  // namespace

void AddRegisterOptions(CLI::App& command, RegisterOptions& options) {
    command.add_option("--model", options.model, "The register's model")
        ->check(CLI::IsMember(ModelNames()))
        ->capture_default_str();
    command
        .add_option("--protocol", options.protocol, "Its fiscal protocol version (margay: only 2)")
        ->check(CLI::IsMember({1, 2}))
        ->capture_default_str();
    command
        .add_option("--frames", options.frames,
                    "The frames that it speaks (default: margay's own for margay, else ocelot's)")
        ->check(CLI::IsMember(frameFamilies));
    command
        .add_option("--habit", options.habits,
                    "What it does otherwise than most registers; once for each habit")
        ->check(CLI::IsMember(HabitWords()))
        ->allow_extra_args(false);
    command.add_flag("--strict", options.strict,
                     "It refuses, with a complaint, what no correct driver does");
}

emulator::RegisterConfig ConfigFor(const RegisterOptions& options) {
    emulator::RegisterConfig config;
    CheckUsage([&] { config = workbench::RegisterOf(options.model, options.protocol); });
    config.strict = options.strict;
    for (const std::string& word : options.habits) config.habits.Add(*emulator::FindHabit(word));
    return config;
}

emulator::WireFamily FramesFor(const RegisterOptions& options) {
    if (options.frames.empty()) return ConfigFor(options).model->family;
    return options.frames == "margay" ? emulator::WireFamily::Margay : emulator::WireFamily::Ocelot;
}
