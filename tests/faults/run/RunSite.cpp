// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "tests/faults/run/RunSite.h"

#include <filesystem>
#include <future>

#include "companion/workbench/Defaults.h"
#include "tests/support/Programs.h"

namespace fs = std::filesystem;

namespace faults {

const char saleOfThree[] =
    "SALE: DEPTNR=1; NAME=Tea; PRICE=2.50; QNTY=2\n"
    "SALE: DEPTNR=1; NAME=Rye; PRICE=1.25; QNTY=1\n"
    "SALE: DEPTNR=2; NAME=Jam; PRICE=3.75; QNTY=1\n"
    "TENDER: MEDIA=CASH; AMOUNT=10.00\n";

RunSite::RunSite(emulator::WireFamily family, std::size_t registers) : family_(family) {
    for (const char* name : {"registers", "locks", "logs", "pos"})
        fs::create_directory(folder_.File(name));
    if (registers == 1) AddRegister("voltis.ini");
    for (std::size_t i = 1; i <= registers && registers > 1; ++i)
        AddRegister("registers/r" + std::to_string(i) + ".ini");
}

void RunSite::AddRegister(const std::string& file) {
    // No time for the journal is added to this model's time-outs, so a lost answer costs little.
    emulator::RegisterConfig config = workbench::RegisterOf("lynx");
    config.lastReceipt = receiptsBefore;
    stations_.push_back(std::make_unique<workbench::Station>(config, family_));
    // Long enough for a busy machine.
    std::string text = "[VOLTIS]\nDevice=" + stations_.back()->server.SlavePath() +
                       "\nResultFileName=result.txt\nCmdTimeout_Default=400\n"
                       "CmdTimeout_Tender=400\nCmdTimeout_Report=400\n";
    if (family_ == emulator::WireFamily::Margay) text += "ProtocolFormatting=1\n";
    folder_.Write(file, text);
}

runner::CommandLine RunSite::RunLine(const std::string& job, const std::string& content,
                                     const std::string& registerName, int waitSeconds) {
    fs::create_directories(folder_.File("pos/" + job));
    const std::string file = folder_.Write("pos/" + job + "/sale.txt", content);
    return {VOLTISCTL_PATH,
            "run",
            "--json",
            "--config",
            folder_.Path(),
            "--locks",
            File("locks"),
            "--logs",
            File("logs"),
            "--journal",
            File("journal.db"),
            "--driver",
            VoltisPath(),
            "--register",
            registerName,
            "--wait",
            std::to_string(waitSeconds),
            "--job",
            job,
            file};
}

std::string RunSite::ResultFile(const std::string& job) const {
    return folder_.File("pos/" + job + "/result.txt");
}

void RunSite::OnChunk(std::function<void()> action) {
    const auto filter = [action = std::move(action)](const emulator::Bytes& bytes) {
        if (!bytes.empty()) action();
    };
    stations_.front()->line.OnReceive(filter);
    stations_.front()->line.OnSend(filter);
}

void RunSite::Serve() {
    for (const auto& station : stations_)
        servings_.push_back(std::make_unique<workbench::Serving>(station->server));
}

void RunSite::Ask(std::size_t registerIndex, const std::function<void()>& question) {
    auto& server = stations_[registerIndex]->server;
    std::promise<void> answered;
    // One more look at the line lies between the two posts.
    server.Post([&] {
        server.Post([&] {
            question();
            answered.set_value();
        });
    });
    answered.get_future().wait();
}

Actions RunSite::Done(std::size_t registerIndex) {
    Actions actions;
    Ask(registerIndex, [&] { actions = ActionsSince(stations_[registerIndex]->device, 0); });
    std::erase_if(actions,
                  [](const Action& action) { return action.command == emulator::ShowInfo; });
    return actions;
}

std::optional<std::string> RunSite::Complaints() {
    std::optional<std::string> complaint;
    for (std::size_t i = 0; i < stations_.size() && !complaint; ++i)
        Ask(i, [&] { complaint = Complaint(stations_[i]->device); });
    return complaint;
}

std::optional<journal::Job> RunSite::Row(const std::string& job) const {
    if (!fs::exists(File("journal.db"))) return std::nullopt;
    return journal::Journal(File("journal.db")).Find(job);
}

}  // namespace faults
