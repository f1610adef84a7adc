// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The debug log that a run has left, which anybody may have written: the account of it never fails,
// its interval is one, and what is certain is not taken back by what follows.

#include <utility>

#include "ECR.h"
#include "companion/transcript/Transcript.h"
#include "companion/verdict/Account.h"
#include "fuzz/Property.h"

namespace {

Tally tally("fuzz_log", "of them with a command in the log");

using verdict::Account;
using verdict::Acted;
using verdict::Verdict;

/// One byte chooses the frames and the habits of the register.
verdict::Question QuestionOf(std::uint8_t choice) {
    verdict::Question question;
    question.wire.family =
        (choice & 1) != 0 ? ProtocolFormatting_Margay : ProtocolFormatting_Ocelot;
    question.wire.unchecked = (choice & 2) != 0;
    question.promises.forgetsAtRequest = (choice & 4) != 0;
    question.promises.answersStrayEof = (choice & 8) != 0;
    question.promises.forgetsAtStatus = (choice & 16) != 0;
    if ((choice & 32) != 0) question.before = {verdict::Commands::All(), 2};
    question.plan = {CMD_DEPT_SALE, CMD_DEPT_SALE, CMD_TENDER, CMD_OPEN_CASH_DRAWER};
    return question;
}

void RequireSense(const Account& account, const Verdict& told) {
    Require(told.commands.size() == 4, "there is an answer to each command");
    Require(told.AtLeast() <= told.AtMost() && told.AtMost() <= 4, "the interval is one");
    Require(told.What() == verdict::KindOf(told.commands), "the verdict follows from the commands");
    if (account.CommandsSent() == 0) Require(told.AtLeast() == 0, "nothing was done unsent");
}

void RequireNothingTakenBack(const Verdict& before, const Verdict& after) {
    for (std::size_t i = 0; i < before.commands.size(); ++i) {
        const bool taken = before.commands[i] == Acted::Yes && after.commands[i] == Acted::No;
        Require(!taken, "what was done stays done");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    ResetGlobals();
    tally.Input();
    if (size == 0) return 0;
    Account account(QuestionOf(data[0]));
    const std::string log = AsText(data + 1, size - 1);
    const transcript::Transcript all = transcript::ReadLog(log);
    Verdict before = account.Conclude();
    for (const transcript::Block& block : all.blocks) {
        block.toRegister ? account.Wrote(block.bytes) : account.Arrived(block.bytes);
        Verdict after = account.Conclude();
        RequireSense(account, after);
        RequireNothingTakenBack(before, after);
        before = std::move(after);
    }
    account.CutOff();
    account.NextRun();
    RequireSense(account, account.Conclude());
    if (account.CommandsSent() > 0) tally.Count();
    return 0;
}
