// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/api/Receipt.h"

#include <algorithm>
#include <exception>
#include <span>
#include <vector>

#include "companion/api/Jobs.h"
#include "companion/api/MemoryFile.h"
#include "companion/api/Verdicts.h"
#include "companion/job/Following.h"
#include "companion/job/Outcome.h"
#include "companion/plan/Plan.h"
#include "companion/runner/RegisterRun.h"
#include "emulator/Register.h"
#include "emulator/RegisterParts.h"
#include "emulator/Svg.h"

namespace api {

using emulator::Register;
using emulator::RegisterConfig;
using journal::Job;
using runner::Profile;

namespace {

constexpr std::uint8_t ocelot = 4;
constexpr std::uint8_t margay = 8;
constexpr emulator::Money enoughToPayOut = 100'000'000;

const emulator::Model& ModelOf(std::uint8_t code) {
    const auto models = emulator::Models();
    return models[code < models.size() ? code : ocelot];
}

// An article that the real register knows is sold by its number.
void AddPlu(const plan::Command& command, RegisterConfig& config) {
    constexpr std::size_t numberSize = 7;
    if (command.code != emulator::PluSale && command.code != emulator::PluReturn) return;
    if (command.payload.size() < numberSize) return;
    const auto number = emulator::ReadBcd(std::span(command.payload).first(numberSize));
    if (!number) return;
    const auto wanted = static_cast<std::uint64_t>(*number);
    if (std::ranges::find(config.plus, wanted, &emulator::Plu::number) != config.plus.end()) return;
    config.plus.push_back({wanted, "PLU " + std::to_string(wanted), 0, 1});
}

RegisterConfig ConfigOf(const Drawing& drawing, const std::vector<plan::Command>& plan) {
    RegisterConfig config;
    config.model = &ModelOf(drawing.model);
    config.lastReceipt = drawing.lastReceipt.value_or(0);
    config.drawerCash = enoughToPayOut;
    config.header.clear();
    config.plus.clear();
    for (const plan::Command& command : plan) AddPlu(command, config);
    return config;
}

// The lines of what was refused.
std::vector<int> Print(const std::vector<plan::Command>& plan, Register& device) {
    std::vector<int> refused;
    std::uint16_t sequence = 0;
    const auto execute = [&](std::uint8_t code, emulator::View payload) {
        const bool done = device.Execute(code, ++sequence, payload);
        device.CloseCommand();
        return done;
    };
    const std::vector<std::uint8_t> nobody = {0};
    execute(emulator::EnterFiscalMode, nobody);
    for (const plan::Command& command : plan) {
        const bool done = execute(command.code, command.payload);
        if (!done && (refused.empty() || refused.back() != command.line))
            refused.push_back(command.line);
    }
    execute(emulator::ExitFiscalMode, {});
    return refused;
}

// Two characters stay free at the edges of the band.
std::vector<std::string> MarkOf(const std::vector<int>& refused) {
    std::vector<std::string> mark = {"SIMULATION", "NOT A FISCAL RECEIPT"};
    if (refused.empty()) return mark;
    mark.emplace_back("NOT DRAWN:");
    constexpr std::size_t most = 10;
    for (const int line : std::span(refused).first(std::min(refused.size(), most)))
        mark.push_back("line " + std::to_string(line));
    if (refused.size() > most) mark.push_back(std::to_string(refused.size() - most) + " more");
    return mark;
}

// The model as the register said it in the job's run, else the one that such frames are of.
std::uint8_t ModelIn(const Profile* profile, const Job& job) try {
    if (profile == nullptr) return ocelot;
    if (!job.logs.empty()) {
        const auto status = job::FirstStatus(*profile, runner::DebugLogOf(job.logs));
        if (status) return status->protocol;
    }
    return profile->protocolFormatting == 1 ? margay : ocelot;
} catch (const std::exception&) {  // the log is gone
    return ocelot;
}

std::optional<std::uint32_t> ReceiptBefore(const Job& job) {
    const auto outcome = RecordOf(job);
    return outcome ? outcome->receipt.before : std::nullopt;
}

}  // namespace

std::string Draw(const Drawing& drawing) {
    const MemoryFile file(drawing.content);
    const std::vector<plan::Command> plan =
        plan::CommandsOf(file.Path(), drawing.model, drawing.codePage);
    Register device(ConfigOf(drawing, plan));
    const std::vector<int> refused = Print(plan, device);
    const emulator::Tape& tape = device.Paper();
    return emulator::RenderSvg(tape.Whole(), tape.Width(), MarkOf(refused));
}

http::Reply ShowReceipt(const Call& call) {
    const std::optional<Job> job = JobOf(call);
    if (!job) return NoSuchJob();
    const std::string tag = TagOf(*job, call.journal);
    http::Response response{200, "image/svg+xml", "", {}};
    if (IsKnownTag(call.request.Header("if-none-match"), tag)) {
        response = {304, "", "", {}};
    } else {
        const Profile* profile = ProfileOf(call.settings, job->registerName);
        response.body = Draw({job->content, profile != nullptr ? profile->codePage : "RIM",
                              ModelIn(profile, *job), ReceiptBefore(*job)});
    }
    // A picture that is opened by itself is a page that could do something.
    response.headers = {{"Cache-Control", "no-cache"},
                        {"ETag", tag},
                        {"Content-Security-Policy", "default-src 'none'; sandbox"}};
    return response;
}

}  // namespace api
