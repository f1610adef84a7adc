// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "tests/explore/Pages.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <stdexcept>
#include <tuple>

#include "tests/explore/Drawing.h"
#include "tests/support/TempDir.h"

namespace explore {

namespace fs = std::filesystem;

namespace {

constexpr char pageName[] = "docs/reliability.md";
constexpr char pictures[] = "docs/explored";
constexpr char tableBegin[] = "<!-- written by the explorer: begin -->\n";
constexpr char tableEnd[] = "<!-- written by the explorer: end -->\n";

/// A sentence of the promise that the explorer can break.
struct Sentence {
    std::string_view name;   // of a picture
    std::string_view codes;  // as a heading
    std::string_view text;
    std::vector<int> exitCodes;
    std::vector<Issue> issues;
    std::optional<bool> shared =
        std::nullopt;  // only of files after another in fiscal mode, or of others
};

const std::vector<Sentence>& Sentences() {
    static const std::vector<Sentence> all = {
        {"0-missing", "0", "every command was done", {0}, {Issue::Missing}, false},
        {"0-missing-next",
         "0",
         "the same, a file that begins in fiscal mode",
         {0},
         {Issue::Missing},
         true},
        {"0-twice", "0", "nothing was done twice", {0}, {Issue::Twice, Issue::Alien}},
        {"0-refused", "0", "the register refused nothing", {0}, {Issue::Refused}},
        {"0-number", "0", "the receipt number is the register's", {0}, {Issue::WrongNumber}},
        {"2-done", "2", "nothing was done", {1, 2}, {Issue::Acted}},
        {"2-written", "2", "no data frame of a command was written", {1, 2}, {Issue::Written}},
        {"101-gap", "101", "a beginning of the file was done", {101}, {Issue::NoBeginning}, false},
        {"101-gap-next",
         "101",
         "the same, a file that begins in fiscal mode",
         {101},
         {Issue::NoBeginning},
         true},
        {"101-twice", "101", "nothing was done twice", {101}, {Issue::Twice, Issue::Alien}},
        {"101-unwritten",
         "101",
         "a data frame of a command was written",
         {101},
         {Issue::Unwritten}},
        {"any",
         "any",
         "it is one of the four, and the result file says the same",
         {0, 1, 2, 101},
         {Issue::WrongResult, Issue::Escaped, Issue::OutOfTurn}},
    };
    return all;
}

bool Breaks(const Ending& ending, const Sentence& sentence) {
    return std::any_of(ending.begin(), ending.end(), [&](const RunEnd& end) {
        const bool code = std::ranges::count(sentence.exitCodes, end.exitCode) > 0;
        return code && std::any_of(sentence.issues.begin(), sentence.issues.end(),
                                   [&](Issue issue) { return end.Has(issue); });
    });
}

/// A schedule that breaks a sentence.
struct Example {
    int faults;
    std::size_t runs;
    std::size_t scenario;  // in what was explored
    Schedule schedule;
    Ending ending;
    auto Order() const { return std::tie(faults, runs, scenario, schedule); }
};

using Cell = std::optional<Example>;
using HabitKey = std::optional<emulator::Habit>;

Cell Shortest(const std::vector<Explored>& all, const HabitKey& habit, const Sentence& sentence) {
    Cell best;
    for (std::size_t i = 0; i < all.size(); ++i) {
        if (all[i].scenario.habit != habit) continue;
        const bool shared = all[i].scenario.files->files.size() > 1;
        if (sentence.shared.value_or(shared) != shared) continue;
        for (const Tally::Row& row : all[i].tally.Rows()) {
            if (!Breaks(row.ending, sentence)) continue;
            const Example example{row.fewest, row.ending.size(), i, row.Example(0), row.ending};
            if (!best || example.Order() < best->Order()) best = example;
        }
    }
    return best;
}

std::vector<HabitKey> HabitsOf(const std::vector<Explored>& all) {
    std::vector<HabitKey> habits;
    for (const Explored& one : all)
        if (std::ranges::count(habits, one.scenario.habit) == 0)
            habits.push_back(one.scenario.habit);
    return habits;
}

std::string Counted(int faults) {
    return std::to_string(faults) + (faults == 1 ? " fault" : " faults");
}

struct Tale {
    std::string picture, words;
};

/// In a child, for it leaves its process unfit for more.
Tale Tell(const Scenario& scenario, const Schedule& schedule) {
    const TempDir folder;
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child < 0) throw std::runtime_error("cannot fork");
    if (child == 0) {
        Story story;
        Replay(scenario, schedule, &story);
        folder.Write("words", FaultsInWords(story));
        folder.Write("picture", DrawStory(story, FaultsInWords(story)));
        _exit(0);
    }
    int status = 0;
    if (waitpid(child, &status, 0) != child || status != 0)
        throw std::runtime_error("cannot replay " + scenario.Name());
    return {ReadWholeFile(folder.File("picture")), ReadWholeFile(folder.File("words"))};
}

/// Everything that is written into the tree, by path.
using Documents = std::map<std::string, std::string>;

std::string HabitTitle(const HabitKey& habit) {
    return habit ? "`" + std::string(HabitWordOf(habit)) + "`" : "default";
}

/// One sentence of the promise for all habits.
class SentenceRow {
  public:
    SentenceRow(const std::vector<Explored>& all, const std::vector<HabitKey>& habits,
                const Sentence& sentence, int faults) {
        for (const HabitKey& habit : habits) {
            Cell cell = Shortest(all, habit, sentence);
            if (cell && cell->faults > faults) cell.reset();
            cells_.push_back(cell);
        }
    }
    const std::vector<Cell>& Cells() const { return cells_; }

    std::string Text(const Sentence& sentence) const {
        std::string row = "| " + std::string(sentence.codes) + " | " + std::string(sentence.text);
        for (const Cell& cell : cells_) row += cell ? " | " + Counted(cell->faults) : " | holds";
        return row + " |\n";
    }

  private:
    std::vector<Cell> cells_;
};

/// The counter-example of a habit is told when the default has none that is as short.
bool IsWorthTelling(const std::vector<Cell>& cells, std::size_t habit) {
    if (!cells[habit]) return false;
    return habit == 0 || !cells[0] || cells[0]->faults > cells[habit]->faults;
}

std::string ExampleText(const Sentence& sentence, const HabitKey& habit, const Explored& explored,
                        const Example& example, Documents& documents) {
    const Tale tale = Tell(explored.scenario, example.schedule);
    const std::string name =
        std::string(HabitWordOf(habit)) + "-" + std::string(sentence.name) + ".svg";
    documents[std::string(pictures) + "/" + name] = tale.picture;
    const std::string shown = habit ? "[Picture]" : "![The conversation]";  // the default's at once
    return "- **Exit code " + std::string(sentence.codes) + ", " + HabitTitle(habit) + ": not \"" +
           std::string(sentence.text) + "\"**, " + Counted(example.faults) + ". " + tale.words +
           " The runs end with " + EndingText(example.ending) + ". Replay: `" +
           explored.scenario.Name() + " " + ScheduleText(example.schedule) + "`\n  " + shown +
           "(explored/" + name + ")\n";
}

/// The table and the examples of up to so many faults, and the pictures.
std::string PageText(const std::vector<Explored>& all, int faults, Documents& documents) {
    const std::vector<HabitKey> habits = HabitsOf(all);
    std::string table = "| Exit code | Sentence";
    for (const HabitKey& habit : habits) table += " | " + HabitTitle(habit);
    table += " |\n|---|---|";
    for (std::size_t i = 0; i < habits.size(); ++i) table += "---|";
    table += "\n";
    std::string examples;
    for (const Sentence& sentence : Sentences()) {
        const SentenceRow row(all, habits, sentence, faults);
        table += row.Text(sentence);
        for (std::size_t i = 0; i < habits.size(); ++i) {
            if (!IsWorthTelling(row.Cells(), i)) continue;
            const Example& example = *row.Cells()[i];
            examples += ExampleText(sentence, habits[i], all[example.scenario], example, documents);
        }
    }
    return table + "\n" + examples;
}

struct Page {
    std::string before, table, after;
};

Page ReadPage(const std::string& tree) {
    const std::string text = ReadWholeFile(tree + "/" + pageName);
    const std::size_t begin = text.find(tableBegin), end = text.find(tableEnd);
    if (begin == std::string::npos || end == std::string::npos || end < begin)
        throw std::runtime_error(std::string(pageName) + " has no place for the table");
    const std::size_t table = begin + sizeof tableBegin - 1;
    return {text.substr(0, table), text.substr(table, end - table), text.substr(end)};
}

std::vector<std::string> LinesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::size_t at = 0;
    for (std::size_t end; (end = text.find('\n', at)) != std::string::npos; at = end + 1)
        lines.push_back(text.substr(at, end - at));
    return lines;
}

/// The number before " fault" in a line, from there on; 0 for none.
int FaultsIn(const std::string& line, const std::string& before) {
    const std::size_t at = line.find(before);
    return at == std::string::npos ? 0 : std::atoi(line.c_str() + at + before.size());
}

/// What a page says of more faults than were explored is taken to hold, without an example.
std::string WithoutMoreThan(const std::string& table, int faults) {
    std::string text;
    bool keeping = true;
    for (std::string line : LinesOf(table)) {
        if (line.starts_with("- **")) keeping = FaultsIn(line, "\"**, ") <= faults;
        for (int more = faults + 1; more <= mostFaults; ++more) {
            const std::string cell = "| " + Counted(more) + " |";
            for (std::size_t at; (at = line.find(cell)) != std::string::npos;)
                line.replace(at, cell.size(), "| holds |");
        }
        if (keeping) text += line + "\n";
    }
    return text;
}

}  // namespace

std::string EndsTable(const std::vector<Explored>& all) {
    std::string text;
    for (const Explored& one : all) {
        const Counts sum = one.tally.Sum();
        text += one.scenario.Name() + ": schedules by faults";
        for (const std::uint64_t count : sum)
            if (count != 0) text += " " + std::to_string(count);
        text += ", at most " + std::to_string(one.tally.MostFrames()) + " frames in a run, " +
                std::to_string(one.states) + " states, " +
                std::to_string(static_cast<int>(one.seconds * 1000)) + " ms\n";
        for (const Tally::Row& row : one.tally.Rows()) {
            text += "  " + EndingText(row.ending) + ":";
            for (std::size_t k = 0; k < row.counts.size(); ++k)
                if (sum[k] != 0) text += " " + std::to_string(row.counts[k]);
            text += "; " + ScheduleText(row.Example(0)) + "\n";
        }
    }
    return text;
}

std::string CountsTable(const std::vector<Explored>& all, int faults) {
    std::string text = "| Family | Files | Habit |";
    for (int k = 0; k <= faults; ++k) text += " " + Counted(k) + " |";
    text += " States | Seconds |\n|---|---|---|---|---|";
    for (int k = 0; k <= faults; ++k) text += "---|";
    text += "\n";
    double seconds = 0;
    std::uint64_t schedules = 0, states = 0;
    for (const Explored& one : all) {
        text += "| " + std::string(FamilyWord(one.scenario.family)) + " | " +
                std::string(one.scenario.files->word) + " | " +
                std::string(HabitWordOf(one.scenario.habit)) + " |";
        const Counts sum = one.tally.Sum();
        for (std::size_t k = 0; k <= static_cast<std::size_t>(faults); ++k) {
            text += " " + std::to_string(sum.at(k)) + " |";
            schedules += sum.at(k);
        }
        text += " " + std::to_string(one.states) + " | " +
                std::to_string(static_cast<int>(one.seconds + 0.5)) + " |\n";
        seconds += one.seconds;
        states += one.states;
    }
    return text + "\n" + std::to_string(schedules) + " schedules, " + std::to_string(states) +
           " states explored, " + std::to_string(static_cast<int>(seconds)) + " s\n";
}

void WritePages(const std::vector<Explored>& all, const std::string& tree) {
    Documents documents;
    const Page page = ReadPage(tree);
    documents[pageName] = page.before + PageText(all, mostFaults, documents) + page.after;
    fs::remove_all(fs::path(tree) / pictures);
    fs::create_directories(fs::path(tree) / pictures);
    for (const auto& [name, text] : documents) {
        std::ofstream out(fs::path(tree) / name);
        out << text;
        out.close();
        if (!out) throw std::runtime_error("cannot write '" + name + "'");
    }
}

std::vector<std::string> CompareWithPages(const std::vector<Explored>& all, const std::string& tree,
                                          int faults) {
    Documents documents;
    std::vector<std::string> differences;
    const std::vector<std::string> found = LinesOf(PageText(all, faults, documents));
    const std::vector<std::string> page = LinesOf(WithoutMoreThan(ReadPage(tree).table, faults));
    for (std::size_t i = 0; i < std::max(found.size(), page.size()); ++i) {
        const std::string ours = i < found.size() ? found[i] : "(nothing)";
        const std::string theirs = i < page.size() ? page[i] : "(nothing)";
        if (ours != theirs)
            differences.push_back(std::string(pageName) + " says: " + theirs + "\nfound: " + ours);
    }
    for (const auto& [name, text] : documents)
        if (ReadWholeFile(tree + "/" + name) != text)
            differences.push_back(name + " is not the picture of what was found");
    return differences;
}

}  // namespace explore
