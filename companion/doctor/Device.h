// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The register's serial port: is it there, may it be used, who has it, and is it as fast as it can
// be.
#pragma once

#include <string>

#include "companion/doctor/Finding.h"
#include "companion/doctor/Machine.h"
#include "companion/runner/Profile.h"

namespace doctor {

/// What the system knows of a port.
struct Port {
    std::string path;    ///< without symbolic links
    std::string name;    ///< in /sys/class/tty: ttyS0, ttyUSB0; that of a pseudo terminal: pts/3
    std::string driver;  ///< of the kernel; empty: unknown
    bool isUsb = false;
    std::string vendor;  ///< of a USB adapter, as udev rules have it: 0403
    std::string product;
    std::string serial;     ///< empty: it has none
    std::string socket;     ///< where it is plugged in: 1-1.2
    std::string interface;  ///< of the adapter, as udev has it: 01; empty: unknown
    std::string number;     ///< of the port at an interface with several: 1; empty: it is alone
};
Port PortAt(const Machine& machine, const std::string& device);

/// All about the device of a register. lockFolder: where lock files are.
Findings CheckDevice(const Machine& machine, const runner::Profile& profile,
                     const std::string& lockFolder = "/run/lock");

/// A udev rule that gives the port a name of its own and to group dialout, and keeps ModemManager
/// away. std::runtime_error: no such port, or one without anything to know it by.
std::string UdevRule(const Machine& machine, const runner::Profile& profile);

}  // namespace doctor
