// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "tests/faults/system/Promise.h"

#include <stdexcept>

namespace faults {

namespace {

std::optional<std::string> BrokenResult(const TillRun& told, const Device& device, bool mayLack) {
    if (!told.result || told.result->empty())
        return mayLack ? std::nullopt : std::optional("no result file");
    if (ResultValue(*told.result, "ResultCode") != std::to_string(told.exitCode))
        return "result file and exit code differ";
    if (told.exitCode != 0) return std::nullopt;
    const std::string number = std::to_string(device.device.ReceiptNumber());
    if (ResultValue(*told.result, "LastReceiptNo") != number) return "OK with a wrong number";
    return std::nullopt;
}

/// What may have been done, by the exit code.
std::optional<std::string> BrokenActions(int exitCode, const Actions& actions,
                                         const Actions& expected) {
    if (exitCode == 0 && actions != expected)
        return "OK, but not every command exactly once in order";
    if (!IsBeginning(actions, expected))
        return "failed, but what was done is no beginning of the file";
    return std::nullopt;
}

std::optional<std::string> BrokenCode(int exitCode, const Spoken& spoken, bool writesMayFail) {
    switch (exitCode) {
        case 0:
            return std::nullopt;
        case 1:
        case 2:
            if (spoken.fiscalDataFrames > 0) return "1 or 2, but a fiscal data frame was written";
            return std::nullopt;
        case 101:
            if (spoken.fiscalDataFrames > 0) return std::nullopt;
            if (writesMayFail && spoken.fiscalRequests > 0) return std::nullopt;
            return "101, but nothing was written";
        default:
            return "an exit code that does not exist";
    }
}

}  // namespace

HealthySale RunHealthy(Till& till, emulator::WireFamily family) {
    Device device(family);
    FaultyPort port(device);
    const TillRun told = till.Run(port);
    const HealthySale run{ActionsSince(device.device, 0), port.FromDriver(), port.FromRegister()};
    const auto broken = BrokenPromise(told, device, 0, port, run.actions);
    if (broken || told.exitCode != 0 || run.actions.empty() || port.RegisterMisled())
        throw std::runtime_error("The run without faults is not perfect: " + broken.value_or("") +
                                 told.result.value_or("") + told.complaint + told.dbgLog);
    return run;
}

HealthySales::HealthySales(const std::string& commands) {
    for (const emulator::WireFamily family : bothFamilies) {
        Till till(family, commands);
        sales_[static_cast<std::size_t>(family)] = RunHealthy(till, family);
    }
}

std::optional<std::string> BrokenPromise(const TillRun& told, const Device& device,
                                         std::size_t journalBefore, const FaultyPort& port,
                                         const Actions& expected, Allowance allowance) {
    if (!told.inTime) return "did not end in time";
    if (!told.complaint.empty()) return "on standard error: " + told.complaint;
    if (const auto complaint = Complaint(device.device)) return complaint;
    const Spoken spoken = Listen(device.Family(), device.device.GetModel(), port.FromDriver());
    if (spoken.frames > MostFrames(expected.size())) return "more frames than allowed";
    if (spoken.broken) return "something on the wire that is no frame";
    if (const auto broken = BrokenCode(told.exitCode, spoken, allowance.writesMayFail))
        return broken;
    if (const auto broken =
            BrokenActions(told.exitCode, ActionsSince(device.device, journalBefore), expected))
        return broken;
    return BrokenResult(told, device, allowance.resultFileMayLack);
}

Outcome WellDone(const TillRun& told, const Spoken& spoken) {
    return Judged(told.exitCode == 0 ? Verdict::Ok : Verdict::Failed, told.exitCode, spoken.frames);
}

}  // namespace faults
