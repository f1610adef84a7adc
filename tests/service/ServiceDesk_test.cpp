// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/service/Desk.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "companion/job/Outcome.h"
#include "tests/support/TempDir.h"

using journal::State;
using service::Admission;
using service::Ticket;
using testing::HasSubstr;

namespace {

class Desk : public testing::Test {
  protected:
    Ticket Submit(const std::string& id, const std::string& content = "TENDER\n",
                  const std::string& registerName = "bar") {
        return desk_.Submit({registerName, id, content, "till 1", "job.txt"});
    }
    void End(const Ticket& ticket, const std::string& verdict) {
        journal_.StartSending(ticket.job.number, "bar", "");
        journal_.Finish(ticket.job.number, {verdict, "{}", 101, false});
    }

    TempDir folder_;
    journal::Journal journal_{folder_.File("journal.db")};
    service::Desk desk_{journal_, 2};
};

}  // namespace

TEST_F(Desk, TakesANewJobIntoTheQueue) {
    const Ticket ticket = Submit("a");
    EXPECT_EQ(ticket.admission, Admission::Queued);
    EXPECT_TRUE(ticket.job.InQueue());
    EXPECT_EQ(ticket.job.till, "till 1");
    EXPECT_EQ(ticket.job.file, "job.txt");
    EXPECT_EQ(journal_.NextInQueue("bar"), ticket.job.number);
}

TEST_F(Desk, KnowsAJobThatWaits) {
    const Ticket ticket = Submit("a");
    EXPECT_EQ(Submit("a").admission, Admission::Waiting);
    EXPECT_EQ(Submit("a").job.number, ticket.job.number);
    EXPECT_EQ(journal_.QueueLength("bar"), 1);
}

TEST_F(Desk, KnowsAJobThatIsBeingPrinted) {
    journal_.StartSending(Submit("a").job.number, "bar", "");
    EXPECT_EQ(Submit("a").admission, Admission::Sending);
}

TEST_F(Desk, KnowsTheResultOfAJobThatWasOrMayHaveBeenPrinted) {
    for (const std::string verdict : {journal::printed, journal::part, journal::unknown}) {
        End(Submit(verdict), verdict);
        EXPECT_EQ(Submit(verdict).admission, Admission::Settled) << verdict;
        EXPECT_EQ(Submit(verdict).job.verdict, verdict);
    }
    EXPECT_EQ(journal_.QueueLength("bar"), 0);
}

TEST_F(Desk, TakesAJobAgainOfWhichNothingWasPrinted) {
    End(Submit("a"), journal::notPrinted);
    const Ticket again = Submit("a");
    EXPECT_EQ(again.admission, Admission::Queued);
    EXPECT_EQ(again.job.state, State::Received);
}

TEST_F(Desk, TakesAJobAgainOfWhichNothingWasPrintedForAnotherRegister) {
    End(Submit("a"), journal::notPrinted);
    EXPECT_EQ(Submit("a", "TENDER\n", "kiosk").admission, Admission::Queued);
    EXPECT_EQ(journal_.QueueLength("kiosk"), 1);
}

TEST_F(Desk, RefusesAnotherContentUnderAnIdWhateverBecameOfTheJob) {
    const Ticket ticket = Submit("a");
    EXPECT_EQ(Submit("a", "EXIT\n").admission, Admission::OtherContent);
    End(ticket, journal::notPrinted);
    EXPECT_EQ(Submit("a", "EXIT\n").admission, Admission::OtherContent);
    EXPECT_EQ(Submit("a", "EXIT\n").job.number, ticket.job.number);
    EXPECT_EQ(journal_.QueueLength("bar"), 0);
}

TEST_F(Desk, RefusesAnotherRegisterUnderAnIdUntilItIsKnownThatNothingWasPrinted) {
    const Ticket ticket = Submit("a");
    EXPECT_EQ(Submit("a", "TENDER\n", "kiosk").admission, Admission::OtherRegister);
    End(ticket, journal::unknown);
    EXPECT_EQ(Submit("a", "TENDER\n", "kiosk").admission, Admission::OtherRegister);
    EXPECT_EQ(journal_.QueueLength("kiosk"), 0);
}

TEST_F(Desk, RefusesAJobTooMany) {
    Submit("a");
    Submit("b");
    EXPECT_EQ(Submit("c").admission, Admission::QueueFull);
    EXPECT_EQ(Submit("b").admission, Admission::Waiting);
    EXPECT_EQ(Submit("c", "TENDER\n", "kiosk").admission, Admission::Queued);
    EXPECT_FALSE(journal_.Find("c")->registerName == "bar");
}

TEST_F(Desk, WithdrawsAJobForGood) {
    const Ticket ticket = Submit("a");
    const journal::Job job = desk_.Withdraw(ticket.job.number, "till 2");
    EXPECT_EQ(job.withdrawnBy, "till 2");
    const job::Outcome outcome = job::FromRecord(job.outcome);
    EXPECT_EQ(outcome.exitCode, job::exitNotPrinted);
    EXPECT_EQ(outcome.id, "a");
    EXPECT_THAT(outcome.reason, HasSubstr("withdrawn by 'till 2'"));
    EXPECT_EQ(Submit("a").admission, Admission::Settled);
    EXPECT_EQ(Submit("a", "TENDER\n", "kiosk").admission, Admission::OtherRegister);
}

TEST_F(Desk, TakesAJobThatNobodyWaitsForOutOfTheQueueUntilItIsHandedInAgain) {
    const Ticket ticket = Submit("a");
    const journal::Job job = desk_.GiveUp(ticket.job.number, "the caller is gone");
    EXPECT_EQ(job.state, State::Failed);
    EXPECT_EQ(job.withdrawnBy, "");
    const job::Outcome outcome = job::FromRecord(job.outcome);
    EXPECT_EQ(outcome.exitCode, job::exitNotPrinted);
    EXPECT_EQ(outcome.reason, "the caller is gone");
    EXPECT_EQ(journal_.QueueLength("bar"), 0);
    EXPECT_EQ(Submit("a").admission, Admission::Queued);
}

TEST_F(Desk, GivesUpNothingThatIsInNoQueue) {
    const Ticket ticket = Submit("a");
    journal_.StartSending(ticket.job.number, "bar", "");
    EXPECT_THROW(desk_.GiveUp(ticket.job.number, "gone"), journal::WrongState);
    EXPECT_EQ(journal_.Get(ticket.job.number).state, State::Sending);
    const std::int64_t byItself = journal_.Receive({"b", "bar", "job.txt", "TENDER\n"});
    EXPECT_THROW(desk_.GiveUp(byItself, "gone"), journal::WrongState);
    EXPECT_EQ(journal_.Get(byItself).state, State::Received);
}

TEST_F(Desk, WithdrawsNothingThatIsBeingPrinted) {
    const Ticket ticket = Submit("a");
    journal_.StartSending(ticket.job.number, "bar", "");
    EXPECT_THROW(desk_.Withdraw(ticket.job.number, "till 2"), journal::WrongState);
    EXPECT_EQ(journal_.Get(ticket.job.number).state, State::Sending);
}
