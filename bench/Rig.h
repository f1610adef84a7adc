// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The driver as it is shipped at the end of a line with an emulated register. Works inside the
// sandbox only, whose /dev/ttyS0, /etc/voltis and /var/log/voltis it makes its own.
#pragma once

#include <string>
#include <vector>

#include "bench/Replay.h"
#include "bench/Spawn.h"
#include "emulator/Line.h"
#include "emulator/PtyServer.h"

inline constexpr double closingPauseMs = 100;  // the driver's wait before it closes the port
inline constexpr double byteMs = 11 * 1000.0 / 19200;

struct ServedRun {
    Series series;
    emulator::LineCounters counters;  // over all runs of the series
    std::vector<FrameSeen> frames;    // likewise, when asked for

    double LineMs() const;  // what the bytes of one run take at 19200 baud
};

class Rig {
  public:
    explicit Rig(emulator::WireFamily family);

    Rig& Paced(bool paced) {
        paced_ = paced;
        return *this;
    }
    Rig& NoteFrames() {
        noteFrames_ = true;
        return *this;
    }

    /// Runs the driver with a file of these commands, so many times one after the other, the
    /// debug log on. Every run must end well.
    ServedRun Run(const std::string& commands, int rounds) const;
    /// Replays the exchange of a run whose frames were noted, without the driver. To be called on a
    /// rig with a new register, as that run was: each call of this class takes a new one.
    Series Replay(const ServedRun& run) const;
    /// Runs each of the programs in turn, that many rounds, with the command file as last argument.
    std::vector<Series> RunEach(const std::string& commands, int rounds,
                                const std::vector<CommandLine>& programs) const;
    /// The same once, below another program, for example strace.
    std::string RunUnder(const CommandLine& program, const std::string& commands) const;

  private:
    template <typename Action>
    ServedRun Serve(const std::string& commands, Action action) const;

    emulator::WireFamily family_;
    bool paced_ = false;
    bool noteFrames_ = false;
};
