// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Many runs, each in a process of its own (the driver's flags are never cleared), two or more at a
// time, and the sum of what became of them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "tests/support/Sanitized.h"

namespace faults {

enum class Verdict : std::uint8_t {
    Ok,         // exit code 0 and all as promised
    Failed,     // another exit code and all as promised
    Excused,    // the promise is broken and the note says which reason excuses it
    Violation,  // the promise is broken
};

struct Outcome {
    Verdict verdict = Verdict::Violation;
    int exitCode = -1;
    int frames = 0;  // that the driver wrote
    char note[160] = "ended without a verdict";
};

Outcome Judged(Verdict verdict, int exitCode, int frames, const std::string& note = "");

struct Tally {
    std::size_t runs = 0, ok = 0;
    std::map<int, std::size_t> failedByCode;
    std::map<std::string, std::size_t> excusedByReason;
    std::size_t violations = 0;
    std::vector<std::string> complaints;  // the first of them, "run 17: ..."
    int mostFrames = 0;

    void Add(std::size_t run, const Outcome& outcome);
    void Complain(const std::string& text);
    std::size_t Failed() const;
    /// "6000 runs: 512 ok, 5480 failed cleanly (2: 1200, 101: 4280), 8 excused (...), ..."
    std::string Text() const;
};

struct CampaignLimits {
    unsigned secondsPerRun = 10;
    unsigned secondsInAll = 600;
    unsigned atOnce = 0;  // 0: as many as there are processors, 2 at least
};

/// A number that a child can leave for its parent.
class SharedCount {
  public:
    SharedCount();
    ~SharedCount();
    SharedCount(const SharedCount&) = delete;
    SharedCount& operator=(const SharedCount&) = delete;
    std::size_t* Get() const { return count_; }

  private:
    std::size_t* count_;
};

/// Calls run(0) to run(count - 1), each in a child of its own. A child that is killed, runs out of
/// time or reaches no verdict is a violation, and so is running out of time in all.
Tally RunCampaign(std::size_t count, const CampaignLimits& limits,
                  const std::function<Outcome(std::size_t)>& run);

/// In a child: reports the verdict and ends the process, for a run that does not return.
[[noreturn]] void Conclude(const Outcome& outcome);

/// Prints the line of a test and its complaints; 0 when there are none, else 1, for main.
int Report(const std::string& what, const Tally& tally);

/// The command line of these tests.
struct Options {
    bool full = false;       // --full
    std::uint64_t seed = 1;  // --seed=N
    std::size_t runs = 0;    // --runs=N; 0: the test's own number
};
/// Ends the process with a message for anything else.
Options ParseOptions(int argc, char* argv[]);

}  // namespace faults
