#include "companion/desk/Faults.h"

#include <algorithm>
#include <cstdint>
#include <utility>

namespace desk {

using emulator::Fate;
using emulator::FrameKind;

void Faults::Add(const Fault& fault) {
    if (fault.moment == Fault::Moment::Now)
        Happen(fault);
    else
        waiting_.push_back({fault});
}

std::vector<std::string> Faults::Waiting() const {
    std::vector<std::string> texts;
    texts.reserve(waiting_.size());
    for (const Waiter& waiter : waiting_) texts.push_back(waiter.fault.text);
    return texts;
}

// Every fault that is concerned counts, and all whose turn it is happen. Of their fates the first
// one holds.
template <typename Concerns>
Fate Faults::Count(Concerns concerns) {
    std::vector<Fault> due;
    for (Waiter& waiter : waiting_) {
        if (!concerns(waiter.fault)) continue;
        ++waiter.seen;
        if (waiter.seen >= waiter.fault.first) due.push_back(waiter.fault);
    }
    std::erase_if(waiting_, [](const Waiter& waiter) { return waiter.seen >= waiter.fault.last; });
    Fate fate = Fate::Pass;
    for (const Fault& fault : due) {
        const Fate wanted = Happen(fault);
        if (fate == Fate::Pass) fate = wanted;
    }
    return fate;
}

Fate Faults::Meet(FrameKind kind, emulator::View frame) {
    const Fate fate = Count([kind](const Fault& fault) {
        return fault.moment == Fault::Moment::At && fault.frame == kind;
    });
    if (onFrame_) onFrame_(kind, frame, fate);
    return fate;
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
