// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// A register's serial device before a run.
#pragma once

#include <string>

#include "companion/runner/CommandPath.h"
#include "companion/runner/Profile.h"

namespace runner {

/// The device is not there, or is not for us.
class DeviceError : public RunError {
  public:
    using RunError::RunError;
};

/// The device's path without symbolic links. DeviceError, with the remedy: there is no such device,
/// it is no character device, or we may not open it.
std::string UsableDevice(const Profile& profile);

}  // namespace runner
