// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "voltisd/Working.h"

#include <fcntl.h>
#include <sys/signalfd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <system_error>

#include "companion/job/Job.h"
#include "companion/journal/Journal.h"
#include "companion/runner/DriverPath.h"
#include "companion/runner/Profile.h"
#include "companion/server/Descriptor.h"
#include "companion/server/Workers.h"
#include "companion/service/Worker.h"

namespace voltisd {

namespace {

// Neither bubblewrap nor the driver is to have them.
void KeepPipesHere() {
    for (const int pipe : {server::Workers::wakeFd, server::Workers::tellFd})
        fcntl(pipe, F_SETFD, FD_CLOEXEC);
}

// Of the signals that end a program, from now on; SIGHUP is for the server, which starts this anew
// where need be. The driver is started with the usual ones.
server::Descriptor SignalsOfTheEnd() {
    sigset_t ends;
    sigemptyset(&ends);
    for (const int number : {SIGTERM, SIGINT}) sigaddset(&ends, number);
    sigset_t blocked = ends;
    sigaddset(&blocked, SIGHUP);
    if (sigprocmask(SIG_BLOCK, &blocked, nullptr) != 0)
        throw std::system_error(errno, std::generic_category(), "signals");
    server::Descriptor signals(signalfd(-1, &ends, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!signals.IsOpen()) throw std::system_error(errno, std::generic_category(), "signalfd");
    return signals;
}

}  // namespace

void Work(const Place& place, const std::string& registerName, std::chrono::seconds patience) {
    const server::Descriptor signals = SignalsOfTheEnd();
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
    options.endFd = signals.Fd();
    options.tellFd = server::Workers::tellFd;
    options.patience = patience;
    service::WorkOff(jobs, options);
}

}  // namespace voltisd
