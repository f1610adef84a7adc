// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The manual pages: what is written by hand in them against the program, and all of them as a
// reader has them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "ProcessorInternal.h"
#include "companion/doctor/Keys.h"
#include "companion/explain/Catalogue.h"
#include "companion/explain/Template.h"
#include "companion/explain/Text.h"
#include "ctl/Commands.h"
#include "tests/companion/Tool.h"
#include "tests/support/Programs.h"
#include "tests/support/Regex.h"
#include "tests/support/TempDir.h"

using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

namespace paths = std::filesystem;

const std::string sourceTree = EXAMPLES_DIR "/..";

paths::path BuildFolder() {
    return paths::path(VoltisctlPath()).parent_path();
}

std::vector<paths::path> ManualPages() {
    std::vector<paths::path> all;
    for (const auto& entry : paths::recursive_directory_iterator(BuildFolder() / "man"))
        if (entry.is_regular_file() && entry.path().filename() != "mandoc.db")
            all.push_back(entry.path());
    std::sort(all.begin(), all.end());
    return all;
}

std::string SourceOf(const std::string& page) {
    const std::string section(1, page.back());
    return ReadWholeFile(BuildFolder() / ("man/man" + section) / page);
}

/// What a shell says to the command line; both streams, when that asks for it.
Answer ToldByShell(const std::string& line) {
    FILE* const said = popen(line.c_str(), "r");
    if (said == nullptr) return {-1, "not started"};
    std::string text;
    for (int c = 0; (c = std::fgetc(said)) != EOF;) text += static_cast<char>(c);
    const int status = pclose(said);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, text};
}

/// As a terminal shows it, without bold and underlined letters.
std::string Rendered(const paths::path& page) {
    const Answer shown = ToldByShell("mandoc -Tascii -O width=78 '" + page.string() + "'");
    EXPECT_EQ(shown.exitCode, 0) << page;
    std::string text;
    for (const char c : shown.text) {
        if (c == '\b')
            text.pop_back();
        else
            text += c;
    }
    return text;
}

std::string RenderedPage(const std::string& page) {
    return Rendered(BuildFolder() / ("man/man" + std::string(1, page.back())) / page);
}

/// With one blank between words, wherever the lines end.
std::string OneLine(const std::string& text) {
    std::istringstream in(text);
    std::string all;
    for (std::string word; in >> word;) all += (all.empty() ? "" : " ") + word;
    return all;
}

std::vector<std::string> LinesOfText(const std::string& text) {
    std::istringstream in(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

// --- parameters of commands ----------------------------------------------------------------------

/// "SALE, RETURN: DEPTNR: 1 to 99; required"
using Parameters = std::multiset<std::string>;

std::string Uncapitalised(std::string text) {
    if (text.size() > 1 && text[1] >= 'a' && text[1] <= 'z')
        text[0] = static_cast<char>(text[0] | 0x20);
    return text;
}

// Without links, code marks, and messages in parentheses.
std::string PlainCell(std::string text) {
    for (const char* marked : {R"( \(`[^`]*`\))", R"(\[([^\]]*)\]\([^)]*\))", "`"}) {
        const Regex mark(marked);
        while (const auto found = mark.Find(text))
            text.replace(text.find(found->front()), found->front().size(),
                         found->size() > 1 ? found->at(1) : "");
    }
    return text;
}

std::string LimitsText(const std::string& range, const std::string& value) {
    if (value.empty()) return range;
    return range + (value.starts_with("required") ? "; " : "; default ") + value;
}

Parameters ParametersOfTheDocument() {
    const Regex row(R"(^\| (`[A-Z]+`[^|]*) \| ([^|]*) \|( [^|]*)? \|$)");
    const Regex heading("^### ([A-Z_, ]+)$");
    Parameters all;
    std::string commands;
    for (const std::string& line :
         LinesOfText(ReadWholeFile(sourceTree + "/docs/command-language.md"))) {
        if (const auto found = heading.Match(line)) commands = found->at(1);
        if (const auto found = row.Match(line); found && !commands.empty())
            all.insert(commands + ": " + PlainCell(found->at(1)) + ": " +
                       LimitsText(PlainCell(found->at(2)), OneLine(PlainCell(found->at(3)))));
    }
    return all;
}

// ".It Cm MEDIA ; No without it , Cm NAME" is "MEDIA; without it, NAME".
std::string ItemName(std::string macros) {
    for (const auto& [macro, text] : {std::pair(" No ", " "), std::pair(", Cm ", ", "),
                                      std::pair(" ;", ";"), std::pair(" ,", ",")})
        for (std::size_t at = 0; (at = macros.find(macro)) != std::string::npos;)
            macros.replace(at, std::string_view(macro).size(), text);
    return macros;
}

Parameters ParametersOfThePage() {
    Parameters all;
    std::string commands, name, text;
    for (const std::string& line : LinesOfText(SourceOf("voltis-commands.5"))) {
        if (line.starts_with('.')) {
            if (!name.empty() && text.ends_with('.'))
                all.insert(commands + ": " + name + ": " +
                           Uncapitalised(text.substr(0, text.size() - 1)));
            name = line.starts_with(".It Cm ") ? ItemName(line.substr(7)) : "";
            if (line.starts_with(".Ss ")) commands = line.substr(4);
            if (line.starts_with(".Sh ")) commands.clear();
            text.clear();
        } else {
            text += (text.empty() ? "" : " ") + line;
        }
    }
    return all;
}

std::set<std::string> WordsInCapitals(const std::string& text) {
    std::set<std::string> words;
    for (const Regex::Found& word : Regex("[A-Z_]+").FindAll(text)) words.insert(word.at(0));
    return words;
}

// --- examples ------------------------------------------------------------------------------------

struct ShownCommand {
    std::string line;
    std::string output;
};

/// Of the literal blocks: what follows "$ ", and what is shown below it.
std::vector<ShownCommand> ShownCommands(const std::string& source) {
    std::vector<ShownCommand> shown;
    bool inside = false;
    for (const std::string& line : LinesOfText(source)) {
        if (line.starts_with('.')) inside = false;
        if (line.starts_with("$ ")) {
            shown.push_back({line.substr(2), ""});
            inside = true;
        } else if (inside) {
            shown.back().output += line + "\n";
        }
    }
    return shown;
}

std::string InFolder(const TempDir& folder, const std::string& line) {
    const std::string bin = BuildFolder().string();
    return "cd '" + folder.Path() + "' && PATH='" + bin + "':\"$PATH\" && " + line + " 2>&1";
}

/// The lines of ".Dl" that call voltisctl, as the words of each.
std::vector<Words> CallsOf(const std::string& page) {
    std::vector<Words> calls;
    const Regex call(R"(\n     +(?:eval "\$\()?voltisctl ([^>)\n]*))");
    for (const Regex::Found& found : call.FindAll(page)) {
        Words words;
        for (const Regex::Found& word : Regex(R"re("([^"]*)"|[^ "]+)re").FindAll(found.at(1)))
            words.push_back(word.at(1).empty() ? word.at(0) : word.at(1));
        calls.push_back(words);
    }
    return calls;
}

std::string ExamplesOf(const std::string& page) {
    const std::string text = RenderedPage(page);
    const std::size_t begin = text.find("\nEXAMPLES\n");
    return begin == std::string::npos ? "" : text.substr(begin, text.find("\nSEE ALSO\n") - begin);
}

}  // namespace

TEST(Manual, HasAPageForEachProgramAndEachSubCommand) {
    std::set<std::string> expected = {"voltis.1", "voltisctl.1", "voltis.ini.5",
                                      "voltis-commands.5", "voltis-errors.7"};
    for (const std::string& command : SubCommandsOfHelp())
        expected.insert("voltisctl-" + command + ".1");
    if (VOLTIS_SERVICE)
        expected.merge(std::set<std::string>{"voltisd.8", "voltisd.conf.5", "voltis-http.7"});
    std::set<std::string> pages;
    for (const paths::path& page : ManualPages()) pages.insert(page.filename());
    EXPECT_EQ(pages, expected);
}

// References to pages that do not exist are among what it finds.
TEST(Manual, PassesTheLintOfMandoc) {
    std::string line = "MANPATH='" + (BuildFolder() / "man").string() + "' mandoc -Tlint -Wstyle";
    for (const paths::path& page : ManualPages()) line += " '" + page.string() + "'";
    const Answer said = ToldByShell(line + " 2>/dev/null");
    EXPECT_EQ(said.text, "");
    EXPECT_LE(said.exitCode, 1);  // on standard error it misses an index of the folder
}

TEST(Manual, RefersToPagesThatExist) {
    int references = 0;
    for (const paths::path& page : ManualPages()) {
        const std::string text = ReadWholeFile(page);
        for (const Regex::Found& found : Regex(R"(Xr ([a-z.-]+) ([1-9]))").FindAll(text)) {
            EXPECT_NE(SourceOf(found[1] + "." + found[2]), "") << page << " " << found[0];
            ++references;
        }
    }
    EXPECT_GT(references, 80);
}

TEST(Manual, HasLinesOfEightyColumns) {
    for (const paths::path& page : ManualPages())
        for (const std::string& line : LinesOfText(Rendered(page)))
            EXPECT_LE(line.size(), 80U) << page << ": " << line;
}

TEST(Manual, EndsWithExamplesAndReferences) {
    for (const paths::path& page : ManualPages()) {
        const std::string text = Rendered(page);
        EXPECT_THAT(text, HasSubstr("\nSEE ALSO\n")) << page;
        if (page.filename() != "voltis-errors.7") {
            EXPECT_THAT(text, HasSubstr("\nEXAMPLES\n")) << page;
        }
    }
}

TEST(Manual, NamesEveryOptionOfEverySubCommandAndNoOther) {
    const Regex option("\n     (-[a-z], )?(--[a-z-]+)");
    for (const std::string& command : SubCommandsOfHelp()) {
        std::set<std::string> named;
        const std::string page = RenderedPage("voltisctl-" + command + ".1");
        for (const Regex::Found& found : option.FindAll(page)) {
            named.insert(found[2]);
            if (!found[1].empty()) named.insert(found[1].substr(0, 2));
        }
        EXPECT_EQ(named, OptionsOfHelp(command)) << command;
        EXPECT_THAT(page, HasSubstr("SYNOPSIS\n     voltisctl " + command)) << command;
    }
}

TEST(Manual, TellsWhatAnOptionTakesAndItsDefault) {
    EXPECT_THAT(OneLine(RenderedPage("voltisctl-check.1")),
                HasSubstr("--format FORMAT How to tell what was found. Values: `text', `json' or "
                          "`github'. Default: `text'."));
    EXPECT_THAT(OneLine(RenderedPage("voltisctl-resolve.1")),
                HasSubstr("voltisctl resolve [--number N] [--journal PATH] --as AS --note NOTE "
                          "[ID]"));
}

TEST(Manual, NamesEverySubCommandWithItsPage) {
    const std::string page = RenderedPage("voltisctl.1");
    for (const CommandWords& command : CommandLineWords()) {
        if (command.name == "voltisctl") continue;
        EXPECT_THAT(OneLine(page),
                    HasSubstr("voltisctl-" + command.name + "(1) " + command.description + "."));
    }
}

TEST(Manual, NamesEveryKeyWithItsDefault) {
    const std::string page = RenderedPage("voltis.ini.5");
    for (const doctor::Key& key : doctor::AllKeys()) {
        const std::string name(key.name);
        const auto item = Regex("\n     " + name + "(?:\n|  )([^]*?)\n\n").Find(page);
        ASSERT_TRUE(item) << name;
        std::string value = doctor::DefaultText(key);
        for (std::size_t at = 0; (at = value.find('`', at)) != std::string::npos; at += 2)
            value.replace(value.find('`', at + 1), 1, "'");
        EXPECT_THAT(OneLine(item->at(1)), EndsWith("Default: " + value + ".")) << name;
    }
}

TEST(Manual, NamesEveryCommandOfTheDriver) {
    std::set<std::string> named, known;
    const std::string page = SourceOf("voltis-commands.5");
    const std::size_t begin = page.find("\n.Sh COMMANDS\n");
    const std::string commands = page.substr(begin, page.find("\n.Sh ", begin + 1) - begin);
    for (const Regex::Found& heading : Regex("\n[.]Ss ([^\n]*)").FindAll(commands))
        named.merge(WordsInCapitals(heading[1]));
    for (const std::string_view name : KnownCommands()) known.emplace(name);
    EXPECT_EQ(named, known);
}

TEST(Manual, HasTheParametersOfTheCommandLanguage) {
    const Parameters parameters = ParametersOfTheDocument();
    EXPECT_GT(parameters.size(), 20U);
    EXPECT_EQ(ParametersOfThePage(), parameters);
}

TEST(Manual, HasTheParametersThatTheDriverExtracts) {
    std::set<std::string> extracted, named;
    for (const auto& entry : paths::directory_iterator(sourceTree + "/src")) {
        if (!entry.path().filename().string().ends_with(".cpp")) continue;
        const Regex call(R"re((?:ParameterExists|Extract\w+)\((?:cmd, )?"([A-Z]+)")re");
        for (const Regex::Found& found : call.FindAll(ReadWholeFile(entry.path())))
            extracted.insert(found[1]);
    }
    for (const std::string& parameter : ParametersOfThePage()) {
        const std::size_t name = parameter.find(": ") + 2;
        named.merge(WordsInCapitals(parameter.substr(name, parameter.find(": ", name) - name)));
    }
    EXPECT_EQ(named, extracted);
}

TEST(Manual, HasEveryEntryOfTheCatalogue) {
    const std::string page = OneLine(RenderedPage("voltis-errors.7"));
    int entries = 0;
    for (const explain::Kind kind : explain::allKinds) {
        for (const explain::Entry& entry : explain::EntriesOf(kind)) {
            const bool isCode = entry.code != explain::noCode && kind != explain::Kind::Message &&
                                kind != explain::Kind::RunMessage;
            const std::string name = (isCode ? explain::CodeText(entry) + ": " : "") +
                                     OneLine(explain::Shown(entry.text));
            EXPECT_THAT(page, HasSubstr(" " + name + " ")) << name;
            ++entries;
        }
    }
    EXPECT_GT(entries, 100);
}

TEST(Manual, ShowsRealOutput) {
    int commands = 0;
    for (const paths::path& page : ManualPages()) {
        const TempDir folder;
        folder.Write("lost-answer.log", ReadWholeFile(sourceTree + "/tests/logs/lost-answer.log"));
        for (const ShownCommand& shown : ShownCommands(ReadWholeFile(page))) {
            if (shown.line.starts_with("cat ")) {  // the file that the next lines use
                folder.Write(shown.line.substr(4), shown.output);
                continue;
            }
            std::string said = ToldByShell(InFolder(folder, shown.line)).text;
            while (said.ends_with("\n\n")) said.pop_back();
            EXPECT_EQ(said, shown.output) << page << ": " << shown.line;
            ++commands;
        }
    }
    EXPECT_GE(commands, 5);
}

TEST(Manual, HasOnlyExamplesThatVoltisctlAccepts) {
    for (const std::string& command : SubCommandsOfHelp()) {
        const std::vector<Words> calls = CallsOf(ExamplesOf("voltisctl-" + command + ".1"));
        EXPECT_THAT(calls, testing::Contains(testing::Contains(command))) << command;
        for (const Words& call : calls)
            EXPECT_EQ(MistakeIn(call), "") << testing::PrintToString(call);
    }
    for (const char* page : {"voltis.1", "voltisctl.1"}) {
        const std::vector<Words> calls = CallsOf(ExamplesOf(page));
        EXPECT_THAT(calls, testing::Not(IsEmpty())) << page;
        for (const Words& call : calls)
            EXPECT_EQ(MistakeIn(call), "") << testing::PrintToString(call);
    }
}

TEST(Manual, WouldFindAnExampleThatIsWrong) {
    EXPECT_THAT(MistakeIn({"check", "--no-such-option", "sale.txt"}), HasSubstr("no-such-option"));
    EXPECT_THAT(MistakeIn({"fly"}), HasSubstr("fly"));
    EXPECT_EQ(MistakeIn({}), "a sub-command is missing");
    EXPECT_EQ(CallsOf("\n      voltisctl run \"a b\" c > d\n"),
              (std::vector<Words>{{"run", "a b", "c"}}));
}

// --- how they are made ---------------------------------------------------------------------------

namespace {

/// voltis_manual on a page of one's own.
Answer MakePage(const TempDir& folder, const std::string& text, const std::string& variables = "") {
    const std::string page = folder.Write("page.1", text);
    return ToldByShell(variables + " '" + (BuildFolder() / "manual/voltis_manual").string() +
                       "' '" + folder.File("out") + "' '" + page + "' 2>&1");
}

}  // namespace

TEST(Manual, HasTheDateOfSourceDateEpoch) {
    const TempDir folder;
    ASSERT_EQ(MakePage(folder, "@HEAD page 1@\n", "SOURCE_DATE_EPOCH=86400").exitCode, 0);
    EXPECT_THAT(ReadWholeFile(folder.File("out/man1/page.1")),
                StartsWith(".Dd January 2, 1970\n.Dt PAGE 1\n.Os voltis " VOLTIS_VERSION "\n"));
}

TEST(Manual, IsNotMadeFromATemplateThatIsWrong) {
    const TempDir folder;
    for (const char* wrong : {"@NOTHING@", "@OPTIONS fly@", "@KEYS mine@", "@CODES x@", "@HEAD"}) {
        const Answer answer = MakePage(folder, std::string(".Sh NAME\n") + wrong + "\n");
        EXPECT_EQ(answer.exitCode, 1) << wrong;
        EXPECT_THAT(answer.text, HasSubstr("page.1:2: ")) << wrong;
    }
    EXPECT_FALSE(paths::exists(folder.File("out")));
}

TEST(Manual, EscapesWhatMandocWouldObey) {
    const TempDir folder;
    ASSERT_EQ(MakePage(folder, "@CODES message@\n").exitCode, 0);
    EXPECT_THAT(ReadWholeFile(folder.File("out/man1/page.1")),
                HasSubstr(".It Sy \"\\&Missing \\(aq:\\(aq after fiscal command\\&\"\n"));
}
