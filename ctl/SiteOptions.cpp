// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ctl/SiteOptions.h"

#include <chrono>

#include "ctl/FiniteRange.h"

namespace {

constexpr double longestWait = 86400 * 365.0;

void AddFolder(CLI::App& command, const char* name, std::string& folder, const char* help) {
    command.add_option(name, folder, help)->type_name("DIR")->capture_default_str();
}

void AddRegister(CLI::App& command, SiteOptions& options) {
    command
        .add_option(
            "--register", options.registerName,
            "The register: registers/NAME.ini in the configuration folder (default: the one "
            "of voltis.ini)")
        ->type_name("NAME");
    AddFolder(command, "--config", options.config, "The configuration folder");
}

void AddLogs(CLI::App& command, SiteOptions& options) {
    AddFolder(command, "--logs", options.logs, "The folder of the site's logs");
}

}  // namespace

void AddProfileOptions(CLI::App& command, SiteOptions& options) {
    AddRegister(command, options);
    AddLogs(command, options);
}

void AddSiteOptions(CLI::App& command, SiteOptions& options) {
    AddRegister(command, options);
    AddFolder(command, "--locks", options.locks, "The folder of the serial ports' lock files");
    AddLogs(command, options);
    command
        .add_option("--driver", options.driver,
                    "The driver to run (default: voltis beside voltisctl, else on PATH)")
        ->type_name("PATH");
    command
        .add_option("--wait", options.waitSeconds,
                    "How long to wait while another run has the register")
        ->check(FiniteRange(0, longestWait))
        ->type_name("SECONDS")
        ->capture_default_str();
}

runner::Profile ProfileFor(const SiteOptions& options) {
    if (options.registerName.empty()) return runner::LoadProfile(options.config);
    return runner::LoadProfile(options.config, options.registerName);
}

runner::LockWait WaitFor(const SiteOptions& options) {
    runner::LockWait wait;
    wait.longest = std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::duration<double>(options.waitSeconds));
    return wait;
}
