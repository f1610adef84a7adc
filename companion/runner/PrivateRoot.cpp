// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/runner/PrivateRoot.h"

#include <algorithm>
#include <filesystem>
#include <initializer_list>
#include <system_error>

namespace fs = std::filesystem;

namespace runner {

namespace {

void Add(CommandLine& to, std::initializer_list<std::string> more) {
    to.insert(to.end(), more);
}

bool IsBeneath(const std::string& path, const std::string& folder) {
    return path == folder || path.starts_with(folder + "/");
}

bool IsBeneathAny(const std::string& path, std::initializer_list<const char*> folders) {
    return std::any_of(folders.begin(), folders.end(),
                       [&](const char* folder) { return IsBeneath(path, folder); });
}

// The machine's own folders come with its symbolic links; elsewhere inside there are none.
std::string MountPoint(const std::string& folder) {
    if (!IsBeneathAny(folder, {"/usr", "/bin", "/sbin"})) return folder;
    std::error_code ignored;
    const fs::path real = fs::weakly_canonical(folder, ignored);
    return real.empty() ? folder : real.string();
}

// Another folder in the place of these would leave no program that can start.
void CheckPlace(const std::string& folder) {
    if (IsBeneathAny(folder, {"/proc", "/dev/fd", "/lib", "/lib32", "/lib64", "/libx32", "/usr/lib",
                              "/usr/lib32", "/usr/lib64", "/usr/libx32"})) {
        throw RunError("a command file in '" + folder +
                       "' cannot be run; copy it into a folder of its own");
    }
}

// What the command file's folder has hidden.
void AppendHidden(CommandLine& to, const std::string& folder) {
    if (folder == "/etc") {
        for (const char* path : {"/etc/ld.so.cache", "/etc/localtime"})
            Add(to, {"--ro-bind-try", path, path});
    }
    if (folder != "/usr") return;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
        if (entry.is_directory()) Add(to, {"--ro-bind", entry.path(), entry.path()});
    }
}

// Private, too: the marker of a driver that was killed there would stop this one.
void AppendWorkDir(CommandLine& to, const CommandPlace& place) {
    const std::string& workDir = place.workDir;
    const bool kept = workDir == "/" || workDir == "/usr" || workDir == "/etc" ||
                      IsBeneathAny(workDir, {"/dev", "/proc", "/usr/lib", "/usr/bin"});
    if (!kept && workDir != place.folder) Add(to, {"--tmpfs", workDir});
}

// The base is in its place already.
void AppendFiles(CommandLine& to, const PrivateRoot& root) {
    const std::string folder = MountPoint(root.place.folder);
    CheckPlace(folder);
    if (folder == "/") return;
    Add(to, {"--bind", root.files, folder});
    AppendHidden(to, folder);
}

CommandLine FoldersFor(const PrivateRoot& root) {
    CommandLine arguments;
    AppendWorkDir(arguments, root.place);
    AppendFiles(arguments, root);
    for (const std::string& folder : root.place.crossed) Add(arguments, {"--dir", folder});
    return arguments;
}

}  // namespace

SandboxPlan PlanFor(const PrivateRoot& root) {
    CheckPlace(root.place.folder);
    SandboxPlan plan;
    if (root.place.folder == "/") plan.base = root.files;
    plan.folders = FoldersFor(root);
    plan.workDir = root.place.workDir;
    plan.ini = root.ini;
    plan.logs = root.logs;
    plan.device = root.device;
    plan.bwrapArguments = {"--ro-bind", root.driver, root.driver};
    return plan;
}

}  // namespace runner
