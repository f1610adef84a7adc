// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/runner/Device.h"

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>

namespace fs = std::filesystem;

namespace runner {

namespace {

[[noreturn]] void Fail(const Profile& profile, const std::string& what) {
    throw DeviceError("the device '" + profile.device + "' of register '" + profile.name + "' " +
                      what);
}

std::string AccountName() {
    const passwd* account = getpwuid(geteuid());
    return account == nullptr ? std::to_string(geteuid()) : account->pw_name;
}

// What helps when a group may use the device, as dialout on Debian.
std::string GroupRemedy(const std::string& device) {
    struct stat status = {};
    if (stat(device.c_str(), &status) != 0 || (status.st_mode & S_IWGRP) == 0) return "";
    const group* owners = getgrgid(status.st_gid);
    if (owners == nullptr) return "";
    const std::string account = AccountName();
    const std::string name = owners->gr_name;
    return ": the account '" + account + "' is not in group " + name +
           ". As root, `usermod -a -G " + name + " " + account + "`; then log in again";
}

bool IsCharacterDevice(const std::string& path) {
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 && S_ISCHR(status.st_mode);
}

}  // namespace

std::string UsableDevice(const Profile& profile) {
    std::error_code error;
    std::string device = fs::canonical(profile.device, error);
    if (error) Fail(profile, "cannot be found - " + error.message());
    if (!IsCharacterDevice(device)) Fail(profile, "is not a character device");
    // Not by opening it: that would move the line's control signals.
    if (faccessat(AT_FDCWD, device.c_str(), R_OK | W_OK, AT_EACCESS) != 0) {
        const std::string reason = std::strerror(errno);
        Fail(profile, "cannot be opened - " + reason + GroupRemedy(device));
    }
    return device;
}

}  // namespace runner
