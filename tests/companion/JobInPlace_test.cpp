// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Jobs with Sandbox=no against the same jobs in a private root.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>

#include "companion/job/Job.h"
#include "tests/companion/Till.h"

namespace fs = std::filesystem;

using job::Outcome;
using verdict::Kind;

namespace {

struct Trouble {
    const char* name;
    Kind verdict;
    std::function<void(Till&)> begin;
    const char* content = oneSale;
};

std::size_t CommandsDone(const emulator::Register& device) {
    return static_cast<std::size_t>(std::ranges::count_if(device.Journal(), [](const auto& acted) {
        return acted.accepted && acted.command != emulator::EnterFiscalMode &&
               acted.command != emulator::ExitFiscalMode;
    }));
}

// From the answer on to which it has done so many commands.
void GoSilentAfter(Till& till, std::size_t commands) {
    till.Station().line.OnSend([&till, commands](emulator::Bytes& bytes) {
        if (CommandsDone(till.Device()) >= commands) bytes.clear();
    });
}

const Trouble troubles[] = {
    {"None", Kind::Printed, [](Till&) {}},
    {"AMistake", Kind::NotPrinted, [](Till&) {}, "SALE: DEPTNR=1; AMOUNT=1\nNONSENSE\n"},
    {"NoPaper", Kind::NotPrinted, [](Till& till) { till.Device().SetReceiptPaper(false); }},
    {"NoPower", Kind::NotPrinted, [](Till& till) { till.Device().PowerOff(); }},
    {"ThePaperEnds", Kind::Part,
     [](Till& till) {
         till.Station().line.OnSend([&till](emulator::Bytes&) {
             if (CommandsDone(till.Device()) == 1) till.Device().SetReceiptPaper(false);
         });
     }},
    {"AnAnswerIsLost", Kind::Printed,
     [](Till& till) {
         till.Station().line.OnSend([&till, lost = false](emulator::Bytes& bytes) mutable {
             if (lost || CommandsDone(till.Device()) == 0) return;
             lost = true;
             bytes.clear();
         });
     }},
    {"SilenceFromTheFirstCommandOn", Kind::Unknown, [](Till& till) { GoSilentAfter(till, 1); }},
    {"SilenceFromTheLastCommandOn", Kind::Unknown, [](Till& till) { GoSilentAfter(till, 2); }},
};

void PrintTo(const Trouble& trouble, std::ostream* out) {
    *out << trouble.name;
}

// A lynx needs no time for its journal, which would be added to the time-outs.
constexpr char model[] = "lynx";

void ConfigureTheMachine(bool sandbox) {
    std::ofstream("/etc/voltis/voltis.ini")
        << "[VOLTIS]\nComNumber=1\nProtocolFormatting=0\nResultFileName=answer.txt\n"
           "DbgErrorLog=2\nCmdTimeout_Default=100\nCmdTimeout_Tender=100\n"
           "LostResponseRetryCount=1\nSandbox="
        << (sandbox ? "yes" : "no") << "\n";
}

const std::string machinesLog = "/var/log/voltis/dbgerror.log";

Outcome OutcomeOf(const Trouble& trouble, bool sandbox) {
    ConfigureTheMachine(sandbox);
    fs::remove(machinesLog);
    Till till(model, "/dev/ttyS0");
    till.profile = runner::LoadProfile("/etc/voltis");
    for (const char* folder : {"locks", "logs"}) fs::create_directory(till.File(folder));
    journal::Journal journal(till.File("journal.db"));
    const std::string logs = sandbox ? till.File("logs") : "/var/log/voltis";
    job::Jobs jobs(journal, till.profile, {VOLTIS_PATH, till.File("locks"), logs},
                   till.File("runs"));
    trouble.begin(till);
    workbench::Serving serving(till.Station().server);
    Outcome outcome = jobs.Do({"A", "/pos/sale.txt", trouble.content, {}}, {});
    serving.Finish();
    EXPECT_EQ(fs::exists(machinesLog), !sandbox);
    outcome.seconds = 0;
    return outcome;
}

}  // namespace

// A killed run whose lines logrotate has moved away must not count as one that never began.
TEST(JobCutOffInPlace, IsInDoubtWithoutItsLog) {
    ConfigureTheMachine(false);
    Till till(model, "/dev/ttyS0");
    till.profile = runner::LoadProfile("/etc/voltis");
    fs::create_directory(till.File("locks"));
    journal::Journal journal(till.File("journal.db"));
    const std::string run = till.File("runs/1");
    fs::create_directories(run);
    std::ofstream(run + "/start") << std::ifstream("/proc/sys/kernel/random/boot_id").rdbuf();
    std::ofstream(run + "/debug-log-place") << machinesLog << "\n0\n/pos/sale.txt";
    const std::int64_t number = journal.Receive({"A", "default", "/pos/sale.txt", oneSale});
    journal.StartSending(number, "default", run);
    job::Jobs jobs(journal, till.profile, {VOLTIS_PATH, till.File("locks"), "/var/log/voltis"},
                   till.File("runs"));
    workbench::Serving serving(till.Station().server);
    const Outcome outcome = jobs.Do({"A", "/pos/sale.txt", oneSale, {}}, {});
    serving.Finish();
    EXPECT_EQ(outcome.verdict, Kind::Unknown) << ToJson(outcome);
    EXPECT_EQ(CommandsDone(till.Device()), 0U);
}

class JobInPlace : public testing::TestWithParam<Trouble> {};

TEST_P(JobInPlace, IsToldAsInAPrivateRoot) {
    const Outcome inPlace = OutcomeOf(GetParam(), false);
    EXPECT_EQ(inPlace.verdict, GetParam().verdict) << ToJson(inPlace);
    EXPECT_EQ(ToRecord(inPlace), ToRecord(OutcomeOf(GetParam(), true)));
}

INSTANTIATE_TEST_SUITE_P(With, JobInPlace, testing::ValuesIn(troubles),
                         [](const auto& trouble) { return std::string(trouble.param.name); });
