// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ctl/Interrupts.h"

#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace {

sigset_t BothSignals() {
    sigset_t both;
    sigemptyset(&both);
    sigaddset(&both, SIGINT);
    sigaddset(&both, SIGTERM);
    return both;
}

}  // namespace

Interrupts::Interrupts() {
    const sigset_t both = BothSignals();
    sigprocmask(SIG_BLOCK, &both, nullptr);
    signal(SIGPIPE, SIG_IGN);
    fd_ = signalfd(-1, &both, SFD_CLOEXEC | SFD_NONBLOCK);
    if (fd_ == -1) throw std::system_error(errno, std::generic_category(), "signalfd");
}

Interrupts::~Interrupts() {
    while (Take() != 0) {  // one that is left would end the process now
    }
    close(fd_);
    const sigset_t both = BothSignals();
    sigprocmask(SIG_UNBLOCK, &both, nullptr);
    signal(SIGPIPE, SIG_DFL);
}

int Interrupts::Take() {
    signalfd_siginfo info{};
    const bool came = read(fd_, &info, sizeof info) == static_cast<ssize_t>(sizeof info);
    return came ? static_cast<int>(info.ssi_signo) : 0;
}
