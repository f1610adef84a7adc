// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "man/Codes.h"

#include "companion/explain/Catalogue.h"
#include "companion/explain/Groups.h"
#include "companion/explain/Template.h"
#include "companion/explain/Text.h"
#include "man/Mdoc.h"

namespace manual {

namespace {

using explain::Entry;
using explain::Groups;

// "Error code 1. Exit code 2.", of what its name does not tell.
std::string NumbersOf(const Entry& entry) {
    const bool isMessage =
        entry.kind == explain::Kind::Message || entry.kind == explain::Kind::RunMessage;
    const std::string code = isMessage ? explain::CodeText(entry) : "";
    const std::string exits =
        entry.kind == explain::Kind::ExitCode ? "" : explain::ExitCodesText(entry);
    return (code.empty() ? "" : "Error code " + code + ". ") +
           (exits.empty() ? "" : "Exit code " + exits + ". ");
}

std::string AnswersOf(const Entry& entry, const Groups& groups) {
    return "Paper moved: " + explain::WordFor(entry.answers->paper) +
           "; safe to repeat: " + explain::WordFor(entry.answers->repeat) + " (" +
           explain::LetterOf(entry.answers, groups) + ").";
}

std::string NameOf(const Entry& entry) {
    const std::string text = explain::Shown(entry.text);
    const bool isCode =
        entry.kind == explain::Kind::ExitCode || entry.kind == explain::Kind::ErrorCode;
    return isCode ? explain::CodeText(entry) + ": " + text : text;
}

std::string ItemOf(const Entry& entry, const Groups& groups) {
    return ".It Sy " + Argument(NameOf(entry)) + "\n" +
           Prose(NumbersOf(entry) + std::string(entry.happened)) + ".br\n" +
           Prose("What to do: " + std::string(entry.remedy)) + ".br\n" +
           Prose(AnswersOf(entry, groups));
}

}  // namespace

std::string CodesOf(std::string_view kind) {
    const Groups groups = explain::AllGroups();
    std::string items;
    for (const explain::Kind one : explain::allKinds) {
        if (explain::NameOf(one) != kind) continue;
        for (const Entry& entry : explain::EntriesOf(one)) items += ItemOf(entry, groups);
    }
    return items.empty() ? "" : ".Bl -tag -width Ds\n" + items + ".El\n";
}

std::string SharedAnswers() {
    const Groups groups = explain::AllGroups();
    std::string list = ".Bl -tag -width Ds\n";
    for (const explain::Answers* answers : groups) {
        list += ".It Sy " + Argument(explain::LetterOf(answers, groups)) + "\n";
        list += Prose("Paper moved? " + std::string(answers->paper.text)) + ".br\n";
        list += Prose("Safe to repeat? " + std::string(answers->repeat.text));
    }
    return list + ".El\n";
}

}  // namespace manual
