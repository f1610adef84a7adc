// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/explain/Text.h"

#include <cstddef>
#include <iterator>
#include <vector>

#include "companion/explain/Search.h"
#include "companion/explain/Template.h"

namespace explain {

namespace {

constexpr std::size_t width = 80;

struct KindRow {
    Kind kind;
    const char* name;
    const char* title;
    const char* heading;
};

constexpr KindRow kinds[] = {
    {Kind::ExitCode, "exit-code", "exit code", "Exit codes"},
    {Kind::Verdict, "verdict", "verdict", "Verdicts of voltisctl run"},
    {Kind::ErrorCode, "error-code", "error code", "Error codes"},
    {Kind::Message, "message", "message", "Messages of the driver"},
    {Kind::RunMessage, "run-message", "message of voltisctl run", "Messages of voltisctl run"},
    {Kind::Note, "note", "note in the logs", "Notes in the driver's logs"},
};

constexpr bool AreInOrder() {
    for (std::size_t i = 0; i < std::size(kinds); ++i)
        if (kinds[i].kind != static_cast<Kind>(i)) return false;
    return true;
}
static_assert(AreInOrder());

const KindRow& RowOf(Kind kind) {
    return kinds[static_cast<std::size_t>(kind)];
}

struct ExitBit {
    unsigned bit;
    const char* code;
};

constexpr ExitBit exitBits[] = {{exit0, "0"}, {exit1, "1"}, {exit2, "2"}, {exit101, "101"}};

std::string Field(std::string_view name, std::string_view text) {
    constexpr std::size_t indent = 20;
    if (text.empty()) return "";
    std::string line = "  " + std::string(name);
    line.resize(indent, ' ');
    return line + Folded(text, indent, indent) + "\n";
}

std::string ListLine(const Entry& entry) {
    constexpr std::size_t indent = 11;
    const std::string code = CodeText(entry);
    const std::size_t blanks = indent - 2 - code.size();
    return std::string(blanks, ' ') + code + "  " + Folded(Shown(entry.text), indent, indent) +
           "\n";
}

}  // namespace

const char* NameOf(Kind kind) {
    return RowOf(kind).name;
}

const char* HeadingOf(Kind kind) {
    return RowOf(kind).heading;
}

const char* NameOf(Word word) {
    switch (word) {
        case Word::No:
            return "no";
        case Word::Yes:
            return "yes";
        case Word::Perhaps:
            return "perhaps";
        case Word::ByExitCode:
            return "by-exit-code";
    }
    return "";
}

std::string CodeText(const Entry& entry) {
    if (entry.code == noCode) return "";
    const std::string first = std::to_string(entry.code);
    return entry.last == noCode ? first : first + "-" + std::to_string(entry.last);
}

std::string ExitCodesText(const Entry& entry) {
    std::vector<std::string> codes;
    for (const ExitBit& row : exitBits)
        if ((entry.exits & row.bit) != 0) codes.emplace_back(row.code);
    std::string text;
    for (std::size_t i = 0; i < codes.size(); ++i) {
        if (i != 0) text += i + 1 == codes.size() ? " or " : ", ";
        text += codes[i];
    }
    return text;
}

std::string Folded(std::string_view text, std::size_t column, std::size_t indent) {
    std::string folded;
    for (std::size_t room = width - column; text.size() > room; room = width - indent) {
        std::size_t end = text.rfind(' ', room);
        if (end == std::string_view::npos || end == 0) end = text.find(' ', room);
        if (end == std::string_view::npos) break;
        folded += text.substr(0, end);
        folded += "\n" + std::string(indent, ' ');
        text.remove_prefix(end + 1);
    }
    return folded += text;
}

std::string TitleOf(const Entry& entry, int number) {
    std::string title = RowOf(entry.kind).title;
    const bool isCode = entry.kind == Kind::ExitCode || entry.kind == Kind::ErrorCode;
    if (isCode) title += " " + (number == noCode ? CodeText(entry) : std::to_string(number));
    return title + ": " + Shown(entry.text);
}

std::string Explanation(const Entry& entry, int number) {
    std::string text = Folded(TitleOf(entry, number), 0, 4) + "\n";
    const bool isMessage = entry.kind == Kind::Message || entry.kind == Kind::RunMessage;
    if (isMessage) text += Field("Error code", CodeText(entry));
    if (entry.kind != Kind::ExitCode) text += Field("Exit code", ExitCodesText(entry));
    text += Field("What happened", entry.happened);
    text += Field("Paper moved?", entry.answers->paper.text);
    text += Field("Safe to repeat?", entry.answers->repeat.text);
    text += Field("What to do", entry.remedy);
    const std::vector<const Entry*> messages = MessagesOf(entry);
    if (!messages.empty()) text += "  Its messages\n";
    for (const Entry* message : messages)
        text += "    " + Folded(Shown(message->text), 4, 6) + "\n";
    return text;
}

std::string Listing() {
    std::string text;
    for (const Kind kind : allKinds) {
        const bool messages = kind == Kind::Message || kind == Kind::RunMessage;
        text += (text.empty() ? "" : "\n") + std::string(HeadingOf(kind)) +
                (messages ? ", with their error codes\n" : "\n");
        for (const Entry& entry : EntriesOf(kind)) text += ListLine(entry);
    }
    return text;
}

}  // namespace explain
