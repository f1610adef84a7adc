// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/workbench/WorkFolder.h"

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <utility>

#include "companion/runner/Files.h"

namespace fs = std::filesystem;

namespace workbench {

namespace {

// What follows the last slash; the driver uses no more than that of its ResultFileName.
std::string FileNameOf(const std::string& path) {
    const std::size_t slash = path.find_last_of("/\\");
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

bool IsFile(const std::string& path) {
    std::error_code ignored;
    return fs::is_regular_file(path, ignored);
}

}  // namespace

WorkFolder::WorkFolder(runner::DriverSettings first)
    : settings(std::move(first)), files_(folder_.File("files")), logs_(folder_.File("logs")) {
    fs::create_directory(files_.Path());
    fs::create_directory(logs_.Path());
    const std::string name = FileNameOf(settings->Get("ResultFileName"));
    if (!name.empty()) resultFile_ = files_.File(name);
}

std::string WorkFolder::Take(const std::string& commandFile) {
    std::string name = fs::path(commandFile).filename().string();
    std::replace(name.begin(), name.end(), '\\', '_');
    runner::WriteFile(files_.File(name), runner::ReadFile(commandFile));
    return name;
}

runner::SandboxPlan WorkFolder::Prepare(const std::string& device) {
    if (IsFile(resultFile_)) fs::remove(resultFile_);
    oldLog_ = DebugLog().size();
    runner::SandboxPlan plan;
    plan.logs = logs_.Path();
    plan.device = device;
    if (settings) {
        runner::WriteFile(IniFile(), settings->Text());
        plan.ini = IniFile();
    }
    return plan;
}

std::optional<std::string> WorkFolder::Result() const {
    if (!IsFile(resultFile_)) return std::nullopt;
    return runner::ReadFile(resultFile_);
}

std::string WorkFolder::StandardLog() const {
    return runner::ReadFileIfAny(logs_.File("voltis.log"));
}

std::string WorkFolder::DebugLog() const {
    return runner::ReadFileIfAny(logs_.File("dbgerror.log"));
}

std::string WorkFolder::NewDebugLog() const {
    const std::string log = DebugLog();
    return log.size() > oldLog_ ? log.substr(oldLog_) : "";
}

}  // namespace workbench
