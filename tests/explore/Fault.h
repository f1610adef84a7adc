// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What can go wrong with one frame, and a schedule: which faults happen where.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace explore {

/// What becomes of a frame, or of the answers that are on their way when the driver goes on.
enum class Fault : std::uint8_t {
    None,        // the frame arrives in its time; what is on its way arrives after the next frame
    Late,        // it arrives only when the driver has sent its next frame
    Later,       // it arrives only when the driver has sent its next frame but one
    Lost,        // it does not arrive
    Garbled,     // it arrives, and its check bytes tell that it is spoilt
    Noise,       // noise of the size of an answer arrives just before it
    PowerFails,  // the register's power fails for a moment just before it
    Refused,     // the register refuses: a request by BSY, a command by result 3 (printer error)
    Drained,     // no fault but a race: what was on its way arrives just before the driver's next
                 // frame, and the driver drops it
};
inline constexpr std::size_t faultCount = 9;

std::string_view FaultWord(Fault fault);  // "power-fails"
std::optional<Fault> FindFault(std::string_view word);
/// What it counts towards the limit of a search: a race counts nothing.
constexpr int CostOf(Fault fault) {
    return fault == Fault::None || fault == Fault::Drained ? 0 : 1;
}

class FaultSet {
  public:
    constexpr FaultSet() = default;
    constexpr FaultSet(std::initializer_list<Fault> faults) {
        for (const Fault fault : faults) Add(fault);
    }
    static constexpr FaultSet All() {
        FaultSet all;
        for (std::size_t i = 0; i < faultCount; ++i) all.Add(static_cast<Fault>(i));
        return all;
    }
    constexpr void Add(Fault fault) { bits_ |= 1U << static_cast<unsigned>(fault); }
    constexpr bool Has(Fault fault) const {
        return (bits_ >> static_cast<unsigned>(fault) & 1U) != 0;
    }
    constexpr bool Empty() const { return bits_ == 0; }
    constexpr FaultSet And(FaultSet other) const {
        FaultSet both;
        both.bits_ = bits_ & other.bits_;
        return both;
    }
    bool operator==(const FaultSet&) const = default;

  private:
    unsigned bits_ = 0;
};

/// A fault at a place: the places where something may go wrong are counted through a conversation,
/// from 0.
struct Step {
    std::size_t place;
    Fault fault;
    bool operator==(const Step&) const = default;
    auto operator<=>(const Step&) const = default;
};
using Schedule = std::vector<Step>;

/// "7:lost 12:noise"; "none" for no fault at all.
std::string ScheduleText(const Schedule& schedule);
/// Throws std::runtime_error that names the word that is wrong.
Schedule ParseSchedule(std::string_view text);

}  // namespace explore
