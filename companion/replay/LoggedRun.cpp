// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/replay/LoggedRun.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <system_error>
#include <utility>

#include "companion/transcript/Transcript.h"

namespace replay {

namespace {

constexpr std::string_view startText = " started. Command line : ";
constexpr std::size_t timeSize = 23;  // "22.11.2026 05:30:12.345"
constexpr std::string_view thrownAway = "(ignored)";
constexpr std::string_view lostByHand = "PC<-ECR: lost";  // as tests mark it

bool IsBlock(std::string_view line) {
    return line.starts_with("PC->ECR") || line.starts_with("PC<-ECR");
}

bool IsThrownAway(std::string_view line) {
    const std::size_t colon = std::min(line.find(':'), line.size());
    std::string_view rest = line.substr(std::min(colon + 1, line.size()));
    rest.remove_prefix(std::min(rest.find_first_not_of(' '), rest.size()));
    return rest.starts_with(thrownAway);
}

// Of "PC<-ECR   4 bytes in  211.4 ms : ...".
std::chrono::milliseconds TimeOf(std::string_view line) {
    constexpr std::string_view before = " bytes in ";
    const std::size_t at = line.find(before);
    if (at == std::string_view::npos) return {};
    line.remove_prefix(at + before.size());
    line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
    unsigned ms = 0;
    const auto [end, error] = std::from_chars(line.data(), line.data() + line.size(), ms);
    return std::chrono::milliseconds(error == std::errc() ? ms : 0);
}

// Line by line, so that each step knows its own.
class Reader {
  public:
    void Read(std::string_view line, bool whole) {
        ++number_;
        if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
        if (line.find(startText) != std::string_view::npos && !IsBlock(line)) {
            runs_.push_back({std::string(line.substr(0, timeSize)), {}, false, {}});
        } else if (IsBlock(line) && line != lostByHand) {
            ReadBlock(line, whole);
        }
    }

    std::vector<LoggedRun> Runs() {
        std::erase_if(runs_, [](const LoggedRun& run) { return run.steps.empty() && !run.damage; });
        return std::move(runs_);
    }

  private:
    void ReadBlock(std::string_view line, bool whole) {
        if (runs_.empty()) runs_.emplace_back();
        LoggedRun& run = runs_.back();
        if (!whole) {
            run.cut = true;
            return;
        }
        const auto read = transcript::ReadLog(std::string(line) + "\n");
        if (read.damaged || read.blocks.size() != 1) {
            if (!run.damage) run.damage = DamagedLine{number_, std::string(line)};
            return;
        }
        const transcript::Block& block = read.blocks.front();
        if (IsThrownAway(line) || block.bytes.empty()) return;
        if (!block.toRegister && run.steps.empty()) return;  // nobody had asked
        run.steps.push_back({block.toRegister, block.bytes, TimeOf(line), number_});
    }

    std::vector<LoggedRun> runs_;
    int number_ = 0;
};

}  // namespace

std::vector<LoggedRun> ReadRuns(std::string_view log) {
    Reader reader;
    while (!log.empty()) {
        const std::size_t end = std::min(log.find('\n'), log.size());
        reader.Read(log.substr(0, end), end < log.size());
        log.remove_prefix(std::min(end + 1, log.size()));
    }
    return reader.Runs();
}

}  // namespace replay
