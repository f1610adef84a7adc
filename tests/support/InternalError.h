// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The failure that a call with impossible arguments ends with.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "DriverException.h"

/// Raised in that file of the driver, when one is given.
inline void ExpectInternalError(const std::unique_ptr<DriverException>& failure,
                                const std::string& file = "") {
    const std::string place = file.empty() ? "" : file + "' line: ";
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->ErrorCode, 99);
    EXPECT_TRUE(failure->Message.starts_with("Internal error (file: '" + place))
        << failure->Message;
}
