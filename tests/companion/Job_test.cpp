// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Jobs on an emulated register, with the driver that is shipped.
#include "companion/job/Job.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "ECR.h"
#include "companion/journal/Database.h"
#include "companion/runner/Files.h"
#include "tests/companion/Till.h"

namespace fs = std::filesystem;

using job::Outcome;
using journal::State;
using testing::HasSubstr;
using verdict::Kind;

namespace {

// A till with its journal.
class Counter : public testing::Test {
  protected:
    Counter() { fs::create_directory(site_.locks); }

    Outcome Do(const std::optional<std::string>& id, const std::string& content = oneSale,
               const job::Watcher& watcher = {}) {
        workbench::Serving serving(till_.Station().server);
        Outcome outcome = Unserved(id, content, watcher);
        serving.Finish();
        return outcome;
    }

    // With nobody at the other end of the line.
    Outcome Unserved(const std::optional<std::string>& id, const std::string& content = oneSale,
                     const job::Watcher& watcher = {}) {
        job::Jobs jobs(journal_, till_.profile, site_, Runs());
        return jobs.Do({id, till_.Files().File("sale.txt"), content, {}}, watcher);
    }

    std::string Runs() const { return till_.File("runs"); }
    emulator::Register& Device() { return till_.Device(); }

    // What the register acted on, but for the changes of its mode.
    std::vector<int> Done() {
        std::vector<int> codes;
        for (const emulator::Acted& acted : Device().Journal())
            if (acted.accepted && acted.command != emulator::EnterFiscalMode &&
                acted.command != emulator::ExitFiscalMode)
                codes.push_back(acted.command);
        return codes;
    }

    void OnSql(const std::string& sql) {
        const journal::Database database(till_.File("journal.db"), nullptr);
        journal::Run(database, sql);
    }
    // No job can come into that state any more.
    void Forbid(const std::string& state) {
        OnSql("CREATE TRIGGER forbidden BEFORE UPDATE ON jobs WHEN NEW.state='" + state +
              "' BEGIN SELECT RAISE(ABORT, 'the disk is full'); END");
    }

    Till till_;
    journal::Journal journal_{till_.File("journal.db")};
    job::Site site_{VOLTIS_PATH, till_.File("locks"), till_.File("logs")};
};

using Job = Counter;
using JobJournal = Counter;
using JobForgetting = Counter;

constexpr int sale = CMD_DEPT_SALE;
constexpr int tender = CMD_TENDER;
constexpr int display = CMD_SHOW_INFO;

}  // namespace

// --- the verdicts --------------------------------------------------------------------------------

TEST_F(Job, IsPrintedOnce) {
    const Outcome outcome = Do("A");
    EXPECT_EQ(outcome.verdict, Kind::Printed) << ToJson(outcome);
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_EQ(outcome.of, 2U);
    EXPECT_EQ(outcome.receipt.after, 1U);
    EXPECT_EQ(outcome.result, "[VOLTIS]\nResultCode=0\nMessage=OK\nLastReceiptNo=1");
    EXPECT_EQ(Done(), (std::vector{sale, tender}));
    EXPECT_EQ(journal_.Find("A")->state, State::Done);
}

TEST_F(Job, SendsNothingOfAFileWithAMistake) {
    const Outcome outcome = Do("A", "SALE: DEPTNR=1; AMOUNT=1.00\nNONSENSE\n");
    EXPECT_EQ(outcome.verdict, Kind::NotPrinted);
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_TRUE(Device().Journal().empty());
    EXPECT_EQ(journal_.Find("A")->state, State::Failed);
}

TEST_F(Job, IsNotPrintedWithoutPaper) {
    Device().SetReceiptPaper(false);
    const Outcome outcome = Do("A");
    EXPECT_EQ(outcome.verdict, Kind::NotPrinted);
    EXPECT_EQ(outcome.exitCode, 2);
    EXPECT_THAT(outcome.result, HasSubstr("Message=" + outcome.driver->message));
    EXPECT_THAT(outcome.driver->message, testing::ContainsRegex("paper"));
    EXPECT_TRUE(Done().empty());
}

TEST_F(Job, IsPrintedInPartWhenThePaperEndsInTheMiddle) {
    till_.Station().line.OnSend([this](emulator::Bytes&) {
        if (Done().size() == 1) Device().SetReceiptPaper(false);
    });
    const Outcome outcome = Do("A");
    EXPECT_EQ(outcome.verdict, Kind::Part) << ToJson(outcome);
    EXPECT_EQ(outcome.exitCode, 101);
    EXPECT_EQ(outcome.atLeast, 1U);
    EXPECT_EQ(outcome.atMost, 1U);
    EXPECT_EQ(outcome.nextLine, 2);
    EXPECT_TRUE(outcome.receipt.open.value_or(false));
    EXPECT_EQ(outcome.receipt.subtotal, 500);
    EXPECT_EQ(Done(), std::vector{sale});
}

TEST_F(Job, OfAStatusFileIsPrintedWhenTheRegisterAnswers) {
    const Outcome outcome = Do(std::nullopt, "GET_STATUS\n");
    EXPECT_EQ(outcome.verdict, Kind::Printed) << ToJson(outcome);
    EXPECT_EQ(outcome.of, 0U);
    till_.Device().PowerOff();
    const Outcome silent = Do(std::nullopt, "GET_STATUS\n");
    EXPECT_EQ(silent.verdict, Kind::NotPrinted);
    EXPECT_EQ(silent.exitCode, 2);
}

TEST_F(Job, OfAnExitFileEndsAsTheDriverDoes) {
    const Outcome outcome = Do(std::nullopt, "EXIT\n");
    EXPECT_EQ(outcome.driver->exitCode, 1);
    EXPECT_EQ(outcome.verdict, Kind::NotPrinted);
    EXPECT_EQ(outcome.exitCode, 1);
}

TEST_F(Job, IsNotPrintedWithoutTheDevice) {
    till_.profile.device = "/dev/serial/by-id/usb-none";
    const Outcome outcome = Unserved("A");
    EXPECT_EQ(outcome.verdict, Kind::NotPrinted);
    EXPECT_EQ(outcome.exitCode, 2);
    EXPECT_FALSE(outcome.driver);
    EXPECT_THAT(outcome.reason, HasSubstr("usb-none"));
}

TEST_F(Job, IsRefusedBeforeItIsSentWhenTheProfileNamesNoHabit) {
    till_.profile.habit = {"nonsense"};
    const Outcome outcome = Do("A");
    EXPECT_EQ(outcome.exitCode, 2);
    EXPECT_THAT(outcome.reason, HasSubstr("nonsense"));
    EXPECT_TRUE(Device().Journal().empty());
}

TEST_F(Job, IsToldAfterAnInterrupt) {
    const int stop = eventfd(1, EFD_CLOEXEC);  // before anything is sent
    const Outcome outcome = Do("A", oneSale, {stop, {}});
    close(stop);
    EXPECT_EQ(outcome.driver->exitCode, 137);
    EXPECT_TRUE(outcome.receipt.after) << ToJson(outcome);
    EXPECT_LE(outcome.atLeast, Done().size());
    EXPECT_GE(outcome.atMost, Done().size());
}

// --- the same ID again ---------------------------------------------------------------------------

TEST_F(JobJournal, AnswersWhatWasPrinted) {
    const Outcome first = Do("A");
    const std::size_t judged = Device().Journal().size();
    const Outcome second = Unserved("A");
    EXPECT_TRUE(second.replayed);
    EXPECT_EQ(second.exitCode, 0);
    EXPECT_EQ(second.result, first.result);
    EXPECT_EQ(Device().Journal().size(), judged);
}

TEST_F(JobJournal, RefusesOtherContent) {
    Do("A");
    const std::size_t judged = Device().Journal().size();
    const Outcome other = Do("A", "SALE: DEPTNR=1; AMOUNT=9\nTENDER\n");
    EXPECT_EQ(other.exitCode, 2);
    EXPECT_THAT(other.reason, HasSubstr("another content"));
    EXPECT_EQ(Device().Journal().size(), judged);
}

TEST_F(JobJournal, TriesAgainWhatWasNotPrinted) {
    Device().SetReceiptPaper(false);
    EXPECT_EQ(Do("A").exitCode, 2);
    Device().SetReceiptPaper(true);
    const Outcome again = Do("A");
    EXPECT_EQ(again.verdict, Kind::Printed);
    EXPECT_FALSE(again.replayed);
    EXPECT_EQ(Done(), (std::vector{sale, tender}));
}

TEST_F(JobJournal, PrintsJobsWithoutAnIdEachTime) {
    Do(std::nullopt);
    EXPECT_EQ(Do(std::nullopt).receipt.after, 2U);
    EXPECT_EQ(journal_.List().size(), 2U);
}

TEST_F(JobJournal, SendsNothingBeforeItIsWrittenDown) {
    Forbid("sending");
    const Outcome outcome = Do("A");
    EXPECT_EQ(outcome.exitCode, 2);
    EXPECT_THAT(outcome.reason, HasSubstr("the disk is full"));
    EXPECT_TRUE(Device().Journal().empty());
    OnSql("DROP TRIGGER forbidden");
    EXPECT_EQ(Do("A").verdict, Kind::Printed);
}

TEST_F(JobJournal, IsTheOnlyOneToTellThatAJobWasPrinted) {
    Forbid("done");
    const Outcome unwritten = Do("A");
    EXPECT_EQ(unwritten.verdict, Kind::Unknown);
    EXPECT_EQ(unwritten.exitCode, 101);
    EXPECT_EQ(journal_.Find("A")->state, State::Sending);
    OnSql("DROP TRIGGER forbidden");
    EXPECT_EQ(Do("A").verdict, Kind::Printed);
    EXPECT_EQ(Done(), (std::vector{sale, tender}));
}

TEST_F(JobJournal, HasToBeReadable) {
    Do("A");
    OnSql("UPDATE jobs SET outcome='{'");
    const Outcome outcome = Do("A");
    EXPECT_EQ(outcome.verdict, Kind::Unknown);
    EXPECT_EQ(outcome.exitCode, 101);
    EXPECT_EQ(Done(), (std::vector{sale, tender}));
}

TEST_F(JobJournal, ThatCannotBeAskedLeavesAJobWithAnIdUnknown) {
    Do("A");
    OnSql("ALTER TABLE jobs RENAME TO gone");
    EXPECT_EQ(Unserved("A").verdict, Kind::Unknown);
    EXPECT_EQ(Unserved(std::nullopt).verdict, Kind::NotPrinted);
}

TEST_F(JobJournal, LeavesAJobToTheRegisterThatHasIt) {
    const auto number = journal_.Receive({"A", "bar", "/pos/sale.txt", oneSale});
    journal_.StartSending(number, "bar", "");
    const Outcome outcome = Do("A");
    EXPECT_EQ(outcome.verdict, Kind::Unknown);
    EXPECT_EQ(outcome.exitCode, 101);
    EXPECT_TRUE(Done().empty());
    EXPECT_EQ(journal_.Get(number).state, State::Sending);
    EXPECT_EQ(journal_.Get(number).registerName, "bar");
}

TEST_F(JobJournal, IsNotPassedByARegisterThatIsInUse) {
    const auto number = journal_.Receive({"A", "default", "/pos/sale.txt", oneSale});
    const runner::DeviceLock lock(runner::LockFileOf(till_.profile, site_.locks));
    EXPECT_EQ(Unserved("A").verdict, Kind::NotPrinted);
    journal_.StartSending(number, "default", "");
    EXPECT_EQ(Unserved("A").verdict, Kind::Unknown);
    EXPECT_EQ(Unserved("B").verdict, Kind::NotPrinted);
}

// --- after a crash -------------------------------------------------------------------------------

namespace {

// A run that is killed when a certain byte of the conversation is due.
class JobLeft : public Counter {
  protected:
    // Leaves job A in sending. The line falls silent when the condition holds.
    void KillWhen(const std::function<bool()>& due, bool toRegister) {
        std::atomic<bool> silent = false;
        const auto filter = [&](emulator::Bytes& bytes) {
            if (silent || due()) {
                silent = true;
                bytes.clear();
            }
        };
        auto& line = till_.Station().line;
        toRegister ? line.OnReceive(filter) : line.OnSend(filter);
        Begin();
        {
            workbench::Serving serving(till_.Station().server);
            Start(silent);
            serving.Finish();
        }
        line.OnReceive({});
        line.OnSend({});
    }

    void Begin() {
        const auto number = journal_.Receive({"A", "default", "/pos/sale.txt", oneSale});
        folder_ = Runs() + "/" + std::to_string(number);
        fs::create_directories(folder_);
        const runner::DeviceLock lock(runner::LockFileOf(till_.profile, site_.locks));
        job::Attempt(till_.profile, site_, lock).Note(folder_);
        journal_.StartSending(number, "default", folder_);
    }

    void Start(const std::atomic<bool>& silent) {
        runner::RunRequest request = till_.Request("/pos/sale.txt");
        request.folder = folder_;
        runner::RegisterRun run(request);
        for (int i = 0; i < 5000 && !silent; ++i) usleep(1000);
        ASSERT_TRUE(silent);
        run.Kill();
    }

    int DataFrames() { return till_.Station().line.Counters().dataFrames; }

    std::string folder_;
};

}  // namespace

TEST_F(JobLeft, BeforeItsFirstCommandIsTriedAgain) {
    KillWhen([] { return true; }, true);
    EXPECT_TRUE(Device().Journal().empty());
    const Outcome outcome = Do("A");
    EXPECT_EQ(outcome.verdict, Kind::Printed) << ToJson(outcome);
    EXPECT_EQ(Done().size() - static_cast<std::size_t>(std::ranges::count(Done(), display)), 2U);
}

TEST_F(JobLeft, BeforeItsDriverWasStartedIsTriedAgain) {
    Begin();
    const Outcome outcome = Do("A");
    EXPECT_EQ(outcome.verdict, Kind::Printed) << ToJson(outcome);
    EXPECT_EQ(std::ranges::count(Done(), sale), 1);
}

TEST_F(JobLeft, AfterAnAcknowledgedCommandIsPart) {
    KillWhen([this] { return Done().size() == 1; }, true);
    const Outcome outcome = Do("A");
    EXPECT_EQ(outcome.verdict, Kind::Part) << ToJson(outcome);
    EXPECT_EQ(outcome.nextLine, 2);
    EXPECT_EQ(outcome.receipt.subtotal, 500);
    EXPECT_EQ(Done(), std::vector{sale});
    EXPECT_TRUE(Unserved("A").replayed);
}

// The operator may have cleared a refusal since.
TEST_F(JobLeft, BeforeTheAnswerToACommandLeavesThatOneInDoubt) {
    KillWhen([this] { return Done().size() == 1; }, false);
    const Outcome outcome = Do("A");
    EXPECT_EQ(outcome.verdict, Kind::Unknown) << ToJson(outcome);
    EXPECT_EQ(outcome.atLeast, 0U);
    EXPECT_EQ(outcome.atMost, 1U);
    EXPECT_EQ(outcome.nextLine, 1);
    EXPECT_TRUE(outcome.receipt.open.value_or(false));
    EXPECT_TRUE(Unserved("A").replayed);
    EXPECT_EQ(Done(), std::vector{sale});
}

TEST_F(JobLeft, WithoutAnAnswerFromTheRegisterIsInDoubt) {
    KillWhen([this] { return Done().size() == 1; }, false);
    Device().PowerOff();
    const Outcome outcome = Do("A");
    EXPECT_EQ(outcome.verdict, Kind::Unknown) << ToJson(outcome);
    EXPECT_LE(outcome.atLeast, 1U);
    EXPECT_EQ(outcome.atMost, 2U);
    EXPECT_EQ(journal_.Find("A")->state, State::InDoubt);
}

TEST_F(JobLeft, WithALogThatAPowerCutMayHaveShortenedIsInDoubt) {
    KillWhen([this] { return Done().size() == 2; }, true);
    runner::WriteFile(folder_ + "/logs/dbgerror.log", "");
    runner::WriteFile(folder_ + "/start", "an earlier boot\n");
    const Outcome outcome = Do("A");
    EXPECT_EQ(outcome.verdict, Kind::Unknown) << ToJson(outcome);
    EXPECT_EQ(outcome.atMost, 2U);
    EXPECT_EQ(Done(), (std::vector{sale, tender}));
}

TEST_F(JobLeft, ByAProgramThatFailedAfterTheStartIsFoundOutLater) {
    const job::Watcher watcher = {-1, [](std::size_t sent, const std::vector<plan::Command>&) {
                                      if (sent > 0) throw std::runtime_error("no terminal");
                                  }};
    const Outcome failed = Do("A", oneSale, watcher);
    EXPECT_EQ(failed.verdict, Kind::Unknown);
    EXPECT_EQ(failed.exitCode, 101);
    EXPECT_EQ(journal_.Find("A")->state, State::Sending);
    const std::size_t done = Done().size();
    const Outcome later = Do("A");
    EXPECT_LE(later.atLeast, done) << ToJson(later);
    EXPECT_GE(later.atMost, done);
    EXPECT_EQ(std::ranges::count(Done(), sale), 1);
}

// --- a register that may hold a number -----------------------------------------------------------

TEST_F(JobForgetting, IsNotAskedOfARegisterThatHoldsNone) {
    Do("A");
    EXPECT_EQ(journal_.MayHold("default"), false);
    Do("B");
    EXPECT_EQ(Done(), (std::vector{sale, tender, sale, tender}));
}

TEST_F(JobForgetting, ComesBeforeTheNextJobAndOnlyThen) {
    journal_.SetMayHold("default", true);
    const Outcome first = Do("A");
    EXPECT_EQ(first.verdict, Kind::Printed) << ToJson(first);
    EXPECT_EQ(Do("B").verdict, Kind::Printed);
    EXPECT_EQ(Done(), (std::vector{display, sale, tender, sale, tender}));
}

TEST_F(JobForgetting, IsTriedAgainWhenAFrameIsLost) {
    till_.Configure("CmdTimeout_Default=100\n");
    journal_.SetMayHold("default", true);
    till_.Station().line.OnReceive([lost = false](emulator::Bytes& chunk) mutable {
        if (!lost) chunk.clear();
        lost = true;
    });
    EXPECT_EQ(Do("A").verdict, Kind::Printed);
    EXPECT_EQ(Done(), (std::vector{display, sale, tender}));
}

TEST_F(JobForgetting, IsTheLastThingThatIsSentAfterAnInterrupt) {
    journal_.SetMayHold("default", true);
    const int stop = eventfd(0, EFD_CLOEXEC);
    till_.Station().line.OnSend([this, stop](emulator::Bytes&) {
        if (!Done().empty()) eventfd_write(stop, 1);
    });
    const Outcome outcome = Do("A", oneSale, {stop, {}});
    close(stop);
    EXPECT_EQ(outcome.verdict, Kind::NotPrinted) << ToJson(outcome);
    EXPECT_EQ(Done(), std::vector{display});
}

TEST_F(JobForgetting, LeavesAnOpenReceiptOpen) {
    EXPECT_EQ(Do("A", "SALE: DEPTNR=1; AMOUNT=5\nCONTINUE\n").verdict, Kind::Printed);
    ASSERT_TRUE(Device().ReceiptInProgress());
    journal_.SetMayHold("default", true);
    const Outcome outcome = Do("B", "CONTINUE\nTENDER: AMOUNT=5\n");
    EXPECT_EQ(outcome.verdict, Kind::Printed) << ToJson(outcome);
    EXPECT_EQ(Done(), (std::vector{sale, display, tender}));
}

// Fiscal mode has been entered before, so that the sale has number 1, as that of the next run.
TEST_F(JobForgetting, ComesAfterARunThatNeverEndedItsLastCommand) {
    constexpr char goingOn[] = "CONTINUE\nSALE: DEPTNR=1; AMOUNT=5\nCONTINUE\n";
    EXPECT_EQ(Do("A", "SALE: DEPTNR=1; AMOUNT=5\nCONTINUE\n").verdict, Kind::Printed);
    const int stop = eventfd(0, EFD_CLOEXEC);
    const auto wire = emulator::MakeWire(emulator::WireFamily::Ocelot);
    till_.Station().line.OnReceive([&](emulator::Bytes& chunk) {
        if (!wire->IsSomeEof(chunk)) return;
        chunk.clear();
        eventfd_write(stop, 1);
    });
    const Outcome cut = Do("B", goingOn, {stop, {}});
    till_.Station().line.OnReceive({});
    close(stop);
    EXPECT_EQ(cut.verdict, Kind::Printed) << ToJson(cut);
    ASSERT_TRUE(Device().Open());
    EXPECT_EQ(journal_.MayHold("default"), true);
    const Outcome next = Do("C", goingOn);
    EXPECT_EQ(next.atMost, 1U) << ToJson(next);
    EXPECT_EQ(Done(), (std::vector{sale, sale, display, sale}));
}

// After a lost end-of-file frame the driver leaves fiscal mode, and outside it the register takes
// no command while a receipt is open.
TEST_F(JobForgetting, WaitsForTheEndOfAReceiptThatIsOpenOutsideFiscalMode) {
    EXPECT_EQ(Do("A", "SALE: DEPTNR=1; AMOUNT=5\nCONTINUE\n").verdict, Kind::Printed);
    Device().NoteStatusRead();
    ASSERT_TRUE(Device().Execute(emulator::ExitFiscalMode, 1, {}));
    Device().CloseCommand();
    journal_.SetMayHold("default", true);
    const Outcome refused = Do("B", "CONTINUE\nSALE: DEPTNR=1; AMOUNT=5\nCONTINUE\n");
    EXPECT_EQ(refused.verdict, Kind::NotPrinted) << ToJson(refused);
    EXPECT_THAT(refused.reason, HasSubstr("could not be made to forget"));
    EXPECT_EQ(Done(), std::vector{sale});
    EXPECT_TRUE(Device().Journal().back().accepted) << "the last thing that it was asked to do";
    Device().FinishReceipt();
    EXPECT_EQ(Do("C").verdict, Kind::Printed);
    EXPECT_EQ(Done(), (std::vector{sale, display, sale, tender}));
}

TEST_F(JobForgetting, ThatFailsKeepsTheJobFromBeingSent) {
    journal_.SetMayHold("default", true);
    Device().PowerOff();
    const Outcome outcome = Do("A");
    EXPECT_EQ(outcome.exitCode, 2);
    EXPECT_THAT(outcome.reason, HasSubstr("could not be made to forget"));
    EXPECT_TRUE(Done().empty());
    Device().PowerOn();
    EXPECT_EQ(Do("A").verdict, Kind::Printed);
    EXPECT_EQ(Done(), (std::vector{display, sale, tender}));
}

// --- of the queue --------------------------------------------------------------------------------

namespace {

class JobQueue : public JobLeft {
  protected:
    std::int64_t Queue(const std::string& id) {
        return journal_.Receive({id, "default", "/pos/sale.txt", oneSale, "till 1", true});
    }
    std::optional<Outcome> DoNext() {
        workbench::Serving serving(till_.Station().server);
        auto outcome = Jobs().DoNext({}, {});
        serving.Finish();
        return outcome;
    }
    void FindOut() {
        workbench::Serving serving(till_.Station().server);
        Jobs().FindOut({});
        serving.Finish();
    }
    job::Jobs Jobs() { return {journal_, till_.profile, site_, Runs()}; }
};

}  // namespace

TEST_F(JobQueue, IsWorkedOffFirstComeFirstServed) {
    Queue("A");
    Queue("B");
    EXPECT_EQ(DoNext()->id, "A");
    EXPECT_EQ(Done(), (std::vector{sale, tender}));
    const auto outcome = DoNext();
    EXPECT_EQ(outcome->id, "B");
    EXPECT_EQ(outcome->verdict, Kind::Printed) << ToJson(*outcome);
    EXPECT_EQ(DoNext(), std::nullopt);
    EXPECT_EQ(journal_.Find("A")->state, State::Done);
}

TEST_F(JobQueue, AnswersTheCallThatComesAgain) {
    Queue("A");
    DoNext();
    const Outcome outcome = Do("A");
    EXPECT_TRUE(outcome.replayed);
    EXPECT_EQ(outcome.verdict, Kind::Printed);
}

TEST_F(JobQueue, GivesUpTheFirstWhenTheRegisterIsInUse) {
    Queue("A");
    Queue("B");
    const runner::DeviceLock lock(runner::LockFileOf(till_.profile, site_.locks));
    const auto outcome = Jobs().DoNext({}, {});
    EXPECT_EQ(outcome->id, "A");
    EXPECT_EQ(outcome->verdict, Kind::NotPrinted);
    EXPECT_EQ(outcome->exitCode, 2);
    EXPECT_EQ(journal_.Find("A")->state, State::Failed);
    EXPECT_TRUE(journal_.Find("B")->InQueue());
}

TEST_F(JobQueue, IsReachedByAProgramOfItsOwn) {
    Queue("A");
    EXPECT_EQ(Do("A").verdict, Kind::Printed);
    EXPECT_EQ(DoNext(), std::nullopt);
    EXPECT_EQ(Done(), (std::vector{sale, tender}));
}

TEST_F(JobQueue, AnswersForAJobThatWasWithdrawn) {
    Outcome withdrawn;
    withdrawn.reason = "no longer wanted";
    journal_.Withdraw(Queue("A"), "till 1", ToRecord(withdrawn), 2);
    const Outcome outcome = Do("A");
    EXPECT_TRUE(outcome.replayed);
    EXPECT_EQ(outcome.verdict, Kind::NotPrinted);
    EXPECT_EQ(outcome.reason, "no longer wanted");
    EXPECT_TRUE(Device().Journal().empty());
}

TEST_F(JobQueue, TellsWhatEndedInItInTheFormatOfTheRegister) {
    till_.profile.oldResultFileFormat = true;
    Outcome withdrawn;
    SettleUnsent(withdrawn, false, 2, 50, "no longer wanted");
    journal_.Withdraw(Queue("A"), "till 1", ToRecord(withdrawn), 2);
    EXPECT_EQ(Do("A").result, "2\nno longer wanted");
}

TEST_F(JobQueue, IsLookedThroughForWhatWasCutOff) {
    KillWhen([] { return true; }, true);
    EXPECT_TRUE(Jobs().HasLeft());
    FindOut();
    EXPECT_EQ(journal_.Find("A")->state, State::Failed);
    EXPECT_FALSE(Jobs().HasLeft());
    EXPECT_TRUE(Done().empty());
}

TEST_F(JobQueue, EndsWhatWasReceivedAndNeverBegun) {
    journal_.Receive({"A", "default", "/pos/sale.txt", oneSale});
    const std::int64_t waiting = Queue("B");
    EXPECT_TRUE(Jobs().HasLeft());
    FindOut();
    const journal::Job job = *journal_.Find("A");
    EXPECT_EQ(job.state, State::Failed);
    EXPECT_EQ(job.exitCode, 2);
    EXPECT_THAT(job.outcome, HasSubstr("cut off before it began"));
    EXPECT_TRUE(journal_.Get(waiting).InQueue());
    EXPECT_FALSE(Jobs().HasLeft());
}
