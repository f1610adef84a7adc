// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Reading a command file: any bytes become either all commands of its lines, or the fault of the
// first line that has one, with its number.

#include <vector>

#include "Common.h"
#include "FiscalCommandFile.h"
#include "fuzz/InputFile.h"
#include "fuzz/Property.h"

namespace {

Tally tally("fuzz_command_file", "of them without a fault");

/// One read brings at most that many bytes; a longer line comes in pieces that count as lines.
constexpr std::size_t longestPiece = 1023;

std::vector<std::string> PiecesOf(const std::string& bytes) {
    std::vector<std::string> pieces;
    for (std::size_t at = 0; at < bytes.size();) {
        const std::size_t newline = bytes.find('\n', at);
        const std::size_t line = (newline == std::string::npos ? bytes.size() : newline + 1) - at;
        pieces.push_back(bytes.substr(at, std::min(line, longestPiece)));
        at += pieces.back().size();
    }
    return pieces;
}

/// What should become of a file.
struct Reading {
    std::string fault;
    std::vector<std::string> commands;
    std::vector<int> lines;
};

Reading Read(const InputFile& file, const std::string& bytes) {
    Reading reading;
    int line = 0;
    for (const std::string& piece : PiecesOf(bytes)) {
        ++line;
        const std::string text = Trim(piece, " \t\r\n");
        if (text.empty() || text[0] == '#') continue;
        const auto failure =
            FailureOf([&] { reading.commands.push_back(FiscalCommand(text).GetCommand()); });
        if (failure) {
            reading.fault = failure->Message + " (file : '" + file.Path() +
                            "' line : " + std::to_string(line) + ")";
            return reading;
        }
        reading.lines.push_back(line);
    }
    return reading;
}

void RequireSame(const FiscalCommandFile& file, const Reading& reading) {
    const int count = static_cast<int>(reading.commands.size());
    Require(file.GetCommandCount() == count, "the number of commands");
    for (int i = 0; i < count; ++i) {
        const auto at = static_cast<std::size_t>(i);
        RequireEqual(file.GetCommand(i).GetCommand(), reading.commands[at], "a command");
        Require(file.GetCommandLineNumber(i) == reading.lines[at], "a command's line");
    }
    for (int i : {-1, count}) {
        RequireInternalError(FailureOf([&] { file.GetCommand(i); }).get());
        RequireInternalError(FailureOf([&] { file.GetCommandLineNumber(i); }).get());
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const InputFile input;
    tally.Input();
    const std::string bytes = AsText(data, size);
    input.Hold(bytes);
    const Reading reading = Read(input, bytes);
    ResetGlobals();
    const auto failure = FailureOf([&] {
        const FiscalCommandFile file(input.Path());
        RequireSame(file, reading);
    });
    RequireEqual(failure ? failure->Message : "", reading.fault, "the fault that is found");
    if (failure) {
        RequireCommandFault(*failure);
    } else {
        tally.Count();
    }
    return 0;
}
