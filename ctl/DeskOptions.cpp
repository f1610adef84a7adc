// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ctl/DeskOptions.h"

#include "companion/desk/Files.h"
#include "companion/desk/Program.h"
#include "ctl/Excerpt.h"

namespace {

constexpr int slowestLine = 300, fastestLine = 1'000'000;  // bits a second

std::string ReadIt(const std::string& file) {
    const auto text = desk::ReadStreamIfAny(file);
    if (!text) throw UsageError("there is no file '" + file + "'");
    return *text;
}

}  // namespace

void AddDeskOptions(CLI::App& command, DeskOptions& options) {
    command
        .add_option("--program", options.program,
                    "Departments, PLUs, cashiers and header lines, as JSON")
        ->type_name("FILE");
    command.add_option("--faults", options.faults, "What goes wrong and when, one fault a line")
        ->type_name("FILE");
    command
        .add_option("--line-speed", options.lineSpeed,
                    "The line's bits a second (default: as fast as it goes)")
        ->check(CLI::Range(slowestLine, fastestLine))
        ->type_name("BITS");
}

emulator::RegisterConfig ProgrammedConfig(const RegisterOptions& device,
                                          const DeskOptions& options) {
    emulator::RegisterConfig config = ConfigFor(device);
    if (options.program.empty()) return config;
    const std::string program = ReadIt(options.program);
    return UsingFile(options.program, [&] { return desk::Programmed(config, program); });
}

std::vector<desk::Fault> FaultsOf(const DeskOptions& options) {
    if (options.faults.empty()) return {};
    const std::string faults = ReadIt(options.faults);
    return UsingFile(options.faults, [&] { return desk::ReadFaults(faults); });
}

std::string MistakesText(const std::string& file, const desk::Mistakes& mistakes) {
    std::string all;
    for (const desk::Mistake& mistake : mistakes.All()) {
        if (!all.empty()) all += "\n";
        all += OnTerminal(file) + ":" + std::to_string(mistake.line) + ":" +
               std::to_string(mistake.column) + ": error: " + OnTerminal(mistake.message) + "\n" +
               Excerpt(mistake.text, mistake.column);
        all.pop_back();  // the line feed
    }
    return all;
}
