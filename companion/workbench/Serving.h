// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// An emulated register at the end of a line on a pty, and its time at work.
#pragma once

#include <cstddef>
#include <future>
#include <string>
#include <vector>

#include "emulator/Line.h"
#include "emulator/PtyServer.h"
#include "emulator/Register.h"

namespace workbench {

/// A register with its line. Both keep what they know from run to run.
struct Station {
    Station(emulator::RegisterConfig config, emulator::WireFamily family,
            emulator::PtyOptions options = {});

    emulator::Register device;
    emulator::Line line;
    emulator::PtyServer server;
};

/// Serves the line in the background; the register may be looked at only before and after.
class Serving {
  public:
    explicit Serving(emulator::PtyServer& server);
    ~Serving();
    Serving(const Serving&) = delete;
    Serving& operator=(const Serving&) = delete;

    /// Ends the service, after the line has been looked at once more: that the driver has closed it
    /// counts, and the line is ready for the next one. Throws what the service ended with.
    void Finish();

  private:
    emulator::PtyServer& server_;
    std::future<void> running_;
};

/// What a register has printed and done since this was made.
class Since {
  public:
    explicit Since(const emulator::Register& device);
    std::vector<std::string> Lines() const;
    std::vector<emulator::Acted> Journal() const;
    std::vector<std::string> Complaints() const;

  private:
    const emulator::Register& device_;
    std::size_t lines_;
    std::size_t judged_;
    std::size_t complaints_;
};

}  // namespace workbench
