// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// A worker at an emulated register, with the driver that is shipped.
#include "companion/service/Worker.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <future>
#include <string>
#include <thread>

#include "companion/service/Desk.h"
#include "tests/companion/Till.h"

using journal::State;
using namespace std::chrono_literals;

namespace {

struct Pipe {
    Pipe() {
        int ends[2];
        if (pipe(ends) != 0) throw std::runtime_error("no pipe");
        from = ends[0];
        to = ends[1];
    }
    ~Pipe() {
        close(from);
        Close();
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    void Close() {
        if (to >= 0) close(to);
        to = -1;
    }
    bool HasNews(std::chrono::milliseconds longest) const {
        pollfd news{from, POLLIN, 0};
        return poll(&news, 1, static_cast<int>(longest.count())) > 0;
    }

    int from = -1;
    int to = -1;
};

class Worker : public testing::Test {
  protected:
    Worker() { std::filesystem::create_directory(site_.locks); }
    ~Worker() override {
        isHeld_ = false;
        Stop();
    }

    void Start(std::chrono::milliseconds idle = 1h) {
        work_ = std::async(std::launch::async, [this, idle] {
            journal::Journal journal(till_.File("journal.db"));
            job::Jobs jobs(journal, till_.profile, site_, till_.File("runs"));
            service::WorkerOptions options;
            options.wakeFd = wake_.from;
            options.endFd = end_.from;
            options.tellFd = tell_.to;
            options.patience = patience_;
            options.idle = idle;
            service::WorkOff(jobs, options);
        });
    }
    // What it throws is thrown here.
    void Stop() {
        wake_.Close();
        if (work_.valid()) work_.get();
    }
    void Wake() { ASSERT_EQ(write(wake_.to, "", 1), 1); }
    void WaitForOne() {
        ASSERT_TRUE(tell_.HasNews(20s));
        char byte = 0;
        ASSERT_EQ(read(tell_.from, &byte, 1), 1);
    }

    std::int64_t HandIn(const std::string& id) {
        return service::Desk(journal_, 100)
            .Submit({"default", id, oneSale, "till 1", "/jobs/sale.txt"})
            .job.number;
    }
    State StateOf(const std::string& id) const { return journal_.Find(id)->state; }
    bool ComesInto(const std::string& id, State state) const {
        for (int i = 0; i < 6000 && StateOf(id) != state; ++i) usleep(10'000);
        return StateOf(id) == state;
    }

    // The register takes nothing of the driver's while it is held.
    workbench::Station& Holdable() {
        till_.Configure("StandardLog=1\nCmdTimeout_Default=19500\nCmdTimeout_Tender=19500\n");
        till_.Station().line.OnReceive([this](emulator::Bytes&) {
            while (isHeld_) std::this_thread::sleep_for(5ms);
        });
        return till_.Station();
    }
    // The receipt of A is being printed, and does not end before the register is let go.
    void HoldTheReceipt() {
        isHeld_ = true;
        HandIn("A");
        Start();
        ASSERT_TRUE(ComesInto("A", State::Sending));
    }

    Till till_;
    std::atomic<bool> isHeld_ = false;
    journal::Journal journal_{till_.File("journal.db")};
    job::Site site_{VoltisPath(), till_.File("locks"), till_.File("logs")};
    Pipe wake_, tell_, end_;
    std::chrono::milliseconds patience_{0};
    workbench::Serving serving_{Holdable().server};
    std::future<void> work_;
};

}  // namespace

TEST_F(Worker, PrintsWhatWaitsWhenItStarts) {
    HandIn("A");
    HandIn("B");
    Start();
    WaitForOne();
    WaitForOne();
    EXPECT_EQ(StateOf("A"), State::Done) << journal_.Find("A")->outcome;
    EXPECT_EQ(StateOf("B"), State::Done);
    EXPECT_EQ(journal_.Find("B")->verdict, journal::printed);
}

TEST_F(Worker, PrintsWhenItIsCalled) {
    Start();
    EXPECT_FALSE(tell_.HasNews(100ms));
    HandIn("A");
    Wake();
    WaitForOne();
    EXPECT_EQ(StateOf("A"), State::Done) << journal_.Find("A")->outcome;
}

TEST_F(Worker, LooksByItselfFromTimeToTime) {
    Start(50ms);
    HandIn("A");
    WaitForOne();
    EXPECT_EQ(StateOf("A"), State::Done) << journal_.Find("A")->outcome;
}

TEST_F(Worker, EndsWhenNobodyWantsItAnyMore) {
    Start();
    Stop();
    HandIn("A");
    EXPECT_EQ(StateOf("A"), State::Received);
}

TEST_F(Worker, EndsTheReceiptFirst) {
    HoldTheReceipt();
    HandIn("B");
    wake_.Close();
    EXPECT_EQ(work_.wait_for(100ms), std::future_status::timeout);
    isHeld_ = false;
    Stop();
    EXPECT_EQ(StateOf("A"), State::Done) << journal_.Find("A")->outcome;
    EXPECT_TRUE(journal_.Find("B")->InQueue());
}

TEST_F(Worker, FindsOutWhatAProgramHasLeft) {
    Start(50ms);
    const auto left = journal_.Receive({"A", "default", "/pos/sale.txt", oneSale});
    EXPECT_TRUE(ComesInto("A", State::Failed));
    const auto cut = journal_.Receive({"B", "default", "/pos/sale.txt", oneSale});
    journal_.StartSending(cut, "default", till_.File("runs") + "/" + std::to_string(cut));
    EXPECT_TRUE(ComesInto("B", State::InDoubt) || StateOf("B") == State::Failed);
    EXPECT_NE(left, cut);
}

TEST_F(Worker, LeavesAloneWhatAProgramIsPrinting) {
    const runner::DeviceLock lock(runner::LockFileOf(till_.profile, site_.locks));
    const auto at = journal_.Receive({"A", "default", "/pos/sale.txt", oneSale});
    journal_.StartSending(at, "default", till_.File("runs") + "/" + std::to_string(at));
    Start(20ms);
    usleep(300'000);
    EXPECT_EQ(StateOf("A"), State::Sending);
}

TEST_F(Worker, SaysWhenTheJournalIsGone) {
    Start(20ms);
    journal::Run(journal::Database(till_.File("journal.db"), nullptr), "DROP TABLE events");
    journal::Run(journal::Database(till_.File("journal.db"), nullptr), "DROP TABLE jobs");
    EXPECT_EQ(work_.wait_for(10s), std::future_status::ready);
    EXPECT_THROW(Stop(), journal::JournalError);
}

TEST_F(Worker, EndsTheReceiptFirstAlsoWhenASignalEndsIt) {
    HoldTheReceipt();
    HandIn("B");
    ASSERT_EQ(write(end_.to, "", 1), 1);
    EXPECT_EQ(work_.wait_for(100ms), std::future_status::timeout);
    isHeld_ = false;
    ASSERT_EQ(work_.wait_for(60s), std::future_status::ready);
    EXPECT_EQ(StateOf("A"), State::Done) << journal_.Find("A")->outcome;
    EXPECT_TRUE(journal_.Find("B")->InQueue());
}

// As long as it is patient, it would not come to an end.
TEST_F(Worker, EndsWhileItWaitsForTheRegisterAndLeavesTheJobInItsQueue) {
    const runner::DeviceLock lock(runner::LockFileOf(till_.profile, site_.locks));
    patience_ = 10s;
    HandIn("A");
    Wake();
    Start();
    EXPECT_FALSE(tell_.HasNews(200ms));
    const auto before = std::chrono::steady_clock::now();
    Stop();
    EXPECT_LT(std::chrono::steady_clock::now() - before, 5s);
    EXPECT_TRUE(journal_.Find("A")->InQueue());
}

TEST_F(Worker, LeavesTheQueueAloneWhenItCannotFindOutWhatWasCutOff) {
    const auto cut = journal_.Receive({"A", "default", "/pos/sale.txt", oneSale});
    journal_.StartSending(cut, "default", "/proc/no/folder");
    HandIn("B");
    Start(20ms);
    EXPECT_EQ(work_.wait_for(20s), std::future_status::ready);
    EXPECT_THROW(Stop(), std::exception);
    EXPECT_EQ(StateOf("A"), State::Sending);
    EXPECT_TRUE(journal_.Find("B")->InQueue());
}

// A worker that has outlived its service prints for longer, perhaps, than anybody's patience.
TEST_F(Worker, LeavesAJobInItsQueueWhileTheRegisterPrintsAnother) {
    const runner::DeviceLock lock(runner::LockFileOf(till_.profile, site_.locks));
    const auto other = journal_.Receive({"A", "default", "/pos/sale.txt", oneSale});
    journal_.StartSending(other, "default", till_.File("runs/1"));
    HandIn("B");
    patience_ = 20ms;
    Start(20ms);
    EXPECT_FALSE(tell_.HasNews(500ms));
    EXPECT_TRUE(journal_.Find("B")->InQueue());
}
