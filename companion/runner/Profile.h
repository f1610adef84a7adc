// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The registers of a site: one configuration file each, in the driver's own format.
#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace runner {

/// The name of the register that /etc/voltis/voltis.ini describes.
inline constexpr char defaultRegister[] = "default";

/// A register that is not there, or a file that makes no sense. The message names the file and the
/// key.
class ProfileError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// What a file says about its register. Keys of the driver's have the driver's defaults.
struct Profile {
    std::string name;
    std::string file;  ///< the path of the file
    std::string text;  ///< its bytes, as they were when it was read

    std::string device;   ///< as it is written, or /dev/ttyS<ComNumber - 1>; empty: a network
    std::string network;  ///< ADDRESS:PORT; empty: a device

    int protocolFormatting = 0;
    int networkId = 1;
    std::string codePage;        ///< in capitals
    std::string resultFileName;  ///< the name without a path; empty: no result file
    bool oldResultFileFormat = false;
    int standardLog = 0;
    int dbgErrorLog = 0;
    bool keepEcrBlocked = false;

    bool sandbox = true;             ///< false: the driver runs in place
    std::vector<std::string> habit;  ///< the words of Habit=
    int journalDays = 400;

    bool IsDefault() const { return name == defaultRegister; }
};

/// Reads the register's file: FOLDER/voltis.ini without a name or by the name "default", else
/// FOLDER/registers/NAME.ini. It is read as the driver reads it.
Profile LoadProfile(const std::string& folder, const std::optional<std::string>& name = {});

/// Letters, digits, '-', '_' and '.', of which it does not begin with the last.
bool IsRegisterName(const std::string& name);

/// The names of all registers: "default", when its file is there, and then the others, sorted.
std::vector<std::string> RegisterNames(const std::string& folder);
/// All of them. ProfileError: there is none, or one of the files makes no sense.
std::vector<Profile> AllProfiles(const std::string& folder);

/// The text of the driver's configuration for a run in a private root: the register's own, where
/// the device is the first serial port and both logs are kept. There is always a result file.
std::string PrivateIni(const Profile& profile);
/// The name of the result file in such a run.
std::string PrivateResultName(const Profile& profile);

}  // namespace runner
