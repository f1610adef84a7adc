// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The queues of the registers, the events, and files of the versions before.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "companion/journal/Database.h"
#include "companion/journal/Journal.h"
#include "tests/support/TempDir.h"

using namespace journal;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

constexpr char tart[] = "SALE: DEPTNR=1; AMOUNT=1.00\nTENDER\n";
constexpr char withdrawnOutcome[] = R"({"verdict": "not-printed"})";

class Queues : public testing::Test {
  protected:
    std::int64_t Queue(const std::string& id, const std::string& registerName = "default") {
        return journal_.Receive({id, registerName, "", tart, "till 1", true});
    }
    void Fail(std::int64_t number) { journal_.GiveUp(journal_.Get(number), "{}", 2); }
    void Print(std::int64_t number) {
        journal_.StartSending(number, "default", "");
        journal_.Finish(number, {printed, "{}", 0, false});
    }
    void End(std::int64_t number, const char* verdict) {
        journal_.StartSending(number, "default", "");
        journal_.Finish(number, {verdict, "{}", 101, false});
    }
    // So many seconds before now it was received.
    void PrintWithin(const std::string& seconds) {
        const std::int64_t number = Queue("after " + seconds);
        journal_.StartSending(number, "default", "");
        RunSql("UPDATE jobs SET received='2024-05-06T07:08:09.123Z' WHERE state='sending'");
        RunSql(
            "UPDATE jobs SET state='done', verdict='printed', ended="
            "strftime('%Y-%m-%dT%H:%M:%fZ', received, '" +
            seconds + " seconds') WHERE state='sending'");
    }
    // "register result jobs last number" of each.
    std::vector<std::string> Counted() const {
        std::vector<std::string> texts;
        for (const Count& count : journal_.Counts())
            texts.push_back(count.registerName + " " + count.result + " " +
                            std::to_string(count.jobs) + " last " + std::to_string(count.last));
        return texts;
    }
    std::vector<std::int64_t> Latest(const Filter& filter, std::int64_t below = 1 << 20,
                                     int limit = 10) const {
        std::vector<std::int64_t> numbers;
        for (const Job& job : journal_.Latest(filter, below, limit)) numbers.push_back(job.number);
        return numbers;
    }
    void Withdraw(std::int64_t number) { journal_.Withdraw(number, "till 2", withdrawnOutcome, 2); }
    std::int64_t Before(std::int64_t number) const {
        return journal_.BeforeInQueue(journal_.Get(number));
    }
    // The numbers in the order in which the queue would be worked off.
    std::vector<std::int64_t> InOrder(const std::string& registerName = "default") {
        std::vector<std::int64_t> order;
        while (const auto next = journal_.NextInQueue(registerName)) {
            order.push_back(*next);
            Print(*next);
        }
        return order;
    }
    // "number state verdict" of each.
    std::vector<std::string> Events(std::int64_t after = 0, int limit = 100) const {
        std::vector<std::string> texts;
        for (const Event& event : journal_.EventsAfter(after, limit)) {
            texts.push_back(std::to_string(event.job) + " " + Word(event.state) +
                            (event.verdict.empty() ? "" : " " + event.verdict));
        }
        return texts;
    }
    void RunSql(const std::string& sql) const { journal::Run(Database(path_, nullptr), sql); }

    TempDir folder_;
    std::string path_ = folder_.File("journal.db");
    Journal journal_{path_};
};

using JournalQueue = Queues;
using JournalWithdraw = Queues;
using JournalEvents = Queues;
using JournalCounts = Queues;
using JournalLatest = Queues;
using JournalCosts = Queues;

}  // namespace

// --- the queue -----------------------------------------------------------------------------------

TEST_F(JournalQueue, IsWorkedOffInTheOrderInWhichJobsCame) {
    const std::int64_t first = Queue("c"), second = Queue("a"), third = Queue("b");
    EXPECT_EQ(Before(first), 0);
    EXPECT_EQ(Before(third), 2);
    EXPECT_THAT(InOrder(), ElementsAre(first, second, third));
    EXPECT_EQ(journal_.NextInQueue("default"), std::nullopt);
}

TEST_F(JournalQueue, IsOneForEachRegister) {
    const std::int64_t here = Queue("a"), there = Queue("b", "bar"), next = Queue("c");
    EXPECT_EQ(Before(there), 0);
    EXPECT_EQ(Before(next), 1);
    EXPECT_EQ(journal_.NextInQueue("bar"), there);
    EXPECT_THAT(InOrder(), ElementsAre(here, next));
}

TEST_F(JournalQueue, RemembersWhoGaveTheJob) {
    EXPECT_EQ(journal_.Get(Queue("a")).till, "till 1");
}

TEST_F(JournalQueue, HasNoneThatWereReceivedByAProcessOfTheirOwn) {
    const std::int64_t own = journal_.Receive({"a", "default", "", tart});
    EXPECT_FALSE(journal_.Get(own).InQueue());
    EXPECT_EQ(journal_.NextInQueue("default"), std::nullopt);
    EXPECT_EQ(Before(own), 0);
}

TEST_F(JournalQueue, KeepsThePlaceOfAJobThatComesAgain) {
    const std::int64_t first = Queue("a"), second = Queue("b");
    EXPECT_EQ(Queue("a"), first);
    EXPECT_EQ(Queue("a", "bar"), first);
    EXPECT_EQ(journal_.Receive({"a", "bar", "", tart}), first);
    EXPECT_EQ(journal_.NextInQueue("bar"), std::nullopt);
    EXPECT_THAT(InOrder(), ElementsAre(first, second));
}

TEST_F(JournalQueue, PutsAFailedJobThatComesAgainLast) {
    const std::int64_t first = Queue("a"), second = Queue("b");
    Fail(first);
    EXPECT_EQ(journal_.NextInQueue("default"), second);
    EXPECT_EQ(Queue("a"), first);
    EXPECT_THAT(InOrder(), ElementsAre(second, first));
}

TEST_F(JournalQueue, IsLeftByAFailedJobThatAProcessTakesUpByItself) {
    const std::int64_t first = Queue("a");
    Fail(first);
    EXPECT_EQ(journal_.Receive({"a", "default", "", tart}), first);
    EXPECT_FALSE(journal_.Get(first).InQueue());
    EXPECT_EQ(journal_.Get(first).till, "");
}

TEST_F(JournalQueue, TakesAJobThatAProcessHasReceivedAndLeft) {
    const std::int64_t left = journal_.Receive({"a", "default", "", tart});
    EXPECT_EQ(Queue("a"), left);
    EXPECT_THAT(InOrder(), ElementsAre(left));
}

TEST_F(JournalQueue, TakesNothingThatMayHaveBeenPrinted) {
    const std::int64_t sending = Queue("a"), done = Queue("b");
    journal_.StartSending(sending, "default", "");
    Print(done);
    EXPECT_EQ(Queue("a"), sending);
    EXPECT_EQ(Queue("b"), done);
    EXPECT_EQ(journal_.NextInQueue("default"), std::nullopt);
    EXPECT_EQ(journal_.Get(sending).state, State::Sending);
    EXPECT_EQ(journal_.Get(done).state, State::Done);
}

TEST_F(JournalQueue, IsThereAfterARestart) {
    const std::int64_t first = Queue("a"), second = Queue("b");
    Journal again(path_);
    EXPECT_EQ(again.NextInQueue("default"), first);
    EXPECT_EQ(again.BeforeInQueue(again.Get(second)), 1);
}

TEST_F(JournalQueue, KeepsItsOrderWhenJobsAreRemoved) {
    Print(Queue("a"));
    const std::int64_t waiting = Queue("b");
    Print(Queue("c"));
    journal_.Prune(0, std::chrono::system_clock::now() + std::chrono::hours(1));
    const std::int64_t late = Queue("d");
    EXPECT_THAT(InOrder(), ElementsAre(waiting, late));
}

TEST_F(JournalQueue, LetsNobodySendAJobThatHasLeftThePlaceThatWasSeen) {
    const std::int64_t number = Queue("a");
    const auto seen = journal_.Get(number).place;
    Fail(number);
    Queue("b");
    Queue("a");
    EXPECT_THROW(journal_.StartSending(number, "default", "", seen), OutOfTurn);
    EXPECT_EQ(journal_.Get(number).state, State::Received);
    journal_.StartSending(number, "default", "", journal_.Get(number).place);
    EXPECT_EQ(journal_.Get(number).state, State::Sending);
}

TEST_F(JournalQueue, LetsNobodyGiveUpAnotherAttemptThanTheOneThatWasSeen) {
    const std::int64_t number = Queue("a");
    const Job seen = journal_.Get(number);
    Fail(number);
    Queue("a");
    EXPECT_THROW(journal_.GiveUp(seen, "{}", 2), OutOfTurn);
    EXPECT_TRUE(journal_.Get(number).InQueue());
    const std::int64_t left = journal_.Receive({"b", "default", "", tart});
    const Job unqueued = journal_.Get(left);
    Queue("b");
    EXPECT_THROW(journal_.GiveUp(unqueued, "{}", 2), OutOfTurn);
    EXPECT_TRUE(journal_.Get(left).InQueue());
}

// --- withdrawn -----------------------------------------------------------------------------------

TEST_F(JournalWithdraw, TakesAJobOutOfTheQueue) {
    const std::int64_t gone = Queue("a"), stays = Queue("b");
    Withdraw(gone);
    const Job job = journal_.Get(gone);
    EXPECT_EQ(job.state, State::Failed);
    EXPECT_EQ(job.verdict, notPrinted);
    EXPECT_EQ(job.outcome, withdrawnOutcome);
    EXPECT_EQ(job.exitCode, 2);
    EXPECT_EQ(job.withdrawnBy, "till 2");
    EXPECT_NE(job.ended, "");
    EXPECT_THAT(InOrder(), ElementsAre(stays));
}

TEST_F(JournalWithdraw, IsForGood) {
    const std::int64_t gone = Queue("a");
    Withdraw(gone);
    EXPECT_EQ(Queue("a"), gone);
    EXPECT_EQ(journal_.Receive({"a", "default", "", tart}), gone);
    EXPECT_EQ(journal_.Get(gone).state, State::Failed);
    EXPECT_EQ(journal_.NextInQueue("default"), std::nullopt);
    EXPECT_THROW(journal_.StartSending(gone, "default", ""), WrongState);
}

TEST_F(JournalWithdraw, IsRefusedForWhatIsNotInTheQueue) {
    const std::int64_t own = journal_.Receive({"a", "default", "", tart});
    const std::int64_t sending = Queue("b"), failed = Queue("c");
    journal_.StartSending(sending, "default", "");
    Fail(failed);
    for (const std::int64_t number : {own, sending, failed}) {
        const State before = journal_.Get(number).state;
        EXPECT_THROW(Withdraw(number), WrongState);
        EXPECT_EQ(journal_.Get(number).state, before);
        EXPECT_EQ(journal_.Get(number).withdrawnBy, "");
    }
}

// --- events --------------------------------------------------------------------------------------

TEST_F(JournalEvents, TellEveryChangeOfAStateInItsOrder) {
    const std::int64_t first = Queue("a"), second = Queue("b");
    journal_.StartSending(first, "bar", "");
    Fail(second);
    journal_.Finish(first, {unknown, "{}", 101, true});
    Queue("b");
    journal_.Resolve(first, Decision::Printed, "anna", "");
    EXPECT_THAT(Events(),
                ElementsAre("1 received", "2 received", "1 sending", "2 failed not-printed",
                            "1 in-doubt unknown", "2 received", "1 done printed"));
    EXPECT_EQ(journal_.EventsAfter(2, 1).at(0).registerName, "bar");
    EXPECT_THAT(journal_.EventsAfter(0, 1).at(0).at,
                testing::MatchesRegex("[0-9-]{10}T[0-9:]{8}[.][0-9]{3}Z"));
}

TEST_F(JournalEvents, AreNotMadeByAPlaceInTheQueue) {
    journal_.Receive({"a", "default", "", tart});
    Withdraw(Queue("a"));
    EXPECT_THAT(Events(), ElementsAre("1 received", "1 received", "1 failed not-printed"));
}

TEST_F(JournalEvents, GoOnAfterAnyNumber) {
    Print(Queue("a"));
    EXPECT_THAT(Events(1), ElementsAre("1 sending", "1 done printed"));
    EXPECT_THAT(Events(0, 2), ElementsAre("1 received", "1 sending"));
    EXPECT_THAT(Events(journal_.LastEvent()), IsEmpty());
    EXPECT_EQ(journal_.LastEvent(), 3);
}

TEST_F(JournalEvents, MayBeThoseOfOneRegister) {
    Queue("a");
    Queue("b", "bar");
    Fail(Queue("c"));
    Queue("d", "bar");
    const auto numbers = [&](std::int64_t after, int limit, const char* registerName) {
        std::vector<std::int64_t> found;
        for (const Event& event : journal_.EventsAfter(after, limit, registerName))
            found.push_back(event.number);
        return found;
    };
    EXPECT_THAT(numbers(0, 10, "bar"), ElementsAre(2, 5));
    EXPECT_THAT(numbers(1, 2, "default"), ElementsAre(3, 4));
    EXPECT_THAT(numbers(0, 1, "bar"), ElementsAre(2));
    EXPECT_THAT(numbers(0, 10, "other"), IsEmpty());
}

TEST_F(JournalEvents, NeverUseANumberAgain) {
    EXPECT_EQ(journal_.LastEvent(), 0);
    Print(Queue("a"));
    journal_.Prune(0, std::chrono::system_clock::now() + std::chrono::hours(1));
    EXPECT_THAT(Events(), IsEmpty());
    EXPECT_EQ(journal_.LastEvent(), 3);
    Queue("b");
    EXPECT_EQ(journal_.LastEvent(), 4);
}

TEST_F(JournalEvents, HaveTheIdOfTheJob) {
    Queue("a");
    journal_.Receive({std::nullopt, "default", "", tart});
    EXPECT_EQ(journal_.EventsAfter(0, 1).at(0).id, "a");
    EXPECT_EQ(journal_.EventsAfter(1, 1).at(0).id, std::nullopt);
}

TEST_F(JournalEvents, TellWhenAJobIsAnotherOne) {
    const std::int64_t number = Queue("a");
    Queue("b");
    EXPECT_EQ(journal_.LastEventOf(number), 1);
    EXPECT_EQ(journal_.LastEventOf(99), 0);
    Withdraw(number);
    EXPECT_EQ(journal_.LastEventOf(number), 3);
}

TEST_F(JournalEvents, AreMadeForOtherProgramsToo) {
    Queue("a");
    RunSql("UPDATE jobs SET state='failed', verdict='not-printed' WHERE id='a'");
    EXPECT_THAT(Events(), ElementsAre("1 received", "1 failed not-printed"));
}

TEST_F(JournalEvents, ShowThatAnotherProgramHasChangedTheJournal) {
    const std::int64_t before = journal_.DataVersion();
    EXPECT_EQ(journal_.DataVersion(), before);
    Journal(path_).Receive({"a", "default", "", tart});
    const std::int64_t after = journal_.DataVersion();
    EXPECT_NE(after, before);
    EXPECT_EQ(journal_.DataVersion(), after);
}

// --- counts --------------------------------------------------------------------------------------

TEST_F(JournalCounts, AreOfAttemptsThatHaveEndedByTheirResults) {
    EXPECT_THAT(Counted(), IsEmpty());
    Print(Queue("a"));
    Print(Queue("b"));
    Fail(Queue("c"));
    Fail(Queue("c"));
    Fail(Queue("d", "bar"));
    Withdraw(Queue("e"));
    Queue("f");
    EXPECT_THAT(Counted(), ElementsAre("bar not-printed 1 last 4", "default not-printed 2 last 3",
                                       "default printed 2 last 2", "default withdrawn 1 last 5"));
    EXPECT_EQ(journal_.Counts().at(2).lastEnded, journal_.Get(2).ended);
}

TEST_F(JournalCounts, CountNoDecisionOfAPerson) {
    const std::int64_t number = Queue("a");
    End(number, unknown);
    journal_.Resolve(number, Decision::Printed, "anna", "");
    EXPECT_THAT(Counted(), ElementsAre("default unknown 1 last 1"));
}

TEST_F(JournalCounts, KeepJobsThatAreRemoved) {
    Print(Queue("a"));
    journal_.Prune(0, std::chrono::system_clock::now() + std::chrono::hours(1));
    Print(Queue("b"));
    EXPECT_THAT(Counted(), ElementsAre("default printed 2 last 2"));
}

TEST_F(JournalCounts, HaveTheTimeFromTheCallToTheVerdict) {
    PrintWithin("1.5");
    PrintWithin("2.0");
    PrintWithin("301");
    PrintWithin("-7200");  // the clock was set back
    Fail(Queue("never sent"));
    const std::vector<Duration> durations = journal_.Durations();
    ASSERT_EQ(durations.size(), 3U);
    EXPECT_EQ(durations[0].atMost, std::nullopt);
    EXPECT_NEAR(durations[0].seconds, 301, 0.001);
    EXPECT_EQ(durations[1].atMost, 1);
    EXPECT_EQ(durations[1].seconds, 0);
    EXPECT_EQ(durations[2].atMost, 2);
    EXPECT_EQ(durations[2].jobs, 2);
    EXPECT_NEAR(durations[2].seconds, 3.5, 0.001);
    EXPECT_EQ(durations[2].registerName, "default");
}

TEST_F(JournalCounts, HaveTheJobsThatAreOpen) {
    End(Queue("a"), unknown);
    End(Queue("b"), unknown);
    Queue("c", "bar");
    EXPECT_THAT(journal_.OpenJobs(State::InDoubt), ElementsAre(testing::Pair("default", 2)));
    EXPECT_THAT(journal_.OpenJobs(State::Received), ElementsAre(testing::Pair("bar", 1)));
    EXPECT_THAT(journal_.OpenJobs(State::Sending), IsEmpty());
}

// --- the latest jobs -----------------------------------------------------------------------------

TEST_F(JournalLatest, ComesFirst) {
    for (const char* id : {"a", "b", "c", "d"}) Queue(id);
    EXPECT_THAT(Latest({}, 99, 2), ElementsAre(4, 3));
    EXPECT_THAT(Latest({}, 3, 2), ElementsAre(2, 1));
    EXPECT_THAT(Latest({}, 1, 2), IsEmpty());
    EXPECT_EQ(journal_.Latest({}, 99, 1).at(0).content, "");
}

TEST_F(JournalLatest, AreThoseThatTheFilterSelects) {
    const std::int64_t done = Queue("a"), failed = Queue("b"), bar = Queue("c", "bar");
    Print(done);
    Fail(failed);
    EXPECT_THAT(Latest({"bar", "", "", {}}), ElementsAre(bar));
    EXPECT_THAT(Latest({"", "b", "", {}}), ElementsAre(failed));
    EXPECT_THAT(Latest({"", "", "", State::Done}), ElementsAre(done));
    EXPECT_THAT(Latest({"", "", "", State::Failed}), ElementsAre(failed));
    EXPECT_THAT(Latest({"", "", "", State::Received}), ElementsAre(bar));
    EXPECT_THAT(Latest({"default", "", "2001", {}}), ElementsAre(failed, done));
    EXPECT_THAT(Latest({"default", "", "2001", State::Done}), ElementsAre(done));
    EXPECT_THAT(Latest({"", "", "2999", {}}), IsEmpty());
}

TEST_F(JournalLatest, AreTheSameWhenManyWereReceivedSince) {
    RunSql(
        "INSERT INTO jobs(register, file, content, state, received) WITH RECURSIVE n(i) AS"
        " (SELECT 1 UNION ALL SELECT i+1 FROM n WHERE i<2500)"
        " SELECT CASE i%2 WHEN 0 THEN 'bar' ELSE 'default' END,'',x'','done',"
        " '2024-01-01T00:00:00.000Z' FROM n");
    EXPECT_THAT(Latest({"", "", "2024", {}}, 99, 2), ElementsAre(98, 97));
    EXPECT_THAT(Latest({"bar", "", "2024", State::Done}, 99, 2), ElementsAre(98, 96));
    EXPECT_THAT(Latest({"", "", "2025", {}}), IsEmpty());
}

// --- costs ---------------------------------------------------------------------------------------

namespace {

long steps = 0;  // of all of SQLite's machines, in tens

// SQLite calls it for each file that is opened from then on.
int CountSteps(sqlite3* database, char**, const sqlite3_api_routines*) {
    constexpr int every = 10;
    sqlite3_progress_handler(
        database, every,
        [](void*) {
            ++steps;
            return 0;
        },
        nullptr);
    return SQLITE_OK;
}

}  // namespace

// What a service asks all the time must not depend on how many jobs there ever were.
TEST_F(JournalCosts, AreThoseOfOpenJobsAlone) {
    RunSql(
        "INSERT INTO jobs(id, register, file, content, state, verdict, received, ended)"
        " WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i+1 FROM n WHERE i<20000)"
        " SELECT 'x'||i,'default','',x'','done','printed','2024','2024' FROM n");
    const std::int64_t waiting = Queue("a");
    const std::int64_t doubt = Queue("b");
    End(doubt, unknown);
    sqlite3_auto_extension(reinterpret_cast<void (*)()>(CountSteps));
    Journal journal(path_);
    sqlite3_reset_auto_extension();
    steps = 0;
    const auto cheap = [&](const char* what, auto ask) {
        steps = 0;
        ask();
        EXPECT_LT(steps, 200) << what;
    };
    cheap("the queue", [&] { EXPECT_EQ(journal.QueueLength("default"), 1); });
    cheap("the next", [&] { EXPECT_EQ(journal.NextInQueue("default"), waiting); });
    cheap("the place", [&] { EXPECT_EQ(journal.BeforeInQueue(journal.Get(waiting)), 0); });
    cheap("what is sent", [&] {
        EXPECT_TRUE(journal.List({"default", "", "", State::Sending}).empty());
    });
    cheap("in doubt", [&] {
        EXPECT_THAT(journal.OpenJobs(State::InDoubt), testing::SizeIs(1));
        EXPECT_EQ(journal.Latest({"", "", "", State::InDoubt}, 1 << 20, 50).at(0).number, doubt);
    });
    cheap("in doubt on a register", [&] {
        const Filter filter = {"default", "", "", State::InDoubt};
        EXPECT_EQ(journal.Latest(filter, 1 << 20, 50).at(0).number, doubt);
    });
    cheap("failed", [&] {
        EXPECT_THAT(journal.Latest({"", "", "", State::Failed}, 1 << 20, 50), IsEmpty());
    });
    cheap("a page", [&] {
        EXPECT_THAT(journal.Latest({"default", "", "", {}}, 1 << 20, 5), testing::SizeIs(5));
    });
    cheap("since today", [&] {
        EXPECT_THAT(journal.Latest({"", "", "2025", {}}, 1 << 20, 50), testing::SizeIs(2));
    });
    cheap("counts", [&] { EXPECT_THAT(journal.Counts(), testing::SizeIs(1)); });
    cheap("durations", [&] { EXPECT_THAT(journal.Durations(), testing::SizeIs(1)); });
    cheap("an event", [&] { EXPECT_GT(journal.LastEventOf(doubt), 20'000); });
    cheap("events of a register", [&] {
        EXPECT_THAT(journal.EventsAfter(0, 5, "bar"), IsEmpty());
        EXPECT_THAT(journal.EventsAfter(20'001, 2, "default"), testing::SizeIs(2));
    });
    cheap("what is to be removed", [&] {
        const auto inAYear = std::chrono::system_clock::now() + std::chrono::hours(24 * 365);
        EXPECT_THAT(journal.Prune(1, inAYear, "bar"), IsEmpty());
    });
    steps = 0;
    EXPECT_EQ(journal.List().size(), 20'002U);
    EXPECT_GT(steps, 20'000) << "the steps are counted";
}

// --- a file of the first version -----------------------------------------------------------------

namespace {

class FirstVersion : public testing::Test {
  protected:
    FirstVersion() {
        for (const char* statement :
             {"PRAGMA journal_mode=DELETE",
              "CREATE TABLE jobs("
              "number INTEGER PRIMARY KEY AUTOINCREMENT, id TEXT UNIQUE, register TEXT NOT NULL,"
              "file TEXT NOT NULL, content BLOB NOT NULL,"
              "state TEXT NOT NULL"
              " CHECK(state IN('received','sending','done','failed','in-doubt')),"
              "verdict TEXT NOT NULL DEFAULT '', outcome TEXT NOT NULL DEFAULT '',"
              "exit_code INTEGER, received TEXT NOT NULL, ended TEXT NOT NULL DEFAULT '',"
              "logs TEXT NOT NULL DEFAULT '', resolved_by TEXT NOT NULL DEFAULT '',"
              "resolved_at TEXT NOT NULL DEFAULT '', note TEXT NOT NULL DEFAULT '') STRICT",
              "CREATE INDEX jobs_received ON jobs(received)",
              "CREATE TABLE attempts("
              "job INTEGER NOT NULL, register TEXT NOT NULL, file TEXT NOT NULL,"
              "verdict TEXT NOT NULL, outcome TEXT NOT NULL, exit_code INTEGER,"
              "received TEXT NOT NULL, ended TEXT NOT NULL, logs TEXT NOT NULL,"
              "resolved_by TEXT NOT NULL, resolved_at TEXT NOT NULL, note TEXT NOT NULL) STRICT",
              "CREATE INDEX attempts_job ON attempts(job)",
              "CREATE TABLE registers(name TEXT PRIMARY KEY, may_hold INTEGER NOT NULL) STRICT",
              "PRAGMA application_id=1448037460", "PRAGMA user_version=1",
              "INSERT INTO jobs(id, register, file, content, state, verdict, received)"
              " VALUES('old', 'default', '/sale.txt', x'01', 'done', 'printed', '2025')",
              "INSERT INTO attempts VALUES(1,'default','/sale.txt','not-printed','{}',2,'2025',"
              "'2025','','','','')"})
            journal::Run(old_, statement);
    }

    TempDir folder_;
    std::string path_ = folder_.File("journal.db");
    Database old_{path_, nullptr};  // a program of that version that is at work
};

using JournalOfTheFirstVersion = FirstVersion;

std::int64_t VersionOf(const Database& database) {
    Statement version(database, "PRAGMA user_version");
    return version.Step() ? version.Integer(0) : -1;
}

}  // namespace

TEST_F(JournalOfTheFirstVersion, IsUsedWithAllThatItHas) {
    Journal journal(path_);
    const Job job = *journal.Find("old");
    EXPECT_EQ(job.verdict, printed);
    EXPECT_EQ(job.content, "\x01");
    EXPECT_EQ(job.till + job.withdrawnBy, "");
    EXPECT_FALSE(job.place);
    EXPECT_EQ(journal.History(1).at(0).verdict, notPrinted);
    const std::int64_t next = journal.Receive({"new", "default", "", tart, "", true});
    EXPECT_EQ(journal.NextInQueue("default"), next);
    EXPECT_EQ(journal.LastEvent(), 1);
}

TEST_F(JournalOfTheFirstVersion, IsChangedOnce) {
    { const Journal journal(path_); }
    EXPECT_EQ(Journal(path_).Find("old")->verdict, printed);
}

TEST_F(JournalOfTheFirstVersion, GoesOnServingAProgramThatHasItOpen) {
    Journal journal(path_);
    for (const char* statement :
         {"INSERT INTO jobs(id, register, file, content, state, received)"
          " VALUES('b','default','/sale.txt',x'02','received','2025')",
          "UPDATE jobs SET state='failed', verdict='not-printed' WHERE id='b'",
          "INSERT INTO attempts SELECT number, register, file, verdict, outcome, exit_code,"
          " received, ended, logs, resolved_by, resolved_at, note FROM jobs WHERE id='b'"})
        journal::Run(old_, statement);
    EXPECT_EQ(journal.Find("b")->state, State::Failed);
    EXPECT_EQ(journal.History(2).size(), 1U);
    EXPECT_EQ(journal.LastEvent(), 2);
}

TEST_F(JournalOfTheFirstVersion, IsLookedAtWithoutAChange) {
    const std::optional<Journal> journal = Journal::ForReading(path_);
    EXPECT_EQ(journal->Find("old")->verdict, printed);
    EXPECT_EQ(journal->List().size(), 1U);
    EXPECT_THAT(journal->EventsAfter(0, 10), IsEmpty());
    EXPECT_EQ(journal->LastEvent(), 0);
    EXPECT_THAT(journal->Counts(), IsEmpty());
    EXPECT_THAT(journal->Durations(), IsEmpty());
    EXPECT_EQ(journal->Latest({}, 99, 9).size(), 1U);
    EXPECT_EQ(journal->ServedAt("default"), std::nullopt);
    EXPECT_EQ(VersionOf(old_), 1);
}

// --- a file of the second version ----------------------------------------------------------------

namespace {

// It differs from the present one in what is taken back here.
class SecondVersion : public testing::Test {
  protected:
    SecondVersion() {
        Journal journal(path_);
        const std::int64_t old = journal.Receive({"old", "default", "", tart, "till 1", true});
        journal.GiveUp(journal.Get(old), "{}", 2);
        for (const char* statement :
             {"DROP INDEX events_register", "DROP TABLE served", "DROP INDEX jobs_ended",
              "CREATE INDEX jobs_ended ON jobs(ended) WHERE state IN('done','failed')",
              "PRAGMA user_version=2"})
            journal::Run(old_, statement);
    }

    TempDir folder_;
    std::string path_ = folder_.File("journal.db");
    Database old_{path_, nullptr};
};

using JournalOfTheSecondVersion = SecondVersion;

// Everything that it is made of, in the order of the names.
std::string SchemaOf(const std::string& path) {
    const Database database(path, nullptr);
    Statement row(database, "SELECT sql FROM sqlite_schema ORDER BY name");
    std::string schema;
    while (row.Step()) schema += row.Text(0) + "\n";
    return schema;
}

}  // namespace

TEST_F(JournalOfTheSecondVersion, IsUsedWithAllThatItHas) {
    Journal journal(path_);
    EXPECT_EQ(journal.Find("old")->till, "till 1");
    EXPECT_EQ(journal.LastEvent(), 2);
    journal.Serve({"default"}, "/run/one.sock");
    EXPECT_EQ(journal.ServedAt("default"), "/run/one.sock");
}

TEST_F(JournalOfTheSecondVersion, BecomesTheSameAsANewOne) {
    const std::string before = SchemaOf(path_);
    { const Journal journal(path_); }
    { const Journal journal(folder_.File("new.db")); }
    EXPECT_EQ(SchemaOf(path_), SchemaOf(folder_.File("new.db")));
    EXPECT_NE(SchemaOf(path_), before);
}

TEST_F(JournalOfTheSecondVersion, GoesOnServingAProgramThatHasItOpen) {
    journal::Run(old_, "UPDATE jobs SET note='before'");  // its statement is kept
    Journal journal(path_);
    journal::Run(old_, "UPDATE jobs SET note='before'");
    journal::Run(old_,
                 "INSERT INTO jobs(id, register, file, content, state, received, till, place)"
                 " VALUES('b','bar','/sale.txt',x'02','received','2025','till 1',9)");
    journal::Run(old_, "DELETE FROM jobs WHERE id='old'");
    EXPECT_EQ(journal.NextInQueue("bar"), 2);
    EXPECT_EQ(journal.LastEvent(), 3);
    EXPECT_EQ(journal.Damage(), "");
}

TEST_F(JournalOfTheSecondVersion, IsLookedAtWithoutAChange) {
    const std::optional<Journal> journal = Journal::ForReading(path_);
    EXPECT_EQ(journal->ServedAt("default"), std::nullopt);
    EXPECT_EQ(journal->EventsAfter(0, 10).size(), 2U);
    EXPECT_EQ(VersionOf(old_), 2);
}
