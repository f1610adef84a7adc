// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/explain/Page.h"

#include <string_view>

#include "companion/explain/Catalogue.h"
#include "companion/explain/Groups.h"
#include "companion/explain/Template.h"
#include "companion/explain/Text.h"

namespace explain {

namespace {

constexpr char head[] =
    "# Exit codes, verdicts, error codes, messages\n"
    "\n"
    "<!-- Written by `voltisctl explain --write-page docs/errors.md` from companion/explain/. -->\n"
    "\n"
    "What each code and message means, whether paper may have moved, whether the same file may be "
    "run\nagain, and what to do. The same is told by `voltisctl explain CODE` and `voltisctl "
    "explain TEXT`,\nwhere TEXT is a message as it is in a result file or a log.\n"
    "\n"
    "Capital letters and dots in a message stand for what varies in it. When a line of the file is "
    "to blame,\nthe message ends with it: `Wrong number format (line: 2)`. A mistake in the way a "
    "line is written also\nnames the file: `Missing ':' after fiscal command (file : "
    "'/pos/sale.txt' line : 3)`.\n"
    "\n"
    "The last column answers two questions: may paper have moved, and is repeating safe? The "
    "letter leads to\nthe [whole answers](#paper-and-repeating).\n";

constexpr char answersHead[] =
    "\n## Paper and repeating\n"
    "\n"
    "| | May paper have moved? | Is repeating safe? |\n"
    "|---|---|---|\n";

constexpr char messageColumns[] =
    "| Message | Error code | Exit code | What happened | What to do | Paper, repeat |\n"
    "|---|---|---|---|---|---|\n";

constexpr char codeColumns[] =
    "| Error code | Message | Exit code | What happened | What to do | Paper, repeat |\n"
    "|---|---|---|---|---|---|\n";

// In the order of Kind.
constexpr const char* columns[] = {
    "| Exit code | | What happened | What to do | Paper, repeat |\n|---|---|---|---|---|\n",
    "| Verdict | Exit code | What happened | What to do | Paper, repeat |\n|---|---|---|---|---|\n",
    codeColumns,
    messageColumns,
    messageColumns,
    "| Note | What it says | What to do | Paper, repeat |\n|---|---|---|---|\n",
};

// A bar would end the cell.
std::string Escaped(std::string_view text) {
    std::string escaped;
    for (const char letter : text) {
        if (letter == '|') escaped += '\\';
        escaped += letter;
    }
    return escaped;
}

// Of other pages as links.
std::string Prose(std::string_view text) {
    constexpr std::string_view folder = "docs/";
    std::string prose = Escaped(text);
    for (std::size_t at = 0; (at = prose.find(folder, at)) != std::string::npos;) {
        const std::size_t end = prose.find(".md", at) + 3;
        const std::string page = prose.substr(at + folder.size(), end - at - folder.size());
        std::string link = "[" + page;
        link += "](" + page + ")";
        prose.replace(at, end - at, link);
        at += link.size();
    }
    return prose;
}

std::string Code(std::string_view text) {
    const std::string shown = Escaped(Shown(text));
    if (shown.find('`') == std::string::npos) return "`" + shown + "`";
    return "`` " + shown + " ``";
}

// A message is quoted, a description is not.
std::string TextOf(const Entry& entry) {
    const bool described = entry.text.front() >= 'a' && entry.text.front() <= 'z' &&
                           (entry.kind == Kind::ExitCode || entry.kind == Kind::ErrorCode);
    return described ? Prose(entry.text) : Code(entry.text);
}

std::string CellsBefore(const Entry& entry) {
    const std::string exits = ExitCodesText(entry);
    switch (entry.kind) {
        case Kind::ExitCode:
            return CodeText(entry) + " | " + TextOf(entry);
        case Kind::Verdict:
            return TextOf(entry) + " | " + exits;
        case Kind::ErrorCode:
            return CodeText(entry) + " | " + TextOf(entry) + " | " + exits;
        case Kind::Message:
        case Kind::RunMessage:
            return TextOf(entry) + " | " + CodeText(entry) + " | " + exits;
        case Kind::Note:
            break;
    }
    return TextOf(entry);
}

// "no, yes (B)".
std::string AnswersOf(const Entry& entry, const Groups& groups) {
    const std::string paper = WordFor(entry.answers->paper);
    const std::string repeat = WordFor(entry.answers->repeat);
    return (paper == repeat ? paper : paper + ", " + repeat) + " ([" +
           LetterOf(entry.answers, groups) + "](#paper-and-repeating))";
}

std::string RowOf(const Entry& entry, const Groups& groups) {
    return "| " + CellsBefore(entry) + " | " + Prose(entry.happened) + " | " + Prose(entry.remedy) +
           " | " + AnswersOf(entry, groups) + " |\n";
}

std::string TableOf(Kind kind, const Groups& groups) {
    std::string table = "\n## " + std::string(HeadingOf(kind)) + "\n\n";
    table += columns[static_cast<std::size_t>(kind)];
    for (const Entry& entry : EntriesOf(kind)) table += RowOf(entry, groups);
    return table;
}

}  // namespace

std::string Page() {
    const Groups groups = AllGroups();
    std::string page = head;
    for (const Kind kind : allKinds) page += TableOf(kind, groups);
    page += answersHead;
    for (const Answers* answers : groups) {
        page += "| **" + LetterOf(answers, groups) + "** | " + Prose(answers->paper.text) + " | " +
                Prose(answers->repeat.text) + " |\n";
    }
    return page;
}

}  // namespace explain
