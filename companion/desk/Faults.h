// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Faults that wait for their moment on an emulated register and its line.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "companion/desk/FaultText.h"
#include "emulator/Register.h"
#include "emulator/Tap.h"

namespace desk {

/// Belongs to the thread of the line. Frames and printed lines count for a fault from when it was
/// added.
class Faults : public emulator::Tap {
  public:
    /// Does the action after that time, in the thread of the line.
    using After = std::function<void(std::chrono::milliseconds wait, std::function<void()> action)>;

    /// The register must outlive it.
    Faults(emulator::Register& device, After after) : device_(device), after_(std::move(after)) {}

    void Add(const Fault& fault);
    /// Those that may still happen, in the order in which they were added.
    std::vector<std::string> Waiting() const;
    /// Those that have not happened once: their frames did not come, another fault decided what
    /// became of them, no answer was there to be late, or no command to be refused.
    std::vector<std::string> NeverHappened() const;
    /// Forgets all of them. What has happened goes on until it is over.
    void Clear();

    /// To be called for each line that is printed.
    void LinePrinted();

    /// Called for each fault when it happens.
    void OnFault(std::function<void(const std::string& text)> listener) {
        onFault_ = std::move(listener);
    }
    /// Called for each one with a "for" when it is over.
    void OnOver(std::function<void(const std::string& text)> listener) {
        onOver_ = std::move(listener);
    }
    /// Called for each frame, with what has become of it.
    void OnFrame(
        std::function<void(emulator::FrameKind, emulator::View, emulator::Fate)> listener) {
        onFrame_ = std::move(listener);
    }

    emulator::Fate Meet(emulator::FrameKind kind, emulator::View frame) override;
    void Tell(emulator::FrameKind kind, emulator::View frame, emulator::Fate fate) override;
    void Passed(emulator::FrameKind kind) override;
    std::chrono::milliseconds TakeDelay(bool sent) override;

  private:
    // Lives on as long as it is going to happen.
    struct Order {
        Fault fault;
        long seen = 0;  // of its frames or lines
        bool happened = false;

        bool Over() const { return seen >= fault.last; }
    };
    using OrderPtr = std::shared_ptr<Order>;

    template <typename Wanted>
    std::vector<std::string> TextsOf(Wanted wanted) const;
    template <typename Concerns>
    emulator::Fate Count(Concerns concerns);
    emulator::Fate Begin(const OrderPtr& order);
    void Happened(const OrderPtr& order);
    emulator::Fate Do(const Fault& fault);
    void Recover(const Fault& fault, std::function<void()> action);

    emulator::Register& device_;
    After after_;
    std::vector<OrderPtr> ordered_;
    std::vector<OrderPtr> late_;  // when an answer to the frame is sent
    OrderPtr refused_;            // when the register judges the command
    std::function<void(const std::string&)> onFault_;
    std::function<void(const std::string&)> onOver_;
    std::function<void(emulator::FrameKind, emulator::View, emulator::Fate)> onFrame_;
};

}  // namespace desk
