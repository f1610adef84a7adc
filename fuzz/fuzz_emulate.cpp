// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The doors of the emulated register for files of others: faults, a program, a memory, a log to be
// replayed. Whatever is in them, it is refused with a place in the text or used, and then the
// register works with it.
//
// An input is: which of them, and the text; a zero byte ends it, what follows comes over the line.

#include <string>
#include <string_view>
#include <vector>

#include "companion/desk/Faults.h"
#include "companion/desk/Json.h"
#include "companion/desk/Program.h"
#include "companion/desk/State.h"
#include "companion/replay/LoggedRun.h"
#include "companion/replay/Replay.h"
#include "emulator/Line.h"
#include "fuzz/Property.h"

namespace {

Tally tally("fuzz_emulate", "of them with a text that can be used");

using emulator::Register;
using emulator::RegisterConfig;

RegisterConfig ConfigOf(std::uint8_t choice) {
    RegisterConfig config;
    config.model = &emulator::Models()[choice / 8 % emulator::Models().size()];
    return config;
}

void RequirePlaces(const desk::Mistakes& mistakes, std::string_view text) {
    Require(!mistakes.All().empty(), "there is a mistake");
    for (const desk::Mistake& mistake : mistakes.All()) {
        Require(mistake.line >= 1 && mistake.line <= static_cast<int>(text.size()) + 1,
                "the line is one of the text");
        Require(mistake.column >= 1 && mistake.column <= static_cast<int>(mistake.text.size()) + 1,
                "the column is one of the line");
        Require(!mistake.message.empty(), "something is said");
    }
}

/// The register with what comes over the line, and every timer run.
void Work(Register& device, std::string_view bytes, const std::vector<desk::Fault>& faults) {
    std::vector<std::function<void()>> timers;
    desk::Faults tap(device, [&](std::chrono::milliseconds, std::function<void()> action) {
        timers.push_back(std::move(action));
    });
    emulator::Line line(device.GetModel().family, device);
    line.Attach(&tap);
    device.Paper().OnLine([&](const std::string&) { tap.LinePrinted(); });
    for (const desk::Fault& fault : faults) tap.Add(fault);
    for (std::size_t at = 0; at < bytes.size(); at += 40) {
        const std::string_view part = bytes.substr(at, 40);
        line.Feed({reinterpret_cast<const std::uint8_t*>(part.data()), part.size()});
        line.Sent();
        line.Idle();
    }
    line.Unsent();
    for (const auto& timer : timers) timer();
    Require(device.StatusBlock().size() == 15, "the status has its size");
}

void OrderFaults(RegisterConfig config, std::string_view text, std::string_view bytes) {
    const std::vector<desk::Fault> faults = desk::ReadFaults(text);
    for (const desk::Fault& fault : faults)
        Require(desk::ReadFault(fault.text) == fault, "its words order the same fault");
    Register device(std::move(config));
    Work(device, bytes, faults);
}

void Program(const RegisterConfig& config, std::string_view text, std::string_view bytes) {
    Register device(desk::Programmed(config, text));
    Work(device, bytes, {});
}

void Recall(RegisterConfig config, std::string_view text, std::string_view bytes) {
    Register device(std::move(config));
    const emulator::RegisterMemory memory = desk::ReadState(device.GetModel(), text);
    device.Recall(memory);
    Require(device.Remember() == memory, "it remembers what it was told");
    const std::string written = desk::StateText(device.GetModel(), memory);
    Require(desk::ReadState(device.GetModel(), written) == memory, "and writes it so");
    Work(device, bytes, {});
}

void HoldAgain(std::string_view text) {
    for (const replay::LoggedRun& run : replay::ReadRuns(text)) {
        if (run.damage) {
            Require(run.damage->number >= 1 && !run.damage->text.empty(),
                    "a damaged line has its place");
            continue;
        }
        replay::Replay far(run);
        Require(run.steps.front().fromCaller, "the caller begins");
        for (const replay::Step& step : run.steps)
            if (step.fromCaller) far.Feed(step.bytes);
        Require(far.Now() == replay::Replay::State::AsLogged, "the log agrees with itself");
        replay::Replay other(run);
        other.Feed({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
        other.Idle();
        other.Closed();
        Require(!other.Report().empty(), "something is told");
    }
}

void UseIt(std::uint8_t choice, std::string_view text, std::string_view bytes) {
    if (choice % 4 == 0) return OrderFaults(ConfigOf(choice), text, bytes);
    if (choice % 4 == 1) return Program(ConfigOf(choice), text, bytes);
    if (choice % 4 == 2) return Recall(ConfigOf(choice), text, bytes);
    HoldAgain(text);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    tally.Input();
    if (size == 0) return 0;
    const std::string all = AsText(data + 1, size - 1);
    const std::size_t end = std::min(all.find('\0'), all.size());
    const std::string_view text = std::string_view(all).substr(0, end);
    const std::string_view bytes = std::string_view(all).substr(std::min(end + 1, all.size()));
    try {
        UseIt(data[0], text, bytes);
        tally.Count();
    } catch (const desk::Mistakes& mistakes) {
        RequirePlaces(mistakes, text);
    }
    return 0;
}
