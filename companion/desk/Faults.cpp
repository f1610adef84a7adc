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
    const auto order = std::make_shared<Order>(Order{fault});
    if (fault.moment == Fault::Moment::Now)
        Begin(order);
    else
        ordered_.push_back(order);
}

void Faults::Clear() {
    ordered_.clear();
    late_.clear();
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
    for (const OrderPtr& order : ordered_)
        if (wanted(*order)) texts.push_back(order->fault.text);
    return texts;
}

// Every fault that is concerned counts, and those whose turn it is happen; of those that decide
// what becomes of the frame the first one only.
template <typename Concerns>
Fate Faults::Count(Concerns concerns) {
    std::vector<OrderPtr> due;
    bool decided = false;
    for (const OrderPtr& order : ordered_) {
        if (order->Over() || !concerns(order->fault)) continue;
        ++order->seen;
        if (order->seen < order->fault.first) continue;
        if (Decides(order->fault) && std::exchange(decided, true)) continue;
        due.push_back(order);
    }
    Fate fate = Fate::Pass;
    for (const OrderPtr& order : due) {
        const Fate wanted = Begin(order);
        if (fate == Fate::Pass) fate = wanted;
    }
    return fate;
}

// A delay is for the answer to the frame that it was ordered for, if there is one.
Fate Faults::Meet(FrameKind kind, emulator::View) {
    if (ToRegister(kind)) late_.clear();
    return Count([kind](const Fault& fault) {
        return fault.moment == Fault::Moment::At && fault.frame == kind;
    });
}

void Faults::Tell(FrameKind kind, emulator::View frame, Fate fate) {
    if (onFrame_) onFrame_(kind, frame, fate);
}

// A repetition is not judged, and so is not refused: the refusal is not for the next command.
void Faults::Passed(FrameKind kind) {
    if (const OrderPtr order = std::exchange(refused_, nullptr))
        if (!device_.RefuseNone()) Happened(order);
    Count([kind](const Fault& fault) {
        return fault.moment == Fault::Moment::After && fault.frame == kind;
    });
}

void Faults::LinePrinted() {
    Count([](const Fault& fault) { return fault.moment == Fault::Moment::AfterLines; });
}

std::chrono::milliseconds Faults::TakeDelay(bool sent) {
    std::chrono::milliseconds delay{0};
    for (const OrderPtr& order : std::exchange(late_, {})) {
        if (!sent) continue;
        delay = std::max(delay, order->fault.late);
        Happened(order);
    }
    return delay;
}

void Faults::Recover(const Fault& fault, std::function<void()> action) {
    if (fault.recovery.count() == 0) return;
    after_(fault.recovery, [this, text = fault.text, end = std::move(action)] {
        end();
        if (onOver_) onOver_(text);
    });
}

// Whether something is late or refused, what follows shows; everything else happens now.
Fate Faults::Begin(const OrderPtr& order) {
    const Fault& fault = order->fault;
    if (fault.action == Fault::Action::Late) {
        late_.push_back(order);
        return Fate::Pass;
    }
    if (fault.action == Fault::Action::Refuse) {
        device_.RefuseNext(static_cast<std::uint8_t>(fault.result));
        refused_ = order;
        return Fate::Pass;
    }
    Happened(order);
    return Do(fault);
}

void Faults::Happened(const OrderPtr& order) {
    order->happened = true;
    std::erase_if(ordered_, [](const OrderPtr& each) { return each->Over() && each->happened; });
    if (onFault_) onFault_(order->fault.text);
}

Fate Faults::Do(const Fault& fault) {
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
        case Fault::Action::Refuse:  // begun
        case Fault::Action::Late:
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
