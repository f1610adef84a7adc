// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "man/Page.h"

#include <algorithm>
#include <cctype>
#include <sstream>
#include <vector>

#include "ctl/Commands.h"
#include "man/Codes.h"
#include "man/Keys.h"
#include "man/Mdoc.h"
#include "man/Network.h"
#include "man/Options.h"

namespace manual {

namespace {

// --- what stands for a line ----------------------------------------------------------------------

std::string Capitals(std::string text) {
    for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return text;
}

std::string Head(const std::string& argument, const Edition& edition) {
    return ".Dd " + edition.date + "\n.Dt " + Capitals(argument) + "\n.Os voltis " +
           edition.version + "\n";
}

CommandWords CommandNamed(const std::string& name) {
    for (const CommandWords& command : CommandLineWords())
        if (command.name == name) return command;
    throw TemplateError("there is no sub-command '" + name + "'");
}

std::string Summary(const std::string& name, const Edition&) {
    std::string text = CommandNamed(name).description;
    text.front() = static_cast<char>(std::tolower(static_cast<unsigned char>(text.front())));
    return ".Nd " + text + "\n";
}

std::string SynopsisOf(const std::string& name, const Edition&) {
    return Synopsis(CommandNamed(name));
}

std::string OptionsOf(const std::string& name, const Edition&) {
    return OptionList(CommandNamed(name));
}

std::string ExampleOf(const std::string& name, const Edition&) {
    return ".Dl " + Argument(CommandNamed(name).example) + "\n";
}

std::string Commands(const std::string&, const Edition&) {
    std::vector<CommandWords> all = CommandLineWords();
    all.erase(all.begin());  // voltisctl itself
    return CommandList(all);
}

std::string Keys(const std::string& whose, const Edition&) {
    if (whose == "driver") return DriverKeys();
    if (whose == "site") return SiteKeys();
    if (whose == "service") return ServiceKeys();
    throw TemplateError("keys are of 'driver', 'site' or 'service'");
}

std::string Codes(const std::string& kind, const Edition&) {
    std::string list = CodesOf(kind);
    if (list.empty()) throw TemplateError("the catalogue has no '" + kind + "'");
    return list;
}

std::string Answers(const std::string&, const Edition&) {
    return SharedAnswers();
}

std::string Routes(const std::string&, const Edition&) {
    return ServiceRoutes();
}

std::string Problems(const std::string&, const Edition&) {
    return ServiceProblems();
}

struct Row {
    std::string_view word;
    std::string (*text)(const std::string& argument, const Edition& edition);
};

// A new word is a row here and a line in the header.
constexpr Row rows[] = {
    {"HEAD", Head},         {"SUMMARY", Summary},   {"SYNOPSIS", SynopsisOf},
    {"OPTIONS", OptionsOf}, {"EXAMPLE", ExampleOf}, {"COMMANDS", Commands},
    {"KEYS", Keys},         {"CODES", Codes},       {"ANSWERS", Answers},
    {"ROUTES", Routes},     {"PROBLEMS", Problems},
};

// --- lines ---------------------------------------------------------------------------------------

std::string TextFor(std::string_view line, const Edition& edition) {
    if (line.size() < 2 || line.back() != '@') throw TemplateError("the line does not end with @");
    line = line.substr(1, line.size() - 2);
    const std::size_t blank = std::min(line.find(' '), line.size());
    const auto* const row = std::ranges::find(rows, line.substr(0, blank), &Row::word);
    if (row == std::end(rows)) throw TemplateError("there is no '" + std::string(line) + "'");
    return row->text(std::string(line.substr(std::min(blank + 1, line.size()))), edition);
}

}  // namespace

std::string Page(std::string_view text, const Edition& edition) {
    std::istringstream lines{std::string(text)};
    std::string page;
    int number = 1;
    for (std::string line; std::getline(lines, line); ++number) {
        try {
            page += line.starts_with('@') ? TextFor(line, edition) : line + "\n";
        } catch (const TemplateError& wrong) {
            throw TemplateError(std::to_string(number) + ": " + wrong.what());
        }
    }
    return page;
}

}  // namespace manual
