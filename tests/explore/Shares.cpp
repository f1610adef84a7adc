// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "tests/explore/Shares.h"

#include <algorithm>
#include <cstdio>

namespace explore {

namespace {

void Add(Counts& sum, const Counts& counts) {
    for (std::size_t k = 0; k < sum.size(); ++k) sum[k] += counts[k];
}

template <typename Matches>
bool Any(const Ending& ending, Matches matches) {
    return std::any_of(ending.begin(), ending.end(), matches);
}

void Add(Shares& shares, const Tally::Row& row) {
    using Known = Verdicts::Known;
    Add(shares.all, row.counts);
    if (Any(row.ending, [](const RunEnd& end) { return end.Has(Issue::Untold); }))
        Add(shares.wrong, row.counts);
    if (Any(row.ending, [](const RunEnd& end) { return end.verdicts.atOnce == Known::Unknown; }))
        Add(shares.unknownAtOnce, row.counts);
    if (Any(row.ending,
            [](const RunEnd& end) { return end.verdicts.withStatus == Known::Unknown; }))
        Add(shares.unknownWithStatus, row.counts);
}

std::string Percent(std::uint64_t part, std::uint64_t all) {
    if (all == 0) return "-";
    char text[32];
    std::snprintf(text, sizeof text, "%.2f %%",
                  100.0 * static_cast<double>(part) / static_cast<double>(all));
    return text;
}

}  // namespace

std::vector<Shares> SharesOf(const std::vector<Explored>& all) {
    std::vector<Shares> habits;
    for (const Explored& one : all) {
        const std::string_view habit = HabitWordOf(one.scenario.habit);
        auto found = std::ranges::find(habits, habit, &Shares::habit);
        if (found == habits.end()) found = habits.insert(habits.end(), {habit});
        for (const Tally::Row& row : one.tally.Rows()) Add(*found, row);
    }
    return habits;
}

std::string SharesTable(const std::vector<Explored>& all, int faults) {
    std::string text =
        "| Register | Faults | Schedules | Wrong | Unknown at once | With a status read |\n"
        "|---|---|---|---|---|---|\n";
    for (const Shares& one : SharesOf(all)) {
        for (std::size_t k = 0; k <= static_cast<std::size_t>(faults); ++k) {
            text += "| " + std::string(one.habit) + " | " + std::to_string(k) + " | " +
                    std::to_string(one.all.at(k)) + " | " + std::to_string(one.wrong.at(k)) +
                    " | " + Percent(one.unknownAtOnce.at(k), one.all.at(k)) + " | " +
                    Percent(one.unknownWithStatus.at(k), one.all.at(k)) + " |\n";
        }
    }
    return text;
}

}  // namespace explore
