// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/trace/JsonView.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <string_view>

#include "companion/runner/Utf8.h"
#include "companion/trace/Clock.h"
#include "companion/trace/Commands.h"
#include "companion/trace/TextView.h"

namespace trace {

namespace {

void AddEscaped(std::string_view character, std::string& out) {
    constexpr unsigned firstPrintable = 0x20;
    const char first = character.front();
    if (first == '"' || first == '\\') {
        out += '\\';
        out += first;
    } else if (static_cast<unsigned char>(first) < firstPrintable) {
        std::array<char, 8> code{};
        std::snprintf(code.data(), code.size(), "\\u%04x", static_cast<unsigned>(first));
        out += code.data();
    } else {
        out += character;
    }
}

/// An object while it is written; a value that is not there is null.
class Object {
  public:
    explicit Object(std::string& out) : out_(out) { out_ += '{'; }
    ~Object() { out_ += '}'; }
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;

    void Text(const char* name, std::string_view value) {
        Name(name);
        Quote(value);
    }
    void TextOrNull(const char* name, std::string_view value) {
        value.empty() ? Null(name) : Text(name, value);
    }
    void Flag(const char* name, bool value) {
        Name(name);
        out_ += value ? "true" : "false";
    }
    void Null(const char* name) {
        Name(name);
        out_ += "null";
    }
    /// Digits as they are.
    void Digits(const char* name, std::string_view digits) {
        Name(name);
        out_ += digits;
    }
    template <typename Number>
    void Count(const char* name, Number number) {
        Digits(name, std::to_string(number));
    }
    /// With at most one decimal.
    void Tenths(const char* name, double number) {
        std::array<char, 40> text{};
        const auto end = std::to_chars(text.begin(), text.end(), std::round(number * 10) / 10);
        Digits(name, {text.data(), static_cast<std::size_t>(end.ptr - text.data())});
    }
    void TenthsOrNull(const char* name, const std::optional<double>& number) {
        number ? Tenths(name, *number) : Null(name);
    }
    void TimeOrNull(const char* name, const std::optional<double>& time) {
        time ? Text(name, DateTimeText(static_cast<Time>(*time))) : Null(name);
    }
    /// The name alone, for a value that is written by somebody else.
    void Name(const char* name) {
        if (!first_) out_ += ", ";
        first_ = false;
        Quote(name);
        out_ += ": ";
    }
    void Quote(std::string_view text) {
        out_ += '"';
        while (!text.empty()) {
            const std::string_view all = text;
            if (runner::NextCharacter(text) == runner::noCharacter) {
                out_ += "\xef\xbf\xbd";
                text.remove_prefix(1);
                continue;
            }
            AddEscaped(all.substr(0, all.size() - text.size()), out_);
        }
        out_ += '"';
    }

  private:
    std::string& out_;
    bool first_ = true;
};

/// The items of a list, each written by the function.
template <typename Items, typename Write>
void List(std::string& out, const Items& items, Write write) {
    out += '[';
    bool first = true;
    for (const auto& item : items) {
        if (!first) out += ", ";
        first = false;
        write(item);
    }
    out += ']';
}

const char* JsonKind(const Frame& frame) {
    switch (frame.kind) {
        case FrameKind::Request:
            return "request";
        case FrameKind::Data:
            return "data";
        case FrameKind::EndOfFile:
            return "end-of-file";
        case FrameKind::Status:
            return "status";
        case FrameKind::Answer:
            return "answer";
        case FrameKind::Unknown:
            break;
    }
    return "unknown";
}

const char* JsonReply(Reply reply) {
    switch (reply) {
        case Reply::Ack:
            return "ack";
        case Reply::Nak:
            return "nak";
        case Reply::Busy:
            return "busy";
        case Reply::Garbled:
            return "garbled";
        case Reply::None:
            return "none";
        case Reply::NotDue:
            break;
    }
    return "";
}

const char* JsonNoteKind(Note::Kind kind) {
    switch (kind) {
        case Note::Kind::Trouble:
            return "trouble";
        case Note::Kind::Failure:
            return "failure";
        case Note::Kind::File:
            return "file";
        case Note::Kind::Silence:
            return "silence";
        case Note::Kind::Damage:
            return "damage";
        case Note::Kind::Message:
            break;
    }
    return "message";
}

const char* JsonHow(RunEnd::How how) {
    if (how == RunEnd::How::Well) return "well";
    return how == RunEnd::How::Failed ? "failed" : "cut";
}

void AddField(Object& object, const Field& field) {
    const std::string name(field.name);
    const bool number =
        field.value.find_first_not_of("0123456789") == std::string::npos && field.value.size() < 16;
    if (field.kind == Field::Kind::Flag || (field.kind == Field::Kind::Number && number)) {
        object.Digits(name.c_str(), field.value);
    } else {
        object.Text(name.c_str(), field.value);
    }
}

void AddFields(std::string& out, const Fields& fields) {
    Object object(out);
    for (const Field& field : fields) AddField(object, field);
}

void AddCommand(Object& object, std::uint8_t command) {
    object.Text("command", TitleOf(command));
    object.Text("code", Hex(Bytes(&command, 1)));
}

const char* ActedAsJson(verdict::Acted acted) {
    return acted == verdict::Acted::No ? "no" : "perhaps";
}

void AddCommands(std::string& out, const RunEnd& end) {
    Object object(out);
    object.Count("sent", end.sent);
    object.Count("at_least", end.atLeast);
    object.Count("at_most", end.atMost);
    object.Flag("may_have_more", end.mayHaveMore);
}

void AddDoubt(std::string& out, const Doubt& doubt) {
    Object object(out);
    object.Count("place", doubt.place + 1);
    AddCommand(object, doubt.command);
    object.Text("done", ActedAsJson(doubt.acted));
}

void AddSlow(std::string& out, const Slow& slow) {
    Object object(out);
    object.Tenths("ms", slow.ms);
    object.TimeOrNull("time", slow.at);
    AddCommand(object, slow.command);
}

void AddShares(std::string& out, const Shares& shares) {
    Object object(out);
    object.Tenths("all", shares.all);
    object.Tenths("wire", shares.wire);
    object.Tenths("register", shares.registers);
    object.Tenths("in_vain", shares.inVain);
    object.Tenths("driver", shares.Driver());
}

void AddFrames(std::string& out, const RunEnd& end) {
    Object object(out);
    object.Count("sent", end.framesOut);
    object.Count("received", end.framesIn);
    object.Count("repeated", end.repeated);
    object.Count("stale_bytes", end.staleBytes);
}

const char* FamilyWord(const RunEnd& end) {
    if (!end.family) return "";
    return end.family == ProtocolFormatting_Margay ? "margay" : "ocelot";
}

}  // namespace

void JsonView::Begin(const RunHead& head) {
    run_ = head.number;
    {
        Object object(out_);
        object.Text("type", "run");
        object.Count("run", run_);
        object.TimeOrNull("time", head.at);
        object.TextOrNull("driver", head.driver);
        object.TextOrNull("command_line", head.commandLine);
        object.Flag("has_begin", head.hasBegin);
    }
    out_ += '\n';
}

void JsonView::Show(const Frame& frame) {
    {
        Object object(out_);
        object.Text("type", "frame");
        object.Count("run", run_);
        object.TimeOrNull("time", frame.at);
        object.Text("direction", frame.toRegister ? "to-register" : "from-register");
        object.Text("kind", JsonKind(frame));
        const bool ofCommand = frame.toRegister && frame.command != 0;
        ofCommand ? AddCommand(object, frame.command) : object.Null("command");
        if (!ofCommand) object.Null("code");
        frame.sequence ? object.Count("sequence", *frame.sequence) : object.Null("sequence");
        object.Name("fields");
        AddFields(out_, frame.fields);
        object.Text("bytes", Hex(frame.bytes));
        object.TextOrNull("reply", JsonReply(frame.reply));
        object.TextOrNull("garbled", Hex(frame.garbled));
        object.TenthsOrNull("waited_ms", frame.waitedMs);
        object.Count("attempt", frame.attempt);
        object.Flag("stale", frame.stale);
        object.Flag("slow", frame.slow);
    }
    out_ += '\n';
}

void JsonView::Show(const Note& note) {
    {
        Object object(out_);
        object.Text("type", "note");
        object.Count("run", run_);
        object.TimeOrNull("time", note.at);
        object.Text("kind", JsonNoteKind(note.kind));
        note.kind == Note::Kind::Silence ? object.Null("text") : object.Text("text", note.text);
        note.kind == Note::Kind::Silence ? object.Tenths("silent_ms", note.silentMs)
                                         : object.Null("silent_ms");
        note.line != 0 ? object.Count("line", note.line) : object.Null("line");
    }
    out_ += '\n';
}

void JsonView::End(const RunEnd& end) {
    {
        Object object(out_);
        object.Text("type", "end");
        object.Count("run", run_);
        object.Text("how", JsonHow(end.how));
        object.TextOrNull("message", end.message);
        object.Text("verdict", VerdictWord(end.verdict));
        object.Name("commands");
        AddCommands(out_, end);
        object.Name("doubts");
        List(out_, end.doubts, [&](const Doubt& doubt) { AddDoubt(out_, doubt); });
        object.Name("reasons");
        List(out_, end.reasons, [&](const std::string& reason) { object.Quote(reason); });
        object.Name("slow");
        List(out_, end.slow, [&](const Slow& slow) { AddSlow(out_, slow); });
        object.Count("slow_count", end.slowCount);
        object.Name("time_ms");
        AddShares(out_, end.shares);
        object.Name("frames");
        AddFrames(out_, end);
        object.TextOrNull("family", FamilyWord(end));
        const bool hasId = end.family == ProtocolFormatting_Ocelot;
        hasId ? object.Count("network_id", unsigned{end.networkId}) : object.Null("network_id");
    }
    out_ += '\n';
}

void JsonView::Show(const Junk& junk) {
    {
        Object object(out_);
        object.Text("type", "junk");
        object.Count("line", junk.line);
        object.Count("lines", junk.lines);
        object.Count("bytes", junk.bytes);
    }
    out_ += '\n';
}

}  // namespace trace
