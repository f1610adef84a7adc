// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// SIGINT and SIGTERM as something to wait for, so that what was set up is removed first.
#pragma once

/// While it lives, the two signals and SIGPIPE no longer end the process.
class Interrupts {
  public:
    Interrupts();
    ~Interrupts();
    Interrupts(const Interrupts&) = delete;
    Interrupts& operator=(const Interrupts&) = delete;

    /// Readable when one of the two has come.
    int Fd() const { return fd_; }
    /// The number of the signal that came, 0 when none did. Takes it; never waits.
    int Take();

  private:
    int fd_;
};
