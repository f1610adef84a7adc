// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The heap of the driver's code while it is explored: at a fixed address, and laid out by what is
// in use and hardly by what was, so that all of it can be put back, and equal states have equal
// bytes. Whoever links this replaces malloc and its family for the whole process.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace explore::heap {

/// Between these two, allocations come from the driver's heap; otherwise from the C library.
void Enter();
void Leave();

/// Appends what the heap contains. Free memory is zero and not contained.
void Save(std::vector<std::uint8_t>& bytes);
/// Makes it so again, from the first bytes; returns how many they were.
std::size_t Restore(std::span<const std::uint8_t> bytes);
void Clear();

}  // namespace explore::heap
