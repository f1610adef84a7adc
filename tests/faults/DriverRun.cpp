// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "tests/faults/DriverRun.h"

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "FiscalCommandProcessor.h"
#include "Globals.h"
#include "IniFile.h"
#include "VOLTIS.h"
#include "companion/workbench/Defaults.h"
#include "tests/faults/Telling.h"

namespace faults {

using emulator::Register;
using emulator::WireFamily;

RunFolder::RunFolder(WireFamily family, const std::string& commands) {
    folder_.Write("cmd.txt", commands);
    folder_.Write("voltis.ini", workbench::FrameSettings(family).Text());
}

RunFiles RunFolder::Files() const {
    return {folder_.File("cmd.txt"), folder_.File("voltis.ini"),
            folder_.File("result" + std::to_string(getpid()) + ".txt")};
}

emulator::RegisterConfig DefaultRegister(WireFamily family) {
    emulator::RegisterConfig config = workbench::RegisterFor(family);
    config.lastReceipt = receiptsBefore;
    return config;
}

Told RunDriver(const RunFiles& files) {
    Told told;
    IniFile::SetFile(files.iniFile, false);
    IniFile::SetSection(sectionName, false);
    try {
        FiscalCommandProcessor_Initialize();
        Execute(files.commandFile, files.resultFile);
    } catch (...) {
        told.escaped = true;
    }
    told.exitCode = GetPRC();
    told.result = ReadWholeFile(files.resultFile);
    unlink(files.resultFile.c_str());
    return told;
}

namespace {

/// In shared memory, filled by the child.
struct HealthyNotes {
    bool perfect;
    char message[200];
    std::size_t bytesToRegister, bytesToDriver;
    std::size_t journalSize;
    std::uint8_t journal[4096];  // command, size of the parameters, parameters
};

void NoteHealthy(const Told& told, FaultyLine& line, HealthyNotes& notes) {
    const Register& device = line.Device();
    notes.perfect =
        told.exitCode == 0 && !told.escaped && !line.Forged().Any() && !line.Strayed().Any() &&
        ResultValue(told.result, "Message") == "OK" &&
        ResultValue(told.result, "LastReceiptNo") == std::to_string(device.ReceiptNumber());
    told.result.copy(notes.message, sizeof notes.message - 1);
    notes.bytesToRegister = line.Plan().Sent(Direction::ToRegister);
    notes.bytesToDriver = line.Plan().Sent(Direction::ToDriver);
    for (const Action& action : ActionsSince(device, 0)) {
        if (notes.journalSize + 2 + action.payload.size() > sizeof notes.journal) abort();
        notes.journal[notes.journalSize++] = action.command;
        notes.journal[notes.journalSize++] = static_cast<std::uint8_t>(action.payload.size());
        for (std::uint8_t byte : action.payload) notes.journal[notes.journalSize++] = byte;
    }
}

HealthyRun Unfold(const HealthyNotes& notes) {
    HealthyRun run{{}, notes.bytesToRegister, notes.bytesToDriver};
    for (std::size_t at = 0; at < notes.journalSize;) {
        const std::uint8_t* parameters = &notes.journal[at + 2];
        const std::size_t size = notes.journal[at + 1];
        run.actions.push_back({notes.journal[at], {parameters, parameters + size}});
        at += 2 + size;
    }
    return run;
}

}  // namespace

HealthyRun RunHealthy(const RunFolder& folder, WireFamily family) {
    void* shared = mmap(nullptr, sizeof(HealthyNotes), PROT_READ | PROT_WRITE,
                        MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (shared == MAP_FAILED) {
        perror("mmap");
        exit(EXIT_FAILURE);
    }
    auto* notes = static_cast<HealthyNotes*>(shared);
    const pid_t child = fork();
    if (child == 0) {
        TheLine() = std::make_unique<FaultyLine>(family, DefaultRegister(family), FaultPlan());
        NoteHealthy(RunDriver(folder.Files()), *TheLine(), *notes);
        _exit(0);
    }
    waitpid(child, nullptr, 0);
    HealthyRun run = Unfold(*notes);
    if (!notes->perfect || run.actions.empty()) {
        fprintf(stderr, "The run without faults is not perfect: %s\n", notes->message);
        exit(EXIT_FAILURE);
    }
    munmap(shared, sizeof(HealthyNotes));
    return run;
}

namespace {

/// What the driver owes whatever it heard.
std::optional<std::string> BrokenByDriver(const Told& told, const FaultyLine& line,
                                          const Actions& expected) {
    if (told.escaped) return "an exception that is none of the driver's";
    if (line.FramesFromDriver() > MostFrames(expected.size())) return "more frames than allowed";
    if (ResultValue(told.result, "ResultCode") != std::to_string(told.exitCode))
        return "result file and exit code differ";
    const bool written = line.FiscalDataFrames() > 0;
    switch (told.exitCode) {
        case 0:
            return std::nullopt;
        case 101:
            return written ? std::nullopt : std::optional("101, but nothing was written");
        case 1:
        case 2:
            return written ? std::optional("1 or 2, but a fiscal data frame was written")
                           : std::nullopt;
        default:
            return "an exit code that does not exist";
    }
}

/// What it owes if both ends heard what was said to them.
std::optional<std::string> BrokenInRegister(const Told& told, const Register& device,
                                            const Actions& expected) {
    if (const auto complaint = Complaint(device)) return complaint;
    const Actions actions = ActionsSince(device, 0);
    if (told.exitCode == 0) {
        if (actions != expected) return "OK, but not every command exactly once in order";
        const std::string number = std::to_string(device.ReceiptNumber());
        if (ResultValue(told.result, "LastReceiptNo") != number) return "OK with a wrong number";
        return std::nullopt;
    }
    if (!IsBeginning(actions, expected))
        return "failed, but what was done is no beginning of the file";
    if (told.exitCode != 101 && !actions.empty()) return "1 or 2, but something was done";
    return std::nullopt;
}

}  // namespace

std::optional<Breach> BrokenPromise(const Told& told, FaultyLine& line, const Actions& expected) {
    if (const auto broken = BrokenByDriver(told, line, expected)) return Breach{*broken, true};
    if (const auto broken = BrokenInRegister(told, line.Device(), expected))
        return Breach{*broken, false};
    return std::nullopt;
}

std::optional<std::string> Excuse(const Breach& breach, const Forgeries& forged,
                                  const Strays& strayed) {
    if (breach.byDriverAlone) return std::nullopt;
    if (forged.data > 0) return "the register took a spoilt data frame";
    if (forged.requests > 0) return "the register took a spoilt request";
    if (forged.statuses > 0) return "the driver took a spoilt status";
    if (forged.acks > 0) return "the driver took a spoilt answer for ACK";
    if (strayed.noise > 0) return "the driver took noise for an answer";
    if (strayed.stale > 0) return "the driver took the answer to an earlier frame";
    return std::nullopt;
}

Outcome MeasuredSale::RunWith(const std::vector<Fault>& faults) const {
    TheLine() = std::make_unique<FaultyLine>(family_, DefaultRegister(family_), FaultPlan(faults));
    const Told told = RunDriver(folder_.Files());
    FaultyLine& line = *TheLine();
    const int frames = line.FramesFromDriver();
    const auto wrong = WrongVerdict(line, family_, healthy_.actions);
    if (wrong && !Misled(line, family_)) {
        std::string note = "the verdict is wrong: " + *wrong;
        for (const Fault& fault : faults) note += "; " + Describe(fault);
        return Judged(Verdict::Violation, told.exitCode, frames, note);
    }
    if (wrong)
        return Judged(Verdict::Excused, told.exitCode, frames, "a forged frame misled the verdict");
    const auto broken = BrokenPromise(told, line, healthy_.actions);
    if (!broken)
        return Judged(told.exitCode == 0 ? Verdict::Ok : Verdict::Failed, told.exitCode, frames);
    if (const auto excuse = Excuse(*broken, line.Forged(), line.Strayed()))
        return Judged(Verdict::Excused, told.exitCode, frames, *excuse);
    std::string note = broken->what + "; " + ResultValue(told.result, "Message");
    for (const Fault& fault : faults) note += "; " + Describe(fault);
    return Judged(Verdict::Violation, told.exitCode, frames, note);
}

}  // namespace faults
