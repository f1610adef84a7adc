// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// A command file's path as the driver takes it from its command line.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

namespace runner {

/// The driver was not started, so nothing was sent. The message says what to do.
class RunError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// The path that the driver opens: a backslash counts as a slash.
std::string DriversPath(const std::string& commandFile);

/// RunError: the driver would take this argument for an option, or it names no file.
void CheckCommandPath(const std::string& commandFile);

/// The folder of the command file and of its result, as it is outside: "." for a bare name.
std::string FolderOf(const std::string& commandFile);

/// Where the path leads in a root that has no symbolic links.
struct CommandPlace {
    std::string workDir;  ///< the one given for a relative path, else /
    std::string folder;   ///< absolute, without . and ..
    std::string name;
    std::vector<std::string> crossed;  ///< folders that the path enters and leaves by ..
};

/// The workDir is absolute.
CommandPlace PlaceOf(const std::string& commandFile, const std::string& workDir);

}  // namespace runner
