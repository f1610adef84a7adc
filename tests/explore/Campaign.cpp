// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "tests/explore/Campaign.h"

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <numeric>
#include <optional>
#include <stdexcept>
#include <system_error>

namespace explore {

namespace fs = std::filesystem;

namespace {

using Clock = std::chrono::steady_clock;

double SecondsSince(Clock::time_point begin) {
    return std::chrono::duration<double>(Clock::now() - begin).count();
}

std::uint64_t Total(const Tally& tally) {
    const Counts sum = tally.Sum();
    return std::accumulate(sum.begin(), sum.end(), std::uint64_t{0});
}

/// What is known of a scenario: all that follows a place of the undisturbed conversation.
struct Record {
    std::size_t place = 0;
    Tally rest;
    bool complete = false;
    double seconds = 0;
    std::uint64_t states = 0;
};

/// One file for each scenario and limits.
class Records {
  public:
    Records(const CampaignPlan& plan, fs::path folder) : plan_(plan), folder_(std::move(folder)) {}

    std::optional<Record> Find(const Scenario& scenario) const {
        std::ifstream in(PathOf(scenario));
        if (!in) return std::nullopt;
        const nlohmann::json all = nlohmann::json::parse(in);
        return Record{all.at("place"), Tally::Parse(all.at("rest").get<std::string>()),
                      all.at("complete"), all.at("seconds"), all.at("states")};
    }

    // Whole or not at all, whenever the program ends.
    void Keep(const Scenario& scenario, const Record& record) const {
        const fs::path path = PathOf(scenario);
        const fs::path next = path.string() + ".new";
        std::ofstream out(next);
        out << nlohmann::json{{"place", record.place},
                              {"rest", record.rest.Text()},
                              {"complete", record.complete},
                              {"seconds", record.seconds},
                              {"states", record.states}};
        out.close();
        if (!out) throw std::runtime_error("cannot write '" + next.string() + "'");
        fs::rename(next, path);
    }

  private:
    fs::path PathOf(const Scenario& scenario) const {
        std::string name = scenario.Name() + " " + std::to_string(plan_.limits.faults);
        for (std::size_t i = 1; i < faultCount; ++i)
            if (!plan_.limits.kinds.Has(static_cast<Fault>(i)))
                name += " no-" + std::string(FaultWord(static_cast<Fault>(i)));
        if (!plan_.limits.reduce) name += " plain";
        if (scenario.telling == Telling::Alone) name += " verdicts-alone";
        if (scenario.telling == Telling::WithStatus) name += " verdicts";
        if (!scenario.habitTold) name += " untold";
        std::ranges::replace(name, ' ', '_');
        return folder_ / (name + ".json");
    }

    const CampaignPlan& plan_;
    fs::path folder_;
};

/// In a child: explores what is not known yet of a scenario.
void ExploreOne(const CampaignPlan& plan, const Records& records, const Scenario& scenario,
                std::atomic<std::uint64_t>& schedules) {
    const auto begin = Clock::now();
    const std::optional<Record> earlier = records.Find(scenario);
    Record record = earlier.value_or(Record{});
    Watch watch;
    watch.known = [&](std::size_t place) {
        return earlier && place == earlier->place ? &earlier->rest : nullptr;
    };
    auto kept = begin;
    watch.done = [&](std::size_t place, const Tally& rest) {
        schedules = Total(rest);
        if (SecondsSince(kept) < 1) return;
        kept = Clock::now();
        records.Keep(scenario, {place, rest, false, record.seconds + SecondsSince(begin), 0});
    };
    const Found found = SearchHere(scenario, plan.limits, watch);
    records.Keep(scenario,
                 {0, found.tally, true, record.seconds + SecondsSince(begin), found.states});
}

/// Shared with the children.
struct Board {
    std::atomic<std::size_t> next;
    std::atomic<std::size_t> finished;
    std::atomic<std::uint64_t> schedules[1];  // by scenario
};

class SharedBoard {
  public:
    explicit SharedBoard(std::size_t scenarios)
        : size_(sizeof(Board) + scenarios * sizeof(std::atomic<std::uint64_t>)) {
        void* const memory =
            mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED) throw std::system_error(errno, std::generic_category(), "mmap");
        board_ = static_cast<Board*>(memory);
    }
    ~SharedBoard() { munmap(board_, size_); }
    SharedBoard(const SharedBoard&) = delete;
    SharedBoard& operator=(const SharedBoard&) = delete;
    Board* operator->() const { return board_; }

  private:
    std::size_t size_;
    Board* board_;
};

/// In a child of its own for each scenario, for a search leaves its process unfit for another.
bool ExploreInChild(const CampaignPlan& plan, const Records& records, std::size_t index,
                    const SharedBoard& board) {
    const pid_t child = fork();
    if (child < 0) return false;
    if (child == 0) {
        try {
            ExploreOne(plan, records, plan.scenarios[index], board->schedules[index]);
            _exit(0);
        } catch (const std::exception& problem) {
            std::fprintf(stderr, "%s: %s\n", plan.scenarios[index].Name().c_str(), problem.what());
            _exit(1);
        }
    }
    int status = 0;
    return waitpid(child, &status, 0) == child && status == 0;
}

pid_t StartWorker(const CampaignPlan& plan, const Records& records, const SharedBoard& board) {
    const pid_t worker = fork();
    if (worker != 0) return worker;
    bool well = true;
    for (std::size_t i = 0; (i = board->next++) < plan.scenarios.size();) {
        const auto known = records.Find(plan.scenarios[i]);
        if (known && known->complete)
            board->schedules[i] = Total(known->rest);
        else
            well = ExploreInChild(plan, records, i, board) && well;
        ++board->finished;
    }
    _exit(well ? 0 : 1);
}

std::string Grouped(std::uint64_t number) {
    std::string text = std::to_string(number);
    for (std::size_t at = text.size(); at > 3;) text.insert(at -= 3, ",");
    return text;
}

void ShowProgress(const CampaignPlan& plan, const SharedBoard& board, double seconds) {
    constexpr std::size_t width = 30;
    const std::size_t all = plan.scenarios.size(), finished = board->finished;
    std::uint64_t schedules = 0;
    for (std::size_t i = 0; i < all; ++i) schedules += board->schedules[i];
    const std::size_t filled = width * finished / all;
    std::fprintf(
        stderr, "\r[%s%s] %zu of %zu, %s schedules, %s a second, %.0f s ",
        std::string(filled, '#').c_str(), std::string(width - filled, '.').c_str(), finished, all,
        Grouped(schedules).c_str(),
        Grouped(static_cast<std::uint64_t>(static_cast<double>(schedules) / seconds)).c_str(),
        seconds);
}

bool AwaitAll(const CampaignPlan& plan, const SharedBoard& board, std::vector<pid_t> workers) {
    const auto begin = Clock::now();
    bool well = true;
    while (!workers.empty()) {
        int status = 0;
        const pid_t ended = waitpid(-1, &status, plan.progress ? WNOHANG : 0);
        if (ended > 0) {
            well = well && status == 0;
            std::erase(workers, ended);
        } else if (ended == 0) {
            usleep(200'000);
        } else if (errno != EINTR) {
            return false;
        }
        if (plan.progress) ShowProgress(plan, board, SecondsSince(begin) + 1e-3);
    }
    if (plan.progress) std::fputc('\n', stderr);
    return well;
}

/// The plan's folder, or one that is gone afterwards.
class RecordsFolder {
  public:
    explicit RecordsFolder(const CampaignPlan& plan) {
        if (plan.folder.empty()) {
            temporary_.emplace();
        } else {
            fs::create_directories(plan.folder);
            path_ = plan.folder;
        }
    }
    fs::path Path() const { return temporary_ ? fs::path(temporary_->Path()) : path_; }

  private:
    std::optional<TempDir> temporary_;
    fs::path path_;
};

}  // namespace

std::vector<Explored> RunCampaign(const CampaignPlan& plan) {
    const RecordsFolder folder(plan);
    const Records records(plan, folder.Path());
    const SharedBoard board(plan.scenarios.size());
    std::fflush(nullptr);  // a child must not write what its parent has yet to write
    const auto processors = static_cast<unsigned>(std::max(1L, sysconf(_SC_NPROCESSORS_ONLN)));
    std::vector<pid_t> workers;
    for (unsigned i = 0; i < (plan.jobs != 0 ? plan.jobs : processors); ++i)
        workers.push_back(StartWorker(plan, records, board));
    const bool well = AwaitAll(plan, board, workers);
    if (!well) throw std::runtime_error("not everything could be explored");
    std::vector<Explored> all;
    for (const Scenario& scenario : plan.scenarios) {
        const Record record = records.Find(scenario).value();
        all.push_back({scenario, record.rest, record.seconds, record.states});
    }
    return all;
}

}  // namespace explore
