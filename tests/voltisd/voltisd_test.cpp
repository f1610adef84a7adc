// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The service as it is shipped, with the driver that is shipped, and an emulated register.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>

#include <algorithm>
#include <csignal>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "companion/journal/Journal.h"
#include "companion/runner/DeviceLock.h"
#include "companion/runner/Files.h"
#include "companion/tokens/File.h"
#include "companion/workbench/Serving.h"
#include "tests/companion/Till.h"
#include "tests/voltisd/Daemon.h"

using http::Scope;
using journal::State;
using testing::HasSubstr;
using testing::Not;
using namespace std::chrono_literals;

namespace {

class Voltisd : public testing::Test {
  protected:
    ~Voltisd() override { EndRegister(); }

    void Start() { ASSERT_TRUE(daemon_.Start()) << daemon_.Said(); }
    void StartRegister() {
        serving_ = std::make_unique<workbench::Serving>(till_.Station().server);
    }
    void EndRegister() {
        if (serving_) serving_->Finish();
        serving_.reset();
    }
    std::int64_t Receipts() {
        EndRegister();
        return std::ranges::count_if(
            printed_.Lines(), [](const std::string& line) { return line.starts_with("RECEIPT "); });
    }
    State StateOf(const std::string& id) const {
        return journal::Journal::ForReading(daemon_.File("state/journal.db"))->Find(id)->state;
    }
    bool WaitFor(const std::string& id, State state) const {
        for (int i = 0; i < 2000; ++i) {
            if (StateOf(id) == state) return true;
            std::this_thread::sleep_for(10ms);
        }
        return false;
    }

    std::string ServedAt(const std::string& registerName) const {
        const journal::Journal book(daemon_.File("state/journal.db"));
        return book.ServedAt(registerName).value_or("nowhere");
    }
    bool WaitUntilItSays(const std::string& text) const {
        for (int i = 0; i < 2000; ++i) {
            if (daemon_.Said().find(text) != std::string::npos) return true;
            std::this_thread::sleep_for(10ms);
        }
        return false;
    }

    Till till_;
    workbench::Since printed_{till_.Device()};
    Daemon daemon_{till_.profile.device};
    std::unique_ptr<workbench::Serving> serving_;
};

}  // namespace

TEST_F(Voltisd, PrintsAJobOnceHoweverOftenItIsHandedIn) {
    Start();
    StartRegister();
    const Answer first = daemon_.HandIn("sale 1", oneSale, 20);
    EXPECT_EQ(first.status, 200) << first.body;
    EXPECT_EQ(Daemon::JsonOf(first)["verdict"], "printed");
    EXPECT_EQ(Daemon::JsonOf(first)["replayed"], false);
    const Answer again = daemon_.HandIn("sale 1", oneSale, 20);
    EXPECT_EQ(again.status, 200) << again.body;
    EXPECT_EQ(Daemon::JsonOf(again)["replayed"], true);
    EXPECT_EQ(Receipts(), 1);
}

// What was sold is nobody's business who reads the system's journal.
TEST_F(Voltisd, SaysNothingOfWhatIsSold) {
    Start();
    StartRegister();
    EXPECT_EQ(daemon_.HandIn("sale 1", oneSale, 40).status, 200);
    const std::string mistake = "SALE: DEPTNR=1; NAME=\"Pear cake\"; PRICE=ruinous\n";
    EXPECT_EQ(daemon_.HandIn("sale 2", mistake, 40).status, 422);
    const std::string tooLong = oneSale + std::string(70'000, '\n');
    EXPECT_EQ(daemon_.HandIn("sale 3", tooLong, 40).status, 413);
    EXPECT_THAT(daemon_.Said(), HasSubstr(" POST /v1/registers/default/jobs 422"));
    for (const char* text : {"Apple tart", "Pear cake", "ruinous", "SALE", "TENDER"})
        EXPECT_THAT(daemon_.Said(), Not(HasSubstr(text)));
}

TEST_F(Voltisd, AnswersBeforeTheReceiptIsPrintedToWhoDoesNotWait) {
    Start();
    const Answer accepted = daemon_.HandIn("sale 1", oneSale, 0);
    EXPECT_EQ(accepted.status, 202) << accepted.body;
    EXPECT_EQ(accepted.headers.at("location"), "/v1/jobs/sale%201");
    StartRegister();
    const Answer job = daemon_.Ask("GET", "/v1/jobs/sale%201", {"Prefer: wait=20"});
    EXPECT_EQ(Daemon::JsonOf(job)["verdict"], "printed") << job.body;
    EXPECT_EQ(Receipts(), 1);
}

TEST_F(Voltisd, PrintsAfterARestartWhatItHadTakenBefore) {
    Start();
    EXPECT_EQ(daemon_.HandIn("sale 1", oneSale, 0).status, 202);
    EXPECT_EQ(daemon_.HandIn("sale 2", oneSale, 0).status, 202);
    daemon_.Kill();
    StartRegister();
    Start();
    EXPECT_TRUE(WaitFor("sale 1", State::Done));
    EXPECT_TRUE(WaitFor("sale 2", State::Done));
    EXPECT_EQ(Receipts(), 2);
}

TEST_F(Voltisd, EndsAfterTheReceiptThatIsBeingPrinted) {
    Start();
    StartRegister();
    EXPECT_EQ(daemon_.HandIn("sale 1", oneSale, 0).status, 202);
    ASSERT_TRUE(WaitFor("sale 1", State::Sending));
    daemon_.Signal(SIGTERM);
    EXPECT_EQ(daemon_.WaitForEnd(), 0);
    EXPECT_EQ(StateOf("sale 1"), State::Done);
    EXPECT_EQ(Receipts(), 1);
}

TEST_F(Voltisd, ReplacesAWorkerThatASignalEndsAfterItsReceipt) {
    Start();
    StartRegister();
    EXPECT_EQ(daemon_.HandIn("sale 1", oneSale, 0).status, 202);
    ASSERT_TRUE(WaitFor("sale 1", State::Sending));
    for (const int signal : {SIGHUP, SIGTERM, SIGINT}) kill(daemon_.Worker(), signal);
    EXPECT_TRUE(WaitFor("sale 1", State::Done));
    EXPECT_TRUE(WaitUntilItSays("the worker of register 'default' exit status 0"))
        << daemon_.Said();
    EXPECT_EQ(Daemon::JsonOf(daemon_.HandIn("sale 2", oneSale, 40))["verdict"], "printed");
    EXPECT_EQ(Receipts(), 2);
}

TEST_F(Voltisd, TellsWhoWaitsThatTheRegisterDoesNotAnswer) {
    Start();
    const Answer answer = daemon_.HandIn("sale 1", oneSale, 40);
    EXPECT_EQ(answer.status, 503) << answer.body;
    EXPECT_EQ(Daemon::JsonOf(answer)["job"]["verdict"], "not-printed");
}

// A program keeps the register, so that the worker has no news.
TEST_F(Voltisd, TellsWhoWaitsWhatAnotherProgramHasDone) {
    daemon_.Configure("Patience=600\nLongestWait=600\n");
    const runner::DeviceLock lock(runner::LockFileOf(till_.profile, daemon_.File("locks")));
    Start();
    EXPECT_EQ(daemon_.HandIn("sale 1", oneSale, 0).status, 202);
    EXPECT_EQ(daemon_.HandIn("sale 2", oneSale, 0).status, 202);
    Client waiting(daemon_.Socket());
    waiting.Send(GetRequest("/v1/jobs/sale%202", "Prefer: wait=600\r\n"));
    // Two requests after it were answered, and it was not.
    for (int i = 0; i < 2; ++i) EXPECT_EQ(daemon_.Ask("GET", "/v1/registers").status, 200);
    EXPECT_FALSE(waiting.Read()) << waiting.received;
    journal::Journal other(daemon_.File("state/journal.db"));
    other.Withdraw(other.Find("sale 2")->number, "anna", "{}", 2);
    std::optional<Answer> answer;
    for (int i = 0; i < 6000 && !answer && !waiting.isClosed; ++i) {
        pollfd news{waiting.fd, POLLIN, 0};
        poll(&news, 1, 10);
        waiting.Read();
        answer = TakeAnswer(waiting.received, waiting.isClosed);
    }
    ASSERT_TRUE(answer);
    EXPECT_EQ(Daemon::JsonOf(*answer)["withdrawn_by"], "anna") << answer->body;
    EXPECT_EQ(StateOf("sale 1"), State::Received);
}

TEST_F(Voltisd, SaysThatItCannotWriteNowInsteadOfKeepingAllOthersWaiting) {
    Start();
    const journal::Database other(daemon_.File("state/journal.db"), nullptr);
    auto writing = std::make_unique<journal::Transaction>(other);
    const Answer refused =
        daemon_.Ask("POST", "/v1/registers/default/jobs",
                    {"Idempotency-Key: sale 1", "Content-Type: text/plain"}, oneSale);
    EXPECT_EQ(refused.status, 503) << refused.body;
    EXPECT_EQ(Daemon::JsonOf(refused)["type"], "urn:voltis:problem:journal");
    EXPECT_EQ(refused.headers.at("retry-after"), "1");
    EXPECT_EQ(daemon_.Ask("GET", "/v1/jobs/sale%201").status, 404);
    writing.reset();
    EXPECT_EQ(daemon_.HandIn("sale 1", oneSale, 0).status, 202);
}

TEST_F(Voltisd, TellsAtTheNextOccasionWhatItServesWhenTheJournalWasBusy) {
    Start();
    const journal::Database other(daemon_.File("state/journal.db"), nullptr);
    auto writing = std::make_unique<journal::Transaction>(other);
    runner::WriteFile(daemon_.File("etc/registers/bar.ini"), "[VOLTIS]\nDevice=/dev/ttyS77\n");
    daemon_.Signal(SIGHUP);
    EXPECT_TRUE(WaitUntilItSays("the configuration was read again"));
    EXPECT_THAT(daemon_.Said(), HasSubstr("database is locked"));
    writing.reset();
    for (int i = 0; i < 1000 && ServedAt("bar") == "nowhere"; ++i)
        std::this_thread::sleep_for(10ms);
    EXPECT_EQ(ServedAt("bar"), daemon_.Socket());
}

TEST_F(Voltisd, ShowsThePageOfTheTechnicianAtItsRoot) {
    Start();
    const Answer page = daemon_.Ask("GET", "/", {"Accept: text/html"});
    EXPECT_EQ(page.status, 200);
    EXPECT_THAT(page.headers.at("content-type"), HasSubstr("text/html"));
    EXPECT_THAT(page.body, HasSubstr("default"));
    EXPECT_EQ(daemon_.Ask("GET", "/page.css").status, 200);
}

TEST_F(Voltisd, WantsATokenFromTheNetwork) {
    daemon_.Configure("Listen=127.0.0.1:0\n");
    Start();
    const std::string said = daemon_.Said();
    const std::size_t at = said.find("127.0.0.1:");
    ASSERT_NE(at, std::string::npos) << said;
    const std::string address = said.substr(at, said.find_first_of(" \n", at) - at);
    Client client(address);
    client.Send("GET /v1/registers HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n\r\n");
    while (!client.isClosed) client.Read();
    const Answer answer = TakeAnswer(client.received, true).value_or(Answer());
    Daemon::Hold("GET", "/v1/registers", answer);
    EXPECT_EQ(answer.status, 401);
    EXPECT_THAT(answer.headers.at("www-authenticate"), HasSubstr("Bearer"));
}

TEST_F(Voltisd, ServesNoOtherMachineInTheOpen) {
    daemon_.Configure("Listen=0.0.0.0:0\n");
    EXPECT_FALSE(daemon_.Start());
    EXPECT_EQ(daemon_.WaitForEnd(), 2);
    EXPECT_THAT(daemon_.Said(), HasSubstr("Certificate= and Key= are needed"));
}

TEST_F(Voltisd, NamesTheLineOfAMistakeInItsConfiguration) {
    daemon_.Configure("Listne=none\n");
    EXPECT_FALSE(daemon_.Start());
    EXPECT_EQ(daemon_.WaitForEnd(), 2);
    EXPECT_THAT(daemon_.Said(), HasSubstr("/etc/voltisd.conf:"));
    EXPECT_THAT(daemon_.Said(), HasSubstr("there is no key Listne="));
}

TEST_F(Voltisd, ReadsItsConfigurationAgainWhenItIsAskedTo) {
    Start();
    const std::string another = "[VOLTIS]\nDevice=/dev/ttyS77\n";
    runner::WriteFile(daemon_.File("etc/registers/bar.ini"), another);
    EXPECT_EQ(daemon_.Ask("GET", "/v1/registers/bar").status, 404);
    daemon_.Signal(SIGHUP);
    int status = 404;
    for (int i = 0; i < 500 && status == 404; ++i) {
        std::this_thread::sleep_for(10ms);
        status = daemon_.Ask("GET", "/v1/registers/bar").status;
    }
    EXPECT_EQ(status, 200);
}

TEST_F(Voltisd, TellsProgramsOfThisMachineWhatItServesUntilItEnds) {
    runner::WriteFile(daemon_.File("etc/registers/bar.ini"), "[VOLTIS]\nDevice=/dev/ttyS77\n");
    Start();
    EXPECT_EQ(ServedAt("default"), daemon_.Socket());
    EXPECT_EQ(ServedAt("bar"), daemon_.Socket());
    EXPECT_EQ(ServedAt("other"), "nowhere");
    daemon_.Configure("Registers=default\n");
    daemon_.Signal(SIGHUP);
    EXPECT_TRUE(WaitUntilItSays("the configuration was read again"));
    EXPECT_EQ(ServedAt("default"), daemon_.Socket());
    EXPECT_EQ(ServedAt("bar"), "nowhere");
    daemon_.Signal(SIGTERM);
    EXPECT_EQ(daemon_.WaitForEnd(), 0);
    EXPECT_EQ(ServedAt("default"), "nowhere");
}

TEST_F(Voltisd, TellsThemNothingAboutItsPlaceOnTheNetwork) {
    Start();
    daemon_.Kill();
    EXPECT_EQ(ServedAt("default"), daemon_.Socket());
    daemon_.Configure("Socket=none\nListen=127.0.0.1:0\n");
    daemon_.Launch();
    EXPECT_TRUE(WaitUntilItSays("serving default at 127.0.0.1:"));
    EXPECT_EQ(ServedAt("default"), "nowhere");
}

TEST_F(Voltisd, TakesOtherTokensWhenItReadsItsConfigurationAgain) {
    const std::string before = tokens::Add(daemon_.File("etc/tokens"), {"old", {Scope::Read}});
    const std::string after = tokens::Add(daemon_.File("etc/others"), {"new", {Scope::Read}});
    daemon_.Configure("Listen=127.0.0.1:0\n");
    Start();
    const auto status = [this](const std::string& token) {
        return Daemon::AskAt(daemon_.Address(), "GET", "/v1/registers",
                             {"Authorization: Bearer " + token})
            .status;
    };
    EXPECT_EQ(status(before), 200);
    EXPECT_EQ(status(after), 401);
    daemon_.Configure("Listen=127.0.0.1:0\nTokens=" + daemon_.File("etc/others") + "\n");
    daemon_.Signal(SIGHUP);
    ASSERT_TRUE(WaitUntilItSays("the configuration was read again")) << daemon_.Said();
    EXPECT_EQ(status(before), 401);
    EXPECT_EQ(status(after), 200);
}

TEST_F(Voltisd, SaysWhatItCannotTakeOverWithoutARestartAndWhoIsForsaken) {
    runner::WriteFile(daemon_.File("etc/registers/bar.ini"), "[VOLTIS]\nDevice=/dev/ttyS77\n");
    Start();
    journal::Journal journal(daemon_.File("state/journal.db"));
    daemon_.Configure("Registers=default\nListen=127.0.0.1:0\n");
    journal.Receive({"a", "bar", "", oneSale, "till 1", true});
    daemon_.Signal(SIGHUP);
    ASSERT_TRUE(WaitUntilItSays("the configuration was read again")) << daemon_.Said();
    EXPECT_THAT(daemon_.Said(), HasSubstr("Listen= and Socket= have changed: a restart is needed"));
    EXPECT_THAT(daemon_.Said(), HasSubstr("register 'bar' is not served, and has 1 job in its "));
}

TEST_F(Voltisd, KeepsItsTokensWhenTheNewOnesCannotBeRead) {
    const std::string token = tokens::Add(daemon_.File("etc/tokens"), {"old", {Scope::Read}});
    daemon_.Configure("Listen=127.0.0.1:0\n");
    Start();
    runner::WriteFile(daemon_.File("etc/others"), "no tokens\n");
    daemon_.Configure("Listen=127.0.0.1:0\nTokens=" + daemon_.File("etc/others") + "\n");
    daemon_.Signal(SIGHUP);
    ASSERT_TRUE(WaitUntilItSays("the configuration stays as it was: ")) << daemon_.Said();
    EXPECT_EQ(
        Daemon::AskAt(daemon_.Address(), "GET", "/v1/registers", {"Authorization: Bearer " + token})
            .status,
        200);
}

TEST_F(Voltisd, HasTheDescriptorsThatItNeedsAndLeavesItsWorkersTheUsualOnes) {
    rlimit limit = {};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    ASSERT_GE(limit.rlim_max, 512U);
    limit.rlim_cur = 123;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    Start();
    const pid_t worker = daemon_.Worker();  // started before the service says that it serves
    ASSERT_NE(worker, 0);
    const auto softLimitOf = [](pid_t process) {
        rlimit its = {};
        prlimit(process, RLIMIT_NOFILE, nullptr, &its);
        return its.rlim_cur;
    };
    EXPECT_GE(softLimitOf(daemon_.Process()), 512U);
    EXPECT_EQ(softLimitOf(worker), 123U);
}

TEST_F(Voltisd, KeepsItsConfigurationWhenTheNewOneMakesNoSense) {
    Start();
    daemon_.Configure("LongestQueue=0\n");
    daemon_.Signal(SIGHUP);
    EXPECT_TRUE(WaitUntilItSays("the configuration stays as it was: ")) << daemon_.Said();
    EXPECT_EQ(daemon_.Ask("GET", "/v1/registers/default").status, 200);
}
