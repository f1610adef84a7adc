// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/desk/Faults.h"

#include <algorithm>
#include <cstdint>
#include <utility>

namespace desk {

using emulator::Fate;
using emulator::FrameKind;

namespace {

// It says what becomes of one frame, which can be said once only.
bool Decides(const Fault& fault) {
    if (fault.moment != Fault::Moment::At) return false;
    return fault.action != Fault::Action::Late && fault.action != Fault::Action::PaperOut &&
           (fault.action != Fault::Action::Busy || fault.recovery.count() == 0);
}

}  // namespace

void Faults::Add(const Fault& fault) {
    if (fault.moment == Fault::Moment::Now)
        Happen(fault);
    else
        ordered_.push_back({fault});
}

std::vector<std::string> Faults::Waiting() const {
    return TextsOf([](const Order& order) { return !order.Over(); });
}

std::vector<std::string> Faults::NeverHappened() const {
    return TextsOf([](const Order& order) { return !order.happened; });
}

template <typename Wanted>
std::vector<std::string> Faults::TextsOf(Wanted wanted) const {
    std::vector<std::string> texts;
    for (const Order& order : ordered_)
        if (wanted(order)) texts.push_back(order.fault.text);
    return texts;
}

// Every fault that is concerned counts, and those whose turn it is happen; of those that decide
// what becomes of the frame the first one only.
template <typename Concerns>
Fate Faults::Count(Concerns concerns) {
    std::vector<Fault> due;
    bool decided = false;
    for (Order& order : ordered_) {
        if (order.Over() || !concerns(order.fault)) continue;
        ++order.seen;
        if (order.seen < order.fault.first) continue;
        if (Decides(order.fault) && std::exchange(decided, true)) continue;
        order.happened = true;
        due.push_back(order.fault);
    }
    std::erase_if(ordered_, [](const Order& order) { return order.Over() && order.happened; });
    Fate fate = Fate::Pass;
    for (const Fault& fault : due) {
        const Fate wanted = Happen(fault);
        if (fate == Fate::Pass) fate = wanted;
    }
    return fate;
}

// A delay is for the answer to the frame that it was ordered for, if there is one.
Fate Faults::Meet(FrameKind kind, emulator::View) {
    if (ToRegister(kind)) delay_ = std::chrono::milliseconds::zero();
    return Count([kind](const Fault& fault) {
        return fault.moment == Fault::Moment::At && fault.frame == kind;
    });
}

void Faults::Tell(FrameKind kind, emulator::View frame, Fate fate) {
    if (onFrame_) onFrame_(kind, frame, fate);
}

// A repetition is not judged, and so is not refused: the refusal is not for the next command.
void Faults::Passed(FrameKind kind) {
    if (kind == FrameKind::Data && std::exchange(refusing_, false)) device_.RefuseNone();
    Count([kind](const Fault& fault) {
        return fault.moment == Fault::Moment::After && fault.frame == kind;
    });
}

void Faults::LinePrinted() {
    Count([](const Fault& fault) { return fault.moment == Fault::Moment::AfterLines; });
}

std::chrono::milliseconds Faults::TakeDelay() {
    return std::exchange(delay_, std::chrono::milliseconds::zero());
}

void Faults::Recover(const Fault& fault, std::function<void()> action) {
    if (fault.recovery.count() == 0) return;
    after_(fault.recovery, [this, text = fault.text, end = std::move(action)] {
        end();
        if (onOver_) onOver_(text);
    });
}

Fate Faults::Happen(const Fault& fault) {
    if (onFault_) onFault_(fault.text);
    switch (fault.action) {
        case Fault::Action::Lose:
            return Fate::Lose;
        case Fault::Action::Corrupt:
            return Fate::Corrupt;
        case Fault::Action::Cut:
            return Fate::Cut;
        case Fault::Action::Nak:
            return Fate::Nak;
        case Fault::Action::Busy:
            if (fault.recovery.count() == 0) return Fate::Busy;
            device_.SetBusy(true);
            Recover(fault, [this] { device_.SetBusy(false); });
            return Fate::Pass;
        case Fault::Action::Refuse:
            device_.RefuseNext(static_cast<std::uint8_t>(fault.result));
            refusing_ = true;
            return Fate::Pass;
        case Fault::Action::Late:
            delay_ = std::max(delay_, fault.late);
            return Fate::Pass;
        case Fault::Action::PaperOut:
            device_.SetReceiptPaper(false);
            Recover(fault, [this] { device_.SetReceiptPaper(true); });
            return Fate::Pass;
        case Fault::Action::PowerOff:
            device_.PowerOff();
            Recover(fault, [this] { device_.PowerOn(); });
            return Fate::Pass;
    }
    return Fate::Pass;
}

}  // namespace desk
