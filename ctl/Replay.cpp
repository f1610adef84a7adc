// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ctl/Replay.h"

#include <chrono>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "companion/replay/LoggedRun.h"
#include "companion/replay/Replay.h"
#include "companion/runner/Files.h"
#include "ctl/Excerpt.h"
#include "ctl/FiniteRange.h"
#include "ctl/Interrupts.h"
#include "ctl/UsageError.h"
#include "emulator/PtyServer.h"

namespace {

constexpr int exitDiffers = 1;
constexpr std::chrono::seconds settleTime{1};
constexpr double longestTimeout = 86400;

constexpr char replayFooter[] =
    "The first line printed is the pseudo terminal's path. Run the caller there, as it ran in "
    "the shop: each of its frames is compared with the log, and answered as the register "
    "answered then; where the log has no answer, there is none. The last line tells what came "
    "of it. Bytes that the driver had thrown away are not sent.\n"
    "Exit status: 0 all of the conversation was as logged, 1 it differed, 2 a wrong option or a "
    "log that cannot be used.\n"
    "\nExample:\n"
    "  voltisctl replay --run 3 --link /dev/ttyS9 dbgerror.log";

struct ReplayOptions {
    std::string log;
    std::size_t run = 0;  // 0: the last one
    std::string link;
    double timeoutSeconds = 0;  // 0: none
    bool paced = false;
};

std::vector<replay::LoggedRun> RunsOf(const ReplayOptions& options) {
    std::string text;
    CheckUsage([&] { text = runner::ReadFile(options.log); });
    auto runs = replay::ReadRuns(text);
    if (runs.empty()) throw UsageError("there is no conversation in '" + options.log + "'");
    return runs;
}

void CheckIsWhole(const ReplayOptions& options, const replay::LoggedRun& run) {
    if (!run.damage) return;
    std::string excerpt = Excerpt(run.damage->text, 1);
    excerpt.pop_back();
    throw UsageError("'" + options.log + "' cannot be used\n" + OnTerminal(options.log) + ":" +
                     std::to_string(run.damage->number) +
                     ":1: error: not as the driver writes it\n" + excerpt);
}

std::size_t ChosenOf(const ReplayOptions& options, std::size_t runs) {
    if (options.run > runs)
        throw UsageError("'" + options.log + "' has " + std::to_string(runs) + " run" +
                         (runs == 1 ? "" : "s") + " with a conversation");
    return options.run == 0 ? runs : options.run;
}

// One `voltisctl replay`.
class Replaying {
  public:
    Replaying(const ReplayOptions& options, const replay::LoggedRun& run)
        : far_(run, options.paced), server_(far_, PtyFor(options)) {
        far_.OnEnd([this] { Ended(); });
        server_.Watch(interrupts_.Fd(), [this] {
            interrupts_.Take();
            far_.EndNow("interrupted");
            server_.Stop();
            return true;
        });
        if (options.timeoutSeconds > 0)
            server_.After(std::chrono::duration_cast<std::chrono::milliseconds>(
                              std::chrono::duration<double>(options.timeoutSeconds)),
                          [this] {
                              far_.EndNow("the time was over");
                              server_.Stop();
                          });
    }

    const std::string& Path() const { return server_.SlavePath(); }

    int Run() {
        server_.Run();
        std::cout << far_.Report();
        if (far_.Now() == replay::Replay::State::AsLogged) std::cout << '\n';
        std::cout << std::flush;
        return far_.Now() == replay::Replay::State::AsLogged ? 0 : exitDiffers;
    }

  private:
    static emulator::PtyOptions PtyFor(const ReplayOptions& options) {
        emulator::PtyOptions pty;
        pty.link = options.link;
        return pty;
    }

    // After the last frame the caller may still say too much.
    void Ended() {
        if (far_.Now() == replay::Replay::State::Differs || far_.Over()) return server_.Stop();
        server_.After(settleTime, [this] { server_.Stop(); });
    }

    Interrupts interrupts_;
    replay::Replay far_;
    emulator::PtyServer server_;
};

int ReplayLog(const ReplayOptions& options) {
    const std::vector<replay::LoggedRun> runs = RunsOf(options);
    const std::size_t chosen = ChosenOf(options, runs.size());
    const replay::LoggedRun& run = runs[chosen - 1];
    CheckIsWhole(options, run);
    Replaying replaying(options, run);
    std::cout << replaying.Path() << "\nrun " << chosen << " of " << runs.size()
              << (run.started.empty() ? "" : ", " + run.started)
              << (run.cut ? ", cut off in the log" : "") << '\n'
              << std::flush;
    return replaying.Run();
}

}  // namespace

std::function<int()> BindReplay(CLI::App& command) {
    const auto options = std::make_shared<ReplayOptions>();
    command.add_option("LOG", options->log, "The debug log")->required()->type_name("");
    command.add_option("--run", options->run, "Which run of the log, from 1 (default: the last)")
        ->check(CLI::PositiveNumber)
        ->type_name("N");
    command.add_option("--link", options->link, "Keep a symbolic link to the pseudo terminal here")
        ->type_name("PATH");
    command.add_flag("--paced", options->paced, "Take as long for each answer as it took then");
    command
        .add_option("--timeout", options->timeoutSeconds,
                    "The longest that it may take (default: no limit)")
        ->check(FiniteRange(0, longestTimeout))
        ->type_name("SECONDS");
    command.footer(replayFooter);
    return [options] { return ReplayLog(*options); };
}
