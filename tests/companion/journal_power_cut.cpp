// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The power fails at a step of the lives of some jobs. Then the journal must open, and tell of
// every job what it had told before, or what it was being told.
//
//   journal_power_cut                   a sample (--runs=N cuts, --seed=N)
//   journal_power_cut --full            every step of many lives
//   journal_power_cut --without-syncs   on a disk that only claims to sync; succeeds when that is
//                                       noticed
#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <numeric>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "companion/journal/Journal.h"
#include "tests/companion/CutVfs.h"
#include "tests/support/Sanitized.h"

namespace {

using namespace journal;
using Random = std::mt19937_64;

constexpr std::size_t sampleSize = sanitized ? 60 : 200;
constexpr std::size_t fullSize = 20'000;
constexpr std::size_t cutsOfASampledLife = 10;
constexpr char path[] = "journal.db";
constexpr char registerName[] = "default";

std::size_t Below(Random& random, std::size_t limit) {
    return std::uniform_int_distribution<std::size_t>(0, limit - 1)(random);
}

// All that a journal can be asked.
struct World {
    struct Facts {
        State state = State::Received;
        std::string verdict, outcome, logs, resolvedBy, content;
        bool operator==(const Facts&) const = default;
    };
    std::map<std::string, Facts> jobs;
    std::optional<bool> mayHold;
    bool operator==(const World&) const = default;
};

World WorldOf(const Journal& journal) {
    World world;
    for (const Job& job : journal.List({registerName, "", "", {}})) {
        world.jobs[*job.id] = {job.state, job.verdict,    job.outcome,
                               job.logs,  job.resolvedBy, journal.Get(job.number).content};
    }
    world.mayHold = journal.MayHold(registerName);
    return world;
}

std::string Text(const World& world) {
    std::string text;
    for (const auto& [id, facts] : world.jobs) {
        text += id + " " + Word(facts.state) + " " + facts.verdict + ", ";
    }
    return text + (world.mayHold ? (*world.mayHold ? "may hold" : "holds none") : "never seen");
}

// Jobs in one journal, each from Receive to its end; the random numbers say what is done next.
class Life {
  public:
    Life(CutVfs& disk, std::uint64_t seed) : disk_(disk), random_(seed) {}

    /// Goes on until the end, or until the power fails.
    void Run() {
        try {
            Open();
            for (std::size_t i = 2 + Below(random_, 3); i > 0; --i)
                LiveOne("job " + std::to_string(i));
        } catch (const JournalError&) {
            if (!disk_.IsCut()) throw;
        }
        journal_.reset();
    }

    /// What had been promised when the power failed, and what would have been next.
    World promised, next;

  private:
    void Open() {
        journal_.reset();
        journal_ = std::make_unique<Journal>(path, disk_.Name());
    }

    void Do(const std::function<void()>& step) {
        step();
        promised = next;
    }

    void LiveOne(const std::string& id) {
        static constexpr std::size_t sizes[] = {30, 3000, 60'000};
        const std::string content(sizes[Below(random_, 3)], 'x');
        if (Below(random_, 2) == 0) Open();
        while (Try(id, content)) {
        }
        if (next.jobs.at(id).state == State::InDoubt && Below(random_, 2) == 0) Resolve(id);
        if (Below(random_, 4) == 0) Prune();
    }

    // One attempt; true when it may be, and is, tried again.
    bool Try(const std::string& id, const std::string& content) {
        Receive(id, content);
        if (Below(random_, 6) == 0) {
            GiveUp(id);
        } else {
            Send(id);
            Finish(id, AnyVerdict());
        }
        return next.jobs.at(id).state == State::Failed && Below(random_, 2) == 0;
    }

    void Receive(const std::string& id, const std::string& content) {
        next.jobs[id] = {State::Received, "", "", "", "", content};
        Do([&] { numbers_[id] = journal_->Receive({id, registerName, "/sale.txt", content}); });
    }

    void Send(const std::string& id) {
        const std::string logs = "/logs/" + std::to_string(Below(random_, 1000));
        next.jobs[id].state = State::Sending;
        next.jobs[id].logs = logs;
        next.mayHold = true;
        Do([&] { journal_->StartSending(numbers_.at(id), registerName, logs); });
    }

    const std::string& End(const std::string& id, const std::string& verdict) {
        World::Facts& facts = next.jobs[id];
        facts.state = StateAfter(verdict);
        facts.verdict = verdict;
        return facts.outcome = "outcome " + std::to_string(Below(random_, 1000));
    }

    void GiveUp(const std::string& id) {
        const std::string outcome = End(id, notPrinted);
        Do([&] { journal_->GiveUp(journal_->Get(numbers_.at(id)), outcome, 2); });
    }

    void Finish(const std::string& id, const std::string& verdict) {
        const std::string outcome = End(id, verdict);
        const bool holds = Below(random_, 2) == 0;
        next.mayHold = holds;
        Do([&] { journal_->Finish(numbers_.at(id), {verdict, outcome, 101, holds}); });
    }

    void Resolve(const std::string& id) {
        next.jobs[id].state = State::Done;
        next.jobs[id].verdict = printed;
        next.jobs[id].resolvedBy = "anna";
        Do([&] { journal_->Resolve(numbers_.at(id), Decision::Printed, "anna", "seen"); });
    }

    void Prune() {
        std::erase_if(next.jobs, [](const auto& job) {
            return job.second.state == State::Done || job.second.state == State::Failed;
        });
        const auto tomorrow = std::chrono::system_clock::now() + std::chrono::hours(24);
        Do([&] { journal_->Prune(0, tomorrow); });
    }

    std::string AnyVerdict() {
        static constexpr const char* verdicts[] = {printed, part, notPrinted, unknown};
        return verdicts[Below(random_, 4)];
    }

    CutVfs& disk_;
    Random random_;
    std::unique_ptr<Journal> journal_;
    std::map<std::string, std::int64_t> numbers_;
};

struct Tally {
    std::size_t lives = 0, cuts = 0, again = 0, before = 0, after = 0, violations = 0;
    std::vector<std::string> complaints;

    void Complain(const std::string& text) {
        ++violations;
        if (complaints.size() < 10) complaints.push_back(text);
    }
};

struct Options {
    bool full = false;
    bool withoutSyncs = false;
    std::uint64_t seed = 1;
    std::size_t cuts = 0;
};

class Campaign {
  public:
    explicit Campaign(const Options& options) : options_(options) {}

    Tally Run(std::size_t cuts) {
        for (std::uint64_t seed = options_.seed * 1'000'003; tally_.cuts < cuts; ++seed) {
            ++tally_.lives;
            for (const std::size_t step : StepsToCut(seed)) Cut(seed, step);
        }
        return tally_;
    }

  private:
    /// Every step of the life and the time after the last, or a sample of them.
    std::vector<std::size_t> StepsToCut(std::uint64_t seed) {
        CutVfs disk(seed);
        Life(disk, seed).Run();
        std::vector<std::size_t> steps(disk.Steps() + 1);
        std::iota(steps.begin(), steps.end(), std::size_t{0});
        if (options_.full) return steps;
        Random random(seed);
        std::shuffle(steps.begin(), steps.end(), random);
        steps.resize(std::min(steps.size(), cutsOfASampledLife));
        return steps;
    }

    void Cut(std::uint64_t seed, std::size_t step) {
        CutVfs disk(seed ^ (step * 0x9E3779B97F4A7C15U));
        if (options_.withoutSyncs) disk.IgnoreSyncs();
        disk.CutAt(step);
        Life life(disk, seed);
        life.Run();
        disk.CutAndPowerOn();
        ++tally_.cuts;
        const std::string place =
            "life " + std::to_string(seed) + ", step " + std::to_string(step) + ": ";
        try {
            if (step % 2 == 0) CutWhileOpening(disk, step / 2 % 8);
            Judge(life, Opened(disk), place);
        } catch (const JournalError& error) {
            tally_.Complain(place + error.what());
        }
    }

    void CutWhileOpening(CutVfs& disk, std::size_t step) {
        disk.CutAt(disk.Steps() + step);
        try {
            Opened(disk);
        } catch (const JournalError&) {
            if (!disk.IsCut()) throw;
            ++tally_.again;
        }
        disk.CutAndPowerOn();
    }

    /// What the journal tells of the register. Its file must be sound, and take another job.
    static World Opened(const CutVfs& disk) {
        Journal journal(path, disk.Name());
        const World world = WorldOf(journal);
        const Database database(path, disk.Name());
        Statement check(database, "PRAGMA integrity_check");
        if (!check.Step() || check.Text(0) != "ok") throw JournalError("damaged: " + check.Text(0));
        journal.GiveUp(journal.Get(journal.Receive({std::nullopt, "other", "/sale.txt", "x"})), "",
                       1);
        return world;
    }

    void Judge(const Life& life, const World& found, const std::string& place) {
        if (found == life.promised) {
            ++tally_.before;
        } else if (found == life.next) {
            ++tally_.after;
        } else {
            tally_.Complain(place + "found " + Text(found) + "; promised " + Text(life.promised));
        }
    }

    Options options_;
    Tally tally_;
};

Options ParseOptions(int argc, char* argv[]) {
    Options options;
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        if (word == "--full") {
            options.full = true;
        } else if (word == "--without-syncs") {
            options.withoutSyncs = true;
        } else if (word.starts_with("--seed=")) {
            options.seed = std::strtoull(word.c_str() + 7, nullptr, 10);
        } else if (word.starts_with("--runs=")) {
            options.cuts = std::strtoull(word.c_str() + 7, nullptr, 10);
        } else {
            fprintf(stderr, "Usage: %s [--full] [--without-syncs] [--seed=N] [--runs=N]\n",
                    argv[0]);
            exit(2);
        }
    }
    if (options.cuts == 0) options.cuts = options.full ? fullSize : sampleSize;
    return options;
}

}  // namespace

int main(int argc, char* argv[]) {
    const Options options = ParseOptions(argc, argv);
    const Tally tally = Campaign(options).Run(options.cuts);
    printf(
        "journal_power_cut, seed %llu%s: %zu cuts in %zu lives, %zu cut again while opening: %zu "
        "with the last promise kept, %zu with the step that was under way, %zu violations\n",
        static_cast<unsigned long long>(options.seed),
        options.withoutSyncs ? ", without syncs" : "", tally.cuts, tally.lives, tally.again,
        tally.before, tally.after, tally.violations);
    for (const std::string& complaint : tally.complaints) printf("  %s\n", complaint.c_str());
    return (tally.violations == 0) == options.withoutSyncs ? 1 : 0;
}
