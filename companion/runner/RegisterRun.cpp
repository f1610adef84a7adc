// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/runner/RegisterRun.h"

#include <cstddef>
#include <filesystem>
#include <sstream>
#include <system_error>

#include "companion/runner/Device.h"
#include "companion/runner/Files.h"
#include "companion/runner/LogBlock.h"
#include "companion/runner/PrivateRoot.h"

namespace fs = std::filesystem;

namespace runner {

namespace {

constexpr char standardLogName[] = "voltis.log";
constexpr char debugLogName[] = "dbgerror.log";
// In the run's folder: where the lines of a run in place are, a line for each member of LogPlace.
constexpr char debugPlaceName[] = "debug-log-place";
constexpr char standardPlaceName[] = "standard-log-place";
constexpr int longestDyingMs = 2000;

// --- the run's folder --------------------------------------------------------------------------

std::string LogsIn(const std::string& runFolder) {
    return runFolder + "/logs";
}

// What an earlier run left there must not count as this one's.
void MakeFolders(const RunRequest& request) {
    for (const std::string name : {"result", "logs", debugPlaceName, standardPlaceName})
        fs::remove_all(request.folder + "/" + name);
    fs::create_directories(request.folder + "/result");
    fs::create_directory(LogsIn(request.folder));
    WriteFile(request.folder + "/command", request.command);
}

void WritePlace(const std::string& file, const LogPlace& place) {
    WriteFile(file, place.log + "\n" + std::to_string(place.from) + "\n" + place.commandFile);
}

LogPlace ReadPlace(const std::string& file) {
    std::istringstream in(ReadFileIfAny(file));
    LogPlace place;
    std::getline(in, place.log);
    in >> place.from;
    in.ignore();
    std::getline(in, place.commandFile, '\0');
    return place;
}

std::size_t SizeOf(const std::string& file) {
    std::error_code none;
    const std::uintmax_t size = fs::file_size(file, none);
    return none ? 0 : static_cast<std::size_t>(size);
}

// The run's own log, or its block in the site's.
std::string LogOf(const std::string& runFolder, const char* log, const char* placeName) {
    const std::string place = runFolder + "/" + placeName;
    std::error_code ignored;
    if (fs::exists(place, ignored)) return BlockAt(ReadPlace(place));
    return ReadFileIfAny(LogsIn(runFolder) + "/" + log);
}

// --- before the start --------------------------------------------------------------------------

SandboxError WithRemedy(const SandboxError& failure, const Profile& profile) {
    if (!profile.IsDefault()) return failure;
    return SandboxError(std::string(failure.what()) + "\nOr write Sandbox=no into '" +
                        profile.file + "': the driver then runs without a sandbox.");
}

// Without the conversation nobody could tell what was printed.
void CheckSiteKeepsConversation(const Profile& profile) {
    if (profile.dbgErrorLog != 0 && profile.dbgErrorLog != 1) return;
    throw RunError("'" + profile.file +
                   "': Sandbox=no needs DbgErrorLog=2, because the conversation with the register "
                   "is taken from that log");
}

}  // namespace

std::string DebugLogOf(const std::string& runFolder) {
    return LogOf(runFolder, debugLogName, debugPlaceName);
}

bool WasInPlace(const std::string& runFolder) {
    return !ReadFileIfAny(runFolder + "/" + debugPlaceName).empty();
}

RegisterRun::RegisterRun(const RunRequest& request) : request_(request) {
    CheckCommandPath(request.commandFile);
    if (!request.profile.sandbox) CheckSiteKeepsConversation(request.profile);
    MakeFolders(request);
    files_ = request.folder + "/result";
    start_ = std::chrono::steady_clock::now();
    request.profile.sandbox ? StartPrivately() : StartInPlace();
}

RegisterRun::~RegisterRun() {
    Kill();
}

void RegisterRun::StartPrivately() {
    PrivateRoot root;
    root.place = PlaceOf(request_.commandFile, fs::current_path());
    root.logs = LogsIn(request_.folder);
    if (root.place.folder == siteLogFolder) files_ = root.logs;  // one place cannot be both
    root.files = files_;
    root.ini = request_.folder + "/voltis.ini";
    root.driver = request_.driver;
    if (request_.profile.network.empty()) root.device = UsableDevice(request_.profile);
    SandboxPlan plan = PlanFor(root);
    plan.keepFd = request_.lockFd;
    plan.bwrap = request_.bwrap;
    name_ = root.place.name;
    WriteFile(root.ini, PrivateIni(request_.profile));
    WriteFile(files_ + "/" + name_, request_.command);
    try {
        process_ = std::make_unique<SandboxedRun>(
            plan, CommandLine{request_.driver, request_.commandFile});
    } catch (const SandboxError& failure) {
        throw WithRemedy(failure, request_.profile);
    }
}

// On a copy, too: what the verdict is about must be what was run.
void RegisterRun::StartInPlace() {
    if (request_.profile.network.empty()) UsableDevice(request_.profile);
    name_ = PlaceOf(request_.commandFile, "/").name;
    const std::string copy = files_ + "/" + name_;
    for (const auto& [log, place] :
         {std::pair(standardLogName, standardPlaceName), std::pair(debugLogName, debugPlaceName)}) {
        const std::string file = request_.siteLogs + "/" + log;
        WritePlace(request_.folder + "/" + place, {file, copy, SizeOf(file)});
    }
    WriteFile(copy, request_.command);
    SandboxPlan plan;
    plan.root = Root::None;
    plan.workDir = files_;
    plan.keepFd = request_.lockFd;
    process_ = std::make_unique<SandboxedRun>(plan, CommandLine{request_.driver, copy});
}

bool RegisterRun::Ended() {
    return process_->Ended();
}

void RegisterRun::Kill() {
    if (!process_) return;
    process_->Kill();
    process_->WaitUntilGone(longestDyingMs);
}

RunResult RegisterRun::Wait() {
    RunResult result;
    try {
        result.exitCode = process_->Wait().exitCode;
    } catch (const SandboxError& failure) {
        throw WithRemedy(failure, request_.profile);
    }
    process_->WaitUntilGone(longestDyingMs);
    result.seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
    constexpr int signalled = 128;
    if (result.exitCode > signalled) result.killedBySignal = result.exitCode - signalled;
    result.output = AsTheCallerNamesIt(process_->Output());
    result.resultText = Result();
    result.standardLog =
        AsTheCallerNamesIt(LogOf(request_.folder, standardLogName, standardPlaceName));
    result.debugLog = AsTheCallerNamesIt(DebugLog());
    return result;
}

std::optional<std::string> RegisterRun::Result() const {
    const Profile& profile = request_.profile;
    const std::string name = profile.sandbox ? PrivateResultName(profile) : profile.resultFileName;
    const std::string file = files_ + "/" + name;
    std::error_code ignored;
    if (name.empty() || !fs::is_regular_file(file, ignored)) return std::nullopt;
    const std::string text = ReadFile(file);
    // A result file may have the command file's name.
    if (name == name_ && text == request_.command) return std::nullopt;
    return AsTheCallerNamesIt(text);
}

// The driver in place knows the copy's path.
std::string RegisterRun::AsTheCallerNamesIt(std::string text) const {
    if (request_.profile.sandbox) return text;
    const std::string copy = files_ + "/" + name_;
    const std::string named = DriversPath(request_.commandFile);
    for (std::size_t at = 0; (at = text.find(copy, at)) != std::string::npos; at += named.size())
        text.replace(at, copy.size(), named);
    return text;
}

}  // namespace runner
