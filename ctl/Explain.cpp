// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ctl/Explain.h"

#include <fstream>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "companion/explain/Catalogue.h"
#include "companion/explain/Page.h"
#include "companion/explain/Search.h"
#include "companion/explain/Template.h"
#include "companion/explain/Text.h"

namespace {

using explain::Entry;
using ExplainJson = nlohmann::ordered_json;

constexpr int exitNothingFound = 1;

constexpr char explainFooter[] =
    "CODE is an exit code or an error code. TEXT is a message as a result file or a\n"
    "log has it, or some words of one. Without either, everything is listed.\n"
    "The exit code is 0; 1 when there is no such code or message.\n"
    "\nExample:\n"
    "  voltisctl explain \"Wrong number format (line: 2)\"";

struct ExplainOptions {
    std::vector<std::string> words;
    std::string page;
    bool json = false;
};

std::string QueryOf(const ExplainOptions& options) {
    std::string query;
    for (const std::string& word : options.words) query += (query.empty() ? "" : " ") + word;
    return query;
}

// --- text ----------------------------------------------------------------------------------------

void PrintFound(const explain::Found& found, int number) {
    for (const Entry* entry : found.entries) {
        if (entry != found.entries.front()) std::cout << '\n';
        std::cout << explain::Explanation(*entry, number);
    }
}

void PrintNearest(const explain::Found& found, const std::string& query) {
    std::cerr << "voltisctl: there is no code or message '" << query << "'\n";
    if (found.nearest.empty()) std::cerr << "`voltisctl explain` lists all.\n";
    if (!found.nearest.empty()) std::cerr << "The nearest are:\n";
    for (const Entry* entry : found.nearest)
        std::cerr << "  " << explain::Folded(explain::TitleOf(*entry), 2, 4) << '\n';
}

// --- JSON ----------------------------------------------------------------------------------------

ExplainJson NumberOrNothing(int number) {
    return number == explain::noCode ? ExplainJson() : ExplainJson(number);
}

ExplainJson ExitCodesOf(const Entry& entry) {
    constexpr std::pair<unsigned, int> bits[] = {
        {explain::exit0, 0}, {explain::exit1, 1}, {explain::exit2, 2}, {explain::exit101, 101}};
    ExplainJson codes = ExplainJson::array();
    for (const auto& [bit, code] : bits)
        if ((entry.exits & bit) != 0) codes.push_back(code);
    return codes;
}

ExplainJson AnswerJson(const explain::Answer& answer) {
    return {{"answer", explain::NameOf(answer.word)}, {"text", answer.text}};
}

ExplainJson EntryJson(const Entry& entry) {
    return {{"kind", explain::NameOf(entry.kind)},
            {"code", NumberOrNothing(entry.code)},
            {"last_code", NumberOrNothing(entry.last)},
            {"text", explain::Shown(entry.text)},
            {"exit_codes", ExitCodesOf(entry)},
            {"what_happened", entry.happened},
            {"may_paper_have_moved", AnswerJson(entry.answers->paper)},
            {"is_repeating_safe", AnswerJson(entry.answers->repeat)},
            {"what_to_do", entry.remedy}};
}

ExplainJson EntriesJson(const std::vector<const Entry*>& entries) {
    ExplainJson all = ExplainJson::array();
    for (const Entry* entry : entries) all.push_back(EntryJson(*entry));
    return all;
}

// What is asked may be any bytes.
void PrintExplainJson(const ExplainJson& query, const explain::Found& found) {
    const ExplainJson json = {{"query", query},
                              {"entries", EntriesJson(found.entries)},
                              {"nearest", EntriesJson(found.nearest)}};
    std::cout << json.dump(2, ' ', false, ExplainJson::error_handler_t::replace) << '\n';
}

// -------------------------------------------------------------------------------------------------

int WritePage(const std::string& file) {
    std::ofstream out(file, std::ios::binary);
    out << explain::Page() << std::flush;
    if (!out) throw std::runtime_error("cannot write '" + file + "'");
    return 0;
}

int ListAll(bool json) {
    if (!json) {
        std::cout << explain::Listing();
        return 0;
    }
    explain::Found all;
    for (const explain::Kind kind : explain::allKinds)
        for (const Entry& entry : explain::EntriesOf(kind)) all.entries.push_back(&entry);
    PrintExplainJson({}, all);
    return 0;
}

int Explain(const ExplainOptions& options) {
    if (!options.page.empty()) return WritePage(options.page);
    const std::string query = QueryOf(options);
    if (query.empty()) return ListAll(options.json);
    const explain::Found found = explain::Find(query);
    if (options.json) {
        PrintExplainJson(query, found);
    } else if (found.entries.empty()) {
        PrintNearest(found, query);
    } else {
        PrintFound(found, explain::NumberIn(query));
    }
    return found.entries.empty() ? exitNothingFound : 0;
}

}  // namespace

std::function<int()> BindExplain(CLI::App& command) {
    const auto options = std::make_shared<ExplainOptions>();
    command.add_option("CODE|TEXT", options->words, "What to explain; nothing: list everything")
        ->type_name("");
    command.add_flag("--json", options->json, "Print one JSON object");
    command.add_option("--write-page", options->page)->group("");  // docs/errors.md
    command.footer(explainFooter);
    return [options] { return Explain(*options); };
}
