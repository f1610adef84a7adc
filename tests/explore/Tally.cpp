// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "tests/explore/Tally.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>

namespace explore {

void Frames::EndRun() {
    if (runEnded) longest = std::max(longest, std::exchange(last, 0));
    runEnded = true;
}

Schedule Tally::Row::Example(std::size_t place) const {
    Schedule schedule;
    place += distance;
    for (const Path* path = example.get(); path != nullptr; path = path->next.get()) {
        schedule.push_back({place, path->fault});
        place += path->gap;
    }
    return schedule;
}

Tally Tally::Of(const Ending& ending) {
    Tally tally;
    Row& row = tally.RowOf(ending);
    row.counts[0] = 1;
    row.fewest = 0;
    return tally;
}

void Tally::Add(Fault fault, std::size_t distance, const Frames& frames, const Tally& rest) {
    const int cost = CostOf(fault);
    for (const Row& tail : rest.rows_) {
        Row& row = RowOf(tail.ending);
        for (std::size_t k = static_cast<std::size_t>(cost); k < row.counts.size(); ++k)
            row.counts[k] += tail.counts[k - static_cast<std::size_t>(cost)];
        if (tail.fewest + cost >= row.fewest) continue;
        row.fewest = tail.fewest + cost;
        const std::size_t gap = distance + tail.distance;
        row.distance = fault == Fault::None ? gap : 0;
        row.example = fault == Fault::None
                          ? tail.example
                          : std::make_shared<const Path>(Path{fault, gap, tail.example});
    }
    const std::size_t next = (frames.runEnded ? frames.last : frames.first) + rest.framesLeft_;
    framesLeft_ = std::max(framesLeft_, frames.runEnded ? frames.first : next);
    framesInRun_ =
        std::max({framesInRun_, rest.framesInRun_, frames.longest, frames.runEnded ? next : 0});
}

Tally::Row& Tally::RowOf(const Ending& ending) {
    const auto found = std::find_if(rows_.begin(), rows_.end(),
                                    [&](const Row& row) { return row.ending == ending; });
    if (found != rows_.end()) return *found;
    Row& row = rows_.emplace_back();
    row.ending = ending;
    return row;
}

std::string Tally::Text() const {
    nlohmann::json rows = nlohmann::json::array();
    for (const Row& row : rows_) {
        nlohmann::json ending = nlohmann::json::array();
        for (const RunEnd& end : row.ending)
            ending.push_back({end.exitCode, end.issues, static_cast<int>(end.verdicts.atOnce),
                              static_cast<int>(end.verdicts.withStatus)});
        rows.push_back({{"ending", ending},
                        {"counts", row.counts},
                        {"fewest", row.fewest},
                        {"example", ScheduleText(row.Example(0))}});
    }
    return nlohmann::json{{"rows", rows}, {"left", framesLeft_}, {"inRun", framesInRun_}}.dump();
}

Tally Tally::Parse(const std::string& text) {
    const nlohmann::json all = nlohmann::json::parse(text);
    Tally tally;
    tally.framesLeft_ = all.at("left");
    tally.framesInRun_ = all.at("inRun");
    for (const nlohmann::json& each : all.at("rows")) {
        Row& row = tally.rows_.emplace_back();
        for (const nlohmann::json& end : each.at("ending"))
            row.ending.push_back({end.at(0).get<int>(),
                                  end.at(1).get<unsigned>(),
                                  {static_cast<Verdicts::Known>(end.at(2).get<int>()),
                                   static_cast<Verdicts::Known>(end.at(3).get<int>())}});
        row.counts = each.at("counts");
        row.fewest = each.at("fewest");
        const Schedule example = ParseSchedule(each.at("example").get<std::string>());
        std::size_t next = 0;
        for (auto step = example.rbegin(); step != example.rend(); ++step) {
            const std::size_t gap = row.example ? next - step->place : 0;
            row.example = std::make_shared<const Path>(Path{step->fault, gap, row.example});
            next = step->place;
        }
        row.distance = next;
    }
    return tally;
}

bool Tally::SaysTheSameAs(const Tally& other) const {
    const bool sizes = rows_.size() == other.rows_.size() && MostFrames() == other.MostFrames();
    return sizes && std::all_of(rows_.begin(), rows_.end(), [&](const Row& row) {
               return std::any_of(other.rows_.begin(), other.rows_.end(), [&](const Row& same) {
                   return same.ending == row.ending && same.counts == row.counts &&
                          same.fewest == row.fewest;
               });
           });
}

Counts Tally::Sum() const {
    Counts sum{};
    for (const Row& row : rows_)
        for (std::size_t k = 0; k < sum.size(); ++k) sum[k] += row.counts[k];
    return sum;
}

}  // namespace explore
