// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "tests/faults/run/Truth.h"

#include "companion/workbench/ResultFile.h"

namespace faults {

namespace {

std::string Of(const Truth& truth) {
    return ", with " + std::to_string(truth.done) + " of " + std::to_string(truth.all) + " done";
}

bool CodeIsTrue(int exitCode, const Truth& truth) {
    switch (exitCode) {
        case 0:
            return truth.done == truth.all;
        case 1:
        case 2:
            return truth.done == 0;
        default:
            return exitCode == 101;
    }
}

// All was printed, and yet 101: the driver was killed before it left fiscal mode, for example.
bool CodeFits(const Told& told) {
    if (told.verdict == journal::notPrinted) return told.exitCode == 1 || told.exitCode == 2;
    return told.exitCode == 101 || (told.exitCode == 0 && told.verdict == journal::printed);
}

bool VerdictIsTrue(const Told& told, const Truth& truth) {
    if (told.verdict == journal::printed) return truth.done == truth.all;
    if (told.verdict == journal::notPrinted) return truth.done == 0;
    const bool part = truth.done > 0 && truth.done < truth.all;
    return told.verdict == journal::part ? part && told.atLeast == told.atMost
                                         : told.verdict == journal::unknown;
}

bool IntervalIsTrue(const Told& told, const Truth& truth) {
    return told.atLeast <= truth.done && truth.done <= told.atMost;
}

std::optional<std::string> UntruthTold(const Told& told, const Truth& truth) {
    if (!VerdictIsTrue(told, truth)) return "told " + told.verdict + Of(truth);
    if (told.of != 0 && told.of != truth.all)
        return "told of " + std::to_string(told.of) + " commands";
    if (told.of != 0 && !IntervalIsTrue(told, truth))
        return "told at least " + std::to_string(told.atLeast) + ", at most " +
               std::to_string(told.atMost) + Of(truth);
    if (!CodeFits(told))
        return "told " + told.verdict + " with exit code " + std::to_string(told.exitCode);
    return std::nullopt;
}

// Whole and true, whatever became of the call.
bool ResultIsTrue(const std::string& result, const Truth& truth) {
    const std::string code = workbench::ResultValue(result, "ResultCode");
    return result.empty() || (!code.empty() && CodeIsTrue(std::stoi(code), truth));
}

bool StateIsTrue(const Truth& truth) {
    if (truth.done == 0) return true;
    return truth.row && truth.row->state != journal::State::Received &&
           truth.row->state != journal::State::Failed;
}

}  // namespace

std::optional<std::string> Untruth(const Call& call, const Truth& truth) {
    if (!call.inTime) return "did not end";
    if (!StateIsTrue(truth))
        return "the journal has " + (truth.row ? std::string(Word(truth.row->state)) : "nothing") +
               Of(truth);
    if (!call.Killed() && !CodeIsTrue(call.exitCode, truth))
        return "exit code " + std::to_string(call.exitCode) + Of(truth);
    if (!ResultIsTrue(call.result, truth)) return "result file '" + call.result + "'" + Of(truth);
    if (!call.told) return std::nullopt;
    if (!call.Killed() && call.exitCode != call.told->exitCode)
        return "told another exit code than " + std::to_string(call.exitCode);
    return UntruthTold(*call.told, truth);
}

std::optional<std::string> Contradiction(const Call& call, const Call& next) {
    if (!call.told || !next.told) return "tells nothing: " + next.output;
    const bool same = next.told->replayed && call.told->verdict == next.told->verdict &&
                      call.told->atLeast == next.told->atLeast &&
                      call.told->atMost == next.told->atMost;
    if (same) return std::nullopt;
    return call.told->verdict + ", and then " + next.told->verdict;
}

}  // namespace faults
