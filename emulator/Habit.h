// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// How registers differ behind the same frames: what one does when a frame is repeated, unreadable
// or not due. None of it can be read from the register; docs/reliability.md tells what each means
// for a shop.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace emulator {

/// A register without any of these remembers the command that it accepted last (code, payload and
/// sequence number), through status reads and power failures, until that command's end-of-file
/// frame.
enum class Habit : std::uint8_t {
    NumberOnly,            ///< of the command accepted last it remembers the number only
    ForgetsAtStatus,       ///< forgets it at any end-of-file frame, also at that of a status read
    ForgetsAtRequest,      ///< forgets it at the next request
    AnswersStrayEof,       ///< acknowledges an end-of-file frame where none is due
    SilentWhenUnreadable,  ///< is silent where others ask for a frame again by NAK
    ForgetsWithoutPower,   ///< forgets it when its power fails
};

struct HabitRow {
    Habit habit;
    std::string_view word;     // as given on a command line
    std::string_view meaning;  // "forgets its last command at ..."
};
/// All of them, in the order of the enumeration.
std::span<const HabitRow> HabitTable();

/// The habit with that word.
std::optional<Habit> FindHabit(std::string_view word);

/// A set of them.
class Habits {
  public:
    Habits() = default;
    void Add(Habit habit) { bits_ |= Bit(habit); }
    bool Has(Habit habit) const { return (bits_ & Bit(habit)) != 0; }
    bool operator==(const Habits&) const = default;

  private:
    static unsigned Bit(Habit habit) { return 1U << static_cast<unsigned>(habit); }
    unsigned bits_ = 0;
};

}  // namespace emulator
