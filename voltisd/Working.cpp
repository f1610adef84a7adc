// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "voltisd/Working.h"

#include <fcntl.h>

#include <filesystem>

#include "companion/job/Job.h"
#include "companion/journal/Journal.h"
#include "companion/runner/DriverPath.h"
#include "companion/runner/Profile.h"
#include "companion/server/Workers.h"
#include "companion/service/Worker.h"

namespace voltisd {

namespace {

// Neither bubblewrap nor the driver is to have them.
void KeepPipesHere() {
    for (const int pipe : {server::Workers::wakeFd, server::Workers::tellFd})
        fcntl(pipe, F_SETFD, FD_CLOEXEC);
}

}  // namespace

void Work(const Place& place, const std::string& registerName, std::chrono::seconds patience) {
    KeepPipesHere();
    const runner::Profile profile = runner::LoadProfile(place.config, registerName);
    const std::string path = JournalOf(place);
    journal::Journal journal(path);
    job::Site site;
    site.driver = runner::DriverPath(place.driver);
    site.locks = place.locks;
    site.logs = place.logs;
    job::Jobs jobs(journal, profile, site,
                   std::filesystem::path(path).parent_path().string() + "/runs");
    service::WorkerOptions options;
    options.wakeFd = server::Workers::wakeFd;
    options.tellFd = server::Workers::tellFd;
    options.patience = patience;
    service::WorkOff(jobs, options);
}

}  // namespace voltisd
