// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Files with one mistake or none: `voltisctl check` finds one where the driver does, says it first,
// in the same words and of the same line.
//
//   fault_check_agrees            a sample (--runs=N files, --seed=N)
//   fault_check_agrees --full     many
#include <unistd.h>

#include <cstdio>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>

#include "companion/workbench/Defaults.h"
#include "tests/faults/CommandGenerator.h"
#include "tests/faults/DriverRun.h"

namespace {

using namespace faults;
using emulator::Model;

constexpr std::size_t sampleSize = sanitized ? 100 : 300;
constexpr std::size_t fullSize = 20000;
constexpr std::size_t validPart = 3;  // one file in so many has no mistake

struct Case {
    const Model* model = nullptr;
    bool mistaken = false;
    std::string text;
};

Case MakeCase(std::uint64_t seed, std::size_t number) {
    Random random(seed * 1'000'033 + number);
    Case c;
    c.model = &emulator::Models()[Below(random, emulator::Models().size())];
    c.mistaken = number % validPart != 0;
    Commands commands = AnyCommands(random, *c.model);
    if (c.mistaken) MakeMistake(random, *c.model, commands);
    c.text = Write(random, commands).text;
    return c;
}

std::string FileOf(const TempDir& folder, std::size_t number) {
    return folder.File(std::to_string(number) + ".txt");
}

/// Keeps what the driver says about the file beside it: nothing when the check pass takes it.
Outcome AskTheDriver(const Case& c, const TempDir& folder, std::size_t number) {
    emulator::RegisterConfig config;
    config.model = c.model;
    TheLine() = std::make_unique<FaultyLine>(c.model->family, config, FaultPlan());
    const std::string name = std::to_string(number);
    const RunFiles files = {
        folder.Write(name + ".txt", c.text),
        folder.Write(name + ".ini", workbench::FrameSettings(c.model->family).Text()),
        folder.File(name + ".result")};
    const Told told = RunDriver(files);
    unlink(files.iniFile.c_str());
    const bool refused = told.exitCode == 1 && !told.result.empty();
    folder.Write(name + ".said", refused ? ResultValue(told.result, "Message") : "");
    return Judged(refused ? Verdict::Failed : Verdict::Ok, told.exitCode, 0);
}

std::string ReadAll(const std::string& path) {
    std::ifstream in(path);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

/// As the driver adds the place to it.
std::string WithPlace(const nlohmann::json& finding) {
    const std::string line = std::to_string(finding.at("line").get<int>());
    const std::string message = finding.at("message");
    if (finding.at("code") != "syntax") return message + " (line: " + line + ")";
    return message + " (file : '" + finding.at("file").get<std::string>() + "' line : " + line +
           ")";
}

using FirstErrors = std::map<std::string, std::string>;  // by file

void Take(const std::string& line, FirstErrors& errors) {
    const nlohmann::json finding = nlohmann::json::parse(line);
    if (finding.at("severity") != "error") return;
    errors.emplace(finding.at("file").get<std::string>(), WithPlace(finding));
}

/// Of the files that the list names, for one model.
void AskTheCheck(const Model& model, const std::string& list, FirstErrors& errors) {
    const std::string command = "xargs '" VOLTISCTL_PATH "' check --format json --model " +
                                std::string(model.name) + " --protocol " +
                                std::to_string(model.version) + " < '" + list + "'";
    FILE* said = popen(command.c_str(), "r");
    if (said == nullptr) return;
    char* line = nullptr;
    std::size_t size = 0;
    while (getline(&line, &size, said) > 0) Take(line, errors);
    free(line);
    pclose(said);
}

FirstErrors AskAboutAll(const Options& options, std::size_t count, const TempDir& folder) {
    FirstErrors errors;
    std::map<const Model*, std::string> lists;
    for (std::size_t i = 0; i < count; ++i)
        lists[MakeCase(options.seed, i).model] += FileOf(folder, i) + "\n";
    for (const auto& [model, list] : lists) AskTheCheck(*model, folder.Write("list", list), errors);
    return errors;
}

void Compare(const Options& options, std::size_t count, const TempDir& folder, Tally& tally) {
    const FirstErrors errors = AskAboutAll(options, count, folder);
    for (std::size_t i = 0; i < count; ++i) {
        const std::string byDriver = ReadAll(folder.File(std::to_string(i) + ".said"));
        const auto found = errors.find(FileOf(folder, i));
        const std::string byCheck = found == errors.end() ? "" : found->second;
        if (byDriver != byCheck) {
            tally.Complain("file " + std::to_string(i) + ": the driver says '" + byDriver +
                           "', the check '" + byCheck + "'");
        }
        if (MakeCase(options.seed, i).mistaken == byDriver.empty())
            tally.Complain("file " + std::to_string(i) + " is not what it was made for");
    }
}

}  // namespace

int main(int argc, char* argv[]) {
    const Options options = ParseOptions(argc, argv);
    const std::size_t wanted = options.full ? fullSize : sampleSize;
    const std::size_t count = options.runs != 0 ? options.runs : wanted;
    const CampaignLimits limits{10, options.full ? 1500u : 130u};
    const TempDir folder;
    Tally tally = RunCampaign(count, limits, [&](std::size_t i) {
        return AskTheDriver(MakeCase(options.seed, i), folder, i);
    });
    Compare(options, count, folder, tally);
    return Report("fault_check_agrees, seed " + std::to_string(options.seed), tally);
}
