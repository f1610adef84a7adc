// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/runner/SiteLogs.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>

namespace runner {

namespace {

constexpr char savedText[] = "  Debug information saved in dbgerror.log\n";

// Of EXIT the driver ends with 1, too; then it writes no result.
bool Failed(const RunResult& run) {
    const bool exitFile = run.exitCode == 1 && !run.resultText;
    return run.exitCode != 0 && !exitFile;
}

// The driver's rule. One that is killed has no time to remove its lines.
bool KeepsDebug(const Profile& profile, const RunResult& run) {
    if (run.killedBySignal != 0) return true;
    return profile.dbgErrorLog == 1 ? Failed(run) : profile.dbgErrorLog != 0;
}

bool KeepsStandard(const Profile& profile, const RunResult& run) {
    return run.killedBySignal != 0 || profile.standardLog != 0;
}

// In the private run the debug log was always saved, and the standard log says so in a line of its
// own, the last one.
std::string WithoutSavedLine(const std::string& block) {
    if (!block.ends_with(savedText)) return block;
    const std::size_t end = block.size() - std::strlen(savedText);
    return block.substr(0, block.rfind('\n', end) + 1);
}

std::string Warning(const std::string& file) {
    const std::string reason = std::strerror(errno);
    return "the log '" + file + "' lacks this run - " + reason + "\n";
}

// Whoever shares the folder could put a link there that leads to a file of this account's.
std::string AppendTo(const std::string& file, const std::string& block) {
    if (block.empty()) return "";
    constexpr int flags = O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW;
    const int fd = open(file.c_str(), flags, 0666);
    if (fd == -1) return Warning(file);
    errno = ENOSPC;  // of a write that is cut short
    const bool written =
        write(fd, block.data(), block.size()) == static_cast<ssize_t>(block.size());
    std::string warning = written ? "" : Warning(file);
    close(fd);
    return warning;
}

}  // namespace

std::string AppendToSiteLogs(const Profile& profile, const RunResult& run,
                             const std::string& folder) {
    if (!profile.sandbox) return "";
    const bool debug = KeepsDebug(profile, run);
    std::string warnings;
    if (debug) warnings += AppendTo(folder + "/dbgerror.log", run.debugLog);
    if (!KeepsStandard(profile, run)) return warnings;
    const std::string block = debug ? run.standardLog : WithoutSavedLine(run.standardLog);
    return warnings + AppendTo(folder + "/voltis.log", block);
}

}  // namespace runner
