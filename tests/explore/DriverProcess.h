// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// A run of the driver that can be stopped at every call of the channel, put aside, and gone on with
// from there any number of times.
//
// The driver's code runs on a stack of its own and with a heap of its own (DriverHeap.h). All that
// it can change is that stack, that heap, and the data segment of this program; an image is a copy
// of these three. The explorer itself keeps nothing that changes in the data segment.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "tests/explore/Driver.h"
#include "tests/explore/Hash.h"
#include "tests/explore/Port.h"

namespace explore {

class DriverProcess : public Driver, private Port {
  public:
    struct Image;

    /// There may be one such object in a process at a time.
    DriverProcess();
    ~DriverProcess() override;
    DriverProcess(const DriverProcess&) = delete;
    DriverProcess& operator=(const DriverProcess&) = delete;

    const Call& Start(const RunFiles& files) override;
    const Call& Resume(bool answer) override;
    const Call& Pending() const override;
    DriverEnd End() const override;

    std::shared_ptr<const Image> Save();
    void Restore(const std::shared_ptr<const Image>& image);
    /// Equal for images from which the driver goes on alike. It leaves out counters that only a log
    /// shows, and what is overwritten before it is read.
    static const Hash& HashOf(const Image& image);

  private:
    struct Machine;

    // From inside the driver.
    void Open() override;
    void Close() override;
    bool Read(std::uint8_t* block, std::size_t size) override;
    void Write(const std::uint8_t* block, std::size_t size) override;

    bool Suspend(Call::Kind kind, std::uint8_t* block, std::size_t size);
    const Call& SwitchIn();
    void SwitchOver();
    static void Body();

    std::unique_ptr<Machine> machine_;
};

}  // namespace explore
