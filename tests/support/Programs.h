// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The programs that are tested from outside: those that the variables name, or else those of this
// test's own build, which are in the folder above.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>

inline std::string ProgramPath(const char* variable, const char* name) {
    const char* const path = std::getenv(variable);
    if (path != nullptr) return path;
    const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe");
    return self.parent_path().parent_path() / name;
}

inline std::string VoltisPath() {
    return ProgramPath("VOLTIS_PATH", "voltis");
}

inline std::string VoltisdPath() {
    return ProgramPath("VOLTISD_PATH", "voltisd");
}

inline std::string VoltisctlPath() {
    return ProgramPath("VOLTISCTL_PATH", "voltisctl");
}
