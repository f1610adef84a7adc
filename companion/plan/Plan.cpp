// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/plan/Plan.h"

#include <memory>

#include "DriverException.h"
#include "FiscalCommand.h"
#include "FiscalCommandFile.h"
#include "FiscalCommandProcessor.h"
#include "Globals.h"
#include "ProcessorInternal.h"
#include "companion/plan/Recorder.h"

namespace plan {

namespace {

/// Runs the action; false when the driver finds a mistake.
template <typename Action>
bool GoesWell(Action action) {
    try {
        action();
        return true;
    } catch (DriverException* caught) {
        const std::unique_ptr<DriverException> mistake(caught);
        return false;
    }
}

std::string TitleOf(FiscalCommand command) {
    for (const char* const name : {"NAME", "TEXT"}) {
        if (command.ParameterExists(name)) return command.GetParameter(name);
    }
    return command.GetCommand();
}

void Record(const std::string& line) {
    FiscalCommand command(line);
    Execute(command);
}

// A pause is only waited for, and what shows a total pauses, too.
bool Send(const FiscalCommand& command) {
    const std::string name = command.GetCommand();
    if (name == "PAUSE") return true;
    if (name == "SHOW_TOTAL" || name == "SHOW_SUBTOTAL") {
        for (const char* const line : {"DISPLAY_ON", "TOTAL", "DISPLAY_OFF"}) Record(line);
        return true;
    }
    return GoesWell([&] {
        FiscalCommand copy = command;
        Execute(copy);
    });
}

// Where the command stands decides what CONTINUE may do, and it sends nothing.
bool OnlyMarks(const FiscalCommand& command) {
    const std::string name = command.GetCommand();
    return name == "CONTINUE" || name == "CONTINUE_MANUALLY" || name == "EXIT";
}

std::vector<std::uint8_t> BytesOf(const BUF& payload) {
    std::vector<std::uint8_t> bytes(payload.GetSize());
    if (bytes.empty()) return bytes;  // CopyTo wants a place
    payload.CopyTo(bytes.data(), static_cast<unsigned>(bytes.size()));
    return bytes;
}

void Add(const FiscalCommand& command, int line, std::vector<Command>& all) {
    if (OnlyMarks(command)) return;
    const bool well = Send(command);
    std::vector<Note> notes = TakeNotes();
    if (!well && notes.empty()) notes.emplace_back();
    for (const Note& note : notes)
        all.push_back({note.code, line, TitleOf(command), BytesOf(note.payload)});
}

}  // namespace

std::vector<Command> CommandsOf(const std::string& commandFile,
                                std::optional<std::uint8_t> protocol, const std::string& codePage) {
    BeModel(protocol);
    GoesWell([&] { SelectCodePage(codePage); });
    State = STATE_EXECUTE;
    std::vector<Command> all;
    GoesWell([&] {
        const FiscalCommandFile file(commandFile);
        for (int i = 0; i < file.GetCommandCount(); ++i)
            Add(file.GetCommand(i), file.GetCommandLineNumber(i), all);
    });
    return all;
}

}  // namespace plan
