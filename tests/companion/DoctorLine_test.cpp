// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What the doctor learns from a register: the emulated one, joined to it without a device.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <bitset>
#include <cerrno>
#include <string>
#include <system_error>

#include "companion/doctor/Ask.h"
#include "companion/doctor/Habits.h"
#include "companion/doctor/Line.h"
#include "companion/verdict/Promises.h"
#include "emulator/Habit.h"
#include "emulator/Line.h"
#include "emulator/Register.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

using doctor::Known;
using emulator::WireFamily;

// Delivers what is written, and then quiet.
class JoinedLine : public doctor::Line {
  public:
    explicit JoinedLine(emulator::Line& line) : line_(line) {}

    void Write(verdict::View bytes) override {
        arrived_ = line_.Feed(bytes);
        if (arrived_.empty()) arrived_ = line_.Idle();
    }
    doctor::Bytes Read(std::size_t count, std::chrono::milliseconds) override {
        count = std::min(count, arrived_.size());
        const auto end = arrived_.begin() + static_cast<std::ptrdiff_t>(count);
        doctor::Bytes bytes(arrived_.begin(), end);
        arrived_.erase(arrived_.begin(), end);
        return bytes;
    }

  private:
    emulator::Line& line_;
    emulator::Bytes arrived_;
};

constexpr std::chrono::milliseconds noWait{0};

emulator::RegisterConfig WithModel(emulator::RegisterConfig config) {
    if (config.model == nullptr) config.model = emulator::FindModel("ocelot", 2);
    return config;
}

struct Bench {
    explicit Bench(const emulator::RegisterConfig& config = {},
                   WireFamily family = WireFamily::Ocelot, std::uint8_t networkId = 1)
        : device(WithModel(config)), wire(family, device, networkId), line(wire) {
        profile.name = "default";
    }

    doctor::Asked Ask() { return doctor::Ask(line, profile, noWait); }
    std::vector<std::string> Told() {
        std::vector<std::string> told;
        for (const doctor::Finding& finding : Ask().findings)
            told.push_back(std::string(doctor::Word(finding.severity)) + ": " +
                           doctor::Open(finding.message) + " [" + finding.code + "] " +
                           finding.remedy);
        return told;
    }

    /// A person at the register who does as asked.
    doctor::Hands Willing() {
        return {[this] { return device.SetKeylock(emulator::Keylock::X), true; },
                [this] { return device.SetKeylock(emulator::Keylock::Reg), true; },
                [this] { return device.PowerOff(), device.PowerOn(), true; }};
    }
    doctor::HabitAnswers AskHabits(const doctor::Hands& hands) {
        doctor::Speaker speaker(line, formatting, 1, noWait);
        return doctor::AskHabits(speaker, hands);
    }

    emulator::Register device;
    emulator::Line wire;
    JoinedLine line;
    runner::Profile profile;
    ProtocolFormatting formatting = ProtocolFormatting_Ocelot;
};

}  // namespace

// --- who answers --------------------------------------------------------------------------------

TEST(Doctor_Ask, NamesTheRegisterThatAnswers) {
    Bench bench;
    const doctor::Asked asked = bench.Ask();
    ASSERT_TRUE(asked.present.has_value());
    EXPECT_EQ(doctor::Description(*asked.present),
              "ocelot, fiscal protocol 2, Ocelot frames, network ID 1");
    EXPECT_THAT(asked.findings, IsEmpty());
}

TEST(Doctor_Ask, KnowsEveryModelInBothFamilies) {
    for (const emulator::Model& model : emulator::Models()) {
        for (const WireFamily family : {WireFamily::Ocelot, WireFamily::Margay}) {
            emulator::RegisterConfig config;
            config.model = &model;
            Bench bench(config, family);
            const doctor::Asked asked = bench.Ask();
            ASSERT_TRUE(asked.present.has_value());
            EXPECT_EQ(asked.present->model, model.name);
            EXPECT_EQ(asked.present->protocol, model.version);
            EXPECT_EQ(asked.present->family == ProtocolFormatting_Margay,
                      family == WireFamily::Margay);
        }
    }
}

TEST(Doctor_Ask, FindsTheOtherFamily) {
    Bench margay({}, WireFamily::Margay);
    EXPECT_THAT(margay.Told(),
                ElementsAre("error: the register speaks Margay frames, and is configured for the "
                            "other family [wrong-family] Write ProtocolFormatting=1."));
    Bench ocelot({}, WireFamily::Ocelot, 7);
    ocelot.profile.protocolFormatting = 1;
    EXPECT_THAT(ocelot.Told(), ElementsAre(HasSubstr("Write ProtocolFormatting=0."),
                                           HasSubstr("Write NetworkID=7.")));
}

TEST(Doctor_Ask, FindsTheNetworkId) {
    for (const int id : {0, 9, 255}) {
        Bench bench({}, WireFamily::Ocelot, static_cast<std::uint8_t>(id));
        const std::string number = std::to_string(id);
        EXPECT_THAT(bench.Told(),
                    ElementsAre("error: the register has the network ID " + number +
                                ", not 1 [wrong-network-id] Write NetworkID=" + number + "."));
    }
}

TEST(Doctor_Ask, TellsSilenceBusyAndNoiseApart) {
    Bench bench;
    bench.device.SetBusy(true);
    EXPECT_THAT(bench.Told(), ElementsAre("warning: the register answers that it is busy "
                                          "[register-busy] Wait until it has finished what it "
                                          "prints, and ask again."));
    bench.device.PowerOff();
    EXPECT_THAT(bench.Told(),
                ElementsAre("error: no register answers, in either family of frames [no-answer] Is "
                            "the register on, the cable a null-modem cable and plugged into this "
                            "port, and the register set to 19200 baud, 8 data bits, odd parity?"));
    Bench noisy;
    noisy.wire.OnSend([](emulator::Bytes& bytes) { bytes.assign(bytes.size(), 0x55); });
    EXPECT_THAT(noisy.Told(),
                ElementsAre("error: what answers cannot be understood [garbled-answer] Is the "
                            "register set to 19200 baud, 8 data bits, odd parity? Try another "
                            "cable, away from power lines."));
}

TEST(Doctor_Ask, AsksAgainAfterANoise) {
    Bench bench;
    int answers = 0;
    bench.wire.OnSend([&](emulator::Bytes& bytes) {
        ++answers;
        if (answers > 1) return;
        bytes[0] ^= 1;
        bytes[1] ^= 1;
    });
    EXPECT_THAT(bench.Told(), IsEmpty());
}

TEST(Doctor_Ask, TellsWhatKeepsTheRegisterFromPrinting) {
    Bench bench;
    bench.device.SetKeylock(emulator::Keylock::X);
    EXPECT_THAT(bench.Told(), ElementsAre("warning: the register's key is not in REG [keylock] "
                                          "Turn the key to REG."));
    bench.device.SetKeylock(emulator::Keylock::Reg);
    bench.device.Execute(emulator::EnterFiscalMode, 1, doctor::Bytes{1});
    bench.device.Execute(emulator::ShowInfo, 2, doctor::Bytes{1, 1});
    EXPECT_THAT(bench.Told(),
                ElementsAre("warning: the register's last command ended with a failure: the next "
                            "run reports it, and does nothing [last-result] `voltisctl status` "
                            "tells which, and `voltisctl explain` what to do."));
}

TEST(Doctor_Ask, SeesAnOpenReceiptAndAnUnknownModel) {
    emulator::Model unknown = *emulator::FindModel("ocelot", 2);
    unknown.code = 77;
    emulator::RegisterConfig config;
    config.model = &unknown;
    Bench bench(config);
    EXPECT_THAT(bench.Told(),
                ElementsAre("error: the register is of a model that the driver does not know: "
                            "every run ends with error 103 [unknown-model] Use a register of a "
                            "supported model, or a newer driver."));
    EXPECT_EQ(doctor::Description(*bench.Ask().present),
              "unknown model, Ocelot frames, network ID 1");
}

// --- habits -------------------------------------------------------------------------------------

namespace {

// All sets of habits, in both families.
template <typename Judge>
void ForEveryRegister(bool strict, Judge judge) {
    constexpr unsigned sets = 1U << doctor::habitCount;
    for (unsigned set = 0; set < sets; ++set) {
        for (const WireFamily family : {WireFamily::Ocelot, WireFamily::Margay}) {
            emulator::RegisterConfig config;
            config.strict = strict;
            for (const emulator::HabitRow& row : emulator::HabitTable())
                if ((set >> static_cast<unsigned>(row.habit) & 1U) != 0)
                    config.habits.Add(row.habit);
            Bench bench(config, family);
            bench.formatting = family == WireFamily::Margay ? ProtocolFormatting_Margay
                                                            : ProtocolFormatting_Ocelot;
            judge(bench, config.habits);
        }
    }
}

// What a register with these habits shows: one that forgets at each request remembers nothing.
emulator::Habits Visible(const emulator::Habits& habits) {
    using emulator::Habit;
    emulator::Habits visible;
    for (const emulator::HabitRow& row : emulator::HabitTable()) {
        const bool ofMemory = row.habit == Habit::NumberOnly ||
                              row.habit == Habit::ForgetsAtStatus ||
                              row.habit == Habit::ForgetsWithoutPower;
        const bool hidden = ofMemory && habits.Has(Habit::ForgetsAtRequest);
        if (habits.Has(row.habit) && !hidden) visible.Add(row.habit);
    }
    return visible;
}

std::string WordsOf(const emulator::Habits& habits) {
    std::string words;
    for (const emulator::HabitRow& row : emulator::HabitTable())
        if (habits.Has(row.habit)) words += (words.empty() ? "" : " ") + std::string(row.word);
    return words;
}

// Nothing printed, nothing sold, and ready for the next run.
void ExpectUntouched(const emulator::Register& device) {
    for (const emulator::Acted& acted : device.Journal()) {
        EXPECT_THAT((std::vector<int>{emulator::EnterFiscalMode, emulator::ExitFiscalMode,
                                      emulator::ShowInfo}),
                    testing::Contains(static_cast<int>(acted.command)));
    }
    EXPECT_THAT(device.Paper().Lines(), IsEmpty());
    const emulator::Bytes status = device.StatusBlock();
    constexpr int fiscalMode = 1 << 5;
    constexpr int receipt = 1 << 6;
    EXPECT_EQ(status[2], 0);
    EXPECT_EQ(status[3] & (fiscalMode | receipt), 0);
}

}  // namespace

TEST(Doctor_Habits, HasTheWordsOfTheEmulatedRegister) {
    std::vector<std::string> words;
    for (const emulator::HabitRow& row : emulator::HabitTable()) words.emplace_back(row.word);
    EXPECT_THAT(doctor::HabitWords(), testing::ElementsAreArray(words));
}

TEST(Doctor_Habits, TellsEveryHabitWithAPersonAtTheRegister) {
    for (const bool strict : {false, true}) {
        ForEveryRegister(strict, [](Bench& bench, const emulator::Habits& habits) {
            const doctor::HabitAnswers answers = bench.AskHabits(bench.Willing());
            EXPECT_EQ(answers.Words(Known::Yes), WordsOf(Visible(habits)));
            EXPECT_EQ(answers.Words(Known::Possible), "");
            ExpectUntouched(bench.device);
        });
    }
}

TEST(Doctor_Habits, TellsWithoutAPersonWhatTheLineShowsAndNothingWrong) {
    ForEveryRegister(false, [](Bench& bench, const emulator::Habits& habits) {
        using emulator::Habit;
        const doctor::HabitAnswers answers = bench.AskHabits({});
        const emulator::Habits visible = Visible(habits);
        for (const emulator::HabitRow& row : emulator::HabitTable()) {
            const Known known = answers.Of(static_cast<doctor::Habit>(row.habit));
            const bool has = visible.Has(row.habit);
            EXPECT_TRUE(known == Known::Possible || (known == Known::Yes) == has) << row.word;
        }
        EXPECT_EQ(answers.Words(Known::Possible),
                  visible.Has(Habit::NumberOnly)
                      ? "forgets-without-power"
                      : "forgets-at-status forgets-at-request forgets-without-power");
        ExpectUntouched(bench.device);
    });
}

TEST(Doctor_Habits, BelievesNobodyWhoDoesNotTurnTheKey) {
    Bench bench;
    const auto nothing = [] { return true; };
    EXPECT_EQ(bench.AskHabits({nothing, nothing, nothing}).Words(Known::Possible),
              "forgets-at-status forgets-at-request forgets-without-power");
    const auto refusal = [] { return false; };
    EXPECT_EQ(bench.AskHabits({refusal, refusal, refusal}).Words(Known::Possible),
              "forgets-at-status forgets-at-request forgets-without-power");
    ExpectUntouched(bench.device);
}

TEST(Doctor_Habits, LeavesTheRegisterInFiscalModeWhenItWasThere) {
    Bench bench;
    bench.device.Execute(emulator::EnterFiscalMode, 1, doctor::Bytes{1});
    bench.AskHabits({});
    EXPECT_NE(bench.device.StatusBlock()[3] & 1 << 5, 0);
}

TEST(Doctor_Habits, EntersAlsoWhenTheRegisterHoldsTheFirstNumber) {
    Bench bench;
    bench.device.Execute(emulator::ExitFiscalMode, 7, {});
    bench.device.Execute(emulator::EnterFiscalMode, 1, doctor::Bytes{1});
    EXPECT_EQ(bench.AskHabits({}).Words(Known::Yes), "");
}

TEST(Doctor_Habits, EntersWithTheConfiguredCashier) {
    emulator::RegisterConfig config;
    config.cashierSystem = true;
    config.cashier = 12;
    config.strict = true;
    Bench bench(config);
    doctor::Speaker speaker(bench.line, ProtocolFormatting_Ocelot, 1, noWait);
    EXPECT_EQ(doctor::AskHabits(speaker, {}, 12).Words(Known::Yes), "");
}

namespace {

std::string RefusalOf(Bench& bench, const doctor::Hands& hands = {}) {
    try {
        bench.AskHabits(hands);
    } catch (const doctor::HabitsError& refusal) {
        return refusal.what();
    }
    return "";
}

}  // namespace

TEST(Doctor_Habits, AsksOnlyARegisterThatIsReady) {
    Bench bench;
    bench.device.SetKeylock(emulator::Keylock::X);
    EXPECT_EQ(RefusalOf(bench), "the register's key is not in REG; turn it there, and ask again");
    bench.device.PowerOff();
    EXPECT_EQ(RefusalOf(bench), "the register does not answer any more; ask again");
}

TEST(Doctor_Habits, EndsWhenTheRegisterRefuses) {
    Bench refusing;
    refusing.device.RefuseNext(1);
    EXPECT_EQ(RefusalOf(refusing),
              "the register refuses what it does in every run; look at it, and at `voltisctl "
              "status`");
}

// Entering fiscal mode would clear what the next run has to report.
TEST(Doctor_Habits, LeavesAFailureToTheRunThatReportsIt) {
    Bench bench;
    bench.device.RefuseNext(7);
    bench.device.Execute(emulator::EnterFiscalMode, 1, doctor::Bytes{1});
    ASSERT_EQ(bench.device.LastResult(), 7);
    EXPECT_EQ(RefusalOf(bench),
              "the register's last command ended with a failure, which the next run has to report; "
              "run any job, do as it says, and ask again");
    EXPECT_EQ(bench.device.LastResult(), 7);
}

TEST(Doctor_Habits, EndsWhenTheKeyIsNotTurnedBack) {
    Bench bench;
    doctor::Hands hands = bench.Willing();
    hands.turnKeyToReg = [] { return false; };
    EXPECT_EQ(RefusalOf(bench, hands), "the register's key is not in REG; turn it there");
    EXPECT_EQ(bench.device.StatusBlock()[3] & 1 << 5, 0);
}

// --- the port -----------------------------------------------------------------------------------

TEST(Doctor_Line, SaysThatThePortHasGoneAndNotWhatFailedBefore) {
    const int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_TRUE(grantpt(master) == 0 && unlockpt(master) == 0);
    doctor::SerialLine line(ptsname(master));
    close(master);
    errno = ENOENT;
    try {
        line.Read(1, noWait);
        FAIL() << "it can be read";
    } catch (const std::system_error& failure) {
        EXPECT_EQ(failure.code(), std::errc::io_error) << failure.what();
    }
}
