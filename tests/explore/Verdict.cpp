// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "tests/explore/Verdict.h"

#include <algorithm>
#include <array>

#include "companion/workbench/ResultFile.h"

namespace explore {

namespace {

constexpr std::array<std::string_view, issueCount> words = {"a command is missing",
                                                            "a command was done twice",
                                                            "something else was done",
                                                            "no beginning of the file was done",
                                                            "a command was done",
                                                            "a data frame was written",
                                                            "no data frame was written",
                                                            "a command was refused",
                                                            "an end-of-file frame out of turn",
                                                            "wrong receipt number",
                                                            "result file and exit code differ",
                                                            "unexpected exception",
                                                            "the verdict is wrong"};

long CountOf(const Actions& all, const Action& one) {
    return std::count(all.begin(), all.end(), one);
}

bool LacksOne(const Actions& done, const Actions& expected) {
    return std::any_of(expected.begin(), expected.end(), [&](const Action& one) {
        return CountOf(done, one) < CountOf(expected, one);
    });
}

void JudgeOk(const Told& told, const Actions& done, const Actions& expected,
             const emulator::Register& device, RunEnd& end) {
    // In another order counts as missing: the first that is out of place was not done in its turn.
    const bool asExpected = done == expected;
    if (LacksOne(done, expected) || (!asExpected && done.size() == expected.size()))
        end.Add(Issue::Missing);
    if (told.refusal) end.Add(Issue::Refused);
    const char* const key = device.ReceiptInProgress() ? "CurrentReceiptNo" : "LastReceiptNo";
    if (workbench::ResultValue(told.result, key) != std::to_string(device.ReceiptNumber()))
        end.Add(Issue::WrongNumber);
}

void JudgeFailed(const Told& told, const Actions& done, const Actions& expected, RunEnd& end) {
    if (told.end.exitCode == 101) {
        if (!told.fiscalFrame) end.Add(Issue::Unwritten);
    } else if (told.end.exitCode == 1 || told.end.exitCode == 2) {
        if (told.fiscalFrame) end.Add(Issue::Written);
        if (!done.empty()) end.Add(Issue::Acted);
    } else {
        end.Add(Issue::WrongResult);
    }
    if (!faults::IsBeginning(done, expected) && !end.Has(Issue::Twice) && !end.Has(Issue::Alien))
        end.Add(Issue::NoBeginning);
}

}  // namespace

std::string_view IssueWord(Issue issue) {
    return words.at(static_cast<std::size_t>(issue));
}

RunEnd Judge(const Told& told, const Actions& done, const Actions& expected,
             const emulator::Register& device) {
    RunEnd end{told.end.exitCode, 0, {}};
    for (const Action& one : done) {
        if (CountOf(done, one) <= CountOf(expected, one)) continue;
        end.Add(CountOf(expected, one) > 0 ? Issue::Twice : Issue::Alien);
    }
    if (told.outOfTurn) end.Add(Issue::OutOfTurn);
    if (told.end.escaped) end.Add(Issue::Escaped);
    if (workbench::ResultValue(told.result, "ResultCode") != std::to_string(told.end.exitCode))
        end.Add(Issue::WrongResult);
    if (told.end.exitCode == 0)
        JudgeOk(told, done, expected, device, end);
    else
        JudgeFailed(told, done, expected, end);
    return end;
}

std::string EndingText(const Ending& ending) {
    std::string text;
    for (const RunEnd& end : ending) {
        text += (text.empty() ? "" : ", then ") + std::to_string(end.exitCode);
        std::string issues;
        for (std::size_t i = 0; i < issueCount; ++i) {
            if (!end.Has(static_cast<Issue>(i))) continue;
            issues += issues.empty() ? " (" : ", ";
            issues += words.at(i);
        }
        if (end.verdicts.withStatus == Verdicts::Known::Unknown)
            issues += (issues.empty() ? " (" : ", ") + std::string("nobody can tell");
        if (!issues.empty()) text += issues + ")";
    }
    return text;
}

}  // namespace explore
