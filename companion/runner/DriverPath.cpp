// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/runner/DriverPath.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <sstream>
#include <stdexcept>

namespace fs = std::filesystem;

namespace runner {

namespace {

constexpr char driverName[] = "voltis";

bool IsProgram(const fs::path& path) {
    std::error_code ignored;
    return fs::is_regular_file(path, ignored) && access(path.c_str(), X_OK) == 0;
}

// Empty: on PATH, too, there is none.
fs::path OnPath() {
    const char* path = std::getenv("PATH");
    std::istringstream folders(path == nullptr ? "" : path);
    for (std::string folder; std::getline(folders, folder, ':');) {
        fs::path candidate = fs::path(folder) / driverName;
        if (!folder.empty() && IsProgram(candidate)) return candidate;
    }
    return {};
}

fs::path Default() {
    fs::path beside = fs::read_symlink("/proc/self/exe").parent_path() / driverName;
    if (IsProgram(beside)) return beside;
    const fs::path found = OnPath();
    return found.empty() ? beside : found;
}

}  // namespace

std::string DriverPath(const std::string& given) {
    const fs::path path = given.empty() ? Default() : fs::path(given);
    if (access(path.c_str(), X_OK) != 0) {
        throw std::runtime_error("no driver at '" + path.string() + "' - " + std::strerror(errno) +
                                 "; build it, or name another with --driver");
    }
    return fs::canonical(path);
}

}  // namespace runner
