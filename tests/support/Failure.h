// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Catches what the driver throws, so that a test can look at it.
#pragma once

#include <memory>

#include "DriverException.h"

/// The failure that the action ended with, or null when it ended well.
template <typename Action>
std::unique_ptr<DriverException> FailureOf(Action action) {
    try {
        action();
    } catch (DriverException* failure) {
        return std::unique_ptr<DriverException>(failure);
    }
    return nullptr;
}
