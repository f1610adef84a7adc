// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/trace/Run.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

#include "ECR.h"
#include "companion/trace/Clock.h"
#include "companion/trace/Commands.h"
#include "companion/transcript/Transcript.h"

namespace trace {

using transcript::LineKind;
using transcript::LogLine;

namespace {

constexpr double longSilenceMs = 1000;
constexpr std::size_t mostReasons = 8;
constexpr std::size_t mostSlow = 5;
constexpr int bitsOfByte = 11;  // with start, parity and stop

constexpr char removedText[] =
    "It was removed from the log before its end was read; with DbgErrorLog=1 the driver removes "
    "what went well";

constexpr std::string_view lost = "ECR response lost";

constexpr std::string_view troubleTexts[] = {lost,
                                             "NAK received",
                                             "BSY received",
                                             "Garbage received",
                                             "Garbage recieved",
                                             "Comunication error"};
// Messages that are never what a run ended with.
constexpr std::string_view harmlessTexts[] = {"Opening serial port ",
                                              "Checking for ECR",
                                              "Closing serial port",
                                              "Input file (",
                                              "Unable to create result file",
                                              "Unable to write result file",
                                              "Server mode ",
                                              "Old server mode ",
                                              "------"};
// What follows a failure, and nothing else.
constexpr std::string_view endTexts[] = {"Closing serial port", "Input file ("};

template <typename Texts>
bool BeginsAsOne(std::string_view message, const Texts& texts) {
    return std::ranges::any_of(texts,
                               [&](std::string_view text) { return message.starts_with(text); });
}

bool IsTrouble(std::string_view message) {
    return std::ranges::find(troubleTexts, message) != std::ranges::end(troubleTexts);
}

// A line above or below a status read, which the frames tell as well.
bool IsRule(std::string_view message) {
    return message.starts_with("------");
}

std::string NameOfFrame(const Frame& frame) {
    switch (frame.kind) {
        case FrameKind::Request:
            return "request of " + TitleOf(frame.command);
        case FrameKind::Data:
            return "data of " + TitleOf(frame.command);
        case FrameKind::EndOfFile:
            return frame.toRegister ? "end of " + TitleOf(frame.command) : "register's end of file";
        case FrameKind::Status:
            return "register's status";
        case FrameKind::Answer:
            return "answer";
        case FrameKind::Unknown:
            break;
    }
    return "frame";
}

std::string_view TroubleOf(const Frame& frame) {
    switch (frame.reply) {
        case Reply::Nak:
            return "refused (NAK)";
        case Reply::Busy:
            return "answered by BSY";
        case Reply::Garbled:
            return "answered by bytes that are no answer";
        case Reply::None:
            return "not answered";
        case Reply::Ack:
        case Reply::NotDue:
            break;
    }
    return "";
}

Fields AnswerFields(Reply reply) {
    const char* word = reply == Reply::Ack ? "ACK" : reply == Reply::Nak ? "NAK" : "BSY";
    return {{Field::Kind::Word, "answer", word}};
}

std::string MissingBefore(long line) {
    if (line <= 1) return "The log begins in the middle of this run";
    return "The beginning of this run is missing before line " + std::to_string(line) +
           " of the log";
}

std::string At(const std::optional<double>& time) {
    return time ? ClockText(static_cast<Time>(*time)) + "  " : "";
}

}  // namespace

Run::Run(const Question& question, const verdict::Commands& held, const RunHead& head, View& view)
    : question_(question), view_(view), judge_(question.promises, held) {
    if (head.at) BeAt(*head.at);
    if (!head.hasBegin) {
        judge_.LoseTrack();
        AddReason(MissingBefore(head.line));
    }
    view_.Begin(head);
}

// --- what the lines say --------------------------------------------------------------------------

void Run::Take(const LogLine& line, long number) {
    const bool rubbish = line.kind == LineKind::Other && !line.text.empty();
    if (!rubbish) inRubbish_ = false;
    switch (line.kind) {
        case LineKind::Block:
            return TakeBlock(line);
        case LineKind::Message:
            return TakeMessage(line);
        case LineKind::Lost:
            return;  // a frame without an answer tells the same
        case LineKind::Damaged:
            return TakeDamage(number, "this line of bytes is not whole");
        case LineKind::Other:
            return TakeOther(line.text, number);
    }
}

void Run::SayDamage(long number, const char* why) {
    SayHeld(false);
    EmitPending();
    Note note{Note::Kind::Damage, std::nullopt, why};
    note.line = number;
    Say(std::move(note));
}

void Run::TakeDamage(long number, const char* why) {
    SayDamage(number, why);
    if (!damaged_) AddReason("Line " + std::to_string(number) + " of the log: " + why);
    damaged_ = true;
    judge_.LoseTrack();
}

void Run::TakeCut(long number) {
    SayDamage(number, "the log breaks off within this line");
}

void Run::TakeOther(std::string_view text, long number) {
    if (text.empty()) return;
    if (text.front() == '\t')
        return Say({Note::Kind::File, std::nullopt, std::string(text.substr(1))});
    if (saidFrames_ || inRubbish_) return;  // after the run anything may follow
    inRubbish_ = true;
    TakeDamage(number, "this is no line of a debug log");
}

void Run::Say(Note note) {
    if (!note.at && clock_) note.at = static_cast<Time>(*clock_);
    view_.Show(note);
}

void Run::SayHeld(bool asFailure) {
    if (!std::exchange(holds_, false)) return;
    const bool trouble = IsTrouble(held_.text);
    held_.kind = asFailure ? Note::Kind::Failure
                 : trouble ? Note::Kind::Trouble
                           : Note::Kind::Message;
    if (asFailure) {
        end_.message = held_.text;
        AddReason(At(clock_) + "The run ended with: " + held_.text);
    }
    Say(std::move(held_));
}

void Run::TakeMessage(const LogLine& line) {
    if (pending_ && pending_->at && !saidFrames_ && pending_->reply == Reply::None)
        pending_->waitedMs = std::max(0.0, static_cast<double>(line.at) - *pending_->at);
    const bool waiting = pending_.has_value();
    EmitPending();
    const auto frames = transcript::FramesSent(line.text);
    SayHeld(frames || BeginsAsOne(line.text, endTexts));
    if (clock_ && !waiting && static_cast<double>(line.at) - *clock_ > longSilenceMs) {
        Note silence{Note::Kind::Silence, static_cast<Time>(*clock_), ""};
        silence.silentMs = static_cast<double>(line.at) - *clock_;
        Say(std::move(silence));
    }
    BeAt(line.at);
    if (IsRule(line.text)) return;
    held_ = {Note::Kind::Message, line.at, std::string(line.text)};
    if (frames || BeginsAsOne(line.text, harmlessTexts)) {
        Say(held_);
    } else {
        holds_ = true;
    }
    if (frames) TakeStatistics(*frames);
}

void Run::TakeStatistics(int framesSent) {
    saidFrames_ = true;
    if (framesSent == end_.framesOut) return;
    judge_.LoseTrack();
    AddReason("The driver sent " + std::to_string(framesSent) + " frames, and the log has " +
              std::to_string(end_.framesOut));
}

// --- frames --------------------------------------------------------------------------------------

void Run::TakeBlock(const LogLine& line) {
    SayHeld(false);
    if (line.toRegister) {
        Sent(line);
    } else if (line.stale) {
        ReceivedStale(line);
    } else {
        Received(line);
    }
}

void Run::Learn(verdict::View sent) {
    const auto wire = Recognise(sent);
    if (!wire) return;
    wire_.emplace(*wire);
    end_.family = wire->family;
    end_.networkId = wire->networkId;
    judge_.Know(*wire);
}

void Run::Sent(const LogLine& line) {
    if (!wire_) Learn(line.bytes);
    ++end_.framesOut;
    judge_.Wrote(line.bytes);
    const Seen seen = wire_ ? wire_->Sent(line.bytes, judge_.LastSent()) : Seen();
    if (seen.kind == FrameKind::Answer && pending_ && !pending_->toRegister) {
        pending_->reply = seen.reply;
        repliesAgain_ = seen.reply == Reply::Ack ? 0 : repliesAgain_ + 1;
        Frame frame = std::move(*pending_);
        pending_.reset();
        Emit(frame);
        return Pass(line);
    }
    EmitPending();
    Frame frame;
    frame.toRegister = true;
    frame.kind = seen.kind;
    frame.command = seen.command;
    frame.sequence = seen.sequence;
    if (seen.kind == FrameKind::Data) frame.fields = FieldsOf(seen.command, seen.payload);
    frame.bytes = line.bytes;
    frame.at = clock_;
    if (seen.kind == FrameKind::Answer) frame.fields = AnswerFields(seen.reply);
    Count(frame);
    Pass(line);
    if (seen.kind == FrameKind::Answer) return Emit(frame);
    Expect(std::move(frame));
}

// Which attempt it is. A command is on its way until its end-of-file frame.
void Run::Count(Frame& frame) {
    const bool status = frame.command == CMD_READ_FISCAL_STATUS;
    if (frame.kind == FrameKind::Request && status) {
        frame.attempt = ++statusRequests_;
    } else if (frame.kind == FrameKind::Request) {
        if (command_ != frame.command) requests_ = datas_ = 0;
        command_ = frame.command;
        frame.attempt = ++requests_;
    } else if (frame.kind == FrameKind::Data) {
        frame.attempt = ++datas_;
    } else if (frame.kind == FrameKind::EndOfFile) {
        requests_ = datas_ = 0;
    }
    if (frame.attempt > 1) ++end_.repeated;
}

void Run::Expect(Frame frame) {
    frame.reply = Reply::None;
    pending_ = std::move(frame);
}

void Run::EmitPending() {
    if (!pending_) return;
    Frame frame = std::move(*pending_);
    pending_.reset();
    if (frame.toRegister && frame.waitedMs) end_.shares.inVain += *frame.waitedMs;
    Emit(frame);
}

void Run::Emit(Frame& frame) {
    if (frame.waitedMs && *frame.waitedMs > question_.slowMs && frame.reply != Reply::None) {
        frame.slow = true;
        ++end_.slowCount;
        end_.slow.push_back({*frame.waitedMs, frame.at, frame.kind, frame.command});
        if (end_.slow.size() > mostSlow)
            end_.slow.erase(std::ranges::min_element(end_.slow, {}, &Slow::ms));
    }
    NoteTrouble(frame);
    view_.Show(frame);
}

void Run::NoteTrouble(const Frame& frame) {
    if (frame.stale) {
        end_.staleBytes += static_cast<long>(frame.bytes.size());
        return AddReason(At(frame.at) + "Stale bytes: an answer that came too late");
    }
    const std::string_view trouble = TroubleOf(frame);
    if (trouble.empty()) return;
    AddReason(At(frame.at) + "The " + NameOfFrame(frame) + " was " + std::string(trouble));
}

void Run::Received(const LogLine& line) {
    ++end_.framesIn;
    sumIn_ += line.ms.value_or(0);
    judge_.Arrived(line.bytes);
    static const Seen nothing;
    const Seen& seen = wire_ ? wire_->Heard(line.bytes) : nothing;
    if (seen.kind == FrameKind::Answer) statusRequests_ = 0;
    if (pending_ && pending_->toRegister) return Answered(seen, line);
    EmitPending();
    Pass(line);
    Frame frame;
    frame.kind = seen.kind;
    frame.command = CMD_READ_FISCAL_STATUS;
    frame.sequence = seen.sequence;
    frame.bytes = line.bytes;
    frame.at = clock_;
    frame.waitedMs = line.ms;
    frame.attempt = 1 + repliesAgain_;
    if (seen.kind == FrameKind::Status) frame.fields = FieldsOfStatus(seen.payload);
    if (seen.kind == FrameKind::Answer) frame.fields = AnswerFields(seen.reply);
    if (frame.attempt > 1) ++end_.repeated;
    Expect(std::move(frame));
}

void Run::Answered(const Seen& seen, const LogLine& line) {
    Frame frame = std::move(*pending_);
    pending_.reset();
    frame.reply = seen.kind == FrameKind::Answer ? seen.reply : Reply::Garbled;
    if (frame.reply == Reply::Garbled) frame.garbled = line.bytes;
    frame.waitedMs = line.ms;
    Pass(line);
    Emit(frame);
}

void Run::ReceivedStale(const LogLine& line) {
    EmitPending();
    if (end_.framesOut != 0) judge_.Arrived(line.bytes);
    for (verdict::View rest = line.bytes; !rest.empty();) {
        auto [seen, size] = wire_ ? wire_->First(rest) : std::pair(Seen(), rest.size());
        Frame frame;
        frame.kind = seen.kind;
        frame.sequence = seen.sequence;
        frame.stale = true;
        frame.at = clock_;
        frame.bytes.assign(rest.begin(), rest.begin() + static_cast<std::ptrdiff_t>(size));
        if (seen.kind == FrameKind::Status) frame.fields = FieldsOfStatus(seen.payload);
        if (seen.kind == FrameKind::Answer) frame.fields = AnswerFields(seen.reply);
        Emit(frame);
        rest = rest.subspan(size);
    }
    Pass(line);
}

// --- time ----------------------------------------------------------------------------------------

void Run::Pass(const LogLine& line) {
    const double bits = static_cast<double>(line.bytes.size()) * bitsOfByte;
    end_.shares.wire += bits * 1000 / question_.lineSpeed;
    if (!clock_ || !line.ms) return;
    *clock_ += std::max(0.0, *line.ms);
}

void Run::BeAt(Time time) {
    clock_ = static_cast<double>(time);
    if (!first_) first_ = clock_;
}

// --- the end -------------------------------------------------------------------------------------

void Run::AddReason(std::string reason) {
    if (end_.reasons.size() == mostReasons) {
        ++moreReasons_;
    } else {
        end_.reasons.push_back(std::move(reason));
    }
}

void Run::End() {
    EmitPending();
    const bool failed = holds_ && !IsTrouble(held_.text);
    SayHeld(failed);
    Conclude();
    view_.End(end_);
}

void Run::Conclude() {
    using How = RunEnd::How;
    end_.how = !end_.message.empty() ? How::Failed : saidFrames_ ? How::Well : How::Cut;
    if (end_.how == How::Cut) {
        AddReason(removed_ ? removedText : "The log ends before the driver did");
        if (!damaged_) judge_.CutOff();
    }
    judge_.Conclude(end_);
    if (judge_.GaveUp())
        AddReason("The run is too long, or too much of it went wrong, to be judged");
    if (moreReasons_ != 0) end_.reasons.push_back("and " + std::to_string(moreReasons_) + " more");
    std::ranges::sort(end_.slow, std::greater(), &Slow::ms);
    end_.shares.all = clock_ && first_ ? std::max(0.0, *clock_ - *first_) : 0;
    end_.shares.registers = std::max(0.0, sumIn_ - end_.shares.wire);
}

}  // namespace trace
