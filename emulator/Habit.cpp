// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "emulator/Habit.h"

#include <array>

namespace emulator {

namespace {

// A new habit is a row here, its place in the enumeration, what the register does about it, a test,
// and a column of the table in docs/reliability.md.
constexpr std::array<HabitRow, 6> habits = {{
    {Habit::NumberOnly, "number-only",
     "remembers the number of its last command, not its code and payload"},
    {Habit::ForgetsAtStatus, "forgets-at-status",
     "forgets its last command at any end-of-file frame, also at that of a status read"},
    {Habit::ForgetsAtRequest, "forgets-at-request", "forgets its last command at the next request"},
    {Habit::AnswersStrayEof, "answers-stray-eof",
     "acknowledges an end-of-file frame where none is due"},
    {Habit::SilentWhenUnreadable, "silent-when-unreadable",
     "is silent where others answer NAK to a frame that cannot be read"},
    {Habit::ForgetsWithoutPower, "forgets-without-power",
     "forgets its last command when its power fails"},
}};

constexpr bool InOrder() {
    for (std::size_t i = 0; i < habits.size(); ++i)
        if (static_cast<std::size_t>(habits[i].habit) != i) return false;
    return true;
}
static_assert(InOrder());

}  // namespace

std::span<const HabitRow> HabitTable() {
    return habits;
}

std::optional<Habit> FindHabit(std::string_view word) {
    for (const HabitRow& row : habits)
        if (row.word == word) return row.habit;
    return std::nullopt;
}

}  // namespace emulator
