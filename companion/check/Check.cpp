// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/check/Check.h"

#include <algorithm>
#include <iterator>
#include <memory>
#include <optional>
#include <utility>

#include "DriverException.h"
#include "FiscalCommand.h"
#include "FiscalCommandProcessor.h"
#include "Globals.h"
#include "ProcessorInternal.h"
#include "companion/check/Layout.h"
#include "companion/check/Places.h"
#include "companion/check/Surprises.h"
#include "companion/plan/Recorder.h"

namespace check {

namespace {

template <typename Action>
std::unique_ptr<DriverException> MistakeOf(Action action) {
    try {
        action();
        return nullptr;
    } catch (DriverException* caught) {
        return std::unique_ptr<DriverException>(caught);
    }
}

std::optional<FiscalCommand> Parsed(const Line& line) {
    std::optional<FiscalCommand> command;
    MistakeOf([&] { command.emplace(line.text); });
    return command;
}

bool SendsNothing(const std::string& name) {
    return name == "PAUSE" || name == "EXIT" || name == "GET_STATUS";
}

bool DependsOnPlace(const std::string& name) {
    return name == "CONTINUE" || name == "CONTINUE_MANUALLY" || name == "EXIT";
}

// What must be known of the whole file before the check pass.
struct Outline {
    int commands = 0;  // those with mistakes included
    std::string first;
    std::string last;
    int sending = 0;          // between the first and the last
    int lastSendingLine = 0;  // of these

    bool IsExitAlone() const { return commands == 1 && first == "EXIT"; }
    bool HasLoneCommand() const {
        return sending == 1 && first == "CONTINUE" && last == "CONTINUE";
    }
    void Add(const std::string& name, int line) {
        if (commands++ == 0) first = name;
        last = name;
        if (name == "CONTINUE" || SendsNothing(name)) return;
        ++sending;
        lastSendingLine = line;
    }
};

// A mistake or a surprise in a line, and the models that have it.
struct Found {
    Severity severity;
    std::size_t at;
    std::string code;
    std::string message;
    std::vector<Model> models;

    bool Is(const Found& other) const {
        return code == other.code && message == other.message && at == other.at;
    }
};

class Checking {
  public:
    Checking(const std::string& fileName, const Question& question,
             const std::function<void(const Finding&)>& listener)
        : lines_(fileName), question_(question), listener_(listener) {}

    Count Run() {
        State = STATE_SYNCHECK;
        ReadAll();
        lines_.GoTo(plainUpTo_);
        CheckAll();
        return count_;
    }

  private:
    // Only commands; spoilt_ keeps the pieces of a long line from counting as mistakes of their
    // own.
    bool NextCommand() {
        while (lines_.Next(line_)) {
            if (!line_.pieceOf) spoilt_ = false;
            if (line_.IsCommand()) return true;
            if (plain_) plainUpTo_ = lines_.Here();
        }
        return false;
    }

    void ReadAll() {
        while (NextCommand()) {
            std::optional<FiscalCommand> command;
            const auto mistake = MistakeOf([&] { command.emplace(line_.text); });
            outline_.Add(command ? command->GetCommand() : "", line_.number);
            if (mistake) {
                const std::size_t at = LayoutOf(line_.text).brokenAt.value_or(0);
                Tell({Severity::Error, at, "syntax", mistake->Message, question_.models});
            }
            GoOnPlainly(command);
        }
    }

    // Up to the first line that there is more to say about, once is enough to look at a line.
    void GoOnPlainly(std::optional<FiscalCommand>& command) {
        plain_ = plain_ && command && !DependsOnPlace(command->GetCommand());
        if (!plain_) return;
        Examine(*command);
        plain_ = found_.empty();
        found_.clear();
        if (!plain_) return;
        plainUpTo_ = lines_.Here();
        plainCommands_ = outline_.commands;
    }

    void CheckAll() {
        spoilt_ = false;
        plain_ = false;
        for (int index = plainCommands_; NextCommand(); ++index) {
            commandNumber = index;
            commandCount = outline_.commands;
            CheckLine();
        }
    }

    void CheckLine() {
        std::optional<FiscalCommand> command = Parsed(line_);
        if (!command) spoilt_ = true;  // which has been told
        if (!command || outline_.IsExitAlone()) {
            NoteAll(OfLine(line_), question_.models);
        } else {
            Examine(*command);
            if (outline_.HasLoneCommand() && line_.number == outline_.lastSendingLine)
                NoteAll({OfLoneCommand(line_.text)}, question_.models);
        }
        TellFound();
    }

    // Leaves the command without its parameters.
    void Examine(FiscalCommand& command) {
        NoteAll(OfLine(line_), question_.models);
        if (MaySurprise(command, line_.text)) return ExamineClosely(command);
        for (const Model& model : question_.models) {
            if (&model == &question_.models.back()) {
                Try(command, model);
            } else {
                FiscalCommand copy = command;
                Try(copy, model);
            }
        }
    }

    void ExamineClosely(FiscalCommand& command) {
        std::vector<Model> accepting;
        for (const Model& model : question_.models) {
            FiscalCommand copy = command;
            if (!Try(copy, model)) continue;
            accepting.push_back(model);
            NoteAll(OfModel(command, line_.text), {model});
        }
        if (accepting.empty()) return;
        plan::BeModel(accepting.front().protocol);
        NoteAll(OfCommand(command, line_.text, question_.codePage), accepting);
    }

    // The check pass of one command, which is then without the parameters that were looked at.
    bool Try(FiscalCommand& command, const Model& model) {
        plan::BeModel(model.protocol);
        const auto mistake = MistakeOf([&] { Execute(command); });
        if (!mistake) return true;
        const std::size_t at = PlaceOf(mistake->Message, command, line_.text);
        Note({Severity::Error, at, "command", mistake->Message, {model}});
        return false;
    }

    void NoteAll(const Surprises& surprises, const std::vector<Model>& models) {
        for (const Surprise& surprise : surprises)
            Note({Severity::Warning, surprise.at, surprise.code, surprise.message, models});
    }

    void Note(Found found) {
        const auto same =
            std::ranges::find_if(found_, [&](const Found& other) { return other.Is(found); });
        if (same == found_.end()) {
            found_.push_back(std::move(found));
        } else {
            std::ranges::move(found.models, std::back_inserter(same->models));
        }
    }

    void TellFound() {
        if (found_.empty()) return;
        std::ranges::stable_sort(found_, {}, &Found::severity);  // errors first
        for (const Found& found : std::exchange(found_, {})) Tell(found);
    }

    void Tell(const Found& found) {
        const bool isError = found.severity == Severity::Error;
        if (isError && line_.pieceOf && spoilt_) return;
        spoilt_ = spoilt_ || isError;
        ++(isError ? count_.errors : count_.warnings);
        listener_({found.severity, line_.number, static_cast<int>(found.at) + 1, found.code,
                   found.message, TrimRight(line_.text, "\r\n"),
                   NamesOf(found.models, question_.models)});
    }

    Lines lines_;
    const Question& question_;
    const std::function<void(const Finding&)>& listener_;
    Line line_;
    bool spoilt_ = false;
    Outline outline_;
    bool plain_ = true;         // while reading: nothing to say up to here but about this reading
    Lines::Mark plainUpTo_;     // where the check pass begins
    int plainCommands_ = 0;     // before that
    std::vector<Found> found_;  // in the line at hand
    Count count_;
};

}  // namespace

Count CheckFile(const std::string& fileName, const Question& question,
                const std::function<void(const Finding&)>& listener) {
    return Checking(fileName, question, listener).Run();
}

}  // namespace check
