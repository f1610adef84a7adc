// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "tests/explore/Search.h"

#include <memory>
#include <unordered_map>
#include <utility>
#include <vector>

#include "tests/explore/DriverProcess.h"
#include "tests/explore/Playing.h"

namespace explore {

namespace {

/// So many places are passed without looking whether the state is known.
constexpr std::size_t mostPassed = 2;

class Search {
  public:
    Search(DriverProcess& driver, Playing& playing, const Limits& limits, const Watch& watch)
        : driver_(driver), playing_(playing), limits_(limits), watch_(watch) {}

    /// What follows the place that the search is at. The result is own, or one that is kept.
    const Tally& From(int faultsLeft, Tally& own) {
        if (playing_.Over()) {
            if (watch_.each) watch_.each(path_, playing_.Talk().Runs());
            own = Tally::Of(playing_.Talk().Runs());
            return own;
        }
        if (path_.empty()) return FromUndisturbed(faultsLeft, own);
        if (!limits_.reduce) {
            Branch(faultsLeft, own);
            return own;
        }
        const Hash state = State(faultsLeft);
        if (const auto known = known_.find(state); known != known_.end()) return *known->second;
        auto tally = std::make_unique<Tally>();
        Branch(faultsLeft, *tally);
        return *(known_[state] = std::move(tally));
    }

    std::uint64_t States() const { return states_; }

  private:
    struct Point {
        std::shared_ptr<const DriverProcess::Image> driver;
        std::unique_ptr<Conversation> talk;
    };

    const Tally& FromUndisturbed(int faultsLeft, Tally& own) {
        const std::size_t place = playing_.Talk().Place();
        if (watch_.known)
            if (const Tally* const known = watch_.known(place)) return *known;
        Branch(faultsLeft, own);
        if (watch_.done) watch_.done(place, own);
        return own;
    }

    Hash State(int faultsLeft) {
        state_.clear();
        playing_.Talk().Describe(state_);
        Hash hash = DriverProcess::HashOf(*driver_.Save());
        hash.Add(state_);
        hash.Mix(static_cast<std::uint64_t>(faultsLeft));
        return hash;
    }

    FaultSet OpenAt(int faultsLeft) {
        FaultSet open = playing_.Talk().Options().And(limits_.kinds);
        if (faultsLeft == 0) open = open.And({Fault::Drained});
        open.Add(Fault::None);
        return open;
    }

    // Places without a choice are passed at once, but for some at which the state may be known.
    std::size_t Pass(int faultsLeft, Frames& frames) {
        std::size_t passed = 0;
        while (!playing_.Over() && OpenAt(faultsLeft) == FaultSet{Fault::None}) {
            if (limits_.reduce && passed == mostPassed) break;
            playing_.Decide(Fault::None, &frames);
            ++passed;
        }
        return passed;
    }

    void Branch(int faultsLeft, Tally& tally) {
        ++states_;
        const FaultSet open = OpenAt(faultsLeft);
        Point point{driver_.Save(), CopyOfTalk()};
        for (std::size_t i = 0; i < faultCount; ++i) {
            const auto fault = static_cast<Fault>(i);
            if (!open.Has(fault)) continue;
            if (i != 0) Restore(point);
            Follow(fault, faultsLeft - CostOf(fault), tally);
        }
        spare_.push_back(std::move(point.talk));
    }

    // Copies that are done with are used again, for their memory.
    std::unique_ptr<Conversation> CopyOfTalk() {
        if (spare_.empty()) return std::make_unique<Conversation>(playing_.Talk());
        std::unique_ptr<Conversation> copy = std::move(spare_.back());
        spare_.pop_back();
        *copy = playing_.Talk();
        return copy;
    }

    void Restore(const Point& point) {
        driver_.Restore(point.driver);
        playing_.Restore(*point.talk);
    }

    void Follow(Fault fault, int faultsLeft, Tally& tally) {
        if (fault != Fault::None) path_.push_back({playing_.Talk().Place(), fault});
        Frames frames;
        playing_.Decide(fault, &frames);
        const std::size_t distance = 1 + Pass(faultsLeft, frames);
        Tally own;
        tally.Add(fault, distance, frames, From(faultsLeft, own));
        if (fault != Fault::None) path_.pop_back();
    }

    DriverProcess& driver_;
    Playing& playing_;
    const Limits& limits_;
    const Watch& watch_;
    std::unordered_map<Hash, std::unique_ptr<Tally>, HashOfHash> known_;
    std::vector<std::unique_ptr<Conversation>> spare_;
    Schedule path_;
    emulator::Bytes state_;
    std::uint64_t states_ = 0;
};

}  // namespace

Found SearchHere(const Scenario& scenario, const Limits& limits, const Watch& watch) {
    DriverProcess driver;
    const std::vector<Actions> expected = ExpectedOf(driver, scenario);
    Playing playing(driver, scenario, expected);
    Search search(driver, playing, limits, watch);
    Frames frames;
    playing.Begin(&frames);
    Tally own;
    Found found;
    found.tally.Add(Fault::None, 0, frames, search.From(limits.faults, own));
    found.states = search.States();
    found.runs = playing.Runs();
    found.segments = playing.Segments();
    return found;
}

Ending Replay(const Scenario& scenario, const Schedule& schedule, Story* story) {
    DriverProcess driver;
    const std::vector<Actions> expected = ExpectedOf(driver, scenario);
    Playing playing(driver, scenario, expected);
    playing.Talk().TellTo(story);
    return playing.Play(schedule);
}

}  // namespace explore
