// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Files with one mistake at a random place: nothing reaches the register, and the message names the
// mistake and its line. As a control, files without one pass.
//
//   fault_check            a sample (--runs=N files with a mistake, --seed=N)
//   fault_check --full     many
#include <unistd.h>

#include <map>
#include <set>

#include "ProcessorInternal.h"
#include "companion/workbench/Defaults.h"
#include "tests/faults/CommandGenerator.h"
#include "tests/faults/DriverRun.h"

namespace {

using namespace faults;
using emulator::Model;

constexpr std::size_t sampleSize = sanitized ? 300 : 1500;
constexpr std::size_t fullSize = 12000;
constexpr std::size_t validPart = 5;  // one valid file to so many with a mistake

/// All that a case is, from its number.
struct Case {
    const Model* model = nullptr;
    Commands commands;
    std::optional<Mistake> mistake;
    FileText file;
};

Case MakeCase(std::uint64_t seed, std::size_t number, bool valid) {
    Random random(seed * 1'000'003 + number);
    Case c;
    c.model = &emulator::Models()[Below(random, emulator::Models().size())];
    c.commands = AnyCommands(random, *c.model);
    if (!valid) c.mistake = MakeMistake(random, *c.model, c.commands);
    c.file = Write(random, c.commands);
    return c;
}

std::string ExpectedMessage(const Case& c, const std::string& commandFile) {
    const std::string line = std::to_string(c.file.lines[c.mistake->command]);
    return c.mistake->message + (c.mistake->syntax
                                     ? " (file : '" + commandFile + "' line : " + line + ")"
                                     : " (line: " + line + ")");
}

Outcome JudgeMistake(const Case& c, const Told& told, const std::string& commandFile) {
    const int frames = TheLine()->FramesFromDriver();
    const std::string message = ResultValue(told.result, "Message");
    const std::string expected = ExpectedMessage(c, commandFile);
    const auto broken = [&](const std::string& what) {
        return Judged(Verdict::Violation, told.exitCode, frames,
                      std::string(c.mistake->kind) + ": " + what + ": " + message);
    };
    if (told.exitCode != 1) return broken("passed");
    if (!TheLine()->Device().Journal().empty() || TheLine()->DataFrames() != 0)
        return broken("something was sent");
    if (message != expected) return broken("not '" + expected + "' but");
    if (ResultValue(told.result, "ErrorCode") != "1") return broken("wrong error code");
    return Judged(Verdict::Failed, told.exitCode, frames);
}

/// The register may have its reasons to refuse a command; the check pass may not.
Outcome JudgeValid(const Told& told) {
    const int frames = TheLine()->FramesFromDriver();
    if (const auto complaint = Complaint(TheLine()->Device()))
        return Judged(Verdict::Violation, told.exitCode, frames, *complaint);
    if (told.exitCode == 0) return Judged(Verdict::Ok, 0, frames);
    const std::string message = ResultValue(told.result, "Message");
    const bool refused = told.exitCode == 101 && !TheLine()->Device().Journal().empty() &&
                         ResultValue(told.result, "ErrorCode") == "250";
    return Judged(refused ? Verdict::Failed : Verdict::Violation, told.exitCode, frames, message);
}

Outcome RunCase(const Case& c, const TempDir& folder) {
    emulator::RegisterConfig config;
    config.model = c.model;
    config.strict = true;
    TheLine() = std::make_unique<FaultyLine>(c.model->family, config, FaultPlan());
    const std::string own = std::to_string(getpid());
    const RunFiles files = {
        folder.Write("cmd" + own, c.file.text),
        folder.Write("ini" + own, workbench::FrameSettings(c.model->family).Text()),
        folder.File("result" + own)};
    const Told told = RunDriver(files);
    unlink(files.commandFile.c_str());
    unlink(files.iniFile.c_str());
    return c.mistake ? JudgeMistake(c, told, files.commandFile) : JudgeValid(told);
}

void RequireAllKinds(std::uint64_t seed, std::size_t count, Tally& tally) {
    std::map<std::string_view, std::size_t> made;
    for (std::size_t i = 0; i < count; ++i) ++made[MakeCase(seed, i, false).mistake->kind];
    for (std::string_view kind : KindsOfMistake()) {
        if (made[kind] == 0) tally.Complain("no file with the mistake: " + std::string(kind));
    }
}

void RequireAllCommands(std::uint64_t seed, std::size_t count, Tally& tally) {
    std::set<std::string> made;
    for (std::size_t i = 0; i < count; ++i)
        for (const Command& command : MakeCase(seed, i, true).commands) made.insert(command.name);
    for (std::string_view name : KnownCommands()) {
        if (!made.contains(std::string(name)))
            tally.Complain("no file with the command " + std::string(name));
    }
}

}  // namespace

int main(int argc, char* argv[]) {
    const Options options = ParseOptions(argc, argv);
    const std::size_t wanted = options.full ? fullSize : sampleSize;
    const std::size_t count = options.runs != 0 ? options.runs : wanted;
    const CampaignLimits limits{10, options.full ? 1500u : 130u};
    const TempDir folder;

    Tally spoilt = RunCampaign(count, limits, [&](std::size_t i) {
        return RunCase(MakeCase(options.seed, i, false), folder);
    });
    RequireAllKinds(options.seed, count, spoilt);
    Tally valid = RunCampaign(count / validPart, limits, [&](std::size_t i) {
        return RunCase(MakeCase(options.seed, i, true), folder);
    });
    RequireAllCommands(options.seed, count / validPart, valid);
    if (valid.ok * 10 < valid.runs * 9) valid.Complain("the register refused too many of them");

    const std::string seed = ", seed " + std::to_string(options.seed);
    const int mistakes = Report("fault_check, files with a mistake" + seed, spoilt);
    const int control = Report("fault_check, files without one" + seed, valid);
    return mistakes + control == 0 ? 0 : 1;
}
