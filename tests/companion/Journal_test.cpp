// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/journal/Journal.h"

#include <gmock/gmock.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <iostream>
#include <map>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "companion/journal/Place.h"
#include "tests/support/TempDir.h"

namespace fs = std::filesystem;
using namespace journal;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;

namespace {

constexpr char someFile[] = "/shop/sale.txt";
constexpr char sale[] = "SALE: DEPTNR=1; AMOUNT=1.00\nTENDER\n";
constexpr char outcome[] = R"({"verdict": "any"})";

NewJob Sale(const std::string& id) {
    return {id, "default", someFile, sale};
}

std::string MessageOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const JournalError& error) {
        return error.what();
    }
    return "no failure";
}

// A journal in a folder of its own, and jobs that have come to some point in it.
class JournalTest : public testing::Test {
  protected:
    std::int64_t Received(const std::string& id) { return journal.Receive(Sale(id)); }
    std::int64_t Sending(const std::string& id, const std::string& logs = "") {
        const std::int64_t number = Received(id);
        journal.StartSending(number, "default", logs);
        return number;
    }
    std::int64_t Finished(const std::string& id, const std::string& verdict,
                          const std::string& logs = "") {
        const std::int64_t number = Sending(id, logs);
        journal.Finish(number, {verdict, outcome, verdict == printed ? 0 : 101, false});
        return number;
    }
    State StateOfJob(std::int64_t number) const { return journal.Get(number).state; }
    std::vector<std::string> Ids(const Filter& filter) const {
        std::vector<std::string> ids;
        for (const Job& job : journal.List(filter)) ids.push_back(job.id.value_or("-"));
        return ids;
    }
    std::string Query(const std::string& sql) const {
        return Statement(Database(path, nullptr), sql).Step() ? "a row" : "no row";
    }

    TempDir folder;
    // No child may use it: SQLite's connections do not survive a fork.
    std::string path = folder.File("journal.db");
    Journal journal{path};
};

using JournalReceive = JournalTest;
using JournalStartSending = JournalTest;
using JournalGiveUp = JournalTest;
using JournalFinish = JournalTest;
using JournalResolve = JournalTest;
using JournalPrune = JournalTest;
using JournalList = JournalTest;
using JournalRegisters = JournalTest;
using JournalServed = JournalTest;
using JournalFile = JournalTest;

constexpr char timePattern[] = "[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}[.][0-9]{3}Z";

std::chrono::system_clock::time_point InDays(int days) {
    return std::chrono::system_clock::now() + std::chrono::hours(24) * days;
}

}  // namespace

TEST_F(JournalReceive, KeepsEverythingOfANewJob) {
    const std::string bytes("\0\xFF'; DROP TABLE jobs; --\r\n", 26);
    const std::int64_t number = journal.Receive({"till 3/1", "bar", "/shop/\xE9.txt", bytes});
    const Job job = journal.Get(number);
    EXPECT_EQ(job.number, number);
    EXPECT_EQ(job.id, "till 3/1");
    EXPECT_EQ(job.registerName, "bar");
    EXPECT_EQ(job.file, "/shop/\xE9.txt");
    EXPECT_EQ(job.content, bytes);
    EXPECT_EQ(job.state, State::Received);
    EXPECT_THAT(job.received, MatchesRegex(timePattern));
    EXPECT_EQ(job.verdict + job.outcome + job.ended + job.logs + job.resolvedBy + job.note, "");
    EXPECT_FALSE(job.exitCode);
}

TEST_F(JournalReceive, RecordsJobsWithoutAnIdOneByOne) {
    const NewJob job = {std::nullopt, "default", someFile, sale};
    const std::int64_t first = journal.Receive(job);
    EXPECT_NE(journal.Receive(job), first);
    EXPECT_FALSE(journal.Get(first).id);
}

TEST_F(JournalReceive, RefusesAnotherContentUnderTheSameId) {
    const std::int64_t number = Received("a");
    NewJob other = Sale("a");
    other.content += "\n";
    EXPECT_THROW(journal.Receive(other), OtherContent);
    EXPECT_THAT(MessageOf([&] { journal.Receive(other); }), HasSubstr("job 'a'"));
    EXPECT_EQ(journal.Get(number).content, sale);
}

TEST_F(JournalReceive, RefusesAnotherContentAfterAFailureToo) {
    Finished("a", notPrinted);
    NewJob other = Sale("a");
    other.content = std::string(sale) + '\0';
    EXPECT_THROW(journal.Receive(other), OtherContent);
}

TEST_F(JournalReceive, TakesAFailedJobUpAgainInItsRow) {
    const std::int64_t number = Finished("a", notPrinted, "/logs/1");
    NewJob again = Sale("a");
    again.registerName = "bar";
    again.file = "/shop/again.txt";
    EXPECT_EQ(journal.Receive(again), number);
    const Job job = journal.Get(number);
    EXPECT_EQ(job.state, State::Received);
    EXPECT_EQ(job.registerName + job.file, "bar/shop/again.txt");
    EXPECT_EQ(job.verdict + job.outcome + job.ended + job.logs, "");
    EXPECT_FALSE(job.exitCode);
}

TEST_F(JournalReceive, KeepsWhatAFailedAttemptCameTo) {
    Finished("a", notPrinted, "/logs/1");
    Finished("a", notPrinted, "/logs/2");
    Received("a");
    EXPECT_EQ(Query("SELECT 1 FROM attempts WHERE job=1 AND verdict='not-printed' AND exit_code=101"
                    " AND outcome='" +
                    std::string(outcome) + "' AND logs='/logs/1' AND ended<>''"),
              "a row");
    EXPECT_EQ(Query("SELECT 1 FROM attempts WHERE logs='/logs/2'"), "a row");
}

TEST_F(JournalReceive, TellsTheHistoryFirstAttemptFirst) {
    const std::int64_t number = Finished("a", notPrinted, "/logs/1");
    Finished("a", notPrinted, "/logs/2");
    EXPECT_EQ(journal.History(number).size(), 1U);
    Received("a");
    const std::vector<Job> history = journal.History(number);
    ASSERT_EQ(history.size(), 2U);
    EXPECT_EQ(history[0].logs + history[1].logs, "/logs/1/logs/2");
    EXPECT_EQ(history[0].verdict, notPrinted);
    EXPECT_EQ(history[0].outcome, outcome);
    EXPECT_EQ(history[0].exitCode, 101);
    EXPECT_EQ(history[0].registerName + history[0].file, std::string("default") + someFile);
}

TEST_F(JournalReceive, TakesUpAJobThatWasLeftInReceived) {
    const std::int64_t number = Received("a");
    NewJob again = Sale("a");
    again.registerName = "bar";
    EXPECT_EQ(journal.Receive(again), number);
    EXPECT_EQ(journal.Get(number).registerName, "bar");
    EXPECT_EQ(Query("SELECT 1 FROM attempts"), "no row");
}

TEST_F(JournalReceive, ChangesNothingOfAJobThatMayHaveBeenPrinted) {
    const std::vector<std::int64_t> numbers = {Sending("sending"), Finished("done", printed),
                                               Finished("part", part), Finished("doubt", unknown)};
    for (const std::int64_t number : numbers) {
        const Job before = journal.Get(number);
        EXPECT_EQ(journal.Receive(Sale(*before.id)), number);
        const Job after = journal.Get(number);
        EXPECT_EQ(after.state, before.state) << *before.id;
        EXPECT_EQ(after.received + after.verdict, before.received + before.verdict) << *before.id;
    }
}

TEST_F(JournalStartSending, RecordsStateRegisterAndLogs) {
    const std::int64_t number = Received("a");
    journal.StartSending(number, "bar", "/logs/1");
    const Job job = Journal(path).Get(number);
    EXPECT_EQ(job.state, State::Sending);
    EXPECT_EQ(job.registerName, "bar");
    EXPECT_EQ(job.logs, "/logs/1");
}

TEST_F(JournalStartSending, RecordsThatTheRegisterMayHoldACommandNumber) {
    EXPECT_EQ(journal.MayHold("default"), std::nullopt);
    Sending("a");
    EXPECT_EQ(journal.MayHold("default"), true);
}

TEST_F(JournalStartSending, HappensOnceForAllThatReceivedTheId) {
    Journal other(path);
    const std::int64_t number = Received("a");
    EXPECT_EQ(other.Receive(Sale("a")), number);
    other.StartSending(number, "default", "");
    EXPECT_THROW(journal.StartSending(number, "default", ""), WrongState);
}

TEST_F(JournalStartSending, IsRefusedForAnEndedJobUntilItIsReceivedAgain) {
    for (const char* verdict : {printed, notPrinted, part, unknown}) {
        const std::int64_t number = Finished(verdict, verdict);
        EXPECT_THROW(journal.StartSending(number, "default", ""), WrongState) << verdict;
        EXPECT_EQ(journal.MayHold("default"), false) << verdict;
    }
}

TEST_F(JournalStartSending, IsRefusedForAJobThatIsNotThere) {
    EXPECT_THAT(MessageOf([&] { journal.StartSending(7, "default", ""); }),
                HasSubstr("has no job number 7"));
}

TEST_F(JournalFinish, RecordsTheVerdictAndTheStateThatFollows) {
    const struct {
        const char* verdict;
        State state;
    } rows[] = {{printed, State::Done},
                {part, State::Done},
                {notPrinted, State::Failed},
                {unknown, State::InDoubt},
                {"any other word", State::InDoubt}};
    for (const auto& row : rows) {
        const Job job = Journal(path).Get(Finished(row.verdict, row.verdict));
        EXPECT_EQ(job.state, row.state) << row.verdict;
        EXPECT_EQ(job.verdict, row.verdict);
        EXPECT_EQ(job.outcome, outcome);
        EXPECT_EQ(job.exitCode, row.verdict == std::string(printed) ? 0 : 101);
        EXPECT_THAT(job.ended, MatchesRegex(timePattern));
    }
}

TEST_F(JournalFinish, RecordsWhatTheRegisterMayHold) {
    journal.Finish(Sending("a"), {unknown, outcome, 101, true});
    EXPECT_EQ(journal.MayHold("default"), true);
    journal.Finish(Sending("b"), {printed, outcome, 0, false});
    EXPECT_EQ(journal.MayHold("default"), false);
}

TEST_F(JournalFinish, IsRefusedForAJobThatWasNeverSent) {
    const std::int64_t number = Received("a");
    EXPECT_THROW(journal.Finish(number, {notPrinted, outcome, 2, false}), WrongState);
    EXPECT_EQ(StateOfJob(number), State::Received);
}

TEST_F(JournalGiveUp, EndsAJobThatWasNeverSentAsNotPrinted) {
    const std::int64_t number = Received("a");
    journal.GiveUp(journal.Get(number), outcome, 2);
    const Job job = journal.Get(number);
    EXPECT_EQ(job.state, State::Failed);
    EXPECT_EQ(job.verdict, notPrinted);
    EXPECT_EQ(job.outcome, outcome);
    EXPECT_EQ(job.exitCode, 2);
    EXPECT_THAT(job.ended, MatchesRegex(timePattern));
    EXPECT_EQ(journal.MayHold("default"), std::nullopt);
}

TEST_F(JournalGiveUp, IsRefusedForWhatAnotherProcessIsSendingOrHasSent) {
    for (const std::int64_t number : {Sending("a"), Finished("b", unknown), Finished("c", printed),
                                      Finished("d", notPrinted)}) {
        const State before = StateOfJob(number);
        EXPECT_THROW(journal.GiveUp(journal.Get(number), outcome, 2), WrongState);
        EXPECT_EQ(StateOfJob(number), before);
    }
}

TEST_F(JournalFinish, IsRefusedForAJobThatHasEnded) {
    const std::int64_t number = Finished("a", unknown);
    EXPECT_THROW(journal.Finish(number, {notPrinted, outcome, 2, false}), WrongState);
    EXPECT_EQ(journal.Get(number).verdict, unknown);
}

TEST_F(JournalResolve, DecidesAJobInDoubt) {
    const std::int64_t one = Finished("a", unknown);
    const std::int64_t other = Finished("b", unknown);
    journal.Resolve(one, Decision::Printed, "anna", "seen on the tape");
    journal.Resolve(other, Decision::NotPrinted, "anna", "tape is empty");
    const Job job = journal.Get(one);
    EXPECT_EQ(job.state, State::Done);
    EXPECT_EQ(job.verdict, printed);
    EXPECT_EQ(job.resolvedBy, "anna");
    EXPECT_EQ(job.note, "seen on the tape");
    EXPECT_EQ(job.outcome, outcome);
    EXPECT_THAT(job.resolvedAt, MatchesRegex(timePattern));
    EXPECT_EQ(journal.Get(other).verdict, notPrinted);
    EXPECT_EQ(StateOfJob(other), State::Failed);
}

TEST_F(JournalResolve, DecidesAJobThatWasPrintedInPart) {
    const std::int64_t number = Finished("a", part);
    journal.Resolve(number, Decision::Printed, "anna", "completed by hand");
    EXPECT_EQ(journal.Get(number).verdict, printed);
}

TEST_F(JournalResolve, IsRefusedWhereNothingIsInDoubt) {
    for (const std::int64_t number :
         {Received("a"), Sending("b"), Finished("c", printed), Finished("d", notPrinted)}) {
        const Job before = journal.Get(number);
        EXPECT_THROW(journal.Resolve(number, Decision::Printed, "anna", "x"), WrongState);
        EXPECT_EQ(StateOfJob(number), before.state);
        EXPECT_EQ(journal.Get(number).resolvedBy, "");
    }
}

TEST_F(JournalResolve, KeepsTheDecisionInTheHistoryWhenTheJobIsTriedAgain) {
    journal.Resolve(Finished("a", unknown), Decision::NotPrinted, "anna", "tape is empty");
    const Job job = journal.Get(Received("a"));
    EXPECT_EQ(job.resolvedBy + job.resolvedAt + job.note, "");
    EXPECT_EQ(Query("SELECT 1 FROM attempts WHERE resolved_by='anna' AND note='tape is empty'"
                    " AND resolved_at<>''"),
              "a row");
}

TEST_F(JournalPrune, RemovesWhatEndedLongAgoAndNamesItsLogs) {
    Finished("a", printed, "/logs/1");
    Finished("b", notPrinted, "/logs/2");
    Finished("b", notPrinted, "/logs/3");
    Finished("c", part);
    EXPECT_THAT(journal.Prune(400, InDays(401)), ElementsAre("/logs/1", "/logs/2", "/logs/3"));
    EXPECT_THAT(journal.List(), IsEmpty());
    EXPECT_EQ(Query("SELECT 1 FROM attempts"), "no row");
}

TEST_F(JournalPrune, KeepsWhatIsYoungEnough) {
    Finished("a", printed, "/logs/1");
    EXPECT_THAT(journal.Prune(400, InDays(399)), IsEmpty());
    EXPECT_THAT(Ids({}), ElementsAre("a"));
}

// Each has its own time in its profile.
TEST_F(JournalPrune, RemovesOnlyJobsOfTheRegisterThatIsNamed) {
    Finished("a", printed, "/logs/1");
    const std::int64_t other = journal.Receive({"b", "bar", someFile, sale});
    journal.StartSending(other, "bar", "/logs/2");
    journal.Finish(other, {printed, "{}", 0, false});
    EXPECT_THAT(journal.Prune(400, InDays(401), "bar"), ElementsAre("/logs/2"));
    EXPECT_THAT(Ids({}), ElementsAre("a"));
}

TEST_F(JournalPrune, RemovesSoManyAtOnceTheOldestFirst) {
    constexpr int more = 3;
    for (int i = 0; i < Journal::mostRemoved + more; ++i)
        Finished(std::to_string(i), printed, "/logs/" + std::to_string(i));
    EXPECT_EQ(journal.Prune(0, InDays(1), "default").size(), size_t{Journal::mostRemoved});
    EXPECT_THAT(Ids({}), ElementsAre("100", "101", "102"));
    EXPECT_EQ(journal.EventsAfter(0, 100).size(), size_t{3 * more});
    EXPECT_THAT(journal.Prune(0, InDays(1)),
                testing::UnorderedElementsAre("/logs/100", "/logs/101", "/logs/102"));
    EXPECT_THAT(Ids({}), IsEmpty());
}

TEST_F(JournalPrune, KeepsWhatHasNotEndedWhateverItsAge) {
    Received("received");
    Sending("sending", "/logs/1");
    Finished("doubt", unknown, "/logs/2");
    Finished("again", notPrinted, "/logs/3");
    Received("again");
    EXPECT_THAT(journal.Prune(0, InDays(4000)), IsEmpty());
    EXPECT_THAT(Ids({}), ElementsAre("received", "sending", "doubt", "again"));
    EXPECT_EQ(Query("SELECT 1 FROM attempts WHERE logs='/logs/3'"), "a row");
}

TEST_F(JournalPrune, NeverUsesANumberAgain) {
    const std::int64_t number = Finished("a", printed);
    journal.Prune(0, InDays(1));
    EXPECT_GT(Received("a"), number);
}

TEST_F(JournalList, SelectsByRegisterIdTimeAndState) {
    Received("a");
    Finished("b", printed);
    journal.Receive({"c", "bar", someFile, sale});
    EXPECT_THAT(Ids({}), ElementsAre("a", "b", "c"));
    EXPECT_THAT(Ids({"bar", "", "", {}}), ElementsAre("c"));
    EXPECT_THAT(Ids({"", "b", "", {}}), ElementsAre("b"));
    EXPECT_THAT(Ids({"default", "", "", State::Received}), ElementsAre("a"));
    EXPECT_THAT(Ids({"", "", TimeText(InDays(-1)).substr(0, 10), {}}), ElementsAre("a", "b", "c"));
    EXPECT_THAT(Ids({"", "", TimeText(InDays(1)).substr(0, 10), {}}), IsEmpty());
}

TEST_F(JournalList, FindsByIdOrSaysThatThereIsNone) {
    const std::int64_t number = Finished("b", printed);
    EXPECT_EQ(journal.Find("b")->number, number);
    EXPECT_EQ(journal.Find("b")->content, sale);
    EXPECT_FALSE(journal.Find("B"));
    EXPECT_THROW(journal.Get(number + 1), JournalError);
}

TEST_F(JournalRegisters, RemembersEachByItself) {
    journal.SetMayHold("one", true);
    journal.SetMayHold("two", false);
    EXPECT_EQ(journal.MayHold("one"), true);
    EXPECT_EQ(journal.MayHold("two"), false);
    journal.SetMayHold("one", false);
    EXPECT_EQ(Journal(path).MayHold("one"), false);
    EXPECT_EQ(journal.MayHold("three"), std::nullopt);
}

// --- who serves ----------------------------------------------------------------------------------

TEST_F(JournalServed, TellsEveryProgramWhereARegisterIsServed) {
    EXPECT_EQ(journal.ServedAt("default"), std::nullopt);
    journal.Serve({"default", "bar"}, "/run/one.sock");
    EXPECT_EQ(Journal(path).ServedAt("default"), "/run/one.sock");
    EXPECT_EQ(Journal::ForReading(path)->ServedAt("bar"), "/run/one.sock");
    EXPECT_EQ(journal.ServedAt("Bar"), std::nullopt);
    EXPECT_EQ(journal.ServedAt(""), std::nullopt);
}

TEST_F(JournalServed, ForgetsWhatWasSaidBefore) {
    journal.Serve({"default", "bar"}, "/run/one.sock");
    journal.Serve({"bar", "bar"}, "/run/other.sock");
    EXPECT_EQ(journal.ServedAt("default"), std::nullopt);
    EXPECT_EQ(journal.ServedAt("bar"), "/run/other.sock");
    journal.Serve({}, "");
    EXPECT_EQ(journal.ServedAt("bar"), std::nullopt);
}

TEST_F(JournalServed, IsNoEventOfAJob) {
    journal.Serve({"default"}, "/run/one.sock");
    EXPECT_EQ(journal.LastEvent(), 0);
    EXPECT_EQ(journal.MayHold("default"), std::nullopt);
}

// --- the file ------------------------------------------------------------------------------------

TEST_F(JournalFile, IsForOwnerAndGroupLessTheUmask) {
    const mode_t before = umask(0007);
    const std::string made = folder.File("a/b/other.db");
    Journal other(made);
    other.SetMayHold("default", true);
    umask(before);
    for (const std::string& name : {made, made + "-wal", made + "-shm"}) {
        struct stat status {};
        ASSERT_EQ(stat(name.c_str(), &status), 0) << name;
        EXPECT_EQ(status.st_mode & 0777U, 0660U) << name;
    }
}

TEST_F(JournalFile, SurvivesAProcessThatEndsInTheMiddle) {
    const std::string shared = folder.File("shared.db");
    const pid_t child = fork();
    if (child == 0) {
        Journal own(shared);
        own.StartSending(own.Receive(Sale("a")), "default", "");
        _exit(0);  // without closing anything
    }
    waitpid(child, nullptr, 0);
    EXPECT_EQ(Journal(shared).Find("a")->state, State::Sending);
}

TEST_F(JournalFile, OfANewerVersionIsRefusedAndLeftAlone) {
    Statement(Database(path, nullptr), "PRAGMA user_version=99").Run();
    EXPECT_THAT(MessageOf([&] { Journal other(path); }),
                testing::AllOf(HasSubstr("'" + path + "'"), HasSubstr("it has version 99")));
}

TEST_F(JournalFile, IsNoDatabaseOfSomethingElse) {
    const std::string other = folder.File("other.db");
    Statement(Database(other, nullptr), "CREATE TABLE customers(name TEXT)").Run();
    const std::string before = ReadWholeFile(other);
    EXPECT_THAT(MessageOf([&] { Journal wrong(other); }),
                HasSubstr("a database of something else"));
    EXPECT_EQ(ReadWholeFile(other), before);
}

TEST_F(JournalFile, IsNoOtherFile) {
    const std::string text = folder.Write("letter.txt", std::string(5000, 'x'));
    EXPECT_THAT(MessageOf([&] { Journal wrong(text); }),
                testing::AllOf(HasSubstr("'" + text + "'"), HasSubstr("file is not a database"),
                               HasSubstr("--journal")));
    EXPECT_EQ(ReadWholeFile(text), std::string(5000, 'x'));
}

TEST_F(JournalFile, CannotBeAFolderOrBelowAFile) {
    EXPECT_THAT(MessageOf([&] { Journal wrong(folder.Path()); }), HasSubstr("unable to open"));
    EXPECT_THAT(MessageOf([&] { Journal wrong(path + "/below.db"); }),
                HasSubstr("Not a directory"));
    EXPECT_THAT(MessageOf([&] { Journal wrong(""); }), HasSubstr("empty"));
}

TEST_F(JournalFile, TellsWhetherAJobWasPerhapsSent) {
    Journal book(path);
    EXPECT_FALSE(Journal::PerhapsSent(path, "a"));
    const auto number = book.Receive(Sale("a"));
    EXPECT_FALSE(Journal::PerhapsSent(path, "a"));
    book.StartSending(number, "default", "");
    EXPECT_TRUE(Journal::PerhapsSent(path, "a"));
    book.Finish(number, {"not-printed", "{}", 2, false});
    EXPECT_FALSE(Journal::PerhapsSent(path, "a"));
}

TEST_F(JournalFile, ThatCannotBeReadMayHaveAnyJob) {
    EXPECT_FALSE(Journal::PerhapsSent(folder.File("none.db"), "a"));
    EXPECT_FALSE(Journal::PerhapsSent(folder.Write("empty.db", ""), "a"));
    EXPECT_TRUE(Journal::PerhapsSent(folder.Path(), "a"));
    EXPECT_TRUE(Journal::PerhapsSent(folder.Write("text.db", std::string(5000, 'x')), "a"));
}

TEST_F(JournalFile, ServesManyProcessesAtOnce) {
    constexpr int processes = 8;
    constexpr int jobs = 10;
    const std::string shared = folder.File("shared.db");  // made by whichever comes first
    for (int i = 0; i < processes; ++i) {
        if (fork() != 0) continue;
        int code = 0;
        try {
            Journal own(shared);
            for (int j = 0; j < jobs; ++j) {
                const std::int64_t number = own.Receive(Sale(std::to_string(i * jobs + j)));
                own.StartSending(number, "default", "");
                own.Finish(number, {printed, outcome, 0, false});
            }
        } catch (const JournalError& error) {
            fprintf(stderr, "%s\n", error.what());
            code = 1;
        }
        _exit(code);
    }
    int status = 0;
    while (wait(&status) > 0) EXPECT_EQ(status, 0);
    EXPECT_EQ(Journal(shared).List({"", "", "", State::Done}).size(), size_t{processes * jobs});
}

TEST_F(JournalFile, IsWaitedForWhileAnotherWrites) {
    Database other(path, nullptr);
    Transaction transaction(other);
    std::atomic<bool> written = false;
    std::thread writer([&] {
        Journal(path).SetMayHold("default", true);
        written = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(written);
    transaction.Commit();
    writer.join();
    EXPECT_EQ(journal.MayHold("default"), true);
}

TEST_F(JournalFile, IsWaitedForAsLongAsTheProgramWantsTo) {
    const std::int64_t waiting = Received("waiting");
    const std::int64_t doubt = Finished("doubt", unknown);
    Database other(path, nullptr);
    Transaction transaction(other);
    journal.SetPatience(std::chrono::milliseconds(1));
    EXPECT_THROW(Received("a"), JournalBusy);
    EXPECT_THROW(journal.StartSending(waiting, "default", ""), JournalBusy);
    EXPECT_THROW(journal.GiveUp(journal.Get(waiting), "{}", 2), JournalBusy);
    EXPECT_THROW(journal.Resolve(doubt, Decision::Printed, "anna", ""), JournalBusy);
    EXPECT_THROW(journal.Prune(0, InDays(1)), JournalBusy);
    EXPECT_THROW(journal.Serve({"default"}, "/run/one.sock"), JournalBusy);
    EXPECT_THAT(MessageOf([&] { Received("a"); }), HasSubstr("try again when that has ended"));
    EXPECT_EQ(journal.List().size(), 2U) << "it can be read all the time";
    transaction.Commit();
    EXPECT_FALSE(journal.Find("a"));
    EXPECT_EQ(StateOfJob(waiting), State::Received);
    EXPECT_EQ(StateOfJob(doubt), State::InDoubt);
    EXPECT_EQ(StateOfJob(Received("a")), State::Received);
}

// --- to look at ---------------------------------------------------------------------------------

namespace {

// A journal of another process, for SQLite tells connections of one process apart from others.
class JournalAtWork : public testing::Test {
  protected:
    // A process that has received and sent job "a". It has the file open until it is killed.
    void StartWork() {
        std::array<int, 2> done{};
        ASSERT_EQ(pipe(done.data()), 0);
        worker_ = fork();
        if (worker_ == 0) {
            Journal own(path);
            own.StartSending(own.Receive(Sale("a")), "default", "");
            const bool said = write(done[1], "x", 1) == 1;
            if (said) pause();
            _exit(1);
        }
        char byte = 0;
        ASSERT_EQ(read(done[0], &byte, 1), 1);
        close(done[0]);
        close(done[1]);
    }
    void KillWorker() {
        if (worker_ <= 0) return;
        kill(worker_, SIGKILL);
        waitpid(worker_, nullptr, 0);
        worker_ = -1;
    }
    ~JournalAtWork() override { KillWorker(); }

    // Everything of each file but when it was read.
    std::map<std::string, std::string> Files() const {
        std::map<std::string, std::string> files;
        for (const fs::directory_entry& entry : fs::directory_iterator(folder.Path())) {
            const auto time = entry.last_write_time().time_since_epoch().count();
            files[entry.path()] = std::to_string(time) + ReadWholeFile(entry.path());
        }
        return files;
    }
    void ExpectJobUnchanged() {
        const auto before = Files();
        const std::optional<Journal> book = Journal::ForReading(path);
        ASSERT_TRUE(book.has_value());
        ASSERT_TRUE(book->Find("a").has_value());
        EXPECT_EQ(book->Find("a")->state, State::Sending);
        EXPECT_EQ(book->Damage(), "");
        EXPECT_EQ(Files(), before);
    }

    TempDir folder;
    std::string path = folder.File("a?b#c%20.db");

  private:
    pid_t worker_ = -1;
};

}  // namespace

using JournalForReading = JournalAtWork;

TEST_F(JournalForReading, SeesWhatAProcessAtWorkHasWritten) {
    StartWork();
    ASSERT_NE(fs::file_size(path + "-wal"), 0U);
    ExpectJobUnchanged();
}

TEST_F(JournalForReading, LooksBesideTheFileThatALinkLeadsTo) {
    StartWork();
    const TempDir elsewhere;
    fs::create_symlink(path, elsewhere.File("link.db"));
    EXPECT_TRUE(Journal::ForReading(elsewhere.File("link.db"))->Find("a").has_value());
}

TEST_F(JournalForReading, SeesWhatAKilledProcessHasLeft) {
    StartWork();
    KillWorker();
    ExpectJobUnchanged();
    ExpectJobUnchanged();
}

TEST_F(JournalForReading, MakesNoFilesBesideOneThatIsWhole) {
    StartWork();
    KillWorker();
    journal::Run(Database(path, nullptr), "PRAGMA wal_checkpoint(TRUNCATE)");
    for (const char* ending : {"-wal", "-shm"}) fs::remove(path + ending);
    ExpectJobUnchanged();
    EXPECT_EQ(Files().size(), 1U);
}

TEST_F(JournalForReading, RefusesToGuessAtChangesWithoutTheirIndex) {
    StartWork();
    KillWorker();
    fs::remove(path + "-shm");
    const auto before = Files();
    EXPECT_THAT(MessageOf([&] { Journal::ForReading(path); }), HasSubstr("lack their index"));
    EXPECT_EQ(Files(), before);
}

TEST_F(JournalForReading, RefusesWhatIsNoFile) {
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    EXPECT_THAT(MessageOf([&] { Journal::ForReading(path); }), HasSubstr("no regular file"));
    EXPECT_THAT(MessageOf([] { Journal::ForReading("/dev/null"); }), HasSubstr("no regular file"));
    EXPECT_THAT(MessageOf([&] { Journal wrong(path); }), HasSubstr("no regular file"));
    EXPECT_TRUE(Journal::PerhapsSent(path, "a"));
}

// Their removal would be a change under the eyes of a reader.
TEST_F(JournalForReading, FindsTheChangesAfterOthersHaveLooked) {
    StartWork();
    KillWorker();
    const std::string changes = ReadWholeFile(path + "-wal");
    const std::string file = ReadWholeFile(path);
    ASSERT_FALSE(changes.empty());
    EXPECT_TRUE(Journal::PerhapsSent(path, "a"));
    ASSERT_TRUE(fs::exists(path + "-wal"));
    EXPECT_EQ(ReadWholeFile(path + "-wal"), changes);
    EXPECT_EQ(ReadWholeFile(path), file);
}

TEST_F(JournalForReading, CannotWrite) {
    StartWork();
    auto book = Journal::ForReading(path);
    EXPECT_THAT(MessageOf([&] { book->SetMayHold("default", true); }), HasSubstr("readonly"));
}

TEST_F(JournalForReading, FindsNoJournalYet) {
    EXPECT_FALSE(Journal::ForReading(path).has_value());
    folder.Write("empty.db", "");
    EXPECT_FALSE(Journal::ForReading(folder.File("empty.db")).has_value());
    EXPECT_EQ(Files().size(), 1U);
    const std::string text = folder.Write("letter.txt", std::string(5000, 'x'));
    EXPECT_THAT(MessageOf([&] { Journal::ForReading(text); }), HasSubstr("not a database"));
}

// --- where it is, and whose
// -----------------------------------------------------------------------

namespace {

constexpr gid_t shopGroup = 65533;  // as root; else the account's own
constexpr uid_t anna = 65532;
constexpr uid_t bert = 65531;

// In a process of its own; as root, as that account of that group and no other.
pid_t StartAs(uid_t account, const std::function<bool()>& action) try {
    const pid_t child = fork();
    if (child != 0) return child;
    const bool changed = geteuid() != 0 || (setgroups(0, nullptr) == 0 && setgid(shopGroup) == 0 &&
                                            setuid(account) == 0);
    _exit(changed && action() ? 0 : 1);
} catch (const std::exception& failure) {
    std::cerr << failure.what() << '\n';
    _exit(1);
}

bool Succeeds(pid_t child) {
    int status = -1;
    return waitpid(child, &status, 0) == child && status == 0;
}

bool As(uid_t account, const std::function<bool()>& action) {
    return Succeeds(StartAs(account, action));
}

mode_t ModeOf(const std::string& path) {
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777U : 0;
}

mode_t Umask() {
    const mode_t mask = umask(077);
    umask(mask);
    return mask;
}

// A folder as the package makes it, without the access list.
class JournalOfAShop : public testing::Test {
  protected:
    JournalOfAShop() : before_(umask(022)) { EXPECT_TRUE(Share(folder.Path(), 02770)); }
    ~JournalOfAShop() override { umask(before_); }

    static bool Share(const std::string& path, mode_t mode) {
        if (geteuid() == 0 && chown(path.c_str(), 0, shopGroup) != 0) return false;
        return chmod(path.c_str(), mode) == 0;
    }
    static bool Print(const std::string& path) {
        Journal open(path);
        const std::int64_t number = open.Receive(Sale("a"));
        open.StartSending(number, "default", "");
        open.Finish(number, {printed, outcome, 0, false});
        return true;
    }
    static bool KnowsTheSale(const std::string& path) {
        const auto job = Journal(path).Find("a");
        return job && job->state == State::Done;
    }

    TempDir folder;
    std::string path = folder.File(fileName);
    std::vector<std::string> files = {path, path + "-wal", path + "-shm"};

  private:
    mode_t before_;
};

}  // namespace

using JournalPlace = JournalOfAShop;

TEST_F(JournalOfAShop, IsWrittenByAllItsAccountsWhateverTheirUmask) {
    EXPECT_TRUE(As(anna, [&] { return umask(077), Print(path); }));
    EXPECT_TRUE(As(bert, [&] { return KnowsTheSale(path); }));
    EXPECT_TRUE(As(bert, [&] { return Journal(path).SetMayHold("default", true), true; }));
    for (const std::string& file : files) EXPECT_EQ(ModeOf(file), 0660U) << file;
}

// Nobody may meet a file that is not yet open to the group.
TEST_F(JournalOfAShop, IsMadeByTwoAccountsAtOnce) {
    constexpr int rounds = 8;
    for (int round = 0; round < rounds; ++round) {
        const std::string fresh = folder.File(std::to_string(round) + ".db");
        const auto open = [&] {
            umask(077);
            Journal(fresh).SetMayHold("default", true);
            return true;
        };
        const pid_t first = StartAs(anna, open);
        const pid_t second = StartAs(bert, open);
        EXPECT_TRUE(Succeeds(first)) << round;
        EXPECT_TRUE(Succeeds(second)) << round;
    }
}

TEST_F(JournalOfAShop, HasRunsThatAllItsAccountsMayRemove) {
    const std::string run = folder.File("runs/1");
    EXPECT_TRUE(As(anna, [&] { return umask(077), MakeRunFolder(run + "/logs"), true; }));
    for (const char* made : {"runs", "runs/1", "runs/1/logs"})
        EXPECT_EQ(ModeOf(folder.File(made)), 02770U) << made;
    EXPECT_TRUE(As(bert, [&] { return fs::remove_all(run) == 2; }));
}

TEST_F(JournalOfAShop, IsRefusedWithTheRemedyWhereItIsClosed) {
    EXPECT_TRUE(As(anna, [&] { return Print(path); }));
    chmod((path + "-wal").c_str(), 0444);  // as of an earlier version
    EXPECT_EQ(PlaceIn(folder.Path()).path, path);
    const auto message = [&] { return MessageOf([&] { Journal closed(path); }); };
    EXPECT_TRUE(As(bert, [&] {
        const std::string said = message();
        return said.starts_with(
                   "cannot use the journal '" + path +
                   "' - Permission denied for 'journal.db-wal'; as root, `chgrp -R ") &&
               said.ends_with(" " + folder.Path() + "` and `chmod -R g+rwX " + folder.Path() +
                              "` let its group use it");
    }));
    chmod((path + "-wal").c_str(), 0660);
    EXPECT_TRUE(As(bert, [&] { return KnowsTheSale(path); }));
}

TEST_F(JournalOfAShop, HasNoOtherWhenItsFolderIsClosedToItsGroup) {
    chmod(folder.Path().c_str(), 02550);
    EXPECT_TRUE(As(anna, [&] {
        const Place place = PlaceIn(folder.Path());
        const std::string said = MessageOf([&] { Journal closed(place.path); });
        return place.path == path && place.notice.empty() && !fs::exists(path) &&
               said.starts_with("cannot make '" + path + "' - Permission denied; as root, `chgrp");
    }));
    EXPECT_THAT(MessageOf([] { MakeRunFolder("/proc/runs/1"); }), HasSubstr("with --journal"));
}

// SQLite would make its files there, and with the rights of an account that may not write them all.
TEST_F(JournalOfAShop, IsAskedWithoutAChangeByWhoMayOnlyRead) {
    { EXPECT_TRUE(Print(path)); }
    journal::Run(Database(path, nullptr), "PRAGMA wal_checkpoint(TRUNCATE)");
    for (const char* ending : {"-wal", "-shm"}) fs::remove(path + ending);
    chmod(path.c_str(), 0444);
    EXPECT_TRUE(As(
        bert, [&] { return Journal::PerhapsSent(path, "a") && !Journal::PerhapsSent(path, "b"); }));
    EXPECT_FALSE(fs::exists(path + "-wal"));
    EXPECT_FALSE(fs::exists(path + "-shm"));
}

TEST_F(JournalOfAShop, GivesOthersWhatTheFolderGivesThem) {
    {
        const GroupMask shared(folder.Path());
        EXPECT_EQ(Umask(), 0007U);
    }
    EXPECT_TRUE(Share(folder.Path(), 02775));
    {
        const GroupMask shared(folder.Path());
        EXPECT_EQ(Umask(), 0002U);
    }
    EXPECT_EQ(Umask(), 0022U);
}

TEST_F(JournalOfAShop, IsNoneWhereAFolderIsOneAccounts) {
    for (const mode_t mode : {0700U, 0770U, 02750U}) {
        chmod(folder.Path().c_str(), mode);
        const GroupMask alone(folder.Path());
        EXPECT_EQ(Umask(), 0022U) << mode;
    }
    umask(077);
    MakeRunFolder(folder.File("home/runs"));
    { EXPECT_TRUE(Print(folder.File("home/journal.db"))); }
    EXPECT_EQ(ModeOf(folder.File("home/runs")) & 0777U, 0700U);
    EXPECT_EQ(ModeOf(folder.File("home/journal.db")), 0600U);
}

TEST_F(JournalPlace, IsTheSitesWhereThatCanBeMade) {
    EXPECT_EQ(PlaceIn(folder.Path()).path, path);
    EXPECT_EQ(PlaceIn(folder.File("a/b")).path, folder.File("a/b/journal.db"));
    EXPECT_FALSE(fs::exists(folder.File("a")));
}

TEST_F(JournalPlace, IsTheUsersOwnForWhoHasNoRightsThere) {
    setenv("HOME", "/home/guest", 1);
    unsetenv("XDG_STATE_HOME");
    EXPECT_TRUE(As(bert, [] {
        const Place place = PlaceIn("/etc");
        return place.path == "/home/guest/.local/state/voltis/journal.db" &&
               place.notice.starts_with(
                   "this account may not use the machine's journal in '/etc' "
                   "- Permission denied; it has one of its own, '" +
                   place.path + "', which knows nothing of other accounts'");
    }));
    EXPECT_TRUE(As(bert, [] {
        const Place place = PlaceIn("/etc/none/voltis");  // no journal of a machine
        return place.path.starts_with("/home/guest/") && place.notice.empty();
    }));
    for (const auto& [home, own] : {std::pair("relative", "/home/guest/.local/state"),
                                    std::pair("/var/state", "/var/state")}) {
        setenv("XDG_STATE_HOME", home, 1);
        const std::string expected = std::string(own) + "/voltis/journal.db";
        EXPECT_TRUE(As(bert, [&] { return PlaceIn("/etc").path == expected; })) << home;
    }
}

// As on a new disk, or after a restore: what it knows to be printed would be printed again.
TEST_F(JournalPlace, IsTheSitesWhereItIsSeenButNotSharedAnyLonger) {
    if (geteuid() != 0) GTEST_SKIP() << "what its owner sees is the owner's";
    setenv("XDG_STATE_HOME", folder.File("state").c_str(), 1);
    EXPECT_EQ(chown(folder.Path().c_str(), 0, 0), 0);
    chmod(folder.Path().c_str(), 0755);
    EXPECT_TRUE(As(bert, [&] { return !PlaceIn(folder.Path()).notice.empty(); }));  // no journal
    { EXPECT_TRUE(Print(path)); }
    for (const std::string& file : files) chmod(file.c_str(), 0644);
    EXPECT_TRUE(As(bert, [&] {
        const Place place = PlaceIn(folder.Path());
        const std::string said = MessageOf([&] { Journal closed(place.path); });
        return place.path == path && place.notice.empty() &&
               said.starts_with("cannot use the journal '" + path + "' - Permission denied");
    }));
    chmod(folder.Path().c_str(), 0750);
    EXPECT_TRUE(As(bert, [&] { return !PlaceIn(folder.Path()).notice.empty(); }));
}

TEST_F(JournalPlace, IsTheUsersOwnWhereTheFolderIsOutOfSight) {
    if (geteuid() != 0) GTEST_SKIP() << "nothing is out of sight of its owner";
    const std::string site = folder.File("lib/voltis");
    fs::create_directories(site);
    chmod(folder.File("lib").c_str(), 0700);
    EXPECT_TRUE(As(bert, [&] { return !PlaceIn(site).notice.empty(); }));
}

// As after the account was taken into the group.
TEST_F(JournalPlace, OfAJobThatTheUsersOwnKnowsStaysThere) {
    setenv("XDG_STATE_HOME", folder.File("state").c_str(), 1);
    const std::string own = folder.File("state/voltis/journal.db");
    EXPECT_EQ(Journal::DefaultPlace("a", folder.Path()).path, path);
    EXPECT_FALSE(fs::exists(own));
    { EXPECT_TRUE(Print(own)); }
    EXPECT_EQ(Journal::DefaultPlace("a", folder.Path()).path, own);
    EXPECT_EQ(Journal::DefaultPlace("b", folder.Path()).path, path);
    EXPECT_EQ(Journal::DefaultPlace("", folder.Path()).path, path);
    setenv("XDG_STATE_HOME", "/dev/null", 1);
    EXPECT_EQ(Journal::DefaultPlace("a", folder.Path()).path, path);
}

// The journal of a disk that is not mounted knows what was printed.
TEST_F(JournalPlace, IsTheSitesEvenWhereItCannotBeReached) {
    const std::string lost = folder.File("lost");
    fs::create_symlink("/nonexistent/disk", lost);
    const std::string file = folder.Write("file", "");
    for (const std::string& site : {lost, file, file + "/below"}) {
        const Place place = PlaceIn(site);
        EXPECT_EQ(place.path, site + "/journal.db");
        EXPECT_FALSE(IsAbsent(place.path)) << site;
        EXPECT_TRUE(Journal::PerhapsSent(place.path, "a")) << site;
        EXPECT_THAT(MessageOf([&] { Journal none(place.path); }), HasSubstr("cannot make"));
    }
}

TEST_F(JournalPlace, IsAbsentOnlyWhereItWasNeverMade) {
    EXPECT_TRUE(IsAbsent(path));
    EXPECT_TRUE(IsAbsent(folder.File("a/b/journal.db")));
    EXPECT_FALSE(IsAbsent(folder.Write("journal.db", "")));
    fs::create_symlink("nowhere", folder.File("link"));
    EXPECT_FALSE(IsAbsent(folder.File("link")));
}

TEST(JournalTimeText, IsUtcWithMilliseconds) {
    using std::chrono::milliseconds;
    setenv("TZ", "UTC-9", 1);
    tzset();
    EXPECT_EQ(TimeText(std::chrono::system_clock::time_point(milliseconds(1714979289007))),
              "2024-05-06T07:08:09.007Z");
}

TEST(JournalState, HasAWordEach) {
    for (const char* word : {"received", "sending", "done", "failed", "in-doubt"}) {
        ASSERT_TRUE(StateOf(word)) << word;
        EXPECT_STREQ(Word(*StateOf(word)), word);
    }
    EXPECT_FALSE(StateOf("lost"));
}
