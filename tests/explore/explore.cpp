// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The explorer's command line.
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <exception>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/explore/Campaign.h"
#include "tests/explore/Drawing.h"
#include "tests/explore/Pages.h"
#include "tests/explore/Shares.h"

namespace {

using namespace explore;

struct Options {
    int faults = 2;
    std::vector<std::string> families, files, habits, kinds;
    bool plain = false;
    bool quiet = false;
    unsigned jobs = 0;
    std::string folder;
    std::string replay, svg;
    std::string checkPages, writePages;
    bool counts = false;
    bool againstPlain = false, againstAlone = false;
    bool verdicts = false, verdictsAlone = false;
};

bool Wanted(const std::vector<std::string>& words, std::string_view word) {
    return words.empty() || std::find(words.begin(), words.end(), word) != words.end();
}

void Known(const std::vector<std::string>& words, std::vector<std::string_view> known) {
    std::sort(known.begin(), known.end());
    known.erase(std::unique(known.begin(), known.end()), known.end());
    for (const std::string& word : words) {
        if (std::find(known.begin(), known.end(), word) != known.end()) continue;
        std::string all;
        for (const std::string_view one : known) all += " " + std::string(one);
        throw std::runtime_error("'" + word + "' is none of" + all);
    }
}

std::vector<Scenario> ScenariosOf(const Options& options) {
    std::vector<std::string_view> families, files, habits;
    std::vector<Scenario> scenarios;
    for (Scenario scenario : AllScenarios()) {
        if (options.verdicts) scenario.telling = Telling::WithStatus;
        if (options.verdictsAlone) scenario.telling = Telling::Alone;
        families.push_back(FamilyWord(scenario.family));
        files.push_back(scenario.files->word);
        habits.push_back(HabitWordOf(scenario.habit));
        if (Wanted(options.families, families.back()) && Wanted(options.files, files.back()) &&
            Wanted(options.habits, habits.back()))
            scenarios.push_back(scenario);
    }
    Known(options.families, families);
    Known(options.files, files);
    Known(options.habits, habits);
    return scenarios;
}

FaultSet KindsOf(const Options& options) {
    if (options.kinds.empty()) return FaultSet::All();
    FaultSet kinds;
    for (const std::string& word : options.kinds) {
        const auto fault = FindFault(word);
        if (!fault) throw std::runtime_error("'" + word + "' is no fault");
        kinds.Add(*fault);
    }
    return kinds;
}

int ReplayOne(const Options& options) {
    std::istringstream words(options.replay);
    std::string family, files, habit, schedule;
    words >> family >> files >> habit;
    std::getline(words, schedule);
    Scenario scenario = ParseScenario(family, files, habit);
    if (options.verdicts) scenario.telling = Telling::WithStatus;
    if (options.verdictsAlone) scenario.telling = Telling::Alone;
    Story story;
    const Ending ending = Replay(scenario, ParseSchedule(schedule), &story);
    std::cout << StoryText(story) << "\n"
              << FaultsInWords(story) << "\n"
              << EndingText(ending) << "\n";
    if (options.svg.empty()) return 0;
    std::ofstream out(options.svg);
    out << DrawStory(story, FaultsInWords(story));
    out.close();
    if (!out) throw std::runtime_error("cannot write '" + options.svg + "'");
    return 0;
}

CampaignPlan PlanOf(const Options& options) {
    CampaignPlan plan;
    plan.scenarios = ScenariosOf(options);
    plan.limits = {options.faults, KindsOf(options), !options.plain};
    plan.jobs = options.jobs;
    plan.folder = options.folder;
    plan.progress = !options.quiet;
    return plan;
}

int Fail(const Scenario& scenario, const char* what) {
    std::cout << scenario.Name() << ": " << what << "\n";
    return 1;
}

int CompareWithPlain(const Options& options, const std::vector<Explored>& reduced) {
    CampaignPlan plan = PlanOf(options);
    plan.limits.reduce = false;
    const std::vector<Explored> plain = RunCampaign(plan);
    std::cout << "every schedule by itself:\n" << CountsTable(plain, options.faults);
    int result = 0;
    for (std::size_t i = 0; i < plain.size(); ++i)
        if (!plain[i].tally.SaysTheSameAs(reduced[i].tally))
            result = Fail(plain[i].scenario, "schedules were lost");
    return result;
}

// One process for each scenario: a search leaves its process unfit for another.
int CompareWithAlone(const Options& options) {
    int result = 0;
    for (const Scenario& scenario : ScenariosOf(options)) {
        std::fflush(nullptr);
        const pid_t child = fork();
        if (child == 0) {
            const Limits limits{options.faults, KindsOf(options), false};
            const std::map<Schedule, Ending> alone = SearchAlone(scenario, limits);
            std::map<Schedule, Ending> together;
            Watch watch;
            watch.each = [&](const Schedule& schedule, const Ending& ending) {
                together[schedule] = ending;
            };
            SearchHere(scenario, limits, watch);
            _exit(alone == together && !alone.empty() ? 0 : 1);
        }
        int status = 0;
        if (waitpid(child, &status, 0) != child || status != 0)
            result = Fail(scenario, "a schedule ends otherwise when it is alone");
    }
    return result;
}

int ShowVerdicts(const Options& options, const std::vector<Explored>& all) {
    if (options.counts) std::cout << EndsTable(all);
    std::cout << SharesTable(all, options.faults);
    for (const Shares& shares : SharesOf(all))
        for (const std::uint64_t wrong : shares.wrong)
            if (wrong != 0) return 1;
    return 0;
}

int Explore(const Options& options) {
    if (options.againstAlone) return CompareWithAlone(options);
    const std::vector<Explored> all = RunCampaign(PlanOf(options));
    if (options.againstPlain) {
        std::cout << CountsTable(all, options.faults);
        return CompareWithPlain(options, all);
    }
    if (options.verdicts || options.verdictsAlone) return ShowVerdicts(options, all);
    if (!options.writePages.empty()) return WritePages(all, options.writePages), 0;
    if (!options.checkPages.empty()) {
        const std::vector<std::string> differences =
            CompareWithPages(all, options.checkPages, options.faults);
        for (const std::string& difference : differences) std::cout << difference << "\n";
        return differences.empty() ? 0 : 1;
    }
    std::cout << (options.counts ? CountsTable(all, options.faults) : EndsTable(all));
    return 0;
}

void Declare(CLI::App& app, Options& options) {
    app.add_option("--faults", options.faults, "At most so many faults in a schedule")
        ->check(CLI::Range(0, mostFaults))
        ->capture_default_str();
    app.add_option("--family", options.families, "ocelot or margay (default: both)")
        ->delimiter(',');
    app.add_option("--files", options.files,
                   "drawer, blocked, again, report, sale, discount or shared (default: all)")
        ->delimiter(',');
    app.add_option("--habit", options.habits, "default, or a word of the register (default: all)")
        ->delimiter(',');
    app.add_option("--kinds", options.kinds, "Only these faults (default: all)")->delimiter(',');
    app.add_flag("--plain", options.plain, "Run every schedule, also from states seen before");
    app.add_flag("--quiet", options.quiet, "No progress bar");
    app.add_option("--jobs", options.jobs, "Processes at a time (default: one for each processor)");
    app.add_option("--keep", options.folder,
                   "Keep what is found in this folder, and go on from what the same build has left "
                   "there");
    app.add_flag("--counts", options.counts,
                 "Print how many schedules there are, not how they end");
    app.add_flag("--verdicts", options.verdicts,
                 "Tell a verdict of every run and judge it; 1 when one is wrong");
    app.add_flag("--verdicts-alone", options.verdictsAlone,
                 "The same, and nothing is sent to the register but by the driver");
    app.add_flag("--against-plain", options.againstPlain,
                 "Compare with running every schedule; 1 when one is lost");
    app.add_flag("--against-alone", options.againstAlone,
                 "Compare with every schedule in processes of its own; 1 when one differs");
    app.add_option("--replay", options.replay,
                   "Play one schedule: \"margay report default 19:late 23:garbled\"");
    app.add_option("--svg", options.svg, "With --replay: draw it into this file");
    app.add_option("--write-pages", options.writePages,
                   "Write the table and the pictures into the pages of this tree");
    app.add_option("--check-pages", options.checkPages,
                   "Compare them with the pages of this tree; 1 when they differ");
}

}  // namespace

int main(int argc, char* argv[]) {
    CLI::App app("Explores all schedules of faults between the driver and the emulated register");
    Options options;
    Declare(app, options);
    try {
        app.parse(argc, argv);
        return options.replay.empty() ? Explore(options) : ReplayOne(options);
    } catch (const CLI::ParseError& problem) {
        return app.exit(problem) == 0 ? 0 : 2;
    } catch (const std::exception& problem) {
        std::cerr << "explore: " << problem.what() << "\n";
        return 2;
    }
}
