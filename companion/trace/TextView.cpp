// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/trace/TextView.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

#include "companion/runner/Utf8.h"
#include "companion/trace/Clock.h"
#include "companion/trace/Commands.h"

namespace trace {

namespace {

// A line is: a mark, the time, the direction, the text, the answer, and how long the driver waited.
constexpr std::size_t timeSize = 12;
constexpr std::size_t textAt = 18;
constexpr std::size_t textWidth = 46;
constexpr std::size_t waitWidth = 10;
constexpr std::size_t lineWidth = 79;
constexpr std::size_t titleWidth = 12;  // of what is told at the end

constexpr char trouble = '!';
constexpr char slowMark = '~';
constexpr char plain = ' ';

template <typename... Values>
std::string Format(const char* format, Values... values) {
    std::array<char, 160> text{};
    std::snprintf(text.data(), text.size(), format, values...);
    return text.data();
}

std::string TimeText(const std::optional<double>& at) {
    return at ? ClockText(static_cast<Time>(*at)) : std::string(timeSize, ' ');
}

std::string Milliseconds(double ms) {
    constexpr double exact = 10000;
    constexpr double longest = 86'400'000;  // what is longer is a clock that was set
    if (ms > longest) return "> 1 day";
    const bool tenths = ms < exact;
    const long long number = std::llround(ms * (tenths ? 10 : 1));
    if (!tenths) return std::to_string(number) + " ms";
    return std::to_string(number / 10) + "." + std::to_string(number % 10) + " ms";
}

std::string Padded(const std::string& text, std::size_t width) {
    return std::string(width - std::min(width, text.size()), ' ') + text;
}

std::string Plural(std::size_t count, const char* word) {
    return std::to_string(count) + " " + word + (count == 1 ? "" : "s");
}

// --- frames --------------------------------------------------------------------------------------

const char* ReplyWord(const Frame& frame) {
    switch (frame.reply) {
        case Reply::Ack:
            return "ACK";
        case Reply::Nak:
            return "NAK";
        case Reply::Busy:
            return "BSY";
        case Reply::Garbled:
            return "????";
        case Reply::None:
            return "none";
        case Reply::NotDue:
            break;
    }
    return "";
}

const char* KindWord(const Frame& frame) {
    switch (frame.kind) {
        case FrameKind::Request:
            return "request ";
        case FrameKind::Data:
            return "data ";
        case FrameKind::EndOfFile:
            return frame.toRegister ? "end of " : "end of file";
        case FrameKind::Status:
            return "status";
        case FrameKind::Answer:
            return "answer ";
        case FrameKind::Unknown:
            break;
    }
    return "no frame: ";
}

bool InTrouble(const Frame& frame) {
    return frame.stale || frame.attempt > 1 || frame.kind == FrameKind::Unknown ||
           (frame.reply != Reply::Ack && frame.reply != Reply::NotDue);
}

const Field* Find(const Fields& fields, std::string_view name) {
    for (const Field& field : fields)
        if (field.name == name) return &field;
    return nullptr;
}

std::string Value(const Fields& fields, std::string_view name) {
    const Field* const field = Find(fields, name);
    return field != nullptr ? field->value : "";
}

bool IsSet(const Fields& fields, std::string_view name) {
    return Value(fields, name) == "true";
}

std::string StatusText(const Frame& frame) {
    const Fields& fields = frame.fields;
    const std::string result = Value(fields, "result");
    std::string text;
    if (result != "00") {
        const auto code = static_cast<std::uint8_t>(std::stoi(result, nullptr, 16));
        text += ", error " + result + " (" + ResultText(code) + ")";
    }
    if (Find(fields, "model") != nullptr) {
        text += ", " + Value(fields, "model") + " version " + Value(fields, "version");
    } else {
        text += ", unknown protocol " + Value(fields, "protocol_code");
    }
    text += ", keylock " + Value(fields, "keylock");
    if (IsSet(fields, "cashier_system")) text += ", cashier system";
    text += IsSet(fields, "fiscal_mode") ? ", fiscal mode" : ", no fiscal mode";
    const bool open = IsSet(fields, "receipt_open");
    text += open ? ", receipt " + Value(fields, "receipt") + " open, subtotal " +
                       Value(fields, "subtotal")
                 : ", last receipt " + Value(fields, "receipt");
    return " after #" + std::to_string(frame.sequence.value_or(0)) + ":" + text.substr(1);
}

std::string FieldText(const Field& field) {
    if (field.kind == Field::Kind::Text) return "\"" + field.value + "\"";
    const bool tellsItself = field.name == "media" || field.name == "mode" ||
                             field.name == "answer" || field.name == "show" ||
                             field.name == "amount" || field.name == "number";
    if (tellsItself) return field.value;
    if (field.name == "percents") return field.value + " %";
    return std::string(field.name) + " " + field.value;
}

constexpr char nothing[] = "0.00";

// Of a price or an amount that follows what it is for.
std::string MoneyText(const Fields& fields, const Field& field) {
    const bool byPlu = Find(fields, "plu") != nullptr;
    if (field.name == "price" && byPlu && field.value == nothing) return " at the register's price";
    if (field.name == "price") return " x " + field.value;
    const bool paid = Find(fields, "media") != nullptr && field.value == nothing;
    return paid ? ", what is due" : "";
}

std::string FieldsText(const Fields& fields) {
    std::string text;
    for (const Field& field : fields) {
        if (const std::string money = MoneyText(fields, field); !money.empty()) {
            text += money;
            continue;
        }
        text += text.empty() ? "" : ", ";
        text += field.name == "quantity" ? field.value : FieldText(field);
    }
    return text;
}

std::string Again(int attempt) {
    return attempt > 1 ? "again (" + std::to_string(attempt) + "): " : "";
}

// --- the end of a run ----------------------------------------------------------------------------

std::string CountText(const RunEnd& end) {
    const std::string all = Plural(end.sent, "command") + " sent";
    if (end.sent == 0) return "no commands were sent";
    if (end.atLeast == end.atMost)
        return std::to_string(end.atLeast) + " of " + all +
               (end.atLeast == 1 ? " was done" : " were done");
    return "at least " + std::to_string(end.atLeast) + " and at most " +
           std::to_string(end.atMost) + " of " + all + " were done";
}

const char* ActedWord(verdict::Acted acted) {
    return acted == verdict::Acted::No ? "not done" : "perhaps done";
}

std::string DoubtText(const Doubt& doubt) {
    return "command " + std::to_string(doubt.place + 1) + ", " + TitleOf(doubt.command) + ": " +
           ActedWord(doubt.acted);
}

std::string SlowText(const Slow& slow) {
    const char* const part = slow.kind == FrameKind::Request ? "request of "
                             : slow.kind == FrameKind::Data  ? "data of "
                                                             : "end of ";
    const bool known = slow.kind == FrameKind::Request || slow.kind == FrameKind::Data ||
                       slow.kind == FrameKind::EndOfFile;
    return Milliseconds(slow.ms) + " after " + TimeText(slow.at) + ", " +
           (known ? part + TitleOf(slow.command) : "the status");
}

std::string FramesText(const RunEnd& end) {
    std::string text =
        std::to_string(end.framesOut) + " sent, " + std::to_string(end.framesIn) + " received";
    if (end.repeated != 0) text += ", " + std::to_string(end.repeated) + " repeated";
    if (end.staleBytes != 0)
        text += ", " + Plural(static_cast<std::size_t>(end.staleBytes), "stale byte");
    if (!end.family) return text;
    if (*end.family == ProtocolFormatting_Margay) return text + "; letters (margay frames)";
    return text + "; binary (ocelot frames), network ID " + std::to_string(end.networkId);
}

// --- lines ---------------------------------------------------------------------------------------

bool IsFollower(char c) {
    return (static_cast<unsigned char>(c) & 0xC0U) == 0x80U;
}

std::size_t Columns(std::string_view text) {
    std::size_t columns = 0;
    for (const char c : text) columns += IsFollower(c) ? 0 : 1;
    return columns;
}

// Where the text is to be cut for a line of that many columns: after a blank, when there is one.
std::size_t CutFor(std::string_view text, std::size_t columns) {
    std::size_t end = 0;
    std::size_t blank = 0;
    for (std::size_t i = 0, column = 0; i < text.size(); ++i) {
        if (!IsFollower(text[i])) ++column;
        if (column > columns) break;
        end = i + 1;
        if (text[i] == ' ') blank = i + 1;
    }
    while (end < text.size() && IsFollower(text[end])) ++end;
    if (end == text.size() || text[end] == ' ') return end;
    return blank != 0 ? blank : end;
}

}  // namespace

std::string Shown(std::string text) {
    const auto isPlain = [](char c) { return c >= ' ' && c <= '~'; };
    if (std::ranges::all_of(text, isPlain)) return text;
    std::string shown;
    for (std::string_view rest = text; !rest.empty();) {
        const std::string_view all = rest;
        const char32_t character = runner::NextCharacter(rest);
        if (character == runner::noCharacter) {
            shown += '?';
            rest.remove_prefix(1);
            continue;
        }
        constexpr char32_t firstPlain = 0x20;
        constexpr char32_t firstControl = 0x7F;
        constexpr char32_t lastControl = 0x9F;
        const bool control =
            character < firstPlain || (character >= firstControl && character <= lastControl);
        shown += control ? "?" : std::string(all.substr(0, all.size() - rest.size()));
    }
    return shown;
}

std::string_view TakeLine(std::string_view& rest, std::size_t columns) {
    std::string_view line = rest.substr(0, CutFor(rest, columns));
    rest.remove_prefix(line.size());
    while (!line.empty() && line.back() == ' ') line.remove_suffix(1);
    while (!rest.empty() && rest.front() == ' ') rest.remove_prefix(1);
    return line;
}

std::string FrameText(const Frame& frame) {
    std::string text = frame.stale ? "stale, thrown away: " : Again(frame.attempt);
    text += KindWord(frame);
    if (frame.kind == FrameKind::Unknown) return text + Hex(frame.bytes);
    if (frame.kind == FrameKind::Status) return text + StatusText(frame);
    const bool named = frame.toRegister && frame.kind != FrameKind::Answer;
    if (named) text += TitleOf(frame.command);
    if (frame.kind == FrameKind::Data) text += " #" + std::to_string(frame.sequence.value_or(0));
    const std::string fields = FieldsText(frame.fields);
    if (!fields.empty()) text += (named ? ": " : "") + fields;
    if (frame.reply == Reply::Garbled) text += "; came: " + Hex(frame.garbled);
    return text;
}

const char* VerdictWord(verdict::Kind kind) {
    switch (kind) {
        case verdict::Kind::Printed:
            return "printed";
        case verdict::Kind::NotPrinted:
            return "not-printed";
        case verdict::Kind::Part:
            return "part";
        case verdict::Kind::Unknown:
            break;
    }
    return "unknown";
}

std::string VerdictText(const RunEnd& end) {
    const bool unprinted = end.verdict == verdict::Kind::NotPrinted;
    std::string text = unprinted ? "not printed" : VerdictWord(end.verdict);
    text += ": " + CountText(end);
    if (end.mayHaveMore) text += "; whether the file has more the log does not tell";
    return text;
}

std::string SharesText(const Shares& shares) {
    if (shares.wire > shares.all)
        return Format("%.2f s, less than the bytes take on a serial line", shares.all / 1000);
    const auto part = [&](double ms, const char* what) {
        const double percent = shares.all > 0 ? std::min(100.0, ms * 100 / shares.all) : 0;
        return Format("%.2f s (%.0f %%) %s", ms / 1000, percent, what);
    };
    std::string text = Format("%.2f s: ", shares.all / 1000) + part(shares.wire, "on the wire") +
                       ", " + part(shares.registers, "register");
    if (shares.inVain > 0) text += ", " + part(shares.inVain, "waited in vain");
    return text + ", " + part(shares.Driver(), "driver and pauses");
}

void TextView::Marked(char mark) {
    if (colour_ && mark != plain) {
        out_ += mark == trouble ? "\033[1;31m" : "\033[1;33m";
        out_ += mark;
        out_ += "\033[0m";
    } else {
        out_ += mark;
    }
}

void TextView::Head(char mark, const std::string& time, std::string_view direction) {
    Marked(mark);
    out_ += ' ';
    out_ += time;
    out_ += ' ';
    out_ += direction;
    out_ += ' ';
}

// The text, in as many lines as it needs from that column on; what is at the right is in the first.
void TextView::Lines(const std::string& text, std::size_t width, const std::string& right) {
    std::string_view rest = text;
    for (bool first = true; first || !rest.empty(); first = false) {
        if (!first) out_.append(textAt, ' ');
        const std::string_view part = TakeLine(rest, width);
        out_ += part;
        if (first && !right.empty()) {
            out_.append(width + 1 - std::min(width, Columns(part)), ' ');
            out_ += right;
        }
        out_ += '\n';
    }
}

void TextView::Begin(const RunHead& head) {
    if (!first_) out_ += '\n';
    first_ = false;
    out_ += "run " + std::to_string(head.number);
    if (!head.hasBegin) {
        out_ += "  (its beginning is not in the log)\n";
        return;
    }
    if (head.at) out_ += "  " + DateText(*head.at) + " " + ClockText(*head.at);
    constexpr std::size_t driverWidth = 30;  // of real ones half of it
    const std::string driver = Shown(head.driver);
    std::string_view rest = driver;
    out_ += "  ";
    out_ += TakeLine(rest, driverWidth);
    out_ += '\n';
    const std::string commandLine = Shown(head.commandLine);
    for (rest = commandLine; !rest.empty();) {
        out_ += "  ";
        out_ += TakeLine(rest, lineWidth - 2);
        out_ += '\n';
    }
}

void TextView::Show(const Frame& frame) {
    const char mark = InTrouble(frame) ? trouble : frame.slow ? slowMark : plain;
    Head(mark, TimeText(frame.at), frame.toRegister ? "->" : "<-");
    std::string right = ReplyWord(frame);
    right.resize(4, ' ');
    if (frame.waitedMs) right += Padded(Milliseconds(*frame.waitedMs), waitWidth);
    while (!right.empty() && right.back() == ' ') right.pop_back();
    Lines(Shown(FrameText(frame)), textWidth, right);
}

void TextView::Show(const Note& note) {
    std::string text = note.text;
    if (note.kind == Note::Kind::Silence)
        text = Format("... nothing was logged for %.1f s", note.silentMs / 1000);
    if (note.kind == Note::Kind::File) text = "| " + text;
    if (note.kind == Note::Kind::Damage) text = "line " + std::to_string(note.line) + ": " + text;
    const bool bad = note.kind == Note::Kind::Trouble || note.kind == Note::Kind::Failure ||
                     note.kind == Note::Kind::Damage;
    const std::string time = note.at ? ClockText(*note.at) : std::string(timeSize, ' ');
    Head(bad ? trouble : plain, time, note.kind == Note::Kind::Failure ? "**" : "  ");
    Lines(Shown(text), lineWidth - textAt, "");
}

void TextView::Entry(const char* title, const std::string& text) {
    std::string left = title;
    for (std::string_view rest = text; !rest.empty();) {
        left.resize(titleWidth, ' ');
        out_ += "  " + left;
        out_ += TakeLine(rest, lineWidth - 2 - titleWidth);
        out_ += '\n';
        left.clear();
    }
}

void TextView::End(const RunEnd& end) {
    Entry("verdict", VerdictText(end));
    for (const Doubt& doubt : end.doubts) Entry("", DoubtText(doubt));
    const char* title = end.verdict == verdict::Kind::Printed ? "though" : "because";
    for (const std::string& reason : end.reasons) {
        Entry(title, Shown(reason));
        title = "";
    }
    title = "slow";
    for (const Slow& slow : end.slow) {
        Entry(title, SlowText(slow));
        title = "";
    }
    if (end.slowCount > static_cast<long>(end.slow.size()))
        Entry("", "and " + std::to_string(end.slowCount - static_cast<long>(end.slow.size())) +
                      " more");
    if (end.shares.all > 0 && end.framesOut > 0) Entry("time", SharesText(end.shares));
    Entry("frames", FramesText(end));
}

void TextView::Show(const Junk& junk) {
    if (!first_) out_ += '\n';
    first_ = false;
    Marked(trouble);
    out_ += " line " + std::to_string(junk.line) + ": no part of a debug log: ";
    out_ += Plural(static_cast<std::size_t>(junk.lines), "line") + ", ";
    out_ += Plural(static_cast<std::size_t>(junk.bytes), "byte") + "\n";
}

}  // namespace trace
