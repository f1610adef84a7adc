// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The journal on a disk that is full or fails, and the disk itself, which must lose what it may.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "companion/journal/Journal.h"
#include "tests/companion/CutVfs.h"
#include "tests/support/Sanitized.h"

using namespace journal;

namespace {

constexpr char path[] = "journal.db";
constexpr std::size_t fromThenOn = 1'000'000;

struct Failure {
    int code;
    std::size_t count;
};
constexpr Failure failures[] = {{SQLITE_FULL, 1},        {SQLITE_FULL, fromThenOn},
                                {SQLITE_IOERR_WRITE, 1}, {SQLITE_IOERR_WRITE, fromThenOn},
                                {SQLITE_IOERR_FSYNC, 1}, {SQLITE_IOERR_FSYNC, fromThenOn}};

bool Succeeds(const std::function<void()>& action) {
    try {
        action();
        return true;
    } catch (const JournalError&) {
        return false;
    }
}

// One job in a journal, and a step of its life on a disk that fails.
class FailingDisk {
  public:
    using Step = std::function<void(Journal&, std::int64_t)>;

    /// The job is received, and what else comes before. So many pages in the WAL before the step
    /// may make the step bring them into the file.
    FailingDisk(std::uint64_t seed, const Step& before, std::size_t filling) : disk_(seed) {
        journal_ = std::make_unique<Journal>(path, disk_.Name());
        number_ = journal_->Receive({"a", "default", "/sale.txt", std::string(filling, 'x')});
        before(*journal_, number_);
        begin_ = disk_.Steps();
    }

    /// The number of disk steps that it takes on a sound disk.
    std::size_t StepsOf(const Step& step) {
        step(*journal_, number_);
        return disk_.Steps() - begin_;
    }

    bool SucceedsWhile(const Failure& failure, std::size_t at, const Step& step) {
        disk_.FailFrom(begin_ + at, failure.code, failure.count);
        const bool success = Succeeds([&] { step(*journal_, number_); });
        disk_.FailNoMore();
        return success;
    }

    bool SucceedsOnASoundDisk(const Step& step) {
        return Succeeds([&] { step(*journal_, number_); });
    }
    State StateNow() const { return journal_->Get(number_).state; }
    State StateAfterAPowerCut() {
        journal_.reset();
        disk_.CutAndPowerOn();
        journal_ = std::make_unique<Journal>(path, disk_.Name());
        return StateNow();
    }

  private:
    CutVfs disk_;
    std::unique_ptr<Journal> journal_;
    std::int64_t number_ = 0;
    std::size_t begin_ = 0;
};

void Nothing(Journal&, std::int64_t) {}
void Start(Journal& journal, std::int64_t number) {
    journal.StartSending(number, "default", "/logs/1");
}
void Finish(Journal& journal, std::int64_t number) {
    journal.Finish(number, {printed, "{}", 0, false});
}

constexpr std::size_t little = 100;
constexpr std::size_t nearlyAll = 380'000;  // the next step writes the WAL's hundredth page

// A step from one state to the next, with each of its disk steps failing in each way.
struct Expectation {
    FailingDisk::Step before;
    FailingDisk::Step step;
    State from, to;
};

void ExpectNoFalsePromise(const Expectation& expected, const Failure& failure, std::size_t filling,
                          std::size_t at) {
    SCOPED_TRACE("code " + std::to_string(failure.code) + " x " + std::to_string(failure.count) +
                 " at step " + std::to_string(at));
    FailingDisk disk(at, expected.before, filling);
    const bool promised = disk.SucceedsWhile(failure, at, expected.step);
    if (!promised && disk.StateNow() == expected.from) {
        EXPECT_TRUE(disk.SucceedsOnASoundDisk(expected.step));
    }
    EXPECT_EQ(disk.StateNow(), expected.to);
    EXPECT_EQ(disk.StateAfterAPowerCut(), expected.to);
}

// What a throwing step left behind, without another attempt.
void ExpectOneOfTwoStates(const Expectation& expected, const Failure& failure, std::size_t filling,
                          std::size_t at) {
    FailingDisk disk(at, expected.before, filling);
    const bool promised = disk.SucceedsWhile(failure, at, expected.step);
    const State state = disk.StateAfterAPowerCut();
    EXPECT_TRUE(state == expected.to || (!promised && state == expected.from))
        << Word(state) << (promised ? " was promised otherwise" : "");
}

// Of the many pages that the emptying of the WAL writes, one after the other, some are enough.
bool IsOneOfManyAlike(std::size_t at, std::size_t steps) {
    return at > 6 && at + 3 < steps && at % (sanitized ? 512 : 64) != 0;
}

void ExpectForEveryStep(const Expectation& expected, std::size_t filling) {
    const std::size_t steps = FailingDisk(1, expected.before, filling).StepsOf(expected.step);
    ASSERT_GE(steps, 2U);
    for (const Failure& failure : failures) {
        for (std::size_t at = 0; at < steps; ++at) {
            if (IsOneOfManyAlike(at, steps)) continue;
            ExpectNoFalsePromise(expected, failure, filling, at);
            ExpectOneOfTwoStates(expected, failure, filling, at);
        }
    }
}

const Expectation starting = {Nothing, Start, State::Received, State::Sending};
const Expectation finishing = {Start, Finish, State::Sending, State::Done};

}  // namespace

TEST(JournalOnAFailingDisk, ThrowsFromStartSendingAtEveryWriteAndSync) {
    const std::size_t steps = FailingDisk(1, Nothing, little).StepsOf(Start);
    for (const Failure& failure : failures) {
        for (std::size_t at = 0; at < steps; ++at) {
            FailingDisk disk(1, Nothing, little);
            EXPECT_FALSE(disk.SucceedsWhile(failure, at, Start)) << failure.code << " at " << at;
        }
    }
}

TEST(JournalOnAFailingDisk, PromisesNoSendingThatItForgets) {
    ExpectForEveryStep(starting, little);
}

TEST(JournalOnAFailingDisk, PromisesNoSendingThatItForgetsWhileTheWalIsEmptied) {
    const std::size_t usual = FailingDisk(1, Nothing, little).StepsOf(Start);
    ASSERT_GT(FailingDisk(1, Nothing, nearlyAll).StepsOf(Start), usual + 50);
    ExpectForEveryStep(starting, nearlyAll);
}

TEST(JournalOnAFailingDisk, PromisesNoVerdictThatItForgets) {
    ExpectForEveryStep(finishing, little);
}

TEST(JournalOnAFailingDisk, OpensWhenTheDiskIsSoundAgain) {
    CutVfs sound(1);
    { Journal journal(path, sound.Name()); }
    for (const Failure& failure : failures) {
        for (std::size_t at = 0; at < sound.Steps(); ++at) {
            CutVfs disk(at);
            disk.FailFrom(at, failure.code, failure.count);
            Succeeds([&] { Journal journal(path, disk.Name()); });
            disk.FailNoMore();
            Journal journal(path, disk.Name());
            EXPECT_GT(journal.Receive({"a", "default", "/sale.txt", "x"}), 0);
        }
    }
}

TEST(JournalOnAFailingDisk, SaysWhatToDoWhenItIsFull) {
    FailingDisk disk(1, Nothing, little);
    std::string message;
    disk.SucceedsWhile({SQLITE_FULL, fromThenOn}, 0, [&](Journal& journal, std::int64_t number) {
        try {
            Start(journal, number);
        } catch (const JournalError& error) {
            message = error.what();
        }
    });
    EXPECT_EQ(message,
              "cannot use the journal 'journal.db' - database or disk is full; free some space on "
              "that disk");
}

namespace {

// What a file of two sectors of 'a' has after 'b' was written over it and the power failed.
std::vector<std::string> ContentsAfterACut(bool sync) {
    std::vector<std::string> contents;
    for (std::uint64_t seed = 0; seed < 200; ++seed) {
        std::mt19937_64 random(seed);
        CutFile file;
        file.Write(0, std::string(1024, 'a'));
        file.Sync();
        file.Write(0, std::string(1024, 'b'));
        if (sync) file.Sync();
        file.LoseSome(random);
        file.PowerOn();
        contents.push_back(file.Seen());
    }
    std::sort(contents.begin(), contents.end());
    contents.erase(std::unique(contents.begin(), contents.end()), contents.end());
    return contents;
}

int OpenNew(CutVfs& disk, const char* name, CutVfs::Handle& handle, int kind) {
    return disk.Open(name, handle, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | kind);
}

// How many of 100 disks have the journal's name after a cut.
int DisksWithAJournal(const std::function<void(CutVfs&, CutVfs::Handle&)>& action) {
    int count = 0;
    for (std::uint64_t seed = 0; seed < 100; ++seed) {
        CutVfs disk(seed);
        CutVfs::Handle handle{{nullptr}, &disk, nullptr, false};
        OpenNew(disk, "journal", handle, SQLITE_OPEN_MAIN_JOURNAL);
        action(disk, handle);
        delete handle.file;
        disk.CutAndPowerOn();
        count += disk.Exists("journal") ? 1 : 0;
    }
    return count;
}

}  // namespace

TEST(CutFile, KeepsWhatWasSynced) {
    EXPECT_EQ(ContentsAfterACut(true), std::vector<std::string>{std::string(1024, 'b')});
}

TEST(CutFile, KeepsDropsOrTearsWhatWasNot) {
    const std::string a(512, 'a');
    const std::string b(512, 'b');
    EXPECT_EQ(ContentsAfterACut(false), (std::vector<std::string>{a + a, a + b, b + a, b + b}));
}

TEST(CutVfs, MayLoseAFileWhoseFolderWasNotSynced) {
    const int kept = DisksWithAJournal([](CutVfs&, CutVfs::Handle&) {});
    EXPECT_GT(kept, 20);
    EXPECT_LT(kept, 80);
}

TEST(CutVfs, KeepsAJournalThatWasSyncedAndMayBringADeletedOneBack) {
    const auto sync = [](CutVfs& disk, CutVfs::Handle& handle) { disk.Sync(handle); };
    EXPECT_EQ(DisksWithAJournal(sync), 100);
    const auto remove = [&](CutVfs& disk, CutVfs::Handle& handle) {
        sync(disk, handle);
        disk.Delete("journal", false);
    };
    EXPECT_GT(DisksWithAJournal(remove), 20);
    const auto removeForGood = [&](CutVfs& disk, CutVfs::Handle& handle) {
        sync(disk, handle);
        disk.Delete("journal", true);
    };
    EXPECT_EQ(DisksWithAJournal(removeForGood), 0);
}

TEST(CutVfs, DoesNothingAfterTheCut) {
    CutVfs disk(1);
    CutVfs::Handle handle{{nullptr}, &disk, nullptr, false};
    ASSERT_EQ(OpenNew(disk, "file", handle, SQLITE_OPEN_MAIN_DB), SQLITE_OK);
    disk.CutAt(1);
    EXPECT_EQ(disk.Write(handle, "in the cut", 0), SQLITE_IOERR_WRITE);
    EXPECT_TRUE(disk.IsCut());
    EXPECT_EQ(disk.Write(handle, "after", 0), SQLITE_IOERR_WRITE);
    EXPECT_EQ(disk.Sync(handle), SQLITE_IOERR_FSYNC);
    EXPECT_EQ((*handle.file)->Seen(), "in the cut");
    delete handle.file;
}
