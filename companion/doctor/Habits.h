// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Which of the habits of docs/emulator.md a register has: asked by entering and leaving fiscal mode
// and by switching the customer display, under repeated numbers. Nothing is printed or sold.
#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

#include "companion/doctor/Line.h"

namespace doctor {

/// In the order of HabitWords.
enum class Habit {
    NumberOnly,
    ForgetsAtStatus,
    ForgetsAtRequest,
    AnswersStrayEof,
    Silent,
    ForgetsWithoutPower
};
inline constexpr std::size_t habitCount = 6;
/// As Habit= has them.
std::span<const std::string_view, habitCount> HabitWords();

enum class Known { No, Yes, Possible };

/// What was found out. A register that forgets at a request has nothing left to forget, nor to take
/// another command for: then the other words about its memory are No.
class HabitAnswers {
  public:
    HabitAnswers() { known_.fill(Known::Possible); }
    void Set(Habit habit, Known known) { known_.at(static_cast<std::size_t>(habit)) = known; }
    Known Of(Habit habit) const { return known_.at(static_cast<std::size_t>(habit)); }
    /// Those words, separated by blanks.
    std::string Words(Known known) const;

  private:
    std::array<Known, habitCount> known_{};
};

/// What only a person can do at the register. Each returns when it is done; false: it will not be.
struct Hands {
    std::function<bool()> turnKeyToX;
    std::function<bool()> turnKeyToReg;
    std::function<bool()> switchOffAndOn;

    bool AreThere() const { return turnKeyToX && turnKeyToReg && switchOffAndOn; }
};

/// The register is not in a state in which it can be asked, or has stopped to answer. The message
/// says what to do.
class HabitsError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// Asks. The register is left as it was found, also by an exception: outside fiscal mode (or in it,
/// when it was), its display switched off, without a failure in its status. cashier: for a
/// register whose cashier system is on. Without hands some habits stay possible, because the
/// register shows them only when what it does again is refused.
HabitAnswers AskHabits(Speaker& speaker, const Hands& hands, std::uint8_t cashier = 1);

}  // namespace doctor
