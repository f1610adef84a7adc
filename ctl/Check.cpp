// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ctl/Check.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "companion/check/Check.h"
#include "ctl/Excerpt.h"
#include "ctl/JsonText.h"
#include "ctl/UsageError.h"

using check::Finding;
using check::Severity;

namespace {

constexpr int exitFindings = 1;

constexpr char checkFooter[] =
    "Mistakes are what the driver would end with, in its words and its order, but all of them. "
    "Warnings are what it accepts and does otherwise than its writer may think.\n"
    "Exit status: 0 no mistakes, 1 mistakes, 2 a wrong option or a file that cannot be read. "
    "Warnings do not change it.\n"
    "\nExample:\n  voltisctl check --model lynx sale.txt";

struct CheckOptions {
    std::vector<std::string> files;
    std::string model;
    int protocol = 0;
    std::string codePage = "RIM";
    std::string format = "text";
};

const char* WordFor(Severity severity) {
    return severity == Severity::Error ? "error" : "warning";
}

std::string Together(const std::vector<std::string>& words, const char* separator) {
    std::string text;
    for (const std::string& word : words) text += (text.empty() ? "" : separator) + word;
    return text;
}

// --- for people ----------------------------------------------------------------------------------

bool ColourIsWanted() {
    return isatty(STDOUT_FILENO) == 1 && getenv("NO_COLOR") == nullptr;
}

std::string Coloured(Severity severity) {
    if (!ColourIsWanted()) return WordFor(severity);
    const char* colour = severity == Severity::Error ? "\033[1;31m" : "\033[1;35m";
    return std::string(colour) + WordFor(severity) + "\033[0m";
}

std::string FindingAsText(const std::string& file, const Finding& finding) {
    std::string text = OnTerminal(file) + ":" + std::to_string(finding.line) + ":" +
                       std::to_string(finding.column) + ": " + Coloured(finding.severity) + ": " +
                       OnTerminal(finding.message);
    if (finding.severity == Severity::Warning) text += " [" + finding.code + "]";
    text += "\n" + Excerpt(finding.text, finding.column);
    if (!finding.models.empty()) text += "  only: " + Together(finding.models, ", ") + "\n";
    return text;
}

// --- for programs --------------------------------------------------------------------------------

std::string JsonList(const std::vector<std::string>& words) {
    std::vector<std::string> quoted;
    quoted.reserve(words.size());
    for (const std::string& word : words) quoted.push_back(JsonString(word));
    return "[" + Together(quoted, ", ") + "]";
}

std::string FindingAsJson(const std::string& file, const Finding& finding) {
    return "{\"file\": " + JsonString(file) + ", \"line\": " + std::to_string(finding.line) +
           ", \"column\": " + std::to_string(finding.column) + ", \"severity\": \"" +
           WordFor(finding.severity) + "\", \"code\": " + JsonString(finding.code) +
           ", \"message\": " + JsonString(finding.message) +
           ", \"models\": " + JsonList(finding.models) + "}\n";
}

// In a workflow command a property ends at a comma, and a command at its line's end.
std::string GithubEscaped(const std::string& text, const std::string& special) {
    std::string escaped;
    for (const std::string& cell : CellsOf(text)) {
        if (special.find(cell) == std::string::npos) {
            escaped += cell;
        } else {
            char code[4] = "";
            std::snprintf(code, sizeof code, "%%%02X", static_cast<unsigned>(cell[0]));
            escaped += code;
        }
    }
    return escaped;
}

std::string FindingAsGithub(const std::string& file, const Finding& finding) {
    const std::string models =
        finding.models.empty() ? "" : " (only: " + Together(finding.models, ", ") + ")";
    return std::string("::") + WordFor(finding.severity) + " file=" + GithubEscaped(file, "%:,") +
           ",line=" + std::to_string(finding.line) + ",col=" + std::to_string(finding.column) +
           "::" + GithubEscaped(finding.message + models, "%") + "\n";
}

struct FormatRow {
    const char* name;
    std::string (*write)(const std::string& file, const Finding& finding);
};
constexpr FormatRow formats[] = {
    {"text", FindingAsText}, {"json", FindingAsJson}, {"github", FindingAsGithub}};

const FormatRow& FormatOf(const std::string& name) {
    return *std::ranges::find_if(formats, [&](const FormatRow& row) { return row.name == name; });
}

// --- the whole -----------------------------------------------------------------------------------

check::Question QuestionOf(const CheckOptions& options) {
    check::Question question;
    question.models = check::ModelsOf(options.model, options.protocol);
    question.codePage = options.codePage;
    if (question.models.empty()) {
        throw UsageError(options.model + " has no fiscal protocol version " +
                         std::to_string(options.protocol));
    }
    return question;
}

std::string Counted(long count, const char* what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

int Check(const CheckOptions& options) {
    const check::Question question = QuestionOf(options);
    const auto write = FormatOf(options.format).write;
    check::Count all;
    bool unreadable = false;
    for (const std::string& file : options.files) {
        try {
            const check::Count count = check::CheckFile(
                file, question, [&](const Finding& finding) { std::cout << write(file, finding); });
            all.errors += count.errors;
            all.warnings += count.warnings;
        } catch (const check::FileError& failure) {
            std::cout << std::flush;
            std::cerr << "voltisctl: " << failure.what() << '\n';
            unreadable = true;
        }
    }
    if (options.format == "text" && all.errors + all.warnings != 0)
        std::cout << Counted(all.errors, "error") << ", " << Counted(all.warnings, "warning")
                  << '\n';
    std::cout << std::flush;
    if (unreadable) return exitUsage;
    return all.errors == 0 ? 0 : exitFindings;
}

std::vector<std::string> CheckModelNames() {
    std::vector<std::string> names;
    for (const check::Model& model : check::AllModels()) {
        if (std::ranges::find(names, model.name) == names.end()) names.push_back(model.name);
    }
    return names;
}

}  // namespace

std::function<int()> BindCheck(CLI::App& command) {
    const auto options = std::make_shared<CheckOptions>();
    command.add_option("FILE", options->files, "Command files; - is standard input")
        ->required()
        ->type_name("");
    command.add_option("--model", options->model, "Only for this model (default: all)")
        ->check(CLI::IsMember(CheckModelNames()));
    command
        .add_option("--protocol", options->protocol,
                    "Only for this protocol version (default: all)")
        ->check(CLI::IsMember({1, 2}));
    command.add_option("--code-page", options->codePage, "The driver's CodePage, for the warnings")
        ->check(CLI::IsMember({"RIM", "DOS", "TILDE"}))
        ->capture_default_str();
    command.add_option("--format", options->format, "How to tell what was found")
        ->check(CLI::IsMember({"text", "json", "github"}))
        ->capture_default_str();
    command.footer(checkFooter);
    return [options] { return Check(*options); };
}
