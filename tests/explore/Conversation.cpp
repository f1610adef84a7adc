// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "tests/explore/Conversation.h"

#include <algorithm>

namespace explore {

using emulator::Bytes;
using emulator::View;
using emulator::WireFamily;

namespace {

constexpr std::size_t statusSize = 2 + 15;  // sequence number and block
constexpr std::uint8_t refusal = emulator::result::PrinterError;
constexpr std::uint8_t noiseByte = 0x2A;  // nothing that either end knows

constexpr std::uint8_t ocelotStatusRequest[] = {0xD9, 0x01, 0xD1, 0x09, 0x4C};
constexpr std::uint8_t margayStatusRequest[] = {0x02, 0xD1, '2', 'D', 0x03};

constexpr std::uint8_t ocelotShowRequest[] = {0xD0, 0x01, 0xBE, 0x6F, 0x02};
constexpr std::uint8_t margayShowRequest[] = {0x02, 0xBE, '4', '0', 0x03};

constexpr FaultSet frameFaults = {Fault::None,    Fault::Late,  Fault::Later,     Fault::Lost,
                                  Fault::Garbled, Fault::Noise, Fault::PowerFails};

/// So that its check bytes, or its single byte, tell.
Bytes Garble(Bytes frame) {
    frame.front() ^= 0x80;
    frame.back() ^= 0x40;
    return frame;
}

/// For how many further frames of the driver a frame with that fault is held back.
std::uint8_t HoldOf(Fault fault) {
    if (fault == Fault::Later) return 2;
    return fault == Fault::Late ? 1 : 0;
}

std::string CommandName(std::uint8_t command) {
    static const char* const names[] = {"ENTER",    "EXIT",           "COMMENT",    "SALE",
                                        "RETURN",   "PLU SALE",       "PLU RETURN", "DISCOUNT %",
                                        "DISCOUNT", "MARKUP %",       "MARKUP",     "TOTAL",
                                        "TENDER",   "FOREIGN TENDER", "DISPLAY",    "DRAWER"};
    if (command == emulator::ReadFiscalStatus) return "STATUS";
    if (command == emulator::Report) return "REPORT";
    if (command < emulator::EnterFiscalMode || command > emulator::OpenCashDrawer) return "?";
    return names[command - emulator::EnterFiscalMode];
}

void Append(Bytes& state, std::size_t value) {
    const auto word = static_cast<std::uint32_t>(value);
    const auto* const bytes = reinterpret_cast<const std::uint8_t*>(&word);
    state.insert(state.end(), bytes, bytes + sizeof word);
}

void Append(Bytes& state, View bytes) {
    Append(state, bytes.size());
    state.insert(state.end(), bytes.begin(), bytes.end());
}

}  // namespace

Conversation::Conversation(const Scenario& scenario, const std::vector<Actions>& expected)
    : scenario_(&scenario),
      expected_(&expected),
      wire_(emulator::MakeWire(scenario.family)),
      device_(scenario.Register()),
      line_(scenario.family, device_) {
    if (!scenario.files->inFiscalMode) return;
    device_.Execute(emulator::EnterFiscalMode, 1, Bytes{1});
    device_.CloseCommand();
    runBegin_ = device_.Journal().size();
}

Conversation::Conversation(const Conversation& other)
    : device_(other.device_), line_(other.line_, device_) {
    *this = other;
}

// Member by member, so that the memory of each is used again.
Conversation& Conversation::operator=(const Conversation& other) {
    if (this == &other) return *this;
    device_ = other.device_;
    line_.GoOnFrom(other.line_);
    scenario_ = other.scenario_;
    expected_ = other.expected_;
    wire_ = other.wire_;
    stage_ = other.stage_;
    place_ = other.place_;
    writing_ = other.writing_;
    role_ = other.role_;
    command_ = other.command_;
    toRegister_ = other.toRegister_;
    toDriver_ = other.toDriver_;
    undecided_ = other.undecided_;
    delivered_ = other.delivered_;
    inbox_ = other.inbox_;
    file_ = other.file_;
    runBegin_ = other.runBegin_;
    fiscalFrame_ = other.fiscalFrame_;
    firstNumber_ = other.firstNumber_;
    outOfTurn_ = other.outOfTurn_;
    acknowledged_ = other.acknowledged_;
    runs_ = other.runs_;
    account_ = other.account_;
    remains_ = other.remains_;
    done_ = other.done_;
    over_ = other.over_;
    story_ = nullptr;
    return *this;
}

// --- the driver's side ---------------------------------------------------------------------------

void Conversation::Open() {
    if (Telling()) Tell({Event::Kind::Run, "run " + std::to_string(runs_.size() + 1)});
    role_ = Role::Answer;
    BeginAccount();
}

void Conversation::Write(View frame) {
    writing_.assign(frame.begin(), frame.end());
    const bool afterData = role_ == Role::Data;
    role_ = RoleOf(frame);
    if (afterData && role_ == Role::EndOfFile && !acknowledged_) outOfTurn_ = true;
    acknowledged_ = false;
    const bool fiscal = role_ == Role::Data && command_ != emulator::EnterFiscalMode &&
                        command_ != emulator::ExitFiscalMode;
    if (fiscal && !fiscalFrame_) firstNumber_ = NumberOf(frame);
    fiscalFrame_ = fiscalFrame_ || fiscal;
    stage_ = Stage::Race;
    if (!Racing()) EndRace();
}

// Closing the port waits until what was written has gone out.
void Conversation::Close() {
    for (const Unit& unit : toRegister_) {
        Feed(unit);
        for (const Bytes& answer : undecided_) toDriver_.push_back({.bytes = answer});
        undecided_.clear();
    }
    toRegister_.clear();
}

bool Conversation::Read(std::uint8_t* block, std::size_t size) {
    std::size_t place = Event::nowhere;
    while (inbox_.size() < size && Racing()) {
        const Unit& unit = toDriver_.front();
        place = unit.place;
        inbox_.insert(inbox_.end(), unit.bytes.begin(), unit.bytes.end());
        toDriver_.erase(toDriver_.begin());
    }
    if (inbox_.size() < size) {
        if (Telling()) Tell({Event::Kind::Read, "time-out"});
        if (account_) account_->Arrived(inbox_);
        inbox_.clear();
        return false;
    }
    const View got = View(inbox_).first(size);
    std::copy(got.begin(), got.end(), block);
    acknowledged_ = wire_->ParseAnswer(got) == emulator::Answer::Ack;
    if (account_) account_->Arrived(got);
    if (Telling()) Tell({Event::Kind::Read, NameOf(got), Fault::None, place});
    inbox_.erase(inbox_.begin(), inbox_.begin() + static_cast<std::ptrdiff_t>(size));
    return true;
}

// As the pages tell a shop: the next file after 0, the same file again when nothing was printed,
// and otherwise somebody looks.
void Conversation::EndRun(const DriverEnd& end, const std::string& result) {
    const Told told{end, result, fiscalFrame_, RefusedInRun(), outOfTurn_};
    const Actions done = ActionsSince(device_, runBegin_);
    const Actions& expected = expected_->empty() ? done : expected_->at(file_);
    if (expected_->empty()) done_.push_back(done);
    runs_.push_back(Judge(told, done, expected, device_));
    if (account_) {
        JudgeAccount(runs_.back());
        if (scenario_->telling == Telling::WithStatus && !remains_.held.Empty()) MakeForget();
        account_.reset();
    }
    if (Telling()) Tell({Event::Kind::End, EndingText({runs_.back()})});
    fiscalFrame_ = outOfTurn_ = false;
    runBegin_ = device_.Journal().size();
    if (end.exitCode == 0) ++file_;
    const bool goesOn = end.exitCode == 0 || end.exitCode == 1 || end.exitCode == 2;
    over_ = !goesOn || file_ == scenario_->files->files.size() || runs_.size() == mostRuns;
}

// --- what may happen -----------------------------------------------------------------------------

FaultSet Conversation::Options() const {
    FaultSet options;
    switch (stage_) {
        case Stage::Quiet:
            break;
        case Stage::Race:
            options = {Fault::None, Fault::Drained};
            break;
        case Stage::Frame:
            options = frameFaults;
            if (role_ == Role::Request || role_ == Role::Data) options.Add(Fault::Refused);
            break;
        case Stage::Answer:
            options = frameFaults;
            break;
    }
    return options;
}

void Conversation::Decide(Fault fault) {
    switch (stage_) {
        case Stage::Quiet:
            return;
        case Stage::Race:
            DecideRace(fault);
            break;
        case Stage::Frame:
            DecideFrame(fault);
            break;
        case Stage::Answer:
            DecideAnswer(fault);
            break;
    }
    ++place_;
}

void Conversation::DecideRace(Fault fault) {
    while (fault == Fault::Drained && Racing()) {
        if (Telling())
            Tell({Event::Kind::Dropped, NameOf(toDriver_.front().bytes), Fault::None,
                  toDriver_.front().place});
        if (account_) account_->Arrived(toDriver_.front().bytes);
        toDriver_.erase(toDriver_.begin());
    }
    EndRace();
}

// What has arrived is dropped; what is still on its way comes one frame nearer.
void Conversation::EndRace() {
    stage_ = Stage::Frame;
    if (account_) {
        account_->Arrived(inbox_);  // is thrown away
        account_->Wrote(writing_);
    }
    inbox_.clear();
    for (Unit& unit : toDriver_)
        if (unit.hold > 0) --unit.hold;
}

void Conversation::DecideFrame(Fault fault) {
    if (Telling()) Tell({Event::Kind::FromDriver, NameOfFrame(), fault, place_});
    for (Unit& unit : toRegister_)
        if (unit.hold > 0) --unit.hold;
    if (fault == Fault::PowerFails) FailPower();
    if (fault == Fault::Noise) {
        Bytes noisy = writing_;
        noisy.insert(noisy.begin(), noiseByte);
        toRegister_.push_back({noisy, 0, false, place_});
    } else if (fault != Fault::Lost) {
        toRegister_.push_back({fault == Fault::Garbled ? Garble(writing_) : writing_, HoldOf(fault),
                               fault == Fault::Refused, place_});
    }
    Deliver();
}

void Conversation::DecideAnswer(Fault fault) {
    const Bytes answer = undecided_.front();
    undecided_.erase(undecided_.begin());
    if (Telling()) Tell({Event::Kind::FromRegister, NameOf(answer), fault, place_, delivered_});
    if (fault == Fault::PowerFails) {
        FailPower();
        undecided_.clear();
    } else if (fault != Fault::Lost) {
        const std::size_t answerSize = wire_->BuildAnswer(emulator::Answer::Ack).size();
        if (fault == Fault::Noise) toDriver_.push_back({.bytes = Bytes(answerSize, noiseByte)});
        toDriver_.push_back(
            {fault == Fault::Garbled ? Garble(answer) : answer, HoldOf(fault), false, place_});
    }
    if (undecided_.empty()) Deliver();
}

void Conversation::Deliver() {
    stage_ = Stage::Quiet;
    while (undecided_.empty() && !toRegister_.empty() && toRegister_.front().hold == 0) {
        const Unit unit = toRegister_.front();
        toRegister_.erase(toRegister_.begin());
        Feed(unit);
    }
    if (!undecided_.empty()) stage_ = Stage::Answer;
}

// The frame and the pause after it. An answer and the status block come together.
void Conversation::Feed(const Unit& unit) {
    delivered_ = unit.place;
    if (Telling() && unit.place != place_)
        Tell({Event::Kind::Arrival, "", Fault::None, unit.place});
    device_.SetBusy(unit.refused);
    if (unit.refused) device_.RefuseNext(refusal);
    Bytes reply = line_.Feed(unit.bytes);
    const Bytes more = line_.Idle();
    reply.insert(reply.end(), more.begin(), more.end());
    device_.RefuseNone();
    device_.SetBusy(false);
    device_.Paper().TearOff();  // nobody reads it, and it would be copied with every state
    const std::size_t dataSize = wire_->DataFrameSize(statusSize);
    if (reply.size() > dataSize) {
        const auto border = reply.end() - static_cast<std::ptrdiff_t>(dataSize);
        undecided_.emplace_back(reply.begin(), border);
        undecided_.emplace_back(border, reply.end());
    } else if (!reply.empty()) {
        undecided_.push_back(reply);
    }
}

void Conversation::FailPower() {
    device_.PowerOff();
    device_.PowerOn();
}

bool Conversation::RefusedInRun() const {
    return std::any_of(device_.Journal().begin() + static_cast<std::ptrdiff_t>(runBegin_),
                       device_.Journal().end(),
                       [](const emulator::Acted& acted) { return !acted.accepted; });
}

// Seen from the bytes that the driver means to send, so no fault can confuse it.
Conversation::Role Conversation::RoleOf(View frame) {
    if (const auto request = wire_->ParseRequest(frame)) {
        command_ = request->command;
        return Role::Request;
    }
    const std::size_t payload = emulator::PayloadSize(device_.GetModel(), command_);
    if (role_ == Role::Request && payload != emulator::kNotACommand &&
        wire_->ParseData(frame, payload + 2))
        return Role::Data;
    return wire_->IsSomeEof(frame) ? Role::EndOfFile : Role::Answer;
}

// --- the verdict ---------------------------------------------------------------------------------

void Conversation::BeginAccount() {
    if (scenario_->telling == Telling::None || expected_->empty()) return;
    verdict::Question question;
    const bool margay = scenario_->family == WireFamily::Margay;
    question.wire.family = margay ? ProtocolFormatting_Margay : ProtocolFormatting_Ocelot;
    for (const Action& action : expected_->at(file_)) question.plan.push_back(action.command);
    if (scenario_->habit && scenario_->habitTold)
        question.promises = verdict::PromisesOf(HabitWordOf(scenario_->habit));
    question.before = remains_;
    account_.emplace(std::move(question));
}

// A frame that nothing happens to, with the answers to it.
Bytes Conversation::Exchange(View frame) {
    account_->Wrote(frame);
    Bytes reply = line_.Feed(frame);
    const Bytes more = line_.Idle();
    reply.insert(reply.end(), more.begin(), more.end());
    account_->Arrived(reply);
    return reply;
}

// What is still on its way arrives after the status was asked for.
void Conversation::ReadStatus() {
    account_->NextRun();
    for (const Unit& unit : toDriver_) account_->Arrived(unit.bytes);
    toDriver_.clear();
    inbox_.clear();
    const Bytes ack = wire_->BuildAnswer(emulator::Answer::Ack);
    const bool margay = scenario_->family == WireFamily::Margay;
    Exchange(margay ? View(margayStatusRequest) : View(ocelotStatusRequest));
    Exchange(ack);
    Exchange(ack);
}

// The display is switched off by a run of its own, whose first command has the number in question.
void Conversation::MakeForget() {
    const bool margay = scenario_->family == WireFamily::Margay;
    account_->NextRun();
    Exchange(margay ? View(margayShowRequest) : View(ocelotShowRequest));
    const Bytes data = wire_->BuildData(Bytes{1, 0, 0, 0});
    Exchange(data);
    Exchange(wire_->BuildEof(wire_->TotalOf(data)));
    remains_ = account_->Conclude().remains;
    runBegin_ = device_.Journal().size();
}

void Conversation::JudgeAccount(RunEnd& end) {
    using Known = Verdicts::Known;
    const auto known = [](const verdict::Verdict& told) {
        return told.What() == verdict::Kind::Unknown ? Known::Unknown : Known::Certain;
    };
    const verdict::Verdict atOnce = account_->Conclude();
    if (!Holds(atOnce)) end.Add(Issue::Untold);
    remains_ = atOnce.remains;
    end.verdicts = {known(atOnce), known(atOnce)};
    if (scenario_->telling == Telling::Alone || (end.exitCode == 0 && !account_->Odd())) return;
    ReadStatus();
    const verdict::Verdict withStatus = account_->Conclude();
    if (!Holds(withStatus)) end.Add(Issue::Untold);
    remains_ = withStatus.remains;
    end.verdicts.withStatus = known(withStatus);
}

// By the sequence number of what the register did: a file's commands have numbers one after the
// other, from 1, or 2 when fiscal mode is entered.
bool Conversation::Holds(const verdict::Verdict& told) const {
    std::vector<int> done(told.commands.size());
    bool alien = false;
    for (std::size_t i = runBegin_; i < device_.Journal().size(); ++i) {
        const emulator::Acted& acted = device_.Journal()[i];
        const bool mode =
            acted.command == emulator::EnterFiscalMode || acted.command == emulator::ExitFiscalMode;
        if (!acted.accepted || mode) continue;
        const std::size_t place = std::size_t{acted.sequence} - firstNumber_;
        const bool known = acted.sequence >= firstNumber_ && place < done.size() &&
                           expected_->at(file_)[place].command == acted.command;
        if (known) ++done[place];
        alien = alien || !known;
    }
    if (alien && told.What() != verdict::Kind::Unknown) return false;
    for (std::size_t i = 0; i < done.size(); ++i) {
        if (told.commands[i] == verdict::Acted::Yes && done[i] != 1) return false;
        if (told.commands[i] == verdict::Acted::No && done[i] != 0) return false;
    }
    return true;
}

// The sequence number in a data frame of the driver.
std::uint16_t Conversation::NumberOf(View frame) const {
    const auto data =
        wire_->ParseData(frame, emulator::PayloadSize(device_.GetModel(), command_) + 2);
    return static_cast<std::uint16_t>(data->at(0) | data->at(1) << 8);
}

// --- the state -----------------------------------------------------------------------------------

void Conversation::Describe(Bytes& state) const {
    Append(state, runs_.size());
    for (const RunEnd& end : runs_) {
        Append(state, static_cast<std::size_t>(end.exitCode));
        Append(state, end.issues);
        Append(state, static_cast<std::size_t>(end.verdicts.atOnce) << 8 |
                          static_cast<std::size_t>(end.verdicts.withStatus));
    }
    for (std::size_t value :
         {file_, static_cast<std::size_t>(stage_), static_cast<std::size_t>(role_),
          std::size_t{command_}, std::size_t{fiscalFrame_}, std::size_t{outOfTurn_},
          std::size_t{RefusedInRun()}})
        Append(state, value);
    // What the register is follows from what it has accepted, and from these.
    Append(state, static_cast<std::size_t>(std::count_if(
                      device_.Journal().begin() + static_cast<std::ptrdiff_t>(runBegin_),
                      device_.Journal().end(),
                      [](const emulator::Acted& acted) { return acted.accepted; })));
    for (const emulator::Acted& acted : device_.Journal()) {
        if (!acted.accepted) continue;
        state.push_back(acted.command);
        Append(state, View(acted.payload));
    }
    Append(state, device_.LastSequence());
    Append(state, View(device_.StatusBlock()));
    Append(state, std::size_t{device_.Open().has_value()});
    if (device_.Open()) {
        Append(state, std::size_t{device_.Open()->command} << 16 | device_.Open()->sequence);
        Append(state, View(device_.Open()->payload));
    }
    Append(state, View(line_.Exchange()));
    for (const auto* units : {&toRegister_, &toDriver_}) {
        Append(state, units->size());
        for (const Unit& unit : *units) {
            state.push_back(static_cast<std::uint8_t>(unit.hold << 1 | (unit.refused ? 1 : 0)));
            Append(state, View(unit.bytes));
        }
    }
    Append(state, undecided_.size());
    for (const Bytes& answer : undecided_) Append(state, View(answer));
    Append(state, View(inbox_));
    if (stage_ == Stage::Race || stage_ == Stage::Frame) Append(state, View(writing_));
    if (account_) account_->Describe(state);
    if (scenario_->telling != Telling::None) {
        Append(state, static_cast<std::size_t>(remains_.coming));
        for (std::size_t command = 0; command < 256; ++command)
            if (remains_.held.Has(static_cast<std::uint8_t>(command))) Append(state, command);
        Append(state, firstNumber_);
    }
}

// --- the story -----------------------------------------------------------------------------------

void Conversation::Tell(const Event& event) {
    story_->push_back(event);
}

std::string Conversation::NameOf(View answer) const {
    if (const auto code = wire_->ParseAnswer(answer))
        return *code == emulator::Answer::Ack ? "ACK" : "NAK";
    const Bytes busy = wire_->BuildAnswer(emulator::Answer::Busy);
    if (std::equal(answer.begin(), answer.end(), busy.begin(), busy.end())) return "BSY";
    if (wire_->ParseData(answer, statusSize)) return "status";
    return wire_->IsSomeEof(answer) ? "end of file" : "garbage";
}

std::string Conversation::NameOfFrame() const {
    switch (role_) {
        case Role::Request:
            return "request " + CommandName(command_);
        case Role::Data:
            return "data " + CommandName(command_);
        case Role::EndOfFile:
            return "end of file";
        case Role::Answer:
            break;
    }
    return NameOf(writing_);
}

}  // namespace explore
