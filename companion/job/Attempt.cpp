// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/job/Attempt.h"

#include <poll.h>

#include <exception>
#include <filesystem>
#include <iterator>
#include <utility>

#include "ECR.h"
#include "companion/journal/Place.h"
#include "companion/runner/Files.h"
#include "companion/runner/SiteLogs.h"

namespace fs = std::filesystem;

namespace job {

using verdict::Account;
using verdict::Acted;
using verdict::Kind;

namespace {

constexpr char statusFile[] = "GET_STATUS\n";
constexpr char displayOff[] = "DISPLAY_OFF\n";
constexpr char displayOffInReceipt[] = "CONTINUE\nDISPLAY_OFF\nCONTINUE\n";
constexpr char displayOffName[] = "forget.txt";
constexpr char statusName[] = "status.txt";
constexpr std::chrono::milliseconds forever = std::chrono::hours(24 * 365);
constexpr int statusReads = 2;  // a second one when the first has told nothing
constexpr int pollStepMs = 100;

/// The register would refuse whatever is sent to it, and be left with that refusal to show.
bool TakesNothing(const verdict::Status& status) {
    return status.ReceiptOpen() && !status.InFiscalMode();
}

/// All that a register whose past nobody knows may still have to say.
verdict::Remains AnythingMayRemain() {
    constexpr int answers = 4;
    return {verdict::Commands::All(), answers};
}

/// What the first run of all on a register begins with.
verdict::Remains OfAStranger() {
    return {verdict::Commands::All(), 0};
}

/// What any other one begins with at worst.
verdict::Remains AfterForgetting() {
    verdict::Remains remains;
    remains.held.Add(CMD_SHOW_INFO);
    return remains;
}

// Anew at each start of the machine.
std::string Boot() {
    return runner::ReadFile("/proc/sys/kernel/random/boot_id");
}

// In the folder of a run: the boot, and that the register's past was not known.
constexpr char noteName[] = "/start";
constexpr char firstMark[] = "first\n";

// A log that was not synced may have lost any of its lines when the machine went down. In the
// site's log, which is rotated, a run without lines may have had some.
End EndAccordingTo(const std::string& note, const std::string& log, const std::string& folder) {
    const bool rotated = log.empty() && runner::WasInPlace(folder);
    return note.starts_with(Boot()) && !rotated ? End::Killed : End::Lost;
}

verdict::Remains RemainsAccordingTo(const std::string& note) {
    return note.ends_with(firstMark) ? OfAStranger() : AfterForgetting();
}

void WriteCommand(const Errand& errand) {
    const journal::GroupMask shared(errand.folder);
    runner::WriteFile(errand.folder + "/command", errand.content);
}

// A driver that is killed says nothing more.
End EndOf(const runner::RunResult& run) {
    if (run.killedBySignal != 0) return End::Killed;
    return run.exitCode == exitMistake || run.exitCode == exitNotPrinted ? End::Refusing
                                                                         : End::ByItself;
}

DriverWord WordOf(const runner::RunResult& run) {
    DriverWord word = ReadResult(run.exitCode, run.resultText.value_or(""));
    if (run.killedBySignal != 0 && word.message.empty())
        word.message = "The driver was ended by signal " + std::to_string(run.killedBySignal);
    return word;
}

// What a killed driver's log may lack only the register can tell.
void DoubtTheRest(verdict::Verdict& told) {
    for (Acted& command : told.commands)
        if (command == Acted::No) command = Acted::Perhaps;
}

std::optional<int> NextLine(const verdict::Verdict& told, const std::vector<plan::Command>& plan) {
    for (std::size_t i = 0; i < plan.size(); ++i)
        if (told.commands[i] != Acted::Yes) return plan[i].line;
    return std::nullopt;
}

ReceiptState ReceiptOf(const verdict::Verdict& told) {
    ReceiptState receipt;
    if (told.before) receipt.before = told.before->receipt;
    if (!told.after) return receipt;
    receipt.after = told.after->receipt;
    receipt.open = told.after->ReceiptOpen();
    if (*receipt.open) receipt.subtotal = told.after->subtotal;
    return receipt;
}

}  // namespace

Attempt::Attempt(const runner::Profile& profile, const Site& site, const runner::DeviceLock& lock,
                 Watcher watcher)
    : profile_(profile), site_(site), lock_(lock), watcher_(std::move(watcher)) {
    PromisesOf(profile);
}

runner::RunRequest Attempt::RequestFor(const Errand& errand) const {
    runner::RunRequest request;
    request.profile = profile_;
    request.commandFile = errand.file;
    request.command = errand.content;
    request.folder = errand.folder;
    request.driver = site_.driver;
    request.lockFd = lock_.Fd();
    request.siteLogs = site_.logs;
    return request;
}

std::chrono::steady_clock::time_point Attempt::EndOfPatience() const {
    const auto now = std::chrono::steady_clock::now();
    return now + (watcher_.longestRun.count() > 0 ? watcher_.longestRun : forever);
}

// The driver inherits the mask: another account must be able to recover the run from its logs.
std::unique_ptr<runner::RegisterRun> Attempt::Start(const runner::RunRequest& request) {
    const journal::GroupMask shared(profile_.sandbox ? request.folder : site_.logs);
    auto run = std::make_unique<runner::RegisterRun>(request);
    started_ = true;
    return run;
}

void Attempt::AppendToSiteLogs(const runner::RunResult& result) const {
    const journal::GroupMask shared(site_.logs);
    runner::AppendToSiteLogs(profile_, result, site_.logs);
}

runner::RunResult Attempt::Await(const runner::RunRequest& request) {
    const auto run = Start(request);
    const std::vector<plan::Command> plan = watcher_.progress
                                                ? plan::CommandsOf(request.folder + "/command")
                                                : std::vector<plan::Command>();
    const auto end = EndOfPatience();
    while (!run->Ended()) {
        pollfd news[] = {{run->EndFd(), POLLIN, 0}, {watcher_.stopFd, POLLIN, 0}};
        poll(news, std::size(news), pollStepMs);
        const bool stopped = (news[1].revents & POLLIN) != 0;
        if (stopped || std::chrono::steady_clock::now() > end) {
            run->Kill();
            interrupted_ = true;
        }
        // The status read that follows is short, and tells the outcome.
        if (stopped) watcher_.stopFd = -1;
        if (watcher_.progress) watcher_.progress(CommandsIn(profile_, run->DebugLog()), plan);
    }
    runner::RunResult result = run->Wait();
    AppendToSiteLogs(result);
    return result;
}

std::vector<plan::Command> Attempt::PlanOf(const Errand& errand, const std::string& log) const {
    const auto status = FirstStatus(profile_, log);
    return plan::CommandsOf(errand.folder + "/command",
                            status ? std::optional(status->protocol) : std::nullopt);
}

// The log of a run that asks for the status; nothing when there could be none.
std::optional<std::string> Attempt::AskStatus(const std::string& folder) {
    try {
        journal::MakeRunFolder(folder);
        return Await(RequestFor({statusName, statusFile, folder})).debugLog;
    } catch (const std::exception&) {  // the register is gone: nothing more is known
        return std::nullopt;
    }
}

void Attempt::Clarify(Account& account, const std::string& folder) {
    for (int i = 1; i <= statusReads; ++i) {
        const auto log = AskStatus(folder + "/status" + std::to_string(i));
        if (!log) return;
        FollowStatusRead(account, *log);
        const verdict::Verdict told = account.Conclude();
        if (told.after && told.What() != Kind::Unknown && told.remains.coming == 0) return;
    }
}

void Attempt::BeFirst() {
    first_ = true;
    remains_ = OfAStranger();
}

void Attempt::MakeFolder(const std::string& folder) {
    journal::MakeRunFolder(folder);
}

void Attempt::Note(const std::string& folder) {
    const journal::GroupMask shared(folder);
    runner::WriteFile(folder + noteName, Boot() + (first_ ? firstMark : ""));
}

// A frame may be lost; nothing is printed by a second try. After an interrupt nothing more is sent.
bool Attempt::MakeForget(const std::string& folder) {
    const bool done =
        MakeForgetOnce(folder + "/1") || (!interrupted_ && MakeForgetOnce(folder + "/2"));
    return done && !interrupted_;
}

bool Attempt::MakeForgetOnce(const std::string& folder) {
    remains_ = AnythingMayRemain();
    const auto before = AskStatus(folder + "/before");
    if (!before || interrupted_) return false;
    const auto status = FirstStatus(profile_, *before);
    if (!status || TakesNothing(*status)) return false;
    const Errand errand = {displayOffName, status->ReceiptOpen() ? displayOffInReceipt : displayOff,
                           folder + "/forget"};
    journal::MakeRunFolder(errand.folder);
    const runner::RunResult run = Await(RequestFor(errand));
    Account account = Follow(profile_, {}, remains_, *before, End::ByItself);
    account = Follow(profile_, PlanOf(errand, run.debugLog), account.Conclude().remains,
                     run.debugLog, EndOf(run));
    remains_ = account.Conclude().remains;
    return run.exitCode == 0;
}

Outcome Attempt::Run(const Errand& errand) {
    started_ = false;
    const runner::RunResult run = Await(RequestFor(errand));
    const std::vector<plan::Command> plan = PlanOf(errand, run.debugLog);
    Account account = Follow(profile_, plan, remains_, run.debugLog, EndOf(run));
    if (run.exitCode != 0 || account.Odd()) Clarify(account, errand.folder);
    Outcome outcome = Tell(account, plan, WordOf(run));
    outcome.seconds = run.seconds;
    return outcome;
}

Outcome Attempt::Recover(const Errand& errand) {
    const std::string log = runner::DebugLogOf(errand.folder);
    journal::MakeRunFolder(errand.folder);
    WriteCommand(errand);  // it may not have come as far
    const std::vector<plan::Command> plan = PlanOf(errand, log);
    const std::string note = runner::ReadFileIfAny(errand.folder + noteName);
    Account account = Follow(profile_, plan, RemainsAccordingTo(note), log,
                             EndAccordingTo(note, log, errand.folder));
    account.OperatorMayHaveActed();
    Clarify(account, errand.folder + "/recovery");
    constexpr int killed = 137;  // as a shell has it
    return Tell(account, plan, {killed, "The run was cut off", {}, {}});
}

Outcome Attempt::Tell(const Account& account, const std::vector<plan::Command>& plan,
                      const DriverWord& driver) {
    verdict::Verdict told = account.Conclude();
    if (driver.exitCode > 128 && !told.after) DoubtTheRest(told);
    remains_ = told.remains;
    Outcome outcome;
    outcome.registerName = profile_.name;
    outcome.verdict = told.What();
    if (plan.empty() && driver.exitCode != 0) outcome.verdict = Kind::NotPrinted;
    outcome.of = plan.size();
    outcome.atLeast = told.AtLeast();
    outcome.atMost = told.AtMost();
    outcome.nextLine = NextLine(told, plan);
    outcome.receipt = ReceiptOf(told);
    outcome.driver = driver;
    Settle(outcome, profile_.oldResultFileFormat);
    return outcome;
}

// --- the register of a site ----------------------------------------------------------------------

namespace {

class SiteHold : public Hold {
  public:
    SiteHold(const runner::Profile& profile, const Site& site, const runner::LockWait& wait)
        : profile_(profile), site_(site), lock_(runner::LockFileOf(profile, site.locks), wait) {}

    std::unique_ptr<Work> Begin(const Watcher& watcher) override {
        return std::make_unique<Attempt>(profile_, site_, lock_, watcher);
    }

  private:
    const runner::Profile& profile_;
    const Site& site_;
    const runner::DeviceLock lock_;
};

}  // namespace

SiteRegister::SiteRegister(const runner::Profile& profile, Site site)
    : profile_(profile), site_(std::move(site)) {}

std::unique_ptr<Hold> SiteRegister::Lock(const runner::LockWait& wait) {
    return std::make_unique<SiteHold>(profile_, site_, wait);
}

void SiteRegister::Remove(const std::string& folder) {
    std::error_code ignored;
    fs::remove_all(folder, ignored);
}

}  // namespace job
