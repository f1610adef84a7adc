// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ctl/OutcomeText.h"

std::string ForPeople(const job::Outcome& outcome) {
    std::string text = std::string(job::Word(outcome.verdict)) + ": ";
    const std::string of = " of " + std::to_string(outcome.of) + " commands";
    if (outcome.of == 0 && outcome.verdict == verdict::Kind::Unknown) {
        text += "nobody can tell what was done";
    } else if (outcome.atLeast == outcome.atMost) {
        text += std::to_string(outcome.atLeast) + of;
    } else {
        text += "at least " + std::to_string(outcome.atLeast) + ", at most " +
                std::to_string(outcome.atMost) + of;
    }
    const bool begun = outcome.verdict != verdict::Kind::NotPrinted;
    if (begun && outcome.nextLine) text += ", go on at line " + std::to_string(*outcome.nextLine);
    if (outcome.receipt.after) text += ", receipt " + std::to_string(*outcome.receipt.after);
    if (outcome.receipt.open.value_or(false)) text += " is open";
    if (outcome.replayed) text += " (known from before, nothing was sent)";
    return text + "\n";
}

std::string WhyOf(const job::Outcome& outcome) {
    if (!outcome.reason.empty()) return outcome.reason;
    const bool failed = outcome.driver && outcome.driver->exitCode != 0;
    return failed ? outcome.driver->message : "";
}
