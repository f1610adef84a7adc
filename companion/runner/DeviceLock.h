// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// One run at a time on a register, over all programs, users and folders.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <stdexcept>
#include <string>

#include "companion/runner/Profile.h"

namespace runner {

inline constexpr char lockFolder[] = "/run/lock";

/// The register is in use; the message names the process that has it.
class DeviceBusy : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// The path of the register's lock file: FOLDER/LCK..NAME. NAME is what follows /dev/ in the
/// device's path without symbolic links, with "_" for "/": ttyUSB0, pts_3. For a register on the
/// network it is net_ADDRESS_PORT.
std::string LockFileOf(const Profile& profile, const std::string& folder = lockFolder);

/// How long to wait for a lock, and whether to go on waiting: asked every few milliseconds.
struct LockWait {
    std::chrono::milliseconds longest{0};
    std::function<bool()> goOn = [] { return true; };
};

/// A lock file as the serial ports have it, the process ID in ten characters and a line feed, and a
/// flock on it. The flock is what counts between callers of this: the file of a holder that was
/// killed is taken over. It does not end before the last process that has inherited Fd(), so that
/// a driver that survives its caller keeps the register. What is left of a sandbox that was being
/// made when the caller was killed is no driver yet, and is ended. Files of other programs, which
/// know no flock, are respected as long as their process lives; ours have the sticky bit, to tell
/// them apart.
class DeviceLock {
  public:
    /// DeviceBusy: somebody else has it and kept it for as long as was waited. std::system_error:
    /// the file cannot be made or opened.
    explicit DeviceLock(const std::string& file, const LockWait& wait = {});
    /// Removes the file. A forked child leaves the lock to its parent.
    ~DeviceLock();
    DeviceLock(const DeviceLock&) = delete;
    DeviceLock& operator=(const DeviceLock&) = delete;

    /// To be inherited by what works on the device.
    int Fd() const { return fd_; }

  private:
    bool Take();
    void Remove() const;

    std::string file_;
    int fd_ = -1;
    pid_t owner_;
};

}  // namespace runner
