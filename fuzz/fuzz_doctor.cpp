// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The doctor at both its doors: a configuration file of any bytes gets findings with a place in it
// and nothing that a terminal would obey; and whatever the line does, asking a register ends and
// has it do nothing that counts.
//
// An input is: the frames, the register's habits, what happens on the line (its length divided by
// four, and so many bytes), and the file.

#include <algorithm>
#include <stdexcept>

#include "companion/doctor/Ask.h"
#include "companion/doctor/Configuration.h"
#include "companion/doctor/Habits.h"
#include "emulator/Habit.h"
#include "emulator/Line.h"
#include "emulator/Register.h"
#include "fuzz/Property.h"

namespace {

Tally tally("fuzz_doctor", "of them with the habits of the register told");

using doctor::Finding;

emulator::RegisterConfig ConfigOf(std::uint8_t habits) {
    emulator::RegisterConfig config;
    config.model = emulator::FindModel("ocelot", 2);
    for (const emulator::HabitRow& row : emulator::HabitTable())
        if ((habits >> static_cast<unsigned>(row.habit) & 1U) != 0) config.habits.Add(row.habit);
    return config;
}

/// A register on a line that takes a byte of the script for every frame: most let it pass. After
/// the last byte everything is well.
class SpoiltLine : public doctor::Line {
  public:
    SpoiltLine(emulator::WireFamily family, std::uint8_t habits, const doctor::Bytes& script)
        : device_(ConfigOf(habits)), line_(family, device_), script_(script) {}

    emulator::Register& Device() { return device_; }
    bool WasSpoilt() const { return spoilt_; }

    void Write(verdict::View bytes) override {
        constexpr int most = 20'000;  // every network ID, three times, and all that may follow
        ++written_;
        Require(written_ <= most, "asking ends");
        arrived_.clear();
        if (Spoils()) return;
        arrived_ = line_.Feed(bytes);
        if (arrived_.empty()) arrived_ = line_.Idle();
    }
    doctor::Bytes Read(std::size_t count, std::chrono::milliseconds) override {
        if (Spoils()) arrived_ = Take(count);
        const auto end =
            arrived_.begin() + static_cast<std::ptrdiff_t>(std::min(count, arrived_.size()));
        doctor::Bytes bytes(arrived_.begin(), end);
        arrived_.erase(arrived_.begin(), end);
        return bytes;
    }

  private:
    std::uint8_t Next() { return next_ < script_.size() ? script_[next_++] : 0; }

    bool Spoils() {
        constexpr std::uint8_t passes = 224;
        const bool spoils = Next() >= passes;
        spoilt_ = spoilt_ || spoils;
        return spoils;
    }

    // What comes instead: any bytes, or nothing.
    doctor::Bytes Take(std::size_t count) {
        doctor::Bytes bytes;
        for (std::size_t left = Next() % (count + 1); left > 0; --left) bytes.push_back(Next());
        return bytes;
    }

    emulator::Register device_;
    emulator::Line line_;
    const doctor::Bytes& script_;
    std::size_t next_ = 0;
    int written_ = 0;
    bool spoilt_ = false;
    emulator::Bytes arrived_;
};

void RequireShowable(const std::string& text) {
    Require(!text.empty(), "something is said");
    Require(std::ranges::none_of(doctor::Open(text),
                                 [](char c) { return static_cast<unsigned char>(c) < 0x20; }),
            "nothing that a terminal would obey");
}

void CheckFile(const std::string& text) {
    const auto lines = static_cast<std::size_t>(std::ranges::count(text, '\n')) + 1;
    try {
        for (const Finding& finding : doctor::CheckText("file", text, true)) {
            Require(finding.line <= lines, "the line is one of the file");
            RequireShowable(finding.message);
            RequireShowable(finding.remedy);
        }
    } catch (const std::runtime_error&) {  // which the profile is refused for
    }
}

ProtocolFormatting FormattingOf(emulator::WireFamily family) {
    return family == emulator::WireFamily::Margay ? ProtocolFormatting_Margay
                                                  : ProtocolFormatting_Ocelot;
}

constexpr std::chrono::milliseconds noWait{0};

void AskWho(SpoiltLine& line, emulator::WireFamily family) {
    runner::Profile profile;
    profile.protocolFormatting = FormattingOf(family);
    const doctor::Asked asked = doctor::Ask(line, profile, noWait);
    Require(asked.present || !asked.findings.empty(), "an answer, or why there is none");
    Require(line.WasSpoilt() || asked.present, "a good line has an answer");
    Require(line.Device().Journal().empty(), "a status read does nothing");
}

// Entering and leaving fiscal mode, and the display.
bool Counts(const emulator::Acted& acted) {
    return acted.command != emulator::EnterFiscalMode &&
           acted.command != emulator::ExitFiscalMode && acted.command != emulator::ShowInfo;
}

doctor::Hands HandsAt(emulator::Register& device) {
    return {[&] { return device.SetKeylock(emulator::Keylock::X), true; },
            [&] { return device.SetKeylock(emulator::Keylock::Reg), true; },
            [&] { return device.PowerOff(), device.PowerOn(), true; }};
}

void AskWhichHabits(SpoiltLine& line, emulator::WireFamily family) {
    doctor::Speaker speaker(line, FormattingOf(family), 1, noWait);
    try {
        doctor::AskHabits(speaker, HandsAt(line.Device()));
        tally.Count();
    } catch (const doctor::HabitsError&) {
        Require(line.WasSpoilt(), "a good line has an answer");
    }
    Require(std::ranges::none_of(line.Device().Journal(), Counts), "nothing is done that counts");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    tally.Input();
    if (size < 3) return 0;
    ResetGlobals();
    const auto family =
        data[0] % 2 == 0 ? emulator::WireFamily::Ocelot : emulator::WireFamily::Margay;
    const std::size_t length = std::min<std::size_t>(data[2] * 4UL, size - 3);
    const doctor::Bytes script(data + 3, data + 3 + length);
    SpoiltLine first(family, data[1], script);
    AskWho(first, family);
    SpoiltLine second(family, data[1], script);
    AskWhichHabits(second, family);
    CheckFile(AsText(data + 3 + length, size - 3 - length));
    return 0;
}
