// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "tests/faults/Telling.h"

#include <algorithm>
#include <vector>

namespace faults {

using emulator::Bytes;
using emulator::View;
using emulator::WireFamily;
using verdict::Account;
using verdict::Acted;

namespace {

constexpr std::uint16_t firstNumber = 2;  // entering fiscal mode has the first
constexpr std::uint8_t ocelotStatusRequest[] = {0xD9, 0x01, 0xD1, 0x09, 0x4C};
constexpr std::uint8_t margayStatusRequest[] = {0x02, 0xD1, '2', 'D', 0x03};

verdict::Wire WireOf(WireFamily family) {
    verdict::Wire wire;
    if (family == WireFamily::Margay) wire.family = ProtocolFormatting_Margay;
    return wire;
}

void AddStatuses(verdict::Frames& frames, View bytes, std::vector<verdict::Status>& all) {
    for (const verdict::Heard& heard : frames.Listen(bytes))
        if (heard.kind == verdict::Heard::Kind::Status) all.push_back(heard.status);
}

// Its check letters fit, and nobody has sent it.
bool HeardForgedStatus(const FaultyLine& line, const verdict::Wire& wire) {
    std::vector<verdict::Status> sent, heard;
    for (const Bytes& frame : line.SentByRegister()) {
        verdict::Frames frames(wire);
        AddStatuses(frames, frame, sent);
    }
    verdict::Frames frames(wire);
    for (const transcript::Block& block : line.Said())
        if (!block.toRegister) AddStatuses(frames, block.bytes, heard);
    return std::ranges::any_of(heard, [&](const verdict::Status& status) {
        return std::ranges::find(sent, status) == sent.end();
    });
}

void Follow(Account& account, const FaultyLine& line, std::size_t from) {
    for (std::size_t i = from; i < line.Said().size(); ++i) {
        const transcript::Block& block = line.Said()[i];
        block.toRegister ? account.Wrote(block.bytes) : account.Arrived(block.bytes);
    }
}

Account AccountOf(const FaultyLine& line, WireFamily family, const Actions& expected) {
    verdict::Question question;
    question.wire = WireOf(family);
    for (const Action& action : expected) question.plan.push_back(action.command);
    Account account(question);
    Follow(account, line, 0);
    return account;
}

// What is still on its way comes before the answer.
void ReadStatus(Account& account, FaultyLine& line, WireFamily family) {
    const auto wire = emulator::MakeWire(family);
    const bool margay = family == WireFamily::Margay;
    account.NextRun();
    account.Wrote(margay ? View(margayStatusRequest) : View(ocelotStatusRequest));
    const std::size_t before = line.Said().size();
    line.LetAllArrive();
    Follow(account, line, before);
    account.Arrived(wire->BuildAnswer(emulator::Answer::Ack));
    const emulator::Register& device = line.Device();
    const std::uint16_t last = device.LastSequence();
    Bytes data = {static_cast<std::uint8_t>(last), static_cast<std::uint8_t>(last >> 8)};
    const Bytes block = device.StatusBlock();
    data.insert(data.end(), block.begin(), block.end());
    account.Arrived(wire->BuildData(data));
}

// How often the register acted on each command; alien: on something else, too.
std::vector<int> Done(const emulator::Register& device, const Actions& expected, bool& alien) {
    std::vector<int> done(expected.size());
    for (const emulator::Acted& acted : device.Journal()) {
        const bool mode =
            acted.command == emulator::EnterFiscalMode || acted.command == emulator::ExitFiscalMode;
        if (!acted.accepted || mode) continue;
        const std::size_t place = std::size_t{acted.sequence} - firstNumber;
        const bool known =
            place < done.size() && expected[place] == Action{acted.command, acted.payload};
        if (known) ++done[place];
        alien = alien || !known;
    }
    return done;
}

}  // namespace

std::optional<std::string> WrongAbout(const verdict::Verdict& told,
                                      const emulator::Register& device, const Actions& expected) {
    bool alien = false;
    const std::vector<int> done = Done(device, expected, alien);
    for (std::size_t i = 0; i < done.size(); ++i) {
        if (told.commands[i] == Acted::Yes && done[i] != 1) return "a command was not done once";
        if (told.commands[i] == Acted::No && done[i] != 0) return "a command was done";
    }
    if (alien && told.What() != verdict::Kind::Unknown) return "something else was done";
    return std::nullopt;
}

std::optional<std::string> WrongVerdict(FaultyLine& line, WireFamily family,
                                        const Actions& expected) {
    Account account = AccountOf(line, family, expected);
    if (auto wrong = WrongAbout(account.Conclude(), line.Device(), expected)) return wrong;
    ReadStatus(account, line, family);
    return WrongAbout(account.Conclude(), line.Device(), expected);
}

bool Misled(const FaultyLine& line, WireFamily family) {
    return line.Forged().Any() || line.Strayed().noise > 0 || line.ForgedAcks() > 0 ||
           HeardForgedStatus(line, WireOf(family));
}

}  // namespace faults
