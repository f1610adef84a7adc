// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The driver in a process of its own, a new one for each run: what a snapshot has to be equal to.
#pragma once

#include <sys/types.h>

#include <vector>

#include "tests/explore/Driver.h"

namespace explore {

/// The process that has it must not have run the driver's code.
class ForkedDriver : public Driver {
  public:
    ForkedDriver() = default;
    ~ForkedDriver() override;
    ForkedDriver(const ForkedDriver&) = delete;
    ForkedDriver& operator=(const ForkedDriver&) = delete;

    const Call& Start(const RunFiles& files) override;
    const Call& Resume(bool answer) override;
    const Call& Pending() const override { return pending_; }
    DriverEnd End() const override { return end_; }

  private:
    const Call& Await();
    void Finish();

    int line_ = -1;
    pid_t child_ = 0;
    Call pending_;
    std::vector<std::uint8_t> block_;
    DriverEnd end_;
};

}  // namespace explore
