// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// `voltisctl run` where voltisd serves the register: the programs as they are shipped.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <pwd.h>
#include <signal.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "companion/journal/Journal.h"
#include "companion/runner/DeviceLock.h"
#include "companion/runner/Files.h"
#include "companion/service/Desk.h"
#include "companion/workbench/Serving.h"
#include "tests/companion/Till.h"
#include "tests/support/Programs.h"
#include "tests/voltisd/Daemon.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using namespace std::chrono_literals;

namespace {

using Arguments = std::vector<std::string>;

bool SoonHolds(const std::function<bool()>& condition) {
    for (int i = 0; i < 4000; ++i) {
        if (condition()) return true;
        std::this_thread::sleep_for(10ms);
    }
    return false;
}

std::string OwnAccount() {
    const passwd* entry = getpwuid(geteuid());
    return entry == nullptr ? "uid " + std::to_string(geteuid()) : entry->pw_name;
}

/// voltisctl at work; both of its streams are in a file.
class Calling {
  public:
    Calling(const Arguments& arguments, std::string file) : file_(std::move(file)) {
        Arguments words = {VoltisctlPath()};
        words.insert(words.end(), arguments.begin(), arguments.end());
        std::vector<char*> argv;
        for (std::string& word : words) argv.push_back(word.data());
        argv.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, file_.c_str(),
                                         O_WRONLY | O_CREAT | O_TRUNC | O_APPEND, 0600);
        posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
        if (posix_spawn(&process_, argv[0], &actions, nullptr, argv.data(), environ) != 0)
            process_ = -1;
        posix_spawn_file_actions_destroy(&actions);
    }
    ~Calling() {
        if (process_ <= 0) return;
        kill(process_, SIGKILL);
        waitpid(process_, nullptr, 0);
    }
    Calling(const Calling&) = delete;
    Calling& operator=(const Calling&) = delete;

    void Signal(int signal) const { kill(process_, signal); }
    // Whether a signal to it is heard, and does not kill it any more.
    bool Hears(int signal) const {
        const std::string status =
            runner::ReadFileIfAny("/proc/" + std::to_string(process_) + "/status");
        const std::string name = "SigBlk:\t";
        const std::size_t at = status.find(name);
        if (at == std::string::npos) return false;
        const auto blocked = std::stoull(status.substr(at + name.size(), 16), nullptr, 16);
        return ((blocked >> static_cast<unsigned>(signal - 1)) & 1U) != 0;
    }
    // Returns when it stands still.
    void Pause() const {
        Signal(SIGSTOP);
        waitpid(process_, nullptr, WUNTRACED);
    }
    int Wait() {
        int status = 0;
        waitpid(process_, &status, 0);
        process_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    std::string Said() const { return runner::ReadFileIfAny(file_); }

  private:
    std::string file_;
    pid_t process_ = -1;
};

struct Called {
    int exitCode;
    std::string said;
    std::string result;
};

/// A register, a service for it, and a caller of voltisctl.
class Counter {
  public:
    explicit Counter(const std::string& pos) : pos_(pos) { Configure(""); }
    ~Counter() { EndRegister(); }
    Counter(const Counter&) = delete;
    Counter& operator=(const Counter&) = delete;

    /// Further lines of the register's configuration.
    void Configure(const std::string& lines) const {
        runner::WriteFile(daemon.File("etc/voltis.ini"),
                          "[VOLTIS]\nDevice=" + till.profile.device +
                              "\nResultFileName=result.txt\nStandardLog=1\n" + lines);
    }

    void StartRegister() { serving_ = std::make_unique<workbench::Serving>(till.Station().server); }
    void EndRegister() {
        if (serving_) serving_->Finish();
        serving_.reset();
    }
    std::int64_t Receipts() {
        EndRegister();
        return std::ranges::count_if(
            printed_.Lines(), [](const std::string& line) { return line.starts_with("RECEIPT "); });
    }

    std::string Sale(const std::string& content = oneSale) const {
        runner::WriteFile(pos_ + "/sale.txt", content);
        return pos_ + "/sale.txt";
    }
    Arguments Line(const Arguments& more) const {
        Arguments line = {
            "run",     "--config",           daemon.File("etc"), "--journal",        Journal(),
            "--locks", daemon.File("locks"), "--logs",           daemon.File("logs")};
        line.insert(line.end(), more.begin(), more.end());
        return line;
    }
    std::unique_ptr<Calling> Begin(const Arguments& more) {
        return std::make_unique<Calling>(Line(more),
                                         daemon.File("said-" + std::to_string(++calls_)));
    }
    Called Call(const Arguments& more) { return End(*Begin(more)); }
    Called End(Calling& calling) const {
        const int exitCode = calling.Wait();
        return {exitCode, calling.Said(), runner::ReadFileIfAny(pos_ + "/result.txt")};
    }

    std::string Journal() const { return daemon.File("state/journal.db"); }
    std::optional<journal::Job> Job(const std::string& id) const {
        return journal::Journal(Journal()).Find(id);
    }
    std::vector<journal::Job> Jobs() const { return journal::Journal(Journal()).List(); }
    bool WaitFor(const std::string& id, journal::State state) const {
        return SoonHolds([&] {
            const auto job = Job(id);
            return job && job->state == state;
        });
    }

    Till till;
    Daemon daemon{till.profile.device};

  private:
    std::string pos_;
    workbench::Since printed_{till.Device()};
    std::unique_ptr<workbench::Serving> serving_;
    int calls_ = 0;
};

/// What listens at a Unix socket and answers every request in the same way; nothing: it never does.
class Script {
  public:
    Script(const std::string& path, std::optional<std::string> answer)
        : answer_(std::move(answer)) {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        listening_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (bind(listening_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
            listen(listening_, 16) != 0)
            throw std::runtime_error("no socket");
        thread_ = std::thread([this] { AnswerAll(); });
    }
    ~Script() {
        shutdown(listening_, SHUT_RDWR);
        thread_.join();
        close(listening_);
        for (const int fd : open_) close(fd);
    }
    Script(const Script&) = delete;
    Script& operator=(const Script&) = delete;

    bool WasAsked() const { return wasAsked_; }

  private:
    void AnswerAll() {
        for (int fd = 0; (fd = accept(listening_, nullptr, nullptr)) >= 0;) {
            open_.push_back(fd);
            std::string request;
            char byte = 0;
            while (!request.ends_with(oneSale) && read(fd, &byte, 1) == 1) request += byte;
            if (!request.empty()) wasAsked_ = true;
            if (!answer_) continue;
            send(fd, answer_->data(), answer_->size(), MSG_NOSIGNAL);
            shutdown(fd, SHUT_RDWR);
        }
    }

    std::optional<std::string> answer_;
    std::atomic<bool> wasAsked_ = false;
    std::vector<int> open_;
    int listening_ = -1;
    std::thread thread_;
};

std::string HttpText(const std::string& status, const std::string& body = "") {
    return "HTTP/1.1 " + status + "\r\nContent-Length: " + std::to_string(body.size()) +
           "\r\n\r\n" + body;
}

class HandOver : public testing::Test {
  protected:
    void Start() { ASSERT_TRUE(counter_.daemon.Start()) << counter_.daemon.Said(); }
    // The service has a job that waits for a program which has the register.
    void StartWithAJobBefore() {
        counter_.daemon.Configure("Patience=600\n");
        other_.emplace(runner::LockFileOf(counter_.till.profile, counter_.daemon.File("locks")));
        Start();
        ASSERT_EQ(counter_.daemon.HandIn("before", oneSale, 0).status, 202);
    }
    // That program has ended.
    void FreeRegister() {
        counter_.StartRegister();
        other_.reset();
    }
    // The register takes some seconds for a receipt.
    void StartSlowRegister(std::chrono::milliseconds aStep = 200ms) {
        counter_.till.Station().line.OnReceive(
            [aStep](emulator::Bytes&) { std::this_thread::sleep_for(aStep); });
        counter_.StartRegister();
    }
    std::unique_ptr<Calling> BeginQueued(const std::string& id) {
        auto calling = counter_.Begin({"--job", id, "--wait", "60", counter_.Sale()});
        EXPECT_TRUE(counter_.WaitFor(id, journal::State::Received)) << calling->Said();
        return calling;
    }
    // The jobs that have come to the register, in this order.
    std::vector<std::string> Sent() const {
        std::vector<std::string> sent;
        for (const journal::Event& event : journal::Journal(counter_.Journal()).EventsAfter(0, 100))
            if (event.state == journal::State::Sending) sent.push_back(event.id.value_or(""));
        return sent;
    }
    // The journal says that this serves the register.
    std::unique_ptr<Script> Scripted(std::optional<std::string> answer) {
        const std::string path = counter_.daemon.File("script.sock");
        journal::Journal(counter_.Journal()).Serve({"default"}, path);
        counter_.StartRegister();
        return std::make_unique<Script>(path, std::move(answer));
    }
    Called CallScripted(const std::string& answer, const Arguments& more = {}) {
        const auto script = Scripted(answer);
        Arguments all = more;
        all.push_back(counter_.Sale());
        const Called called = counter_.Call(all);
        EXPECT_EQ(counter_.Receipts(), 0);
        return called;
    }

    TempDir pos_;
    Counter counter_{pos_.Path()};
    std::optional<runner::DeviceLock> other_;
};

}  // namespace

// --- all is well
// -----------------------------------------------------------------------------------

TEST_F(HandOver, PrintsByTheServiceAsOneJobOfItsQueue) {
    Start();
    counter_.StartRegister();
    const Called called = counter_.Call({"--job", "Kasse ü/1", counter_.Sale()});
    EXPECT_EQ(called.exitCode, 0);
    EXPECT_EQ(called.said, "printed: 2 of 2 commands, receipt 1\n");
    EXPECT_EQ(called.result, "[VOLTIS]\nResultCode=0\nMessage=OK\nLastReceiptNo=1");
    ASSERT_EQ(counter_.Jobs().size(), 1U);
    const auto job = counter_.Job("Kasse ü/1");
    ASSERT_TRUE(job);
    EXPECT_EQ(job->till, OwnAccount());
    EXPECT_TRUE(job->place);
    EXPECT_EQ(counter_.Receipts(), 1);
}

TEST_F(HandOver, AnswersARepeatedCallAsTheFirstOne) {
    Start();
    counter_.StartRegister();
    const Called first = counter_.Call({"--job", "1", counter_.Sale()});
    const Called again = counter_.Call({"--job", "1", counter_.Sale()});
    EXPECT_EQ(again.exitCode, 0);
    EXPECT_EQ(again.result, first.result);
    EXPECT_EQ(again.said,
              "printed: 2 of 2 commands, receipt 1 (known from before, nothing was sent)\n");
    const Called other = counter_.Call({"--job", "1", counter_.Sale("TENDER\n")});
    EXPECT_EQ(other.exitCode, 2);
    EXPECT_THAT(other.said, HasSubstr("Job '1' has another content"));
    EXPECT_EQ(counter_.Receipts(), 1);
}

TEST_F(HandOver, GivesAJobWithoutAnIdOneOfItsOwn) {
    Start();
    counter_.StartRegister();
    const Called first = counter_.Call({"--json", counter_.Sale()});
    EXPECT_EQ(first.exitCode, 0) << first.said;
    EXPECT_THAT(first.said, HasSubstr("\"job\":null"));
    EXPECT_EQ(counter_.Call({counter_.Sale()}).exitCode, 0);
    const auto jobs = counter_.Jobs();
    ASSERT_EQ(jobs.size(), 2U);
    EXPECT_EQ(jobs[0].id.value_or("").size(), 36U);
    EXPECT_NE(jobs[0].id, jobs[1].id);
    EXPECT_EQ(counter_.Receipts(), 2);
}

TEST_F(HandOver, ShowsOnATerminalHowFarTheReceiptIs) {
    Start();
    StartSlowRegister(1s);
    const int terminal = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK);
    ASSERT_EQ(grantpt(terminal), 0);
    ASSERT_EQ(unlockpt(terminal), 0);
    const int other = open(ptsname(terminal), O_RDWR | O_NOCTTY | O_CLOEXEC);  // keeps what is said
    Calling calling(counter_.Line({counter_.Sale()}), ptsname(terminal));
    EXPECT_EQ(calling.Wait(), 0);
    std::string said(4096, ' ');
    const ssize_t size = read(terminal, said.data(), said.size());
    said.resize(size < 0 ? 0 : static_cast<std::size_t>(size));
    close(other);
    close(terminal);
    EXPECT_THAT(said, HasSubstr("] 1 of 2"));
    EXPECT_THAT(said, HasSubstr("printed: 2 of 2 commands, receipt 1"));
}

// A body of the service has 64 KiB at most, and a header no blank at its ends.
TEST_F(HandOver, PutsIntoTheQueueWhatNoRequestCanBring) {
    Start();
    counter_.StartRegister();
    const std::string longFile = oneSale + std::string(70'000, '\n');
    EXPECT_EQ(counter_.Call({"--job", "1", "--wait", "60", counter_.Sale(longFile)}).exitCode, 0);
    EXPECT_EQ(counter_.Call({"--job", " 2", "--wait", "60", counter_.Sale()}).exitCode, 0);
    EXPECT_EQ(counter_.Job("1")->till, OwnAccount());
    EXPECT_TRUE(counter_.Job(" 2")->place);
    EXPECT_EQ(counter_.Receipts(), 2);
}

TEST_F(HandOver, KeepsTheOrderOfAllWhoCome) {
    StartWithAJobBefore();
    const auto second = BeginQueued("second");
    EXPECT_EQ(counter_.daemon.HandIn("third", oneSale, 0).status, 202);
    const auto fourth = BeginQueued("fourth");
    FreeRegister();
    EXPECT_EQ(counter_.End(*second).exitCode, 0);
    EXPECT_EQ(counter_.End(*fourth).exitCode, 0);
    EXPECT_THAT(Sent(), ElementsAre("before", "second", "third", "fourth"));
}

// --- as a direct run
// -------------------------------------------------------------------------------

namespace {

struct Likeness {
    const char* name;
    const char* content;
    int exitCode;
    void (*prepare)(Counter& counter);
    const char* configuration = "";
};

void WithPaper(Counter& counter) {
    counter.StartRegister();
}
void WithoutPaper(Counter& counter) {
    counter.till.Device().SetReceiptPaper(false);
    counter.StartRegister();
}
void Silent(Counter&) {}

constexpr char oldFormat[] = "OldResultFileFormat=1\n";

class HandOverLikeARun : public testing::TestWithParam<Likeness> {
  protected:
    // Without the seconds that it took.
    static std::string Steady(const std::string& said) {
        return said.substr(0, said.find("seconds"));
    }
};

}  // namespace

TEST_P(HandOverLikeARun, TellsTheSame) {
    const auto& [name, content, exitCode, prepare, configuration] = GetParam();
    const TempDir pos;
    Counter direct(pos.Path());
    Counter served(pos.Path());
    direct.Configure(configuration);
    served.Configure(configuration);
    ASSERT_TRUE(served.daemon.Start()) << served.daemon.Said();
    std::vector<Called> all;
    for (Counter* counter : {&direct, &served}) {
        prepare(*counter);
        const std::string sale = counter->Sale(content);
        all.push_back(counter->Call({"--job", "a", sale}));
        all.push_back(counter->Call({"--json", "--job", "b", sale}));
    }
    for (std::size_t i = 0; i < 2; ++i) {
        EXPECT_EQ(all[i].exitCode, exitCode) << name << all[i].said;
        EXPECT_EQ(all[i + 2].exitCode, exitCode);
        EXPECT_EQ(Steady(all[i + 2].said), Steady(all[i].said));
        EXPECT_EQ(all[i + 2].result, all[i].result);
    }
    EXPECT_THAT(all[0].result, Not(IsEmpty()));
    if (name == std::string("MistakeInALine")) {
        EXPECT_THAT(all[0].result, HasSubstr("(file : '" + pos.Path() + "/sale.txt' line : 1)"));
    }
    EXPECT_THAT(direct.Job("a")->till, IsEmpty());
    EXPECT_EQ(served.Job("a")->till, OwnAccount());
    EXPECT_EQ(served.Job("a")->verdict, direct.Job("a")->verdict);
}

INSTANTIATE_TEST_SUITE_P(
    All, HandOverLikeARun,
    testing::Values(Likeness{"Printed", oneSale, 0, WithPaper},
                    Likeness{"Mistake", "SALE: DEPTNR=1; AMOUNT=1.00\nNONSENSE\n", 1, WithPaper},
                    Likeness{"MistakeInALine", "SALE: DEPTNR=1; NAME=\"x\n", 1, WithPaper},
                    Likeness{"Refused", oneSale, 2, WithoutPaper},
                    Likeness{"NoAnswer", oneSale, 2, Silent},
                    Likeness{"PrintedOldFormat", oneSale, 0, WithPaper, oldFormat},
                    Likeness{"RefusedOldFormat", oneSale, 2, WithoutPaper, oldFormat}),
    [](const auto& tested) { return std::string(tested.param.name); });

// --- the service ends
// ------------------------------------------------------------------------------

TEST_F(HandOver, PrintsByItselfWhenTheServiceWasKilledBefore) {
    Start();
    counter_.daemon.Kill();
    counter_.StartRegister();
    ASSERT_TRUE(journal::Journal(counter_.Journal()).ServedAt("default"));
    const Called called = counter_.Call({"--job", "1", "--wait", "20", counter_.Sale()});
    EXPECT_EQ(called.exitCode, 0) << called.said;
    EXPECT_THAT(counter_.Job("1")->till, IsEmpty());
    EXPECT_EQ(counter_.Receipts(), 1);
}

TEST_F(HandOver, PrintsByItselfWhenTheServiceIsKilledWhileTheJobWaits) {
    StartWithAJobBefore();
    const auto calling = BeginQueued("1");
    counter_.daemon.Kill();
    FreeRegister();
    const Called called = counter_.End(*calling);
    EXPECT_EQ(called.exitCode, 0) << called.said;
    EXPECT_EQ(counter_.Job("1")->state, journal::State::Done);
    EXPECT_EQ(std::ranges::count(Sent(), std::string("1")), 1);
}

TEST_F(HandOver, TellsTheVerdictWhenTheServiceIsKilledWhileTheJobIsPrinted) {
    Start();
    StartSlowRegister();
    const auto calling = counter_.Begin({"--job", "1", counter_.Sale()});
    ASSERT_TRUE(counter_.WaitFor("1", journal::State::Sending));
    counter_.daemon.Kill();
    const Called called = counter_.End(*calling);
    EXPECT_EQ(called.exitCode, 0) << called.said;
    EXPECT_EQ(called.said, "printed: 2 of 2 commands, receipt 1\n");
    EXPECT_EQ(counter_.Receipts(), 1);
}

// The caller would have printed its own job only.
TEST_F(HandOver, IsPrintedByTheServiceThatIsStartedAgain) {
    StartWithAJobBefore();
    const auto calling = BeginQueued("1");
    counter_.daemon.Kill();
    Start();
    FreeRegister();
    EXPECT_EQ(counter_.End(*calling).exitCode, 0);
    EXPECT_TRUE(counter_.Job("1")->place);
    EXPECT_EQ(counter_.Job("before")->state, journal::State::Done);
    EXPECT_THAT(Sent(), ElementsAre("before", "1"));
}

// --- the caller gives up
// ---------------------------------------------------------------------------

TEST_F(HandOver, LeavesTheQueueAtAnInterruptAndMayBeRunAgain) {
    StartWithAJobBefore();
    const auto calling = BeginQueued("1");
    calling->Signal(SIGINT);
    const Called called = counter_.End(*calling);
    EXPECT_EQ(called.exitCode, 2);
    EXPECT_THAT(called.said, HasSubstr("not-printed: "));
    EXPECT_THAT(called.said, HasSubstr("the call was ended before the job was printed"));
    EXPECT_THAT(called.result, HasSubstr("ResultCode=2\n"));
    EXPECT_EQ(counter_.Job("1")->state, journal::State::Failed);
    EXPECT_THAT(counter_.Job("1")->withdrawnBy, IsEmpty());
    FreeRegister();
    const Called again = counter_.Call({"--job", "1", "--wait", "60", counter_.Sale()});
    EXPECT_EQ(again.exitCode, 0) << again.said;
    EXPECT_EQ(counter_.Job("1")->state, journal::State::Done);
}

TEST_F(HandOver, LeavesTheQueueWhenOthersAreFirstForTooLong) {
    StartWithAJobBefore();
    const Called called = counter_.Call({"--job", "1", counter_.Sale()});
    EXPECT_EQ(called.exitCode, 2);
    EXPECT_THAT(called.said, HasSubstr("other jobs are before this one on the register"));
    EXPECT_EQ(counter_.Job("1")->state, journal::State::Failed);
}

TEST_F(HandOver, WaitsForTheVerdictOfWhatIsBeingPrintedWhateverTheInterrupts) {
    Start();
    StartSlowRegister();
    const auto calling = counter_.Begin({"--job", "1", counter_.Sale()});
    ASSERT_TRUE(counter_.WaitFor("1", journal::State::Sending));
    calling->Signal(SIGINT);
    calling->Signal(SIGTERM);
    const Called called = counter_.End(*calling);
    EXPECT_EQ(called.exitCode, 0) << called.said;
    EXPECT_EQ(counter_.Receipts(), 1);
}

// --- a service that does not take it
// ----------------------------------------------------------------

TEST_F(HandOver, NamesTheGroupToWhoMayNotUseTheService) {
    const Called called = CallScripted(HttpText("403 Forbidden"), {"--job", "1"});
    EXPECT_EQ(called.exitCode, 2);
    EXPECT_THAT(called.said, HasSubstr("not-printed: "));
    EXPECT_THAT(called.said, HasSubstr("As root, add it to the group "));
    EXPECT_FALSE(counter_.Job("1"));
}

TEST_F(HandOver, TellsWhyTheServiceDoesNotTakeTheJob) {
    const std::string problem = R"({"detail": "Too many jobs wait for the register"})";
    const Called called = CallScripted(HttpText("503 Service Unavailable", problem));
    EXPECT_EQ(called.exitCode, 2);
    EXPECT_THAT(called.said, HasSubstr("does not take the job - Too many jobs wait"));
}

TEST_F(HandOver, PrintsNothingWhenTheServiceSpeaksAnotherLanguage) {
    EXPECT_EQ(CallScripted("220 mail.example\r\n").exitCode, 2);
}

TEST_F(HandOver, IsInDoubtWhenTheServiceHasAnotherJournal) {
    const Called called = CallScripted(HttpText("202 Accepted", "{}"), {"--job", "1"});
    EXPECT_EQ(called.exitCode, 101);
    EXPECT_THAT(called.said, HasSubstr("keeps its jobs in another journal"));
    EXPECT_THAT(called.result, HasSubstr("ResultCode=101\n"));
}

TEST_F(HandOver, IsInDoubtWhenTheServiceNeverAnswers) {
    const auto script = Scripted(std::nullopt);
    const auto calling = counter_.Begin({"--job", "1", counter_.Sale()});
    EXPECT_TRUE(SoonHolds([&] { return script->WasAsked(); }));
    calling->Signal(SIGTERM);  // so that it does not wait for long
    const Called called = counter_.End(*calling);
    EXPECT_EQ(called.exitCode, 101);
    EXPECT_THAT(called.said, HasSubstr("does not answer, and may still take the job"));
    EXPECT_EQ(counter_.Receipts(), 0);
}

TEST_F(HandOver, PrintsByItselfWhenTheServiceDiesWithTheRequest) {
    auto script = Scripted("");
    const auto calling = counter_.Begin({"--job", "1", "--wait", "20", counter_.Sale()});
    EXPECT_TRUE(SoonHolds([&] { return script->WasAsked(); }));
    script.reset();
    const Called called = counter_.End(*calling);
    EXPECT_EQ(called.exitCode, 0) << called.said;
    EXPECT_EQ(counter_.Receipts(), 1);
}

// --- another call has the same ID
// -------------------------------------------------------------------

namespace {

// What a caller without rights of its own would be: root is denied nothing.
std::unique_ptr<Calling> BeginWithoutRoot(Counter& counter, const Arguments& more) {
    std::unique_ptr<Calling> calling;
    std::thread([&] {  // it alone, and its children, lose the right
        prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE);
        prctl(PR_CAPBSET_DROP, CAP_DAC_READ_SEARCH);
        calling = counter.Begin(more);
    })
        .join();
    return calling;
}

/// Of the jobs of others, as the journal has them.
class HandOverBesideOthers : public HandOver {
  protected:
    std::int64_t Queue(const std::string& id) {
        return journal::Journal(counter_.Journal())
            .Receive({id, "default", "/jobs/other.txt", oneSale, "till 1", true});
    }
    void GiveUp(std::int64_t number) {
        journal::Journal journal(counter_.Journal());
        service::Desk(journal, 1000).GiveUp(number, "another call was interrupted");
    }
    // As a worker has it that is at work, or has died.
    void QueueAndSend(const std::string& id) {
        const std::int64_t number = Queue(id);
        journal::Journal journal(counter_.Journal());
        journal.StartSending(number, "default",
                             counter_.daemon.File("state/runs/") + std::to_string(number),
                             journal.Get(number).place);
    }
};

}  // namespace

TEST_F(HandOverBesideOthers, StayInTheQueueWhenACallThatJoinedIsInterrupted) {
    StartWithAJobBefore();
    ASSERT_EQ(counter_.daemon.HandIn("1", oneSale, 0).status, 202);
    const auto calling = counter_.Begin({"--job", "1", "--wait", "60", counter_.Sale()});
    ASSERT_TRUE(SoonHolds([&] { return calling->Hears(SIGTERM); }));
    calling->Signal(SIGTERM);
    const Called called = counter_.End(*calling);
    EXPECT_EQ(called.exitCode, 101);
    EXPECT_THAT(called.said, HasSubstr("was in the queue before this call, and is still there"));
    EXPECT_THAT(called.result, HasSubstr("ResultCode=101\n"));
    EXPECT_TRUE(counter_.Job("1")->InQueue());
    FreeRegister();
    EXPECT_TRUE(counter_.WaitFor("1", journal::State::Done));
}

TEST_F(HandOverBesideOthers, StayInTheQueueWhenACallThatJoinedHasWaitedForTooLong) {
    StartWithAJobBefore();
    ASSERT_EQ(counter_.daemon.HandIn("1", oneSale, 0).status, 202);
    const Called called = counter_.Call({"--job", "1", counter_.Sale()});
    EXPECT_EQ(called.exitCode, 101) << called.said;
    EXPECT_TRUE(counter_.Job("1")->InQueue());
}

TEST_F(HandOverBesideOthers, GiveUpAJobThatMayComeIntoTheQueueAgainAllTheSame) {
    const auto script = Scripted(std::nullopt);
    const auto calling = counter_.Begin({"--job", "1", counter_.Sale()});
    ASSERT_TRUE(SoonHolds([&] { return script->WasAsked(); }));
    calling->Pause();
    GiveUp(Queue("1"));
    calling->Signal(SIGCONT);
    calling->Signal(SIGTERM);  // so that it does not wait for long
    const Called called = counter_.End(*calling);
    EXPECT_EQ(called.exitCode, 101);
    EXPECT_THAT(called.said, HasSubstr("does not answer, and may still take the job"));
}

// The service takes connections, and nothing else.
TEST_F(HandOverBesideOthers, AreFoundOutWhenTheirWorkerHasDiedAndTheServiceStartsNone) {
    const auto script = Scripted(std::nullopt);
    QueueAndSend("1");
    const Called called = counter_.Call({"--job", "1", counter_.Sale()});
    EXPECT_EQ(called.exitCode, 101) << called.said;  // it has left no note of what it sent
    EXPECT_EQ(counter_.Job("1")->state, journal::State::InDoubt);
    EXPECT_EQ(counter_.Receipts(), 0);
}

TEST_F(HandOverBesideOthers, AreWaitedForAMinuteAfterAnInterruptWhileTheyArePrinted) {
    const auto script = Scripted(std::nullopt);
    other_.emplace(runner::LockFileOf(counter_.till.profile, counter_.daemon.File("locks")));
    QueueAndSend("1");
    const auto calling = counter_.Begin({"--job", "1", counter_.Sale()});
    ASSERT_TRUE(SoonHolds([&] { return script->WasAsked(); }));
    calling->Signal(SIGTERM);
    const Called called = counter_.End(*calling);
    EXPECT_EQ(called.exitCode, 101);
    EXPECT_THAT(called.said, HasSubstr("the job is still being printed; ask again under its ID"));
    EXPECT_EQ(counter_.Job("1")->state, journal::State::Sending);
}

// --- an account that may not use the service
// --------------------------------------------------------

TEST_F(HandOver, PrintsByItselfWhenAServiceThatItMayNotCallAnyMoreIsKilled) {
    StartWithAJobBefore();
    const auto calling =
        BeginWithoutRoot(counter_, {"--job", "1", "--wait", "60", counter_.Sale()});
    ASSERT_TRUE(counter_.WaitFor("1", journal::State::Received)) << calling->Said();
    ASSERT_EQ(chmod(counter_.daemon.Socket().c_str(), 0), 0);
    counter_.daemon.Kill();
    FreeRegister();
    const Called called = counter_.End(*calling);
    EXPECT_EQ(called.exitCode, 0) << called.said;
}

TEST_F(HandOver, PutsNothingIntoTheQueueOfAServiceThatItMayNotCall) {
    StartWithAJobBefore();
    ASSERT_EQ(chmod(counter_.daemon.Socket().c_str(), 0), 0);
    const std::string longFile = oneSale + std::string(70'000, '\n');
    const auto calling = BeginWithoutRoot(counter_, {"--job", "1", counter_.Sale(longFile)});
    const Called called = counter_.End(*calling);
    EXPECT_EQ(called.exitCode, 2);
    EXPECT_THAT(called.said, HasSubstr("As root, add it to the group "));
    EXPECT_FALSE(counter_.Job("1"));
}

// --- the old format of result files
// -----------------------------------------------------------------

TEST_F(HandOver, TellsInTheOldFormatThatItHasLeftTheQueue) {
    counter_.Configure("OldResultFileFormat=1\n");
    StartWithAJobBefore();
    const auto calling = BeginQueued("1");
    calling->Signal(SIGINT);
    const Called called = counter_.End(*calling);
    EXPECT_EQ(called.exitCode, 2);
    EXPECT_EQ(called.result,
              "2\nthe call was ended before the job was printed; it has left the queue");
}
