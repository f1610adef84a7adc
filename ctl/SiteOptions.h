// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The options that say where a site keeps its configuration, its locks and its logs.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

#include "companion/runner/DeviceLock.h"
#include "companion/runner/Profile.h"

struct SiteOptions {
    std::string registerName;  // empty: the default one
    std::string config = "/etc/voltis";
    std::string locks = "/run/lock";
    std::string logs = "/var/log/voltis";
    std::string driver;      // empty: voltis beside voltisctl, else on PATH
    double waitSeconds = 0;  // for the register, while another run has it
};

/// Adds --register, --config and --logs.
void AddProfileOptions(CLI::App& command, SiteOptions& options);
/// Adds --register, --config, --locks, --logs, --driver and --wait.
void AddSiteOptions(CLI::App& command, SiteOptions& options);

/// The register that was chosen. ProfileError: there is none, or its file makes no sense.
runner::Profile ProfileFor(const SiteOptions& options);
/// As long as --wait says.
runner::LockWait WaitFor(const SiteOptions& options);
