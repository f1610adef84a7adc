// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/doctor/System.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <set>
#include <sstream>
#include <stdexcept>

#include "Globals.h"
#include "companion/runner/DriverPath.h"
#include "companion/runner/Sandbox.h"

namespace doctor {

namespace {

constexpr std::uint64_t mebi = 1024UL * 1024;

std::string ForAccount(const Machine& machine) {
    return "the account " + Quoted(machine.account.name);
}

bool IsFolder(const Machine& machine, const std::string& path) {
    const auto facts = machine.FactsOf(path);
    return facts && S_ISDIR(facts->mode);
}

// --- logs ---------------------------------------------------------------------------------------

constexpr char noLogs[] =
    ": `voltis` by itself, and runs with Sandbox=no, end with exit code 2; other runs of "
    "`voltisctl` print, but the logs here lack them";

Finding FolderMissing(const std::string& folder) {
    return {Severity::Error, "logs-missing",
            "the folder of the logs, " + Quoted(folder) + ", is not there" + noLogs,
            "As root, `install -d -m 2775 -g dialout " + Private(folder) + "`."};
}

Finding FolderClosed(const Machine& machine, const std::string& folder) {
    return {Severity::Error, "logs-rights",
            ForAccount(machine) + " may not write into the folder of the logs, " + Quoted(folder) +
                noLogs,
            "As root, `chgrp dialout " + Private(folder) + "` and `chmod 2775 " + Private(folder) +
                "`; the account must be in the group dialout."};
}

Finding LogClosed(const Machine& machine, const std::string& path) {
    return {
        Severity::Error, "log-rights",
        ForAccount(machine) + " may not write the log " + Quoted(path) + noLogs,
        "As root, `chgrp dialout " + Private(path) + "` and `chmod 664 " + Private(path) + "`."};
}

// Rights given to it would be given to the file that it leads to, which may be any.
Finding LogLinked(const Machine& machine, const std::string& path) {
    return {Severity::Error, "log-link",
            "the log " + Quoted(path) + " is a symbolic link to " + Quoted(machine.LinkAt(path)) +
                ": `voltis` and runs with Sandbox=no write there; other runs of `voltisctl` "
                "print, but the logs here lack them",
            "Find out who made it, for every account of the group could. As root, `rm " +
                Private(path) + "`; to keep the logs elsewhere, link their folder."};
}

std::optional<std::uint64_t> SizeOf(const Machine& machine, const std::string& path) {
    struct stat status = {};
    if (stat(machine.Found(path).c_str(), &status) != 0) return std::nullopt;
    return static_cast<std::uint64_t>(status.st_size);
}

void CheckLog(const Machine& machine, const std::string& path, Findings& findings) {
    constexpr std::uint64_t large = 100 * mebi;
    if (!machine.LinkAt(path).empty()) {
        findings.push_back(LogLinked(machine, path));
        return;
    }
    const auto facts = machine.FactsOf(path);
    if (!facts) return;  // the first run makes it
    if (!S_ISREG(facts->mode) || !machine.Grants(path, Write))
        findings.push_back(LogClosed(machine, path));
    if (SizeOf(machine, path).value_or(0) < large) return;
    findings.push_back({Severity::Note, "log-large",
                        "the log " + Quoted(path) + " is larger than 100 MB",
                        "docs/setup.md, \"Logs\", has a configuration for logrotate."});
}

// --- room ---------------------------------------------------------------------------------------

std::string Megabytes(std::uint64_t bytes) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.1f MB", static_cast<double>(bytes) / mebi);
    return text.data();
}

void CheckDisk(const Machine& machine, const std::string& place, Findings& findings) {
    constexpr std::uint64_t none = mebi;
    constexpr std::uint64_t little = 100 * mebi;
    const std::uint64_t room = machine.FreeBytesAt(place).value_or(little);
    if (room >= little) return;
    findings.push_back({room < none ? Severity::Error : Severity::Warning, "disk-full",
                        "the disk of " + Quoted(place) + " has only " + Megabytes(room) + " left",
                        "Make room; on a full disk result files are empty and logs lack runs."});
}

// --- the marker ---------------------------------------------------------------------------------

// In a folder as /tmp only its owner, or that of the folder, removes a file.
bool MayRemove(const Machine& machine, const std::string& folder, const FileFacts& file) {
    if (S_ISDIR(file.mode) || !machine.GrantsFolder(folder)) return false;
    const FileFacts there = machine.FactsOf(folder).value_or(FileFacts{});
    const uid_t uid = machine.account.uid;
    return (there.mode & S_ISVTX) == 0 || uid == 0 || uid == file.uid || uid == there.uid;
}

// --- the sandbox --------------------------------------------------------------------------------

constexpr char orAsRoot[] = ", or run voltisctl as root.";

void CheckKernel(const Machine& machine, Findings& findings) {
    if (machine.NumberIn("/proc/sys/kernel/unprivileged_userns_clone") == 0) {
        findings.push_back(
            {Severity::Error, "no-namespaces",
             "the kernel lets only root make a user namespace, which the private "
             "root of a run needs",
             std::string("As root, `sysctl -w kernel.unprivileged_userns_clone=1`") + orAsRoot});
    }
    if (machine.NumberIn("/proc/sys/user/max_user_namespaces") == 0) {
        findings.push_back(
            {Severity::Error, "no-namespaces",
             "the kernel is set to no user namespaces, and the private root of a "
             "run needs one",
             std::string("As root, `sysctl -w user.max_user_namespaces=15000`") + orAsRoot});
    }
    if (machine.NumberIn("/proc/sys/kernel/apparmor_restrict_unprivileged_userns").value_or(0) !=
        0) {
        findings.push_back(
            {Severity::Warning, "apparmor",
             "AppArmor restricts user namespaces, which the private root of a run needs",
             std::string("As root, `sysctl -w kernel.apparmor_restrict_unprivileged_userns=0`") +
                 orAsRoot});
    }
}

std::vector<std::string> SearchPath() {
    const char* path = std::getenv("PATH");
    std::istringstream in(path == nullptr ? "/usr/bin:/bin" : path);
    std::vector<std::string> folders;
    for (std::string folder; std::getline(in, folder, ':');)
        if (!folder.empty() && folder.front() == '/') folders.push_back(folder);
    return folders;
}

bool HasBubblewrap(const Machine& machine) {
    for (const std::string& folder : SearchPath()) {
        const std::string path = folder + "/bwrap";
        const auto facts = machine.FactsOf(path);
        if (facts && S_ISREG(facts->mode) && machine.Grants(path, Right::Search)) return true;
    }
    return false;
}

// As a run makes it.
void TrySandbox(Findings& findings) {
    try {
        runner::RunSandboxed({}, {"true"});
    } catch (const runner::SandboxError& failure) {
        findings.push_back(
            {Severity::Error, "no-sandbox",
             std::string("the private root of a run cannot be made: ") + Private(failure.what()),
             "Do as it says, or write Sandbox=no and DbgErrorLog=2 into "
             "voltis.ini."});
    }
}

}  // namespace

Findings CheckWay(const Machine& machine, const std::string& what, const std::string& path) {
    const std::string closed = machine.ClosedAbove(path);
    if (closed.empty()) return {};
    return {{Severity::Error, "path-closed",
             ForAccount(machine) + " may not enter " + Quoted(closed) + ", and so not reach " +
                 what + ", " + Quoted(path),
             "Use a place elsewhere; or, as root, `chmod o+x " + Private(closed) + "`."}};
}

Findings CheckConfiguration(const Machine& machine, const std::string& file) {
    Findings findings = CheckWay(machine, "the configuration", file);
    if (!findings.empty() || machine.Grants(file, Read)) return findings;
    return {{Severity::Error, "config-rights",
             ForAccount(machine) + " may not read the configuration " + Quoted(file),
             "As root, `chmod a+r " + Private(file) + "`."}};
}

Findings CheckLocks(const Machine& machine, const std::string& folder) {
    Findings findings = CheckWay(machine, "the lock files", folder);
    if (!findings.empty()) return findings;
    constexpr char noStart[] = ": `voltisctl run` ends before it prints";
    const std::string remedy = "As root, `install -d -m 1777 " + Private(folder) + "`.";
    if (!IsFolder(machine, folder)) {
        return {{Severity::Error, "locks-missing",
                 "the folder of the lock files, " + Quoted(folder) + ", is not there" + noStart,
                 remedy}};
    }
    if (machine.GrantsFolder(folder)) return {};
    return {{Severity::Error, "locks-rights",
             ForAccount(machine) + " may not write into the folder of the lock files, " +
                 Quoted(folder) + noStart,
             remedy}};
}

Findings CheckCommandFolder(const Machine& machine, const std::string& folder) {
    Findings findings = CheckWay(machine, "the command files", folder);
    if (!findings.empty()) return findings;
    if (!IsFolder(machine, folder)) {
        return {{Severity::Error, "folder-missing",
                 "the folder of the command files, " + Quoted(folder) + ", is not there",
                 "Make it, or name the right one with --folder."}};
    }
    if (machine.GrantsFolder(folder)) return {};
    return {{Severity::Error, "folder-rights",
             ForAccount(machine) + " may not write into the folder of the command files, " +
                 Quoted(folder) +
                 ": `voltisctl run` prints nothing there, and `voltis` by itself writes no result "
                 "file",
             "As root, `chown " + Private(machine.account.name) + " " + Private(folder) +
                 "`, or use a folder of that account."}};
}

Findings CheckLogs(const Machine& machine, const std::string& folder) {
    Findings findings = CheckWay(machine, "the logs", folder);
    if (!findings.empty()) return findings;
    if (!IsFolder(machine, folder)) return {FolderMissing(folder)};
    if (!machine.GrantsFolder(folder)) findings.push_back(FolderClosed(machine, folder));
    for (const char* name : {stdLogFileName, dbgLogFileName})
        CheckLog(machine, folder + "/" + name, findings);
    return findings;
}

Findings CheckSpace(const Machine& machine, const std::vector<std::string>& folders) {
    std::set<dev_t> seen;
    Findings findings;
    for (std::string place : folders) {
        while (place != "/" && !machine.FactsOf(place)) place = FolderOf(place);
        const auto facts = machine.FactsOf(place);
        if (facts && seen.insert(facts->disk).second) CheckDisk(machine, place, findings);
    }
    return findings;
}

Findings CheckMarker(const Machine& machine, const std::string& folder) {
    const std::string path = folder + "/" + markerFileName;
    const auto facts = machine.FactsOf(path);
    if (!facts) return {};
    if (MayRemove(machine, folder, *facts)) {
        return {{Severity::Note, "marker-left",
                 "a run of the driver is at work in " + Quoted(folder) +
                     ", or was killed there: " + markerFileName + " is there",
                 "Nothing: the next run removes it."}};
    }
    return {{Severity::Error, "marker-stays",
             ForAccount(machine) + " cannot remove " + Quoted(path) +
                 ": every run in this folder ends with \"Another instance of driver is already "
                 "running\"",
             "Remove it as its owner or as root, when no driver is at work; and let the account "
             "write into the folder."}};
}

Findings CheckSandbox(const Machine& machine) {
    Findings findings;
    const bool root = machine.account.uid == 0;
    if (!root) CheckKernel(machine, findings);
    if (!HasBubblewrap(machine)) {
        findings.push_back({Severity::Error, "no-bubblewrap",
                            "bubblewrap, which makes the private root of a run, is not installed",
                            "As root, `apt-get install bubblewrap`."});
    } else if (machine.IsThisOne() && machine.account.uid == geteuid() && findings.empty()) {
        TrySandbox(findings);
    }
    return findings;
}

Findings CheckDriver(const std::string& given) {
    try {
        runner::DriverPath(given);
    } catch (const std::runtime_error& missing) {
        return {{Severity::Error, "no-driver", Private(missing.what()),
                 "Install the driver as docs/setup.md says, or name it with --driver."}};
    }
    return {};
}

}  // namespace doctor
